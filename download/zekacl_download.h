// The send path to the ACL agents of the line cards, their queues and their state.
//
// Sends never fail the change that caused them: a card that cannot be reached is skipped and
// brought up to date when its agent registers. Only the primary route processor sends, but for the
// control processor's own agent. The caller holds acl_rwlock; one send ends before the next begins
// (they share one staging buffer).
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "common/linecard.h"
#include "common/lists/list.h"
#include "include/agentMsg.h"
#include "interface/targets.h"

// --- sending (send.cpp, place.cpp) -----------------------------------------------------------

// What is sent.
struct aclSend {
    uint32_t messageId;
    const aclList* list;                  // a whole list, or the one that the entries belong to
    const listEntry* entry = nullptr;     // null: the whole list
    uint32_t count = 1;                   // of entries, from this one on: of 14414 and 14415 only
    const bindingBlock* block = nullptr;  // of the binding that it is about; null: zeros
    uint32_t option = 0;                  // its implicit-permit word
};
// To one agent. 0, also for a card that cannot be reached; -1 when memory is short (a system error
// is raised) or when the message id does not carry what is given.
int iAclSendToAclAgent(const aclTarget& target, const aclSend& send);

// To everyone behind a place; cards that do not take it are left out. The result is that of a port,
// or of the last card of a VLAN or a group; for LAGs it is 0.
struct aclOnly {
    int slot = SLOT_NONE;                  // one card
    uint32_t member = 0;                   // the cards of one member of a VLAN, a LAG or a port
    const aclPPBitMap* without = nullptr;  // of a VLAN or a group: not these targets
};
int aclSendToPlace(const aclPlace& place, const aclSend& send, const aclOnly& only = {});
// A DoS list, or one of its entries (null: the list), to the agent of every card.
int dosSendToAllAgents(const aclList* list, const aclEntry* entry, uint32_t messageId);

// Where messages for an interface go.
struct agentRoute {
    zekSwpHandle queue;
    uint32_t slot, address, service;
    int cardSlot;    // SLOT_NONE: belongs to no card
    uint32_t agent;  // whose queue it is
    uint32_t ifindex;
};
agentRoute agentRouteOf(uint32_t ifindex, uint32_t messageId);
// One message to an agent, for bodies of any kind: header as built, its length word and the two
// words in front of the body filled in here. Results as above; -1 also for a body that does not
// fit a message.
int iAclIPCSendAclList(const void* body, size_t bodyLen, const agentRoute& route,
                       const agentHdr& header, bool more);
// Fills the header of a message on its route; the length word says body + 132.
void vAclBuildIpcHdr(agentHdr* header, const agentRoute& route, size_t bodyLen, uint32_t messageId);

// Where messages for the MAC agent of a slot go, which must be below SLOT_COUNT.
agentRoute aclMacRouteOf(uint32_t slot);
// One message (a record of protMsg.h, of which the header is filled in here) to the MAC agent of a
// slot. Results as above.
int aclSendToMacAgent(uint32_t slot, uint32_t messageId, const void* message, size_t size);
// Words and bytes that are only carried, at most AGENT_DATA_MAX of them, to the ACL agent of one
// card that is up or (SLOT_NONE) of each of them.
constexpr size_t AGENT_DATA = offsetof(agentHdr, more);  // where they begin in the message
constexpr size_t AGENT_DATA_MAX = IPC_BUFFER_SIZE - AGENT_DATA;
void aclSendToAllAgents(uint32_t messageId, std::span<const uint8_t> data, int slot = SLOT_NONE);

// Slots 0 to this one are told of new numbers by bundles; agents of others are to be sent the list.
constexpr uint32_t RESEQ_LAST_SLOT = 12;
// A bundle of new numbers to the agent of one slot, results as iAclSendToAclAgent, or to all. Its
// header is made here.
int aclSendIpcToAclAgent(uint32_t slot, const agentReseqMsg& bundle);
void aclSendBundle(const agentReseqMsg& bundle);

// --- copies (mgmt.cpp) -----------------------------------------------------------------------

// The list's copies at the management tasks: SNMP 18, IPM 87, SYSADM 33. IPv6 lists and entries
// go under IPv6 message ids.
void aclSendListToSNMP(const aclList* list, uint32_t messageId);
void aclSendEntToSNMP(const aclList* list, const listEntry* entry, uint32_t messageId);
void aclSendListToIPM(const aclList* list, uint32_t messageId, const listClient* client);
void aclSendListToSYSADMTSk(const aclList* list, uint32_t messageId);
void aclSendEntToSYSADMTSK(const aclList* list, const listEntry* entry, uint32_t messageId);

// IPM gets whole lists only: while it has not answered the one before, a list is behind, and its
// newest state follows when it has. The replay sends at once.
void aclReplayListToIPM(const aclList* list, const listClient* client);
// Takes one list that is behind at an instance which has answered everything; false: none.
bool aclNextListBehind(uint32_t instance, listName* name);

// --- queues (queues.cpp) ---------------------------------------------------------------------
// Creators leave a queue alone that exists. 0; -1 after a system error.

// To a task that the manager needs from its start on. ZEK_SWP_NONE on failure, and no error raised.
zekSwpHandle aclStartQueueCreate(uint32_t peerApp);
constexpr uint32_t QUEUE_MAC_AGENT = 0, QUEUE_ACL_AGENT = 1;
int iAclSwpQueueCreate(uint32_t slot, uint32_t agentFlag);
int iAclToAcl0SwpQueueCreate();
int iAclACL2SwpQueueCreate();
// *attempts counts the failures since the last success.
int aclSNMPSwpQueueCreate(uint32_t* attempts);
// The instance, 0-2, stands in the sender's service number; -1 for any other.
int aclIPMSwpQueueCreate(uint32_t* attempts, const uint8_t* message);
int aclSYSADMTSKSwpQueueCreate(uint32_t* attempts);
// Takes the message (a pool block with a header at least, of which the addresses are filled in
// here) over in every case. 0 or -1.
int AclSwpEnqueACL2(void* message, size_t length);

// --- replays (resync.cpp) --------------------------------------------------------------------
//
// A message that does not go into an ACL agent's queue is one that the agent lacks. The queue says
// so (zekSwp.h), takes nothing more, and tells the task when the agent answers: what the agent is
// to hold is sent whole then (task/replay.cpp), between two marks if the agent takes them. So a
// silent agent costs one message, and a slow one at most what it is to hold and the queue's bound.

// An ACL agent: a slot, or AGENT_CP for the control processor's.
constexpr uint32_t AGENT_CP = SLOT_COUNT, AGENT_COUNT = SLOT_COUNT + 1;
aclAgentState* aclAgentStateOf(uint32_t agent);
// Its queues: that of the lists, and a card's MAC agent's (ZEK_SWP_NONE: none).
struct aclAgentQueues {
    zekSwpHandle lists, mac;
};
aclAgentQueues aclAgentQueuesOf(uint32_t agent);
inline zekSwpHandle aclAgentQueueOf(uint32_t agent) {
    return aclAgentQueuesOf(agent).lists;
}
// A message for the agent could not even be made.
void aclAgentLost(uint32_t agent);
// Whether cards may be sent anything. A manager that is not primary takes back what waits for them
// and owes them a replay.
bool aclMayDownload();
// Takes what an agent's registration says of replays. True when that asks for one.
bool aclAgentNeeds(uint32_t agent, uint32_t replayWord);
// A mark in an agent's queue and in that of its card's MAC agent, if it takes marks; a begin counts
// the replays. A queue that has lost something of the replay gets no end.
void aclSendReplayMark(uint32_t agent, agentReplayMark mark);
// Whether cards filter by egress MAC lists, to one card or (SLOT_NONE) to all.
void aclSendEgrMacEnableToAclAgent(uint32_t enable, int slot = SLOT_NONE);

// --- line cards (linecard.cpp) ---------------------------------------------------------------

// Every record of a card that is up, as text.
std::string aclDumpLinecardInfo();
// The registration's six words into the slot's record.
void aclLinecardFill(uint32_t slot, const agentRegisterReq& request);
// Forgets the slot's agents: queues removed, down, address unknown.
void aclLinecardClear(uint32_t slot);
// Flushes what waits for the slot's agents.
void aclLinecardFlush(uint32_t slot);
// Tells the MAC manager that the slot's agent has registered. 0; -1 when it cannot be reached.
int aclSendLinecardInfoToMacMgr(uint32_t slot);
// Always 0: no card of that family is treated specially.
int aclCheckForQ7mLinecard(const aclIntf* intf);
