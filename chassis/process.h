// What every process of the chassis does at its start and end.
#pragma once

#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <string>

#include "platform/api/zekChassis.h"
#include "platform/api/zekTransport.h"

struct processOptions {
    std::string runDir, chassisFile;
};

inline void processAddOptions(CLI::App* app, processOptions* o) {
    app->add_option("--rundir", o->runDir, "run folder (default $ACL_RUNDIR, else /run/aclmgr)");
    app->add_option("--chassis", o->chassisFile,
                    "chassis description (default RUNDIR/chassis.json)");
}

// Fills what was not given and reads the description. False with *error.
inline bool processLoad(processOptions* o, chassisDescription* chassis, std::string* error) {
    o->runDir = zekRunDir(o->runDir);
    if (o->chassisFile.empty()) o->chassisFile = o->runDir + "/chassis.json";
    return zekChassisLoad(o->chassisFile, chassis, error);
}

// SIGTERM and SIGINT as a descriptor to poll.
// Blocked as signals, so that a message under way is finished first.
inline int processStopFd() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    return signalfd(-1, &stop, SFD_CLOEXEC);
}

inline uint64_t processNowMs() {
    using namespace std::chrono;
    return static_cast<uint64_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// For poll: until a time, UINT64_MAX is never.
inline int processWaitMs(uint64_t until) {
    if (until == UINT64_MAX) return -1;
    uint64_t now = processNowMs();
    return until > now ? static_cast<int>(std::min<uint64_t>(until - now, 60000)) : 0;
}
