// Text of the IPv6 configuration lines and shows: the extended IPv4 grammar without its IPv4-only
// pieces. Masks are prefix lengths in either mask mode, so a line's two forms are the same.
#include <bit>
#include <cstring>

#include "common/hitCount.h"
#include "include/ipText.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"

namespace {

struct halves {
    uint64_t high, low;
    explicit halves(const uint8_t bytes[16]) {
        std::memcpy(&high, bytes, sizeof high);
        std::memcpy(&low, bytes + sizeof high, sizeof low);
    }
};

uint32_t prefixLength(const uint8_t mask[16]) {
    uint32_t bits = 0;
    for (int i = 0; i < 16; i++) {
        bits += static_cast<uint32_t>(std::countl_one(mask[i]));
        if (mask[i] != 0xFF) break;
    }
    return bits;
}

// A mask with holes shows as the length of its front: read back, the line is another rule.
bool isLength(const uint8_t mask[16]) {
    const halves bits(mask);
    return std::popcount(bits.high) + std::popcount(bits.low) ==
           static_cast<int>(prefixLength(mask));
}

void addAddress(std::string& out, const uint8_t address[16], const uint8_t mask[16]) {
    const halves value(address), bits(mask);
    if ((value.high | value.low | bits.high | bits.low) == 0) {
        out += " any";
        return;
    }
    const bool host = (bits.high & bits.low) == ~uint64_t{0};
    out += host ? " host " : " ";
    textAddress6(out, address);
    if (host) return;
    out += '/';
    textNumber(out, prefixLength(mask));
}

// Everything but the tail.
void addEntry(std::string& line, const ip6EntryBlock& block) {
    line += " seq ";
    textNumber(line, block.seq);
    line += block.action == IP_DENY ? " deny" : " permit";
    if (block.protocol == IP_PROTO_ICMP6)
        line += " icmp";
    else if (block.protocol == IP_PROTO_ICMP)  // the word is ICMPv6's
        line += " 1";
    else
        textProtocol(line, block.protocol, block.protocol == IP_PROTO_ANY && block.protoMarker == 0,
                     " ipv6");
    const bool ports = ipHasPorts(block.protocol);
    addAddress(line, block.src, block.srcMask);
    if (ports && block.srcOperator != PORT_NONE)
        line += aclCmpPortPrint(block.srcOperator, block.srcLow, block.srcHigh);
    addAddress(line, block.dst, block.dstMask);
    if (ports && block.dstOperator != PORT_NONE)
        line += aclCmpPortPrint(block.dstOperator, block.dstLow, block.dstHigh);
    if (block.protocol == IP_PROTO_TCP) textTcpFlags(line, block.tcpFlags, TCP_ESTABLISHED);
    if (block.protocol == IP_PROTO_ICMP6) {
        // By numbers: the names are those of ICMP's own types.
        if (block.icmp.typeGiven != 0) textWordSigned(line, " ", block.icmp.type);
        if (block.icmp.typeGiven != 0 && block.icmp.codeGiven != 0)
            textWordSigned(line, " ", block.icmp.code);
    }
}

void addCountersAndMonitor(std::string& line, const acl6Entry& entry) {
    if ((entry.block.counterOptions & IP_COUNT) != 0) line += " count";
    if ((entry.block.counterOptions & IP_BYTES) != 0) line += " bytes";
    if (entry.monitor == 1) line += " monitor";
}

}  // namespace

std::string ip6EntryText(const acl6Entry& entry) {
    std::string line;
    addEntry(line, entry.block);
    if (entry.log != 0) line += " log";
    addCountersAndMonitor(line, entry);
    return line;
}

void v6acl_ent_sent_to_cfg(const acl6Entry* entry, uint32_t remove, const listName& name) {
    if (listNameIsGenerated(name)) return;
    auto request = cfgCommand<cliIp6EntryReq>(CLI_V6_ENTRY_ADD, name);
    request.log = entry->log;
    request.block = entry->block;
    request.monitor = entry->monitor;
    const std::string line = ip6EntryText(*entry);
    if (remove == 0 && !(isLength(entry->block.srcMask) && isLength(entry->block.dstMask)))
        cfgNotShown++;
    cfgWriteEntry(name,
                  {CFG_ACCESS_LIST, CFG_FAMILY_V6, CFG_ROLE_ENTRY, CFG_SYNC_EXTENDED,
                   entry->block.seq, line, line, cfgRequestOf(request)},
                  remove != 0, true);
}

// The configuration's lines, with the matches of those that log.
std::string ip6ListText(const aclList& list) {
    std::string out = "IPv6 access list ";
    out.reserve(showRoom(list));
    out += listNameView(list.name);
    out += "\r\n";
    for (const acl6Entry& entry : entriesOf<const acl6Entry>(list.head)) {
        entryFetch<acl6Entry>(entry.next);
        addEntry(out, entry.block);
        if (entry.log != 0) {
            textWordSigned(out, " log (", hitCountGet(entry.matchCount));
            out += " matches)";
        }
        addCountersAndMonitor(out, entry);
        out += "\r\n";
    }
    return out;
}
