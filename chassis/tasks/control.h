// The control side of chassisd: cards that go down, the primary role, what is known. The endpoint
// is also the event handler's voice: events go out from it and are answered to it.
#pragma once

#include "chassis/tasks/peers.h"
#include "include/chassisControl.h"

// Until an event that nobody answers is given up; as long is its answer remembered, because the
// requester may not have seen it and ask again.
constexpr uint64_t CONTROL_PATIENCE_MS = 10000;

struct requester {
    uint32_t card, svce, sequence;  // of one request: a repeated one carries the same sequence
    bool operator==(const requester&) const = default;
};

// An event under way: the request waits until the primary's manager has answered. Others who have
// subscribed are told and not waited for.
struct raisedEvent {
    requester who;
    std::vector<uint8_t> request;
    uint32_t sequence;    // of the notifications
    uint32_t card, svce;  // of the manager
    uint64_t giveUpAt;
    size_t told;
};
struct answeredEvent {
    requester who;
    uint32_t status;
    uint64_t forgetAt;
};

struct chassisControl {
    const chassisDescription* chassis = nullptr;
    std::vector<chassisPeer>* peers = nullptr;
    std::string runDir;
    uint32_t address = 0;
    zekEndpoint* endpoint = nullptr;
    uint32_t lastSequence = 0;
    std::vector<raisedEvent> raised;
    std::vector<answeredEvent> answered;
    uint64_t requests = 0, events = 0, refused = 0;
};

// The description and the peers stay the caller's.
bool controlOpen(chassisControl* control, const chassisDescription& chassis,
                 std::vector<chassisPeer>* peers, const std::string& runDir, std::string* error);
void controlClose(chassisControl* control);
// Takes one message. Serve the peers before: who subscribes and then asks for an event must get it.
void controlServe(chassisControl* control, uint64_t nowMs);
// Answers for the events that have waited long enough, and asks for the queues that the manager has
// not made yet. When that is next due; UINT64_MAX: never.
uint64_t controlTick(chassisControl* control, uint64_t nowMs);
