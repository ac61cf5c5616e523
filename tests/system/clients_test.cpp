// Tasks that use lists, as processes: what each receives through the life of a list, and what a bad
// client costs the others.
#include <regex>

#include "client/aclClient.h"
#include "include/clientMsg.h"
#include "include/service.h"
#include "tests/system/chassis.h"

namespace {

struct clientsFixture : chassisFixture {
    explicit clientsFixture(const char* waitMs = "10000") {
        EXPECT_TRUE(startManager({"--client-wait", waitMs}));
        EXPECT_TRUE(startNeighbours());
    }
    void client(const std::string& command) const { show("chassis client " + command); }
    // The rows of `chassis client show`, columns separated by one blank.
    std::string rows() const {
        const std::string text = "\n" + show("chassis client show");
        return std::regex_replace(std::regex_replace(text, std::regex(" +"), " "),
                                  std::regex(" \n"), "\n");
    }
    // Waits for rows that begin so, or until there are none; copies come by queues, behind the
    // answer to the operator.
    void expectRows(const std::vector<std::string>& fronts, bool there = true) const {
        for (const std::string& front : fronts)
            EXPECT_TRUE(waitUntil([&] { return has(rows(), "\n" + front) == there; }))
                << front << rows();
    }
    // One member of how the manager has told a task.
    uint64_t told(const std::string& task, const char* member) const {
        const std::string json = show("debug clients");
        return number(json.substr(json.find("\"name\":\"" + task + "\"")), member);
    }
};

std::string entries(int from, int to) {
    std::string text = "ip access-list standard A\n";
    for (int i = from; i <= to; i++)
        text += " seq " + std::to_string(i) + " permit host 10.0.0." + std::to_string(i) + "\n";
    return text;
}

}  // namespace

TEST(Clients, ReceiveWhatTheyRegisteredForThroughTheLifeOfAList) {
    clientsFixture chassis;
    for (const char* task : {"SNMP", "SYSADM", "IPM"})
        EXPECT_TRUE(waitUntil([&] { return has(chassis.show("show queues"), task); }));
    // Registered before there is a list: nothing comes.
    for (const char* task : {"BGP", "SNMP", "SYSADM", "IPM-2", "RTM", "IGMP", "BGP"})
        chassis.client("register " + std::string(task) + " ip A");
    for (const char* kind : {"prefix", "prefix6", "as-path", "community", "route-map"})
        chassis.client("register OSPF " + std::string(kind) + " " + kind);
    for (const char* wanted :
         {"SNMP ipv6", "SYSADM ipv6", "IPM ipv6", "OSPF ipv6", "SNMP mac", "OSPF mac"})
        chassis.client("register " + std::string(wanted) + " A");
    EXPECT_FALSE(has(chassis.rows(), "triggers"));
    EXPECT_FALSE(has(chassis.rows(), "copy"));

    // Configured and filled: a trigger for the list and for each entry.
    chassis.load(entries(1, 78) +
                 "ip as-path access-list as-path\n permit 100\n"
                 "ip community-list community\n permit 1:1\nroute-map route-map\n set tag 1\n"
                 "ip prefix-list prefix\n permit any\nipv6 prefix-list prefix6\n permit any\n"
                 "ipv6 access-list A\n permit ipv6 any any\n deny tcp any any\n no seq 5\n"
                 "mac access-list standard A\n permit any\n");
    chassis.expectRows({"BGP 0 triggers ip A 79",
                        "SNMP 0 triggers ip A 79",
                        "SYSADM 0 triggers ip A 79",
                        "IPM 2 triggers ip A 79",
                        "RTM 0 triggers ip A 79",
                        "IGMP 0 triggers ip A 79",
                        "OSPF 0 triggers as-path as-path 1",
                        "OSPF 0 triggers community community 1",
                        "OSPF 0 triggers route-map route-map 2",
                        "OSPF 0 triggers prefix prefix 1",
                        "OSPF 0 triggers prefix prefix6 1",
                        "OSPF 0 triggers ipv6 A 4",
                        "IPM 0 triggers ipv6 A 4",
                        "OSPF 0 triggers mac A 2",
                        "SNMP 0 triggers mac A 2",
                        "SNMP 0 copy ipv6 A 1 seq 10 to 10, 4 messages",
                        "SYSADM 0 copy ipv6 A 1 seq 10 to 10, 4 messages",
                        "SNMP 0 copy ip A 78 seq 1 to 78",
                        "SYSADM 0 copy ip A 78 seq 1 to 78",
                        "IPM 2 copy ip A 78 seq 1 to 78"});
    for (const char* none : {"IPM 0 copy", "SNMP 0 copy mac"})  // IPM knows no IPv6
        EXPECT_FALSE(has(chassis.rows(), none));
    // One that comes late gets the whole at once, in chunks of 39, 39 and 0.
    chassis.client("register IPM ip A");
    chassis.expectRows({"IPM 0 copy ip A 78 seq 1 to 78, 3 messages"});

    chassis.load(entries(90, 90) + " no seq 1\n no seq 78\n");
    chassis.expectRows({"SNMP 0 copy ip A 77 seq 2 to 90", "SYSADM 0 copy ip A 77 seq 2 to 90",
                        "IPM 0 copy ip A 77 seq 2 to 90", "IPM 2 copy ip A 77 seq 2 to 90",
                        "BGP 0 triggers ip A 82"});

    // SYSADM alone is told that it loses its copy.
    for (const char* task : {"SYSADM", "SNMP", "BGP"})
        chassis.client("unregister " + std::string(task) + " ip A");
    chassis.client("unregister SYSADM ipv6 A");
    chassis.expectRows({"SYSADM 0 copy"}, false);
    chassis.load(entries(1, 0) + " no seq 2\n");
    chassis.expectRows({"RTM 0 triggers ip A 83", "IPM 2 copy ip A 76 seq 3 to 90",
                        "SNMP 0 copy ip A 77 seq 2 to 90", "BGP 0 triggers ip A 82"});

    // Deleted under its clients, and configured again.
    chassis.load("no ip access-list standard A\n");
    chassis.expectRows({"IPM 2 copy"}, false);
    chassis.load(entries(5, 5));
    chassis.expectRows({"IPM 2 copy ip A 1 seq 5 to 5"});
    for (auto [command, said] : {std::pair("unregister BGP ip A", "The manager has refused"),
                                 {"register nobody ip A", "no such task"}})
        EXPECT_NE(chassis.shell({"-c", std::string("chassis client ") + command}).err.find(said),
                  std::string::npos);
    EXPECT_FALSE(has(chassis.rows(), "no sense"));
}

TEST(Clients, OneThatTreatsItsTriggersBadlyDelaysAndNothingElse) {
    clientsFixture chassis("1500");  // long enough for those who do answer
    for (const char* task : {"OSPF", "BGP"})
        chassis.client("register " + std::string(task) + " ip A");
    int number = 0;
    for (auto [behaviour, status] : {std::pair("silent", 58803u),
                                     {"wrong-sequence", 58803u},
                                     {"answer", 0u},
                                     {"late", 58803u}}) {
        SCOPED_TRACE(behaviour);
        chassis.client(std::string("behave BGP ") + behaviour);
        chassis.client("register BGP ip A");  // anew: it is waited for again
        chassis.load(entries(number + 1, number + 1));
        number++;
        EXPECT_EQ(chassis.told("BGP", "last-status"), status);
        EXPECT_EQ(chassis.told("OSPF", "last-status"), 0u);
        EXPECT_TRUE(has(chassis.rows(), "\nBGP 0 triggers ip A " + std::to_string(number + 1)));
    }
    EXPECT_EQ(chassis.told("BGP", "failed"), 4u);
    EXPECT_GE(chassis.told("BGP", "longest-wait-ms"), 1499u);
    // A task that has gone costs nothing.
    chassis.neighbours.stop(9);
    chassis.load(entries(100, 100));
    EXPECT_EQ(chassis.told("BGP", "last-status"), 58802u);
}

// A change that takes longer than the shell's time, because the manager waits for a client, is
// waited for, and so are the lines behind it; a manager that stands still is given up, and nothing
// is called refused.
TEST(Clients, AShellWaitsForAManagerThatIsBusy) {
    clientsFixture chassis("2000");
    chassis.client("register BGP ip A");
    chassis.client("behave BGP silent");
    commandResult loaded =
        chassis.shell({"--timeout", "0.3", "-f", "-"}, entries(1, 5) + entries(1, 0));
    EXPECT_EQ(loaded.status, 0) << loaded.err;
    EXPECT_TRUE(has(loaded.err, "the manager is still working on line 1")) << loaded.err;
    EXPECT_TRUE(has(chassis.runningConfig(), " seq 5 "));

    chassis.client("register BGP ip A");  // it is waited for again
    commandResult typed = chassis.shell(
        {"--timeout", "0.3", "-c", "configure terminal", "-c", "no ip access-list standard A"});
    EXPECT_EQ(typed.status, 0) << typed.err;
    EXPECT_TRUE(has(typed.err, "still working on it")) << typed.err;
    EXPECT_FALSE(has(chassis.runningConfig(), "standard A"));

    chassis.manager.stand();
    const commandResult stopped = chassis.shell({"--timeout", "0.3", "-f", "-"}, entries(1, 3));
    chassis.manager.go();
    EXPECT_EQ(stopped.status, 2);
    EXPECT_TRUE(has(stopped.err, "1 of 2 lines not answered")) << stopped.err;
}

TEST(Clients, TheLibraryTakesTheAnswerToItsRequestAndNoOther) {
    chassisFixture chassis;
    aclClientKey key;
    key.runDir = chassis.dir;
    key.application = APP_RIP;
    key.instance = 3;
    key.card = 0x7F010009;
    key.managerCard = 0x7F010001;
    key.replyMs = 1;
    std::string error;
    ASSERT_TRUE(aclClientOpen(&key, &error)) << error;
    EXPECT_EQ(regAcl(&key, 7, "A"), ACL_CLIENT_NOT_SENT);
    EXPECT_EQ(regAcl(&key, 7, ""), ACL_CLIENT_BAD_NAME);
    EXPECT_EQ(regAcl(&key, 7, std::string(141, 'n')), ACL_CLIENT_BAD_NAME);

    const rawEndpoint manager(chassis.dir, 0x7F010001, 7809);
    const std::string name(140, 'n');
    uint32_t mtype = 14442;
    for (auto* call : {regAcl, deregAcl, regAclV6, deregAclV6, regPrefix, deregPrefix, regPrefixV6,
                       deregPrefixV6, regAsp, deregAsp, regComm, deregComm, regRmap, deregRmap,
                       regMac, deregMac}) {
        EXPECT_EQ(call(&key, 7, name), ACL_CLIENT_NO_REPLY);
        std::vector<uint8_t> sent = manager.receive();
        EXPECT_EQ(uint32_t{headerOf(sent)->mtype}, mtype++);
    }
    // Replies: to an earlier request first, then the one that counts.
    key.replyMs = PATIENCE_MS;
    for (uint32_t result : {0u, CLIENT_REG_FAILED}) {
        key.wait = [&](int, int) {
            std::vector<uint8_t> got = manager.receive(0);
            if (got.empty()) return true;
            auto* hdr = reinterpret_cast<ipcHdr*>(got.data());
            ipcExchangeTriples(hdr);
            for (uint32_t old : {1u, 0u}) {
                hdr->result = old != 0 ? 1 - result : result;
                hdr->sequence = key.sequence - old;
                EXPECT_TRUE(manager.send(got));
            }
            return true;
        };
        EXPECT_EQ(regAcl(&key, 7, name), result == 0 ? ACL_CLIENT_OK : ACL_CLIENT_REFUSED);
    }
    // A trigger's pairs must lie in it.
    std::vector<uint8_t> trigger(292 + 16);
    auto* msg = reinterpret_cast<triggerMsg*>(trigger.data());
    msg->ipc.mtype = 14468;
    msg->pairCount = 2;
    msg->pairs[1].second = 9;
    std::ranges::copy(name, msg->body);
    aclTriggerText text;
    ASSERT_TRUE(aclTriggerRead(trigger, &text));
    EXPECT_EQ(text.name, name);
    EXPECT_EQ(text.pairs, (std::vector<std::pair<uint32_t, uint32_t>>{{0, 0}, {0, 9}}));
    EXPECT_FALSE(aclTriggerRead(std::span(trigger).first(291), &text));
    for (uint32_t lie : {3u, 0xFFFFFFFFu}) {
        msg->pairCount = lie;
        EXPECT_FALSE(aclTriggerRead(trigger, &text));
    }
    aclClientClose(&key);
}
