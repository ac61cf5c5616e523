// Communities among a debug function's arguments.
#pragma once

#include <optional>
#include <string_view>

#include "platform/policylib/zekBgp.h"
#include "task/debugWords.h"

// The two sides of HIGH:LOW.
struct pairText {
    std::string_view high, low;
};
inline pairText splitPair(std::string_view word) {
    const size_t colon = word.find(':');
    if (colon == word.npos) return {};
    return {word.substr(0, colon), word.substr(colon + 1)};
}

// HIGH:LOW, a well-known name, or the value as one number.
inline std::optional<uint32_t> parseCommunity(std::string_view word) {
    if (word == "no-export") return COMMUNITY_NO_EXPORT;
    if (word == "no-advertise") return COMMUNITY_NO_ADVERTISE;
    if (word == "local-AS") return COMMUNITY_LOCAL_AS;
    if (word.find(':') == word.npos) return parseNumber(word, 0xFFFFFFFF);
    auto [highText, lowText] = splitPair(word);
    auto high = parseNumber(highText, 0xFFFF);
    auto low = parseNumber(lowText, 0xFFFF);
    if (!high || !low) return {};
    return *high << 16 | *low;
}

// AS:NUMBER or ADDRESS:NUMBER as a route target or site of origin; the type follows from the front.
inline std::optional<extCommValue> parseExtCommunity(std::string_view word,
                                                     extCommSelector selector) {
    auto [front, back] = splitPair(word);
    uint8_t type = 0;
    std::optional<uint32_t> high = parseDotted(front), low;
    if (high) {
        type = 1;
        low = parseNumber(back, 0xFFFF);
    } else {
        high = parseNumber(front, 0xFFFFFFFF);
        if (high && *high > 0xFFFF) type = 2;
        low = parseNumber(back, type == 0 ? 0xFFFFFFFF : 0xFFFF);
    }
    if (!high || !low) return {};
    const uint64_t value = type == 0 ? uint64_t{*high} << 32 | *low : uint64_t{*high} << 16 | *low;
    extCommValue out{{type, static_cast<uint8_t>(selector)}};
    for (size_t i = 0; i < 6; i++) out.b[2 + i] = static_cast<uint8_t>(value >> (40 - 8 * i));
    return out;
}
