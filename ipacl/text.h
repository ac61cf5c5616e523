// The configuration's and the shows' common words, and the writers that only this folder calls.
#pragma once

#include <string>
#include <string_view>

#include "common/cfgline.h"
#include "interface/interface.h"

// --- pieces of a line; each begins with its blank ----------------------------------------------

inline bool ipHasPorts(uint8_t protocol) {
    return protocol == IP_PROTO_TCP || protocol == IP_PROTO_UDP;
}
// " tcp", " udp", " icmp", `any` for the protocol that stands for all, else " number".
void textProtocol(std::string& out, uint8_t protocol, bool isAny, std::string_view any);
// The flag words, without those in `except`.
void textTcpFlags(std::string& out, uint8_t flags, uint8_t except = 0);

// --- interface lines (cfgintf.cpp) -------------------------------------------------------------

// The line of the list that stands in one place of an interface record, or of one of the pairs that
// stand in a place of INTF_IPMAC. An interface's block of lines gets its header with the first line
// and loses it with the last.
struct cfgIntfLine {
    aclIntf* intf;
    uint32_t family, direction;  // intfFamily, intfDirection
    const listName& name;        // of a pair: its bytes
    bool last = true;            // no other line of the place stays
};
void cfgIntfWrite(const cfgIntfLine& line, std::string_view text, const zekCfgRequest& request);
// Takes the line out and tells the feed the text that undoes it.
void cfgIntfRemove(const cfgIntfLine& line, std::string_view undo);
// Takes the line out because another one comes into its place: nobody is told.
void cfgIntfReplace(const cfgIntfLine& line);

// --- shows (show.cpp) --------------------------------------------------------------------------

// Room for the lines of a list as most of them are; longer ones let the text grow.
inline size_t showRoom(const aclList& list) {
    return (static_cast<size_t>(list.count) + 1) * 96 + LIST_NAME_LEN;
}
// Neighbours in the chain are seldom neighbours in memory: fetches the next entry meanwhile.
template <class Entry>
void entryFetch(const listEntry* next) {
    if (next == nullptr) return;
    for (size_t line = 0; line < sizeof(Entry); line += 64)
        __builtin_prefetch(reinterpret_cast<const char*>(next) + line);
}
std::string ipListText(const aclList& list);  // of an ordinary IPv4 list
std::string ip6ListText(const aclList& list);
// Its line as the configuration shows it, with the blank in front.
std::string ip6EntryText(const acl6Entry& entry);

// --- remarks (remark.cpp) ----------------------------------------------------------------------

// Writes or removes a remark's line; an entry's removal may have taken it already.
void aclManageAclEntryRemark(const aclRemark& remark, const aclList& list, uint32_t remove);
