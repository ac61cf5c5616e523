// Route maps through the dispatcher: every clause, the rules between clauses, what clients and
// configuration hear, and what is left when memory or a list is missing.
#include <random>
#include <set>

#include "tests/policy/policyTest.h"

namespace {

struct RouteMap : PolicyTest {
    uint32_t create(const char* name, int32_t seq = -1, uint32_t action = RMAP_PERMIT) {
        auto bytes = cli(CLI_RMAP_CREATE, name, sizeof(cliRmapReq));
        auto* req = reinterpret_cast<cliRmapReq*>(bytes.data());
        req->seq = static_cast<uint32_t>(seq);
        req->action = action;
        return ask(bytes);
    }
    uint32_t remove(uint32_t code, const char* name, uint32_t seq, uint32_t named = 0) {
        auto bytes = cli(code, name, sizeof(cliRmapDeleteReq));
        reinterpret_cast<cliRmapDeleteReq*>(bytes.data())->seq = seq;
        reinterpret_cast<cliRmapDeleteReq*>(bytes.data())->named = named;
        return ask(bytes);
    }
    uint32_t change(uint32_t code, const clause& c, const char* name = "M",
                    uint32_t operation = 0) {
        auto bytes = cli(code, name, sizeof(cliRmapClauseReq));
        auto* req = reinterpret_cast<cliRmapClauseReq*>(bytes.data());
        req->clause = c;
        req->operation = operation;
        const uint32_t answer = ask(bytes);
        EXPECT_EQ(aclRTest(), "");
        return answer;
    }
    uint32_t add(const clause& c, const char* name = "M") {
        return change(CLI_RMAP_ENTRY_ADD, c, name);
    }
    uint32_t del(const clause& c, const char* name = "M") {
        return change(CLI_RMAP_ENTRY_DELETE, c, name);
    }
    // What the last request told the configuration, its feed and RTM.
    rows told() const {
        rows out;
        for (const std::string& row : effects)
            if (row.starts_with("cfg ") || row.starts_with("sync ") || row.starts_with("swp "))
                out.push_back(row);
        return out;
    }
    static rmapList* map(const char* name = "M") { return ipRmapListFind(listNameMake(name)); }
    void watch(const char* name) {
        ASSERT_EQ(rmapAddTaskClient(APP_RTM, 0, listNameMake(name), {}, 0), 0);
        testTake();
    }
    std::string show(uint32_t code, const char* name) {
        auto bytes = cli(code, "", sizeof(cliShowReq));
        reinterpret_cast<cliShowReq*>(bytes.data())->name = listNameMake(name);
        auto sent = deliver(bytes);
        if (sent.size() != 1 || sent[0].size() <= SHOW_TEXT_OFFSET) return "";
        reply = sent[0];
        return reinterpret_cast<const char*>(reply.data() + SHOW_TEXT_OFFSET);
    }
    rows lines() const {
        rows out = testCfgLines();
        std::erase_if(out, [](const std::string& line) { return line.empty() || line[0] == '!'; });
        return out;
    }
};

struct clauseCase {
    clause request;
    const char *name, *conf;  // in its line, in its show
    std::string value;        // of both; the show leaves blanks at its end out

    std::string line() const { return std::string(" ") + name + value; }
    std::string shown() const {
        const std::string text = conf + value;
        return text.substr(0, text.find_last_not_of(' ') + 1);
    }
};

std::vector<clauseCase> everyClause() {
    const auto community = [](rmapClauseBlock& b) {
        b.community.high[0] = b.community.high[1] = 65000;
        b.community.low[0] = 1;
        b.community.low[1] = 2;
        b.community.count = 2;
        b.community.localAs = b.community.noAdvertise = b.community.noExport = 1;
        b.community.additive = b.community.none = 1;
    };
    const auto prepend = [](rmapClauseBlock& b) {
        b.prepend.as[0] = 65000;
        b.prepend.as[1] = 65546;
        b.prepend.count = 2;
    };
    const auto dampening = [](rmapClauseBlock& b) {
        for (uint32_t i = 0; i < 4; i++) b.dampening[i] = 15 * (i + 1);
    };
    const auto hop = [](rmapClauseBlock& b) {
        b.ipv6NextHop[0] = 0x20;
        b.ipv6NextHop[1] = 0x01;
        b.ipv6NextHop[15] = 9;
    };
    std::vector<clauseCase> cases{
        {clause(MATCH, 12).number(1), "match origin", "origin", " egp "},
        {clause(MATCH, 133).number(4), "match route-type", "route-type", " external type-2 "},
        {clause(MATCH, 134).number(0x4040000), "match interface", "interface", " if 0x4040000"},
        {clause(MATCH, 136).number(4294967295u), "match metric", "metric", " 4294967295"},
        {clause(MATCH, 137).number(7), "match tag", "tag", " 7"},
        {clause(SET, 100).number(200), "set local-preference", "local-preference", " 200"},
        {clause(SET, 101).number(9), "set weight", "weight", " 9"},
        {clause(SET, 102).number(0x0A000001), "set next-hop", "next-hop", " 10.0.0.1"},
        {clause(SET, 103).number(5), "set metric", "metric", " 5"},
        {clause(SET, 103).number(6, 1), "set metric", "metric", " + 6"},
        {clause(SET, 103).number(7, 2), "set metric", "metric", " - 7"},
        {clause(SET, 104).number(65001), "set as-path", "as-path", " 65001"},
        {clause(SET, 105).with(community), "set community", "community",
         " 65000:1 65000:2 local-AS no-advertise no-export additive none "},
        {clause(SET, 105).with([](rmapClauseBlock& b) { b.community.number = 4259840001; }),
         "set community", "community", " 4259840001 "},
        {clause(SET, 106), "set automatic-tag", "automatic-tag", " "},
        {clause(SET, 107).number(5), "set level", "level", " backbone "},
        {clause(SET, 108).number(3), "set metric-type", "metric-type", " type-1"},
        {clause(SET, 109), "set as-path tag", "as-path tag", " "},
        {clause(SET, 110).number(2), "set origin", "origin", " incomplete "},
        {clause(SET, 111).with(prepend), "set as-path prepend", "as-path prepend", " 65000 65546 "},
        {clause(SET, 112).list("L"), "set comm-list", "comm-list", " L delete"},
        {clause(SET, 113).with(dampening), "set dampening", "dampening", " 15 30 45 60"},
        {clause(SET, 120).number(3), "set tag", "tag", " 3"},
        {clause(SET6, 121).with(hop), "set ipv6 next-hop", "ipv6 next-hop", " 2001::9"},
        {clause(CONTINUE, 123).number(30), "continue", "continue", " 30"},
        {clause(CONTINUE, 123), "continue", "continue", ""},
        {clause(SET, 124).ext(target(0, 65000, 1), 1), "set extcommunity", "extcommunity",
         " rt 65000:1 additive "},
        {clause(SET, 124).ext(target(1, 0xC0000201, 7, 3)), "set extcommunity", "extcommunity",
         " soo 192.0.2.1:7 "},
        // The classes of both families are taken; the other one's lines have numbers for words.
        {clause(MATCH6, 12).number(1), "match origin", "origin", " 1"},
        {clause(MATCH6, 133).number(4), "match route-type", "route-type", " 4"},
        {clause(SET6, 102).number(0x0A000001), "set next-hop", "next-hop", " 167772161"},
        {clause(SET6, 103).number(5, 1), "set metric", "metric", " 5"},
        {clause(SET6, 107).number(5), "set level", "level", " 5"},
        {clause(SET6, 108).number(3), "set metric-type", "metric-type", " 3"},
        {clause(SET6, 110).number(2), "set origin", "origin", " 2"},
        {clause(SET6, 112).list("L"), "set comm-list", "comm-list", " L"},
        // Values without a word.
        {clause(MATCH, 12).number(3), "match origin", "origin", " "},
        {clause(MATCH, 133).number(9), "match route-type", "route-type", "  "},
        {clause(SET, 107).number(4), "set level", "level", "  "},
    };
    const struct {
        uint16_t cls;
        uint32_t code;
        const char *name, *conf;
    } lists[] = {
        {MATCH, 1, "match as-path", "as-path (as-path filter):"},
        {MATCH6, 1, "match as-path", "as-path (as-path filter):"},
        {MATCH, 2, "match access list", "ip address (access-lists):"},
        {MATCH, 3, "match ip next-hop", "ip next-hop (access-lists):"},
        {MATCH, 4, "match community", "community (community-list filter):"},
        {MATCH, 5, "match ip address", "ip address (access-lists):"},
        {MATCH, 6, "match community", "community (community-list filter):"},
        {MATCH, 7, "match ip route-source", "ip route-source (access-lists):"},
        {MATCH, 8, "match ip address", "ip address:"},
        {MATCH, 9, "match ip next-hop prefix-list", "ip next-hop prefix-lists:"},
        {MATCH, 11, "match ip route-source prefix-list", "ip route-source prefix-lists:"},
        {MATCH6, 13, "match ipv6 address", "ipv6 address:"},
        {MATCH6, 14, "match ipv6 next-hop prefix-list", "ipv6 next-hop prefix-lists:"},
        {MATCH6, 15, "match ipv6 route-source prefix-list", "ipv6 route-source prefix-lists:"},
        {MATCH6, 16, "match ipv6 next-hop", "ipv6 next-hop (access-lists):"},
        {MATCH6, 17, "match ipv6 route-source", "ipv6 route-source (access-lists):"},
        {MATCH6, 18, "match ipv6 address", "ipv6 address (access-lists):"},
        {MATCH, 125, "match extcommunity", "extcommunity (extcommunity-list filter):"},
    };
    for (const auto& l : lists)
        cases.push_back({clause(l.cls, l.code).list("L"), l.name, l.conf,
                         l.code == RTMAP_MATCH_COMM_EXACT ? " L exact" : " L"});
    return cases;
}

}  // namespace

TEST_F(RouteMap, EveryClauseHasItsLineItsShowItsNoFormAndLeavesNothing) {
    ASSERT_EQ(create("M"), ACL_OK);
    watch("M");
    std::set<uint32_t> seen;
    uint32_t id = map()->lastEntryId;
    for (const clauseCase& c : everyClause()) {
        const std::string line = c.line();
        SCOPED_TRACE(line);
        const rmapCodeRow* row = rmapCodeFind(c.request.code);
        seen.insert(row->code);
        const bool values = row->kind == RMAP_KIND_LIST || row->kind == RMAP_KIND_NUMBER ||
                            row->style == RMAP_STYLE_FLAG;
        const std::string place = "79/152 M 10 " + std::to_string(c.request.cls) + "/" +
                                  std::to_string(++id) + (values ? "/1" : "/0");
        ASSERT_EQ(add(c.request), ACL_OK);
        EXPECT_EQ(told(),
                  (rows{"swp 1 14462 length 292", "cfg insert " + place + " \"" + line + "\"",
                        "sync 12/10 M \"" + line + "\""}));
        EXPECT_EQ(lines(), (rows{"route-map M permit 10", line}));
        EXPECT_EQ(show(CLI_SHOW_RMAP_CONFIG, "M"), "route-map M permit 10\n" + line + "\n");
        const std::string shown = show(CLI_SHOW_RMAP, "M");
        const std::string indent = row->side == RMAP_SIDE_CONTINUE ? "\n  " : "\n    ";
        EXPECT_NE(shown.find(indent + c.shown() + "\n"), std::string::npos) << shown;

        ASSERT_EQ(del(c.request), ACL_OK);
        const rows gone = {"cfg exact " + place, "sync 12/10 M \"no " + line + "\"",
                           "swp 1 14462 length 292"};
        EXPECT_EQ(told(), gone);
        EXPECT_EQ(lines(), rows{"route-map M permit 10"});
        EXPECT_EQ(del(c.request), ACL_E_RMAP_NOENTRY);
    }
    // The clauses that are not in the list above: refused, without a trace.
    for (const rmapCodeRow& row : rmapCodeTable) {
        if (seen.contains(row.code)) continue;
        const bool isSet = row.side == RMAP_SIDE_SET;
        SCOPED_TRACE(row.debug);
        EXPECT_EQ(add(clause(isSet ? SET : row.cls, row.code).list("L")), ACL_E_RMAP_CLAUSE);
        EXPECT_EQ(told(), rows{});
    }
    EXPECT_EQ(map()->lastEntryId, id);
}

// What has no name or word is "" and reported, by the class and the function.
TEST_F(RouteMap, NamesAreThoseOfTheClass) {
    constexpr char CODE[] = " function: Couldn't resolve code to string \n";
    constexpr char NUMBER[] = " function: Couldn't resolve number to string \n";
    auto check = [](const char* text, const char* expected, const std::string& error) {
        EXPECT_STREQ(text, expected);
        EXPECT_EQ(testTake(), error.empty() ? rows{} : rows{"syserr 0x50006 Error in " + error});
    };
    testTake();
    for (uint16_t cls : {MATCH, MATCH6}) {
        check(rtmap_code_to_str(1, cls), "match as-path", "");
        check(rtmap_code_to_str_conf(1, cls), "as-path (as-path filter):", "");
        check(rtmap_code_to_str(100, cls), "", std::string("MATCH: rtmap_code_to_str") + CODE);
    }
    check(rtmap_code_to_str(121, SET), "set ipv6 next-hop", "");
    check(rtmap_code_to_str(6, MATCH), "", std::string("MATCH: rtmap_code_to_str") + CODE);
    check(rtmap_code_to_str(1, SET), "", std::string("SET: rtmap_code_to_str") + CODE);
    check(rtmap_code_to_str(1, 77), "", std::string("ms:rtmap_code_to_str") + CODE);
    check(rtmap_code_to_str_conf(1, SET6), "", std::string("SET: rtmap_code_to_str_conf") + CODE);
    check(rtmap_code_to_str_conf(123, CONTINUE), "",
          std::string("ms:rtmap_code_to_str_conf") + CODE);
    check(rtmap_rtype_to_str(8), "internal", "");
    check(rtmap_rtype_to_str(1), "", std::string("routetype number: rtmap_rtype_to_str") + NUMBER);
    check(rtmap_mettype_to_str(1), "internal", "");
    check(rtmap_mettype_to_str(5), "",
          std::string("mettype number: rtmap_mettype_to_str") + NUMBER);
    check(rtmap_level_to_str(6), "stub-area", "");
    check(rtmap_level_to_str(4), "", std::string("level number: rtmap_level_to_str") + NUMBER);
}

TEST_F(RouteMap, InstancesAreChosenChangedAndDeletedAndClientsSeeDenyWhileOneGoes) {
    ASSERT_EQ(create("M"), ACL_OK);
    EXPECT_EQ(uint32_t{view<cliRmapReq>()->seq}, 10u);
    EXPECT_EQ(told(),
              (rows{"cfg insert 79/140 M 0 0/0/0 \"\"", "cfg insert 79/144 M 10 0/0/0 \"!\"",
                    "sync 3 M \"route-map M permit 10\"",
                    "cfg insert 79/152 M 10 0/0/0 \"route-map M permit 10\"",
                    // A new instance writes its line again with its header's change: meant.
                    "cfg insert 79/140 M 0 0/0/0 \"\"", "cfg insert 79/144 M 10 0/0/0 \"!\"",
                    "sync 3 M \"route-map M permit 10\"",
                    "cfg insert 79/152 M 10 0/0/0 \"route-map M permit 10\""}));
    watch("M");
    ASSERT_EQ(create("M", -1, RMAP_DENY), ACL_OK);  // the only instance
    EXPECT_TRUE(said("sync 3 M \"no route-map M permit 10\""));
    ASSERT_EQ(create("M", 20), ACL_OK);
    ASSERT_EQ(create("M", 5), ACL_OK);
    EXPECT_EQ(create("M"), ACL_E_RMAP_SEQ_NEEDED);
    for (int32_t seq : {0, -2}) EXPECT_EQ(create("M", seq), ACL_E_RMAP_SEQ);
    EXPECT_EQ(create(""), ACL_E_NORMAP);
    EXPECT_EQ(lines(),
              (rows{"route-map M permit 5", "route-map M deny 10", "route-map M permit 20"}));
    EXPECT_EQ(map()->firstSeq, 5);

    EXPECT_EQ(remove(CLI_RMAP_DELETE, "M", 7), ACL_E_RMAP_NOENTRY);
    EXPECT_EQ(remove(CLI_RMAP_DELETE, "none", 0), ACL_E_NORMAP);
    // No more goes than was named.
    EXPECT_EQ(remove(CLI_RMAP_DELETE, "M", 0, RMAP_NAMED_DENY), ACL_E_RMAP_SEQ_NEEDED);
    EXPECT_EQ(remove(CLI_RMAP_DELETE, "M", 10, RMAP_NAMED_PERMIT), ACL_E_RMAP_NOENTRY);
    EXPECT_EQ(remove(CLI_RMAP_DELETE, "M", 5, RMAP_NAMED_DENY), ACL_E_RMAP_NOENTRY);
    EXPECT_EQ(lines().size(), 3u);
    ASSERT_EQ(add(clause(MATCH, 1, 10).list("A")), ACL_OK);
    ASSERT_EQ(remove(CLI_RMAP_INSTANCE_DELETE, "M", 10), ACL_OK);
    EXPECT_EQ(told(), (rows{"cfg remove 79/144 M 10", "sync 3 M \"no route-map M deny 10\"",
                            "swp 1 14462 length 292"}));
    EXPECT_EQ(bgpASPAccessListFind(A), nullptr);
    EXPECT_EQ(map()->firstAction, RMAP_PERMIT);
    ASSERT_EQ(remove(CLI_RMAP_DELETE, "M", 0), ACL_OK);
    EXPECT_EQ(told(),
              (rows{"swp 1 14462 length 292", "cfg remove 79/144 M 5", "cfg remove 79/144 M 20",
                    "sync 3 M \"no route-map M \"", "cfg exact 79/140 M 0 0/0/0"}));
    // Its client keeps it, as a placeholder that denies, takes no clause and is not shown.
    ASSERT_NE(map(), nullptr);
    EXPECT_EQ(map()->firstAction, RMAP_DENY);
    EXPECT_EQ(add(clause(MATCH, 137).number(1)), ACL_E_NORMAP);
    EXPECT_EQ(show(CLI_SHOW_RMAP, "M") + show(CLI_SHOW_RMAP_ALL, ""), "");
    ASSERT_EQ(create("M", 30, RMAP_DENY), ACL_OK);
    EXPECT_EQ(map()->placeholder, 0u);
    EXPECT_EQ(map()->firstSeq, 30);
    map()->first->hits = 12;
    EXPECT_EQ(show(CLI_SHOW_RMAP_ALL, ""),
              "route-map M deny 30\n  Match clauses:\n  Set clauses:\n  Hits: 12\n");
    EXPECT_EQ(rmapPrintHits(M), "route-map M deny 30: 12 hits\n");
}

TEST_F(RouteMap, ValuesAddOverwriteOrAreRefusedByTheRulesOfTheirClause) {
    ASSERT_EQ(create("M"), ACL_OK);
    ASSERT_EQ(create("M", 200), ACL_OK);
    const clause header = clause(0, 0).with([](rmapClauseBlock& b) { b.header = 1; });
    watch("M");
    auto community = [](uint32_t value) {
        return clause(SET, 105).with([=](rmapClauseBlock& b) { b.community.number = value; });
    };
    auto dampening = [](uint32_t value) {
        return clause(SET, 113).with([=](rmapClauseBlock& b) { b.dampening[0] = value; });
    };
    auto ext = [](uint8_t subtype, uint8_t number) {
        return clause(SET, 124).ext(target(0, 1, number, subtype));
    };
    auto hop = [](uint8_t last) {
        return clause(SET6, 121).with([=](rmapClauseBlock& b) { b.ipv6NextHop[15] = last; });
    };
    auto counts = [](uint32_t code, uint32_t count) {
        return clause(SET, code).with([=](rmapClauseBlock& b) {
            b.community.count = b.prepend.count = b.extCommunity.count = count;
        });
    };
    enum operation { ADD, DEL };
    struct {
        operation what;
        clause request;
        uint32_t status;
        const char* said;  // "": neither client nor configuration hears of it
    } steps[] = {
        {ADD, clause(MATCH, 1).list("A"), ACL_OK, "\" match as-path A\""},
        {ADD, clause(MATCH, 1).list("B"), ACL_OK, "1/3/2 \" match as-path B\""},
        {ADD, clause(MATCH, 1).list("A"), ACL_E_RMAP_NAME_EXISTS, ""},
        {ADD, clause(MATCH, 1), ACL_E_RMAP_VALUE, ""},
        {DEL, clause(MATCH, 1).list("C"), ACL_E_RMAP_NONAME, ""},
        {DEL, clause(MATCH, 1).list("A"), ACL_OK, "no  match as-path A"},
        {ADD, clause(MATCH, 1).list("A"), ACL_OK, "1/3/3 \" match as-path A\""},
        // Both community matches are one clause, in the form of the first.
        {ADD, clause(MATCH, 6).list("A"), ACL_OK, "\" match community A exact\""},
        {ADD, clause(MATCH, 4).list("B"), ACL_OK, "\" match community B exact\""},
        {ADD, clause(SET, 103).number(5), ACL_OK, "3/5/1 \" set metric 5\""},
        {ADD, clause(SET, 103).number(5), ACL_E_RMAP_NUMBER_EXISTS, ""},
        {ADD, clause(SET, 103).number(5, 1), ACL_OK, "3/5/1 \" set metric + 5\""},
        {DEL, clause(SET, 103).number(99), ACL_OK, "no  set metric + 5"},
        {DEL, clause(SET, 103).number(99), ACL_E_RMAP_NOENTRY, ""},
        {ADD, clause(MATCH, 136).number(5), ACL_OK, "\" match metric 5\""},
        {DEL, clause(MATCH, 136).number(6), ACL_E_RMAP_NONUMBER, ""},
        {ADD, clause(SET, 112).list("X"), ACL_OK, "\" set comm-list X delete\""},
        {ADD, clause(SET, 112).list("Y"), ACL_OK, "/1 \" set comm-list Y delete\""},
        {ADD, community(7), ACL_OK, "\" set community 7 \""},
        {ADD, community(7), ACL_OK, ""},
        {ADD, community(8), ACL_OK, "\" set community 8 \""},
        {ADD, dampening(1), ACL_OK, "\" set dampening 1 0 0 0\""},
        {ADD, dampening(2), ACL_OK, "\" set dampening 2 0 0 0\""},  // a clause of its own
        {DEL, dampening(3), ACL_E_RMAP_NOENTRY, ""},
        {ADD, ext(EXTCOMM_RT, 1), ACL_OK, "\" set extcommunity rt 1:1 \""},
        {ADD, ext(EXTCOMM_RT, 2), ACL_OK, "\" set extcommunity rt 1:2 \""},
        {ADD, ext(EXTCOMM_SOO, 3), ACL_OK, "\" set extcommunity soo 1:3 \""},
        {DEL, ext(EXTCOMM_RT, 9), ACL_OK, "no  set extcommunity soo 1:3"},  // all of them
        {DEL, ext(EXTCOMM_RT, 2), ACL_E_RMAP_NOENTRY, ""},
        {ADD, ext(9, 1), ACL_OK, "\" set extcommunity1:1 \""},  // neither word: meant
        {DEL, ext(9, 1), ACL_OK, "no  set extcommunity1:1"},
        {ADD, counts(124, 0x80000001), ACL_E_RMAP_VALUE, ""},
        {ADD, counts(105, 0xFFFFFFFF), ACL_E_RMAP_VALUE, ""},
        {ADD, counts(111, 0xFFFFFFFF), ACL_E_RMAP_VALUE, ""},
        {ADD, counts(111, 0), ACL_E_RMAP_VALUE, ""},
        {ADD, counts(111, 1000), ACL_OK, "\" set as-path prepend 0 0 0 0 0 0 0 0 \""},
        {ADD, hop(1), ACL_OK, "\" set ipv6 next-hop ::1\""},
        {DEL, hop(2), ACL_E_RMAP_NOENTRY, ""},
        {ADD, hop(2), ACL_OK, "\" set ipv6 next-hop ::2\""},
        {ADD, clause(SET, 106), ACL_OK, "\" set automatic-tag \""},
        {ADD, clause(SET, 106), ACL_E_RMAP_NAME_EXISTS, ""},
        {ADD, clause(CONTINUE, 123).number(10), ACL_E_RMAP_CONTINUE, ""},
        {ADD, clause(CONTINUE, 123).number(0xFFFFFFFF), ACL_E_RMAP_CONTINUE, ""},
        {ADD, clause(CONTINUE, 123).with([](rmapClauseBlock& b) { b.continueFlag = 1; }),
         ACL_E_RMAP_CONTINUE, ""},
        {ADD, clause(CONTINUE, 123).number(20), ACL_OK, "\" continue 20\""},
        {ADD, clause(CONTINUE, 123).number(11), ACL_OK, "/1 \" continue 11\""},
        {DEL, clause(CONTINUE, 123), ACL_OK, "no  continue 11"},
        // One form of a place in an instance, counted by values.
        {ADD, clause(MATCH, 5).list("A"), ACL_OK, "\" match ip address A\""},
        {ADD, clause(MATCH, 5).list("B"), ACL_OK, "\" match ip address B\""},
        {ADD, clause(MATCH, 8).list("A"), ACL_E_RMAP_FORMS, ""},
        {ADD, clause(MATCH, 9).list("A"), ACL_OK, "\" match ip next-hop prefix-list A\""},
        {ADD, clause(MATCH, 3).list("A"), ACL_E_RMAP_FORMS, ""},
        {DEL, clause(MATCH, 5).list("A"), ACL_OK, "no  match ip address A"},
        {ADD, clause(MATCH, 8).list("A"), ACL_E_RMAP_FORMS, ""},
        {DEL, clause(MATCH, 5).list("B"), ACL_OK, "no  match ip address B"},
        {ADD, clause(MATCH, 8).list("A"), ACL_OK, "\" match ip address A\""},
        {ADD, clause(MATCH6, 18).list("A"), ACL_OK, "\" match ipv6 address A\""},
        {ADD, clause(MATCH6, 13).list("A"), ACL_E_RMAP_FORMS, ""},
        // What is no clause: the wrong side, kind or class, or none at all.
        {ADD, clause(SET, 1).list("A"), ACL_E_RMAP_CLAUSE, ""},
        {ADD, clause(MATCH, 136).with([](rmapClauseBlock& b) { b.kind = RMAP_KIND_LIST; }),
         ACL_E_RMAP_CLAUSE, ""},
        {ADD, clause(SET, 121), ACL_E_RMAP_CLAUSE, ""},
        {ADD, clause(77, 1).list("A"), ACL_E_RMAP_CLAUSE, ""},
        {ADD, clause(MATCH, 999), ACL_E_RMAP_CLAUSE, ""},
        {ADD, clause(MATCH, 137, 0).number(1), ACL_E_RMAP_SEQ, ""},
        // Clauses stand under the line of their instance or not at all.
        {ADD, clause(MATCH, 137, 15).number(1), ACL_E_RMAP_NOENTRY, ""},
        {DEL, header, ACL_OK, "cfg remove 79/144 M 10"},
        {DEL, header, ACL_E_RMAP_NOENTRY, ""},
        {ADD, clause(MATCH, 137).number(1), ACL_E_RMAP_NOENTRY, ""},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE("step " + std::to_string(&step - steps) + " code " +
                     std::to_string(step.request.code));
        EXPECT_EQ(step.what == ADD ? add(step.request) : del(step.request), step.status);
        if (step.said[0] == '\0')
            EXPECT_EQ(told(), rows{});
        else
            EXPECT_TRUE(said(step.said)) << testing::PrintToString(effects);
    }
    EXPECT_EQ(lines(), rows{"route-map M permit 200"});
    EXPECT_EQ(bgpASPAccessListFind(A), nullptr);
    ASSERT_EQ(create("M", 10), ACL_OK);
    // The other commands that add and delete; 1022 and 1023 by the operation word.
    for (uint32_t code : {CLI_RMAP_ENTRY, CLI_RMAP_V6_ENTRY}) {
        EXPECT_EQ(change(code, clause(MATCH, 137).number(code), "M", 0), ACL_OK);
        EXPECT_EQ(change(code, clause(MATCH, 137).number(code), "M", 1), ACL_OK);
        EXPECT_EQ(change(code, clause(MATCH, 137).number(code), "M", 2), ACL_E_SYSTEM);
    }
    for (auto [del, add] : {std::pair{1160u, 1161u}, {1187u, 1188u}}) {
        EXPECT_EQ(change(add, clause(MATCH, 137).number(1)), ACL_OK);
        EXPECT_EQ(change(del, clause(MATCH, 137).number(1)), ACL_OK);
    }
}

// The stores, by what a clause's list is made and dropped as.
struct store {
    std::function<void*()> find;
    std::function<uint32_t()> make, drop;  // with an entry, where clients hear of entries only
};
const listName L = listNameMake("L");
store bgpStore(const bgpKind& k) {
    return {[&k] { return k.find(L); },
            [&k] {
                uint32_t status;
                k.create(L, 0, &status);
                return status != 0 ? status : k.add(L, 0);
            },
            [&k] { return k.remove(L); }};
}
store prefixStore(const prefixGiven& entry) {
    const uint32_t af = entry.af;
    return {[af] { return ipPrefixListFind(L, af); },
            [entry] {
                uint32_t status;
                ipPrefixListCreate(L, 0, &status, entry.af);
                return status != 0 ? status : ipAddPrefixEntry(L, entry.record(), entry.af);
            },
            [af] { return ipPrefixListDelete(L, af); }};
}

// Every clause that names a list, in both classes of its side: two of them keep the list in place
// whatever happens to it, no other store hears of it, and each change of it reaches the map's
// client once. The access lists of some clauses are looked up by name: nothing keeps them.
TEST_F(RouteMap, ListsThatAreNamedStayInPlaceWhileTheyComeAndGo) {
    enum where : int { ACCESS, PATHS, COMMUNITIES, TARGETS, PREFIX4, PREFIX6, NONE };
    const store stores[] = {{[] { return ipAccessListFind(L); },
                             [] {
                                 uint32_t made;
                                 ipAccessListCreate(L, IP_KIND_STANDARD, 0, &made);
                                 return made;
                             },
                             [] { return ipAccessListDelete(L, IP_KIND_STANDARD); }},
                            bgpStore(bgpListKinds[0]),
                            bgpStore(bgpListKinds[1]),
                            bgpStore(bgpListKinds[2]),
                            prefixStore({5, PERMIT, "10.0.0.0", 8}),
                            prefixStore({5, PERMIT, "2001::", 16})};
    const struct {
        uint32_t code;
        where at;
        uint16_t cls;  // 0: both
    } kept[] = {{1, PATHS, 0},         {4, COMMUNITIES, 0},   {6, COMMUNITIES, 0},
                {112, COMMUNITIES, 0}, {125, TARGETS, 0},     {5, ACCESS, MATCH},
                {8, PREFIX4, MATCH},   {9, PREFIX4, MATCH},   {11, PREFIX4, MATCH},
                {13, PREFIX6, MATCH6}, {14, PREFIX6, MATCH6}, {15, PREFIX6, MATCH6}};
    ASSERT_EQ(create("M", 10), ACL_OK);
    ASSERT_EQ(create("M", 20), ACL_OK);
    watch("M");
    auto triggers = [] { return std::ranges::count(testTake(), "swp 1 14462 length 292"); };
    for (const rmapCodeRow& row : rmapCodeTable) {
        if (row.kind != RMAP_KIND_LIST || row.style == RMAP_STYLE_NONE) continue;
        for (uint16_t cls : {MATCH, MATCH6, SET, SET6}) {
            if (!rmapSideHas(row.side, cls)) continue;
            SCOPED_TRACE(std::string(row.debug) + " " + std::to_string(cls));
            const auto* keeper = std::ranges::find_if(kept, [&](const auto& k) {
                return k.code == row.code && (k.cls == 0 || k.cls == cls);
            });
            const where at = keeper != std::end(kept) ? keeper->at : NONE;
            auto check = [&](void* list) {
                for (int i = ACCESS; i < NONE; i++)
                    EXPECT_EQ(stores[i].find(), i == at ? list : nullptr) << i;
            };
            ASSERT_EQ(add(clause(cls, row.code, 10).list("L")), ACL_OK);
            ASSERT_EQ(add(clause(cls, row.code, 20).list("L")), ACL_OK);
            void* list = map()->last->last->names->list;
            check(list);
            EXPECT_EQ(list != nullptr, at != NONE);
            for (int round = 0; round < 2 && at != NONE; round++) {
                triggers();
                EXPECT_EQ(stores[at].make(), ACL_OK);
                EXPECT_EQ(stores[at].drop(), ACL_OK);
                EXPECT_EQ(triggers(), 2);
                check(list);
            }
            ASSERT_EQ(del(clause(cls, row.code, 10).list("L")), ACL_OK);
            check(list);  // the other clause keeps it
            EXPECT_EQ(map()->last->last->names->list, list);
            ASSERT_EQ(del(clause(cls, row.code, 20).list("L")), ACL_OK);
            check(nullptr);
        }
    }
}

// Whatever comes, the records fit together and the configuration shows what they say.
TEST_F(RouteMap, TheConfigurationFollowsRandomChanges) {
    std::mt19937 random(7);
    auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const std::vector<clauseCase> cases = everyClause();
    const char* names[] = {"M", "N", "Longer"};
    for (int step = 0; step < 4000; step++) {
        const char* name = names[pick(3)];
        const int32_t seq = static_cast<int32_t>(1 + pick(4));
        clause request = cases[pick(static_cast<uint32_t>(cases.size()))].request;
        request.seq = static_cast<uint32_t>(seq);
        if (request.kind == RMAP_KIND_LIST) request = request.list(pick(2) ? "L" : "K");
        switch (pick(12)) {
            case 0:
            case 1:
                create(name, seq, pick(2));
                break;
            case 2:
                remove(CLI_RMAP_INSTANCE_DELETE, name, static_cast<uint32_t>(seq));
                break;
            case 3:
                if (pick(8) == 0) remove(CLI_RMAP_DELETE, name, 0);
                if (pick(4) == 0) {
                    clause header(0, 0, seq);
                    header.header = 1;
                    del(header, name);
                }
                break;
            case 4:
            case 5:
            case 6:
                del(request, name);
                break;
            default:
                add(request, name);
        }
        if (step % 10 != 0) continue;
        std::string text;
        for (const std::string& line : lines()) text += line + "\n";
        ASSERT_EQ(show(CLI_SHOW_RMAP_CONFIG, ""), text) << step;
    }
}

TEST_F(RouteMap, PrependsFollowTheAsNotationAndLinesThatAreTooLongAreNotWritten) {
    ASSERT_EQ(create("M"), ACL_OK);
    ASSERT_EQ(add(clause(SET, 111).with([](rmapClauseBlock& b) {
                  b.prepend.as[0] = 65546;
                  b.prepend.as[1] = 7;
                  b.prepend.count = 2;
              })),
              ACL_OK);
    for (auto [word, line] : {std::pair{1u, " set as-path prepend 1.10 7 "},
                              {2u, " set as-path prepend 1.10 0.7 "},
                              {3u, " set as-path prepend 1.10 0.7 "},
                              {0u, " set as-path prepend 65546 7 "}}) {
        auto bytes = cli(13607, "", sizeof(cliWordReq));
        reinterpret_cast<cliWordReq*>(bytes.data())->word = word;
        ASSERT_EQ(ask(bytes), ACL_OK);
        EXPECT_TRUE(effects[0].starts_with("send ")) << "answered first: " << effects[0];
        EXPECT_EQ(lines(), (rows{"route-map M permit 10", line}));
    }
    // 33 communities do not fit into a line: the clause counts, its line is logged and left out.
    const clause many = clause(SET, 105).with([](rmapClauseBlock& b) {
        for (uint32_t i = 0; i < RMAP_COMMUNITIES; i++)
            b.community.high[i] = b.community.low[i] = 65535;
        b.community.count = 40;
    });
    const rows before = lines();
    ASSERT_EQ(add(many), ACL_OK);
    EXPECT_TRUE(said("log Configuration is too long to store in Config Manager: returning"));
    EXPECT_FALSE(said("sync"));
    EXPECT_EQ(lines(), before);
    ASSERT_EQ(del(many), ACL_OK);
    EXPECT_EQ(lines(), before);
}
