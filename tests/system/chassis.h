// A chassis of real processes in a run folder of its own, for the tests of a whole system.
#pragma once

#include <signal.h>
#include <sys/wait.h>

#include <functional>
#include <map>

#include "tests/platform/endpoint.h"

constexpr uint32_t CARD_ADDRESS = 0x7F010100;  // 127.1.1.0; the slot is added

struct commandResult {
    int status;       // exit status, or 128 + signal
    std::string out;  // standard output
    std::string err;  // standard error
};

// One process: started by start(), which returns when it has said "ready" or has ended.
struct process {
    int pid = -1;
    std::string log;  // its standard error, a file

    process() = default;
    process(const process&) = delete;
    process& operator=(const process&) = delete;
    ~process() { stop(9); }
    bool start(const std::vector<std::string>& argv, const std::string& logFile);
    bool running() const;
    // Sends the signal and waits for the end; returns the exit status as commandResult has it.
    int stop(int signal);
    // Stands still, until it may go on.
    void stand() const {
        kill(pid, SIGSTOP);
        EXPECT_EQ(waitpid(pid, nullptr, WUNTRACED), pid);
    }
    void go() const { kill(pid, SIGCONT); }
};

// Runs a program to its end, with `input` on its standard input.
commandResult runCommand(const std::vector<std::string>& argv, const std::string& input = "");

constexpr int AGENT_CP = -1;

struct chassisFixture {
    runFolder folder;
    const std::string& dir = folder.path;
    process manager, neighbours;
    const char* registerEvery = "0.2";  // seconds, of agents
    std::map<int, process> agents;      // by slot, AGENT_CP the control processor's

    chassisFixture();
    ~chassisFixture();
    chassisFixture(const chassisFixture&) = delete;
    chassisFixture& operator=(const chassisFixture&) = delete;

    bool startManager(const std::vector<std::string>& options = {});
    bool startNeighbours();
    bool startAgent(int slot);
    // Neighbours, manager and the agents of slots 1 and 2 and of the control plane.
    void startAll() {
        EXPECT_TRUE(startNeighbours());
        EXPECT_TRUE(startManager());
        for (int slot : {1, 2, AGENT_CP}) EXPECT_TRUE(startAgent(slot));
    }
    // Ends the manager at once and starts it again; returns when its configuration is restored.
    bool killAndRestart() {
        manager.stop(SIGKILL);
        // A request that changes nothing waits for the restore like every other one.
        return startManager() && shell({"-c", "clear ip access-lists counters"}).status == 0;
    }

    commandResult shell(const std::vector<std::string>& arguments,
                        const std::string& input = "") const;
    std::string show(
        const std::string& command) const;  // output of one command, which must succeed
    // Makes the route processor the primary one (0) or not (1); returns when its manager knows.
    void movePrimary(int index) const;
    std::string runningConfig() const { return show("show running-config"); }
    // Loads configuration lines, which must be accepted.
    void load(const std::string& lines) const {
        commandResult result = shell({"-f", "-"}, lines);
        EXPECT_EQ(result.status, 0) << lines << result.err;
    }
    // A file; its path.
    std::string write(const std::string& name, const std::string& text) const {
        std::string path = dir + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
};

// How often tests that kill at random do so: ACL_KILL_ROUNDS of the environment, else this.
int killRounds(int otherwise);

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}
// The number behind "key": in a JSON text; the first one of that name, 0 when there is none.
uint64_t number(const std::string& json, const std::string& key);

// Waits for a state; false when it does not come in a very long time.
bool waitUntil(const std::function<bool()>& reached);

constexpr int PATIENCE_MS = 60000;  // only ever waited for when something is broken

// An endpoint with which a test speaks byte by byte.
struct rawEndpoint : endpoint {
    using endpoint::endpoint;
    bool send(const std::vector<uint8_t>& message) const {
        return endpoint::send(message, PATIENCE_MS) == zekSendResult::sent;
    }
    // The next message, empty when none came within that time.
    std::vector<uint8_t> receive(int waitMs = PATIENCE_MS) const {
        std::vector<uint8_t> message;
        if (recv(&message, waitMs) <= 0) message.clear();
        return message;
    }
};

// A task's endpoint that speaks to the manager.
struct rawClient : rawEndpoint {
    // `which` tells several of one process apart.
    explicit rawClient(const chassisFixture& chassis, uint32_t which = 0);
    // Fills length, type, sequence and both triples of a message.
    void fillHeader(std::vector<uint8_t>& message, uint32_t type, uint32_t sequence) const;
    // What an agent (AGENT_CP: the control processor's) says of itself, JSON; empty: no answer.
    std::string agentSummary(int slot);
};
