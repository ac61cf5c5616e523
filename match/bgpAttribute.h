// Path attributes as they are on the wire. Private to this folder.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "match/zekBgp.h"

constexpr uint8_t BGP_ATTR_AS_PATH = 2;
constexpr uint8_t BGP_ATTR_COMMUNITIES = 8;
constexpr uint8_t BGP_ATTR_AS4_PATH = 17;

struct bgpAttribute {
    uint8_t type;
    std::span<const uint8_t> value;  // the caller's bytes
};
// False when the attribute does not lie in the bytes whole.
bool bgpAttributeParse(const void* attribute, uint32_t length, bgpAttribute* parsed);
// The text of an AS path; false when it is none or malformed.
bool bgpPathText(const void* attribute, uint32_t length, bgpAsWidth width, std::string* text);
