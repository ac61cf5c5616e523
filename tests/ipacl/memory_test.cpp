// Every allocation of every operation fails once, in turn: the operation refuses with its status,
// nothing has changed, and the next attempt works.
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
const rule tcp = extended(IP_DENY, IP_PROTO_TCP);

class Memory : public IpAcl {
  protected:
    // Fails the point's first, second, ... use until the act succeeds, which must take so many
    // failures. Each refusal says one of these statuses, and `unchanged` must hold after it.
    void sweep(testPoint point, int failures, const std::set<uint32_t>& statuses,
               const std::function<uint32_t()>& act, const std::function<bool()>& unchanged) {
        for (int nth = 1; nth < 50; nth++) {
            SCOPED_TRACE("failure " + std::to_string(nth));
            uint64_t blocks = testBlocksInUse();
            testTake();
            testFail(point, static_cast<uint64_t>(nth), 1);
            uint32_t status = act();
            bool reached = testUses(point) >= static_cast<uint64_t>(nth);
            testFailNothing();
            if (!reached) {
                EXPECT_EQ(status, 0u);
                EXPECT_EQ(nth - 1, failures);
                return;
            }
            EXPECT_TRUE(statuses.contains(status)) << std::hex << status;
            EXPECT_TRUE(unchanged());
            EXPECT_EQ(testBlocksInUse(), blocks);
            for (const std::string& row : testTake()) EXPECT_TRUE(row.starts_with("debug ")) << row;
        }
        ADD_FAILURE() << "never succeeded";
    }
};

TEST_F(Memory, CreateIsRefusedWhole) {
    struct {
        const char* what;
        testPoint point;
        int failures;
        aclList* (*make)(const listName& name, uint32_t* status);
        aclList* (*find)(const listName& name);
    } const cases[] = {
        {"the record and two trees", TEST_MEMORY, 3,
         [](auto& n, auto* s) { return ipAccessListCreate(n, 1, 0, s); }, ipAccessListFind},
        {"a placeholder", TEST_TREE, 2,
         [](auto& n, auto* s) { return ipAccessListCreate(n, 0, 1, s); }, ipAccessListFind},
        {"its place", TEST_INSERT, 1,
         [](auto& n, auto* s) { return ipAccessListCreate(n, 1, 0, s); }, ipAccessListFind},
        {"a system list", TEST_MEMORY, 1,
         [](auto& n, auto* s) { return ipSysAccessListCreate(n, 2, 0, 0, s); },
         ipSysAccessListFind},
        {"a DoS list", TEST_MEMORY, 1, [](auto& n, auto* s) { return ipDosListCreate(n, 0, 0, s); },
         ipDosListFind},
        {"a filter", TEST_INSERT, 1,
         [](auto& n, auto* s) {
             *s = dosIpEnableIntf(n, 1041);
             return ipDosListFind(n);
         },
         ipDosListFind},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const listName name = listNameMake(c.what);
        sweep(
            c.point, c.failures, {ACL_E_LIST_MEMORY},
            [&] {
                uint32_t status = 0;
                const aclList* made = c.make(name, &status);
                EXPECT_EQ(made == nullptr, status != 0);
                return status;
            },
            [&] { return c.find(name) == nullptr; });
    }
}

TEST_F(Memory, AddIsRefusedWhole) {
    aclList* list = create("A", IP_KIND_EXTENDED);
    ASSERT_EQ(add("A", tcp.toPort(PORT_EQ, 1).at(20)), 0u);
    auto unchanged = [&] {
        return list->count == 1 && list->highestSeq == 20 && list->head == list->tail &&
               list->lastEntryId == 1 && zekRadixCount(list->seqTree) == 1 &&
               zekRadixCount(list->contentTree) == 1;
    };
    // The entry, its two nodes.
    sweep(
        TEST_MEMORY, 3, {ACL_E_ENTRY_MEMORY, ACL_E_SYSTEM}, [&] { return add("A", tcp); },
        unchanged);
    EXPECT_EQ(del("A", tcp), 0u);
    list->lastEntryId = 1;
    sweep(
        TEST_INSERT, 2, {ACL_E_SYSTEM}, [&] { return add("A", tcp.at(10)); }, unchanged);
    EXPECT_EQ(del("A", tcp), 0u);
    // The second tree's failure is named and undone.
    DEBUG_ACL_MGR = DEBUG_ACL_DUP;
    testFail(TEST_INSERT, 2);
    const rows told = effects([&] { EXPECT_EQ(add("A", tcp.at(5)), ACL_E_SYSTEM); });
    testFailNothing();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_TRUE(told[0].ends_with(" : zekRadixInsert Failed\r\n")) << told[0];
    EXPECT_TRUE(told[1].ends_with(" Insert to AclInfoTree failed\r\n")) << told[1];
    EXPECT_EQ(del("A", tcp.at(5)), ACL_E_NOSEQ) << "no node is left that points at a freed entry";
}

TEST_F(Memory, SystemEntriesAndBatches) {
    uint32_t status = 0;
    aclList* list = ipSysAccessListCreate(A, 2, 0, 1, &status);
    sweep(
        TEST_MEMORY, 1, {ACL_E_ENTRY_MEMORY}, [] { return ipSysAddAccessEntry(A, &tcp, 0, 1); },
        [&] { return list->count == 0; });
    std::vector<ipEntryBlock> blocks(20, tcp);
    sweep(
        TEST_MEMORY, 20, {ACL_E_ENTRY_MEMORY},
        [&] { return ipSysAddThirteenAccessEntry(A, blocks.data(), 0, 1, 20); },
        [&] { return list->count == 1; });
}

TEST_F(Memory, ADosListKeepsTheRaisedNumberOfARefusedEntry) {
    uint32_t status = 0;
    aclList* list = ipDosListCreate(A, 0, 0, &status);
    testFail(TEST_MEMORY, 1, 1);
    rule refused = tcp, block = tcp;
    EXPECT_EQ(ipAddDosEntry(A, &refused, 0), ACL_E_ENTRY_MEMORY);
    EXPECT_EQ(list->count, 0);
    EXPECT_EQ(list->highestSeq, 5u);
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
