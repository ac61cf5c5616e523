// The clauses of route maps and the words of their values: one table each, which the store, its
// texts and shows, the evaluation, the shell and the tests read.
#pragma once

#include <cstdint>

// What a clause does.
enum rmapClass : uint16_t {
    RTMAP_MS_MATCH = 1,
    RTMAP_MS_V6_MATCH = 2,
    RTMAP_MS_SET = 3,
    RTMAP_MS_V6_SET = 4,
    RTMAP_CONTINUE = 122,
};

constexpr uint32_t RMAP_PERMIT = 0, RMAP_DENY = 1;  // an instance's action

enum rmapKind : uint32_t {
    RMAP_KIND_HEADER = 0,    // the instance itself
    RMAP_KIND_LIST = 1,      // values are names of lists
    RMAP_KIND_NUMBER = 2,    // values are numbers
    RMAP_KIND_NEXT_HOP = 3,  // one IPv6 address
    RMAP_KIND_PAYLOAD = 4,   // one fixed payload, which may be nothing
};

enum rmapSide : uint32_t { RMAP_SIDE_MATCH, RMAP_SIDE_SET, RMAP_SIDE_CONTINUE };
// Whether clauses of the class (rmapClass) are on the side.
constexpr bool rmapSideHas(rmapSide side, uint32_t cls) {
    switch (side) {
        case RMAP_SIDE_MATCH:
            return cls == RTMAP_MS_MATCH || cls == RTMAP_MS_V6_MATCH;
        case RMAP_SIDE_SET:
            return cls == RTMAP_MS_SET || cls == RTMAP_MS_V6_SET;
        case RMAP_SIDE_CONTINUE:
            return cls == RTMAP_CONTINUE;
    }
    return false;
}

enum rmapCode : uint32_t {
    RTMAP_MATCH_ASP = 1,
    RTMAP_MATCH_ACC = 2,
    RTMAP_MATCH_NHOP = 3,
    RTMAP_MATCH_COMM = 4,
    RTMAP_MATCH_IPADD_ACL = 5,
    RTMAP_MATCH_COMM_EXACT = 6,
    RTMAP_MATCH_SRC = 7,
    RTMAP_MATCH_IPADD_PREFIX = 8,
    RTMAP_MATCH_NHOP_PREFIX = 9,
    RTMAP_MATCH_ANY = 10,
    RTMAP_MATCH_SRC_PREFIX = 11,
    RTMAP_MATCH_ORIGIN = 12,
    RTMAP_MATCH_IPV6ADD_PREFIX = 13,
    RTMAP_MATCH_V6_NHOP_PREFIX = 14,
    RTMAP_MATCH_V6_SRC_PREFIX = 15,
    RTMAP_MATCH_V6_NHOP = 16,
    RTMAP_MATCH_V6_SRC = 17,
    RTMAP_MATCH_IPV6ADD_ACL = 18,
    RTMAP_SET_LPREF = 100,
    RTMAP_SET_WEIGHT = 101,
    RTMAP_SET_NHOP = 102,
    RTMAP_SET_MET = 103,
    RTMAP_SET_ASP = 104,
    RTMAP_SET_COMM = 105,
    RTMAP_SET_AUTOTAG = 106,
    RTMAP_SET_LEVEL = 107,
    RTMAP_SET_METTYPE = 108,
    RTMAP_SET_ASPTAG = 109,
    RTMAP_SET_ORIGIN = 110,
    RTMAP_SET_PREPEND = 111,
    RTMAP_SET_COMMLIST = 112,
    RTMAP_SET_DAMP = 113,
    RTMAP_SET_DEFINTF = 114,
    RTMAP_SET_DEFNHOP = 115,
    RTMAP_SET_DSCP = 116,
    RTMAP_SET_IFACE = 117,
    RTMAP_SET_QOSGRP = 118,
    RTMAP_SET_COMMLIST_DEL = 119,
    RTMAP_SET_TAG = 120,
    RTMAP_SET_V6_NHOP = 121,
    RTMAP_CONT_CODE = 123,
    RTMAP_SET_EXT_COMM = 124,
    RTMAP_MATCH_EXT_COMM = 125,
    RTMAP_MATCH_RTYPE = 133,
    RTMAP_MATCH_IFACE = 134,
    RTMAP_MATCH_MET = 136,
    RTMAP_MATCH_TAG = 137,
};

// How a value stands behind the clause's name in the configuration.
enum rmapStyle : uint32_t {
    RMAP_STYLE_NONE,         // the clause is refused
    RMAP_STYLE_LIST,         // NAME
    RMAP_STYLE_PREFIX_LIST,  // NAME; typed as prefix-list NAME
    RMAP_STYLE_LIST_EXACT,   // NAME exact
    RMAP_STYLE_LIST_DELETE,  // NAME delete
    RMAP_STYLE_NUMBER,
    RMAP_STYLE_ADDRESS,     // dotted
    RMAP_STYLE_METRIC,      // N, + N, - N
    RMAP_STYLE_WORD,        // of the row's table
    RMAP_STYLE_WORD_BLANK,  // and a blank
    RMAP_STYLE_ORIGIN,      // and a blank, or nothing for a value without a word
    RMAP_STYLE_INTERFACE,   // the name of an interface index
    RMAP_STYLE_CONTINUE,    // N, or nothing for the next instance
    RMAP_STYLE_FLAG,        // nothing
    RMAP_STYLE_COMMUNITY,
    RMAP_STYLE_EXTCOMMUNITY,
    RMAP_STYLE_PREPEND,
    RMAP_STYLE_DAMPENING,
    RMAP_STYLE_IPV6,
};

struct rmapWord {
    uint32_t value;
    const char* word;
};
inline constexpr rmapWord rmapRouteTypes[] = {
    {2, "external"}, {3, "external type-1"}, {4, "external type-2"}, {5, "level-1"},
    {6, "level-2"},  {7, "local"},           {8, "internal"},
};
inline constexpr rmapWord rmapMetricTypes[] = {
    {1, "internal"}, {2, "external"}, {3, "type-1"}, {4, "type-2"}};
inline constexpr rmapWord rmapLevels[] = {
    {1, "level-1"}, {2, "level-2"}, {3, "level-1-2"}, {5, "backbone"}, {6, "stub-area"}};
inline constexpr rmapWord rmapOrigins[] = {{0, "igp"}, {1, "egp"}, {2, "incomplete"}};

// The operators of "set metric", by sub-value.
enum rmapMetricOperator : uint16_t { RMAP_METRIC_SET, RMAP_METRIC_ADD, RMAP_METRIC_SUBTRACT };

struct rmapWordTable {
    const rmapWord* first;
    uint32_t count;
};
template <uint32_t N>
constexpr rmapWordTable rmapWordsOf(const rmapWord (&table)[N]) {
    return {table, N};
}
// Null when the table does not have the value.
constexpr const char* rmapWordFind(const rmapWordTable& table, uint32_t value) {
    for (uint32_t i = 0; i < table.count; i++)
        if (table.first[i].value == value) return table.first[i].word;
    return nullptr;
}

struct rmapCodeRow {
    uint32_t code;
    rmapSide side;
    uint16_t cls;  // that the shell sends; the IPv4 and the IPv6 class of a side are both taken
    rmapKind kind;
    rmapStyle style;
    const char* name;   // rtmap_code_to_str; "": none
    const char* conf;   // rtmap_code_to_str_conf
    const char* debug;  // acl_rtmap_code_to_str; trailing blanks are meant
    rmapWordTable words = {nullptr, 0};
};

// clang-format off
#define RMAP_M4 RMAP_SIDE_MATCH, RTMAP_MS_MATCH
#define RMAP_M6 RMAP_SIDE_MATCH, RTMAP_MS_V6_MATCH
#define RMAP_S4 RMAP_SIDE_SET, RTMAP_MS_SET
#define RMAP_S6 RMAP_SIDE_SET, RTMAP_MS_V6_SET
#define RMAP_LIST RMAP_KIND_LIST, RMAP_STYLE_LIST
#define RMAP_NUMBER RMAP_KIND_NUMBER, RMAP_STYLE_NUMBER
#define RMAP_WORD RMAP_KIND_NUMBER, RMAP_STYLE_WORD
#define RMAP_WORD_BLANK RMAP_KIND_NUMBER, RMAP_STYLE_WORD_BLANK
#define RMAP_ORIGIN RMAP_KIND_NUMBER, RMAP_STYLE_ORIGIN
#define RMAP_REFUSED RMAP_KIND_PAYLOAD, RMAP_STYLE_NONE
inline constexpr rmapCodeRow rmapCodeTable[] = {
    {RTMAP_MATCH_ASP, RMAP_M4, RMAP_LIST, "match as-path", "as-path (as-path filter):", "RTMAP_MATCH_ASP"},
    {RTMAP_MATCH_ACC, RMAP_M4, RMAP_LIST, "match access list", "ip address (access-lists):", "RTMAP_MATCH_ACC"},
    {RTMAP_MATCH_NHOP, RMAP_M4, RMAP_LIST, "match ip next-hop", "ip next-hop (access-lists):", "RTMAP_MATCH_NHOP"},
    {RTMAP_MATCH_COMM, RMAP_M4, RMAP_LIST, "match community", "community (community-list filter):", "RTMAP_MATCH_COMM"},
    {RTMAP_MATCH_IPADD_ACL, RMAP_M4, RMAP_LIST, "match ip address", "ip address (access-lists):", "RTMAP_MATCH_IPADD_ACL"},
    // Has no names of its own: its line has the one of RTMAP_MATCH_COMM.
    {RTMAP_MATCH_COMM_EXACT, RMAP_M4, RMAP_KIND_LIST, RMAP_STYLE_LIST_EXACT, "", "", "RTMAP_MATCH_COMM_EXACT"},
    {RTMAP_MATCH_SRC, RMAP_M4, RMAP_LIST, "match ip route-source", "ip route-source (access-lists):", "RTMAP_MATCH_SRC"},
    // The names and the shown lines of 8 and 13 are those of 5 and 18: meant. Operators type the word
    // "prefix-list" in front of the list, and so do restores.
    {RTMAP_MATCH_IPADD_PREFIX, RMAP_M4, RMAP_KIND_LIST, RMAP_STYLE_PREFIX_LIST, "match ip address", "ip address:", "RTMAP_MATCH_IPADD_PREFIX"},
    {RTMAP_MATCH_NHOP_PREFIX, RMAP_M4, RMAP_LIST, "match ip next-hop prefix-list", "ip next-hop prefix-lists:", "RTMAP_MATCH_NHOP_PREFIX"},
    {RTMAP_MATCH_ANY, RMAP_M4, RMAP_REFUSED, "", "", "RTMAP_MATCH_ANY"},
    {RTMAP_MATCH_SRC_PREFIX, RMAP_M4, RMAP_LIST, "match ip route-source prefix-list", "ip route-source prefix-lists:", "RTMAP_MATCH_SRC_PREFIX"},
    {RTMAP_MATCH_ORIGIN, RMAP_M4, RMAP_ORIGIN, "match origin", "origin", "RTMAP_MATCH_ORIGIN", rmapWordsOf(rmapOrigins)},
    {RTMAP_MATCH_IPV6ADD_PREFIX, RMAP_M6, RMAP_KIND_LIST, RMAP_STYLE_PREFIX_LIST, "match ipv6 address", "ipv6 address:", "RTMAP_MATCH_IPV6ADD_PREFIX"},
    {RTMAP_MATCH_V6_NHOP_PREFIX, RMAP_M6, RMAP_LIST, "match ipv6 next-hop prefix-list", "ipv6 next-hop prefix-lists:", "RTMAP_MATCH_V6_NHOP_PREFIX"},
    {RTMAP_MATCH_V6_SRC_PREFIX, RMAP_M6, RMAP_LIST, "match ipv6 route-source prefix-list", "ipv6 route-source prefix-lists:", "RTMAP_MATCH_V6_SRC_PREFIX "},
    {RTMAP_MATCH_V6_NHOP, RMAP_M6, RMAP_LIST, "match ipv6 next-hop", "ipv6 next-hop (access-lists):", "RTMAP_MATCH_V6_NHOP"},
    {RTMAP_MATCH_V6_SRC, RMAP_M6, RMAP_LIST, "match ipv6 route-source", "ipv6 route-source (access-lists):", "RTMAP_MATCH_V6_SRC"},
    {RTMAP_MATCH_IPV6ADD_ACL, RMAP_M6, RMAP_LIST, "match ipv6 address", "ipv6 address (access-lists):", "RTMAP_MATCH_IPV6ADD_ACL"},
    {RTMAP_SET_LPREF, RMAP_S4, RMAP_NUMBER, "set local-preference", "local-preference", "RTMAP_SET_LPREF  "},
    {RTMAP_SET_WEIGHT, RMAP_S4, RMAP_NUMBER, "set weight", "weight", "RTMAP_SET_WEIGHT "},
    {RTMAP_SET_NHOP, RMAP_S4, RMAP_KIND_NUMBER, RMAP_STYLE_ADDRESS, "set next-hop", "next-hop", "RTMAP_SET_NHOP   "},
    {RTMAP_SET_MET, RMAP_S4, RMAP_KIND_NUMBER, RMAP_STYLE_METRIC, "set metric", "metric", "RTMAP_SET_MET    "},
    {RTMAP_SET_ASP, RMAP_S4, RMAP_NUMBER, "set as-path", "as-path", "RTMAP_SET_ASP    "},
    {RTMAP_SET_COMM, RMAP_S4, RMAP_KIND_PAYLOAD, RMAP_STYLE_COMMUNITY, "set community", "community", "RTMAP_SET_COMM   "},
    {RTMAP_SET_AUTOTAG, RMAP_S4, RMAP_KIND_PAYLOAD, RMAP_STYLE_FLAG, "set automatic-tag", "automatic-tag", "RTMAP_SET_AUTOTAG"},
    {RTMAP_SET_LEVEL, RMAP_S4, RMAP_WORD_BLANK, "set level", "level", "RTMAP_SET_LEVEL  ", rmapWordsOf(rmapLevels)},
    {RTMAP_SET_METTYPE, RMAP_S4, RMAP_WORD, "set metric-type", "metric-type", "RTMAP_SET_METTYPE", rmapWordsOf(rmapMetricTypes)},
    {RTMAP_SET_ASPTAG, RMAP_S4, RMAP_KIND_PAYLOAD, RMAP_STYLE_FLAG, "set as-path tag", "as-path tag", "RTMAP_SET_ASPTAG "},
    {RTMAP_SET_ORIGIN, RMAP_S4, RMAP_ORIGIN, "set origin", "origin", "RTMAP_SET_ORIGIN ", rmapWordsOf(rmapOrigins)},
    {RTMAP_SET_PREPEND, RMAP_S4, RMAP_KIND_PAYLOAD, RMAP_STYLE_PREPEND, "set as-path prepend", "as-path prepend", "RTMAP_SET_PREPEND"},
    {RTMAP_SET_COMMLIST, RMAP_S4, RMAP_KIND_LIST, RMAP_STYLE_LIST_DELETE, "set comm-list", "comm-list", "RTMAP_SET_COMMLIST"},
    {RTMAP_SET_DAMP, RMAP_S4, RMAP_KIND_PAYLOAD, RMAP_STYLE_DAMPENING, "set dampening", "dampening", "RTMAP_SET_DAMP    "},
    {RTMAP_SET_DEFINTF, RMAP_S4, RMAP_REFUSED, "", "", "RTMAP_SET_DEFINTF "},
    {RTMAP_SET_DEFNHOP, RMAP_S4, RMAP_REFUSED, "", "", "RTMAP_SET_DEFNHOP "},
    {RTMAP_SET_DSCP, RMAP_S4, RMAP_REFUSED, "", "", "RTMAP_SET_DSCP    "},
    {RTMAP_SET_IFACE, RMAP_S4, RMAP_REFUSED, "", "", "RTMAP_SET_IFACE   "},
    {RTMAP_SET_QOSGRP, RMAP_S4, RMAP_REFUSED, "", "", "RTMAP_SET_QOSGRP  "},
    {RTMAP_SET_COMMLIST_DEL, RMAP_S4, RMAP_REFUSED, "", "", "RTMAP_SET_COMMLIST_DEL"},
    {RTMAP_SET_TAG, RMAP_S4, RMAP_NUMBER, "set tag", "tag", "RTMAP_SET_TAG"},
    {RTMAP_SET_V6_NHOP, RMAP_S6, RMAP_KIND_NEXT_HOP, RMAP_STYLE_IPV6, "set ipv6 next-hop", "ipv6 next-hop", "RTMAP_SET_V6_NHOP"},
    {RTMAP_CONT_CODE, RMAP_SIDE_CONTINUE, RTMAP_CONTINUE, RMAP_KIND_NUMBER, RMAP_STYLE_CONTINUE, "continue", "", "RTMAP_CONT_CODE"},
    {RTMAP_SET_EXT_COMM, RMAP_S4, RMAP_KIND_PAYLOAD, RMAP_STYLE_EXTCOMMUNITY, "set extcommunity", "extcommunity", "RTMAP_SET_EXT_COMM   "},
    {RTMAP_MATCH_EXT_COMM, RMAP_M4, RMAP_LIST, "match extcommunity", "extcommunity (extcommunity-list filter):", ""},
    {RTMAP_MATCH_RTYPE, RMAP_M4, RMAP_WORD_BLANK, "match route-type", "route-type", "RTMAP_MATCH_RTYPE", rmapWordsOf(rmapRouteTypes)},
    {RTMAP_MATCH_IFACE, RMAP_M4, RMAP_KIND_NUMBER, RMAP_STYLE_INTERFACE, "match interface", "interface", "RTMAP_MATCH_IFACE"},
    {RTMAP_MATCH_MET, RMAP_M4, RMAP_NUMBER, "match metric", "metric", "RTMAP_MATCH_MET"},
    {RTMAP_MATCH_TAG, RMAP_M4, RMAP_NUMBER, "match tag", "tag", "RTMAP_MATCH_TAG"},
};
#undef RMAP_M4
#undef RMAP_M6
#undef RMAP_S4
#undef RMAP_S6
#undef RMAP_LIST
#undef RMAP_NUMBER
#undef RMAP_WORD
#undef RMAP_WORD_BLANK
#undef RMAP_ORIGIN
#undef RMAP_REFUSED
// clang-format on

// Null when there is no such code.
constexpr const rmapCodeRow* rmapCodeFind(uint32_t code) {
    for (const rmapCodeRow& row : rmapCodeTable)
        if (row.code == code) return &row;
    return nullptr;
}

// A place of the route is matched either by access lists or by prefix lists within an instance.
struct rmapFormPair {
    uint32_t accessCode, prefixCode;
};
inline constexpr rmapFormPair rmapFormPairs[] = {
    {RTMAP_MATCH_IPADD_ACL, RTMAP_MATCH_IPADD_PREFIX},
    {RTMAP_MATCH_NHOP, RTMAP_MATCH_NHOP_PREFIX},
    {RTMAP_MATCH_SRC, RTMAP_MATCH_SRC_PREFIX},
    {RTMAP_MATCH_IPV6ADD_ACL, RTMAP_MATCH_IPV6ADD_PREFIX},
    {RTMAP_MATCH_V6_NHOP, RTMAP_MATCH_V6_NHOP_PREFIX},
    {RTMAP_MATCH_V6_SRC, RTMAP_MATCH_V6_SRC_PREFIX},
};
constexpr uint32_t RMAP_FORM_PAIRS = 6;
