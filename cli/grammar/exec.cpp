// Exec commands: show, clear, chassis, debug.
#include "cli/grammar/build.h"
#include "include/chassisControl.h"
#include "include/ifindex.h"

namespace {

extern const grammarState sShow, sShowConfiguration, sClearConfiguration, sClearUnresolved,
    sShowIpv6, sShowMac, sClearMac, sShowPolicy, sShowPrefix, sShowMaps, sClearIpv6, sShowIp,
    sShowLists, sShowList, sShowCard, sShowCardWhat, sShowCardLists, sChassis, sChassisCard,
    sChassisEvent, sChassisPrimary, sClear, sClearIp, sClearLists, sClearCounters, sClient,
    sClientTask, sClientKind, sClientName, sBehaveTask, sBehave, sWrite, sConfigure, sDebug,
    sDebugArgs;

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
// The control processor has an agent like a card, and a number behind the slots.
constexpr std::array<grammarNode, 2> slotNodes(const grammarState& next) {
    auto slot = number("slot", 0, SLOT_COUNT - 1, next, setNumber);
    return {slot,
            kw("control-plane", "the control processor", next, setNumber, CARD_CONTROL_PLANE)};
}
constexpr auto showCardNodes = slotNodes(sShowCardWhat);
constexpr grammarState sShowCard{showCardNodes};
constexpr grammarNode showCardWhatNodes[] = {
    kw("summary", "state and counters", sDone, setKind, CARD_SUMMARY),
    kw("access-lists", "installed lists", sShowCardLists, setKind, CARD_LISTS),
};
constexpr grammarState sShowCardWhat{showCardWhatNodes};
constexpr grammarNode showCardListsNodes[] = {
    nameArg("the installed entries of one list", sDone),
    fin("all lists"),
};
constexpr grammarState sShowCardLists{showCardListsNodes};
// Questions and orders to chassisd, which stands for the rest of the chassis.
constexpr grammarNode chassisNodes[] = {
    kw("card", "report an event of a card", sChassisCard),
    kw("primary", "move the primary role", sChassisPrimary, setKind, CHASSIS_PRIMARY),
    kw("status", "tasks and who has subscribed", sDone, setKind, CHASSIS_STATE),
    kw("client", "tasks that use lists", sClient),
};
constexpr grammarState sChassis{chassisNodes};
constexpr grammarNode clientNodes[] = {
    kw("register", "a task uses a list from now on", sClientTask, setKind, CHASSIS_CLIENT_REGISTER),
    kw("unregister", "and no longer", sClientTask, setKind, CHASSIS_CLIENT_UNREGISTER),
    kw("behave", "how a task treats its triggers", sBehaveTask, setKind, CHASSIS_CLIENT_BEHAVE),
    kw("show", "what the tasks have received", sDone, setKind, CHASSIS_CLIENT_SHOW),
};
constexpr grammarState sClient{clientNodes};
constexpr grammarNode clientTaskNodes[] = {
    arg(cliArg::text, "TASK", "name of the task, e.g. BGP or IPM-2", sClientKind, addText),
};
constexpr grammarState sClientTask{clientTaskNodes};
constexpr grammarNode clientKindNodes[] = {
    kw("ip", "an IPv4 access list", sClientName, setNumber, CLIENT_LIST_IP),
    kw("ipv6", "an IPv6 access list", sClientName, setNumber, CLIENT_LIST_IPV6),
    kw("prefix", "an IPv4 prefix list", sClientName, setNumber, CLIENT_LIST_PREFIX),
    kw("prefix6", "an IPv6 prefix list", sClientName, setNumber, CLIENT_LIST_PREFIX6),
    kw("as-path", "an AS-path list", sClientName, setNumber, CLIENT_LIST_ASPATH),
    kw("community", "a community list", sClientName, setNumber, CLIENT_LIST_COMMUNITY),
    kw("route-map", "a route map", sClientName, setNumber, CLIENT_LIST_RMAP),
    kw("mac", "a MAC access list", sClientName, setNumber, CLIENT_LIST_MAC),
};
constexpr grammarState sClientKind{clientKindNodes};
constexpr grammarNode clientNameNodes[] = {
    nameArg("the list, defined or not", sDone),
};
constexpr grammarState sClientName{clientNameNodes};
constexpr grammarNode behaveTaskNodes[] = {
    arg(cliArg::text, "TASK", "name of the task, e.g. BGP", sBehave, addText),
};
constexpr grammarState sBehaveTask{behaveTaskNodes};
constexpr grammarNode behaveNodes[] = {
    kw("answer", "answers at once", sDone, setNumber, CLIENT_ANSWERS),
    kw("silent", "never answers", sDone, setNumber, CLIENT_SILENT),
    kw("late", "answers when the next trigger comes", sDone, setNumber, CLIENT_LATE),
    kw("wrong-sequence", "answers another message", sDone, setNumber, CLIENT_WRONG_SEQUENCE),
};
constexpr grammarState sBehave{behaveNodes};
constexpr auto chassisCardNodes = slotNodes(sChassisEvent);
constexpr grammarState sChassisCard{chassisCardNodes};
constexpr grammarNode chassisEventNodes[] = {
    kw("down", "the card is down", sDone, setKind, CHASSIS_CARD_DOWN),
    kw("shutdown", "the card is shut down", sDone, setKind, CHASSIS_CARD_SHUTDOWN),
};
constexpr grammarState sChassisEvent{chassisEventNodes};
constexpr grammarNode chassisPrimaryNodes[] = {number("route processor", 0, 1, sDone, setNumber)};
constexpr grammarState sChassisPrimary{chassisPrimaryNodes};
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
