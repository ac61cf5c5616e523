// The peers' endpoints, and what the tasks that use no lists do with their messages.
#include "chassis/tasks/peers.h"

#include <algorithm>
#include <iterator>

#include "chassis/tasks/neighbours.h"
#include "include/service.h"

namespace {

// Behind the header: the event, the kind of subscription.
constexpr uint32_t MT_EVH_SUBSCRIBE = 10600;
constexpr size_t SUBSCRIPTIONS_MAX = 64;
constexpr int SEND_TIMEOUT_MS = 1000;

ipcHdr* header(std::vector<uint8_t>& message) {
    return reinterpret_cast<ipcHdr*>(message.data());  // the transport drops what is shorter
}

void answer(chassisPeer& peer, std::vector<uint8_t>& message) {
    ipcExchangeTriples(header(message));
    (void)zekEndpointSend(peer.endpoint, message.data(), message.size(), SEND_TIMEOUT_MS);
}

void ignore(chassisPeer&, std::vector<uint8_t>&) {}

// The interface manager answers registrations, behind which the manager is told everything, and
// hears that what it tells has come.
void ifmHandle(chassisPeer& peer, std::vector<uint8_t>& message) {
    if (header(message)->mtype == MT_IFM_REGISTER) {
        const ipcHdr registration = *header(message);
        answer(peer, message);
        if (peer.around != nullptr) neighboursRegistered(peer.around, registration);
    } else if (header(message)->mtype == MT_SWP_ACK && peer.around != nullptr) {
        neighboursAnswer(peer.around, *header(message));
    } else {
        peer.refused++;
    }
}

// The event handler remembers who wants which event.
void evhHandle(chassisPeer& peer, std::vector<uint8_t>& message) {
    const auto* event = wireView<be32>(std::span<const uint8_t>(message), sizeof(ipcHdr));
    const ipcHdr* hdr = header(message);
    if (hdr->mtype != MT_EVH_SUBSCRIBE || event == nullptr) {
        peer.refused++;
        return;
    }
    eventSubscription wanted{*event, hdr->target.card, hdr->target.svce};
    if (std::ranges::find(peer.subscriptions, wanted) != peer.subscriptions.end()) return;
    if (peer.subscriptions.size() < SUBSCRIPTIONS_MAX)
        peer.subscriptions.push_back(wanted);
    else
        peer.refused++;
}

// A task of the description that has no row is not played: messages to it find nobody.
constexpr peerKind peerKinds[] = {
    {APP_SNMP, "SNMP", clientManagement},
    {APP_SYSADM, "SYSADM", clientManagement},
    {APP_OSPF, "OSPF", clientRouting},
    {APP_BGP, "BGP", clientRouting},
    {APP_RTM, "RTM", clientQueued},
    {APP_IPM, "IPM", clientManagement},
    {APP_DSMGR, "DSMGR", clientQueued},
    {APP_EVH, "EVH", evhHandle},
    // The acknowledgement is all that the sender waits for.
    {APP_MACMGR, "MACMGR", ignore},
    {APP_IGMP, "IGMP", clientQueued},
    {APP_PIM, "PIM", clientQueued},
    {APP_IFM, "IFM", ifmHandle},
};

}  // namespace

bool peersOpen(const chassisDescription& chassis, std::string_view runDir,
               std::vector<chassisPeer>* peers, std::string* error) {
    for (const chassisTask& task : chassis.tasks) {
        const auto* kind = std::ranges::find(peerKinds, task.application, &peerKind::app);
        if (kind == std::ranges::end(peerKinds)) continue;
        uint32_t port = aclServicePort(task.application, task.instance, QUEUE_REQUEST);
        zekEndpoint* endpoint = zekEndpointOpen(runDir, task.address, port, error);
        if (endpoint == nullptr) return false;
        peers->push_back({kind, task.instance, task.address, endpoint, {}, 0, 0, {}, {}, nullptr});
    }
    return true;
}

void peersClose(std::vector<chassisPeer>* peers) {
    for (chassisPeer& peer : *peers) {
        zekEndpointClose(peer.endpoint);
        aclClientClose(&peer.client.key);
    }
    peers->clear();
}

void peerServe(chassisPeer& peer) {
    std::vector<uint8_t> message;
    zekSender sender{};
    for (;;) {
        int got = zekEndpointRecv(peer.endpoint, &message, IPC_TRANSPORT_MAX, 0, &sender);
        // Other negative values tell of a message that was dropped; there may be good ones behind
        // it.
        if (got == 0 || got == -1) return;
        if (got < 0) {
            peer.refused++;
            continue;
        }
        peer.received++;
        // What a queue repeats is acknowledged again and handed on once.
        if (header(message)->session != 0 && header(message)->mtype != MT_SWP_ACK &&
            zekEndpointSwpAck(peer.endpoint, message.data(), &peer.seen) != ZEK_SWP_IN_ORDER)
            continue;
        peer.kind->handle(peer, message);
    }
}
