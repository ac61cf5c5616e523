// How debug functions write down what belongs to places.
#pragma once

#include <string>
#include <string_view>

#include "download/sendPath.h"
#include "include/jsonText.h"
#include "interface/interface.h"

// The families as an operator names them, in the order of intfFamily.
constexpr std::string_view familyWords[] = {"ip", "ipv6", "mac", "ip-mac"};
static_assert(std::size(familyWords) == INTF_FAMILIES);

inline const char* directionWord(uint32_t direction) {
    return direction == INTF_IN ? "in" : "out";
}
inline std::string interfaceName(uint32_t ifindex) {
    return agentIfName(ifindex).text;
}
// One more item of a JSON array that is built as text.
inline void jsonAppend(std::string* items, std::string_view item) {
    if (!items->empty()) items->push_back(',');
    *items += item;
}
