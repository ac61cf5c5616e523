// The configuration's and the shows' common words, and the writers that only this folder calls.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "include/interface.h"
#include "platform/api/zekCfg.h"

// --- pieces of a line; each begins with its blank ----------------------------------------------

inline bool ipHasPorts(uint8_t protocol) {
    return protocol == IP_PROTO_TCP || protocol == IP_PROTO_UDP;
}
// " tcp", " udp", " icmp", `any` for the protocol that stands for all, else " number".
void textProtocol(std::string& out, uint8_t protocol, bool isAny, std::string_view any);
// The flag words, without those in `except`.
void textTcpFlags(std::string& out, uint8_t flags, uint8_t except = 0);

// --- configuration lines (cfgline.cpp) ---------------------------------------------------------

// A text field takes at most one byte less than its size; longer texts are cut there.
inline void cfgPutText(char (&field)[CFG_TEXT_LEN], std::string_view text) {
    std::memcpy(field, text.data(), std::min(text.size(), sizeof field - 1));
}

enum cfgFamily : uint8_t { CFG_FAMILY_V4 = 0, CFG_FAMILY_V6 = 0xFF };
// What a sync record says was changed.
enum cfgOperation : uint32_t {
    CFG_SYNC_HEADER = 3,
    CFG_SYNC_STANDARD = 9,
    CFG_SYNC_EXTENDED = 16,
};

// Writes or removes the "!" and the header line of a block.
void cfgWriteHeader(uint32_t section, cfgFamily family, const listName& name, std::string_view line,
                    bool remove);

// One numbered line of a block and its two texts; `shown` is the one of the mask mode that is set.
struct cfgNumbered {
    uint32_t section;
    cfgFamily family;
    uint8_t role;  // CFG_ROLE_...
    cfgOperation operation;
    uint32_t seq;
    std::string_view shown, other;
};
constexpr uint8_t CFG_ROLE_ENTRY = 0xFF;
constexpr uint8_t CFG_ROLE_REMARK = 0;
// Inserts or removes exactly this line. False when a removal did not find it.
bool cfgWriteNumbered(const listName& name, const cfgNumbered& line, bool remove);

// The whole of an entry writer: debug line, cfgWriteNumbered, the remark that leaves with it
// (withRemark), and the complaint about a line that was not there.
void cfgWriteEntry(const listName& name, const cfgNumbered& line, bool remove, bool withRemark);

// --- interface lines (cfgintf.cpp) -------------------------------------------------------------

// The line of the list that stands in one place of an interface record. Its block of lines gets its
// header with the first line and loses it with the last.
struct cfgIntfLine {
    aclIntf* intf;
    uint32_t family, direction;  // intfFamily, intfDirection
    const listName& name;
};
void cfgIntfWrite(const cfgIntfLine& line, std::string_view text);
// Takes the line out and tells the feed the text that undoes it.
void cfgIntfRemove(const cfgIntfLine& line, std::string_view undo);
// Takes the line out because another one comes into its place: nobody is told.
void cfgIntfReplace(const cfgIntfLine& line);

// --- remarks (remark.cpp) ----------------------------------------------------------------------

// Writes or removes a remark's line.
void aclManageAclEntryRemark(const aclRemark& remark, const aclList& list, uint32_t remove);
