// Carrying a change of an ordinary list to everything that the list is bound to. Private to this
// folder.
#pragma once

#include "common/list.h"
#include "download/zekacl_download.h"

// What is sent. The management tasks 18 and 33 receive the list or entry under the ingress id.
struct aclChange {
    const aclEntry* entry;     // null: the whole list
    uint32_t ingress, egress;  // message ids by the binding's direction
    uint32_t ipm;  // id under which task 87, which knows no single entries, gets the whole list; 0:
                   // not now
    bool ports;    // false: port bindings are passed over; LAGs and VLANs never are
};
inline constexpr aclChange aclListAdded = {nullptr, MT_ACL_ADDLIST, MT_ACL_EGR_ADDLIST,
                                           MT_ACL_ADDLIST, true};
inline constexpr aclChange aclListDeleted = {nullptr, MT_ACL_DELLIST, MT_ACL_EGR_DELLIST,
                                             MT_ACL_DELLIST, true};
// Walks the bindings once, newest first.
void aclPropagate(aclList* list, const aclChange& change);

// Sends to one interface: a port, a LAG's members from the last to the first, or a VLAN's cards. A
// whole list goes with the block that stands in it (sendBlock): the caller puts it there. The
// result is a port's; for LAGs and VLANs it is 0.
struct aclPlace {
    uint32_t ifindex, direction, implicitPermit;
};
int aclSendToInterface(aclList* list, const aclChange& change, const aclPlace& place);

// Sends to a management task that keeps copies; every other task is told by the trigger alone.
void aclSendToTask(aclList* list, const aclChange& change, const aclBinding& binding);

// The whole list to the bindings of one management task.
void aclPropagateToIPM(aclList* list, uint32_t messageId);
void aclPropagateToSYSADM(aclList* list, uint32_t messageId);

// The forwarding pipe of a port; all ones when the chassis does not have the port.
uint32_t aclPortPipe(uint32_t ifindex);
