// The manager's records as the agents receive them.
#include <algorithm>

#include "common/debug.h"
#include "download/sendPath.h"
#include "include/agentState.h"
#include "include/service.h"

namespace {

// A send on behalf of a VLAN names the VLAN.
uint32_t boundInterface(const aclTarget& target) {
    return target.vlan != 0 ? target.vlan : target.ifindex;
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

// The header of an IPv4 or IPv6 list, all but the count.
void vAclFillInAclList(uint8_t* to, const aclTarget& target, const aclSend& send) {
    auto* header = new (to) agentListHdr{};
    header->name = send.list->name;
    header->kind = send.list->kind;
    header->option = send.option;
    if (send.block != nullptr) header->block = *send.block;
    header->runCfgCount =
        send.entry != nullptr ? send.count : static_cast<uint32_t>(send.list->count);
    header->portPipe = static_cast<uint8_t>(target.pipe);
    if (target.groupId == 0 || target.groupId > VLAN_GROUPS) {
        header->ifindex = boundInterface(target);
        header->onBehalfOfVlan = target.vlan != 0 ? 1 : 0;
        return;
    }
    header->groupId = static_cast<uint8_t>(target.groupId);
    if (const aclVlanGroup* group = aclFindAclVlanGrpFromCugID(target.groupId))
        header->groupName = group->name;
}

// What a single entry goes with says nothing of the list but its name and kind.
void fillInMacList(uint8_t* to, const aclTarget& target, const aclSend& send) {
    auto* header = new (to) agentMacListHdr{};
    header->name = send.list->name;
    header->type = send.list->kind;
    header->ifindex = boundInterface(target);
    if (send.block != nullptr) header->block = *send.block;
    if (send.entry != nullptr) return;
    header->lastEntryId = send.list->lastEntryId;
    header->placeholder = send.list->placeholder;
}

template <class Image, class Entry>
uint32_t vAclMapMgrToClient(std::span<uint8_t> room, const listEntry** next) {
    auto* images = reinterpret_cast<Image*>(room.data());
    const size_t fits = room.size() / sizeof(Image);
    uint32_t copied = 0;
    for (; copied < fits && *next != nullptr; copied++, *next = (*next)->next)
        vAclAddEntryToAclList(&images[copied], static_cast<const Entry&>(**next));
    return copied;
}

template <class Image>
uint64_t hashOf(const uint8_t* image) {
    return agentEntryHash(*reinterpret_cast<const Image*>(image));
}

constexpr char L3_SIZE[] = "Total Message size = %d : IPC_BUFFER_SIZE = %d \r\n";
// No blank behind the colon: it is meant.
constexpr char L2_SIZE[] = "Total Message size = %d :IPC_BUFFER_SIZE = %d \r\n";

}  // namespace

constexpr agentForm agentForm4{INTF_V4,
                               sizeof(agentListHdr),
                               sizeof(agentEntry),
                               AGENT_CHUNK_ENTRIES,
                               offsetof(agentListHdr, count),
                               vAclFillInAclList,
                               vAclMapMgrToClient<agentEntry, aclEntry>,
                               hashOf<agentEntry>,
                               DEBUG_ACL_IPC,
                               L3_SIZE};
constexpr agentForm agentForm6{INTF_V6,
                               sizeof(agentListHdr),
                               sizeof(agentEntry6),
                               AGENT_CHUNK_ENTRIES_6,
                               offsetof(agentListHdr, count),
                               vAclFillInAclList,
                               vAclMapMgrToClient<agentEntry6, acl6Entry>,
                               hashOf<agentEntry6>,
                               DEBUG_ACL_IPC,
                               L3_SIZE};
constexpr agentForm agentFormMac{INTF_MAC,
                                 sizeof(agentMacListHdr),
                                 sizeof(agentMacEntry),
                                 AGENT_CHUNK_ENTRIES_MAC,
                                 offsetof(agentMacListHdr, count),
                                 fillInMacList,
                                 vAclMapMgrToClient<agentMacEntry, l2AclEntry>,
                                 hashOf<agentMacEntry>,
                                 DEBUG_ACL_L2IPC,
                                 L2_SIZE};

// Whatever is staged fits one message with its header.
constexpr bool fitsMessage(const agentForm& form) {
    return std::max(form.bodyBytes(form.chunk), AGENT_BODY_MAX_SINGLE) <=
           IPC_BUFFER_SIZE - sizeof(agentHdr);
}
static_assert(fitsMessage(agentForm4) && fitsMessage(agentForm6) && fitsMessage(agentFormMac));

void agentForm::setCount(uint8_t* body, uint32_t count) const {
    be32 word;
    word = count;
    std::memcpy(body + countAt, &word, sizeof word);
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
