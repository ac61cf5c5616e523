// The frame of numbered access lists: what every kind shares, driven by its row (family.h). Private
// to this folder.
//
// A list is absent, a placeholder (kind 0: something refers to it) or configured. Its entries are
// chained in ascending sequence order; in lists with duplicate trees every entry stands in the
// sequence tree, and in the content tree too unless its row keeps it out. Each change goes first
// into the trees, the chain and the index, then, in the order that each operation states, to the
// clients, the bindings and the configuration. The caller holds the write lock.
#pragma once

#include "common/clients.h"
#include "common/tree.h"
#include "ipacl/family.h"

// --- operations (list.cpp): statuses and effects as in zekipaccess.h -----------------------------

struct entryOptions {
    uint32_t log = 0, monitor = 0;
};

aclList* aclListFind(const aclFamily& family, const listName& name);
template <class Fn>
void aclForEachList(const aclFamily& family, Fn&& fn) {
    const zekRadix* tree = aclNode->trees.*family.tree;
    for (aclList* list = nameTreeFirst<aclList>(tree); list != nullptr;
         list = nameTreeNext<aclList>(tree, list->name))
        fn(*list);
}
aclList* aclListCreate(const aclFamily& family, const listName& name, uint32_t kind,
                       uint32_t placeholder, uint32_t* status);
uint32_t aclListDelete(const aclFamily& family, const listName& name, uint32_t kind);
// The number that is chosen is written back into the block.
uint32_t aclListAdd(const aclFamily& family, const listName& name, void* block,
                    const entryOptions& options);
uint32_t aclListDel(const aclFamily& family, const listName& name, const void* block, bool send,
                    bool cfgAndTrigger);

// Binding to interfaces and back (binding.cpp).
uint32_t aclListApply(const aclFamily& family, const listName& name, const aclBindRequest& request);
uint32_t aclListRemove(const aclFamily& family, const listName& name, uint32_t ifindex,
                       uint32_t direction);

// Shows and counters (show.cpp); results as those of the IPv4 lists.
uint32_t aclListShow(const aclFamily& family, const listName& name, void** buffer, uint32_t* size);
uint32_t aclListShowNext(const aclFamily& family, const listName& cursor, void** buffer,
                         uint32_t* size);
uint32_t aclListClear(const aclFamily& family, const listName& name);
uint32_t aclListClearAll(const aclFamily& family);

// --- lists in a name tree (store.cpp) ------------------------------------------------------------

// Makes an empty list and puts it into the tree. Null when there is no memory: nothing has changed
// then.
aclList* aclListMake(const aclFamily& family, const listName& name, uint32_t kind,
                     uint32_t placeholder);
// Takes a list without entries, clients and remarks out of its tree and frees it.
void aclListDrop(aclList* list);

enum class listChange { none, created, configured };
// Finds the list or makes it, and turns a placeholder that the configuration asks for into a
// configured list; *change says which. Statuses as ipAccessListCreate.
aclList* aclListObtain(const aclFamily& family, const listName& name, uint32_t kind,
                       uint32_t placeholder, uint32_t* status, listChange* change);
// The life of a list that exists only because it is used: clients, bindings.
extern const clientStore aclClientStore;  // its family word is that of the registrations
void aclListDropUnused(aclList* list);
// A list that is deleted stays as a placeholder while it is used.
void aclListRetire(aclList* list);

// --- entries (store.cpp) -------------------------------------------------------------------------

// A record outside every list, or null.
listEntry* aclEntryMake(const aclFamily& family, const void* block, const entryOptions& options);
void aclEntryFree(listEntry* entry);
// Links the entry in front of another one, or at the tail (next null), and counts it.
void aclEntryLink(aclList* list, listEntry* entry, listEntry* next);
// Unlinks without counting: the deletes count at a point of their own.
void aclEntryUnlink(aclList* list, listEntry* entry);
// The equal entry (everything but sequence number and counter options), or null. A walk.
listEntry* aclEntryFindEqual(const aclList* list, const void* block);

// The number that an add gives its entry: the block's own, or highest + 5; written into the block.
// False when it is above the largest usable one: the block is as it was.
bool aclEntrySeqChoose(const aclList& list, void* block, uint32_t* seq);
// The highest number after an unlink: numbers ascend, so it is the tail's.
void aclEntrySeqRecompute(aclList* list);

// --- remarks (remark.cpp) ------------------------------------------------------------------------

uint32_t aclRemarkAdd(aclList* list, uint32_t seq, std::string_view text);
uint32_t aclRemarkDel(aclList* list, uint32_t seq);
aclRemark* aclRemarkFind(const aclRemarks& remarks, uint32_t seq);
// A new record among the others, whose number none of them has; null: no memory.
aclRemark* aclRemarkMake(aclRemarks* remarks, uint32_t seq, std::string_view text);
// Forgets them all; their lines are the caller's.
void aclRemarksFree(aclRemarks* remarks);

// --- duplicate check (dupcheck.cpp) --------------------------------------------------------------

// Enters a new entry into both trees. ACL_E_ENTRY_EXISTS, ACL_E_SEQ_USED, ACL_E_SYSTEM: it is in
// neither.
uint32_t aclDupAdd(aclList* list, listEntry* entry);
// Finds the entry by the block's number, else by content, and takes it out of both trees.
// ACL_E_NOSEQ, ACL_E_NOENTRY.
uint32_t aclDupRemove(aclList* list, const void* block, listEntry** entry);
listEntry* aclDupFindSeq(const aclList* list, const be32& seq);
// The entry in the content tree with the block's key, or null.
listEntry* aclDupFindContent(const aclList* list, const void* block);
// The entry with the next larger number, or null.
listEntry* aclDupFindNextSeq(const aclList* list, const be32& seq);
