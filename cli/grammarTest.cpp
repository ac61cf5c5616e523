// "test": what a list says about a packet. The words are passed on to the manager as they stand.
#include "cli/grammarBuild.h"
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

extern const grammarState sTestIp, sTestName, sTestProtocol, sTestSrc, sTestDst, sTestOptions,
    sTestSrcPort, sTestDstPort, sTestFlags, sTestIcmpType, sTestIcmpCode, sTestTos;

constexpr grammarNode testNodes[] = {kw("ip", "IP lists", sTestIp)};
constexpr grammarNode testIpNodes[] = {
    verb("access-list", "an access list", sTestName, cliVerb::test),
};
constexpr grammarState sTestIp{testIpNodes};
constexpr grammarNode testNameNodes[] = {
    arg(cliArg::name, "NAME", "the list", sTestProtocol, addText),
};
constexpr grammarState sTestName{testNameNodes};
constexpr grammarNode testProtocolNodes[] = {
    kw("tcp", "a TCP packet", sTestSrc, addText),
    kw("udp", "a UDP packet", sTestSrc, addText),
    kw("icmp", "an ICMP packet", sTestSrc, addText),
    number("protocol number", 0, 255, sTestSrc, addText),
};
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

}  // namespace

constexpr grammarState sTest{testNodes};
