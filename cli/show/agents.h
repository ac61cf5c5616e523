// Asking the cards' agents what they hold.
#pragma once

#include <functional>

#include "cli/show/render.h"
#include "include/agentState.h"

// An agent as the shell knows it: a card's, or (slot CARD_CONTROL_PLANE) the control processor's.
struct agentPlace {
    uint32_t slot;
    uint32_t card, service;
};
std::string agentLabel(uint32_t slot);  // "1", "control-plane"
// An interface as the operator knows it, else its number; and the place of a list that a card
// holds.
std::string agentIfText(const chassisDescription& chassis, uint32_t ifindex);
std::string agentPlaceText(const chassisDescription& chassis, const json& list);
// False when the chassis has no such agent.
bool agentFind(const chassisDescription& chassis, uint32_t slot, agentPlace* place);
// Every agent of the chassis, in the order of the slots, the control processor's last.
std::vector<agentPlace> agentsOf(const chassisDescription& chassis);

enum class agentReply { good, noList, notRunning, silent, bad };
const char* agentReplyText(agentReply reply);  // "not running" and the like

// A question to one agent, and what has become of it. The request's header is filled when it is
// asked.
struct agentQuestion {
    agentPlace place;
    agentStateReq request{};
    agentReply reply = agentReply::silent;
    json answer{};
};
// Asks all of them at the same time: the slowest one's time is what it takes, at most the shell's
// time-out.
void agentAskAll(cliSession* session, std::span<agentQuestion> questions);
// Asks one agent. `request` holds the question.
agentReply agentAsk(cliSession* session, const agentPlace& place, agentStateReq* request,
                    json* answer);
// Asks as often as the answer goes on, and calls fn with each row of the answers' array `key`.
agentReply agentRows(cliSession* session, const agentPlace& place, agentStateReq request,
                     const char* key, const std::function<void(const json& row)>& fn);

// The tables of a card's MAC agent (traps.cpp), for the question CARD_TRAPS or
// CARD_TRAPS_INSTALLED.
cliOutcome showCardTraps(cliSession* session, const cliCommand& command, const agentPlace& place,
                         cliPipe* pipe);
