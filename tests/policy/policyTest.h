// Policy lists in a test's hands: the shell before the task on the recording platform, so that a
// line is typed and what follows from it is read; the kinds of lists as parameters; entries and
// clauses for what no line can say.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "cli/session.h"
#include "include/clientMsg.h"
#include "include/policyMsg.h"
#include "tests/support/forget.h"
#include "tests/task/fixture.h"

typedef std::vector<std::string> rows;
typedef std::span<const clientPairValue> pairs;

constexpr uint32_t PERMIT = 0, DENY = 1;
inline const listName A = listNameMake("A"), B = listNameMake("B"), M = listNameMake("M");

inline rows linesOf(std::string_view text) {
    rows out;
    for (size_t end; !text.empty(); text.remove_prefix(end + 1))
        out.emplace_back(text.substr(0, end = text.find('\n')));
    return out;
}

struct PolicyTest : TaskTest {
    uint64_t blocks = 0;
    uint32_t status = 0;
    cliSession shell;
    bool good = false;  // what became of the last line, in the shell
    char* screen = nullptr;
    size_t screenSize = 0;

    void SetUp() override {
        TaskTest::SetUp();
        blocks = testBlocksInUse();
        shell.mode = cliMode::configure;
        shell.options.compile = true;  // numbers may be whatever their fields can hold
        shell.out = shell.err = open_memstream(&screen, &screenSize);
        shell.channel.endpoint = reinterpret_cast<zekEndpoint*>(this);  // see shell.cpp
        shell.channel.card = OWN_CARD;
        shell.channel.service = CLIENT_SERVICE;
    }
    // Whatever a test did, every list can be deleted and gives back all that it took.
    void TearDown() override {
        fclose(shell.out);
        free(screen);
        testFailNothing();
        forgetLists();
        EXPECT_EQ(testBlocksInUse(), blocks) << "blocks leaked";
        rmapAsNotation = AS_NOTATION_PLAIN;
        TaskTest::TearDown();
    }

    // What the shell says to a line.
    std::string say(std::string_view line) {
        rewind(shell.out);
        reply.clear();
        effects.clear();
        good = sessionRun(&shell, line, {"test", 1});
        fflush(shell.out);
        return {screen, screenSize};
    }
    // The manager's status for a line.
    uint32_t type(std::string_view line) {
        const std::string said = say(line);
        if (reply.size() >= sizeof(cliHdr)) return view<cliHdr>()->result;
        ADD_FAILURE() << said;
        return 0xDEAD;
    }
    void configure(std::string_view typed) {
        for (const std::string& line : linesOf(typed)) ASSERT_EQ(type(line), 0u) << screen;
    }
    // The mode of the list that a header names, whether there is one or not.
    void enter(std::string_view header) {
        cliCommand command;
        cliParseError error;
        ASSERT_EQ(cliParse(sessionContext(shell), header, &command, &error), cliParsed::command);
        sessionEnter(&shell, command);
    }
    // What the last request told the configuration, its feed, the clients and the log.
    rows told() const {
        rows out = effects;
        std::erase_if(out, [](const std::string& row) {
            return row.starts_with("send ") || row.starts_with("syserr ");
        });
        return out;
    }
    auto triggers(const char* mtype) const {
        return std::ranges::count(effects, std::string("swp 1 ") + mtype + " length 292");
    }
    static rows lines() {
        rows out = testCfgLines();
        std::erase_if(out, [](const std::string& line) { return line.empty() || line[0] == '!'; });
        return out;
    }
    // What a show answers to a caller inside the task: its text, or "status N".
    template <class Show>
    static std::string shown(Show show) {
        void* buffer = nullptr;
        uint32_t size = 0;
        if (const uint32_t refused = show(&buffer, &size); refused != 0) {
            EXPECT_EQ(buffer, nullptr);
            return "status " + std::to_string(refused & 0xFF);
        }
        std::string out = static_cast<char*>(buffer) + SHOW_TEXT_OFFSET;
        EXPECT_LE(SHOW_TEXT_OFFSET + out.size() + 1, size);
        zekMC_M_sysFree(buffer);
        return out;
    }
    static std::string debug(const char* function, std::string_view args) {
        std::string out = "not there";
        EXPECT_TRUE(zekDebugRun(function, args, &out));
        return out;
    }
    // `ask` on threads of its own, without a pause, beside change(round): at least as many rounds
    // and questions as said, and so many questions between two changes. The thread sanitizer looks
    // on.
    static void askWhileChanging(int threads, uint32_t least, uint64_t askedBetween, auto ask,
                                 auto change) {
        std::atomic<bool> stop = false;
        std::atomic<uint64_t> asked = 0;
        std::vector<std::thread> askers;
        for (int i = 0; i < threads; i++)
            askers.emplace_back([&] {
                for (; !stop; asked++) ask();
            });
        for (uint32_t round = 0; round < least || asked < least; round++) {
            for (uint64_t from = asked; asked < from + askedBetween;) std::this_thread::yield();
            change(round);
            testTake();
        }
        stop = true;
        for (std::thread& asker : askers) asker.join();
    }
};

// --- the kinds of lists -------------------------------------------------------------------------

struct policyKind {
    const char *head, *clause;   // a list's header line, and the clause that names it
    const char *entry, *masked;  // its line, in both mask modes: '#' is its number, '@' its action
    const char *section, *headSync, *sync;  // of the configuration; how the feed calls its lines
    const char* trigger;
    uint32_t noList, exists, noEntry, listMemory, entryMemory;
    namedList* (*find)();
    int (*addTask)(uint32_t task, uint32_t instance, pairs given);  // null: route maps only
    int (*delTask)(uint32_t task, uint32_t instance, pairs given);

    bool isPrefix() const { return section[1] == '3'; }
    std::string line(uint32_t n, bool inverse = false) const {
        std::string out = inverse ? masked : entry;
        for (size_t at; (at = out.find('#')) != out.npos;) out.replace(at, 1, std::to_string(n));
        return out.replace(out.find('@'), 1, n % 2 != 0 ? "deny" : "permit");
    }
};
template <uint32_t af>
namedList* findPrefix() {
    return ipPrefixListFind(A, af);
}
template <uint32_t af>
int addPrefixTask(uint32_t task, uint32_t instance, pairs given) {
    return prefixAddTaskClient(task, instance, A, given, 9, af);
}
template <uint32_t af>
int delPrefixTask(uint32_t task, uint32_t instance, pairs given) {
    return prefixDelTaskClient(task, instance, A, given, af);
}
template <bgpList* (*find)(const listName&)>
namedList* findBgp() {
    return find(A);
}
inline const policyKind policyKinds[] = {
    {"ip as-path access-list A", " match as-path A", " @ _#_ ", " @ _#_ ", "80", "10", "10",
     "14464", ACL_E_ASPATH_NOLIST, ACL_E_ASPATH_EXISTS, ACL_E_ASPATH_NOENTRY, ACL_E_LIST_MEMORY,
     ACL_E_ASPATH_MEMORY, findBgp<bgpASPAccessListFind>,
     [](uint32_t t, uint32_t i, pairs p) { return aspAddTaskClient(t, i, A, 9, p); },
     [](uint32_t t, uint32_t i, pairs p) { return aspDelTaskClient(t, i, A, p); }},
    {"ip community-list A", " match community A", " @ 65000:#", " @ 65000:#", "81", "11", "11",
     "14465", ACL_E_COMM_NOLIST, ACL_E_COMM_EXISTS, ACL_E_COMM_NOENTRY, ACL_E_LIST_MEMORY,
     ACL_E_COMM_MEMORY, findBgp<bgpCommAccessListFind>,
     [](uint32_t t, uint32_t i, pairs) { return commAddTaskClient(t, i, A, 9); },
     [](uint32_t t, uint32_t i, pairs) { return commDelTaskClient(t, i, A); }},
    // An entry that is there already is answered as in a community list: meant.
    {"ip extcommunity-list A", " match extcommunity A", " @ rt 65000:# ", " @ rt 65000:# ", "82",
     "35", "35", "", ACL_E_EXTCOMM_NOLIST, ACL_E_COMM_EXISTS, ACL_E_EXTCOMM_NOENTRY,
     ACL_E_EXTCOMM_MEMORY, ACL_E_EXTCOMM_MEMORY, findBgp<bgpExtCommListFind>, nullptr, nullptr},
    {"ip prefix-list A", " match ip address prefix-list A", " seq # @ 10.0.#.0/24",
     " seq # @ 10.0.#.0 255.255.255.0", "83", "3", "15", "14468", ACL_E_PREFIX_NOLIST,
     ACL_E_PREFIX_EXISTS, ACL_E_PREFIX_NOENTRY, ACL_E_PREFIX_LIST_MEMORY, ACL_E_PREFIX_ENTRY_MEMORY,
     findPrefix<AF_IPV4>, addPrefixTask<AF_IPV4>, delPrefixTask<AF_IPV4>},
    {"ipv6 prefix-list A", " match ipv6 address prefix-list A", " seq # @ 2001:#::/32",
     " seq # @ 2001:#::/32", "83v6", "3", "80", "14468", ACL_E_PREFIX_NOLIST, ACL_E_PREFIX_EXISTS,
     ACL_E_PREFIX_NOENTRY, ACL_E_PREFIX_LIST_MEMORY, ACL_E_PREFIX_ENTRY_MEMORY, findPrefix<AF_IPV6>,
     addPrefixTask<AF_IPV6>, delPrefixTask<AF_IPV6>},
};
constexpr int POLICY_KINDS = 5;

// --- entries of AS-path and community lists, as a request has them ------------------------------

inline commEntryBlock communities(uint32_t action, const std::vector<uint32_t>& values) {
    commEntryBlock b{};
    b.action = action;
    b.kind = COMM_VALUES;
    b.count = static_cast<uint32_t>(values.size());
    for (size_t i = 0; i < values.size(); i++) {
        b.high[i] = values[i] >> 16;
        b.low[i] = values[i] & 0xFFFF;
    }
    return b;
}
inline extCommValue target(uint8_t type, uint32_t high, uint32_t low, uint8_t subtype = 2) {
    const bool wide = (type & 0x3F) != 0;
    uint64_t v = wide ? uint64_t{high} << 16 | low : uint64_t{high} << 32 | low;
    extCommValue out{{type, subtype}};
    for (size_t i = 0; i < 6; i++) out.b[2 + i] = static_cast<uint8_t>(v >> (40 - 8 * i));
    return out;
}
inline extCommEntryBlock targets(uint32_t action, const std::vector<extCommValue>& values,
                                 extCommSelector selector = EXTCOMM_RT) {
    extCommEntryBlock b{};
    b.action = action;
    b.kind = COMM_VALUES;
    b.body.selector = static_cast<uint32_t>(selector);
    b.body.count = static_cast<uint32_t>(values.size());
    std::ranges::copy(values, b.body.values);
    return b;
}
template <class Block>
Block expression(uint32_t action, const std::string& text) {
    Block b{};
    b.action = action;
    b.kind = COMM_REGEXP;
    if constexpr (requires { b.body; })
        text.copy(b.body.text, sizeof b.body.text);
    else
        text.copy(b.text, sizeof b.text);
    return b;
}
auto with(auto block, auto change) {
    change(block);
    return block;
}

// --- clauses ------------------------------------------------------------------------------------

constexpr uint16_t MATCH = RTMAP_MS_MATCH, MATCH6 = RTMAP_MS_V6_MATCH, SET = RTMAP_MS_SET,
                   SET6 = RTMAP_MS_V6_SET, CONTINUE = RTMAP_CONTINUE;

// A clause of instance 10, with one value of whatever kind.
inline rmapClauseBlock clause(uint16_t cls, uint32_t code, uint32_t number = 0,
                              const char* list = "") {
    rmapClauseBlock c{};
    c.cls = cls;
    c.code = code;
    c.seq = 10u;
    c.value = number;
    c.list = listNameMake(list);
    const rmapCodeRow* row = rmapCodeFind(code);
    c.kind = row != nullptr ? uint32_t{row->kind} : 0u;
    return c;
}

// Every clause with every form of its values, as a line of the configuration shows it but for the
// word "prefix-list" behind "address": the names are the table's, the values are those of its
// styles. What has a number for an interface is not typed.
inline rows clauseLines() {
    static const std::map<rmapStyle, rows> values = {
        {RMAP_STYLE_LIST, {" L"}},
        {RMAP_STYLE_PREFIX_LIST, {" prefix-list L"}},
        {RMAP_STYLE_LIST_EXACT, {" L exact"}},
        {RMAP_STYLE_LIST_DELETE, {" L delete"}},
        {RMAP_STYLE_NUMBER, {" 7", " 4294967295"}},
        {RMAP_STYLE_ADDRESS, {" 10.0.0.1"}},
        {RMAP_STYLE_METRIC, {" 5", " + 6", " - 7"}},
        {RMAP_STYLE_CONTINUE, {" 30", ""}},
        {RMAP_STYLE_FLAG, {" "}},
        {RMAP_STYLE_COMMUNITY,
         {" 65000:1 65000:2 local-AS no-advertise no-export additive none ", " 4259840001 "}},
        {RMAP_STYLE_EXTCOMMUNITY, {" rt 65000:1 additive ", " soo 192.0.2.1:7 "}},
        {RMAP_STYLE_PREPEND, {" 65000 65546 "}},
        {RMAP_STYLE_DAMPENING, {" 15 30 45 60"}},
        {RMAP_STYLE_IPV6, {" 2001::9"}}};
    rows out;
    for (const rmapCodeRow& row : rmapCodeTable) {
        const bool exact = row.style == RMAP_STYLE_LIST_EXACT;
        const std::string name = std::string(" ") + (exact ? "match community" : row.name);
        if (auto at = values.find(row.style); at != values.end())
            for (const std::string& value : at->second) out.push_back(name + value);
        for (uint32_t i = 0; i < row.words.count; i++)
            out.push_back(name + " " + row.words.first[i].word +
                          (row.style == RMAP_STYLE_WORD ? "" : " "));
    }
    return out;
}
