// The configuration lines, in both mask modes.
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
constexpr uint32_t HOLES = ip(255, 0, 255, 0);

class CfgText : public IpAcl {
  protected:
    // The texts of one written line: as the mask mode that is set shows it, and the other form.
    struct pair {
        std::string shown, other;
    };
    pair textOf(const rule& block, uint32_t log = 0, uint32_t monitor = 0) {
        aclEntry entry{};
        entry.block = block;
        entry.log = log;
        entry.monitor = monitor;
        acl_ent_sent_to_cfg(&entry, 0, A);
        return take();
    }
    pair take() {
        pair texts;
        for (const std::string& row : testTake()) {
            if (!row.starts_with("cfg insert")) continue;
            size_t first = row.find('"'), end = row.find('"', first + 1);
            texts.shown = row.substr(first + 1, end - first - 1);
            size_t second = row.find('"', end + 1);
            texts.other =
                second == row.npos ? texts.shown : row.substr(second + 1, row.size() - second - 2);
        }
        if (node.config.inverseMask != 0) std::swap(texts.shown, texts.other);
        return texts;
    }
};

TEST_F(CfgText, AddressesByMaskAndMode) {
    struct {
        uint32_t address, mask;
        const char *normal, *inverse;
        bool both;
    } cases[] = {
        {ip(10, 1, 0, 0), ip(255, 255, 0, 0), " 10.1.0.0/16", " 10.1.0.0 255.255.0.0", false},
        {ip(10, 1, 0, 0), HOLES, " 10.1.0.0 0.255.0.255", " 10.1.0.0 255.0.255.0", false},
        {ip(10, 1, 2, 3), HOST, " host 10.1.2.3", " host 10.1.2.3", true},
        {0, 0, " any", " any", true},
        {0, HOST, " host 0.0.0.0", " host 0.0.0.0", true},
        {ip(1, 2, 3, 4), 0, " 1.2.3.4/0", " 1.2.3.4 0.0.0.0", false},
        {ip(10, 0, 0, 0), ip(0, 255, 255, 0), " 10.0.0.0 255.0.0.255", " 10.0.0.0 0.255.255.0",
         false},
    };
    for (uint32_t inverse : {0u, 1u}) {
        node.config.inverseMask = inverse;
        for (const auto& c : cases) {
            SCOPED_TRACE(c.normal);
            std::string clause = inverse ? c.inverse : c.normal;
            const rule out = extended(IP_PERMIT, 4).at(5).from(c.address, c.mask);
            struct {
                rule block;
                std::string shown, other;
            } const shapes[] = {
                // In a standard entry the action shares the clause's fate in the other form.
                {standard(IP_DENY, c.address, c.mask).at(5), " seq 5 deny" + clause, " seq 5"},
                {out, " seq 5 permit ip" + clause + " any", " seq 5 permit ip any"},
                {out.to(c.address, c.mask), " seq 5 permit ip" + clause + clause,
                 " seq 5 permit ip"},
            };
            for (const auto& shape : shapes) {
                pair texts = textOf(shape.block, 1);
                EXPECT_EQ(texts.shown, shape.shown + " log");
                EXPECT_EQ(texts.other, (c.both ? shape.shown : shape.other) + " log");
            }
        }
    }
}

// What the shell cannot ask for; the rest is printed as it was typed.
TEST_F(CfgText, StandardEntriesLeaveOutWhatIsNotGiven) {
    rule none = standard(7, 0, 0).at(0).with([](rule& b) {
        b.order = 255;
        b.fragments = 2;
        b.counterOptions = 1;
        b.precedence = 3;  // of extended entries only, as are the ports
        b.srcOperator = PORT_EQ;
        b.protocol = IP_PROTO_TCP;
    });
    EXPECT_EQ(textOf(none, 0, 2).shown, " seq 0 permit any");
}

TEST_F(CfgText, ExtendedEntries) {
    auto of = [](uint8_t protocol) { return extended(IP_DENY, protocol).at(10); };
    const rule tcp = of(IP_PROTO_TCP);
    auto icmp = [&](uint8_t type, bool withCode, uint8_t code) {
        return of(IP_PROTO_ICMP).with([=](rule& b) {
            b.icmp = {type, 1, code, static_cast<uint8_t>(withCode ? 1 : 0)};
        });
    };
    auto marked = [&](uint8_t protocol) {
        return of(protocol).with([](rule& b) { b.protoMarker = 1; });
    };
    struct {
        rule block;
        const char* text;
    } cases[] = {
        {tcp.to(ip(1, 2, 3, 4), HOST).fromPort(PORT_GT, 7).toPort(PORT_EQ, 23),
         "tcp any gt 7 host 1.2.3.4 eq 23"},
        {tcp.fromPort(PORT_NEQ, 0).toPort(PORT_RANGE, 1, 9), "tcp any neq 0 any range 1 9"},
        {of(4).fromPort(PORT_EQ, 53), "ip any any"},
        {of(17).fromPort(PORT_LT, 65535), "udp any lt 65535 any"},
        {marked(4), "4 any any"},
        {marked(6), "tcp any any"},
        {of(0), "0 any any"},
        {tcp.with([](rule& b) { b.tcpFlags = 0xFF; }),
         "tcp any any established fin syn rst psh ack urg"},
        {of(17).with([](rule& b) { b.tcpFlags = 0xFF; }), "udp any any"},
        {tcp.with([](rule& b) {
             b.dscp = 0, b.tcpFlags = TCP_SYN, b.precedence = 7, b.tos = 0, b.fragments = 1;
             b.order = 0, b.counterOptions = IP_BYTES;
         }),
         "tcp any any dscp 0 syn precedence 7 tos 0 fragments bytes order 0"},
        {icmp(8, false, 9), "icmp any any echo"},
        {icmp(8, true, 0), "icmp any any 8 0"},
        {icmp(3, true, 4), "icmp any any packet-too-big"},
        {icmp(3, false, 4), "icmp any any unreachable"},
        {icmp(3, true, 200), "icmp any any 3 200"},
        // The flags word and the type of another protocol's entry mean nothing.
        {icmp(8, false, 0).with([](rule& b) { b.protocol = 2; }), "2 any any"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(textOf(c.block).shown, std::string(" seq 10 deny ") + c.text);
}

TEST_F(CfgText, EtherTypeAndArpEntries) {
    const uint8_t mac[] = {0x00, 0x1B, 0xC0, 0xFF, 0x0A, 0x9E},
                  ones[] = {255, 255, 255, 255, 255, 255};
    auto frame = [&](bool first, bool second) {
        return extended(IP_PERMIT, 0).at(5).with([&](rule& b) {
            b.etherType = 0x86DD;
            b.vlan = 12;
            if (first) std::memcpy(b.mac1, mac, 6);
            if (!first) std::memcpy(b.mac1Mask, ones, 6);
            if (second) std::memcpy(b.mac2, mac, 6);
            std::memcpy(b.mac2Mask, ones, 6);
        });
    };
    auto arp = [&](auto change) {
        return frame(false, false).with([](rule& b) { b.arpMarker = 1; }).with(change);
    };
    struct {
        rule block;
        uint32_t log, monitor;
        const char* text;
    } cases[] = {
        {frame(false, false), 1, 0, "ether-type 86dd any VLAN 12 any"},  // the entry's own log word
        {frame(true, true), 0, 1,
         "ether-type 86dd 00:1b:c0:ff:0a:9e 00:00:00:00:00:00 VLAN 12 "
         "00:1b:c0:ff:0a:9e ff:ff:ff:ff:ff:ff monitor"},
        {frame(false, false).with([](rule& b) {
             b.l2Log = 1, b.l2CounterOptions = IP_COUNT, b.counterOptions = 0xFF, b.order = 3;
         }),
         0, 1, "ether-type 86dd any VLAN 12 any log count bytes order 3 monitor"},
        {arp([](rule& b) { b.src = 0; }), 0, 0, "arp any VLAN 12 any"},
        {arp([](rule& b) {
             b.arpOpcode = 2, b.src = ip(10, 0, 0, 0), b.srcMask = ip(255, 0, 0, 0);
         }),
         0, 0, "arp any VLAN 12 opcode 2 10.0.0.0/8"},
        {arp([](rule& b) { b.src = ip(10, 0, 0, 1), b.srcMask = HOST; }), 0, 0,
         "arp any VLAN 12 10.0.0.1/32"},
        // Without an ether-type an ARP entry has the plain extended grammar.
        {arp([](rule& b) { b.etherType = 0; }), 0, 0, "0 any any"},
    };
    for (uint32_t inverse : {0u, 1u}) {
        node.config.inverseMask = inverse;
        for (const auto& c : cases) {
            pair texts = textOf(c.block, c.log, c.monitor);
            EXPECT_EQ(texts.shown, std::string(" seq 5 permit ") + c.text);
            EXPECT_EQ(texts.other, texts.shown);
        }
    }
}

TEST_F(CfgText, DosEntriesLackThePiecesOfLists) {
    aclEntry entry{};
    entry.block =
        extended(IP_DENY, IP_PROTO_TCP).at(5).to(ip(10, 0, 0, 0), HOLES).with([](rule& b) {
            b.dscp = 1, b.fragments = 1, b.order = 1, b.tcpFlags = TCP_SYN, b.precedence = 1,
            b.tos = 2;
            b.counterOptions = IP_COUNT | IP_BYTES, b.etherType = 0x800;
        });
    entry.log = entry.monitor = 1;
    dos_ent_sent_to_cfg(&entry, 0, A);
    dos_ent_sent_to_cfg(&entry, 1, A);
    std::string line =
        " seq 5 deny tcp any 10.0.0.0 0.255.0.255 syn precedence 1 tos 2 log count bytes";
    EXPECT_EQ(testTake(),
              (rows{"cfg insert 98/150 A 1/6/ff \"" + line +
                        "\" / \" seq 5 deny tcp any syn precedence 1 tos 2 log count bytes\"",
                    "sync 16 A \"" + line + "\"", "sync 16 A \"no " + line + "\"",
                    "cfg exact 98/150 A 1/6/ff"}));
}

TEST_F(CfgText, Ipv6Entries) {
    acl6Entry entry{};
    ip6EntryBlock& b = entry.block;
    b.seq = 5;
    b.protocol = IP_PROTO_ANY;
    EXPECT_EQ(effects([&] {
                  v6acl_ent_sent_to_cfg(&entry, 0, A);
                  v6acl_ent_sent_to_cfg(&entry, 1, A);
              }),
              (rows{"cfg insert 100v6/150 A 1/6/ff \" seq 5 permit ipv6 any any\"",
                    "sync 16 A \" seq 5 permit ipv6 any any\"",
                    "sync 16 A \"no  seq 5 permit ipv6 any any\"", "cfg exact 100v6/150 A 1/6/ff",
                    "cfg exact 100v6/150 A 1/6/0 absent"}));
    b.action = IP_DENY;
    b.protocol = IP_PROTO_TCP;
    b.src[0] = 0x20, b.src[1] = 0x01, b.src[2] = 0x0D, b.src[3] = 0xB8;
    std::memcpy(b.srcMask, "\xFF\xFF\xFF\xF8", 4);
    std::fill(b.dstMask, b.dstMask + 16, uint8_t{0xFF});
    b.dst[15] = 1;
    b.dstOperator = PORT_RANGE, b.dstLow = 1, b.dstHigh = 2;
    b.tcpFlags = b.counterOptions = 0xFF;
    entry.log = entry.monitor = 1;
    v6acl_ent_sent_to_cfg(&entry, 0, A);
    EXPECT_EQ(take().shown,
              " seq 5 deny tcp 2001:db8::/29 host ::1 range 1 2 fin syn rst psh ack urg"
              " log count bytes monitor");
    EXPECT_EQ(effects([] {
                  acl_sent_to_cfg(A, 0, IP_KIND_EXTENDED, 1);
                  acl_sent_to_cfg(A, 1, IP_KIND_EXTENDED, 1);
              }),
              (rows{"cfg insert 100v6/141 A 0/0/0 \"!\"",
                    "cfg insert 100v6/150 A 0/0/0 \"ipv6 access-list A\"",
                    "sync 3 A \"ipv6 access-list A\"", "cfg remove 100v6/141 A",
                    "sync 3 A \"no ipv6 access-list A\""}));
}

TEST_F(CfgText, TheLongestLinesFitAndLongerOnesAreCut) {
    rule longest = extended(IP_DENY, IP_PROTO_TCP)
                       .at(SEQ_MAX)
                       .from(ip(200, 200, 200, 200), HOLES)
                       .to(ip(200, 200, 200, 200), HOLES)
                       .fromPort(PORT_RANGE, 60000, 60001)
                       .toPort(PORT_RANGE, 60000, 60001)
                       .with([](rule& b) {
                           b.dscp = 254, b.tcpFlags = 0xFF, b.precedence = 0x80000000;
                           b.tos = 0x80000000, b.fragments = 1, b.counterOptions = 0xFF,
                           b.order = 254;
                       });
    pair texts = textOf(longest, 1, 1);
    EXPECT_TRUE(texts.shown.ends_with(" log count bytes order 254 monitor")) << texts.shown;
    EXPECT_LE(texts.shown.size(), 255u);
    // What stands for an operator that there is not is longer still, and it is logged.
    const std::string error = " Error: Unknown operator value (-1) for ACL entry \n";
    aclEntry unknown{};
    unknown.block = longest.fromPort(HOST, 0).toPort(HOST, 0);
    const rows told = effects([&] { acl_ent_sent_to_cfg(&unknown, 0, A); });
    EXPECT_EQ(told.front(), "syserr 0x50006 " + error);
    const size_t text = told.back().find('"') + 1;
    EXPECT_EQ(told.back().size() - text - 1, 255u);
    EXPECT_NE(told.back().find(error), std::string::npos);
    EXPECT_STREQ(aclCmpPortPrint(PORT_NONE, 1, 2), "");
    // A 140-character name has no NUL in its field.
    listName name = listNameMake(std::string(200, 'n'));
    acl_sent_to_cfg(name, 0, IP_KIND_STANDARD, 0);
    EXPECT_EQ(take().shown, "ip access-list standard " + std::string(140, 'n'));
}

TEST_F(CfgText, BlocksShowInTheirSectionsOrder) {
    uint32_t status = 0;
    create("B");
    create("A", IP_KIND_EXTENDED);
    const listName trace = listNameMake("D");
    ipDosListCreate(trace, 0, 0, &status);
    dosIpEnableIntf(trace, 1041);
    inverse_mask_sent_to_cfg(1);
    for (uint32_t seq : {10u, 256u, 3u}) add("B", standard(IP_DENY, seq, HOST).at(seq));
    EXPECT_EQ(testCfgLines(), (rows{"access-list inverse-mask", "!", "ip trace-group D", "!",
                                    "ip trace-list D", "!", "ip access-list extended A", "!",
                                    "ip access-list standard B", " seq 3 deny host 0.0.0.3",
                                    " seq 10 deny host 0.0.0.10", " seq 256 deny host 0.0.1.0"}));
}

}  // namespace
