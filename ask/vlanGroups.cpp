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

std::string cardsOf(const aclVlanGroup& group) {
    std::string cards;
    aclForTargets({{0, INTF_OUT, group.id}, INTF_V4, false}, [&cards](const aclTarget& target) {
        jsonObject card;
        card.number("slot", target.ifindex);
        if (target.refused) card.flag("refuses", true);
        append(&cards, card.text());
    });
    return "[" + cards + "]";
}

std::string rowOf(const aclVlanGroup& group, bool detail) {
    std::string members;
    for (const std::string& line : aclVlanGroupMembers(group)) append(&members, line);
    jsonObject row;
    row.string("name", listNameView(group.name)).number("id", group.id).string("vlans", members);
    if (const aclBinding* b = aclVlanGroupBinding(group))
        row.string("list", listNameView(group.list->name))
            .flag("implicit-permit", b->implicitPermit != 0)
            .flag("configured", group.list->placeholder == 0);
    // Kept in every chassis; only these cards know what a group is.
    row.flag("sent", aclNode->chassis.chassisMode == CHASSIS_MODE_VLAN_GROUPS);
    if (detail) row.raw("cards", cardsOf(group));
    return row.text();
}

// "detail" first, so that a group may have any name.
std::string vlanGroups(std::string_view args) {
    constexpr std::string_view word = "detail";
    const bool detail = args == word || args.starts_with("detail ");
    if (detail) args.remove_prefix(std::min(args.size(), word.size() + 1));
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
    zekDebugRegister("acl-vlan-groups", "[detail ][NAME] the ACL VLAN groups", vlanGroups);
}
