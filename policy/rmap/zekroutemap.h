// Route maps: named policies of numbered instances, each permit or deny, with match, set and
// continue clauses.
//
// A map is absent, a placeholder (clients refer to it) or configured. The caller holds acl_rwlock
// (for writing unless a read is stated); nothing here locks. Statuses are those of
// include/status.h; a refusal leaves no trace. Every change goes first into the records, then to
// the map's clients, then into the configuration.
#pragma once

#include <string>
#include <string_view>

#include "common/clients.h"
#include "common/lists/routeMap.h"
#include "include/status.h"
#include "match/zekBgp.h"

// --- maps and instances (map.cpp) ---------------------------------------------------------

// Tells the clients of a map that it has changed. 0, or -1 when a send failed. Null: nothing.
int rmapTrigger(rmapList* map);

// Look-ups: a read lock is enough. Null when there is none.
rmapList* ipRmapListFind(const listName& name);
rmapList* ipRmapListFindFirst();
rmapList* ipRmapListFindNext(const listName& name);  // the name need not be there
rmapInstance* rmapInstanceFind(const rmapList* map, int32_t seq);
// The instance with the smallest number above seq, or null.
rmapInstance* rmapInstanceNext(const rmapList* map, int32_t seq);

// Makes the map and an instance of it, or changes the instance's action. *seq -1: the map's only
// instance, 10 in a map without one, ACL_E_RMAP_SEQ_NEEDED in a map with several; the number that
// was taken is written back. A placeholder gets no instance and no configuration line.
// The map, with *status 0; null with any other status.
rmapList* ipRmapListCreate(const listName& name, uint32_t action, int32_t* seq,
                           uint32_t placeholder, uint32_t* status);
void ipRmapListUpdate(rmapList* map, uint32_t action, int32_t seq);
// One instance, or with seq 0 the whole map. A map that is left empty goes, or becomes a
// placeholder while it has clients. named (rmapNamed): an instance of the other action is
// ACL_E_RMAP_NOENTRY, and without a number ACL_E_RMAP_SEQ_NEEDED: no more goes than was named.
uint32_t ipRmapListDelete(const listName& name, int32_t seq, uint32_t named);
// All records of the map or of one instance, with their registrations and configuration lines.
// The map itself stays; Fin does the rest as ipRmapListDelete does.
void ipDelRmapListComplete(rmapList* map);
uint32_t ipDelRmapEntryAll(const listName& name, int32_t seq);
uint32_t ipDelRmapEntryAllFin(const listName& name, int32_t seq);

// --- clauses (clause.cpp) -------------------------------------------------------------------

// Adds or removes one value of a clause, a clause, or an instance's header. A seq of -1 becomes 10
// in the request. An instance must be there before its clauses come (ACL_E_RMAP_NOENTRY), and they
// go with its header. af: AF_IPV4 or AF_IPV6; what decides is the clause's class.
uint32_t ipAddRmapEntry(const listName& name, rmapClauseBlock* request, uint32_t af);
uint32_t ipDelRmapEntry(const listName& name, rmapClauseBlock* request, uint32_t af);
// The record equal to the request (header flag, class, code, seq, dampening, subtype of the first
// extended community; the two community matches count as one code) or null. The request takes over
// the value index of the last record that all but the data matched.
rmapEntry* ipRmapEntFind(const listName& name, rmapClauseBlock* request);

// --- clients (clients.cpp) ------------------------------------------------------------------

// 0 or -1. Pairs are kept for BGP and RTM.
int rmapAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                      std::span<const clientPairValue> pairs, uint32_t value);
int rmapDelTaskClient(uint32_t application, uint32_t instance, const listName& name,
                      std::span<const clientPairValue> pairs);

// --- texts (text.cpp) ----------------------------------------------------------------------

// "" for what the table does not hold; the first two then report a system error by class.
const char* rtmap_code_to_str(uint32_t code, uint32_t cls);
const char* rtmap_code_to_str_conf(uint32_t code, uint32_t cls);
const char* acl_rtmap_code_to_str(uint32_t code);
const char* acl_rtmap_ms_to_str(uint32_t cls);
const char* rtmap_rtype_to_str(uint32_t value);
const char* rtmap_mettype_to_str(uint32_t value);
const char* rtmap_level_to_str(uint32_t value);
// The name of the clause in its line; the exact community match has the one of the other.
const char* rmapClauseName(const rmapEntry& entry);
// Appends a value of the clause as its line shows it, blanks included.
// `name` and `number` are read by the kinds of clause that have them.
void rmapValueText(std::string& out, const rmapEntry& entry, const rmapNameValue* name,
                   const rmapNumberValue* number);
// "route-map NAME permit SEQ".
std::string rmapInstanceText(const listName& name, uint32_t action, int32_t seq);

// --- configuration (cfg.cpp) ---------------------------------------------------------------

// 1 while ipRmapListCreate makes a map that the configuration does not have yet.
extern uint32_t aclIsRmapFirstTime;
// remove: 0 writes, 1 removes; a removal takes every line of the instance.
void rmap_sent_to_cfg(const rmapEntry* header, uint32_t remove, const listName& name);
// Rewrites the instance's line after its action has changed from oldAction.
void rmap_sent_to_cfg_update(const rmapEntry* header, uint32_t oldAction, const listName& name);
// One line of a clause: the given value's, or the clause's own when both are null. Lines that the
// configuration cannot hold are logged and not written.
void rmap_ent_send_to_cfg(const rmapEntry* entry, uint32_t remove, const rmapNameValue* nameValue,
                          const rmapNumberValue* number, const listName& name);
// The line of an as-path prepend clause again, in the AS notation that is configured now.
void rmap_as_path_ent_send_to_cfg(const rmapEntry* entry, uint16_t valueIndex,
                                  const listName& name);
extern bgpAsNotation rmapAsNotation;  // in which the lines show AS numbers
// Sets the AS notation (0 asplain, 1 asdot, 2 asdot+; others are refused with
// ACL_E_SYSTEM) and rewrites every as-path prepend line in it.
uint32_t aclRmapProcBgpASNotation(uint32_t notation);

// --- shows (show.cpp): a read lock is enough -----------------------------------------------
// Buffers as aclShowAlist's.

// Instances with their clauses in groups and their hits.
uint32_t aclShowARmapList(const rmapList* map, void** buffer, uint32_t* size);
uint32_t aclShowRoutemap(const listName& name, void** buffer, uint32_t* size);
// The first map behind the cursor that is not a placeholder.
uint32_t aclShowRoutemapAll(const listName& cursor, void** buffer, uint32_t* size);
// The configuration lines of a map; of all maps for the empty name.
uint32_t aclShowARmapListConfig(const rmapList* map, void** buffer, uint32_t* size);
uint32_t aclShowRoutemapConfig(const listName& name, void** buffer, uint32_t* size);

// --- maintenance and debug (debug.cpp) -----------------------------------------------------

extern uint32_t acl_routemap_debug;  // non-zero: deletions of whole maps are printed
// Writes the configuration lines of a map again and tells its clients.
uint32_t aclRmapUpdateOneList(const listName& name);
// "route-map NAME permit SEQ: N hits", one line an instance; of all maps for the empty name.
std::string rmapPrintHits(const listName& name);
// Checks the records of every map against each other: what does not fit, one line each; "" when
// all do.
std::string aclRTest();
std::string aclDumpRmapList(const rmapList* map);
std::string aclDumpAllRmapList();
