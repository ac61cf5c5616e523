// List names: at most 140 characters, NUL-padded to 140 bytes; those 140 bytes are the key of the
// list's tree. A name of 140 characters has no NUL: print it with LIST_NAME_FMT / listNameArg, or
// take listNameView.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

constexpr size_t LIST_NAME_LEN = 140;
constexpr uint32_t LIST_NAME_KEY_BITS = 1120;

struct listName {
    char text[LIST_NAME_LEN];
    friend bool operator==(const listName& a, const listName& b) {
        return std::memcmp(a.text, b.text, LIST_NAME_LEN) == 0;
    }
};
static_assert(sizeof(listName) == LIST_NAME_LEN && alignof(listName) == 1);

// The one way to make a name: text behind the first NUL or behind 140 characters is cut off and
// the rest is zero, so equal names are equal keys.
inline listName listNameMake(std::string_view text) {
    listName name{};
    text = text.substr(0, LIST_NAME_LEN);
    if (size_t nul = text.find('\0'); nul != text.npos) text = text.substr(0, nul);
    std::memcpy(name.text, text.data(), text.size());
    return name;
}
// The name in a received 140-byte field, made canonical.
inline listName listNameMake(const listName& field) {
    return listNameMake(std::string_view(field.text, LIST_NAME_LEN));
}
inline std::string_view listNameView(const listName& name) {
    return {name.text, strnlen(name.text, LIST_NAME_LEN)};
}
// Whether a line that shows the text would still be that line: no control character, and in what
// must be one word no blank.
inline bool textFitsLine(std::string_view text, bool blanks) {
    for (char c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || (c == ' ' && !blanks))
            return false;
    return true;
}
inline bool listNameIsEmpty(const listName& name) {
    return name.text[0] == '\0';
}

#define LIST_NAME_FMT "%.140s"
inline const char* listNameArg(const listName& name) {
    return name.text;
}

// The names of IP lists that the manager makes itself (source guard); they are never written to the
// configuration.
inline bool listNameIsGenerated(const listName& name) {
    return listNameView(name).starts_with("sgAcl_");
}
