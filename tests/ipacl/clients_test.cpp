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
        return sentOf(effects([&] { EXPECT_EQ(act(), 0u); }));
    }
    rows added() const {
        return sentBy([this] { return add(0); });
    }
    rows deleted(bool send) const {
        return sentBy([this, send] { return del(0, SEQ_NOT_GIVEN, send); });
    }
};
FOR_EVERY_FAMILY(Clients);

TEST_P(Clients, TasksGetTheirCopyWhenTheListIsConfiguredOrTheyRegister) {
    for (uint32_t app : {APP_SNMP, APP_IPM, APP_SYSADM, APP_OSPF})
        EXPECT_EQ(effects([&] { EXPECT_NE(reg(app), nullptr); }), rows{});
    EXPECT_EQ(
        sentOf(effects([&] { make(); })),
        here({"sysadm list in.list A n 0", "ipm0 list in.list A n 0", "snmp list in.list A n 0"}));
    EXPECT_EQ(sentOf(effects([&] { reg(APP_IPM, 2); })), here({"ipm2 list in.list A n 0"}));
    for (uint32_t app : {APP_IPM, APP_BGP})
        EXPECT_EQ(sentOf(effects([&] { reg(app, app == APP_IPM ? 2 : 0); })), rows{})
            << "once; no copies";
    // SYSADM alone is told that it loses its copy.
    EXPECT_EQ(sentOf(effects([&] {
                  for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM, APP_OSPF}) unreg(app);
              })),
              here({"sysadm list in.drop A n 0"}));
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
        std::vector<const listClient*> chain;
        for (const listClient* c = list->clients; c != nullptr; c = c->next) chain.push_back(c);
        EXPECT_EQ(chain, expected);
        while (list->clients != nullptr) clientDrop(list, list->clients);
    }
    EXPECT_EQ(list->clientIndex, nullptr);
}

TEST_P(Clients, PortsReceiveEntriesByDirectionAndCard) {
    aclList* list = make();
    aclLinecardInfo[2].isVortan = 1;
    testHost.missingPorts = {3};
    bind(list, CLIENT_INTERFACE, portIfindex(1, 1), 1);  // this card cannot filter egress
    bind(list, CLIENT_INTERFACE, portIfindex(2, 0), 1);
    // Bits 18-24 hold a port id already.
    bind(list, CLIENT_INTERFACE, portIfindex(2, 5) | 1u << 30, 0);
    bind(list, CLIENT_INTERFACE, 25u << 25 | 1u << 18, 0);  // no such slot
    bind(list, CLIENT_INTERFACE, portIfindex(1, 3));
    EXPECT_EQ(added(), here({"in.add A 5 to 0x4100000/-1", "in.add A 5 to 0x46180000/5",
                             "out.add A 5 to 0x6040000/4"}));
}

TEST_P(Clients, PlacesGetEntriesAndWholeListsWithTheirBlockAndOption) {
    join(LAG, {portIfindex(1, 1), portIfindex(1, 2)});
    aclLinecardInfo[2].isVortan = 1;
    ASSERT_EQ(aclVlanMemberAdd(VLAN, portIfindex(2, 0)), 0);
    aclList* list = make();
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM}) bind(list, CLIENT_TASK, app);
    bind(list, CLIENT_ROUTE_MAP, 0);
    uint8_t mark = 1;
    for (uint32_t ifindex : {portIfindex(1, 0), LAG, VLAN}) {
        aclBinding* b = bind(list, CLIENT_INTERFACE, ifindex, ifindex == VLAN);
        b->implicitPermit = ifindex != LAG;
        b->block.b[0] = mark++;
    }
    for (bool ports : {true, false}) {
        EXPECT_EQ(added(), here({"out.add A 5 to 0x2 vlan 0x3800a", "in.add A 5 to 0x40c0000/6",
                                 "in.add A 5 to 0x4080000/5", "in.add A 5 to 0x4040000/4",
                                 "ipm0 list in.list A n 1", "sysadm entry in.add A 5",
                                 "snmp entry in.add A 5"}));
        // Ports hear of a deletion when asked; LAGs and VLANs whatever the flag says.
        rows told = here({"out.del A 5 to 0x2 vlan 0x3800a", "in.del A 5 to 0x40c0000/6",
                          "in.del A 5 to 0x4080000/5", "in.del A 5 to 0x4040000/4",
                          "sysadm entry in.del A 5", "snmp entry in.del A 5",
                          "sysadm list in.drop A n 0", "ipm0 list in.list A n 0"});
        if (!ports) told.erase(told.begin() + 3);
        EXPECT_EQ(deleted(ports), told);
    }
    testFail(TEST_SEND);  // which fails no change
    EXPECT_TRUE(add(1) == 0 && del(1) == 0);
    testFailNothing();
    add(0);
    EXPECT_EQ(effects([&] { EXPECT_EQ(drop(), 0u); }),
              here({"out.drop A to 0x2 vlan 0x3800a n 1 block 3 option 1",
                    "in.drop A to 0x40c0000/6 n 1 block 2", "in.drop A to 0x4080000/5 n 1 block 2",
                    "in.drop A to 0x4040000/4 n 1 block 1 option 1", "ipm0 list in.drop A n 1",
                    "sysadm list in.drop A n 1", "snmp list in.drop A n 1",
                    // The entry goes to all but the port, and to IPM not again meanwhile.
                    "out.del A 5 to 0x2 vlan 0x3800a", "in.del A 5 to 0x40c0000/6",
                    "in.del A 5 to 0x4080000/5", "sysadm entry in.del A 5", "snmp entry in.del A 5",
                    "sysadm list in.drop A n 0", "cfg remove SECT/141 A", "sync 3 A \"no HEADA\"",
                    "trigger A n 0 id 4"}));
    // A list that is used stays as a placeholder, and may come back as another kind.
    ASSERT_EQ(find(), list);
    EXPECT_TRUE(list->placeholder == 1 && list->kind == 0);
    EXPECT_FALSE(ipCheckForPrefixAccessList(A));
    EXPECT_EQ(add(0), ACL_E_NOLIST);
    EXPECT_EQ(effects([&] { make(); }),
              here({"cfg insert SECT/141 A 0/0/0 \"!\"", "cfg insert SECT/150 A 0/0/0 \"HEADA\"",
                    "sync 3 A \"HEADA\"", "out.list A to 0x2 vlan 0x3800a n 0 block 3 option 1",
                    "in.list A to 0x40c0000/6 n 0 block 2", "in.list A to 0x4080000/5 n 0 block 2",
                    "in.list A to 0x4040000/4 n 0 block 1 option 1", "ipm0 list in.list A n 0",
                    "sysadm list in.list A n 0", "snmp list in.list A n 0", "trigger A n 0 id 4"}));
    EXPECT_EQ(list->kind, f.kind);
    EXPECT_EQ(add(0), 0u);
}

}  // namespace
