// Commands that print, the filters behind them, and the modes.
#include "tests/cli/fakeManager.h"

namespace {

std::string filtered(std::string line, const std::string& text) {
    cliPipe p;
    char* out = nullptr;
    size_t size = 0;
    p.out = open_memstream(&out, &size);
    std::string_view command = line;
    size_t column = 0;
    std::string error, result;
    if (!pipeParse(&command, &p, &column, &error)) {
        result = "column " + std::to_string(column) + ": " + error;
    } else {
        // In pieces of every size, so that line ends fall anywhere.
        for (size_t at = 0, step = 1; at < text.size(); at += step++)
            pipeText(&p, std::string_view(text).substr(at, step));
        pipeFinish(&p);
        fflush(p.out);
        result.assign(out, size);
    }
    fclose(p.out);
    free(out);
    return result;
}

constexpr char SHOWN[] =
    "Standard IP access list A\r\n seq 5 permit any log (7 matches) order 255\r\n"
    " seq 10 deny host 1.2.3.4 log (-2 matches) order 3\r\n";

// Three lists of which the walk shows the ones behind its cursor.
void walk(fakeManager& m, std::vector<uint8_t>& message) {
    const auto& request = *reinterpret_cast<const cliShowReq*>(message.data());
    std::string cursor(listNameView(request.name));
    bool one = request.cli.code == CLI_SHOW_IP_ACL;
    for (const char* name : {"A", "B", "C"})
        if (one ? cursor == name : cursor < name)
            return m.answerText(
                message, listNameMake(name),
                *name == 'A' ? SHOWN : "Extended IP access list " + std::string(name) + "\r\n");
    m.answer(message, ACL_E_NOLIST);
}

}  // namespace

TEST(Pipe, FiltersWorkOnLines) {
    const std::string text = "one\r\ntwo\nthree two\n\nlast";
    struct {
        const char* line;
        const char* out;
    } rows[] = {
        {"show x", "one\ntwo\nthree two\n\nlast\n"},
        {"show x | include two", "two\nthree two\n"},
        {"show x | inc  three two ", "three two\n"},
        {"show x | exclude two", "one\n\nlast\n"},
        {"show x | begin three", "three two\n\nlast\n"},
        {"show x | count", "5\n"},
        {"show x | count t", "3\n"},
        {"show x | include t | exclude three | count", "2\n"},
        {"show x | count | include 5", "5\n"},
        {"show x|y", "one\ntwo\nthree two\n\nlast\n"},  // no word of its own: not a pipe
        {"show x | fold", "column 9: Not a filter: include, exclude, begin, count"},
        {"show x |", "column 9: Not a filter: include, exclude, begin, count"},
        {"show x | include | count", "column 17: The filter needs a text"},
    };
    for (const auto& row : rows) EXPECT_EQ(filtered(row.line, text), row.out) << row.line;
}

TEST(Session, ListsAreShownOneByOneUntilTheWalkEnds) {
    fakeManager manager;
    manager.run(walk);
    struct {
        const char* line;
        bool ok;
        const char* out;
        const char* err;
    } rows[] = {
        {"show ip access-lists B", true, "Extended IP access list B\n", ""},
        {"show ip access-lists | include access", true,
         "Standard IP access list A\nExtended IP access list B\nExtended IP access list C\n", ""},
        {"show ip access-lists b", false, "",
         "T:1:1: No such access list\nshow ip access-lists b\n^\n"},
        {"show ip access-lists | nothing", false, "",
         "T:1:24: Not a filter: include, exclude, begin, count\nshow ip access-lists | nothing\n"
         "                       ^\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        testSession s(manager.dir);
        EXPECT_EQ(s.run(row.line), row.ok);
        EXPECT_EQ(s.printed(), row.out);
        EXPECT_EQ(s.reported(), row.err);
    }
    testSession s(manager.dir);
    s.session.options.json = true;
    EXPECT_TRUE(s.run("show ip access-lists A"));
    EXPECT_EQ(
        s.printed(),
        "[\n{\"name\":\"A\",\"kind\":\"standard\",\"entries\":[{\"seq\":5,\"action\":\"permit\","
        "\"text\":\"seq 5 permit any log (7 matches) order 255\",\"matches\":7},{\"seq\":10,"
        "\"action\":\"deny\",\"text\":\"seq 10 deny host 1.2.3.4 log (-2 matches) order 3\","
        "\"matches\":4294967294}]}\n]\n");
}

TEST(Session, AWalkThatDoesNotMoveOnEnds) {
    fakeManager manager;
    manager.run([](fakeManager& m, std::vector<uint8_t>& message) {
        m.answerText(message, listNameMake("SAME"), "Extended IP access list SAME\r\n");
    });
    testSession s(manager.dir);
    EXPECT_FALSE(s.run("show ip access-lists"));
    EXPECT_NE(s.reported().find("does not move on"), std::string::npos);
}

TEST(Session, AReplyOfManyMegabytesArrivesWhole) {
    std::string line = " seq 5 permit any order 255\r\n", text = "Standard IP access list A\r\n";
    constexpr size_t LINES = 300000;
    for (size_t i = 0; i < LINES; i++) text += line;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        m.answerText(message, listNameMake("A"), text);
    });
    testSession s(manager.dir);
    EXPECT_TRUE(s.run("show ip access-lists A | count"));
    EXPECT_EQ(s.printed(), std::to_string(LINES + 1) + "\n");
}

TEST(Session, ModesFollowTheCommands) {
    fakeManager manager;
    manager.run([](fakeManager& m, std::vector<uint8_t>& message) {
        m.answer(message, listNameView(cliOf(message).name) == "BAD" ? ACL_E_IS_EXTENDED : ACL_OK);
    });
    testSession s(manager.dir);
    struct {
        const char* line;
        bool ok;
        cliMode mode;
    } rows[] = {
        {"permit any", false, cliMode::exec},
        {"configure terminal", true, cliMode::configure},
        {"ip access-list standard A", true, cliMode::standard},
        {"permit any", true, cliMode::standard},
        {"do clear ip access-lists counters", true, cliMode::standard},
        {"ip access-list extended E", true, cliMode::extended},
        {"ip trace-group T", true, cliMode::configure},
        {"ip trace-list T", true, cliMode::trace},
        {"no ip access-list extended E", true, cliMode::configure},
        {"ip access-list standard A", true, cliMode::standard},
        {"ip access-list standard BAD", false, cliMode::configure},
        {"ip access-list standard A", true, cliMode::standard},
        {"ip access-list stnd B", false, cliMode::configure},
        {"ip trace-list T", true, cliMode::trace},
        {"exit", true, cliMode::configure},
        {"exit", true, cliMode::exec},
        {"conf t", true, cliMode::configure},
        {"ip trace-list T", true, cliMode::trace},
        {"end", true, cliMode::exec},
        {"show ?", true, cliMode::exec},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(s.run(row.line), row.ok) << s.reported();
        EXPECT_EQ(s.session.mode, row.mode);
    }
    EXPECT_TRUE(s.run("exit"));
    EXPECT_TRUE(s.session.done);
    EXPECT_NE(s.printed().find("running-config"), std::string::npos);
}

TEST(Session, AnUnknownStatusIsShownAsItsNumber) {
    fakeManager manager;
    manager.run(
        [](fakeManager& m, std::vector<uint8_t>& message) { m.answer(message, 0x3d0000fe); });
    testSession s(manager.dir);
    EXPECT_FALSE(s.run("clear ip access-lists counters"));
    EXPECT_NE(s.reported().find("0x3d0000fe"), std::string::npos);
}

TEST(Session, TheStartupConfigurationIsPrintedAsItWasSaved) {
    fakeManager manager;
    testSession s(manager.dir);
    EXPECT_FALSE(s.run("show startup-config"));
    std::ofstream(manager.dir + "/startup-config")
        << "!\nip access-list standard \"A\"\n permit any\n";
    EXPECT_TRUE(s.run("show startup-config"));
    s.session.options.json = true;
    EXPECT_TRUE(s.run("show startup-config"));
    EXPECT_EQ(s.printed(),
              "!\nip access-list standard \"A\"\n permit any\n"
              "[\n\"!\",\n\"ip access-list standard \\\"A\\\"\",\n\" permit any\"\n]\n");
}
