#include "common/clients.h"

#include <algorithm>
#include <cstddef>

#include "common/chain.h"
#include "common/record.h"
#include "common/tree.h"
#include "platform/api/zekMem.h"

namespace {

static_assert(offsetof(listClient, link) == 0 && offsetof(namedList, link) == 0);
constexpr size_t keyOffset(size_t ofField) {
    return ofField - offsetof(listClient, kind);
}
static_assert(keyOffset(offsetof(listClient, id)) == offsetof(listClientKey, id) &&
              keyOffset(offsetof(listClient, instance)) == offsetof(listClientKey, instance) &&
              keyOffset(offsetof(listClient, direction)) == offsetof(listClientKey, direction) &&
              keyOffset(offsetof(listClient, rmapName)) == offsetof(listClientKey, rmapName));

constexpr uint32_t keyBits(uint32_t kind) {
    return 8 *
           (kind == CLIENT_ROUTE_MAP ? sizeof(listClientKey) : offsetof(listClientKey, rmapName));
}

clientPair* findPair(const listClient& client, const clientPairValue& value) {
    clientPair* pair = client.pairHead;
    while (pair != nullptr && (pair->first != value.first || pair->second != value.second))
        pair = pair->next;
    return pair;
}

bool appendPair(listClient* client, const clientPairValue& value) {
    auto* pair = recordMake<clientPair>(POOL_CLIENT);
    if (pair == nullptr) return false;
    pair->first = value.first;
    pair->second = value.second;
    chainLink(&client->pairHead, &client->pairTail, pair, static_cast<clientPair*>(nullptr));
    client->pairCount++;
    return true;
}

void removePair(listClient* client, clientPair* pair) {
    chainUnlink(&client->pairHead, &client->pairTail, pair);
    client->pairCount--;
    zekMC_M_memBlockVarFree(pair);
}

// The pairs behind this one go (null: all).
void truncatePairs(listClient* client, const clientPair* last) {
    while (client->pairTail != last) removePair(client, client->pairTail);
}

void clientFree(listClient* client) {
    truncatePairs(client, nullptr);
    zekMC_M_memBlockVarFree(client);
}

// No memory for a client: everything is as it was, in most stores the list that was made for it
// too.
clientResult refuse(const clientStore& store, namedList* list, uint32_t family) {
    if (!store.keepsMade) clientDropUnused(store, list, family);
    return clientResult::noMemory;
}

bool carriesPairs(const clientStore& store, uint32_t application) {
    return std::ranges::find(store.pairTasks, application) != store.pairTasks.end();
}

}  // namespace

listClient* clientFind(const namedList* list, const listClientKey& key) {
    return treeRecord<listClient>(onDemandTreeFind(list->clientIndex, &key, keyBits(key.kind)));
}

listClient* clientAdd(namedList* list, const listClientKey& key, size_t bytes) {
    auto* client = recordMake<listClient>(POOL_CLIENT, bytes);
    if (client == nullptr) return nullptr;
    client->kind = key.kind;
    client->id = key.id;
    client->instance = key.instance;
    client->direction = key.direction;
    client->rmapName = key.rmapName;
    if (onDemandTreeInsert(&list->clientIndex, "clients", &client->link, &client->kind,
                           keyBits(key.kind)) != 0) {
        zekMC_M_memBlockVarFree(client);
        return nullptr;
    }
    chainLink(&list->clients, client, static_cast<listClient*>(nullptr));
    return client;
}

void clientDrop(namedList* list, listClient* client) {
    onDemandTreeRemove(&list->clientIndex, &client->link);
    chainUnlink(&list->clients, client);
    clientFree(client);
}

void clientsFree(namedList* list) {
    zekRadixDestroy(list->clientIndex);
    list->clientIndex = nullptr;
    while (listClient* client = list->clients) {
        list->clients = client->next;
        clientFree(client);
    }
}

void clientDropUnused(const clientStore& store, namedList* list, uint32_t family) {
    if (list->clients == nullptr && list->placeholder != 0) store.drop(list, family);
}

clientResult clientRegisterTask(const clientStore& store, const listName& name, uint32_t family,
                                const taskClient& task, std::span<const clientPairValue> pairs) {
    namedList* list = store.obtain(name, family);
    if (list == nullptr) return clientResult::noList;
    const listClientKey key = clientKeyOfTask(task.application, task.instance);
    listClient* client = clientFind(list, key);
    const bool withPairs = carriesPairs(store, task.application);
    if (!withPairs) pairs = {};
    if (client != nullptr) {
        if (!withPairs) return clientResult::unchanged;
        for (const clientPairValue& pair : pairs)
            if (findPair(*client, pair) != nullptr) return clientResult::unchanged;
    }
    const bool fresh = client == nullptr;
    if (fresh) {
        client = clientAdd(list, key);
        if (client == nullptr) return refuse(store, list, family);
        client->value = task.value;
    }
    const clientPair* last = client->pairTail;
    for (const clientPairValue& pair : pairs) {
        if (appendPair(client, pair)) continue;
        truncatePairs(client, last);
        if (fresh) clientDrop(list, client);
        return refuse(store, list, family);
    }
    return clientResult::done;
}

clientResult clientUnregisterTask(const clientStore& store, const listName& name, uint32_t family,
                                  const taskClient& task, std::span<const clientPairValue> pairs) {
    namedList* list = store.find(name, family);
    if (list == nullptr) return clientResult::noList;
    listClient* client = clientFind(list, clientKeyOfTask(task.application, task.instance));
    if (client == nullptr) return clientResult::notRegistered;
    if (carriesPairs(store, task.application)) {
        for (const clientPairValue& value : pairs)
            if (clientPair* pair = findPair(*client, value)) removePair(client, pair);
        if (client->pairCount != 0) return clientResult::done;
    }
    clientDrop(list, client);
    clientDropUnused(store, list, family);
    return clientResult::done;
}

clientResult clientRegisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                const listName& rmapName, namedList** slot) {
    namedList* list = store.obtain(name, family);
    if (list == nullptr) return clientResult::noList;
    listClient* client = clientFind(list, clientKeyOfRmap(rmapName));
    if (client == nullptr) client = clientAdd(list, clientKeyOfRmap(rmapName));
    if (client == nullptr) return refuse(store, list, family);
    client->references++;
    if (slot != nullptr) *slot = list;
    return clientResult::done;
}

clientResult clientUnregisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                  const listName& rmapName, namedList** slot) {
    if (slot != nullptr) *slot = nullptr;
    namedList* list = store.find(name, family);
    if (list == nullptr) return clientResult::noList;
    listClient* client = clientFind(list, clientKeyOfRmap(rmapName));
    if (client == nullptr) return clientResult::notRegistered;
    if (--client->references == 0) {
        clientDrop(list, client);
        clientDropUnused(store, list, family);
    }
    return clientResult::done;
}

int clientsTrigger(const triggerKind& how, const namedList* list) {
    for (const listClient* client = list->clients; client != nullptr; client = client->next) {
        // What an interface or a VLAN group needs to know goes to its cards.
        if (client->kind == CLIENT_INTERFACE || client->kind == CLIENT_VLAN_GROUP) continue;
        const clientTask task = {client->id, client->instance, 0, client->pairCount,
                                 client->pairHead};
        if (triggerClient(how, client->kind, task, client->rmapName, list->name) != 0) return -1;
    }
    return 0;
}
