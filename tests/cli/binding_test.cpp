// Interfaces and what is bound to them: lines, requests, and the road of refusals.
#include "tests/cli/fakeManager.h"

namespace {

constexpr uint32_t PORT_1_0 = 2u << 25 | 1u << 18 | 1, LAG_1 = 12u << 14 | 1,
                   VLAN_10 = 14u << 14 | 10, CONTROL_PLANE = 0x42068000;

}  // namespace

TEST(Binding, LinesGoToTheInterfaceOfTheirHeader) {
    fakeManager manager;
    manager.serve();
    testSession s(manager.dir);
    const std::pair<const char*, uint32_t> rows[] = {
        {"interface 1/0", PORT_1_0},
        {"inter port-channel   1", LAG_1},
        {"interface po 01", LAG_1},
        {"interface VLAN 10", VLAN_10},
        {"interface control-plane", CONTROL_PLANE},
        {"interface control", CONTROL_PLANE},
        {"interface 0x10040001", 0x10040001},
    };
    for (const auto& [line, ifindex] : rows)
        EXPECT_EQ(s.load(line + std::string("\n ip access-group A in\n")), 0) << s.reported();
    manager.halt();
    ASSERT_EQ(manager.received.size(), std::size(rows));  // the header itself sends nothing
    for (size_t i = 0; i < std::size(rows); i++)
        EXPECT_EQ(wordAt(manager.received[i], 220), rows[i].second) << rows[i].first;
}

TEST(Binding, BadLinesAreRefusedAtTheirWord) {
    fakeManager manager;
    manager.serve();
    std::string name(140, 'N'), tooLong = "1-4094";
    while (tooLong.size() < 74) tooLong += ",1";
    const std::pair<std::string, const char*> rows[] = {
        {" ip access-group A up", "2:20: Unexpected word \"up\"; expected: in, out"},
        {" ip access-group " + name + " in Vlan " + tooLong, "The VLAN range is too long"},
        {"no interface 1/0", "2:4: Unexpected word \"interface\""},
    };
    for (const auto& [line, report] : rows) {
        SCOPED_TRACE(line);
        testSession s(manager.dir);
        // What follows a line of the interface that is refused still belongs to the interface.
        EXPECT_EQ(s.load("interface 1/0\n" + line + "\n ip access-group B out\n"), 1);
        EXPECT_EQ(count(s.reported(), report), 1u) << s.reported();
        EXPECT_EQ(count(s.reported(), "F: 1 of 3 lines refused"), 1u) << s.reported();
    }
}

// Nothing may be bound to the interface before the one that there is not.
TEST(Binding, LinesOfAnUnknownInterfaceAreNotSent) {
    fakeManager manager;
    manager.serve();
    const std::string text =
        "interface 1/0\n ip access-group A in\ninterface 9/0\n ip access-group B in\n"
        "interface vlan 10\n ip access-group C in\n";
    testSession s(manager.dir);
    EXPECT_EQ(s.load(text), 1);
    EXPECT_EQ(count(s.reported(), "F:3:1: The chassis has no interface 9/0\n"), 1u);
    EXPECT_EQ(count(s.reported(), "F:4:2: Not sent: the header in line 3 was refused\n"), 1u);

    // Typed, the next line finds itself in configuration mode.
    testSession typed(manager.dir);
    for (const char* line : {"configure terminal", "interface 1/0"}) EXPECT_TRUE(typed.run(line));
    EXPECT_FALSE(typed.run("interface 9/0"));
    EXPECT_EQ(typed.session.mode, cliMode::configure);
    EXPECT_FALSE(typed.run("ip access-group B in"));
    manager.halt();
    ASSERT_EQ(manager.received.size(), 2u);
    EXPECT_EQ(wordAt(manager.received[1], 220), VLAN_10);
}

TEST(Binding, CheckingReadsTheChassisWhenThereIsOne) {
    fakeManager manager;
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
    manager.serve([](const std::vector<uint8_t>& message) -> uint32_t {
        return wordAt(message, 224) == 1 ? ACL_E_CP_EGRESS : ACL_OK;
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
