// Queues of endpoints: the protocol of swpqueue.h, sent from an endpoint.
#include "platform/api/zekEndpointQueue.h"

#include <cstdlib>

#include "platform/host/swpqueue.h"

namespace {

// A plain request has one word for its number: this much of it counts within a session.
constexpr uint32_t POSITION_BITS = 20;
constexpr uint32_t POSITION_MASK = (1u << POSITION_BITS) - 1;

}  // namespace

struct zekEndpointQueue {
    zekEndpoint* endpoint;
    zekQueueWay way;
    bool alone = false;
    swpQueue queue{};
};

namespace {

// What the socket has taken of these. A message that meets nobody counts as taken: the owner is
// told by `alone`, and does not wait for the repeats.
size_t sendAll(zekEndpointQueue* q, std::span<const swpMessage> messages) {
    for (size_t i = 0; i < messages.size(); i++) {
        auto* hdr = wireView<ipcHdr>(std::span(messages[i].data, messages[i].length));
        if (q->way == zekQueueWay::requests) {
            hdr->sequence = hdr->session << POSITION_BITS | (hdr->swpSeq & POSITION_MASK);
            hdr->session = 0;
            hdr->swpSeq = 0;
        }
        const zekSendResult sent =
            zekEndpointSend(q->endpoint, messages[i].data, messages[i].length, 0);
        if (sent == zekSendResult::full) return i;
        q->alone = sent == zekSendResult::nobody;
    }
    return messages.size();
}

// The session and position that an answer is about; false when it is none of this way.
bool readAnswer(const zekEndpointQueue& q, const ipcHdr& answer, uint32_t* session, uint32_t* seq) {
    if (q.way == zekQueueWay::swp) {
        *session = answer.session;
        *seq = answer.swpSeq;
        return answer.mtype == MT_SWP_ACK;
    }
    // The bits that the word has no room for are the present ones, or it answers an older session.
    constexpr uint32_t high = ~(~0u >> POSITION_BITS);
    *session = (q.queue.session & high) | answer.sequence >> POSITION_BITS;
    *seq = (q.queue.firstSeq & ~POSITION_MASK) | (answer.sequence & POSITION_MASK);
    return answer.mtype != MT_SWP_ACK && answer.session == 0;
}

// Whoever is not there has lost it.
void loseIfAlone(zekEndpointQueue* q, uint64_t nowMs) {
    if (q->alone) swpQueueLose(&q->queue, nowMs);
}

}  // namespace

zekEndpointQueue* zekEndpointQueueMake(zekEndpoint* endpoint, zekQueueWay way, uint32_t window,
                                       uint32_t repeats) {
    auto* q = new zekEndpointQueue{endpoint, way};
    q->queue.owner = swpOwner::renews;
    q->queue.window = way == zekQueueWay::requests ? 1 : window;
    q->queue.repeatsMax = repeats;
    q->queue.free = std::free;
    q->queue.send = [q](std::span<const swpMessage> messages) { return sendAll(q, messages); };
    // Peers may remember the session of a queue that an earlier process had: start anywhere.
    do q->queue.session = arc4random();
    while (q->queue.session == 0);
    return q;
}

void zekEndpointQueueFree(zekEndpointQueue* queue) {
    if (queue == nullptr) return;
    swpQueueFlush(&queue->queue, 0);
    delete queue;
}

uint32_t zekEndpointQueueSend(zekEndpointQueue* queue, std::span<const uint8_t> message,
                              uint64_t nowMs) {
    void* copy = std::malloc(message.size());
    if (copy == nullptr) {
        swpQueueLose(&queue->queue, nowMs);
        return 0;
    }
    std::memcpy(copy, message.data(), message.size());
    if (swpQueueEnqueue(&queue->queue, copy, message.size(), nowMs) != 0) {
        std::free(copy);
        return 0;
    }
    const uint32_t position = zekEndpointQueueNewest(queue);
    loseIfAlone(queue, nowMs);
    return queue->queue.state == zekSwpState::inStep ? position : 0;
}

bool zekEndpointQueueAnswer(zekEndpointQueue* queue, const ipcHdr& answer, uint64_t nowMs) {
    uint32_t session, seq;
    if (!readAnswer(*queue, answer, &session, &seq) || session != queue->queue.session)
        return false;
    void* released = nullptr;
    const int result = swpQueueAnswer(&queue->queue, session, seq, nowMs, &released);
    std::free(released);
    loseIfAlone(queue, nowMs);
    return result == SWP_OK;
}

uint64_t zekEndpointQueueTick(zekEndpointQueue* queue, uint64_t nowMs) {
    if (swpQueueDeadline(queue->queue) <= nowMs) {
        (void)swpQueueExpire(&queue->queue, nowMs);
        loseIfAlone(queue, nowMs);
    }
    return swpQueueDeadline(queue->queue);
}

zekSwpState zekEndpointQueueState(const zekEndpointQueue* queue) {
    return queue->queue.state;
}
bool zekEndpointQueueIsAlone(const zekEndpointQueue* queue) {
    return queue->alone;
}
uint32_t zekEndpointQueueNewest(const zekEndpointQueue* queue) {
    return queue->queue.firstSeq + static_cast<uint32_t>(queue->queue.backlog.size()) - 1;
}
uint32_t zekEndpointQueueAnswered(const zekEndpointQueue* queue) {
    return queue->queue.firstSeq - 1;
}
void zekEndpointQueueReplayBegin(zekEndpointQueue* queue) {
    swpQueueReplayBegin(&queue->queue);
    queue->alone = false;
}
void zekEndpointQueueReplayEnd(zekEndpointQueue* queue) {
    swpQueueReplayEnd(&queue->queue);
}
