// What AS-path and community lists cost to evaluate, beside the obvious ways: POSIX expressions one
// by one, one RE2 set, a walk over the entries. Pin it to one core: taskset -c 0 bgp_match_bench
#include <re2/re2.h>
#include <re2/set.h>
#include <regex.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#include "bench/measure.h"
#include "common/node.h"
#include "match/zekBgp.h"
#include "platform/api/zekBgpRegex.h"

namespace {

void fail(const char* what) {
    std::fprintf(stderr, "bgp_match_bench: %s\n", what);
    std::exit(1);
}

constexpr char MISS[] = "64512 3356 1299 20940 15169";

// A list with its index, as the store keeps them.
struct handList {
    bgpList list{};
    std::vector<std::unique_ptr<bgpEntry>> expressions;
    std::vector<std::unique_ptr<commEntry>> values;

    explicit handList(bgpListKind kind) {
        list.kind = kind;
        list.index = bgpIndexMake();
    }
    handList(const handList&) = delete;
    handList& operator=(const handList&) = delete;
    ~handList() {
        bgpIndexFree(list.index);
        for (auto& entry : expressions) zekbgp_regex_free(entry->regex);
    }
    void link(bgpEntry* entry) {
        entry->id = ++list.lastEntryId;
        entry->prev = list.tail;
        (list.tail != nullptr ? list.tail->next : list.head) = entry;
        list.tail = entry;
        if (!bgpIndexAdd(list.index, list.kind, entry)) fail("no memory");
    }
    void add(const std::string& expression) {
        expressions.push_back(std::make_unique<bgpEntry>());
        bgpEntry* entry = expressions.back().get();
        entry->kind = COMM_REGEXP;
        entry->regex = zekbgp_regcomp(expression);
        if (entry->regex == nullptr) fail("an expression is refused");
        link(entry);
    }
    void add(uint32_t community) {
        values.push_back(std::make_unique<commEntry>());
        commEntry* entry = values.back().get();
        entry->kind = COMM_VALUES;
        entry->block.kind = static_cast<uint32_t>(COMM_VALUES);
        entry->block.count = 1u;
        entry->block.high[0] = community >> 16;
        entry->block.low[0] = community & 0xFFFF;
        link(entry);
    }
};

// Seconds of one call, of many texts in turn.
template <class Work>
double perCall(int calls, Work work) {
    return benchRounds(9,
                       [&] {
                           for (int i = 0; i < calls; i++) work(i);
                       }) /
           calls;
}

double posixMiss(int count) {
    std::vector<regex_t> regexes(static_cast<size_t>(count));
    int i = 0;
    for (regex_t& regex : regexes) {
        const std::string text = "(^| )" + std::to_string(100000 + i++) + "( |$)";
        if (regcomp(&regex, text.c_str(), REG_EXTENDED | REG_NOSUB) != 0) fail("regcomp");
    }
    int found = 0;
    double seconds = perCall(20000 / count + 1, [&](int) {
        for (regex_t& regex : regexes) found += regexec(&regex, MISS, 0, nullptr, 0) == 0;
    });
    if (found != 0) fail("a miss matches");
    for (regex_t& regex : regexes) regfree(&regex);
    return seconds;
}

std::vector<std::string> missingPaths() {
    std::vector<std::string> paths;
    std::mt19937 random(1);
    for (int i = 0; i < 2000; i++)
        paths.push_back("64512 3356 1299 " + std::to_string(20000 + random() % 40000) + " 15169");
    return paths;
}

double setMiss(int count, const std::vector<std::string>& paths) {
    re2::RE2::Options options;
    options.set_max_mem(256 << 20);
    re2::RE2::Set set(options, re2::RE2::UNANCHORED);
    for (int i = 0; i < count; i++)
        set.Add("(^| )" + std::to_string(100000 + i) + "( |$)", nullptr);
    if (!set.Compile()) fail("the reference set");
    std::vector<int> matched;
    for (const std::string& path : paths) set.Match(path, &matched);
    return perCall(20000, [&](int i) {
        if (set.Match(paths[static_cast<size_t>(i) % paths.size()], &matched)) fail("a miss");
    });
}

void aspathFigures() {
    const std::vector<std::string> paths = missingPaths();
    double ten = 0;
    for (int count : {10, 100, 1000, 10000}) {
        const std::string at = "." + std::to_string(count);
        handList lists(BGP_ASPATH);
        const double compile = benchRounds(1, [&] {
            for (int i = 0; i < count; i++) lists.add("_" + std::to_string(100000 + i) + "_");
        });
        benchOut("aspath.compile, an expression" + at, compile / count * 1e6, "us");
        const double firsts = benchRounds(1, [&] {
            for (int i = 0; i < 100; i++) (void)aspathListCheck(&lists.list, MISS, nullptr);
        });
        benchOut("aspath.first 100 checks after a change" + at, firsts * 1e3, "ms");
        const bgpEntry* decided = nullptr;
        for (const std::string& path : paths)
            if (aspathListCheck(&lists.list, path, &decided) != 1 || decided != nullptr)
                fail("a miss matches");
        const double miss = perCall(20000, [&](int i) {
            (void)aspathListCheck(&lists.list, paths[static_cast<size_t>(i) % paths.size()],
                                  nullptr);
        });
        const double walk = perCall(20000 / count + 1, [&](int) {
            for (const auto& entry : lists.expressions)
                if (zekbgp_regexec(entry->regex, MISS)) fail("a miss matches");
        });
        const std::string last = "1 " + std::to_string(100000 + count - 1) + " 2";
        const double hit =
            perCall(20000, [&](int) { (void)aspathListCheck(&lists.list, last, nullptr); });
        const double set = setMiss(count, paths);
        benchOut("ref.re2set.match" + at, set * 1e9, "ns");
        benchOut("aspath.walk, nothing matches" + at, walk * 1e9, "ns");
        benchOut("aspath.check, nothing matches" + at, miss * 1e9, "ns");
        benchOut("aspath.check, the last one matches" + at, hit * 1e9, "ns");
        benchRatio("aspath.check / ref.re2set.match" + at, miss / set, 5);
        if (count == 10) ten = miss;
        if (count == 1000) benchRatio("aspath.check.1000 / aspath.check.10", miss / ten, 10);
        if (count == 100 || count == 1000) {
            const double posix = posixMiss(count);
            benchOut("ref.regex.posix_miss" + at, posix * 1e9, "ns");
            benchRatio("aspath.check / ref.regex.posix_miss" + at, miss / posix,
                       count == 100 ? 0.2 : 0.05);
        }
    }
}

void communityFigures() {
    for (uint32_t count : {100u, 1000u, 10000u}) {
        const std::string at = "." + std::to_string(count);
        handList lists(BGP_COMM);
        for (uint32_t i = 0; i < count; i++) lists.add(64000u << 16 | i);
        const uint32_t absent[] = {1u << 16 | 1, 2u << 16 | 2, 3u << 16 | 3, 64001u << 16};
        uint32_t last[] = {1u << 16 | 1, 2u << 16 | 2, 3u << 16 | 3, 64000u << 16 | (count - 1)};
        const bgpEntry* decided = nullptr;
        if (commListCheck(&lists.list, absent, false, &decided) != 1 || decided != nullptr)
            fail("a miss matches");
        if (commListCheck(&lists.list, last, false, &decided) != 0 || decided != lists.list.tail)
            fail("the last entry does not match");
        const double miss =
            perCall(20000, [&](int) { (void)commListCheck(&lists.list, absent, false, nullptr); });
        const double hit =
            perCall(20000, [&](int) { (void)commListCheck(&lists.list, last, false, nullptr); });
        const double walk = perCall(static_cast<int>(200000 / count), [&](int) {
            for (const bgpEntry* entry = lists.list.head; entry != nullptr; entry = entry->next) {
                commValues wanted =
                    bgpEntryCommunities(static_cast<const commEntry*>(entry)->block);
                if (std::ranges::find(absent, wanted.values[0]) != std::ranges::end(absent))
                    fail("a miss matches");
            }
        });
        benchOut("community.walk, nothing matches" + at, walk * 1e9, "ns");
        benchOut("community.check, nothing matches" + at, miss * 1e9, "ns");
        benchOut("community.check, the last one matches" + at, hit * 1e9, "ns");
    }
}

}  // namespace

int main() {
    aspathFigures();
    communityFigures();
}
