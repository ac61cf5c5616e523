// A tree that is there only while something stands in it: it comes with its first node and goes
// with its last one. A null tree is the empty one.
#pragma once

#include "platform/api/zekRadix.h"

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
