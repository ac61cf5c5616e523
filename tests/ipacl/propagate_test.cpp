// Who receives a change: every kind of binding, both directions, LAGs, VLANs, groups, tasks.
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
    // Rows of one add and of one delete, without trigger and configuration.
    rows change(const std::function<uint32_t()>& act) {
        testTake();
        EXPECT_EQ(act(), 0u);
        rows sent;
        for (const std::string& row : testTake())
            if (!row.starts_with("cfg") && !row.starts_with("sync") && !row.starts_with("trigger"))
                sent.push_back(row);
        return sent;
    }
    rows addRows() {
        return change([&] { return add("A", anyRule); });
    }
    rows deleteRows(uint32_t send) {
        return change([&] { return del("A", anyRule, send); });
    }
    aclList* list = nullptr;
};

TEST_F(Propagate, PortsReceiveEntriesByDirectionAndCard) {
    aclLinecardInfo[2].isVortan = 1;
    bind(list, BIND_INTERFACE, portIfindex(1, 0), 0);
    bind(list, BIND_INTERFACE, portIfindex(1, 1), 1);  // this card cannot filter egress
    bind(list, BIND_INTERFACE, portIfindex(2, 0), 1);
    // Bits 18-24 hold a port id already.
    bind(list, BIND_INTERFACE, portIfindex(2, 5) | 1u << 30, 0);
    bind(list, BIND_INTERFACE, 25u << 25 | 1u << 18, 0);  // no such slot
    EXPECT_EQ(addRows(), (rows{"agent entry 14410 A 5 if 0x46180000 pipe 5",
                               "agent entry 14417 A 5 if 0x6040000 pipe 4",
                               "agent entry 14410 A 5 if 0x4040000 pipe 4"}));
    EXPECT_EQ(deleteRows(0), rows{}) << "ports only when asked";
    addRows();
    EXPECT_EQ(deleteRows(1), (rows{"agent entry 14411 A 5 if 0x46180000 pipe 5",
                                   "agent entry 14418 A 5 if 0x6040000 pipe 4",
                                   "agent entry 14411 A 5 if 0x4040000 pipe 4"}));
}

TEST_F(Propagate, LagMembersAreServedFromTheLastToTheFirst) {
    aclLinecardInfo[3].isVortan = 1;
    join(LAG, {portIfindex(1, 1), portIfindex(3, 2), portIfindex(1, 3)});
    bind(list, BIND_INTERFACE, LAG, 0);
    EXPECT_EQ(addRows(), (rows{"agent entry 14410 A 5 if 0x4100000 pipe 7",
                               "agent entry 14410 A 5 if 0x80c0000 pipe 6",
                               "agent entry 14410 A 5 if 0x4080000 pipe 5"}));
    // Unlike ports, LAGs and VLANs hear of a deletion whatever the send flag says.
    EXPECT_EQ(deleteRows(0).size(), 3u);
    unbind(list);
    bind(list, BIND_INTERFACE, LAG, 1);
    EXPECT_EQ(addRows(), rows{"agent entry 14417 A 5 if 0x80c0000 pipe 6"});
    aclIntfDrop(AclIntfTreeFind(LAG));
    EXPECT_EQ(deleteRows(1), rows{}) << "a LAG without members";
}

TEST_F(Propagate, VlansGoThroughTheVlanSends) {
    bind(list, BIND_INTERFACE, VLAN, 0);
    bind(list, BIND_INTERFACE, VLAN, 1);  // whatever the cards are: the VLAN send decides
    EXPECT_EQ(addRows(),
              (rows{"vlan entry 14417 A 5 if 0x3800a", "vlan entry 14410 A 5 if 0x3800a"}));
    EXPECT_EQ(deleteRows(0),
              (rows{"vlan entry 14418 A 5 if 0x3800a", "vlan entry 14411 A 5 if 0x3800a"}));
}

TEST_F(Propagate, GroupsExistOnOneChassisOnly) {
    bind(list, BIND_VLAN_GROUP, 0xABCD0004, 1);
    EXPECT_EQ(addRows(), rows{});
    EXPECT_EQ(deleteRows(1), rows{});
    node.chassisMode = 7;
    EXPECT_EQ(addRows(), rows{"group entry 14417 A 5 group 4"});
    EXPECT_EQ(deleteRows(0), rows{"group entry 14418 A 5 group 4"});
}

TEST_F(Propagate, ManagementTasksKeepTheirCopies) {
    for (uint32_t app : {APP_SNMP, APP_SYSADM, APP_IPM, APP_BGP}) bind(list, BIND_TASK, app);
    bind(list, BIND_TASK, APP_IPM, 0, 1);
    bind(list, BIND_ROUTE_MAP, 0);
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
    node.chassisMode = 7;
    add("A", anyRule);
    bind(list, BIND_TASK, APP_SNMP);
    bind(list, BIND_VLAN_GROUP, 4, 1);
    struct {
        uint32_t ifindex, direction, implicitPermit;
    } interfaces[] = {{portIfindex(1, 0), 0, 1}, {LAG, 0, 0}, {VLAN, 1, 1}};
    uint8_t mark = 1;
    for (const auto& i : interfaces) {
        aclBinding* b = bind(list, BIND_INTERFACE, i.ifindex, i.direction);
        b->implicitPermit = i.implicitPermit;
        b->block.b[0] = mark++;
    }
    rows added = {"vlan list 14416 A if 0x3800a option 1 n 0 block 3",
                  "agent list 14409 A if 0x40c0000 pipe 6 option 0 n 0 block 2",
                  "agent list 14409 A if 0x4080000 pipe 5 option 0 n 0 block 2",
                  "agent list 14409 A if 0x4040000 pipe 4 option 1 n 0 block 1",
                  "group list 14416 A n 0 block 1 group 4",
                  "snmp list 14409 A n 0"};
    rows deleted = {"vlan list 14419 A if 0x3800a option 1 n 1 block 3",
                    "agent list 14412 A if 0x40c0000 pipe 6 option 0 n 1 block 2",
                    "agent list 14412 A if 0x4080000 pipe 5 option 0 n 1 block 2",
                    "agent list 14412 A if 0x4040000 pipe 4 option 1 n 1 block 1",
                    "group list 14419 A n 1 block 1 group 4", "snmp list 14412 A n 1",
                    // The entry goes to all but the port.
                    "vlan entry 14418 A 5 if 0x3800a", "agent entry 14411 A 5 if 0x40c0000 pipe 6",
                    "agent entry 14411 A 5 if 0x4080000 pipe 5", "group entry 14418 A 5 group 4",
                    "snmp entry 14411 A 5"};
    EXPECT_EQ(change([&] { return ipAccessListDelete(A, IP_KIND_STANDARD); }), deleted);
    uint32_t status = 1;
    EXPECT_EQ(change([&] {
                  ipAccessListCreate(A, IP_KIND_STANDARD, 0, &status);
                  return status;
              }),
              added);
}

TEST_F(Propagate, AFailedSendFailsNothing) {
    bind(list, BIND_INTERFACE, portIfindex(1, 0));
    bind(list, BIND_INTERFACE, VLAN);
    testFail(TEST_SEND);
    EXPECT_EQ(addRows().size(), 2u);
    EXPECT_EQ(list->count, 1);
    testFail(TEST_SEND);
    EXPECT_EQ(deleteRows(1).size(), 2u);
    EXPECT_EQ(list->count, 0);
}

TEST_F(Propagate, AMissingPortHasNoPipe) {
    testHost.missingPorts = {3};
    bind(list, BIND_INTERFACE, portIfindex(1, 3));
    EXPECT_EQ(addRows(), rows{"agent entry 14410 A 5 if 0x4100000 pipe -1"});
}

}  // namespace
