// Which cards a list goes to: the members of LAGs and VLANs, and what their cards can hold.
#include "interface/targets.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "tests/download/fixture.h"

struct Targets : DownloadTest {
    // VLAN 10: slot 3 takes egress lists, slots 4 and 5 do not, and 5 none of IPv6; LAG 7 has a
    // port on 3 and one on 5.
    void SetUp() override {
        DownloadTest::SetUp();
        card(5, false, false);
        for (uint32_t port : {PORT_5_0, PORT_3_2}) EXPECT_EQ(aclLagMemberAdd(LAG_7, port), 0);
        for (uint32_t member : {PORT_4_0, LAG_7, PORT_3_1})
            EXPECT_EQ(aclVlanMemberAdd(VLAN_10, member), 0);
        testTake();
    }
    static numbers ports(uint32_t ifindex) {
        numbers found;
        aclWalkPorts(ifindex, [&](uint32_t port) { found.push_back(port); });
        return found;
    }
    // The family, the direction and whether a list or an entry goes follow from the message.
    int send(uint32_t ifindex, uint32_t id, const aclOnly& only = {}) {
        static const std::set<uint32_t> entries{14410, 14417, 14418, 14535},
            egress{14416, 14417, 14418, 14537};
        const aclList& l = id > 14500 ? made6.list : made.list;
        return aclSendToPlace({ifindex, egress.contains(id) ? INTF_OUT : INTF_IN},
                              {id, &l, entries.contains(id) ? l.head : nullptr}, only);
    }
    madeList<aclEntry> made{1};
    madeList<acl6Entry> made6{1};
};

TEST_F(Targets, APlacesListGoesToTheCardsThatTakeIt) {
    (void)aclVlanMemberAdd(VLAN_10, 0x0C080000);  // a second port of slot 5
    const aclOnly port{SLOT_NONE, PORT_4_0}, lag{SLOT_NONE, LAG_7};
    struct {
        const char* what;
        uint32_t ifindex, id;
        numbers sent;          // the slots of a VLAN's cards, else the ports
        numbers refused = {};  // the slots that are reported
        aclOnly only = {};
    } const rows[] = {
        {"a VLAN, each card once", VLAN_10, 14409, {3, 4, 5}},
        {"egress, each card reported once", VLAN_10, 14416, {3}, {4, 5}},
        {"egress entries are no lists", VLAN_10, 14417, {3, 4, 5}},
        {"IPv6", VLAN_10, 14533, {3, 4}, {5}},
        {"IPv6 entries", VLAN_10, 14535, {3, 4}, {5}},
        {"egress IPv6: the cards know", VLAN_10, 14537, {3, 4, 5}},
        {"one port", VLAN_10, 14409, {4}, {}, port},
        {"one LAG", VLAN_10, 14412, {3, 5}, {}, lag},
        {"half of it", VLAN_10, 14416, {3}, {5}, lag},
        {"one card", VLAN_10, 14416, {3}, {}, {3}},
        {"that cannot", VLAN_10, 14416, {}, {4}, {4}},
        {"without members", VLAN_10, 14409, {}, {}, {0}},
        {"a LAG, from the last", LAG_7, 14409, {PORT_3_2, PORT_5_0}},
        {"egress: silently", LAG_7, 14416, {PORT_3_2}},
        {"egress entries", LAG_7, 14418, {PORT_3_2}},
        {"IPv6: reported", LAG_7, 14533, {PORT_3_2}, {5}},
        {"one card of it", LAG_7, 14409, {PORT_5_0}, {}, {5}},
        {"a port", PORT_4_0, 14410, {PORT_4_0}},
        {"egress", PORT_3_1, 14416, {PORT_3_1}},
        {"its card cannot", PORT_4_0, 14416, {}},
        {"nor this one IPv6", PORT_5_0, 14533, {}, {5}},
        {"no slot", 0x00004001, 14409, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const bool six = row.id > 14500;
        EXPECT_EQ(send(row.ifindex, row.id, row.only), 0);
        numbers sent;
        for (const bytes& m : enqueued()) {
            const uint32_t slot = get32(m, 48), about = get32(m, 132 + 352);
            const bool vlan = about == VLAN_10;
            sent.push_back(vlan ? slot : about);
            EXPECT_EQ(get32(m, 12), row.id);
            EXPECT_EQ(get32(m, 132 + 904), vlan ? 1u : 0u);
            EXPECT_EQ(m[132 + 909], !vlan ? (100 + ifindexUserPort(about)) % 8 : six ? 0xFF : 0);
            EXPECT_EQ(about, vlan ? row.ifindex : (slot + 1) << 25 | (about & 0x1FFFFFF));
        }
        EXPECT_EQ(sent, row.sent);
        texts wanted;
        for (uint32_t slot : row.refused)
            wanted.push_back(std::string("syserr 0x50006 Error: ") + (six ? "IPv6" : "Egress") +
                             " access-list not supported on linecard " + std::to_string(slot) +
                             "\r\n");
        EXPECT_EQ(effects, wanted);
    }
    // A card that has not said what it can do takes IPv6 lists.
    aclLinecardInfo[5].isUp = 0;
    EXPECT_EQ(send(VLAN_10, 14533), 0);
    EXPECT_EQ(sentTo(), "14533>3 14533>4 14533>5");
}

TEST_F(Targets, TheResultIsThePortsOrTheVlansLastCards) {
    for (auto [ifindex, nth, result] :
         {std::tuple{VLAN_10, 3u, -1}, {VLAN_10, 1u, 0}, {PORT_3_1, 1u, -1}, {LAG_7, 2u, 0}}) {
        testFail(TEST_BLOCK, nth, 1);
        EXPECT_EQ(send(ifindex, 14409), result);
        for (uint32_t slot : {3u, 5u}) zekSwpReplayBegin(aclLinecardInfo[slot].aclAgent);
    }
}

TEST_F(Targets, TheStandbySendsToNobodyButItsOwnAgent) {
    aclNode->queues.acl0qHandle = aclLinecardInfo[4].aclAgent;
    aclLinecardInfo[LINECARD_CP].agent0IpAddr = 0x7F0100C8;
    testHost.primary = false;
    for (uint32_t ifindex : {PORT_3_1, LAG_7, VLAN_10, 0x42040000u})
        for (uint32_t id : {14409u, 14410u, 14416u}) EXPECT_EQ(send(ifindex, id), 0);
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14420), 0);
    EXPECT_TRUE(testTake().empty());
    EXPECT_EQ(send(IFINDEX_CP_BIND, 14409), 0);
    EXPECT_EQ(sentTo(), "14409>cp");
}

TEST_F(Targets, DosListsGoToEveryAgent) {
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14420), 0);
    EXPECT_EQ(dosSendToAllAgents(&made.list, &made.entries[0], 14423), 0);
    EXPECT_EQ(sentTo(), "14420>0 14420>3 14420>4 14420>5 14423>0 14423>3 14423>4 14423>5");
    testFail(TEST_BLOCK, 2, 1);  // one card's message: the others still get theirs
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14422), -1);
    EXPECT_EQ(sentTo(), "14422>0 14422>4 14422>5");
}

// --- membership ---------------------------------------------------------------------------------

// LAGs keep the order in which ports joined and are walked from the last; VLANs go by index, with
// LAGs expanded in their places.
TEST_F(Targets, MembersAreWalkedInTheOrderOfTheirPlace) {
    EXPECT_EQ(ports(VLAN_10), (numbers{PORT_3_2, PORT_5_0, PORT_3_1, PORT_4_0}));
    std::mt19937 engine(7);
    auto random = [&engine](uint32_t below) { return static_cast<uint32_t>(engine()) % below; };
    std::map<uint32_t, numbers> truth;  // the teller of truth
    for (int i = 0; i < 3000; i++) {
        const uint32_t number = random(6);
        const bool vlan = number < 3;
        // A port is in one LAG only.
        const uint32_t member = (random(3) + 1) << 25 | (random(20) + (vlan ? 0 : number * 20))
                                                            << 18;
        const uint32_t place = (vlan ? 0x00038100 : LAG_8) + number;
        numbers& members = truth[place];
        const bool has = std::ranges::count(members, member) != 0;
        if (random(3) != 0) {
            EXPECT_EQ((vlan ? aclVlanMemberAdd : aclLagMemberAdd)(place, member), has ? 1 : 0);
            if (!has) members.insert(members.begin(), member);
        } else {
            EXPECT_EQ((vlan ? aclVlanMemberRemove : aclLagMemberRemove)(place, member), !has);
            std::erase(members, member);
        }
        if (vlan) std::ranges::sort(members);
        EXPECT_EQ(ports(place), members);
    }
}

TEST_F(Targets, WhatCannotBeAMemberIsRefused) {
    for (uint32_t member : {LAG_7, LAG_8, VLAN_10, 0x00004001u})
        EXPECT_EQ(aclLagMemberAdd(LAG_7, member), -1) << member;
    EXPECT_EQ(aclLagMemberAdd(PORT_3_1, PORT_5_0), -1);
    EXPECT_EQ(aclLagMemberAdd(LAG_8, PORT_5_0), -1) << "a port of LAG 7";
    EXPECT_TRUE(AclIntfTreeFind(PORT_3_1)->lagMembers.empty());
    EXPECT_EQ(aclVlanMemberAdd(VLAN_10, VLAN_10 + 1), -1);
    EXPECT_EQ(aclVlanMemberAdd(LAG_7, PORT_3_1), -1);
    EXPECT_EQ(aclLagMemberRemove(LAG_8, PORT_3_1), 1);
    EXPECT_EQ(aclVlanMemberRemove(VLAN_10 + 1, PORT_3_1), 1);
}

// A VLAN: its record, its tree, its place; then the member's place.
TEST_F(Targets, WithoutMemoryAVlanGetsNoMemberAndNothingLeaks) {
    const uint64_t blocks = testBlocksInUse();
    for (auto [point, nth] :
         {std::pair{TEST_BLOCK, 1u}, {TEST_TREE, 1u}, {TEST_INSERT, 1u}, {TEST_INSERT, 2u}}) {
        testFail(point, nth);
        EXPECT_EQ(aclVlanMemberAdd(VLAN_10 + 1, PORT_3_1), -1);
        testFailNothing();
        (void)enqueued();
        EXPECT_TRUE(said("syserr 0x5000c "));
        EXPECT_EQ(ports(VLAN_10 + 1), numbers{});
        if (aclVlan* vlan = aclVlanTreeFind(VLAN_10 + 1)) aclVlanDrop(vlan);
        EXPECT_EQ(testBlocksInUse(), blocks);
    }
}
