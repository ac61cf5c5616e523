// Requests that are answered later.
#include "chassis/tasks/requests.h"

#include <algorithm>
#include <iterator>

namespace {

// Whoever does not read holds nobody up; it may ask again.
constexpr int SEND_TIMEOUT_MS = 20;
constexpr size_t OPEN_MAX = 4096;
constexpr size_t ALL_MAX = 8192;  // open ones and remembered ones

constexpr const char* statusNames[] = {"ok",     "nobody",  "silent",  "bad",
                                       "failed", "no-task", "refused", "invalid"};

}  // namespace

void chassisAnswer(zekEndpoint* endpoint, std::span<const uint8_t> request,
                   const chassisOutcome& outcome) {
    jsonObject text;
    text.string("status", statusNames[outcome.status]);
    if (!outcome.text.body.empty()) text.body += "," + outcome.text.body;
    const std::string json = text.text();
    std::vector<uint8_t> message(CHASSIS_TEXT_OFFSET + json.size());
    std::ranges::copy(request.first(std::min(request.size(), sizeof(chassisControlReq))),
                      message.begin());
    std::ranges::copy(json, message.begin() + CHASSIS_TEXT_OFFSET);
    auto* hdr = wireView<ipcHdr>(std::span(message));
    hdr->length = static_cast<uint32_t>(message.size());
    hdr->result = outcome.status;
    ipcExchangeTriples(hdr);
    (void)zekEndpointSend(endpoint, message.data(), message.size(), SEND_TIMEOUT_MS);
}

uint32_t laterTake(laterRequests* requests, std::span<const uint8_t> request, uint64_t nowMs) {
    const auto* hdr = wireView<ipcHdr>(request);
    const requester who{hdr->target.card, hdr->target.svce, hdr->sequence};
    const auto known = std::ranges::find(requests->all, who, &laterRequest::who);
    if (known != requests->all.end()) {
        if (!known->open) chassisAnswer(requests->endpoint, request, known->outcome);
        return 0;
    }
    // Nobody makes chassisd remember without end: the oldest answers are forgotten first.
    if (laterOpen(*requests) >= OPEN_MAX) {
        chassisAnswer(requests->endpoint, request, {CHASSIS_FAILED, {}});
        return 0;
    }
    if (requests->all.size() >= ALL_MAX)
        requests->all.erase(std::ranges::find(requests->all, false, &laterRequest::open));
    const auto front = request.first(std::min(request.size(), sizeof(chassisControlReq)));
    if (++requests->lastTicket == 0) requests->lastTicket = 1;
    requests->all.push_back({requests->lastTicket,
                             who,
                             true,
                             std::vector<uint8_t>(front.begin(), front.end()),
                             nowMs + requests->patienceMs,
                             {CHASSIS_SILENT, {}}});
    return requests->lastTicket;
}

size_t laterOpen(const laterRequests& requests) {
    return static_cast<size_t>(std::ranges::count(requests.all, true, &laterRequest::open));
}

laterRequest* laterFind(laterRequests* requests, uint32_t ticket) {
    const auto found = std::ranges::find(requests->all, ticket, &laterRequest::ticket);
    return found != requests->all.end() && found->open ? &*found : nullptr;
}

void laterFinish(laterRequests* requests, uint32_t ticket, uint32_t status, uint64_t nowMs) {
    laterRequest* request = laterFind(requests, ticket);
    if (request == nullptr) return;
    request->outcome.status = status;
    chassisAnswer(requests->endpoint, request->request, request->outcome);
    request->open = false;
    request->request = {};
    request->until = nowMs + requests->patienceMs;
}

uint64_t laterTick(laterRequests* requests, uint64_t nowMs) {
    std::erase_if(requests->all,
                  [nowMs](const laterRequest& r) { return !r.open && r.until <= nowMs; });
    uint64_t next = UINT64_MAX;
    for (laterRequest& r : requests->all) {
        if (r.open && r.until <= nowMs)
            laterFinish(requests, r.ticket, CHASSIS_SILENT, nowMs);
        else if (r.open)
            next = std::min(next, r.until);
    }
    return next;
}
