// Restarts: the records of the database are sent to the task again, which here is the test. A shell
// script stands in for the shell that reads a startup configuration.
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <map>

#include "include/cfgCompiled.h"
#include "include/cliMsg.h"
#include "include/status.h"
#include "platform/host/cfgmgr.h"
#include "tests/platform/hostTest.h"

namespace {

// The requests are CLI requests whose list name is the line that they write. A line "x: ..." is a
// header: a separator without a record stands in front of it.
class restoreTest : public taskTest {
  protected:
    zekCfgDb* db = nullptr;
    cfgMgrPlace place{run.path, run.path + "/chassis.json", run.path + "/bin", 0, RP};
    std::map<std::string, uint32_t> answers;  // results other than 0
    std::string unanswered;
    lines got;                  // the task's requests and notifications, in order
    std::vector<uint32_t> ids;  // what zekCfgRestoring said for each request

    restoreTest() { open(); }
    ~restoreTest() override { zekCfgClose(db); }
    void open() {
        zekCfgClose(db);
        db = zekCfgOpen(run.path.c_str(), zekCfgAccess::write, ZEK_CFG_FILE, CFG_LAYOUT);
        ASSERT_NE(db, nullptr);
        hostSetCommit({[this] { return zekCfgIsDirty(db); }, [this] { return zekCfgCommit(db); },
                       [this] { return cfgDbChanges(db); }});
    }
    static zekCfgRecord recordOf(uint32_t block, uint32_t order, uint32_t lineClass,
                                 const std::string& text) {
        return makeLine(CFG_SECTION_IP, std::string(1, static_cast<char>('a' + block)), order,
                        lineClass, text);
    }
    static bytes bodyOf(uint32_t block, uint32_t order, const std::string& text) {
        cliHdr request{};
        request.code = 1000 + block;
        request.name = listNameMake(text);
        request.cookie = order;
        const auto* front = reinterpret_cast<const uint8_t*>(&request);
        return bytes(front + sizeof(ipcHdr), front + sizeof request);
    }
    // Line `text` of a block, with its separator when it is the first.
    void put(uint32_t block, uint32_t order, const std::string& text) {
        if (order == 0) (void)zekCfgInsert(db, recordOf(block, 0, CFG_CLASS_SEPARATOR, "!"));
        (void)zekCfgInsert(db, recordOf(block, order, CFG_CLASS_LINE, text),
                           {MT_CLI_COMMAND, bodyOf(block, order, text)});
        (void)zekCfgSync(db, {});
    }
    void fill(uint32_t blocks, uint32_t entries) {
        for (uint32_t b = 0; b < blocks; b++)
            for (uint32_t i = 0; i <= entries; i++)
                put(b, i, std::string(1, static_cast<char>('a' + b)) + std::to_string(i));
        ASSERT_EQ(zekCfgCommit(db), 0);
    }
    lines unresolved() {
        lines all;
        auto add = [&](const zekCfgUnresolvedRow& row) { return all.emplace_back(row.text), true; };
        EXPECT_EQ(zekCfgWalkUnresolved(db, add), 0);
        return all;
    }
    // The task's part for as many messages as it gets, `most` at most.
    void serve(size_t most = SIZE_MAX) {
        for (bytes m(IPC_BUFFER_SIZE); most > 0; most--) {
            int n = zekIpcRecv(Key_getReqQueue(key), m.data(), m.size(), 0);
            if (n <= 0) return;
            auto* hdr = headerOf(m);
            if (hdr->mtype != MT_CLI_COMMAND) {
                got.push_back(std::to_string(hdr->mtype));
                continue;
            }
            auto* request = reinterpret_cast<cliHdr*>(m.data());
            const std::string text(listNameView(request->name));
            got.push_back(text);
            const uint8_t* area = zekCfgRestoring(db);
            ids.push_back(area ? uint32_t{reinterpret_cast<const cfgListKey*>(area)->order}
                               : 0xFFFFFFFF);
            if (text == unanswered) continue;
            request->result = answers.contains(text) ? answers[text] : 0;
            if (request->result == 0) put(request->code - 1000, request->cookie, text);
            (void)zekIpcReply(key, m.data(), static_cast<size_t>(n));
        }
    }
    void restore() {
        got.clear();
        cfgMgrRestore(db, place);
        serve();
        hostFlush();
    }
    void restart() {
        open();
        restore();
    }
    // What the task gets when it is tried again, asked for so many times.
    lines retry(int times = 1) {
        got.clear();
        for (; times > 0; times--) zekCfgRetryUnresolved();
        serve();
        return got;
    }
    void writeShell(const std::string& script) {
        std::filesystem::create_directory(place.programDir);
        const std::string file = place.programDir + "/aclsh";
        std::ofstream(file) << "#!/bin/sh\nDIR=" << run.path << "\necho \"$@\" >>$DIR/args\n"
                            << script << "\n";
        ASSERT_EQ(chmod(file.c_str(), 0755), 0);
    }
    // What the shell says of a file of lines; those that begin with "?" are no configuration.
    void compiled(const lines& all, bool ended = true) {
        std::ofstream out(run.path + "/compiled");
        for (size_t i = 0; i < all.size() + (ended ? 1 : 0); i++) {
            const std::string text = i < all.size() ? all[i] : "";
            const bool good = !text.empty() && text[0] != '?';
            const bytes body = good ? bodyOf(0, static_cast<uint32_t>(i), text) : bytes();
            cfgCompiledRow row;
            row.mtype = i == all.size() ? CFG_COMPILED_END : good ? uint32_t{MT_CLI_COMMAND} : 0;
            row.textLength = static_cast<uint32_t>(text.size());
            row.bodyLength = static_cast<uint32_t>(body.size());
            out.write(reinterpret_cast<const char*>(&row), sizeof row);
            out << text << std::string(body.begin(), body.end());
        }
    }
};

TEST_F(restoreTest, TheRecordsAreSentInOrderAndChangeNothing) {
    fill(3, 700);  // more than a page
    const uint64_t feed = zekCfgStatistics(db).feed;
    const lines all = shown(db);
    open();
    const int rows = sqlite3_total_changes(db->sql);
    cfgMgrRestore(db, place);
    // Others wait until the end.
    endpoint client(run.path, RP, CLIENT_PORT);
    client.send(request(7, MT_SHOW_IP_ACL));
    serve();
    lines expected = {std::to_string(MT_CFG_START_BLK_CFG_NOTIF)};
    for (const std::string& line : all)
        if (line != "!") expected.push_back(line);
    for (uint32_t last : {MT_CFG_END_BLK_CFG_NOTIF, MT_CFG_INIT_CFG_COMPLETE, MT_SHOW_IP_ACL})
        expected.push_back(std::to_string(last));
    EXPECT_TRUE(got == expected);
    EXPECT_EQ(ids[5], 5u) << "the place that its line has";
    hostFlush();
    EXPECT_EQ(sqlite3_total_changes(db->sql), rows);
    EXPECT_EQ(zekCfgStatistics(db).feed, feed) << "the feed was told when they were made";
    EXPECT_EQ(zekCfgStatistics(db).unresolved, 0u);
    // Rows of a damaged database, which no restart may wait for.
    ASSERT_EQ(cfgDbExec(db,
                        "INSERT INTO lines SELECT section + 8589934592, key, class, text, inverse,"
                        " record FROM lines WHERE record IS NOT NULL"),
              0);
    open();
    cfgMgrRestore(db, place);
    serve(10000);
    EXPECT_EQ(got.back(), std::to_string(MT_CFG_INIT_CFG_COMPLETE));
}

TEST_F(restoreTest, WhatIsRefusedIsKeptAndTriedAgainUntilItIsTakenSupersededOrDiscarded) {
    fill(3, 2);
    answers = {{"a1", ACL_E_NOENTRY}, {"b0", 5}, {"b1", 5}, {"b2", 5}, {"c2", 5}};
    unanswered = "c1";
    restart();
    EXPECT_EQ(unresolved(), (lines{"a1", "b0", "b1", "b2", "c1", "c2"}));
    EXPECT_EQ(shown(db), (lines{"!", "a0", "a2", "!", "c0"})) << "a block goes with its last line";
    open();
    EXPECT_EQ(zekCfgStatistics(db).unresolved, 6u);
    answers = {{"b1", 5}, {"b2", 5}, {"c2", ACL_E_STORE}};
    unanswered.clear();
    restart();
    EXPECT_EQ(unresolved(), (lines{"b1", "b2", "c2"}));
    EXPECT_EQ(shown(db), (lines{"!", "a0", "a1", "a2", "!", "b0", "!", "c0", "c1"}));
    EXPECT_EQ(ids.back(), 0xFFFFFFFF) << "its number may be another's by now";

    // A change of the same place settles it: another line there, or a removal of the block.
    put(1, 1, "b1 anew");
    (void)zekCfgRemoveNode(db, recordOf(2, 0, CFG_CLASS_SEPARATOR, "!"));
    ASSERT_EQ(zekCfgCommit(db), 0);
    EXPECT_EQ(unresolved(), lines{"b2"});

    // Whoever sees the chassis change has it tried again, without a hold and the notifications.
    EXPECT_EQ(retry(2), (lines{"b2", "b2"})) << "what was asked for meanwhile is done after it";
    answers.clear();
    (void)retry();
    EXPECT_EQ(unresolved(), lines{});
    EXPECT_EQ(shown(db), (lines{"!", "a0", "a1", "a2", "!", "b0", "b1 anew", "b2"}));
    EXPECT_EQ(retry(), lines{});

    answers = {{"a0", 5}, {"a1", 5}, {"a2", 5}};
    restart();
    EXPECT_EQ(zekCfgDiscardUnresolved(db, 99), 0);
    uint64_t first = 0;
    auto takeFirst = [&](const zekCfgUnresolvedRow& r) { return first = r.id, false; };
    (void)zekCfgWalkUnresolved(db, takeFirst);
    EXPECT_EQ(zekCfgDiscardUnresolved(db, first), 1);
    EXPECT_EQ(unresolved(), (lines{"a1", "a2"}));
    EXPECT_EQ(zekCfgDiscardUnresolved(db, 0), 2);
}

TEST_F(restoreTest, WhatIsDiscardedInTheMiddleOfARetryIsNotTried) {
    fill(1, 2);
    answers = {{"a0", 5}, {"a1", 5}};
    ASSERT_EQ(cfgDbExec(db,
                        "INSERT INTO lines VALUES(100, x'01', 150, 'damaged', NULL, x'0000');"
                        "UPDATE lines SET record=x'0000' WHERE text='a2'"),
              0);
    restart();
    EXPECT_EQ(unresolved().size(), 4u) << "a record that nobody can read is no line in force";
    EXPECT_EQ(shown(db), lines{});
    answers.clear();
    got.clear();
    zekCfgRetryUnresolved();
    serve(1);
    EXPECT_EQ(zekCfgDiscardUnresolved(db, 0), 3);
    serve();
    EXPECT_EQ(got, lines{"a0"});
}

TEST_F(restoreTest, AStartupConfigurationIsReadOnceAndUntilThatHasWorked) {
    std::ofstream(run.path + "/startup-config") << "saved\n";
    // A shell that dies, one that fails, and those that are cut off.
    compiled({"a0"}, false);
    writeShell("cat $DIR/compiled; case $(wc -l <$DIR/args) in 1) kill -9 $$;; 2) exit 2;; esac");
    for (bool tried : {false, true}) {
        EXPECT_TRUE(!tried || !cfgMgrImport(db, place));
        EXPECT_EQ(cfgDbImport(db), CFG_IMPORT_STARTUP) << "of a first start, or of the next one";
    }
    put(5, 0, "f0");  // answered meanwhile
    ASSERT_EQ(zekCfgCommit(db), 0);

    compiled({"a0", "?what", "a2"});
    writeShell("cat $DIR/compiled; exit 1");
    open();
    ASSERT_TRUE(cfgMgrImport(db, place));
    EXPECT_EQ(cfgDbImport(db), CFG_IMPORT_DONE);
    EXPECT_TRUE(contentOf(run.path + "/args")
                    .starts_with("--rundir " + run.path + " --chassis " + run.path +
                                 "/chassis.json --rp 0 --compile -f " + run.path +
                                 "/startup-config\n"));
    restore();
    ASSERT_TRUE(cfgMgrImport(db, place)) << "it is read once";
    EXPECT_EQ(shown(db), (lines{"!", "a0", "a2", "!", "f0"}));
    EXPECT_EQ(unresolved(), lines{"?what"});

    ASSERT_EQ(cfgDbForget(db), 0);  // a cold start
    EXPECT_EQ(shown(db), lines{});
    EXPECT_EQ(cfgDbImport(db), CFG_IMPORT_STARTUP);
    std::filesystem::remove(run.path + "/startup-config");
    ASSERT_TRUE(cfgMgrImport(db, place)) << "nothing to read is no failure";
}

TEST_F(restoreTest, ADatabaseWithoutRecordsIsReadByItsTexts) {
    ASSERT_EQ(
        cfgDbExec(db,
                  "DROP TABLE lines; DROP TABLE unresolved; CREATE TABLE lines(section INTEGER NOT "
                  "NULL, key BLOB NOT NULL, class INTEGER NOT NULL, text TEXT NOT NULL, inverse "
                  "TEXT, PRIMARY KEY(section, key, class)) WITHOUT ROWID;"
                  "CREATE TABLE previous AS SELECT * FROM lines;"
                  "INSERT INTO lines VALUES(100, x'01', 150, 'half', NULL);"
                  "INSERT INTO previous VALUES(79, x'01', 152, ' shown', ' typed'),"
                  "(100, x'02', 150, 'normal', 'inverse'), (100, x'03', 150, '', NULL);"
                  "DELETE FROM meta; INSERT INTO meta VALUES('restore', 1), ('previousMask', 1);"
                  "PRAGMA user_version=2"),
        0);
    open();
    ASSERT_EQ(cfgDbImport(db), CFG_IMPORT_TEXTS);
    compiled({"a0"});
    writeShell("while [ $# -gt 1 ]; do shift; done; cat \"$1\" >$DIR/text; cat $DIR/compiled");
    ASSERT_TRUE(cfgMgrImport(db, place));
    EXPECT_EQ(contentOf(run.path + "/text"), " typed\ninverse\n");
    restore();
    EXPECT_EQ(shown(db), (lines{"!", "a0"}));
}

}  // namespace
