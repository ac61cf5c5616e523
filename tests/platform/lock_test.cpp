// The list lock: exclusion, writer preference, the reader count.
#include "platform/api/zekLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

class listLock : public testing::Test {
  protected:
    uint32_t readers = 0;
    listLock() {
        pAclReadCounter = &readers;
        aclLockInit();
    }
    ~listLock() override {
        pAclReadCounter = nullptr;
        pthread_rwlock_destroy(&acl_rwlock);
    }
    uint32_t count() { return std::atomic_ref(readers).load(); }
};

// Readers are inside together, but with a writer waiting a new one must wait too.
TEST_F(listLock, ReadersShareItAndAWaitingWriterHoldsUpNewOnes) {
    aclReadLock();
    std::thread([&] {
        aclReadLock();
        EXPECT_EQ(count(), 2u);
        aclReadUnlock();
    }).join();
    EXPECT_EQ(count(), 1u);
    auto refused = [] {
        if (pthread_rwlock_tryrdlock(&acl_rwlock) != 0) return true;
        pthread_rwlock_unlock(&acl_rwlock);
        return false;
    };
    std::thread writer([&] {
        aclWriteLock();
        EXPECT_TRUE(refused());
        EXPECT_EQ(count(), 0u);
        aclWriteUnlock();
    });
    // The writer is waiting as soon as a try for reading is refused; nothing else refuses it.
    // A lock that let readers pass would keep this waiting for good.
    while (!refused()) std::this_thread::yield();
    aclReadUnlock();
    writer.join();
    EXPECT_FALSE(refused());
    EXPECT_EQ(count(), 0u);
}

#ifndef NDEBUG
TEST_F(listLock, TakingItTwiceIsABugThatDebugBuildsCatch) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            aclReadLock();
            aclReadLock();
        },
        "taken twice");
}
#endif

}  // namespace
