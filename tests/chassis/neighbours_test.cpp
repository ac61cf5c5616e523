// What the manager's neighbours know: commands that cannot be, the records of a replay to the byte,
// and the file.
#include <gtest/gtest.h>

#include <algorithm>

#include "chassis/tasks/neighbours.h"
#include "include/ifmMsg.h"
#include "tests/platform/endpoint.h"

namespace {

constexpr uint32_t VLAN_10 = 0x0003800A, LAG_1 = 0x00030001, LAG_2 = 0x00030002;
constexpr uint32_t PORT_1_0 = 0x04040001, PORT_1_1 = 0x04080002, PORT_2_0 = 0x06040001;

struct model {
    chassisDescription chassis{};
    neighbourState state;
    toldItems items;
    std::string why;

    std::vector<uint8_t> request(uint32_t command, uint32_t ifindex, uint32_t argument,
                                 const std::vector<uint32_t>& members) const {
        std::vector<uint8_t> bytes(sizeof(chassisPlaceReq) + 4 * members.size());
        auto* req = wireView<chassisPlaceReq>(std::span(bytes));
        req->command = command;
        req->ifindex = ifindex;
        req->argument = argument;
        req->count = static_cast<uint32_t>(members.size());
        for (size_t i = 0; i < members.size(); i++)
            *wireView<be32>(std::span(bytes), sizeof *req + 4 * i) = members[i];
        return bytes;
    }
    bool apply(const std::vector<uint8_t>& bytes) {
        items.clear();
        why.clear();
        // As chassisd does it: on a copy.
        neighbourState next = state;
        const bool protocol =
            wireView<chassisPlaceReq>(std::span(bytes))->command >= CHASSIS_PROTOCOL_ENABLE;
        const bool done = protocol ? protocolApply(chassis, bytes, &next.protocols, &items, &why)
                                   : ifmApply(chassis, bytes, &next.interfaces, &items, &why);
        if (done) state = next;
        return done;
    }
    bool run(uint32_t command, uint32_t ifindex, uint32_t argument = 0,
             const std::vector<uint32_t>& members = {}) {
        return apply(request(command, ifindex, argument, members));
    }
    bool address(uint32_t command, uint32_t ifindex, std::vector<uint8_t> bytes, uint32_t length) {
        std::vector<uint8_t> whole = request(command, ifindex, length, {});
        auto* req = wireView<chassisPlaceReq>(std::span(whole));
        req->family = bytes.size() == 4 ? 4 : 6;
        std::ranges::copy(bytes, req->address);
        return apply(whole);
    }
    void fill() {
        EXPECT_TRUE(run(CHASSIS_MEMBERS_JOIN, VLAN_10, 0, {PORT_2_0, LAG_1, PORT_1_0}));
        EXPECT_TRUE(run(CHASSIS_MEMBERS_JOIN, LAG_1, 0, {PORT_1_1}));
        EXPECT_TRUE(run(CHASSIS_GROUP, VLAN_10, 7));
        EXPECT_TRUE(run(CHASSIS_INTERFACE_MODE, PORT_1_0, 3));
        EXPECT_TRUE(run(CHASSIS_INTERFACE_STATE, VLAN_10, 0));
        EXPECT_TRUE(address(CHASSIS_ADDRESS_ADD, VLAN_10, {10, 0, 0, 1}, 24));
        EXPECT_TRUE(address(CHASSIS_ADDRESS_ADD, PORT_1_0,
                            {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}, 64));
        EXPECT_TRUE(run(CHASSIS_PROTOCOL_ENABLE, VLAN_10, PROT_OSPF));
        EXPECT_TRUE(run(CHASSIS_PROTOCOL_ENABLE, PORT_1_0, PROT_VRRP));
    }
};

std::string hex(std::span<const uint8_t> bytes) {
    std::string text;
    char two[3];
    for (uint8_t b : bytes) {
        std::snprintf(two, sizeof two, "%02x", b);
        text += two;
    }
    return text;
}
std::vector<std::string> hexOf(const toldItems& items) {
    std::vector<std::string> all;
    for (const toldItem& item : items) all.push_back((item.removes ? "-" : "+") + hex(item.bytes));
    return all;
}
typedef std::vector<std::string> texts;

}  // namespace

TEST(Neighbours, AReplayHasEveryRecordInTheOrderInWhichItIsUnderstood) {
    model m;
    m.fill();
    const std::string zeros(64, '0');
    EXPECT_EQ(hexOf(ifmWhole(m.state.interfaces)),
              (texts{"+0001000c0003800a00000000", "+003100140003800a000000070000000000000000",
                     "+000b000c0404000100000003", "+002f000c0003000104080002",
                     "+002b00180003800a00000003060400010003000104040001",
                     "+001e00240003800a0a000001ffffff000000000000000000" + zeros.substr(0, 24),
                     "+0025004004040001fe80000000000000000000000000000900000000" +
                         zeros.substr(0, 56) + "0000004000000000"}));
    // Message fronts: the count where it is looked for.
    size_t taken;
    const toldItems whole = ifmWhole(m.state.interfaces);
    const std::vector<uint8_t> message = ifmMessage(whole, &taken);
    EXPECT_EQ(taken, whole.size());
    EXPECT_EQ(uint32_t{wireView<ifmEventMsg>(std::span(message))->count}, taken);
    EXPECT_EQ(hex(std::span(message).subspan(192, 4)), "0001000c");

    // What goes away says so once for itself; what goes with it at the manager is not said.
    EXPECT_TRUE(m.run(CHASSIS_INTERFACE_DELETE, PORT_1_0));
    EXPECT_EQ(hexOf(m.items), (texts{"-002a000c040400010003800a",
                                     "-0024004004040001fe80000000000000000000000000000900000000" +
                                         zeros.substr(0, 56) + "0000004000000000",
                                     "-0002000804040001"}));
    EXPECT_TRUE(m.run(CHASSIS_INTERFACE_DELETE, LAG_1));
    EXPECT_EQ(hexOf(m.items), (texts{"-0002000800030001"}));
    EXPECT_TRUE(m.run(CHASSIS_INTERFACE_DELETE, VLAN_10));
    EXPECT_EQ(hexOf(m.items), (texts{"-001f000c0003800a0a000001", "-000200080003800a"}));
    EXPECT_TRUE(m.state.interfaces.interfaces.empty());
    EXPECT_EQ(m.state.interfaces.members + m.state.interfaces.addresses, 0u);
}

TEST(Neighbours, ManyRecordsTakeAsFewMessagesAsTheyFitInto) {
    model m;
    std::vector<uint32_t> ports;
    for (uint32_t i = 0; i < 120; i++) ports.push_back(PORT_1_0 + (i << 18));
    for (uint32_t vlan = 1; vlan <= 100; vlan++)
        ASSERT_TRUE(m.run(CHASSIS_MEMBERS_JOIN, 0x00038000 + vlan, 0, ports));
    const toldItems whole = ifmWhole(m.state.interfaces);
    EXPECT_EQ(whole.size(), 100u);
    size_t messages = 0, records = 0;
    for (std::span<const toldItem> left(whole); !left.empty(); messages++) {
        size_t taken;
        EXPECT_LE(ifmMessage(left, &taken).size(), IFM_MESSAGE_MAX);
        records += taken;
        left = left.subspan(taken);
    }
    EXPECT_EQ(records, 100u);
    EXPECT_EQ(messages, 7u);  // 16 records of 492 bytes in each of 8,192
}

TEST(Neighbours, WhatCannotBeIsRefusedAndChangesNothing) {
    model m;
    m.fill();
    const std::string before = stateText(m.state);
    const struct {
        uint32_t command, ifindex, argument;
        std::vector<uint32_t> members;
        const char* why;
    } rows[] = {
        {CHASSIS_MEMBERS_JOIN, PORT_1_0, 0, {PORT_1_1}, "Only VLANs and LAGs have members"},
        {CHASSIS_MEMBERS_JOIN, VLAN_10, 0, {}, "1 to 1024 members"},
        {CHASSIS_MEMBERS_JOIN, VLAN_10, 0, {0x0003800B}, "no member of anything"},
        {CHASSIS_MEMBERS_JOIN, VLAN_10, 0, {7}, "0x00000007 is no interface"},
        {CHASSIS_MEMBERS_JOIN, LAG_2, 0, {PORT_1_1}, "0x04080002 is a member of 0x00030001"},
        {CHASSIS_MEMBERS_JOIN, LAG_2, 0, {PORT_2_0, LAG_1}, "A LAG is no member of a LAG"},
        {CHASSIS_MEMBERS_LEAVE, LAG_1, 0, {PORT_1_1, PORT_2_0}, "is no member of"},
        {CHASSIS_MEMBERS_JOIN, 0x00038000, 0, {PORT_1_1}, "is no port, LAG or VLAN"},
        {CHASSIS_MEMBERS_JOIN, 0x04038001, 0, {PORT_1_1}, "is no port, LAG or VLAN"},
        {CHASSIS_INTERFACE_DELETE, 0x42068000, 0, {}, "is no port, LAG or VLAN"},
        {CHASSIS_GROUP, PORT_1_0, 5, {}, "Only VLANs and LAGs have a multicast group id"},
        {CHASSIS_PROTOCOL_ENABLE, VLAN_10, 99, {}, "There is no such protocol"},
        {CHASSIS_PROTOCOL_ENABLE, 3, PROT_OSPF, {}, "is no port, LAG or VLAN"},
        {CHASSIS_PROTOCOL_DISABLE, PORT_1_0, PROT_OSPF, {}, "It is not enabled on"},
        {CHASSIS_STATE, VLAN_10, 0, {}, "chassisd does not know this command"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(m.run(row.command, row.ifindex, row.argument, row.members)) << row.why;
        EXPECT_NE(m.why.find(row.why), std::string::npos) << m.why << " for " << row.why;
    }
    // As many as the manager keeps.
    model full;
    for (uint32_t n = 1; n <= 257; n++) {
        std::vector<uint8_t> vrrp = full.request(CHASSIS_PROTOCOL_ENABLE, PORT_2_0, PROT_VRRP, {});
        wireView<chassisPlaceReq>(std::span(vrrp))->vmac[4] = static_cast<uint8_t>(n >> 8);
        wireView<chassisPlaceReq>(std::span(vrrp))->vmac[5] = static_cast<uint8_t>(n);
        EXPECT_EQ(full.apply(vrrp), n <= 256) << n;
    }
    EXPECT_NE(full.why.find("There are too many protocols on"), std::string::npos) << full.why;
    const std::vector<uint8_t> v6(16, 0);
    std::vector<uint8_t> group(16, 0xFF), loopback = v6;
    loopback.back() = 1;
    for (const auto& [bytes, length] : {std::pair(std::vector<uint8_t>{10, 0, 0, 2}, 0u),
                                        {{10, 0, 0, 2}, 33},
                                        {{0, 0, 0, 0}, 8},
                                        {{127, 0, 0, 1}, 8},
                                        {loopback, 128},
                                        {{224, 0, 0, 5}, 32},
                                        {{255, 255, 255, 255}, 32},
                                        {v6, 64},
                                        {group, 64},
                                        {group, 129},
                                        {{10, 0, 0, 1}, 16}})
        EXPECT_FALSE(m.address(CHASSIS_ADDRESS_ADD, VLAN_10, bytes, length)) << hex(bytes);
    EXPECT_FALSE(m.address(CHASSIS_ADDRESS_DEL, VLAN_10, {10, 0, 0, 2}, 24));
    // A count that promises more than came.
    std::vector<uint8_t> cut = m.request(CHASSIS_MEMBERS_JOIN, VLAN_10, 0, {PORT_1_1, PORT_1_0});
    cut.resize(cut.size() - 4);
    EXPECT_FALSE(m.apply(cut));
    EXPECT_EQ(stateText(m.state), before);
    // What is so already is no change, and nothing to be told.
    EXPECT_TRUE(m.run(CHASSIS_MEMBERS_JOIN, VLAN_10, 0, {LAG_1}));
    EXPECT_TRUE(m.address(CHASSIS_ADDRESS_ADD, VLAN_10, {10, 0, 0, 1}, 24));
    EXPECT_TRUE(m.items.empty());
    EXPECT_EQ(stateText(m.state), before);
}

TEST(Neighbours, ProtocolsAskWithTheirGroupsAndPorts) {
    model m;
    const struct {
        uint32_t id;
        const char* rest;  // from the IP protocol on: address, mask, port, option
    } rows[] = {
        {PROT_OSPF, "59 e0000005 ffffffff 00000000 00000000"},
        {PROT_BGP, "06 00000000 00000000 000000b3 00000000"},
        {PROT_VRRP, "70 e0000012 ffffffff 00000070 00000000"},
        {PROT_NTP, "11 e0000101 ffffffff 0000007b 00000000"},
        {PROT_IGMPSNOOPING, "02 e0000001 ffffffff 00000000 00000003"},
        {PROT_OSPF_V3, "10 ff020000 ffffffff 00000000 00000000"},
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(m.run(CHASSIS_PROTOCOL_ENABLE, VLAN_10, row.id));
        ASSERT_EQ(m.items.size(), 1u);
        const std::span<const uint8_t> r(m.items[0].bytes);
        ASSERT_EQ(r.size(), 208u);
        EXPECT_EQ(hex(r.subspan(161, 1)) + " " + hex(r.subspan(164, 4)) + " " +
                      hex(r.subspan(180, 4)) + " " + hex(r.subspan(196, 4)) + " " +
                      hex(r.subspan(200, 4)),
                  row.rest)
            << row.id;
    }
    size_t taken;
    const toldItems vrrp = protocolsWhole(m.state.protocols, protocolWay::queue);
    ASSERT_EQ(vrrp.size(), 1u);
    const std::vector<uint8_t> message = protocolMessage(vrrp, &taken);
    EXPECT_EQ(message.size(), 332u);
    EXPECT_EQ(uint32_t{wireView<ipcHdr>(std::span(message))->mtype}, 1112u);
    EXPECT_EQ(hex(std::span(message).subspan(124 + 140, 8)), "0003800a00005000");
}

TEST(Neighbours, TheFileBringsBackEverythingOrSaysWhyNot) {
    const runFolder folder;
    const std::string file = folder.path + "/interfaces.json";
    model m;
    m.fill();
    managerLine line;
    line.rp = 1;
    ASSERT_TRUE(m.run(CHASSIS_MEMBERS_LEAVE, LAG_1, 0, {PORT_1_1}));
    ASSERT_TRUE(lineOwe(line, m.items, &m.state.books[LINE_IFM]));
    ASSERT_TRUE(m.run(CHASSIS_PROTOCOL_DISABLE, PORT_1_0, PROT_VRRP));
    ASSERT_TRUE(lineOwe(line, m.items, &m.state.books[LINE_VRRP]));
    std::string error;
    ASSERT_TRUE(fileReplace(file, stateText(m.state), &error)) << error;
    neighbourState read;
    stateLoad(file, &read, &error);
    EXPECT_EQ(error, "");
    EXPECT_EQ(stateText(read), stateText(m.state));
    EXPECT_EQ(read.interfaces.members, 3u);
    EXPECT_EQ(read.books[LINE_VRRP].owed.size(), 1u);

    // Cut anywhere, or with any of these in it, it is not believed.
    const std::string good = stateText(m.state);
    neighbourState none;
    for (size_t length = 0; length + 2 < good.size(); length += 7)
        EXPECT_FALSE(stateParse(good.substr(0, length), &none, &error)) << length;
    const std::pair<const char*, const char*> wrongs[] = {
        {"\"version\":1", "\"version\":2"},
        {"0x06040001", "0x0003800b"},
        {"0x06040001", "0x04040001"},
        {"\"length\":24", "\"length\":33"},
        {"\"family\":4", "\"family\":5"},
        {"\"id\":4", "\"id\":3"},
        {"\"0x0003800a\":", "\"vlan 10\":"},
        {"\"record\":\"0030", "\"record\":\"002f"},
        {"\"record\":\"0030", "\"record\":\"30"},
        {"0a000001", "0a00000"},
        {"\"told\":2", "\"told\":-2"},
        {"\"group\":7", "\"group\":\"7\""},
    };
    for (const auto& [right, wrong] : wrongs) {
        std::string text = good;
        const size_t at = text.find(right);
        ASSERT_NE(at, text.npos) << right;
        text.replace(at, std::string(right).size(), wrong);
        EXPECT_FALSE(stateParse(text, &none, &error)) << wrong;
        EXPECT_TRUE(none.interfaces.interfaces.empty());
    }
    // A damaged one is put aside, with a sentence.
    std::ofstream(file) << good.substr(0, 100);
    stateLoad(file, &read, &error);
    EXPECT_NE(error.find("it is now " + file + ".damaged"), std::string::npos) << error;
    EXPECT_EQ(contentOf(file + ".damaged"), good.substr(0, 100));
    EXPECT_FALSE(std::filesystem::exists(file));
    error.clear();
    stateLoad(file, &read, &error);
    EXPECT_EQ(error, "");
}
