// The operator's commands: the request at hand, and the handlers that the table of cliDispatch.cpp
// names. A handler calls one operation of a store through its wrapper and returns the status; the
// dispatcher has checked the length and the texts, and answers.
#pragma once

#include "include/cliMsg.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

// A request, what its row says of it, and what its operation leaves beside the status.
struct cliCall {
    uint8_t* message;
    uint32_t family = 0;     // intfFamily for access lists, AF_IPV4 or AF_IPV6 for policy lists
    bool detail = false;     // of a show
    void* buffer = nullptr;  // a show's reply, freed once it is sent
    uint32_t size = 0;

    template <class Request>
    Request* as() const {
        return reinterpret_cast<Request*>(message);  // the row's length covers the record
    }
    listName name() const { return listNameMake(as<cliHdr>()->name); }
    listName shownName() const { return listNameMake(as<cliShowReq>()->name); }
    uint32_t code() const { return as<cliHdr>()->code; }
};

// --- of any kind of list: only the wrapper differs -----------------------------------------------

template <const auto& Wrapper>
uint32_t cliByName(cliCall& call) {
    return Wrapper(call.name());
}
template <const auto& Wrapper>
uint32_t cliOfAll(cliCall&) {
    return Wrapper();
}
template <const auto& Wrapper>
uint32_t cliByNameAndFamily(cliCall& call) {
    return Wrapper(call.name(), call.family);
}
template <const auto& Wrapper>
uint32_t cliCreate(cliCall& call) {
    return Wrapper(call.name(), 0);  // no placeholder: the operator configures it
}
template <class Request, const auto& Wrapper>
uint32_t cliEntry(cliCall& call) {
    return Wrapper(call.name(), call.as<Request>()->entry);
}
template <const auto& Wrapper>
uint32_t cliResequence(cliCall& call) {
    const auto* req = call.as<cliReseqReq>();
    return Wrapper(call.name(), req->start, req->step);
}
template <const auto& Wrapper>
uint32_t cliShow(cliCall& call) {
    return Wrapper(call.shownName(), &call.buffer, &call.size);
}
// Whether a Telnet server may use the list: the answer stands in the word, the request's own status
// says that it was understood.
template <auto Operation>
uint32_t cliTelnetValue(cliCall& call) {
    aclLockHeld<aclLock::read> held;
    call.as<cliWordReq>()->word = Operation(call.name());
    return ACL_OK;
}
// In pages: the request says how far the last one went.
template <const auto& Wrapper>
uint32_t cliShowPage(cliCall& call) {
    uint32_t resume = call.as<cliShowReq>()->resume;
    return Wrapper(call.shownName(), &resume, &call.buffer, &call.size);
}

// --- access lists, bindings, interfaces (cliLists.cpp) -------------------------------------------

uint32_t cliIpListCreate(cliCall& call);
uint32_t cliIpListDelete(cliCall& call);
uint32_t cliIpEntryAdd(cliCall& call);
uint32_t cliIpEntryDelete(cliCall& call);
uint32_t cliV6ListCreate(cliCall& call);
uint32_t cliV6ListDelete(cliCall& call);
uint32_t cliV6EntryAdd(cliCall& call);
uint32_t cliV6EntryDelete(cliCall& call);
uint32_t cliMacListCreate(cliCall& call);
uint32_t cliMacListDelete(cliCall& call);
uint32_t cliMacEntryAdd(cliCall& call);
uint32_t cliMacEntryDelete(cliCall& call);
uint32_t cliMacEgress(cliCall& call);
uint32_t cliTrapProtocols(cliCall& call);
uint32_t cliDhcpTrap(cliCall& call);
uint32_t cliIpBind(cliCall& call);
uint32_t cliIpUnbind(cliCall& call);
uint32_t cliDosListCreate(cliCall& call);
uint32_t cliDosEntryAdd(cliCall& call);
uint32_t cliDosEntryDelete(cliCall& call);
uint32_t cliDosEnable(cliCall& call);
uint32_t cliRemarkAdd(cliCall& call);
uint32_t cliRemarkDelete(cliCall& call);
uint32_t cliLagMembers(cliCall& call);

// --- ACL VLAN groups (cliGroups.cpp) -------------------------------------------------------------

uint32_t cliGroupCreate(cliCall& call);  // (and deletes)
uint32_t cliGroupMember(cliCall& call);
uint32_t cliGroupApply(cliCall& call);
uint32_t cliSourceGuard(cliCall& call);

// --- of every kind of list (description.cpp) -----------------------------------------------------

uint32_t cliDescription(cliCall& call);

// --- policy lists (cliPolicy.cpp) ----------------------------------------------------------------

uint32_t cliAspathEntryAdd(cliCall& call);
uint32_t cliAspathEntryDelete(cliCall& call);
uint32_t cliRmapCreate(cliCall& call);
uint32_t cliRmapDelete(cliCall& call);
uint32_t cliRmapInstanceDelete(cliCall& call);
uint32_t cliRmapEntryAdd(cliCall& call);
uint32_t cliRmapEntryDelete(cliCall& call);
uint32_t cliRmapEntryChange(cliCall& call);
uint32_t cliAsNotation(cliCall& call);
uint32_t cliPrefixListCreate(cliCall& call);
uint32_t cliPrefixEntryAdd(cliCall& call);
uint32_t cliPrefixEntryDelete(cliCall& call);
uint32_t cliPrefixClearAll(cliCall& call);
uint32_t cliPrefixShow(cliCall& call);
uint32_t cliPrefixShowAll(cliCall& call);
uint32_t cliPrefixResequence(cliCall& call);
