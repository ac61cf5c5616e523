// Routes against route maps: every kind of match and set clause, how instances and continue clauses
// go together (against a plain model), and readers beside changes.
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "match/zekRmap.h"
#include "tests/policy/policyTest.h"

namespace {

struct RmapCheck : PolicyTest {
    static void instance(int32_t seq, uint32_t action = RMAP_PERMIT) {
        uint32_t refused;
        ASSERT_NE(ipRmapListCreate(M, action, &seq, 0, &refused), nullptr);
    }
    // Of the class of the code's row.
    static clause of(uint32_t code, int32_t seq = 10) {
        return clause(rmapCodeFind(code)->cls, code, seq);
    }
    static void add(clause c) { ASSERT_EQ(ipAddRmapEntry(M, &c, AF_IPV4), ACL_OK); }
    static void drop() { ASSERT_EQ(ipRmapListDelete(M, 0, RMAP_NAMED_NONE), ACL_OK); }
    static rmapRoute route(const char* address = "10.1.0.0", uint32_t length = 16) {
        const bool v6 = std::strchr(address, ':') != nullptr;
        rmapRoute r;
        r.prefix = ipPrefixMake(v6 ? AF_IPV6 : AF_IPV4, prefixGiven::bits(address).data(), length);
        return r;
    }
    static bool permits(const rmapRoute& r, rmapRoute* out = nullptr) {
        return ipRoutemapCheck(ipRmapListFind(M), r, out) == 0;
    }
};

TEST_F(RmapCheck, EveryMatchClauseHoldsForItsRouteOnly) {
    for (const prefixGiven& entry : {prefixGiven(5, PERMIT, "10.1.0.0", 16, 0, 32),
                                     prefixGiven(5, PERMIT, "2001:db8::", 32, 0, 128)}) {
        ASSERT_NE(ipPrefixListCreate(A, 0, &status, entry.af), nullptr);
        ASSERT_EQ(ipAddPrefixEntry(A, entry.record(), entry.af), ACL_OK);
    }
    ASSERT_NE(ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status), nullptr);
    ipEntryBlock net = standardBlock(0x0A010000);
    net.srcMask = 0xFFFF0000;
    ASSERT_EQ(ipAddAccessEntry(A, &net, 0, 0), ACL_OK);
    for (const bgpKind& k : bgpListKinds) {
        ASSERT_NE(k.create(A, 0, &status), nullptr);
        ASSERT_EQ(k.add(A, 2), ACL_OK);
    }
    const uint32_t two = 65000u << 16 | 2;
    typedef std::function<void(rmapRoute&)> change;
    const change asItIs = [](rmapRoute&) {};
    // The fields that hold a number, and a value that does and one that does not.
    auto set = [](auto field, auto value) { return [=](rmapRoute& r) { r.*field = value; }; };
    auto address6 = [](auto field, uint8_t first) {
        return [=](rmapRoute& r) {
            std::memcpy(r.*field, "\x20\x01\x0d\xb8", 4);
            (r.*field)[0] = first;
        };
    };
    typedef std::vector<uint32_t> values;
    const change outside = [](rmapRoute& r) { r = route("10.2.0.0"); };
    const change shorter = [](rmapRoute& r) { r = route("10.1.0.0", 15); };
    const change longer6 = [](rmapRoute& r) { r = route("2001:db8:1::", 48); };
    const change v4 = [](rmapRoute& r) { r = route(); };
    const uint32_t in = 0x0A010203, out = 0x0A020203;
    const struct {
        uint32_t code;
        change hold, miss;
        uint32_t value = 0;
    } cases[] = {
        {RTMAP_MATCH_ASP, set(&rmapRoute::asPath, "1 2 3"), asItIs},
        {RTMAP_MATCH_COMM, set(&rmapRoute::communities, values{5, two}),
         set(&rmapRoute::communities, values{5})},
        {RTMAP_MATCH_COMM_EXACT, set(&rmapRoute::communities, values{two}),
         set(&rmapRoute::communities, values{5, two})},
        {RTMAP_MATCH_EXT_COMM, set(&rmapRoute::extCommunities, std::vector{target(0, 65000, 2)}),
         set(&rmapRoute::extCommunities, std::vector{target(0, 65000, 8)})},
        {RTMAP_MATCH_ACC, asItIs, outside},
        {RTMAP_MATCH_IPADD_ACL, asItIs, outside},
        {RTMAP_MATCH_IPADD_PREFIX, asItIs, shorter},
        {RTMAP_MATCH_NHOP, set(&rmapRoute::nextHop, in), set(&rmapRoute::nextHop, out)},
        {RTMAP_MATCH_NHOP_PREFIX, set(&rmapRoute::nextHop, in), set(&rmapRoute::nextHop, out)},
        {RTMAP_MATCH_SRC, set(&rmapRoute::source, in), set(&rmapRoute::source, out)},
        {RTMAP_MATCH_SRC_PREFIX, set(&rmapRoute::source, in), set(&rmapRoute::source, out)},
        {RTMAP_MATCH_IPV6ADD_PREFIX, longer6, v4},
        {RTMAP_MATCH_V6_NHOP_PREFIX, address6(&rmapRoute::nextHop6, 0x20),
         address6(&rmapRoute::nextHop6, 0xFE)},
        {RTMAP_MATCH_V6_SRC_PREFIX, address6(&rmapRoute::source6, 0x20),
         address6(&rmapRoute::source6, 0xFE)},
        {RTMAP_MATCH_ORIGIN, set(&rmapRoute::origin, 2u), set(&rmapRoute::origin, 1u), 2},
        {RTMAP_MATCH_RTYPE, set(&rmapRoute::routeType, 4u), set(&rmapRoute::routeType, 5u), 2},
        {RTMAP_MATCH_IFACE, set(&rmapRoute::ifindex, 77u), set(&rmapRoute::ifindex, 78u), 77},
        {RTMAP_MATCH_MET, set(&rmapRoute::metric, 9u), set(&rmapRoute::metric, 8u), 9},
        {RTMAP_MATCH_TAG, set(&rmapRoute::tag, 9u), set(&rmapRoute::tag, 8u), 9},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        instance(10);
        const clause match = of(c.code);
        add(match.kind == RMAP_KIND_LIST ? match.list("A") : match.number(c.value));
        rmapRoute yes = match.cls == MATCH6 ? route("2001:db8:1::", 48) : route(), no = yes;
        c.hold(yes);
        c.miss(no);
        EXPECT_TRUE(permits(yes));
        EXPECT_FALSE(permits(no));
        std::vector<rmapStep> trail;
        EXPECT_EQ(ipRoutemapCheck(ipRmapListFind(M), yes, nullptr, &trail), 0);
        ASSERT_EQ(trail.size(), 2u);
        EXPECT_TRUE(trail[1].holds && (trail[1].name != nullptr || trail[1].number != nullptr));
        EXPECT_EQ(ipRmapListFind(M)->first->hits, 1u) << "a question with a trail counts nothing";
        drop();
    }
    // In the class of the other family, in which no prefix list hears of the clause.
    for (auto [code, cls] :
         {std::pair{RTMAP_MATCH_IPADD_PREFIX, MATCH6}, {RTMAP_MATCH_IPV6ADD_PREFIX, MATCH}}) {
        instance(10);
        add(clause(cls, code).list("A"));
        EXPECT_EQ(permits(route()), cls == MATCH6);
        EXPECT_EQ(permits(route("2001:db8:1::", 48)), cls == MATCH);
        drop();
    }
    // An emptied list that the map still names: nothing is permitted, and nothing dangles.
    instance(10);
    add(of(RTMAP_MATCH_IPADD_PREFIX).list("A"));
    ASSERT_TRUE(permits(route()));
    ASSERT_EQ(ipPrefixListDelete(A, AF_IPV4), ACL_OK);
    EXPECT_FALSE(permits(route()));
    EXPECT_EQ(ipRoutemapCheck(nullptr, route(), nullptr), 1);
}

TEST_F(RmapCheck, SetClausesChangeThePermittedRoute) {
    ASSERT_NE(bgpCommAccessListCreate(A, 0, &status), nullptr);
    ASSERT_EQ(bgpAddCommAccessEntry(A, communities(PERMIT, {3})), ACL_OK);
    instance(10);
    const struct {
        uint32_t code, value;
        uint32_t rmapRoute::*field;
    } numbers[] = {{RTMAP_SET_LPREF, 200, &rmapRoute::localPreference},
                   {RTMAP_SET_WEIGHT, 7, &rmapRoute::weight},
                   {RTMAP_SET_NHOP, 0x0A000001, &rmapRoute::nextHop},
                   {RTMAP_SET_LEVEL, 2, &rmapRoute::level},
                   {RTMAP_SET_METTYPE, 3, &rmapRoute::metricType},
                   {RTMAP_SET_ORIGIN, 1, &rmapRoute::origin},
                   {RTMAP_SET_TAG, 11, &rmapRoute::tag}};
    for (const auto& n : numbers) add(of(n.code).number(n.value));
    add(of(RTMAP_SET_MET).number(50, RMAP_METRIC_ADD));
    add(of(RTMAP_SET_PREPEND).with([](rmapClauseBlock& b) {
        b.prepend.as[0] = b.prepend.as[1] = 65000u;
        b.prepend.count = 2u;
    }));
    add(of(RTMAP_SET_COMM).with([](rmapClauseBlock& b) {
        b.community.high[0] = 65000u;
        b.community.low[0] = 1u;
        b.community.count = 1u;
        b.community.additive = b.community.noExport = 1u;
    }));
    add(of(RTMAP_SET_EXT_COMM).ext(target(0, 65000, 7)));
    add(of(RTMAP_SET_DAMP).with([](rmapClauseBlock& b) {
        for (uint32_t i = 0; i < 4; i++) b.dampening[i] = i + 1;
    }));
    add(of(RTMAP_SET_V6_NHOP).with([](rmapClauseBlock& b) { b.ipv6NextHop[15] = 1; }));
    add(of(RTMAP_SET_COMMLIST).list("A"));

    rmapRoute in = route(), out;
    in.metric = UINT32_MAX - 10;
    in.asPath = "1 {2,3}";
    in.communities = {3, 4, 65000u << 16 | 1};
    in.extCommunities = {target(0, 1, 1)};
    ASSERT_TRUE(permits(in, &out));
    for (const auto& n : numbers) EXPECT_EQ(out.*n.field, n.value) << n.code;
    EXPECT_EQ(out.metric, UINT32_MAX) << "does not wrap";
    EXPECT_EQ(out.asPath, "65000 65000 1 {2,3}");
    EXPECT_EQ(out.communities, (std::vector<uint32_t>{4, 65000u << 16 | 1, COMMUNITY_NO_EXPORT}));
    ASSERT_EQ(out.extCommunities.size(), 1u);
    EXPECT_EQ(out.extCommunities[0].b[7], 7);
    EXPECT_EQ(out.dampening[3], 4u);
    EXPECT_EQ(out.nextHop6[15], 1);
    // The same in place, and "none" and the flag that computes.
    add(of(RTMAP_SET_COMM).with([](rmapClauseBlock& b) { b.community.none = 1u; }));
    add(of(RTMAP_SET_AUTOTAG));
    ASSERT_TRUE(permits(in, &in));
    EXPECT_TRUE(in.communities.empty());
    EXPECT_EQ(in.tag, 65000u);
}

// Maps of metric and tag matches, metric sets and continues, against a walk over what was asked
// for.
TEST_F(RmapCheck, DecidesAsAPlainWalkDoes) {
    struct modelInstance {
        bool deny = false;
        std::vector<uint32_t> metrics, tags;
        uint32_t add = 0;
        int32_t continues = -1;  // 0: the next instance
    };
    std::mt19937 random(7);
    auto pick = [&random](uint32_t below) { return static_cast<uint32_t>(random() % below); };
    for (int round = 0; round < 60; round++) {
        std::map<int32_t, modelInstance> model;
        for (uint32_t n = 1 + pick(12); n > 0; n--) {
            const auto seq = static_cast<int32_t>(1 + pick(30));
            if (model.contains(seq)) continue;
            modelInstance& at = model[seq];
            at.deny = pick(4) == 0;
            instance(seq, at.deny ? RMAP_DENY : RMAP_PERMIT);
            auto values = [&](uint32_t code, std::vector<uint32_t>* kept) {
                for (uint32_t v = 0; v < 4; v++) {
                    if (pick(3) != 0) continue;
                    kept->push_back(v);
                    add(of(code, seq).number(v));
                }
            };
            values(RTMAP_MATCH_MET, &at.metrics);
            values(RTMAP_MATCH_TAG, &at.tags);
            if (pick(2) == 0) add(of(RTMAP_SET_WEIGHT, seq).number(at.add = 1 + pick(1000)));
            if (pick(2) == 0) {
                at.continues = pick(3) == 0 ? 0 : seq + 1 + static_cast<int32_t>(pick(10));
                add(of(RTMAP_CONT_CODE, seq).with([&](rmapClauseBlock& b) {
                    b.value = b.continueTarget = static_cast<uint32_t>(at.continues);
                    b.continueFlag = at.continues != 0 ? 1 : 0;
                }));
            }
        }
        if (pick(3) == 0) {  // one goes again
            const int32_t seq = model.begin()->first;
            ASSERT_EQ(ipRmapListDelete(M, seq, RMAP_NAMED_NONE), ACL_OK);
            model.erase(seq);
        }
        auto has = [](const std::vector<uint32_t>& values, uint32_t v) {
            return values.empty() || std::ranges::find(values, v) != values.end();
        };
        for (uint32_t metric = 0; metric < 4; metric++)
            for (uint32_t tag = 0; tag < 4; tag++) {
                bool permitted = false, dropped = false;
                uint32_t weight = 0;
                for (auto it = model.begin(); it != model.end() && !dropped;) {
                    const modelInstance& at = it->second;
                    if (!has(at.metrics, metric) || !has(at.tags, tag)) {
                        ++it;
                        continue;
                    }
                    if ((dropped = at.deny)) break;
                    permitted = true;
                    if (at.add != 0) weight = at.add;
                    if (at.continues < 0) break;
                    it = at.continues == 0 ? std::next(it) : model.lower_bound(at.continues);
                }
                rmapRoute in = route(), out;
                in.metric = metric;
                in.tag = tag;
                const bool expected = permitted && !dropped;
                ASSERT_EQ(permits(in, &out), expected) << round << " " << metric << " " << tag;
                if (expected) {
                    ASSERT_EQ(out.weight, weight);
                }
            }
        (void)ipRmapListDelete(M, 0, RMAP_NAMED_NONE);
    }
}

// Readers see a map before or after a change. The thread sanitizer looks on.
TEST_F(RmapCheck, ReadersBesideChanges) {
    instance(10);
    add(of(RTMAP_MATCH_MET).number(1));
    std::atomic<bool> stop{false};
    std::atomic<int> evaluations{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; i++)
        readers.emplace_back([&] {
            rmapRoute in = route(), out;
            in.metric = 1;
            while (!stop) {
                aclReadLock();
                const int verdict = ipRoutemapCheck(ipRmapListFind(M), in, &out);
                aclReadUnlock();
                // Either the instance stands with one of its two weights, or it does not match.
                EXPECT_TRUE(verdict == 1 || out.weight == 0 || out.weight == 5 || out.weight == 6);
                evaluations++;
            }
        });
    for (uint32_t i = 0; i < 200 || evaluations < 200; i++) {
        aclWriteLock();
        add(of(RTMAP_SET_WEIGHT).number(5 + i % 2));
        clause metric = of(RTMAP_MATCH_MET).number(1 + i % 2);
        (void)ipDelRmapEntry(M, &metric, AF_IPV4);
        add(of(RTMAP_MATCH_MET).number(2 - i % 2));
        aclWriteUnlock();
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
}

TEST_F(RmapCheck, CheckCommandsSayTheVerdict) {
    instance(10);
    add(of(RTMAP_SET_MET).number(42));
    std::string out;
    EXPECT_EQ(ipRmapCheck(0x0A000000, 0xFF000000, ipRmapListFind(M), &out), 0);
    EXPECT_EQ(ipRmapCheck(0x0A000000, 0xFF000000, nullptr, &out), 1);
    EXPECT_EQ(out, "matched, set metric to  42 \ndrop\n");
    const std::string answer = debug(
        "testRouteMap", "M 10.0.0.0/8 as-path \"1 2\" community 1:2 no-export metric 3 tag 4");
    for (const char* part : {R"("verdict":"permit","entry":"route-map M permit 10")",
                             R"("metric":42)", R"("as-path":"1 2","community":"1:2 no-export")"})
        EXPECT_NE(answer.find(part), answer.npos) << answer;
    for (const char* bad : {"M", "M 10.0.0.0", "M 10.0.0.0/33", "M 10.0.0.0/8 metric",
                            "M 10.0.0.0/8 metric x", "M 10.0.0.0/8 color 3", "N 10.0.0.0/8"})
        EXPECT_NE(debug("testRouteMap", bad).find("\"error\""), std::string::npos) << bad;
}

}  // namespace
