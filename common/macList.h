// MAC access-list and entry records, as the manager keeps them (see include/list.h for what they
// share with the IP lists).
#pragma once

#include "common/list.h"

// The 56-byte MAC entry body: the form in which requests hand an entry to the store and in which
// the agents receive it.
struct macEntryBlock {
    be32 action;     //  0  1 denies
    be32 seq;        //  4
    uint8_t src[6];  //  8  masks are wildcards: bits set are not compared
    uint8_t srcMask[6];
    uint8_t dst[6];  // 20
    uint8_t dstMask[6];
    be32 type;               // 32  1 standard, 2 extended
    be32 encapsulation;      // 36
    be32 etherTypeOperator;  // 40
    be16 etherType;          // 44
    uint8_t reserved46[6];
    be32 order;  // 52
};
WIRE_SIZE(macEntryBlock, 56);
WIRE_AT(macEntryBlock, dst, 20);
WIRE_AT(macEntryBlock, etherType, 44);
WIRE_AT(macEntryBlock, order, 52);

struct l2AclEntry {
    l2AclEntry* next;
    l2AclEntry* prev;
    macEntryBlock block;
    uint32_t id;
    uint32_t counterOptions;
    uint32_t log;
    uint32_t monitor;
};

struct l2AclList {
    zekRadixNode link;  // name tree; the key is `name`
    listName name;
    l2AclEntry* head;
    l2AclEntry* tail;
    aclBinding* bindings;
    uint32_t lastEntryId;
    uint32_t kind;  // 1 standard, 2 extended
    uint32_t placeholder;
    int32_t count;
    uint32_t highestSeq;
    bindingBlock sendBlock;
    zekRadix* seqTree;
    zekRadix* contentTree;
};
