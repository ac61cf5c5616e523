// System lists: what the manager itself installs on one port, such as the protocol traps. Kept in
// aclNode->trees.aclSys_tree by name, those of IPv6 beside those of IPv4; never in the
// configuration, and without sequence-number or content trees. Every change goes to the port that
// the caller names. The caller holds the write lock.
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

const aclAgentIds& idsOf(const aclList& list) {
    return list.family->agentIds[INTF_IN];
}

// Standard entries that match any source come before those that do not; all others in the order of
// their adds.
listEntry* placeFor(const aclList* list, const void* given) {
    if (list->family != &ip4SystemFamily) return nullptr;
    const auto& block = *static_cast<const ipEntryBlock*>(given);
    if (block.kind != IP_KIND_STANDARD || block.srcMask != 0) return nullptr;
    for (aclEntry& next : entriesOf<aclEntry>(list->head))
        if (next.block.srcMask != 0) return &next;
    return nullptr;
}

void deleteEntry(aclList* list, listEntry* entry, uint32_t sends, uint32_t ifindex) {
    if (sends != 0) send(ifindex, {idsOf(*list).del, list, entry});
    aclEntryUnlink(list, entry);
    aclEntryFree(entry);
    list->count--;
    if (list->count < 0)
        aclSysErr(SYSERR_SYSLIST,
                  "Error: Trying to delete from empty System Access List " LIST_NAME_FMT "\n",
                  listNameArg(list->name));
    aclTrigger(list);
}

aclList* create(const aclFamily& family, const listName& name, uint32_t kind, uint32_t placeholder,
                uint32_t ifindex, uint32_t* status) {
    listChange change = listChange::none;
    aclList* list = aclListObtain(family, name, kind, placeholder, status, &change);
    if (list == nullptr) return nullptr;
    if (change != listChange::none && list->placeholder == 0) aclTrigger(list);
    // Sent whatever has become of the call: the port may be new even when the list is not.
    send(ifindex, {idsOf(*list).list, list});
    return list;
}

uint32_t add(const aclFamily& family, const listName& name, const void* block, uint32_t log,
             uint32_t ifindex, uint32_t again) {
    aclList* list = aclListFind(family, name);
    if (aclEntryFindEqual(list, block) != nullptr) return again;
    if (list == nullptr) return ACL_E_NOLIST;
    listEntry* entry = aclEntryMake(family, block, {log});
    if (entry == nullptr) return ACL_E_ENTRY_MEMORY;
    aclEntryLink(list, entry, placeFor(list, block));
    aclTrigger(list);
    entry->id = ++list->lastEntryId;
    send(ifindex, {idsOf(*list).add, list, entry});
    return ACL_OK;
}

uint32_t del(const aclFamily& family, const listName& name, const void* block, uint32_t sends,
             uint32_t ifindex) {
    aclList* list = aclListFind(family, name);
    listEntry* entry = aclEntryFindEqual(list, block);
    if (entry == nullptr) return ACL_E_NOENTRY;
    deleteEntry(list, entry, sends, ifindex);
    return ACL_OK;
}

uint32_t deleteList(const aclFamily& family, const listName& name, uint32_t ifindex) {
    aclList* list = aclListFind(family, name);
    if (list == nullptr) return ACL_E_NOLIST;
    if (list->placeholder == 0) {
        send(ifindex, {idsOf(*list).drop, list});
        while (list->head != nullptr) deleteEntry(list, list->head, 0, ifindex);
    }
    aclListRetire(list);
    return ACL_OK;
}

// The blocks as a chain of records that live for one send only.
uint32_t sendBatch(const aclFamily& family, const listName& name, const void* blocks, uint32_t log,
                   const aclTarget& target, uint32_t count, uint32_t messageId) {
    if (count == 0 || count > BATCH_MAX) return ACL_E_SYSTEM;
    aclList batch{};
    batch.name = name;
    batch.family = &family;
    if (const aclList* known = aclListFind(family, name)) batch.kind = known->kind;
    uint32_t status = ACL_OK;
    for (uint32_t i = 0; i < count && status == ACL_OK; i++) {
        const auto* block = static_cast<const uint8_t*>(blocks) + i * family.blockBytes;
        listEntry* entry = aclEntryMake(family, block, {log});
        if (entry != nullptr)
            aclEntryLink(&batch, entry, nullptr);
        else
            status = ACL_E_ENTRY_MEMORY;
    }
    if (status == ACL_OK) (void)iAclSendToAclAgent(target, {messageId, &batch, batch.head, count});
    while (listEntry* entry = batch.head) {
        aclEntryUnlink(&batch, entry);
        aclEntryFree(entry);
    }
    return status;
}
aclTarget targetOf(uint32_t ifindex) {
    return {ifindex, SLOT_NONE, aclPortPipe(ifindex)};
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
    return create(ip4SystemFamily, name, kind, placeholder, ifindex, status);
}
uint32_t ipSysAddAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t log,
                             uint32_t ifindex) {
    // Several protocol instances ask for the same trap: the second asking is no error.
    const uint32_t again = ipIsProtocolAddress(block->dst) ? ACL_OK : ACL_E_ENTRY_EXISTS;
    return add(ip4SystemFamily, name, block, log, ifindex, again);
}
uint32_t ipSysDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t sends,
                             uint32_t ifindex) {
    return del(ip4SystemFamily, name, block, sends, ifindex);
}
uint32_t ipSysAccessListDelete(const listName& name, uint32_t ifindex) {
    return deleteList(ip4SystemFamily, name, ifindex);
}

aclList* aclV6SysAccessListFind(const listName& name) {
    return aclListFind(ip6SystemFamily, name);
}
aclList* aclV6SysAccessListCreate(const listName& name, uint32_t placeholder, uint32_t ifindex,
                                  uint32_t* status) {
    return create(ip6SystemFamily, name, IP_KIND_EXTENDED, placeholder, ifindex, status);
}
uint32_t aclV6SysAddAccessEntry(const listName& name, const ip6EntryBlock* block, uint32_t log,
                                uint32_t ifindex) {
    return add(ip6SystemFamily, name, block, log, ifindex, ACL_E_ENTRY_EXISTS);
}
uint32_t aclV6SysDelAccessEntry(const listName& name, const ip6EntryBlock* block, uint32_t sends,
                                uint32_t ifindex) {
    return del(ip6SystemFamily, name, block, sends, ifindex);
}
uint32_t aclV6SysAccessListDelete(const listName& name, uint32_t ifindex) {
    return deleteList(ip6SystemFamily, name, ifindex);
}

uint32_t ipSysAddThirteenAccessEntry(const listName& name, const ipEntryBlock* blocks, uint32_t log,
                                     uint32_t ifindex, uint32_t count) {
    return sendBatch(ip4SystemFamily, name, blocks, log, targetOf(ifindex), count,
                     MT_ACL_SYS_ADDENT);
}
uint32_t ipSysDelThirteenAccessEntry(const listName& name, const ipEntryBlock* blocks, uint32_t log,
                                     uint32_t ifindex, uint32_t count) {
    return sendBatch(ip4SystemFamily, name, blocks, log, targetOf(ifindex), count, MT_ACL_SYS_DEL);
}
uint32_t aclV6SysAddThirteenAccessEntry(const listName& name, const ip6EntryBlock* blocks,
                                        uint32_t log, const aclTarget& target, uint32_t count) {
    return sendBatch(ip6SystemFamily, name, blocks, log, target, count, MT_ACL_V6_SYS_ADDENT);
}
uint32_t aclV6SysDelThirteenAccessEntry(const listName& name, const ip6EntryBlock* blocks,
                                        uint32_t log, const aclTarget& target, uint32_t count) {
    return sendBatch(ip6SystemFamily, name, blocks, log, target, count, MT_ACL_V6_SYS_DEL);
}
