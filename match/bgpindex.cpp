// The index beside a list, and the checks that use it.
//
// `order` holds the entries as they are chained, by ascending id. The entries with values stand
// moreover under one of their values each, so that an attribute is looked up value by value. The
// expressions of a list are matched in one pass by a set; a set is expensive to make, so readers
// ask one by one until they have spent what it costs, and every change throws it away. Readers hold
// the read lock and may be many: only `set` and its neighbours change under them.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "match/zekBgp.h"
#include "platform/api/zekBgpRegex.h"

typedef std::vector<const bgpEntry*> entryRow;  // by ascending id

struct bgpIndex {
    entryRow order;
    entryRow regexes;
    entryRow valueless;                              // value entries that list nothing
    std::unordered_map<uint64_t, entryRow> byValue;  // all other value entries

    mutable std::mutex setBuild;
    mutable std::atomic<zekbgp_regexSet*> set{nullptr};
    mutable std::atomic<uint32_t> walks{0};  // over the expressions, since the last change
};

namespace {

// A set costs about as much as this many walks over its expressions. A long walk is dear: each
// expression's automaton comes from memory. Below the least size a walk is as fast as a set.
constexpr uint32_t walksPerSet(size_t expressions) {
    return expressions < 256 ? 32 : 8;
}
constexpr size_t SET_LEAST = 3;
constexpr uint32_t SET_FAILED = 0x80000000;  // walks from here on: it is not tried again

// --- values ------------------------------------------------------------------------------------

// The values of an entry of either sort of community as whole words.
struct entryValues {
    uint64_t values[EXTCOMM_LIST_VALUES];
    size_t count = 0;
    std::span<const uint64_t> span() const { return {values, count}; }
};
static_assert(std::size(commValues{}.values) <= EXTCOMM_LIST_VALUES);

uint64_t valueWord(const extCommValue& value) {
    uint64_t word;
    static_assert(sizeof word == sizeof value);
    std::memcpy(&word, &value, sizeof word);
    return word;
}

entryValues valuesOf(bgpListKind kind, const bgpEntry* entry) {
    entryValues all;
    if (kind == BGP_COMM) {
        commValues values = bgpEntryCommunities(static_cast<const commEntry*>(entry)->block);
        for (uint32_t i = 0; i < values.count; i++) all.values[all.count++] = values.values[i];
    } else {
        const extCommBody& body = static_cast<const extCommEntry*>(entry)->rule.body;
        for (uint32_t i = 0; i < body.count; i++)
            all.values[all.count++] = valueWord(body.values[i]);
    }
    return all;
}

// --- rows --------------------------------------------------------------------------------------

bool idBelow(const bgpEntry* a, const bgpEntry* b) {
    return a->id < b->id;
}
bool eraseFrom(entryRow* row, const bgpEntry* entry) {
    auto at = std::lower_bound(row->begin(), row->end(), entry, idBelow);
    if (at == row->end() || *at != entry) return false;
    row->erase(at);
    return true;
}

// The row that an entry belongs to beside `order`: of its values the one that fewest share.
entryRow* rowOf(bgpIndex* index, bgpListKind kind, const bgpEntry* entry) {
    if (entry->regex != nullptr) return &index->regexes;
    const entryValues values = valuesOf(kind, entry);
    if (values.count == 0) return &index->valueless;
    uint64_t rarest = 0;
    size_t least = SIZE_MAX;
    for (uint64_t value : values.span()) {
        auto row = index->byValue.find(value);
        const size_t sharing = row != index->byValue.end() ? row->second.size() : 0;
        if (sharing < least) {
            least = sharing;
            rarest = value;
        }
    }
    return &index->byValue[rarest];
}

void removeByValue(bgpIndex* index, bgpListKind kind, const bgpEntry* entry) {
    const entryValues values = valuesOf(kind, entry);
    for (uint64_t value : values.span()) {
        auto at = index->byValue.find(value);
        if (at == index->byValue.end()) continue;
        (void)eraseFrom(&at->second, entry);
        if (at->second.empty()) index->byValue.erase(at);
    }
}

void dropSet(bgpIndex* index) {
    zekbgp_set_free(index->set.exchange(nullptr, std::memory_order_relaxed));
    index->walks.store(0, std::memory_order_relaxed);
}

// --- expressions -------------------------------------------------------------------------------

void buildSet(const bgpIndex& index) {
    std::unique_lock<std::mutex> building(index.setBuild, std::try_to_lock);
    if (!building || index.set.load(std::memory_order_relaxed) != nullptr) return;
    zekbgp_regexSet* set = nullptr;
    try {
        std::vector<const zekbgp_regex*> regexes;
        regexes.reserve(index.regexes.size());
        for (const bgpEntry* entry : index.regexes) regexes.push_back(entry->regex);
        set = zekbgp_setcomp(regexes);
    } catch (const std::bad_alloc&) {
    }
    if (set == nullptr) index.walks.store(SET_FAILED, std::memory_order_relaxed);
    index.set.store(set, std::memory_order_release);
}

const bgpEntry* walkExpressions(const entryRow& regexes, std::string_view text, uint32_t below) {
    for (const bgpEntry* entry : regexes) {
        if (entry->id >= below) break;
        if (zekbgp_regexec(entry->regex, text)) return entry;
    }
    return nullptr;
}

// The first entry with an id below the given one whose expression is found in the text.
const bgpEntry* firstExpression(const bgpIndex& index, std::string_view text, uint32_t below) {
    if (index.regexes.size() < SET_LEAST) return walkExpressions(index.regexes, text, below);
    const zekbgp_regexSet* set = index.set.load(std::memory_order_acquire);
    uint32_t walks = index.walks.load(std::memory_order_relaxed);
    if (set == nullptr && walks < SET_FAILED) {
        index.walks.store(walks + 1, std::memory_order_relaxed);  // about right is enough
        if (walks >= walksPerSet(index.regexes.size())) {
            buildSet(index);
            set = index.set.load(std::memory_order_acquire);
        }
    }
    if (set != nullptr && walks < SET_FAILED) {
        int first = zekbgp_setexec(set, text);
        if (first == ZEKBGP_NO_MATCH) return nullptr;
        if (first >= 0) {
            const bgpEntry* entry = index.regexes[static_cast<size_t>(first)];
            return entry->id < below ? entry : nullptr;
        }
        index.walks.store(SET_FAILED, std::memory_order_relaxed);
    }
    return walkExpressions(index.regexes, text, below);
}

// --- values ------------------------------------------------------------------------------------

// An attribute's values: sorted, each once.
typedef std::vector<uint64_t> attributeValues;

void sortValues(attributeValues* values) {
    std::sort(values->begin(), values->end());
    values->erase(std::unique(values->begin(), values->end()), values->end());
}

bool valuesMatch(entryValues entry, const attributeValues& attribute, bool exact) {
    for (uint64_t value : entry.span())
        if (!std::ranges::binary_search(attribute, value)) return false;
    if (!exact) return true;
    std::sort(entry.values, entry.values + entry.count);
    const auto* end = std::unique(entry.values, entry.values + entry.count);
    return static_cast<size_t>(end - entry.values) == attribute.size();
}

const bgpEntry* firstValues(const bgpIndex& index, bgpListKind kind,
                            const attributeValues& attribute, bool exact) {
    const bgpEntry* first = nullptr;
    if (!index.valueless.empty() && (!exact || attribute.empty())) first = index.valueless.front();
    if (index.byValue.empty()) return first;
    for (uint64_t value : attribute) {
        auto row = index.byValue.find(value);
        if (row == index.byValue.end()) continue;
        for (const bgpEntry* entry : row->second) {
            if (first != nullptr && entry->id >= first->id) break;
            if (!valuesMatch(valuesOf(kind, entry), attribute, exact)) continue;
            first = entry;
            break;
        }
    }
    return first;
}

int verdict(const bgpEntry* entry, const bgpEntry** decided) {
    if (decided != nullptr) *decided = entry;
    return entry == nullptr || entry->action == BGP_DENY ? BGP_VERDICT_DENY : BGP_VERDICT_PERMIT;
}

// Entries of values first: they are cheap, and what they find is what expressions must come before.
template <class Text>
int check(const bgpList* list, const attributeValues& attribute, bool exact, Text text,
          const bgpEntry** decided) {
    const bgpIndex& index = *list->index;
    const bgpEntry* entry = firstValues(index, list->kind, attribute, exact);
    const uint32_t below = entry != nullptr ? entry->id : UINT32_MAX;
    if (!index.regexes.empty() && index.regexes.front()->id < below)
        if (const bgpEntry* earlier = firstExpression(index, text(), below)) entry = earlier;
    return verdict(entry, decided);
}

}  // namespace

bgpIndex* bgpIndexMake() {
    return new (std::nothrow) bgpIndex;
}

void bgpIndexFree(bgpIndex* index) {
    if (index == nullptr) return;
    dropSet(index);
    delete index;
}

bool bgpIndexAdd(bgpIndex* index, bgpListKind kind, const bgpEntry* entry) {
    try {
        entryRow* row = rowOf(index, kind, entry);
        row->push_back(entry);
        try {
            index->order.push_back(entry);
        } catch (const std::bad_alloc&) {
            row->pop_back();
            throw;
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (entry->regex != nullptr) dropSet(index);
    return true;
}

void bgpIndexRemove(bgpIndex* index, bgpListKind kind, const bgpEntry* entry) {
    (void)eraseFrom(&index->order, entry);
    if (entry->regex != nullptr) {
        (void)eraseFrom(&index->regexes, entry);
        dropSet(index);
    } else if (!eraseFrom(&index->valueless, entry)) {
        removeByValue(index, kind, entry);
    }
}

const bgpEntry* bgpIndexAt(const bgpIndex* index, size_t position) {
    return position < index->order.size() ? index->order[position] : nullptr;
}

int aspathListCheck(const bgpList* list, std::string_view path, const bgpEntry** decided) {
    if (list == nullptr) return verdict(nullptr, decided);
    return verdict(firstExpression(*list->index, path, UINT32_MAX), decided);
}

int commListCheck(const bgpList* list, std::span<const uint32_t> communities, bool exact,
                  const bgpEntry** decided) {
    if (list == nullptr) return verdict(nullptr, decided);
    thread_local attributeValues attribute;
    attribute.assign(communities.begin(), communities.end());
    sortValues(&attribute);
    return check(
        list, attribute, exact, [&] { return bgpCommunityText(communities); }, decided);
}

int extCommListCheck(const bgpList* list, std::span<const extCommValue> communities,
                     const bgpEntry** decided) {
    if (list == nullptr) return verdict(nullptr, decided);
    thread_local attributeValues attribute;
    attribute.clear();
    for (const extCommValue& value : communities) attribute.push_back(valueWord(value));
    sortValues(&attribute);
    return check(
        list, attribute, false, [&] { return bgpExtCommunityText(communities); }, decided);
}
