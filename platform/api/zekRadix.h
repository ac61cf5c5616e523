// Ordered trees over byte-string keys, with intrusive nodes.
//
// Order: byte by byte; a key that is the front of another comes before it. Cost of every
// operation is bounded by the key's length and the tree's depth, never by a scan. The tree owns
// neither nodes nor keys: a node sits in the caller's record, its key must stay unchanged and alive
// while the node is in the tree.
#pragma once

#include <cstddef>
#include <cstdint>

struct zekRadixNode {
    zekRadixNode* child[2];
    const uint8_t* key;
    uint32_t bit;     // private to the tree
    uint32_t keyLen;  // bytes
};

struct zekRadix;

// Creates an empty tree. `name` is for the log and the shows (copied, at most 140 characters),
// `maxKeyBits` a hint only: a tree takes keys of any length. Null when there is no memory.
// The P variant takes the tree's own memory from the general heap, the other one from the task's
// variable pool.
[[nodiscard]] zekRadix* zekRadixCreate(const char* name, uint32_t maxKeyBits);
[[nodiscard]] zekRadix* zekRadixCreateP(const char* name, uint32_t maxKeyBits);

// Forgets the nodes (they are the caller's) and frees the tree. Null is allowed.
void zekRadixDestroy(zekRadix* tree);

// Links the node under the key. keyBits is rounded down to a multiple of 8, at most 0xFFF8.
// Returns 0; -1 when the key is there already or no memory is left: nothing has changed then.
[[nodiscard]] int zekRadixInsert(zekRadix* tree, zekRadixNode* node, const void* key,
                                 uint32_t keyBits);

// Unlinks the node, which must be in the tree.
void zekRadixRemove(zekRadix* tree, zekRadixNode* node);

// The node with exactly this key, or null.
[[nodiscard]] zekRadixNode* zekRadixGetExact(const zekRadix* tree, const void* key,
                                             uint32_t keyBits);

// The node with the smallest key larger than this one (which need not be in the tree), or null.
[[nodiscard]] zekRadixNode* zekRadixGetNext(const zekRadix* tree, const void* key,
                                            uint32_t keyBits);

// The node with the largest key smaller than this one, or null.
[[nodiscard]] zekRadixNode* zekRadixGetPrev(const zekRadix* tree, const void* key,
                                            uint32_t keyBits);

[[nodiscard]] zekRadixNode* zekRadixGetFirst(const zekRadix* tree);
[[nodiscard]] zekRadixNode* zekRadixGetLast(const zekRadix* tree);

// Calls fn for every node in key order until it returns non-zero, and returns that value, else 0.
// fn may remove and free the node it is given, and no other.
int zekRadixWalk(zekRadix* tree, int (*fn)(zekRadixNode* node, void* arg), void* arg);

[[nodiscard]] uint32_t zekRadixCount(const zekRadix* tree);
