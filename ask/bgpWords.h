// Communities among a debug function's arguments.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "ask/debugWords.h"
#include "match/zekBgp.h"

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
    // What a list's text shows as one number can be given back as one.
    if (word.find(':') == word.npos) return parseNumber(word, 0xFFFFFFFF);
    auto [highText, lowText] = splitPair(word);
    auto high = parseNumber(highText, 0xFFFF);
    auto low = parseNumber(lowText, 0xFFFF);
    if (!high || !low) return {};
    return *high << 16 | *low;
}

// AS:NUMBER or ADDRESS:NUMBER as a route target or site of origin; the type follows from the front,
// unless the AS is said to have four octets.
inline std::optional<extCommValue> parseExtCommunity(std::string_view word,
                                                     extCommSelector selector, bool as4) {
    auto [front, back] = splitPair(word);
    // Type 0 has an AS of two octets, 1 an address, 2 an AS of four octets.
    uint8_t type = 0;
    std::optional<uint32_t> high = parseDotted(front), low;
    if (high) {
        type = 1;
        low = parseNumber(back, 0xFFFF);
    } else {
        high = parseNumber(front, 0xFFFFFFFF);
        if (as4 || (high && *high > 0xFFFF)) type = 2;
        low = parseNumber(back, type == 0 ? 0xFFFFFFFF : 0xFFFF);
    }
    if (!high || !low) return {};
    // Six octets: a short front leaves four for the number behind it, a long one two.
    const uint64_t value = type == 0 ? uint64_t{*high} << 32 | *low : uint64_t{*high} << 16 | *low;
    extCommValue out{{type, static_cast<uint8_t>(selector)}};
    for (size_t i = 0; i < 6; i++) out.b[2 + i] = static_cast<uint8_t>(value >> (40 - 8 * i));
    return out;
}

// Extended communities as lists state them, word by word: "rt", "soo" and "as4" are about what
// follows, "non-trans" is about the value before it.
struct extCommWords {
    extCommSelector selector = EXTCOMM_RT;
    bool as4 = false;
    std::vector<extCommValue> values;
};
// False when the word is none of these.
inline bool takeExtCommunity(extCommWords* taken, std::string_view word) {
    constexpr uint8_t NON_TRANSITIVE = 0x40;
    if (word == "rt" || word == "soo") {
        taken->selector = word == "rt" ? EXTCOMM_RT : EXTCOMM_SOO;
    } else if (word == "as4") {
        taken->as4 = true;
    } else if (word == "non-trans" && !taken->values.empty()) {
        taken->values.back().b[0] |= NON_TRANSITIVE;
    } else {
        auto value = parseExtCommunity(word, taken->selector, taken->as4);
        if (!value) return false;
        taken->values.push_back(*value);
        taken->as4 = false;
    }
    return true;
}
