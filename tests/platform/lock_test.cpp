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

// Lost updates would show if two writers, or a writer and a reader, were inside together.
TEST_F(listLock, WritersAreAlone) {
    uint64_t first = 0, second = 0;
    std::atomic<int> torn = 0;
    auto work = [&](bool writes) {
        for (int i = 0; i < 2000; i++) {
            writes ? aclWriteLock() : aclReadLock();
            torn += first != second || (writes && count() != 0);
            if (writes) first++, second++;
            writes ? aclWriteUnlock() : aclReadUnlock();
        }
    };
    {
        std::jthread threads[] = {std::jthread(work, true), std::jthread(work, false),
                                  std::jthread(work, true), std::jthread(work, false)};
    }
    EXPECT_EQ(first, 4000u);
    EXPECT_EQ(second, 4000u);
    EXPECT_EQ(torn, 0);
}

// Readers are inside together, but with a writer waiting a new one must wait too.
TEST_F(listLock, ReadersShareItAndAWaitingWriterHoldsUpNewOnes) {
    aclReadLock();
    std::thread([&] {
        aclReadLock();
        EXPECT_EQ(count(), 2u);
        aclReadUnlock();
    }).join();
    EXPECT_EQ(count(), 1u);
    std::thread writer([] {
        aclWriteLock();
        aclWriteUnlock();
    });
    // The writer is waiting as soon as a try for reading is refused; nothing else refuses it.
    auto refused = [] {
        if (pthread_rwlock_tryrdlock(&acl_rwlock) != 0) return true;
        pthread_rwlock_unlock(&acl_rwlock);
        return false;
    };
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
