// A hash table from 64-bit keys to pointers: open addressing, at most half full, no tombstones.
// Memory comes from the platform allocator.
//
// Most look-ups find nothing. A byte per slot, its marks, tells that without a look at the slots:
// every key sets one of the eight bits at its home, so that a free bit means "not there", and the
// branch on it is nearly always taken.
#pragma once

#include <cstdint>

struct matchSlot {
    uint64_t key;
    void* item;  // null: free
};
// All zero: an empty table.
struct matchTable {
    matchSlot* slots;  // 2^bits of them, or null; their marks follow
    uint32_t used;
    uint32_t bits;
};

inline uint64_t matchTableSize(const matchTable& table) {
    return table.slots != nullptr ? uint64_t{1} << table.bits : 0;
}
inline uint8_t* matchTableMarks(const matchTable& table) {
    return reinterpret_cast<uint8_t*>(table.slots + (uint64_t{1} << table.bits));
}
// Both halves of a key move the upper bits: the first of them are its home, where it would like to
// stand, the next three its mark.
inline uint64_t matchTableHash(uint64_t key) {
    return (key ^ key >> 32) * 0x9E3779B97F4A7C15ull;
}
inline uint64_t matchTableHome(const matchTable& table, uint64_t hash) {
    return hash >> (64 - table.bits);
}
inline uint8_t matchTableMark(const matchTable& table, uint64_t hash) {
    return static_cast<uint8_t>(1 << (hash >> (61 - table.bits) & 7));
}
// The item, or null. The table is not empty.
inline void* matchTableFind(const matchTable& table, uint64_t key) {
    uint64_t hash = matchTableHash(key);
    uint64_t i = matchTableHome(table, hash);
    if ((matchTableMarks(table)[i] & matchTableMark(table, hash)) == 0) return nullptr;
    uint64_t last = (uint64_t{1} << table.bits) - 1;
    while (table.slots[i].item != nullptr && table.slots[i].key != key) i = (i + 1) & last;
    return table.slots[i].item;
}
// The place of the key's item, which is null when the key is new: the caller fills it before the
// next call. Good until the next change. Null when there is no memory: nothing has changed then.
[[nodiscard]] void** matchTableAt(matchTable* table, uint64_t key);
void matchTableErase(matchTable* table, uint64_t key);
void matchTableFree(matchTable* table);  // the slots only, and the table is empty
