// One entry of a list as a card's hardware or kernel would have to know it: decoded, in host order,
// without a pointer into the message that it came in.
//
// A data plane is written on this record alone. It can be copied byte by byte, compared with ==,
// and kept beyond the agent's process. What an entry's wire record does not carry has the value
// that says "not asked for", so a reader need not look at the family first, except for the
// addresses.
//
// What matches a packet:
// - A standard IPv4 entry (kind 1) has a say in the source, the DSCP and the fragments only; an
//   extended one (kind 2) in everything. IPv6 entries are all extended.
// - Ports and TCP flags count for protocols 6 and 17, ICMP's type and code for 1 (IPv6: 58). A
// later
//   fragment has none of these, so an entry that asks for any of them does not match it.
// - An entry with `layer2` set is about frames: ARP or an ether-type. It matches no IP packet.
// - The first entry that matches decides: in a list, entries stand in order of their numbers.
#pragma once

#include <array>
#include <cstdint>

#include "include/agentMsg.h"

enum class ruleFamily : uint8_t { ip4, ip6, mac };

// Four words, the most significant one first. An IPv4 address is the first of them, and the others
// are 0. Bits that are set in the mask are compared.
struct ruleAddress {
    std::array<uint32_t, 4> value{}, mask{};
    bool operator==(const ruleAddress&) const = default;
};

// Which ports. An operator that is none of ipPortOperator's matches no packet.
struct rulePorts {
    uint32_t op = PORT_NONE;
    uint16_t low = 0, high = 0;  // `high` counts for PORT_RANGE only
    bool operator==(const rulePorts&) const = default;
};

// A mark of 0 means that the value beside it is not asked for.
struct ruleIcmp {
    uint8_t type = 0, typeGiven = 0, code = 0, codeGiven = 0;
    bool operator==(const ruleIcmp&) const = default;
};

// Unlike those of IP addresses, these masks are wildcards: bits that are set are not compared.
struct ruleMac {
    std::array<uint8_t, 6> address{}, wildcard{};
    bool operator==(const ruleMac&) const = default;
};

// About frames. IPv4 lists have such entries (ARP, ether-type), and MAC lists no others.
struct ruleLayer2 {
    uint32_t arpMarker = 0;  // not 0: ARP; the rule's source is then the sender's IP address
    uint32_t etherType = 0;
    uint32_t etherTypeOperator = 0;  // MAC lists: 0 when the ether-type is not asked for
    uint32_t encapsulation = 0;      // MAC lists
    ruleMac src, dst;
    uint32_t vlan = 0;       // ARP and ether-type entries
    uint32_t arpOpcode = 0;  // 0: any
    uint32_t log = 0, counterOptions = 0;
    std::array<uint8_t, 8> carried{};  // no meaning here; answered as it came
    bool operator==(const ruleLayer2&) const = default;
};

struct agentRule {
    ruleFamily family = ruleFamily::ip4;
    uint8_t dscp = DSCP_NOT_GIVEN;
    uint32_t seq = 0;
    uint32_t action = IP_PERMIT;  // IP_DENY denies, and every other value permits
    uint32_t kind = IP_KIND_EXTENDED;
    uint32_t order = ORDER_NOT_GIVEN;
    ruleAddress src, dst;
    // Literal, but for IP_PROTO_ANY with a marker of 0, which means every IP protocol.
    uint32_t protocol = IP_PROTO_ANY, protoMarker = 0;
    // IPv6 entries have ICMP's four bytes in the place of the source's operator, so there both are
    // set and the protocol says which of them counts.
    rulePorts srcPorts, dstPorts;
    ruleIcmp icmp;
    uint32_t tcpFlags = 0;   // of tcpFlag; "established" asks for ack or rst, the others for each
    uint32_t fragments = 0;  // 1: later fragments only
    uint32_t precedence = FIELD_NOT_GIVEN, tos = FIELD_NOT_GIVEN;
    ruleLayer2 layer2;
    uint32_t counterOptions = 0;  // of ipCounterOption
    uint32_t log = 0, monitor = 0;
    // Whose the entry is and what its owner wants carried to the card; the agent gives them no
    // meaning, but they are part of what the entry is.
    uint32_t owner = 0;
    std::array<uint32_t, 3> carried{};
    bool operator==(const agentRule&) const = default;
};
static_assert(std::is_trivially_copyable_v<agentRule>);

// One decoder for each wire record. IPv4 and MAC entries say what they match twice, and the first
// is decoded: whoever calls has refused an entry whose two halves differ.
agentRule agentRuleOf(const agentEntry& entry);
agentRule agentRuleOf(const agentEntry6& entry);
agentRule agentRuleOf(const agentMacEntry& entry);
