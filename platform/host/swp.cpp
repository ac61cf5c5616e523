// The SWP queues of this task: handles, addresses, the timer, and the receiver's answers. The
// protocol itself is in swpqueue.cpp.
//
// A handle is ((slot + 1) << 25) | serial, the slot field 0 for a queue to no card. It stands for
// one lane; that of a queue which nobody looks after for one to each instance of its peer.
#include "platform/api/zekSwp.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>

#include "include/service.h"
#include "platform/api/zekMem.h"
#include "platform/host/host.h"
#include "platform/host/swpqueue.h"

namespace {

constexpr uint32_t SERIAL_MAX = 0x3FFF;
constexpr uint32_t SLOT_NOT_GIVEN = 0xFFFFFFFF;

constexpr uint32_t SYSERR_SWP_PEER = 0x5000E;
constexpr size_t LANES_MAX = 32;              // instances that a service number can tell apart
constexpr size_t TRIM_FROM_BYTES = 1u << 20;  // backlogs above it leave memory behind

struct swpLane {
    // Where the messages go, as the last of them says: an answer must come from there.
    uint32_t card = 0, port = 0;
    uint64_t waitedMs = 0;     // for answers while a download was enqueued
    uint64_t raisedUntil = 0;  // a 401 is on its way to the dispatcher; not raised again before
    zekSwpState told = zekSwpState::inStep;  // to the owner
    swpQueue queue;
};

struct swpRecord {
    uint32_t app, peerApp, slot;
    std::deque<swpLane> lanes;  // one at least
};

std::map<zekSwpHandle, swpRecord> queues;
uint32_t lastSerial = 0;
hostFd timer;
uint64_t armedFor = SWP_NEVER;
size_t largestBacklog = 0;  // bytes, since memory was given back
std::string deadText = "SWP peer does not answer";

constexpr struct {
    uint32_t app;
    const char* name;
} taskNames[] = {
    {APP_SNMP, "SNMP"},
    {APP_SYSADM, "SYSADM"},
    {APP_ACL, "ACL"},
    {APP_RTM, "RTM"},
    {APP_ACL_AGENT, "ACL_AGENT"},
    {APP_IPM, "IPM"},
    {APP_DSMGR, "DSMGR"},
    {APP_MAC_AGENT, "MAC_AGENT"},
    {APP_IGMP, "IGMP"},
    {APP_PIM, "PIM"},
    {APP_ACL_AGENT_CP, "ACL_AGENT_CP"},
};

constexpr const char* errorTexts[] = {
    "no error",
    "not an SWP message",
    "SWP message of an unknown queue or session",
    "SWP answer to a message that was never sent",
};

std::string taskName(uint32_t app) {
    for (const auto& row : taskNames)
        if (row.app == app) return row.name;
    return "task " + std::to_string(app);
}

swpRecord* find(zekSwpHandle handle) {
    auto it = queues.find(handle);
    return it != queues.end() ? &it->second : nullptr;
}

// Calls fn(handle, record, lane) until it returns true; whether it has.
template <class Fn>
bool anyLane(Fn fn) {
    for (auto& [handle, r] : queues)
        for (swpLane& lane : r.lanes)
            if (fn(handle, r, lane)) return true;
    return false;
}

std::string peerName(const swpRecord& r, const swpLane& lane) {
    const uint32_t instance = r.slot != SLOT_NOT_GIVEN ? r.slot : lane.port >> 2 & 31;
    return taskName(r.peerApp) + " " + std::to_string(instance);
}

// The lane that an answer is for, or null. The low bits of a service tell the peer's queues apart;
// it may answer from either.
swpLane* findAnswered(const ipcHdr& answer, swpRecord** record) {
    swpLane* older = nullptr;
    swpLane* found = nullptr;
    anyLane([&](zekSwpHandle, swpRecord& r, swpLane& lane) {
        if (lane.card != answer.target.card || (lane.port & ~3u) != (answer.target.svce & ~3u))
            return false;
        const bool exact = lane.queue.session == answer.session;
        (exact ? found : older) = &lane;
        *record = &r;
        return exact;
    });
    return found != nullptr ? found : older;
}

size_t sendToPeer(std::span<const swpMessage> messages) {
    std::span<const uint8_t> bytes[SWP_SENT_AT_ONCE];
    for (size_t i = 0; i < messages.size(); i++)
        bytes[i] = std::span(messages[i].data, messages[i].length);
    return hostSendMany(std::span(bytes, messages.size()));
}

// A lane without messages, for queues made like this one.
swpLane newLane(const swpQueue& like) {
    swpLane lane;
    lane.queue.owner = like.owner;
    lane.queue.window = like.window;
    lane.queue.repeatsMax = like.repeatsMax;
    lane.queue.free = like.free;
    lane.queue.print = like.print;
    lane.queue.send = sendToPeer;
    // Peers may remember the session of a queue that an earlier process had: start anywhere.
    do lane.queue.session = arc4random();
    while (lane.queue.session == 0);
    return lane;
}

// The lane for a message. A card has one, wherever it is; the instances of a task one each.
swpLane* laneFor(swpRecord* r, const ipcHdr& hdr) {
    swpLane* lane = &r->lanes.front();
    if (lane->queue.owner == swpOwner::keeps && lane->port != 0) {
        auto it = std::ranges::find(r->lanes, uint32_t{hdr.source.svce}, &swpLane::port);
        if (it == r->lanes.end() && r->lanes.size() >= LANES_MAX) return nullptr;
        lane = it != r->lanes.end() ? &*it : &r->lanes.emplace_back(newLane(lane->queue));
    }
    lane->card = hdr.source.card;
    lane->port = hdr.source.svce;
    return lane;
}

// What a large backlog has held goes back to the system when no queue needs it any more.
void trim() {
    size_t now = 0;
    anyLane([&](zekSwpHandle, swpRecord&, swpLane& lane) {
        now = std::max(now, lane.queue.bytes);
        return false;
    });
    largestBacklog = std::max(largestBacklog, now);
    if (largestBacklog < TRIM_FROM_BYTES || now >= TRIM_FROM_BYTES) return;
    zekMemTrim();
    largestBacklog = 0;
}

// An answer that came while the task was sending. What is wrong with one is left to be found out by
// the repeats.
void takeAnswer(const ipcHdr& answer) {
    void* released;
    swpRecord* r;
    if (zekSwpDequeue(&answer, &released) != SWP_OK || released == nullptr) return;
    if (const swpLane* lane = findAnswered(answer, &r)) lane->queue.free(released);
}

// A long download would pile up in memory what its peer could have had by now, and memory that was
// never touched costs more than the peer. So a sender with much in front of it takes the answers
// that have come, and waits a little for a peer that is quick; a slow one gets the rest later.
void pace(swpLane* r) {
    constexpr size_t plenty = 4, enough = 2;  // windows
    // Of one download in all; more when the next step would be to lose the queue.
    constexpr uint64_t patienceMs = 50, lastPatienceMs = 1000;
    swpQueue& q = r->queue;
    largestBacklog = std::max(largestBacklog, q.bytes);
    if (q.backlog.size() <= q.window) r->waitedMs = 0;
    if (q.backlog.size() < plenty * q.window) return;
    auto isFar = [&q] { return q.bytesMax != 0 && 2 * q.bytes > q.bytesMax; };
    const bool far = isFar();
    const uint64_t patience = far ? lastPatienceMs : patienceMs;
    // An answer makes room for a window at most: with no patience left, one look a window is
    // enough.
    if (r->waitedMs >= patience && q.enqueued % q.window != 0) return;
    for (bool answered = true; answered && q.backlog.size() > enough * q.window && isFar() == far;)
        answered = hostTakeAnswers(takeAnswer, r->waitedMs < patience ? 2 : 0, &r->waitedMs);
}

uint64_t due(const swpLane& lane) {
    return std::max(swpQueueDeadline(lane.queue), lane.raisedUntil);
}

// Sets the timer for the earliest deadline. Deadlines mostly move back as answers come in, so the
// timer is only touched when it would ring too late; a ring with nothing due costs one pass.
void arm(bool rung) {
    uint64_t first = SWP_NEVER;
    anyLane([&](zekSwpHandle, swpRecord&, swpLane& lane) {
        first = std::min(first, due(lane));
        return false;
    });
    if (rung) armedFor = SWP_NEVER;
    if (first >= armedFor || hostSwpTimerFd() < 0) return;
    armedFor = first;
    uint64_t now = hostNowMs();
    uint64_t wait = first > now ? first - now : 0;
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(wait / 1000);
    when.it_value.tv_nsec = wait != 0 ? static_cast<long>(wait % 1000 * 1000000) : 1;
    timerfd_settime(timer.fd, 0, &when, nullptr);
}

zekSwpHandle create(uint32_t slot, uint32_t app, uint32_t peerApp, swpQueue queue) {
    uint32_t instance = slot == SLOT_NOT_GIVEN ? 0 : slot;
    if (queue.free == nullptr || queue.window == 0 || queues.size() >= SERIAL_MAX ||
        !addressIsKnown(chassisAddress(hostConf().chassis, peerApp, instance)))
        return ZEK_SWP_NONE;
    zekSwpHandle handle;
    do {
        lastSerial = lastSerial % SERIAL_MAX + 1;
        handle = (slot < SLOT_COUNT ? (slot + 1) << 25 : 0) | lastSerial;
    } while (queues.contains(handle));
    swpRecord& r = queues[handle];
    r.app = app;
    r.peerApp = peerApp;
    r.slot = slot;
    r.lanes.push_back(newLane(queue));
    return handle;
}

// The receiver's side. An answer that is lost is sent again, because the peer repeats its message.
template <class Answer>
int check(const void* message, zekSwpSeq* seen, Answer answer) {
    const auto* hdr = static_cast<const ipcHdr*>(message);
    if (hdr->session == 0) return ZEK_SWP_IN_ORDER;
    int verdict = swpReceive(seen, hdr->session, hdr->swpSeq);
    if (verdict == ZEK_SWP_IN_ORDER || verdict == ZEK_SWP_SEEN) answer(swpAnswerTo(*hdr));
    return verdict;
}

}  // namespace

int hostSwpTimerFd() {
    if (timer.fd < 0) timer = hostFd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    return timer.fd;
}

bool hostSwpNextTimeout(void* message) {
    uint64_t rings;
    if (read(hostSwpTimerFd(), &rings, sizeof(rings)) < 0 && armedFor > hostNowMs()) return false;
    uint64_t now = hostNowMs();
    bool found = anyLane([&](zekSwpHandle handle, swpRecord&, swpLane& lane) {
        if (due(lane) > now) return false;
        lane.raisedUntil = now + SWP_TIMEOUT_MS;
        ipcHdr hdr{};
        hdr.session = lane.queue.session;
        hdr.length = sizeof(hdr);
        hdr.mtype = MT_SWP_TIMEOUT;
        hdr.sequence = handle;
        memcpy(message, &hdr, sizeof(hdr));
        return true;
    });
    arm(true);  // rings at once when another queue is due
    return found;
}

void hostSwpReset() {
    while (!queues.empty()) zekSwpQueueRemove(queues.begin()->first);
    timer.reset();
    armedFor = SWP_NEVER;
}

zekSwpHandle zekSwpQueueCreate_p(uint32_t, uint32_t window, uint32_t app, uint32_t,
                                 uint32_t peerApp, zekSwpAlloc, zekSwpFree free,
                                 zekSwpPrint print) {
    swpQueue queue;
    queue.window = window;
    queue.free = free;
    queue.print = print;
    return create(SLOT_NOT_GIVEN, app, peerApp, queue);
}

zekSwpHandle zekSwpQueueCreate_p(uint32_t, uint32_t window, uint32_t repeats, uint32_t app,
                                 uint32_t, uint32_t, uint32_t peerApp, uint32_t slot, zekSwpAlloc,
                                 zekSwpFree free, zekSwpPrint print) {
    swpQueue queue;
    queue.owner = swpOwner::renews;
    queue.window = window;
    if (repeats != 0) queue.repeatsMax = repeats;
    queue.free = free;
    queue.print = print;
    return create(slot, app, peerApp, queue);
}

void zekSwpQueueRemove(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    if (r == nullptr) return;
    for (swpLane& lane : r->lanes) swpQueueFlush(&lane.queue, hostNowMs());
    queues.erase(queue);
    trim();
}

int zekSwpEnqueue(zekSwpHandle queue, void* message, size_t length) {
    swpRecord* r = find(queue);
    if (r == nullptr || message == nullptr || length < sizeof(ipcHdr)) return -1;
    swpLane* lane = laneFor(r, *static_cast<const ipcHdr*>(message));
    if (lane == nullptr) return -1;
    const bool taken = swpQueueEnqueue(&lane->queue, message, length, hostNowMs()) == 0;
    arm(false);
    if (taken) pace(lane);
    return taken ? 0 : -1;
}

bool zekSwpIsQueueAlive(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    return r == nullptr || std::ranges::all_of(r->lanes, [](const swpLane& lane) {
               return lane.queue.alive || lane.queue.owner == swpOwner::renews;
           });
}

bool zekSwpIsQueueEmpty(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    return r == nullptr || std::ranges::all_of(r->lanes, [](const swpLane& lane) {
               return lane.queue.backlog.empty();
           });
}

void zekSwpQueueFlush(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    if (r == nullptr) return;
    const bool alive = zekSwpIsQueueAlive(queue);
    for (swpLane& lane : r->lanes)
        if (alive || !lane.queue.alive) swpQueueFlush(&lane.queue, hostNowMs());
    arm(false);
    trim();
}

zekSwpState zekSwpQueueState(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    return r != nullptr ? r->lanes.front().queue.state : zekSwpState::inStep;
}

void zekSwpQueueLose(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    if (r == nullptr) return;
    swpQueueLose(&r->lanes.front().queue, hostNowMs());
    arm(false);
}

void zekSwpReplayBegin(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    if (r == nullptr) return;
    swpQueueReplayBegin(&r->lanes.front().queue);
    r->lanes.front().told = zekSwpState::inStep;
}

void zekSwpReplayEnd(zekSwpHandle queue) {
    if (swpRecord* r = find(queue)) swpQueueReplayEnd(&r->lanes.front().queue);
}

bool zekSwpNextEvent(zekSwpEvent* event) {
    trim();
    return anyLane([&](zekSwpHandle handle, swpRecord&, swpLane& lane) {
        if (lane.told == lane.queue.state) return false;
        const bool loss = lane.told == zekSwpState::inStep;
        lane.told = loss ? zekSwpState::lost : lane.queue.state;
        *event = {handle, lane.told};
        return true;
    });
}

int zekSwpGetTaskNamesFromQHandle(zekSwpHandle queue, char* own, char* peer, size_t size) {
    swpRecord* r = find(queue);
    if (r == nullptr || size == 0) return -1;
    snprintf(own, size, "%s", taskName(r->app).c_str());
    snprintf(peer, size, "%s", taskName(r->peerApp).c_str());
    return 0;
}

int zekSwpTimeout(const void* message) {
    const auto* hdr = static_cast<const ipcHdr*>(message);
    if (hdr->mtype != MT_SWP_TIMEOUT || hdr->length != sizeof(ipcHdr)) return SWP_E_MESSAGE;
    swpRecord* r = find(hdr->sequence);
    if (r == nullptr) return SWP_OK;
    auto lane = std::ranges::find_if(
        r->lanes, [&](const swpLane& l) { return l.queue.session == hdr->session; });
    // A queue that was flushed or removed since the timer rang has nothing to repeat: no error.
    if (lane == r->lanes.end()) return SWP_OK;
    lane->raisedUntil = 0;
    int error = swpQueueExpire(&lane->queue, hostNowMs());
    if (error == SWP_E_DEAD) deadText = "SWP peer does not answer: " + peerName(*r, *lane);
    arm(false);
    return error;
}

int zekSwpDequeue(const void* message, void** released) {
    *released = nullptr;
    const auto* hdr = static_cast<const ipcHdr*>(message);
    if (hdr->mtype != MT_SWP_ACK || hdr->length != sizeof(ipcHdr)) return SWP_E_MESSAGE;
    swpRecord* r;
    swpLane* lane = findAnswered(*hdr, &r);
    if (lane == nullptr) return SWP_E_QUEUE;
    const bool wasAlive = lane->queue.alive;
    int error = swpQueueAnswer(&lane->queue, hdr->session, hdr->swpSeq, hostNowMs(), released);
    if (!wasAlive && lane->queue.alive)
        zekSysErr(0, 0, SYSERR_SWP_PEER, 1,
                  ("SWP peer answers again: " + peerName(*r, *lane)).c_str());
    arm(false);
    return error;
}

const char* zekSwpGetErr(int code) {
    if (code == SWP_E_DEAD) return deadText.c_str();
    return code >= 0 && static_cast<size_t>(code) < std::size(errorTexts) ? errorTexts[code]
                                                                          : "unknown SWP error";
}

int zekSwpCkSeqAndAck(const void* message, zekSwpSeq* seen, uint32_t ownQueue) {
    return check(message, seen, [=](const ipcHdr& answer) {
        (void)zekIpcSend(ownQueue, &answer, sizeof(answer));
    });
}

int zekEndpointSwpAck(zekEndpoint* endpoint, const void* message, zekSwpSeq* seen) {
    zekSwpOwed owed{};
    int verdict = zekEndpointSwpTake(endpoint, message, seen, &owed);
    zekEndpointSwpAnswer(endpoint, &owed);
    return verdict;
}

int zekEndpointSwpTake(zekEndpoint* endpoint, const void* message, zekSwpSeq* seen,
                       zekSwpOwed* owed) {
    return check(message, seen, [=](const ipcHdr& answer) {
        const ipcHdr& old = owed->answer;
        bool same = owed->any && old.session == answer.session &&
                    old.source.card == answer.source.card && old.source.svce == answer.source.svce;
        if (same && static_cast<int32_t>(answer.swpSeq - old.swpSeq) < 0) return;
        if (!same) zekEndpointSwpAnswer(endpoint, owed);
        *owed = {true, answer};
    });
}

void zekEndpointSwpAnswer(zekEndpoint* endpoint, zekSwpOwed* owed) {
    constexpr int patienceMs = 200;
    if (owed->any) (void)zekEndpointSend(endpoint, &owed->answer, sizeof(ipcHdr), patienceMs);
    owed->any = false;
}

size_t zekSwpStatistics(std::span<zekSwpStats> out) {
    size_t n = 0;
    anyLane([&](zekSwpHandle handle, const swpRecord& r, const swpLane& lane) {
        const swpQueue& q = lane.queue;
        if (n < out.size())
            out[n] = {handle,
                      r.peerApp,
                      r.slot,
                      q.session,
                      lane.port >> 2 & 31,
                      static_cast<uint32_t>(q.backlog.size()),
                      q.bytes,
                      q.enqueued,
                      q.acknowledged,
                      q.repeated,
                      q.flushed,
                      q.refused,
                      q.timeouts,
                      q.alive,
                      q.state};
        n++;
        return false;
    });
    return n;
}
