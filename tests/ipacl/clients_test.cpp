// Who uses a list and is told of its changes: tasks, route maps, and every kind of place. Which
// lists live for them.
#include "common/client.h"
#include "include/policyMsg.h"
#include "include/service.h"
#include "tests/support/ipaclTest.h"

namespace {

class Clients : public OfFamily {
  protected:
    aclList* reg(uint32_t application, uint32_t instance = 0) const {
        return aclAddTaskClient(application, instance, A, 9, f.row.af);
    }
    int unreg(uint32_t application, uint32_t instance = 0) const {
        return aclDelTaskClient(application, instance, A, f.row.af);
    }
    int clause(decltype(aclAddRmapClient)* call, namedList** slot, const char* map) const {
        return call({f.row.clauseClass, f.row.clauseCode, slot}, listNameMake(map), A);
    }
    rows sentBy(const std::function<uint32_t()>& act) const {
        return sends([&] { EXPECT_EQ(act(), 0u); });
    }
    rows added() const {
        return sentBy([this] { return add(0); });
    }
    rows deleted(bool send) const {
        return sentBy([this, send] { return del(0, SEQ_NOT_GIVEN, send); });
    }
    // A change of entries is sent alike as it is added and as it is deleted: the message alone
    // differs.
    void expectBoth(bool send, rows told) const {
        EXPECT_EQ(added(), here(told));
        for (std::string& row : told)
            if (const size_t at = row.find(".add"); at != row.npos) row.replace(at, 4, ".del");
        EXPECT_EQ(deleted(send), here(told));
    }
};
FOR_EVERY_FAMILY(Clients);

TEST_P(Clients, TasksGetTheirCopyWhenTheListIsConfiguredOrTheyRegister) {
    for (uint32_t app : {APP_SNMP, APP_IPM, APP_SYSADM, APP_OSPF}) ASSERT_NE(reg(app), nullptr);
    EXPECT_EQ(sends([&] { make(); }), here({"sysadm list in.list A n 0", "ipm0 list in.list A n 0",
                                            "snmp list in.list A n 0"}));
    EXPECT_EQ(added(), here({"sysadm entry in.add A 5", "ipm0 list in.list A n 1",
                             "snmp entry in.add A 5"}));
    EXPECT_EQ(sends([&] { reg(APP_IPM, 2); }), here({"ipm2 list in.list A n 1"}));
    for (uint32_t app : {APP_IPM, APP_BGP})
        EXPECT_EQ(sends([&] { reg(app, app == APP_IPM ? 2 : 0); }), rows{}) << "once; no copies";
    // IPM knows no single entries: it gets the whole list when all is done. SYSADM's copy of an
    // empty list goes, and it alone is told that it loses its copy.
    EXPECT_EQ(deleted(true),
              here({"sysadm entry in.del A 5", "snmp entry in.del A 5", "sysadm list in.drop A n 0",
                    "ipm2 list in.list A n 0", "ipm0 list in.list A n 0"}));
    EXPECT_EQ(sends([&] {
                  for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM, APP_OSPF}) unreg(app);
              }),
              here({"sysadm list in.drop A n 0"}));
}

TEST_P(Clients, APlaceholderLivesAsLongAsItsLastClient) {
    aclList* list = reg(APP_OSPF);
    ASSERT_NE(list, nullptr);
    for (uint32_t instance : {0u, 1u}) EXPECT_EQ(reg(APP_OSPF, instance), list);
    EXPECT_EQ(aclAddTaskMcastClient(APP_IGMP, 0, A, 0, f.row.af), list);
    EXPECT_EQ(list->placeholder, 1u);
    EXPECT_EQ(unreg(APP_BGP), -1);
    EXPECT_EQ(aclDelTaskMcastClient(APP_IGMP, 0, A, f.row.af), 0);
    EXPECT_EQ(unreg(APP_OSPF), 0);
    EXPECT_EQ(find(), list);
    EXPECT_EQ(unreg(APP_OSPF, 1), 0);
    EXPECT_EQ(find(), nullptr);
    EXPECT_EQ(unreg(APP_OSPF, 1), 0);  // no list: nothing to do
    // A list that is configured stays.
    list = make();
    EXPECT_EQ(reg(APP_OSPF), list);
    EXPECT_EQ(unreg(APP_OSPF), 0);
    EXPECT_EQ(find(), list);
    EXPECT_EQ(aclAddTaskClient(APP_OSPF, 0, listName{}, 0, f.row.af), nullptr);
    for (uint32_t af : {0u, 3u}) {  // no store
        EXPECT_EQ(aclAddTaskClient(APP_OSPF, 0, A, 0, af), nullptr);
        EXPECT_EQ(aclDelTaskClient(APP_OSPF, 0, A, af), -1);
    }
}

TEST_P(Clients, RouteMapsHoldTheListOnceForEachClause) {
    namedList untouched{};
    namedList* slots[] = {&untouched, &untouched, &untouched};
    const char* const maps[] = {"map", "map", "m2"};
    for (uint32_t other : {1u, 2u}) {  // clauses that are none of ours
        const rmapMatch match{static_cast<uint16_t>(f.row.clauseClass + other), f.row.clauseCode,
                              slots};
        EXPECT_EQ(aclAddRmapClient(match, A, A), 0);
        EXPECT_EQ(aclAddRmapClient({f.row.clauseClass, 1000 + other, slots}, A, A), 0);
    }
    EXPECT_EQ(slots[0], &untouched);
    for (int i : {0, 1, 2}) ASSERT_EQ(clause(aclAddRmapClient, &slots[i], maps[i]), 0);
    const aclList* list = find();
    ASSERT_NE(list, nullptr);
    EXPECT_TRUE(slots[0] == list && slots[1] == list && slots[2] == list);
    EXPECT_EQ(clause(aclDelRmapClient, nullptr, "nobody"), -1);
    for (int i : {2, 0, 1}) {
        EXPECT_EQ(find(), list) << i;
        EXPECT_EQ(clause(aclDelRmapClient, &slots[i], maps[i]), 0);
        EXPECT_EQ(slots[i], nullptr);
    }
    EXPECT_EQ(find(), nullptr);
    EXPECT_EQ(clause(aclDelRmapClient, &slots[1], "map"), 0);  // no list
}

// One name or number in two roles is two clients; whichever goes, the others keep their order.
TEST_P(Clients, EachIsFoundAmongAllAndTheOrderStays) {
    constexpr uint32_t SAME = 190;
    aclList* list = make();
    const std::vector<listClientKey> keys = {{CLIENT_TASK, SAME},
                                             {CLIENT_TASK, SAME, 1},
                                             {CLIENT_INTERFACE, SAME},
                                             {CLIENT_INTERFACE, SAME, 0, 1},
                                             {CLIENT_VLAN_GROUP, SAME},
                                             {CLIENT_ROUTE_MAP, 0, 0, 0, listNameMake("m")},
                                             {CLIENT_ROUTE_MAP, 0, 0, 0, listNameMake("m1")}};
    for (size_t gone = 0; gone < keys.size(); gone++) {
        std::vector<const listClient*> expected;  // the newest in front
        for (const listClientKey& key : keys)
            expected.insert(expected.begin(), clientAdd(list, key));
        for (size_t i = 0; i < keys.size(); i++)
            ASSERT_EQ(clientFind(list, keys[i]), expected[keys.size() - 1 - i]) << i;
        ASSERT_EQ(clientAdd(list, keys[gone]), nullptr) << "one of each";
        clientDrop(list, clientFind(list, keys[gone]));
        EXPECT_EQ(clientFind(list, keys[gone]), nullptr);
        expected.erase(expected.end() - 1 - static_cast<ptrdiff_t>(gone));
        for (const listClient* c = list->clients; c != nullptr; c = c->next)
            EXPECT_EQ(
                c,
                expected[static_cast<size_t>(std::ranges::find(expected, c) - expected.begin())]);
        while (list->clients != nullptr) clientDrop(list, list->clients);
    }
    EXPECT_EQ(list->clientIndex, nullptr);
}

TEST_P(Clients, PortsReceiveEntriesByDirectionAndCard) {
    aclList* list = make();
    aclLinecardInfo[2].isVortan = 1;
    testHost.missingPorts = {3};
    bind(list, CLIENT_INTERFACE, portIfindex(1, 0), 0);
    bind(list, CLIENT_INTERFACE, portIfindex(1, 1), 1);  // this card cannot filter egress
    bind(list, CLIENT_INTERFACE, portIfindex(2, 0), 1);
    // Bits 18-24 hold a port id already.
    bind(list, CLIENT_INTERFACE, portIfindex(2, 5) | 1u << 30, 0);
    bind(list, CLIENT_INTERFACE, 25u << 25 | 1u << 18, 0);  // no such slot
    bind(list, CLIENT_INTERFACE, portIfindex(1, 3));
    expectBoth(true, {"agent in.add A 5 to 0x4100000/-1", "agent in.add A 5 to 0x46180000/5",
                      "agent out.add A 5 to 0x6040000/4", "agent in.add A 5 to 0x4040000/4"});
    EXPECT_EQ(added().size(), 4u);
    EXPECT_EQ(deleted(false), rows{}) << "ports only when asked";
}

TEST_P(Clients, LagMembersAreServedFromTheLastToTheFirst) {
    aclList* list = make();
    aclLinecardInfo[3].isVortan = 1;
    join(LAG, {portIfindex(1, 1), portIfindex(3, 2), portIfindex(1, 3)});
    bind(list, CLIENT_INTERFACE, LAG, 0);
    // Unlike ports, LAGs and VLANs hear of a deletion whatever the send flag says.
    expectBoth(false, {"agent in.add A 5 to 0x4100000/7", "agent in.add A 5 to 0x80c0000/6",
                       "agent in.add A 5 to 0x4080000/5"});
    clientDrop(list, list->clients);
    bind(list, CLIENT_INTERFACE, LAG, 1);
    EXPECT_EQ(added(), here({"agent out.add A 5 to 0x80c0000/6"}));
    aclIntfDrop(AclIntfTreeFind(LAG));
    EXPECT_EQ(deleted(true), rows{}) << "a LAG without members";
}

TEST_P(Clients, EntriesForAVlanGoOnceToEachOfItsCards) {
    aclList* list = make();
    for (uint32_t port : {portIfindex(2, 0), portIfindex(2, 1)})
        ASSERT_EQ(aclVlanMemberAdd(VLAN, port), 0);
    for (uint32_t direction : {0u, 1u}) bind(list, CLIENT_INTERFACE, VLAN, direction);
    expectBoth(false, {"agent out.add A 5 to 0x2 vlan 0x3800a",  // whatever the card takes
                       "agent in.add A 5 to 0x2 vlan 0x3800a"});
    // A send that fails fails nothing.
    testFail(TEST_SEND);
    EXPECT_EQ(added().size(), 2u);
    EXPECT_EQ(deleted(true).size(), 2u);
    EXPECT_EQ(list->count, 0);
}

TEST_P(Clients, WholeListsCarryTheirBindingsBlockAndOptionAndComeBack) {
    join(LAG, {portIfindex(1, 1), portIfindex(1, 2)});
    aclLinecardInfo[2].isVortan = 1;
    ASSERT_EQ(aclVlanMemberAdd(VLAN, portIfindex(2, 0)), 0);
    aclList* list = make();
    add(0);
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM}) bind(list, CLIENT_TASK, app);
    bind(list, CLIENT_ROUTE_MAP, 0);
    uint8_t mark = 1;
    for (uint32_t ifindex : {portIfindex(1, 0), LAG, VLAN}) {
        aclBinding* b = bind(list, CLIENT_INTERFACE, ifindex, ifindex == VLAN);
        b->implicitPermit = ifindex != LAG;
        b->block.b[0] = mark++;
    }
    EXPECT_EQ(
        effects([&] { EXPECT_EQ(drop(), 0u); }),
        here({"agent out.drop A to 0x2 vlan 0x3800a n 1 block 3 option 1",
              "agent in.drop A to 0x40c0000/6 n 1 block 2",
              "agent in.drop A to 0x4080000/5 n 1 block 2",
              "agent in.drop A to 0x4040000/4 n 1 block 1 option 1", "ipm0 list in.drop A n 1",
              "sysadm list in.drop A n 1", "snmp list in.drop A n 1",
              // The entry goes to all but the port, and to IPM not again meanwhile.
              "agent out.del A 5 to 0x2 vlan 0x3800a", "agent in.del A 5 to 0x40c0000/6",
              "agent in.del A 5 to 0x4080000/5", "sysadm entry in.del A 5", "snmp entry in.del A 5",
              "sysadm list in.drop A n 0", "cfg remove SECT/141 A", "sync 3 A \"no HEADA\"",
              "trigger A n 0 id 1"}));
    // A list that is used stays as a placeholder, and may come back as another kind.
    ASSERT_EQ(find(), list);
    EXPECT_TRUE(list->placeholder == 1 && list->kind == 0);
    EXPECT_FALSE(ipCheckForPrefixAccessList(A));
    EXPECT_EQ(add(0), ACL_E_NOLIST);
    EXPECT_EQ(
        effects([&] { make(); }),
        here({"cfg insert SECT/141 A 0/0/0 \"!\"", "cfg insert SECT/150 A 0/0/0 \"HEADA\"",
              "sync 3 A \"HEADA\"", "agent out.list A to 0x2 vlan 0x3800a n 0 block 3 option 1",
              "agent in.list A to 0x40c0000/6 n 0 block 2",
              "agent in.list A to 0x4080000/5 n 0 block 2",
              "agent in.list A to 0x4040000/4 n 0 block 1 option 1", "ipm0 list in.list A n 0",
              "sysadm list in.list A n 0", "snmp list in.list A n 0", "trigger A n 0 id 1"}));
    EXPECT_EQ(list->kind, f.kind);
    EXPECT_EQ(add(0), 0u);
}

}  // namespace
