// The messages of the reliable queues, and the queues' health.
#pragma once

#include <cstddef>

#include "platform/api/zekSwp.h"

// One message's block, from the pool of messages; null when there is no memory. A queue owns what
// it has taken and frees it here.
void* acl_Swp_Alloc(size_t size);
void acl_Swp_Free(void* block);

// 1 when the queue is healthy; else it is flushed, a system error raised, and the result is 0.
int aclCheckSwpQueueHealth(zekSwpHandle queue);
void aclReportQueueReset(zekSwpHandle queue);  // the system error of it
