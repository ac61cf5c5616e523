// Lists on cards, with real managers and agents: what is bound is installed, through every change
// and in spite of everything that ends in between.
#include <regex>

#include "tests/system/chassis.h"

namespace {

// A chassis whose agents all run. Port 1/2 and 2/2 are a LAG; 1/3 and 2/3 are in VLAN 10.
struct cardsFixture : chassisFixture {
    cardsFixture() {
        startAll();
        show("chassis port-channel 1 join 1/2 2/2");
        show("chassis vlan 10 join 1/3 2/3");
    }
    // Waits until this is what every card is said to hold of the list, with this exit status.
    void expectInstalled(const std::string& list, const std::string& rows, int status = 0,
                         const char* timeout = "10", const std::string& family = "ip") const {
        commandResult got;
        EXPECT_TRUE(waitUntil([&] {
            got = shell({"--timeout", timeout, "-c",
                         "show " + family + " access-lists " + list + " installed"});
            return got.status == status && squeezed(got.out) == rows;
        })) << list
            << ": " << rows << "\n"
            << squeezed(got.out) << got.err << show("show cards");
    }
    // The rows without their head, blanks and padding: "vlan 10,in,1,in step;".
    static std::string squeezed(const std::string& table) {
        const std::string rows = table.substr(std::min(table.find('\n'), table.size() - 1) + 1);
        return std::regex_replace(std::regex_replace(rows, std::regex(" *\n"), ";"),
                                  std::regex("  +"), ",");
    }
};

std::string entries(int from, int to) {
    std::string text = "ip access-list extended A\n";
    for (int i = from; i < to; i++)
        text += " seq " + std::to_string(10 * i) + " permit tcp host 10.1." +
                std::to_string(i / 250) + "." + std::to_string(i % 250) + " any eq " +
                std::to_string(i % 65536) + "\n";
    return text;
}

const std::string LIST_A = "ip access-list extended A\n", LIST_B = "ip access-list standard B\n",
                  ALL_OF_B = LIST_B + " seq 5 permit 10.0.0.0/8 log\n seq 100 deny any\n";

}  // namespace

TEST(Cards, AreInStepThroughEveryChange) {
    cardsFixture chassis;
    chassis.load(entries(1, 40) + ALL_OF_B +
                 "interface 1/0\n ip access-group A in\n"
                 "interface 2/1\n ip access-group A out implicit-permit\n"
                 "interface port-channel 1\n ip access-group A in\n"
                 "interface vlan 10\n ip access-group A in\n"
                 "interface control-plane\n ip access-group B in\n");
    const std::string lag = "port-channel 1 (2/2),in,2,in step;port-channel 1 (1/2),in,1,in step;",
                      vlan = "vlan 10,in,1,in step;vlan 10,in,2,in step;",
                      port = "1/0,in,1,in step;", egress = "2/1,out,2,in step;",
                      cp = "control-plane,in,control-plane,in step;";
    const std::string all = lag + vlan + port + egress,
                      both = "1/0,in,1,in step;1/0,out,1,in step;";
    const struct {
        const char* what;
        std::string lines;
        std::string a, b;  // rows; "": no such list
    } steps[] = {
        {"bound", "", all, cp},
        {"an entry in front, one behind, one between",
         LIST_A +
             " seq 1 deny ip any any\n seq 9999 permit ip any any\n seq 15 permit udp any any\n",
         all, cp},
        {"deleted by number and by content, grown over several messages",
         LIST_A + " no seq 1\n no permit udp any any\n" + entries(100, 200), all, cp},
        {"replaced on a port, the LAG and the VLAN",
         "interface 1/0\n ip access-group B in\ninterface port-channel 1\n ip access-group B in\n"
         "interface vlan 10\n ip access-group B in\n",
         egress, lag + vlan + port + cp},
        {"changed where it was replaced", LIST_B + " seq 7 deny host 10.1.1.1\n", egress,
         lag + vlan + port + cp},
        {"unbound",
         "interface vlan 10\n no ip access-group B in\n"
         "interface control-plane\n no ip access-group B in\n"
         "interface 2/1\n no ip access-group A out\n",
         "", lag + port},
        {"deleted while bound", "no ip access-list standard B\n", "",
         std::regex_replace(lag + port, std::regex("in step"), "not defined")},
        {"configured again", "ip access-list extended B\n permit tcp any any established\n", "",
         lag + port},
        {"bound again both ways", "interface 1/0\n ip access-group A in\n ip access-group A out\n",
         both, lag},
        {"deleted and unbound",
         "no ip access-list extended B\ninterface port-channel 1\n no ip access-group B in\n", both,
         ""},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        chassis.load(step.lines);
        chassis.expectInstalled("A", step.a);
        chassis.expectInstalled("B", step.b, step.b.empty() ? 1 : 0);
    }
    // Nothing was sent that an agent could not use, and nothing is left over.
    rawClient client(chassis);
    for (int slot : {1, 2, AGENT_CP}) {
        const std::string summary = client.agentSummary(slot);
        EXPECT_TRUE(has(summary, "\"lastError\":\"\"")) << slot << summary;
    }
    EXPECT_EQ(chassis.show("show card 2 access-lists | include ipv4 | count"), "0\n");
    EXPECT_EQ(chassis.show("show card 1 access-lists | include ipv4 | count"), "2\n");
    EXPECT_EQ(chassis.show("show card 1 access-lists A | include 10.1.0.7 | count"), "2\n");
    // A comparison that can only agree would be worth nothing: who is not primary sends nothing.
    chassis.movePrimary(1);
    chassis.load(
        LIST_A + " no seq 20\n seq 11 deny ip any any\n" +
        "interface 1/1\n ip access-group A out\ninterface 1/0\n no ip access-group A out\n");
    chassis.expectInstalled("A", "1/0,in,1,different;1/1,out,1,missing;1/0,out,1,left over;", 1);
    chassis.movePrimary(0);
    chassis.expectInstalled("A", "1/0,in,1,in step;1/1,out,1,in step;");
}

// A card that has stopped and a queue that overflows: what was changed meanwhile is installed in
// the end, without another change.
TEST(Cards, HealWithoutAnotherChange) {
    cardsFixture chassis;
    const std::string bind = "interface port-channel 1\n ip access-group ",
                      slot2 = "port-channel 1 (2/2),in,2,in step;port-channel 1 (1/2),in,1,";
    // More than a queue holds: 16 MB and 65,536 messages.
    chassis.load(entries(1, 40001) + bind + "A in\n");
    chassis.expectInstalled("A", slot2 + "in step;");
    chassis.agents[1].stand();
    chassis.load("no ip access-list extended A\n" + ALL_OF_B + bind + "B in\n");
    ASSERT_TRUE(waitUntil([&] {
        return chassis.show("show logging").find("Resetting SWP queue") != std::string::npos;
    }));
    chassis.expectInstalled("B", slot2 + "no answer;", 1, "0.3");
    EXPECT_EQ(chassis.shell({"--timeout", "0.3", "-c", "show cards"}).status, 1);
    chassis.agents[1].go();
    chassis.expectInstalled("B", slot2 + "in step;");
    // The list that has gone can be asked for, and is nowhere.
    chassis.expectInstalled("A", "", 1);
}

// Lists of every family side by side at the same places: changed, renumbered in several messages,
// and replayed, each is what the manager means, and no card has asked for a replay.
TEST(Cards, HoldListsOfEveryFamilyAndRenumberThem) {
    cardsFixture chassis;
    const std::string held = "vlan 10,in,1,in step;vlan 10,in,2,in step;";
    const struct {
        std::string family, header, rule, all, vlan, cp;
    } families[] = {{"ip", "ip access-list extended A\n", " permit udp any any eq ",
                     " deny ip any any\n", held, "control-plane,in,control-plane,in step;"},
                    {"ipv6", "ipv6 access-list A\n", " permit udp any any eq ",
                     " deny ipv6 any any\n", held, ""},
                    {"mac", "mac access-list extended A\n", " permit any any ev2 eq ",
                     " deny any any\n", "vlan 10,in,-,not sent for VLANs;", ""}};
    constexpr int ENTRIES = 1000;  // one more message than pairs fit
    auto expect = [&] {
        for (const auto& f : families)
            chassis.expectInstalled(
                "A",
                "port-channel 1 (2/2),in,2,in step;port-channel 1 (1/2),in,1,in step;" + f.vlan +
                    "1/0,in,1,in step;2/1,out,2,in step;" + f.cp,
                0, "10", f.family);
    };
    std::string lists = "mac egress-filter\n", changes, numbers;
    for (const auto& f : families) {
        lists += f.header;
        for (int i = 1; i <= ENTRIES; i++)
            lists += " seq " + std::to_string(3 * i) + f.rule + std::to_string(1000 + i) + "\n";
        const std::string bind = " " + f.family + " access-group A ";
        for (const char* place : {"1/0", "port-channel 1", "vlan 10"})
            lists += std::string("interface ") + place + "\n" + bind + "in\n";
        lists += "interface 2/1\n" + bind + "out\n";
        if (!f.cp.empty()) lists += "interface control-plane\n" + bind + "in\n";
        changes += f.header + " no seq 3\n seq 4" + f.all;
        numbers += "resequence " + f.family + " access-list A 100 10\n";
    }
    for (const std::string& lines : {lists, changes, numbers}) {
        chassis.load(lines);
        expect();
    }
    rawClient client(chassis);
    for (int slot : {1, 2}) {
        const std::string summary = client.agentSummary(slot);
        EXPECT_TRUE(has(summary, "\"lastError\":\"\"") && has(summary, "\"replays\":1,"))
            << slot << summary;
    }
    // The last one's number is in each of the card's places.
    const std::string json = chassis.shell({"--json", "-c", "show card 1 access-lists A"}).out;
    const std::regex last(R"("seq": ?10090\b)");
    EXPECT_EQ(std::distance(std::sregex_iterator(json.begin(), json.end(), last), {}), 8);
    chassis.agents[1].stop(SIGKILL);
    ASSERT_TRUE(chassis.startAgent(1));
    expect();
}

TEST(Cards, AMemberWithAListOfItsOwnKeepsItAndGetsTheLagsBehindIt) {
    cardsFixture chassis;
    chassis.load(ALL_OF_B +
                 "interface vlan 20\n ip access-group B in\ninterface 1/1\n ip access-group B in\n"
                 "interface port-channel 1\n ip access-group B in\n");
    chassis.show("chassis vlan 20 join port-channel 1");
    chassis.show("chassis port-channel 1 join 1/1");
    const std::string others =
        "port-channel 1 (2/2),in,2,in step;port-channel 1 (1/2),in,1,in step;"
        "vlan 20,in,1,in step;vlan 20,in,2,in step;";
    chassis.expectInstalled("B", others + "1/1,in,1,in step;");
    chassis.load("interface 1/1\n no ip access-group B in\n");
    chassis.expectInstalled("B", "port-channel 1 (1/1),in,1,in step;" + others);
    // What is known outlives both who tell and who are told of it.
    chassis.show("chassis protocol enable OSPF vlan 20");
    chassis.show("chassis interface vlan 20 address add 10.20.0.1/24");
    chassis.neighbours.stop(SIGKILL);
    ASSERT_TRUE(chassis.killAndRestart());
    ASSERT_TRUE(chassis.startNeighbours());
    chassis.expectInstalled("B", "port-channel 1 (1/1),in,1,in step;" + others);
    EXPECT_TRUE(waitUntil([&] { return has(chassis.show("show vlan 20"), "ospf"); }));
    EXPECT_TRUE(has(chassis.show("show vlan 20"), "10.20.0.1"));
    chassis.show("chassis port-channel 1 delete");
    chassis.expectInstalled("B", "vlan 20,in,-,no ports;");
}
