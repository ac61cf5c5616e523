// What a filter check costs: one packet a call, half of them hits, over lists that the store has
// loaded, beside trying the chain ("ref.chain") and a hash table per pair of masks ("ref.tables");
// lists of the other families beside the same rules as an IPv4 list ("ref.ipv6", "ref.mac").
#include <malloc.h>

#include <cstdlib>

#include "bench/familyRules.h"
#include "bench/measure.h"
#include "common/node.h"
#include "ipacl/store.h"
#include "platform/api/zekMem.h"

namespace {

const listName NAME = listNameMake("BENCH");

template <class Family>
aclList* load(const std::vector<benchRule>& rules) {
    if (aclListFind(Family::row, NAME) != nullptr)
        aclListDelete(Family::row, NAME, IP_KIND_EXTENDED);
    uint32_t status = 0;
    aclList* list = aclListCreate(Family::row, NAME, IP_KIND_EXTENDED, 0, &status);
    if (list == nullptr) std::abort();
    for (uint32_t i = 0; i < rules.size(); i++) {
        auto b = Family::block(rules[i], i + 1);
        uint32_t added = aclListAdd(Family::row, NAME, &b, {});
        if (added != ACL_OK && added != ACL_E_ENTRY_EXISTS) std::abort();
    }
    return list;
}
template <class Family>
std::vector<typename Family::Packet> packetsFor(const std::vector<benchRule>& rules, size_t count) {
    std::vector<typename Family::Packet> packets;
    for (const ipPacket& packet : benchPackets(rules, count))
        packets.push_back(Family::packet(packet));
    return packets;
}

// A packet a call: nanoseconds over the first `count` of them.
template <class Packet, class Check>
double roundNs(const std::vector<Packet>& packets, size_t count, Check check) {
    count = std::min(count, packets.size());
    const double start = benchNow();
    uint64_t sum = 0;
    for (size_t i = 0; i < count; i++) sum += check(packets[i]);
    asm volatile("" : : "r"(sum) : "memory");
    return (benchNow() - start) / static_cast<double>(count) * 1e9;
}
constexpr int ROUNDS = 7;
template <class Packet, class Check>
double nsPerPacket(const std::vector<Packet>& packets, size_t count, Check check) {
    std::vector<double> rounds;
    for (int i = 0; i < ROUNDS; i++) rounds.push_back(roundNs(packets, count, check));
    return benchMedian(rounds);
}
template <class Family>
auto checker(const aclList* list) {
    return [list](const typename Family::Packet& p) {
        const typename Family::Entry* decided = nullptr;
        return static_cast<uint64_t>(Family::check(list, p, &decided)) +
               reinterpret_cast<uintptr_t>(decided);
    };
}
double checkNs(const aclList* list, const std::vector<ipPacket>& packets) {
    return nsPerPacket(packets, packets.size(), checker<ip4Bench>(list));
}

void indexBytes(aclList* list, const std::string& name) {
    const uint64_t before = zekMemHeapStats().bytes;
    ipFilterIndexDrop(list);
    benchOut("index bytes an entry." + name,
             static_cast<double>(before - zekMemHeapStats().bytes) / list->count, "B");
}

struct limits {
    uint32_t entries;
    double chain, tables;  // at most this part of either reference; 0: none is set
};

template <class Family>
void measure(const char* what, bool spread, const limits& limit, double* first) {
    std::string name = std::string(what) + "." + std::to_string(limit.entries);
    auto rules = benchRules(limit.entries, spread);
    auto packets = packetsFor<Family>(rules, 200000);
    const aclList* list = load<Family>(rules);
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
    indexBytes(const_cast<aclList*>(list), name);
}

// Two families in turns, so that both have the same machine; the first one's figure is the other's
// reference.
template <class Reference, class Family>
void compare(const char* what, uint32_t entries, double limit, double* first) {
    const std::string name = std::string(what) + "." + std::to_string(entries);
    const auto rules = benchRules(entries, false);
    const auto refPackets = packetsFor<Reference>(rules, 200000);
    const auto packets = packetsFor<Family>(rules, 200000);
    const aclList* reference = load<Reference>(rules);
    aclList* list = load<Family>(rules);
    std::vector<double> refRounds, rounds;
    for (int i = 0; i < ROUNDS; i++) {
        refRounds.push_back(roundNs(refPackets, refPackets.size(), checker<Reference>(reference)));
        rounds.push_back(roundNs(packets, packets.size(), checker<Family>(list)));
    }
    const double check = benchMedian(rounds);
    benchOut("ref." + name, benchMedian(refRounds), "ns");
    benchOut("check." + name, check, "ns");
    benchRatio("check : ref." + name, check / benchMedian(refRounds), limit);
    if (*first == 0) *first = check;
    if (entries > 10000)
        benchRatio("check " + std::to_string(entries) + " : 1000 " + what, check / *first, 3);
    double hits = 0;
    for (const auto& p : packets) hits += Family::check(list, p, nullptr) == FILTER_PERMIT;
    benchOut("hits." + name, hits / static_cast<double>(packets.size()), "");
    indexBytes(list, name);
}

// A mask of its own for every entry: what an add and a check cost when groups are shared.
void ownMasks(uint32_t entries) {
    std::mt19937 random(3);
    std::vector<benchRule> rules = benchRules(entries, false);
    for (uint32_t i = 0; i < entries; i++) {
        rules[i].srcMask = i % 2 != 0 ? i : ~i;
        rules[i].src = static_cast<uint32_t>(random()) & rules[i].srcMask;
    }
    const double seconds = benchRounds(3, [&] { (void)load<ip4Bench>(rules); });
    const aclList* list = load<ip4Bench>(rules);
    const std::string name = "own masks." + std::to_string(entries);
    benchOut("load and delete, per entry." + name, seconds / entries * 1e9, "ns");
    benchOut("check." + name, checkNs(list, benchPackets(rules, 2000)), "ns");
}

// A short list, with nothing but its chain.
void shortList() {
    auto rules = benchRules(16, false);
    auto packets = benchPackets(rules, 200000);
    const aclList* list = load<ip4Bench>(rules);
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
    for (auto tree : {&aclTrees::acl_tree, &aclTrees::v6acl_tree, &aclTrees::l2acl_tree})
        node.trees.*tree = zekRadixCreate("lists", LIST_NAME_KEY_BITS);

    shortList();
    for (uint32_t entries : {1000u, 10000u, 100000u}) ownMasks(entries);
    auto grow = [](auto run) {
        double first = 0;
        for (const limits& limit : {limits{1000, 1.0 / 8, 1.5}, limits{10000, 1.0 / 70, 1.5},
                                    limits{100000, 1.0 / 600, 1.5}})
            run(limit, &first);
    };
    grow([](auto... at) { measure<ip4Bench>("usual", false, at...); });
    grow([](auto... at) { measure<ip4Bench>("pairs", true, at...); });
    grow([](auto... at) { measure<ip4FieldsBench>("fields", false, at...); });
    grow([](const limits& limit, double* first) {
        compare<ip4Bench, ip6Bench>("ipv6", limit.entries, 1.3, first);
    });
    grow([](const limits& limit, double* first) {
        const uint32_t entries = std::min(limit.entries, 60000u);  // numbers end at 65535
        compare<ip4FieldsBench, macBench>("mac", entries, 1.1, first);
    });
}
