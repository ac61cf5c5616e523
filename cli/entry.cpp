// Entry lines: a table of fields for each family of entries, and the actions that fill them.
#include "cli/entry.h"

#include <algorithm>

#include "cli/grammar/build.h"
#include "include/icmpNames.h"
#include "include/status.h"

namespace {

using W = entryWord;
using F = entryForm;

// A field of cliEntry.
#define AT(member) \
    { offsetof(cliEntry, member), sizeof(cliEntry::member) }

constexpr entryField ipFields[] = {
    {W::sequence, F::value, AT(ip.block.seq)},
    {W::action, F::value, AT(ip.block.action)},
    {W::protocol, F::value, AT(ip.block.protocol)},
    {W::literalProtocol, F::given, AT(ip.block.protoMarker)},

    // "any" is no row: nothing is compared as long as no mask is given.
    {W::address, F::value, AT(ip.block.src), AT(ip.block.dst)},
    {W::host, F::value, AT(ip.block.src), AT(ip.block.dst)},
    {W::host, F::ones, AT(ip.block.srcMask), AT(ip.block.dstMask)},
    {W::prefix, F::value, AT(ip.block.src), AT(ip.block.dst)},
    {W::prefix, F::length, AT(ip.block.srcMask), AT(ip.block.dstMask)},
    {W::mask, F::wildcard, AT(ip.block.srcMask), AT(ip.block.dstMask)},

    {W::portOperator, F::value, AT(ip.block.srcOperator), AT(ip.block.dstOperator)},
    {W::port, F::value, AT(ip.block.srcLow), AT(ip.block.dstLow)},
    {W::lastPort, F::value, AT(ip.block.srcHigh), AT(ip.block.dstHigh)},
    {W::tcpFlag, F::bits, AT(ip.block.tcpFlags)},
    {W::icmpType, F::value, AT(ip.block.icmp.type)},
    {W::icmpType, F::given, AT(ip.block.icmp.typeGiven)},
    {W::icmpCode, F::value, AT(ip.block.icmp.code)},
    {W::icmpCode, F::given, AT(ip.block.icmp.codeGiven)},

    {W::dscp, F::value, AT(ip.block.dscp)},
    {W::precedence, F::value, AT(ip.block.precedence)},
    {W::tos, F::value, AT(ip.block.tos)},
    {W::fragments, F::given, AT(ip.block.fragments)},
    {W::log, F::given, AT(ip.log)},
    {W::log, F::given, AT(ip.block.l2Log), AT(ip.block.l2Log), F_FRAME},
    // "count" of an ARP or ether-type rule has a word of its own; "bytes" has not.
    {W::count, F::value, AT(ip.block.l2CounterOptions), AT(ip.block.l2CounterOptions), F_FRAME},
    {W::count, F::bits, AT(ip.block.counterOptions), AT(ip.block.counterOptions), 0, F_FRAME},
    {W::bytes, F::bits, AT(ip.block.counterOptions)},
    {W::order, F::value, AT(ip.block.order)},
    {W::monitor, F::given, AT(ip.monitor)},

    // In a MAC mask the set bits are the ones that are not compared: until a MAC address is given,
    // which "any" does not do, all are set.
    {W::arp, F::given, AT(ip.block.arpMarker)},
    {W::arp, F::value, AT(ip.block.etherType)},
    {W::arp, F::ones, AT(ip.block.mac1Mask)},
    {W::arp, F::ones, AT(ip.block.mac2Mask)},
    {W::etherType, F::value, AT(ip.block.etherType)},
    {W::etherType, F::ones, AT(ip.block.mac1Mask)},
    {W::etherType, F::ones, AT(ip.block.mac2Mask)},
    {W::mac, F::value, AT(ip.block.mac1), AT(ip.block.mac2)},
    {W::macMask, F::value, AT(ip.block.mac1Mask), AT(ip.block.mac2Mask)},
    {W::vlan, F::value, AT(ip.block.vlan)},
    {W::opcode, F::value, AT(ip.block.arpOpcode)},
};

// Masks are lengths, so there is neither an address that a mask follows nor a mask of its own.
constexpr entryField ip6Fields[] = {
    {W::sequence, F::value, AT(ip6.block.seq)},
    {W::action, F::value, AT(ip6.block.action)},
    {W::protocol, F::value, AT(ip6.block.protocol)},
    {W::literalProtocol, F::given, AT(ip6.block.protoMarker)},

    {W::host, F::value, AT(ip6.block.src), AT(ip6.block.dst)},
    {W::host, F::ones, AT(ip6.block.srcMask), AT(ip6.block.dstMask)},
    {W::prefix, F::value, AT(ip6.block.src), AT(ip6.block.dst)},
    {W::prefix, F::length, AT(ip6.block.srcMask), AT(ip6.block.dstMask)},

    {W::portOperator, F::value, AT(ip6.block.srcOperator), AT(ip6.block.dstOperator)},
    {W::port, F::value, AT(ip6.block.srcLow), AT(ip6.block.dstLow)},
    {W::lastPort, F::value, AT(ip6.block.srcHigh), AT(ip6.block.dstHigh)},
    {W::tcpFlag, F::bits, AT(ip6.block.tcpFlags)},
    {W::icmpType, F::value, AT(ip6.block.icmp.type)},
    {W::icmpType, F::given, AT(ip6.block.icmp.typeGiven)},
    {W::icmpCode, F::value, AT(ip6.block.icmp.code)},
    {W::icmpCode, F::given, AT(ip6.block.icmp.codeGiven)},

    {W::log, F::given, AT(ip6.log)},
    {W::count, F::bits, AT(ip6.block.counterOptions)},
    {W::bytes, F::bits, AT(ip6.block.counterOptions)},
    {W::monitor, F::given, AT(ip6.monitor)},
};

// Masks are wildcards: an address without one is compared whole, and "any" sets all bits.
constexpr entryField macFields[] = {
    {W::sequence, F::value, AT(mac.block.seq)},
    {W::action, F::value, AT(mac.block.action)},
    {W::any, F::ones, AT(mac.block.srcMask), AT(mac.block.dstMask)},
    {W::log, F::given, AT(mac.log)},
    {W::count, F::bits, AT(mac.counterOptions)},
    {W::bytes, F::bits, AT(mac.counterOptions)},
    // The request says it twice.
    {W::order, F::value, AT(mac.block.order)},
    {W::order, F::value, AT(mac.order)},
    {W::monitor, F::given, AT(mac.monitor)},
    {W::etherType, F::value, AT(mac.block.etherType)},
    {W::mac, F::value, AT(mac.block.src), AT(mac.block.dst)},
    {W::macMask, F::value, AT(mac.block.srcMask), AT(mac.block.dstMask)},
    {W::encapsulation, F::value, AT(mac.block.encapsulation)},
    {W::etherOperator, F::value, AT(mac.block.etherTypeOperator)},
};
#undef AT
constexpr bool isSorted(std::span<const entryField> rows) {
    return std::ranges::is_sorted(rows, {}, &entryField::word);
}
static_assert(isSorted(ipFields) && isSorted(ip6Fields) && isSorted(macFields));

constexpr cliEntry ipBlank(ipEntryKind kind) {
    cliEntry blank{};
    ipEntryBlock& b = blank.ip.block;
    b.kind = kind;
    b.precedence = FIELD_NOT_GIVEN;
    b.tos = FIELD_NOT_GIVEN;
    b.protocol = IP_PROTO_ANY;
    b.seq = SEQ_NOT_GIVEN;
    b.order = ORDER_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    return blank;
}
constexpr cliEntry ip6Blank() {
    cliEntry blank{.ip6 = {}};
    blank.ip6.block.protocol = IP_PROTO_ANY;
    blank.ip6.block.seq = SEQ_NOT_GIVEN;
    return blank;
}
constexpr cliEntry macBlank(ipEntryKind kind) {
    cliEntry blank{.mac = {}};
    macEntryBlock& b = blank.mac.block;
    b.type = kind;
    b.seq = SEQ_NOT_GIVEN;
    b.order = ORDER_NOT_GIVEN;
    blank.mac.order = ORDER_NOT_GIVEN;
    // A standard entry says nothing of the destination: any.
    if (kind == IP_KIND_STANDARD)
        for (uint8_t& byte : b.dstMask) byte = 0xFF;
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
    return {reinterpret_cast<uint8_t*>(&c.entry) + at.offset, at.size};
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

constexpr entryTable standardEntries{ipFields, ipBlank(IP_KIND_STANDARD)};
constexpr entryTable extendedEntries{ipFields, ipBlank(IP_KIND_EXTENDED)};
constexpr entryTable ip6Entries{ip6Fields, ip6Blank()};
constexpr entryTable macStandardEntries{macFields, macBlank(IP_KIND_STANDARD)};
constexpr entryTable macExtendedEntries{macFields, macBlank(IP_KIND_EXTENDED)};

const char* entryPut(cliCommand& c, const cliValue& v, const grammarNode& n) {
    put(c, wordOf(n), sideOf(n), {wordNumber(v, n), valueBytes(v, n.kind), v.length});
    return nullptr;
}

// The largest number means "not given" in a request, so the range is checked before it is sent.
const char* entrySequence(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (const char* why = checkSequence(v, n)) return why;
    noteSequence(c, v);
    return entryPut(c, v, n);
}

// A protocol may be typed as its word or as its number: both let the same words follow.
const char* entryProtocol(cliCommand& c, const cliValue& v, const grammarNode& n) {
    const uint64_t protocol = wordNumber(v, n);
    if (protocol == IP_PROTO_TCP) c.features |= F_PORTS | F_TCP;
    if (protocol == IP_PROTO_UDP) c.features |= F_PORTS;
    const bool ipv6 = (c.features & F_V6) != 0;
    if (protocol == (ipv6 ? IP_PROTO_ICMP6 : IP_PROTO_ICMP)) c.features |= F_ICMP;
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
