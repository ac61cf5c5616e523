// The reliable queues as every sender uses them: a message's block, a queue that has died.
#include "common/queue.h"

#include "common/debug.h"
#include "platform/api/zekMem.h"

namespace {

constexpr uint32_t MESSAGE_POOL = 18;

}  // namespace

void* acl_Swp_Alloc(size_t size) {
    return zekMC_M_memBlockVarAlloc(MESSAGE_POOL, ZEK_MEM_FLAGS, size);
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
