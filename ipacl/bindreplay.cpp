// Bound lists that are sent although nothing has changed: to a card whose agent has registered, and
// to ports that join or leave a LAG or a VLAN.
#include "download/zekacl_download.h"
#include "interface/interface.h"
#include "ipacl/propagate.h"
#include "ipacl/zekvlangroup.h"

namespace {

// Calls fn(list, binding) for the lists of an interface, family by family, ingress first.
template <class Fn>
void forBoundLists(const aclIntf& intf, Fn&& fn) {
    for (const auto& places : intf.lists)
        for (uint32_t direction : {INTF_IN, INTF_OUT}) {
            const aclList* list = places[direction];
            if (list == nullptr) continue;
            const aclBinding* binding = aclInterfaceBinding(list, intf.ifindex, direction);
            if (binding != nullptr) fn(list, *binding);
        }
}

// A binding's list again, to a part of its place.
void sendAgain(const aclList* list, const aclBinding& b, aclEvent event, uint32_t ifindex,
               const aclOnly& only = {}) {
    (void)aclSendToInterface(list, {event}, {ifindex, b.direction}, {b.implicitPermit, &b.block},
                             only);
}

// Pairs of source guard are told to cards as IPv4 lists are.
uint32_t placeOnCards(const aclList& list) {
    const uint32_t place = list.family->place;
    return place == INTF_IPMAC ? uint32_t{INTF_V4} : place;
}
bool hasOwn(uint32_t port, const aclList& list, uint32_t direction) {
    return aclPortHasOwnList(port, placeOnCards(list), direction);
}

void refreshLagPort(uint32_t lagIfindex, uint32_t port, aclEvent event) {
    if (const aclIntf* lag = AclIntfTreeFind(lagIfindex))
        forBoundLists(*lag, [&](const aclList* list, const aclBinding& b) {
            if (!hasOwn(port, *list, b.direction)) sendAgain(list, b, event, port);
        });
}

}  // namespace

void AclUpdateAclAgent(uint32_t slot) {
    if (slot >= SLOT_COUNT) return;
    for (const aclIntf* intf = AclIntfTreeFindFirst(); intf != nullptr;
         intf = AclIntfTreeFindNext(intf->ifindex))
        forBoundLists(*intf, [slot](const aclList* list, const aclBinding& b) {
            // The control plane's list is not a card's: its own agent gets it when it registers.
            if (ifindexType(b.id) != IF_TYPE_CP)
                sendAgain(list, b, aclEvent::listAdded, b.id, {static_cast<int>(slot)});
        });
    aclVlanGroupReplay(slot);
    // A filter that is enabled but not defined yet is nowhere installed.
    for (const aclList* list = ipDosListFindFirst(); list != nullptr;
         list = ipDosListFindNext(list->name))
        if ((list->kind & DOS_ACTIVE) != 0 && list->placeholder == 0)
            (void)iAclSendToAclAgent({slot}, {MT_DOS_ADDLIST, list});
}

int aclLagPortJoined(uint32_t lagIfindex, uint32_t port) {
    const int result = aclLagMemberAdd(lagIfindex, port);
    if (result == 0) refreshLagPort(lagIfindex, port, aclEvent::listAdded);
    return result;
}

int aclLagPortLeft(uint32_t lagIfindex, uint32_t port) {
    const int result = aclLagMemberRemove(lagIfindex, port);
    if (result == 0) refreshLagPort(lagIfindex, port, aclEvent::listDeleted);
    return result;
}

void aclSendLagListToPort(const aclIntf& port, uint32_t family, uint32_t direction) {
    const aclIntf* lag = port.lag != 0 ? AclIntfTreeFind(port.lag) : nullptr;
    if (lag == nullptr) return;
    forBoundLists(*lag, [&](const aclList* list, const aclBinding& b) {
        if (b.direction == direction && placeOnCards(*list) == family &&
            !hasOwn(port.ifindex, *list, direction))
            sendAgain(list, b, aclEvent::listAdded, port.ifindex);
    });
}

void aclVlanMemberJoined(uint32_t vlanIfindex, uint32_t member) {
    if (const aclIntf* vlan = AclIntfTreeFind(vlanIfindex))
        forBoundLists(*vlan, [&](const aclList* list, const aclBinding& b) {
            sendAgain(list, b, aclEvent::listAdded, vlanIfindex, {SLOT_NONE, member});
        });
}

// The card loses the VLAN's list with this member, and has it again at once, behind the loss in the
// same queue, when other members are there.
void aclVlanMemberLeft(uint32_t vlanIfindex, uint32_t member) {
    const aclIntf* vlan = AclIntfTreeFind(vlanIfindex);
    if (vlan == nullptr) return;
    forBoundLists(*vlan, [&](const aclList* list, const aclBinding& b) {
        sendAgain(list, b, aclEvent::listDeleted, vlanIfindex, {SLOT_NONE, member});
        const aclPPBitMap gone = aclOtherTargets(
            aclGetPPBitMap({{vlanIfindex, b.direction}, placeOnCards(*list), false}).map);
        sendAgain(list, b, aclEvent::listAdded, vlanIfindex, {SLOT_NONE, member, &gone});
    });
}

void aclDownloadCfgtoAcl0() {
    const aclIntf* intf = AclIntfTreeFind(IFINDEX_CP_BIND);
    if (intf == nullptr) return;
    forBoundLists(*intf, [](const aclList* list, const aclBinding& b) {
        if (b.direction != INTF_IN) return;  // its own agent is sent the ingress list alone
        (void)iAclSendToAclAgent({IFINDEX_CP_BIND},
                                 {MT_ACL_ADDLIST, list, nullptr, 1, &b.block, b.implicitPermit});
    });
}
