// What an access list says about a packet or a frame: the debug functions "test-ip-filter",
// "test-ip6-filter" and "test-mac-filter". An operator's question counts nowhere.
#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ask/debugWords.h"
#include "ask/prefixWords.h"
#include "include/status.h"
#include "ipacl/text.h"
#include "l2acl/zekl2acl.h"
#include "match/zekPolicy.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

typedef std::vector<std::string_view> wordList;

// --- IP packets ---------------------------------------------------------------------------------

#define PAYLOAD_USAGE                                                                            \
    "NAME PROTOCOL SOURCE DESTINATION [src-port N] [dst-port N] [flags WORD,...] [icmp-type N] " \
    "[icmp-code N] "
constexpr char IP_USAGE[] = PAYLOAD_USAGE "[tos N] [fragment]";
constexpr char IP6_USAGE[] = PAYLOAD_USAGE "[fragment]";
#undef PAYLOAD_USAGE

// "ip" is no protocol that a packet could have.
std::optional<uint32_t> parseProtocol(std::string_view word, uint8_t icmp) {
    if (word == "tcp") return IP_PROTO_TCP;
    if (word == "udp") return IP_PROTO_UDP;
    if (word == "icmp") return icmp;
    return parseNumber(word, 255);
}

// "syn,ack": the flag words of the entry text, but "established", which no packet carries.
std::optional<uint32_t> parseFlags(std::string_view words) {
    uint32_t flags = 0;
    while (!words.empty()) {
        std::string_view word = words.substr(0, words.find(','));
        words.remove_prefix(std::min(word.size() + 1, words.size()));
        uint8_t bit = 0;
        for (const tcpFlagRow& row : tcpFlagTable)
            if (word == row.word && row.bit != TCP_ESTABLISHED) bit = row.bit;
        if (bit == 0) return {};
        flags |= bit;
    }
    return flags;
}

bool parseAddress(std::string_view word, uint32_t* address) {
    auto dotted = parseDotted(word);
    *address = dotted.value_or(0);
    return dotted.has_value();
}
bool parseAddress(std::string_view word, uint8_t (*address)[16]) {
    return parseAddressBytes(AF_IPV6, word, *address);
}

template <class Field>
bool takeValue(std::optional<uint32_t> number, Field* field) {
    *field = static_cast<Field>(number.value_or(0));
    return number.has_value();
}
// False: no such keyword, or no such value.
template <class Packet>
bool parseOption(std::string_view word, std::string_view value, Packet* packet) {
    if (word == "src-port") return takeValue(parseNumber(value, 65535), &packet->srcPort);
    if (word == "dst-port") return takeValue(parseNumber(value, 65535), &packet->dstPort);
    if (word == "flags") return takeValue(parseFlags(value), &packet->tcpFlags);
    if (word == "icmp-type") return takeValue(parseNumber(value, 255), &packet->icmpType);
    if (word == "icmp-code") return takeValue(parseNumber(value, 255), &packet->icmpCode);
    if constexpr (requires { packet->tos; })
        if (word == "tos") return takeValue(parseNumber(value, 255), &packet->tos);
    return false;
}

// Fills the packet; an empty text on success, else what is wrong.
// Keywords have a value behind them, but "fragment"; what is not given stays zero.
template <class Packet>
std::string parsePacket(const wordList& words, uint8_t icmp, Packet* packet) {
    if (!takeValue(parseProtocol(words[1], icmp), &packet->protocol))
        return "not a protocol: " + std::string(words[1]);
    if (!parseAddress(words[2], &packet->src)) return "not an address: " + std::string(words[2]);
    if (!parseAddress(words[3], &packet->dst)) return "not an address: " + std::string(words[3]);
    for (size_t i = 4; i < words.size(); i++) {
        if (words[i] == "fragment") {
            packet->laterFragment = true;
            continue;
        }
        if (i + 1 == words.size()) return "a value is missing after " + std::string(words[i]);
        if (!parseOption(words[i], words[i + 1], packet))
            return "not understood: " + std::string(words[i]) + " " + std::string(words[i + 1]);
        i++;
    }
    return {};
}
std::string parseIp(const wordList& words, ipPacket* packet) {
    return parsePacket(words, IP_PROTO_ICMP, packet);
}
std::string parseIp6(const wordList& words, ip6Packet* packet) {
    return parsePacket(words, IP_PROTO_ICMP6, packet);
}

// --- frames -------------------------------------------------------------------------------------

// A frame without an encapsulation is none that an entry could ask for by its ether-type.
constexpr char MAC_USAGE[] = "NAME SOURCE DESTINATION [ev2|snap|llc ETHERTYPE]";

// Two digits each, as texts show them.
bool parseMac(std::string_view word, uint8_t (*address)[6]) {
    if (word.size() != 3 * sizeof *address - 1) return false;
    for (size_t i = 0; i < sizeof *address; i++) {
        if (i > 0 && word[3 * i - 1] != ':') return false;
        if (!takeValue(parseNumber(word.substr(3 * i, 2), 255, 16), &(*address)[i])) return false;
    }
    return true;
}

std::string parseFrame(const wordList& words, macFrame* frame) {
    if (!parseMac(words[1], &frame->src)) return "not an address: " + std::string(words[1]);
    if (!parseMac(words[2], &frame->dst)) return "not an address: " + std::string(words[2]);
    if (words.size() == 3) return {};
    const auto* row =
        std::ranges::find(macEncapsulationTable, words[3], &macEncapsulationRow::word);
    if (row == std::ranges::end(macEncapsulationTable))
        return "not an encapsulation: " + std::string(words[3]);
    if (words.size() == 4) return "a value is missing after " + std::string(words[3]);
    frame->encapsulation = row->code;
    if (!takeValue(parseNumber(words[4], 0xFFFF, 16), &frame->etherType))
        return "not an ether-type: " + std::string(words[4]);
    return words.size() == 5 ? std::string() : "not understood: " + std::string(words[5]);
}

// --- the functions -------------------------------------------------------------------------------

struct ipTest {
    typedef ipPacket Packet;
    static constexpr const char* usage = IP_USAGE;
    static constexpr size_t leastWords = 4;
    static constexpr auto parse = parseIp;
    static constexpr auto list = ipAccessListFind;
    static constexpr auto find = ipFilterFind;
    static std::string text(const aclEntry& entry) { return aclEntryText(&entry); }
};
struct ip6Test {
    typedef ip6Packet Packet;
    static constexpr const char* usage = IP6_USAGE;
    static constexpr size_t leastWords = 4;
    static constexpr auto parse = parseIp6;
    static constexpr auto list = aclV6AccessListFind;
    static constexpr auto find = ip6FilterFind;
    static constexpr auto text = ip6EntryText;
};
struct macTest {
    typedef macFrame Packet;
    static constexpr const char* usage = MAC_USAGE;
    static constexpr size_t leastWords = 3;
    static constexpr auto parse = parseFrame;
    static constexpr auto list = l2AccessListFind;
    static constexpr auto find = macFilterFind;
    static std::string text(const l2AclEntry& entry) { return l2AclEntryText(entry); }
};

// The verdict of a list for a packet, with the entry that decided.
template <class Test>
std::string testFilter(std::string_view args) {
    auto words = splitWords(args);
    if (words.size() < Test::leastWords) return errorJson(std::string("usage: ") + Test::usage);
    typename Test::Packet packet{};
    if (std::string wrong = Test::parse(words, &packet); !wrong.empty()) return errorJson(wrong);

    aclLockHeld<aclLock::read> held;
    const aclList* list = Test::list(listNameMake(words[0]));
    if (list == nullptr || list->placeholder != 0)
        return errorJson(aclStatusFind(ACL_E_NOLIST)->text);
    const auto* decided = Test::find(list, packet);
    // Any action but deny permits, as it does for packets.
    bool permits = decided != nullptr && decided->block.action != IP_DENY;
    jsonObject answer;
    answer.string("verdict", permits ? "permit" : "deny");
    if (decided == nullptr) return answer.raw("entry", "null").text();
    jsonObject entry;
    entry.number("seq", decided->block.seq).string("text", Test::text(*decided));
    return answer.object("entry", entry).text();
}

}  // namespace

void aclRegisterFilterChecks() {
    zekDebugRegister("test-ip-filter", IP_USAGE, testFilter<ipTest>);
    zekDebugRegister("test-ip6-filter", IP6_USAGE, testFilter<ip6Test>);
    zekDebugRegister("test-mac-filter", MAC_USAGE, testFilter<macTest>);
}
