// What both ends of a message know of a list: the blocks of its entries and of its bindings.
//
// The 156-byte IPv4 entry block: the form in which requests hand an entry to the store and in
// which the store keeps it. Big-endian, fixed offsets.
#pragma once

#include "include/wire.h"

constexpr uint32_t SEQ_NOT_GIVEN = 0xFFFFFFFF;
constexpr uint32_t SEQ_MAX = 4294967290u;  // the largest usable sequence number
constexpr uint32_t MAC_SEQ_MAX = 65535;    // of a MAC list
constexpr uint32_t SEQ_STEP = 5;

constexpr uint32_t FIELD_NOT_GIVEN = 0xFFFFFFFF;  // precedence, tos
constexpr uint32_t ORDER_NOT_GIVEN = 255;         // this or more
constexpr uint8_t DSCP_NOT_GIVEN = 255;

enum ipAction : uint32_t { IP_PERMIT = 0, IP_DENY = 1 };  // any other value than 1 permits
enum ipEntryKind : uint32_t { IP_KIND_NONE = 0, IP_KIND_STANDARD = 1, IP_KIND_EXTENDED = 2 };
enum ipCounterOption : uint8_t { IP_COUNT = 0x02, IP_BYTES = 0x04 };
enum ipProtocol : uint8_t {
    IP_PROTO_ICMP = 1,
    IP_PROTO_ANY = 4,
    IP_PROTO_TCP = 6,
    IP_PROTO_UDP = 17,
    IP_PROTO_ICMP6 = 58,
};
enum ipPortOperator : uint32_t { PORT_NONE, PORT_EQ, PORT_GT, PORT_LT, PORT_NEQ, PORT_RANGE };

struct ipEntryBlock {
    be32 carried[3];   //   0  carried to the agent, never interpreted here
    be32 owner;        //  12
    be32 protoMarker;  //  16  0 with protocol 4: any IP protocol; else the protocol is literal
    be32 action;       //  20
    be32 src;          //  24
    be32 srcMask;      //  28  bits set are compared
    be32 dst;          //  32
    be32 dstMask;      //  36
    be32 reserved40;   //  40  carried
    be32 precedence;   //  44  FIELD_NOT_GIVEN
    be32 tos;          //  48  FIELD_NOT_GIVEN
    uint8_t counterOptions;  // 52
    uint8_t protocol;        //  53
    uint8_t reserved54[2];
    be32 kind;  //  56  standard or extended
    be32 reserved60;
    be32 seq;             //  64
    be32 order;           //  68
    be32 arpMarker;       //  72
    be32 etherType;       //  76
    uint8_t mac1[6];      //  80  the first pair is the source: address, mask
    uint8_t mac1Mask[6];  //  86
    uint8_t mac2[6];      //  92  the second pair is the destination
    uint8_t mac2Mask[6];  //  98
    uint8_t reserved104[8];
    be32 vlan;              // 112
    be32 arpOpcode;         // 116
    be32 l2Log;             // 120
    be32 l2CounterOptions;  // 124
    union {
        be32 srcOperator;  // 128  TCP, UDP
        struct {
            uint8_t type, typeGiven, code, codeGiven;
        } icmp;
    };
    be32 dstOperator;      // 132
    be16 srcLow, srcHigh;  // 136
    be16 dstLow, dstHigh;  // 140
    uint8_t tcpFlags;      // 144
    uint8_t reserved145[3];
    be32 fragments;  // 148
    uint8_t dscp;    // 152
    uint8_t reserved153[3];
};
WIRE_SIZE(ipEntryBlock, 156);
WIRE_AT(ipEntryBlock, action, 20);
WIRE_AT(ipEntryBlock, precedence, 44);
WIRE_AT(ipEntryBlock, counterOptions, 52);
WIRE_AT(ipEntryBlock, kind, 56);
WIRE_AT(ipEntryBlock, seq, 64);
WIRE_AT(ipEntryBlock, etherType, 76);
WIRE_AT(ipEntryBlock, mac2Mask, 98);
WIRE_AT(ipEntryBlock, vlan, 112);
WIRE_AT(ipEntryBlock, srcOperator, 128);
WIRE_AT(ipEntryBlock, srcLow, 136);
WIRE_AT(ipEntryBlock, tcpFlags, 144);
WIRE_AT(ipEntryBlock, fragments, 148);
WIRE_AT(ipEntryBlock, dscp, 152);

enum tcpFlag : uint8_t {
    TCP_ESTABLISHED = 0x01,
    TCP_FIN = 0x02,
    TCP_SYN = 0x04,
    TCP_RST = 0x08,
    TCP_PSH = 0x10,
    TCP_ACK = 0x20,
    TCP_URG = 0x40,
};

// The flag words in the order in which every text shows them.
struct tcpFlagRow {
    uint8_t bit;
    const char* word;
};
inline constexpr tcpFlagRow tcpFlagTable[] = {
    {TCP_ESTABLISHED, "established"},
    {TCP_FIN, "fin"},
    {TCP_SYN, "syn"},
    {TCP_RST, "rst"},
    {TCP_PSH, "psh"},
    {TCP_ACK, "ack"},
    {TCP_URG, "urg"},
};

// Destinations of routing protocols, which several of their instances ask for.
constexpr bool ipIsProtocolAddress(uint32_t address) {
    return address == 0xE0000005 || address == 0xE0000006 || address == 0xE0000009 ||
           address == 0xE0000012;
}

// An ARP or ether-type entry: kept out of the content tree.
inline bool ipEntryIsL2L3(const ipEntryBlock& b) {
    return b.arpMarker != 0 || b.etherType != 0;
}

// The IPv6 entry block, 108 bytes: the IPv4 one without the carried words and with 16-byte
// addresses.
struct ip6EntryBlock {
    be32 owner;           //   0
    be32 protoMarker;     //   4
    be32 action;          //   8
    uint8_t src[16];      //  12
    uint8_t srcMask[16];  // 28
    uint8_t dst[16];      //  44
    uint8_t dstMask[16];  // 60
    be32 reserved76;
    uint8_t counterOptions;  // 80
    uint8_t protocol;        // 81
    uint8_t reserved82[2];
    be32 seq;  // 84
    union {
        be32 srcOperator;  // 88
        struct {
            uint8_t type, typeGiven, code, codeGiven;
        } icmp;
    };
    be32 dstOperator;      //  92
    be16 srcLow, srcHigh;  //  96
    be16 dstLow, dstHigh;  // 100
    uint8_t tcpFlags;      // 104
    uint8_t reserved105[3];
};
WIRE_SIZE(ip6EntryBlock, 108);
WIRE_AT(ip6EntryBlock, counterOptions, 80);
WIRE_AT(ip6EntryBlock, seq, 84);
WIRE_AT(ip6EntryBlock, dstOperator, 92);
WIRE_AT(ip6EntryBlock, tcpFlags, 104);

// How the payload of a frame is told: by an Ethernet II type, by the type of a SNAP header, or by
// the two service access points of a bare LLC header (destination on top). An entry that gives none
// is about every frame, whatever its ether-type.
enum macEncapsulation : uint32_t {
    MAC_ENCAPSULATION_NONE = 0,
    MAC_EV2 = 10,
    MAC_SNAP = 11,
    MAC_LLC = 12,
};
struct macEncapsulationRow {
    uint32_t code;
    const char* word;
};
inline constexpr macEncapsulationRow macEncapsulationTable[] = {
    {MAC_EV2, "ev2"},
    {MAC_SNAP, "snap"},
    {MAC_LLC, "llc"},
};

// The 56-byte MAC entry body: the form in which requests hand an entry to the store and in which
// the agents receive it.
struct macEntryBlock {
    be32 action;     //  0  1 denies
    be32 seq;        //  4
    uint8_t src[6];  //  8  masks are wildcards: bits set are not compared
    uint8_t srcMask[6];
    uint8_t dst[6];  // 20
    uint8_t dstMask[6];
    be32 type;               // 32  1 standard, 2 extended
    be32 encapsulation;      // 36  macEncapsulation
    be32 etherTypeOperator;  // 40  PORT_NONE to PORT_NEQ; read when an encapsulation is given
    be16 etherType;          // 44
    uint8_t reserved46[6];
    be32 order;  // 52
};
WIRE_SIZE(macEntryBlock, 56);
WIRE_AT(macEntryBlock, dst, 20);
WIRE_AT(macEntryBlock, etherType, 44);
WIRE_AT(macEntryBlock, order, 52);

// What an agent needs beside a list of what it is bound to; opaque to the manager.
constexpr size_t BINDING_BLOCK_LEN = 520;
struct bindingBlock {
    uint8_t b[BINDING_BLOCK_LEN];
};
