// The control side of chassisd: cards that go down, the primary role, what is known. The endpoint
// is also the event handler's voice: events go out from it and are answered to it.
#pragma once

#include "chassis/tasks/neighbours.h"
#include "chassis/tasks/peers.h"
#include "include/chassisControl.h"

// Until a request that nobody answers is given up, before the shell's 10 s are over.
constexpr uint64_t CONTROL_PATIENCE_MS = 9000;

// An event under way: the request waits until the primary's manager has answered. Others who have
// subscribed are told and not waited for.
struct raisedEvent {
    uint32_t ticket;
    uint32_t sequence;    // of the notifications
    uint32_t card, svce;  // of the manager
};

struct chassisControl {
    const chassisDescription* chassis = nullptr;
    std::vector<chassisPeer>* peers = nullptr;
    std::string runDir;
    uint32_t address = 0;
    zekEndpoint* endpoint = nullptr;
    uint32_t lastSequence = 0;
    laterRequests later{};
    std::vector<raisedEvent> raised;
    neighbours around;
    uint64_t requests = 0, events = 0, refused = 0;
};

// The description and the peers stay the caller's. *notice: of the state that was found, if there
// is anything to say.
bool controlOpen(chassisControl* control, const chassisDescription& chassis,
                 std::vector<chassisPeer>* peers, const std::string& runDir, std::string* error,
                 std::string* notice);
void controlClose(chassisControl* control);
// Takes one message. Serve the peers before: who subscribes and then asks for an event must get it.
void controlServe(chassisControl* control, uint64_t nowMs);
// Answers what has waited long enough, goes on telling the manager, and asks for the queues that it
// has not made yet. When that is next due; UINT64_MAX: never.
uint64_t controlTick(chassisControl* control, uint64_t nowMs);
