// What the debug shell can ask about prefix lists, and the operator's checks of access and prefix
// lists. All of it is text. Checks by hand take no lock: they run on the thread that changes lists.
#include <string>

#include "ask/prefixWords.h"
#include "common/hitCount.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// A dump is for a terminal: it shows the head of a long list and says so. Filling ends before the
// two bytes do that number the made-up prefixes.
constexpr uint32_t SCREEN_ENTRIES = 20;
constexpr uint32_t POPULATE_MAX = 60000;

std::string_view familyWord(uint32_t af) {
    return af == AF_IPV4 ? "ip" : "ipv6";
}

// --- arguments -----------------------------------------------------------------------------------

// 1 or 2, as requests number the families.
std::optional<uint32_t> parseFamily(std::string_view word) {
    auto af = parseNumber(word, AF_IPV6);
    return af && *af >= AF_IPV4 ? af : std::nullopt;
}

// --- dumps ---------------------------------------------------------------------------------------

// Numbers with a sign, as all texts of these records show them.
void addListLine(std::string& out, const prefixList& list) {
    out += familyWord(list.family);
    out += " prefix-list ";
    out += listNameView(list.name);
    out += list.placeholder != 0 ? ", placeholder" : "";
    textWordSigned(out, ", entries ", static_cast<uint32_t>(list.count));
    textWordSigned(out, ", with ranges ", static_cast<uint32_t>(list.rangeEntries));
    textWordSigned(out, ", numbers ", list.lowestSeq);
    textWordSigned(out, " to ", list.highestSeq);
    textWordSigned(out, ", last id ", list.lastEntryId);
    out += '\n';
}

void addClients(std::string& out, const prefixList& list) {
    for (const listClient* client = list.clients; client != nullptr; client = client->next) {
        if (client->kind == CLIENT_ROUTE_MAP) {
            out += "  route map ";
            out += listNameView(client->rmapName);
            textWordSigned(out, ", clauses ", client->references);
        } else {
            textWordSigned(out, "  task ", client->id);
            textWordSigned(out, " instance ", client->instance);
            textWordSigned(out, ", pairs ", client->pairCount);
        }
        out += '\n';
    }
}

std::string dumpInfo(std::string_view) {
    std::string out = "prefix lists: ip ";
    textNumber(out, zekRadixCount(aclNode->trees.prefix_tree));
    out += ", ipv6 ";
    textNumber(out, zekRadixCount(aclNode->trees.v6prefix_tree));
    out += "\nlast changed: ip ";
    out += aclNode->prefix.lastPrefixList;
    out += ", ipv6 ";
    out += aclNode->prefix.lastV6PrefixList;
    out += '\n';
    return out;
}

std::string dumpList(std::string_view args) {
    auto words = splitWords(args);
    auto af = words.size() == 2 ? parseFamily(words[1]) : std::nullopt;
    if (!af) return "usage: aclDumpPrefixList NAME 1|2\n";
    const prefixList* list = ipPrefixListFind(listNameMake(words[0]), *af);
    if (list == nullptr) return "no such prefix list\n";
    std::string out;
    addListLine(out, *list);
    addClients(out, *list);
    uint32_t lines = 0;
    for (const prefixEntry* entry = list->head; entry != nullptr && lines < SCREEN_ENTRIES;
         entry = entry->next, lines++) {
        out += " " + prefixEntryText(entry, *af);
        textWordSigned(out, " id ", entry->id);
        textWordSigned(out, " hits ", hitCountGet(entry->hits));
        out += '\n';
    }
    if (static_cast<uint32_t>(list->count) > lines) out += "  ...\n";
    return out;
}

void addFamily(std::string& out, uint32_t af) {
    for (const prefixList* list = ipPrefixListFindFirst(af); list != nullptr;
         list = ipPrefixListFindNext(list->name, af)) {
        addListLine(out, *list);
        addClients(out, *list);
    }
}
std::string dumpFamily(std::string_view args) {
    auto af = parseFamily(args);
    if (!af) return "usage: aclDumpAllAFPrefixList 1|2\n";
    std::string out;
    addFamily(out, *af);
    return out;
}
std::string dumpAll(std::string_view) {
    std::string out;
    for (uint32_t af : {AF_IPV4, AF_IPV6}) addFamily(out, af);
    return out;
}

// --- filling -------------------------------------------------------------------------------------

// Through the store's own operation, one entry at a time, so that a filled list is like one that
// was typed.
template <class Block>
uint32_t addNumbered(const listName& name, uint32_t number, uint32_t af) {
    Block block{};
    block.len = 24;
    block.address[0] = 10;  // 10.0.0.0/24, 10.0.1.0/24, ...; a00::/24, a00:100::/24, ...
    block.address[1] = static_cast<uint8_t>(number >> 8);
    block.address[2] = static_cast<uint8_t>(number);
    std::memset(block.mask, 0xFF, 3);
    return ipAddPrefixEntryExt(name, prefixRecordOf(block), af);
}

// For trying things out: as many entries as are asked for, behind those that are there.
std::string populate(std::string_view args) {
    auto words = splitWords(args);
    auto af = words.size() == 3 ? parseFamily(words[1]) : std::nullopt;
    auto count = af ? parseNumber(words[2], POPULATE_MAX) : std::nullopt;
    if (!count) return "usage: aclPopulatePrefixList NAME 1|2 COUNT\n";
    listName name = listNameMake(words[0]);
    // A list that is there already is taken as it is.
    uint32_t status = ipPrefixListCreateExt(name, 0, *af);
    uint32_t added = 0;
    while (status == ACL_OK && added < *count) {
        status = *af == AF_IPV4 ? addNumbered<prefix4EntryBlock>(name, added, *af)
                                : addNumbered<prefix6EntryBlock>(name, added, *af);
        if (status == ACL_OK) added++;
    }
    std::string out = "added ";
    textNumber(out, added);
    if (status != ACL_OK) out += std::string(": ") + aclStatusFind(status)->text;
    return out + "\n";
}

// --- verdicts ------------------------------------------------------------------------------------

// The verdict of a list for a prefix, with the entry that decided. A question counts nowhere.
std::string testList(std::string_view args) {
    auto words = splitWords(args);
    if (words.size() != 2 || words[1].find('/') == std::string_view::npos)
        return errorJson("usage: NAME PREFIX/LENGTH");
    auto route = parsePrefix(words[1]);
    if (!route) return errorJson("not a prefix: " + std::string(words[1]));
    aclLockHeld<aclLock::read> held;
    const prefixList* list = ipPrefixListFind(listNameMake(words[0]), route->family);
    if (list == nullptr || list->placeholder != 0)
        return errorJson(aclStatusFind(ACL_E_PREFIX_NOLIST)->text);
    const prefixEntry* entry = prefixFilterFind(list, *route);
    jsonObject answer;
    bool permits = entry != nullptr && entry->record->action != PREFIX_DENY;
    answer.string("verdict", permits ? "permit" : "deny");
    if (entry == nullptr) return answer.raw("entry", "null").text();
    return answer.string("entry", prefixEntryText(entry, route->family)).text();
}

std::string testIpPrefixList(std::string_view args) {
    auto words = splitWords(args);
    auto af = words.size() == 4 ? parseFamily(words[3]) : std::nullopt;
    auto route = af ? parsePrefix(*af, words[0], words[1]) : std::nullopt;
    if (!route) return "usage: aclTestIPPrefixList ADDRESS LENGTH NAME 1|2\n";
    const prefixList* list = ipPrefixListFind(listNameMake(words[2]), *af);
    // Counted as a hit, unlike testPrefixList: this is the function that client tasks call.
    bool denies = prefixFilterCheckv4_v6(list, *af, route->address, route->mask) == 1;
    return "Ipaddr = " + addressText(*af, route->address) +
           ", Ipmask = " + addressText(*af, route->mask) +
           ", Action = " + (denies ? "Deny" : "Permit") + "\r\n";
}

std::string ipPrefixCheck(std::string_view args) {
    auto words = splitWords(args);
    auto af = words.size() == 4 ? parseFamily(words[3]) : std::nullopt;
    auto route = af ? parsePrefix(*af, words[0], words[1]) : std::nullopt;
    if (!route) return "usage: ipPrefixCheck ADDRESS LENGTH NAME 1|2\n";
    const prefixList* list = ipPrefixListFind(listNameMake(words[2]), *af);
    if (list == nullptr) return {};  // nothing is said of a list that there is not
    return prefixFilterCheck(list, *route) != 0 ? "filter\n" : "permit\n";
}

std::string ipAclCheck(std::string_view args) {
    auto words = splitWords(args);
    auto src = words.size() == 3 ? parseDotted(words[0]) : std::nullopt;
    auto dst = src ? parseDotted(words[1]) : std::nullopt;
    if (!dst) return "usage: ipAclCheck SOURCE DESTINATION LIST\n";
    const aclList* list = ipAccessListFind(listNameMake(words[2]));
    if (list == nullptr) return {};
    ipPacket packet{};
    packet.src = *src;
    packet.dst = *dst;
    return ipFilterCheck(list, packet, nullptr) != 0 ? "filter\n" : "permit\n";
}

}  // namespace

void aclRegisterPrefixFunctions() {
    zekDebugRegister("aclDumpPrefixInfo", "how many prefix lists, the last changed (text)",
                     dumpInfo);
    zekDebugRegister("aclDumpPrefixList", "NAME 1|2: a list of family IPv4|IPv6 (text)", dumpList);
    zekDebugRegister("aclDumpAllAFPrefixList", "1|2: every list of a family (text)", dumpFamily);
    zekDebugRegister("aclDumpAllPrefixList", "every prefix list with its clients (text)", dumpAll);
    zekDebugRegister("aclPopulatePrefixList", "NAME 1|2 COUNT: adds entries (text)", populate);
    zekDebugRegister("aclTestIPPrefixList", "ADDRESS LENGTH NAME 1|2: the action (text)",
                     testIpPrefixList);
    zekDebugRegister("testPrefixList", "NAME PREFIX/LENGTH: the verdict and its entry", testList);
    zekDebugRegister("ipPrefixCheck", "ADDRESS LENGTH NAME 1|2: filter or permit (text)",
                     ipPrefixCheck);
    zekDebugRegister("ipAclCheck", "SOURCE DESTINATION LIST: filter or permit (text)", ipAclCheck);
}
