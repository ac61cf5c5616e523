// What differs between the two families of prefix lists, and what the files of this store share.
#pragma once

#include <string>

#include "common/cfgline.h"
#include "common/node.h"
#include "policy/prefix/zekprefixlist.h"

struct prefixFamily {
    zekRadix* aclTrees::*tree;
    char (aclPrefixState::*lastChanged)[LIST_NAME_LEN + 1];
    uint32_t addressBytes;
    const char* word;   // in lines
    const char* title;  // in messages
    cfgFamily family;
    cfgOperation sync;
    uint32_t createCode, addCode;  // aclPolicyCliCode
};
inline constexpr prefixFamily prefixFamilies[] = {
    {&aclTrees::prefix_tree, &aclPrefixState::lastPrefixList, 4, "ip", "Ip", CFG_FAMILY_V4,
     CFG_SYNC_PREFIX, CLI_PREFIX_LIST_CREATE, CLI_PREFIX_ENTRY_ADD},
    {&aclTrees::v6prefix_tree, &aclPrefixState::lastV6PrefixList, 16, "ipv6", "Ipv6", CFG_FAMILY_V6,
     CFG_SYNC_V6_PREFIX, CLI_V6_PREFIX_LIST_CREATE, CLI_V6_PREFIX_ENTRY_ADD},
};
// Null for what is neither IPv4 (1) nor IPv6 (2).
inline const prefixFamily* prefixFamilyOf(uint32_t af) {
    return af == AF_IPV4 || af == AF_IPV6 ? &prefixFamilies[af - AF_IPV4] : nullptr;
}
constexpr uint32_t prefixRecordBytes(const prefixFamily& family) {
    return static_cast<uint32_t>(sizeof(prefixRecord)) + 2 * family.addressBytes;
}

// " permit 10.0.0.0/8 ge 16 le 24" with its variants; masked: the mask in place of the length.
void prefixTextAppend(std::string& out, const prefixRecord& record, const prefixFamily& family,
                      bool masked);
