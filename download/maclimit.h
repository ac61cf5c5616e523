// MAC-limit lists and protocol filters, from the MAC manager on to the cards.
//
// Nothing is kept here: the MAC manager has the limits and is told of each card that registers
// (14408). The caller holds acl_rwlock.
#pragma once

#include <span>

#include "include/macLimitMsg.h"

// Types 14490 to 14494. False when the message's counts do not fit its length, or nothing is named:
// nothing was sent then.
[[nodiscard]] bool aclSendMacLimit(std::span<const uint8_t> message);
// Type 14495, the message's own length of bytes: to each slot that it names. False as above.
[[nodiscard]] bool aclSendProtFilter(std::span<const uint8_t> message);
