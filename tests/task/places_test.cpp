// What an operator is told of interfaces, VLANs and LAGs: every one of them once, in pages that are
// quick to make.
#include "tests/task/fixture.h"

namespace {

constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 7), VLAN = ifindexMake(IF_TYPE_VLAN, 0);
constexpr uint32_t portOf(uint32_t slot, uint32_t port) {
    return (slot + 1) << 25 | (port + 1) << 18 | (port + 1);
}

struct Places : TaskTest {
    void TearDown() override {
        while (aclVlan* vlan = aclVlanTreeFindFirst()) aclVlanDrop(vlan);
        TaskTest::TearDown();
    }
    // As the platform calls it.
    static std::string chassisName(uint32_t ifindex) {
        char name[64];
        (void)ifmIfIndexToLName(ifindex, name, sizeof name);
        return name;
    }
    static bool has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
};

}  // namespace

TEST_F(Places, EveryVlanOfAFullChassisIsToldOnceInPages) {
    constexpr uint32_t VLANS = 4094, MEMBERS = 48;
    for (uint32_t id = 1; id <= VLANS; id++)
        for (uint32_t m = 0; m < MEMBERS; m++)
            ASSERT_EQ(aclVlanMemberAdd(VLAN + id, portOf(1 + m % 8, m / 8)), 0);
    // The VLANs of each port are ranges.
    ASSERT_EQ(aclVlanMemberRemove(VLAN + 10, portOf(1, 0)), 0);
    EXPECT_TRUE(
        has(debug("interfaces", chassisName(portOf(1, 0)).c_str()), R"("vlans":"1-9,11-4094")"));

    uint32_t told = 0, pages = 0;
    const std::string number = R"("kind":"vlan","id":)", next = R"(],"next":)";
    for (std::string args; pages < VLANS; pages++) {
        const std::string page = debug("vlans", args.c_str());
        EXPECT_LT(page.size(), 70000u);
        for (size_t at = 0; (at = page.find(number, at)) != page.npos; at += number.size())
            ASSERT_EQ(std::stoul(page.substr(at + number.size())), ++told);
        const size_t end = page.rfind(next);
        if (end == page.npos) break;
        args = "after " + page.substr(end + next.size());
        args.pop_back();
    }
    EXPECT_EQ(told, VLANS);
    EXPECT_GT(pages, 10u);
}

TEST_F(Places, WhatIsOnAPlaceIsTold) {
    const uint32_t port = portOf(3, 0);
    const auto bind = [&](const char* name, uint32_t ifindex) {
        return ask(cli<cliBindReq>(CLI_IP_BIND, name, [&](auto& r) { r.ifindex = ifindex; }));
    };
    ASSERT_EQ(bind("OWN", port), ACL_OK);
    ASSERT_EQ(bind("LAGS", LAG), ACL_OK);
    ASSERT_EQ(aclLagMemberAdd(LAG, portOf(4, 1)), 0);
    ASSERT_EQ(aclLagMemberAdd(LAG, port), 0);
    aclPlaceUse* use = aclPlaceUseObtain(port);
    ASSERT_NE(use, nullptr);
    use->mode = 3;
    use->addresses = {{{0x0A000001}, 24}, {{0x20010DB8, 0, 0, 1}, 64, true, true}};
    use->protocols.resize(1);
    use->protocols[0].record.id = uint32_t{PROT_VRRP};
    for (be32& word : use->protocols[0].record.vmac) word = 0xFFFF0A5Eu;

    const std::string shown = debug("interfaces", chassisName(port).c_str());
    for (const char* part :
         {R"("mode":3)", R"({"address":"10.0.0.1/24","kind":"primary","installed":false})",
          R"({"address":"2001:db8::1/64","kind":"primary","installed":true})",
          R"("direction":"in","family":"ip","list":"OWN")", R"("yields":true)"})
        EXPECT_TRUE(has(shown, part)) << part << "\n" << shown;
    EXPECT_TRUE(has(debug("protocols"), R"("id":20480,"virtual-mac":"0a:5e:0a:5e:0a:5e")"));
    // In the order in which they joined, not in that of their indexes.
    const std::string lag = debug("port-channels", "7");
    EXPECT_LT(lag.find(chassisName(portOf(4, 1))), lag.find(chassisName(port))) << lag;
    for (const char* unknown : {"0", "4096", "x", "7 ", "4294967303"})
        EXPECT_TRUE(has(debug("port-channels", unknown), "error")) << unknown;
}
