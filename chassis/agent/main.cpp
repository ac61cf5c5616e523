// aclagent: the ACL and MAC agent of a line card, or the control processor's ACL agent.
#include <poll.h>

#include <cmath>
#include <cstdio>

#include "chassis/agent/agent.h"
#include "chassis/process.h"

namespace {

// Until SIGTERM or SIGINT.
void run(agent* self, int stopFd) {
    pollfd waits[] = {
        {stopFd, POLLIN, 0},
        {zekEndpointFd(self->acl.endpoint), POLLIN, 0},
        {self->mac.endpoint != nullptr ? zekEndpointFd(self->mac.endpoint) : -1, POLLIN, 0}};
    for (bool left = false;;) {
        agentTick(self, processNowMs());
        int wait = left ? 0 : processWaitMs(agentNextMs(*self));
        if (poll(waits, std::size(waits), wait) < 0 && errno != EINTR) return;
        if ((waits[0].revents & POLLIN) != 0) return;
        left = agentServe(self, processNowMs());
    }
}

}  // namespace

int main(int argc, char** argv) {
    processOptions options;
    agentConfig config;
    double registerEvery = LINK_KEEPALIVE_MS / 1000.0;
    size_t maxEntries = MEMPLANE_ENTRIES;
    CLI::App app{"The ACL agent of one line card, or of the control processor."};
    processAddOptions(&app, &options);
    auto* slot = app.add_option("--slot", config.slot, "the card's slot")
                     ->check(CLI::Range(0u, SLOT_COUNT - 1));
    auto* cp = app.add_flag("--cp", config.cp, "the control processor's agent");
    cp->excludes(slot);
    app.add_option("--register-every", registerEvery,
                   "seconds between the registrations of an agent in step (default 5)")
        ->check(CLI::Range(0.01, 86400.0));
    app.add_option("--max-entries", maxEntries,
                   "entries, and lists, that the card has room for (default 4000000)");
    CLI11_PARSE(app, argc, argv);
    config.registerEveryMs = static_cast<uint64_t>(std::lround(registerEvery * 1000));
    std::string error;
    if (slot->empty() && cp->empty()) {
        std::fprintf(stderr, "aclagent: give --slot N or --cp\n");
        return 1;
    }

    int stopFd = processStopFd();
    dataplane plane = memplaneCreate(maxEntries);
    agent self;
    bool opened = processLoad(&options, &config.chassis, &error);
    config.runDir = options.runDir;
    opened = opened && agentOpen(&self, std::move(config), plane, &error);
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
