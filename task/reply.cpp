// The reply functions: how each sender of a message gets its answer.
#include "task/task.h"

#include "common/clientWait.h"
#include "include/cliMsg.h"
#include "platform/api/zekMem.h"

void AclIpcReply([[maybe_unused]] uint32_t queue, uint8_t* message) {
    // The queue is not used: every answer leaves by the request queue.
    ipcHdr* hdr = msgHdr(message);
    ipcExchangeTriples(hdr);
    aclDebug(DEBUG_ACL_IPC, "target.slot = %d\r\n", static_cast<int>(uint32_t{hdr->target.slot}));
    aclDebug(DEBUG_ACL_IPC, "target.card = %d\r\n", static_cast<int>(uint32_t{hdr->target.card}));
    aclDebug(DEBUG_ACL_IPC, "target.svce = %d\r\n", static_cast<int>(uint32_t{hdr->target.svce}));
    aclDebug(DEBUG_ACL_IPC, "source.slot = %d\r\n", static_cast<int>(uint32_t{hdr->source.slot}));
    aclDebug(DEBUG_ACL_IPC, "source.card = %d\r\n", static_cast<int>(uint32_t{hdr->source.card}));
    aclDebug(DEBUG_ACL_IPC, "source.svce = %d\r\n", static_cast<int>(uint32_t{hdr->source.svce}));
    (void)zekIpcSend(aclNode->ipc.regQfd, message, hdr->length);
}

int AclDaiIpcReply(uint8_t* message) {
    uint32_t length = msgHdr(message)->length;
    for (int attempt = 0; attempt < 3; attempt++)
        if (zekIpcReply(aclNode->ipc.ipckey, message, length) == 0) break;
    return 1;
}

namespace {

// One row per SWP sender: what was seen of it, and whether a repeated message (6) is an error.
struct swpReplyRow {
    zekSwpSeq* seen;
    bool repeatIsError;
    const char* failure;
};

// The platform has acknowledged what is in order or was seen before, and nothing else: a sender
// with a gap begins its session again.
int swpReply(const swpReplyRow& row, const uint8_t* message) {
    int result = zekSwpCkSeqAndAck(message, row.seen, aclNode->ipc.regQfd);
    if (result == ZEK_SWP_IN_ORDER) return 0;
    if (result == ZEK_SWP_SEEN && !row.repeatIsError) return 1;
    aclDebug(DEBUG_ACL_GENERAL, "%s", row.failure);
    if (result != ZEK_SWP_SEEN) aclCounters.outOfOrder++;
    return -1;
}

zekSwpSeq macMgrSwpSeqNum, ifmSwpSeqNum, udpHlpSwpSeqNum, vrrpSwpSeqNum;

}  // namespace

int AclMacMgrIpcReply(uint8_t* message) {
    // The MAC manager alone may not repeat itself: a message seen before is an error here and a
    // success for the others. This is meant.
    return swpReply({&macMgrSwpSeqNum, true, "Error: Error in swp_ack for Mac_mgr\r\n"}, message);
}
int AclIfmIpcReply(uint8_t* message) {
    return swpReply({&ifmSwpSeqNum, false, "Error: Error in receiving IFM VlOSTATE Notif \r\n"},
                    message);
}
int AclUDPHlpIpcReply(uint8_t* message) {
    return swpReply({&udpHlpSwpSeqNum, false, "Error: Error in receiving UDP Helper Notif \r\n"},
                    message);
}
int AclVrrpIpcReply(uint8_t* message) {
    return swpReply({&vrrpSwpSeqNum, false, "Error: Error in receiving VRRP Notif \r\n"}, message);
}

int AclSendDisplayBuffer(void* buffer, uint32_t size, const uint8_t* message) {
    auto* hdr = static_cast<ipcHdr*>(buffer);
    std::memcpy(hdr, message, sizeof *hdr);
    ipcExchangeTriples(hdr);
    hdr->length = size;  // behind the copy, which brings the request's own length and status
    hdr->status = 0;
    int rc = zekIpcSend(aclNode->ipc.regQfd, buffer, size);
    zekMC_M_sysFree(buffer);
    return rc;
}

namespace {

// What is served while the task waits in the middle of its work: downloads go on, and a card that
// is down is no longer written to. The handlers of these run under the lock of the work that waits,
// whatever it is: they may neither take the lock nor touch a list.
zekUrgency urgencyOf(std::span<const uint8_t> message) {
    const auto* hdr = wireView<ipcHdr>(message);
    switch (hdr->mtype) {
        case MT_SWP_ACK:
            return zekUrgency::now;
        case MT_EVENT_NOTIF: {
            const auto* event = wireView<be32>(message, 64);
            return event != nullptr && (*event == EVT_CARD_DOWN || *event == EVT_CARD_SHUTDOWN)
                       ? zekUrgency::now
                       : zekUrgency::later;
        }
        // What becomes of a card must not overtake what its agents said before.
        case MT_ACL0_REGISTER:
        case MT_AGENT_REGISTER:
        case MT_AGENT_QUEUE:
            return zekUrgency::barrier;
        default:
            return zekUrgency::later;
    }
}

void serveUrgent(std::span<const uint8_t> message) {
    // The receive buffer is taken: the request that waits stands in it and is answered from it.
    static uint8_t buffer[IPC_BUFFER_SIZE];
    if (message.size() > sizeof buffer) return;
    std::memcpy(buffer, message.data(), message.size());
    aclTakeMessage(aclNode, buffer, message.size());
}

// One that nobody waits for any more.
void lateAnswer(const ipcHdr& answer) {
    if (answer.mtype == MT_IFM_REGISTER)
        aclIfmLateAnswer(answer.sequence);
    else
        clientLateAnswer(answer);
}

}  // namespace

aclWaitService aclUrgentMessages() {
    return {{urgencyOf, serveUrgent}, lateAnswer};
}
