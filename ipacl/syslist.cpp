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

// To the one port that the caller names.
void send(uint32_t ifindex, const aclSend& what) {
    (void)iAclSendToAclAgent({ifindex, SLOT_NONE, aclPortPipe(ifindex)}, what);
}

// Standard entries that match any source come before those that do not; all others in the order of
// their adds.
listEntry* placeFor(const aclList* list, const ipEntryBlock& block) {
    if (block.kind != IP_KIND_STANDARD || block.srcMask != 0) return nullptr;
    for (aclEntry& next : entriesOf<aclEntry>(list->head))
        if (next.block.srcMask != 0) return &next;
    return nullptr;
}

void deleteEntry(aclList* list, listEntry* entry, uint32_t sends, uint32_t ifindex) {
    if (sends != 0) send(ifindex, {MT_ACL_SYS_DEL, list, entry});
    aclEntryUnlink(list, entry);
    aclEntryFree(entry);
    list->count--;
    if (list->count < 0)
        aclSysErr(SYSERR_SYSLIST,
                  "Error: Trying to delete from empty System Access List " LIST_NAME_FMT "\n",
                  listNameArg(list->name));
    aclTrigger(list);
}

// The blocks as a chain of records that live for one send only.
uint32_t sendBatch(const listName& name, const ipEntryBlock* blocks, uint32_t log, uint32_t ifindex,
                   uint32_t count, uint32_t messageId) {
    if (count == 0 || count > BATCH_MAX) return ACL_E_SYSTEM;
    aclList batch{};
    batch.name = name;
    if (const aclList* known = ipSysAccessListFind(name)) batch.kind = known->kind;
    uint32_t status = ACL_OK;
    for (uint32_t i = 0; i < count && status == ACL_OK; i++) {
        listEntry* entry = aclEntryMake(ip4SystemFamily, &blocks[i], {log});
        if (entry != nullptr)
            aclEntryLink(&batch, entry, nullptr);
        else
            status = ACL_E_ENTRY_MEMORY;
    }
    if (status == ACL_OK) send(ifindex, {messageId, &batch, batch.head, count});
    while (listEntry* entry = batch.head) {
        aclEntryUnlink(&batch, entry);
        aclEntryFree(entry);
    }
    return status;
}

}  // namespace

aclList* ipSysAccessListFind(const listName& name) {
    return aclListFind(ip4SystemFamily, name);
}

aclList* ipSysAccessListFindFirst() {
    return nameTreeFirst<aclList>(aclNode->trees.aclSys_tree);
}

aclList* ipSysAccessListFindNext(const listName& name) {
    return nameTreeNext<aclList>(aclNode->trees.aclSys_tree, name);
}

aclEntry* ipSysAccessEntFind(const listName& name, const ipEntryBlock* block) {
    return static_cast<aclEntry*>(aclEntryFindEqual(ipSysAccessListFind(name), block));
}

aclList* ipSysAccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                               uint32_t ifindex, uint32_t* status) {
    listChange change = listChange::none;
    aclList* list = aclListObtain(ip4SystemFamily, name, kind, placeholder, status, &change);
    if (list == nullptr) return nullptr;
    if (change != listChange::none && list->placeholder == 0) aclTrigger(list);
    // Sent whatever has become of the call: the port may be new even when the list is not.
    send(ifindex, {MT_ACL_SYS_ADDLIST, list});
    return list;
}

uint32_t ipSysAddAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t log,
                             uint32_t ifindex) {
    aclList* list = ipSysAccessListFind(name);
    // Several protocol instances ask for the same trap: the second asking is no error.
    if (aclEntryFindEqual(list, block) != nullptr)
        return ipIsProtocolAddress(block->dst) ? ACL_OK : ACL_E_ENTRY_EXISTS;
    if (list == nullptr) return ACL_E_NOLIST;
    listEntry* entry = aclEntryMake(ip4SystemFamily, block, {log});
    if (entry == nullptr) return ACL_E_ENTRY_MEMORY;
    aclEntryLink(list, entry, placeFor(list, *block));
    aclTrigger(list);
    entry->id = ++list->lastEntryId;
    send(ifindex, {MT_ACL_SYS_ADDENT, list, entry});
    return ACL_OK;
}

uint32_t ipSysDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t sends,
                             uint32_t ifindex) {
    aclList* list = ipSysAccessListFind(name);
    listEntry* entry = aclEntryFindEqual(list, block);
    if (entry == nullptr) return ACL_E_NOENTRY;
    deleteEntry(list, entry, sends, ifindex);
    return ACL_OK;
}

uint32_t ipSysAccessListDelete(const listName& name, uint32_t ifindex) {
    aclList* list = ipSysAccessListFind(name);
    if (list == nullptr) return ACL_E_NOLIST;
    if (list->placeholder == 0) {
        send(ifindex, {MT_ACL_SYS_DEL, list});
        while (list->head != nullptr) deleteEntry(list, list->head, 0, ifindex);
    }
    aclListRetire(list);
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
