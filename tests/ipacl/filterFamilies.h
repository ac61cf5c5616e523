// The families of the filter in a test's hands: random entries and packets that meet, and what an
// entry says about a packet, spelled out from the meaning of its fields, bit by bit.
#pragma once

#include <random>

#include "ipacl/family.h"
#include "match/zekPolicy.h"

// Few different addresses and values, so that rules overlap and packets meet them.
struct dice {
    std::mt19937 random;
    uint32_t masks;  // different masks of each side

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random() % n); }
    bool once(uint32_t in) { return below(in) == 0; }
    uint8_t byteBelow(uint32_t n) { return static_cast<uint8_t>(below(n)); }
    template <class Value>
    Value of(std::initializer_list<Value> values) {
        return values.begin()[below(static_cast<uint32_t>(values.size()))];
    }
    uint16_t port() {
        return of<uint16_t>({0, 1, 20, 21, 22, 23, 79, 80, 1023, 1024, 65534, 65535});
    }
    // Any and host are the first two; then lengths, and masks with holes. A set bit is compared.
    template <size_t N>
    void mask(uint8_t (&bytes)[N]) {
        constexpr uint32_t bits = 8 * N;
        const uint32_t n = below(masks), length = n == 0 ? 0 : n == 1 ? bits : bits - n * bits / 40;
        for (uint32_t i = 0; i < bits; i++) {
            const bool hole = n > 1 && n % 2 != 0 && (i + n) % 5 == 0;
            const auto bit = static_cast<uint8_t>(0x80 >> i % 8);
            bytes[i / 8] =
                static_cast<uint8_t>((bytes[i / 8] & ~bit) | (i < length && !hole ? bit : 0));
        }
    }
    // Differ at both ends.
    template <size_t N>
    void address(uint8_t (&bytes)[N]) {
        std::ranges::fill(bytes, uint8_t{0x20});
        bytes[N / 4] = byteBelow(3);
        bytes[N / 2] = byteBelow(3);
        bytes[N - 1] = byteBelow(12);
    }
};

// --- meanings ------------------------------------------------------------------------------------

inline bool saysAddress(const uint8_t* a, const uint8_t* b, const uint8_t* mask, size_t length,
                        bool comparedBit) {
    for (size_t i = 0; i < 8 * length; i++) {
        auto bit = [i](const uint8_t* bytes) { return (bytes[i / 8] >> (7 - i % 8) & 1) != 0; };
        if (bit(mask) == comparedBit && bit(a) != bit(b)) return false;
    }
    return true;
}

inline bool saysValue(uint32_t op, uint32_t value, uint32_t low, uint32_t high) {
    switch (op) {
        case PORT_EQ:
            return value == low;
        case PORT_GT:
            return value > low;
        case PORT_LT:
            return value < low;
        case PORT_NEQ:
            return value != low;
        case PORT_RANGE:
            return value >= low && value <= high;
        default:
            return op == PORT_NONE;
    }
}

template <class Block, class Packet>
bool saysProtocol(const Block& b, const Packet& p, uint8_t icmp) {
    if (b.protocol != p.protocol && !(b.protocol == 4 && b.protoMarker == 0)) return false;
    std::vector<bool> demands;  // on what a later fragment does not carry
    if (b.protocol == icmp) {
        if (b.icmp.typeGiven != 0) demands.push_back(p.icmpType == b.icmp.type);
        if (b.icmp.codeGiven != 0) demands.push_back(p.icmpCode == b.icmp.code);
    }
    if (b.protocol == 6 || b.protocol == 17) {
        if (b.srcOperator != PORT_NONE)
            demands.push_back(saysValue(b.srcOperator, p.srcPort, b.srcLow, b.srcHigh));
        if (b.dstOperator != PORT_NONE)
            demands.push_back(saysValue(b.dstOperator, p.dstPort, b.dstLow, b.dstHigh));
    }
    for (uint32_t flag = 1; flag < 256 && b.protocol == 6; flag *= 2)
        if ((b.tcpFlags & flag) != 0)
            demands.push_back(flag == TCP_ESTABLISHED ? (p.tcpFlags & (TCP_ACK | TCP_RST)) != 0
                                                      : (p.tcpFlags & flag) != 0);
    return demands.empty() || (!p.laterFragment && !std::ranges::count(demands, false));
}

// --- the families --------------------------------------------------------------------------------

template <class Block>
void randomPayload(Block& b, dice& d, uint8_t icmp) {
    b.protocol = d.of<uint8_t>({icmp, 4, 6, 6, 17, 47, 0});
    if (d.once(3)) b.protoMarker = 1;
    if (b.protocol == icmp) {
        b.icmp = {d.byteBelow(3), d.byteBelow(2), d.byteBelow(3), d.byteBelow(2)};
        return;
    }
    b.srcOperator = d.once(2) ? d.below(7) : PORT_NONE;
    b.dstOperator = d.below(7);  // 6 is none
    b.srcLow = d.port(), b.srcHigh = d.port(), b.dstLow = d.port(), b.dstHigh = d.port();
    if (d.once(5)) b.tcpFlags = d.byteBelow(256);
}
template <class Packet>
void randomPacket(Packet& p, dice& d, uint8_t icmp) {
    p.protocol = d.of<uint8_t>({icmp, 4, 6, 17, 0});
    p.tcpFlags = d.byteBelow(256);
    p.icmpType = d.byteBelow(3), p.icmpCode = d.byteBelow(3);
    p.srcPort = d.port(), p.dstPort = d.port();
    p.laterFragment = d.once(5);
}

// The bytes of a word that stands most significant byte first.
inline uint8_t (&bytesOf(be32& word))[4] {
    return reinterpret_cast<uint8_t(&)[4]>(word);
}

// An entry permits what comes from one address, and a packet comes from there.
template <size_t N>
void hostAddress(uint8_t (&bytes)[N], uint32_t n) {
    for (size_t i = 0; i < 4; i++) bytes[N - 1 - i] = static_cast<uint8_t>(n >> 8 * i);
}

struct ip4InFilter {
    typedef aclEntry Entry;
    typedef ipEntryBlock Block;
    typedef ipPacket Packet;
    static constexpr const aclFamily& row = ip4Family;
    static constexpr auto find = ipFilterFind;
    static constexpr auto check = ipFilterCheck;
    static constexpr auto renumber = ipFilterIndexRenumber;

    static Block blank() {
        Block b{};
        b.kind = IP_KIND_EXTENDED, b.protocol = IP_PROTO_ANY;
        b.seq = SEQ_NOT_GIVEN, b.order = ORDER_NOT_GIVEN, b.dscp = DSCP_NOT_GIVEN;
        b.precedence = b.tos = FIELD_NOT_GIVEN;
        return b;
    }
    static Block random(dice& d) {
        Block b = blank();
        b.action = d.below(3);
        if (d.once(8)) b.kind = IP_KIND_STANDARD;
        if (d.once(40)) b.etherType = 0x800;
        d.address(bytesOf(b.src)), d.mask(bytesOf(b.srcMask));
        d.address(bytesOf(b.dst)), d.mask(bytesOf(b.dstMask));
        if (d.once(6)) b.precedence = d.below(9);
        if (d.once(6)) b.tos = d.below(17);
        if (d.once(6)) b.dscp = d.byteBelow(65);
        if (d.once(10)) b.fragments = 1;
        randomPayload(b, d, IP_PROTO_ICMP);
        return b;
    }
    static Packet packet(dice& d) {
        Packet p{};
        be32 address;
        d.address(bytesOf(address)), p.src = address;
        d.address(bytesOf(address)), p.dst = address;
        p.tos = d.once(2) ? uint8_t{0} : d.byteBelow(256);
        randomPacket(p, d, IP_PROTO_ICMP);
        return p;
    }
    static bool says(Block b, const Packet& p) {
        be32 src, dst;
        src = p.src, dst = p.dst;
        if (b.etherType != 0 || b.arpMarker != 0) return false;
        if (!saysAddress(bytesOf(src), bytesOf(b.src), bytesOf(b.srcMask), 4, true)) return false;
        if (b.dscp != DSCP_NOT_GIVEN && b.dscp != p.tos / 4) return false;
        if (b.fragments == 1 && !p.laterFragment) return false;
        if (b.kind != IP_KIND_EXTENDED) return true;
        if (!saysAddress(bytesOf(dst), bytesOf(b.dst), bytesOf(b.dstMask), 4, true)) return false;
        if (b.precedence != FIELD_NOT_GIVEN && b.precedence != p.tos / 32) return false;
        if (b.tos != FIELD_NOT_GIVEN && b.tos != p.tos / 2 % 16) return false;
        return saysProtocol(b, p, IP_PROTO_ICMP);
    }
    static Block host(uint32_t n) {
        Block b = blank();
        b.src = n, b.srcMask = 0xFFFFFFFF;
        return b;
    }
    static Packet from(uint32_t n) {
        Packet p{};
        p.src = n;
        return p;
    }
};

struct ip6InFilter {
    typedef acl6Entry Entry;
    typedef ip6EntryBlock Block;
    typedef ip6Packet Packet;
    static constexpr const aclFamily& row = ip6Family;
    static constexpr auto find = ip6FilterFind;
    static constexpr auto check = ip6FilterCheck;
    static constexpr auto renumber = ip6FilterIndexRenumber;

    static Block random(dice& d) {
        Block b{};
        b.seq = SEQ_NOT_GIVEN;
        b.action = d.below(3);
        d.address(b.src), d.mask(b.srcMask), d.address(b.dst), d.mask(b.dstMask);
        randomPayload(b, d, 58);
        return b;
    }
    static Packet packet(dice& d) {
        Packet p{};
        d.address(p.src), d.address(p.dst);
        randomPacket(p, d, 58);
        return p;
    }
    static bool says(const Block& b, const Packet& p) {
        return saysAddress(p.src, b.src, b.srcMask, 16, true) &&
               saysAddress(p.dst, b.dst, b.dstMask, 16, true) && saysProtocol(b, p, 58);
    }
    static Block host(uint32_t n) {
        Block b{};
        b.protocol = IP_PROTO_ANY;
        b.seq = SEQ_NOT_GIVEN;
        hostAddress(b.src, n);
        std::ranges::fill(b.srcMask, uint8_t{0xFF});
        return b;
    }
    static Packet from(uint32_t n) {
        Packet p{};
        hostAddress(p.src, n);
        return p;
    }
};

struct macInFilter {
    typedef l2AclEntry Entry;
    typedef macEntryBlock Block;
    typedef macFrame Packet;
    static constexpr const aclFamily& row = macFamily;
    static constexpr auto find = macFilterFind;
    static constexpr auto check = macFilterCheck;
    static constexpr auto renumber = macFilterIndexRenumber;

    static Block blank() {
        Block b{};
        b.type = IP_KIND_EXTENDED;
        b.seq = SEQ_NOT_GIVEN, b.order = ORDER_NOT_GIVEN;
        std::ranges::fill(b.dstMask, uint8_t{0xFF});
        return b;
    }
    static Block random(dice& d) {
        Block b = blank();
        if (d.once(8)) b.type = IP_KIND_STANDARD;
        b.action = d.below(3);
        d.address(b.src), d.mask(b.srcMask), d.address(b.dst), d.mask(b.dstMask);
        for (uint8_t* mask : {b.srcMask, b.dstMask})
            for (size_t i = 0; i < 6; i++) mask[i] = static_cast<uint8_t>(~mask[i]);
        b.encapsulation = d.of<uint32_t>({0, 0, 10, 10, 11, 12, 13});
        b.etherTypeOperator = d.below(7);  // 5 and 6 are none
        b.etherType = d.port();
        return b;
    }
    static Packet packet(dice& d) {
        Packet f{};
        d.address(f.src), d.address(f.dst);
        f.encapsulation = d.of<uint32_t>({10, 10, 11, 12});
        f.etherType = d.port();
        return f;
    }
    static bool says(const Block& b, const Packet& f) {
        if (!saysAddress(f.src, b.src, b.srcMask, 6, false)) return false;
        if (b.type != 2) return true;
        if (!saysAddress(f.dst, b.dst, b.dstMask, 6, false)) return false;
        if (b.encapsulation == 0) return true;
        return b.encapsulation == f.encapsulation && b.etherTypeOperator <= 4 &&
               saysValue(b.etherTypeOperator, f.etherType, b.etherType, 0);
    }
    static Block host(uint32_t n) {
        Block b = blank();
        hostAddress(b.src, n);
        return b;
    }
    static Packet from(uint32_t n) {
        Packet f{};
        hostAddress(f.src, n);
        return f;
    }
};
