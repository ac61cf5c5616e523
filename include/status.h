// Every status that a store or the dispatcher returns, with its name and the sentence that the
// shell prints. 0 is success; codes are 0x3d0000NN; -1 is a system error or an unknown operation.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ranges>

enum aclStatus : uint32_t {
    ACL_OK = 0,
    ACL_E_NOLIST = 0x3d000001,
    ACL_E_ENTRY_EXISTS = 0x3d000002,
    ACL_E_LIST_MEMORY = 0x3d000003,
    ACL_E_ENTRY_MEMORY = 0x3d000004,
    ACL_E_NOENTRY = 0x3d000005,
    ACL_E_ASPATH_NOLIST = 0x3d000011,
    ACL_E_ASPATH_EXISTS = 0x3d000012,
    ACL_E_ASPATH_MEMORY = 0x3d000013,
    ACL_E_EXPRESSION = 0x3d000014,
    ACL_E_ASPATH_NOENTRY = 0x3d000015,
    ACL_E_COMM_NOLIST = 0x3d000016,
    ACL_E_COMM_EXISTS = 0x3d000017,
    ACL_E_COMM_MEMORY = 0x3d000018,
    ACL_E_COMM_NOENTRY = 0x3d000019,
    ACL_E_IS_STANDARD = 0x3d00001a,
    ACL_E_IS_EXTENDED = 0x3d00001b,
    ACL_E_MEMORY = 0x3d00001c,
    ACL_E_NOINTF = 0x3d00001d,
    ACL_E_NOT_BOUND = 0x3d00001e,
    ACL_E_SEQ_USED = 0x3d000029,
    ACL_E_NOSEQ = 0x3d00002a,
    ACL_E_SEQ_RANGE = 0x3d00002d,
    ACL_E_PLACEHOLDER = 0x3d000034,
    ACL_E_OTHER_DOS = 0x3d000036,
    ACL_E_CP_EGRESS = 0x3d00003c,
    ACL_E_NODOS = 0x3d00003e,
    ACL_E_CP_UNSUPPORTED = 0x3d000040,
    ACL_E_IMPLICIT_PERMIT = 0x3d000041,
    ACL_E_CP_PORT = 0x3d000046,
    ACL_E_LAG_MEMBER = 0x3d000047,
    ACL_E_EXTCOMM_MEMORY = 0x3d00006c,
    ACL_E_EXTCOMM_NOLIST = 0x3d00006d,
    ACL_E_EXTCOMM_NOENTRY = 0x3d00006e,
    ACL_E_CLASH = 0x3d000070,
    ACL_E_SYSTEM = 0xFFFFFFFF,
};

struct aclStatusRow {
    uint32_t code;
    const char* name;
    const char* text;  // what the operator reads
};

inline constexpr aclStatusRow aclStatusTable[] = {
    {ACL_OK, "ACL_OK", "Done"},
    {ACL_E_NOLIST, "ACL_E_NOLIST", "No such access list"},
    {ACL_E_ENTRY_EXISTS, "ACL_E_ENTRY_EXISTS", "The entry already exists in the list"},
    {ACL_E_LIST_MEMORY, "ACL_E_LIST_MEMORY", "No memory for the list"},
    {ACL_E_ENTRY_MEMORY, "ACL_E_ENTRY_MEMORY", "No memory for the entry"},
    {ACL_E_NOENTRY, "ACL_E_NOENTRY", "No such entry in the list"},
    {ACL_E_ASPATH_NOLIST, "ACL_E_ASPATH_NOLIST", "No such AS-path access list"},
    {ACL_E_ASPATH_EXISTS, "ACL_E_ASPATH_EXISTS", "The entry already exists in the AS-path list"},
    {ACL_E_ASPATH_MEMORY, "ACL_E_ASPATH_MEMORY", "No memory for the AS-path entry"},
    {ACL_E_EXPRESSION, "ACL_E_EXPRESSION",
     "The regular expression is not valid, or is too long or too large"},
    {ACL_E_ASPATH_NOENTRY, "ACL_E_ASPATH_NOENTRY", "No such entry in the AS-path list"},
    {ACL_E_COMM_NOLIST, "ACL_E_COMM_NOLIST", "No such community list"},
    {ACL_E_COMM_EXISTS, "ACL_E_COMM_EXISTS", "The entry already exists in the community list"},
    {ACL_E_COMM_MEMORY, "ACL_E_COMM_MEMORY", "No memory for the entry or for the text to show"},
    {ACL_E_COMM_NOENTRY, "ACL_E_COMM_NOENTRY", "No such entry in the community list"},
    {ACL_E_IS_STANDARD, "ACL_E_IS_STANDARD", "The list exists as a standard access list"},
    {ACL_E_IS_EXTENDED, "ACL_E_IS_EXTENDED", "The list exists as an extended access list"},
    {ACL_E_MEMORY, "ACL_E_MEMORY", "The manager is out of memory"},
    {ACL_E_NOINTF, "ACL_E_NOINTF", "Nothing was ever bound to the interface"},
    {ACL_E_NOT_BOUND, "ACL_E_NOT_BOUND",
     "The list is not bound to the interface in this direction"},
    {ACL_E_SEQ_USED, "ACL_E_SEQ_USED", "The sequence number is already used in the list"},
    {ACL_E_NOSEQ, "ACL_E_NOSEQ", "No entry of the list has this sequence number"},
    {ACL_E_SEQ_RANGE, "ACL_E_SEQ_RANGE",
     "The sequence number is out of range (at most 4294967290)"},
    {ACL_E_PLACEHOLDER, "ACL_E_PLACEHOLDER", "The list is not configured: it is only referred to"},
    {ACL_E_OTHER_DOS, "ACL_E_OTHER_DOS", "Another trace list is already enabled"},
    {ACL_E_CP_EGRESS, "ACL_E_CP_EGRESS",
     "The control plane filters only what it receives: bind the list inward"},
    {ACL_E_NODOS, "ACL_E_NODOS", "No such trace list"},
    {ACL_E_CP_UNSUPPORTED, "ACL_E_CP_UNSUPPORTED",
     "The control plane of this chassis takes no access lists"},
    {ACL_E_IMPLICIT_PERMIT, "ACL_E_IMPLICIT_PERMIT",
     "The list is bound already with another implicit-permit: remove it first"},
    {ACL_E_CP_PORT, "ACL_E_CP_PORT", "The control plane has no ports to bind lists to"},
    {ACL_E_LAG_MEMBER, "ACL_E_LAG_MEMBER",
     "The port is a member of a port-channel: bind the list there"},
    {ACL_E_EXTCOMM_MEMORY, "ACL_E_EXTCOMM_MEMORY",
     "No memory for the extended-community list or its entry"},
    {ACL_E_EXTCOMM_NOLIST, "ACL_E_EXTCOMM_NOLIST", "No such extended-community list"},
    {ACL_E_EXTCOMM_NOENTRY, "ACL_E_EXTCOMM_NOENTRY",
     "No such entry in the extended-community list"},
    {ACL_E_CLASH, "ACL_E_CLASH",
     "The list clashes with a source-guard or IP-MAC list of the interface"},
    {ACL_E_SYSTEM, "ACL_E_SYSTEM", "The operation failed or is not supported"},
};
static_assert(std::ranges::is_sorted(aclStatusTable, {}, &aclStatusRow::code));

// The row of a code, or null for a code that no operation returns.
constexpr const aclStatusRow* aclStatusFind(uint32_t code) {
    const auto* row = std::ranges::lower_bound(aclStatusTable, code, {}, &aclStatusRow::code);
    return row != std::ranges::end(aclStatusTable) && row->code == code ? row : nullptr;
}
