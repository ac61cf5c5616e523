// Every allocation of every operation fails once, in turn: the operation is refused with one of its
// statuses, nothing has changed, and the next attempt works.
#include <functional>
#include <set>

#include "include/cliMsg.h"
#include "include/policyMsg.h"
#include "include/service.h"
#include "l2acl/zekl2acl.h"
#include "tests/support/ipaclTest.h"

namespace {

const rule tcp = extended(IP_DENY, IP_PROTO_TCP);

class Failure : public IpAcl {
  protected:
    // Does an operation in two rounds, under the round's name: memory fails, then the trees'
    // places. It is refused so many times before it succeeds; returned is what was said of it.
    typedef std::function<uint32_t(const listName& name, uint32_t round)> operation;
    rows sweep(const std::string& what, size_t failures, const std::set<uint32_t>& refusals,
               const operation& act) {
        SCOPED_TRACE(what);
        rows told;
        for (uint32_t round : {0u, 1u})
            for (uint64_t nth = 1; nth < 50; nth++) {
                const std::string before = state();
                const testPoint point = round == 0 ? TEST_MEMORY : TEST_INSERT;
                testTake();
                testFail(point, nth, 1);
                const uint32_t status = act(listNameMake(what + std::to_string(round)), round);
                const bool reached = testUses(point) >= nth;
                testFailNothing();
                if (!reached) {
                    EXPECT_EQ(status, 0u);
                    break;
                }
                failures--;
                EXPECT_TRUE(refusals.contains(status)) << std::hex << status;
                EXPECT_EQ(state() == before, !stays.contains({what + std::to_string(round), nth}))
                    << nth;
                for (const std::string& row : testTake())
                    if (round == 0 && row.starts_with("syserr ") &&
                        std::ranges::find(told, row) == told.end())
                        told.push_back(row);
            }
        EXPECT_EQ(failures, 0u);
        return told;
    }
    std::set<std::pair<std::string, uint64_t>> stays;  // refusals that change something
};

TEST_F(Failure, LeavesAListOrAnEntryOut) {
    const listName S = listNameMake("S"), D = listNameMake("D");
    uint32_t status = 0;
    create("L", IP_KIND_EXTENDED);
    ASSERT_EQ(add("L", tcp.toPort(9).at(20)), 0u);
    ipSysAccessListCreate(S, IP_KIND_EXTENDED, 0, 1, &status);
    ipDosListCreate(D, 0, 0, &status);
    auto made = [&](const aclList* list) {
        EXPECT_EQ(list == nullptr, status != 0);
        return status;
    };
    sweep("a list, its trees and its place", 4, {ACL_E_LIST_MEMORY},
          [&](auto& name, auto) { return made(ipAccessListCreate(name, 1, 0, &status)); });
    sweep("a placeholder", 4, {ACL_E_LIST_MEMORY},
          [&](auto& name, auto) { return made(ipAccessListCreate(name, 0, 1, &status)); });
    sweep("a system list", 2, {ACL_E_LIST_MEMORY},
          [&](auto& name, auto) { return made(ipSysAccessListCreate(name, 2, 0, 0, &status)); });
    sweep("a DoS list", 2, {ACL_E_LIST_MEMORY},
          [&](auto& name, auto) { return made(ipDosListCreate(name, 0, 0, &status)); });
    sweep("a filter", 2, {ACL_E_LIST_MEMORY}, [](auto& name, auto) {
        const uint32_t enabled = dosIpEnableIntf(name, CLI_DOS_ENABLE);
        (void)dosIpEnableIntf(name, CLI_DOS_DISABLE);
        return enabled;
    });
    sweep("an entry and its nodes", 5, {ACL_E_ENTRY_MEMORY, ACL_E_SYSTEM},
          [&](auto&, auto round) { return add("L", tcp.toPort(round)); });
    std::vector<ipEntryBlock> blocks(20, tcp);
    sweep("a system entry", 1, {ACL_E_ENTRY_MEMORY}, [&](auto&, auto round) {
        blocks[0] = tcp.toPort(round);
        return ipSysAddAccessEntry(S, &blocks[0], 0, 1);
    });
    sweep("a batch", 20, {ACL_E_ENTRY_MEMORY},
          [&](auto&, auto) { return ipSysAddThirteenAccessEntry(S, blocks.data(), 0, 1, 20); });
    sweep("a DoS entry", 1, {ACL_E_ENTRY_MEMORY}, [&](auto&, auto round) {
        rule block = tcp.toPort(round);
        return ipAddDosEntry(D, &block, 0);
    });
    // The number that the refused entry would have got stays used.
    EXPECT_EQ(numbers(ipDosListFind(D)), (words{10, 15}));
}

TEST_F(Failure, LeavesAClientOutAndSaysSo) {
    const std::string noList = "Error: Unable to create Accesslist ",
                      noMemory = "Error: Unable to allocate memory for Acl ";
    // The list that was made for the client stays: it is meant.
    stays = {{"task0", 4}, {"task1", 2}, {"map0", 4}, {"map1", 2}};
    EXPECT_EQ(sweep("task", 6, {1},
                    [](auto& name, auto) {
                        return uint32_t{aclAddTaskClient(APP_OSPF, 3, name, 9, 1) == nullptr};
                    }),
              (rows{"syserr 0x50006 " + noList + "task0 in aclAddTaskClient\n",
                    "syserr 0x50006 " + noMemory + "task0 client Task id 64, instance 3\n"}));
    EXPECT_EQ(sweep("map", 6, {HOST},
                    [](auto& name, auto) {
                        namedList* slot = nullptr;
                        const int said =
                            aclAddRmapClient({RTMAP_MS_MATCH, 5, &slot}, listNameMake("m"), name);
                        EXPECT_EQ(slot == nullptr, said != 0);
                        return static_cast<uint32_t>(said);
                    }),
              (rows{"syserr 0x50004 " + noList + "map0 in aclAddRmapClient\n",
                    "syserr 0x50004 " + noMemory + "map0 client Routemap m\n"}));
    // Without its bitmap an interface is not made, but the binding stays and is taken up.
    stays = {{"port0", 7}};
    EXPECT_EQ(
        sweep("port", 10, {ACL_E_SYSTEM, ACL_E_MEMORY},
              [](auto& name, auto round) {
                  const bindingBlock block{};
                  const uint32_t port = portIfindex(1, round);
                  const uint32_t said = aclIpApplyIntf(name, {port, 0, 0, 0, &block, false, ""});
                  EXPECT_EQ(AclIntfTreeFind(port) == nullptr, said != 0);
                  EXPECT_TRUE(said != 0 || ipAccessListFind(name)->clients->next == nullptr);
                  return said;
              }),
        (rows{"syserr 0x50006 " + noList + "port0 in aclIpApplyIntf\n",
              "syserr 0x50006 " + noMemory + "port0 client interface id 67371008\n"}));
}

TEST_F(IpAcl, TheSecondTreesFailureIsNamedAndUndone) {
    create("A", IP_KIND_EXTENDED);
    DEBUG_ACL_MGR = DEBUG_ACL_DUP;
    testFail(TEST_INSERT, 2);
    const rows told = effects([&] { EXPECT_EQ(add("A", tcp.at(5)), ACL_E_SYSTEM); });
    testFailNothing();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_TRUE(told[0].ends_with(" : zekRadixInsert Failed\r\n")) << told[0];
    EXPECT_TRUE(told[1].ends_with(" Insert to AclInfoTree failed\r\n")) << told[1];
    EXPECT_EQ(del("A", tcp.at(5)), ACL_E_NOSEQ) << "no node is left that points at a freed entry";
    // MAC lists have words of their own for it, whichever tree it is.
    uint32_t status = 0;
    const listName M = listNameMake("M");
    ASSERT_NE(l2AccessListCreate(M, IP_KIND_STANDARD, 0, &status), nullptr);
    macEntryBlock body{};
    for (uint64_t tree : {1u, 2u}) {
        testTake();
        testFail(TEST_INSERT, tree, 1);
        body.seq = 5u;
        EXPECT_EQ(l2AddAccessEntry(M, &body, 0, 0, 255, 0), ACL_E_SYSTEM);
        testFailNothing();
        const rows said = testTake();
        EXPECT_EQ(std::ranges::count(said, "syserr 0x50006 Error: aclSeqNoNodeInsert failed\r\n"),
                  1);
        EXPECT_EQ(l2DelAccessEntry(M, &body, 255), ACL_E_NOSEQ);
    }
}

TEST_F(IpAcl, PoolLimitsRefuseLikeFailures) {
    create("A", IP_KIND_EXTENDED);
    ASSERT_EQ(add("A", tcp), 0u);
    ASSERT_EQ(zekMemSetLimit(sizeof(aclEntry), 1), 0);
    EXPECT_EQ(add("A", tcp.toPort(1)), ACL_E_ENTRY_MEMORY);
    ASSERT_EQ(del("A", tcp), 0u);
    EXPECT_EQ(add("A", tcp.toPort(1)), 0u) << "a block that came back serves again";
    zekMemSetLimit(sizeof(aclEntry), UINT64_MAX);
}

}  // namespace
