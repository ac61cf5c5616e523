// What the interface manager tells: interfaces, their addresses, the members of VLANs and LAGs; and
// the event of another CAM profile.
//
// An event message is a row of records, each with its service type and its own length. A table says
// what a type needs and what follows from it; joins and leaves are events of follow.cpp. Whatever a
// record says, the walk stays inside the bytes that have come.
#include <bit>
#include <iterator>

#include "download/sendPath.h"
#include "include/ifmMsg.h"
#include "interface/interface.h"
#include "protocol/AclIpAdd.h"
#include "protocol/membership.h"
#include "protocol/zekprotocol.h"
#include "task/follow.h"
#include "task/rows.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// The one index of an interface, under which its record is made. A port's name is looked up when it
// is told for the first time only.
uint32_t indexOf(uint32_t told) {
    return ifindexType(told) == IF_TYPE_PORT && AclIntfTreeFind(told) != nullptr
               ? told
               : aclCanonicalIndex(told);
}
bool isInterface(uint32_t ifindex) {
    return ifindex >= SLOT_COUNT &&
           (ifindexType(ifindex) != IF_TYPE_VLAN || ifindexPort(ifindex) < VLAN_BITS);
}
bool isVlan(uint32_t ifindex) {
    return ifindexType(ifindex) == IF_TYPE_VLAN && isInterface(ifindex);
}

// --- the records of an event message ------------------------------------------------------------

struct svcRecord {
    uint32_t type;
    uint32_t word[8];  // as many as the row says, from offset 4 on; the first is an interface
    std::span<const uint8_t> bytes;  // the whole record
};

struct svcRow {
    codeRange codes;  // ifmSvcType
    const char* name;
    uint32_t minLen;  // bytes, the record's front included
    uint32_t words;
    void (*run)(const svcRecord& record);  // null: nothing follows
};

// Of the seven values only the address says where packets to the router go; the mask is shown.
void aclIfmIpAddAdd(const svcRecord& r) {
    const uint32_t ifindex = indexOf(r.word[0]);
    aclAddIpAddrFromIFM(ifindex, r.word[1]);
    if (aclAddress* address = aclAddressFind(ifindex, aclAddressOf(r.word[1])))
        address->prefixLength = static_cast<uint32_t>(std::popcount(r.word[2]));
}

void ip6(const svcRecord& r) {
    const auto* told = wireView<ifmSvcIp6>(r.bytes);
    const bool kept = r.type == IFM_SVC_DEL_IP6_UNLESS_KEPT && (told->flags & IFM_IP6_KEEP) != 0;
    if (kept || told->prefixLength > 128) return;
    (r.type == IFM_SVC_ADD_IP6 ? aclAddIPV6AddFromIFM : aclDelIPV6AddFromIFM)(
        indexOf(r.word[0]), told->address, told->prefixLength);
}

// The indexes at `at` of the bytes: as many as are said, but no more than there are.
std::span<const be32> indexesAt(std::span<const uint8_t> bytes, size_t at, uint32_t said) {
    const size_t fit = (bytes.size() - at) / sizeof(be32);
    return {reinterpret_cast<const be32*>(bytes.data() + at), std::min<size_t>(said, fit)};
}

void addVlanPorts(const svcRecord& r) {
    for (uint32_t member : indexesAt(r.bytes, sizeof(ifmSvcVlanPorts), r.word[1]))
        vAclAddDelPortToVlan(member, r.word[0], IFM_TYP_ADD_VLAN_PORT);
}
void vlanPort(const svcRecord& r) {
    vAclAddDelPortToVlan(r.word[0], r.word[1], r.type);
}
void groupId(const svcRecord& r) {
    aclIfmAddDelMgid(indexOf(r.word[0]), r.word[1], r.type);
}

// clang-format off
constexpr svcRow svcTable[] = {
    {IFM_SVC_ADD_IF,              "IFM_SVC_ADD_IF",              12, 2, [](const svcRecord& r) { aclIfmAddIf(r.word[0], r.word[1]); }},
    {IFM_SVC_DEL_IF,              "IFM_SVC_DEL_IF",               8, 1, [](const svcRecord& r) { aclIfmDelIf(r.word[0]); }},
    {IFM_SVC_PORT_MODE,           "IFM_SVC_PORT_MODE",           12, 2, [](const svcRecord& r) { aclSetPortMode(r.word[0], r.word[1]); }},
    {IFM_SVC_ADD_IP,              "IFM_SVC_ADD_IP",              36, 8, aclIfmIpAddAdd},
    {IFM_SVC_DEL_IP,              "IFM_SVC_DEL_IP",              12, 2, [](const svcRecord& r) { aclDelIpAddrFromIFM(indexOf(r.word[0]), r.word[1]); }},
    {IFM_SVC_IGNORED,             "IFM_SVC_IGNORED",              8, 0, nullptr},
    {IFM_SVC_DEL_IP6,             "IFM_SVC_DEL_IP6",             64, 1, ip6},
    {IFM_SVC_ADD_IP6,             "IFM_SVC_ADD_IP6",             64, 1, ip6},
    {IFM_SVC_DEL_IP6_UNLESS_KEPT, "IFM_SVC_DEL_IP6_UNLESS_KEPT", 64, 1, ip6},
    {IFM_TYP_ADD_VLAN_PORT,       "IFM_TYP_ADD_VLAN_PORT",       12, 2, vlanPort},
    {IFM_TYP_DEL_VLAN_PORT,       "IFM_TYP_DEL_VLAN_PORT",       12, 2, vlanPort},
    {IFM_SVC_ADD_VLAN_PORTS,      "IFM_SVC_ADD_VLAN_PORTS",      12, 2, addVlanPorts},
    {IFM_SVC_VLAN_PORT_OTHER,     "IFM_SVC_VLAN_PORT_OTHER",     12, 2, vlanPort},
    {IFM_SVC_ADD_LAG_PORT,        "IFM_SVC_ADD_LAG_PORT",        12, 2, [](const svcRecord& r) { iAclAddLagPorts(r.word[0], r.word[1]); }},
    {IFM_SVC_DEL_LAG_PORT,        "IFM_SVC_DEL_LAG_PORT",        12, 2, [](const svcRecord& r) { iAclDelLagPorts(r.word[0], r.word[1]); }},
    {IFM_SVC_ADD_VLAN_MGID,       "IFM_SVC_ADD_VLAN_MGID",       20, 4, groupId},
    {IFM_SVC_DEL_VLAN_MGID,       "IFM_SVC_DEL_VLAN_MGID",       20, 4, groupId},
    {IFM_SVC_ADD_LAG_MGID,        "IFM_SVC_ADD_LAG_MGID",        20, 4, groupId},
    {IFM_SVC_DEL_LAG_MGID,        "IFM_SVC_DEL_LAG_MGID",        20, 4, groupId},
};
// clang-format on
static_assert(rowsAreSorted(svcTable));
static_assert(std::ranges::all_of(svcTable, [](const svcRow& row) {
    return row.words <= std::size(svcRecord{}.word) &&
           row.minLen >= sizeof(ifmSvcHdr) + row.words * sizeof(be32);
}));
constexpr size_t SVC_MIN = 8;  // no record is shorter

// One record, of the length that it says. False when it says what cannot be.
bool handleRecord(std::span<const uint8_t> bytes) {
    const uint32_t type = wireView<ifmSvcHdr>(bytes)->type;
    const svcRow* row = rowOf(svcTable, type);
    if (row == nullptr) {
        aclDebug(DEBUG_ACL_GENERAL, "%s %d: Unknown svc type from ifm %s\r\n", __func__, __LINE__,
                 ifmSvcTypeToStr(type).c_str());
        return true;
    }
    if (row->run == nullptr) return true;
    svcRecord record{type, {}, bytes};
    if (bytes.size() >= row->minLen)
        for (uint32_t i = 0; i < row->words; i++)
            record.word[i] = *wireView<be32>(bytes, sizeof(ifmSvcHdr) + i * sizeof(be32));
    // (Of a record that is too short the words are 0, which is no interface.)
    if (!isInterface(record.word[0])) {
        aclDebug(DEBUG_ACL_GENERAL, "%s of %d bytes about %#x is left out\r\n", row->name,
                 static_cast<int>(bytes.size()), record.word[0]);
        return false;
    }
    row->run(record);
    // A list of members that is shorter than it says has been taken as far as it goes.
    return type != IFM_SVC_ADD_VLAN_PORTS ||
           record.word[1] <= (bytes.size() - sizeof(ifmSvcVlanPorts)) / sizeof(be32);
}

}  // namespace

std::string ifmSvcTypeToStr(uint32_t type) {
    const svcRow* row = rowOf(svcTable, type);
    return row != nullptr ? row->name : std::to_string(type);
}

bool aclHandleIFMNotifMsg(std::span<const uint8_t> message) {
    const auto* front = wireView<ifmEventMsg>(message);
    if (front == nullptr) return false;
    aclDebug(DEBUG_ACL_GENERAL, "%s %d: tlv msg from IFM: numArr: %d\r\n", __func__, __LINE__,
             static_cast<int>(uint32_t{front->count}));
    if (front->count == 0) aclPlacesTold();  // an empty one says that everything has been told
    aclLockHeld<aclLock::write> held;
    bool good = true;
    size_t at = sizeof *front;
    for (uint32_t left = front->count; left > 0; left--) {
        const auto* hdr = wireView<ifmSvcHdr>(message, at);
        const size_t length = hdr != nullptr ? size_t{hdr->length} : 0;
        // Behind a length that cannot be, nothing tells where the next record begins.
        if (length < SVC_MIN || length > message.size() - at) return false;
        good = handleRecord(message.subspan(at, length)) && good;
        at += length;
    }
    return good;
}

// --- interfaces ---------------------------------------------------------------------------------

void aclIfmAddIf(uint32_t told, uint32_t value) {
    const uint32_t ifindex = indexOf(told);
    if (!isVlan(ifindex)) return;
    aclVlan* vlan = aclVlanObtain(ifindex);
    if (vlan == nullptr) return;
    vlan->state = value | (aclNode->chassis.chassisMode < 2 ? 0xF000u : 0xE000u);
    // DHCP snooping of the VLAN stands here when it is built.
    aclAddDelVlanMemNotifToAclAgent(0, ifindexPort(ifindex));
}

void aclIfmDelIf(uint32_t ifindex) {
    if (ifindexType(ifindex) == IF_TYPE_LAG) return iAclDelLag(ifindex);
    if (ifindexType(ifindex) == IF_TYPE_VLAN) return aclDeleteVlan(ifindex);
    aclFollowPortGone(ifindex);
}

void iAclDelLag(uint32_t lag) {
    aclFollowLagGone(lag);
}
void aclDeleteVlan(uint32_t vlan) {
    aclFollowVlanGone(vlan);
}

void aclSetPortMode(uint32_t told, uint32_t mode) {
    const uint32_t ifindex = indexOf(told);
    aclPlaceUse* use = aclPlaceUseObtain(ifindex);
    if (use == nullptr || use->mode == mode) return;
    use->mode = mode;
    aclProtocolModeChanged(ifindex);
}

// --- members ------------------------------------------------------------------------------------

void vAclAddDelPortToVlan(uint32_t member, uint32_t vlan, uint32_t type) {
    const int id = static_cast<int>(ifindexPort(vlan));
    if (type == IFM_TYP_ADD_VLAN_PORT) {
        aclDebug(DEBUG_ACL_GENERAL, "IFM_TYP_ADD_VLAN_PORT msd for Vlan %d member %s\r\n", id,
                 agentIfName(member).text);
        const int result = aclFollowVlanJoined(vlan, member);
        if (result == 1) aclDebug(DEBUG_ACL_GENERAL, "Duplicate IFM_SVC_ADD_VLAN_PORT msg\r\n");
        if (result < 0)
            aclDebug(DEBUG_ACL_GENERAL, "%s cannot be a member of Vlan %d\r\n",
                     agentIfName(member).text, id);
    } else if (type == IFM_TYP_DEL_VLAN_PORT) {
        aclDebug(DEBUG_ACL_GENERAL, "IFM_TYP_DEL_VLAN_PORT msd for Vlan %d member %s\r\n", id,
                 agentIfName(member).text);
        (void)aclFollowVlanLeft(vlan, member);
    }
}

void iAclAddLagPorts(uint32_t lag, uint32_t port) {
    if (aclFollowLagJoined(lag, port) < 0)
        aclDebug(DEBUG_ACL_GENERAL, "%s cannot be a member of LAG %d\r\n", agentIfName(port).text,
                 static_cast<int>(ifindexPort(lag)));
}
void iAclDelLagPorts(uint32_t lag, uint32_t port) {
    (void)aclFollowLagLeft(lag, port);
}

bool vAclDelMultiplePort(std::span<const uint8_t> message) {
    const auto* front = wireView<ifmListMsg>(message);
    if (front == nullptr) return false;
    const auto ports = indexesAt(message, sizeof *front, front->count);
    for (uint32_t port : ports) vAclAddDelPortToVlan(port, front->ifindex, IFM_TYP_DEL_VLAN_PORT);
    return ports.size() == front->count;
}

bool vAclSetPortVlans(std::span<const uint8_t> message) {
    const auto* front = wireView<ifmListMsg>(message);
    if (front == nullptr) return false;
    const uint32_t port = indexOf(front->ifindex);
    const auto vlans = indexesAt(message, sizeof *front, front->count);
    // The port leaves what is not said, so a list that is not whole says nothing.
    if (!isInterface(port) || vlans.size() != front->count ||
        !std::ranges::all_of(vlans, [](uint32_t vlan) { return isVlan(vlan); }))
        return false;
    vlanBits leaves{}, joins{};
    if (const aclIntf* intf = AclIntfTreeFind(port)) leaves = *intf->vlans;
    for (uint32_t vlan : vlans) {
        const uint32_t id = ifindexPort(vlan);
        // What it is a member of already is neither.
        if (!vlanBitTest(&leaves, id)) vlanBitSet(&joins, id, true);
        vlanBitSet(&leaves, id, false);
    }
    aclForVlans(leaves,
                [port](uint32_t vlan) { vAclAddDelPortToVlan(port, vlan, IFM_TYP_DEL_VLAN_PORT); });
    aclForVlans(joins,
                [port](uint32_t vlan) { vAclAddDelPortToVlan(port, vlan, IFM_TYP_ADD_VLAN_PORT); });
    return true;
}

// --- the CAM profile ----------------------------------------------------------------------------

void aclHandleCamPrfChgNotif(uint32_t profile, uint32_t microcode) {
    constexpr uint32_t groupProfile = 7, groupMicrocode = 4;
    aclNode->chassis.camProfile = profile;
    if (profile == groupProfile && microcode == groupMicrocode)
        aclDebug(DEBUG_ACL_GENERAL, "Cam profile changed to Acl Vlan Group\r\n");
    else if (aclNode->groups.isAclVlanGrp != 0)
        aclSysErr(SYSERR_VLAN_GROUP, "%s", "won't be applied on the linecard");
    (void)aclSendUpdateToPeer(PEER_UPDATE_KINDS - 1);
}
