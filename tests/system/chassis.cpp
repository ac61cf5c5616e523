#include "tests/system/chassis.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "include/agentState.h"
#include "include/service.h"

namespace {

constexpr uint32_t RP_ADDRESS = 0x7F010001;  // 127.1.0.1
constexpr uint32_t PIDS = 1u << 22;          // more than there are processes

int exitStatus(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Starts a program with these descriptors as its standard ones; ends it when it takes that long.
int spawn(const std::vector<std::string>& argv, std::array<int, 3> standard, unsigned seconds) {
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    const int pid = fork();
    if (pid != 0) return pid;
    for (int fd : {0, 1, 2}) dup2(standard[static_cast<size_t>(fd)], fd);
    alarm(seconds);
    execv(args[0], args.data());
    _exit(127);
}

std::string program(const char* name) {
    return std::string(ACL_BIN_DIR) + "/" + name;
}

}  // namespace

int killRounds(int otherwise) {
    const char* wanted = getenv("ACL_KILL_ROUNDS");
    return wanted != nullptr ? std::max(atoi(wanted), 1) : otherwise;
}

uint64_t number(const std::string& json, const std::string& key) {
    size_t at = json.find("\"" + key + "\":");
    return at == std::string::npos ? 0
                                   : std::strtoull(json.c_str() + at + key.size() + 3, nullptr, 10);
}

bool waitUntil(const std::function<bool()>& reached) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(PATIENCE_MS);
    while (!reached()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

bool process::start(const std::vector<std::string>& argv, const std::string& logFile) {
    log = logFile;
    int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    pid = spawn(argv, {0, fd, fd}, 0);
    close(fd);
    bool ready = false;
    waitUntil([&] {
        ready = ("\n" + contentOf(log)).find("\nready\n") != std::string::npos;
        return ready || !running();
    });
    return ready;
}

bool process::running() const {
    if (pid <= 0) return false;
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

int process::stop(int signal) {
    if (pid <= 0) return -1;
    kill(pid, signal);
    int status = 0;
    waitpid(pid, &status, 0);
    pid = -1;
    return exitStatus(status);
}

commandResult runCommand(const std::vector<std::string>& argv, const std::string& input) {
    FILE* files[] = {tmpfile(), tmpfile(), tmpfile()};
    fwrite(input.data(), 1, input.size(), files[0]);
    rewind(files[0]);
    const int pid =
        spawn(argv, {fileno(files[0]), fileno(files[1]), fileno(files[2])}, PATIENCE_MS / 1000);
    int status = 0;
    waitpid(pid, &status, 0);
    commandResult result{exitStatus(status), "", ""};
    for (auto [file, text] : {std::pair(files[1], &result.out), {files[2], &result.err}}) {
        fseek(file, 0, SEEK_END);
        text->resize(static_cast<size_t>(ftell(file)));
        rewind(file);
        text->resize(fread(text->data(), 1, text->size(), file));
    }
    for (FILE* file : files) fclose(file);
    return result;
}

chassisFixture::chassisFixture() {
    std::filesystem::copy_file(std::string(ACL_SOURCE_DIR) + "/examples/chassis.json",
                               dir + "/chassis.json");
}

chassisFixture::~chassisFixture() {
    manager.stop(SIGKILL);
    neighbours.stop(SIGKILL);
    agents.clear();
}

bool chassisFixture::startManager(const std::vector<std::string>& options) {
    std::vector<std::string> argv{program("aclmgr"), "--rundir", dir};
    argv.insert(argv.end(), options.begin(), options.end());
    return manager.start(argv, dir + "/aclmgr.stderr");
}
bool chassisFixture::startNeighbours() {
    return neighbours.start({program("chassisd"), "--rundir", dir}, dir + "/chassisd.stderr");
}
bool chassisFixture::startAgent(int slot) {
    std::vector<std::string> argv{program("aclagent"), "--rundir", dir, "--register-every",
                                  registerEvery};
    if (slot == AGENT_CP)
        argv.push_back("--cp");
    else
        argv.insert(argv.end(), {"--slot", std::to_string(slot)});
    return agents[slot].start(argv, dir + "/aclagent" + std::to_string(slot) + ".stderr");
}

commandResult chassisFixture::shell(const std::vector<std::string>& arguments,
                                    const std::string& input) const {
    std::vector<std::string> argv{program("aclsh"), "--rundir", dir};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return runCommand(argv, input);
}
std::string chassisFixture::show(const std::string& command) const {
    commandResult result = shell({"-c", command});
    EXPECT_EQ(result.status, 0) << command << "\n" << result.err;
    return result.out;
}
void chassisFixture::movePrimary(int index) const {
    show("chassis primary " + std::to_string(index));
    const char* role = index == 0 ? " primary" : "secondary";
    EXPECT_TRUE(waitUntil(
        [&] { return show("show system | include role").find(role) != std::string::npos; }));
}

rawClient::rawClient(const chassisFixture& chassis, uint32_t which)
    : rawEndpoint(chassis.dir, RP_ADDRESS,
                  SERVICE_DYNAMIC_BASE + static_cast<uint32_t>(getpid()) + which * PIDS) {}

void rawClient::fillHeader(std::vector<uint8_t>& message, uint32_t type, uint32_t sequence) const {
    auto* hdr = reinterpret_cast<ipcHdr*>(message.data());
    hdr->length = static_cast<uint32_t>(message.size());
    hdr->mtype = type;
    hdr->sequence = sequence;
    hdr->target.card = address;
    hdr->target.svce = service;
    hdr->source.card = RP_ADDRESS;
    hdr->source.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
}
std::string rawClient::agentSummary(int slot) {
    std::vector<uint8_t> message(sizeof(agentStateReq));
    static std::atomic<uint32_t> last = 0x40000000;
    const uint32_t sequence = ++last;
    fillHeader(message, MT_AGENT_STATE, sequence);
    auto* req = reinterpret_cast<agentStateReq*>(message.data());
    bool cp = slot == AGENT_CP;
    req->ipc.source.card = cp ? RP_ADDRESS : CARD_ADDRESS + static_cast<uint32_t>(slot);
    req->ipc.source.svce = aclServicePort(cp ? APP_ACL_AGENT_CP : APP_ACL_AGENT,
                                          cp ? 0 : static_cast<uint32_t>(slot), QUEUE_REQUEST);
    req->what = AGENT_STATE_SUMMARY;
    if (!send(message)) return "";
    for (;;) {
        std::vector<uint8_t> answer = receive();
        if (answer.size() < AGENT_STATE_TEXT_OFFSET) return "";
        if (reinterpret_cast<const ipcHdr*>(answer.data())->sequence == sequence)
            return std::string(answer.begin() + AGENT_STATE_TEXT_OFFSET, answer.end());
    }
}
