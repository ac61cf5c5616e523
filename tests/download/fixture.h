// The send path on the recording platform, with the real task around it: cards, lists made by hand,
// and messages as they must be, put together byte by byte from docs/wire-agent.md.
#pragma once

#include <deque>
#include <numeric>

#include "download/zekacl_download.h"
#include "tests/task/fixture.h"

typedef std::vector<uint8_t> bytes;
typedef std::vector<std::string> texts;
typedef std::vector<uint32_t> numbers;

// Words from `at` on.
inline void put32(bytes& b, size_t at, std::initializer_list<uint32_t> values) {
    for (uint32_t v : values)
        for (uint32_t shift = 32; shift > 0; at++)
            b.at(at) = static_cast<uint8_t>(v >> (shift -= 8));
}
inline uint32_t get32(const bytes& b, size_t at) {
    return msgWord(b.data(), static_cast<uint32_t>(at));
}
inline void putText(bytes& b, size_t at, const std::string& text) {
    std::copy(text.begin(), text.end(), b.begin() + static_cast<ptrdiff_t>(at));
}
inline bytes operator+(bytes a, const bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

constexpr uint32_t AGENT_CARD = 0x7F010100;  // plus the slot: the address of a card's agents
constexpr uint32_t PORT_3_1 = 0x08080000;    // slot 3, user port 1
constexpr uint32_t PORT_3_2 = 0x080C0000;
constexpr uint32_t PORT_4_0 = 0x0A040000;
constexpr uint32_t PORT_5_0 = 0x0C040000;
constexpr uint32_t LAG_7 = 0x00030007, LAG_8 = 0x00030008;
constexpr uint32_t VLAN_10 = 0x0003800A;

// A list outside every store, with `n` entries that are numbered 5, 10, ... Each byte of a block
// differs from its neighbours and from the same byte of the entries beside it, so that one in the
// wrong place shows.
template <class Entry>
struct madeList {
    aclList list{};
    std::deque<Entry> entries;
    explicit madeList(uint32_t n, const std::string& name = "edge") : entries(n) {
        list.name = listNameMake(name);
        list.kind = 2;
        list.placeholder = 3;
        list.lastEntryId = 0xABCD;
        list.count = static_cast<int32_t>(n);
        list.highestSeq = 5 * n;
        uint32_t i = 0;
        listEntry** last = &list.head;
        for (Entry& e : entries) {
            auto* block = reinterpret_cast<uint8_t*>(&e.block);
            std::iota(block, block + sizeof e.block, static_cast<uint8_t>(i + 1));
            if constexpr (std::is_same_v<Entry, aclEntry>)
                e.block.protocol = std::array<uint8_t, 4>{6, 17, 1, 50}[i % 4];
            if constexpr (std::is_same_v<Entry, l2AclEntry>) e.counterOptions = 0x51515151 + i;
            e.id = ++i;
            e.block.seq = 5 * i;
            e.matchCount = 1000 + i;
            e.log = 0x01020304 + i;
            e.monitor = 0x05060708 + i;
            *last = &e;
            last = &e.next;
        }
    }
};

// --- what agents and tasks must be sent ----------------------------------------------------------

// The header of a list; what it says of its binding is what the tests give.
struct wantHeader {
    std::string name = "edge";
    uint32_t count = 1, kind = 2, ifindex = PORT_3_1, option = 7, runCount = 1, vlan = 0;
    uint8_t group = 0, pipe = 0, block = 0xB5;
    std::string groupName{};
    uint32_t lastEntryId = 0, placeholder = 0;  // of MAC lists
};
inline bytes headerBytes(const wantHeader& w) {
    bytes b(1056);
    putText(b, 169, w.name);
    put32(b, 312, {w.count, w.kind});
    put32(b, 352, {w.ifindex, 0, 0, w.option});
    put32(b, 896, {w.runCount, 0, w.vlan});
    std::fill_n(b.begin() + 372, 520, w.block);
    b[908] = w.group;
    b[909] = w.pipe;
    putText(b, 910, w.groupName);
    return b;
}
inline bytes macHeaderBytes(const wantHeader& w) {
    bytes b(784);
    putText(b, 16, w.name);
    put32(b, 168, {w.lastEntryId, w.kind, w.placeholder, w.count, w.ifindex});
    std::fill_n(b.begin() + 188, 520, w.block);
    return b;
}

// An image that begins with 8 bytes of links, and then the block and words.
template <class Block>
bytes imageOf(size_t size, const Block& block, size_t times,
              std::initializer_list<uint32_t> words) {
    const auto* from = reinterpret_cast<const uint8_t*>(&block);
    bytes b(size);
    size_t at = 8;
    for (; times > 0; times--, at += sizeof block)
        std::copy_n(from, sizeof block, b.begin() + static_cast<ptrdiff_t>(at));
    put32(b, at, words);
    return b;
}
inline bytes imageBytes(const acl6Entry& e) {
    return imageOf(140, e.block, 1, {e.log, e.monitor, e.id, e.matchCount});
}
inline bytes imageBytes(const l2AclEntry& e) {
    return imageOf(184, e.block, 2, {e.id, e.counterOptions, e.log, e.monitor});
}
inline bytes imageBytes(const aclEntry& e) {
    const auto* from = reinterpret_cast<const uint8_t*>(&e.block);
    const uint8_t protocol = from[53];
    typedef std::array<ptrdiff_t, 3> run;  // from the block, into the image, bytes
    std::vector<run> runs{{64, 4, 4},    {23, 11, 1},   {52, 15, 1},   {0, 16, 12},  {24, 56, 12},
                          {36, 68, 28},  {53, 99, 1},   {16, 100, 4},  {68, 108, 4}, {56, 112, 4},
                          {72, 136, 56}, {148, 192, 4}, {152, 196, 4}, {12, 380, 4}};
    if (protocol == 6) runs.push_back({144, 107, 1});
    if (protocol == 6 || protocol == 17) runs.push_back({128, 116, 16});
    if (protocol == 1) runs.push_back({128, 132, 4});
    bytes b(392);
    for (auto [block, at, length] : runs) std::copy_n(from + block, length, b.begin() + at);
    b[39] = static_cast<uint8_t>(e.log);
    put32(b, 388, {e.monitor});
    std::copy_n(b.begin() + 56, 144, b.begin() + 204);
    return b;
}

// The message around a body, for a card's agent unless another address is given.
inline bytes messageBytes(uint32_t id, uint32_t slot, uint32_t more, const bytes& body,
                          uint32_t address = 0, uint32_t service = 0) {
    bytes b(132);
    const auto length = static_cast<uint32_t>(body.size());
    put32(b, 8, {132 + length, id});
    if (address == 0) address = AGENT_CARD + slot;
    if (service == 0) service = 7937 + 4 * slot;
    put32(b, 32, {61, 0, OWN_CARD, 7810, slot, address, service});
    put32(b, 124, {more, length});
    return b + body;
}

struct DownloadTest : TaskTest {
    void SetUp() override {
        TaskTest::SetUp();
        for (uint32_t slot : {0u, 3u, 4u}) card(slot, slot == 3);
        testTake();
    }
    void TearDown() override {
        while (aclIntf* intf = AclIntfTreeFindFirst()) aclIntfDrop(intf);
        while (aclVlan* vlan = aclVlanTreeFindFirst()) aclVlanDrop(vlan);
        TaskTest::TearDown();
    }
    // A card that is up; its ACL agent has a queue.
    void card(uint32_t slot, bool egress, bool ipv6 = true) {
        aclLinecard& c = aclLinecardInfo[slot];
        c.isUp = 1;
        c.isVortan = egress;
        c.isIpv6Enabled = ipv6;
        c.agentIpAddr = AGENT_CARD + slot;
        ASSERT_EQ(iAclSwpQueueCreate(slot, QUEUE_ACL_AGENT), 0);
    }
    // The messages that were enqueued since the last call, in order; other rows are `effects`.
    std::vector<bytes> enqueued() {
        std::vector<bytes> messages;
        effects.clear();
        for (testRow& row : testTakeRows())
            if (row.text.starts_with("swp "))
                messages.push_back(row.bytes);
            else
                effects.push_back(row.text);
        return messages;
    }
    // What was enqueued, as "ID>SLOT ID>SLOT"; a mark with its need.
    std::string sentTo() {
        std::string sent;
        for (const bytes& m : enqueued()) {
            const uint32_t id = get32(m, 12), slot = get32(m, 48);
            sent += (sent.empty() ? "" : " ") + std::to_string(id) + ">" +
                    (get32(m, 56) == 21121 ? "cp" : std::to_string(slot));
            if (get32(m, 56) == 0x4A01 + 4 * slot) sent += "mac";
            if (id == 30003 && m.size() == 144)
                sent += (get32(m, 132) == 1 ? " begin " : " end ") + std::to_string(get32(m, 140));
        }
        return sent;
    }
};
