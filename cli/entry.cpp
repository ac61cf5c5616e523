// Entry lines: what each word of a rule does to its 156-byte block.
#include "cli/grammar/grammar.h"
#include "include/icmpNames.h"
#include "include/ipText.h"
#include "include/status.h"

namespace {

constexpr uint32_t ETHER_TYPE_ARP = 0x806;  // an ARP rule without an ether-type would print as IP

void setAddress(ipEntryBlock& block, uint32_t side, uint32_t address, uint32_t mask) {
    (side == ENTRY_SRC ? block.src : block.dst) = address;
    (side == ENTRY_SRC ? block.srcMask : block.dstMask) = mask;
}

void setMac(ipEntryBlock& block, uint32_t side, const uint8_t* mac) {
    std::memcpy(side == ENTRY_SRC ? block.mac1 : block.mac2, mac, 6);
}
void setMacMask(ipEntryBlock& block, uint32_t side, const uint8_t* mask) {
    std::memcpy(side == ENTRY_SRC ? block.mac1Mask : block.mac2Mask, mask, 6);
}
// In a MAC mask the set bits are the ones that are not compared.
constexpr uint8_t MAC_ZERO[6] = {}, MAC_ONES[6] = {255, 255, 255, 255, 255, 255};

uint32_t low32(const cliValue& v) {
    return static_cast<uint32_t>(v.number);
}

// A rule below IP: the words of the IP header have no place in it.
void setLayer2(cliCommand& c, uint32_t etherType) {
    c.features &= ~uint32_t{F_NET | F_EXT};
    c.block.etherType = etherType;
    for (uint32_t side : {ENTRY_SRC, ENTRY_DST}) {
        setMac(c.block, side, MAC_ZERO);
        setMacMask(c.block, side, MAC_ONES);
    }
}

}  // namespace

ipEntryBlock entryBlank(uint32_t kind) {
    ipEntryBlock b{};
    b.precedence = FIELD_NOT_GIVEN;
    b.tos = FIELD_NOT_GIVEN;
    b.protocol = IP_PROTO_ANY;
    b.kind = kind;
    b.seq = SEQ_NOT_GIVEN;
    b.order = ORDER_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    return b;
}

// The largest number means "not given" in a request, so the range is checked before it is sent.
const char* entrySequence(cliCommand& c, const cliValue& v, const grammarNode&) {
    if (v.number > SEQ_MAX) return aclStatusFind(ACL_E_SEQ_RANGE)->text;
    c.block.seq = low32(v);
    c.seqColumn = static_cast<uint32_t>(v.column);
    c.features = (c.features & ~uint32_t{F_START}) | F_SEQ;
    return nullptr;
}

const char* entryAction(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.block.action = n.value;
    return nullptr;
}

const char* entryProtocol(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.block.protocol = static_cast<uint8_t>(n.value);
    if (n.value == IP_PROTO_TCP) c.features |= F_PORTS | F_TCP;
    if (n.value == IP_PROTO_UDP) c.features |= F_PORTS;
    if (n.value == IP_PROTO_ICMP) c.features |= F_ICMP;
    return nullptr;
}

const char* entryProtocolNumber(cliCommand& c, const cliValue& v, const grammarNode& n) {
    grammarNode number = n;
    number.value = low32(v);
    // Protocol 4 needs the marker: without it 4 stands for every protocol.
    if (number.value == IP_PROTO_ANY) c.block.protoMarker = 1;
    return entryProtocol(c, v, number);
}

// "host" and the first of two addresses leave the mask to the next word; "any" is all zero.
const char* entryAddress(cliCommand& c, const cliValue& v, const grammarNode& n) {
    setAddress(c.block, n.value, v.address, 0);
    return nullptr;
}
const char* entryHost(cliCommand& c, const cliValue& v, const grammarNode& n) {
    setAddress(c.block, n.value, v.address, 0xFFFFFFFF);
    return nullptr;
}
const char* entryPrefix(cliCommand& c, const cliValue& v, const grammarNode& n) {
    setAddress(c.block, n.value, v.address, maskFromPrefix(v.length));
    return nullptr;
}
const char* entryMask(cliCommand& c, const cliValue& v, const grammarNode& n) {
    uint32_t mask = c.inverseMask ? v.address : ~v.address;
    (n.value == ENTRY_SRC ? c.block.srcMask : c.block.dstMask) = mask;
    return nullptr;
}

const char* entryPortOperator(cliCommand& c, const cliValue&, const grammarNode& n) {
    (n.value >> 8 == ENTRY_SRC ? c.block.srcOperator : c.block.dstOperator) = n.value & 255;
    return nullptr;
}
const char* entryPortLow(cliCommand& c, const cliValue& v, const grammarNode& n) {
    (n.value == ENTRY_SRC ? c.block.srcLow : c.block.dstLow) = static_cast<uint16_t>(v.number);
    return nullptr;
}
const char* entryPortHigh(cliCommand& c, const cliValue& v, const grammarNode& n) {
    uint16_t low = n.value == ENTRY_SRC ? c.block.srcLow : c.block.dstLow;
    if (v.number < low) return "The second port of a range must not be below the first";
    (n.value == ENTRY_SRC ? c.block.srcHigh : c.block.dstHigh) = static_cast<uint16_t>(v.number);
    return nullptr;
}

const char* entryTcpFlag(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.block.tcpFlags = static_cast<uint8_t>(c.block.tcpFlags | n.value);
    return nullptr;
}

const char* entryIcmpName(cliCommand& c, const cliValue&, const grammarNode& n) {
    const icmpNameRow& row = icmpNameTable[n.value];
    c.block.icmp.type = row.type;
    c.block.icmp.typeGiven = 1;
    c.block.icmp.code = static_cast<uint8_t>(row.code < 0 ? 0 : row.code);
    c.block.icmp.codeGiven = row.code >= 0;
    return nullptr;
}
const char* entryIcmpType(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.icmp.type = static_cast<uint8_t>(v.number);
    c.block.icmp.typeGiven = 1;
    return nullptr;
}
const char* entryIcmpCode(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.icmp.code = static_cast<uint8_t>(v.number);
    c.block.icmp.codeGiven = 1;
    return nullptr;
}

const char* entryDscp(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.dscp = static_cast<uint8_t>(v.number);
    return nullptr;
}
const char* entryPrecedence(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.precedence = low32(v);
    return nullptr;
}
const char* entryTos(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.tos = low32(v);
    return nullptr;
}
const char* entryFragments(cliCommand& c, const cliValue&, const grammarNode&) {
    c.block.fragments = 1;
    return nullptr;
}
const char* entryLog(cliCommand& c, const cliValue&, const grammarNode&) {
    c.log = 1;
    if (ipEntryIsL2L3(c.block)) c.block.l2Log = 1;
    return nullptr;
}
// "count" of an ARP or ether-type rule has a word of its own; "bytes" has not.
const char* entryCounter(cliCommand& c, const cliValue&, const grammarNode& n) {
    if (n.value == IP_COUNT && ipEntryIsL2L3(c.block))
        c.block.l2CounterOptions = IP_COUNT;
    else
        c.block.counterOptions = static_cast<uint8_t>(c.block.counterOptions | n.value);
    return nullptr;
}
const char* entryOrder(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.order = low32(v);
    return nullptr;
}
const char* entryMonitor(cliCommand& c, const cliValue&, const grammarNode&) {
    c.monitor = 1;
    return nullptr;
}

const char* entryArp(cliCommand& c, const cliValue&, const grammarNode&) {
    c.block.arpMarker = 1;
    setLayer2(c, ETHER_TYPE_ARP);
    return nullptr;
}
const char* entryEtherType(cliCommand& c, const cliValue& v, const grammarNode&) {
    setLayer2(c, low32(v));
    return nullptr;
}
const char* entryMacAny(cliCommand& c, const cliValue&, const grammarNode& n) {
    setMac(c.block, n.value, MAC_ZERO);
    setMacMask(c.block, n.value, MAC_ONES);
    return nullptr;
}
const char* entryMac(cliCommand& c, const cliValue& v, const grammarNode& n) {
    setMac(c.block, n.value, v.mac);
    return nullptr;
}
const char* entryMacMask(cliCommand& c, const cliValue& v, const grammarNode& n) {
    setMacMask(c.block, n.value, v.mac);
    return nullptr;
}
const char* entryVlan(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.vlan = low32(v);
    return nullptr;
}
const char* entryOpcode(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.block.arpOpcode = low32(v);
    return nullptr;
}
