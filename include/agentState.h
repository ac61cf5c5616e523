// Asking an agent what it has installed: requests of a type of its own to the agent's request
// queue. docs/agent.md describes the texts of the answers.
#pragma once

#include <algorithm>
#include <iterator>
#include <span>
#include <string>

#include "include/agentMsg.h"

constexpr uint32_t MT_AGENT_STATE = 30001;

enum agentStateWhat : uint32_t {
    AGENT_STATE_SUMMARY = 1,
    AGENT_STATE_LISTS = 2,
    AGENT_STATE_ENTRIES = 3,
    AGENT_STATE_TRAPS = 4,    // of the MAC agent: addresses that are trapped
    AGENT_STATE_MEMBERS = 5,  // ports in VLANs and LAGs
};

// What an agent keeps apart: each has its own lists for one interface and direction.
enum agentListKind : uint32_t {
    AGENT_LIST_IP4 = 0,
    AGENT_LIST_IP6 = 1,
    AGENT_LIST_SYSTEM = 2,
    AGENT_LIST_SYSTEM6 = 3,
    AGENT_LIST_DOS = 4,
    AGENT_LIST_MAC = 5,
    AGENT_LIST_IPMAC = 6,      // who may send on an interface
    AGENT_LIST_MAC_LIMIT = 7,  // how many may
};
constexpr const char* agentListKindNames[] = {"ipv4", "ipv6", "system", "ipv6 system",
                                              "dos",  "mac",  "ip-mac", "mac-limit"};
constexpr uint32_t AGENT_LIST_KINDS = std::size(agentListKindNames);

struct agentStateReq {
    ipcHdr ipc;
    be32 what;       //  60  agentStateWhat
    listName name;   //  64  lists: only those of this name, empty for all; entries: the list
    be32 ifindex;    // 204  entries only, like the four words that follow
    be32 direction;  // 208  0 in, 1 out
    be32 index;      // 212  entries: the first number to show; others: skip so many
    be32 kind;       // 216  agentListKind
    be32 group;      // 220  VLAN group 1-8, or 0
};
WIRE_SIZE(agentStateReq, 224);
WIRE_AT(agentStateReq, name, 64);
WIRE_AT(agentStateReq, ifindex, 204);
WIRE_AT(agentStateReq, group, 220);

// The answer: the request's front with the triples exchanged, the status in header word 28, and
// JSON text from byte 204 to the length in the header. Long answers are longer than a datagram:
// take them with the transport's receive call and ZEK_MESSAGE_MAX.
constexpr size_t AGENT_STATE_TEXT_OFFSET = 204;
enum agentStateStatus : uint32_t {
    AGENT_STATE_OK = 0,
    AGENT_STATE_NOLIST = 1,  // nothing of that name is installed there
    AGENT_STATE_BAD = 2,     // not a request: too short, or an unknown question
};
// An answer stops here and names the index to go on with.
constexpr size_t AGENT_STATE_ROWS_MAX = 5000;

// 64-bit FNV-1a: two entries with the same hash hold the same bytes. `hash`: what it goes on from.
constexpr uint64_t AGENT_HASH_PRIME = 0x100000001B3u;
constexpr uint64_t AGENT_HASH_BEGIN = 0xCBF29CE484222325u;
constexpr uint64_t agentHash(std::span<const uint8_t> bytes, uint64_t hash = AGENT_HASH_BEGIN) {
    // Most of an entry is zeros, and over a zero byte a step is a multiplication: eight of them are
    // one with the eighth power.
    constexpr size_t RUN = 8;
    constexpr uint64_t square = AGENT_HASH_PRIME * AGENT_HASH_PRIME, fourth = square * square;
    while (!bytes.empty()) {
        auto run = bytes.first(std::min(bytes.size(), RUN));
        bytes = bytes.subspan(run.size());
        uint64_t any = 0;
        for (uint8_t b : run) any |= b;
        if (any == 0 && run.size() == RUN)
            hash *= fourth * fourth;
        else
            for (uint8_t b : run) hash = (hash ^ b) * AGENT_HASH_PRIME;
    }
    return hash;
}
// Goes on over one big-endian number of that type.
template <class Number>
constexpr uint64_t agentHashNumber(uint64_t hash, Number number) {
    for (int shift = 8 * sizeof number - 8; shift >= 0; shift -= 8)
        hash = (hash ^ (number >> shift & 255)) * AGENT_HASH_PRIME;
    return hash;
}

// The bytes of an entry from one field up to another one.
template <class Image>
std::span<const uint8_t> agentImageBytes(const Image& image, size_t from, size_t to) {
    return {reinterpret_cast<const uint8_t*>(&image) + from, to - from};
}
// What an entry says, whatever its number is: all bytes but the links, the sequence number and what
// only the manager knows (id, match count). Of a MAC entry, whose halves are equal, the first half.
inline uint64_t agentContentHash(const agentEntry& entry) {
    return agentHash(agentImageBytes(entry, offsetof(agentEntry, action), sizeof entry));
}
inline uint64_t agentContentHash(const agentEntry6& entry) {
    constexpr size_t block = offsetof(agentEntry6, block),
                     seq = block + offsetof(ip6EntryBlock, seq);
    return agentHash(agentImageBytes(entry, seq + sizeof(be32), offsetof(agentEntry6, id)),
                     agentHash(agentImageBytes(entry, block, seq)));
}
inline uint64_t agentContentHash(const agentMacEntry& entry) {
    constexpr size_t block = offsetof(agentMacEntry, block),
                     seq = block + offsetof(macEntryBlock, seq);
    uint64_t hash = agentHash(agentImageBytes(entry, block, seq));
    hash = agentHash(agentImageBytes(entry, seq + sizeof(be32), offsetof(agentMacEntry, blockCopy)),
                     hash);
    return agentHash(agentImageBytes(entry, offsetof(agentMacEntry, counterOptions), sizeof entry),
                     hash);
}
// The number comes last, so that an entry that gets another one needs no bytes.
constexpr uint64_t agentNumberedHash(uint64_t content, uint32_t seq) {
    return agentHashNumber(content, seq);
}
inline uint64_t agentEntryHash(const agentEntry& entry) {
    return agentNumberedHash(agentContentHash(entry), entry.seq);
}
template <class Image>  // of an IPv6 or MAC entry
uint64_t agentEntryHash(const Image& entry) {
    return agentNumberedHash(agentContentHash(entry), entry.block.seq);
}
// A hash as the answers show it: 16 hex digits.
inline std::string agentHashText(uint64_t hash) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4) text += digits[hash >> shift & 15];
    return text;
}
inline std::string agentHexText(std::span<const uint8_t> bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t b : bytes) {
        text += digits[b >> 4];
        text += digits[b & 15];
    }
    return text;
}
// Without the zeros at the end, which blocks are mostly all of.
inline std::string agentTrimmedHexText(std::span<const uint8_t> bytes) {
    while (!bytes.empty() && bytes.back() == 0) bytes = bytes.first(bytes.size() - 1);
    return agentHexText(bytes);
}
inline std::string agentBlockText(const bindingBlock& block) {
    return agentTrimmedHexText(block.b);
}
// Of a list: the hashes of its entries in their order, each as 8 big-endian bytes. The agents do
// not compute it; whoever compares two lists does.
struct agentListHash {
    uint64_t value = AGENT_HASH_BEGIN;

    constexpr void add(uint64_t entryHash) { value = agentHashNumber(value, entryHash); }
};
