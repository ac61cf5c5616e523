// The entries of a prefix list in the order of their numbers, found by number or by position: a
// balanced tree beside the chain. Nodes sit in the entries; random priorities, not the order of
// changes nor the numbers, give the tree its shape, so its depth stays near the logarithm of its
// size and its walks may recurse.
//
// A root is null for no entries. All numbers differ. Numbers may change as long as their order
// stays.
#pragma once

#include "common/lists/prefixList.h"

void prefixOrderInsert(prefixEntry** root, prefixEntry* entry);
void prefixOrderRemove(prefixEntry** root, prefixEntry* entry);
prefixEntry* prefixOrderFind(prefixEntry* root, uint32_t seq);
// The entry with the smallest number above this one, or null.
prefixEntry* prefixOrderNext(prefixEntry* root, uint32_t seq);
// The entry behind `position` others, or null.
prefixEntry* prefixOrderAt(prefixEntry* root, uint32_t position);
