// The clauses of route maps. Class, kind and the words of values come from rmapCodeTable; the
// states here are the words of the clauses' names.
#include <algorithm>
#include <array>
#include <cstring>

#include "cli/grammar/build.h"
#include "include/routeMapNames.h"

namespace {

constexpr cliAction setClause = setPolicy<&cliPolicy::code>;
constexpr cliAction setValue = setPolicy<&cliPolicy::value>;

// The words of a clause name the access list's code; that of the prefix list comes with the name.
const char* setListName(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (n.value != 0) c.policy.code = n.value;  // (the code of the list's other form)
    return setName(c, v, n);
}
const char* setAsPathValue(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.policy.code = RTMAP_SET_ASP;
    return setValue(c, v, n);
}
const char* setNextHop6(cliCommand& c, const cliValue& v, const grammarNode&) {
    std::memcpy(c.policy.address, v.address6, sizeof v.address6);
    return nullptr;
}
// An AS number of a path, or one of the four numbers of dampening, which the grammar counts.
const char* addNumber(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (c.policy.numberCount == RMAP_PREPENDS) return "At most 8 AS numbers can be prepended";
    c.policy.numbers[c.policy.numberCount++] = numberOf(v, n);
    return nullptr;
}

extern const grammarState sMatch, sMatchAccess, sMatchIp, sMatchIpv6, sSet, sSetAsPath, sSetIpv6;

// --- what follows a clause's name --------------------------------------------------------------

// States are named after what they read: a name, a number, a word of a table.
extern const grammarState sName, sExactName, sExact, sDeleteName, sDelete, sNumber, sAnyNumber,
    sAny, sAddress, sNextHop6, sMetric, sMetricNumber, sContinue, sAsNumbers, sAsNumber, sRouteType,
    sExternal, sOrigin, sLevel, sMetricType, sDampening2, sDampening3, sDampening4, sDampening;

constexpr grammarNode nameNodes[] = {
    nameArg("the list", sDone, setListName),
};
constexpr grammarState sName{nameNodes};
const char* setTypedList(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.policy.typed = true;
    return setListName(c, v, n);
}
// A list may be called "prefix-list" or "access-list" itself: then nothing follows the word.
constexpr grammarNode accessNameNodes[] = {
    nameArg("the access list", sDone, setTypedList),
    fin("a list called access-list"),
};
constexpr grammarState sAccessName{accessNameNodes};
// The prefix list's clause has a code of its own, and the words before it are the same.
template <uint32_t prefixCode>
constexpr grammarNode prefixNameNodes[] = {
    arg(cliArg::name, "NAME", "the prefix list", sDone, setTypedList, prefixCode),
    fin("an access list called prefix-list"),
};
template <uint32_t prefixCode>
constexpr grammarState sPrefixName{prefixNameNodes<prefixCode>};
template <uint32_t prefixCode>
constexpr grammarNode listNodes[] = {
    whole("prefix-list", "a prefix list", sPrefixName<prefixCode>, setListName),
    whole("access-list", "an access list", sAccessName, setListName),
    nameArg("an access list", sDone, setListName),
};
template <uint32_t prefixCode>
constexpr grammarState sList{listNodes<prefixCode>};

constexpr grammarNode exactNameNodes[] = {
    nameArg("the community list", sExact, setListName),
};
constexpr grammarState sExactName{exactNameNodes};
constexpr grammarNode exactNodes[] = {
    kw("exact", "the route has no other community", sDone, setClause, RTMAP_MATCH_COMM_EXACT),
    fin("that is all"),
};
constexpr grammarState sExact{exactNodes};
constexpr grammarNode deleteNameNodes[] = {
    nameArg("the community list", sDelete, setListName),
};
constexpr grammarState sDeleteName{deleteNameNodes};
constexpr grammarNode deleteNodes[] = {kw("delete", "take its communities away", sDone)};
constexpr grammarState sDelete{deleteNodes};

// A whole word of 32 bits: nothing is out of range.
constexpr grammarNode wordNumber(const char* help, const grammarState& next, cliAction action) {
    return number(help, 0, 0xFFFFFFFF, next, action);
}
constexpr grammarNode numberNodes[] = {wordNumber("value", sDone, setValue)};
constexpr grammarState sNumber{numberNodes};
constexpr grammarState sAnyNumber{numberNodes, &sAny};
constexpr grammarNode addressNodes[] = {
    arg(cliArg::address, "A.B.C.D", "address", sDone, setValue)};
constexpr grammarState sAddress{addressNodes};
constexpr grammarNode nextHop6Nodes[] = {
    arg(cliArg::address6, "X:X::X", "address", sDone, setNextHop6)};
constexpr grammarState sNextHop6{nextHop6Nodes};
// The sign is a word of its own, as the line shows it.
constexpr grammarNode metricNodes[] = {
    wordNumber("the new metric", sDone, setValue),
    kw("+", "add to the metric", sMetricNumber, setPolicy<&cliPolicy::subValue>, RMAP_METRIC_ADD),
    kw("-", "take from the metric", sMetricNumber, setPolicy<&cliPolicy::subValue>,
       RMAP_METRIC_SUBTRACT),
};
constexpr grammarState sMetric{metricNodes, &sAny};
constexpr grammarNode metricNumberNodes[] = {wordNumber("by how much", sDone, setValue)};
constexpr grammarState sMetricNumber{metricNumberNodes};
constexpr grammarNode continueNodes[] = {
    number("instance to continue at", 1, 0x7FFFFFFF, sDone, setValue),
    fin("at the next instance"),
};
constexpr grammarState sContinue{continueNodes};
constexpr grammarNode asNumbersNodes[] = {
    arg(cliArg::as, "AS", "AS number", sAsNumbers, addNumber),
    fin("that is all"),
};
constexpr grammarState sAsNumbers{asNumbersNodes};
constexpr grammarNode asNumberNodes[] = {arg(cliArg::as, "AS", "AS number", sAsNumbers, addNumber)};
constexpr grammarState sAsNumber{asNumberNodes, &sAny};

constexpr grammarNode dampeningNumber(const char* help, const grammarState& next) {
    return number(help, 0, 0x7FFFFFFF, next, addNumber, 0, 0xFFFFFFFF);
}
constexpr grammarNode dampening[] = {dampeningNumber("half-life", sDampening2)};
constexpr grammarState sDampening{dampening};
constexpr grammarNode dampening2[] = {dampeningNumber("reuse limit", sDampening3)};
constexpr grammarState sDampening2{dampening2};
constexpr grammarNode dampening3[] = {dampeningNumber("suppress limit", sDampening4)};
constexpr grammarState sDampening3{dampening3};
constexpr grammarNode dampening4[] = {dampeningNumber("longest suppression", sDone)};
constexpr grammarState sDampening4{dampening4};

// The words of a value's table: those of one word, or the second words of the others.
// "external type-1" is two words of a line and one of the table.
constexpr size_t secondWord(const rmapWord& row) {
    return std::string_view(row.word).find(' ');
}
template <const auto& words, bool second>
constexpr auto wordNodes = [] {
    constexpr auto isTaken = [](const rmapWord& row) {
        return (secondWord(row) != std::string_view::npos) == second;
    };
    std::array<grammarNode, std::ranges::count_if(words, isTaken)> nodes{};
    size_t at = 0;
    for (const rmapWord& row : words)
        if (isTaken(row))
            nodes[at++] = kw(std::string_view(row.word).substr(second ? secondWord(row) + 1 : 0),
                             "value", sDone, setValue, row.value);
    return nodes;
}();
// Behind "no" a set clause need not say its value: there is one of each kind.
constexpr grammarNode anyNodes[] = {fin("whatever it is", F_NEGATED)};
constexpr grammarState sAny{anyNodes};
constexpr grammarState sOrigin{wordNodes<rmapOrigins, false>};
constexpr grammarState sLevel{wordNodes<rmapLevels, false>, &sAny};
constexpr grammarState sMetricType{wordNodes<rmapMetricTypes, false>, &sAny};
constexpr auto routeTypeNodes = [] {
    auto nodes = wordNodes<rmapRouteTypes, false>;
    for (grammarNode& node : nodes)
        if (node.word == "external") node.next = &sExternal;
    return nodes;
}();
constexpr grammarState sRouteType{routeTypeNodes};
constexpr grammarState sExternal{wordNodes<rmapRouteTypes, true>, &sDone};

// --- the clauses -------------------------------------------------------------------------------

constexpr grammarNode clause(std::string_view word, const char* help, const grammarState& next,
                             rmapCode code) {
    return kw(word, help, next, setClause, code);
}
// Each of the names sets its clause's code; the table behind the code says what else there is to
// send.
constexpr grammarNode clauseNodes[] = {
    kw("match", "a condition of the instance", sMatch),
    kw("set", "what the instance changes", sSet),
    clause("continue", "go on at another instance", sContinue, RTMAP_CONT_CODE),
};
constexpr grammarNode matchNodes[] = {
    kw("ip", "parts of an IPv4 route", sMatchIp),
    kw("ipv6", "parts of an IPv6 route", sMatchIpv6),
    kw("access", "an access list", sMatchAccess),
    clause("as-path", "an AS-path list", sName, RTMAP_MATCH_ASP),
    clause("community", "a community list", sExactName, RTMAP_MATCH_COMM),
    clause("extcommunity", "an extended-community list", sName, RTMAP_MATCH_EXT_COMM),
    clause("interface", "where the next hop is", sInterface, RTMAP_MATCH_IFACE),
    clause("metric", "the metric", sNumber, RTMAP_MATCH_MET),
    clause("origin", "the BGP origin", sOrigin, RTMAP_MATCH_ORIGIN),
    clause("route-type", "the kind of route", sRouteType, RTMAP_MATCH_RTYPE),
    clause("tag", "the tag", sNumber, RTMAP_MATCH_TAG),
};
constexpr grammarState sMatch{matchNodes};
constexpr grammarNode matchAccessNodes[] = {
    clause("list", "the destination", sName, RTMAP_MATCH_ACC),
};
constexpr grammarState sMatchAccess{matchAccessNodes};
constexpr grammarNode matchIpNodes[] = {
    clause("address", "the destination", sList<RTMAP_MATCH_IPADD_PREFIX>, RTMAP_MATCH_IPADD_ACL),
    clause("next-hop", "the next hop", sList<RTMAP_MATCH_NHOP_PREFIX>, RTMAP_MATCH_NHOP),
    clause("route-source", "who told the route", sList<RTMAP_MATCH_SRC_PREFIX>, RTMAP_MATCH_SRC),
};
constexpr grammarState sMatchIp{matchIpNodes};
constexpr grammarNode matchIpv6Nodes[] = {
    clause("address", "the destination", sList<RTMAP_MATCH_IPV6ADD_PREFIX>,
           RTMAP_MATCH_IPV6ADD_ACL),
    clause("next-hop", "the next hop", sList<RTMAP_MATCH_V6_NHOP_PREFIX>, RTMAP_MATCH_V6_NHOP),
    clause("route-source", "who told the route", sList<RTMAP_MATCH_V6_SRC_PREFIX>,
           RTMAP_MATCH_V6_SRC),
};
constexpr grammarState sMatchIpv6{matchIpv6Nodes};
constexpr grammarNode setNodes[] = {
    kw("as-path", "the AS path", sSetAsPath),
    clause("automatic-tag", "compute the tag", sDone, RTMAP_SET_AUTOTAG),
    clause("comm-list", "communities to take away", sDeleteName, RTMAP_SET_COMMLIST),
    clause("community", "the communities", sCommunityValues, RTMAP_SET_COMM),
    clause("dampening", "four dampening numbers", sDampening, RTMAP_SET_DAMP),
    clause("extcommunity", "the extended communities", sExtCommunityType, RTMAP_SET_EXT_COMM),
    kw("ipv6", "of an IPv6 route", sSetIpv6),
    clause("level", "where the route is imported", sLevel, RTMAP_SET_LEVEL),
    clause("local-preference", "the local preference", sAnyNumber, RTMAP_SET_LPREF),
    clause("metric", "the metric", sMetric, RTMAP_SET_MET),
    clause("metric-type", "the kind of metric", sMetricType, RTMAP_SET_METTYPE),
    clause("next-hop", "the next hop", sAddress, RTMAP_SET_NHOP),
    clause("origin", "the BGP origin", sOrigin, RTMAP_SET_ORIGIN),
    clause("tag", "the tag", sAnyNumber, RTMAP_SET_TAG),
    clause("weight", "the weight", sNumber, RTMAP_SET_WEIGHT),
};
constexpr grammarState sSet{setNodes};
// "set as-path" is three clauses: the code comes with the last word, of a number with the number.
constexpr grammarNode setAsPathNodes[] = {
    clause("tag", "take it from the tag", sDone, RTMAP_SET_ASPTAG),
    clause("prepend", "AS numbers before it", sAsNumber, RTMAP_SET_PREPEND),
    number("value", 0, 0xFFFFFFFF, sDone, setAsPathValue),
};
constexpr grammarState sSetAsPath{setAsPathNodes};
constexpr grammarNode setIpv6Nodes[] = {
    clause("next-hop", "the next hop", sNextHop6, RTMAP_SET_V6_NHOP),
};
constexpr grammarState sSetIpv6{setIpv6Nodes};

}  // namespace

constexpr grammarState sRouteMap{clauseNodes, &sDescription};
