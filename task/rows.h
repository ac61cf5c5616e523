// Tables that are searched by a message type or a command code.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

// One code, or all from one to another.
struct codeRange {
    uint32_t first, last;
    constexpr codeRange(uint32_t one) : first(one), last(one) {}
    constexpr codeRange(uint32_t from, uint32_t to) : first(from), last(to) {}
};

// Rows stand in the order of their codes and no code has two.
template <class Row, size_t N>
constexpr bool rowsAreSorted(const Row (&table)[N]) {
    for (size_t i = 1; i < N; i++)
        if (table[i].codes.first <= table[i - 1].codes.last) return false;
    return true;
}

// The row of a code, or null.
template <class Row, size_t N>
const Row* rowOf(const Row (&table)[N], uint32_t code) {
    const Row* row =
        std::ranges::lower_bound(table, code, {}, [](const Row& r) { return r.codes.last; });
    return row != table + N && row->codes.first <= code ? row : nullptr;
}
