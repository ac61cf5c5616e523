// Interfaces and what is bound to them: lines, requests, and the road of refusals.
#include <cstring>

#include "tests/cli/fakeManager.h"

namespace {

// The fake manager's chassis with a card, a LAG and a VLAN.
void describeChassis(const fakeManager& manager) {
    std::ofstream(manager.dir + "/chassis.json") << R"({"chassisMode":1,"routeProcessorType":4,
 "routeProcessors":[{"address":"127.1.0.1","primary":true}],
 "tasks":[{"application":61,"instance":0,"address":"127.1.0.1"}],
 "cards":[{"slot":1,"address":"127.1.1.1","type":2,
           "ports":[{"name":"1/0","userPort":0,"port":0,"pipe":0}]}],
 "lags":[{"id":1}],"vlans":[{"id":10}]})";
}
constexpr uint32_t PORT_1_0 = 2u << 25 | 1u << 18 | 1, LAG_1 = 12u << 14 | 1,
                   VLAN_10 = 14u << 14 | 10, CONTROL_PLANE = 0x42068000;

struct keeper {
    std::mutex mutex;
    std::vector<std::vector<uint8_t>> messages;
    void keep(const std::vector<uint8_t>& m) {
        std::lock_guard lock(mutex);
        messages.push_back(m);
    }
};
uint32_t word(const std::vector<uint8_t>& m, size_t at) {
    return uint32_t{m[at]} << 24 | uint32_t{m[at + 1]} << 16 | uint32_t{m[at + 2]} << 8 | m[at + 3];
}
size_t count(const std::string& text, std::string_view what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1)) n++;
    return n;
}

}  // namespace

TEST(Binding, LinesBecomeTheirRequests) {
    keeper kept;
    fakeManager manager;
    describeChassis(manager);
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        kept.keep(message);
        m.answer(message, ACL_OK);
    });
    testSession s(manager.dir);
    struct {
        const char* line;
        uint32_t code, ifindex, direction, implicitPermit;
        const char* vlans;  // null: not given
        uint32_t vlanCount = 0;
    } rows[] = {
        {"interface 1/0\n ip access-group A in\n", 1039, PORT_1_0, 0, 0, nullptr},
        {"inter port-channel   1\n ip access-group A out implicit-permit\n", 1039, LAG_1, 1, 1,
         nullptr},
        {"interface po 01\n ip access-group A in Vlan 10-20,30\n", 1039, LAG_1, 0, 0, "10-20,30",
         12},
        {"interface VLAN 10\n ip access-group A in Vlan 7 implicit-permit\n", 1039, VLAN_10, 0, 1,
         "7", 1},
        {"interface control-plane\n ip access-group A in implicit-permit Vlan 1-4094\n", 1039,
         CONTROL_PLANE, 0, 1, "1-4094", 4094},
        {"interface 0x10040001\n ip access-group A in\n", 1039, 0x10040001, 0, 0, nullptr},
        {"interface control\n no ip access-group A in\n", 1038, CONTROL_PLANE, 0, 0, nullptr},
        {"interface vlan 10\n no ip access-group A out\n", 1038, VLAN_10, 1, 0, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        kept.messages.clear();
        EXPECT_EQ(s.load(row.line), 0) << s.reported();
        ASSERT_EQ(kept.messages.size(), 1u);  // the interface line itself sends nothing
        const auto& m = kept.messages[0];
        ASSERT_EQ(m.size(), row.code == 1039 ? 1016u : 228u);
        EXPECT_EQ(word(m, 72), row.code);
        EXPECT_EQ(listNameView(cliOf(m).name), "A");
        EXPECT_EQ(word(m, 220), row.ifindex);
        EXPECT_EQ(word(m, 224), row.direction);
        if (row.code != 1039) continue;
        EXPECT_EQ(word(m, 228), row.implicitPermit);
        EXPECT_EQ(word(m, 232), 1u);
        EXPECT_EQ(word(m, 236), row.vlans != nullptr ? 1u : 0u);
        // The block has the VLANs, bit by bit; without any it is zero.
        uint32_t given = 0;
        for (uint32_t id = 0; id < 4096; id++)
            given += (m[248 + id / 8] & 0x80u >> id % 8) != 0 ? 1 : 0;
        EXPECT_EQ(given, row.vlanCount);
        EXPECT_EQ(word(m, 244), row.vlanCount);
        EXPECT_EQ(word(m, 240), row.vlans != nullptr ? 1u : 0u);
        EXPECT_EQ(m[248 + 10 / 8] & 0x80 >> 10 % 8, row.vlanCount > 1 ? 0x20 : 0);
        EXPECT_STREQ(reinterpret_cast<const char*>(&m[760]), row.vlans != nullptr ? row.vlans : "");
    }
}

TEST(Binding, BadLinesAreRefusedAtTheirWord) {
    fakeManager manager;
    describeChassis(manager);
    manager.run([](fakeManager& m, std::vector<uint8_t>& message) { m.answer(message, ACL_OK); });
    std::string name(140, 'N'), tooLong = "1-4094";
    while (tooLong.size() < 74) tooLong += ",1";
    struct {
        std::string line;
        const char* report;
    } rows[] = {
        {" ip access-group A", "2:20: The line is incomplete; expected: in, out"},
        {" ip access-group A up", "2:20: Unexpected word \"up\"; expected: in, out"},
        {" ip access-group A in Vlan 0", "2:28: A VLAN range is"},
        {" ip access-group A in Vlan 4095", "2:28: A VLAN range is"},
        {" ip access-group A in Vlan 20-10", "2:28: A VLAN range is"},
        {" ip access-group A in Vlan 1,,2", "2:28: A VLAN range is"},
        {" ip access-group A in Vlan 1 Vlan 2", "2:30: Unexpected word \"Vlan\""},
        {" no ip access-group A in implicit-permit", "2:26: Unexpected word"},
        {" ip access-group " + name + " in Vlan " + tooLong, "The VLAN range is too long"},
        {" permit any", "2:2: Unexpected word \"permit\"; expected: ip"},
        {"no interface 1/0", "2:4: Unexpected word \"interface\""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        testSession s(manager.dir);
        // What follows a line of the interface that is refused still belongs to the interface.
        EXPECT_EQ(s.load("interface 1/0\n" + row.line + "\n ip access-group B out\n"), 1);
        EXPECT_EQ(count(s.reported(), row.report), 1u) << s.reported();
        EXPECT_EQ(count(s.reported(), "F: 1 of 3 lines refused"), 1u) << s.reported();
    }
}

// Nothing may be bound to the interface before the one that there is not.
TEST(Binding, LinesOfAnUnknownInterfaceAreNotSent) {
    keeper kept;
    fakeManager manager;
    describeChassis(manager);
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        kept.keep(message);
        m.answer(message, ACL_OK);
    });
    const std::string text =
        "interface 1/0\n ip access-group A in\ninterface 9/0\n ip access-group B in\n"
        "interface vlan 10\n ip access-group C in\n";
    testSession s(manager.dir);
    EXPECT_EQ(s.load(text), 1);
    EXPECT_EQ(count(s.reported(), "F:3:1: The chassis has no interface 9/0\n"), 1u);
    EXPECT_EQ(count(s.reported(), "F:4:2: Not sent: the header in line 3 was refused\n"), 1u);
    ASSERT_EQ(kept.messages.size(), 2u);
    EXPECT_EQ(word(kept.messages[1], 220), VLAN_10);

    // Typed, the next line finds itself in configuration mode.
    testSession typed(manager.dir);
    for (const char* line : {"configure terminal", "interface 1/0"}) EXPECT_TRUE(typed.run(line));
    EXPECT_FALSE(typed.run("interface 9/0"));
    EXPECT_EQ(typed.session.mode, cliMode::configure);
    EXPECT_FALSE(typed.run("ip access-group B in"));
    EXPECT_EQ(kept.messages.size(), 2u);
}

TEST(Binding, CheckingReadsTheChassisWhenThereIsOne) {
    fakeManager manager;
    describeChassis(manager);
    testSession known(manager.dir), unknown(manager.dir);
    known.session.options.checkOnly = unknown.session.options.checkOnly = true;
    unknown.session.options.chassisFile = manager.dir + "/nowhere.json";
    EXPECT_EQ(known.load("interface 9/0\n ip access-group B in\n"), 1);
    EXPECT_EQ(count(known.reported(), "refused"), 1u) << known.reported();
    EXPECT_EQ(unknown.load("interface 9/0\n ip access-group B in\n ip access-group B up\n"), 1);
    EXPECT_EQ(count(unknown.reported(), "F:3:"), 1u) << unknown.reported();
    EXPECT_EQ(count(unknown.reported(), "F: 1 of 3"), 1u) << unknown.reported();
}

// A refusal by the manager does not end the interface's mode, nor change what comes behind it.
TEST(Binding, ARefusalIsReportedAtItsLine) {
    fakeManager manager;
    describeChassis(manager);
    manager.run([](fakeManager& m, std::vector<uint8_t>& message) {
        bool egress = word(message, 224) == 1;
        m.answer(message, egress ? ACL_E_CP_EGRESS : ACL_OK);
    });
    testSession s(manager.dir);
    EXPECT_EQ(s.load("interface control-plane\n ip access-group A out\n ip access-group A in\n"
                     "ip access-list standard A\n"),
              1);
    EXPECT_EQ(
        count(s.reported(), std::string("F:2:2: ") + aclStatusFind(ACL_E_CP_EGRESS)->text + "\n"),
        1u)
        << s.reported();
    EXPECT_EQ(count(s.reported(), "F: 1 of 4 lines refused"), 1u);
}
