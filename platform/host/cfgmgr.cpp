// The configuration manager.
//
// A restore is a child process: the shell with --restore, which reads the configuration from a file
// and reports refused lines on its standard error. It is held to have worked when it exits 0, or 1
// (some lines refused); 2 says that the manager could not be reached. The previous configuration
// goes only then; when lines were refused its text stays behind as a file.
#include "platform/host/cfgmgr.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <thread>
#include <vector>

#include "include/ipc.h"
#include "include/service.h"
#include "platform/api/zekTask.h"
#include "platform/host/host.h"

namespace {

constexpr int RETRIES = 3;
constexpr int NOTIFY_TIMEOUT_MS = 10000;  // for the task to take a notification
constexpr uint32_t END_RETRY_S = 1;
constexpr size_t REPORT_LINE_MAX = 2048;          // bytes of a child's line that are logged
constexpr const char* SHELL_TIMEOUT_S = "86400";  // a slow answer is no reason to lose a line
// Endpoints of processes are base + pid; the manager's thread needs one beside its process's.
constexpr uint32_t PORT_OFFSET = 1u << 24;
constexpr uint32_t SYSERR_CFG = 0x50001;

std::mutex taskDbMutex;
bool taskDbTried = false;
cfgMgrSource taskSource = cfgMgrSource::none;

zekEvtLog eventLog() {
    static zekEvtLog log = zekEvtOpenlog("CFGMGR", 3, APP_ACL, 0);
    return log;
}
void sysErr(const std::string& text) {
    zekSysErr(eventLog(), 0, SYSERR_CFG, 1, text.c_str());
}
void sysErrText(const char* text) {
    zekSysErr(eventLog(), 0, SYSERR_CFG, 1, text);
}
void logLine(const std::string& text) {
    zekEvtLogPrint(eventLog(), 0, text.c_str());
}

std::string fileOfRp(const cfgMgrPlace& place, const char* what) {
    return place.runDir + "/" + what + "-rp" + std::to_string(place.rp) + ".cfg";
}

// ---- Notifications to the task.
struct notifier {
    zekEndpoint* endpoint = nullptr;
    uint32_t address = 0, port = 0, sequence = 0;

    explicit notifier(const cfgMgrPlace& place)
        : address(place.address),
          port(SERVICE_DYNAMIC_BASE + PORT_OFFSET + static_cast<uint32_t>(getpid())) {
        std::string error;
        endpoint = zekEndpointOpen(place.runDir, address, port, &error);
        if (endpoint == nullptr) sysErr("configuration manager: " + error);
    }
    ~notifier() { zekEndpointClose(endpoint); }
    notifier(const notifier&) = delete;
    notifier& operator=(const notifier&) = delete;
};

// Sends one notification. Plain messages of this type are not answered; the request queue keeps the
// order, so the task sees it before whatever is sent later.
void notify(notifier& n, uint32_t type) {
    if (n.endpoint == nullptr) return;
    ipcHdr hdr{};
    hdr.length = sizeof hdr;
    hdr.mtype = type;
    hdr.sequence = ++n.sequence;
    hdr.target.card = n.address;
    hdr.target.svce = n.port;
    hdr.source.card = n.address;
    hdr.source.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    if (zekEndpointSend(n.endpoint, &hdr, sizeof hdr, NOTIFY_TIMEOUT_MS) != zekSendResult::sent)
        logLine("configuration manager: the task did not take notification " +
                std::to_string(type));
}

// ---- The child.

// Reads the child's standard error to its end, every line into the log.
void logReport(int fd) {
    std::string line;
    auto flush = [&] {
        if (!line.empty()) logLine("restore: " + line);
        line.clear();
    };
    char buffer[4096];
    for (;;) {
        ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        for (char c : std::string_view(buffer, static_cast<size_t>(n))) {
            if (c == '\n')
                flush();
            else if (line.size() < REPORT_LINE_MAX)
                line += c;
        }
    }
    flush();
}

// Runs the shell over the file. Its exit status, or -1 when it did not end by itself.
int runShell(const cfgMgrPlace& place, const std::string& file) {
    std::string program = place.programDir + "/aclsh", rp = std::to_string(place.rp);
    const char* const args[] = {"aclsh",
                                "--rundir",
                                place.runDir.c_str(),
                                "--chassis",
                                place.chassisFile.c_str(),
                                "--rp",
                                rp.c_str(),
                                "--timeout",
                                SHELL_TIMEOUT_S,
                                "--restore",
                                "-f",
                                file.c_str(),
                                nullptr};
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) return -1;
    int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    sigset_t none;
    sigemptyset(&none);

    pid_t parent = getpid();
    pid_t child = null >= 0 ? fork() : -1;
    if (child == 0) {
        // Only what is safe after a fork in a process of many threads. A shell that outlived its
        // manager would go on typing into the next one.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        signal(SIGPIPE, SIG_DFL);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        if (dup2(null, 0) < 0 || dup2(null, 1) < 0 || dup2(report[1], 2) < 0) _exit(127);
        execv(program.c_str(), const_cast<char* const*>(args));
        static constexpr char failed[] = "the shell cannot be run\n";
        (void)!write(2, failed, sizeof failed - 1);
        _exit(127);
    }
    close(report[1]);
    if (null >= 0) close(null);
    int status = -1;
    if (child > 0) {
        hostHoldRequests(child);
        logReport(report[0]);
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    }
    close(report[0]);
    return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Writes the previous configuration's text to a file. False with errno.
bool writePrevious(zekCfgDb* db, const std::string& file) {
    FILE* out = fopen(file.c_str(), "we");
    if (out == nullptr) return false;
    bool good = true;
    int rc = cfgDbWalkPrevious(db, [&](std::string_view line) {
        good = fwrite(line.data(), 1, line.size(), out) == line.size() && fputc('\n', out) != EOF;
        return good;
    });
    return fclose(out) == 0 && good && rc == 0;
}

enum class replay { whole, inPart, failed };

// A child that was killed may have restored a part; what is there already is then refused as a
// duplicate, which changes nothing.
replay replayFile(const cfgMgrPlace& place, const std::string& file) {
    for (int run = 0; run <= RETRIES; run++) {
        int status = runShell(place, file);
        if (status == 0) return replay::whole;
        if (status == 1) return replay::inPart;  // other statuses: it did not get that far
        logLine("configuration manager: restoring " + file + " ended with status " +
                std::to_string(status) + (run < RETRIES ? ", trying again" : ""));
    }
    return replay::failed;
}

// Stores how the restore ended. Until that is done no other change could be committed either, but
// one that came after it could be lost at the next start: so this is tried until it works.
void storeEnd(zekCfgDb* db, int (*end)(zekCfgDb*)) {
    for (bool told = false; end(db) != 0; told = true) {
        if (!told) {
            sysErr("configuration manager: the end of the restore cannot be stored, trying on");
            hostReleaseRequests();
        }
        std::this_thread::sleep_for(std::chrono::seconds(END_RETRY_S));
    }
}

cfgMgrPlace ownPlace() {
    const hostConfig& conf = hostConf();
    char program[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", program, sizeof program);
    std::string path(program, length > 0 ? static_cast<size_t>(length) : 0);
    size_t slash = path.rfind('/');
    path.resize(slash == path.npos ? 0 : slash);
    return {conf.runDir, conf.chassisFile, path, conf.rp, conf.address};
}

// Opens the task's database, once; null when it could not be opened or there is no run folder yet.
zekCfgDb* openTaskDb() {
    static zekCfgDb* taskDb = nullptr;
    std::lock_guard lock(taskDbMutex);
    if (taskDbTried || hostConf().runDir.empty()) return taskDb;
    taskDbTried = true;
    cfgDbSetReport(sysErrText);
    cfgMgrPlace place = ownPlace();
    zekCfgDb* db =
        zekCfgOpen(place.runDir.c_str(), zekCfgAccess::write, zekCfgFileOf(place.rp).c_str());
    if (db != nullptr && cfgMgrPrepare(db, place, hostConf().cold, &taskSource) != 0) {
        zekCfgClose(db);
        db = nullptr;
    }
    taskDb = db;
    cfgDbSetOfTask(db);
    // From its first message on, the task must see nobody's changes before the restored ones.
    if (db != nullptr && taskSource != cfgMgrSource::none) hostHoldRequests(-1);
    return db;
}

// The task may be faster than the platform's start.
[[maybe_unused]] const bool openerIsSet = (cfgDbSetOpener(openTaskDb), true);

}  // namespace

std::string cfgMgrStartupFile(const std::string& runDir) {
    return runDir + "/startup-config";
}

int cfgMgrPrepare(zekCfgDb* db, const cfgMgrPlace& place, bool cold, cfgMgrSource* source) {
    bool hasPrevious = false;
    *source = cfgMgrSource::none;
    if (cfgDbRestoreBegin(db, cold, &hasPrevious) != 0) return -1;
    if (hasPrevious)
        *source = cfgMgrSource::previous;
    else if (access(cfgMgrStartupFile(place.runDir).c_str(), F_OK) == 0)
        *source = cfgMgrSource::startup;
    return *source == cfgMgrSource::none ? cfgDbRestoreEnd(db) : 0;
}

bool cfgMgrRestore(zekCfgDb* db, const cfgMgrPlace& place, cfgMgrSource source) {
    notifier task(place);
    notify(task, MT_CFG_START_BLK_CFG_NOTIF);
    replay result = replay::whole;
    bool previous = source == cfgMgrSource::previous;
    std::string file = previous ? fileOfRp(place, "restore") : cfgMgrStartupFile(place.runDir);
    if (source != cfgMgrSource::none) {
        hostHoldRequests(-1);
        if (previous && !writePrevious(db, file)) {
            sysErr("configuration manager: " + file + " cannot be written: " + strerror(errno));
            result = replay::failed;
        } else {
            result = replayFile(place, file);
        }
    }
    notify(task, MT_CFG_END_BLK_CFG_NOTIF);
    notify(task, MT_CFG_INIT_CFG_COMPLETE);

    if (previous && result != replay::whole) {
        std::string kept = fileOfRp(place, "unrestored");
        if (rename(file.c_str(), kept.c_str()) == 0) file = kept;
    } else if (previous) {
        unlink(file.c_str());
    }
    if (result == replay::inPart)
        logLine("configuration manager: lines were refused, the configuration is kept in " + file);
    if (result == replay::failed)
        sysErr("configuration manager: the configuration in " + file + " could not be restored" +
               (previous ? ", it is tried again at the next start" : ""));
    if (source != cfgMgrSource::none)
        storeEnd(db, result == replay::failed ? cfgDbRestoreGiveUp : cfgDbRestoreEnd);
    if (source != cfgMgrSource::none) hostReleaseRequests();
    return result != replay::failed;
}

int zekDdbInit(char**) {
    zekCfgDb* db = openTaskDb();
    if (db == nullptr) return -1;
    try {
        std::thread([db, place = ownPlace()] {
            hostWaitTaskReady(-1);
            cfgMgrRestore(db, place, taskSource);
        }).detach();
    } catch (const std::exception& e) {
        sysErr(std::string("configuration manager: ") + e.what());
        return -1;
    }
    return 0;
}
