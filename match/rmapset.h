// What the parts of the route-map evaluation share: rmapcheck.cpp asks match clauses and follows
// the instances, rmapset.cpp changes the route. Private to this folder.
#pragma once

#include "match/zekRmap.h"

// Changes the route as a set clause says. False for a code that changes nothing of a route.
bool rmapSetApply(const rmapEntry& entry, rmapRoute* out);

// The list that a value names, as the store that has it left it there; null: none registered it.
// The policy records begin with their common front, which is what a store leaves in the value.
template <class List>
const List* rmapListOf(const rmapNameValue& name) {
    return static_cast<const List*>(static_cast<const namedList*>(name.list));
}
