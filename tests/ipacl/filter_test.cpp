// The index beside a list's chain: after every change it names the entry that a walk finds.
#include <atomic>
#include <random>
#include <thread>

#include "match/matchIndex.h"
#include "match/zekPolicy.h"
#include "platform/api/zekLock.h"
#include "tests/support/ipaclTest.h"

namespace {

// Few different addresses and ports, so that rules overlap and packets meet them.
struct generator {
    std::mt19937 random;
    uint32_t masks;  // different masks of each side

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random() % n); }
    bool once(uint32_t in) { return below(in) == 0; }
    template <class Value>
    Value of(std::initializer_list<Value> values) {
        return values.begin()[below(static_cast<uint32_t>(values.size()))];
    }
    uint32_t address() {
        uint32_t n = below(108);
        return ip(10, n / 36, n / 12 % 3, n % 12);
    }
    // Any and host are the first two; then lengths, and masks with holes.
    uint32_t mask() {
        uint32_t n = below(masks);
        if (n < 2) return n == 0 ? 0 : HOST;
        return n % 2 == 0 ? HOST << n : HOST << (n - 1) & ~(0x00010204u << n % 8);
    }
    uint16_t port() {
        return of<uint16_t>({0, 1, 20, 21, 22, 23, 79, 80, 1023, 1024, 65534, 65535});
    }

    rule entry() {
        rule b = extended(IP_PERMIT, of<uint8_t>({IP_PROTO_ICMP, IP_PROTO_ANY, IP_PROTO_TCP,
                                                  IP_PROTO_TCP, IP_PROTO_UDP, 47, 0}));
        b.action = below(3);
        if (once(8)) b.kind = IP_KIND_STANDARD;
        if (once(40)) b.etherType = 0x800;
        if (once(3)) b.protoMarker = 1;
        b.src = address(), b.srcMask = mask();
        b.dst = address(), b.dstMask = mask();
        if (once(6)) b.precedence = below(9);
        if (once(6)) b.tos = below(17);
        if (once(6)) b.dscp = static_cast<uint8_t>(below(65));
        if (once(10)) b.fragments = 1;
        if (b.protocol == IP_PROTO_ICMP) {
            b.icmp = {static_cast<uint8_t>(below(3)), static_cast<uint8_t>(below(2)),
                      static_cast<uint8_t>(below(3)), static_cast<uint8_t>(below(2))};
        } else {
            b.srcOperator = once(2) ? below(7) : PORT_NONE;
            b.dstOperator = below(7);  // 6 is none
            b.srcLow = port(), b.srcHigh = port(), b.dstLow = port(), b.dstHigh = port();
            if (once(5)) b.tcpFlags = static_cast<uint8_t>(random());
        }
        return b;
    }
    ipPacket packet() {
        return {
            .src = address(),
            .dst = address(),
            .protocol = of<uint8_t>({IP_PROTO_ICMP, IP_PROTO_ANY, IP_PROTO_TCP, IP_PROTO_UDP, 0}),
            .tos = static_cast<uint8_t>(once(2) ? 0 : random()),
            .tcpFlags = static_cast<uint8_t>(random()),
            .icmpType = static_cast<uint8_t>(below(3)),
            .icmpCode = static_cast<uint8_t>(below(3)),
            .srcPort = port(),
            .dstPort = port(),
            .laterFragment = once(5)};
    }
};

class FilterIndex : public IpAcl {
  protected:
    // Over random packets both ways name the same entry, and it alone is counted.
    static void expectTheWalks(const aclList* list, generator& make, int packets) {
        aclList plain = *list;
        plain.filterIndex = nullptr;
        for (int i = 0; i < packets; i++) {
            ipPacket packet = make.packet();
            const aclEntry* walked = ipFilterFind(&plain, packet);
            uint32_t count = walked != nullptr ? walked->matchCount : 0;
            const aclEntry* decided = nullptr;
            ipVerdict verdict = ipFilterCheck(list, packet, &decided);
            ASSERT_EQ(decided, walked) << "seq " << (walked != nullptr ? walked->block.seq : 0u);
            bool permits = walked != nullptr && walked->block.action != IP_DENY;
            ASSERT_EQ(verdict, permits ? FILTER_PERMIT : FILTER_DENY);
            ASSERT_TRUE(walked == nullptr || walked->matchCount == count + 1);
        }
    }
    static void renumber(aclList* list, uint32_t start, uint32_t step) {
        for (aclEntry* e = first(list); e != nullptr; e = after(e), start += step)
            e->block.seq = start;
        ipFilterIndexRenumber(list);
    }
};

struct shape {
    uint32_t seed, masks, entries;  // `entries` is what the list grows to
    bool failures;                  // of memory, now and then
};
class FilterIndexAgainstTheWalk : public FilterIndex, public testing::WithParamInterface<shape> {};

TEST_P(FilterIndexAgainstTheWalk, DecidesTheSame) {
    generator make{std::mt19937(GetParam().seed), GetParam().masks};
    aclList* list = create("A", IP_KIND_EXTENDED);
    int entries = static_cast<int>(GetParam().entries);
    std::set<std::pair<uint32_t, uint32_t>> pairs;
    int indexed = 0, steps = entries * 8;
    for (int step = 0; step < steps; step++) {
        SCOPED_TRACE(step);
        bool grows = list->count < entries && step % (steps / 2) < steps / 4;
        if (make.below(10) < (grows ? 8 : 4)) {
            rule block = make.entry();
            if (make.once(2)) block.seq = make.below(10000);
            if (GetParam().failures && make.once(300)) testFail(TEST_HEAP, 1 + make.below(3), 1);
            if (ipAddAccessEntry(A, &block, 0, 0) == ACL_OK)
                pairs.insert({block.srcMask, block.dstMask});
            testFailNothing();
        } else if (list->head != nullptr) {
            // Runs of numbers go too, so that leaves, groups and tables become empty.
            const aclEntry* entry = first(list);
            for (uint32_t n = make.below(static_cast<uint32_t>(list->count)); n > 0; n--)
                entry = after(entry);
            for (uint32_t n = make.once(50) ? 40 : 1; n > 0 && entry != nullptr; n--) {
                ipEntryBlock block = entry->block;
                entry = after(entry);
                ASSERT_EQ(ipDelAccessEntry(A, &block, 0, 0), ACL_OK);
            }
        }
        testTake();
        indexed += list->filterIndex != nullptr;
        ASSERT_NO_FATAL_FAILURE(expectTheWalks(list, make, 4));
        if (step % 500 != 499) continue;
        words old = numbers(list);
        renumber(list, 7, 3);
        ASSERT_NO_FATAL_FAILURE(expectTheWalks(list, make, 50));
        size_t i = 0;
        for (aclEntry* e = first(list); e != nullptr; e = after(e)) e->block.seq = old[i++];
        ipFilterIndexRenumber(list);
    }
    EXPECT_GT(indexed, steps / 4) << "the index must have been there to be tested";
    EXPECT_TRUE(GetParam().masks < 15 || pairs.size() >= 200) << pairs.size();
}

INSTANTIATE_TEST_SUITE_P(Shapes, FilterIndexAgainstTheWalk,
                         testing::Values(shape{1, 3, 300, false}, shape{2, 3, 300, true},
                                         shape{3, 8, 300, false}, shape{4, 8, 600, true},
                                         shape{5, 20, 600, false}, shape{6, 20, 600, true},
                                         shape{7, 1, 200, false}));

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

// Whatever allocation of the index fails, the add succeeds and the list answers.
TEST_F(FilterIndex, AListWithoutMemoryForItsIndexIsWalked) {
    generator make{std::mt19937(11), 8};
    for (uint64_t nth = 1; nth < 60; nth++) {
        SCOPED_TRACE(nth);
        aclList* list = create("A", IP_KIND_EXTENDED);
        testFail(TEST_HEAP, nth, UINT64_MAX);
        for (uint32_t i = 0; i < 100; i++)
            ASSERT_EQ(add("A", extended(i % 2, IP_PROTO_TCP).from(ip(10, 0, i % 3, i), HOST)), 0u);
        EXPECT_EQ(list->filterIndex, nullptr);
        ASSERT_NO_FATAL_FAILURE(expectTheWalks(list, make, 20));
        testFailNothing();
        for (uint32_t i = 0; i < 28; i++)
            ASSERT_EQ(add("A", extended(1, IP_PROTO_UDP).from(ip(10, 0, 0, i), HOST)), 0u);
        EXPECT_NE(list->filterIndex, nullptr) << "it is made when the count has doubled";
        ASSERT_NO_FATAL_FAILURE(expectTheWalks(list, make, 20));
        // A renumbering that broke off leaves numbers that do not ascend: the chain is what counts.
        first(list)->block.seq = 1000000;
        ipFilterIndexRenumber(list);
        EXPECT_EQ(list->filterIndex, nullptr);
        ASSERT_NO_FATAL_FAILURE(expectTheWalks(list, make, 20));
        first(list)->block.seq = 5;
        ASSERT_EQ(ipAccessListDelete(A, IP_KIND_EXTENDED), 0u);
    }
}

// The writer swaps two permits under one lock while the index around them grows and shrinks: a
// reader that sees both or none has looked in between. Every match is counted.
TEST_F(FilterIndex, ReadersSeeAListBeforeOrAfterAChange) {
    constexpr uint32_t READERS = 3, CHECKS = 3000;
    uint32_t readers = 0;
    pAclReadCounter = &readers;
    aclLockInit();
    auto host = [](uint32_t last) { return extended(IP_PERMIT, IP_PROTO_ANY).from(last, HOST); };
    aclList* list = create("A", IP_KIND_EXTENDED);
    for (uint32_t i = 0; i < 40; i++) ASSERT_EQ(add("A", host(1000 + i).at(1000 + i)), 0u);
    ASSERT_EQ(add("A", host(1).at(1)), 0u);

    std::atomic<uint32_t> torn = 0, running = READERS;
    auto permits = [list](uint32_t src) {
        ipPacket packet{};
        packet.src = src;
        return ipFilterCheck(list, packet, nullptr) == FILTER_PERMIT;
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
        uint32_t now = step % 2 + 1, next = 3 - now, other = 5000 + step / 2 % 100;
        aclWriteLock();
        EXPECT_EQ(del("A", host(now).at(now), 0, 0), 0u);
        EXPECT_EQ(add("A", host(next).at(next)), 0u);
        // Grows by a hundred in two hundred steps, then shrinks as long.
        if (step % 2 == 0) {
            const rule block = host(other).at(other);
            EXPECT_EQ(step / 200 % 2 == 0 ? add("A", block) : del("A", block, 0, 0), 0u);
        }
        aclWriteUnlock();
        testTake();
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(torn, 0u);
    const rule sought = host(0).at(1000);
    EXPECT_EQ(ipAccessEntCompareSeq(A, &sought)->matchCount, READERS * CHECKS);
    pAclReadCounter = nullptr;
    pthread_rwlock_destroy(&acl_rwlock);
}

}  // namespace
