// Tasks and route maps that use lists: what they are sent when, and which lists live for them.
#include "common/client.h"
#include "include/service.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");

class Clients : public IpAcl {
  protected:
    static aclList* reg(uint32_t application, uint32_t instance = 0) {
        return aclAddTaskClient(application, instance, A, 9, 1);
    }
    static int unreg(uint32_t application, uint32_t instance = 0) {
        return aclDelTaskClient(application, instance, A, 1);
    }
    static int hold(namedList** slot, const char* map, uint16_t cls = RTMAP_MS_MATCH,
                    uint32_t code = 5) {
        return aclAddRmapClient({cls, code, slot}, listNameMake(map), A);
    }
    static int drop(namedList** slot, const char* map) {
        return aclDelRmapClient({RTMAP_MS_MATCH, 5, slot}, listNameMake(map), A);
    }
};

TEST_F(Clients, GetTheirCopyWhenTheListIsConfiguredOrTheyRegister) {
    EXPECT_EQ(sends([] {
                  for (uint32_t app : {APP_SNMP, APP_IPM, APP_SYSADM, APP_OSPF})
                      ASSERT_NE(reg(app), nullptr);
              }),
              rows{});
    uint32_t status = 0;
    EXPECT_EQ(sends([&] { ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status); }),
              (rows{"sysadm list 14409 A n 0", "ipm0 list 14409 A n 0", "snmp list 14409 A n 0"}));
    ASSERT_EQ(add("A", standard(IP_PERMIT, 0, 0)), 0u);
    EXPECT_EQ(sends([] { reg(APP_IPM, 2); }), rows{"ipm2 list 14409 A n 1"});
    EXPECT_EQ(sends([] { reg(APP_IPM, 2); }), rows{});  // once
    EXPECT_EQ(sends([] { reg(APP_BGP); }), rows{});
    // Only SYSADM is told that it loses its copy.
    EXPECT_EQ(sends([] {
                  for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM, APP_OSPF}) unreg(app);
              }),
              rows{"sysadm list 14412 A n 1"});
}

TEST_F(Clients, APlaceholderLivesAsLongAsItsLastClient) {
    aclList* list = reg(APP_OSPF);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(reg(APP_OSPF), list);
    EXPECT_EQ(reg(APP_OSPF, 1), list);
    EXPECT_EQ(aclAddTaskMcastClient(APP_IGMP, 0, A, 0, 1), list);
    EXPECT_EQ(list->placeholder, 1u);
    EXPECT_EQ(unreg(APP_BGP), -1);
    EXPECT_EQ(aclDelTaskMcastClient(APP_IGMP, 0, A, 1), 0);
    EXPECT_EQ(unreg(APP_OSPF), 0);
    EXPECT_EQ(ipAccessListFind(A), list);
    EXPECT_EQ(unreg(APP_OSPF, 1), 0);
    EXPECT_EQ(ipAccessListFind(A), nullptr);
    EXPECT_EQ(unreg(APP_OSPF, 1), 0);  // no list: nothing to do
    // A list that is configured stays.
    list = create("A");
    EXPECT_EQ(reg(APP_OSPF), list);
    EXPECT_EQ(unreg(APP_OSPF), 0);
    EXPECT_EQ(ipAccessListFind(A), list);
}

TEST_F(Clients, RouteMapsHoldTheListOnceForEachClause) {
    namedList untouched{};
    namedList *first = &untouched, *second = first, *third = first;
    EXPECT_EQ(hold(&first, "map", RTMAP_MS_MATCH, 3), 0);
    EXPECT_EQ(hold(&first, "map", RTMAP_MS_SET), 0);
    EXPECT_EQ(first, &untouched);  // none of ours
    ASSERT_TRUE(hold(&first, "map") == 0 && hold(&second, "map") == 0 && hold(&third, "m2") == 0);
    const aclList* list = ipAccessListFind(A);
    ASSERT_NE(list, nullptr);
    EXPECT_TRUE(first == list && second == list && third == list);
    EXPECT_EQ(drop(nullptr, "nobody"), -1);
    EXPECT_EQ(drop(&third, "m2"), 0);
    EXPECT_EQ(drop(&first, "map"), 0);
    EXPECT_TRUE(first == nullptr && third == nullptr);
    EXPECT_EQ(ipAccessListFind(A), second);
    EXPECT_EQ(drop(&second, "map"), 0);
    EXPECT_EQ(ipAccessListFind(A), nullptr);
    EXPECT_EQ(drop(&second, "map"), 0);  // no list
}

// One name or number in two roles is two bindings; whichever goes, the others keep their order.
TEST_F(Clients, EveryBindingIsFoundAmongAllAndTheOrderStays) {
    constexpr uint32_t SAME = 190;
    aclList* list = create("A");
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
        ASSERT_EQ(clientAdd(list, keys[gone]), nullptr) << "one binding of each";
        clientDrop(list, clientFind(list, keys[gone]));
        EXPECT_EQ(clientFind(list, keys[gone]), nullptr);
        expected.erase(expected.end() - 1 - static_cast<ptrdiff_t>(gone));
        std::vector<const listClient*> chain;
        for (const listClient* b = list->clients; b != nullptr; b = b->next) chain.push_back(b);
        EXPECT_EQ(chain, expected);
        unbind(list);
    }
    EXPECT_EQ(list->clientIndex, nullptr);
}

TEST_F(Clients, WhatCannotBeRegisteredIsSaid) {
    namedList* slot = nullptr;
    auto refused = [&](const std::string& task, const std::string& map) {
        testFail(TEST_BLOCK);
        EXPECT_EQ(effects([] { EXPECT_EQ(reg(APP_OSPF, 3), nullptr); }),
                  rows{"syserr 0x50006 " + task});
        EXPECT_EQ(effects([&] { EXPECT_EQ(hold(&slot, "m"), -1); }), rows{"syserr 0x50004 " + map});
        EXPECT_EQ(slot, nullptr);
        testFailNothing();
    };
    refused("Error: Unable to create Accesslist A in aclAddTaskClient\n",
            "Error: Unable to create Accesslist A in aclAddRmapClient\n");
    create("A");
    const std::string noMemory = "Error: Unable to allocate memory for Acl A client ";
    refused(noMemory + "Task id 64, instance 3\n", noMemory + "Routemap m\n");
    EXPECT_EQ(aclAddTaskClient(APP_OSPF, 0, listName{}, 0, 1), nullptr);
    for (uint32_t family : {0u, 2u, 3u}) {  // no store
        EXPECT_EQ(aclAddTaskClient(APP_OSPF, 0, A, 0, family), nullptr);
        EXPECT_EQ(aclDelTaskClient(APP_OSPF, 0, A, family), -1);
    }
}

}  // namespace
