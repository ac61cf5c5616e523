// Reading words: by hand and without allocating, because a load reads hundreds of thousands of
// lines.
#include "cli/lexer.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

// Not the C library's, which asks the locale for every letter.
constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

// The value of a hexadecimal digit, or 16.
constexpr uint32_t hexDigit(char c) {
    if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
    char l = lower(c);
    if (l >= 'a' && l <= 'f') return static_cast<uint32_t>(l - 'a' + 10);
    return 16;
}

// One octet and the dot behind it. Leading zeros are refused: some read them as octal.
bool takeOctet(const char*& p, const char* end, uint32_t* octet) {
    const char* start = p;
    uint32_t v = 0;
    // Four digits are read so that the fourth makes it too large instead of starting the next part.
    while (p < end && *p >= '0' && *p <= '9' && p - start < 4)
        v = v * 10 + static_cast<uint32_t>(*p++ - '0');
    if (p == start || v > 255 || (*start == '0' && p - start > 1)) return false;
    *octet = v;
    return true;
}

// The address at p, which moves behind it.
bool takeAddress(const char*& p, const char* end, uint32_t* address) {
    uint32_t v = 0;
    for (int i = 0; i < 4; i++) {
        uint32_t octet;
        if (i != 0 && (p == end || *p++ != '.')) return false;
        if (!takeOctet(p, end, &octet)) return false;
        v = v << 8 | octet;
    }
    *address = v;
    return true;
}

}  // namespace

std::string_view lexWord(std::string_view line, size_t* at) {
    size_t begin = *at;
    while (begin < line.size() && lexIsBlank(line[begin])) begin++;
    size_t end = begin;
    while (end < line.size() && !lexIsBlank(line[end])) end++;
    *at = end;
    return line.substr(begin, end - begin);
}

std::string_view lexTrimEnd(std::string_view line) {
    while (!line.empty() && lexIsBlank(line.back())) line.remove_suffix(1);
    return line;
}

lexMatch lexCompare(std::string_view typed, std::string_view keyword) {
    if (typed.size() > keyword.size()) return lexMatch::none;
    for (size_t i = 0; i < typed.size(); i++)
        if (typed[i] != keyword[i] && lower(typed[i]) != lower(keyword[i])) return lexMatch::none;
    return typed.size() == keyword.size() ? lexMatch::whole : lexMatch::prefix;
}

bool lexNumber(std::string_view word, uint64_t* value) {
    // Twelve digits hold every 32-bit number with room for a range check to refuse it by name, and
    // cannot overflow.
    if (word.empty() || word.size() > 12) return false;
    uint64_t v = 0;
    for (char c : word) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + static_cast<uint64_t>(c - '0');
    }
    *value = v;
    return true;
}

bool lexHex(std::string_view word, uint32_t* value) {
    if (word.empty() || word.size() > 8) return false;
    uint32_t v = 0;
    for (char c : word) {
        uint32_t digit = hexDigit(c);
        if (digit > 15) return false;
        v = v << 4 | digit;
    }
    *value = v;
    return true;
}

bool lexAddress(std::string_view word, uint32_t* address) {
    const char* p = word.data();
    const char* end = p + word.size();
    uint32_t v;
    if (!takeAddress(p, end, &v) || p != end) return false;
    *address = v;
    return true;
}

bool lexPrefix(std::string_view word, uint32_t* address, uint32_t* length) {
    const char* p = word.data();
    const char* end = p + word.size();
    uint32_t v, len;
    if (!takeAddress(p, end, &v) || p == end || *p++ != '/') return false;
    // A length is read like an octet: at most three digits, no leading zero.
    if (!takeOctet(p, end, &len) || p != end || len > 32) return false;
    *address = v;
    *length = len;
    return true;
}

bool lexMac(std::string_view word, uint8_t mac[6]) {
    // Two digits each, always: the way in which every text of the manager shows them.
    constexpr size_t MAC_TEXT = 6 * 2 + 5;
    if (word.size() != MAC_TEXT) return false;
    uint8_t bytes[6];
    for (size_t i = 0; i < 6; i++) {
        uint32_t high = hexDigit(word[i * 3]), low = hexDigit(word[i * 3 + 1]);
        if (high > 15 || low > 15 || (i < 5 && word[i * 3 + 2] != ':')) return false;
        bytes[i] = static_cast<uint8_t>(high << 4 | low);
    }
    std::memcpy(mac, bytes, sizeof bytes);
    return true;
}

bool lexAddress6(std::string_view word, uint8_t address[16]) {
    // The C library's reader: IPv6 has too many forms to read by hand, and its lines are few.
    char text[INET6_ADDRSTRLEN];
    if (word.size() >= sizeof text) return false;
    text[word.copy(text, sizeof text)] = '\0';
    return inet_pton(AF_INET6, text, address) == 1;
}

bool lexPrefix6(std::string_view word, uint8_t address[16], uint32_t* length) {
    size_t slash = word.find('/');
    uint64_t bits;
    if (slash == word.npos || !lexNumber(word.substr(slash + 1), &bits) || bits > 128) return false;
    if (!lexAddress6(word.substr(0, slash), address)) return false;
    *length = static_cast<uint32_t>(bits);
    return true;
}

bool lexVlanRange(std::string_view word, uint32_t* low, uint32_t* high) {
    uint64_t first, last;
    const size_t dash = word.find('-');
    if (!lexNumber(word.substr(0, dash), &first)) return false;
    last = first;
    if (dash != word.npos && !lexNumber(word.substr(dash + 1), &last)) return false;
    if (first < 1 || first > last || last > 4094) return false;
    *low = static_cast<uint32_t>(first);
    *high = static_cast<uint32_t>(last);
    return true;
}

bool lexSigned(std::string_view word, uint32_t* value) {
    bool negative = !word.empty() && word[0] == '-';
    uint64_t v;
    if (!lexNumber(word.substr(negative ? 1 : 0), &v)) return false;
    // The complement of what a text shows below zero.
    if (v > (negative ? 0x80000000u : 0xFFFFFFFFu)) return false;
    *value = static_cast<uint32_t>(negative ? 0 - v : v);
    return true;
}

bool lexPair(std::string_view word, bool withSign, uint32_t* high, uint32_t* low) {
    size_t colon = word.find(':');
    // A minus is looked for first: lexSigned would take it.
    if (colon == word.npos || (!withSign && word.find('-') != word.npos)) return false;
    return lexSigned(word.substr(0, colon), high) && lexSigned(word.substr(colon + 1), low);
}

bool lexAddressPair(std::string_view word, uint32_t* high, uint32_t* low) {
    size_t colon = word.find(':');
    uint64_t v;
    if (colon == word.npos || !lexNumber(word.substr(colon + 1), &v) || v > 0xFFFFFFFF)
        return false;
    if (!lexAddress(word.substr(0, colon), high)) return false;
    *low = static_cast<uint32_t>(v);
    return true;
}

bool lexAs(std::string_view word, uint32_t* as) {
    size_t dot = word.find('.');
    uint64_t high = 0, low;
    // H.L stands for H * 65536 + L, both at most 65535.
    if (dot == word.npos) {
        if (!lexNumber(word, &low) || low > 0xFFFFFFFF) return false;
    } else if (!lexNumber(word.substr(0, dot), &high) || high > 65535 ||
               !lexNumber(word.substr(dot + 1), &low) || low > 65535) {
        return false;
    }
    *as = static_cast<uint32_t>(high << 16 | low);
    return true;
}
