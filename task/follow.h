// What follows from an event, as one table of steps for each (follow.cpp): a card comes up, goes
// down or is to be brought up to date, a member joins or leaves, the primary role is back.
#pragma once

#include <cstdint>

// --- cards, and the agent of the control processor (AGENT_CP) -----------------------------------

// The agent has registered: its card was down, or is new to this manager.
void aclFollowAgentUp(uint32_t agent);
// What the agent is to hold, to be sent between the marks of a replay (replay.cpp). `registered`:
// it follows a registration, and others hear of the card too.
void aclFollowReplay(uint32_t agent, bool registered);
void aclFollowCardDown(uint32_t slot);
// This route processor is not primary any more; it is again, and owes the card a replay.
void aclFollowPrimaryLost();
void aclFollowPrimaryBack(uint32_t slot);

// --- members, under the write lock --------------------------------------------------------------

// 0; 1 when it was a member already (not) any more, -1 when it cannot be one: nothing has followed.
int aclFollowLagJoined(uint32_t lagIfindex, uint32_t port);
int aclFollowLagLeft(uint32_t lagIfindex, uint32_t port);
int aclFollowVlanJoined(uint32_t vlanIfindex, uint32_t member);
int aclFollowVlanLeft(uint32_t vlanIfindex, uint32_t member);
// The interface is no more: members leave, it leaves its LAG and VLANs, what is bound is unbound,
// what the router does on it ends, and the record goes. Nothing for one that has no record.
void aclFollowVlanGone(uint32_t vlanIfindex);
void aclFollowLagGone(uint32_t lagIfindex);
void aclFollowPortGone(uint32_t ifindex);
