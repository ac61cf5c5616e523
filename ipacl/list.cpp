// The operations on numbered access lists: lists come and go, entries come and go.
#include "common/debug.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"

uint32_t ipDelAccessList = 0;

namespace {

// The entry in front of which a number belongs; null: the tail.
listEntry* successor(const aclList* list, const be32& seq) {
    return list->highestSeq <= seq ? nullptr : aclDupFindNextSeq(list, seq);
}

uint32_t deleteEntry(aclList* list, const void* block, bool send, bool cfgAndTrigger) {
    const aclFamily& family = *list->family;
    listEntry* entry = nullptr;
    uint32_t status = aclDupRemove(list, block, &entry);
    if (status != ACL_OK) return status;
    const uint32_t seq = entrySeq(family, *entry);

    if (cfgAndTrigger) family.writeEntry(*list, *entry, 1);
    list->count--;
    // A port that leaves a LAG deletes without `send`; LAG and VLAN bindings receive the deletion
    // all the same, which is meant.
    aclPropagate(list, {aclEvent::entryDeleted, entry, send});
    if (family.indexRemove != nullptr) family.indexRemove(list, entry);
    aclEntryUnlink(list, entry);
    if (seq == list->highestSeq) aclEntrySeqRecompute(list);
    (void)aclRemarkDel(list, seq);
    aclEntryFree(entry);

    if (list->count == 0) {
        list->highestSeq = 0;
        aclPropagateToSYSADM(list, aclEvent::listDeleted);
    }
    if (list->count < 0)
        aclSysErr(SYSERR_LIST, "Error: Trying to delete from empty access list " LIST_NAME_FMT "\n",
                  listNameArg(list->name));
    if (cfgAndTrigger) aclTrigger(list);
    if (ipDelAccessList == 0) aclPropagateToIPM(list);
    return ACL_OK;
}

}  // namespace

aclList* aclListCreate(const aclFamily& family, const listName& name, uint32_t kind,
                       uint32_t placeholder, uint32_t* status) {
    listChange change = listChange::none;
    aclList* list = aclListObtain(family, name, kind, placeholder, status, &change);
    if (change == listChange::none || list->placeholder != 0) return list;
    family.writeHeader(*list, 0);
    if (change == listChange::configured) aclPropagate(list, {aclEvent::listAdded});
    aclTrigger(list);
    return list;
}

uint32_t aclListDelete(const aclFamily& family, const listName& name, uint32_t kind) {
    aclList* list = aclListFind(family, name);
    if (list == nullptr || list->kind != kind) return ACL_E_NOLIST;
    if (list->placeholder == 0) {
        aclPropagate(list, {aclEvent::listDeleted});
        ipDelAccessList = 1;
        while (list->head != nullptr &&
               deleteEntry(list, entryBlock(*list->head), false, false) == ACL_OK)
            continue;
        ipDelAccessList = 0;
        family.writeHeader(*list, 1);
    }
    aclTrigger(list);
    aclDelAllRemarks(list);
    aclListRetire(list);
    return ACL_OK;
}

uint32_t aclListAdd(const aclFamily& family, const listName& name, void* block,
                    const entryOptions& options) {
    aclList* list = aclListFind(family, name);
    if (list == nullptr || (list->placeholder != 0 && list->kind == 0)) return ACL_E_NOLIST;
    uint32_t seq = 0;
    if (!aclEntrySeqChoose(*list, block, &seq)) return ACL_E_SEQ_RANGE;

    listEntry* entry = aclEntryMake(family, block, options);
    if (entry == nullptr) return ACL_E_ENTRY_MEMORY;
    uint32_t status = aclDupAdd(list, entry);
    if (status != ACL_OK) {
        aclEntryFree(entry);
        return status;
    }
    aclEntryLink(list, entry, successor(list, entrySeq(family, *entry)));
    if (seq >= list->highestSeq) list->highestSeq = seq;
    if (family.indexAdd != nullptr) family.indexAdd(list, entry);

    // Clients hear of the entry before it has its identifier and before any card does: meant.
    aclTrigger(list);
    entry->id = ++list->lastEntryId;
    aclPropagate(list, {aclEvent::entryAdded, entry});
    family.writeEntry(*list, *entry, 0);
    return ACL_OK;
}

uint32_t aclListDel(const aclFamily& family, const listName& name, const void* block, bool send,
                    bool cfgAndTrigger) {
    aclList* list = aclListFind(family, name);
    return list != nullptr ? deleteEntry(list, block, send, cfgAndTrigger) : uint32_t{ACL_E_NOLIST};
}
