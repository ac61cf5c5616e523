// The arguments of debug functions: words, numbers, addresses, and how a mistake is answered.
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "include/jsonText.h"

inline std::vector<std::string_view> splitWords(std::string_view text) {
    std::vector<std::string_view> words;
    for (size_t at = 0; at < text.size();) {
        size_t begin = text.find_first_not_of(" \t\r\n", at);
        if (begin == text.npos) break;
        size_t end = std::min(text.find_first_of(" \t\r\n", begin), text.size());
        words.push_back(text.substr(begin, end - begin));
        at = end;
    }
    return words;
}

// The same, but what stands between quotation marks is one word, without them.
inline std::vector<std::string_view> splitQuoted(std::string_view text) {
    std::vector<std::string_view> words;
    for (size_t at = 0; (at = text.find_first_not_of(" \t\r\n", at)) != text.npos;) {
        const bool quoted = text[at] == '"';
        const size_t begin = at + (quoted ? 1 : 0);
        const size_t end =
            std::min(text.find_first_of(quoted ? "\"" : " \t\r\n", begin), text.size());
        words.push_back(text.substr(begin, end - begin));
        at = std::min(end + (quoted ? 1 : 0), text.size());
    }
    return words;
}

inline std::optional<uint32_t> parseNumber(std::string_view text, uint32_t max, int base = 10) {
    uint32_t value = 0;
    // The whole text or nothing: neither signs nor blanks.
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size() || value > max) return {};
    return value;
}

// By hand, because the system's readers take short and octal forms as well.
inline std::optional<uint32_t> parseDotted(std::string_view text) {
    uint32_t address = 0;
    for (int i = 0; i < 4; i++) {
        size_t end = i < 3 ? text.find('.') : text.size();
        if (end == text.npos) return {};
        auto byte = parseNumber(text.substr(0, end), 255);
        if (!byte) return {};
        address = address << 8 | *byte;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return address;
}

// Every function that answers with JSON refuses like this; the shell turns it into a refusal.
inline std::string errorJson(std::string_view text) {
    return jsonObject().string("error", text).text();
}
