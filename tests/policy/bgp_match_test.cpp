// Evaluation of AS-path and community lists: verdicts stated by hand, and random lists against the
// plain walk.
#include <cstdio>

#include "match/bgpExports.h"
#include "platform/api/zekBgpRegex.h"
#include "tests/policy/policyTest.h"

namespace {

typedef PolicyTest BgpLists;

TEST(BgpExpressions, Dialect) {
    struct {
        const char* expression;
        rows found, missed;
    } cases[] = {
        {"_65000_",
         {"65000", "1 65000 2", "{65000,3}", "(65000 1)", "1 {2,65000}"},
         {"165000", "650001", ""}},
        {"^65000_", {"65000", "65000 1"}, {"1 65000", "650001"}},
        {"_65000$", {"1 65000"}, {"65000 1"}},
        {"^$", {""}, {"1"}},
        {"^[0-9]+$", {"65000"}, {"1 2", ""}},
        {"^(1|2)_(3_)*4$", {"1 4", "2 3 3 4"}, {"1 2 4"}},
        {"_1{2}_", {"11"}, {"1", "111"}},
        {"\\{1,2\\}", {"3 {1,2}"}, {"1,2"}},
        {"[^_]5", {"15"}, {"5"}},
        {"\\_", {"a_b"}, {"a b"}},
        {"[[:digit:]]_[]}]", {"1 }", "1 ]"}, {"1 a"}},
        {"[\\d]", {"d", "\\"}, {"1"}},
        {".*", {"", "1 2"}, {}},
        {"(()|1)2", {"2", "12"}, {"1"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expression);
        zekbgp_regex* regex = zekbgp_regcomp(c.expression);
        ASSERT_NE(regex, nullptr);
        for (const std::string& text : c.found) EXPECT_TRUE(zekbgp_regexec(regex, text)) << text;
        for (const std::string& text : c.missed) EXPECT_FALSE(zekbgp_regexec(regex, text)) << text;
        zekbgp_regex_free(regex);
    }
    for (const char* bad : {"", "(", ")", "*", "a(?:b)", "[1", "\\", "a\x01", "\\1", "a{2,1}",
                            "x{1001}", "(?i)a", "\\d"})
        EXPECT_EQ(zekbgp_regcomp(bad), nullptr) << bad;
}

// With an engine that goes back on its steps any of these would run for years; with this one the
// test ends.
TEST(BgpExpressions, HostileOnesAreRefusedOrAnsweredInLinearTime) {
    std::string nest = "1", repeats = "(1", alternatives = "(1";
    for (int i = 0; i < 75; i++) nest = "(" + nest + ")*";
    for (int i = 0; i < 60; i++) repeats += "{9}";
    for (int i = 0; i < 110; i++) alternatives += "|1";
    const std::string hostile[] = {
        nest,
        "(1*)*(1*)*(1*)*(1*)*(1*)*(1*)*2",
        "(1|1|11)*(1|11)*2",
        "((((((1{9}){9}){9}){9}){9}){9}){9}",
        repeats + ")",
        alternatives + ")*2",
        std::string(115, '(') + std::string(115, ')'),
        std::string(230, '('),
        "(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)[2](.*)(.*)(.*)(.*)(.*)(.*)3",
        "_*_*_*_*_*_*_*_*_*_*_*_*_*_*_*_*_*_*2",
        "(1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?){9}2",
    };
    std::string text(4000, '1');
    std::vector<const zekbgp_regex*> compiled;
    std::vector<bool> alone;
    for (const std::string& expression : hostile)
        if (const zekbgp_regex* regex = zekbgp_regcomp(expression)) {
            compiled.push_back(regex);
            alone.push_back(zekbgp_regexec(regex, text));
        }
    EXPECT_GE(compiled.size(), 4u);
    zekbgp_regexSet* set = zekbgp_setcomp(compiled);
    ASSERT_NE(set, nullptr);
    const auto first = std::ranges::find(alone, true) - alone.begin();
    const int answer = zekbgp_setexec(set, text);
    EXPECT_TRUE(answer == first || answer == ZEKBGP_NO_ANSWER) << answer;
    zekbgp_set_free(set);
    for (const zekbgp_regex* regex : compiled) zekbgp_regex_free(const_cast<zekbgp_regex*>(regex));
}

typedef std::vector<uint8_t> bytes;

TEST(BgpAttributes, PathsAreRendered) {
    struct {
        const char* what;
        bytes attribute;
        std::string text;  // "malformed"
    } cases[] = {
        {"nothing", {0x40, 2, 0}, ""},
        {"two-byte numbers", {0x40, 2, 6, 2, 2, 0xFD, 0xE8, 0, 1}, "65000 1"},
        {"four-byte numbers", {0x40, 2, 6, 2, 1, 0, 1, 0, 10}, "65546"},
        {"extended length", {0x50, 2, 0, 4, 2, 1, 0, 7}, "7"},
        {"the other attribute", {0xC0, 17, 6, 2, 1, 0, 0, 0, 7}, "7"},
        {"a set", {0x40, 2, 10, 2, 1, 0, 1, 1, 2, 0, 2, 0, 3}, "1 {2,3}"},
        {"confederations",
         {0x40, 2, 18, 3, 2, 0, 1, 0, 2, 4, 2, 0, 3, 0, 4, 2, 2, 0, 5, 0, 6},
         "(1 2) (3,4) 5 6"},
        {"empty segments", {0x40, 2, 4, 2, 0, 1, 0}, "{}"},
        {"another attribute", {0x40, 3, 0}, "malformed"},
        {"unknown segment", {0x40, 2, 4, 9, 1, 0, 1}, "malformed"},
        {"segment too short", {0x40, 2, 4, 2, 2, 0, 1}, "malformed"},
        {"longer than it is", {0x40, 2, 9, 2, 1, 0, 1}, "malformed"},
        {"no length", {0x50, 2, 0}, "malformed"},
        {"not even a header", {0x40}, "malformed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        // An exact copy on the heap: a step behind it is seen by the sanitizer.
        const bytes exact(c.attribute);
        char text[64] = "malformed";
        int length = aspath_make_str_count(exact.data(), static_cast<uint32_t>(exact.size()), text,
                                           sizeof text);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(length, c.text == "malformed" ? -1 : static_cast<int>(c.text.size()));
        for (size_t size = 0; size < exact.size(); size++) {
            const bytes cut(exact.begin(), exact.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(aspath_make_str_count(cut.data(), static_cast<uint32_t>(size), nullptr, 0),
                      -1);
        }
    }
    const bytes path{0x40, 2, 6, 2, 2, 0xFD, 0xE8, 0, 1};
    char text[4];
    EXPECT_EQ(aspath_make_str_count(path.data(), 9, text, sizeof text), 7);
    EXPECT_STREQ(text, "650");
    const bytes wide{0x40, 2, 6, 2, 1, 0, 0, 2, 0};
    EXPECT_EQ(aspath_make_str_count(wide.data(), 9, text, sizeof text, AS_WIDTH_4), 3);
    EXPECT_STREQ(text, "512");
    EXPECT_EQ(aspath_make_str_count(wide.data(), 8, text, sizeof text, AS_WIDTH_4), -1);
    EXPECT_EQ(bgpGetAS4Str(65546, AS_NOTATION_PLAIN), "65546");
    EXPECT_EQ(bgpGetAS4Str(65546, AS_NOTATION_DOT), "1.10");
    EXPECT_EQ(bgpGetAS4Str(65535, AS_NOTATION_DOT), "65535");
    EXPECT_EQ(bgpGetAS4Str(65535, AS_NOTATION_DOTPLUS), "0.65535");
}

TEST_F(BgpLists, ClientsAskByNumberAndByHandle) {
    const listName seven = listNameMake("7");
    bgpASPAccessListCreate(seven, 0, &status);
    bgpCommAccessListCreate(seven, 0, &status);
    for (auto [action, text] : {std::pair{DENY, "_9_"}, {PERMIT, "^1_"}, {PERMIT, "^512$"}})
        bgpAddASPAccessEntry(seven, action, {text});
    commEntryBlock noExport = communities(PERMIT, {65000u << 16 | 1});
    noExport.noExport = 1;
    bgpAddCommAccessEntry(seven, noExport);
    auto path = [](uint32_t id, const bytes& a) {
        return bgpAccessASPMatchFinExt(id, a.data(), static_cast<uint32_t>(a.size()));
    };
    auto community = [](uint32_t id, const bytes& a) {
        return bgpAccessCommMatchFinExt(id, a.data(), static_cast<uint32_t>(a.size()));
    };
    const bytes first{0x40, 2, 4, 2, 1, 0, 1}, wide{0x40, 2, 6, 2, 1, 0, 0, 2, 0};
    const bytes both{0xC0, 8, 8, 0xFF, 0xFF, 0xFF, 1, 0xFD, 0xE8, 0, 1};
    const bytes one{0xC0, 8, 4, 0xFD, 0xE8, 0, 1};
    EXPECT_EQ(path(7, first), 0);
    EXPECT_EQ(path(7, {0x40, 2, 6, 2, 2, 0, 1, 0, 9}), 1);
    EXPECT_EQ(path(7, {0x40, 2, 4, 2, 1, 0, 2}), 1) << "nothing matches";
    EXPECT_EQ(path(8, first), 1) << "no list";
    EXPECT_EQ(path(7, {0x40, 2, 4, 2, 9, 0, 1}), 1) << "malformed";
    EXPECT_EQ(community(7, both), 0);
    EXPECT_EQ(community(7, one), 1);
    EXPECT_EQ(community(7, {0xC0, 8, 3, 0xFD, 0xE8, 0}), 1);
    const bgpList* list = bgpCommAccessListFind(seven);
    EXPECT_EQ(bgpAccessCommMatchFinWithHandleExt(list, both.data(), 11), 0);
    EXPECT_EQ(bgpAccessCommMatchFinWithHandleExt(nullptr, both.data(), 11), 1);
    const auto& entry = *static_cast<const commEntry*>(list->head);
    EXPECT_EQ(bgpAccessCommListDelCheckForSubSet(entry, both.data(), 11), 0);
    EXPECT_EQ(bgpAccessCommListDelCheckForSubSet(entry, one.data(), 7), -1);
    // AS 512 and others look like two-byte numbers to who does not know better.
    EXPECT_EQ(path(7, wide), 1);
    for (auto [width, verdict] : {std::pair{4u, 0}, {2u, 1}, {0u, 1}})
        EXPECT_EQ(bgpAccessASPMatchWidthExt(7, width, wide.data(), 9), verdict) << width;

    std::string out;
    EXPECT_EQ(ipAsCheck(2, {1, 3}, 7, &out), 0);
    EXPECT_EQ(ipAsCheck(2, {1, 9}, 7, &out), 1);
    EXPECT_EQ(ipAsCheck(0, {}, 7, &out), 1);
    EXPECT_EQ(ipAsCheck(5, {}, 7, &out), 0);
    EXPECT_EQ(out, "1 3 {1,3}\nmatched, permit\n1 9 {1,9}\ndrop\n{}\ndrop\n");
}

// The manager's executable must offer the entry points and the roots to its client tasks by name.
TEST(BgpExports, AreInTheDynamicSymbolTable) {
    std::FILE* nm = popen("nm -D --defined-only " ACL_BIN_DIR "/aclmgr", "r");
    ASSERT_NE(nm, nullptr);
    std::set<std::string> names;
    char line[512], kind = 0, name[256];
    while (std::fgets(line, sizeof line, nm) != nullptr)
        if (std::sscanf(line, "%*x %c %255s", &kind, name) == 2) names.insert(name);
    EXPECT_EQ(pclose(nm), 0);
    for (const char* wanted : {"bgpAccessASPMatchFinExt", "bgpAccessASPMatchWidthExt",
                               "bgpAccessCommMatchFinExt", "bgpAccessCommMatchFinWithHandleExt",
                               "aclNode", "aspathAclNode", "acl_rwlock", "pAclReadCounter"})
        EXPECT_TRUE(names.contains(wanted)) << wanted;
}

// --- random lists against the plain walk --------------------------------------------------------

struct randomness {
    std::mt19937 engine{20};
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(engine() % n); }
    std::string numberTo(uint32_t n) { return std::to_string(1 + below(n)); }
    uint32_t community() { return 65000u << 16 | below(12); }
};

// A kind of list for the walk: entries and attributes at random, and a reference that knows nothing
// of indexes: sets of numbers, and the expressions' own text.
struct paths {
    typedef std::pair<uint32_t, std::string> draft;
    typedef std::string attribute;
    static bgpList* create(uint32_t* status) { return bgpASPAccessListCreate(A, 0, status); }
    static uint32_t add(const draft& d) { return bgpAddASPAccessEntry(A, d.first, {d.second}); }
    static uint32_t del(const draft& d) { return bgpDelASPAccessEntry(A, d.first, {d.second}, 1); }
    static draft entry(randomness& r) {
        const std::string as = r.numberTo(40), other = r.numberTo(40);
        const std::string forms[] = {"^" + as + "_", "_" + as + "$", "_" + as + "_" + other + "_",
                                     "_(" + as + "|" + other + ")_.*_1$", "_" + as + "_"};
        return {r.below(2), forms[std::min(r.below(6), 4u)]};
    }
    static attribute question(randomness& r) {
        std::string path;
        for (uint32_t i = r.below(7); i > 0; i--)
            path += (path.empty() ? "" : " ") + r.numberTo(60);
        return r.below(4) == 0 ? path + " {" + r.numberTo(50) + ",1}" : path;
    }
    static bool matches(const bgpEntry& e, const attribute& path) {
        return zekbgp_regexec(e.regex, path);
    }
    static int check(const bgpList* list, const attribute& path, const bgpEntry** decided) {
        return aspathListCheck(list, path, decided);
    }
};
struct values {
    typedef commEntryBlock draft;
    typedef std::pair<std::vector<uint32_t>, bool> attribute;  // exact
    static bgpList* create(uint32_t* status) { return bgpCommAccessListCreate(A, 0, status); }
    static uint32_t add(const draft& d) { return bgpAddCommAccessEntry(A, d); }
    static uint32_t del(const draft& d) { return bgpDelCommAccessEntry(A, d); }
    static draft entry(randomness& r) {
        if (r.below(8) == 0)
            return expression<draft>(r.below(2),
                                     "_65000:" + r.numberTo(11) + "_65000:" + r.numberTo(11) + "_");
        std::vector<uint32_t> wanted(r.below(4));
        for (uint32_t& value : wanted) value = r.community();
        draft block = communities(r.below(2), wanted);
        if (wanted.empty() && r.below(8) != 0) block.number = r.community();
        if (r.below(6) == 0) block.noExport = 1;
        if (r.below(9) == 0) block.localAs = 1;
        return block;
    }
    static attribute question(randomness& r) {
        std::vector<uint32_t> there(r.below(5));
        for (uint32_t& value : there) value = r.community();
        if (r.below(5) == 0) there.push_back(COMMUNITY_NO_EXPORT);
        return {there, r.below(3) == 0};
    }
    static bool matches(const bgpEntry& entry, const attribute& a) {
        const auto& e = static_cast<const commEntry&>(entry);
        if (e.kind == COMM_REGEXP) return zekbgp_regexec(e.regex, bgpCommunityText(a.first));
        std::set<uint32_t> wanted, there(a.first.begin(), a.first.end());
        for (uint32_t i = 0; i < e.block.count; i++)
            wanted.insert(e.block.high[i] << 16 | e.block.low[i]);
        if (e.block.number != 0) wanted.insert(e.block.number);
        if (e.block.noExport != 0) wanted.insert(0xFFFFFF01);
        if (e.block.localAs != 0) wanted.insert(0xFFFFFF03);
        return a.second ? wanted == there : std::ranges::includes(there, wanted);
    }
    static int check(const bgpList* list, const attribute& a, const bgpEntry** decided) {
        return commListCheck(list, a.first, a.second, decided);
    }
};
struct goals {
    typedef extCommEntryBlock draft;
    typedef std::vector<extCommValue> attribute;
    static bgpList* create(uint32_t* status) { return bgpExtCommListCreate(A, 0, status); }
    static uint32_t add(const draft& d) { return bgpAddExtCommListEntry(A, d); }
    static uint32_t del(const draft& d) { return bgpDelExtCommListEntry(A, d); }
    static attribute some(randomness& r, uint32_t count) {
        attribute out;
        while (count-- > 0) out.push_back(target(0, 1, r.below(9)));
        return out;
    }
    static draft entry(randomness& r) {
        if (r.below(8) == 0) return expression<draft>(r.below(2), "rt 1:" + r.numberTo(8) + "_rt");
        return targets(r.below(2), some(r, 1 + r.below(2)));
    }
    static attribute question(randomness& r) { return some(r, r.below(4)); }
    static bool matches(const bgpEntry& entry, const attribute& there) {
        const auto& e = static_cast<const extCommEntry&>(entry);
        if (e.kind == COMM_REGEXP) return zekbgp_regexec(e.regex, bgpExtCommunityText(there));
        auto isThere = [&](const extCommValue& wanted) {
            return std::ranges::any_of(
                there, [&](const auto& v) { return std::memcmp(&v, &wanted, 8) == 0; });
        };
        const extCommBody& body = e.rule.body;
        return std::all_of(body.values, body.values + body.count, isThere);
    }
    static int check(const bgpList* list, const attribute& there, const bgpEntry** decided) {
        return extCommListCheck(list, there, decided);
    }
};

template <class Kind>
struct BgpWalk : PolicyTest {};
typedef testing::Types<paths, values, goals> bgpWalks;
TYPED_TEST_SUITE(BgpWalk, bgpWalks);

// Enough questions between changes for the set to be made, few enough that it is not always there.
TYPED_TEST(BgpWalk, DecidesTheSame) {
    const bgpList* list = TypeParam::create(&this->status);
    randomness r;
    std::vector<typename TypeParam::draft> drafts;
    std::set<const bgpEntry*> deciders;
    int permits = 0, denies = 0, implicit = 0;
    for (int round = 0; round < 100; round++) {
        for (uint32_t changes = r.below(9); changes > 0; changes--) {
            if (r.below(3) != 0 || drafts.empty()) {
                const auto draft = TypeParam::entry(r);
                if (TypeParam::add(draft) == 0) drafts.push_back(draft);
            } else {
                const size_t at = r.below(5) % drafts.size();
                ASSERT_EQ(TypeParam::del(drafts[at]), 0u);
                drafts.erase(drafts.begin() + static_cast<std::ptrdiff_t>(at));
            }
        }
        for (int question = 0; question < 50; question++) {
            const auto attribute = TypeParam::question(r);
            const bgpEntry* expected = list->head;
            while (expected != nullptr && !TypeParam::matches(*expected, attribute))
                expected = expected->next;
            const bgpEntry* decided = nullptr;
            const int verdict = TypeParam::check(list, attribute, &decided);
            ASSERT_EQ(decided, expected) << round << " " << question;
            ASSERT_EQ(verdict, expected == nullptr || expected->action == BGP_DENY ? 1 : 0);
            (expected == nullptr ? implicit : verdict == 1 ? denies : permits)++;
            deciders.insert(expected);
        }
    }
    EXPECT_TRUE(permits > 100 && denies > 100 && implicit > 100);
    EXPECT_GT(deciders.size(), 10u);
}

TEST_F(BgpLists, ExpressionsGoAThousandAPass) {
    (void)regexFinalCleanup(UINT32_MAX);  // of the tests before
    bgpASPAccessListCreate(A, 0, &status);
    for (uint32_t i = 0; i < 1002; i++)
        ASSERT_EQ(bgpAddASPAccessEntry(A, PERMIT, {std::to_string(i)}), 0u);
    ASSERT_EQ(bgpDelASPAccessEntry(A, PERMIT, {"7"}, 1), 0u);
    ASSERT_EQ(bgpASPAccessListDelete(A), 0u);
    aclProcessRegexPendingDelete();
    EXPECT_EQ(regexFinalCleanup(UINT32_MAX), 2u);
    EXPECT_EQ(regexFinalCleanup(UINT32_MAX), 0u);
}

// Every answer is one that the list can give at some moment.
TEST_F(BgpLists, ClientsAskWhileListsChange) {
    const listName seven = listNameMake("7");
    bgpASPAccessListCreateExt(seven, 0u);
    bgpCommAccessListCreateExt(seven, 0u);
    const bytes path{0x40, 2, 6, 2, 2, 0, 1, 0, 2}, community{0xC0, 8, 4, 0xFD, 0xE8, 0, 1};
    std::atomic<int> permits = 0, impossible = 0;
    auto ask = [&] {
        const int verdict = bgpAccessASPMatchFinExt(7, path.data(), 9);
        if (verdict == 0) permits++;
        if (verdict != 0 && verdict != 1) impossible++;
        if (bgpAccessCommMatchFinExt(7, community.data(), 7) == 0) permits++;
    };
    // Between two changes the clients ask often enough to make the set, all at once.
    askWhileChanging(3, 40, 75, ask, [&](uint32_t round) {
        for (uint32_t i = 0; i < 8 && round % 2 == 0; i++) {
            bgpAddASPAccessEntryExt(seven, PERMIT, aspathRule{"_" + std::to_string(100 + i) + "_"});
            bgpAddCommAccessEntryExt(seven, communities(PERMIT, {65000u << 16 | i}));
        }
        if (round % 2 == 0) {
            bgpAddASPAccessEntryExt(seven, PERMIT, aspathRule{"^1_2$"});
            return;
        }
        bgpASPAccessListDeleteExt(seven);
        aclProcessRegexPendingDelete();
        bgpCommAccessListDeleteExt(seven);
        bgpASPAccessListCreateExt(seven, 0u);
        bgpCommAccessListCreateExt(seven, 0u);
    });
    EXPECT_EQ(impossible, 0);
    EXPECT_GT(permits, 20);
}

}  // namespace
