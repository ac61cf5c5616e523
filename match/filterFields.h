// What the families' entries have in common: small fields side by side in one word of a rule, and
// what an IP entry asks of the payload. A family's shape (match/matchIndex.h) says as `fields`
// which word that is.
#pragma once

#include <bit>
#include <iterator>

#include "include/entry.h"
#include "match/matchIndex.h"

struct filterField {
    unsigned at, width;
    constexpr uint64_t all() const { return (uint64_t{1} << width) - 1; }
};

// Asks for the masked bits of a field. What does not go into the words (a value that the field
// cannot have, two demands on one bit) is left to the test of the whole entry.
template <class Shape>
void filterAsk(matchRule<Shape>* rule, filterField field, uint64_t value, uint64_t mask) {
    uint64_t &has = rule->value[Shape::fields], &of = rule->mask[Shape::fields];
    uint64_t bits = mask << field.at, wanted = value << field.at;
    if (value > field.all() || ((has ^ wanted) & of & bits) != 0) {
        rule->exact = false;
        return;
    }
    has |= wanted & bits;
    of |= bits;
}
template <class Shape>
void filterAsk(matchRule<Shape>* rule, filterField field, uint64_t value) {
    filterAsk(rule, field, value, field.all());
}

// --- fields of 16 bits under an operator -------------------------------------------------------

// By port operator; low and high are the entry's. An operator that is not here matches nothing.
inline constexpr bool (*filterOperators[])(uint16_t value, uint16_t low, uint16_t high) = {
    [](uint16_t, uint16_t, uint16_t) { return true; },
    [](uint16_t value, uint16_t low, uint16_t) { return value == low; },
    [](uint16_t value, uint16_t low, uint16_t) { return value > low; },
    [](uint16_t value, uint16_t low, uint16_t) { return value < low; },
    [](uint16_t value, uint16_t low, uint16_t) { return value != low; },
    [](uint16_t value, uint16_t low, uint16_t high) { return low <= value && value <= high; },
};
static_assert(std::size(filterOperators) == PORT_RANGE + 1);

inline bool filterCompare(uint32_t op, uint16_t value, uint16_t low, uint16_t high) {
    return op < std::size(filterOperators) && filterOperators[op](value, low, high);
}

// Of the values from low to high the upper bits that all of them share.
template <class Shape>
void filterAskCompare(matchRule<Shape>* rule, filterField field, uint32_t op, uint16_t low,
                      uint16_t high) {
    struct {
        uint32_t low, high;
    } const ranges[] = {{0, 0xFFFF},   {low, low}, {low + 1u, 0xFFFF},
                        {0, low - 1u}, {1, 0},     {low, high}};
    static_assert(std::size(ranges) == PORT_RANGE + 1);
    auto [first, last] = ranges[op < std::size(ranges) ? op : PORT_NEQ];
    if (first > last || last > 0xFFFF) {  // nothing, or not one run of values
        rule->exact = false;
        return;
    }
    uint32_t free = std::bit_ceil((first ^ last) + 1) - 1;
    filterAsk(rule, field, first & ~free, field.all() & ~free);
    if (last - first != free) rule->exact = false;
}

// --- the payload of an IP packet ---------------------------------------------------------------

// ICMP type and code stand in the places of the ports: no rule asks for either without asking for
// its protocol.
constexpr filterField F_PROTOCOL = {8, 8}, F_TCP_FLAGS = {16, 8}, F_LATER_FRAGMENT = {24, 1};
constexpr filterField F_SRC_PORT = {32, 16}, F_DST_PORT = {48, 16};

// "established" means a segment of a connection that exists: ack or rst. The other words ask for
// all of their flags.
inline bool tcpFlagsMatch(uint8_t wanted, uint8_t flags) {
    if ((wanted & TCP_ESTABLISHED) != 0 && (flags & (TCP_ACK | TCP_RST)) == 0) return false;
    auto all = static_cast<uint8_t>(wanted & ~TCP_ESTABLISHED);
    return (flags & all) == all;
}

template <class Block>
bool asksForAnyProtocol(const Block& b) {
    return b.protocol == IP_PROTO_ANY && b.protoMarker == 0;
}
template <class Block>
uint8_t flagsAskedFor(const Block& b) {
    return b.protocol == IP_PROTO_TCP ? b.tcpFlags : 0;
}
// Whether an entry asks for anything that stands behind the IP header, by its protocol.
template <uint8_t Icmp, class Block>
bool asksForPayload(const Block& b) {
    if (b.protocol == Icmp) return b.icmp.typeGiven != 0 || b.icmp.codeGiven != 0;
    if (b.protocol != IP_PROTO_TCP && b.protocol != IP_PROTO_UDP) return false;
    return b.srcOperator != PORT_NONE || b.dstOperator != PORT_NONE || flagsAskedFor(b) != 0;
}

// A later fragment has no payload header, so an entry that asks for any of it does not match one.
template <uint8_t Icmp, class Block, class Packet>
bool payloadMatches(const Block& b, const Packet& p) {
    if (!asksForPayload<Icmp>(b)) return true;
    if (p.laterFragment) return false;
    if (b.protocol == Icmp)
        return (b.icmp.typeGiven == 0 || b.icmp.type == p.icmpType) &&
               (b.icmp.codeGiven == 0 || b.icmp.code == p.icmpCode);
    return filterCompare(b.srcOperator, p.srcPort, b.srcLow, b.srcHigh) &&
           filterCompare(b.dstOperator, p.dstPort, b.dstLow, b.dstHigh) &&
           tcpFlagsMatch(flagsAskedFor(b), p.tcpFlags);
}

// Protocol and payload.
template <uint8_t Icmp, class Shape, class Block>
void filterAskPayload(matchRule<Shape>* rule, const Block& b) {
    if (!asksForAnyProtocol(b)) filterAsk(rule, F_PROTOCOL, b.protocol);
    if (!asksForPayload<Icmp>(b)) return;
    if (b.protocol == Icmp) {
        if (b.icmp.typeGiven != 0) filterAsk(rule, F_SRC_PORT, b.icmp.type);
        if (b.icmp.codeGiven != 0) filterAsk(rule, F_DST_PORT, b.icmp.code);
    } else {
        filterAskCompare(rule, F_SRC_PORT, b.srcOperator, b.srcLow, b.srcHigh);
        filterAskCompare(rule, F_DST_PORT, b.dstOperator, b.dstLow, b.dstHigh);
        const uint8_t flags = flagsAskedFor(b),
                      all = flags & static_cast<uint8_t>(~TCP_ESTABLISHED);
        filterAsk(rule, F_TCP_FLAGS, all, all);
        if (flags != all) rule->exact = false;
    }
    filterAsk(rule, F_LATER_FRAGMENT, 0);
}

template <uint8_t Icmp, class Packet>
uint64_t payloadFields(const Packet& p) {
    const bool icmp = p.protocol == Icmp;
    const uint64_t first = icmp ? p.icmpType : p.srcPort, second = icmp ? p.icmpCode : p.dstPort;
    return uint64_t{p.protocol} << F_PROTOCOL.at | uint64_t{p.tcpFlags} << F_TCP_FLAGS.at |
           uint64_t{p.laterFragment} << F_LATER_FRAGMENT.at | first << F_SRC_PORT.at |
           second << F_DST_PORT.at;
}
