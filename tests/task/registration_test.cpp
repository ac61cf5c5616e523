// Registration with the neighbours, the peer, and the main loop that drives both.
#include <cerrno>

#include "download/zekacl_download.h"
#include "policy/prefix/zekprefixlist.h"
#include "tests/task/fixture.h"

namespace {

typedef std::vector<std::string> rows;

struct Registration : TaskTest {
    // The interface manager answers what it is sent; by `sequenceChange`, something else.
    static void answer(std::span<const uint8_t> request, uint32_t sequenceChange = 0) {
        std::vector<uint8_t> bytes(request.begin(), request.end());
        ipcExchangeTriples(&as<ipcHdr>(bytes));
        as<ipcHdr>(bytes).sequence = as<ipcHdr>(bytes).sequence + sequenceChange;
        testHost.inbox[TEST_RESPONSES].push_back(bytes);
    }
    // What a pass of the main loop registers with, but for the peer.
    static void allIsRegistered() {
        aclNode->standing.ifmRegistered = aclNode->standing.evhRegistered =
            aclNode->standing.udpHelperRegistered = 1;
    }
    // The words, as they were sent: the header's 15 and those behind it.
    static uint32_t word(const testRow& row, uint32_t offset) {
        return msgWord(row.bytes.data(), offset);
    }
    static long count(const rows& all, const std::string& row) {
        return std::ranges::count(all, row);
    }
};

}  // namespace

TEST_F(Registration, TheInterfaceManagersAnswerMustBeToThisRequest) {
    testHost.onSend = [](std::span<const uint8_t> bytes) { answer(bytes, 1); };
    EXPECT_EQ(AclRegisterWithIFM(0, aclNode->ipc.ipckey), -1);
    const testRow first = testTakeRows().at(0);
    ASSERT_EQ(first.bytes.size(), 1436u);
    EXPECT_EQ(word(first, 12), 10802u);
    EXPECT_EQ(word(first, 44), 7810u);
    EXPECT_EQ(word(first, 56), (142u << 7) + 1);
    EXPECT_EQ(word(first, 60), 0xFFFFFFFF);
    EXPECT_EQ(word(first, 64), 0u);
    testHost.onSend = [](std::span<const uint8_t> bytes) {
        answer(bytes, 0xFFFFFFFF);  // late
        testHost.inbox[TEST_RESPONSES].push_back(std::vector<uint8_t>(59));
        answer(bytes);
    };
    EXPECT_EQ(AclRegisterWithIFM(0, aclNode->ipc.ipckey), 0);
    EXPECT_EQ(word(testTakeRows().at(0), 32), word(first, 32) + 1);
    testHost.addresses.erase({APP_IFM, 0});
    EXPECT_EQ(AclRegisterWithIFM(0, aclNode->ipc.ipckey), -1);
}

TEST_F(Registration, IsTriedOnEveryFourthPassAndSaysFailedEvery256th) {
    testFail(TEST_SEND);   // no interface manager
    testFail(TEST_START);  // no event handler
    for (uint32_t pass = 1; pass <= 4 * 512; pass++) aclLoopOnce(aclNode, pass, received);
    rows said = testTake();
    EXPECT_EQ(count(said, "syserr 0x50010 failed"), 2);
    EXPECT_EQ(count(said, "syserr 0x5000d failed"), 1);  // the first failure only
    std::erase_if(said, [](const std::string& row) { return !row.starts_with("subscribe "); });
    EXPECT_EQ(said.size(), 3u * 512);  // three events each time

    testFailNothing();
    testHost.onSend = [](std::span<const uint8_t> bytes) { answer(bytes); };
    aclSendRegistration();
    said = testTake();
    EXPECT_EQ(count(said, "syserr 0x50010 succeeded"), 1);
    EXPECT_EQ(count(said, "syserr 0x5000d succeeded"), 1);
    EXPECT_TRUE(aclNode->standing.ifmRegistered && aclNode->standing.evhRegistered &&
                aclNode->standing.udpHelperRegistered);
    aclSendRegistration();
    EXPECT_EQ(testTake(), rows{}) << "done is done";
}

TEST_F(Registration, TheLoopServesTimerRequestPipeInOrderAndTheResponseQueueNever) {
    testHost.inbox[TEST_RESPONSES].push_back(message(9998));
    testHost.inbox[TEST_REQUESTS].push_back(message(MT_SWP_ACK));
    testHost.inbox[TEST_TIMERS].push_back(message(MT_SWP_TIMEOUT));
    testHost.pipeReadable = true;
    aclLoopOnce(aclNode, 1, received);
    EXPECT_EQ(testTake(), (std::vector<std::string>{"swptimeout", "swpack"}));
    EXPECT_FALSE(testHost.pipeReadable);
    EXPECT_EQ(testHost.inbox[TEST_RESPONSES].size(), 1u);
    EXPECT_EQ(aclCounters.swp_ack, 1u);
}

TEST_F(Registration, ThePeerIsToldOnlyByAPrimaryThatSynchronises) {
    EXPECT_EQ(aclRegisterWithPeer(0), 0);
    EXPECT_EQ(aclNode->standing.peerRegistered, 1);
    EXPECT_EQ(aclSendUpdateToPeer(3), 0);
    EXPECT_EQ(testTake(), rows{});

    auto sync = message(MT_RAM_DATA_SYNC);
    as<ipcHdr>(sync).ramCode = 42u;
    deliver(sync);
    EXPECT_EQ(effects, (rows{"ramack 61 0", "ramresult 61 0 0"}));
    EXPECT_EQ(aclNode->standing.peerRegistered, 0);

    // Driven by the loop: one word for the first failure, one for the success after it.
    allIsRegistered();
    testFail(TEST_SEND, 1, 2);
    for (int i = 0; i < 4; i++) aclSendRegistration();
    rows said = testTake();
    std::erase_if(said, [](const std::string& row) { return !row.starts_with("syserr"); });
    EXPECT_EQ(said, (rows{"syserr 0x50012 failed", "syserr 0x50012 succeeded"}));
    EXPECT_EQ(aclNode->standing.peerRegistered, 0);  // until the secondary answers

    aclLinecardInfo[2].isUp = 1;
    aclLinecardInfo[2].type = 7;
    EXPECT_EQ(aclSendUpdateToPeer(2), 0);
    auto sent = testTakeRows();
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_EQ(sent[0].bytes.size(), 952u);
    EXPECT_EQ(word(sent[0], 12), 14523u);
    EXPECT_EQ(word(sent[0], 60), 2u);
    EXPECT_EQ(word(sent[0], 64 + 2 * 44 + 4), 1u);
    EXPECT_EQ(word(sent[0], 64 + 2 * 44 + 24), 7u);

    // The lowest waiting mark is sent again, one a step, until the peer answers.
    aclNode->peer.peerMark[5] = 0;
    aclNode->standing.peerRegistered = 1;
    for (uint32_t lowest : {2u, 5u}) {
        aclSendRegistration();
        sent = testTakeRows();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(word(sent[0], 60), lowest);
        auto answered = message(MT_PEER_UPDATE, 952);
        for (uint32_t kind : {lowest, 21u}) {  // there is no such kind
            answered[63] = static_cast<uint8_t>(kind);
            deliver(answered);
        }
        EXPECT_EQ(aclNode->peer.peerMark[lowest], 1);
    }
}

// The secondary copies words 1 to 6 of every record but the control processor's.
TEST_F(Registration, ASecondaryTakesTheCardsOfAWholeUpdate) {
    testHost.primary = false;
    aclLinecardInfo[4].agentIpAddr = 1234;
    for (size_t length : {951u, 952u}) {
        auto update = message(MT_PEER_UPDATE, length);
        for (size_t slot : {4u, 19u})
            for (size_t word = 0; word < 11; word++) update[64 + slot * 44 + word * 4 + 3] = 9;
        deliver(update);
        const uint32_t taken = length == 952 ? 9 : 0;
        EXPECT_EQ(aclLinecardInfo[4].isUp, taken);
        EXPECT_EQ(aclLinecardInfo[4].type, taken);
        EXPECT_EQ(said("peer 14523"), length == 952);
    }
    EXPECT_EQ(aclLinecardInfo[4].agentIpAddr, 1234u);
    EXPECT_EQ(aclLinecardInfo[19].isUp, 0u);
}

// A queue that has lost messages is said to be reset, once, and starts over when its peer answers,
// with what the peer must have.
TEST_F(Registration, LostQueuesAreStartedOverWithEverythingWhenTheirPeersAnswer) {
    const std::pair<uint32_t, uint32_t> tasks[] = {
        {APP_SNMP, 14405}, {APP_IPM, 14406}, {APP_SYSADM, 14407}, {APP_ACL2, 14552}};
    uint32_t status;
    const listName edge = listNameMake("edge");
    ASSERT_NE(ipAccessListCreate(edge, IP_KIND_STANDARD, 0, &status), nullptr);
    ASSERT_NE(ipPrefixListCreate(listNameMake("P"), 0, &status, AF_IPV4), nullptr);
    ASSERT_NE(aclAddTaskClient(APP_SNMP, 0, listNameMake("not there"), 0, 1), nullptr);
    for (auto [app, type] : tasks) {
        testHost.addresses[{app, 0}] = OWN_CARD;
        auto bytes = message(type);
        as<ipcHdr>(bytes).target.svce = aclServicePort(APP_IPM, 0, 1);
        deliver(bytes);
        if (app != APP_ACL2) {
            ASSERT_NE(aclAddTaskClient(app, 0, edge, 0, 1), nullptr);
        }
    }
    testHost.addresses[{APP_ACL_AGENT, 4}] = OWN_CARD;
    ASSERT_EQ(iAclSwpQueueCreate(4, QUEUE_ACL_AGENT), 0);
    for (auto [queue, type] : {std::pair{aclNode->queues.aclSNMPqHandle, 14409},
                               {aclNode->queues.aclSYSADMTSKqHandle, 14409},
                               {aclNode->queues.aclIPMqHandle[0], 14409},
                               {aclNode->queues.acl2qHandle, 6001},
                               {aclLinecardInfo[4].aclAgent, 0}}) {
        SCOPED_TRACE(queue);
        testTake();
        const int before = testHost.replays[queue];
        zekSwpQueueLose(queue);
        aclServeQueues();
        const rows told = testTake();
        ASSERT_EQ(told.size(), 1u);
        EXPECT_TRUE(told[0].starts_with("syserr 0x5000e Resetting SWP queue from "));
        EXPECT_EQ(testHost.replays[queue], before);
        testHost.queueEvents.push_back({queue, zekSwpState::answered});
        aclServeQueues();
        EXPECT_EQ(testHost.replays[queue], before + 1);
        EXPECT_TRUE(testHost.replaying.empty());
        effects = testTake();
        const std::string mark = "swp " + std::to_string(queue) + " ";
        const auto sent = std::ranges::count_if(
            effects, [&](const std::string& row) { return row.starts_with(mark); });
        EXPECT_EQ(sent, type != 0 ? 1 : 0) << "no list that is only waited for";
        EXPECT_TRUE(type == 0 || said(mark + std::to_string(type) + " length"));
    }
}

// While IPM has not answered, however many changes there are: the newest list is all that waits.
TEST_F(Registration, IpmIsSentTheNewestOfAListThatChangedWhileItWasSilent) {
    testHost.addresses[{APP_IPM, 1}] = OWN_CARD;
    auto bytes = message(MT_IPM_REGISTER);
    as<ipcHdr>(bytes).target.svce = aclServicePort(APP_IPM, 1, 1);
    deliver(bytes);
    const listName edge = listNameMake("edge"), gone = listNameMake("gone");
    uint32_t status;
    for (const listName& name : {edge, gone}) {
        ASSERT_NE(ipAccessListCreate(name, IP_KIND_STANDARD, 0, &status), nullptr);
        ASSERT_NE(aclAddTaskClient(APP_IPM, 1, name, 0, 1), nullptr);
    }
    testTake();
    testHost.busyQueues = {aclNode->queues.aclIPMqHandle[1]};
    for (uint32_t i = 0; i < 100; i++) {
        ipEntryBlock block = standardBlock(0x0A000000 + i);
        ASSERT_EQ(ipAddAccessEntry(edge, &block, 0, 0), ACL_OK);
    }
    ipAccessListDelete(gone, IP_KIND_STANDARD);
    // The copies: their types, or how many entries they have.
    auto copies = [] {
        aclServeQueues();
        std::vector<uint32_t> sent;
        for (const testRow& row : testTakeRows())
            if (row.text.starts_with("swp "))
                sent.push_back(word(row, 12) == 14409 ? word(row, 124 + 176) : word(row, 12));
        return sent;
    };
    typedef std::vector<uint32_t> words;
    EXPECT_EQ(copies(), words{});
    testHost.busyQueues.clear();
    EXPECT_EQ(copies(), (words{39, 39, 22, 14412}));
    EXPECT_EQ(copies(), words{});
}

TEST_F(Registration, OnlyAFailedWaitIsSaidToHaveFailed) {
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    allIsRegistered();
    for (int failure : {0, EINTR, EBADF}) {
        testHost.selectErrno = failure;
        errno = EAGAIN;  // left over from anything
        aclLoopOnce(aclNode, 1, received);
        effects = testTake();
        EXPECT_EQ(said("select failed in AclMain"), failure == EBADF) << failure;
    }
}
