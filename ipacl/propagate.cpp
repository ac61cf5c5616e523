// The one walk over a list's clients: what it is bound to, the management tasks that keep copies,
// and those that are only told that something has changed.
#include "ipacl/propagate.h"

#include <iterator>

#include "common/debug.h"
#include "include/service.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"

namespace {

uint32_t messageOf(const aclList* list, aclEvent event, uint32_t direction) {
    const aclAgentIds& ids = list->family->agentIds[direction != INTF_IN ? INTF_OUT : INTF_IN];
    switch (event) {
        case aclEvent::listAdded:
            return ids.list;
        case aclEvent::listDeleted:
            return ids.drop;
        case aclEvent::entryAdded:
            return ids.add;
        case aclEvent::entryDeleted:
            return ids.del;
    }
    return ids.list;
}

bool isBinding(const listClient& client) {
    return client.kind == CLIENT_INTERFACE || client.kind == CLIENT_VLAN_GROUP;
}
aclPlace placeOf(const aclBinding& b) {
    return b.kind == CLIENT_INTERFACE ? aclPlace{b.id, b.direction}
                                      : aclPlace{0, b.direction, b.id & 0xFF};
}

// The first client that is the task. IPM's instances have a queue each; those of others share one.
const listClient* findTask(const aclList* list, uint32_t application, uint32_t instance) {
    const listClient* c = list->clients;
    while (c != nullptr && (c->kind != CLIENT_TASK || c->id != application ||
                            (application == APP_IPM && c->instance != instance)))
        c = c->next;
    return c;
}

bool ipmKeepsCopies(const aclList* list) {
    return list->family->copies == mgmtCopies::all;
}

template <class Fn>
void forTask(const aclList* list, uint32_t application, Fn&& fn) {
    for (const listClient* c = list->clients; c != nullptr; c = c->next)
        if (c->kind == CLIENT_TASK && c->id == application) fn(*c);
}

}  // namespace

void aclSendToTask(const aclList* list, const aclChange& change, const listClient& client) {
    if (list->family->copies == mgmtCopies::none) return;
    const uint32_t id = messageOf(list, change.event, INTF_IN);
    switch (client.id) {
        case APP_SNMP:
            if (change.entry != nullptr)
                aclSendEntToSNMP(list, change.entry, id);
            else
                aclSendListToSNMP(list, id);
            break;
        case APP_SYSADM:
            if (change.entry != nullptr)
                aclSendEntToSYSADMTSK(list, change.entry, id);
            else
                aclSendListToSYSADMTSk(list, id);
            break;
        case APP_IPM:
            // It knows no single entries: it gets the whole list, of a deletion when that is done.
            if (!ipmKeepsCopies(list) || change.event == aclEvent::entryDeleted) break;
            aclSendListToIPM(
                list, change.entry != nullptr ? messageOf(list, aclEvent::listAdded, INTF_IN) : id,
                &client);
            break;
        default:
            break;
    }
}

int aclSendToInterface(const aclList* list, const aclChange& change, const aclPlace& place,
                       const aclBound& bound, const aclOnly& only) {
    const uint32_t type = ifindexType(place.ifindex);
    if (type != IF_TYPE_LAG && !aclPlaceIsByCard(place) && !change.ports) return 0;
    if (type == IF_TYPE_VLAN && !list->family->onVlans) return 0;  // bound there, never sent: meant
    aclSend send{messageOf(list, change.event, place.direction), list, change.entry};
    if (change.entry == nullptr) {
        send.block = bound.block;
        send.option = bound.implicitPermit;
    }
    const int result = aclSendToPlace(place, send, only);
    return aclPlaceIsByCard(place) ? 0 : result;
}

aclBinding* aclInterfaceBinding(const aclList* list, uint32_t ifindex, uint32_t direction) {
    return static_cast<aclBinding*>(
        clientFind(list, {CLIENT_INTERFACE, ifindex, 0, direction != 0 ? 1u : 0u}));
}

void aclPropagate(const aclList* list, const aclChange& change) {
    for (const listClient* c = list->clients; c != nullptr; c = c->next) {
        if (isBinding(*c)) {
            const auto& b = static_cast<const aclBinding&>(*c);
            (void)aclSendToInterface(list, change, placeOf(b), {b.implicitPermit, &b.block});
        }
        if (c->kind == CLIENT_TASK) aclSendToTask(list, change, *c);
    }
}

void aclPropagateRenumbered(const aclList* list) {
    const aclChange again{aclEvent::listAdded};
    for (const listClient* c = list->clients; c != nullptr; c = c->next) {
        if (c->kind == CLIENT_TASK) aclSendToTask(list, again, *c);
        if (!isBinding(*c)) continue;
        const auto& b = static_cast<const aclBinding&>(*c);
        const aclPlace place = placeOf(b);
        const aclBound bound{b.implicitPermit, &b.block};
        if (ifindexType(place.ifindex) == IF_TYPE_CP)
            (void)aclSendToInterface(list, again, place, bound);
        else
            for (uint32_t slot = RESEQ_LAST_SLOT + 1; slot < SLOT_COUNT; slot++)
                if (aclLinecardInfo[slot].aclAgent != ZEK_SWP_NONE)
                    (void)aclSendToInterface(list, again, place, bound, {static_cast<int>(slot)});
    }
}

void aclPropagateToIPM(const aclList* list) {
    if (!ipmKeepsCopies(list)) return;
    forTask(list, APP_IPM, [list](const listClient& client) {
        aclSendListToIPM(list, messageOf(list, aclEvent::listAdded, INTF_IN), &client);
    });
}

void aclPropagateToSYSADM(const aclList* list, aclEvent event) {
    if (list->family->copies == mgmtCopies::none) return;
    forTask(list, APP_SYSADM, [list, event](const listClient&) {
        aclSendListToSYSADMTSk(list, messageOf(list, event, INTF_IN));
    });
}

void aclSendListsToTask(uint32_t application, uint32_t instance) {
    listName behind;
    // The replay has them all.
    while (application == APP_IPM && aclNextListBehind(instance, &behind)) continue;
    for (const aclFamily* family : aclFamilies)
        aclForEachList(*family, [&](const aclList& list) {
            if (list.placeholder != 0) return;
            const listClient* client = findTask(&list, application, instance);
            if (client == nullptr) return;
            if (application != APP_IPM)
                aclSendToTask(&list, {aclEvent::listAdded}, *client);
            else if (ipmKeepsCopies(&list))
                aclReplayListToIPM(&list, client);
        });
}

void aclServeListsBehind() {
    for (uint32_t instance = 0; instance < std::size(aclNode->queues.aclIPMqHandle); instance++)
        for (listName name; aclNextListBehind(instance, &name);) {
            const aclList* list = ipAccessListFind(name);
            const listClient* client =
                list != nullptr ? findTask(list, APP_IPM, instance) : nullptr;
            if (client == nullptr) continue;  // not a client of it any more
            aclSendListToIPM(list, list->placeholder != 0 ? MT_ACL_DELLIST : MT_ACL_ADDLIST,
                             client);
        }
}
