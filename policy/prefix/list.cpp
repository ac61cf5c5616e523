// Prefix lists.
//
// Kept per family by name. A list is configured, or a placeholder (clients refer to it, or still do
// after its deletion), which has no entries and no configuration lines. Its entries are chained in
// ascending sequence order; each stands also in the order tree (by number and position), in the
// content tree (under what makes two entries one) and in the index of the evaluation, so that no
// operation but a clear, a resequencing and a whole deletion walks the chain. An entry is one
// block: the entry, its record, its content key. The caller holds the write lock.
#include "common/chain.h"
#include "common/debug.h"
#include "common/description.h"
#include "common/node.h"
#include "common/record.h"
#include "common/tree.h"
#include "include/status.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"
#include "policy/prefix/family.h"
#include "policy/prefix/order.h"

namespace {

constexpr uint32_t SEQ_STEP = 5;
constexpr uint32_t LAST_STEPPED_SEQ = 65529;  // behind it the automatic number is out of range
constexpr uint32_t RESEQUENCE_PAUSE_US = 1000;

int32_t signedOf(const be32& word) {
    return static_cast<int32_t>(uint32_t{word});
}

// --- content -------------------------------------------------------------------------------------

struct contentKey {
    uint8_t b[16 + 2 * 16];
    uint32_t bits;
};

// Two entries are one when address, mask, action, ge, le and the word that holds the length agree.
contentKey contentKeyOf(const prefixRecord& record, const prefixFamily& family) {
    constexpr size_t wordOfLen = offsetof(prefixRecord, len);
    contentKey key;
    be32 words[3];
    words[0] = record.action;
    words[1] = signedOf(record.ge) == -1 ? 0 : uint32_t{record.ge};
    words[2] = signedOf(record.le) == -1 ? 0 : uint32_t{record.le};
    std::memcpy(key.b, words, sizeof words);
    size_t rest = prefixRecordBytes(family) - wordOfLen;
    std::memcpy(key.b + sizeof words, reinterpret_cast<const uint8_t*>(&record) + wordOfLen, rest);
    key.bits = static_cast<uint32_t>(sizeof words + rest) * 8;
    return key;
}

prefixEntry* findContent(const prefixList* list, const contentKey& key) {
    return treeRecord<prefixEntry>(zekRadixGetExact(list->content, key.b, key.bits),
                                   offsetof(prefixEntry, content));
}

// --- records -------------------------------------------------------------------------------------

prefixList* listMake(const prefixFamily& family, const listName& name, uint32_t af) {
    auto* list = recordMake<prefixList>(POOL_PREFIX_LIST);
    if (list == nullptr) return nullptr;
    list->name = name;
    list->family = af;
    list->content = zekRadixCreate("prefixContentTree", 8 * sizeof(contentKey::b));
    if (list->content != nullptr && zekRadixInsert(aclNode->trees.*family.tree, &list->link,
                                                   list->name.text, LIST_NAME_KEY_BITS) == 0)
        return list;
    zekRadixDestroy(list->content);
    zekMC_M_memBlockVarFree(list);
    return nullptr;
}

// The list has no entries and no clients.
void listDrop(const prefixFamily& family, prefixList* list) {
    zekRadixRemove(aclNode->trees.*family.tree, &list->link);
    zekRadixDestroy(list->content);
    zekMC_M_memBlockVarFree(list);
}

prefixEntry* entryMake(const prefixFamily& family, const prefixRecord& given,
                       const contentKey& key) {
    uint32_t recordBytes = prefixRecordBytes(family);
    size_t bytes = sizeof(prefixEntry) + recordBytes + key.bits / 8;
    auto* entry = recordMake<prefixEntry>(POOL_PREFIX_ENTRY, bytes);
    if (entry == nullptr) return nullptr;
    auto* record = reinterpret_cast<uint8_t*>(entry + 1);
    std::memcpy(record, &given, recordBytes);
    std::memcpy(record + recordBytes, key.b, key.bits / 8);
    entry->record = reinterpret_cast<prefixRecord*>(record);
    if (signedOf(entry->record->ge) == -1) entry->record->ge = 0;
    if (signedOf(entry->record->le) == -1) entry->record->le = 0;
    return entry;
}

bool hasRange(const prefixRecord& record) {
    return record.ge != 0 || record.le != 0;
}

void link(prefixList* list, prefixEntry* entry) {
    uint32_t seq = entry->record->seq;
    chainLink(&list->head, &list->tail, entry, prefixOrderNext(list->order, seq));
    prefixOrderInsert(&list->order, entry);
    prefixIndexInsert(list, entry);
}

// Takes the entry out of everything and frees it.
void unlink(prefixList* list, prefixEntry* entry) {
    chainUnlink(&list->head, &list->tail, entry);
    prefixOrderRemove(&list->order, entry);
    prefixIndexRemove(list, entry);
    zekRadixRemove(list->content, &entry->content);
    zekMC_M_memBlockVarFree(entry);
}

void noteChange(const prefixFamily& family, const listName& name) {
    std::memcpy(aclNode->prefix.*family.lastChanged, name.text, sizeof name.text);
}

void deleteEntry(const prefixFamily& family, prefixList* list, prefixEntry* entry,
                 bool writeConfig) {
    uint32_t seq = entry->record->seq;
    if (writeConfig) prefix_ent_sent_to_cfg(entry, 1, list->family, list->name);
    noteChange(family, list->name);
    if (hasRange(*entry->record)) list->rangeEntries--;
    // The entry is still in the chain: the number of a head that goes stays the lowest. Meant.
    if (seq == list->lowestSeq) list->lowestSeq = list->head->record->seq;
    if (seq == list->highestSeq && entry->prev != nullptr)
        list->highestSeq = entry->prev->record->seq;
    list->count--;
    unlink(list, entry);
    if (list->count < 0)
        aclSysErr(SYSERR_LIST,
                  "Error: Number of entries in access list " LIST_NAME_FMT " is less than zero\n",
                  listNameArg(list->name));
    prefixTrigger(list, list->family);
}

bool isRefused(const prefixRecord& record) {
    int32_t ge = signedOf(record.ge), le = signedOf(record.le);
    return ge > 0 && le > 0 && ge > le;
}

uint32_t chooseSeq(const prefixList* list, const prefixRecord& record) {
    if (record.seq != 0) return record.seq;
    if (list->tail == nullptr) return SEQ_STEP;
    uint32_t last = list->tail->record->seq;
    return last > LAST_STEPPED_SEQ ? PREFIX_SEQ_MAX + 1 : last + SEQ_STEP;
}

}  // namespace

prefixList* ipPrefixListFindFirst(uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    return family != nullptr ? nameTreeFirst<prefixList>(aclNode->trees.*family->tree) : nullptr;
}

prefixList* ipPrefixListFindNext(const listName& name, uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    return family != nullptr ? nameTreeNext<prefixList>(aclNode->trees.*family->tree, name)
                             : nullptr;
}

prefixEntry* ipPrefixEntFindSeq(const listName& name, const prefixRecord& entry, uint32_t af) {
    const prefixList* list = ipPrefixListFind(name, af);
    return list != nullptr ? prefixOrderFind(list->order, entry.seq) : nullptr;
}

prefixEntry* ipPrefixEntFind(const listName& name, const prefixRecord& entry, uint32_t af) {
    const prefixList* list = ipPrefixListFind(name, af);
    return list != nullptr ? findContent(list, contentKeyOf(entry, *prefixFamilyOf(af))) : nullptr;
}

prefixList* ipPrefixListCreate(const listName& name, uint32_t placeholder, uint32_t* status,
                               uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    *status = ACL_E_SYSTEM;
    if (family == nullptr) return nullptr;
    *status = ACL_E_PREFIX_NOLIST;
    if (listNameIsEmpty(name)) return nullptr;  // it starts a walk over all lists
    *status = ACL_OK;
    prefixList* list = ipPrefixListFind(name, af);
    if (list != nullptr) {
        if (placeholder == 0 && list->placeholder != 0) {
            list->placeholder = 0;
            prefix_sent_to_cfg(list, 0, af);
        }
        return list;
    }
    list = listMake(*family, name, af);
    if (list == nullptr) {
        *status = ACL_E_PREFIX_LIST_MEMORY;
        return nullptr;
    }
    list->placeholder = placeholder != 0 ? 1 : 0;
    if (placeholder == 0) prefix_sent_to_cfg(list, 0, af);
    noteChange(*family, name);
    return list;
}

uint32_t ipPrefixListDelete(const listName& name, uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr) return ACL_E_SYSTEM;
    prefixList* list = ipPrefixListFind(name, af);
    if (list == nullptr) return ACL_E_PREFIX_NOLIST;
    if (list->placeholder == 0) {
        while (list->head != nullptr) deleteEntry(*family, list, list->head, false);
        prefix_sent_to_cfg(list, 1, af);
    }
    noteChange(*family, list->name);
    if (list->clients != nullptr)
        list->placeholder = 1;
    else
        listDrop(*family, list);
    return ACL_OK;
}

uint32_t ipAddPrefixEntry(const listName& name, const prefixRecord& given, uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr) return ACL_E_SYSTEM;
    prefixList* list = ipPrefixListFind(name, af);
    if (list == nullptr || list->placeholder != 0) return ACL_E_PREFIX_NOLIST;
    contentKey key = contentKeyOf(given, *family);
    if (findContent(list, key) != nullptr) return ACL_E_PREFIX_EXISTS;
    if (prefixOrderFind(list->order, given.seq) != nullptr) return ACL_E_PREFIX_SEQ_USED;
    if (isRefused(given)) return ACL_E_PREFIX_GE_LE;

    prefixEntry* entry = entryMake(*family, given, key);
    if (entry == nullptr) return ACL_E_PREFIX_ENTRY_MEMORY;
    uint32_t seq = chooseSeq(list, given);
    entry->record->seq = seq;
    uint32_t status = seq > PREFIX_SEQ_MAX ? ACL_E_SEQ_RANGE : ACL_OK;
    const uint8_t* keyBytes = prefixAddress(*entry->record) + 2 * family->addressBytes;
    // Whatever can fail comes before the first link.
    if (status == ACL_OK && zekRadixInsert(list->content, &entry->content, keyBytes, key.bits) != 0)
        status = ACL_E_PREFIX_ENTRY_MEMORY;
    if (status != ACL_OK) {
        zekMC_M_memBlockVarFree(entry);
        return status;
    }
    link(list, entry);
    list->count++;
    if (hasRange(*entry->record)) list->rangeEntries++;
    list->lowestSeq = list->count == 1 ? seq : std::min(list->lowestSeq, seq);
    list->highestSeq = list->count == 1 ? seq : std::max(list->highestSeq, seq);

    // Clients hear of the entry before it has its identifier: meant.
    prefixTrigger(list, af);
    entry->id = ++list->lastEntryId;
    noteChange(*family, list->name);
    prefix_ent_sent_to_cfg(entry, 0, af, list->name);
    return ACL_OK;
}

uint32_t ipDelPrefixEntry(const listName& name, const prefixRecord& given, uint32_t writeConfig,
                          uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr) return ACL_E_SYSTEM;
    prefixEntry* entry =
        given.seq != 0 ? ipPrefixEntFindSeq(name, given, af) : ipPrefixEntFind(name, given, af);
    if (entry == nullptr) return ACL_E_PREFIX_NOENTRY;
    if (given.seq != 0 && given.seq != entry->record->seq) return ACL_E_PREFIX_SEQ_DIFFERS;
    deleteEntry(*family, ipPrefixListFind(name, af), entry, writeConfig != 0);
    return ACL_OK;
}

uint32_t ipReseqPrefixList(const listName& name, uint32_t start, uint32_t step, uint32_t af) {
    if (prefixFamilyOf(af) == nullptr) return ACL_E_SYSTEM;
    prefixList* list = ipPrefixListFind(name, af);
    if (list == nullptr || list->placeholder != 0) return ACL_E_PREFIX_NOLIST;
    uint64_t steps = list->count > 0 ? static_cast<uint32_t>(list->count) - 1 : 0;
    if (start == 0 || step == 0 || start + steps * step > PREFIX_SEQ_MAX) return ACL_E_SEQ_RANGE;

    cfgDescription description =
        cfgDescriptionOf(CFG_PREFIX_LIST, prefixFamilyOf(af)->family, list->name);
    if (!cfgDescriptionRead(&description)) return ACL_E_STORE;
    prefix_sent_to_cfg(list, 1, af);
    prefix_sent_to_cfg(list, 0, af);
    cfgDescriptionWrite(description);
    uint32_t seq = start;
    for (prefixEntry* entry = list->head; entry != nullptr; entry = entry->next, seq += step) {
        zekDelayMicrosecond(RESEQUENCE_PAUSE_US);
        entry->record->seq = seq;
        prefix_ent_sent_to_cfg(entry, 0, af, list->name);
        list->highestSeq = seq;
        // The lowest number stays what it was: meant.
    }
    prefixIndexReorder(list);
    prefixTrigger(list, af);
    return ACL_OK;
}
