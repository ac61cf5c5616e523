// Requests to chassisd that are answered later, when somebody else has answered: kept until then,
// and remembered for a while, because a requester that has not seen its answer asks again and what
// it asked for is not to be done twice.
#pragma once

#include <deque>
#include <span>
#include <vector>

#include "include/chassisControl.h"
#include "include/jsonText.h"
#include "platform/api/zekTransport.h"

struct chassisOutcome {
    uint32_t status;  // chassisStatus
    jsonObject text;
};
// Answers a request from an endpoint.
void chassisAnswer(zekEndpoint* endpoint, std::span<const uint8_t> request,
                   const chassisOutcome& outcome);

struct requester {
    uint32_t card, svce, sequence;  // of one request: a repeated one carries the same sequence
    bool operator==(const requester&) const = default;
};
struct laterRequest {
    uint32_t ticket;
    requester who;
    bool open;
    std::vector<uint8_t> request;  // its front, while it is open
    uint64_t until;                // open: given up; answered: forgotten
    chassisOutcome outcome;        // so far
};
struct laterRequests {
    zekEndpoint* endpoint;
    uint64_t patienceMs;  // how long each is open, and then remembered
    std::deque<laterRequest> all;
    uint32_t lastTicket;
};

// Takes a request over. 0: that is not to be carried out, because it was taken before (and is
// answered again if it was answered), or because too many are open.
[[nodiscard]] uint32_t laterTake(laterRequests* requests, std::span<const uint8_t> request,
                                 uint64_t nowMs);
[[nodiscard]] size_t laterOpen(const laterRequests& requests);  // how many are waited for
// Still waited for.
[[nodiscard]] laterRequest* laterFind(laterRequests* requests, uint32_t ticket);
// Answers it, if it is still open, with what was put into its outcome.
void laterFinish(laterRequests* requests, uint32_t ticket, uint32_t status, uint64_t nowMs);
// Answers those that have waited long enough as silent. When that is next due; UINT64_MAX: never.
uint64_t laterTick(laterRequests* requests, uint64_t nowMs);
