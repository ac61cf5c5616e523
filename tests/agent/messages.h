// Download messages built byte by byte from the wire formats, not from the records that the agent
// decodes them with.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

typedef std::vector<uint8_t> bytes;

constexpr size_t HEADER = 132, LIST_HEADER = 1056, ENTRY4 = 392, ENTRY6 = 140;
constexpr size_t LIST_HEADER_MAC = 784, ENTRY_MAC = 184;

inline void put32(bytes& m, size_t at, uint32_t v) {
    for (size_t i = 0; i < 4; i++) m[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
inline uint32_t get32(const bytes& m, size_t at) {
    uint32_t v = 0;
    for (size_t i = 0; i < 4; i++) v = v << 8 | m[at + i];
    return v;
}

// An IPv4 entry that denies or permits one source address.
inline bytes entry4(uint32_t seq, uint32_t src, uint32_t action = 1) {
    bytes e(ENTRY4);
    put32(e, 4, seq);
    put32(e, 8, action);
    put32(e, 56, src);
    put32(e, 60, 0xFFFFFFFF);
    put32(e, 96, 17);
    put32(e, 116, 1);
    e[124] = 0x12;
    e[125] = 0x34;
    std::copy(e.begin() + 56, e.begin() + 200, e.begin() + 204);
    put32(e, 388, 1);
    return e;
}
inline bytes entry6(uint32_t seq, uint32_t src) {
    bytes e(ENTRY6);
    put32(e, 16, 1);
    put32(e, 20, src);
    put32(e, 92, seq);
    return e;
}

inline bytes entryMac(uint32_t seq, uint32_t src) {
    bytes e(ENTRY_MAC);
    put32(e, 8, 1);
    put32(e, 12, seq);
    put32(e, 18, src);  // the last four bytes of the address
    put32(e, 40, 2);
    std::copy(e.begin() + 8, e.begin() + 64, e.begin() + 64);
    put32(e, 132, 1);
    return e;
}

// Where the words of a list header stand.
struct headerForm {
    size_t length, name, count, kind, ifindex;
};
constexpr headerForm headerOf(uint32_t id) {
    bool mac = id >= 14484 && id <= 14499;
    return mac ? headerForm{LIST_HEADER_MAC, 16, 180, 172, 184}
               : headerForm{LIST_HEADER, 169, 312, 316, 352};
}
// An entry of the family that the message is about.
inline bytes entryOf(uint32_t id, uint32_t seq, uint32_t src) {
    if (headerOf(id).length == LIST_HEADER_MAC) return entryMac(seq, src);
    return id >= 14530 && id <= 14540 ? entry6(seq, src) : entry4(seq, src);
}
// The id of what continues such a message.
constexpr uint32_t continuationOf(uint32_t id) {
    if (id == 14541) return 14543;
    bool same = id == 14414 || id == 14415 || id == 14531 || id == 14532 || id >= 14543 ||
                (id >= 14490 && id <= 14494);
    return same ? id : id + 1;
}

struct listMessage {
    uint32_t id;
    std::string name;
    uint32_t ifindex;
    std::vector<bytes> entries;
    uint32_t more = 0;
    int64_t count = -1;  // -1: as many as there are
    uint8_t group = 0;
};

inline bytes build(const listMessage& l) {
    const headerForm form = headerOf(l.id);
    bytes m(HEADER + form.length);
    for (const bytes& e : l.entries) m.insert(m.end(), e.begin(), e.end());
    put32(m, 8, static_cast<uint32_t>(m.size()));
    put32(m, 12, l.id);
    put32(m, 32, 61);
    put32(m, 44, 7810);
    put32(m, 124, l.more);
    put32(m, 128, static_cast<uint32_t>(m.size() - HEADER));
    std::copy(l.name.begin(), l.name.end(), m.begin() + static_cast<ptrdiff_t>(HEADER + form.name));
    put32(m, HEADER + form.count,
          static_cast<uint32_t>(l.count >= 0 ? l.count : static_cast<int64_t>(l.entries.size())));
    put32(m, HEADER + form.kind, 2);
    put32(m, HEADER + form.ifindex, l.ifindex);
    if (form.length == LIST_HEADER) m[HEADER + 908] = l.group;
    return m;
}

// A whole list as the sender cuts it: 17 entries a message, the next id from the second on, the
// whole count in all but the last.
inline std::vector<bytes> chunks(const listMessage& l, uint32_t per = 17) {
    std::vector<bytes> out;
    for (size_t at = 0; at == 0 || at < l.entries.size(); at += per) {
        listMessage c = l;
        auto rest = std::span(l.entries).subspan(at);
        bool last = rest.size() <= per;
        c.id = at == 0 ? l.id : continuationOf(l.id);
        c.entries.assign(rest.begin(), last ? rest.end() : rest.begin() + per);
        c.more = last ? 0 : 1;
        c.count = static_cast<int64_t>(last ? rest.size() : l.entries.size());
        out.push_back(build(c));
    }
    return out;
}

// One message of a renumbering: some of its pairs, and how many entries the list has. Its length
// word is more than its length.
inline bytes bundle(const std::string& name, uint32_t family, size_t entries,
                    std::span<const std::pair<uint32_t, uint32_t>> pairs) {
    bytes m(8192);
    put32(m, 8, 8324);
    put32(m, 12, 14429);
    std::copy(name.begin(), name.end(), m.begin() + 124);
    const size_t words[] = {family, pairs.size(), entries, pairs.empty() ? 0u : 1u};
    for (size_t i = 0; i < 4; i++) put32(m, 264 + 4 * i, static_cast<uint32_t>(words[i]));
    for (size_t i = 0; i < pairs.size(); i++) {
        put32(m, 280 + 8 * i, pairs[i].first);
        put32(m, 284 + 8 * i, pairs[i].second);
    }
    return m;
}

// Where a replay begins (1) or ends (2).
inline bytes mark(uint32_t what, uint32_t number) {
    bytes m(HEADER + 12);
    put32(m, 8, static_cast<uint32_t>(m.size()));
    put32(m, 12, 30003);
    put32(m, 128, 12);
    put32(m, HEADER, what);
    put32(m, HEADER + 4, number);
    return m;
}

// To a MAC agent: their length words count a download's header as well.
struct trapMessage {
    uint32_t ifindex;
    uint64_t mac;
    uint32_t enable = 1, cpus = 2, vlan = 0, egressPort = 0, mode = 0, lda = 0;
};
inline bytes trap(const trapMessage& t) {
    bytes m(164);
    const std::pair<size_t, uint32_t> words[] = {{8, 296},
                                                 {12, 18841},
                                                 {124, 1},
                                                 {132, t.ifindex},
                                                 {136, static_cast<uint32_t>(t.mac >> 16)},
                                                 {144, t.enable},
                                                 {148, t.vlan << 16},
                                                 {152, t.mode},
                                                 {156, t.lda},
                                                 {160, t.cpus}};
    for (const auto& [at, word] : words) put32(m, at, word);
    const uint32_t halves[] = {static_cast<uint32_t>(t.mac), t.egressPort};
    for (size_t i = 0; i < 2; i++) {
        m[140 + 2 * i] = static_cast<uint8_t>(halves[i] >> 8);
        m[141 + 2 * i] = static_cast<uint8_t>(halves[i]);
    }
    return m;
}
inline bytes member(uint32_t add, uint32_t port, uint32_t vlan, uint32_t group) {
    bytes m(140);
    const std::pair<size_t, uint32_t> words[] = {{8, 272},    {12, 30005}, {124, add},
                                                 {128, port}, {132, vlan}, {136, group}};
    for (const auto& [at, word] : words) put32(m, at, word);
    return m;
}
