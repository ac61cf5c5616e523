// A store in a test's hands: the state root with empty trees, entry blocks in one line, bindings
// and remarks linked by hand.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
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

constexpr uint32_t ip(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    return a << 24 | b << 16 | c << 8 | d;
}
constexpr uint32_t HOST = 0xFFFFFFFF;
constexpr uint32_t portIfindex(uint32_t slot, uint32_t userPort) {
    return (slot + 1) << 25 | (userPort + 1) << 18;
}

// An entry block as a client would send it: nothing given that is not said.
struct rule : ipEntryBlock {
    rule(uint32_t entryKind, uint32_t entryAction, uint8_t entryProtocol) : ipEntryBlock{} {
        kind = entryKind;
        action = entryAction;
        protocol = entryProtocol;
        ipEntryBlock::seq = SEQ_NOT_GIVEN;
        ipEntryBlock::order = ORDER_NOT_GIVEN;
        ipEntryBlock::precedence = FIELD_NOT_GIVEN;
        ipEntryBlock::tos = FIELD_NOT_GIVEN;
        ipEntryBlock::dscp = DSCP_NOT_GIVEN;
    }
    // Applies a change and stays an expression: rule(...).with([](auto& b) { b.tos = 3; })
    template <class Change>
    rule with(Change change) const {
        rule changed = *this;
        change(changed);
        return changed;
    }
    rule at(uint32_t number) const {
        return with([=](rule& b) { b.ipEntryBlock::seq = number; });
    }
    rule from(uint32_t address, uint32_t mask) const {
        return with([=](rule& b) { b.src = address, b.srcMask = mask; });
    }
    rule to(uint32_t address, uint32_t mask) const {
        return with([=](rule& b) { b.dst = address, b.dstMask = mask; });
    }
    rule fromPort(uint32_t op, uint16_t low, uint16_t high = 0) const {
        return with([=](rule& b) { b.srcOperator = op, b.srcLow = low, b.srcHigh = high; });
    }
    rule toPort(uint32_t op, uint16_t low, uint16_t high = 0) const {
        return with([=](rule& b) { b.dstOperator = op, b.dstLow = low, b.dstHigh = high; });
    }
};
inline rule standard(uint32_t action, uint32_t address, uint32_t mask) {
    return rule(IP_KIND_STANDARD, action, 0).from(address, mask);
}
inline rule extended(uint32_t action, uint8_t protocol) {
    return rule(IP_KIND_EXTENDED, action, protocol);
}

class IpAcl : public testing::Test {
  protected:
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
        node.trees.acl_tree = zekRadixCreateP("aclTree", LIST_NAME_KEY_BITS);
        node.trees.aclSys_tree = zekRadixCreate("aclSystemTree", LIST_NAME_KEY_BITS);
        node.trees.dos_tree = zekRadixCreate("dosTree", LIST_NAME_KEY_BITS);
        node.trees.acl_intf_tree = zekRadixCreate("aclIntfTree", INTF_KEY_BITS);
        node.trees.vlan_intf_tree = zekRadixCreate("vlanIntfTree", INTF_KEY_BITS);
        dosFilter = nullptr;
        blocksAtStart = testBlocksInUse();
    }
    // Every list goes, and with it every block: whatever a test did, nothing may leak.
    void TearDown() override {
        testFailNothing();
        dosFilter = nullptr;
        while (aclIntf* intf = AclIntfTreeFindFirst()) {
            for (uint32_t direction : {INTF_IN, INTF_OUT})
                if (const aclList* list = intf->lists[INTF_V4][direction])
                    (void)aclIpRemoveIntf(list->name, intf->ifindex, direction);
            aclIntfDrop(intf);
        }
        while (aclVlan* vlan = aclVlanTreeFindFirst()) aclVlanDrop(vlan);
        while (aclList* list = ipAccessListFindFirst()) {
            unbind(list);
            ASSERT_EQ(ipAccessListDelete(list->name, list->kind), 0u);
        }
        while (aclList* list = ipSysAccessListFindFirst()) {
            unbind(list);
            ASSERT_EQ(ipSysAccessListDelete(list->name, 0), 0u);
        }
        while (aclList* list = ipDosListFindFirst()) ASSERT_EQ(ipDosListDelete(list->name), 0u);
        EXPECT_EQ(testBlocksInUse(), blocksAtStart) << "blocks leaked";
        for (zekRadix* tree : {node.trees.acl_tree, node.trees.aclSys_tree, node.trees.dos_tree,
                               node.trees.acl_intf_tree, node.trees.vlan_intf_tree})
            zekRadixDestroy(tree);
        DEBUG_ACL_MGR = 0;
    }

    aclList* create(const char* name, uint32_t kind = IP_KIND_STANDARD) {
        uint32_t status = 0;
        aclList* list = ipAccessListCreate(listNameMake(name), kind, 0, &status);
        EXPECT_EQ(status, 0u);
        testTake();
        return list;
    }
    uint32_t add(const char* name, rule block, uint32_t log = 0, uint32_t monitor = 0) {
        return ipAddAccessEntry(listNameMake(name), &block, log, monitor);
    }
    uint32_t del(const char* name, const rule& block, uint32_t send = 1, uint32_t cfg = 1) {
        return ipDelAccessEntry(listNameMake(name), &block, send, cfg);
    }
    // What an act leaves behind: every row, or those that go to cards and tasks.
    template <class Act>
    static rows effects(const Act& act) {
        testTake();
        act();
        return testTake();
    }
    template <class Act>
    static rows sends(const Act& act) {
        rows sent = effects(act);
        std::erase_if(sent, [](const std::string& row) {
            return row.starts_with("cfg") || row.starts_with("sync") || row.starts_with("trigger");
        });
        return sent;
    }
    // Links a binding at the head, as the bind operations do.
    static aclBinding* bind(aclList* list, clientKind kind, uint32_t id, uint32_t direction = 0,
                            uint32_t instance = 0) {
        return static_cast<aclBinding*>(
            clientAdd(list, {kind, id, instance, direction}, sizeof(aclBinding)));
    }
    static void unbind(aclList* list) {
        while (list->clients != nullptr) clientDrop(list, list->clients);
    }
    static void join(uint32_t lag, const std::vector<uint32_t>& ports) {
        for (uint32_t port : ports) ASSERT_EQ(aclLagMemberAdd(lag, port), 0);
    }
    // Links a remark at the tail: numbers must come in ascending order.
    static void remark(aclList* list, uint32_t seq, const char* text) {
        void* block = zekMC_M_memBlockVarAlloc(0, ZEK_MEM_FLAGS, sizeof(aclRemark));
        auto* remark = new (block) aclRemark{};
        remark->seq = seq;
        std::strncpy(remark->text, text, REMARK_LEN);
        aclRemark* last = list->remarks;
        while (last != nullptr && last->next != nullptr) last = last->next;
        remark->prev = last;
        (last != nullptr ? last->next : list->remarks) = remark;
        aclManageAclEntryRemark(*remark, *list, 0);
        testTake();
    }

    // The chain of an IPv4 list, entry by entry.
    static aclEntry* first(const aclList* list) { return static_cast<aclEntry*>(list->head); }
    static aclEntry* after(const aclEntry* entry) { return static_cast<aclEntry*>(entry->next); }

    static std::vector<uint32_t> numbers(const aclList* list) {
        std::vector<uint32_t> seqs;
        for (const listEntry* e = list->head; e != nullptr; e = e->next)
            seqs.push_back(entrySeq(*list->family, *e));
        return seqs;
    }

    aclNodeRecord node;
    uint64_t blocksAtStart = 0;
};
