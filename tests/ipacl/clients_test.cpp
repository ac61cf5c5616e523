// Tasks and route maps that use lists: what they are sent when, and which lists live for them.
#include "common/client.h"
#include "include/service.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
const rule anyRule = standard(IP_PERMIT, 0, 0);

class Clients : public IpAcl {
  protected:
    void TearDown() override {
        for (const aclList* list = ipAccessListFind(A); list != nullptr;
             list = ipAccessListFind(A)) {
            const aclBinding* b = list->bindings;
            if (b == nullptr || b->kind != BIND_TASK) break;
            ASSERT_EQ(aclDelTaskClient(b->id, b->instance, A, 1), 0);
        }
        IpAcl::TearDown();
    }
    // The rows of an action without configuration lines.
    static rows of(const std::function<void()>& act) {
        testTake();
        act();
        rows sent;
        for (const std::string& row : testTake())
            if (!row.starts_with("cfg") && !row.starts_with("sync")) sent.push_back(row);
        return sent;
    }
    static aclList* reg(uint32_t application, uint32_t instance = 0) {
        return aclAddTaskClient(application, instance, A, 9, 1);
    }
    static rmapMatch clause(void** slot, uint16_t cls = RTMAP_MS_MATCH, uint32_t code = 5) {
        return {cls, code, slot};
    }
};

}  // namespace

TEST_F(Clients, GetTheirCopyWhenTheListIsConfiguredOrTheyRegister) {
    EXPECT_TRUE(of([] {
                    for (uint32_t app : {APP_SNMP, APP_IPM, APP_SYSADM, APP_OSPF})
                        ASSERT_NE(reg(app), nullptr);
                }).empty());
    uint32_t status = 0;
    const rows configured = of([&] { ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status); });
    EXPECT_EQ(configured, (rows{"sysadm list 14409 A n 0", "ipm0 list 14409 A n 0",
                                "snmp list 14409 A n 0", "trigger A n 0 id 0"}));
    ASSERT_EQ(add("A", anyRule), 0u);
    EXPECT_EQ(of([] { reg(APP_IPM, 2); }), (rows{"ipm2 list 14409 A n 1"}));
    EXPECT_TRUE(of([] { reg(APP_IPM, 2); }).empty());  // once
    EXPECT_TRUE(of([] { reg(APP_BGP); }).empty());
    // Only SYSADM is told that it loses its copy.
    EXPECT_TRUE(of([] { aclDelTaskClient(APP_SNMP, 0, A, 1); }).empty());
    EXPECT_EQ(of([] { aclDelTaskClient(APP_SYSADM, 0, A, 1); }), (rows{"sysadm list 14412 A n 1"}));
}

TEST_F(Clients, APlaceholderLivesAsLongAsItsLastClient) {
    aclList* list = reg(APP_OSPF);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(reg(APP_OSPF), list);
    EXPECT_EQ(reg(APP_OSPF, 1), list);
    EXPECT_EQ(aclAddTaskMcastClient(APP_IGMP, 0, A, 0, 1), list);
    EXPECT_EQ(list->placeholder, 1u);
    EXPECT_EQ(aclDelTaskClient(APP_BGP, 0, A, 1), -1);
    EXPECT_EQ(aclDelTaskMcastClient(APP_IGMP, 0, A, 1), 0);
    EXPECT_EQ(aclDelTaskClient(APP_OSPF, 0, A, 1), 0);
    EXPECT_EQ(ipAccessListFind(A), list);
    EXPECT_EQ(aclDelTaskClient(APP_OSPF, 1, A, 1), 0);
    EXPECT_EQ(ipAccessListFind(A), nullptr);
    EXPECT_EQ(aclDelTaskClient(APP_OSPF, 1, A, 1), 0);  // no list: nothing to do

    list = create("A");
    EXPECT_EQ(reg(APP_OSPF), list);
    EXPECT_EQ(aclDelTaskClient(APP_OSPF, 0, A, 1), 0);
    EXPECT_EQ(ipAccessListFind(A), list);
    EXPECT_EQ(reg(APP_OSPF), list);
    EXPECT_EQ(ipAccessListDelete(A, IP_KIND_STANDARD), 0u);
    EXPECT_EQ(list->placeholder, 1u);
}

TEST_F(Clients, RouteMapsHoldTheListOnceForEachClause) {
    const listName map = listNameMake("map"), other = listNameMake("other");
    void *first = this, *second = this, *third = this;
    EXPECT_EQ(aclAddRmapClient(clause(&first, RTMAP_MS_MATCH, 3), map, A), 0);
    EXPECT_EQ(aclAddRmapClient(clause(&first, RTMAP_MS_SET, 5), map, A), 0);
    EXPECT_EQ(first, this);  // none of ours
    ASSERT_EQ(aclAddRmapClient(clause(&first), map, A), 0);
    ASSERT_EQ(aclAddRmapClient(clause(&second), map, A), 0);
    ASSERT_EQ(aclAddRmapClient(clause(&third), other, A), 0);
    aclList* list = ipAccessListFind(A);
    ASSERT_NE(list, nullptr);
    EXPECT_TRUE(first == list && second == list && third == list);
    EXPECT_EQ(aclDelRmapClient(clause(nullptr), listNameMake("nobody"), A), -1);
    EXPECT_EQ(aclDelRmapClient(clause(&third), other, A), 0);
    EXPECT_EQ(aclDelRmapClient(clause(&first), map, A), 0);
    EXPECT_TRUE(first == nullptr && third == nullptr);
    EXPECT_EQ(ipAccessListFind(A), second);
    EXPECT_EQ(aclDelRmapClient(clause(&second), map, A), 0);
    EXPECT_EQ(ipAccessListFind(A), nullptr);
    EXPECT_EQ(aclDelRmapClient(clause(&second), map, A), 0);  // no list
}

// One name or number in two roles is two bindings; whichever goes, the others keep their order.
TEST_F(Clients, EveryBindingIsFoundAmongAllAndTheOrderStays) {
    constexpr uint32_t SAME = 190;
    aclList* list = create("A");
    void* slot = nullptr;
    const std::vector<bindingKey> keys = {{BIND_TASK, SAME},
                                          {BIND_TASK, SAME, 1},
                                          {BIND_INTERFACE, SAME},
                                          {BIND_INTERFACE, SAME, 0, 1},
                                          {BIND_VLAN_GROUP, SAME},
                                          {BIND_ROUTE_MAP, 0, 0, 0, listNameMake("m")},
                                          {BIND_ROUTE_MAP, 0, 0, 0, listNameMake("m1")}};
    const auto registerAll = [&] {
        std::vector<const aclBinding*> made;
        for (const bindingKey& key : keys) {
            if (key.kind == BIND_TASK)
                EXPECT_EQ(reg(key.id, key.instance), list);
            else if (key.kind == BIND_ROUTE_MAP)
                EXPECT_EQ(aclAddRmapClient(clause(&slot), key.rmapName, A), 0);
            else
                EXPECT_NE(bind(list, bindingKind{key.kind}, key.id, key.direction), nullptr);
            made.insert(made.begin(), list->bindings);
        }
        return made;
    };
    for (size_t gone = 0; gone < keys.size(); gone++) {
        std::vector<const aclBinding*> expected = registerAll();
        for (size_t i = 0; i < keys.size(); i++)
            ASSERT_EQ(aclBindingFind(list, keys[i]), expected[keys.size() - 1 - i]) << i;
        ASSERT_EQ(aclBindingAdd(list, keys[gone]), nullptr) << "one binding of each";
        if (keys[gone].kind == BIND_TASK)
            EXPECT_EQ(aclDelTaskClient(keys[gone].id, keys[gone].instance, A, 1), 0);
        else if (keys[gone].kind == BIND_ROUTE_MAP)
            EXPECT_EQ(aclDelRmapClient(clause(&slot), keys[gone].rmapName, A), 0);
        else
            aclBindingDrop(list, aclBindingFind(list, keys[gone]));
        EXPECT_EQ(aclBindingFind(list, keys[gone]), nullptr);
        expected.erase(expected.end() - 1 - static_cast<ptrdiff_t>(gone));
        std::vector<const aclBinding*> chain;
        for (const aclBinding* b = list->bindings; b != nullptr; b = b->next) chain.push_back(b);
        EXPECT_EQ(chain, expected);
        unbind(list);
    }
    EXPECT_EQ(list->bindingIndex, nullptr);
}

TEST_F(Clients, WhatCannotBeRegisteredIsSaid) {
    void* slot = nullptr;
    testFail(TEST_BLOCK);
    EXPECT_EQ(of([] { EXPECT_EQ(reg(APP_OSPF, 3), nullptr); }),
              (rows{"syserr 0x50006 Error: Unable to create Accesslist A in aclAddTaskClient\n"}));
    EXPECT_EQ(of([&] { EXPECT_EQ(aclAddRmapClient(clause(&slot), listNameMake("m"), A), -1); }),
              (rows{"syserr 0x50004 Error: Unable to create Accesslist A in aclAddRmapClient\n"}));
    testFailNothing();
    create("A");
    testFail(TEST_BLOCK);
    EXPECT_EQ(of([] { EXPECT_EQ(reg(APP_OSPF, 3), nullptr); }),
              (rows{"syserr 0x50006 Error: Unable to allocate memory for Acl A client Task id 64, "
                    "instance 3\n"}));
    EXPECT_EQ(
        of([&] { EXPECT_EQ(aclAddRmapClient(clause(&slot), listNameMake("m"), A), -1); }),
        (rows{"syserr 0x50004 Error: Unable to allocate memory for Acl A client Routemap m\n"}));
    EXPECT_EQ(slot, nullptr);
    testFailNothing();
    EXPECT_EQ(aclAddTaskClient(APP_OSPF, 0, listName{}, 0, 1), nullptr);
    for (uint32_t family : {0u, 2u, 3u}) {  // no store
        EXPECT_EQ(aclAddTaskClient(APP_OSPF, 0, A, 0, family), nullptr);
        EXPECT_EQ(aclDelTaskClient(APP_OSPF, 0, A, family), -1);
    }
}
