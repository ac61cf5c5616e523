// Ordered trees: a crit-bit tree in which the records themselves are the branches.
//
// A key is read as a string of bits in which every byte is preceded by a bit that says "there is a
// byte here", and behind the last byte everything is zero. So two different keys always differ in
// some bit, and the front of a key sorts before the key. A position in that string is
//
//     (byte + 1) << 16 | others
//
// where `others` has all of the nine bits "exists, 7, 6, ... 0" set but the one in question: the
// earlier the bit, the smaller the number, and adding 1 to (others | the key's nine bits) carries
// into the tenth bit exactly when the bit in question is set.
//
// Every node is both a leaf (its key) and one branch (`bit`, the position that its two subtrees
// differ in). Positions grow on the way down; a child whose position is not larger than its
// parent's is a link back up, that is, a leaf. With n keys there are only n - 1 branches, so one
// leaf more is needed: the tree's own `nil`, position 0, which stands for "no key" and sorts before
// all others. The branch that parts it from the keys has position POS_REAL and is always the root:
//
//     root -> node POS_REAL: child[0] = nil, child[1] = the tree of all keys
//
// A search looks at positions only and compares one key, at the end. Nothing recurses.
#include "platform/api/zekRadix.h"

#include <bit>
#include <cassert>
#include <cstring>
#include <new>

#include "platform/api/zekMem.h"

namespace {

constexpr uint32_t POS_REAL = 1;
constexpr uint32_t NINE_BITS = 0x1FF;
constexpr uint32_t BYTE_EXISTS = 0x100;
constexpr uint32_t KEY_BITS_MAX = 0xFFF8;
constexpr size_t NAME_MAX_LEN = 140;
constexpr uint32_t RADIX_POOL_TAG = 0;

// The position of a bit of a byte; `bit` is one of the nine.
constexpr uint32_t position(uint32_t byte, uint32_t bit) {
    return (byte + 1) << 16 | (NINE_BITS & ~bit);
}

uint32_t keyBytes(uint32_t keyBits) {
    return (keyBits > KEY_BITS_MAX ? KEY_BITS_MAX : keyBits) / 8;
}

// The bit of the key at a position: 0 or 1.
inline uint32_t bitAt(const uint8_t* key, uint32_t len, uint32_t pos) {
    uint32_t at = (pos >> 16) - 1;
    uint32_t nine = at < len ? BYTE_EXISTS | key[at] : 0;
    return (1 + ((pos | nine) & NINE_BITS)) >> 9;
}

// The first position in which two keys differ; 0 when they are equal.
uint32_t firstDifference(const uint8_t* a, uint32_t aLen, const uint8_t* b, uint32_t bLen) {
    uint32_t both = aLen < bLen ? aLen : bLen;
    uint32_t i = 0;
    for (; i + 8 <= both; i += 8) {
        uint64_t x, y;
        std::memcpy(&x, a + i, 8);
        std::memcpy(&y, b + i, 8);
        if (x != y) break;
    }
    while (i < both && a[i] == b[i]) i++;
    if (i == both) return aLen == bLen ? 0 : position(i, BYTE_EXISTS);
    return position(i, std::bit_floor<uint32_t>(a[i] ^ b[i]));
}

}  // namespace

struct zekRadix {
    zekRadixNode* root;  // &nil when the tree is empty
    zekRadixNode nil;
    uint32_t count;
    bool pooled;  // the tree's memory is the variable pool's
    // the name follows
};

namespace {

// The leaf that the key's bits lead to. The tree is not empty.
inline zekRadixNode* leafFor(const zekRadix* tree, const uint8_t* key, uint32_t len) {
    uint32_t parent = POS_REAL;
    zekRadixNode* node = tree->root->child[1];
    while (node->bit > parent) {
        parent = node->bit;
        // Memory is what a search waits for: fetch both children while the bit is looked up, and
        // let the processor guess which one it will be (an index into child[] would make it wait).
        __builtin_prefetch(node->child[0]);
        __builtin_prefetch(node->child[1]);
        if (bitAt(key, len, parent) != 0)
            node = node->child[1];
        else
            node = node->child[0];
    }
    return node;
}

// The outermost leaf of the subtree that hangs below a branch at position `parent`.
zekRadixNode* outermost(zekRadixNode* node, uint32_t parent, uint32_t side) {
    while (node->bit > parent) {
        parent = node->bit;
        node = node->child[side];
    }
    return node;
}

// Where a search for a key has come to: the link below branch position `parent`.
struct place {
    zekRadixNode* node;
    uint32_t parent;
    zekRadixNode* turn;  // the last branch where the way went to the side other than `up`, or null
};
// Follows the key through the branches at positions below `limit`.
place follow(const zekRadix* tree, const uint8_t* key, uint32_t len, uint32_t limit, uint32_t up) {
    place at{tree->root->child[1], POS_REAL, nullptr};
    while (at.node->bit > at.parent && at.node->bit < limit) {
        at.parent = at.node->bit;
        uint32_t side = bitAt(key, len, at.parent);
        if (side != up) at.turn = at.node;
        at.node = at.node->child[side];
    }
    return at;
}

// The nearest key on one side: up 1 the next larger, 0 the next smaller one. The subtree of all
// keys that share the key's bits up to the first difference lies wholly on one side of it; when
// that is the wrong side, the answer is beyond the last branch where the way went away from it.
zekRadixNode* neighbour(const zekRadix* tree, const uint8_t* key, uint32_t len, uint32_t up) {
    if (tree->count == 0) return nullptr;
    place at = follow(tree, key, len, UINT32_MAX, up);
    if (uint32_t differs = firstDifference(key, len, at.node->key, at.node->keyLen); differs != 0) {
        at = follow(tree, key, len, differs, up);
        if (bitAt(key, len, differs) != up) return outermost(at.node, at.parent, 1 - up);
    }
    return at.turn ? outermost(at.turn->child[up], at.turn->bit, 1 - up) : nullptr;
}

zekRadix* create(const char* name, bool pooled) {
    size_t nameLen = name ? strnlen(name, NAME_MAX_LEN) : 0;
    size_t size = sizeof(zekRadix) + nameLen + 1;
    void* memory = pooled ? zekMC_M_memBlockVarAlloc(RADIX_POOL_TAG, ZEK_MEM_FLAGS, size)
                          : zekMC_MM_malloc(size);
    if (memory == nullptr) return nullptr;
    auto* tree = new (memory) zekRadix{};
    tree->root = &tree->nil;
    tree->pooled = pooled;
    char* copy = reinterpret_cast<char*>(tree + 1);
    if (nameLen != 0) std::memcpy(copy, name, nameLen);
    copy[nameLen] = '\0';
    return tree;
}

}  // namespace

zekRadix* zekRadixCreate(const char* name, uint32_t) {
    return create(name, true);
}
zekRadix* zekRadixCreateP(const char* name, uint32_t) {
    return create(name, false);
}

void zekRadixDestroy(zekRadix* tree) {
    if (tree == nullptr) return;
    if (tree->pooled)
        zekMC_M_memBlockVarFree(tree);
    else
        zekMC_MM_free(tree);
}

int zekRadixInsert(zekRadix* tree, zekRadixNode* node, const void* key, uint32_t keyBits) {
    const auto* bytes = static_cast<const uint8_t*>(key);
    uint32_t len = keyBytes(keyBits);
    uint32_t pos = POS_REAL, side = 1;
    zekRadixNode** link = &tree->root;
    if (tree->count != 0) {
        const zekRadixNode* like = leafFor(tree, bytes, len);
        pos = firstDifference(bytes, len, like->key, like->keyLen);
        if (pos == 0) return -1;
        side = bitAt(bytes, len, pos);
        uint32_t parent = POS_REAL;
        link = &tree->root->child[1];
        while ((*link)->bit > parent && (*link)->bit < pos) {
            parent = (*link)->bit;
            link = &(*link)->child[bitAt(bytes, len, parent)];
        }
    }
    node->key = bytes;
    node->keyLen = len;
    node->bit = pos;
    node->child[side] = node;
    node->child[1 - side] = *link;
    *link = node;
    tree->count++;
    return 0;
}

// The leaf goes by taking out the branch that leads to it; when that branch is another record's,
// that record then takes the place of the one that leaves.
void zekRadixRemove(zekRadix* tree, zekRadixNode* node) {
    zekRadixNode** ownLink = nullptr;    // leads to the node as a branch
    zekRadixNode** upperLink = nullptr;  // leads to the branch above `link`
    zekRadixNode** link = &tree->root;
    uint32_t parent = 0;
    while ((*link)->bit > parent) {
        if (*link == node) ownLink = link;
        parent = (*link)->bit;
        uint32_t side = parent == POS_REAL ? 1 : bitAt(node->key, node->keyLen, parent);
        upperLink = link;
        link = &(*link)->child[side];
    }
    assert(*link == node && upperLink != nullptr && ownLink != nullptr);

    zekRadixNode* branch = *upperLink;
    *upperLink = branch->child[link == &branch->child[0] ? 1 : 0];
    if (branch != node) {
        branch->child[0] = node->child[0];
        branch->child[1] = node->child[1];
        branch->bit = node->bit;
        *ownLink = branch;
    }
    tree->count--;
    node->child[0] = node->child[1] = nullptr;
}

zekRadixNode* zekRadixGetExact(const zekRadix* tree, const void* key, uint32_t keyBits) {
    if (tree->count == 0) return nullptr;
    uint32_t len = keyBytes(keyBits);
    zekRadixNode* node = leafFor(tree, static_cast<const uint8_t*>(key), len);
    return node->keyLen == len && std::memcmp(node->key, key, len) == 0 ? node : nullptr;
}

zekRadixNode* zekRadixGetNext(const zekRadix* tree, const void* key, uint32_t keyBits) {
    return neighbour(tree, static_cast<const uint8_t*>(key), keyBytes(keyBits), 1);
}

zekRadixNode* zekRadixGetPrev(const zekRadix* tree, const void* key, uint32_t keyBits) {
    return neighbour(tree, static_cast<const uint8_t*>(key), keyBytes(keyBits), 0);
}

zekRadixNode* zekRadixGetFirst(const zekRadix* tree) {
    return tree->count == 0 ? nullptr : outermost(tree->root->child[1], POS_REAL, 0);
}

zekRadixNode* zekRadixGetLast(const zekRadix* tree) {
    return tree->count == 0 ? nullptr : outermost(tree->root->child[1], POS_REAL, 1);
}

int zekRadixWalk(zekRadix* tree, int (*fn)(zekRadixNode* node, void* arg), void* arg) {
    zekRadixNode* next;
    for (zekRadixNode* node = zekRadixGetFirst(tree); node != nullptr; node = next) {
        next = neighbour(tree, node->key, node->keyLen, 1);  // before fn frees the node
        if (int stop = fn(node, arg); stop != 0) return stop;
    }
    return 0;
}

uint32_t zekRadixCount(const zekRadix* tree) {
    return tree->count;
}
