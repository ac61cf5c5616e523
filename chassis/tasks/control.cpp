// chassisd's control requests: events raised and waited for, the primary role, what is known.
#include "chassis/tasks/control.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <random>

#include "include/jsonText.h"
#include "include/service.h"

namespace {

constexpr int SEND_TIMEOUT_MS = 1000;
constexpr size_t EVENTS_MAX = 1024;  // under way or remembered

constexpr const char* statusNames[] = {"ok",     "nobody",  "silent", "bad",
                                       "failed", "no-task", "refused"};

struct outcome {
    uint32_t status;
    jsonObject text;
};

requester requesterOf(const ipcHdr& hdr) {
    return {hdr.target.card, hdr.target.svce, hdr.sequence};
}

void answer(chassisControl* control, std::span<const uint8_t> request, const outcome& result) {
    jsonObject text;
    text.string("status", statusNames[result.status]);
    if (!result.text.body.empty()) text.body += "," + result.text.body;
    std::string json = text.text();
    std::vector<uint8_t> message(CHASSIS_TEXT_OFFSET + json.size());
    std::ranges::copy(request.first(std::min(request.size(), sizeof(chassisControlReq))),
                      message.begin());
    std::ranges::copy(json, message.begin() + CHASSIS_TEXT_OFFSET);
    auto* hdr = wireView<ipcHdr>(std::span(message));
    hdr->length = static_cast<uint32_t>(message.size());
    hdr->result = result.status;
    ipcExchangeTriples(hdr);
    (void)zekEndpointSend(control->endpoint, message.data(), message.size(), SEND_TIMEOUT_MS);
}

// ---- events

// Answers the request of an event that is over, and remembers the answer for those who ask again.
void finish(chassisControl* control, size_t index, uint32_t status, uint64_t nowMs) {
    raisedEvent event = std::move(control->raised[index]);
    control->raised.erase(control->raised.begin() + static_cast<ptrdiff_t>(index));
    outcome result{status, {}};
    result.text.number("told", event.told);
    answer(control, event.request, result);
    control->answered.push_back({event.who, status, nowMs + CONTROL_PATIENCE_MS});
}

// Sends the notification to everyone who has subscribed and to the primary's manager, which must
// hear of its cards even before it has. *told: how many there are. True when the manager is.
bool notify(const chassisControl& control, eventNotif notif, uint32_t manager, size_t* told) {
    std::vector<eventSubscription> all;
    for (const chassisPeer& peer : *control.peers)
        for (const eventSubscription& s : peer.subscriptions)
            if (s.event == notif.event) all.push_back(s);
    // The manager may have subscribed itself; it is told once.
    eventSubscription wanted{notif.event, manager, aclServicePort(APP_ACL, 0, QUEUE_REQUEST)};
    if (std::ranges::find(all, wanted) == all.end()) all.push_back(wanted);

    bool managerIsThere = false;
    *told = 0;
    for (const eventSubscription& s : all) {
        notif.ipc.source.card = s.card;
        notif.ipc.source.svce = s.svce;
        // Without room a manager is not told, and will count as silent.
        auto result = zekEndpointSend(control.endpoint, &notif, sizeof notif, SEND_TIMEOUT_MS);
        if (result == zekSendResult::sent) ++*told;
        if (s == wanted) managerIsThere = result != zekSendResult::nobody;
    }
    return managerIsThere;
}

void raise(chassisControl* control, std::span<const uint8_t> request, uint32_t eventId,
           uint32_t slot, uint64_t nowMs) {
    requester who = requesterOf(*wireView<ipcHdr>(request));
    // A requester that asks again has not seen its answer: the event is not raised twice.
    if (std::ranges::find(control->raised, who, &raisedEvent::who) != control->raised.end()) return;
    auto known = std::ranges::find(control->answered, who, &answeredEvent::who);
    if (known != control->answered.end()) return answer(control, request, {known->status, {}});
    // Nobody makes chassisd remember without end.
    if (control->raised.size() + control->answered.size() >= EVENTS_MAX)
        return answer(control, request, {CHASSIS_FAILED, {}});

    uint32_t rp = chassisPrimaryRp(*control->chassis, control->runDir);
    raisedEvent event{};
    event.who = who;
    event.request.assign(request.begin(), request.end());
    event.sequence = ++control->lastSequence;
    event.card = control->chassis->routeProcessors[rp].address;
    event.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    event.giveUpAt = nowMs + CONTROL_PATIENCE_MS;

    eventNotif notif{};
    notif.ipc.length = sizeof notif;
    notif.ipc.mtype = MT_EVENT_NOTIF;
    notif.ipc.sequence = event.sequence;
    notif.ipc.target.card = control->address;
    notif.ipc.target.svce = CHASSIS_CONTROL_SERVICE;
    notif.event = eventId;
    notif.slot = slot;
    bool managerIsThere = notify(*control, notif, event.card, &event.told);
    control->events++;
    control->raised.push_back(std::move(event));
    // Nobody to wait for: answered at once, like an event that is over.
    if (!managerIsThere) finish(control, control->raised.size() - 1, CHASSIS_NOBODY, nowMs);
}

void takeAnswer(chassisControl* control, const ipcHdr& hdr, uint64_t nowMs) {
    auto event = std::ranges::find(control->raised, uint32_t{hdr.sequence}, &raisedEvent::sequence);
    // Another subscriber may answer, too, and is not waited for.
    if (event == control->raised.end() || hdr.target.card != event->card ||
        hdr.target.svce != event->svce)
        return;
    finish(control, static_cast<size_t>(event - control->raised.begin()), CHASSIS_OK, nowMs);
}

// ---- commands

// The last slot stands for the control processor's agent too.
bool slotExists(const chassisDescription& chassis, uint32_t slot) {
    if (slot == SLOT_COUNT - 1 && addressIsKnown(chassisAddress(chassis, APP_ACL_AGENT_CP, 0)))
        return true;
    return std::ranges::find(chassis.cards, slot, &chassisCard::slot) != chassis.cards.end();
}

void cardEvent(chassisControl* control, std::span<const uint8_t> request, uint64_t nowMs) {
    const auto* req = wireView<chassisControlReq>(request);
    if (!slotExists(*control->chassis, req->argument))
        return answer(control, request, {CHASSIS_BAD, {}});
    raise(control, request, req->command == CHASSIS_CARD_DOWN ? EVT_CARD_DOWN : EVT_CARD_SHUTDOWN,
          req->argument, nowMs);
}

// Whole or not at all: readers look at any time.
bool writePrimary(const std::string& runDir, uint32_t rp) {
    std::string file = runDir + "/" + CHASSIS_PRIMARY_FILE, fresh = file + ".new";
    std::string text = std::to_string(rp) + "\n";
    int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    if (fd < 0) return false;
    bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    written = fsync(fd) == 0 && written;
    written = close(fd) == 0 && written;
    return written && rename(fresh.c_str(), file.c_str()) == 0;
}

void setPrimary(chassisControl* control, std::span<const uint8_t> request, uint64_t) {
    uint32_t rp = wireView<chassisControlReq>(request)->argument;
    outcome result{CHASSIS_OK, {}};
    if (rp >= control->chassis->routeProcessors.size())
        result.status = CHASSIS_BAD;
    else if (!writePrimary(control->runDir, rp))
        result.status = CHASSIS_FAILED;
    result.text.number("primary", chassisPrimaryRp(*control->chassis, control->runDir));
    answer(control, request, result);
}

void tellState(chassisControl* control, std::span<const uint8_t> request, uint64_t) {
    std::string peers, subscriptions;
    auto append = [](std::string* items, const jsonObject& o) {
        *items += (items->empty() ? "" : ",") + o.text();
    };
    for (const chassisPeer& peer : *control->peers) {
        append(&peers, jsonObject{}
                           .string("task", peer.kind->name)
                           .number("instance", peer.instance)
                           .number("received", peer.received)
                           .number("refused", peer.refused));
        for (const eventSubscription& s : peer.subscriptions)
            append(&subscriptions, jsonObject{}
                                       .number("event", s.event)
                                       .string("card", addressText(s.card))
                                       .number("service", s.svce));
    }
    outcome result{CHASSIS_OK, {}};
    result.text.number("primary", chassisPrimaryRp(*control->chassis, control->runDir))
        .number("requests", control->requests)
        .number("events", control->events)
        .number("waiting", control->raised.size())
        .raw("tasks", "[" + peers + "]")
        .raw("subscriptions", "[" + subscriptions + "]");
    answer(control, request, result);
}

void clientCommand(chassisControl* control, std::span<const uint8_t> request, uint64_t nowMs) {
    const auto* req = wireView<chassisClientReq>(request);
    if (req == nullptr) return answer(control, request, {CHASSIS_BAD, {}});
    const uint32_t rp = chassisPrimaryRp(*control->chassis, control->runDir);
    clientOutcome result =
        clientsCommand(control->peers, control->runDir,
                       control->chassis->routeProcessors[rp].address, *req, nowMs);
    answer(control, request, {result.status, std::move(result.text)});
}

// One row per command. Those of clients share theirs, which looks at the longer request.
constexpr struct {
    uint32_t command;
    void (*run)(chassisControl* control, std::span<const uint8_t> request, uint64_t nowMs);
} commands[] = {
    {CHASSIS_CARD_DOWN, cardEvent},
    {CHASSIS_CARD_SHUTDOWN, cardEvent},
    {CHASSIS_PRIMARY, setPrimary},
    {CHASSIS_STATE, tellState},
    {CHASSIS_CLIENT_REGISTER, clientCommand},
    {CHASSIS_CLIENT_UNREGISTER, clientCommand},
    {CHASSIS_CLIENT_SHOW, clientCommand},
    {CHASSIS_CLIENT_BEHAVE, clientCommand},
};

void take(chassisControl* control, std::span<const uint8_t> message, uint64_t nowMs) {
    const auto* hdr = wireView<ipcHdr>(message);
    if (hdr->mtype == MT_EVENT_NOTIF) return takeAnswer(control, *hdr, nowMs);
    if (hdr->mtype != MT_CHASSIS_CONTROL) {
        control->refused++;
        return;
    }
    control->requests++;
    const auto* req = wireView<chassisControlReq>(message);
    for (const auto& row : commands)
        if (req != nullptr && row.command == req->command) return row.run(control, message, nowMs);
    control->refused++;
    answer(control, message, {CHASSIS_BAD, {}});
}

}  // namespace

bool controlOpen(chassisControl* control, const chassisDescription& chassis,
                 std::vector<chassisPeer>* peers, const std::string& runDir, std::string* error) {
    control->chassis = &chassis;
    control->peers = peers;
    control->runDir = runDir;
    control->address =
        std::ranges::find(chassis.routeProcessors, true, &chassisRp::primary)->address;
    control->lastSequence = std::random_device{}();  // answers to an earlier life are not ours
    control->endpoint = zekEndpointOpen(runDir, control->address, CHASSIS_CONTROL_SERVICE, error);
    return control->endpoint != nullptr;
}

void controlClose(chassisControl* control) {
    zekEndpointClose(control->endpoint);
    control->endpoint = nullptr;
}

void controlServe(chassisControl* control, uint64_t nowMs) {
    std::vector<uint8_t> message;
    zekSender sender{};
    int got = zekEndpointRecv(control->endpoint, &message, IPC_TRANSPORT_MAX, 0, &sender);
    if (got > 0)
        take(control, message, nowMs);
    else if (got == -2)
        control->refused++;
}

uint64_t controlTick(chassisControl* control, uint64_t nowMs) {
    std::erase_if(control->answered,
                  [nowMs](const answeredEvent& e) { return e.forgetAt <= nowMs; });
    // The role may have moved since the last pass: queues are asked for at the present primary.
    const uint32_t rp = chassisPrimaryRp(*control->chassis, control->runDir);
    uint64_t next =
        clientsTick(control->peers, control->chassis->routeProcessors[rp].address, nowMs);
    // From behind, because finishing one takes it out.
    for (size_t i = control->raised.size(); i-- > 0;) {
        if (control->raised[i].giveUpAt <= nowMs)
            finish(control, i, CHASSIS_SILENT, nowMs);
        else
            next = std::min(next, control->raised[i].giveUpAt);
    }
    return next;
}
