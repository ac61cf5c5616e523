// Routes against route maps: every kind of match and set clause, how instances and continue clauses
// go together (against a plain model), and readers beside changes.
#include <arpa/inet.h>

#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "match/zekBgp.h"
#include "match/zekRmap.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"
#include "tests/policy/bgpTest.h"
#include "tests/task/fixture.h"

namespace {

const listName M = listNameMake("M");

struct RmapCheck : TaskTest {
    void TearDown() override {
        (void)ipRmapListDelete(M, 0, RMAP_NAMED_NONE);
        while (prefixList* list = ipPrefixListFindFirst(AF_IPV4))
            (void)ipPrefixListDelete(list->name, AF_IPV4);
        (void)ipPrefixListDelete(A, AF_IPV6);
        (void)bgpASPAccessListDelete(A);
        (void)bgpCommAccessListDelete(A);
        (void)bgpExtCommListDelete(A);
        (void)ipAccessListDelete(A, IP_KIND_STANDARD);
        TaskTest::TearDown();
    }

    static void instance(int32_t seq, uint32_t action = RMAP_PERMIT) {
        uint32_t status;
        ASSERT_NE(ipRmapListCreate(M, action, &seq, 0, &status), nullptr);
    }
    static rmapClauseBlock clause(uint32_t code, int32_t seq = 10) {
        const rmapCodeRow* row = rmapCodeFind(code);
        rmapClauseBlock b{};
        b.cls = row->cls;
        b.code = code;
        b.kind = uint32_t{row->kind};
        b.seq = static_cast<uint32_t>(seq);
        return b;
    }
    static void add(rmapClauseBlock b) { ASSERT_EQ(ipAddRmapEntry(M, &b, AF_IPV4), ACL_OK); }
    static void addNumber(uint32_t code, uint32_t value, int32_t seq = 10, uint16_t sub = 0) {
        rmapClauseBlock b = clause(code, seq);
        b.value = value;
        b.subValue = sub;
        add(b);
    }
    static void addList(uint32_t code, const listName& name, int32_t seq = 10) {
        rmapClauseBlock b = clause(code, seq);
        b.list = name;
        add(b);
    }
    static void addContinue(int32_t seq, uint32_t target) {
        rmapClauseBlock b = clause(RTMAP_CONT_CODE, seq);
        b.value = target;
        b.continueFlag = target != 0 ? 1 : 0;
        b.continueTarget = target;
        add(b);
    }
    static rmapRoute route(const char* address = "10.1.0.0", uint32_t length = 16) {
        uint8_t bytes[16] = {};
        const bool v6 = std::strchr(address, ':') != nullptr;
        EXPECT_EQ(inet_pton(v6 ? AF_INET6 : AF_INET, address, bytes), 1);
        rmapRoute r;
        r.prefix = ipPrefixMake(v6 ? AF_IPV6 : AF_IPV4, bytes, length);
        return r;
    }
    // "permit PREFIX le WIDTH"
    template <class Block>
    static uint32_t addPrefix(const ipPrefix& prefix) {
        Block b{};
        b.le = static_cast<uint32_t>(8 * sizeof b.address);
        b.len = static_cast<uint8_t>(ipPrefixLength(prefix));
        std::memcpy(b.address, prefix.address, sizeof b.address);
        std::memcpy(b.mask, prefix.mask, sizeof b.mask);
        return ipAddPrefixEntry(A, prefixRecordOf(b), prefix.family);
    }
    static std::string debugRun(const char* function, std::string_view args) {
        std::string out;
        EXPECT_TRUE(zekDebugRun(function, args, &out));
        return out;
    }
    static bool permits(const rmapRoute& r, rmapRoute* out = nullptr) {
        return ipRoutemapCheck(ipRmapListFind(M), r, out) == 0;
    }
};

TEST_F(RmapCheck, EveryMatchClauseHoldsForItsRouteOnly) {
    uint32_t status;
    ASSERT_NE(ipPrefixListCreate(A, 0, &status, AF_IPV4), nullptr);
    ASSERT_EQ(addPrefix<prefix4EntryBlock>(route("10.1.0.0", 16).prefix), ACL_OK);
    ASSERT_NE(ipPrefixListCreate(A, 0, &status, AF_IPV6), nullptr);
    ASSERT_EQ(addPrefix<prefix6EntryBlock>(route("2001:db8::", 32).prefix), ACL_OK);
    ASSERT_NE(ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status), nullptr);
    ipEntryBlock host{};
    host.kind = uint32_t{IP_KIND_STANDARD};
    host.src = 0x0A010000;
    host.srcMask = 0xFFFF0000;
    host.seq = SEQ_NOT_GIVEN;
    host.dscp = DSCP_NOT_GIVEN;
    host.protocol = IP_PROTO_ANY;
    ASSERT_EQ(ipAddAccessEntry(A, &host, 0, 0), ACL_OK);
    ASSERT_NE(bgpASPAccessListCreate(A, 0, &status), nullptr);
    ASSERT_EQ(bgpAddASPAccessEntry(A, PERMIT, {"_65001_"}), ACL_OK);
    ASSERT_NE(bgpCommAccessListCreate(A, 0, &status), nullptr);
    ASSERT_EQ(bgpAddCommAccessEntry(A, communities(PERMIT, {65000u << 16 | 1})), ACL_OK);
    ASSERT_NE(bgpExtCommListCreate(A, 0, &status), nullptr);
    const extCommValue site = target(0, 65000, 7);
    ASSERT_EQ(bgpAddExtCommListEntry(A, targets(PERMIT, {site})), ACL_OK);

    const struct {
        uint32_t code;
        std::function<void(rmapRoute&)> hold, miss;
        uint32_t value = 0;
        bool v6 = false;
    } cases[] = {
        {RTMAP_MATCH_ASP, [](auto& r) { r.asPath = "1 65001 2"; },
         [](auto& r) { r.asPath = "165001"; }},
        {RTMAP_MATCH_COMM,
         [](auto& r) {
             r.communities = {5, 65000u << 16 | 1};
         },
         [](auto& r) { r.communities = {5}; }},
        {RTMAP_MATCH_COMM_EXACT, [](auto& r) { r.communities = {65000u << 16 | 1}; },
         [](auto& r) {
             r.communities = {5, 65000u << 16 | 1};
         }},
        {RTMAP_MATCH_EXT_COMM, [&](auto& r) { r.extCommunities = {site}; },
         [](auto& r) { r.extCommunities = {target(0, 65000, 8)}; }},
        {RTMAP_MATCH_ACC, [](auto&) {}, [](auto& r) { r = route("10.2.0.0"); }},
        {RTMAP_MATCH_IPADD_ACL, [](auto&) {}, [](auto& r) { r = route("10.2.0.0"); }},
        {RTMAP_MATCH_IPADD_PREFIX, [](auto&) {}, [](auto& r) { r = route("10.1.0.0", 15); }},
        {RTMAP_MATCH_NHOP, [](auto& r) { r.nextHop = 0x0A010203; },
         [](auto& r) { r.nextHop = 0x0A020203; }},
        {RTMAP_MATCH_NHOP_PREFIX, [](auto& r) { r.nextHop = 0x0A010203; },
         [](auto& r) { r.nextHop = 0x0A020203; }},
        {RTMAP_MATCH_SRC, [](auto& r) { r.source = 0x0A010203; },
         [](auto& r) { r.source = 0x0A020203; }},
        {RTMAP_MATCH_SRC_PREFIX, [](auto& r) { r.source = 0x0A010203; },
         [](auto& r) { r.source = 0x0A020203; }},
        {RTMAP_MATCH_IPV6ADD_PREFIX, [](auto&) {}, [](auto& r) { r = route(); }, 0, true},
        {RTMAP_MATCH_V6_NHOP_PREFIX,
         [](auto& r) { std::memcpy(r.nextHop6, "\x20\x01\x0d\xb8", 4); },
         [](auto& r) { r.nextHop6[0] = 0xFE; }, 0, true},
        {RTMAP_MATCH_V6_SRC_PREFIX, [](auto& r) { std::memcpy(r.source6, "\x20\x01\x0d\xb8", 4); },
         [](auto& r) { r.source6[0] = 0xFE; }, 0, true},
        {RTMAP_MATCH_ORIGIN, [](auto& r) { r.origin = 2; }, [](auto& r) { r.origin = 1; }, 2},
        {RTMAP_MATCH_RTYPE, [](auto& r) { r.routeType = 4; }, [](auto& r) { r.routeType = 5; }, 2},
        {RTMAP_MATCH_IFACE, [](auto& r) { r.ifindex = 77; }, [](auto& r) { r.ifindex = 78; }, 77},
        {RTMAP_MATCH_MET, [](auto& r) { r.metric = 9; }, [](auto& r) { r.metric = 8; }, 9},
        {RTMAP_MATCH_TAG, [](auto& r) { r.tag = 9; }, [](auto& r) { r.tag = 8; }, 9},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        instance(10);
        if (rmapCodeFind(c.code)->kind == RMAP_KIND_LIST)
            addList(c.code, A);
        else
            addNumber(c.code, c.value);
        rmapRoute yes = c.v6 ? route("2001:db8:1::", 48) : route(), no = yes;
        c.hold(yes);
        c.miss(no);
        EXPECT_TRUE(permits(yes));
        EXPECT_FALSE(permits(no));
        std::vector<rmapStep> trail;
        EXPECT_EQ(ipRoutemapCheck(ipRmapListFind(M), yes, nullptr, &trail), 0);
        ASSERT_EQ(trail.size(), 2u);
        EXPECT_TRUE(trail[1].holds && (trail[1].name != nullptr || trail[1].number != nullptr));
        EXPECT_EQ(ipRmapListFind(M)->first->hits, 1u) << "a question with a trail counts nothing";
        ASSERT_EQ(ipRmapListDelete(M, 0, RMAP_NAMED_NONE), ACL_OK);
    }
    // In the class of the other family, in which no prefix list hears of the clause.
    for (auto [code, cls] : {std::pair{RTMAP_MATCH_IPADD_PREFIX, RTMAP_MS_V6_MATCH},
                             {RTMAP_MATCH_IPV6ADD_PREFIX, RTMAP_MS_MATCH}}) {
        instance(10);
        rmapClauseBlock other = clause(code);
        other.cls = cls;
        other.list = A;
        add(other);
        const bool v4 = code == RTMAP_MATCH_IPADD_PREFIX;
        EXPECT_EQ(permits(route()), v4);
        EXPECT_EQ(permits(route("2001:db8:1::", 48)), !v4);
        ASSERT_EQ(ipRmapListDelete(M, 0, RMAP_NAMED_NONE), ACL_OK);
    }
    // An emptied list that the map still names: nothing is permitted, and nothing dangles.
    instance(10);
    addList(RTMAP_MATCH_IPADD_PREFIX, A);
    ASSERT_TRUE(permits(route()));
    ASSERT_EQ(ipPrefixListDelete(A, AF_IPV4), ACL_OK);
    EXPECT_FALSE(permits(route()));
    EXPECT_EQ(ipRoutemapCheck(nullptr, route(), nullptr), 1);
}

TEST_F(RmapCheck, SetClausesChangeThePermittedRoute) {
    uint32_t status;
    ASSERT_NE(bgpCommAccessListCreate(A, 0, &status), nullptr);
    ASSERT_EQ(bgpAddCommAccessEntry(A, communities(PERMIT, {3})), ACL_OK);
    instance(10);
    for (auto [code, value] : {std::pair{RTMAP_SET_LPREF, 200u},
                               {RTMAP_SET_WEIGHT, 7u},
                               {RTMAP_SET_NHOP, 0x0A000001u},
                               {RTMAP_SET_LEVEL, 2u},
                               {RTMAP_SET_METTYPE, 3u},
                               {RTMAP_SET_ORIGIN, 1u},
                               {RTMAP_SET_TAG, 11u}})
        addNumber(code, value);
    addNumber(RTMAP_SET_MET, 50, 10, RMAP_METRIC_ADD);
    rmapClauseBlock b = clause(RTMAP_SET_PREPEND);
    b.prepend.as[0] = b.prepend.as[1] = 65000u;
    b.prepend.count = 2u;
    add(b);
    b = clause(RTMAP_SET_COMM);
    b.community.high[0] = 65000u;
    b.community.low[0] = 1u;
    b.community.count = 1u;
    b.community.additive = b.community.noExport = 1u;
    add(b);
    b = clause(RTMAP_SET_EXT_COMM);
    b.extCommunity.values[0] = target(0, 65000, 7);
    b.extCommunity.count = 1u;
    add(b);
    b = clause(RTMAP_SET_DAMP);
    for (uint32_t i = 0; i < 4; i++) b.dampening[i] = i + 1;
    add(b);
    b = clause(RTMAP_SET_V6_NHOP);
    b.ipv6NextHop[15] = 1;
    add(b);
    addList(RTMAP_SET_COMMLIST, A);

    rmapRoute in = route();
    in.metric = UINT32_MAX - 10;
    in.asPath = "1 {2,3}";
    in.communities = {3, 4, 65000u << 16 | 1};
    in.extCommunities = {target(0, 1, 1)};
    rmapRoute out;
    ASSERT_TRUE(permits(in, &out));
    EXPECT_EQ(out.localPreference, 200u);
    EXPECT_EQ(out.weight, 7u);
    EXPECT_EQ(out.nextHop, 0x0A000001u);
    EXPECT_EQ(out.level, 2u);
    EXPECT_EQ(out.metricType, 3u);
    EXPECT_EQ(out.origin, 1u);
    EXPECT_EQ(out.tag, 11u);
    EXPECT_EQ(out.metric, UINT32_MAX) << "does not wrap";
    EXPECT_EQ(out.asPath, "65000 65000 1 {2,3}");
    EXPECT_EQ(out.communities, (std::vector<uint32_t>{4, 65000u << 16 | 1, COMMUNITY_NO_EXPORT}));
    ASSERT_EQ(out.extCommunities.size(), 1u);
    EXPECT_EQ(out.extCommunities[0].b[7], 7);
    EXPECT_EQ(out.dampening[3], 4u);
    EXPECT_EQ(out.nextHop6[15], 1);
    // The same in place, and "none" and the two flags that compute.
    b = clause(RTMAP_SET_COMM);
    b.community.none = 1u;
    add(b);
    add(clause(RTMAP_SET_AUTOTAG));
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
                    addNumber(code, v, seq);
                }
            };
            values(RTMAP_MATCH_MET, &at.metrics);
            values(RTMAP_MATCH_TAG, &at.tags);
            if (pick(2) == 0) addNumber(RTMAP_SET_WEIGHT, at.add = 1 + pick(1000), seq);
            if (pick(2) == 0) {
                at.continues = pick(3) == 0 ? 0 : seq + 1 + static_cast<int32_t>(pick(10));
                addContinue(seq, static_cast<uint32_t>(at.continues));
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
    addNumber(RTMAP_MATCH_MET, 1);
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
        addNumber(RTMAP_SET_WEIGHT, 5 + i % 2);
        rmapClauseBlock b = clause(RTMAP_MATCH_MET);
        b.value = 1 + i % 2;
        (void)ipDelRmapEntry(M, &b, AF_IPV4);
        addNumber(RTMAP_MATCH_MET, 2 - i % 2);
        aclWriteUnlock();
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
}

TEST_F(RmapCheck, CheckCommandsSayTheVerdict) {
    instance(10);
    addNumber(RTMAP_SET_MET, 42);
    std::string out;
    EXPECT_EQ(ipRmapCheck(0x0A000000, 0xFF000000, ipRmapListFind(M), &out), 0);
    EXPECT_EQ(ipRmapCheck(0x0A000000, 0xFF000000, nullptr, &out), 1);
    EXPECT_EQ(out, "matched, set metric to  42 \ndrop\n");
    const std::string answer = debugRun(
        "testRouteMap", "M 10.0.0.0/8 as-path \"1 2\" community 1:2 no-export metric 3 tag 4");
    EXPECT_NE(answer.find("\"verdict\":\"permit\",\"entry\":\"route-map M permit 10\""),
              answer.npos)
        << answer;
    EXPECT_NE(answer.find("\"metric\":42"), answer.npos) << answer;
    EXPECT_NE(answer.find("\"as-path\":\"1 2\",\"community\":\"1:2 no-export\""), answer.npos)
        << answer;
    for (const char* bad : {"M", "M 10.0.0.0", "M 10.0.0.0/33", "M 10.0.0.0/8 metric",
                            "M 10.0.0.0/8 metric x", "M 10.0.0.0/8 color 3", "N 10.0.0.0/8"})
        EXPECT_NE(debugRun("testRouteMap", bad).find("\"error\""), std::string::npos) << bad;
}

}  // namespace
