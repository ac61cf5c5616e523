// Queues: made once, checked before every message, and what happens when a message cannot go.
#include "common/message.h"
#include "tests/download/fixture.h"

using Queues = DownloadTest;

static bool anyHas(const texts& rows, const std::string& part) {
    for (const std::string& row : rows)
        if (row.find(part) != std::string::npos) return true;
    return false;
}

TEST_F(Queues, ADeadQueueIsResetBeforeTheNextMessage) {
    ipList made("edge", 18);
    zekSwpHandle queue = aclLinecardInfo[3].aclAgent;
    testHost.deadQueues = {queue};
    EXPECT_EQ(aclSendToAclAgent(&made.list, PORT_3_1, 1, 14409, 0, 0, 0), 0);
    EXPECT_EQ(sentTo(), (texts{"14409>3", "14410>3"}));
    EXPECT_EQ(others, (texts{"swpflush " + std::to_string(queue),
                             "syserr 0x5000e Resetting SWP queue from 61 to 62"}));
    EXPECT_EQ(aclCheckSwpQueueHealth(queue), 1);
    testHost.deadQueues = {queue};
    EXPECT_EQ(aclCheckSwpQueueHealth(queue), 0);
}

TEST_F(Queues, ACardThatCannotBeReachedIsSkipped) {
    DEBUG_ACL_MGR = DEBUG_ACL_IPC;
    ipList made("edge", 1);
    aclLinecardInfo[5].agentIpAddr = 5;  // and no queue
    aclLinecardInfo[4].agentIpAddr = ADDRESS_UNKNOWN;
    aclLinecardInfo[3].agentIpAddr = 0;
    struct {
        uint32_t ifindex;
        const char *card, *slot;
    } const rows[] = {
        {PORT_5_0, "5", "5"},     {PORT_4_0, "-1", "4"}, {PORT_3_1, "0", "3"},
        {LAG_7, "-1", "-1"},      {VLAN_10, "-1", "-1"}, {0x00004001, "-1", "-1"},
        {0x3E040000, "-1", "-1"},  // slot 30
        {0x42068000, "-1", "0"},   // the control processor's agent
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.ifindex);
        EXPECT_EQ(aclSendToAclAgent(&made.list, row.ifindex, 1, 14409, 0, 0, 0), 0);
        EXPECT_TRUE(enqueued().empty());
        EXPECT_TRUE(anyHas(
            others, std::string("target.card = ") + row.card + " : slot = " + row.slot + "\r\n"))
            << others.back();
    }
    ip6List six("six", 1);
    for (uint32_t slot : {20u, 0xFFFFFFFFu})
        EXPECT_EQ(aclV6SendListToAclAgent(0, &six.list, 14530, slot, -1, 0), 0);
    EXPECT_TRUE(enqueued().empty());
}

TEST_F(Queues, AFailedMessageEndsItsListAndLeavesNothingBehind) {
    ipList made("edge", 40);
    uint64_t blocks = testBlocksInUse();
    DEBUG_ACL_MGR = DEBUG_ACL_IPC;
    testFail(TEST_BLOCK, 2, 1);  // the second of three
    EXPECT_EQ(aclSendToAclAgent(&made.list, PORT_3_1, 1, 14409, 0, 0, 0), -1);
    EXPECT_EQ(sentTo(), texts{"14409>3"});
    EXPECT_TRUE(anyHas(others, "syserr 0x5000c "));
    EXPECT_TRUE(anyHas(others, "Sending message chunk 2\r\n"));
    EXPECT_TRUE(anyHas(others, "Error Sending message chunk 2\r\n"));
    EXPECT_FALSE(anyHas(others, "chunk 3"));
    // The agent lacks it: its queue takes nothing but a replay.
    const zekSwpHandle queue = aclLinecardInfo[3].aclAgent;
    auto replayed = [queue] {
        zekSwpReplayBegin(queue);
        zekSwpReplayEnd(queue);
    };
    EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::lost);
    EXPECT_EQ(aclSendToAclAgent(&made.list, PORT_3_1, 1, 14409, 0, 0, 0), 0);
    EXPECT_TRUE(enqueued().empty());

    replayed();
    testFail(TEST_BLOCK, 1);
    const std::string name(140, 'x');
    EXPECT_EQ(aclSendEntToAclAgent(made.list.head, PORT_3_1, 14410, 1, 0, 0, listNameMake(name)),
              -1);
    (void)enqueued();
    EXPECT_TRUE(anyHas(others, "syserr 0x5000f Error sending an entry of access list " + name +
                                   " to the agent of if 0x8080000"));
    replayed();
    EXPECT_EQ(aclSendEntToAclAgent(made.list.head, PORT_3_1, 14411, 1, 0, 0, made.list.name), -1);
    (void)enqueued();
    EXPECT_FALSE(anyHas(others, "0x5000f"));
    testFailNothing();
    replayed();

    // A full queue is no failure of the change; its message is freed, and both debug roads are
    // told.
    testFail(TEST_ENQUEUE);
    DEBUG_ACL_MGR = DEBUG_ACL_IPC | DEBUG_ACL_L2IPC;
    testTake();
    EXPECT_EQ(aclSendEntToAclAgent(made.list.head, PORT_3_1, 14410, 1, 0, 0, made.list.name), 0);
    size_t told = 0;
    for (const std::string& row : testTake())
        told += row.find("Error sending Message to ACL_AGENT on if 0x8080000") != row.npos;
    EXPECT_EQ(told, 2u);
    EXPECT_EQ(testBlocksInUse(), blocks);
}

TEST_F(Queues, Acl2TakesTheMessageOverInEveryCase) {
    uint64_t blocks = testBlocksInUse();
    ASSERT_EQ(iAclACL2SwpQueueCreate(), 0);
    testHost.addresses[{APP_ACL2, 0}] = 0x7F010055;
    auto send = [] {
        auto* m = static_cast<ipcHdr*>(zekMC_M_memBlockVarAlloc(18, ZEK_MEM_FLAGS, 100));
        *m = {};
        m->mtype = 77;
        return AclSwpEnqueACL2(m, 100);
    };
    testTake();
    EXPECT_EQ(send(), 0);
    testFail(TEST_ENQUEUE);
    testTake();
    EXPECT_EQ(send(), -1);
    EXPECT_TRUE(anyHas(testTake(), "syserr 0x5000e Error sending Message to ACL2"));
    testFailNothing();
    zekSwpReplayBegin(aclNode->queues.acl2qHandle);
    testHost.addresses.erase({APP_ACL2, 0});
    EXPECT_EQ(send(), -1) << "not to nobody";
    EXPECT_EQ(zekSwpQueueState(aclNode->queues.acl2qHandle), zekSwpState::lost);
    EXPECT_EQ(testBlocksInUse(), blocks);
}

TEST_F(Queues, TheDebugTextsFollowASend) {
    auto said = [&](const texts& wanted) {
        texts rows;
        for (const std::string& row : others)
            if (row.starts_with("debug ")) rows.push_back(row.substr(6));
        EXPECT_EQ(rows, wanted);
    };
    ipList made("edge", 18);
    DEBUG_ACL_MGR = DEBUG_ACL_IPC;
    (void)aclSendToAclAgent(&made.list, PORT_3_1, 1, 14409, 0, 0, 0);
    (void)enqueued();
    said({"Sending list edge with 18 entries to agent if 0x8080000 \r\n",
          "Total Message size = 8112 : IPC_BUFFER_SIZE = 8192 \r\n", "Sending message chunk 1\r\n",
          "Sending Last message chunk 2\r\n"});
    (void)aclSendToAclAgent(&made.list, PORT_3_1, 1, 14412, 0, 0, 0);
    (void)enqueued();
    said({"Sending list edge with 18 entries to agent if 0x8080000 \r\n",
          "Message is a MT_ACL_DELLIST\r\n",
          "Total Message size = 1056 : IPC_BUFFER_SIZE = 8192 \r\n"});
    DEBUG_ACL_MGR = DEBUG_ACL_L2IPC;
    macList two("two", 1);
    for (uint32_t id : {14484u, 14486u, 14490u})
        (void)iAclSendToAclAgent({.item = &two.list, .ifindex = PORT_3_1, .messageId = id});
    (void)enqueued();
    const std::string sending = "Sending list two with 1 entries to agent if 0x8080000 \r\n";
    const std::string size = "Total Message size = 784 :IPC_BUFFER_SIZE = 8192 \r\n";
    said({sending, "Total Message size = 968 :IPC_BUFFER_SIZE = 8192 \r\n", sending,
          "Message is a MT_L2ACL_DELLIST\r\n", size, sending, "Message is a MT_ACLMAC_NEW\r\n",
          size});
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
            bool refused = aclSendToAclAgent(&list, 3, 1, 14409, 0, 0, 0) == -1 &&
                           anyHas(testTake(), "syserr 0x5000c ");
            testFailNothing();
            bool works = aclSendToAclAgent(&list, 3, 1, 14409, 0, 0, 0) == 0;
            std::_Exit(refused && works ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
