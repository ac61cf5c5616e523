// The permit entries of an address: one table of steps for each family, their way to the cards, and
// what a new card is sent.
#include <algorithm>
#include <cstring>
#include <span>

#include "common/debug.h"
#include "common/linecard.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "include/ipText.h"
#include "include/service.h"
#include "ipacl/zekipaccess.h"
#include "protocol/AclIpAdd.h"

namespace {

const listName globalName = listNameMake("Global Acl");
const listName globalName6 = listNameMake("v6 Global Acl");

// What the entries of an address are for: a row for each step of their installation.
enum stepFlag : uint32_t {
    STEP_BELOW_3 = 1,   // while the final word is below 3
    STEP_DHCP = 2,      // while DHCP is trapped
    STEP_OPTION = 4,    // with the option bit, which cards of type 1 do not know
    STEP_LITERAL = 8,   // the protocol number means itself
    STEP_BY_PORTS = 16  // two entries: by destination port, then by source port
};
struct addressStep {
    uint8_t protocol;
    uint16_t port;      // 0: any
    uint8_t icmpType;   // of ICMPv6
    uint32_t kindCode;  // in the entry's owner word
    uint32_t flags;     // stepFlag
};

constexpr uint8_t PIM = 103, IGMP = 2, RSVP = 46, IP_IN_IP = 4, OSPF = 89;
constexpr uint16_t BOOTPS = 67, BGP = 179, MSDP = 639;

constexpr addressStep steps4[] = {
    {IP_PROTO_UDP, BOOTPS, 0, 0x200000, STEP_BELOW_3 | STEP_DHCP},
    {IP_PROTO_TCP, BGP, 0, 4, STEP_BY_PORTS},
    {IP_PROTO_TCP, MSDP, 0, 0x400000, STEP_BELOW_3 | STEP_BY_PORTS},
    {PIM, 0, 0, 128, STEP_BELOW_3},
    {IGMP, 0, 0, 256, STEP_BELOW_3},
    {IP_PROTO_TCP, BGP, 0, 4, STEP_BY_PORTS | STEP_OPTION},
    {RSVP, 0, 0, 46, STEP_BELOW_3},
    // Protocol 4 alone would stand for every one.
    {IP_IN_IP, 0, 0, 4, STEP_BELOW_3 | STEP_LITERAL},
};
// Kind codes as above; a protocol that has none there goes by its number.
constexpr uint8_t NEIGHBOUR_SOLICITATION = 135, NEIGHBOUR_ADVERTISEMENT = 136;
constexpr addressStep steps6[] = {
    {IP_PROTO_TCP, BGP, 0, 4, STEP_BY_PORTS},
    {PIM, 0, 0, 128, STEP_BELOW_3},
    {OSPF, 0, 0, OSPF, STEP_BELOW_3},
    {IP_PROTO_ICMP6, 0, NEIGHBOUR_SOLICITATION, IP_PROTO_ICMP6, 0},
    {IP_PROTO_ICMP6, 0, NEIGHBOUR_ADVERTISEMENT, IP_PROTO_ICMP6, 0},
};
constexpr size_t STEP_ENTRIES = 2;

// The step's condition, as things are now.
bool applies(const addressStep& step) {
    if ((step.flags & STEP_BELOW_3) != 0 && aclNode->finalWord >= 3) return false;
    return (step.flags & STEP_DHCP) == 0 || aclNode->protocol.acl_dhcp != 0;
}

// --- blocks --------------------------------------------------------------------------------------

ipEntryBlock blockTo(const aclAddress& address, const ipEntryBlock&) {
    ipEntryBlock block{};
    block.kind = IP_KIND_EXTENDED;
    block.dst = address.word[0];
    block.dstMask = 0xFFFFFFFF;
    block.precedence = block.tos = FIELD_NOT_GIVEN;
    block.order = ORDER_NOT_GIVEN;
    block.dscp = DSCP_NOT_GIVEN;
    return block;
}
ip6EntryBlock blockTo(const aclAddress& address, const ip6EntryBlock&) {
    ip6EntryBlock block{};
    for (size_t i = 0; i < address.word.size(); i++) {
        be32 word;
        word = address.word[i];
        std::memcpy(block.dst + 4 * i, &word, sizeof word);
    }
    std::memset(block.dstMask, 0xFF, sizeof block.dstMask);
    return block;
}
void setOption(ipEntryBlock* block) {
    block->reserved40 = ENTRY_OPTION_BIT;
}
void setOption(ip6EntryBlock*) {}

// The entries of one step: the first by destination port, the second by source port.
template <class Block>
size_t stepBlocks(const aclAddress& address, const addressStep& step, Block blocks[STEP_ENTRIES]) {
    const size_t count = (step.flags & STEP_BY_PORTS) != 0 ? 2 : 1;
    for (size_t i = 0; i < count; i++) {
        Block& b = blocks[i] = blockTo(address, Block{});
        b.seq = SEQ_NOT_GIVEN;
        b.owner = step.kindCode;
        b.protocol = step.protocol;
        b.protoMarker = (step.flags & STEP_LITERAL) != 0 ? 1u : 0u;
        if ((step.flags & STEP_OPTION) != 0) setOption(&b);
        if (step.icmpType != 0) {
            b.icmp.type = step.icmpType;
            b.icmp.typeGiven = 1;
        }
        if (step.port == 0) continue;
        (i == 0 ? b.dstOperator : b.srcOperator) = PORT_EQ;
        (i == 0 ? b.dstLow : b.srcLow) = step.port;
    }
    return count;
}

template <class Block>
void appendBlocks(const aclAddress& address, std::span<const addressStep> steps,
                  std::vector<Block>* out) {
    for (const addressStep& step : steps) {
        if (!applies(step)) continue;
        Block blocks[STEP_ENTRIES];
        const size_t count = stepBlocks(address, step, blocks);
        out->insert(out->end(), blocks, blocks + count);
    }
}

// --- the fan-out ---------------------------------------------------------------------------------

// Cards of type 1 do not know what the option bit says.
bool withoutOption(const ipEntryBlock& block) {
    return (block.reserved40 & ENTRY_OPTION_BIT) == 0;
}
bool anyEntry(const ipEntryBlock&) {
    return true;
}

// IPv6 entries are for a card as a whole: no interface, no pipe.
aclTarget wholeCard(uint32_t slot) {
    return {0, static_cast<int>(slot), static_cast<uint32_t>(-1)};
}

// In the list, with the control processor's card.
uint32_t change(const ipEntryBlock& block, bool add) {
    return add ? ipSysAddAccessEntry(globalName, &block, 0, IFINDEX_CP)
               : ipSysDelAccessEntry(globalName, &block, 1, IFINDEX_CP);
}
uint32_t change(const ip6EntryBlock& block, bool add) {
    return add ? aclV6SysAddAccessEntry(globalName6, &block, 0, wholeCard(0))
               : aclV6SysDelAccessEntry(globalName6, &block, 1, wholeCard(0));
}

// To the card of a slot, all at once: the entries of one step are alike.
uint32_t sendTo(uint32_t slot, const ipEntryBlock* blocks, uint32_t count, bool add) {
    if (!aclEntriesTakenBy(slot)(blocks[0])) return ACL_OK;
    return (add ? ipSysAddThirteenAccessEntry : ipSysDelThirteenAccessEntry)(
        globalName, blocks, 0, ifindexControlPort(slot), count);
}
uint32_t sendTo(uint32_t slot, const ip6EntryBlock* blocks, uint32_t count, bool add) {
    return (add ? aclV6SysAddThirteenAccessEntry : aclV6SysDelThirteenAccessEntry)(
        globalName6, blocks, 0, wholeCard(slot), count);
}

std::string textOf(const ipEntryBlock& block) {
    std::string text;
    textDotted(text, block.dst);
    return text;
}
std::string textOf(const ip6EntryBlock& block) {
    std::string text;
    textAddress6(text, block.dst);
    return text;
}
template <class Block>
void tellFailure(const Block& block) {
    // The words are the same for a deletion: it is meant.
    aclDebug(DEBUG_ACL_ALL, "Error: Adding Entry to Global Acl for ip address %s \n",
             textOf(block).c_str());
}

template <class Block>
int fanOut(Block* entries, uint32_t count, uint32_t kind, bool add) {
    Block changed[STEP_ENTRIES];
    uint32_t changes = 0, status = ACL_OK;
    for (uint32_t i = 0; i < std::min<size_t>(count, STEP_ENTRIES); i++) {
        entries[i].owner = kind;
        status = change(entries[i], add);
        if (status == ACL_OK) changed[changes++] = entries[i];
        // What stands already, or not any more, is so on the cards too.
        if (status == (add ? ACL_E_ENTRY_EXISTS : ACL_E_NOENTRY)) status = ACL_OK;
        if (status == ACL_OK) continue;
        tellFailure(entries[i]);
        break;
    }
    // Also those of a step that was broken off: the list has them.
    for (uint32_t slot = 1; slot < SLOT_COUNT && changes != 0; slot++)
        if (addressIsKnown(aclLinecardInfo[slot].agentIpAddr) &&
            sendTo(slot, changed, changes, add) != ACL_OK)
            tellFailure(changed[0]);
    return status == ACL_E_ENTRY_MEMORY ? -1 : 0;
}

template <class Block>
int install(const aclAddress& address, std::span<const addressStep> steps, bool add) {
    for (const addressStep& step : steps) {
        // What was added goes even when its condition has gone before.
        if (add && !applies(step)) continue;
        Block blocks[STEP_ENTRIES];
        const size_t count = stepBlocks(address, step, blocks);
        if (AclSendEntriesToAllLinecards(blocks, static_cast<uint32_t>(count), step.kindCode,
                                         add) != 0)
            return -1;
    }
    return 0;
}

constexpr std::span<const addressStep> dhcpStep{steps4, 1};
static_assert(dhcpStep[0].flags == (STEP_BELOW_3 | STEP_DHCP));

}  // namespace

int AclSendEntriesToAllLinecards(ipEntryBlock* entries, uint32_t count, uint32_t kind, bool add) {
    return fanOut(entries, count, kind, add);
}
int AclSendEntriesToAllLinecards(ip6EntryBlock* entries, uint32_t count, uint32_t kind, bool add) {
    return fanOut(entries, count, kind, add);
}

int aclAddressInstall(const aclAddress& address, bool add) {
    return address.isV6 ? install<ip6EntryBlock>(address, steps6, add)
                        : install<ipEntryBlock>(address, steps4, add);
}
int aclAddressInstallDhcp(const aclAddress& address, bool add) {
    return address.isV6 ? 0 : install<ipEntryBlock>(address, dhcpStep, add);
}

void aclAddressEntries(const aclAddress& address, aclSystemEntries* out) {
    if (address.isV6)
        appendBlocks(address, steps6, &out->v6);
    else
        appendBlocks(address, steps4, &out->v4);
}
aclSystemEntries aclAddressDhcpEntries(const aclAddress& address) {
    aclSystemEntries entries;
    if (address.isV6 || aclNode->finalWord >= 3) return entries;
    entries.v4.resize(STEP_ENTRIES);
    entries.v4.resize(stepBlocks(address, dhcpStep[0], entries.v4.data()));
    return entries;
}

// The control processor's own card takes everything.
bool (*aclEntriesTakenBy(uint32_t slot))(const ipEntryBlock& block) {
    return slot != 0 && aclLinecardInfo[slot].type == 1 ? withoutOption : anyEntry;
}

void aclSendGlobalAclToNewLineCard(uint32_t slot) {
    const uint32_t ifindex = ifindexControlPort(slot);
    const aclList* list = ipSysAccessListFind(globalName);
    if (list != nullptr && list->head != nullptr) {
        ipSysSendHeader(globalName, ifindex);
        ipSysSendEntries(globalName, ifindex, aclEntriesTakenBy(slot));
    }
    aclReplayPortEntries(slot);
}
