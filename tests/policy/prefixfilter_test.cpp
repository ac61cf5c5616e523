// The evaluation and the trees beside the chain, against lists that are walked.
#include "match/zekRmap.h"
#include "tests/policy/policyTest.h"

namespace {

// An entry as a walk sees it, by the bits of its addresses.
struct walked {
    uint32_t seq, action;
    int ge, le;
    uint8_t len;
    uint8_t address[16], mask[16];
};
// The same as a request has it.
struct prefixGiven {
    alignas(8) uint8_t bytes[sizeof(prefix6EntryBlock)] = {};
    prefixGiven(const walked& e, uint32_t af) {
        auto& record = *reinterpret_cast<prefixRecord*>(bytes);
        record.seq = e.seq;
        record.action = e.action;
        record.ge = static_cast<uint32_t>(e.ge);
        record.le = static_cast<uint32_t>(e.le);
        record.len = e.len;
        const size_t width = af == AF_IPV6 ? 16 : 4;
        std::memcpy(bytes + sizeof record, e.address, width);
        std::memcpy(bytes + sizeof record + width, e.mask, width);
    }
    operator const prefixRecord&() const { return *reinterpret_cast<const prefixRecord*>(bytes); }
};

bool bitsAgree(const uint8_t* a, const uint8_t* b, const uint8_t* mask) {
    for (int i = 0; i < 16; i++)
        if (((a[i] ^ b[i]) & mask[i]) != 0) return false;
    return true;
}
bool walkMatches(const walked& e, const uint8_t* address, int length, int width) {
    if (e.len == 255) return bitsAgree(e.address, address, e.mask);
    uint8_t mask[16];
    ipRtLen2Mask(e.len, mask);
    if (e.len > width || !bitsAgree(e.address, address, mask)) return false;
    if (e.ge <= 0 && e.le <= 0) return length == e.len;
    return length >= (e.ge > 0 ? e.ge : e.len) && length <= (e.le > 0 ? e.le : width);
}

// Few different addresses, lengths and masks, so that entries collide, nest and repeat.
struct maker {
    std::mt19937 random;
    uint32_t af;

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random() % n); }
    void address(uint8_t* out) {
        std::memset(out, 0, 16);
        static constexpr uint8_t bytes[] = {0, 1, 128, 255};
        const uint32_t places = af == AF_IPV4 ? 4 : 16;
        for (uint32_t i = 0; i < places; i += af == AF_IPV4 ? 1 : 3) out[i] = bytes[below(4)];
    }
    uint8_t length() {
        static constexpr uint8_t v4[] = {0, 1, 8, 9, 16, 24, 31, 32, 33, 40};
        static constexpr uint8_t v6[] = {0, 8, 48, 63, 64, 65, 96, 127, 128, 129};
        return (af == AF_IPV4 ? v4 : v6)[below(10)];
    }
    int bound() { return below(2) != 0 ? 0 : static_cast<int>(length()) + 1 - 2 * (below(4) == 0); }
    walked entry() {
        walked e{};
        e.seq = below(3) == 0 ? 0 : 1 + below(400);
        e.action = below(2);
        e.ge = bound(), e.le = bound();
        e.len = below(5) == 0 ? 255 : length();
        address(e.address);
        address(e.mask);
        return e;
    }
};

struct PrefixAgainstTheWalk : PolicyTest, testing::WithParamInterface<int> {
    std::vector<walked> model;  // in order

    static bool same(const walked& a, const walked& b) {
        auto zero = [](int v) { return v == -1 ? 0 : v; };
        return a.action == b.action && a.len == b.len && zero(a.ge) == zero(b.ge) &&
               zero(a.le) == zero(b.le) && std::memcmp(a.address, b.address, 32) == 0;
    }
    uint32_t modelAdd(walked e) {
        if (std::ranges::any_of(model, [&](const walked& o) { return same(o, e); }))
            return 0x3d000021;
        if (std::ranges::any_of(model, [&](const walked& o) { return o.seq == e.seq; }))
            return 0x3d000025;
        if (e.ge > 0 && e.le > 0 && e.ge > e.le) return 0x3d00002e;
        if (e.seq == 0) e.seq = model.empty() ? 5 : model.back().seq + 5;
        model.insert(std::ranges::lower_bound(model, e.seq, {}, &walked::seq), e);
        return 0;
    }
    uint32_t modelDelete(const walked& e) {
        auto at = std::ranges::find_if(
            model, [&](const walked& o) { return e.seq != 0 ? o.seq == e.seq : same(o, e); });
        if (at == model.end()) return 0x3d000024;
        model.erase(at);
        return 0;
    }
};

}  // namespace

// Random changes and random routes: statuses, order, positions and the deciding entry are those of
// a list that is walked. Odd parameters are IPv6; from 2 on the index now and then finds no memory.
TEST_P(PrefixAgainstTheWalk, DecidesTheSame) {
    const uint32_t af = GetParam() % 2 == 0 ? AF_IPV4 : AF_IPV6;
    const int width = af == AF_IPV4 ? 32 : 128;
    maker make{std::mt19937(static_cast<unsigned>(GetParam())), af};
    prefixList* list = ipPrefixListCreate(A, 0, &status, af);
    int decisions = 0, walks = 0;
    for (int step = 0; step < 4000; step++) {
        const walked e = make.entry();
        const uint32_t what = make.below(20);
        if (GetParam() >= 2 && make.below(50) == 0) testFail(TEST_HEAP, 1, 1);
        if (what < 11 && model.size() < 300) {
            ASSERT_EQ(ipAddPrefixEntry(A, prefixGiven(e, af), af), modelAdd(e)) << step;
        } else if (what < 19) {
            walked victim = !model.empty() && make.below(3) != 0
                                ? model[make.below(static_cast<uint32_t>(model.size()))]
                                : e;
            if (make.below(2) == 0) victim.seq = 0;
            ASSERT_EQ(ipDelPrefixEntry(A, prefixGiven(victim, af), 1, af), modelDelete(victim));
        } else {
            const uint32_t start = 1 + make.below(50), stride = 1 + make.below(7);
            ASSERT_EQ(ipReseqPrefixList(A, start, stride, af), 0u);
            for (size_t i = 0; i < model.size(); i++)
                model[i].seq = start + static_cast<uint32_t>(i) * stride;
        }
        testFailNothing();
        testTake();
        walks += list->walks != 0;
        ASSERT_EQ(static_cast<size_t>(list->count), model.size());
        ASSERT_EQ(list->rangeEntries, std::ranges::count_if(model, [](const walked& o) {
                      return o.ge > 0 || o.le > 0;
                  }));
        if (make.below(400) == 0) {  // an empty list starts anew
            model.clear();
            ASSERT_EQ(ipPrefixListDelete(A, af), 0u);
            list = ipPrefixListCreate(A, 0, &status, af);
        }
        for (int i = 0; i < 4; i++) {
            uint8_t address[16];
            make.address(address);
            const auto length = std::min<uint32_t>(make.length(), static_cast<uint32_t>(width));
            const ipPrefix route = ipPrefixMake(af, address, length);
            auto at = std::ranges::find_if(model, [&](const walked& o) {
                return walkMatches(o, address, static_cast<int>(length), width);
            });
            const prefixEntry* decided = nullptr;
            const int verdict = prefixFilterCheck(list, route, &decided);
            ASSERT_EQ(decided != nullptr ? uint32_t{decided->record->seq} : 0,
                      at != model.end() ? at->seq : 0)
                << step;
            ASSERT_EQ(verdict, at == model.end() || at->action == 1 ? 1 : 0);
            decisions += decided != nullptr;
        }
    }
    // Every place of the list is found, and what stands there.
    for (uint32_t from = 0; from <= model.size(); from++) {
        uint32_t resume = from;
        const std::string text = shown([&](void** buffer, uint32_t* size) {
            return prefixShowIpList(A, buffer, size, 0, &resume, af);
        });
        const std::string first =
            from < model.size() ? "   seq " + std::to_string(model[from].seq) + " " : "";
        EXPECT_TRUE(text.substr(from == 0 ? text.find("   seq") : 0).starts_with(first)) << from;
    }
    EXPECT_GT(decisions, 2000) << "the routes hit";
    EXPECT_EQ(walks != 0, GetParam() >= 2) << "lists without an index were walked";
}
INSTANTIATE_TEST_SUITE_P(Seeds, PrefixAgainstTheWalk, testing::Range(0, 6));

// What the model cannot say: lists of another family, no list, and callers with the parts apart.
TEST_F(PolicyTest, APrefixListHasOneFamilyAndCountsItsHits) {
    configure("ipv6 prefix-list A\n permit 2001:db8::/32 le 64\n");
    prefixList* list = ipPrefixListFind(A, AF_IPV6);
    const uint8_t address[16] = {0x20, 1, 0xd, 0xb8};
    for (uint32_t length = 0; length <= 128; length++) {
        const ipPrefix route = ipPrefixMake(AF_IPV6, address, length);
        const int expected = length >= 32 && length <= 64 ? 0 : 1;
        EXPECT_EQ(prefixFilterCheck(list, route), expected) << length;
        EXPECT_EQ(prefixFilterCheckv4_v6(list, AF_IPV6, route.address, route.mask), expected);
        EXPECT_EQ(ipPrefixLength(route), length);
    }
    EXPECT_EQ(list->head->hits, 2 * 33u);
    EXPECT_EQ(prefixFilterCheck(list, ipPrefixMake(AF_IPV4, address, 32)), 1);
    EXPECT_EQ(prefixFilterCheck(nullptr, ipPrefix{AF_IPV4, {}, {}}), 1);
}

// Readers see a list before a change or after it, and a map that names it decides as it does. The
// last entry permits what every change denies and permits again; two entries say the same at any
// time, so no reader may find neither.
TEST_F(PolicyTest, ReadersSeeAPrefixListBeforeOrAfterAChange) {
    configure(
        "ip prefix-list A\n seq 60000 permit 10.0.0.0/8 le 32\n"
        "route-map M permit 10\n match ip address prefix-list A\n set weight 5\n");
    prefixList* list = ipPrefixListFind(A, AF_IPV4);
    std::atomic<uint32_t> wrong{0};
    auto ask = [&] {
        const uint8_t address[4] = {10, 1, 2, 3};
        rmapRoute in, out;
        in.prefix = ipPrefixMake(AF_IPV4, address, 24);
        aclReadLock();
        const prefixEntry* decided = nullptr;
        const int verdict = prefixFilterCheck(list, in.prefix, &decided);
        if (decided == nullptr || verdict != static_cast<int>(decided->record->action)) wrong++;
        if (ipRoutemapCheck(ipRmapListFind(M), in, &out) != verdict) wrong++;
        if ((out.weight == 5 || out.weight == 7) != (verdict == 0)) wrong++;
        aclReadUnlock();
    };
    askWhileChanging(2, 300, 4, ask, [](uint32_t round) {
        const prefixGiven entry(
            {1 + round % 50, round % 2, 0, 32, static_cast<uint8_t>(16 + round % 9), {10, 1}, {}},
            AF_IPV4);
        if (ipAddPrefixEntryExt(A, entry, AF_IPV4) != 0) ipDelPrefixEntryExt(A, entry, 1u, AF_IPV4);
        rmapClauseBlock weight = clause(SET, RTMAP_SET_WEIGHT, 5 + round % 2 * 2);
        aclWriteLock();
        (void)ipAddRmapEntry(M, &weight, AF_IPV4);
        aclWriteUnlock();
        if (round % 20 == 0) ipReseqPrefixListExt(A, 100u, 3u, AF_IPV4);
        if (round % 30 == 0) prefixClearIpListExt(A, AF_IPV4);
    });
    EXPECT_EQ(wrong, 0u);
}
