// Protocols on interfaces: a row for each, and the records that ask for them.
#include "chassis/tasks/protocols.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t PROTOCOLS_MAX = 65536;  // enabled, of all interfaces

struct protocolRow {
    uint32_t id;
    const char* name;
    uint8_t protocol;  // IP protocol; PROT_RECORD_V6
    uint32_t port;     // destination port
    // The group that its packets go to, as an address of its family; none of those that are not
    // about IP or go to the router itself.
    std::array<uint8_t, 16> group;
    uint32_t option = 0;
};
constexpr std::array<uint8_t, 16> NO_GROUP{};
constexpr std::array<uint8_t, 16> v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    return {a, b, c, d};
}
constexpr std::array<uint8_t, 16> v6AllOf(uint8_t last) {  // ff02::X
    return {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

// clang-format off
constexpr protocolRow rows[] = {
    {PROT_OSPF,         "ospf",          89,             0,    v4(224, 0, 0, 5)},
    {PROT_ISIS,         "isis",          0,              0,    NO_GROUP},
    {PROT_BGP,          "bgp",           6,              179,  NO_GROUP},
    {PROT_RIP,          "rip",           17,             520,  v4(224, 0, 0, 9)},
    // Its port field carries the protocol number as well.
    {PROT_VRRP,         "vrrp",          112,            112,  v4(224, 0, 0, 18)},
    {PROT_HSRP,         "hsrp",          17,             1985, v4(224, 0, 0, 2)},
    {PROT_NTP,          "ntp",           17,             123,  v4(224, 0, 1, 1)},
    {PROT_PIMSM,        "pim-sm",        103,            0,    v4(224, 0, 0, 13)},
    {PROT_IGMP,         "igmp",          2,              0,    v4(224, 0, 0, 1)},
    {PROT_FEFD,         "fefd",          0,              0,    NO_GROUP},
    {PROT_IGMPSNOOPING, "igmp-snooping", 2,              0,    v4(224, 0, 0, 1), 3},
    {PROT_OSPF_V3,      "ospfv3",        PROT_RECORD_V6, 0,    v6AllOf(5)},
    {PROT_PIM_V6,       "pim-v6",        PROT_RECORD_V6, 0,    v6AllOf(13)},
    {PROT_MLDSNOOPING,  "mld-snooping",  PROT_RECORD_V6, 0,    v6AllOf(1)},
    {PROT_GVRP,         "gvrp",          0,              0,    NO_GROUP},
};
// clang-format on

const protocolRow* rowOf(uint32_t id) {
    const auto row = std::ranges::find(rows, id, &protocolRow::id);
    return row != std::ranges::end(rows) ? row : nullptr;
}

// The record of a use; the same for its enable and its disable.
toldItem itemOf(const protocolUse& use, bool enable) {
    const protocolRow& row = *rowOf(use.id);
    const bool v6 = row.protocol == PROT_RECORD_V6;
    protRecord record{};
    record.name = listNameMake(v6 ? "v6 Global Acl" : "Global Acl");
    record.ifindex = use.ifindex;
    record.id = use.id;
    for (size_t i = 0; i < 3; i++)
        record.vmac[i] = static_cast<uint32_t>(use.vmac[2 * i] << 8 | use.vmac[2 * i + 1]);
    record.protocol = row.protocol;
    std::ranges::copy(row.group, record.address);
    if (row.group != NO_GROUP)
        std::fill_n(record.mask, v6 ? sizeof record.mask : sizeof(be32), uint8_t{0xFF});
    record.port = row.port;
    record.option = row.option;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return {!enable, std::vector<uint8_t>(bytes, bytes + sizeof record)};
}

uint32_t idOf(const toldItem& item) {
    return wireView<protRecord>(std::span<const uint8_t>(item.bytes))->id;
}

// A message with the record at its place, of one of two types that follow each other.
template <class Message>
std::vector<uint8_t> messageOf(const toldItem& item, uint32_t enableType) {
    std::vector<uint8_t> bytes(sizeof(Message));
    auto* message = wireView<Message>(std::span(bytes));
    message->ipc.length = sizeof(Message);
    message->ipc.mtype = enableType + (item.removes ? 1 : 0);
    std::memcpy(&message->record, item.bytes.data(), sizeof message->record);
    return bytes;
}

}  // namespace

const char* protocolName(uint32_t id) {
    const protocolRow* row = rowOf(id);
    return row != nullptr ? row->name : nullptr;
}

protocolWay protocolWayOf(uint32_t id) {
    return id == PROT_VRRP ? protocolWay::queue : protocolWay::requests;
}

bool protocolApply(const chassisDescription& chassis, std::span<const uint8_t> request,
                   protocolModel* model, toldItems* items, std::string* why) {
    const auto refuse = [why](const std::string& sentence) {
        *why = sentence;
        return false;
    };
    const auto* req = wireView<chassisPlaceReq>(request);
    if (req == nullptr || protocolName(req->argument) == nullptr)
        return refuse("There is no such protocol");
    protocolUse use{req->argument, req->ifindex, {}};
    std::ranges::copy(req->vmac, use.vmac.begin());
    const std::string name = ifmName(chassis, use.ifindex);
    if (!ifmIsInterface(use.ifindex)) return refuse(name + " is no port, LAG or VLAN");
    const bool hasVmac = use.vmac != std::array<uint8_t, 6>{};
    if (hasVmac && use.id != PROT_VRRP && use.id != PROT_HSRP && use.id != PROT_NTP)
        return refuse("Only VRRP, HSRP and NTP have a virtual MAC address");
    const auto known = std::ranges::find(model->enabled, use);
    const bool is = known != model->enabled.end();
    const bool others = std::ranges::any_of(model->enabled, [&use](const protocolUse& u) {
        return u.id == use.id && u.ifindex == use.ifindex && u.vmac != use.vmac;
    });
    if (req->command == CHASSIS_PROTOCOL_ENABLE) {
        if (is) return true;
        // The manager knows a second one by nothing that tells it from the first.
        if (use.id == PROT_NTP && others)
            return refuse("It is enabled on " + name +
                          " with another virtual MAC address: disable that first");
        if (model->enabled.size() >= PROTOCOLS_MAX) return refuse("There are too many protocols");
        // The manager would keep no more, and its queue has no way to say so.
        if (std::ranges::count(model->enabled, use.ifindex, &protocolUse::ifindex) >=
            static_cast<ptrdiff_t>(PROT_RECORDS_MAX))
            return refuse("There are too many protocols on " + name);
        model->enabled.push_back(use);
    } else {
        if (!is)
            return refuse("It is not enabled on " + name +
                          (!others   ? ""
                           : hasVmac ? " with this virtual MAC address"
                                     : " without a virtual MAC address: name it behind vmac"));
        model->enabled.erase(known);
    }
    items->push_back(itemOf(use, req->command == CHASSIS_PROTOCOL_ENABLE));
    return true;
}

void protocolsLeave(uint32_t ifindex, protocolModel* model, toldItems* items) {
    for (const protocolUse& use : model->enabled)
        if (use.ifindex == ifindex) items->push_back(itemOf(use, false));
    std::erase_if(model->enabled, [ifindex](const protocolUse& u) { return u.ifindex == ifindex; });
}

toldItems protocolsWhole(const protocolModel& model, protocolWay way) {
    toldItems items;
    for (const protocolUse& use : model.enabled) {
        if (protocolWayOf(use.id) != way) continue;
        // The manager counts who uses RIP: one that has only stood still is not to count us twice.
        if (use.id == PROT_RIP) items.push_back(itemOf(use, false));
        items.push_back(itemOf(use, true));
    }
    return items;
}

toldItems protocolItems(const toldItems& items, protocolWay way) {
    toldItems mine;
    for (const toldItem& item : items)
        if (protocolWayOf(idOf(item)) == way) mine.push_back(item);
    return mine;
}

std::vector<uint8_t> protocolRequest(std::span<const toldItem> items, size_t* taken) {
    *taken = 1;
    return messageOf<protEnableMsg>(items[0], MT_PROT_FIRST);
}
std::vector<uint8_t> protocolMessage(std::span<const toldItem> items, size_t* taken) {
    *taken = 1;
    return messageOf<protEnableSwpMsg>(items[0], MT_PROT_VRRP_FIRST);
}
