// The protocols of the control plane, one row each, and the templates of their entries.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "protocol/zekprotocol.h"

namespace {

using enum aclCarriedMac;

constexpr macAddress ospf[] = {{0x01, 0x00, 0x5E, 0x00, 0x00, 0x05},
                               {0x01, 0x00, 0x5E, 0x00, 0x00, 0x06}};
constexpr macAddress ospf6[] = {{0x33, 0x33, 0x00, 0x00, 0x00, 0x05},
                                {0x33, 0x33, 0x00, 0x00, 0x00, 0x06}};
// Five messages for four addresses, the last one twice: meant.
constexpr macAddress isis[] = {{0x09, 0x00, 0x2B, 0x00, 0x00, 0x04},
                               {0x09, 0x00, 0x2B, 0x00, 0x00, 0x05},
                               {0x01, 0x80, 0xC2, 0x00, 0x00, 0x14},
                               {0x01, 0x80, 0xC2, 0x00, 0x00, 0x15},
                               {0x01, 0x80, 0xC2, 0x00, 0x00, 0x15}};
constexpr macAddress rip[] = {{0x01, 0x00, 0x5E, 0x00, 0x00, 0x09}};
constexpr macAddress vrrp[] = {{0x01, 0x00, 0x5E, 0x00, 0x00, 0x12}};
constexpr macAddress hsrp[] = {{0x01, 0x00, 0x5E, 0x00, 0x00, 0x02}};
constexpr macAddress ntp[] = {{0x01, 0x00, 0x5E, 0x00, 0x01, 0x01}};
constexpr macAddress multicast[] = {{0x01, 0x00, 0x5E, 0x00, 0x00, 0x00}};
constexpr macAddress multicast6[] = {{0x33, 0x33, 0x00, 0x00, 0x00, 0x00}};
constexpr macAddress fefd[] = {{0x01, 0x00, 0x0C, 0xCC, 0xCC, 0xCC}};
// No address of its own: the agents are told all the same.
constexpr macAddress zeros[] = {{}};
constexpr std::span<const macAddress> untold;

constexpr bool ENTRY = true, NO_ENTRY = false;
// clang-format off
constexpr aclProtocolRow rows[] = {
    {PROT_OSPF,         " OSPF ",            "ospf",          2, ENTRY,     5, ospf,       ignored},
    {PROT_ISIS,         " ISIS ",            "isis",          2, NO_ENTRY,  3, isis,       ignored},
    {PROT_BGP,          " BGP ",             "bgp",           2, ENTRY,     1, zeros,      ignored},
    {PROT_RIP,          " RIP ",             "rip",           2, NO_ENTRY,  0, rip,        ignored},
    {PROT_VRRP,         " VRRP ",            "vrrp",          4, NO_ENTRY,  2, vrrp,       router},
    {PROT_HSRP,         " HSRP ",            "hsrp",          4, NO_ENTRY,  6, hsrp,       router},
    {PROT_NTP,          " NTP ",             "ntp",           1, ENTRY,    15, ntp,        instead},
    {PROT_PIMSM,        " PIMSM ",           "pim-sm",        4, NO_ENTRY,  3, multicast,  ignored},
    {PROT_IGMP,         " IGMP ",            "igmp",          4, NO_ENTRY,  8, multicast,  ignored},
    {PROT_FEFD,         " FEFD ",            "fefd",          1, NO_ENTRY,  3, fefd,       ignored},
    {PROT_IGMPSNOOPING, " IGMPSNOOPING ",    "igmp-snooping", 1, ENTRY,    11, untold,     ignored},
    {PROT_OSPF_V3,      " OSPF_V3 ",         "ospfv3",        2, ENTRY,     5, ospf6,      ignored},
    {PROT_PIM_V6,       " PIM_V6 ",          "pim-v6",        4, ENTRY,    16, multicast6, ignored},
    {PROT_MLDSNOOPING,  " MLDSNOOPING ",     "mld-snooping",  1, ENTRY,    17, untold,     ignored},
    {PROT_GVRP,         " GVRP ",            "gvrp",          1, ENTRY,    10, zeros,      ignored},
    {0,                 " UNKNOWN_PROTOCOL", "unknown",       1, ENTRY,    10, zeros,      ignored},
};
// clang-format on

// What an entry matches. Only TCP's and UDP's ports are compared, others are carried.
struct entryTemplate {
    uint8_t protocol;
    uint16_t port;
    uint32_t option = 0;
    bool vlan = false;  // the id of the VLAN that the place is
};
constexpr entryTemplate any{IP_PROTO_ANY, 0};
constexpr entryTemplate templates[] = {
    {IP_PROTO_UDP, 520},
    {IP_PROTO_TCP, 179},
    {112, 112},  // the ports carry the protocol's number: meant
    any,
    any,
    {89, 0},
    {IP_PROTO_UDP, 1985},
    {IP_PROTO_TCP, 0},
    {2, 0},
    any,
    {0, 0},
    {2, 0, 3, true},
    any,
    any,
    {IP_PROTO_TCP, 0},
    // ours, for protocols whose records do not say theirs
    {IP_PROTO_UDP, 123},
    {103, 0},
    {IP_PROTO_ICMP6, 0},
};

}  // namespace

std::span<const aclProtocolRow> aclProtocols() {
    return rows;
}
const aclProtocolRow& aclProtocolOf(uint32_t id) {
    const auto* last = std::prev(std::end(rows));
    return *std::find_if(rows, last, [id](const aclProtocolRow& row) { return row.id == id; });
}

namespace {

// 16 bits in the low half of each word; what stands in the high halves is not read.
std::optional<macAddress> carriedMac(const protRecord& record) {
    macAddress mac;
    for (size_t i = 0; i < std::size(record.vmac); i++) {
        mac[2 * i] = static_cast<uint8_t>(record.vmac[i] >> 8);
        mac[2 * i + 1] = static_cast<uint8_t>(record.vmac[i]);
    }
    return mac == macAddress{} ? std::nullopt : std::optional(mac);
}

}  // namespace

std::optional<macAddress> aclVirtualMac(const protRecord& record) {
    return aclProtocolOf(record.id).carried == router ? carriedMac(record) : std::nullopt;
}

std::span<const macAddress> aclSetMacAddrFromProt(const protRecord& record, macAddress* carried) {
    const aclProtocolRow& row = aclProtocolOf(record.id);
    const auto given = row.carried != ignored ? carriedMac(record) : std::nullopt;
    if (!given) return row.traps;
    *carried = *given;
    return {carried, 1};
}

void aclSetEntryPort(ipEntryBlock* block, uint16_t port) {
    const bool compared = block->protocol == IP_PROTO_TCP || block->protocol == IP_PROTO_UDP;
    block->dstLow = block->dstHigh = port;
    block->dstOperator = compared && port != 0 ? PORT_EQ : PORT_NONE;
}

ipEntryBlock aclGetProtAcclistFromId(uint32_t index, uint32_t place) {
    const entryTemplate& t = index < std::size(templates) ? templates[index] : any;
    ipEntryBlock b{};
    b.kind = IP_KIND_EXTENDED;
    b.action = IP_PERMIT;
    b.seq = SEQ_NOT_GIVEN;
    b.order = ORDER_NOT_GIVEN;
    b.precedence = b.tos = FIELD_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    b.protocol = t.protocol;
    aclSetEntryPort(&b, t.port);
    b.reserved40 = t.option;
    if (t.vlan && ifindexType(place) == IF_TYPE_VLAN) b.vlan = ifindexPort(place);
    return b;
}
