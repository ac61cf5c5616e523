// `show clients`: which task uses which list, and how each task was told of changes.
#include "common/clientWait.h"
#include "common/clients.h"
#include "include/ipText.h"
#include "include/jsonText.h"
#include "include/service.h"
#include "l2acl/zekl2acl.h"
#include "platform/api/zekTask.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"
#include "task/task.h"

namespace {

struct rowsWriter {
    std::string rows;
    void add(const jsonObject& row) {
        if (!rows.empty()) rows += ",";
        rows += row.text();
    }
    std::string array() const { return "[" + rows + "]"; }
};

// The tasks of one list, in the order in which they are told.
struct listRows {
    rowsWriter* out;
    const char* kind;
    const listName& list;
    bool endsAtFailure;  // who cannot be told keeps those behind it from being told
    bool muted = false;

    void task(uint32_t application, uint32_t instance);
};

void listRows::task(uint32_t application, uint32_t instance) {
    // A task that was never told anything has no state yet.
    const auto known = clientStates().find({application, instance});
    const clientState state = known != clientStates().end() ? known->second : clientState{};
    uint32_t card = ADDRESS_UNKNOWN;
    const bool reached = zek_tmeGetPeerIpAddrByName(application, instance, &card) == 0;
    std::string address = "unknown";
    if (reached) textDotted(address = "", card);
    // The first of these that holds is what a trigger does.
    const char* told = "and waited for";
    if (muted)
        told = "no: one that registered later has no address";
    else if (!reached)
        told = "no: it has no address";
    else if (aclClientHasQueue(application))
        told = "by its queue";
    else if (state.silent)
        told = "without a wait: it has let its time pass";
    out->add(jsonObject()
                 .string("kind", kind)
                 .string("list", listNameView(list))
                 .number("task", application)
                 .number("instance", instance)
                 .string("name", aclClientName(application))
                 .string("address", address)
                 .string("told", told)
                 .number("triggers", state.messages)
                 .number("unanswered", state.unanswered));
    // The walk of triggers ends at the first failure, for all behind it.
    muted |= endsAtFailure && !reached;
}

template <class List, class Next>
void addLists(rowsWriter* out, const char* kind, bool endsAtFailure, List* first, Next next) {
    for (const namedList* list = first; list != nullptr; list = next(list->name)) {
        listRows rows{out, kind, list->name, endsAtFailure};
        for (const listClient* c = list->clients; c != nullptr; c = c->next)
            // Route maps are clients, too, but no tasks: they are shown with the map.
            if (c->kind == CLIENT_TASK) rows.task(c->id, c->instance);
    }
}

std::string registrations() {
    rowsWriter out;
    addLists(&out, "ip", true, ipAccessListFindFirst(), ipAccessListFindNext);
    addLists(&out, "ipv6", true, aclV6AccessListFindFirst(), aclV6AccessListFindNext);
    addLists(&out, "mac", true, l2AccessListFindFirst(), l2AccessListFindNext);
    for (uint32_t af : {AF_IPV4, AF_IPV6})
        addLists(&out, af == AF_IPV4 ? "prefix" : "prefix-v6", true, ipPrefixListFindFirst(af),
                 [af](const listName& name) { return ipPrefixListFindNext(name, af); });
    addLists(&out, "route-map", true, ipRmapListFindFirst(), ipRmapListFindNext);
    // Triggers of BGP lists go on behind a failure.
    addLists(&out, "as-path", false, bgpASPAccessListFindFirst(), bgpASPAccessListFindNext);
    addLists(&out, "community", false, bgpCommListFindFirst(), bgpCommListFindNext);
    addLists(&out, "extcommunity", false, bgpExtCommListFindFirst(), bgpExtCommListFindNext);
    return out.array();
}

}  // namespace

std::string aclClientsDump() {
    rowsWriter clients;
    for (const auto& [key, c] : clientStates())
        clients.add(jsonObject()
                        .number("task", key.first)
                        .number("instance", key.second)
                        .string("name", aclClientName(key.first))
                        .number("triggers", c.messages)
                        .number("failed", c.failures)
                        .number("last-status", c.lastStatus)
                        .number("last-wait-ms", c.lastWaitMs)
                        .number("longest-wait-ms", c.longestWaitMs)
                        .number("unanswered", c.unanswered)
                        .number("late-answers", c.late)
                        .flag("waited-for", !c.silent));
    return jsonObject()
        .number("wait-at-most-ms", zekClientWaitMs())
        // A request may tell several tasks; it does not wait for all of them in full.
        .number("wait-at-most-ms-in-a-request", zekClientWaitMs() * CLIENT_WAITS_PER_REQUEST)
        .raw("clients", clients.array())
        .raw("registrations", registrations())
        .text();
}
