// Pools: classes, limits, counters, alignment, and that blocks do not overlap.
#include "platform/api/zekMem.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

// Sanitizers, which define one of these, keep memory that has been given back.
extern "C" __attribute__((weak)) void __asan_init();
extern "C" __attribute__((weak)) void __tsan_init();

namespace {

constexpr uint32_t POOL = 0x50001;
constexpr uint32_t sizes[] = {736, 184, 184, 20, 24, 44, 8, 4524, 1, 8492};

class pools : public testing::Test {
  protected:
    pools() { EXPECT_EQ(zek_memPartVarInit(POOL, sizes, std::size(sizes)), 0); }
    ~pools() override { zek_memPartFree(POOL); }
    static void* take(size_t size) { return zekMC_M_memBlockVarAlloc(7, ZEK_MEM_FLAGS, size); }
    static const zekMemClass& classOf(size_t size) {
        for (const zekMemClass& c : zekMemClasses())
            if (c.size >= size) return c;
        static const zekMemClass none{};
        return none;
    }
};

TEST_F(pools, ARequestTakesTheSmallestClassThatHoldsIt) {
    ASSERT_EQ(zekMemClasses().size(), std::size(sizes));
    EXPECT_TRUE(std::ranges::is_sorted(zekMemClasses(), {}, &zekMemClass::size));
    for (size_t size :
         {0u, 1u, 2u, 8u, 9u, 19u, 20u, 21u, 25u, 44u, 45u, 184u, 185u, 736u, 737u, 4524u, 8492u}) {
        SCOPED_TRACE(size);
        void* block = take(size);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 8, 0u);
        EXPECT_EQ(classOf(size).inUse, 1u);
        zekMC_M_memBlockVarFree(block);
        EXPECT_EQ(classOf(size).inUse, 0u);
    }
    EXPECT_EQ(take(8493), nullptr) << "no class is large enough";
    zekMC_M_memBlockVarFree(nullptr);
}

TEST_F(pools, ALimitOfAClassRefusesAndCountsAndLiftsAgain) {
    ASSERT_EQ(zekMemSetLimit(40, 2), 0);
    EXPECT_EQ(zekMemSetLimit(9000, 2), -1);
    std::vector<void*> taken;
    for (size_t size : {44u, 30u, 45u, 44u, 44u}) taken.push_back(take(size));
    for (size_t i = 0; i < 5; i++)
        EXPECT_EQ(taken[i] != nullptr, i < 3) << "45 is of another class";
    zekMC_M_memBlockVarFree(taken[0]);
    EXPECT_NE(taken[0] = take(44), nullptr);
    EXPECT_EQ(classOf(44).failed, 2u);
    EXPECT_EQ(classOf(44).highWater, 2u);
    EXPECT_EQ(classOf(44).inUse, 2u);
    for (void* block : taken) zekMC_M_memBlockVarFree(block);
}

// Every block is filled with its own number and must still hold it when it is freed.
TEST_F(pools, BlocksKeepTheirContentWhateverIsTakenAndFreedAroundThem) {
    std::vector<std::span<uint8_t>> blocks;
    std::mt19937 random(3);
    for (int step = 0; step < 40000 || !blocks.empty(); step++) {
        if (step % 1000 == 0) zekMemTrim();
        if (step < 40000 && (blocks.empty() || random() % 5 < (step < 20000 ? 3u : 2u))) {
            const size_t size = sizes[random() % (std::size(sizes) - 1)];
            auto* bytes = static_cast<uint8_t*>(take(size));
            ASSERT_NE(bytes, nullptr);
            std::memset(bytes, static_cast<int>(random()), size);
            blocks.emplace_back(bytes, size);
            continue;
        }
        std::swap(blocks[random() % blocks.size()], blocks.back());
        const auto b = blocks.back();
        for (uint8_t byte : b) ASSERT_EQ(byte, b[0]);
        zekMC_M_memBlockVarFree(b.data());
        blocks.pop_back();
    }
    for (const zekMemClass& c : zekMemClasses()) EXPECT_EQ(c.inUse, 0u) << c.size;
}

// Memory of this process that is in use, in bytes.
size_t resident() {
    size_t pages = 0, mapped = 0;
    std::ifstream("/proc/self/statm") >> mapped >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// A large backlog's messages leave nothing behind, and a block in use keeps its chunk alone.
TEST_F(pools, ATrimGivesBackWhatIsNotInUse) {
    if (__asan_init != nullptr || __tsan_init != nullptr) GTEST_SKIP();
    constexpr size_t total = 40u << 20, step = 8192;
    std::vector<void*> blocks;
    blocks.reserve(total / step);
    const size_t before = resident();
    for (int round = 0; round < 2; round++) {
        for (size_t i = 0; i < total / step; i++) {
            blocks.push_back(take(step));
            std::memset(blocks.back(), 1, step);
        }
        EXPECT_GE(resident(), before + total);
        for (size_t i = 1; i < blocks.size(); i++) zekMC_M_memBlockVarFree(blocks[i]);
        zekMemTrim();
        EXPECT_EQ(static_cast<uint8_t*>(blocks[0])[step - 1], 1);
        zekMC_M_memBlockVarFree(blocks[0]);
        blocks.clear();
        zekMemTrim();
        EXPECT_LT(resident(), before + (4u << 20));
    }
}

TEST_F(pools, APoolIsMadeOnceAndOnlyFromPossibleSizes) {
    EXPECT_EQ(zek_memPartVarInit(POOL + 1, sizes, std::size(sizes)), -1) << "there is one already";
    EXPECT_EQ(zek_memPartFixedInit(0x50000, 0x5001D), 0);
    EXPECT_EQ(zek_memPartFixedInit(0x50000, 0x5001D), -1);
    for (uint32_t id = 0x50000; id <= 0x50018; id++) zek_memPartFree(id);
    EXPECT_TRUE(zekMemClasses().empty());
    EXPECT_EQ(take(8), nullptr);
    const uint32_t zero[] = {0}, tooLarge[] = {8, 65536};
    EXPECT_EQ(zek_memPartVarInit(POOL, zero, 1), -1);
    EXPECT_EQ(zek_memPartVarInit(POOL, tooLarge, 2), -1);
    EXPECT_EQ(zek_memPartVarInit(POOL, sizes, 0), -1);
}

TEST(heap, CountsBlocksAndBytesFromAllThreadsAndHasALimit) {
    const zekMemHeap before = zekMemHeapStats();
    void* kept = nullptr;
    auto churn = [] {
        for (size_t i = 1; i < 2000; i++) {
            auto* block = static_cast<uint8_t*>(zekMC_M_sysMalloc(i));
            ASSERT_EQ(std::count(block, block + i, 0), static_cast<ptrdiff_t>(i));
            std::memset(block, 0xEE, i);
            zekMC_M_sysFree(block);
        }
    };
    {
        std::jthread one(churn), two(churn);
        kept = zekMC_MM_malloc(1000);
    }
    EXPECT_EQ(zekMemHeapStats().blocks, before.blocks + 1);
    EXPECT_GE(zekMemHeapStats().bytes, before.bytes + 1000);
    zekMC_MM_free(kept);
    EXPECT_EQ(zekMemHeapStats().bytes, before.bytes);

    zekMemSetHeapLimit(before.blocks);
    EXPECT_EQ(zekMC_MM_malloc(1), nullptr);
    EXPECT_EQ(zekMC_M_sysMalloc(1), nullptr);
    zekMemSetHeapLimit(UINT64_MAX);
    EXPECT_EQ(zekMemHeapStats().failed, before.failed + 2);
    EXPECT_STREQ(zekMemHeapStats().lastFailedFile, __FILE__);
}

}  // namespace
