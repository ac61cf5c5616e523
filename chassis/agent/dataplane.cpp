// The entries of one list, and the index of those that are known by their content.
#include "chassis/agent/dataplane.h"

namespace {

// The number that an entry of a system list came with says nothing.
bool sameContent(const dpEntry& a, const dpEntry& b) {
    if (a.content != b.content) return false;
    agentRule rule = a.rule;
    rule.seq = b.rule.seq;
    return rule == b.rule;
}

}  // namespace

void dpListPut(dpList* list, const dpEntry& entry) {
    const bool indexed = agentListByContent(list->place.kind);
    // First what may fail. A row too many would be found by nobody, one too few would be missed.
    if (indexed) list->byContent.emplace(entry.content, entry.key);
    const size_t before = list->entries.size();
    auto at = list->entries.try_emplace(list->entries.end(), entry.key, entry);
    if (list->entries.size() == before) {
        if (indexed && at->second.content != entry.content)
            list->byContent.erase({at->second.content, entry.key});
        at->second = entry;
    }
    list->lastKey = std::max(list->lastKey, entry.key);
}

bool dpListErase(dpList* list, uint32_t key) {
    auto at = list->entries.find(key);
    if (at == list->entries.end()) return false;
    list->byContent.erase({at->second.content, key});
    list->entries.erase(at);
    return true;
}

void dpListClear(dpList* list) {
    list->entries.clear();
    list->byContent.clear();
}

const dpEntry* dpListFindContent(const dpList& list, const dpEntry& wanted) {
    auto at = list.byContent.lower_bound({wanted.content, 0});
    for (; at != list.byContent.end() && at->first == wanted.content; ++at) {
        auto entry = list.entries.find(at->second);
        if (entry != list.entries.end() && sameContent(entry->second, wanted))
            return &entry->second;
    }
    return nullptr;
}
