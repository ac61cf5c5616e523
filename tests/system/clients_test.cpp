// Tasks that use lists, as processes: what each receives through the life of a list, and what a bad
// client costs the others.
#include <gtest/gtest.h>
#include <sys/wait.h>

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
    void waitForQueues() const {
        for (const char* task : {"SNMP", "SYSADM", "IPM"})
            EXPECT_TRUE(waitUntil([&] {
                return show("show queues").find(task) != std::string::npos;
            })) << task;
    }
    void client(const std::string& command) const { show("chassis client " + command); }
    // The rows of `chassis client show`, columns separated by one blank.
    std::string rows() const {
        std::string out;
        for (char c : show("chassis client show")) {
            if (c == ' ' && (out.empty() || out.back() == ' ' || out.back() == '\n')) continue;
            if (c == '\n' && !out.empty() && out.back() == ' ') out.pop_back();
            out += c;
        }
        return out;
    }
    // Waits for a row that begins so, or until there is none; copies come by queues, behind the
    // answer to the operator.
    void expectRow(const std::string& row, bool there = true) const {
        EXPECT_TRUE(waitUntil([&] {
            return (("\n" + rows()).find("\n" + row) != std::string::npos) == there;
        })) << row
            << "\n"
            << rows();
    }
    // One member of how the manager has told a task.
    uint64_t told(const char* task, const char* member) const {
        const std::string json = show("debug clients");
        size_t at = json.find("\"name\":\"" + std::string(task) + "\"");
        at = json.find("\"" + std::string(member) + "\":", at);
        if (at == std::string::npos) return UINT64_MAX;
        return std::strtoull(json.c_str() + json.find(':', at) + 1, nullptr, 10);
    }
};

std::string entries(int from, int to) {
    std::string text;
    for (int i = from; i <= to; i++)
        text += " seq " + std::to_string(i) + " permit host 10.0." + std::to_string(i / 250) + "." +
                std::to_string(i % 250) + "\n";
    return text;
}

constexpr char LIST[] = "ip access-list standard A\n";

}  // namespace

TEST(Clients, ReceiveWhatTheyRegisteredForThroughTheLifeOfAList) {
    clientsFixture chassis;
    chassis.waitForQueues();
    // Registered before there is a list: nothing comes.
    for (const char* task : {"BGP", "SNMP", "SYSADM", "IPM-2", "RTM", "IGMP"})
        chassis.client("register " + std::string(task) + " ip A");
    chassis.client("register BGP ip A");  // once
    chassis.client("register OSPF as-path P");
    EXPECT_EQ(chassis.rows().find("triggers"), std::string::npos);
    EXPECT_EQ(chassis.rows().find("copy"), std::string::npos);

    // Configured and filled: a trigger for the list and for each entry.
    chassis.load(LIST + entries(1, 78) + "ip as-path access-list P\n permit 100\n");
    for (const char* task : {"BGP", "SNMP", "SYSADM", "IPM", "RTM", "IGMP"})
        chassis.expectRow(std::string(task) + (task == std::string("IPM") ? " 2" : " 0") +
                          " triggers ip A 79");
    chassis.expectRow("OSPF 0 triggers as-path P 1");
    for (const char* task : {"SNMP 0", "SYSADM 0", "IPM 2"})
        chassis.expectRow(std::string(task) + " copy ip A 78 seq 1 to 78");
    // One that comes late gets the whole at once, in chunks of 39, 39 and 0.
    chassis.client("register IPM ip A");
    chassis.expectRow("IPM 0 copy ip A 78 seq 1 to 78, 3 messages");

    chassis.load(LIST + std::string(" no seq 1\n no seq 78\n seq 90 permit any\n"));
    for (const char* task : {"SNMP 0", "SYSADM 0", "IPM 0", "IPM 2"})
        chassis.expectRow(std::string(task) + " copy ip A 77 seq 2 to 90");
    chassis.expectRow("BGP 0 triggers ip A 82");

    // SYSADM alone is told that it loses its copy.
    for (const char* task : {"SYSADM", "SNMP", "BGP"})
        chassis.client("unregister " + std::string(task) + " ip A");
    chassis.expectRow("SYSADM 0 copy", false);
    chassis.load(LIST + std::string(" no seq 2\n"));
    chassis.expectRow("RTM 0 triggers ip A 83");
    chassis.expectRow("IPM 2 copy ip A 76 seq 3 to 90");
    chassis.expectRow("SNMP 0 copy ip A 77 seq 2 to 90");
    chassis.expectRow("BGP 0 triggers ip A 82");

    // Deleted under its clients, and configured again.
    chassis.load("no ip access-list standard A\n");
    chassis.expectRow("IPM 2 copy", false);
    chassis.load(LIST + entries(5, 5));
    chassis.expectRow("IPM 2 copy ip A 1 seq 5 to 5");
    commandResult refused = chassis.shell({"-c", "chassis client unregister BGP ip A"});
    EXPECT_NE(refused.err.find("The manager has refused"), std::string::npos) << refused.err;
    refused = chassis.shell({"-c", "chassis client register nobody ip A"});
    EXPECT_NE(refused.err.find("no such task"), std::string::npos) << refused.err;
    EXPECT_EQ(chassis.rows().find("no sense"), std::string::npos);
}

TEST(Clients, EveryKindOfListTellsThoseWhoAreRegisteredAndNobodyElse) {
    clientsFixture chassis;
    struct {
        const char *kind, *shown, *header, *first, *second, *gone;
    } const table[] = {
        {"ip", "ip", "ip access-list extended L", " permit ip any any", " deny tcp any any",
         "no ip access-list extended L"},
        {"prefix", "prefix", "ip prefix-list L", " permit 10.0.0.0/8", " deny 11.0.0.0/8",
         "no ip prefix-list L"},
        {"as-path", "as-path", "ip as-path access-list L", " permit 100", " deny 200",
         "no ip as-path access-list L"},
        {"community", "community", "ip community-list L", " permit 100:1", " deny 100:2",
         "no ip community-list L"},
        {"route-map", "route-map", "route-map L permit 10", " match metric 5", " set metric 6",
         "no route-map L"},
        // The trigger of IPv6 prefix lists is that of IPv4 ones: told apart by name alone.
        {"prefix6", "prefix", "ipv6 prefix-list L6", " permit 2001:db8::/32", " deny 2002::/16",
         "no ipv6 prefix-list L6"},
    };
    // How often the task has been told of the list; 0 when never.
    auto count = [&](const char* task, const char* kind, const std::string& list) -> uint64_t {
        const std::string row = std::string("\n") + task + " 0 triggers " + kind + " " + list + " ";
        const std::string all = chassis.rows();
        const size_t at = all.find(row);
        return at == all.npos ? 0 : std::strtoull(all.c_str() + at + row.size(), nullptr, 10);
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.kind);
        const std::string list = row.kind == std::string("prefix6") ? "L6" : "L";
        const std::string use = std::string(" ") + row.kind + " " + list;
        const std::string header = std::string(row.header) + "\n";
        auto change = [&](const char* line) { chassis.load(header + line + "\n"); };
        chassis.client("register BGP" + use);
        EXPECT_EQ(count("BGP", row.shown, list), 0u);
        change(row.first);
        uint64_t bgp = count("BGP", row.shown, list);
        EXPECT_GT(bgp, 0u);
        chassis.client("register OSPF" + use);
        EXPECT_EQ(count("OSPF", row.shown, list), 0u);
        change(row.second);
        const uint64_t ospf = count("OSPF", row.shown, list);
        EXPECT_EQ(count("BGP", row.shown, list), bgp + ospf);
        EXPECT_GT(ospf, 0u);
        bgp += ospf;
        chassis.client("unregister BGP" + use);
        chassis.load(std::string(row.gone) + "\n");
        EXPECT_EQ(count("BGP", row.shown, list), bgp);
        // Taken back from a list that only its client keeps, then registered for a fresh one.
        chassis.client("unregister OSPF" + use);
        chassis.client("register BGP" + use);
        change(row.first);
        EXPECT_GT(count("BGP", row.shown, list), bgp);
    }
    EXPECT_EQ(chassis.rows().find("no sense"), std::string::npos);
}

TEST(Clients, OneThatTreatsItsTriggersBadlyDelaysAndNothingElse) {
    clientsFixture chassis("1500");  // long enough for those who do answer
    for (const char* task : {"OSPF", "BGP"})
        chassis.client("register " + std::string(task) + " ip A");
    chassis.load(LIST);
    uint64_t triggers = 1, failed = 0;
    struct {
        const char* behaviour;
        int changes;  // "late" twice: the first answer comes when nobody waits any more
        uint64_t status;
    } const table[] = {{"silent", 1, 58803},
                       {"wrong-sequence", 1, 58803},
                       {"answer", 1, 0},
                       {"late", 2, 58803},
                       {"answer", 1, 0}};
    int number = 0;
    for (const auto& row : table) {
        SCOPED_TRACE(row.behaviour);
        chassis.client(std::string("behave BGP ") + row.behaviour);
        chassis.client("register BGP ip A");  // anew: it is waited for again
        for (int i = 0; i < row.changes; i++) {
            number++;
            chassis.load(LIST + entries(number, number));
            triggers++;
            failed += row.status != 0;
            EXPECT_EQ(chassis.told("BGP", "last-status"), row.status);
        }
        EXPECT_EQ(chassis.told("BGP", "triggers"), triggers);
        EXPECT_EQ(chassis.told("BGP", "failed"), failed);
        EXPECT_EQ(chassis.told("OSPF", "triggers"), triggers);
        EXPECT_EQ(chassis.told("OSPF", "failed"), 0u);
        chassis.expectRow("BGP 0 triggers ip A " + std::to_string(triggers));
    }
    EXPECT_GE(chassis.told("BGP", "longest-wait-ms"), 1499u);
    // A task that has gone costs nothing.
    chassis.neighbours.stop(9);
    chassis.load(LIST + entries(100, 100));
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
        chassis.shell({"--timeout", "0.3", "-f", "-"}, LIST + entries(1, 5) + LIST);
    EXPECT_EQ(loaded.status, 0) << loaded.err;
    EXPECT_NE(loaded.err.find("the manager is still working on line 1"), std::string::npos)
        << loaded.err;
    EXPECT_NE(chassis.runningConfig().find(" seq 5 "), std::string::npos);

    chassis.client("register BGP ip A");  // it is waited for again
    commandResult typed = chassis.shell(
        {"--timeout", "0.3", "-c", "configure terminal", "-c", "no ip access-list standard A"});
    EXPECT_EQ(typed.status, 0) << typed.err;
    EXPECT_NE(typed.err.find("still working on it"), std::string::npos) << typed.err;
    EXPECT_EQ(chassis.runningConfig().find("standard A"), std::string::npos);

    kill(chassis.manager.pid, SIGSTOP);
    ASSERT_EQ(waitpid(chassis.manager.pid, nullptr, WUNTRACED), chassis.manager.pid);
    const commandResult stopped =
        chassis.shell({"--timeout", "0.3", "-f", "-"}, LIST + entries(1, 3));
    kill(chassis.manager.pid, SIGCONT);
    EXPECT_EQ(stopped.status, 2);
    EXPECT_NE(stopped.err.find("1 of 2 lines not answered"), std::string::npos) << stopped.err;
}

TEST(Clients, TheLibrarySendsTheRegistrationsBodyAndWaitsAsLongAsItIsTold) {
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

    zekEndpoint* manager = zekEndpointOpen(chassis.dir, 0x7F010001, 7809, &error);
    ASSERT_NE(manager, nullptr) << error;
    struct {
        aclClientResult (*call)(aclClientKey*, uint32_t, std::string_view);
        uint32_t mtype;
    } const table[] = {{regAcl, 14442},      {deregAcl, 14443},      {regAclV6, 14444},
                       {deregAclV6, 14445},  {regPrefix, 14446},     {deregPrefix, 14447},
                       {regPrefixV6, 14448}, {deregPrefixV6, 14449}, {regAsp, 14450},
                       {deregAsp, 14451},    {regComm, 14452},       {deregComm, 14453},
                       {regRmap, 14454},     {deregRmap, 14455}};
    const std::string name(140, 'n');
    std::vector<uint8_t> got;
    zekSender sender{};
    for (const auto& row : table) {
        SCOPED_TRACE(row.mtype);
        EXPECT_EQ(row.call(&key, 7, name), ACL_CLIENT_NO_REPLY);
        ASSERT_EQ(zekEndpointRecv(manager, &got, 8192, 0, &sender), 228);
        std::vector<uint8_t> wanted(228);
        auto put = [&](size_t at, uint32_t value) {
            for (size_t i = 0; i < 4; i++)
                wanted[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
        };
        put(8, 228);
        put(12, row.mtype);
        put(32, key.sequence);
        put(40, 0x7F010009);
        put(44, 74 * 128 + 4 * 3 + 2);
        put(52, 0x7F010001);
        put(56, 7809);
        put(64, 74);
        put(68, 7);
        std::ranges::copy(name, wanted.begin() + 72);
        EXPECT_EQ(got, wanted);
    }
    // Replies: to an earlier request, a refusal, and what is no answer at all.
    for (uint32_t result : {0u, CLIENT_REG_FAILED}) {
        key.replyMs = 60000;
        key.wait = [&](int, int) {
            if (zekEndpointRecv(manager, &got, 8192, 0, &sender) != 228) return true;
            auto* hdr = reinterpret_cast<ipcHdr*>(got.data());
            ipcExchangeTriples(hdr);
            hdr->result = 1 - result;
            hdr->sequence = hdr->sequence - 1;
            EXPECT_EQ(zekEndpointSend(manager, got.data(), got.size(), 1000), zekSendResult::sent);
            hdr->sequence = hdr->sequence + 1;
            hdr->result = result;
            EXPECT_EQ(zekEndpointSend(manager, got.data(), got.size(), 1000), zekSendResult::sent);
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
    msg->pairCount = 3;
    EXPECT_FALSE(aclTriggerRead(trigger, &text));
    msg->pairCount = 0xFFFFFFFF;
    EXPECT_FALSE(aclTriggerRead(trigger, &text));
    EXPECT_FALSE(aclTriggerRead(std::span(trigger).first(291), &text));
    aclClientClose(&key);
    zekEndpointClose(manager);
}
