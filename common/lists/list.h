// Access-list, entry and binding records as the manager keeps them (never on the wire: what other
// tasks receive are images, filled field by field).
//
//   aclList --head/tail--> listEntry <-> listEntry ...    ascending sequence numbers
//           --clients----> listClient <-> listClient ...  newest first; those of interfaces are
//                                                         aclBinding records
//           --remarks----> aclRemark <-> aclRemark ...    ascending sequence numbers, and a tree
//           --seqTree, contentTree: duplicate-check nodes that point at the same entries
//
// The store that made a record owns it. All records come from the platform's pools.
#pragma once

#include "common/lists/namedList.h"
#include "include/cliMsg.h"

struct matchNode;  // match/matchIndex.h
struct aclFamily;  // ipacl/family.h

// The front of an entry of any family; the block behind it is the family's.
struct listEntry {
    listEntry* next;
    listEntry* prev;
    uint32_t id;          // the list's counter at insertion, never reused
    uint32_t matchCount;  // see hitCount.h; shown and cleared by the shows
    uint32_t log;         // non-zero: the entry logs
    uint32_t monitor;     // 1: the entry is monitored
};
static_assert(sizeof(listEntry) == 32, "and the block begins right behind it");
struct aclEntry : listEntry {
    ipEntryBlock block;
};
struct acl6Entry : listEntry {
    ip6EntryBlock block;
};
struct l2AclEntry : listEntry {
    macEntryBlock block;
    uint32_t counterOptions;
};

// The entries of a list as those of its family, head to tail.
template <class Entry>
class entriesOf {
  public:
    explicit entriesOf(listEntry* first) : first_(static_cast<Entry*>(first)) {}
    struct iterator {
        Entry* entry;
        Entry& operator*() const { return *entry; }
        iterator& operator++() {
            entry = static_cast<Entry*>(entry->next);
            return *this;
        }
        bool operator!=(const iterator& other) const { return entry != other.entry; }
    };
    iterator begin() const { return {first_}; }
    iterator end() const { return {nullptr}; }

  private:
    Entry* first_;
};

// An interface that a list is bound to, in one direction.
struct aclBinding : listClient {
    uint32_t implicitPermit;
    bindingBlock block;
};

struct aclRemark {
    aclRemark* next;
    aclRemark* prev;
    zekRadixNode link;  // the key is `seq`
    be32 seq;
    char text[REMARK_LEN + 1];  // NUL-padded
};
struct aclRemarks {
    aclRemark* head;
    aclRemark* tail;
    zekRadix* bySeq;  // the same remarks; null while there is none
};

constexpr uint32_t DOS_ACTIVE = 0x1000;  // kind word of the DoS list that is downloaded

struct aclList : namedList {
    const aclFamily* family;  // what kind of list it is
    listEntry* head;
    listEntry* tail;
    uint32_t kind;  // ipEntryKind; a DoS list's flags word
    int32_t count;
    uint32_t highestSeq;  // 0 when empty
    aclRemarks remarks;
    zekRadix* seqTree;      // null for system and DoS lists
    zekRadix* contentTree;  // null for DoS lists; of system lists by the whole content
    // What ipFilterCheck searches instead of the chain; null: it walks. Kept for ordinary lists.
    matchNode* filterIndex;
};
