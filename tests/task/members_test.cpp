// Who is told what when ports and LAGs become members of LAGs and VLANs, and when they leave.
#include <map>
#include <set>

#include "download/zekacl_download.h"
#include "include/protMsg.h"
#include "ipacl/zekvlangroup.h"
#include "protocol/membership.h"
#include "task/follow.h"
#include "tests/task/fixture.h"

namespace {

// Ports of cards 1, 2 and 3, and what they are put into.
constexpr uint32_t port(uint32_t slot, uint32_t number) {
    return (slot + 1) << 25 | (number + 1) << 18;
}
constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 7), VLAN = ifindexMake(IF_TYPE_VLAN, 9),
                   VLAN_2 = ifindexMake(IF_TYPE_VLAN, 10);

struct Members : TaskTest {
    void SetUp() override {
        TaskTest::SetUp();
        for (uint32_t slot : {1u, 2u, 3u}) {
            aclLinecard& card = aclLinecardInfo[slot];
            card.isUp = card.isVortan = card.isIpv6Enabled = 1;
            card.agentIpAddr = CLIENT_CARD + slot;
            ASSERT_EQ(iAclSwpQueueCreate(slot, QUEUE_ACL_AGENT), 0);
            ASSERT_EQ(iAclSwpQueueCreate(slot, QUEUE_MAC_AGENT), 0);
        }
        testTake();
    }
    void bind(uint32_t code, const char* name, uint32_t ifindex, uint32_t direction,
              uint32_t status = ACL_OK) {
        EXPECT_EQ(ask(cli<cliBindReq>(code, name,
                                      [&](auto& r) {
                                          r.ifindex = ifindex;
                                          r.direction = direction;
                                          r.writeConfig = 1u;
                                      })),
                  status);
        take();
    }
    // "14409 A 2: 0x8040000" for a list, its card and the interface that the header names;
    // "30005 1: 1 0x4040000 9 77" for a member.
    static std::string textOf(std::span<const uint8_t> bytes) {
        const auto& hdr = *reinterpret_cast<const agentHdr*>(bytes.data());
        const uint32_t id = hdr.ipc.mtype, slot = hdr.ipc.source.slot;
        char text[240];
        if (id == MT_MAC_MEMBER) {
            const auto& m = *reinterpret_cast<const macMemberMsg*>(bytes.data());
            std::snprintf(text, sizeof text, "%u %u: %u %#x %u %u%s", id, slot, uint32_t{m.add},
                          uint32_t{m.port}, uint32_t{m.vlan}, uint32_t{m.mcastId},
                          hdr.ipc.length == 272 ? "" : " bad length");
            return text;
        }
        const auto* list = reinterpret_cast<const agentListHdr*>(bytes.data() + sizeof(agentHdr));
        const bool mac = agentIsMac(id);
        const auto* macList =
            reinterpret_cast<const agentMacListHdr*>(bytes.data() + sizeof(agentHdr));
        std::snprintf(text, sizeof text, "%u %s %u: %#x", id,
                      std::string(listNameView(mac ? macList->name : list->name)).c_str(), slot,
                      uint32_t{mac ? macList->ifindex : list->ifindex});
        return text;
    }
    static bool agentIsMac(uint32_t id) {
        return id >= MT_L2ACL_ADDLIST && id <= MT_L2ACL_EGR_DELENT;
    }
    static std::vector<std::string> take() {
        std::vector<std::string> texts;
        for (const testRow& row : testTakeRows())
            if (row.text.starts_with("swp ")) texts.push_back(textOf(row.bytes));
        return texts;
    }
    typedef std::vector<std::string> rows;
};

// One card's answer to two members: the loss goes out as it stands, the list follows at once.
TEST_F(Members, AVlansListsFollowItsMembers) {
    bind(CLI_IP_BIND, "I", VLAN, INTF_IN);
    bind(CLI_IP_BIND, "E", VLAN, INTF_OUT);
    bind(CLI_V6_BIND, "S", VLAN, INTF_IN);
    bind(CLI_V6_BIND, "T", VLAN, INTF_OUT);
    EXPECT_EQ(aclFollowVlanJoined(VLAN, port(1, 1)), 0);
    EXPECT_EQ(take(), (rows{"14409 I 1: 0x38009", "14416 E 1: 0x38009", "14533 S 1: 0x38009",
                            "14537 T 1: 0x38009"}));
    EXPECT_EQ(aclFollowVlanJoined(VLAN, port(1, 1)), 1);
    EXPECT_EQ(take(), rows{});
    EXPECT_EQ(aclFollowVlanJoined(VLAN, port(1, 2)), 0);
    take();
    EXPECT_EQ(aclFollowVlanLeft(VLAN, port(1, 1)), 0);
    EXPECT_EQ(take(), (rows{"14412 I 1: 0x38009", "14409 I 1: 0x38009", "14419 E 1: 0x38009",
                            "14416 E 1: 0x38009", "14536 S 1: 0x38009", "14533 S 1: 0x38009",
                            "14540 T 1: 0x38009", "14537 T 1: 0x38009"}));
    EXPECT_EQ(aclFollowVlanLeft(VLAN, port(1, 1)), 1) << "not a member any more";
    EXPECT_EQ(aclFollowVlanLeft(VLAN, port(1, 2)), 0);
    EXPECT_EQ(take(), (rows{"14412 I 1: 0x38009", "14419 E 1: 0x38009", "14536 S 1: 0x38009",
                            "14540 T 1: 0x38009"}));
}

// A LAG's ports come and go while it is a member of two VLANs, one of which has a port of the same
// card.
TEST_F(Members, APortOfALagIsAMemberOfTheLagsVlans) {
    bind(CLI_IP_BIND, "L", LAG, INTF_IN);
    bind(CLI_IP_BIND, "V", VLAN, INTF_IN);
    bind(CLI_IP_BIND, "W", VLAN_2, INTF_IN);
    for (uint32_t vlan : {VLAN, VLAN_2}) EXPECT_EQ(aclFollowVlanJoined(vlan, LAG), 0);
    EXPECT_EQ(take(), rows{}) << "no port, no card";
    EXPECT_EQ(aclFollowVlanJoined(VLAN, port(2, 1)), 0);
    EXPECT_EQ(take(), rows{"14409 V 2: 0x38009"});
    EXPECT_EQ(aclFollowLagJoined(LAG, port(2, 2)), 0);
    EXPECT_EQ(take(), (rows{"14409 L 2: 0x60c0000", "14409 V 2: 0x38009", "14409 W 2: 0x3800a"}));
    EXPECT_EQ(aclFollowLagLeft(LAG, port(2, 2)), 0);
    EXPECT_EQ(take(), (rows{"14412 L 2: 0x60c0000", "14412 V 2: 0x38009", "14409 V 2: 0x38009",
                            "14412 W 2: 0x3800a"}));
    EXPECT_EQ(aclFollowLagJoined(LAG, port(2, 1)), 0) << "a port of the VLAN itself";
    take();
    EXPECT_EQ(aclFollowVlanLeft(VLAN, port(2, 1)), 0);
    EXPECT_EQ(take(), (rows{"14412 V 2: 0x38009", "14409 V 2: 0x38009"}));
    // Neither a LAG of a LAG nor a port of two.
    EXPECT_EQ(aclFollowLagJoined(LAG, ifindexMake(IF_TYPE_LAG, 8)), -1);
    EXPECT_EQ(aclFollowLagJoined(ifindexMake(IF_TYPE_LAG, 8), port(2, 1)), -1);
    EXPECT_EQ(aclFollowVlanJoined(VLAN, VLAN_2), -1);
    EXPECT_EQ(aclFollowVlanJoined(VLAN, 3), -1) << "a bare slot";
}

// A port's own list stays in its place; the LAG's comes when it goes.
TEST_F(Members, APortsOwnListGoesBeforeItsLags) {
    bind(CLI_IP_BIND, "OWN", port(1, 1), INTF_IN);
    bind(CLI_IP_BIND, "L", LAG, INTF_IN);
    bind(CLI_IP_BIND, "E", LAG, INTF_OUT);
    EXPECT_EQ(aclFollowLagJoined(LAG, port(1, 1)), 0);
    EXPECT_EQ(take(), rows{"14416 E 1: 0x4080000"});
    bind(CLI_IP_BIND, "NEW", port(1, 1), INTF_IN, ACL_E_LAG_MEMBER);
    // The LAG's list changes around it, and is not meant to be there.
    EXPECT_EQ(ipAccessListCreateExt(listNameMake("L"), IP_KIND_STANDARD, 0, 0), ACL_OK);
    EXPECT_EQ(debug("intended", "ip L").find("\"card\":\"1\""), std::string::npos);
    EXPECT_NE(debug("intended", "ip OWN").find("\"card\":\"1\""), std::string::npos);
    take();
    EXPECT_EQ(aclFollowLagLeft(LAG, port(1, 1)), 0);
    EXPECT_EQ(take(), rows{"14419 E 1: 0x4080000"}) << "its own is not the LAG's to take";
    EXPECT_EQ(aclFollowLagJoined(LAG, port(1, 1)), 0);
    take();
    EXPECT_EQ(aclIpRemoveIntfExt(listNameMake("OWN"), port(1, 1), INTF_IN, 0), ACL_OK);
    EXPECT_EQ(take(), (rows{"14412 OWN 1: 0x4080000", "14409 L 1: 0x4080000"}));
    EXPECT_EQ(aclFollowLagLeft(LAG, port(1, 1)), 0);
    EXPECT_EQ(take(), (rows{"14412 L 1: 0x4080000", "14419 E 1: 0x4080000"}));
}

TEST_F(Members, MacAgentsKnowTheMembersOfGroupsWithAnId) {
    EXPECT_EQ(aclFollowVlanJoined(VLAN, port(1, 1)), 0);
    EXPECT_EQ(aclFollowVlanJoined(VLAN, LAG), 0);
    EXPECT_EQ(aclFollowLagJoined(LAG, port(2, 1)), 0);
    EXPECT_EQ(take(), rows{}) << "no id";
    aclAddDelMcastGrpIdVlan(VLAN, 77, true);
    EXPECT_EQ(take(), (rows{"30005 2: 1 0x6080000 9 77", "30005 1: 1 0x4080000 9 77"}));
    aclAddDelMcastGrpIdLAG(LAG, 5, true);
    EXPECT_EQ(take(), rows{"30005 2: 1 0x6080000 0 5"});
    EXPECT_EQ(aclFollowLagJoined(LAG, port(3, 1)), 0);
    EXPECT_EQ(take(), (rows{"30005 3: 1 0x8080000 0 5", "30005 3: 1 0x8080000 9 77"}));
    aclReplayMembership(3);
    EXPECT_EQ(take(), (rows{"30005 3: 1 0x8080000 0 5", "30005 3: 1 0x8080000 9 77"}));
    // One that is a member in two ways stays with the other one.
    EXPECT_EQ(aclFollowVlanJoined(VLAN, port(3, 1)), 0);
    EXPECT_EQ(take(), rows{"30005 3: 1 0x8080000 9 77"});
    EXPECT_EQ(aclFollowLagLeft(LAG, port(3, 1)), 0);
    EXPECT_EQ(take(), rows{"30005 3: 0 0x8080000 0 5"});
    EXPECT_EQ(aclFollowVlanLeft(VLAN, port(3, 1)), 0);
    EXPECT_EQ(take(), rows{"30005 3: 0 0x8080000 9 77"});
    aclAddDelMcastGrpIdVlan(VLAN, 0, false);
    EXPECT_EQ(take(), (rows{"30005 2: 0 0x6080000 9 77", "30005 1: 0 0x4080000 9 77"}));
    EXPECT_EQ(aclFollowVlanLeft(VLAN, port(1, 1)), 0);
    EXPECT_EQ(take(), rows{});
}

// What is no more takes everything with it: members, lists with their lines, its record.
TEST_F(Members, AnInterfaceThatIsNoMoreLeavesNothing) {
    bind(CLI_IP_BIND, "V", VLAN, INTF_OUT);
    bind(CLI_IP_BIND, "L", LAG, INTF_IN);
    bind(CLI_MAC_BIND, "M", LAG, INTF_IN);
    bind(CLI_V6_BIND, "P", port(1, 2), INTF_OUT);
    for (uint32_t member : {LAG, port(1, 2)}) EXPECT_EQ(aclFollowVlanJoined(VLAN, member), 0);
    EXPECT_EQ(aclFollowLagJoined(LAG, port(1, 1)), 0);
    take();
    aclFollowLagGone(LAG);
    EXPECT_EQ(take(), (rows{"14419 V 1: 0x38009", "14416 V 1: 0x38009", "14486 M 1: 0x4080000",
                            "14412 L 1: 0x4080000"}));
    EXPECT_EQ(AclIntfTreeFind(LAG), nullptr);
    EXPECT_EQ(aclLagOfPort(port(1, 1)), 0u);
    aclFollowPortGone(port(1, 2));
    EXPECT_EQ(take(), (rows{"14419 V 1: 0x38009", "14540 P 1: 0x40c0000"}));
    EXPECT_EQ(AclIntfTreeFind(port(1, 2)), nullptr);
    EXPECT_EQ(aclVlanInfoTreeFindFirst(aclVlanTreeFind(VLAN)), nullptr);
    aclFollowVlanGone(VLAN);
    EXPECT_TRUE(aclVlanTreeFind(VLAN) == nullptr && AclIntfTreeFind(VLAN) == nullptr);
    EXPECT_TRUE(aclNode->groups.aclVlanGroupMemberBitMap.test(9)) << "free for a group again";
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(ipAccessListFindFirst(), nullptr) << "placeholders go with their bindings";
    for (uint32_t gone : {LAG, VLAN, port(1, 2)}) {
        aclFollowLagGone(gone);
        aclFollowVlanGone(gone);
        aclFollowPortGone(gone);
    }
    EXPECT_EQ(take(), rows{});
}

}  // namespace
