// Inside of the configuration database, shared with the configuration manager and the tests.
//
// Tables:  lines(section, key, class, text, inverse, record)   the running configuration
//          unresolved(id, section, key, class, text, inverse, record)
//                                             what a restart could not bring back, oldest first
//          feed(seq, changes)                 the newest changes, a row a commit
//          meta(name, value)                  mask mode, where the configuration is to come from
//
// Every function that takes a zekCfgDb locks its mutex but for those that say "locked": the task
// and the configuration manager's thread use one connection.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/api/zekCfg.h"

// ---- Stored bytes (cfgdbpack.cpp): every run of n zero bytes (1 to 255) is the two bytes 0,
// 256 - n. A longer run of zeros gives a smaller second byte, and whatever follows a run is not
// zero, so memcmp order of stored keys is the order of the 256-byte key areas.
constexpr size_t CFG_STORED_KEY_MAX = CFG_KEY_LEN + CFG_KEY_LEN / 2;
// Writes the stored form, returns its bytes: at most length + length / 2 + 1.
size_t cfgPack(const uint8_t* bytes, size_t length, uint8_t* stored);
inline size_t cfgKeyStore(const uint8_t* area, uint8_t* stored) {
    return cfgPack(area, CFG_KEY_LEN, stored);
}
// The bytes again, at most `room` of them. False for what cfgPack cannot have written.
bool cfgUnpack(std::string_view stored, uint8_t* bytes, size_t room, size_t* length);
// A request as it is stored: its type (4 bytes, big-endian), its packed body. Type 0: empty.
void cfgRecordStore(const zekCfgRequest& request, std::string* record);
// The request again; its body lies in *bytes, which has room for CFG_REQUEST_MAX. Type 0 when there
// is none or the record is damaged.
zekCfgRequest cfgRecordRead(std::string_view record, uint8_t* bytes);

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
inline std::string_view cfgColumnBlob(sqlite3_stmt* s, int at) {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(s, at));
    return {bytes ? bytes : "", static_cast<size_t>(sqlite3_column_bytes(s, at))};
}

// How long a statement waits for a lock that somebody else holds: the task stands still meanwhile.
constexpr int CFG_BUSY_MS = 200, CFG_BUSY_FAILING_MS = 10;

enum cfgStatement {
    CFG_STMT_BEGIN,
    CFG_STMT_COMMIT,
    CFG_STMT_INSERT,
    CFG_STMT_REPLACE,
    CFG_STMT_DELETE,
    CFG_STMT_DELETE_BLOCK,
    CFG_STMT_UNRESOLVE,
    CFG_STMT_BLOCK_LIVES,
    CFG_STMT_RECORD_AT,
    CFG_STMT_RESOLVED,
    CFG_STMT_SUPERSEDE,
    CFG_STMT_SUPERSEDE_BLOCK,
    CFG_STMT_FEED,
    CFG_STMT_FEED_ROW_OF,
    CFG_STMT_FEED_TRIM,
    CFG_STMT_FEED_ENDS,
    CFG_STMT_META_SET,
    CFG_STMT_META_GET,
    CFG_STMT_PAGE,
    CFG_STMT_PAGE_RECORDS,
    CFG_STMT_PAGE_UNRESOLVED,
    CFG_STMT_FEED_PAGE,
    CFG_STMT_COUNT,
};

// What changes with the open transaction and falls back with it.
struct cfgCounters {
    uint64_t lines, unresolved;
    uint64_t feedFirst, feedLast;  // sequence numbers; feedLast < feedFirst: the feed is empty
    uint32_t maskMode;
};

// A row as it is stored. Of an unresolved one `id` is not 0, and the place may be missing
// (section 0).
struct cfgStoredRow {
    uint64_t id = 0;
    uint32_t section = 0, lineClass = 0;
    std::string key, text, inverse, record;
    bool hasInverse = false;
};

struct zekCfgDb {
    mutable std::mutex mutex;
    zekCfgLayout layout;
    sqlite3* sql;
    sqlite3_stmt* statements[CFG_STMT_COUNT];  // prepared at their first use
    bool readOnly;
    bool inBatch;             // a transaction is open
    bool dirty;               // there is something to commit
    bool failing;             // the last attempt to write failed
    uint64_t retryAtMs;       // when failing: the next attempt
    int lastTouched;          // rows that the newest change of the journal touched
    std::string journal;      // the batch's changes: what is to be in the database
    std::string feedPending;  // the changes of the batch that are not in the feed's table yet
    uint64_t feedPendingCount;
    const cfgStoredRow* restoring;  // the row whose request is being sent again
    uint8_t restoringKey[CFG_KEY_LEN];
    uint8_t foundBody[CFG_REQUEST_MAX];  // of the request that was asked for last
    cfgCounters now, atBegin;
    uint64_t commits, failedCommits, changes;
};

// Runs SQL text, locked. 0, or -1 after a report.
int cfgDbExec(zekCfgDb* db, const char* sql);
// Runs a bound statement that returns no rows, locked: the rows it changed, or -1 after a report.
int cfgDbRun(zekCfgDb* db, sqlite3_stmt* s, const char* what);
// A prepared statement, reset, or null after a report; locked.
sqlite3_stmt* cfgDbStatement(zekCfgDb* db, cfgStatement which);
// A value of the meta table, 0 when it is absent; locked. 0 or -1.
constexpr const char* CFG_META_MASK = "mask";
constexpr const char* CFG_META_IMPORT = "import";
int cfgDbMeta(zekCfgDb* db, const char* name, uint32_t* value);
int cfgDbSetMeta(zekCfgDb* db, const char* name, uint32_t value);
// Reads the counters from the tables, locked.
int cfgDbCount(zekCfgDb* db);
// Says what failed and SQLite's words for it; once until the database can be written again.
void cfgDbFailed(zekCfgDb* db, const char* what);

// The VFS that writes a transaction to the log in one piece (cfgwal.cpp); null: the default.
const char* cfgWalVfs();

// ---- Changes (cfgdbchange.cpp)
// Opens the batch if there is none, locked. 0 or -1.
int cfgDbBatch(zekCfgDb* db);
// zekCfgCommit, locked.
int cfgDbCommit(zekCfgDb* db);
// Runs fn in a transaction of its own, behind what the batch holds, locked. fn's -1 takes
// everything back.
int cfgDbTransaction(zekCfgDb* db, const std::function<int()>& fn);
// How many changes have been asked for; any thread.
uint64_t cfgDbChanges(const zekCfgDb* db);

// ---- Change feed (cfgdbfeed.cpp), locked. 0 or -1.
// Adds a change to the batch; store writes what has been added, forget drops it.
int cfgFeedAdd(zekCfgDb* db, uint32_t kind, std::string_view name, std::string_view text);
int cfgFeedStore(zekCfgDb* db);
void cfgFeedForget(zekCfgDb* db);
int cfgFeedCount(zekCfgDb* db);  // reads first and last number from the table

// Where failures are told. The host sets the system-error log; without one they go to standard
// error.
typedef void (*cfgDbReportFn)(const char* text);
void cfgDbSetReport(cfgDbReportFn report);
void cfgDbReport(const std::string& text);

// The database that zekCfgOfTask returns; it stays the caller's.
void cfgDbSetOfTask(zekCfgDb* db);

// ---- Restore (cfgdbrecord.cpp). The rows stay where they are while their requests are sent again,
// so that a restore that is interrupted anywhere has lost nothing.
//
// Where the configuration is to come from at the next start, beside the rows. It changes in the
// transaction that has brought it.
enum cfgImport : uint32_t {
    CFG_IMPORT_DONE = 0,
    CFG_IMPORT_STARTUP = 1,  // the startup configuration
    CFG_IMPORT_TEXTS = 2,    // the lines' own texts: an older program wrote them without records
};
// The next rows with a record behind *after (a row of an empty key: from the start). 0 or -1.
int cfgDbReadRecords(zekCfgDb* db, const cfgStoredRow& after, std::vector<cfgStoredRow>* rows);
// The next unresolved row behind number `after`; one at a time, as the request before it, or an
// operator, may have settled the one behind. 0 or -1.
int cfgDbReadUnresolved(zekCfgDb* db, uint64_t after, std::vector<cfgStoredRow>* rows);
// From now on the task executes the row's request (null: no longer): what it writes in the row's
// own place is there already when it is the same, and the feed hears nothing of what was known.
void cfgDbSetRestoring(zekCfgDb* db, const cfgStoredRow* row);
// The row's request was refused: it goes to the unresolved ones, and its block with the last row.
void cfgDbUnresolve(zekCfgDb* db, const cfgStoredRow& row);
// The unresolved row's request was accepted.
void cfgDbResolved(zekCfgDb* db, uint64_t id);
// Forgets the configuration: it is to come from the startup configuration. 0 or -1.
int cfgDbForget(zekCfgDb* db);
uint32_t cfgDbImport(zekCfgDb* db);  // cfgImport
// Writes the texts that CFG_IMPORT_TEXTS is about, as they are typed. 0 or -1.
int cfgDbWriteTexts(zekCfgDb* db, FILE* out);
// Puts lines that have come from texts to the unresolved ones, in order, and ends the import; the
// texts that they came from go. 0 or -1: nothing has changed.
int cfgDbEndImport(zekCfgDb* db, const std::vector<cfgStoredRow>& rows);
