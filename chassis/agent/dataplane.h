// What an agent programs: lists of decoded rules in places. The agent verifies and decodes messages
// and calls these operations; a data plane keeps the installed lists, however it makes them filter.
//
// A place holds at most one list. Interface lists: one per kind, direction and interface (or VLAN
// group). System, DoS and MAC-limit lists share their interfaces, so there the name is part of the
// place.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>

#include "chassis/agent/rule.h"
#include "include/agentState.h"

struct dpPlace {
    agentListKind kind = AGENT_LIST_IP4;
    uint32_t direction = 0;  // 1: egress
    uint32_t ifindex = 0;    // 0 for VLAN groups and DoS lists
    uint32_t group = 0;      // VLAN group 1-8, or 0
    std::string name;        // system, DoS and MAC-limit lists only
    auto operator<=>(const dpPlace&) const = default;
};

// The place of a list of this name, sent by this interface or VLAN group. The one active DoS list
// holds for the whole card, whatever interface it was sent by.
inline dpPlace dpPlaceMake(agentListKind kind, uint32_t direction, uint32_t ifindex, uint32_t group,
                           const listName& name) {
    dpPlace place{kind, direction, 0, group, {}};
    if (kind != AGENT_LIST_DOS && group == 0) place.ifindex = ifindex;
    if (kind == AGENT_LIST_SYSTEM || kind == AGENT_LIST_SYSTEM6 || kind == AGENT_LIST_DOS ||
        kind == AGENT_LIST_MAC_LIMIT)
        place.name = listNameView(name);
    return place;
}

// One entry. Its key is the sequence number; entries of system, IP-MAC and MAC-limit lists have
// none, they are known by their content and numbered in the order of their arrival.
struct dpEntry {
    uint32_t key = 0;
    agentRule rule;
    // Hash of the bytes that it came in, all but its number: two entries with the same one say the
    // same, down to what the rule leaves out.
    uint64_t content = 0;
    uint64_t packets = 0;  // the data plane's own; 0 when it is handed over

    uint64_t hash() const { return agentNumberedHash(content, rule.seq); }
};

// The new number of an entry.
struct dpNumber {
    uint32_t from, to;
    auto operator<=>(const dpNumber&) const = default;
};

// Whether the entries of a kind of list have no numbers: they are known by their content.
constexpr bool agentListByContent(agentListKind kind) {
    return kind == AGENT_LIST_SYSTEM || kind == AGENT_LIST_SYSTEM6 || kind == AGENT_LIST_IPMAC ||
           kind == AGENT_LIST_MAC_LIMIT;
}

struct dpList {
    dpPlace place;
    listName name;
    uint32_t ifindex;  // as in the header
    uint32_t listKind;
    uint32_t implicitPermit;
    uint8_t portPipe;
    bool onBehalfOfVlan;
    listName groupName;  // of the VLAN group; empty without one
    bindingBlock block;
    uint32_t lastKey = 0;  // the highest one; of system lists and their like the newest entry's
    // Change them by the functions below alone.
    std::map<uint32_t, dpEntry> entries;
    // Of entries that are known by their content: its hash and their keys. In order, so that no
    // choice of contents makes it slow.
    std::set<std::pair<uint64_t, uint32_t>> byContent;
};
// Adds an entry, or replaces the one with its key. An entry that does not fit into memory changes
// nothing.
void dpListPut(dpList* list, const dpEntry& entry);
bool dpListErase(dpList* list, uint32_t key);  // false: there is none
void dpListClear(dpList* list);
// The entry with this content, whatever its number is, or null.
const dpEntry* dpListFindContent(const dpList& list, const dpEntry& wanted);

// The operations. Those that change return false when the data plane cannot do it; nothing has
// changed then.
//
// A set is lists in places. `inForce` is the set that decides about packets: a data plane that
// outlives the agent's process begins with what it holds, and that stays in force until the first
// replay has ended. A staged set is built beside it and decides nothing before it is exchanged.
struct dataplane {
    void* inForce;
    // Begins an empty set, or null when there is no room for a second one. One at a time; it ends
    // with exchange, merge or discard.
    void* (*stage)(void* inForce);
    // All that is staged takes the place of all that is in force, in one step.
    void (*exchange)(void* inForce, void* staged);
    // Staged lists come into force one by one; lists in other places stay.
    void (*merge)(void* inForce, void* staged);
    void (*discard)(void* staged);

    // Installs a list whole, in the place of whatever is there. It takes the list when it succeeds.
    bool (*install)(void* set, dpList& list);
    // Adds an entry to an installed list, or replaces the one with its key.
    bool (*putEntry)(void* set, const dpPlace& place, const dpEntry& entry);
    // Removes one; false also when there is none.
    bool (*removeEntry)(void* set, const dpPlace& place, uint32_t key);
    // Gives all entries of installed lists new numbers, in all of the places or in none. `numbers`
    // has every entry of each list, ascending in `from`, and no `to` twice. Packets that an entry
    // has matched stay with it, and no packet meets a list without its entries.
    bool (*renumber)(void* set, std::span<const dpPlace> places, std::span<const dpNumber> numbers);
    bool (*remove)(void* set, const dpPlace& place);
    // The list in a place, or null. Good until the next change.
    const dpList* (*find)(void* set, const dpPlace& place);
    // Every list in order of their places, until fn returns false.
    void (*walk)(void* set, const std::function<bool(const dpList&)>& fn);
    // Packets that an entry has matched since it was installed; false when it is not there.
    bool (*counters)(void* inForce, const dpPlace& place, uint32_t key, uint64_t* packets);
    // Whether egress MAC lists, which are held all the same, decide about packets; at first not.
    void (*enforceMacEgress)(void* inForce, bool enforce);
    // The most entries that it can hold in all lists of both sets; a list counts as one more.
    size_t (*capacity)(void* inForce);
};

// The data plane that only remembers; it forwards no packets. A list that is staged as it is in
// force is kept once, so a replay costs the memory of what it changes.
constexpr size_t MEMPLANE_ENTRIES = 4'000'000;
dataplane memplaneCreate(size_t capacity = MEMPLANE_ENTRIES);
void memplaneDestroy(dataplane* plane);
