// Records of the router's addresses: those of each interface in its place's record, and all of them
// in the global list, which record 19 of the line cards keeps.
//
// The tree of the global list has every (address, interface) that the interface manager has told,
// sorted by address: who has an address stands side by side. Its chain lacks what a protocol's
// disable forgot.
#include <algorithm>
#include <cstring>
#include <new>

#include "common/chain.h"
#include "common/debug.h"
#include "common/linecard.h"
#include "common/record.h"
#include "common/tree.h"
#include "include/ipText.h"
#include "platform/api/zekTask.h"
#include "protocol/AclIpAdd.h"

namespace {

struct addressHead {
    zekRadix* byAddress;
    aclIpaddInfo *head, *tail;
};

typedef decltype(aclIpaddInfo::key) addressKey;
static_assert(sizeof(addressKey) == 21, "a key is its bytes");
constexpr uint32_t KEY_BITS = 8 * sizeof(addressKey);
constexpr uint32_t ADDRESS_BITS = 8 * offsetof(addressKey, ifindex);

addressKey keyOf(uint32_t ifindex, const aclAddress& address) {
    addressKey key{};
    key.isV6 = address.isV6 ? 1 : 0;
    std::ranges::copy(address.word, key.word);
    key.ifindex = ifindex;
    return key;
}

struct interfaceName {
    char text[64];
    explicit interfaceName(uint32_t ifindex) {
        (void)ifmIfIndexToLName(ifindex, text, sizeof text);
    }
};

addressHead* headFind() {
    return static_cast<addressHead*>(aclLinecardInfo[LINECARD_CP].ipAddHead);
}
addressHead* headObtain() {
    if (addressHead* head = headFind()) return head;
    aclDebug(DEBUG_ACL_GENERAL, "creating head for slot %d interface %s\r\n",
             static_cast<int>(LINECARD_CP), interfaceName(ifindexControlPort(LINECARD_CP)).text);
    auto* head = recordMake<addressHead>(POOL_INTERFACE);
    if (head == nullptr) return nullptr;
    head->byAddress = zekRadixCreate("ipAddHead", KEY_BITS);
    if (head->byAddress == nullptr) {
        zekMC_M_memBlockVarFree(head);
        return nullptr;
    }
    aclLinecardInfo[LINECARD_CP].ipAddHead = head;
    return head;
}
// With the last address the head goes, too.
void headDropEmpty(addressHead* head) {
    if (zekRadixCount(head->byAddress) != 0) return;
    zekRadixDestroy(head->byAddress);
    zekMC_M_memBlockVarFree(head);
    aclLinecardInfo[LINECARD_CP].ipAddHead = nullptr;
}

// Also what is forgotten.
aclIpaddInfo* recordOf(const addressHead* head, uint32_t ifindex, const aclAddress& address) {
    if (head == nullptr) return nullptr;
    const addressKey key = keyOf(ifindex, address);
    return treeRecord<aclIpaddInfo>(zekRadixGetExact(head->byAddress, &key, KEY_BITS));
}

void list(addressHead* head, aclIpaddInfo* info, bool listed) {
    if (info->listed == listed) return;
    info->listed = listed;
    if (listed)
        chainLink(&head->head, &head->tail, info, static_cast<aclIpaddInfo*>(nullptr));
    else
        chainUnlink(&head->head, &head->tail, info);
}

// Calls fn(ifindex) for the interfaces that have the address, forgotten or not, in order, until it
// returns true; false when it never did.
template <class Fn>
bool anyHolder(const aclAddress& address, Fn&& fn) {
    const addressHead* head = headFind();
    if (head == nullptr) return false;
    addressKey key = keyOf(0, address);
    // The address alone comes before every key that goes on.
    uint32_t bits = ADDRESS_BITS;
    while (const auto* info =
               treeRecord<aclIpaddInfo>(zekRadixGetNext(head->byAddress, &key, bits))) {
        if (std::memcmp(&key, &info->key, ADDRESS_BITS / 8) != 0) return false;
        if (fn(info->ifindex())) return true;
        key = info->key;
        bits = KEY_BITS;
    }
    return false;
}

void appendAddress(std::string& out, const aclAddress& address) {
    if (!address.isV6) return textDotted(out, address.word[0]);
    const addressKey key = keyOf(0, address);
    textAddress6(out, reinterpret_cast<const uint8_t*>(key.word));
}

// The interface's place, made with its debug text when it has none.
aclPlaceUse* placeObtain(uint32_t ifindex) {
    if (aclPlaceUse* use = aclPlaceUseFind(ifindex)) return use;
    const interfaceName name(ifindex);
    if (ifindexType(ifindex) == IF_TYPE_VLAN) {
        if (aclVlanTreeFind(ifindex) == nullptr)
            aclDebug(DEBUG_ACL_GENERAL, "Creating node for %s in Vlan Tree :%s %d\r\n", name.text,
                     __func__, __LINE__);
    } else if (AclIntfTreeFind(ifindex) == nullptr) {
        aclDebug(DEBUG_ACL_GENERAL, "Creating node for %s in Int Tree :%s:%d:%s\r\n", name.text,
                 __func__, __LINE__, ifindexType(ifindex) == IF_TYPE_LAG ? "LAG" : "interface");
    }
    return aclPlaceUseObtain(ifindex);
}

aclAddress* findIn(aclPlaceUse* use, const aclAddress& address) {
    const auto found =
        std::ranges::find_if(use->addresses, [&](const aclAddress& a) { return a.is(address); });
    return found != use->addresses.end() ? &*found : nullptr;
}

}  // namespace

aclAddress aclAddressOf(uint32_t address) {
    aclAddress made;
    made.word[0] = address;
    return made;
}
aclAddress aclAddressOf(const uint8_t address[16], uint32_t prefixLength) {
    be32 words[4];
    std::memcpy(words, address, sizeof words);
    aclAddress made;
    std::ranges::copy(words, made.word.begin());
    made.prefixLength = prefixLength;
    made.isV6 = true;
    return made;
}

// --- one interface's -----------------------------------------------------------------------------

aclAddress* aclAddressFind(uint32_t ifindex, const aclAddress& address) {
    // What the index does not have is on no interface: an add does not walk.
    if (recordOf(headFind(), ifindex, address) == nullptr) return nullptr;
    aclPlaceUse* use = aclPlaceUseFind(ifindex);
    return use != nullptr ? findIn(use, address) : nullptr;
}

aclAddress* aclAddIpaddInfoToTree(uint32_t ifindex, const aclAddress& address) {
    if (aclAddress* known = aclAddressFind(ifindex, address)) {
        (void)aclAddIpAddrToLineCardDbase(ifindex, address);  // it is there already
        known->forgotten = false;
        known->prefixLength = address.prefixLength;
        return known;
    }
    aclPlaceUse* use = placeObtain(ifindex);
    if (use == nullptr) return nullptr;  // has said so
    try {
        use->addresses.push_back(address);
        if (aclAddIpAddrToLineCardDbase(ifindex, address) == 0) {
            if (use->addresses.size() > 1)
                aclDebug(DEBUG_ACL_GENERAL, "its a secondary ipAddress\r\n");
            return &use->addresses.back();
        }
        use->addresses.pop_back();
    } catch (const std::bad_alloc&) {
    }
    aclSysErr(SYSERR_MEMORY, "Unable to allocate memory for an address of %s",
              interfaceName(ifindex).text);
    return nullptr;
}

void aclDelIpaddInfoToTree(uint32_t ifindex, uint32_t address) {
    aclAddress* known = aclAddressFind(ifindex, aclAddressOf(address));
    if (known == nullptr) return;
    known->forgotten = true;
    addressHead* head = headFind();
    list(head, recordOf(head, ifindex, *known), false);
}

void aclAddressDrop(uint32_t ifindex, const aclAddress& address) {
    aclDelIpAddrToLineCardDbase(ifindex, address);
    if (aclPlaceUse* use = aclPlaceUseFind(ifindex))
        std::erase_if(use->addresses, [&](const aclAddress& a) { return a.is(address); });
}

// --- the global list -----------------------------------------------------------------------------

int aclAddIpAddrToLineCardDbase(uint32_t ifindex, const aclAddress& address) {
    addressHead* head = headObtain();
    if (head == nullptr) return -1;
    aclIpaddInfo* info = recordOf(head, ifindex, address);
    if (info == nullptr) {
        info = recordMake<aclIpaddInfo>(POOL_INTERFACE);
        if (info != nullptr) {
            info->key = keyOf(ifindex, address);
            if (zekRadixInsert(head->byAddress, &info->link, &info->key, KEY_BITS) != 0) {
                zekMC_M_memBlockVarFree(info);
                info = nullptr;
            }
        }
        if (info == nullptr) {
            headDropEmpty(head);
            return -1;
        }
    }
    list(head, info, true);
    return 0;
}

void aclDelIpAddrToLineCardDbase(uint32_t ifindex, const aclAddress& address) {
    addressHead* head = headFind();
    aclIpaddInfo* info = recordOf(head, ifindex, address);
    if (info == nullptr) return;
    list(head, info, false);
    zekRadixRemove(head->byAddress, &info->link);
    zekMC_M_memBlockVarFree(info);
    headDropEmpty(head);
}

aclIpaddInfo* aclIpaddInfoFind(uint32_t ifindex, const aclAddress& address) {
    aclIpaddInfo* info = recordOf(headFind(), ifindex, address);
    return info != nullptr && info->listed ? info : nullptr;
}
aclIpaddInfo* aclIpaddInfoFindFirst() {
    const addressHead* head = headFind();
    return head != nullptr ? head->head : nullptr;
}
aclIpaddInfo* aclIpaddInfoFindNext(const aclIpaddInfo* info) {
    return info->next;
}
aclAddress aclAddressOf(const aclIpaddInfo& info) {
    aclAddress made;
    std::ranges::copy(info.key.word, made.word.begin());
    made.isV6 = info.key.isV6 != 0;
    return made;
}

const aclIpaddInfo* aclAddressNext(const aclIpaddInfo* after) {
    const addressHead* head = headFind();
    if (head == nullptr) return nullptr;
    if (after == nullptr) return treeRecord<aclIpaddInfo>(zekRadixGetFirst(head->byAddress));
    addressKey key = after->key;
    key.ifindex = 0xFFFFFFFF;  // behind all of the same address
    return treeRecord<aclIpaddInfo>(zekRadixGetNext(head->byAddress, &key, KEY_BITS));
}

bool aclAddressIsInstalled(const aclAddress& address) {
    return anyHolder(address, [&](uint32_t ifindex) {
        const aclAddress* known = aclAddressFind(ifindex, address);
        return known != nullptr && known->installed;
    });
}

bool aclAddressIsInstalledFor(uint32_t port, const aclAddress& address) {
    return anyHolder(address, [&](uint32_t place) {
        if (ifindexSlot(place) != SLOT_NONE || !aclPortIsBehind(port, place)) return false;
        const aclAddress* known = aclAddressFind(place, address);
        return known != nullptr && known->installed;
    });
}

uint32_t aclAgentSourceAddress() {
    uint32_t onControl = 0, other = 0;
    for (const aclIpaddInfo* i = aclIpaddInfoFindFirst(); i != nullptr;
         i = aclIpaddInfoFindNext(i)) {
        if (i->key.isV6 != 0) continue;
        uint32_t& lowest = ifindexType(i->ifindex()) == IF_TYPE_CP ? onControl : other;
        const uint32_t address = i->key.word[0];
        if (lowest == 0 || address < lowest) lowest = address;
    }
    return onControl != 0 ? onControl : other;
}

void AclSflowAgentIpfill(uint8_t* message) {
    reinterpret_cast<agentAddressMsg*>(message)->address = aclAgentSourceAddress();
}
void AclSnmpTrapAgentIpfill(uint8_t* message) {
    reinterpret_cast<agentAddressMsg*>(message)->address = aclAgentSourceAddress();
}

// --- dumps ---------------------------------------------------------------------------------------

namespace {

void appendLine(std::string& out, uint32_t ifindex, const aclAddress& address, const char* rank) {
    out += interfaceName(ifindex).text;
    out += " ";
    appendAddress(out, address);
    out += rank;
    if (address.forgotten) out += " forgotten";
    out += address.installed ? "\r\n" : " not installed\r\n";
}

}  // namespace

std::string aclPrintIPAddInterfaceDB() {
    std::string out;
    aclForPlaceUses([&out](uint32_t ifindex, const aclPlaceUse& use) {
        const char* rank = " primary";
        for (const aclAddress& address : use.addresses) {
            if (address.forgotten) continue;
            appendLine(out, ifindex, address, rank);
            rank = " secondary";
        }
    });
    return out;
}

std::string aclPrintLinecardDB() {
    std::string out;
    for (const aclIpaddInfo* i = aclIpaddInfoFindFirst(); i != nullptr;
         i = aclIpaddInfoFindNext(i)) {
        appendAddress(out, aclAddressOf(*i));
        out += " ";
        out += interfaceName(i->ifindex()).text;
        out += "\r\n";
    }
    return out;
}

std::string aclDumpIp(const aclAddress& address) {
    std::string out;
    (void)anyHolder(address, [&](uint32_t ifindex) {
        if (const aclAddress* known = aclAddressFind(ifindex, address))
            appendLine(out, ifindex, *known, "");
        return false;
    });
    return out;
}
