// Who receives a change: every kind of binding, both directions, LAGs, VLANs, tasks.
#include "include/service.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
const rule anyRule = standard(IP_PERMIT, 0, 0);

constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 3);
constexpr uint32_t VLAN = ifindexMake(IF_TYPE_VLAN, 10);

class Propagate : public IpAcl {
  protected:
    void SetUp() override {
        IpAcl::SetUp();
        list = create("A");
    }
    rows addRows() {
        return sends([&] { EXPECT_EQ(add("A", anyRule), 0u); });
    }
    rows deleteRows(uint32_t send) {
        return sends([&] { EXPECT_EQ(del("A", anyRule, send), 0u); });
    }
    // A change of entries is sent alike as it is added and as it is deleted: the message alone
    // differs, and it is the next one.
    void expectBoth(uint32_t send, const rows& added) {
        EXPECT_EQ(addRows(), added);
        rows deleted = added;
        for (std::string& row : deleted)
            for (const char* message : {"14410", "14417"})
                if (size_t at = row.find(message); at != row.npos)
                    row.replace(at, 5, std::to_string(std::stoi(message) + 1));
        EXPECT_EQ(deleteRows(send), deleted);
    }
    aclList* list = nullptr;
};

TEST_F(Propagate, PortsReceiveEntriesByDirectionAndCard) {
    aclLinecardInfo[2].isVortan = 1;
    testHost.missingPorts = {3};
    bind(list, CLIENT_INTERFACE, portIfindex(1, 0), 0);
    bind(list, CLIENT_INTERFACE, portIfindex(1, 1), 1);  // this card cannot filter egress
    bind(list, CLIENT_INTERFACE, portIfindex(2, 0), 1);
    // Bits 18-24 hold a port id already.
    bind(list, CLIENT_INTERFACE, portIfindex(2, 5) | 1u << 30, 0);
    bind(list, CLIENT_INTERFACE, 25u << 25 | 1u << 18, 0);  // no such slot
    bind(list, CLIENT_INTERFACE, portIfindex(1, 3));
    const rows added = {
        "agent entry 14410 A 5 if 0x4100000 pipe -1", "agent entry 14410 A 5 if 0x46180000 pipe 5",
        "agent entry 14417 A 5 if 0x6040000 pipe 4", "agent entry 14410 A 5 if 0x4040000 pipe 4"};
    expectBoth(1, added);
    EXPECT_EQ(addRows(), added);
    EXPECT_EQ(deleteRows(0), rows{}) << "ports only when asked";
}

TEST_F(Propagate, LagMembersAreServedFromTheLastToTheFirst) {
    aclLinecardInfo[3].isVortan = 1;
    join(LAG, {portIfindex(1, 1), portIfindex(3, 2), portIfindex(1, 3)});
    bind(list, CLIENT_INTERFACE, LAG, 0);
    // Unlike ports, LAGs and VLANs hear of a deletion whatever the send flag says.
    expectBoth(0, {"agent entry 14410 A 5 if 0x4100000 pipe 7",
                   "agent entry 14410 A 5 if 0x80c0000 pipe 6",
                   "agent entry 14410 A 5 if 0x4080000 pipe 5"});
    unbind(list);
    bind(list, CLIENT_INTERFACE, LAG, 1);
    EXPECT_EQ(addRows(), rows{"agent entry 14417 A 5 if 0x80c0000 pipe 6"});
    aclIntfDrop(AclIntfTreeFind(LAG));
    EXPECT_EQ(deleteRows(1), rows{}) << "a LAG without members";
}

TEST_F(Propagate, EntriesForAVlanGoOnceToEachOfItsCards) {
    for (uint32_t port : {portIfindex(2, 0), portIfindex(2, 1)})
        ASSERT_EQ(aclVlanMemberAdd(VLAN, port), 0);
    bind(list, CLIENT_INTERFACE, VLAN, 0);
    bind(list, CLIENT_INTERFACE, VLAN, 1);  // whatever the card takes
    expectBoth(0, {"agent entry 14417 A 5 if 0x2 vlan 0x3800a pipe 0",
                   "agent entry 14410 A 5 if 0x2 vlan 0x3800a pipe 0"});
    // A send that fails fails nothing.
    testFail(TEST_SEND);
    EXPECT_EQ(addRows().size(), 2u);
    EXPECT_EQ(deleteRows(1).size(), 2u);
    EXPECT_EQ(list->count, 0);
}

TEST_F(Propagate, ManagementTasksKeepTheirCopies) {
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM, APP_BGP}) bind(list, CLIENT_TASK, app);
    bind(list, CLIENT_TASK, APP_IPM, 0, 1);
    bind(list, CLIENT_ROUTE_MAP, 0);
    EXPECT_EQ(addRows(), (rows{"ipm1 list 14409 A n 1", "ipm0 list 14409 A n 1",
                               "sysadm entry 14410 A 5", "snmp entry 14410 A 5"}));
    // IPM knows no single entries: it gets the whole list when all is done. SYSADM's copy of an
    // empty list goes.
    EXPECT_EQ(deleteRows(1),
              (rows{"sysadm entry 14411 A 5", "snmp entry 14411 A 5", "sysadm list 14412 A n 0",
                    "ipm1 list 14409 A n 0", "ipm0 list 14409 A n 0"}));
}

TEST_F(Propagate, WholeListsCarryTheirBindingsBlockAndOption) {
    join(LAG, {portIfindex(1, 1), portIfindex(1, 2)});
    aclLinecardInfo[2].isVortan = 1;
    ASSERT_EQ(aclVlanMemberAdd(VLAN, portIfindex(2, 0)), 0);
    add("A", anyRule);
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM}) bind(list, CLIENT_TASK, app);
    struct {
        uint32_t ifindex, direction, implicitPermit;
    } interfaces[] = {{portIfindex(1, 0), 0, 1}, {LAG, 0, 0}, {VLAN, 1, 1}};
    uint8_t mark = 1;
    for (const auto& i : interfaces) {
        aclBinding* b = bind(list, CLIENT_INTERFACE, i.ifindex, i.direction);
        b->implicitPermit = i.implicitPermit;
        b->block.b[0] = mark++;
    }
    EXPECT_EQ(
        effects([] { EXPECT_EQ(ipAccessListDelete(A, IP_KIND_STANDARD), 0u); }),
        (rows{"agent list 14419 A if 0x2 vlan 0x3800a pipe 0 option 1 n 1 block 3",
              "agent list 14412 A if 0x40c0000 pipe 6 option 0 n 1 block 2",
              "agent list 14412 A if 0x4080000 pipe 5 option 0 n 1 block 2",
              "agent list 14412 A if 0x4040000 pipe 4 option 1 n 1 block 1",
              "ipm0 list 14412 A n 1", "sysadm list 14412 A n 1", "snmp list 14412 A n 1",
              // The entry goes to all but the port, and to IPM not again while the whole list goes.
              "agent entry 14418 A 5 if 0x2 vlan 0x3800a pipe 0",
              "agent entry 14411 A 5 if 0x40c0000 pipe 6",
              "agent entry 14411 A 5 if 0x4080000 pipe 5", "sysadm entry 14411 A 5",
              "snmp entry 14411 A 5", "sysadm list 14412 A n 0", "cfg remove 100/141 A",
              "sync 3 A \"no ip access-list standard A\"", "trigger A n 0 id 1"}));
    uint32_t status = 1;
    EXPECT_EQ(sends([&] { ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status); }),
              (rows{"agent list 14416 A if 0x2 vlan 0x3800a pipe 0 option 1 n 0 block 3",
                    "agent list 14409 A if 0x40c0000 pipe 6 option 0 n 0 block 2",
                    "agent list 14409 A if 0x4080000 pipe 5 option 0 n 0 block 2",
                    "agent list 14409 A if 0x4040000 pipe 4 option 1 n 0 block 1",
                    "ipm0 list 14409 A n 0", "sysadm list 14409 A n 0", "snmp list 14409 A n 0"}));
    EXPECT_EQ(status, 0u);
}

}  // namespace
