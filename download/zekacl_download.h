// The send path to the ACL agents of the line cards, their queues and their state.
//
// Sends never fail the change that caused them: a card that cannot be reached is skipped and
// brought up to date when its agent registers. Only the primary route processor sends, but for the
// control processor's own agent. The caller holds acl_rwlock; one send ends before the next begins
// (they share one staging buffer).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>

#include "common/linecard.h"
#include "common/list.h"
#include "common/macList.h"
#include "include/agentMsg.h"
#include "interface/interface.h"

// --- sending (send.cpp) ----------------------------------------------------------------------

// A whole list to the card of an interface. `flag` is 1 from every caller; `option` is the
// implicit-permit word (header 364), `portPipe` the option byte (header 909), `groupId` a VLAN
// group 1-8 or 0. 0 or -1.
int aclSendToAclAgent(aclList* list, uint32_t ifindex, uint32_t flag, uint32_t messageId,
                      uint32_t option, uint32_t portPipe, uint32_t groupId);
// One entry of the list named. `count` goes out for 14414 and 14415 only (else 1): so many entries
// of the chain that begins with this one.
int aclSendEntToAclAgent(const aclEntry* entry, uint32_t ifindex, uint32_t messageId,
                         uint32_t count, uint32_t portPipe, uint32_t groupId, const listName& name);
// A DoS list, or one of its entries (null: the list), to the agent of every card.
int dosSendToAllAgents(aclList* list, const aclEntry* entry, uint32_t messageId);
// An IPv6 list, or one of its entries, to a slot's agent. `ifindex` only tells the agent what the
// list is bound to (0: nothing). A slot that is none (-1 for LAGs and VLANs) is skipped.
int aclV6SendListToAclAgent(uint32_t ifindex, aclList* list, uint32_t messageId, uint32_t slot,
                            int portPipe, uint32_t option);
int aclV6SendEntToAclAgent(uint32_t ifindex, const acl6Entry* entry, uint32_t messageId,
                           uint32_t slot, int portPipe, const listName& name);

// What a send carries: one list, or one entry, of one family. The message id must fit.
using aclSendItem = std::variant<const aclList*, const aclEntry*, const acl6Entry*,
                                 const l2AclList*, const l2AclEntry*>;
struct aclSendRequest {
    aclSendItem item;
    uint32_t ifindex;  // where it is bound: decides the card and stands in the list header
    uint32_t messageId;
    uint32_t count = 1;       // entries: see aclSendEntToAclAgent
    uint32_t entryCount = 0;  // header 896
    uint32_t option = 0;
    uint32_t portPipe = 0;
    uint32_t groupId = 0;            // other values than 1-8 count as 0
    uint32_t vlan = 0;               // the VLAN interface on whose behalf the send is made
    int slot = SLOT_NONE;            // decides the card in the place of ifindex
    const listName* name = nullptr;  // entries: their list's
};
// 0, also for a card that cannot be reached; -1 when memory is short (a system error is raised) or
// when the item does not fit the message id.
int iAclSendToAclAgent(const aclSendRequest& request);

// One message to the agent of an interface's card, for bodies of any kind: header as built, its
// length word and the two words in front of the body filled in here. Results as above; -1 also for
// a body that does not fit a message.
int iAclIPCSendAclList(const void* body, size_t bodyLen, uint32_t ifindex, const agentHdr& header,
                       bool more);
// Fills the header for the agent of an interface's card; the length word says body + 132.
void vAclBuildIpcHdr(agentHdr* header, uint32_t ifindex, size_t bodyLen, uint32_t messageId);

// --- VLANs and targets (vlan.cpp) ------------------------------------------------------------

// The same to every card with a member port of a VLAN. `flag` and `ipv6` are 0 / 1; ipv6 says that
// the list's chain is of IPv6 entries. The result is the last send's.
int aclSendVlanAclToAclAgent(aclList* list, uint32_t vlanIfindex, uint32_t flag, uint32_t messageId,
                             uint32_t implicitPermit, uint32_t ipv6);
int aclSendVlanAclEntToAclAgent(const aclEntry* entry, uint32_t vlanIfindex, uint32_t flag,
                                uint32_t messageId, uint32_t count, uint32_t ipv6,
                                const listName& name);
int aclV6SendVlanAclEntToAclAgent(const acl6Entry* entry, uint32_t vlanIfindex, uint32_t messageId,
                                  const listName& name);
// Only to the card, or the cards, of one member, a LAG or (lag 0) a port.
int aclSendVlanAclToAclAgentSpecificMember(aclList* list, uint32_t vlanIfindex, uint32_t flag,
                                           uint32_t messageId, uint32_t implicitPermit,
                                           uint32_t ipv6, uint32_t lag, uint32_t port);
// Replays a VLAN's list to one card, if a member port sits there and the card takes the list.
int aclSendVlanAclForResetLinecard(aclList* list, const aclBinding* binding, uint32_t slot,
                                   uint32_t messageId, uint32_t ipv6);

// The targets of a list that is bound to a LAG or VLAN; non-zero: the list goes there.
constexpr uint32_t PP_TARGETS = 64;
using aclPPBitMap = std::array<uint32_t, PP_TARGETS>;
// Marks the targets of the interface's ports whose cards take the list; a card that does not is
// reported once a call. A port by itself is only checked, and marked for an egress IPv6 list alone.
void aclGetPPBitMap(uint32_t ifindex, aclPPBitMap* map, uint32_t ipv6, uint32_t messageId);
bool aclV6IsEgAcl(uint32_t messageId);
// A list (entry null) or one of its entries to the port pipes of an ACL VLAN group, 1-8. 0 or -1.
int aclSendToVlanGroup(aclList* list, const aclEntry* entry, uint32_t groupId, uint32_t messageId);

// --- copies (mgmt.cpp) -----------------------------------------------------------------------

// The list's copies at the management tasks: SNMP 18, IPM 87, SYSADM 33.
void aclSendListToSNMP(aclList* list, uint32_t messageId, const aclBinding* binding);
void aclSendEntToSNMP(aclList* list, const aclEntry* entry, uint32_t messageId,
                      const aclBinding* binding);
void aclSendListToIPM(aclList* list, uint32_t messageId, const aclBinding* binding);
void aclSendListToSYSADMTSk(aclList* list, uint32_t messageId);
void aclSendEntToSYSADMTSK(aclList* list, const aclEntry* entry, uint32_t messageId);
// The same for IPv6 lists, of which IPM keeps none.
void aclV6SendListToSNMP(aclList* list, uint32_t messageId, const aclBinding* binding);
void aclV6SendEntToSNMP(aclList* list, const acl6Entry* entry, uint32_t messageId,
                        const aclBinding* binding);
void aclV6SendListToSYSADMTSK(aclList* list, uint32_t messageId);
void aclV6SendEntToSYSADMTSK(aclList* list, const acl6Entry* entry, uint32_t messageId);

// IPM gets whole lists only: while it has not answered the one before, a list is behind, and its
// newest state follows when it has. The replay sends at once.
void aclReplayListToIPM(aclList* list, const aclBinding* binding);
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
zekSwpHandle aclAgentQueueOf(uint32_t agent);
// A message for the agent could not even be made.
void aclAgentLost(uint32_t agent);
// Whether cards may be sent anything. A manager that is not primary takes back what waits for them
// and owes them a replay.
bool aclMayDownload();
// Takes what an agent's registration says of replays. True when that asks for one.
bool aclAgentNeeds(uint32_t agent, uint32_t replayWord);
// A mark in an agent's queue, if it takes marks; a begin counts the replays.
void aclSendReplayMark(uint32_t agent, agentReplayMark mark);

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
