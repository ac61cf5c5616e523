// Registration with the neighbours, the peer, and the main loop that drives both.
#include <cerrno>

#include "download/zekacl_download.h"
#include "policy/prefix/zekprefixlist.h"
#include "tests/task/fixture.h"

using Registration = TaskTest;

namespace {

std::vector<uint8_t> answerTo(std::span<const uint8_t> request, uint32_t sequenceChange = 0) {
    std::vector<uint8_t> bytes(request.begin(), request.end());
    auto* hdr = reinterpret_cast<ipcHdr*>(bytes.data());
    ipcExchangeTriples(hdr);
    hdr->sequence = hdr->sequence + sequenceChange;
    return bytes;
}

}  // namespace

TEST_F(Registration, TheInterfaceManagersAnswerMustBeToThisRequest) {
    std::vector<uint8_t> request;
    testHost.onSend = [&](std::span<const uint8_t> bytes) {
        request.assign(bytes.begin(), bytes.end());
        testHost.inbox[TEST_RESPONSES].push_back(answerTo(bytes, 1));  // of another request
    };
    EXPECT_EQ(AclRegisterWithIFM(0, aclNode->ipc.ipckey), -1);
    ASSERT_EQ(request.size(), 1436u);
    const uint32_t first = msgWord(request.data(), 32);
    EXPECT_EQ(msgWord(request.data(), 12), 10802u);
    EXPECT_EQ(msgWord(request.data(), 44), 7810u);
    EXPECT_EQ(msgWord(request.data(), 56), (142u << 7) + 1);
    EXPECT_EQ(request[60], 0xFF);
    EXPECT_EQ(request[64], 0);

    testHost.onSend = [&](std::span<const uint8_t> bytes) {
        request.assign(bytes.begin(), bytes.end());
        testHost.inbox[TEST_RESPONSES].push_back(answerTo(bytes, 0xFFFFFFFF));  // late
        testHost.inbox[TEST_RESPONSES].push_back(std::vector<uint8_t>(59));
        testHost.inbox[TEST_RESPONSES].push_back(answerTo(bytes));
    };
    EXPECT_EQ(AclRegisterWithIFM(0, aclNode->ipc.ipckey), 0);
    EXPECT_EQ(msgWord(request.data(), 32), first + 1);

    testHost.addresses.erase({APP_IFM, 0});
    EXPECT_EQ(AclRegisterWithIFM(0, aclNode->ipc.ipckey), -1);
}

TEST_F(Registration, IsTriedOnEveryFourthPassAndSaysFailedEvery256th) {
    testFail(TEST_SEND);   // no interface manager
    testFail(TEST_START);  // no event handler
    uint32_t failed = 0, subscriptions = 0, evhFailed = 0;
    for (uint32_t pass = 1; pass <= 4 * 512; pass++) {
        aclLoopOnce(aclNode, pass, received);
        for (const std::string& row : testTake()) {
            failed += row == "syserr 0x50010 failed";
            evhFailed += row == "syserr 0x5000d failed";
            subscriptions += row.starts_with("subscribe ");
        }
    }
    EXPECT_EQ(failed, 2u);
    EXPECT_EQ(evhFailed, 1u);            // the first failure only
    EXPECT_EQ(subscriptions, 3u * 512);  // three events each time

    testFailNothing();
    testHost.onSend = [&](std::span<const uint8_t> bytes) {
        testHost.inbox[TEST_RESPONSES].push_back(answerTo(bytes));
    };
    aclSendRegistration();
    auto rows_ = testTake();
    EXPECT_EQ(std::ranges::count(rows_, "syserr 0x50010 succeeded"), 1);
    EXPECT_EQ(std::ranges::count(rows_, "syserr 0x5000d succeeded"), 1);
    EXPECT_EQ(aclNode->standing.ifmRegistered, 1);
    EXPECT_EQ(aclNode->standing.evhRegistered, 1);
    EXPECT_EQ(aclNode->standing.udpHelperRegistered, 1);
    aclSendRegistration();
    EXPECT_TRUE(testTake().empty());  // done is done
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
    EXPECT_TRUE(testTake().empty());

    auto sync = message(MT_RAM_DATA_SYNC);
    reinterpret_cast<ipcHdr*>(sync.data())->ramCode = 42;
    deliver(sync);
    EXPECT_EQ(effects, (std::vector<std::string>{"ramack 61 0", "ramresult 61 0 0"}));
    EXPECT_EQ(aclNode->standing.peerRegistered, 0);

    // Driven by the loop: one word for the first failure, one for the success after it.
    aclNode->standing.ifmRegistered = aclNode->standing.evhRegistered =
        aclNode->standing.udpHelperRegistered = 1;
    testFail(TEST_SEND, 1, 2);
    std::vector<std::string> logged;
    for (int i = 0; i < 4; i++) {
        aclSendRegistration();
        for (const std::string& row : testTake())
            if (row.starts_with("syserr")) logged.push_back(row);
    }
    EXPECT_EQ(logged,
              (std::vector<std::string>{"syserr 0x50012 failed", "syserr 0x50012 succeeded"}));

    EXPECT_EQ(aclNode->standing.peerRegistered, 0);  // until the secondary answers

    aclLinecardInfo[2].isUp = 1;
    aclLinecardInfo[2].type = 7;
    EXPECT_EQ(aclSendUpdateToPeer(2), 0);
    auto sent = testTakeRows();
    ASSERT_EQ(sent.size(), 1u);
    const auto& bytes = sent[0].bytes;
    ASSERT_EQ(bytes.size(), 952u);
    EXPECT_EQ(msgWord(bytes.data(), 12), 14523u);
    EXPECT_EQ(msgWord(bytes.data(), 60), 2u);
    EXPECT_EQ(msgWord(bytes.data(), 64 + 2 * 44 + 4), 1u);
    EXPECT_EQ(msgWord(bytes.data(), 64 + 2 * 44 + 24), 7u);
    EXPECT_EQ(aclNode->peer.peerMark[2], 0);

    // The lowest waiting mark is sent again, one a step, until the peer answers.
    aclNode->peer.peerMark[5] = 0;
    aclNode->standing.ifmRegistered = aclNode->standing.evhRegistered =
        aclNode->standing.udpHelperRegistered = aclNode->standing.peerRegistered = 1;
    aclSendRegistration();
    sent = testTakeRows();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(msgWord(sent[0].bytes.data(), 60), 2u);
    auto answered = message(MT_PEER_UPDATE, 952);
    reinterpret_cast<cliHdr*>(answered.data())->cookie = 2;  // byte 60
    deliver(answered);
    EXPECT_EQ(aclNode->peer.peerMark[2], 1);
    reinterpret_cast<cliHdr*>(answered.data())->cookie = 21;  // no such kind
    deliver(answered);

    // The secondary copies words 1 to 6 of every record but the control processor's.
    testHost.primary = false;
    auto update = message(MT_PEER_UPDATE, 952);
    for (size_t slot : {4u, 19u})
        for (size_t word = 0; word < 11; word++) update[64 + slot * 44 + word * 4 + 3] = 9;
    aclLinecardInfo[4].agentIpAddr = 1234;
    deliver(update);
    EXPECT_EQ(aclLinecardInfo[4].isUp, 9u);
    EXPECT_EQ(aclLinecardInfo[4].type, 9u);
    EXPECT_EQ(aclLinecardInfo[4].agentIpAddr, 1234u);
    EXPECT_EQ(aclLinecardInfo[19].isUp, 0u);
    EXPECT_TRUE(said("peer 14523"));
    update.resize(951);
    reinterpret_cast<ipcHdr*>(update.data())->length = 951;
    aclLinecardInfo[4].isUp = 0;
    deliver(update);
    EXPECT_EQ(aclLinecardInfo[4].isUp, 0u);
}

// A queue that has lost messages is said to be reset, once, and starts over when its peer answers,
// with what the peer must have.
TEST_F(Registration, LostQueuesAreStartedOverWithEverythingWhenTheirPeersAnswer) {
    constexpr uint32_t card = 0x7F010057;
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM, APP_ACL2})
        testHost.addresses[{app, 0}] = card;
    testHost.addresses[{APP_ACL_AGENT, 4}] = card;
    for (uint32_t type : {14405u, 14406u, 14407u, 14552u}) {
        auto m = message(type);
        reinterpret_cast<ipcHdr*>(m.data())->target.svce = aclServicePort(APP_IPM, 0, 1);
        deliver(m);
    }
    ASSERT_EQ(iAclSwpQueueCreate(4, QUEUE_ACL_AGENT), 0);
    const listName edge = listNameMake("edge");
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM})
        ASSERT_NE(aclAddTaskClient(app, 0, edge, 0, 1), nullptr);
    ASSERT_NE(aclAddTaskClient(APP_SNMP, 0, listNameMake("not there"), 0, 1), nullptr);
    uint32_t status;
    ASSERT_NE(ipAccessListCreate(edge, IP_KIND_STANDARD, 0, &status), nullptr);
    ASSERT_NE(ipPrefixListCreate(listNameMake("P"), 0, &status, AF_IPV4), nullptr);

    const struct {
        zekSwpHandle queue;
        std::vector<std::string> sent;  // "swp" rows, in part
    } rows[] = {
        {aclNode->queues.aclSNMPqHandle, {"14409"}},
        {aclNode->queues.aclSYSADMTSKqHandle, {"14409"}},
        {aclNode->queues.aclIPMqHandle[0], {"14409"}},
        {aclNode->queues.acl2qHandle, {"6001"}},
        {aclLinecardInfo[4].aclAgent, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.queue);
        testTake();
        const int before = testHost.replays[row.queue];
        zekSwpQueueLose(row.queue);
        aclServeQueues();
        std::vector<std::string> told = testTake();
        ASSERT_EQ(told.size(), 1u);
        EXPECT_TRUE(told[0].starts_with("syserr 0x5000e Resetting SWP queue from "));
        EXPECT_EQ(testHost.replays[row.queue], before);
        testHost.queueEvents.push_back({row.queue, zekSwpState::answered});
        aclServeQueues();
        EXPECT_EQ(testHost.replays[row.queue], before + 1);
        EXPECT_TRUE(testHost.replaying.empty());
        std::vector<std::string> sent;
        const std::string mark = "swp " + std::to_string(row.queue) + " ";
        for (const std::string& text : testTake())
            if (text.starts_with(mark))
                sent.push_back(text.substr(mark.size(), text.find(" length") - mark.size()));
        EXPECT_EQ(sent, row.sent);
    }
    (void)ipPrefixListDelete(listNameMake("P"), AF_IPV4);
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM}) (void)aclDelTaskClient(app, 0, edge, 1);
    (void)aclDelTaskClient(APP_SNMP, 0, listNameMake("not there"), 1);
}

// While IPM has not answered, however many changes there are: the newest list is all that waits.
TEST_F(Registration, IpmIsSentTheNewestOfAListThatChangedWhileItWasSilent) {
    testHost.addresses[{APP_IPM, 1}] = 0x7F010057;
    auto m = message(14406);
    reinterpret_cast<ipcHdr*>(m.data())->target.svce = aclServicePort(APP_IPM, 1, 1);
    deliver(m);
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
    aclServeQueues();
    auto copies = [] {
        std::vector<std::vector<uint8_t>> messages;
        for (testRow& row : testTakeRows())
            if (row.text.starts_with("swp ")) messages.push_back(row.bytes);
        return messages;
    };
    EXPECT_TRUE(copies().empty());
    testHost.busyQueues.clear();
    aclServeQueues();
    auto sent = copies();
    ASSERT_EQ(sent.size(), 3u + 1u);  // 39 + 39 + 22 entries, and the deletion
    uint32_t entries = 0;
    for (size_t i = 0; i < 3; i++) entries += msgWord(sent[i].data(), 124 + 176);
    EXPECT_EQ(entries, 100u);
    EXPECT_EQ(msgWord(sent[3].data(), 12), 14412u);
    aclServeQueues();
    EXPECT_TRUE(copies().empty());
    for (const listName& name : {edge, gone}) (void)aclDelTaskClient(APP_IPM, 1, name, 1);
}

TEST_F(Registration, OnlyAFailedWaitIsSaidToHaveFailed) {
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    aclNode->standing.ifmRegistered = aclNode->standing.evhRegistered =
        aclNode->standing.udpHelperRegistered = 1;
    for (int failure : {0, EINTR, EBADF}) {
        testHost.selectErrno = failure;
        errno = EAGAIN;  // left over from anything
        aclLoopOnce(aclNode, 1, received);
        const auto rows = testTake();
        EXPECT_EQ(std::ranges::count_if(rows,
                                        [](const std::string& row) {
                                            return row.find("select failed in AclMain") != row.npos;
                                        }),
                  failure == EBADF ? 1 : 0)
            << failure;
    }
}
