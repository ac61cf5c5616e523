// The one walk over a list's bindings: ports, LAG members, VLANs, VLAN groups and the management
// tasks that keep copies. What has changed comes as a small record; who receives it is decided
// here.
#include "ipacl/propagate.h"

#include "download/zekacl_download.h"
#include "include/hooks.h"
#include "include/ifindex.h"
#include "include/linecard.h"
#include "include/service.h"
#include "platform/api/zekTask.h"

namespace {

constexpr uint32_t CHASSIS_WITH_VLAN_GROUPS = 7;

void sendToPort(aclList* list, const aclChange& change, const aclBinding& binding,
                uint32_t ifindex) {
    int slot = ifindexSlot(ifindex);
    if (slot == SLOT_NONE) return;
    bool egress = binding.direction != 0;
    // Only this family of forwarding chips filters what leaves a port.
    if (egress && aclLinecardInfo[slot].isVortan == 0) return;
    uint32_t id = egress ? change.egress : change.ingress;
    uint32_t pipe = aclPortPipe(ifindex);
    if (change.entry != nullptr)
        aclSendEntToAclAgent(change.entry, ifindex, id, 1, pipe, 0, list->name);
    else
        aclSendToAclAgent(list, ifindex, 1, id, binding.implicitPermit, pipe, 0);
}

void sendToInterface(aclList* list, const aclChange& change, const aclBinding& binding) {
    if (change.entry == nullptr) list->sendBlock = binding.block;
    switch (ifindexType(binding.id)) {
        case IF_TYPE_LAG: {
            uint32_t count = 0;
            const uint32_t* members = aclLagMembers(binding.id, &count);
            while (count > 0) sendToPort(list, change, binding, members[--count]);
            break;
        }
        case IF_TYPE_VLAN: {
            uint32_t id = binding.direction != 0 ? change.egress : change.ingress;
            if (change.entry != nullptr)
                aclSendVlanAclEntToAclAgent(change.entry, binding.id, 0, id, 1, 0, list->name);
            else
                aclSendVlanAclToAclAgent(list, binding.id, 1, id, binding.implicitPermit, 0);
            break;
        }
        default:
            if (change.ports) sendToPort(list, change, binding, binding.id);
    }
}

void sendToTask(aclList* list, const aclChange& change, const aclBinding& binding) {
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
            break;  // every other task is told by the trigger alone
    }
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

void aclPropagate(aclList* list, const aclChange& change) {
    for (aclBinding* b = list->bindings; b != nullptr; b = b->next) {
        if (b->kind == BIND_INTERFACE) sendToInterface(list, change, *b);
        if (b->kind == BIND_TASK) sendToTask(list, change, *b);
        // Groups are bound egress only and exist on this chassis alone.
        if (b->kind == BIND_VLAN_GROUP && aclNode->chassisMode == CHASSIS_WITH_VLAN_GROUPS)
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
