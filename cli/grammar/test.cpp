// "test": what a list says about a packet, a frame or a route. The words are passed on to the
// manager as they stand.
#include "cli/grammar/build.h"
#include "cli/lexer.h"

namespace {

// Options that a packet has at most once.
enum : uint32_t {
    O_SRC_PORT = 1u << 0,
    O_DST_PORT = 1u << 1,
    O_FLAGS = 1u << 2,
    O_ICMP = 1u << 3,
    O_TOS = 1u << 4,
    O_FRAGMENTS = 1u << 5,
};
// Likewise of a route.
enum : uint32_t {
    O_NEXT_HOP = 1u << 0,
    O_SOURCE = 1u << 1,
    O_AS_PATH = 1u << 2,
    O_COMMUNITY = 1u << 3,
    O_EXTCOMMUNITY = 1u << 4,
    O_ORIGIN = 1u << 5,
    O_ROUTE_TYPE = 1u << 6,
    O_INTERFACE = 1u << 7,
    O_METRIC = 1u << 8,
    O_TAG = 1u << 9,
    O_PREFERENCE = 1u << 10,
    O_WEIGHT = 1u << 11,
};

// Checked here, because the manager would name the flags as a whole, without a column.
const char* addFlags(cliCommand& c, const cliValue& v, const grammarNode& n) {
    std::string_view left = v.word;
    for (;;) {
        size_t comma = left.find(',');
        std::string_view flag = left.substr(0, comma);
        bool known = false;
        for (const tcpFlagRow& row : tcpFlagTable)
            known |= flag == row.word && row.bit != TCP_ESTABLISHED;
        if (!known)
            return "A packet's flags are fin, syn, rst, psh, ack and urg, with commas between";
        if (comma == left.npos) break;
        left.remove_prefix(comma + 1);
    }
    return addText(c, v, n);
}

extern const grammarState sTestIp, sTestIpv6, sTestMac, sTestName6, sTestProtocol6, sTestSrc6,
    sTestDst6, sTestFrame, sTestFrameSrc, sTestFrameDst, sTestFrameType, sEtherType, sTestPrefix4,
    sTestPrefix6, sTestPath, sTestValues, sTestRouteMap, sTest4, sTest6, sPath, sValues,
    sRoutePrefix, sRoute, sRouteText, sRouteNumber, sTestName, sTestProtocol, sTestSrc, sTestDst,
    sTestOptions, sTestSrcPort, sTestDstPort, sTestFlags, sTestIcmpType, sTestIcmpCode, sTestTos;

// Lists that are asked about themselves, not the cards: nothing is counted, and no packet is sent.
constexpr grammarNode testNodes[] = {
    kw("ip", "IP lists", sTestIp),
    kw("ipv6", "IPv6 lists", sTestIpv6),
    kw("mac", "MAC lists", sTestMac),
    verbOf("route-map", "a route map", sTestRouteMap, cliVerb::test, KIND_RMAP),
};
constexpr grammarNode testIpNodes[] = {
    verb("access-list", "an access list", sTestName, cliVerb::test),
    verbOf("prefix-list", "an IPv4 prefix list", sTestPrefix4, cliVerb::test, KIND_PREFIX4),
    verbOf("as-path", "an AS-path access list", sTestPath, cliVerb::test, KIND_ASPATH),
    verbOf("community", "a community list", sTestValues, cliVerb::test, KIND_COMMUNITY),
    verbOf("extcommunity", "an extended-community list", sTestValues, cliVerb::test,
           KIND_EXTCOMMUNITY),
};
constexpr grammarState sTestIp{testIpNodes};
constexpr grammarNode testNameNodes[] = {
    nameArg("the list", sTestProtocol, addText),
};
constexpr grammarState sTestName{testNameNodes};
constexpr std::array<grammarNode, 4> protocolNodes(const grammarState& next) {
    return {kw("tcp", "a TCP packet", next, addText), kw("udp", "a UDP packet", next, addText),
            kw("icmp", "an ICMP packet", next, addText),
            number("protocol number", 0, 255, next, addText)};
}
constexpr auto testProtocolNodes = protocolNodes(sTestSrc);
constexpr grammarState sTestProtocol{testProtocolNodes};
constexpr grammarNode testSrcNodes[] = {
    arg(cliArg::address, "A.B.C.D", "source address", sTestDst, addText),
};
constexpr grammarState sTestSrc{testSrcNodes};
constexpr grammarNode testDstNodes[] = {
    arg(cliArg::address, "A.B.C.D", "destination address", sTestOptions, addText),
};
constexpr grammarState sTestDst{testDstNodes};
constexpr grammarNode testOptionsNodes[] = {
    kw("src-port", "source port", sTestSrcPort, addText, 0, 0, O_SRC_PORT),
    kw("dst-port", "destination port", sTestDstPort, addText, 0, 0, O_DST_PORT),
    kw("flags", "TCP flags", sTestFlags, addText, 0, 0, O_FLAGS),
    kw("icmp-type", "ICMP type", sTestIcmpType, addText, 0, 0, O_ICMP),
    kw("tos", "the TOS byte: DSCP, precedence", sTestTos, addText, 0, 0, O_TOS),
    kw("fragment", "not the first fragment", sTestOptions, addText, 0, 0, O_FRAGMENTS),
    fin("ask"),
};
constexpr grammarState sTestOptions{testOptionsNodes};
constexpr grammarNode testPortNodes[] = {number("port", 0, 65535, sTestOptions, addText)};
constexpr grammarState sTestSrcPort{testPortNodes};
constexpr grammarState sTestDstPort{testPortNodes};
constexpr grammarNode testFlagsNodes[] = {
    arg(cliArg::text, "FLAG,...", "fin, syn, rst, psh, ack, urg", sTestOptions, addFlags),
};
constexpr grammarState sTestFlags{testFlagsNodes};
constexpr grammarNode testIcmpTypeNodes[] = {number("ICMP type", 0, 255, sTestIcmpCode, addText)};
constexpr grammarState sTestIcmpType{testIcmpTypeNodes};
constexpr grammarNode testIcmpCodeNodes[] = {
    kw("icmp-code", "ICMP code", sTestTos, addText),  // a byte follows, as behind tos
};
constexpr grammarState sTestIcmpCode{testIcmpCodeNodes, &sTestOptions};
constexpr grammarNode testTosNodes[] = {number("a byte", 0, 255, sTestOptions, addText)};
constexpr grammarState sTestTos{testTosNodes};

// The same of IPv6, but for the TOS byte, which the packet counts as having had.
constexpr grammarNode testName6Nodes[] = {
    nameArg("the list", sTestProtocol6, addText),
};
constexpr grammarState sTestName6{testName6Nodes};
constexpr auto testProtocol6Nodes = protocolNodes(sTestSrc6);
constexpr grammarState sTestProtocol6{testProtocol6Nodes};
constexpr grammarNode testSrc6Nodes[] = {
    arg(cliArg::address6, "X:X::X", "source address", sTestDst6, addText),
};
constexpr grammarState sTestSrc6{testSrc6Nodes};
constexpr grammarNode destination6() {
    grammarNode node =
        arg(cliArg::address6, "X:X::X", "destination address", sTestOptions, addText);
    node.once = O_TOS;
    return node;
}
constexpr grammarNode testDst6Nodes[] = {destination6()};
constexpr grammarState sTestDst6{testDst6Nodes};

// --- frames ------------------------------------------------------------------------------------

constexpr grammarNode macArg(const char* help, const grammarState& next) {
    return arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", help, next, addText);
}
constexpr grammarNode testMacNodes[] = {
    verbOf("access-list", "an access list", sTestFrame, cliVerb::test, KIND_MAC_STANDARD),
};
constexpr grammarState sTestMac{testMacNodes};
constexpr grammarNode testFrameNodes[] = {
    nameArg("the list", sTestFrameSrc, addText),
};
constexpr grammarState sTestFrame{testFrameNodes};
constexpr grammarNode testFrameSrcNodes[] = {macArg("source address", sTestFrameDst)};
constexpr grammarState sTestFrameSrc{testFrameSrcNodes};
constexpr grammarNode testFrameDstNodes[] = {macArg("destination address", sTestFrameType)};
constexpr grammarState sTestFrameDst{testFrameDstNodes};
constexpr grammarNode testFrameTypeNodes[] = {
    kw("ev2", "an Ethernet II frame", sEtherType, addText),
    kw("snap", "a frame with a SNAP header", sEtherType, addText),
    kw("llc", "a frame with a bare LLC header", sEtherType, addText),
    fin("ask"),
};
constexpr grammarState sTestFrameType{testFrameTypeNodes};
constexpr grammarNode etherTypeNodes[] = {
    {cliArg::hex, "<0-ffff>", "its type, or its access points", &sDone, addText, 0, 0, 0, 0, 0xFFFF,
     0xFFFF},
};
constexpr grammarState sEtherType{etherTypeNodes};

// --- routing-policy lists ----------------------------------------------------------------------

constexpr grammarNode listNode(const grammarState& next) {
    return nameArg("the list", next, addText);
}
constexpr grammarNode testIpv6Nodes[] = {
    verbOf("access-list", "an access list", sTestName6, cliVerb::test, KIND_IP6),
    verbOf("prefix-list", "an IPv6 prefix list", sTestPrefix6, cliVerb::test, KIND_PREFIX6),
};
constexpr grammarState sTestIpv6{testIpv6Nodes};
constexpr grammarNode testPrefix4Nodes[] = {listNode(sTest4)};
constexpr grammarState sTestPrefix4{testPrefix4Nodes};
constexpr grammarNode testPrefix6Nodes[] = {listNode(sTest6)};
constexpr grammarState sTestPrefix6{testPrefix6Nodes};
constexpr grammarNode test4Nodes[] = {
    arg(cliArg::prefix, "A.B.C.D/LEN", "prefix of the route", sDone, addText),
};
constexpr grammarState sTest4{test4Nodes};
constexpr grammarNode test6Nodes[] = {
    arg(cliArg::prefix6, "X:X::X/LEN", "prefix of the route", sDone, addText),
};
constexpr grammarState sTest6{test6Nodes};
constexpr grammarNode testPathNodes[] = {listNode(sPath)};
constexpr grammarState sTestPath{testPathNodes};
// Paths and communities are free text: they are read where the lists are matched.
constexpr grammarNode pathNodes[] = {
    arg(cliArg::rest, "AS ...", "the path, as it is shown", sDone, addText),
    fin("an empty path"),
};
constexpr grammarState sPath{pathNodes};
constexpr grammarNode testValuesNodes[] = {listNode(sValues)};
constexpr grammarState sTestValues{testValuesNodes};
constexpr grammarNode valuesNodes[] = {
    arg(cliArg::rest, "COMMUNITY ...", "the communities of the route", sDone, addText),
    fin("a route without communities"),
};
constexpr grammarState sValues{valuesNodes};

constexpr grammarNode testRouteMapNodes[] = {
    nameArg("the map", sRoutePrefix, addText),
};
constexpr grammarState sTestRouteMap{testRouteMapNodes};
constexpr grammarNode routePrefixNodes[] = {
    arg(cliArg::prefix, "A.B.C.D/LEN", "prefix of the route", sRoute, addText),
    arg(cliArg::prefix6, "X:X::X/LEN", "prefix of the route", sRoute, addText),
};
constexpr grammarState sRoutePrefix{routePrefixNodes};
constexpr grammarNode routeNodes[] = {
    kw("next-hop", "its next hop", sRouteText, addText, 0, 0, O_NEXT_HOP),
    kw("route-source", "who told it", sRouteText, addText, 0, 0, O_SOURCE),
    kw("as-path", "its AS path", sRouteText, addText, 0, 0, O_AS_PATH),
    kw("community", "its communities", sRouteText, addText, 0, 0, O_COMMUNITY),
    kw("extcommunity", "its extended communities", sRouteText, addText, 0, 0, O_EXTCOMMUNITY),
    kw("origin", "its BGP origin", sRouteText, addText, 0, 0, O_ORIGIN),
    kw("route-type", "its kind", sRouteText, addText, 0, 0, O_ROUTE_TYPE),
    kw("interface", "where its next hop is", sRouteText, addText, 0, 0, O_INTERFACE),
    kw("metric", "its metric", sRouteNumber, addText, 0, 0, O_METRIC),
    kw("tag", "its tag", sRouteNumber, addText, 0, 0, O_TAG),
    kw("local-preference", "its local preference", sRouteNumber, addText, 0, 0, O_PREFERENCE),
    kw("weight", "its weight", sRouteNumber, addText, 0, 0, O_WEIGHT),
    fin("ask"),
};
constexpr grammarState sRoute{routeNodes};
constexpr grammarNode routeTextNodes[] = {
    arg(cliArg::quoted, "VALUE", "several words: between quotation marks", sRoute, addText),
};
constexpr grammarState sRouteText{routeTextNodes};
constexpr grammarNode routeNumberNodes[] = {
    number("value", 0, 0xFFFFFFFF, sRoute, addText),
};
constexpr grammarState sRouteNumber{routeNumberNodes};

}  // namespace

constexpr grammarState sTest{testNodes};
