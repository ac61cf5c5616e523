// Prefix-list records, as the manager keeps them and as the policy library reads them.
//
//   prefixList --head/tail--> prefixEntry <-> prefixEntry ...   ascending sequence numbers
//              --clients---> listClient <-> listClient ...   newest first
//              --order-----> the same entries, found by number or by position
//              --content---> the same entries, found by what they say
//              --index-----> the same entries, found by what they match
//
// One shape for both families: an entry's record is as long as its family's addresses need. The
// store that made a record owns it. All records come from the platform's pools.
#pragma once

#include "common/lists/namedList.h"
#include "include/policyMsg.h"

struct matchNode;  // match/matchIndex.h

constexpr uint32_t PREFIX_DENY = 1;

// The front of an entry's record, byte for byte as the request brought it; the address and the mask
// follow, 4 or 16 bytes each. (ge and le of -1 are stored as 0, a sequence number of 0 as the one
// that was assigned.)
struct prefixRecord {
    be32 seq;     //  0
    be32 action;  //  4  1 deny, any other value permits
    be32 ge;      //  8  signed; not above 0: not given
    be32 le;      // 12
    be32 reserved16;
    uint8_t len;  // 20  bits; 255: address and an arbitrary mask
    uint8_t reserved21[3];
};
WIRE_SIZE(prefixRecord, 24);
static_assert(offsetof(prefix4EntryBlock, address) == sizeof(prefixRecord) &&
              offsetof(prefix6EntryBlock, address) == sizeof(prefixRecord) &&
              offsetof(prefix6EntryBlock, len) == offsetof(prefixRecord, len));

template <size_t L>
const prefixRecord& prefixRecordOf(const prefixEntryBlock<L>& block) {
    return reinterpret_cast<const prefixRecord&>(block);
}
inline const uint8_t* prefixAddress(const prefixRecord& record) {
    return reinterpret_cast<const uint8_t*>(&record + 1);
}
inline const uint8_t* prefixMask(const prefixRecord& record, uint32_t addressBytes) {
    return prefixAddress(record) + addressBytes;
}

struct prefixEntry {
    prefixEntry* next;
    prefixEntry* prev;
    prefixRecord* record;
    uint32_t hits;  // see hitCount.h; shown and cleared by the shows
    uint32_t id;    // the list's counter at insertion, never reused
    // Places in what stands beside the chain.
    prefixEntry* child[2];
    uint32_t weight, priority;
    zekRadixNode content;  // its key follows the entry
};

struct prefixList : namedList {
    prefixEntry* head;
    prefixEntry* tail;
    int32_t count;
    int32_t rangeEntries;  // whose ge or le is not 0
    // Of the entries; what they say when there is none is left over from earlier ones.
    uint32_t lowestSeq;
    uint32_t highestSeq;
    uint32_t family;     // AF_IPV4, AF_IPV6
    uint32_t walks;      // 1: no memory was left for the index, the chain is walked
    prefixEntry* order;  // the root of a balanced tree in the chain's order
    zekRadix* content;   // never null
    matchNode* index;    // what prefixFilterCheck searches; null while there is no entry
};
