// ACL VLAN groups: VLANs that share one egress IPv4 list.
//
// The list has a group as a client, of kind 4, and its changes reach the cards behind the group's
// VLANs as those of any binding do (propagate.cpp). A VLAN is in one group at most and has no
// egress list of its own there. What is bound to ports and to single VLANs is not touched. The
// caller holds the write lock (for shows the read lock).
#include <algorithm>
#include <utility>

#include "common/debug.h"
#include "common/node.h"
#include "common/showbuffer.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/zekvlangroup.h"

namespace {

constexpr uint32_t VLAN_FIRST = 1, VLAN_LAST = 4094;

aclVlanGroup* findGroup(const listName& name) {
    for (aclVlanGroup& group : aclNode->groups.vlanGroups)
        if (group.id != 0 && group.name == name) return &group;
    return nullptr;
}

// The VLAN of an interface; none for what is no VLAN.
vlanSet vlanOf(uint32_t ifindex) {
    vlanSet vlans;
    if (ifindexType(ifindex) == IF_TYPE_VLAN && ifindexPort(ifindex) < VLAN_BITS)
        vlans.set(ifindexPort(ifindex));
    return vlans;
}

aclPlace placeOf(const aclVlanGroup& group) {
    return {0, INTF_OUT, group.id};
}

aclBinding* bindingOf(const aclVlanGroup& group) {
    if (group.list == nullptr) return nullptr;
    return static_cast<aclBinding*>(
        clientFind(group.list, {CLIENT_VLAN_GROUP, group.id, 0, INTF_OUT}));
}

// The group's list, or its deletion, to the cards behind the group.
void sendToGroup(const aclVlanGroup& group, aclEvent event, const aclOnly& only = {}) {
    const aclBinding* b = bindingOf(group);
    if (b == nullptr) return;
    (void)aclSendToInterface(group.list, {event}, placeOf(group), {b->implicitPermit, &b->block},
                             only);
}

// What the state root says of all groups follows from them.
void countGroups() {
    aclVlanGroupState& groups = aclNode->groups;
    vlanSet members;
    uint8_t count = 0;
    for (const aclVlanGroup& group : groups.vlanGroups) {
        if (group.id == 0) continue;
        count++;
        members |= group.members;
    }
    groups.cugIdNum = count;
    groups.isAclVlanGrp = count != 0 ? 1 : 0;
    groups.vlanMemNum = static_cast<uint8_t>(std::min<size_t>(members.count(), UINT8_MAX));
    groups.egressIpAclBitMap = ~members;
}

// --- sets of VLANs -------------------------------------------------------------------------------

vlanSet setOf(const bindingVlans& vlans) {
    vlanSet set;
    for (uint32_t vlan = 0; vlan < set.size(); vlan++)
        set[vlan] = (vlans.bits[vlan / 8] & 0x80 >> vlan % 8) != 0;
    return set;
}
bindingVlans wireOf(const vlanSet& set) {
    bindingVlans vlans{};
    vlans.given = 1u;
    vlans.count = static_cast<uint32_t>(set.count());
    for (uint32_t vlan = 0; vlan < set.size(); vlan++)
        if (set.test(vlan))
            vlans.bits[vlan / 8] = static_cast<uint8_t>(vlans.bits[vlan / 8] | 0x80 >> vlan % 8);
    return vlans;
}

// A set in lines: "10,20-30", each at most so long, and the VLANs of each.
constexpr size_t MEMBER_TEXT_MAX = 200;
struct memberLine {
    std::string text;
    vlanSet vlans;
};
std::vector<memberLine> linesOf(const vlanSet& set) {
    std::vector<memberLine> lines;
    for (uint32_t vlan = 0; vlan < set.size(); vlan++) {
        if (!set.test(vlan)) continue;
        const uint32_t first = vlan;
        while (vlan + 1 < set.size() && set.test(vlan + 1)) vlan++;
        std::string range = std::to_string(first);
        if (vlan != first) (range += '-') += std::to_string(vlan);
        if (lines.empty() || lines.back().text.size() + range.size() >= MEMBER_TEXT_MAX)
            lines.push_back({});
        memberLine& line = lines.back();
        if (!line.text.empty()) line.text += ',';
        line.text += range;
        for (uint32_t v = first; v <= vlan; v++) line.vlans.set(v);
    }
    return lines;
}

// --- configuration -------------------------------------------------------------------------------

// Every other VLAN, each of four digits and a comma, takes the most lines.
constexpr uint32_t MEMBER_LINES_MAX = VLAN_LAST / 2 * 5 / (MEMBER_TEXT_MAX - 10) + 1;
constexpr uint32_t LIST_LINE = VLAN_LAST;  // the list's line stands behind those of the members

void writeGroup(const aclVlanGroup& group, bool remove) {
    auto again = cfgCommand<cliGroupReq>(CLI_GROUP_CREATE, group.name);
    again.id = group.id;
    cfgWriteHeader(CFG_ACL_VLAN_GROUP, CFG_FAMILY_V4, group.name,
                   "acl-vlan-group " + std::string(listNameView(group.name)), cfgRequestOf(again),
                   remove);
}

// (None of these lines is an entry: the role is that of all others.)
cfgNumbered lineOf(uint32_t number, std::string_view text, const zekCfgRequest& request = {}) {
    return {CFG_ACL_VLAN_GROUP,
            CFG_FAMILY_V4,
            CFG_ROLE_REMARK,
            CFG_SYNC_HEADER,
            number,
            text,
            text,
            request};
}

// The members stand in as few lines as they fit. Lines up to `last` that are not needed any more go
// without a word: the feed has heard which VLANs have gone.
void writeMembers(const aclVlanGroup& group, const std::vector<memberLine>& before,
                  const std::vector<memberLine>& lines, size_t last) {
    for (uint32_t n = 0; n < lines.size(); n++) {
        if (n < before.size() && before[n].vlans == lines[n].vlans) continue;
        auto again = cfgCommand<cliGroupReq>(CLI_GROUP_MEMBER_ADD, group.name);
        again.vlans = wireOf(lines[n].vlans);
        lines[n].text.copy(again.vlanText, sizeof again.vlanText - 1);
        (void)cfgWriteNumbered(
            group.name, lineOf(n, " member vlan " + lines[n].text, cfgRequestOf(again)), false);
    }
    for (size_t n = lines.size(); n < last; n++)
        (void)cfgWriteNumbered(group.name, lineOf(static_cast<uint32_t>(n), ""), true);
}

void writeList(const aclVlanGroup& group, const aclBinding& binding, bool remove) {
    std::string text = " ip access-group " + std::string(listNameView(group.list->name)) + " out";
    if (binding.implicitPermit != 0) text += " implicit-permit";
    auto again = cfgCommand<cliGroupReq>(CLI_GROUP_APPLY, group.name);
    again.list = group.list->name;
    again.implicitPermit = binding.implicitPermit;
    (void)cfgWriteNumbered(group.name, lineOf(LIST_LINE, text, cfgRequestOf(again)), remove);
}

// --- members -------------------------------------------------------------------------------------

aclPPBitMap cardsOf(const aclVlanGroup& group) {
    return aclGetVlanGrpPortPipe({placeOf(group), INTF_V4, false}).map;
}

// Each card gets the list with the first of its VLANs that joins, and loses it with the last that
// leaves.
void changeMembers(aclVlanGroup* group, const vlanSet& members) {
    const vlanSet old = std::exchange(group->members, members);
    const aclPPBitMap after = cardsOf(*group);
    group->members = old;
    const aclPPBitMap before = cardsOf(*group);
    sendToGroup(*group, aclEvent::listDeleted, {.without = &after});
    group->members = members;
    sendToGroup(*group, aclEvent::listAdded, {.without = &before});
    countGroups();
}

bool isForVlanOf(const bindingBlock& block, const vlanSet& set) {
    const auto& vlans = reinterpret_cast<const bindingVlans&>(block);
    return vlans.given == 1 && (setOf(vlans) & set).any();
}

// The group that has one of the VLANs as a member, but for `except`; null: none.
const aclVlanGroup* groupWithAny(const vlanSet& vlans, const aclVlanGroup* except = nullptr) {
    for (const aclVlanGroup& group : aclNode->groups.vlanGroups)
        if (group.id != 0 && &group != except && (group.members & vlans).any()) return &group;
    return nullptr;
}

// --- shows ---------------------------------------------------------------------------------------

std::string groupText(const aclVlanGroup& group, bool detail) {
    std::string out = "ACL VLAN group ";
    out += listNameView(group.name);
    out += "\r\n id " + std::to_string(group.id) + "\r\n";
    for (const memberLine& line : linesOf(group.members))
        out += " member vlan " + line.text + "\r\n";
    if (const aclBinding* b = bindingOf(group)) {
        ((out += " ip access-group ") += listNameView(group.list->name)) += " out";
        if (b->implicitPermit != 0) out += " implicit-permit";
        out += group.list->placeholder != 0 ? " (not configured)\r\n" : "\r\n";
    }
    if (aclNode->chassis.chassisMode != CHASSIS_MODE_VLAN_GROUPS)
        out += " not sent: this chassis has no ACL VLAN groups\r\n";
    if (!detail) return out;
    out += " cards";
    aclForTargets({placeOf(group), INTF_V4, false}, [&out](const aclTarget& target) {
        out += " " + std::to_string(target.ifindex);
        if (target.refused) out += " (takes no egress lists)";
    });
    return out += "\r\n";
}

uint32_t showGroup(const aclVlanGroup* group, bool detail, void** buffer, uint32_t* size) {
    *buffer = nullptr;
    *size = 0;
    if (group == nullptr) return ACL_E_NOGROUP;
    if (!showReplyMake(groupText(*group, detail), 0, buffer, size)) return ACL_E_MEMORY;
    return ACL_OK;
}

uint32_t showNext(const listName& cursor, bool detail, void** buffer, uint32_t* size) {
    const aclVlanGroup* next = aclVlanGroupNext(cursor);
    const uint32_t status = showGroup(next, detail, buffer, size);
    if (status != ACL_OK) return status;
    auto* front = static_cast<showReplyHdr*>(*buffer);
    front->marker = SHOW_MARKER;
    front->name = next->name;
    return ACL_OK;
}

}  // namespace

// --- what groups and bindings forbid each other --------------------------------------------------

uint32_t aclCheckVlanGrpClash(const aclBindRequest& r) {
    vlanSet vlans = vlanOf(r.ifindex);
    const auto& named = reinterpret_cast<const bindingVlans&>(*r.block);
    if (r.vlanOption && named.given == 1) vlans |= setOf(named);
    if (groupWithAny(vlans) == nullptr) return ACL_OK;
    const std::string text =
        r.vlanOption ? std::string(r.vlanText) : std::to_string(ifindexPort(r.ifindex));
    aclDebug(DEBUG_ACL_GROUP, "%s : %s : %d\r\n", "vlangroup", __func__, __LINE__);
    aclDebug(DEBUG_ACL_GROUP, "vlan %s has a vlan which belongs to a acl vlan group\r\n",
             text.c_str());
    return ACL_E_GROUP_VLAN;
}

uint32_t aclCheckForVlanAndMemberConfigurations(const vlanSet& vlans) {
    if ((vlans & ~aclNode->groups.aclVlanGroupMemberBitMap).any()) return ACL_E_GROUP_EGRESS;
    // Ports and LAGs may filter what leaves them in certain VLANs.
    for (const aclIntf* intf = AclIntfTreeFindFirst(); intf != nullptr;
         intf = AclIntfTreeFindNext(intf->ifindex))
        for (const aclFamily* family : aclFamilies) {
            if (!family->inVlanGroups) continue;
            const aclList* list = intf->lists[family->place][INTF_OUT];
            const aclBinding* b =
                list != nullptr ? aclInterfaceBinding(list, intf->ifindex, INTF_OUT) : nullptr;
            if (b != nullptr && isForVlanOf(b->block, vlans)) return ACL_E_GROUP_EGRESS;
        }
    return ACL_OK;
}

// --- operations ----------------------------------------------------------------------------------

uint32_t aclCreateDelAclVlanGrp(const listName& name, uint32_t id, bool create) {
    aclVlanGroup* group = findGroup(name);
    if (!create) {
        if (group == nullptr) return ACL_E_NOGROUP;
        if (group->members.any() || group->list != nullptr) return ACL_E_GROUP_USED;
        writeGroup(*group, true);
        *group = {};
        countGroups();
        return ACL_OK;
    }
    if (listNameIsEmpty(name)) return ACL_E_NOGROUP;
    if (group != nullptr) return id == 0 || id == group->id ? ACL_OK : ACL_E_GROUP_ID;
    auto& all = aclNode->groups.vlanGroups;
    const auto isFree = [](const aclVlanGroup& g) { return g.id == 0; };
    if (id > VLAN_GROUPS) return ACL_E_GROUP_ID;
    if (std::ranges::none_of(all, isFree)) return ACL_E_GROUP_FULL;
    // An id is its place, so the first free place has the first free id.
    group = id != 0 ? &all[id - 1] : std::ranges::find_if(all, isFree);
    if (!isFree(*group)) return ACL_E_GROUP_ID;
    group->id = static_cast<uint8_t>(group - all + 1);
    group->name = name;
    countGroups();
    writeGroup(*group, false);
    return ACL_OK;
}

uint32_t aclAddDelAclVlanGrpMember(const listName& name, const bindingVlans& given, bool add) {
    aclVlanGroup* group = findGroup(name);
    if (group == nullptr) return ACL_E_NOGROUP;
    const vlanSet vlans = setOf(given);
    if (vlans.none() || vlans.test(0) || vlans.test(VLAN_LAST + VLAN_FIRST))
        return ACL_E_VLAN_RANGE;
    const vlanSet old = group->members;
    if (add) {
        if (groupWithAny(vlans, group) != nullptr) return ACL_E_GROUP_OTHER;
        const uint32_t status = aclCheckForVlanAndMemberConfigurations(vlans & ~old);
        if (status != ACL_OK) return status;
    } else if ((vlans & ~old).any()) {
        return ACL_E_GROUP_MEMBER;
    }
    // Whatever takes memory comes before the change.
    const vlanSet wanted = add ? old | vlans : old & ~vlans;
    const std::vector<memberLine> before = linesOf(old), after = linesOf(wanted);
    const std::vector<memberLine> gone = linesOf(old & ~wanted);
    changeMembers(group, wanted);
    for (const memberLine& line : gone)
        cfgSync(CFG_SYNC_HEADER, group->name, " member vlan " + line.text, true);
    // A restart that could not bring all lines back has left some of them behind their places: no
    // VLAN that goes may stand in one of those.
    writeMembers(*group, before, after, add ? before.size() : MEMBER_LINES_MAX);
    return ACL_OK;
}

namespace {

uint32_t removeList(aclVlanGroup* group, const listName& name) {
    aclList* list = group->list;
    if (list == nullptr || !(list->name == name)) return ACL_E_GROUP_LIST;
    aclBinding* binding = bindingOf(*group);
    writeList(*group, *binding, true);
    sendToGroup(*group, aclEvent::listDeleted);
    group->list = nullptr;
    clientDrop(list, binding);
    aclListDropUnused(list);
    return ACL_OK;
}

uint32_t applyList(aclVlanGroup* group, const listName& name, uint32_t implicitPermit) {
    // Lists that the manager makes leave no lines, so the group would be without one after a
    // restart.
    if (listNameIsGenerated(name)) return ACL_E_CLASH;
    if (group->list != nullptr && group->list->name == name)
        return bindingOf(*group)->implicitPermit == implicitPermit ? ACL_OK : ACL_E_IMPLICIT_PERMIT;
    uint32_t status = ACL_OK;
    aclList* list = aclListCreate(ip4Family, name, IP_KIND_NONE, 1, &status);
    auto* binding =
        list != nullptr
            ? static_cast<aclBinding*>(
                  clientAdd(list, {CLIENT_VLAN_GROUP, group->id, 0, INTF_OUT}, sizeof(aclBinding)))
            : nullptr;
    if (binding == nullptr) {
        if (list != nullptr) aclListDropUnused(list);
        return list == nullptr ? status : ACL_E_MEMORY;
    }
    binding->implicitPermit = implicitPermit;
    // As on interfaces, another list takes the place of the one before.
    if (group->list != nullptr) (void)removeList(group, listName(group->list->name));
    group->list = list;
    writeList(*group, *binding, false);
    sendToGroup(*group, aclEvent::listAdded);
    return ACL_OK;
}

}  // namespace

uint32_t aclApplyRemoveAclVlanGrp(const listName& name, const listName& list,
                                  uint32_t implicitPermit, bool apply) {
    aclVlanGroup* group = findGroup(name);
    if (group == nullptr) return ACL_E_NOGROUP;
    if (listNameIsEmpty(list)) return ACL_E_NOLIST;
    return apply ? applyList(group, list, implicitPermit) : removeList(group, list);
}

const aclVlanGroup* aclVlanGroupNext(const listName& cursor) {
    const auto key = [](const aclVlanGroup& g) {
        return std::string_view(g.name.text, LIST_NAME_LEN);
    };
    const std::string_view behind(cursor.text, LIST_NAME_LEN);
    const aclVlanGroup* next = nullptr;
    for (const aclVlanGroup& group : aclNode->groups.vlanGroups)
        if (group.id != 0 && key(group) > behind && (next == nullptr || key(group) < key(*next)))
            next = &group;
    return next;
}

std::vector<std::string> aclVlanGroupMembers(const aclVlanGroup& group) {
    std::vector<std::string> texts;
    for (memberLine& line : linesOf(group.members)) texts.push_back(std::move(line.text));
    return texts;
}

const aclBinding* aclVlanGroupBinding(const aclVlanGroup& group) {
    return bindingOf(group);
}

void aclVlanGroupReplay(uint32_t slot) {
    for (const aclVlanGroup& group : aclNode->groups.vlanGroups)
        sendToGroup(group, aclEvent::listAdded, {static_cast<int>(slot)});
}

void aclVlanGroupMemberJoined(uint32_t vlanIfindex, uint32_t member) {
    if (const aclVlanGroup* group = groupWithAny(vlanOf(vlanIfindex)))
        sendToGroup(*group, aclEvent::listAdded, {SLOT_NONE, member});
}

void aclVlanGroupMemberLeft(uint32_t vlanIfindex, uint32_t member) {
    const aclVlanGroup* group = groupWithAny(vlanOf(vlanIfindex));
    if (group == nullptr || group->list == nullptr) return;
    sendToGroup(*group, aclEvent::listDeleted, {SLOT_NONE, member});
    const aclPPBitMap gone = aclOtherTargets(cardsOf(*group));
    sendToGroup(*group, aclEvent::listAdded, {SLOT_NONE, member, &gone});
}

uint32_t aclShowAclVlanGrpSpecific(const listName& name, void** buffer, uint32_t* size) {
    return showGroup(findGroup(name), false, buffer, size);
}
uint32_t aclShowAclVlanGrpSpecificDetail(const listName& name, void** buffer, uint32_t* size) {
    return showGroup(findGroup(name), true, buffer, size);
}
uint32_t aclShowAclVlanGrpAll(const listName& cursor, void** buffer, uint32_t* size) {
    return showNext(cursor, false, buffer, size);
}
uint32_t aclShowAclVlanGrpAllDetail(const listName& cursor, void** buffer, uint32_t* size) {
    return showNext(cursor, true, buffer, size);
}
