#include "platform/host/swpqueue.h"

#include <algorithm>

#include "include/service.h"

namespace {

// Sessions that a sender has given up count up by one; a few steps back is a leftover on its way,
// anything else a sender that has started anew.
constexpr uint32_t STALE_SESSIONS = 16;

// Sends messages of the backlog, as many as go at once: how many the socket has taken.
size_t sendFrom(swpQueue* queue, size_t from, size_t end) {
    swpMessage batch[SWP_SENT_AT_ONCE];
    size_t count = std::min(end - from, SWP_SENT_AT_ONCE);
    for (size_t i = 0; i < count; i++) {
        batch[i] = queue->backlog[from + i];
        auto* hdr = wireView<ipcHdr>(std::span(batch[i].data, batch[i].length));
        hdr->session = queue->session;
        hdr->swpSeq = queue->firstSeq + static_cast<uint32_t>(from + i);
    }
    size_t taken = queue->send(std::span(batch, count));
    queue->repeated += std::min(from + taken, std::max(from, queue->inFlight)) - from;
    return taken;
}

// Sends what the window allows. The time-out of a message runs from its turn, sent or not: a peer
// whose socket stays full is as dead as one that does not answer.
void pump(swpQueue* queue, uint64_t nowMs) {
    queue->retryAt = SWP_NEVER;
    if (queue->backlog.empty()) {
        queue->answerDue = SWP_NEVER;
        const bool replaying = queue->messagesMax == 0;
        if (queue->state == zekSwpState::inStep && !replaying) queue->renewWaitMs = 0;
        return;
    }
    if (!queue->alive || queue->state != zekSwpState::inStep) return;
    size_t end = std::min<size_t>(queue->window, queue->backlog.size());
    while (queue->cursor < end && queue->retryAt == SWP_NEVER) {
        size_t taken = sendFrom(queue, queue->cursor, end);
        queue->cursor += taken;
        queue->inFlight = std::max(queue->inFlight, queue->cursor);
        if (taken == 0) queue->retryAt = nowMs + SWP_FULL_RETRY_MS;
    }
    if (queue->answerDue == SWP_NEVER) queue->answerDue = nowMs + SWP_TIMEOUT_MS;
}

// Frees the messages from this one to the end.
void freeFrom(swpQueue* queue, size_t from) {
    for (size_t i = from; i < queue->backlog.size(); i++) {
        queue->bytes -= queue->backlog[i].length;
        queue->free(queue->backlog[i].data);
        queue->flushed++;
    }
    queue->backlog.resize(from);
}

void newSession(swpQueue* queue) {
    if (++queue->session == 0) queue->session = 1;
    queue->firstSeq = 1;
    queue->inFlight = queue->cursor = 0;
}

// The queue is as at the start of a session, with nothing in it.
void startOver(swpQueue* queue) {
    freeFrom(queue, 0);
    newSession(queue);
    queue->repeats = 0;
    queue->alive = true;
    queue->answerDue = queue->retryAt = SWP_NEVER;
}

bool isOverBound(const swpQueue& queue, size_t length) {
    return (queue.messagesMax != 0 && queue.backlog.size() >= queue.messagesMax) ||
           (queue.bytesMax != 0 && queue.bytes + length > queue.bytesMax);
}

// The owner is told of a loss at once, and to renew the queue when the peer has been heard; when
// losses follow each other, at longer and longer intervals.
void markLost(swpQueue* queue, uint64_t nowMs) {
    queue->state = zekSwpState::lost;
    queue->heard = queue->backlog.empty();
    queue->renewFrom = nowMs + queue->renewWaitMs;
    queue->renewWaitMs = std::clamp(2 * queue->renewWaitMs, SWP_RENEW_MIN_MS, SWP_RENEW_MAX_MS);
    queue->retryAt = SWP_NEVER;
}

// The peer has used up its repeats.
void die(swpQueue* queue, uint64_t nowMs) {
    queue->alive = false;
    if (queue->owner == swpOwner::renews)
        swpQueueLose(queue, nowMs);
    else
        newSession(queue);
    queue->answerDue = nowMs + SWP_PROBE_MS;
}

// An answer to a lost queue says that the peer is there, and nothing else of interest.
int answerToLost(swpQueue* queue, void** released) {
    queue->heard = true;
    queue->repeats = 0;
    queue->alive = true;
    queue->answerDue = SWP_NEVER;
    if (queue->backlog.empty()) return SWP_OK;
    *released = queue->backlog.front().data;
    queue->backlog.clear();
    queue->bytes = 0;
    queue->inFlight = queue->cursor = 0;
    queue->flushed++;
    return SWP_OK;
}

}  // namespace

int swpQueueEnqueue(swpQueue* queue, void* message, size_t length, uint64_t nowMs) {
    const bool possible =
        message != nullptr && length >= sizeof(ipcHdr) && length <= IPC_TRANSPORT_MAX;
    const bool over = possible && isOverBound(*queue, length);
    if (over) swpQueueLose(queue, nowMs);
    if (!possible || over || !queue->alive || queue->state != zekSwpState::inStep) {
        queue->refused++;
        return -1;
    }
    queue->backlog.push_back({static_cast<uint8_t*>(message), length});
    queue->bytes += length;
    queue->replayMessages++;
    queue->replayBytes += length;
    queue->enqueued++;
    pump(queue, nowMs);
    return 0;
}

int swpQueueAnswer(swpQueue* queue, uint32_t session, uint32_t seq, uint64_t nowMs,
                   void** released) {
    *released = nullptr;
    if (session != queue->session)  // a leftover of a session that was given up says nothing
        return queue->session - session <= STALE_SESSIONS ? SWP_OK : SWP_E_QUEUE;
    if (queue->state != zekSwpState::inStep) return answerToLost(queue, released);
    uint32_t ahead = seq - queue->firstSeq;
    if (static_cast<int32_t>(ahead) < 0) return SWP_OK;  // answered before
    if (ahead >= queue->inFlight) return SWP_E_SEQUENCE;
    for (uint32_t i = 0; i <= ahead; i++) queue->bytes -= queue->backlog[i].length;
    for (uint32_t i = 0; i < ahead; i++) queue->free(queue->backlog[i].data);
    *released = queue->backlog[ahead].data;
    queue->backlog.erase(queue->backlog.begin(), queue->backlog.begin() + ahead + 1);
    queue->firstSeq = seq + 1;
    queue->inFlight -= ahead + 1;
    queue->cursor -= std::min<size_t>(queue->cursor, ahead + 1);
    queue->acknowledged += ahead + 1;
    queue->answerDue = SWP_NEVER;
    if (queue->repeats != 0) queue->cursor = 0;
    queue->repeats = 0;
    queue->alive = true;
    pump(queue, nowMs);
    return SWP_OK;
}

int swpQueueExpire(swpQueue* queue, uint64_t nowMs) {
    if (queue->state == zekSwpState::lost && queue->heard && nowMs >= queue->renewFrom)
        queue->state = zekSwpState::answered;
    if (nowMs >= queue->answerDue) {
        queue->timeouts++;
        queue->repeats++;
        if (queue->alive && queue->repeats > queue->repeatsMax) {
            die(queue, nowMs);
            return SWP_E_DEAD;
        }
        const bool probe = !queue->alive || queue->state != zekSwpState::inStep;
        queue->answerDue = nowMs + (probe ? SWP_PROBE_MS : SWP_TIMEOUT_MS);
        if (queue->repeats == 1 && queue->print != nullptr) queue->print("no answer from the peer");
        if (probe && sendFrom(queue, 0, 1) != 0) queue->cursor = queue->inFlight = 1;
        if (!probe && queue->cursor > 0) (void)sendFrom(queue, 0, 1);
    }
    pump(queue, nowMs);
    return SWP_OK;
}

void swpQueueFlush(swpQueue* queue, uint64_t nowMs) {
    const bool loses = queue->owner == swpOwner::renews && !queue->backlog.empty() &&
                       queue->state == zekSwpState::inStep;
    startOver(queue);
    if (loses) markLost(queue, nowMs);
}

void swpQueueLose(swpQueue* queue, uint64_t nowMs) {
    if (queue->owner != swpOwner::renews || queue->state != zekSwpState::inStep) return;
    if (queue->backlog.size() > 1) freeFrom(queue, 1);
    queue->inFlight = queue->cursor = std::min<size_t>(queue->inFlight, 1);
    markLost(queue, nowMs);
}

void swpQueueReplayBegin(swpQueue* queue) {
    startOver(queue);
    queue->state = zekSwpState::inStep;
    queue->replayMessages = queue->replayBytes = 0;
    queue->messagesMax = queue->bytesMax = 0;
}

void swpQueueReplayEnd(swpQueue* queue) {
    queue->messagesMax = std::max(SWP_BACKLOG_MAX, queue->replayMessages);
    queue->bytesMax = std::max(SWP_BYTES_MAX, queue->replayBytes);
}

int swpReceive(zekSwpSeq* seen, uint32_t session, uint32_t seq) {
    if (session != seen->session) {
        if (seen->session != 0 && seen->session - session <= STALE_SESSIONS) return SWP_STALE;
        if (seq != 1) return SWP_MIDDLE;
        *seen = {session, 2};
        return ZEK_SWP_IN_ORDER;
    }
    auto ahead = static_cast<int32_t>(seq - seen->next);
    if (ahead != 0) return ahead < 0 ? ZEK_SWP_SEEN : SWP_GAP;
    seen->next++;
    return ZEK_SWP_IN_ORDER;
}

ipcHdr swpAnswerTo(const ipcHdr& data) {
    ipcHdr answer{};
    answer.session = data.session;
    answer.swpSeq = data.swpSeq;
    answer.length = sizeof(ipcHdr);
    answer.mtype = MT_SWP_ACK;
    answer.sequence = data.sequence;
    answer.target = data.source;
    answer.source = data.target;
    // A task names its response queue as the sender, but takes answers on its request queue.
    // Processes without an application number have the one queue that their number names.
    uint32_t port = data.target.svce;
    if (port < SERVICE_DYNAMIC_BASE) answer.source.svce = (port & ~3u) | QUEUE_REQUEST;
    return answer;
}
