// IPv4, IPv6, system and DoS access lists.
//
// The caller holds acl_rwlock (for writing unless a read is stated); nothing here locks. Lists and
// entries belong to the store from creation to deletion; pointers that a look-up returns are good
// until the lock is released. Every operation returns a status of include/status.h. A refusal
// leaves no trace.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/lists/list.h"
#include "include/agentMsg.h"
#include "include/status.h"
#include "interface/targets.h"

// --- ordinary lists (list.cpp) ---------------------------------------------------------------

// kind: 1 standard, 2 extended. Returns the list, new or existing, with *status 0, or existing with
// ACL_E_IS_STANDARD / ACL_E_IS_EXTENDED; null with ACL_E_LIST_MEMORY. The empty name is refused
// with ACL_E_NOLIST and null.
aclList* ipAccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                            uint32_t* status);
// ACL_E_NOLIST when it does not exist or is of another kind.
uint32_t ipAccessListDelete(const listName& name, uint32_t kind);
// A sequence number of SEQ_NOT_GIVEN becomes the highest plus 5, written back into the block.
uint32_t ipAddAccessEntry(const listName& name, ipEntryBlock* block, uint32_t log,
                          uint32_t monitor);
// By sequence number when the block gives one, else by content. `send`: port bindings receive the
// deletion; `cfgAndTrigger`: the configuration line goes and the clients are told.
uint32_t ipDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t send,
                          uint32_t cfgAndTrigger);
// The entry with an equal block (sequence number and counter options ignored), or null. A walk.
aclEntry* ipAccessEntFind(const listName& name, const ipEntryBlock* block);
// The entry with the block's sequence number, or null.
aclEntry* ipAccessEntCompareSeq(const listName& name, const ipEntryBlock* block);

aclList* ipAccessListFind(const listName& name);
aclList* ipAccessListFindFirst();
aclList* ipAccessListFindNext(const listName& name);
// The list in front of the named one; null when that is the first or absent.
aclList* ipAccessListFindPrev(const listName& name);
// True for a configured standard or extended list; the second one of any family (intfFamily).
bool ipCheckForPrefixAccessList(const listName& name);
bool aclListIsConfigured(const listName& name, uint32_t family);
// Whether a Telnet server may use the list: ACL_OK, or ACL_E_NOLIST. Nothing changes.
uint32_t AclGetTelnetValue(const listName& name);
uint32_t aclV6GetTelnetValue(const listName& name);
// Rewrites the configuration line of every entry (and remark) of every ordinary and DoS list after
// the mask display mode has changed.
void ipInvertAccessEntryMask();

extern uint32_t ipDelAccessList;  // non-zero while a whole list is being deleted entry by entry

// --- IPv6 lists (ip6.cpp): as the IPv4 operations; all of them are extended, whatever `kind` says
// --

aclList* aclV6AccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                               uint32_t* status);
uint32_t aclV6AccessListDelete(const listName& name, uint32_t kind);
uint32_t aclV6AddAccessEntry(const listName& name, ip6EntryBlock* block, uint32_t log,
                             uint32_t monitor);
uint32_t aclV6DelAccessEntry(const listName& name, const ip6EntryBlock* block, uint32_t send,
                             uint32_t cfgAndTrigger);
aclList* aclV6AccessListFind(const listName& name);
aclList* aclV6AccessListFindFirst();
aclList* aclV6AccessListFindNext(const listName& name);
aclList* aclV6AccessListFindPrev(const listName& name);
uint32_t aclShowV6Acl(const listName& name, void** buffer, uint32_t* size);
uint32_t aclShowV6AclAll(const listName& cursor, void** buffer, uint32_t* size);
uint32_t aclClearV6Acl(const listName& name);
uint32_t aclClearV6AclAll();

// --- system lists (syslist.cpp) --------------------------------------------------------------

aclList* ipSysAccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                               uint32_t ifindex, uint32_t* status);
uint32_t ipSysAccessListDelete(const listName& name, uint32_t ifindex);
uint32_t ipSysAddAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t log,
                             uint32_t ifindex);
uint32_t ipSysDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t send,
                             uint32_t ifindex);
aclEntry* ipSysAccessEntFind(const listName& name, const ipEntryBlock* block);
// The list without its entries, and its entries that are wanted, in their order and as many as a
// message takes: to a card that has nothing of them.
void ipSysSendHeader(const listName& name, uint32_t ifindex);
void ipSysSendEntries(const listName& name, uint32_t ifindex,
                      bool (*wanted)(const ipEntryBlock& block));
// Sends `count` (1-20) consecutive blocks in one message and stores nothing.
uint32_t ipSysAddThirteenAccessEntry(const listName& name, const ipEntryBlock* blocks, uint32_t log,
                                     uint32_t ifindex, uint32_t count);
uint32_t ipSysDelThirteenAccessEntry(const listName& name, const ipEntryBlock* blocks, uint32_t log,
                                     uint32_t ifindex, uint32_t count);
// Those of IPv6, to a target: a card as a whole is {0, slot, all ones}.
uint32_t aclV6SysAddThirteenAccessEntry(const listName& name, const ip6EntryBlock* blocks,
                                        uint32_t log, const aclTarget& target, uint32_t count);
uint32_t aclV6SysDelThirteenAccessEntry(const listName& name, const ip6EntryBlock* blocks,
                                        uint32_t log, const aclTarget& target, uint32_t count);
aclList* ipSysAccessListFind(const listName& name);
aclList* ipSysAccessListFindFirst();
aclList* ipSysAccessListFindNext(const listName& name);
// Of IPv6. The walks above meet them, too.
aclList* aclV6SysAccessListCreate(const listName& name, uint32_t placeholder, uint32_t ifindex,
                                  uint32_t* status);
uint32_t aclV6SysAccessListDelete(const listName& name, uint32_t ifindex);
uint32_t aclV6SysAddAccessEntry(const listName& name, const ip6EntryBlock* block, uint32_t log,
                                const aclTarget& target);
uint32_t aclV6SysDelAccessEntry(const listName& name, const ip6EntryBlock* block, uint32_t send,
                                const aclTarget& target);
aclList* aclV6SysAccessListFind(const listName& name);

// --- DoS lists (doslist.cpp) -----------------------------------------------------------------

aclList* ipDosListCreate(const listName& name, uint32_t flags, uint32_t placeholder,
                         uint32_t* status);
uint32_t ipDosListDelete(const listName& name);
uint32_t ipAddDosEntry(const listName& name, ipEntryBlock* block, uint32_t log);
uint32_t ipDelDosEntry(const listName& name, const ipEntryBlock* block, uint32_t send,
                       uint32_t cfg);
aclEntry* ipDosEntFind(const listName& name, const ipEntryBlock* block);
aclEntry* ipDosEntCompareSeq(const listName& name, const ipEntryBlock* block);
aclList* ipDosListFind(const listName& name);
aclList* ipDosListFindFirst();
aclList* ipDosListFindNext(const listName& name);
aclList* ipDosListFindPrev(const listName& name);
// Turns the one active DoS filter on (command 1041) or off (1040).
uint32_t dosIpEnableIntf(const listName& name, uint32_t command);
extern aclList* dosFilter;  // the active filter, or null

// --- binding to interfaces (binding.cpp) -----------------------------------------------------
// An interface holds at most one list in each direction; binding another one replaces it. A list
// that does not exist is bound as a placeholder, which goes with its last binding.

struct aclBindRequest {
    uint32_t ifindex;
    uint32_t direction;  // 0 in, 1 out
    uint32_t implicitPermit;
    uint32_t writeConfig;  // read when nothing was bound to the interface before; else it is
                           // written in any case
    const bindingBlock* block;
    bool vlanOption;  // vlanText is given and stands in the line
    std::string_view vlanText;
};
// The statuses of include/status.h; ACL_E_SYSTEM after a system error (no memory for list or
// binding), and for a direction that there is not or a bare slot. An interface that the chassis
// does not have is taken: its line bears its index, and its ports get the list when they are there.
// Every index of an interface is taken for the one that its name stands for.
uint32_t aclIpApplyIntf(const listName& name, const aclBindRequest& request);
// Also ACL_E_SYSTEM when the deletion could not be sent to a port: the binding is gone all the
// same.
uint32_t aclIpRemoveIntf(const listName& name, uint32_t ifindex, uint32_t direction);
uint32_t aclV6ApplyIntf(const listName& name, const aclBindRequest& request);
uint32_t aclV6RemoveIntf(const listName& name, uint32_t ifindex, uint32_t direction);
// A port that joins a LAG becomes its member and gets the LAG's lists; one that leaves it loses
// both. 0; 1 when it was a member already (not) any more: nothing is sent; -1 when it cannot be
// one.
int aclLagPortJoined(uint32_t lagIfindex, uint32_t port);
int aclLagPortLeft(uint32_t lagIfindex, uint32_t port);
// One place of a port's record is free: it gets what is bound to its LAG there.
void aclSendLagListToPort(const aclIntf& port, uint32_t family, uint32_t direction);
// A VLAN's lists again, to the cards of a member that has joined it, or from those of one that has
// left. Of a LAG in the VLAN a port may join or leave in the place of the member.
void aclVlanMemberJoined(uint32_t vlanIfindex, uint32_t member);
void aclVlanMemberLeft(uint32_t vlanIfindex, uint32_t member);
// Removes every list from an interface that is no more, with the lines: MAC, IPv4 and IPv6 lists,
// of each inbound then outbound, and the pairs of source guard.
void aclRemoveAllFromInterface(uint32_t ifindex);
// The list's binding to an interface in one direction, or null.
aclBinding* aclInterfaceBinding(const aclList* list, uint32_t ifindex, uint32_t direction);
// The mode under which the change feed tells an interface's lines; 0 for what has none.
uint32_t aclGetCliModeFromIfIndex(uint32_t ifindex);

// --- telling those that a list concerns (trigger.cpp, propagate.cpp, bindreplay.cpp) -----------

// Tells every client of a list that it has changed (route maps are re-evaluated). Null list:
// nothing. Returns 0, or -1 when a send failed.
int aclTrigger(const aclList* list);

// Every list that a management task is a client of, to that task; lists that are behind, when their
// task has answered. A read lock is enough.
void aclSendListsToTask(uint32_t application, uint32_t instance);
void aclServeListsBehind();

// Replays every list that concerns a card, and the active DoS list, to the card's agent. A read
// lock is enough.
void AclUpdateAclAgent(uint32_t slot);
// The list of the control-processor interface, to its own agent.
void aclDownloadCfgtoAcl0();

// --- clients (clients.cpp) -------------------------------------------------------------------
// Tasks and route maps that use a list by name; the route maps' half is in common/client.h. A list
// that does not exist is made as a placeholder, which goes with its last client. family: 1 = IPv4,
// 2 = IPv6.

// The list, or null after a system error (also for a family that has no store). A task and instance
// registers once: a repeated registration changes nothing. SNMP, IPM and SYSADM are sent the
// content of a configured list at once.
aclList* aclAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                          uint32_t caller, uint32_t family);
// 0, also when there is no such list; -1 when the task is not registered.
int aclDelTaskClient(uint32_t application, uint32_t instance, const listName& name,
                     uint32_t family);
// The same for the multicast tasks.
aclList* aclAddTaskMcastClient(uint32_t application, uint32_t instance, const listName& name,
                               uint32_t caller, uint32_t family);
int aclDelTaskMcastClient(uint32_t application, uint32_t instance, const listName& name,
                          uint32_t family);

// --- configuration text (cfgtext.cpp) --------------------------------------------------------
// `remove` 0 writes, 1 removes. Lists named "sgAcl_..." are never written. Database errors are
// debug output only.

void acl_sent_to_cfg(const listName& name, uint32_t remove, uint32_t kind, uint32_t ipv6);
void acl_ent_sent_to_cfg(const aclEntry* entry, uint32_t remove, const listName& name);
void v6acl_ent_sent_to_cfg(const acl6Entry* entry, uint32_t remove, const listName& name);
void dos_sent_to_cfg(const aclList* list, uint32_t remove);
void dos_sent_to_cfg_enabled(const aclList* list, uint32_t add);  // an add flag, not a remove flag
void dos_ent_sent_to_cfg(const aclEntry* entry, uint32_t remove, const listName& name);
// The entry's line as the configuration shows it now.
std::string aclEntryText(const aclEntry* entry);
// The port clause with its leading blank; one static buffer, overwritten by each call.
const char* aclCmpPortPrint(uint32_t op, uint32_t first, uint32_t second);
// " keyword" or " type code", only the parts that are given; appended.
void aclIcmpTypeCodeToString(std::string& out, uint32_t type, uint32_t typeGiven, uint32_t code,
                             uint32_t codeGiven);
// "xx:xx:xx:xx:xx:xx xx:xx:xx:xx:xx:xx", address and mask; appended.
void l2aclPrintMacAddress(std::string& out, const uint8_t* address, const uint8_t* mask);

// --- shows (show.cpp): a read lock is enough for all but the clears --------------------------
// *buffer is a zekMC_M_sysMalloc block (free with zekMC_M_sysFree) of *size bytes whose text starts
// at SHOW_TEXT_OFFSET; null on every status but 0, and for a placeholder.

uint32_t aclShowAlist(const aclList* list, void** buffer, uint32_t* size);
uint32_t aclShowIpAcl(const listName& name, void** buffer, uint32_t* size);
// The list after the cursor (the first one for an empty cursor), placeholders skipped;
// ACL_E_NOLIST behind the last. The reply header carries the marker and the list's name.
uint32_t aclShowIpAclAll(const listName& cursor, void** buffer, uint32_t* size);
uint32_t aclClearIpAcl(aclList* list);
uint32_t aclClearIpAclByName(const listName& name);
uint32_t aclClearIpAclAll();

// --- duplicate check (dupcheck.cpp) ----------------------------------------------------------

struct aclDupNode;  // key and record
zekRadix* aclDupEntCheckTreeCreate(const listName& name);
void aclDupEntCheckTreeDelete(zekRadix* tree);
int aclDupEntCheckNodeInsert(zekRadix* tree, listEntry* record, const void* key, uint32_t keyLen);
void aclDupEntCheckNodeRemove(zekRadix* tree, aclDupNode* node);
aclDupNode* aclDupEntCheckFind(const zekRadix* tree, const void* key, uint32_t keyLen);
aclDupNode* aclDupEntCheckFindNext(const zekRadix* tree, const void* key, uint32_t keyLen);
aclDupNode* aclDupEntCheckFindFirst(const zekRadix* tree);
int aclDupEntCheckRemoveAllNodes(zekRadix* tree);
listEntry* aclDupNodeRecord(const aclDupNode* node);

// The longest content key.
constexpr size_t DUP_KEY_MAX = 80;
// Writes the content key of a block to key (zeroed first) and returns its length in bytes.
uint32_t ipAccessDupEntGenerateKey(const ipEntryBlock& block, uint8_t key[DUP_KEY_MAX]);
uint32_t v6AccessDupEntGenerateKey(const ip6EntryBlock& block, uint8_t key[DUP_KEY_MAX]);

// --- resequencing (resequence.cpp) -----------------------------------------------------------
// Renumbers entries and remarks together, in their order: start, start + step, ...; a remark with
// its entry's number keeps it company. Everybody who uses the list hears of it once: cards by pairs
// of old and new numbers. The configuration is written anew. The write lock is held for a
// millisecond an item when the platform pauses (--pauses).
//
// ACL_E_NOLIST also for a placeholder; ACL_E_SEQ_RANGE when a number would be too large, or several
// items would get one (step 0); ACL_E_MEMORY; ACL_E_STORE when the configuration cannot be read:
// nothing has changed then.
uint32_t ipReseqTheAccessList(const listName& name, uint32_t start, uint32_t step);
uint32_t ipReseqTheV6AccessList(const listName& name, uint32_t start, uint32_t step);
uint32_t l2ReseqTheAccessList(const listName& name, uint32_t start, uint32_t step);
// Adds a pair to the bundle at the cursor, which is made when there is none; a full one goes to the
// cards, the last one of a list too: that ends the bundle. 0, or ACL_E_MEMORY.
uint32_t aclV4BundleSeqNum(const aclList* list, uint32_t last, const reseqPair& pair,
                           agentReseqMsg** cursor);
uint32_t aclV6BundleSeqNum(const aclList* list, uint32_t last, const reseqPair& pair,
                           agentReseqMsg** cursor);
uint32_t l2AclBundleSeqNum(const aclList* list, uint32_t last, const reseqPair& pair,
                           agentReseqMsg** cursor);

// --- remarks (remark.cpp) --------------------------------------------------------------------

// A list's numbered texts, beside its entries. One may stand without an entry of its number; one
// that has its entry's leaves with it. DoS and system lists have none.

// `code`: the command, which says of which family the list is. A remark with the number of another
// one replaces its text. ACL_E_NOLIST also for a placeholder, ACL_E_SEQ_RANGE for a number that no
// entry of the list could have, ACL_E_ENTRY_MEMORY, ACL_E_SYSTEM for no text.
uint32_t aclFindListToAddRemarkEntry(const cliRemarkReq& request, uint32_t code);
// 0 also when no remark has that number; ACL_E_NOLIST.
uint32_t aclFindListToDelRemarkEntry(const listName& name, uint32_t seq, uint32_t code);

// To and from a list that is at hand. Add: 0, ACL_E_SEQ_RANGE, ACL_E_ENTRY_MEMORY. Del: 0, or 1
// when no remark has that number. Compare: the remark with that number, or null.
uint32_t aclAddV4RemarkEntryToList(const cliRemarkReq& request, aclList* list);
uint32_t aclAddV6RemarkEntryToList(const cliRemarkReq& request, aclList* list);
uint32_t aclAddMacRemarkEntryToList(const cliRemarkReq& request, aclList* list);
uint32_t aclDelV4RemarkEntryFromList(const listName& name, uint32_t seq, aclList* list);
uint32_t aclDelV6RemarkEntryFromList(const listName& name, uint32_t seq, aclList* list);
uint32_t aclDelMacRemarkEntryFromList(const listName& name, uint32_t seq, aclList* list);
aclRemark* aclRemarkV4EntCompareSeq(const listName& name, uint32_t seq, const aclList* list);
aclRemark* aclRemarkV6EntCompareSeq(const listName& name, uint32_t seq, const aclList* list);
aclRemark* aclRemarkMacEntCompareSeq(const listName& name, uint32_t seq, const aclList* list);
// With their lines.
void aclDelAllRemarks(aclList* list);
