// Reading the configuration database: the shown lines, what a restart sends, the startup
// configuration.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/base/cfgdb.h"

namespace {

constexpr int PAGE_ROWS = 512;  // of a restore that are in memory at a time

void readRow(sqlite3_stmt* s, cfgStoredRow* row) {
    row->section = static_cast<uint32_t>(sqlite3_column_int64(s, 0));
    row->key = cfgColumnBlob(s, 1);
    row->lineClass = static_cast<uint32_t>(sqlite3_column_int64(s, 2));
    row->text = cfgColumnText(s, 3);
    row->hasInverse = sqlite3_column_type(s, 4) != SQLITE_NULL;
    row->inverse = cfgColumnText(s, 4);
    row->record = cfgColumnBlob(s, 5);
}

// Steps a bound statement to its end, locked: fn with every row. 0 or -1.
template <class Fn>
int eachRow(zekCfgDb* db, sqlite3_stmt* s, Fn fn) {
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW) fn(s);
    if (rc != SQLITE_DONE) cfgDbFailed(db, "the lines cannot be read");
    sqlite3_reset(s);
    sqlite3_clear_bindings(s);
    return rc == SQLITE_DONE ? 0 : -1;
}

// The bytes of many rows, one behind the other.
struct rowBytes {
    struct row {
        uint64_t id;
        uint32_t section, lineClass;
        size_t textEnd, recordEnd;
    };
    std::string bytes;
    std::vector<row> rows;
};

// The text that the mask mode shows.
std::string_view shownText(sqlite3_stmt* s, bool inverse) {
    return cfgColumnText(s, inverse && sqlite3_column_type(s, 4) != SQLITE_NULL ? 4 : 3);
}

void keepRow(rowBytes* all, sqlite3_stmt* s, uint64_t id, bool inverse) {
    all->bytes += shownText(s, inverse);
    const size_t textEnd = all->bytes.size();
    all->bytes += cfgColumnBlob(s, 5);
    all->rows.push_back({id, static_cast<uint32_t>(sqlite3_column_int64(s, 0)),
                         static_cast<uint32_t>(sqlite3_column_int64(s, 2)), textEnd,
                         all->bytes.size()});
}

// Calls fn(row, text, request) until it returns false.
template <class Fn>
void giveRows(const rowBytes& all, Fn fn) {
    const auto body = std::make_unique<uint8_t[]>(CFG_REQUEST_MAX);
    const std::string_view bytes = all.bytes;
    size_t from = 0;
    for (const rowBytes::row& row : all.rows) {
        const std::string_view text = bytes.substr(from, row.textEnd - from);
        const std::string_view record = bytes.substr(row.textEnd, row.recordEnd - row.textEnd);
        from = row.recordEnd;
        if (!fn(row, text, cfgRecordRead(record, body.get()))) return;
    }
}

// One look at all rows of a statement, as they are at one instant.
template <class Bind>
int readAll(zekCfgDb* db, cfgStatement which, bool withId, Bind bind, rowBytes* all) {
    std::lock_guard lock(db->mutex);
    if (!db->readOnly && db->dirty && cfgDbBatch(db) != 0) return -1;
    if (db->readOnly && cfgDbExec(db, "BEGIN") != 0) return -1;
    uint32_t inverse = db->now.maskMode;
    int rc = db->readOnly ? cfgDbMeta(db, CFG_META_MASK, &inverse) : 0;
    sqlite3_stmt* s = rc == 0 ? cfgDbStatement(db, which) : nullptr;
    if (s != nullptr) {
        bind(s);
        rc = eachRow(db, s, [&](sqlite3_stmt* row) {
            keepRow(all, row, withId ? static_cast<uint64_t>(sqlite3_column_int64(row, 6)) : 0,
                    inverse != 0);
        });
    }
    if (db->readOnly && cfgDbExec(db, "COMMIT") != 0) rc = -1;
    return s != nullptr ? rc : -1;
}

// What a restart reads lies ahead of what it has changed so far: while that cannot be written, the
// committed rows will do.
void applyWhenPossible(zekCfgDb* db) {
    if (db->dirty) (void)cfgDbBatch(db);
}

}  // namespace

int zekCfgWalkRows(zekCfgDb* db, const std::function<bool(const zekCfgRow& row)>& fn) {
    rowBytes all;
    if (readAll(
            db, CFG_STMT_PAGE, false, [](sqlite3_stmt*) {}, &all) != 0)
        return -1;
    giveRows(all, [&](const rowBytes::row& row, std::string_view text, zekCfgRequest request) {
        return text.empty() || fn({row.section, row.lineClass, text, request});
    });
    return 0;
}

int zekCfgWalk(zekCfgDb* db, const std::function<bool(std::string_view line)>& fn) {
    return zekCfgWalkRows(db, [&](const zekCfgRow& row) { return fn(row.text); });
}

int zekCfgWalkUnresolved(zekCfgDb* db,
                         const std::function<bool(const zekCfgUnresolvedRow& row)>& fn) {
    rowBytes all;
    auto bind = [](sqlite3_stmt* s) {
        sqlite3_bind_int64(s, 1, 0);
        sqlite3_bind_int64(s, 2, -1);
    };
    if (readAll(db, CFG_STMT_PAGE_UNRESOLVED, true, bind, &all) != 0) return -1;
    giveRows(all, [&](const rowBytes::row& row, std::string_view text, zekCfgRequest request) {
        return fn({row.id, text, request});
    });
    return 0;
}

int zekCfgRequestAt(zekCfgDb* db, const zekCfgRecord& place, zekCfgRequest* request) {
    *request = {};
    if (db == nullptr) return -1;
    std::lock_guard lock(db->mutex);
    if (!db->readOnly && db->dirty && cfgDbBatch(db) != 0) return -1;
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_RECORD_AT);
    if (s == nullptr) return -1;
    uint8_t key[CFG_STORED_KEY_MAX];
    const size_t length = cfgKeyStore(place.key, key);
    sqlite3_bind_int64(s, 1, place.section);
    cfgBindBlob(s, 2, {reinterpret_cast<const char*>(key), length});
    sqlite3_bind_int64(s, 3, place.lineClass);
    int found = 0;
    const int rc = eachRow(db, s, [&](sqlite3_stmt* row) {
        found = 1;
        *request = cfgRecordRead(cfgColumnBlob(row, 0), db->foundBody);
    });
    return rc == 0 ? found : -1;
}

int cfgDbReadRecords(zekCfgDb* db, const cfgStoredRow& after, std::vector<cfgStoredRow>* rows) {
    rows->clear();
    std::lock_guard lock(db->mutex);
    applyWhenPossible(db);
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_PAGE_RECORDS);
    if (s == nullptr) return -1;
    sqlite3_bind_int64(s, 1, after.section);
    cfgBindBlob(s, 2, after.key);
    sqlite3_bind_int64(s, 3, after.lineClass);
    sqlite3_bind_int(s, 4, PAGE_ROWS);
    return eachRow(db, s, [&](sqlite3_stmt* at) { readRow(at, &rows->emplace_back()); });
}

int cfgDbReadUnresolved(zekCfgDb* db, uint64_t after, std::vector<cfgStoredRow>* rows) {
    rows->clear();
    std::lock_guard lock(db->mutex);
    applyWhenPossible(db);
    sqlite3_stmt* s = cfgDbStatement(db, CFG_STMT_PAGE_UNRESOLVED);
    if (s == nullptr) return -1;
    sqlite3_bind_int64(s, 1, static_cast<int64_t>(after));
    sqlite3_bind_int(s, 2, 1);
    return eachRow(db, s, [&](sqlite3_stmt* at) {
        readRow(at, &rows->emplace_back());
        rows->back().id = static_cast<uint64_t>(sqlite3_column_int64(at, 6));
    });
}

int zekCfgWriteStartup(zekCfgDb* db, const char* file,
                       const std::function<std::string(const zekCfgRow& row)>& line) {
    std::string temporary = std::string(file) + ".tmp";
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    if (fd < 0) return -1;
    FILE* out = fdopen(fd, "w");
    bool good = out != nullptr;
    if (good) {
        const int read = zekCfgWalkRows(db, [&](const zekCfgRow& row) {
            const std::string text = (line ? line(row) : std::string(row.text)) + "\n";
            good = std::fwrite(text.data(), 1, text.size(), out) == text.size();
            return good;
        });
        if (read != 0) errno = EBUSY;
        good = read == 0 && good;
        good = std::fflush(out) == 0 && good && fsync(fd) == 0;
        int error = errno;
        std::fclose(out);
        errno = error;
    } else {
        close(fd);
    }
    if (!good || rename(temporary.c_str(), file) != 0) {
        int error = errno;
        unlink(temporary.c_str());
        errno = error;
        return -1;
    }
    // The rename is durable once the folder is.
    std::string folder(file);
    size_t slash = folder.rfind('/');
    folder = slash == folder.npos ? "." : slash == 0 ? "/" : folder.substr(0, slash);
    if (int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        fsync(dir);
        close(dir);
    }
    return 0;
}
