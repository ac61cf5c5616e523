// The front of every list of every kind, and the clients that hang on it: who uses the list and is
// told of its changes. common/clients.h has the operations on them.
//
//   namedList --clients--> listClient <-> listClient ...   newest first: the order of triggers and
//                                                          downloads
//             --clientIndex: a tree of the same clients
//
// The store that made a list owns it; its clients belong to the list.
#pragma once

#include "common/client.h"
#include "include/entry.h"
#include "include/listName.h"
#include "platform/api/zekRadix.h"

struct listClient {
    zekRadixNode link;    // in clientIndex; the key is `kind` to `direction`, and the name behind
                          // them for a route map
    uint32_t kind;        // clientKind
    uint32_t id;          // application, interface index, or VLAN-group id in the low byte
    uint32_t instance;    // of a task
    uint32_t direction;   // of an interface, 1: egress
    listName rmapName;    // route maps only
    uint32_t references;  // route maps only: how many clauses name the list
    uint32_t value;       // a task's own word
    uint32_t pairCount;
    clientPair* pairHead;
    clientPair* pairTail;
    listClient* next;
    listClient* prev;
};

struct namedList {
    zekRadixNode link;  // name tree; the key is `name`
    listName name;
    listClient* clients;
    zekRadix* clientIndex;  // null while there is no client
    uint32_t lastEntryId;   // only ever grows; counts the entries ever added
    uint32_t placeholder;   // 1: exists only because clients refer to it
};
