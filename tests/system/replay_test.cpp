// Everything around a card ends, stops and starts again in turn while lists change: what is in
// force on it never gets less, and in the end it is what is meant.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <random>
#include <regex>
#include <thread>

#include "include/agentMsg.h"
#include "include/service.h"
#include "tests/system/chassis.h"

namespace {

constexpr int KEPT = 400;  // entries of the list that nobody changes

std::string entries(int from, int count) {
    std::string text;
    for (int i = from; i < from + count; i++)
        text += " seq " + std::to_string(10 * i) + " permit host 10.2." + std::to_string(i / 250) +
                "." + std::to_string(i % 250) + "\n";
    return text;
}

struct replayFixture : chassisFixture {
    rawClient client{*this};
    int changes = 0;
    std::mt19937 random{7};

    replayFixture() {
        startAll();
        load("ip access-list standard KEPT\n" + entries(1, KEPT) +
             "ip access-list standard CHANGES\n" + entries(1, 40) +
             "interface 1/0\n ip access-group KEPT in\ninterface 1/1\n ip access-group CHANGES in\n"
             "interface 2/0\n ip access-group CHANGES out\n ip access-group KEPT in\n"
             "interface control-plane\n ip access-group KEPT in\n");
    }

    void expectInStep() const {
        EXPECT_TRUE(waitUntil([this] {
            return shell({"-c", "show ip access-lists KEPT installed", "-c",
                          "show ip access-lists CHANGES installed", "-c", "show cards"})
                       .status == 0;
        })) << shell({"-c", "show cards"}).out
            << show("show queues");
    }
    void change() {
        changes++;
        std::string address = std::to_string(changes / 250) + "." + std::to_string(changes % 250),
                    place = std::to_string(10 * (changes % 40 + 1));
        load("ip access-list standard CHANGES\n deny host 10.9." + address + "\n no seq " + place +
             "\n seq " + place + " permit host 10.8." + address + "\n");
    }
};

// Looks all the time at what card 1 and the control processor's agent have in force: it must never
// be less than the list that nobody changes.
struct watcher {
    std::atomic<bool> done = false;
    std::thread thread;

    explicit watcher(const chassisFixture& chassis)
        : thread([this, &chassis] {
              rawClient client(chassis, 1);
              while (!done && !testing::Test::HasFailure()) {
                  for (int slot : {1, AGENT_CP}) {
                      std::string s = client.agentSummary(slot);
                      EXPECT_GE(number(s, "entries"), uint64_t{KEPT}) << s;
                      EXPECT_GE(number(s, "lists"), slot == 1 ? 2u : 1u) << s;
                  }
                  std::this_thread::sleep_for(std::chrono::microseconds(200));
              }
          }) {}
    ~watcher() {
        done = true;
        thread.join();
    }
    watcher(const watcher&) = delete;
    watcher& operator=(const watcher&) = delete;
};

// What waits in the queue to the ACL agent of a card: -1 without a queue.
int backlog(const chassisFixture& chassis, int slot) {
    const std::string queues = chassis.shell({"--json", "-c", "show queues"}).out;
    std::smatch found;
    const std::regex row(R"("peer": "ACL_AGENT",[^}]*"slot": )" + std::to_string(slot) +
                         R"(,[^}]*"backlog": (\d+),)");
    return std::regex_search(queues, found, row) ? std::stoi(found[1]) : -1;
}

// Registers a card's agent that stands still and cannot do it itself.
void registerAgent(const rawClient& client, uint32_t slot) {
    std::vector<uint8_t> message(sizeof(agentRegisterReq));
    client.fillHeader(message, MT_AGENT_REGISTER, 1);
    auto* req = reinterpret_cast<agentRegisterReq*>(message.data());
    req->ipc.target.slot = slot;
    req->ipc.target.card = CARD_ADDRESS + slot;
    req->ipc.target.svce = aclServicePort(APP_ACL_AGENT, slot, QUEUE_REQUEST);
    for (be32* word : {&req->isUp, &req->isVortan}) *word = 1;
    ASSERT_TRUE(client.send(message));
}

// What may happen. `kept`: what the agents of card 1 and of the control processor have in force is
// watched, because they and the manager's configuration are there all the time.
struct happening {
    const char* what;
    bool kept;
    void (*run)(replayFixture* t);
};
constexpr happening happenings[] = {
    {"the manager ends twice, the second time in its replays", true,
     [](replayFixture* t) {
         EXPECT_TRUE(t->killAndRestart());
         EXPECT_TRUE(t->killAndRestart());
         t->change();
     }},
    {"the manager stands still", true,
     [](replayFixture* t) {
         t->manager.stand();
         t->client.agentSummary(1);
         t->manager.go();
         t->change();
     }},
    {"chassisd hangs, and an agent starts", false,
     [](replayFixture* t) {
         t->neighbours.stand();
         EXPECT_EQ(t->agents[1].stop(SIGTERM), 0);
         EXPECT_TRUE(t->startAgent(1));
         EXPECT_TRUE(waitUntil([t] { return has(t->client.agentSummary(1), "\"in step\""); }));
         t->change();
         t->neighbours.go();
     }},
    {"chassisd ends, and agents start", false,
     [](replayFixture* t) {
         t->neighbours.stop(SIGKILL);
         for (int slot : {1, AGENT_CP}) {
             t->agents[slot].stop(SIGKILL);
             EXPECT_TRUE(t->startAgent(slot));
         }
         EXPECT_TRUE(
             waitUntil([t] { return has(t->client.agentSummary(AGENT_CP), "\"in step\""); }));
         EXPECT_TRUE(t->startNeighbours());
     }},
    {"the other card's agent ends in its replay, of which the most still waits", true,
     [](replayFixture* t) {
         t->agents[2].stand();
         t->show("chassis card 2 down");
         EXPECT_EQ(backlog(*t, 2), -1);
         registerAgent(t->client, 2);
         EXPECT_TRUE(waitUntil([&] { return backlog(*t, 2) > 0; }));
         t->agents[2].stop(SIGKILL);
         EXPECT_TRUE(t->startAgent(2));
     }},
    {"the other card's agent ends behind the first messages of its replay", true,
     [](replayFixture* t) {
         t->agents[2].stop(SIGKILL);
         // The manager stands still until the agent is there, so that the first messages are seen.
         t->manager.stand();
         EXPECT_TRUE(t->startAgent(2));
         t->manager.go();
         EXPECT_TRUE(waitUntil([&] { return number(t->client.agentSummary(2), "messages") > 0; }));
         t->agents[2].stop(SIGKILL);
         t->change();
         EXPECT_TRUE(t->startAgent(2));
     }},
    {"the card is reported down", true,
     [](replayFixture* t) {
         for (const char* what : {"1 down", "control-plane down", "1 shutdown"}) {
             t->show(std::string("chassis card ") + what);
             t->change();
         }
     }},
    {"the agent stands still while lists change", true,
     [](replayFixture* t) {
         t->agents[1].stand();
         for (int i = 0; i < 30; i++) t->change();
         t->agents[1].go();
     }},
    {"the role goes and comes back", true,
     [](replayFixture* t) {
         t->movePrimary(1);
         t->change();
         t->show("chassis primary 0");
     }},
};

}  // namespace

// Each once, then up to three at random before everything must be in step again: 20 rounds, or as
// many as ACL_KILL_ROUNDS in the environment says.
TEST(Replay, WhateverEndsACardIsNeverUnfiltered) {
    const size_t rounds = static_cast<size_t>(killRounds(20));
    replayFixture chassis;
    chassis.expectInStep();
    constexpr size_t all = std::size(happenings);
    for (size_t round = 0; round < rounds; round++) {
        std::vector<const happening*> chosen;
        if (round < all) chosen.push_back(&happenings[round]);
        for (size_t n = chassis.random() % 3 + 1; round >= all && n > 0; n--)
            chosen.push_back(&happenings[chassis.random() % all]);
        std::string what;
        for (const happening* h : chosen) what += std::string("; ") + h->what;
        SCOPED_TRACE(std::to_string(round) + what);
        std::optional<watcher> watched;
        if (std::ranges::all_of(chosen, &happening::kept)) watched.emplace(chassis);
        for (const happening* h : chosen) h->run(&chassis);
        chassis.expectInStep();
        watched.reset();
        if (testing::Test::HasFailure()) return;
    }
}
