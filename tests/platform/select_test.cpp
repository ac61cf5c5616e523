// The task's queues: answers that wait for the commit, messages that wait for the task, receivers
// that do not read, and requests that wait for the restore.
#include <sys/eventfd.h>

#include <algorithm>
#include <thread>
#include <tuple>

#include "include/cliMsg.h"
#include "tests/platform/hostTest.h"

namespace {

const std::vector<uint32_t> none;

class selectTest : public taskTest {
  protected:
    endpoint client{run.path, RP, CLIENT_PORT};
    bytes in = bytes(IPC_BUFFER_SIZE);

    void ask(uint32_t sequence, uint32_t type = 14405, size_t size = 64) {
        EXPECT_EQ(client.send(request(sequence, type, size), 60000), zekSendResult::sent);
    }
    // The task takes the next request, makes its change and answers it.
    void serve(uint32_t sequence, bool isChange = true) {
        ASSERT_EQ(take(), sequence);
        if (isChange) dirty = true, changes++;
        EXPECT_EQ(sendAnswer(sequence), 0);
    }
    // What the other has got, with as much of the task's work as that needs.
    std::vector<uint32_t> drainAll(endpoint& other, size_t count) {
        std::vector<uint32_t> got = other.drain();
        for (int i = 0; i < 100000 && got.size() < count; i++) {
            EXPECT_EQ(select(0), 0);
            for (uint32_t n : other.drain()) got.push_back(n);
        }
        return got;
    }
};

// The answer would be a request of the manager to itself, or to the other one, for ever.
TEST_F(selectTest, NothingIsTakenInTheNameOfAManagerButWhatManagersSayToEachOther) {
    constexpr uint32_t other = 0x7F010002;
    endpoint peer(run.path, other, OWN_REQUESTS);
    uint32_t sequence = 0, dropped = 0;
    for (uint32_t card : {RP, other})
        for (uint32_t service : {OWN_REQUESTS, OWN_REQUESTS + 1})
            for (uint32_t type : {14403u, 6001u, 402u, 14521u, 14522u, 14523u, 14524u, 14525u}) {
                ASSERT_EQ(peer.send(makeMessage(card, service, RP, OWN_REQUESTS, type, ++sequence)),
                          zekSendResult::sent);
                const bool taken = type >= 14522 && type <= 14524;
                EXPECT_EQ(take(), taken ? sequence : 0) << type;
                dropped += taken ? 0 : 1;
                EXPECT_EQ(zekIpcStatistics().malformed, dropped);
            }
}

TEST_F(selectTest, AnswersLeaveInOrderAndEveryWaitCommitsFirst) {
    EXPECT_EQ(sendAnswer(9), 0);
    EXPECT_EQ(client.drain(), upTo(9, 9)) << "there is nothing to commit";
    const zekQueue select0 = 0;
    for (zekQueue queue :
         {select0, Key_getReqQueue(key), Key_getRspQueue(key), Key_getTmrQueue(key)}) {
        commits = 0;
        dirty = true;
        EXPECT_EQ(sendAnswer(1), 0);
        dirty = false;  // an answer behind a held one waits too: the order is kept
        EXPECT_EQ(sendAnswer(2), 0);
        dirty = true;
        EXPECT_EQ(take(), 0u);
        EXPECT_EQ(client.drain(), none);
        EXPECT_EQ(queue == select0 ? select(1) : zekIpcRecv(queue, in.data(), in.size(), 1), 0);
        EXPECT_EQ(client.drain(), upTo(2));
        EXPECT_EQ(commits, 1);
    }
    EXPECT_EQ(zekIpcStatistics().heldBack, 8u);
}

TEST_F(selectTest, RequestsThatWaitTogetherShareOneCommitForSixtyFourAtMost) {
    for (uint32_t i = 1; i <= 66; i++) {
        // In pairs: the answer to a request that came alone would not be held.
        if (i % 2 == 1)
            for (uint32_t n : {i, i + 1}) ask(n);
        ASSERT_EQ(select(0), 1);
        EXPECT_EQ(commits, i <= 64 ? 0 : 1) << i;
        serve(i);
    }
    EXPECT_EQ(select(0), 0);
    EXPECT_EQ(commits, 2);
    EXPECT_EQ(drainAll(client, 66), upTo(66));
}

TEST_F(selectTest, WhileNothingCanBeCommittedOnlyChangesWaitForTheirAnswers) {
    commitResult = -1;
    for (uint32_t i : {1u, 2u}) {
        ask(i);
        serve(i, i == 1);
    }
    EXPECT_EQ(client.drain(), none) << "one commit serves both";
    hostFlush();
    EXPECT_EQ(client.drain(), upTo(2, 2));
    ask(3);
    serve(3, false);
    EXPECT_EQ(client.drain(), upTo(3, 3)) << "at once";
    const int before = commits;
    for (int i = 0; i < 1000; i++) hostFlush();
    EXPECT_LT(commits, before + 100) << "attempts are apart in time";
    EXPECT_GT(hostOutgoingWaitMs(), -1) << "and a task that waits makes the next one";

    commitResult = 0;
    for (int i = 0; i < 1000 && dirty; i++) EXPECT_EQ(select(50), 0);
    EXPECT_EQ(client.drain(), upTo(1)) << "however long it took";
    EXPECT_EQ(zekIpcStatistics().dropped, 0u);
}

TEST_F(selectTest, WhatCannotBeSentFailsAndAReplyIsLeftAsItWas) {
    for (bool held : {false, true}) {
        dirty = held;
        EXPECT_EQ(sendAnswer(1, CLIENT_PORT + 1), -1) << "to nobody";
    }
    dirty = false;
    bytes sent = request(1), before = sent;
    EXPECT_EQ(zekIpcSend(Key_getReqQueue(key), sent.data(), 59), -1);
    for (zekQueue queue : {0u, Key_getTmrQueue(key)})
        EXPECT_EQ(zekIpcSend(queue, sent.data(), sent.size()), -1);
    EXPECT_EQ(zekIpcStatistics().sendFailed, 5u);

    headerOf(sent)->target.svce = headerOf(before)->target.svce = CLIENT_PORT + 1;
    EXPECT_EQ(zekIpcReply(key, sent.data(), sent.size()), -1);
    EXPECT_EQ(sent, before);
    headerOf(sent)->target.svce = CLIENT_PORT;
    EXPECT_EQ(zekIpcReply(key, sent.data(), sent.size()), 0);
    EXPECT_EQ(client.drain(), upTo(1));
}

TEST_F(selectTest, MessagesThatArriveWhileTheTaskWaitsForAReplyAreKept) {
    std::thread sender([this] {
        for (uint32_t i = 1; i <= 300; i++) ask(i);
        client.send(makeMessage(RP, CLIENT_PORT, RP, OWN_REQUESTS + 1, 10802, 999), 60000);
    });
    ASSERT_EQ(zekIpcRecv(Key_getRspQueue(key), in.data(), in.size(), 60000), 64);
    EXPECT_EQ(headerOf(in)->sequence, 999u);
    sender.join();
    for (uint32_t i = 1; i <= 300; i++) {
        ASSERT_EQ(select(60000), 1) << "a queue that holds messages can be read, without a wait";
        ASSERT_EQ(take(), i);
    }
    EXPECT_EQ(select(0), 0);
}

// One that does not read holds nobody up. Past a bound of its own it loses answers, which is told;
// the others lose nothing, however many there are.
TEST_F(selectTest, ABacklogIsBoundedForEachAddressee) {
    endpoint other(run.path, RP, CLIENT_PORT + 1);
    uint32_t accepted = 0;
    while (accepted < 6000 && sendAnswer(accepted + 1) == 0) accepted++;
    EXPECT_GE(accepted, 4096u);
    EXPECT_LT(accepted, 6000u);
    for (uint32_t i = 1; i <= 100; i++) ASSERT_EQ(sendAnswer(i, CLIENT_PORT + 1), 0);
    EXPECT_EQ(drainAll(other, 100), upTo(100));
    // Room in the socket must not let a later answer pass those that wait.
    const std::vector<uint32_t> first = client.drain();
    EXPECT_EQ(select(0), 0);
    ASSERT_EQ(sendAnswer(accepted + 1), 0);
    EXPECT_EQ(drainAll(client, accepted + 1 - first.size()),
              upTo(accepted + 1, static_cast<uint32_t>(first.size()) + 1));
    EXPECT_EQ(zekIpcStatistics().dropped, 0u);

    // Large ones to many who do not read: of the largest backlogs, not of the small one.
    std::vector<std::unique_ptr<endpoint>> idle;
    ASSERT_EQ(sendAnswer(101, CLIENT_PORT + 1), 0);
    for (uint32_t n = 2; n < 14; n++) {
        idle.push_back(std::make_unique<endpoint>(run.path, RP, CLIENT_PORT + n));
        for (int i = 0; i < 200; i++) (void)sendAnswer(1, CLIENT_PORT + n, 60000);
    }
    EXPECT_GT(zekIpcStatistics().dropped, 0u);
    EXPECT_EQ(drainAll(other, 1), upTo(101, 101));
}

TEST_F(selectTest, WhatIsNeverReadIsDroppedInTheEnd) {
    hostConf().backlogPatienceMs = 100;
    for (uint32_t i = 1; i <= 1000; i++) ASSERT_EQ(sendAnswer(i), 0);
    uint64_t sent = zekIpcStatistics().sent;
    for (int i = 0; i < 1000 && zekIpcStatistics().dropped < 1000 - sent; i++)
        ASSERT_EQ(select(100), 0);
    EXPECT_EQ(client.drain(), upTo(static_cast<uint32_t>(sent)));
    hostConf().backlogPatienceMs = 60000;
}

// A task that waits for a reply serves what may not wait, in its order, and leaves the rest.
TEST_F(selectTest, AWaitForAReplyServesWhatIsUrgent) {
    constexpr uint32_t barrierType = 14403, urgentType = 2009;
    static std::vector<uint32_t> served;
    static endpoint* replier;
    replier = &client;
    served.clear();
    const zekServing serving{
        [](std::span<const uint8_t> m) {
            const uint32_t type = wireView<ipcHdr>(m)->mtype;
            return type == barrierType  ? zekUrgency::barrier
                   : type == urgentType ? zekUrgency::now
                                        : zekUrgency::later;
        },
        [](std::span<const uint8_t> m) {
            served.push_back(wireView<ipcHdr>(m)->mtype);
            if (served.size() == 2)
                replier->send(makeMessage(RP, CLIENT_PORT, RP, OWN_REQUESTS + 1, 14460, 9));
        }};
    bytes ack = makeMessage(CARD, 7937, RP, OWN_REQUESTS, MT_SWP_ACK, 0, sizeof(ipcHdr));
    headerOf(ack)->session = headerOf(ack)->swpSeq = 1;
    for (const bytes& sent :
         {request(1), request(2, urgentType), ack, request(3, barrierType), request(4, urgentType)})
        ASSERT_EQ(client.send(sent), zekSendResult::sent);
    ASSERT_EQ(zekIpcRecvServing(Key_getRspQueue(key), in.data(), in.size(), 60000, serving), 64);
    EXPECT_EQ(headerOf(in)->sequence, 9u);
    EXPECT_EQ(served, (std::vector<uint32_t>{MT_SWP_ACK, urgentType}));
    for (uint32_t i : {1u, 3u, 4u}) EXPECT_EQ(take(), i);
}

TEST_F(selectTest, MessagesThatDoNotFitAreDroppedAndCounted) {
    const size_t sizes[] = {IPC_BUFFER_SIZE + 1, 100000, IPC_BUFFER_SIZE};
    for (uint32_t i = 0; i < 3; i++) ask(i, 14405, sizes[i]);
    EXPECT_EQ(take(), 2u);
    EXPECT_EQ(take(), 0u);
    EXPECT_EQ(zekIpcStatistics().tooLong, 2u);
    EXPECT_EQ(zekIpcStatistics().received, 1u);
}

// Of each peer's session only the newest of the waiting answers is handed over, and before every
// request; sessions beyond those that are kept apart come whole, in their turn.
TEST_F(selectTest, OnlyTheNewestAnswerOfEachSessionIsHandedOver) {
    typedef std::tuple<uint32_t, uint32_t, uint32_t> row;  // port, session, number
    static std::vector<row> got;
    auto send = [this](uint32_t port, uint32_t session, uint32_t number) {
        bytes ack = makeMessage(CARD, port, RP, OWN_REQUESTS, MT_SWP_ACK, 0, sizeof(ipcHdr));
        headerOf(ack)->session = session;
        headerOf(ack)->swpSeq = number;
        EXPECT_EQ(client.send(ack, 60000), zekSendResult::sent);
    };
    auto note = [](const ipcHdr& h) { got.emplace_back(h.target.svce, h.session, h.swpSeq); };
    auto takeAll = [&] {
        got.clear();
        while (zekIpcRecv(Key_getReqQueue(key), in.data(), in.size(), 0) > 0) note(*headerOf(in));
    };
    auto taken = [&] {
        std::ranges::sort(got);
        return got;
    };
    const row plain = {CLIENT_PORT, 0, 0};
    const std::vector<row> newest = {{7937, 5, 7}, {7937, 6, 2}, {7937, 8, 1}, {7941, 5, 1}};
    // A sender that takes its answers itself leaves the requests; for others, answers go first.
    for (bool itself : {true, false}) {
        ask(1);
        for (const auto& [port, session, number] :
             {row{7937, 5, 3}, row{7937, 5, 7}, row{7937, 5, 6}, row{7937, 6, 2}, row{7941, 5, 1},
              row{7937, 8, 0xFFFFFFFF}, row{7937, 8, 1}})
            send(port, session, number);
        got.clear();
        uint64_t waited = 0;
        EXPECT_TRUE(!itself || hostTakeAnswers(note, 0, &waited));
        EXPECT_TRUE(!itself || taken() == newest);
        EXPECT_FALSE(itself && hostTakeAnswers([](const ipcHdr&) { FAIL(); }, 0, &waited));
        takeAll();
        ASSERT_FALSE(got.empty());
        EXPECT_EQ(got.back(), plain);
        got.pop_back();
        EXPECT_EQ(taken(), itself ? std::vector<row>{} : newest);
    }

    constexpr uint32_t sessions = 70, apart = 64;
    for (uint32_t number : {1u, 2u})
        for (uint32_t s = 1; s <= sessions; s++) {
            send(7937, s, number);
            for (int i = 0; i < 8; i++) EXPECT_EQ(select(0), 1);  // one looks at the socket
        }
    takeAll();
    std::vector<row> want;
    for (uint32_t s = 1; s <= sessions; s++)
        for (uint32_t number = s > apart ? 1 : 2; number <= 2; number++)
            want.emplace_back(7937, s, number);
    EXPECT_EQ(taken(), want);
}

// What a full receiver has not taken of a batch is the caller's to send again; nobody's is done
// with.
TEST_F(selectTest, ABatchIsTakenAsFarAsTheReceiverHasRoom) {
    std::vector<bytes> messages;
    for (uint32_t i = 1; i <= 40; i++) messages.push_back(answer(i));
    std::vector<std::span<const uint8_t>> batch(messages.begin(), messages.end());
    while (hostSendNow(messages[0].data(), messages[0].size()) == zekSendResult::sent) {
    }
    const uint64_t sent = zekIpcStatistics().sent;
    EXPECT_EQ(hostSendMany(batch), 0u);
    for (int i = 0; i < 5; i++) ASSERT_EQ(client.recv(&in), 64);
    EXPECT_EQ(hostSendMany(batch), 5u);
    EXPECT_EQ(zekIpcStatistics().sent, sent + 5);
    std::vector<uint32_t> got = client.drain();
    ASSERT_GE(got.size(), 5u);
    EXPECT_EQ(std::vector(got.end() - 5, got.end()), upTo(5));
    for (size_t from = 5; from < batch.size();) {
        const size_t taken = hostSendMany(std::span(batch).subspan(from));
        ASSERT_GT(taken, 0u);
        EXPECT_EQ(client.drain(),
                  upTo(static_cast<uint32_t>(from + taken), static_cast<uint32_t>(from + 1)));
        from += taken;
    }
    for (bytes& b : messages) headerOf(b)->source.svce = CLIENT_PORT + 5;  // nobody
    EXPECT_EQ(hostSendMany(batch), batch.size());
    EXPECT_EQ(zekIpcStatistics().sent, sent + 40);
}

// A request that is sent again is taken once: while it is under way the repeat is dropped, after
// its answer it gets the same answer from memory. One that does not say that it is a repeat is a
// new request, whatever its number.
TEST_F(selectTest, ARepeatedRequestIsTakenOnce) {
    auto send = [&](bool repeated) {
        bytes sent = request(1, MT_CLI_COMMAND);
        if (repeated) headerOf(sent)->ramCode = IPC_REPEATED;
        ASSERT_EQ(client.send(sent), zekSendResult::sent);
        (void)select(0);
    };
    auto state = [](uint32_t sequence = 1, uint32_t sender = 0) {
        return std::string(hostRequestState(RP, CLIENT_PORT + sender, sequence));
    };
    EXPECT_EQ(state(), "unknown");
    send(true);  // the first one was lost on its way
    EXPECT_EQ(state(), "waiting");
    send(true);
    EXPECT_EQ(take(), 1u);
    EXPECT_EQ(state(), "working");
    send(true);
    EXPECT_EQ(take(), 0u);
    dirty = true;
    changes++;
    commitResult = -1;
    ASSERT_EQ(sendAnswer(1), 0);
    send(true);
    EXPECT_EQ(state(), "working") << "its answer waits for the commit";
    EXPECT_EQ(client.drain(), none);
    commitResult = 0;
    for (int i = 0; i < 1000 && dirty; i++) (void)select(20);
    EXPECT_EQ(state(), "answered");
    EXPECT_EQ(client.drain(), upTo(1));
    send(true);
    EXPECT_EQ(take(), 0u);
    bytes again;
    ASSERT_EQ(client.recv(&again), 64);
    EXPECT_EQ(again, answer(1)) << "to the byte";
    EXPECT_EQ(zekIpcStatistics().repeated, 4u);

    send(false);
    EXPECT_EQ(take(), 1u);
    // Not answered, and the next is taken: it never will be.
    ask(2, MT_CLI_COMMAND);
    EXPECT_EQ(take(), 2u);
    EXPECT_NE(state(), "working");

    // One that is dropped, as it is longer than what the task can take, is not under way.
    ask(3, MT_CLI_COMMAND, IPC_BUFFER_SIZE + 8);
    EXPECT_EQ(take(), 0u);
    EXPECT_EQ(state(3), "unknown");

    // Any number of senders and requests: what is remembered is bounded, what is open is not lost.
    for (uint32_t sender = 0; sender < 40; sender++)
        for (uint32_t i = 1; i <= 600; i++) {
            bytes sent = makeMessage(RP, CLIENT_PORT + sender, RP, OWN_REQUESTS, MT_CLI_COMMAND, i);
            EXPECT_EQ(hostRequestArrives(*headerOf(sent), &again), hostArrival::fresh);
            if (i == 600) continue;  // stays open
            ipcExchangeTriples(headerOf(sent));
            hostRequestAnswered(sent);
        }
    for (uint32_t sender = 0; sender < 40; sender++) {
        EXPECT_EQ(state(600, sender), "waiting");
        EXPECT_EQ(state(599, sender), "answered");
        EXPECT_EQ(state(1, sender), "unknown");
    }
}

TEST_F(selectTest, OtherDescriptorsAreSeenBesideTheQueues) {
    hostFd event(eventfd(0, EFD_CLOEXEC));
    hostFd quiet(eventfd(0, EFD_CLOEXEC));
    auto at = [](const hostFd& fd) { return static_cast<size_t>(fd.fd); };
    ASSERT_EQ(eventfd_write(event.fd, 1), 0);
    ask(1);
    zekFdSet set = requestSet();
    set.set(at(event)).set(at(quiet));
    ASSERT_EQ(zekSelect(ZEK_FD_MAX, &set, 0), 2);
    EXPECT_TRUE(set[at(event)]);
    EXPECT_FALSE(set[at(quiet)]);
    EXPECT_EQ(zekSelect(static_cast<uint32_t>(at(event)), &set, 0), 1) << "below the limit only";
    set.reset().set(2047);
    EXPECT_EQ(zekSelect(ZEK_FD_MAX, &set, 0), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(selectTest, WhoAsksChangesOrRegistersWaitsForTheRestore) {
    auto all = [this] {
        std::vector<uint32_t> got;
        while (select(0) == 1) got.push_back(take());
        return got;
    };
    hostHoldRequests();
    uint32_t sequence = 0;
    for (uint32_t type : {MT_CLI_COMMAND, MT_EVENT_NOTIF, MT_ACL_INVERSEMASK_ENABLE,
                          MT_CLI_COMMAND_2, MT_SHOW_IP_ACL, MT_AGENT_REGISTER, MT_CLIENT_FIRST,
                          MT_ACL2_REGISTER, MT_IFM_EVT_NOTIF, MT_PROT_FIRST})
        ask(++sequence, type);
    EXPECT_EQ(all(), std::vector<uint32_t>{2});

    // The release wakes a task that waits.
    std::thread releaser([] { hostReleaseRequests(); });
    EXPECT_EQ(select(60000), 1);
    releaser.join();
    EXPECT_EQ(all(), (std::vector<uint32_t>{1, 3, 4, 5, 6, 7, 8, 9, 10}));

    // What had been taken in before the hold began waits too.
    ask(11, MT_CLI_COMMAND);
    EXPECT_EQ(select(0), 1);
    hostHoldRequests();
    EXPECT_EQ(select(0), 0);
    EXPECT_EQ(take(), 0u);

    // Kept in bounded memory; what is over that is counted.
    for (int i = 0; i < 2200; i++) {
        ask(12, MT_CLI_COMMAND, 8000);
        ASSERT_EQ(select(0), 0);
    }
    EXPECT_GT(zekIpcStatistics().overrun, 0u);
    EXPECT_STREQ(hostRequestState(RP, CLIENT_PORT, 12), "unknown") << "whoever asks sends it again";
    hostReleaseRequests();
    EXPECT_EQ(take(), 11u);
}

TEST_F(selectTest, ThePeerProcessorIsThereOrNot) {
    chassisDescription& chassis = hostConf().chassis;
    bytes news = makeMessage(RP, OWN_REQUESTS + 1, RP, OWN_REQUESTS, 14524, 1, 952);
    int err = 0;
    EXPECT_EQ(zekIrcPeerRpmSend(APP_ACL, 0, news.data(), news.size(), 0, &err), -1)
        << "no second one";
    EXPECT_NE(err, 0);
    chassis.routeProcessors = {{RP, true}, {RP + 1, false}};
    endpoint peer(run.path, RP + 1, OWN_REQUESTS);
    EXPECT_EQ(zekIrcPeerRpmSend(APP_ACL, 0, news.data(), news.size(), 0, &err), 0);
    EXPECT_EQ(peer.drain(), upTo(1));
}

}  // namespace
