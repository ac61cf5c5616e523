// Content keys byte by byte, what counts as the same rule, and the trees' upkeep.
#include <numeric>

#include "tests/support/ipaclTest.h"

namespace {

std::vector<uint8_t> keyOf(const ipEntryBlock& block) {
    uint8_t key[DUP_KEY_MAX];
    std::memset(key, 0xEE, sizeof key);
    uint32_t length = ipAccessDupEntGenerateKey(block, key);
    EXPECT_TRUE(std::all_of(key + length, key + DUP_KEY_MAX, [](uint8_t b) { return b == 0; }));
    return {key, key + length};
}

// A block whose every byte is its own offset: a key then tells where each of its bytes came from.
ipEntryBlock offsets(uint32_t kind, uint8_t protocol) {
    ipEntryBlock block;
    auto* bytes = reinterpret_cast<uint8_t*>(&block);
    std::iota(bytes, bytes + sizeof block, uint8_t{0});
    block.kind = kind;
    block.protocol = protocol;
    return block;
}

TEST(DupKey, TakesItsBytesFromTheseOffsets) {
    const std::vector<uint8_t> front = {0, 24, 25, 26, 27, 28, 29, 30, 31, 71, 151, 152};
    struct {
        uint32_t kind;
        uint8_t protocol;
        std::vector<uint8_t> rest;
    } const cases[] = {
        {IP_KIND_STANDARD, 6, {}},
        {0x102, 6, {}},  // neither kind
        {2, 6, {32,  33,  34,  35,  36,  37,  38,  39,  6,   144,
                136, 137, 138, 139, 140, 141, 142, 143, 131, 135}},
        {2, 4, {32,  33,  34,  35,  36,  37,  38,  39,  4,   144,
                136, 137, 138, 139, 140, 141, 142, 143, 131, 135}},
        {2, 1, {32, 33, 34, 35, 36, 37, 38, 39, 1, 128, 129, 130, 131, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> key = front;
        key.insert(key.end(), c.rest.begin(), c.rest.end());
        EXPECT_EQ(keyOf(offsets(c.kind, c.protocol)), key) << c.kind << "/" << int{c.protocol};
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
