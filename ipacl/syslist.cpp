// System lists: what the manager itself installs on one port, such as the protocol traps. Kept in
// aclNode->trees.aclSys_tree by name, those of IPv6 beside those of IPv4; never in the
// configuration, and without a sequence-number tree. The content tree is there while there are
// entries. Every change goes to the port that the caller names. The caller holds the write lock.
#include <algorithm>

#include "common/debug.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"

namespace {

constexpr uint32_t BATCH_MAX = 20;

// The one port that the caller names.
aclTarget targetOf(uint32_t ifindex) {
    return {ifindex, SLOT_NONE, aclPortPipe(ifindex)};
}
void send(const aclTarget& target, const aclSend& what) {
    (void)iAclSendToAclAgent(target, what);
}

const aclAgentIds& idsOf(const aclList& list) {
    return list.family->agentIds[INTF_IN];
}

// --- entries by content --------------------------------------------------------------------------

// All of a block but its sequence number and counter options.
struct contentKey {
    uint8_t bytes[sizeof(ipEntryBlock)];
    uint32_t length;
    contentKey(const aclFamily& family, const void* block)
        : length(static_cast<uint32_t>(family.blockBytes)) {
        const size_t countersAt = &family == &ip4SystemFamily
                                      ? offsetof(ipEntryBlock, counterOptions)
                                      : offsetof(ip6EntryBlock, counterOptions);
        std::memcpy(bytes, block, length);
        std::memset(bytes + family.seqAt, 0, sizeof(be32));
        bytes[countersAt] = 0;
    }
};

aclDupNode* findNode(const aclList& list, const void* block) {
    const contentKey key(*list.family, block);
    return aclDupEntCheckFind(list.contentTree, key.bytes, key.length);
}
listEntry* findEqual(const aclList* list, const void* block) {
    if (list == nullptr || list->contentTree == nullptr) return nullptr;
    const aclDupNode* node = findNode(*list, block);
    return node != nullptr ? aclDupNodeRecord(node) : nullptr;
}
bool indexAdd(aclList* list, listEntry* entry) {
    if (list->contentTree == nullptr) list->contentTree = aclDupEntCheckTreeCreate(list->name);
    const contentKey key(*list->family, entryBlock(*entry));
    if (list->contentTree == nullptr) return false;
    if (aclDupEntCheckNodeInsert(list->contentTree, entry, key.bytes, key.length) == 0) return true;
    onDemandTreeDropEmpty(&list->contentTree);
    return false;
}

// --- operations ----------------------------------------------------------------------------------

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

void deleteEntry(aclList* list, listEntry* entry, uint32_t sends, const aclTarget& target) {
    if (sends != 0) send(target, {idsOf(*list).del, list, entry});
    aclDupEntCheckNodeRemove(list->contentTree, findNode(*list, entryBlock(*entry)));
    onDemandTreeDropEmpty(&list->contentTree);
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
    send(targetOf(ifindex), {idsOf(*list).list, list});
    return list;
}

uint32_t add(const aclFamily& family, const listName& name, const void* block, uint32_t log,
             const aclTarget& target, uint32_t again) {
    aclList* list = aclListFind(family, name);
    if (findEqual(list, block) != nullptr) return again;
    if (list == nullptr) return ACL_E_NOLIST;
    listEntry* entry = aclEntryMake(family, block, {log});
    if (entry == nullptr) return ACL_E_ENTRY_MEMORY;
    if (!indexAdd(list, entry)) {
        aclEntryFree(entry);
        return ACL_E_ENTRY_MEMORY;
    }
    aclEntryLink(list, entry, placeFor(list, block));
    aclTrigger(list);
    entry->id = ++list->lastEntryId;
    send(target, {idsOf(*list).add, list, entry});
    return ACL_OK;
}

uint32_t del(const aclFamily& family, const listName& name, const void* block, uint32_t sends,
             const aclTarget& target) {
    aclList* list = aclListFind(family, name);
    listEntry* entry = findEqual(list, block);
    if (entry == nullptr) return ACL_E_NOENTRY;
    deleteEntry(list, entry, sends, target);
    return ACL_OK;
}

uint32_t deleteList(const aclFamily& family, const listName& name, uint32_t ifindex) {
    aclList* list = aclListFind(family, name);
    if (list == nullptr) return ACL_E_NOLIST;
    if (list->placeholder == 0) {
        send(targetOf(ifindex), {idsOf(*list).drop, list});
        while (list->head != nullptr) deleteEntry(list, list->head, 0, {});
    }
    aclListRetire(list);
    return ACL_OK;
}

// The blocks as a chain of records that live for one send only: it needs no memory, so that no card
// misses what the others have got.
uint32_t sendBatch(const aclFamily& family, const listName& name, const void* blocks, uint32_t log,
                   const aclTarget& target, uint32_t count, uint32_t messageId) {
    if (count == 0 || count > BATCH_MAX) return ACL_E_SYSTEM;
    union record {
        aclEntry v4;
        acl6Entry v6;
    };
    alignas(record) uint8_t records[BATCH_MAX][sizeof(record)];
    aclList batch{};
    batch.name = name;
    batch.family = &family;
    if (const aclList* known = aclListFind(family, name)) batch.kind = known->kind;
    for (uint32_t i = 0; i < count; i++) {
        auto* entry = new (records[i]) listEntry{};
        entry->log = log;
        std::memcpy(entry + 1, static_cast<const uint8_t*>(blocks) + i * family.blockBytes,
                    family.blockBytes);
        aclEntryLink(&batch, entry, nullptr);
    }
    (void)iAclSendToAclAgent(target, {messageId, &batch, batch.head, count});
    return ACL_OK;
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
    return static_cast<aclEntry*>(findEqual(ipSysAccessListFind(name), block));
}

aclList* ipSysAccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                               uint32_t ifindex, uint32_t* status) {
    return create(ip4SystemFamily, name, kind, placeholder, ifindex, status);
}
uint32_t ipSysAddAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t log,
                             uint32_t ifindex) {
    // Several protocol instances ask for the same trap: the second asking is no error.
    const uint32_t again = ipIsProtocolAddress(block->dst) ? ACL_OK : ACL_E_ENTRY_EXISTS;
    return add(ip4SystemFamily, name, block, log, targetOf(ifindex), again);
}
uint32_t ipSysDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t sends,
                             uint32_t ifindex) {
    return del(ip4SystemFamily, name, block, sends, targetOf(ifindex));
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
                                const aclTarget& target) {
    return add(ip6SystemFamily, name, block, log, target, ACL_E_ENTRY_EXISTS);
}
uint32_t aclV6SysDelAccessEntry(const listName& name, const ip6EntryBlock* block, uint32_t sends,
                                const aclTarget& target) {
    return del(ip6SystemFamily, name, block, sends, target);
}
uint32_t aclV6SysAccessListDelete(const listName& name, uint32_t ifindex) {
    return deleteList(ip6SystemFamily, name, ifindex);
}

void ipSysSendHeader(const listName& name, uint32_t ifindex) {
    const aclList* list = ipSysAccessListFind(name);
    if (list == nullptr) return;
    aclList header{};
    header.name = name;
    header.family = list->family;
    header.kind = list->kind;
    send(targetOf(ifindex), {idsOf(header).list, &header});
}
void ipSysSendEntries(const listName& name, uint32_t ifindex,
                      bool (*wanted)(const ipEntryBlock& block)) {
    const aclList* list = ipSysAccessListFind(name);
    if (list == nullptr) return;
    auto takes = [wanted](const listEntry* entry) {
        return wanted(static_cast<const aclEntry*>(entry)->block);
    };
    auto isAlone = [](const listEntry* entry) {
        return ipIsProtocolAddress(static_cast<const aclEntry*>(entry)->block.dst);
    };
    // Straight from the chain: as many as stand side by side in it.
    for (const listEntry* first = list->head; first != nullptr;) {
        if (!takes(first)) {
            first = first->next;
            continue;
        }
        uint32_t count = 1;
        const listEntry* next = first->next;
        for (; next != nullptr && count < AGENT_CHUNK_ENTRIES && takes(next) && !isAlone(first) &&
               !isAlone(next);
             next = next->next)
            count++;
        send(targetOf(ifindex), {idsOf(*list).add, list, first, count});
        first = next;
    }
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
