// Reading the configuration database: the shown lines, the startup configuration.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "platform/host/cfgdb.h"

namespace {

constexpr int PAGE_LINES = 256;  // rows of a walk that are in memory at a time

}  // namespace

int cfgDbWalkTable(zekCfgDb* db, cfgStatement page, cfgTexts which,
                   const std::function<bool(std::string_view line)>& fn) {
    int64_t section = -1, lineClass = 0;
    std::string key, texts;
    std::vector<size_t> ends;
    for (int rows = PAGE_LINES; rows == PAGE_LINES;) {
        rows = 0;
        texts.clear();
        ends.clear();
        {
            std::lock_guard lock(db->mutex);
            if (db->dirty && cfgDbBatch(db) != 0) return -1;
            sqlite3_stmt* s = cfgDbStatement(db, page);
            if (s == nullptr) return -1;
            sqlite3_bind_int64(s, 1, section);
            cfgBindBlob(s, 2, key);
            sqlite3_bind_int64(s, 3, lineClass);
            sqlite3_bind_int(s, 4, PAGE_LINES);
            std::string lastKey;
            int rc;
            while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
                bool second = sqlite3_column_int64(s, 0) == CFG_SECTION_RMAP ? which.typed
                                                                             : which.inverse != 0;
                bool hasSecond = sqlite3_column_type(s, 4) != SQLITE_NULL;
                texts += cfgColumnText(s, second && hasSecond ? 4 : 3);
                ends.push_back(texts.size());
                if (++rows < PAGE_LINES) continue;
                section = sqlite3_column_int64(s, 0);
                const auto* bytes = static_cast<const char*>(sqlite3_column_blob(s, 1));
                lastKey.assign(bytes ? bytes : "", static_cast<size_t>(sqlite3_column_bytes(s, 1)));
                lineClass = sqlite3_column_int64(s, 2);
            }
            if (rc != SQLITE_DONE) cfgDbFailed(db, "the lines cannot be read");
            sqlite3_reset(s);
            sqlite3_clear_bindings(s);
            if (rc != SQLITE_DONE) return -1;
            key = lastKey;
        }
        size_t from = 0;
        for (size_t end : ends) {
            std::string_view line(texts.data() + from, end - from);
            from = end;
            if (!line.empty() && !fn(line)) return 0;
        }
    }
    return 0;
}

namespace {

int walk(zekCfgDb* db, bool typed, const std::function<bool(std::string_view line)>& fn) {
    if (!db->readOnly) return cfgDbWalkTable(db, CFG_STMT_PAGE, {zekCfgMaskMode(db), typed}, fn);
    // One read transaction around all pages: the lines of one instant.
    {
        std::lock_guard lock(db->mutex);
        if (cfgDbExec(db, "BEGIN") != 0) return -1;
    }
    int rc = cfgDbWalkTable(db, CFG_STMT_PAGE, {zekCfgMaskMode(db), typed}, fn);
    std::lock_guard lock(db->mutex);
    return cfgDbExec(db, "COMMIT") == 0 ? rc : -1;
}

}  // namespace

int zekCfgWalk(zekCfgDb* db, const std::function<bool(std::string_view line)>& fn) {
    return walk(db, false, fn);
}

int zekCfgWriteStartup(zekCfgDb* db, const char* file) {
    std::string temporary = std::string(file) + ".tmp";
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    if (fd < 0) return -1;
    FILE* out = fdopen(fd, "w");
    bool good = out != nullptr;
    if (good) {
        good = walk(db, true,
                    [&](std::string_view line) {
                        good = std::fwrite(line.data(), 1, line.size(), out) == line.size() &&
                               std::fputc('\n', out) != EOF;
                        return good;
                    }) == 0 &&
               good;
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
