// List and entry records: where they come from, how they are chained, when two entries are one.
#include "ipacl/store.h"

#include <cstring>

#include "common/chain.h"
#include "common/record.h"
#include "include/status.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"

namespace {

static_assert(sizeof(aclEntry) <= 192, "an entry record fills its pool class");
static_assert(sizeof(aclList) <= 784, "a list record fills its pool class");
static_assert(sizeof(aclBinding) <= 1024, "a binding record fills its pool class");

zekRadix* treeOf(const aclFamily& family) {
    return aclNode->trees.*family.tree;
}

}  // namespace

// --- lists ---------------------------------------------------------------------------------------

aclList* aclListFind(const aclFamily& family, const listName& name) {
    aclList* list = nameTreeFind<aclList>(treeOf(family), name);
    // The system lists of both families stand in one tree.
    return list != nullptr && list->family == &family ? list : nullptr;
}

bool aclListIsConfigured(const listName& name, uint32_t family) {
    const aclList* list = aclListFind(*aclFamilies[family], name);
    return list != nullptr && list->placeholder == 0 && list->kind != 0;
}

aclList* aclListMake(const aclFamily& family, const listName& name, uint32_t kind,
                     uint32_t placeholder) {
    auto* list = recordMake<aclList>(POOL_ACCESS_LIST);
    if (list == nullptr) return nullptr;
    list->family = &family;
    list->name = name;
    list->kind = kind;
    list->placeholder = placeholder != 0 ? 1 : 0;
    const bool hasTrees = family.contentKey != nullptr;
    if (hasTrees) {
        list->seqTree = aclDupEntCheckTreeCreate(name);
        if (list->seqTree != nullptr) list->contentTree = aclDupEntCheckTreeCreate(name);
    }
    // A list without its trees could never take an entry, so it is not made at all.
    const bool whole = !hasTrees || list->contentTree != nullptr;
    if (whole &&
        zekRadixInsert(treeOf(family), &list->link, list->name.text, LIST_NAME_KEY_BITS) == 0)
        return list;
    aclDupEntCheckTreeDelete(list->seqTree);
    aclDupEntCheckTreeDelete(list->contentTree);
    zekMC_M_memBlockVarFree(list);
    return nullptr;
}

void aclListDrop(aclList* list) {
    if (list->family->indexDrop != nullptr) list->family->indexDrop(list);
    aclDupEntCheckTreeDelete(list->seqTree);
    aclDupEntCheckTreeDelete(list->contentTree);
    zekRadixRemove(treeOf(*list->family), &list->link);
    zekMC_M_memBlockVarFree(list);
}

aclList* aclListObtain(const aclFamily& family, const listName& name, uint32_t kind,
                       uint32_t placeholder, uint32_t* status, listChange* change) {
    *status = ACL_OK;
    *change = listChange::none;
    const bool kindIsKnown = kind == IP_KIND_STANDARD || kind == IP_KIND_EXTENDED;
    if (listNameIsEmpty(name) || (placeholder == 0 && !kindIsKnown)) {
        *status = ACL_E_NOLIST;
        return nullptr;
    }
    aclList* list = aclListFind(family, name);
    if (list == nullptr) {
        list = aclListMake(family, name, placeholder == 0 ? kind : 0, placeholder);
        if (list == nullptr)
            *status = ACL_E_LIST_MEMORY;
        else
            *change = listChange::created;
        return list;
    }
    if (list->kind == IP_KIND_STANDARD && kind == IP_KIND_EXTENDED) *status = ACL_E_IS_STANDARD;
    if (list->kind == IP_KIND_EXTENDED && kind == IP_KIND_STANDARD) *status = ACL_E_IS_EXTENDED;
    if (*status == ACL_OK && placeholder == 0 && list->placeholder != 0) {
        list->placeholder = 0;
        if (list->kind == 0) list->kind = kind;
        *change = listChange::configured;
    }
    return list;
}

void aclListDropUnused(aclList* list) {
    clientDropUnused(aclClientStore, list, list->family->af);
}

void aclListRetire(aclList* list) {
    if (list->clients == nullptr) return aclListDrop(list);
    list->placeholder = 1;
    list->kind = 0;
}

// --- entries -------------------------------------------------------------------------------------

listEntry* aclEntryMake(const aclFamily& family, const void* block, const entryOptions& options) {
    auto* entry = recordMake<listEntry>(POOL_ACCESS_ENTRY, family.entryBytes);
    if (entry == nullptr) return nullptr;
    std::memcpy(entry + 1, block, family.blockBytes);
    entry->log = options.log;
    entry->monitor = options.monitor;
    return entry;
}

void aclEntryFree(listEntry* entry) {
    zekMC_M_memBlockVarFree(entry);
}

void aclEntryLink(aclList* list, listEntry* entry, listEntry* next) {
    chainLink(&list->head, &list->tail, entry, next);
    list->count++;
}

void aclEntryUnlink(aclList* list, listEntry* entry) {
    chainUnlink(&list->head, &list->tail, entry);
}

listEntry* aclEntryFindEqual(const aclList* list, const void* block) {
    if (list == nullptr) return nullptr;
    const aclFamily& family = *list->family;
    listEntry* entry = list->head;
    while (entry != nullptr && !family.sameRule(entryBlock(*entry), block)) entry = entry->next;
    return entry;
}

bool aclEntrySeqChoose(const aclList& list, void* block, uint32_t* seq) {
    be32& word = const_cast<be32&>(blockSeq(*list.family, block));
    uint64_t chosen = word;
    if (chosen == SEQ_NOT_GIVEN) chosen = uint64_t{list.highestSeq} + SEQ_STEP;
    if (chosen > list.family->seqMax) return false;
    word = *seq = static_cast<uint32_t>(chosen);
    return true;
}

void aclEntrySeqRecompute(aclList* list) {
    list->highestSeq = list->tail != nullptr ? entrySeq(*list->family, *list->tail) : 0;
}
