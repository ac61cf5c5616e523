// IPv4 access-list evaluation: the plain walk over the stored records.
#include <cstddef>
#include <iterator>

#include "platform/policylib/zekPolicy.h"

namespace {

bool sameUnder(uint32_t a, uint32_t b, uint32_t mask) {
    return ((a ^ b) & mask) == 0;
}

// By port operator; low and high are the entry's. An operator that is not here matches nothing.
bool (*const portTests[])(uint16_t port, uint16_t low, uint16_t high) = {
    [](uint16_t, uint16_t, uint16_t) { return true; },
    [](uint16_t port, uint16_t low, uint16_t) { return port == low; },
    [](uint16_t port, uint16_t low, uint16_t) { return port > low; },
    [](uint16_t port, uint16_t low, uint16_t) { return port < low; },
    [](uint16_t port, uint16_t low, uint16_t) { return port != low; },
    [](uint16_t port, uint16_t low, uint16_t high) { return low <= port && port <= high; },
};
static_assert(std::size(portTests) == PORT_RANGE + 1);

bool portMatches(uint32_t op, uint16_t port, uint16_t low, uint16_t high) {
    return op < std::size(portTests) && portTests[op](port, low, high);
}

// "established" means a segment of a connection that exists: ack or rst. The other words ask for
// all of their flags.
bool tcpFlagsMatch(uint8_t wanted, uint8_t flags) {
    if ((wanted & TCP_ESTABLISHED) != 0 && (flags & (TCP_ACK | TCP_RST)) == 0) return false;
    auto all = static_cast<uint8_t>(wanted & ~TCP_ESTABLISHED);
    return (flags & all) == all;
}

// What stands behind the IP header, by the entry's protocol. A later fragment has none of it, so an
// entry that asks for any of it does not match one.
bool payloadMatches(const ipEntryBlock& b, const ipPacket& p) {
    switch (b.protocol) {
        case IP_PROTO_ICMP:
            if (b.icmp.typeGiven == 0 && b.icmp.codeGiven == 0) return true;
            return !p.laterFragment && (b.icmp.typeGiven == 0 || b.icmp.type == p.icmpType) &&
                   (b.icmp.codeGiven == 0 || b.icmp.code == p.icmpCode);
        case IP_PROTO_TCP:
        case IP_PROTO_UDP: {
            uint8_t flags = b.protocol == IP_PROTO_TCP ? b.tcpFlags : 0;
            if (b.srcOperator == PORT_NONE && b.dstOperator == PORT_NONE && flags == 0) return true;
            return !p.laterFragment && portMatches(b.srcOperator, p.srcPort, b.srcLow, b.srcHigh) &&
                   portMatches(b.dstOperator, p.dstPort, b.dstLow, b.dstHigh) &&
                   tcpFlagsMatch(flags, p.tcpFlags);
        }
        default:
            return true;
    }
}

bool extendedMatches(const ipEntryBlock& b, const ipPacket& p) {
    bool anyProtocol = b.protocol == IP_PROTO_ANY && b.protoMarker == 0;
    if (!anyProtocol && b.protocol != p.protocol) return false;
    if (!sameUnder(p.dst, b.dst, b.dstMask)) return false;
    if (b.precedence != FIELD_NOT_GIVEN && b.precedence != p.tos >> 5) return false;
    if (b.tos != FIELD_NOT_GIVEN && b.tos != (p.tos >> 1 & 15)) return false;
    return payloadMatches(b, p);
}

// A standard entry has no say in anything but the source, the DSCP and the fragments.
bool entryMatches(const ipEntryBlock& b, const ipPacket& p) {
    if (ipEntryIsL2L3(b)) return false;  // about frames, not about IPv4 packets
    if (!sameUnder(p.src, b.src, b.srcMask)) return false;
    if (b.dscp != DSCP_NOT_GIVEN && b.dscp != p.tos >> 2) return false;
    if (b.fragments == 1 && !p.laterFragment) return false;
    return b.kind != IP_KIND_EXTENDED || extendedMatches(b, p);
}

}  // namespace

ipVerdict ipFilterCheck(const aclList* list, const ipPacket& packet, const aclEntry** decided) {
    const aclEntry* entry = list != nullptr ? list->head : nullptr;
    while (entry != nullptr && !entryMatches(entry->block, packet)) entry = entry->next;
    if (decided != nullptr) *decided = entry;
    return entry == nullptr || entry->block.action == IP_DENY ? FILTER_DENY : FILTER_PERMIT;
}
