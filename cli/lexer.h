// Words of a command line and the values that stand in them. Nothing here allocates: a word is a
// view into the line, so its column is its distance from the line's begin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

constexpr bool lexIsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// The next word at or behind *at, which moves behind the word; empty at the end of the line.
std::string_view lexWord(std::string_view line, size_t* at);
// The line without blanks at its end.
std::string_view lexTrimEnd(std::string_view line);

enum class lexMatch : uint8_t { none, prefix, whole };
// How what was typed matches a keyword; letters match in either case.
lexMatch lexCompare(std::string_view typed, std::string_view keyword);

// Each reads a whole word or returns false and leaves the result alone.
bool lexNumber(std::string_view word, uint64_t* value);  // decimal, at most 12 digits
// "10" or "10-20", from 1 to 4094, ascending.
bool lexVlanRange(std::string_view word, uint32_t* low, uint32_t* high);
bool lexHex(std::string_view word, uint32_t* value);  // at most 8 digits, no 0x
bool lexAddress(std::string_view word, uint32_t* address);
bool lexPrefix(std::string_view word, uint32_t* address, uint32_t* length);  // A.B.C.D/0-32
bool lexMac(std::string_view word, uint8_t mac[6]);                          // xx:xx:xx:xx:xx:xx
bool lexAddress6(std::string_view word, uint8_t address[16]);
bool lexPrefix6(std::string_view word, uint8_t address[16], uint32_t* length);  // X:X::X/0-128
// A 32-bit number in decimal, or below zero as its complement.
bool lexSigned(std::string_view word, uint32_t* value);
// N:N; withSign: either may be below zero.
bool lexPair(std::string_view word, bool withSign, uint32_t* high, uint32_t* low);
bool lexAddressPair(std::string_view word, uint32_t* high, uint32_t* low);  // A.B.C.D:N
bool lexAs(std::string_view word, uint32_t* as);                            // N or H.L
