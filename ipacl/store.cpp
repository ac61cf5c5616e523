// List and entry records: where they come from, how they are chained, when two entries are one.
#include "ipacl/store.h"

#include <cstring>

#include "common/ondemandtree.h"
#include "common/record.h"
#include "include/status.h"
#include "ipacl/zekipaccess.h"
#include "match/zekPolicy.h"
#include "platform/api/zekMem.h"

namespace {

// Tags under which the pool counts the records.
constexpr uint32_t POOL_LIST = 0;
constexpr uint32_t POOL_ENTRY = 3;
constexpr uint32_t POOL_BINDING = 7;

static_assert(sizeof(aclEntry) <= 192, "an entry record fills its pool class");
static_assert(sizeof(aclList) <= 784, "a list record fills its pool class");
static_assert(sizeof(aclBinding) <= 708, "a binding record fills its pool class");
static_assert(offsetof(aclList, link) == 0 && offsetof(aclBinding, link) == 0);

constexpr size_t keyOffset(size_t ofField) {
    return ofField - offsetof(aclBinding, kind);
}
static_assert(keyOffset(offsetof(aclBinding, id)) == offsetof(bindingKey, id) &&
              keyOffset(offsetof(aclBinding, instance)) == offsetof(bindingKey, instance) &&
              keyOffset(offsetof(aclBinding, direction)) == offsetof(bindingKey, direction) &&
              keyOffset(offsetof(aclBinding, rmapName)) == offsetof(bindingKey, rmapName));

constexpr uint32_t keyBits(uint32_t kind) {
    return 8 * (kind == BIND_ROUTE_MAP ? sizeof(bindingKey) : offsetof(bindingKey, rmapName));
}

bool sameRule(const ipEntryBlock& a, const ipEntryBlock& b) {
    constexpr size_t afterCounters = offsetof(ipEntryBlock, counterOptions) + 1;
    constexpr size_t seq = offsetof(ipEntryBlock, seq);
    constexpr size_t afterSeq = seq + sizeof(be32);
    const auto* x = reinterpret_cast<const uint8_t*>(&a);
    const auto* y = reinterpret_cast<const uint8_t*>(&b);
    return std::memcmp(x, y, afterCounters - 1) == 0 &&
           std::memcmp(x + afterCounters, y + afterCounters, seq - afterCounters) == 0 &&
           std::memcmp(x + afterSeq, y + afterSeq, sizeof a - afterSeq) == 0;
}

}  // namespace

aclList* aclListMake(zekRadix* tree, const listName& name, uint32_t kind, uint32_t placeholder,
                     bool dupTrees) {
    auto* list = recordMake<aclList>(POOL_LIST);
    if (list == nullptr) return nullptr;
    list->name = name;
    list->kind = kind;
    list->placeholder = placeholder != 0 ? 1 : 0;
    if (dupTrees) {
        list->seqTree = aclDupEntCheckTreeCreate(name);
        if (list->seqTree != nullptr) list->contentTree = aclDupEntCheckTreeCreate(name);
    }
    // A list without its trees could never take an entry, so it is not made at all.
    bool whole = !dupTrees || list->contentTree != nullptr;
    if (whole && zekRadixInsert(tree, &list->link, list->name.text, LIST_NAME_KEY_BITS) == 0)
        return list;
    aclDupEntCheckTreeDelete(list->seqTree);
    aclDupEntCheckTreeDelete(list->contentTree);
    zekMC_M_memBlockVarFree(list);
    return nullptr;
}

void aclListDrop(zekRadix* tree, aclList* list) {
    ipFilterIndexDrop(list);
    aclDupEntCheckTreeDelete(list->seqTree);
    aclDupEntCheckTreeDelete(list->contentTree);
    zekRadixRemove(tree, &list->link);
    zekMC_M_memBlockVarFree(list);
}

aclList* aclListObtain(zekRadix* tree, const listName& name, uint32_t kind, uint32_t placeholder,
                       bool dupTrees, uint32_t* status, listChange* change) {
    *status = ACL_OK;
    *change = listChange::none;
    bool kindIsKnown = kind == IP_KIND_STANDARD || kind == IP_KIND_EXTENDED;
    if (listNameIsEmpty(name) || (placeholder == 0 && !kindIsKnown)) {
        *status = ACL_E_NOLIST;
        return nullptr;
    }
    aclList* list = nameTreeFind<aclList>(tree, name);
    if (list == nullptr) {
        list = aclListMake(tree, name, placeholder == 0 ? kind : 0, placeholder, dupTrees);
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

aclBinding* aclBindingFind(const aclList* list, const bindingKey& key) {
    return nameTreeRecord<aclBinding>(
        onDemandTreeFind(list->bindingIndex, &key, keyBits(key.kind)));
}

aclBinding* aclBindingAdd(aclList* list, const bindingKey& key) {
    auto* binding = recordMake<aclBinding>(POOL_BINDING);
    if (binding == nullptr) return nullptr;
    binding->kind = key.kind;
    binding->id = key.id;
    binding->instance = key.instance;
    binding->direction = key.direction;
    if (key.kind == BIND_ROUTE_MAP) binding->rmapName = key.rmapName;
    const void* keyInRecord = reinterpret_cast<char*>(binding) + offsetof(aclBinding, kind);
    if (onDemandTreeInsert(&list->bindingIndex, "bindings", &binding->link, keyInRecord,
                           keyBits(key.kind)) != 0) {
        zekMC_M_memBlockVarFree(binding);
        return nullptr;
    }
    binding->next = list->bindings;
    if (binding->next != nullptr) binding->next->prev = binding;
    list->bindings = binding;
    return binding;
}

void aclBindingDrop(aclList* list, aclBinding* binding) {
    onDemandTreeRemove(&list->bindingIndex, &binding->link);
    (binding->prev != nullptr ? binding->prev->next : list->bindings) = binding->next;
    if (binding->next != nullptr) binding->next->prev = binding->prev;
    zekMC_M_memBlockVarFree(binding);
}

void aclListDropUnused(aclList* list) {
    if (list->placeholder == 0 || list->bindings != nullptr) return;
    const listName name = list->name;
    (void)ipAccessListDelete(name, list->kind);
}

aclEntry* aclEntryMake(const ipEntryBlock& block, uint32_t log, uint32_t monitor) {
    auto* entry = recordMake<aclEntry>(POOL_ENTRY);
    if (entry == nullptr) return nullptr;
    entry->block = block;
    entry->log = log;
    entry->monitor = monitor;
    return entry;
}

void aclEntryFree(aclEntry* entry) {
    zekMC_M_memBlockVarFree(entry);
}

void aclEntryLink(aclList* list, aclEntry* entry, aclEntry* next) {
    entry->next = next;
    entry->prev = next != nullptr ? next->prev : list->tail;
    (entry->prev != nullptr ? entry->prev->next : list->head) = entry;
    (next != nullptr ? next->prev : list->tail) = entry;
    list->count++;
}

void aclEntryUnlink(aclList* list, aclEntry* entry) {
    (entry->prev != nullptr ? entry->prev->next : list->head) = entry->next;
    (entry->next != nullptr ? entry->next->prev : list->tail) = entry->prev;
}

aclEntry* aclEntryFindEqual(const aclList* list, const ipEntryBlock& block) {
    if (list == nullptr) return nullptr;
    aclEntry* entry = list->head;
    while (entry != nullptr && !sameRule(entry->block, block)) entry = entry->next;
    return entry;
}

bool aclEntrySeqChoose(const aclList& list, const ipEntryBlock& block, uint32_t* seq) {
    uint64_t chosen = block.seq;
    if (chosen == SEQ_NOT_GIVEN) chosen = uint64_t{list.highestSeq} + SEQ_STEP;
    *seq = static_cast<uint32_t>(chosen);
    return chosen <= SEQ_MAX;
}
