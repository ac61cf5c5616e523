// What the shell makes of the agents' and chassisd's answers, good ones and others.
#include "include/agentState.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <memory>

#include "include/chassisControl.h"
#include "tests/cli/fakeManager.h"

namespace {

// Answers every request with a status and a text.
struct fakeNeighbour : fakeEndpoint {
    struct reply {
        uint32_t agentStatus, chassisStatus;
        std::string text;
        size_t cut = SIZE_MAX;  // bytes of the answer that are sent
    };
    fakeNeighbour(const std::string& dir, uint32_t card, uint32_t service,
                  const std::vector<reply>& script) {
        open(dir, card, service);
        listen([this, script](std::vector<uint8_t>& m) {
            const reply& r = script[std::min(received.size(), script.size()) - 1];
            m.resize(AGENT_STATE_TEXT_OFFSET);
            m.insert(m.end(), r.text.begin(), r.text.end());
            m.resize(std::min(m.size(), r.cut));
            auto* hdr = reinterpret_cast<ipcHdr*>(m.data());
            hdr->length = static_cast<uint32_t>(m.size());
            hdr->status = r.agentStatus;
            hdr->result = r.chassisStatus;
            fakeEndpoint::reply(m);
        });
    }
    ~fakeNeighbour() { halt(); }
};

constexpr uint32_t CARD_1 = 0x7F010101, PORT_OF_1 = 7937 + 4;

}  // namespace

TEST(Agents, AnswersAreShownAndBadOnesAreRefused) {
    struct {
        const char* command;
        fakeNeighbour::reply reply;
        bool good;
        const char* shown;
    } rows[] = {
        {"show card 1 summary", {0, 0, R"({"state":"in step","lists":2})"}, true, "lists  2"},
        {"show card 1 summary", {0, 0, "{"}, false, "Card 1: answer not understood"},
        {"show card 1 summary", {0, 0, "[]"}, false, "Card 1: answer not understood"},
        {"show card 1 summary", {0, 0, "\xff\xfe"}, false, "Card 1: answer not understood"},
        {"show card 1 summary", {2, 0, "{}"}, false, "Card 1: answer not understood"},
        {"show card 1 summary", {0, 0, "", 60}, false, "Card 1: answer not understood"},
        {"show card 1 access-lists",
         {0, 0,
          R"({"lists":[{"name":"A","kind":"ipv4","ifindex":67371009,"direction":1,"count":3}]})"},
         true,
         "A     ipv4  1/0        out        no               3\n"},
        // Rows of the wrong shape are shown as far as they go.
        {"show card 1 access-lists",
         {0, 0, R"({"lists":[7,null,{"name":5,"ifindex":-1,"count":"x"}]})"},
         true,
         "list"},
        {"show card 1 access-lists", {0, 0, R"({"lists":7})"}, true, ""},
        // The next index must grow, or the walk would not end.
        {"show card 1 access-lists",
         {0, 0, R"({"lists":[],"next":1})"},
         false,
         "Card 1: answer not understood"},
        {"show card 1 access-lists A", {1, 0, ""}, false, "Card 1: nothing of that name"},
        {"show cards",
         {0, 0, R"({"state":"in step","refused":{"list":2,"order":"x"}})"},
         true,
         "127.1.1.1  in step  0      0        0         2"},
        {"show cards", {0, 0, "no json"}, false, "answer not understood"},
        {"show card 2 summary", {0, 0, "{}"}, false, "The chassis has no card 2"},
        {"show card control-plane summary", {0, 0, "{}"}, false, "no card control-plane"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command + (" <- " + row.reply.text));
        fakeManager manager;
        fakeNeighbour agent(manager.dir, CARD_1, PORT_OF_1, {row.reply});
        testSession s(manager.dir);
        EXPECT_EQ(s.run(row.command), row.good);
        std::string text = s.printed() + s.reported();
        EXPECT_NE(text.find(row.shown), std::string::npos) << text;
    }
}

// An entry as it is: 1 denies and nothing else does, whatever else is given is told.
TEST(Agents, EntriesAreShownAsTheyAre) {
    struct {
        const char* entry;
        const char* shown;
    } rows[] = {
        {R"({"seq":1,"action":1,"protocol":4})", "deny        ip"},
        {R"({"seq":1,"action":0,"protocol":4,"protoMarker":1})", "permit      4 "},
        {R"({"seq":1,"action":2,"protocol":6})", "permit (2)  6 "},
        {R"({"seq":1,"action":1,"dstOperator":1,"ports":[0,0,80,0],"order":255,"tos":4294967295,
            "icmp":"00000000","log":1})",
         "dstOperator 1 log 1 ports [0,0,80,0]  0"},
    };
    fakeManager manager;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.entry);
        std::string entries =
            R"({"entries":[{"seq":2,"action":2},)" + std::string(row.entry) + "]}";
        fakeNeighbour agent(
            manager.dir, CARD_1, PORT_OF_1,
            {{0, 0, R"({"lists":[{"name":"A","ifindex":67371009}]})"}, {0, 0, entries}});
        testSession s(manager.dir);
        EXPECT_TRUE(s.run("show card 1 access-lists A"));
        std::string text = s.printed();
        EXPECT_NE(text.find(row.shown), std::string::npos) << text;
    }
}

TEST(Agents, LongAnswersAreAskedForInPieces) {
    fakeManager manager;
    fakeNeighbour agent(
        manager.dir, CARD_1, PORT_OF_1,
        {{0, 0, R"({"lists":[{"name":"A"}],"next":5000})"}, {0, 0, R"({"lists":[{"name":"B"}]})"}});
    testSession s(manager.dir);
    EXPECT_TRUE(s.run("show card 1 access-lists | count"));
    agent.halt();
    EXPECT_EQ(s.printed(), "3\n");  // two rows below their heads
    ASSERT_EQ(agent.received.size(), 2u);
    EXPECT_EQ(uint32_t{reinterpret_cast<agentStateReq*>(agent.received[1].data())->index}, 5000u);
}

TEST(Agents, OneThatIsNotThereOrSilentIsSaidToBeSo) {
    fakeManager manager;
    testSession s(manager.dir, 200);
    EXPECT_FALSE(s.run("show cards"));
    EXPECT_NE(s.printed().find("not running"), std::string::npos);
    EXPECT_FALSE(s.run("show card 1 summary"));
    EXPECT_NE(s.reported().find("Card 1: not running"), std::string::npos);
    std::string error;
    zekEndpoint* silent = zekEndpointOpen(manager.dir, CARD_1, PORT_OF_1, &error);
    ASSERT_NE(silent, nullptr) << error;
    EXPECT_FALSE(s.run("show cards"));
    EXPECT_NE(s.printed().find("no answer"), std::string::npos);
    zekEndpointClose(silent);
}

namespace {

// The manager's end of debug questions: every one has this answer.
struct fakeDebug {
    int listener;
    std::thread thread;

    fakeDebug(const std::string& dir, const std::string& text) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (dir + "/debug-rp0").copy(address.sun_path, sizeof address.sun_path - 1);
        listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
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

}  // namespace

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
    struct {
        std::string meant, held;  // held empty: the card is not there
        bool good;
        const char* shown;
    } const rows[] = {
        {meant, held, true, "1/0        in         1     in step"},
        {meant, with("\"listKind\":2", "\"listKind\":1"), false, "different"},
        {meant, with("\"portPipe\":3", "\"portPipe\":0"), false, "different"},
        {meant, with("\"0a\"", "\"\""), false, "different"},
        {meant, with("\"implicitPermit\":1", "\"implicitPermit\":0"), false, "different"},
        {meant, with("\"count\":0", "\"count\":1"), false, "different"},
        {meant, with("\"ifindex\":7", "\"ifindex\":8"), false, "left over"},
        {meant, "", false, "not running"},
        {"[]", "", false, "not running"},
        {R"({"missing":true})", held, false, "left over"},
        {R"({"missing":true})", "", false, "not running"},
        {R"({"missing":true})", "{}", false, "No such access list"},
        {R"({"what":1})", held, false, "not understood"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.meant + " <- " + row.held);
        fakeManager manager;
        fakeDebug debug(manager.dir, row.meant);
        std::unique_ptr<fakeNeighbour> agent;
        const std::string lists = row.held == "{}" ? "" : row.held;
        if (!row.held.empty())
            agent = std::make_unique<fakeNeighbour>(
                manager.dir, CARD_1, PORT_OF_1,
                std::vector<fakeNeighbour::reply>{
                    {0, 0, R"({"entries":[],"lists":[)" + lists + "]}"}});
        testSession s(manager.dir);
        EXPECT_EQ(s.run("show ip access-lists A installed"), row.good);
        const std::string text = s.printed() + s.reported();
        EXPECT_NE(text.find(row.shown), std::string::npos) << text;
    }
}

TEST(Chassis, CommandsAreSentAndTheirStatusIsSaid) {
    struct {
        const char* command;
        uint32_t wire, argument, status;
        const char* said;  // null: done
    } rows[] = {
        {"chassis card 1 down", 1, 1, 0, nullptr},
        {"chassis card control-plane shutdown", 2, 19, 0, nullptr},
        {"chassis primary 1", 3, 1, 3, "There is no such card or route processor"},
        {"chassis card 1 down", 1, 1, 1, "No manager is there to be told"},
        {"chassis card 1 down", 1, 1, 2, "The manager has not answered in time"},
        {"chassis status", 4, 0, 4, "The run folder cannot be written"},
        {"chassis status", 4, 0, 77, "The answer of chassisd is not understood"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        fakeManager manager;
        fakeNeighbour chassisd(manager.dir, fakeManager::CARD, CHASSIS_CONTROL_SERVICE,
                               {{0, row.status, R"({"status":"ok","told":1})"}});
        testSession s(manager.dir);
        EXPECT_EQ(s.run(row.command), row.said == nullptr);
        chassisd.halt();
        if (row.said == nullptr)
            EXPECT_EQ(s.printed(), "status  ok\ntold    1\n");
        else
            EXPECT_NE(s.reported().find(row.said), std::string::npos) << s.reported();
        ASSERT_EQ(chassisd.received.size(), 1u);
        const auto* req = reinterpret_cast<chassisControlReq*>(chassisd.received[0].data());
        EXPECT_EQ(uint32_t{req->ipc.mtype}, MT_CHASSIS_CONTROL);
        EXPECT_EQ(uint32_t{req->command}, row.wire);
        EXPECT_EQ(uint32_t{req->argument}, row.argument);
    }
    fakeManager manager;
    testSession s(manager.dir);
    EXPECT_FALSE(s.run("chassis status"));
    EXPECT_NE(s.reported().find("chassisd cannot be reached"), std::string::npos);
}
