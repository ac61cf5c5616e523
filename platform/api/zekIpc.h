// Messages between tasks: queues, sending, receiving, waiting, names.
//
// A task has a request, a response and a timer queue, all of one IPC key. A message is one datagram
// whose first bytes are the 60-byte header of include/ipc.h; sends go to the endpoint that the
// header's second triple names. Sends never block the task. Answers may be held back until the
// configuration changes before them are durable: they leave in order, at the latest when the task
// is about to wait.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>

constexpr uint32_t ZEK_FD_MAX = 2048;
typedef std::bitset<ZEK_FD_MAX> zekFdSet;

typedef uint32_t zekQueue;  // 0: none

[[nodiscard]] zekQueue Key_getReqQueue(uint32_t ipcKey);
[[nodiscard]] zekQueue Key_getRspQueue(uint32_t ipcKey);
[[nodiscard]] zekQueue Key_getTmrQueue(uint32_t ipcKey);
[[nodiscard]] int Key_getSocketFd(zekQueue queue);  // -1: no such queue

// Makes the timer queue of an application. 0 or -1.
int zekIpcTmrOpen(uint32_t app, uint32_t instance);

// Sends `length` bytes (at least the header) to the header's second triple. 0; -1 when the length
// is impossible, nobody listens there, or the receiver's queue stays full for the send time-out.
int zekIpcSend(zekQueue queue, const void* message, size_t length);
// Exchanges the triples of a received message and sends it back. As zekIpcSend.
int zekIpcReply(uint32_t ipcKey, void* message, size_t length);

// Receives one message into the buffer; longer ones are dropped and counted. timeoutMs 0 does not
// wait, -1 waits for ever. Returns the message's bytes, 0 when none came in time, -1 on error.
[[nodiscard]] int zekIpcRecv(zekQueue queue, void* buffer, size_t size, int timeoutMs);

// The same for a task that waits in the middle of its work: meanwhile SWP time-outs, and those
// messages of the request queue that `urgency` picks, are handed to `serve`, which must not wait.
enum class zekUrgency { later, now, barrier };  // barrier: nothing behind it is served either
struct zekServing {
    zekUrgency (*urgency)(std::span<const uint8_t> message);
    void (*serve)(std::span<const uint8_t> message);
};
[[nodiscard]] int zekIpcRecvServing(zekQueue queue, void* buffer, size_t size, int timeoutMs,
                                    const zekServing& serving);

// Waits until one of the descriptors below `limit` in *set can be read, and leaves exactly those
// set. A queue that holds messages already received counts as readable. Before it waits it commits
// the configuration and lets held answers go. Returns their number, 0 on time-out, -1 with errno.
int zekSelect(uint32_t limit, zekFdSet* set, int timeoutMs);

// The card address at which an application (an instance or, for agents, the one of a slot) is
// reached: 0 and *address, or -1 and *address all ones.
int zek_tmeGetPeerIpAddrByName(uint32_t app, uint32_t instance, uint32_t* address);
// Whether these answers stay as they are: asking again for one that is not known is of no use.
[[nodiscard]] bool zek_tmeAddressesAreFixed();
// The own address that a peer at the given card address is to answer to.
[[nodiscard]] uint32_t zek_sysGetIpAddr(uint32_t cardAddress);

// To the same application on the other route processor. 0, or -1 with *err.
int zekIrcPeerRpmSend(uint32_t app, uint32_t instance, const void* message, size_t length,
                      uint32_t flags, int* err);
void zekSendSyncMsgAckToRam(uint32_t app, uint32_t instance);
void zekSendDataSyncResultToRam(uint32_t app, uint32_t instance, uint32_t result);

struct zekIpcStats {
    uint64_t received, sent, heldBack;
    uint64_t tooLong, tooShort;  // received and dropped
    uint64_t sendFailed;
    uint64_t malformed;  // received and dropped: bad descriptors, time-outs that are not our
                         // own, requests in the name of a manager
    uint64_t overrun;    // received and dropped: nobody has read the queue for too long
    uint64_t repeated;   // received before: answered from memory, or under way already
    uint64_t dropped;  // accepted for sending, dropped: receiver stayed full or went, or no commit
};
[[nodiscard]] zekIpcStats zekIpcStatistics();
