// The debug shell: round trip through the task's thread, hostile clients, the platform's functions.
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <thread>

#include "platform/api/zekTask.h"
#include "tests/platform/hostTest.h"

namespace {

std::thread::id ranOn;
std::string echo(std::string_view args) {
    ranOn = std::this_thread::get_id();
    return "<" + std::string(args) + ">";
}
std::string large(std::string_view) {
    return std::string(5000000, 'x');
}
std::string breaks(std::string_view) {
    throw std::runtime_error("it broke");
}

class debugShell : public testing::Test {
  protected:
    runFolder run;
    int pipe = -1;
    std::atomic<bool> stop{false};
    std::thread task;

    debugShell() {
        hostConf().runDir = run.path;
        zekDebugRegister("echo", "its arguments", echo);
        zekDebugRegister("large", "much text", large);
        zekDebugRegister("breaks", "nothing", breaks);
        pipe = zekSwpCreatePipe("/zek/pipe/cp/aclpipe");
        EXPECT_GE(pipe, 0);
    }
    ~debugShell() override {
        stop = true;
        if (task.joinable()) task.join();
        hostDebugShellStop();
        hostConf() = {};
    }
    void startTask() {
        task = std::thread([this] {
            while (!stop) {
                zekFdSet set;
                set.set(static_cast<size_t>(pipe));
                EXPECT_TRUE(zekSelect(ZEK_FD_MAX, &set, 10) <= 0 || zekSwpReadPipe(pipe) == 0);
            }
        });
    }
    int call(std::string_view name, std::string_view args, std::string* out, int ms = 60000) {
        return zekDebugCall(run.path, 0, name, args, ms, out);
    }
    hostFd connectRaw() {
        sockaddr_un address;
        int dirFd;
        EXPECT_TRUE(hostSocketAddress(run.path, "debug-rp0", &address, &dirFd));
        hostFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(connect(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        return fd;
    }
    static std::string readAll(const hostFd& fd) {
        std::string all;
        char b[4096];
        for (ssize_t n; (n = recv(fd.fd, b, sizeof(b), 0)) > 0;)
            all.append(b, static_cast<size_t>(n));
        return all;
    }
};

TEST_F(debugShell, RunsOnTheTasksThread) {
    startTask();
    std::string out;
    ASSERT_EQ(call("echo", "a b  c", &out), 0) << out;
    EXPECT_EQ(out, "<a b  c>");
    EXPECT_EQ(ranOn, task.get_id());
    EXPECT_EQ(call("echo", "", &out), 0);
    EXPECT_EQ(out, "<>");
    EXPECT_EQ(call("large", "", &out), 0);
    EXPECT_EQ(out.size(), 5000000u);
    EXPECT_EQ(call("breaks", "", &out), 0);
    EXPECT_EQ(out, "it broke");
    EXPECT_EQ(call("nothing-of-that-name", "", &out), -2);
    EXPECT_EQ(out, "no such debug function");
}

TEST_F(debugShell, RefusesWhatIsNoRequest) {
    startTask();
    std::string out;
    EXPECT_EQ(call("", "", &out), -1);
    EXPECT_EQ(call("two words", "", &out), -1);
    EXPECT_EQ(call("echo", "a\necho b", &out), -1);
    EXPECT_EQ(call("echo", std::string(4090, 'x'), &out), 0);
    EXPECT_EQ(call("echo", std::string(4096, 'x'), &out), -2);
    EXPECT_EQ(out, "the request is too long");
    EXPECT_EQ(zekDebugCall(run.path, 1, "echo", "", 1000, &out), -1);
    EXPECT_NE(out.find("no manager"), std::string::npos);

    hostFd endless = connectRaw();
    std::string junk(100000, 'y');
    (void)!send(endless.fd, junk.data(), junk.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(readAll(endless).starts_with("NO "));
    hostFd bare = connectRaw();
    EXPECT_EQ(send(bare.fd, "\n", 1, 0), 1);
    EXPECT_EQ(readAll(bare), "NO no such debug function\n");
}

// Clients that say nothing, half a line, or do not read must hold up neither the task nor others.
TEST_F(debugShell, AClientThatHangsHoldsNobodyUp) {
    startTask();
    hostFd silent = connectRaw(), half = connectRaw(), deaf = connectRaw();
    EXPECT_EQ(send(half.fd, "ech", 3, 0), 3);
    EXPECT_EQ(send(deaf.fd, "large\n", 6, 0), 6);
    std::string out;
    for (int i = 0; i < 20; i++) ASSERT_EQ(call("echo", "still there", &out), 0) << out;
    EXPECT_EQ(send(half.fd, "o late\n", 7, 0), 7);
    EXPECT_EQ(readAll(half), "OK 6\n<late>");
}

TEST_F(debugShell, ATaskThatDoesNotAnswerCostsTheCallerItsTimeOnly) {
    std::string out;
    EXPECT_EQ(call("echo", "lost", &out, 50), -1);
    EXPECT_EQ(out, "the manager does not answer");
    startTask();
    EXPECT_EQ(call("echo", "found", &out), 0);
    EXPECT_EQ(out, "<found>");
}

TEST_F(debugShell, ThePlatformsFunctionsGiveJson) {
    using nlohmann::json;
    zekEvtLog log = zekEvtOpenlog("TEST", 3, 61, 0);
    ASSERT_NE(log, 0u);
    for (int i = 0; i < 1100; i++) zekEvtLogPrint(log, 0, "ordinary");
    zekSysErr(log, 0, 0x50003, 1, "first \xff line\nforged line\r\n");
    std::string out;
    ASSERT_TRUE(zekDebugRun("logging", "", &out));
    json lines = json::parse(out);
    ASSERT_EQ(lines.size(), 1024u) << "the ring is bounded";
    EXPECT_EQ(lines.back()["code"], "0x50003");
    EXPECT_EQ(lines.back()["about"], "system list");
    EXPECT_EQ(lines.back()["text"], "first \xEF\xBF\xBD line forged line");
    EXPECT_EQ(lines.back()["number"].get<int>(), lines[0]["number"].get<int>() + 1023);
    zekEvtCloselog(log);

    for (const char* name : {"queues", "ipc", "memory", "trace"}) {
        ASSERT_TRUE(zekDebugRun(name, "", &out)) << name;
        EXPECT_FALSE(json::parse(out, nullptr, false).is_discarded()) << name << out;
    }
    ASSERT_TRUE(zekDebugRun("help", "", &out));
    EXPECT_NE(out.find("echo  its arguments\n"), std::string::npos);
}

}  // namespace
