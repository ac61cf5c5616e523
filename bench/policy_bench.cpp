// What a filter check costs: one packet a call, half of them hits, over lists that the store has
// loaded, beside trying the chain ("ref.chain") and a hash table per pair of masks ("ref.tables").
#include <malloc.h>

#include <cstdlib>

#include "bench/filterRules.h"
#include "bench/measure.h"
#include "common/node.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"

namespace {

const listName NAME = listNameMake("BENCH");

aclList* load(const std::vector<benchRule>& rules, bool everyField) {
    if (ipAccessListFind(NAME) != nullptr) ipAccessListDelete(NAME, IP_KIND_EXTENDED);
    uint32_t status = 0;
    aclList* list = ipAccessListCreate(NAME, IP_KIND_EXTENDED, 0, &status);
    if (list == nullptr) std::abort();
    for (uint32_t i = 0; i < rules.size(); i++) {
        ipEntryBlock b = benchBlock(rules[i], (i + 1) * 5);
        if (everyField) {
            // Nothing that the packets do not have, so that they hit what they hit without it.
            if (i % 2 == 0) b.srcOperator = PORT_GT, b.srcLow = 15;
            if (i % 3 == 0) b.precedence = 0;
            if (i % 5 == 0) b.tos = 0;
            if (i % 7 == 0) b.dscp = 0;
            if (i % 11 == 0 && b.protocol == IP_PROTO_TCP) b.tcpFlags = TCP_ESTABLISHED;
            if (i % 13 == 0 && b.protocol == IP_PROTO_TCP) b.tcpFlags = TCP_ACK | TCP_PSH;
            if (i % 17 == 0) b.srcOperator = PORT_NEQ, b.srcLow = 7;
        }
        uint32_t added = ipAddAccessEntry(NAME, &b, 0, 0);
        if (added != ACL_OK && added != ACL_E_ENTRY_EXISTS) std::abort();
    }
    return list;
}

template <class Check>
double nsPerPacket(const std::vector<ipPacket>& packets, size_t count, Check check) {
    count = std::min(count, packets.size());
    double seconds = benchRounds(7, [&] {
        uint64_t sum = 0;
        for (size_t i = 0; i < count; i++) sum += check(packets[i]);
        asm volatile("" : : "r"(sum) : "memory");
    });
    return seconds / static_cast<double>(count) * 1e9;
}
double checkNs(const aclList* list, const std::vector<ipPacket>& packets) {
    return nsPerPacket(packets, packets.size(), [&](const ipPacket& p) {
        const aclEntry* decided = nullptr;
        return static_cast<uint64_t>(ipFilterCheck(list, p, &decided)) +
               reinterpret_cast<uintptr_t>(decided);
    });
}

struct limits {
    uint32_t entries;
    double chain, tables;  // at most this part of either reference; 0: none is set
};

void measure(const char* what, bool spread, bool everyField, const limits& limit, double* first) {
    std::string name = std::string(what) + "." + std::to_string(limit.entries);
    auto rules = benchRules(limit.entries, spread);
    auto packets = benchPackets(rules, 200000);
    if (everyField)
        for (ipPacket& p : packets) p.tcpFlags = TCP_ACK | TCP_PSH, p.srcPort |= 16;
    const aclList* list = load(rules, everyField);
    // Not less packets than it takes to be out of the caches of a chain this long.
    double chain = nsPerPacket(packets, std::max(200u, 5000000 / limit.entries), [&](auto& p) {
        return reinterpret_cast<uintptr_t>(
            refChainFind(static_cast<const aclEntry*>(list->head), p));
    });
    refTables plain(rules);
    double tables = nsPerPacket(packets, packets.size(), [&](auto& p) { return plain.find(p); });
    double check = checkNs(list, packets);
    benchOut("ref.chain." + name, chain, "ns");
    benchOut("ref.tables(" + std::to_string(plain.tables.size()) + ")." + name, tables, "ns");
    benchOut("check." + name, check, "ns");
    if (limit.chain != 0) benchRatio("check : ref.chain." + name, check / chain, limit.chain);
    if (limit.tables != 0) benchRatio("check : ref.tables." + name, check / tables, limit.tables);
    if (*first == 0) *first = check;
    if (limit.entries == 100000)
        benchRatio("check 100000 : 1000 " + std::string(what), check / *first, 3);
    if (spread || everyField) return;
    uint64_t before = zekMemHeapStats().bytes;
    ipFilterIndexDrop(const_cast<aclList*>(list));
    benchOut("index bytes an entry." + name,
             static_cast<double>(before - zekMemHeapStats().bytes) / limit.entries, "B");
}

// A mask of its own for every entry: what an add and a check cost when groups are shared.
void ownMasks(uint32_t entries) {
    std::mt19937 random(3);
    std::vector<benchRule> rules = benchRules(entries, false);
    for (uint32_t i = 0; i < entries; i++) {
        rules[i].srcMask = i % 2 != 0 ? i : ~i;
        rules[i].src = static_cast<uint32_t>(random()) & rules[i].srcMask;
    }
    const double seconds = benchRounds(3, [&] { (void)load(rules, false); });
    const aclList* list = load(rules, false);
    const std::string name = "own masks." + std::to_string(entries);
    benchOut("load and delete, per entry." + name, seconds / entries * 1e9, "ns");
    benchOut("check." + name, checkNs(list, benchPackets(rules, 2000)), "ns");
}

// A short list, with nothing but its chain.
void shortList() {
    auto rules = benchRules(16, false);
    auto packets = benchPackets(rules, 200000);
    const aclList* list = load(rules, false);
    double chain = nsPerPacket(packets, packets.size(), [&](auto& p) {
        return reinterpret_cast<uintptr_t>(
            refChainFind(static_cast<const aclEntry*>(list->head), p));
    });
    double check = checkNs(list, packets);
    ipFilterIndexDrop(const_cast<aclList*>(list));  // from here on the list is walked
    double walk = checkNs(list, packets);
    benchOut("ref.chain.16", chain, "ns");
    benchOut("walk.16", walk, "ns");
    benchOut("check.16", check, "ns");
    benchRatio("check : walk.16", check / walk, 1.2);
}

}  // namespace

int main() {
    constexpr uint32_t poolClasses[] = {44, 92, 192, 784, 8192};
    static aclNodeRecord node{};
    aclNode = &node;
    if (zek_memPartVarInit(1, poolClasses, std::size(poolClasses)) != 0) std::abort();
    node.trees.acl_tree = zekRadixCreate("acl", LIST_NAME_KEY_BITS);

    shortList();
    for (uint32_t entries : {1000u, 10000u, 100000u}) ownMasks(entries);
    struct {
        const char* name;
        bool spread, everyField;
    } const shapes[] = {{"usual", false, false}, {"pairs", true, false}, {"fields", false, true}};
    for (const auto& shape : shapes) {
        double first = 0;
        for (const limits& limit : {limits{1000, 1.0 / 8, 1.5}, limits{10000, 1.0 / 70, 1.5},
                                    limits{100000, 1.0 / 600, 1.5}})
            measure(shape.name, shape.spread, shape.everyField, limit, &first);
    }
}
