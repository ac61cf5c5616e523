// Where other tasks are, and the other route processor.
#include <span>
#include <string>
#include <vector>

#include "include/ipc.h"
#include "include/service.h"
#include "platform/api/zekIpc.h"
#include "platform/host/host.h"

int zek_tmeGetPeerIpAddrByName(uint32_t app, uint32_t instance, uint32_t* address) {
    const uint32_t key = hostTaskKey();
    const bool isOwn = key != 0 && key == hostTaskKeyOf(app, instance);
    *address = isOwn ? hostTaskAddress() : chassisAddress(hostConf().chassis, app, instance);
    return addressIsKnown(*address) ? 0 : -1;
}

// The description of the chassis is read once.
bool zek_tmeAddressesAreFixed() {
    return true;
}

uint32_t zek_sysGetIpAddr(uint32_t) {
    return hostTaskAddress();
}

int zekIrcPeerRpmSend(uint32_t app, uint32_t instance, const void* message, size_t length, uint32_t,
                      int* err) {
    constexpr int noPeer = 1, noSend = 2;
    const auto& rps = hostConf().chassis.routeProcessors;
    int result = noPeer;
    if (rps.size() == 2 && length >= sizeof(ipcHdr) && length <= IPC_TRANSPORT_MAX) {
        const auto* bytes = static_cast<const uint8_t*>(message);
        std::vector<uint8_t> copy(bytes, bytes + length);
        auto* hdr = wireView<ipcHdr>(std::span(copy));
        hdr->source.slot = 0;
        hdr->source.card = rps[1 - hostConf().rp].address;
        hdr->source.svce = aclServicePort(app, instance, QUEUE_REQUEST);
        result =
            zekIpcSend(Key_getReqQueue(hostTaskKey()), copy.data(), copy.size()) == 0 ? 0 : noSend;
    }
    if (err != nullptr) *err = result;
    return result == 0 ? 0 : -1;
}

// This host has no redundancy manager to tell: the log is what is left of it.
void zekSendSyncMsgAckToRam(uint32_t app, uint32_t) {
    zekEvtLogPrint(0, 0,
                   ("data synchronisation acknowledged by task " + std::to_string(app)).c_str());
}
void zekSendDataSyncResultToRam(uint32_t app, uint32_t, uint32_t result) {
    zekEvtLogPrint(0, 0,
                   ("data synchronisation of task " + std::to_string(app) + ": result " +
                    std::to_string(result))
                       .c_str());
}
