// The decoders of the wire records that entries come in.
#include "chassis/agent/rule.h"

#include <algorithm>

namespace {

ruleAddress address4(uint32_t value, uint32_t mask) {
    return {{value}, {mask}};
}

std::array<uint32_t, 4> words(const uint8_t (&bytes)[16]) {
    std::array<uint32_t, 4> out;
    for (size_t i = 0; i < out.size(); i++)
        out[i] = *wireView<be32>(std::span<const uint8_t>(bytes), i * sizeof(be32));
    return out;
}

ruleMac macOf(const uint8_t (&address)[6], const uint8_t (&wildcard)[6]) {
    return {std::to_array(address), std::to_array(wildcard)};
}

// Some fields of an IPv4 entry travel as runs of bytes of the manager's entry block. Put back where
// the block has them, they can be read by their names.
ipEntryBlock blockOf(const agentMatch& m) {
    static_assert(offsetof(ipEntryBlock, dstMask) + sizeof m.words == offsetof(ipEntryBlock, seq));
    static_assert(offsetof(ipEntryBlock, arpMarker) + sizeof m.l2 ==
                  offsetof(ipEntryBlock, srcOperator));
    ipEntryBlock block{};
    auto* bytes = reinterpret_cast<uint8_t*>(&block);
    std::ranges::copy(m.words, bytes + offsetof(ipEntryBlock, dstMask));
    std::ranges::copy(m.l2, bytes + offsetof(ipEntryBlock, arpMarker));
    return block;
}

}  // namespace

agentRule agentRuleOf(const agentEntry& entry) {
    const agentMatch& m = entry.match;
    const ipEntryBlock block = blockOf(m);
    agentRule rule;
    rule.family = ruleFamily::ip4;
    rule.seq = entry.seq;
    rule.action = entry.action;
    rule.kind = m.kind;
    rule.order = m.order;
    rule.src = address4(m.src, m.srcMask);
    rule.dst = address4(m.dst, block.dstMask);
    // These four stand in the block's run, too; the words of their own are what a card reads.
    rule.protocol = m.protocol;
    rule.protoMarker = m.protoMarker;
    rule.srcPorts = {m.srcOperator, m.ports[0], m.ports[1]};
    rule.dstPorts = {m.dstOperator, m.ports[2], m.ports[3]};
    rule.icmp = {m.icmp[0], m.icmp[1], m.icmp[2], m.icmp[3]};
    rule.tcpFlags = m.tcpFlags;
    rule.fragments = m.fragments;
    rule.dscp = m.dscp[0];
    rule.precedence = block.precedence;
    rule.tos = block.tos;
    rule.layer2 = {.arpMarker = block.arpMarker,
                   .etherType = block.etherType,
                   .etherTypeOperator = 0,
                   .encapsulation = 0,
                   .src = macOf(block.mac1, block.mac1Mask),
                   .dst = macOf(block.mac2, block.mac2Mask),
                   .vlan = block.vlan,
                   .arpOpcode = block.arpOpcode,
                   .log = block.l2Log,
                   .counterOptions = block.l2CounterOptions,
                   .carried = std::to_array(block.reserved104)};
    rule.counterOptions = entry.counterOptions;
    rule.log = entry.log;
    rule.monitor = entry.monitor;
    rule.owner = entry.owner;
    std::ranges::copy(entry.carried, rule.carried.begin());
    return rule;
}

agentRule agentRuleOf(const agentEntry6& entry) {
    const ip6EntryBlock& b = entry.block;
    agentRule rule;
    rule.family = ruleFamily::ip6;
    rule.seq = b.seq;
    rule.action = b.action;
    rule.src = {words(b.src), words(b.srcMask)};
    rule.dst = {words(b.dst), words(b.dstMask)};
    rule.protocol = b.protocol;
    rule.protoMarker = b.protoMarker;
    rule.srcPorts = {b.srcOperator, b.srcLow, b.srcHigh};
    rule.dstPorts = {b.dstOperator, b.dstLow, b.dstHigh};
    rule.icmp = {b.icmp.type, b.icmp.typeGiven, b.icmp.code, b.icmp.codeGiven};
    rule.tcpFlags = b.tcpFlags;
    rule.counterOptions = b.counterOptions;
    rule.log = entry.log;
    rule.monitor = entry.monitor;
    rule.owner = b.owner;
    return rule;
}

agentRule agentRuleOf(const agentMacEntry& entry) {
    const macEntryBlock& b = entry.block;
    agentRule rule;
    rule.family = ruleFamily::mac;
    rule.seq = b.seq;
    rule.action = b.action;
    rule.kind = b.type;
    rule.order = b.order;
    rule.layer2.src = macOf(b.src, b.srcMask);
    rule.layer2.dst = macOf(b.dst, b.dstMask);
    rule.layer2.encapsulation = b.encapsulation;
    rule.layer2.etherTypeOperator = b.etherTypeOperator;
    rule.layer2.etherType = b.etherType;
    rule.counterOptions = entry.counterOptions;
    rule.log = entry.log;
    rule.monitor = entry.monitor;
    return rule;
}
