// Text of the MAC configuration lines and shows.
//
// Pieces end with their blank, unlike those of IP lines, but for the order: "order 7monitor " is
// meant, and is read back.
#include <algorithm>

#include "include/ipText.h"
#include "ipacl/family.h"
#include "ipacl/text.h"
#include "l2acl/zekl2acl.h"

namespace {

void addAddress(std::string& out, const uint8_t (&address)[6]) {
    constexpr char digits[] = "0123456789abcdef";
    char text[] = "xx:xx:xx:xx:xx:xx ";
    for (size_t i = 0; i < sizeof address; i++) {
        text[3 * i] = digits[address[i] >> 4];
        text[3 * i + 1] = digits[address[i] & 15];
    }
    out.append(text, sizeof text - 1);
}

bool all(const uint8_t (&bytes)[6], uint8_t value) {
    return std::ranges::all_of(bytes, [value](uint8_t b) { return b == value; });
}

// A standard list shows a host as its bare address.
void addClause(std::string& out, const uint8_t (&address)[6], const uint8_t (&mask)[6],
               bool hostWord) {
    if (all(address, 0) && all(mask, 0xFF)) {
        out += "any ";
        return;
    }
    const bool host = all(mask, 0);
    if (host && hostWord) out += "host  ";  // two blanks: meant
    addAddress(out, address);
    if (!host) addAddress(out, mask);
}

// What there is no word for shows none.
constexpr std::string_view operators[] = {"", "eq ", "gt ", "lt ", "neq "};

void addExtended(std::string& out, const macEntryBlock& body) {
    addClause(out, body.dst, body.dstMask, true);
    if (body.encapsulation == 0) return;
    for (const macEncapsulationRow& row : macEncapsulationTable)
        if (row.code == body.encapsulation) ((out += ' ') += row.word) += ' ';
    if (body.etherTypeOperator < std::size(operators)) out += operators[body.etherTypeOperator];
    textNumber(out, body.etherType, 16);
    out += ' ';
}

// Whether the line, read back, is the rule: there is a word for all that it asks for, and it is of
// its list's kind.
bool readsBack(const macEntryBlock& body, const aclList& list) {
    if (body.type != list.kind) return false;
    if (body.type != IP_KIND_EXTENDED || body.encapsulation == MAC_ENCAPSULATION_NONE) return true;
    const uint32_t op = body.etherTypeOperator;
    return op != PORT_NONE && op < std::size(operators) &&
           std::ranges::any_of(macEncapsulationTable, [&](const macEncapsulationRow& row) {
               return row.code == body.encapsulation;
           });
}

void addTail(std::string& out, const l2AclEntry& entry) {
    if (entry.log != 0) out += "log ";
    if ((entry.counterOptions & IP_COUNT) != 0) out += "count ";
    if ((entry.counterOptions & IP_BYTES) != 0) out += "bytes ";
    if (entry.block.order < ORDER_NOT_GIVEN) textWordSigned(out, "order ", entry.block.order);
    if (entry.monitor != 0) out += "monitor ";
}

}  // namespace

void l2AclEntryText(std::string& line, const l2AclEntry& entry) {
    const macEntryBlock& body = entry.block;
    const bool extended = body.type == IP_KIND_EXTENDED;
    line += " seq ";
    textNumber(line, body.seq);
    line += body.action == IP_DENY ? " deny " : " permit ";
    addClause(line, body.src, body.srcMask, extended);
    if (extended) addExtended(line, body);
    addTail(line, entry);
}

std::string l2AclListText(const aclList& list) {
    std::string out = list.kind == IP_KIND_STANDARD ? "Standard" : "Extended";
    out.reserve(showRoom(list));
    (out += " mac access list ") += listNameView(list.name);
    out += "\r\n";
    for (const l2AclEntry& entry : entriesOf<const l2AclEntry>(list.head)) {
        entryFetch<l2AclEntry>(entry.next);
        l2AclEntryText(out, entry);
        out += "\r\n";
    }
    return out;
}

void l2acl_sent_to_cfg(const aclList& list, uint32_t remove) {
    std::string line =
        list.kind == IP_KIND_STANDARD ? "mac access-list standard " : "mac access-list extended ";
    line += listNameView(list.name);
    auto request = cfgCommand<cliListReq>(CLI_MAC_LIST_CREATE, list.name);
    request.kind = list.kind;
    cfgWriteHeader(CFG_MAC_LIST, macFamily.textFamily, list.name, line, cfgRequestOf(request),
                   remove != 0);
}

void l2acl_ent_sent_to_cfg(const l2AclEntry& entry, uint32_t remove, const aclList& list) {
    auto request = cfgCommand<cliMacEntryReq>(CLI_MAC_ENTRY_ADD, list.name);
    request.log = entry.log;
    request.block = entry.block;
    request.counterOptions = entry.counterOptions;
    request.order = entry.block.order;
    request.monitor = entry.monitor;
    const std::string line = l2AclEntryText(entry);
    if (remove == 0 && !readsBack(entry.block, list)) cfgNotShown++;
    const bool standard = list.kind == IP_KIND_STANDARD;
    cfgWriteEntry(list.name,
                  {CFG_MAC_LIST, macFamily.textFamily, CFG_ROLE_ENTRY,
                   standard ? CFG_SYNC_MAC_STANDARD : CFG_SYNC_MAC_EXTENDED, entry.block.seq, line,
                   line, cfgRequestOf(request)},
                  remove != 0, true);
}
