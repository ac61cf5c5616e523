// The configuration database: the running configuration, line by line.
//
// A node is one line: its place (section, key area, line class), two texts, of which the one that
// matches the mask display mode is shown, and the request that makes it again. The texts are for
// people; a restart sends the requests. The shown order is by section, then by the 256 key bytes,
// then by line class, all ascending. Nodes with an empty text are anchors and not shown; nodes
// without a request (separators, the header of an interface) come back with the nodes beside them.
//
// Changes join the open batch and are durable once zekCfgCommit has returned 0; the host platform
// commits before it lets an answer leave. A change that cannot be written now (a full disk, a lock
// that somebody else holds) stays in the batch and is written when that is possible again; until
// then zekCfgWritable is false and nothing further should be changed.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "include/wire.h"

constexpr size_t CFG_KEY_LEN = 256;
constexpr size_t CFG_TEXT_LEN = 256;

// The platform's record, as it is handed over: host-order words would do, but the layout is shared
// with other tasks and is fixed.
struct zekCfgRecord {
    uint8_t key[CFG_KEY_LEN];  // meaning by section
    be32 section;
    be32 lineClass;
    char text[CFG_TEXT_LEN];         // normal-mask form, NUL-terminated
    char inverseText[CFG_TEXT_LEN];  // inverse-mask form
};
WIRE_SIZE(zekCfgRecord, 776);
WIRE_AT(zekCfgRecord, section, 256);
WIRE_AT(zekCfgRecord, lineClass, 260);
WIRE_AT(zekCfgRecord, text, 264);
WIRE_AT(zekCfgRecord, inverseText, 520);

// What the database is told of the sections, as it knows no kind of list: how many bytes at the
// front of the key area the lines of a block have in common, and whether the other text is the line
// as it was typed in a database of an older program, which had no requests.
struct zekCfgSectionRow {
    uint32_t section;
    uint32_t blockBytes;
    bool otherIsTyped;
};
struct zekCfgLayout {
    uint32_t blockBytes = CFG_KEY_LEN;  // of sections that have no row
    std::span<const zekCfgSectionRow> sections = {};
};

// One change, told to whoever follows the feed.
struct zekCfgSyncRecord {
    be32 kind;       // 0  what was changed: the writer's number for it
    be32 words[3];   // 4  by kind
    char name[140];  // 16
    uint8_t reserved156[116];
    char text[256];  // 272  the line, or "no " and the line
};
WIRE_SIZE(zekCfgSyncRecord, 528);
WIRE_AT(zekCfgSyncRecord, name, 16);
WIRE_AT(zekCfgSyncRecord, text, 272);

// A request to the task: the type of the message and what it carries behind its 60-byte header. A
// restart sends it again, to the byte. Type 0: none.
struct zekCfgRequest {
    uint32_t mtype = 0;
    std::span<const uint8_t> body;
};
constexpr size_t CFG_REQUEST_MAX = 8192 - 60;

struct zekCfgDb;

// Inserts a node with both texts; a node in the same place is replaced. 0 or -1.
int zekCfgInsertBothLine(zekCfgDb* db, const zekCfgRecord& record,
                         const zekCfgRequest& request = {});
// The same for a node whose one text serves both modes: inverseText is not read.
int zekCfgInsert(zekCfgDb* db, const zekCfgRecord& record, const zekCfgRequest& request = {});
// Removes the block that the node heads: every line of its section whose key area begins with the
// same bytes, as many as the layout says. 0, or -1 when nothing was there.
int zekCfgRemoveNode(zekCfgDb* db, const zekCfgRecord& record);
// Removes the node in exactly this place (section, key area, line class). 0, or -1 when absent.
int zekCfgRemoveExact(zekCfgDb* db, const zekCfgRecord& record);
// Appends to the change feed.
int zekCfgSync(zekCfgDb* db, const zekCfgSyncRecord& record);

// False while the database cannot be written; by itself true again when it can.
[[nodiscard]] bool zekCfgWritable(const zekCfgDb* db);
// While the request of a stored node is sent again: the node's key area (CFG_KEY_LEN bytes), for
// numbers that the request does not carry and that are to come back as they were. Else null.
[[nodiscard]] const uint8_t* zekCfgRestoring(const zekCfgDb* db);
// Sends again what a restart could not bring back, after something has changed in the chassis.
void zekCfgRetryUnresolved();

// The request of the node in exactly this place, changes of the open batch included; its body is
// good until the next call. 1; 0 when there is no such node; -1 when the database cannot be read.
int zekCfgRequestAt(zekCfgDb* db, const zekCfgRecord& place, zekCfgRequest* request);

// Which text the database shows from now on: 0 normal, 1 inverse.
void zekCfgSetMaskMode(zekCfgDb* db, uint32_t inverse);
[[nodiscard]] uint32_t zekCfgMaskMode(const zekCfgDb* db);

// Makes every change since the last commit durable. 0, or -1: the changes stay in the batch.
int zekCfgCommit(zekCfgDb* db);
[[nodiscard]] bool zekCfgIsDirty(const zekCfgDb* db);

// Calls fn with every shown line in order until it returns false: the lines of one instant, read to
// the end before the first is handed over, so that a slow reader keeps nothing open. Only what is
// committed is seen when the database was opened for reading.
// 0, or -1 when the database cannot be read.
int zekCfgWalk(zekCfgDb* db, const std::function<bool(std::string_view line)>& fn);
// The same with the request of each line.
struct zekCfgRow {
    uint32_t section, lineClass;
    std::string_view text;  // of the mask mode
    zekCfgRequest request;
};
int zekCfgWalkRows(zekCfgDb* db, const std::function<bool(const zekCfgRow& row)>& fn);

// What a restart could not bring back, oldest first: its number, its line (which may be all that is
// known of it), and whether there is a request to be tried again. 0 or -1.
struct zekCfgUnresolvedRow {
    uint64_t id;
    std::string_view text;
    zekCfgRequest request;
};
int zekCfgWalkUnresolved(zekCfgDb* db,
                         const std::function<bool(const zekCfgUnresolvedRow& row)>& fn);
// Forgets one of them, or all (0). How many there were, or -1.
int64_t zekCfgDiscardUnresolved(zekCfgDb* db, uint64_t id);

struct zekCfgStats {
    uint64_t lines, unresolved, feed, commits, failedCommits, changes;
    bool writable;
};
[[nodiscard]] zekCfgStats zekCfgStatistics(zekCfgDb* db);

// Follows the change feed: calls fn with the changes behind sequence number `after` in order until
// it returns false. The feed keeps at least the newest ZEK_CFG_FEED_KEEP changes. 0 or -1.
constexpr uint64_t ZEK_CFG_FEED_KEEP = 10000;
struct zekCfgFeedRow {
    uint64_t seq;  // from 1, ascending, never reused
    uint32_t kind;
    std::string_view name, text;  // valid during the call
};
int zekCfgFeed(zekCfgDb* db, uint64_t after,
               const std::function<bool(const zekCfgFeedRow& row)>& fn);

// Writes the shown lines to a file, whole or not at all: a temporary file is renamed onto it.
// `line` gives a row's text as it is to be typed. 0, or -1 with errno; the old file is untouched
// then.
int zekCfgWriteStartup(zekCfgDb* db, const char* file,
                       const std::function<std::string(const zekCfgRow& row)>& line = {});

// Opens DIR/file for writing (making it when it is absent), or for reading only, or, with a
// null directory, a database in memory. Null on failure, with the reason in the system-error log.
// What has not been committed when a database is closed is lost. The layout's rows live as long as
// the database; who only reads needs none.
enum class zekCfgAccess { write, read };
constexpr const char* ZEK_CFG_FILE = "running.db";
// The file of a route processor's manager in the run folder.
inline std::string zekCfgFileOf(uint32_t rp) {
    return rp == 0 ? ZEK_CFG_FILE : "running-rp" + std::to_string(rp) + ".db";
}
[[nodiscard]] zekCfgDb* zekCfgOpen(const char* directory, zekCfgAccess access,
                                   const char* file = ZEK_CFG_FILE,
                                   const zekCfgLayout& layout = {});
void zekCfgClose(zekCfgDb* db);
// The database of this task, opened by zekDdbInit; null before.
[[nodiscard]] zekCfgDb* zekCfgOfTask();
