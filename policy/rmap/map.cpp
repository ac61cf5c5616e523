// Route maps and their instances: created, changed, deleted whole.
#include "common/debug.h"
#include "policy/rmap/store.h"
#include "policy/rmap/zekroutemap.h"

uint32_t acl_routemap_debug = 0;

namespace {

// The number that a create without one means.
uint32_t chooseSeq(const rmapList* map, int32_t* seq) {
    const rmapEntry* only = nullptr;
    for (const rmapInstance* at = map->first; at != nullptr; at = at->next) {
        if (only != nullptr) return ACL_E_RMAP_SEQ_NEEDED;
        only = at->first;
    }
    *seq = only != nullptr ? only->seq : RMAP_SEQ_DEFAULT;
    return ACL_OK;
}

rmapEntry* headerOf(const rmapList* map, int32_t seq) {
    const rmapInstance* instance = rmapInstanceFind(map, seq);
    return instance != nullptr ? instance->first : nullptr;
}

rmapClauseBlock headerRequest(uint32_t action, int32_t seq) {
    rmapClauseBlock request{};
    request.header = 1;
    request.action = action;
    request.seq = static_cast<uint32_t>(seq);
    return request;
}

// Adds the instance to a map that was there before, or changes its action.
uint32_t configure(rmapList* map, uint32_t action, int32_t seq) {
    const rmapInstance* before = rmapInstanceFind(map, seq);
    // The action is put back when the header finds no memory.
    const uint32_t oldAction = before != nullptr ? before->action : action;
    ipRmapListUpdate(map, action, seq);
    rmapClauseBlock request = headerRequest(action, seq);
    if (uint32_t status = rmapEntryAdd(map, &request); status != ACL_OK) {
        ipRmapListUpdate(map, oldAction, seq);
        return status;
    }
    // The line has been written with the record; it is written again: meant.
    if (oldAction != action)
        rmap_sent_to_cfg_update(headerOf(map, seq), oldAction, map->name);
    else
        rmap_sent_to_cfg(headerOf(map, seq), 0, map->name);
    if (map->placeholder != 0 && map->firstSeq == 0) {
        map->placeholder = 0;
        map->firstSeq = seq;
        map->firstAction = action;
    }
    return ACL_OK;
}

// Takes all records of an instance, without a word to clients or configuration.
void instanceRelease(rmapList* map, rmapInstance* instance) {
    rmapProgramDrop(map);
    for (rmapEntry* entry = instance->first; entry != nullptr;) {
        rmapEntry* next = entry->next;  // the instance goes with its last record
        rmapValuesRelease(map, entry);
        rmapEntryDrop(map, entry);
        entry = next;
    }
}

// A map that is left without records goes, or stays for its clients as a placeholder that denies.
uint32_t finishDelete(rmapList* map) {
    if (map->first != nullptr) return ACL_OK;
    rmapCfgRemoveMap(map->name);
    if (map->clients == nullptr) {
        rmapDrop(map);
        return ACL_OK;
    }
    map->placeholder = 1;
    map->firstAction = RMAP_DENY;
    map->firstSeq = 0;
    return ACL_OK;
}

}  // namespace

rmapList* ipRmapListCreate(const listName& name, uint32_t action, int32_t* seq,
                           uint32_t placeholder, uint32_t* status) {
    action = action == RMAP_DENY ? RMAP_DENY : RMAP_PERMIT;
    rmapList* map = ipRmapListFind(name);
    const bool isNew = map == nullptr;
    *status = ACL_OK;
    if (listNameIsEmpty(name)) *status = ACL_E_NORMAP;
    if (*seq == -1 && isNew) *seq = RMAP_SEQ_DEFAULT;
    if (*seq == -1 && *status == ACL_OK) *status = chooseSeq(map, seq);
    if (*status == ACL_OK && *seq < 1) *status = ACL_E_RMAP_SEQ;
    if (*status != ACL_OK) return nullptr;
    if (isNew && (map = rmapMake(name, placeholder)) == nullptr) {
        *status = ACL_E_RMAP_MEMORY;
        return nullptr;
    }
    if (isNew) map->firstAction = action;
    if (placeholder != 0) return map;

    aclIsRmapFirstTime = isNew || map->placeholder != 0 ? 1 : 0;
    if (isNew) {
        rmapClauseBlock request = headerRequest(action, *seq);
        *status = rmapEntryAdd(map, &request);
        if (*status != ACL_OK) rmapDrop(map);
    } else {
        *status = configure(map, action, *seq);
    }
    aclIsRmapFirstTime = 0;
    return *status == ACL_OK ? map : nullptr;
}

void ipRmapListUpdate(rmapList* map, uint32_t action, int32_t seq) {
    rmapInstance* instance = rmapInstanceFind(map, seq);
    if (instance == nullptr) return;
    rmapProgramDrop(map);
    instance->action = action;
    for (rmapEntry* entry = instance->first; entry != nullptr; entry = entry->next)
        entry->action = action;
    if (map->firstSeq == seq) map->firstAction = action;
}

uint32_t ipDelRmapEntryAll(const listName& name, int32_t seq) {
    rmapList* map = ipRmapListFind(name);
    if (map == nullptr) return ACL_E_NORMAP;
    rmapInstance* instance = rmapInstanceFind(map, seq);
    if (instance == nullptr) return ACL_E_RMAP_NOENTRY;
    rmap_sent_to_cfg(instance->first, 1, name);
    instanceRelease(map, instance);
    rmapTakeFirst(map);
    return ACL_OK;
}

uint32_t ipDelRmapEntryAllFin(const listName& name, int32_t seq) {
    const uint32_t status = ipDelRmapEntryAll(name, seq);
    if (status != ACL_OK) return status;
    rmapList* map = ipRmapListFind(name);
    // Whoever looks at the map while it is told sees one that denies.
    const uint32_t action = map->firstAction;
    map->firstAction = RMAP_DENY;
    (void)rmapTrigger(map);
    map->firstAction = action;
    return finishDelete(map);
}

uint32_t rmapInstanceDelete(rmapList* map, int32_t seq) {
    rmapInstance* instance = rmapInstanceFind(map, seq);
    if (instance == nullptr) return ACL_E_RMAP_NOENTRY;
    // The fields of the first instance get the last record's: meant.
    map->firstSeq = map->last->seq;
    map->firstAction = map->last->last->action;
    rmap_sent_to_cfg(instance->first, 1, map->name);
    instanceRelease(map, instance);
    (void)rmapTrigger(map);
    return finishDelete(map);
}

void ipDelRmapListComplete(rmapList* map) {
    (void)rmapTrigger(map);
    while (rmapInstance* instance = map->first) {
        if (acl_routemap_debug != 0)
            aclDebug(0, "- Sending CfgRemove for " LIST_NAME_FMT " instance %d\r\n",
                     listNameArg(map->name), instance->seq);
        rmapCfgRemoveInstance(map->name, instance->seq);
        instanceRelease(map, instance);
    }
    rmapCfgSyncGone(map->name);
}

uint32_t ipRmapListDelete(const listName& name, int32_t seq, uint32_t named) {
    rmapList* map = ipRmapListFind(name);
    if (map == nullptr) return ACL_E_NORMAP;
    if (named != RMAP_NAMED_NONE) {
        if (seq == 0) return ACL_E_RMAP_SEQ_NEEDED;
        const rmapInstance* instance = rmapInstanceFind(map, seq);
        const uint32_t action = named == RMAP_NAMED_DENY ? RMAP_DENY : RMAP_PERMIT;
        if (instance == nullptr || instance->action != action) return ACL_E_RMAP_NOENTRY;
    }
    if (map->placeholder != 0) return finishDelete(map);
    if (seq != 0) return ipDelRmapEntryAllFin(name, seq);
    ipDelRmapListComplete(map);
    return finishDelete(map);
}
