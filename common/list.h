// Access-list, entry and binding records as the manager keeps them (never on the wire: what other
// tasks receive are images, filled field by field).
//
//   aclList --head/tail--> aclEntry <-> aclEntry ...      ascending sequence numbers
//           --bindings---> aclBinding <-> aclBinding ...  newest first
//           --bindingIndex: a tree of the same bindings
//           --remarks----> aclRemark <-> aclRemark ...    ascending sequence numbers
//           --seqTree, contentTree: duplicate-check nodes that point at the same entries
//
// The store that made a record owns it. All records come from the platform's pools.
#pragma once

#include "include/entry.h"
#include "include/listName.h"
#include "platform/api/zekRadix.h"

struct matchNode;  // match/matchIndex.h

struct aclEntry {
    aclEntry* next;
    aclEntry* prev;
    ipEntryBlock block;
    uint32_t id;          // the list's counter at insertion, never reused
    uint32_t matchCount;  // see hitCount.h; shown and cleared by the shows
    uint32_t log;         // non-zero: the entry logs
    uint32_t monitor;     // 1: the entry is monitored
};

// An IPv6 entry, with its own block.
struct acl6Entry {
    acl6Entry* next;
    acl6Entry* prev;
    ip6EntryBlock block;
    uint32_t log;
    uint32_t monitor;
    uint32_t id;
    uint32_t matchCount;
};

enum bindingKind : uint32_t {
    BIND_ROUTE_MAP = 1,
    BIND_TASK = 2,
    BIND_INTERFACE = 3,
    BIND_VLAN_GROUP = 4,
};

struct aclBinding {
    zekRadixNode link;  // in the list's bindingIndex; the key is `kind` to `direction`, and the
                        // name behind them for a route map
    aclBinding* next;
    aclBinding* prev;
    uint32_t kind;       // bindingKind
    uint32_t id;         // interface index, task id, or VLAN-group id in the low byte
    uint32_t instance;   // of a task
    uint32_t direction;  // 1: egress
    union {
        bindingBlock block;  // all but route maps
        listName rmapName;   // route maps only
    };
    uint32_t caller;      // a task's own word
    uint32_t references;  // route maps only: how many clauses name the list
    uint32_t implicitPermit;
};

constexpr size_t REMARK_LEN = 80;
struct aclRemark {
    aclRemark* next;
    aclRemark* prev;
    char text[REMARK_LEN + 1];
    uint32_t seq;
};

constexpr uint32_t DOS_ACTIVE = 0x1000;  // kind word of the DoS list that is downloaded

struct aclList {
    zekRadixNode link;  // name tree; the key is `name`
    listName name;
    // The chain is of acl6Entry in the lists of v6acl_tree, and of aclEntry in all others.
    union {
        aclEntry* head;
        acl6Entry* head6;
    };
    union {
        aclEntry* tail;
        acl6Entry* tail6;
    };
    aclBinding* bindings;
    zekRadix* bindingIndex;  // null while nothing is bound
    uint32_t lastEntryId;    // only ever grows
    uint32_t kind;           // ipEntryKind; a DoS list's flags word
    uint32_t placeholder;    // 1: exists only because something refers to it
    int32_t count;
    uint32_t highestSeq;     // 0 when empty
    bindingBlock sendBlock;  // the block of the binding that is being downloaded
    aclRemark* remarks;
    zekRadix* seqTree;      // null for system and DoS lists
    zekRadix* contentTree;  // null for system and DoS lists
    // What ipFilterCheck searches instead of the chain; null: it walks. Kept for ordinary lists.
    matchNode* filterIndex;
};
