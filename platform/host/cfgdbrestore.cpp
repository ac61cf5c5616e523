// The previous configuration: what was running when the task went down, until it runs again.
//
// The state of the restore is in the meta table and changes in the transactions that move the
// lines, so that a crash at any point leaves one of
//
//     complete   `lines` is the configuration
//     restoring  `previous` (when there is none: the startup configuration) is the configuration
//     and
//                `lines` a part of it
//     given up   `previous` could not be restored whole; `lines` is what could, and what came after
#include "platform/host/cfgdb.h"

namespace {

enum restoreState : uint32_t { STATE_COMPLETE = 0, STATE_RESTORING = 1, STATE_GIVEN_UP = 2 };

constexpr const char* META_STATE = "restore";
constexpr const char* META_PREVIOUS_MASK = "previousMask";

// Whether a query has a row: 1, 0, or -1 after a report.
int hasRow(zekCfgDb* db, const char* sql) {
    sqlite3_stmt* s = nullptr;
    int rc = sqlite3_prepare_v2(db->sql, sql, -1, &s, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_step(s);
    sqlite3_finalize(s);
    if (rc == SQLITE_ROW) return 1;
    if (rc == SQLITE_DONE) return 0;
    cfgDbFailed(db, "it cannot be read");
    return -1;
}
int hasPreviousLines(zekCfgDb* db) {
    int table = hasRow(db, "SELECT 1 FROM sqlite_master WHERE name='previous'");
    return table == 1 ? hasRow(db, "SELECT 1 FROM previous LIMIT 1") : table;
}

constexpr const char* forgetAll = "DROP TABLE IF EXISTS previous; DROP TABLE lines";
constexpr const char* forgetLines = "DROP TABLE lines";
constexpr const char* replacePrevious =
    "DROP TABLE IF EXISTS previous; ALTER TABLE lines RENAME TO previous";
constexpr const char* mergeIntoPrevious =
    "INSERT OR REPLACE INTO previous SELECT * FROM lines; DROP TABLE lines";

// Puts the lines away as the state asks for, in the open transaction. 0 or -1.
int putAway(zekCfgDb* db, bool cold) {
    uint32_t state, mask, previousMask;
    int lines = hasRow(db, "SELECT 1 FROM lines LIMIT 1");
    int previous = hasPreviousLines(db);
    if (lines < 0 || previous < 0 || cfgDbMeta(db, META_STATE, &state) != 0 ||
        cfgDbMeta(db, CFG_META_MASK, &mask) != 0 ||
        cfgDbMeta(db, META_PREVIOUS_MASK, &previousMask) != 0)
        return -1;
    if (cold) return cfgDbExec(db, forgetAll);
    if (state == STATE_RESTORING || lines == 0) return cfgDbExec(db, forgetLines);
    if (state == STATE_GIVEN_UP && previous == 1 && mask == previousMask)
        return cfgDbExec(db, mergeIntoPrevious);
    if (cfgDbExec(db, replacePrevious) != 0) return -1;
    return cfgDbSetMeta(db, META_PREVIOUS_MASK, mask);
}

// Runs fn in a transaction of its own, behind what the batch holds. fn's -1 takes everything back.
int inTransaction(zekCfgDb* db, const std::function<int()>& fn) {
    if (cfgDbCommit(db) != 0 || cfgDbExec(db, "BEGIN IMMEDIATE") != 0) return -1;
    // A table cannot go while a prepared statement is to read it.
    sqlite3_finalize(db->statements[CFG_STMT_PAGE_PREVIOUS]);
    db->statements[CFG_STMT_PAGE_PREVIOUS] = nullptr;
    if (fn() == 0 && cfgDbExec(db, "COMMIT") == 0) return cfgDbCount(db);
    sqlite3_exec(db->sql, "ROLLBACK", nullptr, nullptr, nullptr);
    return -1;
}

}  // namespace

int cfgDbRestoreBegin(zekCfgDb* db, bool cold, bool* hasPrevious) {
    std::lock_guard lock(db->mutex);
    return inTransaction(db, [&] {
        if (putAway(db, cold) != 0 || cfgDbCreateTables(db) != 0) return -1;
        int previous = hasPreviousLines(db);
        *hasPrevious = previous == 1;
        if (previous < 0 || cfgDbSetMeta(db, CFG_META_MASK, 0) != 0) return -1;
        return cfgDbSetMeta(db, META_STATE, STATE_RESTORING);
    });
}

int cfgDbWalkPrevious(zekCfgDb* db, const std::function<bool(std::string_view line)>& fn) {
    uint32_t inverse;
    {
        std::lock_guard lock(db->mutex);
        int previous = hasPreviousLines(db);
        if (previous != 1) return previous;
        if (cfgDbMeta(db, META_PREVIOUS_MASK, &inverse) != 0) return -1;
    }
    return cfgDbWalkTable(db, CFG_STMT_PAGE_PREVIOUS, {inverse, true}, fn);
}

int cfgDbRestoreEnd(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return inTransaction(db, [&] {
        return cfgDbExec(db, "DROP TABLE IF EXISTS previous") != 0
                   ? -1
                   : cfgDbSetMeta(db, META_STATE, STATE_COMPLETE);
    });
}

int cfgDbRestoreGiveUp(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return inTransaction(db, [&] { return cfgDbSetMeta(db, META_STATE, STATE_GIVEN_UP); });
}
