// Text of addresses, masks and numbers, appended to a line without a formatter: the configuration
// and show writers make one line per entry and this is most of their cost.
#pragma once

#include <array>
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
// Which groups of an IPv6 address are left out: the first of the longest runs of zeros, by the mask
// of the groups that are zero. One zero alone is not.
struct zeroRun {
    uint8_t at, length;
};
inline constexpr auto zeroRuns = [] {
    std::array<zeroRun, 256> runs{};
    for (uint32_t mask = 0; mask < runs.size(); mask++) {
        zeroRun best = {8, 1};
        for (uint8_t i = 0; i < 8; i++) {
            uint8_t end = i;
            while (end < 8 && (mask >> end & 1) != 0) end++;
            if (end - i > best.length) best = {i, static_cast<uint8_t>(end - i)};
        }
        runs[mask] = best;
    }
    return runs;
}();
// An IPv6 address in its shortest form; one that carries an IPv4 address shows that one dotted.
inline void textAddress6(std::string& out, const uint8_t* bytes) {
    uint32_t groups[8], zeros = 0;
    for (uint32_t i = 0; i < 8; i++) {
        groups[i] = static_cast<uint32_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
        zeros |= static_cast<uint32_t>(groups[i] == 0) << i;
    }
    const zeroRun run = zeroRuns[zeros];
    const bool mapped = run.at == 0 && run.length == 5 && groups[5] == 0xFFFF;
    const bool carries4 = mapped || (run.at == 0 && run.length == 6);
    constexpr char digits[] = "0123456789abcdef";
    char text[48];
    char* at = text;
    for (uint32_t i = 0; i < (carries4 ? 6u : 8u); i++) {
        if (i == run.at) {
            *at++ = ':';
            i += run.length - 1u;
            if (i == 7) *at++ = ':';
            continue;
        }
        if (i != 0) *at++ = ':';
        // Up to four digits, without leading zeros.
        const uint32_t high = groups[i] >> 8, low = groups[i] & 255;
        if (high >> 4 != 0) *at++ = digits[high >> 4];
        if (high != 0) *at++ = digits[high & 15];
        if ((high | low >> 4) != 0) *at++ = digits[low >> 4];
        *at++ = digits[low & 15];
    }
    if (carries4) *at++ = ':';
    out.append(text, static_cast<size_t>(at - text));
    if (carries4) textDotted(out, groups[6] << 16 | groups[7]);
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
