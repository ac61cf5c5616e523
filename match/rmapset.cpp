// What the set clauses of a route map do to a route that it permits, one row a clause.
#include "match/rmapset.h"

#include <algorithm>
#include <cstring>

#include "match/zekBgp.h"

namespace {

uint32_t moved(uint32_t metric, const rmapNumberValue& by) {
    switch (by.subValue) {
        case RMAP_METRIC_ADD:
            return metric > UINT32_MAX - by.value ? UINT32_MAX : metric + by.value;
        case RMAP_METRIC_SUBTRACT:
            return metric < by.value ? 0 : metric - by.value;
        default:
            return by.value;
    }
}

template <class Value, class Same>
void addOnce(std::vector<Value>* values, const Value& value, Same same) {
    for (const Value& v : *values)
        if (same(v, value)) return;
    values->push_back(value);
}

void setCommunities(const rmapCommunity& set, rmapRoute* out) {
    if (set.none != 0 || set.additive == 0) out->communities.clear();
    if (set.none != 0) return;
    auto add = [out](uint32_t community) {
        addOnce(&out->communities, community, std::equal_to<uint32_t>());
    };
    if (set.number != 0) add(set.number);
    // A number stands alone in the clause's line, and counts alone.
    const uint32_t count = set.number != 0 ? 0 : std::min<uint32_t>(set.count, RMAP_COMMUNITIES);
    for (uint32_t i = 0; i < count; i++) add(set.high[i] << 16 | (set.low[i] & 0xFFFF));
    if (set.localAs != 0) add(COMMUNITY_LOCAL_AS);
    if (set.noAdvertise != 0) add(COMMUNITY_NO_ADVERTISE);
    if (set.noExport != 0) add(COMMUNITY_NO_EXPORT);
}

void setExtCommunities(const rmapExtCommunity& set, rmapRoute* out) {
    if (set.additive == 0) out->extCommunities.clear();
    const uint32_t count = std::min<uint32_t>(set.count, RMAP_EXTCOMMS);
    for (uint32_t i = 0; i < count; i++)
        addOnce(&out->extCommunities, set.values[i],
                [](const extCommValue& a, const extCommValue& b) {
                    return std::memcmp(a.b, b.b, sizeof a.b) == 0;
                });
}

void prepend(const rmapPrepend& set, rmapRoute* out) {
    std::string path;
    const uint32_t count = std::min<uint32_t>(set.count, RMAP_PREPENDS);
    for (uint32_t i = 0; i < count; i++) {
        if (!path.empty()) path += ' ';
        path += std::to_string(uint32_t{set.as[i]});
    }
    if (!path.empty() && !out->asPath.empty()) path += ' ';
    out->asPath.insert(0, path);
}

// Each community that the list permits by itself goes.
void deleteCommunities(const rmapNameValue& name, rmapRoute* out) {
    const bgpList* list =
        name.list != nullptr ? rmapListOf<bgpList>(name) : bgpCommAccessListFind(name.name);
    std::erase_if(out->communities, [list](uint32_t community) {
        return commListCheck(list, {&community, 1}, false, nullptr) == BGP_VERDICT_PERMIT;
    });
}

uint32_t firstAsOf(const std::string& path) {
    size_t digit = path.find_first_of("0123456789");
    return digit == path.npos ? 0 : static_cast<uint32_t>(std::strtoul(&path[digit], nullptr, 10));
}

uint32_t numberOf(const rmapEntry& entry) {
    return entry.numbers != nullptr ? entry.numbers->value : 0;
}

struct setRow {
    uint32_t code;
    void (*apply)(const rmapEntry& entry, rmapRoute* out);
};
constexpr setRow setRows[] = {
    {RTMAP_SET_LPREF,
     [](const rmapEntry& e, rmapRoute* out) { out->localPreference = numberOf(e); }},
    {RTMAP_SET_WEIGHT, [](const rmapEntry& e, rmapRoute* out) { out->weight = numberOf(e); }},
    {RTMAP_SET_NHOP, [](const rmapEntry& e, rmapRoute* out) { out->nextHop = numberOf(e); }},
    {RTMAP_SET_MET,
     [](const rmapEntry& e, rmapRoute* out) {
         if (e.numbers != nullptr) out->metric = moved(out->metric, *e.numbers);
     }},
    {RTMAP_SET_ASP,
     [](const rmapEntry& e, rmapRoute* out) { out->asPath = std::to_string(numberOf(e)); }},
    {RTMAP_SET_COMM,
     [](const rmapEntry& e, rmapRoute* out) {
         if (e.payload != nullptr) setCommunities(e.payload->community, out);
     }},
    {RTMAP_SET_AUTOTAG,
     [](const rmapEntry&, rmapRoute* out) { out->tag = firstAsOf(out->asPath); }},
    {RTMAP_SET_LEVEL, [](const rmapEntry& e, rmapRoute* out) { out->level = numberOf(e); }},
    {RTMAP_SET_METTYPE, [](const rmapEntry& e, rmapRoute* out) { out->metricType = numberOf(e); }},
    {RTMAP_SET_ASPTAG,
     [](const rmapEntry&, rmapRoute* out) { out->asPath = std::to_string(out->tag); }},
    {RTMAP_SET_ORIGIN, [](const rmapEntry& e, rmapRoute* out) { out->origin = numberOf(e); }},
    {RTMAP_SET_PREPEND,
     [](const rmapEntry& e, rmapRoute* out) {
         if (e.payload != nullptr) prepend(e.payload->prepend, out);
     }},
    {RTMAP_SET_COMMLIST,
     [](const rmapEntry& e, rmapRoute* out) {
         if (e.names != nullptr) deleteCommunities(*e.names, out);
     }},
    {RTMAP_SET_DAMP,
     [](const rmapEntry& e, rmapRoute* out) {
         if (e.payload != nullptr) std::ranges::copy(e.payload->dampening, out->dampening);
     }},
    {RTMAP_SET_TAG, [](const rmapEntry& e, rmapRoute* out) { out->tag = numberOf(e); }},
    {RTMAP_SET_V6_NHOP,
     [](const rmapEntry& e, rmapRoute* out) {
         if (e.payload != nullptr)
             std::memcpy(out->nextHop6, e.payload->ipv6NextHop, sizeof out->nextHop6);
     }},
    {RTMAP_SET_EXT_COMM,
     [](const rmapEntry& e, rmapRoute* out) {
         if (e.payload != nullptr) setExtCommunities(e.payload->extCommunity, out);
     }},
};

}  // namespace

bool rmapSetApply(const rmapEntry& entry, rmapRoute* out) {
    const setRow* row = std::ranges::find(setRows, entry.code, &setRow::code);
    if (row == std::end(setRows)) return false;
    row->apply(entry, out);
    return true;
}
