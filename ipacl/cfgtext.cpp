// Text of the IPv4 and DoS configuration lines.
//
// A line has two forms that differ in their address clauses only: a mask is a prefix length or a
// wildcard in the normal form, the mask itself in the inverse one. Each line is built once, in the
// form of the mode that is set; the clauses that show a mask belong to that form alone, and the
// other form is the same line without them. (When the mode changes, every line is written anew.)
#include <cstdio>

#include "common/debug.h"
#include "common/node.h"
#include "include/icmpNames.h"
#include "include/ipText.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"

namespace {

constexpr uint8_t NO_MAC[6] = {};
constexpr uint8_t ALL_ONES_MAC[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// A line under construction. Kept between lines, so that its memory is taken once.
struct lineText {
    std::string shown;
    struct {
        size_t at, length;
    } masked[2];  // the clauses that the other form lacks
    uint32_t maskedCount;
    std::string other;
};

lineText& lineStart(uint32_t seq) {
    static lineText line;
    line.shown.clear();
    line.maskedCount = 0;
    line.shown += " seq ";
    textNumber(line.shown, seq);
    return line;
}

void lineFinish(lineText& line) {
    line.other.clear();
    size_t from = 0;
    for (uint32_t i = 0; i < line.maskedCount; i++) {
        line.other.append(line.shown, from, line.masked[i].at - from);
        from = line.masked[i].at + line.masked[i].length;
    }
    line.other.append(line.shown, from);
}

// `action` is part of the clause: in a standard entry it shares the clause's fate.
void addAddress(lineText& line, std::string_view action, uint32_t address, uint32_t mask) {
    std::string& out = line.shown;
    size_t at = out.size();
    out += action;
    if (mask == 0xFFFFFFFF) {
        out += " host ";
        textDotted(out, address);
        return;
    }
    if (address == 0 && mask == 0) {
        out += " any";
        return;
    }
    bool inverse = aclNode->config.inverseMask != 0;
    out += ' ';
    textDotted(out, address);
    if (!inverse && maskIsContiguous(mask)) {
        out += '/';
        textNumber(out, maskPrefixLength(mask));
    } else {
        out += ' ';
        textDotted(out, inverse ? mask : ~mask);
    }
    line.masked[line.maskedCount++] = {at, out.size() - at};
}

void addDscp(std::string& out, const ipEntryBlock& block) {
    if (block.dscp != DSCP_NOT_GIVEN) textWordSigned(out, " dscp ", block.dscp);
}

void addOrderAndMonitor(std::string& out, const aclEntry& entry) {
    if (entry.block.order < ORDER_NOT_GIVEN) textWordSigned(out, " order ", entry.block.order);
    if (entry.monitor == 1) out += " monitor";
}

void addLogAndCounters(std::string& out, bool log, bool count, bool bytes) {
    if (log) out += " log";
    if (count) out += " count";
    if (bytes) out += " bytes";
}

void addTail(std::string& out, const aclEntry& entry) {
    const ipEntryBlock& block = entry.block;
    if (block.fragments == 1) out += " fragments";
    addLogAndCounters(out, entry.log != 0, (block.counterOptions & IP_COUNT) != 0,
                      (block.counterOptions & IP_BYTES) != 0);
    addOrderAndMonitor(out, entry);
}

std::string_view actionWord(const ipEntryBlock& block) {
    return block.action == IP_DENY ? " deny" : " permit";
}

void addStandard(lineText& line, const aclEntry& entry) {
    addAddress(line, actionWord(entry.block), entry.block.src, entry.block.srcMask);
    addDscp(line.shown, entry.block);
    addTail(line.shown, entry);
}

// What extended and DoS entries share: everything from the action to the ICMP type.
void addMatch(lineText& line, const ipEntryBlock& block, bool withDscp) {
    std::string& out = line.shown;
    out += actionWord(block);
    textProtocol(out, block.protocol, block.protocol == IP_PROTO_ANY && block.protoMarker == 0,
                 " ip");
    bool ports = ipHasPorts(block.protocol);
    addAddress(line, {}, block.src, block.srcMask);
    if (ports) out += aclCmpPortPrint(block.srcOperator, block.srcLow, block.srcHigh);
    addAddress(line, {}, block.dst, block.dstMask);
    if (ports) out += aclCmpPortPrint(block.dstOperator, block.dstLow, block.dstHigh);
    if (withDscp) addDscp(out, block);
    if (block.protocol == IP_PROTO_TCP) textTcpFlags(out, block.tcpFlags);
    if (block.precedence != FIELD_NOT_GIVEN) textWordSigned(out, " precedence ", block.precedence);
    if (block.tos != FIELD_NOT_GIVEN) textWordSigned(out, " tos ", block.tos);
    if (block.protocol == IP_PROTO_ICMP && block.icmp.typeGiven != 0)
        aclIcmpTypeCodeToString(out, block.icmp.type, block.icmp.typeGiven, block.icmp.code,
                                block.icmp.codeGiven);
}

// Without a blank in front: the words before it end with theirs.
void addMacPair(std::string& out, const uint8_t* address, const uint8_t* mask) {
    if (std::memcmp(address, NO_MAC, 6) == 0 && std::memcmp(mask, ALL_ONES_MAC, 6) == 0)
        out += "any";
    else
        l2aclPrintMacAddress(out, address, mask);
}

void addL2L3(std::string& out, const aclEntry& entry) {
    const ipEntryBlock& block = entry.block;
    out += actionWord(block);
    if (block.arpMarker != 0) {
        out += " arp ";
        addMacPair(out, block.mac1, block.mac1Mask);
        textWordSigned(out, " VLAN ", block.vlan);
        if (block.arpOpcode != 0) textWordSigned(out, " opcode ", block.arpOpcode);
        if (block.src == 0 && block.srcMask == 0) {
            out += " any";
        } else {
            // The mask as it is, whatever the mask mode: both forms show it.
            out += ' ';
            textDotted(out, block.src);
            out += '/';
            textNumber(out, maskPrefixLength(block.srcMask));
        }
    } else {
        out += " ether-type ";
        textNumber(out, block.etherType, 16);
        out += ' ';
        addMacPair(out, block.mac1, block.mac1Mask);
        textWordSigned(out, " VLAN ", block.vlan);
        out += ' ';
        addMacPair(out, block.mac2, block.mac2Mask);
    }
    addLogAndCounters(out, block.l2Log != 0, (block.l2CounterOptions & IP_COUNT) != 0,
                      (block.counterOptions & IP_BYTES) != 0);
    addOrderAndMonitor(out, entry);
}

lineText& entryLine(const aclEntry& entry) {
    const ipEntryBlock& block = entry.block;
    lineText& line = lineStart(block.seq);
    if (block.kind != IP_KIND_EXTENDED) {
        addStandard(line, entry);
    } else if (block.etherType != 0) {
        addL2L3(line.shown, entry);
    } else {
        addMatch(line, block, true);
        addTail(line.shown, entry);
    }
    return line;
}

cliIpEntryReq entryRequest(uint32_t code, const aclEntry& entry, const listName& name) {
    auto request = cfgCommand<cliIpEntryReq>(code, name);
    request.log = entry.log;
    request.monitor = entry.monitor;
    request.block = entry.block;
    return request;
}

}  // namespace

void textProtocol(std::string& out, uint8_t protocol, bool isAny, std::string_view any) {
    switch (protocol) {
        case IP_PROTO_TCP:
            out += " tcp";
            return;
        case IP_PROTO_UDP:
            out += " udp";
            return;
        case IP_PROTO_ICMP:
            out += " icmp";
            return;
        default:
            break;
    }
    if (isAny)
        out += any;
    else
        textWordSigned(out, " ", protocol);
}

void textTcpFlags(std::string& out, uint8_t flags, uint8_t except) {
    for (const tcpFlagRow& row : tcpFlagTable)
        if ((flags & row.bit & ~except) != 0) (out += ' ') += row.word;
}

const char* aclCmpPortPrint(uint32_t op, uint32_t first, uint32_t second) {
    static std::string text;
    constexpr const char* words[] = {"", " eq ", " gt ", " lt ", " neq ", " range "};
    text.clear();
    if (op == PORT_NONE) return text.c_str();
    if (op > PORT_RANGE) {
        text = " Error: Unknown operator value (";
        textSigned(text, static_cast<int32_t>(op));
        text += ") for ACL entry \n";  // the blank and the line feed go into the line: meant
        aclSysErr(SYSERR_LIST, "%s", text.c_str());
        return text.c_str();
    }
    textWordSigned(text, words[op], first);
    if (op == PORT_RANGE) textWordSigned(text, " ", second);
    return text.c_str();
}

void aclIcmpTypeCodeToString(std::string& out, uint32_t type, uint32_t typeGiven, uint32_t code,
                             uint32_t codeGiven) {
    if (typeGiven == 0) return;
    const char* word = icmpNameFind(type, codeGiven != 0 ? static_cast<int>(code) : -1);
    if (word != nullptr) {
        (out += ' ') += word;
        return;
    }
    textWordSigned(out, " ", type);
    if (codeGiven != 0) textWordSigned(out, " ", code);
}

void l2aclPrintMacAddress(std::string& out, const uint8_t* address, const uint8_t* mask) {
    constexpr char digits[] = "0123456789abcdef";
    for (int i = 0; i < 12; i++) {
        uint8_t byte = i < 6 ? address[i] : mask[i - 6];
        if (i != 0) out += i == 6 ? ' ' : ':';
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
}

void acl_sent_to_cfg(const listName& name, uint32_t remove, uint32_t kind, uint32_t ipv6) {
    if (listNameIsGenerated(name)) return;
    std::string line = "ipv6 access-list ";
    if (ipv6 == 0)
        line = kind == IP_KIND_STANDARD ? "ip access-list standard " : "ip access-list extended ";
    line += listNameView(name);
    auto request =
        cfgCommand<cliListReq>(ipv6 != 0 ? CLI_V6_LIST_CREATE : CLI_IP_LIST_CREATE, name);
    request.kind = kind;
    cfgWriteHeader(CFG_ACCESS_LIST, ipv6 != 0 ? CFG_FAMILY_V6 : CFG_FAMILY_V4, name, line,
                   cfgRequestOf(request), remove != 0);
}

std::string aclEntryText(const aclEntry* entry) {
    return entryLine(*entry).shown;
}

void acl_ent_sent_to_cfg(const aclEntry* entry, uint32_t remove, const listName& name) {
    if (listNameIsGenerated(name)) return;
    const ipEntryBlock& block = entry->block;
    bool extended = block.kind == IP_KIND_EXTENDED;
    lineText& line = entryLine(*entry);
    lineFinish(line);
    const cliIpEntryReq request = entryRequest(CLI_IP_ENTRY_ADD, *entry, name);
    cfgWriteEntry(name,
                  {CFG_ACCESS_LIST, CFG_FAMILY_V4, CFG_ROLE_ENTRY,
                   extended ? CFG_SYNC_EXTENDED : CFG_SYNC_STANDARD, block.seq, line.shown,
                   line.other, cfgRequestOf(request)},
                  remove != 0, true);
}

void dos_sent_to_cfg(const aclList* list, uint32_t remove) {
    if (listNameIsGenerated(list->name)) return;
    std::string line = "ip trace-list ";
    line += listNameView(list->name);
    auto request = cfgCommand<cliListReq>(CLI_DOS_LIST_CREATE, list->name);
    request.kind = list->kind & ~DOS_ACTIVE;  // enabling it is the line of its group
    cfgWriteHeader(CFG_TRACE_LIST, CFG_FAMILY_V4, list->name, line, cfgRequestOf(request),
                   remove != 0);
}

void dos_sent_to_cfg_enabled(const aclList* list, uint32_t add) {
    if (listNameIsGenerated(list->name)) return;
    std::string line = "ip trace-group ";
    line += listNameView(list->name);
    const auto request = cfgCommand<cliHdr>(CLI_DOS_ENABLE, list->name);
    cfgWriteHeader(CFG_TRACE_GROUP, CFG_FAMILY_V4, list->name, line, cfgRequestOf(request),
                   add == 0);
}

void dos_ent_sent_to_cfg(const aclEntry* entry, uint32_t remove, const listName& name) {
    if (listNameIsGenerated(name)) return;
    const ipEntryBlock& block = entry->block;
    lineText& line = lineStart(block.seq);
    addMatch(line, block, false);
    addLogAndCounters(line.shown, entry->log != 0, (block.counterOptions & IP_COUNT) != 0,
                      (block.counterOptions & IP_BYTES) != 0);
    lineFinish(line);
    const cliIpEntryReq request = entryRequest(CLI_DOS_ENTRY_ADD, *entry, name);
    cfgWriteEntry(name,
                  {CFG_TRACE_LIST, CFG_FAMILY_V4, CFG_ROLE_ENTRY, CFG_SYNC_EXTENDED, block.seq,
                   line.shown, line.other, cfgRequestOf(request)},
                  remove != 0, false);
}
