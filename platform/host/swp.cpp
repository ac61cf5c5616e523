// The SWP queues of this task: handles, addresses, the timer, and the receiver's answers. The
// protocol itself is in swpqueue.cpp.
//
// A handle is ((slot + 1) << 25) | serial, the slot field 0 for a queue to no card.
#include "platform/api/zekSwp.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "include/service.h"
#include "platform/host/host.h"
#include "platform/host/swpqueue.h"

namespace {

constexpr uint32_t SERIAL_MAX = 0x3FFF;
constexpr uint32_t SLOT_NOT_GIVEN = 0xFFFFFFFF;

struct swpRecord {
    uint32_t app, peerApp, slot;
    // Where the messages go, as the last of them says: an answer must come from there.
    uint32_t peerCard = 0, peerPort = 0;
    uint64_t waitedMs = 0;     // for answers while a download was enqueued
    uint64_t raisedUntil = 0;  // a 401 is on its way to the dispatcher; not raised again before
    swpQueue queue;
};

std::map<zekSwpHandle, swpRecord> queues;
uint32_t lastSerial = 0;
hostFd timer;
uint64_t armedFor = SWP_NEVER;

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
    "SWP peer does not answer",
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

// The queue that an answer is for, or null. The low bits of a service tell the peer's queues apart;
// it may answer from either.
swpRecord* findAnswered(const ipcHdr& answer) {
    for (auto& [handle, r] : queues)
        if (r.queue.session == answer.session && r.peerCard == answer.target.card &&
            (r.peerPort & ~3u) == (answer.target.svce & ~3u))
            return &r;
    return nullptr;
}

// An answer that came while the task was sending. What is wrong with one is left to be found out by
// the repeats.
void takeAnswer(const ipcHdr& answer) {
    void* released;
    if (zekSwpDequeue(&answer, &released) != SWP_OK || released == nullptr) return;
    if (const swpRecord* r = findAnswered(answer)) r->queue.free(released);
}

// A long download would pile up in memory what its peer could have had by now, and memory that was
// never touched costs more than the peer. So a sender with much in front of it takes the answers
// that have come, and waits a little for a peer that is quick; a slow one gets the rest later.
void pace(swpRecord* r) {
    constexpr size_t plenty = 4, enough = 2;  // windows
    constexpr uint64_t patienceMs = 50;       // of one download in all
    swpQueue& q = r->queue;
    if (q.backlog.size() <= q.window) r->waitedMs = 0;
    if (q.backlog.size() < plenty * q.window) return;
    // An answer makes room for a window at most: with no patience left, one look a window is
    // enough.
    if (r->waitedMs >= patienceMs && q.enqueued % q.window != 0) return;
    for (bool answered = true; answered && q.backlog.size() > enough * q.window;)
        answered = hostTakeAnswers(takeAnswer, r->waitedMs < patienceMs ? 2 : 0, &r->waitedMs);
}

uint64_t due(const swpRecord& r) {
    return std::max(swpQueueDeadline(r.queue), r.raisedUntil);
}

// Sets the timer for the earliest deadline. Deadlines mostly move back as answers come in, so the
// timer is only touched when it would ring too late; a ring with nothing due costs one pass.
void arm(bool rung) {
    uint64_t first = SWP_NEVER;
    for (const auto& [handle, r] : queues) first = std::min(first, due(r));
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

size_t sendToPeer(std::span<const swpMessage> messages) {
    std::span<const uint8_t> bytes[SWP_SENT_AT_ONCE];
    for (size_t i = 0; i < messages.size(); i++)
        bytes[i] = std::span(messages[i].data, messages[i].length);
    return hostSendMany(std::span(bytes, messages.size()));
}

zekSwpHandle create(uint32_t slot, uint32_t window, uint32_t repeats, uint32_t app,
                    uint32_t peerApp, zekSwpFree free, zekSwpPrint print) {
    uint32_t instance = slot == SLOT_NOT_GIVEN ? 0 : slot;
    if (free == nullptr || window == 0 || queues.size() >= SERIAL_MAX ||
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
    r.queue.window = window;
    if (repeats != 0) r.queue.repeatsMax = repeats;
    r.queue.free = free;
    r.queue.print = print;
    r.queue.send = sendToPeer;
    // Peers may remember the session of a queue that an earlier process had: start anywhere.
    do r.queue.session = arc4random();
    while (r.queue.session == 0);
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
    bool found = false;
    for (auto& [handle, r] : queues) {
        if (due(r) > now) continue;
        r.raisedUntil = now + SWP_TIMEOUT_MS;
        ipcHdr hdr{};
        hdr.session = r.queue.session;
        hdr.length = sizeof(hdr);
        hdr.mtype = MT_SWP_TIMEOUT;
        hdr.sequence = handle;
        memcpy(message, &hdr, sizeof(hdr));
        found = true;
        break;
    }
    arm(true);  // rings at once when another queue is due
    return found;
}

void hostSwpReset() {
    for (auto& [handle, r] : queues) swpQueueFlush(&r.queue);
    queues.clear();
    timer.reset();
    armedFor = SWP_NEVER;
}

zekSwpHandle zekSwpQueueCreate_p(uint32_t, uint32_t window, uint32_t app, uint32_t,
                                 uint32_t peerApp, zekSwpAlloc, zekSwpFree free,
                                 zekSwpPrint print) {
    return create(SLOT_NOT_GIVEN, window, 0, app, peerApp, free, print);
}

zekSwpHandle zekSwpQueueCreate_p(uint32_t, uint32_t window, uint32_t repeats, uint32_t app,
                                 uint32_t, uint32_t, uint32_t peerApp, uint32_t slot, zekSwpAlloc,
                                 zekSwpFree free, zekSwpPrint print) {
    return create(slot, window, repeats, app, peerApp, free, print);
}

void zekSwpQueueRemove(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    if (r == nullptr) return;
    swpQueueFlush(&r->queue);
    queues.erase(queue);
}

int zekSwpEnqueue(zekSwpHandle queue, void* message, size_t length) {
    swpRecord* r = find(queue);
    if (r == nullptr || swpQueueEnqueue(&r->queue, message, length, hostNowMs()) != 0) return -1;
    const auto* hdr =
        wireView<ipcHdr>(std::span(static_cast<const uint8_t*>(message), sizeof(ipcHdr)));
    r->peerCard = hdr->source.card;
    r->peerPort = hdr->source.svce;
    arm(false);
    pace(r);
    return 0;
}

bool zekSwpIsQueueAlive(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    return r == nullptr || r->queue.alive;
}

bool zekSwpIsQueueEmpty(zekSwpHandle queue) {
    swpRecord* r = find(queue);
    return r == nullptr || r->queue.backlog.empty();
}

void zekSwpQueueFlush(zekSwpHandle queue) {
    if (swpRecord* r = find(queue)) swpQueueFlush(&r->queue);
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
    // A queue that was flushed or removed since the timer rang has nothing to repeat: no error.
    if (r == nullptr || r->queue.session != hdr->session) return SWP_OK;
    r->raisedUntil = 0;
    int error = swpQueueExpire(&r->queue, hostNowMs());
    arm(false);
    return error;
}

int zekSwpDequeue(const void* message, void** released) {
    *released = nullptr;
    const auto* hdr = static_cast<const ipcHdr*>(message);
    if (hdr->mtype != MT_SWP_ACK || hdr->length != sizeof(ipcHdr)) return SWP_E_MESSAGE;
    swpRecord* r = findAnswered(*hdr);
    if (r == nullptr) return SWP_E_QUEUE;
    int error = swpQueueAnswer(&r->queue, hdr->session, hdr->swpSeq, hostNowMs(), released);
    arm(false);
    return error;
}

const char* zekSwpGetErr(int code) {
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
    for (const auto& [handle, r] : queues) {
        if (n == out.size()) break;
        const swpQueue& q = r.queue;
        out[n++] = {handle,
                    r.peerApp,
                    r.slot,
                    q.session,
                    static_cast<uint32_t>(q.backlog.size()),
                    q.enqueued,
                    q.acknowledged,
                    q.repeated,
                    q.flushed,
                    q.refused,
                    q.timeouts,
                    q.alive};
    }
    return queues.size();
}
