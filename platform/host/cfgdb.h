// Inside of the configuration database, shared with the configuration manager and the tests.
//
// Tables:  lines(section, key, class, text, inverse)    the running configuration
//          previous                                     the same, while it is being restored
//          feed(seq, changes)                           the newest changes, a row a commit
//          meta(name, value)                            mask mode, state of the restore
//
// Every function that takes a zekCfgDb locks its mutex but for those that say "locked": the task
// and the configuration manager's thread use one connection.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/api/zekCfg.h"

// ---- Stored keys. The 256-byte key area with every run of n zero bytes (1 to 255) written as the
// two bytes 0, 256 - n. A longer run of zeros gives a smaller second byte, and whatever follows a
// run is not zero, so memcmp order of stored keys is the order of the areas.
constexpr size_t CFG_STORED_KEY_MAX = CFG_KEY_LEN + CFG_KEY_LEN / 2;
// Writes the stored key, returns its bytes.
size_t cfgKeyStore(const uint8_t* area, uint8_t* stored);
// Bytes at the front of the key area that all lines of a block have in common.
size_t cfgBlockBytes(uint32_t section);

inline void cfgBindBlob(sqlite3_stmt* s, int at, std::string_view bytes) {
    sqlite3_bind_blob(s, at, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
}
inline void cfgBindText(sqlite3_stmt* s, int at, std::string_view text) {
    sqlite3_bind_text(s, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}
inline std::string_view cfgColumnText(sqlite3_stmt* s, int at) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s, at));
    return text ? std::string_view(text, static_cast<size_t>(sqlite3_column_bytes(s, at)))
                : std::string_view();
}

enum cfgStatement {
    CFG_STMT_BEGIN,
    CFG_STMT_COMMIT,
    CFG_STMT_INSERT,
    CFG_STMT_REPLACE,
    CFG_STMT_DELETE,
    CFG_STMT_DELETE_BLOCK,
    CFG_STMT_FEED,
    CFG_STMT_FEED_ROW_OF,
    CFG_STMT_FEED_TRIM,
    CFG_STMT_FEED_ENDS,
    CFG_STMT_META_SET,
    CFG_STMT_META_GET,
    CFG_STMT_PAGE,
    CFG_STMT_PAGE_PREVIOUS,
    CFG_STMT_FEED_PAGE,
    CFG_STMT_COUNT,
};

// What changes with the open transaction and falls back with it.
struct cfgCounters {
    uint64_t lines;
    uint64_t feedFirst, feedLast;  // sequence numbers; feedLast < feedFirst: the feed is empty
    uint32_t maskMode;
};

struct zekCfgDb {
    mutable std::mutex mutex;
    sqlite3* sql;
    sqlite3_stmt* statements[CFG_STMT_COUNT];  // prepared at their first use
    bool readOnly;
    bool inBatch;         // a transaction is open
    bool dirty;           // there is something to commit
    std::string journal;  // the batch's changes, to be applied again should the transaction be lost
    std::string feedPending;  // the changes of the batch that are not in the feed's table yet
    uint64_t feedPendingCount;
    cfgCounters now, atBegin;
    uint64_t commits, failedCommits, changes;
};

// Runs SQL text, locked. 0, or -1 after a report.
int cfgDbExec(zekCfgDb* db, const char* sql);
// Runs a bound statement that returns no rows, locked: the rows it changed, or -1 after a report.
int cfgDbRun(zekCfgDb* db, sqlite3_stmt* s, const char* what);
// Opens the batch if there is none, locked. 0 or -1.
int cfgDbBatch(zekCfgDb* db);
// zekCfgCommit, locked.
int cfgDbCommit(zekCfgDb* db);
// Makes the tables that are absent, locked.
int cfgDbCreateTables(zekCfgDb* db);
// A prepared statement, reset, or null after a report; locked.
sqlite3_stmt* cfgDbStatement(zekCfgDb* db, cfgStatement which);
// A value of the meta table, 0 when it is absent; locked. 0 or -1.
constexpr const char* CFG_META_MASK = "mask";
int cfgDbMeta(zekCfgDb* db, const char* name, uint32_t* value);
int cfgDbSetMeta(zekCfgDb* db, const char* name, uint32_t value);
// Reads the counters from the tables, locked.
int cfgDbCount(zekCfgDb* db);
// Says what failed and SQLite's words for it.
void cfgDbFailed(zekCfgDb* db, const char* what);

// The VFS that writes a transaction to the log in one piece (cfgwal.cpp); null: the default.
const char* cfgWalVfs();

// ---- Change feed (cfgdbfeed.cpp), locked. 0 or -1.
// Adds a change to the batch; store writes what has been added, forget drops it.
int cfgFeedAdd(zekCfgDb* db, uint32_t kind, std::string_view name, std::string_view text);
int cfgFeedStore(zekCfgDb* db);
void cfgFeedForget(zekCfgDb* db);
int cfgFeedCount(zekCfgDb* db);  // reads first and last number from the table

// The lines of `lines` or `previous`, a page at a time: of route maps the shown or the typed ones,
// of all others those of the mask mode.
struct cfgTexts {
    uint32_t inverse;
    bool typed;
};
int cfgDbWalkTable(zekCfgDb* db, cfgStatement page, cfgTexts texts,
                   const std::function<bool(std::string_view line)>& fn);

// Where failures are told. The host sets the system-error log; without one they go to standard
// error.
typedef void (*cfgDbReportFn)(const char* text);
void cfgDbSetReport(cfgDbReportFn report);
void cfgDbReport(const std::string& text);

// The database that zekCfgOfTask returns; it stays the caller's.
void cfgDbSetOfTask(zekCfgDb* db);
// How zekCfgOfTask opens it at its first call, when it has not been set.
void cfgDbSetOpener(zekCfgDb* (*open)());

// ---- Restore (cfgdbrestore.cpp). Crash-safe at every point: a restore that was begun is either
// ended, or given up, or begins again at the next start with the same source.
//
// Makes an empty running configuration in normal mask mode and keeps the lines that were there as
// the previous configuration. A restore that had begun and did not end keeps its previous
// configuration and drops what it had written; one that was given up adds what has been written
// since (lines of the other mask mode take its place: the two cannot be shown together). cold:
// there is no previous configuration. 0 and *hasPrevious, or -1.
int cfgDbRestoreBegin(zekCfgDb* db, bool cold, bool* hasPrevious);
// The shown lines of the previous configuration.
int cfgDbWalkPrevious(zekCfgDb* db, const std::function<bool(std::string_view line)>& fn);
// Drops the previous configuration: the running one is complete. 0 or -1 (then nothing changed).
int cfgDbRestoreEnd(zekCfgDb* db);
// Keeps the previous configuration beside the lines that could be restored.
int cfgDbRestoreGiveUp(zekCfgDb* db);
