// The manager's records as the agents receive them.
#include <algorithm>

#include "download/sendPath.h"
#include "include/service.h"
#include "platform/api/zekIpc.h"

namespace {

// A port-level send on behalf of a VLAN names the VLAN.
uint32_t boundInterface(const aclSendRequest& request) {
    return request.vlan != 0 ? request.vlan : request.ifindex;
}

uint32_t groupIdOf(const aclSendRequest& request) {
    return request.groupId <= VLAN_GROUPS ? request.groupId : 0;
}

// Fields that stand side by side in the entry block and in the match travel as one run of bytes.
template <size_t from, size_t to, size_t bytes>
void copyRun(agentMatch* match, const ipEntryBlock& block) {
    static_assert(from + bytes <= sizeof block && to + bytes <= sizeof *match);
    std::memcpy(reinterpret_cast<uint8_t*>(match) + to,
                reinterpret_cast<const uint8_t*>(&block) + from, bytes);
}

// Into zeroed memory.
void fillMatch(agentMatch* m, const ipEntryBlock& b) {
    copyRun<24, 0, 40>(m, b);  // addresses and masks, and what follows up to the reserved word
    m->protocol = b.protocol;
    m->protoMarker = b.protoMarker;
    m->order = b.order;
    m->kind = b.kind;
    if (b.protocol == IP_PROTO_TCP) m->tcpFlags = b.tcpFlags;
    if (b.protocol == IP_PROTO_TCP || b.protocol == IP_PROTO_UDP)
        copyRun<128, 60, 16>(m, b);  // operators and ports
    if (b.protocol == IP_PROTO_ICMP) copyRun<128, 76, 4>(m, b);
    copyRun<72, 80, 56>(m, b);   // ARP and ether-type fields
    copyRun<148, 136, 8>(m, b);  // fragments, DSCP
}

}  // namespace

void vAclBuildIpcHdr(agentHdr* header, uint32_t ifindex, size_t bodyLen, uint32_t messageId) {
    *header = {};
    agentRoute route = agentRouteOf(ifindex, messageId);
    uint32_t own;
    (void)zek_tmeGetPeerIpAddrByName(APP_ACL, 0, &own);
    header->ipc.length = static_cast<uint32_t>(bodyLen + sizeof *header);
    header->ipc.mtype = messageId;
    header->ipc.sequence = APP_ACL;
    header->ipc.target.card = own;
    header->ipc.target.svce = aclServicePort(APP_ACL, 0, QUEUE_RESPONSE);
    header->ipc.source.slot = route.slot;
    header->ipc.source.card = route.address;
    header->ipc.source.svce = route.service;
    header->bodyLen = static_cast<uint32_t>(bodyLen);
}

void vAclFillInAclList(agentListHdr* header, const aclList& list, const aclSendRequest& request) {
    *header = {};
    header->name = list.name;
    header->count = static_cast<uint32_t>(std::max(list.count, 0));
    header->kind = list.kind;
    header->option = request.option;
    header->block = list.sendBlock;
    header->runCfgCount = request.entryCount;
    header->portPipe = static_cast<uint8_t>(request.portPipe);
    uint32_t groupId = groupIdOf(request);
    header->groupId = static_cast<uint8_t>(groupId);
    if (groupId == 0) {
        header->ifindex = boundInterface(request);
        header->onBehalfOfVlan = request.vlan != 0 ? 1 : 0;
        return;
    }
    for (const aclVlanGroup& group : aclNode->groups.vlanGroups)
        if (group.id == groupId) header->groupName = group.name;
}

void vAclFillInAclList(agentMacListHdr* header, const l2AclList& list,
                       const aclSendRequest& request) {
    *header = {};
    header->name = list.name;
    header->lastEntryId = list.lastEntryId;
    header->type = list.kind;
    header->placeholder = list.placeholder;
    header->count = static_cast<uint32_t>(std::max(list.count, 0));
    header->ifindex = boundInterface(request);
    header->block = list.sendBlock;
}

void vAclAddEntryToAclList(agentEntry* image, const aclEntry& entry) {
    const ipEntryBlock& b = entry.block;
    *image = {};
    image->seq = b.seq;
    image->action = b.action & 0xFF;
    image->counterOptions = b.counterOptions;
    std::ranges::copy(b.carried, image->carried);
    image->log = entry.log & 0xFF;
    image->owner = b.owner;
    image->monitor = entry.monitor;

    // The agents read both halves. Each is filled for itself, as a copy would wait for the stores.
    fillMatch(&image->match, b);
    fillMatch(&image->matchCopy, b);
}

void vAclAddEntryToAclList(agentEntry6* image, const acl6Entry& entry) {
    *image = {};
    image->block = entry.block;
    image->log = entry.log;
    image->monitor = entry.monitor;
    image->id = entry.id;
    image->matchCount = entry.matchCount;
}

void vAclAddEntryToAclList(agentMacEntry* image, const l2AclEntry& entry) {
    *image = {};
    image->block = image->blockCopy = entry.block;
    image->id = entry.id;
    image->counterOptions = entry.counterOptions;
    image->log = entry.log;
    image->monitor = entry.monitor;
}
