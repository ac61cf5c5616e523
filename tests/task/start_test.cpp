// Start-up: its order, and what every failure says and gives back.
#include "tests/task/fixture.h"

namespace {

struct Start : testing::Test {
    void SetUp() override { platformReset(); }
    std::string lastSysErr() {
        std::string last;
        for (const std::string& row : testTake())
            if (row.starts_with("syserr ")) last = row;
        return last;
    }
};

}  // namespace

TEST_F(Start, QueuesAndSystemListsComeUpInOrder) {
    testHost.aclOnRp2 = false;
    testHost.addresses[{APP_IGMP, 0}] = testHost.addresses[{APP_PIM, 0}] = OWN_CARD;
    ASSERT_NE(AclInitialize(0, nullptr), nullptr);
    std::vector<std::string> queues;
    for (const std::string& row : testTake())
        if (row.starts_with("swpqueue")) queues.push_back(row.substr(0, row.find(" slot")));
    EXPECT_EQ(queues, (std::vector<std::string>{"swpqueue 80", "swpqueue 94", "swpqueue 140",
                                                "swpqueue 141"}));
    EXPECT_EQ(aclNode->acltargetcard, OWN_CARD);
    EXPECT_EQ(aclNode->acl2PimCfgParams.sptSwitchThreshold, 10u);
    EXPECT_EQ(aclNode->ipv6UnicastRoutingEnable, 1u);
    EXPECT_TRUE(aclNode->aclVlanGroupMemberBitMap.all());
    EXPECT_EQ(aclNode->peerMark[20], PEER_MARK_NONE);
    auto* anchor = static_cast<aclShmAnchor*>(zekShmGet(SHM_SLOT_ACL));
    ASSERT_NE(anchor, nullptr);
    EXPECT_EQ(anchor->node, aclNode);
    EXPECT_EQ(anchor->readCounter, pAclReadCounter);
    // The response queue is not waited on.
    EXPECT_TRUE(aclNode->readfs.test(static_cast<size_t>(Key_getSocketFd(aclNode->regQfd))));
    EXPECT_TRUE(aclNode->readfs.test(static_cast<size_t>(Key_getSocketFd(aclNode->tmrQfd))));
    EXPECT_FALSE(aclNode->readfs.test(static_cast<size_t>(Key_getSocketFd(aclNode->rspQfd))));
    EXPECT_TRUE(aclNode->readfs.test(static_cast<size_t>(aclNode->acl_swp_pipe)));
    ASSERT_NE(AspathAclInitialize(), nullptr);
    AclFree(aclNode);
}

TEST_F(Start, EveryTreeFailureHasItsTextAndFreesEverything) {
    const char* const texts[] = {
        "AclInitialize:unable to create a Radix Tree for System ACLs\n",
        "AclInitialize:unable to create a Radix Tree for L2 ACLs\n",
        "AclInitialize:unable to create a Radix Tree for ACLs\n",
        "AclInitialize:unable to create a Radix Tree for IPv6 ACLs\n",
        "AclInitialize:unable to create an RBTree for IpMac ACL \r\n",
        "AclInitialize: unable to create RBTree for DHCP snooping Vlan\r\n",
        "AclInitialize:unable to create an RBTree for dhcp snoop EX \r\n",
        "AclInitialize:unable to create a Radix Tree for DOS ACLs\n",
        "AclInitialize:unable to create a Radix Tree for Routemaps\n",
        "AclInitialize:unable to create a Radix Tree for Prefix lists\n",
        "AclInitialize:unable to create a Radix Tree for Ipv6 Prefix lists\n",
        "AclInitialize:unable to create a Intf Radix Tree for ACLs\n",
        "AclInitialize:unable to create a Intf Radix Tree For RouteMaps\n",
        "AclInitialize:unable to create a Intf Radix Tree For Vlans\n",
        "AclInitialize:unable to create a Intf Radix Tree For IpAddress\n",
        "ASpathACLInitialize:unable to create a Radix Tree for ASpath ACLs\n",
        "ASpathACLInitialize:unable to create a Radix Tree for Community ACLs\n",
        "ASpathACLInitialize:unable to create a Radix Tree forExtended Community Lists\n",
    };
    for (uint64_t nth = 1; nth <= std::size(texts); nth++) {
        SCOPED_TRACE(texts[nth - 1]);
        platformReset();
        testFail(TEST_TREE, nth);
        EXPECT_EQ(AclMain(0, nullptr), -1);
        EXPECT_EQ(lastSysErr(), std::string("syserr 0x50001 ") + texts[nth - 1]);
        EXPECT_EQ(aclNode, nullptr);
        EXPECT_EQ(zekShmGet(SHM_SLOT_ACL), nullptr);
        EXPECT_EQ(testBlocksInUse(), 0u);
    }
}

TEST_F(Start, QueueFailuresAreRetriedTenTimesAndTheMulticastQueuesShareTheirBudget) {
    struct {
        const char* what;
        bool multicast;
        uint64_t firstFailure, failures;
        uint64_t ticks;  // 10 for each retry
        const char* text;
    } rows[] = {
        {"RTM never", false, 1, UINT64_MAX, 100,
         "AclInitialize: unable to create SWP queue to RTM\n"},
        {"RTM at the last retry", false, 1, 10, 100, nullptr},
        {"DSMGR never", false, 2, UINT64_MAX, 100,
         "AclInitialize: unable to create SWP queue to DSMGR\n"},
        {"IGMP never", true, 3, UINT64_MAX, 100,
         "AclInitialize: unable to create SWP queue to IGMP\n"},
        // IGMP used six of the ten; the four left are not enough for PIM.
        {"PIM on what IGMP left", true, 3, 6, 60, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        platformReset();
        testHost.aclOnRp2 = !row.multicast;
        // IPC queues and the pipe are created first: three keys and the pipe, and the timer.
        constexpr uint64_t before = 5;
        testFail(TEST_QUEUE, before + row.firstFailure, row.failures);
        aclNodeRecord* node = AclInitialize(0, nullptr);
        EXPECT_EQ(node == nullptr, row.text != nullptr);
        EXPECT_EQ(testHost.ticks, row.ticks);
        std::string error = lastSysErr();
        if (row.text != nullptr)
            EXPECT_EQ(error, std::string("syserr 0x50001 ") + row.text);
        else
            EXPECT_EQ(error, "");
        AclFree(node);
    }
}

TEST_F(Start, TheOwnAddressIsAskedForAThousandTimesAndTheLastAnswerDoesNotCount) {
    struct {
        uint64_t failures;
        bool starts;
    } rows[] = {{0, true}, {998, true}, {999, false}, {UINT64_MAX, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failures);
        platformReset();
        if (row.failures > 0) testFail(TEST_ADDRESS, 1, row.failures);
        aclNodeRecord* node = AclInitialize(0, nullptr);
        EXPECT_EQ(node != nullptr, row.starts);
        if (!row.starts) {
            EXPECT_LE(testUses(TEST_ADDRESS), 1000u);
            EXPECT_EQ(lastSysErr(), "syserr 0x50001 Unable to get ACL's target card address \n");
        }
        AclFree(node);
    }
}

TEST_F(Start, NoMemoryAnywhereEndsTheStartAndLeaksNothing) {
    for (uint64_t nth = 1; nth < 400; nth++) {
        SCOPED_TRACE(nth);
        platformReset();
        testFail(TEST_HEAP, nth, 1);
        if (nth == 3) continue;  // without its anchor for other tasks the process ends at once
        aclNodeRecord* node = AclInitialize(0, nullptr);
        bool used = testUses(TEST_HEAP) >= nth;
        testFailNothing();
        if (node != nullptr) {
            AclFree(node);
            if (!used) return;  // every allocation of the start has failed once
        }
        EXPECT_EQ(testBlocksInUse(), 0u);
    }
}

TEST_F(Start, ChassisModesPresetTheCardsButTheControlProcessors) {
    for (uint32_t mode : {1u, 3u, 6u}) {
        SCOPED_TRACE(mode);
        platformReset();
        testHost.chassisMode = mode;
        testHost.rpmType = mode == 1 ? 3 : 4;
        for (aclLinecard& card : aclLinecardInfo) card = {};
        ASSERT_NE(AclInitialize(0, nullptr), nullptr);
        AclGetChassMode(1);
        EXPECT_EQ(aclLinecardInfo[18].isVortan, mode == 1 ? 0u : 1u);
        EXPECT_EQ(aclLinecardInfo[18].type, mode == 1 ? 0u : 3u);
        EXPECT_EQ(aclLinecardInfo[19].isVortan, 0u);
        EXPECT_EQ(aclNode->supportAclOnCP, mode == 1 ? 0u : 1u);
        AclFree(aclNode);
    }
}
