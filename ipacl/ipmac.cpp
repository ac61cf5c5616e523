// Source guard: the row of IP-MAC lists, and pairs that come and go.
#include "ipacl/zekipmac.h"

#include <algorithm>
#include <cstdio>

#include "common/node.h"
#include "include/ipText.h"
#include "include/policyMsg.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "platform/api/zekTask.h"

namespace {

constexpr uint32_t ETHER_TYPE_IP = 0x0800;
static_assert(sizeof(ipMacEntry) <= 192, "an entry record fills its pool class");

// --- the row -------------------------------------------------------------------------------------

// Pairs are told apart by all that they say, and found without a walk.
uint32_t contentKey(const void* block, uint8_t key[DUP_KEY_MAX]) {
    const auto& b = *static_cast<const ipEntryBlock*>(block);
    std::copy_n(b.src.b, 4, key);
    std::copy_n(b.mac1, 6, key + 4);
    std::copy_n(b.vlan.b, 4, key + 10);
    return 14;
}
bool sameRule(const void* a, const void* b) {
    uint8_t keys[2][DUP_KEY_MAX] = {};
    const uint32_t length = contentKey(a, keys[0]);
    return contentKey(b, keys[1]) == length && std::memcmp(keys[0], keys[1], length) == 0;
}

std::string listText(const aclList& list) {
    std::string out = "Source guard list ";
    (out += listNameView(list.name)) += "\r\n";
    ipMacForEachPair(list, [&out](const ipMacPair& pair, uint32_t sources) {
        (out += ' ') += ipMacText(pair);
        if (sources == IPMAC_SNOOPED) out += " (lease)";
        out += "\r\n";
    });
    return out;
}

constexpr aclFamily makeIpMac() {
    aclFamily family{};
    family.name = "IP-MAC";
    family.af = AF_IPV4;
    family.tree = &aclTrees::ipMacAcl_tree;
    family.entryBytes = sizeof(ipMacEntry);
    family.blockBytes = sizeof(ipEntryBlock);
    family.seqAt = offsetof(ipEntryBlock, seq);
    family.seqMax = SEQ_MAX;
    family.sameRule = sameRule;
    family.contentKey = contentKey;
    family.agentIds[INTF_IN] = {MT_IPMAC_ACL_NEWLIST, MT_IPMAC_ACL_ADDENTRIES,
                                MT_IPMAC_ACL_DELENTRIES, MT_IPMAC_ACL_DELIST};
    family.copies = mgmtCopies::none;
    family.triggerType = MT_ACL_TRIGGER;
    family.place = INTF_IPMAC;
    family.onVlans = true;
    // The lists are not configured, only pairs are: see writePair.
    family.writeHeader = [](const aclList&, uint32_t) {};
    family.writeEntry = [](const aclList&, const listEntry&, uint32_t) {};
    family.showText = listText;
    return family;
}

}  // namespace

constexpr aclFamily ipMacFamily = makeIpMac();

namespace {

// --- records -------------------------------------------------------------------------------------

ipEntryBlock blockOf(const ipMacPair& pair) {
    ipEntryBlock block{};
    block.kind = IP_KIND_EXTENDED;
    block.action = IP_PERMIT;
    block.src = pair.address;
    block.srcMask = 0xFFFFFFFF;
    block.precedence = block.tos = FIELD_NOT_GIVEN;
    block.order = ORDER_NOT_GIVEN;
    block.dscp = DSCP_NOT_GIVEN;
    block.seq = SEQ_NOT_GIVEN;
    block.etherType = ETHER_TYPE_IP;
    std::ranges::copy(pair.mac, block.mac1);
    std::ranges::fill(block.mac1Mask, uint8_t{0xFF});
    block.vlan = pair.vlan;
    return block;
}

aclList* listOn(const aclIntf* intf) {
    return intf != nullptr ? intf->lists[INTF_IPMAC][INTF_IN] : nullptr;
}
ipMacBinding* bindingOn(const aclIntf& intf) {
    return static_cast<ipMacBinding*>(aclInterfaceBinding(listOn(&intf), intf.ifindex, INTF_IN));
}
ipMacEntry* findPair(const aclList* list, const ipEntryBlock& block) {
    return list != nullptr ? static_cast<ipMacEntry*>(aclDupFindContent(list, &block)) : nullptr;
}

listName nameOf(uint32_t ifindex) {
    char text[64];
    (void)ifmIfIndexToLName(ifindex, text, sizeof text);
    std::string name = std::string("sgAcl_") + text;
    std::ranges::replace(name, ' ', '-');  // a name is one word
    return listNameMake(name);
}

// Numbers only order the chain. Leases come and go for ever, so they are taken in turn and over
// again, and those that are still in use are passed over.
uint32_t chooseSeq(const aclList& list, uint32_t* last) {
    be32 seq;
    do {
        seq = *last = *last < SEQ_MAX ? *last + 1 : 1;
    } while (aclDupFindSeq(&list, seq) != nullptr);
    return seq;
}

// --- lines ---------------------------------------------------------------------------------------

// A pair's line stands under the bytes of the pair.
void writePair(aclIntf* intf, const ipMacPair& pair, bool remove, bool last) {
    auto again = cfgCommand<cliSourceGuardReq>(CLI_SOURCE_GUARD_ADD, listName{});
    again.ifindex = intf->ifindex;
    again.address = pair.address;
    std::ranges::copy(pair.mac, again.mac);
    again.vlan = pair.vlan;
    listName place{};
    std::memcpy(place.text, &again.address, sizeof again - offsetof(cliSourceGuardReq, address));
    const cfgIntfLine line{intf, INTF_IPMAC, INTF_IN, place, last};
    const std::string text = "ip source-guard " + ipMacText(pair);
    if (remove)
        cfgIntfRemove(line, "no " + text);
    else
        cfgIntfWrite(line, " " + text, cfgRequestOf(again));
}

// --- pairs come ----------------------------------------------------------------------------------

uint32_t refusal(uint32_t ifindex, const ipMacPair& pair) {
    const uint32_t type = ifindexType(ifindex);
    if (ifindex < SLOT_COUNT ||
        (type != IF_TYPE_PORT && type != IF_TYPE_LAG && type != IF_TYPE_VLAN))
        return ACL_E_GUARD_INTF;
    if (aclLagOfPort(ifindex) != 0 && zekCfgRestoring(aclNode->config.cfgDb) == nullptr)
        return ACL_E_LAG_MEMBER;
    if (pair.vlan >= VLAN_BITS - 1) return ACL_E_VLAN_RANGE;
    // A host's own addresses: not 0, no groups.
    const bool isHost = pair.address != 0 && pair.address < 0xE0000000;
    const bool isStation = (pair.mac[0] & 1) == 0 &&
                           std::ranges::any_of(pair.mac, [](uint8_t byte) { return byte != 0; });
    if (!isHost || !isStation) return ACL_E_GUARD_PAIR;
    const aclIntf* intf = AclIntfTreeFind(ifindex);
    // Both would decide what may come in.
    return intf != nullptr && intf->lists[INTF_V4][INTF_IN] != nullptr ? uint32_t{ACL_E_CLASH}
                                                                       : uint32_t{ACL_OK};
}

// The list of an interface that had none, with its first pair: nothing was sent yet, as a card that
// gets a list without pairs lets nobody send.
uint32_t startList(uint32_t ifindex, ipEntryBlock* block) {
    aclIntf* intf = aclIntfObtain(ifindex, INTF_IN, nullptr);
    if (intf == nullptr) return ACL_E_MEMORY;
    uint32_t status = ACL_OK;
    const listName name = nameOf(ifindex);
    aclList* list = aclListCreate(ipMacFamily, name, IP_KIND_EXTENDED, 0, &status);
    if (list == nullptr) return status;
    block->seq = 1u;
    status = aclListAdd(ipMacFamily, name, block, {});
    auto* binding = status == ACL_OK
                        ? static_cast<ipMacBinding*>(clientAdd(
                              list, {CLIENT_INTERFACE, ifindex, 0, INTF_IN}, sizeof(ipMacBinding)))
                        : nullptr;
    if (binding == nullptr) {
        (void)aclListDelete(ipMacFamily, name, IP_KIND_EXTENDED);
        return status != ACL_OK ? status : uint32_t{ACL_E_MEMORY};
    }
    binding->lastSeq = 1;
    intf->lists[INTF_IPMAC][INTF_IN] = list;
    (void)aclSendToInterface(list, {aclEvent::listAdded}, {ifindex, INTF_IN}, {0, &binding->block});
    return ACL_OK;
}

uint32_t addPair(uint32_t given, const ipMacPair& pair, ipMacSource source) {
    const uint32_t ifindex = aclCanonicalIndex(given);
    ipEntryBlock block = blockOf(pair);
    uint32_t status = refusal(ifindex, pair);
    if (status != ACL_OK) return status;
    aclIntf* intf = AclIntfTreeFind(ifindex);
    ipMacEntry* entry = findPair(listOn(intf), block);
    if (entry != nullptr && (entry->sources & source) != 0) return ACL_E_ENTRY_EXISTS;
    if (entry == nullptr) {
        if (const aclList* list = listOn(intf)) {
            block.seq = chooseSeq(*list, &bindingOn(*intf)->lastSeq);
            status = aclListAdd(ipMacFamily, list->name, &block, {});
        } else {
            status = startList(ifindex, &block);
            intf = AclIntfTreeFind(ifindex);
        }
        if (status != ACL_OK) return status;
        entry = findPair(listOn(intf), block);
    }
    entry->sources |= source;
    if (source != IPMAC_CONFIGURED) return ACL_OK;
    bindingOn(*intf)->configured++;
    writePair(intf, pair, false, false);
    return ACL_OK;
}

// --- and go --------------------------------------------------------------------------------------

// The cards lose the whole list at once: without pairs it would let nobody send.
void endList(aclIntf* intf) {
    aclList* list = listOn(intf);
    aclBinding* binding = bindingOn(*intf);
    (void)aclListDelete(ipMacFamily, list->name, IP_KIND_EXTENDED);
    intf->lists[INTF_IPMAC][INTF_IN] = nullptr;
    aclSendLagListToPort(*intf, INTF_V4, INTF_IN);
    clientDrop(list, binding);
    aclListDrop(list);
}

uint32_t delPair(uint32_t given, const ipMacPair& pair, ipMacSource source) {
    aclIntf* intf = AclIntfTreeFind(aclCanonicalIndex(given));
    const ipEntryBlock block = blockOf(pair);
    ipMacEntry* entry = findPair(listOn(intf), block);
    if (entry == nullptr || (entry->sources & source) == 0) return ACL_E_NOENTRY;
    entry->sources &= ~uint32_t{source};
    if (source == IPMAC_CONFIGURED)
        writePair(intf, pair, true, --bindingOn(*intf)->configured == 0);
    if (entry->sources != 0) return ACL_OK;
    if (const aclList* list = listOn(intf); list->count > 1)
        return aclListDel(ipMacFamily, list->name, &block, true, true);
    endList(intf);
    return ACL_OK;
}

ipMacPair pairOf(uint32_t address, const uint8_t mac[6], uint32_t vlan) {
    ipMacPair pair{address, {}, static_cast<uint16_t>(std::min<uint32_t>(vlan, UINT16_MAX))};
    std::copy_n(mac, sizeof pair.mac, pair.mac);
    return pair;
}

}  // namespace

uint32_t ipSourceGuardAdd(uint32_t ifindex, const ipMacPair& pair) {
    return addPair(ifindex, pair, IPMAC_CONFIGURED);
}
uint32_t ipSourceGuardDel(uint32_t ifindex, const ipMacPair& pair) {
    return delPair(ifindex, pair, IPMAC_CONFIGURED);
}
uint32_t aclMgrIpMacAclAdd(uint32_t ifindex, uint32_t address, const uint8_t mac[6],
                           uint32_t vlan) {
    return addPair(ifindex, pairOf(address, mac, vlan), IPMAC_SNOOPED);
}
uint32_t aclMgrIpMacAclDel(uint32_t ifindex, uint32_t address, const uint8_t mac[6],
                           uint32_t vlan) {
    return delPair(ifindex, pairOf(address, mac, vlan), IPMAC_SNOOPED);
}

void aclMgrIpMacAclDropAll(uint32_t ifindex) {
    const aclIntf* intf = AclIntfTreeFind(ifindex);
    while (const aclList* list = listOn(intf)) {
        const auto& entry = static_cast<const ipMacEntry&>(*static_cast<aclEntry*>(list->head));
        const ipMacPair pair = ipMacPairOf(entry);
        const auto source = static_cast<ipMacSource>(entry.sources & -entry.sources);
        if (delPair(ifindex, pair, source) != ACL_OK) return;
    }
}

bool aclMgrIpMacAclIsPresentOnIntf(uint32_t ifindex) {
    return listOn(AclIntfTreeFind(ifindex)) != nullptr;
}

ipMacPair ipMacPairOf(const ipMacEntry& entry) {
    return pairOf(entry.block.src, entry.block.mac1, entry.block.vlan);
}

std::string ipMacText(const ipMacPair& pair) {
    std::string text;
    textDotted(text, pair.address);
    char mac[20];
    std::snprintf(mac, sizeof mac, " %02x:%02x:%02x:%02x:%02x:%02x", pair.mac[0], pair.mac[1],
                  pair.mac[2], pair.mac[3], pair.mac[4], pair.mac[5]);
    text += mac;
    if (pair.vlan != 0) (text += " vlan ") += std::to_string(pair.vlan);
    return text;
}

uint32_t aclShowSourceGuard(const listName& name, void** buffer, uint32_t* size) {
    return aclListShow(ipMacFamily, name, buffer, size);
}
uint32_t aclShowSourceGuardAll(const listName& cursor, void** buffer, uint32_t* size) {
    return aclListShowNext(ipMacFamily, cursor, buffer, size);
}
