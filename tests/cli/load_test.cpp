// The pipelined loader against a manager that answers late, out of order, wrongly or not at all.
#include <sstream>

#include "tests/cli/fakeManager.h"

namespace {

std::string entries(uint32_t n) {
    std::string text = "ip access-list standard A\n";
    for (uint32_t i = 1; i <= n; i++) text += " seq " + std::to_string(i) + " permit any\n";
    return text;
}
uint32_t seqOf(const std::vector<uint8_t>& message) {
    return reinterpret_cast<const cliIpEntryReq*>(message.data())->block.seq;
}
bool isEntryAdd(const std::vector<uint8_t>& message) {
    // (Changes of the mask mode are a header alone.)
    return message.size() >= sizeof(cliHdr) && cliOf(message).code == CLI_IP_ENTRY_ADD;
}

// What is loaded, the requests that the manager gets, and what is reported, each once.
struct loadRow {
    std::string text, requests, reports;  // with "; " between requests, with "|" between reports
    bool checkOnly = false;
    const char* chassis = "chassis.json";
};

// A request's code and list; an entry's mask, a binding's interface, a clause's number and code.
std::string brief(const std::vector<uint8_t>& message) {
    const cliHdr& cli = cliOf(message);
    EXPECT_EQ(cli.ipc.length, message.size());
    if (message.size() == sizeof(ipcHdr)) return std::to_string(cli.ipc.mtype);
    std::ostringstream out;
    out << cli.code << ' ' << listNameView(cli.name) << std::hex;
    if (isEntryAdd(message)) out << ' ' << wordAt(message, 256);
    if (cli.code == CLI_IP_BIND) out << ' ' << wordAt(message, 220);
    if (cli.code == CLI_RMAP_ENTRY_ADD || cli.code == CLI_RMAP_V6_ENTRY_ADD) {
        const auto& clause = reinterpret_cast<const cliRmapClauseReq*>(message.data())->clause;
        out << std::dec << ' ' << clause.seq << ' ' << clause.code;
    }
    return out.str();
}

std::vector<loadRow> loadRows() {
    const std::string masked = "ip access-list standard A\n permit 10.0.0.0 255.0.255.0\n",
                      filler(200000, '!');  // more than a pipe holds
    std::string vlans = "1-4094";
    while (vlans.size() < 74) vlans += ",1";
    std::vector<loadRow> rows{
        {"! a file\n\nip access-list standard A\n permit any\n no seq 5\n"
         "access-list inverse-mask\nip access-list extended B\n permit ip any any\n"
         "ip trace-list T\r\n deny ip any any\n no deny ip any any\nip trace-group T\n"
         "no ip trace-group T\nno ip trace-list T\nno ip access-list extended B\n"
         "no access-list inverse-mask\ndo clear ip access-lists counters\nend",
         "1000 A; 1002 A 0; 1003 A; 14517; 1000 B; 1002 B 0; 1005 T; 1007 T; 1006 T; 1041 T; "
         "1040 T; 1004 T; 1001 B; 14518; 1031 ",
         ""},
        {masked + "access-list inverse-mask\n" + masked + "no access-list inverse-mask\n" + masked,
         "1000 A; 1002 A ff00ff; 14517; 1000 A; 1002 A ff00ff00; 14518; 1000 A; 1002 A ff00ff", ""},
        {"ipv6 access-list A\n remark 5 it\n permit ipv6 any any\n no remark 5\n description it\n"
         "mac access-list standard A\n permit any\nresequence mac access-list A 5 5\n permit any\n",
         "1162 A; 1169 A; 1166 A; 1170 A; 1153 A; 1103 A; 1099 A; 1184 A",
         "F:9:2: Unexpected word \"permit\"|F: 1 of 9 lines refused"},
        // Entries of a list that was refused are not sent; others are.
        {"ip access-list extended IS-STANDARD\n permit ip any any\n deny tcp any any\n"
         "ip access-list standard S\n permit any\n",
         "1000 IS-STANDARD; 1000 S; 1002 S 0",
         "F:1:1: The list exists as a standard access list\n|F:2:2: Not sent: the header in line 1 "
         "was refused\n|F:3:2: Not sent: the header in line 1 was refused\n"},
        {"ip trace-group UNKNOWN\n", "1041 UNKNOWN", "0x3d0000fe"},  // a status without a sentence
        {"ip access-list standard A\n permt any\n deny any\n", "1000 A; 1002 A 0",
         "F: 1 of 3 lines refused"},
        {"access-list inverse-mask\n" + entries(5) +
             "ip trace-list T\n deny ip any any\n permit ip any any monitor\ndo show system\n",
         "", "F:10:20:|F: 1 of 11 lines refused", true},

        // Lines go to the interface of their header, which itself sends nothing.
        {"interface 1/0\n ip access-group A in\ninter port-channel   1\n ip access-group A in\n"
         "interface po 01\n ip access-group A in\ninterface VLAN 10\n ip access-group A in\n"
         "interface control-plane\n ip access-group A in\ninterface control\n"
         " ip access-group A in\ninterface 0x10040001\n ip access-group A in\n",
         "1039 A 4040001; 1039 A 30001; 1039 A 30001; 1039 A 3800a; 1039 A 42068000; "
         "1039 A 42068000; 1039 A 10040001",
         ""},
        // Nothing may be bound to the interface before the one that there is not.
        {"interface 1/0\n ip access-group A in\ninterface 9/0\n ip access-group B in\n"
         "interface vlan 10\n ip access-group C in\n",
         "1039 A 4040001; 1039 C 3800a",
         "F:3:1: The chassis has no interface 9/0: its description does not name it\n|F:4:2: Not "
         "sent: the header in line 3 was "
         "refused\n"},
        // A refusal by the manager changes nothing for what comes behind it.
        {"interface control-plane\n ip access-group EGRESS out\n ip access-group A in\n"
         "ip access-list standard A\n",
         "1039 EGRESS 42068000; 1039 A 42068000; 1000 A",
         std::string("F:2:2: ") + aclStatusFind(ACL_E_CP_EGRESS)->text +
             "\n|F: 1 of 4 lines refused"},
        // Checking reads the chassis when there is one.
        {"interface 9/0\n ip access-group B in\n", "", "has no interface 9/0|refused", true},
        {"interface 9/0\n ip access-group B in\n ip access-group B up\n", "",
         "F:3:|F: 1 of 3 lines", true, "nowhere.json"},

        // The clauses of a map whose number the manager chose carry that number.
        {"route-map A\n set tag 1\nroute-map A permit 50\n set tag 2\n continue\n"
         "route-map SEVERAL\n set tag 3\n",
         "1021 A; 1025 A 40 120; 1021 A; 1025 A 50 120; 1025 A 50 123; 1021 SEVERAL",
         "F:6:1: The route map has several instances: give the sequence number\n"
         "route-map SEVERAL\n^\n|F:7:2: Not sent: the header in line 6 was refused\n set tag 3\n"
         " ^\n|F: 2 of 7 lines refused\n"},
        // What a bare name is, the whole input says: the lists come behind the maps.
        {"route-map R permit 10\n match ip address P\n match ip address BOTH\n" + filler +
             "\nip prefix-list P\nip prefix-list BOTH\nip access-list standard BOTH\n",
         "1021 R; 1025 R 10 8; 1025 R 10 5; 1042 P; 1042 BOTH; 1000 BOTH", ""},
        {"route-map R permit 10\n match ipv6 address P\n match ipv6 address BOTH\n"
         "ipv6 prefix-list P\nipv6 prefix-list BOTH\nipv6 access-list BOTH\n",
         "1021 R; 1161 R 10 13; 1161 R 10 18; 1147 P; 1147 BOTH; 1162 BOTH", ""},
    };
    // After a header that could not be read, its entries must not go into the list before it.
    for (const char* header : {"ip access-list extnded B", "ipp access-list extended B",
                               " ip access-list standard", "ip access-list standard B C"})
        rows.push_back({"ip access-list standard A\n permit any\n" + std::string(header) +
                            "\n deny any\nip access-list standard C\n permit any\n",
                        "1000 A; 1002 A 0; 1000 C; 1002 C 0",
                        "(the header in line 3 was refused)"});
    // What follows a line of an interface that is refused still belongs to the interface.
    for (const auto& [line, report] :
         {std::pair<std::string, const char*>{" ip access-group A up",
                                              "2:20: Unexpected word \"up\"; expected: in, out"},
          {" ip access-group " + std::string(140, 'N') + " in Vlan " + vlans,
           "The VLAN range is too long"},
          {"no interface 1/0", "2:4: Unexpected word \"interface\""}})
        rows.push_back({"interface 1/0\n" + line + "\n ip access-group B out\n", "1039 B 4040001",
                        report + std::string("|F: 1 of 3 lines refused")});
    return rows;
}

}  // namespace

TEST(Load, LinesBecomeRequestsAndReports) {
    for (const loadRow& row : loadRows()) {
        SCOPED_TRACE(row.text.substr(0, 500));
        fakeManager manager;
        manager.serve();
        testSession s(manager.dir);
        s.session.options.checkOnly = row.checkOnly;
        s.session.options.chassisFile = manager.dir + "/" + row.chassis;
        EXPECT_EQ(s.load(row.text), row.reports.empty() ? 0 : 1);
        manager.halt();
        std::string requests;
        for (const auto& message : manager.received)
            requests += (requests.empty() ? "" : "; ") + brief(message);
        EXPECT_EQ(requests, row.requests);
        if (row.reports.empty()) {
            EXPECT_EQ(s.reported(), "");
        }
        std::istringstream reports(row.reports);
        for (std::string report; std::getline(reports, report, '|');)
            EXPECT_EQ(count(s.reported(), report), 1u) << report << "\n" << s.reported();
    }
    // A text that would be two lines is none.
    EXPECT_EQ(listNamesTyped({}, " seq 5 deny tcp any Error: (9) \n any", 0, ""),
              "! line not shown: seq 5 deny tcp any Error: (9) ? any");
}

// At least 100 are open at once, while the queue fills again and again.
TEST(Load, RefusalsAreReportedInLineOrderAlthoughAnswersAreNot) {
    uint32_t next = 1;
    std::vector<std::vector<uint8_t>> held;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (!isEntryAdd(message)) return m.answer(message, ACL_OK);
        EXPECT_EQ(seqOf(message), next++);
        held.push_back(message);
        if (held.size() < 100) return;
        for (; !held.empty(); held.pop_back()) {
            const uint32_t seq = seqOf(held.back());
            const bool there = seq == 1 || seq == 2999, used = seq == 2 || seq == 3000;
            m.answer(held.back(), there ? ACL_E_ENTRY_EXISTS : used ? ACL_E_SEQ_USED : ACL_OK);
        }
    });
    testSession s(manager.dir);
    EXPECT_EQ(s.load(entries(2999) + " bad line\n seq 3000 permit any\n"), 1);
    EXPECT_EQ(
        s.reported(),
        "F:2:2: The entry already exists in the list\n seq 1 permit any\n ^\n"
        "F:3:6: The sequence number is already used in the list\n seq 2 permit any\n     ^\n"
        "F:3000:2: The entry already exists in the list\n seq 2999 permit any\n ^\n"
        "F:3001:2: Unexpected word \"bad\"; expected: seq, permit, deny, remark, description, ip, "
        "ipv6, mac, route-map, resequence, interface, acl-vlan-group, access-list, no, do, exit, "
        "end\n bad line\n ^\n"
        "F:3002:6: The sequence number is already used in the list\n seq 3000 permit any\n     ^\n"
        "F: 5 of 3002 lines refused\n");
}

TEST(Load, AnEntryWithoutAnAnswerIsReportedAndTheOthersAreNot) {
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (isEntryAdd(message) && seqOf(message) == 2) return;  // never
        // Strange answers of every kind come first; none may be taken for the real one.
        std::vector<uint8_t> wrong = message;
        reinterpret_cast<ipcHdr*>(wrong.data())->sequence = 12345;
        m.answer(wrong, ACL_E_NOLIST);
        wrong = message;
        reinterpret_cast<cliHdr*>(wrong.data())->cookie = 1;
        m.answer(wrong, ACL_E_NOLIST);
        wrong.resize(sizeof(ipcHdr));
        m.answer(wrong, ACL_E_NOLIST);
        m.answer(message, ACL_OK);
        m.answer(message, ACL_E_NOLIST);  // twice: the second is a stray
    });
    testSession s(manager.dir, 3000);
    EXPECT_EQ(s.load(entries(3)), EXIT_UNREACHABLE);
    EXPECT_EQ(s.reported(),
              "F:3:2: No answer from the manager within 3 s; whether the line was taken is not "
              "known\n seq 2 permit any\n ^\n"
              "F: 1 of 4 lines not answered: they may have been taken\n");
}

TEST(Load, ALateAnswerIsNotTakenForAnothers) {
    std::vector<uint8_t> late;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (cliOf(message).code == CLI_CLEAR_IP_ACL) {
            late = message;  // answered, with a refusal, only when the next request comes
            return;
        }
        if (!late.empty()) m.answer(late, ACL_E_NOLIST);
        m.answer(message, ACL_OK);
    });
    testSession s(manager.dir, 300);
    EXPECT_FALSE(s.run("clear ip access-lists counters A"));
    s.session.options.timeoutMs = 20000;
    EXPECT_TRUE(s.run("clear ip access-lists counters"));
    EXPECT_EQ(count(s.reported(), "No answer from the manager within 0.3 s"), 1u);
    EXPECT_EQ(count(s.reported(), aclStatusFind(ACL_E_NOLIST)->text), 0u);
    EXPECT_EQ(s.session.channel.strays, 1u);
}

TEST(Load, AManagerThatIsNotThereOrNeverTakesAnythingEndsTheLoad) {
    fakeManager manager;  // never run
    struct {
        std::string dir;
        bool opened;  // its queue fills, nobody reads
        std::vector<const char*> reports;
    } const rows[] = {
        {manager.dir, false, {"cannot be reached", "nothing was loaded from line 2 on"}},
        {"/nonexistent", false, {}},
        // The list is not loaded in part, nor are others: nothing is sent behind a silent header.
        {manager.dir,
         true,
         {"No answer from the manager within 0.1 s",
          "Not sent: the header in line 1 was not answered",
          "F: nothing was loaded from line 3 on"}}};
    for (const auto& row : rows) {
        if (row.opened) manager.open();
        testSession s(row.dir, 100);
        EXPECT_EQ(s.load(entries(1) + "ip access-list standard B\n"), EXIT_UNREACHABLE);
        EXPECT_NE(s.reported(), "");
        for (const char* report : row.reports)
            EXPECT_EQ(count(s.reported(), report), 1u) << report << s.reported();
    }
}

// A line that was refused is tried again at a later start: a renumbering would come as a surprise.
TEST(Load, AStartupConfigurationHasNoRenumbering) {
    testSession s("/nonexistent");
    s.session.options.checkOnly = s.session.options.compile = true;
    EXPECT_EQ(s.load("ip access-list standard A\n permit any\nresequence ip access-list A 5 5\n"
                     " permit any\n"),
              1);
    fflush(s.session.out);
    std::vector<uint32_t> types;
    for (size_t at = 0; at < s.outSize;) {
        cfgCompiledRow row;
        ASSERT_LE(at + sizeof row, s.outSize);
        std::memcpy(&row, s.out + at, sizeof row);
        types.push_back(row.mtype);
        at += sizeof row + row.textLength + row.bodyLength;
    }
    EXPECT_EQ(types,
              (std::vector<uint32_t>{MT_CLI_COMMAND, MT_CLI_COMMAND, 0, 0, CFG_COMPILED_END}));
    EXPECT_EQ(count(s.reported(), "not a line of it"), 1u) << s.reported();
}

TEST(Load, LinesOfAnyLengthAndContentAreJudged) {
    testSession s("/nonexistent");
    s.session.options.checkOnly = true;
    std::string zeros(10, '\0');
    EXPECT_EQ(
        s.load("access-list inverse-mask\nip access-list standard A\n" + std::string(300000, 'x') +
               "\n permit any\n" + zeros + "\n\x1b[2J\n permit any"),
        1);
    EXPECT_TRUE(s.session.inverseMask);
    EXPECT_EQ(s.reported().find('\x1b'), std::string::npos);  // nothing a terminal would obey
}
