// Who receives what is bound to a place: see targets.h.
#include "interface/targets.h"

#include <algorithm>

#include "interface/halAclMgr.h"
#include "platform/api/zekTask.h"

namespace {

// What decides whether a card takes a list.
struct cardRule {
    uint32_t family, direction;
    bool entry;
    // Cards sort out egress IPv6 lists themselves.
    bool unchecked() const { return family == INTF_V6 && direction == INTF_OUT; }
    bool allows(const aclLinecard& card) const {
        if (unchecked()) return true;
        if (family == INTF_V6)
            return card.isUp == 1 ? card.isIpv6Enabled != 0 : halAclMgrIsV6AclSupported() != 0;
        // Of IPv4 only the egress lists themselves are held back from a card that cannot take them.
        // Entries go to it all the same: its agent refuses them for want of their list.
        return direction == INTF_IN || entry || card.isVortan != 0;
    }
};

// The cards of the ports behind an interface.
void addCards(const aclTargetQuery& query, uint32_t ifindex, aclPlaceCards* cards) {
    const cardRule rule = {query.family, query.place.direction, query.entry};
    aclWalkPorts(ifindex, [&](uint32_t port) {
        const int slot = ifindexSlot(port);
        if (slot == SLOT_NONE || (query.onlySlot != SLOT_NONE && slot != query.onlySlot)) return;
        if (!rule.allows(aclLinecardInfo[slot])) {
            cards->refused.set(static_cast<size_t>(slot));
            return;
        }
        const int target = zekifIndexToSfId(port);
        if (target >= 0 && target < static_cast<int>(SLOT_COUNT))
            cards->map[static_cast<size_t>(target)] = 1;
    });
}
void leaveOut(const aclTargetQuery& query, aclPlaceCards* cards) {
    if (query.without == nullptr) return;
    for (size_t target = 0; target < PP_TARGETS; target++)
        if ((*query.without)[target] != 0) cards->map[target] = 0;
}

}  // namespace

uint32_t aclPortPipe(uint32_t ifindex) {
    int slot = ifindexSlot(ifindex);
    if (slot == SLOT_NONE) return static_cast<uint32_t>(-1);
    int port = ifindexUserPort(ifindex);
    if (!ifindexHasPortId(ifindex))
        port = zekSysCardTypeUsrPortIdToPortId(slot, ifindexPort(ifindex), port);
    return static_cast<uint32_t>(port < 0 ? -1 : zekSysCardTypePortIdToPP(slot, port));
}

aclPPBitMap aclOtherTargets(const aclPPBitMap& map) {
    aclPPBitMap others;
    std::ranges::transform(map, others.begin(), [](uint32_t marked) { return marked == 0; });
    return others;
}

aclPlaceCards aclGetPPBitMap(const aclTargetQuery& query) {
    aclPlaceCards cards;
    addCards(query, query.onlyMember != 0 ? query.onlyMember : query.place.ifindex, &cards);
    leaveOut(query, &cards);
    return cards;
}

const aclVlanGroup* aclFindAclVlanGrpFromCugID(uint32_t id) {
    for (const aclVlanGroup& group : aclNode->groups.vlanGroups)
        if (id != 0 && group.id == id) return &group;
    return nullptr;
}

aclPlaceCards aclGetVlanGrpPortPipe(const aclTargetQuery& query) {
    aclPlaceCards cards;
    const aclVlanGroup* group = aclFindAclVlanGrpFromCugID(query.place.groupId);
    if (group == nullptr || aclNode->chassis.chassisMode != CHASSIS_MODE_VLAN_GROUPS) return cards;
    if (query.onlyMember != 0) {
        addCards(query, query.onlyMember, &cards);
    } else {
        vlanBits vlans{};
        for (uint32_t vlan = 0; vlan < group->members.size(); vlan++)
            if (group->members.test(vlan)) vlanBitSet(&vlans, vlan, true);
        // Every member is asked once for its VLANs: there may be thousands of memberships for each.
        for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
             i = AclIntfTreeFindNext(i->ifindex))
            if (vlanBitsMeet(*i->vlans, vlans)) addCards(query, i->ifindex, &cards);
    }
    leaveOut(query, &cards);
    return cards;
}

aclTarget aclTargetOfPort(const aclTargetQuery& query, uint32_t port, int slot) {
    aclTarget target{port, SLOT_NONE, aclPortPipe(port)};
    const aclLinecard& card = aclLinecardInfo[slot];
    // Only this family of forwarding chips filters what leaves a port.
    target.refused = query.place.direction == INTF_OUT
                         ? card.isVortan == 0
                         : !cardRule{query.family, INTF_IN, query.entry}.allows(card);
    return target;
}
