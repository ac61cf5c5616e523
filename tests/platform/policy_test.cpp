// IPv4 list evaluation against verdicts stated by hand.
#include "match/zekPolicy.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <random>
#include <vector>

#include "match/matchTable.h"

namespace {

constexpr uint32_t HOST = 0x0A010203, OTHER = 0xC0000201;
constexpr uint32_t EST = TCP_ESTABLISHED;

ipPacket first(uint8_t protocol) {
    const auto syn = protocol == IP_PROTO_TCP ? uint8_t{TCP_SYN} : uint8_t{0};
    return {HOST, OTHER, protocol, 0, syn, 0, 0, 1024, 80, false};
}
ipPacket later(uint8_t protocol) {
    return {HOST, OTHER, protocol, 0, 0, 0, 0, 0, 0, true};
}
const ipPacket tcp = first(IP_PROTO_TCP), udp = first(IP_PROTO_UDP), icmp = first(IP_PROTO_ICMP);
template <auto field>
constexpr auto with = [](uint16_t value, ipPacket p = tcp) {
    p.*field = static_cast<std::remove_reference_t<decltype(p.*field)>>(value);
    return p;
};
constexpr auto dport = with<&ipPacket::dstPort>;
constexpr auto sport = with<&ipPacket::srcPort>;
constexpr auto tos = with<&ipPacket::tos>;
constexpr auto flags = with<&ipPacket::tcpFlags>;
ipPacket from(uint32_t source) {
    ipPacket p = tcp;
    p.src = source;
    return p;
}
ipPacket icmpOf(uint16_t type, uint16_t code) {
    return with<&ipPacket::icmpType>(type, with<&ipPacket::icmpCode>(code, icmp));
}

void is(ipEntryBlock& b, uint8_t protocol, uint32_t marker = 1) {
    b.protocol = protocol, b.protoMarker = marker;
}
void to(ipEntryBlock& b, uint32_t op, uint16_t low, uint16_t high = 0) {
    is(b, IP_PROTO_TCP);
    b.dstOperator = op, b.dstLow = low, b.dstHigh = high;
}
void hasFlags(ipEntryBlock& b, uint32_t wanted, uint8_t protocol = IP_PROTO_TCP) {
    is(b, protocol);
    b.tcpFlags = static_cast<uint8_t>(wanted);
}
void asks(ipEntryBlock& b, uint8_t type, uint8_t given, uint8_t code, uint8_t codeGiven) {
    is(b, IP_PROTO_ICMP);
    b.icmp = {type, given, code, codeGiven};
}

// What an entry says beside "any", and which packets it matches and which not.
struct row {
    void (*say)(ipEntryBlock& b);
    std::vector<ipPacket> matching, others;
};
const row extended[] = {
    {[](auto&) {}, {tcp, later(IP_PROTO_TCP)}, {}},
    {[](auto& b) { b.src = 0x0A010200, b.srcMask = 0xFFFFFF00; }, {tcp}, {from(0x0A010303)}},
    // What the mask leaves out does not count.
    {[](auto& b) { b.src = 0x0A010277, b.srcMask = 0xFFFFFF00; }, {tcp}, {}},
    {[](auto& b) { b.src = 0x0AFF0203, b.srcMask = 0xFF00FFFF; }, {tcp}, {}},
    {[](auto& b) { b.dst = OTHER, b.dstMask = ~0u; }, {tcp}, {}},
    {[](auto& b) { b.dst = HOST, b.dstMask = ~0u; }, {}, {tcp}},

    {[](auto& b) { is(b, 4, 0); }, {udp}, {}},  // without the marker it is any, with it itself
    {[](auto& b) { is(b, 4); }, {}, {udp}},
    {[](auto& b) { is(b, IP_PROTO_UDP); }, {udp, later(IP_PROTO_UDP)}, {tcp}},
    {[](auto& b) { is(b, 0, 0); }, {}, {tcp}},

    {[](auto& b) { to(b, PORT_EQ, 80); }, {tcp}, {dport(79), dport(81)}},
    {[](auto& b) { to(b, PORT_GT, 80); }, {dport(81)}, {tcp, dport(79)}},
    {[](auto& b) { to(b, PORT_LT, 80); }, {dport(79)}, {tcp, dport(81)}},
    {[](auto& b) { to(b, PORT_NEQ, 80); }, {dport(79), dport(81)}, {tcp, later(IP_PROTO_TCP)}},
    {[](auto& b) { to(b, PORT_RANGE, 80, 81); }, {tcp, dport(81)}, {dport(79), dport(82)}},
    {[](auto& b) { to(b, PORT_RANGE, 90, 70); }, {}, {tcp, dport(70), dport(90)}},
    {[](auto& b) { to(b, 6, 80); }, {}, {tcp}},  // no such operator
    {[](auto& b) { is(b, 17), b.srcOperator = PORT_EQ, b.srcLow = 1024; }, {udp}, {sport(80, udp)}},
    {[](auto& b) { b.dstOperator = PORT_EQ, b.dstLow = 1; }, {tcp}, {}},  // without ports

    {[](auto& b) { is(b, IP_PROTO_TCP); }, {later(IP_PROTO_TCP)}, {}},
    {[](auto& b) { hasFlags(b, EST); }, {flags(TCP_ACK), flags(TCP_RST)}, {tcp, later(6)}},
    {[](auto& b) { hasFlags(b, TCP_SYN | TCP_ACK); }, {flags(TCP_SYN | TCP_ACK | TCP_PSH)}, {tcp}},
    {[](auto& b) { hasFlags(b, EST | TCP_PSH); }, {}, {flags(TCP_ACK)}},
    {[](auto& b) { hasFlags(b, TCP_SYN, IP_PROTO_UDP); }, {udp}, {}},

    // Type and code, each with its mark; type 0 is one, too.
    {[](auto& b) { asks(b, 3, 1, 1, 1); }, {icmpOf(3, 1)}, {icmpOf(3, 2)}},
    {[](auto& b) { asks(b, 3, 1, 1, 0); }, {icmpOf(3, 2)}, {icmpOf(8, 0)}},
    {[](auto& b) { asks(b, 0, 1, 0, 0); }, {icmp}, {icmpOf(8, 0), later(1)}},
    {[](auto& b) { is(b, IP_PROTO_ICMP); }, {icmpOf(8, 0), later(IP_PROTO_ICMP)}, {}},

    {[](auto& b) { b.precedence = 5; }, {tos(0xBF)}, {tos(0xC0)}},
    {[](auto& b) { b.precedence = 0; }, {tcp}, {tos(0x20)}},
    {[](auto& b) { b.tos = 12; }, {tos(0xF9)}, {tos(0x10)}},
    {[](auto& b) { b.dscp = 46; }, {tos(0xBB)}, {tos(0xB4)}},
    {[](auto& b) { b.dscp = 0; }, {tcp}, {tos(4)}},
    {[](auto& b) { b.fragments = 1; }, {later(IP_PROTO_TCP)}, {tcp}},
    {[](auto& b) { to(b, PORT_EQ, 0), b.fragments = 1; }, {}, {tcp, later(IP_PROTO_TCP)}},

    {[](auto& b) { b.etherType = 0x800; }, {}, {tcp}},  // about frames
    {[](auto& b) { b.arpMarker = 1; }, {}, {tcp}},
};
const row standard[] = {
    {[](auto& b) { to(b, PORT_EQ, 1), b.dst = HOST, b.dstMask = ~0u; }, {tcp, udp}, {}},
    {[](auto& b) { b.precedence = 7, b.tos = 15; }, {tcp}, {}},
    {[](auto& b) { b.src = OTHER, b.srcMask = ~0u; }, {}, {tcp}},
    {[](auto& b) { b.dscp = 46; }, {tos(0xB8)}, {tos(0xB4)}},
    {[](auto& b) { b.fragments = 1; }, {later(IP_PROTO_TCP)}, {tcp}},
};

struct chain {
    std::deque<aclEntry> entries;
    aclList list{};
    void add(uint32_t kind, uint32_t action, const row& r) {
        aclEntry* entry = &entries.emplace_back();
        ipEntryBlock& b = entry->block;
        b.kind = kind;
        b.action = action;
        b.protocol = IP_PROTO_ANY;
        b.precedence = b.tos = FIELD_NOT_GIVEN;
        b.order = ORDER_NOT_GIVEN;
        b.dscp = DSCP_NOT_GIVEN;
        r.say(b);
        entry->prev = list.tail;
        (list.tail != nullptr ? list.tail->next : list.head) = entry;
        list.tail = entry;
    }
    void expect(const ipPacket& packet, ipVerdict verdict, const aclEntry* by) const {
        const aclEntry* decided = nullptr;
        EXPECT_EQ(ipFilterCheck(&list, packet, &decided), verdict);
        EXPECT_EQ(decided, by);
    }
};

TEST(ipFilter, EachFieldDecidesAsItIsWritten) {
    auto check = [](std::span<const row> rows, uint32_t kind) {
        for (const row& r : rows)
            for (uint32_t action : {0u, 1u, 2u}) {  // any but deny permits
                SCOPED_TRACE("kind " + std::to_string(kind) + " row " +
                             std::to_string(&r - rows.data()));
                chain c;
                c.add(kind, action, r);
                const ipVerdict verdict = action != IP_DENY ? FILTER_PERMIT : FILTER_DENY;
                for (const ipPacket& p : r.matching) c.expect(p, verdict, c.list.head);
                for (const ipPacket& p : r.others) c.expect(p, FILTER_DENY, nullptr);
            }
    };
    check(extended, IP_KIND_EXTENDED);
    check(standard, IP_KIND_STANDARD);
}

TEST(ipFilter, TheFirstMatchDecidesAndNoMatchIsDenied) {
    chain c, empty;
    c.add(IP_KIND_EXTENDED, IP_PERMIT, {[](auto& b) { to(b, PORT_EQ, 443); }, {}, {}});
    for (uint32_t action : {IP_DENY, IP_PERMIT}) c.add(IP_KIND_STANDARD, action, extended[1]);
    c.expect(tcp, FILTER_DENY, c.list.head->next);
    c.expect(dport(443), FILTER_PERMIT, c.list.head);
    c.expect(from(OTHER), FILTER_DENY, nullptr);
    empty.expect(tcp, FILTER_DENY, nullptr);
    EXPECT_EQ(ipFilterCheck(nullptr, tcp, nullptr), FILTER_DENY);
}

// Keys that crowd at few homes, so that erasing one moves others and shares its mark with them.
TEST(MatchTable, HoldsWhatAMapHolds) {
    std::mt19937 random(3);
    std::map<uint64_t, void*> expected;
    matchTable table{};
    auto anyKey = [&] { return uint64_t{random() % 96} << (random() % 2 * 32); };
    for (int step = 0; step < 20000; step++) {
        const uint64_t key = anyKey();
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
            const uint64_t other = anyKey();
            ASSERT_EQ(matchTableFind(table, other) != nullptr, expected.contains(other)) << step;
        }
    }
    matchTableFree(&table);
}

}  // namespace
