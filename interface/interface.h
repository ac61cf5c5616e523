// Interface and VLAN records: what is bound where, and who is a member of what.
//
//   aclNode->trees.acl_intf_tree  --> aclIntf   one for every port, LAG or VLAN that ever had a
//   list bound aclNode->trees.vlan_intf_tree --> aclVlan --members--> aclVlanMember   ports and
//   LAGs
//
// Trees are keyed by the interface index (4 bytes, big-endian: in numerical order). The lists that
// an interface record points at belong to their stores. The caller holds acl_rwlock. Functions
// stand in interface/members.cpp.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/lists/list.h"
#include "include/ifindex.h"
#include "include/protMsg.h"
#include "include/wire.h"
#include "platform/api/zekRadix.h"

constexpr uint32_t INTF_KEY_BITS = 32;
constexpr uint32_t VLAN_BITS = 4096;  // ids 0 to 4095

// The last has the pairs of source guard, which are told to cards as IPv4 lists are.
enum intfFamily : uint32_t { INTF_V4 = 0, INTF_V6 = 1, INTF_MAC = 2, INTF_IPMAC = 3 };
constexpr uint32_t INTF_FAMILIES = 4;
enum intfDirection : uint32_t { INTF_IN = 0, INTF_OUT = 1 };
enum intfFlag : uint32_t { INTF_UDP_HELPER = 0x800000 };
// Set while the configuration has a line for this place of the record: the interface's block of
// lines begins with the first of them and goes with the last.
constexpr uint32_t intfCfgLine(uint32_t family, uint32_t direction) {
    return 1u << (2 * family + direction);
}
constexpr uint32_t INTF_CFG_LINES = (1u << 2 * INTF_FAMILIES) - 1;

// Bit arrays of VLAN ids. Null when there is no memory.
struct vlanBits {
    uint64_t word[VLAN_BITS / 64];
};
vlanBits* aclBitMapCreateArray();
void aclBitMapFree(vlanBits* bits);
inline void vlanBitSet(vlanBits* bits, uint32_t vlan, bool on) {
    uint64_t bit = uint64_t{1} << (vlan % 64);
    uint64_t& word = bits->word[(vlan % VLAN_BITS) / 64];
    word = on ? word | bit : word & ~bit;
}
inline bool vlanBitTest(const vlanBits* bits, uint32_t vlan) {
    return (bits->word[(vlan % VLAN_BITS) / 64] >> (vlan % 64) & 1) != 0;
}
inline bool vlanBitsMeet(const vlanBits& a, const vlanBits& b) {
    for (size_t i = 0; i < std::size(a.word); i++)
        if ((a.word[i] & b.word[i]) != 0) return true;
    return false;
}

// --- what the router itself does on an interface -------------------------------------------------

// An address of the router. An IPv4 address is the first word, the others are 0.
struct aclAddress {
    std::array<uint32_t, 4> word{};
    uint32_t prefixLength = 0;  // of its mask; of IPv4 for shows only
    bool isV6 = false;
    bool installed = false;  // its entries are meant to be on the cards
    // A protocol's disable took it out of the records. Its entries stay until the interface manager
    // takes the address away.
    bool forgotten = false;
    bool is(const aclAddress& other) const { return word == other.word && isV6 == other.isV6; }
};
// A protocol that its task has enabled, as it was asked for.
struct aclProtocolUse {
    protRecord record;
};
// Of a port, a LAG or a VLAN; made on first use.
struct aclPlaceUse {
    std::vector<aclAddress> addresses;  // in the order added; the first is the primary one
    std::vector<aclProtocolUse> protocols;
    uint32_t protocolFlags = 0;  // a bit for each row of the protocols' table
    uint32_t ripUsers = 0;
    uint32_t mode = 0;  // the port's, as the interface manager calls it
};

struct aclIntf {
    zekRadixNode link;
    be32 key;
    uint32_t ifindex;
    aclList* lists[INTF_FAMILIES][2];  // [intfFamily][intfDirection]; null: nothing is bound
    std::vector<uint32_t> lagMembers;  // ports, in the order in which they joined
    vlanBits* vlans;                   // the VLANs that the interface is a member of
    uint32_t isLag;
    uint32_t direction;                // of the binding that made the record
    uint32_t flags;                    // intfFlag
    uint32_t lag;                      // that the port is a member of, or 0
    uint32_t mcastId;                  // of a LAG
    std::unique_ptr<aclPlaceUse> use;  // null: nothing
};

// The one index of an interface. Bits that its type does not use would make other ones of it, and a
// port is known by its user's number and by the card's: what has a name is the index that the name
// stands for. An interface that the chassis does not have (yet) keeps its index.
uint32_t aclCanonicalIndex(uint32_t ifindex);

aclIntf* AclIntfTreeFind(uint32_t ifindex);
aclIntf* AclIntfTreeFindFirst();
// The record with the smallest index above this one, which need not exist itself.
aclIntf* AclIntfTreeFindNext(uint32_t ifindex);
// Which allocation was refused.
enum class intfRefused { nothing, record, bitmap };
// Finds the record or makes an empty one; a LAG's is marked as such. Null when there is no memory:
// nothing has changed then, and *refused (may be null) says what for.
aclIntf* aclIntfObtain(uint32_t ifindex, uint32_t direction, intfRefused* refused);
// Takes the record out of the tree and frees it.
void aclIntfDrop(aclIntf* intf);

// What the router does on an interface: the VLAN's record or the interface's. Null: nothing.
aclPlaceUse* aclPlaceUseFind(uint32_t ifindex);
// Makes it, and the record, when there is none; null without memory (a system error is raised).
aclPlaceUse* aclPlaceUseObtain(uint32_t ifindex);
// Calls fn(ifindex, use) for every one of them: interfaces in the order of their indexes, then
// VLANs.
template <class Fn>
void aclForPlaceUses(Fn&& fn);

// --- LAG members ---

// Creates the LAG's record when there is none. Null as aclIntfObtain, and for what is no LAG.
aclIntf* aclAddLagIntfPtToTree(uint32_t lagIfindex);
// 0; 1 when the port is a member already (not) any more; -1 without memory (a system error is
// raised) or when either index is not what it should be: a LAG is never a member of a LAG.
int aclLagMemberAdd(uint32_t lagIfindex, uint32_t port);
int aclLagMemberRemove(uint32_t lagIfindex, uint32_t port);
// The LAG that the port is a member of, or 0.
uint32_t aclLagOfPort(uint32_t port);

// A card has one list for a port, family and direction, so a port with a list of its own there (or,
// in the place of an ingress IPv4 list, with source guard) does not take that of its LAG.
bool aclPortHasOwnList(uint32_t port, uint32_t family, uint32_t direction);

// The member ports of a LAG in the order in which they joined, *count of them; null and 0 when the
// LAG is not known or empty. Good until the lock is released.
const uint32_t* aclLagMembers(uint32_t lagIfindex, uint32_t* count);
// --- VLAN members ---

struct aclVlanMember {
    zekRadixNode link;
    be32 key;
    uint32_t ifindex;  // a port or a LAG
    uint32_t vlanIfindex;
    uint32_t mcastId;
};

struct aclVlan {
    zekRadixNode link;
    be32 key;
    uint32_t ifindex;
    zekRadix* members;  // "vlanInfoTree"
    uint32_t state;
    uint32_t mcastId;
    std::unique_ptr<aclPlaceUse> use;  // null: nothing
};

aclVlan* aclVlanTreeFind(uint32_t vlanIfindex);
aclVlan* aclVlanTreeFindFirst();
aclVlan* aclVlanTreeFindNext(uint32_t vlanIfindex);
// Finds the record or makes one without members. Null without memory (a system error is raised) and
// for what is no VLAN. The record stays when its last member leaves.
aclVlan* aclVlanObtain(uint32_t vlanIfindex);
// Frees the record and its members.
void aclVlanDrop(aclVlan* vlan);

aclVlanMember* aclVlanInfoTreeFind(const aclVlan* vlan, uint32_t member);
aclVlanMember* aclVlanInfoTreeFindFirst(const aclVlan* vlan);
aclVlanMember* aclVlanInfoTreeFindNext(const aclVlan* vlan, uint32_t member);
// Results as aclLagMemberAdd; adding creates the VLAN's record.
int aclVlanMemberAdd(uint32_t vlanIfindex, uint32_t member);
int aclVlanMemberRemove(uint32_t vlanIfindex, uint32_t member);

// --- the ports behind an interface ---

// Calls fn(port) for a LAG's members from the last that joined to the first, for a VLAN's members
// in index order with LAGs expanded in their places, and for a port (or a bare slot) itself.
template <class Fn>
void aclWalkPorts(uint32_t ifindex, Fn&& fn) {
    auto walkLag = [&fn](uint32_t lag) {
        const aclIntf* intf = AclIntfTreeFind(lag);
        if (intf == nullptr) return;
        for (size_t i = intf->lagMembers.size(); i > 0; i--) fn(intf->lagMembers[i - 1]);
    };
    switch (ifindexType(ifindex)) {
        case IF_TYPE_LAG:
            walkLag(ifindex);
            break;
        case IF_TYPE_VLAN: {
            const aclVlan* vlan = aclVlanTreeFind(ifindex);
            if (vlan == nullptr) return;
            for (const aclVlanMember* m = aclVlanInfoTreeFindFirst(vlan); m != nullptr;
                 m = aclVlanInfoTreeFindNext(vlan, m->ifindex)) {
                if (ifindexType(m->ifindex) == IF_TYPE_LAG)
                    walkLag(m->ifindex);
                else
                    fn(m->ifindex);
            }
            break;
        }
        default:
            fn(ifindex);
    }
}

template <class Fn>
void aclForPlaceUses(Fn&& fn) {
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex))
        if (i->use != nullptr) fn(i->ifindex, *i->use);
    for (const aclVlan* v = aclVlanTreeFindFirst(); v != nullptr;
         v = aclVlanTreeFindNext(v->ifindex))
        if (v->use != nullptr) fn(v->ifindex, *v->use);
}
// Calls fn(VLAN ifindex) for the VLANs of a bit array, in order of their ids.
template <class Fn>
void aclForVlans(const vlanBits& vlans, Fn&& fn) {
    for (size_t word = 0; word < std::size(vlans.word); word++)
        for (uint64_t bits = vlans.word[word]; bits != 0; bits &= bits - 1)
            fn(ifindexMake(IF_TYPE_VLAN, static_cast<uint32_t>(word * 64) +
                                             static_cast<uint32_t>(std::countr_zero(bits))));
}
// The same for those that a port or LAG is a member of.
template <class Fn>
void aclForVlansOf(const aclIntf& member, Fn&& fn) {
    aclForVlans(*member.vlans, fn);
}
// Calls fn(source) for every place whose members include the port: the port itself, its LAG, and
// the VLANs of both.
template <class Fn>
void aclForPlacesOf(uint32_t port, Fn&& fn) {
    fn(port);
    const aclIntf* intf = AclIntfTreeFind(port);
    if (intf == nullptr) return;
    aclForVlansOf(*intf, fn);
    const aclIntf* lag = intf->lag != 0 ? AclIntfTreeFind(intf->lag) : nullptr;
    if (lag == nullptr) return;
    fn(intf->lag);
    aclForVlansOf(*lag, fn);
}
