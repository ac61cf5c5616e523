// Evaluation of AS-path and community lists: verdicts stated by hand, and random lists against the
// plain walk.
#include <cstdlib>
#include <map>
#include <sstream>

#include "match/bgpExports.h"
#include "platform/api/zekBgpRegex.h"
#include "tests/policy/policyTest.h"

namespace {

typedef PolicyTest BgpLists;

// 1 or 0; -1: it is no expression. Those that are good are kept.
int matches(const std::string& expression, const std::string& text) {
    static auto& known = *new std::map<std::string, zekbgp_regex*>;
    zekbgp_regex*& regex = known[expression];
    if (regex == nullptr) regex = zekbgp_regcomp(expression);
    return regex == nullptr ? -1 : zekbgp_regexec(regex, text);
}

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
        for (const std::string& text : c.found) EXPECT_EQ(matches(c.expression, text), 1) << text;
        for (const std::string& text : c.missed) EXPECT_EQ(matches(c.expression, text), 0) << text;
    }
    for (const char* bad : {"", "(", ")", "*", "a(?:b)", "[1", "\\", "a\x01", "\\1", "a{2,1}",
                            "x{1001}", "(?i)a", "\\d"})
        EXPECT_EQ(matches(bad, "1"), -1) << bad;
}

// With an engine that goes back on its steps any of these would run for years; with this one the
// test ends.
TEST(BgpExpressions, HostileOnesAreRefusedOrAnsweredInLinearTime) {
    auto times = [](int n, std::string_view text) {
        std::string out;
        while (n-- > 0) out += text;
        return out;
    };
    const std::string hostile[] = {
        times(75, "(") + "1" + times(75, ")*"),
        times(6, "(1*)*") + "2",
        "(1|1|11)*(1|11)*2",
        "((((((1{9}){9}){9}){9}){9}){9}){9}",
        "(1" + times(60, "{9}") + ")",
        "(1" + times(110, "|1") + ")*2",
        times(115, "(") + times(115, ")"),
        times(230, "("),
        times(8, "(.*)") + "[2]" + times(6, "(.*)") + "3",
        times(18, "_*") + "2",
        "(" + times(26, "1?") + "){9}2",
    };
    const std::string text(4000, '1');
    std::vector<const zekbgp_regex*> compiled;
    int first = -1;
    for (const std::string& expression : hostile)
        if (const zekbgp_regex* regex = zekbgp_regcomp(expression)) {
            if (zekbgp_regexec(regex, text) && first < 0) first = static_cast<int>(compiled.size());
            compiled.push_back(regex);
        }
    EXPECT_GE(compiled.size(), 4u);
    zekbgp_regexSet* set = zekbgp_setcomp(compiled);
    ASSERT_NE(set, nullptr);
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
}

TEST_F(BgpLists, ClientsAskByNumberAndByHandle) {
    configure(
        "ip as-path access-list 7\n deny _9_\n permit ^1_\n permit ^512$\n"
        "ip community-list 7\n permit 65000:1 no-export\n");
    auto path = [](uint32_t id, const bytes& a) {
        return bgpAccessASPMatchFinExt(id, a.data(), static_cast<uint32_t>(a.size()));
    };
    auto community = [](const bytes& a) {
        return bgpAccessCommMatchFinExt(7, a.data(), static_cast<uint32_t>(a.size()));
    };
    const bytes first{0x40, 2, 4, 2, 1, 0, 1}, wide{0x40, 2, 6, 2, 1, 0, 0, 2, 0};
    const bytes both{0xC0, 8, 8, 0xFF, 0xFF, 0xFF, 1, 0xFD, 0xE8, 0, 1};
    const bytes one{0xC0, 8, 4, 0xFD, 0xE8, 0, 1};
    EXPECT_EQ(path(7, first), 0);
    EXPECT_EQ(path(7, {0x40, 2, 6, 2, 2, 0, 1, 0, 9}), 1);
    EXPECT_EQ(path(7, {0x40, 2, 4, 2, 1, 0, 2}), 1) << "nothing matches";
    EXPECT_EQ(path(8, first), 1) << "no list";
    EXPECT_EQ(path(7, {0x40, 2, 4, 2, 9, 0, 1}), 1) << "malformed";
    // AS 512 and others look like two-byte numbers to who does not know better.
    EXPECT_EQ(path(7, wide), 1);
    for (auto [width, verdict] : {std::pair{4u, 0}, {2u, 1}, {0u, 1}})
        EXPECT_EQ(bgpAccessASPMatchWidthExt(7, width, wide.data(), 9), verdict) << width;
    EXPECT_EQ(community(both), 0);
    EXPECT_EQ(community(one), 1);
    EXPECT_EQ(community({0xC0, 8, 3, 0xFD, 0xE8, 0}), 1);
    const bgpList* list = bgpCommAccessListFind(listNameMake("7"));
    EXPECT_EQ(bgpAccessCommMatchFinWithHandleExt(list, both.data(), 11), 0);
    EXPECT_EQ(bgpAccessCommMatchFinWithHandleExt(nullptr, both.data(), 11), 1);
    const auto& entry = *static_cast<const commEntry*>(list->head);
    EXPECT_EQ(bgpAccessCommListDelCheckForSubSet(entry, both.data(), 11), 0);
    EXPECT_EQ(bgpAccessCommListDelCheckForSubSet(entry, one.data(), 7), -1);
    for (auto [args, answer] :
         {std::pair{"2 1 3 0 0 7", "1 3 {1,3}\nmatched, permit\n"},
          {"2 1 9 0 0 7", "1 9 {1,9}\ndrop\n"},
          {"0 0 0 0 0 7", "{}\ndrop\n"},
          {"5 1 0 0 0 7", "usage: ipAsCheck COUNT AS1 AS2 AS3 AS4 LIST (text)\n"}})
        EXPECT_EQ(debug("ipAsCheck", args), answer);
}

// The manager's executable must offer the entry points and the roots to its client tasks by name.
TEST(BgpExports, AreInTheDynamicSymbolTable) {
    const std::string names = "nm -D --defined-only " ACL_BIN_DIR "/aclmgr | grep -qw ";
    for (const char* wanted : {"bgpAccessASPMatchFinExt", "bgpAccessASPMatchWidthExt",
                               "bgpAccessCommMatchFinExt", "bgpAccessCommMatchFinWithHandleExt",
                               "aclNode", "aspathAclNode", "acl_rwlock", "pAclReadCounter"})
        EXPECT_EQ(std::system((names + wanted).c_str()), 0) << wanted;
}

// --- random lists against the plain walk --------------------------------------------------------

struct randomness {
    std::mt19937 engine{20};
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(engine() % n); }
    std::string numberTo(uint32_t n) { return std::to_string(1 + below(n)); }
    // Words of one sort: no more than `most`, each with a blank in front.
    std::string some(const char* front, uint32_t least, uint32_t most, uint32_t values) {
        std::string out;
        for (uint32_t n = least + below(most - least + 1); n > 0; n--)
            out += " " + (front + numberTo(values));
        return out;
    }
};

// Entries and attributes at random, as words: the reference knows sets of words and the
// expressions' own text, and nothing of indexes.
struct walkedKind {
    const char *header, *test;
    std::string (*entry)(randomness&);  // an expression, or words, behind its action
    std::string (*question)(randomness&);
};
const walkedKind walkedKinds[] = {
    {"ip as-path access-list A", "testAspath",
     [](randomness& r) -> std::string {
         const std::string as = r.numberTo(40), other = r.numberTo(40);
         const std::string forms[] = {"^" + as + "_", "_" + as + "$", "_" + as + "_" + other + "_",
                                      "_(" + as + "|" + other + ")_.*_1$", "_" + as + "_"};
         return " " + forms[std::min(r.below(6), 4u)];
     },
     [](randomness& r) {
         const std::string path = r.some("", 0, 6, 60);
         return r.below(4) == 0 ? path + " {" + r.numberTo(50) + ",1}" : path;
     }},
    {"ip community-list A", "testCommunity",
     [](randomness& r) -> std::string {
         if (r.below(8) == 0)
             return " regexp _65000:" + r.numberTo(11) + "_65000:" + r.numberTo(11) + "_";
         // The number of 65000:1 and those behind it, as lines show it.
         if (r.below(6) == 0)
             return " " + std::to_string(-35127295 + static_cast<int>(r.below(12)));
         return r.some("65000:", 0, 3, 12) + (r.below(6) == 0 ? " no-export" : "");
     },
     [](randomness& r) {
         return r.some("65000:", 0, 4, 12) + (r.below(5) == 0 ? " no-export" : "") +
                (r.below(3) == 0 ? " exact" : "");
     }},
    {"ip extcommunity-list A", "testExtCommunity",
     [](randomness& r) -> std::string {
         if (r.below(8) == 0) return " regexp rt 1:" + r.numberTo(8) + "_rt";
         return " rt" + r.some("1:", 1, 2, 9);
     },
     [](randomness& r) { return r.some("rt 1:", 0, 3, 9); }},
};
std::set<std::string> wordsOf(const std::string& text) {
    std::set<std::string> words;
    std::istringstream from(text);
    for (std::string word; from >> word;)
        words.insert(word[0] == '-' ? "65000:" + std::to_string(std::stoi(word) + 35127296) : word);
    return words;
}
bool walkMatches(const walkedKind& k, const std::string& entry, const std::string& question) {
    const size_t regexp = entry.find("regexp ");
    if (&k == walkedKinds || regexp != entry.npos) {
        const std::string text = question.substr(0, question.find(" exact"));
        return matches(regexp != entry.npos ? entry.substr(regexp + 7) : entry.substr(1),
                       text.substr(std::min<size_t>(1, text.size()))) == 1;
    }
    std::set<std::string> wanted = wordsOf(entry), there = wordsOf(question);
    wanted.erase("rt");
    return there.erase("exact") != 0 ? wanted == there : std::ranges::includes(there, wanted);
}

// Enough questions between changes for the set to be made, few enough that it is not always there.
TEST_F(BgpLists, DecideAsAPlainWalkDoes) {
    for (const walkedKind& k : walkedKinds) {
        configure(std::string(k.header) + "\n");
        randomness r;
        std::vector<std::pair<bool, std::string>> entries;  // whether they deny, and what
        std::set<size_t> deciders;
        int verdicts[3] = {};  // permitted, denied, by no entry
        for (int round = 0; round < 100; round++) {
            for (uint32_t changes = r.below(9); changes > 0; changes--) {
                const size_t at = r.below(5);
                const bool deny = r.below(2) != 0, gone = r.below(3) == 0 && at < entries.size();
                const auto [denies, what] = gone ? entries[at] : std::pair{deny, k.entry(r)};
                const std::string line = (denies ? " deny" : " permit") + what;
                const commEntryBlock nothing = communities(denies, {});  // no line says it
                const uint32_t answer = !what.empty() ? type((gone ? "no" : "") + line)
                                                      : (gone ? bgpDelCommAccessEntry
                                                              : bgpAddCommAccessEntry)(A, nothing);
                if (gone) entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(at));
                if (!gone && answer == 0) entries.emplace_back(denies, what);
            }
            const rows shown = lines();
            ASSERT_EQ(shown.size(), entries.size() + 1);
            for (int i = 0; i < 50; i++) {
                const std::string question = k.question(r);
                size_t at = 0;
                while (at < entries.size() && !walkMatches(k, entries[at].second, question)) at++;
                const bool none = at == entries.size(), denied = none || entries[at].first;
                ASSERT_EQ(debug(k.test, "A" + question),
                          std::string(R"({"verdict":")") + (denied ? "deny" : "permit") +
                              R"(","entry":)" + (none ? "null}" : "\"" + shown[at + 1] + "\"}"))
                    << round << question;
                verdicts[none ? 2 : denied]++;
                deciders.insert(at);
            }
        }
        for (int count : verdicts) EXPECT_GT(count, 100);
        EXPECT_GT(deciders.size(), 10u);
        configure(std::string("no ") + k.header + "\n");
    }
}

TEST_F(BgpLists, ExpressionsGoAThousandAPass) {
    (void)regexFinalCleanup(UINT32_MAX);  // of the tests before
    configure("ip as-path access-list A\n");
    for (int i = 0; i < 1002; i++) configure(" permit " + std::to_string(i) + "\n");
    configure("no permit 7\nno ip as-path access-list A\n");
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
