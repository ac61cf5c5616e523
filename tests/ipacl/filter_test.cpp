// The index beside a list's chain, for every family: after every change it names the entry that a
// walk in the order of numbers finds.
#include <atomic>
#include <set>
#include <thread>

#include "match/matchIndex.h"
#include "platform/api/zekLock.h"
#include "tests/ipacl/filterFamilies.h"
#include "tests/support/ipaclTest.h"

namespace {

// List A, of a family of the filter.
template <class F>
class Filter : public IpAcl {
  protected:
    typedef typename F::Entry Entry;
    typedef typename F::Block Block;

    aclList* make() const {
        uint32_t status = 0;
        aclList* list = aclListCreate(F::row, A, IP_KIND_EXTENDED, 0, &status);
        EXPECT_EQ(status, 0u);
        return list;
    }
    static uint32_t put(Block block, uint32_t seq) {
        struct {
            Block block;
            uint8_t behind[8];  // what the family's record has behind the block
        } record{block, {}};
        record.block.seq = seq;
        return aclListAdd(F::row, A, &record, {});
    }
    static uint32_t take(uint32_t seq) {
        Block block{};
        block.seq = seq;
        return aclListDel(F::row, A, &block, false, false);
    }
    static auto entries(const aclList* list) { return entriesOf<Entry>(list->head); }

    // Over random packets the list names the entry that the meanings of all of them name, with its
    // index and without, and that one alone is counted.
    static void expectTheWalks(const aclList* list, dice& d, int packets) {
        aclList plain = *list;
        plain.filterIndex = nullptr;
        for (int i = 0; i < packets; i++) {
            const auto packet = F::packet(d);
            const Entry* first = nullptr;
            for (const Entry& entry : entries(list))
                if (first == nullptr && F::says(entry.block, packet)) first = &entry;
            ASSERT_EQ(F::find(&plain, packet), first);
            uint32_t count = first != nullptr ? first->matchCount : 0;
            const Entry* decided = nullptr;
            ipVerdict verdict = F::check(list, packet, &decided);
            ASSERT_EQ(decided, first) << "seq " << (first != nullptr ? first->block.seq : 0u);
            bool permits = first != nullptr && first->block.action != IP_DENY;
            ASSERT_EQ(verdict, permits ? FILTER_PERMIT : FILTER_DENY);
            ASSERT_TRUE(first == nullptr || first->matchCount == count + 1);
        }
    }
    static void renumber(aclList* list, uint32_t start, uint32_t step) {
        for (Entry& entry : entries(list)) entry.block.seq = start, start += step;
        F::renumber(list);
    }

    struct shape {
        uint32_t seed, masks, entries;  // `entries` is what the list grows to
        bool failures;                  // of memory, now and then
    };
    void decideTheSame(const shape& its) {
        dice d{std::mt19937(its.seed), its.masks};
        aclList* list = make();
        int count = static_cast<int>(its.entries);
        int indexed = 0, steps = count * 8;
        for (int step = 0; step < steps; step++) {
            SCOPED_TRACE(step);
            bool grows = list->count < count && step % (steps / 2) < steps / 4;
            if (d.below(10) < (grows ? 8 : 4)) {
                const uint32_t seq = d.once(2) ? d.below(10000) : SEQ_NOT_GIVEN;
                const Block block = F::random(d);
                if (its.failures && d.once(300)) testFail(TEST_HEAP, 1 + d.below(3), 1);
                (void)put(block, seq);  // what is there already is refused
                testFailNothing();
            } else if (list->head != nullptr) {
                // Runs of numbers go too, so that leaves, groups and tables become empty.
                const words seqs = numbers(list);
                size_t at = d.below(static_cast<uint32_t>(seqs.size()));
                for (uint32_t n = d.once(50) ? 40 : 1; n > 0 && at < seqs.size(); n--, at++)
                    ASSERT_EQ(take(seqs[at]), ACL_OK);
            }
            testTake();
            indexed += list->filterIndex != nullptr;
            ASSERT_NO_FATAL_FAILURE(expectTheWalks(list, d, 4));
            if (step % 500 != 499) continue;
            // The duplicate trees know the old numbers: they come back.
            const words old = numbers(list);
            renumber(list, 7, 3);
            ASSERT_NO_FATAL_FAILURE(expectTheWalks(list, d, 50));
            size_t i = 0;
            for (Entry& entry : entries(list)) entry.block.seq = old[i++];
            F::renumber(list);
        }
        EXPECT_GT(indexed, steps / 4) << "the index must have been there to be tested";
        ASSERT_EQ(aclListDelete(F::row, A, IP_KIND_EXTENDED), ACL_OK);
    }
};

typedef testing::Types<ip4InFilter, ip6InFilter, macInFilter> families;
struct familyNames {
    template <class F>
    static std::string GetName(int) {
        return F::row.name;
    }
};
TYPED_TEST_SUITE(Filter, families, familyNames);

TYPED_TEST(Filter, DecidesAsTheWalkDoes) {
    for (const auto& its : {typename TestFixture::shape{1, 3, 300, false},
                            {2, 3, 300, true},
                            {3, 8, 300, false},
                            {4, 8, 600, true},
                            {5, 20, 600, false},
                            {6, 20, 600, true},
                            {7, 1, 200, false}}) {
        SCOPED_TRACE(its.seed);
        ASSERT_NO_FATAL_FAILURE(this->decideTheSame(its));
    }
}

// Whatever allocation of the index fails, the add succeeds and the list answers.
TYPED_TEST(Filter, AListWithoutMemoryForItsIndexIsWalked) {
    dice d{std::mt19937(11), 8};
    for (uint64_t nth = 1; nth < 60; nth++) {
        SCOPED_TRACE(nth);
        aclList* list = this->make();
        testFail(TEST_HEAP, nth, UINT64_MAX);
        for (uint32_t i = 1; i <= 100; i++) ASSERT_EQ(this->put(TypeParam::host(i), i * 5), 0u);
        EXPECT_EQ(list->filterIndex, nullptr);
        ASSERT_NO_FATAL_FAILURE(this->expectTheWalks(list, d, 20));
        testFailNothing();
        for (uint32_t i = 101; i <= 128; i++) ASSERT_EQ(this->put(TypeParam::host(i), i * 5), 0u);
        EXPECT_NE(list->filterIndex, nullptr) << "it is made when the count has doubled";
        ASSERT_NO_FATAL_FAILURE(this->expectTheWalks(list, d, 20));
        // A renumbering that broke off leaves numbers that do not ascend: the chain is what counts.
        auto& first = static_cast<typename TypeParam::Entry*>(list->head)->block;
        first.seq = 1000000;
        TypeParam::renumber(list);
        EXPECT_EQ(list->filterIndex, nullptr);
        ASSERT_NO_FATAL_FAILURE(this->expectTheWalks(list, d, 20));
        first.seq = 5;
        ASSERT_EQ(aclListDelete(TypeParam::row, A, IP_KIND_EXTENDED), 0u);
        testTake();
    }
}

// The writer swaps two permits under one lock while the index around them grows and shrinks: a
// reader that sees both or none has looked in between. Every match is counted.
TYPED_TEST(Filter, ReadersSeeAListBeforeOrAfterAChange) {
    constexpr uint32_t READERS = 3, CHECKS = 3000;
    uint32_t readers = 0;
    pAclReadCounter = &readers;
    aclLockInit();
    auto permit = [](uint32_t n) { return TestFixture::put(TypeParam::host(n), n); };
    aclList* list = this->make();
    for (uint32_t i = 0; i < 40; i++) ASSERT_EQ(permit(1000 + i), 0u);
    ASSERT_EQ(permit(1), 0u);

    std::atomic<uint32_t> torn = 0, running = READERS;
    auto permits = [list](uint32_t n) {
        return TypeParam::check(list, TypeParam::from(n), nullptr) == FILTER_PERMIT;
    };
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < READERS; t++)
        threads.emplace_back([&] {
            for (uint32_t i = 0; i < CHECKS; i++) {
                aclReadLock();
                torn += permits(1) == permits(2);
                torn += !permits(1000);
                aclReadUnlock();
            }
            running--;
        });
    for (uint32_t step = 0; running > 0; step++) {
        const uint32_t now = step % 2 + 1, other = 5000 + step / 2 % 100;
        aclWriteLock();
        EXPECT_EQ(this->take(now), 0u);
        EXPECT_EQ(permit(3 - now), 0u);
        // Grows by a hundred in two hundred steps, then shrinks as long.
        if (step % 2 == 0) {
            EXPECT_EQ(step / 200 % 2 == 0 ? permit(other) : this->take(other), 0u);
        }
        aclWriteUnlock();
        testTake();
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(torn, 0u);
    for (const auto& entry : this->entries(list)) {
        if (entry.block.seq == 1000) {
            EXPECT_EQ(entry.matchCount, READERS * CHECKS);
        }
    }
    pAclReadCounter = nullptr;
    pthread_rwlock_destroy(&acl_rwlock);
}

typedef Filter<ip4InFilter> FilterIndex;

// A mask of its own for every entry: the groups that an add and a search look at stay bounded, what
// is left over is moved a chunk at a time, and what decides is what a walk finds.
TEST_F(FilterIndex, MasksThatAllDifferShareGroups) {
    aclList* list = create("A", IP_KIND_EXTENDED);
    std::mt19937 random(11);
    constexpr uint32_t ENTRIES = 8000;
    auto check = [&] {
        for (int i = 0; i < 1000; i++) {
            const aclEntry* entry = first(list);
            ipPacket packet{};
            packet.src = static_cast<uint32_t>(random() & random() & random());
            while (entry != nullptr && (packet.src & entry->block.srcMask) != entry->block.src)
                entry = after(entry);
            ASSERT_EQ(ipFilterFind(list, packet), entry);
        }
    };
    // Numbers upwards, downwards and across.
    for (uint32_t step : {1u, ENTRIES - 1, 2741u}) {
        for (uint32_t i = 0; i < ENTRIES; i++) {
            const uint32_t mask = i % 2 != 0 ? i : ~i;  // with leading ones and without
            const uint32_t word = static_cast<uint32_t>(random() & random());
            const rule entry = extended(i % 3, IP_PROTO_ANY).from(word & mask, mask).to(0, 0);
            ASSERT_EQ(add("A", entry.at(1 + (i * step) % ENTRIES)), 0u);
        }
        ASSERT_NE(list->filterIndex, nullptr);
        EXPECT_LE(list->filterIndex->count, MATCH_GROUPS + 9);
        check();
        renumber(list, 10, 1);
        check();
        renumber(list, 1, 1);
        for (uint32_t i = 0; i < ENTRIES; i++) {
            ASSERT_EQ(del("A", standard(IP_PERMIT, 0, 0).at(1 + (i * 4409) % ENTRIES)), 0u);
            if (i % 2000 == 0) check();
        }
        EXPECT_EQ(list->filterIndex, nullptr);
    }
}

}  // namespace
