// The send path on the recording platform, with the real task around it: cards, lists made by hand,
// and messages as they must be, put together byte by byte from docs/wire-agent.md.
#pragma once

#include <deque>

#include "download/zekacl_download.h"
#include "tests/task/fixture.h"

typedef std::vector<uint8_t> bytes;

inline void put32(bytes& b, size_t at, uint32_t v) {
    for (size_t i = 0; i < 4; i++) b.at(at + i) = static_cast<uint8_t>(v >> (24 - 8 * i));
}
inline uint32_t get32(const bytes& b, size_t at) {
    return uint32_t{b.at(at)} << 24 | uint32_t{b.at(at + 1)} << 16 | uint32_t{b.at(at + 2)} << 8 |
           b.at(at + 3);
}
inline void putText(bytes& b, size_t at, const std::string& text) {
    std::copy(text.begin(), text.end(), b.begin() + static_cast<ptrdiff_t>(at));
}
inline bytes operator+(bytes a, const bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline bytes slice(const bytes& b, size_t from, size_t length) {
    auto at = b.begin() + static_cast<ptrdiff_t>(from);
    return {at, at + static_cast<ptrdiff_t>(length)};
}

constexpr uint32_t AGENT_CARD = 0x7F010100;  // plus the slot: the address of a card's agents
constexpr uint32_t PORT_3_1 = 0x08080000;    // slot 3, user port 1
constexpr uint32_t PORT_3_2 = 0x080C0000;
constexpr uint32_t PORT_4_0 = 0x0A040000;
constexpr uint32_t PORT_5_0 = 0x0C040000;
constexpr uint32_t LAG_7 = 0x00030007, LAG_8 = 0x00030008;
constexpr uint32_t VLAN_10 = 0x0003800A;

// The wanted list header of an IPv4 or IPv6 list, as it is for a list that is made below.
struct wantHeader {
    std::string name = "edge";
    uint32_t count = 1, kind = 2, ifindex = PORT_3_1;
    uint32_t option = 0, runCount = 1, vlan = 0;
    uint8_t group = 0, pipe = 0, blockFill = 0xB5;
    std::string groupName{};
};
inline bytes headerBytes(const wantHeader& w) {
    bytes b(1056);
    putText(b, 169, w.name);
    put32(b, 312, w.count);
    put32(b, 316, w.kind);
    put32(b, 352, w.ifindex);
    put32(b, 364, w.option);
    std::fill_n(b.begin() + 372, 520, w.blockFill);
    put32(b, 896, w.runCount);
    put32(b, 904, w.vlan);
    b[908] = w.group;
    b[909] = w.pipe;
    putText(b, 910, w.groupName);
    return b;
}
// The wanted message around a body, for a card's agent unless another address is given.
inline bytes messageBytes(uint32_t id, uint32_t slot, uint32_t more, const bytes& body,
                          uint32_t address = 0, uint32_t service = 0) {
    bytes b(132);
    put32(b, 8, static_cast<uint32_t>(132 + body.size()));
    put32(b, 12, id);
    put32(b, 32, 61);
    put32(b, 40, OWN_CARD);
    put32(b, 44, 7810);
    put32(b, 48, slot);
    put32(b, 52, address != 0 ? address : AGENT_CARD + slot);
    put32(b, 56, service != 0 ? service : 7937 + 4 * slot);
    put32(b, 124, more);
    put32(b, 128, static_cast<uint32_t>(body.size()));
    return b + body;
}
// The wanted agent entry of a block.
inline bytes entryBytes(const ipEntryBlock& block, uint32_t log, uint32_t monitor) {
    const auto* from = reinterpret_cast<const uint8_t*>(&block);
    const uint8_t protocol = from[53];
    const bool tcp = protocol == 6, ports = tcp || protocol == 17, icmp = protocol == 1;
    struct {
        size_t at, block, length;
        bool carried = true;
    } const runs[] = {{4, 64, 4},          {11, 23, 1},   {15, 52, 1},   {16, 0, 12},
                      {56, 24, 12},        {68, 36, 28},  {99, 53, 1},   {100, 16, 4},
                      {107, 144, 1, tcp},  {108, 68, 4},  {112, 56, 4},  {116, 128, 16, ports},
                      {132, 128, 4, icmp}, {136, 72, 56}, {192, 148, 4}, {196, 152, 4},
                      {380, 12, 4}};
    bytes b(392);
    for (const auto& run : runs)
        if (run.carried)
            std::copy_n(from + run.block, run.length, b.begin() + static_cast<ptrdiff_t>(run.at));
    b[39] = static_cast<uint8_t>(log);
    put32(b, 388, monitor);
    std::copy_n(b.begin() + 56, 144, b.begin() + 204);
    return b;
}

// A list outside every store, with `n` entries that are numbered 5, 10, ...
template <class List, class Entry>
struct madeList {
    List list{};
    std::deque<Entry> entries;
    madeList(const std::string& name, size_t n) {
        list.name = listNameMake(name);
        list.kind = 2;
        std::memset(list.sendBlock.b, 0xB5, sizeof list.sendBlock.b);
        for (size_t i = 0; i < n; i++) add();
    }
    void add() {
        entries.emplace_back();
        Entry& e = entries.back();
        e.block.seq = static_cast<uint32_t>(5 * entries.size());
        if (entries.size() > 1) entries[entries.size() - 2].next = &e;
        link(list, &entries.front());
        list.count++;
    }
    static void link(aclList& l, aclEntry* head) { l.head = head; }
    static void link(aclList& l, acl6Entry* head) { l.head6 = head; }
    static void link(l2AclList& l, l2AclEntry* head) { l.head = head; }
};
using ipList = madeList<aclList, aclEntry>;
using ip6List = madeList<aclList, acl6Entry>;
using macList = madeList<l2AclList, l2AclEntry>;

struct DownloadTest : TaskTest {
    void SetUp() override {
        TaskTest::SetUp();
        for (uint32_t slot : {0u, 3u, 4u}) card(slot, slot == 3);
        testTake();
    }
    void TearDown() override {
        DEBUG_ACL_MGR = 0;
        testFailNothing();
        while (aclIntf* intf = AclIntfTreeFindFirst()) aclIntfDrop(intf);
        while (aclVlan* vlan = aclVlanTreeFindFirst()) aclVlanDrop(vlan);
        while (aclList* list = ipSysAccessListFindFirst())
            ASSERT_EQ(ipSysAccessListDelete(list->name, 0), 0u);
        while (aclList* list = ipDosListFindFirst()) ASSERT_EQ(ipDosListDelete(list->name), 0u);
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
    // The messages that were enqueued since the last call, in order; other rows go to `others`.
    std::vector<bytes> enqueued() {
        std::vector<bytes> messages;
        others.clear();
        for (testRow& row : testTakeRows()) {
            if (row.text.starts_with("swp "))
                messages.push_back(row.bytes);
            else
                others.push_back(row.text);
        }
        return messages;
    }
    // What was enqueued, as "ID>SLOT".
    std::vector<std::string> sentTo() {
        std::vector<std::string> texts;
        for (const bytes& m : enqueued())
            texts.push_back(std::to_string(get32(m, 12)) + ">" + std::to_string(get32(m, 48)));
        return texts;
    }
    std::vector<std::string> others;
};
typedef std::vector<std::string> texts;
