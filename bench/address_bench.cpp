// What the router's own addresses cost with twelve cards: adds, repetitions, removals, and a card's
// replay beside the bytes alone. Sending ends where a message would go into its queue; the ratio
// counts for both what the messages cost as datagrams. Pin it to one core: taskset -c 0
// address_bench
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "bench/measure.h"
#include "common/linecard.h"
#include "common/node.h"
#include "include/agentMsg.h"
#include "include/status.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"
#include "protocol/AclIpAdd.h"

namespace {

constexpr uint32_t poolClasses[] = {32,  44,  56,  92,  136,  156,  168,  176,
                                    184, 192, 208, 784, 1368, 2048, 4096, 8492};
constexpr uint32_t CARDS = 12, INTERFACES = 100, ENTRIES = 10;
const listName GLOBAL = listNameMake("Global Acl");

void start() {
    static aclNodeRecord node{};
    aclNode = &node;
    if (zek_memPartVarInit(1, poolClasses, std::size(poolClasses)) != 0) std::abort();
    for (auto tree : {&aclTrees::aclSys_tree, &aclTrees::acl_intf_tree, &aclTrees::vlan_intf_tree})
        node.trees.*tree = zekRadixCreate("bench", 32);
    uint32_t status = 0;
    (void)ipSysAccessListCreate(GLOBAL, IP_KIND_EXTENDED, 0, IFINDEX_CP, &status);
    for (uint32_t slot = 0; slot <= CARDS; slot++) {
        aclLinecardInfo[slot].isUp = 1;
        aclLinecardInfo[slot].type = 3;
        aclLinecardInfo[slot].aclAgent = 1;
        aclLinecardInfo[slot].agentIpAddr = 0x7F010100 + slot;
    }
    for (uint32_t slot = CARDS + 1; slot < SLOT_COUNT; slot++)
        aclLinecardInfo[slot].agentIpAddr = 0xFFFFFFFF;
}

uint32_t interfaceOf(uint32_t i) {
    return (i % INTERFACES / 12 + 2) << 25 | (i % 12 + 1) << 18;
}
// Seconds for all of them.
double each(uint32_t addresses, void (*run)(uint32_t ifindex, uint32_t address)) {
    const double begin = benchCpuNow();
    for (uint32_t i = 0; i < addresses; i++) run(interfaceOf(i), 0x0A000000 + i);
    return benchCpuNow() - begin;
}

constexpr size_t REPLAY_MESSAGE =
    sizeof(agentHdr) + sizeof(agentListHdr) + AGENT_CHUNK_ENTRIES * sizeof(agentEntry);
// The messages of a replay through a datagram socket and out of it again.
double transport(uint32_t entries) {
    int pair[2], size = 4 << 20;
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, pair) != 0) std::abort();
    for (int s : pair) setsockopt(s, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    std::vector<uint8_t> message(REPLAY_MESSAGE);
    const double begin = benchCpuNow();
    for (uint32_t at = 0; at < entries; at += AGENT_CHUNK_ENTRIES)
        if (send(pair[0], message.data(), message.size(), 0) < 0 ||
            recv(pair[1], message.data(), message.size(), 0) < 0)
            std::abort();
    const double seconds = benchCpuNow() - begin;
    for (int s : pair) close(s);
    return seconds;
}

// The bytes of a replay alone: chained records into messages of as many entries as they take.
struct record {
    record* next;
    uint8_t block[156];
    uint32_t words[4];
};
record* recordsOf(uint32_t count) {
    record *head = nullptr, **tail = &head;
    for (; count > 0; count--, tail = &(*tail)->next)
        *tail = static_cast<record*>(std::calloc(1, sizeof(record)));
    return head;
}
double bytesAlone(const record* head) {
    const double begin = benchCpuNow();
    for (const record* r = head; r != nullptr;) {
        auto* message = static_cast<uint8_t*>(zekMC_M_memBlockVarAlloc(18, ZEK_MEM_FLAGS, 8192));
        size_t used = sizeof(agentHdr) + sizeof(agentListHdr);
        std::memset(message, 0, used);
        for (size_t k = 0; k < AGENT_CHUNK_ENTRIES && r != nullptr; k++, r = r->next) {
            uint8_t* e = message + used;
            std::memset(e, 0, sizeof(agentEntry));
            std::memcpy(e + 4, r->block + 64, 4);
            std::memcpy(e + 56, r->block + 24, 40);
            std::memcpy(e + 136, r->block + 44, 56);
            std::memcpy(e + 204, e + 56, 144);
            used += sizeof(agentEntry);
        }
        zekMC_M_memBlockVarFree(message);
    }
    return benchCpuNow() - begin;
}

struct figures {
    double add, repeat, replay, reference, transport, remove, source;
};
figures measure(uint32_t addresses) {
    record* records = recordsOf(ENTRIES * addresses);
    std::vector<double> add, repeat, replay, reference, sent, remove, source;
    for (int round = 0; round < 7; round++) {
        add.push_back(each(addresses, aclAddIpAddrFromIFM) * 1e6 / addresses);
        if (ipSysAccessListFind(GLOBAL)->count != static_cast<int32_t>(ENTRIES * addresses))
            std::abort();
        repeat.push_back(each(addresses, aclAddIpAddrFromIFM) * 1e6 / addresses);
        double begin = benchCpuNow();
        aclSendGlobalAclToNewLineCard(3);
        replay.push_back((benchCpuNow() - begin) * 1e9 / (ENTRIES * addresses));
        reference.push_back(bytesAlone(records) * 1e9 / (ENTRIES * addresses));
        sent.push_back(transport(ENTRIES * addresses) * 1e9 / (ENTRIES * addresses));
        begin = benchCpuNow();
        if (aclAgentSourceAddress() != 0x0A000000) std::abort();
        source.push_back((benchCpuNow() - begin) * 1e9 / addresses);
        remove.push_back(each(addresses, aclDelIpAddrFromIFM) * 1e6 / addresses);
        if (ipSysAccessListFind(GLOBAL)->count != 0) std::abort();
    }
    while (record* r = records) {
        records = r->next;
        std::free(r);
    }
    return {benchMedian(add),  benchMedian(repeat), benchMedian(replay), benchMedian(reference),
            benchMedian(sent), benchMedian(remove), benchMedian(source)};
}

// An address on each VLAN, and all VLANs on the same 48 ports: microseconds an address, a replay's
// for a port's entry.
struct trunkFigures {
    double add, remove, replay;
};
trunkFigures trunks(uint32_t vlans) {
    constexpr uint32_t PORTS = 48;
    auto vlanOf = [](uint32_t i) { return ifindexMake(IF_TYPE_VLAN, 1 + i); };
    for (uint32_t i = 0; i < vlans; i++)
        for (uint32_t port = 0; port < PORTS; port++)
            if (aclVlanMemberAdd(vlanOf(i), interfaceOf(port)) < 0) std::abort();
    std::vector<double> add, remove, replay;
    for (int round = 0; round < 3; round++) {
        double begin = benchCpuNow();
        for (uint32_t i = 0; i < vlans; i++) aclAddIpAddrFromIFM(vlanOf(i), 0x0B000000 + i);
        add.push_back((benchCpuNow() - begin) * 1e6 / vlans);
        begin = benchCpuNow();
        aclReplayPortEntries(3);
        replay.push_back((benchCpuNow() - begin) * 1e9 / (12 * ENTRIES * vlans));
        begin = benchCpuNow();
        for (uint32_t i = 0; i < vlans; i++) aclDelIpAddrFromIFM(vlanOf(i), 0x0B000000 + i);
        remove.push_back((benchCpuNow() - begin) * 1e6 / vlans);
    }
    return {benchMedian(add), benchMedian(remove), benchMedian(replay)};
}

}  // namespace

int main() {
    start();
    figures first{};
    for (uint32_t addresses : {1000u, 10000u}) {
        const figures f = measure(addresses);
        if (first.add == 0) first = f;
        const std::string tail = "." + std::to_string(addresses);
        benchOut("add" + tail, f.add, "us");
        benchOut("repeat" + tail, f.repeat, "us");
        benchOut("remove" + tail, f.remove, "us");
        benchOut("replay, an entry" + tail, f.replay, "ns");
        benchOut("ref.replay, an entry" + tail, f.reference, "ns");
        benchOut("ref.datagrams, an entry" + tail, f.transport, "ns");
        benchOut("source address, an address" + tail, f.source, "ns");
        benchRatio("replay to the bytes alone" + tail,
                   (f.replay + f.transport) / (f.reference + f.transport), 1.5);
        benchRatio("add, to 1000" + tail, f.add / first.add, 1.5);
        benchRatio("remove, to 1000" + tail, f.remove / first.remove, 1.5);
    }
    trunkFigures few{};
    for (uint32_t vlans : {100u, 1000u}) {
        const trunkFigures f = trunks(vlans);
        if (few.add == 0) few = f;
        const std::string tail = "." + std::to_string(vlans);
        benchOut("VLANs with 48 ports: add" + tail, f.add, "us");
        benchOut("VLANs with 48 ports: remove" + tail, f.remove, "us");
        benchOut("VLANs with 48 ports: replay, an entry" + tail, f.replay, "ns");
        // Whoever has protocols is looked for among all VLANs.
        benchRatio("VLANs: remove, to 100" + tail, f.remove / few.remove, 3);
        benchRatio("VLANs: replay, to 100" + tail, f.replay / few.replay, 1.5);
    }
    return 0;
}
