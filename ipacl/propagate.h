// Carrying a change of an ordinary list to everything that the list is bound to. Private to this
// folder.
#pragma once

#include "include/list.h"

// What is sent. The management tasks 18 and 33 receive the list or entry under the ingress id.
struct aclChange {
    const aclEntry* entry;     // null: the whole list
    uint32_t ingress, egress;  // message ids by the binding's direction
    uint32_t ipm;  // id under which task 87, which knows no single entries, gets the whole list; 0:
                   // not now
    bool ports;    // false: port bindings are passed over; LAGs and VLANs never are
};
// Walks the bindings once, newest first.
void aclPropagate(aclList* list, const aclChange& change);

// The whole list to the bindings of one management task.
void aclPropagateToIPM(aclList* list, uint32_t messageId);
void aclPropagateToSYSADM(aclList* list, uint32_t messageId);

// The forwarding pipe of a port; all ones when the chassis does not have the port.
uint32_t aclPortPipe(uint32_t ifindex);
