// Debug functions about bindings: which lists are bound where, and what every card should hold of
// a list, as the shell compares it with what the cards hold.
#include <algorithm>
#include <string>
#include <vector>

#include "ask/placeWords.h"
#include "ask/systemWords.h"
#include "common/tree.h"
#include "include/agentState.h"
#include "include/status.h"
#include "interface/interface.h"
#include "ipacl/propagate.h"
#include "ipacl/zekipaccess.h"
#include "ipacl/zekvlangroup.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

void append(std::string* items, const jsonObject& row) {
    jsonAppend(items, row.text());
}

std::string groupName(const aclVlanGroup& group) {
    return "VLAN group " + std::to_string(group.id) + " " + std::string(listNameView(group.name));
}

// Calls fn(intf, direction, list) for every list of the family that is bound, interfaces in the
// order of their indexes.
template <class Fn>
void eachBound(const aclFamily& family, Fn&& fn) {
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex))
        for (uint32_t direction : {INTF_IN, INTF_OUT})
            if (const aclList* list = i->lists[family.place][direction]) fn(*i, direction, *list);
}

std::string accessGroups(std::string_view) {
    aclLockHeld<aclLock::read> held;
    std::string rows;
    for (const aclFamily* family : aclFamilies)
        eachBound(*family, [&](const aclIntf& intf, uint32_t direction, const aclList& list) {
            // The interface knows the list, the list knows the binding: both are needed for a row.
            const aclBinding* b = aclInterfaceBinding(&list, intf.ifindex, direction);
            append(&rows, jsonObject{}
                              .string("interface", interfaceName(intf.ifindex))
                              .string("direction", directionWord(direction))
                              .string("family", familyWords[family->place])
                              .string("list", listNameView(list.name))
                              .flag("implicit-permit", b != nullptr && b->implicitPermit != 0)
                              .flag("configured", list.placeholder == 0));
        });
    return "[" + rows + "]";
}

// One list as every card should hold it.
struct intent {
    const aclList& list;
    const agentForm& form;
    std::string hash;  // of its entries as they are sent
    std::string rows;
    // The header of MAC lists has neither a pipe nor the implicit-permit word.
    bool hasOptions() const { return form.headerBytes == sizeof(agentListHdr); }
};

// The form of what is downloaded of lists of the family; the messages of both directions have it.
const agentForm& formOf(const aclFamily& family) {
    return *agentMsgRowOf(family.agentIds[INTF_IN].list).form;
}

std::string hashOf(const aclList& list, const agentForm& form) {
    agentListHash hash;
    // The very bytes that are downloaded, so that the hashes are equal exactly when the card holds
    // what was sent.
    std::vector<uint8_t> image(form.imageBytes);
    for (const listEntry* e = list.head; e != nullptr;) {
        (void)form.images(image, &e);  // moves on
        hash.add(form.hash(image.data()));
    }
    return agentHashText(hash.value);
}

jsonObject rowOf(const intent& what, const std::string& place, uint32_t direction,
                 const aclBinding* b) {
    jsonObject row;
    row.string("interface", place).number("direction", direction).number("kind", what.list.kind);
    if (what.hasOptions()) row.number("implicitPermit", b != nullptr ? b->implicitPermit : 0);
    // The binding block is opaque here and on the card: it is compared as text.
    if (b != nullptr) row.string("block", agentBlockText(b->block));
    if (what.list.placeholder != 0) row.flag("undefined", true);
    // Cards hold egress MAC lists, but filter by them only when they are told to.
    if (what.list.family->place == INTF_MAC && direction == INTF_OUT &&
        aclNode->config.l2_user_egr_acl_enable == 0)
        row.flag("outOfForce", true);
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

// Why no card is sent the list; null: the cards behind the place are.
const char* unsent(const intent& what, const aclPlace& place) {
    // MAC lists that are bound to a VLAN are never sent: meant.
    if (ifindexType(place.ifindex) == IF_TYPE_VLAN && !what.list.family->onVlans)
        return "not sent for VLANs";
    if (place.groupId != 0 && aclNode->chassis.chassisMode != CHASSIS_MODE_VLAN_GROUPS)
        return "not sent in this chassis";
    return nullptr;
}

// One row for each card that has to hold it: a LAG is held port by port, a VLAN or a VLAN group
// once on each card with a port in it.
void addBinding(intent* what, const std::string& name, const aclPlace& place,
                const aclBinding* binding) {
    const uint32_t type = ifindexType(place.ifindex);
    const bool byCard = aclPlaceIsByCard(place);
    jsonObject row = rowOf(*what, name, place.direction, binding);
    if (place.groupId != 0) row.number("group", place.groupId);
    // The control processor has no ports to walk over.
    if (type == IF_TYPE_CP) return addCard(what, row, place.ifindex, "control-plane");
    if (const char* why = unsent(*what, place))
        return append(&what->rows, row.string("unsent", why));
    bool any = false;
    aclForTargets({place, what->form.family, false}, [&](const aclTarget& target) {
        const int slot = ifindexSlot(target.ifindex);
        any = true;
        // A card that is not there yet has not said what it takes.
        const bool refuses = target.refused && aclLinecardInfo[slot].isUp != 0;
        jsonObject one = row;
        if (type == IF_TYPE_LAG) one.string("port", interfaceName(target.ifindex));
        if (!byCard && what->hasOptions()) one.number("pipe", target.pipe & 0xFF);
        addCard(what, one, byCard ? place.ifindex : target.ifindex, std::to_string(slot), refuses);
    });
    // Without a card the row says that there is nothing to hold.
    if (!any) append(&what->rows, row);
}

// "ip NAME", "ipv6 NAME", "mac NAME". Null, and the name, when there is no such list.
const aclList* listOf(std::string_view args, std::string* name) {
    const size_t blank = std::min(args.find(' '), args.size());
    *name = args.substr(std::min(blank + 1, args.size()));
    for (const aclFamily* family : aclFamilies)
        if (familyWords[family->place] == args.substr(0, blank))
            return nameTreeFind<aclList>(aclNode->trees.*family->tree, listNameMake(*name));
    return nullptr;
}

std::string intended(std::string_view args) {
    aclLockHeld<aclLock::read> held;
    std::string name;
    constexpr std::string_view system = "system ";
    if (args.starts_with(system)) return aclIntendedSystem(args.substr(system.size()));
    const aclList* list = listOf(args, &name);
    if (list == nullptr) return R"({"missing":true})";  // the cards may hold it all the same
    const agentForm& form = formOf(*list->family);
    intent what{*list, form, hashOf(*list, form), ""};
    eachBound(*list->family, [&](const aclIntf& intf, uint32_t direction, const aclList& bound) {
        if (&bound == list)
            addBinding(&what, interfaceName(intf.ifindex), {intf.ifindex, direction},
                       aclInterfaceBinding(list, intf.ifindex, direction));
    });
    for (const aclVlanGroup& group : aclNode->groups.vlanGroups)
        if (group.id != 0 && group.list == list)
            addBinding(&what, groupName(group), {0, INTF_OUT, group.id},
                       aclVlanGroupBinding(group));
    return "[" + what.rows + "]";
}

}  // namespace

void aclRegisterInstalledFunctions() {
    zekDebugRegister("access-groups", "every binding of a list to an interface", accessGroups);
    zekDebugRegister("intended",
                     "ip|ipv6|mac|system NAME what every card should hold of a list, with a hash",
                     intended);
}
