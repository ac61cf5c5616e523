// The change feed: the newest changes, numbered.
//
// A commit's changes are one row, as a row of its own for each would cost every commit more than
// the lines do: feed(seq, changes), seq being the number of the row's first change. A change in it
// is its kind (4 bytes, big-endian), the lengths of its name and text (2 bytes each), name, text.
#include <algorithm>
#include <cstring>
#include <vector>

#include "include/wire.h"
#include "platform/base/cfgdb.h"

namespace {

constexpr uint64_t FEED_SLACK = 256;  // changes that may be too many before the feed is trimmed
constexpr size_t ROW_BYTES_MAX = 16 << 10;  // then a large batch begins another row
constexpr int PAGE_ROWS = 32;               // rows of a walk that are in memory at a time

struct feedHead {
    be32 kind;
    be16 nameLength, textLength;
};
static_assert(sizeof(feedHead) == 8);

// Calls fn(kind, name, text) with every change of a row. False when fn ended it or the row does.
template <class Fn>
bool eachChange(std::string_view changes, Fn fn) {
    feedHead head;
    while (changes.size() >= sizeof head) {
        std::memcpy(&head, changes.data(), sizeof head);
        changes.remove_prefix(sizeof head);
        size_t name = head.nameLength, text = head.textLength;
        if (changes.size() < name + text) return false;
        if (!fn(head.kind, changes.substr(0, name), changes.substr(name, text))) return false;
        changes.remove_prefix(name + text);
    }
    return changes.empty();
}

// The number behind the last change of a row.
uint64_t rowEnd(uint64_t seq, std::string_view changes) {
    (void)eachChange(changes, [&](uint32_t, std::string_view, std::string_view) { return ++seq; });
    return seq;
}

// Whole rows go, so the feed may keep a part of a row more than it must.
void trim(zekCfgDb* db) {
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_FEED_ROW_OF);
    if (s == nullptr) return;  // the next commit tries again
    sqlite3_bind_int64(s, 1, static_cast<int64_t>(db->now.feedLast + 1 - ZEK_CFG_FEED_KEEP));
    int64_t first = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : 0;
    sqlite3_reset(s);
    s = cfgDbStatement(db, CFG_STMT_FEED_TRIM);
    if (s == nullptr) return;
    sqlite3_bind_int64(s, 1, first);
    if (cfgDbRun(db, s, "the change feed was not trimmed") > 0)
        db->now.feedFirst = static_cast<uint64_t>(first);
}

}  // namespace

int cfgFeedAdd(zekCfgDb* db, uint32_t kind, std::string_view name, std::string_view text) {
    if (db->feedPending.size() >= ROW_BYTES_MAX && cfgFeedStore(db) != 0) return -1;
    feedHead head;
    head.kind = kind;
    head.nameLength = static_cast<uint16_t>(name.size());
    head.textLength = static_cast<uint16_t>(text.size());
    db->feedPending.append(reinterpret_cast<const char*>(&head), sizeof head);
    db->feedPending.append(name).append(text);
    db->now.feedLast++;
    db->feedPendingCount++;
    return 0;
}

int cfgFeedStore(zekCfgDb* db) {
    if (db->feedPendingCount == 0) return 0;
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_FEED);
    if (s == nullptr) return -1;
    sqlite3_bind_int64(s, 1, static_cast<int64_t>(db->now.feedLast + 1 - db->feedPendingCount));
    cfgBindBlob(s, 2, db->feedPending);
    if (cfgDbRun(db, s, "the changes were not added to the feed") < 0) return -1;
    cfgFeedForget(db);
    if (db->now.feedLast - db->now.feedFirst >= ZEK_CFG_FEED_KEEP + FEED_SLACK) trim(db);
    return 0;
}

void cfgFeedForget(zekCfgDb* db) {
    db->feedPending.clear();
    db->feedPendingCount = 0;
}

int cfgFeedCount(zekCfgDb* db) {
    db->now.feedFirst = 1;
    db->now.feedLast = 0;
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_FEED_ENDS);
    if (s == nullptr) return -1;
    int rc = sqlite3_step(s);
    if (rc == SQLITE_ROW) {
        db->now.feedFirst = static_cast<uint64_t>(sqlite3_column_int64(s, 0));
        db->now.feedLast =
            rowEnd(static_cast<uint64_t>(sqlite3_column_int64(s, 1)), cfgColumnBlob(s, 2)) - 1;
    }
    sqlite3_reset(s);
    return rc == SQLITE_ROW || rc == SQLITE_DONE ? 0 : -1;
}

int zekCfgFeed(zekCfgDb* db, uint64_t after,
               const std::function<bool(const zekCfgFeedRow& row)>& fn) {
    struct row {
        uint64_t seq;
        std::string changes;
    };
    std::vector<row> rows(PAGE_ROWS);
    while (rows.size() == PAGE_ROWS) {
        rows.clear();
        {
            std::lock_guard lock(db->mutex);
            if (db->dirty && (cfgDbBatch(db) != 0 || cfgFeedStore(db) != 0)) return -1;
            sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_FEED_PAGE);
            if (s == nullptr) return -1;
            sqlite3_bind_int64(s, 1, static_cast<int64_t>(after + 1));
            sqlite3_bind_int(s, 2, PAGE_ROWS);
            int rc;
            while ((rc = sqlite3_step(s)) == SQLITE_ROW)
                rows.push_back({static_cast<uint64_t>(sqlite3_column_int64(s, 0)),
                                std::string(cfgColumnBlob(s, 1))});
            if (rc != SQLITE_DONE) cfgDbFailed(db, "the change feed cannot be read");
            sqlite3_reset(s);
            if (rc != SQLITE_DONE) return -1;
        }
        for (const row& r : rows) {
            uint64_t seq = r.seq;
            bool wanted = true;
            (void)eachChange(r.changes,
                             [&](uint32_t kind, std::string_view name, std::string_view text) {
                                 if (seq > after) wanted = fn({seq, kind, name, text});
                                 seq++;
                                 return wanted;
                             });
            if (!wanted) return 0;
            after = std::max(after, seq - 1);
        }
    }
    return 0;
}
