// Changes of the configuration database.
//
// A change is written down in the journal first and then applied in the open transaction. SQLite
// gives a transaction up as a whole when it cannot write (a full disk, somebody else's lock); the
// journal is then applied again, at RETRY_MS, until it can be. So what has been asked for is never
// lost while the process lives, and its answer leaves only when it has been committed.
#include <chrono>
#include <cstring>

#include "platform/base/cfgdb.h"

namespace {

constexpr uint64_t RETRY_MS = 250;

uint64_t nowMs() {
    using namespace std::chrono;
    return static_cast<uint64_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// One change, as the journal keeps it. `first` to `fourth` are by kind:
//   insert     stored key; text; the inverse text when hasThird; record
//   remove     stored key
//   block      lowest and highest stored key
//   feed       name, text
//   mask       -
//   unresolve  stored key; lowest and highest of its block
//   resolved   number of the unresolved row, 8 bytes as they are in memory
enum changeKind : uint8_t {
    CHANGE_INSERT,
    CHANGE_REMOVE,
    CHANGE_BLOCK,
    CHANGE_FEED,
    CHANGE_MASK,
    CHANGE_UNRESOLVE,
    CHANGE_RESOLVED,
};
struct change {
    changeKind kind;
    bool hasThird = false;
    uint32_t section = 0;  // feed: the record's kind; mask: the mode
    uint32_t lineClass = 0;
    std::string_view first{}, second{}, third{}, fourth{};
};
struct journalHead {
    changeKind kind;
    bool hasThird;
    uint16_t lengths[4];
    uint32_t section, lineClass;
};

void journalAppend(std::string* journal, const change& c) {
    auto length = [](std::string_view s) { return static_cast<uint16_t>(s.size()); };
    journalHead head{c.kind,
                     c.hasThird,
                     {length(c.first), length(c.second), length(c.third), length(c.fourth)},
                     c.section,
                     c.lineClass};
    journal->append(reinterpret_cast<const char*>(&head), sizeof head);
    for (std::string_view s : {c.first, c.second, c.third, c.fourth}) journal->append(s);
}

// Takes the change at *at off the journal.
change journalTake(std::string_view journal, size_t* at) {
    journalHead head;
    std::memcpy(&head, journal.data() + *at, sizeof head);
    *at += sizeof head;
    std::string_view parts[4];
    for (int i = 0; i < 4; i++) {
        parts[i] = journal.substr(*at, head.lengths[i]);
        *at += head.lengths[i];
    }
    return {head.kind, head.hasThird, head.section, head.lineClass,
            parts[0],  parts[1],      parts[2],     parts[3]};
}

// A statement with the place bound to its first parameters; null after a report.
sqlite3_stmt* atPlace(zekCfgDb* db, cfgStatement which, const change& c) {
    sqlite3_stmt* s = cfgDbStatement(db, which);
    if (s == nullptr) return nullptr;
    sqlite3_bind_int64(s, 1, c.section);
    cfgBindBlob(s, 2, c.first);
    sqlite3_bind_int64(s, 3, c.lineClass);
    return s;
}

// The same of a block's statement.
sqlite3_stmt* atBlock(zekCfgDb* db, cfgStatement which, uint32_t section, std::string_view low,
                      std::string_view high) {
    sqlite3_stmt* s = cfgDbStatement(db, which);
    if (s == nullptr) return nullptr;
    sqlite3_bind_int64(s, 1, section);
    cfgBindBlob(s, 2, low);
    cfgBindBlob(s, 3, high);
    return s;
}

// What is unresolved about a place is settled when the place is written or removed.
int supersede(zekCfgDb* db, sqlite3_stmt* s) {
    if (s == nullptr) return -1;
    const int gone = cfgDbRun(db, s, "an unresolved line was not removed");
    if (gone > 0) db->now.unresolved -= static_cast<uint64_t>(gone);
    return gone;
}

int applyInsert(zekCfgDb* db, const change& c) {
    if (db->now.unresolved != 0 && supersede(db, atPlace(db, CFG_STMT_SUPERSEDE, c)) < 0) return -1;
    // Two statements rather than one upsert: the line count needs to know which it was.
    for (cfgStatement which : {CFG_STMT_INSERT, CFG_STMT_REPLACE}) {
        sqlite3_stmt* s = atPlace(db, which, c);
        if (s == nullptr) return -1;
        cfgBindText(s, 4, c.second);
        if (c.hasThird)
            cfgBindText(s, 5, c.third);
        else
            sqlite3_bind_null(s, 5);
        if (c.fourth.empty())
            sqlite3_bind_null(s, 6);
        else
            cfgBindBlob(s, 6, c.fourth);
        const int changed = cfgDbRun(db, s, "a line was not stored");
        if (changed < 0) return -1;
        if (which == CFG_STMT_INSERT && changed == 0) continue;  // the place is taken: replace
        if (which == CFG_STMT_INSERT) db->now.lines++;
        break;
    }
    return 1;  // a line that was there already, the same, counts too
}

int removeLines(zekCfgDb* db, sqlite3_stmt* s) {
    if (s == nullptr) return -1;
    const int removed = cfgDbRun(db, s, "a line was not removed");
    if (removed > 0) db->now.lines -= static_cast<uint64_t>(removed);
    return removed;
}

int applyRemove(zekCfgDb* db, const change& c) {
    int settled = 0;
    if (db->now.unresolved != 0) settled = supersede(db, atPlace(db, CFG_STMT_SUPERSEDE, c));
    const int removed = removeLines(db, atPlace(db, CFG_STMT_DELETE, c));
    return settled < 0 || removed < 0 ? -1 : settled + removed;
}

int applyBlock(zekCfgDb* db, const change& c) {
    int settled = 0;
    if (db->now.unresolved != 0)
        settled =
            supersede(db, atBlock(db, CFG_STMT_SUPERSEDE_BLOCK, c.section, c.first, c.second));
    const int removed =
        removeLines(db, atBlock(db, CFG_STMT_DELETE_BLOCK, c.section, c.first, c.second));
    return settled < 0 || removed < 0 ? -1 : settled + removed;
}

int applyUnresolve(zekCfgDb* db, const change& c) {
    sqlite3_stmt* s = atPlace(db, CFG_STMT_UNRESOLVE, c);
    if (s == nullptr) return -1;
    const int copied = cfgDbRun(db, s, "a line was not kept as unresolved");
    if (copied <= 0) return copied;
    db->now.unresolved += static_cast<uint64_t>(copied);
    if (removeLines(db, atPlace(db, CFG_STMT_DELETE, c)) < 0) return -1;
    // Its separator and header stand for nothing when the last line with a request has gone.
    s = atBlock(db, CFG_STMT_BLOCK_LIVES, c.section, c.second, c.third);
    if (s == nullptr) return -1;
    const int rc = sqlite3_step(s);
    sqlite3_reset(s);
    if (rc == SQLITE_ROW) return 1;
    if (rc != SQLITE_DONE) return -1;
    return removeLines(db, atBlock(db, CFG_STMT_DELETE_BLOCK, c.section, c.second, c.third)) < 0
               ? -1
               : 1;
}

int applyResolved(zekCfgDb* db, const change& c) {
    int64_t id;
    std::memcpy(&id, c.first.data(), sizeof id);
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_RESOLVED);
    if (s == nullptr) return -1;
    sqlite3_bind_int64(s, 1, id);
    return supersede(db, s);
}

// Applies one change in the open transaction: the rows it touched, or -1.
int apply(zekCfgDb* db, const change& c) {
    switch (c.kind) {
        case CHANGE_INSERT:
            return applyInsert(db, c);
        case CHANGE_REMOVE:
            return applyRemove(db, c);
        case CHANGE_BLOCK:
            return applyBlock(db, c);
        case CHANGE_FEED:
            return cfgFeedAdd(db, c.section, c.first, c.second) == 0 ? 1 : -1;
        case CHANGE_MASK:
            if (cfgDbSetMeta(db, CFG_META_MASK, c.section) != 0) return -1;
            db->now.maskMode = c.section;
            return 1;
        case CHANGE_UNRESOLVE:
            return applyUnresolve(db, c);
        case CHANGE_RESOLVED:
            return applyResolved(db, c);
    }
    return -1;
}

// Notices that SQLite has rolled the transaction back by itself.
void noticeRollback(zekCfgDb* db) {
    if (!db->inBatch || sqlite3_get_autocommit(db->sql) == 0) return;
    db->inBatch = false;
    db->now = db->atBegin;
}

// Nothing can be written now: the transaction is given up, the journal has what was in it.
int giveUp(zekCfgDb* db) {
    if (db->inBatch && sqlite3_get_autocommit(db->sql) == 0)
        sqlite3_exec(db->sql, "ROLLBACK", nullptr, nullptr, nullptr);
    noticeRollback(db);
    if (!db->failing)
        cfgDbReport(
            "configuration database: it cannot be written; changes are refused until it can");
    db->failing = true;
    db->dirty = true;
    db->failedCommits++;
    db->retryAtMs = nowMs() + RETRY_MS;
    sqlite3_busy_timeout(db->sql, CFG_BUSY_FAILING_MS);
    return -1;
}

bool mustWait(const zekCfgDb* db) {
    return db->failing && nowMs() < db->retryAtMs;
}

// What the row that is being restored has in the database already.
bool isThere(const zekCfgDb* db, const change& c) {
    const cfgStoredRow* row = db->restoring;
    if (row == nullptr || row->id != 0) return false;
    if (c.kind == CHANGE_FEED) return true;  // it was told when it was made
    if (c.kind == CHANGE_MASK) return c.section == db->now.maskMode;
    return c.kind == CHANGE_INSERT && c.section == row->section && c.lineClass == row->lineClass &&
           c.hasThird == row->hasInverse && c.first == row->key && c.second == row->text &&
           c.third == (row->hasInverse ? std::string_view(row->inverse) : c.third) &&
           c.fourth == row->record;
}

// Takes a change into the batch: 0; -1 when it touched nothing.
int makeChange(zekCfgDb* db, const change& c) {
    if (db == nullptr || db->readOnly) return -1;
    std::lock_guard lock(db->mutex);
    if (isThere(db, c)) return 0;
    noticeRollback(db);
    const size_t before = db->journal.size();
    journalAppend(&db->journal, c);
    db->dirty = true;
    db->changes++;
    if (mustWait(db)) return 0;
    if (db->inBatch) {
        db->lastTouched = apply(db, c);
        if (db->lastTouched < 0) giveUp(db);
    } else {
        (void)cfgDbBatch(db);  // applies the journal
    }
    if (db->lastTouched != 0 || db->failing) return 0;
    db->journal.resize(before);
    return -1;
}

std::string_view bytesView(const uint8_t* bytes, size_t length) {
    return {reinterpret_cast<const char*>(bytes), length};
}

std::string_view fieldText(const char* field, size_t size) {
    return {field, strnlen(field, size)};
}

int insert(zekCfgDb* db, const zekCfgRecord& record, std::string_view inverse,
           const zekCfgRequest& request) {
    static thread_local std::string stored;
    uint8_t key[CFG_STORED_KEY_MAX];
    const size_t length = cfgKeyStore(record.key, key);
    const std::string_view text = fieldText(record.text, CFG_TEXT_LEN);
    cfgRecordStore(request, &stored);
    return makeChange(
        db, {CHANGE_INSERT, inverse != text, record.section, record.lineClass,
             bytesView(key, length), text, inverse != text ? inverse : std::string_view(), stored});
}

// The lowest and highest stored key of the block that a key area is in.
struct blockRange {
    uint8_t low[CFG_STORED_KEY_MAX], high[CFG_STORED_KEY_MAX];
    size_t lowLength, highLength;

    blockRange(const zekCfgLayout& layout, uint32_t section, const uint8_t* key) {
        size_t front = layout.blockBytes;
        for (const zekCfgSectionRow& row : layout.sections)
            if (row.section == section) front = row.blockBytes;
        uint8_t area[CFG_KEY_LEN];
        std::memcpy(area, key, front);
        std::memset(area + front, 0, CFG_KEY_LEN - front);
        lowLength = cfgKeyStore(area, low);
        std::memset(area + front, 0xFF, CFG_KEY_LEN - front);
        highLength = cfgKeyStore(area, high);
    }
    std::string_view lowest() const { return bytesView(low, lowLength); }
    std::string_view highest() const { return bytesView(high, highLength); }
};

}  // namespace

int cfgDbBatch(zekCfgDb* db) {
    noticeRollback(db);
    if (db->inBatch) return 0;
    if (mustWait(db)) return -1;
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_BEGIN);
    if (s == nullptr || cfgDbRun(db, s, "no transaction can be opened") < 0) return giveUp(db);
    db->inBatch = true;
    db->dirty = true;
    db->atBegin = db->now;
    cfgFeedForget(db);
    for (size_t at = 0; at < db->journal.size();) {
        db->lastTouched = apply(db, journalTake(db->journal, &at));
        if (db->lastTouched < 0) return giveUp(db);
    }
    return 0;
}

int cfgDbCommit(zekCfgDb* db) {
    if (!db->dirty) return 0;
    if (cfgDbBatch(db) != 0) return -1;
    sqlite3_stmt* s = cfgFeedStore(db) == 0 ? cfgDbStatement(db, CFG_STMT_COMMIT) : nullptr;
    if (s == nullptr || cfgDbRun(db, s, "the changes were not committed") < 0) return giveUp(db);
    if (db->failing) {
        cfgDbReport("configuration database: it can be written again");
        sqlite3_busy_timeout(db->sql, CFG_BUSY_MS);
    }
    db->failing = false;
    db->inBatch = false;
    db->dirty = false;
    db->journal.clear();
    db->commits++;
    return 0;
}

int cfgDbTransaction(zekCfgDb* db, const std::function<int()>& fn) {
    if (cfgDbCommit(db) != 0 || cfgDbExec(db, "BEGIN IMMEDIATE") != 0) return -1;
    if (fn() == 0 && cfgDbExec(db, "COMMIT") == 0) return cfgDbCount(db);
    sqlite3_exec(db->sql, "ROLLBACK", nullptr, nullptr, nullptr);
    return -1;
}

uint64_t cfgDbChanges(const zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return db->changes;
}

int zekCfgInsertBothLine(zekCfgDb* db, const zekCfgRecord& record, const zekCfgRequest& request) {
    return insert(db, record, fieldText(record.inverseText, CFG_TEXT_LEN), request);
}

int zekCfgInsert(zekCfgDb* db, const zekCfgRecord& record, const zekCfgRequest& request) {
    return insert(db, record, fieldText(record.text, CFG_TEXT_LEN), request);
}

int zekCfgRemoveNode(zekCfgDb* db, const zekCfgRecord& record) {
    if (db == nullptr) return -1;
    const blockRange block(db->layout, record.section, record.key);
    return makeChange(
        db, {CHANGE_BLOCK, false, record.section, 0, block.lowest(), block.highest(), {}, {}});
}

int zekCfgRemoveExact(zekCfgDb* db, const zekCfgRecord& record) {
    uint8_t key[CFG_STORED_KEY_MAX];
    const size_t length = cfgKeyStore(record.key, key);
    return makeChange(
        db, {CHANGE_REMOVE, false, record.section, record.lineClass, bytesView(key, length)});
}

int zekCfgSync(zekCfgDb* db, const zekCfgSyncRecord& record) {
    return makeChange(
        db, {CHANGE_FEED, false, record.kind, 0, fieldText(record.name, sizeof record.name),
             fieldText(record.text, sizeof record.text)});
}

void zekCfgSetMaskMode(zekCfgDb* db, uint32_t inverse) {
    (void)makeChange(db, {CHANGE_MASK, false, inverse});
}

uint32_t zekCfgMaskMode(const zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    uint32_t mode = db->now.maskMode;
    if (db->readOnly) (void)cfgDbMeta(const_cast<zekCfgDb*>(db), CFG_META_MASK, &mode);
    return mode;
}

void cfgDbUnresolve(zekCfgDb* db, const cfgStoredRow& row) {
    uint8_t key[CFG_KEY_LEN];
    size_t length = 0;
    change c{CHANGE_UNRESOLVE, false, row.section, row.lineClass, row.key, row.key, row.key};
    if (!cfgUnpack(row.key, key, sizeof key, &length) || length != sizeof key) {
        (void)makeChange(db, c);  // damaged: a block of its own
        return;
    }
    const blockRange block(db->layout, row.section, key);
    c.second = block.lowest();
    c.third = block.highest();
    (void)makeChange(db, c);
}

void cfgDbResolved(zekCfgDb* db, uint64_t id) {
    const auto number = static_cast<int64_t>(id);
    (void)makeChange(
        db,
        {CHANGE_RESOLVED, false, 0, 0, {reinterpret_cast<const char*>(&number), sizeof number}});
}

int zekCfgCommit(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return cfgDbCommit(db);
}

bool zekCfgIsDirty(const zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return db->dirty;
}

bool zekCfgWritable(const zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return !db->failing;
}
