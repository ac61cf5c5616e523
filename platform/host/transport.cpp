// Endpoints over Unix datagram sockets.
//
// The receiver's socket is bound; a sender keeps one connected socket per addressee beside it,
// because only a connected socket can be polled until the receiver has room. The kernel keeps
// little (ten messages on many machines), so "full" is an everyday answer. A connected socket that
// outlives its receiver fails at the next send, is made anew, and only then is nobody there.
#include "platform/api/zekTransport.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "include/ipc.h"
#include "platform/host/host.h"

namespace {

constexpr size_t PEERS_MAX = 64;         // connected sockets an endpoint keeps
constexpr int SEND_BUFFER = 1 << 20;     // bytes in flight to one addressee
constexpr size_t DESCRIPTORS_TAKEN = 4;  // the kernel closes what does not fit

struct peerSocket {
    uint32_t card, port;
    uint64_t used;  // larger is later
    hostFd fd;
};

}  // namespace

struct zekEndpoint {
    std::string ipcDir;  // RUNDIR/ipc
    std::string path, lockPath;
    hostFd socket, lock;
    std::vector<peerSocket> peers;
    uint64_t uses = 0;
    int receiveWaitMs = -1;  // how long a receiving call waits: for ever
};

void hostFd::reset() {
    if (fd >= 0) close(fd);
    fd = -1;
}

namespace {

bool connectTo(const zekEndpoint* endpoint, uint32_t card, uint32_t port, hostFd* out) {
    sockaddr_un address;
    int dirFd;
    if (!hostSocketAddress(endpoint->ipcDir + "/" + addressText(card), std::to_string(port),
                           &address, &dirFd))
        return false;
    hostFd dir(dirFd);
    hostFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.fd < 0) return false;
    if (connect(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return false;
    setsockopt(fd.fd, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof(SEND_BUFFER));
    *out = std::move(fd);
    return true;
}

// The socket to an addressee, or null when nobody listens there. *fresh: it was made just now.
peerSocket* peerOf(zekEndpoint* endpoint, uint32_t card, uint32_t port, bool* fresh) {
    auto& peers = endpoint->peers;
    *fresh = false;
    for (peerSocket& p : peers) {
        if (p.card != card || p.port != port) continue;
        p.used = ++endpoint->uses;
        return &p;
    }
    hostFd fd;
    if (!connectTo(endpoint, card, port, &fd)) return nullptr;
    if (peers.size() >= PEERS_MAX)
        peers.erase(std::ranges::min_element(peers, {}, &peerSocket::used));
    peers.push_back({card, port, ++endpoint->uses, std::move(fd)});
    *fresh = true;
    return &peers.back();
}

void forgetPeer(zekEndpoint* endpoint, const peerSocket* peer) {
    endpoint->peers.erase(endpoint->peers.begin() + (peer - endpoint->peers.data()));
}

// A file in memory that holds the bytes and that nobody, we included, can change any more.
hostFd sealedFile(const uint8_t* bytes, size_t length) {
    hostFd file(memfd_create("ipc", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    for (size_t done = 0; file.fd >= 0 && done < length;) {
        ssize_t n = write(file.fd, bytes + done, length - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return {};
        done += static_cast<size_t>(n);
    }
    if (file.fd >= 0 &&
        fcntl(file.fd, F_ADD_SEALS, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) != 0)
        return {};
    return file;
}

ssize_t sendOnce(int fd, const void* bytes, size_t length, int file) {
    iovec iov{const_cast<void*>(bytes), length};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    if (file >= 0) {
        msg.msg_control = control;
        msg.msg_controllen = sizeof(control);
        cmsghdr* c = CMSG_FIRSTHDR(&msg);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SCM_RIGHTS;
        c->cmsg_len = CMSG_LEN(sizeof(int));
        memcpy(CMSG_DATA(c), &file, sizeof(int));
    }
    return sendmsg(fd, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
}

int remainingMs(int timeoutMs, uint64_t start) {
    if (timeoutMs < 0) return -1;
    uint64_t gone = hostNowMs() - start;
    return gone >= static_cast<uint64_t>(timeoutMs) ? 0 : timeoutMs - static_cast<int>(gone);
}

// Reads the whole message behind a descriptor. The file must be sealed: else its sender could
// shorten or change it while it is read and checked.
zekDrop readSealed(int file, const uint8_t* front, std::vector<uint8_t>* message, size_t max) {
    constexpr int needed = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    int seals = fcntl(file, F_GET_SEALS);
    struct stat st;
    if (seals < 0 || (seals & needed) != needed || fstat(file, &st) != 0 || st.st_size < 0)
        return zekDrop::malformed;
    size_t size = static_cast<size_t>(st.st_size);
    if (size <= IPC_TRANSPORT_MAX) return zekDrop::malformed;
    if (size > max || size > ZEK_MESSAGE_MAX) return zekDrop::tooLong;
    message->resize(size);
    for (size_t done = 0; done < size;) {
        ssize_t n = pread(file, message->data() + done, size - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return zekDrop::malformed;
        done += static_cast<size_t>(n);
    }
    return memcmp(message->data(), front, sizeof(ipcHdr)) == 0 ? zekDrop::none : zekDrop::malformed;
}

}  // namespace

zekEndpoint* zekEndpointOpen(std::string_view runDir, uint32_t card, uint32_t port,
                             std::string* error) {
    auto endpoint = std::make_unique<zekEndpoint>();
    endpoint->ipcDir = hostIpcDir(runDir);
    std::string dir = endpoint->ipcDir + "/" + addressText(card);
    std::string name = std::to_string(port);
    endpoint->path = dir + "/" + name;
    endpoint->lockPath = endpoint->path + ".lock";
    if (!hostMakeDirs(dir, error)) return nullptr;

    endpoint->lock = hostFd(hostLockFile(endpoint->lockPath));
    if (endpoint->lock.fd < 0) {
        *error = errno == EWOULDBLOCK ? endpoint->path + " is in use by a running process"
                                      : hostSystemError(endpoint->lockPath);
        return nullptr;
    }
    sockaddr_un address;
    int dirFd;
    if (!hostSocketAddress(dir, name, &address, &dirFd))
        return *error = hostSystemError(dir), nullptr;
    hostFd folder(dirFd);
    endpoint->socket = hostFd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    int on = 1;
    unlink(endpoint->path.c_str());  // a dead predecessor's: we hold its lock
    if (endpoint->socket.fd < 0 ||
        setsockopt(endpoint->socket.fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0 ||
        bind(endpoint->socket.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        *error = hostSystemError("cannot bind " + endpoint->path);
        unlink(endpoint->lockPath.c_str());
        return nullptr;
    }
    hostSocketBound(endpoint->path);
    hostSocketBound(endpoint->lockPath);
    return endpoint.release();
}

void zekEndpointClose(zekEndpoint* endpoint) {
    if (endpoint == nullptr) return;
    for (const std::string& path : {endpoint->path, endpoint->lockPath}) {
        hostSocketGone(path);
        unlink(path.c_str());  // both while the lock is still ours
    }
    delete endpoint;
}

int zekEndpointFd(const zekEndpoint* endpoint) {
    return endpoint->socket.fd;
}

int hostEndpointPeerFd(zekEndpoint* endpoint, uint32_t card, uint32_t port) {
    bool fresh;
    const peerSocket* peer = peerOf(endpoint, card, port, &fresh);
    return peer != nullptr ? peer->fd.fd : -1;
}

zekSendResult zekEndpointSend(zekEndpoint* endpoint, const void* message, size_t length,
                              int timeoutMs) {
    if (length < sizeof(ipcHdr) || length > ZEK_MESSAGE_MAX) return zekSendResult::failed;
    const auto* bytes = static_cast<const uint8_t*>(message);
    const auto* hdr = wireView<ipcHdr>(std::span(bytes, length));
    hostFd file;
    size_t direct = length;
    if (length > IPC_TRANSPORT_MAX) {
        file = sealedFile(bytes, length);
        if (file.fd < 0) return zekSendResult::failed;
        direct = sizeof(ipcHdr);
    }
    uint64_t start = hostNowMs();
    for (;;) {
        bool fresh;
        peerSocket* peer = peerOf(endpoint, hdr->source.card, hdr->source.svce, &fresh);
        if (peer == nullptr)
            return errno == EMFILE || errno == ENFILE || errno == ENOMEM ? zekSendResult::failed
                                                                         : zekSendResult::nobody;
        if (sendOnce(peer->fd.fd, bytes, direct, file.fd) >= 0) return zekSendResult::sent;
        switch (errno) {
            case EINTR:
                break;
            case EAGAIN:
            case ENOBUFS:
            case ETOOMANYREFS: {  // too many descriptors under way: the receiver must take some
                int wait = remainingMs(timeoutMs, start);
                if (wait == 0) return zekSendResult::full;
                pollfd p{peer->fd.fd, POLLOUT, 0};
                // Room in the queue cannot be polled for when it is not the queue that is full.
                poll(&p, errno == EAGAIN ? 1 : 0, errno == EAGAIN ? wait : 1);
                break;
            }
            case ECONNREFUSED:
            case ECONNRESET:
            case ENOTCONN:
            case EPIPE:
                forgetPeer(endpoint, peer);
                if (fresh) return zekSendResult::nobody;
                break;
            default:
                return zekSendResult::failed;
        }
    }
}

zekSendResult hostEndpointSendMany(zekEndpoint* endpoint,
                                   std::span<const std::span<const uint8_t>> messages,
                                   size_t* taken) {
    constexpr size_t atOnce = 16;
    iovec parts[atOnce];
    mmsghdr batch[atOnce] = {};
    const size_t count = std::min(messages.size(), atOnce);
    const auto* hdr = wireView<ipcHdr>(messages.front());
    bool fresh;
    peerSocket* peer = count > 1 && hdr != nullptr
                           ? peerOf(endpoint, hdr->source.card, hdr->source.svce, &fresh)
                           : nullptr;
    for (size_t i = 0; i < count; i++) {
        parts[i] = {const_cast<uint8_t*>(messages[i].data()), messages[i].size()};
        batch[i].msg_hdr.msg_iov = &parts[i];
        batch[i].msg_hdr.msg_iovlen = 1;
    }
    int sent = peer != nullptr ? sendmmsg(peer->fd.fd, batch, static_cast<unsigned>(count),
                                          MSG_DONTWAIT | MSG_NOSIGNAL)
                               : 0;
    if (sent > 0) {
        *taken = static_cast<size_t>(sent);
        return zekSendResult::sent;
    }
    // One alone goes the ordinary way, which also makes a socket that has lost its receiver anew.
    auto result = zekEndpointSend(endpoint, messages.front().data(), messages.front().size(), 0);
    *taken = result == zekSendResult::sent ? 1 : 0;
    return result;
}

namespace {

// Where the kernel puts messages. Pages that no message has reached cost nothing.
struct receiveSlots {
    // Apart from the page size, or all messages would compete for the same lines of the cache.
    static constexpr size_t STRIDE = IPC_TRANSPORT_MAX + 2048;
    struct slot {
        iovec iov;
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred)) +
                                      CMSG_SPACE(DESCRIPTORS_TAKEN * sizeof(int))];
    };
    std::unique_ptr<uint8_t[]> bytes{new uint8_t[ZEK_TAKEN_MAX * STRIDE]};
    slot slots[ZEK_TAKEN_MAX];
    mmsghdr messages[ZEK_TAKEN_MAX];

    void prepare(unsigned count) {
        for (unsigned i = 0; i < count; i++) {
            slots[i].iov = {bytes.get() + i * STRIDE, IPC_TRANSPORT_MAX};
            msghdr& msg = messages[i].msg_hdr;
            msg = {};
            msg.msg_iov = &slots[i].iov;
            msg.msg_iovlen = 1;
            msg.msg_control = slots[i].control;
            msg.msg_controllen = sizeof(slots[i].control);
        }
    }
};
receiveSlots& slotsOfThread() {
    static thread_local receiveSlots slots;
    return slots;
}

// The kernel waits in the call that receives. It is told how long when that changes.
bool setWait(zekEndpoint* endpoint, int wait) {
    if (wait == 0 || wait == endpoint->receiveWaitMs) return true;
    timeval limit{wait < 0 ? 0 : wait / 1000, wait < 0 ? 0 : wait % 1000 * 1000};
    if (setsockopt(endpoint->socket.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) != 0)
        return false;
    endpoint->receiveWaitMs = wait;
    return true;
}

// Finds the message in what has been received: its bytes, in the slot or read into *whole; or none
// with *why.
std::span<const uint8_t> unpack(msghdr* msg, size_t length, std::vector<uint8_t>* whole, size_t max,
                                zekSender* sender, zekDrop* why) {
    // Take charge of every descriptor before anything can fail.
    hostFd files[DESCRIPTORS_TAKEN];
    size_t fileCount = 0;
    for (cmsghdr* c = CMSG_FIRSTHDR(msg); c != nullptr; c = CMSG_NXTHDR(msg, c)) {
        if (c->cmsg_level != SOL_SOCKET) continue;
        if (c->cmsg_type == SCM_CREDENTIALS && sender != nullptr) {
            ucred cred;
            memcpy(&cred, CMSG_DATA(c), sizeof(cred));
            *sender = {cred.pid, cred.uid, cred.gid};
        } else if (c->cmsg_type == SCM_RIGHTS) {
            size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (size_t i = 0; i < count; i++) {
                int fd;
                memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
                if (fileCount < DESCRIPTORS_TAKEN)
                    files[fileCount++].fd = fd;
                else
                    close(fd);
            }
        }
    }

    const auto* bytes = static_cast<const uint8_t*>(msg->msg_iov->iov_base);
    *why = zekDrop::none;
    if ((msg->msg_flags & MSG_TRUNC) != 0)
        *why = zekDrop::tooLong;
    else if (length < sizeof(ipcHdr))
        *why = zekDrop::tooShort;
    else if (fileCount > 1 || (fileCount == 1 && length != sizeof(ipcHdr)))
        *why = zekDrop::malformed;
    else if (fileCount == 1)
        *why = readSealed(files[0].fd, bytes, whole, max);
    else if (length > max)
        *why = zekDrop::tooLong;
    if (*why != zekDrop::none) return {};
    return fileCount == 1 ? std::span<const uint8_t>(*whole) : std::span(bytes, length);
}

}  // namespace

int zekEndpointTake(zekEndpoint* endpoint, int timeoutMs, const zekTakenFn& fn) {
    if (!setWait(endpoint, timeoutMs)) return -1;
    const int wait = timeoutMs == 0 ? MSG_DONTWAIT : MSG_WAITFORONE;
    receiveSlots& in = slotsOfThread();
    in.prepare(ZEK_TAKEN_MAX);
    int count;
    while ((count = recvmmsg(zekEndpointFd(endpoint), in.messages, ZEK_TAKEN_MAX,
                             wait | MSG_CMSG_CLOEXEC, nullptr)) < 0) {
        if (errno == EAGAIN || (errno == EINTR && timeoutMs > 0)) return 0;
        if (errno != EINTR) return -1;
    }
    std::vector<uint8_t> whole;
    for (int i = 0; i < count; i++) {
        zekSender sender{};
        zekDrop why;
        auto message = unpack(&in.messages[i].msg_hdr, in.messages[i].msg_len, &whole,
                              IPC_TRANSPORT_MAX, &sender, &why);
        fn(message, sender, why);
    }
    return count;
}

int zekEndpointRecv(zekEndpoint* endpoint, std::vector<uint8_t>* message, size_t max, int timeoutMs,
                    zekSender* sender) {
    uint64_t start = hostNowMs();
    int fd = zekEndpointFd(endpoint);
    for (int wait = timeoutMs;; wait = remainingMs(timeoutMs, start)) {
        if (!setWait(endpoint, wait)) return -1;
        receiveSlots& in = slotsOfThread();
        in.prepare(1);
        msghdr* msg = &in.messages[0].msg_hdr;
        ssize_t n = recvmsg(fd, msg, (wait == 0 ? MSG_DONTWAIT : 0) | MSG_CMSG_CLOEXEC);
        if (n >= 0) {
            zekDrop why;
            auto bytes = unpack(msg, static_cast<size_t>(n), message, max, sender, &why);
            if (why != zekDrop::none) return -2;
            if (bytes.data() != message->data()) message->assign(bytes.begin(), bytes.end());
            return static_cast<int>(bytes.size());
        }
        if (errno != EAGAIN && errno != EINTR) return -1;
        if (wait == 0) return 0;
    }
}

std::string zekRunDir(std::string_view option) {
    if (!option.empty()) return std::string(option);
    const char* set = getenv("ACL_RUNDIR");
    return set != nullptr && *set != '\0' ? set : "/run/aclmgr";
}
