// The rules and packets of filterRules.h as those of every family, so that one run compares them.
#pragma once

#include "bench/filterRules.h"
#include "ipacl/family.h"

struct ip4Bench {
    typedef aclEntry Entry;
    typedef ipPacket Packet;
    static constexpr const aclFamily& row = ip4Family;
    static constexpr auto check = ipFilterCheck;

    static ipEntryBlock block(const benchRule& rule, uint32_t number) {
        return benchBlock(rule, number * 5);
    }
    static Packet packet(const ipPacket& packet) { return packet; }
};

// Nothing that the packets of `packet` do not have, so that they hit what they hit without it.
struct ip4FieldsBench : ip4Bench {
    static ipEntryBlock block(const benchRule& rule, uint32_t number) {
        ipEntryBlock b = ip4Bench::block(rule, number);
        const uint32_t i = number - 1;
        if (i % 2 == 0) b.srcOperator = PORT_GT, b.srcLow = 15;
        if (i % 3 == 0) b.precedence = 0;
        if (i % 5 == 0) b.tos = 0;
        if (i % 7 == 0) b.dscp = 0;
        if (i % 11 == 0 && b.protocol == IP_PROTO_TCP) b.tcpFlags = TCP_ESTABLISHED;
        if (i % 13 == 0 && b.protocol == IP_PROTO_TCP) b.tcpFlags = TCP_ACK | TCP_PSH;
        if (i % 17 == 0) b.srcOperator = PORT_NEQ, b.srcLow = 7;
        return b;
    }
    static Packet packet(const ipPacket& packet) {
        ipPacket p = packet;
        p.tcpFlags = TCP_ACK | TCP_PSH, p.srcPort |= 16;
        return p;
    }
};

// Prefixes are twice as long, /32 to /48: an IPv4 address is every second bit of the upper half.
// Hosts stay hosts, with a lower half of their own.
struct ip6Bench {
    typedef acl6Entry Entry;
    typedef ip6Packet Packet;
    static constexpr const aclFamily& row = ip6Family;
    static constexpr auto check = ip6FilterCheck;

    static void put(uint8_t (&bytes)[16], uint64_t upper, uint64_t lower) {
        for (size_t i = 0; i < 8; i++) {
            bytes[i] = static_cast<uint8_t>(upper >> (56 - 8 * i));
            bytes[8 + i] = static_cast<uint8_t>(lower >> (56 - 8 * i));
        }
    }
    static uint64_t spread(uint32_t word, uint64_t bits) {
        uint64_t upper = 0;
        for (uint32_t i = 0; i < 32; i++) upper |= (word >> i & 1) * (bits << 2 * i);
        return upper;
    }
    static uint64_t lower(uint32_t address) { return address * 0x9E3779B97F4A7C15ull; }
    static void put(uint8_t (&bytes)[16], uint8_t (&mask)[16], uint32_t address, uint32_t of) {
        const bool host = of == 0xFFFFFFFF;
        put(bytes, spread(address, 2), host ? lower(address) : 0);
        put(mask, spread(of, 3), host ? ~uint64_t{0} : 0);
    }
    static ip6EntryBlock block(const benchRule& rule, uint32_t number) {
        const ipEntryBlock same = benchBlock(rule, number * 5);
        ip6EntryBlock b{};
        b.seq = same.seq;
        b.protocol = same.protocol;
        b.dstOperator = same.dstOperator, b.dstLow = same.dstLow, b.dstHigh = same.dstHigh;
        put(b.src, b.srcMask, rule.src, rule.srcMask);
        put(b.dst, b.dstMask, rule.dst, rule.dstMask);
        return b;
    }
    static Packet packet(const ipPacket& packet) {
        ip6Packet p{};
        put(p.src, spread(packet.src, 2), lower(packet.src));
        put(p.dst, spread(packet.dst, 2), lower(packet.dst));
        p.protocol = packet.protocol;
        p.srcPort = packet.srcPort, p.dstPort = packet.dstPort;
        return p;
    }
};

// An IPv4 address behind 02:00, a port as ether-type, a protocol as encapsulation. What is a range
// of ports is all types from its first one.
struct macBench {
    typedef l2AclEntry Entry;
    typedef macFrame Packet;
    static constexpr const aclFamily& row = macFamily;
    static constexpr auto check = macFilterCheck;

    static void put(uint8_t (&bytes)[6], uint8_t first, uint32_t address) {
        bytes[0] = first;
        for (size_t i = 0; i < 4; i++) bytes[2 + i] = static_cast<uint8_t>(address >> (24 - 8 * i));
    }
    static uint32_t encapsulation(uint8_t protocol) {
        return protocol == IP_PROTO_TCP ? MAC_EV2 : MAC_SNAP;
    }
    static macEntryBlock block(const benchRule& rule, uint32_t number) {
        macEntryBlock b{};
        b.type = IP_KIND_EXTENDED;
        b.seq = number;
        b.order = ORDER_NOT_GIVEN;
        put(b.src, 2, rule.src), put(b.srcMask, rule.srcMask == 0 ? 0xFF : 0, ~rule.srcMask);
        put(b.dst, 2, rule.dst), put(b.dstMask, rule.dstMask == 0 ? 0xFF : 0, ~rule.dstMask);
        b.encapsulation = encapsulation(rule.protocol);
        if (rule.dstLow == rule.dstHigh)
            b.etherTypeOperator = PORT_EQ, b.etherType = rule.dstLow;
        else if (rule.dstLow != 0)
            b.etherTypeOperator = PORT_GT, b.etherType = static_cast<uint16_t>(rule.dstLow - 1);
        return b;
    }
    static Packet packet(const ipPacket& packet) {
        macFrame f{};
        put(f.src, 2, packet.src), put(f.dst, 2, packet.dst);
        f.encapsulation = encapsulation(packet.protocol);
        f.etherType = packet.dstPort;
        return f;
    }
};
