// Ordinary lists of every family: what follows from an operator's action, in order, beside a model
// that says what a list must hold; then what is IPv4's own.
#include <map>
#include <random>

#include "include/cliMsg.h"
#include "include/service.h"
#include "tests/support/ipaclTest.h"

namespace {

class List : public OfFamily {};
FOR_EVERY_FAMILY(List);

TEST_P(List, LifeIsWrittenAndTold) {
    aclList* list = nullptr;
    EXPECT_EQ(effects([&] { list = make(); }),
              here({"cfg insert SECT/141 A 0/0/0 \"!\"", "cfg insert SECT/150 A 0/0/0 \"HEADA\"",
                    "sync 3 A \"HEADA\"", "trigger A n 0 id 0"}));
    // An add triggers before the identifier is given and writes last, a delete the other way round.
    EXPECT_EQ(effects([&] { add(0); }),
              here({"trigger A n 1 id 0", "cfg insert SECT/150 A 1/6/ff \" seq 5 RULE0\"",
                    "sync SYNC A \" seq 5 RULE0\""}));
    add(1);
    for (uint32_t seq : {3u, 5u, 7u}) remark(list, seq, "why");
    EXPECT_EQ(effects([&] { del(0); }),
              here({"sync SYNC A \"no  seq 5 RULE0\"", "cfg exact SECT/150 A 1/6/ff",
                    "cfg exact SECT/150 A 1/6/0", "sync NOTE A \"no  remark 5 why\"",
                    "cfg exact SECT/150 A 1/6/0 absent", "trigger A n 1 id 2"}));
    EXPECT_EQ(aclDelV4RemarkEntryFromList(A, 5, list), 1u) << "it left with its entry";
    EXPECT_EQ(list->remarks.tail->prev, list->remarks.head);
    // Without the flag neither the configuration nor the clients hear of it.
    EXPECT_EQ(effects([&] { EXPECT_EQ(del(1, 10, true, false), 0u); }), rows{});
    add(2, 3);
    EXPECT_EQ(effects([&] { EXPECT_EQ(drop(), 0u); }),
              here({"sync NOTE A \"no  remark 3 why\"", "cfg exact SECT/150 A 1/4/0",
                    "cfg remove SECT/141 A", "sync 3 A \"no HEADA\"", "trigger A n 0 id 3",
                    "sync NOTE A \"no  remark 7 why\"", "cfg exact SECT/150 A 1/8/0 absent"}));
    EXPECT_EQ(find(), nullptr);
    EXPECT_EQ(testCfgLines(), rows{});
    EXPECT_EQ(ipDelAccessList, 0u);
}

TEST_P(List, WhatIsThereIsGivenAndNothingIsWrittenTwice) {
    aclList* list = make();
    testTake();
    struct {
        listName name;
        uint32_t kind, placeholder, status;
        bool given;
    } const cases[] = {{A, f.kind, 0, ACL_OK, true},
                       {A, 0, 1, ACL_OK, true},
                       {listNameMake(""), f.kind, 0, ACL_E_NOLIST, false},
                       {listNameMake(""), 0, 1, ACL_E_NOLIST, false},
                       {B, 0, 0, ACL_E_NOLIST, false},
                       {B, 3, 0, ACL_E_NOLIST, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        uint32_t status = 77;
        EXPECT_EQ(aclListCreate(f.row, c.name, c.kind, c.placeholder, &status),
                  c.given ? list : nullptr);
        EXPECT_EQ(status, c.status);
        EXPECT_TRUE(list->kind == f.kind && list->placeholder == 0);
    }
    // Nothing comes into no list, and out of none.
    make(1, C);
    for (const listName& name : {B, C}) EXPECT_EQ(add(0, 5, name), ACL_E_NOLIST);
    EXPECT_EQ(del(0, SEQ_NOT_GIVEN, true, true, B), ACL_E_NOLIST);
    EXPECT_EQ(del(0, SEQ_NOT_GIVEN, true, true, C), ACL_E_NOENTRY);
    for (const listName& name : {A, B}) EXPECT_EQ(aclListDelete(f.row, name, 9), ACL_E_NOLIST);
    EXPECT_EQ(testTake(), rows{});
}

TEST_P(List, NumbersEndAtTheLargestUsable) {
    make();
    for (uint32_t seq : {f.row.seqMax + 1, 0xFFFFFFFEu}) EXPECT_EQ(add(0, seq), ACL_E_SEQ_RANGE);
    EXPECT_EQ(add(0, 0), 0u) << "0 is a number like any other";
    EXPECT_EQ(add(1, f.row.seqMax - 4), 0u);
    testTake();
    anyBlock block(f, 2, SEQ_NOT_GIVEN);
    EXPECT_EQ(aclListAdd(f.row, A, block.bytes, {}), ACL_E_SEQ_RANGE);
    EXPECT_EQ(block.seq, SEQ_NOT_GIVEN);
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(add(2, f.row.seqMax), 0u);
    EXPECT_EQ(numbers(find()), (words{0, f.row.seqMax - 4, f.row.seqMax}));
}

TEST_P(List, ADatabaseThatFailsDoesNotFailTheChange) {
    DEBUG_ACL_MGR = DEBUG_ACL_CFG;
    testFail(TEST_CFG);
    ASSERT_NE(make(), nullptr);
    EXPECT_TRUE(add(0) == 0 && del(0) == 0);
    const rows got = testTake();
    // The entry's line is missed, its remark's is not.
    for (const char* row :
         {"debug Going to add seq 5 of A\r\n", "debug Going to delete seq 5 of A\r\n",
          "debug Error deleting seq 5 of A from cfg\r\n"})
        EXPECT_EQ(std::count(got.begin(), got.end(), row), 1) << row;
}

TEST_P(List, ThatLostATreeStopsTheManager) {
    aclList* list = make();
    zekRadix* tree = std::exchange(list->contentTree, nullptr);
    EXPECT_DEATH(add(0), "");
    EXPECT_DEATH(del(0), "");
    list->contentTree = tree;
}

TEST_P(List, WholeBlocksDifferInEveryByteButNumberAndCounters) {
    constexpr std::pair<size_t, size_t> counters[] = {{52, 53}, {80, 81}, {56, 60}};
    const auto [first, last] = counters[f.row.place];
    make();
    ASSERT_EQ(add(1), 0u);
    for (size_t i = 0; i < f.row.blockBytes; i++) {
        anyBlock other(f, 1, 5);
        other.bytes[i] ^= 0x40;
        const bool ignored = (i >= first && i < last) || i - f.row.seqAt < sizeof(be32);
        EXPECT_EQ(aclEntryFindEqual(find(), other.bytes), ignored ? find()->head : nullptr) << i;
    }
}

// --- thousands of random operations, beside a std::map -------------------------------------------

class Model : public OfFamily {
  protected:
    uint32_t expectedAdd(uint32_t number, uint32_t* seq) const {
        if (*seq == SEQ_NOT_GIVEN) *seq = (bySeq.empty() ? 0 : bySeq.rbegin()->first) + SEQ_STEP;
        if (byRule.contains(number)) return ACL_E_ENTRY_EXISTS;
        return bySeq.contains(*seq) ? ACL_E_SEQ_USED : ACL_OK;
    }
    void check(const aclList* list) const {
        ASSERT_EQ(list->count, static_cast<int32_t>(bySeq.size()));
        ASSERT_EQ(list->lastEntryId, lastId) << "identifiers are never given twice";
        ASSERT_EQ(list->highestSeq, bySeq.empty() ? 0 : bySeq.rbegin()->first);
        ASSERT_EQ(zekRadixCount(list->seqTree), bySeq.size());
        ASSERT_EQ(zekRadixCount(list->contentTree), bySeq.size());
        const listEntry *entry = list->head, *before = nullptr;
        for (const auto& [seq, number] : bySeq) {
            ASSERT_NE(entry, nullptr);
            ASSERT_EQ(entry->prev, before);
            ASSERT_EQ(entry->id, idOf.at(seq));
            ASSERT_EQ(
                std::memcmp(entryBlock(*entry), anyBlock(f, number, seq).bytes, f.row.blockBytes),
                0);
            before = entry;
            entry = entry->next;
        }
        ASSERT_EQ(entry, nullptr);
        ASSERT_EQ(list->tail, before);
    }
    void forget(uint32_t seq) {
        byRule.erase(bySeq[seq]);
        bySeq.erase(seq);
    }

    std::map<uint32_t, uint32_t> bySeq, byRule;  // number -> rule, rule -> number
    std::map<uint32_t, uint32_t> idOf;           // number -> identifier
    uint32_t lastId = 0;
};
FOR_EVERY_FAMILY(Model);

TEST_P(Model, HoldsWhatTheMapHolds) {
    std::mt19937 random(1);
    auto below = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const aclList* list = make();
    for (int step = 0; step < 18000; step++) {
        SCOPED_TRACE(step);
        const uint32_t number = below(200);  // few rules, so that duplicates are common
        uint32_t seq = below(2) == 0 ? SEQ_NOT_GIVEN : below(400);
        testTake();
        switch (below(step % 2000 < 1200 ? 3 : 6)) {  // grows for a while, then shrinks
            case 0:
            case 1: {
                anyBlock block(f, number, seq);
                const uint32_t status = expectedAdd(number, &seq);
                ASSERT_EQ(aclListAdd(f.row, A, block.bytes, {}), status);
                ASSERT_EQ(block.seq, seq);
                ASSERT_TRUE(testTake().empty() || status == ACL_OK);
                if (status == ACL_OK)
                    bySeq[seq] = number, byRule[number] = seq, idOf[seq] = ++lastId;
                break;
            }
            case 2:
            case 3: {
                const bool known = byRule.contains(number);
                ASSERT_EQ(del(number), known ? ACL_OK : ACL_E_NOENTRY);
                if (known) forget(byRule[number]);
                break;
            }
            default: {
                if (seq == SEQ_NOT_GIVEN) break;
                const bool known = bySeq.contains(seq);
                ASSERT_EQ(del(number, seq), known ? ACL_OK : ACL_E_NOSEQ);
                if (known) forget(seq);
            }
        }
        if (step % 50 == 0) {
            ASSERT_NO_FATAL_FAILURE(check(list));
        }
    }
    ASSERT_NO_FATAL_FAILURE(check(list));
    // The configuration names exactly the entries that are left, in their order.
    rows lines = {"!", f.header + std::string("A")};
    for (const auto& [seq, number] : bySeq)
        lines.push_back(" seq " + std::to_string(seq) + " " + f.text(number));
    EXPECT_EQ(testCfgLines(), lines);
}

// --- IPv4 ----------------------------------------------------------------------------------------

TEST_F(IpAcl, ChangingTheMaskModeRewritesEntriesAndRemarks) {
    aclList* list = create("A");
    create("B");
    add("A", standard(IP_PERMIT, ip(10, 1, 0, 0), ip(255, 255, 0, 0)));
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
    const rows expected = {"access-list inverse-mask",
                           "!",
                           "ip access-list standard A",
                           " remark 5 one",
                           inverse,
                           " remark 9 two",
                           "!",
                           "ip access-list standard B"};
    EXPECT_EQ(testCfgLines(), expected);
    // A trace list's lines show masks as well.
    uint32_t status = 0;
    rule udp = extended(IP_DENY, IP_PROTO_UDP).from(ip(10, 0, 0, 0), ip(255, 0, 0, 0));
    ipDosListCreate(C, 0, 0, &status);
    ASSERT_EQ(ipAddDosEntry(C, &udp, 0), 0u);
    node.config.inverseMask = 0;
    inverse_mask_sent_to_cfg(0);
    ipInvertAccessEntryMask();
    EXPECT_EQ(testCfgLines()[2], " seq 5 deny udp 10.0.0.0/8 any");
    EXPECT_EQ(testCfgLines()[6], " seq 5 permit 10.1.0.0/16");
}

TEST_F(IpAcl, GeneratedListsLeaveNoLine) {
    aclList* list = create("sgAcl_7", IP_KIND_EXTENDED);
    const rule udp = extended(IP_DENY, IP_PROTO_UDP);
    add("sgAcl_7", udp);
    remark(list, 5, "x");
    node.config.inverseMask = 1;
    ipInvertAccessEntryMask();
    EXPECT_EQ(del("sgAcl_7", udp.at(5)), 0u);
    EXPECT_EQ(ipAccessListDelete(listNameMake("sgAcl_7"), IP_KIND_EXTENDED), 0u);
    const listName trace = listNameMake("sgAcl_d");
    uint32_t status = 0;
    EXPECT_NE(ipDosListCreate(trace, 0, 0, &status), nullptr);
    EXPECT_EQ(dosIpEnableIntf(trace, CLI_DOS_ENABLE), 0u);
    rule block = udp;
    EXPECT_EQ(ipAddDosEntry(trace, &block, 0), 0u);
    for (const std::string& row : testTake())
        EXPECT_TRUE(!row.starts_with("cfg") && !row.starts_with("sync")) << row;
    EXPECT_EQ(testCfgLines(), rows{});
}

}  // namespace
