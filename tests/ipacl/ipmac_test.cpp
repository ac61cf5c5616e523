// Source guard: pairs that come and go, who is told of them, and what they and IPv4 lists forbid
// each other.
#include "ipacl/zekipmac.h"

#include "include/cliMsg.h"
#include "tests/support/ipaclTest.h"

namespace {

constexpr uint32_t PORT = portIfindex(1, 0), PORT2 = portIfindex(2, 1);

class SourceGuard : public IpAcl {
  protected:
    void SetUp() override {
        IpAcl::SetUp();
        node.trees.ipMacAcl_tree = zekRadixCreate("ipMac", LIST_NAME_KEY_BITS);
    }
    void TearDown() override {
        for (aclIntf* i = AclIntfTreeFindFirst(); i != nullptr; i = AclIntfTreeFindNext(i->ifindex))
            while (const aclList* list = i->lists[INTF_IPMAC][INTF_IN]) {
                const auto& entry = static_cast<const ipMacEntry&>(*list->head);
                const ipMacPair pair = ipMacPairOf(entry);
                ASSERT_EQ((entry.sources & IPMAC_CONFIGURED) != 0
                              ? ipSourceGuardDel(i->ifindex, pair)
                              : lease(pair, i->ifindex, false),
                          0u);
            }
        EXPECT_EQ(zekRadixCount(node.trees.ipMacAcl_tree), 0u);
        zekRadixDestroy(node.trees.ipMacAcl_tree);
        IpAcl::TearDown();
    }
    static ipMacPair pair(uint32_t n, uint16_t vlan = 0) {
        return {ip(10, 0, 0, 0) + n, {2, 0, 0, 0, 0, 7}, vlan};
    }
    static uint32_t lease(const ipMacPair& p, uint32_t ifindex = PORT, bool add = true) {
        return (add ? aclMgrIpMacAclAdd : aclMgrIpMacAclDel)(ifindex, p.address, p.mac, p.vlan);
    }
    static uint32_t bindList(uint32_t ifindex, uint32_t direction) {
        bindingBlock block{};
        return aclIpApplyIntf(A, {ifindex, direction, 0, 1, &block, false, ""});
    }
    void refused(uint32_t status, const std::function<uint32_t()>& act) {
        const std::string before = state();
        EXPECT_TOLD(act(), status);
        EXPECT_EQ(state(), before);
    }
};

TEST_F(SourceGuard, AnInterfacesListComesWithItsFirstPairAndGoesWithItsLast) {
    EXPECT_SENT(ipSourceGuardAdd(PORT, pair(1, 9)), "14541 sgAcl_if-0x4040000 to 0x4040000/4 n 1");
    EXPECT_EQ(testCfgLines(), (rows{"!", "interface if 0x4040000",
                                    " ip source-guard 10.0.0.1 02:00:00:00:00:07 vlan 9"}));
    EXPECT_EQ(ipSourceGuardAdd(PORT, pair(1, 9)), ACL_E_ENTRY_EXISTS);
    // A lease for the same pair: one entry, which stays until neither wants it.
    EXPECT_TOLD(lease(pair(1, 9)), ACL_OK);
    EXPECT_EQ(lease(pair(1, 9)), ACL_E_ENTRY_EXISTS);
    EXPECT_SENT(lease(pair(2)), "14543 sgAcl_if-0x4040000 2 to 0x4040000/4");
    EXPECT_EQ(ipSourceGuardDel(PORT, pair(2)), ACL_E_NOENTRY);
    EXPECT_EQ(ipSourceGuardDel(PORT, pair(1)), ACL_E_NOENTRY) << "another VLAN";
    EXPECT_SENT(ipSourceGuardDel(PORT, pair(1, 9)));
    EXPECT_EQ(testCfgLines(), rows{});
    EXPECT_SENT(lease(pair(1, 9), PORT, false), "14544 sgAcl_if-0x4040000 1 to 0x4040000/4");
    EXPECT_TRUE(aclMgrIpMacAclIsPresentOnIntf(PORT));
    EXPECT_SENT(lease(pair(2), PORT, false), "14542 sgAcl_if-0x4040000 to 0x4040000/4 n 1");
    EXPECT_FALSE(aclMgrIpMacAclIsPresentOnIntf(PORT));
    EXPECT_EQ(lease(pair(2), PORT, false), ACL_E_NOENTRY);
}

// The lines of an interface stand behind its lists in the order of the addresses, its header goes
// with the last, and their requests make them again.
TEST_F(SourceGuard, LinesStandBesideTheInterfacesLists) {
    ASSERT_EQ(bindList(PORT, INTF_OUT), 0u);
    for (uint32_t n : {9u, 3u, 255u}) ASSERT_EQ(ipSourceGuardAdd(PORT, pair(n)), 0u);
    const rows lines = {"!",
                        "interface if 0x4040000",
                        " ip access-group A out",
                        " ip source-guard 10.0.0.3 02:00:00:00:00:07",
                        " ip source-guard 10.0.0.9 02:00:00:00:00:07",
                        " ip source-guard 10.0.0.255 02:00:00:00:00:07"};
    EXPECT_EQ(testCfgLines(), lines);
    std::vector<cliSourceGuardReq> requests;
    (void)zekCfgWalkRows(testCfg(), [&](const zekCfgRow& row) {
        cliSourceGuardReq r{};
        if (row.request.body.size() != sizeof r - sizeof(ipcHdr)) return true;
        std::memcpy(reinterpret_cast<uint8_t*>(&r) + sizeof(ipcHdr), row.request.body.data(),
                    row.request.body.size());
        requests.push_back(r);
        return true;
    });
    ASSERT_EQ(requests.size(), 3u);
    for (uint32_t n : {9u, 3u}) ASSERT_EQ(ipSourceGuardDel(PORT, pair(n)), 0u);
    EXPECT_EQ(testCfgLines().size(), 4u);
    ASSERT_EQ(aclIpRemoveIntf(A, PORT, INTF_OUT), 0u);
    EXPECT_EQ(testCfgLines().size(), 3u) << "the header stays for the last pair";
    ASSERT_EQ(ipSourceGuardDel(PORT, pair(255)), 0u);
    EXPECT_EQ(testCfgLines(), rows{});
    ASSERT_EQ(bindList(PORT, INTF_OUT), 0u);
    for (const cliSourceGuardReq& r : requests) {
        ipMacPair p{r.address, {}, r.vlan};
        std::memcpy(p.mac, r.mac, sizeof p.mac);
        EXPECT_EQ(ipSourceGuardAdd(r.ifindex, p), 0u);
    }
    EXPECT_EQ(testCfgLines(), lines);
    ASSERT_EQ(aclIpRemoveIntf(A, PORT, INTF_OUT), 0u);
}

TEST_F(SourceGuard, CardsThatComeAndMembersThatJoinGetTheList) {
    ASSERT_TRUE(lease(pair(1)) == 0 && lease(pair(2), LAG) == 0 && lease(pair(3), VLAN) == 0);
    EXPECT_SENT((AclUpdateAclAgent(1), 0u), "14541 sgAcl_if-0x4040000 to 0x4040000/4 n 1");
    EXPECT_EQ(lease(pair(1), LAG, true), 0u);
    EXPECT_SENT(aclLagPortJoined(LAG, PORT2), "14541 sgAcl_if-0x30003 to 0x6080000/5 n 2");
    EXPECT_SENT(lease(pair(4), LAG), "14543 sgAcl_if-0x30003 3 to 0x6080000/5");
    EXPECT_EQ(lease(pair(4), PORT2), ACL_E_LAG_MEMBER);
    EXPECT_SENT(aclLagPortLeft(LAG, PORT2), "14542 sgAcl_if-0x30003 to 0x6080000/5 n 3");
    ASSERT_EQ(aclVlanMemberAdd(VLAN, PORT2), 0);
    EXPECT_SENT((aclVlanMemberJoined(VLAN, PORT2), 0u),
                "14541 sgAcl_if-0x3800a to 0x2 vlan 0x3800a n 1");
}

TEST_F(SourceGuard, AnIngressListAndPairsRefuseEachOther) {
    ASSERT_EQ(bindList(PORT, INTF_IN), 0u);
    refused(ACL_E_CLASH, [] { return lease(pair(1)); });
    refused(ACL_E_CLASH, [] { return ipSourceGuardAdd(PORT, pair(1)); });
    ASSERT_EQ(aclIpRemoveIntf(A, PORT, INTF_IN), 0u);
    ASSERT_EQ(ipSourceGuardAdd(PORT, pair(1)), 0u);
    for (uint32_t direction : {INTF_IN, INTF_OUT})
        refused(ACL_E_CLASH, [=] { return bindList(PORT, direction); });
    // What is no host on no interface.
    ipMacPair group = pair(2), zero = pair(3);
    group.mac[0] |= 1;
    std::ranges::fill(zero.mac, uint8_t{0});
    for (const ipMacPair& bad : {group, zero, ipMacPair{0, {2}, 0}, {0xE0000001, {2}, 0}})
        refused(ACL_E_GUARD_PAIR, [=] { return ipSourceGuardAdd(PORT, bad); });
    for (uint16_t vlan : {uint16_t{4095}, uint16_t{65535}})
        refused(ACL_E_VLAN_RANGE, [=] { return ipSourceGuardAdd(PORT, pair(2, vlan)); });
    for (uint32_t ifindex : {3u, IFINDEX_CP_BIND, 0x4001u})
        refused(ACL_E_GUARD_INTF, [=] { return ipSourceGuardAdd(ifindex, pair(2)); });
}

TEST_F(SourceGuard, WithoutMemoryNothingComes) {
    for (const bool first : {true, false}) {
        uint64_t refusals = 0;
        for (uint64_t nth = 1;; nth++) {
            const std::string before = state();
            const uint64_t lists = zekRadixCount(node.trees.ipMacAcl_tree);
            testFail(TEST_BLOCK, nth, 1);
            const uint32_t status = ipSourceGuardAdd(PORT2, pair(first ? 1 : 2));
            testFailNothing();
            if (status == ACL_OK) break;
            refusals++;
            EXPECT_EQ(testCfgLines().size(), first ? 0u : 3u);
            EXPECT_EQ(zekRadixCount(node.trees.ipMacAcl_tree), lists);
        }
        EXPECT_GE(refusals, first ? 4u : 3u);
    }
}

// A lease comes and another goes, for ever: numbers are used again, and those in use are not.
TEST_F(SourceGuard, NumbersOfLeasesDoNotRunOut) {
    ASSERT_TRUE(lease(pair(1)) == 0 && lease(pair(2)) == 0);
    aclIntf* intf = AclIntfTreeFind(PORT);
    const aclList* list = intf->lists[INTF_IPMAC][INTF_IN];
    static_cast<ipMacBinding*>(aclInterfaceBinding(list, PORT, INTF_IN))->lastSeq = SEQ_MAX - 1;
    for (uint32_t n : {3u, 4u, 5u}) ASSERT_EQ(lease(pair(n)), 0u);
    EXPECT_EQ(numbers(list), (words{1, 2, 3, 4, SEQ_MAX}));
}

}  // namespace
