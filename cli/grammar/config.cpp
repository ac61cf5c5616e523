// Configuration mode: the headers that open other modes, and the lines of an interface.
#include <string_view>

#include "cli/grammar/build.h"
#include "include/routeMapNames.h"

namespace {

// Options that a binding has at most once.
enum : uint32_t {
    O_IMPLICIT_PERMIT = 1u << 0,
    O_VLANS = 1u << 1,
};

// "no route-map NAME" takes the whole map, which the number 0 stands for; without "no" the manager
// chooses the instance when none is named.
const char* setRouteMap(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.policy.seq = c.negated ? 0 : RMAP_SEQ_NOT_GIVEN;
    return setName(c, v, n);
}
// Behind "no" an instance of the other action is not the one that was named.
const char* setInstanceAction(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (c.negated) c.policy.named = n.value == RMAP_DENY ? RMAP_NAMED_DENY : RMAP_NAMED_PERMIT;
    return setPolicyAction(c, v, n);
}

// A configuration line has 255 characters; what does not fit would be cut there and could not be
// read back.
constexpr size_t BINDING_LINE_MAX = 255;
constexpr std::string_view bindingWords(uint32_t kind) {
    return kind == KIND_IP6            ? " ipv6 access-group  out implicit-permit Vlan "
           : kind == KIND_MAC_STANDARD ? " mac access-group  out implicit-permit Vlan "
                                       : " ip access-group  out implicit-permit Vlan ";
}

const char* setBindingVlans(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (bindingWords(c.kind).size() + c.name.size() + v.word.size() > BINDING_LINE_MAX)
        return "The VLAN range is too long for one line";
    return setVlans(c, v, n);
}

extern const grammarState sAsPathLists, sIpv6, sMac, sRouteMapName, sInstance, sInstanceSeq,
    sNamedSeq, sResequence, sResequenceIp, sResequenceIpv6, sResequenceMac, sIpList, sMacList,
    sAccessList, sInterfaceId, sBindingIp, sBindingIpv6, sBindingMac, sBindingName,
    sBindingDirection, sBindingOptions, sBindingVlans;

constexpr grammarNode configNodes[] = {
    // Each names its verb at once: a line that goes wrong behind it was still not an entry.
    verb("ip", "IP lists", sIp, cliVerb::list),
    verb("ipv6", "IPv6 lists", sIpv6, cliVerb::list),
    verb("mac", "MAC lists", sMac, cliVerb::list),
    verbOf("route-map", "an instance of a route map and its mode", sRouteMapName, cliVerb::list,
           KIND_RMAP),
    verb("resequence", "number the entries of a list again", sResequence, cliVerb::resequence,
         F_POSITIVE),
    verb("interface", "an interface and its mode", sInterface, cliVerb::interface, F_POSITIVE),
    verb("acl-vlan-group", "VLANs that share an egress list, and the mode of the group", sListName,
         cliVerb::vlanGroup),
    verb("access-list", "how access lists are shown", sAccessList, cliVerb::maskMode),
    // "no" and "do" are written once: behind "no" the line begins again, without what cannot be
    // taken back (F_POSITIVE).
    kw("no", "take a command back", sMode, setNegated, 0, F_POSITIVE),
    kw("do", "run an exec command", sExec, nullptr, 0, F_POSITIVE),
    verb("exit", "leave this mode", sDone, cliVerb::exit, F_POSITIVE),
    verb("end", "back to exec mode", sDone, cliVerb::end, F_POSITIVE),
};
constexpr grammarNode ipNodes[] = {
    verb("access-list", "an access list and its mode", sIpList, cliVerb::list),
    verbOf("trace-list", "a denial-of-service filter list and its mode", sListName, cliVerb::list,
           KIND_TRACE),
    verb("trace-group", "make a trace list the active filter", sListName, cliVerb::traceGroup),
    verbOf("prefix-list", "an IPv4 prefix list and its mode", sListName, cliVerb::list,
           KIND_PREFIX4),
    verb("as-path", "AS-path lists", sAsPathLists, cliVerb::list),
    verbOf("community-list", "a community list and its mode", sListName, cliVerb::list,
           KIND_COMMUNITY),
    verbOf("extcommunity-list", "an extended-community list and its mode", sListName, cliVerb::list,
           KIND_EXTCOMMUNITY),
    verb("dhcp-trap", "cards trap packets to the DHCP port of the router", sDone,
         cliVerb::dhcpTrap),
};
constexpr grammarNode asPathNodes[] = {
    verbOf("access-list", "an AS-path access list and its mode", sListName, cliVerb::list,
           KIND_ASPATH),
};
constexpr grammarState sAsPathLists{asPathNodes};
constexpr grammarNode ipv6Nodes[] = {
    verbOf("access-list", "an IPv6 access list and its mode", sListName, cliVerb::list, KIND_IP6),
    verbOf("prefix-list", "an IPv6 prefix list and its mode", sListName, cliVerb::list,
           KIND_PREFIX6),
};
constexpr grammarState sIpv6{ipv6Nodes};
constexpr grammarNode macNodes[] = {
    verb("access-list", "a MAC list and its mode", sMacList, cliVerb::list),
    verb("egress-filter", "cards filter by egress MAC lists", sDone, cliVerb::macEgress),
};
constexpr grammarState sMac{macNodes};
constexpr grammarNode routeMapNodes[] = {
    nameArg("the map", sInstance, setRouteMap),
};
constexpr grammarState sRouteMapName{routeMapNodes};
constexpr auto instanceNodes = verdictNodes("matching routes pass", "matching routes are dropped",
                                            sNamedSeq, setInstanceAction, RMAP_PERMIT, RMAP_DENY);
constexpr grammarState sInstance{instanceNodes, &sInstanceSeq};
constexpr grammarNode instanceSeqNodes[] = {
    number("number of the instance", 1, 0x7FFFFFFF, sDone, setSequence),
    fin("its only instance, or 10; all behind \"no\""),
};
constexpr grammarState sInstanceSeq{instanceSeqNodes};
// "no" and an action take an instance of that action, never the whole map.
constexpr grammarNode namedSeqNodes[] = {
    number("number of the instance", 1, 0x7FFFFFFF, sDone, setSequence),
    fin("its only instance, or 10", F_POSITIVE),
};
constexpr grammarState sNamedSeq{namedSeqNodes};
// A refusal of the numbers points at the first of them.
const char* setStart(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.seqColumn = static_cast<uint32_t>(v.column);
    return setPolicy<&cliPolicy::start>(c, v, n);
}
// "resequence KIND NAME START STEP", the kind in the words of its header. Where numbers lie depends
// on it.
template <uint32_t low, uint32_t high>
constexpr grammarNode stepNodes[] = {
    number("from one entry to the next", 1, high, sDone, setPolicy<&cliPolicy::step>),
};
template <uint32_t low, uint32_t high>
constexpr grammarState sStep{stepNodes<low, high>};
template <uint32_t low, uint32_t high>
constexpr grammarNode startNodes[] = {
    number("number of the first entry", low, high, sStep<low, high>, setStart),
};
template <uint32_t low, uint32_t high>
constexpr grammarState sStart{startNodes<low, high>};
template <uint32_t low, uint32_t high>
constexpr grammarNode numberedNameNodes[] = {nameArg("the list", sStart<low, high>)};
template <uint32_t low, uint32_t high>
constexpr grammarState sNumbered{numberedNameNodes<low, high>};
constexpr const grammarState& sNumberedPrefix = sNumbered<1, PREFIX_SEQ_MAX>;
constexpr const grammarState& sNumberedAccess = sNumbered<0, SEQ_MAX>;
constexpr grammarNode resequenceNodes[] = {
    kw("ip", "an IPv4 list", sResequenceIp),
    kw("ipv6", "an IPv6 list", sResequenceIpv6),
    kw("mac", "a MAC list", sResequenceMac),
};
constexpr grammarState sResequence{resequenceNodes};
constexpr grammarNode resequenceIpNodes[] = {
    kw("access-list", "an access list", sNumberedAccess, setKind, KIND_STANDARD),
    kw("prefix-list", "a prefix list", sNumberedPrefix, setKind, KIND_PREFIX4),
};
constexpr grammarState sResequenceIp{resequenceIpNodes};
constexpr grammarNode resequenceIpv6Nodes[] = {
    kw("access-list", "an access list", sNumberedAccess, setKind, KIND_IP6),
    kw("prefix-list", "a prefix list", sNumberedPrefix, setKind, KIND_PREFIX6),
};
constexpr grammarState sResequenceIpv6{resequenceIpv6Nodes};
constexpr grammarNode resequenceMacNodes[] = {
    kw("access-list", "a MAC list", sNumbered<0, MAC_SEQ_MAX>, setKind, KIND_MAC_STANDARD),
};
constexpr grammarState sResequenceMac{resequenceMacNodes};
constexpr grammarNode ipListNodes[] = {
    kw("standard", "filters by source address", sListName, setKind, KIND_STANDARD),
    kw("extended", "filters by protocol, addresses, ports and more", sListName, setKind,
       KIND_EXTENDED),
};
constexpr grammarState sIpList{ipListNodes};
constexpr grammarNode macListNodes[] = {
    kw("standard", "filters by source address", sListName, setKind, KIND_MAC_STANDARD),
    kw("extended", "filters by both addresses and ether-type", sListName, setKind,
       KIND_MAC_EXTENDED),
};
constexpr grammarState sMacList{macListNodes};
constexpr grammarNode listNameNodes[] = {
    nameArg("list name, at most 140 characters", sDone),
};
constexpr grammarNode accessListNodes[] = {
    kw("inverse-mask", "show masks as they are, not as wildcards", sDone),
};
constexpr grammarState sAccessList{accessListNodes};

// A port's name follows from the chassis and may be anything, so the words come first.
constexpr grammarNode interfaceNodes[] = {
    kw("port-channel", "a LAG", sInterfaceId, addText),
    kw("vlan", "a VLAN", sInterfaceId, addText),
    kw("control-plane", "the control processor", sDone, addText),
    arg(cliArg::name, "PORT", "a port of a card, as the chassis names it; or an index, 0x...",
        sDone, addText),
};
constexpr grammarNode interfaceIdNodes[] = {number("id", 1, 4094, sDone, addText)};
constexpr grammarState sInterfaceId{interfaceIdNodes};
// The line of an interface. It names its verb with its first word: a mistyped one leaves the mode
// as it is.
constexpr grammarNode bindingNodes[] = {
    verbOf("ip", "IP lists", sBindingIp, cliVerb::accessGroup, KIND_STANDARD),
    verbOf("ipv6", "IPv6 lists", sBindingIpv6, cliVerb::accessGroup, KIND_IP6),
    verbOf("mac", "MAC lists", sBindingMac, cliVerb::accessGroup, KIND_MAC_STANDARD),
};
// These words begin lines of both modes: what follows them here goes on with what follows them in
// configuration mode.
constexpr grammarNode bindingGroupNodes[] = {
    kw("access-group", "bind an access list to the interface", sBindingName),
};
constexpr grammarNode bindingIpNodes[] = {
    bindingGroupNodes[0],
    verb("source-guard", "pairs of addresses that may send on the interface", sGuard,
         cliVerb::sourceGuard),
};
constexpr grammarState sBindingIp{bindingIpNodes, &sIp};
constexpr grammarState sBindingIpv6{bindingGroupNodes, &sIpv6};
constexpr grammarState sBindingMac{bindingGroupNodes, &sMac};
constexpr grammarNode bindingNameNodes[] = {
    nameArg("list name, at most 140 characters", sBindingDirection),
};
constexpr grammarState sBindingName{bindingNameNodes};
constexpr grammarNode bindingDirectionNodes[] = {
    kw("in", "packets that come in", sBindingOptions, setField<&cliCommand::direction>, 0),
    kw("out", "packets that go out", sBindingOptions, setField<&cliCommand::direction>, 1),
};
constexpr grammarState sBindingDirection{bindingDirectionNodes};
constexpr grammarNode bindingOptionsNodes[] = {
    kw("implicit-permit", "what no entry matches passes", sBindingOptions,
       setField<&cliCommand::implicitPermit>, 1, F_POSITIVE, O_IMPLICIT_PERMIT),
    kw("Vlan", "only packets of these VLANs", sBindingVlans, nullptr, 0, F_POSITIVE, O_VLANS),
    fin("bind, or with \"no\" unbind, the list"),
};
constexpr grammarState sBindingOptions{bindingOptionsNodes};
constexpr grammarNode bindingVlansNodes[] = {
    arg(cliArg::text, "N-M,...", "VLAN ids", sBindingOptions, setBindingVlans),
};
constexpr grammarState sBindingVlans{bindingVlansNodes};

}  // namespace

constexpr grammarState sIp{ipNodes};
constexpr grammarState sConfig{configNodes, nullptr, F_START};
constexpr grammarState sListName{listNameNodes};
constexpr grammarState sInterface{interfaceNodes};
constexpr grammarState sBinding{bindingNodes, &sConfig};
