// What is passed on to the ACL agents of all cards: see relays.h.
#include "protocol/relays.h"

void aclSendStpEnableMsgToAclAgent(const std::array<uint32_t, 2>&, int) {}
void AclSendGVRPMsgToAgent(std::span<const uint8_t>) {}
void aclMirroringRelayMgShutNoshutNotif(const std::array<uint32_t, 4>&) {}
