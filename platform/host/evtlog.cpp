// System errors, log lines and debug text: rings in memory, and a file or syslog. Any thread.
#include "platform/api/zekEvt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <deque>
#include <mutex>

#include "include/ipc.h"
#include "include/service.h"
#include "platform/host/host.h"

namespace {

constexpr size_t RING_MAX = 1024;     // lines
constexpr off_t FILE_MAX = 16 << 20;  // bytes; then the file becomes FILE.1
constexpr uint32_t LOGS_MAX = 16;
constexpr uint32_t MT_EVH_SUBSCRIBE = 10600;

struct evtLogRecord {
    bool open = false;
    std::string name;
    uint32_t mask = 0xFFFFFFFF;  // bit per severity
};

std::mutex lock;
std::array<evtLogRecord, LOGS_MAX> logs;  // handle - 1
std::deque<zekEvtLine> ring;
std::deque<zekEvtLine> debugRing;
uint64_t lines = 0, debugLines = 0;
std::string logFile;
hostFd logFd;
off_t logSize = 0;
bool useSyslog = false;

uint64_t wallMs() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void push(std::deque<zekEvtLine>* to, zekEvtLine line) {
    if (to->size() == RING_MAX) to->pop_front();
    to->push_back(std::move(line));
}

void openFile() {
    logFd = hostFd(open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640));
    struct stat st;
    logSize = logFd.fd >= 0 && fstat(logFd.fd, &st) == 0 ? st.st_size : 0;
}

void writeFile(const std::string& line) {
    if (logFd.fd < 0) return;
    if (logSize > FILE_MAX) {
        rename(logFile.c_str(), (logFile + ".1").c_str());
        openFile();
    }
    // A log that cannot be written must not stop the task; the ring still has the line.
    if (logFd.fd >= 0 && write(logFd.fd, line.data(), line.size()) > 0)
        logSize += static_cast<off_t>(line.size());
}

void record(zekEvtLog log, uint32_t severity, uint32_t code, std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    // Names of lists end up here: a text stays one line, and cannot pass for another.
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ') c = ' ';
    uint64_t now = wallMs();
    std::lock_guard guard(lock);
    const evtLogRecord* from = log - 1 < LOGS_MAX && logs[log - 1].open ? &logs[log - 1] : nullptr;
    if (code == 0 && from != nullptr && severity < 32 && (from->mask >> severity & 1) == 0) return;

    char front[96];
    time_t seconds = static_cast<time_t>(now / 1000);
    tm utc;
    gmtime_r(&seconds, &utc);
    size_t n = strftime(front, sizeof(front), "%Y-%m-%dT%H:%M:%S", &utc);
    n += static_cast<size_t>(snprintf(front + n, sizeof(front) - n, ".%03uZ %.20s ",
                                      static_cast<unsigned>(now % 1000),
                                      from != nullptr ? from->name.c_str() : "host"));
    if (code != 0) snprintf(front + n, sizeof(front) - n, "0x%x ", code);
    if (useSyslog)
        syslog(code != 0 ? LOG_ERR : LOG_INFO, "%s", text.c_str());
    else
        writeFile(front + text + "\n");
    push(&ring, {++lines, now, code, std::move(text)});
}

// The lines are copied: fn may log.
void walk(const std::deque<zekEvtLine>& of, const std::function<void(const zekEvtLine&)>& fn) {
    std::deque<zekEvtLine> copy;
    {
        std::lock_guard guard(lock);
        copy = of;
    }
    for (const zekEvtLine& line : copy) fn(line);
}

}  // namespace

void hostLogOpen(const std::string& file, bool toSyslog) {
    std::lock_guard guard(lock);
    useSyslog = toSyslog;
    logFile = file;
    logFd.reset();
    if (toSyslog)
        openlog("aclmgr", LOG_PID, LOG_DAEMON);
    else if (!file.empty())
        openFile();
}

zekEvtLog zekEvtOpenlog(const char* name, uint32_t, uint32_t, uint32_t) {
    std::lock_guard guard(lock);
    for (uint32_t i = 0; i < LOGS_MAX; i++) {
        if (logs[i].open) continue;
        logs[i] = {true, name, 0xFFFFFFFF};
        return i + 1;
    }
    return 0;
}

void zekEvtCloselog(zekEvtLog log) {
    std::lock_guard guard(lock);
    if (log - 1 < LOGS_MAX) logs[log - 1] = {};
}

void zekEvtSetSeverityLevel(zekEvtLog log, uint32_t mask) {
    std::lock_guard guard(lock);
    if (log - 1 < LOGS_MAX) logs[log - 1].mask = mask;
}

void zekSysErr(zekEvtLog log, uint32_t severity, uint32_t code, uint32_t, const char* text) {
    record(log, severity, code, text);
}
void zekEvtLogPrint(zekEvtLog log, uint32_t severity, const char* text) {
    record(log, severity, 0, text);
}

void zekDebugPrint(std::string_view text) {
    if (hostConf().debug) fwrite(text.data(), 1, text.size(), stderr);
    std::lock_guard guard(lock);
    push(&debugRing, {++debugLines, wallMs(), 0, std::string(text)});
}

void zekEvtRing(const std::function<void(const zekEvtLine&)>& fn) {
    walk(ring, fn);
}
void hostDebugRing(const std::function<void(const zekEvtLine&)>& fn) {
    walk(debugRing, fn);
}

int zekEvhSubscribeEvt(uint32_t ipcKey, uint32_t event, uint32_t type) {
    struct subscription {
        ipcHdr hdr;
        be32 event;  // 60
        be32 type;   // 64
    } request{};
    WIRE_SIZE(subscription, 68);
    uint32_t address;
    if (zek_tmeGetPeerIpAddrByName(APP_EVH, 0, &address) != 0) return -1;
    request.hdr.length = sizeof(request);
    request.hdr.mtype = MT_EVH_SUBSCRIBE;
    request.hdr.target.card = zek_sysGetIpAddr(address);
    // Tasks name their response queue as the sender; the event handler answers nothing, and sends
    // events to the request queue.
    request.hdr.target.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    request.hdr.source.card = address;
    request.hdr.source.svce = aclServicePort(APP_EVH, 0, QUEUE_REQUEST);
    request.event = event;
    request.type = type;
    return zekIpcSend(Key_getReqQueue(ipcKey), &request, sizeof(request));
}
