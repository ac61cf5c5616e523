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
    if (!queue->alive || queue->backlog.empty()) {
        queue->answerDue = SWP_NEVER;
        return;
    }
    size_t end = std::min<size_t>(queue->window, queue->backlog.size());
    while (queue->cursor < end && queue->retryAt == SWP_NEVER) {
        size_t taken = sendFrom(queue, queue->cursor, end);
        queue->cursor += taken;
        queue->inFlight = std::max(queue->inFlight, queue->cursor);
        if (taken == 0) queue->retryAt = nowMs + SWP_FULL_RETRY_MS;
    }
    if (queue->answerDue == SWP_NEVER) queue->answerDue = nowMs + SWP_TIMEOUT_MS;
}

}  // namespace

int swpQueueEnqueue(swpQueue* queue, void* message, size_t length, uint64_t nowMs) {
    if (message == nullptr || length < sizeof(ipcHdr) || length > IPC_TRANSPORT_MAX ||
        queue->backlog.size() >= SWP_BACKLOG_MAX) {
        queue->refused++;
        return -1;
    }
    queue->backlog.push_back({static_cast<uint8_t*>(message), length});
    queue->enqueued++;
    pump(queue, nowMs);
    return 0;
}

int swpQueueAnswer(swpQueue* queue, uint32_t session, uint32_t seq, uint64_t nowMs,
                   void** released) {
    *released = nullptr;
    if (session != queue->session) return SWP_E_QUEUE;
    uint32_t ahead = seq - queue->firstSeq;
    if (static_cast<int32_t>(ahead) < 0) return SWP_OK;  // answered before
    if (ahead >= queue->inFlight) return SWP_E_SEQUENCE;
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
    pump(queue, nowMs);
    return SWP_OK;
}

int swpQueueExpire(swpQueue* queue, uint64_t nowMs) {
    if (nowMs >= queue->answerDue) {
        queue->timeouts++;
        queue->answerDue = nowMs + SWP_TIMEOUT_MS;
        if (++queue->repeats > queue->repeatsMax) {
            queue->alive = false;
            pump(queue, nowMs);
            return SWP_E_DEAD;
        }
        if (queue->repeats == 1 && queue->print != nullptr) queue->print("no answer from the peer");
        if (queue->cursor > 0) (void)sendFrom(queue, 0, 1);
    }
    pump(queue, nowMs);
    return SWP_OK;
}

void swpQueueFlush(swpQueue* queue) {
    for (const swpMessage& m : queue->backlog) queue->free(m.data);
    queue->flushed += queue->backlog.size();
    queue->backlog.clear();
    if (++queue->session == 0) queue->session = 1;
    queue->firstSeq = 1;
    queue->inFlight = queue->cursor = 0;
    queue->repeats = 0;
    queue->alive = true;
    queue->answerDue = queue->retryAt = SWP_NEVER;
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
