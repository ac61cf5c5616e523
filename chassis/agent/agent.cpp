// An agent at work: what it sends to the manager and chassisd, and what becomes of each message.
#include "chassis/agent/agent.h"

#include <algorithm>
#include <random>

#include "include/chassisControl.h"
#include "include/service.h"

namespace {

constexpr int TURNS = 4;  // of taking messages, in one call and from one endpoint
// For those who ask for its state and do not read: downloads are not to wait long for them.
constexpr int ANSWER_PATIENCE_MS = 200;

// The control processor's agent is an application of its own; a card's has the slot as its
// instance.
uint32_t aclPort(const agentConfig& config) {
    return config.cp ? aclServicePort(APP_ACL_AGENT_CP, 0, QUEUE_REQUEST)
                     : aclServicePort(APP_ACL_AGENT, config.slot, QUEUE_REQUEST);
}

const chassisCard* cardOf(const agentConfig& config, uint32_t slot) {
    auto it = std::ranges::find(config.chassis.cards, slot, &chassisCard::slot);
    return it != config.chassis.cards.end() ? &*it : nullptr;
}

// Cards of type 1 have their MAC agent under another application.
uint32_t macPort(const agentConfig& config) {
    const bool first = cardOf(config, config.slot)->type == 1;
    return aclServicePort(first ? APP_MAC_AGENT_1 : APP_MAC_AGENT, config.slot, QUEUE_REQUEST);
}

// The slot that the event handler is told of. The control processor's agent is kept in the record
// of the last slot.
uint32_t slotOf(const agentConfig& config) {
    return config.cp ? SLOT_COUNT - 1 : config.slot;
}

// `target` is who sends and `source` who is meant, so that an answer has them the other way round.
void address(const agent& self, ipcHdr* hdr, uint32_t type, size_t length, uint32_t card,
             uint32_t service) {
    hdr->length = static_cast<uint32_t>(length);
    hdr->mtype = type;
    hdr->sequence = self.link.sequence;
    hdr->target.slot = self.config.cp ? 0 : self.config.slot;
    hdr->target.card = self.address;
    hdr->target.svce = aclPort(self.config);
    hdr->source.card = card;
    hdr->source.svce = service;
}

// chassisd stays with the route processor that the description calls primary, whoever has the role
// now; a registration goes to whoever has it.
zekSendResult sendDown(agent* self) {
    const auto& rps = self->config.chassis.routeProcessors;
    chassisControlReq req{};
    address(*self, &req.ipc, MT_CHASSIS_CONTROL, sizeof req,
            std::ranges::find(rps, true, &chassisRp::primary)->address, CHASSIS_CONTROL_SERVICE);
    req.command = CHASSIS_CARD_DOWN;
    req.argument = slotOf(self->config);
    return zekEndpointSend(self->acl.endpoint, &req, sizeof req, 0);
}

zekSendResult sendRegistration(agent* self, uint64_t nowMs) {
    const agentConfig& config = self->config;
    uint32_t rp = chassisPrimaryRp(config.chassis, config.runDir);
    uint32_t manager = config.chassis.routeProcessors[rp].address;
    uint32_t service = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    uint32_t replay = agentReplayWord(linkNeed(self->link, nowMs));
    if (config.cp) {
        acl0RegisterReq req{};
        address(*self, &req.ipc, MT_ACL0_REGISTER, sizeof req, manager, service);
        req.supportAclOnCP = 1;
        req.replay = replay;
        return zekEndpointSend(self->acl.endpoint, &req, sizeof req, 0);
    }
    const chassisCard& card = *cardOf(config, config.slot);
    agentRegisterReq req{};
    address(*self, &req.ipc, MT_AGENT_REGISTER, sizeof req, manager, service);
    req.replay = replay;
    req.isUp = 1;
    req.isVortan = card.egress;
    req.isIpv6Enabled = card.ipv6;
    req.v6EgAclSupported = card.ipv6Egress;
    req.type = card.type;
    return zekEndpointSend(self->acl.endpoint, &req, sizeof req, 0);
}

// A manager that has lost the role goes on with its old queues until it knows.
bool isFromPrimary(const agent& self, const ipcHdr& hdr) {
    const agentConfig& c = self.config;
    uint32_t rp = chassisPrimaryRp(c.chassis, c.runDir);
    return hdr.target.card == c.chassis.routeProcessors[rp].address;
}

// The mark in a message, or null: it is none, or a damaged one.
const agentReplayBody* markOf(std::span<const uint8_t> message) {
    const auto* hdr = wireView<agentHdr>(message);
    bool fits = hdr != nullptr && hdr->ipc.mtype == MT_AGENT_REPLAY &&
                message.size() == sizeof(agentHdr) + sizeof(agentReplayBody) &&
                hdr->ipc.length == message.size() && hdr->bodyLen == sizeof(agentReplayBody);
    return fits ? wireView<agentReplayBody>(message, sizeof(agentHdr)) : nullptr;
}

// The tables behind a queue.
struct queueTables {
    agentVerdict (*apply)(agent* self, std::span<const uint8_t> message);
    void (*begin)(agent* self);  // of a replay, its end, and no end
    bool (*end)(agent* self);
    void (*drop)(agent* self);
    agentReplay (*replay)(const agent& self);
    agentCounts& (*counts)(agent* self);
};
// In the order of linkQueue.
constexpr queueTables queueRows[] = {
    {[](agent* a, std::span<const uint8_t> m) { return agentTablesApply(&a->tables, m); },
     [](agent* a) { agentTablesReplayBegin(&a->tables); },
     [](agent* a) { return agentTablesReplayEnd(&a->tables); },
     [](agent* a) { agentTablesReplayDrop(&a->tables); },
     [](const agent& a) { return a.tables.replay; },
     [](agent* a) -> agentCounts& { return a->tables; }},
    {[](agent* a, std::span<const uint8_t> m) { return macTablesApply(&a->macs, m); },
     [](agent* a) { macTablesReplayBegin(&a->macs); },
     [](agent* a) { return macTablesReplayEnd(&a->macs); },
     [](agent* a) { macTablesReplayDrop(&a->macs); }, [](const agent& a) { return a.macs.replay; },
     [](agent* a) -> agentCounts& { return a->macs; }},
};
const queueTables& tablesOf(const agentQueue& queue) {
    return queueRows[static_cast<size_t>(queue.which)];
}

// The first message of a session. What is in force stays until a replay has ended.
void takeBegin(agent* self, const agentQueue& queue, const agentReplayBody* mark, uint32_t session,
               int32_t pid, uint64_t nowMs) {
    // A session without a mark in front comes from a manager that knows none, or goes on behind a
    // flush; the standing tells these apart.
    bool marked = mark != nullptr && mark->mark == AGENT_REPLAY_BEGIN;
    uint32_t number = marked ? uint32_t{mark->number} : 0;
    const linkBegin what = queue.which == linkQueue::mac
                               ? linkMacSession(&self->link, pid, marked, number, nowMs)
                               : linkSession(&self->link, session, pid, marked, number, nowMs);
    const queueTables& tables = tablesOf(queue);
    (what == linkBegin::replay ? tables.begin : tables.drop)(self);
}

// A message of a session. A refused one is lost; in a replay that counts when it has ended.
void takeInOrder(agent* self, const agentQueue& queue, std::span<const uint8_t> message, bool first,
                 uint64_t nowMs) {
    const queueTables& tables = tablesOf(queue);
    const agentReplayBody* mark = markOf(message);
    const bool replays = tables.replay(*self) != agentReplay::none;
    if (wireView<ipcHdr>(message)->mtype != MT_AGENT_REPLAY) {
        if (tables.apply(self, message) == agentVerdict::refused && !replays)
            linkRefused(&self->link, queue.which, nowMs);
    } else if (mark != nullptr && mark->mark == AGENT_REPLAY_END && replays &&
               linkIsEnd(self->link, queue.which, mark->number)) {
        linkEnded(&self->link, queue.which, tables.end(self), nowMs);
    } else if (mark == nullptr || mark->mark != AGENT_REPLAY_BEGIN || !first) {
        (void)agentRefuse(&tables.counts(self), agentRefusal::order, MT_AGENT_REPLAY,
                          "a mark that marks nothing");
        tables.drop(self);
        linkRefused(&self->link, queue.which, nowMs);
    }
}

// A message of one of the manager's queues. Each is answered by the transport and handed on once.
void takeDownload(agent* self, agentQueue* queue, std::span<const uint8_t> message, int32_t pid,
                  uint64_t nowMs) {
    const auto* hdr = wireView<ipcHdr>(message);
    uint32_t before = queue->seen.session;
    // Only a new session is looked at: the one that is under way was the primary's when it began.
    if (hdr->session != before && !isFromPrimary(*self, *hdr)) {
        self->strangers++;
        return;
    }
    int verdict = zekEndpointSwpTake(queue->endpoint, message.data(), &queue->seen, &queue->owed);
    if (verdict == ZEK_SWP_IN_ORDER) {
        // The tables and the standing hear of a session before its first message is applied.
        bool first = queue->seen.session != before;
        if (first)
            takeBegin(self, *queue, markOf(message), hdr->session, pid, nowMs);
        else
            linkMessage(&self->link, queue->which, nowMs);
        takeInOrder(self, *queue, message, first, nowMs);
    } else if (hdr->session != queue->seen.session && hdr->swpSeq != 1) {
        // Not answered, so the sender repeats it; it counts as a session's middle, not as its
        // begin.
        linkMiddle(&self->link, nowMs);
    }
}

// Downloads name one of the manager's two queues as their sender.
bool isFromManager(const ipcHdr& hdr) {
    return hdr.target.svce == aclServicePort(APP_ACL, 0, QUEUE_REQUEST) ||
           hdr.target.svce == aclServicePort(APP_ACL, 0, QUEUE_RESPONSE);
}

void takePlain(agent* self, std::span<const uint8_t> message, int32_t pid, uint64_t nowMs) {
    const auto* hdr = wireView<ipcHdr>(message);
    switch (hdr->mtype) {
        case MT_AGENT_REGISTER:
        case MT_ACL0_REGISTER:
            linkRegistered(&self->link, hdr->sequence, pid, nowMs);
            break;
        case MT_CHASSIS_CONTROL:
            linkDownAnswered(&self->link, hdr->sequence, hdr->result == CHASSIS_SILENT, nowMs);
            break;
        case MT_AGENT_STATE: {
            std::vector<uint8_t> answer = agentStateAnswer(*self, message);
            if (zekEndpointSend(self->acl.endpoint, answer.data(), answer.size(),
                                self->patienceMs) == zekSendResult::full)
                self->patienceMs = 0;  // the next one in this call is not waited for
            break;
        }
        default:
            self->strangers++;
    }
}

void take(agent* self, agentQueue* queue, std::span<const uint8_t> message, int32_t pid,
          uint64_t nowMs) {
    const auto* hdr = wireView<ipcHdr>(message);
    if (hdr->session != 0 && isFromManager(*hdr))
        takeDownload(self, queue, message, pid, nowMs);
    else if (hdr->session == 0 && queue->which == linkQueue::lists)
        takePlain(self, message, pid, nowMs);
    else
        self->strangers++;
}

// Takes what waits, and answers it together.
bool drain(agent* self, agentQueue* queue, uint64_t nowMs) {
    bool left = true;
    for (int i = 0; i < TURNS && left; i++)
        left = zekEndpointTake(
                   queue->endpoint, 0,
                   [&](std::span<const uint8_t> message, const zekSender& sender, zekDrop why) {
                       if (why == zekDrop::none)
                           take(self, queue, message, sender.pid, nowMs);
                       else
                           self->strangers++;
                   }) == ZEK_TAKEN_MAX;
    zekEndpointSwpAnswer(queue->endpoint, &queue->owed);
    return left;
}

}  // namespace

bool agentOpen(agent* self, agentConfig config, dataplane plane, std::string* error) {
    self->config = std::move(config);
    self->tables.plane = plane;
    const agentConfig& c = self->config;
    self->address =
        chassisAddress(c.chassis, c.cp ? APP_ACL_AGENT_CP : APP_ACL_AGENT, c.cp ? 0 : c.slot);
    if (!addressIsKnown(self->address)) {
        *error = c.cp ? "the chassis has no task " + std::to_string(APP_ACL_AGENT_CP)
                      : "the chassis has no card in slot " + std::to_string(c.slot);
        return false;
    }
    self->acl.endpoint = zekEndpointOpen(c.runDir, self->address, aclPort(c), error);
    if (self->acl.endpoint == nullptr) return false;
    if (!c.cp) {
        self->mac.endpoint = zekEndpointOpen(c.runDir, self->address, macPort(c), error);
        if (self->mac.endpoint == nullptr) return false;
    }
    self->link.hasMacQueue = !c.cp;
    self->link.keepaliveMs = c.registerEveryMs;
    self->link.replayIsSure = !c.cp;
    // A card in the last slot would be reported down with the control processor's agent.
    self->link.mayAskDown = !c.cp || cardOf(c, slotOf(c)) == nullptr;
    // Answers to an earlier life of this agent are not to be taken for answers to this one.
    linkStart(&self->link, std::random_device{}());
    return true;
}

void agentClose(agent* self) {
    for (agentQueue* queue : {&self->acl, &self->mac}) {
        zekEndpointClose(queue->endpoint);
        queue->endpoint = nullptr;
    }
}

bool agentServe(agent* self, uint64_t nowMs) {
    self->patienceMs = ANSWER_PATIENCE_MS;
    bool left = drain(self, &self->acl, nowMs);
    // Both are served in each turn: a busy ACL queue must not keep the MAC queue's answers back.
    return (self->mac.endpoint != nullptr && drain(self, &self->mac, nowMs)) || left;
}

void agentTick(agent* self, uint64_t nowMs) {
    linkAction action = linkDue(&self->link, nowMs);
    zekSendResult result = zekSendResult::sent;
    switch (action) {
        case linkAction::none:
            break;
        case linkAction::endUnmarked:
            (void)agentTablesReplayEnd(&self->tables);
            break;
        case linkAction::endUnmarkedMac:
            (void)macTablesReplayEnd(&self->macs);
            break;
        case linkAction::sendDown:
            result = sendDown(self);
            break;
        case linkAction::sendRegistration:
            result = sendRegistration(self, nowMs);
    }
    // A full queue is no news: what was not sent is due again after a while.
    if (result == zekSendResult::nobody) linkNobody(&self->link, action, nowMs);
}
