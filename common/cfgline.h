// Configuration lines that every kind of list writes alike: a "!" and a header, numbered lines
// below them, and a "no " form of each for whoever follows the change feed.
//
// The caller holds the write lock. Texts are cut at 255 bytes: a writer whose lines may be longer
// hands them through cfgShowable. Database errors are debug output only.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "common/cfgkeys.h"
#include "include/cliMsg.h"
#include "include/listName.h"

// A CLI request about a list, else zero: what a line's record is made of.
template <class Request>
Request cfgCommand(uint32_t code, const listName& name) {
    Request request{};
    cliHdr* front;
    if constexpr (std::is_same_v<Request, cliHdr>)
        front = &request;
    else
        front = &request.cli;
    front->code = code;
    front->name = name;
    return request;
}
// The record of a line: the request that makes it again. It lies in the request.
template <class Request>
zekCfgRequest cfgRequestOf(const Request& request, uint32_t mtype = MT_CLI_COMMAND) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&request);
    return {mtype, {bytes + sizeof(ipcHdr), sizeof request - sizeof(ipcHdr)}};
}

// The longest line that "no " can stand in front of.
constexpr size_t CFG_LINE_MAX = CFG_TEXT_LEN - 1 - 3;
// A line as the configuration can show it: one that is longer than `limit`, or has bytes that would
// break it, becomes a comment that says so; its record brings it back all the same. The feed does
// not hear of such a line, and the sender of the request is told (cfgNotShown).
std::string cfgShowable(std::string_view line, size_t limit = CFG_LINE_MAX);
bool cfgIsShown(std::string_view line);
// Lines so far that were written as comments, or that would not read back as what made them.
extern uint64_t cfgNotShown;

// A text field takes at most one byte less than its size; longer texts are cut there.
inline void cfgPutText(char (&field)[CFG_TEXT_LEN], std::string_view text) {
    std::memcpy(field, text.data(), std::min(text.size(), sizeof field - 1));
}

enum cfgFamily : uint8_t { CFG_FAMILY_V4 = 0, CFG_FAMILY_MAC = 1, CFG_FAMILY_V6 = 0xFF };
// What a sync record says was changed.
enum cfgOperation : uint32_t {
    CFG_SYNC_HEADER = 3,
    CFG_SYNC_STANDARD = 9,
    CFG_SYNC_ASPATH = 10,
    CFG_SYNC_COMM = 11,
    CFG_SYNC_RMAP = 12,
    CFG_SYNC_PREFIX = 15,
    CFG_SYNC_EXTENDED = 16,
    CFG_SYNC_MAC_STANDARD = 24,
    CFG_SYNC_MAC_EXTENDED = 25,
    CFG_SYNC_EXTCOMM = 35,
    CFG_SYNC_V6_PREFIX = 80,
};

// Tells the feed of a line, or with "no " in front of it of its removal. `word`: the instance of
// a route map's clause, else 0.
void cfgSync(uint32_t operation, const listName& name, std::string_view line, bool remove,
             uint32_t word = 0);

// Where a kind of list stands in the configuration.
struct cfgBlock {
    uint32_t section;
    uint32_t separatorClass, lineClass;
    uint32_t headerSync;    // cfgOperation of the header
    uint32_t firstOrder;    // added to a line's number: its place behind the header
    bool syncBeforeHeader;  // the feed hears of the header before it is inserted: meant
};
inline constexpr cfgBlock CFG_ACCESS_LIST{
    CFG_SECTION_IP, CFG_CLASS_SEPARATOR, CFG_CLASS_LINE, CFG_SYNC_HEADER, 1, false};
inline constexpr cfgBlock CFG_MAC_LIST{
    CFG_SECTION_MAC, CFG_CLASS_SEPARATOR, CFG_CLASS_LINE, CFG_SYNC_HEADER, 1, false};
inline constexpr cfgBlock CFG_ACL_VLAN_GROUP{
    CFG_SECTION_VLAN_GROUP, CFG_CLASS_SEPARATOR, CFG_CLASS_LINE, CFG_SYNC_HEADER, 1, false};
inline constexpr cfgBlock CFG_TRACE_LIST{
    CFG_SECTION_TRACE_LIST, CFG_CLASS_SEPARATOR, CFG_CLASS_LINE, CFG_SYNC_HEADER, 1, false};
inline constexpr cfgBlock CFG_TRACE_GROUP{
    CFG_SECTION_TRACE_GROUP, CFG_CLASS_SEPARATOR, CFG_CLASS_LINE, CFG_SYNC_HEADER, 1, false};
inline constexpr cfgBlock CFG_PREFIX_LIST{
    CFG_SECTION_PREFIX, CFG_CLASS_POLICY_SEPARATOR, CFG_CLASS_PREFIX, CFG_SYNC_HEADER, 2, true};
inline constexpr cfgBlock CFG_ASPATH_LIST{
    CFG_SECTION_ASPATH, CFG_CLASS_BGP_LIST, CFG_CLASS_BGP_LINE, CFG_SYNC_ASPATH, 2, false};
inline constexpr cfgBlock CFG_COMM_LIST{
    CFG_SECTION_COMM, CFG_CLASS_BGP_LIST, CFG_CLASS_BGP_LINE, CFG_SYNC_COMM, 2, false};
inline constexpr cfgBlock CFG_EXTCOMM_LIST{
    CFG_SECTION_EXTCOMM, CFG_CLASS_BGP_LIST, CFG_CLASS_BGP_LINE, CFG_SYNC_EXTCOMM, 2, false};

// No line of a list that the manager makes itself is written. Those are IP lists: a list of another
// section is the operator's, whatever its name.
inline bool cfgIsGenerated(uint32_t section, const listName& name) {
    const bool ofIp = section == CFG_SECTION_IP || section == CFG_SECTION_TRACE_LIST;
    return ofIp && listNameIsGenerated(name);
}

// Writes or removes the "!" and the header line of a block; a removal takes every line below.
void cfgWriteHeader(const cfgBlock& block, cfgFamily family, const listName& name,
                    std::string_view line, const zekCfgRequest& request, bool remove);

// One numbered line of a block and its two texts; `shown` is the one of the mask mode that is set.
struct cfgNumbered {
    const cfgBlock& block;
    cfgFamily family;
    uint8_t role;  // CFG_ROLE_...
    cfgOperation operation;
    uint32_t seq;
    std::string_view shown, other;
    zekCfgRequest request = {};
};
// A free text as its line shows it and is read back: without the blanks at its ends.
inline std::string_view cfgFreeText(const char* field, size_t size) {
    std::string_view text(field, strnlen(field, size));
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

constexpr uint8_t CFG_ROLE_ENTRY = 0xFF;
constexpr uint8_t CFG_ROLE_REMARK = 0;
// Inserts or removes exactly this line. False when a removal did not find it.
bool cfgWriteNumbered(const listName& name, const cfgNumbered& line, bool remove);

// The whole of an entry writer: debug line, cfgWriteNumbered, the remark that leaves with it
// (withRemark), and the complaint about a line that was not there.
void cfgWriteEntry(const listName& name, const cfgNumbered& line, bool remove, bool withRemark);

// The number that a line's place has in the database while it is restored, else 0: for numbers that
// are the store's own and that its request does not carry.
uint32_t cfgRestoredNumber(const cfgBlock& block);

// Writes or removes a line that stands for itself: a setting of the whole box. 0, or -1 of the
// database.
int cfgWriteSetting(uint32_t section, std::string_view line, const zekCfgRequest& request,
                    bool remove);

// The line that records the mask display mode.
void inverse_mask_sent_to_cfg(uint32_t inverse);
