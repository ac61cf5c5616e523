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
    ACL_E_IS_STANDARD = 0x3d00001a,
    ACL_E_IS_EXTENDED = 0x3d00001b,
    ACL_E_MEMORY = 0x3d00001c,
    ACL_E_SEQ_USED = 0x3d000029,
    ACL_E_NOSEQ = 0x3d00002a,
    ACL_E_SEQ_RANGE = 0x3d00002d,
    ACL_E_OTHER_DOS = 0x3d000036,
    ACL_E_NODOS = 0x3d00003e,
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
    {ACL_E_IS_STANDARD, "ACL_E_IS_STANDARD", "The list exists as a standard access list"},
    {ACL_E_IS_EXTENDED, "ACL_E_IS_EXTENDED", "The list exists as an extended access list"},
    {ACL_E_MEMORY, "ACL_E_MEMORY", "The manager is out of memory"},
    {ACL_E_SEQ_USED, "ACL_E_SEQ_USED", "The sequence number is already used in the list"},
    {ACL_E_NOSEQ, "ACL_E_NOSEQ", "No entry of the list has this sequence number"},
    {ACL_E_SEQ_RANGE, "ACL_E_SEQ_RANGE",
     "The sequence number is out of range (at most 4294967290)"},
    {ACL_E_OTHER_DOS, "ACL_E_OTHER_DOS", "Another trace list is already enabled"},
    {ACL_E_NODOS, "ACL_E_NODOS", "No such trace list"},
    {ACL_E_SYSTEM, "ACL_E_SYSTEM", "The operation failed or is not supported"},
};
static_assert(std::ranges::is_sorted(aclStatusTable, {}, &aclStatusRow::code));

// The row of a code, or null for a code that no operation returns.
constexpr const aclStatusRow* aclStatusFind(uint32_t code) {
    const auto* row = std::ranges::lower_bound(aclStatusTable, code, {}, &aclStatusRow::code);
    return row != std::ranges::end(aclStatusTable) && row->code == code ? row : nullptr;
}
