// Commands about access lists: the lists and their entries, what they are bound to, and questions
// of other tasks about both.
#include <algorithm>

#include "common/cfgline.h"
#include "download/zekacl_download.h"
#include "interface/interface.h"
#include "protocol/zekprotocol.h"
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

// --- IPv6 lists: all are extended ----------------------------------------------------------------

uint32_t cliV6ListCreate(cliCall& call) {
    return ipAccessListCreateExt(call.name(), IP_KIND_EXTENDED, 0, INTF_V6);
}
uint32_t cliV6ListDelete(cliCall& call) {
    return ipAccessListDeleteExt(call.name(), IP_KIND_EXTENDED, INTF_V6);
}
uint32_t cliV6EntryAdd(cliCall& call) {
    auto* req = call.as<cliIp6EntryReq>();
    return ipAddAccessEntryExt(call.name(), &req->block, req->log, req->monitor, INTF_V6);
}
uint32_t cliV6EntryDelete(cliCall& call) {
    return ipDelAccessEntryExt(call.name(), &call.as<cliIp6EntryReq>()->block, 1, 1, INTF_V6);
}

// --- MAC lists -----------------------------------------------------------------------------------

uint32_t cliMacListCreate(cliCall& call) {
    const uint32_t type = call.as<cliListReq>()->kind;
    if (type != IP_KIND_STANDARD && type != IP_KIND_EXTENDED) return ACL_E_SYSTEM;
    return l2AccessListCreateExt(call.name(), type, 0);
}
uint32_t cliMacListDelete(cliCall& call) {
    return l2AccessListDeleteExt(call.name(), call.as<cliListReq>()->kind);
}
uint32_t cliMacEntryAdd(cliCall& call) {
    auto* req = call.as<cliMacEntryReq>();
    return l2AddAccessEntryExt(call.name(), &req->block, req->log, req->counterOptions, req->order,
                               req->monitor);
}
uint32_t cliMacEntryDelete(cliCall& call) {
    const auto* req = call.as<cliMacEntryReq>();
    return l2DelAccessEntryExt(call.name(), &req->block, req->order);
}
uint32_t cliMacEgress(cliCall& call) {
    const uint32_t enable = call.code() == CLI_MAC_EGRESS_ENABLE ? 1 : 0;
    aclLockHeld<aclLock::write> held;
    cliHdr again{};
    again.code = CLI_MAC_EGRESS_ENABLE;
    if (enable != aclNode->config.l2_user_egr_acl_enable)
        (void)cfgWriteSetting(CFG_SECTION_MAC_EGRESS, "mac egress-filter", cfgRequestOf(again),
                              enable == 0);
    aclNode->config.l2_user_egr_acl_enable = enable;
    aclSendEgrMacEnableToAclAgent(enable);
    return ACL_OK;
}

// --- protocol trapping ---------------------------------------------------------------------------

uint32_t cliTrapProtocols(cliCall& call) {
    aclLockHeld<aclLock::write> held;
    return AclUpdateAclAgentForProtocols(call.code()) == 0 ? ACL_OK : ACL_E_ENTRY_MEMORY;
}
// The one of them that is a setting.
uint32_t cliDhcpTrap(cliCall& call) {
    aclLockHeld<aclLock::write> held;
    const uint32_t before = aclNode->protocol.acl_dhcp;
    if (AclUpdateAclAgentForProtocols(call.code()) != 0) {
        aclNode->protocol.acl_dhcp = before;
        return ACL_E_ENTRY_MEMORY;
    }
    cliHdr again{};
    again.code = CLI_DHCP_TRAP;
    if (aclNode->protocol.acl_dhcp != before)
        (void)cfgWriteSetting(CFG_SECTION_DHCP_TRAP, "ip dhcp-trap", cfgRequestOf(again),
                              call.code() == CLI_DHCP_NO_TRAP);
    return ACL_OK;
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
    return call.family == INTF_MAC ? acll2ApplyIntfExt(call.name(), request)
                                   : aclIpApplyIntfExt(call.name(), request, call.family);
}

uint32_t cliIpUnbind(cliCall& call) {
    const auto* req = call.as<cliUnbindReq>();
    return call.family == INTF_MAC
               ? acll2RemoveIntfExt(call.name(), req->ifindex, req->direction)
               : aclIpRemoveIntfExt(call.name(), req->ifindex, req->direction, call.family);
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

// --- remarks of every family's lists: which one, the code says ---

uint32_t cliRemarkAdd(cliCall& call) {
    aclLockHeld<aclLock::write> held;
    return aclFindListToAddRemarkEntry(*call.as<cliRemarkReq>(), call.code());
}

uint32_t cliRemarkDelete(cliCall& call) {
    aclLockHeld<aclLock::write> held;
    return aclFindListToDelRemarkEntry(call.name(), call.as<cliRemarkReq>()->seq, call.code());
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
