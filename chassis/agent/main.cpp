// aclagent: the ACL and MAC agent of a line card, or the control processor's ACL agent.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>

#include "chassis/agent/agent.h"

namespace {

uint64_t nowMs() {
    using namespace std::chrono;
    return static_cast<uint64_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// Until SIGTERM or SIGINT.
void run(agent* self, int stopFd) {
    pollfd waits[] = {{stopFd, POLLIN, 0},
                      {zekEndpointFd(self->acl), POLLIN, 0},
                      {self->mac != nullptr ? zekEndpointFd(self->mac) : -1, POLLIN, 0}};
    for (bool left = false;;) {
        uint64_t now = nowMs();
        agentTick(self, now);
        uint64_t next = agentNextMs(*self);
        int wait =
            left || next <= now ? 0 : static_cast<int>(std::min<uint64_t>(next - now, 60000));
        if (poll(waits, std::size(waits), wait) < 0 && errno != EINTR) return;
        if ((waits[0].revents & POLLIN) != 0) return;
        left = agentServe(self, nowMs());
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string runDir, chassisFile;
    agentConfig config;
    CLI::App app{"The ACL agent of one line card, or of the control processor."};
    app.add_option("--rundir", runDir, "run folder (default $ACL_RUNDIR, else /run/aclmgr)");
    app.add_option("--chassis", chassisFile, "chassis description (default RUNDIR/chassis.json)");
    auto* slot = app.add_option("--slot", config.slot, "the card's slot")
                     ->check(CLI::Range(0u, SLOT_COUNT - 1));
    auto* cp = app.add_flag("--cp", config.cp, "the control processor's agent");
    cp->excludes(slot);
    CLI11_PARSE(app, argc, argv);
    config.runDir = zekRunDir(runDir);
    if (chassisFile.empty()) chassisFile = config.runDir + "/chassis.json";
    std::string error;
    if (slot->empty() && cp->empty()) {
        std::fprintf(stderr, "aclagent: give --slot N or --cp\n");
        return 1;
    }

    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    int stopFd = signalfd(-1, &stop, SFD_CLOEXEC);

    dataplane plane = memplaneCreate();
    agent self;
    bool opened = zekChassisLoad(chassisFile, &config.chassis, &error) &&
                  agentOpen(&self, std::move(config), plane, &error);
    if (opened) {
        std::fprintf(stderr, "ready\n");
        run(&self, stopFd);
    } else {
        std::fprintf(stderr, "aclagent: %s\n", error.c_str());
    }
    agentClose(&self);
    memplaneDestroy(&plane);
    return opened ? 0 : 1;
}
