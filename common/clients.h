// The client chain of every list: which tasks, route maps, interfaces and VLAN groups use it, and
// the life of a list that exists only for them.
//
// The caller holds the write lock. Records come from the pools. Finding a client costs the same
// however many there are.
#pragma once

#include <span>

#include "common/lists/namedList.h"

// --- the chain -----------------------------------------------------------------------------------

// What there is one client of. The first fields are laid out as in the record.
struct listClientKey {
    uint32_t kind, id = 0, instance = 0, direction = 0;
    listName rmapName = {};
};
inline listClientKey clientKeyOfTask(uint32_t application, uint32_t instance) {
    return {CLIENT_TASK, application, instance};
}
inline listClientKey clientKeyOfRmap(const listName& rmapName) {
    return {.kind = CLIENT_ROUTE_MAP, .rmapName = rmapName};
}

listClient* clientFind(const namedList* list, const listClientKey& key);
// A new record of `bytes` (a listClient's, or more for what follows it) at the head of the chain,
// all but its key zero. Null when there is no memory or it is there already: nothing has changed.
listClient* clientAdd(namedList* list, const listClientKey& key, size_t bytes = sizeof(listClient));
void clientDrop(namedList* list, listClient* client);
// Forgets every client; for a list that goes whole.
void clientsFree(namedList* list);

// --- registrations -------------------------------------------------------------------------------

// A store, as the registrations use it. `family` is the store's own word.
struct clientStore {
    namedList* (*find)(const listName& name, uint32_t family);
    // Finds the list or makes it as a placeholder; null when there is no memory.
    namedList* (*obtain)(const listName& name, uint32_t family);
    // A placeholder has lost its last client: out of the tree and freed.
    void (*drop)(namedList* list, uint32_t family);
    std::span<const uint32_t> pairTasks;  // applications whose registrations carry pairs
    bool keepsMade = false;  // a list that was made for a registration stays when that fails
};

struct clientPairValue {
    uint32_t first, second;
};

enum class clientResult {
    done,
    unchanged,  // it was registered already
    noList,     // registering: no memory for a placeholder; unregistering: nothing to do
    noMemory,   // for the client; all else is as it was
    notRegistered,
};
struct taskClient {
    uint32_t application, instance;
    uint32_t value = 0;  // its own word
};
// A task registers: once, but a task with pairs once for each pair that it does not hold yet (a
// call with one that it holds changes nothing).
clientResult clientRegisterTask(const clientStore& store, const listName& name, uint32_t family,
                                const taskClient& task, std::span<const clientPairValue> pairs);
// The client goes, or only the given pairs of it while others remain.
clientResult clientUnregisterTask(const clientStore& store, const listName& name, uint32_t family,
                                  const taskClient& task, std::span<const clientPairValue> pairs);
// A clause of a route map names the list: *slot (may be null) is it, or null again. Each clause
// counts.
clientResult clientRegisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                const listName& rmapName, namedList** slot);
clientResult clientUnregisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                  const listName& rmapName, namedList** slot);
// A list that exists only because of its clients goes with the last one.
void clientDropUnused(const clientStore& store, namedList* list, uint32_t family);

// Tells every task and route map, in the chain's order. 0, or -1: a send failed and the rest was
// not told.
int clientsTrigger(const triggerKind& how, const namedList* list);
