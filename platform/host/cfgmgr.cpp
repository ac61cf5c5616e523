// The configuration manager: where a start's configuration comes from. The texts of a startup
// configuration are read by the shell, a child that is asked for records and told nothing else.
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

#include "include/cfgCompiled.h"
#include "include/service.h"
#include "platform/api/zekTask.h"
#include "platform/host/cfgmgrlog.h"
#include "platform/host/host.h"

namespace {

constexpr int RETRIES = 3;
constexpr std::chrono::seconds RETRY_AFTER{1};
constexpr size_t OUTPUT_MAX = size_t{1} << 30;  // of the shell
constexpr int SILENCE_MAX_MS = 30000;           // then it hangs
constexpr uint32_t SYSERR_CFG = 0x50001;

zekEvtLog eventLog() {
    static zekEvtLog log = zekEvtOpenlog("CFGMGR", 3, APP_ACL, 0);
    return log;
}
void sysErrText(const char* text) {
    zekSysErr(eventLog(), 0, SYSERR_CFG, 1, text);
}

// ---- The child.

// Runs the shell over a file of lines; *output is what it says on its standard output. Its exit
// status, or -1.
int runShell(const cfgMgrPlace& place, const std::string& file, std::string* output) {
    output->clear();
    std::string program = place.programDir + "/aclsh", rp = std::to_string(place.rp);
    const char* const args[] = {
        "aclsh", "--rundir", place.runDir.c_str(), "--chassis", place.chassisFile.c_str(),
        "--rp",  rp.c_str(), "--compile",          "-f",        file.c_str(),
        nullptr};
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) return -1;
    hostFd from(report[0]), to(report[1]), null(open("/dev/null", O_RDWR | O_CLOEXEC));
    sigset_t none;
    sigemptyset(&none);

    pid_t parent = getpid();
    pid_t child = null.fd >= 0 ? fork() : -1;
    if (child == 0) {
        // Only what is safe after a fork in a process of many threads.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        signal(SIGPIPE, SIG_DFL);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        if (dup2(null.fd, 0) < 0 || dup2(to.fd, 1) < 0 || dup2(null.fd, 2) < 0) _exit(127);
        execv(program.c_str(), const_cast<char* const*>(args));
        _exit(127);
    }
    to.reset();
    if (child < 0) return -1;
    bool hangs = false;
    char buffer[65536];
    for (;;) {
        pollfd readable{from.fd, POLLIN, 0};
        const int ready = poll(&readable, 1, SILENCE_MAX_MS);
        if (ready < 0 && errno == EINTR) continue;
        hangs = ready <= 0 || output->size() > OUTPUT_MAX;
        ssize_t n = hangs ? 0 : read(from.fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        output->append(buffer, static_cast<size_t>(n));
    }
    if (hangs) kill(child, SIGKILL);
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Takes the shell's rows apart. False when the output is not whole.
bool readCompiled(std::string_view output, std::vector<cfgStoredRow>* rows) {
    rows->clear();
    bool ended = false;
    while (!output.empty() && !ended) {
        cfgCompiledRow head;
        if (output.size() < sizeof head) return false;
        std::memcpy(&head, output.data(), sizeof head);
        output.remove_prefix(sizeof head);
        const size_t text = head.textLength, body = head.bodyLength;
        if (text > output.size() || body > output.size() - text || body > CFG_REQUEST_MAX)
            return false;
        ended = head.mtype == CFG_COMPILED_END;
        if (!ended) {
            cfgStoredRow& row = rows->emplace_back();
            row.text = output.substr(0, text);
            const auto* bytes = reinterpret_cast<const uint8_t*>(output.data()) + text;
            cfgRecordStore({head.mtype, {bytes, body}}, &row.record);
        }
        output.remove_prefix(text + body);
    }
    return ended && output.empty();
}

// Writes the texts of an older database to a file. False with errno.
bool writeTexts(zekCfgDb* db, const std::string& file) {
    FILE* out = fopen(file.c_str(), "we");
    if (out == nullptr) return false;
    const int rc = cfgDbWriteTexts(db, out);
    return fclose(out) == 0 && rc == 0;
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

// While there is no database, the operator who starts the program is told as well.
void openFailed(const char* text) {
    std::fprintf(stderr, "%s\n", text);
    sysErrText(text);
}

// Opens the task's database; null when it cannot be opened.
zekCfgDb* openTaskDb(const zekCfgLayout& layout) {
    const hostConfig& conf = hostConf();
    cfgDbSetReport(openFailed);
    zekCfgDb* db =
        zekCfgOpen(conf.runDir.c_str(), zekCfgAccess::write, zekCfgFileOf(conf.rp).c_str(), layout);
    if (db != nullptr && conf.cold && cfgDbForget(db) != 0) {
        zekCfgClose(db);
        db = nullptr;
    }
    cfgDbSetReport(sysErrText);
    cfgDbSetOfTask(db);
    // From its first message on, the task must see nobody's changes before the restored ones.
    if (db != nullptr) hostHoldRequests();
    return db;
}

}  // namespace

void cfgMgrLog(const std::string& text) {
    zekEvtLogPrint(eventLog(), 0, text.c_str());
}
void cfgMgrSysErr(const std::string& text) {
    sysErrText(text.c_str());
}

std::string cfgMgrStartupFile(const std::string& runDir) {
    return runDir + "/startup-config";
}

bool cfgMgrCompile(const cfgMgrPlace& place, const std::string& file,
                   std::vector<cfgStoredRow>* rows) {
    std::string output;
    for (int tries = 0; tries <= RETRIES; tries++) {
        if (tries != 0) std::this_thread::sleep_for(RETRY_AFTER);
        const int status = runShell(place, file, &output);
        // Status 1: some lines are no configuration; their rows say so.
        if ((status == 0 || status == 1) && readCompiled(output, rows)) return true;
        cfgMgrLog("configuration manager: reading " + file + " ended with status " +
                  std::to_string(status) + (tries < RETRIES ? ", trying again" : ""));
    }
    return false;
}

bool cfgMgrImport(zekCfgDb* db, const cfgMgrPlace& place) {
    const uint32_t import = cfgDbImport(db);
    if (import == CFG_IMPORT_DONE) return true;
    const bool texts = import == CFG_IMPORT_TEXTS;
    const std::string file = texts ? place.runDir + "/import-rp" + std::to_string(place.rp) + ".cfg"
                                   : cfgMgrStartupFile(place.runDir);
    std::vector<cfgStoredRow> rows;
    bool good = true;
    if (texts && !writeTexts(db, file)) {
        cfgMgrSysErr("configuration manager: " + file + " cannot be written: " + strerror(errno));
        good = false;
    } else if (texts || access(file.c_str(), F_OK) == 0) {
        good = cfgMgrCompile(place, file, &rows);
    }
    good = good && cfgDbEndImport(db, rows) == 0;
    if (!good)
        cfgMgrSysErr("configuration manager: the configuration in " + file +
                     " could not be read, it is tried again at the next start");
    else if (texts)
        unlink(file.c_str());
    return good;
}

int zekDdbInit(char**, const zekCfgLayout& layout) {
    zekCfgDb* db = openTaskDb(layout);
    if (db == nullptr) {
        std::fprintf(stderr, "the configuration database in %s cannot be used\n",
                     hostConf().runDir.c_str());
        return -1;
    }
    try {
        std::thread([db, place = ownPlace()] {
            (void)cfgMgrImport(db, place);
            hostWaitTaskReady(-1);
            cfgMgrRestore(db, place);
        }).detach();
    } catch (const std::exception& e) {
        cfgMgrSysErr(std::string("configuration manager: ") + e.what());
        return -1;
    }
    return 0;
}
