// What a download does: from its bytes to an operation of the data plane, or to a refusal.
#include "chassis/agent/tables.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <numeric>
#include <vector>

namespace {

// What a kind of message does with its list when all of it is there: verified, its entries in
// list.entries.
typedef agentVerdict (*applyFn)(agentTables* tables, uint32_t id, dpList&& list);
struct operation {
    uint32_t fewest, most;  // entries
    bool chunks;            // may come in several messages
    applyFn apply;
};
constexpr uint32_t ANY = 0xFFFFFFFF;
constexpr uint8_t VLAN_GROUP_LAST = 8;

agentVerdict installList(agentTables* tables, uint32_t id, dpList&& list);
agentVerdict addEntry(agentTables* tables, uint32_t id, dpList&& list);
agentVerdict removeEntry(agentTables* tables, uint32_t id, dpList&& list);
agentVerdict removeList(agentTables* tables, uint32_t id, dpList&& list);
agentVerdict addSystem(agentTables* tables, uint32_t id, dpList&& list);
agentVerdict removeSystem(agentTables* tables, uint32_t id, dpList&& list);

constexpr operation LIST{0, ANY, true, installList};  // continued under the next message id
constexpr operation ADD{1, 1, false, addEntry};
constexpr operation DELETE{1, 1, false, removeEntry};
constexpr operation DELETE_LIST{0, 0, false, removeList};
constexpr operation SYS_ADD{1, ANY, true, addSystem};        // continued under its own id
constexpr operation SYS_DELETE{0, ANY, true, removeSystem};  // the same; without entries the list

struct messageKind {
    uint32_t id;
    agentListKind kind;
    uint32_t direction;
    const operation* op;
};

// By id, for the look-up. MAC lists are another agent's.
constexpr messageKind messageKinds[] = {
    {MT_ACL_ADDLIST, AGENT_LIST_IP4, 0, &LIST},
    {MT_ACL_ADDENT, AGENT_LIST_IP4, 0, &ADD},
    {MT_ACL_DELENT, AGENT_LIST_IP4, 0, &DELETE},
    {MT_ACL_DELLIST, AGENT_LIST_IP4, 0, &DELETE_LIST},
    {MT_ACL_SYS_ADDLIST, AGENT_LIST_SYSTEM, 0, &LIST},
    {MT_ACL_SYS_ADDENT, AGENT_LIST_SYSTEM, 0, &SYS_ADD},
    {MT_ACL_SYS_DEL, AGENT_LIST_SYSTEM, 0, &SYS_DELETE},
    {MT_ACL_EGR_ADDLIST, AGENT_LIST_IP4, 1, &LIST},
    {MT_ACL_EGR_ADDENT, AGENT_LIST_IP4, 1, &ADD},
    {MT_ACL_EGR_DELENT, AGENT_LIST_IP4, 1, &DELETE},
    {MT_ACL_EGR_DELLIST, AGENT_LIST_IP4, 1, &DELETE_LIST},
    {MT_DOS_ADDLIST, AGENT_LIST_DOS, 0, &LIST},
    {MT_DOS_ADDENT, AGENT_LIST_DOS, 0, &ADD},
    {MT_DOS_DELLIST, AGENT_LIST_DOS, 0, &DELETE_LIST},
    {MT_DOS_DELENT, AGENT_LIST_DOS, 0, &DELETE},
    {MT_ACL_V6_SYS_ADDLIST, AGENT_LIST_SYSTEM6, 0, &LIST},
    {MT_ACL_V6_SYS_ADDENT, AGENT_LIST_SYSTEM6, 0, &SYS_ADD},
    {MT_ACL_V6_SYS_DEL, AGENT_LIST_SYSTEM6, 0, &SYS_DELETE},
    {MT_ACL_V6_ADDLIST, AGENT_LIST_IP6, 0, &LIST},
    {MT_ACL_V6_ADDENT, AGENT_LIST_IP6, 0, &ADD},
    {MT_ACL_V6_DELENT, AGENT_LIST_IP6, 0, &DELETE},
    {MT_ACL_V6_DELLIST, AGENT_LIST_IP6, 0, &DELETE_LIST},
    {MT_ACL_V6_EGR_ADDLIST, AGENT_LIST_IP6, 1, &LIST},
    {MT_ACL_V6_EGR_ADDENT, AGENT_LIST_IP6, 1, &ADD},
    {MT_ACL_V6_EGR_DELENT, AGENT_LIST_IP6, 1, &DELETE},
    {MT_ACL_V6_EGR_DELLIST, AGENT_LIST_IP6, 1, &DELETE_LIST},
};
static_assert(std::ranges::is_sorted(messageKinds, {}, &messageKind::id));

const messageKind* kindOf(uint32_t id) {
    const auto* row = std::ranges::lower_bound(messageKinds, id, {}, &messageKind::id);
    return row != std::ranges::end(messageKinds) && row->id == id ? row : nullptr;
}

bool isSystem(agentListKind kind) {
    return kind == AGENT_LIST_SYSTEM || kind == AGENT_LIST_SYSTEM6;
}

// Returns its verdict, so that a check can say `return refuse(...)`.
constexpr auto refuse = agentTablesRefuse;

void dropPending(agentTables* tables) {
    tables->pendingId = 0;
    tables->pending = {};
}

// One message that has passed every check that needs no memory of earlier ones.
struct download {
    const messageKind* kind;
    bool more;
    uint32_t count;                    // as the list header has it
    uint32_t carried;                  // entries in the message
    dpList list;                       // without entries
    std::span<const uint8_t> entries;  // carried images
};

std::string numbers(const char* what, uint64_t said, uint64_t found) {
    return std::string(what) + " " + std::to_string(said) + ", found " + std::to_string(found);
}

bool isIpv6(agentListKind kind) {
    return kind == AGENT_LIST_IP6 || kind == AGENT_LIST_SYSTEM6;
}
size_t entrySize(agentListKind kind) {
    return isIpv6(kind) ? sizeof(agentEntry6) : sizeof(agentEntry);
}

// Both halves of every IPv4 entry must agree: a card programs some of its banks from either.
bool halvesAgree(agentListKind kind, std::span<const uint8_t> entries) {
    if (isIpv6(kind)) return true;
    for (size_t at = 0; at < entries.size(); at += sizeof(agentEntry)) {
        const auto* entry = wireView<agentEntry>(entries, at);
        if (std::memcmp(&entry->match, &entry->matchCopy, sizeof entry->match) != 0) return false;
    }
    return true;
}

// Fills *out, or refuses.
agentVerdict decode(agentTables* tables, const messageKind& kind, std::span<const uint8_t> message,
                    download* out) {
    auto no = [&](agentRefusal why, const std::string& what) {
        return refuse(tables, why, kind.id, what);
    };
    const auto* hdr = wireView<agentHdr>(message);
    const auto* list = wireView<agentListHdr>(message, sizeof(agentHdr));
    if (hdr == nullptr || list == nullptr)
        return no(agentRefusal::length, numbers("too short:", message.size(), message.size()));
    if (hdr->ipc.length != message.size())
        return no(agentRefusal::length, numbers("length word", hdr->ipc.length, message.size()));
    size_t body = message.size() - sizeof(agentHdr);
    if (hdr->bodyLen != body)
        return no(agentRefusal::bodyLength, numbers("body length word", hdr->bodyLen, body));

    size_t size = entrySize(kind.kind);
    size_t bytes = body - sizeof(agentListHdr);
    if (bytes % size != 0)
        return no(agentRefusal::count, std::to_string(bytes) + " bytes are not whole entries");
    out->kind = &kind;
    out->count = list->count;
    out->carried = static_cast<uint32_t>(bytes / size);
    out->entries = message.subspan(sizeof(agentHdr) + sizeof(agentListHdr));
    if (hdr->more > 1) return no(agentRefusal::order, "more-to-follow is neither 0 nor 1");
    out->more = hdr->more == 1;
    // A chunk that is not the last has fewer entries than the whole list, and at least one: a list
    // in chunks comes to an end.
    if (out->more ? out->carried == 0 || out->count <= out->carried : out->count != out->carried)
        return no(agentRefusal::count, numbers("entry count", out->count, out->carried));

    if (listNameIsEmpty(list->name)) return no(agentRefusal::name, "no list name");
    if (list->groupId > VLAN_GROUP_LAST) return no(agentRefusal::name, "no such VLAN group");
    if (!halvesAgree(kind.kind, out->entries))
        return no(agentRefusal::halves, "the two halves of an entry differ");

    // Nothing is copied before everything has been checked.
    out->list.place = dpPlaceMake(kind.kind, kind.direction, list->ifindex, list->groupId,
                                  listNameMake(list->name));
    out->list.name = listNameMake(list->name);
    out->list.ifindex = list->ifindex;
    out->list.listKind = list->kind;
    out->list.implicitPermit = list->option;
    out->list.portPipe = list->portPipe;
    out->list.onBehalfOfVlan = list->onBehalfOfVlan == 1;
    out->list.block = list->block;
    return agentVerdict::applied;
}

// The entry of a whole image. An IPv6 entry's hash leaves out what is only the manager's (links,
// id, match count) and has the sequence number in its middle, so there the content has it, too.
dpEntry entryOf(agentListKind kind, std::span<const uint8_t> image) {
    auto hashOf = [image](size_t from, size_t to) {
        return agentHash(image.subspan(from, to - from));
    };
    dpEntry entry;
    if (isIpv6(kind)) {
        entry.rule = agentRuleOf(*wireView<agentEntry6>(image));
        entry.hash = hashOf(offsetof(agentEntry6, block), offsetof(agentEntry6, id));
        if (isSystem(kind)) entry.content = entry.hash;
    } else {
        entry.rule = agentRuleOf(*wireView<agentEntry>(image));
        entry.hash = agentEntryHash(*wireView<agentEntry>(image));
        if (isSystem(kind))
            entry.content = hashOf(offsetof(agentEntry, action), sizeof(agentEntry));
    }
    entry.key = entry.rule.seq;
    return entry;
}

// The number that an entry of a system list came with says nothing.
bool sameContent(const dpEntry& a, const dpEntry& b) {
    if (a.content != b.content) return false;
    agentRule rule = a.rule;
    rule.seq = b.rule.seq;
    return rule == b.rule;
}

// The entry of a system list with this content, or null.
const dpEntry* findContent(const dpList& list, const dpEntry& wanted) {
    for (const auto& [key, entry] : list.entries)
        if (sameContent(entry, wanted)) return &entry;
    return nullptr;
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
    tables->applied++;
    return agentVerdict::applied;
}
agentVerdict absent(agentTables* tables) {
    tables->absent++;
    return agentVerdict::absent;
}

agentVerdict installList(agentTables* tables, uint32_t id, dpList&& list) {
    dpPlace place = list.place;
    bool success = change(tables, [&](void* set) { return tables->plane.install(set, list); });
    if (success && tables->replay == agentReplay::byList) tables->touched.insert(std::move(place));
    return done(tables, id, success);
}

agentVerdict addEntry(agentTables* tables, uint32_t id, dpList&& list) {
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
agentVerdict removeEntry(agentTables* tables, uint32_t id, dpList&& list) {
    const dpList* there = installed(*tables, list);
    uint32_t key = list.entries.begin()->first;
    if (there == nullptr || !there->entries.contains(key)) return absent(tables);
    return done(tables, id, change(tables, [&](void* set) {
                    return tables->plane.removeEntry(set, list.place, key);
                }));
}

agentVerdict removeList(agentTables* tables, uint32_t id, dpList&& list) {
    if (installed(*tables, list) == nullptr) return absent(tables);
    return done(tables, id, tables->plane.remove(target(*tables), list.place));
}

// Entries of system lists come for interfaces that the list itself was never sent to.
agentVerdict addSystem(agentTables* tables, uint32_t id, dpList&& list) {
    if (installed(*tables, list) == nullptr) return installList(tables, id, std::move(list));
    // One by one, and looked up each time: two entries of one message may be the same, and a change
    // may have copied the list.
    for (auto& row : list.entries) {
        dpEntry& entry = row.second;
        const dpList* now = installed(*tables, list);
        if (findContent(*now, entry) != nullptr) continue;
        entry.key = now->lastKey + 1;
        if (!change(tables,
                    [&](void* set) { return tables->plane.putEntry(set, list.place, entry); }))
            return done(tables, id, false);
    }
    return done(tables, id, true);
}

agentVerdict removeSystem(agentTables* tables, uint32_t id, dpList&& list) {
    if (list.entries.empty()) return removeList(tables, id, std::move(list));
    bool any = false;
    for (const auto& [arrival, entry] : list.entries) {
        const dpList* now = installed(*tables, list);
        const dpEntry* found = now != nullptr ? findContent(*now, entry) : nullptr;
        if (found == nullptr) continue;
        uint32_t key = found->key;
        if (!change(tables,
                    [&](void* set) { return tables->plane.removeEntry(set, list.place, key); }))
            return done(tables, id, false);
        any = true;
    }
    return any ? done(tables, id, true) : absent(tables);
}

// Puts the entries of a message behind those that the list has. False: a number comes twice.
bool collect(dpList* list, std::span<const uint8_t> images) {
    const agentListKind kind = list->place.kind;
    for (size_t at = 0; at < images.size(); at += entrySize(kind)) {
        dpEntry entry = entryOf(kind, images.subspan(at, entrySize(kind)));
        if (isSystem(kind)) entry.key = list->lastKey + 1;
        size_t before = list->entries.size();
        list->entries.emplace_hint(list->entries.end(), entry.key, entry);
        if (list->entries.size() == before) return false;
        list->lastKey = std::max(list->lastKey, entry.key);
    }
    return true;
}

// The chunk continues what is being put together.
bool continues(const agentTables& tables, const download& d) {
    // Batches of system entries keep their id, lists go on under the one behind theirs.
    const messageKind* first = kindOf(tables.pendingId);
    uint32_t next = first->op == &LIST ? first->id + 1 : first->id;
    return d.kind->id == next && d.list.name == tables.pending.name &&
           d.list.place == tables.pending.place;
}

// A message that begins: checks that its kind may carry what it carries, and takes its list.
agentVerdict begin(agentTables* tables, download& d) {
    const messageKind& kind = *d.kind;
    const operation& op = *kind.op;
    // An added entry and the rest of a list come under one id; only the rest may have many.
    if (op.apply == addEntry && (d.more || d.carried > 1))
        return refuse(tables, agentRefusal::order, kind.id, "continues a list that has not begun");
    if (d.more && !op.chunks)
        return refuse(tables, agentRefusal::order, kind.id, "does not come in chunks");
    if (d.carried < op.fewest || d.carried > op.most)
        return refuse(tables, agentRefusal::count, kind.id, std::to_string(d.carried) + " entries");
    // Nobody makes the agent collect more than can ever be installed.
    if (d.count > tables->plane.capacity(tables->plane.inForce))
        return refuse(tables, agentRefusal::dataplane, kind.id,
                      "no room for " + std::to_string(d.count) + " entries");
    tables->pendingId = kind.id;
    tables->pendingCount = d.count;
    tables->pending = std::move(d.list);
    return agentVerdict::pending;
}

// All chunks but the last have the whole list's count, the last has its own.
bool countsAgree(const agentTables& tables, const download& d) {
    uint64_t have = tables.pending.entries.size() + d.carried;
    return d.more ? d.count == tables.pendingCount && have < d.count : have == tables.pendingCount;
}

// A message, the first included, of the list that is being put together.
agentVerdict proceed(agentTables* tables, const download& d) {
    uint32_t id = tables->pendingId;
    if (!countsAgree(*tables, d)) {
        uint64_t have = tables->pending.entries.size() + d.carried;
        uint64_t all = tables->pendingCount;
        dropPending(tables);
        return refuse(tables, agentRefusal::count, id, numbers("entries of all chunks", all, have));
    }
    if (!collect(&tables->pending, d.entries)) {
        dropPending(tables);
        return refuse(tables, agentRefusal::number, id, "a sequence number comes twice");
    }
    if (d.more) return agentVerdict::pending;
    // What is applied is no longer pending, whatever becomes of it.
    dpList list = std::move(tables->pending);
    dropPending(tables);
    return kindOf(id)->op->apply(tables, id, std::move(list));
}

agentVerdict take(agentTables* tables, std::span<const uint8_t> message) {
    const auto* hdr = wireView<ipcHdr>(message);
    if (hdr == nullptr) return refuse(tables, agentRefusal::length, 0, "shorter than a header");
    const messageKind* kind = kindOf(hdr->mtype);
    if (kind == nullptr) {
        tables->notKept++;
        return agentVerdict::notKept;
    }
    download d{};
    agentVerdict verdict = decode(tables, *kind, message, &d);
    // Before the message itself: what it interrupts will never be whole, and a place keeps the list
    // that it had.
    if (tables->pendingId != 0 && (verdict == agentVerdict::refused || !continues(*tables, d))) {
        uint32_t id = tables->pendingId;
        std::string why =
            "list " + std::string(listNameView(tables->pending.name)) + " was not sent to its end";
        dropPending(tables);
        if (verdict != agentVerdict::refused) (void)refuse(tables, agentRefusal::order, id, why);
    }
    if (verdict == agentVerdict::refused) return verdict;
    if (tables->pendingId == 0 && begin(tables, d) == agentVerdict::refused)
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

agentVerdict agentTablesRefuse(agentTables* tables, agentRefusal why, uint32_t id,
                               const std::string& what) {
    tables->refused[static_cast<size_t>(why)]++;
    tables->lastError = "message " + std::to_string(id) + ": " + what;
    return agentVerdict::refused;
}

void agentTablesReplayBegin(agentTables* tables) {
    agentTablesReplayDrop(tables);
    const dataplane& plane = tables->plane;
    bool anything = false;
    plane.walk(plane.inForce, [&anything](const dpList&) { return anything = true, false; });
    // Without anything in force a second set would only keep the first lists back.
    if (anything) tables->staged = plane.stage(plane.inForce);
    tables->replay = tables->staged != nullptr ? agentReplay::beside : agentReplay::byList;
    tables->refusedBefore = agentTablesRefused(*tables);
}

bool agentTablesReplayEnd(agentTables* tables) {
    const dataplane& plane = tables->plane;
    bool cut = tables->pendingId != 0;
    if (cut)
        (void)refuse(tables, agentRefusal::order, tables->pendingId, "was not sent to its end");
    // A list that was cut off counts: it was refused just now.
    bool whole = agentTablesRefused(*tables) == tables->refusedBefore;
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

uint64_t agentTablesRefused(const agentTables& tables) {
    return std::accumulate(std::begin(tables.refused), std::end(tables.refused), uint64_t{0});
}
