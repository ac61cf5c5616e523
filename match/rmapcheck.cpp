// Route-map evaluation. A map's instances are flattened into arrays, so that trying an instance
// that does not hold touches a few neighbouring words and not its records.
#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <new>

#include "common/hitCount.h"
#include "common/node.h"
#include "common/tree.h"
#include "match/rmapset.h"
#include "match/zekBgp.h"
#include "match/zekPolicy.h"
#include "match/zekRmap.h"

namespace {

// The numbers of a route that match clauses compare.
enum numberField : uint32_t {
    FIELD_ORIGIN,
    FIELD_ROUTE_TYPE,
    FIELD_IFINDEX,
    FIELD_METRIC,
    FIELD_TAG,
    FIELDS,
};
using routeNumbers = std::array<uint32_t, FIELDS>;

struct numberRow {
    uint32_t code;
    numberField field;
};
constexpr numberRow numberRows[] = {
    {RTMAP_MATCH_ORIGIN, FIELD_ORIGIN}, {RTMAP_MATCH_RTYPE, FIELD_ROUTE_TYPE},
    {RTMAP_MATCH_IFACE, FIELD_IFINDEX}, {RTMAP_MATCH_MET, FIELD_METRIC},
    {RTMAP_MATCH_TAG, FIELD_TAG},
};

constexpr uint32_t ROUTE_TYPE_EXTERNAL = 2, ROUTE_TYPE_EXTERNAL_1 = 3, ROUTE_TYPE_EXTERNAL_2 = 4;

// --- match clauses about lists -------------------------------------------------------------------

// A question that only wants to know counts no hits.
struct asked {
    const rmapRoute& route;
    bool counts;
};
using listTest = bool (*)(const rmapNameValue& name, const asked& by);

bool isOf(uint32_t family, const asked& by) {
    return by.route.prefix.family == family;
}

// What an access list sees of a route: an address of it, and what that is masked with.
ipPacket packetOf(uint32_t source, uint32_t destination) {
    ipPacket packet{};
    packet.src = source;
    packet.dst = destination;
    return packet;
}
ip6Packet packetOf(const uint8_t (&source)[16], const uint8_t (&destination)[16]) {
    ip6Packet packet{};
    std::ranges::copy(source, packet.src);
    std::ranges::copy(destination, packet.dst);
    return packet;
}
uint32_t firstWord(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// The access lists of a family: where they are by name, and how they are asked.
struct acl4 {
    static constexpr uint32_t family = AF_IPV4;
    static constexpr auto tree = &aclTrees::acl_tree;
    static constexpr auto check = ipFilterCheck;
    static constexpr auto find = ipFilterFind;
};
struct acl6 {
    static constexpr uint32_t family = AF_IPV6;
    static constexpr auto tree = &aclTrees::v6acl_tree;
    static constexpr auto check = ip6FilterCheck;
    static constexpr auto find = ip6FilterFind;
};

// Access lists that no store registers the map with are found when they are needed.
template <class Acl, class Packet>
bool aclPermits(const rmapNameValue& name, const asked& by, const Packet& packet) {
    if (!isOf(Acl::family, by)) return false;
    const auto* list = name.list != nullptr
                           ? static_cast<const aclList*>(name.list)
                           : nameTreeFind<aclList>(aclNode->trees.*Acl::tree, name.name);
    if (by.counts) return Acl::check(list, packet, nullptr) == FILTER_PERMIT;
    const auto* entry = Acl::find(list, packet);
    return entry != nullptr && entry->block.action != IP_DENY;
}
bool hostByAcl(const rmapNameValue& name, const asked& by, uint32_t host) {
    return aclPermits<acl4>(name, by, packetOf(host, 0xFFFFFFFF));
}
bool hostByAcl(const rmapNameValue& name, const asked& by, const uint8_t (&host)[16]) {
    return aclPermits<acl6>(name, by, packetOf(host, ipPrefixMake(AF_IPV6, host, 128).mask));
}
bool addressByAcl(const rmapNameValue& name, const asked& by) {
    const ipPrefix& prefix = by.route.prefix;
    return aclPermits<acl4>(name, by, packetOf(firstWord(prefix.address), firstWord(prefix.mask)));
}
bool addressByAcl6(const rmapNameValue& name, const asked& by) {
    return aclPermits<acl6>(name, by, packetOf(by.route.prefix.address, by.route.prefix.mask));
}

bool prefixPermits(const rmapNameValue& name, const asked& by, const ipPrefix& prefix) {
    // The clauses of a place in the class of the other family register with no store.
    const auto* list = name.list != nullptr ? rmapListOf<prefixList>(name)
                                            : ipPrefixListFind(name.name, prefix.family);
    if (by.counts) return prefixFilterCheck(list, prefix) == 0;
    const prefixEntry* entry = list != nullptr ? prefixFilterFind(list, prefix) : nullptr;
    return entry != nullptr && entry->record->action != PREFIX_DENY;
}
bool hostByPrefix(const rmapNameValue& name, const asked& by, uint32_t host) {
    if (!isOf(AF_IPV4, by)) return false;
    be32 bytes;
    bytes = host;
    return prefixPermits(name, by,
                         ipPrefixMake(AF_IPV4, reinterpret_cast<const uint8_t*>(&bytes), 32));
}
bool hostByPrefix(const rmapNameValue& name, const asked& by, const uint8_t (&host)[16]) {
    return isOf(AF_IPV6, by) && prefixPermits(name, by, ipPrefixMake(AF_IPV6, host, 128));
}
template <uint32_t Family>
bool addressByPrefix(const rmapNameValue& name, const asked& by) {
    return isOf(Family, by) && prefixPermits(name, by, by.route.prefix);
}
bool pathPermits(const rmapNameValue& name, const asked& by) {
    return aspathListCheck(rmapListOf<bgpList>(name), by.route.asPath, nullptr) ==
           BGP_VERDICT_PERMIT;
}
template <bool Exact>
bool commPermits(const rmapNameValue& name, const asked& by) {
    return commListCheck(rmapListOf<bgpList>(name), by.route.communities, Exact, nullptr) ==
           BGP_VERDICT_PERMIT;
}
bool extCommPermits(const rmapNameValue& name, const asked& by) {
    return extCommListCheck(rmapListOf<bgpList>(name), by.route.extCommunities, nullptr) ==
           BGP_VERDICT_PERMIT;
}
template <auto Host>
bool hostAcl(const rmapNameValue& name, const asked& by) {
    return hostByAcl(name, by, by.route.*Host);
}
template <auto Host>
bool hostPrefix(const rmapNameValue& name, const asked& by) {
    return hostByPrefix(name, by, by.route.*Host);
}

struct listRow {
    uint32_t code;
    listTest test;
};
constexpr listRow listRows[] = {
    {RTMAP_MATCH_ASP, pathPermits},
    {RTMAP_MATCH_ACC, addressByAcl},
    {RTMAP_MATCH_NHOP, hostAcl<&rmapRoute::nextHop>},
    {RTMAP_MATCH_COMM, commPermits<false>},
    {RTMAP_MATCH_COMM_EXACT, commPermits<true>},
    {RTMAP_MATCH_IPADD_ACL, addressByAcl},
    {RTMAP_MATCH_SRC, hostAcl<&rmapRoute::source>},
    {RTMAP_MATCH_V6_NHOP, hostAcl<&rmapRoute::nextHop6>},
    {RTMAP_MATCH_V6_SRC, hostAcl<&rmapRoute::source6>},
    {RTMAP_MATCH_IPV6ADD_ACL, addressByAcl6},
    {RTMAP_MATCH_IPADD_PREFIX, addressByPrefix<AF_IPV4>},
    {RTMAP_MATCH_IPV6ADD_PREFIX, addressByPrefix<AF_IPV6>},
    {RTMAP_MATCH_NHOP_PREFIX, hostPrefix<&rmapRoute::nextHop>},
    {RTMAP_MATCH_SRC_PREFIX, hostPrefix<&rmapRoute::source>},
    {RTMAP_MATCH_V6_NHOP_PREFIX, hostPrefix<&rmapRoute::nextHop6>},
    {RTMAP_MATCH_V6_SRC_PREFIX, hostPrefix<&rmapRoute::source6>},
    {RTMAP_MATCH_EXT_COMM, extCommPermits},
};

template <class Row, size_t N>
const Row* rowOf(const Row (&rows)[N], uint32_t code) {
    const Row* row = std::ranges::find(rows, code, &Row::code);
    return row != std::end(rows) ? row : nullptr;
}

}  // namespace

// --- the program --------------------------------------------------------------------------------

namespace {

// A match clause. Numbers stand in the program's array, one of them in the test itself; the values
// of a list clause are its records'.
struct matchTest {
    listTest lists;  // null: numbers
    uint32_t field;  // of numbers: numberField; FIELDS: a clause that nothing can match
    uint32_t count;  // of numbers
    uint32_t only;   // the number, when there is one
    uint32_t firstNumber;
    const rmapEntry* entry;
};

struct programInstance {
    uint32_t firstTest, tests;
    int32_t seq;
    uint32_t action;
    rmapInstance* instance;
    const rmapEntry* continues;  // null: the verdict stands
};

}  // namespace

struct rmapProgram {
    std::vector<programInstance> instances;
    std::vector<matchTest> tests;
    std::vector<uint32_t> numbers;
};

namespace {

void addTest(rmapProgram* program, const rmapEntry& entry) {
    matchTest test{};
    test.entry = &entry;
    test.field = FIELDS;
    if (const listRow* row = rowOf(listRows, entry.code)) {
        test.lists = row->test;
    } else if (const numberRow* number = rowOf(numberRows, entry.code)) {
        test.field = number->field;
        test.firstNumber = static_cast<uint32_t>(program->numbers.size());
        auto add = [&](uint32_t value) {
            program->numbers.push_back(value);
            test.only = value;
            test.count++;
        };
        for (const rmapNumberValue* value = entry.numbers; value != nullptr; value = value->next) {
            add(value->value);
            if (number->field != FIELD_ROUTE_TYPE || value->value != ROUTE_TYPE_EXTERNAL) continue;
            add(ROUTE_TYPE_EXTERNAL_1);
            add(ROUTE_TYPE_EXTERNAL_2);
        }
    }
    program->tests.push_back(test);
}

std::unique_ptr<rmapProgram> compile(const rmapList& map) {
    auto program = std::make_unique<rmapProgram>();
    for (rmapInstance* instance = map.first; instance != nullptr; instance = instance->next) {
        programInstance& made = program->instances.emplace_back();
        made.firstTest = static_cast<uint32_t>(program->tests.size());
        made.seq = instance->seq;
        made.action = instance->action;
        made.instance = instance;
        for (const rmapEntry* entry = instance->first; entry != nullptr; entry = entry->next) {
            if (entry->header != 0) continue;
            if (entry->cls == RTMAP_CONTINUE) made.continues = entry;
            if (entry->cls != RTMAP_MS_MATCH && entry->cls != RTMAP_MS_V6_MATCH) continue;
            addTest(program.get(), *entry);
        }
        made.tests = static_cast<uint32_t>(program->tests.size()) - made.firstTest;
    }
    // What is quick to see comes first.
    for (const programInstance& made : program->instances)
        std::stable_partition(program->tests.begin() + made.firstTest,
                              program->tests.begin() + made.firstTest + made.tests,
                              [](const matchTest& test) { return test.lists == nullptr; });
    return program;
}

// Readers of several threads may come to an absent program at once: the first one's stays.
const rmapProgram* programOf(const rmapList& map) {
    std::atomic_ref<rmapProgram*> slot(const_cast<rmapList&>(map).program);
    if (const rmapProgram* there = slot.load(std::memory_order_acquire)) return there;
    auto made = compile(map);
    rmapProgram* there = nullptr;
    if (slot.compare_exchange_strong(there, made.get(), std::memory_order_acq_rel))
        return made.release();
    return there;
}

bool numbersHold(const rmapProgram& program, const matchTest& test, const routeNumbers& numbers) {
    if (test.field == FIELDS) return false;
    const uint32_t value = numbers[test.field];
    if (test.count == 1) return value == test.only;
    const auto first = program.numbers.begin() + test.firstNumber;
    return std::find(first, first + test.count, value) != first + test.count;
}

const rmapNameValue* listThatHolds(const matchTest& test, const asked& by) {
    const rmapNameValue* name = test.entry->names;
    while (name != nullptr && !test.lists(*name, by)) name = name->next;
    return name;
}

// --- the evaluation -----------------------------------------------------------------------------

struct tracer {
    std::vector<rmapStep>* steps;  // null: nobody asks
    size_t instanceStep = 0;

    void instance(const programInstance& instance) {
        if (steps == nullptr) return;
        instanceStep = steps->size();
        steps->push_back({instance.instance, nullptr, false, nullptr, nullptr});
    }
    void clause(const rmapEntry& entry, bool holds, const rmapNameValue* name,
                const rmapNumberValue* number) {
        if (steps != nullptr) steps->push_back({entry.instance, &entry, holds, name, number});
    }
    void holds() {
        if (steps != nullptr) (*steps)[instanceStep].holds = true;
    }
};

const rmapNumberValue* numberThatHolds(const matchTest& test, const routeNumbers& numbers) {
    const rmapNumberValue* value = test.entry->numbers;
    while (value != nullptr && test.field != FIELDS && value->value != numbers[test.field] &&
           !(test.field == FIELD_ROUTE_TYPE && value->value == ROUTE_TYPE_EXTERNAL))
        value = value->next;
    return value;
}

bool instanceHolds(const rmapProgram& program, const programInstance& instance, const asked& by,
                   const routeNumbers& numbers, tracer* trace) {
    const matchTest* test = program.tests.data() + instance.firstTest;
    for (uint32_t i = 0; i < instance.tests; i++, test++) {
        bool holds;
        const rmapNameValue* name = nullptr;
        if (test->lists != nullptr) {
            name = listThatHolds(*test, by);
            holds = name != nullptr;
        } else {
            holds = numbersHold(program, *test, numbers);
        }
        if (trace->steps != nullptr)
            trace->clause(
                *test->entry, holds, name,
                holds && test->lists == nullptr ? numberThatHolds(*test, numbers) : nullptr);
        if (!holds) return false;
    }
    return true;
}

void applySets(const rmapInstance& instance, rmapRoute* out, tracer* trace) {
    for (const rmapEntry* entry = instance.first; entry != nullptr; entry = entry->next) {
        if (entry->header != 0 || (entry->cls != RTMAP_MS_SET && entry->cls != RTMAP_MS_V6_SET))
            continue;
        if (!rmapSetApply(*entry, out)) continue;
        trace->clause(*entry, true, entry->kind == RMAP_KIND_LIST ? entry->names : nullptr,
                      entry->kind == RMAP_KIND_NUMBER ? entry->numbers : nullptr);
    }
}

// Where the search goes on behind an instance that holds.
size_t continuation(const rmapProgram& program, size_t at) {
    const rmapEntry& clause = *program.instances[at].continues;
    if (clause.continueTarget <= program.instances[at].seq) return at + 1;
    auto target = std::lower_bound(
        program.instances.begin(), program.instances.end(), clause.continueTarget,
        [](const programInstance& instance, int32_t seq) { return instance.seq < seq; });
    return static_cast<size_t>(target - program.instances.begin());
}

int check(const rmapList& map, const rmapRoute& route, rmapRoute* out, tracer trace) {
    const rmapProgram& program = *programOf(map);
    routeNumbers numbers;
    numbers[FIELD_ORIGIN] = route.origin;
    numbers[FIELD_ROUTE_TYPE] = route.routeType;
    numbers[FIELD_IFINDEX] = route.ifindex;
    numbers[FIELD_METRIC] = route.metric;
    numbers[FIELD_TAG] = route.tag;

    const asked by{route, trace.steps == nullptr};
    rmapRoute result;
    bool permitted = false;
    for (size_t at = 0; at < program.instances.size();) {
        const programInstance& instance = program.instances[at];
        trace.instance(instance);
        if (!instanceHolds(program, instance, by, numbers, &trace)) {
            at++;
            continue;
        }
        trace.holds();
        if (by.counts) hitCountAdd(instance.instance->hits);
        if (instance.action == RMAP_DENY) return 1;
        if (!permitted) result = route;
        permitted = true;
        applySets(*instance.instance, &result, &trace);
        if (instance.continues == nullptr) break;
        trace.clause(*instance.continues, true, nullptr, instance.continues->numbers);
        at = continuation(program, at);
    }
    if (!permitted) return 1;
    if (out != nullptr) *out = std::move(result);
    return 0;
}

}  // namespace

int ipRoutemapCheck(const rmapList* map, const rmapRoute& route, rmapRoute* out,
                    std::vector<rmapStep>* trace) {
    if (map == nullptr) return 1;
    try {
        return check(*map, route, out, {trace});
    } catch (const std::bad_alloc&) {
        return 1;  // what cannot be evaluated is not let through
    }
}

void rmapProgramDrop(rmapList* map) {
    delete map->program;
    map->program = nullptr;
}
