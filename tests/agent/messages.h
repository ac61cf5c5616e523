// Download messages built byte by byte from the wire formats, not from the records that the agent
// decodes them with.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

typedef std::vector<uint8_t> bytes;

constexpr size_t HEADER = 132, LIST_HEADER = 1056, ENTRY4 = 392, ENTRY6 = 140;

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
    bytes m(HEADER + LIST_HEADER);
    for (const bytes& e : l.entries) m.insert(m.end(), e.begin(), e.end());
    put32(m, 8, static_cast<uint32_t>(m.size()));
    put32(m, 12, l.id);
    put32(m, 32, 61);
    put32(m, 44, 7810);
    put32(m, 124, l.more);
    put32(m, 128, static_cast<uint32_t>(m.size() - HEADER));
    std::copy(l.name.begin(), l.name.end(), m.begin() + HEADER + 169);
    put32(m, HEADER + 312,
          static_cast<uint32_t>(l.count >= 0 ? l.count : static_cast<int64_t>(l.entries.size())));
    put32(m, HEADER + 316, 2);
    put32(m, HEADER + 352, l.ifindex);
    m[HEADER + 908] = l.group;
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
        c.id = at == 0 ? l.id : l.id + 1;
        c.entries.assign(rest.begin(), last ? rest.end() : rest.begin() + per);
        c.more = last ? 0 : 1;
        c.count = static_cast<int64_t>(last ? rest.size() : l.entries.size());
        out.push_back(build(c));
    }
    return out;
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
