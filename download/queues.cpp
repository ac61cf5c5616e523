// The reliable queues to the cards' agents and to the tasks that keep copies of lists.
#include "common/debug.h"
#include "download/sendPath.h"
#include "include/service.h"

namespace {

void aclSwpDevPrintf(const char*) {
    aclSysErr(SYSERR_SWP, "%s", "Timeout from SWP");
}

// Flags 0, a window of 10 messages, 90 repeats until a peer counts as dead.
bool createQueue(uint32_t peerApp, uint32_t slot, zekSwpHandle* handle) {
    if (*handle != ZEK_SWP_NONE) return true;
    *handle = zekSwpQueueCreate_p(0u, 10u, 90u, APP_ACL, 0u, aclNode->ipc.regQfd, peerApp, slot,
                                  acl_Swp_Alloc, acl_Swp_Free, aclSwpDevPrintf);
    return *handle != ZEK_SWP_NONE;
}

// A queue to a task, of which the state root keeps the address too.
int createTaskQueue(uint32_t peerApp, uint32_t instance, zekSwpHandle* handle, uint32_t* card,
                    const char* name, uint32_t* attempts) {
    if (createQueue(peerApp, instance, handle)) {
        if (card != nullptr) (void)zek_tmeGetPeerIpAddrByName(peerApp, instance, card);
        if (attempts != nullptr) *attempts = 0;
        return 0;
    }
    if (attempts != nullptr) ++*attempts;
    aclSysErr(SYSERR_STARTUP, "Unable to create SWP queue for %s", name);
    return -1;
}

}  // namespace

zekSwpHandle aclStartQueueCreate(uint32_t peerApp) {
    // Errors of severity 5, a window of 10 messages.
    return zekSwpQueueCreate_p(5u, 10u, APP_ACL, aclNode->ipc.ipckey, peerApp, acl_Swp_Alloc,
                               acl_Swp_Free, aclSwpDevPrintf);
}

int iAclSwpQueueCreate(uint32_t slot, uint32_t agentFlag) {
    if (slot >= SLOT_COUNT) return -1;
    aclLinecard& card = aclLinecardInfo[slot];
    return agentFlag == QUEUE_ACL_AGENT
               ? createTaskQueue(APP_ACL_AGENT, slot, &card.aclAgent, nullptr, "ACL_AGENT", nullptr)
               : createTaskQueue(APP_MAC_AGENT, slot, &card.macAgent, nullptr, "MAC_AGENT",
                                 nullptr);
}

int iAclToAcl0SwpQueueCreate() {
    return createTaskQueue(APP_ACL_AGENT_CP, 0, &aclNode->queues.acl0qHandle, nullptr, "ACL0_AGENT",
                           nullptr);
}
int iAclACL2SwpQueueCreate() {
    return createTaskQueue(APP_ACL2, 0, &aclNode->queues.acl2qHandle, nullptr, "ACL2", nullptr);
}
int aclSNMPSwpQueueCreate(uint32_t* attempts) {
    return createTaskQueue(APP_SNMP, 0, &aclNode->queues.aclSNMPqHandle,
                           &aclNode->queues.snmptargetcard, "SNMP", attempts);
}
int aclIPMSwpQueueCreate(uint32_t* attempts, const uint8_t* message) {
    uint32_t service = reinterpret_cast<const ipcHdr*>(message)->target.svce;
    uint32_t instance = (service >> 2) & 31;
    if (instance >= std::size(aclNode->queues.aclIPMqHandle)) return -1;
    return createTaskQueue(APP_IPM, instance, &aclNode->queues.aclIPMqHandle[instance],
                           &aclNode->queues.ipmtargetcard[instance], "IPM", attempts);
}
int aclSYSADMTSKSwpQueueCreate(uint32_t* attempts) {
    return createTaskQueue(APP_SYSADM, 0, &aclNode->queues.aclSYSADMTSKqHandle,
                           &aclNode->queues.sysadmtsktargetcard, "SYSADMTSK", attempts);
}

int AclSwpEnqueACL2(void* message, size_t length) {
    auto* ipc = static_cast<ipcHdr*>(message);
    uint32_t card = ADDRESS_UNKNOWN;
    (void)zek_tmeGetPeerIpAddrByName(APP_ACL2, 0, &card);
    ipcHdr road;
    aclFillIpcHdr(&road, ipc->mtype, length, {card, aclServicePort(APP_ACL2, 0, QUEUE_REQUEST)});
    ipc->target = road.target;
    ipc->source = road.source;
    (void)aclCheckSwpQueueHealth(aclNode->queues.acl2qHandle);
    if (addressIsKnown(card) && zekSwpEnqueue(aclNode->queues.acl2qHandle, message, length) == 0)
        return 0;
    zekSwpQueueLose(aclNode->queues.acl2qHandle);
    aclDebug(DEBUG_ACL_IPC, "%s", "Error sending Message to ACL2");
    aclSysErr(SYSERR_SWP, "%s", "Error sending Message to ACL2");
    acl_Swp_Free(message);
    return -1;
}
