// Configuration mode: the headers that open other modes, and the lines of an interface.
#include <string_view>

#include "cli/grammarBuild.h"
#include "cli/lexer.h"

namespace {

// Options that a binding has at most once.
enum : uint32_t {
    O_IMPLICIT_PERMIT = 1u << 0,
    O_VLANS = 1u << 1,
};

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

extern const grammarState sIp, sIpList, sAccessList, sInterface, sInterfaceId, sBindingIp,
    sBindingName, sBindingDirection, sBindingOptions, sBindingVlans;

constexpr grammarNode configNodes[] = {
    // Each names its verb at once: a line that goes wrong behind it was still not an entry.
    verb("ip", "IP lists", sIp, cliVerb::list),
    verb("interface", "an interface and its mode", sInterface, cliVerb::interface, F_POSITIVE),
    verb("access-list", "how access lists are shown", sAccessList, cliVerb::maskMode),
    kw("no", "take a command back", sMode, setNegated, 0, F_POSITIVE),
    kw("do", "run an exec command", sExec, nullptr, 0, F_POSITIVE),
    verb("exit", "leave this mode", sDone, cliVerb::exit, F_POSITIVE),
    verb("end", "back to exec mode", sDone, cliVerb::end, F_POSITIVE),
};
constexpr grammarNode ipNodes[] = {
    verb("access-list", "an access list and its mode", sIpList, cliVerb::list),
    verb("trace-list", "a denial-of-service filter list and its mode", sListName,
         cliVerb::traceList),
    verb("trace-group", "make a trace list the active filter", sListName, cliVerb::traceGroup),
};
constexpr grammarState sIp{ipNodes};
constexpr grammarNode ipListNodes[] = {
    kw("standard", "filters by source address", sListName, setKind, IP_KIND_STANDARD),
    kw("extended", "filters by protocol, addresses, ports and more", sListName, setKind,
       IP_KIND_EXTENDED),
};
constexpr grammarState sIpList{ipListNodes};
constexpr grammarNode listNameNodes[] = {
    arg(cliArg::name, "NAME", "list name, at most 140 characters", sDone, setName),
};
constexpr grammarNode accessListNodes[] = {
    kw("inverse-mask", "show masks as they are, not as wildcards", sDone),
};
constexpr grammarState sAccessList{accessListNodes};

constexpr grammarNode interfaceNodes[] = {
    kw("port-channel", "a LAG", sInterfaceId, addText),
    kw("vlan", "a VLAN", sInterfaceId, addText),
    kw("control-plane", "the control processor", sDone, addText),
    arg(cliArg::name, "PORT", "a port of a card, as the chassis names it", sDone, addText),
};
constexpr grammarState sInterface{interfaceNodes};
constexpr grammarNode interfaceIdNodes[] = {number("id", 1, 4094, sDone, addText)};
constexpr grammarState sInterfaceId{interfaceIdNodes};
// The line of an interface. It names its verb with its first word: a mistyped one leaves the mode
// as it is.
constexpr grammarNode bindingNodes[] = {
    verb("ip", "IP lists", sBindingIp, cliVerb::accessGroup),
};
constexpr grammarNode bindingIpNodes[] = {
    kw("access-group", "bind an access list to the interface", sBindingName),
};
constexpr grammarState sBindingIp{bindingIpNodes, &sIp};
constexpr grammarNode bindingNameNodes[] = {
    arg(cliArg::name, "NAME", "list name, at most 140 characters", sBindingDirection, setName),
};
constexpr grammarState sBindingName{bindingNameNodes};
constexpr grammarNode bindingDirectionNodes[] = {
    kw("in", "packets that come in", sBindingOptions, setDirection, 0),
    kw("out", "packets that go out", sBindingOptions, setDirection, 1),
};
constexpr grammarState sBindingDirection{bindingDirectionNodes};
constexpr grammarNode bindingOptionsNodes[] = {
    kw("implicit-permit", "what no entry matches passes", sBindingOptions, setImplicitPermit, 0,
       F_POSITIVE, O_IMPLICIT_PERMIT),
    kw("Vlan", "only packets of these VLANs", sBindingVlans, nullptr, 0, F_POSITIVE, O_VLANS),
    fin("bind, or with \"no\" unbind, the list"),
};
constexpr grammarState sBindingOptions{bindingOptionsNodes};
constexpr grammarNode bindingVlansNodes[] = {
    arg(cliArg::text, "N-M,...", "VLAN ids", sBindingOptions, setVlans),
};
constexpr grammarState sBindingVlans{bindingVlansNodes};

}  // namespace

constexpr grammarState sConfig{configNodes, nullptr, F_START};
constexpr grammarState sListName{listNameNodes};
constexpr grammarState sBinding{bindingNodes, &sConfig};
