// IPv4 list evaluation against verdicts stated by hand.
#include "match/zekPolicy.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <random>

#include "match/matchTable.h"

namespace {

constexpr uint32_t NET = 0x0A010200, HOST = 0x0A010203, OTHER = 0xC0000201;

ipEntryBlock any(uint32_t kind = IP_KIND_EXTENDED, uint32_t action = IP_PERMIT) {
    ipEntryBlock b{};
    b.kind = kind;
    b.action = action;
    b.protocol = IP_PROTO_ANY;
    b.precedence = b.tos = FIELD_NOT_GIVEN;
    b.order = ORDER_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    return b;
}
ipPacket tcp(uint8_t flags = TCP_SYN) {
    return {.src = HOST,
            .dst = OTHER,
            .protocol = IP_PROTO_TCP,
            .tos = 0,
            .tcpFlags = flags,
            .icmpType = 0,
            .icmpCode = 0,
            .srcPort = 1024,
            .dstPort = 80,
            .laterFragment = false};
}
ipPacket later(ipPacket p) {
    p.srcPort = p.dstPort = p.tcpFlags = p.icmpType = p.icmpCode = 0;
    p.laterFragment = true;
    return p;
}
ipPacket udp() {
    ipPacket p = tcp(0);
    p.protocol = IP_PROTO_UDP;
    return p;
}
ipPacket icmp(uint8_t type, uint8_t code) {
    ipPacket p = tcp(0);
    p.protocol = IP_PROTO_ICMP;
    p.srcPort = p.dstPort = 0;
    p.icmpType = type;
    p.icmpCode = code;
    return p;
}
ipPacket withTos(uint8_t tos) {
    ipPacket p = tcp();
    p.tos = tos;
    return p;
}

typedef std::function<void(ipEntryBlock&)> setter;
setter proto(uint8_t protocol, uint32_t marker = 1) {
    return [=](ipEntryBlock& b) { b.protocol = protocol, b.protoMarker = marker; };
}
setter dport(uint32_t op, uint16_t low, uint16_t high = 0) {
    return [=](ipEntryBlock& b) {
        b.protocol = IP_PROTO_TCP;
        b.dstOperator = op, b.dstLow = low, b.dstHigh = high;
    };
}
setter flags(uint8_t wanted) {
    return [=](ipEntryBlock& b) { b.protocol = IP_PROTO_TCP, b.tcpFlags = wanted; };
}
setter icmpIs(uint8_t type, bool typeGiven, uint8_t code, bool codeGiven) {
    return [=](ipEntryBlock& b) {
        b.protocol = IP_PROTO_ICMP;
        b.icmp = {type, typeGiven, code, codeGiven};
    };
}

struct row {
    const char* what;
    uint32_t kind;
    setter set;  // one entry: everything is any but what this sets
    ipPacket packet;
    bool matches;
};
constexpr uint32_t STD = IP_KIND_STANDARD, EXT = IP_KIND_EXTENDED;
const row rows[] = {
    {"any matches", EXT, [](auto&) {}, tcp(), true},
    {"any matches a later fragment", EXT, [](auto&) {}, later(tcp()), true},
    {"a source below the mask", EXT, [](auto& b) { b.src = NET, b.srcMask = 0xFFFFFF00; }, tcp(),
     true},
    {"a source outside", EXT, [](auto& b) { b.src = NET + 256, b.srcMask = 0xFFFFFF00; }, tcp(),
     false},
    {"bits outside the mask in the entry do not count", EXT,
     [](auto& b) { b.src = NET + 77, b.srcMask = 0xFFFFFF00; }, tcp(), true},
    {"a mask with a hole", EXT, [](auto& b) { b.src = 0x0AFF0203, b.srcMask = 0xFF00FFFF; }, tcp(),
     true},
    {"another destination", EXT, [](auto& b) { b.dst = HOST, b.dstMask = 0xFFFFFFFF; }, tcp(),
     false},
    {"the destination", EXT, [](auto& b) { b.dst = OTHER, b.dstMask = 0xFFFFFFFF; }, tcp(), true},
    {"standard: the source only", STD,
     [](auto& b) {
         b.dst = HOST, b.dstMask = 0xFFFFFFFF, b.protocol = IP_PROTO_UDP, b.dstOperator = PORT_EQ;
         b.precedence = 7, b.tos = 15;
     },
     tcp(), true},
    {"standard: another source", STD, [](auto& b) { b.src = OTHER, b.srcMask = 0xFFFFFFFF; }, tcp(),
     false},
    {"standard: the dscp", STD, [](auto& b) { b.dscp = 46; }, withTos(46 << 2), true},
    {"standard: another dscp", STD, [](auto& b) { b.dscp = 46; }, withTos(45 << 2), false},
    {"standard: fragments, a first one", STD, [](auto& b) { b.fragments = 1; }, tcp(), false},
    {"standard: fragments, a later one", STD, [](auto& b) { b.fragments = 1; }, later(tcp()), true},

    {"protocol 4 without the marker is any", EXT, proto(4, 0), udp(), true},
    {"protocol 4 with the marker is itself", EXT, proto(4, 1), udp(), false},
    {"the protocol", EXT, proto(IP_PROTO_UDP), udp(), true},
    {"another protocol", EXT, proto(IP_PROTO_UDP), tcp(), false},
    {"protocol 0 is itself", EXT, proto(0, 0), tcp(), false},

    {"eq", EXT, dport(PORT_EQ, 80), tcp(), true},
    {"eq another", EXT, dport(PORT_EQ, 81), tcp(), false},
    {"gt below", EXT, dport(PORT_GT, 79), tcp(), true},
    {"gt itself", EXT, dport(PORT_GT, 80), tcp(), false},
    {"lt above", EXT, dport(PORT_LT, 81), tcp(), true},
    {"lt itself", EXT, dport(PORT_LT, 80), tcp(), false},
    {"neq another", EXT, dport(PORT_NEQ, 81), tcp(), true},
    {"neq itself", EXT, dport(PORT_NEQ, 80), tcp(), false},
    {"range from it", EXT, dport(PORT_RANGE, 80, 90), tcp(), true},
    {"range to it", EXT, dport(PORT_RANGE, 70, 80), tcp(), true},
    {"range above", EXT, dport(PORT_RANGE, 81, 90), tcp(), false},
    {"a range backwards holds nothing", EXT, dport(PORT_RANGE, 90, 70), tcp(), false},
    {"an operator that does not exist", EXT, dport(6, 80), tcp(), false},
    {"neq, a later fragment has no port", EXT, dport(PORT_NEQ, 81), later(tcp()), false},
    {"the source port", EXT,
     [](auto& b) { b.protocol = IP_PROTO_UDP, b.srcOperator = PORT_EQ, b.srcLow = 1024; }, udp(),
     true},
    {"another source port", EXT,
     [](auto& b) { b.protocol = IP_PROTO_UDP, b.srcOperator = PORT_EQ, b.srcLow = 80; }, udp(),
     false},
    {"udp without ports, a later fragment", EXT, proto(IP_PROTO_UDP), later(udp()), true},
    {"port fields of a protocol without ports", EXT,
     [](auto& b) { b.protocol = IP_PROTO_ANY, b.dstOperator = PORT_EQ, b.dstLow = 1; }, tcp(),
     true},

    {"established by ack", EXT, flags(TCP_ESTABLISHED), tcp(TCP_ACK), true},
    {"established by rst", EXT, flags(TCP_ESTABLISHED), tcp(TCP_RST), true},
    {"established, a first segment", EXT, flags(TCP_ESTABLISHED), tcp(TCP_SYN), false},
    {"all flags must be there", EXT, flags(TCP_SYN | TCP_ACK), tcp(TCP_SYN), false},
    {"and others may be", EXT, flags(TCP_SYN | TCP_ACK), tcp(TCP_SYN | TCP_ACK | TCP_PSH), true},
    {"established and psh, without psh", EXT, flags(TCP_ESTABLISHED | TCP_PSH), tcp(TCP_ACK),
     false},
    {"flags, a later fragment", EXT, flags(TCP_ESTABLISHED), later(tcp()), false},
    {"tcp without flags, a later fragment", EXT, proto(IP_PROTO_TCP), later(tcp()), true},
    {"udp has no flags to ask for", EXT,
     [](auto& b) { b.protocol = IP_PROTO_UDP, b.tcpFlags = TCP_SYN; }, udp(), true},

    {"icmp type and code", EXT, icmpIs(3, true, 1, true), icmp(3, 1), true},
    {"icmp another code", EXT, icmpIs(3, true, 1, true), icmp(3, 2), false},
    {"icmp any code", EXT, icmpIs(3, true, 1, false), icmp(3, 2), true},
    {"icmp another type", EXT, icmpIs(3, true, 0, false), icmp(8, 0), false},
    {"icmp type 0 when it is given", EXT, icmpIs(0, true, 0, false), icmp(8, 0), false},
    {"icmp type 0 when it is not", EXT, icmpIs(0, false, 0, false), icmp(8, 0), true},
    {"icmp type, a later fragment", EXT, icmpIs(0, true, 0, false), later(icmp(0, 0)), false},
    {"icmp alone, a later fragment", EXT, icmpIs(0, false, 0, false), later(icmp(0, 0)), true},

    {"precedence", EXT, [](auto& b) { b.precedence = 5; }, withTos(5 << 5 | 0x1F), true},
    {"another precedence", EXT, [](auto& b) { b.precedence = 5; }, withTos(6 << 5), false},
    {"precedence 0 is given", EXT, [](auto& b) { b.precedence = 0; }, withTos(0x20), false},
    {"tos", EXT, [](auto& b) { b.tos = 12; }, withTos(0xE0 | 12 << 1 | 1), true},
    {"another tos", EXT, [](auto& b) { b.tos = 12; }, withTos(8 << 1), false},
    {"dscp", EXT, [](auto& b) { b.dscp = 46; }, withTos(46 << 2 | 3), true},
    {"dscp 0 is given", EXT, [](auto& b) { b.dscp = 0; }, withTos(4), false},
    {"fragments, the first one", EXT, [](auto& b) { b.fragments = 1; }, tcp(), false},
    {"fragments, a later one", EXT, [](auto& b) { b.fragments = 1; }, later(tcp()), true},
    {"fragments and a port match nothing", EXT,
     [](auto& b) { dport(PORT_EQ, 0)(b), b.fragments = 1; }, later(tcp()), false},

    {"an ether-type entry is about frames", EXT, [](auto& b) { b.etherType = 0x800; }, tcp(),
     false},
    {"an arp entry is about frames", EXT, [](auto& b) { b.arpMarker = 1; }, tcp(), false},
};

struct chain {
    std::deque<aclEntry> entries;
    aclList list{};
    void add(const ipEntryBlock& block) {
        aclEntry* entry = &entries.emplace_back();
        entry->block = block;
        entry->prev = list.tail;
        (list.tail != nullptr ? list.tail->next : list.head) = entry;
        list.tail = entry;
    }
};

TEST(ipFilter, EachFieldDecidesAsItIsWritten) {
    for (const row& r : rows)
        for (uint32_t action : {IP_PERMIT, IP_DENY, static_cast<ipAction>(2)}) {
            SCOPED_TRACE(r.what);
            chain c;
            ipEntryBlock block = any(r.kind, action);
            r.set(block);
            c.add(block);
            const aclEntry* decided = nullptr;
            bool permits = r.matches && action != IP_DENY;  // any value but deny permits
            EXPECT_EQ(ipFilterCheck(&c.list, r.packet, &decided),
                      permits ? FILTER_PERMIT : FILTER_DENY);
            EXPECT_EQ(decided, r.matches ? c.list.head : nullptr);
        }
}

TEST(ipFilter, TheFirstMatchDecidesAndNoMatchIsDenied) {
    chain c;
    ipEntryBlock block = any();
    dport(PORT_EQ, 443)(block);
    c.add(block);
    block = any(IP_KIND_STANDARD, IP_DENY);
    block.src = NET;
    block.srcMask = 0xFFFFFF00;
    c.add(block);
    block.action = IP_PERMIT;
    c.add(block);
    const aclEntry* decided = nullptr;
    EXPECT_EQ(ipFilterCheck(&c.list, tcp(), &decided), FILTER_DENY);
    EXPECT_EQ(decided, c.list.head->next);
    ipPacket https = tcp();
    https.dstPort = 443;
    EXPECT_EQ(ipFilterCheck(&c.list, https, &decided), FILTER_PERMIT);
    EXPECT_EQ(decided, c.list.head);
    ipPacket stranger = tcp();
    stranger.src = OTHER;
    EXPECT_EQ(ipFilterCheck(&c.list, stranger, &decided), FILTER_DENY);
    EXPECT_EQ(decided, nullptr);
    EXPECT_EQ(ipFilterCheck(nullptr, tcp(), nullptr), FILTER_DENY);
    chain empty;
    EXPECT_EQ(ipFilterCheck(&empty.list, tcp(), nullptr), FILTER_DENY);
}

// Keys that crowd at few homes, so that erasing one moves others and shares its mark with them.
TEST(MatchTable, HoldsWhatAMapHolds) {
    std::mt19937 random(3);
    std::map<uint64_t, void*> expected;
    matchTable table{};
    for (int step = 0; step < 20000; step++) {
        uint64_t key = uint64_t{random() % 96} << (random() % 2 * 32);
        if (random() % 2 == 0) {
            void** item = matchTableAt(&table, key);
            ASSERT_NE(item, nullptr);
            ASSERT_EQ(*item, expected.contains(key) ? expected[key] : nullptr);
            *item = expected[key] = &expected;
        } else if (expected.erase(key) != 0) {
            matchTableErase(&table, key);
        }
        ASSERT_EQ(table.used, expected.size());
        for (int i = 0; i < 8 && table.slots != nullptr; i++) {
            uint64_t other = uint64_t{random() % 96} << (random() % 2 * 32);
            ASSERT_EQ(matchTableFind(table, other) != nullptr, expected.contains(other)) << step;
        }
    }
    matchTableFree(&table);
}

}  // namespace
