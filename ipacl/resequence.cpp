// Renumbering a whole list: entries and remarks together, in their order.
//
// Whatever needs memory is made first: the sequence tree under the new numbers, the remarks with
// theirs, the bundle for the cards. Nothing behind that can fail, so a list has either all of its
// old numbers or all of its new ones. The lines are one change of the database: a process that dies
// in between comes back with the old numbers.
#include <algorithm>

#include "common/debug.h"
#include "common/description.h"
#include "common/record.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"

namespace {

constexpr uint32_t RESEQUENCE_PAUSE_US = 1000;

// --- the order -----------------------------------------------------------------------------------

// What gets one number: a remark, an entry, or an entry and the remark of its number.
struct numbered {
    const aclRemark* remark;
    listEntry* entry;
    uint64_t number;
};

// Calls fn for each step until it returns false. It may change the number of what it is given.
template <class Fn>
bool forSteps(const aclList& list, uint32_t start, uint32_t step, const Fn& fn) {
    const aclFamily& family = *list.family;
    const aclRemark* remark = list.remarks.head;
    listEntry* entry = list.head;
    for (uint64_t number = start; remark != nullptr || entry != nullptr; number += step) {
        numbered at{remark, entry, number};
        if (remark != nullptr && entry != nullptr) {
            const uint32_t ofRemark = remark->seq, ofEntry = entrySeq(family, *entry);
            if (ofRemark > ofEntry) at.remark = nullptr;
            if (ofRemark < ofEntry) at.entry = nullptr;
        }
        if (at.remark != nullptr) remark = remark->next;
        if (at.entry != nullptr) entry = entry->next;
        if (!fn(at)) return false;
    }
    return true;
}

// Whether every item finds a number of its own that an entry may have.
bool numbersFit(const aclList& list, uint32_t start, uint32_t step) {
    uint64_t items = 0;
    forSteps(list, 0, 0, [&items](const numbered&) { return ++items != 0; });
    if (items == 0) return true;
    return (step != 0 || items == 1) && start + (items - 1) * uint64_t{step} <= list.family->seqMax;
}

// --- bundles -------------------------------------------------------------------------------------

bool isBound(const aclList& list) {
    const listClient* c = list.clients;
    while (c != nullptr && c->kind != CLIENT_INTERFACE && c->kind != CLIENT_VLAN_GROUP) c = c->next;
    return c != nullptr;
}

void bundleStart(agentReseqMsg* bundle, const aclList& list) {
    static_assert(uint32_t{RESEQ_V4} == INTF_V4 && uint32_t{RESEQ_V6} == INTF_V6 &&
                  uint32_t{RESEQ_MAC} == INTF_MAC);
    *bundle = {};
    bundle->name = list.name;
    bundle->family = list.family->place;
    bundle->entryCount = static_cast<uint32_t>(list.count);
}

uint32_t bundleObtain(agentReseqMsg** cursor, const aclList& list) {
    if (*cursor != nullptr) return ACL_OK;
    *cursor = recordMake<agentReseqMsg>(POOL_MESSAGE);
    if (*cursor == nullptr) return ACL_E_MEMORY;
    bundleStart(*cursor, list);
    return ACL_OK;
}

uint32_t bundlePair(const aclList* list, bool last, const reseqPair& pair, agentReseqMsg** cursor) {
    if (const uint32_t status = bundleObtain(cursor, *list); status != ACL_OK) return status;
    agentReseqMsg& bundle = **cursor;
    const uint32_t count = bundle.pairCount;
    bundle.pairs[count] = pair;
    bundle.pairCount = count + 1;
    bundle.flag = 1u;
    if (!last && count + 1 < RESEQ_PAIRS) return ACL_OK;
    aclSendBundle(bundle);
    // Between two bundles the block is kept: the next pair must not find that there is no memory.
    if (!last) {
        bundleStart(&bundle, *list);
    } else {
        zekMC_M_memBlockVarFree(*cursor);
        *cursor = nullptr;
    }
    return ACL_OK;
}

// --- before and after ----------------------------------------------------------------------------

// What the list is to have in the place of what it has; then, what it had.
struct renumbered {
    cfgDescription description;
    zekRadix* seqTree = nullptr;
    aclRemarks remarks{};
    agentReseqMsg* bundle = nullptr;

    renumbered() = default;
    renumbered(const renumbered&) = delete;
    renumbered& operator=(const renumbered&) = delete;
    ~renumbered() {
        aclDupEntCheckTreeDelete(seqTree);
        aclRemarksFree(&remarks);
        if (bundle != nullptr) zekMC_M_memBlockVarFree(bundle);
    }
};

bool makeStep(renumbered* fresh, const numbered& at) {
    const auto number = static_cast<uint32_t>(at.number);
    if (at.remark != nullptr && aclRemarkMake(&fresh->remarks, number, at.remark->text) == nullptr)
        return false;
    if (at.entry == nullptr) return true;
    be32 key;
    key = number;
    if (aclDupEntCheckNodeInsert(fresh->seqTree, at.entry, &key, sizeof key) == 0) return true;
    aclDebug(DEBUG_ACL_DUP, "%s, %d Insert to AclInfoTree failed\r\n", __func__, __LINE__);
    return false;
}

uint32_t make(renumbered* fresh, const aclList& list, uint32_t start, uint32_t step) {
    fresh->description = cfgDescriptionOf(*list.family->block, list.family->textFamily, list.name);
    if (!cfgDescriptionRead(&fresh->description)) return ACL_E_STORE;
    if (isBound(list) && list.head != nullptr && bundleObtain(&fresh->bundle, list) != ACL_OK)
        return ACL_E_MEMORY;
    fresh->seqTree = aclDupEntCheckTreeCreate(list.name);
    const bool done =
        fresh->seqTree != nullptr &&
        forSteps(list, start, step, [fresh](const numbered& at) { return makeStep(fresh, at); });
    return done ? uint32_t{ACL_OK} : uint32_t{ACL_E_MEMORY};
}

void renumber(aclList* list, listEntry* entry, uint32_t number, agentReseqMsg** bundle) {
    const aclFamily& family = *list->family;
    be32& seq = const_cast<be32&>(entrySeq(family, *entry));
    reseqPair pair;
    pair.from = seq;
    pair.to = seq = number;
    family.writeEntry(*list, *entry, 0);
    if (*bundle != nullptr) (void)bundlePair(list, entry->next == nullptr, pair, bundle);
}

void take(aclList* list, uint32_t start, uint32_t step, renumbered* fresh) {
    const aclFamily& family = *list->family;
    family.writeHeader(*list, 1);
    family.writeHeader(*list, 0);
    cfgDescriptionWrite(fresh->description);
    const aclRemark* remark = fresh->remarks.head;
    forSteps(*list, start, step, [&](const numbered& at) {
        zekDelayMicrosecond(RESEQUENCE_PAUSE_US);
        if (at.remark != nullptr) {
            aclManageAclEntryRemark(*remark, *list, 0);
            remark = remark->next;
        }
        if (at.entry != nullptr)
            renumber(list, at.entry, static_cast<uint32_t>(at.number), &fresh->bundle);
        return true;
    });
    std::swap(list->seqTree, fresh->seqTree);
    std::swap(list->remarks, fresh->remarks);
    aclEntrySeqRecompute(list);
    if (family.indexRenumber != nullptr) family.indexRenumber(list);
}

uint32_t resequence(uint32_t place, const listName& name, uint32_t start, uint32_t step) {
    aclList* list = aclListFind(aclFamilyOf(place), name);
    if (list == nullptr || list->placeholder != 0 || list->kind == 0) return ACL_E_NOLIST;
    if (!numbersFit(*list, start, step)) return ACL_E_SEQ_RANGE;
    renumbered fresh;
    if (const uint32_t status = make(&fresh, *list, start, step); status != ACL_OK) return status;
    take(list, start, step, &fresh);
    if (list->head != nullptr) aclPropagateRenumbered(list);
    aclTrigger(list);
    return ACL_OK;
}

}  // namespace

uint32_t ipReseqTheAccessList(const listName& name, uint32_t start, uint32_t step) {
    return resequence(INTF_V4, name, start, step);
}
uint32_t ipReseqTheV6AccessList(const listName& name, uint32_t start, uint32_t step) {
    return resequence(INTF_V6, name, start, step);
}
uint32_t l2ReseqTheAccessList(const listName& name, uint32_t start, uint32_t step) {
    return resequence(INTF_MAC, name, start, step);
}

uint32_t aclV4BundleSeqNum(const aclList* list, uint32_t last, const reseqPair& pair,
                           agentReseqMsg** cursor) {
    return bundlePair(list, last != 0, pair, cursor);
}
uint32_t aclV6BundleSeqNum(const aclList* list, uint32_t last, const reseqPair& pair,
                           agentReseqMsg** cursor) {
    return bundlePair(list, last != 0, pair, cursor);
}
uint32_t l2AclBundleSeqNum(const aclList* list, uint32_t last, const reseqPair& pair,
                           agentReseqMsg** cursor) {
    return bundlePair(list, last != 0, pair, cursor);
}
