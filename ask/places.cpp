// Debug functions about places: interfaces, VLANs, LAGs, and the protocols on them.
//
// Answers come in pages, because a chassis has thousands of VLANs with many members each and the
// task serves nobody else meanwhile: {"rows": [...], "next": INDEX}. "after INDEX" asks for what
// follows; "next" is not there behind the last page.
#include <algorithm>
#include <charconv>
#include <functional>
#include <set>

#include "ask/placeWords.h"
#include "include/agentState.h"
#include "include/ipText.h"
#include "platform/api/zekTask.h"
#include "protocol/zekprotocol.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// A page ends with the row that fills it.
constexpr size_t PAGE_BYTES = 64 * 1024;
// Places without a row cost little, but a page does not look at any number of them.
constexpr uint32_t PAGE_PLACES = 4096;

// --- the places, in the order of their indexes ---------------------------------------------------

// An interface's record, a VLAN's, or (a VLAN with lists) both.
struct place {
    uint32_t ifindex = 0;
    const aclIntf* intf = nullptr;
    const aclVlan* vlan = nullptr;
    const aclPlaceUse* use() const {
        if (vlan != nullptr) return vlan->use.get();
        return intf != nullptr ? intf->use.get() : nullptr;
    }
};

place placeAt(uint32_t ifindex) {
    place p{ifindex, AclIntfTreeFind(ifindex)};
    if (ifindexType(ifindex) == IF_TYPE_VLAN) p.vlan = aclVlanTreeFind(ifindex);
    return p;
}

// The one with the smallest index above this one; index 0: none.
place placeAfter(uint32_t ifindex) {
    place p{0, AclIntfTreeFindNext(ifindex), aclVlanTreeFindNext(ifindex)};
    const uint32_t intf = p.intf != nullptr ? p.intf->ifindex : UINT32_MAX;
    const uint32_t vlan = p.vlan != nullptr ? p.vlan->ifindex : UINT32_MAX;
    if (intf > vlan) p.intf = nullptr;
    if (vlan > intf) p.vlan = nullptr;
    if (p.intf != nullptr || p.vlan != nullptr) p.ifindex = std::min(intf, vlan);
    return p;
}

// --- what is said of one -------------------------------------------------------------------------

std::string array(const std::string& items) {
    return "[" + items + "]";
}
void appendString(std::string* items, std::string_view text) {
    std::string quoted;
    jsonString(quoted, text);
    jsonAppend(items, quoted);
}

const char* kindWord(uint32_t ifindex) {
    switch (ifindexType(ifindex)) {
        case IF_TYPE_LAG:
            return "port-channel";
        case IF_TYPE_VLAN:
            return "vlan";
        case IF_TYPE_CP:
            return "control-plane";
        default:
            return "port";
    }
}

// Ports of a LAG in the order in which they joined; of a VLAN ports and LAGs by their indexes.
std::string membersText(const place& p) {
    std::string names;
    if (p.vlan != nullptr)
        for (const aclVlanMember* m = aclVlanInfoTreeFindFirst(p.vlan); m != nullptr;
             m = aclVlanInfoTreeFindNext(p.vlan, m->ifindex))
            appendString(&names, interfaceName(m->ifindex));
    else if (p.intf != nullptr)
        for (uint32_t port : p.intf->lagMembers) appendString(&names, interfaceName(port));
    return array(names);
}

// "1-10,20": the VLANs that the port or LAG is a member of.
std::string vlansText(const aclIntf& intf) {
    std::string text;
    uint32_t first = 0, last = 0;  // of the range that is open; id 0 is no VLAN
    auto close = [&] {
        if (first == 0) return;
        if (!text.empty()) text.push_back(',');
        textNumber(text, first);
        if (last != first) text.push_back('-'), textNumber(text, last);
    };
    aclForVlansOf(intf, [&](uint32_t vlan) {
        const uint32_t id = ifindexPort(vlan);
        if (first == 0 || id != last + 1) close(), first = id;
        last = id;
    });
    close();
    return text;
}

std::string addressText(const aclAddress& address) {
    std::string text;
    be32 words[4];
    std::ranges::copy(address.word, words);
    if (address.isV6)
        textAddress6(text, words[0].b);
    else
        textDotted(text, address.word[0]);
    return text + "/" + std::to_string(address.prefixLength);
}

// The first of each family is the primary one.
std::string addressesText(const aclPlaceUse* use) {
    std::string rows;
    if (use == nullptr) return array(rows);
    for (const aclAddress& address : use->addresses) {
        const auto first = std::ranges::find(use->addresses, address.isV6, &aclAddress::isV6);
        const char* kind = &address == &*first ? "primary" : "secondary";
        jsonObject row;
        row.string("address", addressText(address))
            .string("kind", kind)
            .flag("installed", address.installed);
        // Its entries stay all the same, until the address goes.
        if (address.forgotten) row.flag("forgotten", true);
        jsonAppend(&rows, row.text());
    }
    return array(rows);
}

void appendLists(const aclIntf& owner, const aclIntf* member, std::string* rows) {
    for (uint32_t family = 0; family < INTF_FAMILIES; family++)
        for (uint32_t direction : {INTF_IN, INTF_OUT}) {
            const aclList* list = owner.lists[family][direction];
            if (list == nullptr) continue;
            jsonObject row;
            row.string("direction", directionWord(direction))
                .string("family", familyWords[family])
                .string("list", listNameView(list->name))
                .string("of", interfaceName(owner.ifindex))
                .flag("configured", list->placeholder == 0);
            // A card has one list for a port there: a member's own goes first.
            if (member != nullptr)
                row.flag("yields", aclPortHasOwnList(member->ifindex, family, direction));
            jsonAppend(rows, row.text());
        }
}

// What is bound to the place and, of a member of a LAG, what the LAG brings it.
std::string listsText(const aclIntf* intf) {
    std::string rows;
    if (intf == nullptr) return array(rows);
    appendLists(*intf, nullptr, &rows);
    const aclIntf* lag = intf->lag != 0 ? AclIntfTreeFind(intf->lag) : nullptr;
    if (lag != nullptr) appendLists(*lag, intf, &rows);
    return array(rows);
}

// Each once, whatever order they came in and however many virtual addresses they have.
std::string protocolWords(const aclPlaceUse* use) {
    std::set<std::string_view> words;
    if (use != nullptr)
        for (const aclProtocolUse& protocol : use->protocols)
            words.insert(aclProtocolOf(protocol.record.id).word);
    std::string items;
    for (std::string_view word : words) appendString(&items, word);
    return array(items);
}

void appendPlace(const place& p, std::string* rows) {
    const aclPlaceUse* use = p.use();
    const uint32_t type = ifindexType(p.ifindex);
    jsonObject row;
    row.string("interface", interfaceName(p.ifindex))
        .number("index", p.ifindex)
        .string("kind", kindWord(p.ifindex));
    if (type == IF_TYPE_LAG || type == IF_TYPE_VLAN)
        row.number("id", ifindexPort(p.ifindex)).raw("members", membersText(p));
    if (type == IF_TYPE_VLAN) {
        for (const aclVlanGroup& group : aclNode->groups.vlanGroups)
            if (group.id != 0 && group.members.test(ifindexPort(p.ifindex) % VLAN_BITS))
                row.string("acl-vlan-group", listNameView(group.name));
        row.number("group-id", p.vlan != nullptr ? p.vlan->mcastId : 0);
    } else {
        if (p.intf != nullptr && p.intf->lag != 0) row.string("lag", interfaceName(p.intf->lag));
        row.string("vlans", p.intf != nullptr ? vlansText(*p.intf) : "");
    }
    if (type == IF_TYPE_LAG) row.number("group-id", p.intf != nullptr ? p.intf->mcastId : 0);
    if (type == IF_TYPE_PORT) row.number("mode", use != nullptr ? use->mode : 0);
    row.raw("addresses", addressesText(use))
        .raw("lists", listsText(p.intf))
        .raw("protocols", protocolWords(use));
    jsonAppend(rows, row.text());
}

// --- protocols -----------------------------------------------------------------------------------

std::string macText(const macAddress& mac) {
    std::string text;
    for (uint8_t byte : mac) text += (text.empty() ? "" : ":") + agentHexText({&byte, 1});
    return text;
}
// What the MAC agents of the cards are told to trap.
std::string trapsText(const protRecord& record) {
    std::string macs;
    macAddress carried;
    for (const macAddress& mac : aclSetMacAddrFromProt(record, &carried))
        appendString(&macs, macText(mac));
    return array(macs);
}

void appendProtocols(const place& p, std::string* rows) {
    const aclPlaceUse* use = p.use();
    if (use == nullptr) return;
    for (const aclProtocolUse& protocol : use->protocols) {
        const protRecord& record = protocol.record;
        const aclProtocolRow& row = aclProtocolOf(record.id);
        const std::optional<macAddress> router = aclVirtualMac(record);
        jsonAppend(rows, jsonObject{}
                             .string("interface", interfaceName(p.ifindex))
                             .string("protocol", row.word)
                             .number("id", record.id)
                             .string("virtual-mac", router ? macText(*router) : "")
                             .number("cpus", row.cpus)
                             .flag("entry", row.entry)
                             .raw("traps", trapsText(record))
                             .text());
    }
}

// --- pages ---------------------------------------------------------------------------------------

std::string refused(const std::string& why) {
    return jsonObject{}.string("error", why).text();
}

// What is asked about: the places of which function, and which of them.
struct question {
    uint32_t first, last;
    void (*append)(const place&, std::string* rows);
};

std::string pageAfter(const question& what, uint32_t after) {
    std::string rows;
    uint32_t next = 0, seen = 0;
    after = std::max(after, what.first - 1);
    for (place p = placeAfter(after); p.ifindex != 0 && p.ifindex <= what.last;
         p = placeAfter(p.ifindex)) {
        what.append(p, &rows);
        if (rows.size() < PAGE_BYTES && ++seen < PAGE_PLACES) continue;
        next = p.ifindex;
        break;
    }
    jsonObject out;
    out.raw("rows", array(rows));
    if (next != 0) out.number("next", next);
    return out.text();
}

bool numberOf(std::string_view text, uint32_t* number) {
    const char* end = text.data() + text.size();
    return std::from_chars(text.data(), end, *number).ptr == end && !text.empty();
}

// `known`: the chassis has it, though there may be nothing on it.
std::string onePlace(const question& what, uint32_t ifindex, bool known) {
    const place p = placeAt(ifindex);
    if (!known && p.intf == nullptr && p.vlan == nullptr)
        return refused("The chassis does not have this " + std::string(kindWord(ifindex)) +
                       ", and nothing is on it");
    std::string rows;
    what.append(p, &rows);
    return jsonObject{}.raw("rows", array(rows)).text();
}

std::string answer(const question& what, std::string_view args,
                   const std::function<bool(std::string_view, uint32_t*)>& indexOf) {
    constexpr std::string_view after = "after ";
    uint32_t ifindex = 0;
    aclLockHeld<aclLock::read> held;
    if (args.empty()) return pageAfter(what, 0);
    if (args.starts_with(after) && numberOf(args.substr(after.size()), &ifindex))
        return pageAfter(what, ifindex);
    if (!indexOf(args, &ifindex))
        return refused("The chassis has no interface " + std::string(args) +
                       ": its description does not name it");
    // What has no name in the chassis is called by its index, which is a name of any index.
    char name[64];
    return onePlace(what, ifindex, ifmIfIndexToLName(ifindex, name, sizeof name) == 0);
}

bool byName(std::string_view name, uint32_t* ifindex) {
    // A bare slot is no interface.
    return ifmLNameToIfIndex(std::string(name).c_str(), ifindex) == 0 && *ifindex >= SLOT_COUNT;
}

constexpr uint32_t lastOf(uint32_t type) {
    return ifindexMake(type, UINT32_MAX);
}
std::string numbered(uint32_t type, std::string_view args) {
    const question what{ifindexMake(type, 0), lastOf(type), appendPlace};
    return answer(what, args, [type](std::string_view text, uint32_t* ifindex) {
        uint32_t id = 0;
        if (!numberOf(text, &id) || id == 0 || id >= VLAN_BITS) return false;
        *ifindex = ifindexMake(type, id);
        return true;
    });
}

std::string interfaces(std::string_view args) {
    return answer({SLOT_COUNT, UINT32_MAX, appendPlace}, args, byName);
}
std::string vlans(std::string_view args) {
    return numbered(IF_TYPE_VLAN, args);
}
std::string portChannels(std::string_view args) {
    return numbered(IF_TYPE_LAG, args);
}
std::string protocols(std::string_view args) {
    return answer({SLOT_COUNT, UINT32_MAX, appendProtocols}, args, byName);
}

}  // namespace

void aclRegisterPlaceFunctions() {
    zekDebugRegister("interfaces", "[NAME|after INDEX] interfaces and what is on them", interfaces);
    zekDebugRegister("vlans", "[ID|after INDEX] VLANs, their members and what is on them", vlans);
    zekDebugRegister("port-channels", "[ID|after INDEX] LAGs, their members and what is on them",
                     portChannels);
    zekDebugRegister("protocols", "[INTERFACE|after INDEX] protocols that are enabled", protocols);
}
