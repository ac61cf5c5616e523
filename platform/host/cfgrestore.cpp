// The restore: the records of the database, sent again one at a time. Runs on the task's thread,
// between two messages; see hostOwnRequests.
#include <atomic>
#include <cstring>

#include "include/ipc.h"
#include "include/service.h"
#include "include/status.h"
#include "platform/api/zekEvt.h"
#include "platform/host/cfgmgr.h"
#include "platform/host/cfgmgrlog.h"
#include "platform/host/host.h"

namespace {

constexpr uint64_t FLUSH_EVERY = 512;  // requests, then what they changed is committed
constexpr uint64_t LOGGED_MAX = 100;   // refused lines that the log tells one by one
constexpr size_t RESULT_OFFSET = 64;   // of a CLI request's answer

// Steps of a restore, in order; a retry is its third alone.
enum class step { idle, begin, lines, unresolved, end, complete, release };

struct restoreRun {
    zekCfgDb* db = nullptr;
    cfgMgrPlace place;
    std::atomic<step> at{step::idle};
    bool isRetry = false;
    bool again = false;  // a retry was asked for while one was under way
    std::vector<cfgStoredRow> rows;
    size_t next = 0;
    cfgStoredRow last;                   // read so far
    const cfgStoredRow* open = nullptr;  // its request is with the task
    uint32_t result = 0;
    uint64_t sent = 0, refused = 0;
    uint32_t sequence = 0;
};
restoreRun run;

// A message of the configuration manager to the task.
void makeMessage(std::vector<uint8_t>* message, const zekCfgRequest& request) {
    message->assign(sizeof(ipcHdr) + request.body.size(), 0);
    auto* hdr = wireView<ipcHdr>(std::span(*message));
    hdr->length = static_cast<uint32_t>(message->size());
    hdr->mtype = request.mtype;
    hdr->sequence = ++run.sequence;
    hdr->target.card = run.place.address;
    hdr->target.svce = HOST_OWN_SERVICE;
    hdr->source.card = run.place.address;
    hdr->source.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    if (!request.body.empty())
        std::memcpy(message->data() + sizeof *hdr, request.body.data(), request.body.size());
}

bool takeNotification(std::vector<uint8_t>* message, uint32_t mtype, step after) {
    makeMessage(message, {mtype, {}});
    run.at = after;
    return true;
}

// The next row of the step's table into run.rows[run.next]; false at its end.
bool readMore() {
    if (run.next < run.rows.size()) return true;
    const bool lines = run.at == step::lines;
    run.next = 0;
    if (!run.rows.empty()) run.last = run.rows.back();
    const int rc = lines ? cfgDbReadRecords(run.db, run.last, &run.rows)
                         : cfgDbReadUnresolved(run.db, run.last.id, &run.rows);
    if (rc != 0 && lines) {
        // A part of the configuration must not pass for the whole.
        cfgMgrSysErr("configuration manager: the running configuration cannot be read");
        std::fprintf(stderr, "the running configuration cannot be read\n");
        _exit(1);
    }
    return rc == 0 && !run.rows.empty();
}

bool takeRow(std::vector<uint8_t>* message) {
    static uint8_t body[CFG_REQUEST_MAX];
    while (readMore()) {
        const cfgStoredRow& row = run.rows[run.next++];
        const zekCfgRequest request = cfgRecordRead(row.record, body);
        if (request.mtype == 0) {  // a damaged record, or a text that nobody could read
            if (row.id == 0) cfgDbUnresolve(run.db, row);
            continue;
        }
        makeMessage(message, request);
        run.open = &row;
        run.result = ACL_E_SYSTEM;  // unless it is answered
        cfgDbSetRestoring(run.db, &row);
        if (++run.sent % FLUSH_EVERY == 0) hostFlush();
        return true;
    }
    run.rows.clear();
    run.next = 0;
    run.last = {};
    return false;
}

void restoreEnds() {
    if (!run.isRetry) hostReleaseRequests();
    if (run.refused != 0)
        cfgMgrLog("configuration manager: " + std::to_string(run.refused) +
                  " lines are unresolved");
    run.at = step::idle;
    if (run.again) zekCfgRetryUnresolved();
}

bool restoreNext(std::vector<uint8_t>* message) {
    for (;;) {
        switch (run.at.load()) {
            case step::idle:
                return false;
            case step::begin:
                return takeNotification(message, MT_CFG_START_BLK_CFG_NOTIF, step::lines);
            case step::lines:
                if (takeRow(message)) return true;
                run.at = step::unresolved;
                break;
            case step::unresolved:
                if (takeRow(message)) return true;
                run.at = run.isRetry ? step::release : step::end;
                break;
            case step::end:
                return takeNotification(message, MT_CFG_END_BLK_CFG_NOTIF, step::complete);
            case step::complete:
                return takeNotification(message, MT_CFG_INIT_CFG_COMPLETE, step::release);
            case step::release:
                restoreEnds();
                break;
        }
    }
}

void restoreAnswered(const void* message, size_t length) {
    if (run.open == nullptr) return;
    const auto bytes = std::span(static_cast<const uint8_t*>(message), length);
    const auto* hdr = wireView<ipcHdr>(bytes);
    const auto* result = wireView<be32>(bytes, RESULT_OFFSET);
    const bool isCli = hdr->mtype == MT_CLI_COMMAND || hdr->mtype == MT_CLI_COMMAND_2;
    run.result = isCli && result != nullptr ? uint32_t{*result} : uint32_t{hdr->status};
}

// What is refused as a line is tried once more behind the others: that verdict is told.
void tellRefused(const cfgStoredRow& row) {
    if (run.isRetry || row.id == 0 || run.refused++ >= LOGGED_MAX) return;
    const aclStatusRow* status = aclStatusFind(run.result);
    cfgMgrLog("restore: " + row.text + ": " + (status != nullptr ? status->text : "refused"));
}

void restoreDone() {
    const cfgStoredRow* row = run.open;
    if (row == nullptr) return;
    run.open = nullptr;
    cfgDbSetRestoring(run.db, nullptr);
    if (run.result == ACL_OK && row->id != 0) cfgDbResolved(run.db, row->id);
    if (run.result == ACL_OK || run.result == ACL_E_STORE) return;
    tellRefused(*row);
    if (row->id == 0) cfgDbUnresolve(run.db, *row);
}

bool restoreWaits() {
    return run.at != step::idle;
}

constexpr hostOwnRequests restoreRequests{restoreWaits, restoreNext, restoreAnswered, restoreDone};

}  // namespace

void cfgMgrRestore(zekCfgDb* db, const cfgMgrPlace& place) {
    hostHoldRequests();
    run.db = db;
    run.place = place;
    run.isRetry = run.again = false;
    run.sent = run.refused = 0;
    run.rows.clear();
    run.next = 0;
    run.last = {};
    hostSetOwnRequests(&restoreRequests);
    run.at = step::begin;
    hostWakeTask();
}

bool cfgMgrIsRestoring() {
    return run.at != step::idle && !run.isRetry;
}

void zekCfgRetryUnresolved() {
    if (run.db == nullptr || zekCfgStatistics(run.db).unresolved == 0) return;
    run.again = run.at != step::idle;
    if (run.again) return;
    run.isRetry = true;
    run.sent = run.refused = 0;
    run.at = step::unresolved;
}
