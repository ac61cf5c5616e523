// Open addressing with a byte of marks per home: a search that finds no mark has missed without
// touching a slot.
#include "match/matchTable.h"

#include <cstring>

#include "platform/api/zekMem.h"

namespace {

// The key's slot, or the free one where it belongs.
uint64_t find(const matchTable& table, uint64_t key) {
    uint64_t last = matchTableSize(table) - 1;
    uint64_t i = matchTableHome(table, matchTableHash(key));
    while (table.slots[i].item != nullptr && table.slots[i].key != key) i = (i + 1) & last;
    return i;
}

matchSlot* take(matchTable* table, uint64_t key) {
    uint64_t hash = matchTableHash(key);
    matchTableMarks(*table)[matchTableHome(*table, hash)] |= matchTableMark(*table, hash);
    matchSlot* slot = &table->slots[find(*table, key)];
    slot->key = key;
    return slot;
}

bool grow(matchTable* table) {
    // The old slots stay until the new ones are filled: without memory nothing has changed.
    matchTable larger = {nullptr, table->used, table->bits + 1};
    size_t bytes = (sizeof(matchSlot) + 1) << larger.bits;
    larger.slots = static_cast<matchSlot*>(zekMC_MM_malloc(bytes));
    if (larger.slots == nullptr) return false;
    std::memset(larger.slots, 0, bytes);
    for (uint64_t i = 0; i < matchTableSize(*table); i++)
        if (table->slots[i].item != nullptr)
            take(&larger, table->slots[i].key)->item = table->slots[i].item;
    zekMC_MM_free(table->slots);
    *table = larger;
    return true;
}

}  // namespace

void** matchTableAt(matchTable* table, uint64_t key) {
    if (table->slots != nullptr) {
        matchSlot& slot = table->slots[find(*table, key)];
        if (slot.item != nullptr) return &slot.item;
    }
    // At most half full, so that a search for what is not there ends soon.
    if ((table->used + 1) * 2 > matchTableSize(*table) && !grow(table)) return nullptr;
    table->used++;
    return &take(table, key)->item;
}

void matchTableErase(matchTable* table, uint64_t key) {
    uint64_t last = matchTableSize(*table) - 1;
    uint64_t gone = matchTableHome(*table, matchTableHash(key));
    uint64_t hole = find(*table, key);
    uint8_t marks = 0;
    // The home's marks are written anew from the keys that stay: others may share the bit.
    auto stays = [&](uint64_t i) {
        uint64_t hash = matchTableHash(table->slots[i].key);
        if (matchTableHome(*table, hash) == gone) marks |= matchTableMark(*table, hash);
    };
    for (uint64_t i = gone; i != hole; i = (i + 1) & last) stays(i);
    // Whatever follows without a gap moves up, unless it would come to stand before its home.
    for (uint64_t i = (hole + 1) & last; table->slots[i].item != nullptr; i = (i + 1) & last) {
        stays(i);
        uint64_t home = matchTableHome(*table, matchTableHash(table->slots[i].key));
        if (((i - home) & last) < ((i - hole) & last)) continue;
        table->slots[hole] = table->slots[i];
        hole = i;
    }
    table->slots[hole].item = nullptr;
    matchTableMarks(*table)[gone] = marks;
    table->used--;
}

void matchTableFree(matchTable* table) {
    zekMC_MM_free(table->slots);
    *table = {};
}
