// The frame of AS-path, community and extended-community lists.
//
// A list is absent, a placeholder or configured; only a configured one has entries. An entry stands
// in the chain, in the content tree and in the index at once. A change is made there first; then
// the clients hear of it, then the configuration.
#include <cstring>

#include "common/chain.h"
#include "common/clients.h"
#include "common/record.h"
#include "common/tree.h"
#include "include/status.h"
#include "platform/api/zekBgpRegex.h"
#include "platform/api/zekMem.h"
#include "policy/bgp/store.h"
#include "policy/bgp/zekbgp_plcy.h"

const bgpKindRow bgpKinds[BGP_LIST_KINDS] = {
    {&aspathAclNodeRecord::asTree, 1, ACL_E_ASPATH_NOLIST, ACL_E_ASPATH_EXISTS,
     ACL_E_ASPATH_NOENTRY, ACL_E_LIST_MEMORY, ACL_E_ASPATH_MEMORY, CFG_ASPATH_LIST, CFG_SYNC_ASPATH,
     "ip as-path access-list ", CLI_ASPATH_LIST_CREATE, CLI_ASPATH_ENTRY_ADD},
    {&aspathAclNodeRecord::commTree, 2, ACL_E_COMM_NOLIST, ACL_E_COMM_EXISTS, ACL_E_COMM_NOENTRY,
     ACL_E_LIST_MEMORY, ACL_E_COMM_MEMORY, CFG_COMM_LIST, CFG_SYNC_COMM, "ip community-list ",
     CLI_COMM_LIST_CREATE, CLI_COMM_ENTRY_ADD},
    // An entry that is there already is answered as in a community list: meant.
    {&aspathAclNodeRecord::extCommTree, 2, ACL_E_EXTCOMM_NOLIST, ACL_E_COMM_EXISTS,
     ACL_E_EXTCOMM_NOENTRY, ACL_E_EXTCOMM_MEMORY, ACL_E_EXTCOMM_MEMORY, CFG_EXTCOMM_LIST,
     CFG_SYNC_EXTCOMM, "ip extcommunity-list ", CLI_EXTCOMM_LIST_CREATE, CLI_EXTCOMM_ENTRY_ADD},
};

namespace {

static_assert(sizeof(aspathEntry) == sizeof(bgpEntry) + 2 * sizeof(be32));
static_assert(sizeof(commEntry) == sizeof(bgpEntry) + sizeof(commEntryBlock));

zekRadix* treeOf(bgpListKind kind) {
    return aspathAclNode->*bgpKinds[kind].tree;
}
bgpEntry* entryOf(zekRadixNode* same) {
    return treeRecord<bgpEntry>(same, offsetof(bgpEntry, same));
}
uint8_t* bodyOf(bgpEntry* entry) {
    return reinterpret_cast<uint8_t*>(entry + 1);
}

bgpList* listMake(bgpListKind kind, const listName& name, uint32_t placeholder) {
    auto* list = recordMake<bgpList>(POOL_BGP_LIST);
    if (list == nullptr) return nullptr;
    list->name = name;
    list->kind = kind;
    list->placeholder = placeholder != 0 ? 1 : 0;
    list->same = zekRadixCreate("bgpEntryTree", 0);
    list->index = bgpIndexMake();
    if (list->same != nullptr && list->index != nullptr &&
        zekRadixInsert(treeOf(kind), &list->link, list->name.text, LIST_NAME_KEY_BITS) == 0)
        return list;
    zekRadixDestroy(list->same);
    bgpIndexFree(list->index);
    zekMC_M_memBlockVarFree(list);
    return nullptr;
}

bgpEntry* entryMake(const bgpDraft& draft) {
    const size_t size = sizeof(bgpEntry) + draft.body.size() + 1;  // a NUL behind texts
    auto* entry = recordMake<bgpEntry>(POOL_BGP_ENTRY, size);
    if (entry == nullptr) return nullptr;
    entry->action = draft.action;
    entry->kind = draft.kind;
    std::memcpy(bodyOf(entry), draft.body.data(), draft.body.size());
    return entry;
}
void entryFree(bgpEntry* entry) {
    zekbgp_regex_free(entry->regex);
    zekMC_M_memBlockVarFree(entry);
}

// Into the tree, the index and the chain, or into none of them.
bool link(bgpList* list, bgpEntry* entry, size_t bodySize) {
    // The list's counter follows when the clients know.
    entry->id = cfgRestoredNumber(bgpKinds[list->kind].block);
    if (entry->id == 0) entry->id = list->lastEntryId + 1;
    if (zekRadixInsert(list->same, &entry->same, bodyOf(entry),
                       static_cast<uint32_t>(bodySize * 8)) != 0)
        return false;
    if (!bgpIndexAdd(list->index, list->kind, entry)) {
        zekRadixRemove(list->same, &entry->same);
        return false;
    }
    chainLink(&list->head, &list->tail, entry, static_cast<bgpEntry*>(nullptr));
    return true;
}

uint32_t refuseEntry(bgpList* list, bgpEntry* entry) {
    const uint32_t status = bgpKinds[list->kind].entryMemory;
    if (entry != nullptr) entryFree(entry);
    // A list that is left without any entry goes with the one that found no memory: meant.
    if (list->head == nullptr) (void)bgpListDelete(list->kind, list->name);
    return status;
}

void deleteEntry(bgpList* list, bgpEntry* entry, uint32_t writeConfig) {
    if (writeConfig != 0) bgpEntryToCfg(list->kind, entry, 1, list->name);
    bgpIndexRemove(list->index, list->kind, entry);
    zekRadixRemove(list->same, &entry->same);
    chainUnlink(&list->head, &list->tail, entry);
    entryFree(entry);
    (void)aspTrigger(list, bgpKinds[list->kind].trigger);
}

}  // namespace

bgpList* bgpListFind(bgpListKind kind, const listName& name) {
    return nameTreeFind<bgpList>(treeOf(kind), name);
}
bgpList* bgpListFirst(bgpListKind kind) {
    return nameTreeFirst<bgpList>(treeOf(kind));
}
bgpList* bgpListNext(bgpListKind kind, const listName& name) {
    return nameTreeNext<bgpList>(treeOf(kind), name);
}
bgpList* bgpListPrev(bgpListKind kind, const listName& name) {
    return nameTreePrev<bgpList>(treeOf(kind), name);
}

bgpList* bgpListCreate(bgpListKind kind, const listName& name, uint32_t placeholder,
                       uint32_t* status) {
    *status = ACL_OK;
    if (listNameIsEmpty(name)) {
        *status = bgpKinds[kind].noList;
        return nullptr;
    }
    bgpList* list = bgpListFind(kind, name);
    if (list != nullptr) {
        if (placeholder != 0 || list->placeholder == 0) return list;
        list->placeholder = 0;
    } else {
        list = listMake(kind, name, placeholder);
        if (list == nullptr) {
            *status = bgpKinds[kind].listMemory;
            return nullptr;
        }
    }
    if (list->placeholder == 0) bgpListToCfg(list, 0);
    return list;
}

void bgpListDrop(bgpList* list) {
    zekRadixRemove(treeOf(list->kind), &list->link);
    zekRadixDestroy(list->same);
    bgpIndexFree(list->index);
    zekMC_M_memBlockVarFree(list);
}

uint32_t bgpListDelete(bgpListKind kind, const listName& name) {
    bgpList* list = bgpListFind(kind, name);
    if (list == nullptr) return bgpKinds[kind].noList;
    // The clients hear of every entry: meant. The last one leaves the index fastest.
    while (list->tail != nullptr) deleteEntry(list, list->tail, 0);
    if (list->placeholder == 0) bgpListToCfg(list, 1);
    if (list->clients == nullptr) {
        bgpListDrop(list);
        return ACL_OK;
    }
    list->placeholder = 1;
    list->lastEntryId = 0;
    return ACL_OK;
}

bgpEntry* bgpEntryFind(const bgpList* list, std::span<const uint8_t> body) {
    if (list == nullptr) return nullptr;
    return entryOf(
        zekRadixGetExact(list->same, body.data(), static_cast<uint32_t>(body.size() * 8)));
}

uint32_t bgpEntryAdd(bgpListKind kind, const listName& name, const bgpDraft& draft) {
    bgpList* list = bgpListFind(kind, name);
    if (list == nullptr || list->placeholder != 0) return bgpKinds[kind].noList;
    if (bgpEntryFind(list, draft.body) != nullptr) return bgpKinds[kind].exists;
    bgpEntry* entry = entryMake(draft);
    if (entry == nullptr) return refuseEntry(list, nullptr);
    if (draft.kind == COMM_REGEXP) {
        entry->regex = zekbgp_regcomp(draft.expression);
        if (entry->regex == nullptr) {
            entryFree(entry);
            return ACL_E_EXPRESSION;
        }
    }
    if (!link(list, entry, draft.body.size())) return refuseEntry(list, entry);
    (void)aspTrigger(list, bgpKinds[kind].trigger);
    list->lastEntryId = entry->id;
    bgpEntryToCfg(kind, entry, 0, name);
    return ACL_OK;
}

uint32_t bgpEntryDelete(bgpListKind kind, const listName& name, std::span<const uint8_t> body,
                        uint32_t writeConfig) {
    bgpList* list = bgpListFind(kind, name);
    if (list == nullptr) return bgpKinds[kind].noList;
    bgpEntry* entry = bgpEntryFind(list, body);
    if (entry == nullptr) return bgpKinds[kind].noEntry;
    deleteEntry(list, entry, writeConfig);
    return ACL_OK;
}
