// Carrying a change of a list to everything that uses it. Private to this folder.
#pragma once

#include "download/zekacl_download.h"
#include "ipacl/family.h"

// What happened to a list; its row says under which message each card hears of it.
enum class aclEvent { listAdded, listDeleted, entryAdded, entryDeleted };
struct aclChange {
    aclEvent event;
    const listEntry* entry = nullptr;  // of entry events
    bool ports = true;  // false: port bindings are passed over; LAGs, VLANs and groups never are
};
// Walks the clients once, newest first.
void aclPropagate(const aclList* list, const aclChange& change);

// To one place, on account of a binding that may be another place's (a LAG's, for a port of it).
// The result is a port's; for LAGs and VLANs it is 0.
struct aclBound {
    uint32_t implicitPermit;
    const bindingBlock* block;
};
int aclSendToInterface(const aclList* list, const aclChange& change, const aclPlace& place,
                       const aclBound& bound, const aclOnly& only = {});

// To a management task that keeps copies, under the ingress id; every other task is told by the
// trigger alone.
void aclSendToTask(const aclList* list, const aclChange& change, const listClient& client);

// The whole list to those that are not told of new numbers by bundles: other cards, the control
// processor, the management tasks that keep copies.
void aclPropagateRenumbered(const aclList* list);

// The whole list to the copies of one management task.
void aclPropagateToIPM(const aclList* list);
void aclPropagateToSYSADM(const aclList* list, aclEvent event);
