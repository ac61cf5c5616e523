// The grammar of the shell: one table of nodes for every mode. A node is a word or an argument,
// what it does to the command that is being read, and the state (set of nodes) that follows it. The
// parser, the help, the completion and the error reports all read these tables.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "include/policyMsg.h"

// Behind the first four: the mode of a list's lines, one for each cliKind.
enum class cliMode : uint8_t {
    exec,
    configure,
    interface,
    vlanGroup,
    standard,
    extended,
    trace,
    ip6,
    macStandard,
    macExtended,
    prefix4,
    prefix6,
    aspath,
    community,
    extCommunity,
    routeMap,
    count_,
};

enum class cliVerb : uint8_t {
    nothing,  // a comment or an empty line
    showRunning,
    showStartup,
    showUnresolved,
    retryUnresolved,
    discardUnresolved,
    showLists,  // cliPolicy::detail is the policyDetail
    showLogging,
    showSystem,
    showQueues,
    showCards,
    showCard,
    showInterfaces,  // cliCommand::text is the name of one, also of the three that follow
    showVlans,
    showPortChannels,
    showProtocols,
    showAccessGroups,
    showVlanGroups,  // cliCommand::number: with the cards
    showSourceGuard,
    showInstalled,
    showSystemLists,
    showClients,
    chassis,  // cliCommand::kind is the chassisCommand
    clearCounters,
    writeMemory,
    configure,
    debug,
    test,
    exit,
    end,
    list,  // header of a list
    traceGroup,
    maskMode,
    macEgress,
    dhcpTrap,
    interface,  // header of an interface; cliCommand::text is its name
    entry,      // a list's line
    remark,     // cliPolicy::seq is its number
    description,
    accessGroup,
    vlanGroup,  // header of an ACL VLAN group
    vlanGroupMember,
    vlanGroupList,
    sourceGuard,
    resequence,
    count_,
};

constexpr bool cliIsListLine(cliVerb verb) {
    return verb == cliVerb::entry || verb == cliVerb::remark || verb == cliVerb::description;
}

// The kinds of lists: cliCommand::kind of a verb that is about lists. What covers both kinds of
// IPv4 access lists, or of MAC lists, says "standard". kinds.cpp has a row for each.
enum cliKind : uint32_t {
    KIND_STANDARD,
    KIND_EXTENDED,
    KIND_TRACE,
    KIND_IP6,
    KIND_MAC_STANDARD,
    KIND_MAC_EXTENDED,
    KIND_PREFIX4,
    KIND_PREFIX6,
    KIND_ASPATH,
    KIND_COMMUNITY,
    KIND_EXTCOMMUNITY,
    KIND_RMAP,
    KIND_COUNT,
    KIND_SYSTEM,  // the manager's own, which only shows know
};

enum policyDetail : uint32_t { POLICY_PLAIN, POLICY_DETAIL, POLICY_SUMMARY };

// What a line about routing-policy lists says, before it becomes a request. All zero: nothing.
struct cliPolicy {
    uint32_t action;  // of an entry or an instance: 1 deny
    // Prefix entries. IPv4 addresses fill the first 4 bytes.
    uint32_t seq, ge, le;
    uint32_t named;  // rmapNamed
    uint8_t len;     // PREFIX_LEN_BITMASK: an arbitrary mask
    uint8_t address[16], mask[16];
    // Entries and clauses about communities.
    bool isExpression;  // cliCommand::text
    uint32_t number;
    uint32_t valueCount;
    struct {
        uint32_t high, low;
    } values[RMAP_COMMUNITIES];
    bool localAs, noAdvertise, noExport, additive, none;
    uint32_t selector;  // extCommSelector
    uint32_t extCount;
    extCommValue extValues[RMAP_EXTCOMMS];
    // Clauses: rmapCode and what its kind has beside cliCommand::name.
    uint32_t code, value, subValue;
    bool typed;                       // the kind of the list is given
    uint32_t numbers[RMAP_PREPENDS];  // of set as-path prepend and set dampening
    uint32_t numberCount;
    // Resequencing and paged shows.
    uint32_t start, step;
    uint32_t detail;
};

// What an entry line of an access list says, in the bytes that its request carries behind its
// front. Which of them follows from the list's kind.
union cliEntry {
    struct {
        be32 log, monitor;
        ipEntryBlock block;
    } ip;
    struct {
        be32 log;
        ip6EntryBlock block;
        be32 monitor;
    } ip6;
    struct {
        be32 log;
        macEntryBlock block;
        be32 counterOptions, order, monitor;
    } mac;
};
static_assert(sizeof(cliEntry::ip) == sizeof(cliIpEntryReq) - sizeof(cliHdr) &&
              sizeof(cliEntry::ip6) == sizeof(cliIp6EntryReq) - sizeof(cliHdr) &&
              sizeof(cliEntry::mac) == sizeof(cliMacEntryReq) - sizeof(cliHdr));
// Of each kind of list (cli/entry.h).
struct entryTable;
extern const entryTable standardEntries, extendedEntries, ip6Entries, macStandardEntries,
    macExtendedEntries;

// A line, read. Views point into the line.
struct cliCommand {
    cliVerb verb;
    bool negated;          // it began with "no"
    bool inverseMask;      // how a second dotted address is read: as the mask itself
    bool wide;             // restoring: values may be whatever their field can hold
    uint32_t features;     // which nodes apply, F_...
    uint32_t seen;         // options already given, O_...
    uint32_t firstColumn;  // of the first word, from 0
    uint32_t seqColumn;    // of the sequence number; NO_COLUMN when none was given
    uint32_t kind;         // cliKind; cardQuestion; chassisCommand
    uint32_t number;       // slot, CARD_CONTROL_PLANE, or route processor
    uint32_t direction;    // of a binding: 0 in, 1 out
    uint32_t implicitPermit;
    struct {
        be32 address;
        uint8_t mac[6];
    } pair;                   // of source guard; its VLAN is the number
    std::string_view vlans;   // of a binding (empty: not given), or of a group's members
    std::string_view name;    // list name, or name of a debug function
    std::string text;         // argument line of a debug function, words separated by one blank;
                              // name of an interface; expression of a routing-policy entry
    const entryTable* table;  // of the entries of the list whose mode it is
    cliEntry entry;
    cliPolicy policy;
};
constexpr uint32_t NO_COLUMN = 0xFFFFFFFF;
constexpr uint32_t CARD_CONTROL_PLANE = 20;  // in the place of a slot
enum cardQuestion : uint32_t { CARD_SUMMARY, CARD_LISTS, CARD_TRAPS, CARD_TRAPS_INSTALLED };

// A word's value, read as its node's argument kind wants it.
struct cliValue {
    std::string_view word;
    size_t column;
    uint64_t number;
    be32 address;
    uint32_t length;
    uint8_t mac[6];
    uint8_t address6[16];
    uint32_t high, low;
};

enum class cliArg : uint8_t {
    word,         // the keyword
    number,       // decimal within the node's limits
    joined,       // the same; the node's word may follow without a blank
    sequence,     // a sequence number: any decimal number, its range is the action's to check
    hex,          // within the node's limits
    address,      // A.B.C.D
    prefix,       // A.B.C.D/LEN
    mac,          // xx:xx:xx:xx:xx:xx
    address6,     // X:X::X
    prefix6,      // X:X::X/LEN
    pair,         // N:N
    addressPair,  // A.B.C.D:N
    as,           // an AS number: N or H.L
    name,         // a list name
    text,         // any one word
    quoted,       // one word, or several between quotation marks
    rest,         // the rest of the line, at least one word
    end,          // the line may end here
};

// Conditions of a node: all of its bits must be set in the command's features.
enum cliFeature : uint32_t {
    F_START = 1u << 0,     // no sequence number has been read yet
    F_POSITIVE = 1u << 1,  // no "no" has been read
    F_NEGATED = 1u << 2,
    F_SEQ = 1u << 3,     // a sequence number has been read
    F_EXEC = 1u << 4,    // typed in exec mode itself, not behind "do"
    F_LIST = 1u << 5,    // ordinary lists: monitor, remarks
    F_NET = 1u << 6,     // dscp, fragments
    F_EXT = 1u << 7,     // precedence, tos
    F_LAYER2 = 1u << 8,  // arp, ether-type
    F_PORTS = 1u << 9,
    F_TCP = 1u << 10,
    F_ICMP = 1u << 11,
    F_CLAUSE = 1u << 12,  // the clauses of a route map
    F_FRAME = 1u << 13,   // an ARP or ether-type rule, below IP
    F_V4 = 1u << 14,      // the addresses and words of IPv4
    F_V6 = 1u << 15,      // those of IPv6
    F_ORDER = 1u << 16,   // lists whose entries have an order
    F_MAC = 1u << 17,     // MAC lists
};

struct grammarNode;
struct grammarState;
// Applies a word to the command. Null, or the sentence that refuses the word.
// Actions know nothing of the words that follow: they set features, and the nodes say which they
// need.
typedef const char* (*cliAction)(cliCommand& command, const cliValue& value,
                                 const grammarNode& node);

struct grammarNode {
    cliArg kind;
    std::string_view
        word;  // the keyword, or how help shows the argument ("" for numbers: the limits)
    const char* help;
    const grammarState* next;  // null behind the end of a line
    cliAction action;          // may be null
    uint32_t value;            // the action's
    uint32_t when;             // F_... that must hold
    uint32_t once;             // O_... of an option that a line has once
    uint32_t low, high;
    uint32_t wideHigh;   // upper limit when a stored configuration is restored
    bool whole = false;  // a keyword that is not abbreviated, because a name may stand there
};

// A state's own nodes, and the state whose nodes apply there as well.
struct grammarState {
    std::span<const grammarNode> nodes = {};
    const grammarState* chain = nullptr;
    uint32_t when = 0;  // F_... that all nodes of this state need
};

// A mode is where its lines begin and what may stand in them.
struct grammarMode {
    const grammarState* start;
    uint32_t features;  // beside those that every line begins with
    uint32_t ipKind;    // of an IP or MAC list, as its header's request says it
    const char* prompt;
    const entryTable* table = &extendedEntries;  // of its entry lines, if they have blocks
};
const grammarMode& grammarModeOf(cliMode mode);
// Of a list's mode; KIND_COUNT of the others.
constexpr uint32_t kindOfMode(cliMode mode) {
    return mode < cliMode::standard
               ? uint32_t{KIND_COUNT}
               : static_cast<uint32_t>(mode) - static_cast<uint32_t>(cliMode::standard);
}
// The modes of lists stand in the order of the kinds, at the end.
constexpr cliMode modeOfKind(uint32_t kind) {
    return static_cast<cliMode>(kind + static_cast<uint32_t>(cliMode::standard));
}
static_assert(modeOfKind(KIND_COUNT) == cliMode::count_);
