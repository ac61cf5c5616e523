// The other tasks of the chassis that the manager talks to: real endpoints with the smallest honest
// behaviour. One peer is one application at its card address; its request queue is an endpoint.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "chassis/tasks/clients.h"
#include "include/ipc.h"
#include "platform/api/zekChassis.h"
#include "platform/api/zekTransport.h"

struct chassisPeer;
struct neighbours;

// What a kind of peer does with a message that is in order: one row per application.
struct peerKind {
    uint32_t app;
    const char* name;
    void (*handle)(chassisPeer& peer, std::vector<uint8_t>& message);
};

struct eventSubscription {
    uint32_t event, card, svce;  // who is told
    bool operator==(const eventSubscription&) const = default;
};

struct chassisPeer {
    const peerKind* kind;
    uint32_t instance;
    uint32_t address;
    zekEndpoint* endpoint;
    zekSwpSeq seen;  // of the manager's queue to this peer
    uint64_t received, refused;
    std::vector<eventSubscription> subscriptions;  // event handler only
    clientState client;                            // tasks that use lists
    neighbours* around = nullptr;                  // interface manager only: whom it tells of what
};

// Opens an endpoint for every task of the description that has a kind. False and *error when one
// cannot be opened. The peers own their endpoints until peersClose.
bool peersOpen(const chassisDescription& chassis, std::string_view runDir,
               std::vector<chassisPeer>* peers, std::string* error);
void peersClose(std::vector<chassisPeer>* peers);
// Takes every message that waits at the peer.
void peerServe(chassisPeer& peer);
