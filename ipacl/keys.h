// How the key under which two entries of a list are one rule is built from their blocks.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

#include "ipacl/zekipaccess.h"

// `length` bytes of the entry block go to the key.
struct keyPart {
    uint8_t at, length, from;
};
constexpr uint8_t KEY_LOW = 3;      // offset of a word's low byte
constexpr uint8_t KEY_NONE = 0xFF;  // the block has no such field

// The front is common to all entries of a family. A block whose kind word is not extended ends
// there. The rest depends on whether the protocol carries ICMP fields.
struct keyTable {
    uint8_t kindAt, protocolAt, icmpProtocol;
    std::span<const keyPart> front, extended, icmp, other;
    uint8_t shortLength, length;
};

inline void keyCopy(std::span<const keyPart> parts, const uint8_t* block, uint8_t* key) {
    for (const keyPart& part : parts) std::memcpy(key + part.at, block + part.from, part.length);
}

// The action stands in the key's first byte: one denies, and every other value is the same.
inline uint32_t keyBuild(const keyTable& table, const void* of, uint8_t key[DUP_KEY_MAX]) {
    const auto* block = static_cast<const uint8_t*>(of);
    std::memset(key, 0, DUP_KEY_MAX);
    keyCopy(table.front, block, key);
    key[0] = key[0] == IP_DENY ? 1 : 0;
    if (table.kindAt != KEY_NONE) {
        be32 kind;
        std::memcpy(&kind, block + table.kindAt, sizeof kind);
        if (kind != IP_KIND_EXTENDED) return table.shortLength;
    }
    keyCopy(table.extended, block, key);
    const bool icmp = table.protocolAt != KEY_NONE && block[table.protocolAt] == table.icmpProtocol;
    keyCopy(icmp ? table.icmp : table.other, block, key);
    return table.length;
}

// Two blocks are the same but for some bytes, which stand in ascending order.
struct blockBytes {
    size_t at, count;
};
inline bool sameBut(const void* a, const void* b, size_t size,
                    std::span<const blockBytes> ignored) {
    const auto* x = static_cast<const uint8_t*>(a);
    const auto* y = static_cast<const uint8_t*>(b);
    size_t from = 0;
    for (const blockBytes& gap : ignored) {
        if (std::memcmp(x + from, y + from, gap.at - from) != 0) return false;
        from = gap.at + gap.count;
    }
    return std::memcmp(x + from, y + from, size - from) == 0;
}
