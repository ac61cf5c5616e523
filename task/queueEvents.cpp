// Queues that have lost messages: said in the log when it happens, and started over, with
// everything that their peers must have, when the peers answer.
#include <algorithm>

#include "common/linecard.h"
#include "common/message.h"
#include "download/zekacl_download.h"
#include "include/service.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekSwp.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// False when the handle is none of the cards'.
bool renewCard(zekSwpHandle queue) {
    const auto* card = std::ranges::find_if(aclLinecardInfo, [queue](const aclLinecard& c) {
        return c.aclAgent == queue || c.macAgent == queue;
    });
    if (card == std::ranges::end(aclLinecardInfo)) return false;
    // One that is not primary owes it, see aclReplayOwed; one that is held gets it when it is let
    // go.
    if (!card->state.held && aclMayDownload())
        aclReplayToAgent(static_cast<uint32_t>(card - std::ranges::begin(aclLinecardInfo)), false);
    return true;
}

// What the peer of a queue must have, in a new session.
void renew(zekSwpHandle queue) {
    if (renewCard(queue)) return;
    if (queue == aclNode->queues.acl0qHandle) return aclReplayToAgent(AGENT_CP, false);
    zekSwpReplayBegin(queue);
    if (queue == aclNode->queues.acl2qHandle)
        for (uint32_t family : {AF_IPV4, AF_IPV6}) prefixDownloadIpListAlltoACL2(family);
    if (queue == aclNode->queues.aclSNMPqHandle) aclSendListsToTaskExt(APP_SNMP, 0);
    if (queue == aclNode->queues.aclSYSADMTSKqHandle) aclSendListsToTaskExt(APP_SYSADM, 0);
    for (uint32_t i = 0; i < std::size(aclNode->queues.aclIPMqHandle); i++)
        if (queue == aclNode->queues.aclIPMqHandle[i]) aclSendListsToTaskExt(APP_IPM, i);
    zekSwpReplayEnd(queue);
}

// Answers once the queue to the task that registers is there.
// What it must have follows the answer.
int answerWithQueue(aclNodeRecord* node, uint8_t* message, int created, zekSwpHandle queue) {
    if (created != 0) return created;
    AclIpcReply(node->ipc.regQfd, message);
    renew(queue);
    return created;
}

}  // namespace

int aclHandleSnmpRegister(aclNodeRecord* node, uint8_t* message) {
    static uint32_t acl_snmp_attempts;
    int created = aclSNMPSwpQueueCreate(&acl_snmp_attempts);
    return answerWithQueue(node, message, created, node->queues.aclSNMPqHandle);
}
int aclHandleIpmRegister(aclNodeRecord* node, uint8_t* message) {
    static uint32_t acl_ipm_attempts;
    int created = aclIPMSwpQueueCreate(&acl_ipm_attempts, message);
    if (created != 0) return created;
    const uint32_t instance = msgHdr(message)->target.svce >> 2 & 31;
    return answerWithQueue(node, message, created, node->queues.aclIPMqHandle[instance]);
}
int aclHandleSysadmRegister(aclNodeRecord* node, uint8_t* message) {
    static uint32_t acl_sysadmtsk_attempts;
    int created = aclSYSADMTSKSwpQueueCreate(&acl_sysadmtsk_attempts);
    return answerWithQueue(node, message, created, node->queues.aclSYSADMTSKqHandle);
}
int aclHandleAcl2Register(aclNodeRecord* node, uint8_t* message) {
    int created = iAclACL2SwpQueueCreate();
    if (created == 0) node->standing.acl2Registered = 1;
    return answerWithQueue(node, message, created, node->queues.acl2qHandle);
}

void aclServeQueues() {
    for (zekSwpEvent event; zekSwpNextEvent(&event);)
        if (event.state == zekSwpState::lost)
            aclReportQueueReset(event.queue);
        else
            renew(event.queue);
    aclServeListsBehindExt();
}
