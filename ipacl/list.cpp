// Ordinary IPv4 access lists.
//
// Kept in aclNode->trees.acl_tree by name. A list is absent, a placeholder (kind 0: something
// refers to it) or configured. Its entries are chained in ascending sequence order; every entry
// stands in the sequence tree, and in the content tree too unless it is an ARP or ether-type entry.
// Each change goes first into the trees, the chain and the filter's index, then, in the order that
// each operation states, to the clients, the bindings and the configuration. The caller holds the
// write lock.
#include "common/debug.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"
#include "match/zekPolicy.h"

uint32_t ipDelAccessList = 0;

namespace {

aclChange entryAdded(const aclEntry* entry) {
    return {entry, MT_ACL_ADDENT, MT_ACL_EGR_ADDENT, MT_ACL_ADDLIST, true};
}
// A port that leaves a LAG deletes without `send`; LAG and VLAN bindings receive the deletion all
// the same, which is meant.
aclChange entryDeleted(const aclEntry* entry, bool send) {
    return {entry, MT_ACL_DELENT, MT_ACL_EGR_DELENT, 0, send};
}

// The entry in front of which a number belongs; null: the tail.
aclEntry* successor(const aclList* list, const aclEntry* entry) {
    if (list->highestSeq <= entry->block.seq) return nullptr;
    const aclDupNode* next = aclDupEntCheckFindNext(list->seqTree, &entry->block.seq, sizeof(be32));
    return next != nullptr ? static_cast<aclEntry*>(aclDupNodeRecord(next)) : nullptr;
}

uint32_t deleteEntry(aclList* list, const ipEntryBlock* block, uint32_t send,
                     uint32_t cfgAndTrigger) {
    aclEntry* entry = nullptr;
    uint32_t status = ipv4AccessDupEntHandler(list, &entry, block, DUP_DELETE);
    if (status != ACL_OK) return status;
    uint32_t seq = entry->block.seq;

    if (cfgAndTrigger != 0) acl_ent_sent_to_cfg(entry, 1, list->name);
    list->count--;
    aclPropagate(list, entryDeleted(entry, send != 0));
    ipFilterIndexRemove(list, entry);
    aclEntryUnlink(list, entry);
    if (seq == list->highestSeq) aclEntrySeqRecompute(list);
    aclDelV4RemarkEntryFromList(list->name, seq, list);
    aclEntryFree(entry);

    if (list->count == 0) {
        list->highestSeq = 0;
        aclPropagateToSYSADM(list, MT_ACL_DELLIST);
    }
    if (list->count < 0)
        aclSysErr(SYSERR_LIST, "Error: Trying to delete from empty access list " LIST_NAME_FMT "\n",
                  listNameArg(list->name));
    if (cfgAndTrigger != 0) aclTrigger(list, 0);
    if (ipDelAccessList == 0) aclPropagateToIPM(list, MT_ACL_ADDLIST);
    return ACL_OK;
}

}  // namespace

aclList* ipAccessListFind(const listName& name) {
    return nameTreeFind<aclList>(aclNode->trees.acl_tree, name);
}

aclList* ipAccessListFindFirst() {
    return nameTreeFirst<aclList>(aclNode->trees.acl_tree);
}

aclList* ipAccessListFindNext(const listName& name) {
    return nameTreeNext<aclList>(aclNode->trees.acl_tree, name);
}

aclList* ipAccessListFindPrev(const listName& name) {
    return nameTreePrev<aclList>(aclNode->trees.acl_tree, name);
}

bool ipCheckForPrefixAccessList(const listName& name) {
    const aclList* list = ipAccessListFind(name);
    return list != nullptr && list->placeholder == 0 && list->kind != 0;
}

aclEntry* ipAccessEntFind(const listName& name, const ipEntryBlock* block) {
    return aclEntryFindEqual(ipAccessListFind(name), *block);
}

aclEntry* ipAccessEntCompareSeq(const listName& name, const ipEntryBlock* block) {
    const aclList* list = ipAccessListFind(name);
    if (list == nullptr) return nullptr;
    const aclDupNode* node = aclDupEntCheckFind(list->seqTree, &block->seq, sizeof(be32));
    return node != nullptr ? static_cast<aclEntry*>(aclDupNodeRecord(node)) : nullptr;
}

aclList* ipAccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                            uint32_t* status) {
    listChange change = listChange::none;
    aclList* list =
        aclListObtain(aclNode->trees.acl_tree, name, kind, placeholder, true, status, &change);
    if (change == listChange::none || list->placeholder != 0) return list;
    acl_sent_to_cfg(name, 0, list->kind, 0);
    if (change == listChange::configured) aclPropagate(list, aclListAdded);
    aclTrigger(list, 0);
    return list;
}

uint32_t ipAddAccessEntry(const listName& name, ipEntryBlock* block, uint32_t log,
                          uint32_t monitor) {
    aclList* list = ipAccessListFind(name);
    if (list == nullptr || (list->placeholder != 0 && list->kind == 0)) return ACL_E_NOLIST;
    uint32_t seq = 0;
    if (!aclEntrySeqChoose(*list, *block, &seq)) return ACL_E_SEQ_RANGE;
    block->seq = seq;

    aclEntry* entry = aclEntryMake(*block, log, monitor);
    if (entry == nullptr) return ACL_E_ENTRY_MEMORY;
    uint32_t status = ipv4AccessDupEntHandler(list, &entry, block, DUP_ADD);
    if (status != ACL_OK) {
        aclEntryFree(entry);
        return status;
    }
    if (seq >= list->highestSeq) list->highestSeq = seq;
    aclEntryLink(list, entry, successor(list, entry));
    ipFilterIndexAdd(list, entry);

    // Clients hear of the entry before it has its identifier and before any card does: meant.
    aclTrigger(list, 0);
    entry->id = ++list->lastEntryId;
    aclPropagate(list, entryAdded(entry));
    acl_ent_sent_to_cfg(entry, 0, list->name);
    return ACL_OK;
}

uint32_t ipDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t send,
                          uint32_t cfgAndTrigger) {
    aclList* list = ipAccessListFind(name);
    if (list == nullptr) return ACL_E_NOLIST;
    return deleteEntry(list, block, send, cfgAndTrigger);
}

uint32_t ipAccessListDelete(const listName& name, uint32_t kind) {
    aclList* list = ipAccessListFind(name);
    if (list == nullptr || list->kind != kind) return ACL_E_NOLIST;
    if (list->placeholder == 0) {
        aclPropagate(list, aclListDeleted);
        ipDelAccessList = 1;
        while (list->head != nullptr && deleteEntry(list, &list->head->block, 0, 0) == ACL_OK)
            continue;
        ipDelAccessList = 0;
        acl_sent_to_cfg(list->name, 1, kind, 0);
    }
    aclTrigger(list, 0);
    aclDelAllRemarks(list);
    if (list->bindings != nullptr) {
        list->placeholder = 1;
        list->kind = 0;
    } else {
        aclListDrop(aclNode->trees.acl_tree, list);
    }
    return ACL_OK;
}

void ipInvertAccessEntryMask() {
    for (aclList* list = ipAccessListFindFirst(); list != nullptr;
         list = ipAccessListFindNext(list->name)) {
        for (aclEntry* entry = list->head; entry != nullptr; entry = entry->next) {
            acl_ent_sent_to_cfg(entry, 1, list->name);
            acl_ent_sent_to_cfg(entry, 0, list->name);
        }
        // The removal of an entry's line takes a remark of the same number with it.
        for (aclRemark* remark = list->remarks; remark != nullptr; remark = remark->next)
            aclManageAclEntryRemark(*remark, *list, 0);
    }
    // A trace list's lines show masks as well: left as they are they would lose their addresses.
    for (aclList* list = ipDosListFindFirst(); list != nullptr;
         list = ipDosListFindNext(list->name)) {
        for (aclEntry* entry = list->head; entry != nullptr; entry = entry->next) {
            dos_ent_sent_to_cfg(entry, 1, list->name);
            dos_ent_sent_to_cfg(entry, 0, list->name);
        }
    }
}
