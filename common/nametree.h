// Records in a tree keyed by their list name: typed look-ups. A record's first member (or its
// base's) is its zekRadixNode, so a node is its record. Null when there is none.
#pragma once

#include "include/listName.h"
#include "platform/api/zekRadix.h"

template <class Record>
Record* nameTreeRecord(zekRadixNode* node) {
    return reinterpret_cast<Record*>(node);
}
template <class Record>
Record* nameTreeFind(const zekRadix* tree, const listName& name) {
    return nameTreeRecord<Record>(zekRadixGetExact(tree, name.text, LIST_NAME_KEY_BITS));
}
template <class Record>
Record* nameTreeFirst(const zekRadix* tree) {
    return nameTreeRecord<Record>(zekRadixGetFirst(tree));
}
// The record with the smallest name above the given one, which need not be there.
template <class Record>
Record* nameTreeNext(const zekRadix* tree, const listName& name) {
    return nameTreeRecord<Record>(zekRadixGetNext(tree, name.text, LIST_NAME_KEY_BITS));
}
// Null also when the named record is absent, whatever stands in front of its place.
template <class Record>
Record* nameTreePrev(const zekRadix* tree, const listName& name) {
    if (zekRadixGetExact(tree, name.text, LIST_NAME_KEY_BITS) == nullptr) return nullptr;
    return nameTreeRecord<Record>(zekRadixGetPrev(tree, name.text, LIST_NAME_KEY_BITS));
}
