// Content keys byte by byte, what counts as the same rule, and the trees' upkeep.
#include <numeric>
#include <sstream>

#include "tests/support/ipaclTest.h"

namespace {

// A block whose every byte is its own offset: a key then tells where each of its bytes came from.
// 0 to 1 stand for what is made of more: the action, and what stays 0.
TEST(DupKey, TakesItsBytesFromTheseOffsets) {
    constexpr uint32_t NONE = 255;  // IPv6 lists have no kinds, frames no protocol
    const std::string ip4 = "0 24-31 71 151-152", ip4Both = ip4 + " 32-39",
                      seven = " 0 0 0 0 0 0 0";
    const struct {
        const aclFamily& row;
        uint32_t kindAt, kind, protocolAt;
        uint8_t protocol;
        std::string key;  // offsets
    } cases[] = {
        {ip4Family, 56, 1, 53, 6, ip4},
        {ip4Family, 56, 0x102, 53, 6, ip4},  // neither kind
        {ip4Family, 56, 2, 53, 4, ip4Both + " 4 144 136-143 131 135"},
        {ip4Family, 56, 2, 53, 1, ip4Both + " 1 128-131" + seven},
        {ip6Family, NONE, 0, 81, 17, "0 12-75 0 17 104 96-103 91 95"},
        {ip6Family, NONE, 0, 81, 58, "0 12-75 0 58 88-91" + seven},
        {macFamily, 32, 1, NONE, 0, "0 8-19 55"},
        {macFamily, 32, 2, NONE, 0, "0 8-19 55 20-31 39 43-45"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        alignas(8) uint8_t block[256], key[DUP_KEY_MAX];
        std::iota(block, block + sizeof block, uint8_t{0});
        if (c.kindAt != NONE)
            for (uint32_t i = 0; i < 4; i++)
                block[c.kindAt + i] = static_cast<uint8_t>(c.kind >> (24 - 8 * i));
        block[c.protocolAt] = c.protocol;
        std::memset(key, 0xEE, sizeof key);
        const uint32_t length = c.row.contentKey(block, key);
        std::vector<uint8_t> expected;
        std::istringstream offsets(c.key);
        for (int first = 0; offsets >> first;) {
            int last = first;
            if (offsets.peek() == '-') offsets.ignore() >> last;
            while (first <= last) expected.push_back(static_cast<uint8_t>(first++));
        }
        EXPECT_EQ(length, expected.size());
        expected.resize(DUP_KEY_MAX);
        EXPECT_EQ(std::vector(key, key + sizeof key), expected);
    }
}

// What the key does not hold does not tell two rules apart; two of its bytes are made of more.
TEST_F(IpAcl, TheSameRuleIsCoarserThanTheWholeBlock) {
    const rule tcp = extended(IP_DENY, IP_PROTO_TCP), any = standard(IP_PERMIT, 0, 0);
    struct {
        const char* what;
        rule first, second;
        bool same;
    } const cases[] = {
        {"precedence", tcp, tcp.with([](rule& b) { b.precedence = 2; }), true},
        {"destination of a standard entry", any, any.to(ip(10, 0, 0, 0), HOST), true},
        {"order, low byte alike", any, any.with([](rule& b) { b.order = 511; }), true},
        {"order", any, any.with([](rule& b) { b.order = 3; }), false},
        {"actions that permit", any, any.with([](rule& b) { b.action = 2; }), true},
        {"action", any, any.with([](rule& b) { b.action = IP_DENY; }), false},
    };
    create("A", IP_KIND_EXTENDED);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(add("A", c.first.at(1)), 0u);
        EXPECT_EQ(add("A", c.second.at(2)), c.same ? ACL_E_ENTRY_EXISTS : ACL_OK);
        // A delete by content means the same rule too.
        EXPECT_EQ(del("A", c.second), 0u);
        EXPECT_EQ(del("A", c.first), c.same ? ACL_E_NOENTRY : ACL_OK);
    }
}

TEST_F(IpAcl, FramesAreComparedWholeButNotWhileAConfigurationIsLoaded) {
    auto frame = [](uint32_t etherType, uint32_t vlan) {
        return extended(IP_DENY, 0).with([=](rule& b) { b.etherType = etherType, b.vlan = vlan; });
    };
    const rule plain = extended(IP_DENY, IP_PROTO_ANY);
    const rule arp = plain.with([](rule& b) { b.arpMarker = 1; });
    aclList* list = create("A", IP_KIND_EXTENDED);
    // No field outside the content key may be lost; an ARP entry without an ether-type is a frame
    // as well, and an IP entry with its key is not its duplicate.
    for (const rule& r : {frame(0x800, 1), frame(0x800, 2), arp, plain}) EXPECT_EQ(add("A", r), 0u);
    EXPECT_EQ(zekRadixCount(list->seqTree), 4u);
    EXPECT_EQ(zekRadixCount(list->contentTree), 1u);
    EXPECT_EQ(add("A", frame(0x800, 2)), ACL_E_ENTRY_EXISTS);
    EXPECT_EQ(add("A", frame(0x806, 2).at(10)), ACL_E_SEQ_USED);
    EXPECT_EQ(del("A", frame(0x800, 3)), ACL_E_NOENTRY);
    EXPECT_EQ(del("A", frame(0x800, 1)), 0u);
    EXPECT_EQ(del("A", arp.at(15)), 0u);
    EXPECT_EQ(numbers(list), (words{10, 20}));
    // Adds skip the walk then; numbers are checked all the same.
    node.config.cfgNotifStart = 1;
    EXPECT_EQ(add("A", frame(0x800, 2)), 0u);
    EXPECT_EQ(add("A", frame(0x800, 2).at(10)), ACL_E_SEQ_USED);
    EXPECT_EQ(del("A", frame(0x800, 2)), 0u);
    EXPECT_EQ(numbers(list), (words{20, 25}));
    node.config.cfgNotifStart = 0;
    EXPECT_EQ(add("A", frame(0x800, 2)), ACL_E_ENTRY_EXISTS);
}

}  // namespace
