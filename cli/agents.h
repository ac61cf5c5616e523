// Asking the cards' agents what they hold.
#pragma once

#include <functional>

#include "cli/render.h"
#include "include/agentState.h"

// An agent as the shell knows it: a card's, or (slot CARD_CONTROL_PLANE) the control processor's.
struct agentPlace {
    uint32_t slot;
    uint32_t card, service;
};
std::string agentLabel(uint32_t slot);  // "1", "control-plane"
// False when the chassis has no such agent.
bool agentFind(const chassisDescription& chassis, uint32_t slot, agentPlace* place);
// Every agent of the chassis, in the order of the slots, the control processor's last.
std::vector<agentPlace> agentsOf(const chassisDescription& chassis);

enum class agentReply { good, noList, notRunning, silent, bad };
const char* agentReplyText(agentReply reply);  // "not running" and the like

// Asks one agent. `request` holds the question; its header is filled here.
agentReply agentAsk(cliSession* session, const agentPlace& place, agentStateReq* request,
                    json* answer);
// Asks as often as the answer goes on, and calls fn with each row of the answers' array `key`.
agentReply agentRows(cliSession* session, const agentPlace& place, agentStateReq request,
                     const char* key, const std::function<void(const json& row)>& fn);
