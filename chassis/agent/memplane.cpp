// Installed lists in memory.
#include <algorithm>
#include <memory>
#include <tuple>
#include <vector>

#include "chassis/agent/dataplane.h"

namespace {

struct memPlane;

// A list and its share of the plane's entries. The staged set and the one in force share it while
// it is the same in both.
struct memList {
    memPlane* plane;
    dpList list;
    memList(memPlane* p, dpList l);
    ~memList();
    memList(const memList&) = delete;
    memList& operator=(const memList&) = delete;
};

// Callers know a set by its address alone; from either the plane is found, and the other one.
struct memSet {
    memPlane* plane;
    std::map<dpPlace, std::shared_ptr<memList>> lists;
};

struct memPlane {
    size_t capacity;
    size_t used = 0;  // by all lists, see sizeOf
    memSet inForce{this, {}}, staged{this, {}};
    memPlane(size_t most) : capacity(most) {}
    memPlane(const memPlane&) = delete;
    memPlane& operator=(const memPlane&) = delete;
};

// A list without entries takes room, too.
size_t sizeOf(const dpList& list) {
    return list.entries.size() + 1;
}

memList::memList(memPlane* p, dpList l) : plane(p), list(std::move(l)) {
    plane->used += sizeOf(list);
}
memList::~memList() {
    plane->used -= sizeOf(list);
}

memSet& setOf(void* set) {
    return *static_cast<memSet*>(set);
}

std::shared_ptr<memList>* heldAt(void* set, const dpPlace& place) {
    auto it = setOf(set).lists.find(place);
    return it != setOf(set).lists.end() ? &it->second : nullptr;
}

// Counters apart: an old list that stays keeps what it has counted.
bool same(const dpList& a, const dpList& b) {
    auto front = [](const dpList& l) {
        return std::tie(l.name, l.ifindex, l.listKind, l.implicitPermit, l.portPipe,
                        l.onBehalfOfVlan, l.groupName, l.lastKey);
    };
    return front(a) == front(b) && std::ranges::equal(a.block.b, b.block.b) &&
           std::ranges::equal(a.entries, b.entries, [](const auto& x, const auto& y) {
               return x.second.key == y.second.key && x.second.content == y.second.content &&
                      x.second.rule == y.second.rule;
           });
}

void* stage(void* inForce) {
    memPlane* plane = setOf(inForce).plane;
    plane->staged.lists.clear();
    return &plane->staged;
}
// Swapped, not moved list by list: there is no moment at which half of it is in force.
void exchange(void* inForce, void* staged) {
    setOf(inForce).lists.swap(setOf(staged).lists);
    setOf(staged).lists.clear();
}
void merge(void* inForce, void* staged) {
    for (auto& [place, list] : setOf(staged).lists)
        setOf(inForce).lists.insert_or_assign(place, std::move(list));
    setOf(staged).lists.clear();
}
void discard(void* staged) {
    setOf(staged).lists.clear();
}

bool install(void* set, dpList& list) {
    memPlane* plane = setOf(set).plane;
    dpPlace place = list.place;
    // Compared with what is in force whichever set it is for, so that a replay of what has not
    // changed costs nothing but the comparison.
    std::shared_ptr<memList>* there = heldAt(&plane->inForce, place);
    if (there != nullptr && same((*there)->list, list)) {
        setOf(set).lists.insert_or_assign(std::move(place), *there);
        return true;
    }
    // What it replaces makes room, unless that stays in force.
    std::shared_ptr<memList>* old = heldAt(set, place);
    size_t freed = old != nullptr && old->use_count() == 1 ? sizeOf((*old)->list) : 0;
    if (sizeOf(list) > plane->capacity - (plane->used - freed)) return false;
    auto held = std::make_shared<memList>(plane, std::move(list));
    setOf(set).lists.insert_or_assign(std::move(place), std::move(held));
    return true;
}

// A list to change, the set's own, with room for `more` entries; or null.
dpList* writable(void* set, const dpPlace& place, size_t more) {
    memPlane* plane = setOf(set).plane;
    std::shared_ptr<memList>* held = heldAt(set, place);
    if (held == nullptr) return nullptr;
    // Lists are copied when they are first changed; a copy that finds no room changes nothing.
    size_t copied = held->use_count() > 1 ? sizeOf((*held)->list) : 0;
    if (copied + more > plane->capacity - plane->used) return nullptr;
    if (held->use_count() > 1) *held = std::make_shared<memList>(plane, (*held)->list);
    return &(*held)->list;
}

bool putEntry(void* set, const dpPlace& place, const dpEntry& entry) {
    std::shared_ptr<memList>* held = heldAt(set, place);
    size_t more = held == nullptr || (*held)->list.entries.contains(entry.key) ? 0 : 1;
    dpList* list = writable(set, place, more);
    if (list == nullptr) return false;
    dpListPut(list, entry);
    setOf(set).plane->used += more;
    return true;
}

bool removeEntry(void* set, const dpPlace& place, uint32_t key) {
    dpList* list = writable(set, place, 0);
    if (list == nullptr || !dpListErase(list, key)) return false;
    setOf(set).plane->used--;
    return true;
}

bool renumber(void* set, std::span<const dpPlace> places, std::span<const dpNumber> numbers) {
    std::vector<dpList*> lists;
    // What may fail comes first: a copy that is not renumbered after all changes nothing.
    for (const dpPlace& place : places) {
        lists.push_back(writable(set, place, 0));
        if (lists.back() == nullptr) return false;
    }
    for (dpList* list : lists) {
        // The entries' own nodes move: that needs no memory, and the counters come along.
        std::map<uint32_t, dpEntry> moved;
        for (const dpNumber& number : numbers) {
            auto node = list->entries.extract(list->entries.begin());
            node.key() = node.mapped().key = node.mapped().rule.seq = number.to;
            moved.insert(moved.end(), std::move(node));
        }
        list->entries.swap(moved);
        list->lastKey = list->entries.empty() ? 0 : list->entries.rbegin()->first;
    }
    return true;
}

bool remove(void* set, const dpPlace& place) {
    return setOf(set).lists.erase(place) != 0;
}

const dpList* find(void* set, const dpPlace& place) {
    std::shared_ptr<memList>* held = heldAt(set, place);
    return held != nullptr ? &(*held)->list : nullptr;
}

bool counters(void* inForce, const dpPlace& place, uint32_t key, uint64_t* packets) {
    const dpList* list = find(inForce, place);
    if (list == nullptr) return false;
    auto it = list->entries.find(key);
    if (it == list->entries.end()) return false;
    *packets = it->second.packets;
    return true;
}

void walk(void* set, const std::function<bool(const dpList&)>& fn) {
    for (const auto& [place, held] : setOf(set).lists)
        if (!fn(held->list)) return;
}

void enforceMacEgress(void*, bool) {
    // There are no packets that it could decide about.
}

// Of both sets: what they share counts once.
size_t capacity(void* inForce) {
    return setOf(inForce).plane->capacity;
}

}  // namespace

dataplane memplaneCreate(size_t capacityEntries) {
    auto* plane = new memPlane(capacityEntries);
    return {&plane->inForce, stage,    exchange, merge, discard, install,  putEntry,
            removeEntry,     renumber, remove,   find,  walk,    counters, enforceMacEgress,
            capacity};
}

void memplaneDestroy(dataplane* plane) {
    delete setOf(plane->inForce).plane;
    plane->inForce = nullptr;
}
