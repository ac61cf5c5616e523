// What is passed on to the ACL agents of all cards as it came: spanning tree, GVRP, mirroring. The
// caller holds acl_rwlock.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "include/ifindex.h"

// The words of the last STP enable, to one card or (SLOT_NONE) to all.
void aclSendStpEnableMsgToAclAgent(const std::array<uint32_t, 2>& words, int slot);
// The whole message, of which the body is passed on under its own number.
void AclSendGVRPMsgToAgent(std::span<const uint8_t> message);
void aclMirroringRelayMgShutNoshutNotif(const std::array<uint32_t, 4>& words);
