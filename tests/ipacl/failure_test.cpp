// Every allocation of every operation fails once, in turn: the operation is refused with one of its
// statuses, nothing has changed, and the next attempt works.
#include <functional>
#include <set>

#include "include/cliMsg.h"
#include "include/policyMsg.h"
#include "include/service.h"
#include "tests/support/ipaclTest.h"

namespace {

const rule tcp = extended(IP_DENY, IP_PROTO_TCP);

template <class Fixture>
class Sweeps : public Fixture {
  protected:
    // Does an operation in two rounds, under the round's name: memory fails, then the trees'
    // places. It is refused so many times before it succeeds; returned is what was said of it.
    typedef std::function<uint32_t(const listName& name, uint32_t round)> operation;
    using Fixture::state;
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
typedef Sweeps<OfFamily> Failure;
typedef Sweeps<IpAcl> SystemFailure;
FOR_EVERY_FAMILY(Failure);

TEST_P(Failure, LeavesAListOrAnEntryOut) {
    make();
    ASSERT_EQ(add(9, 20), 0u);
    for (uint32_t placeholder : {0u, 1u})
        sweep(placeholder ? "a placeholder" : "a list, its trees and its place", 4,
              {ACL_E_LIST_MEMORY}, [&](auto& name, auto) {
                  uint32_t status = 0;
                  const aclList* list =
                      aclListCreate(f.row, name, placeholder ? 0 : 1, placeholder, &status);
                  EXPECT_EQ(list == nullptr, status != 0);
                  return status;
              });
    sweep("an entry and its nodes", 5, {ACL_E_ENTRY_MEMORY, ACL_E_SYSTEM},
          [&](auto&, auto round) { return add(round); });
}

TEST_F(SystemFailure, LeavesAListOrAnEntryOut) {
    const listName S = listNameMake("S"), D = listNameMake("D");
    uint32_t status = 0;
    ipSysAccessListCreate(S, IP_KIND_EXTENDED, 0, 1, &status);
    ipDosListCreate(D, 0, 0, &status);
    auto made = [&](const aclList* list) {
        EXPECT_EQ(list == nullptr, status != 0);
        return status;
    };
    sweep("a system list", 2, {ACL_E_LIST_MEMORY},
          [&](auto& name, auto) { return made(ipSysAccessListCreate(name, 2, 0, 0, &status)); });
    sweep("a DoS list", 2, {ACL_E_LIST_MEMORY},
          [&](auto& name, auto) { return made(ipDosListCreate(name, 0, 0, &status)); });
    sweep("a filter", 2, {ACL_E_LIST_MEMORY}, [](auto& name, auto) {
        const uint32_t enabled = dosIpEnableIntf(name, CLI_DOS_ENABLE);
        (void)dosIpEnableIntf(name, CLI_DOS_DISABLE);
        return enabled;
    });
    std::vector<ipEntryBlock> blocks(20, tcp);
    sweep("a system entry", 4, {ACL_E_ENTRY_MEMORY}, [&](auto&, auto round) {
        blocks[0] = tcp.toPort(round);
        return ipSysAddAccessEntry(S, &blocks[0], 0, 1);
    });
    sweep("a batch", 0, {},
          [&](auto&, auto) { return ipSysAddThirteenAccessEntry(S, blocks.data(), 0, 1, 20); });
    sweep("a DoS entry", 1, {ACL_E_ENTRY_MEMORY}, [&](auto&, auto round) {
        rule block = tcp.toPort(round);
        return ipAddDosEntry(D, &block, 0);
    });
    // The number that the refused entry would have got stays used.
    EXPECT_EQ(numbers(ipDosListFind(D)), (words{10, 15}));
}

TEST_P(Failure, LeavesAClientOutAndSaysSo) {
    const std::string noList = "Error: Unable to create Accesslist ",
                      noMemory = "Error: Unable to allocate memory for Acl ";
    // The list that was made for the client stays: it is meant.
    stays = {{"task0", 4}, {"task1", 2}, {"map0", 4}, {"map1", 2}};
    char task[128];
    std::snprintf(task, sizeof task, f.row.addClientRefused, listNameArg(listNameMake("task0")));
    EXPECT_EQ(
        sweep("task", 6, {1},
              [this](auto& name, auto) {
                  return uint32_t{aclAddTaskClient(APP_OSPF, 3, name, 9, f.row.af) == nullptr};
              }),
        (rows{std::string("syserr 0x50006 ") + task,
              "syserr 0x50006 " + noMemory + "task0 client Task id 64, instance 3\n"}));
    EXPECT_EQ(sweep("map", 6, {HOST},
                    [this](auto& name, auto) {
                        namedList* slot = nullptr;
                        const int said = aclAddRmapClient(
                            {f.row.clauseClass, f.row.clauseCode, &slot}, listNameMake("m"), name);
                        EXPECT_EQ(slot == nullptr, said != 0);
                        return static_cast<uint32_t>(said);
                    }),
              (rows{"syserr 0x50004 " + noList + "map0 in aclAddRmapClient\n",
                    "syserr 0x50004 " + noMemory + "map0 client Routemap m\n"}));
    // Without its bitmap an interface is not made, but the binding stays and is taken up.
    stays = {{"port0", 7}};
    EXPECT_EQ(
        sweep(
            "port", 10, {ACL_E_SYSTEM, ACL_E_MEMORY},
            [this](auto& name, auto round) {
                const bindingBlock block{};
                const uint32_t port = portIfindex(1, round);
                const uint32_t said = aclListApply(f.row, name, {port, 0, 0, 0, &block, false, ""});
                EXPECT_EQ(AclIntfTreeFind(port) == nullptr, said != 0);
                EXPECT_TRUE(said != 0 || find(name)->clients->next == nullptr);
                return said;
            }),
        (rows{"syserr 0x50006 " + noList + "port0 in " + f.row.applyName + "\n",
              "syserr 0x50006 " + noMemory + "port0 client interface id 67371008\n"}));
}

// MAC lists have words of their own for it, whichever tree it is.
TEST_P(Failure, OfATreeIsNamedAndUndone) {
    make();
    DEBUG_ACL_MGR = DEBUG_ACL_DUP;
    for (uint64_t tree : {1u, 2u}) {
        testFail(TEST_INSERT, tree, 1);
        const rows told = effects([&] { EXPECT_EQ(add(1, 5), ACL_E_SYSTEM); });
        testFailNothing();
        ASSERT_EQ(told.size(), 2u);
        EXPECT_TRUE(told[0].ends_with(" : zekRadixInsert Failed\r\n")) << told[0];
        EXPECT_TRUE(told[1].ends_with(f.row.place == INTF_MAC
                                          ? "syserr 0x50006 Error: aclSeqNoNodeInsert failed\r\n"
                                      : tree == 1 ? " Insert to AclSeqNumTree failed\r\n"
                                                  : " Insert to AclInfoTree failed\r\n"))
            << told[1];
        EXPECT_EQ(del(1, 5), ACL_E_NOSEQ) << "no node is left that points at a freed entry";
    }
}

TEST_P(Failure, PoolLimitsRefuseLikeFailures) {
    make();
    ASSERT_EQ(add(0), 0u);
    ASSERT_EQ(zekMemSetLimit(f.row.entryBytes, 1), 0);
    EXPECT_EQ(add(1), ACL_E_ENTRY_MEMORY);
    ASSERT_EQ(del(0), 0u);
    EXPECT_EQ(add(1), 0u) << "a block that came back serves again";
    zekMemSetLimit(f.row.entryBytes, UINT64_MAX);
}

}  // namespace
