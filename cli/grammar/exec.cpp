// Exec commands: show, clear, debug; what is asked of chassisd is a topic of its own.
#include "cli/grammar/build.h"

namespace {

extern const grammarState sShow, sShowConfiguration, sClearConfiguration, sClearUnresolved,
    sShowIpv6, sShowMac, sClearMac, sShowPolicy, sShowPrefix, sShowMaps, sClearIpv6, sShowIp,
    sShowLists, sShowList, sShowCard, sShowCardWhat, sShowCardLists, sShowCardTraps,
    sShowSystemLists, sShowSystemList, sClear, sClearIp, sClearLists, sClearCounters, sWrite,
    sConfigure, sDebug, sDebugArgs;

// Behind "do" of configuration mode the same words apply, without those that change the mode
// (F_EXEC).
constexpr grammarNode execNodes[] = {
    kw("show", "show something", sShow),
    kw("clear", "reset counters", sClear),
    kw("write", "save the configuration", sWrite),
    verb("chassis", "cards and route processors", sChassis, cliVerb::chassis),
    kw("configure", "enter configuration mode", sConfigure, nullptr, 0, F_EXEC),
    kw("test", "ask a list about a packet", sTest),
    verb("debug", "run a debug function of the manager", sDebug, cliVerb::debug),
    verb("exit", "leave the shell", sDone, cliVerb::exit, F_EXEC),
    verb("end", "stay in exec mode", sDone, cliVerb::end, F_EXEC),
};
constexpr grammarNode showNodes[] = {
    verb("running-config", "the configuration as it runs", sDone, cliVerb::showRunning),
    verb("startup-config", "the configuration that was saved", sDone, cliVerb::showStartup),
    kw("configuration", "lines of the configuration", sShowConfiguration),
    kw("ip", "IP lists", sShowIp),
    kw("ipv6", "IPv6 lists", sShowIpv6),
    kw("mac", "MAC lists", sShowMac),
    verb("access-groups", "which lists of all families are bound where", sDone,
         cliVerb::showAccessGroups),
    verb("acl-vlan-groups", "groups of VLANs that share an egress list", sShowGroups,
         cliVerb::showVlanGroups),
    verbOf("route-maps", "route maps", sShowMaps, cliVerb::showLists, KIND_RMAP),
    verb("clients", "how the clients of lists were told of changes", sDone, cliVerb::showClients),
    verb("logging", "the manager's event log", sDone, cliVerb::showLogging),
    verb("system", "state and counters of the manager", sDone, cliVerb::showSystem),
    verbOf("system-lists", "lists that the manager makes itself", sShowSystemLists,
           cliVerb::showSystemLists, KIND_SYSTEM),
    verb("queues", "the manager's queues to cards and tasks", sDone, cliVerb::showQueues),
    verb("cards", "the agents of all cards", sDone, cliVerb::showCards),
    verb("card", "the agent of one card", sShowCard, cliVerb::showCard),
};
constexpr grammarState sShow{showNodes, &sShowPlaces};
constexpr grammarNode showConfigurationNodes[] = {
    verb("unresolved", "lines that a restart could not bring back", sDone, cliVerb::showUnresolved),
};
constexpr grammarState sShowConfiguration{showConfigurationNodes};
constexpr grammarNode showIpNodes[] = {
    verb("access-lists", "entries of access lists", sShowLists, cliVerb::showLists),
    verb("access-group", "the same as access-groups", sDone, cliVerb::showAccessGroups),
    verb("source-guard", "pairs of addresses that may send", sShowGuard, cliVerb::showSourceGuard),
    verbOf("prefix-lists", "IPv4 prefix lists", sShowPrefix, cliVerb::showLists, KIND_PREFIX4),
    verbOf("as-path-access-lists", "AS-path access lists", sShowPolicy, cliVerb::showLists,
           KIND_ASPATH),
    verbOf("community-lists", "community lists", sShowPolicy, cliVerb::showLists, KIND_COMMUNITY),
    verbOf("extcommunity-lists", "extended-community lists", sShowPolicy, cliVerb::showLists,
           KIND_EXTCOMMUNITY),
};
constexpr grammarNode showIpv6Nodes[] = {
    verbOf("access-lists", "entries of IPv6 access lists", sShowLists, cliVerb::showLists,
           KIND_IP6),
    verbOf("prefix-lists", "IPv6 prefix lists", sShowPrefix, cliVerb::showLists, KIND_PREFIX6),
};
constexpr grammarState sShowIpv6{showIpv6Nodes};
constexpr grammarNode showMacNodes[] = {
    verbOf("access-lists", "entries of MAC lists", sShowLists, cliVerb::showLists,
           KIND_MAC_STANDARD),
};
constexpr grammarState sShowMac{showMacNodes};
// Shared by every kind: what is shown stands in the verb and its kind.
constexpr grammarNode showPolicyNodes[] = {
    nameArg("of this name", sDone),
    fin("all"),
};
constexpr grammarState sShowPolicy{showPolicyNodes};
// A list may have one of these names; abbreviated, the word is the list's.
constexpr grammarNode showPrefixNodes[] = {
    whole("detail", "with the list that was changed last", sShowPolicy,
          setPolicy<&cliPolicy::detail>, POLICY_DETAIL),
    whole("summary", "without the entries", sShowPolicy, setPolicy<&cliPolicy::detail>,
          POLICY_SUMMARY),
};
constexpr grammarState sShowPrefix{showPrefixNodes, &sShowPolicy};
constexpr grammarNode showMapsNodes[] = {
    whole("config", "as configured", sShowPolicy, setPolicy<&cliPolicy::detail>, POLICY_DETAIL),
};
constexpr grammarState sShowMaps{showMapsNodes, &sShowPolicy};
constexpr grammarState sShowIp{showIpNodes};
constexpr grammarNode showListsNodes[] = {
    nameArg("one list", sShowList),
    fin("all lists"),
};
constexpr grammarState sShowLists{showListsNodes};
constexpr grammarNode showListNodes[] = {
    // The kind is that of the words before.
    kw("installed", "compare with what the cards hold", sDone, setField<&cliCommand::verb>,
       static_cast<uint32_t>(cliVerb::showInstalled)),
    fin("its entries"),
};
constexpr grammarState sShowList{showListNodes};
// The names of these lists have blanks.
constexpr grammarNode showSystemListsNodes[] = {
    quotedName("one list, a name with blanks between quotation marks", sShowSystemList),
    fin("all of them, and how the cards stand"),
};
constexpr grammarState sShowSystemLists{showSystemListsNodes};
constexpr grammarNode showSystemListNodes[] = {
    kw("installed", "compare with what the cards hold", sDone, setField<&cliCommand::verb>,
       static_cast<uint32_t>(cliVerb::showInstalled)),
    fin("how the cards stand"),
};
constexpr grammarState sShowSystemList{showSystemListNodes};
constexpr auto showCardNodes = slotNodes(sShowCardWhat);
constexpr grammarState sShowCard{showCardNodes};
constexpr grammarNode showCardWhatNodes[] = {
    kw("summary", "state and counters", sDone, setKind, CARD_SUMMARY),
    kw("access-lists", "installed lists", sShowCardLists, setKind, CARD_LISTS),
    kw("traps", "protocols' addresses that are trapped, and members", sShowCardTraps, setKind,
       CARD_TRAPS),
};
constexpr grammarState sShowCardWhat{showCardWhatNodes};
constexpr grammarNode showCardTrapsNodes[] = {
    kw("installed", "compare with what the manager means", sDone, setKind, CARD_TRAPS_INSTALLED),
    fin("what the card holds"),
};
constexpr grammarState sShowCardTraps{showCardTrapsNodes};
constexpr grammarNode showCardListsNodes[] = {
    quotedName("the installed entries of one list, a name with blanks between quotation marks",
               sDone),
    fin("all lists"),
};
constexpr grammarState sShowCardLists{showCardListsNodes};
constexpr grammarNode clearNodes[] = {
    kw("configuration", "lines of the configuration", sClearConfiguration),
    kw("ip", "IP lists", sClearIp),
    kw("ipv6", "IPv6 lists", sClearIpv6),
    kw("mac", "MAC lists", sClearMac),
};
constexpr grammarState sClear{clearNodes};
constexpr grammarNode clearConfigurationNodes[] = {
    verb("unresolved", "forget lines that a restart could not bring back", sClearUnresolved,
         cliVerb::discardUnresolved),
};
constexpr grammarState sClearConfiguration{clearConfigurationNodes};
// Without a number the command's own 0 stands for all.
constexpr grammarNode clearUnresolvedNodes[] = {
    number("NUMBER", 1, UINT32_MAX, sDone, setNumber),
    fin("all of them"),
};
constexpr grammarState sClearUnresolved{clearUnresolvedNodes};
constexpr grammarNode clearIpNodes[] = {
    kw("access-lists", "access lists", sClearLists, setKind, KIND_STANDARD),
    verbOf("prefix-lists", "hit counts of IPv4 prefix lists", sClearCounters,
           cliVerb::clearCounters, KIND_PREFIX4),
};
constexpr grammarNode clearIpv6Nodes[] = {
    kw("access-lists", "access lists", sClearLists, setKind, KIND_IP6),
    verbOf("prefix-lists", "hit counts of IPv6 prefix lists", sClearCounters,
           cliVerb::clearCounters, KIND_PREFIX6),
};
constexpr grammarState sClearIpv6{clearIpv6Nodes};
constexpr grammarNode clearMacNodes[] = {
    kw("access-lists", "MAC lists", sClearLists, setKind, KIND_MAC_STANDARD),
};
constexpr grammarState sClearMac{clearMacNodes};
constexpr grammarState sClearIp{clearIpNodes};
constexpr grammarNode clearListsNodes[] = {
    kw("counters", "set the match counters to 0", sClearCounters, setField<&cliCommand::verb>,
       static_cast<uint32_t>(cliVerb::clearCounters)),
};
constexpr grammarState sClearLists{clearListsNodes};
constexpr grammarNode clearCountersNodes[] = {
    nameArg("of one list", sDone),
    fin("of all lists"),
};
constexpr grammarState sClearCounters{clearCountersNodes};
constexpr grammarNode writeNodes[] = {
    verb("memory", "keep the configuration for the next start", sDone, cliVerb::writeMemory),
};
constexpr grammarState sWrite{writeNodes};
constexpr grammarNode configureNodes[] = {
    verb("terminal", "from this terminal", sDone, cliVerb::configure),
    verb("retry", "try again what a restart could not bring back", sDone, cliVerb::retryUnresolved),
};
constexpr grammarState sConfigure{configureNodes};
// Which functions there are is the manager's to know.
constexpr grammarNode debugNodes[] = {
    arg(cliArg::text, "FUNCTION", "name of the function", sDebugArgs, setName),
};
constexpr grammarState sDebug{debugNodes};
constexpr grammarNode debugArgsNodes[] = {
    arg(cliArg::rest, "ARGUMENTS", "what the function is given", sDone, addText),
    fin("without arguments"),
};
constexpr grammarState sDebugArgs{debugArgsNodes};

}  // namespace

constexpr grammarState sExec{execNodes};
