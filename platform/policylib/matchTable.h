// A hash table from 64-bit keys to pointers: open addressing, at most half full, no tombstones.
// Memory comes from the platform allocator.
#pragma once

#include <cstdint>

struct matchSlot {
    uint64_t key;
    void* item;  // null: free
};
// All zero: an empty table.
struct matchTable {
    matchSlot* slots;  // 2^bits of them, or null
    uint32_t used;
    uint32_t bits;
};

inline uint64_t matchTableSize(const matchTable& table) {
    return table.slots != nullptr ? uint64_t{1} << table.bits : 0;
}
// Where a key would like to stand: both of its halves move the upper bits of the product.
inline uint64_t matchTableHome(const matchTable& table, uint64_t key) {
    return (key ^ key >> 32) * 0x9E3779B97F4A7C15ull >> (64 - table.bits);
}
// The item, or null. The table is not empty.
inline void* matchTableFind(const matchTable& table, uint64_t key) {
    uint64_t last = (uint64_t{1} << table.bits) - 1;
    uint64_t i = matchTableHome(table, key);
    while (table.slots[i].item != nullptr && table.slots[i].key != key) i = (i + 1) & last;
    return table.slots[i].item;
}
// The place of the key's item, which is null when the key is new: the caller fills it before the
// next call. Good until the next change. Null when there is no memory: nothing has changed then.
[[nodiscard]] void** matchTableAt(matchTable* table, uint64_t key);
void matchTableErase(matchTable* table, uint64_t key);
void matchTableFree(matchTable* table);  // the slots only, and the table is empty
