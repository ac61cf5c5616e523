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

TEST_F(listLock, ReadersShareItAndAreCounted) {
    aclReadLock();
    std::thread([&] {
        aclReadLock();
        EXPECT_EQ(count(), 2u);
        aclReadUnlock();
    }).join();
    EXPECT_EQ(count(), 1u);
    aclReadUnlock();
    EXPECT_EQ(count(), 0u);
}

// Lost updates would show if two writers, or a writer and a reader, were inside together.
TEST_F(listLock, WritersAreAlone) {
    uint64_t first = 0, second = 0;
    std::atomic<int> torn = 0;
    auto write = [&] {
        for (int i = 0; i < 2000; i++) {
            aclWriteLock();
            first++;
            second++;
            if (count() != 0) torn++;
            aclWriteUnlock();
        }
    };
    auto read = [&] {
        for (int i = 0; i < 2000; i++) {
            aclReadLock();
            if (first != second) torn++;
            aclReadUnlock();
        }
    };
    std::thread threads[] = {std::thread(write), std::thread(read), std::thread(write),
                             std::thread(read)};
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(first, 4000u);
    EXPECT_EQ(second, 4000u);
    EXPECT_EQ(torn, 0);
}

// With a reader inside and a writer waiting, a new reader must wait too.
TEST_F(listLock, AWaitingWriterHoldsUpNewReaders) {
    aclReadLock();
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
