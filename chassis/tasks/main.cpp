// chassisd: the tasks beside the manager, in one process.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "chassis/tasks/peers.h"

int main(int argc, char** argv) {
    std::string runDir, chassisFile;
    CLI::App app{"The other tasks of the chassis that the access-list manager talks to."};
    app.add_option("--rundir", runDir, "run folder (default $ACL_RUNDIR, else /run/aclmgr)");
    app.add_option("--chassis", chassisFile, "chassis description (default RUNDIR/chassis.json)");
    CLI11_PARSE(app, argc, argv);
    runDir = zekRunDir(runDir);
    if (chassisFile.empty()) chassisFile = runDir + "/chassis.json";

    chassisDescription chassis;
    std::vector<chassisPeer> peers;
    std::string error;
    if (!zekChassisLoad(chassisFile, &chassis, &error) ||
        !peersOpen(chassis, runDir, &peers, &error)) {
        std::fprintf(stderr, "chassisd: %s\n", error.c_str());
        peersClose(&peers);
        return 1;
    }

    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    std::vector<pollfd> waits{{signalfd(-1, &stop, SFD_CLOEXEC), POLLIN, 0}};
    for (const chassisPeer& peer : peers)
        waits.push_back({zekEndpointFd(peer.endpoint), POLLIN, 0});
    std::fprintf(stderr, "ready\n");

    while (poll(waits.data(), waits.size(), -1) >= 0 || errno == EINTR) {
        if ((waits[0].revents & POLLIN) != 0) break;
        for (size_t i = 0; i < peers.size(); i++)
            if ((waits[i + 1].revents & POLLIN) != 0) peerServe(peers[i]);
    }
    peersClose(&peers);
    return 0;
}
