// Messages into a MAC agent's tables.
#include "chassis/agent/macTables.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/agent/messages.h"

namespace {

constexpr uint32_t PORT = 0x04040001, OTHER = 0x04080002, VLAN = 0x3800A;
constexpr uint64_t OSPF = 0x01005E000005, NONE = 0;
constexpr agentVerdict APPLIED = agentVerdict::applied, ABSENT = agentVerdict::absent,
                       REFUSED = agentVerdict::refused;

struct Macs : testing::Test {
    macTables t;
    agentVerdict send(const bytes& m) { return macTablesApply(&t, m); }
    bool traps(uint32_t ifindex, uint64_t mac) const {
        return std::ranges::any_of(t.inForce.traps, [&](const auto& row) {
            uint64_t held = 0;
            for (uint8_t b : row.first.mac) held = held << 8 | b;
            return row.first.ifindex == ifindex && held == mac;
        });
    }
    uint64_t refused(agentRefusal why) const { return t.refused[static_cast<size_t>(why)]; }
};

TEST_F(Macs, RowsComeGoAndAreReplaced) {
    EXPECT_EQ(send(trap({PORT, OSPF, 0})), ABSENT);
    for (const trapMessage& m : {trapMessage{PORT, OSPF}, {PORT, OSPF}, {PORT, NONE}, {VLAN, OSPF}})
        EXPECT_EQ(send(trap(m)), APPLIED);
    ASSERT_EQ(t.inForce.traps.size(), 3u);
    // The same address again, for another protocol.
    EXPECT_EQ(send(trap({VLAN, OSPF, 1, 4, 10, 0xFFFF, 9, 1})), APPLIED);
    const macTrap wanted{10, 0xFFFF, 9, 1, 4};
    EXPECT_EQ(t.inForce.traps.begin()->second, wanted);
    EXPECT_EQ(send(trap({PORT, NONE, 0, 0})), APPLIED);
    EXPECT_FALSE(traps(PORT, NONE));
    EXPECT_TRUE(traps(PORT, OSPF));

    for (uint32_t group : {5u, 5u, 6u}) EXPECT_EQ(send(member(1, PORT, 10, group)), APPLIED);
    EXPECT_EQ(send(member(1, PORT, 0, 7)), APPLIED);  // of its LAG
    const std::map<macMemberKey, uint32_t> members{{{PORT, 0}, 7}, {{PORT, 10}, 6}};
    EXPECT_EQ(t.inForce.members, members);
    EXPECT_EQ(send(member(0, PORT, 10, 99)), APPLIED);
    EXPECT_EQ(send(member(0, PORT, 10, 99)), ABSENT);
    EXPECT_EQ(send(member(0, OTHER, 0, 7)), ABSENT);
    EXPECT_EQ(t.inForce.members.size(), 1u);
}

TEST_F(Macs, WhatIsRefusedIsCountedAndChangesNothing) {
    const bytes good = trap({PORT, OSPF}), join = member(1, PORT, 10, 5);
    ASSERT_EQ(send(good), APPLIED);
    auto with = [](bytes m, size_t at, uint32_t word) {
        put32(m, at, word);
        return m;
    };
    typedef agentRefusal why;
    const struct {
        bytes message;
        why reason;
    } rows[] = {{with(good, 8, 164), why::length}, {with(join, 8, 0), why::length},
                {with(good, 124, 0), why::value},  {with(good, 128, 1), why::value},
                {with(good, 144, 2), why::value},  {with(good, 148, 0x40000000), why::value},
                {with(good, 160, 8), why::value},  {with(good, 160, 0), why::value},
                {with(join, 124, 2), why::value},  {with(join, 132, 0x4000), why::value},
                {with(join, 136, 0), why::value}};
    for (const auto& r : rows) {
        const uint64_t before = refused(r.reason);
        EXPECT_EQ(send(r.message), REFUSED);
        EXPECT_EQ(refused(r.reason), before + 1) << t.lastError;
    }
    for (const bytes& whole : {good, join})
        for (size_t n = 0; n <= whole.size() + 1; n++) {
            bytes m = whole;
            m.resize(n);
            EXPECT_EQ(send(m) == REFUSED, n != whole.size()) << n;
        }
    EXPECT_EQ(send(build({14409, "L", PORT, {}})), agentVerdict::notKept);
    EXPECT_EQ(t.inForce.size(), 2u);
    // Nobody fills the memory; what is there can still be changed, and goes.
    t.capacity = 10;
    for (uint32_t i = 0; i < 20; i++) {
        (void)send(trap({PORT + i, OSPF}));
        (void)send(member(1, PORT + i, 1, 1));
    }
    EXPECT_EQ(t.inForce.size(), 10u);
    EXPECT_NE(refused(why::dataplane), 0u);
    EXPECT_EQ(send(trap({PORT, OSPF, 1, 4})), APPLIED);
    EXPECT_EQ(send(trap({PORT, OSPF, 0})), APPLIED);
    EXPECT_EQ(send(join), APPLIED);
}

// Until a replay has ended what was in force stays; then what it brought is all there is.
TEST_F(Macs, AReplayIsExchangedWhenItHasEnded) {
    macTablesReplayBegin(&t);
    EXPECT_EQ(send(trap({PORT, OSPF})), APPLIED);
    EXPECT_TRUE(traps(PORT, OSPF));  // there was nothing to keep
    EXPECT_TRUE(macTablesReplayEnd(&t));

    macTablesReplayBegin(&t);
    EXPECT_EQ(send(trap({OTHER, OSPF})), APPLIED);
    EXPECT_EQ(send(trap({PORT, OSPF, 0})), ABSENT);
    macTablesReplayBegin(&t);  // begins over
    EXPECT_EQ(send(member(1, OTHER, 3, 3)), APPLIED);
    EXPECT_EQ(t.inForce.members.size(), 0u);
    EXPECT_TRUE(traps(PORT, OSPF));
    EXPECT_TRUE(macTablesReplayEnd(&t));
    EXPECT_EQ(t.inForce.traps.size(), 0u);
    EXPECT_EQ(t.inForce.members.size(), 1u);

    // Something of it was refused: it comes into force, and the rest stays.
    macTablesReplayBegin(&t);
    EXPECT_EQ(send(trap({PORT, OSPF})), APPLIED);
    EXPECT_EQ(send(trap({PORT, OSPF, 9})), REFUSED);
    EXPECT_FALSE(macTablesReplayEnd(&t));
    EXPECT_EQ(t.inForce.size(), 2u);
    // One that does not end changes nothing.
    macTablesReplayBegin(&t);
    EXPECT_EQ(send(trap({OTHER, OSPF})), APPLIED);
    macTablesReplayDrop(&t);
    EXPECT_EQ(t.inForce.size(), 2u);
    EXPECT_EQ(t.exchanges, 3u);
    macTablesReplayBegin(&t);
    EXPECT_TRUE(macTablesReplayEnd(&t));
    EXPECT_EQ(t.inForce.size(), 0u);
}

}  // namespace
