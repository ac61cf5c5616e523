// The reader/writer lock around the lists.
#include "platform/api/zekLock.h"

#include <atomic>
#include <cassert>

pthread_rwlock_t acl_rwlock;
uint32_t* pAclReadCounter;

namespace {

// What this thread holds, kept in debug builds only: a second reader behind a waiting writer would
// wait for ever, so taking the lock twice is a bug even where it happens to work.
#ifndef NDEBUG
thread_local bool holdsLock = false;
void noteTaken() {
    assert(!holdsLock && "the list lock is taken twice by one thread");
    holdsLock = true;
}
void noteReleased() {
    assert(holdsLock && "the list lock is released by a thread that does not hold it");
    holdsLock = false;
}
#else
void noteTaken() {}
void noteReleased() {}
#endif

}  // namespace

void aclLockInit() {
    pthread_rwlockattr_t attr;
    pthread_rwlockattr_init(&attr);
    // The plain "prefer writer" kind lets readers pass a waiting writer, this one does not.
    pthread_rwlockattr_setkind_np(&attr, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    pthread_rwlock_init(&acl_rwlock, &attr);
    pthread_rwlockattr_destroy(&attr);
}

void aclWriteLock() {
    noteTaken();
    pthread_rwlock_wrlock(&acl_rwlock);
}

void aclWriteUnlock() {
    noteReleased();
    pthread_rwlock_unlock(&acl_rwlock);
}

void aclReadLock() {
    noteTaken();
    pthread_rwlock_rdlock(&acl_rwlock);
    std::atomic_ref(*pAclReadCounter).fetch_add(1, std::memory_order_relaxed);
}

void aclReadUnlock() {
    noteReleased();
    std::atomic_ref(*pAclReadCounter).fetch_sub(1, std::memory_order_relaxed);
    pthread_rwlock_unlock(&acl_rwlock);
}
