// chassisd's control requests: events raised and waited for, the primary role, what is known.
#include "chassis/tasks/control.h"

#include <algorithm>
#include <iterator>
#include <random>

#include "include/jsonText.h"
#include "include/service.h"

namespace {

constexpr int SEND_TIMEOUT_MS = 1000;

typedef chassisOutcome outcome;

void answer(chassisControl* control, std::span<const uint8_t> request, const outcome& result) {
    chassisAnswer(control->endpoint, request, result);
}

// ---- events

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
    const uint32_t ticket = laterTake(&control->later, request, nowMs);
    if (ticket == 0) return;
    uint32_t rp = chassisPrimaryRp(*control->chassis, control->runDir);
    raisedEvent event{};
    event.ticket = ticket;
    event.sequence = ++control->lastSequence;
    event.card = control->chassis->routeProcessors[rp].address;
    event.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);

    eventNotif notif{};
    notif.ipc.length = sizeof notif;
    notif.ipc.mtype = MT_EVENT_NOTIF;
    notif.ipc.sequence = event.sequence;
    notif.ipc.target.card = control->address;
    notif.ipc.target.svce = CHASSIS_CONTROL_SERVICE;
    notif.event = eventId;
    notif.slot = slot;
    size_t told;
    const bool managerIsThere = notify(*control, notif, event.card, &told);
    control->events++;
    laterFind(&control->later, ticket)->outcome.text.number("told", told);
    control->raised.push_back(event);
    // Nobody to wait for: answered at once, like an event that is over.
    if (!managerIsThere) laterFinish(&control->later, ticket, CHASSIS_NOBODY, nowMs);
}

void takeAnswer(chassisControl* control, const ipcHdr& hdr, uint64_t nowMs) {
    auto event = std::ranges::find(control->raised, uint32_t{hdr.sequence}, &raisedEvent::sequence);
    // Another subscriber may answer, too, and is not waited for.
    if (event == control->raised.end() || hdr.target.card != event->card ||
        hdr.target.svce != event->svce)
        return;
    laterFinish(&control->later, event->ticket, CHASSIS_OK, nowMs);
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

void setPrimary(chassisControl* control, std::span<const uint8_t> request, uint64_t) {
    uint32_t rp = wireView<chassisControlReq>(request)->argument;
    outcome result{CHASSIS_OK, {}};
    if (rp >= control->chassis->routeProcessors.size())
        result.status = CHASSIS_BAD;
    else if (std::string why; !fileReplace(control->runDir + "/" + CHASSIS_PRIMARY_FILE,
                                           std::to_string(rp) + "\n", &why))
        result = {CHASSIS_FAILED, jsonObject{}.string("why", why)};
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
        .number("waiting", laterOpen(control->later))
        .raw("tasks", "[" + peers + "]")
        .raw("subscriptions", "[" + subscriptions + "]");
    result.text.body += "," + neighboursSummary(control->around).body;
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

void placeCommand(chassisControl* control, std::span<const uint8_t> request, uint64_t nowMs) {
    neighboursCommand(&control->around, request, nowMs);
}

void tellInterfaces(chassisControl* control, std::span<const uint8_t> request, uint64_t) {
    outcome result{CHASSIS_OK, {}};
    result.text.raw("rows", neighboursRows(control->around));
    answer(control, request, result);
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
    {CHASSIS_MEMBERS_JOIN, placeCommand},
    {CHASSIS_MEMBERS_LEAVE, placeCommand},
    {CHASSIS_INTERFACE_DELETE, placeCommand},
    {CHASSIS_GROUP, placeCommand},
    {CHASSIS_ADDRESS_ADD, placeCommand},
    {CHASSIS_ADDRESS_DEL, placeCommand},
    {CHASSIS_INTERFACE_STATE, placeCommand},
    {CHASSIS_INTERFACE_MODE, placeCommand},
    {CHASSIS_PROTOCOL_ENABLE, placeCommand},
    {CHASSIS_PROTOCOL_DISABLE, placeCommand},
    {CHASSIS_INTERFACES, tellInterfaces},
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
                 std::vector<chassisPeer>* peers, const std::string& runDir, std::string* error,
                 std::string* notice) {
    control->chassis = &chassis;
    control->peers = peers;
    control->runDir = runDir;
    control->address =
        std::ranges::find(chassis.routeProcessors, true, &chassisRp::primary)->address;
    control->lastSequence = std::random_device{}();  // answers to an earlier life are not ours
    control->endpoint = zekEndpointOpen(runDir, control->address, CHASSIS_CONTROL_SERVICE, error);
    if (control->endpoint == nullptr) return false;
    control->later = {control->endpoint, CONTROL_PATIENCE_MS, {}, 0};
    const auto ifm = std::ranges::find(
        *peers, APP_IFM, [](const chassisPeer& peer) { return uint32_t{peer.kind->app}; });
    const bool hasIfm = ifm != peers->end();
    if (hasIfm) ifm->around = &control->around;
    return neighboursOpen(&control->around, chassis, runDir, hasIfm ? ifm->endpoint : nullptr,
                          hasIfm ? ifm->address : 0, control->address, &control->later, error,
                          notice);
}

void controlClose(chassisControl* control) {
    neighboursClose(&control->around);
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
    // The role may have moved since the last pass: queues are asked for at the present primary.
    const uint32_t rp = chassisPrimaryRp(*control->chassis, control->runDir);
    const uint64_t asked =
        clientsTick(control->peers, control->chassis->routeProcessors[rp].address, nowMs);
    const uint64_t told = neighboursTick(&control->around, rp, nowMs);
    const uint64_t waited = laterTick(&control->later, nowMs);
    std::erase_if(control->raised, [control](const raisedEvent& e) {
        return laterFind(&control->later, e.ticket) == nullptr;
    });
    return std::min({asked, told, waited});
}
