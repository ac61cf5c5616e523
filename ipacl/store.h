// What the three IPv4 stores share: list and entry records in a name tree, and the entry chain.
// Private to this folder.
#pragma once

#include "common/list.h"
#include "common/nametree.h"

// --- lists in a name tree --------------------------------------------------------------------

// Makes an empty list and puts it into the tree, with duplicate-check trees when asked. Null when
// there is no memory: nothing has changed then.
aclList* aclListMake(zekRadix* tree, const listName& name, uint32_t kind, uint32_t placeholder,
                     bool dupTrees);
// Takes a list without entries, bindings and remarks out of its tree and frees it.
void aclListDrop(zekRadix* tree, aclList* list);

enum class listChange { none, created, configured };
// Finds the list or makes it, and turns a placeholder that the configuration asks for into a
// configured list; *change says which. Statuses as ipAccessListCreate.
aclList* aclListObtain(zekRadix* tree, const listName& name, uint32_t kind, uint32_t placeholder,
                       bool dupTrees, uint32_t* status, listChange* change);

// --- bindings ---------------------------------------------------------------------------------

// What a list is bound to: there is one binding of each. The first fields are laid out as in the
// record.
struct bindingKey {
    uint32_t kind, id = 0, instance = 0, direction = 0;
    listName rmapName = {};
};
// The cost of each does not grow with the number of bindings.
aclBinding* aclBindingFind(const aclList* list, const bindingKey& key);
// A new record at the head of the list's chain, all but its key zero. Null when there is no memory
// (or it is there already): nothing has changed then.
aclBinding* aclBindingAdd(aclList* list, const bindingKey& key);
void aclBindingDrop(aclList* list, aclBinding* binding);
// A list that exists only because it was bound goes with its last binding.
void aclListDropUnused(aclList* list);

// --- entries ---------------------------------------------------------------------------------

// A record outside every list, or null.
aclEntry* aclEntryMake(const ipEntryBlock& block, uint32_t log, uint32_t monitor);
void aclEntryFree(aclEntry* entry);
// Links the entry in front of another one, or at the tail (next null), and counts it.
void aclEntryLink(aclList* list, aclEntry* entry, aclEntry* next);
// Unlinks without counting: the deletes count at a point of their own.
void aclEntryUnlink(aclList* list, aclEntry* entry);
// The equal entry (everything but sequence number and counter options), or null. A walk.
aclEntry* aclEntryFindEqual(const aclList* list, const ipEntryBlock& block);

// The number that an add gives its entry: the request's own, or highest + 5. False when it is above
// the largest usable one.
bool aclEntrySeqChoose(const aclList& list, const ipEntryBlock& block, uint32_t* seq);
// The highest number after an unlink: numbers ascend, so it is the tail's.
inline void aclEntrySeqRecompute(aclList* list) {
    list->highestSeq = list->tail != nullptr ? list->tail->block.seq : 0;
}
