// The entry lines of AS-path, community and extended-community lists, and the values that they
// share with the set clauses of route maps.
#include "cli/grammar/build.h"

namespace {

// Words that a line has at most once.
enum : uint32_t {
    O_NUMBER = 1u << 0,
    O_LOCAL_AS = 1u << 1,
    O_NO_ADVERTISE = 1u << 2,
    O_NO_EXPORT = 1u << 3,
    O_ADDITIVE = 1u << 4,
    O_NONE = 1u << 5,
};
constexpr uint8_t EXTCOMM_NON_TRANSITIVE = 0x40;
enum extCommType : uint8_t { EXTCOMM_AS2 = 0, EXTCOMM_IPV4 = 1, EXTCOMM_AS4 = 2 };

// (its size in the request, with the NUL)
const char* setExpression(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (v.word.size() >= n.value) return "The expression is too long";
    c.policy.isExpression = true;
    c.text = v.word;
    return nullptr;
}

// A clause shows its number alone: values beside it would not be saved.
const char* checkCommunity(const cliCommand& c, bool isNumber) {
    const cliPolicy& p = c.policy;
    const bool clash = p.number != 0 || (isNumber && p.valueCount != 0);
    if ((c.features & F_CLAUSE) == 0 || !clash) return nullptr;
    return "The communities are one number, or AS:N";
}
const char* setCommunityNumber(cliCommand& c, const cliValue& v, const grammarNode&) {
    if (const char* why = checkCommunity(c, true)) return why;
    c.policy.number = static_cast<uint32_t>(v.number);
    return nullptr;
}
const char* addCommunity(cliCommand& c, const cliValue& v, const grammarNode&) {
    cliPolicy& p = c.policy;
    if (const char* why = checkCommunity(c, false)) return why;
    // The fields are wider than a community's halves: an old configuration may carry more, which is
    // kept as it is.
    if (!c.wide && (v.high > 65535 || v.low > 65535))
        return "Both parts of a community are at most 65535";
    // A clause's record has more room than a list's entry.
    if (p.valueCount == ((c.features & F_CLAUSE) != 0 ? RMAP_COMMUNITIES : COMM_LIST_VALUES))
        return "There are too many communities in one line";
    p.values[p.valueCount++] = {v.high, v.low};
    return nullptr;
}
// High and low part of (extCommType); 6 bytes hold them, and one part has only 2 of these.
const char* addExtCommunity(cliCommand& c, const cliValue& v, const grammarNode& n) {
    cliPolicy& p = c.policy;
    if (p.extCount == ((c.features & F_CLAUSE) != 0 ? RMAP_EXTCOMMS : EXTCOMM_LIST_VALUES))
        return "There are too many communities in one line";
    bool narrowHigh = n.value == EXTCOMM_AS2;
    if ((narrowHigh ? v.high : v.low) > 65535)
        return narrowHigh ? "The AS number is at most 65535: write \"as4\" before a larger one"
                          : "The number behind the colon is at most 65535";
    uint64_t body = narrowHigh ? uint64_t{v.high} << 32 | v.low : uint64_t{v.high} << 16 | v.low;
    extCommValue& value = p.extValues[p.extCount++];
    value.b[0] = static_cast<uint8_t>(n.value);
    value.b[1] = static_cast<uint8_t>(p.selector);
    // Behind type and selector: AS and number, in the widths that the type says.
    for (uint32_t i = 0; i < 6; i++) value.b[2 + i] = static_cast<uint8_t>(body >> (40 - 8 * i));
    return nullptr;
}
const char* setNonTransitive(cliCommand& c, const cliValue&, const grammarNode&) {
    uint8_t& type = c.policy.extValues[c.policy.extCount - 1].b[0];
    type = static_cast<uint8_t>(type | EXTCOMM_NON_TRANSITIVE);
    return nullptr;
}

extern const grammarState sAspathText, sCommunityEntry, sCommunityText, sExtEntry, sExtText,
    sExtValues, sExtAs4, sExtFlags;

// --- AS-path lists -----------------------------------------------------------------------------

constexpr auto aspathNodes =
    verdictNodes("let matching paths pass", "drop matching paths", sAspathText);
// Expressions hold blanks, bars and quotation marks: everything up to the end is theirs.
constexpr grammarNode aspathText[] = {
    arg(cliArg::rest, "EXPRESSION", "a regular expression, to the end of the line", sDone,
        setExpression, ASPATH_TEXT_LEN),
};
constexpr grammarState sAspathText{aspathText};

// --- communities -------------------------------------------------------------------------------

constexpr auto communityNodes =
    verdictNodes("let matching routes pass", "drop matching routes", sCommunityEntry);
// A list shows it with a sign.
constexpr grammarNode communityNumber(uint32_t high, uint32_t when) {
    grammarNode node = number("a community as one number", 1, high, sCommunityValues,
                              setCommunityNumber, 0, 0xFFFFFFFF);
    node.when = when;
    node.once = O_NUMBER;
    return node;
}
// An entry may begin with a number or be an expression; the values apply in either case.
constexpr grammarNode communityEntry[] = {
    communityNumber(0x7FFFFFFF, 0),
    kw("regexp", "a regular expression", sCommunityText),
};
constexpr grammarState sCommunityEntry{communityEntry, &sCommunityValues};
constexpr grammarNode communityText[] = {
    arg(cliArg::rest, "EXPRESSION", "to the end of the line", sDone, setExpression,
        sizeof commEntryBlock::text),
};
constexpr grammarState sCommunityText{communityText};
template <bool cliPolicy::*flag>
constexpr grammarNode communityFlag(std::string_view word, const char* help, uint32_t once,
                                    uint32_t when = 0,
                                    const grammarState& next = sCommunityValues) {
    return kw(word, help, next, setPolicy<flag>, true, when, once);
}
constexpr grammarNode communityValues[] = {
    arg(cliArg::pair, "AS:N", "a community", sCommunityValues, addCommunity),
    communityNumber(0xFFFFFFFF, F_CLAUSE),
    communityFlag<&cliPolicy::noExport>("no-export", "keep within the confederation", O_NO_EXPORT),
    communityFlag<&cliPolicy::noAdvertise>("no-advertise", "tell no peer", O_NO_ADVERTISE),
    communityFlag<&cliPolicy::localAs>("local-AS", "keep within the AS", O_LOCAL_AS),
    communityFlag<&cliPolicy::additive>("additive", "add to those that the route has", O_ADDITIVE,
                                        F_CLAUSE),
    communityFlag<&cliPolicy::none>("none", "remove all", O_NONE, F_CLAUSE),
    fin("that is all"),
};

// --- extended communities ----------------------------------------------------------------------

constexpr auto extNodes =
    verdictNodes("let matching routes pass", "drop matching routes", sExtEntry);
constexpr grammarNode extEntry[] = {
    kw("regexp", "a regular expression", sExtText),
};
constexpr grammarState sExtEntry{extEntry, &sExtCommunityType};
constexpr grammarNode extText[] = {
    arg(cliArg::rest, "EXPRESSION", "to the end of the line", sDone, setExpression,
        sizeof extCommBody::text),
};
constexpr grammarState sExtText{extText};
constexpr grammarNode extType[] = {
    kw("rt", "route targets", sExtValues, setPolicy<&cliPolicy::selector>, EXTCOMM_RT),
    kw("soo", "sites of origin", sExtValues, setPolicy<&cliPolicy::selector>, EXTCOMM_SOO),
    fin("whatever they are", F_NEGATED | F_CLAUSE),
};
constexpr grammarNode extValues[] = {
    arg(cliArg::pair, "AS:N", "two-octet AS and number", sExtFlags, addExtCommunity, EXTCOMM_AS2),
    arg(cliArg::addressPair, "A.B.C.D:N", "address and number", sExtFlags, addExtCommunity,
        EXTCOMM_IPV4),
    kw("as4", "a four-octet AS follows", sExtAs4),
    communityFlag<&cliPolicy::additive>("additive", "add to those that the route has", O_ADDITIVE,
                                        F_CLAUSE, sExtValues),
    fin("that is all"),
};
constexpr grammarState sExtValues{extValues};
constexpr grammarNode extAs4[] = {
    arg(cliArg::pair, "AS:N", "four-octet AS and number", sExtFlags, addExtCommunity, EXTCOMM_AS4),
};
constexpr grammarState sExtAs4{extAs4};
// The flag is about the value before it, so it can only stand there.
constexpr grammarNode extFlags[] = {
    kw("non-trans", "not transitive", sExtValues, setNonTransitive),
};
constexpr grammarState sExtFlags{extFlags, &sExtValues};

}  // namespace

constexpr grammarState sAspath{aspathNodes, &sDescription};
constexpr grammarState sCommunity{communityNodes, &sDescription};
constexpr grammarState sExtCommunity{extNodes, &sDescription};
constexpr grammarState sCommunityValues{communityValues};
constexpr grammarState sExtCommunityType{extType};
