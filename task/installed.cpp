// Debug functions about bindings: which lists are bound where, and what every card should hold of
// a list, as the shell compares it with what the cards hold.
#include <bitset>
#include <string>

#include "download/sendPath.h"
#include "include/agentState.h"
#include "include/interface.h"
#include "include/jsonText.h"
#include "include/status.h"
#include "platform/api/zekTask.h"
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

const aclBinding* bindingOf(const aclList& list, uint32_t ifindex, uint32_t direction) {
    for (const aclBinding* b = list.bindings; b != nullptr; b = b->next)
        if (b->kind == BIND_INTERFACE && b->id == ifindex &&
            (b->direction != 0) == (direction != 0))
            return b;
    return nullptr;
}

std::string accessGroups(std::string_view) {
    aclLockHeld<aclLock::read> held;
    std::string rows;
    eachBound([&rows](const aclIntf& intf, uint32_t direction, const aclList& list) {
        const aclBinding* b = bindingOf(list, intf.ifindex, direction);
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
    agentEntry image;
    for (const aclEntry* e = list.head; e != nullptr; e = e->next) {
        vAclAddEntryToAclList(&image, *e);
        hash.add(agentEntryHash(image));
    }
    return agentHashText(hash.value);
}

jsonObject rowOf(const intent& what, uint32_t bound, uint32_t direction) {
    const aclBinding* b = bindingOf(what.list, bound, direction);
    jsonObject row;
    row.string("interface", interfaceName(bound))
        .number("direction", direction)
        .number("implicitPermit", b != nullptr ? b->implicitPermit : 0);
    if (what.list.placeholder != 0) row.flag("undefined", true);
    return row;
}

// `ifindex`: what the card knows the place by.
void addCard(intent* what, jsonObject row, uint32_t ifindex, const std::string& card,
             bool refuses = false) {
    row.number("ifindex", ifindex).string("card", card);
    if (refuses) row.flag("refuses", true);
    row.number("entries", static_cast<uint32_t>(what->list.count)).string("hash", what->hash);
    append(&what->rows, row);
}

// A LAG's list is sent to each member port under the port's own index, a VLAN's once to each card
// that has a member port; a card that has said that it takes no egress lists is never sent one.
void addBinding(intent* what, uint32_t bound, uint32_t direction) {
    const uint32_t type = ifindexType(bound);
    const jsonObject row = rowOf(*what, bound, direction);
    if (type == IF_TYPE_CP) return addCard(what, row, bound, "control-plane");
    std::bitset<SLOT_COUNT> seen;
    bool any = false;
    aclWalkPorts(bound, [&](uint32_t port) {
        int slot = ifindexSlot(port);
        if (slot == SLOT_NONE) return;
        auto number = static_cast<size_t>(slot);
        if (type == IF_TYPE_VLAN && seen.test(number)) return;
        seen.set(number);
        any = true;
        const aclLinecard& known = aclLinecardInfo[slot];
        bool refuses = direction == INTF_OUT && known.isUp != 0 && known.isVortan == 0;
        jsonObject one = row;
        if (type == IF_TYPE_LAG) one.string("port", interfaceName(port));
        addCard(what, one, type == IF_TYPE_VLAN ? bound : port, std::to_string(slot), refuses);
    });
    if (!any) append(&what->rows, row);
}

std::string intended(std::string_view args) {
    aclLockHeld<aclLock::read> held;
    const listName name = listNameMake(args);
    const aclList* list = ipAccessListFind(name);
    if (list == nullptr)
        return jsonObject{}.string("error", aclStatusFind(ACL_E_NOLIST)->text).text();
    intent what{*list, hashOf(*list), ""};
    eachBound([&what](const aclIntf& intf, uint32_t direction, const aclList& bound) {
        if (&bound == &what.list) addBinding(&what, intf.ifindex, direction);
    });
    return "[" + what.rows + "]";
}

// Membership by hand, for a chassis whose interface manager tells none. What is bound to a LAG
// goes to a port that joins; a VLAN's lists go out again to all of its cards.
std::string join(std::string_view args) {
    uint32_t aggregate = 0, port = 0;
    const size_t blank = std::min(args.rfind(' '), args.size());
    if (ifmLNameToIfIndex(std::string(args.substr(0, blank)).c_str(), &aggregate) != 0 ||
        ifmLNameToIfIndex(std::string(args.substr(std::min(blank + 1, args.size()))).c_str(),
                          &port) != 0)
        return jsonObject{}.string("error", "usage: join LAG-OR-VLAN MEMBER").text();
    aclLockHeld<aclLock::write> held;
    int result = -1;
    if (ifindexType(aggregate) == IF_TYPE_LAG) result = aclLagPortJoined(aggregate, port);
    if (ifindexType(aggregate) == IF_TYPE_VLAN) {
        result = aclVlanMemberAdd(aggregate, port);
        const aclIntf* intf = result == 0 ? AclIntfTreeFind(aggregate) : nullptr;
        for (uint32_t direction : {INTF_IN, INTF_OUT}) {
            aclList* list = intf != nullptr ? intf->lists[INTF_V4][direction] : nullptr;
            const aclBinding* b =
                list != nullptr ? bindingOf(*list, aggregate, direction) : nullptr;
            if (b == nullptr) continue;
            list->sendBlock = b->block;
            (void)aclSendVlanAclToAclAgent(
                list, aggregate, 1, direction == INTF_IN ? MT_ACL_ADDLIST : MT_ACL_EGR_ADDLIST,
                b->implicitPermit, 0);
        }
    }
    if (result < 0) return jsonObject{}.string("error", "That cannot be a member there").text();
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
