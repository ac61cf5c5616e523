// The one reader/writer lock around every list, as all tasks that read the lists in place use it.
//
// Writers are preferred: a waiting writer holds up new readers. The lock is not recursive.
// Readers are counted in *pAclReadCounter while they hold it.
#pragma once

#include <pthread.h>

#include <cstdint>

extern pthread_rwlock_t acl_rwlock;
extern uint32_t* pAclReadCounter;  // set before the first reader

void aclLockInit();
void aclWriteLock();
void aclWriteUnlock();
void aclReadLock();
void aclReadUnlock();
