// Routes against route maps: every kind of match and set clause, how instances and continue clauses
// go together (against a plain model).
#include <map>

#include "match/zekRmap.h"
#include "tests/policy/policyTest.h"

namespace {

struct RmapCheck : PolicyTest {
    // What the debug shell answers to a route, but for the trail.
    static std::string test(const std::string& route) {
        std::string out = debug("testRouteMap", "M " + route);
        const size_t from = out.find(",\"trail\""), to = out.find(",\"route\"");
        return out.erase(std::min(from, out.size()), to != out.npos ? to - from : out.npos);
    }
    static bool permits(const std::string& route) {
        return test(route).starts_with(R"({"verdict":"permit")");
    }
    static rmapRoute route() {
        rmapRoute r;
        const uint8_t address[4] = {10, 1};
        r.prefix = ipPrefixMake(AF_IPV4, address, 16);
        return r;
    }
};

TEST_F(RmapCheck, EveryMatchClauseHoldsForItsRouteOnly) {
    configure(
        "ip access-list standard L\n permit 10.1.0.0 0.0.255.255\n"
        "ipv6 access-list L\n permit ipv6 2001:db8::/32 any\n"
        "ip prefix-list L\n permit 10.1.0.0/16 le 32\n"
        "ipv6 prefix-list L\n permit 2001:db8::/32 le 128\n"
        "ip as-path access-list L\n permit _2_\nip community-list L\n permit 65000:2\n"
        "ip extcommunity-list L\n permit rt 65000:2\n");
    const std::string v4 = "10.1.0.0/16", v6 = "2001:db8:1::/48";
    const struct {
        const char *clause, *hold, *miss;  // a route's attributes, or another route
    } cases[] = {
        {" match as-path L", "as-path 1 2 3", ""},
        {" match community L", "community 0:5 65000:2", "community 0:5"},
        {" match community L exact", "community 65000:2", "community 0:5 65000:2"},
        {" match extcommunity L", "extcommunity rt 65000:2", "extcommunity rt 65000:8"},
        {" match access list L", "", "10.2.0.0/16"},
        {" match ip address L", "", "10.2.0.0/16"},
        {" match ip address prefix-list L", "", "10.1.0.0/15"},
        {" match ip next-hop L", "next-hop 10.1.2.3", "next-hop 10.2.2.3"},
        {" match ip next-hop prefix-list L", "next-hop 10.1.2.3", "next-hop 10.2.2.3"},
        {" match ip route-source L", "route-source 10.1.2.3", "route-source 10.2.2.3"},
        {" match ip route-source prefix-list L", "route-source 10.1.2.3", ""},
        {" match ipv6 address L", "", "2001:db9::/48"},
        {" match ipv6 next-hop L", "next-hop 2001:db8::", "next-hop fe01::"},
        {" match ipv6 route-source L", "route-source 2001:db8::", ""},
        {" match ipv6 address prefix-list L", "", "10.1.0.0/16"},
        {" match ipv6 next-hop prefix-list L", "next-hop 2001:db8::", "next-hop fe01::"},
        {" match ipv6 route-source prefix-list L", "route-source 2001:db8::", ""},
        {" match origin incomplete", "origin incomplete", "origin egp"},
        {" match route-type external", "route-type external type-2", "route-type level-1"},
        {" match metric 9", "metric 9", "metric 8"},
        {" match tag 9", "tag 9", "tag 8"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.clause);
        configure(std::string("route-map M permit 10\n") + c.clause + "\n");
        const std::string its = std::strstr(c.clause, "ipv6") != nullptr ? v6 : v4;
        EXPECT_TRUE(permits(its + " " + c.hold));
        EXPECT_FALSE(permits(isdigit(c.miss[0]) != 0 ? c.miss : its + " " + c.miss));
        const std::string answer = debug("testRouteMap", "M " + its + " " + c.hold);
        EXPECT_NE(
            answer.find(std::string("[{\"clause\":\"") + (c.clause + 1) + "\",\"holds\":true}"),
            answer.npos)
            << answer;
        EXPECT_EQ(ipRmapListFind(M)->first->hits, 0u) << "a question with a trail counts nothing";
        configure("no route-map M\n");
    }
    // What no line says: an interface, and the class of the other family, in which no store hears
    // of the clause.
    rmapRoute through = route();
    through.ifindex = 77;
    for (auto other :
         {clause(MATCH, RTMAP_MATCH_IFACE, 77), clause(MATCH6, RTMAP_MATCH_IPADD_PREFIX, 0, "L"),
          clause(MATCH, RTMAP_MATCH_IPV6ADD_PREFIX, 0, "L")}) {
        configure("route-map M permit 10\n");
        ASSERT_EQ(ipAddRmapEntry(M, &other, AF_IPV4), ACL_OK);
        EXPECT_EQ(permits(v4), other.code == RTMAP_MATCH_IPADD_PREFIX);
        EXPECT_EQ(permits(v6), other.code == RTMAP_MATCH_IPV6ADD_PREFIX);
        const bool holds = other.code != RTMAP_MATCH_IPV6ADD_PREFIX;
        EXPECT_EQ(ipRoutemapCheck(ipRmapListFind(M), through, nullptr), holds ? 0 : 1);
        EXPECT_EQ(ipRmapListFind(M)->first->hits, holds ? 1u : 0u);
        configure("no route-map M\n");
    }
    // A list that goes while the map names it is a placeholder: nothing is permitted, and nothing
    // dangles.
    for (const std::string family : {"ip", "ipv6"})
        for (const std::string kind : {" prefix-list L", " access-list L"}) {
            const std::string its = family == "ip" ? v4 : v6;
            configure("route-map M permit 10\n match " + family + " address" +
                      (kind[1] == 'p' ? kind : " L") + "\n");
            EXPECT_TRUE(permits(its)) << family << kind;
            configure("no " + family +
                      (family == "ip" && kind[1] == 'a' ? " access-list standard L" : kind) + "\n");
            EXPECT_FALSE(permits(its)) << family << kind;
            configure("no route-map M\n");
        }
    EXPECT_EQ(ipRoutemapCheck(nullptr, route(), nullptr), 1);
}

TEST_F(RmapCheck, SetClausesChangeThePermittedRoute) {
    configure(
        "ip community-list L\n permit 0:3\nroute-map M permit 10\n set local-preference 200\n"
        " set weight 7\n set next-hop 10.0.0.1\n set level level-2\n set metric-type type-1\n"
        " set origin egp\n set tag 11\n set metric + 50\n set as-path prepend 65000 65000\n"
        " set community 65000:1 65000:9 no-export additive\n set extcommunity rt 65000:7\n"
        " set dampening 1 2 3 4\n set comm-list L delete\n");
    const std::string given =
        "10.1.0.0/16 metric 4294967285 as-path \"1 {2,3}\" "
        "community 0:3 0:4 65000:1 extcommunity rt 1:1";
    const std::string front =
        R"({"verdict":"permit","entry":"route-map M permit 10","route":{"prefix":"10.1.0.0/16",)";
    EXPECT_EQ(test(given),
              front + R"("next-hop":"10.0.0.1","metric":4294967295,"tag":11,)"
                      R"("local-preference":200,"weight":7,"origin":"egp","metric-type":"type-1",)"
                      R"("level":"level-2","as-path":"65000 65000 1 {2,3}",)"
                      R"("community":"0:4 65000:1 65000:9 no-export","extcommunity":"rt 65000:7",)"
                      R"("dampening":"1 2 3 4"}})");
    // One after the other, over instances; and in place.
    configure(
        "route-map M permit 20\n set as-path prepend 9\n set as-path tag\n"
        "route-map M permit 10\n set metric - 50\n set community none\n set as-path 5\n"
        " set automatic-tag\n set ipv6 next-hop ::1\n continue\n");
    EXPECT_EQ(test("10.1.0.0/16 metric 10 as-path 1 2 community 0:4"),
              R"({"verdict":"permit","entry":"route-map M permit 20",)"
              R"("route":{"prefix":"10.1.0.0/16","next-hop":"::1","tag":5,)"
              R"("local-preference":200,"weight":7,"origin":"egp","metric-type":"type-1",)"
              R"("level":"level-2","as-path":"5","extcommunity":"rt 65000:7",)"
              R"("dampening":"1 2 3 4"}})");
    rmapRoute in = route();
    in.communities = {4};
    ASSERT_EQ(ipRoutemapCheck(ipRmapListFind(M), in, &in), 0);
    EXPECT_TRUE(in.communities.empty());
}

// Maps of metric and tag matches, weight sets and continues, against a walk over what was asked
// for.
TEST_F(RmapCheck, DecidesAsAPlainWalkDoes) {
    struct modelInstance {
        bool deny = false;
        std::set<uint32_t> metrics, tags;
        uint32_t weight = 0;
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
            configure((at.deny ? "route-map M deny " : "route-map M permit ") +
                      std::to_string(seq) + "\n");
            auto value = [&](const char* clause, uint32_t v) {
                ASSERT_EQ(type(clause + std::to_string(v)), 0u);
            };
            for (uint32_t v = 0; v < 4; v++) {
                if (pick(3) == 0) value(" match metric ", *at.metrics.insert(v).first);
                if (pick(3) == 0) value(" match tag ", *at.tags.insert(v).first);
            }
            if (pick(2) == 0) value(" set weight ", at.weight = 1 + pick(1000));
            if (pick(2) == 0) continue;
            at.continues = pick(3) == 0 ? 0 : seq + 1 + static_cast<int32_t>(pick(10));
            if (at.continues == 0)
                configure(" continue\n");
            else
                value(" continue ", static_cast<uint32_t>(at.continues));
        }
        if (pick(3) == 0) {  // one goes again
            const int32_t seq = model.begin()->first;
            ASSERT_EQ(ipRmapListDelete(M, seq, RMAP_NAMED_NONE), ACL_OK);
            model.erase(seq);
        }
        auto has = [](const std::set<uint32_t>& values, uint32_t v) {
            return values.empty() || values.contains(v);
        };
        for (uint32_t question = 0; question < 16; question++) {
            rmapRoute in = route(), out;
            in.metric = question % 4;
            in.tag = question / 4;
            bool permitted = false, dropped = false;
            uint32_t weight = 0;
            for (auto it = model.begin(); it != model.end();) {
                const modelInstance& at = it->second;
                ++it;
                if (!has(at.metrics, in.metric) || !has(at.tags, in.tag)) continue;
                if ((dropped = at.deny)) break;
                permitted = true;
                if (at.weight != 0) weight = at.weight;
                if (at.continues < 0) break;
                if (at.continues > 0) it = model.lower_bound(at.continues);
            }
            const bool expected = permitted && !dropped;
            ASSERT_EQ(ipRoutemapCheck(ipRmapListFind(M), in, &out) == 0, expected) << round;
            ASSERT_EQ(out.weight, expected ? weight : 0);
        }
        (void)ipRmapListDelete(M, 0, RMAP_NAMED_NONE);
    }
}

TEST_F(RmapCheck, CheckCommandsSayTheVerdict) {
    configure("route-map M permit 10\n set metric 42\n");
    std::string out;
    EXPECT_EQ(ipRmapCheck(0x0A000000, 0xFF000000, ipRmapListFind(M), &out), 0);
    EXPECT_EQ(ipRmapCheck(0x0A000000, 0xFF000000, nullptr, &out), 1);
    EXPECT_EQ(out, "matched, set metric to  42 \ndrop\n");
    EXPECT_NE(debug("testRouteMap", "N 10.0.0.0/8").find("\"error\""), std::string::npos);
    for (const char* bad : {"", "10.0.0.0", "10.0.0.0/33", "10.0.0.0/8 metric",
                            "10.0.0.0/8 metric x", "10.0.0.0/8 color 3"})
        EXPECT_NE(test(bad).find("\"error\""), std::string::npos) << bad;
}

}  // namespace
