// SWP: the protocol over a network that loses, repeats and reorders, and the handles over sockets.
#include "platform/api/zekSwp.h"

#include <poll.h>

#include <algorithm>
#include <random>
#include <set>

#include "platform/host/swpqueue.h"
#include "tests/platform/hostTest.h"

namespace {

std::set<void*> blocks;  // messages that somebody owns
void* takeBlock(size_t size) {
    void* block = ::operator new(size);
    blocks.insert(block);
    return block;
}
void freeBlock(void* block) {
    ASSERT_EQ(blocks.erase(block), 1u) << "freed twice or never allocated";
    ::operator delete(block);
}
int prints = 0;
void print(const char*) {
    prints++;
}

constexpr uint32_t AGENT_PORT = 7937 + 4;

void* makeData(uint32_t id, uint32_t toPort = AGENT_PORT) {
    bytes m = makeMessage(RP, OWN_REQUESTS + 1, CARD, toPort, 14410, id);
    void* block = takeBlock(m.size());
    memcpy(block, m.data(), m.size());
    return block;
}

// One sender and one receiver with everything that is on its way between them. Time is the test's.
struct network {
    swpQueue queue;
    zekSwpSeq seen{};
    uint64_t now = 1000;
    size_t room = SIZE_MAX;  // messages that the socket still takes
    bool up = true;
    std::vector<bytes> data;
    std::vector<ipcHdr> answers;
    std::vector<uint32_t> delivered;  // ids, of the receiver's present life

    explicit network(uint32_t window = 10, uint32_t repeats = 5) {
        queue.window = window;
        queue.repeatsMax = repeats;
        queue.session = 100;
        queue.free = freeBlock;
        queue.print = print;
        queue.send = [this](std::span<const swpMessage> messages) {
            const size_t taken = std::min(room, messages.size());
            if (room != SIZE_MAX) room -= taken;
            for (const swpMessage& m : messages.first(taken))
                if (up) data.emplace_back(m.data, m.data + m.length);
            return taken;
        };
    }
    ~network() { swpQueueFlush(&queue, now); }
    int enqueue(uint32_t id) {
        void* m = makeData(id);
        int result = swpQueueEnqueue(&queue, m, 64, now);
        if (result != 0) freeBlock(m);
        return result;
    }
    void fill(uint32_t from, uint32_t to) {
        for (uint32_t i = from; i <= to; i++) ASSERT_EQ(enqueue(i), 0);
    }
    void expectTicks(int times, uint64_t ms) {
        for (int i = 0; i < times; i++) EXPECT_EQ(tick(ms), SWP_OK);
    }
    void receive(size_t at) {
        bytes m = data[at];
        ipcHdr* hdr = headerOf(m);
        int verdict = swpReceive(&seen, hdr->session, hdr->swpSeq);
        if (verdict == ZEK_SWP_IN_ORDER) delivered.push_back(hdr->sequence);
        if (verdict == ZEK_SWP_IN_ORDER || verdict == ZEK_SWP_SEEN)
            answers.push_back(swpAnswerTo(*hdr));
    }
    void answer(size_t at) {
        void* released = nullptr;
        swpQueueAnswer(&queue, answers[at].session, answers[at].swpSeq, now, &released);
        if (released != nullptr) freeBlock(released);
    }
    // Everything on its way arrives, in order, until nothing moves any more.
    void settle() {
        while (!data.empty() || !answers.empty()) {
            for (size_t i = 0; i < data.size(); i++) receive(i);
            data.clear();
            for (size_t i = 0; i < answers.size(); i++) answer(i);
            answers.clear();
        }
    }
    int tick(uint64_t ms) {
        now += ms;
        return now >= swpQueueDeadline(queue) ? swpQueueExpire(&queue, now) : SWP_OK;
    }
    void expectDelivered(uint32_t from, uint32_t to) { EXPECT_EQ(delivered, upTo(to, from)); }
};

TEST(swpReceiver, Verdicts) {
    const struct {
        const char* what;
        zekSwpSeq before;
        uint32_t session, seq;
        int verdict;
        zekSwpSeq after;
    } rows[] = {
        {"the first message", {0, 0}, 5, 1, ZEK_SWP_IN_ORDER, {5, 2}},
        {"the next one", {5, 2}, 5, 2, ZEK_SWP_IN_ORDER, {5, 3}},
        {"a repeated one", {5, 9}, 5, 8, ZEK_SWP_SEEN, {5, 9}},
        {"the oldest one repeated", {5, 9}, 5, 1, ZEK_SWP_SEEN, {5, 9}},
        {"one too far", {5, 2}, 5, 3, SWP_GAP, {5, 2}},
        {"a session joined in the middle", {0, 0}, 5, 2, SWP_MIDDLE, {0, 0}},
        {"the sender's next session", {5, 9}, 6, 1, ZEK_SWP_IN_ORDER, {6, 2}},
        {"its second message first", {5, 9}, 6, 2, SWP_MIDDLE, {5, 9}},
        {"a leftover of the session before", {6, 2}, 5, 1, SWP_STALE, {6, 2}},
        {"a sender that started anew", {5000, 2}, 77, 1, ZEK_SWP_IN_ORDER, {77, 2}},
        {"the numbers wrap", {5, 0xFFFFFFFF}, 5, 0xFFFFFFFF, ZEK_SWP_IN_ORDER, {5, 0}},
        {"no number", {5, 3}, 5, 0, ZEK_SWP_SEEN, {5, 3}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        zekSwpSeq seen = r.before;
        EXPECT_EQ(swpReceive(&seen, r.session, r.seq), r.verdict);
        EXPECT_EQ(std::pair(seen.session, seen.next), std::pair(r.after.session, r.after.next));
    }
}

// One lost message must not cost a time-out for each message behind it.
TEST(swpSender, KeepsTheWindowAndALostMessageCostsOneTimeout) {
    network n(4);
    n.fill(1, 100);
    EXPECT_EQ(n.data.size(), 4u);
    n.data.erase(n.data.begin() + 2);
    n.settle();
    n.expectDelivered(1, 2);
    n.expectTicks(1, SWP_TIMEOUT_MS);
    n.settle();
    n.expectDelivered(1, 100);
    EXPECT_EQ(n.queue.timeouts, 1u);
    EXPECT_EQ(n.queue.repeated, 4u);
    EXPECT_TRUE(n.queue.backlog.empty());
    EXPECT_EQ(swpQueueDeadline(n.queue), SWP_NEVER);
}

TEST(swpSender, AnAnswerReleasesWhatIsBeforeItAndImpossibleOnesNothing) {
    network n(10);
    n.fill(1, 12);
    for (size_t i = 0; i < 10; i++) n.receive(i);
    n.data.clear();
    n.answer(6);
    n.answer(3);  // late: releases nothing
    EXPECT_EQ(n.queue.backlog.size(), 5u);
    EXPECT_EQ(n.queue.acknowledged, 7u);
    n.room = 0;
    const struct {
        uint32_t session, seq;
        int result;
    } rows[] = {{99, 8, SWP_OK},  // of a session that was given up
                {0, 8, SWP_E_QUEUE},       {100, 13, SWP_E_SEQUENCE},  // never sent
                {100, 20, SWP_E_SEQUENCE}, {100, 0x7FFFFFFF, SWP_E_SEQUENCE},
                {100, 0, SWP_OK},          {100, 0xFFFFFFFF, SWP_OK}};
    for (const auto& r : rows) {
        void* released = nullptr;
        EXPECT_EQ(swpQueueAnswer(&n.queue, r.session, r.seq, n.now, &released), r.result) << r.seq;
        EXPECT_EQ(released, nullptr);
        EXPECT_EQ(n.queue.backlog.size(), 5u);
    }
}

// Nobody looks after such a queue: it tries the peer for ever, and gives it what it has taken. What
// the peer does not remember comes in a new session.
TEST(swpSender, ADeadPeerIsTriedOnAndGetsWhatWasTaken) {
    network n(10, 3);
    prints = 0;
    n.enqueue(1);
    n.settle();
    n.up = false;
    n.fill(2, 20);
    n.expectTicks(3, SWP_TIMEOUT_MS);
    EXPECT_TRUE(n.queue.alive);
    EXPECT_EQ(n.tick(SWP_TIMEOUT_MS), SWP_E_DEAD);
    EXPECT_FALSE(n.queue.alive);
    EXPECT_EQ(n.enqueue(21), -1) << "nobody may think that it was sent";
    n.expectTicks(200, SWP_PROBE_MS);  // told once
    EXPECT_EQ(prints, 1);
    n.up = true;
    n.seen = {};
    n.delivered.clear();
    n.expectTicks(1, SWP_PROBE_MS - 1);
    EXPECT_TRUE(n.data.empty());
    n.expectTicks(1, 1);
    EXPECT_EQ(n.data.size(), 1u) << "a try is one message";
    n.settle();
    n.expectDelivered(2, 20);
    EXPECT_TRUE(n.queue.alive);
    EXPECT_EQ(n.enqueue(21), 0);
    n.settle();
    n.expectDelivered(2, 21);
}

struct renewed : network {
    explicit renewed(uint32_t repeats = 3) : network(10, repeats) {
        queue.owner = swpOwner::renews;
    }
    // Lost, with one message left, or none when nothing was unanswered.
    void expectLost(size_t left = 1) {
        EXPECT_EQ(queue.state, zekSwpState::lost);
        EXPECT_EQ(queue.backlog.size(), left);
        EXPECT_EQ(queue.bytes, 64 * left);
        EXPECT_EQ(enqueue(1), -1);
        EXPECT_EQ(blocks.size(), left);
    }
    void replay(uint32_t from, uint32_t to) {
        swpQueueReplayBegin(&queue);
        fill(from, to);
        swpQueueReplayEnd(&queue);
    }
    // How long until the owner is told to start over, with time alone.
    uint64_t untilAnswered() {
        const uint64_t start = now;
        while (queue.state == zekSwpState::lost && now < start + 60000) {
            settle();
            tick(10);
        }
        EXPECT_EQ(queue.state, zekSwpState::answered);
        return now - start;
    }
};

TEST(swpRenewed, EveryLossGivesUpAllAndTheAnswerIsTold) {
    const struct {
        const char* what;
        size_t messages, bytes;  // how much is kept; 0: no bound that matters
        bool dead;
    } rows[] = {
        {"too many", 20, 0, false},
        {"too much", 0, 64 * 20 + 63, false},
        {"the owner has no memory", 0, 0, false},
        {"a dead peer", 0, 0, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        renewed n;
        n.up = false;
        n.fill(1, 20);
        if (row.messages != 0) n.queue.messagesMax = row.messages;
        if (row.bytes != 0) n.queue.bytesMax = row.bytes;
        if (row.dead) {
            n.expectTicks(3, SWP_TIMEOUT_MS);
            EXPECT_EQ(n.tick(SWP_TIMEOUT_MS), SWP_E_DEAD);
        } else if (row.messages + row.bytes != 0) {
            n.enqueue(9);
        } else {
            swpQueueLose(&n.queue, n.now);
        }
        n.expectLost();
        for (int i = 0; i < 30; i++) n.tick(SWP_PROBE_MS);
        n.expectLost();
        n.up = true;
        (void)n.untilAnswered();
        EXPECT_TRUE(blocks.empty());
        EXPECT_TRUE(n.queue.alive);
        n.delivered.clear();
        n.replay(100, 150);
        n.settle();
        n.expectDelivered(100, 150);
        EXPECT_EQ(swpQueueDeadline(n.queue), SWP_NEVER);
    }
}

TEST(swpRenewed, AFlushOfSomethingIsALossAndOneOfNothingIsNot) {
    renewed n;
    swpQueueFlush(&n.queue, n.now);
    EXPECT_EQ(n.queue.state, zekSwpState::inStep);
    n.enqueue(1);
    swpQueueFlush(&n.queue, n.now);
    n.expectLost(0);
    EXPECT_EQ(n.untilAnswered(), 10u);
}

// A replay may need more than the bound; it is then what a peer may cost.
TEST(swpRenewed, AReplayIsTheBoundAfterIt) {
    renewed n;
    n.up = false;
    n.queue.bytesMax = 64;
    n.replay(1, SWP_BACKLOG_MAX + 1000);
    EXPECT_EQ(n.queue.state, zekSwpState::inStep);
    EXPECT_EQ(n.enqueue(1), -1);
    n.expectLost();
    n.replay(1, 5);
    EXPECT_EQ(n.queue.messagesMax, SWP_BACKLOG_MAX);
    EXPECT_EQ(n.queue.bytesMax, SWP_BYTES_MAX);
}

// A replay that fails again and again must not become the only thing the task does.
TEST(swpRenewed, LossesInARowAreSpaced) {
    renewed n;
    std::vector<uint64_t> waits;
    for (int i = 0; i < 10; i++) {
        swpQueueLose(&n.queue, n.now);
        waits.push_back(n.untilAnswered());
        swpQueueReplayBegin(&n.queue);
        n.enqueue(1);
        n.settle();  // what came through meanwhile is no recovery
        if (i != 8) continue;
        swpQueueReplayEnd(&n.queue);
        n.enqueue(2);
        n.settle();
    }
    EXPECT_EQ(waits,
              (std::vector<uint64_t>{10, 250, 500, 1000, 2000, 4000, 8000, 16000, 16000, 10}));
}

// A full socket is no lost message. The rest of a batch that it has taken a part of goes as soon as
// there is room: nothing twice, nothing passed over, and an answer to what has not gone is none.
TEST(swpSender, ABatchMayBeTakenInParts) {
    network n(10);
    n.room = 0;
    n.fill(1, 25);
    n.expectTicks(10, SWP_FULL_RETRY_MS);
    n.room = 4;
    n.expectTicks(1, SWP_FULL_RETRY_MS);
    EXPECT_EQ(n.data.size(), 4u);
    EXPECT_EQ(n.queue.inFlight, 4u);
    void* released = nullptr;
    EXPECT_EQ(swpQueueAnswer(&n.queue, 100, 5, n.now, &released), SWP_E_SEQUENCE);
    EXPECT_EQ(n.queue.backlog.size(), 25u);
    n.settle();  // the four are answered, and the window moves on without room
    EXPECT_EQ(n.queue.backlog.size(), 21u);
    auto retry = [&n](size_t room) {
        n.room = room;
        n.expectTicks(1, SWP_FULL_RETRY_MS);
        n.settle();
    };
    for (int i = 0; i < 20; i++) retry(3);
    n.expectDelivered(1, 25);
    EXPECT_EQ(n.queue.repeated, 0u);
    EXPECT_EQ(n.queue.timeouts, 0u);
    // A window that is repeated in parts counts what goes again, once each.
    n.up = false;
    n.room = SIZE_MAX;
    n.fill(26, 35);
    n.up = true;
    n.expectTicks(1, SWP_TIMEOUT_MS);
    n.room = 5;
    n.settle();
    n.expectDelivered(1, 31);
    EXPECT_EQ(n.queue.repeated, 1u + 5u);
    retry(SIZE_MAX);
    n.expectDelivered(1, 35);
    EXPECT_EQ(n.queue.repeated, 10u);
}

TEST(swpSender, TheBacklogIsBounded) {
    network n;
    n.up = false;
    n.fill(1, SWP_BACKLOG_MAX);
    EXPECT_EQ(n.enqueue(1), -1);  // and was still ours to free
    EXPECT_EQ(n.queue.refused, 1u);
    n.queue.messagesMax = 0;
    n.queue.bytesMax = n.queue.bytes;
    EXPECT_EQ(n.enqueue(1), -1);
    EXPECT_EQ(n.queue.backlog.size(), SWP_BACKLOG_MAX);
    void* m = makeData(1);
    for (size_t length : {0u, 59u, 65537u})
        EXPECT_EQ(swpQueueEnqueue(&n.queue, m, length, n.now), -1);
    freeBlock(m);
}

// Whatever the network does, what the receiver's user gets in one life of the receiver is what was
// enqueued, in order and once; and in the end either all of it has arrived or the queue is dead.
TEST(swpProperty, ExactlyOnceInOrderOrNotAlive) {
    for (uint32_t seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 engine(seed);
        auto random = [&engine] { return static_cast<uint32_t>(engine()); };
        auto chance = [&random](uint32_t percent) { return random() % 100 < percent; };
        uint32_t loss = random() % 40, restarts = seed % 3 == 0 ? 1 : 0;
        network n(1 + random() % 12, 8);
        uint32_t next = 0, sessionStart = 1, flushes = 0;
        auto check = [&] {
            for (size_t i = 1; i < n.delivered.size(); i++)
                ASSERT_LT(n.delivered[i - 1], n.delivered[i]) << "twice, or out of order";
        };
        // One of what is on its way arrives, mostly the first, or is lost; it may come again.
        auto deliver = [&](auto& onTheWay, auto arrive) {
            if (onTheWay.empty()) return;
            const size_t at = chance(30) ? random() % onTheWay.size() : 0;
            if (!chance(loss)) arrive(at);
            if (!chance(15)) onTheWay.erase(onTheWay.begin() + static_cast<long>(at));
        };
        for (int step = 0; step < 3000; step++) {
            uint32_t what = random() % 100;
            if (what < 20) {
                n.enqueue(++next);
            } else if (what < 55) {
                deliver(n.data, [&n](size_t at) { n.receive(at); });
            } else if (what < 90) {
                deliver(n.answers, [&n](size_t at) { n.answer(at); });
            } else if (what < 96) {
                n.room = chance(10) ? random() % 4 : SIZE_MAX;
                n.tick(random() % 300);
            } else if (restarts != 0 && chance(2)) {
                n.seen = {};
                check();
                n.delivered.clear();
            }
            if (!n.queue.alive && chance(30)) {
                swpQueueFlush(&n.queue, n.now);
                sessionStart = next + 1;
                flushes++;
            }
        }
        check();
        // Calm: nothing is lost any more. What is still on its way arrives last of all.
        n.room = SIZE_MAX;
        for (int i = 0; i < 50 && !n.queue.backlog.empty() && n.queue.alive; i++) {
            n.settle();
            n.tick(SWP_TIMEOUT_MS);
        }
        n.settle();
        check();
        const swpQueue& q = n.queue;
        EXPECT_EQ(q.enqueued, q.acknowledged + q.flushed + q.backlog.size());
        if (!q.alive) {
            EXPECT_NE(restarts, 0u) << "dead although the receiver answers";
            continue;
        }
        EXPECT_TRUE(q.backlog.empty());
        if (restarts != 0) continue;
        // With one receiver throughout, nothing of the last session is missing.
        auto first =
            std::ranges::find_if(n.delivered, [&](uint32_t id) { return id >= sessionStart; });
        EXPECT_EQ(n.delivered.end() - first, next - sessionStart + 1) << flushes << " flushes";
    }
    EXPECT_TRUE(blocks.empty()) << "messages were neither released nor freed";
}

class swpHandles : public taskTest {
  protected:
    endpoint peer{run.path, CARD, AGENT_PORT};
    zekSwpHandle queue = ZEK_SWP_NONE;
    swpHandles() {
        chassisCard card{};
        card.slot = 1;
        card.address = CARD;
        hostConf().chassis.cards = {card};
        hostConf().chassis.tasks = {{APP_RTM, 0, RP}};
        queue = agentQueue(1, 90);
    }
    static zekSwpHandle agentQueue(uint32_t slot, uint32_t repeats) {
        return zekSwpQueueCreate_p(0, 10, repeats, APP_ACL, 0, 0, APP_ACL_AGENT, slot, takeBlock,
                                   freeBlock, print);
    }
    int enqueue(uint32_t id, uint32_t toPort = AGENT_PORT) {
        void* m = makeData(id, toPort);
        const int result = zekSwpEnqueue(queue, m, 64);
        if (result != 0) freeBlock(m);
        return result;
    }
    // What an agent does with all that has come: answers it, and takes what is next in order.
    static std::vector<uint32_t> answerAll(endpoint& e, zekSwpSeq* seen) {
        std::vector<uint32_t> taken;
        for (bytes m; e.recv(&m) > 0;)
            if (zekEndpointSwpAck(e.e, m.data(), seen) == ZEK_SWP_IN_ORDER)
                taken.push_back(headerOf(m)->sequence);
        return taken;
    }
    zekSwpHandle taskQueue(uint32_t app) const {
        return zekSwpQueueCreate_p(5, 10, APP_ACL, key, app, takeBlock, freeBlock, print);
    }
    // What the log was told since the last call.
    std::vector<std::string> logged() {
        std::vector<std::string> texts;
        zekEvtRing([&](const zekEvtLine& line) {
            if (line.number <= lastLine) return;
            lastLine = line.number;
            texts.push_back(line.text);
        });
        return texts;
    }
    uint64_t lastLine = 0;
    // The task's loop: waits for one message on the timer or the request queue and handles it.
    int serveOne() {
        zekFdSet set = requestSet();
        set.set(static_cast<size_t>(Key_getSocketFd(Key_getTmrQueue(key))));
        if (zekSelect(ZEK_FD_MAX, &set, 10000) <= 0) return -1;
        bytes m(IPC_BUFFER_SIZE);
        for (zekQueue q : {Key_getTmrQueue(key), Key_getReqQueue(key)}) {
            if (zekIpcRecv(q, m.data(), m.size(), 0) <= 0) continue;
            if (headerOf(m)->mtype == MT_SWP_TIMEOUT) return zekSwpTimeout(m.data());
            void* released = nullptr;
            int error = zekSwpDequeue(m.data(), &released);
            if (released != nullptr) freeBlock(released);
            return error;
        }
        return 0;
    }
};

TEST_F(swpHandles, OfPeersThatAreKnownUntilTheyAreRemoved) {
    EXPECT_EQ(queue >> 25, 2u);
    EXPECT_GE(queue & 0x1FFFFFF, 1u);
    EXPECT_LE(queue & 0x1FFFFFF, 0x3FFFu);
    EXPECT_EQ(taskQueue(APP_RTM) >> 25, 0u);
    for (zekSwpHandle unknown : {taskQueue(APP_IGMP), agentQueue(2, 90), agentQueue(20, 90)})
        EXPECT_EQ(unknown, ZEK_SWP_NONE);
    char own[32], to[32];
    EXPECT_EQ(zekSwpGetTaskNamesFromQHandle(queue, own, to, sizeof(own)), 0);
    EXPECT_STREQ(to, "ACL_AGENT");

    for (uint32_t i = 1; i <= 20; i++) ASSERT_EQ(enqueue(i), 0);
    EXPECT_FALSE(zekSwpIsQueueEmpty(queue));
    zekSwpQueueRemove(queue);
    EXPECT_TRUE(blocks.empty());
    EXPECT_TRUE(zekSwpIsQueueEmpty(queue));
    EXPECT_TRUE(zekSwpIsQueueAlive(queue));
    EXPECT_EQ(enqueue(1), -1);
    EXPECT_EQ(zekSwpGetTaskNamesFromQHandle(queue, own, to, sizeof(own)), -1);
}

TEST_F(swpHandles, MessagesReachThePeerOnceAndItsAnswersEmptyTheQueue) {
    constexpr uint32_t count = 200;  // far more than the socket takes at once
    for (uint32_t i = 1; i <= count; i++) ASSERT_EQ(enqueue(i), 0);
    zekSwpSeq seen{};
    std::vector<uint32_t> got;
    while (!zekSwpIsQueueEmpty(queue)) {
        for (uint32_t id : answerAll(peer, &seen)) got.push_back(id);
        ASSERT_EQ(serveOne(), 0);
    }
    EXPECT_EQ(got, upTo(count));
    EXPECT_TRUE(blocks.empty());
    zekSwpStats stats[2];
    ASSERT_EQ(zekSwpStatistics(stats), 1u);
    EXPECT_EQ(stats[0].acknowledged, count);
    EXPECT_EQ(stats[0].slot, 1u);
}

// From the peer's silence to its answer, over sockets: what the owner and the log are told.
TEST_F(swpHandles, ADeadAgentIsToldOnceAndItsAnswerOnce) {
    zekSwpQueueRemove(queue);
    queue = agentQueue(1, 1);
    for (uint32_t i = 1; i <= 5; i++) ASSERT_EQ(enqueue(i), 0);
    int error = SWP_OK;
    for (int i = 0; i < 20 && error == SWP_OK; i++) error = serveOne();
    EXPECT_EQ(error, SWP_E_DEAD);
    EXPECT_STREQ(zekSwpGetErr(error), "SWP peer does not answer: ACL_AGENT 1");
    EXPECT_EQ(blocks.size(), 1u);
    zekSwpEvent event{};
    ASSERT_TRUE(zekSwpNextEvent(&event));
    EXPECT_EQ(event.queue, queue);
    EXPECT_EQ(event.state, zekSwpState::lost);
    EXPECT_FALSE(zekSwpNextEvent(&event));
    EXPECT_TRUE(zekSwpIsQueueAlive(queue)) << "its owner has nothing to flush";
    EXPECT_EQ(enqueue(6), -1);

    zekSwpSeq seen{};
    (void)logged();
    while (!zekSwpNextEvent(&event)) {
        (void)answerAll(peer, &seen);
        ASSERT_EQ(serveOne(), SWP_OK);
    }
    EXPECT_EQ(event.state, zekSwpState::answered);
    EXPECT_FALSE(zekSwpNextEvent(&event));
    EXPECT_EQ(logged(), std::vector<std::string>{"SWP peer answers again: ACL_AGENT 1"});
    EXPECT_TRUE(blocks.empty());
    zekSwpReplayBegin(queue);
    EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::inStep);
    ASSERT_EQ(enqueue(7), 0);
    zekSwpReplayEnd(queue);
    EXPECT_EQ(answerAll(peer, &seen), upTo(7, 7));
    EXPECT_FALSE(zekSwpNextEvent(&event));
}

// Each numbers its messages for itself, as it hears only its own.
TEST_F(swpHandles, TheInstancesOfATaskHaveASessionEach) {
    zekSwpQueueRemove(queue);
    queue = taskQueue(APP_RTM);
    auto port = [](uint32_t instance) { return aclServicePort(APP_RTM, instance, QUEUE_REQUEST); };
    endpoint first(run.path, CARD, port(0)), second(run.path, CARD, port(1));
    for (uint32_t i = 0; i < 20; i++) ASSERT_EQ(enqueue(i, port(i % 2)), 0);
    zekSwpSeq seen[2] = {};
    std::vector<uint32_t> got[2];
    auto serve = [&](endpoint& e, size_t instance) {
        for (uint32_t id : answerAll(e, &seen[instance])) got[instance].push_back(id);
        ASSERT_EQ(serveOne(), SWP_OK);
    };
    while (got[0].size() < 10) serve(first, 0);
    EXPECT_FALSE(zekSwpIsQueueEmpty(queue)) << "the other has not answered";
    while (!zekSwpIsQueueEmpty(queue)) serve(second, 1);
    EXPECT_EQ(got[1], (std::vector<uint32_t>{1, 3, 5, 7, 9, 11, 13, 15, 17, 19}));
    zekSwpStats stats[3];
    ASSERT_EQ(zekSwpStatistics(stats), 2u);
    EXPECT_EQ(stats[1].instance, 1u);
    EXPECT_NE(stats[0].session, stats[1].session);
}

TEST_F(swpHandles, ForgedAnswersAndTimeoutsDoNothing) {
    ASSERT_EQ(enqueue(1), 0);
    bytes data;
    ASSERT_EQ(peer.recv(&data), 64);
    ipcHdr honest = swpAnswerTo(*headerOf(data));
    const struct {
        const char* what;
        be32 ipcHdr::*field;
        uint32_t value;
        int result;
    } rows[] = {
        {"another session", &ipcHdr::session, honest.session + 1, SWP_E_QUEUE},
        {"a number never sent", &ipcHdr::swpSeq, 2, SWP_E_SEQUENCE},
        {"a length that lies", &ipcHdr::length, 0xFFFFFFFF, SWP_E_MESSAGE},
        {"another type", &ipcHdr::mtype, 401, SWP_E_MESSAGE},
        {"another card", nullptr, 0, SWP_E_QUEUE},
        {"another service", nullptr, 7937 + 8, SWP_E_QUEUE},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        ipcHdr forged = honest;
        if (r.field != nullptr)
            forged.*r.field = r.value;
        else if (r.value != 0)
            forged.target.svce = r.value;
        else
            forged.target.card = RP;
        void* released = nullptr;
        EXPECT_EQ(zekSwpDequeue(&forged, &released), r.result);
        EXPECT_EQ(released, nullptr);
        EXPECT_FALSE(zekSwpIsQueueEmpty(queue));
    }
    EXPECT_EQ(zekSwpTimeout(&honest), SWP_E_MESSAGE);

    // A time-out that somebody sends is not even delivered.
    bytes timeout = request(queue, MT_SWP_TIMEOUT, 60);
    endpoint client(run.path, RP, CLIENT_PORT);
    ASSERT_EQ(client.send(timeout), zekSendResult::sent);
    EXPECT_EQ(select(0), 0);
    EXPECT_EQ(zekIpcStatistics().malformed, 1u);

    void* released = nullptr;
    EXPECT_EQ(zekSwpDequeue(&honest, &released), SWP_OK);
    ASSERT_NE(released, nullptr);
    freeBlock(released);
    EXPECT_TRUE(zekSwpIsQueueEmpty(queue));
}

// At the sender's request queue, whichever of its queues it has sent from.
TEST_F(swpHandles, TheTaskAnswersWhatItReceivesAndRepeatsTheAnswer) {
    bytes m = makeMessage(CARD, AGENT_PORT + 1, RP, OWN_REQUESTS, 14403, 1);
    zekSwpSeq seen{};
    const zekQueue own = Key_getReqQueue(key);
    bytes got;
    const struct {
        uint32_t session, number;
        int verdict;
    } rows[] = {{0, 0, ZEK_SWP_IN_ORDER},  // outside SWP
                {5, 1, ZEK_SWP_IN_ORDER},
                {5, 1, ZEK_SWP_SEEN},
                {5, 3, SWP_GAP}};
    for (const auto& r : rows) {
        headerOf(m)->session = r.session;
        headerOf(m)->swpSeq = r.number;
        EXPECT_EQ(zekSwpCkSeqAndAck(m.data(), &seen, own), r.verdict);
        ASSERT_EQ(peer.recv(&got), r.number == 1 ? 60 : 0);
        if (r.number != 1) continue;
        const ipcHdr& answer = *headerOf(got);
        EXPECT_EQ(answer.mtype, MT_SWP_ACK);
        EXPECT_EQ(answer.length, 60u);
        EXPECT_EQ(answer.session, 5u);
        EXPECT_EQ(answer.swpSeq, 1u);
        EXPECT_EQ(answer.target.svce, OWN_REQUESTS);
    }
    headerOf(m)->target.svce = 0x10002;  // a process number, not a queue of a task
    EXPECT_EQ(swpAnswerTo(*headerOf(m)).source.svce, 0x10002u);
}

}  // namespace
