// Start-up: its order, and what every failure says and gives back.
#include <set>

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
    EXPECT_EQ(aclNode->queues.acltargetcard, OWN_CARD);
    EXPECT_EQ(aclNode->protocol.acl2PimCfgParams.sptSwitchThreshold, 10u);
    EXPECT_EQ(aclNode->protocol.ipv6UnicastRoutingEnable, 1u);
    EXPECT_TRUE(aclNode->groups.aclVlanGroupMemberBitMap.all());
    EXPECT_EQ(aclNode->peer.peerMark[20], PEER_MARK_NONE);
    auto* anchor = static_cast<aclShmAnchor*>(zekShmGet(SHM_SLOT_ACL));
    ASSERT_NE(anchor, nullptr);
    EXPECT_EQ(anchor->node, aclNode);
    EXPECT_EQ(anchor->readCounter, pAclReadCounter);
    // The response queue is not waited on.
    auto waitedOn = [](auto key) {
        return aclNode->ipc.readfs.test(static_cast<size_t>(Key_getSocketFd(key)));
    };
    EXPECT_TRUE(waitedOn(aclNode->ipc.regQfd) && waitedOn(aclNode->ipc.tmrQfd));
    EXPECT_FALSE(waitedOn(aclNode->ipc.rspQfd));
    EXPECT_TRUE(aclNode->ipc.readfs.test(static_cast<size_t>(aclNode->ipc.acl_swp_pipe)));
    ASSERT_NE(AspathAclInitialize(), nullptr);
    AclFree(aclNode);
}

TEST_F(Start, EveryTreeFailureHasItsTextAndFreesEverything) {
    std::set<std::string> texts;
    for (uint64_t nth = 1; nth <= 18; nth++) {
        SCOPED_TRACE(nth);
        platformReset();
        testFail(TEST_TREE, nth);
        EXPECT_EQ(AclMain(0, nullptr), -1);
        const std::string text = lastSysErr();
        EXPECT_TRUE(text.starts_with(nth <= 15 ? "syserr 0x50001 AclInitialize:"
                                               : "syserr 0x50001 ASpathACLInitialize:"));
        EXPECT_NE(text.find("unable to create "), text.npos);
        EXPECT_TRUE(texts.insert(text).second);
        EXPECT_EQ(aclNode, nullptr);
        EXPECT_EQ(zekShmGet(SHM_SLOT_ACL), nullptr);
        EXPECT_EQ(testBlocksInUse(), 0u);
    }
    // Without its space: it is meant.
    EXPECT_TRUE(
        texts.contains("syserr 0x50001 ASpathACLInitialize:unable to create a Radix Tree "
                       "forExtended Community Lists\n"));
}

TEST_F(Start, WhatFailsIsTriedAgainAsOftenAsItsKindSays) {
    const std::string queue = "syserr 0x50001 AclInitialize: unable to create SWP queue to ";
    const std::string address = "syserr 0x50001 Unable to get ACL's target card address \n";
    // IPC queues and the pipe are created before: three keys, the pipe, the timer.
    constexpr uint64_t rtm = 6, dsmgr = 7, igmp = 8, never = UINT64_MAX;
    struct {
        const char* what;
        testPoint point;
        uint64_t first, failures;
        uint64_t ticks;  // 10 for each retry
        std::string text;
    } rows[] = {
        {"RTM never", TEST_QUEUE, rtm, never, 100, queue + "RTM\n"},
        {"RTM at the last retry", TEST_QUEUE, rtm, 10, 100, ""},
        {"DSMGR never", TEST_QUEUE, dsmgr, never, 100, queue + "DSMGR\n"},
        {"IGMP never", TEST_QUEUE, igmp, never, 100, queue + "IGMP\n"},
        // Both multicast queues share ten retries: IGMP used six, four are not enough for PIM.
        {"PIM with what IGMP left", TEST_QUEUE, igmp, 6, 60, ""},
        // The own address, a thousand times; the last answer does not count.
        {"address at once", TEST_ADDRESS, 1, 0, 0, ""},
        {"address at last", TEST_ADDRESS, 1, 998, 0, ""},
        {"address too late", TEST_ADDRESS, 1, 999, 0, address},
        {"address never", TEST_ADDRESS, 1, never, 0, address},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        platformReset();
        testHost.aclOnRp2 = row.point == TEST_ADDRESS || row.first < igmp;
        if (row.failures != 0) testFail(row.point, row.first, row.failures);
        aclNodeRecord* node = AclInitialize(0, nullptr);
        EXPECT_EQ(node == nullptr, !row.text.empty());
        EXPECT_EQ(testHost.ticks, row.ticks);
        EXPECT_EQ(lastSysErr(), row.text);
        EXPECT_TRUE(row.point != TEST_ADDRESS || testUses(TEST_ADDRESS) <= 1000);
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
        EXPECT_EQ(aclNode->chassis.supportAclOnCP, mode == 1 ? 0u : 1u);
        AclFree(aclNode);
    }
}
