// Questions and orders to chassisd: cards, the primary role, tasks that use lists, and what the
// manager's neighbours know of interfaces and protocols.
#include <algorithm>

#include "cli/grammar/build.h"
#include "include/chassisControl.h"
#include "include/protMsg.h"

namespace {

extern const grammarState sChassisCard, sChassisEvent, sChassisPrimary, sClient, sClientTask,
    sClientKind, sClientName, sBehaveTask, sBehave, sVlan, sVlanOrder, sVlanMember, sVlanMemberId,
    sVlanMore, sLag, sLagOrder, sLagMember, sLagMore, sGroup, sPlace, sPlaceVlan, sPlaceOrder,
    sAddress, sAddressValue, sPortMode, sProtocol, sProtocolName, sProtocolPlace, sProtocolPlaceId,
    sVmac, sVmacValue;

const char* setStateOfPlace(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.kind = CHASSIS_INTERFACE_STATE;
    c.number = n.value;
    return nullptr;
}
// The value is the family.
const char* setAddress(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.direction = n.value;
    c.number = v.length;
    std::ranges::copy(valueBytes(v, n.kind), c.policy.address);
    return nullptr;
}
const char* setVmac(cliCommand& c, const cliValue& v, const grammarNode&) {
    std::ranges::copy(v.mac, c.pair.mac);
    return nullptr;
}

// chassisd stands for the rest of the chassis.
constexpr grammarNode chassisNodes[] = {
    kw("card", "report an event of a card", sChassisCard),
    kw("primary", "move the primary role", sChassisPrimary, setKind, CHASSIS_PRIMARY),
    kw("status", "tasks and who has subscribed", sDone, setKind, CHASSIS_STATE),
    kw("client", "tasks that use lists", sClient),
    kw("interfaces", "what the interface manager and the protocols' tasks know", sDone, setKind,
       CHASSIS_INTERFACES),
    kw("vlan", "members and group id of a VLAN", sVlan, addText),
    kw("port-channel", "members and group id of a LAG", sLag, addText),
    kw("interface", "addresses and state of an interface", sPlace),
    kw("protocol", "a protocol on an interface", sProtocol),
};
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

// --- interfaces: the subject and the members stand in the text -----------------------------------

constexpr grammarNode vlanNodes[] = {number("id", 1, 4094, sVlanOrder, addText)};
constexpr grammarState sVlan{vlanNodes};
// What VLANs and LAGs have in common; what is a member differs.
constexpr std::array<grammarNode, 4> aggregateNodes(const grammarState& members) {
    return {kw("join", "these become members", members, setKind, CHASSIS_MEMBERS_JOIN),
            kw("leave", "these are members no longer", members, setKind, CHASSIS_MEMBERS_LEAVE),
            kw("group", "the multicast group id", sGroup, setKind, CHASSIS_GROUP),
            kw("delete", "it goes, with its members and addresses", sDone, setKind,
               CHASSIS_INTERFACE_DELETE)};
}
constexpr auto vlanOrderNodes = aggregateNodes(sVlanMember);
constexpr grammarState sVlanOrder{vlanOrderNodes};
constexpr grammarNode vlanMemberNodes[] = {
    kw("port-channel", "a LAG", sVlanMemberId, addText),
    arg(cliArg::name, "PORT", "a port of a card, as the chassis names it; or an index, 0x...",
        sVlanMore, addText),
};
constexpr grammarState sVlanMember{vlanMemberNodes};
constexpr grammarNode vlanMemberIdNodes[] = {number("id", 1, 4094, sVlanMore, addText)};
constexpr grammarState sVlanMemberId{vlanMemberIdNodes};
constexpr grammarNode moreNodes[] = {fin("these")};
constexpr grammarState sVlanMore{moreNodes, &sVlanMember};
constexpr grammarNode lagNodes[] = {number("id", 1, 4094, sLagOrder, addText)};
constexpr grammarState sLag{lagNodes};
constexpr auto lagOrderNodes = aggregateNodes(sLagMember);
constexpr grammarState sLagOrder{lagOrderNodes};
constexpr grammarNode lagMemberNodes[] = {
    arg(cliArg::name, "PORT", "a port of a card, as the chassis names it; or an index, 0x...",
        sLagMore, addText),
};
constexpr grammarState sLagMember{lagMemberNodes};
constexpr grammarState sLagMore{moreNodes, &sLagMember};
constexpr grammarNode groupNodes[] = {
    number("group id", 1, UINT32_MAX, sDone, setNumber),
    kw("none", "it has none any more", sDone, setNumber, 0),
};
constexpr grammarState sGroup{groupNodes};

// An interface of any kind, before what follows.
constexpr std::array<grammarNode, 3> placeNodesTo(const grammarState& id,
                                                  const grammarState& next) {
    return {kw("port-channel", "a LAG", id, addText), kw("vlan", "a VLAN", id, addText),
            arg(cliArg::name, "PORT",
                "a port of a card, as the chassis names it; or an index, 0x...", next, addText)};
}
constexpr auto placeNodes = placeNodesTo(sPlaceVlan, sPlaceOrder);
constexpr grammarState sPlace{placeNodes};
constexpr grammarNode placeVlanNodes[] = {number("id", 1, 4094, sPlaceOrder, addText)};
constexpr grammarState sPlaceVlan{placeVlanNodes};
constexpr grammarNode placeOrderNodes[] = {
    kw("address", "an address of the router", sAddress),
    kw("up", "it is up", sDone, setStateOfPlace, 1),
    kw("down", "it is down", sDone, setStateOfPlace, 0),
    kw("mode", "the port's mode", sPortMode, setKind, CHASSIS_INTERFACE_MODE),
    kw("delete", "it goes, with what is known of it", sDone, setKind, CHASSIS_INTERFACE_DELETE),
};
constexpr grammarState sPlaceOrder{placeOrderNodes};
constexpr grammarNode modeNodes[] = {number("mode", 0, UINT32_MAX, sDone, setNumber)};
constexpr grammarState sPortMode{modeNodes};
constexpr grammarNode addressNodes[] = {
    kw("add", "it gets one", sAddressValue, setKind, CHASSIS_ADDRESS_ADD),
    kw("del", "it loses one", sAddressValue, setKind, CHASSIS_ADDRESS_DEL),
};
constexpr grammarState sAddress{addressNodes};
constexpr grammarNode addressValueNodes[] = {
    arg(cliArg::prefix, "A.B.C.D/LEN", "IPv4", sDone, setAddress, 4),
    arg(cliArg::prefix6, "X:X::X/LEN", "IPv6", sDone, setAddress, 6),
};
constexpr grammarState sAddressValue{addressValueNodes};

// --- protocols -----------------------------------------------------------------------------------

constexpr grammarNode protocolNodes[] = {
    kw("enable", "its task runs it there", sProtocolName, setKind, CHASSIS_PROTOCOL_ENABLE),
    kw("disable", "and no longer", sProtocolName, setKind, CHASSIS_PROTOCOL_DISABLE),
};
constexpr grammarState sProtocol{protocolNodes};
constexpr grammarNode protocolWord(std::string_view word, const char* help, protocolId id) {
    return kw(word, help, sProtocolPlace, setNumber, id);
}
constexpr grammarNode protocolNameNodes[] = {
    protocolWord("ospf", "OSPF", PROT_OSPF),
    protocolWord("ospfv3", "OSPF for IPv6", PROT_OSPF_V3),
    protocolWord("isis", "IS-IS", PROT_ISIS),
    protocolWord("bgp", "BGP", PROT_BGP),
    protocolWord("rip", "RIP", PROT_RIP),
    protocolWord("vrrp", "VRRP", PROT_VRRP),
    protocolWord("hsrp", "HSRP", PROT_HSRP),
    protocolWord("ntp", "NTP", PROT_NTP),
    protocolWord("pim-sm", "PIM sparse mode", PROT_PIMSM),
    protocolWord("pim-v6", "PIM for IPv6", PROT_PIM_V6),
    protocolWord("igmp", "IGMP", PROT_IGMP),
    protocolWord("igmp-snooping", "IGMP snooping", PROT_IGMPSNOOPING),
    protocolWord("mld-snooping", "MLD snooping", PROT_MLDSNOOPING),
    protocolWord("fefd", "far-end failure detection", PROT_FEFD),
    protocolWord("gvrp", "GVRP", PROT_GVRP),
};
constexpr grammarState sProtocolName{protocolNameNodes};
constexpr auto protocolPlaceNodes = placeNodesTo(sProtocolPlaceId, sVmac);
constexpr grammarState sProtocolPlace{protocolPlaceNodes};
constexpr grammarNode protocolPlaceIdNodes[] = {number("id", 1, 4094, sVmac, addText)};
constexpr grammarState sProtocolPlaceId{protocolPlaceIdNodes};
constexpr grammarNode vmacNodes[] = {
    kw("vmac", "with a virtual MAC address", sVmacValue),
    fin("there"),
};
constexpr grammarState sVmac{vmacNodes};
constexpr grammarNode vmacValueNodes[] = {
    arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", "the address", sDone, setVmac),
};
constexpr grammarState sVmacValue{vmacValueNodes};

}  // namespace

constexpr grammarState sChassis{chassisNodes};
