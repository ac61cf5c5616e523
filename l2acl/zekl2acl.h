// MAC access lists: numbered lists of rules over Ethernet frames.
//
// The caller holds acl_rwlock (for writing unless a read is stated). Lists and entries belong to
// the store from creation to deletion. Statuses are those of include/status.h; a refusal leaves no
// trace. What is not said here is as it is for IPv4 lists (ipacl/zekipaccess.h).
#pragma once

#include <cstdint>
#include <string>

#include "ipacl/zekipaccess.h"

// type: 1 standard (source only), 2 extended.
aclList* l2AccessListCreate(const listName& name, uint32_t type, uint32_t placeholder,
                            uint32_t* status);
uint32_t l2AccessListDelete(const listName& name, uint32_t type);
aclList* l2AccessListFind(const listName& name);
aclList* l2AccessListFindFirst();
aclList* l2AccessListFindNext(const listName& name);

// The order replaces the body's; the number that was chosen is written back into the body.
// counterOptions: ipCounterOption.
uint32_t l2AddAccessEntry(const listName& name, macEntryBlock* body, uint32_t log,
                          uint32_t counterOptions, uint32_t order, uint32_t monitor);
// By number, or by content with the given order.
uint32_t l2DelAccessEntry(const listName& name, const macEntryBlock* body, uint32_t order);
// The entry with an equal body, the sequence number not compared; or null. A walk.
l2AclEntry* l2AccessEntFind(const listName& name, const macEntryBlock* body);
// The entry with the body's number, or null.
l2AclEntry* l2AccessEntCompareSeq(const listName& name, const macEntryBlock* body);
uint32_t macAccessDupEntGenerateKey(const macEntryBlock& body, uint8_t key[DUP_KEY_MAX]);

// As AclGetTelnetValue.
uint32_t l2AclGetTelnetValue(const listName& name);

// A list that is bound to a VLAN is not sent to the cards.
uint32_t acll2ApplyIntf(const listName& name, const aclBindRequest& request);
uint32_t acll2RemoveIntf(const listName& name, uint32_t ifindex, uint32_t direction);

// --- clients: they are told of changes, none keeps copies ----------------------------------------

aclList* l2AclAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                            uint32_t caller);
int l2AclDelTaskClient(uint32_t application, uint32_t instance, const listName& name);
int l2AclTrigger(const aclList* list);

// --- shows: a read lock is enough for all but the clears -----------------------------------------

// "Standard|Extended mac access list NAME" and the entries as the configuration has them.
uint32_t l2aclShowAlist(const aclList* list, void** buffer, uint32_t* size);
uint32_t aclShowMacAcl(const listName& name, void** buffer, uint32_t* size);
uint32_t aclShowMacAclAll(const listName& cursor, void** buffer, uint32_t* size);
uint32_t aclClearMacAcl(const listName& name);
uint32_t aclClearMacAclAll();

// --- texts (text.cpp) ----------------------------------------------------------------------------

std::string l2AclListText(const aclList& list);
// The entry's line as the configuration shows it; the first one appends it.
void l2AclEntryText(std::string& line, const l2AclEntry& entry);
inline std::string l2AclEntryText(const l2AclEntry& entry) {
    std::string line;
    l2AclEntryText(line, entry);
    return line;
}
void l2acl_sent_to_cfg(const aclList& list, uint32_t remove);
void l2acl_ent_sent_to_cfg(const l2AclEntry& entry, uint32_t remove, const aclList& list);
