// What is passed on to the ACL agents of all cards: see relays.h.
#include "protocol/relays.h"

#include "common/node.h"
#include "download/zekacl_download.h"

namespace {

template <size_t Count>
void sendWords(uint32_t type, const std::array<uint32_t, Count>& words, int slot) {
    be32 image[Count];
    for (size_t i = 0; i < Count; i++) image[i] = words[i];
    aclSendToAllAgents(type, {image[0].b, sizeof image}, slot);
}

bool sendBody(std::span<const uint8_t> message) {
    const auto* hdr = wireView<ipcHdr>(message);
    if (hdr == nullptr || message.size() - sizeof *hdr > AGENT_DATA_MAX) return false;
    aclSendToAllAgents(hdr->mtype, message.subspan(sizeof *hdr));
    return true;
}

}  // namespace

void aclSendStpEnableMsgToAclAgent(const std::array<uint32_t, 2>& words, int slot) {
    sendWords(MT_STP_ENABLE, words, slot);
}
void AclUpdateAclAgentForStpProtocolEnable(uint32_t slot) {
    if (const auto& words = aclNode->protocol.stpWords)
        aclSendStpEnableMsgToAclAgent(*words, static_cast<int>(slot));
}
void aclMirroringRelayMgShutNoshutNotif(const std::array<uint32_t, 4>& words) {
    sendWords(MT_IFM_MIRROR_RELAY, words, SLOT_NONE);
}
bool AclSendGVRPMsgToAgent(std::span<const uint8_t> message) {
    return sendBody(message);
}
bool aclDelMultiplePortForMirroring(std::span<const uint8_t> message) {
    return sendBody(message);
}
