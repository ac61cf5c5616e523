// The model of interfaces: a row for each command, and the records that tell of it.
#include "chassis/tasks/interfaces.h"

#include <algorithm>
#include <cstring>

#include "include/ifmMsg.h"
#include "include/ipText.h"

namespace {

constexpr size_t ADDRESSES_MAX = 100000;
constexpr uint32_t IFM_MEMBERS_AT_ONCE = 1024;  // of one record of type 43; a message holds more

// --- records -------------------------------------------------------------------------------------

template <class Record>
toldItem itemOf(const Record& record, bool removes) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return {removes, std::vector<uint8_t>(bytes, bytes + record.hdr.length)};
}

// A record of words. Those that it does not have are not sent.
toldItem words(ifmSvcType type, std::initializer_list<uint32_t> values, bool removes = false) {
    ifmSvcWords record{};
    record.hdr.type = type;
    record.hdr.length =
        static_cast<uint16_t>(sizeof record.hdr + values.size() * sizeof record.word[0]);
    std::ranges::copy(values, record.word);
    return itemOf(record, removes);
}

toldItem addressItem(uint32_t ifindex, const ifmAddress& address, bool add) {
    if (address.family == 6) {
        ifmSvcIp6 record{};
        record.hdr.type = add ? IFM_SVC_ADD_IP6 : IFM_SVC_DEL_IP6;
        record.hdr.length = sizeof record;
        record.ifindex = ifindex;
        std::ranges::copy(address.bytes, record.address);
        record.prefixLength = address.length;
        return itemOf(record, !add);
    }
    be32 word;
    std::memcpy(&word, address.bytes.data(), sizeof word);
    if (!add) return words(IFM_SVC_DEL_IP, {ifindex, word}, true);
    ifmSvcAddIp record{};
    record.hdr.type = IFM_SVC_ADD_IP;
    record.hdr.length = sizeof record;
    record.ifindex = ifindex;
    record.address = word;
    record.mask = maskFromPrefix(address.length);
    return itemOf(record, false);
}

toldItem groupItem(uint32_t ifindex, uint32_t group, bool set) {
    const bool lag = ifindexType(ifindex) == IF_TYPE_LAG;
    const ifmSvcType type = set ? (lag ? IFM_SVC_ADD_LAG_MGID : IFM_SVC_ADD_VLAN_MGID)
                                : (lag ? IFM_SVC_DEL_LAG_MGID : IFM_SVC_DEL_VLAN_MGID);
    return words(type, {ifindex, group, 0, 0}, !set);
}

toldItem leaveItem(uint32_t aggregate, uint32_t member) {
    if (ifindexType(aggregate) == IF_TYPE_LAG)
        return words(IFM_SVC_DEL_LAG_PORT, {aggregate, member}, true);
    return words(IFM_TYP_DEL_VLAN_PORT, {member, aggregate}, true);
}

// Members that join at once share records where there is one for several.
void joinItems(uint32_t aggregate, std::span<const uint32_t> members, toldItems* items) {
    if (ifindexType(aggregate) == IF_TYPE_LAG) {
        for (uint32_t port : members)
            items->push_back(words(IFM_SVC_ADD_LAG_PORT, {aggregate, port}));
        return;
    }
    if (members.size() == 1) {
        items->push_back(words(IFM_TYP_ADD_VLAN_PORT, {members[0], aggregate}));
        return;
    }
    while (!members.empty()) {
        const size_t count = std::min<size_t>(members.size(), IFM_MEMBERS_AT_ONCE);
        std::vector<uint8_t> bytes(sizeof(ifmSvcVlanPorts) + count * sizeof(be32));
        auto* record = wireView<ifmSvcVlanPorts>(std::span(bytes));
        record->hdr.type = IFM_SVC_ADD_VLAN_PORTS;
        record->hdr.length = static_cast<uint16_t>(bytes.size());
        record->vlan = aggregate;
        record->count = static_cast<uint32_t>(count);
        for (size_t i = 0; i < count; i++)
            *wireView<be32>(std::span(bytes), sizeof *record + i * sizeof(be32)) = members[i];
        items->push_back({false, std::move(bytes)});
        members = members.subspan(count);
    }
}

// --- commands ------------------------------------------------------------------------------------

struct ifmCommand {
    const chassisDescription& chassis;
    const chassisPlaceReq& request;
    std::span<const uint8_t> bytes;
    uint32_t ifindex;
    ifmModel* model;
    toldItems* items;
    std::string* why;

    std::string name(uint32_t index) const { return ifmName(chassis, index); }
    bool refuse(const std::string& sentence) const {
        *why = sentence;
        return false;
    }
    // Makes it known; it is forgotten again when nothing is known of it.
    ifmInterface& subject() const { return model->interfaces[ifindex]; }
};

bool isType(uint32_t ifindex, ifType type) {
    return ifindexType(ifindex) == type;
}
bool isAggregate(uint32_t ifindex) {
    return isType(ifindex, IF_TYPE_LAG) || isType(ifindex, IF_TYPE_VLAN);
}

// The LAG that the port is a member of, or 0.
uint32_t lagOf(const ifmModel& model, uint32_t port) {
    for (const auto& [index, interface] : model.interfaces)
        if (isType(index, IF_TYPE_LAG) &&
            std::ranges::find(interface.members, port) != interface.members.end())
            return index;
    return 0;
}

bool mayJoin(const ifmCommand& c, uint32_t member) {
    if (!ifmIsInterface(member)) return c.refuse(c.name(member) + " is no interface");
    if (isType(member, IF_TYPE_VLAN))
        return c.refuse(c.name(member) + " is a VLAN, and no member of anything");
    if (!isType(c.ifindex, IF_TYPE_LAG)) return true;
    if (isType(member, IF_TYPE_LAG)) return c.refuse("A LAG is no member of a LAG");
    const uint32_t other = lagOf(*c.model, member);
    if (other != 0 && other != c.ifindex)
        return c.refuse(c.name(member) + " is a member of " + c.name(other));
    return true;
}

bool join(const ifmCommand& c, std::span<const uint32_t> members) {
    ifmInterface& aggregate = c.subject();
    std::vector<uint32_t> joined;
    for (uint32_t member : members) {
        if (!mayJoin(c, member)) return false;
        if (std::ranges::find(aggregate.members, member) != aggregate.members.end()) continue;
        aggregate.members.push_back(member);
        joined.push_back(member);
        c.model->members++;
    }
    if (!joined.empty()) joinItems(c.ifindex, joined, c.items);
    return true;
}

bool leave(const ifmCommand& c, std::span<const uint32_t> members) {
    for (uint32_t member : members) {
        if (std::erase(c.subject().members, member) == 0)
            return c.refuse(c.name(member) + " is no member of " + c.name(c.ifindex));
        c.model->members--;
        c.items->push_back(leaveItem(c.ifindex, member));
    }
    return true;
}

bool changeMembers(const ifmCommand& c) {
    if (!isAggregate(c.ifindex)) return c.refuse("Only VLANs and LAGs have members");
    const uint32_t count = c.request.count;
    if (count == 0 || count > CHASSIS_MEMBERS_MAX ||
        c.bytes.size() < sizeof c.request + count * sizeof(be32))
        return c.refuse("One command names 1 to 1024 members");
    std::vector<uint32_t> members;
    for (uint32_t i = 0; i < count; i++)
        members.push_back(*wireView<be32>(c.bytes, sizeof c.request + i * sizeof(be32)));
    return c.request.command == CHASSIS_MEMBERS_JOIN ? join(c, members) : leave(c, members);
}

// What is known of the interface goes. Members of a VLAN or LAG, and a LAG's places in VLANs, go
// with it at the manager, too; a port's places are left one by one.
bool remove(const ifmCommand& c) {
    for (auto& [index, interface] : c.model->interfaces) {
        if (std::erase(interface.members, c.ifindex) == 0) continue;
        c.model->members--;
        if (!isAggregate(c.ifindex)) c.items->push_back(leaveItem(index, c.ifindex));
    }
    ifmInterface& gone = c.subject();
    for (const ifmAddress& address : gone.addresses)
        c.items->push_back(addressItem(c.ifindex, address, false));
    c.items->push_back(words(IFM_SVC_DEL_IF, {c.ifindex}, true));
    c.model->addresses -= gone.addresses.size();
    c.model->members -= gone.members.size();
    gone = {};
    return true;
}

bool setGroup(const ifmCommand& c) {
    if (!isAggregate(c.ifindex)) return c.refuse("Only VLANs and LAGs have a multicast group id");
    std::optional<uint32_t>& group = c.subject().group;
    const uint32_t wanted = c.request.argument;
    if (wanted == group.value_or(0)) return true;
    c.items->push_back(groupItem(c.ifindex, wanted != 0 ? wanted : *group, wanted != 0));
    group = wanted != 0 ? std::optional(wanted) : std::nullopt;
    return true;
}

bool readAddress(const ifmCommand& c, ifmAddress* address) {
    address->family = c.request.family;
    address->length = c.request.argument;
    std::ranges::copy(c.request.address, address->bytes.begin());
    const bool v6 = address->family == 6;
    if (!v6) std::fill(address->bytes.begin() + 4, address->bytes.end(), uint8_t{0});
    if ((!v6 && address->family != 4) || address->length == 0 || address->length > (v6 ? 128 : 32))
        return c.refuse("An address has a prefix length of 1 to 32, or of IPv6 1 to 128");
    // What nobody can have: nothing, oneself, everybody, a group.
    constexpr std::array<uint8_t, 16> none{},
        loopback6{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const bool loopback = v6 ? address->bytes == loopback6 : address->bytes[0] == 127;
    if (address->bytes == none || loopback || address->bytes[0] >= (v6 ? 0xFF : 224))
        return c.refuse("An interface has no such address (zero, loopback, group, broadcast)");
    return true;
}

bool changeAddress(const ifmCommand& c) {
    ifmAddress wanted{};
    if (!readAddress(c, &wanted)) return false;
    std::vector<ifmAddress>& all = c.subject().addresses;
    const auto known = std::ranges::find_if(all, [&wanted](const ifmAddress& a) {
        return a.family == wanted.family && a.bytes == wanted.bytes;
    });
    const bool add = c.request.command == CHASSIS_ADDRESS_ADD;
    if (known != all.end() && *known != wanted)
        return c.refuse("The interface has this address with the prefix length " +
                        std::to_string(known->length));
    if (add && known != all.end()) return true;
    if (!add && known == all.end()) return c.refuse("The interface does not have this address");
    if (add && c.model->addresses >= ADDRESSES_MAX) return c.refuse("There are too many addresses");
    if (add) {
        all.push_back(wanted);
        c.model->addresses++;
    } else {
        all.erase(known);
        c.model->addresses--;
    }
    c.items->push_back(addressItem(c.ifindex, wanted, add));
    return true;
}

// A value that replaces the one before.
template <std::optional<uint32_t> ifmInterface::*member, ifmSvcType type>
bool setValue(const ifmCommand& c) {
    std::optional<uint32_t>& value = c.subject().*member;
    if (value == uint32_t{c.request.argument}) return true;
    value = c.request.argument;
    c.items->push_back(words(type, {c.ifindex, *value}));
    return true;
}

constexpr struct {
    uint32_t command;
    bool (*run)(const ifmCommand&);
} commands[] = {
    {CHASSIS_MEMBERS_JOIN, changeMembers},
    {CHASSIS_MEMBERS_LEAVE, changeMembers},
    {CHASSIS_INTERFACE_DELETE, remove},
    {CHASSIS_GROUP, setGroup},
    {CHASSIS_ADDRESS_ADD, changeAddress},
    {CHASSIS_ADDRESS_DEL, changeAddress},
    {CHASSIS_INTERFACE_STATE, setValue<&ifmInterface::state, IFM_SVC_ADD_IF>},
    {CHASSIS_INTERFACE_MODE, setValue<&ifmInterface::mode, IFM_SVC_PORT_MODE>},
};

}  // namespace

bool ifmIsInterface(uint32_t ifindex) {
    if (isAggregate(ifindex))
        return ifindex ==
                   ifindexMake(static_cast<ifType>(ifindexType(ifindex)), ifindexPort(ifindex)) &&
               ifindexPort(ifindex) >= 1 && ifindexPort(ifindex) <= 4094;
    return isType(ifindex, IF_TYPE_PORT) && ifindex >= SLOT_COUNT &&
           ifindexSlot(ifindex) != SLOT_NONE;
}

std::string ifmName(const chassisDescription& chassis, uint32_t ifindex) {
    std::string name = chassisIfName(chassis, ifindex);
    return name.empty() ? chassisIndexText(ifindex) : name;
}

bool ifmApply(const chassisDescription& chassis, std::span<const uint8_t> request, ifmModel* model,
              toldItems* items, std::string* why) {
    const auto* req = wireView<chassisPlaceReq>(request);
    const auto row = std::ranges::find_if(
        commands, [req](const auto& r) { return req != nullptr && r.command == req->command; });
    if (row == std::ranges::end(commands)) {
        *why = "chassisd does not know this command";
        return false;
    }
    const uint32_t ifindex = req->ifindex;
    if (!ifmIsInterface(ifindex)) {
        *why = ifmName(chassis, ifindex) + " is no port, LAG or VLAN";
        return false;
    }
    if (!row->run({chassis, *req, request, ifindex, model, items, why})) return false;
    if (!model->interfaces[ifindex].isKnown()) model->interfaces.erase(ifindex);
    std::erase_if(model->interfaces, [](const auto& i) { return !i.second.isKnown(); });
    return true;
}

toldItems ifmWhole(const ifmModel& model) {
    toldItems items;
    auto each = [&model](auto fn) {
        for (const auto& [index, interface] : model.interfaces) fn(index, interface);
    };
    each([&](uint32_t index, const ifmInterface& i) {
        if (i.state) items.push_back(words(IFM_SVC_ADD_IF, {index, *i.state}));
        if (i.mode) items.push_back(words(IFM_SVC_PORT_MODE, {index, *i.mode}));
        if (i.group) items.push_back(groupItem(index, *i.group, true));
    });
    for (const ifType type : {IF_TYPE_LAG, IF_TYPE_VLAN})
        each([&](uint32_t index, const ifmInterface& i) {
            if (isType(index, type) && !i.members.empty()) joinItems(index, i.members, &items);
        });
    each([&](uint32_t index, const ifmInterface& i) {
        for (const ifmAddress& a : i.addresses) items.push_back(addressItem(index, a, true));
    });
    return items;
}

std::vector<uint8_t> ifmMessage(std::span<const toldItem> items, size_t* taken) {
    std::vector<uint8_t> message(sizeof(ifmEventMsg));
    for (*taken = 0; *taken < items.size(); ++*taken) {
        const std::vector<uint8_t>& record = items[*taken].bytes;
        if (*taken != 0 && message.size() + record.size() > IFM_MESSAGE_MAX) break;
        message.insert(message.end(), record.begin(), record.end());
    }
    auto* head = wireView<ifmEventMsg>(std::span(message));
    head->ipc.mtype = MT_IFM_EVT_NOTIF;
    head->ipc.length = static_cast<uint32_t>(message.size());
    head->count = static_cast<uint32_t>(*taken);
    return message;
}
