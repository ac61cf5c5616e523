// Records in trees: from a node to its record, typed look-ups by list name, and trees that are
// there only while something stands in them.
#pragma once

#include <cstddef>

#include "include/listName.h"
#include "platform/api/zekRadix.h"

// The record that has the node at this offset (offsetof); null for no node.
template <class Record>
Record* treeRecord(zekRadixNode* node, size_t at = 0) {
    return node != nullptr ? reinterpret_cast<Record*>(reinterpret_cast<char*>(node) - at)
                           : nullptr;
}

// --- by list name: a record's first member, or its base's, is its node. Null when there is none.
// --

template <class Record>
Record* nameTreeFind(const zekRadix* tree, const listName& name) {
    return treeRecord<Record>(zekRadixGetExact(tree, name.text, LIST_NAME_KEY_BITS));
}
template <class Record>
Record* nameTreeFirst(const zekRadix* tree) {
    return treeRecord<Record>(zekRadixGetFirst(tree));
}
// The record with the smallest name above the given one, which need not be there.
template <class Record>
Record* nameTreeNext(const zekRadix* tree, const listName& name) {
    return treeRecord<Record>(zekRadixGetNext(tree, name.text, LIST_NAME_KEY_BITS));
}
// Null also when the named record is absent, whatever stands in front of its place.
template <class Record>
Record* nameTreePrev(const zekRadix* tree, const listName& name) {
    if (zekRadixGetExact(tree, name.text, LIST_NAME_KEY_BITS) == nullptr) return nullptr;
    return treeRecord<Record>(zekRadixGetPrev(tree, name.text, LIST_NAME_KEY_BITS));
}

// --- on demand: a tree comes with its first node and goes with its last; null is the empty one ---

inline void onDemandTreeDropEmpty(zekRadix** tree) {
    if (*tree == nullptr || zekRadixCount(*tree) != 0) return;
    zekRadixDestroy(*tree);
    *tree = nullptr;
}
// 0; -1 when the key is there already or there is no memory: nothing has changed then.
[[nodiscard]] inline int onDemandTreeInsert(zekRadix** tree, const char* name, zekRadixNode* node,
                                            const void* key, uint32_t keyBits) {
    if (*tree == nullptr) *tree = zekRadixCreate(name, keyBits);
    if (*tree == nullptr) return -1;
    const int status = zekRadixInsert(*tree, node, key, keyBits);
    onDemandTreeDropEmpty(tree);
    return status;
}
inline void onDemandTreeRemove(zekRadix** tree, zekRadixNode* node) {
    zekRadixRemove(*tree, node);
    onDemandTreeDropEmpty(tree);
}
[[nodiscard]] inline zekRadixNode* onDemandTreeFind(const zekRadix* tree, const void* key,
                                                    uint32_t keyBits) {
    return tree != nullptr ? zekRadixGetExact(tree, key, keyBits) : nullptr;
}
