// Installed lists in memory.
#include <algorithm>

#include "chassis/agent/dataplane.h"

namespace {

typedef std::map<dpPlace, dpList> memState;

memState& lists(void* state) {
    return *static_cast<memState*>(state);
}

dpList* listAt(void* state, const dpPlace& place) {
    auto it = lists(state).find(place);
    return it != lists(state).end() ? &it->second : nullptr;
}

bool install(void* state, dpList&& list) {
    dpPlace place = list.place;
    lists(state).insert_or_assign(std::move(place), std::move(list));
    return true;
}

bool putEntry(void* state, const dpPlace& place, const dpEntry& entry) {
    dpList* list = listAt(state, place);
    if (list == nullptr) return false;
    list->entries.insert_or_assign(entry.key, entry);
    list->lastKey = std::max(list->lastKey, entry.key);
    return true;
}

bool removeEntry(void* state, const dpPlace& place, uint32_t key) {
    dpList* list = listAt(state, place);
    return list != nullptr && list->entries.erase(key) != 0;
}

bool remove(void* state, const dpPlace& place) {
    return lists(state).erase(place) != 0;
}

void clear(void* state) {
    lists(state).clear();
}

const dpList* find(void* state, const dpPlace& place) {
    return listAt(state, place);
}

bool counters(void* state, const dpPlace& place, uint32_t key, uint64_t* packets) {
    const dpList* list = listAt(state, place);
    if (list == nullptr) return false;
    auto it = list->entries.find(key);
    if (it == list->entries.end()) return false;
    *packets = it->second.packets;
    return true;
}

void walk(void* state, const std::function<bool(const dpList&)>& fn) {
    for (const auto& [place, list] : lists(state))
        if (!fn(list)) return;
}

}  // namespace

dataplane memplaneCreate() {
    return {new memState, install, putEntry, removeEntry, remove, clear, find, counters, walk};
}

void memplaneDestroy(dataplane* plane) {
    delete static_cast<memState*>(plane->state);
    plane->state = nullptr;
}
