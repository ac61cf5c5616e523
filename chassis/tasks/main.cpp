// chassisd: the tasks beside the manager, in one process.
#include <poll.h>

#include <cstdio>

#include "chassis/process.h"
#include "chassis/tasks/control.h"

int main(int argc, char** argv) {
    processOptions options;
    CLI::App app{"The other tasks of the chassis that the access-list manager talks to."};
    processAddOptions(&app, &options);
    CLI11_PARSE(app, argc, argv);

    chassisDescription chassis;
    std::vector<chassisPeer> peers;
    chassisControl control;
    std::string error, notice;
    if (!processLoad(&options, &chassis, &error) ||
        !peersOpen(chassis, options.runDir, &peers, &error) ||
        !controlOpen(&control, chassis, &peers, options.runDir, &error, &notice)) {
        std::fprintf(stderr, "chassisd: %s\n", error.c_str());
        controlClose(&control);
        peersClose(&peers);
        return 1;
    }

    std::vector<pollfd> waits{{processStopFd(), POLLIN, 0},
                              {zekEndpointFd(control.endpoint), POLLIN, 0},
                              {zekEndpointFd(control.around.endpoint), POLLIN, 0}};
    const size_t firstPeer = waits.size();
    for (const chassisPeer& peer : peers)
        waits.push_back({zekEndpointFd(peer.endpoint), POLLIN, 0});
    if (!notice.empty()) std::fprintf(stderr, "chassisd: %s\n", notice.c_str());
    std::fprintf(stderr, "ready\n");

    for (;;) {
        int wait = processWaitMs(controlTick(&control, processNowMs()));
        if (poll(waits.data(), waits.size(), wait) < 0 && errno != EINTR) break;
        if ((waits[0].revents & POLLIN) != 0) break;
        // Peers first: who subscribes and then asks for an event gets it.
        for (size_t i = 0; i < peers.size(); i++)
            if ((waits[firstPeer + i].revents & POLLIN) != 0) peerServe(peers[i]);
        if ((waits[2].revents & POLLIN) != 0) neighboursServe(&control.around);
        if ((waits[1].revents & POLLIN) != 0) controlServe(&control, processNowMs());
    }
    controlClose(&control);
    peersClose(&peers);
    return 0;
}
