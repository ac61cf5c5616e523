// IPv4 access-list evaluation: what an entry matches, the same said in masked words as far as words
// can say it, and the index of these beside a list.
#include <bit>
#include <cstddef>
#include <iterator>

#include "common/hitCount.h"
#include "match/matchIndex.h"
#include "match/zekPolicy.h"

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
    if (!sameUnder(p.dst, b.dst, b.dstMask)) return false;
    bool anyProtocol = b.protocol == IP_PROTO_ANY && b.protoMarker == 0;
    if (!anyProtocol && b.protocol != p.protocol) return false;
    if (b.precedence != FIELD_NOT_GIVEN && b.precedence != p.tos >> 5) return false;
    if (b.tos != FIELD_NOT_GIVEN && b.tos != (p.tos >> 1 & 15)) return false;
    return payloadMatches(b, p);
}

// A standard entry has no say in anything but the source, the DSCP and the fragments. The addresses
// come first: most entries differ there.
bool entryMatches(const ipEntryBlock& b, const ipPacket& p) {
    if (!sameUnder(p.src, b.src, b.srcMask)) return false;
    if (b.kind == IP_KIND_EXTENDED && !extendedMatches(b, p)) return false;
    if (b.dscp != DSCP_NOT_GIVEN && b.dscp != p.tos >> 2) return false;
    if (b.fragments == 1 && !p.laterFragment) return false;
    return !ipEntryIsL2L3(b);  // which are about frames, not about IPv4 packets
}

// --- an entry as masked words ------------------------------------------------------------------

// Word 0 is source and destination, word 1 has the other fields side by side. ICMP type and code
// stand in the places of the ports: no rule asks for either without asking for its protocol.
struct ipShape {
    static constexpr size_t words = 2;
    static constexpr matchLevel levels[] = {
        {0, 0xFFFFFFFF00000000}, {0, 0x00000000FFFFFFFF}, {1, 0xFFFFFFFFFFFFFFFF}};
};
typedef matchRule<ipShape> ipRule;

struct wordField {
    unsigned at, width;
    constexpr uint64_t all() const { return (uint64_t{1} << width) - 1; }
};
constexpr wordField F_TOS_BYTE = {0, 8}, F_TOS = {1, 4}, F_DSCP = {2, 6}, F_PRECEDENCE = {5, 3};
constexpr wordField F_PROTOCOL = {8, 8}, F_TCP_FLAGS = {16, 8}, F_LATER_FRAGMENT = {24, 1};
constexpr wordField F_SRC_PORT = {32, 16}, F_DST_PORT = {48, 16};

// Asks for the masked bits of a field. What does not go into the words (a value that the field
// cannot have, two demands on one bit) is left to the test of the whole entry.
void ask(ipRule* rule, wordField field, uint64_t value, uint64_t mask) {
    uint64_t bits = mask << field.at, wanted = value << field.at;
    if (value > field.all() || ((rule->value[1] ^ wanted) & rule->mask[1] & bits) != 0) {
        rule->exact = false;
        return;
    }
    rule->value[1] |= wanted & bits;
    rule->mask[1] |= bits;
}
void ask(ipRule* rule, wordField field, uint64_t value) {
    ask(rule, field, value, field.all());
}

// Of the ports from low to high the upper bits that all of them share.
void askPort(ipRule* rule, wordField field, uint32_t op, uint16_t low, uint16_t high) {
    struct {
        uint32_t low, high;
    } const ranges[] = {{0, 0xFFFF},   {low, low}, {low + 1u, 0xFFFF},
                        {0, low - 1u}, {1, 0},     {low, high}};
    static_assert(std::size(ranges) == PORT_RANGE + 1);
    auto [first, last] = ranges[op < std::size(ranges) ? op : PORT_NEQ];
    if (first > last || last > 0xFFFF) {  // nothing, or not one run of ports
        rule->exact = false;
        return;
    }
    uint32_t free = std::bit_ceil((first ^ last) + 1) - 1;
    ask(rule, field, first & ~free, field.all() & ~free);
    if (last - first != free) rule->exact = false;
}

void askPayload(ipRule* rule, const ipEntryBlock& b) {
    bool ports = b.protocol == IP_PROTO_TCP || b.protocol == IP_PROTO_UDP;
    uint8_t flags = b.protocol == IP_PROTO_TCP ? b.tcpFlags : 0;
    if (b.protocol == IP_PROTO_ICMP && (b.icmp.typeGiven != 0 || b.icmp.codeGiven != 0)) {
        if (b.icmp.typeGiven != 0) ask(rule, F_SRC_PORT, b.icmp.type);
        if (b.icmp.codeGiven != 0) ask(rule, F_DST_PORT, b.icmp.code);
    } else if (ports && (b.srcOperator != PORT_NONE || b.dstOperator != PORT_NONE || flags != 0)) {
        askPort(rule, F_SRC_PORT, b.srcOperator, b.srcLow, b.srcHigh);
        askPort(rule, F_DST_PORT, b.dstOperator, b.dstLow, b.dstHigh);
        uint8_t all = flags & static_cast<uint8_t>(~TCP_ESTABLISHED);
        ask(rule, F_TCP_FLAGS, all, all);
        if (flags != all) rule->exact = false;
    } else {
        return;
    }
    ask(rule, F_LATER_FRAGMENT, 0);
}

ipRule ruleOf(const aclEntry* entry) {
    const ipEntryBlock& b = entry->block;
    ipRule rule{{}, {}, const_cast<aclEntry*>(entry), b.seq, true};
    rule.mask[0] = uint64_t{b.srcMask} << 32;
    if (b.dscp != DSCP_NOT_GIVEN) ask(&rule, F_DSCP, b.dscp);
    if (b.fragments == 1) ask(&rule, F_LATER_FRAGMENT, 1);
    if (b.kind == IP_KIND_EXTENDED) {
        rule.mask[0] |= b.dstMask;
        if (b.protocol != IP_PROTO_ANY || b.protoMarker != 0) ask(&rule, F_PROTOCOL, b.protocol);
        if (b.precedence != FIELD_NOT_GIVEN) ask(&rule, F_PRECEDENCE, b.precedence);
        if (b.tos != FIELD_NOT_GIVEN) ask(&rule, F_TOS, b.tos);
        askPayload(&rule, b);
    }
    rule.value[0] = (uint64_t{b.src} << 32 | b.dst) & rule.mask[0];
    return rule;
}

uint64_t fieldsOf(const ipPacket& p) {
    bool icmp = p.protocol == IP_PROTO_ICMP;
    uint64_t first = icmp ? p.icmpType : p.srcPort, second = icmp ? p.icmpCode : p.dstPort;
    return uint64_t{p.tos} << F_TOS_BYTE.at | uint64_t{p.protocol} << F_PROTOCOL.at |
           uint64_t{p.tcpFlags} << F_TCP_FLAGS.at |
           uint64_t{p.laterFragment} << F_LATER_FRAGMENT.at | first << F_SRC_PORT.at |
           second << F_DST_PORT.at;
}

// --- the index ---------------------------------------------------------------------------------

bool isAscending(const aclList* list) {
    const aclEntry* before = nullptr;
    for (const aclEntry& entry : entriesOf<const aclEntry>(list->head)) {
        if (before != nullptr && before->block.seq >= entry.block.seq) return false;
        before = &entry;
    }
    return true;
}

bool insert(aclList* list, const aclEntry* entry) {
    // An entry about frames decides over no packet.
    return ipEntryIsL2L3(entry->block) || matchInsert(&list->filterIndex, ruleOf(entry));
}

void build(aclList* list) {
    if (!isAscending(list)) return;
    for (const aclEntry& entry : entriesOf<const aclEntry>(list->head))
        if (!insert(list, &entry)) {
            ipFilterIndexDrop(list);
            return;
        }
}

}  // namespace

void ipFilterIndexAdd(aclList* list, aclEntry* entry) {
    if (list->filterIndex != nullptr) {
        if (!insert(list, entry)) ipFilterIndexDrop(list);
    } else if (list->count >= FILTER_INDEX_FROM &&
               std::has_single_bit(static_cast<uint32_t>(list->count))) {
        build(list);
    }
}

void ipFilterIndexRemove(aclList* list, const aclEntry* entry) {
    if (list->filterIndex != nullptr && !ipEntryIsL2L3(entry->block))
        matchRemove(&list->filterIndex, ruleOf(entry));
}

void ipFilterIndexRenumber(aclList* list) {
    if (list->filterIndex == nullptr) return;
    if (isAscending(list))
        matchReorder<ipShape>(list->filterIndex, [](const void* record) -> uint32_t {
            return static_cast<const aclEntry*>(record)->block.seq;
        });
    else
        ipFilterIndexDrop(list);
}

void ipFilterIndexDrop(aclList* list) {
    matchFree(list->filterIndex);
    list->filterIndex = nullptr;
}

aclEntry* ipFilterFind(const aclList* list, const ipPacket& packet) {
    if (list == nullptr) return nullptr;
    if (list->filterIndex != nullptr) {
        const uint64_t words[] = {uint64_t{packet.src} << 32 | packet.dst, fieldsOf(packet)};
        matchFound best;
        matchSearch<ipShape>(
            list->filterIndex, words,
            [&](const void* record) {
                return entryMatches(static_cast<const aclEntry*>(record)->block, packet);
            },
            &best);
        return static_cast<aclEntry*>(best.record);
    }
    for (aclEntry& entry : entriesOf<aclEntry>(list->head))
        if (entryMatches(entry.block, packet)) return &entry;
    return nullptr;
}

ipVerdict ipFilterCheck(const aclList* list, const ipPacket& packet, const aclEntry** decided) {
    aclEntry* entry = ipFilterFind(list, packet);
    if (decided != nullptr) *decided = entry;
    if (entry == nullptr) return FILTER_DENY;
    // Read first: nothing behind the counting starts before it is done.
    ipVerdict verdict = entry->block.action == IP_DENY ? FILTER_DENY : FILTER_PERMIT;
    hitCountAdd(entry->matchCount);
    return verdict;
}
