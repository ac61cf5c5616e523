// Downloads into an agent's tables.
#include "chassis/agent/tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/agent/messages.h"

namespace {

constexpr uint32_t PORT = 0x04040001, OTHER_PORT = 0x04080002, THIRD = 0x040C0003;
constexpr agentVerdict APPLIED = agentVerdict::applied, ABSENT = agentVerdict::absent,
                       REFUSED = agentVerdict::refused, PENDING = agentVerdict::pending;

// A list as text: "L@p 1 2=9;" is list L with entries 1 and 2 on the first port, "M@o> 3;" list M
// with entry 3 on the second one, outbound. "-": no interface. Entries whose source address is not
// their number show it.
typedef std::map<uint32_t, uint32_t> sources;
std::string listText(const std::string& name, uint32_t ifindex, uint32_t direction,
                     const sources& of) {
    const char* port = ifindex == PORT ? "@p" : ifindex == OTHER_PORT ? "@o" : "@q";
    std::string text = name + (ifindex == 0 ? "@-" : port) + (direction != 0 ? ">" : "");
    for (const auto& [key, source] : of)
        text += " " + std::to_string(key) + (source == key ? "" : "=" + std::to_string(source));
    return text + ";";
}
// The source address; of a MAC list's entry the last four bytes of the source's.
uint32_t sourceOf(const agentRule& r) {
    if (r.family != ruleFamily::mac) return r.src.value[0];
    const auto& b = r.layer2.src.address;
    return get32(bytes(b.begin() + 2, b.end()), 0);
}
// All that is installed, in order of the places.
std::string installedText(const agentTables& t) {
    std::string out;
    t.plane.walk(t.plane.inForce, [&](const dpList& l) {
        sources of;
        for (const auto& [key, entry] : l.entries) of[key] = sourceOf(entry.rule);
        out += listText(std::string(listNameView(l.name)), l.ifindex, l.place.direction, of);
        return true;
    });
    return out;
}

// Entries by their numbers; of lists whose entries have none, by their sources.
bool isNumbered(uint32_t id) {
    for (auto [first, last] :
         {std::pair{14413u, 14415u}, {14490, 14494}, {14530, 14532}, {14541, 14544}})
        if (id >= first && id <= last) return false;
    return true;
}
std::vector<bytes> entries(uint32_t id, const std::vector<uint32_t>& numbers) {
    std::vector<bytes> out;
    for (uint32_t n : numbers) out.push_back(entryOf(id, isNumbered(id) ? n : 0, n));
    return out;
}
std::vector<uint32_t> upTo(uint32_t last, uint32_t first = 1) {
    std::vector<uint32_t> numbers;
    for (; first <= last; first++) numbers.push_back(first);
    return numbers;
}

bytes with(bytes m, size_t at, size_t word) {
    put32(m, at, static_cast<uint32_t>(word));
    return m;
}

// A message, what becomes of it and what is installed then.
struct sent {
    uint32_t id;
    const char* name;
    uint32_t port;
    std::vector<uint32_t> numbers;
    agentVerdict verdict;
    const char* after;
    uint8_t group = 0;
};

struct Tables : testing::Test {
    agentTables t;
    Tables() { t.plane = memplaneCreate(); }
    ~Tables() override { memplaneDestroy(&t.plane); }

    agentVerdict send(const bytes& m) { return agentTablesApply(&t, m); }
    // Lists come in chunks of two; nothing changes before the last one.
    agentVerdict send(uint32_t id, const std::string& name, uint32_t port,
                      const std::vector<uint32_t>& numbers = {}, uint8_t group = 0) {
        bool list =
            id == 14409 || id == 14413 || id == 14416 || id == 14484 || id == 14530 || id == 14533;
        auto parts = chunks({id, name, port, entries(id, numbers), 0, -1, group}, list ? 2 : 100);
        std::string before = installedText(t);
        for (size_t i = 0; i + 1 < parts.size(); i++) {
            if (send(parts[i]) != PENDING) return REFUSED;
            EXPECT_EQ(installedText(t), before);
        }
        return send(parts.back());
    }
    void play(const std::vector<sent>& rows) {
        for (const sent& r : rows) {
            SCOPED_TRACE(std::to_string(r.id) + ", then " + r.after);
            EXPECT_EQ(send(r.id, r.name, r.port, r.numbers, r.group), r.verdict) << t.lastError;
            EXPECT_EQ(installedText(t), r.after);
        }
    }
    // A replay of nothing, and then one list.
    void startOver() {
        agentTablesReplayBegin(&t);
        (void)agentTablesReplayEnd(&t);
        EXPECT_EQ(installedText(t), "");
        EXPECT_EQ(send(14409, "L", PORT, {900}), APPLIED);
    }
    uint64_t refused(agentRefusal why) const { return t.refused[static_cast<size_t>(why)]; }
    // Entries in force: each has a blank before it.
    auto count() const { return std::ranges::count(installedText(t), ' '); }
};

TEST_F(Tables, PlacesAreApart) {
    play({
        {14409, "L", PORT, {1}, APPLIED, "L@p 1;"},
        {14416, "L", PORT, {2}, APPLIED, "L@p 1;L@p> 2;"},
        {14409, "L", OTHER_PORT, {3}, APPLIED, "L@p 1;L@o 3;L@p> 2;"},
        {14533, "L", PORT, {4}, APPLIED, "L@p 1;L@o 3;L@p> 2;L@p 4;"},
        // VLAN groups.
        {14416, "L", 0, {5}, APPLIED, "L@p 1;L@o 3;L@-> 5;L@p> 2;L@p 4;", 3},
        {14416, "L", 0, {6}, APPLIED, "L@p 1;L@o 3;L@-> 5;L@-> 6;L@p> 2;L@p 4;", 4},
        // Another list on the same interface and direction takes the place.
        {14409, "M", PORT, {9}, APPLIED, "M@p 9;L@o 3;L@-> 5;L@-> 6;L@p> 2;L@p 4;"},
        {14484, "L", PORT, {7}, APPLIED, "M@p 9;L@o 3;L@-> 5;L@-> 6;L@p> 2;L@p 4;L@p 7;"},
        {14541, "L", PORT, {8}, APPLIED, "M@p 9;L@o 3;L@-> 5;L@-> 6;L@p> 2;L@p 4;L@p 7;L@p 1=8;"},
        {14417, "L", 0, {7}, APPLIED, "M@p 9;L@o 3;L@-> 5;L@-> 6 7;L@p> 2;L@p 4;L@p 7;L@p 1=8;", 4},
        {14419, "L", 0, {}, APPLIED, "M@p 9;L@o 3;L@-> 6 7;L@p> 2;L@p 4;L@p 7;L@p 1=8;", 3},
    });
    // Groups are for IPv4 lists on their way out.
    for (uint32_t id : {14409u, 14533u, 14537u, 14413u, 14541u})
        EXPECT_EQ(send(id, "L", 0, {1}, 3), REFUSED) << id;
}

// Pairs of addresses that may send, and how many addresses may: entries without numbers, kept for
// an interface and, of limits, a name.
TEST_F(Tables, ListsOfAddressesAndOfLimits) {
    play({
        {14541, "G", PORT, {5, 3}, APPLIED, "G@p 1=5 2=3;"},
        {14543, "G", PORT, {7}, APPLIED, "G@p 1=5 2=3 3=7;"},
        {14543, "G", PORT, {3}, APPLIED, "G@p 1=5 2=3 3=7;"},
        {14544, "G", PORT, {3}, APPLIED, "G@p 1=5 3=7;"},
        {14544, "G", PORT, {3}, ABSENT, "G@p 1=5 3=7;"},
        {14544, "G", PORT, {}, REFUSED, "G@p 1=5 3=7;"},
        {14542, "G", OTHER_PORT, {}, ABSENT, "G@p 1=5 3=7;"},
        {14542, "G", PORT, {}, APPLIED, ""},
        {14490, "A", PORT, {}, APPLIED, "A@p;"},
        {14490, "B", PORT, {}, APPLIED, "A@p;B@p;"},
        {14491, "A", PORT, {4, 5}, APPLIED, "A@p 1=4 2=5;B@p;"},
        {14492, "A", PORT, {4}, APPLIED, "A@p 2=5;B@p;"},
        {14492, "A", PORT, {}, REFUSED, "A@p 2=5;B@p;"},
        {14491, "A", PORT, {6}, APPLIED, "A@p 2=5 3=6;B@p;"},
        {14493, "A", PORT, {9}, APPLIED, "A@p;B@p;"},
        {14493, "C", PORT, {}, ABSENT, "A@p;B@p;"},
        {14490, "A", PORT, {1}, REFUSED, "A@p;B@p;"},
        {14494, "A", PORT, {1, 2}, APPLIED, "B@p;"},
    });
    EXPECT_EQ(send(with(bytes(131), 12, 14495)), REFUSED);
    EXPECT_EQ(send(with(bytes(132), 12, 14495)), APPLIED);
    EXPECT_EQ(t.protocolFilters, 1u);
}

// System lists of both families: entries have no numbers, several lists share an interface, one
// message carries many.
TEST_F(Tables, SystemEntriesAreKnownByTheirContent) {
    const struct {
        uint32_t list, add, del;
        // Of an entry's image: what belongs to the entry, its number, and the second half.
        std::pair<size_t, size_t> entry, number, copy;
    } families[] = {{14413, 14414, 14415, {4, 392}, {4, 8}, {204, 348}},
                    {14530, 14531, 14532, {8, 124}, {92, 96}, {0, 0}}};
    for (const auto& f : families) {
        SCOPED_TRACE(f.list);
        agentTablesReplayBegin(&t);
        (void)agentTablesReplayEnd(&t);
        play({
            {f.list, "S", PORT, {1}, APPLIED, "S@p 1;"},
            {f.add, "S", PORT, {2, 3}, APPLIED, "S@p 1 2 3;"},
            {f.add, "S", PORT, {2}, APPLIED, "S@p 1 2 3;"},             // no twin
            {f.add, "T", PORT, {9, 9}, APPLIED, "S@p 1 2 3;T@p 1=9;"},  // nor in one message
            {f.add, "S", OTHER_PORT, {2}, APPLIED, "S@p 1 2 3;T@p 1=9;S@o 1=2;"},
            {f.del, "S", PORT, {3, 1}, APPLIED, "S@p 2;T@p 1=9;S@o 1=2;"},
            {f.del, "S", PORT, {1}, ABSENT, "S@p 2;T@p 1=9;S@o 1=2;"},
            {f.del, "S", OTHER_PORT, {}, APPLIED, "S@p 2;T@p 1=9;"},  // the list
            {f.add, "S", PORT, {}, REFUSED, "S@p 2;T@p 1=9;"},
        });
        // The number that it comes with says nothing; every other byte does, used or not.
        auto in = [](size_t at, std::pair<size_t, size_t> range) {
            return at >= range.first && at < range.second;
        };
        for (size_t at = f.entry.first; at < f.entry.second; at++) {
            bytes e = entryOf(f.list, 0, 2);
            e[at] ^= 0x40;
            if (in(at + 148, f.copy)) e[at + 148] ^= 0x40;
            if (in(at, f.copy)) continue;
            const bool number = in(at, f.number);
            ASSERT_EQ(send(build({number ? f.add : f.del, "S", PORT, {e}})),
                      number ? APPLIED : ABSENT)
                << at;
        }
        EXPECT_EQ(installedText(t), "S@p 2;T@p 1=9;");
        // More system entries than fit one message; their chunks keep the id.
        auto parts = chunks({f.add, "T", PORT, entries(f.add, upTo(20))});
        EXPECT_EQ(send(parts[0]), PENDING);
        EXPECT_EQ(send(parts[1]), APPLIED);
        EXPECT_EQ(count(), 21);  // source 9 was there
    }
}

TEST_F(Tables, EgressMacListsAreInForceWhenTheCardIsTold) {
    auto told = [](uint32_t word, size_t length = HEADER + 4) {
        bytes m(length);
        put32(m, 12, 30004);
        if (length >= HEADER + 4) put32(m, HEADER, word);
        return m;
    };
    EXPECT_FALSE(t.macEgress);
    EXPECT_EQ(send(told(1)), APPLIED);
    for (const bytes& bad : {told(2), told(0, HEADER + 3), told(0, HEADER + 5), told(0, 60)})
        EXPECT_EQ(send(bad), REFUSED);
    EXPECT_TRUE(t.macEgress);
    EXPECT_EQ(send(told(0)), APPLIED);
    EXPECT_FALSE(t.macEgress);
}

// Lies, and chunks in every wrong order: counted under their reason. What was installed stays, and
// the next good message is taken.
TEST_F(Tables, WhatIsRefusedIsCountedAndChangesNothing) {
    typedef agentRefusal why;
    auto of = [](uint32_t id, const std::vector<uint32_t>& numbers, const char* name = "L",
                 uint32_t port = PORT) {
        return chunks({id, name, port, entries(id, numbers)});
    };
    auto parts = of(14409, upTo(40)), good = of(14409, {1, 2}), half = good;
    half[0].resize(half[0].size() - 196);
    half[0] = with(with(half[0], 8, half[0].size()), 128, half[0].size() - HEADER);
    auto mac = of(14484, {1, 2});
    const size_t first = HEADER + LIST_HEADER, second = first + ENTRY4;
    const size_t firstMac = HEADER + LIST_HEADER_MAC;
    const struct {
        agentRefusal reason;
        std::vector<bytes> messages;
    } rows[] = {
        {why::length, {with(good[0], 8, 0xFFFFFFFF)}},
        {why::bodyLength, {with(good[0], 128, 1056)}},
        {why::count, {with(good[0], HEADER + 312, 3)}},
        {why::count, {with(good[0], HEADER + 312, 1)}},
        {why::count, {with(good[0], 124, 1)}},  // more follows, but the whole list has come
        {why::count, half},
        {why::halves, {with(good[0], second + 204, 7)}},  // first and last word
        {why::halves, {with(good[0], first + 196, 7)}},
        {why::halves, {with(mac[0], firstMac + 8, 0)}},  // and of the MAC body
        {why::halves, {with(mac[0], firstMac + 116, 7)}},
        {why::name, {with(mac[0], HEADER + 16, 0)}},
        {why::count, {with(mac[0], HEADER + 180, 3)}},
        {why::name, {with(good[0], HEADER + 168, 0)}},
        {why::name, {with(good[0], HEADER + 908, 9u << 24)}},  // VLAN group
        {why::number, of(14409, {5, 5})},
        {why::order, of(14410, {1, 2})},
        {why::count, of(14411, {1, 2})},
        {why::count, of(14411, {})},
        {why::count, of(14412, {5})},
        {why::order, {parts[1]}},
        {why::order, {parts[2]}},
        {why::count, {parts[0], parts[2]}},
        {why::count, {parts[0], parts[1], parts[1]}},
        // Of another list, interface, direction.
        {why::order, {parts[0], of(14409, upTo(40), "M")[1]}},
        {why::order, {parts[0], of(14409, upTo(40), "L", OTHER_PORT)[1]}},
        {why::order, {parts[0], of(14416, upTo(40))[1]}},
        {why::count, {parts[0], with(parts[1], HEADER + 312, 30)}},  // another total
        {why::order, {with(parts[0], 124, 2)}},                      // neither more nor not
        {why::length, {parts[0], bytes(parts[1].begin(), parts[1].end() - 1)}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        startOver();
        uint64_t before = refused(r.reason);
        for (const bytes& m : r.messages) EXPECT_NE(send(m), APPLIED);
        EXPECT_EQ(refused(r.reason),
                  before + (r.messages[0] == parts[0] && r.reason == why::order) + 1);
        EXPECT_EQ(t.lastError.find("message 144"), 0u);
        play({{14410, "L", PORT, {901}, APPLIED, "L@p 900 901;"}});
        for (const bytes& m : parts) send(m);
        EXPECT_EQ(count(), 40);
    }
    EXPECT_EQ(send(with(good[0], 12, 14475)), agentVerdict::notKept);
}

constexpr uint32_t listIds[] = {14409, 14413, 14420, 14484, 14496, 14533, 14541};

TEST_F(Tables, MessagesCutAtEveryLengthChangeNothing) {
    for (uint32_t id : listIds) {
        bytes whole = build({id, "L", PORT, entries(id, upTo(3))});
        for (size_t n = 0; n < whole.size(); n++) {
            bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(n));
            ASSERT_EQ(send(cut), REFUSED) << n;
            if (n < HEADER) continue;
            // The same with length words that fit the cut.
            put32(cut, 8, static_cast<uint32_t>(n));
            put32(cut, 128, static_cast<uint32_t>(n - HEADER));
            ASSERT_EQ(send(cut), REFUSED) << n;
        }
        EXPECT_EQ(send(whole), APPLIED);
    }
}

// Random bytes over a good message: anything may be refused, nothing may break or be half applied.
TEST_F(Tables, DamagedMessagesAreTakenWholeOrNotAtAll) {
    std::mt19937 engine(7);
    auto random = [&engine] { return static_cast<uint32_t>(engine()); };
    const std::pair<uint32_t, uint32_t> pairs[] = {{1, 5}, {2, 6}, {3, 7}, {4, 8}};
    for (int round = 0; round < 40000; round++) {
        const uint32_t id = listIds[random() % std::size(listIds)];
        const bool renumbers = random() % 4 == 0;
        agentTablesReplayBegin(&t);
        (void)agentTablesReplayEnd(&t);
        bytes m = build({id, "L", PORT, entries(id, upTo(4))});
        if (renumbers) {
            ASSERT_EQ(send(m), APPLIED);
            m = bundle("L", random() % 3, 4, pairs);
        }
        const std::string before = installedText(t);
        for (uint32_t flips = 1 + random() % 4; flips > 0; flips--)
            m[random() % (random() % 2 ? m.size() : 480)] = static_cast<uint8_t>(random());
        if (!renumbers) put32(m, 12, id + random() % 16);
        const bool applied = send(m) == APPLIED;
        ASSERT_TRUE(applied || installedText(t) == before);
        // The message may have become one without entries.
        const bool none = get32(m, 12) == 14490 || get32(m, 12) == 14495;
        ASSERT_TRUE(!applied || none || count() >= 4) << get32(m, 12);
    }
}

// Random changes of lists and entries of every family, against maps from place and number to source
// address.
TEST_F(Tables, FollowsARandomSenderLikeAMap) {
    std::mt19937 engine(11);
    auto random = [&engine](uint32_t below) { return static_cast<uint32_t>(engine()) % below; };
    enum { LIST, ADD, DELETE, DELETE_LIST, OUT };
    constexpr uint32_t families[][5] = {
        {14409, 14410, 14411, 14412, 0}, {14416, 14417, 14418, 14419, 1},
        {14533, 14534, 14535, 14536, 0}, {14537, 14538, 14539, 14540, 1},
        {14420, 14421, 14423, 14422, 0}, {14484, 14485, 14487, 14486, 0},
        {14496, 14497, 14499, 14498, 1}};
    constexpr uint32_t DOS = 4;  // several lists in one place
    typedef std::tuple<uint32_t, uint32_t, std::string> place;
    std::map<place, std::pair<std::string, sources>> lists;
    const uint32_t ports[] = {PORT, OTHER_PORT, THIRD};
    uint64_t misplaced = 0;
    for (int round = 0; round < 8000; round++) {
        const uint32_t family = random(std::size(families)), *ids = families[family];
        const uint32_t port = ports[family == DOS ? 0 : random(3)];
        const uint32_t seq = random(60), src = random(1u << 31), what = random(8);
        const std::string name = random(4) == 0 ? "M" : "L";
        const place at{family, port, family == DOS ? name : ""};
        auto made = [&](uint32_t n, uint32_t from) { return entryOf(ids[LIST], n, from); };
        auto there = lists.find(at);
        sources* same =
            there != lists.end() && there->second.first == name ? &there->second.second : nullptr;
        if (what == 0) {
            listMessage l{ids[LIST], name, port, {}};
            sources fresh;
            for (uint32_t n = random(50), s = 0; n > 0; n--) {
                s += 1 + random(3);
                l.entries.push_back(made(s, src + n));
                fresh[s] = src + n;
            }
            auto parts = chunks(l);
            const bool cut = random(4) == 0 && parts.size() > 1;
            if (cut) parts.pop_back();
            for (const bytes& m : parts)
                ASSERT_EQ(send(m), !cut && &m == &parts.back() ? APPLIED : PENDING);
            if (!cut) lists[at] = {name, fresh};
            // In place of the rest something else comes.
            EXPECT_TRUE(!cut || send(ids[DELETE_LIST], "X", port) == ABSENT);
        } else if (what == 1) {
            ASSERT_EQ(send(ids[DELETE_LIST], name, port), same != nullptr ? APPLIED : ABSENT);
            if (same != nullptr) lists.erase(there);
        } else if (what <= 3) {
            const bool held = same != nullptr && same->erase(seq) != 0;
            ASSERT_EQ(send(build({ids[DELETE], name, port, {made(seq, 0)}})),
                      held ? APPLIED : ABSENT);
        } else {
            ASSERT_EQ(send(build({ids[ADD], name, port, {made(seq, src)}})),
                      same != nullptr ? APPLIED : REFUSED);
            if (same != nullptr) (*same)[seq] = src;
            misplaced += same == nullptr;
        }
        std::string expected;
        for (const auto& [where, l] : lists) {
            const uint32_t out = families[std::get<0>(where)][OUT];
            expected += listText(l.first, std::get<1>(where), out, l.second);
        }
        ASSERT_EQ(installedText(t), expected) << "round " << round;
    }
    EXPECT_EQ(refused(agentRefusal::list), misplaced);
    EXPECT_GT(refused(agentRefusal::order), 0u);
}

// What is in force stays until the replay has ended; then it is what the replay brought, to the
// entry. One that does not end changes nothing.
TEST_F(Tables, AReplayIsExchangedWhenItHasEnded) {
    send(14409, "L", PORT, {1, 2});
    send(14409, "L", OTHER_PORT, {5});
    send(14413, "S", PORT, {1});
    const char* before = "L@p 1 2;L@o 5;S@p 1;";
    auto parts = chunks({14409, "L", PORT, entries(14409, upTo(40))});
    auto replay = [&] {
        agentTablesReplayBegin(&t);
        play({{14409, "L", PORT, {1, 2}, APPLIED, before},
              {14410, "L", PORT, {3}, APPLIED, before},  // changes of what is in force, too
              {14411, "L", PORT, {2}, APPLIED, before},
              {14414, "S", PORT, {2}, APPLIED, before},  // never what was there before
              {14410, "L", OTHER_PORT, {6}, REFUSED, before},
              {14412, "L", OTHER_PORT, {}, ABSENT, before}});
    };
    replay();
    send(parts[0]);
    agentTablesReplayDrop(&t);
    EXPECT_EQ(send(parts[1]), REFUSED);
    EXPECT_EQ(installedText(t), before);
    replay();
    // Of this one an entry was refused: what it did not bring stays.
    EXPECT_FALSE(agentTablesReplayEnd(&t));
    EXPECT_EQ(installedText(t), "L@p 1 3;L@o 5;S@p 1=2;");
    agentTablesReplayBegin(&t);
    send(14409, "L", PORT, {1, 2});
    // The process ends, and its data plane outlives it: what that holds stays in force for the
    // next.
    agentTables next;
    next.plane = t.plane;
    agentTablesReplayBegin(&next);
    agentTablesApply(&next, parts[0]);  // not sent to its end
    EXPECT_FALSE(agentTablesReplayEnd(&next));
    EXPECT_EQ(installedText(next), "L@p 1 3;L@o 5;S@p 1=2;");
    agentTablesReplayBegin(&next);
    agentTablesApply(&next, build({14409, "L", PORT, {entry4(1, 1)}}));
    EXPECT_TRUE(agentTablesReplayEnd(&next));
    agentTablesReplayBegin(&next);
    bytes spare = entry4(1, 1);  // the same but for a byte that no rule has
    spare[30] = 1;
    agentTablesApply(&next, build({14409, "L", PORT, {spare}}));
    agentTablesApply(&next, build({14409, "L", OTHER_PORT, {entry4(5, 9)}}));
    EXPECT_TRUE(agentTablesReplayEnd(&next));
    EXPECT_EQ(installedText(next), "L@p 1;L@o 5=9;");
    const dpList* held = t.plane.find(t.plane.inForce, dpPlaceMake(AGENT_LIST_IP4, 0, PORT, 0, {}));
    EXPECT_EQ(held->entries.at(1).content, agentHash(std::span(spare).subspan(8)));
}

// Room for 13 entries and lists. What a replay brings unchanged needs none; what does not fit
// beside the old lists comes into force list by list; what does not fit at all is refused and takes
// nothing away.
TEST_F(Tables, AReplayWithoutRoomForBoth) {
    memplaneDestroy(&t.plane);
    t.plane = memplaneCreate(13);
    send(14409, "L", PORT, upTo(4));
    send(14409, "L", OTHER_PORT, upTo(4));
    const char* mixed = "L@p 1 2 3;L@o 1 2 3 4 5;L@q 1;";
    const struct {
        uint32_t first, other, last, byLists;  // entries at each port; 0: not in the replay
        bool whole;
        const char* end;
    } rows[] = {
        {4, 4, 2, 0, true, "L@p 1 2 3 4;L@o 1 2 3 4;L@q 1 2;"},
        {3, 5, 0, 1, true, "L@p 1 2 3;L@o 1 2 3 4 5;"},
        {3, 9, 1, 2, false, mixed},
        {0, 14, 0, 2, false, mixed},
        {0, 10, 0, 3, false, mixed},
        {0, 0, 10, 4, false, mixed},
        {0, 0, 0, 4, true, ""},
        {0, 12, 0, 5, true, "L@o 1 2 3 4 5 6 7 8 9 10 11 12;"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        agentTablesReplayBegin(&t);
        const std::pair<uint32_t, uint32_t> lists[] = {
            {PORT, r.first}, {OTHER_PORT, r.other}, {THIRD, r.last}};
        for (const auto& [port, n] : lists)
            if (n != 0) send(14409, "L", port, upTo(n));
        EXPECT_EQ(agentTablesReplayEnd(&t), r.whole) << t.lastError;
        EXPECT_EQ(installedText(t), r.end);
        EXPECT_EQ(t.byLists, r.byLists);
    }
    play({{14410, "L", OTHER_PORT, {13}, REFUSED, "L@o 1 2 3 4 5 6 7 8 9 10 11 12;"},
          {14410, "L", OTHER_PORT, {10}, APPLIED, "L@o 1 2 3 4 5 6 7 8 9 10 11 12;"},
          {14411, "L", OTHER_PORT, {9}, APPLIED, "L@o 1 2 3 4 5 6 7 8 10 11 12;"},
          {14410, "L", OTHER_PORT, {13}, APPLIED, "L@o 1 2 3 4 5 6 7 8 10 11 12 13;"}});
    // Shared with the staged set, then changed there: a copy, for which there is no room.
    agentTablesReplayBegin(&t);
    EXPECT_EQ(send(14409, "L", OTHER_PORT, {1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 12, 13}), APPLIED);
    EXPECT_EQ(t.replay, agentReplay::beside);
    EXPECT_EQ(send(14411, "L", OTHER_PORT, {1}), APPLIED);
    EXPECT_EQ(t.replay, agentReplay::byList);
    EXPECT_TRUE(agentTablesReplayEnd(&t));
    EXPECT_EQ(installedText(t), "L@o 2 3 4 5 6 7 8 10 11 12 13;");
}

// Renumberings against a model: any list in any places, any numbers, in bundles of any sizes. The
// entries keep what they have counted, and their hashes are those of entries that came so.
TEST_F(Tables, ARenumberingChangesNumbersAndNothingElse) {
    std::mt19937 engine(5);
    auto random = [&engine](uint32_t below) { return static_cast<uint32_t>(engine()) % below; };
    struct {
        uint32_t family, in, out;
    } const rows[] = {{0, 14409, 14416}, {1, 14533, 14537}, {2, 14484, 14496}};
    for (int round = 0; round < 60; round++) {
        const auto& row = rows[random(3)];
        memplaneDestroy(&t.plane);
        t.plane = memplaneCreate();
        std::map<uint32_t, uint32_t> from, to;  // number to source
        while (from.size() < 1 + (round % 10 == 0 ? 2500u : random(40)))
            from[random(1u << (6 + random(26)))] = static_cast<uint32_t>(from.size()) + 1;
        std::vector<std::pair<uint32_t, uint32_t>> pairs;
        for (const auto& [number, source] : from) {
            uint32_t next = random(4) == 0 ? number : random(0x7FFFFFFF);
            while (to.contains(next)) next++;
            to[next] = source;
            pairs.emplace_back(number, next);
        }
        auto images = [&row](const auto& numbers) {
            std::vector<bytes> out;
            for (const auto& [n, source] : numbers) out.push_back(entryOf(row.in, n, source));
            return out;
        };
        auto install = [&](const char* name, uint32_t id, uint32_t port, const auto& numbers) {
            for (const bytes& m : chunks({id, name, port, images(numbers)})) send(m);
        };
        install("L", row.in, PORT, from);
        install("L", row.out, PORT, from);
        install("L", row.in, OTHER_PORT, from);
        install("M", row.in, THIRD, from);                          // another list,
        install("L", row.family == 0 ? 14484 : 14409, PORT, from);  // and another family's
        auto lists = [this] {
            std::vector<dpList*> all;
            t.plane.walk(t.plane.inForce, [&](const dpList& l) {
                return all.push_back(const_cast<dpList*>(&l)), true;
            });
            return all;
        };
        for (dpList* l : lists())
            for (auto& [key, e] : l->entries) e.packets = 7 * sourceOf(e.rule) + l->ifindex;
        std::shuffle(pairs.begin(), pairs.end(), engine);
        const std::string before = installedText(t);
        for (auto rest = std::span(pairs); !rest.empty();) {
            EXPECT_EQ(installedText(t), before);
            const size_t some = std::min<size_t>(rest.size(), 1 + random(random(2) ? 989 : 9));
            ASSERT_EQ(send(bundle("L", row.family, pairs.size(), rest.first(some))),
                      some == rest.size() ? APPLIED : PENDING);
            rest = rest.subspan(some);
        }
        for (dpList* l : lists())
            for (const auto& [key, e] : l->entries) {
                ASSERT_EQ(e.packets, 7 * sourceOf(e.rule) + l->ifindex);
                ASSERT_EQ(e.key, key);
                ASSERT_EQ(e.rule.seq, key);
            }
        // As if they had come so: the text, and the hashes.
        std::vector<std::vector<uint64_t>> hashes[2];
        const std::string after = installedText(t);
        for (auto& seen : hashes) {
            for (dpList* l : lists()) {
                seen.emplace_back();
                for (const auto& [key, e] : l->entries) seen.back().push_back(e.hash());
            }
            install("L", row.in, PORT, to);
            install("L", row.out, PORT, to);
            install("L", row.in, OTHER_PORT, to);
        }
        EXPECT_EQ(installedText(t), after);
        EXPECT_EQ(hashes[0], hashes[1]);
    }
}

// What is no renumbering of a list that is here: refused, and nothing has changed.
TEST_F(Tables, ABadRenumberingIsRefusedWhole) {
    typedef agentRefusal why;
    typedef std::vector<std::pair<uint32_t, uint32_t>> pairs;
    auto of = [](const pairs& p, size_t entries, const char* name = "L", uint32_t family = 0) {
        return bundle(name, family, entries, p);
    };
    const pairs good = {{1, 10}, {2, 20}, {3, 30}}, head = {{1, 10}}, tail = {{2, 20}, {3, 30}};
    const bytes some = of(head, 3);
    const struct {
        agentRefusal reason;
        std::vector<bytes> messages;
    } rows[] = {
        {why::name, {of(good, 3, "")}},
        {why::name, {of(good, 3, "L", 3)}},
        {why::length, {bytes(some.begin(), some.begin() + 279)}},
        {why::length, {bytes(8193)}},
        {why::count, {bytes(some.begin(), some.begin() + 287)}},
        {why::count, {of({}, 3)}},
        {why::count, {of(good, 2)}},
        {why::count, {with(some, 268, 990)}},
        {why::count, {some, of(good, 3)}},       // too many in the end
        {why::count, {some, of(tail, 4)}},       // another number of entries
        {why::order, {some, of(tail, 3, "M")}},  // of another list
        {why::order, {some, of(tail, 3, "L", 1)}},
        {why::order, {some, build({14412, "X", PORT, {}})}},
        {why::dataplane, {of(good, MEMPLANE_ENTRIES + 1)}},
        {why::number, {of({{1, 10}, {2, 20}}, 2)}},
        {why::number, {of({{1, 10}, {2, 20}, {4, 30}}, 3)}},
        {why::number, {of({{1, 10}, {2, 20}, {3, 20}}, 3)}},
        {why::number, {of({{1, 10}, {2, 20}, {2, 30}}, 3)}},
        {why::number, {of({{1, 10}, {2, 20}, {3, 30}, {4, 40}}, 4)}},
    };
    send(14409, "L", OTHER_PORT, {1, 2, 3});
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        send(14409, "L", PORT, {1, 2, 3});
        const uint64_t before = refused(r.reason);
        for (bytes m : r.messages) {
            put32(m, 12, get32(m, 12) == 0 ? 14429 : get32(m, 12));
            EXPECT_NE(send(m), APPLIED);
        }
        EXPECT_EQ(refused(r.reason), before + 1) << t.lastError;
        EXPECT_EQ(installedText(t), "L@p 1 2 3;L@o 1 2 3;");
    }
    // One of two lists is not what the manager has: neither is renumbered.
    send(14411, "L", OTHER_PORT, {2});
    EXPECT_EQ(send(of(good, 3)), REFUSED);
    EXPECT_EQ(installedText(t), "L@p 1 2 3;L@o 1 3;");
    EXPECT_EQ(send(of(good, 3, "N")), ABSENT);
    EXPECT_EQ(send(of(good, 3, "L", 2)), ABSENT);
    // Cut behind its last pair.
    send(14412, "L", OTHER_PORT);
    const bytes whole = of(good, 3);
    EXPECT_EQ(send(bytes(whole.begin(), whole.begin() + 304)), APPLIED);
    EXPECT_EQ(installedText(t), "L@p 10=1 20=2 30=3;");
}

// Inside a replay it is about what the replay has brought; the rest comes with its new numbers.
TEST_F(Tables, ARenumberingInsideAReplay) {
    const std::pair<uint32_t, uint32_t> pairs[] = {{1, 10}, {2, 20}};
    send(14409, "L", PORT, {1, 2});
    send(14409, "L", OTHER_PORT, {1, 2});
    const_cast<dpList*>(t.plane.find(t.plane.inForce, dpPlaceMake(AGENT_LIST_IP4, 0, PORT, 0, {})))
        ->entries.at(2)
        .packets = 9;
    const char* before = "L@p 1 2;L@o 1 2;";
    for (bool ends : {false, true}) {
        agentTablesReplayBegin(&t);
        send(14409, "L", PORT, {1, 2});
        EXPECT_EQ(send(bundle("L", 0, 2, pairs)), APPLIED);
        send(14409, "L", OTHER_PORT, {20});
        EXPECT_EQ(installedText(t), before);
        if (ends)
            EXPECT_TRUE(agentTablesReplayEnd(&t));
        else
            agentTablesReplayDrop(&t);
        EXPECT_EQ(installedText(t), ends ? "L@p 10=1 20=2;L@o 20;" : before);
    }
    uint64_t packets = 0;
    EXPECT_TRUE(t.plane.counters(t.plane.inForce, dpPlaceMake(AGENT_LIST_IP4, 0, PORT, 0, {}), 20,
                                 &packets));
    EXPECT_EQ(packets, 9u);
    // Cut off by the end of a replay.
    agentTablesReplayBegin(&t);
    EXPECT_EQ(send(bundle("L", 0, 2, std::span(pairs).first(1))), PENDING);
    EXPECT_FALSE(agentTablesReplayEnd(&t));
}

// A data plane that refuses: counted, and nothing pretends to be installed.
TEST_F(Tables, ADataPlaneThatRefusesIsCounted) {
    send(14409, "L", PORT, {1});
    t.plane.install = [](void*, dpList&) { return false; };
    t.plane.putEntry = [](void*, const dpPlace&, const dpEntry&) { return false; };
    play({{14409, "M", OTHER_PORT, {1}, REFUSED, "L@p 1;"},
          {14410, "L", PORT, {2}, REFUSED, "L@p 1;"},
          {14414, "S", PORT, {1}, REFUSED, "L@p 1;"}});
    EXPECT_EQ(refused(agentRefusal::dataplane), 3u);
}

}  // namespace
