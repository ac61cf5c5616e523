// What a membership costs without a list that follows it: event messages of the interface manager,
// from the dispatcher on, that fill VLANs with 48 members each and empty them again. The reference
// keeps the same memberships in maps of the standard library. Then a port that joins a VLAN of 48
// members with four lists, beside those lists sent to its card alone.
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "bench/measure.h"
#include "download/zekacl_download.h"
#include "include/ifmMsg.h"
#include "include/service.h"
#include "interface/interface.h"
#include "platform/api/zekMem.h"
#include "platform/test/record.h"
#include "task/follow.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

constexpr uint32_t OWN_CARD = 0x7F010001;
constexpr uint32_t PORTS = 48;

void start() {
    testReset();
    zek_memPartFree(POOL_FIXED);  // the start makes the pools itself
    zek_memPartFree(POOL_FIXED + 1);
    for (uint32_t app : {APP_ACL, APP_IFM, APP_RTM, APP_DSMGR})
        testHost.addresses[{app, 0}] = OWN_CARD;
    if (AclInitialize(0, nullptr) == nullptr || AspathAclInitialize() == nullptr) std::abort();
    AclGetChassMode(aclNode->ipc.pkey);
    if (SysListRegistration(0) != 0) std::abort();
}

// Twelve ports on each of four cards.
uint32_t portOf(uint32_t i) {
    return (i / 12 + 2) << 25 | (i % 12 + 1) << 18;
}
uint32_t vlanOf(uint32_t membership) {
    return ifindexMake(IF_TYPE_VLAN, 1 + membership / PORTS);
}

typedef std::vector<uint8_t> bytes;
void put(bytes* to, uint32_t word) {
    for (int shift : {24, 16, 8, 0}) to->push_back(static_cast<uint8_t>(word >> shift));
}
// A record of one type for each membership; type 43 takes a whole VLAN in one.
bytes recordOf(uint32_t type, uint32_t first, uint32_t end) {
    const bool many = type == IFM_SVC_ADD_VLAN_PORTS;
    bytes record;
    put(&record, type << 16 | (many ? 12 + 4 * (end - first) : 12));
    put(&record, many ? vlanOf(first) : portOf(first % PORTS));
    put(&record, many ? end - first : vlanOf(first));
    for (uint32_t m = first; many && m < end; m++) put(&record, portOf(m % PORTS));
    return record;
}
// All of them, as many to a message as it holds.
std::vector<bytes> messagesOf(uint32_t type, uint32_t memberships) {
    std::vector<bytes> messages;
    const uint32_t step = type == IFM_SVC_ADD_VLAN_PORTS ? PORTS : 1;
    for (uint32_t m = 0; m < memberships; m += step) {
        const bytes record = recordOf(type, m, std::min(m + step, memberships));
        if (messages.empty() || messages.back().size() + record.size() > IPC_BUFFER_SIZE)
            messages.push_back(bytes(sizeof(ifmEventMsg)));
        bytes& message = messages.back();
        message.insert(message.end(), record.begin(), record.end());
        auto* front = reinterpret_cast<ifmEventMsg*>(message.data());
        front->ipc.mtype = MT_IFM_EVT_NOTIF;
        front->ipc.length = static_cast<uint32_t>(message.size());
        front->count = front->count + 1;
    }
    return messages;
}
double deliver(const std::vector<bytes>& messages) {
    alignas(8) static uint8_t received[IPC_BUFFER_SIZE];
    const double begin = benchCpuNow();
    for (const bytes& message : messages) {
        std::memcpy(received, message.data(), message.size());
        aclTakeMessage(aclNode, received, message.size());
    }
    return benchCpuNow() - begin;
}
uint32_t membershipsNow() {
    uint32_t count = 0;
    for (const aclVlan* vlan = aclVlanTreeFindFirst(); vlan != nullptr;
         vlan = aclVlanTreeFindNext(vlan->ifindex))
        for (const aclVlanMember* m = aclVlanInfoTreeFindFirst(vlan); m != nullptr;
             m = aclVlanInfoTreeFindNext(vlan, m->ifindex))
            count++;
    return count;
}
void forget() {
    aclLockHeld<aclLock::write> held;
    while (const aclVlan* vlan = aclVlanTreeFindFirst()) aclFollowVlanGone(vlan->ifindex);
    while (const aclIntf* intf = AclIntfTreeFindFirst()) aclFollowPortGone(intf->ifindex);
    testTake();
}

double reference(uint32_t memberships) {
    const double begin = benchCpuNow();
    std::map<uint32_t, std::set<uint32_t>> vlans, ports;
    for (uint32_t m = 0; m < memberships; m++) {
        vlans[vlanOf(m)].insert(portOf(m % PORTS));
        ports[portOf(m % PORTS)].insert(vlanOf(m));
    }
    return (benchCpuNow() - begin) * 1e6 / memberships;
}
// Microseconds a membership, the median of some rounds.
double joins(uint32_t type, uint32_t memberships, double* leaves, double* plain) {
    const auto in = messagesOf(type, memberships);
    const auto out = messagesOf(IFM_TYP_DEL_VLAN_PORT, memberships);
    std::vector<double> joined, left, references;
    for (uint32_t round = 0; round < std::max(3u, 20000 / memberships); round++) {
        references.push_back(reference(memberships));
        joined.push_back(deliver(in));
        if (membershipsNow() != memberships) std::abort();
        left.push_back(deliver(out));
        if (membershipsNow() != 0) std::abort();
        forget();
    }
    *plain = benchMedian(references);
    *leaves = benchMedian(left) * 1e6 / memberships;
    return benchMedian(joined) * 1e6 / memberships;
}
// --- a member of a VLAN with lists ---------------------------------------------------------------

constexpr uint32_t ENTRIES = 1000;

template <class Block>
Block blockTo(uint32_t number) {
    Block block{};
    block.seq = number + 1;
    block.protocol = IP_PROTO_TCP;
    block.dstOperator = PORT_EQ;
    block.dstLow = static_cast<uint16_t>(number);
    if constexpr (std::is_same_v<Block, ipEntryBlock>) {
        block.kind = IP_KIND_EXTENDED;
        block.order = ORDER_NOT_GIVEN;
    }
    return block;
}
void bindAll(uint32_t vlan) {
    bindingBlock none{};
    for (uint32_t direction : {INTF_IN, INTF_OUT}) {
        const listName name = listNameMake(direction == INTF_IN ? "IN" : "OUT");
        aclBindRequest request{};
        request.ifindex = vlan;
        request.direction = direction;
        request.block = &none;
        uint32_t status = ipAccessListCreateExt(name, IP_KIND_EXTENDED, 0, 0) |
                          ipAccessListCreateExt(name, IP_KIND_EXTENDED, 0, 1);
        for (uint32_t i = 0; i < ENTRIES; i++) {
            auto block = blockTo<ipEntryBlock>(i);
            auto block6 = blockTo<ip6EntryBlock>(i);
            status |=
                ipAddAccessEntry(name, &block, 0, 0) | aclV6AddAccessEntry(name, &block6, 0, 0);
        }
        status |= aclIpApplyIntf(name, request) | aclV6ApplyIntf(name, request);
        if (status != ACL_OK) std::abort();
    }
}
void putCardsUp() {
    for (uint32_t slot = 1; slot <= 4; slot++) {
        aclLinecard& card = aclLinecardInfo[slot];
        card.isUp = card.isVortan = card.isIpv6Enabled = 1;
        card.agentIpAddr = OWN_CARD + slot;
        if (iAclSwpQueueCreate(slot, QUEUE_ACL_AGENT) != 0) std::abort();
    }
}
// Messages since the last call, all of them to one card.
size_t sentTo(uint32_t slot) {
    size_t count = 0;
    for (const testRow& row : testTakeRows()) {
        if (!row.text.starts_with("swp ")) continue;
        count++;
        if (reinterpret_cast<const ipcHdr*>(row.bytes.data())->source.slot != slot) std::abort();
    }
    return count;
}
void joinsWithLists() {
    putCardsUp();
    bindAll(vlanOf(0));
    (void)deliver(messagesOf(IFM_TYP_ADD_VLAN_PORT, PORTS));
    testTake();
    const uint32_t card = 1;
    const auto in = messagesOf(IFM_TYP_ADD_VLAN_PORT, 1),
               out = messagesOf(IFM_TYP_DEL_VLAN_PORT, 1);
    std::vector<double> joined, alone;
    size_t messages = 0;
    for (int round = 0; round < 31; round++) {
        (void)deliver(out);
        testTake();
        joined.push_back(deliver(in));
        messages = sentTo(card);
        const aclIntf& vlan = *AclIntfTreeFind(vlanOf(0));
        const double begin = benchCpuNow();
        for (uint32_t family : {INTF_V4, INTF_V6})
            for (uint32_t direction : {INTF_IN, INTF_OUT}) {
                const aclList* list = vlan.lists[family][direction];
                const uint32_t ids[][2] = {{MT_ACL_ADDLIST, MT_ACL_EGR_ADDLIST},
                                           {MT_ACL_V6_ADDLIST, MT_ACL_V6_EGR_ADDLIST}};
                (void)iAclSendToAclAgent({card, SLOT_NONE, 0, vlanOf(0)},
                                         {ids[family][direction], list});
            }
        alone.push_back(benchCpuNow() - begin);
        if (sentTo(card) != messages) std::abort();
    }
    benchOut("join with four lists of 1,000", benchMedian(joined) * 1e6, "us");
    benchOut("the four lists alone, messages", static_cast<double>(messages), "");
    benchRatio("join with four lists, to the lists alone", benchMedian(joined) / benchMedian(alone),
               1.3);
}

}  // namespace

int main() {
    start();
    constexpr uint32_t all = 4094 * PORTS;
    for (uint32_t type : {uint32_t{IFM_TYP_ADD_VLAN_PORT}, uint32_t{IFM_SVC_ADD_VLAN_PORTS}}) {
        double join = 0, smallest = 0;
        for (uint32_t memberships : {1000u, 10000u, 100000u, all}) {
            const std::string tail = "." + std::to_string(type) + "." + std::to_string(memberships);
            double leave = 0, plain = 0;
            join = joins(type, memberships, &leave, &plain);
            benchOut("join" + tail, join, "us");
            if (type == IFM_TYP_ADD_VLAN_PORT) benchOut("leave" + tail, leave, "us");
            benchOut("ref.join" + tail, plain, "us");
            if (smallest == 0) smallest = join;
            benchRatio("join" + tail + ", to 1000", join / smallest, 1.5);
        }
        benchRatio("join." + std::to_string(type) + ", to 3 us", join / 3, 1);
    }
    joinsWithLists();
    return 0;
}
