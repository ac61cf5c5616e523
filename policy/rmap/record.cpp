// Records of route maps: where they come from and how they are chained.
#include <cstring>

#include "common/chain.h"
#include "common/node.h"
#include "common/record.h"
#include "common/tree.h"
#include "platform/api/zekMem.h"
#include "policy/rmap/store.h"

namespace {

// Tags under which the pool counts the records.
constexpr uint32_t SEQ_KEY_BITS = 32;

rmapInstance* instanceOf(zekRadixNode* node) {
    return treeRecord<rmapInstance>(node, offsetof(rmapInstance, link));
}
// Numbers are 1 or more, so their big-endian bytes are in their order.
be32 keyOf(int32_t seq) {
    be32 key;
    key = static_cast<uint32_t>(seq);
    return key;
}

rmapInstance* instanceMake(rmapList* map, int32_t seq, uint32_t action) {
    auto* instance = recordMake<rmapInstance>(POOL_RMAP_ENTRY);
    if (instance == nullptr) return nullptr;
    instance->seq = seq;
    instance->action = action;
    instance->key = keyOf(seq);
    // Most instances come in ascending order: only the others need the tree to find their place.
    rmapInstance* next =
        map->last != nullptr && map->last->seq > seq ? rmapInstanceNext(map, seq) : nullptr;
    if (zekRadixInsert(map->bySeq, &instance->link, &instance->key, SEQ_KEY_BITS) != 0) {
        zekMC_M_memBlockVarFree(instance);
        return nullptr;
    }
    chainLink(&map->first, &map->last, instance, next);
    // A placeholder denies whatever it is about to get; it says so until it is configured.
    if (instance->prev == nullptr && map->placeholder == 0) {
        map->firstSeq = seq;
        map->firstAction = action;
    }
    return instance;
}

void instanceDrop(rmapList* map, rmapInstance* instance) {
    zekRadixRemove(map->bySeq, &instance->link);
    chainUnlink(&map->first, &map->last, instance);
    zekMC_M_memBlockVarFree(instance);
}

void entryFree(rmapEntry* entry) {
    const bool holdsPayload = entry->kind == RMAP_KIND_PAYLOAD || entry->kind == RMAP_KIND_NEXT_HOP;
    if (holdsPayload && entry->payload != nullptr) zekMC_M_memBlockVarFree(entry->payload);
    zekMC_M_memBlockVarFree(entry);
}

}  // namespace

rmapList* ipRmapListFind(const listName& name) {
    return nameTreeFind<rmapList>(aclNode->trees.rmap_tree, name);
}
rmapList* ipRmapListFindFirst() {
    return nameTreeFirst<rmapList>(aclNode->trees.rmap_tree);
}
rmapList* ipRmapListFindNext(const listName& name) {
    return nameTreeNext<rmapList>(aclNode->trees.rmap_tree, name);
}

rmapInstance* rmapInstanceFind(const rmapList* map, int32_t seq) {
    const be32 key = keyOf(seq);
    return instanceOf(zekRadixGetExact(map->bySeq, &key, SEQ_KEY_BITS));
}
rmapInstance* rmapInstanceNext(const rmapList* map, int32_t seq) {
    const be32 key = keyOf(seq);
    return instanceOf(zekRadixGetNext(map->bySeq, &key, SEQ_KEY_BITS));
}

rmapList* rmapMake(const listName& name, uint32_t placeholder) {
    auto* map = recordMake<rmapList>(POOL_RMAP);
    if (map == nullptr) return nullptr;
    map->name = name;
    map->placeholder = placeholder != 0 ? 1 : 0;
    map->bySeq = zekRadixCreate("rmapInstances", SEQ_KEY_BITS);
    if (map->bySeq != nullptr && zekRadixInsert(aclNode->trees.rmap_tree, &map->link,
                                                map->name.text, LIST_NAME_KEY_BITS) == 0)
        return map;
    zekRadixDestroy(map->bySeq);
    zekMC_M_memBlockVarFree(map);
    return nullptr;
}

void rmapDrop(rmapList* map) {
    clientsFree(map);
    rmapProgramDrop(map);
    zekRadixRemove(aclNode->trees.rmap_tree, &map->link);
    zekRadixDestroy(map->bySeq);
    zekMC_M_memBlockVarFree(map);
}

const cfgRmapKey* rmapRestoredKey() {
    return reinterpret_cast<const cfgRmapKey*>(zekCfgRestoring(aclNode->config.cfgDb));
}

rmapEntry* rmapEntryMake(rmapList* map, const rmapClauseBlock& request) {
    auto* entry = recordMake<rmapEntry>(POOL_RMAP_ENTRY);
    if (entry == nullptr) return nullptr;
    entry->cls = request.cls;
    entry->code = request.code;
    entry->kind = request.kind;
    entry->header = request.header;
    entry->seq = rmapSeqOf(request.seq);
    entry->action = request.action;
    entry->continueFlag = request.continueFlag;
    entry->continueTarget = rmapSeqOf(request.continueTarget);
    if (rmapPayloadOf(entry->code).size != 0) {
        entry->payload = recordMake<rmapPayload>(POOL_RMAP_ENTRY);
        if (entry->payload == nullptr) {
            zekMC_M_memBlockVarFree(entry);
            return nullptr;
        }
    }
    // Last of all: an instance that was made here is never without a record.
    rmapInstance* instance = rmapInstanceFind(map, entry->seq);
    if (instance == nullptr) instance = instanceMake(map, entry->seq, entry->action);
    if (instance == nullptr) {
        entryFree(entry);
        return nullptr;
    }
    entry->instance = instance;
    if (entry->header == 0) entry->action = instance->action;
    // A restored line keeps its place in the configuration, and with it its number.
    const cfgRmapKey* restored = rmapRestoredKey();
    entry->entryId = restored != nullptr ? uint32_t{restored->entryId} : 0;
    if (entry->entryId == 0) entry->entryId = map->lastEntryId + 1;
    map->lastEntryId = std::max(map->lastEntryId, entry->entryId);
    rmapEntry* before = entry->header != 0 ? nullptr : instance->last;
    // Lines stand by class; what came first comes back first.
    while (restored != nullptr && before != nullptr && before->header == 0 &&
           before->entryId > entry->entryId)
        before = before->prev;
    chainLink(&instance->first, &instance->last, entry,
              before != nullptr ? before->next : instance->first);
    return entry;
}

void rmapEntryDrop(rmapList* map, rmapEntry* entry) {
    rmapInstance* instance = entry->instance;
    chainUnlink(&instance->first, &instance->last, entry);
    entryFree(entry);
    if (instance->first == nullptr) instanceDrop(map, instance);
}

void rmapTakeFirst(rmapList* map) {
    if (map->first == nullptr) return;
    map->firstSeq = map->first->seq;
    map->firstAction = map->first->action;
}

rmapNameValue* rmapNameMake(const listName& name) {
    auto* value = recordMake<rmapNameValue>(POOL_NAME);
    if (value != nullptr) value->name = name;
    return value;
}
rmapNumberValue* rmapNumberMake(uint32_t number, uint16_t subValue) {
    auto* value = recordMake<rmapNumberValue>(POOL_NUMBER);
    if (value == nullptr) return nullptr;
    value->value = number;
    value->subValue = subValue;
    return value;
}
void rmapNameFree(rmapNameValue* value) {
    zekMC_M_memBlockVarFree(value);
}
void rmapNumberFree(rmapNumberValue* value) {
    zekMC_M_memBlockVarFree(value);
}

rmapPayloadPlace rmapPayloadOf(uint32_t code) {
    struct row {
        uint32_t code;
        rmapPayloadPlace place;
    };
#define RMAP_PLACE(field) \
    { offsetof(rmapClauseBlock, field), sizeof(rmapClauseBlock::field) }
    static constexpr row rows[] = {
        {RTMAP_SET_COMM, RMAP_PLACE(community)},
        {RTMAP_SET_DAMP, RMAP_PLACE(dampening)},
        {RTMAP_SET_PREPEND, RMAP_PLACE(prepend)},
        {RTMAP_SET_EXT_COMM, RMAP_PLACE(extCommunity)},
        {RTMAP_SET_V6_NHOP, RMAP_PLACE(ipv6NextHop)},
    };
#undef RMAP_PLACE
    for (const row& r : rows)
        if (r.code == code) return r.place;
    return {0, 0};
}
