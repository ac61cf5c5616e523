// What the manager knows of each line card: 20 slots.
#pragma once

#include <cstdint>

#include "include/ifindex.h"
#include "platform/api/zekSwp.h"

// What the manager knows of an ACL agent's replays (agentMsg.h, the replay word).
struct aclAgentState {
    bool takesMarks = false;
    bool owed = false;    // it was sent nothing, as this route processor is not primary
    bool held = false;    // it is sent nothing yet: who is behind the places is not known
    uint32_t need = 0;    // the agent's own number of its newest need
    uint32_t replay = 0;  // number of the newest replay
};

struct aclLinecard {
    void* ipAddHead;  // chain of the card's interface addresses
    uint32_t isUp;
    uint32_t isVortan;  // takes egress lists
    uint32_t isIpv6Enabled;
    uint32_t word5;  // kept, never interpreted
    uint32_t v6EgAclSupported;
    uint32_t type;  // acl_linecard_type
    zekSwpHandle macAgent;
    zekSwpHandle aclAgent;
    uint32_t agentIpAddr;
    uint32_t agent0IpAddr;
    aclAgentState state{};
    aclAgentState agent0State{};  // of the control processor's agent, as its address
};

constexpr uint32_t LINECARD_CP = 19;  // the record that keeps the control processor's agent

extern aclLinecard aclLinecardInfo[SLOT_COUNT];

// Numbers the messages to the MAC manager and to the peer, and the triggers.
extern uint32_t aclMgrTransId;
