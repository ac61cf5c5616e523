// What is passed on to the ACL agents of all cards that are up: spanning tree, GVRP, mirroring.
// Words and bodies go as they came, under the number under which they came.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "include/ifindex.h"

// The words of an STP enable, to one card or (SLOT_NONE) to all.
void aclSendStpEnableMsgToAclAgent(const std::array<uint32_t, 2>& words, int slot);
// Those of the last one, to a card that comes up; nothing before the first.
void AclUpdateAclAgentForStpProtocolEnable(uint32_t slot);
void aclMirroringRelayMgShutNoshutNotif(const std::array<uint32_t, 4>& words);

// The message as it came, of which the body is passed on. False when a message to an agent cannot
// hold the body: nothing is sent then.
[[nodiscard]] bool AclSendGVRPMsgToAgent(std::span<const uint8_t> message);
// Ports that leave a VLAN, for those that mirror them.
[[nodiscard]] bool aclDelMultiplePortForMirroring(std::span<const uint8_t> message);
