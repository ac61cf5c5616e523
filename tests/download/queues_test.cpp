// Queues: made once, checked before every message, and what happens when a message cannot go.
#include <algorithm>

#include "tests/download/fixture.h"

using Queues = DownloadTest;

constexpr aclTarget PORT{PORT_3_1};

TEST_F(Queues, ACardThatCannotBeReachedIsSkipped) {
    DEBUG_ACL_MGR = DEBUG_ACL_IPC;
    madeList<aclEntry> made(1);
    aclLinecardInfo[5].agentIpAddr = 5;  // and no queue
    aclLinecardInfo[4].agentIpAddr = ADDRESS_UNKNOWN;
    aclLinecardInfo[3].agentIpAddr = 0;
    const std::tuple<aclTarget, const char*, const char*> rows[] = {
        {{PORT_5_0}, "5", "5"},     {{PORT_4_0}, "-1", "4"},        {PORT, "0", "3"},
        {{LAG_7}, "-1", "-1"},      {{VLAN_10}, "-1", "-1"},        {{0x00004001}, "-1", "-1"},
        {{0x3E040000}, "-1", "-1"},  // slot 30
        {{0, 20}, "-1", "-1"},      {{IFINDEX_CP_BIND}, "-1", "0"},
    };
    for (const auto& [target, card, slot] : rows) {
        EXPECT_EQ(iAclSendToAclAgent(target, {14409, &made.list}), 0);
        EXPECT_TRUE(enqueued().empty()) << target.ifindex;
        EXPECT_EQ(effects.back(),
                  std::string("debug target.card = ") + card + " : slot = " + slot + "\r\n");
    }
}

TEST_F(Queues, AFailedMessageEndsItsListAndLeavesNothingBehind) {
    madeList<aclEntry> made(40, std::string(140, 'x'));
    uint64_t blocks = testBlocksInUse();
    const zekSwpHandle queue = aclLinecardInfo[3].aclAgent;
    testHost.deadQueues = {queue};
    DEBUG_ACL_MGR = DEBUG_ACL_IPC;
    testFail(TEST_BLOCK, 2, 1);  // the second of three
    EXPECT_EQ(iAclSendToAclAgent(PORT, {14409, &made.list}), -1);
    EXPECT_EQ(sentTo(), "14409>3");
    EXPECT_EQ(std::ranges::count(effects, "swpflush " + std::to_string(queue)), 1) << "was dead";
    for (const char* text : {"syserr 0x5000c ", "Error Sending message chunk 2\r\n"})
        EXPECT_TRUE(said(text)) << text;
    // The agent lacks it: its queue takes nothing but a replay.
    EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::lost);
    EXPECT_EQ(iAclSendToAclAgent(PORT, {14409, &made.list}), 0);
    EXPECT_TRUE(enqueued().empty());

    auto sendEntry = [&](uint32_t id) {
        zekSwpReplayBegin(queue);
        const int result = aclSendToPlace({PORT_3_1, INTF_IN}, {id, &made.list, made.list.head});
        (void)enqueued();
        return result;
    };
    testFail(TEST_BLOCK, 1);
    EXPECT_EQ(sendEntry(14410), -1);
    EXPECT_TRUE(said("syserr 0x5000f Error sending an entry of access list " +
                     std::string(140, 'x') + " to the agent of if 0x8080000"));
    EXPECT_EQ(sendEntry(14411), -1);
    EXPECT_FALSE(said("0x5000f"));
    testFailNothing();

    // A full queue is no failure of the change; its message is freed, and both debug roads are
    // told.
    testFail(TEST_ENQUEUE);
    DEBUG_ACL_MGR = DEBUG_ACL_IPC | DEBUG_ACL_L2IPC;
    EXPECT_EQ(sendEntry(14410), 0);
    EXPECT_EQ(
        std::ranges::count(effects, "debug Error sending Message to ACL_AGENT on if 0x8080000"), 2);
    EXPECT_EQ(testBlocksInUse(), blocks);
}

TEST_F(Queues, Acl2TakesTheMessageOverInEveryCase) {
    uint64_t blocks = testBlocksInUse();
    ASSERT_EQ(iAclACL2SwpQueueCreate(), 0);
    testHost.addresses[{APP_ACL2, 0}] = 0x7F010055;
    auto send = [] {
        zekSwpReplayBegin(aclNode->queues.acl2qHandle);
        void* block = zekMC_M_memBlockVarAlloc(18, ZEK_MEM_FLAGS, 100);
        return AclSwpEnqueACL2(new (block) ipcHdr{}, 100);
    };
    EXPECT_EQ(send(), 0);
    testFail(TEST_ENQUEUE);
    EXPECT_EQ(send(), -1);
    (void)enqueued();
    EXPECT_TRUE(said("syserr 0x5000e Error sending Message to ACL2"));
    testFailNothing();
    testHost.addresses.erase({APP_ACL2, 0});
    EXPECT_EQ(send(), -1) << "not to nobody";
    EXPECT_EQ(zekSwpQueueState(aclNode->queues.acl2qHandle), zekSwpState::lost);
    EXPECT_EQ(testBlocksInUse(), blocks);
}

// The staging buffer is made by the first send and kept; a process of its own sees the first.
TEST(QueuesDeathTest, WithoutAStagingBufferNothingIsSent) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            platformReset();
            static aclNodeRecord node;
            aclNode = &node;
            aclList list{};
            testFail(TEST_HEAP);
            const bool refused = iAclSendToAclAgent({3}, {14409, &list}) == -1;
            std::_Exit(refused && testTake()[0].starts_with("syserr 0x5000c ") ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
