// Agents are asked directly and not through the manager, so that the two can be compared.
#include "cli/show/agents.h"

#include <algorithm>

#include "include/service.h"

std::string agentLabel(uint32_t slot) {
    return slot == CARD_CONTROL_PLANE ? "control-plane" : std::to_string(slot);
}

std::string agentIfText(const chassisDescription& chassis, uint32_t ifindex) {
    std::string name = chassisIfName(chassis, ifindex);
    return name.empty() ? std::to_string(ifindex) : name;
}

std::string agentPlaceText(const chassisDescription& chassis, const json& list) {
    if (uint64_t group = jsonNumber(list, "group"); group != 0)
        return "VLAN group " + std::to_string(group) + " " + jsonText(list, "groupName");
    auto ifindex = static_cast<uint32_t>(jsonNumber(list, "ifindex"));
    // Lists of the whole card are kept under its slot.
    if (ifindex < SLOT_COUNT) return "the card";
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (ifindex == ifindexControlPort(slot)) return "control port";
    return agentIfText(chassis, ifindex);
}

bool agentFind(const chassisDescription& chassis, uint32_t slot, agentPlace* place) {
    // The control processor's agent is an application of its own, the cards' agents are instances
    // of one.
    bool cp = slot == CARD_CONTROL_PLANE;
    uint32_t app = cp ? APP_ACL_AGENT_CP : APP_ACL_AGENT;
    uint32_t instance = cp ? 0 : slot;
    *place = {slot, chassisAddress(chassis, app, instance),
              aclServicePort(app, instance, QUEUE_REQUEST)};
    return addressIsKnown(place->card);
}

std::vector<agentPlace> agentsOf(const chassisDescription& chassis) {
    std::vector<agentPlace> all;
    agentPlace place;
    for (uint32_t slot = 0; slot <= CARD_CONTROL_PLANE; slot++)
        if (agentFind(chassis, slot, &place)) all.push_back(place);
    return all;
}

const char* agentReplyText(agentReply reply) {
    // In the order of agentReply.
    constexpr const char* texts[] = {"ok", "nothing of that name", "not running", "no answer",
                                     "answer not understood"};
    return texts[static_cast<size_t>(reply)];
}

namespace {

constexpr int RESEND_MS = 20;  // until a question that met a full socket goes again

enum class asked { full, sent, done };

// Sends a question whose time has come. An agent that has stopped leaves its socket full.
asked send(const cliChannel& channel, agentQuestion* q) {
    switch (zekEndpointSend(channel.endpoint, &q->request, sizeof q->request, 0)) {
        case zekSendResult::sent:
            return asked::sent;
        // A full socket is not an absent agent: it is tried again until the time is over.
        case zekSendResult::full:
            return asked::full;
        default:
            q->reply = agentReply::notRunning;
            return asked::done;
    }
}

void takeAnswer(const cliChannel& channel, agentQuestion* q) {
    std::span<const uint8_t> bytes(channel.message);
    const auto* hdr = wireView<ipcHdr>(bytes);
    q->reply = hdr->status == AGENT_STATE_NOLIST ? agentReply::noList : agentReply::bad;
    if (hdr->status != AGENT_STATE_OK || bytes.size() < AGENT_STATE_TEXT_OFFSET) return;
    bytes = bytes.subspan(AGENT_STATE_TEXT_OFFSET);
    // The text is another process's: what is no object is an answer that was not understood.
    q->answer = json::parse(bytes.begin(), bytes.end(), nullptr, false);
    if (q->answer.is_object()) q->reply = agentReply::good;
}

}  // namespace

void agentAskAll(cliSession* session, std::span<agentQuestion> questions) {
    cliChannel* channel = &session->channel;
    std::vector<asked> states(questions.size(), asked::full);
    for (agentQuestion& q : questions) {
        q.reply = agentReply::silent;
        requestAddress(channel, &q.request.ipc, MT_AGENT_STATE, sizeof q.request, q.place.card,
                       q.place.service);
    }
    // One deadline for all of them, however many cards there are.
    const int64_t deadline = nowMs() + session->options.timeoutMs;
    for (;;) {
        bool open = false, full = false;
        for (size_t i = 0; i < questions.size(); i++) {
            if (states[i] == asked::full) states[i] = send(*channel, &questions[i]);
            full |= states[i] == asked::full;
            open |= states[i] != asked::done;
        }
        const int64_t left = deadline - nowMs();
        // Who has not answered by now keeps the reply that it was given at first: silent.
        if (!open || left <= 0) return;
        const ipcHdr* hdr = channelReceive(
            channel, static_cast<int>(full ? std::min<int64_t>(left, RESEND_MS) : left));
        if (hdr == nullptr) continue;
        auto answered = std::ranges::find_if(questions, [hdr](const agentQuestion& q) {
            return q.request.ipc.sequence == hdr->sequence;
        });
        if (answered == questions.end()) {
            channel->strays++;  // a late answer to an earlier question
            continue;
        }
        takeAnswer(*channel, &*answered);
        states[static_cast<size_t>(answered - questions.begin())] = asked::done;
    }
}

agentReply agentAsk(cliSession* session, const agentPlace& place, agentStateReq* request,
                    json* answer) {
    agentQuestion q{place, *request};
    agentAskAll(session, {&q, 1});
    *request = q.request;
    *answer = std::move(q.answer);
    return q.reply;
}

agentReply agentRows(cliSession* session, const agentPlace& place, agentStateReq request,
                     const char* key, const std::function<void(const json& row)>& fn) {
    for (;;) {
        json answer;
        agentReply reply = agentAsk(session, place, &request, &answer);
        if (reply != agentReply::good) return reply;
        for (const json& row : jsonArray(answer, key)) fn(row);
        uint64_t next = jsonNumber(answer, "next");
        if (next == 0) return reply;
        // An index that does not grow would ask the same for ever.
        if (next <= request.index || next > 0xFFFFFFFF) return agentReply::bad;
        request.index = static_cast<uint32_t>(next);
    }
}
