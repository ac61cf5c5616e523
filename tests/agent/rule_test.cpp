// The decoders of entries, against images in which every byte says where it stands.
#include "chassis/agent/rule.h"

#include <gtest/gtest.h>

#include "tests/agent/messages.h"

namespace {

// The bytes in which a field travels.
template <class T>
bytes wire(const T& field) {
    bytes out;
    if constexpr (std::is_integral_v<T>)
        for (size_t i = sizeof field; i-- > 0;) out.push_back(static_cast<uint8_t>(field >> 8 * i));
    else
        for (const auto& item : field)
            for (uint8_t b : wire(item)) out.push_back(b);
    return out;
}
bytes wire(const rulePorts& p) {
    return wire(std::array{p.low, p.high});
}
bytes wire(const ruleIcmp& i) {
    return {i.type, i.typeGiven, i.code, i.codeGiven};
}

struct image {
    bytes b;
    image(size_t size) {
        for (size_t i = 0; i < size; i++) b.push_back(static_cast<uint8_t>(i * 37 + i / 256));
    }
    template <class Record>
    agentRule decoded() const {
        return agentRuleOf(*wireView<Record>(std::span(b)));
    }
    // From that byte on, the fields stand one behind the other.
    template <class... Fields>
    void has(size_t at, const Fields&... fields) const {
        for (const bytes& field : {wire(fields)...})
            for (uint8_t byte : field) EXPECT_EQ(byte, b[at++]) << "byte " << at - 1;
    }
};

TEST(Rule, HasWhatAnIpv4EntryCarries) {
    image i(ENTRY4);
    agentRule r = i.decoded<agentEntry>();
    const ruleLayer2& l = r.layer2;
    EXPECT_EQ(r.family, ruleFamily::ip4);
    i.has(4, r.seq, r.action, r.counterOptions, r.carried);
    i.has(36, r.log);
    i.has(56, r.src.value[0], r.src.mask[0], r.dst.value[0], r.dst.mask[0]);
    i.has(76, r.precedence, r.tos);
    i.has(96, r.protocol, r.protoMarker, r.tcpFlags, r.order, r.kind, r.srcPorts.op, r.dstPorts.op);
    i.has(124, r.srcPorts, r.dstPorts, r.icmp, l.arpMarker, l.etherType);
    i.has(144, l.src.address, l.src.wildcard, l.dst.address, l.dst.wildcard, l.carried);
    i.has(176, l.vlan, l.arpOpcode, l.log, l.counterOptions, r.fragments, r.dscp);
    i.has(380, r.owner);
    i.has(388, r.monitor);
}

TEST(Rule, HasWhatIpv6AndMacEntriesCarry) {
    image six(ENTRY6), mac(184);
    agentRule r = six.decoded<agentEntry6>();
    EXPECT_EQ(r.family, ruleFamily::ip6);
    six.has(8, r.owner, r.protoMarker, r.action, r.src.value, r.src.mask, r.dst.value, r.dst.mask);
    six.has(88, static_cast<uint8_t>(r.counterOptions), static_cast<uint8_t>(r.protocol));
    six.has(92, r.seq, r.srcPorts.op, r.dstPorts.op, r.srcPorts, r.dstPorts);
    six.has(96, r.icmp);
    six.has(112, static_cast<uint8_t>(r.tcpFlags));
    six.has(116, r.log, r.monitor);
    r = mac.decoded<agentMacEntry>();
    const ruleLayer2& l = r.layer2;
    EXPECT_EQ(r.family, ruleFamily::mac);
    mac.has(8, r.action, r.seq, l.src.address, l.src.wildcard, l.dst.address, l.dst.wildcard);
    mac.has(40, r.kind, l.encapsulation, l.etherTypeOperator, static_cast<uint16_t>(l.etherType));
    mac.has(60, r.order);
    mac.has(124, r.counterOptions, r.log, r.monitor);
}

}  // namespace
