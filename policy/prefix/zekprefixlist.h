// Prefix lists: named, ordered lists of prefixes to permit or deny, one name tree per family.
//
// af is 1 for IPv4 and 2 for IPv6 everywhere; any other value is refused with ACL_E_SYSTEM, null or
// -1. Entries come as the record of their family (prefixRecordOf). The caller holds the write lock
// for changes and the read lock for shows and look-ups. Statuses are those of include/status.h; a
// refusal leaves nothing behind.
#pragma once

#include <span>
#include <string>

#include "common/clients.h"
#include "match/zekPrefix.h"

// --- lists and entries (list.cpp) ----------------------------------------------------------

prefixList* ipPrefixListFindFirst(uint32_t af);
// The list with the smallest name above this one, which need not be there.
prefixList* ipPrefixListFindNext(const listName& name, uint32_t af);
prefixEntry* ipPrefixEntFindSeq(const listName& name, const prefixRecord& entry, uint32_t af);
// By address, mask, action, ge, le and the word of the length, whatever the number.
prefixEntry* ipPrefixEntFind(const listName& name, const prefixRecord& entry, uint32_t af);

// Finds or makes a list. placeholder 0: the operator configures it, which turns a placeholder into
// a configured list. Null with a status when it cannot.
prefixList* ipPrefixListCreate(const listName& name, uint32_t placeholder, uint32_t* status,
                               uint32_t af);
// Clients keep the list as an empty placeholder.
uint32_t ipPrefixListDelete(const listName& name, uint32_t af);
// A number of 0 is replaced by the last one + 5. Numbers go from 1 to 65534.
uint32_t ipAddPrefixEntry(const listName& name, const prefixRecord& entry, uint32_t af);
// By number when one is given, else by content. writeConfig 0 leaves the entry's line alone.
uint32_t ipDelPrefixEntry(const listName& name, const prefixRecord& entry, uint32_t writeConfig,
                          uint32_t af);
// Renumbers the entries start, start + step, ...; waits 1 ms before each one and tells the clients
// once. A number above 65534, a start or a step of 0: ACL_E_SEQ_RANGE, and nothing has changed; nor
// has it when the configuration cannot be read (ACL_E_STORE).
uint32_t ipReseqPrefixList(const listName& name, uint32_t start, uint32_t step, uint32_t af);

// --- clients (clients.cpp; the route maps' are in common/client.h) --------------------------

// Tells every client. 0, or -1 when a send failed: the clients behind it were not told.
int prefixTrigger(const prefixList* list, uint32_t af);
// 0 or -1. Only BGP (65) and LDP (185) have pairs.
int prefixAddTaskClient(uint32_t taskId, uint32_t instance, const listName& name,
                        std::span<const clientPairValue> pairs, uint32_t value, uint32_t af);
int prefixDelTaskClient(uint32_t taskId, uint32_t instance, const listName& name,
                        std::span<const clientPairValue> pairs, uint32_t af);

// --- shows (show.cpp) ----------------------------------------------------------------------

constexpr uint32_t PREFIX_SHOW_ENTRIES = 50;    // a page
constexpr uint32_t PREFIX_SHOW_BUFFER = 16000;  // bytes; text from SHOW_TEXT_OFFSET on

// One page of a list into a fresh buffer (freed with zekMC_M_sysFree). *resume is how many entries
// were shown before, and becomes how many have been shown, or 0 when the list is done; it also goes
// into the buffer's marker word, and the list's name behind it. lastChanged: the first page says
// which list was changed last.
uint32_t prefixShowList(const prefixList* list, void** buffer, uint32_t* size, uint32_t lastChanged,
                        uint32_t* resume, uint32_t af);
uint32_t prefixShowIpList(const listName& name, void** buffer, uint32_t* size, uint32_t lastChanged,
                          uint32_t* resume, uint32_t af);
// The walk over all lists: an empty name starts it; a resume index of 0 asks for the list behind
// the named one. ACL_E_PREFIX_NOLIST ends it.
uint32_t prefixShowIpListAll(const listName& cursor, void** buffer, uint32_t* size,
                             uint32_t lastChanged, uint32_t* resume, uint32_t af);
uint32_t prefixClearIpList(const listName& name, uint32_t af);
uint32_t prefixClearIpListAll(uint32_t af);

// --- configuration lines (cfg.cpp) --------------------------------------------------------

void prefix_sent_to_cfg(const prefixList* list, uint32_t remove, uint32_t af);
void prefix_ent_sent_to_cfg(const prefixEntry* entry, uint32_t remove, uint32_t af,
                            const listName& name);
// The line of an entry in the mask mode that is set, as the configuration has it.
std::string prefixEntryText(const prefixEntry* entry, uint32_t af);

// --- the second ACL agent (acl2.cpp) -------------------------------------------------------

// Queues every configured list of the family to it, as the requests that made them. Nothing
// without such an agent. A read lock is enough.
void prefixDownloadIpListAll(uint32_t af);
