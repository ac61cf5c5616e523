// Sockets as files of the run folder: their folders, addresses, locks, and what a process leaves.
//
// Beside each socket lies a lock file: its lock dies with the holder, so a socket without a locked
// file is a leftover and is replaced, and two processes that start at once cannot both win.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "platform/host/host.h"

namespace {

// What a dying process removes: a fixed table, because the signal handler may touch nothing else.
struct boundSocket {
    std::atomic<bool> live{false};
    char path[512];
};
boundSocket boundSockets[64];

}  // namespace

std::string hostSystemError(const std::string& what) {
    return what + ": " + strerror(errno);
}

bool hostMakeDirs(const std::string& path, std::string* error) {
    if (mkdir(path.c_str(), 0750) == 0) {
        // The mode is set again because the process's mask has cut it.
        if (chmod(path.c_str(), 0750) == 0) return true;
    } else if (errno == ENOENT) {
        size_t parent = path.rfind('/');
        if (parent != std::string::npos && parent != 0)
            return hostMakeDirs(path.substr(0, parent), error) && hostMakeDirs(path, error);
    } else if (errno == EEXIST) {
        struct stat st;
        if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
        errno = ENOTDIR;
    }
    *error = hostSystemError("cannot make " + path);
    return false;
}

bool hostSocketAddress(const std::string& dir, const std::string& name, sockaddr_un* address,
                       int* dirFd) {
    *address = {};
    *dirFd = -1;
    address->sun_family = AF_UNIX;
    std::string path = dir + "/" + name;
    if (path.size() >= sizeof(address->sun_path)) {
        *dirFd = open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (*dirFd < 0) return false;
        path = "/proc/self/fd/" + std::to_string(*dirFd) + "/" + name;
    }
    memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

int hostLockFile(const std::string& path) {
    for (;;) {
        hostFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640));
        if (fd.fd < 0) return -1;
        if (flock(fd.fd, LOCK_EX | LOCK_NB) != 0) return -1;
        // A holder that left may have removed the file between our open and our lock.
        struct stat mine, there;
        if (fstat(fd.fd, &mine) == 0 && stat(path.c_str(), &there) == 0 &&
            mine.st_ino == there.st_ino && mine.st_dev == there.st_dev)
            return std::exchange(fd.fd, -1);
    }
}

void hostSweepSockets(const std::string& runDir) {
    std::error_code none;
    constexpr std::string_view suffix = ".lock";
    std::filesystem::recursive_directory_iterator files(hostIpcDir(runDir), none), end;
    for (; !none && files != end; files.increment(none)) {
        std::string path = files->path();
        if (!path.ends_with(suffix)) continue;
        hostFd lock(hostLockFile(path));
        if (lock.fd < 0) continue;  // its process lives
        unlink(path.substr(0, path.size() - suffix.size()).c_str());
        unlink(path.c_str());
    }
}

void hostSocketBound(const std::string& path) {
    for (boundSocket& slot : boundSockets) {
        if (path.size() >= sizeof(slot.path) || slot.live) continue;
        memcpy(slot.path, path.c_str(), path.size() + 1);
        slot.live = true;
        return;
    }
}

void hostSocketGone(const std::string& path) {
    for (boundSocket& slot : boundSockets)
        if (slot.live && path == slot.path) slot.live = false;
}

void hostRemoveSockets() {
    for (boundSocket& slot : boundSockets)
        if (slot.live) unlink(slot.path);
}
