// SWP: reliable queues to one peer each, over IPC.
//
// A data message carries a session number (header word 0, non-zero, new each time a queue starts
// over) and a sequence number (word 4, from 1). The receiver answers each with a message of type
// 402 that carries both words; an answer stands for every earlier number of its session too. The
// sender keeps a backlog and a window, repeats the oldest unanswered message on time-out (type 401
// on the timer queue) and calls the queue not alive after a stated number of repeats; a flush
// empties it, and the next message starts a new session. The backlog holds 65,536 messages, the
// window's included; the time-out is 250 ms, and 40 of them in a row make a queue dead when its
// creator states no number.
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
// (unknown queue, backlog full, impossible length; the message is still the caller's).
int zekSwpEnqueue(zekSwpHandle queue, void* message, size_t length);
[[nodiscard]] bool zekSwpIsQueueAlive(zekSwpHandle queue);  // unknown handles count as alive
[[nodiscard]] bool zekSwpIsQueueEmpty(zekSwpHandle queue);  // nothing unanswered; unknown: empty
void zekSwpQueueFlush(zekSwpHandle queue);
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
    uint32_t backlog;  // messages in the queue now
    uint64_t enqueued, acknowledged, repeated, flushed, refused, timeouts;
    bool alive;
};
// Copies at most out.size() rows, returns the number of queues.
size_t zekSwpStatistics(std::span<zekSwpStats> out);
