// The process's start: options, run folder, chassis, and the lock that keeps a second manager out.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>

#include "platform/api/zekTask.h"
#include "platform/host/host.h"

namespace {

hostFd managerLock;  // held as long as the process lives

// A killed process leaves nothing that stops the next start; a stopped one leaves no sockets
// either.
void onTerminate(int signal) {
    hostRemoveSockets();
    raise(signal);  // its default action again, see SA_RESETHAND
}

void handleSignals() {
    struct sigaction action {};
    action.sa_handler = onTerminate;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool readOptions(int argc, char** argv, hostConfig* conf) {
    CLI::App app("access-list manager of one route processor");
    std::string runDir;
    app.add_option("--rundir", runDir, "run folder (default $ACL_RUNDIR, else /run/aclmgr)");
    app.add_option("--chassis", conf->chassisFile,
                   "chassis description (default RUNDIR/chassis.json)");
    app.add_option("--rp", conf->rp, "route processor (default 0)")->check(CLI::Range(0, 1));
    app.add_flag("--cold", conf->cold,
                 "start from the startup configuration, not from what was running");
    app.add_flag("--debug", conf->debug, "debug text on standard error");
    app.add_flag("--syslog", conf->syslog, "log to syslog instead of RUNDIR/log");
    app.add_option("--client-wait", conf->clientWaitMs,
                   "milliseconds that a client of a list has to answer a trigger (default 10000)")
        ->envname("ACL_CLIENT_WAIT_MS")
        ->check(CLI::Range(1, 600000));
    app.add_option("--pauses", conf->pausePercent,
                   "percent of the pauses between two entries that are renumbered (default 100)")
        ->envname("ACL_PAUSES")
        ->check(CLI::Range(0, 100));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        app.exit(e);  // prints the help that was asked for, or what is wrong
        return false;
    }
    conf->runDir = zekRunDir(runDir);
    if (conf->chassisFile.empty()) conf->chassisFile = conf->runDir + "/chassis.json";
    return true;
}

bool prepare(hostConfig* conf, std::string* error) {
    std::string name = "aclmgr-rp" + std::to_string(conf->rp);
    if (!zekChassisLoad(conf->chassisFile, &conf->chassis, error) ||
        !hostMakeDirs(conf->runDir, error) || !hostMakeDirs(conf->runDir + "/log", error))
        return false;
    if (conf->rp >= conf->chassis.routeProcessors.size()) {
        *error = conf->chassisFile + " has no route processor " + std::to_string(conf->rp);
        return false;
    }
    conf->address = conf->chassis.routeProcessors[conf->rp].address;
    std::string lockFile = conf->runDir + "/" + name + ".lock";
    managerLock = hostFd(hostLockFile(lockFile));
    if (managerLock.fd < 0) {
        *error = errno == EWOULDBLOCK ? "a manager of route processor " + std::to_string(conf->rp) +
                                            " is running in " + conf->runDir
                                      : lockFile + ": " + strerror(errno);
        return false;
    }
    hostSweepSockets(conf->runDir);
    hostLogOpen(conf->runDir + "/log/" + name + ".log", conf->syslog);
    return true;
}

}  // namespace

hostConfig& hostConf() {
    static hostConfig conf;
    return conf;
}

uint32_t zekClientWaitMs() {
    return hostConf().clientWaitMs;
}

int ZEK_NbsdpInit(int argc, char** argv) {
    std::string error;
    try {
        if (!readOptions(argc, argv, &hostConf())) return 1;
        if (prepare(&hostConf(), &error)) {
            handleSignals();
            return 0;
        }
    } catch (const std::exception& e) {
        error = e.what();
    }
    fprintf(stderr, "aclmgr: %s\n", error.c_str());
    return 1;
}
