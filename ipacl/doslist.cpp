// Denial-of-service filter lists ("trace lists") and the one of them that filters.
//
// Kept in aclNode->trees.dos_tree by name; they are bound to nothing: an active list (kind word
// with DOS_ACTIVE) goes to the agent of every card. They are short, so entries are found by walking
// the chain. The caller holds the write lock.
#include "common/debug.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "include/cliMsg.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"

aclList* dosFilter = nullptr;

namespace {

bool isActive(const aclList* list) {
    return (list->kind & DOS_ACTIVE) != 0;
}

// The entry with a number, or null.
aclEntry* findSeq(const aclList* list, uint32_t seq) {
    if (list == nullptr) return nullptr;
    for (aclEntry& entry : entriesOf<aclEntry>(list->head))
        if (entry.block.seq == seq) return &entry;
    return nullptr;
}

bool anyActive() {
    aclList* list = ipDosListFindFirst();
    while (list != nullptr && !isActive(list)) list = ipDosListFindNext(list->name);
    return list != nullptr;
}

void deleteEntry(aclList* list, aclEntry* entry, uint32_t send, uint32_t cfg) {
    if (cfg != 0) dos_ent_sent_to_cfg(entry, 1, list->name);
    list->count--;
    if (isActive(list) && send != 0) dosSendToAllAgents(list, entry, MT_DOS_DELENT);
    aclEntryUnlink(list, entry);
    aclEntrySeqRecompute(list);
    aclEntryFree(entry);
    if (list->count < 0)
        aclSysErr(SYSERR_LIST, "Error: Trying to delete from empty access list " LIST_NAME_FMT "\n",
                  listNameArg(list->name));
}

uint32_t enable(const listName& name) {
    uint32_t status = ACL_OK;
    bool known = ipDosListFind(name) != nullptr;
    aclList* list = ipDosListCreate(name, 0, 1, &status);
    if (list == nullptr) return status;
    if (list->kind != 0) return ACL_OK;
    if (anyActive()) {
        if (!known) aclListDrop(list);
        return ACL_E_OTHER_DOS;
    }
    dos_sent_to_cfg_enabled(list, 1);
    list->kind = DOS_ACTIVE;
    dosFilter = list;
    if (list->placeholder == 0) dosSendToAllAgents(list, nullptr, MT_DOS_ADDLIST);
    return ACL_OK;
}

uint32_t disable(const listName& name) {
    aclList* list = ipDosListFind(name);
    if (list == nullptr) return ACL_E_NODOS;
    if (!isActive(list)) return ACL_OK;
    dos_sent_to_cfg_enabled(list, 0);
    list->kind = 0;
    if (dosFilter == list) dosFilter = nullptr;
    if (list->placeholder != 0)
        aclListDrop(list);
    else
        dosSendToAllAgents(list, nullptr, MT_DOS_DELLIST);
    return ACL_OK;
}

}  // namespace

aclList* ipDosListFind(const listName& name) {
    return aclListFind(dosFamily, name);
}

aclList* ipDosListFindFirst() {
    return nameTreeFirst<aclList>(aclNode->trees.dos_tree);
}

aclList* ipDosListFindNext(const listName& name) {
    return nameTreeNext<aclList>(aclNode->trees.dos_tree, name);
}

aclList* ipDosListFindPrev(const listName& name) {
    return nameTreePrev<aclList>(aclNode->trees.dos_tree, name);
}

aclEntry* ipDosEntFind(const listName& name, const ipEntryBlock* block) {
    return static_cast<aclEntry*>(aclEntryFindEqual(ipDosListFind(name), block));
}

aclEntry* ipDosEntCompareSeq(const listName& name, const ipEntryBlock* block) {
    return findSeq(ipDosListFind(name), block->seq);
}

aclList* ipDosListCreate(const listName& name, uint32_t flags, uint32_t placeholder,
                         uint32_t* status) {
    *status = ACL_OK;
    if (listNameIsEmpty(name)) {
        *status = ACL_E_NODOS;
        return nullptr;
    }
    aclList* list = ipDosListFind(name);
    if (list == nullptr) {
        list = aclListMake(dosFamily, name, flags, placeholder);
        if (list == nullptr) {
            *status = ACL_E_LIST_MEMORY;
            return nullptr;
        }
        if (placeholder != 0) return list;
    } else {
        if (placeholder != 0 || list->placeholder == 0) return list;
        list->placeholder = 0;
        // A filter that was enabled before it was defined stays enabled.
        if (list->kind == 0) list->kind = flags;
    }
    dos_sent_to_cfg(list, 0);
    if (isActive(list)) dosSendToAllAgents(list, nullptr, MT_DOS_ADDLIST);
    return list;
}

uint32_t ipAddDosEntry(const listName& name, ipEntryBlock* block, uint32_t log) {
    aclList* list = ipDosListFind(name);
    if (aclEntryFindEqual(list, block) != nullptr) return ACL_E_ENTRY_EXISTS;
    if (findSeq(list, block->seq) != nullptr) return ACL_E_SEQ_USED;
    // A placeholder has no header line for the entry's line to stand under.
    if (list == nullptr || list->placeholder != 0) return ACL_E_NODOS;
    uint32_t seq = 0;
    if (!aclEntrySeqChoose(*list, block, &seq)) return ACL_E_SEQ_RANGE;
    // Raised before the allocation, and left raised when that fails: meant.
    if (seq >= list->highestSeq) list->highestSeq = seq;

    auto* entry = static_cast<aclEntry*>(aclEntryMake(dosFamily, block, {log}));
    if (entry == nullptr) return ACL_E_ENTRY_MEMORY;
    listEntry* next =
        list->tail == nullptr || entrySeq(dosFamily, *list->tail) < seq ? nullptr : list->head;
    while (next != nullptr && entrySeq(dosFamily, *next) < seq) next = next->next;
    aclEntryLink(list, entry, next);
    entry->id = ++list->lastEntryId;
    if (isActive(list)) dosSendToAllAgents(list, entry, MT_DOS_ADDENT);
    dos_ent_sent_to_cfg(entry, 0, list->name);
    return ACL_OK;
}

uint32_t ipDelDosEntry(const listName& name, const ipEntryBlock* block, uint32_t send,
                       uint32_t cfg) {
    aclList* list = ipDosListFind(name);
    if (list == nullptr) return ACL_E_NODOS;
    bool byContent = block->seq == SEQ_NOT_GIVEN;
    aclEntry* entry = byContent ? ipDosEntFind(name, block) : findSeq(list, block->seq);
    if (entry == nullptr) return byContent ? ACL_E_NOENTRY : ACL_E_NOSEQ;
    deleteEntry(list, entry, send, cfg);
    return ACL_OK;
}

uint32_t ipDosListDelete(const listName& name) {
    aclList* list = ipDosListFind(name);
    if (list == nullptr) return ACL_E_NODOS;
    if (list->placeholder == 0) {
        while (list->head != nullptr) deleteEntry(list, static_cast<aclEntry*>(list->head), 1, 0);
        dos_sent_to_cfg(list, 1);
        if (isActive(list)) dosSendToAllAgents(list, nullptr, MT_DOS_DELLIST);
        list->placeholder = 1;
    }
    // The active filter stays enabled under its name, ready to be defined again.
    if (list != dosFilter) aclListDrop(list);
    return ACL_OK;
}

uint32_t dosIpEnableIntf(const listName& name, uint32_t command) {
    if (command == CLI_DOS_ENABLE) return enable(name);
    if (command == CLI_DOS_DISABLE) return disable(name);
    return ACL_E_SYSTEM;
}
