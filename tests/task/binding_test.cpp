// Binding as messages ask for it: the fields of each request, what is answered, what a card gets.
#include "interface/interface.h"
#include "tests/task/fixture.h"

namespace {

constexpr uint32_t PORT = 0x08040000, PORT_2 = 0x08080000;  // slot 3
constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 7);

struct BindingMessages : TaskTest {
    std::vector<uint8_t> bind(const char* name, uint32_t ifindex, uint32_t direction) {
        auto bytes = cli(CLI_IP_BIND, name, sizeof(cliBindReq));
        auto* req = reinterpret_cast<cliBindReq*>(bytes.data());
        req->ifindex = ifindex;
        req->direction = direction;
        req->implicitPermit = 1;
        req->writeConfig = 1;
        req->vlanOption = 1;
        std::memset(req->block, 0x5C, sizeof req->block);
        std::memset(req->vlanText, '9', sizeof req->vlanText);  // to the end, no NUL
        return bytes;
    }
    std::vector<uint8_t> unbind(const char* name, uint32_t ifindex, uint32_t direction) {
        auto bytes = cli(CLI_IP_UNBIND, name, sizeof(cliUnbindReq));
        auto* req = reinterpret_cast<cliUnbindReq*>(bytes.data());
        req->ifindex = ifindex;
        req->direction = direction;
        return bytes;
    }
    uint32_t askLag(uint32_t ifindex) {
        auto bytes = cli(CLI_LAG_MEMBERS, "", sizeof(cliWordReq));
        reinterpret_cast<cliWordReq*>(bytes.data())->word = ifindex;
        return ask(bytes);
    }
};

TEST_F(BindingMessages, AListIsBoundAndRemoved) {
    EXPECT_EQ(ask(bind("A", PORT, 1)), ACL_OK);
    const aclBinding* binding = aclInterfaceBinding(ipAccessListFind(listNameMake("A")), PORT, 1);
    ASSERT_NE(binding, nullptr);
    EXPECT_EQ(binding->implicitPermit, 1u);
    for (uint8_t byte : binding->block.b) ASSERT_EQ(byte, 0x5C);
    const auto lines = testCfgLines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(
        lines[2].starts_with("! line not shown: ip access-group A out implicit-permit Vlan 9"));
    EXPECT_EQ(view<cliHdr>()->notShown, 1u) << "the sender is told";
    EXPECT_EQ(ask(unbind("A", PORT, 0)), ACL_E_NOT_BOUND);
    EXPECT_EQ(ask(unbind("A", PORT_2, 1)), ACL_E_NOINTF);
    EXPECT_EQ(ask(unbind("A", PORT, 1)), ACL_OK);
    EXPECT_EQ(ask(unbind("A", PORT, 1)), ACL_E_NOLIST);
    EXPECT_TRUE(testCfgLines().empty());

    // The flag and the option that are not set.
    auto quiet = bind("A", PORT_2, 0);
    reinterpret_cast<cliBindReq*>(quiet.data())->writeConfig = 0;
    EXPECT_EQ(ask(quiet), ACL_OK);
    EXPECT_TRUE(testCfgLines().empty());
    auto plain = bind("A", PORT, 0);
    reinterpret_cast<cliBindReq*>(plain.data())->vlanOption = 0;
    EXPECT_EQ(ask(plain), ACL_OK);
    EXPECT_EQ(testCfgLines().back(), " ip access-group A in implicit-permit");
}

TEST_F(BindingMessages, WhatMakesNoSenseBindsNothing) {
    for (uint32_t direction : {2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ask(bind("A", PORT, direction)), ACL_E_SYSTEM);
        EXPECT_EQ(ask(unbind("A", PORT, direction)), ACL_E_SYSTEM);
    }
    EXPECT_EQ(ask(bind("", PORT, 0)), ACL_E_SYSTEM);
    EXPECT_EQ(ask(bind("A", 0, 0)), ACL_E_SYSTEM);
    EXPECT_EQ(ipAccessListFindFirst(), nullptr);
    EXPECT_EQ(AclIntfTreeFindFirst(), nullptr);
    // IPv6 lists are not built; 2 is IPv4 as any value but 1.
    bindingBlock block{};
    const aclBindRequest again{PORT, 0, 0, 1, &block, false, {}};
    EXPECT_EQ(aclIpApplyIntfExt(listNameMake("A"), again, 1u), ACL_E_SYSTEM);
    EXPECT_EQ(aclIpApplyIntfExt(listNameMake("A"), again, 2u), ACL_OK);
    EXPECT_EQ(aclIpRemoveIntfExt(listNameMake("A"), PORT, 0u, 1u), ACL_E_SYSTEM);
    EXPECT_EQ(aclIpRemoveIntfExt(listNameMake("A"), PORT, 0u, 2u), ACL_OK);
}

TEST_F(BindingMessages, ALagsMembersAreCountedAndNamed) {
    EXPECT_EQ(askLag(PORT), ACL_E_SYSTEM);
    EXPECT_EQ(askLag(LAG), ACL_OK);
    EXPECT_EQ(reply.size(), 228u);
    EXPECT_EQ(uint32_t{view<cliLagMembersReq>()->count}, 0u);
    // As many as an answer takes, in the order in which they joined.
    std::vector<uint32_t> ports;
    for (uint32_t i = 0; i < CLI_LAG_MEMBERS_MAX + 1; i++)
        ports.push_back(0x04040000 + (CLI_LAG_MEMBERS_MAX - i));
    for (size_t i = 0; i < 2; i++) ASSERT_EQ(aclLagPortJoined(LAG, ports[i]), 0);
    EXPECT_EQ(askLag(LAG), ACL_OK);
    EXPECT_EQ(reply.size(), 236u);
    for (size_t i = 2; i < ports.size(); i++) ASSERT_EQ(aclLagPortJoined(LAG, ports[i]), 0);
    EXPECT_EQ(askLag(LAG), ACL_OK);
    ASSERT_EQ(reply.size(), sizeof(cliLagMembersReq));
    EXPECT_EQ(uint32_t{view<cliLagMembersReq>()->count}, CLI_LAG_MEMBERS_MAX);
    for (size_t i = 0; i < CLI_LAG_MEMBERS_MAX; i++)
        ASSERT_EQ(uint32_t{view<cliLagMembersReq>()->members[i]}, ports[i]);
}

// A card is meant to hold no egress list once it has said that it takes none; before it has said
// anything the list is missing there.
TEST_F(BindingMessages, WhatACardShouldHoldFollowsWhatItTakes) {
    ASSERT_EQ(aclLagPortJoined(LAG, PORT_2), 0);
    for (uint32_t ifindex : {PORT, LAG})
        for (uint32_t direction : {INTF_IN, INTF_OUT})
            EXPECT_EQ(ask(bind("A", ifindex, direction)), ACL_OK);
    struct {
        uint32_t isUp, isVortan;
        size_t refusals;  // of the four rows
    } const cases[] = {{0, 0, 0}, {1, 0, 2}, {1, 1, 0}};
    for (const auto& c : cases) {
        aclLinecardInfo[3].isUp = c.isUp;
        aclLinecardInfo[3].isVortan = c.isVortan;
        std::string out;
        ASSERT_TRUE(zekDebugRun("intended", "A", &out));
        size_t rows = 0, refusals = 0;
        for (size_t at = 0; (at = out.find("\"direction\":", at)) != out.npos; at++, rows++)
            refusals += out.substr(at, out.find('}', at) - at).find("refuses") != out.npos;
        EXPECT_EQ(rows, 4u) << out;
        EXPECT_EQ(refusals, c.refusals) << out;
    }
}

TEST_F(BindingMessages, ATelnetServerMayUseWhatIsConfigured) {
    auto value = [this](const char* name) {
        auto bytes = cli(CLI_TELNET_VALUE, name, sizeof(cliWordReq));
        reinterpret_cast<cliWordReq*>(bytes.data())->word = 77;
        EXPECT_EQ(ask(bytes), ACL_OK);
        return uint32_t{view<cliWordReq>()->word};
    };
    EXPECT_EQ(value("A"), ACL_E_NOLIST);
    EXPECT_EQ(ask(bind("A", PORT, 0)), ACL_OK);
    EXPECT_EQ(value("A"), ACL_E_NOLIST) << "only bound";
    EXPECT_EQ(ipAccessListCreateExt(listNameMake("A"), IP_KIND_STANDARD, 0u, 0u), ACL_OK);
    testTake();
    EXPECT_EQ(value("A"), ACL_OK);
    EXPECT_EQ(effects.size(), 1u) << "nothing but the answer";
}

}  // namespace
