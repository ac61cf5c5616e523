// Where the configuration of a start comes from, and what a restart could not bring back.
#include <cstring>

#include "platform/base/cfgdb.h"

namespace {

// Adds a line that has come from a text, locked. 0 or -1.
int addUnresolved(zekCfgDb* db, sqlite3_stmt* s, const cfgStoredRow& row) {
    cfgBindText(s, 1, row.text);
    if (row.record.empty())
        sqlite3_bind_null(s, 2);
    else
        cfgBindBlob(s, 2, row.record);
    return cfgDbRun(db, s, "a line was not kept") < 0 ? -1 : 0;
}

}  // namespace

void cfgDbSetRestoring(zekCfgDb* db, const cfgStoredRow* row) {
    std::lock_guard lock(db->mutex);
    db->restoring = nullptr;
    size_t length = 0;
    // The numbers of an unresolved line may have been given to others since.
    if (row == nullptr || row->id != 0 ||
        !cfgUnpack(row->key, db->restoringKey, sizeof db->restoringKey, &length) ||
        length != CFG_KEY_LEN)
        return;
    db->restoring = row;
}

const uint8_t* zekCfgRestoring(const zekCfgDb* db) {
    // Only the task's thread sets it, and only that asks.
    return db != nullptr && db->restoring != nullptr ? db->restoringKey : nullptr;
}

int64_t zekCfgDiscardUnresolved(zekCfgDb* db, uint64_t id) {
    std::lock_guard lock(db->mutex);
    int64_t gone = -1;
    const int rc = cfgDbTransaction(db, [&] {
        const std::string sql = "DELETE FROM unresolved" +
                                (id != 0 ? " WHERE id=" + std::to_string(id) : std::string());
        if (cfgDbExec(db, sql.c_str()) != 0) return -1;
        gone = sqlite3_changes(db->sql);
        return 0;
    });
    return rc == 0 ? gone : -1;
}

int cfgDbForget(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    return cfgDbTransaction(db, [&] {
        if (cfgDbExec(db, "DELETE FROM lines; DELETE FROM unresolved") != 0 ||
            cfgDbSetMeta(db, CFG_META_MASK, 0) != 0)
            return -1;
        return cfgDbSetMeta(db, CFG_META_IMPORT, CFG_IMPORT_STARTUP);
    });
}

uint32_t cfgDbImport(zekCfgDb* db) {
    std::lock_guard lock(db->mutex);
    uint32_t import = CFG_IMPORT_DONE;
    return cfgDbMeta(db, CFG_META_IMPORT, &import) == 0 ? import : uint32_t{CFG_IMPORT_DONE};
}

int cfgDbWriteTexts(zekCfgDb* db, FILE* out) {
    std::lock_guard lock(db->mutex);
    std::string sql = "SELECT CASE WHEN inverse IS NOT NULL AND (";
    for (const zekCfgSectionRow& row : db->layout.sections)
        if (row.otherIsTyped) sql += "section=" + std::to_string(row.section) + " OR ";
    sql +=
        "coalesce((SELECT value FROM meta WHERE name='mask'), 0)<>0) THEN inverse ELSE text END"
        " FROM lines WHERE text<>'' ORDER BY section, key, class";
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db->sql, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) {
        cfgDbFailed(db, "the lines cannot be read");
        return -1;
    }
    int rc;
    bool good = true;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW && good) {
        const std::string_view text = cfgColumnText(s, 0);
        good = fwrite(text.data(), 1, text.size(), out) == text.size() && fputc('\n', out) != EOF;
    }
    sqlite3_finalize(s);
    return rc == SQLITE_DONE && good ? 0 : -1;
}

int cfgDbEndImport(zekCfgDb* db, const std::vector<cfgStoredRow>& rows) {
    std::lock_guard lock(db->mutex);
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db->sql, "INSERT INTO unresolved(text, record) VALUES(?1, ?2)", -1, &s,
                           nullptr) != SQLITE_OK) {
        cfgDbFailed(db, "a statement cannot be prepared");
        return -1;
    }
    const int rc = cfgDbTransaction(db, [&] {
        // What the texts stood for is to be made from their requests.
        if (cfgDbExec(db,
                      "DELETE FROM lines WHERE record IS NULL AND text <> ''"
                      " AND EXISTS(SELECT 1 FROM meta WHERE name='import' AND value=2);"
                      "DELETE FROM meta WHERE name='mask'"
                      " AND EXISTS(SELECT 1 FROM meta WHERE name='import' AND value=2)") != 0)
            return -1;
        for (const cfgStoredRow& row : rows)
            if (addUnresolved(db, s, row) != 0) return -1;
        return cfgDbSetMeta(db, CFG_META_IMPORT, CFG_IMPORT_DONE);
    });
    sqlite3_finalize(s);
    return rc;
}
