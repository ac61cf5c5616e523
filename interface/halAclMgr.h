// Platform capabilities that decide what is downloaded.
#pragma once

#include <cstdint>

// 1: IPv6 lists are supported, by cards that have not stated otherwise and by the commands.
int halAclMgrIsV6AclSupported();
// 1: PIM-assert entries are downloaded to the card.
int halAclMgrDnldPimAssertEntry(uint32_t slot);
