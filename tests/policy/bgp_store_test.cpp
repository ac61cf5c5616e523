// What follows from an operator's change of an AS-path or community list, in order.
#include "tests/policy/policyTest.h"

namespace {

typedef PolicyTest BgpLists;

uint32_t add(uint32_t action, std::string_view text, uint32_t option = 0) {
    return bgpAddASPAccessEntry(A, action, {text, option});
}
rows textsOf(const bgpList* list) {
    rows out;
    for (const bgpEntry* e = list->head; e != nullptr; e = e->next)
        out.push_back(bgpEntryLine(list->kind, e));
    return out;
}
auto with(auto block, auto change) {
    change(block);
    return block;
}

// The clients hear of an entry before it has a line, and of its end after its line has gone.
TEST_F(BgpLists, ConfigurationAndClientsFollowTheLifeOfAList) {
    for (const bgpKind& k : bgpListKinds) {
        SCOPED_TRACE(k.head);
        const std::string s = k.section, header = std::string("\"") + k.head + "\"";
        const std::string sync = std::string("sync ") + k.sync + " A ";
        rows told;
        auto trigger = [&] {
            if (k.trigger[0] != '\0') told.push_back(k.trigger);
        };
        auto expectTold = [&] {
            EXPECT_EQ(testTake(), told);
            told.clear();
        };
        bgpList* list = k.create(A, 0, &status);
        told = {"cfg insert " + s + "/140 A 0/0/0 \"!\"",
                "cfg insert " + s + "/149 A 0/0/0 " + header, sync + header};
        expectTold();
        EXPECT_EQ(k.create(A, 0, &status), list);
        // Lists of extended communities have route maps for clients only.
        ASSERT_EQ(aspAddTaskClient(APP_RTM, 0, A, 7, {}), 0);
        ASSERT_EQ(commAddTaskClient(APP_RTM, 0, A, 7), 0);
        ASSERT_EQ(commAddRmapClient({MATCH, RTMAP_MATCH_EXT_COMM, nullptr}, M, A), 0);
        expectTold();
        for (uint32_t n : {0u, 1u, 2u}) {
            EXPECT_EQ(k.add(A, n), 0u);
            trigger();
            told.push_back("cfg insert " + s + "/149 A 1/" + std::to_string(n + 3) + "/ff \"" +
                           k.line(n) + "\"");
            told.push_back(sync + "\"" + k.line(n) + "\"");
            expectTold();
        }
        EXPECT_EQ(k.del(A, 1), 0u);
        told = {sync + "\"no " + k.line(1) + "\"", "cfg exact " + s + "/149 A 1/4/ff"};
        trigger();
        expectTold();
        EXPECT_EQ(textsOf(list), (rows{k.line(0), k.line(2)}));

        // Deleted under its client: every entry is told, and an empty placeholder stays.
        EXPECT_EQ(k.remove(A), 0u);
        trigger();
        trigger();
        told.push_back("cfg remove " + s + "/140 A");
        told.push_back(sync + "\"no " + k.head + "\"");
        expectTold();
        EXPECT_EQ(list->placeholder, 1u);
        EXPECT_EQ(testCfgLines(), rows{});
        EXPECT_EQ(k.add(A, 0), k.noList);
        EXPECT_EQ(k.create(A, 0, &status), list);
        EXPECT_EQ(k.add(A, 0), 0u);
        EXPECT_EQ(list->tail->id, 1u);
        EXPECT_EQ(testCfgLines(), (rows{"!", k.head, k.line(0)}));
        forgetLists();
    }
}

TEST_F(BgpLists, RefusalsSayWhyAndLeaveNoTrace) {
    for (const bgpKind& k : bgpListKinds) {
        SCOPED_TRACE(k.head);
        bgpList* list = k.create(A, 0, &status);
        ASSERT_EQ(k.add(A, 0), 0u);
        testTake();
        EXPECT_EQ(k.create(listName{}, 0, &status), nullptr);
        for (uint32_t refused : {status, k.add(B, 0), k.del(B, 0), k.remove(B)})
            EXPECT_EQ(refused, k.noList);
        for (uint32_t refused : {k.noList, k.exists, k.noEntry})
            EXPECT_NE(aclStatusFind(refused), nullptr);
        EXPECT_EQ(k.add(A, 0), k.exists);
        EXPECT_EQ(k.del(A, 1), k.noEntry);
        EXPECT_EQ(testTake(), rows{});
        EXPECT_EQ(textsOf(list), rows{k.line(0)});
        // An entry that finds no memory: a list that is left without any goes, too.
        testFail(TEST_BLOCK);
        EXPECT_EQ(k.add(A, 2), k.entryMemory);
        testFailNothing();
        EXPECT_EQ(k.find(A), list);
        ASSERT_EQ(k.del(A, 0), 0u);
        testFail(TEST_BLOCK);
        EXPECT_EQ(k.add(A, 2), k.entryMemory);
        testFailNothing();
        EXPECT_EQ(k.find(A), nullptr);
        EXPECT_EQ(testCfgLines(), rows{});
    }
    for (const bgpKind& k : bgpListKinds) k.create(A, 0, &status);
    const commEntryBlock values = communities(PERMIT, {1, 2});
    const extCommEntryBlock goal = targets(PERMIT, {target(0, 1, 1)});
    const std::string longest(460, '1');
    struct {
        const char* what;
        uint32_t status, expected;
    } cases[] = {
        {"a path", add(PERMIT, "_65000_"), ACL_OK},
        {"another action is another entry", add(DENY, "_65000_"), ACL_OK},
        {"so is another option word", add(PERMIT, "_65000_", 1), ACL_OK},
        {"the same path", add(PERMIT, "_65000_"), ACL_E_ASPATH_EXISTS},
        {"only its option differs", bgpDelASPAccessEntry(A, DENY, {"_65000_", 1}, 1),
         ACL_E_ASPATH_NOENTRY},
        {"the text stays as typed", add(PERMIT, "(|1)"), ACL_OK},
        {"not closed", add(PERMIT, "(1"), ACL_E_EXPRESSION},
        {"empty", add(PERMIT, ""), ACL_E_EXPRESSION},
        {"not printable", add(PERMIT, "1\n2"), ACL_E_EXPRESSION},
        {"too long", add(PERMIT, longest), ACL_E_EXPRESSION},
        {"too long once rewritten", add(PERMIT, longest.substr(4) + "(|)"), ACL_E_EXPRESSION},
        {"values", bgpAddCommAccessEntry(A, values), ACL_OK},
        {"the handle does not count",
         bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.handle = 99; })), ACL_E_COMM_EXISTS},
        {"an expression", bgpAddCommAccessEntry(A, communityText(PERMIT, "1")), ACL_OK},
        {"nor what stands behind a text",
         bgpAddCommAccessEntry(
             A, with(communityText(PERMIT, "1"), [](auto& b) { b.text[2] = b.text[695] = 'x'; })),
         ACL_E_COMM_EXISTS},
        {"bad expression", bgpAddCommAccessEntry(A, communityText(PERMIT, "[")), ACL_E_EXPRESSION},
        {"negative count",
         bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.count = 0xFFFFFFFF; })),
         ACL_E_SYSTEM},
        {"a count above the limit is the limit",
         bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.count = 500; })), ACL_OK},
        {"unknown kind", bgpAddCommAccessEntry(A, with(values, [](auto& b) { b.kind = 3; })),
         ACL_E_SYSTEM},
        {"bad expression", bgpAddExtCommListEntry(A, targetText(PERMIT, "*")), ACL_E_EXPRESSION},
        {"unknown selector",
         bgpAddExtCommListEntry(A, with(goal, [](auto& b) { b.body.selector = 9; })), ACL_E_SYSTEM},
    };
    for (const auto& c : cases) EXPECT_EQ(c.status, c.expected) << c.what;
    EXPECT_EQ(textsOf(bgpASPAccessListFind(A)),
              (rows{" permit _65000_ ", " deny _65000_ ", " permit _65000_ ", " permit (|1) "}));
    EXPECT_EQ(textsOf(bgpCommAccessListFind(A)),
              (rows{" permit 0:1 0:2", " permit regexp 1",
                    " permit 0:1 0:2 0:0 0:0 0:0 0:0 0:0 0:0 0:0"}));
    EXPECT_EQ(textsOf(bgpExtCommListFind(A)), rows{});
}

TEST_F(BgpLists, LinesThatAreTooLongAreKeptWithoutTheirText) {
    bgpASPAccessListCreate(A, 0, &status);
    testTake();
    struct {
        uint32_t action;
        size_t length;
        const char* comment;  // in the line's place; the feed hears nothing then
    } cases[] = {{PERMIT, 236, nullptr},
                 {PERMIT, 237, "cfg insert 80/149 A 1/4/ff \"! line not shown: permit 1111"},
                 {DENY, 238, nullptr},
                 {DENY, 240, "cfg insert 80/149 A 1/6/ff \"! line not shown: deny 1111"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.length);
        EXPECT_EQ(add(c.action, std::string(c.length, '1')), 0u);
        const rows told = testTake();
        ASSERT_EQ(told.size(), 2u);
        EXPECT_EQ(
            told[0] == "log Configuration is too long to store in Config Manager: returning\r\n",
            c.comment != nullptr);
        EXPECT_TRUE(c.comment == nullptr || told[1].starts_with(c.comment)) << told[1];
    }
    // In a show it is there, longer than a page's usual lines or not.
    for (int i = 0; i < 50; i++)
        ASSERT_EQ(add(PERMIT, std::string(440, '1') + std::to_string(i)), 0u);
    uint32_t resume = 0;
    const std::string text = shown(
        [&](void** buffer, uint32_t* size) { return aclShowASPathList(A, &resume, buffer, size); });
    EXPECT_GT(text.size(), 16000u);
    EXPECT_EQ(resume, 50u);
    EXPECT_NE(text.find(std::string(440, '1') + "45\r\n"), std::string::npos);
}

// Numbers are signed, other subtypes have one word: meant.
TEST_F(BgpLists, EntriesHaveALineAndAShow) {
    bgpCommAccessListCreate(A, 0, &status);
    bgpExtCommListCreate(A, 0, &status);
    commEntryBlock block = communities(DENY, {65000u << 16 | 5, 7});
    block.number = 0xFFFFFFFE;
    block.localAs = block.noAdvertise = block.noExport = 1;
    EXPECT_EQ(bgpAddCommAccessEntry(A, block), 0u);
    block = communities(PERMIT, {0});
    block.high[0] = 0x80000000;
    EXPECT_EQ(bgpAddCommAccessEntry(A, block), 0u);
    EXPECT_EQ(bgpAddCommAccessEntry(A, communities(PERMIT, {})), 0u);
    EXPECT_EQ(textsOf(bgpCommAccessListFind(A)),
              (rows{" deny -2 65000:5 0:7 no-export no-advertise local-AS", " permit -2147483648:0",
                    " permit"}));
    // A show leaves the number out: meant.
    EXPECT_EQ(shown([](void** b, uint32_t* n) { return aclShowIpCommList(A, b, n); }),
              "ip community-list A\r\n deny 65000:5 0:7 no-export no-advertise local-AS\r\n"
              " permit -2147483648:0\r\n permit\r\n");
    EXPECT_EQ(bgpAddExtCommListEntry(
                  A, targets(DENY,
                             {target(0x40, 1, 2, 3), target(2, 4200000000, 9),
                              target(0x43, 1, 2, 3), target(3, 1, 2, 3), target(1, 0xC0000201, 7)},
                             EXTCOMM_SOO)),
              0u);
    EXPECT_EQ(shown([](void** b, uint32_t* n) { return aclShowIpExtCommList(A, b, n); }),
              "ip extcommunity-list A\r\n"
              " deny soo 1:2 non-trans as4 4200000000:9 non-trans 192.0.2.1:7 \r\n");
}

TEST_F(BgpLists, ShowsComeInPagesAndPassPlaceholdersOver) {
    bgpASPAccessListCreate(A, 0, &status);
    for (uint32_t i = 0; i < 120; i++) ASSERT_EQ(add(i % 2, std::to_string(i)), 0u);
    bgpASPAccessListCreate(B, 1, &status);
    bgpASPAccessListCreate(listNameMake("C"), 0, &status);
    struct {
        const char *what, *cursor;
        uint32_t resume, next;
        const char *front, *back, *name;
    } cases[] = {
        {"first page", "", 0, 50, "ip as-path access-list A\r\n permit 0\r\n deny 1\r\n",
         " deny 49\r\n", "A"},
        {"second page", "A", 50, 100, " permit 50\r\n", " deny 99\r\n", "A"},
        {"last page", "A", 100, 0, " permit 100\r\n", " deny 119\r\n", "A"},
        {"behind the end", "A", 121, 0, "", "", "A"},
        {"the next list", "A", 0, 0, "ip as-path access-list C\r\n", "C\r\n", "C"},
        {"a placeholder's page", "B", 50, 0, "ip as-path access-list C\r\n", "C\r\n", "C"},
        {"the end", "C", 0, 0, "status 17", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        uint32_t resume = c.resume;
        const std::string text = shown([&](void** buffer, uint32_t* size) {
            const uint32_t refused =
                aclShowASPathListAll(listNameMake(c.cursor), &resume, buffer, size);
            if (refused != 0) return refused;
            const auto* header = static_cast<const showReplyHdr*>(*buffer);
            EXPECT_EQ(header->marker, c.next);
            EXPECT_EQ(listNameView(header->name), c.name);
            EXPECT_EQ(*size, 16000u);
            return refused;
        });
        EXPECT_EQ(resume, c.next);
        EXPECT_TRUE(text.starts_with(c.front) && text.ends_with(c.back)) << text;
    }
    EXPECT_EQ(bgpASPAccessListFindPrev(listNameMake("C")), bgpASPAccessListFind(B));
    for (const char* none : {"A", "absent"})
        EXPECT_EQ(bgpASPAccessListFindPrev(listNameMake(none)), nullptr);
    // The place of a page is its number of entries, whatever was deleted before it.
    ASSERT_EQ(bgpDelASPAccessEntry(A, PERMIT, {"10"}, 1), 0u);
    std::string_view text;
    EXPECT_NE(bgpASPAccessEntFindIndex(A, 51, &text), nullptr);
    EXPECT_EQ(text, "51");
    for (uint32_t none : {0u, 120u}) EXPECT_EQ(bgpASPAccessEntFindIndex(A, none, &text), nullptr);

    auto page = [](const listName& name, uint32_t* resume) {
        return shown([&](void** buffer, uint32_t* size) {
            return aclShowASPathList(name, resume, buffer, size);
        });
    };
    uint32_t resume = 0;
    EXPECT_EQ(page(A, nullptr), "status 5");
    EXPECT_EQ(page(B, &resume), "status 52");
    testFail(TEST_BUFFER);
    EXPECT_EQ(page(A, &resume), "status 24");
}

}  // namespace
