// A store in a test's hands: the state root with empty trees, entry blocks in one line, clients and
// remarks linked by hand; and the families of numbered lists, which go through the same tests.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "common/debug.h"
#include "common/linecard.h"
#include "common/node.h"
#include "interface/interface.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"
#include "platform/test/record.h"

typedef std::vector<std::string> rows;
typedef std::vector<uint32_t> words;
inline const listName A = listNameMake("A"), B = listNameMake("B"), C = listNameMake("C");

constexpr uint32_t ip(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    return a << 24 | b << 16 | c << 8 | d;
}
constexpr uint32_t HOST = 0xFFFFFFFF;
constexpr uint32_t portIfindex(uint32_t slot, uint32_t userPort) {
    return (slot + 1) << 25 | (userPort + 1) << 18;
}
constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 3), VLAN = ifindexMake(IF_TYPE_VLAN, 10);

// --- entry blocks as a client would send them: nothing given that is not said --------------------

struct rule : ipEntryBlock {
    rule(uint32_t entryKind, uint32_t entryAction, uint8_t entryProtocol) : ipEntryBlock{} {
        kind = entryKind, action = entryAction, protocol = entryProtocol;
        seq = SEQ_NOT_GIVEN, order = ORDER_NOT_GIVEN, dscp = DSCP_NOT_GIVEN;
        precedence = tos = FIELD_NOT_GIVEN;
    }
    // Applies a change and stays an expression: rule(...).with([](auto& b) { b.tos = 3; })
    template <class Change>
    rule with(Change change) const {
        rule changed = *this;
        change(changed);
        return changed;
    }
    rule at(uint32_t number) const {
        return with([=](rule& b) { b.seq = number; });
    }
    rule from(uint32_t address, uint32_t mask) const {
        return with([=](rule& b) { b.src = address, b.srcMask = mask; });
    }
    rule to(uint32_t address, uint32_t mask) const {
        return with([=](rule& b) { b.dst = address, b.dstMask = mask; });
    }
    rule toPort(uint32_t number) const {
        return with([=](rule& b) { b.dstOperator = PORT_EQ, b.dstLow = uint16_t(number); });
    }
};
inline rule standard(uint32_t action, uint32_t address, uint32_t mask) {
    return rule(IP_KIND_STANDARD, action, 0).from(address, mask);
}
inline rule extended(uint32_t action, uint8_t protocol) {
    return rule(IP_KIND_EXTENDED, action, protocol);
}

// --- a family in a test's hands ------------------------------------------------------------------

struct testFamily {
    const aclFamily& row;
    uint32_t kind;  // of its lists
    const char *section, *header;
    uint32_t sync;                           // of its entries' lines
    void (*block)(uint32_t n, void* block);  // the nth of some hundred rules, without a number
    std::string (*text)(uint32_t n);         // as its line says it
};
inline const testFamily ip4InTest = {
    ip4Family,
    IP_KIND_EXTENDED,
    "100",
    "ip access-list extended ",
    16,
    [](uint32_t n, void* block) {
        const rule r = extended(n & 1, IP_PROTO_TCP).from(ip(10, 0, 0, n / 8), HOST).toPort(n % 8);
        std::memcpy(block, static_cast<const ipEntryBlock*>(&r), sizeof(ipEntryBlock));
    },
    [](uint32_t n) {
        return (n % 2 ? "deny tcp host 10.0.0." : "permit tcp host 10.0.0.") +
               std::to_string(n / 8) + " any eq " + std::to_string(n % 8);
    }};

inline const testFamily ip6InTest = {
    ip6Family,
    IP_KIND_EXTENDED,
    "100v6",
    "ipv6 access-list ",
    16,
    [](uint32_t n, void* to) {
        ip6EntryBlock b{};
        b.action = n & 1;
        b.protocol = IP_PROTO_UDP;
        b.seq = SEQ_NOT_GIVEN;
        b.src[0] = 0x20, b.src[15] = static_cast<uint8_t>(n / 8 + 1);
        std::memset(b.srcMask, 0xFF, sizeof b.srcMask);
        b.dstOperator = PORT_GT, b.dstLow = static_cast<uint16_t>(n % 8);
        std::memcpy(to, &b, sizeof b);
    },
    [](uint32_t n) {
        char text[64];
        std::snprintf(text, sizeof text, "%s udp host 2000::%x any gt %u",
                      n % 2 ? "deny" : "permit", n / 8 + 1, n % 8);
        return std::string(text);
    }};
inline const testFamily macInTest = {
    macFamily,
    IP_KIND_EXTENDED,
    "101",
    "mac access-list extended ",
    25,
    [](uint32_t n, void* to) {
        macEntryBlock b{};
        b.action = n & 1;
        b.type = IP_KIND_EXTENDED;
        b.seq = SEQ_NOT_GIVEN;
        b.order = ORDER_NOT_GIVEN;
        b.src[0] = 2, b.src[5] = static_cast<uint8_t>(n / 8);
        std::memset(b.dstMask, 0xFF, sizeof b.dstMask);
        b.encapsulation = MAC_EV2, b.etherTypeOperator = PORT_LT;
        b.etherType = static_cast<uint16_t>(0x800 + n % 8);
        std::memcpy(to, &b, sizeof b);
    },
    [](uint32_t n) {
        char text[64];
        std::snprintf(text, sizeof text, "%s host  02:00:00:00:00:%02x any  ev2 lt %x ",
                      n % 2 ? "deny" : "permit", n / 8, 0x800 + n % 8);
        return std::string(text);
    }};

// What an act answers, and what it writes, tells and sends: all of it, or what goes to cards and
// tasks.
inline rows sentOf(rows told) {
    std::erase_if(told, [](const std::string& row) {
        return row.starts_with("cfg") || row.starts_with("sync") || row.starts_with("trigger");
    });
    return told;
}
#define EXPECT_TOLD(act, status, ...) \
    testTake();                       \
    EXPECT_EQ(act, uint32_t{status}); \
    EXPECT_EQ(testTake(), here(rows{__VA_ARGS__}))
#define EXPECT_SENT(act, ...) \
    testTake();               \
    EXPECT_EQ(act, 0u);       \
    EXPECT_EQ(sentOf(testTake()), here(rows{__VA_ARGS__}))

class IpAcl : public testing::Test {
  protected:
    struct kindOfList {
        zekRadix* aclTrees::*tree;
        uint32_t (*drop)(const aclList& list);
    };
    static constexpr kindOfList kinds[] = {
        {&aclTrees::acl_tree, [](auto& l) { return aclListDelete(*l.family, l.name, l.kind); }},
        {&aclTrees::v6acl_tree, [](auto& l) { return aclListDelete(*l.family, l.name, l.kind); }},
        {&aclTrees::l2acl_tree, [](auto& l) { return aclListDelete(*l.family, l.name, l.kind); }},
        {&aclTrees::aclSys_tree, [](auto& l) { return ipSysAccessListDelete(l.name, 0); }},
        {&aclTrees::dos_tree, [](auto& l) { return ipDosListDelete(l.name); }}};

    void SetUp() override {
        testReset();
        for (aclLinecard& card : aclLinecardInfo) {
            card = {};
            card.aclAgent = ZEK_SWP_NONE;
        }
        aclLinecardInfo[3].aclAgent = 1;  // the one card that is there, for what goes to all
        node = {};
        aclNode = &node;
        node.config.cfgDb = testCfg();
        for (const kindOfList& k : kinds)
            node.trees.*k.tree = zekRadixCreate("lists", LIST_NAME_KEY_BITS);
        node.trees.acl_intf_tree = zekRadixCreate("aclIntfTree", INTF_KEY_BITS);
        node.trees.vlan_intf_tree = zekRadixCreate("vlanIntfTree", INTF_KEY_BITS);
        blocksAtStart = testBlocksInUse();
    }
    // Every list goes, and with it every block: whatever a test did, nothing may leak.
    void TearDown() override {
        testFailNothing();
        dosFilter = nullptr;
        while (aclIntf* intf = AclIntfTreeFindFirst()) aclIntfDrop(intf);
        while (aclVlan* vlan = aclVlanTreeFindFirst()) aclVlanDrop(vlan);
        forLists([](aclList* list, const kindOfList& k) {
            clientsFree(list);
            ASSERT_EQ(k.drop(*list), 0u);
        });
        EXPECT_EQ(testBlocksInUse(), blocksAtStart) << "blocks leaked";
        for (const kindOfList& k : kinds) zekRadixDestroy(node.trees.*k.tree);
        zekRadixDestroy(node.trees.acl_intf_tree);
        zekRadixDestroy(node.trees.vlan_intf_tree);
        DEBUG_ACL_MGR = 0;
    }
    // fn may take its list away.
    template <class Fn>
    void forLists(Fn&& fn) {
        for (const kindOfList& k : kinds)
            for (auto* list = nameTreeFirst<aclList>(node.trees.*k.tree); list != nullptr;) {
                const listName name = list->name;
                fn(list, k);
                list = nameTreeNext<aclList>(node.trees.*k.tree, name);
            }
    }
    // All that an operation that is refused must leave as it is.
    std::string state() {
        std::string out = std::to_string(testBlocksInUse());
        forLists([&](const aclList* list, const kindOfList&) {
            (out += " ") += listNameView(list->name);
            for (uint32_t value : {list->kind, list->placeholder, uint32_t(list->count),
                                   list->lastEntryId, uint32_t(list->clients != nullptr)})
                out += " " + std::to_string(value);
            for (uint32_t seq : numbers(list)) out += "," + std::to_string(seq);
        });
        for (const std::string& line : testCfgLines()) out += "\n" + line;
        return out;
    }

    aclList* create(const char* name, uint32_t kind = IP_KIND_STANDARD) {
        uint32_t status = 0;
        aclList* list = ipAccessListCreate(listNameMake(name), kind, 0, &status);
        EXPECT_EQ(status, 0u);
        testTake();
        return list;
    }
    uint32_t add(const char* name, rule block) {
        return ipAddAccessEntry(listNameMake(name), &block, 0, 0);
    }
    uint32_t del(const char* name, const rule& block, uint32_t send = 1, uint32_t cfg = 1) {
        return ipDelAccessEntry(listNameMake(name), &block, send, cfg);
    }
    static rows here(rows expected) { return expected; }  // see OfFamily
    template <class Act>
    static rows effects(const Act& act) {
        testTake();
        act();
        return testTake();
    }
    // Links a binding at the head, as the bind operations do.
    static aclBinding* bind(aclList* list, clientKind kind, uint32_t id, uint32_t direction = 0,
                            uint32_t instance = 0) {
        return static_cast<aclBinding*>(
            clientAdd(list, {kind, id, instance, direction}, sizeof(aclBinding)));
    }
    static void join(uint32_t lag, const words& ports) {
        for (uint32_t port : ports) ASSERT_EQ(aclLagMemberAdd(lag, port), 0);
    }
    static void remark(aclList* list, uint32_t seq, const char* text) {
        EXPECT_EQ(aclRemarkAdd(list, seq, text), 0u);
        testTake();
    }
    // The chain of an IPv4 list, entry by entry.
    static aclEntry* first(const aclList* list) { return static_cast<aclEntry*>(list->head); }
    static aclEntry* after(const aclEntry* entry) { return static_cast<aclEntry*>(entry->next); }
    static words numbers(const aclList* list) {
        words seqs;
        for (const listEntry* e = list->head; e != nullptr; e = e->next)
            seqs.push_back(entrySeq(*list->family, *e));
        return seqs;
    }

    aclNodeRecord node;
    uint64_t blocksAtStart = 0;
};

// The same test for every family; the list is A.
class OfFamily : public IpAcl, public testing::WithParamInterface<const testFamily*> {
  protected:
    const testFamily& f = *GetParam();
    struct anyBlock {
        alignas(8) uint8_t bytes[256] = {};
        be32& seq;
        anyBlock(const testFamily& f, uint32_t n, uint32_t number)
            : seq(const_cast<be32&>(blockSeq(f.row, bytes))) {
            f.block(n, bytes);
            seq = number;
        }
    };
    aclList* make(uint32_t placeholder = 0, const listName& name = A) {
        uint32_t status = 77;
        aclList* list =
            aclListCreate(f.row, name, placeholder ? IP_KIND_NONE : f.kind, placeholder, &status);
        EXPECT_EQ(status, 0u);
        return list;
    }
    aclList* find(const listName& name = A) const { return aclListFind(f.row, name); }
    uint32_t drop() const { return aclListDelete(f.row, A, f.kind); }
    // Rule n under a number.
    uint32_t add(uint32_t n, uint32_t seq = SEQ_NOT_GIVEN, const listName& name = A) const {
        return aclListAdd(f.row, name, anyBlock(f, n, seq).bytes, {});
    }
    uint32_t del(uint32_t n, uint32_t seq = SEQ_NOT_GIVEN, bool send = true, bool cfg = true,
                 const listName& name = A) const {
        return aclListDel(f.row, name, anyBlock(f, n, seq).bytes, send, cfg);
    }
    // Rows as they are for this family: SECT, HEAD, RULE0, SYNC, GROUP of its configuration, in.add
    // (list, del, drop), out.add.. of its messages, APPLY and REMOVE of its log; copies of IPM
    // where it keeps them.
    rows here(rows expected) const {
        std::vector<std::pair<std::string, std::string>> names = {
            {"SECT", f.section},
            {"HEAD", f.header},
            {"RULE0", f.text(0)},
            {"GROUP", f.row.groupWords},
            {"APPLY", f.row.applyName},
            {"REMOVE", f.row.removeName},
            {"NOTE", f.sync == 16 || f.sync == 25 ? "16" : "9"},
            {"SYNC", std::to_string(f.sync)}};
        for (const std::string way : {"in.", "out."}) {
            const aclAgentIds& ids = f.row.agentIds[way == "in." ? INTF_IN : INTF_OUT];
            names.push_back({way + "list", std::to_string(ids.list)});
            names.push_back({way + "add", std::to_string(ids.add)});
            names.push_back({way + "del", std::to_string(ids.del)});
            names.push_back({way + "drop", std::to_string(ids.drop)});
        }
        std::erase_if(expected, [this](const std::string& row) {
            const bool copy = row.starts_with("snmp") || row.starts_with("sysadm");
            return (row.starts_with("ipm") && f.row.copies != mgmtCopies::all) ||
                   (copy && f.row.copies == mgmtCopies::none) ||
                   (row.find(" vlan ") != row.npos && !f.row.onVlans);
        });
        if (f.row.place == INTF_V6) names.push_back({" vlan", "/255 vlan"});  // its pipe byte
        for (std::string& row : expected)
            for (const auto& [name, value] : names)
                for (size_t at = 0; (at = row.find(name, at)) != row.npos; at += value.size())
                    row.replace(at, name.size(), value);
        return expected;
    }
};
#define FOR_EVERY_FAMILY(suite)                                                              \
    INSTANTIATE_TEST_SUITE_P(Of, suite, testing::Values(&ip4InTest, &ip6InTest, &macInTest), \
                             [](const auto& f) { return std::string(f.param->row.name); })
