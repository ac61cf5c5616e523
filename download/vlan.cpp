// Lists that are bound to LAGs and VLANs: which cards take them, and the sends to those cards.
#include <bitset>

#include "common/debug.h"
#include "download/halAclMgr.h"
#include "download/sendPath.h"
#include "download/zekacl_download.h"
#include "platform/api/zekTask.h"

namespace {

// Of IPv4 only the egress lists themselves are held back from a card that cannot take them. Entries
// go to it all the same: its agent refuses them for want of their list.
bool cardTakes(const aclLinecard& card, uint32_t ipv6, uint32_t messageId) {
    if (ipv6 != 0)
        return card.isUp == 1 ? card.isIpv6Enabled != 0 : halAclMgrIsV6AclSupported() != 0;
    return card.isVortan != 0 ||
           (messageId != MT_ACL_EGR_ADDLIST && messageId != MT_ACL_EGR_DELLIST);
}

// One call's marking: the map, and the slots that have been reported in it.
struct marking {
    aclPPBitMap* map;
    uint32_t ipv6, messageId;
    int onlySlot = SLOT_NONE;  // set: other cards are not looked at
    std::bitset<SLOT_COUNT> reported{};
};

bool cardRefuses(marking* m, int slot) {
    if (cardTakes(aclLinecardInfo[slot], m->ipv6, m->messageId)) return false;
    if (!m->reported.test(static_cast<size_t>(slot))) {
        m->reported.set(static_cast<size_t>(slot));
        aclSysErr(SYSERR_LIST, "Error: %s access-list not supported on linecard %d\r\n",
                  m->ipv6 != 0 ? "IPv6" : "Egress", slot);
    }
    return true;
}

// Every port behind the interface. The members of LAGs and VLANs are marked; a port that is bound
// itself only when the caller says so.
void markPorts(marking* m, uint32_t ifindex, bool markBoundPort) {
    if (ifindex == 0) return;
    uint32_t type = ifindexType(ifindex);
    // Cards sort out egress IPv6 lists themselves.
    bool unchecked = m->ipv6 != 0 && aclV6IsEgAcl(m->messageId);
    bool mark = unchecked || markBoundPort || type == IF_TYPE_LAG || type == IF_TYPE_VLAN;
    aclWalkPorts(ifindex, [&](uint32_t port) {
        int slot = ifindexSlot(port);
        if (slot == SLOT_NONE || (m->onlySlot != SLOT_NONE && slot != m->onlySlot)) return;
        if (!unchecked && cardRefuses(m, slot)) return;
        int target = zekifIndexToSfId(port);
        if (mark && target >= 0 && target < static_cast<int>(SLOT_COUNT))
            (*m->map)[static_cast<size_t>(target)] = 1;
    });
}

// The list to every target of the map, on behalf of the VLAN. The result is the last send's.
int sendListToTargets(const aclPPBitMap& map, aclList* list, uint32_t vlan, uint32_t flag,
                      uint32_t messageId, uint32_t implicitPermit, uint32_t ipv6) {
    int result = 0;
    for (uint32_t target = 0; target < PP_TARGETS; target++) {
        if (map[target] == 0) continue;
        aclDebug(DEBUG_ACL_IPC,
                 "alist = %p " LIST_NAME_FMT
                 " : ii = %d : flag = %d : iType = %d : implicit_permit = %d\r\n",
                 static_cast<void*>(list), listNameArg(list->name), static_cast<int>(target),
                 static_cast<int>(flag), static_cast<int>(messageId),
                 static_cast<int>(implicitPermit));
        result = iAclSendToAclAgent({.item = list,
                                     .ifindex = target,
                                     .messageId = messageId,
                                     .entryCount = static_cast<uint32_t>(list->count),
                                     .option = implicitPermit,
                                     .portPipe = ipv6 != 0 ? 0xFFu : 0u,
                                     .vlan = vlan});
    }
    return result;
}

int sendEntryToTargets(const aclSendItem& entry, uint32_t vlan, uint32_t messageId, uint32_t count,
                       uint32_t ipv6, const listName& name) {
    if (!aclMayDownload()) return 0;
    aclPPBitMap map{};
    aclGetPPBitMap(vlan, &map, ipv6, messageId);
    int result = 0;
    for (uint32_t target = 0; target < PP_TARGETS; target++) {
        if (map[target] == 0) continue;
        // Half the target's number: it is meant.
        aclDebug(DEBUG_ACL_IPC, "sending to linecard %d \r\n", static_cast<int>(target / 2));
        result = iAclSendToAclAgent({.item = entry,
                                     .ifindex = target,
                                     .messageId = messageId,
                                     .count = count,
                                     .entryCount = count,
                                     .portPipe = ipv6 != 0 ? 0xFFu : 0u,
                                     .vlan = vlan,
                                     .name = &name});
    }
    return result;
}

}  // namespace

bool aclV6IsEgAcl(uint32_t messageId) {
    return messageId >= MT_ACL_V6_EGR_ADDLIST && messageId <= MT_ACL_V6_EGR_DELLIST;
}

void aclGetPPBitMap(uint32_t ifindex, aclPPBitMap* map, uint32_t ipv6, uint32_t messageId) {
    if (map == nullptr) return;
    marking m{map, ipv6, messageId};
    markPorts(&m, ifindex, false);
}

int aclSendVlanAclToAclAgent(aclList* list, uint32_t vlanIfindex, uint32_t flag, uint32_t messageId,
                             uint32_t implicitPermit, uint32_t ipv6) {
    if (list == nullptr) return -1;
    if (!aclMayDownload()) return 0;
    aclPPBitMap map{};
    aclGetPPBitMap(vlanIfindex, &map, ipv6, messageId);
    return sendListToTargets(map, list, vlanIfindex, flag, messageId, implicitPermit, ipv6);
}

int aclSendVlanAclEntToAclAgent(const aclEntry* entry, uint32_t vlanIfindex,
                                [[maybe_unused]] uint32_t flag, uint32_t messageId, uint32_t count,
                                uint32_t ipv6, const listName& name) {
    // An IPv6 entry is of another type and has its own send.
    if (entry == nullptr || ipv6 != 0) return -1;
    return sendEntryToTargets(entry, vlanIfindex, messageId, count, 0, name);
}

int aclV6SendVlanAclEntToAclAgent(const acl6Entry* entry, uint32_t vlanIfindex, uint32_t messageId,
                                  const listName& name) {
    if (entry == nullptr) return -1;
    return sendEntryToTargets(entry, vlanIfindex, messageId, 1, 1, name);
}

int aclSendVlanAclToAclAgentSpecificMember(aclList* list, uint32_t vlanIfindex, uint32_t flag,
                                           uint32_t messageId, uint32_t implicitPermit,
                                           uint32_t ipv6, uint32_t lag, uint32_t port) {
    if (list == nullptr) return -1;
    if (!aclMayDownload()) return 0;
    aclPPBitMap map{};
    marking m{&map, ipv6, messageId};
    markPorts(&m, lag != 0 ? lag : port, true);
    return sendListToTargets(map, list, vlanIfindex, flag, messageId, implicitPermit, ipv6);
}

int aclSendVlanAclForResetLinecard(aclList* list, const aclBinding* binding, uint32_t slot,
                                   uint32_t messageId, uint32_t ipv6) {
    if (list == nullptr || binding == nullptr || slot >= SLOT_COUNT) return -1;
    if (!aclMayDownload()) return 0;
    aclPPBitMap map{};
    marking m{&map, ipv6, messageId, static_cast<int>(slot)};
    markPorts(&m, binding->id, false);
    list->sendBlock = binding->block;
    return sendListToTargets(map, list, binding->id, 1, messageId, binding->implicitPermit, ipv6);
}

// ACL VLAN groups cannot be configured yet: a group has no ports, so there is nobody to send to.
int aclSendToVlanGroup(aclList*, const aclEntry*, uint32_t, uint32_t) {
    return 0;
}
