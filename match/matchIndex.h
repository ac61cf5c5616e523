// First match among many rules without trying each: an index over masked words.
//
// A rule asks for some bits of a packet's words: (packet & mask) == value, in every word. What
// words cannot say (a range of ports) is left to the caller: such a rule is not `exact`, its words
// ask for what is necessary, and the search calls back to have it tested whole.
//
//   inner node, level 0: groups ─ one per mask ─▶ table: masked bits ─▶ node of level 1 ...
//   leaf, any level:     rules by order
//
// The levels are parts of the words (source, destination, the rest) that are looked at one after
// another. An inner node has a group for every mask that its rules have in the part of its level,
// and a group finds the node with the rules of one value. So a search costs a look-up per mask that
// is in use, however many rules there are. Few rules stay together in a leaf, which is tried in
// order; a leaf that grows above LEAF_RULES becomes an inner node. Below the last level are rules
// whose words are all the same: those leaves grow, in chunks of LEAF_CHUNK.
//
// A node has at most MATCH_GROUPS groups by the masks that its rules have. A mask beyond them goes
// to the group of a coarser one: its leading ones, in whole bytes. There are nine of those. A leaf
// below such a group has rules that differ in the part, and tries all of their words as ever; so a
// list in which every rule has a mask of its own costs a bounded look for the group, a bounded
// number of look-ups, and no more than a walk for what is left.
//
// The smallest order decides. Every group has a bound that no order below it is under, and groups
// stand in ascending bounds, so that a search ends early. A removal leaves the bounds as they are:
// a bound that is too low only costs time.
//
// A root is a matchNode*, null for no rules. A change that finds no memory returns false, and the
// index is then good for matchFree only. Readers may search at once; changes need them to be out.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <span>
#include <type_traits>

#include "match/matchTable.h"

constexpr uint32_t LEAF_RULES = 16;
constexpr uint32_t LEAF_CHUNK = 1024;  // a power of two
constexpr uint32_t MATCH_GROUPS = 1024;
constexpr uint32_t MATCH_ORDER_NONE = 0xFFFFFFFF;  // orders are below it

// What is looked at on a level. A shape has `words` and an array `levels` whose parts cover all
// bits that its rules use.
struct matchLevel {
    size_t word;
    uint64_t part;
};

template <class Shape>
struct matchRule {
    uint64_t value[Shape::words];  // no bit outside the mask
    uint64_t mask[Shape::words];
    void* record;    // the caller's
    uint32_t order;  // different for every rule
    bool exact;      // the words are all that it asks for
};

struct matchGroup {
    uint64_t mask;
    matchTable table;  // to matchNode
    uint32_t lowest;
};

struct alignas(8) matchNode {
    uint32_t count;  // of what follows: matchRules in a leaf, else matchGroups
    uint32_t capacity;
    bool leaf;
};

// The rules or groups behind a node.
template <class Item, class Node>
auto matchItems(Node* node) {
    typedef std::conditional_t<std::is_const_v<Node>, const Item, Item> item;
    return std::span<item>(reinterpret_cast<item*>(node + 1), node->count);
}

// Eight bytes of a message as a word: the first one on top.
inline uint64_t matchWord(const uint8_t* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
}

// --- any shape (matchIndex.cpp) --------------------------------------------------------------

matchNode* matchNodeMake(bool leaf, uint32_t capacity, size_t itemSize);
// Room for one more item: *at may become another block. False: no memory, nothing has changed.
bool matchNodeReserve(matchNode** at, size_t itemSize);
// The group for rules of a mask in an inner node, made when there is none: the mask's own or, when
// there are too many, the coarser one's. It is lowered to `order` and moved to its place. Null: no
// memory.
matchGroup* matchGroupObtain(matchNode** at, uint64_t mask, uint64_t part, uint32_t order);
matchGroup* matchGroupFind(matchNode* node, uint64_t mask);
// The mask of the coarser group.
uint64_t matchCoarse(uint64_t mask, uint64_t part);
void matchGroupErase(matchNode* node, matchGroup* group);
// Frees a node with everything below it; null: nothing.
void matchFree(matchNode* node);
void matchNodeFree(matchNode* node);  // alone

// Where a leaf that has grown to a chunk has the next one; in front of the node. Null: no chunk.
inline matchNode** matchMoreAt(matchNode* node) {
    const bool isChunk = node->leaf && node->capacity == LEAF_CHUNK;
    return isChunk ? reinterpret_cast<matchNode**>(node) - 1 : nullptr;
}
inline const matchNode* matchMore(const matchNode* node) {
    matchNode** more = matchMoreAt(const_cast<matchNode*>(node));
    return more != nullptr ? *more : nullptr;
}

// --- search ----------------------------------------------------------------------------------

struct matchFound {
    uint32_t order = MATCH_ORDER_NONE;
    void* record = nullptr;
};

template <class Shape, size_t Level>
inline bool matchWordsMatch(const matchRule<Shape>& rule, const uint64_t (&words)[Shape::words]) {
    // Rules that take more than a cache line are told apart by what their leaf's level would look
    // at: above it they are mostly the same.
    if constexpr (sizeof rule > 64 && Level < std::size(Shape::levels)) {
        constexpr size_t first = Shape::levels[Level].word;
        if ((words[first] & rule.mask[first]) != rule.value[first]) return false;
    }
    uint64_t wrong = 0;
    for (size_t i = 0; i < Shape::words; i++) wrong |= (words[i] & rule.mask[i]) ^ rule.value[i];
    return wrong == 0;
}

// Leaves in *best the first rule in order that matches, if it comes before what is there.
// verify(record): whether a rule whose words match does match.
template <class Shape, size_t Level = 0, class Verify>
inline void matchSearch(const matchNode* node, const uint64_t (&words)[Shape::words],
                        const Verify& verify, matchFound* best) {
    if (node->leaf) {
        for (; node != nullptr; node = matchMore(node))
            for (const auto& rule : matchItems<matchRule<Shape>>(node)) {
                if (rule.order >= best->order) return;
                if (!matchWordsMatch<Shape, Level>(rule, words)) continue;
                if (!rule.exact && !verify(rule.record)) continue;
                *best = {rule.order, rule.record};
                return;
            }
    } else if constexpr (Level < std::size(Shape::levels)) {
        uint64_t word = words[Shape::levels[Level].word];
        for (const matchGroup& group : matchItems<matchGroup>(node)) {
            if (group.lowest >= best->order) return;
            const void* below = matchTableFind(group.table, word & group.mask);
            if (below != nullptr)
                matchSearch<Shape, Level + 1>(static_cast<const matchNode*>(below), words, verify,
                                              best);
        }
    }
}

// --- changes ---------------------------------------------------------------------------------

// The first rule of a leaf whose order is not below this one.
template <class Shape>
size_t matchLeafPlace(matchNode* leaf, uint32_t order) {
    auto rules = matchItems<matchRule<Shape>>(leaf);
    return static_cast<size_t>(
        std::ranges::lower_bound(rules, order, {}, &matchRule<Shape>::order) - rules.begin());
}

// The chunk of a leaf in which an order belongs.
template <class Shape>
matchNode** matchChunkOf(matchNode** at, uint32_t order) {
    for (matchNode** more; (more = matchMoreAt(*at)) != nullptr && *more != nullptr; at = more)
        if (matchItems<matchRule<Shape>>(*more)[0].order > order) break;
    return at;
}

// Parts a full chunk; one that the order only continues gets an empty one behind it. The chunk in
// which the order belongs, or null: no memory.
template <class Shape>
matchNode** matchChunkSplit(matchNode** at, uint32_t order) {
    matchNode* behind = matchNodeMake(true, LEAF_CHUNK, sizeof(matchRule<Shape>));
    if (behind == nullptr) return nullptr;
    auto rules = matchItems<matchRule<Shape>>(*at);
    const uint32_t kept = rules.back().order < order ? LEAF_CHUNK : LEAF_CHUNK / 2;
    behind->count = LEAF_CHUNK - kept;
    std::ranges::copy(rules.subspan(kept), matchItems<matchRule<Shape>>(behind).begin());
    (*at)->count = kept;
    matchNode** more = matchMoreAt(*at);
    *matchMoreAt(behind) = *more;
    *more = behind;
    return kept == LEAF_CHUNK || rules[kept].order <= order ? more : at;
}

template <class Shape, size_t Level = 0>
[[nodiscard]] bool matchInsert(matchNode** at, const matchRule<Shape>& rule);

// Into an inner node.
template <class Shape, size_t Level>
bool matchInsertBelow(matchNode** at, const matchRule<Shape>& rule) {
    constexpr matchLevel level = Shape::levels[Level];
    matchGroup* group =
        matchGroupObtain(at, rule.mask[level.word] & level.part, level.part, rule.order);
    if (group == nullptr) return false;
    void** below = matchTableAt(&group->table, rule.value[level.word] & group->mask);
    if (below == nullptr) return false;
    auto* node = static_cast<matchNode*>(*below);
    bool done = matchInsert<Shape, Level + 1>(&node, rule);
    *below = node;
    return done;
}

template <class Shape, size_t Level>
bool matchInsert(matchNode** at, const matchRule<Shape>& rule) {
    if (*at == nullptr) *at = matchNodeMake(true, 1, sizeof rule);
    if (*at == nullptr) return false;
    if constexpr (Level < std::size(Shape::levels)) {
        if (!(*at)->leaf) return matchInsertBelow<Shape, Level>(at, rule);
        if ((*at)->count == LEAF_RULES) {
            matchNode* inner = matchNodeMake(false, 2, sizeof(matchGroup));
            bool done = inner != nullptr;
            for (const auto& old : matchItems<matchRule<Shape>>(*at))
                done = done && matchInsertBelow<Shape, Level>(&inner, old);
            if (!done) {
                matchFree(inner);
                return false;
            }
            matchFree(*at);
            *at = inner;
            return matchInsertBelow<Shape, Level>(at, rule);
        }
    }
    at = matchChunkOf<Shape>(at, rule.order);
    if ((*at)->count == LEAF_CHUNK && (at = matchChunkSplit<Shape>(at, rule.order)) == nullptr)
        return false;
    if (!matchNodeReserve(at, sizeof rule)) return false;
    size_t place = matchLeafPlace<Shape>(*at, rule.order);
    (*at)->count++;
    auto rules = matchItems<matchRule<Shape>>(*at);
    std::move_backward(rules.begin() + static_cast<ptrdiff_t>(place), rules.end() - 1, rules.end());
    rules[place] = rule;
    return true;
}

// Takes out the rule that was inserted with these words and this order, if it is there. *at is null
// when that was the last one.
template <class Shape, size_t Level = 0>
bool matchRemove(matchNode** at, const matchRule<Shape>& rule) {
    bool done = false;
    if ((*at)->leaf) at = matchChunkOf<Shape>(at, rule.order);
    matchNode* node = *at;
    if (node->leaf) {
        auto rules = matchItems<matchRule<Shape>>(node);
        auto place =
            rules.begin() + static_cast<ptrdiff_t>(matchLeafPlace<Shape>(node, rule.order));
        if (place == rules.end() || place->order != rule.order) return false;
        std::move(place + 1, rules.end(), place);
        node->count--;
        done = true;
    } else if constexpr (Level < std::size(Shape::levels)) {
        constexpr matchLevel level = Shape::levels[Level];
        const uint64_t own = rule.mask[level.word] & level.part;
        // Where it stands depends on how many groups there were when it came.
        for (uint64_t mask : {own, matchCoarse(own, level.part)}) {
            matchGroup* group = matchGroupFind(node, mask);
            const uint64_t key = rule.value[level.word] & mask;
            void* below = group != nullptr ? matchTableFind(group->table, key) : nullptr;
            if (below == nullptr) continue;
            auto* left = static_cast<matchNode*>(below);
            done = matchRemove<Shape, Level + 1>(&left, rule);
            if (left == nullptr) {
                matchTableErase(&group->table, key);
                if (group->table.used == 0) matchGroupErase(node, group);
            } else if (left != below) {
                *matchTableAt(&group->table, key) = left;  // it is there: nothing is allocated
            }
            if (done) break;
        }
    }
    if (node->count != 0) return done;
    matchNode** more = matchMoreAt(node);
    *at = more != nullptr ? *more : nullptr;
    matchNodeFree(node);
    return done;
}

// Gives every rule the order that orderOf(record) tells. Which of two rules comes first must be as
// it was. Returns the first order.
template <class Shape, class OrderOf>
uint32_t matchReorder(matchNode* node, const OrderOf& orderOf) {
    if (node->leaf) {
        for (matchNode* chunk = node; chunk != nullptr;
             chunk = const_cast<matchNode*>(matchMore(chunk)))
            for (auto& rule : matchItems<matchRule<Shape>>(chunk))
                rule.order = orderOf(rule.record);
        return matchItems<matchRule<Shape>>(node)[0].order;
    }
    auto groups = matchItems<matchGroup>(node);
    for (matchGroup& group : groups) {
        group.lowest = MATCH_ORDER_NONE;
        for (uint64_t i = 0; i < matchTableSize(group.table); i++)
            if (void* below = group.table.slots[i].item; below != nullptr)
                group.lowest = std::min(
                    group.lowest, matchReorder<Shape>(static_cast<matchNode*>(below), orderOf));
    }
    std::ranges::sort(groups, {}, &matchGroup::lowest);
    return groups[0].lowest;
}
