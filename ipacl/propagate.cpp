// The one walk over a list's bindings: ports, LAG members, VLANs, VLAN groups and the management
// tasks that keep copies. What has changed comes as a small record; who receives it is decided
// here.
#include "ipacl/propagate.h"
#include "common/node.h"

#include <iterator>

#include "common/linecard.h"
#include "include/service.h"
#include "interface/interface.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekTask.h"

namespace {

constexpr uint32_t CHASSIS_WITH_VLAN_GROUPS = 7;

int sendToPort(aclList* list, const aclChange& change, const aclPlace& place, uint32_t port) {
    int slot = ifindexSlot(port);
    if (slot == SLOT_NONE) return 0;
    bool egress = place.direction != 0;
    // Only this family of forwarding chips filters what leaves a port.
    if (egress && aclLinecardInfo[slot].isVortan == 0) return 0;
    uint32_t id = egress ? change.egress : change.ingress;
    uint32_t pipe = aclPortPipe(port);
    return change.entry != nullptr
               ? aclSendEntToAclAgent(change.entry, port, id, 1, pipe, 0, list->name)
               : aclSendToAclAgent(list, port, 1, id, place.implicitPermit, pipe, 0);
}

// The first binding of a task. IPM's instances have a queue each; those of others share one.
const aclBinding* taskBinding(const aclList* list, uint32_t application, uint32_t instance) {
    const aclBinding* b = list->bindings;
    while (b != nullptr && (b->kind != BIND_TASK || b->id != application ||
                            (application == APP_IPM && b->instance != instance)))
        b = b->next;
    return b;
}

}  // namespace

void aclSendToTask(aclList* list, const aclChange& change, const aclBinding& binding) {
    switch (binding.id) {
        case APP_SNMP:
            if (change.entry != nullptr)
                aclSendEntToSNMP(list, change.entry, change.ingress, &binding);
            else
                aclSendListToSNMP(list, change.ingress, &binding);
            break;
        case APP_SYSADM:
            if (change.entry != nullptr)
                aclSendEntToSYSADMTSK(list, change.entry, change.ingress);
            else
                aclSendListToSYSADMTSk(list, change.ingress);
            break;
        case APP_IPM:
            if (change.ipm != 0) aclSendListToIPM(list, change.ipm, &binding);
            break;
        default:
            break;
    }
}

uint32_t aclPortPipe(uint32_t ifindex) {
    int slot = ifindexSlot(ifindex);
    if (slot == SLOT_NONE) return static_cast<uint32_t>(-1);
    int port = ifindexUserPort(ifindex);
    if (!ifindexHasPortId(ifindex))
        port = zekSysCardTypeUsrPortIdToPortId(slot, ifindexPort(ifindex), port);
    return static_cast<uint32_t>(port < 0 ? -1 : zekSysCardTypePortIdToPP(slot, port));
}

int aclSendToInterface(aclList* list, const aclChange& change, const aclPlace& place) {
    switch (ifindexType(place.ifindex)) {
        case IF_TYPE_LAG:
            aclWalkPorts(place.ifindex,
                         [&](uint32_t port) { (void)sendToPort(list, change, place, port); });
            return 0;
        case IF_TYPE_VLAN: {
            uint32_t id = place.direction != 0 ? change.egress : change.ingress;
            if (change.entry != nullptr)
                aclSendVlanAclEntToAclAgent(change.entry, place.ifindex, 0, id, 1, 0, list->name);
            else
                aclSendVlanAclToAclAgent(list, place.ifindex, 1, id, place.implicitPermit, 0);
            return 0;
        }
        default:
            return change.ports ? sendToPort(list, change, place, place.ifindex) : 0;
    }
}

aclBinding* aclInterfaceBinding(const aclList* list, uint32_t ifindex, uint32_t direction) {
    return aclBindingFind(list, {BIND_INTERFACE, ifindex, 0, direction != 0 ? 1u : 0u});
}

void aclPropagate(aclList* list, const aclChange& change) {
    for (aclBinding* b = list->bindings; b != nullptr; b = b->next) {
        if (b->kind == BIND_INTERFACE) {
            if (change.entry == nullptr) list->sendBlock = b->block;
            (void)aclSendToInterface(list, change, {b->id, b->direction, b->implicitPermit});
        }
        if (b->kind == BIND_TASK) aclSendToTask(list, change, *b);
        // Groups are bound egress only and exist on this chassis alone.
        if (b->kind == BIND_VLAN_GROUP && aclNode->chassis.chassisMode == CHASSIS_WITH_VLAN_GROUPS)
            aclSendToVlanGroup(list, change.entry, b->id & 0xFF, change.egress);
    }
}

void aclPropagateToIPM(aclList* list, uint32_t messageId) {
    for (aclBinding* b = list->bindings; b != nullptr; b = b->next)
        if (b->kind == BIND_TASK && b->id == APP_IPM) aclSendListToIPM(list, messageId, b);
}

void aclPropagateToSYSADM(aclList* list, uint32_t messageId) {
    for (aclBinding* b = list->bindings; b != nullptr; b = b->next)
        if (b->kind == BIND_TASK && b->id == APP_SYSADM) aclSendListToSYSADMTSk(list, messageId);
}

void aclSendListsToTask(uint32_t application, uint32_t instance) {
    listName behind;
    // The replay has them all.
    while (application == APP_IPM && aclNextListBehind(instance, &behind)) continue;
    for (aclList* list = ipAccessListFindFirst(); list != nullptr;
         list = ipAccessListFindNext(list->name)) {
        if (list->placeholder != 0) continue;
        const aclBinding* b = taskBinding(list, application, instance);
        if (b == nullptr) continue;
        if (application == APP_IPM)
            aclReplayListToIPM(list, b);
        else
            aclSendToTask(list, aclListAdded, *b);
    }
}

void aclServeListsBehind() {
    for (uint32_t instance = 0; instance < std::size(aclNode->queues.aclIPMqHandle); instance++)
        for (listName name; aclNextListBehind(instance, &name);) {
            aclList* list = ipAccessListFind(name);
            const aclBinding* b = list != nullptr ? taskBinding(list, APP_IPM, instance) : nullptr;
            if (b == nullptr) continue;  // not a client of it any more
            aclSendListToIPM(list, list->placeholder != 0 ? MT_ACL_DELLIST : MT_ACL_ADDLIST, b);
        }
}
