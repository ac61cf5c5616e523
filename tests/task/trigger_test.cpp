// Triggers on the wire: what one client is sent, and how its answer, or none, is told.
#include "common/client.h"
#include "common/clientWait.h"
#include "include/clientMsg.h"
#include "tests/task/fixture.h"

namespace {

constexpr uint32_t MTYPE = 14460;
constexpr uint32_t BGP_CARD = 0x7F010007;
const listName name = listNameMake("alpha");

struct Trigger : TaskTest {
    std::vector<clientPair> pairs;
    uint64_t blocks = 0;

    void SetUp() override {
        TaskTest::SetUp();
        testHost.addresses[{APP_BGP, 2}] = BGP_CARD;
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
        return aclSendTrigger(task, MTYPE, name.text, sizeof name.text, &status);
    }
    uint32_t status = 0;
};

// What a message of these pairs must be, byte by byte.
std::vector<uint8_t> golden(uint32_t app, uint32_t instance, uint32_t card, uint32_t sequence,
                            uint32_t first, uint32_t count) {
    std::vector<uint8_t> bytes(292 + 8 * count);
    auto put = [&](size_t at, uint32_t value) {
        for (size_t i = 0; i < 4; i++) bytes[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
    };
    put(8, 292 + 8 * count);
    put(12, MTYPE);
    put(32, sequence);
    put(40, OWN_CARD);
    put(44, 7810);
    put(52, card);
    put(56, app * 128 + instance * 4 + 1);
    put(124, count);
    put(128, app);
    put(132, instance);
    std::memcpy(&bytes[136], "alpha", 5);
    for (uint32_t i = 0; i < count; i++) {
        put(284 + 8 * i, 0x01000000 + first + i);
        put(288 + 8 * i, 7 * (first + i));
    }
    return bytes;
}

}  // namespace

TEST_F(Trigger, CarriesThePairs92ToAMessageEachStartedAfresh) {
    for (uint32_t all : {0u, 1u, 92u, 93u, 184u}) {
        SCOPED_TRACE(all);
        uint32_t id = aclMgrTransId, before = id, first = 0;
        ASSERT_EQ(send(client(APP_RTM, 0, all)), 0);
        for (const testRow& row : testTakeRows()) {
            const uint32_t count = std::min(all - first, 92u);
            EXPECT_EQ(row.bytes, golden(APP_RTM, 0, OWN_CARD, ++id, first, count));
            EXPECT_TRUE(count > 0 || all == 0);
            first += count;
        }
        EXPECT_EQ(first, all);
        EXPECT_EQ(id, aclMgrTransId);
        EXPECT_GT(id, before);
    }
}

TEST_F(Trigger, QueueClientsAreToldWithoutAWaitAndAFullQueueIsLogged) {
    aclNode->queues.igmpqHandle = aclNode->queues.pimqHandle = ZEK_SWP_NONE;
    testHost.addresses[{APP_IGMP, 0}] = testHost.addresses[{APP_PIM, 0}] = OWN_CARD;
    testHost.deadQueues = {aclNode->queues.qHandle, aclNode->queues.aclQosqHandle};
    ASSERT_EQ(send(client(APP_RTM, 0)), 0);
    EXPECT_EQ(testTake(), (std::vector<std::string>{
                              "swpflush 1", "syserr 0x5000e Resetting SWP queue from 61 to 80",
                              "swp 1 14460 length 292"}));
    ASSERT_EQ(send(client(APP_DSMGR, 0)), 0);  // not looked after
    EXPECT_EQ(testTake(), (std::vector<std::string>{"swp 2 14460 length 292"}));
    for (auto [app, text] : {std::pair(APP_IGMP, "syserr 0x5000e Error sending Trigger to IGMP"),
                             std::pair(APP_PIM, "syserr 0x5000e Error sending Trigger to PIM")}) {
        ASSERT_EQ(send(client(app, 0, 93)), 0);  // each message's failure is told
        auto said = testTake();
        EXPECT_EQ(std::ranges::count(said, text), 2);
    }
}

TEST_F(Trigger, AnIpcClientsAnswerMustBeToThisMessage) {
    enum class answers { none, wrongSequence, wrongType, right, lateThenRight };
    for (answers how : {answers::none, answers::wrongSequence, answers::wrongType, answers::right,
                        answers::lateThenRight}) {
        SCOPED_TRACE(static_cast<int>(how));
        testHost.onSend = [&](std::span<const uint8_t> sent) {
            std::vector<uint8_t> bytes(sent.begin(), sent.end());
            auto* hdr = reinterpret_cast<ipcHdr*>(bytes.data());
            ipcExchangeTriples(hdr);
            hdr->delivery = 77;
            auto answer = [&] { testHost.inbox[TEST_RESPONSES].push_back(bytes); };
            const uint32_t own = hdr->sequence;
            if (how == answers::wrongSequence || how == answers::lateThenRight) {
                hdr->sequence = own - 1;
                answer();
                hdr->sequence = own;
            }
            if (how == answers::wrongType) hdr->mtype = 14529;
            if (how != answers::none && how != answers::wrongSequence) answer();
        };
        testHost.inbox[TEST_REQUESTS] = {message(9998)};  // comes meanwhile
        clientRegisteredAnew(APP_BGP, 2);
        clientWaitsBegin();
        ASSERT_EQ(send(client(APP_BGP, 2)), 0);
        EXPECT_EQ(status, how < answers::right ? TRIGGER_NO_REPLY : 77u);
        EXPECT_EQ(testHost.inbox[TEST_REQUESTS].size(), 1u);
        auto sent = testTakeRows();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0].bytes, golden(APP_BGP, 2, BGP_CARD, aclMgrTransId, 0, 0));
    }
    testFail(TEST_SEND);
    ASSERT_EQ(send(client(APP_BGP, 2)), 0);
    EXPECT_EQ(status, TRIGGER_NOT_SENT);
    std::string dump;
    ASSERT_TRUE(zekDebugRun("clients", "", &dump));
    EXPECT_NE(
        dump.find(
            R"("task":65,"instance":2,"name":"BGP","triggers":6,"failed":6,"last-status":58802)"),
        std::string::npos)
        << dump;
}

TEST_F(Trigger, WhatCannotBeBuiltOrAddressedSendsNothing) {
    clientTask task = client(APP_BGP, 2);
    task.suppressed = 1;
    EXPECT_EQ(send(task), 0);
    task.suppressed = 0;
    EXPECT_EQ(aclSendTrigger(task, MTYPE, nullptr, 140, &status), -1);
    EXPECT_EQ(aclSendTrigger(task, MTYPE, name.text, TRIGGER_BODY_LEN + 1, &status), -1);
    EXPECT_TRUE(testTake().empty());
    EXPECT_EQ(send(client(APP_BGP, 3)), -1);
    EXPECT_EQ(testTake(), (std::vector<std::string>{
                              "syserr 0x5000b Unable to Resolve ipAddress of Client with id 65 and "
                              "instance 3 in aclSendTrigger\r\n"}));
    testFail(TEST_MEMORY);
    EXPECT_EQ(send(client(APP_BGP, 2)), -1);
    auto said = testTake();
    ASSERT_EQ(said.size(), 1u);
    EXPECT_TRUE(said[0].starts_with("syserr 0x5000c "));
}

// Who lets its time pass is not waited for until it has answered the newest of what it was sent, or
// registers anew; answers that come late are counted, once each, if they are to something sent.
TEST_F(Trigger, ASilentClientIsWaitedForOnce) {
    std::vector<std::vector<uint8_t>> unanswered;
    testHost.onSend = [&](std::span<const uint8_t> sent) {
        unanswered.emplace_back(sent.begin(), sent.end());
        ipcExchangeTriples(reinterpret_cast<ipcHdr*>(unanswered.back().data()));
    };
    auto waited = [&] {
        const uint64_t before = testHost.waitedMs;
        clientWaitsBegin();  // each is a request of its own
        EXPECT_EQ(send(client(APP_BGP, 2)), 0);
        EXPECT_EQ(status, TRIGGER_NO_REPLY);
        return (testHost.waitedMs - before + 50) / 100 * 100;
    };
    // To the response queue, which nobody else reads when nobody is waited for.
    auto answer = [](const std::vector<uint8_t>& m) {
        testHost.inbox[TEST_RESPONSES].push_back(m);
    };
    auto answerLate = [&](size_t i) {
        answer(unanswered[i]);
        std::string dump;
        EXPECT_TRUE(zekDebugRun("clients", "", &dump));
    };
    const clientState& state = *clientStateOf(APP_BGP, 2);
    EXPECT_EQ(waited(), 10000u);
    for (int i = 0; i < 3; i++) EXPECT_EQ(waited(), 0u);
    answerLate(0);
    answerLate(0);
    EXPECT_EQ(state.late, 1u);
    EXPECT_EQ(state.unanswered, 3u);
    EXPECT_EQ(waited(), 0u) << "it is behind";
    auto strange = unanswered[4];
    auto* hdr = reinterpret_cast<ipcHdr*>(strange.data());
    hdr->sequence = hdr->sequence + 1;  // never sent
    (void)deliver(strange);
    EXPECT_EQ(waited(), 0u);
    for (size_t i = 1; i < unanswered.size(); i++) answerLate(i);
    EXPECT_EQ(state.late, 6u);
    EXPECT_EQ(state.unanswered, 0u);
    EXPECT_EQ(waited(), 10000u) << "it has answered";
    answer(unanswered.back());
    EXPECT_EQ(waited(), 10000u) << "seen when it is told the next time";
    EXPECT_EQ(waited(), 0u);
    clientRegisteredAnew(APP_BGP, 2);
    EXPECT_EQ(waited(), 10000u);
    EXPECT_EQ(aclCounters.unknownType, 0u);
}

// The waits of one request are bounded together; who got less than its time is waited for by the
// next.
TEST_F(Trigger, TheWaitsOfOneRequestAreBounded) {
    for (uint32_t i = 0; i < 5; i++) testHost.addresses[{APP_OSPF, i}] = BGP_CARD;
    auto tellAll = [&] {
        const uint64_t before = testHost.waitedMs;
        clientWaitsBegin();
        for (uint32_t i = 0; i < 5; i++) EXPECT_EQ(send(client(APP_OSPF, i)), 0);
        EXPECT_EQ(testTake().size(), 5u) << "everyone is told";
        return (testHost.waitedMs - before + 50) / 100 * 100;
    };
    testTake();
    for (uint64_t expected : {20000u, 20000u, 10000u, 0u}) EXPECT_EQ(tellAll(), expected);
}

TEST_F(Trigger, SwpAnswersTimeOutsAndCardsThatGoDownAreServedInsideAWait) {
    auto event = message(MT_EVENT_NOTIF, 72);
    auto word = [&](size_t at, uint32_t value) {
        *reinterpret_cast<be32*>(event.data() + at) = value;
    };
    word(64, EVT_CARD_DOWN);
    word(68, 3);
    struct {
        std::vector<std::vector<uint8_t>> waiting;
        size_t left;
        uint64_t acks;
        bool down;
    } table[] = {
        {{message(9998), message(MT_SWP_ACK), event}, 1, 1, true},
        // Behind an agent's registration the card's end waits its turn.
        {{message(MT_AGENT_REGISTER), event}, 2, 0, false},
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
        EXPECT_EQ(aclLinecardInfo[3].isUp == 0, row.down);
    }
    testTake();
}
