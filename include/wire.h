// Big-endian fields and the one way to look at received bytes.
//
// A message is a record of these fields and of byte arrays only: alignment 1, no padding, so a
// record lies on the bytes as they came from the wire. WIRE_SIZE and WIRE_AT pin every record
// that is declared from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

struct be16 {
    uint8_t b[2];
    constexpr operator uint16_t() const { return static_cast<uint16_t>(b[0] << 8 | b[1]); }
    constexpr be16& operator=(uint16_t v) {
        b[0] = static_cast<uint8_t>(v >> 8);
        b[1] = static_cast<uint8_t>(v);
        return *this;
    }
};

struct be32 {
    uint8_t b[4];
    constexpr operator uint32_t() const {
        return static_cast<uint32_t>(b[0]) << 24 | static_cast<uint32_t>(b[1]) << 16 |
               static_cast<uint32_t>(b[2]) << 8 | b[3];
    }
    constexpr be32& operator=(uint32_t v) {
        b[0] = static_cast<uint8_t>(v >> 24);
        b[1] = static_cast<uint8_t>(v >> 16);
        b[2] = static_cast<uint8_t>(v >> 8);
        b[3] = static_cast<uint8_t>(v);
        return *this;
    }
};

#define WIRE_AT(record, field, offset) \
    static_assert(offsetof(record, field) == (offset), #record "." #field " has moved")
#define WIRE_SIZE(record, size)                                                                   \
    static_assert(                                                                                \
        sizeof(record) == (size) && alignof(record) == 1 && std::is_trivially_copyable_v<record>, \
        #record " is not the size that its readers expect")

// The record at `offset` of the bytes, or null when it does not lie in them whole.
// The bytes stay the caller's and must outlive the result.
template <class Record>
[[nodiscard]] inline Record* wireView(std::span<uint8_t> bytes, size_t offset = 0) {
    static_assert(alignof(Record) == 1);
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Record)) return nullptr;
    return reinterpret_cast<Record*>(bytes.data() + offset);
}
template <class Record>
[[nodiscard]] inline const Record* wireView(std::span<const uint8_t> bytes, size_t offset = 0) {
    static_assert(alignof(Record) == 1);
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Record)) return nullptr;
    return reinterpret_cast<const Record*>(bytes.data() + offset);
}
