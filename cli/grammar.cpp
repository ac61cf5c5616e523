#include "cli/grammar.h"

#include <array>

#include "cli/lexer.h"
#include "include/chassisControl.h"
#include "include/icmpNames.h"
#include "include/ifindex.h"

namespace {

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
    O_TEST_SRC_PORT = 1u << 18,
    O_TEST_DST_PORT = 1u << 19,
    O_TEST_FLAGS = 1u << 20,
    O_IMPLICIT_PERMIT = 1u << 21,
    O_VLANS = 1u << 22,
};

// --- actions that are not about entries ------------------------------------------------------

const char* setVerb(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.verb = static_cast<cliVerb>(n.value);
    return nullptr;
}
const char* setNegated(cliCommand& c, const cliValue&, const grammarNode&) {
    c.negated = true;
    c.features = (c.features & ~uint32_t{F_POSITIVE}) | F_NEGATED;
    return nullptr;
}
const char* setName(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.name = v.word;
    return nullptr;
}
const char* setKind(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.kind = n.value;
    return nullptr;
}
const char* setNumber(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.number = n.kind == cliArg::word ? n.value : static_cast<uint32_t>(v.number);
    return nullptr;
}
// The argument line of a debug function or an interface's name, in full words.
const char* addText(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (!c.text.empty()) c.text += ' ';
    if (n.kind == cliArg::number)
        c.text += std::to_string(v.number);
    else
        c.text += n.kind == cliArg::word ? n.word : v.word;
    return nullptr;
}
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

const char* setDirection(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.direction = n.value;
    return nullptr;
}
const char* setImplicitPermit(cliCommand& c, const cliValue&, const grammarNode&) {
    c.implicitPermit = 1;
    return nullptr;
}

// "10" or "10-20", from 1 to 4094.
bool isVlanRange(std::string_view text) {
    uint64_t low, high;
    size_t dash = text.find('-');
    if (!lexNumber(text.substr(0, dash), &low)) return false;
    high = low;
    if (dash != text.npos && !lexNumber(text.substr(dash + 1), &high)) return false;
    return low >= 1 && low <= high && high <= 4094;
}
// A configuration line has 255 characters; what does not fit would be cut there and could not be
// read back.
constexpr size_t BINDING_LINE_MAX = 255;
constexpr std::string_view BINDING_LINE_WORDS = " ip access-group  out implicit-permit Vlan ";

const char* setVlans(cliCommand& c, const cliValue& v, const grammarNode&) {
    std::string_view left = v.word;
    for (;;) {
        size_t comma = left.find(',');
        if (!isVlanRange(left.substr(0, comma)))
            return "A VLAN range is N or N-M from 1 to 4094, several with commas between";
        if (comma == left.npos) break;
        left.remove_prefix(comma + 1);
    }
    if (BINDING_LINE_WORDS.size() + c.name.size() + v.word.size() > BINDING_LINE_MAX)
        return "The VLAN range is too long for one line";
    c.vlans = v.word;
    return nullptr;
}

// --- nodes -----------------------------------------------------------------------------------

constexpr grammarNode kw(std::string_view word, const char* help, cliState next,
                         cliAction action = nullptr, uint32_t value = 0, uint32_t when = 0,
                         uint32_t once = 0) {
    return {cliArg::word, word, help, next, action, value, when, once, 0, 0, 0};
}
constexpr grammarNode verb(std::string_view word, const char* help, cliState next, cliVerb v,
                           uint32_t when = 0) {
    return kw(word, help, next, setVerb, static_cast<uint32_t>(v), when);
}
constexpr grammarNode arg(cliArg kind, std::string_view shown, const char* help, cliState next,
                          cliAction action, uint32_t value = 0, uint32_t when = 0) {
    return {kind, shown, help, next, action, value, when, 0, 0, 0, 0};
}
// wideHigh: what the field can hold; a configuration that is restored may carry it.
constexpr grammarNode number(const char* help, uint32_t low, uint32_t high, cliState next,
                             cliAction action, uint32_t value = 0, uint32_t wideHigh = 0) {
    return {cliArg::number,
            "",
            help,
            next,
            action,
            value,
            0,
            0,
            low,
            high,
            wideHigh == 0 ? high : wideHigh};
}
constexpr grammarNode fin(const char* help, uint32_t when = 0) {
    return {cliArg::end, "<cr>", help, S_NONE, nullptr, 0, when, 0, 0, 0, 0};
}

constexpr grammarNode execNodes[] = {
    kw("show", "show something", S_SHOW),
    kw("clear", "reset counters", S_CLEAR),
    kw("write", "save the configuration", S_WRITE),
    verb("chassis", "cards and route processors", S_CHASSIS, cliVerb::chassis),
    kw("configure", "enter configuration mode", S_CONFIGURE, nullptr, 0, F_EXEC),
    kw("test", "ask a list about a packet", S_TEST),
    verb("debug", "run a debug function of the manager", S_DEBUG, cliVerb::debug),
    verb("exit", "leave the shell", S_DONE, cliVerb::exit, F_EXEC),
    verb("end", "stay in exec mode", S_DONE, cliVerb::end, F_EXEC),
};
constexpr grammarNode showNodes[] = {
    verb("running-config", "the configuration as it runs", S_DONE, cliVerb::showRunning),
    verb("startup-config", "the configuration that was saved", S_DONE, cliVerb::showStartup),
    kw("ip", "IP lists", S_SHOW_IP),
    verb("logging", "the manager's event log", S_DONE, cliVerb::showLogging),
    verb("system", "state and counters of the manager", S_DONE, cliVerb::showSystem),
    verb("queues", "the manager's queues to cards and tasks", S_DONE, cliVerb::showQueues),
    verb("interfaces", "names and indexes of interfaces", S_DONE, cliVerb::showInterfaces),
    verb("cards", "the agents of all cards", S_DONE, cliVerb::showCards),
    verb("card", "the agent of one card", S_SHOW_CARD, cliVerb::showCard),
};
constexpr grammarNode showIpNodes[] = {
    verb("access-lists", "entries of access lists", S_SHOW_LISTS, cliVerb::showLists),
    verb("access-group", "which lists are bound where", S_DONE, cliVerb::showAccessGroups),
};
constexpr grammarNode showListsNodes[] = {
    arg(cliArg::name, "NAME", "one list", S_SHOW_LIST, setName),
    fin("all lists"),
};
constexpr grammarNode showListNodes[] = {
    verb("installed", "compare with what the cards hold", S_DONE, cliVerb::showInstalled),
    fin("its entries"),
};
constexpr std::array<grammarNode, 2> slotNodes(cliState next) {
    auto slot = number("slot", 0, SLOT_COUNT - 1, next, setNumber);
    return {slot,
            kw("control-plane", "the control processor", next, setNumber, CARD_CONTROL_PLANE)};
}
constexpr auto showCardNodes = slotNodes(S_SHOW_CARD_WHAT);
constexpr grammarNode showCardWhatNodes[] = {
    kw("summary", "state and counters", S_DONE, setKind, CARD_SUMMARY),
    kw("access-lists", "installed lists", S_SHOW_CARD_LISTS, setKind, CARD_LISTS),
};
constexpr grammarNode showCardListsNodes[] = {
    arg(cliArg::name, "NAME", "the installed entries of one list", S_DONE, setName),
    fin("all lists"),
};
constexpr grammarNode chassisNodes[] = {
    kw("card", "report an event of a card", S_CHASSIS_CARD),
    kw("primary", "move the primary role", S_CHASSIS_PRIMARY, setKind, CHASSIS_PRIMARY),
    kw("status", "tasks and who has subscribed", S_DONE, setKind, CHASSIS_STATE),
};
constexpr auto chassisCardNodes = slotNodes(S_CHASSIS_EVENT);
constexpr grammarNode chassisEventNodes[] = {
    kw("down", "the card is down", S_DONE, setKind, CHASSIS_CARD_DOWN),
    kw("shutdown", "the card is shut down", S_DONE, setKind, CHASSIS_CARD_SHUTDOWN),
};
constexpr grammarNode chassisPrimaryNodes[] = {number("route processor", 0, 1, S_DONE, setNumber)};
constexpr grammarNode clearNodes[] = {kw("ip", "IP lists", S_CLEAR_IP)};
constexpr grammarNode clearIpNodes[] = {kw("access-lists", "access lists", S_CLEAR_LISTS)};
constexpr grammarNode clearListsNodes[] = {
    verb("counters", "set the match counters to 0", S_CLEAR_COUNTERS, cliVerb::clearCounters),
};
constexpr grammarNode clearCountersNodes[] = {
    arg(cliArg::name, "NAME", "of one list", S_DONE, setName),
    fin("of all lists"),
};
constexpr grammarNode writeNodes[] = {
    verb("memory", "keep the configuration for the next start", S_DONE, cliVerb::writeMemory),
};
constexpr grammarNode configureNodes[] = {
    verb("terminal", "from this terminal", S_DONE, cliVerb::configure),
};
constexpr grammarNode debugNodes[] = {
    arg(cliArg::text, "FUNCTION", "name of the function", S_DEBUG_ARGS, setName),
};
constexpr grammarNode debugArgsNodes[] = {
    arg(cliArg::rest, "ARGUMENTS", "what the function is given", S_DONE, addText),
    fin("without arguments"),
};

// The packet of a test is passed on word by word.
constexpr grammarNode testNodes[] = {kw("ip", "IP lists", S_TEST_IP)};
constexpr grammarNode testIpNodes[] = {
    verb("access-list", "an access list", S_TEST_NAME, cliVerb::test),
};
constexpr grammarNode testNameNodes[] = {
    arg(cliArg::name, "NAME", "the list", S_TEST_PROTOCOL, addText),
};
constexpr grammarNode testProtocolNodes[] = {
    kw("tcp", "a TCP packet", S_TEST_SRC, addText),
    kw("udp", "a UDP packet", S_TEST_SRC, addText),
    kw("icmp", "an ICMP packet", S_TEST_SRC, addText),
    number("protocol number", 0, 255, S_TEST_SRC, addText),
};
constexpr grammarNode testSrcNodes[] = {
    arg(cliArg::address, "A.B.C.D", "source address", S_TEST_DST, addText),
};
constexpr grammarNode testDstNodes[] = {
    arg(cliArg::address, "A.B.C.D", "destination address", S_TEST_OPTIONS, addText),
};
constexpr grammarNode testOptionsNodes[] = {
    kw("src-port", "source port", S_TEST_SRC_PORT, addText, 0, 0, O_TEST_SRC_PORT),
    kw("dst-port", "destination port", S_TEST_DST_PORT, addText, 0, 0, O_TEST_DST_PORT),
    kw("flags", "TCP flags", S_TEST_FLAGS, addText, 0, 0, O_TEST_FLAGS),
    kw("icmp-type", "ICMP type", S_TEST_ICMP_TYPE, addText, 0, 0, O_ICMP),
    kw("tos", "the TOS byte: DSCP, precedence", S_TEST_TOS, addText, 0, 0, O_TOS),
    kw("fragment", "not the first fragment", S_TEST_OPTIONS, addText, 0, 0, O_FRAGMENTS),
    fin("ask"),
};
constexpr grammarNode testPortNodes[] = {number("port", 0, 65535, S_TEST_OPTIONS, addText)};
constexpr grammarNode testFlagsNodes[] = {
    arg(cliArg::text, "FLAG,...", "fin, syn, rst, psh, ack, urg", S_TEST_OPTIONS, addFlags),
};
constexpr grammarNode testIcmpTypeNodes[] = {
    number("ICMP type", 0, 255, S_TEST_ICMP_CODE, addText)};
constexpr grammarNode testIcmpCodeNodes[] = {
    kw("icmp-code", "ICMP code", S_TEST_TOS, addText),  // a byte follows, as behind tos
};
constexpr grammarNode testTosNodes[] = {number("a byte", 0, 255, S_TEST_OPTIONS, addText)};
constexpr grammarNode doneNodes[] = {fin("do it")};

constexpr grammarNode configNodes[] = {
    // Each names its verb at once: a line that goes wrong behind it was still not an entry.
    verb("ip", "IP lists", S_IP, cliVerb::list),
    verb("interface", "an interface and its mode", S_INTERFACE, cliVerb::interface, F_POSITIVE),
    verb("access-list", "how access lists are shown", S_ACCESS_LIST, cliVerb::maskMode),
    kw("no", "take a command back", S_MODE, setNegated, 0, F_POSITIVE),
    kw("do", "run an exec command", S_EXEC, nullptr, 0, F_POSITIVE),
    verb("exit", "leave this mode", S_DONE, cliVerb::exit, F_POSITIVE),
    verb("end", "back to exec mode", S_DONE, cliVerb::end, F_POSITIVE),
};
constexpr grammarNode ipNodes[] = {
    verb("access-list", "an access list and its mode", S_IP_LIST, cliVerb::list),
    verb("trace-list", "a denial-of-service filter list and its mode", S_LIST_NAME,
         cliVerb::traceList),
    verb("trace-group", "make a trace list the active filter", S_LIST_NAME, cliVerb::traceGroup),
};
constexpr grammarNode ipListNodes[] = {
    kw("standard", "filters by source address", S_LIST_NAME, setKind, IP_KIND_STANDARD),
    kw("extended", "filters by protocol, addresses, ports and more", S_LIST_NAME, setKind,
       IP_KIND_EXTENDED),
};
constexpr grammarNode listNameNodes[] = {
    arg(cliArg::name, "NAME", "list name, at most 140 characters", S_DONE, setName),
};
constexpr grammarNode accessListNodes[] = {
    kw("inverse-mask", "show masks as they are, not as wildcards", S_DONE),
};

constexpr grammarNode interfaceNodes[] = {
    kw("port-channel", "a LAG", S_INTERFACE_ID, addText),
    kw("vlan", "a VLAN", S_INTERFACE_ID, addText),
    kw("control-plane", "the control processor", S_DONE, addText),
    arg(cliArg::name, "PORT", "a port of a card, as the chassis names it", S_DONE, addText),
};
constexpr grammarNode interfaceIdNodes[] = {number("id", 1, 4094, S_DONE, addText)};
// The line of an interface. It names its verb with its first word: a mistyped one leaves the mode
// as it is.
constexpr grammarNode bindingNodes[] = {
    verb("ip", "IP lists", S_BINDING_IP, cliVerb::accessGroup),
};
constexpr grammarNode bindingIpNodes[] = {
    kw("access-group", "bind an access list to the interface", S_BINDING_NAME),
};
constexpr grammarNode bindingNameNodes[] = {
    arg(cliArg::name, "NAME", "list name, at most 140 characters", S_BINDING_DIRECTION, setName),
};
constexpr grammarNode bindingDirectionNodes[] = {
    kw("in", "packets that come in", S_BINDING_OPTIONS, setDirection, 0),
    kw("out", "packets that go out", S_BINDING_OPTIONS, setDirection, 1),
};
constexpr grammarNode bindingOptionsNodes[] = {
    kw("implicit-permit", "what no entry matches passes", S_BINDING_OPTIONS, setImplicitPermit, 0,
       F_POSITIVE, O_IMPLICIT_PERMIT),
    kw("Vlan", "only packets of these VLANs", S_BINDING_VLANS, nullptr, 0, F_POSITIVE, O_VLANS),
    fin("bind, or with \"no\" unbind, the list"),
};
constexpr grammarNode bindingVlansNodes[] = {
    arg(cliArg::text, "N-M,...", "VLAN ids", S_BINDING_OPTIONS, setVlans),
};

// --- entry lines -----------------------------------------------------------------------------

// The clause of one address; its states follow each other in the enumeration.
constexpr std::array<grammarNode, 4> addressNodes(uint32_t side, cliState host, cliState mask,
                                                  cliState next) {
    return {
        kw("any", "any address", next), kw("host", "one address", host),
        arg(cliArg::prefix, "A.B.C.D/LEN", "address and prefix length", next, entryPrefix, side),
        arg(cliArg::address, "A.B.C.D", "address, a mask follows", mask, entryAddress, side)};
}
constexpr grammarNode hostNode(uint32_t side, cliState next) {
    return arg(cliArg::address, "A.B.C.D", "the address", next, entryHost, side);
}
constexpr grammarNode maskNode(uint32_t side, cliState next) {
    return arg(cliArg::address, "A.B.C.D", "wildcard, or mask in inverse-mask mode", next,
               entryMask, side);
}
constexpr std::array<grammarNode, 5> portNodes(uint32_t side, cliState one, cliState low) {
    auto op = [side](ipPortOperator code) { return side << 8 | code; };
    return {kw("eq", "port equal to", one, entryPortOperator, op(PORT_EQ)),
            kw("gt", "port above", one, entryPortOperator, op(PORT_GT)),
            kw("lt", "port below", one, entryPortOperator, op(PORT_LT)),
            kw("neq", "port not equal to", one, entryPortOperator, op(PORT_NEQ)),
            kw("range", "ports from, to", low, entryPortOperator, op(PORT_RANGE))};
}
constexpr std::array<grammarNode, 2> macNodes(uint32_t side, cliState mask, cliState next) {
    return {
        kw("any", "any MAC address", next, entryMacAny, side),
        arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", "MAC address, a mask follows", mask, entryMac, side)};
}
constexpr grammarNode macMaskNode(uint32_t side, cliState next) {
    return arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", "bits set are not compared", next, entryMacMask,
               side);
}

template <cliState seq, cliState next>
constexpr std::array<grammarNode, 4> listNodes = {
    kw("seq", "sequence number", seq, nullptr, 0, F_START),
    kw("permit", "let matching packets pass", next, entryAction, IP_PERMIT),
    kw("deny", "drop matching packets", next, entryAction, IP_DENY),
    fin("the entry with this number", F_SEQ | F_NEGATED),
};
template <cliState next>
constexpr grammarNode seqNode[] = {
    arg(cliArg::sequence, "<0-4294967290>", "sequence number", next, entrySequence),
};

constexpr grammarNode protocolNodes[] = {
    kw("tcp", "TCP", S_SRC, entryProtocol, IP_PROTO_TCP),
    kw("udp", "UDP", S_SRC, entryProtocol, IP_PROTO_UDP),
    kw("ip", "every protocol", S_SRC, entryProtocol, IP_PROTO_ANY),
    kw("icmp", "ICMP", S_SRC, entryProtocol, IP_PROTO_ICMP),
    kw("arp", "ARP packets of a VLAN", S_ARP_MAC, entryArp, 0, F_LAYER2),
    kw("ether-type", "frames of an ether-type", S_ETHER_TYPE, nullptr, 0, F_LAYER2),
    number("protocol number", 0, 255, S_SRC, entryProtocolNumber),
};

template <cliState next, uint32_t side>
constexpr grammarNode portNode[] = {number("port", 0, 65535, next, entryPortLow, side)};
template <cliState next, uint32_t side>
constexpr grammarNode portHighNode[] = {number("last port", 0, 65535, next, entryPortHigh, side)};

constexpr size_t ICMP_NAMES = std::size(icmpNameTable);
constexpr std::array<grammarNode, ICMP_NAMES + 1> makeIcmpNodes() {
    std::array<grammarNode, ICMP_NAMES + 1> nodes{};
    for (uint32_t i = 0; i < ICMP_NAMES; i++)
        nodes[i] =
            kw(icmpNameTable[i].word, "ICMP message", S_OPTIONS, entryIcmpName, i, 0, O_ICMP);
    nodes[ICMP_NAMES] = number("ICMP type", 0, 255, S_ICMP_CODE, entryIcmpType);
    nodes[ICMP_NAMES].once = O_ICMP;
    return nodes;
}
constexpr auto icmpNodes = makeIcmpNodes();
constexpr grammarNode icmpCodeNodes[] = {number("ICMP code", 0, 255, S_OPTIONS, entryIcmpCode)};

// Any order is taken; this is the order in which the configuration shows them.
constexpr auto flagNodes = [] {
    std::array<grammarNode, std::size(tcpFlagTable)> nodes{};
    for (size_t i = 0; i < nodes.size(); i++)
        nodes[i] = kw(tcpFlagTable[i].word, "TCP flag", S_OPTIONS, entryTcpFlag,
                      tcpFlagTable[i].bit, F_TCP, tcpFlagTable[i].bit);
    return nodes;
}();
constexpr auto optionNodes = [] {
    constexpr grammarNode front[] = {
        kw("dscp", "DSCP value", S_OPTION_DSCP, nullptr, 0, F_NET, O_DSCP),
    };
    constexpr grammarNode back[] = {
        kw("precedence", "IP precedence", S_OPTION_PRECEDENCE, nullptr, 0, F_EXT, O_PRECEDENCE),
        kw("tos", "type of service", S_OPTION_TOS, nullptr, 0, F_EXT, O_TOS),
        kw("fragments", "later fragments only", S_OPTIONS, entryFragments, 0, F_NET, O_FRAGMENTS),
        kw("log", "log matching packets", S_OPTIONS, entryLog, 0, 0, O_LOG),
        kw("count", "count packets", S_OPTIONS, entryCounter, IP_COUNT, 0, O_COUNT),
        kw("bytes", "count bytes", S_OPTIONS, entryCounter, IP_BYTES, 0, O_BYTES),
        kw("order", "priority among lists", S_OPTION_ORDER, nullptr, 0, F_LIST, O_ORDER),
        kw("monitor", "copy matching packets to the monitor", S_OPTIONS, entryMonitor, 0, F_LIST,
           O_MONITOR),
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
constexpr grammarNode dscpNodes[] = {number("DSCP", 0, 63, S_OPTIONS, entryDscp, 0, 254)};
constexpr grammarNode precedenceNodes[] = {
    number("precedence", 0, 7, S_OPTIONS, entryPrecedence, 0, ANY_WORD),
};
constexpr grammarNode tosNodes[] = {number("TOS", 0, 15, S_OPTIONS, entryTos, 0, ANY_WORD)};
constexpr grammarNode orderNodes[] = {number("order", 0, 254, S_OPTIONS, entryOrder)};

// Layer 2: "arp MAC VLAN id [opcode n] ADDRESS" and "ether-type hex MAC VLAN id MAC".
template <cliState next>
constexpr grammarNode vlanWord[] = {kw("VLAN", "VLAN of the packet", next)};
template <cliState next>
constexpr grammarNode vlanNode[] = {number("VLAN id", 0, 4095, next, entryVlan, 0, ANY_WORD)};
constexpr grammarNode opcodeNodes[] = {
    kw("opcode", "ARP operation", S_ARP_OPCODE_VALUE),
};
constexpr grammarNode opcodeValueNodes[] = {
    number("ARP opcode", 1, 65535, S_ARP_IP, entryOpcode, 0, ANY_WORD),
};
constexpr grammarNode etherTypeNodes[] = {
    {cliArg::hex, "HEX", "ether-type", S_ETHER_SRC, entryEtherType, 0, 0, 0, 1, 0xFFFF, ANY_WORD},
};

constexpr auto standardSrc =
    addressNodes(ENTRY_SRC, S_STANDARD_SRC_HOST, S_STANDARD_SRC_MASK, S_OPTIONS);
constexpr auto src = addressNodes(ENTRY_SRC, S_SRC_HOST, S_SRC_MASK, S_SRC_PORT);
constexpr auto dst = addressNodes(ENTRY_DST, S_DST_HOST, S_DST_MASK, S_DST_PORT);
// The mask of an ARP rule is shown as a length whatever it is, so no second address is taken.
constexpr auto arpIp = [] {
    auto nodes = addressNodes(ENTRY_SRC, S_STANDARD_SRC_HOST, S_NONE, S_OPTIONS);
    return std::array{nodes[0], nodes[1], nodes[2]};
}();
constexpr grammarNode standardSrcHost[] = {hostNode(ENTRY_SRC, S_OPTIONS)};
constexpr grammarNode standardSrcMask[] = {maskNode(ENTRY_SRC, S_OPTIONS)};
constexpr grammarNode srcHost[] = {hostNode(ENTRY_SRC, S_SRC_PORT)};
constexpr grammarNode srcMask[] = {maskNode(ENTRY_SRC, S_SRC_PORT)};
constexpr grammarNode dstHost[] = {hostNode(ENTRY_DST, S_DST_PORT)};
constexpr grammarNode dstMask[] = {maskNode(ENTRY_DST, S_DST_PORT)};
constexpr auto srcPorts = portNodes(ENTRY_SRC, S_SRC_PORT_ONE, S_SRC_PORT_LOW);
constexpr auto dstPorts = portNodes(ENTRY_DST, S_DST_PORT_ONE, S_DST_PORT_LOW);
constexpr auto arpMac = macNodes(ENTRY_SRC, S_ARP_MAC_MASK, S_ARP_VLAN);
constexpr grammarNode arpMacMask[] = {macMaskNode(ENTRY_SRC, S_ARP_VLAN)};
constexpr auto etherSrc = macNodes(ENTRY_SRC, S_ETHER_SRC_MASK, S_ETHER_VLAN);
constexpr grammarNode etherSrcMask[] = {macMaskNode(ENTRY_SRC, S_ETHER_VLAN)};
constexpr auto etherDst = macNodes(ENTRY_DST, S_ETHER_DST_MASK, S_OPTIONS);
constexpr grammarNode etherDstMask[] = {macMaskNode(ENTRY_DST, S_OPTIONS)};

// --- states ----------------------------------------------------------------------------------

constexpr auto states = [] {
    std::array<grammarState, S_COUNT> s{};
    auto set = [&s](cliState at, std::span<const grammarNode> nodes, cliState chain = S_NONE,
                    uint32_t when = 0) {
        s[at] = {nodes, chain, when};
    };
    set(S_EXEC, execNodes);
    set(S_SHOW, showNodes);
    set(S_SHOW_IP, showIpNodes);
    set(S_SHOW_LISTS, showListsNodes);
    set(S_SHOW_LIST, showListNodes);
    set(S_SHOW_CARD, showCardNodes);
    set(S_SHOW_CARD_WHAT, showCardWhatNodes);
    set(S_SHOW_CARD_LISTS, showCardListsNodes);
    set(S_CLEAR, clearNodes);
    set(S_CLEAR_IP, clearIpNodes);
    set(S_CLEAR_LISTS, clearListsNodes);
    set(S_CLEAR_COUNTERS, clearCountersNodes);
    set(S_WRITE, writeNodes);
    set(S_CONFIGURE, configureNodes);
    set(S_DEBUG, debugNodes);
    set(S_DEBUG_ARGS, debugArgsNodes);
    set(S_CHASSIS, chassisNodes);
    set(S_CHASSIS_CARD, chassisCardNodes);
    set(S_CHASSIS_EVENT, chassisEventNodes);
    set(S_CHASSIS_PRIMARY, chassisPrimaryNodes);
    set(S_TEST, testNodes);
    set(S_TEST_IP, testIpNodes);
    set(S_TEST_NAME, testNameNodes);
    set(S_TEST_PROTOCOL, testProtocolNodes);
    set(S_TEST_SRC, testSrcNodes);
    set(S_TEST_DST, testDstNodes);
    set(S_TEST_OPTIONS, testOptionsNodes);
    set(S_TEST_SRC_PORT, testPortNodes);
    set(S_TEST_DST_PORT, testPortNodes);
    set(S_TEST_FLAGS, testFlagsNodes);
    set(S_TEST_ICMP_TYPE, testIcmpTypeNodes);
    set(S_TEST_ICMP_CODE, testIcmpCodeNodes, S_TEST_OPTIONS);
    set(S_TEST_TOS, testTosNodes);
    set(S_DONE, doneNodes);
    set(S_CONFIG, configNodes, S_NONE, F_START);
    set(S_IP, ipNodes);
    set(S_IP_LIST, ipListNodes);
    set(S_LIST_NAME, listNameNodes);
    set(S_INTERFACE, interfaceNodes);
    set(S_INTERFACE_ID, interfaceIdNodes);
    set(S_BINDING, bindingNodes, S_CONFIG);
    set(S_BINDING_IP, bindingIpNodes, S_IP);
    set(S_BINDING_NAME, bindingNameNodes);
    set(S_BINDING_DIRECTION, bindingDirectionNodes);
    set(S_BINDING_OPTIONS, bindingOptionsNodes);
    set(S_BINDING_VLANS, bindingVlansNodes);
    set(S_ACCESS_LIST, accessListNodes);
    // A configuration line may be typed in a list's mode: it leaves the list.
    set(S_STANDARD, listNodes<S_STANDARD_SEQ, S_STANDARD_SRC>, S_CONFIG);
    set(S_STANDARD_SEQ, seqNode<S_STANDARD>);
    set(S_STANDARD_SRC, standardSrc);
    set(S_STANDARD_SRC_HOST, standardSrcHost);
    set(S_STANDARD_SRC_MASK, standardSrcMask);
    set(S_EXTENDED, listNodes<S_EXTENDED_SEQ, S_PROTOCOL>, S_CONFIG);
    set(S_EXTENDED_SEQ, seqNode<S_EXTENDED>);
    set(S_PROTOCOL, protocolNodes);
    set(S_SRC, src);
    set(S_SRC_HOST, srcHost);
    set(S_SRC_MASK, srcMask);
    set(S_SRC_PORT, srcPorts, S_DST, F_PORTS);
    set(S_SRC_PORT_ONE, portNode<S_DST, ENTRY_SRC>);
    set(S_SRC_PORT_LOW, portNode<S_SRC_PORT_HIGH, ENTRY_SRC>);
    set(S_SRC_PORT_HIGH, portHighNode<S_DST, ENTRY_SRC>);
    set(S_DST, dst);
    set(S_DST_HOST, dstHost);
    set(S_DST_MASK, dstMask);
    set(S_DST_PORT, dstPorts, S_OPTIONS, F_PORTS);
    set(S_DST_PORT_ONE, portNode<S_OPTIONS, ENTRY_DST>);
    set(S_DST_PORT_LOW, portNode<S_DST_PORT_HIGH, ENTRY_DST>);
    set(S_DST_PORT_HIGH, portHighNode<S_OPTIONS, ENTRY_DST>);
    set(S_ICMP, icmpNodes, S_NONE, F_ICMP);
    set(S_ICMP_CODE, icmpCodeNodes, S_OPTIONS);
    set(S_OPTIONS, optionNodes, S_ICMP);
    set(S_OPTION_DSCP, dscpNodes);
    set(S_OPTION_PRECEDENCE, precedenceNodes);
    set(S_OPTION_TOS, tosNodes);
    set(S_OPTION_ORDER, orderNodes);
    set(S_ARP_MAC, arpMac);
    set(S_ARP_MAC_MASK, arpMacMask);
    set(S_ARP_VLAN, vlanWord<S_ARP_VLAN_ID>);
    set(S_ARP_VLAN_ID, vlanNode<S_ARP_OPCODE>);
    set(S_ARP_OPCODE, opcodeNodes, S_ARP_IP);
    set(S_ARP_OPCODE_VALUE, opcodeValueNodes);
    set(S_ARP_IP, arpIp);
    set(S_ETHER_TYPE, etherTypeNodes);
    set(S_ETHER_SRC, etherSrc);
    set(S_ETHER_SRC_MASK, etherSrcMask);
    set(S_ETHER_VLAN, vlanWord<S_ETHER_VLAN_ID>);
    set(S_ETHER_VLAN_ID, vlanNode<S_ETHER_DST>);
    set(S_ETHER_DST, etherDst);
    set(S_ETHER_DST_MASK, etherDstMask);
    return s;
}();

// Every state but the two markers must have nodes: a forgotten `set` stops the build.
static_assert([] {
    for (size_t i = S_EXEC; i < S_COUNT; i++)
        if (states[i].nodes.empty()) return false;
    return true;
}());

constexpr uint32_t F_ANY_START = F_START | F_POSITIVE;
constexpr grammarMode modes[] = {
    {S_EXEC, F_ANY_START | F_EXEC, 0, "acl# "},
    {S_CONFIG, F_ANY_START, 0, "acl(config)# "},
    {S_STANDARD, F_ANY_START | F_LIST | F_NET, IP_KIND_STANDARD, "acl(config-standard)# "},
    {S_EXTENDED, F_ANY_START | F_LIST | F_NET | F_EXT | F_LAYER2, IP_KIND_EXTENDED,
     "acl(config-extended)# "},
    {S_EXTENDED, F_ANY_START | F_EXT, IP_KIND_EXTENDED, "acl(config-trace)# "},
    {S_BINDING, F_ANY_START, 0, "acl(config-if)# "},
};

}  // namespace

const grammarState& grammarStateOf(cliState state) {
    return states[state];
}
const grammarMode& grammarModeOf(cliMode mode) {
    return modes[static_cast<size_t>(mode)];
}
