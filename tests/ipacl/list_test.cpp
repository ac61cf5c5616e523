// Ordinary lists: what follows from an operator's action, in order.
#include "include/service.h"
#include "ipacl/zekipaccess.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
const rule anyRule = standard(IP_PERMIT, 0, 0);
const rule netRule = standard(IP_PERMIT, ip(10, 1, 0, 0), ip(255, 255, 0, 0));
const rule hostRule = standard(IP_DENY, ip(10, 1, 2, 3), HOST);

TEST_F(IpAcl, CreatingAListWritesItsHeaderAndTriggers) {
    uint32_t status = 77;
    aclList* list = ipAccessListCreate(A, IP_KIND_EXTENDED, 0, &status);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(testTake(), (rows{"cfg insert 100/141 A 0/0/0 \"!\"",
                                "cfg insert 100/150 A 0/0/0 \"ip access-list extended A\"",
                                "sync 3 A \"ip access-list extended A\"", "trigger A n 0 id 0"}));
    // Asked for again: the same list, and nothing is written or told twice.
    EXPECT_EQ(ipAccessListCreate(A, IP_KIND_EXTENDED, 0, &status), list);
    EXPECT_EQ(ipAccessListCreate(A, 0, 1, &status), list);
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(list->kind, uint32_t{IP_KIND_EXTENDED});
    EXPECT_EQ(list->placeholder, 0u);
}

TEST_F(IpAcl, KindClashReturnsTheExistingList) {
    struct {
        uint32_t is, asked, status;
    } cases[] = {
        {IP_KIND_STANDARD, IP_KIND_EXTENDED, ACL_E_IS_STANDARD},
        {IP_KIND_EXTENDED, IP_KIND_STANDARD, ACL_E_IS_EXTENDED},
        {IP_KIND_EXTENDED, IP_KIND_EXTENDED, ACL_OK},
    };
    for (const auto& c : cases) {
        aclList* list = create("A", c.is);
        uint32_t status = 0;
        EXPECT_EQ(ipAccessListCreate(A, c.asked, 0, &status), list);
        EXPECT_EQ(status, c.status);
        EXPECT_EQ(list->kind, c.is);
        EXPECT_EQ(testTake(), rows{});
        EXPECT_EQ(ipAccessListDelete(A, c.is), 0u);
        testTake();
    }
}

TEST_F(IpAcl, NamesAndKindsThatCannotBeAreRefused) {
    uint32_t status = 0;
    EXPECT_EQ(ipAccessListCreate(listNameMake(""), IP_KIND_STANDARD, 0, &status), nullptr);
    EXPECT_EQ(status, ACL_E_NOLIST);
    EXPECT_EQ(ipAccessListCreate(listNameMake(""), 0, 1, &status), nullptr);
    for (uint32_t kind : {0u, 3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ipAccessListCreate(A, kind, 0, &status), nullptr);
        EXPECT_EQ(status, ACL_E_NOLIST);
    }
    EXPECT_EQ(ipAccessListFindFirst(), nullptr);
    EXPECT_EQ(testTake(), rows{});
}

TEST_F(IpAcl, NamesAreCaseSensitiveAndMayFillTheirField) {
    std::string longest(LIST_NAME_LEN, 'x');
    create(longest.c_str());
    create("a");
    create("A");
    create("AB");
    rows walked;
    for (aclList* l = ipAccessListFindFirst(); l != nullptr; l = ipAccessListFindNext(l->name))
        walked.emplace_back(listNameView(l->name));
    EXPECT_EQ(walked, (rows{"A", "AB", "a", longest}));
    EXPECT_EQ(ipAccessListFindPrev(listNameMake("a")), ipAccessListFind(listNameMake("AB")));
    EXPECT_EQ(ipAccessListFindPrev(A), nullptr);
    EXPECT_EQ(ipAccessListFindPrev(listNameMake("absent")), nullptr);
    EXPECT_EQ(ipAccessListFindNext(listNameMake(longest)), nullptr);
}

TEST_F(IpAcl, AddTriggersBeforeTheIdentifierAndWritesLast) {
    create("A");
    EXPECT_EQ(add("A", netRule), 0u);
    EXPECT_EQ(testTake(),
              (rows{"trigger A n 1 id 0",
                    "cfg insert 100/150 A 1/6/ff \" seq 5 permit 10.1.0.0/16\" / \" seq 5\"",
                    "sync 9 A \" seq 5 permit 10.1.0.0/16\""}));
    EXPECT_EQ(ipAccessListFind(A)->head->id, 1u);
}

TEST_F(IpAcl, DefaultNumbersStepByFiveFromTheHighest) {
    aclList* list = create("A");
    rule block = anyRule;
    EXPECT_EQ(ipAddAccessEntry(A, &block, 0, 0), 0u);
    EXPECT_EQ(block.seq, 5u) << "the number is written back";
    EXPECT_EQ(add("A", netRule), 0u);
    EXPECT_EQ(del("A", anyRule.at(10)),
              0u);  // by number: what else the block says is not looked at
    EXPECT_EQ(list->highestSeq, 5u);
    EXPECT_EQ(add("A", hostRule), 0u);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{5, 10}));
    EXPECT_EQ(list->tail->id, 3u) << "identifiers are never given twice";
    EXPECT_EQ(add("A", netRule.at(7)), 0u);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{5, 7, 10}));
    EXPECT_EQ(list->highestSeq, 10u);
    for (uint32_t seq : {10u, 5u, 7u}) EXPECT_EQ(del("A", anyRule.at(seq)), 0u);
    EXPECT_EQ(list->highestSeq, 0u);
    EXPECT_EQ(list->head, nullptr);
    EXPECT_EQ(list->tail, nullptr);
}

TEST_F(IpAcl, NumbersEndAtTheLargestUsable) {
    aclList* list = create("A");
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
    EXPECT_EQ(list->highestSeq, SEQ_MAX);
    EXPECT_EQ(list->tail->block.seq, SEQ_MAX);
    EXPECT_EQ(list->head->block.seq, 0u);
}

TEST_F(IpAcl, RefusalsSayWhyAndLeaveNoTrace) {
    create("A");
    uint32_t status = 0;
    ipAccessListCreate(listNameMake("P"), 0, 1, &status);  // a placeholder
    ASSERT_EQ(add("A", netRule.at(20)), 0u);
    testTake();
    struct {
        const char* what;
        std::function<uint32_t()> act;
        uint32_t status;
    } cases[] = {
        {"add to no list", [&] { return add("B", anyRule); }, ACL_E_NOLIST},
        {"add to a placeholder", [&] { return add("P", anyRule); }, ACL_E_NOLIST},
        {"same rule, other number", [&] { return add("A", netRule.at(30)); }, ACL_E_ENTRY_EXISTS},
        {"same rule, counted",
         [&] { return add("A", netRule.with([](rule& b) { b.counterOptions = IP_COUNT; })); },
         ACL_E_ENTRY_EXISTS},
        {"same rule and number", [&] { return add("A", netRule.at(20)); }, ACL_E_ENTRY_EXISTS},
        {"number in use", [&] { return add("A", anyRule.at(20)); }, ACL_E_SEQ_USED},
        {"delete from no list", [&] { return del("B", anyRule); }, ACL_E_NOLIST},
        {"delete unused number", [&] { return del("A", netRule.at(21)); }, ACL_E_NOSEQ},
        {"delete unknown rule", [&] { return del("A", anyRule); }, ACL_E_NOENTRY},
        {"delete from a placeholder", [&] { return del("P", anyRule); }, ACL_E_NOENTRY},
        {"delete no list", [&] { return ipAccessListDelete(listNameMake("B"), 1); }, ACL_E_NOLIST},
        {"delete as other kind", [&] { return ipAccessListDelete(A, 2); }, ACL_E_NOLIST},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.act(), c.status);
        EXPECT_EQ(testTake(), rows{});
        EXPECT_EQ(numbers(ipAccessListFind(A)), std::vector<uint32_t>{20});
    }
}

TEST_F(IpAcl, DeleteRemovesTheLineFirstAndTriggersLate) {
    aclList* list = create("A");
    add("A", netRule);
    add("A", hostRule);
    remark(list, 5, "who asked for this");
    testTake();
    EXPECT_EQ(del("A", netRule), 0u);
    EXPECT_EQ(testTake(),
              (rows{"sync 9 A \"no  seq 5 permit 10.1.0.0/16\"", "cfg exact 100/150 A 1/6/ff",
                    "cfg exact 100/150 A 1/6/0", "sync 9 A \"no  remark 5 who asked for this\"",
                    "cfg exact 100/150 A 1/6/0 absent", "trigger A n 1 id 2"}));
    EXPECT_EQ(list->remarks, nullptr);
    // Without the flag neither the configuration nor the clients hear of it.
    EXPECT_EQ(del("A", hostRule.at(10), 1, 0), 0u);
    EXPECT_EQ(testTake(), rows{});
}

TEST_F(IpAcl, DeletingAListTakesItsBlockAndRemarks) {
    aclList* list = create("A");
    add("A", netRule);
    add("A", hostRule);
    remark(list, 5, "one");
    remark(list, 7, "two");
    testTake();
    EXPECT_EQ(ipAccessListDelete(A, IP_KIND_STANDARD), 0u);
    EXPECT_EQ(testTake(), (rows{"sync 9 A \"no  remark 5 one\"", "cfg exact 100/150 A 1/6/0",
                                "cfg remove 100/141 A", "sync 3 A \"no ip access-list standard A\"",
                                "trigger A n 0 id 2", "sync 9 A \"no  remark 7 two\"",
                                "cfg exact 100/150 A 1/8/0 absent"}));
    EXPECT_EQ(ipAccessListFind(A), nullptr);
    EXPECT_EQ(testCfgLines(), rows{});
    EXPECT_EQ(ipDelAccessList, 0u);
}

TEST_F(IpAcl, DeletingABoundListKeepsAPlaceholder) {
    aclList* list = create("A");
    add("A", netRule);
    bind(list, BIND_INTERFACE, portIfindex(2, 3));
    testTake();
    EXPECT_EQ(ipAccessListDelete(A, IP_KIND_STANDARD), 0u);
    ASSERT_EQ(ipAccessListFind(A), list);
    EXPECT_EQ(list->placeholder, 1u);
    EXPECT_EQ(list->kind, 0u);
    EXPECT_FALSE(ipCheckForPrefixAccessList(A));
    EXPECT_EQ(add("A", netRule), ACL_E_NOLIST);
    uint32_t status = 0;
    testTake();
    // Configured again, as another kind: it goes out to what it is still bound to.
    EXPECT_EQ(ipAccessListCreate(A, IP_KIND_EXTENDED, 0, &status), list);
    EXPECT_EQ(testTake(),
              (rows{"cfg insert 100/141 A 0/0/0 \"!\"",
                    "cfg insert 100/150 A 0/0/0 \"ip access-list extended A\"",
                    "sync 3 A \"ip access-list extended A\"",
                    "agent list 14409 A if 0x6100000 pipe 7 option 0 n 0", "trigger A n 0 id 1"}));
    EXPECT_TRUE(ipCheckForPrefixAccessList(A));
    EXPECT_EQ(add("A", netRule), 0u);
}

TEST_F(IpAcl, DeleteListTellsTheManagementTasksOfEveryEntry) {
    aclList* list = create("A");
    add("A", netRule);
    add("A", hostRule);
    bind(list, BIND_TASK, APP_SYSADM);
    bind(list, BIND_TASK, APP_IPM, 0, 2);
    bind(list, BIND_INTERFACE, portIfindex(1, 0));
    testTake();
    EXPECT_EQ(ipAccessListDelete(A, IP_KIND_STANDARD), 0u);
    EXPECT_EQ(testTake(),
              (rows{"agent list 14412 A if 0x4040000 pipe 4 option 0 n 2", "ipm2 list 14412 A n 2",
                    "sysadm list 14412 A n 2",
                    // No port, and IPM not again, while the whole list goes.
                    "sysadm entry 14411 A 5", "sysadm entry 14411 A 10", "sysadm list 14412 A n 0",
                    "cfg remove 100/141 A", "sync 3 A \"no ip access-list standard A\"",
                    "trigger A n 0 id 2"}));
}

TEST_F(IpAcl, FindsEntriesByWholeBlockAndByNumber) {
    aclList* list = create("A");
    add("A", netRule);
    EXPECT_EQ(ipAccessEntFind(A, &netRule), list->head);
    rule other = netRule.with([](rule& b) { b.tos = 3; });
    EXPECT_EQ(ipAccessEntFind(A, &other), nullptr);
    rule fifth = hostRule.at(5), sixth = hostRule.at(6);
    EXPECT_EQ(ipAccessEntCompareSeq(A, &fifth), list->head);
    EXPECT_EQ(ipAccessEntCompareSeq(A, &sixth), nullptr);
    EXPECT_EQ(ipAccessEntFind(listNameMake("B"), &netRule), nullptr);
    EXPECT_EQ(ipAccessEntCompareSeq(listNameMake("B"), &fifth), nullptr);
}

TEST_F(IpAcl, WholeBlocksDifferInEveryByteButNumberAndCounters) {
    aclList* list = create("A");
    add("A", netRule);
    for (size_t i = 0; i < sizeof(ipEntryBlock); i++) {
        SCOPED_TRACE(i);
        ipEntryBlock other = list->head->block;
        reinterpret_cast<uint8_t*>(&other)[i] ^= 0x40;
        bool ignored = i == 52 || (i >= 64 && i < 68);
        EXPECT_EQ(ipAccessEntFind(A, &other), ignored ? list->head : nullptr);
    }
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
    testTake();
    EXPECT_EQ(del("A", netRule, 1, 0), 0u);
    EXPECT_EQ(testTake(),
              rows{"syserr 0x50006 Error: Trying to delete from empty access list A\n"});
}

TEST_F(IpAcl, ChangingTheMaskModeRewritesEntriesAndRemarks) {
    aclList* list = create("A");
    create("B");
    add("A", netRule);
    remark(list, 5, "one");
    remark(list, 9, "two");
    testTake();
    node.inverseMask = 1;
    inverse_mask_sent_to_cfg(1);
    ipInvertAccessEntryMask();
    EXPECT_EQ(
        testTake(),
        (rows{"cfg insert 1/150  0/0/0 \"access-list inverse-mask\"",
              "sync 3  \"access-list inverse-mask\"",
              "sync 9 A \"no  seq 5 permit 10.1.0.0 255.255.0.0\"", "cfg exact 100/150 A 1/6/ff",
              "cfg exact 100/150 A 1/6/0",
              "cfg insert 100/150 A 1/6/ff \" seq 5\" / \" seq 5 permit 10.1.0.0 255.255.0.0\"",
              "sync 9 A \" seq 5 permit 10.1.0.0 255.255.0.0\"",
              "cfg insert 100/150 A 1/6/0 \" remark 5 one\"", "sync 9 A \" remark 5 one\"",
              "cfg insert 100/150 A 1/10/0 \" remark 9 two\"", "sync 9 A \" remark 9 two\""}));
    EXPECT_EQ(testCfgLines(), (rows{"access-list inverse-mask", "!", "ip access-list standard A",
                                    " remark 5 one", " seq 5 permit 10.1.0.0 255.255.0.0",
                                    " remark 9 two", "!", "ip access-list standard B"}));
    node.inverseMask = 0;
    inverse_mask_sent_to_cfg(0);
    ipInvertAccessEntryMask();
    EXPECT_EQ(testCfgLines()[3], " seq 5 permit 10.1.0.0/16");
    testTake();
}

TEST_F(IpAcl, GeneratedListsLeaveNoLine) {
    aclList* list = create("sgAcl_7", IP_KIND_EXTENDED);
    add("sgAcl_7", extended(IP_DENY, IP_PROTO_TCP));
    remark(list, 5, "x");
    node.inverseMask = 1;
    ipInvertAccessEntryMask();
    EXPECT_EQ(del("sgAcl_7", rule(2, 0, 0).at(5)), 0u);
    EXPECT_EQ(ipAccessListDelete(listNameMake("sgAcl_7"), IP_KIND_EXTENDED), 0u);
    uint32_t status = 0;
    EXPECT_NE(ipDosListCreate(listNameMake("sgAcl_d"), 0, 0, &status), nullptr);
    EXPECT_EQ(dosIpEnableIntf(listNameMake("sgAcl_d"), 1041), 0u);
    rule block = extended(IP_DENY, IP_PROTO_UDP);
    EXPECT_EQ(ipAddDosEntry(listNameMake("sgAcl_d"), &block, 0), 0u);
    for (const std::string& row : testTake())
        EXPECT_TRUE(row.starts_with("trigger") || row.starts_with("dos")) << row;
    EXPECT_EQ(testCfgLines(), rows{});
}

TEST_F(IpAcl, ADatabaseThatFailsDoesNotFailTheChange) {
    DEBUG_ACL_MGR = DEBUG_ACL_CFG;
    testFail(TEST_CFG);
    uint32_t status = 0;
    ASSERT_NE(ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status), nullptr);
    EXPECT_EQ(add("A", anyRule), 0u);
    EXPECT_EQ(del("A", anyRule), 0u);
    rows got = testTake();
    EXPECT_EQ(std::count(got.begin(), got.end(), "debug Going to add seq 5 of A\r\n"), 1);
    EXPECT_EQ(std::count(got.begin(), got.end(), "debug Going to delete seq 5 of A\r\n"), 1);
    // The entry's line is missed, its remark's is not.
    EXPECT_EQ(std::count(got.begin(), got.end(), "debug Error deleting seq 5 of A from cfg\r\n"),
              1);
}

}  // namespace
