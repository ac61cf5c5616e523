// What evaluating a route map costs: maps in which nothing matches, and a border router's policy
// beside a plain walk over the same records. Pin it to one core: taskset -c 0 rmap_bench
#include <cstdlib>
#include <cstring>
#include <random>

#include "bench/measure.h"
#include "common/node.h"
#include "include/status.h"
#include "match/zekBgp.h"
#include "match/zekRmap.h"
#include "platform/api/zekBgpRegex.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"

namespace {

constexpr uint32_t poolClasses[] = {32,  44,  56,  92,  136,  156,  168,
                                    184, 192, 208, 864, 1368, 4096, 16384};
constexpr uint32_t PREFIXES = 10000, PATHS = 100, INSTANCES = 20, ROUTES = 2000;
const listName MAP = listNameMake("BENCH");

void must(bool good, const char* what) {
    if (good) return;
    std::fprintf(stderr, "rmap_bench: %s\n", what);
    std::exit(1);
}

// --- a map ---------------------------------------------------------------------------------------

void instance(int32_t seq) {
    uint32_t status;
    must(ipRmapListCreate(MAP, RMAP_PERMIT, &seq, 0, &status) != nullptr, "instance");
}
rmapClauseBlock clause(uint32_t code, int32_t seq) {
    const rmapCodeRow* row = rmapCodeFind(code);
    rmapClauseBlock b{};
    b.cls = row->cls;
    b.code = code;
    b.kind = uint32_t{row->kind};
    b.seq = static_cast<uint32_t>(seq);
    return b;
}
void addNumber(uint32_t code, int32_t seq, uint32_t value) {
    rmapClauseBlock b = clause(code, seq);
    b.value = value;
    must(ipAddRmapEntry(MAP, &b, AF_IPV4) == ACL_OK, "number clause");
}
void addList(uint32_t code, int32_t seq, const listName& name) {
    rmapClauseBlock b = clause(code, seq);
    b.list = name;
    must(ipAddRmapEntry(MAP, &b, AF_IPV4) == ACL_OK, "list clause");
}

listName numbered(const char* front, uint32_t i) {
    return listNameMake(front + std::to_string(i));
}

void makePrefixList(const listName& name, uint32_t seed) {
    uint32_t status;
    must(ipPrefixListCreate(name, 0, &status, AF_IPV4) != nullptr, "prefix list");
    std::mt19937 random(seed);
    for (uint32_t seq = 1; seq <= PREFIXES;) {
        prefix4EntryBlock block{};
        block.seq = seq;
        block.len = 24;
        be32 address, mask;
        address = static_cast<uint32_t>(random()) & 0xFFFFFF00;
        mask = 0xFFFFFF00;
        std::memcpy(block.address, &address, 4);
        std::memcpy(block.mask, &mask, 4);
        if (ipAddPrefixEntry(name, prefixRecordOf(block), AF_IPV4) == ACL_OK) seq++;
    }
}

// --- the plain walk
// --------------------------------------------------------------------------------

bool plainPrefix(const prefixList* list, const ipPrefix& route) {
    const uint32_t length = ipPrefixLength(route);
    for (const prefixEntry* entry = list->head; entry != nullptr; entry = entry->next) {
        const prefixRecord& r = *entry->record;
        if (r.len != length) continue;
        const uint8_t* address = prefixAddress(r);
        const uint8_t* mask = prefixMask(r, 4);
        bool same = true;
        for (int i = 0; i < 4; i++) same &= ((address[i] ^ route.address[i]) & mask[i]) == 0;
        if (same) return r.action != PREFIX_DENY;
    }
    return false;
}
bool plainPath(const bgpList* list, const std::string& path) {
    for (const bgpEntry* entry = list->head; entry != nullptr; entry = entry->next)
        if (zekbgp_regexec(entry->regex, path)) return entry->action != BGP_DENY;
    return false;
}
bool plainCommunities(const bgpList* list, const std::vector<uint32_t>& have) {
    for (const bgpEntry* entry = list->head; entry != nullptr; entry = entry->next) {
        bool all = true;
        const commValues wanted = bgpEntryCommunities(static_cast<const commEntry*>(entry)->block);
        for (uint32_t i = 0; i < wanted.count; i++)
            all &= std::ranges::find(have, wanted.values[i]) != have.end();
        if (all) return entry->action != BGP_DENY;
    }
    return false;
}
bool plainClause(const rmapEntry& entry, const rmapRoute& route) {
    if (entry.kind == RMAP_KIND_NUMBER) {
        for (const rmapNumberValue* v = entry.numbers; v != nullptr; v = v->next)
            if (v->value == route.metric) return true;
        return false;
    }
    for (const rmapNameValue* v = entry.names; v != nullptr; v = v->next) {
        auto* list = static_cast<namedList*>(v->list);
        switch (entry.code) {
            case RTMAP_MATCH_IPADD_PREFIX:
                if (plainPrefix(static_cast<prefixList*>(list), route.prefix)) return true;
                break;
            case RTMAP_MATCH_ASP:
                if (plainPath(static_cast<bgpList*>(list), route.asPath)) return true;
                break;
            default:
                if (plainCommunities(static_cast<bgpList*>(list), route.communities)) return true;
        }
    }
    return false;
}
int plainCheck(const rmapList* map, const rmapRoute& route) {
    for (const rmapInstance* at = map->first; at != nullptr; at = at->next) {
        bool holds = true;
        for (const rmapEntry* e = at->first; e != nullptr && holds; e = e->next)
            if (e->header == 0 && e->cls == RTMAP_MS_MATCH) holds = plainClause(*e, route);
        if (holds) return at->action == RMAP_DENY ? 1 : 0;
    }
    return 1;
}

// --- measurements
// ----------------------------------------------------------------------------------

rmapRoute makeRoute(std::mt19937& random) {
    rmapRoute route;
    be32 address;
    address = static_cast<uint32_t>(random()) & 0xFFFFFF00;
    route.prefix = ipPrefixMake(AF_IPV4, reinterpret_cast<const uint8_t*>(&address), 24);
    route.metric = 1000000;
    for (int i = 0; i < 5; i++)
        route.asPath += (i != 0 ? " " : "") + std::to_string(1 + random() % 64000);
    for (int i = 0; i < 3; i++)
        route.communities.push_back(64500u << 16 | static_cast<uint32_t>(random() % 1000));
    return route;
}

// Nanoseconds an instance of a map in which none matches.
double missNs(uint32_t count, uint32_t code) {
    for (uint32_t i = 1; i <= count; i++) {
        instance(static_cast<int32_t>(i));
        if (code == RTMAP_MATCH_MET)
            addNumber(code, static_cast<int32_t>(i), i);
        else
            addList(code, static_cast<int32_t>(i), numbered("P", i % 4));
    }
    std::mt19937 random(5);
    const rmapRoute route = makeRoute(random);
    const rmapList* map = ipRmapListFind(MAP);
    const int repeats = static_cast<int>(2000000 / count);
    int denied = 0;
    double seconds = benchRounds(7, [&] {
        for (int i = 0; i < repeats; i++) denied += ipRoutemapCheck(map, route, nullptr);
    });
    must(denied == 7 * repeats, "something matched");
    must(ipRmapListDelete(MAP, 0, RMAP_NAMED_NONE) == ACL_OK, "delete");
    return seconds / repeats / count * 1e9;
}

// Only the last instance lets everything pass, so a route sees most of the lists.
void makeBorderPolicy() {
    for (uint32_t i = 0; i < INSTANCES; i++) {
        const auto seq = static_cast<int32_t>(10 * (i + 1));
        instance(seq);
        addNumber(RTMAP_SET_LPREF, seq, 100 + i);
        if (i == INSTANCES - 1) break;
        switch (i % 3) {
            case 0:
                addList(RTMAP_MATCH_IPADD_PREFIX, seq, numbered("P", i % 4));
                break;
            case 1:
                addList(RTMAP_MATCH_ASP, seq, numbered("A", i % 2));
                break;
            default:
                addList(RTMAP_MATCH_COMM, seq, listNameMake("C"));
                addList(RTMAP_MATCH_IPADD_PREFIX, seq, numbered("P", i % 4));
        }
    }
}

void makeLists() {
    uint32_t status;
    for (uint32_t i = 0; i < 4; i++) makePrefixList(numbered("P", i), i);
    for (uint32_t i = 0; i < 2; i++) {
        must(bgpASPAccessListCreate(numbered("A", i), 0, &status) != nullptr, "AS-path list");
        for (uint32_t k = 0; k < PATHS; k++) {
            std::string text = "_" + std::to_string(64100 + 150 * i + k) + "_[0-9]+$";
            must(bgpAddASPAccessEntry(numbered("A", i), 0, {text}) == ACL_OK, "expression");
        }
    }
    must(bgpCommAccessListCreate(listNameMake("C"), 0, &status) != nullptr, "community list");
    for (uint32_t k = 0; k < 200; k++) {
        commEntryBlock block{};
        block.kind = uint32_t{COMM_VALUES};
        block.count = 1u;
        block.high[0] = 64500u;
        block.low[0] = k;
        must(bgpAddCommAccessEntry(listNameMake("C"), block) == ACL_OK, "community");
    }
}

}  // namespace

int main() {
    must(zek_memPartVarInit(1, poolClasses, std::size(poolClasses)) == 0, "pool");
    static aclNodeRecord node;
    static aspathAclNodeRecord bgp;
    aclNode = &node;
    aspathAclNode = &bgp;
    for (zekRadix** tree : {&node.trees.prefix_tree, &node.trees.v6prefix_tree,
                            &node.trees.rmap_tree, &bgp.asTree, &bgp.commTree, &bgp.extCommTree})
        *tree = zekRadixCreateP("bench", LIST_NAME_KEY_BITS);
    makeLists();

    std::mt19937 random(5);
    const rmapRoute route = makeRoute(random);
    const prefixList* list = ipPrefixListFind(numbered("P", 1), AF_IPV4);
    const double check = benchRounds(7,
                                     [&] {
                                         for (uint32_t i = 0; i < 400000; i++)
                                             (void)prefixFilterCheck(list, route.prefix);
                                     }) /
                         400000 * 1e9;
    benchOut("prefixFilterCheck, 10,000 entries", check, "ns");
    for (uint32_t count : {100u, 1000u}) {
        const std::string name = std::to_string(count) + " instances, none matches: ";
        const double metric = missNs(count, RTMAP_MATCH_MET);
        benchOut(name + "metric", metric, "ns an instance");
        benchRatio(name + "metric / 10 ns", metric / 10, 1);
        const double prefix = missNs(count, RTMAP_MATCH_IPADD_PREFIX);
        benchOut(name + "prefix list", prefix, "ns an instance");
        benchRatio(name + "prefix list / (10 ns + check)", prefix / (10 + check), 1);
    }

    makeBorderPolicy();
    const rmapList* map = ipRmapListFind(MAP);
    std::vector<rmapRoute> routes;
    for (uint32_t i = 0; i < ROUTES; i++) routes.push_back(makeRoute(random));
    rmapRoute out;
    auto ours = [&] {
        for (const rmapRoute& r : routes) (void)ipRoutemapCheck(map, r, &out);
    };
    for (const rmapRoute& r : routes)
        must(ipRoutemapCheck(map, r, &out) == plainCheck(map, r), "the walk decides otherwise");
    const double fast = benchRounds(7, ours) / ROUTES;
    const double plain = benchRounds(3,
                                     [&] {
                                         for (uint32_t i = 0; i < ROUTES / 20; i++)
                                             (void)plainCheck(map, routes[i]);
                                     }) /
                         (ROUTES / 20);
    benchOut("border policy", 1 / fast, "routes/s");
    benchOut("ref. plain walk", 1 / plain, "routes/s");
    benchRatio("border policy: 20 x / plain walk", 20 * fast / plain, 1);
    return 0;
}
