// The peer route processor: registration, updates of the line-card table, and its messages.
//
// The primary tells the secondary of every change of a card; an update that is not answered is
// repeated by the registration step of the main loop. Which side is primary is asked each time.
#include "common/linecard.h"
#include "common/message.h"
#include "include/service.h"
#include "platform/api/zekTask.h"
#include "task/task.h"

namespace {

// A line-card record as the peers exchange it: eleven words.
struct linecardImage {
    be32 head;      // always zero: a pointer means nothing to the peer
    be32 words[6];  // isUp to acl_linecard_type
    be32 queues[2];
    be32 addresses[2];
};
WIRE_SIZE(linecardImage, 44);

struct aclPeerInfo {
    ipcHdr ipc;
    be32 slot;  // 60  updates: the slot that changed, 20 for a CAM-profile change
    linecardImage cards[SLOT_COUNT];
    be32 isAclVlanGrp;  // 944
    be32 reserved;
};
WIRE_SIZE(aclPeerInfo, 952);
WIRE_AT(aclPeerInfo, cards, 64);
WIRE_AT(aclPeerInfo, isAclVlanGrp, 944);

constexpr uint32_t RAM_SYNC_ENABLE = 42, RAM_SYNC_DISABLE = 43;

void cardToImage(const aclLinecard& card, linecardImage* image) {
    const uint32_t words[6] = {card.isUp,  card.isVortan,         card.isIpv6Enabled,
                               card.word5, card.v6EgAclSupported, card.type};
    for (int i = 0; i < 6; i++) image->words[i] = words[i];
    image->queues[0] = card.macAgent;
    image->queues[1] = card.aclAgent;
    image->addresses[0] = card.agentIpAddr;
    image->addresses[1] = card.agent0IpAddr;
}
// Words 1 to 6 only: queues and addresses are this side's own.
void cardFromImage(const linecardImage& image, aclLinecard* card) {
    uint32_t* words[6] = {&card->isUp,  &card->isVortan,         &card->isIpv6Enabled,
                          &card->word5, &card->v6EgAclSupported, &card->type};
    for (int i = 0; i < 6; i++) *words[i] = image.words[i];
}

int aclHASendToPeer(const void* message, uint32_t length) {
    int err = 0;
    if (zekIrcPeerRpmSend(APP_ACL, 0, message, length, 0, &err) == 0) return 0;
    aclDebug(DEBUG_ACL_GENERAL, "%s/%s: IRC send to peer ACL failed, err = %d!!", __FILE__,
             __func__, err);
    return -1;
}

int sendPeerInfo(uint32_t mtype, uint32_t slot) {
    aclPeerInfo info{};
    // Both triples have the own card: the platform's road to the peer fills in the other one.
    aclFillIpcHdr(&info.ipc, mtype, sizeof info,
                  {aclNode->queues.acltargetcard, aclServicePort(APP_ACL, 0, QUEUE_REQUEST)});
    info.ipc.sequence = ++aclMgrTransId;
    info.slot = slot;
    for (uint32_t i = 0; i < SLOT_COUNT; i++) cardToImage(aclLinecardInfo[i], &info.cards[i]);
    info.isAclVlanGrp = aclNode->groups.isAclVlanGrp;
    return aclHASendToPeer(&info, sizeof info);
}

}  // namespace

// A secondary has nothing to register; a primary that does not synchronise has nobody to tell.
int aclRegisterWithPeer(uint32_t attempt) {
    if (!zekHaIsPrimaryRpm()) {
        aclNode->standing.peerRegistered = 1;
        return 0;
    }
    if (aclNode->peer.ramDataSync == 0) {
        aclDebug(DEBUG_ACL_GENERAL, "Sync-ing to Secondary RPM disabled\r\n");
        aclNode->standing.peerRegistered = 1;
        return 0;
    }
    // The flag is set by the secondary's answer.
    if (sendPeerInfo(MT_PEER_REGISTER, 0) == 0) return 0;
    if (attempt == 0) aclSysErr(SYSERR_PEER, "%s", "failed");
    return -1;
}

// Every update carries all cards: whichever is lost, the next one mends it. The mark stays 0 until
// the peer has sent it back.
int aclSendUpdateToPeer(uint32_t kind) {
    if (kind >= PEER_UPDATE_KINDS || !zekHaIsPrimaryRpm() || aclNode->peer.ramDataSync == 0)
        return 0;
    if (sendPeerInfo(MT_PEER_UPDATE, kind) != 0) return -1;
    aclNode->peer.peerMark[kind] = 0;
    return 0;
}

void aclHandleRamDataSyncNotif(const uint8_t* message) {
    zekSendSyncMsgAckToRam(APP_ACL, 0);
    uint32_t code = reinterpret_cast<const ipcHdr*>(message)->ramCode;
    // Any other code changes nothing, but every one is acknowledged.
    if (code == RAM_SYNC_ENABLE) {
        aclNode->peer.ramDataSync = 1;
        aclNode->standing.peerRegistered = 0;  // registration is redone
        zekSendDataSyncResultToRam(APP_ACL, 0, 0);
    } else if (code == RAM_SYNC_DISABLE) {
        aclNode->peer.ramDataSync = 0;
    }
}

void aclHandlePeerMsg(uint8_t* message) {
    const ipcHdr* hdr = msgHdr(message);
    if (zekHaIsPrimaryRpm()) {
        if (hdr->mtype != MT_PEER_UPDATE) {
            aclNode->standing.peerRegistered = 1;
            return;
        }
        uint32_t kind = msgWord(message, offsetof(aclPeerInfo, slot));
        if (hdr->length >= offsetof(aclPeerInfo, cards) && kind < PEER_UPDATE_KINDS)
            aclNode->peer.peerMark[kind] = 1;
        return;
    }
    if (hdr->length < sizeof(aclPeerInfo)) {
        aclCounters.truncated++;
        return;
    }
    // What the cards take, as the primary knows it. Sending the message back is the answer.
    const auto* info = reinterpret_cast<const aclPeerInfo*>(message);
    for (uint32_t slot = 0; slot < LINECARD_CP; slot++)
        cardFromImage(info->cards[slot], &aclLinecardInfo[slot]);
    aclNode->groups.isAclVlanGrp = info->isAclVlanGrp;
    (void)aclHASendToPeer(message, hdr->length);
}
