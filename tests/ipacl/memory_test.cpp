// Every allocation of every operation fails once, in turn: the operation refuses with its status,
// nothing has changed, and the next attempt works.
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
const rule tcp = extended(IP_DENY, IP_PROTO_TCP);

struct refusal {
    testPoint point;
    std::set<uint32_t> statuses;  // any of these, on the way
};

class Memory : public IpAcl {
  protected:
    // Fails the point's first, second, ... use until the act succeeds; returns how often it failed.
    // `unchanged` must hold after each refusal.
    int sweep(const refusal& expected, const std::function<uint32_t()>& act,
              const std::function<bool()>& unchanged) {
        for (int nth = 1; nth < 50; nth++) {
            uint64_t blocks = testBlocksInUse();
            testTake();
            testFail(expected.point, static_cast<uint64_t>(nth), 1);
            uint32_t status = act();
            bool reached = testUses(expected.point) >= static_cast<uint64_t>(nth);
            testFailNothing();
            if (!reached) {
                EXPECT_EQ(status, 0u);
                return nth - 1;
            }
            EXPECT_TRUE(expected.statuses.contains(status)) << std::hex << status;
            EXPECT_TRUE(unchanged()) << "after failure " << nth;
            EXPECT_EQ(testBlocksInUse(), blocks) << "after failure " << nth;
            for (const std::string& row : testTake())
                EXPECT_TRUE(row.starts_with("debug ")) << row << " after failure " << nth;
        }
        ADD_FAILURE() << "never succeeded";
        return -1;
    }
};

TEST_F(Memory, CreateIsRefusedWhole) {
    auto create = [](auto operation) {
        return [operation] {
            uint32_t status = 0;
            aclList* list = operation(&status);
            EXPECT_EQ(list == nullptr, status != 0);
            return status;
        };
    };
    std::set<uint32_t> noMemory = {ACL_E_LIST_MEMORY};
    // The list record and two trees.
    EXPECT_EQ(sweep({TEST_MEMORY, noMemory},
                    create([](uint32_t* s) { return ipAccessListCreate(A, 1, 0, s); }),
                    [] { return ipAccessListFindFirst() == nullptr; }),
              3);
    EXPECT_EQ(sweep({TEST_TREE, noMemory}, create([](uint32_t* s) {
                        return ipAccessListCreate(listNameMake("B"), 0, 1, s);
                    }),
                    [] { return ipAccessListFind(listNameMake("B")) == nullptr; }),
              2);
    EXPECT_EQ(sweep({TEST_INSERT, noMemory}, create([](uint32_t* s) {
                        return ipAccessListCreate(listNameMake("C"), 1, 0, s);
                    }),
                    [] { return ipAccessListFind(listNameMake("C")) == nullptr; }),
              1);
    EXPECT_EQ(sweep({TEST_MEMORY, noMemory},
                    create([](uint32_t* s) { return ipSysAccessListCreate(A, 2, 0, 0, s); }),
                    [] { return ipSysAccessListFindFirst() == nullptr; }),
              1);
    EXPECT_EQ(sweep({TEST_MEMORY, noMemory},
                    create([](uint32_t* s) { return ipDosListCreate(A, 0, 0, s); }),
                    [] { return ipDosListFindFirst() == nullptr; }),
              1);
    EXPECT_EQ(sweep(
                  {TEST_INSERT, noMemory}, [] { return dosIpEnableIntf(listNameMake("D"), 1041); },
                  [] { return ipDosListFind(listNameMake("D")) == nullptr; }),
              1);
}

TEST_F(Memory, AddIsRefusedWhole) {
    aclList* list = create("A", IP_KIND_EXTENDED);
    ASSERT_EQ(add("A", tcp.toPort(PORT_EQ, 1).at(20)), 0u);
    auto unchanged = [&] {
        return list->count == 1 && list->highestSeq == 20 && list->head == list->tail &&
               list->lastEntryId == 1 && zekRadixCount(list->seqTree) == 1 &&
               zekRadixCount(list->contentTree) == 1;
    };
    std::set<uint32_t> refused = {ACL_E_ENTRY_MEMORY, ACL_E_SYSTEM};
    // The entry, its two nodes.
    EXPECT_EQ(sweep(
                  {TEST_MEMORY, refused}, [&] { return add("A", tcp); }, unchanged),
              3);
    EXPECT_EQ(del("A", tcp), 0u);
    list->lastEntryId = 1;
    EXPECT_EQ(sweep(
                  {TEST_INSERT, {ACL_E_SYSTEM}}, [&] { return add("A", tcp.at(10)); }, unchanged),
              2);
}

TEST_F(Memory, TheSecondTreesFailureIsNamedAndUndone) {
    create("A", IP_KIND_EXTENDED);
    testTake();
    DEBUG_ACL_MGR = DEBUG_ACL_DUP;
    testFail(TEST_INSERT, 2);
    EXPECT_EQ(add("A", tcp), ACL_E_SYSTEM);
    testFailNothing();
    rows told = testTake();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_TRUE(told[0].ends_with(" : zekRadixInsert Failed\r\n")) << told[0];
    EXPECT_TRUE(told[1].ends_with(" Insert to AclInfoTree failed\r\n")) << told[1];
    EXPECT_EQ(del("A", tcp.at(5)), ACL_E_NOSEQ) << "no node is left that points at a freed entry";
    EXPECT_EQ(add("A", tcp), 0u);
}

TEST_F(Memory, SystemEntriesAndBatches) {
    uint32_t status = 0;
    aclList* list = ipSysAccessListCreate(A, 2, 0, 1, &status);
    EXPECT_EQ(
        sweep(
            {TEST_MEMORY, {ACL_E_ENTRY_MEMORY}}, [] { return ipSysAddAccessEntry(A, &tcp, 0, 1); },
            [&] { return list->count == 0; }),
        1);
    ipEntryBlock blocks[20];
    for (ipEntryBlock& block : blocks) block = tcp;
    EXPECT_EQ(sweep(
                  {TEST_MEMORY, {ACL_E_ENTRY_MEMORY}},
                  [&] { return ipSysAddThirteenAccessEntry(A, blocks, 0, 1, 20); },
                  [&] { return list->count == 1; }),
              20);
}

TEST_F(Memory, ADosListKeepsTheRaisedNumberOfARefusedEntry) {
    uint32_t status = 0;
    aclList* list = ipDosListCreate(A, 0, 0, &status);
    testFail(TEST_MEMORY);
    rule block = tcp;
    EXPECT_EQ(ipAddDosEntry(A, &block, 0), ACL_E_ENTRY_MEMORY);
    testFailNothing();
    EXPECT_EQ(list->count, 0);
    EXPECT_EQ(list->highestSeq, 5u);
    block = tcp;
    EXPECT_EQ(ipAddDosEntry(A, &block, 0), 0u);
    EXPECT_EQ(block.seq, 10u);
}

TEST_F(Memory, AShowIsRefusedWithoutABuffer) {
    create("A");
    testFail(TEST_BUFFER);
    void* buffer = this;
    uint32_t size = 1;
    EXPECT_EQ(aclShowIpAcl(A, &buffer, &size), ACL_E_MEMORY);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(aclShowIpAclAll(listNameMake(""), &buffer, &size), ACL_E_MEMORY);
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(Memory, PoolLimitsRefuseLikeFailures) {
    create("A", IP_KIND_EXTENDED);
    ASSERT_EQ(add("A", tcp), 0u);
    ASSERT_EQ(zekMemSetLimit(sizeof(aclEntry), 1), 0);
    EXPECT_EQ(add("A", tcp.toPort(PORT_EQ, 1)), ACL_E_ENTRY_MEMORY);
    ASSERT_EQ(del("A", tcp), 0u);
    EXPECT_EQ(add("A", tcp.toPort(PORT_EQ, 1)), 0u) << "a block that came back serves again";
    zekMemSetLimit(sizeof(aclEntry), UINT64_MAX);
}

}  // namespace
