// SWP: reliable queues to one peer each, over IPC.
//
// A data message carries a session number (header word 0, non-zero, new each time a queue starts
// over) and a sequence number (word 4, from 1). The receiver answers each with a message of type
// 402 that carries both words; an answer stands for every earlier number of its session too. The
// sender keeps a backlog and a window, repeats the oldest unanswered message on time-out (type 401
// on the timer queue) and calls the peer dead after a stated number of repeats. The time-out is
// 250 ms; 40 of them in a row make a peer dead when the queue's creator states no number. A dead
// peer is tried once a second, for ever, and the queue starts a new session when it answers.
// The backlog holds 65,536 messages, the window's included, and 16 MB.
//
// There are two kinds of queues:
//
// The first form of zekSwpQueueCreate_p makes one that nobody looks after. While its peer is dead
// it keeps what it has taken, and delivers it when the peer answers (what the peer had already
// taken then comes twice); it refuses new messages. Each instance of the peer application that
// messages are addressed to has a session of its own.
//
// The second form makes one whose owner can make everything again: agents, and tasks that keep
// copies. When a message is lost (past the bound, by a dead peer, at a flush, or because the owner
// could not make it) the queue gives all of them up at once and is `lost`; when its peer answers
// it is `answered`, and the owner starts it over with a replay. Until then it refuses messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

typedef uint32_t zekSwpHandle;
constexpr zekSwpHandle ZEK_SWP_NONE = 0xFFFFFFFF;

typedef void* (*zekSwpAlloc)(size_t size);
typedef void (*zekSwpFree)(void* block);
typedef void (*zekSwpPrint)(const char* text);

// The pipe that wakes the task for work handed to its thread (the debug shell). Descriptor or -1.
[[nodiscard]] int zekSwpCreatePipe(const char* path);
int zekSwpReadPipe(int pipe);

// A queue from this task to a peer application at start-up: severity of its errors, window, own
// application, own IPC key, peer application. The print call-back is called when the peer has not
// answered in time. Handle, or ZEK_SWP_NONE when the peer is not known or memory is short.
[[nodiscard]] zekSwpHandle zekSwpQueueCreate_p(uint32_t severity, uint32_t window, uint32_t app,
                                               uint32_t ipcKey, uint32_t peerApp, zekSwpAlloc alloc,
                                               zekSwpFree free, zekSwpPrint print);
// The same to a task of a card: flags, window, repeats until the queue counts as dead, own
// application and instance, own request queue, peer application, slot.
[[nodiscard]] zekSwpHandle zekSwpQueueCreate_p(uint32_t flags, uint32_t window, uint32_t repeats,
                                               uint32_t app, uint32_t instance, uint32_t ownQueue,
                                               uint32_t peerApp, uint32_t slot, zekSwpAlloc alloc,
                                               zekSwpFree free, zekSwpPrint print);
// Frees the queue and all messages in it.
void zekSwpQueueRemove(zekSwpHandle queue);

// Hands a message (from the queue's allocator) over: it belongs to the queue on success. 0 or -1
// (unknown queue, backlog full, peer dead, queue lost, impossible length; the message is still the
// caller's).
int zekSwpEnqueue(zekSwpHandle queue, void* message, size_t length);
// False when a flush would help: a queue that nobody looks after has a dead peer. Unknown: alive.
[[nodiscard]] bool zekSwpIsQueueAlive(zekSwpHandle queue);
[[nodiscard]] bool zekSwpIsQueueEmpty(zekSwpHandle queue);  // nothing unanswered; unknown: empty
// Gives up the messages and starts a new session; of dead peers only, where one is dead.
void zekSwpQueueFlush(zekSwpHandle queue);

// Queues of the second form. Others, and unknown ones, are always in step.
enum class zekSwpState : uint8_t { inStep, lost, answered };
[[nodiscard]] zekSwpState zekSwpQueueState(zekSwpHandle queue);
// The owner could not make a message: the queue is lost.
void zekSwpQueueLose(zekSwpHandle queue);
// Around a replay: the queue is emptied, starts a new session and is in step. What is enqueued up
// to the end has no bound; what it came to is the bound from then on when that is more.
void zekSwpReplayBegin(zekSwpHandle queue);
void zekSwpReplayEnd(zekSwpHandle queue);
// What the owner has not been told yet: each loss once, each answer after it once. When losses
// follow each other, the answers are told 0.25 s after the loss, then 0.5 s, up to 16 s. For the
// task's loop: nothing is ever called back from within the other calls.
struct zekSwpEvent {
    zekSwpHandle queue;
    zekSwpState state;  // lost or answered
};
bool zekSwpNextEvent(zekSwpEvent* event);
int zekSwpGetTaskNamesFromQHandle(zekSwpHandle queue, char* own, char* peer, size_t size);

// The sender's side of messages 401 and 402. zekSwpTimeout: 0 or an error code for zekSwpGetErr.
// zekSwpDequeue: 0 and the message that the acknowledgement releases in *released (null when it
// releases none), to be freed with the queue's allocator by the caller.
int zekSwpTimeout(const void* message);
int zekSwpDequeue(const void* message, void** released);
[[nodiscard]] const char* zekSwpGetErr(int code);

// The receiver's side: what was seen of one sender. Zero-initialise.
struct zekSwpSeq {
    uint32_t session;
    uint32_t next;
};
constexpr int ZEK_SWP_IN_ORDER = 0;
constexpr int ZEK_SWP_SEEN = 6;
// Checks a received message's session and sequence against *seen and answers it with type 402 on
// the queue given. 0 in order, 6 seen before (answered again), other values: not in order, not
// answered. A message outside SWP (session 0) is in order and not answered.
int zekSwpCkSeqAndAck(const void* message, zekSwpSeq* seen, uint32_t ownQueue);

struct zekSwpStats {
    zekSwpHandle queue;
    uint32_t peerApp, slot, session;
    uint32_t instance;  // of the peer application, as the messages are addressed
    uint32_t backlog;   // messages in the queue now
    uint64_t bytes;     // in them
    uint64_t enqueued, acknowledged, repeated, flushed, refused, timeouts;
    bool alive;  // the peer answers
    zekSwpState state;
};
// Copies at most out.size() rows, one for each session; returns their number.
size_t zekSwpStatistics(std::span<zekSwpStats> out);
