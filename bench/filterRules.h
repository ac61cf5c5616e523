// Rules and packets for the filter benches, and the two references: the chain of blocks tried in
// order, and a hash table per pair of masks. Fixed seeds: every run measures the same.
#pragma once

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "include/entry.h"
#include "match/zekPolicy.h"

struct benchRule {
    uint32_t src, srcMask, dst, dstMask;
    uint16_t dstLow, dstHigh;
    uint8_t protocol;
};

inline uint32_t benchMask(uint32_t length) {
    return length != 0 ? 0xFFFFFFFFu << (32 - length) : 0;
}

// Source and destination nets come from pools, so that several rules share one; four in ten
// destinations are hosts, one in ten sources is any. Lengths as in customer filters, or, `spread`,
// all from 11 to 24: with any 210 pairs of masks.
inline std::vector<benchRule> benchRules(uint32_t count, bool spread) {
    std::mt19937 random(7);
    auto below = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    constexpr uint32_t usual[20] = {16, 20, 20, 22, 22, 22, 22, 24, 24, 24,
                                    24, 24, 24, 24, 24, 24, 24, 24, 24, 24};
    constexpr uint16_t ports[16][2] = {{22, 22},   {25, 25},      {53, 53},     {80, 80},
                                       {123, 123}, {161, 161},    {179, 179},   {443, 443},
                                       {445, 445}, {3306, 3306},  {5060, 5060}, {8080, 8080},
                                       {0, 65535}, {1024, 65535}, {6000, 6063}, {137, 139}};
    typedef std::vector<std::pair<uint32_t, uint32_t>> nets;
    auto pool = [&](uint32_t size) {
        nets made;
        for (uint32_t i = 0; i < size; i++) {
            uint32_t length = spread ? 11 + below(14) : usual[below(20)];
            uint32_t top = below(200) + 1;
            made.push_back({(top << 24 | below(1 << 24)) & benchMask(length), length});
        }
        return made;
    };
    nets sources = pool(std::max(64u, count / 8)), destinations = pool(std::max(64u, count / 4));
    std::vector<benchRule> rules;
    for (uint32_t i = 0; i < count; i++) {
        auto [src, srcLength] = sources[below(static_cast<uint32_t>(sources.size()))];
        auto [dst, dstLength] = destinations[below(static_cast<uint32_t>(destinations.size()))];
        if (below(10) < 4 && !spread) dst |= below(256) & ~benchMask(dstLength), dstLength = 32;
        if (below(10) == 0) src = 0, srcLength = 0;
        const uint16_t* port = ports[below(16)];
        rules.push_back({src, benchMask(srcLength), dst, benchMask(dstLength), port[0], port[1],
                         below(3) != 0 ? uint8_t{IP_PROTO_TCP} : uint8_t{IP_PROTO_UDP}});
    }
    return rules;
}

// Half of them lie in a rule, the others nearly always in none.
inline std::vector<ipPacket> benchPackets(const std::vector<benchRule>& rules, size_t count) {
    std::mt19937 random(9);
    auto word = [&] { return static_cast<uint32_t>(random()); };
    std::vector<ipPacket> packets(count);
    for (ipPacket& packet : packets) {
        bool hit = word() % 100 < 50;
        const benchRule& r = rules[word() % rules.size()];
        packet.src = hit ? r.src | (word() & ~r.srcMask) : word() | 0xE0000000;
        packet.dst = hit ? r.dst | (word() & ~r.dstMask) : word() | 0xE0000000;
        packet.protocol = hit ? r.protocol : uint8_t{IP_PROTO_TCP};
        packet.srcPort = static_cast<uint16_t>(word());
        packet.dstPort =
            static_cast<uint16_t>(hit ? r.dstLow + word() % (r.dstHigh - r.dstLow + 1u) : word());
    }
    return packets;
}

inline ipEntryBlock benchBlock(const benchRule& rule, uint32_t seq) {
    ipEntryBlock b{};
    b.kind = IP_KIND_EXTENDED;
    b.seq = seq;
    b.order = ORDER_NOT_GIVEN;
    b.precedence = b.tos = FIELD_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    b.protocol = rule.protocol;
    b.src = rule.src, b.srcMask = rule.srcMask;
    b.dst = rule.dst, b.dstMask = rule.dstMask;
    b.dstLow = rule.dstLow, b.dstHigh = rule.dstHigh;
    b.dstOperator = rule.dstLow == rule.dstHigh ? PORT_EQ : PORT_RANGE;
    return b;
}

// --- reference: the chain --------------------------------------------------------------------

inline const aclEntry* refChainFind(const aclEntry* entry, const ipPacket& p) {
    for (; entry != nullptr; entry = static_cast<const aclEntry*>(entry->next)) {
        const ipEntryBlock& b = entry->block;
        if (((p.src ^ b.src) & b.srcMask) == 0 && ((p.dst ^ b.dst) & b.dstMask) == 0 &&
            b.protocol == p.protocol && b.dstLow <= p.dstPort && p.dstPort <= b.dstHigh)
            break;
    }
    return entry;
}

// --- reference: a hash table per pair of masks, in the order of their first rules ------------

struct refTable {
    uint32_t srcMask, dstMask, first = ~0u;
    struct slot {
        uint64_t key;
        uint32_t head;
    };
    std::vector<slot> slots = std::vector<slot>(8, slot{0, ~0u});
    size_t used = 0;
    size_t find(uint64_t key) const {
        uint64_t h = (key ^ key >> 32) * 0x9E3779B97F4A7C15ull;
        size_t i = (h ^ h >> 29) & (slots.size() - 1);
        while (slots[i].head != ~0u && slots[i].key != key) i = (i + 1) & (slots.size() - 1);
        return i;
    }
};
struct refTables {
    const std::vector<benchRule>& rules;
    std::vector<uint32_t> next;
    std::vector<refTable> tables;

    explicit refTables(const std::vector<benchRule>& all) : rules(all), next(all.size(), ~0u) {
        std::map<std::pair<uint32_t, uint32_t>, size_t> known;
        for (uint32_t i = 0; i < rules.size(); i++) {
            auto [at, fresh] =
                known.emplace(std::pair{rules[i].srcMask, rules[i].dstMask}, tables.size());
            if (fresh) tables.push_back({rules[i].srcMask, rules[i].dstMask});
            add(tables[at->second], i);
        }
        std::ranges::sort(tables, {}, &refTable::first);
    }
    void add(refTable& t, uint32_t i) {
        t.first = std::min(t.first, i);
        uint64_t key = uint64_t{rules[i].src & t.srcMask} << 32 | (rules[i].dst & t.dstMask);
        size_t at = t.find(key);
        if (t.slots[at].head != ~0u) {
            uint32_t last = t.slots[at].head;
            while (next[last] != ~0u) last = next[last];
            next[last] = i;
            return;
        }
        t.slots[at] = {key, i};
        if (++t.used * 2 <= t.slots.size()) return;
        auto old = std::move(t.slots);
        t.slots.assign(old.size() * 2, {0, ~0u});
        for (const refTable::slot& s : old)
            if (s.head != ~0u) t.slots[t.find(s.key)] = s;
    }
    uint32_t find(const ipPacket& p) const {
        uint32_t best = ~0u;
        for (const refTable& t : tables) {
            if (t.first >= best) break;
            uint64_t key = uint64_t{p.src & t.srcMask} << 32 | (p.dst & t.dstMask);
            for (uint32_t i = t.slots[t.find(key)].head; i < best; i = next[i])
                if (rules[i].protocol == p.protocol && rules[i].dstLow <= p.dstPort &&
                    p.dstPort <= rules[i].dstHigh)
                    best = i;
        }
        return best;
    }
};
