// What a download does: from its bytes to an operation of the data plane, or to a refusal.
#include "chassis/agent/tables.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <vector>

namespace {

constexpr auto refuse = agentRefuse;
constexpr auto absent = agentAbsent;

void dropPending(agentTables* tables) {
    tables->pending = {};
}

// What downloads change.
void* target(const agentTables& tables) {
    return tables.replay == agentReplay::beside ? tables.staged : tables.plane.inForce;
}

// The list that entries of a message belong to, or null: none there, or one of another name. A list
// that a replay list by list has not brought yet is an old one.
const dpList* installed(const agentTables& tables, const dpList& like) {
    if (tables.replay == agentReplay::byList && !tables.touched.contains(like.place))
        return nullptr;
    const dpList* list = tables.plane.find(target(tables), like.place);
    return list != nullptr && list->name == like.name ? list : nullptr;
}

// What has been staged comes into force list by list, and so does the rest of the replay.
void goByList(agentTables* tables) {
    // Noted before the merge, which leaves the staged set empty.
    tables->plane.walk(tables->staged, [tables](const dpList& list) {
        tables->touched.insert(list.place);
        return true;
    });
    tables->plane.merge(tables->plane.inForce, tables->staged);
    tables->staged = nullptr;
    tables->replay = agentReplay::byList;
}

// Changes the target; when there is no room beside what is in force, that itself.
bool change(agentTables* tables, const std::function<bool(void* set)>& fn) {
    if (fn(target(*tables))) return true;
    if (tables->replay != agentReplay::beside) return false;
    goByList(tables);
    return fn(tables->plane.inForce);
}

agentVerdict done(agentTables* tables, uint32_t id, bool success) {
    if (!success)
        return refuse(tables, agentRefusal::dataplane, id, "the data plane has refused it");
    return agentApplied(tables);
}

agentVerdict installList(agentTables* tables, uint32_t id, gathering&& g) {
    dpList& list = g.list;
    dpPlace place = list.place;
    bool success = change(tables, [&](void* set) { return tables->plane.install(set, list); });
    if (success && tables->replay == agentReplay::byList) tables->touched.insert(std::move(place));
    return done(tables, id, success);
}

agentVerdict addEntry(agentTables* tables, uint32_t id, gathering&& g) {
    dpList& list = g.list;
    if (installed(*tables, list) == nullptr)
        return refuse(tables, agentRefusal::list, id,
                      "list " + std::string(listNameView(list.name)) +
                          " is not installed on interface " + std::to_string(list.ifindex));
    // The same number again replaces the entry.
    const dpEntry& entry = list.entries.begin()->second;
    return done(tables, id, change(tables, [&](void* set) {
                    return tables->plane.putEntry(set, list.place, entry);
                }));
}

// The manager deletes a list first and then, on LAGs and VLANs, its entries one by one: an entry
// whose list is gone is no error.
agentVerdict removeEntry(agentTables* tables, uint32_t id, gathering&& g) {
    dpList& list = g.list;
    const dpList* there = installed(*tables, list);
    uint32_t key = list.entries.begin()->first;
    if (there == nullptr || !there->entries.contains(key)) return absent(tables);
    return done(tables, id, change(tables, [&](void* set) {
                    return tables->plane.removeEntry(set, list.place, key);
                }));
}

agentVerdict removeList(agentTables* tables, uint32_t id, gathering&& g) {
    dpList& list = g.list;
    if (installed(*tables, list) == nullptr) return absent(tables);
    return done(tables, id, tables->plane.remove(target(*tables), list.place));
}

// Entries of system lists come for interfaces that the list itself was never sent to.
agentVerdict addContent(agentTables* tables, uint32_t id, gathering&& g) {
    dpList& list = g.list;
    // Two entries of one message may be the same.
    if (installed(*tables, list) == nullptr) {
        const auto given = std::move(list.entries);
        dpListClear(&list);
        for (const auto& [arrival, entry] : given)
            if (dpListFindContent(list, entry) == nullptr) dpListPut(&list, entry);
        return installList(tables, id, std::move(g));
    }
    // One by one, and looked up each time: a change may have copied the list.
    for (auto& row : list.entries) {
        dpEntry& entry = row.second;
        const dpList* now = installed(*tables, list);
        if (dpListFindContent(*now, entry) != nullptr) continue;
        entry.key = now->lastKey + 1;
        if (!change(tables,
                    [&](void* set) { return tables->plane.putEntry(set, list.place, entry); }))
            return done(tables, id, false);
    }
    return done(tables, id, true);
}

agentVerdict removeContent(agentTables* tables, uint32_t id, gathering&& g) {
    dpList& list = g.list;
    bool any = false;
    for (const auto& [arrival, entry] : list.entries) {
        const dpList* now = installed(*tables, list);
        const dpEntry* found = now != nullptr ? dpListFindContent(*now, entry) : nullptr;
        if (found == nullptr) continue;
        uint32_t key = found->key;
        if (!change(tables,
                    [&](void* set) { return tables->plane.removeEntry(set, list.place, key); }))
            return done(tables, id, false);
        any = true;
    }
    return any ? done(tables, id, true) : absent(tables);
}

agentVerdict removeSystem(agentTables* tables, uint32_t id, gathering&& g) {
    auto* remove = g.list.entries.empty() ? removeList : removeContent;
    return remove(tables, id, std::move(g));
}

agentVerdict clearList(agentTables* tables, uint32_t id, gathering&& g) {
    const dpList* there = installed(*tables, g.list);
    if (there == nullptr) return absent(tables);
    g.list = *there;
    dpListClear(&g.list);
    return installList(tables, id, std::move(g));
}

agentVerdict renumberLists(agentTables* tables, uint32_t id, gathering&& g) {
    std::vector<dpNumber>& numbers = g.numbers;
    std::vector<uint32_t> to;
    for (const dpNumber& n : numbers) to.push_back(n.to);
    std::ranges::sort(numbers);
    std::ranges::sort(to);
    auto sameFrom = [](const dpNumber& a, const dpNumber& b) { return a.from == b.from; };
    if (std::ranges::adjacent_find(numbers, sameFrom) != numbers.end() ||
        std::ranges::adjacent_find(to) != to.end())
        return refuse(tables, agentRefusal::number, id, "two entries would be one");
    // Every place is looked at before the first one changes.
    std::vector<dpPlace> places;
    bool fits = true;
    auto isOf = [](const auto& held, const dpNumber& n) { return held.first == n.from; };
    tables->plane.walk(target(*tables), [&](const dpList& list) {
        const dpPlace& place = list.place;
        bool old = tables->replay == agentReplay::byList && !tables->touched.contains(place);
        if (place.kind != g.list.place.kind || list.name != g.list.name || old) return true;
        fits = fits && std::ranges::equal(list.entries, numbers, isOf);
        places.push_back(place);
        return true;
    });
    if (!fits)
        return refuse(tables, agentRefusal::number, id,
                      "list " + std::string(listNameView(g.list.name)) + " has other numbers");
    if (places.empty()) return absent(tables);
    return done(tables, id, change(tables, [&](void* set) {
                    return tables->plane.renumber(set, places, numbers);
                }));
}

// What a kind of message does with its list when all of it is there: verified, its entries in
// list.entries.
typedef agentVerdict (*applyFn)(agentTables* tables, uint32_t id, gathering&& g);
// In the order of agentOp.
constexpr applyFn operations[] = {installList,  addEntry,   removeEntry,
                                  removeList,   addContent, removeContent,
                                  removeSystem, clearList,  renumberLists};
static_assert(std::size(operations) == static_cast<size_t>(agentOp::renumber) + 1);

std::string numbers(const char* what, uint64_t said, uint64_t found) {
    return std::string(what) + " " + std::to_string(said) + ", found " + std::to_string(found);
}

// The message continues what is being put together.
bool continues(const gathering& g, const download& d) {
    return d.kind->id == agentMessageKind(g.id)->next && d.list.name == g.list.name &&
           d.list.place == g.list.place;
}

// A message that begins: checks that its kind may carry what it carries, and takes its list.
agentVerdict begin(agentTables* tables, download& d) {
    const messageKind& kind = *d.kind;
    // An added entry and the rest of a list come under one id; only the rest may have many.
    if (kind.op == agentOp::add && (d.more || d.carried > 1))
        return refuse(tables, agentRefusal::order, kind.id, "continues a list that has not begun");
    if (d.more && kind.next == 0)
        return refuse(tables, agentRefusal::order, kind.id, "does not come in chunks");
    if (d.carried < kind.fewest || d.carried > kind.most)
        return refuse(tables, agentRefusal::count, kind.id, std::to_string(d.carried) + " entries");
    // Nobody makes the agent collect more than can ever be installed.
    if (d.count > tables->plane.capacity(tables->plane.inForce))
        return refuse(tables, agentRefusal::dataplane, kind.id,
                      "no room for " + std::to_string(d.count) + " entries");
    tables->pending = {kind.id, d.count, std::move(d.list), {}};
    return agentVerdict::pending;
}

// A message, the first included, of the list that is being put together.
agentVerdict proceed(agentTables* tables, const download& d) {
    gathering* g = &tables->pending;
    const uint32_t id = g->id, all = g->count;
    const bool renumbers = d.kind->op == agentOp::renumber;
    const uint64_t have = (renumbers ? g->numbers.size() : g->list.entries.size()) + d.carried;
    // All chunks of a list but the last have the whole list's count, the last has its own. Of a
    // renumbering all have the whole one, and it is over when that many have come.
    const bool more = renumbers ? have < all : d.more;
    const bool whole = more || renumbers ? d.count == all : true;
    if (!whole || (more ? have >= all : have != all)) {
        dropPending(tables);
        return refuse(tables, agentRefusal::count, id, numbers("entries of all chunks", all, have));
    }
    if (renumbers) {
        agentCollect(&g->numbers, d.images);
    } else if (!agentCollect(&g->list, d.images)) {
        dropPending(tables);
        return refuse(tables, agentRefusal::number, id, "a sequence number comes twice");
    }
    if (more) return agentVerdict::pending;
    // What is applied is no longer pending, whatever becomes of it.
    gathering taken = std::move(*g);
    dropPending(tables);
    return operations[static_cast<size_t>(agentMessageKind(id)->op)](tables, id, std::move(taken));
}

// --- settings of the card, which are about no list ---

agentVerdict keepProtocolFilter(agentTables* tables, std::span<const uint8_t> message) {
    if (message.size() < sizeof(agentHdr))
        return refuse(tables, agentRefusal::length, MT_ACLMAC_PROTOCOL_FILTER,
                      "shorter than a download's header");
    const auto words = message.subspan(sizeof(agentHdr));
    tables->protocolFilter.assign(words.begin(), words.end());
    tables->protocolFilters++;
    return done(tables, MT_ACLMAC_PROTOCOL_FILTER, true);
}

agentVerdict keepMacEgress(agentTables* tables, std::span<const uint8_t> message) {
    const auto* body = wireView<agentMacEgressBody>(message, sizeof(agentHdr));
    if (body == nullptr || message.size() != sizeof(agentHdr) + sizeof *body)
        return refuse(tables, agentRefusal::length, MT_AGENT_MAC_EGRESS, "is not one word");
    if (body->enable > 1)
        return refuse(tables, agentRefusal::value, MT_AGENT_MAC_EGRESS, "is neither 0 nor 1");
    tables->macEgress = body->enable == 1;
    tables->plane.enforceMacEgress(tables->plane.inForce, tables->macEgress);
    return done(tables, MT_AGENT_MAC_EGRESS, true);
}

agentVerdict take(agentTables* tables, std::span<const uint8_t> message) {
    const auto* hdr = wireView<ipcHdr>(message);
    if (hdr == nullptr) return refuse(tables, agentRefusal::length, 0, "shorter than a header");
    if (hdr->mtype == MT_ACLMAC_PROTOCOL_FILTER) return keepProtocolFilter(tables, message);
    if (hdr->mtype == MT_AGENT_MAC_EGRESS) return keepMacEgress(tables, message);
    const messageKind* kind = agentMessageKind(hdr->mtype);
    if (kind == nullptr) {
        tables->notKept++;
        return agentVerdict::notKept;
    }
    download d{};
    const std::optional<agentFault> fault = agentDecode(*kind, message, &d);
    // Before the message itself: what it interrupts will never be whole, and a place keeps the list
    // that it had.
    if (tables->pending.id != 0 && (fault || !continues(tables->pending, d))) {
        const uint32_t id = tables->pending.id;
        std::string why = "list " + std::string(listNameView(tables->pending.list.name)) +
                          " was not sent to its end";
        dropPending(tables);
        if (!fault) (void)refuse(tables, agentRefusal::order, id, why);
    }
    if (fault) return refuse(tables, fault->why, kind->id, fault->what);
    if (tables->pending.id == 0 && begin(tables, d) == agentVerdict::refused)
        return agentVerdict::refused;
    return proceed(tables, d);
}

}  // namespace

agentVerdict agentTablesApply(agentTables* tables, std::span<const uint8_t> message) {
    tables->messages++;
    try {
        return take(tables, message);
    } catch (const std::bad_alloc&) {
        dropPending(tables);
        return refuse(tables, agentRefusal::dataplane, 0, "no memory");
    }
}

void agentTablesReplayBegin(agentTables* tables) {
    agentTablesReplayDrop(tables);
    const dataplane& plane = tables->plane;
    bool anything = false;
    plane.walk(plane.inForce, [&anything](const dpList&) { return anything = true, false; });
    // Without anything in force a second set would only keep the first lists back.
    if (anything) tables->staged = plane.stage(plane.inForce);
    tables->replay = tables->staged != nullptr ? agentReplay::beside : agentReplay::byList;
    tables->refusedBefore = agentRefused(*tables);
}

bool agentTablesReplayEnd(agentTables* tables) {
    const dataplane& plane = tables->plane;
    if (tables->pending.id != 0)
        (void)refuse(tables, agentRefusal::order, tables->pending.id, "was not sent to its end");
    // A list that was cut off counts: it was refused just now.
    bool whole = agentRefused(*tables) == tables->refusedBefore;
    if (tables->replay == agentReplay::byList)
        tables->byLists++;
    else if (!whole)
        goByList(tables);
    if (tables->replay == agentReplay::beside) {
        plane.exchange(plane.inForce, tables->staged);
        tables->staged = nullptr;
    } else if (whole) {
        // Aside first: a data plane need not bear changes inside its walk.
        std::vector<dpPlace> old;
        plane.walk(plane.inForce, [&](const dpList& list) {
            if (!tables->touched.contains(list.place)) old.push_back(list.place);
            return true;
        });
        for (const dpPlace& place : old) (void)plane.remove(plane.inForce, place);
    }
    tables->exchanges++;
    agentTablesReplayDrop(tables);
    return whole;
}

void agentTablesReplayDrop(agentTables* tables) {
    dropPending(tables);
    if (tables->staged != nullptr) tables->plane.discard(tables->staged);
    tables->staged = nullptr;
    tables->touched.clear();
    tables->replay = agentReplay::none;
}
