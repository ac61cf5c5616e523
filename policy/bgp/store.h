// The frame that AS-path, community and extended-community lists share: records, entry order,
// placeholder life, clients, configuration. Private to this folder.
#pragma once

#include <span>
#include <string_view>

#include "common/cfgline.h"
#include "common/lists/bgpList.h"
#include "common/node.h"

// What tells the kinds apart, but for their entries' bodies.
struct bgpKindRow {
    zekRadix* aspathAclNodeRecord::*tree;
    uint32_t trigger;  // aspTrigger's kind
    uint32_t noList, exists, noEntry, listMemory, entryMemory;
    const cfgBlock& block;
    cfgOperation sync;
    const char* header;            // of the configuration and of shows, the name follows
    uint32_t createCode, addCode;  // aclPolicyCliCode
};
extern const bgpKindRow bgpKinds[BGP_LIST_KINDS];

bgpList* bgpListFind(bgpListKind kind, const listName& name);
bgpList* bgpListFirst(bgpListKind kind);
bgpList* bgpListNext(bgpListKind kind, const listName& name);
bgpList* bgpListPrev(bgpListKind kind, const listName& name);
bgpList* bgpListCreate(bgpListKind kind, const listName& name, uint32_t placeholder,
                       uint32_t* status);
// A list without entries and clients: out of the tree and freed.
void bgpListDrop(bgpList* list);
uint32_t bgpListDelete(bgpListKind kind, const listName& name);

// An entry to be: its body as bgpList.h lays it out, and what is compiled of it.
struct bgpDraft {
    uint32_t action, kind;
    std::span<const uint8_t> body;
    std::string_view expression;  // COMM_REGEXP only
};
bgpEntry* bgpEntryFind(const bgpList* list, std::span<const uint8_t> body);
uint32_t bgpEntryAdd(bgpListKind kind, const listName& name, const bgpDraft& draft);
uint32_t bgpEntryDelete(bgpListKind kind, const listName& name, std::span<const uint8_t> body,
                        uint32_t writeConfig);

void bgpListToCfg(const bgpList* list, uint32_t remove);
void bgpEntryToCfg(bgpListKind kind, const bgpEntry* entry, uint32_t remove, const listName& name);

// The bytes of a body.
template <class Body>
std::span<const uint8_t> bgpBody(const Body& body) {
    return {reinterpret_cast<const uint8_t*>(&body), sizeof body};
}
