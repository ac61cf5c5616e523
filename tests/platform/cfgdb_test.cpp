// The configuration database: order, replacement, removal, durability, the change feed.
#include "platform/base/cfgdb.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <random>
#include <tuple>

#include "common/cfgkeys.h"
#include "tests/platform/hostTest.h"

namespace {

typedef std::unique_ptr<zekCfgDb, void (*)(zekCfgDb*)> dbPtr;
dbPtr openDb(const char* directory, zekCfgAccess access = zekCfgAccess::write) {
    return {zekCfgOpen(directory, access, ZEK_CFG_FILE, CFG_LAYOUT), zekCfgClose};
}

zekCfgRecord entryLine(uint32_t seq) {
    const std::string text = "seq " + std::to_string(seq);
    return makeLine(CFG_SECTION_IP, "a", seq + 1, CFG_CLASS_LINE, " " + text, " inverse " + text);
}

class cfgDb : public testing::Test {
  protected:
    runFolder run;
    dbPtr db = openDb(run.path.c_str());

    void add(uint32_t from, uint32_t to) {
        for (uint32_t i = from; i <= to; i++)
            ASSERT_EQ(zekCfgInsertBothLine(db.get(), entryLine(i)), 0);
    }
    void commit() { ASSERT_EQ(zekCfgCommit(db.get()), 0); }
    dbPtr reader() { return openDb(run.path.c_str(), zekCfgAccess::read); }
};

// Lines with keys of few shapes, so that places are met again and blocks have neighbours.
struct model {
    typedef std::tuple<uint32_t, std::string, uint32_t> place;  // section, key area, class
    std::map<place, std::pair<std::string, std::string>> nodes;
    uint32_t inverse = 0;

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
    lines shown() const {
        lines all;
        for (const auto& [where, texts] : nodes) {
            const std::string& text = inverse != 0 ? texts.second : texts.first;
            if (!text.empty()) all.push_back(text);
        }
        return all;
    }
};

TEST_F(cfgDb, RandomChangesAgreeWithAModelForTheWriterForAReaderAndAfterReopening) {
    const dbPtr other = reader();
    model now, committed;
    std::mt19937 random(5);
    const std::string names[] = {"",    "a", "ab", std::string("a\0b", 3), std::string(140, 'z'),
                                 "\xff"};
    const uint32_t sections[] = {CFG_SECTION_IP, CFG_SECTION_RMAP, CFG_SECTION_INTERFACE,
                                 CFG_SECTION_TRACE_LIST};
    // Keys that are runs of one byte, zeros among them, of lengths around the 255 that one run can
    // say; each with a neighbour that differs in one byte.
    std::vector<std::array<uint8_t, CFG_KEY_LEN>> areas(2);
    areas[1].fill(0xFF);
    for (auto area = areas[0]; areas.size() < 100; area.fill(0)) {
        for (size_t at = 0; at < area.size();) {
            size_t length = random() % 3 == 0 ? 250 + random() % 7 : 1 + random() % 40;
            const auto byte = static_cast<uint8_t>(random() % 3 == 0 ? random() : 0);
            for (; length > 0 && at < area.size(); length--) area[at++] = byte;
        }
        areas.push_back(area);
        area[random() % area.size()] = static_cast<uint8_t>(random() % 3);
        areas.push_back(area);
    }
    uint8_t stored[CFG_STORED_KEY_MAX];
    EXPECT_EQ(cfgKeyStore(areas[0].data(), stored), 4u) << "256 zero bytes are two runs";
    for (int step = 0; step < 4000; step++) {
        std::string text = random() % 8 == 0 ? "" : "line " + std::to_string(step);
        if (random() % 100 == 0) text.resize(CFG_TEXT_LEN, 't');  // no terminator
        std::string inverse = random() % 2 == 0 ? text : "inverse " + std::to_string(step);
        zekCfgRecord r =
            makeLine(sections[random() % 4], names[random() % 6], uint32_t(random() % 40),
                     random() % 2 ? CFG_CLASS_SEPARATOR : CFG_CLASS_LINE, text, inverse);
        r.key[0] = random() % 4 == 0 ? 0xFF : 0;
        if (random() % 3 == 0) std::ranges::copy(areas[random() % areas.size()], r.key);
        const auto what = random() % 16;
        if (what == 0) {
            EXPECT_EQ(zekCfgRemoveNode(db.get(), r), now.removeBlock(r) > 0 ? 0 : -1);
        } else if (what <= 3) {
            EXPECT_EQ(zekCfgRemoveExact(db.get(), r), now.nodes.erase(model::of(r)) > 0 ? 0 : -1);
        } else if (what == 4) {
            commit();
            committed = now;
        } else if (what == 5 && step % 8 == 0) {
            zekCfgSetMaskMode(db.get(), now.inverse ^= 1);
        } else {
            const bool alone = what == 5;
            ASSERT_EQ((alone ? zekCfgInsert : zekCfgInsertBothLine)(db.get(), r, {}), 0);
            now.nodes[model::of(r)] = {text, alone ? text : inverse};
        }
        ASSERT_EQ(zekCfgStatistics(db.get()).lines, now.nodes.size()) << step;
        if (step % 100 != 0) continue;
        ASSERT_EQ(shown(db.get()), now.shown());
        ASSERT_EQ(shown(other.get()), committed.shown());
        ASSERT_EQ(zekCfgMaskMode(other.get()), committed.inverse);
    }
    ASSERT_GT(now.nodes.size(), 300u) << "more than a page, else the walk is not tried";
    commit();
    db = openDb(run.path.c_str());
    EXPECT_EQ(shown(db.get()), now.shown());
    EXPECT_EQ(zekCfgStatistics(db.get()).lines, now.nodes.size());

    const std::string file = run.path + "/startup-config";
    ASSERT_EQ(zekCfgWriteStartup(db.get(), file.c_str()), 0);
    std::string saved;
    for (const std::string& line : now.shown()) saved += line + "\n";
    EXPECT_EQ(contentOf(file), saved);
    add(1, 1);
    std::filesystem::create_directory(file + ".tmp");  // in the way
    EXPECT_EQ(zekCfgWriteStartup(db.get(), file.c_str()), -1);
    EXPECT_EQ(contentOf(file), saved) << "written whole or not at all";
}

TEST_F(cfgDb, AWalkSeesOneInstantForAReaderAndMayChangeWhatItWalks) {
    add(1, 1000);
    EXPECT_TRUE(zekCfgIsDirty(db.get()));
    commit();
    EXPECT_FALSE(zekCfgIsDirty(db.get()));
    commit();
    EXPECT_EQ(zekCfgStatistics(db.get()).commits, 1u) << "there was nothing to do";
    const dbPtr other = reader();
    uint32_t seen = 0;
    auto changedMeanwhile = [&](std::string_view) {
        if (++seen != 10) return true;
        EXPECT_EQ(zekCfgRemoveNode(db.get(), entryLine(1)), 0);
        return zekCfgCommit(db.get()) == 0;
    };
    EXPECT_EQ(zekCfgWalk(other.get(), changedMeanwhile), 0);
    EXPECT_EQ(seen, 1000u);
    EXPECT_EQ(shown(other.get()), lines{});
    EXPECT_EQ(zekCfgInsert(other.get(), entryLine(1)), -1);

    add(1, 600);
    seen = 0;
    auto removeIt = [&](std::string_view) {
        EXPECT_EQ(zekCfgRemoveExact(db.get(), entryLine(++seen)), 0);
        return seen < 500;
    };
    EXPECT_EQ(zekCfgWalk(db.get(), removeIt), 0);
    EXPECT_EQ(seen, 500u);
    EXPECT_EQ(shown(db.get()).size(), 100u);
}

TEST_F(cfgDb, AFailedCommitLosesNothing) {
    add(1, 1);
    commit();
    cfgDbSetReport([](const char*) {});
    // A commit hook that refuses makes SQLite roll the whole transaction back, as a full disk does.
    sqlite3_commit_hook(
        db->sql, [](void*) { return 1; }, nullptr);
    add(2, 2);
    ASSERT_EQ(zekCfgRemoveExact(db.get(), entryLine(1)), 0);
    zekCfgSetMaskMode(db.get(), 1);
    for (int more : {0, 1}) {
        EXPECT_EQ(zekCfgWritable(db.get()), more == 0);
        // What comes all the same is kept too, and no attempt is made before its time.
        if (more != 0) add(3, 3);
        EXPECT_TRUE(more == 0 || zekCfgSync(db.get(), {}) == 0);
        EXPECT_EQ(zekCfgCommit(db.get()), -1);
        EXPECT_TRUE(zekCfgIsDirty(db.get()));
    }
    sqlite3_commit_hook(db->sql, nullptr, nullptr);
    for (int i = 0; i < 10000 && zekCfgCommit(db.get()) != 0; i++) usleep(1000);
    cfgDbSetReport(nullptr);

    EXPECT_TRUE(zekCfgWritable(db.get()));
    const zekCfgStats stats = zekCfgStatistics(db.get());
    EXPECT_EQ(stats.failedCommits, 1u);
    EXPECT_EQ(stats.lines, 2u);
    EXPECT_EQ(stats.feed, 1u);
    EXPECT_EQ(shown(reader().get()), (lines{" inverse seq 2", " inverse seq 3"}));
}

// With a cache of a few pages, pages of an open transaction go to the log and are written again.
TEST_F(cfgDb, ATransactionLargerThanTheCacheIsReadWhole) {
    ASSERT_EQ(cfgDbExec(db.get(), "PRAGMA cache_size=10; PRAGMA wal_autocheckpoint=0"), 0);
    std::vector<uint32_t> numbers = upTo(6000);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(3));
    for (size_t i = 0; i < numbers.size(); i++) {
        add(numbers[i], numbers[i]);
        // Small transactions and large ones behind them.
        if (i % 2000 == 1999 || i % 2000 < 5) commit();
    }
    // As another process finds it after a crash of this one.
    runFolder copy;
    for (const char* file : {"/running.db", "/running.db-wal"})
        std::filesystem::copy_file(run.path + file, copy.path + file);
    for (const runFolder* folder : {&run, &copy}) {
        const lines all = shown(openDb(folder->path.c_str()).get());
        ASSERT_EQ(all.size(), numbers.size());
        EXPECT_EQ(all.back(), " seq 6000");
    }
}

TEST_F(cfgDb, TheFeedKeepsTheNewestChangesInOrder) {
    uint64_t last = 0, next = 0;
    auto change = [&] {
        zekCfgSyncRecord c{};
        c.kind = static_cast<uint32_t>(++last);
        std::memset(c.name, 'n', last % sizeof c.name + 1);  // also without a terminator
        std::memset(c.text, 'c', last % sizeof c.text + 1);
        ASSERT_EQ(zekCfgSync(db.get(), c), 0);
    };
    auto follow = [&](uint64_t from) {
        next = from + 1;
        EXPECT_EQ(zekCfgFeed(db.get(), from,
                             [&](const zekCfgFeedRow& row) {
                                 EXPECT_EQ(row.seq, next);
                                 EXPECT_EQ(row.kind, next);
                                 EXPECT_EQ(row.name, std::string(next % 140 + 1, 'n'));
                                 EXPECT_EQ(row.text, std::string(next++ % 256 + 1, 'c'));
                                 return !HasFailure();
                             }),
                  0);
        EXPECT_EQ(next, last + 1);
    };
    while (last < ZEK_CFG_FEED_KEEP + 1500) change();
    commit();
    db = openDb(run.path.c_str());
    const uint64_t kept = zekCfgStatistics(db.get()).feed;
    EXPECT_GE(kept, ZEK_CFG_FEED_KEEP);
    EXPECT_LT(kept, ZEK_CFG_FEED_KEEP + 1000);
    follow(last - kept);
    follow(last - 2);
    change();
    follow(last - 1);
}

}  // namespace
