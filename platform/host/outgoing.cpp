// What leaves the task, and when.
//
//   send -> held (until the configuration changes before it are durable)
//        -> backlog of its addressee (while the receiver's queue is full) -> socket
//
// Both keep the order. Held answers leave together after one commit, so that requests that wait
// together share its cost. While nothing can be committed, only what a change has to answer for
// stays held, for as long as that lasts; everything else leaves. The task never waits for a
// receiver. Every addressee has a backlog of its own, bounded in messages and bytes: what comes
// when it is full is dropped and counted, and nobody else's is. What all have together is bounded
// as well; then the largest backlog loses its oldest. A receiver that has taken nothing for a
// minute loses its backlog.
#include <deque>
#include <map>

#include "include/ipc.h"
#include "platform/base/cfgdb.h"
#include "platform/host/host.h"

namespace {

constexpr size_t HELD_MAX = 64;  // answers that one commit serves at most
constexpr size_t HELD_BYTES_MAX = 4u << 20;
constexpr size_t BACKLOG_MAX = 4096;              // messages to one addressee
constexpr size_t BACKLOG_BYTES_MAX = 8u << 20;    // to one; a message larger than that goes alone
constexpr size_t BACKLOGS_BYTES_MAX = 64u << 20;  // to all
constexpr uint64_t COMMIT_RETRY_MS = 250;

typedef std::vector<uint8_t> bytes;
struct waitingQueue {
    std::deque<bytes> messages;
    size_t bytesWaiting = 0;
    uint64_t takenAt = 0;  // when the receiver last took one, or the first came
};
typedef std::pair<uint32_t, uint32_t> addressee;  // card, port

struct heldMessage {
    bytes message;
    bool promises;  // a change that is not durable yet
};
std::deque<heldMessage> held;
size_t heldBytes = 0;
std::map<addressee, waitingQueue> backlog;
size_t backlogBytes = 0;  // of all
bool commitFails = false;
uint64_t commitRetryAt = 0;
uint64_t changesBefore = 0;  // the request that is being served

hostCommit ownCommit;

bool isDirty() {
    if (ownCommit.dirty) return ownCommit.dirty();
    zekCfgDb* db = zekCfgOfTask();
    return db != nullptr && zekCfgIsDirty(db);
}

int commit() {
    return ownCommit.commit ? ownCommit.commit() : zekCfgCommit(zekCfgOfTask());
}

addressee addresseeOf(const void* message, size_t length) {
    const auto* hdr = wireView<ipcHdr>(std::span(static_cast<const uint8_t*>(message), length));
    return {hdr->source.card, hdr->source.svce};
}

void leaveBacklog(waitingQueue* queue) {
    const size_t size = queue->messages.front().size();
    queue->bytesWaiting -= size;
    backlogBytes -= size;
    queue->messages.pop_front();
}

void dropOldest(waitingQueue* queue) {
    hostIpcStats().dropped++;
    leaveBacklog(queue);
}

int enterBacklog(waitingQueue* queue, bytes message) {
    const size_t size = message.size();
    if (queue->messages.size() >= BACKLOG_MAX) return -1;
    if (!queue->messages.empty() && queue->bytesWaiting + size > BACKLOG_BYTES_MAX) return -1;
    if (queue->messages.empty()) queue->takenAt = hostNowMs();
    queue->messages.push_back(std::move(message));
    queue->bytesWaiting += size;
    backlogBytes += size;
    // An addressee that has most loses first; one message is always left to each.
    while (backlogBytes > BACKLOGS_BYTES_MAX) {
        waitingQueue* largest = queue;
        for (auto& [to, other] : backlog)
            if (other.bytesWaiting > largest->bytesWaiting) largest = &other;
        if (largest->messages.size() <= 1) break;
        dropOldest(largest);
    }
    return 0;
}

// To the socket, or behind what already waits for this addressee.
int dispatch(const void* message, size_t length) {
    addressee to = addresseeOf(message, length);
    const auto* front = static_cast<const uint8_t*>(message);
    hostRequestAnswered({front, length});
    auto waiting = backlog.find(to);
    if (waiting != backlog.end())
        return enterBacklog(&waiting->second, bytes(front, front + length));
    switch (hostSendNow(message, length)) {
        case zekSendResult::sent:
            return 0;
        case zekSendResult::full:
            if (enterBacklog(&backlog[to], bytes(front, front + length)) == 0) return 0;
            backlog.erase(to);
            return -1;
        default:
            return -1;
    }
}

uint64_t changesNow() {
    if (ownCommit.dirty) return ownCommit.changes ? ownCommit.changes() : 0;
    zekCfgDb* db = zekCfgOfTask();
    return db != nullptr ? cfgDbChanges(db) : 0;
}

void dispatchHeld(const heldMessage& m) {
    heldBytes -= m.message.size();
    if (dispatch(m.message.data(), m.message.size()) != 0) hostIpcStats().dropped++;
}

void commitFailed() {
    commitRetryAt = hostNowMs() + COMMIT_RETRY_MS;
    commitFails = true;
    std::deque<heldMessage> all;
    std::swap(all, held);
    for (heldMessage& m : all)
        if (m.promises)
            held.push_back(std::move(m));
        else
            dispatchHeld(m);
}

}  // namespace

void hostSetCommit(hostCommit c) {
    ownCommit = std::move(c);
}

zekSendResult hostSendNow(const void* message, size_t length) {
    zekEndpoint* endpoint = hostEndpoint();
    if (endpoint == nullptr) return zekSendResult::failed;
    zekSendResult result = zekEndpointSend(endpoint, message, length, 0);
    if (result == zekSendResult::sent) hostIpcStats().sent++;
    return result;
}

size_t hostSendMany(std::span<const std::span<const uint8_t>> messages) {
    zekEndpoint* endpoint = hostEndpoint();
    for (size_t done = 0; done < messages.size();) {
        size_t taken = 0;
        zekSendResult result = endpoint != nullptr
                                   ? hostEndpointSendMany(endpoint, messages.subspan(done), &taken)
                                   : zekSendResult::failed;
        if (result == zekSendResult::full) return done;
        hostIpcStats().sent += taken;
        done += std::max<size_t>(taken, 1);
    }
    return messages.size();
}

void hostRequestBegins() {
    changesBefore = changesNow();
}

int hostSend(const void* message, size_t length) {
    if (hostTakeOwnAnswer(message, length)) return 0;
    int result = -1;
    const bool promises = changesNow() != changesBefore;
    if (commitFails ? !promises : held.empty() && !isDirty()) {
        result = dispatch(message, length);
    } else {
        // A message to nobody fails here and not at the flush, where no one would learn of it.
        addressee to = addresseeOf(message, length);
        if (hostEndpointPeerFd(hostEndpoint(), to.first, to.second) >= 0) {
            const auto* front = static_cast<const uint8_t*>(message);
            held.push_back({bytes(front, front + length), promises});
            heldBytes += length;
            hostRequestHeldBack(*wireView<ipcHdr>(std::span(front, length)));
            hostIpcStats().heldBack++;
            result = 0;
        }
    }
    if (result != 0) hostIpcStats().sendFailed++;
    return result;
}

bool hostFlushIsDue() {
    return !held.empty() || isDirty();
}
bool hostHeldIsFull() {
    return held.size() >= HELD_MAX || heldBytes >= HELD_BYTES_MAX;
}

void hostFlush() {
    if (commitFails && hostNowMs() < commitRetryAt) return;
    if (isDirty() && commit() != 0) return commitFailed();
    commitFails = false;
    for (; !held.empty(); held.pop_front()) dispatchHeld(held.front());
    heldBytes = 0;
}

void hostServeBacklog() {
    for (auto it = backlog.begin(); it != backlog.end();) {
        waitingQueue& queue = it->second;
        while (!queue.messages.empty()) {
            const bytes& message = queue.messages.front();
            const zekSendResult result = hostSendNow(message.data(), message.size());
            const uint64_t now = hostNowMs();
            if (result == zekSendResult::full) {
                if (now - queue.takenAt < hostConf().backlogPatienceMs) break;
                while (!queue.messages.empty()) dropOldest(&queue);
            } else if (result == zekSendResult::sent) {
                queue.takenAt = now;
                leaveBacklog(&queue);
            } else {
                dropOldest(&queue);
            }
        }
        it = queue.messages.empty() ? backlog.erase(it) : std::next(it);
    }
}

int hostOutgoingWaitMs() {
    uint64_t now = hostNowMs(), until = UINT64_MAX;
    if (commitFails) until = commitRetryAt;
    for (const auto& [to, queue] : backlog)
        until = std::min(until, queue.takenAt + hostConf().backlogPatienceMs);
    if (until == UINT64_MAX) return -1;
    return until <= now ? 0 : static_cast<int>(until - now);
}

void hostOutgoingPoll(std::vector<pollfd>* fds) {
    for (const auto& [to, queue] : backlog) {
        int fd = hostEndpointPeerFd(hostEndpoint(), to.first, to.second);
        if (fd >= 0) fds->push_back({fd, POLLOUT, 0});
    }
}

void hostOutgoingReset() {
    held.clear();
    backlog.clear();
    heldBytes = backlogBytes = 0;
    commitFails = false;
}
