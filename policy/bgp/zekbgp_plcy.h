// AS-path, community and extended-community lists: the operations of their stores.
//
// Three trees of aspathAclNode by name. A list is absent, a placeholder (clients refer to it) or
// configured; entries stand in the order in which they were added. Nothing here locks: changes are
// made under the write lock, all else under the read lock.
#pragma once

#include <span>
#include <string_view>

#include "common/clients.h"
#include "common/lists/bgpList.h"
#include "include/status.h"
#include "match/zekBgp.h"

// --- AS-path lists ------------------------------------------------------------------------------

bgpList* bgpASPAccessListFindFirst();
bgpList* bgpASPAccessListFindNext(const listName& name);
bgpList* bgpASPAccessListFindPrev(const listName& name);

// A rule as a request states it; `action` is given beside it.
struct aspathRule {
    std::string_view text;
    uint32_t option = 0;
};
// The rule with exactly this action, option word and text. Null.
aspathEntry* bgpASPAccEntFind(const bgpList* list, uint32_t action, const aspathRule& rule);
// The first entry with this action and text, whatever its option word. A walk.
aspathEntry* bgpASPAccessEntFind(const listName& name, uint32_t action, std::string_view text);
// The entry at a position from 1 and its text. Null.
aspathEntry* bgpASPAccessEntFindIndex(const listName& name, uint32_t index, std::string_view* text);

// The list, new or not, or null with *status. placeholder 0 is the operator's create: it makes a
// placeholder a configured list.
bgpList* bgpASPAccessListCreate(const listName& name, uint32_t placeholder, uint32_t* status);
uint32_t bgpASPAccessListDelete(const listName& name);
uint32_t bgpAddASPAccessEntry(const listName& name, uint32_t action, const aspathRule& rule);
uint32_t bgpDelASPAccessEntry(const listName& name, uint32_t action, const aspathRule& rule,
                              uint32_t writeConfig);

// --- community lists ----------------------------------------------------------------------------

bgpList* bgpCommListFindFirst();
bgpList* bgpCommListFindNext(const listName& name);
bgpList* bgpCommListFindPrev(const listName& name);
commEntry* bgpCommAccessEntFind(const listName& name, const commEntryBlock& block);
commEntry* bgpCommAccessEntFindIndex(const listName& name, uint32_t index);
bgpList* bgpCommAccessListCreate(const listName& name, uint32_t placeholder, uint32_t* status);
uint32_t bgpCommAccessListDelete(const listName& name);
uint32_t bgpAddCommAccessEntry(const listName& name, const commEntryBlock& block);
uint32_t bgpDelCommAccessEntry(const listName& name, const commEntryBlock& block);
// 0: every community of the entry is in the COMMUNITIES attribute. -1: one is not, or the entry is
// an expression.
int bgpAccessCommListDelCheckForSubSet(const commEntry& entry, const void* attribute,
                                       uint32_t length);

// --- extended-community lists -------------------------------------------------------------------

bgpList* bgpExtCommListFindFirst();
bgpList* bgpExtCommListFindNext(const listName& name);
bgpList* bgpExtCommListFindPrev(const listName& name);
extCommEntry* bgpExtCommListEntFind(const listName& name, const extCommEntryBlock& block);
bgpList* bgpExtCommListCreate(const listName& name, uint32_t placeholder, uint32_t* status);
uint32_t bgpExtCommListDelete(const listName& name);
uint32_t bgpAddExtCommListEntry(const listName& name, const extCommEntryBlock& block);
uint32_t bgpDelExtCommListEntry(const listName& name, const extCommEntryBlock& block);
std::string aclExtCommToStr(const extCommValue& value);

// --- clients ------------------------------------------------------------------------------------

// kind 1: AS-path, 2: communities of both sorts. 0, or -1 when a send failed.
int aspTrigger(const bgpList* list, uint32_t kind);
// 0, or -1 with a system error. The route maps' half is in common/client.h.
int aspAddTaskClient(uint32_t application, uint32_t instance, const listName& name, uint32_t value,
                     std::span<const clientPairValue> pairs);
int aspDelTaskClient(uint32_t application, uint32_t instance, const listName& name,
                     std::span<const clientPairValue> pairs);
int commAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                      uint32_t value);
int commDelTaskClient(uint32_t application, uint32_t instance, const listName& name);

// --- configuration lines ------------------------------------------------------------------------

void asp_sent_to_cfg(const bgpList* list, uint32_t remove);
void asp_ent_sent_to_cfg(const aspathEntry* entry, uint32_t remove, const listName& name);
void comm_sent_to_cfg(const bgpList* list, uint32_t remove);
void comm_ent_sent_to_cfg(const commEntry* entry, uint32_t remove, const listName& name);
void ext_comm_sent_to_cfg(const bgpList* list, uint32_t remove);
void ext_comm_ent_sent_to_cfg(const extCommEntry* entry, uint32_t remove, const listName& name);
// An entry's configuration line, however long it is.
std::string bgpEntryLine(bgpListKind kind, const bgpEntry* entry);

// --- shows --------------------------------------------------------------------------------------
//
// *buffer is the reply, from the platform's allocator, the caller's to free; null on any status but
// ACL_OK. Names: the list, or for a walk over all the cursor: empty, or the list shown last.

// A page of at most 50 entries. *resume is the number of entries shown before, and then the number
// shown so far, or 0 when the list is done.
uint32_t aclShowASPathList(const listName& name, uint32_t* resume, void** buffer, uint32_t* size);
uint32_t aclShowASPathListAll(const listName& cursor, uint32_t* resume, void** buffer,
                              uint32_t* size);
uint32_t aclShowASPathListConfig(const bgpList* list, uint32_t* resume, void** buffer,
                                 uint32_t* size);
// Whole lists.
uint32_t aclShowIpCommList(const listName& name, void** buffer, uint32_t* size);
uint32_t aclShowIpCommListAll(const listName& cursor, void** buffer, uint32_t* size);
uint32_t aclShowCommListConfig(const bgpList* list, void** buffer, uint32_t* size);
uint32_t aclShowIpExtCommList(const listName& name, void** buffer, uint32_t* size);
uint32_t aclShowIpExtCommListAll(const listName& cursor, void** buffer, uint32_t* size);
uint32_t aclShowExtCommListConfig(const bgpList* list, void** buffer, uint32_t* size);
