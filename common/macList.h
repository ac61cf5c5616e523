// MAC access-list and entry records, as the manager keeps them (see common/list.h for what they
// share with the IP lists).
#pragma once

#include "common/list.h"

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
