// Which cards a list goes to: the members of LAGs and VLANs, and what their cards can hold.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "interface/targets.h"
#include "tests/download/fixture.h"

namespace {

std::vector<uint32_t> ports(uint32_t ifindex) {
    std::vector<uint32_t> found;
    aclWalkPorts(ifindex, [&](uint32_t port) { found.push_back(port); });
    return found;
}
typedef std::vector<uint32_t> list;

// What a card is told of a place.
typedef std::array<uint32_t, 4> told;  // slot, index, on behalf of a VLAN, pipe
std::vector<told> vlan(const list& slots, uint32_t pipe = 0) {
    std::vector<told> all;
    for (uint32_t slot : slots) all.push_back({slot, VLAN_10, 1, pipe});
    return all;
}

}  // namespace

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
    madeList<aclEntry> made{1};
    madeList<acl6Entry> made6{1};
};

TEST_F(Targets, APlacesListGoesToTheCardsThatTakeIt) {
    (void)aclVlanMemberAdd(VLAN_10, 0x0C080000);  // a second port of slot 5
    constexpr uint32_t IN = INTF_IN, OUT = INTF_OUT, NO_SLOT = 0x00004001;
    constexpr bool ENTRY = true;
    const told port31{3, PORT_3_1, 0, 5}, port32{3, PORT_3_2, 0, 6}, port40{4, PORT_4_0, 0, 4},
        port50{5, PORT_5_0, 0, 4};
    struct {
        const char* what;
        aclPlace place;
        uint32_t id;
        bool entry;
        std::vector<told> sent;
        std::vector<int> refused = {};  // the slots that are reported
        aclOnly only = {};
    } const rows[] = {
        {"a VLAN, each card once", {VLAN_10, IN}, 14409, false, vlan({3, 4, 5})},
        {"egress, each card reported once", {VLAN_10, OUT}, 14416, false, vlan({3}), {4, 5}},
        {"its deletion", {VLAN_10, OUT}, 14419, false, vlan({3}), {4, 5}},
        {"egress entries are no lists", {VLAN_10, OUT}, 14417, ENTRY, vlan({3, 4, 5})},
        {"one that is not known", {VLAN_10 + 1, IN}, 14409, false, {}},
        {"IPv6", {VLAN_10, IN}, 14533, false, vlan({3, 4}, 0xFF), {5}},
        {"IPv6 entries", {VLAN_10, IN}, 14535, ENTRY, vlan({3, 4}, 0xFF), {5}},
        {"egress IPv6: the cards know", {VLAN_10, OUT}, 14537, false, vlan({3, 4, 5}, 0xFF)},
        {"one port", {VLAN_10, IN}, 14409, false, vlan({4}), {}, {SLOT_NONE, PORT_4_0}},
        {"its card cannot", {VLAN_10, OUT}, 14416, false, {}, {4}, {SLOT_NONE, PORT_4_0}},
        {"one LAG", {VLAN_10, IN}, 14412, false, vlan({3, 5}), {}, {SLOT_NONE, LAG_7}},
        {"half of it", {VLAN_10, OUT}, 14416, false, vlan({3}), {5}, {SLOT_NONE, LAG_7}},
        {"one card", {VLAN_10, OUT}, 14416, false, vlan({3}), {}, {3}},
        {"that cannot", {VLAN_10, OUT}, 14416, false, {}, {4}, {4}},
        {"without members", {VLAN_10, IN}, 14409, false, {}, {}, {6}},
        {"of slot 0", {VLAN_10, IN}, 14409, false, {}, {}, {0}},
        {"a LAG, from the last", {LAG_7, IN}, 14409, false, {port32, port50}},
        {"egress: silently", {LAG_7, OUT}, 14416, false, {port32}},
        {"egress entries", {LAG_7, OUT}, 14418, ENTRY, {port32}},
        {"one card of it", {LAG_7, IN}, 14409, false, {port50}, {}, {5}},
        {"a LAG without members", {LAG_8, IN}, 14409, false, {}},
        {"a port", {PORT_4_0, IN}, 14410, ENTRY, {port40}},
        {"egress", {PORT_3_1, OUT}, 14416, false, {port31}},
        {"its card cannot", {PORT_4_0, OUT}, 14416, false, {}},
        {"another card only", {PORT_4_0, IN}, 14409, false, {}, {}, {3}},
        {"no slot", {NO_SLOT, IN}, 14409, false, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const bool six = row.id > 14500;
        const aclList& l = six ? made6.list : made.list;
        EXPECT_EQ(aclSendToPlace(row.place, {row.id, &l, row.entry ? l.head : nullptr}, row.only),
                  0);
        std::vector<told> sent;
        for (const bytes& m : enqueued()) {
            EXPECT_EQ(get32(m, 12), row.id);
            sent.push_back({get32(m, 48), get32(m, 132 + 352), get32(m, 132 + 904), m[132 + 909]});
        }
        EXPECT_EQ(sent, row.sent);
        texts wanted;
        for (int slot : row.refused)
            wanted.push_back(std::string("syserr 0x50006 Error: ") + (six ? "IPv6" : "Egress") +
                             " access-list not supported on linecard " + std::to_string(slot) +
                             "\r\n");
        EXPECT_EQ(others, wanted);
    }
    // A card that has not said what it can do takes IPv6 lists.
    aclLinecardInfo[5].isUp = 0;
    EXPECT_EQ(aclSendToPlace({VLAN_10, INTF_IN}, {14533, &made6.list}), 0);
    EXPECT_EQ(sentTo(), (texts{"14533>3", "14533>4", "14533>5"}));
}

TEST_F(Targets, AMapMarksMembersAndOfPortsEgressIPv6Alone) {
    struct {
        aclPlace place;
        uint32_t family;
        list marked, refused;
    } const rows[] = {
        {{LAG_7, INTF_OUT}, INTF_V4, {3}, {5}},   {{LAG_7, INTF_IN}, INTF_V4, {3, 5}, {}},
        {{PORT_4_0, INTF_OUT}, INTF_V4, {}, {4}}, {{PORT_3_1, INTF_OUT}, INTF_V4, {}, {}},
        {{PORT_5_0, INTF_OUT}, INTF_V6, {5}, {}}, {{PORT_5_0, INTF_IN}, INTF_V6, {}, {5}},
        {{0, INTF_OUT}, INTF_V4, {}, {}},
    };
    for (const auto& row : rows) {
        const aclPlaceCards cards = aclGetPPBitMap({row.place, row.family, false});
        list marked, refused;
        for (uint32_t i = 0; i < PP_TARGETS; i++) {
            if (cards.map[i] != 0) marked.push_back(i);
            if (i < SLOT_COUNT && cards.refused.test(i)) refused.push_back(i);
        }
        EXPECT_EQ(marked, row.marked) << row.place.ifindex;
        EXPECT_EQ(refused, row.refused) << row.place.ifindex;
    }
}

TEST_F(Targets, TheResultIsThePortsOrTheVlansLastCards) {
    struct {
        uint32_t ifindex;
        uint64_t nth;  // the message that there is no memory for
        int result;
    } const rows[] = {{VLAN_10, 3, -1}, {VLAN_10, 1, 0}, {PORT_3_1, 1, -1}, {LAG_7, 2, 0}};
    for (const auto& row : rows) {
        testFail(TEST_BLOCK, row.nth, 1);
        EXPECT_EQ(aclSendToPlace({row.ifindex, INTF_IN}, {14409, &made.list}), row.result);
        replayed();
    }
}

TEST_F(Targets, TheStandbySendsToNobodyButItsOwnAgent) {
    aclNode->queues.acl0qHandle = aclLinecardInfo[4].aclAgent;
    aclLinecardInfo[LINECARD_CP].agent0IpAddr = 0x7F0100C8;
    testHost.primary = false;
    for (uint32_t ifindex : {PORT_3_1, LAG_7, VLAN_10}) {
        EXPECT_EQ(aclSendToPlace({ifindex, INTF_IN}, {14409, &made.list}), 0);
        EXPECT_EQ(aclSendToPlace({ifindex, INTF_IN}, {14410, &made.list, made.list.head}), 0);
    }
    EXPECT_EQ(aclSendToPlace({VLAN_10, INTF_OUT}, {14416, &made.list}), 0);
    EXPECT_EQ(iAclSendToAclAgent({0x42040000}, {14413, &made.list}), 0);
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14420), 0);
    EXPECT_TRUE(testTake().empty());
    EXPECT_EQ(aclSendToPlace({IFINDEX_CP_BIND, INTF_IN}, {14409, &made.list}), 0);
    EXPECT_EQ(sentTo(), texts{"14409>0"});
}

TEST_F(Targets, DosListsGoToEveryAgent) {
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14420), 0);
    EXPECT_EQ(dosSendToAllAgents(&made.list, &made.entries[0], 14423), 0);
    EXPECT_EQ(sentTo(), (texts{"14420>0", "14420>3", "14420>4", "14420>5", "14423>0", "14423>3",
                               "14423>4", "14423>5"}));
    testFail(TEST_BLOCK, 2, 1);  // one card's message: the others still get theirs
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14422), -1);
    EXPECT_EQ(sentTo(), (texts{"14422>0", "14422>4", "14422>5"}));
}

// --- membership ---------------------------------------------------------------------------------

TEST_F(Targets, LagMembersKeepTheOrderInWhichTheyJoined) {
    uint32_t count = 9;
    EXPECT_EQ(aclLagMembers(LAG_8, &count), nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(ports(LAG_7), (list{PORT_3_2, PORT_5_0}));  // last to first
    EXPECT_EQ(ports(VLAN_10), (list{PORT_3_2, PORT_5_0, PORT_3_1, PORT_4_0}));
    EXPECT_EQ(ports(PORT_3_1), list{PORT_3_1});
    EXPECT_EQ(aclLagMemberAdd(LAG_7, PORT_5_0), 1);  // joining again moves nothing
    EXPECT_EQ(ports(LAG_7), (list{PORT_3_2, PORT_5_0}));
    EXPECT_EQ(aclLagOfPort(PORT_5_0), LAG_7);
    EXPECT_EQ(aclLagOfPort(PORT_4_0), 0u);
    EXPECT_EQ(AclIntfTreeFind(LAG_7)->isLag, 1u);
    for (int result : {0, 1}) EXPECT_EQ(aclLagMemberRemove(LAG_7, PORT_5_0), result);
    EXPECT_EQ(aclLagMemberRemove(LAG_8, PORT_5_0), 1);
    EXPECT_EQ(aclLagMemberAdd(LAG_7, PORT_5_0), 0);  // leaving and joining does
    EXPECT_EQ(ports(LAG_7), (list{PORT_5_0, PORT_3_2}));
    for (auto [lag, member] : {std::pair{LAG_7, LAG_8},
                               {LAG_7, LAG_7},
                               {LAG_7, VLAN_10},
                               {LAG_7, 0x00004001u},
                               {PORT_3_1, PORT_5_0}})
        EXPECT_EQ(aclLagMemberAdd(lag, member), -1) << member;
    EXPECT_EQ(AclIntfTreeFind(PORT_3_1), nullptr);
}

TEST_F(Targets, VlanMembersAreWalkedInIndexOrder) {
    std::mt19937 engine(7);
    auto random = [&engine] { return static_cast<uint32_t>(engine()); };
    std::map<uint32_t, std::set<uint32_t>> truth;  // the teller of truth
    for (int i = 0; i < 2000; i++) {
        uint32_t vlan = 0x00038100 + random() % 5,
                 member = (random() % 3 + 1) << 25 | random() % 40 << 18;
        bool has = truth[vlan].contains(member);
        if (random() % 3 != 0) {
            EXPECT_EQ(aclVlanMemberAdd(vlan, member), has ? 1 : 0);
            truth[vlan].insert(member);
        } else {
            EXPECT_EQ(aclVlanMemberRemove(vlan, member), has ? 0 : 1);
            truth[vlan].erase(member);
        }
    }
    for (const auto& [vlan, members] : truth)
        EXPECT_EQ(ports(vlan), list(members.begin(), members.end()));
    EXPECT_EQ(aclVlanTreeFindFirst()->ifindex, VLAN_10);
    EXPECT_EQ(aclVlanTreeFindNext(VLAN_10)->ifindex, truth.begin()->first);
    EXPECT_EQ(aclVlanTreeFindNext(truth.rbegin()->first), nullptr);
    EXPECT_EQ(aclVlanInfoTreeFind(aclVlanTreeFind(VLAN_10), PORT_3_1)->vlanIfindex, VLAN_10);
    EXPECT_EQ(aclVlanMemberAdd(VLAN_10, VLAN_10 + 1), -1);  // a VLAN is nobody's member
    EXPECT_EQ(aclVlanMemberAdd(LAG_7, PORT_3_1), -1);
    EXPECT_EQ(aclVlanMemberRemove(VLAN_10 + 1, PORT_3_1), 1);
}

TEST_F(Targets, WithoutMemoryNothingChangesAndNothingLeaks) {
    intfRefused why;
    uint64_t blocks = testBlocksInUse();
    for (auto [point, nth, wanted] : {std::tuple{TEST_BLOCK, 1u, intfRefused::record},
                                      {TEST_BLOCK, 2u, intfRefused::bitmap},
                                      {TEST_INSERT, 1u, intfRefused::record}}) {
        testFail(point, nth);
        EXPECT_EQ(aclIntfObtain(PORT_3_1, 1, &why), nullptr);
        EXPECT_EQ(why, wanted);
        EXPECT_EQ(AclIntfTreeFind(PORT_3_1), nullptr);
        EXPECT_EQ(testBlocksInUse(), blocks);
    }
    // VLAN: its record, its tree, its place; then the member's place.
    for (auto [point, nth] :
         {std::pair{TEST_BLOCK, 1u}, {TEST_TREE, 1u}, {TEST_INSERT, 1u}, {TEST_INSERT, 2u}}) {
        testTake();
        testFail(point, nth);
        EXPECT_EQ(aclVlanMemberAdd(VLAN_10 + 1, PORT_3_1), -1);
        testFailNothing();
        const texts said = testTake();
        ASSERT_EQ(said.size(), 1u);
        EXPECT_TRUE(said[0].starts_with("syserr 0x5000c ")) << said[0];
        if (aclVlan* vlan = aclVlanTreeFind(VLAN_10 + 1)) {
            EXPECT_EQ(aclVlanInfoTreeFindFirst(vlan), nullptr);
            aclVlanDrop(vlan);
        }
        EXPECT_EQ(testBlocksInUse(), blocks);
    }
    aclIntf* intf = aclIntfObtain(PORT_3_1, 1, &why);
    ASSERT_NE(intf, nullptr);
    EXPECT_EQ(aclIntfObtain(PORT_3_1, 0, nullptr), intf);
    EXPECT_EQ(intf->direction, 1u);
    for (uint32_t vlan : {0u, 63u, 64u, 4095u})
        for (bool set : {true, false}) {
            vlanBitSet(intf->vlans, vlan, set);
            EXPECT_EQ(vlanBitTest(intf->vlans, vlan), set);
            EXPECT_FALSE(vlanBitTest(intf->vlans, vlan ^ 1));
        }
}
