// The configuration database: order, replacement, removal, durability, the change feed.
#include "platform/base/cfgdb.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "common/cfgkeys.h"
#include "tests/platform/hostTest.h"

namespace {

using lines = std::vector<std::string>;
using dbPtr = std::unique_ptr<zekCfgDb, void (*)(zekCfgDb*)>;

dbPtr openDb(const char* directory, zekCfgAccess access = zekCfgAccess::write) {
    return {zekCfgOpen(directory, access, ZEK_CFG_FILE, CFG_LAYOUT), zekCfgClose};
}

lines shown(zekCfgDb* db) {
    lines all;
    EXPECT_EQ(zekCfgWalk(db,
                         [&](std::string_view line) {
                             all.emplace_back(line);
                             return true;
                         }),
              0);
    return all;
}

zekCfgRecord makeLine(uint32_t section, const std::string& name, uint32_t order, uint32_t lineClass,
                      const std::string& text, const std::string& inverse) {
    zekCfgRecord record{};
    auto* key = reinterpret_cast<cfgListKey*>(record.key);
    std::memcpy(key->name, name.data(), name.size());
    key->kind = order != 0 ? 1 : 0;
    key->order = order;
    record.section = section;
    record.lineClass = lineClass;
    std::strncpy(record.text, text.c_str(), CFG_TEXT_LEN - 1);
    std::strncpy(record.inverseText, inverse.c_str(), CFG_TEXT_LEN - 1);
    return record;
}
zekCfgRecord entryLine(uint32_t seq) {
    const std::string text = "seq " + std::to_string(seq);
    return makeLine(CFG_SECTION_IP, "a", seq + 1, CFG_CLASS_LINE, " " + text, " inverse " + text);
}
void addEntries(zekCfgDb* db, uint32_t from, uint32_t to) {
    for (uint32_t i = from; i <= to; i++) ASSERT_EQ(zekCfgInsertBothLine(db, entryLine(i)), 0);
}

TEST(cfgKey, StoredKeysSortAsTheirAreasDo) {
    using area = std::array<uint8_t, CFG_KEY_LEN>;
    std::mt19937 random(11);
    std::vector<area> areas(2);
    areas[1].fill(0xFF);
    for (int i = 0; i < 300; i++) {
        area a{};
        // Runs of one byte, zeros among them, of lengths around the 255 that one run can say.
        for (size_t at = 0; at < a.size();) {
            size_t run = random() % 3 == 0 ? 250 + random() % 7 : 1 + random() % 40;
            auto byte = static_cast<uint8_t>(random() % 3 == 0 ? random() : 0);
            for (; run > 0 && at < a.size(); run--) a[at++] = byte;
        }
        areas.push_back(a);
        // A neighbour that differs in one byte only.
        a[random() % a.size()] = static_cast<uint8_t>(random() % 3);
        areas.push_back(a);
    }
    auto stored = [](const area& a) {
        uint8_t bytes[CFG_STORED_KEY_MAX];
        return std::string(reinterpret_cast<char*>(bytes), cfgKeyStore(a.data(), bytes));
    };
    for (const area& a : areas)
        for (const area& b : areas) ASSERT_EQ(a < b, stored(a) < stored(b));
    EXPECT_EQ(stored(area{}).size(), 4u) << "256 zero bytes are two runs";
}

// Lines with keys of few shapes, so that places are met again and blocks have neighbours.
struct model {
    using place = std::tuple<uint32_t, std::string, uint32_t>;  // section, key area, class
    std::map<place, std::pair<std::string, std::string>> nodes;

    static place of(const zekCfgRecord& r) {
        return {r.section, std::string(reinterpret_cast<const char*>(r.key), CFG_KEY_LEN),
                r.lineClass};
    }
    size_t removeBlock(const zekCfgRecord& r) {
        const size_t front = r.section == CFG_SECTION_INTERFACE ? 4
                             : r.section == CFG_SECTION_RMAP    ? 144
                                                                : 141;
        return std::erase_if(nodes, [&](const auto& node) {
            return std::get<0>(node.first) == r.section &&
                   std::memcmp(std::get<1>(node.first).data(), r.key, front) == 0;
        });
    }
    lines shownIn(bool inverse) const {
        lines all;
        for (const auto& [where, texts] : nodes) {
            const std::string& text = inverse ? texts.second : texts.first;
            if (!text.empty()) all.push_back(text);
        }
        return all;
    }
};

TEST(cfgDb, RandomChangesAgreeWithAModelInBothModesAndAfterReopening) {
    runFolder run;
    dbPtr db = openDb(run.path.c_str());
    ASSERT_NE(db, nullptr);
    model expected;
    std::mt19937 random(5);
    const std::string names[] = {"",    "a", "ab", std::string("a\0b", 3), std::string(140, 'z'),
                                 "\xff"};
    const uint32_t sections[] = {CFG_SECTION_IP, CFG_SECTION_RMAP, CFG_SECTION_INTERFACE,
                                 CFG_SECTION_TRACE_LIST};
    for (int step = 0; step < 4000; step++) {
        zekCfgRecord r =
            makeLine(sections[random() % 4], names[random() % 6], uint32_t(random() % 40),
                     random() % 2 ? CFG_CLASS_SEPARATOR : CFG_CLASS_LINE, "", "");
        r.key[0] = random() % 4 == 0 ? 0xFF : 0;
        std::string text = random() % 8 == 0 ? "" : "line " + std::to_string(step);
        std::string inverse = random() % 2 == 0 ? text : "inverse " + std::to_string(step);
        std::strcpy(r.text, text.c_str());
        std::strcpy(r.inverseText, inverse.c_str());
        const auto what = random() % 16;
        if (what == 0) {
            EXPECT_EQ(zekCfgRemoveNode(db.get(), r), expected.removeBlock(r) > 0 ? 0 : -1);
        } else if (what <= 3) {
            const bool known = expected.nodes.erase(model::of(r)) > 0;
            EXPECT_EQ(zekCfgRemoveExact(db.get(), r), known ? 0 : -1);
        } else if (what == 4) {
            ASSERT_EQ(zekCfgCommit(db.get()), 0);
        } else {
            const bool alone = what == 5;
            ASSERT_EQ((alone ? zekCfgInsert : zekCfgInsertBothLine)(db.get(), r, {}), 0);
            expected.nodes[model::of(r)] = {text, alone ? text : inverse};
        }
        ASSERT_EQ(zekCfgStatistics(db.get()).lines, expected.nodes.size()) << step;
    }
    ASSERT_GT(expected.nodes.size(), 300u) << "more than a page, else the walk is not tried";
    for (uint32_t inverse : {0u, 1u}) {
        zekCfgSetMaskMode(db.get(), inverse);
        EXPECT_EQ(shown(db.get()), expected.shownIn(inverse != 0));
    }
    ASSERT_EQ(zekCfgCommit(db.get()), 0);
    db = openDb(run.path.c_str());
    EXPECT_EQ(zekCfgMaskMode(db.get()), 1u);
    EXPECT_EQ(shown(db.get()), expected.shownIn(true));
    EXPECT_EQ(zekCfgStatistics(db.get()).lines, expected.nodes.size());

    ASSERT_EQ(zekCfgWriteStartup(db.get(), (run.path + "/saved").c_str()), 0);
    std::string savedText;
    for (const std::string& line : expected.shownIn(true)) savedText += line + "\n";
    EXPECT_EQ(contentOf(run.path + "/saved"), savedText);
}

TEST(cfgDb, TextsWithoutATerminatorAreCutAtTheirFields) {
    dbPtr db = openDb(nullptr);
    zekCfgRecord r = entryLine(1);
    std::memset(r.text, 't', CFG_TEXT_LEN);
    std::memset(r.inverseText, 'i', CFG_TEXT_LEN);
    ASSERT_EQ(zekCfgInsertBothLine(db.get(), r), 0);
    EXPECT_EQ(shown(db.get()), lines{std::string(CFG_TEXT_LEN, 't')});
    zekCfgSyncRecord change{};
    std::memset(change.name, 'n', sizeof change.name);
    std::memset(change.text, 'c', sizeof change.text);
    EXPECT_EQ(zekCfgSync(db.get(), change), 0);
    auto isWhole = [](const zekCfgFeedRow& row) {
        EXPECT_EQ(row.name, std::string(140, 'n'));
        EXPECT_EQ(row.text, std::string(256, 'c'));
        return true;
    };
    EXPECT_EQ(zekCfgFeed(db.get(), 0, isWhole), 0);
}

TEST(cfgDb, AReaderSeesWhatIsCommittedAndOneInstantOfIt) {
    runFolder run;
    EXPECT_EQ(openDb(run.path.c_str(), zekCfgAccess::read), nullptr) << "reading makes no file";
    EXPECT_FALSE(std::filesystem::exists(run.path + "/running.db"));
    dbPtr writer = openDb(run.path.c_str());
    addEntries(writer.get(), 1, 1000);
    dbPtr reader = openDb(run.path.c_str(), zekCfgAccess::read);
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(zekCfgIsDirty(writer.get()));
    EXPECT_EQ(shown(reader.get()), lines{});
    EXPECT_EQ(shown(writer.get()).size(), 1000u) << "own changes are seen";
    ASSERT_EQ(zekCfgCommit(writer.get()), 0);
    EXPECT_FALSE(zekCfgIsDirty(writer.get()));
    EXPECT_EQ(zekCfgCommit(writer.get()), 0) << "nothing to do";
    EXPECT_EQ(zekCfgStatistics(writer.get()).commits, 1u);

    size_t seen = 0;
    auto changedMeanwhile = [&](std::string_view) {
        if (++seen != 10) return true;
        EXPECT_EQ(zekCfgRemoveNode(writer.get(), entryLine(1)), 0);
        zekCfgSetMaskMode(writer.get(), 1);
        return zekCfgCommit(writer.get()) == 0;
    };
    EXPECT_EQ(zekCfgWalk(reader.get(), changedMeanwhile), 0);
    EXPECT_EQ(seen, 1000u);
    EXPECT_EQ(shown(reader.get()), lines{});
    EXPECT_EQ(zekCfgMaskMode(reader.get()), 1u);
    EXPECT_EQ(zekCfgInsert(reader.get(), entryLine(1)), -1);
}

TEST(cfgDb, AWalkMayChangeWhatItWalksAndStops) {
    dbPtr db = openDb(nullptr);
    addEntries(db.get(), 1, 600);
    uint32_t seen = 0;
    auto removeIt = [&](std::string_view) {
        EXPECT_EQ(zekCfgRemoveExact(db.get(), entryLine(++seen)), 0);
        return seen < 500;
    };
    EXPECT_EQ(zekCfgWalk(db.get(), removeIt), 0);
    EXPECT_EQ(seen, 500u);
    EXPECT_EQ(shown(db.get()).size(), 100u);
}

TEST(cfgDb, AFailedCommitLosesNothing) {
    runFolder run;
    dbPtr db = openDb(run.path.c_str());
    addEntries(db.get(), 1, 1);
    ASSERT_EQ(zekCfgCommit(db.get()), 0);

    cfgDbSetReport([](const char*) {});
    // A commit hook that refuses makes SQLite roll the whole transaction back, as a full disk does.
    sqlite3_commit_hook(
        db->sql, [](void*) { return 1; }, nullptr);
    addEntries(db.get(), 2, 2);
    ASSERT_EQ(zekCfgRemoveExact(db.get(), entryLine(1)), 0);
    zekCfgSetMaskMode(db.get(), 1);
    EXPECT_TRUE(zekCfgWritable(db.get()));
    EXPECT_EQ(zekCfgCommit(db.get()), -1);
    EXPECT_FALSE(zekCfgWritable(db.get()));
    EXPECT_TRUE(zekCfgIsDirty(db.get()));
    // What comes all the same is kept too, and no attempt is made before its time.
    addEntries(db.get(), 3, 3);
    zekCfgSyncRecord change{};
    ASSERT_EQ(zekCfgSync(db.get(), change), 0);
    EXPECT_EQ(zekCfgCommit(db.get()), -1);
    EXPECT_EQ(zekCfgStatistics(db.get()).failedCommits, 1u);
    sqlite3_commit_hook(db->sql, nullptr, nullptr);
    while (zekCfgCommit(db.get()) != 0) usleep(1000);
    cfgDbSetReport(nullptr);

    EXPECT_TRUE(zekCfgWritable(db.get()));
    zekCfgStats stats = zekCfgStatistics(db.get());
    EXPECT_EQ(stats.failedCommits, 1u);
    EXPECT_EQ(stats.lines, 2u);
    EXPECT_EQ(stats.feed, 1u);
    dbPtr reader = openDb(run.path.c_str(), zekCfgAccess::read);
    EXPECT_EQ(shown(reader.get()), (lines{" inverse seq 2", " inverse seq 3"}));
}

// With a cache of a few pages, pages of an open transaction go to the log and are written again.
TEST(cfgDb, ATransactionLargerThanTheCacheIsReadWhole) {
    runFolder run;
    dbPtr db = openDb(run.path.c_str());
    ASSERT_EQ(cfgDbExec(db.get(), "PRAGMA cache_size=10; PRAGMA wal_autocheckpoint=0"), 0);
    std::mt19937 random(3);
    std::vector<uint32_t> numbers(6000);
    std::iota(numbers.begin(), numbers.end(), 1);
    std::shuffle(numbers.begin(), numbers.end(), random);
    for (size_t i = 0; i < numbers.size(); i++) {
        ASSERT_EQ(zekCfgInsertBothLine(db.get(), entryLine(numbers[i])), 0);
        // Small transactions and large ones behind them.
        if (i % 2000 == 1999 || i % 2000 < 5) {
            ASSERT_EQ(zekCfgCommit(db.get()), 0);
        }
    }
    // As another process finds it after a crash of this one.
    runFolder copy;
    for (const char* file : {"running.db", "running.db-wal"})
        std::filesystem::copy_file(run.path + "/" + file, copy.path + "/" + file);
    for (const runFolder* folder : {&run, &copy}) {
        dbPtr reader = openDb(folder->path.c_str());
        lines all = shown(reader.get());
        ASSERT_EQ(all.size(), numbers.size());
        EXPECT_EQ(all.back(), " seq 6000");
    }
}

TEST(cfgDb, TheFeedKeepsTheNewestChangesInOrder) {
    runFolder run;
    dbPtr db = openDb(run.path.c_str());
    const uint32_t total = ZEK_CFG_FEED_KEEP + 1500;
    auto add = [&](uint32_t i) {
        zekCfgSyncRecord change{};
        change.kind = i;
        std::snprintf(change.text, sizeof change.text, "no  seq %u", i);
        return zekCfgSync(db.get(), change);
    };
    for (uint32_t i = 1; i <= total; i++) ASSERT_EQ(add(i), 0);
    ASSERT_EQ(zekCfgCommit(db.get()), 0);
    db = openDb(run.path.c_str());
    uint64_t kept = zekCfgStatistics(db.get()).feed;
    EXPECT_GE(kept, ZEK_CFG_FEED_KEEP);
    EXPECT_LT(kept, ZEK_CFG_FEED_KEEP + 1000);
    uint64_t next = total - kept + 1;
    auto follow = [&](const zekCfgFeedRow& row) {
        EXPECT_EQ(row.seq, next);
        EXPECT_EQ(row.kind, next);
        EXPECT_EQ(row.text, "no  seq " + std::to_string(next));
        next++;
        return !testing::Test::HasFailure();
    };
    EXPECT_EQ(zekCfgFeed(db.get(), 0, follow), 0);
    EXPECT_EQ(next, total + 1);
    next = total - 1;
    EXPECT_EQ(zekCfgFeed(db.get(), total - 2, follow), 0);
    ASSERT_EQ(add(total + 1), 0);
    EXPECT_EQ(zekCfgFeed(db.get(), total, follow), 0);
    EXPECT_EQ(next, total + 2);
}

TEST(cfgDb, TheStartupConfigurationIsWrittenWholeOrNotAtAll) {
    runFolder run;
    dbPtr db = openDb(nullptr);
    addEntries(db.get(), 1, 2);
    std::string file = run.path + "/startup-config";
    ASSERT_EQ(zekCfgWriteStartup(db.get(), file.c_str()), 0);
    EXPECT_EQ(contentOf(file), " seq 1\n seq 2\n");
    addEntries(db.get(), 3, 3);
    std::filesystem::create_directory(file + ".tmp");  // in the way
    EXPECT_EQ(zekCfgWriteStartup(db.get(), file.c_str()), -1);
    EXPECT_EQ(contentOf(file), " seq 1\n seq 2\n");
    EXPECT_EQ(zekCfgWriteStartup(db.get(), (run.path + "/none/file").c_str()), -1);
}

std::string lastReport;
TEST(cfgDb, AFileThatIsNoDatabaseIsRefusedWithAReasonAndNotTouched) {
    runFolder run;
    cfgDbSetReport([](const char* text) { lastReport = text; });
    std::ofstream(run.path + "/running.db") << std::string(20000, 'x');
    EXPECT_EQ(openDb(run.path.c_str()), nullptr);
    EXPECT_NE(lastReport.find("not a database"), lastReport.npos) << lastReport;
    EXPECT_EQ(std::filesystem::file_size(run.path + "/running.db"), 20000u);
    EXPECT_EQ(openDb((run.path + "/none").c_str()), nullptr);
    cfgDbSetReport(nullptr);
}

}  // namespace
