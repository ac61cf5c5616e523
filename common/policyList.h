// The front of every policy list (prefix lists, route maps, AS-path and community lists, MAC lists)
// and the clients that hang on it. common/clients.h has the operations on them.
#pragma once

#include "common/client.h"
#include "platform/api/zekRadix.h"

struct policyClient {
    policyClient* next;
    policyClient* prev;
    uint32_t kind;    // clientKind
    clientTask task;  // tasks only; task.pairs == pairHead
    clientPair* pairHead;
    clientPair* pairTail;
    uint32_t value;       // a task's callback word
    listName rmapName;    // route maps only
    uint32_t references;  // route maps only: how many clauses name the list
    zekRadixNode byMap;   // route maps only: in the list's rmapClients under rmapName
};

struct policyList {
    zekRadixNode link;  // name tree; the key is `name`
    listName name;
    policyClient* clients;  // newest first
    zekRadix* rmapClients;  // those that are route maps; null while there is none
    uint32_t lastEntryId;   // counts the entries ever added
    uint32_t placeholder;   // 1: exists only because clients refer to it
};
