// Commands about access lists: the lists and their entries, what they are bound to, and questions
// of other tasks about both.
#include <algorithm>

#include "interface/interface.h"
#include "task/cliCall.h"

// --- ordinary lists ------------------------------------------------------------------------------

uint32_t cliIpListCreate(cliCall& call) {
    const uint32_t kind = call.as<cliListReq>()->kind;
    if (kind != IP_KIND_STANDARD && kind != IP_KIND_EXTENDED) return ACL_E_SYSTEM;
    return ipAccessListCreateExt(call.name(), kind, 0, call.family);
}

uint32_t cliIpListDelete(cliCall& call) {
    return ipAccessListDeleteExt(call.name(), call.as<cliListReq>()->kind, call.family);
}

uint32_t cliIpEntryAdd(cliCall& call) {
    auto* req = call.as<cliIpEntryReq>();
    return ipAddAccessEntryExt(call.name(), &req->block, req->log, req->monitor, call.family);
}

uint32_t cliIpEntryDelete(cliCall& call) {
    return ipDelAccessEntryExt(call.name(), &call.as<cliIpEntryReq>()->block, 1, 1, call.family);
}

uint32_t cliIpClearAll(cliCall&) {
    return aclClearIpAclAllExt();
}

// --- bindings ------------------------------------------------------------------------------------

uint32_t cliIpBind(cliCall& call) {
    const auto* req = call.as<cliBindReq>();
    bindingBlock block;
    static_assert(sizeof block == sizeof req->block);
    std::memcpy(&block, req->block, sizeof block);
    const aclBindRequest request{
        .ifindex = req->ifindex,
        .direction = req->direction,
        .implicitPermit = req->implicitPermit,
        .writeConfig = req->writeConfig,
        .block = &block,
        .vlanOption = req->vlanOption != 0,
        .vlanText = {req->vlanText, strnlen(req->vlanText, sizeof req->vlanText)}};
    return aclIpApplyIntfExt(call.name(), request, call.family);
}

uint32_t cliIpUnbind(cliCall& call) {
    const auto* req = call.as<cliUnbindReq>();
    return aclIpRemoveIntfExt(call.name(), req->ifindex, req->direction, call.family);
}

// --- DoS lists -----------------------------------------------------------------------------------

uint32_t cliDosListCreate(cliCall& call) {
    return ipDosListCreateExt(call.name(), call.as<cliListReq>()->kind, 0);
}

uint32_t cliDosEntryAdd(cliCall& call) {
    auto* req = call.as<cliIpEntryReq>();
    return ipAddDosEntryExt(call.name(), &req->block, req->log);
}

uint32_t cliDosEntryDelete(cliCall& call) {
    return ipDelDosEntryExt(call.name(), &call.as<cliIpEntryReq>()->block, 1, 1);
}

// Both codes are one operation, which reads the code.
uint32_t cliDosEnable(cliCall& call) {
    return dosIpEnableIntfExt(call.name(), call.code());
}

// --- questions of other tasks --------------------------------------------------------------------

// The answer may be longer than the request: it stands in the receive buffer, which is long enough
// for as many members as it may name.
uint32_t cliLagMembers(cliCall& call) {
    auto* req = call.as<cliLagMembersReq>();
    static_assert(sizeof *req <= IPC_BUFFER_SIZE);
    if (ifindexType(req->ifindex) != IF_TYPE_LAG) return ACL_E_SYSTEM;
    aclLockHeld<aclLock::read> held;
    uint32_t count = 0;
    const uint32_t* members = aclLagMembers(req->ifindex, &count);
    count = std::min(count, static_cast<uint32_t>(CLI_LAG_MEMBERS_MAX));
    req->count = count;
    for (uint32_t i = 0; i < count; i++) req->members[i] = members[i];
    const size_t length = offsetof(cliLagMembersReq, members) + count * sizeof(be32);
    if (req->cli.ipc.length < length) req->cli.ipc.length = static_cast<uint32_t>(length);
    return ACL_OK;
}

// Whether a Telnet server may use the list: only one that is configured counts. The status stands
// in the word; that of the request says that it was understood.
uint32_t cliTelnetValue(cliCall& call) {
    aclLockHeld<aclLock::read> held;
    call.as<cliWordReq>()->word = ipCheckForPrefixAccessList(call.name()) ? ACL_OK : ACL_E_NOLIST;
    return ACL_OK;
}
