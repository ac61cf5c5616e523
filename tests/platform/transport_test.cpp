// Endpoints: sizes, hostile datagrams and descriptors, dead and live namesakes.
#include "platform/api/zekTransport.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/hostTest.h"

namespace {

constexpr uint32_t A = 7809, B = 7937;

bytes toB(uint32_t sequence, size_t size = 64) {
    return makeMessage(RP, A, CARD, B, 14410, sequence, size);
}

struct pair {
    runFolder run;
    endpoint a{run.path, RP, A}, b{run.path, CARD, B};
};

// The socket of an endpoint, for what no honest sender sends.
struct rawSender {
    hostFd fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    explicit rawSender(const std::string& runDir) {
        sockaddr_un address;
        int dirFd;
        EXPECT_TRUE(hostSocketAddress(hostIpcDir(runDir) + "/" + addressText(CARD),
                                      std::to_string(B), &address, &dirFd));
        hostFd dir(dirFd);
        EXPECT_EQ(connect(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }
    void send(const bytes& m, const std::vector<int>& files = {}) {
        iovec iov{const_cast<uint8_t*>(m.data()), m.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(16 * sizeof(int))] = {};
        msghdr msg{};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        if (!files.empty()) {
            msg.msg_control = control;
            msg.msg_controllen = CMSG_SPACE(files.size() * sizeof(int));
            cmsghdr* c = CMSG_FIRSTHDR(&msg);
            c->cmsg_level = SOL_SOCKET;
            c->cmsg_type = SCM_RIGHTS;
            c->cmsg_len = CMSG_LEN(files.size() * sizeof(int));
            memcpy(CMSG_DATA(c), files.data(), files.size() * sizeof(int));
        }
        EXPECT_EQ(sendmsg(fd.fd, &msg, 0), static_cast<ssize_t>(m.size()));
    }
};

int memoryFile(const bytes& content, int seals) {
    int fd = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    EXPECT_TRUE(seals == 0 || fcntl(fd, F_ADD_SEALS, seals) == 0);
    return fd;
}

auto openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

TEST(transport, MessagesOfEverySizeArriveWholeOrAreDroppedForWantOfRoom) {
    pair p;
    bytes got;
    for (size_t size : {60u, 61u, 8192u, 65536u, 65537u, 3000000u}) {
        SCOPED_TRACE(size);
        const bytes sent = toB(static_cast<uint32_t>(size), size);
        for (size_t room : {size - 1, size}) {
            ASSERT_EQ(p.a.send(sent), zekSendResult::sent);
            zekSender sender{};
            EXPECT_EQ(p.b.recv(&got, 0, room, &sender), room < size ? -2 : static_cast<int>(size));
            EXPECT_EQ(sender.pid, getpid());
            EXPECT_EQ(sender.uid, getuid());
        }
        EXPECT_EQ(got, sent);
    }
    EXPECT_EQ(p.a.send(bytes(59)), zekSendResult::failed);
    EXPECT_EQ(p.b.recv(&got), 0);
}

TEST(transport, HostileDatagramsAreDroppedAndEveryDescriptorIsClosed) {
    constexpr int all = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
    pair p;
    rawSender raw(p.run.path);
    bytes large = toB(9, 70000), front(large.begin(), large.begin() + 60), other = front;
    other[20] ^= 1;
    hostFd sealed(memoryFile(large, all)), open(memoryFile(large, 0)),
        shrinks(memoryFile(large, F_SEAL_GROW | F_SEAL_WRITE)), small(memoryFile(front, all)),
        device(::open("/dev/zero", O_RDONLY | O_CLOEXEC)),
        folder(::open(p.run.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const struct {
        const char* what;
        bytes message;
        std::vector<int> files;
        int result;
    } rows[] = {
        {"the honest form", front, {sealed.fd}, 70000},
        {"nothing", {}, {}, -2},
        {"one byte", bytes(1), {}, -2},
        {"one byte short of a header", bytes(59), {}, -2},
        {"longer than a datagram may be", bytes(70000), {}, -2},
        {"a file that can still change", front, {open.fd}, -2},
        {"a file that can still become shorter", front, {shrinks.fd}, -2},
        {"a file that needs no file", front, {small.fd}, -2},
        {"a file whose front is another's", other, {sealed.fd}, -2},
        {"a file behind a longer front", bytes(61), {sealed.fd}, -2},
        {"a file behind a shorter front", bytes(10), {sealed.fd}, -2},
        {"two files", front, {sealed.fd, sealed.fd}, -2},
        {"more files than are taken", front, std::vector<int>(16, sealed.fd), -2},
        {"a device", front, {device.fd}, -2},
        {"a folder", front, {folder.fd}, -2},
    };
    bytes got;
    const auto before = openDescriptors();
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        raw.send(r.message, r.files);
        EXPECT_EQ(p.b.recv(&got), r.result);
        EXPECT_EQ(openDescriptors(), before);
    }
    EXPECT_EQ(p.b.recv(&got), 0);
}

TEST(transport, ADeadProcessesSocketIsReplacedAndItsSendersReachTheNewOne) {
    runFolder run;
    endpoint a(run.path, RP, A);
    int ready[2], end[2];
    ASSERT_EQ(pipe(ready) | pipe(end), 0);
    pid_t child = fork();
    char byte = 0;
    if (child == 0) {
        std::string error;
        byte = zekEndpointOpen(run.path, CARD, B, &error) != nullptr ? 'y' : 'n';
        (void)!write(ready[1], &byte, 1);
        (void)!read(end[0], &byte, 1);
        _exit(0);  // as if killed: nothing is cleaned up
    }
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');
    EXPECT_EQ(a.send(toB(1)), zekSendResult::sent);  // the old one's: lost with it
    ASSERT_EQ(write(end[1], "x", 1), 1);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    for (int fd : {ready[0], ready[1], end[0], end[1]}) close(fd);

    EXPECT_EQ(a.send(toB(2)), zekSendResult::nobody);
    for (uint32_t life = 1; life <= 2; life++) {
        endpoint b(run.path, CARD, B);
        ASSERT_NE(b.e, nullptr) << b.error;
        EXPECT_EQ(a.send(toB(life)), zekSendResult::sent);
        EXPECT_EQ(b.drain(), upTo(life, life));
    }
    EXPECT_EQ(a.send(toB(3)), zekSendResult::nobody);
    EXPECT_TRUE(std::filesystem::is_empty(run.path + "/ipc/127.1.1.1"));
}

TEST(transport, ALiveEndpointIsNeitherTakenOverNorSweptAway) {
    pair p;
    endpoint again(p.run.path, CARD, B);
    EXPECT_EQ(again.e, nullptr);
    EXPECT_NE(again.error.find("in use"), std::string::npos) << again.error;
    const std::string dead = p.run.path + "/ipc/" + addressText(CARD) + "/70000";
    for (const char* suffix : {"", ".lock"}) std::ofstream(dead + suffix);  // of a killed process
    hostSweepSockets(p.run.path);
    for (const char* suffix : {"", ".lock"}) EXPECT_FALSE(std::filesystem::exists(dead + suffix));
    EXPECT_EQ(p.a.send(toB(1)), zekSendResult::sent);
    EXPECT_EQ(p.b.drain(), upTo(1));
    hostSweepSockets(p.run.path + "/absent");
}

TEST(transport, ARunFolderMayBeLongerThanASocketAddressAndIsToldWhenItCannotBe) {
    runFolder run;
    std::string deep = run.path + "/" + std::string(90, 'x') + "/" + std::string(90, 'y');
    endpoint a(deep, RP, A), b(deep, CARD, B);
    ASSERT_NE(b.e, nullptr) << b.error;
    EXPECT_EQ(a.send(toB(1)), zekSendResult::sent);
    EXPECT_EQ(b.drain(), upTo(1));
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(deep + "/ipc/127.1.1.1").permissions(),
              perms::owner_all | perms::group_read | perms::group_exec);
    std::ofstream(run.path + "/file") << "in the way";
    for (const char* name : {"/file", "/file/below"}) {
        endpoint e(run.path + name, RP, A);
        EXPECT_EQ(e.e, nullptr);
        EXPECT_NE(e.error.find("Not a directory"), std::string::npos) << e.error;
    }
}

}  // namespace
