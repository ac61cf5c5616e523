// ACL VLAN groups: what each change writes and sends, to whom, and what groups and bindings forbid
// each other.
#include "ipacl/zekvlangroup.h"

#include "include/cliMsg.h"
#include "interface/targets.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName G = listNameMake("G"), H = listNameMake("H");

bindingVlans vlans(std::initializer_list<std::pair<uint32_t, uint32_t>> ranges) {
    bindingVlans set{};
    set.given = 1u;
    for (auto [first, last] : ranges)
        for (uint32_t v = first; v <= last; v++)
            set.bits[v / 8] = static_cast<uint8_t>(set.bits[v / 8] | 0x80 >> v % 8);
    return set;
}

// VLAN 10 has a port on card 1, VLAN 20 on cards 1 and 2, VLAN 30 on card 4, which takes no egress
// lists.
class Groups : public IpAcl {
  protected:
    void SetUp() override {
        IpAcl::SetUp();
        node.chassis.chassisMode = CHASSIS_MODE_VLAN_GROUPS;
        node.groups.aclVlanGroupMemberBitMap.set();
        for (uint32_t slot : {1u, 2u}) aclLinecardInfo[slot].isVortan = 1;
        for (auto [vlan, slot] : {std::pair{10u, 1u}, {20u, 1u}, {20u, 2u}, {30u, 4u}})
            ASSERT_EQ(aclVlanMemberAdd(ifindexMake(IF_TYPE_VLAN, vlan), portIfindex(slot, vlan)),
                      0);
        testTake();
    }
    static uint32_t make(const listName& name = G, uint32_t id = 0) {
        return aclCreateDelAclVlanGrp(name, id, true);
    }
    static uint32_t member(const bindingVlans& set, bool add = true, const listName& name = G) {
        return aclAddDelAclVlanGrpMember(name, set, add);
    }
    static uint32_t member(uint32_t vlan, bool add = true, const listName& name = G) {
        return member(vlans({{vlan, vlan}}), add, name);
    }
    static uint32_t apply(const char* list, bool add = true, uint32_t permit = 0,
                          const listName& name = G) {
        return aclApplyRemoveAclVlanGrp(name, listNameMake(list), permit, add);
    }
    static uint32_t bindOut(uint32_t ifindex, const char* list,
                            const bindingVlans* only = nullptr) {
        bindingBlock block{};
        if (only != nullptr) std::memcpy(&block, only, sizeof block);
        return aclIpApplyIntf(listNameMake(list), {ifindex, INTF_OUT, 0, 1, &block, only != nullptr,
                                                   only != nullptr ? "20" : ""});
    }
    // What is refused changes and tells nothing.
    void refused(uint32_t status, const std::function<uint32_t()>& act) {
        const std::string before = state();
        EXPECT_TOLD(act(), status);
        EXPECT_EQ(state(), before);
    }
};

TEST_F(Groups, AGroupFromItsFirstLineToItsLast) {
    create("A");
    EXPECT_TOLD(make(), ACL_OK, R"(cfg insert 71/141 G 0/0/0 "!")",
                R"(cfg insert 71/150 G 0/0/0 "acl-vlan-group G")",
                R"(sync 3 G "acl-vlan-group G")");
    EXPECT_TOLD(member(10), ACL_OK, R"(cfg insert 71/150 G 1/1/0 " member vlan 10")",
                R"(sync 3 G " member vlan 10")");
    EXPECT_TOLD(apply("A", true, 7), ACL_OK,
                R"(cfg insert 71/150 G 1/4095/0 " ip access-group A out implicit-permit")",
                R"(sync 3 G " ip access-group A out implicit-permit")",
                "14416 A to 0x1 n 0 option 7 group 1");
    EXPECT_TOLD(apply("A", true, 7), ACL_OK);
    EXPECT_EQ(apply("A", true, 0), ACL_E_IMPLICIT_PERMIT);
    // Each change of the list, once to each card.
    EXPECT_SENT(member(20), "14416 A to 0x2 n 0 option 7 group 1");
    EXPECT_SENT(add("A", standard(IP_PERMIT, 0, 0)), "14417 A 5 to 0x1 group 1",
                "14417 A 5 to 0x2 group 1");
    EXPECT_SENT(del("A", standard(IP_PERMIT, 0, 0), 0), "14418 A 5 to 0x1 group 1",
                "14418 A 5 to 0x2 group 1");
    EXPECT_SENT(ipAccessListDelete(A, IP_KIND_STANDARD), "14419 A to 0x1 n 0 option 7 group 1",
                "14419 A to 0x2 n 0 option 7 group 1");
    create("A");
    // Another list takes the place, and the one that only the group had is gone.
    EXPECT_EQ(apply("B"), 0u);
    EXPECT_EQ(sentOf(testTake()),
              (rows{"14419 A to 0x1 n 0 option 7 group 1", "14419 A to 0x2 n 0 option 7 group 1",
                    "14416 B to 0x1 n 0 group 1", "14416 B to 0x2 n 0 group 1"}));
    EXPECT_EQ(testCfgLines()[3], " ip access-group B out");
    // A card that replays; a port of a member VLAN.
    EXPECT_SENT((aclVlanGroupReplay(2), 0u), "14416 B to 0x2 n 0 group 1");
    EXPECT_SENT((aclVlanGroupMemberJoined(VLAN, portIfindex(2, 3)), 0u),
                "14416 B to 0x2 n 0 group 1");
    EXPECT_SENT((aclVlanGroupMemberJoined(ifindexMake(IF_TYPE_VLAN, 11), portIfindex(2, 3)), 0u));
    // Card 1 is behind VLAN 20 as well; the last VLAN takes the list from both.
    EXPECT_SENT(member(10, false));
    EXPECT_SENT(member(20, false), "14419 B to 0x1 n 0 group 1", "14419 B to 0x2 n 0 group 1");
    EXPECT_EQ(aclCreateDelAclVlanGrp(G, 0, false), ACL_E_GROUP_USED);
    EXPECT_EQ(apply("B", false), 0u);
    EXPECT_EQ(ipAccessListFind(B), nullptr);
    EXPECT_EQ(apply("B", false), ACL_E_GROUP_LIST);
    EXPECT_TOLD(aclCreateDelAclVlanGrp(G, 0, false), ACL_OK, "cfg remove 71/141 G",
                R"(sync 3 G "no acl-vlan-group G")");
    EXPECT_EQ(node.groups.isAclVlanGrp, 0u);
}

TEST_F(Groups, OnlyAChassisThatHasGroupsIsSentThem) {
    create("A");
    node.chassis.chassisMode = 1;
    EXPECT_EQ(make(), 0u);
    EXPECT_EQ(member(vlans({{10, 30}})), 0u);
    EXPECT_SENT(apply("A"));
    EXPECT_SENT(add("A", standard(IP_PERMIT, 0, 0)));
    EXPECT_SENT((aclVlanGroupReplay(1), 0u));
    EXPECT_EQ(testCfgLines()[2], " member vlan 10-30");
    // The card that takes no egress lists is reported, as for VLANs (download's tests).
    node.chassis.chassisMode = CHASSIS_MODE_VLAN_GROUPS;
    testTake();
    aclVlanGroupReplay(4);
    EXPECT_EQ(testTake(), rows{"syserr 0x50006 Error: Egress access-list not supported on linecard "
                               "4\r\n"});
}

TEST_F(Groups, IdsAreTheFirstFreeOrTheOneThatIsGiven) {
    EXPECT_EQ(make(H, 3), 0u);
    refused(ACL_E_GROUP_ID, [] { return make(G, 3); });
    refused(ACL_E_GROUP_ID, [] { return make(G, 9); });
    refused(ACL_E_GROUP_ID, [] { return make(H, 4); });
    refused(ACL_E_NOGROUP, [] { return make(listName{}); });
    EXPECT_TOLD(make(H), ACL_OK);
    for (uint32_t id : {1u, 2u, 4u, 5u, 6u, 7u, 8u}) {
        EXPECT_EQ(make(listNameMake("g" + std::to_string(id))), 0u);
        EXPECT_NE(aclFindAclVlanGrpFromCugID(id), nullptr);
    }
    refused(ACL_E_GROUP_FULL, [] { return make(G); });
    EXPECT_EQ(aclCreateDelAclVlanGrp(H, 0, false), 0u);
    EXPECT_EQ(make(G), 0u);
    EXPECT_EQ(aclFindAclVlanGrpFromCugID(3)->name, G);
    EXPECT_TRUE(node.groups.cugIdNum == 8 && node.groups.isAclVlanGrp == 1);
    // In the order of their names, each once.
    listName cursor{};
    std::string shown;
    for (void* buffer;; zekMC_M_sysFree(buffer)) {
        uint32_t size = 0;
        if (aclShowAclVlanGrpAllDetail(cursor, &buffer, &size) != ACL_OK) break;
        cursor = static_cast<showReplyHdr*>(buffer)->name;
        (shown += listNameView(cursor)) += ' ';
    }
    EXPECT_EQ(shown, "G g1 g2 g4 g5 g6 g7 g8 ");
}

TEST_F(Groups, AVlanHasOneGroupAndNoEgressListBesideIt) {
    create("A");
    EXPECT_TRUE(make() == 0 && make(H) == 0 && member(vlans({{10, 19}, {21, 21}})) == 0);
    const bindingVlans some = vlans({{19, 20}}), none{}, zero = vlans({{0, 1}}),
                       last = vlans({{4094, 4095}});
    for (const bindingVlans* bad : {&none, &zero, &last})
        refused(ACL_E_VLAN_RANGE, [=] { return member(*bad); });
    refused(ACL_E_GROUP_OTHER, [&] { return member(some, true, H); });
    refused(ACL_E_GROUP_MEMBER, [&] { return member(some, false); });
    refused(ACL_E_NOGROUP, [&] { return member(some, true, A); });
    refused(ACL_E_NOGROUP, [] { return apply("A", true, 0, B); });
    refused(ACL_E_NOLIST, [] { return apply(""); });
    refused(ACL_E_CLASH, [] { return apply("sgAcl_1/0"); });
    // An egress list on a member, or of a port for a member.
    DEBUG_ACL_MGR = DEBUG_ACL_GROUP;
    testTake();
    EXPECT_EQ(bindOut(VLAN, "A"), ACL_E_GROUP_VLAN);
    const rows told = testTake();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_TRUE(told[1].ends_with("vlan 10 has a vlan which belongs to a acl vlan group\r\n"));
    DEBUG_ACL_MGR = 0;
    refused(ACL_E_GROUP_VLAN, [&] { return bindOut(portIfindex(1, 0), "A", &some); });
    EXPECT_EQ(bindOut(portIfindex(1, 0), "A"), 0u) << "a port's own list stands beside the group's";
    // And the other way round.
    const uint32_t vlan30 = ifindexMake(IF_TYPE_VLAN, 30);
    const bindingVlans forty = vlans({{40, 40}});
    EXPECT_TRUE(bindOut(vlan30, "A") == 0 && bindOut(portIfindex(1, 1), "A", &forty) == 0);
    for (uint32_t vlan : {30u, 40u}) refused(ACL_E_GROUP_EGRESS, [=] { return member(vlan); });
    EXPECT_EQ(aclIpRemoveIntf(A, vlan30, INTF_OUT), 0u);
    EXPECT_EQ(aclIpRemoveIntf(A, portIfindex(1, 1), INTF_OUT), 0u);
    EXPECT_EQ(member(vlans({{30, 30}, {40, 40}})), 0u);
    EXPECT_EQ(node.groups.vlanMemNum, 13);
    EXPECT_EQ(node.groups.egressIpAclBitMap.count(), 4096u - 13);
}

// Whatever is added and taken away, the lines are the group, and their requests make it again.
TEST_F(Groups, TheLinesAreTheMembers) {
    ASSERT_EQ(make(), 0u);
    bindingVlans odd{};
    for (uint32_t v = 1; v < 4095; v += 2)
        odd.bits[v / 8] = static_cast<uint8_t>(odd.bits[v / 8] | 0x80 >> v % 8);
    ASSERT_EQ(member(odd), 0u);
    EXPECT_GT(testCfgLines().size(), 40u);
    ASSERT_EQ(member(vlans({{2000, 2000}})), 0u);
    bindingVlans some = vlans({{1, 1}, {301, 301}, {2999, 2999}});
    testTake();
    ASSERT_EQ(member(some, false), 0u);
    EXPECT_EQ(testTake()[0], R"(sync 3 G "no  member vlan 1,301,2999")");
    const vlanSet members = aclFindAclVlanGrpFromCugID(1)->members;
    const rows lines = testCfgLines();
    std::vector<cliGroupReq> requests;
    (void)zekCfgWalkRows(testCfg(), [&](const zekCfgRow& row) {
        EXPECT_LE(row.text.size(), 250u);
        if (row.request.mtype == 0) return true;
        cliGroupReq& r = requests.emplace_back();
        EXPECT_EQ(row.request.body.size(), sizeof r - sizeof(ipcHdr));
        std::memcpy(reinterpret_cast<uint8_t*>(&r) + sizeof(ipcHdr), row.request.body.data(),
                    row.request.body.size());
        return true;
    });
    node.groups.vlanGroups[0] = {};
    for (const cliGroupReq& r : requests)
        EXPECT_EQ(r.cli.code == CLI_GROUP_CREATE ? make(r.cli.name, r.id)
                                                 : member(r.vlans, true, r.cli.name),
                  0u);
    EXPECT_EQ(aclFindAclVlanGrpFromCugID(1)->members, members);
    EXPECT_EQ(testCfgLines(), lines);
    // All but the header goes with the last member.
    bindingVlans all = vlans({});
    for (uint32_t v = 1; v < 4095; v++)
        if (members.test(v))
            all.bits[v / 8] = static_cast<uint8_t>(all.bits[v / 8] | 0x80 >> v % 8);
    EXPECT_EQ(member(all, false), 0u);
    EXPECT_EQ(testCfgLines(), (rows{"!", "acl-vlan-group G"}));
}

TEST_F(Groups, WithoutMemoryNothingIsApplied) {
    create("A");
    ASSERT_TRUE(make() == 0 && member(10) == 0);
    const std::string before = state();
    for (const char* list : {"A", "B"}) {
        testFail(TEST_BLOCK);
        EXPECT_NE(apply(list), 0u);
        testFailNothing();
        EXPECT_EQ(state(), before);
    }
}

}  // namespace
