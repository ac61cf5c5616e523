// What the store itself costs: adds, deletes, look-ups, shows. Each figure stands beside the plain
// way to do the same with the standard library ("plain_"), measured in the same run.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <unordered_set>

#include "bench/entries.h"
#include "common/clients.h"
#include "common/linecard.h"
#include "common/node.h"
#include "include/service.h"
#include "ipacl/store.h"
#include "platform/api/zekMem.h"

namespace {

constexpr uint32_t poolClasses[] = {44, 92, 156, 192, 784, 8192};

void start() {
    static bool once = [] {
        static aclNodeRecord node{};
        aclNode = &node;
        if (zek_memPartVarInit(1, poolClasses, std::size(poolClasses)) != 0) std::abort();
        for (const aclFamily* family : aclFamilies)
            node.trees.*family->tree = zekRadixCreate(family->name, LIST_NAME_KEY_BITS);
        return true;
    }();
    (void)once;
}

const listName listOne = listNameMake("BENCH");

// The families, by the benchmarks' argument: each in a store of its own, on the same frame.
struct benchFamily {
    const aclFamily& row;
    void (*block)(uint32_t seq, uint32_t value, uint8_t* to);
};
const benchFamily families[] = {
    {ip4Family,
     [](uint32_t seq, uint32_t value, uint8_t* to) {
         const ipEntryBlock b = blockOf(seq, value);
         std::memcpy(to, &b, sizeof b);
     }},
    {ip6Family,
     [](uint32_t seq, uint32_t value, uint8_t* to) {
         const ip6EntryBlock b = block6Of(seq, value);
         std::memcpy(to, &b, sizeof b);
     }},
    {macFamily,
     [](uint32_t seq, uint32_t value, uint8_t* to) {
         const macEntryBlock b = macBlockOf(seq, value);
         std::memcpy(to, &b, sizeof b);
     }},
};

// Entry i's number: five apart, or as far as there is room for.
uint32_t numberOf(uint32_t i, uint32_t entries) {
    constexpr uint64_t all = 65535;
    return entries <= all / 5 || entries > all ? (i + 1) * 5
                                               : static_cast<uint32_t>((i + 1) * all / entries);
}

uint32_t addOne(const benchFamily& family, uint32_t seq, uint32_t value) {
    alignas(8) uint8_t block[160] = {};
    family.block(seq, value, block);
    return aclListAdd(family.row, listOne, block, {});
}
uint32_t deleteOne(const benchFamily& family, uint32_t seq, uint32_t value) {
    alignas(8) uint8_t block[160] = {};
    family.block(seq, value, block);
    return aclListDel(family.row, listOne, block, true, true);
}

// A list of `entries` entries, inserted in random order or in their own.
void fill(const benchFamily& family, uint32_t entries, bool shuffled = true) {
    start();
    for (const benchFamily& one : families)
        if (aclListFind(one.row, listOne) != nullptr)
            aclListDelete(one.row, listOne, IP_KIND_EXTENDED);
    uint32_t status = 0;
    if (aclListCreate(family.row, listOne, IP_KIND_EXTENDED, 0, &status) == nullptr) std::abort();
    std::vector<uint32_t> order(entries);
    for (uint32_t i = 0; i < entries; i++) order[i] = i;
    if (shuffled) std::shuffle(order.begin(), order.end(), std::mt19937(4));
    for (uint32_t i : order)
        if (addOne(family, numberOf(i, entries), i) != ACL_OK) std::abort();
}

// Numbers that are free, all over the list.
std::vector<uint32_t> freeNumbers(uint32_t entries) {
    std::vector<uint32_t> numbers;
    for (uint32_t i = 0, next = 1; i < entries; i++, next++)
        for (; next < numberOf(i, entries); next++) numbers.push_back(next);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(5));
    return numbers;
}

// One run of each family after the other, so that their ratio is of one run.
void sizes(benchmark::internal::Benchmark* b) {
    b->ArgNames({"entries", "family"});
    for (int64_t entries : {1000, 10000, 60000, 100000})
        for (int64_t family : {0, 1, 2})
            if (entries != 100000 || family != 2) b->Args({entries, family});
}

void add(benchmark::State& state) {
    const auto entries = static_cast<uint32_t>(state.range(0));
    const benchFamily& family = families[state.range(1)];
    fill(family, entries);
    const std::vector<uint32_t> numbers = freeNumbers(entries);
    uint32_t z = 0;
    for (auto _ : state) {
        if (addOne(family, numbers[z], entries + z) != ACL_OK) state.SkipWithError("add");
        z++;
    }
}
BENCHMARK(add)->Apply(sizes)->Iterations(500)->Repetitions(9)->ReportAggregatesOnly();

void del(benchmark::State& state) {
    const auto entries = static_cast<uint32_t>(state.range(0));
    const benchFamily& family = families[state.range(1)];
    fill(family, entries);
    uint32_t z = 0;
    for (auto _ : state)  // by content
        if (deleteOne(family, SEQ_NOT_GIVEN, z++ * 7919u % entries) != ACL_OK)
            state.SkipWithError("delete");
}
BENCHMARK(del)->Apply(sizes)->Iterations(500)->Repetitions(9)->ReportAggregatesOnly();

void refusedDuplicate(benchmark::State& state) {
    const auto entries = static_cast<uint32_t>(state.range(0));
    const benchFamily& family = families[state.range(1)];
    fill(family, entries);
    uint32_t z = 0;
    for (auto _ : state)
        if (addOne(family, 65000, z++ * 7919u % entries) != ACL_E_ENTRY_EXISTS)
            state.SkipWithError("duplicate");
}
BENCHMARK(refusedDuplicate)->Apply(sizes);

// The plain way: an ordered map on numbers and a hash set on content.
struct plainEntry {
    plainEntry *next, *prev;
    uint8_t b[156];
    uint32_t id, hits, log, mon;
};
struct plainStore {
    std::map<uint32_t, plainEntry*> seq;
    std::unordered_set<std::string> content;
};
void plainAddOne(plainStore& store, uint32_t seq, uint32_t value) {
    ipEntryBlock block = blockOf(seq, value);
    const char* b = reinterpret_cast<const char*>(&block);
    if (!store.content.insert(std::string(b + 16, 29) + std::string(b + 128, 17)).second) return;
    auto* entry = static_cast<plainEntry*>(std::calloc(1, sizeof(plainEntry)));
    std::memcpy(entry->b, b, sizeof block);
    auto [at, fresh] = store.seq.emplace(seq, entry);
    if (fresh && at != store.seq.begin()) {
        entry->prev = std::prev(at)->second;
        entry->next = entry->prev->next;
        entry->prev->next = entry;
    }
}
plainStore* plainFill(uint32_t entries) {
    auto* store = new plainStore;
    std::vector<uint32_t> order(entries);
    for (uint32_t i = 0; i < entries; i++) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(4));
    for (uint32_t i : order) plainAddOne(*store, (i + 1) * 5, i);
    return store;
}
void plain_add(benchmark::State& state) {
    auto entries = static_cast<uint32_t>(state.range(0));
    plainStore* store = plainFill(entries);
    uint32_t z = 0;
    for (auto _ : state) {
        plainAddOne(*store, z * 7919u % entries * 5 + 6 + z / entries % 4, entries + z);
        z++;
    }
    for (auto& [seq, entry] : store->seq) std::free(entry);
    delete store;
}
BENCHMARK(plain_add)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Iterations(500)
    ->Repetitions(9)
    ->ReportAggregatesOnly();

void findName(benchmark::State& state) {
    start();
    std::vector<listName> names;
    for (int64_t i = 0; i < state.range(0); i++) {
        char text[LIST_NAME_LEN];
        std::snprintf(text, sizeof text, "customer-edge-filter-%07d", static_cast<int>(i));
        names.push_back(listNameMake(text));
        uint32_t status = 0;
        if (ipAccessListCreate(names.back(), IP_KIND_STANDARD, 0, &status) == nullptr) std::abort();
    }
    std::shuffle(names.begin(), names.end(), std::mt19937(2));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ipAccessListFind(names[i]));
        if (++i == names.size()) i = 0;
    }
    for (const listName& name : names) ipAccessListDelete(name, IP_KIND_STANDARD);
}
BENCHMARK(findName)->Arg(1000)->Arg(10000);

void plain_findName(benchmark::State& state) {
    struct less {
        bool operator()(const listName& a, const listName& b) const {
            return std::memcmp(a.text, b.text, LIST_NAME_LEN) < 0;
        }
    };
    std::map<listName, int, less> map;
    std::vector<listName> names;
    for (int64_t i = 0; i < state.range(0); i++) {
        char text[LIST_NAME_LEN];
        std::snprintf(text, sizeof text, "customer-edge-filter-%07d", static_cast<int>(i));
        names.push_back(listNameMake(text));
    }
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    for (const listName& name : names) map[name] = 1;
    std::shuffle(names.begin(), names.end(), std::mt19937(2));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(map.find(names[i])->second);
        if (++i == names.size()) i = 0;
    }
}
BENCHMARK(plain_findName)->Arg(1000)->Arg(10000);

// One of the many clients (tasks or route maps) of a list goes and registers again.
void registerClient(benchmark::State& state) {
    start();
    const bool asMap = state.range(1) != 0;
    const auto clients = static_cast<uint32_t>(state.range(0));
    auto mapName = [](uint32_t i) {
        char text[LIST_NAME_LEN];
        std::snprintf(text, sizeof text, "customer-edge-map-%07u", i);
        return listNameMake(text);
    };
    const listName list = listNameMake("CLIENTS");
    const rmapMatch clause = {RTMAP_MS_MATCH, 5, nullptr};
    auto add = [&](uint32_t i) {
        return asMap ? aclAddRmapClient(clause, mapName(i), list) == 0
                     : aclAddTaskClient(APP_OSPF, i, list, 0, 1) != nullptr;
    };
    auto del = [&](uint32_t i) {
        return (asMap ? aclDelRmapClient(clause, mapName(i), list)
                      : aclDelTaskClient(APP_OSPF, i, list, 1)) == 0;
    };
    for (uint32_t i = 0; i < clients; i++)
        if (!add(i)) std::abort();
    uint32_t z = 0;
    for (auto _ : state) {
        const uint32_t i = z++ * 7919u % clients;
        if (!del(i) || !add(i)) state.SkipWithError("client");
    }
    for (uint32_t i = 0; i < clients; i++) (void)del(i);
}
BENCHMARK(registerClient)
    ->ArgNames({"clients", "maps"})
    ->ArgsProduct({{1000, 10000, 100000}, {0, 1}});

void showEntry(benchmark::State& state) {
    const benchFamily& family = families[state.range(1)];
    fill(family, static_cast<uint32_t>(state.range(0)), false);
    for (auto _ : state) {
        void* buffer = nullptr;
        uint32_t size = 0;
        if (aclListShow(family.row, listOne, &buffer, &size) != ACL_OK) state.SkipWithError("show");
        benchmark::DoNotOptimize(buffer);
        zekMC_M_sysFree(buffer);
    }
    state.counters["per_entry"] = benchmark::Counter(
        static_cast<double>(state.range(0)),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(showEntry)->Apply(sizes);

// Every entry gets a new number, which a card is told as well; the pauses cost nothing here.
void resequence(benchmark::State& state) {
    constexpr decltype(&ipReseqTheAccessList) fronts[] = {
        ipReseqTheAccessList, ipReseqTheV6AccessList, l2ReseqTheAccessList};
    const auto run = fronts[state.range(1)];
    const benchFamily& family = families[state.range(1)];
    fill(family, static_cast<uint32_t>(state.range(0)));
    aclLinecard& card = aclLinecardInfo[1];
    card.isUp = card.aclAgent = card.agentIpAddr = 1;
    aclList* list = aclListFind(family.row, listOne);
    const listClientKey port = {CLIENT_INTERFACE, 0x04040000};
    if (clientAdd(list, port, sizeof(aclBinding)) == nullptr) std::abort();
    uint32_t from = 5;
    for (auto _ : state) {
        from = from == 5 ? 7 : 5;
        if (run(listOne, from, 1) != ACL_OK) state.SkipWithError("resequence");
    }
    clientsFree(list);
    card.isUp = 0;
    state.counters["per_entry"] = benchmark::Counter(
        static_cast<double>(state.range(0)),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(resequence)->Apply(sizes);

void plain_formattedLine(benchmark::State& state) {
    char line[160];
    int i = 0;
    for (auto _ : state) {
        i++;
        std::snprintf(line, sizeof line, " seq %u %s %s %u.%u.%u.%u/%u host %u.%u.%u.%u eq %u\n",
                      i * 5, "permit", "tcp", 10, i >> 16 & 255, i >> 8 & 255, i & 255, 24, 192, 0,
                      2, i & 255, 80);
        benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(plain_formattedLine);

}  // namespace

BENCHMARK_MAIN();
