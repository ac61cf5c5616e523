// Entry lines: the table of the IPv4 entries' fields, and the actions that fill them.
#include "cli/entry.h"

#include <algorithm>

#include "cli/grammar/build.h"
#include "include/icmpNames.h"
#include "include/status.h"

namespace {

using W = entryWord;
using F = entryForm;

#define AT(member) \
    { offsetof(cliEntry, member), sizeof(cliEntry::member) }

constexpr entryField ipFields[] = {
    {W::sequence, F::value, AT(block.seq)},
    {W::action, F::value, AT(block.action)},
    {W::protocol, F::value, AT(block.protocol)},
    {W::literalProtocol, F::given, AT(block.protoMarker)},

    // "any" is no row: nothing is compared as long as no mask is given.
    {W::address, F::value, AT(block.src), AT(block.dst)},
    {W::host, F::value, AT(block.src), AT(block.dst)},
    {W::host, F::ones, AT(block.srcMask), AT(block.dstMask)},
    {W::prefix, F::value, AT(block.src), AT(block.dst)},
    {W::prefix, F::length, AT(block.srcMask), AT(block.dstMask)},
    {W::mask, F::wildcard, AT(block.srcMask), AT(block.dstMask)},

    {W::portOperator, F::value, AT(block.srcOperator), AT(block.dstOperator)},
    {W::port, F::value, AT(block.srcLow), AT(block.dstLow)},
    {W::lastPort, F::value, AT(block.srcHigh), AT(block.dstHigh)},
    {W::tcpFlag, F::bits, AT(block.tcpFlags)},
    {W::icmpType, F::value, AT(block.icmp.type)},
    {W::icmpType, F::given, AT(block.icmp.typeGiven)},
    {W::icmpCode, F::value, AT(block.icmp.code)},
    {W::icmpCode, F::given, AT(block.icmp.codeGiven)},

    {W::dscp, F::value, AT(block.dscp)},
    {W::precedence, F::value, AT(block.precedence)},
    {W::tos, F::value, AT(block.tos)},
    {W::fragments, F::given, AT(block.fragments)},
    {W::log, F::given, AT(log)},
    {W::log, F::given, AT(block.l2Log), AT(block.l2Log), F_FRAME},
    // "count" of an ARP or ether-type rule has a word of its own; "bytes" has not.
    {W::count, F::value, AT(block.l2CounterOptions), AT(block.l2CounterOptions), F_FRAME},
    {W::count, F::bits, AT(block.counterOptions), AT(block.counterOptions), 0, F_FRAME},
    {W::bytes, F::bits, AT(block.counterOptions)},
    {W::order, F::value, AT(block.order)},
    {W::monitor, F::given, AT(monitor)},

    // In a MAC mask the set bits are the ones that are not compared: until a MAC address is given,
    // which "any" does not do, all are set.
    {W::arp, F::given, AT(block.arpMarker)},
    {W::arp, F::value, AT(block.etherType)},
    {W::arp, F::ones, AT(block.mac1Mask)},
    {W::arp, F::ones, AT(block.mac2Mask)},
    {W::etherType, F::value, AT(block.etherType)},
    {W::etherType, F::ones, AT(block.mac1Mask)},
    {W::etherType, F::ones, AT(block.mac2Mask)},
    {W::mac, F::value, AT(block.mac1), AT(block.mac2)},
    {W::macMask, F::value, AT(block.mac1Mask), AT(block.mac2Mask)},
    {W::vlan, F::value, AT(block.vlan)},
    {W::opcode, F::value, AT(block.arpOpcode)},
};

#undef AT
static_assert(std::ranges::is_sorted(ipFields, {}, &entryField::word));

constexpr cliEntry ipBlank() {
    cliEntry blank{};
    ipEntryBlock& b = blank.block;
    b.precedence = FIELD_NOT_GIVEN;
    b.tos = FIELD_NOT_GIVEN;
    b.protocol = IP_PROTO_ANY;
    b.seq = SEQ_NOT_GIVEN;
    b.order = ORDER_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    return blank;
}

// What was read, in each of the ways in which a form may want it.
struct argument {
    uint64_t number;
    std::span<const uint8_t> bytes = {};  // of an address
    uint32_t length = 0;                  // of a prefix
};

void storeValue(std::span<uint8_t> field, const argument& a) {
    if (a.bytes.size() == field.size()) {
        std::ranges::copy(a.bytes, field.begin());
        return;
    }
    uint64_t left = a.number;
    for (size_t i = field.size(); i-- > 0; left >>= 8) field[i] = static_cast<uint8_t>(left);
}

void store(std::span<uint8_t> field, entryForm form, const argument& a, bool inverseMask) {
    switch (form) {
        case F::value:
            return storeValue(field, a);
        case F::bits:
            field.back() = static_cast<uint8_t>(field.back() | a.number);
            return;
        case F::given:
            field.back() = 1;
            return;
        case F::ones:
            std::ranges::fill(field, uint8_t{0xFF});
            return;
        case F::length:
            return fillMask(field, a.length);
        case F::wildcard:
            storeValue(field, a);
            for (uint8_t& byte : field) byte = static_cast<uint8_t>(inverseMask ? byte : ~byte);
            return;
    }
}

std::span<uint8_t> fieldOf(cliCommand& c, const entryField& f, uint32_t side) {
    const entryPlace& at = side == ENTRY_SRC ? f.source : f.destination;
    return {reinterpret_cast<uint8_t*>(static_cast<cliEntry*>(&c)) + at.offset, at.size};
}

// Fills every field that the word has a row for in the table of the line's family.
void put(cliCommand& c, entryWord word, uint32_t side, const argument& a) {
    for (const entryField& f : c.table->rowsOf(word))
        if ((f.when & ~c.features) == 0 && (f.unless & c.features) == 0)
            store(fieldOf(c, f, side), f.form, a, c.inverseMask);
}

// The number that a word has put into its field.
uint64_t taken(cliCommand& c, entryWord word, uint32_t side) {
    uint64_t number = 0;
    for (const entryField& f : c.table->rowsOf(word))
        for (uint8_t byte : fieldOf(c, f, side)) number = number << 8 | byte;
    return number;
}

entryWord wordOf(const grammarNode& n) {
    return static_cast<entryWord>(n.value >> 24);
}
uint32_t sideOf(const grammarNode& n) {
    return n.value >> 16 & 255;
}
uint64_t wordNumber(const cliValue& v, const grammarNode& n) {
    return n.kind == cliArg::word ? n.value & 0xFFFF : v.number;
}

}  // namespace

constexpr entryTable ipEntryTable{ipFields, ipBlank()};

const char* entryPut(cliCommand& c, const cliValue& v, const grammarNode& n) {
    put(c, wordOf(n), sideOf(n), {wordNumber(v, n), valueBytes(v, n.kind), v.length});
    return nullptr;
}

// The largest number means "not given" in a request, so the range is checked before it is sent.
const char* entrySequence(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (v.number > SEQ_MAX) return aclStatusFind(ACL_E_SEQ_RANGE)->text;
    noteSequence(c, v);
    return entryPut(c, v, n);
}

// A protocol may be typed as its word or as its number: both let the same words follow.
const char* entryProtocol(cliCommand& c, const cliValue& v, const grammarNode& n) {
    const uint64_t protocol = wordNumber(v, n);
    if (protocol == IP_PROTO_TCP) c.features |= F_PORTS | F_TCP;
    if (protocol == IP_PROTO_UDP) c.features |= F_PORTS;
    if (protocol == IP_PROTO_ICMP) c.features |= F_ICMP;
    // The number 4 needs a marker: without it 4 stands for every protocol, as "ip" does.
    if (protocol == IP_PROTO_ANY && n.kind == cliArg::number)
        put(c, entryWord::literalProtocol, ENTRY_SRC, {});
    return entryPut(c, v, n);
}

const char* entryLastPort(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (v.number < taken(c, entryWord::port, sideOf(n)))
        return "The second port of a range must not be below the first";
    return entryPut(c, v, n);
}

// A rule below IP: the words of the IP header have no place in it.
const char* entryFrame(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.features = (c.features & ~uint32_t{F_NET | F_EXT}) | F_FRAME;
    return entryPut(c, v, n);
}

const char* entryIcmpName(cliCommand& c, const cliValue&, const grammarNode& n) {
    const icmpNameRow& row = icmpNameTable[n.value];
    put(c, entryWord::icmpType, ENTRY_SRC, {row.type});
    if (row.code >= 0) put(c, entryWord::icmpCode, ENTRY_SRC, {static_cast<uint64_t>(row.code)});
    return nullptr;
}
