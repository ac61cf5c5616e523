// What follows from an operator's change of an AS-path or community list, in order.
#include "include/cliMsg.h"
#include "include/routeMapNames.h"
#include "platform/api/zekMem.h"
#include "tests/policy/bgpTest.h"

namespace {

uint32_t add(uint32_t action, std::string_view text, uint32_t option = 0) {
    return bgpAddASPAccessEntry(A, action, {text, option});
}
uint32_t del(uint32_t action, std::string_view text, uint32_t option = 0, uint32_t config = 1) {
    return bgpDelASPAccessEntry(A, action, {text, option}, config);
}
rows textsOf(const bgpList* list) {
    rows out;
    for (const bgpEntry* e = list->head; e != nullptr; e = e->next)
        out.push_back(bgpEntryLine(list->kind, e));
    return out;
}

TEST_F(BgpLists, ConfigurationFollowsTheLifeOfAPathList) {
    bgpList* list = bgpASPAccessListCreate(A, 0, &status);
    EXPECT_EQ(testTake(), (rows{"cfg insert 80/140 A 0/0/0 \"!\"",
                                "cfg insert 80/149 A 0/0/0 \"ip as-path access-list A\"",
                                "sync 10 A \"ip as-path access-list A\""}));
    EXPECT_EQ(bgpASPAccessListCreate(A, 0, &status), list);
    EXPECT_EQ(testTake(), rows{});
    ASSERT_EQ(aspAddTaskClient(APP_RTM, 0, A, 7, {}), 0);

    // The clients hear of an entry before it has a line; the stored text is the one that was typed.
    EXPECT_EQ(add(PERMIT, "(|65000)"), 0u);
    EXPECT_EQ(testTake(),
              (rows{"swp 5 14464 length 292", "cfg insert 80/149 A 1/3/ff \" permit (|65000) \"",
                    "sync 10 A \" permit (|65000) \""}));
    EXPECT_EQ(add(BGP_DENY, "_1_"), 0u);
    EXPECT_EQ(add(BGP_DENY, "_2_"), 0u);
    testTake();
    EXPECT_EQ(del(BGP_DENY, "_1_"), 0u);
    EXPECT_EQ(testTake(), (rows{"sync 10 A \"no  deny _1_ \"", "cfg exact 80/149 A 1/4/ff",
                                "swp 5 14464 length 292"}));
    EXPECT_EQ(textsOf(list), (rows{" permit (|65000) ", " deny _2_ "}));
    EXPECT_EQ(list->tail->id, 3u);

    // Deleted under its client: every entry is told, and an empty placeholder stays.
    EXPECT_EQ(bgpASPAccessListDelete(A), 0u);
    EXPECT_EQ(testTake(),
              (rows{"swp 5 14464 length 292", "swp 5 14464 length 292", "cfg remove 80/140 A",
                    "sync 10 A \"no ip as-path access-list A\""}));
    EXPECT_EQ(list->placeholder, 1u);
    EXPECT_EQ(list->lastEntryId, 0u);
    EXPECT_EQ(testCfgLines(), rows{});
    EXPECT_EQ(add(PERMIT, "_1_"), uint32_t{ACL_E_ASPATH_NOLIST});
    EXPECT_EQ(bgpASPAccessListCreate(A, 0, &status), list);
    EXPECT_EQ(add(PERMIT, "_1_"), 0u);
    EXPECT_EQ(testCfgLines(), (rows{"!", "ip as-path access-list A", " permit _1_ "}));
}

TEST_F(BgpLists, CommunityListsWriteTheirOwnSections) {
    ASSERT_EQ(commAddTaskClient(APP_RTM, 0, A, 0), 0);
    bgpCommAccessListCreate(A, 0, &status);
    bgpExtCommListCreate(A, 0, &status);
    EXPECT_EQ(testTake(),
              (rows{"cfg insert 81/140 A 0/0/0 \"!\"",
                    "cfg insert 81/149 A 0/0/0 \"ip community-list A\"",
                    "sync 11 A \"ip community-list A\"", "cfg insert 82/140 A 0/0/0 \"!\"",
                    "cfg insert 82/149 A 0/0/0 \"ip extcommunity-list A\"",
                    "sync 35 A \"ip extcommunity-list A\""}));
    const commEntryBlock values = communities(PERMIT, {65000u << 16 | 1});
    const extCommEntryBlock goal = targets(BGP_DENY, {target(0, 65000, 1)});
    EXPECT_EQ(bgpAddCommAccessEntry(A, values), 0u);
    EXPECT_EQ(bgpAddExtCommListEntry(A, goal), 0u);
    EXPECT_EQ(
        testTake(),
        (rows{"swp 5 14465 length 292", "cfg insert 81/149 A 1/3/ff \" permit 65000:1\"",
              "sync 11 A \" permit 65000:1\"", "cfg insert 82/149 A 1/3/ff \" deny rt 65000:1 \"",
              "sync 35 A \" deny rt 65000:1 \""}));
    EXPECT_EQ(bgpDelCommAccessEntry(A, values), 0u);
    EXPECT_EQ(bgpDelExtCommListEntry(A, goal), 0u);
    EXPECT_EQ(testTake(), (rows{"sync 11 A \"no  permit 65000:1\"", "cfg exact 81/149 A 1/3/ff",
                                "swp 5 14465 length 292", "sync 35 A \"no  deny rt 65000:1 \"",
                                "cfg exact 82/149 A 1/3/ff"}));
}

TEST_F(BgpLists, RefusalsSayWhyAndLeaveNoTrace) {
    bgpList* paths = makePaths();
    makeCommunities();
    makeTargets();
    const listName no = listNameMake("B");
    const commEntryBlock values = communities(PERMIT, {1, 2});
    const extCommEntryBlock goal = targets(PERMIT, {target(0, 1, 1)});
    auto with = [](auto block, auto change) {
        change(block);
        return block;
    };
    ASSERT_EQ(add(PERMIT, "_65000_"), 0u);
    ASSERT_EQ(add(BGP_DENY, "_65000_"), 0u) << "another action is another entry";
    ASSERT_EQ(add(PERMIT, "_65000_", 1), 0u) << "so is another option word";
    ASSERT_EQ(bgpAddCommAccessEntry(A, values), 0u);
    ASSERT_EQ(bgpAddExtCommListEntry(A, goal), 0u);
    ASSERT_EQ(bgpAddCommAccessEntry(A, communityText(PERMIT, "1")), 0u);
    testTake();
    const std::string longest(460, '1');
    struct {
        const char* what;
        uint32_t status, expected;
    } cases[] = {
        {"no path list", bgpAddASPAccessEntry(no, 0, {"1"}), ACL_E_ASPATH_NOLIST},
        {"no path list", bgpDelASPAccessEntry(no, 0, {"1"}, 1), ACL_E_ASPATH_NOLIST},
        {"no path list", bgpASPAccessListDelete(no), ACL_E_ASPATH_NOLIST},
        {"the same path entry", add(PERMIT, "_65000_"), ACL_E_ASPATH_EXISTS},
        {"no such path entry", del(BGP_DENY, "_65000_", 1), ACL_E_ASPATH_NOENTRY},
        {"no such path entry", del(PERMIT, "_6500"), ACL_E_ASPATH_NOENTRY},
        {"not closed", add(PERMIT, "(1"), ACL_E_EXPRESSION},
        {"empty", add(PERMIT, ""), ACL_E_EXPRESSION},
        {"not printable", add(PERMIT, "1\n2"), ACL_E_EXPRESSION},
        {"too long", add(PERMIT, longest), ACL_E_EXPRESSION},
        {"too long once rewritten", add(PERMIT, longest.substr(4) + "(|)"), ACL_E_EXPRESSION},
        {"no community list", bgpAddCommAccessEntry(no, values), ACL_E_COMM_NOLIST},
        {"no community list", bgpDelCommAccessEntry(no, values), ACL_E_COMM_NOLIST},
        {"no community list", bgpCommAccessListDelete(no), ACL_E_COMM_NOLIST},
        {"the same values", bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.handle = 99; })),
         ACL_E_COMM_EXISTS},
        {"the same expression",
         bgpAddCommAccessEntry(
             A, with(communityText(PERMIT, "1"), [](auto& b) { b.text[2] = b.text[695] = 'x'; })),
         ACL_E_COMM_EXISTS},
        {"no such values", bgpDelCommAccessEntry(A, communities(PERMIT, {2, 1})),
         ACL_E_COMM_NOENTRY},
        {"bad expression", bgpAddCommAccessEntry(A, communityText(PERMIT, "[")), ACL_E_EXPRESSION},
        {"negative count",
         bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.count = 0xFFFFFFFF; })),
         ACL_E_SYSTEM},
        {"unknown kind", bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.kind = 3; })),
         ACL_E_SYSTEM},
        {"no extcommunity list", bgpAddExtCommListEntry(no, goal), ACL_E_EXTCOMM_NOLIST},
        {"no extcommunity list", bgpDelExtCommListEntry(no, goal), ACL_E_EXTCOMM_NOLIST},
        {"no extcommunity list", bgpExtCommListDelete(no), ACL_E_EXTCOMM_NOLIST},
        {"the same targets", bgpAddExtCommListEntry(A, goal), ACL_E_COMM_EXISTS},
        {"no such targets", bgpDelExtCommListEntry(A, targets(BGP_DENY, {target(0, 1, 1)})),
         ACL_E_EXTCOMM_NOENTRY},
        {"bad expression", bgpAddExtCommListEntry(A, targetText(PERMIT, "*")), ACL_E_EXPRESSION},
        {"unknown selector",
         bgpAddExtCommListEntry(A, with(goal, [](auto& b) { b.body.selector = 9; })), ACL_E_SYSTEM},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.status, c.expected);
        EXPECT_NE(aclStatusFind(c.expected), nullptr);
    }
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(textsOf(paths), (rows{" permit _65000_ ", " deny _65000_ ", " permit _65000_ "}));
    // A count above the limit is the limit.
    EXPECT_EQ(bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.count = 500; })), 0u);
    EXPECT_EQ(bgpEntryLine(BGP_COMM, bgpCommAccessEntFindIndex(A, 3)),
              " permit 0:1 0:2 0:0 0:0 0:0 0:0 0:0 0:0 0:0");
}

TEST_F(BgpLists, WithoutMemoryNothingChanges) {
    uint64_t before = testBlocksInUse();
    for (uint64_t nth = 1; nth <= 3; nth++) {
        testFail(TEST_BLOCK, nth, 1);
        if (bgpExtCommListCreate(A, 0, &status) != nullptr) break;
        EXPECT_EQ(status, uint32_t{ACL_E_EXTCOMM_MEMORY});
        EXPECT_EQ(testBlocksInUse(), before);
    }
    testFailNothing();
    testFail(TEST_TREE);
    EXPECT_EQ(bgpASPAccessListCreate(A, 0, &status), nullptr);
    EXPECT_EQ(status, uint32_t{ACL_E_LIST_MEMORY});
    testFailNothing();
    // A list that cannot take its first entry goes again, and its lines with it.
    makePaths();
    testFail(TEST_BLOCK);
    EXPECT_EQ(add(PERMIT, "1"), uint32_t{ACL_E_ASPATH_MEMORY});
    testFailNothing();
    EXPECT_EQ(bgpASPAccessListFind(A), nullptr);
    bgpList* list = makePaths();
    ASSERT_EQ(add(PERMIT, "1"), 0u);
    testFail(TEST_INSERT);
    EXPECT_EQ(add(PERMIT, "2"), uint32_t{ACL_E_ASPATH_MEMORY});
    testFailNothing();
    EXPECT_EQ(textsOf(list), rows{" permit 1 "});
    makeCommunities();
    testFail(TEST_BLOCK);
    EXPECT_EQ(bgpAddCommAccessEntry(A, communities(0, {1})), uint32_t{ACL_E_COMM_MEMORY});
    testFailNothing();
    EXPECT_EQ(bgpCommAccessListFind(A), nullptr);
}

TEST_F(BgpLists, LinesThatAreTooLongAreKeptWithoutTheirText) {
    bgpList* list = makePaths();
    // A comment stands in the line's place; the feed hears nothing.
    auto expectUnshown = [](const std::string& place, const std::string& start) {
        const rows told = testTake();
        ASSERT_EQ(told.size(), 2u);
        EXPECT_EQ(told[0],
                  "log Configuration is too long to store in Config Manager: returning\r\n");
        EXPECT_TRUE(told[1].starts_with("cfg insert " + place + " \"! line not shown: " + start))
            << told[1];
    };
    EXPECT_EQ(add(PERMIT, std::string(236, '1')), 0u);
    EXPECT_EQ(testTake().size(), 2u);
    EXPECT_EQ(add(PERMIT, std::string(237, '1')), 0u);
    expectUnshown("80/149 A 1/4/ff", "permit 1111");
    EXPECT_EQ(add(BGP_DENY, std::string(238, '1')), 0u);
    EXPECT_EQ(testTake().size(), 2u);
    EXPECT_EQ(add(BGP_DENY, std::string(240, '1')), 0u);
    expectUnshown("80/149 A 1/6/ff", "deny 1111");
    EXPECT_EQ(textsOf(list).size(), 4u);
    // In a show it is there, longer than a page's usual lines or not.
    for (int i = 0; i < 50; i++)
        ASSERT_EQ(add(PERMIT, std::string(440, '1') + std::to_string(i)), 0u);
    uint32_t resume = 0, size = 0;
    void* buffer = nullptr;
    EXPECT_EQ(aclShowASPathList(A, &resume, &buffer, &size), 0u);
    EXPECT_GT(size, 16000u);
    EXPECT_EQ(resume, 50u);
    EXPECT_NE(textOf(buffer).find(std::string(440, '1') + "45\r\n"), std::string::npos);
}

TEST_F(BgpLists, EntriesHaveALineAndAShow) {
    makeCommunities();
    makeTargets();
    commEntryBlock flags = communities(BGP_DENY, {65000u << 16 | 5, 7});
    flags.number = 0xFFFFFFFE;
    flags.localAs = flags.noAdvertise = flags.noExport = 1;
    commEntryBlock wide = communities(PERMIT, {});
    wide.count = 1;
    wide.high[0] = 0x80000000;
    struct {
        std::string line, shown;  // shown empty: as the line
        uint32_t status;
    } communityRows[] =
        {
            {" deny -2 65000:5 0:7 no-export no-advertise local-AS",
             " deny 65000:5 0:7 no-export no-advertise local-AS", bgpAddCommAccessEntry(A, flags)},
            {" permit -2147483648:0", "", bgpAddCommAccessEntry(A, wide)},
            {" permit", "", bgpAddCommAccessEntry(A, communities(PERMIT, {}))},
            {" deny regexp _65000:.*", "", bgpAddCommAccessEntry(A, communityText(1, "_65000:.*"))},
        },
      targetRows[] = {
          {" permit rt 65000:4294967295 192.0.2.1:7 as4 4200000000:9 ", "",
           bgpAddExtCommListEntry(
               A, targets(PERMIT, {target(0, 65000, 0xFFFFFFFF), target(1, 0xC0000201, 7),
                                   target(2, 4200000000, 9)}))},
          {" deny soo 1:2 non-trans non-trans ", "",
           bgpAddExtCommListEntry(
               A,
               targets(BGP_DENY, {target(0x40, 1, 2, 3), target(0x43, 1, 2, 3), target(3, 1, 2, 3)},
                       EXTCOMM_SOO))},
          {" permit regexp rt 65.*", "", bgpAddExtCommListEntry(A, targetText(0, "rt 65.*"))},
      };
    auto check = [&](const bgpList* list, const auto& expected, const char* head) {
        rows lines;
        std::string shown = head;
        for (const auto& row : expected) {
            EXPECT_EQ(row.status, 0u);
            lines.push_back(row.line);
            shown += (row.shown.empty() ? row.line : row.shown) + "\r\n";
        }
        EXPECT_EQ(textsOf(list), lines);
        void* buffer = nullptr;
        uint32_t size = 0;
        EXPECT_EQ(list->kind == BGP_COMM ? aclShowIpCommList(A, &buffer, &size)
                                         : aclShowIpExtCommList(A, &buffer, &size),
                  0u);
        EXPECT_EQ(size, SHOW_TEXT_OFFSET + shown.size() + 1);
        EXPECT_EQ(textOf(buffer), shown);
    };
    check(bgpCommAccessListFind(A), communityRows, "ip community-list A\r\n");
    check(bgpExtCommListFind(A), targetRows, "ip extcommunity-list A\r\n");
}

TEST_F(BgpLists, ShowsComeInPagesAndPassPlaceholdersOver) {
    makePaths();
    for (int i = 0; i < 120; i++)
        ASSERT_EQ(add(static_cast<uint32_t>(i % 2), std::to_string(i)), 0u);
    bgpASPAccessListCreate(listNameMake("B"), 1, &status);
    bgpASPAccessListCreate(listNameMake("C"), 0, &status);
    struct {
        const char *what, *cursor;
        uint32_t resume;
        uint32_t status, next;
        const char *front, *back, *name;
    } cases[] = {
        {"first page", "", 0, 0, 50, "ip as-path access-list A\r\n permit 0\r\n deny 1\r\n",
         " deny 49\r\n", "A"},
        {"second page", "A", 50, 0, 100, " permit 50\r\n", " deny 99\r\n", "A"},
        {"last page", "A", 100, 0, 0, " permit 100\r\n", " deny 119\r\n", "A"},
        {"behind the end", "A", 121, 0, 0, "", "", "A"},
        {"the next list", "A", 0, 0, 0, "ip as-path access-list C\r\n", "C\r\n", "C"},
        {"a placeholder's page", "B", 50, 0, 0, "ip as-path access-list C\r\n", "C\r\n", "C"},
        {"the end", "C", 0, ACL_E_ASPATH_NOLIST, 0, "", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        void* buffer = nullptr;
        uint32_t size = 0, resume = c.resume;
        EXPECT_EQ(aclShowASPathListAll(listNameMake(c.cursor), &resume, &buffer, &size), c.status);
        EXPECT_EQ(resume, c.next);
        if (c.status != 0) continue;
        const auto* header = static_cast<const showReplyHdr*>(buffer);
        EXPECT_EQ(header->marker, c.next);
        EXPECT_EQ(listNameView(header->name), c.name);
        EXPECT_EQ(size, 16000u);
        std::string text = textOf(buffer);
        EXPECT_TRUE(text.starts_with(c.front)) << text;
        EXPECT_TRUE(text.ends_with(c.back)) << text;
    }
    EXPECT_EQ(bgpASPAccessListFindPrev(listNameMake("C")), bgpASPAccessListFind(listNameMake("B")));
    for (const char* none : {"A", "absent"})
        EXPECT_EQ(bgpASPAccessListFindPrev(listNameMake(none)), nullptr);
    // The place of a page is its number of entries, whatever was deleted before it.
    ASSERT_EQ(del(0, "10"), 0u);
    std::string_view text;
    EXPECT_NE(bgpASPAccessEntFindIndex(A, 51, &text), nullptr);
    EXPECT_EQ(text, "51");
    EXPECT_EQ(bgpASPAccessEntFindIndex(A, 0, &text), nullptr);
    EXPECT_EQ(bgpASPAccessEntFindIndex(A, 120, &text), nullptr);

    void* buffer = nullptr;
    uint32_t size = 0, resume = 0;
    EXPECT_EQ(aclShowASPathList(A, nullptr, &buffer, &size), uint32_t{ACL_E_NOENTRY});
    EXPECT_EQ(aclShowASPathList(listNameMake("B"), &resume, &buffer, &size),
              uint32_t{ACL_E_PLACEHOLDER});
    EXPECT_EQ(aclShowIpCommList(A, &buffer, &size), uint32_t{ACL_E_COMM_NOLIST});
    EXPECT_EQ(aclShowIpExtCommListAll(listName{}, &buffer, &size), uint32_t{ACL_E_EXTCOMM_NOLIST});
    testFail(TEST_BUFFER);
    EXPECT_EQ(aclShowASPathList(A, &resume, &buffer, &size), uint32_t{ACL_E_COMM_MEMORY});
    EXPECT_EQ(buffer, nullptr);
}

// A clause keeps its list, and with it a valid pointer, through every order of changes.
TEST_F(BgpLists, ClausesHoldTheListsThatTheyName) {
    const listName map = listNameMake("M");
    struct {
        const char* what;
        uint16_t cls;
        uint32_t code;
        bool isPath;
        bgpList* (*find)(const listName& name);  // null: the clause is none of ours
        bgpList* (*create)(const listName& name, uint32_t placeholder, uint32_t* status);
        uint32_t (*remove)(const listName& name);
    } cases[] = {
        {"paths", RTMAP_MS_MATCH, RTMAP_MATCH_ASP, true, bgpASPAccessListFind,
         bgpASPAccessListCreate, bgpASPAccessListDelete},
        {"communities", RTMAP_MS_MATCH, RTMAP_MATCH_COMM, false, bgpCommAccessListFind,
         bgpCommAccessListCreate, bgpCommAccessListDelete},
        {"exact", RTMAP_MS_MATCH, RTMAP_MATCH_COMM_EXACT, false, bgpCommAccessListFind,
         bgpCommAccessListCreate, bgpCommAccessListDelete},
        {"targets", RTMAP_MS_MATCH, RTMAP_MATCH_EXT_COMM, false, bgpExtCommListFind,
         bgpExtCommListCreate, bgpExtCommListDelete},
        {"other class", RTMAP_MS_SET, RTMAP_MATCH_ASP, true, nullptr, nullptr, nullptr},
        {"other code", RTMAP_MS_MATCH, RTMAP_MATCH_ACC, false, nullptr, nullptr, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto* addClient = c.isPath ? aspAddRmapClient : commAddRmapClient;
        auto* delClient = c.isPath ? aspDelRmapClient : commDelRmapClient;
        void* slot = nullptr;
        const rmapMatch match{c.cls, c.code, &slot};
        EXPECT_EQ(addClient(match, map, A), 0);
        if (c.find == nullptr) {
            EXPECT_EQ(slot, nullptr);
            continue;
        }
        bgpList* list = c.find(A);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(slot, list);
        EXPECT_EQ(list->placeholder, 1u);
        EXPECT_EQ(addClient(match, map, A), 0) << "a second clause of the same map";
        EXPECT_EQ(c.create(A, 0, &status), list);
        EXPECT_EQ(c.remove(A), 0u);
        EXPECT_EQ(c.find(A), list);
        EXPECT_EQ(delClient(match, map, A), 0);
        EXPECT_EQ(c.find(A), list);
        EXPECT_EQ(delClient(match, map, A), 0);
        EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(c.find(A), nullptr) << "nobody is left to keep the placeholder";
        EXPECT_EQ(delClient(match, map, A), 0) << "no list: nothing to take back";
    }
}

TEST_F(BgpLists, TasksRegisterOnceAndBgpForEachPair) {
    const clientPairValue one{1, 1}, two{2, 2};
    EXPECT_EQ(aspAddTaskClient(APP_RTM, 0, A, 0, {&one, 1}), 0);
    EXPECT_EQ(aspAddTaskClient(APP_RTM, 0, A, 0, {&two, 1}), 0);
    EXPECT_EQ(aspAddTaskClient(APP_BGP, 0, A, 9, {&one, 1}), 0);
    EXPECT_EQ(aspAddTaskClient(APP_BGP, 0, A, 9, {&two, 1}), 0);
    bgpList* list = bgpASPAccessListFind(A);
    EXPECT_EQ(clientFindTask(list, APP_RTM, 0)->task.pairCount, 0u);
    EXPECT_EQ(clientFindTask(list, APP_BGP, 0)->task.pairCount, 2u);
    EXPECT_EQ(clientFindTask(list, APP_BGP, 0)->value, 9u);
    EXPECT_EQ(aspDelTaskClient(APP_BGP, 0, A, {&one, 1}), 0);
    EXPECT_EQ(aspDelTaskClient(APP_BGP, 1, A, {}), -1) << "not registered";
    EXPECT_EQ(aspDelTaskClient(APP_RTM, 0, A, {}), 0);
    EXPECT_EQ(aspDelTaskClient(APP_BGP, 0, A, {&two, 1}), 0);
    EXPECT_EQ(bgpASPAccessListFind(A), nullptr);
    testTake();
    testFail(TEST_BLOCK);
    EXPECT_EQ(commAddTaskClient(APP_RTM, 0, A, 0), -1);
    testFailNothing();
    EXPECT_TRUE(testTake().back().starts_with("syserr 0x5000c Error: Unable to create Community"));
    // A trigger that cannot be sent is in the event log, and the change stands.
    bgpList* paths = makePaths();
    ASSERT_EQ(aspAddTaskClient(APP_RTM, 0, A, 0, {}), 0);
    testHost.addresses.clear();
    EXPECT_EQ(add(PERMIT, "1"), 0u);
    EXPECT_NE(paths->head, nullptr);
    bool logged = false;
    for (const std::string& row : testTake())
        logged |= row == "log Error in sending Acl Trigger \n";
    EXPECT_TRUE(logged);
}

}  // namespace
