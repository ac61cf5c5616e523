// Duplicate check: two trees beside every list's chain, so that neither an add nor a delete walks
// it.
//
// The sequence tree holds every entry under its number; the content tree holds the entries that are
// not ARP or ether-type entries under a compact key of the fields that make two entries one rule.
// A node and its key are one pool block; the entry belongs to the list. The handlers below check
// and keep both trees in step, so that an entry is in both or in neither.
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>

#include "common/debug.h"
#include "common/node.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"

struct aclDupNode {
    zekRadixNode link;
    void* record;
    // the key follows
};

namespace {

constexpr uint32_t POOL_DUP_NODE = 29;
constexpr uint32_t DUP_TREE_KEY_HINT = 32;  // what the trees have always been made with

static_assert(sizeof(aclDupNode) == 40, "with a number behind it a node fits its 44-byte class");

uint8_t* keyOf(aclDupNode* node) {
    return reinterpret_cast<uint8_t*>(node + 1);
}
aclDupNode* nodeOf(zekRadixNode* link) {
    return reinterpret_cast<aclDupNode*>(link);
}

// --- keys --------------------------------------------------------------------------------------

// `length` bytes of the entry block go to the key.
struct keyPart {
    uint8_t at, length, from;
};
// How the key of one kind of block is built: the front is common to all entries. A block whose kind
// byte is not extended ends there. The rest depends on whether the protocol carries ICMP fields.
struct keyTable {
    uint8_t kindAt, protocolAt, icmpProtocol;
    std::span<const keyPart> front, extended, icmp, other;
    uint8_t shortLength, length;
};

constexpr uint8_t LOW = 3;  // offset of a word's low byte

constexpr keyPart ip4Front[] = {
    {0, 1, offsetof(ipEntryBlock, action) + LOW},     {1, 4, offsetof(ipEntryBlock, src)},
    {5, 4, offsetof(ipEntryBlock, srcMask)},          {9, 1, offsetof(ipEntryBlock, order) + LOW},
    {10, 1, offsetof(ipEntryBlock, fragments) + LOW}, {11, 1, offsetof(ipEntryBlock, dscp)},
};
constexpr keyPart ip4Extended[] = {
    {12, 4, offsetof(ipEntryBlock, dst)},
    {16, 4, offsetof(ipEntryBlock, dstMask)},
    {20, 1, offsetof(ipEntryBlock, protocol)},
};
constexpr keyPart ip4Icmp[] = {
    {21, 4, offsetof(ipEntryBlock, icmp)},
};
constexpr keyPart ip4Other[] = {
    {21, 1, offsetof(ipEntryBlock, tcpFlags)},
    {22, 8, offsetof(ipEntryBlock, srcLow)},  // four port words
    {30, 1, offsetof(ipEntryBlock, srcOperator) + LOW},
    {31, 1, offsetof(ipEntryBlock, dstOperator) + LOW},
};
constexpr keyTable ip4Key = {
    offsetof(ipEntryBlock, kind),
    offsetof(ipEntryBlock, protocol),
    IP_PROTO_ICMP,
    ip4Front,
    ip4Extended,
    ip4Icmp,
    ip4Other,
    12,
    32,
};
static_assert(ip4Key.length <= DUP_KEY_MAX);

void copyParts(std::span<const keyPart> parts, const uint8_t* block, uint8_t* key) {
    for (const keyPart& part : parts) std::memcpy(key + part.at, block + part.from, part.length);
}

uint32_t buildKey(const keyTable& table, const uint8_t* block, uint8_t key[DUP_KEY_MAX]) {
    std::memset(key, 0, DUP_KEY_MAX);
    copyParts(table.front, block, key);
    be32 kind;
    std::memcpy(&kind, block + table.kindAt, sizeof kind);
    if (kind != IP_KIND_EXTENDED) return table.shortLength;
    copyParts(table.extended, block, key);
    copyParts(block[table.protocolAt] == table.icmpProtocol ? table.icmp : table.other, block, key);
    return table.length;
}

// --- the handlers' look-ups --------------------------------------------------------------------

// A list without its trees is beyond repair: entries could be entered twice.
void requireTrees(const aclList* list) {
    if (list->seqTree != nullptr && list->contentTree != nullptr) return;
    aclDebug(DEBUG_ACL_DUP, "Error: aclInfoTree or seqNumTree is removed\r\n");
    std::abort();
}

aclDupNode* findContent(const aclList* list, const ipEntryBlock& block) {
    uint8_t key[DUP_KEY_MAX];
    uint32_t length = ipAccessDupEntGenerateKey(block, key);
    return aclDupEntCheckFind(list->contentTree, key, length);
}

aclDupNode* findSeq(const aclList* list, const be32& seq) {
    return aclDupEntCheckFind(list->seqTree, &seq, sizeof seq);
}

uint32_t checkAndInsert(aclList* list, aclEntry* entry, const ipEntryBlock& block) {
    bool byWalk = ipEntryIsL2L3(block);
    uint8_t key[DUP_KEY_MAX];
    uint32_t keyLength = 0;
    if (byWalk) {
        aclEntry* same = nullptr;
        uint32_t status = ipv4Acll2l3DupHandler(list, &same, &block, DUP_ADD);
        if (status != ACL_OK) return status;
    } else {
        keyLength = ipAccessDupEntGenerateKey(block, key);
        if (aclDupEntCheckFind(list->contentTree, key, keyLength) != nullptr)
            return ACL_E_ENTRY_EXISTS;
    }
    if (findSeq(list, block.seq) != nullptr) return ACL_E_SEQ_USED;

    if (aclDupEntCheckNodeInsert(list->seqTree, entry, &block.seq, sizeof block.seq) != 0) {
        aclDebug(DEBUG_ACL_DUP, "%s, %d Insert to AclSeqNumTree failed\r\n", __func__, __LINE__);
        return ACL_E_SYSTEM;
    }
    if (byWalk || aclDupEntCheckNodeInsert(list->contentTree, entry, key, keyLength) == 0)
        return ACL_OK;
    aclDebug(DEBUG_ACL_DUP, "%s, %d Insert to AclInfoTree failed\r\n", __func__, __LINE__);
    // The caller frees the record: no node may be left that points at it.
    aclDupEntCheckNodeRemove(list->seqTree, findSeq(list, block.seq));
    return ACL_E_SYSTEM;
}

uint32_t findAndRemove(aclList* list, aclEntry** entry, const ipEntryBlock& block) {
    aclDupNode* seqNode = nullptr;
    aclDupNode* contentNode = nullptr;
    aclEntry* found = nullptr;
    if (block.seq != SEQ_NOT_GIVEN) {
        seqNode = findSeq(list, block.seq);
        if (seqNode == nullptr) return ACL_E_NOSEQ;
        found = static_cast<aclEntry*>(seqNode->record);
        if (!ipEntryIsL2L3(found->block)) contentNode = findContent(list, found->block);
    } else {
        if (ipEntryIsL2L3(block)) {
            uint32_t status = ipv4Acll2l3DupHandler(list, &found, &block, DUP_DELETE);
            if (status != ACL_OK) return status;
        } else {
            contentNode = findContent(list, block);
            if (contentNode == nullptr) return ACL_E_NOENTRY;
            found = static_cast<aclEntry*>(contentNode->record);
        }
        seqNode = findSeq(list, found->block.seq);
        if (seqNode == nullptr) return ACL_E_NOSEQ;
    }
    if (contentNode == nullptr && !ipEntryIsL2L3(found->block)) return ACL_E_NOENTRY;
    if (contentNode != nullptr) aclDupEntCheckNodeRemove(list->contentTree, contentNode);
    aclDupEntCheckNodeRemove(list->seqTree, seqNode);
    *entry = found;
    return ACL_OK;
}

}  // namespace

uint32_t ipAccessDupEntGenerateKey(const ipEntryBlock& block, uint8_t key[DUP_KEY_MAX]) {
    const uint32_t length = buildKey(ip4Key, reinterpret_cast<const uint8_t*>(&block), key);
    key[0] = key[0] == IP_DENY ? 1 : 0;  // every other action permits
    return length;
}

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

int aclDupEntCheckNodeInsert(zekRadix* tree, void* record, const void* key, uint32_t keyLen) {
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
    return nodeOf(zekRadixGetExact(tree, key, keyLen * 8));
}

aclDupNode* aclDupEntCheckFindNext(const zekRadix* tree, const void* key, uint32_t keyLen) {
    return nodeOf(zekRadixGetNext(tree, key, keyLen * 8));
}

aclDupNode* aclDupEntCheckFindFirst(const zekRadix* tree) {
    return nodeOf(zekRadixGetFirst(tree));
}

int aclDupEntCheckRemoveAllNodes(zekRadix* tree) {
    while (aclDupNode* node = aclDupEntCheckFindFirst(tree)) aclDupEntCheckNodeRemove(tree, node);
    return 0;
}

void* aclDupNodeRecord(const aclDupNode* node) {
    return node->record;
}

uint32_t ipv4Acll2l3DupHandler(aclList* list, aclEntry** entry, const ipEntryBlock* block,
                               uint32_t mode) {
    // While a whole configuration is loaded, adds take the operator's word for it: the walk would
    // make the load quadratic. Deletes must find their entry all the same.
    if (mode == DUP_ADD && aclNode->config.cfgNotifStart != 0) return ACL_OK;
    aclEntry* found = aclEntryFindEqual(list, *block);
    if (mode == DUP_ADD) return found != nullptr ? ACL_E_ENTRY_EXISTS : ACL_OK;
    if (found == nullptr) return ACL_E_NOENTRY;
    *entry = found;
    return ACL_OK;
}

uint32_t ipv4AccessDupEntHandler(aclList* list, aclEntry** entry, const ipEntryBlock* block,
                                 uint32_t mode) {
    requireTrees(list);
    return mode == DUP_ADD ? checkAndInsert(list, *entry, *block)
                           : findAndRemove(list, entry, *block);
}
