// The entry lines of IPv4 and IPv6 access lists and of trace lists. The families share every state:
// which words and addresses apply is the mode's to say (F_V4, F_V6).
#include <array>

#include "cli/grammar/entryNodes.h"
#include "include/icmpNames.h"

namespace {

constexpr uint32_t ETHER_TYPE_ARP = 0x806;  // an ARP rule without an ether-type would print as IP

// Options that a line has at most once. The low bits are those of the TCP flags.
enum : uint32_t {
    O_DSCP = 1u << 8,
    O_PRECEDENCE = 1u << 9,
    O_TOS = 1u << 10,
    O_ICMP = 1u << 11,
    O_FRAGMENTS = 1u << 12,
    O_LOG = 1u << 13,
    O_COUNT = 1u << 14,
    O_BYTES = 1u << 15,
    O_ORDER = 1u << 16,
    O_MONITOR = 1u << 17,
};

// One state for each place in a line. Source and destination have their own, because what follows
// differs.
extern const grammarState sProtocol, sIcmp, sIcmpCode, sOptionDscp, sOptionPrecedence, sOptionTos,
    sOptionOrder, sArpOpcode, sArpOpcodeValue, sEtherType, sStandardSrc, sSrc, sDst, sArpIp,
    sStandardSrcHost, sStandardSrcMask, sSrcHost, sSrcMask, sDstHost, sDstMask, sSrcPort, sDstPort,
    sArpMac, sArpMacMask, sEtherSrc, sEtherSrcMask, sEtherDst, sEtherDstMask, sStandardSeq,
    sExtendedSeq, sSrcPortOne, sSrcPortLow, sSrcPortHigh, sDstPortOne, sDstPortLow, sDstPortHigh,
    sArpVlan, sArpVlanId, sEtherVlan, sEtherVlanId;

// The clause of one address.
constexpr std::array<grammarNode, 5> addressNodes(uint32_t side, const grammarState& host,
                                                  const grammarState& mask,
                                                  const grammarState& next) {
    return {kw("any", "any address", next, entryPut, entryValue(W::any, side)),
            kw("host", "one address", host),
            arg(cliArg::prefix, "A.B.C.D/LEN", "address and prefix length", next, entryPut,
                entryValue(W::prefix, side), F_V4),
            arg(cliArg::prefix6, "X:X::X/LEN", "address and prefix length", next, entryPut,
                entryValue(W::prefix, side), F_V6),
            arg(cliArg::address, "A.B.C.D", "address, a mask follows", mask, entryPut,
                entryValue(W::address, side), F_V4)};
}
constexpr std::array<grammarNode, 2> hostNodes(uint32_t side, const grammarState& next) {
    return {arg(cliArg::address, "A.B.C.D", "the address", next, entryPut,
                entryValue(W::host, side), F_V4),
            arg(cliArg::address6, "X:X::X", "the address", next, entryPut,
                entryValue(W::host, side), F_V6)};
}
constexpr grammarNode maskNode(uint32_t side, const grammarState& next) {
    return arg(cliArg::address, "A.B.C.D", "wildcard, or mask in inverse-mask mode", next, entryPut,
               entryValue(W::mask, side));
}
constexpr std::array<grammarNode, 5> portNodes(uint32_t side, const grammarState& one,
                                               const grammarState& low) {
    auto op = [side](ipPortOperator code) { return entryValue(W::portOperator, side, code); };
    return {kw("eq", "port equal to", one, entryPut, op(PORT_EQ)),
            kw("gt", "port above", one, entryPut, op(PORT_GT)),
            kw("lt", "port below", one, entryPut, op(PORT_LT)),
            kw("neq", "port not equal to", one, entryPut, op(PORT_NEQ)),
            kw("range", "ports from, to", low, entryPut, op(PORT_RANGE))};
}
constexpr uint32_t protocolOf(uint32_t number) {
    return entryValue(W::protocol, ENTRY_SRC, number);
}
// Ports and ICMP types may follow what was typed as a number as well: the features say which, not
// the state.
constexpr grammarNode protocolNodes[] = {
    kw("tcp", "TCP", sSrc, entryProtocol, protocolOf(IP_PROTO_TCP)),
    kw("udp", "UDP", sSrc, entryProtocol, protocolOf(IP_PROTO_UDP)),
    kw("ip", "every protocol", sSrc, entryProtocol, protocolOf(IP_PROTO_ANY), F_V4),
    kw("ipv6", "every protocol", sSrc, entryProtocol, protocolOf(IP_PROTO_ANY), F_V6),
    kw("icmp", "ICMP", sSrc, entryProtocol, protocolOf(IP_PROTO_ICMP), F_V4),
    kw("icmp", "ICMPv6", sSrc, entryProtocol, protocolOf(IP_PROTO_ICMP6), F_V6),
    kw("arp", "ARP packets of a VLAN", sArpMac, entryFrame,
       entryValue(W::arp, ENTRY_SRC, ETHER_TYPE_ARP), F_LAYER2),
    kw("ether-type", "frames of an ether-type", sEtherType, nullptr, 0, F_LAYER2),
    number("protocol number", 0, 255, sSrc, entryProtocol, protocolOf(0)),
};
constexpr grammarState sProtocol{protocolNodes};

template <const grammarState& next, uint32_t side>
constexpr grammarNode portNode[] = {
    number("port", 0, 65535, next, entryPut, entryValue(W::port, side))};
template <const grammarState& next, uint32_t side>
constexpr grammarNode portHighNode[] = {
    number("last port", 0, 65535, next, entryLastPort, entryValue(W::lastPort, side))};

constexpr size_t ICMP_NAMES = std::size(icmpNameTable);
constexpr std::array<grammarNode, ICMP_NAMES + 1> makeIcmpNodes() {
    std::array<grammarNode, ICMP_NAMES + 1> nodes{};
    for (uint32_t i = 0; i < ICMP_NAMES; i++)
        nodes[i] =
            kw(icmpNameTable[i].word, "ICMP message", sOptions, entryIcmpName, i, F_V4, O_ICMP);
    nodes[ICMP_NAMES] = number("ICMP type", 0, 255, sIcmpCode, entryPut, entryValue(W::icmpType));
    nodes[ICMP_NAMES].once = O_ICMP;
    return nodes;
}
// A name is of ICMPv4 and stands for type and code; a number is the type, and the code may follow
// it.
constexpr auto icmpNodes = makeIcmpNodes();
constexpr grammarState sIcmp{icmpNodes, nullptr, F_ICMP};
constexpr grammarNode icmpCodeNodes[] = {
    number("ICMP code", 0, 255, sOptions, entryPut, entryValue(W::icmpCode))};
constexpr grammarState sIcmpCode{icmpCodeNodes, &sOptions};

// Any order is taken; this is the order in which the configuration shows them.
constexpr auto flagNodes = [] {
    std::array<grammarNode, std::size(tcpFlagTable)> nodes{};
    for (size_t i = 0; i < nodes.size(); i++)
        nodes[i] = kw(tcpFlagTable[i].word, "TCP flag", sOptions, entryPut,
                      entryValue(W::tcpFlag, ENTRY_SRC, tcpFlagTable[i].bit),
                      F_TCP | (tcpFlagTable[i].bit == TCP_ESTABLISHED ? uint32_t{F_V4} : 0),
                      tcpFlagTable[i].bit);
    return nodes;
}();
// Options come in any order, each once, and lead back here until the line ends.
constexpr auto optionNodes = [] {
    constexpr grammarNode front[] = {
        kw("dscp", "DSCP value", sOptionDscp, nullptr, 0, F_NET, O_DSCP),
    };
    constexpr grammarNode back[] = {
        kw("precedence", "IP precedence", sOptionPrecedence, nullptr, 0, F_EXT, O_PRECEDENCE),
        kw("tos", "type of service", sOptionTos, nullptr, 0, F_EXT, O_TOS),
        kw("fragments", "later fragments only", sOptions, entryPut, entryValue(W::fragments), F_NET,
           O_FRAGMENTS),
        kw("log", "log matching packets", sOptions, entryPut, entryValue(W::log), 0, O_LOG),
        kw("count", "count packets", sOptions, entryPut, entryValue(W::count, ENTRY_SRC, IP_COUNT),
           0, O_COUNT),
        kw("bytes", "count bytes", sOptions, entryPut, entryValue(W::bytes, ENTRY_SRC, IP_BYTES), 0,
           O_BYTES),
        kw("order", "priority among lists", sOptionOrder, nullptr, 0, F_ORDER, O_ORDER),
        kw("monitor", "copy matching packets to the monitor", sOptions, entryPut,
           entryValue(W::monitor), F_LIST, O_MONITOR),
        fin("the entry is complete"),
    };
    std::array<grammarNode, std::size(front) + flagNodes.size() + std::size(back)> nodes{};
    auto* at = nodes.data();
    for (const auto& n : front) *at++ = n;
    for (const auto& n : flagNodes) *at++ = n;
    for (const auto& n : back) *at++ = n;
    return nodes;
}();
constexpr uint32_t ANY_WORD = 0xFFFFFFFE;  // 0xFFFFFFFF stands for "not given"
constexpr grammarNode dscpNodes[] = {
    number("DSCP", 0, 63, sOptions, entryPut, entryValue(W::dscp), 254)};
constexpr grammarState sOptionDscp{dscpNodes};
constexpr grammarNode precedenceNodes[] = {
    number("precedence", 0, 7, sOptions, entryPut, entryValue(W::precedence), ANY_WORD),
};
constexpr grammarState sOptionPrecedence{precedenceNodes};
constexpr grammarNode tosNodes[] = {
    number("TOS", 0, 15, sOptions, entryPut, entryValue(W::tos), ANY_WORD)};
constexpr grammarState sOptionTos{tosNodes};
// MAC lists print nothing between the number and the word that follows it.
constexpr auto orderNodes = [] {
    grammarNode node = number("order", 0, 254, sOptions, entryPut, entryValue(W::order));
    std::array nodes{node, node};
    nodes[0].when = F_MAC;
    nodes[0].kind = cliArg::joined;
    nodes[0].word = "monitor";
    return nodes;
}();
constexpr grammarState sOptionOrder{orderNodes};

// Layer 2: "arp MAC VLAN id [opcode n] ADDRESS" and "ether-type hex MAC VLAN id MAC".
template <const grammarState& next>
constexpr grammarNode vlanWord[] = {kw("VLAN", "VLAN of the packet", next)};
template <const grammarState& next>
constexpr grammarNode vlanNode[] = {
    number("VLAN id", 0, 4095, next, entryPut, entryValue(W::vlan), ANY_WORD)};
// The opcode may be left out; then the address follows at once.
constexpr grammarNode opcodeNodes[] = {
    kw("opcode", "ARP operation", sArpOpcodeValue),
};
constexpr grammarState sArpOpcode{opcodeNodes, &sArpIp};
constexpr grammarNode opcodeValueNodes[] = {
    number("ARP opcode", 1, 65535, sArpIp, entryPut, entryValue(W::opcode), ANY_WORD),
};
constexpr grammarState sArpOpcodeValue{opcodeValueNodes};
// Written out, because hexadecimal numbers stand nowhere else.
constexpr grammarNode etherTypeNodes[] = {
    {cliArg::hex, "<1-ffff>", "ether-type", &sEtherSrc, entryFrame, entryValue(W::etherType), 0, 0,
     1, 0xFFFF, ANY_WORD},
};
constexpr grammarState sEtherType{etherTypeNodes};

// From here on the places themselves: what stands there and what it leads to.
constexpr auto standardSrc = addressNodes(ENTRY_SRC, sStandardSrcHost, sStandardSrcMask, sOptions);
constexpr grammarState sStandardSrc{standardSrc};
constexpr auto src = addressNodes(ENTRY_SRC, sSrcHost, sSrcMask, sSrcPort);
constexpr grammarState sSrc{src};
constexpr auto dst = addressNodes(ENTRY_DST, sDstHost, sDstMask, sDstPort);
constexpr grammarState sDst{dst};
// The mask of an ARP rule is shown as a length whatever it is, so no second address is taken.
constexpr auto arpIp = [] {
    auto nodes = addressNodes(ENTRY_SRC, sStandardSrcHost, sOptions, sOptions);
    return std::array{nodes[0], nodes[1], nodes[2]};
}();
constexpr grammarState sArpIp{arpIp};
constexpr auto standardSrcHost = hostNodes(ENTRY_SRC, sOptions);
constexpr grammarState sStandardSrcHost{standardSrcHost};
constexpr grammarNode standardSrcMask[] = {maskNode(ENTRY_SRC, sOptions)};
constexpr grammarState sStandardSrcMask{standardSrcMask};
constexpr auto srcHost = hostNodes(ENTRY_SRC, sSrcPort);
constexpr grammarState sSrcHost{srcHost};
constexpr grammarNode srcMask[] = {maskNode(ENTRY_SRC, sSrcPort)};
constexpr grammarState sSrcMask{srcMask};
constexpr auto dstHost = hostNodes(ENTRY_DST, sDstPort);
constexpr grammarState sDstHost{dstHost};
constexpr grammarNode dstMask[] = {maskNode(ENTRY_DST, sDstPort)};
constexpr grammarState sDstMask{dstMask};
constexpr auto srcPorts = portNodes(ENTRY_SRC, sSrcPortOne, sSrcPortLow);
constexpr grammarState sSrcPort{srcPorts, &sDst, F_PORTS};
constexpr auto dstPorts = portNodes(ENTRY_DST, sDstPortOne, sDstPortLow);
constexpr grammarState sDstPort{dstPorts, &sOptions, F_PORTS};
constexpr auto arpMac = macNodes(ENTRY_SRC, sArpMacMask, sArpVlan);
constexpr grammarState sArpMac{arpMac};
constexpr grammarNode arpMacMask[] = {macMaskNode(ENTRY_SRC, sArpVlan)};
constexpr grammarState sArpMacMask{arpMacMask};
constexpr auto etherSrc = macNodes(ENTRY_SRC, sEtherSrcMask, sEtherVlan);
constexpr grammarState sEtherSrc{etherSrc};
constexpr grammarNode etherSrcMask[] = {macMaskNode(ENTRY_SRC, sEtherVlan)};
constexpr grammarState sEtherSrcMask{etherSrcMask};
constexpr auto etherDst = macNodes(ENTRY_DST, sEtherDstMask, sOptions);
constexpr grammarState sEtherDst{etherDst};
constexpr grammarNode etherDstMask[] = {macMaskNode(ENTRY_DST, sOptions)};
constexpr grammarState sEtherDstMask{etherDstMask};

constexpr grammarState sStandardSeq{entrySeqNode<SEQ_MAX, sStandard>};
constexpr grammarState sExtendedSeq{entrySeqNode<SEQ_MAX, sExtended>};
constexpr grammarState sSrcPortOne{portNode<sDst, ENTRY_SRC>};
constexpr grammarState sSrcPortLow{portNode<sSrcPortHigh, ENTRY_SRC>};
constexpr grammarState sSrcPortHigh{portHighNode<sDst, ENTRY_SRC>};
constexpr grammarState sDstPortOne{portNode<sOptions, ENTRY_DST>};
constexpr grammarState sDstPortLow{portNode<sDstPortHigh, ENTRY_DST>};
constexpr grammarState sDstPortHigh{portHighNode<sOptions, ENTRY_DST>};
constexpr grammarState sArpVlan{vlanWord<sArpVlanId>};
constexpr grammarState sArpVlanId{vlanNode<sArpOpcode>};
constexpr grammarState sEtherVlan{vlanWord<sEtherVlanId>};
constexpr grammarState sEtherVlanId{vlanNode<sEtherDst>};

}  // namespace

// An ICMP type may stand among the options: behind the addresses or later.
constexpr grammarState sOptions{optionNodes, &sIcmp};
// A configuration line may be typed in a list's mode: it leaves the list.
constexpr grammarState sStandard{entryListNodes<sStandardSeq, sStandardSrc>, &sRemarks};
constexpr grammarState sExtended{entryListNodes<sExtendedSeq, sProtocol>, &sRemarks};
