// Lists on interfaces: what each apply and remove writes, tells and sends, in this order.
#include "ipacl/zekipaccess.h"
#include "tests/support/ipaclTest.h"

namespace {

constexpr uint32_t PORT = portIfindex(1, 0);   // 0x4040000, pipe 4
constexpr uint32_t PORT2 = portIfindex(1, 1);  // 0x4080000, pipe 5
constexpr uint32_t PORT3 = portIfindex(2, 2);  // 0x60c0000, pipe 6
constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 3);
constexpr uint32_t VLAN = ifindexMake(IF_TYPE_VLAN, 10);

const char* const HEAD[] = {R"(cfg insert 72/141 if 0x4040000 "!")",
                            R"(cfg insert 72/144 if 0x4040000 "interface if 0x4040000")"};

// The block's first byte tells requests apart; the sends' rows show it.
class Binding : public IpAcl {
  protected:
    uint32_t apply(const char* name, uint32_t ifindex, uint32_t direction = 0, uint8_t mark = 1,
                   uint32_t implicitPermit = 0) {
        return applyWith(name, ifindex, direction, mark, implicitPermit, 1, nullptr);
    }
    uint32_t applyWith(const char* name, uint32_t ifindex, uint32_t direction, uint8_t mark,
                       uint32_t implicitPermit, uint32_t writeConfig, const char* vlans) {
        bindingBlock block{};
        block.b[0] = mark;
        return aclIpApplyIntf(listNameMake(name),
                              {ifindex, direction, implicitPermit, writeConfig, &block,
                               vlans != nullptr, vlans != nullptr ? vlans : ""});
    }
    uint32_t remove(const char* name, uint32_t ifindex, uint32_t direction = 0) {
        return aclIpRemoveIntf(listNameMake(name), ifindex, direction);
    }
    // The same, to succeed: what they write, tell and send, or what they send alone.
    rows applied(const char* name, uint32_t ifindex, uint32_t direction = 0, uint8_t mark = 1,
                 uint32_t implicitPermit = 0) {
        return effects(
            [&] { EXPECT_EQ(apply(name, ifindex, direction, mark, implicitPermit), 0u); });
    }
    rows removed(const char* name, uint32_t ifindex, uint32_t direction = 0) {
        return effects([&] { EXPECT_EQ(remove(name, ifindex, direction), 0u); });
    }
    rows sentBy(const char* name, uint32_t ifindex, uint32_t direction = 0, uint8_t mark = 1,
                uint32_t implicitPermit = 0) {
        return sends([&] { EXPECT_EQ(apply(name, ifindex, direction, mark, implicitPermit), 0u); });
    }
    static rows configured(const char* name) {
        uint32_t status = 9;
        rows told =
            sends([&] { ipAccessListCreate(listNameMake(name), IP_KIND_STANDARD, 0, &status); });
        EXPECT_EQ(status, 0u);
        return told;
    }
    static aclList* find(const char* name) { return ipAccessListFind(listNameMake(name)); }
    static aclList* at(uint32_t ifindex, uint32_t direction = 0) {
        const aclIntf* intf = AclIntfTreeFind(ifindex);
        return intf != nullptr ? intf->lists[INTF_V4][direction] : nullptr;
    }
    static size_t bindingsOf(const char* name) {
        size_t n = 0;
        for (const listClient* b = find(name)->clients; b != nullptr; b = b->next) n++;
        return n;
    }
};

TEST_F(Binding, APortFromTheFirstListToTheLast) {
    create("A");
    create("B", IP_KIND_EXTENDED);
    ASSERT_EQ(add("A", standard(IP_PERMIT, 0, 0)), 0u);
    const rows line = {
        R"(cfg insert 72/145 if 0x4040000 in A " ip access-group A in implicit-permit")",
        R"(sync 4/0/0x4040000 A " ip access-group A in implicit-permit")"};
    EXPECT_EQ(applied("A", PORT, 0, 1, 7),
              (rows{HEAD[0], HEAD[1], line[0], line[1],
                    "agent list 14409 A if 0x4040000 pipe 4 option 7 n 1 block 1"}));
    // The same again: nothing. Another implicit-permit word: refused.
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    rows told = applied("A", PORT, 0, 1, 7);
    ASSERT_EQ(told.size(), 1u);
    EXPECT_TRUE(told[0].ends_with("- Nothing to do Returning\r\n")) << told[0];
    EXPECT_EQ(apply("A", PORT, 0, 2, 8), ACL_E_IMPLICIT_PERMIT);
    EXPECT_EQ(testTake(), rows{});
    // A changed block: deleted and added again, the line rewritten under its header.
    EXPECT_EQ(applied("A", PORT, 0, 2, 7),
              (rows{"cfg exact 72/145 if 0x4040000 in A", line[0], line[1],
                    "debug aclIpApplyIntf: sending delete of A to if 0x4040000\r\n",
                    "agent list 14412 A if 0x4040000 pipe 4 option 7 n 1 block 2",
                    "agent list 14409 A if 0x4040000 pipe 4 option 7 n 1 block 2"}));
    DEBUG_ACL_MGR = 0;
    EXPECT_EQ(bindingsOf("A"), 1u);
    // Another list takes the place; the old one leaves with its own block.
    EXPECT_EQ(applied("B", PORT, 0, 3),
              (rows{"cfg exact 72/145 if 0x4040000 in A",
                    R"(cfg insert 72/145 if 0x4040000 in B " ip access-group B in")",
                    R"(sync 4/0/0x4040000 B " ip access-group B in")",
                    "agent list 14412 A if 0x4040000 pipe 4 option 0 n 1 block 2",
                    "agent list 14409 B if 0x4040000 pipe 4 option 0 n 0 block 3"}));
    EXPECT_EQ(bindingsOf("A"), 0u);
    // The other direction is another place, under the same header; this card cannot filter there.
    EXPECT_EQ(applied("A", PORT, 1, 4),
              (rows{R"(cfg insert 72/145 if 0x4040000 out A " ip access-group A out")",
                    R"(sync 4/0/0x4040000 A " ip access-group A out")"}));
    EXPECT_EQ(testCfgLines(), (rows{"!", "interface if 0x4040000", " ip access-group B in",
                                    " ip access-group A out", "!", "ip access-list standard A",
                                    " seq 5 permit any", "!", "ip access-list extended B"}));
    EXPECT_EQ(remove("A", PORT, 0), ACL_E_NOT_BOUND);
    EXPECT_EQ(testTake(), rows{});
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    EXPECT_EQ(removed("B", PORT),
              (rows{"cfg exact 72/145 if 0x4040000 in B",
                    R"(sync 4/0/0x4040000 B "no ip access-group B in")",
                    "debug aclIpRemoveIntf: sending B to ifindex 0x4040000\r\n",
                    "agent list 14412 B if 0x4040000 pipe 4 option 0 n 0 block 3"}));
    DEBUG_ACL_MGR = 0;
    EXPECT_EQ(remove("B", PORT), ACL_E_NOT_BOUND);
    // The header goes with the last line; the interface record stays.
    aclLinecardInfo[1].isVortan = 1;
    EXPECT_EQ(removed("A", PORT, 1),
              (rows{"cfg exact 72/145 if 0x4040000 out A",
                    R"(sync 4/0/0x4040000 A "no ip access-group A out")",
                    "cfg remove 72/141 if 0x4040000",
                    "agent list 14419 A if 0x4040000 pipe 4 option 0 n 1 block 4"}));
    EXPECT_EQ(remove("A", PORT, 1), ACL_E_NOT_BOUND);
    EXPECT_EQ(remove("A", PORT2), ACL_E_NOINTF);
    EXPECT_EQ(remove("C", PORT), ACL_E_NOLIST);
    EXPECT_EQ(AclIntfTreeFind(PORT)->direction, 0u);
}

TEST_F(Binding, AListThatIsOnlyBoundComesAndGoesWithItsBindings) {
    EXPECT_EQ(apply("A", PORT), 0u);
    EXPECT_EQ(apply("A", PORT2), 0u);
    ASSERT_NE(find("A"), nullptr);
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(find("A")->placeholder, 1u);
        // Configured: downloaded to every binding, newest first, each with its block.
        EXPECT_EQ(configured("A"),
                  (rows{"agent list 14409 A if 0x4080000 pipe 5 option 0 n 0 block 1",
                        "agent list 14409 A if 0x4040000 pipe 4 option 0 n 0 block 1"}));
        // Deleted while bound: its lines on the interfaces stay, and so do its bindings.
        EXPECT_EQ(ipAccessListDelete(listNameMake("A"), IP_KIND_STANDARD), 0u);
        EXPECT_EQ(testCfgLines(), (rows{"!", "interface if 0x4040000", " ip access-group A in", "!",
                                        "interface if 0x4080000", " ip access-group A in"}));
    }
    // The last binding takes the placeholder with it, whether it is removed or replaced.
    EXPECT_EQ(remove("A", PORT2), 0u);
    ASSERT_NE(find("A"), nullptr);
    EXPECT_EQ(apply("B", PORT), 0u);
    EXPECT_EQ(find("A"), nullptr);
    EXPECT_EQ(at(PORT), find("B"));
    EXPECT_EQ(remove("B", PORT), 0u);
    EXPECT_EQ(find("B"), nullptr);
    EXPECT_EQ(testCfgLines(), rows{});
}

TEST_F(Binding, ALagsMembersAreServedFromTheLastToTheFirst) {
    aclLinecardInfo[2].isVortan = 1;
    create("A");
    EXPECT_EQ(sentBy("A", LAG), rows{});
    EXPECT_EQ(AclIntfTreeFind(LAG)->isLag, 1u);
    EXPECT_EQ(apply("B", LAG, 1, 2, 5), 0u);
    // Members get the lists as they join, and the deletes as they leave.
    EXPECT_EQ(effects([] { EXPECT_EQ(aclLagPortJoined(LAG, PORT), 0); }),
              rows{"agent list 14409 A if 0x4040000 pipe 4 option 0 n 0 block 1"});
    EXPECT_EQ(effects([] { EXPECT_EQ(aclLagPortJoined(LAG, PORT3), 0); }),
              (rows{"agent list 14409 A if 0x60c0000 pipe 6 option 0 n 0 block 1",
                    "agent list 14416 B if 0x60c0000 pipe 6 option 5 n 0 block 2"}));
    EXPECT_EQ(aclLagPortJoined(LAG, PORT3), 1);
    EXPECT_EQ(aclLagPortJoined(LAG, LAG), -1);
    EXPECT_EQ(aclLagPortLeft(LAG, PORT2), 1);
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(effects([] { EXPECT_EQ(aclLagPortLeft(LAG, PORT3), 0); }),
              (rows{"agent list 14412 A if 0x60c0000 pipe 6 option 0 n 0 block 1",
                    "agent list 14419 B if 0x60c0000 pipe 6 option 5 n 0 block 2"}));
    EXPECT_EQ(aclLagPortJoined(LAG, PORT3), 0);
    // A member takes no list of its own.
    EXPECT_EQ(apply("A", PORT), ACL_E_LAG_MEMBER);
    const rows two = {"agent list 14412 A if 0x60c0000 pipe 6 option 0 n 0 block 3",
                      "agent list 14412 A if 0x4040000 pipe 4 option 0 n 0 block 3"};
    EXPECT_EQ(sentBy("A", LAG, 0, 3),
              (rows{two[0], two[1], "agent list 14409 A if 0x60c0000 pipe 6 option 0 n 0 block 3",
                    "agent list 14409 A if 0x4040000 pipe 4 option 0 n 0 block 3"}));
    EXPECT_EQ(removed("A", LAG),
              (rows{"cfg exact 72/145 if 0x30003 in A",
                    R"(sync 5/12/0x30003 A "no ip access-group A in")", two[0], two[1]}));
    EXPECT_EQ(remove("B", LAG, 1), 0u);
    EXPECT_EQ(aclLagPortLeft(LAG, PORT3), 0);
    EXPECT_EQ(sentBy("A", LAG), rows{"agent list 14409 A if 0x4040000 pipe 4 option 0 n 0 block 1"})
        << "an empty place of a LAG that has members";
}

TEST_F(Binding, AVlanGoesThroughTheVlanSendAndLeavesTheGroups) {
    auto& groups = node.groups.aclVlanGroupMemberBitMap;
    groups.set();
    create("A");
    EXPECT_EQ(applyWith("A", VLAN, 0, 1, 1, 1, "3,10-12"), 0u);
    EXPECT_EQ(testTake()[3],
              R"(sync 6/14/0x3800a A " ip access-group A in implicit-permit Vlan 3,10-12")");
    EXPECT_TRUE(groups.all());
    aclLinecardInfo[2].isVortan = 1;
    ASSERT_EQ(aclVlanMemberAdd(VLAN, portIfindex(2, 0)), 0);
    EXPECT_EQ(apply("A", VLAN, 1), 0u);
    EXPECT_TRUE(groups.count() == 4095 && !groups.test(10));
    EXPECT_EQ(sentBy("B", VLAN, 1, 2),
              (rows{"agent list 14419 A if 0x2 vlan 0x3800a pipe 0 option 0 n 0 block 1",
                    "agent list 14416 B if 0x2 vlan 0x3800a pipe 0 option 0 n 0 block 2"}));
    EXPECT_EQ(groups.count(), 4095u);
    // An egress IPv6 list keeps the VLAN out of the groups.
    aclList*& ipv6 = AclIntfTreeFind(VLAN)->lists[INTF_V6][INTF_OUT];
    ipv6 = find("A");
    EXPECT_EQ(remove("B", VLAN, 1), 0u);
    EXPECT_EQ(groups.count(), 4095u);
    ipv6 = nullptr;
    EXPECT_EQ(apply("B", VLAN, 1), 0u);
    EXPECT_EQ(remove("B", VLAN, 1), 0u);
    EXPECT_TRUE(groups.all());
}

TEST_F(Binding, WhatIsRefusedLeavesNoTraceAndTheFirstReasonWins) {
    constexpr uint32_t cpPort = IFINDEX_CP_BIND | 5;
    join(LAG, {PORT});
    const uint64_t blocks = testBlocksInUse();
    struct {
        const char* what;
        uint32_t ifindex, direction, status;
        uint32_t cp = 1;
    } const cases[] = {
        {"no lists on the control processor", cpPort, 1, ACL_E_CP_UNSUPPORTED, 0},
        {"no ports there", cpPort, 1, ACL_E_CP_PORT},
        {"nothing egress", IFINDEX_CP_BIND, 1, ACL_E_CP_EGRESS},
        {"a LAG's member", PORT, 0, ACL_E_LAG_MEMBER},
        {"a slot is no interface", 3, 0, ACL_E_SYSTEM},
        {"no such direction", PORT2, 2, ACL_E_SYSTEM},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        testTake();
        node.chassis.supportAclOnCP = c.cp;
        EXPECT_EQ(apply("A", c.ifindex, c.direction), c.status);
        EXPECT_EQ(ipAccessListFindFirst(), nullptr);
        EXPECT_EQ(testBlocksInUse(), blocks);
        for (const std::string& row : testTake()) EXPECT_TRUE(row.starts_with("syserr ")) << row;
        EXPECT_EQ(remove("A", c.ifindex, 2), ACL_E_SYSTEM);
    }
    // What the control processor does take.
    const rows told = applied("A", IFINDEX_CP_BIND);
    ASSERT_EQ(told.size(), 5u);
    EXPECT_EQ(told[3], R"(sync 7/10/0x42068000 A " ip access-group A in")");
    EXPECT_EQ(told[4], "agent list 14409 A if 0x42068000 pipe 0 option 0 n 0 block 1");
}

// An interface that the chassis does not have yet, and interfaces under other indexes than their
// own.
TEST_F(Binding, EveryIndexIsTakenAndStandsForOneInterface) {
    testHost.unknownInterfaces = {PORT3};
    create("A");
    EXPECT_EQ(apply("A", PORT3), 0u);
    EXPECT_EQ(testCfgLines()[1], "interface 0x060c0000");
    EXPECT_EQ(at(PORT3), find("A"));
    EXPECT_EQ(remove("A", PORT3), 0u);
    struct {
        uint32_t alias, ifindex;
    } const cases[] = {{PORT | 0x80000000, PORT},
                       {VLAN | 0x7FF00000, VLAN},
                       {LAG | 0x84000000, LAG},
                       {ifindexMake(IF_TYPE_CP, 0), IFINDEX_CP_BIND}};
    node.chassis.supportAclOnCP = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ifindex);
        EXPECT_EQ(apply("A", c.ifindex), 0u);
        EXPECT_EQ(apply("A", c.alias), 0u);
        EXPECT_EQ(bindingsOf("A"), 1u);
        EXPECT_EQ(remove("A", c.alias), 0u);
        EXPECT_EQ(at(c.ifindex), nullptr);
        EXPECT_EQ(AclIntfTreeFind(c.alias), nullptr);
    }
}

TEST_F(Binding, GeneratedListsAreNeverWrittenAndKeepToThemselvesInward) {
    EXPECT_EQ(applied("sgAcl_1", PORT),
              rows{"agent list 14409 sgAcl_1 if 0x4040000 pipe 4 option 0 n 0 block 1"});
    EXPECT_EQ(apply("A", PORT), ACL_E_CLASH);
    EXPECT_EQ(find("A"), nullptr) << "the placeholder goes again";
    EXPECT_EQ(at(PORT), find("sgAcl_1"));
    // One of its kind replaces it.
    EXPECT_EQ(applied("sgAcl_2", PORT),
              (rows{"agent list 14412 sgAcl_1 if 0x4040000 pipe 4 option 0 n 0 block 1",
                    "agent list 14409 sgAcl_2 if 0x4040000 pipe 4 option 0 n 0 block 1",
                    "trigger sgAcl_1 n 0 id 0"}));
    EXPECT_EQ(removed("sgAcl_2", PORT),
              (rows{"agent list 14412 sgAcl_2 if 0x4040000 pipe 4 option 0 n 0 block 1",
                    "trigger sgAcl_2 n 0 id 0"}));
    EXPECT_EQ(apply("A", PORT), 0u);
    EXPECT_EQ(apply("sgAcl_1", PORT), ACL_E_CLASH);
    // Outward anything replaces anything; the operator's line is left standing.
    EXPECT_EQ(apply("A", PORT, 1), 0u);
    const rows lines = testCfgLines();
    EXPECT_EQ(lines.back(), " ip access-group A out");
    EXPECT_EQ(apply("sgAcl_1", PORT, 1), 0u);
    EXPECT_EQ(testCfgLines(), lines);
    EXPECT_EQ(remove("A", PORT, 1), ACL_E_NOT_BOUND);
    EXPECT_EQ(apply("A", PORT, 1), 0u);
    EXPECT_EQ(find("sgAcl_1"), nullptr);
    EXPECT_EQ(testCfgLines(), lines);
}

TEST_F(Binding, TheLineIsWrittenWhenAskedForOrWhenTheInterfaceIsKnown) {
    create("A");
    auto quietly = [&](uint8_t mark) {
        return effects([&] { EXPECT_EQ(applyWith("A", PORT, 0, mark, 0, 0, nullptr), 0u); });
    };
    EXPECT_EQ(quietly(1), rows{"agent list 14409 A if 0x4040000 pipe 4 option 0 n 0 block 1"});
    rows told = quietly(2);  // the block has changed
    ASSERT_EQ(told.size(), 7u);
    told.resize(3);
    EXPECT_EQ(told, (rows{"cfg exact 72/145 if 0x4040000 in A absent", HEAD[0], HEAD[1]}));
    // A line that the field cannot hold is a comment; the place does not depend on its text.
    const std::string name(140, 'n'), vlans(256, '4');
    EXPECT_EQ(applyWith(name.c_str(), PORT, 1, 1, 1, 1, vlans.c_str()), 0u);
    const std::string line = " ip access-group " + name + " out implicit-permit Vlan " + vlans;
    EXPECT_EQ(testCfgLines()[3], "! line not shown:" + line.substr(0, 151) + "... (" +
                                     std::to_string(line.size()) + " characters)");
    EXPECT_EQ(remove(name.c_str(), PORT, 1), 0u);
    EXPECT_EQ(testCfgLines()[2], " ip access-group A in");
    EXPECT_EQ(remove("A", PORT), 0u);
    EXPECT_EQ(testCfgLines().size(), 2u) << "the list's own two lines";
    // The database's failures are not the operator's.
    testFail(TEST_CFG);
    EXPECT_EQ(apply("A", PORT), 0u);
    EXPECT_EQ(remove("A", PORT), 0u);
}

TEST_F(Binding, WhereChainAndInterfaceDifferItIsSaidAndNothingChanges) {
    create("A");
    create("B");
    EXPECT_EQ(apply("A", PORT), 0u);
    aclList*& slot = AclIntfTreeFind(PORT)->lists[INTF_V4][INTF_IN];
    const std::string port = std::to_string(PORT);
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;

    slot = nullptr;  // the list is bound, the interface does not know
    EXPECT_EQ(
        applied("A", PORT, 0, 9),
        rows{"debug Error: Accesslist A has interface " + port +
             " as a client but the interface doesn't think the access list is applied on it \n"});
    EXPECT_EQ(static_cast<aclBinding*>(find("A")->clients)->block.b[0], 1);

    slot = find("B");  // the interface holds a list that is not bound
    const std::string unbound =
        "debug Error: alist pointer for ACL Interface Tree node points to alist which doesn't "
        "contain ifindex as its client, interface = " +
        port + ", acl= B\n";
    const uint64_t blocks = testBlocksInUse();
    for (const char* name : {"B", "C"}) EXPECT_EQ(applied(name, PORT)[0], unbound);
    EXPECT_EQ(find("C"), nullptr);
    EXPECT_EQ(bindingsOf("B"), 0u);
    EXPECT_EQ(testBlocksInUse(), blocks);
    EXPECT_EQ(remove("B", PORT), ACL_E_SYSTEM);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(testTake().back(),
              "debug Error: Acl B does not have client intferace Id " + port + "\n");

    aclIntfDrop(AclIntfTreeFind(PORT));  // the list is bound, there is no interface: it is made
    const rows told = applied("A", PORT, 0, 9, 6);
    ASSERT_EQ(told.size(), 6u);
    EXPECT_EQ(told[0], "debug Error: Accesslist A has interface " + port +
                           " as a client but ACL_INTF_TREE doesn't have an entry for the "
                           "interface\n");
    EXPECT_EQ(told[5], "agent list 14409 A if 0x4040000 pipe 4 option 6 n 0 block 9");
    EXPECT_EQ(bindingsOf("A"), 1u);
    const auto* binding = static_cast<aclBinding*>(find("A")->clients);
    EXPECT_TRUE(binding->block.b[0] == 1 && binding->implicitPermit == 0) << "it is as it was";
    EXPECT_EQ(at(PORT), find("A"));

    join(LAG, {PORT2});  // a LAG's place is left when nobody could be told
    AclIntfTreeFind(LAG)->lists[INTF_V4][INTF_IN] = find("B");
    EXPECT_EQ(remove("B", LAG), ACL_E_SYSTEM);
    EXPECT_EQ(at(LAG), find("B"));
}

TEST_F(Binding, EveryAllocationMayFail) {
    create("A");
    const uint64_t blocks = testBlocksInUse();
    const std::string noList =
        "syserr 0x50006 Error: Unable to create Accesslist P in aclIpApplyIntf\n";
    const std::string noBinding =
        "syserr 0x50006 Error: Unable to allocate memory for Acl A client interface id " +
        std::to_string(PORT) + "\n";
    struct {
        const char* list;
        testPoint point;
        uint64_t nth;
        uint32_t status;
        rows told;
        bool bindingStays = false;
    } const cases[] = {
        {"P", TEST_MEMORY, 1, ACL_E_SYSTEM, {noList}},  // the list
        {"P", TEST_TREE, 2, ACL_E_SYSTEM, {noList}},
        {"P", TEST_INSERT, 1, ACL_E_SYSTEM, {noList}},
        {"A", TEST_BLOCK, 1, ACL_E_SYSTEM, {noBinding}},
        {"A", TEST_BLOCK, 2, ACL_E_SYSTEM, {noBinding}},  // the index of the list's bindings
        {"A", TEST_TREE, 1, ACL_E_SYSTEM, {noBinding}},
        {"A", TEST_INSERT, 1, ACL_E_SYSTEM, {noBinding}},
        {"A", TEST_BLOCK, 3, ACL_E_MEMORY, {}},  // the interface
        {"A", TEST_INSERT, 2, ACL_E_MEMORY, {}},
        {"P", TEST_INSERT, 3, ACL_E_MEMORY, {"trigger P n 0 id 0"}},
        {"A", TEST_BLOCK, 4, ACL_E_MEMORY, {}, true},  // its bitmap
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.list) + " " + std::to_string(c.point) + "." +
                     std::to_string(c.nth));
        testTake();
        testFail(c.point, c.nth, 1);
        EXPECT_EQ(apply(c.list, PORT), c.status);
        testFailNothing();
        rows told = testTake();
        std::erase_if(told, [](const std::string& row) { return row.starts_with("debug "); });
        EXPECT_EQ(told, c.told);
        EXPECT_EQ(AclIntfTreeFind(PORT), nullptr);
        EXPECT_EQ(find("P"), nullptr);
        EXPECT_EQ(bindingsOf("A"), c.bindingStays ? 1u : 0u);
        EXPECT_EQ(testBlocksInUse(), blocks + (c.bindingStays ? 2 : 0));
    }
    // The binding that stayed is taken up, and its interface may fail again.
    testFail(TEST_BLOCK, 1, 1);
    EXPECT_EQ(apply("A", PORT), ACL_E_MEMORY);
    EXPECT_EQ(bindingsOf("A"), 1u);
    EXPECT_EQ(apply("A", PORT), 0u);
    EXPECT_EQ(bindingsOf("A"), 1u);
    // A replacement that finds no memory leaves the old list in place.
    create("B");
    testFail(TEST_BLOCK, 1, 1);
    EXPECT_EQ(apply("B", PORT), ACL_E_SYSTEM);
    EXPECT_EQ(at(PORT), find("A"));
    // A deletion that cannot be sent is the operator's to know; the binding is gone all the same.
    testFail(TEST_SEND, 1, 1);
    EXPECT_EQ(remove("A", PORT), ACL_E_SYSTEM);
    EXPECT_EQ(bindingsOf("A"), 0u);
    EXPECT_EQ(at(PORT), nullptr);
}

TEST_F(Binding, ACardGetsWhatConcernsItAndNothingElse) {
    aclLinecardInfo[2].isVortan = 1;
    node.chassis.supportAclOnCP = 1;
    create("A");
    ASSERT_EQ(add("A", standard(IP_DENY, 0, 0)), 0u);
    join(LAG, {PORT3, PORT2, portIfindex(2, 7)});
    for (uint32_t port : {PORT2, portIfindex(2, 5), portIfindex(2, 7)})
        ASSERT_EQ(aclVlanMemberAdd(VLAN, port), 0);
    uint8_t mark = 1;
    for (uint32_t ifindex : {PORT, portIfindex(2, 5), LAG, VLAN, IFINDEX_CP_BIND})
        EXPECT_EQ(apply("A", ifindex, 0, mark++, 4), 0u);
    EXPECT_EQ(apply("B", LAG, 1, 6), 0u);
    EXPECT_EQ(apply("B", VLAN, 1, 7), 0u);
    EXPECT_EQ(apply("B", PORT, 1, 8), 0u);  // its card cannot
    uint32_t status = 0;
    ipDosListCreate(listNameMake("D"), 0, 0, &status);
    EXPECT_EQ(dosIpEnableIntf(listNameMake("D"), 1041), 0u);
    testTake();
    AclUpdateAclAgent(2);
    EXPECT_EQ(testTake(),
              (rows{"agent list 14409 A if 0x6200000 pipe 3 option 4 n 1 block 3",
                    "agent list 14409 A if 0x60c0000 pipe 6 option 4 n 1 block 3",
                    "agent list 14416 B if 0x6200000 pipe 3 option 0 n 0 block 6",
                    "agent list 14416 B if 0x60c0000 pipe 6 option 0 n 0 block 6",
                    "agent list 14409 A if 0x2 vlan 0x3800a pipe 0 option 4 n 1 block 4",
                    "agent list 14416 B if 0x2 vlan 0x3800a pipe 0 option 0 n 0 block 7",
                    "agent list 14409 A if 0x6180000 pipe 1 option 4 n 1 block 2",
                    "agent list 14420 D if 0x2 pipe 0 option 0 n 0"}));
    AclUpdateAclAgent(1);
    EXPECT_EQ(testTake(),
              (rows{"agent list 14409 A if 0x4080000 pipe 5 option 4 n 1 block 3",
                    "agent list 14409 A if 0x1 vlan 0x3800a pipe 0 option 4 n 1 block 4",
                    "syserr 0x50006 Error: Egress access-list not supported on "
                    "linecard 1\r\n",
                    "agent list 14409 A if 0x4040000 pipe 4 option 4 n 1 block 1",
                    "agent list 14420 D if 0x1 pipe 0 option 0 n 0"}));
    // The control processor's list is not its first slot's; a filter that is not defined is not
    // installed.
    EXPECT_EQ(ipDosListDelete(listNameMake("D")), 0u);
    EXPECT_EQ(remove("A", VLAN), 0u);
    EXPECT_EQ(remove("B", VLAN, 1), 0u);
    testTake();
    AclUpdateAclAgent(0);
    AclUpdateAclAgent(SLOT_COUNT);
    EXPECT_EQ(testTake(), rows{});
}

}  // namespace
