// Triggers on the wire: what one client is sent, and how its answer, or none, is told.
#include "common/client.h"
#include "common/clientWait.h"
#include "include/clientMsg.h"
#include "tests/task/fixture.h"

namespace {

constexpr uint32_t BGP_CARD = 0x7F010007;
const listName name = listNameMake("alpha");
typedef std::vector<uint8_t> bytes;
typedef std::vector<std::string> rows;

struct Trigger : TaskTest {
    std::vector<clientPair> pairs;
    uint64_t blocks = 0;
    uint32_t status = 0;

    void SetUp() override {
        TaskTest::SetUp();
        for (uint32_t i = 0; i < 5; i++) testHost.addresses[{APP_BGP, i}] = BGP_CARD;
        blocks = testBlocksInUse();
    }
    void TearDown() override {
        EXPECT_EQ(testBlocksInUse(), blocks);
        TaskTest::TearDown();
    }
    clientTask client(uint32_t application, uint32_t instance, uint32_t count = 0) {
        pairs.assign(count, {});
        for (uint32_t i = 0; i < count; i++)
            pairs[i] = {i + 1 < count ? &pairs[i + 1] : nullptr, nullptr, 0x01000000 + i, 7 * i};
        return {application, instance, 0, count, count != 0 ? pairs.data() : nullptr};
    }
    int send(const clientTask& task) {
        return aclSendTrigger(task, MT_ACL_TRIGGER, name.text, sizeof name.text, &status);
    }
    // Each is a request of its own. How long it waited, in ms.
    uint64_t waitOf(uint32_t clients = 1) {
        const uint64_t before = testHost.waitedMs;
        clientWaitsBegin();
        for (uint32_t i = 0; i < clients; i++) EXPECT_EQ(send(client(APP_BGP, i)), 0);
        return (testHost.waitedMs - before + 50) / 100 * 100;
    }
    static bytes answerTo(std::span<const uint8_t> sent) {
        bytes answer(sent.begin(), sent.end());
        ipcExchangeTriples(&as<ipcHdr>(answer));
        return answer;
    }
    // To the response queue, which nobody else reads when nobody is waited for.
    static void put(const bytes& answer) { testHost.inbox[TEST_RESPONSES].push_back(answer); }
};

// What a message of these pairs must be, byte by byte.
bytes golden(uint32_t app, uint32_t card, uint32_t sequence, uint32_t first, uint32_t count) {
    bytes message(292 + 8 * count);
    auto put = [&](size_t at, uint32_t value) {
        for (size_t i = 0; i < 4; i++)
            message[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
    };
    put(8, 292 + 8 * count);
    put(12, 14460);
    put(32, sequence);
    put(40, OWN_CARD);
    put(44, 7810);
    put(52, card);
    put(56, app * 128 + 1);
    put(124, count);
    put(128, app);
    std::memcpy(&message[136], "alpha", 5);
    for (uint32_t i = 0; i < count; i++) {
        put(284 + 8 * i, 0x01000000 + first + i);
        put(288 + 8 * i, 7 * (first + i));
    }
    return message;
}

}  // namespace

TEST_F(Trigger, CarriesThePairs92ToAMessageEachStartedAfresh) {
    for (uint32_t all : {0u, 1u, 92u, 93u, 184u}) {
        SCOPED_TRACE(all);
        uint32_t id = aclMgrTransId, first = 0;
        ASSERT_EQ(send(client(APP_RTM, 0, all)), 0);
        for (const testRow& row : testTakeRows()) {
            const uint32_t count = std::min(all - first, 92u);
            EXPECT_EQ(row.bytes, golden(APP_RTM, OWN_CARD, ++id, first, count));
            EXPECT_TRUE(count > 0 || all == 0);
            first += count;
        }
        EXPECT_EQ(first, all);
        EXPECT_EQ(id, aclMgrTransId);
    }
}

TEST_F(Trigger, QueueClientsAreToldWithoutAWaitAndAFullQueueIsLogged) {
    aclNode->queues.igmpqHandle = aclNode->queues.pimqHandle = ZEK_SWP_NONE;
    testHost.addresses[{APP_IGMP, 0}] = testHost.addresses[{APP_PIM, 0}] = OWN_CARD;
    testHost.deadQueues = {aclNode->queues.qHandle, aclNode->queues.aclQosqHandle};
    const std::pair<clientTask, rows> table[] = {
        {client(APP_RTM, 0),
         {"swpflush 1", "syserr 0x5000e Resetting SWP queue from 61 to 80",
          "swp 1 14460 length 292"}},
        {client(APP_DSMGR, 0), {"swp 2 14460 length 292"}},  // not looked after
        {client(APP_IGMP, 0), {"syserr 0x5000e Error sending Trigger to IGMP"}},
        // Each message's failure is told.
        {client(APP_PIM, 0, 93), rows(2, "syserr 0x5000e Error sending Trigger to PIM")}};
    for (const auto& [task, told] : table) {
        ASSERT_EQ(send(task), 0);
        rows said = testTake();
        if (said.size() > told.size())
            std::erase_if(said, [](const std::string& row) { return !row.starts_with("syserr"); });
        EXPECT_EQ(said, told);
    }
    EXPECT_EQ(testHost.waitedMs, 0u);
}

TEST_F(Trigger, AnIpcClientsAnswerMustBeToThisMessage) {
    enum answers { none, wrongSequence, wrongType, right, lateThenRight };
    for (answers how : {none, wrongSequence, wrongType, right, lateThenRight}) {
        SCOPED_TRACE(how);
        testHost.onSend = [how](std::span<const uint8_t> sent) {
            bytes good = answerTo(sent), bad = good;
            as<ipcHdr>(good).delivery = as<ipcHdr>(bad).delivery = 77u;
            if (how == wrongType)
                as<ipcHdr>(bad).mtype = MT_V6_ACL_TRIGGER;
            else
                as<ipcHdr>(bad).sequence = as<ipcHdr>(bad).sequence - 1;
            if (how != none && how != right) put(bad);
            if (how >= right) put(good);
        };
        testHost.inbox[TEST_REQUESTS] = {message(9998)};  // comes meanwhile
        clientRegisteredAnew(APP_BGP, 0);
        waitOf();
        EXPECT_EQ(status, how < right ? TRIGGER_NO_REPLY : 77u);
        EXPECT_EQ(testHost.inbox[TEST_REQUESTS].size(), 1u);
        auto sent = testTakeRows();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0].bytes, golden(APP_BGP, BGP_CARD, aclMgrTransId, 0, 0));
    }
    testFail(TEST_SEND);
    waitOf();
    EXPECT_EQ(status, TRIGGER_NOT_SENT);
    const std::string dump = debug("clients");
    EXPECT_NE(
        dump.find(
            R"("task":65,"instance":0,"name":"BGP","triggers":6,"failed":6,"last-status":58802)"),
        dump.npos)
        << dump;
}

TEST_F(Trigger, WhatCannotBeBuiltOrAddressedSendsNothing) {
    clientTask suppressed = client(APP_BGP, 2);
    suppressed.suppressed = 1;
    EXPECT_EQ(send(suppressed), 0);
    const clientTask task = client(APP_BGP, 2);
    EXPECT_EQ(aclSendTrigger(task, 14460, nullptr, 140, &status), -1);
    EXPECT_EQ(aclSendTrigger(task, 14460, name.text, TRIGGER_BODY_LEN + 1, &status), -1);
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(send(client(APP_BGP, 6)), -1);
    EXPECT_EQ(testTake(),
              rows{"syserr 0x5000b Unable to Resolve ipAddress of Client with id 65 and "
                   "instance 6 in aclSendTrigger\r\n"});
    testFail(TEST_MEMORY);
    EXPECT_EQ(send(task), -1);
    EXPECT_TRUE(testTake().at(0).starts_with("syserr 0x5000c "));
}

// Who lets its time pass is not waited for until it has answered the newest of what it was sent, or
// registers anew; answers that come late are counted, once each, if they are to something sent.
TEST_F(Trigger, ASilentClientIsWaitedForOnce) {
    std::vector<bytes> unanswered;
    testHost.onSend = [&](std::span<const uint8_t> sent) { unanswered.push_back(answerTo(sent)); };
    auto answerLate = [&](size_t i) {
        put(unanswered[i]);
        debug("clients");
    };
    const clientState& state = *clientStateOf(APP_BGP, 0);
    EXPECT_EQ(waitOf(), 10000u);
    for (int i = 0; i < 3; i++) EXPECT_EQ(waitOf(), 0u);
    answerLate(0);
    answerLate(0);
    EXPECT_EQ(state.late, 1u);
    EXPECT_EQ(state.unanswered, 3u);
    EXPECT_EQ(waitOf(), 0u) << "it is behind";
    bytes strange = unanswered[4];
    as<ipcHdr>(strange).sequence = as<ipcHdr>(strange).sequence + 1;  // never sent
    (void)deliver(strange);
    EXPECT_EQ(waitOf(), 0u);
    for (size_t i = 1; i < unanswered.size(); i++) answerLate(i);
    EXPECT_EQ(state.late, 6u);
    EXPECT_EQ(state.unanswered, 0u);
    EXPECT_EQ(waitOf(), 10000u) << "it has answered";
    put(unanswered.back());
    EXPECT_EQ(waitOf(), 10000u) << "seen when it is told the next time";
    EXPECT_EQ(waitOf(), 0u);
    clientRegisteredAnew(APP_BGP, 0);
    EXPECT_EQ(waitOf(), 10000u);
    EXPECT_EQ(aclCounters.unknownType, 0u);
}

// The waits of one request are bounded together; who got less than its time is waited for by the
// next.
TEST_F(Trigger, TheWaitsOfOneRequestAreBounded) {
    for (uint32_t expected : {20000u, 20000u, 10000u, 0u}) {
        testTake();
        EXPECT_EQ(waitOf(5), expected);
        EXPECT_EQ(testTake().size(), 5u) << "everyone is told";
    }
}

TEST_F(Trigger, SwpAnswersTimeOutsAndCardsThatGoDownAreServedInsideAWait) {
    bytes event = message(MT_EVENT_NOTIF, sizeof(cliHdr));
    as<cliHdr>(event).result = EVT_CARD_DOWN;  // at 64
    as<cliHdr>(event).notShown = 3u;           // slot
    struct {
        std::vector<bytes> waiting;
        size_t left;
        uint64_t acks;
    } table[] = {
        {{message(9998), message(MT_SWP_ACK), event}, 1, 1},
        // Behind an agent's registration the card's end waits its turn.
        {{message(MT_AGENT_REGISTER), event}, 2, 0},
    };
    for (const auto& row : table) {
        clientRegisteredAnew(APP_BGP, 2);
        aclLinecardInfo[3].isUp = 1;
        aclCounters.swp_ack = 0;
        testHost.inbox[TEST_REQUESTS] = {row.waiting.begin(), row.waiting.end()};
        testHost.inbox[TEST_TIMERS] = {message(MT_SWP_TIMEOUT)};
        aclLockHeld<aclLock::write> held;
        ASSERT_EQ(send(client(APP_BGP, 2)), 0);
        EXPECT_EQ(testHost.inbox[TEST_REQUESTS].size(), row.left);
        EXPECT_TRUE(testHost.inbox[TEST_TIMERS].empty());
        EXPECT_EQ(aclCounters.swp_ack, row.acks);
        EXPECT_EQ(aclLinecardInfo[3].isUp == 0, row.acks == 1);
    }
}
