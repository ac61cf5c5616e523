// Traps, members and system lists on the cards: whatever is stopped, killed or flushed, in the end
// the cards hold what the manager means, and nothing else.
#include "include/agentMsg.h"
#include "include/service.h"
#include "tests/system/chassis.h"

namespace {

struct trapsFixture : chassisFixture {
    trapsFixture() {
        startAll();
        for (const char* line :
             {"vlan 10 join 1/0", "vlan 10 join 2/0", "interface 1/1 address add 10.1.1.1/24",
              "interface vlan 10 address add 10.2.2.2/24", "protocol enable ospf 1/1",
              "protocol enable isis vlan 10", "protocol enable bgp 2/1"})
            chassis(line);
    }
    void chassis(const std::string& line) const {
        const commandResult result = shell({"-c", "chassis " + line});
        EXPECT_EQ(result.status, 0) << line << result.out << result.err;
    }
    // What the cards hold, is what the manager means.
    void expectInStep() const {
        const std::vector<std::string> questions{
            "-c", "show card 1 traps installed", "-c", "show card 2 traps installed",
            "-c", "show system-lists",           "-c", "show cards"};
        EXPECT_TRUE(waitUntil([&] { return shell(questions).status == 0; }))
            << shell(questions).out << show("show queues");
    }
    uint64_t held(const char* table) const {
        return number(shell({"--json", "-c", "show card 1 summary"}).out, table);
    }
    // What waits for the card is given up, as the card's own word has it.
    void flush(uint32_t slot) {
        rawClient client(*this);
        std::vector<uint8_t> message(sizeof(ipcHdr));
        client.fillHeader(message, MT_AGENT_REGISTER, 1);
        auto* hdr = wireView<ipcHdr>(std::span(message));
        hdr->result = AGENT_QUEUE_FLUSH;
        hdr->target.slot = slot;
        ASSERT_TRUE(client.send(message));
    }
};

TEST(Traps, ACardThatWasStoppedHoldsWhatIsMeant) {
    trapsFixture t;
    t.expectInStep();
    const uint64_t before = t.held("traps");
    EXPECT_GT(before, 4u);
    // Its queues are full of changes and are flushed while it stands still.
    t.agents[1].stand();
    t.chassis("protocol disable ospf 1/1");
    for (int i = 0; i < 20; i++)
        for (const char* what : {"enable", "disable"})
            t.chassis(std::string("protocol ") + what + " isis 1/2");
    for (const char* line :
         {"vlan 20 join 1/0", "protocol enable rip 1/2", "protocol enable igmp vlan 20",
          "interface 1/1 address del 10.1.1.1/24"})
        t.chassis(line);
    t.flush(1);
    t.chassis("protocol enable vrrp 1/3 vmac 00:00:5e:00:01:07");
    t.agents[1].go();
    t.expectInStep();
    EXPECT_EQ(t.held("traps"), before + 1);
}

TEST(Traps, ACardAndAManagerThatDieHoldWhatIsMeant) {
    trapsFixture t;
    t.expectInStep();
    for (int round = 0; round < 3; round++) {
        t.agents[1].stop(SIGKILL);
        t.chassis(round % 2 == 0 ? "protocol disable isis vlan 10"
                                 : "protocol enable isis vlan 10");
        t.chassis(round % 2 == 0 ? "vlan 10 leave 1/0" : "vlan 10 join 1/0");
        ASSERT_TRUE(t.startAgent(1));
        t.expectInStep();
    }
    const uint64_t traps = t.held("traps");
    ASSERT_TRUE(t.killAndRestart());
    t.expectInStep();
    // The neighbours' tasks say again what they have enabled.
    EXPECT_TRUE(waitUntil([&] { return t.held("traps") == traps; }));
    t.expectInStep();
}

}  // namespace
