// What one kind of numbered access list has of its own. The frame (list.cpp, store.cpp,
// dupcheck.cpp, propagate.cpp, clients.cpp, ...) is the same for all of them and asks the list's
// row once a call, a chunk or a check, never once an entry of a walk.
//
// A new kind is: its row, the rules of its content key, its two text functions.
#pragma once

#include "common/cfgline.h"
#include "common/client.h"
#include "common/lists/list.h"
#include "common/node.h"
#include "interface/interface.h"
#include "ipacl/zekipaccess.h"

// The messages that carry a list's changes to the cards, in one direction.
struct aclAgentIds {
    uint32_t list, add, del, drop;
};

// Which management tasks keep copies of a kind's lists.
enum class mgmtCopies { none, withoutIpm, all };

struct aclFamily {
    const char* name;  // as the log says it: "IP", "IPv6"
    uint32_t af;       // AF_IPV4, ...: the word of registrations
    zekRadix* aclTrees::*tree;

    // --- entries: a record of `entryBytes`, its front and the block ---
    size_t entryBytes, blockBytes;
    size_t seqAt;  // in the block
    uint32_t seqMax;
    bool (*sameRule)(const void* a, const void* b);
    // Two entries with equal keys are one rule. The key is zeroed first; its length in bytes is
    // returned. Null: lists without duplicate trees.
    uint32_t (*contentKey)(const void* block, uint8_t key[DUP_KEY_MAX]);
    // Entries that stand outside the content tree and are found by a walk; null: none.
    bool (*outsideContentTree)(const void* block);
    // What the system-error log is told when an entry finds no place in a tree; null: a debug line
    // names the tree.
    const char* noTreePlace;

    // --- what must stay in step with the chain; null: nothing ---
    void (*indexAdd)(aclList* list, listEntry* entry);           // after it was linked
    void (*indexRemove)(aclList* list, const listEntry* entry);  // before it is unlinked
    void (*indexRenumber)(aclList* list);                        // numbers changed, the order not
    void (*indexDrop)(aclList* list);

    // --- those that a list concerns ---
    aclAgentIds agentIds[2];  // by intfDirection
    mgmtCopies copies;
    uint32_t triggerType;
    uint16_t clauseClass;  // the clause of a route map that names such a list
    uint32_t clauseCode;
    const char* addClientRefused;  // a format with the list's name: no list for a task's client

    // --- interfaces ---
    uint32_t place;                      // intfFamily: the list's places in interface records
    uint32_t bindCode;                   // the command that binds, as a line's record keeps it
    const char* groupWords;              // of the line: "ip access-group "
    const char *applyName, *removeName;  // the operations, as the log calls them
    bool onControlPlane, onVlans;        // can be installed there
    bool inVlanGroups;                   // an egress list keeps its VLAN out of VLAN groups

    // --- configuration text: a line is written, or removed ---
    void (*writeHeader)(const aclList& list, uint32_t remove);
    void (*writeEntry)(const aclList& list, const listEntry& entry, uint32_t remove);
    const cfgBlock* block;  // of remarks
    cfgFamily textFamily;

    std::string (*showText)(const aclList& list);
};

extern const aclFamily ip4Family, ip4SystemFamily, dosFamily, ip6Family, ip6SystemFamily, macFamily,
    ipMacFamily;

// The kinds of lists that are bound and have clients, in the order of intfFamily.
inline constexpr const aclFamily* aclFamilies[] = {&ip4Family, &ip6Family, &macFamily};

inline const aclFamily& aclFamilyOf(uint32_t place) {
    return *aclFamilies[place];
}

inline bool aclListIsGenerated(const aclList& list) {
    return cfgIsGenerated(list.family->block->section, list.name);
}

// --- an entry's block and number, through its row ------------------------------------------------

inline const void* entryBlock(const listEntry& entry) {
    return &entry + 1;
}
inline const be32& blockSeq(const aclFamily& family, const void* block) {
    return *reinterpret_cast<const be32*>(static_cast<const uint8_t*>(block) + family.seqAt);
}
inline const be32& entrySeq(const aclFamily& family, const listEntry& entry) {
    return blockSeq(family, entryBlock(entry));
}
