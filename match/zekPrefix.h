// Evaluation of prefix lists, shared with client tasks. The caller holds the read lock.
#pragma once

#include "common/lists/prefixList.h"

// A route's prefix. IPv4 uses the first 4 bytes of both fields.
struct ipPrefix {
    uint32_t family;  // AF_IPV4, AF_IPV6
    uint8_t address[16];
    uint8_t mask[16];  // its length is the number of leading one bits
};
// The prefix of `length` bits (no more than the family has) at an address of the family's 4 or 16
// bytes.
ipPrefix ipPrefixMake(uint32_t family, const uint8_t* address, uint32_t length);
// Leading one bits.
uint32_t ipPrefixLength(const ipPrefix& route);
// Fills the first bytes of a mask: `length` one bits, then zeros up to 128.
void ipRtLen2Mask(uint32_t length, uint8_t mask[16]);

// The list of that name and family (1 IPv4, 2 IPv6), or null.
prefixList* ipPrefixListFind(const listName& name, uint32_t family);

// 1 deny, 0 permit: the first entry in sequence order that matches decides, and none denies, as
// does a null list or a list of the other family. An entry matches when
//  - it has a length: the route's first bits are the entry's, and the route's length is the
//    entry's (neither ge nor le), from ge up, from the entry's length to le, or from ge to le;
//  - it is of the bitmask form: the route's address is the entry's under the entry's mask.
// *decided is the entry, null for the implicit deny. The entry's hit count goes up.
int prefixFilterCheck(const prefixList* list, const ipPrefix& route,
                      const prefixEntry** decided = nullptr);
// The same for a caller that has the family, the address and the mask apart.
int prefixFilterCheckv4_v6(const prefixList* list, uint32_t family, const uint8_t* address,
                           const uint8_t* mask);
// The entry that decides, or null; counts nothing.
const prefixEntry* prefixFilterFind(const prefixList* list, const ipPrefix& route);

// The index beside the chain, kept by the store. Call with the entry's record in its final form;
// a removal comes before any change of the record.
void prefixIndexInsert(prefixList* list, prefixEntry* entry);
void prefixIndexRemove(prefixList* list, const prefixEntry* entry);
// The numbers have changed, their order has not.
void prefixIndexReorder(prefixList* list);
void prefixIndexFree(prefixList* list);
