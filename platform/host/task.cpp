// Tasks, time, readiness, the shared block, and the chassis as a task asks for it.
#include "platform/api/zekTask.h"

#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>

#include "platform/host/host.h"

namespace {

constexpr uint32_t TICKS_PER_SECOND = 1000;
constexpr size_t STACK_MIN = 256 * 1024;
constexpr size_t SHM_SLOTS = 32;

const uint64_t processStart = hostNowMs();
std::atomic<void*> shared[SHM_SLOTS];

std::mutex readyLock;
std::condition_variable readyChanged;
bool isReady = false;

struct spawned {
    std::string name;
    int (*entry)(int, char**);
    int argc;
    char** argv;
};

void* runTask(void* arg) {
    std::unique_ptr<spawned> task(static_cast<spawned*>(arg));
    int result = task->entry(task->argc, task->argv);
    if (result == 0) return nullptr;
    // A task that gives up has failed to start, and a process without its task serves nobody.
    fprintf(stderr, "%s: start failed, see the log\n", task->name.c_str());
    hostRemoveSockets();
    _exit(1);
}

// systemd's protocol: one datagram to the socket that it names; @ stands for an abstract one.
void notifyManager(const char* state) {
    const char* path = getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (path == nullptr || strlen(path) < 2 || strlen(path) >= sizeof(address.sun_path)) return;
    hostFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (fd.fd < 0) return;
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, strlen(path));
    if (path[0] == '@') address.sun_path[0] = '\0';
    auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path));
    (void)sendto(fd.fd, state, strlen(state), MSG_NOSIGNAL | MSG_DONTWAIT,
                 reinterpret_cast<sockaddr*>(&address), length);
}

void sleepFor(uint64_t ns) {
    timespec left{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) continue;
}

const chassisCard* cardOf(int slot) {
    const auto& cards = hostConf().chassis.cards;
    auto it = std::ranges::find_if(
        cards, [slot](const chassisCard& c) { return static_cast<int>(c.slot) == slot; });
    return it != cards.end() ? &*it : nullptr;
}

}  // namespace

int taskSpawn(const char* name, int, int, size_t stack, int (*entry)(int, char**), int argc,
              char** argv) {
    auto task = std::make_unique<spawned>(spawned{name, entry, argc, argv});
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, std::max(stack, STACK_MIN));
    pthread_t thread;
    int result = pthread_create(&thread, &attributes, runTask, task.get());
    pthread_attr_destroy(&attributes);
    if (result != 0) return -1;
    pthread_setname_np(thread, std::string(name).substr(0, 15).c_str());
    (void)task.release();  // the thread's now
    return 0;
}

void taskDelay(uint32_t ticks) {
    uint64_t until = hostNowMs() + static_cast<uint64_t>(ticks) * 1000 / TICKS_PER_SECOND;
    // The task commits, lets answers go and takes messages in while it rests.
    for (uint64_t now; hostTaskKey() != 0 && hostIsTaskThread() && (now = hostNowMs()) < until;) {
        zekFdSet nothing;
        if (zekSelect(0, &nothing, static_cast<int>(std::min<uint64_t>(until - now, 60000))) < 0 &&
            errno != EINTR)
            break;
    }
    uint64_t now = hostNowMs();
    if (now < until) sleepFor((until - now) * 1000000);
}

uint32_t sysClkRateGet() {
    return TICKS_PER_SECOND;
}
void zekDelayMicrosecond(uint32_t us) {
    if (hostConf().pausePercent != 0)
        sleepFor(static_cast<uint64_t>(us) * 10 * hostConf().pausePercent);
}
uint64_t hostUptimeMs() {
    return hostNowMs() - processStart;
}

uint32_t zekTaskStartup(uint32_t app, uint32_t instance) {
    const hostConfig& conf = hostConf();
    return hostTaskOpen(conf.runDir, conf.address, app, instance) ? hostTaskKey() : 0;
}
uint32_t zekTaskGetIpcKey(uint32_t task) {
    return task == hostTaskKey() ? task : 0;
}
void zekTaskCloseIpcKey(uint32_t ipcKey) {
    if (ipcKey != 0 && ipcKey == hostTaskKey()) hostTaskClose();
}

void zekTaskReady(uint32_t) {
    {
        std::lock_guard guard(readyLock);
        if (isReady) return;
        isReady = true;
    }
    readyChanged.notify_all();
    fputs("ready\n", stderr);
    notifyManager("READY=1\n");
}

bool hostWaitTaskReady(int timeoutMs) {
    std::unique_lock guard(readyLock);
    auto ready = [] { return isReady; };
    if (timeoutMs >= 0)
        return readyChanged.wait_for(guard, std::chrono::milliseconds(timeoutMs), ready);
    readyChanged.wait(guard, ready);
    return true;
}

int zekShmSet(uint32_t slot, void* anchor) {
    if (slot >= SHM_SLOTS) return -1;
    shared[slot].store(anchor, std::memory_order_release);
    return 0;
}
void* zekShmGet(uint32_t slot) {
    return slot < SHM_SLOTS ? shared[slot].load(std::memory_order_acquire) : nullptr;
}

// Asked before every download: the run folder is looked at now and then only.
bool zekHaIsPrimaryRpm() {
    constexpr uint64_t lookAgainMs = 50;
    static thread_local uint64_t lookedAt = 0;
    static thread_local bool primary = false;
    uint64_t now = hostNowMs();
    if (lookedAt == 0 || now - lookedAt >= lookAgainMs) {
        primary = chassisPrimaryRp(hostConf().chassis, hostConf().runDir) == hostConf().rp;
        lookedAt = now;
    }
    return primary;
}
uint32_t zekSysGetChassisMode() {
    return hostConf().chassis.chassisMode;
}
uint32_t zekSysGetRpmType() {
    return hostConf().chassis.routeProcessorType;
}

// A route processor of the description runs the multicast tasks, so lists reach them by queue. Only
// an address that belongs to none of them can be a processor that filters for itself.
bool isAclSupportedOnRp2(uint32_t cardAddress) {
    const auto& rps = hostConf().chassis.routeProcessors;
    return std::ranges::find(rps, cardAddress, &chassisRp::address) == rps.end();
}

int zekSysCardTypeUsrPortIdToPortId(int slot, uint32_t, int userPort) {
    const chassisCard* card = cardOf(slot);
    if (card == nullptr) return -1;
    for (const chassisPort& p : card->ports)
        if (static_cast<int>(p.userPort) == userPort) return static_cast<int>(p.port);
    return -1;
}
int zekSysCardTypePortIdToPP(int slot, int portId) {
    const chassisCard* card = cardOf(slot);
    if (card == nullptr) return -1;
    for (const chassisPort& p : card->ports)
        if (static_cast<int>(p.port) == portId) return static_cast<int>(p.pipe);
    return -1;
}

int ifmIfIndexToLName(uint32_t ifindex, char* name, size_t size) {
    std::string text = chassisIfName(hostConf().chassis, ifindex);
    const int result = text.empty() ? -1 : 0;
    if (text.empty()) text = chassisIndexText(ifindex);
    snprintf(name, size, "%s", text.c_str());
    return result;
}
int ifmLNameToIfIndex(const char* name, uint32_t* ifindex) {
    return chassisIfIndex(hostConf().chassis, name, ifindex) ? 0 : -1;
}
