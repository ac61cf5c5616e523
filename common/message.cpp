#include "common/message.h"

#include "common/debug.h"
#include "common/node.h"
#include "common/record.h"
#include "include/service.h"

void aclFillIpcHdr(ipcHdr* header, uint32_t mtype, size_t length, const aclAddressee& to) {
    *header = {};
    header->length = static_cast<uint32_t>(length);
    header->mtype = mtype;
    header->target.card = aclNode->queues.acltargetcard;
    header->target.svce = aclServicePort(APP_ACL, 0, QUEUE_RESPONSE);
    header->source.slot = to.slot;
    header->source.card = to.card;
    header->source.svce = to.service;
}

void* acl_Swp_Alloc(size_t size) {
    return zekMC_M_memBlockVarAlloc(POOL_MESSAGE, ZEK_MEM_FLAGS, size);
}
void acl_Swp_Free(void* block) {
    zekMC_M_memBlockVarFree(block);
}

void aclReportQueueReset(zekSwpHandle queue) {
    char own[64] = "?", peer[64] = "?";
    (void)zekSwpGetTaskNamesFromQHandle(queue, own, peer, sizeof own);
    aclSysErr(SYSERR_SWP, "Resetting SWP queue from %s to %s", own, peer);
}

int aclCheckSwpQueueHealth(zekSwpHandle queue) {
    if (zekSwpIsQueueAlive(queue)) return 1;
    zekSwpQueueFlush(queue);
    aclReportQueueReset(queue);
    return 0;
}
