// Evaluation of prefix lists: an index over the words of a route's prefix, kept beside the chain.
//
// A route is three words: its length and the two halves of its address. An entry that permits one
// length only asks for it, and for its own first bits; one that permits several asks for the bits
// and has its range tested; one with a mask asks for what the mask covers.
#include <algorithm>
#include <bit>

#include "common/hitCount.h"
#include "match/matchIndex.h"
#include "match/zekPrefix.h"

namespace {

constexpr size_t LENGTH = 0, UPPER = 1, LOWER = 2;
constexpr uint64_t ALL = ~uint64_t{0};

struct prefixShape {
    static constexpr size_t words = 3;
    static constexpr matchLevel levels[] = {{LENGTH, ALL}, {UPPER, ALL}, {LOWER, ALL}};
};
typedef matchRule<prefixShape> prefixRule;

struct addressWords {
    uint64_t upper, lower;
};

addressWords wordsOf(uint32_t family, const uint8_t* b) {
    if (family == AF_IPV6) return {matchWord(b), matchWord(b + 8)};
    return {uint64_t{reinterpret_cast<const be32&>(*b)} << 32, 0};
}
addressWords maskOf(uint32_t length) {
    if (length >= 64) return {ALL, length == 64 ? 0 : ALL << (128 - std::min(length, 128u))};
    return {length == 0 ? 0 : ALL << (64 - length), 0};
}

uint32_t widthOf(uint32_t family) {
    return family == AF_IPV4 ? 32 : 128;
}

// The lengths of routes that an entry is about: none when low is above high.
struct lengthRange {
    uint32_t low, high;
};
lengthRange rangeOf(const prefixRecord& record, uint32_t width) {
    if (record.len == PREFIX_LEN_BITMASK) return {0, width};
    if (record.len > width) return {1, 0};
    auto ge = static_cast<int32_t>(uint32_t{record.ge});
    auto le = static_cast<int32_t>(uint32_t{record.le});
    if (ge <= 0 && le <= 0) return {record.len, record.len};
    return {ge > 0 ? static_cast<uint32_t>(ge) : record.len,
            le > 0 ? std::min(static_cast<uint32_t>(le), width) : width};
}

addressWords entryMask(const prefixRecord& record, uint32_t family) {
    return record.len == PREFIX_LEN_BITMASK
               ? wordsOf(family, prefixMask(record, family == AF_IPV4 ? 4 : 16))
               : maskOf(record.len);
}

bool lengthMatches(const prefixRecord& record, uint32_t length, uint32_t width) {
    lengthRange range = rangeOf(record, width);
    return range.low <= length && length <= range.high;
}

// False for an entry that matches nothing.
bool ruleOf(const prefixList& list, const prefixEntry& entry, prefixRule* rule) {
    const prefixRecord& record = *entry.record;
    uint32_t width = widthOf(list.family);
    lengthRange range = rangeOf(record, width);
    if (range.low > range.high) return false;
    addressWords mask = entryMask(record, list.family);
    addressWords address = wordsOf(list.family, prefixAddress(record));
    bool oneLength = range.low == range.high;
    *rule = {};
    rule->mask[LENGTH] = oneLength ? ALL : 0;
    rule->mask[UPPER] = mask.upper;
    rule->mask[LOWER] = mask.lower;
    rule->value[LENGTH] = oneLength ? range.low : 0;
    rule->value[UPPER] = address.upper & mask.upper;
    rule->value[LOWER] = address.lower & mask.lower;
    rule->record = const_cast<prefixEntry*>(&entry);
    rule->order = record.seq;
    rule->exact = oneLength || (range.low == 0 && range.high == width);
    return true;
}

const prefixEntry* walk(const prefixList& list, const addressWords& address, uint32_t length) {
    uint32_t width = widthOf(list.family);
    for (const prefixEntry* entry = list.head; entry != nullptr; entry = entry->next) {
        const prefixRecord& record = *entry->record;
        addressWords mask = entryMask(record, list.family);
        addressWords own = wordsOf(list.family, prefixAddress(record));
        if (((own.upper ^ address.upper) & mask.upper) == 0 &&
            ((own.lower ^ address.lower) & mask.lower) == 0 && lengthMatches(record, length, width))
            return entry;
    }
    return nullptr;
}

}  // namespace

ipPrefix ipPrefixMake(uint32_t family, const uint8_t* address, uint32_t length) {
    ipPrefix route{};
    route.family = family;
    uint32_t width = widthOf(family);
    std::memcpy(route.address, address, width / 8);
    ipRtLen2Mask(std::min(length, width), route.mask);
    return route;
}

uint32_t ipPrefixLength(const ipPrefix& route) {
    addressWords mask = wordsOf(route.family, route.mask);
    auto upper = static_cast<uint32_t>(std::countl_one(mask.upper));
    return upper < 64 ? upper : upper + static_cast<uint32_t>(std::countl_one(mask.lower));
}

void ipRtLen2Mask(uint32_t length, uint8_t mask[16]) {
    for (uint32_t i = 0; i < 16; i++) {
        uint32_t bits = length > 8 * i ? std::min(length - 8 * i, 8u) : 0;
        mask[i] = static_cast<uint8_t>(0xFF00u >> bits);
    }
}

const prefixEntry* prefixFilterFind(const prefixList* list, const ipPrefix& route) {
    if (list == nullptr || list->family != route.family) return nullptr;
    addressWords address = wordsOf(route.family, route.address);
    uint32_t length = ipPrefixLength(route);
    if (list->walks != 0) return walk(*list, address, length);
    if (list->index == nullptr) return nullptr;
    const uint64_t words[] = {length, address.upper, address.lower};
    matchFound found;
    matchSearch<prefixShape>(
        list->index, words,
        [=](const void* entry) {
            return lengthMatches(*static_cast<const prefixEntry*>(entry)->record, length,
                                 widthOf(route.family));
        },
        &found);
    return static_cast<const prefixEntry*>(found.record);
}

int prefixFilterCheck(const prefixList* list, const ipPrefix& route, const prefixEntry** decided) {
    const prefixEntry* entry = prefixFilterFind(list, route);
    if (decided != nullptr) *decided = entry;
    if (entry == nullptr) return 1;
    hitCountAdd(const_cast<prefixEntry*>(entry)->hits);
    return entry->record->action == PREFIX_DENY ? 1 : 0;
}

int prefixFilterCheckv4_v6(const prefixList* list, uint32_t family, const uint8_t* address,
                           const uint8_t* mask) {
    ipPrefix route{};
    route.family = family;
    std::memcpy(route.address, address, widthOf(family) / 8);
    std::memcpy(route.mask, mask, widthOf(family) / 8);
    return prefixFilterCheck(list, route);
}

void prefixIndexInsert(prefixList* list, prefixEntry* entry) {
    prefixRule rule;
    if (list->walks != 0 || !ruleOf(*list, *entry, &rule)) return;
    if (matchInsert<prefixShape>(&list->index, rule)) return;
    prefixIndexFree(list);
    list->walks = 1;
}

void prefixIndexRemove(prefixList* list, const prefixEntry* entry) {
    prefixRule rule;
    if (list->walks == 0 && ruleOf(*list, *entry, &rule))
        matchRemove<prefixShape>(&list->index, rule);
    // An empty list needs no walk: its index starts anew.
    if (list->order == nullptr) list->walks = 0;
}

void prefixIndexReorder(prefixList* list) {
    if (list->index == nullptr) return;
    matchReorder<prefixShape>(list->index, [](const void* entry) {
        return uint32_t{static_cast<const prefixEntry*>(entry)->record->seq};
    });
}

void prefixIndexFree(prefixList* list) {
    matchFree(list->index);
    list->index = nullptr;
}
