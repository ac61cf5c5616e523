// What the files of the route-map store share. Private to this folder.
#pragma once

#include "common/cfgkeys.h"
#include "match/zekRmap.h"
#include "policy/rmap/zekroutemap.h"

constexpr int32_t RMAP_SEQ_DEFAULT = 10;
// A request's number is taken as it is: -1 is "not given".
inline int32_t rmapSeqOf(uint32_t word) {
    return static_cast<int32_t>(word);
}

// --- records (record.cpp) --------------------------------------------------------------------

// An empty map in the tree, or null.
rmapList* rmapMake(const listName& name, uint32_t placeholder);
// Takes a map without instances out of the tree and frees it with its clients.
void rmapDrop(rmapList* map);
// A record of the instance, which is made when it is not there; a header goes to its front, a
// clause to its end. With a payload when the code has one. Null when there is no memory: nothing
// has changed then.
rmapEntry* rmapEntryMake(rmapList* map, const rmapClauseBlock& request);
// Unlinks and frees a record that holds no values, and its instance with the last one.
void rmapEntryDrop(rmapList* map, rmapEntry* entry);
// Puts the fields of the first instance in step with the list, if there is one.
void rmapTakeFirst(rmapList* map);
rmapNameValue* rmapNameMake(const listName& name);
rmapNumberValue* rmapNumberMake(uint32_t value, uint16_t subValue);
void rmapNameFree(rmapNameValue* value);
void rmapNumberFree(rmapNumberValue* value);

// Where the payload of a code is in a request, and its bytes; {0, 0} for codes without one.
struct rmapPayloadPlace {
    size_t offset, size;
};
rmapPayloadPlace rmapPayloadOf(uint32_t code);

// --- instances (map.cpp) --------------------------------------------------------------------

// The instance's header goes, and with it the lines of the instance: its clauses go too.
uint32_t rmapInstanceDelete(rmapList* map, int32_t seq);

// --- clauses (clause.cpp) ---------------------------------------------------------------------

// As ipAddRmapEntry, on a map that may still be a placeholder.
uint32_t rmapEntryAdd(rmapList* map, rmapClauseBlock* request);
// Takes every registration and value from a record, without a word to clients or configuration.
void rmapValuesRelease(const rmapList* map, rmapEntry* entry);

// --- clients (clients.cpp) --------------------------------------------------------------------

// Registers the map as a client of the list that the value names, in every store; the one that the
// clause is about sets value->list. -1: one of them failed, and the map is registered with none.
int rmapRegister(const rmapList* map, const rmapEntry* entry, rmapNameValue* value);
void rmapDeregister(const rmapList* map, const rmapEntry* entry, rmapNameValue* value);

// --- configuration (cfg.cpp) -----------------------------------------------------------------

// The place of the line that is being restored, else null: its ids come back as they were, and the
// clauses of an instance in the order of theirs.
const cfgRmapKey* rmapRestoredKey();
// Takes the lines of an instance out without a word to the feed.
void rmapCfgRemoveInstance(const listName& name, int32_t seq);
// Takes the map's own node out.
void rmapCfgRemoveMap(const listName& name);
// Tells the feed that the whole map has gone.
void rmapCfgSyncGone(const listName& name);
// How a value of the clause stands in its line.
rmapStyle rmapClauseStyle(const rmapEntry& entry);
// The line of a clause as rmap_ent_send_to_cfg writes it; empty: none.
std::string rmapClauseLine(const rmapEntry* entry, const rmapNameValue* nameValue,
                           const rmapNumberValue* number);
