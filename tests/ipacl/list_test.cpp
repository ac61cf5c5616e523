// Ordinary lists: what follows from an operator's action, in order.
#include "include/service.h"
#include "ipacl/zekipaccess.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
const rule anyRule = standard(IP_PERMIT, 0, 0);
const rule netRule = standard(IP_PERMIT, ip(10, 1, 0, 0), ip(255, 255, 0, 0));
const rule hostRule = standard(IP_DENY, ip(10, 1, 2, 3), HOST);

TEST_F(IpAcl, AListsLifeIsWrittenAndTold) {
    uint32_t status = 77;
    aclList* list = nullptr;
    EXPECT_EQ(effects([&] { list = ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status); }),
              (rows{"cfg insert 100/141 A 0/0/0 \"!\"",
                    "cfg insert 100/150 A 0/0/0 \"ip access-list standard A\"",
                    "sync 3 A \"ip access-list standard A\"", "trigger A n 0 id 0"}));
    EXPECT_EQ(status, 0u);
    // An add triggers before the identifier is given and writes last, a delete the other way round.
    EXPECT_EQ(effects([&] { add("A", netRule); }),
              (rows{"trigger A n 1 id 0",
                    "cfg insert 100/150 A 1/6/ff \" seq 5 permit 10.1.0.0/16\" / \" seq 5\"",
                    "sync 9 A \" seq 5 permit 10.1.0.0/16\""}));
    add("A", hostRule);
    remark(list, 5, "who asked for this");
    EXPECT_EQ(effects([&] { del("A", netRule); }),
              (rows{"sync 9 A \"no  seq 5 permit 10.1.0.0/16\"", "cfg exact 100/150 A 1/6/ff",
                    "cfg exact 100/150 A 1/6/0", "sync 9 A \"no  remark 5 who asked for this\"",
                    "cfg exact 100/150 A 1/6/0 absent", "trigger A n 1 id 2"}));
    EXPECT_EQ(list->remarks, nullptr);
    // Without the flag neither the configuration nor the clients hear of it.
    EXPECT_EQ(effects([&] { EXPECT_EQ(del("A", hostRule.at(10), 1, 0), 0u); }), rows{});
    add("A", netRule.at(5));
    remark(list, 5, "one");
    remark(list, 7, "two");
    EXPECT_EQ(
        effects([] { ipAccessListDelete(A, IP_KIND_STANDARD); }),
        (rows{"sync 9 A \"no  remark 5 one\"", "cfg exact 100/150 A 1/6/0", "cfg remove 100/141 A",
              "sync 3 A \"no ip access-list standard A\"", "trigger A n 0 id 3",
              "sync 9 A \"no  remark 7 two\"", "cfg exact 100/150 A 1/8/0 absent"}));
    EXPECT_EQ(ipAccessListFind(A), nullptr);
    // The second entry's line: nobody had taken it out.
    EXPECT_EQ(testCfgLines(), rows{});
    EXPECT_EQ(ipDelAccessList, 0u);
}

TEST_F(IpAcl, WhatIsThereIsGivenAndNothingIsWrittenTwice) {
    struct {
        const char* name;
        uint32_t kind, placeholder, status;
        bool given;
    } const cases[] = {{"A", IP_KIND_STANDARD, 0, ACL_OK, true},
                       {"A", 0, 1, ACL_OK, true},
                       {"A", IP_KIND_EXTENDED, 0, ACL_E_IS_STANDARD, true},
                       {"", IP_KIND_STANDARD, 0, ACL_E_NOLIST, false},
                       {"", 0, 1, ACL_E_NOLIST, false},
                       {"B", 0, 0, ACL_E_NOLIST, false},
                       {"B", 3, 0, ACL_E_NOLIST, false}};
    aclList* list = create("A");
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        uint32_t status = 77;
        EXPECT_EQ(ipAccessListCreate(listNameMake(c.name), c.kind, c.placeholder, &status),
                  c.given ? list : nullptr);
        EXPECT_EQ(status, c.status);
        EXPECT_TRUE(list->kind == IP_KIND_STANDARD && list->placeholder == 0);
    }
    EXPECT_EQ(ipAccessListFindNext(A), nullptr);
    EXPECT_EQ(testTake(), rows{});
}

TEST_F(IpAcl, NamesAreCaseSensitiveAndMayFillTheirField) {
    const std::string names[] = {"A", "AB", "a", std::string(LIST_NAME_LEN, 'x')};
    for (int i : {3, 2, 0, 1}) create(names[i].c_str());
    const aclList *list = ipAccessListFindFirst(), *before = nullptr;
    for (const std::string& name : names) {
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(listNameView(list->name), name);
        EXPECT_EQ(ipAccessListFindPrev(list->name), before);
        before = list;
        list = ipAccessListFindNext(list->name);
    }
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(ipAccessListFindPrev(listNameMake("absent")), nullptr);
}

TEST_F(IpAcl, NumbersEndAtTheLargestUsable) {
    create("A");
    EXPECT_EQ(add("A", anyRule.at(SEQ_MAX + 1)), ACL_E_SEQ_RANGE);
    EXPECT_EQ(add("A", anyRule.at(0xFFFFFFFE)), ACL_E_SEQ_RANGE);
    EXPECT_EQ(add("A", anyRule.at(0)), 0u) << "0 is a number like any other";
    EXPECT_EQ(add("A", netRule.at(4294967286u)), 0u);
    testTake();
    rule block = hostRule;
    EXPECT_EQ(ipAddAccessEntry(A, &block, 0, 0), ACL_E_SEQ_RANGE);
    EXPECT_EQ(block.seq, SEQ_NOT_GIVEN);
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(add("A", hostRule.at(SEQ_MAX)), 0u);
    EXPECT_EQ(numbers(ipAccessListFind(A)), (std::vector<uint32_t>{0, 4294967286u, SEQ_MAX}));
}

TEST_F(IpAcl, NothingComesIntoNoListAndOutOfNone) {
    uint32_t status = 0;
    ipAccessListCreate(listNameMake("P"), 0, 1, &status);  // a placeholder
    for (const char* name : {"B", "P"}) EXPECT_EQ(add(name, anyRule), ACL_E_NOLIST);
    EXPECT_EQ(del("B", anyRule), ACL_E_NOLIST);
    EXPECT_EQ(del("P", anyRule), ACL_E_NOENTRY);
    create("A");
    EXPECT_EQ(ipAccessListDelete(listNameMake("B"), IP_KIND_STANDARD), ACL_E_NOLIST);
    EXPECT_EQ(ipAccessListDelete(A, IP_KIND_EXTENDED), ACL_E_NOLIST);
    EXPECT_EQ(testTake(), rows{});
}

TEST_F(IpAcl, DeletingABoundListKeepsAPlaceholder) {
    aclList* list = create("A");
    add("A", netRule);
    bind(list, CLIENT_INTERFACE, portIfindex(2, 3));
    EXPECT_TRUE(ipCheckForPrefixAccessList(A));
    EXPECT_EQ(ipAccessListDelete(A, IP_KIND_STANDARD), 0u);
    ASSERT_EQ(ipAccessListFind(A), list);
    EXPECT_TRUE(list->placeholder == 1 && list->kind == 0);
    EXPECT_FALSE(ipCheckForPrefixAccessList(A));
    EXPECT_EQ(add("A", netRule), ACL_E_NOLIST);
    uint32_t status = 0;
    // Configured again, as another kind: it goes out to what it is still bound to.
    EXPECT_EQ(
        effects([&] { EXPECT_EQ(ipAccessListCreate(A, IP_KIND_EXTENDED, 0, &status), list); }),
        (rows{"cfg insert 100/141 A 0/0/0 \"!\"",
              "cfg insert 100/150 A 0/0/0 \"ip access-list extended A\"",
              "sync 3 A \"ip access-list extended A\"",
              "agent list 14409 A if 0x6100000 pipe 7 option 0 n 0", "trigger A n 0 id 1"}));
    EXPECT_EQ(add("A", netRule), 0u);
}

TEST_F(IpAcl, WholeBlocksDifferInEveryByteButNumberAndCounters) {
    const aclList* list = create("A");
    add("A", netRule);
    for (size_t i = 0; i < sizeof(ipEntryBlock); i++) {
        SCOPED_TRACE(i);
        ipEntryBlock other = first(list)->block;
        reinterpret_cast<uint8_t*>(&other)[i] ^= 0x40;
        bool ignored = i == 52 || (i >= 64 && i < 68);
        EXPECT_EQ(ipAccessEntFind(A, &other), ignored ? list->head : nullptr);
    }
    rule fifth = hostRule.at(5), sixth = hostRule.at(6);
    EXPECT_EQ(ipAccessEntCompareSeq(A, &fifth), list->head);
    EXPECT_EQ(ipAccessEntCompareSeq(A, &sixth), nullptr);
    EXPECT_EQ(ipAccessEntFind(listNameMake("B"), &netRule), nullptr);
    EXPECT_EQ(ipAccessEntCompareSeq(listNameMake("B"), &fifth), nullptr);
}

TEST_F(IpAcl, RemarksLeaveWithTheEntryOfTheirNumberOnly) {
    aclList* list = create("A");
    add("A", netRule.at(4));
    add("A", hostRule.at(5));
    for (uint32_t seq : {3u, 5u, 7u}) remark(list, seq, "text");
    EXPECT_EQ(del("A", netRule), 0u);
    EXPECT_EQ(aclDelV4RemarkEntryFromList(A, 4, list), 1u) << "there is none";
    EXPECT_EQ(del("A", hostRule), 0u);
    ASSERT_EQ(list->remarks->seq, 3u);
    ASSERT_EQ(list->remarks->next->seq, 7u);
    EXPECT_EQ(list->remarks->next->prev, list->remarks);
    EXPECT_EQ(aclDelV4RemarkEntryFromList(A, 7, list), 0u);
    EXPECT_EQ(aclDelV4RemarkEntryFromList(A, 3, list), 0u);
    EXPECT_EQ(list->remarks, nullptr);
    EXPECT_EQ(testCfgLines(), (rows{"!", "ip access-list standard A"}));
}

TEST_F(IpAcl, AnImpossibleCountIsReported) {
    aclList* list = create("A");
    add("A", netRule);
    list->count = 0;
    EXPECT_EQ(effects([&] { del("A", netRule, 1, 0); }),
              rows{"syserr 0x50006 Error: Trying to delete from empty access list A\n"});
}

TEST_F(IpAcl, ChangingTheMaskModeRewritesEntriesAndRemarks) {
    aclList* list = create("A");
    create("B");
    add("A", netRule);
    remark(list, 5, "one");
    remark(list, 9, "two");
    const std::string inverse = " seq 5 permit 10.1.0.0 255.255.0.0";
    node.config.inverseMask = 1;
    inverse_mask_sent_to_cfg(1);
    EXPECT_EQ(effects(ipInvertAccessEntryMask),
              (rows{"sync 9 A \"no " + inverse + "\"", "cfg exact 100/150 A 1/6/ff",
                    "cfg exact 100/150 A 1/6/0",
                    "cfg insert 100/150 A 1/6/ff \" seq 5\" / \"" + inverse + "\"",
                    "sync 9 A \"" + inverse + "\"", "cfg insert 100/150 A 1/6/0 \" remark 5 one\"",
                    "sync 9 A \" remark 5 one\"", "cfg insert 100/150 A 1/10/0 \" remark 9 two\"",
                    "sync 9 A \" remark 9 two\""}));
    EXPECT_EQ(testCfgLines(),
              (rows{"access-list inverse-mask", "!", "ip access-list standard A", " remark 5 one",
                    inverse, " remark 9 two", "!", "ip access-list standard B"}));
    node.config.inverseMask = 0;
    inverse_mask_sent_to_cfg(0);
    ipInvertAccessEntryMask();
    EXPECT_EQ(testCfgLines()[3], " seq 5 permit 10.1.0.0/16");
}

TEST_F(IpAcl, GeneratedListsLeaveNoLine) {
    aclList* list = create("sgAcl_7", IP_KIND_EXTENDED);
    add("sgAcl_7", extended(IP_DENY, IP_PROTO_TCP));
    remark(list, 5, "x");
    node.config.inverseMask = 1;
    ipInvertAccessEntryMask();
    EXPECT_EQ(del("sgAcl_7", rule(2, 0, 0).at(5)), 0u);
    EXPECT_EQ(ipAccessListDelete(listNameMake("sgAcl_7"), IP_KIND_EXTENDED), 0u);
    const listName trace = listNameMake("sgAcl_d");
    uint32_t status = 0;
    EXPECT_NE(ipDosListCreate(trace, 0, 0, &status), nullptr);
    EXPECT_EQ(dosIpEnableIntf(trace, 1041), 0u);
    rule block = extended(IP_DENY, IP_PROTO_UDP);
    EXPECT_EQ(ipAddDosEntry(trace, &block, 0), 0u);
    for (const std::string& row : testTake())
        EXPECT_TRUE(row.starts_with("trigger") || row.starts_with("agent")) << row;
    EXPECT_EQ(testCfgLines(), rows{});
}

TEST_F(IpAcl, ADatabaseThatFailsDoesNotFailTheChange) {
    DEBUG_ACL_MGR = DEBUG_ACL_CFG;
    testFail(TEST_CFG);
    uint32_t status = 0;
    ASSERT_NE(ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status), nullptr);
    EXPECT_EQ(add("A", anyRule), 0u);
    EXPECT_EQ(del("A", anyRule), 0u);
    const rows got = testTake();
    // The entry's line is missed, its remark's is not.
    for (const char* row :
         {"debug Going to add seq 5 of A\r\n", "debug Going to delete seq 5 of A\r\n",
          "debug Error deleting seq 5 of A from cfg\r\n"})
        EXPECT_EQ(std::count(got.begin(), got.end(), row), 1) << row;
}

}  // namespace
