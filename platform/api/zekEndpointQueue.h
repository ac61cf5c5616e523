// A queue from an endpoint to one task whose owner can make everything again: SWP's second form
// (zekSwp.h) for processes that are not tasks of a route processor.
//
// Messages go in order, a window at a time, and the oldest is repeated until it is answered. When
// one is lost (nobody is there, no answer to all repeats, past the bound) the queue gives up all
// but the oldest, which it goes on trying, and refuses others. It is `answered` when that one is,
// and the owner starts it over with a replay; it may do so at any time.
#pragma once

#include "platform/api/zekTransport.h"

struct zekEndpointQueue;

enum class zekQueueWay {
    swp,       // session and sequence in the header; answered with type 402
    requests,  // plain messages, one at a time; answered with their own type and sequence word
};

// To whatever the messages' second triple names. The endpoint stays the caller's and outlives the
// queue. The owner serves the endpoint and hands over the answers.
[[nodiscard]] zekEndpointQueue* zekEndpointQueueMake(zekEndpoint* endpoint, zekQueueWay way,
                                                     uint32_t window, uint32_t repeats);
void zekEndpointQueueFree(zekEndpointQueue* queue);

// Takes a copy of the message. Its position, from 1 in each replay's session; 0: refused.
uint32_t zekEndpointQueueSend(zekEndpointQueue* queue, std::span<const uint8_t> message,
                              uint64_t nowMs);
// An answer that came to the endpoint. False when it answers nothing of this queue's.
bool zekEndpointQueueAnswer(zekEndpointQueue* queue, const ipcHdr& answer, uint64_t nowMs);
// Repeats what is due. When that is to be next; UINT64_MAX: never.
uint64_t zekEndpointQueueTick(zekEndpointQueue* queue, uint64_t nowMs);

[[nodiscard]] zekSwpState zekEndpointQueueState(const zekEndpointQueue* queue);
// The last message met nobody: no time-out was waited for.
[[nodiscard]] bool zekEndpointQueueIsAlone(const zekEndpointQueue* queue);
// Positions: of the newest message, and up to where all are answered (in step only).
[[nodiscard]] uint32_t zekEndpointQueueNewest(const zekEndpointQueue* queue);
[[nodiscard]] uint32_t zekEndpointQueueAnswered(const zekEndpointQueue* queue);
// Around a replay: empty, a new session, in step, without a bound up to the end.
void zekEndpointQueueReplayBegin(zekEndpointQueue* queue);
void zekEndpointQueueReplayEnd(zekEndpointQueue* queue);
