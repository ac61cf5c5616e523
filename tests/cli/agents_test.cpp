// What the shell makes of the agents' and chassisd's answers, good ones and others.
#include "include/agentState.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <optional>

#include "include/chassisControl.h"
#include "tests/cli/fakeManager.h"

namespace {

struct agentReply {
    std::string text;
    uint32_t agentStatus = 0, chassisStatus = 0;
    size_t cut = SIZE_MAX;  // bytes of the answer that are sent
};

// Answers each request with the next of its replies, and with the last one for ever.
struct fakeNeighbour : fakeEndpoint {
    fakeNeighbour(const std::string& dir, uint32_t card, uint32_t service,
                  const std::vector<agentReply>& script) {
        open(dir, card, service);
        listen([this, script](std::vector<uint8_t>& m) {
            const auto& r = script[std::min(received.size(), script.size()) - 1];
            m.resize(AGENT_STATE_TEXT_OFFSET);
            m.insert(m.end(), r.text.begin(), r.text.end());
            m.resize(std::min(m.size(), r.cut));
            auto* hdr = reinterpret_cast<ipcHdr*>(m.data());
            hdr->length = static_cast<uint32_t>(m.size());
            hdr->status = r.agentStatus;
            hdr->result = r.chassisStatus;
            reply(m);
        });
    }
    ~fakeNeighbour() { halt(); }
};

// The manager's end of debug questions: every one has this answer.
struct fakeDebug {
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread thread;

    fakeDebug(const std::string& dir, const std::string& text) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (dir + "/debug-rp0").copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener, 4), 0);
        thread = std::thread([this, text] {
            const std::string answer = "OK " + std::to_string(text.size()) + "\n" + text;
            for (int fd; (fd = accept(listener, nullptr, nullptr)) >= 0; close(fd)) {
                char byte = 0;
                while (byte != '\n' && read(fd, &byte, 1) == 1) continue;
                EXPECT_EQ(write(fd, answer.data(), answer.size()),
                          static_cast<ssize_t>(answer.size()));
            }
        });
    }
    ~fakeDebug() {
        shutdown(listener, SHUT_RDWR);
        thread.join();
        close(listener);
    }
};

// The one command of a session, and what its neighbours say: nobody is there who has no agentReply.
struct conversation {
    bool good;
    std::string said;
    std::vector<std::vector<uint8_t>> requests;

    conversation(const std::string& command, const std::vector<agentReply>& agent,
                 const std::vector<agentReply>& chassisd = {}, const std::string& debug = "") {
        fakeManager manager;
        std::optional<fakeNeighbour> neighbour;
        std::optional<fakeDebug> shell;
        if (!agent.empty()) neighbour.emplace(manager.dir, 0x7F010101, 7937 + 4, agent);
        if (!chassisd.empty())
            neighbour.emplace(manager.dir, fakeManager::CARD, CHASSIS_CONTROL_SERVICE, chassisd);
        if (!debug.empty()) shell.emplace(manager.dir, debug);
        testSession s(manager.dir);
        good = s.run(command);
        said = s.printed() + s.reported();
        if (!neighbour) return;
        neighbour->halt();
        requests = neighbour->received;
    }
    void expect(bool isGood, const std::string& part) const {
        EXPECT_EQ(good, isGood);
        EXPECT_NE(said.find(part), std::string::npos) << said;
    }
};

}  // namespace

TEST(Agents, AnswersAreShownAndBadOnesAreRefused) {
    const std::string summary = "show card 1 summary", lists = "show card 1 access-lists";
    const std::string notUnderstood = "!Card 1: answer not understood";
    const struct {
        std::string command, answer;  // "-": the card is not there
        std::string shown;            // behind "!": it is refused
    } rows[] = {
        {summary, R"({"state":"in step","lists":2})", "lists  2"},
        {summary, "{", notUnderstood},
        {summary, "[]", notUnderstood},
        {summary, "\xff\xfe", notUnderstood},
        {summary, "-", "!Card 1: not running"},
        {lists,
         R"({"lists":[{"name":"A","kind":"ipv4","ifindex":67371009,"direction":1,"count":3}]})",
         "A     ipv4  1/0        out        no               3\n"},
        {lists,
         R"({"lists":[{"name":"A","kind":"mac","ifindex":67371009,"direction":1,"count":3,)"
         R"("inForce":false}]})",
         "A     mac   1/0        out (not in force)  no               3\n"},
        // Rows of the wrong shape are shown as far as they go.
        {lists, R"({"lists":[7,null,{"name":5,"ifindex":-1,"count":"x"}]})", "list"},
        {lists, R"({"lists":7})", ""},
        // The next index must grow, or the walk would not end.
        {lists, R"({"lists":[],"next":1})", notUnderstood},
        {"show cards", R"({"state":"in step","refused":{"list":2,"order":"x"}})",
         "127.1.1.1  in step  0      0        0         2"},
        {"show cards", "no json", "!answer not understood"},
        {"show cards", "-", "!not running"},
        {"show card 2 summary", "{}", "!The chassis has no card 2"},
        {"show card control-plane summary", "{}", "!no card control-plane"},
    };
    auto shows = [](const conversation& c, const std::string& shown) {
        c.expect(shown[0] != '!', shown.substr(shown[0] == '!' ? 1 : 0));
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command + " <- " + row.answer);
        std::vector<agentReply> replies{{row.answer}};
        if (row.answer == "-") replies.clear();
        shows(conversation(row.command, replies), row.shown);
    }
    for (const agentReply& bad : {agentReply{"{}", 2}, {"", 0, 0, 60}})
        shows(conversation(summary, {bad}), notUnderstood);
    shows(conversation(lists + " A", {{"", 1}}), "!Card 1: nothing of that name");
    // An entry as it is: 1 denies and nothing else does, whatever else is given is told.
    const std::pair<const char*, const char*> entries[] = {
        {R"("action":1,"protocol":4)", "deny        ip"},
        {R"("action":0,"protocol":4,"protoMarker":1)", "permit      4 "},
        {R"("action":2,"protocol":6)", "permit (2)  tcp "},
        {R"("action":1,"dstOperator":1,"ports":[0,0,80,0],"order":255,"tos":4294967295,)"
         R"("icmp":"00000000","log":1)",
         "dst eq 80 log 1  0"},
        {R"("src":"::","srcMask":"::","dst":"10.0.0.1","dstMask":"255.255.255.255",)"
         R"("srcOperator":5,"ports":[1,9,0,0])",
         "any     host 10.0.0.1  src range 1 9  0"},
        {R"("action":1,"src":"00:01:02:03:04:05","srcMask":"00:00:00:00:00:00",)"
         R"("encapsulation":10,"etherTypeOperator":1,"etherType":2054,"order":255)",
         "ev2 eq 0806  00:01:02:03:04:05 00:00:00:00:00:00"},
        {R"("action":1,"encapsulation":0)", "any"}};
    for (const auto& [entry, shown] : entries)
        shows(conversation(
                  lists + " A",
                  {{R"({"lists":[{"name":"A","ifindex":67371009}]})"},
                   {std::string(R"({"entries":[{"seq":2,"action":2},{"seq":1,)") + entry + "}]}"}}),
              shown);
    // Long answers are asked for in pieces: two rows below their heads.
    const conversation pieces(
        "show card 1 access-lists | count",
        {{R"({"lists":[{"name":"A"}],"next":5000})"}, {R"({"lists":[{"name":"B"}]})"}});
    pieces.expect(true, "3\n");
    ASSERT_EQ(pieces.requests.size(), 2u);
    EXPECT_EQ(uint32_t{reinterpret_cast<const agentStateReq*>(pieces.requests[1].data())->index},
              5000u);
}

TEST(Agents, OneThatIsSilentIsSaidToBeSo) {
    fakeManager manager, silent;
    silent.fakeEndpoint::open(manager.dir, 0x7F010101, 7937 + 4);
    testSession s(manager.dir, 200);
    EXPECT_FALSE(s.run("show cards"));
    EXPECT_EQ(count(s.printed(), "no answer"), 1u);
}

// Everything that a card says of a list is compared, and a card that says nothing is no good sign.
TEST(Agents, WhatACardHoldsIsComparedWithWhatIsMeant) {
    const std::string meant =
        R"([{"interface":"1/0","direction":0,"ifindex":7,"card":"1","entries":0,"kind":2,"pipe":3,)"
        R"("implicitPermit":1,"block":"0a","hash":"cbf29ce484222325"}])";
    const std::string held =
        R"({"name":"A","kindNumber":0,"direction":0,"ifindex":7,"count":0,"listKind":2,)"
        R"("portPipe":3,"implicitPermit":1,"block":"0a"})";
    auto with = [&held](const std::string& from, const std::string& to) {
        std::string changed = held;
        return changed.replace(changed.find(from), from.size(), to);
    };
    const struct {
        std::string meant, held;  // held "-": the card is not there
        bool good;
        const char* shown;
    } rows[] = {
        {meant, held, true, "1/0        in         1     in step"},
        {meant, with("\"listKind\":2", "\"listKind\":1"), false, "different"},
        {meant, with("\"portPipe\":3", "\"portPipe\":0"), false, "different"},
        {meant, with("\"0a\"", "\"\""), false, "different"},
        {meant, with("\"implicitPermit\":1", "\"implicitPermit\":0"), false, "different"},
        {meant, with("\"count\":0", "\"count\":1"), false, "different"},
        {meant, with("\"ifindex\":7", "\"ifindex\":8"), false, "left over"},
        {meant, "-", false, "not running"},
        {"[]", "-", false, "not running"},
        {R"({"missing":true})", held, false, "left over"},
        {R"({"missing":true})", "-", false, "not running"},
        {R"({"missing":true})", "", false, "No such access list"},
        {R"({"what":1})", held, false, "not understood"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.meant + " <- " + row.held);
        std::vector<agentReply> card{{R"({"entries":[],"lists":[)" + row.held + "]}"}};
        if (row.held == "-") card.clear();
        conversation("show ip access-lists A installed", card, {}, row.meant)
            .expect(row.good, row.shown);
    }
    // Each family has its own place on the card, and a VLAN group is none of its interfaces.
    constexpr const char* families[] = {"ip", "ipv6", "mac"};
    for (auto [asked, heldAs] : {std::pair{0, 0}, {1, 1}, {2, 5}, {2, 0}, {1, 5}}) {
        const bool same = heldAs == (asked == 2 ? 5 : asked);
        const std::string card =
            R"({"entries":[],"lists":[)" +
            with("\"kindNumber\":0", "\"kindNumber\":" + std::to_string(heldAs)) + "]}";
        conversation(std::string("show ") + families[asked] + " access-lists A installed", {{card}},
                     {}, meant)
            .expect(same, same ? "in step" : "missing");
    }
    const std::string group = R"([{"interface":"VLAN group 3 G","group":3,"direction":1,)"
                              R"("ifindex":0,"card":"1","entries":0,"hash":"cbf29ce484222325"}])";
    for (int held3 : {3, 4}) {
        const std::string card =
            R"({"entries":[],"lists":[{"name":"A","kindNumber":0,"direction":1,"ifindex":0,)"
            R"("count":0,"group":)" +
            std::to_string(held3) + "}]}";
        conversation("show ip access-lists A installed", {{card}}, {}, group)
            .expect(held3 == 3, held3 == 3 ? "VLAN group 3 G  out        1     in step"
                                           : "VLAN group 4    out        1     left over");
    }
    conversation("show mac access-lists A installed", {{R"({"lists":[]})"}}, {},
                 R"([{"interface":"vlan 10","direction":0,"unsent":"not sent for VLANs"}])")
        .expect(true, "not sent for VLANs");
}

TEST(Places, RowsOfTheManagerAreShownAndBadOnesAreRefused) {
    std::string members = R"("port-channel 1")";
    for (int port = 0; port < 47; port++) members += ",\"1/" + std::to_string(port) + "\"";
    const std::string vlan =
        R"({"rows":[{"interface":"vlan 10","index":229386,"kind":"vlan","id":10,)"
        R"("members":[)" +
        members +
        R"(],"group-id":7,"addresses":[{"address":"10.0.0.1"},{}],)"
        R"("lists":[{"list":"A"}],"protocols":["ospf","rip"]}]})";
    const std::string port =
        R"({"rows":[{"interface":"1/0","index":67371009,"kind":"port","lag":"port-channel 1",)"
        R"("lists":[{"direction":"in","family":"ip","list":"OWN","of":"1/0","configured":true},)"
        R"({"direction":"in","family":"ip","list":"B","of":"port-channel 1","configured":true,)"
        R"("yields":true}]}]})";
    const struct {
        const char* command;
        std::string answer;
        bool good;
        const char* shown;
    } rows[] = {
        {"show vlan", vlan, true,
         "10    48     port-channel 1,1/0,1/1,1/2,...  7         10.0.0.1 +1  1      ospf,rip\n"},
        // One place has all of them, card by card.
        {"show vlan 10", vlan, true,
         "  -     1/36, 1/37, 1/38, 1/39, 1/40, 1/41, 1/42, 1/43, 1/44, 1/45, 1/46\n  1     1/0\n"},
        {"show interfaces", port, true, "1/0             0x04040001  1     1"},
        {"show interfaces", R"({"rows":[]})", true, "port-channel 1  0x00030001"},
        {"show interfaces 1/0", port, true,
         "in         ip      B     port-channel 1  the port's own goes first\n"},
        {"show protocols 1/0", R"({"rows":[{"protocol":"ospf","traps":["01:00","02:00"]},{}]})",
         true, "ospf      01:00 +1\n"},
        {"show port-channel 3", R"({"error":"None"})", false, "None"},
        {"show port-channel", "[]", false, "not understood"},
        {"show vlan", R"({"rows":[{"id":7}],"next":5})", false, "does not move on"},
        {"show vlan", R"({"rows":[7,null,{"members":"x","lists":[5],"addresses":[5]}]})", true,
         "vlan"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command + (" <- " + row.answer));
        conversation(row.command, {}, {}, row.answer).expect(row.good, row.shown);
    }
}

TEST(Chassis, CommandsAreSentAndTheirStatusIsSaid) {
    struct {
        const char* command;
        uint32_t wire, argument, status;
        const char* said;
    } rows[] = {
        {"chassis card 1 down", 1, 1, 0, "status  ok\ntold    1\n"},
        {"chassis card control-plane shutdown", 2, 19, 0, "status  ok\ntold    1\n"},
        {"chassis primary 1", 3, 1, 3, "There is no such card or route processor"},
        {"chassis card 1 down", 1, 1, 1, "No manager is there to be told"},
        {"chassis card 1 down", 1, 1, 2, "The manager has not answered in time"},
        {"chassis status", 4, 0, 4, "The run folder cannot be written"},
        {"chassis status", 4, 0, 77, "The answer of chassisd is not understood"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const conversation c(row.command, {}, {{R"({"status":"ok","told":1})", 0, row.status}});
        c.expect(row.status == 0, row.said);
        ASSERT_EQ(c.requests.size(), 1u);
        const auto* req = reinterpret_cast<const chassisControlReq*>(c.requests[0].data());
        EXPECT_EQ(uint32_t{req->ipc.mtype}, MT_CHASSIS_CONTROL);
        EXPECT_EQ(uint32_t{req->command}, row.wire);
        EXPECT_EQ(uint32_t{req->argument}, row.argument);
    }
    conversation("chassis status", {}).expect(false, "chassisd cannot be reached");
}
