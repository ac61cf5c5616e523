// The configuration database on SQLite: its tables, how it is opened, what is prepared.
#include "platform/base/cfgdb.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

constexpr int SCHEMA_VERSION = 3;

// A transaction is small and ends in fsync-free appends of whole pages to the WAL, so pages are
// small too; a checkpoint every 16 MB keeps its cost per commit low and the WAL short.
constexpr const char* writePragmas =
    "PRAGMA page_size=2048; PRAGMA journal_mode=WAL;"
    "PRAGMA wal_autocheckpoint=8000; PRAGMA journal_size_limit=67108864;"
    "PRAGMA cache_size=-8000; PRAGMA temp_store=MEMORY;";
constexpr const char* readPragmas = "PRAGMA cache_size=-2000; PRAGMA query_only=ON;";
constexpr const char* schema =
    "CREATE TABLE lines(section INTEGER NOT NULL, key BLOB NOT NULL,"
    " class INTEGER NOT NULL, text TEXT NOT NULL, inverse TEXT, record BLOB,"
    " PRIMARY KEY(section, key, class)) WITHOUT ROWID;"
    "CREATE TABLE unresolved(id INTEGER PRIMARY KEY AUTOINCREMENT, section INTEGER, key BLOB,"
    " class INTEGER, text TEXT NOT NULL, inverse TEXT, record BLOB);"
    "CREATE TABLE feed(seq INTEGER PRIMARY KEY, changes BLOB NOT NULL);"
    "CREATE TABLE meta(name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;"
    "INSERT INTO meta VALUES('import', 1);";
// Version 1 had a row a change in the feed; it goes, and the numbers go on behind it.
constexpr const char* schemaFrom1 =
    "ALTER TABLE feed RENAME TO feed1;"
    "CREATE TABLE feed(seq INTEGER PRIMARY KEY, changes BLOB NOT NULL);"
    "INSERT INTO feed SELECT seq+1, x'' FROM feed1 ORDER BY seq DESC LIMIT 1;"
    "DROP TABLE feed1;";
// Version 2 had no records, and put the lines of the last run away while they were restored (state
// 1: what `lines` has is a part of them). The texts are read once, as a startup configuration is.
constexpr const char* schemaFrom2 =
    "CREATE TABLE IF NOT EXISTS previous(section, key, class, text, inverse);"
    "DELETE FROM lines WHERE EXISTS(SELECT 1 FROM meta WHERE name='restore' AND value=1)"
    " AND EXISTS(SELECT 1 FROM previous);"
    "INSERT OR REPLACE INTO meta SELECT 'mask', value FROM meta WHERE name='previousMask'"
    " AND EXISTS(SELECT 1 FROM previous);"
    "INSERT OR IGNORE INTO lines SELECT section, key, class, text, inverse FROM previous;"
    "DROP TABLE previous;"
    "ALTER TABLE lines ADD COLUMN record BLOB;"
    "CREATE TABLE unresolved(id INTEGER PRIMARY KEY AUTOINCREMENT, section INTEGER, key BLOB,"
    " class INTEGER, text TEXT NOT NULL, inverse TEXT, record BLOB);"
    "DELETE FROM meta WHERE name IN ('restore', 'previousMask');"
    "INSERT OR REPLACE INTO meta SELECT 'import', CASE WHEN EXISTS(SELECT 1 FROM lines) THEN 2"
    " ELSE 0 END;";

#define LINE_COLUMNS "section, key, class, text, inverse, record"
constexpr const char* statementText[CFG_STMT_COUNT] = {
    "BEGIN",
    "COMMIT",
    "INSERT OR IGNORE INTO lines VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
    "UPDATE lines SET text=?4, inverse=?5, record=?6 WHERE section=?1 AND key=?2 AND class=?3"
    " AND (text IS NOT ?4 OR inverse IS NOT ?5 OR record IS NOT ?6)",
    "DELETE FROM lines WHERE section=?1 AND key=?2 AND class=?3",
    "DELETE FROM lines WHERE section=?1 AND key BETWEEN ?2 AND ?3",
    "INSERT INTO unresolved(" LINE_COLUMNS ") SELECT " LINE_COLUMNS
    " FROM lines WHERE section=?1 AND key=?2 AND class=?3",
    "SELECT 1 FROM lines WHERE section=?1 AND key BETWEEN ?2 AND ?3 AND record IS NOT NULL LIMIT 1",
    "SELECT record FROM lines WHERE section=?1 AND key=?2 AND class=?3",
    "DELETE FROM unresolved WHERE id=?1",
    "DELETE FROM unresolved WHERE section=?1 AND key=?2 AND class=?3",
    "DELETE FROM unresolved WHERE section=?1 AND key BETWEEN ?2 AND ?3",
    "INSERT INTO feed VALUES(?1, ?2)",
    "SELECT max(seq) FROM feed WHERE seq<=?1",
    "DELETE FROM feed WHERE seq<?1",
    "SELECT (SELECT min(seq) FROM feed), seq, changes FROM feed ORDER BY seq DESC LIMIT 1",
    "INSERT OR REPLACE INTO meta VALUES(?1, ?2)",
    "SELECT value FROM meta WHERE name=?1",
    "SELECT " LINE_COLUMNS " FROM lines ORDER BY section, key, class",
    "SELECT " LINE_COLUMNS
    " FROM lines WHERE (section, key, class) > (?1, ?2, ?3)"
    // A row that does not fit the words it is read into would put the next page back.
    " AND section < 4294967296 AND class BETWEEN 0 AND 4294967295"
    " AND record IS NOT NULL ORDER BY section, key, class LIMIT ?4",
    "SELECT " LINE_COLUMNS ", id FROM unresolved WHERE id>?1 ORDER BY id LIMIT ?2",
    "SELECT seq, changes FROM feed WHERE seq >= coalesce((SELECT max(seq) FROM feed WHERE seq <= "
    "?1),"
    " 0) ORDER BY seq LIMIT ?2",
};
#undef LINE_COLUMNS

void reportToStderr(const char* text) {
    std::fprintf(stderr, "%s\n", text);
}
std::atomic<cfgDbReportFn> reportFn{reportToStderr};
std::atomic<zekCfgDb*> ofTask;

// One SELECT of a single integer, locked; 0 when there is no row.
int64_t selectNumber(zekCfgDb* db, const char* sql, int* rc) {
    sqlite3_stmt* s = nullptr;
    int64_t value = 0;
    if (sqlite3_prepare_v2(db->sql, sql, -1, &s, nullptr) != SQLITE_OK) {
        *rc = -1;
    } else {
        int step = sqlite3_step(s);
        if (step == SQLITE_ROW) value = sqlite3_column_int64(s, 0);
        *rc = step == SQLITE_ROW || step == SQLITE_DONE ? 0 : -1;
    }
    sqlite3_finalize(s);
    return value;
}

int openTables(zekCfgDb* db, bool inMemory) {
    sqlite3_busy_timeout(db->sql, CFG_BUSY_MS);
    int rc = 0;
    if (!db->readOnly) {
        // A file that is being made holds nothing yet that a power failure could take: it is not
        // synchronised, which is most of a start's time on a disk.
        bool isNew = selectNumber(db, "PRAGMA page_count", &rc) == 0;
        if (cfgDbExec(db, isNew ? "PRAGMA synchronous=OFF" : "PRAGMA synchronous=NORMAL") != 0)
            return -1;
    }
    if (cfgDbExec(db, db->readOnly ? readPragmas : writePragmas) != 0) return -1;
    int64_t version = selectNumber(db, "PRAGMA user_version", &rc);
    if (rc != 0) {
        cfgDbFailed(db, "it cannot be read");
        return -1;
    }
    if (version > SCHEMA_VERSION) {
        cfgDbReport("configuration database: it was written by a newer version of this program");
        return -1;
    }
    if (!db->readOnly && version < SCHEMA_VERSION) {
        std::string sql = "PRAGMA user_version=" + std::to_string(SCHEMA_VERSION) + ";COMMIT;";
        if (cfgDbExec(db, "BEGIN IMMEDIATE") != 0 ||
            (version == 1 && cfgDbExec(db, schemaFrom1) != 0) ||
            cfgDbExec(db, version == 0 ? schema : schemaFrom2) != 0 ||
            cfgDbExec(db, sql.c_str()) != 0)
            return -1;
    }
    if (!db->readOnly && !inMemory) {
        // WAL needs shared memory beside the file; without it a crash could tear a transaction.
        sqlite3_stmt* s = nullptr;
        bool wal =
            sqlite3_prepare_v2(db->sql, "PRAGMA journal_mode", -1, &s, nullptr) == SQLITE_OK &&
            sqlite3_step(s) == SQLITE_ROW && cfgColumnText(s, 0) == "wal";
        sqlite3_finalize(s);
        if (!wal) {
            cfgDbReport("configuration database: the file system does not allow a write-ahead log");
            return -1;
        }
    }
    if (db->readOnly) return 0;  // counts are taken when they are asked for
    return cfgDbExec(db, "PRAGMA synchronous=NORMAL") == 0 ? cfgDbCount(db) : -1;
}

}  // namespace

void cfgDbSetReport(cfgDbReportFn report) {
    reportFn = report ? report : reportToStderr;
}
void cfgDbReport(const std::string& text) {
    reportFn.load()(text.c_str());
}
void cfgDbFailed(zekCfgDb* db, const char* what) {
    if (db->failing) return;
    cfgDbReport(std::string("configuration database: ") + what + ": " + sqlite3_errmsg(db->sql));
}

void cfgDbSetOfTask(zekCfgDb* db) {
    ofTask = db;
}
zekCfgDb* zekCfgOfTask() {
    return ofTask;
}

int cfgDbExec(zekCfgDb* db, const char* sql) {
    if (sqlite3_exec(db->sql, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return 0;
    cfgDbFailed(db, "a statement failed");
    return -1;
}

int cfgDbRun(zekCfgDb* db, sqlite3_stmt* s, const char* what) {
    int rc = sqlite3_step(s);
    int changed = rc == SQLITE_DONE ? sqlite3_changes(db->sql) : -1;
    if (changed < 0) cfgDbFailed(db, what);
    sqlite3_reset(s);
    return changed;
}

sqlite3_stmt* cfgDbStatement(zekCfgDb* db, cfgStatement which) {
    sqlite3_stmt*& s = db->statements[which];
    if (s == nullptr && sqlite3_prepare_v3(db->sql, statementText[which], -1,
                                           SQLITE_PREPARE_PERSISTENT, &s, nullptr) != SQLITE_OK)
        cfgDbFailed(db, "a statement cannot be prepared");
    return s;
}

int cfgDbMeta(zekCfgDb* db, const char* name, uint32_t* value) {
    *value = 0;
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_META_GET);
    if (s == nullptr) return -1;
    cfgBindText(s, 1, name);
    int rc = sqlite3_step(s);
    if (rc == SQLITE_ROW) *value = static_cast<uint32_t>(sqlite3_column_int64(s, 0));
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) cfgDbFailed(db, "a setting cannot be read");
    sqlite3_reset(s);
    return rc == SQLITE_ROW || rc == SQLITE_DONE ? 0 : -1;
}

int cfgDbSetMeta(zekCfgDb* db, const char* name, uint32_t value) {
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_META_SET);
    if (s == nullptr) return -1;
    cfgBindText(s, 1, name);
    sqlite3_bind_int64(s, 2, value);
    return cfgDbRun(db, s, "a setting was not stored") < 0 ? -1 : 0;
}

int cfgDbCount(zekCfgDb* db) {
    int rc;
    db->now.lines = static_cast<uint64_t>(selectNumber(db, "SELECT count(*) FROM lines", &rc));
    if (rc == 0)
        db->now.unresolved =
            static_cast<uint64_t>(selectNumber(db, "SELECT count(*) FROM unresolved", &rc));
    if (cfgDbMeta(db, CFG_META_MASK, &db->now.maskMode) != 0) return -1;
    if (rc == 0 && cfgFeedCount(db) == 0) return 0;
    cfgDbFailed(db, "it cannot be read");
    return -1;
}

zekCfgStats zekCfgStatistics(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    if (db->readOnly) (void)cfgDbCount(db);
    return {db->now.lines, db->now.unresolved, db->now.feedLast + 1 - db->now.feedFirst,
            db->commits,   db->failedCommits,  db->changes,
            !db->failing};
}

zekCfgDb* zekCfgOpen(const char* directory, zekCfgAccess access, const char* file,
                     const zekCfgLayout& layout) {
    std::string path = directory ? std::string(directory) + "/" + file : ":memory:";
    auto* db = new zekCfgDb{};
    db->layout = layout;
    db->readOnly = access == zekCfgAccess::read;
    int flags = SQLITE_OPEN_NOMUTEX |
                (db->readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    int rc = sqlite3_open_v2(path.c_str(), &db->sql, flags, cfgWalVfs());
    if (rc != SQLITE_OK || openTables(db, directory == nullptr) != 0) {
        cfgDbReport("configuration database: " + path +
                    " cannot be opened: " + (db->sql ? sqlite3_errmsg(db->sql) : "no memory"));
        zekCfgClose(db);
        return nullptr;
    }
    return db;
}

void zekCfgClose(zekCfgDb* db) {
    if (db == nullptr) return;
    if (ofTask == db) ofTask = nullptr;
    for (sqlite3_stmt* s : db->statements) sqlite3_finalize(s);
    sqlite3_close(db->sql);
    delete db;
}
