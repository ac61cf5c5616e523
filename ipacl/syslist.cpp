// System lists: what the manager itself installs on one port, such as the protocol traps. Kept in
// aclNode->trees.aclSys_tree by name; never in the configuration, and without sequence-number or
// content trees. Every change goes to the port that the caller names. The caller holds the write
// lock.
#include "common/debug.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"

namespace {

constexpr uint32_t BATCH_MAX = 20;

// Destinations of routing protocols. Several protocol instances ask for the same trap: the second
// asking is no error.
bool isProtocolAddress(uint32_t address) {
    constexpr uint32_t addresses[] = {0xE0000005, 0xE0000006, 0xE0000009, 0xE0000012};
    for (uint32_t a : addresses)
        if (a == address) return true;
    return false;
}

void sendList(aclList* list, uint32_t ifindex, uint32_t messageId) {
    aclSendToAclAgent(list, ifindex, 1, messageId, 0, aclPortPipe(ifindex), 0);
}

void sendEntries(const aclEntry* entry, uint32_t ifindex, uint32_t messageId, uint32_t count,
                 const listName& name) {
    aclSendEntToAclAgent(entry, ifindex, messageId, count, aclPortPipe(ifindex), 0, name);
}

// Standard entries that match any source come before those that do not; all others in the order of
// their adds.
aclEntry* placeFor(const aclList* list, const ipEntryBlock& block) {
    if (block.kind != IP_KIND_STANDARD || block.srcMask != 0) return nullptr;
    aclEntry* next = list->head;
    while (next != nullptr && next->block.srcMask == 0) next = next->next;
    return next;
}

void deleteEntry(aclList* list, aclEntry* entry, uint32_t send, uint32_t ifindex) {
    if (send != 0) sendEntries(entry, ifindex, MT_ACL_SYS_DEL, 1, list->name);
    aclEntryUnlink(list, entry);
    aclEntryFree(entry);
    list->count--;
    if (list->count < 0)
        aclSysErr(SYSERR_SYSLIST,
                  "Error: Trying to delete from empty System Access List " LIST_NAME_FMT "\n",
                  listNameArg(list->name));
    aclTrigger(list, 0);
}

// The blocks as a chain of records that live for one send only.
uint32_t sendBatch(const listName& name, const ipEntryBlock* blocks, uint32_t log, uint32_t ifindex,
                   uint32_t count, uint32_t messageId) {
    if (count == 0 || count > BATCH_MAX) return ACL_E_SYSTEM;
    aclList batch{};
    uint32_t status = ACL_OK;
    for (uint32_t i = 0; i < count && status == ACL_OK; i++) {
        aclEntry* entry = aclEntryMake(blocks[i], log, 0);
        if (entry != nullptr)
            aclEntryLink(&batch, entry, nullptr);
        else
            status = ACL_E_ENTRY_MEMORY;
    }
    if (status == ACL_OK) sendEntries(batch.head, ifindex, messageId, count, name);
    while (aclEntry* entry = batch.head) {
        aclEntryUnlink(&batch, entry);
        aclEntryFree(entry);
    }
    return status;
}

}  // namespace

aclList* ipSysAccessListFind(const listName& name) {
    return nameTreeFind<aclList>(aclNode->trees.aclSys_tree, name);
}

aclList* ipSysAccessListFindFirst() {
    return nameTreeFirst<aclList>(aclNode->trees.aclSys_tree);
}

aclList* ipSysAccessListFindNext(const listName& name) {
    return nameTreeNext<aclList>(aclNode->trees.aclSys_tree, name);
}

aclEntry* ipSysAccessEntFind(const listName& name, const ipEntryBlock* block) {
    return aclEntryFindEqual(ipSysAccessListFind(name), *block);
}

aclList* ipSysAccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                               uint32_t ifindex, uint32_t* status) {
    listChange change = listChange::none;
    aclList* list =
        aclListObtain(aclNode->trees.aclSys_tree, name, kind, placeholder, false, status, &change);
    if (list == nullptr) return nullptr;
    if (change != listChange::none && list->placeholder == 0) aclTrigger(list, 0);
    // Sent whatever has become of the call: the port may be new even when the list is not.
    sendList(list, ifindex, MT_ACL_SYS_ADDLIST);
    return list;
}

uint32_t ipSysAddAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t log,
                             uint32_t ifindex) {
    aclList* list = ipSysAccessListFind(name);
    if (aclEntryFindEqual(list, *block) != nullptr)
        return isProtocolAddress(block->dst) ? ACL_OK : ACL_E_ENTRY_EXISTS;
    if (list == nullptr) return ACL_E_NOLIST;
    aclEntry* entry = aclEntryMake(*block, log, 0);
    if (entry == nullptr) return ACL_E_ENTRY_MEMORY;
    aclEntryLink(list, entry, placeFor(list, *block));
    aclTrigger(list, 0);
    entry->id = ++list->lastEntryId;
    sendEntries(entry, ifindex, MT_ACL_SYS_ADDENT, 1, list->name);
    return ACL_OK;
}

uint32_t ipSysDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t send,
                             uint32_t ifindex) {
    aclList* list = ipSysAccessListFind(name);
    aclEntry* entry = aclEntryFindEqual(list, *block);
    if (entry == nullptr) return ACL_E_NOENTRY;
    deleteEntry(list, entry, send, ifindex);
    return ACL_OK;
}

uint32_t ipSysAccessListDelete(const listName& name, uint32_t ifindex) {
    aclList* list = ipSysAccessListFind(name);
    if (list == nullptr) return ACL_E_NOLIST;
    if (list->placeholder == 0) {
        sendList(list, ifindex, MT_ACL_SYS_DEL);
        while (list->head != nullptr) deleteEntry(list, list->head, 0, ifindex);
    }
    if (list->bindings != nullptr) {
        list->placeholder = 1;
        list->kind = 0;
    } else {
        aclListDrop(aclNode->trees.aclSys_tree, list);
    }
    return ACL_OK;
}

uint32_t ipSysAddThirteenAccessEntry(const listName& name, const ipEntryBlock* blocks, uint32_t log,
                                     uint32_t ifindex, uint32_t count) {
    return sendBatch(name, blocks, log, ifindex, count, MT_ACL_SYS_ADDENT);
}

uint32_t ipSysDelThirteenAccessEntry(const listName& name, const ipEntryBlock* blocks, uint32_t log,
                                     uint32_t ifindex, uint32_t count) {
    return sendBatch(name, blocks, log, ifindex, count, MT_ACL_SYS_DEL);
}
