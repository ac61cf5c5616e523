// ICMP type and code keywords: one table for the configuration text, the shows and the shell.
#pragma once

#include <cstdint>

struct icmpNameRow {
    const char* word;
    uint8_t type;
    int16_t code;  // -1: the keyword names the type alone
};

inline constexpr icmpNameRow icmpNameTable[] = {
    {"administratively-prohibited", 3, 13},
    {"alternate-address", 6, -1},
    {"conversion-error", 31, -1},
    {"dod-host-prohibited", 3, 10},
    {"dod-net-prohibited", 3, 9},
    {"echo", 8, -1},
    {"echo-reply", 0, -1},
    {"general-parameter-problem", 12, 0},
    {"host-isolated", 3, 8},
    {"host-precedence-unreachable", 3, 14},
    {"host-redirect", 5, 1},
    {"host-tos-redirect", 5, 3},
    {"host-tos-unreachable", 3, 12},
    {"host-unknown", 3, 7},
    {"host-unreachable", 3, 1},
    {"information-reply", 16, -1},
    {"information-request", 15, -1},
    {"mask-reply", 18, -1},
    {"mask-request", 17, -1},
    {"mobile-redirect", 32, -1},
    {"net-redirect", 5, 0},
    {"net-tos-redirect", 5, 2},
    {"net-tos-unreachable", 3, 11},
    {"net-unreachable", 3, 0},
    {"network-unknown", 3, 6},
    {"no-room-for-option", 12, 2},
    {"option-missing", 12, 1},
    {"packet-too-big", 3, 4},
    {"parameter-problem", 12, -1},
    {"port-unreachable", 3, 3},
    {"precedence-unreachable", 3, 15},
    {"protocol-unreachable", 3, 2},
    {"reassembly-timeout", 11, 1},
    {"redirect", 5, -1},
    {"router-advertisement", 9, -1},
    {"router-solicitation", 10, -1},
    {"source-quench", 4, -1},
    {"source-route-failed", 3, 5},
    {"time-exceeded", 11, -1},
    {"timestamp-reply", 14, -1},
    {"timestamp-request", 13, -1},
    {"traceroute", 30, -1},
    {"ttl-exceeded", 11, 0},
    {"unreachable", 3, -1},
};

// The keyword of a type with (code >= 0) or without (-1) a code, or null.
constexpr const char* icmpNameFind(uint32_t type, int code) {
    for (const icmpNameRow& row : icmpNameTable)
        if (row.type == type && row.code == code) return row.word;
    return nullptr;
}
