// AS-path and community lists: what makes two entries one, what is no entry, texts and pages.
#include "tests/policy/policyTest.h"

namespace {

typedef PolicyTest BgpLists;

uint32_t path(uint32_t action, std::string_view expression, uint32_t option = 0) {
    return bgpAddASPAccessEntry(A, action, {expression, option});
}
TEST_F(BgpLists, EntriesAreOneOrNoneByWhatTheyAsk) {
    configure("ip as-path access-list A\nip community-list A\nip extcommunity-list A\n");
    for (auto* create : {bgpASPAccessListCreate, bgpCommAccessListCreate, bgpExtCommListCreate}) {
        EXPECT_EQ(create(listName{}, 0, &status), nullptr);
        EXPECT_NE(status, ACL_OK);
    }
    const std::string longest(460, '1');
    const std::pair<std::string, uint32_t> paths[] = {
        {" permit _65000_", ACL_OK},
        {" deny _65000_", ACL_OK},
        {" permit _65000_", ACL_E_ASPATH_EXISTS},
        {" permit (|1)", ACL_OK},  // it stays as typed
        {" permit (1", ACL_E_EXPRESSION},
    };
    enter("ip as-path access-list A");
    for (const auto& [line, answer] : paths) EXPECT_EQ(type(line), answer) << line;
    // Empty, not printable, too long, too long once rewritten.
    for (const std::string& bad :
         {std::string(), std::string("1\n2"), longest, longest.substr(4) + "(|)"})
        EXPECT_EQ(path(PERMIT, bad), ACL_E_EXPRESSION) << bad;
    EXPECT_EQ(path(PERMIT, "_65000_", 1), ACL_OK) << "another option word is another entry";
    EXPECT_EQ(bgpDelASPAccessEntry(A, DENY, {"_65000_", 1}, 1), ACL_E_ASPATH_NOENTRY);
    const auto values = communities(PERMIT, {1, 2});
    const auto one = expression<commEntryBlock>(PERMIT, "1");
    const std::pair<commEntryBlock, uint32_t> requests[] = {
        {values, ACL_OK},
        {with(values, [](auto& b) { b.handle = 99; }), ACL_E_COMM_EXISTS},  // it does not count
        {one, ACL_OK},
        // Nor does what stands behind a text.
        {with(one, [](auto& b) { b.text[2] = b.text[695] = 'x'; }), ACL_E_COMM_EXISTS},
        {expression<commEntryBlock>(PERMIT, "["), ACL_E_EXPRESSION},
        {with(values, [](auto& b) { b.count = 0xFFFFFFFF; }), ACL_E_SYSTEM},
        {with(values, [](auto& b) { b.count = 500; }), ACL_OK},  // the limit
        {with(values, [](auto& b) { b.kind = 3; }), ACL_E_SYSTEM},
    };
    for (const auto& [request, answer] : requests)
        EXPECT_EQ(bgpAddCommAccessEntry(A, request), answer);
    EXPECT_EQ(bgpAddExtCommListEntry(A, expression<extCommEntryBlock>(PERMIT, "*")),
              ACL_E_EXPRESSION);
    const auto goal = targets(PERMIT, {target(0, 1, 1)});
    EXPECT_EQ(bgpAddExtCommListEntry(A, with(goal, [](auto& b) { b.body.selector = 9; })),
              ACL_E_SYSTEM);
    EXPECT_EQ(
        lines(),
        (rows{"ip as-path access-list A", " permit _65000_ ", " deny _65000_ ", " permit (|1) ",
              " permit _65000_ ", "ip community-list A", " permit 0:1 0:2", " permit regexp 1",
              " permit 0:1 0:2 0:0 0:0 0:0 0:0 0:0 0:0 0:0", "ip extcommunity-list A"}));
    // A request's text without its NUL ends with the field.
    for (uint32_t code : {CLI_ASPATH_ENTRY_ADD, CLI_ASPATH_ENTRY_DELETE}) {
        auto fill = [](cliAspathReq& r) { std::memset(r.text, '1', sizeof r.text); };
        EXPECT_EQ(ask(cli<cliAspathReq>(code, "A", fill)), 0u);
    }
}

TEST_F(BgpLists, LinesThatAreTooLongAreKeptWithoutTheirText) {
    configure("ip as-path access-list A\n");
    for (auto [action, fits] : {std::pair{PERMIT, 236u}, {DENY, 238u}}) {
        EXPECT_EQ(path(action, std::string(fits, '1')), 0u);
        EXPECT_TRUE(testTake()[1].starts_with("sync 10"));
        EXPECT_EQ(path(action, std::string(fits + 1, '1')), 0u);
        const rows said = testTake();  // and the feed hears nothing
        ASSERT_EQ(said.size(), 2u);
        EXPECT_EQ(said[0],
                  "log Configuration is too long to store in Config Manager: returning\r\n");
        EXPECT_NE(said[1].find("! line not shown:"), std::string::npos) << said[1];
    }
    // In a show it is there, longer than a page's usual lines or not.
    for (int i = 0; i < 50; i++)
        ASSERT_EQ(path(PERMIT, std::string(440, '1') + std::to_string(i)), 0u);
    const std::string all = say("do show ip as-path-access-lists A");
    EXPECT_GT(all.size(), 23000u);
    EXPECT_NE(all.find(std::string(440, '1') + "45\n"), std::string::npos);
}

// Numbers are signed, other subtypes have one word, and a show leaves the number out: meant.
TEST_F(BgpLists, EntriesHaveALineAndAShow) {
    configure(
        "ip community-list A\n deny -2 65000:5 0:7 no-export no-advertise local-AS\n"
        " permit -2147483648:0\n");
    EXPECT_EQ(bgpAddCommAccessEntry(A, communities(PERMIT, {})), 0u);
    EXPECT_EQ(lines(),
              (rows{"ip community-list A", " deny -2 65000:5 0:7 no-export no-advertise local-AS",
                    " permit -2147483648:0", " permit"}));
    EXPECT_EQ(say("do show ip community-lists"),
              "ip community-list A\n deny 65000:5 0:7 no-export no-advertise local-AS\n"
              " permit -2147483648:0\n permit\n");
    configure("ip extcommunity-list A\n");
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
    configure("ip as-path access-list A\n");
    std::string wanted = "ip as-path access-list A\n";
    for (uint32_t i = 0; i < 120; i++) {
        ASSERT_EQ(path(i % 2, std::to_string(i)), 0u);
        wanted += (i % 2 != 0 ? " deny " : " permit ") + std::to_string(i) + "\n";
    }
    bgpASPAccessListCreate(B, 1, &status);
    EXPECT_EQ(say("do show ip as-path-access-lists A"), wanted);
    configure("ip as-path access-list C\n");
    EXPECT_EQ(say("do show ip as-path-access-lists"), wanted + "ip as-path access-list C\n");
    auto page = [](const char* cursor, uint32_t resume, bool all = true) {
        return shown([&](void** buffer, uint32_t* size) {
            return (all ? aclShowASPathListAll : aclShowASPathList)(listNameMake(cursor), &resume,
                                                                    buffer, size);
        });
    };
    EXPECT_EQ(page("A", 121), "") << "behind the end";
    EXPECT_EQ(page("B", 50), "ip as-path access-list C\r\n") << "a placeholder's page";
    EXPECT_EQ(page("C", 0), "status 17");
    EXPECT_EQ(page("B", 0, false), "status 52");
    EXPECT_EQ(shown([](void** b, uint32_t* n) { return aclShowASPathList(A, nullptr, b, n); }),
              "status 5");
    testFail(TEST_BUFFER);
    EXPECT_EQ(page("A", 0), "status 24");
    EXPECT_EQ(bgpASPAccessListFindPrev(listNameMake("C")), bgpASPAccessListFind(B));
    for (const char* none : {"A", "absent"})
        EXPECT_EQ(bgpASPAccessListFindPrev(listNameMake(none)), nullptr);
    // The place of a page is its number of entries, whatever was deleted before it.
    ASSERT_EQ(bgpDelASPAccessEntry(A, PERMIT, {"10"}, 1), 0u);
    std::string_view found;
    EXPECT_NE(bgpASPAccessEntFindIndex(A, 51, &found), nullptr);
    EXPECT_EQ(found, "51");
    for (uint32_t none : {0u, 120u}) EXPECT_EQ(bgpASPAccessEntFindIndex(A, none, &found), nullptr);
}

TEST_F(BgpLists, TheDebugShellReadsCommunities) {
    configure("ip community-list A\n permit 65000:1\nip extcommunity-list A\n permit rt 1:5\n");
    for (auto [function, args, answer] : std::initializer_list<std::array<const char*, 3>>{
             {"testCommunity", "A 4259840001 exact", R"({"verdict":"permit")"},
             {"testCommunity", "A 70000:1", R"({"error":"not a community: 70000:1"})"},
             {"testExtCommunity", "A 192.0.2.1:9 rt 1:5", R"({"verdict":"permit")"},
             {"testExtCommunity", "A rt as4 1:5", R"({"verdict":"deny")"},
             {"testExtCommunity", "A rt 1:5 non-trans", R"({"verdict":"deny")"},
             {"testExtCommunity", "B rt 1:5", R"({"error":"No such)"}})
        EXPECT_TRUE(debug(function, args).starts_with(answer)) << args;
}

}  // namespace
