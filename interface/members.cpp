// Interface records and the members of LAGs and VLANs: see interface/interface.h.
#include <algorithm>
#include <new>

#include "common/debug.h"
#include "common/node.h"
#include "common/record.h"
#include "common/tree.h"
#include "interface/interface.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"

namespace {

// The block class of interface records; the records stay below it so that the class can be sized
// for the number of interfaces.
constexpr size_t INTF_BLOCK = 176;
static_assert(sizeof(aclIntf) <= INTF_BLOCK);

// Records begin with their tree node, and their key is their index.
be32 keyOf(uint32_t ifindex) {
    be32 key;
    key = ifindex;
    return key;
}
template <class Record>
Record* find(const zekRadix* tree, uint32_t ifindex) {
    be32 key = keyOf(ifindex);
    return treeRecord<Record>(zekRadixGetExact(tree, &key, INTF_KEY_BITS));
}
template <class Record>
Record* findFirst(const zekRadix* tree) {
    return treeRecord<Record>(zekRadixGetFirst(tree));
}
template <class Record>
Record* findNext(const zekRadix* tree, uint32_t ifindex) {
    be32 key = keyOf(ifindex);
    return treeRecord<Record>(zekRadixGetNext(tree, &key, INTF_KEY_BITS));
}
template <class Record>
Record* make(poolTag pool, size_t size, uint32_t ifindex) {
    void* block = zekMC_M_memBlockVarAlloc(pool, ZEK_MEM_FLAGS, size);
    if (block == nullptr) return nullptr;
    auto* record = new (block) Record{};
    record->key = keyOf(ifindex);
    record->ifindex = ifindex;
    return record;
}
template <class Record>
bool insert(zekRadix* tree, Record* record) {
    return zekRadixInsert(tree, &record->link, &record->key, INTF_KEY_BITS) == 0;
}
template <class Record>
void release(Record* record) {
    record->~Record();
    zekMC_M_memBlockVarFree(record);
}

void noMemory(const char* what, uint32_t ifindex) {
    aclSysErr(SYSERR_MEMORY, "Unable to allocate memory for %s %#x", what, ifindex);
}

}  // namespace

vlanBits* aclBitMapCreateArray() {
    void* block = zekMC_M_memBlockVarAlloc(POOL_INTERFACE, ZEK_MEM_FLAGS, sizeof(vlanBits));
    return block != nullptr ? new (block) vlanBits{} : nullptr;
}
void aclBitMapFree(vlanBits* bits) {
    if (bits != nullptr) zekMC_M_memBlockVarFree(bits);
}

// --- interfaces ----------------------------------------------------------------------------------

uint32_t aclCanonicalIndex(uint32_t ifindex) {
    switch (ifindexType(ifindex)) {
        case IF_TYPE_LAG:
        case IF_TYPE_VLAN:
            return ifindexMake(ifindexType(ifindex), ifindexPort(ifindex));
        case IF_TYPE_CP:
            return IFINDEX_CP_BIND | ifindexPort(ifindex);
    }
    ifindex &= 0x7FFFFFFF;
    char name[64];
    uint32_t named = ifindex;
    const bool known =
        ifmIfIndexToLName(ifindex, name, sizeof name) == 0 && ifmLNameToIfIndex(name, &named) == 0;
    return known ? named : ifindex;
}

aclIntf* AclIntfTreeFind(uint32_t ifindex) {
    return find<aclIntf>(aclNode->trees.acl_intf_tree, ifindex);
}
aclIntf* AclIntfTreeFindFirst() {
    return findFirst<aclIntf>(aclNode->trees.acl_intf_tree);
}
aclIntf* AclIntfTreeFindNext(uint32_t ifindex) {
    return findNext<aclIntf>(aclNode->trees.acl_intf_tree, ifindex);
}

aclIntf* aclIntfObtain(uint32_t ifindex, uint32_t direction, intfRefused* refused) {
    intfRefused ignored;
    if (refused == nullptr) refused = &ignored;
    *refused = intfRefused::nothing;
    if (aclIntf* intf = AclIntfTreeFind(ifindex)) return intf;
    aclIntf* intf = make<aclIntf>(POOL_INTERFACE, INTF_BLOCK, ifindex);
    if (intf == nullptr) {
        *refused = intfRefused::record;
        return nullptr;
    }
    intf->isLag = ifindexType(ifindex) == IF_TYPE_LAG ? 1 : 0;
    intf->direction = direction;
    intf->vlans = aclBitMapCreateArray();
    if (intf->vlans == nullptr || !insert(aclNode->trees.acl_intf_tree, intf)) {
        *refused = intf->vlans == nullptr ? intfRefused::bitmap : intfRefused::record;
        aclBitMapFree(intf->vlans);
        release(intf);
        return nullptr;
    }
    return intf;
}

namespace {

aclPlaceUse* obtain(std::unique_ptr<aclPlaceUse>* use, uint32_t ifindex) {
    if (*use == nullptr) use->reset(new (std::nothrow) aclPlaceUse);
    if (*use == nullptr) noMemory("what is on", ifindex);
    return use->get();
}

}  // namespace

aclPlaceUse* aclPlaceUseFind(uint32_t ifindex) {
    if (ifindexType(ifindex) == IF_TYPE_VLAN) {
        const aclVlan* vlan = aclVlanTreeFind(ifindex);
        return vlan != nullptr ? vlan->use.get() : nullptr;
    }
    const aclIntf* intf = AclIntfTreeFind(ifindex);
    return intf != nullptr ? intf->use.get() : nullptr;
}

aclPlaceUse* aclPlaceUseObtain(uint32_t ifindex) {
    if (ifindexType(ifindex) == IF_TYPE_VLAN) {
        aclVlan* vlan = aclVlanObtain(ifindex);
        return vlan != nullptr ? obtain(&vlan->use, ifindex) : nullptr;
    }
    aclIntf* intf = aclIntfObtain(ifindex, 0, nullptr);
    if (intf == nullptr) noMemory("interface", ifindex);
    return intf != nullptr ? obtain(&intf->use, ifindex) : nullptr;
}

void aclIntfDrop(aclIntf* intf) {
    zekRadixRemove(aclNode->trees.acl_intf_tree, &intf->link);
    aclBitMapFree(intf->vlans);
    release(intf);
}

// --- LAGs ----------------------------------------------------------------------------------------

aclIntf* aclAddLagIntfPtToTree(uint32_t lagIfindex) {
    return ifindexType(lagIfindex) == IF_TYPE_LAG ? aclIntfObtain(lagIfindex, 0, nullptr) : nullptr;
}

int aclLagMemberAdd(uint32_t lagIfindex, uint32_t port) {
    if (ifindexType(lagIfindex) != IF_TYPE_LAG || port < SLOT_COUNT ||
        ifindexSlot(port) == SLOT_NONE)
        return -1;
    aclIntf* lag = aclAddLagIntfPtToTree(lagIfindex);
    aclIntf* intf = lag != nullptr ? aclIntfObtain(port, 0, nullptr) : nullptr;
    try {
        if (intf != nullptr) {
            if (intf->lag != 0) return intf->lag == lagIfindex ? 1 : -1;
            lag->lagMembers.push_back(port);
            intf->lag = lagIfindex;
            return 0;
        }
    } catch (const std::bad_alloc&) {
    }
    noMemory("a member of LAG", lagIfindex);
    return -1;
}

int aclLagMemberRemove(uint32_t lagIfindex, uint32_t port) {
    aclIntf* lag = AclIntfTreeFind(lagIfindex);
    if (lag == nullptr || std::erase(lag->lagMembers, port) == 0) return 1;
    if (aclIntf* intf = AclIntfTreeFind(port)) intf->lag = 0;
    return 0;
}

uint32_t aclLagOfPort(uint32_t port) {
    const aclIntf* intf = AclIntfTreeFind(port);
    return intf != nullptr ? intf->lag : 0;
}

bool aclPortHasOwnList(uint32_t port, uint32_t family, uint32_t direction) {
    const aclIntf* intf = AclIntfTreeFind(port);
    if (intf == nullptr) return false;
    return intf->lists[family][direction] != nullptr ||
           (family == INTF_V4 && direction == INTF_IN &&
            intf->lists[INTF_IPMAC][INTF_IN] != nullptr);
}

const uint32_t* aclLagMembers(uint32_t lagIfindex, uint32_t* count) {
    const aclIntf* lag = AclIntfTreeFind(lagIfindex);
    *count = lag != nullptr ? static_cast<uint32_t>(lag->lagMembers.size()) : 0;
    return *count != 0 ? lag->lagMembers.data() : nullptr;
}

// --- VLANs ---------------------------------------------------------------------------------------

aclVlan* aclVlanTreeFind(uint32_t vlanIfindex) {
    return find<aclVlan>(aclNode->trees.vlan_intf_tree, vlanIfindex);
}
aclVlan* aclVlanTreeFindFirst() {
    return findFirst<aclVlan>(aclNode->trees.vlan_intf_tree);
}
aclVlan* aclVlanTreeFindNext(uint32_t vlanIfindex) {
    return findNext<aclVlan>(aclNode->trees.vlan_intf_tree, vlanIfindex);
}

aclVlan* aclVlanObtain(uint32_t vlanIfindex) {
    if (ifindexType(vlanIfindex) != IF_TYPE_VLAN) return nullptr;
    if (aclVlan* vlan = aclVlanTreeFind(vlanIfindex)) return vlan;
    aclVlan* vlan = make<aclVlan>(POOL_VLAN, sizeof(aclVlan), vlanIfindex);
    if (vlan != nullptr) {
        vlan->members = zekRadixCreate("vlanInfoTree", INTF_KEY_BITS);
        if (vlan->members != nullptr && insert(aclNode->trees.vlan_intf_tree, vlan)) return vlan;
        zekRadixDestroy(vlan->members);
        release(vlan);
    }
    noMemory("VLAN", vlanIfindex);
    return nullptr;
}

void aclVlanDrop(aclVlan* vlan) {
    while (aclVlanMember* member = aclVlanInfoTreeFindFirst(vlan))
        (void)aclVlanMemberRemove(vlan->ifindex, member->ifindex);
    zekRadixDestroy(vlan->members);
    zekRadixRemove(aclNode->trees.vlan_intf_tree, &vlan->link);
    release(vlan);
}

aclVlanMember* aclVlanInfoTreeFind(const aclVlan* vlan, uint32_t member) {
    return find<aclVlanMember>(vlan->members, member);
}
aclVlanMember* aclVlanInfoTreeFindFirst(const aclVlan* vlan) {
    return findFirst<aclVlanMember>(vlan->members);
}
aclVlanMember* aclVlanInfoTreeFindNext(const aclVlan* vlan, uint32_t member) {
    return findNext<aclVlanMember>(vlan->members, member);
}

int aclVlanMemberAdd(uint32_t vlanIfindex, uint32_t member) {
    if (ifindexType(member) == IF_TYPE_VLAN || member < SLOT_COUNT ||
        ifindexPort(vlanIfindex) >= VLAN_BITS)
        return -1;
    aclVlan* vlan = aclVlanObtain(vlanIfindex);
    if (vlan == nullptr) return -1;
    if (aclVlanInfoTreeFind(vlan, member) != nullptr) return 1;
    aclIntf* intf = aclIntfObtain(member, 0, nullptr);
    aclVlanMember* record =
        intf != nullptr ? make<aclVlanMember>(POOL_VLAN, sizeof(aclVlanMember), member) : nullptr;
    if (record != nullptr) {
        record->vlanIfindex = vlanIfindex;
        record->mcastId = vlan->mcastId;
        if (insert(vlan->members, record)) {
            vlanBitSet(intf->vlans, ifindexPort(vlanIfindex), true);
            return 0;
        }
        release(record);
    }
    noMemory("a member of VLAN", vlanIfindex);
    return -1;
}

int aclVlanMemberRemove(uint32_t vlanIfindex, uint32_t member) {
    aclVlan* vlan = aclVlanTreeFind(vlanIfindex);
    aclVlanMember* record = vlan != nullptr ? aclVlanInfoTreeFind(vlan, member) : nullptr;
    if (record == nullptr) return 1;
    if (aclIntf* intf = AclIntfTreeFind(member))
        vlanBitSet(intf->vlans, ifindexPort(vlanIfindex), false);
    zekRadixRemove(vlan->members, &record->link);
    release(record);
    return 0;
}
