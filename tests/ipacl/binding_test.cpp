// Lists on interfaces: what each apply and remove writes, tells and sends, in this order.
#include "include/cliMsg.h"
#include "tests/support/ipaclTest.h"

namespace {

constexpr uint32_t PORT = portIfindex(1, 0);   // 0x4040000, pipe 4
constexpr uint32_t PORT2 = portIfindex(1, 1);  // 0x4080000, pipe 5
constexpr uint32_t PORT3 = portIfindex(2, 2);  // 0x60c0000, pipe 6
constexpr uint32_t IN = INTF_IN, OUT = INTF_OUT;

const char* const HEAD[] = {R"(cfg insert 72/141 if 0x4040000 "!")",
                            R"(cfg insert 72/144 if 0x4040000 "interface if 0x4040000")"};

// The lists A, B, ... of a family on its places.
class Binding : public OfFamily {
  protected:
    // The block's first byte tells requests apart; the sends' rows show it.
    uint32_t apply(const std::string& name, uint32_t ifindex, uint32_t direction = IN,
                   uint8_t mark = 1, uint32_t implicitPermit = 0, uint32_t writeConfig = 1,
                   const std::string& vlans = "") const {
        bindingBlock block{};
        block.b[0] = mark;
        return aclListApply(
            f.row, listNameMake(name),
            {ifindex, direction, implicitPermit, writeConfig, &block, !vlans.empty(), vlans});
    }
    uint32_t remove(const std::string& name, uint32_t ifindex, uint32_t direction = IN) const {
        return aclListRemove(f.row, listNameMake(name), ifindex, direction);
    }
    aclList* find(const char* name) const { return aclListFind(f.row, listNameMake(name)); }
    aclList* at(uint32_t ifindex, uint32_t direction = IN) const {
        const aclIntf* intf = AclIntfTreeFind(ifindex);
        return intf != nullptr ? intf->lists[f.row.place][direction] : nullptr;
    }
    aclBinding* bound(const char* name, uint32_t ifindex = PORT) const {
        return aclInterfaceBinding(find(name), ifindex, IN);
    }
};
FOR_EVERY_FAMILY(Binding);

TEST_P(Binding, APortFromTheFirstListToTheLast) {
    make();
    make(0, B);
    ASSERT_EQ(add(0), 0u);
    const rows line = here({R"(cfg insert 72/145 if 0x4040000 in A " GROUPA in implicit-permit")",
                            R"(sync 4/0/0x4040000 A " GROUPA in implicit-permit")"});
    EXPECT_TOLD(apply("A", PORT, IN, 1, 7), ACL_OK, HEAD[0], HEAD[1], line[0], line[1],
                "in.list A to 0x4040000/4 n 1 block 1 option 7");
    // The same again: nothing. Another implicit-permit word: refused.
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    EXPECT_EQ(apply("A", PORT, IN, 1, 7), 0u);
    const rows nothing = testTake();
    EXPECT_TRUE(nothing.size() == 1 && nothing[0].ends_with("- Nothing to do Returning\r\n"));
    EXPECT_TOLD(apply("A", PORT, IN, 2, 8), ACL_E_IMPLICIT_PERMIT);
    // A changed block: deleted and added again, the line rewritten under its header.
    EXPECT_TOLD(apply("A", PORT, IN, 2, 7), ACL_OK, "cfg exact 72/145 if 0x4040000 in A", line[0],
                line[1], "debug APPLY: sending delete of A to if 0x4040000\r\n",
                "in.drop A to 0x4040000/4 n 1 block 2 option 7",
                "in.list A to 0x4040000/4 n 1 block 2 option 7");
    DEBUG_ACL_MGR = 0;
    EXPECT_EQ(find("A")->clients->next, nullptr);
    // Another list takes the place; the old one leaves with its own block.
    EXPECT_TOLD(apply("B", PORT, IN, 3), ACL_OK, "cfg exact 72/145 if 0x4040000 in A",
                R"(cfg insert 72/145 if 0x4040000 in B " GROUPB in")",
                R"(sync 4/0/0x4040000 B " GROUPB in")", "in.drop A to 0x4040000/4 n 1 block 2",
                "in.list B to 0x4040000/4 n 0 block 3");
    EXPECT_EQ(find("A")->clients, nullptr);
    // The other direction is another place, under the same header; this card cannot filter there.
    EXPECT_TOLD(apply("A", PORT, OUT, 4), ACL_OK,
                R"(cfg insert 72/145 if 0x4040000 out A " GROUPA out")",
                R"(sync 4/0/0x4040000 A " GROUPA out")");
    EXPECT_EQ(testCfgLines(), here({"!", "interface if 0x4040000", " GROUPB in", " GROUPA out", "!",
                                    "HEADA", " seq 5 RULE0", "!", "HEADB"}));
    EXPECT_TOLD(remove("A", PORT, IN), ACL_E_NOT_BOUND);
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    EXPECT_TOLD(remove("B", PORT), ACL_OK, "cfg exact 72/145 if 0x4040000 in B",
                R"(sync 4/0/0x4040000 B "no GROUPB in")",
                "debug REMOVE: sending B to ifindex 0x4040000\r\n",
                "in.drop B to 0x4040000/4 n 0 block 3");
    DEBUG_ACL_MGR = 0;
    // The header goes with the last line; the interface record stays.
    aclLinecardInfo[1].isVortan = 1;
    EXPECT_TOLD(remove("A", PORT, OUT), ACL_OK, "cfg exact 72/145 if 0x4040000 out A",
                R"(sync 4/0/0x4040000 A "no GROUPA out")", "cfg remove 72/141 if 0x4040000",
                "out.drop A to 0x4040000/4 n 1 block 4");
    EXPECT_EQ(remove("A", PORT, OUT), ACL_E_NOT_BOUND);
    EXPECT_EQ(remove("A", PORT2), ACL_E_NOINTF);
    EXPECT_EQ(remove("C", PORT), ACL_E_NOLIST);
    EXPECT_EQ(AclIntfTreeFind(PORT)->direction, 0u);
}

TEST_P(Binding, AListThatIsOnlyBoundComesAndGoesWithItsBindings) {
    for (uint32_t port : {PORT, PORT2}) EXPECT_EQ(apply("A", port), 0u);
    const rows lines = testCfgLines();
    for (int round = 0; round < 2; round++) {
        ASSERT_NE(find("A"), nullptr);
        EXPECT_EQ(find("A")->placeholder, 1u);
        // Configured: downloaded to every binding, newest first, each with its block.
        EXPECT_SENT((make(), 0u), "in.list A to 0x4080000/5 n 0 block 1",
                    "in.list A to 0x4040000/4 n 0 block 1");
        // Deleted while bound: its lines on the interfaces stay, and so do its bindings.
        EXPECT_EQ(drop(), 0u);
        EXPECT_EQ(testCfgLines(), lines);
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

TEST_P(Binding, ALagsMembersAreServedFromTheLastToTheFirst) {
    aclLinecardInfo[2].isVortan = 1;
    make();
    EXPECT_SENT(apply("A", LAG));
    EXPECT_EQ(AclIntfTreeFind(LAG)->isLag, 1u);
    EXPECT_SENT(apply("B", LAG, OUT, 2, 5));
    // Members get the lists as they join, and the deletes as they leave.
    EXPECT_SENT(aclLagPortJoined(LAG, PORT), "in.list A to 0x4040000/4 n 0 block 1");
    EXPECT_SENT(aclLagPortJoined(LAG, PORT3), "in.list A to 0x60c0000/6 n 0 block 1",
                "out.list B to 0x60c0000/6 n 0 block 2 option 5");
    EXPECT_TRUE(aclLagPortJoined(LAG, PORT3) == 1 && aclLagPortJoined(LAG, LAG) == -1);
    EXPECT_EQ(aclLagPortLeft(LAG, PORT2), 1);
    EXPECT_SENT(aclLagPortLeft(LAG, PORT3), "in.drop A to 0x60c0000/6 n 0 block 1",
                "out.drop B to 0x60c0000/6 n 0 block 2 option 5");
    EXPECT_EQ(aclLagPortJoined(LAG, PORT3), 0);
    testTake();
    EXPECT_EQ(apply("A", PORT), ACL_E_LAG_MEMBER) << "a member takes no list of its own";
    const rows gone =
        here({"in.drop A to 0x60c0000/6 n 0 block 3", "in.drop A to 0x4040000/4 n 0 block 3"});
    EXPECT_SENT(apply("A", LAG, IN, 3), gone[0], gone[1], "in.list A to 0x60c0000/6 n 0 block 3",
                "in.list A to 0x4040000/4 n 0 block 3");
    EXPECT_TOLD(remove("A", LAG), ACL_OK, "cfg exact 72/145 if 0x30003 in A",
                R"(sync 5/12/0x30003 A "no GROUPA in")", gone[0], gone[1]);
    EXPECT_EQ(remove("B", LAG, OUT), 0u);
    EXPECT_EQ(aclLagPortLeft(LAG, PORT3), 0);
    // An empty place of a LAG that has members.
    EXPECT_SENT(apply("A", LAG), "in.list A to 0x4040000/4 n 0 block 1");
}

TEST_P(Binding, AVlanGoesThroughTheVlanSendAndLeavesTheGroups) {
    auto& groups = node.groups.aclVlanGroupMemberBitMap;
    groups.set();
    make();
    testTake();
    EXPECT_EQ(apply("A", VLAN, IN, 1, 1, 1, "3,10-12"), 0u);
    EXPECT_EQ(testTake()[3],
              here({R"(sync 6/14/0x3800a A " GROUPA in implicit-permit Vlan 3,10-12")"})[0]);
    EXPECT_TRUE(groups.all());
    aclLinecardInfo[2].isVortan = 1;
    ASSERT_EQ(aclVlanMemberAdd(VLAN, portIfindex(2, 0)), 0);
    EXPECT_EQ(apply("A", VLAN, OUT), 0u);
    EXPECT_EQ(groups.test(10), !f.row.inVlanGroups);
    EXPECT_SENT(apply("B", VLAN, OUT, 2), "out.drop A to 0x2 vlan 0x3800a n 0 block 1",
                "out.list B to 0x2 vlan 0x3800a n 0 block 2");
    EXPECT_EQ(groups.count(), f.row.inVlanGroups ? 4095u : 4096u);
    // So does an egress list of the other family that groups have.
    const uint32_t other = f.row.place == INTF_V4 ? INTF_V6 : INTF_V4;
    aclList*& its = AclIntfTreeFind(VLAN)->lists[other][INTF_OUT];
    its = find("A");
    EXPECT_EQ(remove("B", VLAN, OUT), 0u);
    EXPECT_EQ(groups.count(), 4095u);
    its = nullptr;
    EXPECT_TRUE(apply("B", VLAN, OUT) == 0 && remove("B", VLAN, OUT) == 0);
    EXPECT_TRUE(groups.all());
}

TEST_P(Binding, WhatIsRefusedLeavesNoTraceAndTheFirstReasonWins) {
    constexpr uint32_t cpPort = IFINDEX_CP_BIND | 5;
    join(LAG, {PORT});
    const std::string before = state();
    struct {
        const char* what;
        uint32_t ifindex, direction, status, cp = 1;
    } const cases[] = {
        {"no lists on the control processor", cpPort, OUT, ACL_E_CP_UNSUPPORTED, 0},
        {"no ports there", cpPort, OUT, ACL_E_CP_PORT},
        {"nothing egress", IFINDEX_CP_BIND, OUT, ACL_E_CP_EGRESS},
        {"a LAG's member", PORT, IN, ACL_E_LAG_MEMBER},
        {"a slot is no interface", 3, IN, ACL_E_SYSTEM},
        {"no such direction", PORT2, 2, ACL_E_SYSTEM},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        node.chassis.supportAclOnCP = c.cp;
        const bool cp = ifindexType(c.ifindex) == IF_TYPE_CP && !f.row.onControlPlane;
        EXPECT_EQ(apply("A", c.ifindex, c.direction), cp ? ACL_E_CP_UNSUPPORTED : c.status);
        EXPECT_EQ(remove("A", c.ifindex, 2), ACL_E_SYSTEM);
        EXPECT_EQ(state(), before);
    }
    // What the control processor does take.
    if (!f.row.onControlPlane) return;
    testTake();
    EXPECT_EQ(apply("A", IFINDEX_CP_BIND), 0u);
    const rows told = testTake();
    ASSERT_EQ(told.size(), 5u);
    EXPECT_EQ(told[3], R"(sync 7/10/0x42068000 A " ip access-group A in")");
    EXPECT_EQ(told[4], "14409 A to 0x42068000 n 0 block 1");
}

// An interface that the chassis does not have yet, and interfaces under other indexes than their
// own.
TEST_P(Binding, EveryIndexIsTakenAndStandsForOneInterface) {
    testHost.unknownInterfaces = {PORT3};
    make();
    EXPECT_EQ(apply("A", PORT3), 0u);
    EXPECT_EQ(testCfgLines()[1], "interface 0x060c0000");
    EXPECT_EQ(at(PORT3), find("A"));
    EXPECT_EQ(remove("A", PORT3), 0u);
    node.chassis.supportAclOnCP = 1;
    for (const auto& [alias, ifindex] : {std::pair(PORT | 0x80000000, PORT),
                                         {VLAN | 0x7FF00000, VLAN},
                                         {LAG | 0x84000000, LAG},
                                         {ifindexMake(IF_TYPE_CP, 0), IFINDEX_CP_BIND}}) {
        SCOPED_TRACE(ifindex);
        if (ifindex == IFINDEX_CP_BIND && !f.row.onControlPlane) continue;
        EXPECT_EQ(apply("A", ifindex), 0u);
        EXPECT_EQ(apply("A", alias), 0u);
        EXPECT_EQ(find("A")->clients->next, nullptr);
        EXPECT_EQ(remove("A", alias), 0u);
        EXPECT_EQ(at(ifindex), nullptr);
        EXPECT_EQ(AclIntfTreeFind(alias), nullptr);
    }
}

TEST_P(Binding, GeneratedListsAreNeverWrittenAndKeepToThemselvesInward) {
    if (f.row.place == INTF_MAC) return;  // all of them are the operator's
    EXPECT_TOLD(apply("sgAcl_1", PORT), ACL_OK, "in.list sgAcl_1 to 0x4040000/4 n 0 block 1");
    EXPECT_EQ(apply("A", PORT), ACL_E_CLASH);
    EXPECT_EQ(find("A"), nullptr) << "the placeholder goes again";
    EXPECT_EQ(at(PORT), find("sgAcl_1"));
    // One of its kind replaces it.
    EXPECT_TOLD(apply("sgAcl_2", PORT), ACL_OK, "in.drop sgAcl_1 to 0x4040000/4 n 0 block 1",
                "in.list sgAcl_2 to 0x4040000/4 n 0 block 1", "trigger sgAcl_1 n 0 id 0");
    EXPECT_TOLD(remove("sgAcl_2", PORT), ACL_OK, "in.drop sgAcl_2 to 0x4040000/4 n 0 block 1",
                "trigger sgAcl_2 n 0 id 0");
    EXPECT_EQ(apply("A", PORT), 0u);
    EXPECT_EQ(apply("sgAcl_1", PORT), ACL_E_CLASH);
    // Outward anything replaces anything; the operator's line is left standing.
    EXPECT_EQ(apply("A", PORT, OUT), 0u);
    const rows lines = testCfgLines();
    EXPECT_EQ(lines.back(), here({" GROUPA out"})[0]);
    EXPECT_EQ(apply("sgAcl_1", PORT, OUT), 0u);
    EXPECT_EQ(testCfgLines(), lines);
    EXPECT_EQ(remove("A", PORT, OUT), ACL_E_NOT_BOUND);
    EXPECT_EQ(apply("A", PORT, OUT), 0u);
    EXPECT_EQ(find("sgAcl_1"), nullptr);
    EXPECT_EQ(testCfgLines(), lines);
}

TEST_P(Binding, TheLineIsWrittenWhenAskedForOrWhenTheInterfaceIsKnown) {
    make();
    EXPECT_TOLD(apply("A", PORT, IN, 1, 0, 0), ACL_OK, "in.list A to 0x4040000/4 n 0 block 1");
    EXPECT_EQ(apply("A", PORT, IN, 2, 0, 0), 0u);  // the block has changed
    rows told = testTake();
    ASSERT_EQ(told.size(), 7u);
    told.resize(3);
    EXPECT_EQ(told, (rows{"cfg exact 72/145 if 0x4040000 in A absent", HEAD[0], HEAD[1]}));
    // A line that the field cannot hold is a comment; the place does not depend on its text.
    const std::string name(140, 'n'), vlans(256, '4');
    EXPECT_EQ(apply(name, PORT, OUT, 1, 1, 1, vlans), 0u);
    const std::string line = here({" GROUP"})[0] + name + " out implicit-permit Vlan " + vlans;
    EXPECT_EQ(testCfgLines()[3], "! line not shown:" + line.substr(0, 151) + "... (" +
                                     std::to_string(line.size()) + " characters)");
    EXPECT_EQ(remove(name, PORT, OUT), 0u);
    EXPECT_EQ(testCfgLines()[2], here({" GROUPA in"})[0]);
    EXPECT_EQ(remove("A", PORT), 0u);
    EXPECT_EQ(testCfgLines().size(), 2u) << "the list's own two lines";
    // The database's failures are not the operator's.
    testFail(TEST_CFG);
    EXPECT_TRUE(apply("A", PORT) == 0 && remove("A", PORT) == 0);
}

TEST_P(Binding, WhereChainAndInterfaceDifferItIsSaidAndNothingChanges) {
    make();
    make(0, B);
    EXPECT_EQ(apply("A", PORT), 0u);
    aclList*& slot = AclIntfTreeFind(PORT)->lists[f.row.place][IN];
    const std::string port = std::to_string(PORT);
    const std::string client =
        "debug Error: Accesslist A has interface " + port + " as a client but ";
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;

    slot = nullptr;  // the list is bound, the interface does not know
    EXPECT_TOLD(apply("A", PORT, IN, 9), ACL_OK,
                client + "the interface doesn't think the access list is applied on it \n");
    EXPECT_EQ(bound("A")->block.b[0], 1);

    slot = find("B");  // the interface holds a list that is not bound
    const std::string before = state();
    for (const char* name : {"B", "C"}) {
        EXPECT_EQ(apply(name, PORT), 0u);
        EXPECT_EQ(testTake()[0],
                  "debug Error: alist pointer for ACL Interface Tree node points to alist which "
                  "doesn't contain ifindex as its client, interface = " +
                      port + ", acl= B\n");
    }
    EXPECT_EQ(state(), before);
    EXPECT_EQ(remove("B", PORT), ACL_E_SYSTEM);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(testTake().back(),
              "debug Error: Acl B does not have client intferace Id " + port + "\n");

    aclIntfDrop(AclIntfTreeFind(PORT));  // the list is bound, there is no interface: it is made
    EXPECT_EQ(apply("A", PORT, IN, 9, 6), 0u);
    const rows told = testTake();
    ASSERT_EQ(told.size(), 6u);
    EXPECT_EQ(told[0], client + "ACL_INTF_TREE doesn't have an entry for the interface\n");
    EXPECT_EQ(told[5], here({"in.list A to 0x4040000/4 n 0 block 9 option 6"})[0]);
    EXPECT_EQ(find("A")->clients->next, nullptr);
    EXPECT_TRUE(bound("A")->block.b[0] == 1 && bound("A")->implicitPermit == 0) << "as it was";
    EXPECT_EQ(at(PORT), find("A"));

    join(LAG, {PORT2});  // a LAG's place is left when nobody could be told
    AclIntfTreeFind(LAG)->lists[f.row.place][IN] = find("B");
    EXPECT_EQ(remove("B", LAG), ACL_E_SYSTEM);
    EXPECT_EQ(at(LAG), find("B"));
}

TEST_P(Binding, WhatFailsOnceItIsBound) {
    make();
    EXPECT_EQ(apply("A", PORT), 0u);
    // A replacement that finds no memory leaves the old list in place.
    testFail(TEST_BLOCK, 4, 1);
    EXPECT_EQ(apply("B", PORT), ACL_E_SYSTEM);
    EXPECT_EQ(at(PORT), find("A"));
    // A deletion that cannot be sent is the operator's to know; the binding is gone all the same.
    testFail(TEST_SEND, 1, 1);
    EXPECT_EQ(remove("A", PORT), ACL_E_SYSTEM);
    EXPECT_EQ(find("A")->clients, nullptr);
    EXPECT_EQ(at(PORT), nullptr);
}

TEST_P(Binding, ACardGetsWhatConcernsItAndNothingElse) {
    aclLinecardInfo[2].isVortan = 1;
    node.chassis.supportAclOnCP = 1;
    make();
    ASSERT_EQ(add(0), 0u);
    join(LAG, {PORT3, PORT2, portIfindex(2, 7)});
    for (uint32_t port : {PORT2, portIfindex(2, 5), portIfindex(2, 7)})
        ASSERT_EQ(aclVlanMemberAdd(VLAN, port), 0);
    uint8_t mark = 1;
    for (uint32_t ifindex : {PORT, portIfindex(2, 5), LAG, VLAN})
        EXPECT_EQ(apply("A", ifindex, IN, mark++, 4), 0u);
    EXPECT_EQ(apply("A", IFINDEX_CP_BIND) == 0, f.row.onControlPlane);
    for (uint32_t ifindex : {LAG, VLAN, PORT})  // the port's card cannot
        EXPECT_EQ(apply("B", ifindex, OUT, mark++), 0u);
    uint32_t status = 0;
    ipDosListCreate(listNameMake("D"), 0, 0, &status);
    EXPECT_EQ(dosIpEnableIntf(listNameMake("D"), CLI_DOS_ENABLE), 0u);
    EXPECT_EQ(
        effects([] { AclUpdateAclAgent(2); }),
        here({"in.list A to 0x6200000/3 n 1 block 3 option 4",
              "in.list A to 0x60c0000/6 n 1 block 3 option 4",
              "out.list B to 0x6200000/3 n 0 block 5", "out.list B to 0x60c0000/6 n 0 block 5",
              "in.list A to 0x2 vlan 0x3800a n 1 block 4 option 4",
              "out.list B to 0x2 vlan 0x3800a n 0 block 6",
              "in.list A to 0x6180000/1 n 1 block 2 option 4", "14420 D to 0x2 n 0"}));
    // A card that takes no egress lists is reported for a VLAN's, but that IPv6 lists go to it.
    rows first = {"in.list A to 0x4080000/5 n 1 block 3 option 4",
                  "in.list A to 0x1 vlan 0x3800a n 1 block 4 option 4",
                  "syserr 0x50006 Error: Egress access-list not supported on linecard 1\r\n",
                  "in.list A to 0x4040000/4 n 1 block 1 option 4", "14420 D to 0x1 n 0"};
    if (f.row.place == INTF_V6) first[2] = "out.list B to 0x1 vlan 0x3800a n 0 block 6";
    if (!f.row.onVlans) first.erase(first.begin() + 2);
    EXPECT_EQ(effects([] { AclUpdateAclAgent(1); }), here(first));
    // The control processor's list is not its first slot's; a filter that is not defined is not
    // installed.
    EXPECT_EQ(ipDosListDelete(listNameMake("D")), 0u);
    EXPECT_TRUE(remove("A", VLAN) == 0 && remove("B", VLAN, OUT) == 0);
    EXPECT_EQ(effects([] {
                  for (uint32_t slot : {0u, uint32_t{SLOT_COUNT}}) AclUpdateAclAgent(slot);
              }),
              rows{});
}

}  // namespace
