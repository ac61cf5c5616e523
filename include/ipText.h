// Text of addresses, masks and numbers, appended to a line without a formatter: the configuration
// and show writers make one line per entry and this is most of their cost.
#pragma once

#include <arpa/inet.h>

#include <bit>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

inline void textNumber(std::string& out, uint32_t v, int base = 10) {
    char buf[16];
    auto end = std::to_chars(buf, buf + sizeof buf, v, base).ptr;
    out.append(buf, static_cast<size_t>(end - buf));
}
inline void textSigned(std::string& out, int32_t v) {
    char buf[16];
    auto end = std::to_chars(buf, buf + sizeof buf, v).ptr;
    out.append(buf, static_cast<size_t>(end - buf));
}
// A word with its blanks, and a number that shows as "%d" does.
inline void textWordSigned(std::string& out, std::string_view word, uint32_t v) {
    out += word;
    textSigned(out, static_cast<int32_t>(v));
}
// "a.b.c.d", most significant byte first.
inline void textDotted(std::string& out, uint32_t address) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        textNumber(out, (address >> shift) & 255);
        if (shift != 0) out.push_back('.');
    }
}
// An IPv6 address in its shortest form; one that carries an IPv4 address shows that one dotted.
inline void textAddress6(std::string& out, const uint8_t* bytes) {
    char text[INET6_ADDRSTRLEN];
    out += inet_ntop(AF_INET6, bytes, text, sizeof text);
}
// An address of either family, as messages carry it: of 4 bytes or of 16.
inline void textAddress(std::string& out, bool ipv4, const uint8_t* bytes) {
    if (!ipv4) return textAddress6(out, bytes);
    uint32_t address = 0;
    for (int i = 0; i < 4; i++) address = address << 8 | bytes[i];
    textDotted(out, address);
}
// The number of leading one bits, whatever follows them.
constexpr uint32_t maskPrefixLength(uint32_t mask) {
    return static_cast<uint32_t>(std::countl_one(mask));
}
constexpr bool maskIsContiguous(uint32_t mask) {
    return (~mask & (~mask + 1)) == 0;
}
constexpr uint32_t maskFromPrefix(uint32_t length) {
    return length == 0 ? 0 : 0xFFFFFFFFu << (32 - length);
}
