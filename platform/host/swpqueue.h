// The two ends of SWP as plain state: no sockets, no clock, no handles. swp.cpp drives the sender
// with the task's transport, a test with a network of its own.
//
//   backlog:  [ sent, unanswered: at most `window` | waiting for their turn ]
//               ^ firstSeq
//
// A receiver takes only the next number, so the answer to a number releases everything before it
// too. A lost message therefore costs one time-out: its repeat's answer shows that the peer is
// back, and what was sent behind it, and was thrown away there, goes again at once.
//
// A peer that has used up its repeats is tried on, slowly, for ever. What becomes of the messages
// meanwhile depends on the queue's owner:
//   keeps:   nobody looks after the queue. Its messages stay, numbered for a new session, because
//            a peer that has started anew knows nothing of the old one; new ones are refused.
//   renews:  the owner can make everything again. All messages go at once but the oldest, which is
//            repeated in its own session: a peer that was only slow answers it, and one that has
//            started anew registers. The same happens past the bound, when a message could not be
//            made, and at a flush; the owner starts the queue over when the peer has answered.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>

#include "include/ipc.h"
#include "platform/api/zekSwp.h"

constexpr size_t SWP_BACKLOG_MAX = 65536;     // messages, the window's included
constexpr size_t SWP_BYTES_MAX = 16u << 20;   // in them
constexpr uint64_t SWP_TIMEOUT_MS = 250;      // until the oldest unanswered message is repeated
constexpr uint64_t SWP_PROBE_MS = 1000;       // between two tries of a peer that has given none
constexpr uint64_t SWP_RENEW_MIN_MS = 250;    // from a loss to the renewal after the one before,
constexpr uint64_t SWP_RENEW_MAX_MS = 16000;  // doubled from loss to loss up to this
constexpr uint64_t SWP_FULL_RETRY_MS = 5;  // until a message that met a full socket is tried again
constexpr size_t SWP_SENT_AT_ONCE = 16;    // messages that send() is given at most
constexpr uint64_t SWP_NEVER = UINT64_MAX;

enum swpError : int {
    SWP_OK = 0,
    SWP_E_MESSAGE = 1,   // not a message of this type and length
    SWP_E_QUEUE = 2,     // no such queue
    SWP_E_SEQUENCE = 3,  // answers what was never sent
    SWP_E_DEAD = 4,      // the peer has not answered the last repeat
};

// Receiver's results beside ZEK_SWP_IN_ORDER and ZEK_SWP_SEEN.
constexpr int SWP_GAP = 7;     // a number before this one is missing
constexpr int SWP_MIDDLE = 8;  // a session that we have not seen the start of
constexpr int SWP_STALE = 9;   // left over from a session that its sender has given up

struct swpMessage {
    uint8_t* data;  // the queue's
    size_t length;
};

enum class swpOwner : uint8_t { keeps, renews };

struct swpQueue {
    swpOwner owner = swpOwner::keeps;
    uint32_t window = 10;
    uint32_t repeatsMax = 40;  // time-outs in a row until the queue counts as dead
    size_t messagesMax = SWP_BACKLOG_MAX, bytesMax = SWP_BYTES_MAX;  // 0: no bound
    // Sends the messages in their order and does not wait: how many the socket has taken. What a
    // peer that is not there should have got counts as taken, and lost like any other message.
    std::function<size_t(std::span<const swpMessage>)> send;
    zekSwpFree free = nullptr;
    zekSwpPrint print = nullptr;

    uint32_t session = 1;
    uint32_t firstSeq = 1;  // of backlog.front()
    std::deque<swpMessage> backlog;
    size_t bytes = 0;      // in the backlog
    size_t inFlight = 0;   // from the front: sent at least once, not answered
    size_t cursor = 0;     // next to be sent; below inFlight while messages are sent again
    uint32_t repeats = 0;  // time-outs since the last answer
    bool alive = true;
    zekSwpState state = zekSwpState::inStep;
    bool heard = false;        // lost: the peer has answered since, or had nothing to answer
    uint64_t renewFrom = 0;    // lost: not answered before
    uint64_t renewWaitMs = 0;  // after the next loss
    size_t replayMessages = 0, replayBytes = 0;  // enqueued since the replay began
    uint64_t answerDue = SWP_NEVER;              // when the front counts as timed out
    uint64_t retryAt = SWP_NEVER;                // when a full socket is tried again

    uint64_t enqueued = 0, acknowledged = 0, repeated = 0, flushed = 0, refused = 0, timeouts = 0;
};

// Takes the message over and sends what the window allows. -1 (the message stays the caller's) when
// the length is impossible, the peer dead, the queue lost, or the bound passed, which loses a queue
// that is renewed.
int swpQueueEnqueue(swpQueue* queue, void* message, size_t length, uint64_t nowMs);
// An answer. *released is the message that it answers, the caller's from now on; older ones are
// freed. Repeated answers release nothing.
int swpQueueAnswer(swpQueue* queue, uint32_t session, uint32_t seq, uint64_t nowMs,
                   void** released);
// When swpQueueExpire is due.
inline uint64_t swpQueueDeadline(const swpQueue& queue) {
    const bool renew = queue.state == zekSwpState::lost && queue.heard;
    return std::min({queue.answerDue, queue.retryAt, renew ? queue.renewFrom : SWP_NEVER});
}
// Repeats the oldest message when its time is up, and sends what a full socket held up. SWP_E_DEAD
// when the peer has now used up its repeats.
int swpQueueExpire(swpQueue* queue, uint64_t nowMs);
// Frees everything and starts a new session; one that is renewed is lost when there was anything.
void swpQueueFlush(swpQueue* queue, uint64_t nowMs);
// Gives up everything but the oldest message, of a queue that is renewed.
void swpQueueLose(swpQueue* queue, uint64_t nowMs);
// A replay, from an empty queue and a new session on: without a bound, which follows from it.
void swpQueueReplayBegin(swpQueue* queue);
void swpQueueReplayEnd(swpQueue* queue);

// The receiver's verdict on one message; 0 and 6 are to be answered.
int swpReceive(zekSwpSeq* seen, uint32_t session, uint32_t seq);
// The 402 for a received data message.
ipcHdr swpAnswerTo(const ipcHdr& data);
