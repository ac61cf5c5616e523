// What expressions and shows see of AS paths and communities, and how attributes are taken apart.
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "include/wire.h"
#include "match/bgpAttribute.h"
#include "match/zekBgp.h"

namespace {

constexpr uint8_t FLAG_EXTENDED_LENGTH = 0x10;

enum segmentType : uint8_t { AS_SET = 1, AS_SEQUENCE, AS_CONFED_SEQUENCE, AS_CONFED_SET };
struct segmentForm {
    const char *open, *between, *close;
};
constexpr segmentForm segmentForms[] = {
    {}, {"{", ",", "}"}, {"", " ", ""}, {"(", " ", ")"}, {"(", ",", ")"}};

uint32_t bigEndian(const uint8_t* bytes, size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; i++) value = value << 8 | bytes[i];
    return value;
}

// The path's text with numbers of this many bytes; false when its segments do not add up.
bool pathText(std::span<const uint8_t> value, size_t width, std::string* out) {
    out->clear();
    while (!value.empty()) {
        if (value.size() < 2) return false;
        const uint8_t type = value[0];
        const size_t count = value[1];
        value = value.subspan(2);
        if (type < AS_SET || type > AS_CONFED_SET || value.size() < count * width) return false;
        const segmentForm& form = segmentForms[type];
        // An empty sequence leaves no trace, an empty set its braces.
        const bool nothing = type == AS_SEQUENCE && count == 0;
        if (!out->empty() && !nothing) *out += ' ';
        *out += form.open;
        for (size_t i = 0; i < count; i++) {
            if (i != 0) *out += form.between;
            *out += std::to_string(bigEndian(value.data() + i * width, width));
        }
        *out += form.close;
        value = value.subspan(count * width);
    }
    return true;
}

}  // namespace

bool bgpAttributeParse(const void* attribute, uint32_t length, bgpAttribute* parsed) {
    const auto* bytes = static_cast<const uint8_t*>(attribute);
    if (bytes == nullptr || length < 3) return false;
    const size_t lengthBytes = (bytes[0] & FLAG_EXTENDED_LENGTH) != 0 ? 2 : 1;
    const size_t header = 2 + lengthBytes;
    if (length < header) return false;
    const size_t size = bigEndian(bytes + 2, lengthBytes);
    if (size > length - header) return false;
    *parsed = {bytes[1], {bytes + header, size}};
    return true;
}

bool bgpPathText(const void* attribute, uint32_t length, bgpAsWidth width, std::string* text) {
    bgpAttribute parsed;
    if (!bgpAttributeParse(attribute, length, &parsed)) return false;
    if (parsed.type == BGP_ATTR_AS4_PATH) return pathText(parsed.value, 4, text);
    if (parsed.type != BGP_ATTR_AS_PATH) return false;
    if (width != AS_WIDTH_UNKNOWN) return pathText(parsed.value, width, text);
    // Nobody said how wide the numbers are: two bytes when the segments add up with them, which
    // they seldom do by chance.
    return pathText(parsed.value, 2, text) || pathText(parsed.value, 4, text);
}

int aspath_make_str_count(const void* attribute, uint32_t length, char* text, size_t size,
                          bgpAsWidth width) {
    std::string path;
    if (!bgpPathText(attribute, length, width, &path)) return -1;
    // As snprintf: what does not fit is cut, and the length is that of the whole text.
    if (size != 0) {
        const size_t copied = std::min(path.size(), size - 1);
        std::memcpy(text, path.data(), copied);
        text[copied] = '\0';
    }
    return static_cast<int>(path.size());
}

std::string bgpGetAS4Str(uint32_t as, bgpAsNotation notation) {
    const bool dotted =
        notation == AS_NOTATION_DOTPLUS || (notation == AS_NOTATION_DOT && as > 0xFFFF);
    if (!dotted) return std::to_string(as);
    return std::to_string(as >> 16) + "." + std::to_string(as & 0xFFFF);
}

std::string bgpCommunityText(std::span<const uint32_t> communities) {
    struct knownRow {
        uint32_t value;
        const char* name;
    };
    static constexpr knownRow known[] = {{COMMUNITY_NO_EXPORT, "no-export"},
                                         {COMMUNITY_NO_ADVERTISE, "no-advertise"},
                                         {COMMUNITY_LOCAL_AS, "local-AS"}};
    std::string out;
    for (uint32_t community : communities) {
        if (!out.empty()) out += ' ';
        const auto* row = std::ranges::find(known, community, &knownRow::value);
        if (row != std::ranges::end(known))
            out += row->name;
        else
            out += std::to_string(community >> 16) + ":" + std::to_string(community & 0xFFFF);
    }
    return out;
}

std::string bgpExtCommToStr(const extCommValue& value) {
    const uint8_t* b = value.b;
    std::string out;
    // The two bits above say whether the type is the authority's and whether it is transitive.
    switch (b[0] & 0x3F) {
        case 0:  // two-octet AS, number
            out = std::to_string(bigEndian(b + 2, 2)) + ":" + std::to_string(bigEndian(b + 4, 4));
            break;
        case 1: {  // IPv4 address, number
            char address[INET_ADDRSTRLEN];
            out = inet_ntop(AF_INET, b + 2, address, sizeof address);
            out += ":" + std::to_string(bigEndian(b + 6, 2));
            break;
        }
        case 2:  // four-octet AS, number
            out = "as4 " + std::to_string(bigEndian(b + 2, 4)) + ":" +
                  std::to_string(bigEndian(b + 6, 2));
            break;
        default:
            break;
    }
    if (!out.empty()) out += ' ';
    if ((b[0] & 0x40) != 0) out += "non-trans ";
    return out;
}

std::string bgpExtCommunityText(std::span<const extCommValue> communities) {
    std::string out;
    for (const extCommValue& value : communities) {
        const std::string text = bgpExtCommToStr(value);
        if (text.empty()) continue;
        if (value.b[1] == EXTCOMM_RT) out += "rt ";
        if (value.b[1] == EXTCOMM_SOO) out += "soo ";
        out += text;
    }
    if (!out.empty()) out.pop_back();  // the last value's blank
    return out;
}
