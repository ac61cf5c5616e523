// What the files of the send path share. Private to this folder and to the questions that compare
// the cards with the stores.
//
//   send -> list header (send.cpp) -> entries, chunk by chunk (chunk.cpp) -> messages (send.cpp)
//
// The list header and the entries of one message are made in the staging buffer, one behind the
// other; the header stays there while chunk after chunk of entries is written behind it.
#pragma once

#include <cstdint>
#include <span>

#include "common/message.h"
#include "common/node.h"
#include "download/zekacl_download.h"

// --- bodies (agentRecords.cpp) ---

// What the bodies of one family of lists are made of.
struct agentForm {
    uint32_t family;  // intfFamily
    size_t headerBytes, imageBytes;
    uint32_t chunk;  // entries of a full chunk
    size_t countAt;  // of the word in the header that says how many entries there are
    void (*header)(uint8_t* header, const aclTarget& target, const aclSend& send);
    // Images of the entries from *next on, as many as there is room for; *next moves past them.
    // Returns how many there were.
    uint32_t (*images)(std::span<uint8_t> room, const listEntry** next);
    uint64_t (*hash)(const uint8_t* image);  // as the agents know the entry by
    uint32_t debugArea;
    const char* sizeFormat;

    constexpr size_t bodyBytes(size_t entries) const { return headerBytes + imageBytes * entries; }
    void setCount(uint8_t* body, uint32_t count) const;
};
extern const agentForm agentForm4, agentForm6, agentFormMac;

void vAclAddEntryToAclList(agentEntry* image, const aclEntry& entry);
void vAclAddEntryToAclList(agentEntry6* image, const acl6Entry& entry);
void vAclAddEntryToAclList(agentMacEntry* image, const l2AclEntry& entry);

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
    const agentForm* form;
    agentCarries carries;
    const char* name;  // printed when set
};
// Unknown ids carry an IPv4 entry.
agentMsgRow agentMsgRowOf(uint32_t messageId);

// Sizes, splits and sends the list whose header stands in the staging buffer. `count` entries from
// `first` on; only the header goes out for messages that carry no more.
int iAclIPCCheckAclList(std::span<uint8_t> staging, const listName& name, const listEntry* first,
                        uint32_t count, const agentRoute& route, const agentMsgRow& row);

// An interface's name for texts, made only where it is printed.
struct agentIfName {
    char text[64];
    explicit agentIfName(uint32_t ifindex);
};
