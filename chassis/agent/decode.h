// Downloads as they come: which message does what to which kind of list, and whether its bytes are
// what they say. Nothing here knows what came before or what is installed.
#pragma once

#include <optional>
#include <vector>

#include "chassis/agent/counts.h"
#include "chassis/agent/dataplane.h"

enum class agentOp : uint8_t {
    list,           // a whole list
    add,            // an entry
    remove,         // one by its number
    drop,           // a list; what it says of entries counts for nothing
    addContent,     // entries that are known by their content
    removeContent,  // such entries
    systemRemove,   // the same; without entries the list
    clear,          // all entries of a list, which stays
    renumber,       // new numbers for all entries of a list, wherever it is installed
};

// One kind of message. A list, or a batch of entries, that does not fit one message goes on under
// `next`; 0: it does not go on.
struct messageKind {
    uint32_t id;
    agentListKind kind;  // of a renumbering the message says it
    uint32_t direction;
    agentOp op;
    uint32_t next;
    uint32_t fewest, most;  // entries, all messages together
};
// Null: there is no table for such messages.
const messageKind* agentMessageKind(uint32_t id);

// One message that has passed every check that needs no memory of earlier ones.
struct download {
    const messageKind* kind;
    bool more;
    uint32_t count;                   // as the header has it
    uint32_t carried;                 // entries in the message
    dpList list;                      // without entries
    std::span<const uint8_t> images;  // of the entries
};
struct agentFault {
    agentRefusal why;
    std::string what;
};
// Fills *out, or says why not.
std::optional<agentFault> agentDecode(const messageKind& kind, std::span<const uint8_t> message,
                                      download* out);

// Puts the entries of a message behind those that the list has. False: a number comes twice.
bool agentCollect(dpList* list, std::span<const uint8_t> images);
// The same for the pairs of a renumbering.
void agentCollect(std::vector<dpNumber>* numbers, std::span<const uint8_t> images);
