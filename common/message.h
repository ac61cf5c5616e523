// Messages of the task's own: their headers, their blocks for the reliable queues, the queues'
// health.
#pragma once

#include <cstddef>

#include "include/ipc.h"
#include "platform/api/zekSwp.h"

struct aclAddressee {
    uint32_t card, service;
    uint32_t slot = 0;
};
// Fills the whole header of a message from this task, which is answered on its response queue.
void aclFillIpcHdr(ipcHdr* header, uint32_t mtype, size_t length, const aclAddressee& to);

// One message's block, from the pool of messages; null when there is no memory. A queue owns what
// it has taken and frees it here.
void* acl_Swp_Alloc(size_t size);
void acl_Swp_Free(void* block);

// 1 when the queue is healthy; else it is flushed, a system error raised, and the result is 0.
int aclCheckSwpQueueHealth(zekSwpHandle queue);
void aclReportQueueReset(zekSwpHandle queue);  // the system error of it
