// The client chain of policy lists (prefix lists, route maps, AS-path and community lists, MAC
// lists): which tasks and route maps use a list, and the life of a list that exists only for them.
//
// The caller holds the write lock. A chain belongs to its list; its records come from the pools.
#pragma once

#include <span>

#include "common/policyList.h"

// A store, as the registrations use it.
struct clientStore {
    policyList* (*find)(const listName& name, uint32_t family);
    // Finds the list or makes it as a placeholder; null when there is no memory.
    policyList* (*obtain)(const listName& name, uint32_t family);
    // A placeholder has lost its last client: out of the tree and freed.
    void (*drop)(policyList* list, uint32_t family);
    std::span<const uint32_t> pairTasks;  // applications whose registrations carry pairs
};

struct clientPairValue {
    uint32_t first, second;
};

enum class clientResult {
    done,
    noList,    // registering: no memory for a placeholder; unregistering: nothing to do
    noMemory,  // for the client
    notRegistered,
};
// A task registers: once, but a task with pairs once for each pair that it does not hold yet (a
// call with one that it holds changes nothing).
clientResult clientRegisterTask(const clientStore& store, const listName& name, uint32_t family,
                                uint32_t application, uint32_t instance, uint32_t value,
                                std::span<const clientPairValue> pairs);
// The client goes, or only the given pairs of it while others remain.
clientResult clientUnregisterTask(const clientStore& store, const listName& name, uint32_t family,
                                  uint32_t application, uint32_t instance,
                                  std::span<const clientPairValue> pairs);
// A clause of a route map names the list: *list is it. Each clause counts.
clientResult clientRegisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                const listName& rmapName, policyList** list);
clientResult clientUnregisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                  const listName& rmapName);

policyClient* clientFindTask(const policyList* list, uint32_t application, uint32_t instance);
policyClient* clientFindRmap(const policyList* list, const listName& rmapName);
// Forgets every client; for a list that goes whole.
void clientsFree(policyList* list);

// Tells every client, in the chain's order. 0, or -1: a send failed and the rest was not told.
int clientsTrigger(const triggerKind& how, const policyList* list);
