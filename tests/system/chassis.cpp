#include "tests/system/chassis.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

int exitStatus(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void nap() {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

std::vector<char*> argvOf(const std::vector<std::string>& argv) {
    std::vector<char*> out;
    for (const std::string& arg : argv) out.push_back(const_cast<char*>(arg.c_str()));
    out.push_back(nullptr);
    return out;
}

std::string program(const char* name) {
    return std::string(ACL_BIN_DIR) + "/" + name;
}

}  // namespace

uint64_t number(const std::string& json, const std::string& key) {
    size_t at = json.find("\"" + key + "\":");
    return at == std::string::npos ? 0
                                   : std::strtoull(json.c_str() + at + key.size() + 3, nullptr, 10);
}

bool waitUntil(const std::function<bool()>& reached) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(PATIENCE_MS);
    while (!reached()) {
        if (std::chrono::steady_clock::now() > end) return false;
        nap();
    }
    return true;
}

bool process::start(const std::vector<std::string>& argv, const std::string& logFile) {
    log = logFile;
    int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    auto args = argvOf(argv);
    pid = fork();
    if (pid == 0) {
        dup2(fd, 1);
        dup2(fd, 2);
        execv(args[0], args.data());
        _exit(127);
    }
    close(fd);
    for (int waited = 0; waited < PATIENCE_MS; waited += 5) {
        if (("\n" + readFile(log)).find("\nready\n") != std::string::npos) return true;
        if (!running()) return false;
        nap();
    }
    return false;
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
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return {-1, "", "pipe"};
    auto args = argvOf(argv);
    int pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        execv(args[0], args.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    signal(SIGPIPE, SIG_IGN);
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    commandResult result{};
    size_t written = 0;
    bool open_[2] = {true, true};
    int ends[2] = {out[0], err[0]};
    std::string* texts[2] = {&result.out, &result.err};
    while (open_[0] || open_[1]) {
        bool writing = in[1] >= 0 && written < input.size();
        if (!writing && in[1] >= 0) {
            close(in[1]);
            in[1] = -1;
        }
        pollfd fds[3] = {{open_[0] ? ends[0] : -1, POLLIN, 0},
                         {open_[1] ? ends[1] : -1, POLLIN, 0},
                         {writing ? in[1] : -1, POLLOUT, 0}};
        if (poll(fds, 3, PATIENCE_MS) <= 0) {
            kill(pid, SIGKILL);
            break;
        }
        char buffer[65536];
        for (int i = 0; i < 2; i++) {
            if (fds[i].revents == 0) continue;
            ssize_t got = read(ends[i], buffer, sizeof buffer);
            if (got <= 0)
                open_[i] = false;
            else
                texts[i]->append(buffer, static_cast<size_t>(got));
        }
        if (fds[2].revents != 0) {
            ssize_t put = ::write(in[1], input.data() + written, input.size() - written);
            if (put < 0 && errno != EAGAIN) written = input.size();
            if (put > 0) written += static_cast<size_t>(put);
        }
    }
    if (in[1] >= 0) close(in[1]);
    close(out[0]);
    close(err[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = exitStatus(status);
    return result;
}

chassisFixture::chassisFixture() {
    std::string base = std::filesystem::temp_directory_path() / "aclsys.XXXXXX";
    dir = mkdtemp(base.data());
    std::filesystem::copy_file(std::string(ACL_SOURCE_DIR) + "/examples/chassis.json",
                               dir + "/chassis.json");
}

chassisFixture::~chassisFixture() {
    manager.stop(SIGKILL);
    neighbours.stop(SIGKILL);
    agents.clear();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
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
void chassisFixture::startAll() {
    EXPECT_TRUE(startNeighbours());
    EXPECT_TRUE(startManager());
    for (int slot : {1, 2, AGENT_CP}) EXPECT_TRUE(startAgent(slot));
}
bool chassisFixture::killAndRestart() {
    manager.stop(SIGKILL);
    // A request that changes nothing waits for the restore like every other one.
    return startManager() && shell({"-c", "clear ip access-lists counters"}).status == 0;
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
void chassisFixture::load(const std::string& lines) const {
    commandResult result = shell({"-f", "-"}, lines);
    EXPECT_EQ(result.status, 0) << lines << result.err;
}
std::string chassisFixture::write(const std::string& name, const std::string& text) const {
    std::string path = dir + "/" + name;
    std::ofstream(path) << text;
    return path;
}

rawEndpoint::rawEndpoint(const std::string& dir, uint32_t itsAddress, uint32_t itsService)
    : address(itsAddress), service(itsService) {
    std::string error;
    endpoint = zekEndpointOpen(dir, address, service, &error);
    EXPECT_NE(endpoint, nullptr) << error;
}
rawEndpoint::~rawEndpoint() {
    zekEndpointClose(endpoint);
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
bool rawEndpoint::send(const std::vector<uint8_t>& message) const {
    return zekEndpointSend(endpoint, message.data(), message.size(), PATIENCE_MS) ==
           zekSendResult::sent;
}
std::vector<uint8_t> rawEndpoint::receive(int waitMs) const {
    std::vector<uint8_t> message;
    zekSender sender{};
    int got = zekEndpointRecv(endpoint, &message, ZEK_MESSAGE_MAX, waitMs, &sender);
    if (got <= 0) message.clear();
    return message;
}
std::vector<uint8_t> rawClient::ask(std::vector<uint8_t> message, uint32_t type) {
    static uint32_t sequence = 1000;
    fillHeader(message, type, ++sequence);
    if (!send(message)) return {};
    for (;;) {
        std::vector<uint8_t> answer = receive();
        if (answer.size() < sizeof(ipcHdr)) return {};
        if (reinterpret_cast<const ipcHdr*>(answer.data())->sequence == sequence) return answer;
    }
}
