// Clients of lists: the tasks and route maps that use a list by name and are told of its changes.
//
// A client of any list is told in one way, through triggerClient.
#pragma once

#include <cstdint>
#include <span>

#include "include/listName.h"
#include "include/routeMapNames.h"

enum clientKind : uint32_t {
    CLIENT_ROUTE_MAP = 1,
    CLIENT_TASK = 2,
    CLIENT_INTERFACE = 3,   // access lists: what they are bound to
    CLIENT_VLAN_GROUP = 4,  // likewise
};

struct namedList;  // common/lists/namedList.h

// An item that a task registered for, e.g. a peer; told back with every trigger.
struct clientPair {
    clientPair* next;
    clientPair* prev;
    uint32_t first, second;
};

// A client task as a trigger addresses it.
struct clientTask {
    uint32_t application;  // aclApp
    uint32_t instance;
    uint32_t suppressed;  // non-zero: nothing is sent
    uint32_t pairCount;
    const clientPair* pairs;
};

// Sends one trigger: the body (a list name, mostly) and the client's pairs, 92 to a message. Tasks
// with a queue of their own (RTM, DSMGR, IGMP, PIM) get it there without a wait; any other one is
// asked by IPC and has 10 s to answer each message, unless it has let its time pass before (see
// common/clientWait.h).
// 0: it went, or the client is suppressed; *status says how it was delivered: 0, the task's own
// status word, or TRIGGER_NOT_SENT, TRIGGER_NO_REPLY. -1: it could not be built or addressed.
constexpr uint32_t TRIGGER_NOT_SENT = 58802;
constexpr uint32_t TRIGGER_NO_REPLY = 58803;
int aclSendTrigger(const clientTask& client, uint32_t mtype, const void* body, uint32_t bodyLength,
                   uint32_t* status);

struct taskName {
    uint32_t application;
    const char* name;
};
// How the clients of one kind of list are told.
struct triggerKind {
    uint32_t mtype;
    const char* sendFailed;   // system errors, or event-log texts
    const char* unknownTask;  // null: nothing is said of a task that is not in `names`
    const char* unknownKind;
    const char* sent;  // debug, one %s: the task's name; null: none
    std::span<const taskName> names;
    bool toEventLog = false;  // sendFailed goes to the event log instead of the system errors
    bool goesOn = false;      // a failed send does not end the walk over the list's clients
};
// Tells one client: a task by a trigger that carries the list's name, a route map by re-evaluating
// it. 0; -1 when a send failed that ends the walk over a list's clients.
int triggerClient(const triggerKind& how, uint32_t kind, const clientTask& task,
                  const listName& rmapName, const listName& list);

// Re-evaluates the route map of that name: its own clients are told. The route maps' store says it
// with the first clause that makes one of its maps a client.
extern void (*clientRmapChanged)(const listName& rmapName);

const char* aclClientName(uint32_t application);  // "Unknown task" for others
bool aclClientHasQueue(uint32_t application);     // it is told without a wait
bool aclClientHasAddress(uint32_t application, uint32_t instance);

// What a store is told of the route-map clause that names one of its lists. Each store takes the
// clauses that are about its kind of list and answers 0 to all others without a change; -1 is a
// failure. While the clause is registered *listSlot is the list's record, then null again.
//
// A map is one client of a list however many of its clauses name it, and is told of a change once.
// Every store counts the clauses, access lists as well: each add raises the client's count, each
// del lowers it, and the client goes with the last one. Without the count, the first of two clauses
// to go would take from the other the list that it points at.
struct rmapMatch {
    uint16_t cls;          // rmapClass
    uint32_t code;         // of the clause
    namedList** listSlot;  // null: nowhere to write
};
int aclAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list);
int aclDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list);
// af: 1 = IPv4, 2 = IPv6.
int prefixAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list,
                        uint32_t af);
int prefixDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list,
                        uint32_t af);
int aspAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list);
int aspDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list);
// Community lists and extended-community lists.
int commAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list);
int commDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list);
