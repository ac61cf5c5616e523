// What the files of the task share: start-up, registration, dispatch, replies.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "common/await.h"
#include "common/debug.h"
#include "common/node.h"
#include "include/ipc.h"

// --- start-up (start.cpp) --------------------------------------------------------------------

// The task: never returns but with -1 after a failed start.
int AclMain(int argc, char** argv);
// The state root and everything that hangs off it. Null when something cannot be made: the log says
// what, and what was made before is gone again.
aclNodeRecord* AclInitialize(int argc, char** argv);
// The trees of AS-path and community lists, or null.
aspathAclNodeRecord* AspathAclInitialize();
// Undoes a failed start.
void AclFree(aclNodeRecord* node);
void init_acl_mutexes();
// Leaves word where tasks inside the process find the lists. False without memory.
bool aclStoreDBShmAddr(aclNodeRecord* node, uint32_t* readCounter, aspathAclNodeRecord* aspathNode);
// What kind of chassis it is decides what cards are taken to hold before they say so themselves.
void AclGetChassMode(uint32_t taskHandle);
void aclCreateShowRunningDummyNodes();
// Frees a share of the expressions whose entries have gone; called on every pass.
void aclProcessRegexPendingDelete();
constexpr uint32_t REGEX_CLEANUP_MAX = 1000;
// One pass of the main loop. `pass` counts from 1; the message buffer is the task's.
void aclLoopOnce(aclNodeRecord* node, uint32_t pass, std::span<uint8_t, IPC_BUFFER_SIZE> buffer);

constexpr uint32_t SELECT_TIMEOUT_MS = 5000;
constexpr uint32_t POOL_FIXED = 0x50000;
constexpr uint32_t POOL_FIXED_2 = 0x5001D;
constexpr uint32_t POOL_COUNT = 25;  // ids 0x50000 to 0x50018

// --- registration (registration.cpp) ---------------------------------------------------------

// The system list "Global Acl", made if it is not there, to the slot's card. 0; -1 without memory.
int SysListRegistration(uint32_t slot);
// Tries every registration that is not done; called on every fourth pass.
void aclSendRegistration();
// One try each. 0, or -1: it is to be tried again.
int AclRegisterWithIFM(uint32_t instance, uint32_t ipckey);
int AclRegisterWithEvtHandler(uint32_t attempt, zekEvtLog log);
int AclRegisterWithUDPHelper();

// --- the peer route processor (ha.cpp) -------------------------------------------------------

// 0: it was sent, or there is nobody to send it to. -1: it is to be tried again.
int aclRegisterWithPeer(uint32_t attempt);
// The state of all cards, because of one: slot 0-19, or 20 for the CAM profile. 0 or -1 as above.
int aclSendUpdateToPeer(uint32_t kind);
void aclHandleRamDataSyncNotif(const uint8_t* message);
// Messages 14522 to 14524 of the peer.
void aclHandlePeerMsg(uint8_t* message);

// --- dispatch (dispatch.cpp, cliDispatch.cpp) ------------------------------------------------

// A message as it came: `received` bytes at the front of the buffer. Drops what is shorter than a
// header, mends a length word that lies, zeroes the buffer behind the message, then dispatches.
void aclTakeMessage(aclNodeRecord* node, std::span<uint8_t, IPC_BUFFER_SIZE> buffer,
                    size_t received);
// The message's header length is good (60 to IPC_BUFFER_SIZE) and the bytes behind it are zero. -1,
// or for a few types what the handler returned.
int AclProcMsg(aclNodeRecord* node, uint8_t* message);
// Runs an operator's command and answers it.
void AclProcCliCmd(aclNodeRecord* node, uint8_t* message);

// Gives a list of any kind its description, or takes it (description.cpp): the list must be
// configured, else its kind's status of a missing one. ACL_E_SYSTEM for a kind that there is not
// and for no text.
struct cliDescriptionReq;
uint32_t aclManageDescriptionForLists(const cliDescriptionReq& request);

// --- agents (agents.cpp) ---------------------------------------------------------------------

// The handlers of 14403, 14404 and 14401; they answer themselves.
int aclHandleAgentRegister(aclNodeRecord* node, uint8_t* message);
int aclHandleAgentQueue(aclNodeRecord* node, uint8_t* message);
int aclHandleAcl0Register(aclNodeRecord* node, uint8_t* message);
// At a start it takes a moment until the interface manager has said who is a member of what. A card
// that was filtering all the while must not lose the lists of its LAGs and VLANs for that moment:
// agents that register are answered and held, and get their replays when an empty event message
// has said that everything is told, at the latest after PLACES_WAIT_MS.
constexpr uint64_t PLACES_WAIT_MS = 3000;
void aclAwaitPlaces();
void aclPlacesTold();
bool aclPlacesAreAwaited();
void aclReleaseHeldAgents();  // called on every pass
// Forgets a card's agents, so that the next registration rebuilds its state. A slot that there is
// not is only logged.
void aclHandleCardDownNotif(uint32_t slot);

// --- the interface manager (notify.cpp) ------------------------------------------------------
//
// Indexes are taken as they are told: what a message calls an interface need not be the one index
// under which its records stand. A message that says of itself what cannot be is taken as far as it
// is good, and false returned.

// Message 10896: takes the write lock.
bool aclHandleIFMNotifMsg(std::span<const uint8_t> message);
std::string ifmSvcTypeToStr(uint32_t type);
// The rest under the write lock. Ports that leave a VLAN (10873), at most IFM_PORTS_LEAVE_BYTES:
bool vAclDelMultiplePort(std::span<const uint8_t> message);
// A port (or LAG) becomes a member of exactly these VLANs (10878). Nothing changes on false.
bool vAclSetPortVlans(std::span<const uint8_t> message);
// Types 41 and 42; others do nothing.
void vAclAddDelPortToVlan(uint32_t member, uint32_t vlan, uint32_t type);
void iAclAddLagPorts(uint32_t lag, uint32_t port);
void iAclDelLagPorts(uint32_t lag, uint32_t port);
// Makes a VLAN's record, or gives it another state; other interfaces get theirs on first use.
void aclIfmAddIf(uint32_t ifindex, uint32_t value);
// Everything on the interface goes with it, the configuration of its lists too.
void aclIfmDelIf(uint32_t ifindex);
void iAclDelLag(uint32_t lag);
void aclDeleteVlan(uint32_t vlan);
void aclSetPortMode(uint32_t ifindex, uint32_t mode);
// The chassis has another CAM profile.
void aclHandleCamPrfChgNotif(uint32_t profile, uint32_t microcode);

// --- queues to peers that keep copies (queueEvents.cpp) ---------------------------------------

// The tasks that keep copies of lists, and the second ACL agent: each gets its queue, in a new
// session, and everything that it must have.
int aclHandleSnmpRegister(aclNodeRecord* node, uint8_t* message);
int aclHandleIpmRegister(aclNodeRecord* node, uint8_t* message);
int aclHandleSysadmRegister(aclNodeRecord* node, uint8_t* message);
int aclHandleAcl2Register(aclNodeRecord* node, uint8_t* message);
// Starts queues over that have lost messages and whose peers answer; called on every pass.
void aclServeQueues();

// --- replays (replay.cpp) ----------------------------------------------------------------------

// Sends an agent whose queue is there everything that it is to hold, in a new session.
// `registered`: the peer and the MAC manager hear of the card too.
void aclReplayToAgent(uint32_t agent, bool registered);
// Whether this route processor has got the primary role, or lost it: looked at on every pass before
// its messages, which may be the news that follow. Then the replays that are owed since it had not.
void aclNoticeRole();
void aclReplayOwed();

// --- registrations of clients (clientReg.cpp) ------------------------------------------------

// The handler of 14442 to 14457: the result goes into the message. 0 or -1.
int aclHandleClient(aclNodeRecord* node, uint8_t* message);

// --- replies (reply.cpp) ---------------------------------------------------------------------

// The request goes back as it stands, with its triples exchanged.
void AclIpcReply(uint32_t queue, uint8_t* message);
// Likewise, with three tries; always 1.
int AclDaiIpcReply(uint8_t* message);
// The SWP kinds: 0 when the message is in order and is to be handled, 1 when it was seen before, -1
// on an error (printed in debug).
int AclMacMgrIpcReply(uint8_t* message);
int AclIfmIpcReply(uint8_t* message);
int AclUDPHlpIpcReply(uint8_t* message);
int AclVrrpIpcReply(uint8_t* message);
// Sends a show's reply buffer as the answer to `message` and frees it. 0 or -1.
int AclSendDisplayBuffer(void* buffer, uint32_t size, const uint8_t* message);

// What is served while the task waits for an answer (common/await.h).
aclWaitService aclUrgentMessages();
// An answer to a registration that nobody waits for any more.
void aclIfmLateAnswer(uint32_t sequence);

// What the dispatchers count; shown by `show system`.
struct aclTaskCounters {
    uint64_t messages;   // dispatched
    uint64_t tooShort;   // shorter than a header: dropped
    uint64_t badLength;  // length word mended
    uint64_t badNames;   // a name or text that no line could show
    uint64_t truncated;  // body shorter than its type or code needs
    uint64_t unknownType;
    uint64_t unknownCode;
    uint64_t notBuilt;    // types and codes whose subsystem is missing
    uint64_t outOfOrder;  // SWP messages that were neither next nor seen
    uint64_t swp_ack;
    uint64_t ACLMAC_ADD, ACLMAC_DELENTRY, ACLMAC_DELALLENTRY;
    uint64_t passes;
};
extern aclTaskCounters aclCounters;

inline ipcHdr* msgHdr(uint8_t* message) {
    return reinterpret_cast<ipcHdr*>(message);
}
// The word at an offset of a message, or 0 behind its end.
uint32_t msgWord(const uint8_t* message, uint32_t offset);

// Logs, once per name, that something whose subsystem is missing was asked for.
void aclNotBuilt(const char* what);
// Whether the configuration can be changed: what is restored always can.
bool aclCanChange();

// --- triggers (trigger.cpp; aclSendTrigger is in common/client.h) ---------------------------

// JSON: every registered client, and how it was told (clientShow.cpp).
std::string aclClientsDump();

// --- debug shell (debugFunctions.cpp, nodeDump.cpp, ...) ---

void aclRegisterDebugFunctions();
void aclRegisterFilterChecks();          // filterChecks.cpp
void aclRegisterInstalledFunctions();    // installed.cpp
void aclRegisterPlaceFunctions();        // places.cpp
void aclRegisterSourceGuardFunctions();  // sourceGuard.cpp
void aclRegisterSystemListFunctions();   // systemLists.cpp
void aclRegisterMacIntentFunctions();    // intendedMacs.cpp
void aclRegisterVlanGroupFunctions();    // vlanGroups.cpp
void aclRegisterAddressFunctions();      // addresses.cpp
void aclRegisterBgpFunctions();          // bgpChecks.cpp
void aclRegisterPrefixFunctions();
void aclRegisterMacFunctions();   // prefixFunctions.cpp
void aclRegisterRmapFunctions();  // rmapDebug.cpp
void aclRegisterRmapChecks();     // rmapChecks.cpp

// Evaluates a route map for a prefix and appends the verdict as text. The verdict: 1 drops.
struct rmapList;
int ipRmapCheck(uint32_t prefix, uint32_t mask, const rmapList* map, std::string* out);

// Evaluates the AS-path list of that number against a path of `count` AS numbers, as a sequence and
// again as a set; appends the path and the verdict as text. The verdict; 0 when count is above 4.
constexpr size_t AS_CHECK_MAX = 4;
int ipAsCheck(uint32_t count, const std::array<uint16_t, AS_CHECK_MAX>& as, uint32_t listId,
              std::string* out);
std::string aclDumpNode(const aclNodeRecord* node);
