// Evaluation of AS-path and community lists for others: the exported entry points, and the check
// commands of the debug shell.
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "ask/bgpWords.h"
#include "ask/debugWords.h"
#include "match/bgpExports.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

// The exported entry points: client tasks call them on threads of their own, so each takes the read
// lock for exactly one evaluation.
int bgpAccessASPMatchFinExt(uint32_t listId, const void* attribute, uint32_t length) {
    return aclExt<aclLock::read, bgpAccessASPMatchFin>{}(listId, attribute, length);
}
int bgpAccessASPMatchWidthExt(uint32_t listId, uint32_t width, const void* attribute,
                              uint32_t length) {
    // Whoever calls may pass anything: a width that there is not means that the attribute has to
    // tell.
    const bgpAsWidth known = width == AS_WIDTH_2   ? AS_WIDTH_2
                             : width == AS_WIDTH_4 ? AS_WIDTH_4
                                                   : AS_WIDTH_UNKNOWN;
    return aclExt<aclLock::read, bgpAccessASPMatchWidth>{}(listId, known, attribute, length);
}
int bgpAccessCommMatchFinExt(uint32_t listId, const void* attribute, uint32_t length) {
    return aclExt<aclLock::read, bgpAccessCommMatchFin>{}(listId, attribute, length);
}
int bgpAccessCommMatchFinWithHandleExt(const bgpList* list, const void* attribute,
                                       uint32_t length) {
    return aclExt<aclLock::read, bgpAccessCommMatchFinWithHandle>{}(list, attribute, length);
}

int ipAsCheck(uint32_t count, const std::array<uint16_t, AS_CHECK_MAX>& as, uint32_t listId,
              std::string* out) {
    // More than there is room for is not judged.
    if (count > as.size()) return 0;
    // The attribute as it stands in a message: flags, type and length, then each segment with its
    // type, its count and AS numbers of two octets.
    constexpr uint8_t AS_PATH = 2, AS_SET = 1, AS_SEQUENCE = 2;
    std::vector<uint8_t> attribute{0, AS_PATH, static_cast<uint8_t>(4 + 4 * count)};
    // The same numbers as a sequence and as a set: a check by hand is to show both forms of text.
    for (uint8_t segment : {AS_SEQUENCE, AS_SET}) {
        attribute.push_back(segment);
        attribute.push_back(static_cast<uint8_t>(count));
        for (uint32_t i = 0; i < count; i++) {
            attribute.push_back(static_cast<uint8_t>(as[i] >> 8));
            attribute.push_back(static_cast<uint8_t>(as[i]));
        }
    }
    const auto length = static_cast<uint32_t>(attribute.size());
    // The size that the sentence below speaks of.
    char text[2048] = "";
    if (aspath_make_str_count(attribute.data(), length, text, sizeof text, AS_WIDTH_2) >=
        static_cast<int>(sizeof text))
        *out += "Error! aspath_make_str_count returns aspathstr with size greater than 2048\n";
    *out += std::string(text) + "\n";
    int verdict = bgpAccessASPMatchWidthExt(listId, AS_WIDTH_2, attribute.data(), length);
    *out += verdict == BGP_VERDICT_DENY ? "drop\n" : "matched, permit\n";
    return verdict;
}

namespace {

// The verdict of a list and the line of the entry that decided.
template <class Check>
std::string testList(bgpList* (*find)(const listName&), uint32_t noList, std::string_view name,
                     Check check) {
    aclLockHeld<aclLock::read> held;
    const bgpList* list = find(listNameMake(name));
    // A placeholder is there because something refers to it; to the operator there is no such list.
    if (list == nullptr || list->placeholder != 0) return errorJson(aclStatusFind(noList)->text);
    const bgpEntry* decided = nullptr;
    const int verdict = check(list, &decided);
    jsonObject answer;
    answer.string("verdict", verdict == BGP_VERDICT_DENY ? "deny" : "permit");
    // Nothing matched: the implicit deny.
    if (decided == nullptr) return answer.raw("entry", "null").text();
    return answer.string("entry", bgpEntryLine(list->kind, decided)).text();
}

std::string testAspath(std::string_view args) {
    auto words = splitWords(args);
    if (words.empty()) return errorJson("usage: NAME PATH");
    // Joined with one blank, as paths are shown and expressions expect them.
    std::string path;
    for (size_t i = 1; i < words.size(); i++) path += (i > 1 ? " " : "") + std::string(words[i]);
    return testList(bgpASPAccessListFind, ACL_E_ASPATH_NOLIST, words[0],
                    [&](const bgpList* list, const bgpEntry** decided) {
                        return aspathListCheck(list, path, decided);
                    });
}

constexpr char COMMUNITY_USAGE[] = "NAME [HIGH:LOW|NUMBER|no-export|...]... [exact]";

std::string testCommunity(std::string_view args) {
    auto words = splitWords(args);
    if (words.empty()) return errorJson(std::string("usage: ") + COMMUNITY_USAGE);
    // A word behind the communities, which none of them can look like.
    const bool exact = words.back() == "exact";
    std::vector<uint32_t> communities;
    for (size_t i = 1; i < words.size() - (exact ? 1 : 0); i++) {
        auto community = parseCommunity(words[i]);
        if (!community) return errorJson("not a community: " + std::string(words[i]));
        communities.push_back(*community);
    }
    return testList(bgpCommAccessListFind, ACL_E_COMM_NOLIST, words[0],
                    [&](const bgpList* list, const bgpEntry** decided) {
                        return commListCheck(list, communities, exact, decided);
                    });
}

constexpr char EXTCOMMUNITY_USAGE[] =
    "NAME [rt|soo [as4] AS:NUMBER|ADDRESS:NUMBER [non-trans]...]...";

std::string testExtCommunity(std::string_view args) {
    auto words = splitWords(args);
    if (words.empty()) return errorJson(std::string("usage: ") + EXTCOMMUNITY_USAGE);
    extCommWords communities;
    for (size_t i = 1; i < words.size(); i++)
        if (!takeExtCommunity(&communities, words[i]))
            return errorJson("not an extended community: " + std::string(words[i]));
    return testList(bgpExtCommListFind, ACL_E_EXTCOMM_NOLIST, words[0],
                    [&](const bgpList* list, const bgpEntry** decided) {
                        return extCommListCheck(list, communities.values, decided);
                    });
}

constexpr char AS_CHECK_USAGE[] = "COUNT AS1 AS2 AS3 AS4 LIST (text)";

std::string asCheck(std::string_view args) {
    auto words = splitWords(args);
    // Count, the AS numbers, list: always all of them, also when fewer count.
    uint32_t numbers[AS_CHECK_MAX + 2];
    bool understood = words.size() == std::size(numbers);
    for (size_t i = 0; understood && i < words.size(); i++) {
        const bool isAs = i >= 1 && i <= AS_CHECK_MAX;
        auto number = parseNumber(words[i], i == 0 ? AS_CHECK_MAX : isAs ? 0xFFFF : 0xFFFFFFFF);
        understood = number.has_value();
        numbers[i] = number.value_or(0);
    }
    if (!understood) return std::string("usage: ipAsCheck ") + AS_CHECK_USAGE + "\n";
    std::array<uint16_t, AS_CHECK_MAX> as;
    for (size_t i = 0; i < as.size(); i++) as[i] = static_cast<uint16_t>(numbers[1 + i]);
    std::string out;
    (void)ipAsCheck(numbers[0], as, numbers[AS_CHECK_MAX + 1], &out);
    return out;
}

}  // namespace

void aclRegisterBgpFunctions() {
    zekDebugRegister("testAspath", "NAME PATH", testAspath);
    zekDebugRegister("testCommunity", COMMUNITY_USAGE, testCommunity);
    zekDebugRegister("testExtCommunity", EXTCOMMUNITY_USAGE, testExtCommunity);
    zekDebugRegister("ipAsCheck", AS_CHECK_USAGE, asCheck);
}
