// The restore after a start: what becomes the previous configuration, and the replay by a child
// that works, refuses lines, dies, or cannot be run. A shell script stands in for the shell; the
// test is the task.
#include "platform/host/cfgmgr.h"

#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <future>

#include "tests/platform/hostTest.h"

namespace {

using lines = std::vector<std::string>;

zekCfgRecord makeLine(uint32_t order, const std::string& text, const std::string& inverse = "") {
    zekCfgRecord record{};
    reinterpret_cast<zekCfgListKey*>(record.key)->order = order;
    record.section = CFG_SECTION_IP;
    record.lineClass = CFG_CLASS_LINE;
    std::strncpy(record.text, text.c_str(), CFG_TEXT_LEN - 1);
    std::strncpy(record.inverseText, inverse.empty() ? text.c_str() : inverse.c_str(),
                 CFG_TEXT_LEN - 1);
    return record;
}

template <class Walk>
lines collect(Walk walk) {
    lines all;
    EXPECT_EQ(walk([&](std::string_view line) {
                  all.emplace_back(line);
                  return true;
              }),
              0);
    return all;
}
lines runningOf(zekCfgDb* db) {
    return collect([&](auto fn) { return zekCfgWalk(db, fn); });
}
lines previousOf(zekCfgDb* db) {
    return collect([&](auto fn) { return cfgDbWalkPrevious(db, fn); });
}

class restoreState : public testing::Test {
  protected:
    runFolder run;
    zekCfgDb* db = zekCfgOpen(run.path.c_str(), zekCfgAccess::write);
    bool hasPrevious = false;

    ~restoreState() override { zekCfgClose(db); }
    void put(uint32_t order, const std::string& text, const std::string& inverse = "") {
        ASSERT_EQ(zekCfgInsertBothLine(db, makeLine(order, text, inverse)), 0);
        ASSERT_EQ(zekCfgCommit(db), 0);
    }
    void startAgain(bool cold = false) {
        zekCfgClose(db);
        db = zekCfgOpen(run.path.c_str(), zekCfgAccess::write);
        ASSERT_NE(db, nullptr);
        ASSERT_EQ(cfgDbRestoreBegin(db, cold, &hasPrevious), 0);
    }
};

TEST_F(restoreState, ACrashInTheMiddleOfARestoreKeepsThePreviousLines) {
    put(1, "one");
    put(2, "two");
    startAgain();
    EXPECT_TRUE(hasPrevious);
    EXPECT_EQ(runningOf(db), lines{});
    put(1, "one");
    startAgain();  // went down with one line restored
    EXPECT_TRUE(hasPrevious);
    EXPECT_EQ(runningOf(db), lines{});
    EXPECT_EQ(previousOf(db), (lines{"one", "two"}));
    put(1, "one");
    put(2, "two");
    ASSERT_EQ(cfgDbRestoreEnd(db), 0);
    EXPECT_EQ(previousOf(db), lines{});
    EXPECT_EQ(runningOf(db), (lines{"one", "two"}));
    EXPECT_EQ(zekCfgStatistics(db).lines, 2u);
}

TEST_F(restoreState, ACrashInTheMiddleOfTheStartupConfigurationLeavesNoPartOfIt) {
    startAgain();
    EXPECT_FALSE(hasPrevious);
    put(1, "first of many");
    startAgain();
    EXPECT_FALSE(hasPrevious) << "else the rest of the startup configuration would never be loaded";
    EXPECT_EQ(runningOf(db), lines{});
}

TEST_F(restoreState, ThePreviousLinesReadInTheirOwnMaskMode) {
    put(1, "normal", "inverse");
    zekCfgSetMaskMode(db, 1);
    ASSERT_EQ(zekCfgCommit(db), 0);
    startAgain();
    EXPECT_EQ(zekCfgMaskMode(db), 0u) << "the restored lines say which mode it is";
    EXPECT_EQ(previousOf(db), lines{"inverse"});
    zekCfgSetMaskMode(db, 1);
    ASSERT_EQ(zekCfgCommit(db), 0);
    startAgain();
    EXPECT_EQ(previousOf(db), lines{"inverse"});
}

TEST_F(restoreState, ARestoreThatWasGivenUpIsTriedAgainWithWhatCameAfter) {
    put(1, "one");
    put(2, "two");
    startAgain();
    put(1, "one");
    ASSERT_EQ(cfgDbRestoreGiveUp(db), 0);
    put(1, "one, changed");
    put(3, "three");
    startAgain();
    EXPECT_EQ(previousOf(db), (lines{"one, changed", "two", "three"}));
    EXPECT_EQ(runningOf(db), lines{});

    ASSERT_EQ(cfgDbRestoreGiveUp(db), 0);
    put(4, "four", "inverse four");
    zekCfgSetMaskMode(db, 1);
    ASSERT_EQ(zekCfgCommit(db), 0);
    startAgain();
    EXPECT_EQ(previousOf(db), lines{"inverse four"}) << "the modes cannot be mixed";
}

TEST_F(restoreState, AColdStartForgets) {
    put(1, "one");
    startAgain();
    put(1, "one");
    startAgain(true);
    EXPECT_FALSE(hasPrevious);
    EXPECT_EQ(previousOf(db), lines{});
    EXPECT_EQ(runningOf(db), lines{});
}

TEST_F(restoreState, UncommittedChangesOfTheTaskStayWithTheEndOfTheRestore) {
    put(1, "one");
    startAgain();
    ASSERT_EQ(zekCfgInsert(db, makeLine(1, "one")), 0);
    ASSERT_EQ(cfgDbRestoreEnd(db), 0);
    EXPECT_FALSE(zekCfgIsDirty(db));
    startAgain();
    EXPECT_EQ(previousOf(db), lines{"one"});
}

// ---- The replay.

struct replayCase {
    const char* what;
    const char* script;  // the child, after it has noted its arguments
    bool restores;       // the task has a line when the child has run
    int runs;
    bool done;
    lines previousAfter;
    const char* logged;
};
const replayCase replayCases[] = {
    {"all lines are accepted", "exit 0", true, 1, true, {}, ""},
    {"some lines are refused",
     "echo 'restore.cfg:2:1: refused for a reason' >&2; exit 1",
     true,
     1,
     true,
     {},
     "restore: restore.cfg:2:1: refused for a reason"},
    {"the child dies once",
     "[ $(wc -l <$DIR/args) -ge 2 ] || kill -9 $$; exit 0",
     true,
     2,
     true,
     {},
     "trying again"},
    {"the child always dies",
     "kill -9 $$",
     true,
     4,
     false,
     {"one", "two"},
     "could not be restored"},
    {"the shell could not reach the task", "exit 2", true, 4, false, {"one", "two"}, "status 2"},
};

class replayTest : public taskTest {
  protected:
    zekCfgDb* db = zekCfgOpen(run.path.c_str(), zekCfgAccess::write);
    cfgMgrPlace place{run.path, run.path + "/chassis.json", run.path + "/bin", 0, RP};

    ~replayTest() override { zekCfgClose(db); }
    void writeShell(const std::string& script) {
        std::filesystem::create_directory(place.programDir);
        std::string file = place.programDir + "/aclsh";
        std::ofstream(file) << "#!/bin/sh\nDIR=" << run.path << "\necho \"$@\" >>$DIR/args\n"
                            << "while [ $# -gt 1 ]; do shift; done; cat \"$1\" >$DIR/text\n"
                            << script << "\n";
        ASSERT_EQ(chmod(file.c_str(), 0755), 0);
    }
    lines fileLines(const char* name) {
        lines all;
        std::ifstream in(run.path + "/" + name);
        for (std::string line; std::getline(in, line);) all.push_back(line);
        return all;
    }
    uint64_t loggedBefore = 0;  // by other tests of this process
    void SetUp() override {
        zekEvtRing([&](const zekEvtLine& line) { loggedBefore = line.number; });
    }
    bool isLogged(const std::string& text) {
        bool found = text.empty();
        zekEvtRing([&](const zekEvtLine& line) {
            if (line.number > loggedBefore && line.text.find(text) != line.text.npos) found = true;
        });
        return found;
    }
    // Runs the restore with the test as the task; the notifications that it got, in order.
    std::vector<uint32_t> restore(cfgMgrSource source, bool* done) {
        std::vector<uint32_t> types;
        auto work =
            std::async(std::launch::async, [&] { return cfgMgrRestore(db, place, source); });
        // One look more when the work is done: what it sent last.
        for (bool working = true, more = true; working || more;) {
            working = work.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
            bytes m(IPC_BUFFER_SIZE);
            int n = zekIpcRecv(Key_getReqQueue(key), m.data(), m.size(), working ? 5 : 0);
            more = n > 0;
            if (!more) continue;
            EXPECT_EQ(n, 60);
            types.push_back(headerOf(m)->mtype);
        }
        *done = work.get();
        return types;
    }
};

const std::vector<uint32_t> allNotifications = {MT_CFG_START_BLK_CFG_NOTIF,
                                                MT_CFG_END_BLK_CFG_NOTIF, MT_CFG_INIT_CFG_COMPLETE};

class replayCaseTest : public replayTest, public testing::WithParamInterface<replayCase> {};
INSTANTIATE_TEST_SUITE_P(children, replayCaseTest, testing::ValuesIn(replayCases),
                         [](const auto& test) { return std::to_string(test.index); });

TEST_P(replayCaseTest, ThePreviousConfigurationGoesOnlyWhenItRuns) {
    const replayCase& c = GetParam();
    SCOPED_TRACE(c.what);
    ASSERT_EQ(zekCfgInsert(db, makeLine(1, "one")), 0);
    ASSERT_EQ(zekCfgInsert(db, makeLine(2, "two")), 0);
    ASSERT_EQ(zekCfgCommit(db), 0);
    cfgMgrSource source;
    ASSERT_EQ(cfgMgrPrepare(db, place, false, &source), 0);
    ASSERT_EQ(source, cfgMgrSource::previous);
    writeShell(c.script);

    bool done = false;
    // What the child would have typed.
    if (c.restores) {
        ASSERT_EQ(zekCfgInsert(db, makeLine(1, "one")), 0);
    }
    std::vector<uint32_t> types = restore(source, &done);
    EXPECT_EQ(types, allNotifications);
    EXPECT_EQ(done, c.done);
    EXPECT_EQ(previousOf(db), c.previousAfter);
    EXPECT_EQ(fileLines("text"), (lines{"one", "two"}));
    EXPECT_TRUE(isLogged(c.logged));
    lines args = fileLines("args");
    ASSERT_EQ(args.size(), static_cast<size_t>(c.runs));
    EXPECT_EQ(args[0], "--rundir " + run.path + " --chassis " + run.path +
                           "/chassis.json --rp 0 --timeout 86400 --restore -f " + run.path +
                           "/restore-rp0.cfg");
    bool clean = c.done && *c.logged != 'r';
    EXPECT_EQ(fileLines("unrestored-rp0.cfg"), clean ? lines{} : (lines{"one", "two"}))
        << "the text of what was not restored whole is kept";
}

TEST_F(replayTest, AShellThatIsNotThereLosesNothing) {
    ASSERT_EQ(zekCfgInsert(db, makeLine(1, "one")), 0);
    cfgMgrSource source;
    ASSERT_EQ(cfgMgrPrepare(db, place, false, &source), 0);
    bool done = true;
    EXPECT_EQ(restore(source, &done), allNotifications);
    EXPECT_FALSE(done);
    EXPECT_EQ(previousOf(db), lines{"one"});
}

TEST_F(replayTest, TheStartupConfigurationIsTheSourceWhenNothingRan) {
    cfgMgrSource source;
    ASSERT_EQ(cfgMgrPrepare(db, place, false, &source), 0);
    EXPECT_EQ(source, cfgMgrSource::none);
    bool done = false;
    EXPECT_EQ(restore(source, &done), allNotifications) << "told without a child too";
    EXPECT_TRUE(done);

    std::ofstream(run.path + "/startup-config") << "saved\n";
    writeShell("exit 0");
    ASSERT_EQ(zekCfgInsert(db, makeLine(1, "one")), 0);
    ASSERT_EQ(cfgMgrPrepare(db, place, true, &source), 0) << "a cold start";
    EXPECT_EQ(source, cfgMgrSource::startup);
    ASSERT_EQ(zekCfgInsert(db, makeLine(1, "saved")), 0);
    EXPECT_EQ(restore(source, &done), allNotifications);
    EXPECT_TRUE(done);
    EXPECT_EQ(fileLines("text"), lines{"saved"});
    EXPECT_EQ(fileLines("startup-config"), lines{"saved"});
    ASSERT_EQ(cfgMgrPrepare(db, place, false, &source), 0);
    EXPECT_EQ(source, cfgMgrSource::previous) << "what ran comes first";
}

}  // namespace
