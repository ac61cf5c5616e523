// Writing the write-ahead log. SQLite writes every page of a transaction as two pieces, a 24-byte
// frame header and the page; a system call each is a good part of a small commit. This VFS is the
// default one but for the log's file: it keeps pieces that follow each other and writes them
// together at the latest when a transaction's last frame is whole, that is before SQLite tells
// readers of it. A failure is thus the commit's failure. Whatever else is done with the file comes
// behind what is kept.
#include <algorithm>
#include <cstring>
#include <new>

#include "include/wire.h"
#include "platform/base/cfgdb.h"

namespace {

constexpr size_t FRAME_HEADER = 24;    // its second word: not zero in a transaction's last frame
constexpr size_t KEPT_MAX = 64 << 10;  // SQLite writes no piece of 128 KB whole

struct walFile {
    sqlite3_file base;    // what SQLite sees, first
    sqlite3_file* below;  // the default VFS's file, behind this record
    std::string kept;     // not written yet, from keptAt on
    sqlite3_int64 keptAt;
    sqlite3_int64 end;  // of what has been handed over since the log began anew
    bool lastFrame;     // the piece to come ends a transaction
};

walFile* fileOf(sqlite3_file* f) {
    return reinterpret_cast<walFile*>(f);
}

// Writes what is kept. It is gone in any case: SQLite gives a transaction up whose write failed.
int writeKept(walFile* w) {
    if (w->kept.empty()) return SQLITE_OK;
    int rc = w->below->pMethods->xWrite(w->below, w->kept.data(), static_cast<int>(w->kept.size()),
                                        w->keptAt);
    w->kept.clear();
    return rc;
}

int walWrite(sqlite3_file* f, const void* bytes, int length, sqlite3_int64 at) {
    walFile* w = fileOf(f);
    auto size = static_cast<size_t>(length);
    bool whole = w->lastFrame;
    w->lastFrame = false;
    if (size == FRAME_HEADER) {
        be32 pages;
        std::memcpy(&pages, static_cast<const char*>(bytes) + 4, sizeof pages);
        w->lastFrame = pages != 0;
    }
    bool again = at != 0 && at < w->end;
    bool follows = at == w->keptAt + static_cast<sqlite3_int64>(w->kept.size());
    if (again || !follows || w->kept.size() + size > KEPT_MAX)
        if (int rc = writeKept(w); rc != SQLITE_OK) return rc;
    w->end = again ? std::max(w->end, at + length) : at + length;
    // Frames are corrected, checksums above all, when they are written already.
    if (again) return w->below->pMethods->xWrite(w->below, bytes, length, at);
    if (w->kept.empty()) w->keptAt = at;
    w->kept.append(static_cast<const char*>(bytes), size);
    return whole ? writeKept(w) : SQLITE_OK;
}

// Calls one of the default file's methods behind what is kept.
template <auto Method, class... Args>
int walBehind(sqlite3_file* f, Args... args) {
    walFile* w = fileOf(f);
    int rc = writeKept(w);
    return rc != SQLITE_OK ? rc : (w->below->pMethods->*Method)(w->below, args...);
}
template <auto Method>
int walAsIs(sqlite3_file* f) {
    return (fileOf(f)->below->pMethods->*Method)(fileOf(f)->below);
}

using io = sqlite3_io_methods;

int walClose(sqlite3_file* f) {
    walFile* w = fileOf(f);
    int rc = writeKept(w);
    int closed = w->below->pMethods->xClose(w->below);
    w->~walFile();
    return rc != SQLITE_OK ? rc : closed;
}

io makeMethods() {
    io m{};
    m.iVersion = 1;  // no shared memory: that belongs to the database's file
    m.xClose = walClose;
    m.xRead = walBehind<&io::xRead, void*, int, sqlite3_int64>;
    m.xWrite = walWrite;
    m.xTruncate = walBehind<&io::xTruncate, sqlite3_int64>;
    m.xSync = walBehind<&io::xSync, int>;
    m.xFileSize = walBehind<&io::xFileSize, sqlite3_int64*>;
    m.xLock = walBehind<&io::xLock, int>;
    m.xUnlock = walBehind<&io::xUnlock, int>;
    m.xCheckReservedLock = walBehind<&io::xCheckReservedLock, int*>;
    m.xFileControl = walBehind<&io::xFileControl, int, void*>;
    m.xSectorSize = walAsIs<&io::xSectorSize>;
    m.xDeviceCharacteristics = walAsIs<&io::xDeviceCharacteristics>;
    return m;
}
const io walMethods = makeMethods();

sqlite3_vfs* defaultVfs;

int walOpen(sqlite3_vfs*, const char* name, sqlite3_file* f, int flags, int* outFlags) {
    if ((flags & SQLITE_OPEN_WAL) == 0)
        return defaultVfs->xOpen(defaultVfs, name, f, flags, outFlags);
    auto* w = new (f) walFile{};
    w->below = reinterpret_cast<sqlite3_file*>(w + 1);
    int rc = defaultVfs->xOpen(defaultVfs, name, w->below, flags, outFlags);
    if (rc == SQLITE_OK)
        w->base.pMethods = &walMethods;
    else
        w->~walFile();
    return rc;
}

}  // namespace

const char* cfgWalVfs() {
    // Registered once, for the process's life.
    static const char* name = [] {
        defaultVfs = sqlite3_vfs_find(nullptr);
        static sqlite3_vfs vfs = *defaultVfs;
        vfs.pNext = nullptr;
        vfs.zName = "acl-wal";
        vfs.szOsFile = defaultVfs->szOsFile + static_cast<int>(sizeof(walFile));
        vfs.xOpen = walOpen;
        return sqlite3_vfs_register(&vfs, 0) == SQLITE_OK ? vfs.zName : nullptr;
    }();
    return name;
}
