// aclagent and chassisd as processes; the manager is the test.
#include <gtest/gtest.h>
#include <signal.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>

#include "include/agentState.h"
#include "include/chassisControl.h"
#include "include/service.h"
#include "tests/agent/messages.h"
#include "tests/system/chassis.h"

namespace {

using nlohmann::json;
constexpr uint32_t RP = 0x7F010001, RP2 = 0x7F010002, CARD = 0x7F010101, CP = 0x7F010003;
constexpr uint32_t AGENT_PORT = 7937 + 4 * 3, CP_PORT = 21121, MANAGER_PORT = 7809;
constexpr uint32_t PORT = 0x08040001;  // a port of slot 3

constexpr const char* CHASSIS = R"({ "chassisMode": 1, "routeProcessorType": 4,
  "routeProcessors": [{"address": "127.1.0.1", "primary": true}, {"address": "127.1.0.2"}],
  "tasks": [{"application": 61, "address": "127.1.0.1"}, {"application": 99, "address": "127.1.0.1"},
            {"application": 165, "address": "127.1.0.3"}],
  "cards": [{"slot": 3, "address": "127.1.1.1", "type": 7, "egress": true, "ipv6Egress": true}] })";

void put(ipcHdr* hdr, uint32_t toCard, uint32_t toPort, uint32_t fromCard, uint32_t fromPort) {
    hdr->source.card = toCard;
    hdr->source.svce = toPort;
    hdr->target.card = fromCard;
    hdr->target.svce = fromPort;
}
ipcHdr* header(bytes& m) {
    return wireView<ipcHdr>(std::span(m));
}

// Messages that are not the awaited kind are kept in order.
struct node : rawEndpoint {
    using rawEndpoint::rawEndpoint;
    std::deque<bytes> kept;

    bool send(bytes m, uint32_t toCard, uint32_t toPort) {
        put(header(m), toCard, toPort, address, service);
        header(m)->length = static_cast<uint32_t>(m.size());
        return rawEndpoint::send(m);
    }
    // The next message of a type; empty after a long time.
    bytes wait(uint32_t type) {
        for (auto it = kept.begin(); it != kept.end(); ++it) {
            if (header(*it)->mtype != type) continue;
            bytes m = std::move(*it);
            kept.erase(it);
            return m;
        }
        for (;;) {
            bytes m = receive();
            if (m.empty()) {
                ADD_FAILURE() << "no message " << type;
                return bytes(60);
            }
            if (header(m)->mtype == type) return m;
            kept.push_back(std::move(m));
        }
    }
    void answer(bytes m) {
        ipcExchangeTriples(header(m));
        EXPECT_TRUE(rawEndpoint::send(m));
    }
    bytes ask(bytes m, uint32_t toCard, uint32_t toPort) {
        static uint32_t sequence = 100;
        uint32_t type = header(m)->mtype;
        header(m)->sequence = ++sequence;
        EXPECT_TRUE(send(m, toCard, toPort));
        for (;;) {
            bytes a = wait(type);
            if (header(a)->sequence == sequence || testing::Test::HasFailure()) return a;
        }
    }
};

// The manager as an agent sees it: answers events and registrations, has one queue.
struct fakeManager : node {
    uint32_t agentCard = CARD, agentPort = AGENT_PORT, registration = MT_AGENT_REGISTER;
    uint32_t session = 0x1000, seq = 0, replays = 0;
    explicit fakeManager(const std::string& dir, uint32_t rp = RP) : node(dir, rp, MANAGER_PORT) {}

    void takeCardDown() { answer(wait(MT_EVENT_NOTIF)); }
    // Answers a registration; the need that it names.
    uint32_t takeRegistration() {
        bytes reg = wait(registration);
        answer(reg);
        return get32(reg, registration == MT_AGENT_REGISTER ? 60 : 64) >> 1;
    }
    void newSession() {
        session += 1000;
        seq = 0;
    }
    // Sends without waiting for the answer, as a queue does within its window.
    void push(bytes m, uint32_t number) {
        header(m)->session = session;
        header(m)->swpSeq = number;
        EXPECT_TRUE(send(m, agentCard, agentPort));
    }
    void deliver(const bytes& m) {
        push(m, ++seq);
        for (;;) {
            bytes ack = wait(MT_SWP_ACK);
            if (header(ack)->session == session && header(ack)->swpSeq == seq) return;
            if (testing::Test::HasFailure()) return;
        }
    }
    void begin() {
        newSession();
        deliver(mark(1, ++replays));
    }
    void end() { deliver(mark(2, replays)); }
    void replay(const std::vector<bytes>& messages) {
        begin();
        for (const bytes& m : messages) deliver(m);
        end();
    }
};

struct Processes : testing::Test, chassisFixture {
    process& agent = agents[3];
    node client{dir, RP, 0x10000u + 1};
    Processes() {
        write("chassis.json", CHASSIS);
        registerEvery = "0.05";
    }
    ~Processes() override = default;

    json state(uint32_t what, const std::string& name = "", uint32_t port = AGENT_PORT,
               uint32_t card = CARD) {
        bytes m(sizeof(agentStateReq));
        auto* req = wireView<agentStateReq>(std::span(m));
        req->ipc.mtype = MT_AGENT_STATE;
        req->what = what;
        req->name = listNameMake(name);
        req->ifindex = PORT;
        bytes a = client.ask(m, card, port);
        return json::parse(a.begin() + AGENT_STATE_TEXT_OFFSET, a.end(), nullptr, false);
    }
    // Waits until the agent says so.
    void until(const std::function<bool(const json&)>& reached) {
        EXPECT_TRUE(waitUntil([&] { return reached(state(AGENT_STATE_SUMMARY)); }))
            << state(AGENT_STATE_SUMMARY).dump();
    }
    void untilState(const std::string& wanted) {
        until([&](const json& s) {
            return s["state"] == wanted && s["replayNeeded"] == (wanted != "in step");
        });
    }
    // The sequence numbers of list BOUND that are in force.
    std::vector<uint32_t> bound() {
        std::vector<uint32_t> numbers;
        json answer = state(AGENT_STATE_ENTRIES, "BOUND");
        if (answer.contains("entries"))
            for (const json& e : answer["entries"]) numbers.push_back(e["seq"]);
        return numbers;
    }
    bytes control(uint32_t command, uint32_t argument) {
        bytes m(sizeof(chassisControlReq));
        header(m)->mtype = MT_CHASSIS_CONTROL;
        put32(m, 60, command);
        put32(m, 64, argument);
        return client.ask(m, RP, CHASSIS_CONTROL_SERVICE);
    }
    std::vector<bytes> replay(uint32_t entries) const {
        listMessage l{14409, "BOUND", PORT, {}};
        for (uint32_t i = 1; i <= entries; i++) l.entries.push_back(entry4(i * 5, i));
        std::vector<bytes> out = chunks(l);
        out.insert(out.begin(), build({14413, "Global Acl", 0x48040000, {entry4(0, 1)}}));
        out.push_back(build({14410, "BOUND", PORT, {entry4(3, 3)}}));
        return out;
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
    EXPECT_FALSE(state(AGENT_STATE_SUMMARY)["registered"]);
    EXPECT_NE(get32(rp.wait(MT_AGENT_REGISTER), 32), get32(first, 32));

    EXPECT_EQ(get32(first, 60) & 1, 1u);
    EXPECT_NE(rp.takeRegistration(), 0u);
    auto messages = replay(300);
    rp.replay(messages);
    rp.push(messages.back(), 2);  // repeated ones are answered again and not applied again
    EXPECT_EQ(get32(rp.wait(MT_SWP_ACK), 4), 2u);
    untilState("in step");
    json s = state(AGENT_STATE_SUMMARY);
    EXPECT_EQ(s["messages"], messages.size());
    EXPECT_EQ(s["entries"], 302);
    EXPECT_EQ(s["sessions"], 1);
    EXPECT_EQ(s["lastError"], "");
    // The answer is longer than a datagram.
    EXPECT_EQ(bound().size(), 301u);

    agent.stop(SIGTERM);
    EXPECT_FALSE(std::filesystem::exists(dir + "/ipc/127.1.1.1/" + std::to_string(AGENT_PORT)));
}

// The queue of the killed agent goes on repeating its oldest messages; the one that is started in
// its place must end with exactly what the manager means, whatever was lost when. chassisd hangs.
TEST_F(Processes, KilledInTheMiddleOfAReplay) {
    startNeighbours();
    kill(neighbours.pid, SIGSTOP);
    fakeManager rp(dir);
    auto messages = replay(200);
    std::mt19937 random(3);
    uint32_t need = 0;
    for (int life = 0; life < 6; life++) {
        SCOPED_TRACE(life);
        startAgent(3);
        // What the old queue still had to send arrives at the new process.
        if (rp.seq != 0)
            for (uint32_t n = 1; n <= 3; n++) rp.push(messages[n - 1], n + 1);
        uint32_t next = rp.takeRegistration();
        EXPECT_NE(next, need);  // the manager has its queues, but another agent needs a replay
        need = next;
        if (life == 5) break;
        size_t cut = random() % messages.size();
        rp.begin();
        for (size_t i = 0; i < cut; i++) rp.deliver(messages[i]);
        untilState("replay under way");
        agent.stop(SIGKILL);
        rp.kept.clear();
    }
    rp.replay(messages);
    untilState("in step");
    json s = state(AGENT_STATE_SUMMARY);
    EXPECT_EQ(s["lists"], 2);
    EXPECT_EQ(s["entries"], 202);
    EXPECT_EQ(s["lost"], 0);
    std::vector<uint32_t> numbers = bound();
    ASSERT_EQ(numbers.size(), 201u);
    EXPECT_EQ(numbers[0], 3u);
    for (uint32_t i = 1; i < numbers.size(); i++) EXPECT_EQ(numbers[i], 5 * i);
    EXPECT_EQ(agent.stop(SIGTERM), 0);
}

// Whatever is lost or begins anew, nothing goes out of force before a replay has ended.
TEST_F(Processes, FiltersStayInForceUntilAReplayHasEnded) {
    fakeManager rp(dir);
    startAgent(3);
    rp.takeRegistration();
    rp.replay(replay(50));
    untilState("in step");
    auto untilNeeded = [&] {
        rp.kept.clear();
        while (rp.takeRegistration() == 0 && !HasFailure()) {
        }
    };
    auto held = [&] { return bound().size(); };

    // The queue was flushed, and the agent knows that it missed something.
    rp.newSession();
    rp.deliver(build({14410, "BOUND", PORT, {entry4(4, 4)}}));
    EXPECT_EQ(held(), 52u);  // changes still count
    untilNeeded();
    EXPECT_EQ(state(AGENT_STATE_SUMMARY)["replayNeeded"], true);
    // The replay begins over and over.
    for (int i = 0; i < 3; i++) {
        rp.begin();
        rp.deliver(replay(20)[0]);
        EXPECT_EQ(held(), 52u);
    }
    for (const bytes& m : replay(20)) rp.deliver(m);
    // The manager stops; so does the agent.
    kill(agent.pid, SIGSTOP);
    for (uint32_t i = 1; i < 5; i++) rp.push(mark(3, 9), rp.seq + 1 + i);
    kill(agent.pid, SIGCONT);
    EXPECT_EQ(held(), 52u);
    rp.end();
    untilState("in step");
    EXPECT_EQ(held(), 21u);
    EXPECT_EQ(state(AGENT_STATE_SUMMARY)["lost"], 1);

    // A message that cannot be used; a mark that marks nothing; a replay with one of them.
    bytes wrong = build({14410, "NONE", PORT, {entry4(4, 4)}});
    bytes shortMark = mark(2, rp.replays);
    shortMark.pop_back();
    put32(shortMark, 8, static_cast<uint32_t>(shortMark.size()));
    for (const bytes& m : {wrong, mark(2, rp.replays), mark(1, 77), mark(3, 1), shortMark}) {
        rp.deliver(m);
        untilState("replay needed");
        EXPECT_EQ(held(), 21u);
        untilNeeded();
        rp.replay(replay(20));
        untilState("in step");
        // Asked for again after a second, two, ...: not the matter here.
        agent.stop(SIGTERM);
        startAgent(3);
        untilNeeded();
        rp.replay(replay(20));
        untilState("in step");
    }
    rp.begin();
    rp.deliver(build({14409, "BOUND", PORT, {entry4(1, 1)}}));
    rp.deliver(wrong);
    rp.end();
    untilState("replay needed");
    EXPECT_EQ(held(), 1u);                              // what came is in force
    EXPECT_EQ(state(AGENT_STATE_SUMMARY)["lists"], 2);  // and so is what did not
    untilNeeded();
    rp.replay(replay(20));
    untilState("in step");
}

// The role moves. The old manager, which does not know it yet, is not listened to any more.
TEST_F(Processes, OnlyThePrimarysSessionsCount) {
    fakeManager first(dir), second(dir, RP2);
    startAgent(3);
    first.takeRegistration();
    first.replay(replay(50));
    untilState("in step");
    write("primary", "1\n");
    second.takeRegistration();
    second.session = 0x9000;
    second.replay(replay(30));
    first.newSession();
    first.push(mark(1, 50), 1);
    first.push(mark(2, 50), 2);
    until([](const json& s) { return s["strangers"] == 2; });
    untilState("in step");
    EXPECT_EQ(bound().size(), 31u);
}

// A manager that marks nothing. Its replay is taken when nothing more comes, and never certain.
TEST_F(Processes, AManagerWithoutMarks) {
    startNeighbours();
    fakeManager rp(dir);
    startAgent(3);
    // It holds the queues of an earlier life: it only answers, until the card is reported down.
    while (rp.kept.empty() && !HasFailure()) {
        bytes m = rp.receive();
        ASSERT_FALSE(m.empty());
        if (header(m)->mtype == MT_AGENT_REGISTER)
            rp.answer(m);
        else
            rp.kept.push_back(m);
    }
    untilState("replay needed");
    rp.takeCardDown();
    rp.takeRegistration();
    rp.newSession();
    for (const bytes& m : replay(20)) rp.deliver(m);
    untilState("replay not confirmed");
    EXPECT_EQ(bound().size(), 21u);
    rp.deliver(build({14410, "BOUND", PORT, {entry4(4, 4)}}));
    EXPECT_EQ(bound().size(), 22u);
}

TEST_F(Processes, TheControlProcessorsAgentRegistersToo) {
    // A card in slot 19, which is reported down with the control processor's agent.
    std::string text = CHASSIS;
    text.replace(text.find("\"cards\": ["), 10,
                 R"("cards": [{"slot": 19, "address": "127.1.1.19", "type": 7}, )");
    write("chassis.json", text);
    fakeManager rp(dir);
    rp.agentCard = CP;
    rp.agentPort = CP_PORT;
    rp.registration = MT_ACL0_REGISTER;
    startAgent(AGENT_CP);
    bytes reg = rp.wait(MT_ACL0_REGISTER);
    EXPECT_EQ(reg.size(), 68u);
    EXPECT_EQ(get32(reg, 40), CP);
    EXPECT_EQ(get32(reg, 44), CP_PORT);
    EXPECT_EQ(get32(reg, 60), 1u);
    EXPECT_NE(get32(reg, 64) >> 1, 0u);
    rp.answer(reg);
    auto isState = [&](const char* wanted) {
        return waitUntil(
            [&] { return state(AGENT_STATE_SUMMARY, "", CP_PORT, CP)["state"] == wanted; });
    };
    EXPECT_TRUE(isState("replay needed"));
    rp.replay({});  // nothing is bound to it
    EXPECT_TRUE(isState("in step"));
}

// Whatever anybody sends to an agent, it goes on.
TEST_F(Processes, StrangersChangeNothing) {
    startAgent(3);
    node& stranger = client;
    std::mt19937 random(5);
    bytes list = build({14409, "L", PORT, {entry4(1, 1)}});
    put32(list, 0, 9);
    put32(list, 4, 1);
    for (int i = 0; i < 300; i++) {
        bytes m = i % 3 == 0 ? list : bytes(60 + random() % 200);
        if (i % 3 != 0)
            for (uint8_t& b : m) b = static_cast<uint8_t>(random());
        if (i % 3 == 1) put32(m, 0, 0);
        if (i % 3 == 1)
            put32(m, 12, std::vector<uint32_t>{14401, 14403, 30002, 402, 5}[random() % 5]);
        ASSERT_TRUE(stranger.send(m, CARD, AGENT_PORT));
    }
    json s = state(AGENT_STATE_SUMMARY);
    EXPECT_EQ(s["sessions"], 0);
    EXPECT_EQ(s["lists"], 0);
    EXPECT_EQ(s["registered"], false);
    EXPECT_GE(s["strangers"], 200);
    EXPECT_EQ(agent.stop(SIGTERM), 0);
}

TEST_F(Processes, ChassisdReportsCardsDownAndMovesThePrimaryRole) {
    startNeighbours();
    auto status = [](const bytes& answer) { return get32(answer, 16); };
    EXPECT_EQ(status(control(CHASSIS_CARD_DOWN, 3)), CHASSIS_NOBODY);
    const uint32_t bad[][2] = {{0, 0},
                               {5, 0},
                               {CHASSIS_CARD_DOWN, 4},
                               {CHASSIS_CARD_DOWN, 20},
                               {CHASSIS_CARD_SHUTDOWN, 0xFFFFFFFF},
                               {CHASSIS_PRIMARY, 2}};
    for (const auto& [command, argument] : bad)
        EXPECT_EQ(status(control(command, argument)), CHASSIS_BAD) << command;
    bytes shortOne(64);
    header(shortOne)->mtype = MT_CHASSIS_CONTROL;
    EXPECT_EQ(status(client.ask(shortOne, RP, CHASSIS_CONTROL_SERVICE)), CHASSIS_BAD);

    fakeManager rp(dir);
    bytes subscription(68);  // also the manager's own name for the event: told once
    header(subscription)->mtype = 10600;
    put32(subscription, 60, EVT_CARD_SHUTDOWN);
    ASSERT_TRUE(rp.send(subscription, RP, aclServicePort(APP_EVH, 0, QUEUE_REQUEST)));
    for (uint32_t command : {CHASSIS_CARD_DOWN, CHASSIS_CARD_SHUTDOWN}) {
        bytes m(sizeof(chassisControlReq));
        header(m)->mtype = MT_CHASSIS_CONTROL;
        header(m)->sequence = 9000 + command;
        put32(m, 60, command);
        put32(m, 64, 3);
        for (int i = 0; i < 3; i++) ASSERT_TRUE(client.send(m, RP, CHASSIS_CONTROL_SERVICE));
        bytes event = rp.wait(MT_EVENT_NOTIF);
        EXPECT_EQ(event.size(), 72u);
        EXPECT_EQ(get32(event, 64), command == CHASSIS_CARD_DOWN ? 0xF0012u : 0xF0013u);
        EXPECT_EQ(get32(event, 68), 3u);
        rp.answer(event);
        bytes answer = client.wait(MT_CHASSIS_CONTROL);
        EXPECT_EQ(status(answer), CHASSIS_OK);
        EXPECT_EQ(json::parse(answer.begin() + 204, answer.end())["told"], 1);
    }
    // Only one event was raised for each three times that it was asked for.
    bytes known = control(CHASSIS_STATE, 0);
    json s = json::parse(known.begin() + 204, known.end());
    EXPECT_EQ(s["events"], 3);
    EXPECT_EQ(s["primary"], 0);
    EXPECT_EQ(s["subscriptions"].size(), 1u);

    EXPECT_EQ(status(control(CHASSIS_PRIMARY, 1)), CHASSIS_OK);
    std::string text;
    std::getline(std::ifstream(dir + "/primary"), text);
    EXPECT_EQ(text, "1");
    // The agent registers with the manager of the new primary.
    node second(dir, RP2, MANAGER_PORT);
    startAgent(3);
    EXPECT_EQ(get32(second.wait(MT_AGENT_REGISTER), 52), RP2);
}

TEST_F(Processes, RefusesACardThatIsNotDescribed) {
    std::string bin = std::string(ACL_BIN_DIR) + "/aclagent --rundir " + dir;
    for (const char* args : {" --slot 4", " --slot 20", "", " --slot 3 --cp"})
        EXPECT_NE(std::system((bin + args + " 2>/dev/null >&2").c_str()), 0) << args;
}

}  // namespace
