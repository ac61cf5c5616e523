// An agent: its endpoints, its tables and its standing with the manager. The owner polls the
// descriptors and calls agentServe and agentTick; nothing in here waits for long.
#pragma once

#include "chassis/agent/link.h"
#include "chassis/agent/macTables.h"
#include "chassis/agent/tables.h"
#include "platform/api/zekChassis.h"
#include "platform/api/zekTransport.h"

struct agentConfig {
    std::string runDir;
    chassisDescription chassis;
    bool cp = false;    // the control processor's agent
    uint32_t slot = 0;  // of a card's agent
    uint64_t registerEveryMs = LINK_KEEPALIVE_MS;
};

// A request queue, and what was seen and is owed of the manager's queue to it.
struct agentQueue {
    linkQueue which;
    zekEndpoint* endpoint = nullptr;
    zekSwpSeq seen{};
    zekSwpOwed owed{};
};

struct agent {
    agentConfig config;
    uint32_t address = 0;  // of the card
    agentQueue acl{linkQueue::lists};
    agentQueue mac{linkQueue::mac};  // a card's only
    agentTables tables;
    macTables macs;
    agentLink link;
    int patienceMs = 0;      // for those who ask and do not read, in one call of agentServe
    uint64_t strangers = 0;  // messages from senders or of kinds that have no business here
};

// Binds the endpoints. False and *error when the card is not described or an endpoint is taken.
bool agentOpen(agent* self, agentConfig config, dataplane plane, std::string* error);
void agentClose(agent* self);
// Takes what waits at the endpoints, but not for ever: a busy sender must not keep the owner from
// its signals. True when something may be left.
bool agentServe(agent* self, uint64_t nowMs);
// Sends what is due. agentNextMs is when that is again.
void agentTick(agent* self, uint64_t nowMs);
inline uint64_t agentNextMs(const agent& self) {
    return linkNextMs(self.link);
}

// query.cpp: the answer to a state request (the whole message).
std::vector<uint8_t> agentStateAnswer(const agent& self, std::span<const uint8_t> request);
