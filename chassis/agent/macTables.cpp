// Messages to the MAC agent: verified, and kept in the tables.
#include "chassis/agent/macTables.h"

#include <algorithm>
#include <new>

namespace {

constexpr uint32_t INDEX_ID_MAX = 0x3FFF;  // of the id in a VLAN's index
constexpr uint32_t CPUS = 7;

macRows* target(macTables* tables) {
    return tables->replay == agentReplay::beside ? &tables->staged : &tables->inForce;
}

// A row that comes again replaces the one that is there.
template <class Map>
agentVerdict put(macTables* tables, uint32_t id, Map macRows::*rows,
                 const typename Map::key_type& key, const typename Map::mapped_type& row) {
    macRows* set = target(tables);
    if (set->size() >= tables->capacity && !(set->*rows).contains(key))
        return agentRefuse(tables, agentRefusal::dataplane, id,
                           "no room for more than " + std::to_string(tables->capacity) + " rows");
    (set->*rows).insert_or_assign(key, row);
    return agentApplied(tables);
}
template <class Map>
agentVerdict take(macTables* tables, Map macRows::*rows, const typename Map::key_type& key) {
    return (target(tables)->*rows).erase(key) != 0 ? agentApplied(tables) : agentAbsent(tables);
}

agentVerdict wrongValue(macTables* tables, uint32_t id, const char* what, uint32_t value) {
    return agentRefuse(tables, agentRefusal::value, id,
                       std::string(what) + " is " + std::to_string(value));
}

agentVerdict takeTrap(macTables* tables, const macTrapMsg& m) {
    if (m.one != 1) return wrongValue(tables, MT_MAC_TRAP, "the first word", m.one);
    if (m.zero != 0) return wrongValue(tables, MT_MAC_TRAP, "the second word", m.zero);
    if (m.enable > 1) return wrongValue(tables, MT_MAC_TRAP, "enable", m.enable);
    if (m.vlan > INDEX_ID_MAX) return wrongValue(tables, MT_MAC_TRAP, "the VLAN id", m.vlan);
    if ((m.cpus & ~CPUS) != 0 || (m.enable == 1 && m.cpus == 0))
        return wrongValue(tables, MT_MAC_TRAP, "the CPUs' word", m.cpus);
    macTrapKey key{m.ifindex, {}};
    std::ranges::copy(m.mac, key.mac.begin());
    if (m.enable == 0) return take(tables, &macRows::traps, key);
    return put(tables, MT_MAC_TRAP, &macRows::traps, key,
               {m.vlan, m.egressPort, m.mode, m.lda, m.cpus});
}

agentVerdict takeMember(macTables* tables, const macMemberMsg& m) {
    if (m.add > 1) return wrongValue(tables, MT_MAC_MEMBER, "add", m.add);
    if (m.vlan > INDEX_ID_MAX) return wrongValue(tables, MT_MAC_MEMBER, "the VLAN id", m.vlan);
    if (m.add == 1 && m.mcastId == 0)
        return wrongValue(tables, MT_MAC_MEMBER, "the group id", m.mcastId);
    const macMemberKey key{m.port, m.vlan};
    if (m.add == 0) return take(tables, &macRows::members, key);
    return put(tables, MT_MAC_MEMBER, &macRows::members, key, uint32_t{m.mcastId});
}

// The length word counts a download's header besides the message.
template <class Record>
agentVerdict takeAs(macTables* tables, std::span<const uint8_t> message,
                    agentVerdict (*fn)(macTables*, const Record&)) {
    const auto* record = wireView<Record>(message);
    const auto& hdr = *wireView<ipcHdr>(message);
    if (record == nullptr || message.size() != sizeof(Record))
        return agentRefuse(tables, agentRefusal::length, hdr.mtype,
                           std::to_string(message.size()) + " bytes");
    if (hdr.length != sizeof(Record) + sizeof(agentHdr))
        return agentRefuse(tables, agentRefusal::length, hdr.mtype,
                           "length word " + std::to_string(hdr.length));
    return fn(tables, *record);
}

agentVerdict apply(macTables* tables, std::span<const uint8_t> message) {
    const auto* hdr = wireView<ipcHdr>(message);
    if (hdr == nullptr)
        return agentRefuse(tables, agentRefusal::length, 0, "shorter than a header");
    if (hdr->mtype == MT_MAC_TRAP) return takeAs<macTrapMsg>(tables, message, takeTrap);
    if (hdr->mtype == MT_MAC_MEMBER) return takeAs<macMemberMsg>(tables, message, takeMember);
    tables->notKept++;
    return agentVerdict::notKept;
}

// What came comes into force, and the rest stays: a frame is trapped rather than not. That needs no
// memory; rows past the room are left to the replay that follows.
void merge(macTables* tables) {
    auto into = [&](auto& to, auto& from) {
        while (!from.empty()) {
            auto node = from.extract(from.begin());
            if (tables->inForce.size() < tables->capacity || to.contains(node.key())) {
                to.erase(node.key());
                to.insert(std::move(node));
            }
        }
    };
    into(tables->inForce.traps, tables->staged.traps);
    into(tables->inForce.members, tables->staged.members);
}

}  // namespace

agentVerdict macTablesApply(macTables* tables, std::span<const uint8_t> message) {
    tables->messages++;
    try {
        return apply(tables, message);
    } catch (const std::bad_alloc&) {
        return agentRefuse(tables, agentRefusal::dataplane, 0, "no memory");
    }
}

void macTablesReplayBegin(macTables* tables) {
    macTablesReplayDrop(tables);
    tables->replay = tables->inForce.size() != 0 ? agentReplay::beside : agentReplay::byList;
    tables->refusedBefore = agentRefused(*tables);
}

bool macTablesReplayEnd(macTables* tables) {
    const bool whole = agentRefused(*tables) == tables->refusedBefore;
    if (tables->replay == agentReplay::beside) {
        if (whole)
            std::swap(tables->inForce, tables->staged);
        else
            merge(tables);
    }
    tables->exchanges++;
    macTablesReplayDrop(tables);
    return whole;
}

void macTablesReplayDrop(macTables* tables) {
    tables->staged = {};
    tables->replay = agentReplay::none;
}
