// Prefix lists by name, in the trees that the manager shares.
#include "common/node.h"
#include "match/zekPrefix.h"

prefixList* ipPrefixListFind(const listName& name, uint32_t family) {
    if (family != AF_IPV4 && family != AF_IPV6) return nullptr;
    const zekRadix* tree =
        family == AF_IPV4 ? aclNode->trees.prefix_tree : aclNode->trees.v6prefix_tree;
    // The link is the record's first member.
    return reinterpret_cast<prefixList*>(zekRadixGetExact(tree, name.text, LIST_NAME_KEY_BITS));
}
