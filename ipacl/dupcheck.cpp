// Duplicate check: two trees beside every list's chain, so that neither an add nor a delete walks
// it.
//
// The sequence tree holds every entry under its number; the content tree holds the entries under a
// compact key of the fields that make two entries one rule, but for those that their family keeps
// out. A node and its key are one pool block; the entry belongs to the list. Both trees are kept in
// step: an entry is in both or in neither.
#include <cstdlib>
#include <cstring>
#include <new>

#include "common/debug.h"
#include "common/record.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"

struct aclDupNode {
    zekRadixNode link;
    listEntry* record;
    // the key follows
};

namespace {

constexpr uint32_t DUP_TREE_KEY_HINT = 32;  // what the trees have always been made with

static_assert(sizeof(aclDupNode) == 40, "with a number behind it a node fits its 44-byte class");

uint8_t* keyOf(aclDupNode* node) {
    return reinterpret_cast<uint8_t*>(node + 1);
}
listEntry* recordOf(const aclDupNode* node) {
    return node != nullptr ? node->record : nullptr;
}

// A list without its trees is beyond repair: entries could be entered twice.
void requireTrees(const aclList* list) {
    if (list->seqTree != nullptr && list->contentTree != nullptr) return;
    aclDebug(DEBUG_ACL_DUP, "Error: aclInfoTree or seqNumTree is removed\r\n");
    std::abort();
}

struct contentKey {
    uint8_t bytes[DUP_KEY_MAX];
    uint32_t length;
    contentKey(const aclFamily& family, const void* block)
        : length(family.contentKey(block, bytes)) {}
};
aclDupNode* findContent(const aclList* list, const void* block) {
    const contentKey key(*list->family, block);
    return aclDupEntCheckFind(list->contentTree, key.bytes, key.length);
}
aclDupNode* findSeq(const aclList* list, const be32& seq) {
    return aclDupEntCheckFind(list->seqTree, &seq, sizeof seq);
}

void tellNoPlace(const aclFamily& family, const char* tree, const char* function, int line) {
    if (family.noTreePlace != nullptr)
        aclSysErr(SYSERR_LIST, "%s", family.noTreePlace);
    else
        aclDebug(DEBUG_ACL_DUP, "%s, %d Insert to %s failed\r\n", function, line, tree);
}

bool isOutside(const aclFamily& family, const void* block) {
    return family.outsideContentTree != nullptr && family.outsideContentTree(block);
}

}  // namespace

uint32_t aclDupAdd(aclList* list, listEntry* entry) {
    requireTrees(list);
    const aclFamily& family = *list->family;
    const void* block = entryBlock(*entry);
    const be32& seq = blockSeq(family, block);
    const bool outside = isOutside(family, block);
    const contentKey key(family, block);
    // While a whole configuration is loaded, adds take the operator's word for it: the walk would
    // make the load quadratic.
    const bool same =
        outside ? aclNode->config.cfgNotifStart == 0 && aclEntryFindEqual(list, block) != nullptr
                : aclDupEntCheckFind(list->contentTree, key.bytes, key.length) != nullptr;
    if (same) return ACL_E_ENTRY_EXISTS;
    if (findSeq(list, seq) != nullptr) return ACL_E_SEQ_USED;

    if (aclDupEntCheckNodeInsert(list->seqTree, entry, &seq, sizeof seq) != 0) {
        tellNoPlace(family, "AclSeqNumTree", __func__, __LINE__);
        return ACL_E_SYSTEM;
    }
    if (outside || aclDupEntCheckNodeInsert(list->contentTree, entry, key.bytes, key.length) == 0)
        return ACL_OK;
    tellNoPlace(family, "AclInfoTree", __func__, __LINE__);
    // The caller frees the record: no node may be left that points at it.
    aclDupEntCheckNodeRemove(list->seqTree, findSeq(list, seq));
    return ACL_E_SYSTEM;
}

uint32_t aclDupRemove(aclList* list, const void* block, listEntry** entry) {
    requireTrees(list);
    const aclFamily& family = *list->family;
    const be32& seq = blockSeq(family, block);
    const bool byNumber = seq != SEQ_NOT_GIVEN;
    listEntry* found = byNumber                   ? recordOf(findSeq(list, seq))
                       : isOutside(family, block) ? aclEntryFindEqual(list, block)
                                                  : recordOf(findContent(list, block));
    if (found == nullptr) return byNumber ? ACL_E_NOSEQ : ACL_E_NOENTRY;
    const void* whole = entryBlock(*found);
    aclDupNode* seqNode = findSeq(list, blockSeq(family, whole));
    aclDupNode* contentNode = isOutside(family, whole) ? nullptr : findContent(list, whole);
    if (seqNode == nullptr) return ACL_E_NOSEQ;
    if (contentNode == nullptr && !isOutside(family, whole)) return ACL_E_NOENTRY;
    if (contentNode != nullptr) aclDupEntCheckNodeRemove(list->contentTree, contentNode);
    aclDupEntCheckNodeRemove(list->seqTree, seqNode);
    *entry = found;
    return ACL_OK;
}

listEntry* aclDupFindSeq(const aclList* list, const be32& seq) {
    return recordOf(findSeq(list, seq));
}
listEntry* aclDupFindContent(const aclList* list, const void* block) {
    return recordOf(findContent(list, block));
}
listEntry* aclDupFindNextSeq(const aclList* list, const be32& seq) {
    return recordOf(aclDupEntCheckFindNext(list->seqTree, &seq, sizeof seq));
}

// --- the trees -----------------------------------------------------------------------------------

zekRadix* aclDupEntCheckTreeCreate(const listName& name) {
    char text[LIST_NAME_LEN + 1] = {};
    std::memcpy(text, name.text, LIST_NAME_LEN);
    zekRadix* tree = zekRadixCreate(text, DUP_TREE_KEY_HINT);
    if (tree == nullptr) aclDebug(0, "%s %d : zekRadixCreate Failed\r\n", __func__, __LINE__);
    return tree;
}

void aclDupEntCheckTreeDelete(zekRadix* tree) {
    if (tree == nullptr) return;
    aclDupEntCheckRemoveAllNodes(tree);
    zekRadixDestroy(tree);
}

int aclDupEntCheckNodeInsert(zekRadix* tree, listEntry* record, const void* key, uint32_t keyLen) {
    void* block =
        zekMC_M_memBlockVarAlloc(POOL_DUP_NODE, ZEK_MEM_FLAGS, sizeof(aclDupNode) + keyLen);
    if (block == nullptr) {
        aclDebug(0, "%s %d : Memory Allocation Failed\r\n", __func__, __LINE__);
        return -1;
    }
    auto* node = new (block) aclDupNode{{}, record};
    std::memcpy(keyOf(node), key, keyLen);
    if (zekRadixInsert(tree, &node->link, keyOf(node), keyLen * 8) == 0) return 0;
    aclDebug(0, "%s %d : zekRadixInsert Failed\r\n", __func__, __LINE__);
    zekMC_M_memBlockVarFree(node);
    return -1;
}

void aclDupEntCheckNodeRemove(zekRadix* tree, aclDupNode* node) {
    zekRadixRemove(tree, &node->link);
    zekMC_M_memBlockVarFree(node);
}

aclDupNode* aclDupEntCheckFind(const zekRadix* tree, const void* key, uint32_t keyLen) {
    return treeRecord<aclDupNode>(zekRadixGetExact(tree, key, keyLen * 8));
}

aclDupNode* aclDupEntCheckFindNext(const zekRadix* tree, const void* key, uint32_t keyLen) {
    return treeRecord<aclDupNode>(zekRadixGetNext(tree, key, keyLen * 8));
}

aclDupNode* aclDupEntCheckFindFirst(const zekRadix* tree) {
    return treeRecord<aclDupNode>(zekRadixGetFirst(tree));
}

int aclDupEntCheckRemoveAllNodes(zekRadix* tree) {
    while (aclDupNode* node = aclDupEntCheckFindFirst(tree)) aclDupEntCheckNodeRemove(tree, node);
    return 0;
}

listEntry* aclDupNodeRecord(const aclDupNode* node) {
    return node->record;
}
