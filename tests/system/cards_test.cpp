// Lists on cards, with real managers and agents: what is bound is installed, through every change
// and in spite of everything that ends in between.
#include <gtest/gtest.h>
#include <signal.h>

#include "tests/system/chassis.h"

namespace {

// A chassis whose agents all run. Port 1/2 and 2/2 are a LAG; 1/3 and 2/3 are in VLAN 10.
struct cardsFixture : chassisFixture {
    cardsFixture() {
        startAll();
        for (const char* member :
             {"port-channel 1 1/2", "port-channel 1 2/2", "vlan 10 1/3", "vlan 10 2/3"})
            show(std::string("debug join ") + member);
    }
    commandResult installed(const std::string& list) const {
        return shell({"-c", "show ip access-lists " + list + " installed"});
    }
    // Waits until every card is in step with the list; then the rows must be these.
    void expectInStep(const std::string& list, const std::string& rows) const {
        commandResult result;
        EXPECT_TRUE(waitUntil([&] { return (result = installed(list)).status == 0; }))
            << list << "\n"
            << result.out << result.err << show("show cards");
        EXPECT_EQ(squeezed(result.out), rows) << list;
    }
    // The rows without their head, blanks and padding: "vlan 10,in,1,in step;".
    static std::string squeezed(const std::string& table) {
        std::string out;
        size_t at = std::min(table.find('\n'), table.size() - 1) + 1;
        for (; at < table.size(); at++) {
            if (table[at] == '\n')
                out += ';';
            else if (table.compare(at, 2, "  ") != 0)
                out += table[at];
            else if (out.back() != ',')
                out += ',';
        }
        for (size_t blank; (blank = out.find(", ")) != out.npos;) out.erase(blank + 1, 1);
        return out;
    }
};

std::string entries(int from, int to) {
    std::string text;
    for (int i = from; i < to; i++)
        text += " seq " + std::to_string(10 * i) + " permit tcp host 10.1." +
                std::to_string(i / 250) + "." + std::to_string(i % 250) + " any eq " +
                std::to_string(i % 65536) + "\n";
    return text;
}

const char* const LIST_A = "ip access-list extended A\n";
const char* const LIST_B = "ip access-list standard B\n";
const std::string ALL_OF_B =
    std::string(LIST_B) + " seq 5 permit 10.0.0.0/8 log\n seq 100 deny any\n";

}  // namespace

TEST(Cards, AreInStepThroughEveryChange) {
    cardsFixture chassis;
    chassis.load(LIST_A + entries(1, 40) + ALL_OF_B +
                 "interface 1/0\n ip access-group A in\n"
                 "interface 2/1\n ip access-group A out implicit-permit\n"
                 "interface port-channel 1\n ip access-group A in\n"
                 "interface vlan 10\n ip access-group A in\n"
                 "interface control-plane\n ip access-group B in\n");
    const std::string lag = "port-channel 1 (2/2),in,2,in step;port-channel 1 (1/2),in,1,in step;",
                      vlan = "vlan 10,in,1,in step;vlan 10,in,2,in step;",
                      port = "1/0,in,1,in step;", egress = "2/1,out,2,in step;",
                      cp = "control-plane,in,control-plane,in step;";
    const std::string undefined =
        "port-channel 1 (2/2),in,2,not defined;port-channel 1 (1/2),in,1,not defined;"
        "1/0,in,1,not defined;";
    struct {
        const char* what;
        std::string lines;
        std::string a, b;  // rows that must be in step; "-": no such list
    } steps[] = {
        {"bound", "", lag + vlan + port + egress, cp},
        {"an entry in front, one behind, one between",
         LIST_A + std::string(" seq 1 deny ip any any\n seq 9999 permit ip any any\n"
                              " seq 15 permit udp any any\n"),
         lag + vlan + port + egress, cp},
        {"deleted by number and by content",
         LIST_A + std::string(" no seq 1\n no permit udp any any\n"), lag + vlan + port + egress,
         cp},
        {"grown over several messages", LIST_A + entries(100, 200), lag + vlan + port + egress, cp},
        {"replaced on a port", "interface 1/0\n ip access-group B in\n", lag + vlan + egress,
         "1/0,in,1,in step;" + cp},
        {"replaced on the LAG and the VLAN",
         "interface port-channel 1\n ip access-group B in\n"
         "interface vlan 10\n ip access-group B in\n",
         egress, lag + vlan + port + cp},
        {"changed where it was replaced", LIST_B + std::string(" seq 7 deny host 10.1.1.1\n"),
         egress, lag + vlan + port + cp},
        {"unbound",
         "interface vlan 10\n no ip access-group B in\n"
         "interface control-plane\n no ip access-group B in\n"
         "interface 2/1\n no ip access-group A out\n",
         "", lag + port},
        {"deleted while bound", "no ip access-list standard B\n", "", undefined},
        {"configured again", "ip access-list extended B\n permit tcp any any established\n", "",
         lag + port},
        {"bound again both ways", "interface 1/0\n ip access-group A in\n ip access-group A out\n",
         "1/0,in,1,in step;1/0,out,1,in step;", lag},
        {"deleted and unbound",
         "no ip access-list extended B\ninterface port-channel 1\n no ip access-group B in\n",
         "1/0,in,1,in step;1/0,out,1,in step;", "-"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        if (!step.lines.empty()) chassis.load(step.lines);
        chassis.expectInStep("A", step.a);
        if (step.b == "-")
            EXPECT_NE(chassis.installed("B").err.find("No such access list"), std::string::npos);
        else
            chassis.expectInStep("B", step.b);
    }
    // Nothing was sent that an agent could not use, and nothing is left over.
    rawClient client(chassis);
    for (int slot : {1, 2, AGENT_CP}) {
        std::string summary = client.agentSummary(slot);
        EXPECT_NE(summary.find("\"lastError\":\"\""), std::string::npos) << slot << summary;
    }
    EXPECT_EQ(chassis.show("show card 2 access-lists | include ipv4 | count"), "0\n");
    EXPECT_EQ(chassis.show("show card 1 access-lists | include ipv4 | count"), "2\n");
    EXPECT_EQ(chassis.show("show card control-plane access-lists | count"), "0\n");
    EXPECT_EQ(chassis.show("show card 1 access-lists A | include 10.1.0.7 | count"), "2\n");
}

// The configuration of bindings loads back, in a shell and in a restore.
TEST(Cards, BindingsArePrintedAndReadBack) {
    cardsFixture chassis;
    chassis.load(LIST_A + entries(1, 4) + ALL_OF_B +
                 "interface 1/0\n ip access-group A in implicit-permit Vlan 10-20,30\n"
                 " ip access-group B out\n"
                 "interface port-channel 1\n ip access-group LATER in\n"
                 "interface control-plane\n ip access-group B in\n"
                 "interface 0x00030009\n ip access-group B in\n");
    std::string printed = chassis.runningConfig();
    for (const char* line :
         {"\ninterface 1/0\n", "\n ip access-group A in implicit-permit Vlan 10-20,30\n",
          "\n ip access-group B out\n", "\ninterface port-channel 1\n",
          "\n ip access-group LATER in\n", "\ninterface control-plane\n"})
        EXPECT_NE(printed.find(line), std::string::npos) << line << printed;
    ASSERT_TRUE(chassis.killAndRestart());
    EXPECT_EQ(chassis.runningConfig(), printed);
    commandResult checked = chassis.shell({"-C", "-f", "-"}, printed);
    EXPECT_EQ(checked.status, 0) << checked.err;
    // A LAG that the description does not have: its port gets the list when it joins.
    EXPECT_NE(printed.find("\ninterface 0x00030009\n ip access-group B in\n"), std::string::npos);
    chassis.show("debug join 0x00030009 1/1");
    std::string rows;
    EXPECT_TRUE(waitUntil([&] {
        commandResult result = chassis.installed("B");
        rows = chassis.squeezed(result.out);
        return result.status == 0 &&
               rows.find("0x00030009 (1/1),in,1,in step;") != std::string::npos;
    })) << rows;

    chassisFixture other;
    ASSERT_TRUE(other.startManager());
    other.load(printed);
    EXPECT_EQ(other.runningConfig(), printed);
    commandResult refused =
        other.shell({"-f", "-"},
                    "interface control-plane\n ip access-group A out\ninterface 1/0\n"
                    " no ip access-group B in\n ip access-group A in\n");
    EXPECT_EQ(refused.status, 1);
    for (const char* place : {"-:2:2: ", "-:4:2: ", "-:5:2: ", "3 of 5"})
        EXPECT_NE(refused.err.find(place), std::string::npos) << place << refused.err;
    EXPECT_EQ(other.runningConfig(), printed);
}

// A comparison that can only agree would be worth nothing.
TEST(Cards, WhatIsNotInStepIsSaidToBeSo) {
    cardsFixture chassis;
    chassis.load(LIST_A + entries(1, 20) +
                 "interface 1/0\n ip access-group A in\ninterface 2/0\n ip access-group A in\n");
    chassis.expectInStep("A", "1/0,in,1,in step;2/0,in,2,in step;");
    // A manager that is not primary sends nothing.
    chassis.movePrimary(1);
    chassis.load(
        LIST_A + std::string(" no seq 10\n seq 11 deny ip any any\n") +
        "interface 1/1\n ip access-group A out\ninterface 2/0\n no ip access-group A in\n");
    commandResult result = chassis.installed("A");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(chassis.squeezed(result.out),
              "1/0,in,1,different;1/1,out,1,missing;2/0,in,2,left over;");
    chassis.agents[2].stop(SIGKILL);
    kill(chassis.agents[1].pid, SIGSTOP);
    result = chassis.shell({"--timeout", "0.2", "-c", "show ip access-lists A installed"});
    kill(chassis.agents[1].pid, SIGCONT);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(chassis.squeezed(result.out),
              "1/0,in,1,no answer;1/1,out,1,no answer;-,-,2,not running;");

    chassis.movePrimary(0);
    ASSERT_TRUE(chassis.startAgent(2));
    chassis.expectInStep("A", "1/0,in,1,in step;1/1,out,1,in step;");
}

// A card that has stopped and a queue that overflows: what was changed meanwhile is installed in
// the end, without another change.
TEST(Cards, HealWithoutAnotherChange) {
    cardsFixture chassis;
    const std::string bind = "interface port-channel 1\n ip access-group ";
    auto whole = [](const char* slot2, const char* slot1) {
        return std::string("port-channel 1 (2/2),in,2,") + slot2 + ";port-channel 1 (1/2),in,1," +
               slot1 + ";";
    };
    const std::string inStep = whole("in step", "in step");
    // More than a queue holds: 16 MB and 65,536 messages.
    chassis.load(LIST_A + entries(1, 40001) + bind + "A in\n");
    chassis.expectInStep("A", inStep);
    kill(chassis.agents[1].pid, SIGSTOP);
    chassis.load("no ip access-list extended A\n" + ALL_OF_B + bind + "B in\n");
    ASSERT_TRUE(waitUntil([&] {
        return chassis.show("show logging").find("Resetting SWP queue") != std::string::npos;
    }));
    std::string rows;
    EXPECT_TRUE(waitUntil([&] {
        rows = chassis.squeezed(
            chassis.shell({"--timeout", "0.3", "-c", "show ip access-lists B installed"}).out);
        return rows == whole("in step", "no answer");
    })) << rows;
    EXPECT_EQ(chassis.shell({"--timeout", "0.3", "-c", "show cards"}).status, 1);
    kill(chassis.agents[1].pid, SIGCONT);
    chassis.expectInStep("B", inStep);
    // The list that has gone can be asked for, and is nowhere.
    EXPECT_NE(chassis.installed("A").err.find("No such access list"), std::string::npos);
}

TEST(Cards, MembershipByHandTakesLagsAndRefusesASecondList) {
    cardsFixture chassis;
    chassis.load(
        ALL_OF_B +
        "interface vlan 20\n ip access-group B in\ninterface 1/1\n ip access-group B in\n");
    EXPECT_NE(chassis.show("debug join vlan 20 port-channel 1").find("joined"), std::string::npos);
    chassis.expectInStep("B", "vlan 20,in,2,in step;vlan 20,in,1,in step;1/1,in,1,in step;");
    // A port with a list of its own.
    EXPECT_NE(chassis.shell({"-c", "debug join port-channel 1 1/1"}).out.find("cannot be a member"),
              std::string::npos);
}

TEST(Cards, ACardThatIsReportedDownComesBackIntoStep) {
    cardsFixture chassis;
    chassis.load(LIST_A + entries(1, 20) + "interface 1/0\n ip access-group A in\n" + ALL_OF_B +
                 "interface control-plane\n ip access-group B in\n");
    chassis.expectInStep("A", "1/0,in,1,in step;");
    chassis.expectInStep("B", "control-plane,in,control-plane,in step;");
    struct {
        int agent;
        const char* command;
        const char* queue;  // that the manager has to the card
    } rows[] = {{1, "chassis card 1 down", "ACL_AGENT     62           1 "},
                {1, "chassis card 1 shutdown", "ACL_AGENT     62           1 "},
                {AGENT_CP, "chassis card control-plane down", "ACL_AGENT_CP"}};
    int seq = 1;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        EXPECT_NE(chassis.show("show queues").find(row.queue), std::string::npos);
        kill(chassis.agents[row.agent].pid, SIGSTOP);
        chassis.show(row.command);
        EXPECT_EQ(chassis.show("show queues").find(row.queue), std::string::npos);
        // Changed while the card is away.
        chassis.load(LIST_A + std::string(" seq ") + std::to_string(seq) + " deny " +
                     std::to_string(seq + 100) + " any any\n" + LIST_B + " seq " +
                     std::to_string(1000 + seq) + " permit host 10.9.9." + std::to_string(seq) +
                     "\n");
        seq++;
        kill(chassis.agents[row.agent].pid, SIGCONT);
        chassis.expectInStep("A", "1/0,in,1,in step;");
        chassis.expectInStep("B", "control-plane,in,control-plane,in step;");
    }
    commandResult result = chassis.shell({"-c", "chassis card 7 down"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("no such card"), std::string::npos) << result.err;
}
