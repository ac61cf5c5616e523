// First match in an access list of any family: the index beside its chain and the walk without one.
// A family of the filter is a type with
//
//   Entry, Packet   what lists hold, what is asked about
//   Shape           the words of a rule, see match/matchIndex.h
//   matches(block, packet)      whether an entry matches: its meaning, whatever the index says
//   decides(block)              false: the entry matches no packet and stays out of the index
//   ask(block, rule)            the masks, values and exactness of an entry's words
//   words(packet, words)        a packet's words
#pragma once

#include <bit>

#include "common/hitCount.h"
#include "match/matchIndex.h"
#include "match/zekPolicy.h"

template <class Filter>
matchRule<typename Filter::Shape> filterRuleOf(const listEntry* entry) {
    const auto& block = static_cast<const typename Filter::Entry*>(entry)->block;
    matchRule<typename Filter::Shape> rule{{}, {}, const_cast<listEntry*>(entry), block.seq, true};
    Filter::ask(block, &rule);
    return rule;
}

template <class Filter>
bool filterIsAscending(const aclList* list) {
    const typename Filter::Entry* before = nullptr;
    for (const auto& entry : entriesOf<const typename Filter::Entry>(list->head)) {
        if (before != nullptr && before->block.seq >= entry.block.seq) return false;
        before = &entry;
    }
    return true;
}

template <class Filter>
bool filterInsert(aclList* list, const listEntry* entry) {
    return !Filter::decides(static_cast<const typename Filter::Entry*>(entry)->block) ||
           matchInsert(&list->filterIndex, filterRuleOf<Filter>(entry));
}

template <class Filter>
void filterIndexBuild(aclList* list) {
    if (!filterIsAscending<Filter>(list)) return;
    for (const listEntry* entry = list->head; entry != nullptr; entry = entry->next)
        if (!filterInsert<Filter>(list, entry)) return ipFilterIndexDrop(list);
}

template <class Filter>
void filterIndexAdd(aclList* list, const listEntry* entry) {
    if (list->filterIndex != nullptr) {
        if (!filterInsert<Filter>(list, entry)) ipFilterIndexDrop(list);
    } else if (list->count >= FILTER_INDEX_FROM &&
               std::has_single_bit(static_cast<uint32_t>(list->count))) {
        filterIndexBuild<Filter>(list);
    }
}

template <class Filter>
void filterIndexRemove(aclList* list, const listEntry* entry) {
    if (list->filterIndex != nullptr &&
        Filter::decides(static_cast<const typename Filter::Entry*>(entry)->block))
        matchRemove(&list->filterIndex, filterRuleOf<Filter>(entry));
}

template <class Filter>
void filterIndexRenumber(aclList* list) {
    if (list->filterIndex == nullptr) return;
    if (!filterIsAscending<Filter>(list)) return ipFilterIndexDrop(list);
    matchReorder<typename Filter::Shape>(list->filterIndex, [](const void* record) -> uint32_t {
        return static_cast<const typename Filter::Entry*>(static_cast<const listEntry*>(record))
            ->block.seq;
    });
}

template <class Filter>
typename Filter::Entry* filterFind(const aclList* list, const typename Filter::Packet& packet) {
    typedef typename Filter::Entry Entry;
    if (list == nullptr) return nullptr;
    if (list->filterIndex != nullptr) {
        uint64_t words[Filter::Shape::words];
        Filter::words(packet, words);
        matchFound best;
        matchSearch<typename Filter::Shape>(
            list->filterIndex, words,
            [&](const void* record) {
                return Filter::matches(
                    static_cast<const Entry*>(static_cast<const listEntry*>(record))->block,
                    packet);
            },
            &best);
        return static_cast<Entry*>(static_cast<listEntry*>(best.record));
    }
    for (Entry& entry : entriesOf<Entry>(list->head))
        if (Filter::matches(entry.block, packet)) return &entry;
    return nullptr;
}

template <class Filter>
ipVerdict filterCheck(const aclList* list, const typename Filter::Packet& packet,
                      const typename Filter::Entry** decided) {
    typename Filter::Entry* entry = filterFind<Filter>(list, packet);
    if (decided != nullptr) *decided = entry;
    if (entry == nullptr) return FILTER_DENY;
    // Read first: nothing behind the counting starts before it is done.
    ipVerdict verdict = entry->block.action == IP_DENY ? FILTER_DENY : FILTER_PERMIT;
    hitCountAdd(entry->matchCount);
    return verdict;
}
