// Small JSON writers for the debug functions: objects and arrays are built as text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

inline void jsonString(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    out.push_back('"');
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(c);
        } else if (u < 0x20 || u >= 0x7F) {  // names may hold any byte; keep the output valid
            out += "\\u00";
            out.push_back(hex[u >> 4]);
            out.push_back(hex[u & 15]);
        } else {
            out.push_back(c);
        }
    }
    out.push_back('"');
}

// One object: members in the order in which they are added, closed by jsonObject::text.
struct jsonObject {
    std::string body;

    jsonObject& raw(std::string_view key, std::string_view value) {
        if (!body.empty()) body.push_back(',');
        jsonString(body, key);
        body.push_back(':');
        body += value;
        return *this;
    }
    jsonObject& number(std::string_view key, uint64_t value) {
        return raw(key, std::to_string(value));
    }
    jsonObject& flag(std::string_view key, bool value) {
        return raw(key, value ? "true" : "false");
    }
    jsonObject& string(std::string_view key, std::string_view value) {
        std::string quoted;
        jsonString(quoted, value);
        return raw(key, quoted);
    }
    jsonObject& object(std::string_view key, const jsonObject& value) {
        return raw(key, value.text());
    }
    std::string text() const { return "{" + body + "}"; }
};
