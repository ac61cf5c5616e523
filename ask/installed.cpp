// Debug functions about bindings: which lists are bound where, and what every card should hold of
// a list, as the shell compares it with what the cards hold.
#include <bitset>
#include <string>

#include "download/sendPath.h"
#include "include/agentState.h"
#include "include/jsonText.h"
#include "include/status.h"
#include "interface/interface.h"
#include "ipacl/propagate.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekTask.h"
#include "task/follow.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

void append(std::string* items, const jsonObject& row) {
    if (!items->empty()) items->push_back(',');
    *items += row.text();
}

std::string interfaceName(uint32_t ifindex) {
    return agentIfName(ifindex).text;
}

// Calls fn(intf, direction, list) for every IPv4 list that is bound, interfaces in the order of
// their indexes.
template <class Fn>
void eachBound(Fn&& fn) {
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex))
        for (uint32_t direction : {INTF_IN, INTF_OUT})
            if (const aclList* list = i->lists[INTF_V4][direction]) fn(*i, direction, *list);
}

std::string accessGroups(std::string_view) {
    aclLockHeld<aclLock::read> held;
    std::string rows;
    eachBound([&rows](const aclIntf& intf, uint32_t direction, const aclList& list) {
        // The interface knows the list, the list knows the binding: both are needed for a row.
        const aclBinding* b = aclInterfaceBinding(&list, intf.ifindex, direction);
        append(&rows, jsonObject{}
                          .string("interface", interfaceName(intf.ifindex))
                          .string("direction", direction == INTF_IN ? "in" : "out")
                          .string("list", listNameView(list.name))
                          .flag("implicit-permit", b != nullptr && b->implicitPermit != 0)
                          .flag("configured", list.placeholder == 0));
    });
    return "[" + rows + "]";
}

// One list as every card should hold it.
struct intent {
    const aclList& list;
    std::string hash;  // of its entries as they are sent
    std::string rows;
};

std::string hashOf(const aclList& list) {
    agentListHash hash;
    // The very bytes that are downloaded, so that the hashes are equal exactly when the card holds
    // what was sent.
    agentEntry image;
    for (const aclEntry& e : entriesOf<const aclEntry>(list.head)) {
        vAclAddEntryToAclList(&image, e);
        hash.add(agentEntryHash(image));
    }
    return agentHashText(hash.value);
}

jsonObject rowOf(const intent& what, uint32_t bound, uint32_t direction) {
    const aclBinding* b = aclInterfaceBinding(&what.list, bound, direction);
    jsonObject row;
    row.string("interface", interfaceName(bound))
        .number("direction", direction)
        .number("kind", what.list.kind)
        .number("implicitPermit", b != nullptr ? b->implicitPermit : 0);
    // The binding block is opaque here and on the card: it is compared as text.
    if (b != nullptr) row.string("block", agentBlockText(b->block));
    if (what.list.placeholder != 0) row.flag("undefined", true);
    return row;
}

// `ifindex`: what the card knows the place by. The pipe is a port's.
void addCard(intent* what, jsonObject row, uint32_t ifindex, const std::string& card,
             bool refuses = false) {
    row.number("ifindex", ifindex).string("card", card);
    if (refuses) row.flag("refuses", true);
    row.number("entries", static_cast<uint32_t>(what->list.count)).string("hash", what->hash);
    append(&what->rows, row);
}

// One row for each card that has to hold it: a LAG is held port by port, a VLAN once on each card
// with a port in it.
void addBinding(intent* what, uint32_t bound, uint32_t direction) {
    const uint32_t type = ifindexType(bound);
    const bool isVlan = type == IF_TYPE_VLAN;
    const jsonObject row = rowOf(*what, bound, direction);
    // The control processor has no ports to walk over.
    if (type == IF_TYPE_CP) return addCard(what, row, bound, "control-plane");
    bool any = false;
    aclForTargets({{bound, direction}, INTF_V4, false}, [&](const aclTarget& target) {
        const int slot = ifindexSlot(target.ifindex);
        any = true;
        // A card that is not there yet has not said what it takes.
        const bool refuses = target.refused && aclLinecardInfo[slot].isUp != 0;
        jsonObject one = row;
        if (type == IF_TYPE_LAG) one.string("port", interfaceName(target.ifindex));
        if (!isVlan) one.number("pipe", target.pipe & 0xFF);
        addCard(what, one, isVlan ? bound : target.ifindex, std::to_string(slot), refuses);
    });
    // Without a card the row says that there is nothing to hold.
    if (!any) append(&what->rows, row);
}

std::string intended(std::string_view args) {
    aclLockHeld<aclLock::read> held;
    const listName name = listNameMake(args);
    const aclList* list = ipAccessListFind(name);
    if (list == nullptr) return R"({"missing":true})";  // the cards may hold it all the same
    intent what{*list, hashOf(*list), ""};
    eachBound([&what](const aclIntf& intf, uint32_t direction, const aclList& bound) {
        if (&bound == &what.list) addBinding(&what, intf.ifindex, direction);
    });
    return "[" + what.rows + "]";
}

// "port-channel 1 2/0", "vlan 10 port-channel 1": both names may have blanks.
bool twoInterfaces(std::string_view args, uint32_t* first, uint32_t* second) {
    // Each blank may be the one between the names; the one where both halves are interfaces is.
    for (size_t blank = args.find(' '); blank != args.npos; blank = args.find(' ', blank + 1))
        if (ifmLNameToIfIndex(std::string(args.substr(0, blank)).c_str(), first) == 0 &&
            ifmLNameToIfIndex(std::string(args.substr(blank + 1)).c_str(), second) == 0)
            return true;
    return false;
}

// What is bound to a LAG goes to a port that joins. A card has one list for a port and direction,
// so a port that has lists of its own, or belongs to another LAG, does not join; binding a list to
// a member is refused likewise.
int joinLag(uint32_t lag, uint32_t port) {
    // Only IPv4 lists can be bound, so only they stand in the way.
    const aclIntf* own = AclIntfTreeFind(port);
    const uint32_t other = aclLagOfPort(port);
    if ((other != 0 && other != lag) ||
        (own != nullptr &&
         (own->lists[INTF_V4][INTF_IN] != nullptr || own->lists[INTF_V4][INTF_OUT] != nullptr)))
        return -1;
    return aclFollowLagJoined(lag, port);
}

// Membership by hand, for a chassis whose interface manager tells none.
std::string join(std::string_view args) {
    uint32_t aggregate = 0, member = 0;
    if (!twoInterfaces(args, &aggregate, &member))
        return jsonObject{}.string("error", "usage: join LAG-OR-VLAN MEMBER").text();
    aclLockHeld<aclLock::write> held;
    const int result = ifindexType(aggregate) == IF_TYPE_LAG ? joinLag(aggregate, member)
                       : ifindexType(aggregate) == IF_TYPE_VLAN
                           ? aclFollowVlanJoined(aggregate, member)
                           : -1;
    if (result < 0)
        return jsonObject{}
            .string("error",
                    "That cannot be a member there: only ports without lists of their own and "
                    "without another LAG join a LAG, ports and LAGs a VLAN")
            .text();
    return jsonObject{}.string("member", result == 0 ? "joined" : "was one already").text();
}

}  // namespace

void aclRegisterInstalledFunctions() {
    zekDebugRegister("access-groups", "every binding of an IPv4 list to an interface",
                     accessGroups);
    zekDebugRegister("intended", "NAME what every card should hold of an IPv4 list, with a hash",
                     intended);
    zekDebugRegister("join", "LAG-OR-VLAN MEMBER makes a port (of a VLAN also a LAG) its member",
                     join);
}
