// Bindings and places as messages ask for them: the fields of each request, and what is answered.
#include "download/zekacl_download.h"
#include "ipacl/zekvlangroup.h"
#include "task/follow.h"
#include "tests/task/fixture.h"

namespace {

constexpr uint32_t PORT = 0x08040000, PORT_2 = 0x08080000;  // slot 3
constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 7), VLAN = ifindexMake(IF_TYPE_VLAN, 9);

struct BindingMessages : TaskTest {
    uint32_t bind(const char* name, uint32_t ifindex, uint32_t direction, uint32_t writeConfig = 1,
                  uint32_t vlanOption = 0) {
        return ask(cli<cliBindReq>(CLI_IP_BIND, name, [&](auto& r) {
            r.ifindex = ifindex;
            r.direction = direction;
            r.implicitPermit = 1u;
            r.writeConfig = writeConfig;
            r.vlanOption = vlanOption;
            std::memset(r.block, 0x5C, sizeof r.block);
            std::memset(r.vlanText, '9', sizeof r.vlanText);  // to the end, no NUL
        }));
    }
    uint32_t unbind(const char* name, uint32_t ifindex, uint32_t direction) {
        return ask(cli<cliUnbindReq>(CLI_IP_UNBIND, name, [&](auto& r) {
            r.ifindex = ifindex;
            r.direction = direction;
        }));
    }
    uint32_t askWord(uint32_t code, const char* name, uint32_t word) {
        return ask(cli<cliWordReq>(code, name, [=](auto& r) { r.word = word; }));
    }
};

TEST_F(BindingMessages, AListIsBoundAndRemovedWhereThatMakesSense) {
    for (uint32_t direction : {2u, 0xFFFFFFFFu})
        EXPECT_TRUE(bind("A", PORT, direction) == ACL_E_SYSTEM &&
                    unbind("A", PORT, direction) == ACL_E_SYSTEM);
    EXPECT_EQ(bind("", PORT, 0), ACL_E_SYSTEM);
    EXPECT_EQ(bind("A", 0, 0), ACL_E_SYSTEM);
    EXPECT_EQ(ipAccessListFindFirst(), nullptr);
    EXPECT_EQ(AclIntfTreeFindFirst(), nullptr);

    EXPECT_EQ(bind("A", PORT, 1, 1, 1), ACL_OK);
    const aclBinding* binding =
        aclInterfaceBinding(ipAccessListFind(listNameMake("A")), PORT, INTF_OUT);
    ASSERT_NE(binding, nullptr);
    EXPECT_EQ(binding->implicitPermit, 1u);
    for (uint8_t byte : binding->block.b) ASSERT_EQ(byte, 0x5C);
    EXPECT_TRUE(testCfgLines().back().starts_with(
        "! line not shown: ip access-group A out implicit-permit Vlan 9"));
    EXPECT_EQ(view<cliHdr>()->notShown, 1u) << "the sender is told";
    EXPECT_EQ(unbind("A", PORT, 0), ACL_E_NOT_BOUND);
    EXPECT_EQ(unbind("A", PORT, 1), ACL_OK);
    // The flag and the option that are not set.
    EXPECT_EQ(bind("A", PORT_2, 0, 0), ACL_OK);
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(bind("A", PORT, 0), ACL_OK);
    EXPECT_EQ(testCfgLines().back(), " ip access-group A in implicit-permit");
}

TEST_F(BindingMessages, ALagsMembersAreCountedAndNamed) {
    EXPECT_EQ(askWord(CLI_LAG_MEMBERS, "", PORT), ACL_E_SYSTEM);
    // As many as an answer takes, in the order in which they joined.
    std::vector<uint32_t> ports;
    for (size_t joined : {size_t{0}, size_t{2}, CLI_LAG_MEMBERS_MAX + 1}) {
        for (uint32_t port = 0x04042000; ports.size() < joined; ports.push_back(port))
            while (aclFollowLagJoined(LAG, --port) != 0) continue;
        EXPECT_EQ(askWord(CLI_LAG_MEMBERS, "", LAG), ACL_OK);
        const size_t shown = std::min(joined, CLI_LAG_MEMBERS_MAX);
        ASSERT_EQ(reply.size(), 228 + 4 * shown);
        EXPECT_EQ(uint32_t{view<cliLagMembersReq>()->count}, shown);
        for (size_t i = 0; i < shown; i++)
            ASSERT_EQ(uint32_t{view<cliLagMembersReq>()->members[i]}, ports[i]);
    }
}

// A card is meant to hold no egress list once it has said that it takes none; before it has said
// anything the list is missing there.
TEST_F(BindingMessages, WhatACardShouldHoldFollowsWhatItTakes) {
    ASSERT_EQ(aclFollowLagJoined(LAG, PORT_2), 0);
    for (uint32_t ifindex : {PORT, LAG})
        for (uint32_t direction : {INTF_IN, INTF_OUT})
            EXPECT_EQ(bind("A", ifindex, direction), ACL_OK);
    const std::string parts[] = {"\"direction\":0", "\"direction\":1", "\"refuses\":true"};
    for (auto [isUp, isVortan, refusals] : {std::array{0u, 0u, 0u}, {1, 0, 2}, {1, 1, 0}}) {
        aclLinecardInfo[3].isUp = isUp;
        aclLinecardInfo[3].isVortan = isVortan;
        std::string out = debug("intended", "ip A");
        std::vector<uint32_t> found;
        for (const std::string& what : parts) {
            found.push_back(0);
            for (size_t at = 0; (at = out.find(what, at)) != out.npos; at++) found.back()++;
        }
        EXPECT_EQ(found, (std::vector{2u, 2u, refusals})) << out;
    }
}

// A group's list is held once by each card behind the group, where the chassis has groups.
TEST_F(BindingMessages, WhatACardShouldHoldOfVlanGroups) {
    bindingVlans vlans{};
    vlans.bits[1] = 0x40;  // VLAN 9
    ASSERT_EQ(aclFollowVlanJoined(VLAN, PORT), 0);
    ASSERT_EQ(aclFollowVlanJoined(VLAN, PORT_2), 0);
    const listName group = listNameMake("G"), list = listNameMake("A");
    EXPECT_EQ(aclCreateDelAclVlanGrpExt(group, 3, true), ACL_OK);
    EXPECT_EQ(aclAddDelAclVlanGrpMemberExt(group, vlans, true), ACL_OK);
    EXPECT_EQ(aclApplyRemoveAclVlanGrpExt(group, list, 1, true), ACL_OK);
    const std::string front = R"([{"interface":"VLAN group 3 G","direction":1,"kind":0,)"
                              R"("implicitPermit":1,"block":"","undefined":true,"group":3,)";
    EXPECT_EQ(debug("intended", "ip A"), front + R"("unsent":"not sent in this chassis"}])");
    aclNode->chassis.chassisMode = CHASSIS_MODE_VLAN_GROUPS;
    EXPECT_EQ(debug("intended", "ip A"), front + R"("ifindex":0,"card":"3","entries":0,)"
                                                 R"("hash":"cbf29ce484222325"}])");
    aclLinecardInfo[3].isUp = 1;
    EXPECT_NE(debug("intended", "ip A").find(R"("refuses":true)"), std::string::npos);
    for (const char* other : {"ipv6 A", "mac A", "A", "ip", "", "ip  A"})
        EXPECT_EQ(debug("intended", other), R"({"missing":true})");
}

// A group is made, filled, applied and shown by messages; its VLAN's new member gets the list.
TEST_F(BindingMessages, AVlanGroupIsWhatItsRequestsSay) {
    aclNode->chassis.chassisMode = CHASSIS_MODE_VLAN_GROUPS;
    aclLinecardInfo[3].isUp = aclLinecardInfo[3].isVortan = 1;
    aclLinecardInfo[3].agentIpAddr = CLIENT_CARD;
    ASSERT_EQ(iAclSwpQueueCreate(3, QUEUE_ACL_AGENT), 0);
    auto group = [this](uint32_t code, const char* list = "", uint32_t vlan = 9) {
        return ask(cli<cliGroupReq>(code, "G", [=](auto& r) {
            r.id = 5u;
            r.list = listNameMake(list);
            r.implicitPermit = 1u;
            r.vlans.bits[vlan / 8] = static_cast<uint8_t>(0x80 >> vlan % 8);
        }));
    };
    EXPECT_EQ(group(CLI_GROUP_MEMBER_ADD), ACL_E_NOGROUP);
    EXPECT_EQ(group(CLI_GROUP_CREATE), ACL_OK);
    EXPECT_EQ(group(CLI_GROUP_MEMBER_ADD), ACL_OK);
    EXPECT_EQ(group(CLI_GROUP_APPLY, "two words"), ACL_E_SYSTEM);
    EXPECT_EQ(group(CLI_GROUP_APPLY, "A"), ACL_OK);
    EXPECT_EQ(bind("A", VLAN, 1), ACL_E_GROUP_VLAN);
    ASSERT_EQ(aclFollowVlanJoined(VLAN, PORT), 0);
    const std::vector<testRow> sent = testTakeRows();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(msgWord(sent[0].bytes.data(), 12), uint32_t{MT_ACL_EGR_ADDLIST});
    const auto* header =
        reinterpret_cast<const agentListHdr*>(sent[0].bytes.data() + sizeof(agentHdr));
    EXPECT_TRUE(header->ifindex == 0 && header->groupId == 5 && header->option == 1);
    EXPECT_EQ(header->groupName, listNameMake("G"));
    EXPECT_EQ(debug("acl-vlan-groups", "detail G"),
              R"([{"name":"G","id":5,"vlans":"9","sent":true,"list":"A","implicit-permit")"
              R"(:true,"configured":false,"cards":[3],"refused-by":[]}])");
    for (auto [code, least] : {std::pair{CLI_GROUP_CREATE, 224u},
                               {CLI_GROUP_MEMBER_DELETE, 888u},
                               {CLI_GROUP_REMOVE, 368u},
                               {CLI_SHOW_GROUP, 1016u}})
        EXPECT_EQ(ask(cli(code, "G", least - 1)), ACL_E_SYSTEM) << code;
    auto shown = deliver(cli<cliShowReq>(CLI_SHOW_GROUP_ALL_2, "", [](auto&) {}));
    ASSERT_TRUE(shown.size() == 1 && shown[0].size() > 204);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&shown[0][204])),
              "ACL VLAN group G\r\n id 5\r\n member vlan 9\r\n"
              " ip access-group A out implicit-permit (not configured)\r\n cards 3\r\n");
    EXPECT_EQ(group(CLI_GROUP_DELETE), ACL_E_GROUP_USED);
    EXPECT_EQ(group(CLI_GROUP_REMOVE, "A"), ACL_OK);
    EXPECT_EQ(group(CLI_GROUP_MEMBER_DELETE, "", 10), ACL_E_GROUP_MEMBER);
    EXPECT_EQ(group(CLI_GROUP_MEMBER_DELETE), ACL_OK);
    EXPECT_EQ(group(CLI_GROUP_DELETE), ACL_OK);
    EXPECT_EQ(testCfgLines().size(), 0u);
}

// Pairs of source guard by requests; what a card gets are entries below IP.
TEST_F(BindingMessages, APairOfSourceGuardIsAnEntryBelowIp) {
    aclLinecardInfo[3].isUp = 1;
    aclLinecardInfo[3].agentIpAddr = CLIENT_CARD;
    ASSERT_EQ(iAclSwpQueueCreate(3, QUEUE_ACL_AGENT), 0);
    auto guard = [this](uint32_t code) {
        return cli<cliSourceGuardReq>(code, "", [](auto& r) {
            r.ifindex = PORT;
            r.address = 0x0A000001u;
            std::memcpy(r.mac, "\x02\1\2\3\4\5", 6);
            r.vlan = uint16_t{9};
        });
    };
    EXPECT_EQ(ask(cli(CLI_SOURCE_GUARD_ADD, "", 235)), ACL_E_SYSTEM);
    testTake();
    const auto bytes = guard(CLI_SOURCE_GUARD_ADD);
    std::memcpy(received, bytes.data(), bytes.size());
    aclTakeMessage(aclNode, received, bytes.size());
    std::vector<std::vector<uint8_t>> sent;
    for (testRow& row : testTakeRows())
        if (row.text.starts_with("swp ")) sent.push_back(row.bytes);
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_EQ(sent[0].size(), sizeof(agentHdr) + sizeof(agentListHdr) + sizeof(agentEntry));
    EXPECT_EQ(msgWord(sent[0].data(), 12), uint32_t{MT_IPMAC_ACL_NEWLIST});
    const auto* entry = reinterpret_cast<const agentEntry*>(sent[0].data() + sizeof(agentHdr) +
                                                            sizeof(agentListHdr));
    EXPECT_TRUE(entry->action == IP_PERMIT && entry->match.src == 0x0A000001 &&
                entry->match.srcMask == 0xFFFFFFFF);
    // Bytes 72 to 127 of the entry block: ether-type at 76, the source's MAC pair at 80, the VLAN.
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(entry->match.l2 + 4), 16),
              std::string("\0\0\x08\0\x02\1\2\3\4\5\xff\xff\xff\xff\xff\xff", 16));
    EXPECT_EQ(entry->match.l2[43], 9);
    EXPECT_EQ(bind("A", PORT, 0), ACL_E_CLASH);
    EXPECT_EQ(debug("source-guard", "x"), R"({"error":"The chassis has no such interface"})");
    EXPECT_NE(debug("source-guard")
                  .find(R"("address":"10.0.0.1","mac":"02:01:02:03:04:05",)"
                        R"("configured":true,"lease":false,"vlan":9)"),
              std::string::npos);
    auto shown = deliver(cli<cliShowReq>(CLI_SHOW_SOURCE_GUARD_ALL, "", [](auto&) {}));
    ASSERT_TRUE(shown.size() == 1 && shown[0].size() > 204);
    EXPECT_TRUE(std::string(reinterpret_cast<char*>(&shown[0][204]))
                    .ends_with("\r\n 10.0.0.1 02:01:02:03:04:05 vlan 9\r\n"));
    EXPECT_EQ(ask(guard(CLI_SOURCE_GUARD_DELETE)), ACL_OK);
    EXPECT_EQ(ask(guard(CLI_SOURCE_GUARD_DELETE)), ACL_E_NOENTRY);
    EXPECT_TRUE(testCfgLines().empty());
}

TEST_F(BindingMessages, ATelnetServerMayUseWhatIsConfigured) {
    auto value = [this] {
        EXPECT_EQ(askWord(CLI_TELNET_VALUE, "A", 77), ACL_OK);
        EXPECT_EQ(effects.size(), 1u) << "nothing but the answer";
        return uint32_t{view<cliWordReq>()->word};
    };
    EXPECT_EQ(value(), ACL_E_NOLIST);
    EXPECT_EQ(bind("A", PORT, 0), ACL_OK);
    EXPECT_EQ(value(), ACL_E_NOLIST) << "only bound";
    EXPECT_EQ(ipAccessListCreateExt(listNameMake("A"), IP_KIND_STANDARD, 0, INTF_V4), ACL_OK);
    testTake();
    EXPECT_EQ(value(), ACL_OK);
}

}  // namespace
