// Downloads into an agent's tables.
#include "chassis/agent/tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/agent/messages.h"

namespace {

constexpr uint32_t PORT = 0x04040001, OTHER_PORT = 0x04080002;

// What is installed, as text: "name@ifindex/direction: key key ..." in order of the places.
std::string installedText(const agentTables& t) {
    std::string out;
    t.plane.walk(t.plane.inForce, [&](const dpList& list) {
        out += std::string(listNameView(list.name)) + "@" + std::to_string(list.ifindex) + "/" +
               std::to_string(list.place.direction) + ":";
        for (const auto& [key, entry] : list.entries) out += " " + std::to_string(key);
        out += "\n";
        return true;
    });
    return out;
}

struct Tables : testing::Test {
    agentTables t;
    Tables() { t.plane = memplaneCreate(); }
    ~Tables() override { memplaneDestroy(&t.plane); }

    agentVerdict send(const bytes& m) { return agentTablesApply(&t, m); }
    agentVerdict send(const listMessage& l) { return send(build(l)); }
    // A replay of nothing.
    void forget() {
        agentTablesReplayBegin(&t);
        (void)agentTablesReplayEnd(&t);
    }
    uint64_t refused(agentRefusal why) const { return t.refused[static_cast<size_t>(why)]; }
    std::string at(uint32_t ifindex, const std::string& rest) const {
        return "L@" + std::to_string(ifindex) + "/" + rest + "\n";
    }
    std::vector<bytes> entries(uint32_t from, uint32_t count) const {
        std::vector<bytes> out;
        for (uint32_t i = 0; i < count; i++) out.push_back(entry4(from + i, i));
        return out;
    }
};

// One row per family and direction: its list, add, delete-entry and delete-list messages.
struct familyRow {
    const char* what;
    uint32_t list, add, del, delList;
    uint32_t direction;
    bool v6;
};
constexpr familyRow families[] = {
    {"ingress", 14409, 14410, 14411, 14412, 0, false},
    {"egress", 14416, 14417, 14418, 14419, 1, false},
    {"dos", 14420, 14421, 14423, 14422, 0, false},
    {"ingress IPv6", 14533, 14534, 14535, 14536, 0, true},
    {"egress IPv6", 14537, 14538, 14539, 14540, 1, true},
};

TEST_F(Tables, EveryFamilyInstallsChangesAndDeletes) {
    for (const familyRow& f : families) {
        SCOPED_TRACE(f.what);
        auto e = [&f](uint32_t seq, uint32_t src) {
            return f.v6 ? entry6(seq, src) : entry4(seq, src);
        };
        auto expect = [&](const std::string& keys) {
            EXPECT_EQ(installedText(t), at(PORT, std::to_string(f.direction) + ":" + keys));
        };
        EXPECT_EQ(send({f.list, "L", PORT, {e(10, 1), e(20, 2)}}), agentVerdict::applied);
        expect(" 10 20");
        EXPECT_EQ(send({f.add, "L", PORT, {e(15, 3)}}), agentVerdict::applied);
        expect(" 10 15 20");
        EXPECT_EQ(send({f.del, "L", PORT, {e(10, 1)}}), agentVerdict::applied);
        expect(" 15 20");
        EXPECT_EQ(send({f.del, "L", PORT, {e(10, 1)}}), agentVerdict::absent);
        // The list again, whole: nothing of the old one stays.
        EXPECT_EQ(send({f.list, "L", PORT, {e(7, 7)}}), agentVerdict::applied);
        expect(" 7");
        // A list of another name in the place of this one is not what this delete means.
        EXPECT_EQ(send({f.delList, "M", PORT, {}}), agentVerdict::absent);
        EXPECT_EQ(send({f.delList, "L", PORT, {}}), agentVerdict::applied);
        EXPECT_EQ(installedText(t), "");
        // Entries are deleted after their list on LAGs and VLANs; adding one there is an error.
        EXPECT_EQ(send({f.del, "L", PORT, {e(7, 7)}}), agentVerdict::absent);
        EXPECT_EQ(send({f.add, "L", PORT, {e(7, 7)}}), agentVerdict::refused);
        forget();
    }
    EXPECT_EQ(refused(agentRefusal::list), std::size(families));
}

TEST_F(Tables, PlacesAreApart) {
    send({14409, "L", PORT, entries(1, 1)});
    send({14416, "L", PORT, entries(2, 1)});
    send({14409, "L", OTHER_PORT, entries(3, 1)});
    send({14533, "L", PORT, {entry6(4, 1)}});
    send({14416, "L", 0, entries(5, 1), 0, -1, 3});  // VLAN groups 3 and 4
    send({14416, "L", 0, entries(6, 1), 0, -1, 4});
    EXPECT_EQ(installedText(t), at(PORT, "0: 1") + at(OTHER_PORT, "0: 3") + at(0, "1: 5") +
                                    at(0, "1: 6") + at(PORT, "1: 2") + at(PORT, "0: 4"));
    // Another list on the same interface and direction takes the place.
    send({14409, "M", PORT, entries(9, 1)});
    EXPECT_EQ(installedText(t).substr(0, 12), "M@67371009/0");
    EXPECT_EQ(send({14410, "L", PORT, entries(8, 1)}), agentVerdict::refused);
    EXPECT_EQ(refused(agentRefusal::list), 1u);
}

// System lists: entries have no numbers, several lists share an interface, one message carries
// many.
TEST_F(Tables, SystemEntriesAreKnownByTheirContent) {
    EXPECT_EQ(send({14413, "Global Acl", PORT, {entry4(0, 1)}}), agentVerdict::applied);
    EXPECT_EQ(send({14414, "Global Acl", PORT, {entry4(0, 2), entry4(0, 3)}}),
              agentVerdict::applied);
    EXPECT_EQ(send({14414, "Global Acl", PORT, {entry4(0, 2)}}), agentVerdict::applied);  // no twin
    EXPECT_EQ(send({14414, "Other", PORT, {entry4(0, 9)}}), agentVerdict::applied);
    EXPECT_EQ(send({14414, "Global Acl", OTHER_PORT, {entry4(0, 2)}}), agentVerdict::applied);
    std::string p = std::to_string(PORT), o = std::to_string(OTHER_PORT);
    EXPECT_EQ(installedText(t),
              "Global Acl@" + p + "/0: 1 2 3\nOther@" + p + "/0: 1\nGlobal Acl@" + o + "/0: 1\n");
    EXPECT_EQ(send({14415, "Global Acl", PORT, {entry4(0, 3), entry4(0, 1)}}),
              agentVerdict::applied);
    EXPECT_EQ(send({14415, "Global Acl", PORT, {entry4(0, 1)}}), agentVerdict::absent);
    EXPECT_EQ(send({14415, "Global Acl", OTHER_PORT, {}}), agentVerdict::applied);  // the list
    EXPECT_EQ(installedText(t), "Global Acl@" + p + "/0: 2\nOther@" + p + "/0: 1\n");
    EXPECT_EQ(send({14414, "Global Acl", PORT, {}}), agentVerdict::refused);
    // Twenty system entries do not fit one message; their chunks keep the id.
    auto parts = chunks({14414, "Other", PORT, entries(0, 20)});
    put32(parts[1], 12, 14414);
    EXPECT_EQ(send(parts[0]), agentVerdict::pending);
    EXPECT_EQ(send(parts[1]), agentVerdict::applied);
    const dpList* other = t.plane.find(
        t.plane.inForce, dpPlaceMake(AGENT_LIST_SYSTEM, 0, PORT, 0, listNameMake("Other")));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->entries.size(), 20u);  // source 9 was there
}

TEST_F(Tables, AListIsInstalledWithItsLastChunk) {
    for (uint32_t first : {14409u, 14413u, 14416u, 14420u}) {
        for (uint32_t n : {17u, 18u, 34u, 35u, 100u}) {
            SCOPED_TRACE(std::to_string(first) + ", " + std::to_string(n) + " entries");
            forget();
            send({first, "L", PORT, entries(900, 1)});
            std::string before = installedText(t);
            auto parts = chunks({first, "L", PORT, entries(1, n)});
            for (size_t i = 0; i + 1 < parts.size(); i++) {
                EXPECT_EQ(send(parts[i]), agentVerdict::pending);
                EXPECT_EQ(installedText(t), before);
            }
            EXPECT_EQ(send(parts.back()), agentVerdict::applied);
            EXPECT_EQ(std::ranges::count(installedText(t), ' '), n);
        }
    }
}

// Chunks in every wrong order leave what was installed, and the next good message is taken.
TEST_F(Tables, ChunksOutOfOrderAreRefused) {
    auto parts = chunks({14409, "L", PORT, entries(1, 40)});
    auto otherName = chunks({14409, "M", PORT, entries(1, 40)});
    auto otherPort = chunks({14409, "L", OTHER_PORT, entries(1, 40)});
    auto egress = chunks({14416, "L", PORT, entries(1, 40)});
    bytes overfull = parts[1];
    put32(overfull, HEADER + 312, 30);
    bytes moreTwo = parts[0];
    put32(moreTwo, 124, 2);
    typedef agentRefusal why;
    const bytes broken(parts[1].begin(), parts[1].end() - 1);
    struct {
        const char* what;
        agentRefusal reason;
        std::vector<bytes> messages;
    } rows[] = {
        {"no first chunk", why::order, {parts[1]}},
        {"the last one alone", why::order, {parts[2]}},
        {"the second one missing", why::count, {parts[0], parts[2]}},
        {"the second one twice", why::count, {parts[0], parts[1], parts[1]}},
        {"another list's chunk", why::order, {parts[0], otherName[1]}},
        {"another interface's chunk", why::order, {parts[0], otherPort[1]}},
        {"another direction's chunk", why::order, {parts[0], egress[1]}},
        {"a chunk with another total", why::count, {parts[0], overfull}},
        {"neither more nor not", why::order, {moreTwo}},
        {"a broken chunk", why::length, {parts[0], broken}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        forget();
        send({14409, "L", PORT, entries(900, 1)});
        std::string before = installedText(t);
        uint64_t refusals = refused(r.reason);
        for (const bytes& m : r.messages) EXPECT_NE(send(m), agentVerdict::applied);
        EXPECT_GT(refused(r.reason), refusals) << t.lastError;
        EXPECT_EQ(installedText(t), before);
        EXPECT_EQ(send({14410, "L", PORT, entries(901, 1)}), agentVerdict::applied);
        for (const bytes& m : parts) send(m);
        EXPECT_EQ(std::ranges::count(installedText(t), ' '), 40);
    }
}

TEST_F(Tables, EveryLieIsCountedUnderItsReason) {
    const std::vector<bytes> pair{entry4(1, 1), entry4(2, 2)}, twins{entry4(5, 1), entry4(5, 2)};
    typedef agentRefusal why;
    struct {
        const char* what;
        agentRefusal reason;
        uint32_t id;
        std::vector<bytes> entries;
        void (*change)(bytes&) = nullptr;
    } rows[] = {
        {"length word", why::length, 14409, pair, [](bytes& m) { put32(m, 8, 0xFFFFFFFF); }},
        {"body length", why::bodyLength, 14409, pair, [](bytes& m) { put32(m, 128, 1056); }},
        {"count too large", why::count, 14409, pair, [](bytes& m) { put32(m, 444, 3); }},
        {"count too small", why::count, 14409, pair, [](bytes& m) { put32(m, 444, 1); }},
        {"whole list came already", why::count, 14409, pair, [](bytes& m) { put32(m, 124, 1); }},
        {"half an entry", why::count, 14409, pair,
         [](bytes& m) {
             m.erase(m.end() - 196, m.end());
             put32(m, 8, static_cast<uint32_t>(m.size()));
             put32(m, 128, static_cast<uint32_t>(m.size() - HEADER));
         }},
        {"first byte of the second half", why::halves, 14409, pair,
         [](bytes& m) { m[HEADER + LIST_HEADER + ENTRY4 + 204] ^= 1; }},
        {"last byte of the first half", why::halves, 14409, pair,
         [](bytes& m) { m[HEADER + LIST_HEADER + 199] ^= 1; }},
        {"no name", why::name, 14409, pair, [](bytes& m) { m[HEADER + 169] = 0; }},
        {"no such group", why::name, 14409, pair, [](bytes& m) { m[HEADER + 908] = 9; }},
        {"a number twice", why::number, 14409, twins},
        {"an added entry too many", why::order, 14410, pair},
        {"two entries to delete", why::count, 14411, pair},
        {"no entry to delete", why::count, 14411, {}},
        {"a deleted list with entries", why::count, 14412, {entry4(5, 1)}},
    };
    send({14409, "L", PORT, entries(900, 1)});
    std::string before = installedText(t);
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        uint64_t count = refused(r.reason);
        bytes m = build({r.id, "L", PORT, r.entries});
        if (r.change != nullptr) r.change(m);
        EXPECT_EQ(send(m), agentVerdict::refused);
        EXPECT_EQ(refused(r.reason), count + 1) << t.lastError;
        EXPECT_NE(t.lastError.find(std::to_string(r.id)), std::string::npos);
        EXPECT_EQ(installedText(t), before);
    }
    EXPECT_EQ(send({14475, "L", PORT, pair}), agentVerdict::notKept);
}

TEST_F(Tables, MessagesCutAtEveryLengthChangeNothing) {
    bytes whole = build({14409, "L", PORT, entries(1, 3)});
    for (size_t n = 0; n < whole.size(); n++) {
        bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(n));
        ASSERT_NE(send(cut), agentVerdict::applied) << n;
        if (n < HEADER) continue;
        // The same with length words that fit the cut.
        put32(cut, 8, static_cast<uint32_t>(n));
        put32(cut, 128, static_cast<uint32_t>(n - HEADER));
        ASSERT_EQ(send(cut), agentVerdict::refused) << n;
    }
    EXPECT_EQ(installedText(t), "");
    EXPECT_EQ(send(whole), agentVerdict::applied);
}

// Random bytes over a good message: anything may be refused, nothing may break or be half applied.
TEST_F(Tables, DamagedMessagesAreTakenWholeOrNotAtAll) {
    std::mt19937 engine(7);
    auto random = [&engine] { return static_cast<uint32_t>(engine()); };
    bytes good = build({14409, "L", PORT, entries(1, 4)});
    for (int round = 0; round < 20000; round++) {
        forget();
        bytes m = good;
        for (uint32_t flips = 1 + random() % 4; flips > 0; flips--)
            m[random() % (random() % 2 ? m.size() : 480)] = static_cast<uint8_t>(random());
        put32(m, 12, 14409 + random() % 16);
        agentVerdict v = send(m);
        size_t installed = static_cast<size_t>(std::ranges::count(installedText(t), ' '));
        if (v == agentVerdict::applied)
            ASSERT_GE(installed, 4u);
        else
            ASSERT_EQ(installedText(t), "");
    }
}

// Random changes of lists and entries, against maps from place and number to source address.
TEST_F(Tables, FollowsARandomSenderLikeAMap) {
    std::mt19937 engine(11);
    auto random = [&engine] { return static_cast<uint32_t>(engine()); };
    struct modelList {
        std::string name;
        std::map<uint32_t, uint32_t> entries;
    };
    std::map<std::pair<uint32_t, uint32_t>, modelList> model;  // direction, ifindex
    const uint32_t ports[] = {PORT, OTHER_PORT, 14u << 14 | 10};
    for (int round = 0; round < 4000; round++) {
        uint32_t egress = random() % 2, base = egress ? 14416 : 14409;
        uint32_t port = ports[random() % 3], seq = random() % 60, src = random();
        std::string name = random() % 4 == 0 ? "M" : "L";
        auto there = model.find({egress, port});
        bool same = there != model.end() && there->second.name == name;
        switch (random() % 8) {
            case 0: {
                listMessage l{base, name, port, {}};
                modelList fresh{name, {}};
                for (uint32_t n = random() % 50, s = 0; n > 0; n--) {
                    s += 1 + random() % 3;
                    l.entries.push_back(entry4(s, src + n));
                    fresh.entries[s] = src + n;
                }
                auto parts = chunks(l);
                bool cut = random() % 4 == 0 && parts.size() > 1;
                if (cut) parts.pop_back();  // the rest never comes
                for (const bytes& m : parts) send(m);
                if (!cut) model[{egress, port}] = fresh;
                break;
            }
            case 1:
                send({base + 3, name, port, {}});
                if (same) model.erase(there);
                break;
            case 2:
            case 3:
                send({base + 2, name, port, {entry4(seq, 0)}});
                if (same) there->second.entries.erase(seq);
                break;
            default:
                send({base + 1, name, port, {entry4(seq, src)}});
                if (same) there->second.entries[seq] = src;
        }
        auto expected = model.begin();
        t.plane.walk(t.plane.inForce, [&](const dpList& list) {
            EXPECT_NE(expected, model.end());
            EXPECT_EQ(expected->first, std::make_pair(list.place.direction, list.ifindex));
            EXPECT_EQ(expected->second.name, listNameView(list.name));
            std::map<uint32_t, uint32_t> found;
            for (const auto& [key, e] : list.entries)
                found[key] = e.rule.src.value[0];
            EXPECT_EQ(found, expected->second.entries);
            ++expected;
            return !HasFailure();
        });
        ASSERT_EQ(expected, model.end());
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
    EXPECT_GT(refused(agentRefusal::order), 0u);
}

// What is in force stays until the replay has ended; then it is what the replay brought, to the
// entry. One that does not end changes nothing.
TEST_F(Tables, AReplayIsExchangedWhenItHasEnded) {
    std::string p = at(PORT, "0: 1 2"), o = at(OTHER_PORT, "0: 5");
    send({14409, "L", PORT, entries(1, 2)});
    send({14409, "L", OTHER_PORT, entries(5, 1)});
    send({14413, "Global Acl", PORT, {entry4(0, 1)}});
    std::string before = installedText(t);
    auto parts = chunks({14409, "L", PORT, entries(1, 40)});
    auto replay = [&] {
        agentTablesReplayBegin(&t);
        send({14409, "L", PORT, entries(1, 2)});
        send({14410, "L", PORT, entries(3, 1)});  // changes of what is in force, too
        send({14411, "L", PORT, entries(2, 1)});
        send({14414, "Global Acl", PORT, {entry4(0, 2)}});  // never what was there before
        EXPECT_EQ(send({14410, "L", OTHER_PORT, entries(6, 1)}), agentVerdict::refused);
        EXPECT_EQ(send({14412, "L", OTHER_PORT, {}}), agentVerdict::absent);
        EXPECT_EQ(installedText(t), before);
    };
    replay();
    send(parts[0]);
    agentTablesReplayDrop(&t);
    EXPECT_EQ(send(parts[1]), agentVerdict::refused);
    EXPECT_EQ(installedText(t), before);
    replay();
    // Of this one an entry was refused: what it did not bring stays.
    EXPECT_FALSE(agentTablesReplayEnd(&t));
    std::string global = "Global Acl@" + std::to_string(PORT) + "/0: 1\n";
    EXPECT_EQ(installedText(t), at(PORT, "0: 1 3") + o + global);
    agentTablesReplayBegin(&t);
    send({14409, "L", PORT, entries(1, 2)});
    EXPECT_TRUE(agentTablesReplayEnd(&t));
    EXPECT_EQ(installedText(t), p);
    agentTablesReplayBegin(&t);
    send(parts[0]);
    EXPECT_FALSE(agentTablesReplayEnd(&t));
    EXPECT_EQ(installedText(t), p);
}

// A data plane that outlives the agent's process: what it holds stays in force for the next one.
TEST_F(Tables, WhatTheDataPlaneHoldsIsAdopted) {
    send({14409, "L", PORT, entries(1, 2)});
    agentTables next;
    next.plane = t.plane;
    agentTablesReplayBegin(&next);
    agentTablesApply(&next, build({14409, "L", OTHER_PORT, entries(5, 1)}));
    EXPECT_EQ(installedText(next), at(PORT, "0: 1 2"));
    EXPECT_TRUE(agentTablesReplayEnd(&next));
    EXPECT_EQ(installedText(next), at(OTHER_PORT, "0: 5"));
}

// Room for 13 entries and lists. What a replay brings unchanged needs none; what does not fit
// beside the old lists comes into force list by list; what does not fit at all is refused and takes
// nothing away.
TEST_F(Tables, AReplayWithoutRoomForBoth) {
    memplaneDestroy(&t.plane);
    t.plane = memplaneCreate(13);
    const uint32_t third = 0x040C0003;
    const std::string four = at(PORT, "0: 1 2 3 4"), three = at(PORT, "0: 1 2 3"),
                      five = at(OTHER_PORT, "0: 1 2 3 4 5"), one = at(third, "0: 1");
    send({14409, "L", PORT, entries(1, 4)});
    send({14409, "L", OTHER_PORT, entries(1, 4)});
    struct {
        uint32_t first, other, last, byLists;  // entries at each port; 0: not in the replay
        bool whole;
        std::string end;
    } rows[] = {
        {4, 4, 2, 0, true, four + at(OTHER_PORT, "0: 1 2 3 4") + at(third, "0: 1 2")},
        {3, 5, 0, 1, true, three + five},
        {3, 9, 1, 2, false, three + five + one},
        {0, 14, 0, 2, false, three + five + one},
        {0, 10, 0, 3, false, three + five + one},
        {0, 0, 10, 4, false, three + five + one},
        {0, 0, 0, 4, true, ""},
        {0, 12, 0, 5, true, at(OTHER_PORT, "0: 1 2 3 4 5 6 7 8 9 10 11 12")},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.end);
        agentTablesReplayBegin(&t);
        const std::pair<uint32_t, uint32_t> lists[] = {
            {PORT, r.first}, {OTHER_PORT, r.other}, {third, r.last}};
        for (const auto& [port, count] : lists)
            if (count != 0) send({14409, "L", port, entries(1, count)});
        EXPECT_EQ(agentTablesReplayEnd(&t), r.whole) << t.lastError;
        EXPECT_EQ(installedText(t), r.end);
        EXPECT_EQ(t.byLists, r.byLists);
    }
    EXPECT_EQ(send({14410, "L", OTHER_PORT, entries(13, 1)}), agentVerdict::refused);
    EXPECT_EQ(send({14410, "L", OTHER_PORT, entries(10, 1)}), agentVerdict::applied);
    EXPECT_EQ(send({14411, "L", OTHER_PORT, entries(9, 1)}), agentVerdict::applied);
    EXPECT_EQ(send({14410, "L", OTHER_PORT, entries(13, 1)}), agentVerdict::applied);
    // Shared with the staged set, then changed there: a copy, for which there is no room.
    agentTablesReplayBegin(&t);
    listMessage same{14409, "L", OTHER_PORT, entries(1, 12)};
    same.entries[8] = entry4(13, 0);  // in place of number 9
    same.entries[9] = entry4(10, 0);
    EXPECT_EQ(send(same), agentVerdict::applied);
    EXPECT_EQ(t.replay, agentReplay::beside);
    EXPECT_EQ(send({14411, "L", OTHER_PORT, entries(1, 1)}), agentVerdict::applied);
    EXPECT_EQ(t.replay, agentReplay::byList);
    EXPECT_TRUE(agentTablesReplayEnd(&t));
    EXPECT_EQ(installedText(t), at(OTHER_PORT, "0: 2 3 4 5 6 7 8 10 11 12 13"));
}

// A data plane that refuses: counted, and nothing pretends to be installed.
TEST_F(Tables, ADataPlaneThatRefusesIsCounted) {
    send({14409, "L", PORT, entries(1, 1)});
    t.plane.install = [](void*, dpList&) { return false; };
    t.plane.putEntry = [](void*, const dpPlace&, const dpEntry&) { return false; };
    EXPECT_EQ(send({14409, "M", OTHER_PORT, entries(1, 1)}), agentVerdict::refused);
    EXPECT_EQ(send({14410, "L", PORT, entries(2, 1)}), agentVerdict::refused);
    EXPECT_EQ(send({14414, "Global Acl", PORT, entries(0, 1)}), agentVerdict::refused);
    EXPECT_EQ(refused(agentRefusal::dataplane), 3u);
    EXPECT_EQ(installedText(t), at(PORT, "0: 1"));
}

}  // namespace
