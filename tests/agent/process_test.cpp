// aclagent and chassisd as processes; the manager is the test.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>

#include "include/agentState.h"
#include "include/chassisControl.h"
#include "include/service.h"
#include "tests/agent/messages.h"
#include "tests/system/chassis.h"

namespace {

using nlohmann::json;
constexpr uint32_t RP = 0x7F010001, RP2 = 0x7F010002, CARD = 0x7F010101;
constexpr uint32_t AGENT_PORT = 7937 + 4 * 3, MAC_PORT = 18945 + 4 * 3, MANAGER_PORT = 7809;
constexpr uint32_t PORT = 0x08040001;  // a port of slot 3

constexpr const char* CHASSIS = R"({ "chassisMode": 1, "routeProcessorType": 4,
  "routeProcessors": [{"address": "127.1.0.1", "primary": true}, {"address": "127.1.0.2"}],
  "tasks": [{"application": 61, "address": "127.1.0.1"}, {"application": 99, "address": "127.1.0.1"}],
  "cards": [{"slot": 3, "address": "127.1.1.1", "type": 7, "egress": true, "ipv6Egress": true}] })";

bytes request(uint32_t type, size_t size, uint32_t first = 0, uint32_t second = 0) {
    bytes m(size);
    put32(m, 12, type);
    put32(m, 60, first);
    if (size > 64) put32(m, 64, second);
    return m;
}
json textOf(const bytes& answer) {
    return json::parse(answer.begin() + AGENT_STATE_TEXT_OFFSET, answer.end(), nullptr, false);
}

// Messages that are not the awaited kind are kept in order.
struct node : rawEndpoint {
    using rawEndpoint::rawEndpoint;
    std::vector<bytes> kept;

    bool send(bytes m, uint32_t toCard, uint32_t toPort) {
        put32(m, 8, static_cast<uint32_t>(m.size()));
        const uint32_t places[] = {40, address, 44, service, 52, toCard, 56, toPort};
        for (size_t i = 0; i < std::size(places); i += 2) put32(m, places[i], places[i + 1]);
        return rawEndpoint::send(m);
    }
    // The next message of a type; zeros after a long time.
    bytes wait(uint32_t type) {
        for (size_t i = 0;; i++) {
            if (i == kept.size()) kept.push_back(receive());
            bytes m = kept[i].empty() ? bytes(60) : kept[i];
            EXPECT_FALSE(kept[i].empty()) << "no message " << type;
            if (!kept[i].empty() && get32(m, 12) != type) continue;
            kept.erase(kept.begin() + static_cast<ptrdiff_t>(i));
            return m;
        }
    }
    void answer(bytes m) {
        ipcExchangeTriples(wireView<ipcHdr>(std::span(m)));
        EXPECT_TRUE(rawEndpoint::send(m));
    }
    bytes ask(bytes m, uint32_t toCard, uint32_t toPort) {
        static uint32_t sequence = 100;
        put32(m, 32, ++sequence);
        EXPECT_TRUE(send(m, toCard, toPort));
        for (;;) {
            bytes a = wait(get32(m, 12));
            if (get32(a, 32) == sequence || testing::Test::HasFailure()) return a;
        }
    }
};

// A queue as the manager has it.
struct fakeQueue {
    uint32_t port, session, seq = 0;
};

// The manager as an agent sees it: answers registrations, has two queues.
struct fakeManager : node {
    fakeQueue lists{AGENT_PORT, 0x1000}, mac{MAC_PORT, 0x1000};
    uint32_t replays = 0;
    explicit fakeManager(const std::string& dir, uint32_t rp = RP) : node(dir, rp, MANAGER_PORT) {}

    // Answers a registration; the need that it names.
    uint32_t takeRegistration() {
        bytes reg = wait(MT_AGENT_REGISTER);
        answer(reg);
        return get32(reg, 60) >> 1;
    }
    // Answers registrations until one, sent from now on, names a need, or none.
    void untilNeed(bool wanted) {
        kept.clear();
        while ((takeRegistration() != 0) != wanted && !testing::Test::HasFailure()) {
        }
    }
    static void newSession(fakeQueue* queue) {
        queue->session += 1000;
        queue->seq = 0;
    }
    void newSession() { newSession(&lists); }
    // Sends without waiting for the answer, as a queue does within its window.
    void push(const fakeQueue& queue, bytes m, uint32_t number) {
        put32(m, 0, queue.session);
        put32(m, 4, number);
        const uint32_t length = get32(m, 8);
        put32(m, 8, static_cast<uint32_t>(m.size()));
        if (length > m.size()) put32(m, 8, length);  // some say more than they are
        const uint32_t places[] = {40, address, 44, service, 52, CARD, 56, queue.port};
        for (size_t i = 0; i < std::size(places); i += 2) put32(m, places[i], places[i + 1]);
        EXPECT_TRUE(rawEndpoint::send(m));
    }
    void push(bytes m, uint32_t number) { push(lists, std::move(m), number); }
    void deliver(fakeQueue* queue, const bytes& m) {
        push(*queue, m, ++queue->seq);
        for (bytes ack; !testing::Test::HasFailure();) {
            ack = wait(MT_SWP_ACK);
            if (get32(ack, 0) == queue->session && get32(ack, 4) == queue->seq &&
                get32(ack, 44) == queue->port)
                return;
        }
    }
    void deliver(const bytes& m) { deliver(&lists, m); }
    void deliverAll(const std::vector<bytes>& messages) {
        for (const bytes& m : messages) deliver(m);
    }
    // Marks come in both queues.
    void begin() {
        replays++;
        for (fakeQueue* queue : {&lists, &mac}) {
            newSession(queue);
            deliver(queue, mark(1, replays));
        }
    }
    void end(fakeQueue* queue) { deliver(queue, mark(2, replays)); }
    void end() {
        for (fakeQueue* queue : {&lists, &mac}) end(queue);
    }
    void replay(const std::vector<bytes>& messages) {
        begin();
        deliverAll(messages);
        end();
    }
};

// What the manager means: list BOUND with so many entries and one more, and a system list.
std::vector<bytes> bindings(uint32_t entries) {
    listMessage l{14409, "BOUND", PORT, {}};
    for (uint32_t i = 1; i <= entries; i++) l.entries.push_back(entry4(i * 5, i));
    std::vector<bytes> out = chunks(l);
    out.insert(out.begin(), build({14413, "Global Acl", 0x48040000, {entry4(0, 1)}}));
    out.push_back(build({14410, "BOUND", PORT, {entry4(3, 3)}}));
    return out;
}

struct Processes : testing::Test, chassisFixture {
    process& agent = agents[3];
    node client{dir, RP, 0x10000u + 1};
    Processes() {
        write("chassis.json", CHASSIS);
        registerEvery = "0.05";
    }
    ~Processes() override = default;

    json state(uint32_t what = AGENT_STATE_SUMMARY, const std::string& name = "") {
        bytes m = request(MT_AGENT_STATE, sizeof(agentStateReq), what);
        std::ranges::copy(name, m.begin() + 64);
        put32(m, 204, PORT);
        return textOf(client.ask(m, CARD, AGENT_PORT));
    }
    void until(const char* field, const json& wanted) {
        EXPECT_TRUE(waitUntil([&] { return state()[field] == wanted; })) << wanted << state();
    }
    void untilInStep(fakeManager& rp, uint32_t entries) {
        rp.replay(bindings(entries));
        until("state", "in step");
    }
    // Entries of list BOUND that are in force.
    size_t held() {
        json answer = state(AGENT_STATE_ENTRIES, "BOUND");
        return answer.value("entries", json::array()).size();
    }
};

TEST_F(Processes, RegistersUntilItIsAnsweredAndHoldsWhatItIsSent) {
    startAgent(3);  // neither the manager nor chassisd is there
    fakeManager rp(dir);
    bytes first = rp.wait(MT_AGENT_REGISTER);
    ASSERT_EQ(first.size(), 88u);
    const uint32_t expected[][2] = {
        {8, 88}, {36, 3}, {40, CARD}, {44, AGENT_PORT}, {48, 0}, {52, RP}, {56, MANAGER_PORT},
        {64, 1}, {68, 1}, {72, 0},    {76, 0},          {80, 1}, {84, 7}};
    for (const auto& [at, value] : expected) EXPECT_EQ(get32(first, at), value) << at;
    EXPECT_EQ(get32(first, 60) & 1, 1u);
    EXPECT_FALSE(state()["registered"]);
    EXPECT_NE(get32(rp.wait(MT_AGENT_REGISTER), 32), get32(first, 32));

    uint32_t need = rp.takeRegistration();
    EXPECT_NE(need, 0u);
    rp.begin();
    rp.deliverAll(bindings(30));
    agent.stop(SIGKILL);
    while (!rp.receive(0).empty()) {
    }
    rp.kept.clear();  // the killed one's registrations
    startAgent(3);
    // What the old queue still had to send arrives at the new process, which has a need of its own.
    rp.push(mark(2, rp.replays), ++rp.lists.seq);
    EXPECT_NE(rp.takeRegistration(), need);
    untilInStep(rp, 300);
    rp.push(bindings(300).back(), 2);  // repeated ones are answered again and not applied again
    EXPECT_EQ(get32(rp.wait(MT_SWP_ACK), 4), 2u);
    json s = state();
    EXPECT_EQ(s["messages"], bindings(300).size());
    EXPECT_EQ(s["entries"], 302);
    EXPECT_EQ(s["sessions"], 1);
    EXPECT_EQ(s["lastError"], "");
    EXPECT_EQ(held(), 301u);  // in an answer that is longer than a datagram
    EXPECT_EQ(agent.stop(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::exists(dir + "/ipc/127.1.1.1/" + std::to_string(AGENT_PORT)));
    std::string bin = std::string(ACL_BIN_DIR) + "/aclagent --rundir " + dir;
    for (const char* args : {" --slot 4", " --slot 20", "", " --slot 3 --cp"})
        EXPECT_NE(std::system((bin + args + " 2>/dev/null >&2").c_str()), 0) << args;
}

// Whatever is lost, of either queue, or begins anew, nothing goes out of force before a replay of
// both has ended; what cannot be used is asked for again.
TEST_F(Processes, EverythingStaysInForceUntilAReplayHasEnded) {
    fakeManager rp(dir);
    startAgent(3);
    rp.takeRegistration();
    auto traps = [this] { return state()["mac"]["traps"].get<int>(); };
    const bytes ospf = trap({PORT, 0x01005E000005});
    rp.begin();
    rp.deliverAll(bindings(50));
    for (uint32_t i = 0; i < 3; i++) rp.deliver(&rp.mac, trap({PORT + i, 0x01005E000005}));
    rp.end(&rp.lists);
    EXPECT_EQ(state()["state"], "replay under way");
    rp.end(&rp.mac);
    until("state", "in step");
    rp.deliver(&rp.mac, member(1, PORT, 10, 5));
    EXPECT_EQ(state(AGENT_STATE_MEMBERS)["members"].size(), 1u);
    // The queue was flushed, and the agent knows that it missed something. Changes still count.
    rp.newSession();
    rp.deliver(build({14410, "BOUND", PORT, {entry4(4, 4)}}));
    EXPECT_EQ(held(), 52u);
    rp.untilNeed(true);
    EXPECT_EQ(state()["replayNeeded"], true);
    // The replay begins over and over.
    for (int i = 0; i < 3; i++) {
        rp.begin();
        rp.deliverAll(bindings(20));
        rp.deliver(&rp.mac, ospf);
        EXPECT_EQ(held(), 52u);
        EXPECT_EQ(traps(), 3);
    }
    rp.end();
    until("state", "in step");
    EXPECT_EQ(held(), 21u);
    EXPECT_EQ(traps(), 1);
    EXPECT_EQ(state(AGENT_STATE_MEMBERS)["members"].size(), 0u);
    EXPECT_EQ(state()["lost"], 1);

    // A message that cannot be used; marks that mark nothing; a session that began unseen.
    bytes wrong = build({14410, "NONE", PORT, {entry4(4, 4)}}), shortMark = mark(2, rp.replays);
    shortMark.pop_back();
    const std::function<void()> losses[] = {
        [&] { rp.deliver(wrong); },
        [&] { rp.deliver(mark(2, rp.replays)); },
        [&] { rp.deliver(mark(1, 77)); },
        [&] { rp.deliver(mark(3, 1)); },
        [&] { rp.deliver(shortMark); },
        [&] {
            rp.deliver(&rp.mac, trap({PORT, 0x01005E000005, 7}));
        },
        [&] { rp.newSession(&rp.mac), rp.push(rp.mac, ospf, 5); }};
    for (const auto& lose : losses) {
        lose();
        until("state", "replay needed");
        EXPECT_EQ(held(), 21u);
        // A loss that follows would be named after a second, two, ...: not the matter here.
        agent.stop(SIGTERM);
        startAgent(3);
        rp.untilNeed(true);
        untilInStep(rp, 20);
    }
    // Of a replay with one of them what came is in force, and so is what did not.
    rp.begin();
    rp.deliverAll({build({14409, "BOUND", PORT, {entry4(1, 1)}}), wrong});
    rp.end();
    until("state", "replay needed");
    EXPECT_EQ(held(), 1u);
    EXPECT_EQ(state()["lists"], 2);
}

// The role moves. The old manager, which does not know it yet, is not listened to any more.
TEST_F(Processes, OnlyThePrimarysSessionsCount) {
    fakeManager first(dir), second(dir, RP2);
    startAgent(3);
    first.takeRegistration();
    untilInStep(first, 50);
    write("primary", "1\n");
    second.takeRegistration();
    second.lists.session = second.mac.session = 0x9000;
    untilInStep(second, 30);
    first.newSession();
    for (uint32_t what : {1u, 2u}) first.push(mark(what, 50), what);
    until("strangers", 2);
    EXPECT_EQ(state()["state"], "in step");
    EXPECT_EQ(held(), 31u);
}

// A manager that marks nothing. Its replay is taken when nothing more comes, and never certain.
TEST_F(Processes, AManagerWithoutMarks) {
    startNeighbours();
    fakeManager rp(dir);
    startAgent(3);
    // It holds the queues of an earlier life: it only answers, until the card is reported down.
    bytes m;
    while (m.empty() || get32(m, 12) != MT_EVENT_NOTIF) {
        m = rp.receive();
        ASSERT_FALSE(m.empty());
        if (get32(m, 12) == MT_EVENT_NOTIF) until("state", "replay needed");
        rp.answer(m);
    }
    rp.takeRegistration();
    rp.newSession();
    rp.deliverAll(bindings(20));
    until("state", "replay not confirmed");
    EXPECT_EQ(held(), 21u);
    rp.deliver(build({14410, "BOUND", PORT, {entry4(4, 4)}}));
    EXPECT_EQ(held(), 22u);
}

// Whatever anybody sends to an agent, it goes on.
TEST_F(Processes, StrangersChangeNothing) {
    startAgent(3);
    std::mt19937 random(5);
    const uint32_t types[] = {14401, 14403, 30002, 402, 5};
    for (int i = 0; i < 300; i++) {
        bytes m =
            i % 3 == 0 ? build({14409, "L", PORT, {entry4(1, 1)}}) : bytes(60 + random() % 200);
        for (uint8_t& b : m) b = i % 3 == 0 ? b : static_cast<uint8_t>(random());
        if (i % 3 == 0) put32(m, 0, 9), put32(m, 4, 1);
        if (i % 3 == 1) put32(m, 0, 0), put32(m, 12, types[random() % 5]);
        ASSERT_TRUE(client.send(m, CARD, AGENT_PORT));
    }
    json s = state();
    EXPECT_EQ(s["sessions"], 0);
    EXPECT_EQ(s["lists"], 0);
    EXPECT_EQ(s["registered"], false);
    EXPECT_GE(s["strangers"], 200);
    EXPECT_EQ(agent.stop(SIGTERM), 0);
}

TEST_F(Processes, ChassisdReportsCardsDownAndMovesThePrimaryRole) {
    startNeighbours();
    auto ask = [this](uint32_t command, uint32_t argument, size_t size = 68) {
        return client.ask(request(MT_CHASSIS_CONTROL, size, command, argument), RP,
                          CHASSIS_CONTROL_SERVICE);
    };
    const struct {
        uint32_t command, argument, status;
        size_t size = 68;
    } rows[] = {{CHASSIS_CARD_DOWN, 3, CHASSIS_NOBODY},
                {0, 0, CHASSIS_BAD},
                {5, 0, CHASSIS_BAD},
                {CHASSIS_CARD_DOWN, 4, CHASSIS_BAD},
                {CHASSIS_CARD_DOWN, 20, CHASSIS_BAD},
                {CHASSIS_CARD_SHUTDOWN, ~0u, CHASSIS_BAD},
                {CHASSIS_PRIMARY, 2, CHASSIS_BAD},
                {CHASSIS_STATE, 0, CHASSIS_BAD, 64}};
    for (const auto& r : rows)
        EXPECT_EQ(get32(ask(r.command, r.argument, r.size), 16), r.status) << r.command;

    fakeManager rp(dir);
    // Also the manager's own name for the event: told once.
    ASSERT_TRUE(rp.send(request(10600, 68, EVT_CARD_SHUTDOWN), RP,
                        aclServicePort(APP_EVH, 0, QUEUE_REQUEST)));
    for (uint32_t command : {CHASSIS_CARD_DOWN, CHASSIS_CARD_SHUTDOWN}) {
        bytes m = request(MT_CHASSIS_CONTROL, 68, command, 3);
        put32(m, 32, 9000 + command);
        for (int i = 0; i < 3; i++) ASSERT_TRUE(client.send(m, RP, CHASSIS_CONTROL_SERVICE));
        bytes event = rp.wait(MT_EVENT_NOTIF);
        EXPECT_EQ(event.size(), 72u);
        EXPECT_EQ(get32(event, 64), command == CHASSIS_CARD_DOWN ? 0xF0012u : 0xF0013u);
        EXPECT_EQ(get32(event, 68), 3u);
        rp.answer(event);
        bytes answer = client.wait(MT_CHASSIS_CONTROL);
        EXPECT_EQ(get32(answer, 16), CHASSIS_OK);
        EXPECT_EQ(textOf(answer)["told"], 1);
    }
    // Only one event was raised for each three times that it was asked for.
    json s = textOf(ask(CHASSIS_STATE, 0));
    EXPECT_EQ(s["events"], 3);
    EXPECT_EQ(s["primary"], 0);
    EXPECT_EQ(s["subscriptions"].size(), 1u);

    EXPECT_EQ(get32(ask(CHASSIS_PRIMARY, 1), 16), CHASSIS_OK);
    std::string text;
    std::getline(std::ifstream(dir + "/primary"), text);
    EXPECT_EQ(text, "1");
    // The agent registers with the manager of the new primary.
    node second(dir, RP2, MANAGER_PORT);
    startAgent(3);
    EXPECT_EQ(get32(second.wait(MT_AGENT_REGISTER), 52), RP2);
}

}  // namespace
