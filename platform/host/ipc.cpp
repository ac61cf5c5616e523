// The task's queues: receiving and waiting.
//
// Datagrams are taken off the sockets as soon as the task looks (in zekSelect, or while it waits
// for one reply) and kept here, because the kernel keeps only a few and senders would wait for the
// task. The timer queue has no socket: its descriptor is the timer of the SWP queues, and its
// messages are made here when that rings, so nobody else can send one.
#include "platform/api/zekIpc.h"

#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <thread>
#include <utility>

#include "include/ipc.h"
#include "include/service.h"
#include "platform/host/held.h"
#include "platform/host/host.h"

namespace {

constexpr uint32_t QUEUE_TIMER = 3;
constexpr size_t KEPT_MAX = 4096;  // messages; then the socket fills up and senders wait
constexpr size_t KEPT_BYTES_MAX = 32u << 20;
constexpr int DRAIN_MAX = 256;      // messages taken off one socket at a time
constexpr size_t ANSWERS_MAX = 64;  // sessions whose answers are kept apart

struct socketQueue {
    zekEndpoint* endpoint = nullptr;
    std::deque<keptMessage> kept;
    size_t keptBytes = 0;
};

struct hostTask {
    uint32_t key = 0;  // 0: none is open
    uint32_t app = 0, instance = 0, address = 0;
    socketQueue request, response;
    std::vector<keptMessage> answers;  // of SWP peers, to the request queue: see keepAnswer
    std::thread::id thread;
} task;
zekIpcStats stats;
int requestsTaken = 0;  // by the last look at the request socket that found some

socketQueue* queueOf(zekQueue queue) {
    if (task.key == 0 || queue >> 2 != task.key) return nullptr;
    if ((queue & 3) == QUEUE_REQUEST) return &task.request;
    if ((queue & 3) == QUEUE_RESPONSE) return &task.response;
    return nullptr;
}
bool isTimerQueue(zekQueue queue) {
    return task.key != 0 && queue == (task.key << 2 | QUEUE_TIMER);
}

// SWP answers are handed over before everything else, and of each session only the newest: it
// answers for those before it. False when the message is none, or one session too many.
bool keepAnswer(keptMessage* m) {
    const ipcHdr* hdr = headerOf(*m);
    if (hdr->mtype != MT_SWP_ACK) return false;
    for (keptMessage& known : task.answers) {
        const ipcHdr* old = headerOf(known);
        if (old->session != hdr->session || old->target.card != hdr->target.card ||
            old->target.svce != hdr->target.svce)
            continue;
        if (static_cast<int32_t>(hdr->swpSeq - old->swpSeq) > 0) known = std::move(*m);
        return true;
    }
    if (task.answers.size() >= ANSWERS_MAX) return false;
    task.answers.push_back(std::move(*m));
    return true;
}

bool anyWaits(const socketQueue& queue) {
    return !queue.kept.empty() ||
           (&queue == &task.request && (!task.answers.empty() || heldOwnWaits()));
}

// The next message of a queue; false when there is none after all.
bool takeNext(socketQueue* queue, keptMessage* m) {
    if (queue == &task.request && !task.answers.empty()) {
        *m = std::move(task.answers.back());
        task.answers.pop_back();
        return true;
    }
    if (queue == &task.request && heldOwnNext(!queue->kept.empty(), m)) return true;
    if (queue->kept.empty()) return false;
    *m = std::move(queue->kept.front());
    queue->kept.pop_front();
    queue->keptBytes -= m->bytes.size();
    return true;
}

void keep(socketQueue* queue, keptMessage m) {
    if (queue == &task.request && keepAnswer(&m)) return;
    if (queue == &task.request && heldTakes(&m)) return;
    queue->keptBytes += m.bytes.size();
    queue->kept.push_back(std::move(m));
}

// Sorts the requests anew when another thread has begun or ended a hold.
void followHold() {
    std::deque<keptMessage> aside;
    if (!heldChanged(&aside)) return;
    std::deque<keptMessage> all = std::exchange(task.request.kept, {});
    for (keptMessage& m : aside) all.push_back(std::move(m));
    task.request.keptBytes = 0;
    for (keptMessage& m : all) keep(&task.request, std::move(m));
}

// A manager's own address as the sender: its answer would come to a manager as the next request,
// for ever. Only what managers say to each other comes like that, and its answers come back
// unchanged.
bool isFromManager(const ipcHdr& hdr) {
    const uint32_t service = aclServicePort(task.app, task.instance, 0);
    return (hdr.target.svce & ~3u) == service &&
           (hdr.mtype < MT_PEER_INFO || hdr.mtype > MT_PEER_REGISTER);
}

void countDrop(zekDrop why) {
    if (why == zekDrop::tooLong) stats.tooLong++;
    if (why == zekDrop::tooShort) stats.tooShort++;
    if (why == zekDrop::malformed) stats.malformed++;
}

bool isFull(const socketQueue& queue) {
    return queue.kept.size() >= KEPT_MAX || queue.keptBytes >= KEPT_BYTES_MAX;
}

bool hasRoom(const socketQueue& queue) {
    return &queue == &task.response || !isFull(queue);
}

void takeIn(socketQueue* queue, keptMessage m, zekDrop why) {
    // Requests are read sooner or later. A reply that nobody waits for any more is not.
    while (queue == &task.response && isFull(*queue)) {
        stats.overrun++;
        queue->keptBytes -= queue->kept.front().bytes.size();
        queue->kept.pop_front();
    }
    // Time-outs come from our own timer only: whoever sends one wants our queues repeated.
    if (why == zekDrop::none &&
        (headerOf(m)->mtype == MT_SWP_TIMEOUT || isFromManager(*headerOf(m))))
        why = zekDrop::malformed;
    if (why != zekDrop::none) return countDrop(why);
    if (queue == &task.request) {
        std::vector<uint8_t> answer;
        const hostArrival arrival = hostRequestArrives(*headerOf(m), &answer);
        if (arrival != hostArrival::fresh) stats.repeated++;
        if (arrival == hostArrival::answered) (void)hostSend(answer.data(), answer.size());
        if (arrival != hostArrival::fresh) return;
    }
    keep(queue, std::move(m));
}

// Takes messages off the socket while there is room for them; not for ever, as a sender of rubbish
// might like it. It waits for the first. How many there were.
int drain(socketQueue* queue, int waitMs = 0) {
    int taken = 0;
    while (taken < DRAIN_MAX && hasRoom(*queue)) {
        int n = zekEndpointTake(
            queue->endpoint, taken == 0 ? waitMs : 0,
            [queue](std::span<const uint8_t> message, const zekSender& sender, zekDrop why) {
                takeIn(queue, {{message.begin(), message.end()}, sender.pid}, why);
            });
        taken += std::max(n, 0);
        if (n < ZEK_TAKEN_MAX) break;
    }
    return taken;
}

// Polls the given descriptors together with what the host itself waits for, and does the host's
// part of what has come. The first fds.size() entries of *fds are the caller's. As poll().
int pollAll(std::vector<pollfd>* fds, int timeoutMs) {
    const size_t callers = fds->size();
    if (task.key != 0) {
        // A full queue's socket would only say again and again that it can be read.
        for (socketQueue* q : {&task.request, &task.response})
            fds->push_back({hasRoom(*q) ? zekEndpointFd(q->endpoint) : -1, POLLIN, 0});
        fds->push_back({heldWakeFd(), POLLIN, 0});
        hostOutgoingPoll(fds);
    }
    int n = poll(fds->data(), fds->size(), timeoutMs);
    int error = errno;
    if (task.key != 0) {
        if (n > 0) {
            if ((*fds)[callers].revents != 0) requestsTaken = drain(&task.request);
            if ((*fds)[callers + 1].revents != 0) drain(&task.response);
            uint64_t count;
            if ((*fds)[callers + 2].revents != 0) (void)!read(heldWakeFd(), &count, sizeof(count));
        }
        followHold();
        hostServeBacklog();
    }
    fds->resize(callers);
    errno = error;
    return n;
}

int shorter(int a, int b) {
    return a < 0 ? b : b < 0 ? a : std::min(a, b);
}

uint64_t deadlineOf(int timeoutMs) {
    return timeoutMs < 0 ? UINT64_MAX : hostNowMs() + static_cast<uint64_t>(timeoutMs);
}
int untilMs(uint64_t deadline) {
    if (deadline == UINT64_MAX) return -1;
    uint64_t now = hostNowMs();
    return deadline <= now ? 0 : static_cast<int>(deadline - now);
}

// One pass over the caller's set: which of it is ready now, within timeoutMs. -1 with errno.
int lookAt(uint32_t limit, const zekFdSet& wanted, int timeoutMs, zekFdSet* ready) {
    ready->reset();
    std::vector<pollfd> fds;
    int requestFd = task.key != 0 ? zekEndpointFd(task.request.endpoint) : -1;
    int responseFd = task.key != 0 ? zekEndpointFd(task.response.endpoint) : -1;
    bool request = false, response = false;
    for (size_t fd = wanted._Find_first(); fd < limit; fd = wanted._Find_next(fd)) {
        int d = static_cast<int>(fd);
        if (d == requestFd)
            request = true;
        else if (d == responseFd)
            response = true;
        else
            fds.push_back({d, POLLIN, 0});
    }
    auto kept = [&] {
        return (request && anyWaits(task.request)) || (response && anyWaits(task.response));
    };
    if (pollAll(&fds, kept() ? 0 : timeoutMs) < 0) return -1;
    int count = 0;
    auto mark = [&](int fd) {
        ready->set(static_cast<size_t>(fd));
        count++;
    };
    for (const pollfd& p : fds) {
        if ((p.revents & POLLNVAL) != 0) {
            errno = EBADF;
            return -1;
        }
        if (p.revents != 0) mark(p.fd);
    }
    if (request && anyWaits(task.request)) mark(requestFd);
    if (response && anyWaits(task.response)) mark(responseFd);
    return count;
}

int recvTimer(void* buffer, size_t size, int timeoutMs) {
    if (size < sizeof(ipcHdr)) return -1;
    uint64_t deadline = deadlineOf(timeoutMs);
    if (timeoutMs != 0) hostFlush();
    for (;;) {
        if (hostSwpNextTimeout(buffer)) {
            stats.received++;
            return sizeof(ipcHdr);
        }
        int wait = untilMs(deadline);
        if (wait == 0) return 0;
        std::vector<pollfd> fds = {{hostSwpTimerFd(), POLLIN, 0}};
        pollAll(&fds, shorter(wait, hostOutgoingWaitMs()));
    }
}

}  // namespace

bool hostTaskOpen(const std::string& runDir, uint32_t address, uint32_t app, uint32_t instance) {
    if (task.key != 0 || app == 0) return false;
    std::string error;
    auto open = [&](uint32_t kind) {
        return zekEndpointOpen(runDir, address, aclServicePort(app, instance, kind), &error);
    };
    task.request.endpoint = open(QUEUE_REQUEST);
    if (task.request.endpoint != nullptr) task.response.endpoint = open(QUEUE_RESPONSE);
    const bool wakes = heldOpen();
    if (task.response.endpoint == nullptr || !wakes || hostSwpTimerFd() < 0) {
        fprintf(stderr, "%s\n", error.empty() ? "no descriptors left" : error.c_str());
        hostTaskClose();
        return false;
    }
    task.app = app;
    task.instance = instance;
    task.address = address;
    task.thread = std::this_thread::get_id();
    task.key = hostTaskKeyOf(app, instance);
    return true;
}

void hostTaskClose() {
    task.key = 0;
    hostSwpReset();
    hostOutgoingReset();
    hostRequestsReset();
    for (socketQueue* q : {&task.request, &task.response}) {
        zekEndpointClose(q->endpoint);
        *q = {};
    }
    task.answers.clear();
    heldClose();
    stats = {};
}

bool hostIsTaskThread() {
    return std::this_thread::get_id() == task.thread;
}
zekEndpoint* hostEndpoint() {
    return task.request.endpoint;
}
zekIpcStats& hostIpcStats() {
    return stats;
}
zekIpcStats zekIpcStatistics() {
    return stats;
}
uint32_t hostTaskKey() {
    return task.key;
}
uint32_t hostTaskAddress() {
    return task.address;
}

bool hostTakeAnswers(void (*take)(const ipcHdr& answer), int waitMs, uint64_t* waitedMs) {
    if (task.key == 0 || !hostIsTaskThread()) return false;
    const bool waits = task.answers.empty() && waitMs != 0;
    uint64_t start = waits ? hostNowMs() : 0;
    drain(&task.request, waits ? waitMs : 0);
    if (waits) *waitedMs += hostNowMs() - start;
    bool any = !task.answers.empty();
    for (const keptMessage& m : task.answers) take(*headerOf(m));
    task.answers.clear();
    return any;
}

zekQueue Key_getReqQueue(uint32_t ipcKey) {
    return ipcKey != 0 ? ipcKey << 2 | QUEUE_REQUEST : 0;
}
zekQueue Key_getRspQueue(uint32_t ipcKey) {
    return ipcKey != 0 ? ipcKey << 2 | QUEUE_RESPONSE : 0;
}
zekQueue Key_getTmrQueue(uint32_t ipcKey) {
    return ipcKey != 0 ? ipcKey << 2 | QUEUE_TIMER : 0;
}

int Key_getSocketFd(zekQueue queue) {
    if (isTimerQueue(queue)) return hostSwpTimerFd();
    socketQueue* q = queueOf(queue);
    return q != nullptr ? zekEndpointFd(q->endpoint) : -1;
}

int zekIpcTmrOpen(uint32_t app, uint32_t instance) {
    bool isOwn = task.key != 0 && task.app == app && task.instance == instance;
    return isOwn && hostSwpTimerFd() >= 0 ? 0 : -1;
}

int zekIpcSend(zekQueue queue, const void* message, size_t length) {
    // The outgoing order is the task's own: another thread has an endpoint of its own to send by.
    if (queueOf(queue) == nullptr || !hostIsTaskThread() || length < sizeof(ipcHdr) ||
        length > ZEK_MESSAGE_MAX) {
        stats.sendFailed++;
        return -1;
    }
    return hostSend(message, length);
}

int zekIpcReply(uint32_t ipcKey, void* message, size_t length) {
    if (length < sizeof(ipcHdr)) return -1;
    auto* hdr = wireView<ipcHdr>(std::span(static_cast<uint8_t*>(message), length));
    ipcExchangeTriples(hdr);
    int result = zekIpcSend(Key_getReqQueue(ipcKey), message, length);
    if (result != 0) ipcExchangeTriples(hdr);  // as it was, so that it can be tried again
    return result;
}

int zekIpcRecv(zekQueue queue, void* buffer, size_t size, int timeoutMs) {
    if (isTimerQueue(queue)) return recvTimer(buffer, size, timeoutMs);
    socketQueue* q = queueOf(queue);
    if (q == nullptr) return -1;
    uint64_t deadline = deadlineOf(timeoutMs);
    if (q == &task.request) heldOwnDone();
    followHold();
    for (bool first = true;; first = false) {
        for (keptMessage m; takeNext(q, &m);) {
            if (m.bytes.size() > size) {
                stats.tooLong++;
                if (q == &task.request) hostRequestDropped(*headerOf(m));
                continue;
            }
            memcpy(buffer, m.bytes.data(), m.bytes.size());
            if (q == &task.request) hostRequestBegins();
            stats.received++;
            if (q == &task.request) hostRequestTaken(*headerOf(m));
            return static_cast<int>(m.bytes.size());
        }
        int wait = first ? 0 : untilMs(deadline);
        if (!first && wait == 0) return 0;
        if (!first) hostFlush();
        std::vector<pollfd> none;
        pollAll(&none, first ? 0 : shorter(wait, hostOutgoingWaitMs()));
    }
}

// Hands over what may not wait for the task: see zekIpcRecvServing. The kept requests before *seen
// have been looked at.
static void serveUrgent(const zekServing& serving, size_t* seen) {
    uint8_t timeout[sizeof(ipcHdr)];
    for (int i = 0; i < DRAIN_MAX && hostSwpNextTimeout(timeout); i++)
        serving.serve(std::span(timeout));
    for (keptMessage m; !task.answers.empty() && takeNext(&task.request, &m);)
        serving.serve(m.bytes);
    auto& kept = task.request.kept;
    for (size_t i = std::min(*seen, kept.size()); i < kept.size();) {
        const zekUrgency urgency = serving.urgency(kept[i].bytes);
        if (urgency == zekUrgency::barrier) return;
        if (urgency == zekUrgency::now) {
            const keptMessage m = std::move(kept[i]);
            kept.erase(kept.begin() + static_cast<ptrdiff_t>(i));
            task.request.keptBytes -= m.bytes.size();
            serving.serve(m.bytes);
        } else {
            i++;
        }
        *seen = i;
    }
}

int zekIpcRecvServing(zekQueue queue, void* buffer, size_t size, int timeoutMs,
                      const zekServing& serving) {
    const uint64_t deadline = deadlineOf(timeoutMs);
    for (size_t seen = 0;;) {
        const int got = zekIpcRecv(queue, buffer, size, 0);
        if (got != 0) return got;
        const uint32_t sorted = heldTurn();
        serveUrgent(serving, &seen);
        const int wait = untilMs(deadline);
        if (wait == 0) return 0;
        hostFlush();
        std::vector<pollfd> fds = {{hostSwpTimerFd(), POLLIN, 0}};
        pollAll(&fds, shorter(wait, hostOutgoingWaitMs()));
        if (heldTurn() != sorted) seen = 0;  // the requests have been sorted anew
    }
}

int zekSelect(uint32_t limit, zekFdSet* set, int timeoutMs) {
    limit = std::min(limit, ZEK_FD_MAX);
    // A system call a message is a good part of its cost: of the requests that are here already a
    // few are served before the descriptors are looked at again.
    constexpr uint32_t servedBetweenLooks = 8;
    static uint32_t served;
    int requestFd = task.key != 0 ? zekEndpointFd(task.request.endpoint) : -1;
    auto request = static_cast<size_t>(requestFd);
    heldOwnDone();
    followHold();  // what was kept may have to wait now
    if (requestFd >= 0 && request < limit && set->test(request) && anyWaits(task.request) &&
        !hostHeldIsFull() && ++served % servedBetweenLooks != 0) {
        set->reset();
        set->set(request);
        return 1;
    }
    uint64_t deadline = deadlineOf(timeoutMs);
    zekFdSet ready;
    int n = 0;
    // What waits already is served before a commit, which then serves all of it together. A request
    // that came alone is from a client that waits for its answer: that look is saved.
    if (requestsTaken > 1 && hostFlushIsDue() && !hostHeldIsFull()) {
        sched_yield();  // whoever waited for room in our queue may fill it first
        n = lookAt(limit, *set, 0, &ready);
    }
    while (n == 0) {
        hostFlush();
        int wait = untilMs(deadline);
        n = lookAt(limit, *set, shorter(wait, hostOutgoingWaitMs()), &ready);
        if (n == 0 && wait == 0) break;
    }
    if (n >= 0) *set = ready;
    return n;
}
