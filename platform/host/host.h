// What the files of the Linux host share. Nothing outside platform/host and its tests includes it.
//
// One process is one task of one route processor: its options, its chassis and its queues are
// process-wide. Functions are for the task's own thread unless they say "any thread".
#pragma once

#include <poll.h>
#include <sys/un.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "include/ipc.h"
#include "platform/api/zekChassis.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekIpc.h"
#include "platform/api/zekTransport.h"

// ---- options.cpp: what the process was started with. Set once, before any thread.
struct hostConfig {
    std::string runDir;
    std::string chassisFile;
    uint32_t rp = 0;       // this route processor: 0 or 1
    uint32_t address = 0;  // its card address
    bool cold = false;     // start from the startup configuration, not from what was running
    bool debug = false;
    bool syslog = false;
    uint32_t clientWaitMs = 10000;
    uint32_t pausePercent = 100;
    uint32_t backlogPatienceMs = 60000;  // see outgoing.cpp; tests shorten it
    chassisDescription chassis{};
};
hostConfig& hostConf();

// ---- task.cpp
// Waits until the task has called zekTaskReady; false when it has not in time. Any thread.
bool hostWaitTaskReady(int timeoutMs);  // -1: for ever
uint64_t hostUptimeMs();                // since the process's start

// ---- held.cpp
// While requests are held, whatever asks, changes, registers or tells of interfaces is kept aside,
// in order, and delivered after the release. Answers, time-outs and events are delivered as ever.
// Any thread.
void hostHoldRequests();
void hostReleaseRequests();

// Requests that this process makes itself, without a socket: the task gets them in turn with those
// of others, and their answers come back to `answered`. Called on the task's thread.
struct hostOwnRequests {
    bool (*waits)();                                       // there may be one
    bool (*next)(std::vector<uint8_t>* message);           // takes it; false: none
    void (*answered)(const void* message, size_t length);  // an answer to the one before
    void (*done)();  // the task has done all that it does about the one before
};
// The service that answers to them are addressed to, at the task's own address.
constexpr uint32_t HOST_OWN_SERVICE = 1;
void hostSetOwnRequests(const hostOwnRequests* requests);
bool hostTakeOwnAnswer(const void* message, size_t length);  // false: it is none
void hostWakeTask();                                         // any thread

// ---- ipc.cpp
// Opens the task's queues at this address below this folder; zekTaskStartup's work, apart so that a
// test can have a task without options.
bool hostTaskOpen(const std::string& runDir, uint32_t address, uint32_t app, uint32_t instance);
void hostTaskClose();
[[nodiscard]] bool hostIsTaskThread();  // any thread
uint32_t hostTaskKey();                 // 0: none is open
uint32_t hostTaskAddress();             // its card address
inline uint32_t hostTaskKeyOf(uint32_t app, uint32_t instance) {
    return app << 5 | (instance & 31);
}
zekEndpoint*
hostEndpoint();  // of the task's request queue, by which everything leaves; null: closed
zekIpcStats& hostIpcStats();
// Calls take for the SWP answers that are here, which are then not delivered any more. When there
// are none it first waits for any message to come, and adds how long to *waitedMs. False: there was
// no answer.
bool hostTakeAnswers(void (*take)(const ipcHdr& answer), int waitMs, uint64_t* waitedMs);

// ---- requests.cpp: what has become of the operators' requests; see the file. Each takes any
// message and looks at the operators' only.
enum class hostArrival { fresh, underWay, answered };
// Of a repeated request that has been answered: *answer.
hostArrival hostRequestArrives(const ipcHdr& request, std::vector<uint8_t>* answer);
void hostRequestTaken(const ipcHdr& request);    // by the task
void hostRequestDropped(const ipcHdr& request);  // instead
void hostRequestHeldBack(const ipcHdr& answer);
void hostRequestAnswered(std::span<const uint8_t> answer);  // it leaves
// "waiting", "working", "answered" or "unknown". Any thread.
const char* hostRequestState(uint32_t card, uint32_t service, uint32_t sequence);
void hostRequestsReset();

// ---- outgoing.cpp: what leaves, when. See the file.
// How answers are made durable before they leave: the task's configuration database, unless a test
// puts its own in its place. dirty() tells whether there is something to commit.
struct hostCommit {
    std::function<bool()> dirty;
    std::function<int()> commit;             // 0 or -1
    std::function<uint64_t()> changes = {};  // how many there have been
};
void hostSetCommit(hostCommit commit);
int hostSend(const void* message, size_t length);  // zekIpcSend
void hostRequestBegins();  // what is sent from now on belongs to another request
// Sends past everything that is held and kept; does not wait.
zekSendResult hostSendNow(const void* message, size_t length);
// The same for messages that all go to the addressee of the first; none is longer than a datagram.
// How many are done with: sent, or with nobody to get them. The receiver is full for the rest.
size_t hostSendMany(std::span<const std::span<const uint8_t>> messages);
void hostFlush();          // commits; lets the held answers go when that has worked
bool hostFlushIsDue();     // something is to be committed or held
bool hostHeldIsFull();     // as many answers are held as one commit is to serve
void hostServeBacklog();   // tries what full receivers have left over
int hostOutgoingWaitMs();  // when one of the two wants to be called again; -1: no need
void hostOutgoingPoll(std::vector<pollfd>* fds);  // what says so earlier
void hostOutgoingReset();

// ---- transport.cpp
// Sends the first of the messages, and as many of the others as the receiver takes with it; all go
// to the addressee of the first. The result is the first one's, *taken how many were sent.
zekSendResult hostEndpointSendMany(zekEndpoint* endpoint,
                                   std::span<const std::span<const uint8_t>> messages,
                                   size_t* taken);
// Descriptor that polls writable when the receiver can take another message; -1 when nobody listens
// there. Stays the endpoint's and lives until its next send.
int hostEndpointPeerFd(zekEndpoint* endpoint, uint32_t card, uint32_t port);

// ---- sockets.cpp: sockets as files of the run folder.
std::string hostSystemError(const std::string& what);  // what, and what errno says
// Makes the folder and those above it; 0750. False with *error.
bool hostMakeDirs(const std::string& path, std::string* error);
// The address of a socket in a folder, also when its path is longer than socket addresses allow:
// *dirFd (which must outlive the address's use) is then an open folder, else -1.
bool hostSocketAddress(const std::string& dir, const std::string& name, sockaddr_un* address,
                       int* dirFd);
// Opens (making it) and locks a file; the descriptor, or -1 when another holder lives or the file
// cannot be made. The lock dies with the process.
int hostLockFile(const std::string& path);
// Removes the sockets that killed processes have left in the run folder.
void hostSweepSockets(const std::string& runDir);
// Removes the sockets that this process has bound. Safe in a signal handler.
void hostRemoveSockets();
void hostSocketBound(const std::string& path);
void hostSocketGone(const std::string& path);

// ---- swp.cpp: the timer of all SWP queues of this task.
int hostSwpTimerFd();  // a timerfd, made at the first call; -1 on failure
// The next due 401 message (60 bytes) into *message; false when no queue is due.
bool hostSwpNextTimeout(void* message);
void hostSwpReset();  // removes every queue

// ---- debugshell.cpp
void hostDebugShellStop();

// ---- evtlog.cpp
// Where the log goes: a file, syslog, or only the ring (both unset).
void hostLogOpen(const std::string& file, bool toSyslog);
void hostDebugRing(const std::function<void(const zekEvtLine&)>& fn);

inline uint64_t hostNowMs() {
    using namespace std::chrono;
    return static_cast<uint64_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}
inline std::string hostIpcDir(std::string_view runDir) {
    return std::string(runDir) + "/ipc";
}
// An owned descriptor.
struct hostFd {
    int fd = -1;
    hostFd() = default;
    explicit hostFd(int d) : fd(d) {}
    hostFd(hostFd&& o) noexcept : fd(o.fd) { o.fd = -1; }
    hostFd& operator=(hostFd&& o) noexcept {
        if (this != &o) {
            reset();
            fd = o.fd;
            o.fd = -1;
        }
        return *this;
    }
    ~hostFd() { reset(); }
    void reset();  // closes
};
