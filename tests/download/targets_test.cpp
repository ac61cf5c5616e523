// Which cards a list goes to: the members of LAGs and VLANs, and what their cards can hold.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "ipacl/zekipaccess.h"
#include "tests/download/fixture.h"

namespace {

std::vector<uint32_t> ports(uint32_t ifindex) {
    std::vector<uint32_t> found;
    aclWalkPorts(ifindex, [&](uint32_t port) { found.push_back(port); });
    return found;
}
typedef std::vector<uint32_t> list;

std::string refused(const char* kind, int slot) {
    return "syserr 0x50006 Error: " + std::string(kind) +
           " access-list not supported on linecard " + std::to_string(slot) + "\r\n";
}

}  // namespace

struct Targets : DownloadTest {
    // VLAN 10: slot 3 takes egress lists, slot 4 does not; LAG 7 has a port on 3 and one on 5.
    void SetUp() override {
        DownloadTest::SetUp();
        card(5, false);
        aclLinecardInfo[5].isIpv6Enabled = 0;
        EXPECT_EQ(aclLagMemberAdd(LAG_7, PORT_5_0), 0);
        EXPECT_EQ(aclLagMemberAdd(LAG_7, PORT_3_2), 0);
        for (uint32_t member : {PORT_4_0, LAG_7, PORT_3_1})
            EXPECT_EQ(aclVlanMemberAdd(VLAN_10, member), 0);
        testTake();
    }
    ipList made{"edge", 1};
};

TEST_F(Targets, TheMapMarksTheCardsThatTakeTheList) {
    const uint32_t other = 0x0C080000;  // a second port of slot 5
    (void)aclVlanMemberAdd(VLAN_10, other);
    const texts egress = {refused("Egress", 5), refused("Egress", 4)};
    const texts six = {refused("IPv6", 5)};
    struct {
        const char* what;
        uint32_t ifindex, ipv6, id;
        std::set<uint32_t> marked;
        texts errors;
    } const rows[] = {
        {"ingress to a VLAN", VLAN_10, 0, 14409, {3, 4, 5}, {}},
        {"egress to a VLAN, each card reported once", VLAN_10, 0, 14416, {3}, egress},
        {"egress deletion", VLAN_10, 0, 14419, {3}, egress},
        {"egress entries are no lists", VLAN_10, 0, 14417, {3, 4, 5}, {}},
        {"egress to a LAG", LAG_7, 0, 14416, {3}, {refused("Egress", 5)}},
        {"a LAG without members", LAG_8, 0, 14409, {}, {}},
        {"a VLAN that is not known", VLAN_10 + 1, 0, 14409, {}, {}},
        {"IPv6 to a VLAN", VLAN_10, 1, 14533, {3, 4}, six},
        {"egress IPv6: the cards know", VLAN_10, 1, 14537, {3, 4, 5}, {}},
        {"a port is only checked", PORT_4_0, 0, 14416, {}, {refused("Egress", 4)}},
        {"a port that takes the list", PORT_3_1, 0, 14416, {}, {}},
        {"a port's egress IPv6 list", PORT_5_0, 1, 14537, {5}, {}},
        {"a port's IPv6 list", PORT_5_0, 1, 14533, {}, six},
        {"no slot", 0x00004001, 0, 14416, {}, {}},
        {"nothing", 0, 0, 14416, {}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        aclPPBitMap map{};
        aclGetPPBitMap(row.ifindex, &map, row.ipv6, row.id);
        std::set<uint32_t> marked;
        for (uint32_t i = 0; i < PP_TARGETS; i++)
            if (map[i] != 0) marked.insert(i);
        EXPECT_EQ(marked, row.marked);
        texts errors = testTake();
        std::ranges::sort(errors);
        texts wanted = row.errors;
        std::ranges::sort(wanted);
        EXPECT_EQ(errors, wanted);
    }
    aclGetPPBitMap(VLAN_10, nullptr, 0, 14416);
    // A card that has not said what it can do takes IPv6 lists.
    aclLinecardInfo[5].isUp = 0;
    aclPPBitMap map{};
    aclGetPPBitMap(LAG_7, &map, 1, 14533);
    EXPECT_EQ(map[5], 1u);
    EXPECT_TRUE(testTake().empty());
}

TEST_F(Targets, AVlansListGoesOnceToEachCard) {
    ip6List six("six", 1);
    const listName& name = made.list.name;
    EXPECT_EQ(aclSendVlanAclToAclAgent(&made.list, VLAN_10, 1, 14416, 0, 0), 0);
    EXPECT_EQ(aclSendVlanAclEntToAclAgent(made.list.head, VLAN_10, 0, 14410, 1, 0, name), 0);
    // The chain of an IPv6 list is of IPv6 entries.
    EXPECT_EQ(aclSendVlanAclToAclAgent(&six.list, VLAN_10, 1, 14537, 0, 1), 0);
    EXPECT_EQ(aclV6SendVlanAclEntToAclAgent(six.list.head6, VLAN_10, 14535, six.list.name), 0);
    EXPECT_EQ(aclSendVlanAclEntToAclAgent(made.list.head, VLAN_10, 0, 14534, 1, 1, name), -1);
    EXPECT_EQ(sentTo(), (texts{"14416>3", "14410>3", "14410>4", "14410>5", "14537>3", "14537>4",
                               "14537>5", "14535>3", "14535>4"}));
    // The result is the last card's.
    for (auto [nth, result] : {std::pair{3u, -1}, {1u, 0}}) {
        testFail(TEST_BLOCK, nth, 1);
        EXPECT_EQ(aclSendVlanAclToAclAgent(&made.list, VLAN_10, 1, 14409, 0, 0), result);
    }
}

TEST_F(Targets, OneMemberOrOneCardReceivesOnlyItsOwn) {
    aclBinding binding{};
    binding.id = VLAN_10;
    binding.implicitPermit = 4;
    std::memset(binding.block.b, 0x3C, sizeof binding.block.b);
    auto toMember = [&](uint32_t lag, uint32_t port, uint32_t id) {
        return aclSendVlanAclToAclAgentSpecificMember(&made.list, VLAN_10, 1, id, 0, 0, lag, port);
    };
    auto toCard = [&](uint32_t slot, uint32_t id) {
        return aclSendVlanAclForResetLinecard(&made.list, &binding, slot, id, 0);
    };
    struct {
        const char* what;
        std::function<int()> send;
        texts sent;
        size_t errors;
    } const rows[] = {
        {"a port", [&] { return toMember(0, PORT_4_0, 14409); }, {"14409>4"}, 0},
        {"a LAG", [&] { return toMember(LAG_7, 0, 14412); }, {"14412>3", "14412>5"}, 0},
        {"a card that cannot", [&] { return toMember(0, PORT_4_0, 14416); }, {}, 1},
        {"half a LAG", [&] { return toMember(LAG_7, 0, 14416); }, {"14416>3"}, 1},
        {"nobody", [&] { return toMember(0, 0, 14409); }, {}, 0},
        {"a card", [&] { return toCard(3, 14416); }, {"14416>3"}, 0},
        {"that cannot", [&] { return toCard(4, 14416); }, {}, 1},
        {"without members", [&] { return toCard(6, 14416); }, {}, 0},
        {"of slot 0", [&] { return toCard(0, 14409); }, {}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.send(), 0);
        EXPECT_EQ(sentTo(), row.sent);
        EXPECT_EQ(others.size(), row.errors);
    }
    EXPECT_EQ(toCard(20, 14409), -1);
    // The binding's block and option go with the replay.
    EXPECT_EQ(toCard(3, 14409), 0);
    EXPECT_EQ(enqueued(),
              std::vector<bytes>{messageBytes(
                  14409, 3, 0,
                  headerBytes({.ifindex = VLAN_10, .option = 4, .vlan = 1, .blockFill = 0x3C}) +
                      entryBytes(made.entries[0].block, 0, 0))});
}

TEST_F(Targets, TheStandbySendsToNobodyButItsOwnAgent) {
    aclNode->queues.acl0qHandle = aclLinecardInfo[4].aclAgent;
    aclLinecardInfo[LINECARD_CP].agent0IpAddr = 0x7F0100C8;
    testHost.primary = false;
    aclBinding binding{};
    binding.id = VLAN_10;
    const listName& name = made.list.name;
    EXPECT_EQ(aclSendToAclAgent(&made.list, PORT_3_1, 1, 14409, 0, 0, 0), 0);
    EXPECT_EQ(aclSendToAclAgent(&made.list, 0x42040000, 1, 14413, 0, 0, 0), 0);
    EXPECT_EQ(aclSendEntToAclAgent(made.list.head, PORT_3_1, 14410, 1, 0, 0, name), 0);
    EXPECT_EQ(aclSendVlanAclToAclAgent(&made.list, VLAN_10, 1, 14409, 0, 0), 0);
    EXPECT_EQ(aclSendVlanAclEntToAclAgent(made.list.head, VLAN_10, 0, 14410, 1, 0, name), 0);
    EXPECT_EQ(
        aclSendVlanAclToAclAgentSpecificMember(&made.list, VLAN_10, 1, 14409, 0, 0, 0, PORT_3_1),
        0);
    EXPECT_EQ(aclSendVlanAclForResetLinecard(&made.list, &binding, 3, 14409, 0), 0);
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14420), 0);
    EXPECT_TRUE(testTake().empty());
    EXPECT_EQ(aclSendToAclAgent(&made.list, 0x42068000, 1, 14409, 0, 0, 0), 0);
    EXPECT_EQ(sentTo(), texts{"14409>0"});
}

TEST_F(Targets, DosListsGoToEveryAgent) {
    EXPECT_EQ(dosSendToAllAgents(&made.list, nullptr, 14420), 0);
    EXPECT_EQ(dosSendToAllAgents(&made.list, made.list.head, 14423), 0);
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
