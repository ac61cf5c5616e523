// What the files of the send path share. Private to this folder.
//
//   request -> list header + first entry (send.cpp) -> chunks (chunk.cpp) -> messages (send.cpp)
//
// The list header and the entries of one message are made in the staging buffer, one behind the
// other; the header stays there while chunk after chunk of entries is written behind it.
#pragma once

#include <cstdint>

#include "common/node.h"
#include "common/queue.h"
#include "download/zekacl_download.h"

// The families of lists, and what their bodies are made of.
enum class agentBody { ip, ip6, mac };

struct ipBody {
    using list = aclList;
    using entry = aclEntry;
    using header = agentListHdr;
    using image = agentEntry;
    static constexpr uint32_t chunk = AGENT_CHUNK_ENTRIES;
};
struct ip6Body {
    using list = aclList;
    using entry = acl6Entry;
    using header = agentListHdr;
    using image = agentEntry6;
    static constexpr uint32_t chunk = AGENT_CHUNK_ENTRIES_6;
};
struct macBody {
    using list = l2AclList;
    using entry = l2AclEntry;
    using header = agentMacListHdr;
    using image = agentMacEntry;
    static constexpr uint32_t chunk = AGENT_CHUNK_ENTRIES_MAC;
};

// --- message ids (chunk.cpp) ---
enum class agentCarries {
    list,    // a list with its entries
    header,  // a list without: it is deleted, or new
    entry,   // entries
    entryOrHeader,
};
struct agentMsgRow {
    uint32_t id;
    uint32_t more;  // id of every chunk but the first
    agentBody body;
    agentCarries carries;
    zekRadix* aclTrees::*tree;  // where the list is that an entry belongs to
    const char* name;           // printed when set
};
// Unknown ids carry an IPv4 entry.
agentMsgRow agentMsgRowOf(uint32_t messageId);

// Sizes, splits and sends a list whose header stands in the staging buffer. `count` entries from
// `first` on; only the header goes out for messages that carry no more.
int iAclIPCCheckAclList(agentListHdr* header, const aclEntry* first, uint32_t count,
                        uint32_t target, const agentMsgRow& row);
int iAclIPCCheckAclList(agentListHdr* header, const acl6Entry* first, uint32_t count,
                        uint32_t target, const agentMsgRow& row);
int vL2AclIPCCheckAclList(agentMacListHdr* header, const l2AclEntry* first, uint32_t count,
                          uint32_t target, const agentMsgRow& row);

// --- records (agentRecords.cpp) ---
void vAclFillInAclList(agentListHdr* header, const aclList& list, const aclSendRequest& request);
void vAclFillInAclList(agentMacListHdr* header, const l2AclList& list,
                       const aclSendRequest& request);
void vAclAddEntryToAclList(agentEntry* image, const aclEntry& entry);
void vAclAddEntryToAclList(agentEntry6* image, const acl6Entry& entry);
void vAclAddEntryToAclList(agentMacEntry* image, const l2AclEntry& entry);

// Copies up to `count` entries into records; *copied says how many the chain had. Returns the next
// entry.
template <class Entry, class Image>
const Entry* vAclMapMgrToClient(Image* images, const Entry* first, uint32_t count,
                                uint32_t* copied) {
    uint32_t i = 0;
    for (; i < count && first != nullptr; i++, first = first->next)
        vAclAddEntryToAclList(&images[i], *first);
    *copied = i;
    return first;
}

// An interface's name for texts, made only where it is printed.
struct agentIfName {
    char text[64];
    explicit agentIfName(uint32_t ifindex);
};
// Where messages for an interface go.
struct agentRoute {
    zekSwpHandle queue;
    uint32_t slot, address, service;
    int cardSlot;    // SLOT_NONE: belongs to no card
    uint32_t agent;  // whose queue it is
};
agentRoute agentRouteOf(uint32_t ifindex, uint32_t messageId);
