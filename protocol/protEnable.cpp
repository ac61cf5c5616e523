// Enable and disable: what the tasks of protocols ask for is kept with the place, and the traps and
// the entries that follow from it go to the cards.
#include <algorithm>
#include <cstring>
#include <new>

#include "common/debug.h"
#include "common/node.h"
#include "include/cliMsg.h"
#include "include/status.h"
#include "platform/api/zekTask.h"
#include "protocol/AclIpAdd.h"
#include "protocol/zekprotocol.h"

namespace {

constexpr uint32_t IF_TYPE_IGNORED = 11;
// While the state root's counter word is above this, OSPF leaves the system lists alone.
constexpr uint32_t OSPF_COUNT_MAX = 2;

bool isV6(const protRecord& record) {
    return record.protocol == PROT_RECORD_V6;
}
bool isEnable(uint32_t type) {
    return type == MT_PROT_FIRST;
}

// --- what is kept --------------------------------------------------------------------------------

// 0: the record is a virtual router's, which says nothing about the protocol itself.
uint32_t aclCheckIfProtocolFlagToBeSetCleared(const protRecord& record) {
    return aclVirtualMac(record) ? 0 : 1;
}

// The record that this one takes the place of, or takes away. RIP's users are counted together.
bool isSame(const protRecord& a, const protRecord& b) {
    return a.id == b.id && (isV6(a) == isV6(b) || a.id == PROT_RIP) &&
           aclVirtualMac(a) == aclVirtualMac(b);
}
aclProtocolUse* find(aclPlaceUse* use, const protRecord& record) {
    if (use == nullptr) return nullptr;
    auto found = std::ranges::find_if(
        use->protocols, [&](const aclProtocolUse& known) { return isSame(known.record, record); });
    return found != use->protocols.end() ? &*found : nullptr;
}

// The flags are those of the protocols that have a record.
void aclAddRemoveProtocolFlag(aclPlaceUse* use) {
    use->protocolFlags = 0;
    for (const aclProtocolUse& known : use->protocols)
        if (aclCheckIfProtocolFlagToBeSetCleared(known.record) != 0)
            use->protocolFlags |= 1u << (&aclProtocolOf(known.record.id) - aclProtocols().data());
}

// Nothing in the message says who asks, so each enable of RIP is a user and each disable one less.
void aclAddDelRipRefCount(uint32_t type, aclPlaceUse* use, uint32_t id) {
    if (id != PROT_RIP) return;
    if (isEnable(type) && use->ripUsers != UINT32_MAX) use->ripUsers++;
    if (!isEnable(type) && use->ripUsers != 0) use->ripUsers--;
}
// 1: others still use RIP, a disable is held back.
uint32_t aclCheckRipRefCount(uint32_t type, const aclPlaceUse& use, uint32_t id) {
    return id == PROT_RIP && !isEnable(type) && use.ripUsers != 0 ? 1 : 0;
}

// Keeps the record; *before: the one in whose place it stands now.
uint32_t keep(const protRecord& record, std::optional<protRecord>* before) {
    aclPlaceUse* use = aclPlaceUseObtain(record.ifindex);
    if (use == nullptr) return ACL_E_ENTRY_MEMORY;  // a system error has been raised
    if (aclProtocolUse* known = find(use, record)) {
        *before = known->record;
        known->record = record;
        return ACL_OK;
    }
    if (use->protocols.size() >= PROT_RECORDS_MAX) {
        aclSysErr(SYSERR_LIST, "Too many protocols on interface %#x", uint32_t{record.ifindex});
        return ACL_E_SYSTEM;
    }
    try {
        use->protocols.push_back({record});
    } catch (const std::bad_alloc&) {
        aclSysErr(SYSERR_MEMORY, "Unable to allocate memory for a protocol on interface %#x",
                  uint32_t{record.ifindex});
        return ACL_E_ENTRY_MEMORY;
    }
    return ACL_OK;
}

// --- the entry -----------------------------------------------------------------------------------

template <class Field>
uint32_t firstWord(const Field& address) {
    be32 word;
    std::memcpy(&word, address, sizeof word);
    return word;
}

// The match: as the record says it, else as the protocol's template.
ipEntryBlock blockOf(uint32_t place, const protRecord& record) {
    ipEntryBlock b = aclGetProtAcclistFromId(aclProtocolOf(record.id).entryTemplate, place);
    const bool said = record.protocol != 0 && !isV6(record);
    if (said) {
        b.protocol = record.protocol;
        b.protoMarker = record.protocol == IP_PROTO_ANY ? 1 : 0;  // it is meant as it stands
    }
    if (said || record.port != 0) aclSetEntryPort(&b, static_cast<uint16_t>(record.port));
    if (b.reserved40 == 0) b.reserved40 = record.option;
    b.dst = firstWord(record.address);
    b.dstMask = firstWord(record.mask);
    return b;
}
// Cards know entries by what they are sent. Ports travel with TCP and UDP only: two blocks that
// differ in nothing else are one entry there, and have to be one here.
ipEntryBlock asSent(ipEntryBlock b) {
    if (b.protocol != IP_PROTO_TCP && b.protocol != IP_PROTO_UDP) b.dstLow = b.dstHigh = 0;
    return b;
}
ip6EntryBlock block6Of(uint32_t place, const protRecord& record) {
    const ipEntryBlock match = blockOf(place, record);
    ip6EntryBlock b{};
    b.protoMarker = match.protoMarker;
    b.action = match.action;
    std::memcpy(b.dst, record.address, sizeof b.dst);
    std::memcpy(b.dstMask, record.mask, sizeof b.dstMask);
    b.reserved76 = match.reserved40;
    b.protocol = match.protocol;
    b.seq = match.seq;
    b.dstOperator = match.dstOperator;
    b.dstLow = match.dstLow;
    b.dstHigh = match.dstHigh;
    return b;
}

bool hasEntry(const protRecord& record) {
    if (record.id == PROT_OSPF && aclNode->finalWord > OSPF_COUNT_MAX) return false;
    return aclProtocolOf(record.id).entry;
}

void sendEntries(const protRecord& record, bool add) {
    aclSystemEntries entries;
    aclProtocolEntries(record.ifindex, {record}, &entries);
    aclSendPlaceEntries(record.ifindex, entries, add);
}

// --- PIM ----------------------------------------------------------------------------------------

struct pimAssertRow {
    uint32_t type;  // of the interface
    const char* what;
    void (*install)(uint32_t ifindex, bool add);  // null: not built yet
};
constexpr pimAssertRow pimAssert[] = {{IF_TYPE_VLAN, "vlan", nullptr},
                                      {IF_TYPE_LAG, "LAG", nullptr},
                                      {IF_TYPE_PORT, "phys", nullptr}};

void installPimAssert(const protRecord& record, bool add) {
    if (record.id != PROT_PIMSM) return;
    const auto* row =
        std::ranges::find(pimAssert, ifindexType(record.ifindex), &pimAssertRow::type);
    if (row == std::end(pimAssert)) row--;
    aclDebug(DEBUG_ACL_PROT, "%s %d : Going to call aclPimAssertEntryInstallWrapper for %s\r\n",
             __func__, __LINE__, row->what);
    if (row->install != nullptr) row->install(record.ifindex, add);
}

// --- the operations ------------------------------------------------------------------------------

uint32_t enable(macTrapMsg* message, const protRecord& record) {
    std::optional<protRecord> before;
    const uint32_t status = keep(record, &before);
    if (status != ACL_OK) return status;
    aclPlaceUse* use = aclPlaceUseFind(record.ifindex);
    aclAddRemoveProtocolFlag(use);
    aclAddDelRipRefCount(MT_PROT_FIRST, use, record.id);
    AclProtEnablePopulateMacAgent(message, record.ifindex, record, true);
    installPimAssert(record, true);
    if (hasEntry(record)) sendEntries(record, true);
    if (!before || std::memcmp(&*before, &record, sizeof record) == 0) return ACL_OK;
    // What it does not ask for any more goes when what it asks for is there.
    macAddress was, now;
    if (!std::ranges::equal(aclSetMacAddrFromProt(*before, &was),
                            aclSetMacAddrFromProt(record, &now)))
        AclProtEnablePopulateMacAgent(message, record.ifindex, *before, false);
    if (hasEntry(*before)) sendEntries(*before, false);
    return ACL_OK;
}

// `record` stands in no place any more.
void withdraw(macTrapMsg* message, const protRecord& record) {
    AclProtEnablePopulateMacAgent(message, record.ifindex, record, false);
    installPimAssert(record, false);
    if (hasEntry(record)) sendEntries(record, false);
}

void disable(macTrapMsg* message, const protRecord& given) {
    aclPlaceUse* use = aclPlaceUseFind(given.ifindex);
    aclProtocolUse* known = find(use, given);
    // One that is not known is left alone, but for a virtual router's address.
    if (known == nullptr && aclCheckIfProtocolFlagToBeSetCleared(given) != 0) return;
    // As it was enabled: that is what the cards have.
    protRecord record = given;
    if (known != nullptr) {
        aclAddDelRipRefCount(MT_PROT_LAST, use, given.id);
        if (aclCheckRipRefCount(MT_PROT_LAST, *use, given.id) != 0) return;
        record = known->record;
        use->protocols.erase(use->protocols.begin() + (known - use->protocols.data()));
        aclAddRemoveProtocolFlag(use);
    }
    withdraw(message, record);
    if (hasEntry(record) && !isV6(given))
        aclDelIpaddInfoToTree(given.ifindex, firstWord(given.address));
}

void AclProtEnableDumpMsg(uint32_t type, const protRecord& record) {
    if ((DEBUG_ACL_MGR & DEBUG_ACL_PROT) == 0) return;
    char name[64];
    (void)ifmIfIndexToLName(record.ifindex, name, sizeof name);
    aclDebug(DEBUG_ACL_PROT, "Got a %s from %s on %s\r\n",
             isEnable(type) ? "ACL_PROT_ENABLE" : "ACL_PROT_DISABLE", aclProtocolOf(record.id).name,
             name);
}

// A bare slot is no interface, and a VLAN that can have no members is none.
bool isPlace(uint32_t ifindex) {
    switch (ifindexType(ifindex)) {
        case IF_TYPE_LAG:
            return true;
        case IF_TYPE_VLAN:
            return ifindexPort(ifindex) < VLAN_BITS;
        default:
            return ifindex >= SLOT_COUNT && ifindexSlot(ifindex) != SLOT_NONE;
    }
}

}  // namespace

uint32_t AclProtEnable(const uint8_t* message, uint32_t type) {
    const bool fromVrrp = type == MT_PROT_VRRP_FIRST || type == MT_PROT_VRRP_LAST;
    protRecord record = fromVrrp ? reinterpret_cast<const protEnableSwpMsg*>(message)->record
                                 : reinterpret_cast<const protEnableMsg*>(message)->record;
    if (ifindexType(record.ifindex) == IF_TYPE_IGNORED) return ACL_OK;
    record.ifindex = aclCanonicalIndex(record.ifindex);
    if (!isPlace(record.ifindex)) return ACL_E_SYSTEM;
    if (fromVrrp) type = type == MT_PROT_VRRP_FIRST ? MT_PROT_FIRST : MT_PROT_LAST;
    AclProtEnableDumpMsg(type, record);
    return AclProtEnableCore(type, &record);
}

uint32_t AclProtEnableCore(uint32_t type, const protRecord* record) {
    if (record == nullptr) {
        aclDebug(DEBUG_ACL_PROT, "ent is NULL\r\n");
        return ACL_OK;
    }
    aclDebug(DEBUG_ACL_PROT,
             "\r\nInside AclProtEnableCore: msgTy %d ifindex %#x id %d isLDA %d prot %d",
             static_cast<int>(type), uint32_t{record->ifindex},
             static_cast<int>(uint32_t{record->id}), record->lda, record->protocol);
    const aclTrapBlock message = aclTrapBlockMake();
    if (message == nullptr) return ACL_E_ENTRY_MEMORY;
    if (isEnable(type)) return enable(message.get(), *record);
    disable(message.get(), *record);
    return ACL_OK;
}

int AclUpdateAclAgentForProtocols(uint32_t code) {
    if (code != CLI_DHCP_TRAP && code != CLI_DHCP_NO_TRAP) return 0;
    return aclTrapDhcp(code == CLI_DHCP_TRAP);
}

void aclProtocolEntries(uint32_t place, const aclProtocolUse& use, aclSystemEntries* out) {
    if (!hasEntry(use.record)) return;
    if (isV6(use.record))
        out->v6.push_back(block6Of(place, use.record));
    else
        out->v4.push_back(asSent(blockOf(place, use.record)));
}

namespace {

void memberEntries(uint32_t place, uint32_t member, bool add) {
    const aclPlaceUse* use = aclPlaceUseFind(place);
    if (use == nullptr) return;
    aclSystemEntries entries;
    for (const aclProtocolUse& protocol : use->protocols)
        aclProtocolEntries(place, protocol, &entries);
    aclSendPlaceEntries(member, entries, add);
}

}  // namespace

void aclProtocolVlanMember(uint32_t vlanIfindex, uint32_t member, bool add) {
    aclTrapVlanMember(vlanIfindex, member, add);
    memberEntries(vlanIfindex, member, add);
}

void aclProtocolLagMember(uint32_t lagIfindex, uint32_t port, bool add) {
    aclTrapLagMember(lagIfindex, port, add);
    memberEntries(lagIfindex, port, add);
}

void aclProtocolInterfaceGone(uint32_t ifindex) {
    aclPlaceUse* use = aclPlaceUseFind(ifindex);
    if (use == nullptr) return;
    macTrapMsg message;
    while (!use->protocols.empty()) {
        const protRecord record = use->protocols.front().record;
        use->protocols.erase(use->protocols.begin());
        aclAddRemoveProtocolFlag(use);
        withdraw(&message, record);
    }
    use->ripUsers = 0;
}
