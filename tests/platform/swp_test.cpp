// SWP: the protocol over a network that loses, repeats and reorders, and the handles over sockets.
#include "platform/api/zekSwp.h"

#include <algorithm>
#include <random>
#include <set>

#include "platform/host/swpqueue.h"
#include "tests/platform/hostTest.h"

namespace {

std::set<void*> blocks;  // messages that somebody owns
void* takeBlock(size_t size) {
    return *blocks.insert(::operator new(size)).first;
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

// Gives a new message to enqueue(message); what is not taken is freed.
template <class Enqueue>
int enqueueNew(uint32_t id, uint32_t toPort, Enqueue enqueue) {
    const bytes m = makeMessage(RP, OWN_REQUESTS + 1, CARD, toPort, 14410, id);
    void* block = memcpy(takeBlock(m.size()), m.data(), m.size());
    const int result = enqueue(block);
    if (result != 0) freeBlock(block);
    return result;
}

// One sender and one receiver with everything that is on its way between them. Time is the test's.
struct network {
    swpQueue queue;
    zekSwpSeq seen{};
    uint64_t now = 1000;
    size_t room = SIZE_MAX;  // messages that the socket still takes
    bool up = true;
    uint32_t last = 0;  // id that was enqueued
    std::vector<bytes> data;
    std::vector<ipcHdr> answers;
    std::vector<uint32_t> delivered;               // ids, of the receiver's present life
    std::set<std::pair<uint32_t, uint32_t>> sent;  // session, number
    uint64_t repeated = 0;

    network(uint32_t window, uint32_t repeats, swpOwner owner = swpOwner::keeps) {
        queue.owner = owner;
        queue.window = window;
        queue.repeatsMax = repeats;
        queue.session = 100;
        queue.free = freeBlock;
        queue.print = print;
        queue.send = [this](std::span<const swpMessage> messages) {
            const size_t taken = std::min(room, messages.size());
            if (room != SIZE_MAX) room -= taken;
            for (const swpMessage& m : messages.first(taken)) {
                const auto* hdr = reinterpret_cast<const ipcHdr*>(m.data);
                EXPECT_LT(hdr->swpSeq - queue.firstSeq, queue.window);
                repeated += sent.emplace(hdr->session, hdr->swpSeq).second ? 0 : 1;
                if (up) data.emplace_back(m.data, m.data + m.length);
            }
            return taken;
        };
    }
    ~network() {
        check();
        swpQueueFlush(&queue, now);
        EXPECT_TRUE(blocks.empty());
    }
    // What holds at any time.
    void check() {
        EXPECT_EQ(queue.repeated, repeated);
        EXPECT_EQ(queue.enqueued, queue.acknowledged + queue.flushed + queue.backlog.size());
        EXPECT_EQ(queue.bytes, 64 * queue.backlog.size());
        EXPECT_EQ(blocks.size(), queue.backlog.size());
        EXPECT_EQ(std::ranges::adjacent_find(delivered, std::greater_equal()), delivered.end())
            << "twice, or out of order";
    }
    int enqueue() {
        const int result = enqueueNew(
            last + 1, AGENT_PORT, [this](void* m) { return swpQueueEnqueue(&queue, m, 64, now); });
        if (result == 0) last++;
        return result;
    }
    void fill(size_t count) {
        for (; count > 0; count--) ASSERT_EQ(enqueue(), 0);
    }
    int tick(uint64_t ms) {
        now += ms;
        return now >= swpQueueDeadline(queue) ? swpQueueExpire(&queue, now) : SWP_OK;
    }
    void expectTicks(int times, uint64_t ms) {
        for (int i = 0; i < times; i++) EXPECT_EQ(tick(ms), SWP_OK);
    }
    void receive(size_t at) {
        const ipcHdr* hdr = headerOf(data[at]);
        int verdict = swpReceive(&seen, hdr->session, hdr->swpSeq);
        if (verdict == ZEK_SWP_IN_ORDER) delivered.push_back(hdr->sequence);
        if (verdict == ZEK_SWP_IN_ORDER || verdict == ZEK_SWP_SEEN)
            answers.push_back(swpAnswerTo(*hdr));
    }
    int answer(uint32_t session, uint32_t seq) {
        void* released = nullptr;
        const int result = swpQueueAnswer(&queue, session, seq, now, &released);
        if (released != nullptr) freeBlock(released);
        return result;
    }
    void answer(size_t at) { (void)answer(answers[at].session, answers[at].swpSeq); }
    // Everything on its way arrives, in order, until nothing moves any more.
    void settle() {
        for (int rounds = 0; !data.empty() || !answers.empty(); rounds++) {
            ASSERT_LT(rounds, 100000) << "it never ends";
            for (size_t i = 0; i < data.size(); i++) receive(i);
            data.clear();
            for (size_t i = 0; i < answers.size(); i++) answer(i);
            answers.clear();
        }
        check();
    }
    void expectDelivered(uint32_t from, uint32_t to) { EXPECT_EQ(delivered, upTo(to, from)); }
};

TEST(swpReceiver, LeftoversAreStaleAndNumbersWrap) {
    zekSwpSeq seen{6, 2};
    EXPECT_EQ(swpReceive(&seen, 5, 1), SWP_STALE) << "of the session before";
    EXPECT_EQ(swpReceive(&(seen = {5000, 2}), 77, 1), ZEK_SWP_IN_ORDER) << "a sender's new life";
    EXPECT_EQ(swpReceive(&(seen = {5, 0xFFFFFFFF}), 5, 0xFFFFFFFF), ZEK_SWP_IN_ORDER);
    EXPECT_EQ(seen.next, 0u);
}

// One lost message must not cost a time-out for each message behind it.
TEST(swpSender, KeepsTheWindowAndALostMessageCostsOneTimeout) {
    network n(4, 5);
    n.fill(100);
    EXPECT_EQ(n.data.size(), 4u);
    n.data.erase(n.data.begin() + 2);
    n.settle();
    n.expectDelivered(1, 2);
    n.expectTicks(1, SWP_TIMEOUT_MS);
    n.settle();
    n.expectDelivered(1, 100);
    EXPECT_EQ(n.queue.timeouts, 1u);
    EXPECT_EQ(n.queue.repeated, 4u);
    EXPECT_EQ(swpQueueDeadline(n.queue), SWP_NEVER);
}

// A full socket is no lost message: what it has not taken goes as soon as there is room, and an
// answer to what has not gone is none.
TEST(swpSender, AnAnswerReleasesWhatIsBeforeItAndImpossibleOnesNothing) {
    network n(10, 5);
    n.room = 4;
    n.fill(12);
    EXPECT_EQ(n.queue.inFlight, 4u);
    EXPECT_EQ(n.answer(100, 5), SWP_E_SEQUENCE);
    n.room = SIZE_MAX;
    n.expectTicks(1, SWP_FULL_RETRY_MS);
    for (size_t i = 0; i < 10; i++) n.receive(i);
    n.answer(6);
    EXPECT_EQ(n.queue.acknowledged, 7u);
    const struct {
        uint32_t session, seq;
        int result;
    } rows[] = {{99, 8, SWP_OK},  // of a session that was given up
                {0, 8, SWP_E_QUEUE},       {100, 13, SWP_E_SEQUENCE},  // never sent
                {100, 20, SWP_E_SEQUENCE}, {100, 0x7FFFFFFF, SWP_E_SEQUENCE},
                {100, 4, SWP_OK},  // late
                {100, 0, SWP_OK},          {100, 0xFFFFFFFF, SWP_OK}};
    for (const auto& r : rows) {
        EXPECT_EQ(n.answer(r.session, r.seq), r.result) << r.seq;
        EXPECT_EQ(blocks.size(), 5u);
    }
    EXPECT_EQ(n.queue.timeouts, 0u);
}

// Nobody looks after such a queue: it tries the peer for ever, and gives it what it has taken. What
// the peer does not remember comes in a new session.
TEST(swpSender, ADeadPeerIsTriedOnAndGetsWhatWasTaken) {
    network n(10, 3);
    prints = 0;
    n.fill(1);
    n.settle();
    n.up = false;
    n.fill(19);
    n.expectTicks(3, SWP_TIMEOUT_MS);
    EXPECT_TRUE(n.queue.alive);
    EXPECT_EQ(n.tick(SWP_TIMEOUT_MS), SWP_E_DEAD);
    EXPECT_FALSE(n.queue.alive);
    EXPECT_EQ(n.enqueue(), -1) << "nobody may think that it was sent";
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
    n.fill(1);
    n.settle();
    n.expectDelivered(2, 21);
}

struct renewed : network {
    renewed() : network(10, 3, swpOwner::renews) {}
    void expectLost(size_t left) {
        EXPECT_EQ(queue.state, zekSwpState::lost);
        EXPECT_EQ(queue.backlog.size(), left);
        EXPECT_EQ(enqueue(), -1);
    }
    void replay(size_t count) {
        swpQueueReplayBegin(&queue);
        fill(count);
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
        void (*lose)(network& n);
        size_t left;
    } rows[] = {
        {"too many", [](network& n) { n.queue.messagesMax = 20, (void)n.enqueue(); }, 1},
        {"too much", [](network& n) { n.queue.bytesMax = 64 * 20 + 63, (void)n.enqueue(); }, 1},
        {"the owner has no memory", [](network& n) { swpQueueLose(&n.queue, n.now); }, 1},
        {"a dead peer",
         [](network& n) {
             n.expectTicks(3, SWP_TIMEOUT_MS);
             EXPECT_EQ(n.tick(SWP_TIMEOUT_MS), SWP_E_DEAD);
         },
         1},
        {"a flush", [](network& n) { swpQueueFlush(&n.queue, n.now); }, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        renewed n;
        swpQueueFlush(&n.queue, n.now);
        EXPECT_EQ(n.queue.state, zekSwpState::inStep) << "nothing was lost";
        n.up = false;
        n.fill(20);
        row.lose(n);
        n.expectLost(row.left);
        for (int i = 0; i < 30 && row.left != 0; i++) n.tick(SWP_PROBE_MS);
        n.expectLost(row.left);
        n.up = true;
        (void)n.untilAnswered();
        EXPECT_TRUE(blocks.empty());
        EXPECT_TRUE(n.queue.alive);
        n.delivered.clear();
        n.replay(50);
        n.settle();
        n.expectDelivered(21, 70);
        EXPECT_EQ(swpQueueDeadline(n.queue), SWP_NEVER);
    }
}

TEST(swpQueue, IsBoundedAndByAReplayThatNeededMore) {
    renewed n;
    n.up = false;
    n.queue.bytesMax = 64;
    n.replay(SWP_BACKLOG_MAX + 1000);
    EXPECT_EQ(n.queue.state, zekSwpState::inStep);
    EXPECT_EQ(n.enqueue(), -1);
    n.expectLost(1);
    n.replay(5);
    EXPECT_EQ(n.queue.bytesMax, SWP_BYTES_MAX);
    n.queue.owner = swpOwner::keeps;
    n.fill(SWP_BACKLOG_MAX - 5);
    EXPECT_EQ(n.enqueue(), -1);  // and is still ours to free
    n.queue.messagesMax = 0;
    n.queue.bytesMax = n.queue.bytes;
    EXPECT_EQ(n.enqueue(), -1);
    EXPECT_EQ(n.queue.refused, 4u);
    uint8_t m[64];
    for (size_t length : {0u, 59u, 65537u})
        EXPECT_EQ(swpQueueEnqueue(&n.queue, m, length, n.now), -1);
}

// A replay that fails again and again must not become the only thing the task does.
TEST(swpRenewed, LossesInARowAreSpaced) {
    renewed n;
    std::vector<uint64_t> waits;
    for (int i = 0; i < 10; i++) {
        swpQueueLose(&n.queue, n.now);
        waits.push_back(n.untilAnswered());
        swpQueueReplayBegin(&n.queue);
        n.fill(1);
        n.settle();  // what came through meanwhile is no recovery
        if (i != 8) continue;
        swpQueueReplayEnd(&n.queue);
        n.fill(1);
        n.settle();
    }
    EXPECT_EQ(waits,
              (std::vector<uint64_t>{10, 250, 500, 1000, 2000, 4000, 8000, 16000, 16000, 10}));
}

// Whatever the network does, what the receiver's user gets in one life of the receiver is what was
// enqueued, in order and once; and in the end either all of it has arrived or the queue is dead.
TEST(swpProperty, ExactlyOnceInOrderOrNotAlive) {
    for (uint32_t seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 engine(seed);
        auto random = [&engine] { return static_cast<uint32_t>(engine()); };
        auto chance = [&random](uint32_t percent) { return random() % 100 < percent; };
        const uint32_t loss = random() % 40;
        const bool restarts = seed % 3 == 0;
        network n(1 + random() % 12, 8);
        uint32_t sessionStart = 1;
        // One of what is on its way arrives, mostly the first, or is lost; it may come again.
        auto deliver = [&](auto& onTheWay, auto arrive) {
            if (onTheWay.empty()) return;
            const size_t at = chance(30) ? random() % onTheWay.size() : 0;
            if (!chance(loss)) arrive(at);
            if (!chance(15)) onTheWay.erase(onTheWay.begin() + static_cast<long>(at));
        };
        for (int step = 0; step < 3000; step++) {
            const uint32_t what = random() % 100;
            if (what < 20) {
                (void)n.enqueue();
            } else if (what < 55) {
                deliver(n.data, [&n](size_t at) { n.receive(at); });
            } else if (what < 90) {
                deliver(n.answers, [&n](size_t at) { n.answer(at); });
            } else if (what < 96) {
                n.room = chance(10) ? random() % 4 : SIZE_MAX;
                n.tick(random() % 300);
            } else if (restarts && chance(2)) {
                n.check();
                n.seen = {};
                n.delivered.clear();
            }
            if (!n.queue.alive && chance(30)) {
                swpQueueFlush(&n.queue, n.now);
                sessionStart = n.last + 1;
            }
        }
        // Calm: nothing is lost any more. What is still on its way arrives last of all.
        n.room = SIZE_MAX;
        for (int i = 0; i < 50 && n.queue.alive; i++) {
            n.settle();
            n.tick(SWP_TIMEOUT_MS);
        }
        EXPECT_TRUE(n.queue.alive || restarts) << "dead although the receiver answers";
        EXPECT_TRUE(n.queue.backlog.empty() || !n.queue.alive);
        if (restarts) continue;
        // With one receiver throughout, nothing of the last session is missing.
        auto first = std::ranges::lower_bound(n.delivered, sessionStart);
        EXPECT_EQ(n.delivered.end() - first, n.last - sessionStart + 1);
    }
}

// A peer that answers what has come and takes what is next in order.
struct swpPeer : endpoint {
    zekSwpSeq seen{};
    std::vector<uint32_t> got;
    using endpoint::endpoint;
    void answerAll() {
        for (bytes m; recv(&m) > 0;)
            if (zekEndpointSwpAck(e, m.data(), &seen) == ZEK_SWP_IN_ORDER)
                got.push_back(headerOf(m)->sequence);
    }
};

class swpHandles : public taskTest {
  protected:
    swpPeer agent{run.path, CARD, AGENT_PORT};
    zekSwpHandle queue = ZEK_SWP_NONE;
    uint32_t last = 0;  // id that was enqueued
    swpHandles() {
        chassisCard card{};
        card.slot = 1;
        card.address = CARD;
        hostConf().chassis.cards = {card};
        hostConf().chassis.tasks = {{APP_RTM, 0, RP}};
        queue = agentQueue(1);
    }
    static zekSwpHandle agentQueue(uint32_t slot) {
        return zekSwpQueueCreate_p(0, 10, 1, APP_ACL, 0, 0, APP_ACL_AGENT, slot, takeBlock,
                                   freeBlock, print);
    }
    zekSwpHandle taskQueue(uint32_t app) const {
        return zekSwpQueueCreate_p(5, 10, APP_ACL, key, app, takeBlock, freeBlock, print);
    }
    int enqueue(uint32_t toPort = AGENT_PORT) {
        return enqueueNew(++last, toPort, [this](void* m) { return zekSwpEnqueue(queue, m, 64); });
    }
    void fill(int count) {
        for (; count > 0; count--) ASSERT_EQ(enqueue(), 0);
    }
    // The task's loop: waits for one message on the timer or the request queue and handles it.
    int serveOne() {
        zekFdSet set = requestSet();
        set.set(static_cast<size_t>(Key_getSocketFd(Key_getTmrQueue(key))));
        if (zekSelect(ZEK_FD_MAX, &set, 10000) <= 0) return -1;
        bytes m(IPC_BUFFER_SIZE);
        for (zekQueue q : {Key_getReqQueue(key), Key_getTmrQueue(key)}) {
            if (zekIpcRecv(q, m.data(), m.size(), 0) <= 0) continue;
            if (headerOf(m)->mtype == MT_SWP_TIMEOUT) return zekSwpTimeout(m.data());
            return dequeue(m.data());
        }
        return 0;
    }
    static int dequeue(const void* answer) {
        void* released = nullptr;
        const int error = zekSwpDequeue(answer, &released);
        if (released != nullptr) freeBlock(released);
        return error;
    }
    // The task and a peer that answers, until something is so.
    void serveUntil(const std::function<bool()>& isSo, swpPeer& peer) {
        for (int i = 0; !isSo(); i++) {
            ASSERT_LT(i, 10000) << "it never is";
            peer.answerAll();
            ASSERT_EQ(serveOne(), SWP_OK);
        }
    }
    bool isEmpty() const { return zekSwpIsQueueEmpty(queue); }
};

TEST_F(swpHandles, OfPeersThatAreKnownUntilTheyAreRemoved) {
    EXPECT_EQ(queue >> 25, 2u);
    EXPECT_LT((queue & 0x1FFFFFF) - 1, 0x3FFFu);
    EXPECT_EQ(taskQueue(APP_RTM) >> 25, 0u);
    for (zekSwpHandle unknown : {taskQueue(APP_IGMP), agentQueue(2), agentQueue(20)})
        EXPECT_EQ(unknown, ZEK_SWP_NONE);
    char own[32], to[32];
    EXPECT_EQ(zekSwpGetTaskNamesFromQHandle(queue, own, to, sizeof(own)), 0);
    EXPECT_STREQ(to, "ACL_AGENT");

    fill(20);
    EXPECT_FALSE(isEmpty());
    zekSwpQueueRemove(queue);
    EXPECT_TRUE(blocks.empty());
    EXPECT_TRUE(isEmpty());
    EXPECT_TRUE(zekSwpIsQueueAlive(queue));
    EXPECT_EQ(enqueue(), -1);
    EXPECT_EQ(zekSwpGetTaskNamesFromQHandle(queue, own, to, sizeof(own)), -1);
}

// From the peer's silence to its answer, over sockets: what the owner and the log are told.
TEST_F(swpHandles, ADeadAgentIsToldOnceAndItsAnswerOnceAndItGetsTheReplay) {
    uint64_t before = 0;  // in the log, which the process keeps
    zekEvtRing([&](const zekEvtLine& line) { before = line.number; });
    fill(5);
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
    EXPECT_EQ(enqueue(), -1);

    serveUntil([&] { return zekSwpNextEvent(&event); }, agent);
    EXPECT_EQ(event.state, zekSwpState::answered);
    EXPECT_FALSE(zekSwpNextEvent(&event));
    std::vector<std::string> log;
    zekEvtRing([&](const zekEvtLine& line) {
        if (line.number > before) log.push_back(line.text);
    });
    EXPECT_EQ(std::ranges::count(log, "SWP peer answers again: ACL_AGENT 1"), 1);
    zekSwpReplayBegin(queue);
    EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::inStep);
    agent.got.clear();
    fill(200);  // far more than the socket takes at once
    zekSwpReplayEnd(queue);
    serveUntil([this] { return isEmpty(); }, agent);
    EXPECT_EQ(agent.got, upTo(206, 7));
    EXPECT_FALSE(zekSwpNextEvent(&event));
    zekSwpStats stats[2];
    ASSERT_EQ(zekSwpStatistics(stats), 1u);
    EXPECT_EQ(stats[0].acknowledged, 200u);
    EXPECT_EQ(stats[0].slot, 1u);
}

TEST_F(swpHandles, ForgedAnswersAndTimeoutsDoNothing) {
    fill(1);
    bytes data;
    ASSERT_EQ(agent.recv(&data), 64);
    const ipcHdr honest = swpAnswerTo(*headerOf(data));
    const struct {
        const char* what;
        void (*forge)(ipcHdr& h);
        int result;
    } rows[] = {
        {"another session", [](ipcHdr& h) { h.session = h.session + 1; }, SWP_E_QUEUE},
        {"a number never sent", [](ipcHdr& h) { h.swpSeq = 2; }, SWP_E_SEQUENCE},
        {"a length that lies", [](ipcHdr& h) { h.length = 0xFFFFFFFF; }, SWP_E_MESSAGE},
        {"another type", [](ipcHdr& h) { h.mtype = 401; }, SWP_E_MESSAGE},
        {"another card", [](ipcHdr& h) { h.target.card = RP; }, SWP_E_QUEUE},
        {"another service", [](ipcHdr& h) { h.target.svce = 7937 + 8; }, SWP_E_QUEUE},
    };
    for (const auto& r : rows) {
        ipcHdr forged = honest;
        r.forge(forged);
        EXPECT_EQ(dequeue(&forged), r.result) << r.what;
        EXPECT_EQ(blocks.size(), 1u) << r.what;
    }
    EXPECT_EQ(zekSwpTimeout(&honest), SWP_E_MESSAGE);

    // A time-out that somebody sends is not even delivered.
    endpoint client(run.path, RP, CLIENT_PORT);
    ASSERT_EQ(client.send(request(queue, MT_SWP_TIMEOUT, 60)), zekSendResult::sent);
    EXPECT_EQ(select(0), 0);
    EXPECT_EQ(zekIpcStatistics().malformed, 1u);

    EXPECT_EQ(dequeue(&honest), SWP_OK);
    EXPECT_TRUE(isEmpty());
}

// At the sender's request queue, whichever of its queues it has sent from.
TEST_F(swpHandles, TheTaskAnswersWhatItReceivesAndRepeatsTheAnswer) {
    bytes m = makeMessage(CARD, AGENT_PORT + 1, RP, OWN_REQUESTS, 14403, 1), got;
    bytes want = makeMessage(RP, OWN_REQUESTS, CARD, AGENT_PORT, MT_SWP_ACK, 1, 60);
    zekSwpSeq seen{};
    EXPECT_EQ(zekSwpCkSeqAndAck(m.data(), &seen, Key_getReqQueue(key)), ZEK_SWP_IN_ORDER);
    EXPECT_EQ(agent.recv(&got), 0) << "it is outside SWP";
    headerOf(want)->session = headerOf(m)->session = 5;
    headerOf(want)->swpSeq = headerOf(m)->swpSeq = 1;
    for (int verdict : {ZEK_SWP_IN_ORDER, ZEK_SWP_SEEN}) {
        EXPECT_EQ(zekSwpCkSeqAndAck(m.data(), &seen, Key_getReqQueue(key)), verdict);
        ASSERT_EQ(agent.recv(&got), 60);
        EXPECT_EQ(got, want);
    }
    headerOf(m)->swpSeq = 3;
    EXPECT_EQ(zekSwpCkSeqAndAck(m.data(), &seen, Key_getReqQueue(key)), SWP_GAP);
    EXPECT_EQ(agent.recv(&got), 0);
    headerOf(m)->target.svce = 0x10002;  // a process number, not a queue of a task
    EXPECT_EQ(swpAnswerTo(*headerOf(m)).source.svce, 0x10002u);
}

}  // namespace
