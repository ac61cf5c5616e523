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

class debugShell : public testing::Test {
  protected:
    runFolder run;
    int pipe = -1;
    std::atomic<bool> stop{false};
    std::thread task;

    debugShell() {
        hostConf().runDir = run.path;
        zekDebugRegister("echo", "its arguments", [](std::string_view args) {
            ranOn = std::this_thread::get_id();
            return "<" + std::string(args) + ">";
        });
        zekDebugRegister("large", "much text",
                         [](std::string_view) { return std::string(5000000, 'x'); });
        zekDebugRegister("breaks", "nothing", [](std::string_view) -> std::string {
            throw std::runtime_error("it broke");
        });
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
    void expect(std::string_view name, std::string_view args, int result, std::string_view text) {
        std::string out;
        EXPECT_EQ(zekDebugCall(run.path, 0, name, args, 60000, &out), result);
        EXPECT_EQ(out, text) << name;
    }
    // A client of its own, which has sent something.
    hostFd connectRaw(std::string_view sent) {
        sockaddr_un address;
        int dirFd;
        EXPECT_TRUE(hostSocketAddress(run.path, "debug-rp0", &address, &dirFd));
        hostFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(connect(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        say(fd, sent);
        return fd;
    }
    static void say(const hostFd& fd, std::string_view text) {
        (void)!send(fd.fd, text.data(), text.size(), MSG_NOSIGNAL);
    }
    static std::string readAll(const hostFd& fd) {
        std::string all;
        char b[4096];
        for (ssize_t n; (n = recv(fd.fd, b, sizeof(b), 0)) > 0;)
            all.append(b, static_cast<size_t>(n));
        return all;
    }
};

TEST_F(debugShell, RunsOnTheTasksThreadAndRefusesWhatIsNoRequest) {
    startTask();
    expect("echo", "a b  c", 0, "<a b  c>");
    EXPECT_EQ(ranOn, task.get_id());
    expect("echo", "", 0, "<>");
    expect("large", "", 0, std::string(5000000, 'x'));
    expect("breaks", "", 0, "it broke");
    expect("nothing-of-that-name", "", -2, "no such debug function");
    const char* oneLine = "a debug request is one line, and its name one word";
    expect("", "", -1, oneLine);
    expect("two words", "", -1, oneLine);
    expect("echo", "a\necho b", -1, oneLine);
    expect("echo", std::string(4090, 'x'), 0, "<" + std::string(4090, 'x') + ">");
    expect("echo", std::string(4096, 'x'), -2, "the request is too long");
    std::string out;
    EXPECT_EQ(zekDebugCall(run.path, 1, "echo", "", 1000, &out), -1);
    EXPECT_EQ(out, "no manager answers in " + run.path);
    EXPECT_TRUE(readAll(connectRaw(std::string(100000, 'y'))).starts_with("NO "));
    EXPECT_EQ(readAll(connectRaw("\n")), "NO no such debug function\n");
}

// Clients that say nothing, half a line, or do not read must hold up neither the task nor others.
TEST_F(debugShell, AClientThatHangsHoldsNobodyUp) {
    startTask();
    hostFd silent = connectRaw(""), half = connectRaw("ech"), deaf = connectRaw("large\n");
    for (int i = 0; i < 20; i++) expect("echo", "still there", 0, "<still there>");
    say(half, "o late\n");
    EXPECT_EQ(readAll(half), "OK 6\n<late>");
}

TEST_F(debugShell, ATaskThatDoesNotAnswerCostsTheCallerItsTimeOnly) {
    std::string out;
    EXPECT_EQ(zekDebugCall(run.path, 0, "echo", "lost", 50, &out), -1);
    EXPECT_EQ(out, "the manager does not answer");
    startTask();
    expect("echo", "found", 0, "<found>");
}

TEST_F(debugShell, ThePlatformsFunctionsGiveJson) {
    using nlohmann::json;
    auto said = [](const char* name) {
        std::string out;
        EXPECT_TRUE(zekDebugRun(name, "", &out)) << name;
        return out;
    };
    zekEvtLog log = zekEvtOpenlog("TEST", 3, 61, 0);
    for (int i = 0; i < 1100; i++) zekEvtLogPrint(log, 0, "ordinary");
    zekSysErr(log, 0, 0x50003, 1, "first \xff line\nforged line\r\n");
    const json lines = json::parse(said("logging"));
    ASSERT_EQ(lines.size(), 1024u) << "the ring is bounded";
    EXPECT_EQ(lines.back()["code"], "0x50003");
    EXPECT_EQ(lines.back()["about"], "system list");
    EXPECT_EQ(lines.back()["text"], "first \xEF\xBF\xBD line forged line");
    EXPECT_EQ(lines.back()["number"].get<int>(), lines[0]["number"].get<int>() + 1023);
    zekEvtCloselog(log);
    for (const char* name : {"queues", "ipc", "memory", "trace"})
        EXPECT_FALSE(json::parse(said(name), nullptr, false).is_discarded()) << name;
    EXPECT_NE(said("help").find("echo  its arguments\n"), std::string::npos);
}

}  // namespace
