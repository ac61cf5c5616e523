// Bound lists that are sent although nothing has changed: to a card whose agent has registered, and
// to a port that joins or leaves a LAG.
#include "download/zekacl_download.h"
#include "interface/interface.h"
#include "ipacl/propagate.h"
#include "ipacl/zekipaccess.h"

namespace {

// Calls fn(list, binding) for the IPv4 lists of an interface, ingress first.
template <class Fn>
void forBoundLists(const aclIntf& intf, Fn&& fn) {
    for (uint32_t direction : {INTF_IN, INTF_OUT}) {
        aclList* list = intf.lists[INTF_V4][direction];
        if (list == nullptr) continue;
        const aclBinding* binding = aclInterfaceBinding(list, intf.ifindex, direction);
        if (binding != nullptr) fn(list, *binding);
    }
}

void sendToPort(aclList* list, const aclBinding& binding, const aclChange& change, uint32_t port) {
    list->sendBlock = binding.block;
    (void)aclSendToInterface(list, change, {port, binding.direction, binding.implicitPermit});
}

void replayToCard(aclList* list, const aclBinding& binding, uint32_t slot) {
    switch (ifindexType(binding.id)) {
        case IF_TYPE_CP:
            break;  // not a card's: its own agent gets the list when it registers
        case IF_TYPE_VLAN: {
            const uint32_t id = binding.direction == INTF_IN ? MT_ACL_ADDLIST : MT_ACL_EGR_ADDLIST;
            (void)aclSendVlanAclForResetLinecard(list, &binding, slot, id, 0);
            break;
        }
        default:
            aclWalkPorts(binding.id, [&](uint32_t port) {
                if (ifindexSlot(port) == static_cast<int>(slot))
                    sendToPort(list, binding, aclListAdded, port);
            });
    }
}

void refreshLagPort(uint32_t lagIfindex, uint32_t port, const aclChange& change) {
    const aclIntf* lag = AclIntfTreeFind(lagIfindex);
    if (lag == nullptr) return;
    forBoundLists(*lag, [&](aclList* list, const aclBinding& binding) {
        sendToPort(list, binding, change, port);
    });
}

}  // namespace

void AclUpdateAclAgent(uint32_t slot) {
    if (slot >= SLOT_COUNT) return;
    for (const aclIntf* intf = AclIntfTreeFindFirst(); intf != nullptr;
         intf = AclIntfTreeFindNext(intf->ifindex))
        forBoundLists(*intf, [slot](aclList* list, const aclBinding& binding) {
            replayToCard(list, binding, slot);
        });
    // A filter that is enabled but not defined yet is nowhere installed.
    for (aclList* list = ipDosListFindFirst(); list != nullptr;
         list = ipDosListFindNext(list->name))
        if ((list->kind & DOS_ACTIVE) != 0 && list->placeholder == 0)
            (void)aclSendToAclAgent(list, slot, 1, MT_DOS_ADDLIST, 0, 0, 0);
}

int aclLagPortJoined(uint32_t lagIfindex, uint32_t port) {
    const int result = aclLagMemberAdd(lagIfindex, port);
    if (result == 0) refreshLagPort(lagIfindex, port, aclListAdded);
    return result;
}

int aclLagPortLeft(uint32_t lagIfindex, uint32_t port) {
    const int result = aclLagMemberRemove(lagIfindex, port);
    if (result == 0) refreshLagPort(lagIfindex, port, aclListDeleted);
    return result;
}
