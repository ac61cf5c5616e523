// Where the lines of every kind of list stand in the configuration: sections, key areas, line
// classes. The database keeps them as bytes and numbers and is told of blocks by CFG_LAYOUT.
#pragma once

#include "platform/api/zekCfg.h"

// Key area of list lines (IP, MAC, prefix, AS-path and community lists).
struct cfgListKey {
    uint8_t family;  //   0  0 = IPv4, 0xFF = IPv6
    char name[140];  //   1
    be32 kind;       // 141  0 header, 1 entry or remark
    be32 order;      // 145  0 for the header, sequence number + 1 else
    uint8_t role;    // 149  0xFF on entry lines, else 0
    uint8_t zero[106];
};
WIRE_SIZE(cfgListKey, CFG_KEY_LEN);
WIRE_AT(cfgListKey, role, 149);

// Key area of route-map lines. The map's own node has only the name, an instance's separator and
// its line only name and number; so an instance's lines stand by class, then in the order in which
// their clauses and values came.
struct cfgRmapKey {
    char name[140];  //   0
    be32 seq;        // 140
    be16 cls;        // 144  of the clause
    be16 reserved146;
    be32 entryId;     // 148
    be16 valueIndex;  // 152
    uint8_t zero[102];
};
WIRE_SIZE(cfgRmapKey, CFG_KEY_LEN);
WIRE_AT(cfgRmapKey, valueIndex, 152);

// Key area of interface lines. The header lines have only the index, so they come first.
struct cfgIntfKey {
    be32 ifindex;          //   0
    uint8_t isLine;        //   4  128 on lines, 0 on the separator and the header
    uint8_t direction[4];  //   5  each 0 in, 1 out, 2 a pair of source guard
    char name[140];        //   9  the list; of a pair 4 bytes address, 6 MAC address, 2 VLAN
    uint8_t family;        // 149  0 = IPv4, 1 = MAC, 0xFF = IPv6
    uint8_t zero[106];
};
WIRE_SIZE(cfgIntfKey, CFG_KEY_LEN);
WIRE_AT(cfgIntfKey, name, 9);
constexpr uint32_t CFG_PAIRS = 2;  // in the place of a direction

// Sections, in the order in which the configuration shows them.
enum cfgSection : uint32_t {
    CFG_SECTION_MASK_MODE = 1,  // first: it decides how every mask behind it reads
    CFG_SECTION_MAC_EGRESS = 2,
    CFG_SECTION_DHCP_TRAP = 3,
    CFG_SECTION_VLAN_GROUP = 71,
    CFG_SECTION_INTERFACE = 72,
    CFG_SECTION_RMAP = 79,
    CFG_SECTION_ASPATH = 80,
    CFG_SECTION_COMM = 81,
    CFG_SECTION_EXTCOMM = 82,
    CFG_SECTION_PREFIX = 83,
    CFG_SECTION_TRACE_GROUP = 97,
    CFG_SECTION_TRACE_LIST = 98,
    CFG_SECTION_IP = 100,
    CFG_SECTION_MAC = 101,
};
enum cfgClass : uint32_t {
    CFG_CLASS_ANCHOR = 0,
    CFG_CLASS_BGP_LIST = 140,  // separator of AS-path and community lists; route map's own node
    CFG_CLASS_SEPARATOR = 141,
    CFG_CLASS_INTERFACE_HEADER = 144,
    CFG_CLASS_POLICY_SEPARATOR = 144,  // of prefix lists and of route-map instances
    CFG_CLASS_INTERFACE = 145,
    CFG_CLASS_PREFIX = 148,
    CFG_CLASS_BGP_LINE = 149,
    CFG_CLASS_LINE = 150,
    CFG_CLASS_RMAP_LINE = 152,
};

// What the lines of a block share: family and list name, but for two sections.
inline constexpr zekCfgSectionRow CFG_SECTION_ROWS[] = {
    {CFG_SECTION_INTERFACE, sizeof(cfgIntfKey::ifindex), false},
    {CFG_SECTION_RMAP, sizeof(cfgRmapKey::name) + sizeof(cfgRmapKey::seq), true},
};
inline constexpr zekCfgLayout CFG_LAYOUT{sizeof(cfgListKey::family) + sizeof(cfgListKey::name),
                                         CFG_SECTION_ROWS};
