// The configuration database on SQLite.
//
// Changes join one transaction that opens at the first of them; zekCfgCommit ends it. SQLite gives
// a transaction up as a whole when its commit fails (a full disk), so the batch is also kept as a
// journal in memory and applied again before the next use: a failed commit loses nothing.
#include "platform/host/cfgdb.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

constexpr int SCHEMA_VERSION = 2;
constexpr int BUSY_TIMEOUT_MS = 5000;

// A transaction is small and ends in fsync-free appends of whole pages to the WAL, so pages are
// small too; a checkpoint every 16 MB keeps its cost per commit low and the WAL short.
constexpr const char* writePragmas =
    "PRAGMA page_size=2048; PRAGMA journal_mode=WAL;"
    "PRAGMA wal_autocheckpoint=8000; PRAGMA journal_size_limit=67108864;"
    "PRAGMA cache_size=-8000; PRAGMA temp_store=MEMORY;";
constexpr const char* readPragmas = "PRAGMA cache_size=-2000; PRAGMA query_only=ON;";
// Version 1 had a row a change in the feed; it goes, and the numbers go on behind it.
constexpr const char* schemaFrom1 =
    "ALTER TABLE feed RENAME TO feed1;"
    "CREATE TABLE feed(seq INTEGER PRIMARY KEY, changes BLOB NOT NULL);"
    "INSERT INTO feed SELECT seq+1, x'' FROM feed1 ORDER BY seq DESC LIMIT 1;"
    "DROP TABLE feed1;";
constexpr const char* schema =
    "CREATE TABLE IF NOT EXISTS lines(section INTEGER NOT NULL, key BLOB NOT NULL,"
    " class INTEGER NOT NULL, text TEXT NOT NULL, inverse TEXT,"
    " PRIMARY KEY(section, key, class)) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS feed(seq INTEGER PRIMARY KEY, changes BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS meta(name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;";

constexpr const char* statementText[CFG_STMT_COUNT] = {
    "BEGIN",
    "COMMIT",
    "INSERT OR IGNORE INTO lines VALUES(?1, ?2, ?3, ?4, ?5)",
    "UPDATE lines SET text=?4, inverse=?5 WHERE section=?1 AND key=?2 AND class=?3",
    "DELETE FROM lines WHERE section=?1 AND key=?2 AND class=?3",
    "DELETE FROM lines WHERE section=?1 AND key BETWEEN ?2 AND ?3",
    "INSERT INTO feed VALUES(?1, ?2)",
    "SELECT max(seq) FROM feed WHERE seq<=?1",
    "DELETE FROM feed WHERE seq<?1",
    "SELECT (SELECT min(seq) FROM feed), seq, changes FROM feed ORDER BY seq DESC LIMIT 1",
    "INSERT OR REPLACE INTO meta VALUES(?1, ?2)",
    "SELECT value FROM meta WHERE name=?1",
    "SELECT section, key, class, text, inverse FROM lines WHERE (section, key, class) > (?1, ?2, "
    "?3)"
    " ORDER BY section, key, class LIMIT ?4",
    "SELECT section, key, class, text, inverse FROM previous WHERE (section, key, class) > (?1, "
    "?2, "
    "?3) ORDER BY section, key, class LIMIT ?4",
    "SELECT seq, changes FROM feed WHERE seq >= coalesce((SELECT max(seq) FROM feed WHERE seq <= "
    "?1),"
    " 0) ORDER BY seq LIMIT ?2",
};

void reportToStderr(const char* text) {
    std::fprintf(stderr, "%s\n", text);
}
std::atomic<cfgDbReportFn> reportFn{reportToStderr};
std::atomic<zekCfgDb*> ofTask;
std::atomic<zekCfgDb* (*)()> opener;

// One change, as the journal keeps it. `first` and `second` are by kind:
//   insert   stored key; text, and `third` the inverse text when hasThird
//   remove   stored key
//   block    lowest and highest stored key
//   feed     name, text
//   mask     -
enum changeKind : uint8_t { CHANGE_INSERT, CHANGE_REMOVE, CHANGE_BLOCK, CHANGE_FEED, CHANGE_MASK };
struct change {
    changeKind kind;
    bool hasThird;
    uint32_t section;  // feed: the record's kind; mask: the mode
    uint32_t lineClass;
    std::string_view first, second, third;
};
struct journalHead {
    changeKind kind;
    bool hasThird;
    uint16_t lengths[3];
    uint32_t section, lineClass;
};

void journalAppend(std::string* journal, const change& c) {
    auto length = [](std::string_view s) { return static_cast<uint16_t>(s.size()); };
    journalHead head{c.kind,
                     c.hasThird,
                     {length(c.first), length(c.second), length(c.third)},
                     c.section,
                     c.lineClass};
    journal->append(reinterpret_cast<const char*>(&head), sizeof head);
    for (std::string_view s : {c.first, c.second, c.third}) journal->append(s);
}

// Takes the change at *at off the journal.
change journalTake(std::string_view journal, size_t* at) {
    journalHead head;
    std::memcpy(&head, journal.data() + *at, sizeof head);
    *at += sizeof head;
    std::string_view parts[3];
    for (int i = 0; i < 3; i++) {
        parts[i] = journal.substr(*at, head.lengths[i]);
        *at += head.lengths[i];
    }
    return {head.kind, head.hasThird, head.section, head.lineClass, parts[0], parts[1], parts[2]};
}

int applyInsert(zekCfgDb* db, const change& c) {
    // Two statements rather than one upsert: the line count needs to know which it was.
    for (cfgStatement which : {CFG_STMT_INSERT, CFG_STMT_REPLACE}) {
        sqlite3_stmt* s = cfgDbStatement(db, which);
        if (s == nullptr) return -1;
        sqlite3_bind_int64(s, 1, c.section);
        cfgBindBlob(s, 2, c.first);
        sqlite3_bind_int64(s, 3, c.lineClass);
        cfgBindText(s, 4, c.second);
        if (c.hasThird)
            cfgBindText(s, 5, c.third);
        else
            sqlite3_bind_null(s, 5);
        int changed = cfgDbRun(db, s, "a line was not stored");
        if (changed == 0) continue;  // the place is taken: replace
        if (changed > 0 && which == CFG_STMT_INSERT) db->now.lines++;
        return changed;
    }
    return -1;
}

int applyRemove(zekCfgDb* db, const change& c) {
    bool block = c.kind == CHANGE_BLOCK;
    sqlite3_stmt* s = cfgDbStatement(db, block ? CFG_STMT_DELETE_BLOCK : CFG_STMT_DELETE);
    if (s == nullptr) return -1;
    sqlite3_bind_int64(s, 1, c.section);
    cfgBindBlob(s, 2, c.first);
    if (block)
        cfgBindBlob(s, 3, c.second);
    else
        sqlite3_bind_int64(s, 3, c.lineClass);
    int removed = cfgDbRun(db, s, "a line was not removed");
    if (removed > 0) db->now.lines -= static_cast<uint64_t>(removed);
    return removed;
}

// Applies one change in the open transaction: the rows it touched, or -1.
int apply(zekCfgDb* db, const change& c) {
    switch (c.kind) {
        case CHANGE_INSERT:
            return applyInsert(db, c);
        case CHANGE_REMOVE:
        case CHANGE_BLOCK:
            return applyRemove(db, c);
        case CHANGE_FEED:
            return cfgFeedAdd(db, c.section, c.first, c.second) == 0 ? 1 : -1;
        case CHANGE_MASK:
            if (cfgDbSetMeta(db, CFG_META_MASK, c.section) != 0) return -1;
            db->now.maskMode = c.section;
            return 1;
    }
    return -1;
}

// Notices that SQLite has rolled the transaction back by itself.
void noticeRollback(zekCfgDb* db) {
    if (!db->inBatch || sqlite3_get_autocommit(db->sql) == 0) return;
    db->inBatch = false;
    db->now = db->atBegin;
}

// After a failure: what the batch held is to be seen again at once. When even that fails, the next
// use tries again.
void recover(zekCfgDb* db) {
    noticeRollback(db);
    if (!db->inBatch) (void)cfgDbBatch(db);
}

// Applies a change and keeps it in the journal: 0; -1 when it failed or touched nothing.
int makeChange(zekCfgDb* db, const change& c) {
    if (db == nullptr || db->readOnly) return -1;
    std::lock_guard lock(db->mutex);
    if (cfgDbBatch(db) != 0) return -1;
    int touched = apply(db, c);
    if (touched < 0) recover(db);
    if (touched <= 0) return -1;
    journalAppend(&db->journal, c);
    db->changes++;
    return 0;
}

std::string_view bytesView(const uint8_t* bytes, size_t length) {
    return {reinterpret_cast<const char*>(bytes), length};
}

std::string_view fieldText(const char* field, size_t size) {
    return {field, strnlen(field, size)};
}

int insert(zekCfgDb* db, const zekCfgRecord& record, std::string_view inverse) {
    uint8_t stored[CFG_STORED_KEY_MAX];
    size_t length = cfgKeyStore(record.key, stored);
    std::string_view text = fieldText(record.text, CFG_TEXT_LEN);
    return makeChange(db, {CHANGE_INSERT, inverse != text, record.section, record.lineClass,
                           bytesView(stored, length), text, inverse});
}

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
    sqlite3_busy_timeout(db->sql, BUSY_TIMEOUT_MS);
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
            cfgDbExec(db, version == 1 ? schemaFrom1 : schema) != 0 ||
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
    cfgDbReport(std::string("configuration database: ") + what + ": " + sqlite3_errmsg(db->sql));
}

void cfgDbSetOfTask(zekCfgDb* db) {
    ofTask = db;
}
void cfgDbSetOpener(zekCfgDb* (*open)()) {
    opener = open;
}
zekCfgDb* zekCfgOfTask() {
    zekCfgDb* db = ofTask;
    if (db == nullptr && opener.load() != nullptr) db = opener.load()();
    return db;
}

size_t cfgKeyStore(const uint8_t* area, uint8_t* stored) {
    size_t length = 0;
    for (size_t i = 0; i < CFG_KEY_LEN;) {
        if (area[i] != 0) {
            stored[length++] = area[i++];
            continue;
        }
        size_t run = 1;
        while (run < 255 && i + run < CFG_KEY_LEN && area[i + run] == 0) run++;
        stored[length++] = 0;
        stored[length++] = static_cast<uint8_t>(256 - run);
        i += run;
    }
    return length;
}

size_t cfgBlockBytes(uint32_t section) {
    switch (section) {
        case CFG_SECTION_INTERFACE:
            return 4;  // interface index
        case CFG_SECTION_RMAP:
            return 144;  // name, instance
        default:
            return 141;  // family, name
    }
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

int cfgDbBatch(zekCfgDb* db) {
    noticeRollback(db);
    if (db->inBatch) return 0;
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_BEGIN);
    if (s == nullptr || cfgDbRun(db, s, "no transaction can be opened") < 0) return -1;
    db->inBatch = true;
    db->dirty = true;
    db->atBegin = db->now;
    cfgFeedForget(db);
    for (size_t at = 0; at < db->journal.size();) {
        if (apply(db, journalTake(db->journal, &at)) >= 0) continue;
        sqlite3_exec(db->sql, "ROLLBACK", nullptr, nullptr, nullptr);
        noticeRollback(db);
        return -1;
    }
    return 0;
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
    if (cfgDbMeta(db, CFG_META_MASK, &db->now.maskMode) != 0) return -1;
    if (rc == 0 && cfgFeedCount(db) == 0) return 0;
    cfgDbFailed(db, "it cannot be read");
    return -1;
}

int zekCfgInsertBothLine(zekCfgDb* db, const zekCfgRecord& record) {
    return insert(db, record, fieldText(record.inverseText, CFG_TEXT_LEN));
}

int zekCfgInsert(zekCfgDb* db, const zekCfgRecord& record) {
    return insert(db, record, fieldText(record.text, CFG_TEXT_LEN));
}

int zekCfgRemoveNode(zekCfgDb* db, const zekCfgRecord& record) {
    size_t front = cfgBlockBytes(record.section);
    uint8_t area[CFG_KEY_LEN], low[CFG_STORED_KEY_MAX], high[CFG_STORED_KEY_MAX];
    std::memcpy(area, record.key, front);
    std::memset(area + front, 0, CFG_KEY_LEN - front);
    size_t lowLength = cfgKeyStore(area, low);
    std::memset(area + front, 0xFF, CFG_KEY_LEN - front);
    size_t highLength = cfgKeyStore(area, high);
    return makeChange(db, {CHANGE_BLOCK,
                           false,
                           record.section,
                           0,
                           bytesView(low, lowLength),
                           bytesView(high, highLength),
                           {}});
}

int zekCfgRemoveExact(zekCfgDb* db, const zekCfgRecord& record) {
    uint8_t stored[CFG_STORED_KEY_MAX];
    size_t length = cfgKeyStore(record.key, stored);
    return makeChange(db, {CHANGE_REMOVE,
                           false,
                           record.section,
                           record.lineClass,
                           bytesView(stored, length),
                           {},
                           {}});
}

int zekCfgSync(zekCfgDb* db, const zekCfgSyncRecord& record) {
    return makeChange(db, {CHANGE_FEED,
                           false,
                           record.kind,
                           0,
                           fieldText(record.name, sizeof record.name),
                           fieldText(record.text, sizeof record.text),
                           {}});
}

void zekCfgSetMaskMode(zekCfgDb* db, uint32_t inverse) {
    (void)makeChange(db, {CHANGE_MASK, false, inverse, 0, {}, {}, {}});
}

uint32_t zekCfgMaskMode(const zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    uint32_t mode = db->now.maskMode;
    if (db->readOnly) (void)cfgDbMeta(const_cast<zekCfgDb*>(db), CFG_META_MASK, &mode);
    return mode;
}

int cfgDbCreateTables(zekCfgDb* db) {
    return cfgDbExec(db, schema);
}

int cfgDbCommit(zekCfgDb* db) {
    if (!db->dirty) return 0;
    bool ready = cfgDbBatch(db) == 0 && cfgFeedStore(db) == 0;
    sqlite3_stmt* s = ready ? cfgDbStatement(db, CFG_STMT_COMMIT) : nullptr;
    if (s == nullptr || cfgDbRun(db, s, "the changes were not committed") < 0) {
        db->failedCommits++;
        recover(db);
        return -1;
    }
    db->inBatch = false;
    db->dirty = false;
    db->journal.clear();
    db->commits++;
    return 0;
}

int zekCfgCommit(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return cfgDbCommit(db);
}

bool zekCfgIsDirty(const zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return db->dirty;
}

zekCfgStats zekCfgStatistics(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    if (db->readOnly)
        (void)cfgDbCount(db);
    else
        noticeRollback(db);
    return {db->now.lines, db->now.feedLast + 1 - db->now.feedFirst, db->commits, db->failedCommits,
            db->changes};
}

zekCfgDb* zekCfgOpen(const char* directory, zekCfgAccess access, const char* file) {
    std::string path = directory ? std::string(directory) + "/" + file : ":memory:";
    auto* db = new zekCfgDb{};
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
