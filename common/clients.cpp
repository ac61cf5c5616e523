#include "common/clients.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "common/ondemandtree.h"
#include "common/record.h"
#include "platform/api/zekMem.h"

namespace {

constexpr uint32_t POOL_CLIENT = 7;

bool holds(const policyClient& client, const clientPairValue& value) {
    for (const clientPair* pair = client.pairHead; pair != nullptr; pair = pair->next)
        if (pair->first == value.first && pair->second == value.second) return true;
    return false;
}

bool appendPair(policyClient* client, const clientPairValue& value) {
    auto* pair = recordMake<clientPair>(POOL_CLIENT);
    if (pair == nullptr) return false;
    pair->first = value.first;
    pair->second = value.second;
    (client->pairTail != nullptr ? client->pairTail->next : client->pairHead) = pair;
    client->pairTail = pair;
    client->task.pairs = client->pairHead;
    client->task.pairCount++;
    return true;
}

// The pairs behind this one go (null: all).
void truncatePairs(policyClient* client, clientPair* last) {
    clientPair*& rest = last != nullptr ? last->next : client->pairHead;
    while (clientPair* pair = rest) {
        rest = pair->next;
        client->task.pairCount--;
        zekMC_M_memBlockVarFree(pair);
    }
    client->pairTail = last;
    client->task.pairs = client->pairHead;
}

// One of its value goes, if there is any.
void removePair(policyClient* client, const clientPairValue& value) {
    clientPair* before = nullptr;
    for (clientPair* pair = client->pairHead; pair != nullptr; before = pair, pair = pair->next) {
        if (pair->first != value.first || pair->second != value.second) continue;
        (before != nullptr ? before->next : client->pairHead) = pair->next;
        if (client->pairTail == pair) client->pairTail = before;
        client->task.pairs = client->pairHead;
        client->task.pairCount--;
        zekMC_M_memBlockVarFree(pair);
        return;
    }
}

policyClient* linkNew(policyList* list, uint32_t kind) {
    auto* client = recordMake<policyClient>(POOL_CLIENT);
    if (client == nullptr) return nullptr;
    client->kind = kind;
    client->next = list->clients;
    if (client->next != nullptr) client->next->prev = client;
    list->clients = client;
    return client;
}

void clientFree(policyClient* client) {
    while (clientPair* pair = client->pairHead) {
        client->pairHead = pair->next;
        zekMC_M_memBlockVarFree(pair);
    }
    zekMC_M_memBlockVarFree(client);
}

void unlink(policyList* list, policyClient* client) {
    (client->prev != nullptr ? client->prev->next : list->clients) = client->next;
    if (client->next != nullptr) client->next->prev = client->prev;
    clientFree(client);
}

// Thousands of route maps may name one list: they are found through a tree.
policyClient* linkNewRmap(policyList* list, const listName& rmapName) {
    policyClient* client = linkNew(list, CLIENT_ROUTE_MAP);
    if (client == nullptr) return nullptr;
    client->rmapName = rmapName;
    if (onDemandTreeInsert(&list->rmapClients, "rmapClients", &client->byMap, client->rmapName.text,
                           LIST_NAME_KEY_BITS) == 0)
        return client;
    unlink(list, client);
    return nullptr;
}

void dropIfUnused(const clientStore& store, policyList* list, uint32_t family) {
    if (list->clients == nullptr && list->placeholder != 0) store.drop(list, family);
}

// No memory for a client: everything is as it was, the list that was made for it too.
clientResult refuse(const clientStore& store, policyList* list, uint32_t family) {
    dropIfUnused(store, list, family);
    return clientResult::noMemory;
}

bool carriesPairs(const clientStore& store, uint32_t application) {
    return std::ranges::find(store.pairTasks, application) != store.pairTasks.end();
}

}  // namespace

policyClient* clientFindTask(const policyList* list, uint32_t application, uint32_t instance) {
    policyClient* client = list->clients;
    while (client != nullptr &&
           (client->kind != CLIENT_TASK || client->task.application != application ||
            client->task.instance != instance))
        client = client->next;
    return client;
}

policyClient* clientFindRmap(const policyList* list, const listName& rmapName) {
    zekRadixNode* node = onDemandTreeFind(list->rmapClients, rmapName.text, LIST_NAME_KEY_BITS);
    if (node == nullptr) return nullptr;
    return reinterpret_cast<policyClient*>(reinterpret_cast<char*>(node) -
                                           offsetof(policyClient, byMap));
}

clientResult clientRegisterTask(const clientStore& store, const listName& name, uint32_t family,
                                uint32_t application, uint32_t instance, uint32_t value,
                                std::span<const clientPairValue> pairs) {
    policyList* list = store.obtain(name, family);
    if (list == nullptr) return clientResult::noList;
    policyClient* client = clientFindTask(list, application, instance);
    const bool withPairs = carriesPairs(store, application);
    if (!withPairs) pairs = {};
    if (client != nullptr) {
        if (!withPairs) return clientResult::done;
        for (const clientPairValue& pair : pairs)
            if (holds(*client, pair)) return clientResult::done;
    }
    const bool fresh = client == nullptr;
    if (fresh) {
        client = linkNew(list, CLIENT_TASK);
        if (client == nullptr) return refuse(store, list, family);
        client->task.application = application;
        client->task.instance = instance;
        client->value = value;
    }
    clientPair* last = client->pairTail;
    for (const clientPairValue& pair : pairs) {
        if (appendPair(client, pair)) continue;
        truncatePairs(client, last);
        if (fresh) unlink(list, client);
        return refuse(store, list, family);
    }
    return clientResult::done;
}

clientResult clientUnregisterTask(const clientStore& store, const listName& name, uint32_t family,
                                  uint32_t application, uint32_t instance,
                                  std::span<const clientPairValue> pairs) {
    policyList* list = store.find(name, family);
    if (list == nullptr) return clientResult::noList;
    policyClient* client = clientFindTask(list, application, instance);
    if (client == nullptr) return clientResult::notRegistered;
    if (carriesPairs(store, application)) {
        for (const clientPairValue& pair : pairs) removePair(client, pair);
        if (client->task.pairCount != 0) return clientResult::done;
    }
    unlink(list, client);
    dropIfUnused(store, list, family);
    return clientResult::done;
}

clientResult clientRegisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                const listName& rmapName, policyList** list) {
    *list = store.obtain(name, family);
    if (*list == nullptr) return clientResult::noList;
    policyClient* client = clientFindRmap(*list, rmapName);
    if (client == nullptr) {
        client = linkNewRmap(*list, rmapName);
        if (client == nullptr) return refuse(store, std::exchange(*list, nullptr), family);
    }
    client->references++;
    return clientResult::done;
}

clientResult clientUnregisterRmap(const clientStore& store, const listName& name, uint32_t family,
                                  const listName& rmapName) {
    policyList* list = store.find(name, family);
    if (list == nullptr) return clientResult::noList;
    policyClient* client = clientFindRmap(list, rmapName);
    if (client == nullptr) return clientResult::notRegistered;
    if (--client->references == 0) {
        onDemandTreeRemove(&list->rmapClients, &client->byMap);
        unlink(list, client);
        dropIfUnused(store, list, family);
    }
    return clientResult::done;
}

void clientsFree(policyList* list) {
    zekRadixDestroy(list->rmapClients);
    list->rmapClients = nullptr;
    while (policyClient* client = list->clients) {
        list->clients = client->next;
        clientFree(client);
    }
}

int clientsTrigger(const triggerKind& how, const policyList* list) {
    for (const policyClient* client = list->clients; client != nullptr; client = client->next)
        if (triggerClient(how, client->kind, client->task, client->rmapName, list->name) != 0)
            return -1;
    return 0;
}
