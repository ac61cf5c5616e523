// `show acl-vlan-groups`: the groups, their members and lists, and the cards behind them.
#include "ipacl/zekvlangroup.h"

#include "include/ipText.h"
#include "include/jsonText.h"
#include "interface/targets.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

void append(std::string* items, std::string_view item) {
    if (!items->empty()) items->push_back(',');
    *items += item;
}

// The slots of the cards that receive the group's list, or of those that refuse it.
std::string cardsOf(const aclVlanGroup& group, bool refused) {
    std::string cards;
    aclForTargets({{0, INTF_OUT, group.id}, INTF_V4, false}, [&](const aclTarget& target) {
        if (target.refused == refused) append(&cards, std::to_string(target.ifindex));
    });
    return "[" + cards + "]";
}

std::string rowOf(const aclVlanGroup& group, bool detail) {
    std::string members;
    for (const std::string& line : aclVlanGroupMembers(group)) append(&members, line);
    jsonObject row;
    // Kept in every chassis; only the cards of this mode know what a group is. Every row has the
    // field, so it stands before those that a group without a list lacks: the first row's make the
    // table.
    row.string("name", listNameView(group.name))
        .number("id", group.id)
        .string("vlans", members)
        .flag("sent", aclNode->chassis.chassisMode == CHASSIS_MODE_VLAN_GROUPS);
    if (const aclBinding* b = aclVlanGroupBinding(group))
        row.string("list", listNameView(group.list->name))
            .flag("implicit-permit", b->implicitPermit != 0)
            .flag("configured", group.list->placeholder == 0);
    if (detail) row.raw("cards", cardsOf(group, false)).raw("refused-by", cardsOf(group, true));
    return row.text();
}

// The first word says how, so that a group may have any name.
std::string vlanGroups(std::string_view args) {
    const size_t blank = std::min(args.find(' '), args.size());
    const bool detail = args.substr(0, blank) == "detail";
    args.remove_prefix(std::min(blank + 1, args.size()));
    aclLockHeld<aclLock::read> held;
    const listName wanted = listNameMake(args);
    std::string rows;
    for (const aclVlanGroup* g = aclVlanGroupNext(listName{}); g != nullptr;
         g = aclVlanGroupNext(g->name))
        if (args.empty() || g->name == wanted) append(&rows, rowOf(*g, detail));
    if (rows.empty() && !args.empty())
        return jsonObject{}.string("error", aclStatusFind(ACL_E_NOGROUP)->text).text();
    return "[" + rows + "]";
}

}  // namespace

void aclRegisterVlanGroupFunctions() {
    zekDebugRegister("acl-vlan-groups", "brief|detail [NAME] the ACL VLAN groups", vlanGroups);
}
