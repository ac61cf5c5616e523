// Route maps: every clause, the rules between clauses, what clients and configuration hear, and
// what is left when a list is missing.
#include "tests/policy/policyTest.h"

namespace {

struct RouteMap : PolicyTest {
    // A clause as no line can say it; the operation word of the commands that have one.
    uint32_t request(uint32_t code, const rmapClauseBlock& c, uint32_t operation = 0) {
        return ask(cli<cliRmapClauseReq>(code, "M", [&](cliRmapClauseReq& r) {
            r.clause = c;
            r.operation = operation;
        }));
    }
    uint32_t add(const rmapClauseBlock& c) { return request(CLI_RMAP_ENTRY_ADD, c); }
    uint32_t del(const rmapClauseBlock& c) { return request(CLI_RMAP_ENTRY_DELETE, c); }
    static rmapList* map() { return ipRmapListFind(M); }
    static std::string config(const char* name) {
        return shown([=](void** buffer, uint32_t* size) {
            return aclShowRoutemapConfig(listNameMake(name), buffer, size);
        });
    }
    void start(const char* headers) {
        configure(headers);
        ASSERT_EQ(rmapAddTaskClient(APP_RTM, 0, M, {}, 0), 0);
        testTake();
    }
    enum where : size_t { ACCESS, ACCESS6, PATHS, COMMUNITIES, TARGETS, PREFIX4, PREFIX6, NONE };
    static std::vector<const void*> stores() {
        const listName L = listNameMake("L");
        return {ipAccessListFind(L),         aclV6AccessListFind(L), bgpASPAccessListFind(L),
                bgpCommAccessListFind(L),    bgpExtCommListFind(L),  ipPrefixListFind(L, AF_IPV4),
                ipPrefixListFind(L, AF_IPV6)};
    }
    // By code, and by class where the other one's clauses are nobody's.
    static size_t keeperOf(const rmapEntry& entry) {
        static const std::map<uint32_t, std::pair<where, uint16_t>> keepers = {
            {1, {PATHS, 0}},         {4, {COMMUNITIES, 0}},   {6, {COMMUNITIES, 0}},
            {112, {COMMUNITIES, 0}}, {125, {TARGETS, 0}},     {5, {ACCESS, MATCH}},
            {18, {ACCESS6, MATCH6}}, {8, {PREFIX4, MATCH}},   {9, {PREFIX4, MATCH}},
            {11, {PREFIX4, MATCH}},  {13, {PREFIX6, MATCH6}}, {14, {PREFIX6, MATCH6}},
            {15, {PREFIX6, MATCH6}}};
        auto at = keepers.find(entry.code);
        if (at == keepers.end()) return NONE;
        return at->second.second == 0 || at->second.second == entry.cls ? at->second.first : NONE;
    }
    // The clause that has just been asked for: its line, its show, and that it goes again.
    void expectClause(const std::string& line, const std::function<uint32_t()>& remove) {
        SCOPED_TRACE(line);
        const rmapEntry& entry = *map()->last->last;
        EXPECT_EQ(entry.entryId, ++id);
        const rmapCodeRow& row = *rmapCodeFind(entry.code);
        const bool values = row.kind == RMAP_KIND_LIST || row.kind == RMAP_KIND_NUMBER ||
                            row.style == RMAP_STYLE_FLAG;
        const std::string place = "79/152 M 10 " + std::to_string(entry.cls) + "/" +
                                  std::to_string(id) + (values ? "/1" : "/0");
        EXPECT_EQ(told(),
                  (rows{"swp 1 14462 length 292", "cfg insert " + place + " \"" + line + "\"",
                        "sync 12/10 M \"" + line + "\""}));
        EXPECT_EQ(lines(), (rows{"route-map M permit 10", line}));
        EXPECT_EQ(config("M"), "route-map M permit 10\n" + line + "\n");
        // In a show the name is the table's other one, and blanks at the end are left out.
        std::string group = "\n " + line;
        const bool exact = entry.code == RTMAP_MATCH_COMM_EXACT;
        const rmapCodeRow& named = exact ? *rmapCodeFind(RTMAP_MATCH_COMM) : row;
        EXPECT_EQ(line.find(named.name), 1u);
        if (row.side != RMAP_SIDE_CONTINUE)
            group = std::string("\n    ") + named.conf + line.substr(1 + std::strlen(named.name));
        group.erase(group.find_last_not_of(' ') + 1);
        const std::string all =
            shown([](void** buffer, uint32_t* size) { return aclShowRoutemap(M, buffer, size); });
        EXPECT_NE(all.find(group + "\n"), std::string::npos) << all;
        EXPECT_EQ(aclRTest(), "");
        // Its list is kept in one store and in no other. The access lists of some clauses are
        // looked up by name: nothing keeps them.
        const size_t at = keeperOf(entry);
        std::vector<const void*> kept(NONE);
        if (at != NONE) kept[at] = entry.names->list;
        EXPECT_EQ(
            entry.names != nullptr && row.kind == RMAP_KIND_LIST && entry.names->list != nullptr,
            at != NONE);
        EXPECT_EQ(stores(), kept);

        ASSERT_EQ(remove(), ACL_OK);
        EXPECT_EQ(stores(), std::vector<const void*>(NONE));
        EXPECT_EQ(told(), (rows{"cfg exact " + place, "sync 12/10 M \"no " + line + "\"",
                                "swp 1 14462 length 292"}));
        EXPECT_EQ(lines(), rows{"route-map M permit 10"});
        EXPECT_EQ(remove(), ACL_E_RMAP_NOENTRY);
    }
    uint32_t id = 1;
};

TEST_F(RouteMap, EveryClauseHasItsLineItsShowItsNoFormAndLeavesNothing) {
    start("route-map M permit 10\n");
    std::set<uint32_t> seen;
    for (std::string line : clauseLines()) {
        ASSERT_EQ(type(line), ACL_OK);
        seen.insert(map()->last->last->code);
        const std::string typed = "no" + line;
        // The names of these are those of the clauses with access lists: meant.
        if (size_t at = line.find("address prefix-list "); at != line.npos) line.erase(at + 8, 12);
        expectClause(line, [&] { return type(typed); });
    }
    const struct {
        rmapClauseBlock request;
        const char* line;
    } others[] = {
        {clause(MATCH, 134, 0x4040000), " match interface if 0x4040000"},
        // The classes of both families are taken; the other one's lines have numbers for words.
        {clause(MATCH6, 12, 1), " match origin 1"},
        {clause(MATCH6, 133, 4), " match route-type 4"},
        {clause(SET6, 102, 0x0A000001), " set next-hop 167772161"},
        {with(clause(SET6, 103, 5), [](auto& c) { c.subValue = 1; }), " set metric 5"},
        {with(clause(SET6, 107, 5), [](auto& c) { c.subValue = 9; }), " set level 5"},
        {clause(SET6, 108, 3), " set metric-type 3"},
        {clause(SET6, 110, 2), " set origin 2"},
        {clause(SET6, 112, 0, "L"), " set comm-list L"},
        // Values without a word.
        {clause(MATCH, 12, 3), " match origin "},
        {clause(MATCH, 133, 9), " match route-type  "},
        {clause(SET, 107, 4), " set level  "},
    };
    for (const auto& other : others) {
        ASSERT_EQ(add(other.request), ACL_OK) << other.line;
        seen.insert(other.request.code);
        expectClause(other.line, [&] { return del(other.request); });
    }
    for (const rmapCodeRow& row : rmapCodeTable) {
        if (row.kind != RMAP_KIND_LIST || row.side != RMAP_SIDE_MATCH) continue;
        const bool exact = row.style == RMAP_STYLE_LIST_EXACT;
        const auto other = clause(row.cls == MATCH ? MATCH6 : MATCH, row.code, 0, "L");
        ASSERT_EQ(add(other), ACL_OK);
        expectClause(exact ? " match community L exact" : std::string(" ") + row.name + " L",
                     [&] { return del(other); });
    }
    // The clauses that are not above: refused, without a trace.
    for (const rmapCodeRow& row : rmapCodeTable) {
        if (seen.contains(row.code)) continue;
        EXPECT_EQ(row.style, RMAP_STYLE_NONE) << row.debug;
        EXPECT_EQ(add(clause(row.cls, row.code, 0, "L")), ACL_E_RMAP_CLAUSE) << row.debug;
        EXPECT_EQ(told(), rows{});
    }
    EXPECT_EQ(map()->lastEntryId, id);
}

// What has no name is "" and reported, by the class and the function; so are words.
TEST_F(RouteMap, NamesAreThoseOfTheClass) {
    testTake();
    auto expectReport = [](const std::string& what) {
        EXPECT_EQ(testTake(), rows{"syserr 0x50006 Error in " + what + " to string \n"});
    };
    const std::string why = " function: Couldn't resolve code";
    for (auto [cls, side] : {std::pair{MATCH, "MATCH: "}, {SET6, "SET: "}, {uint16_t{77}, "ms:"}}) {
        EXPECT_STREQ(rtmap_code_to_str(139, cls), "");
        expectReport(side + ("rtmap_code_to_str" + why));
        EXPECT_STREQ(rtmap_code_to_str_conf(139, cls), "");
        expectReport(side + ("rtmap_code_to_str_conf" + why));
    }
    EXPECT_STREQ(rtmap_rtype_to_str(1), "");
    expectReport("routetype number: rtmap_rtype_to_str function: Couldn't resolve number");
    EXPECT_STREQ(rtmap_mettype_to_str(5), "");
    expectReport("mettype number: rtmap_mettype_to_str function: Couldn't resolve number");
    EXPECT_STREQ(rtmap_level_to_str(4), "");
    expectReport("level number: rtmap_level_to_str function: Couldn't resolve number");
}

TEST_F(RouteMap, InstancesAreChosenChangedAndDeleted) {
    EXPECT_EQ(type("route-map M"), ACL_OK);
    EXPECT_EQ(uint32_t{view<cliRmapReq>()->seq}, 10u);
    const rows written{"cfg insert 79/140 M 0 0/0/0 \"\"", "cfg insert 79/144 M 10 0/0/0 \"!\"",
                       "sync 3 M \"route-map M permit 10\"",
                       "cfg insert 79/152 M 10 0/0/0 \"route-map M permit 10\""};
    // A new instance writes its line again with its header's change: meant.
    rows twice = written;
    twice.insert(twice.end(), written.begin(), written.end());
    EXPECT_EQ(told(), twice);
    start("route-map M deny\n");  // the only instance
    EXPECT_TRUE(said("sync 3 M \"no route-map M permit 10\""));
    configure("route-map M permit 20\nroute-map M permit 5\n");
    EXPECT_EQ(lines(),
              (rows{"route-map M permit 5", "route-map M deny 10", "route-map M permit 20"}));
    EXPECT_EQ(map()->firstSeq, 5);
    for (int32_t seq : {0, -2}) {
        EXPECT_EQ(ipRmapListCreate(M, RMAP_PERMIT, &seq, 0, &status), nullptr);
        EXPECT_EQ(status, ACL_E_RMAP_SEQ);
    }
    const std::pair<const char*, uint32_t> refused[] = {
        {"route-map M", ACL_E_RMAP_SEQ_NEEDED},
        {"no route-map M permit 7", ACL_E_RMAP_NOENTRY},
        {"no route-map none", ACL_E_NORMAP},
        // No more goes than was named.
        {"no route-map M deny 0", ACL_E_RMAP_SEQ_NEEDED},
        {"no route-map M permit 10", ACL_E_RMAP_NOENTRY},
        {"no route-map M deny 5", ACL_E_RMAP_NOENTRY},
    };
    for (auto [line, answer] : refused) EXPECT_EQ(type(line), answer) << line;
    EXPECT_EQ(lines().size(), 3u);
    configure("route-map M deny 10\n match as-path A\nno route-map M deny 10\n");
    EXPECT_EQ(told(), (rows{"cfg remove 79/144 M 10", "sync 3 M \"no route-map M deny 10\"",
                            "swp 1 14462 length 292"}));
    EXPECT_EQ(bgpASPAccessListFind(A), nullptr);
    EXPECT_EQ(map()->firstAction, RMAP_PERMIT);
    configure("no route-map M\n");
    EXPECT_EQ(told(),
              (rows{"swp 1 14462 length 292", "cfg remove 79/144 M 5", "cfg remove 79/144 M 20",
                    "sync 3 M \"no route-map M \"", "cfg exact 79/140 M 0 0/0/0"}));
    // Its client keeps it, as a placeholder that denies, takes no clause and is not shown.
    ASSERT_NE(map(), nullptr);
    EXPECT_EQ(map()->firstAction, RMAP_DENY);
    EXPECT_EQ(add(clause(MATCH, 137, 1)), ACL_E_NORMAP);
    EXPECT_EQ(config("M") + config(""), "status 52");
    configure("route-map M deny 30\n");
    EXPECT_EQ(map()->placeholder, 0u);
    EXPECT_EQ(map()->firstSeq, 30);
    map()->first->hits = 12;
    EXPECT_EQ(say("do show route-maps"),
              "route-map M deny 30\n  Match clauses:\n  Set clauses:\n  Hits: 12\n");
    EXPECT_EQ(rmapPrintHits(M), "route-map M deny 30: 12 hits\n");
    configure(" match ip address prefix-list A\n");
    shell.options.json = true;
    const std::string json = say("do show route-maps M");
    EXPECT_NE(json.find("\"match\": [\n      \"ip address: A\"\n    ],\n    \"set\": [],\n"
                        "    \"hits\": 12\n"),
              json.npos)
        << json;
}

TEST_F(RouteMap, ValuesAddOverwriteOrAreRefusedByTheRulesOfTheirClause) {
    start("route-map M permit 200\nroute-map M permit 10\n");
    const struct {
        const char* line;
        uint32_t status;
        const char* said;  // "": neither client nor configuration hears of it
    } steps[] = {
        {" match as-path A", ACL_OK, "\" match as-path A\""},
        {" match as-path B", ACL_OK, "1/3/2 \" match as-path B\""},
        {" match as-path A", ACL_E_RMAP_NAME_EXISTS, ""},
        {"no match as-path C", ACL_E_RMAP_NONAME, ""},
        {"no match as-path A", ACL_OK, "no  match as-path A"},
        {" match as-path A", ACL_OK, "1/3/3 \" match as-path A\""},
        // Both community matches are one clause, in the form of the first.
        {" match community A exact", ACL_OK, "\" match community A exact\""},
        {" match community B", ACL_OK, "\" match community B exact\""},
        {" set metric 5", ACL_OK, "3/5/1 \" set metric 5\""},
        {" set metric 5", ACL_E_RMAP_NUMBER_EXISTS, ""},
        {" set metric + 5", ACL_OK, "3/5/1 \" set metric + 5\""},
        {"no set metric 99", ACL_OK, "no  set metric + 5"},
        {"no set metric 99", ACL_E_RMAP_NOENTRY, ""},
        {" match metric 5", ACL_OK, "\" match metric 5\""},
        {"no match metric 6", ACL_E_RMAP_NONUMBER, ""},
        {" set comm-list X delete", ACL_OK, "\" set comm-list X delete\""},
        {" set comm-list Y delete", ACL_OK, "/1 \" set comm-list Y delete\""},
        {" set community 7", ACL_OK, "\" set community 7 \""},
        {" set community 7", ACL_OK, ""},
        {" set community 8", ACL_OK, "\" set community 8 \""},
        {" set dampening 1 0 0 0", ACL_OK, "\" set dampening 1 0 0 0\""},
        {" set dampening 2 0 0 0", ACL_OK, "\" set dampening 2 0 0 0\""},  // of its own
        {"no set dampening 3 0 0 0", ACL_E_RMAP_NOENTRY, ""},
        {" set extcommunity rt 1:1", ACL_OK, "\" set extcommunity rt 1:1 \""},
        {" set extcommunity rt 1:2", ACL_OK, "\" set extcommunity rt 1:2 \""},
        {" set extcommunity soo 1:3", ACL_OK, "\" set extcommunity soo 1:3 \""},
        {"no set extcommunity rt 1:9", ACL_OK, "no  set extcommunity soo 1:3"},  // all of them
        {"no set extcommunity rt 1:2", ACL_E_RMAP_NOENTRY, ""},
        {" set ipv6 next-hop ::1", ACL_OK, "\" set ipv6 next-hop ::1\""},
        {"no set ipv6 next-hop ::2", ACL_E_RMAP_NOENTRY, ""},
        {" set ipv6 next-hop ::2", ACL_OK, "\" set ipv6 next-hop ::2\""},
        {" set automatic-tag", ACL_OK, "\" set automatic-tag \""},
        {" set automatic-tag", ACL_E_RMAP_NAME_EXISTS, ""},
        {" continue 10", ACL_E_RMAP_CONTINUE, ""},
        {" continue 20", ACL_OK, "\" continue 20\""},
        {" continue 11", ACL_OK, "/1 \" continue 11\""},
        {"no continue", ACL_OK, "no  continue 11"},
        // One form of a place in an instance, counted by values.
        {" match ip address A", ACL_OK, "\" match ip address A\""},
        {" match ip address B", ACL_OK, "\" match ip address B\""},
        {" match ip address prefix-list A", ACL_E_RMAP_FORMS, ""},
        {" match ip next-hop prefix-list A", ACL_OK, "\" match ip next-hop prefix-list A\""},
        {" match ip next-hop A", ACL_E_RMAP_FORMS, ""},
        {"no match ip address A", ACL_OK, "no  match ip address A"},
        {" match ip address prefix-list A", ACL_E_RMAP_FORMS, ""},
        {"no match ip address B", ACL_OK, "no  match ip address B"},
        {" match ip address prefix-list A", ACL_OK, "\" match ip address A\""},
        {" match ipv6 address A", ACL_OK, "\" match ipv6 address A\""},
        {" match ipv6 address prefix-list A", ACL_E_RMAP_FORMS, ""},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.line);
        EXPECT_EQ(type(step.line), step.status);
        EXPECT_EQ(aclRTest(), "");
        EXPECT_EQ(told().empty(), step.said[0] == '\0');
        EXPECT_TRUE(said(step.said)) << testing::PrintToString(effects);
    }
    auto ext = clause(SET, 124);
    ext.extCommunity.values[0] = target(0, 1, 1, 9);
    ext.extCommunity.count = 1;
    EXPECT_EQ(add(ext), ACL_OK);  // neither word: meant
    EXPECT_TRUE(said("\" set extcommunity1:1 \""));
    auto counts = [](uint32_t code, uint32_t count) {
        return with(clause(SET, code), [=](auto& c) {
            c.community.count = c.prepend.count = c.extCommunity.count = count;
        });
    };
    EXPECT_EQ(add(counts(111, 1000)), ACL_OK);
    EXPECT_TRUE(said("\" set as-path prepend 0 0 0 0 0 0 0 0 \""));
    auto changed = [](auto change) { return with(clause(MATCH, 137, 1), change); };
    const std::pair<rmapClauseBlock, uint32_t> refused[] = {
        {counts(124, 0x80000001), ACL_E_RMAP_VALUE},
        {counts(105, 0xFFFFFFFF), ACL_E_RMAP_VALUE},
        {counts(111, 0xFFFFFFFF), ACL_E_RMAP_VALUE},
        {counts(111, 0), ACL_E_RMAP_VALUE},
        {clause(MATCH, 1), ACL_E_RMAP_VALUE},
        {clause(CONTINUE, 123, 0xFFFFFFFF), ACL_E_RMAP_CONTINUE},
        {with(clause(CONTINUE, 123), [](auto& c) { c.continueFlag = 1; }), ACL_E_RMAP_CONTINUE},
        // What is no clause: the wrong side, kind or class, or none at all.
        {clause(SET, 1, 0, "A"), ACL_E_RMAP_CLAUSE},
        {changed([](auto& c) { c.kind = RMAP_KIND_LIST; }), ACL_E_RMAP_CLAUSE},
        {clause(SET, 121), ACL_E_RMAP_CLAUSE},
        {clause(77, 1, 0, "A"), ACL_E_RMAP_CLAUSE},
        {clause(MATCH, 999), ACL_E_RMAP_CLAUSE},
        // Clauses stand under the line of their instance or not at all.
        {changed([](auto& c) { c.seq = 0; }), ACL_E_RMAP_SEQ},
        {changed([](auto& c) { c.seq = 15; }), ACL_E_RMAP_NOENTRY},
    };
    for (const auto& [request, answer] : refused) {
        EXPECT_EQ(add(request), answer) << request.code;
        EXPECT_EQ(told(), rows{});
    }
    const auto header = with(clause(0, 0), [](auto& c) { c.header = 1; });
    EXPECT_EQ(del(header), ACL_OK);
    EXPECT_TRUE(said("cfg remove 79/144 M 10"));
    EXPECT_EQ(del(header), ACL_E_RMAP_NOENTRY);
    EXPECT_EQ(add(clause(MATCH, 137, 1)), ACL_E_RMAP_NOENTRY);
    EXPECT_EQ(lines(), rows{"route-map M permit 200"});
    EXPECT_EQ(bgpASPAccessListFind(A), nullptr);
    // The other commands that add and delete; 1022 and 1023 by the operation word.
    configure("route-map M permit 10\n");
    const struct {
        uint32_t add, del, operation;
    } others[] = {{CLI_RMAP_ENTRY, CLI_RMAP_ENTRY, 1},
                  {CLI_RMAP_V6_ENTRY, CLI_RMAP_V6_ENTRY, 1},
                  {1161, 1160, 0},
                  {1188, 1187, 0}};
    for (const auto& other : others) {
        EXPECT_EQ(request(other.add, clause(MATCH, 137, 1)), ACL_OK);
        EXPECT_TRUE(said("\" match tag 1\""));
        EXPECT_EQ(request(other.del, clause(MATCH, 137, 1), other.operation), ACL_OK);
        EXPECT_TRUE(said("no  match tag 1"));
    }
    for (uint32_t code : {CLI_RMAP_ENTRY, CLI_RMAP_V6_ENTRY})
        EXPECT_EQ(request(code, clause(MATCH, 137, 1), 2), ACL_E_SYSTEM);
}

// Whatever comes, the records fit together and the configuration shows what they say.
TEST_F(RouteMap, TheConfigurationFollowsRandomChanges) {
    std::mt19937 random(7);
    auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const rows clauses = clauseLines(), names{"M", "N", "Longer"};
    for (int step = 0; step < 4000; step++) {
        const std::string name = names[pick(3)], seq = std::to_string(1 + pick(4));
        const std::string map = "route-map " + name + (pick(2) != 0 ? " deny " : " permit ") + seq;
        std::string line = clauses[pick(static_cast<uint32_t>(clauses.size()))];
        if (size_t at = line.find(" L"); at != line.npos && pick(2) != 0) line[at + 1] = 'K';
        enter(map);
        const uint32_t what = pick(12);
        (void)type(what < 2    ? map
                   : what == 2 ? "no " + map
                   : what == 3 ? "no route-map " + (pick(6) == 0 ? name : "none")
                   : what < 7  ? "no" + line
                               : line);
        ASSERT_EQ(aclRTest(), "") << step;
        if (step % 10 != 0) continue;
        std::string all;
        for (const std::string& shown : lines()) all += shown + "\n";
        ASSERT_EQ(config(""), all) << step;
    }
}

TEST_F(RouteMap, PrependsFollowTheAsNotationAndLinesThatAreTooLongAreNotWritten) {
    configure("route-map M permit 10\n set as-path prepend 65546 65535\n");
    for (auto [word, line] : {std::pair{1u, " set as-path prepend 1.10 65535 "},
                              {2u, " set as-path prepend 1.10 0.65535 "},
                              {3u, " set as-path prepend 1.10 0.65535 "},
                              {0u, " set as-path prepend 65546 65535 "}}) {
        const uint32_t notation = word;
        ASSERT_EQ(ask(cli<cliWordReq>(13607, "", [=](cliWordReq& r) { r.word = notation; })),
                  ACL_OK);
        EXPECT_TRUE(effects[0].starts_with("send ")) << "answered first: " << effects[0];
        EXPECT_EQ(lines(), (rows{"route-map M permit 10", line}));
    }
    // 33 communities do not fit into a line: the clause counts, its line is logged and left out.
    const auto many = with(clause(SET, 105), [](auto& c) {
        for (uint32_t i = 0; i < RMAP_COMMUNITIES; i++)
            c.community.high[i] = c.community.low[i] = 65535;
        c.community.count = 40;
    });
    const rows before = lines();
    ASSERT_EQ(add(many), ACL_OK);
    EXPECT_TRUE(said("log Configuration is too long to store in Config Manager: returning"));
    EXPECT_FALSE(said("sync"));
    EXPECT_EQ(lines(), before);
    ASSERT_EQ(del(many), ACL_OK);
    EXPECT_EQ(lines(), before);
    // Who types such a line is warned; who takes it back is not.
    std::string typed = " set community";
    for (int i = 0; i < 33; i++) typed += " 64500:" + std::to_string(60000 + i);
    EXPECT_NE(say(typed).find("Warning: "), typed.npos);
    EXPECT_EQ(say("no" + typed), "");
}

}  // namespace
