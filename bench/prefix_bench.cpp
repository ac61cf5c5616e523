// What prefix lists cost inside the store: checks, changes, loading, shows, renumbering, memory;
// beside walking a chain ("ref.chain"), a formatted line and an add to a map and a set.
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <unordered_set>

#include "bench/measure.h"
#include "common/node.h"
#include "include/status.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"
#include "policy/prefix/zekprefixlist.h"

namespace {

constexpr uint32_t poolClasses[] = {32, 44, 56, 92, 136, 156, 168, 184, 192, 208, 864, 16384};
const listName NAME = listNameMake("BENCH");

template <class Work>
double cpuRounds(int rounds, Work work) {
    std::vector<double> values;
    for (int i = 0; i < rounds; i++) {
        double start = benchCpuNow();
        work();
        values.push_back(benchCpuNow() - start);
    }
    return benchMedian(values);
}

struct prefix {
    uint32_t address;
    uint8_t length;
};
uint32_t maskOf(uint8_t length) {
    return length == 0 ? 0 : 0xFFFFFFFFu << (32 - length);
}
// Lengths as routing tables have them.
uint8_t anyLength(std::mt19937& random) {
    static constexpr uint8_t lengths[] = {16, 20, 20, 22, 22, 22, 22, 24, 24, 24,
                                          24, 24, 24, 24, 24, 24, 24, 24, 24, 24};
    return lengths[random() % std::size(lengths)];
}
std::vector<prefix> makePrefixes(size_t count) {
    std::mt19937 random(1);
    std::unordered_set<uint64_t> seen;
    std::vector<prefix> made;
    while (made.size() < count) {
        const uint8_t length = anyLength(random);
        const auto address = static_cast<uint32_t>(random()) & maskOf(length);
        if (seen.insert(uint64_t{address} << 6 | length).second) made.push_back({address, length});
    }
    return made;
}
// Half of them are in the list.
std::vector<prefix> makeQueries(const std::vector<prefix>& list) {
    std::mt19937 random(2);
    std::vector<prefix> made;
    for (int i = 0; i < 20000; i++) {
        const uint8_t length = anyLength(random);
        made.push_back(i % 2 != 0
                           ? list[random() % list.size()]
                           : prefix{static_cast<uint32_t>(random()) & maskOf(length), length});
    }
    return made;
}

template <size_t L>
prefixEntryBlock<L> blockOf(const prefix& p, uint32_t seq, bool range) {
    prefixEntryBlock<L> block{};
    block.seq = seq;
    block.len = p.length;
    if (range) block.le = L * 8;
    be32 address, mask;
    address = p.address, mask = maskOf(p.length);
    std::memcpy(block.address, &address, 4);
    std::memcpy(block.mask, &mask, 4);
    return block;
}
template <size_t L>
uint32_t addOne(const prefix& p, uint32_t seq, bool range = false) {
    return ipAddPrefixEntry(NAME, prefixRecordOf(blockOf<L>(p, seq, range)), L == 4 ? 1 : 2);
}
// Numbers in ascending order, or the same ones in random order.
template <size_t L>
prefixList* load(const std::vector<prefix>& prefixes, bool shuffled = false, bool range = false) {
    constexpr uint32_t af = L == 4 ? AF_IPV4 : AF_IPV6;
    if (ipPrefixListFind(NAME, af) != nullptr) ipPrefixListDelete(NAME, af);
    uint32_t status = 0;
    prefixList* list = ipPrefixListCreate(NAME, 0, &status, af);
    if (list == nullptr) std::abort();
    std::vector<uint32_t> order(prefixes.size());
    for (uint32_t i = 0; i < order.size(); i++) order[i] = i;
    if (shuffled) std::shuffle(order.begin(), order.end(), std::mt19937(4));
    for (uint32_t i : order)
        if (addOne<L>(prefixes[i], i + 1, range) != ACL_OK) std::abort();
    return list;
}

// --- references ----------------------------------------------------------------------------------

struct chainRecord {
    uint32_t address;
    int length;
    uint32_t seq;
};
struct chainNode {
    chainNode *next, *prev;
    chainRecord* record;
    uint32_t hits, id;
};
double chainNs(const std::vector<prefix>& list, const std::vector<prefix>& queries) {
    chainNode *head = nullptr, *tail = nullptr;
    for (const prefix& p : list) {
        auto* record = new chainRecord{p.address, p.length, 0};
        auto* node = new chainNode{nullptr, tail, record, 0, 0};
        (tail != nullptr ? tail->next : head) = node;
        tail = node;
    }
    const size_t count = std::min(queries.size(), 50000000 / list.size());
    double seconds = cpuRounds(3, [&] {
        uint32_t hits = 0;
        for (size_t i = 0; i < count; i++)
            for (chainNode* x = head; x != nullptr; x = x->next)
                if (x->record->length == queries[i].length &&
                    ((x->record->address ^ queries[i].address) & maskOf(queries[i].length)) == 0) {
                    hits++;
                    break;
                }
        asm volatile("" : : "r"(hits) : "memory");
    });
    while (head != nullptr) {
        chainNode* next = head->next;
        delete head->record;
        delete head;
        head = next;
    }
    return seconds / static_cast<double>(count) * 1e9;
}
double formattedLineNs() {
    char line[160];
    return cpuRounds(9,
                     [&] {
                         for (int i = 0; i < 20000; i++) {
                             std::snprintf(line, sizeof line,
                                           " seq %u %s %s %u.%u.%u.%u/%u host %u.%u.%u.%u eq %u\n",
                                           i * 5, "permit", "tcp", 10, i >> 16 & 255, i >> 8 & 255,
                                           i & 255, 24, 192, 0, 2, i & 255, 80);
                             asm volatile("" : : "r"(line) : "memory");
                         }
                     }) /
           20000 * 1e9;
}
double plainAddNs(uint32_t entries) {
    std::map<uint32_t, uint8_t*> seqs;
    std::unordered_set<std::string> contents;
    auto add = [&](uint32_t seq, uint32_t value) {
        uint8_t bytes[156] = {};
        std::memcpy(bytes + 24, &value, 4);
        std::memcpy(bytes + 64, &seq, 4);
        const auto* text = reinterpret_cast<const char*>(bytes);
        if (!contents.insert(std::string(text + 16, 29) + std::string(text + 128, 17)).second)
            return;
        auto* entry = static_cast<uint8_t*>(std::calloc(1, 192));
        std::memcpy(entry, bytes, sizeof bytes);
        seqs.emplace(seq, entry);
    };
    std::vector<uint32_t> order(entries);
    for (uint32_t i = 0; i < entries; i++) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(4));
    for (uint32_t i : order) add(i * 5, i);
    uint32_t z = 0;
    double seconds = cpuRounds(9, [&] {
        for (int i = 0; i < 500; i++, z++)
            add(z * 7919u % entries * 5 + 1 + z / entries, entries + z);
    });
    for (auto& [seq, entry] : seqs) std::free(entry);
    return seconds / 500 * 1e9;
}

// --- figures -------------------------------------------------------------------------------------

template <size_t L>
double checkNs(const prefixList* list, const std::vector<prefix>& queries) {
    std::vector<ipPrefix> routes;
    for (const prefix& p : queries) {
        be32 address[4] = {};
        address[0] = p.address;
        routes.push_back(ipPrefixMake(L == 4 ? AF_IPV4 : AF_IPV6, address[0].b, p.length));
    }
    double seconds = cpuRounds(15, [&] {
        uint64_t sum = 0;
        for (const ipPrefix& route : routes)
            sum += static_cast<uint64_t>(prefixFilterCheck(list, route));
        asm volatile("" : : "r"(sum) : "memory");
    });
    return seconds / static_cast<double>(routes.size()) * 1e9;
}

void checks() {
    struct {
        uint32_t entries;
        double part;
    } sizes[] = {{1000, 30}, {10000, 300}, {60000, 1000}};
    double smallest = 0;
    for (const auto& size : sizes) {
        const std::string n = "." + std::to_string(size.entries);
        auto prefixes = makePrefixes(size.entries);
        auto queries = makeQueries(prefixes);
        double chain = chainNs(prefixes, queries);
        double check = checkNs<4>(load<4>(prefixes), queries);
        benchOut("ref.chain" + n, chain, "ns");
        benchOut("check" + n, check, "ns");
        benchRatio("check : chain" + n, check / chain, 1 / size.part);
        if (smallest == 0) smallest = check;
        if (size.entries == 60000) benchRatio("check 60,000 : 1,000", check / smallest, 5);
        benchOut("check, all with le" + n, checkNs<4>(load<4>(prefixes, false, true), queries),
                 "ns");
        benchOut("check, IPv6" + n, checkNs<16>(load<16>(prefixes), queries), "ns");
    }
}

template <size_t L>
double bytesPerEntry() {
    auto prefixes = makePrefixes(60000);
    auto used = [] {
        double bytes = static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd);
        for (const zekMemClass& row : zekMemClasses())
            bytes += static_cast<double>(row.inUse) * row.size;
        return bytes;
    };
    (void)ipPrefixListDelete(NAME, L == 4 ? 1 : 2);
    double before = used();
    load<L>(prefixes);
    return (used() - before) / 60000;
}

void changes() {
    double adds[2], deletes[2];
    int at = 0;
    for (uint32_t entries : {1000u, 60000u}) {
        auto prefixes = makePrefixes(entries + 4500);
        std::vector<prefix> more(prefixes.end() - 4500, prefixes.end());
        prefixes.resize(entries);
        load<4>(prefixes, true);
        uint32_t next = 0;
        std::vector<double> rounds[2];
        for (int round = 0; round < 9; round++) {
            double start = benchCpuNow();
            for (uint32_t i = 0; i < 500; i++)
                if (addOne<4>(more[next + i], entries + 1 + i) != ACL_OK) std::abort();
            rounds[0].push_back(benchCpuNow() - start);
            start = benchCpuNow();
            for (uint32_t i = 0; i < 500; i++) {
                auto block = blockOf<4>(more[next + i], 0, false);
                if (ipDelPrefixEntry(NAME, prefixRecordOf(block), 1, 1) != ACL_OK) std::abort();
            }
            rounds[1].push_back(benchCpuNow() - start);
            next += 500;
        }
        adds[at] = benchMedian(rounds[0]) / 500 * 1e9;
        deletes[at] = benchMedian(rounds[1]) / 500 * 1e9;
        benchOut("add." + std::to_string(entries), adds[at], "ns");
        benchOut("delete." + std::to_string(entries), deletes[at], "ns");
        at++;
    }
    auto loadNs = [](uint32_t entries) {
        auto prefixes = makePrefixes(entries);
        return cpuRounds(3, [&] { load<4>(prefixes); }) / entries * 1e9;
    };
    double few = loadNs(6000), many = loadNs(60000);
    benchOut("load and delete, per entry.6000", few, "ns");
    benchOut("load and delete, per entry.60000", many, "ns");
}

double showNs(uint32_t entries, bool shuffled) {
    load<4>(makePrefixes(entries), shuffled);
    return cpuRounds(5,
                     [&] {
                         uint32_t resume = 0;
                         do {
                             void* buffer = nullptr;
                             uint32_t size = 0;
                             if (prefixShowIpList(NAME, &buffer, &size, 0, &resume, 1) != ACL_OK)
                                 std::abort();
                             zekMC_M_sysFree(buffer);
                         } while (resume != 0);
                     }) /
           entries * 1e9;
}

void renumbering() {
    load<4>(makePrefixes(10000), true);
    uint32_t start = 1;
    double ns = cpuRounds(9,
                          [&] {
                              start = start == 1 ? 7 : 1;
                              if (ipReseqPrefixList(NAME, start, 5, 1) != ACL_OK) std::abort();
                          }) /
                10000 * 1e9;
    double line = formattedLineNs(), add = plainAddNs(10000);
    benchOut("ref.line", line, "ns");
    benchOut("ref.add.10000", add, "ns");
    benchOut("resequence, per entry", ns, "ns");
    benchRatio("resequence : 3 lines + 2 adds", ns / (3 * line + 2 * add), 1);
}

}  // namespace

int main() {
    static aclNodeRecord node{};
    aclNode = &node;
    if (zek_memPartVarInit(1, poolClasses, std::size(poolClasses)) != 0) return 1;
    node.trees.prefix_tree = zekRadixCreate("prefix", LIST_NAME_KEY_BITS);
    node.trees.v6prefix_tree = zekRadixCreate("prefix6", LIST_NAME_KEY_BITS);
    benchOut("memory, IPv4", bytesPerEntry<4>(), "bytes an entry");
    benchOut("memory, IPv6", bytesPerEntry<16>(), "bytes an entry");
    for (uint32_t entries : {1000u, 10000u, 60000u}) {
        const std::string n = "." + std::to_string(entries);
        benchOut("show, per entry" + n, showNs(entries, false), "ns");
        benchOut("show, per entry, random order" + n, showNs(entries, true), "ns");
    }
    checks();
    changes();
    renumbering();
}
