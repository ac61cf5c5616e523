// Source guard: which hosts may send on an interface, as pairs of IPv4 and MAC address.
//
// The pairs of an interface are an "IP-MAC list" that the manager makes itself, named "sgAcl_" and
// the interface's name: it comes with the first pair and goes with the last, and stands in the
// interface's record as lists of the operator do. A pair is there because it was configured,
// because the DHCP-snooping task has seen a lease, or both, and goes when neither wants it any
// more. The caller holds the write lock, of look-ups and shows the read lock. Statuses of
// include/status.h.
#pragma once

#include "ipacl/zekipaccess.h"

struct ipMacPair {
    uint32_t address;
    uint8_t mac[6];
    uint16_t vlan;  // 0: any
};

// Who wants a pair.
enum ipMacSource : uint32_t { IPMAC_CONFIGURED = 1, IPMAC_SNOOPED = 2 };

// The operator's pairs, which have lines in the configuration. ACL_E_ENTRY_EXISTS and ACL_E_NOENTRY
// when it is one of his already, or not. ACL_E_CLASH while an ingress IPv4 list is bound there.
uint32_t ipSourceGuardAdd(uint32_t ifindex, const ipMacPair& pair);
uint32_t ipSourceGuardDel(uint32_t ifindex, const ipMacPair& pair);

// The pairs of leases: the same without lines.
uint32_t aclMgrIpMacAclAdd(uint32_t ifindex, uint32_t address, const uint8_t mac[6], uint32_t vlan);
uint32_t aclMgrIpMacAclDel(uint32_t ifindex, uint32_t address, const uint8_t mac[6], uint32_t vlan);

// Every pair of an interface, whoever wants it.
void aclMgrIpMacAclDropAll(uint32_t ifindex);
bool aclMgrIpMacAclIsPresentOnIntf(uint32_t ifindex);

// Results as aclShowIpAcl and aclShowIpAclAll; lists go by their own names ("sgAcl_1/0").
uint32_t aclShowSourceGuard(const listName& name, void** buffer, uint32_t* size);
uint32_t aclShowSourceGuardAll(const listName& cursor, void** buffer, uint32_t* size);

struct ipMacEntry : aclEntry {
    uint32_t sources;  // ipMacSource
};
struct ipMacBinding : aclBinding {
    uint32_t configured;  // pairs that have lines
    uint32_t lastSeq;     // the number of the newest pair
};
ipMacPair ipMacPairOf(const ipMacEntry& entry);
// "10.0.0.1 02:00:00:aa:bb:cc vlan 7", as its line says it.
std::string ipMacText(const ipMacPair& pair);
// Calls fn(pair, sources) for every pair of an interface, mostly in the order in which they came.
template <class Fn>
void ipMacForEachPair(const aclList& list, Fn&& fn) {
    for (const aclEntry& entry : entriesOf<const aclEntry>(list.head)) {
        const auto& pair = static_cast<const ipMacEntry&>(entry);
        fn(ipMacPairOf(pair), pair.sources);
    }
}
