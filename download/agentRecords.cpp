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

// Fields of an entry block that travel as one run of bytes.
template <size_t N>
void copyRun(uint8_t (&to)[N], const ipEntryBlock& block, size_t offset) {
    std::memcpy(to, reinterpret_cast<const uint8_t*>(&block) + offset, N);
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
    for (const aclVlanGroup& group : aclNode->vlanGroups)
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

    agentMatch& m = image->match;
    m.src = b.src;
    m.srcMask = b.srcMask;
    m.dst = b.dst;
    copyRun(m.words, b, offsetof(ipEntryBlock, dstMask));
    m.protocol = b.protocol;
    m.protoMarker = b.protoMarker;
    m.order = b.order;
    m.kind = b.kind;
    if (b.protocol == IP_PROTO_TCP) m.tcpFlags = b.tcpFlags;
    if (b.protocol == IP_PROTO_TCP || b.protocol == IP_PROTO_UDP) {
        m.srcOperator = b.srcOperator;
        m.dstOperator = b.dstOperator;
        m.ports[0] = b.srcLow;
        m.ports[1] = b.srcHigh;
        m.ports[2] = b.dstLow;
        m.ports[3] = b.dstHigh;
    }
    if (b.protocol == IP_PROTO_ICMP) copyRun(m.icmp, b, offsetof(ipEntryBlock, icmp));
    copyRun(m.l2, b, offsetof(ipEntryBlock, arpMarker));
    m.fragments = b.fragments;
    copyRun(m.dscp, b, offsetof(ipEntryBlock, dscp));
    image->matchCopy = m;  // the agents read both halves
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
