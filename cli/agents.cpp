#include "cli/agents.h"

#include "include/service.h"

std::string agentLabel(uint32_t slot) {
    return slot == CARD_CONTROL_PLANE ? "control-plane" : std::to_string(slot);
}

bool agentFind(const chassisDescription& chassis, uint32_t slot, agentPlace* place) {
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
    constexpr const char* texts[] = {"ok", "nothing of that name", "not running", "no answer",
                                     "answer not understood"};
    return texts[static_cast<size_t>(reply)];
}

agentReply agentAsk(cliSession* session, const agentPlace& place, agentStateReq* request,
                    json* answer) {
    cliChannel* channel = &session->channel;
    requestAddress(channel, &request->ipc, MT_AGENT_STATE, sizeof *request, place.card,
                   place.service);
    switch (channelAsk(channel, request, sizeof *request, session->options.timeoutMs)) {
        case askResult::answered:
            break;
        case askResult::noAnswer:
            return agentReply::silent;
        case askResult::unreachable:
        case askResult::failed:
            return agentReply::notRunning;
    }
    std::span<const uint8_t> bytes(channel->message);
    const auto* hdr = wireView<ipcHdr>(bytes);
    if (hdr->status == AGENT_STATE_NOLIST) return agentReply::noList;
    if (hdr->status != AGENT_STATE_OK || bytes.size() < AGENT_STATE_TEXT_OFFSET)
        return agentReply::bad;
    bytes = bytes.subspan(AGENT_STATE_TEXT_OFFSET);
    *answer = json::parse(bytes.begin(), bytes.end(), nullptr, false);
    return answer->is_object() ? agentReply::good : agentReply::bad;
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
