// IPv4 list evaluation against verdicts stated by hand: what a walk over the entries says. That an
// index says the same, whatever the entries, is tested with the stores that have one.
#include "match/zekPolicy.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr uint32_t HOST = 0x0A010203, OTHER = 0xC0000201;
constexpr uint32_t EST = TCP_ESTABLISHED;

const ipPacket tcp{HOST, OTHER, IP_PROTO_TCP, 0, TCP_SYN, 0, 0, 1024, 80, false};
const ipPacket udp{HOST, OTHER, IP_PROTO_UDP, 0, 0, 0, 0, 1024, 80, false};
const ipPacket later{HOST, OTHER, IP_PROTO_TCP, 0, 0, 0, 0, 0, 0, true};
ipPacket icmp(uint8_t type, uint8_t code) {
    return {HOST, OTHER, IP_PROTO_ICMP, 0, 0, type, code, 0, 0, false};
}
template <auto field>
constexpr auto with = [](uint32_t value) {
    ipPacket p = tcp;
    p.*field = static_cast<std::remove_reference_t<decltype(p.*field)>>(value);
    return p;
};
constexpr auto from = with<&ipPacket::src>;
constexpr auto dport = with<&ipPacket::dstPort>;
constexpr auto tos = with<&ipPacket::tos>;
constexpr auto flags = with<&ipPacket::tcpFlags>;

void is(ipEntryBlock& b, uint8_t protocol, uint32_t marker = 1) {
    b.protocol = protocol, b.protoMarker = marker;
}
void to(ipEntryBlock& b, uint32_t op, uint16_t low, uint16_t high = 0) {
    is(b, IP_PROTO_TCP);
    b.dstOperator = op, b.dstLow = low, b.dstHigh = high;
}
void hasFlags(ipEntryBlock& b, uint32_t wanted) {
    is(b, IP_PROTO_TCP);
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
    uint32_t kind = IP_KIND_EXTENDED;
};
const row rows[] = {
    {[](auto&) {}, {tcp, later}, {}},
    // What the mask leaves out does not count.
    {[](auto& b) { b.src = 0x0A010277, b.srcMask = 0xFFFFFF00; }, {tcp}, {from(0x0A010303)}},
    {[](auto& b) { b.dst = HOST, b.dstMask = ~0u; }, {}, {tcp}},

    {[](auto& b) { is(b, 4, 0); }, {udp}, {}},  // without the marker it is any, with it itself
    {[](auto& b) { is(b, 4); }, {}, {udp}},
    {[](auto& b) { is(b, 0, 0); }, {}, {tcp}},

    {[](auto& b) { to(b, PORT_EQ, 80); }, {tcp}, {dport(79), dport(81)}},
    {[](auto& b) { to(b, PORT_GT, 80); }, {dport(81)}, {tcp, dport(79)}},
    {[](auto& b) { to(b, PORT_LT, 80); }, {dport(79)}, {tcp, dport(81)}},
    {[](auto& b) { to(b, PORT_NEQ, 80); }, {dport(79), dport(81)}, {tcp, later}},
    {[](auto& b) { to(b, PORT_RANGE, 80, 81); }, {tcp, dport(81)}, {dport(79), dport(82)}},
    {[](auto& b) { to(b, PORT_RANGE, 90, 70); }, {}, {tcp, dport(70), dport(90)}},
    {[](auto& b) { to(b, 6, 80); }, {}, {tcp}},                           // no such operator
    {[](auto& b) { b.dstOperator = PORT_EQ, b.dstLow = 1; }, {tcp}, {}},  // without ports

    {[](auto& b) { hasFlags(b, EST); }, {flags(TCP_ACK), flags(TCP_RST)}, {tcp, later}},
    {[](auto& b) { hasFlags(b, TCP_SYN | TCP_ACK); }, {flags(TCP_SYN | TCP_ACK | TCP_PSH)}, {tcp}},
    {[](auto& b) { hasFlags(b, EST | TCP_PSH); }, {}, {flags(TCP_ACK)}},

    // Type and code, each with its mark; type 0 is one, too.
    {[](auto& b) { asks(b, 3, 1, 1, 1); }, {icmp(3, 1)}, {icmp(3, 2)}},
    {[](auto& b) { asks(b, 0, 1, 0, 0); }, {icmp(0, 7)}, {icmp(8, 0)}},

    {[](auto& b) { b.precedence = 5; }, {tos(0xBF)}, {tos(0xC0)}},
    {[](auto& b) { b.tos = 12; }, {tos(0xF9)}, {tos(0x10)}},
    {[](auto& b) { b.dscp = 0; }, {tcp}, {tos(4)}},
    {[](auto& b) { b.fragments = 1; }, {later}, {tcp}},
    {[](auto& b) { to(b, PORT_EQ, 0), b.fragments = 1; }, {}, {tcp, later}},
    {[](auto& b) { b.etherType = 0x800; }, {}, {tcp}},  // about frames
    {[](auto& b) { b.arpMarker = 1; }, {}, {tcp}},

    {[](auto& b) { to(b, PORT_EQ, 1), b.dst = HOST, b.dstMask = ~0u; },
     {udp},
     {},
     IP_KIND_STANDARD},
    {[](auto& b) { b.precedence = 7, b.tos = 15; }, {tcp}, {}, IP_KIND_STANDARD},
    {[](auto& b) { b.src = OTHER, b.srcMask = ~0u; }, {}, {tcp}, IP_KIND_STANDARD},
    {[](auto& b) { b.dscp = 46, b.fragments = 1; }, {}, {tos(0xB8), later}, IP_KIND_STANDARD},
};

TEST(ipFilter, TheFirstMatchDecidesByEachFieldAndNoMatchIsDenied) {
    for (const row& r : rows)
        for (uint32_t action : {0u, 1u, 2u}) {  // any but deny permits
            SCOPED_TRACE("row " + std::to_string(&r - rows));
            aclEntry entries[2]{};
            for (aclEntry& e : entries) {
                e.block.kind = r.kind;
                e.block.action = &e == entries ? action : 2 - action;
                e.block.protocol = IP_PROTO_ANY;
                e.block.precedence = e.block.tos = FIELD_NOT_GIVEN;
                e.block.order = ORDER_NOT_GIVEN;
                e.block.dscp = DSCP_NOT_GIVEN;
                r.say(e.block);
            }
            aclList list{};
            list.head = entries;
            list.tail = entries[0].next = entries + 1;
            auto expect = [&](const ipPacket& packet, ipVerdict verdict, const aclEntry* by) {
                const aclEntry* decided = nullptr;
                EXPECT_EQ(ipFilterCheck(&list, packet, &decided), verdict);
                EXPECT_EQ(decided, by);
            };
            const ipVerdict verdict = action != IP_DENY ? FILTER_PERMIT : FILTER_DENY;
            for (const ipPacket& p : r.matching) expect(p, verdict, entries);
            for (const ipPacket& p : r.others) expect(p, FILTER_DENY, nullptr);
        }
    const aclList empty{};
    EXPECT_EQ(ipFilterCheck(&empty, tcp, nullptr), FILTER_DENY);
    EXPECT_EQ(ipFilterCheck(nullptr, tcp, nullptr), FILTER_DENY);
}

}  // namespace
