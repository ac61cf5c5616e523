// Evaluation of route maps by hand: the check commands of the debug shell.
#include <algorithm>
#include <string>
#include <vector>

#include "ask/bgpWords.h"
#include "ask/prefixWords.h"
#include "match/zekRmap.h"
#include "platform/api/zekTask.h"
#include "policy/rmap/zekroutemap.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

int ipRmapCheck(uint32_t prefix, uint32_t mask, const rmapList* map, std::string* out) {
    rmapRoute route, result;
    // Both words as they are: the mask need not be a prefix's.
    route.prefix.family = AF_IPV4;
    be32 address, bits;
    address = prefix;
    bits = mask;
    std::memcpy(route.prefix.address, &address, sizeof address);
    std::memcpy(route.prefix.mask, &bits, sizeof bits);
    const int verdict = ipRoutemapCheck(map, route, &result);
    if (verdict == 1)
        *out += "drop\n";
    else  // two blanks in front of the number: meant
        *out += "matched, set metric to  " + std::to_string(static_cast<int32_t>(result.metric)) +
                " \n";
    return verdict;
}

namespace {

// --- the route of a test -------------------------------------------------------------------------

using words = std::vector<std::string_view>;

// Either family: a route has a field for each.
bool parseAddress(std::string_view word, uint32_t* v4, uint8_t (&v6)[16]) {
    if (auto address = parseDotted(word)) {
        *v4 = *address;
        return true;
    }
    return parseAddressBytes(AF_IPV6, word, v6);
}

// A word of the table, or its number.
std::optional<uint32_t> parseWord(const rmapWordTable& table, std::string_view word) {
    for (uint32_t i = 0; i < table.count; i++)
        if (word == table.first[i].word) return table.first[i].value;
    return parseNumber(word, 0xFFFFFFFF);
}

std::optional<uint32_t> parseInterface(std::string_view word) {
    uint32_t ifindex;
    if (ifmLNameToIfIndex(std::string(word).c_str(), &ifindex) == 0) return ifindex;
    return parseNumber(word, 0xFFFFFFFF);
}

// Attributes that are a number or one of a table's words. The same rows read the question and write
// the answer.
struct numberWord {
    const char* word;
    uint32_t rmapRoute::*field;
    rmapWordTable table;
};
constexpr numberWord numberWords[] = {
    {"metric", &rmapRoute::metric, {}},
    {"tag", &rmapRoute::tag, {}},
    {"local-preference", &rmapRoute::localPreference, {}},
    {"weight", &rmapRoute::weight, {}},
    {"origin", &rmapRoute::origin, rmapWordsOf(rmapOrigins)},
    {"route-type", &rmapRoute::routeType, rmapWordsOf(rmapRouteTypes)},
    {"metric-type", &rmapRoute::metricType, rmapWordsOf(rmapMetricTypes)},
    {"level", &rmapRoute::level, rmapWordsOf(rmapLevels)},
};

// What ends the values of the attribute before it.
bool isKeyword(std::string_view word) {
    for (const numberWord& row : numberWords)
        if (word == row.word) return true;
    return word == "next-hop" || word == "route-source" || word == "interface" ||
           word == "as-path" || word == "community" || word == "extcommunity";
}

constexpr char USAGE[] =
    "NAME PREFIX/LENGTH [next-hop A] [route-source A] [interface NAME] [metric N] [tag N] "
    "[route-type WORD] [origin WORD] [local-preference N] [weight N] [metric-type WORD] "
    "[level WORD] [as-path AS...] [community HIGH:LOW|NAME...] [extcommunity rt|soo VALUE...]";

// One attribute from words[*at] on, its keyword included. False: not understood.
bool parseAttribute(const words& given, size_t* at, rmapRoute* route) {
    const std::string_view keyword = given[(*at)++];
    words values;  // several stand between quotation marks, or one behind the other
    for (; *at < given.size() && !isKeyword(given[*at]); ++*at)
        for (std::string_view word : splitWords(given[*at])) values.push_back(word);
    if (keyword == "as-path") {
        for (std::string_view as : values)
            (route->asPath += route->asPath.empty() ? "" : " ") += as;
        return true;
    }
    if (keyword == "community") {
        for (std::string_view word : values) {
            auto community = parseCommunity(word);
            if (!community) return false;
            route->communities.push_back(*community);
        }
        return true;
    }
    if (keyword == "extcommunity") {
        // The words "rt", "as4" and the like hold on from value to value.
        extCommWords taken;
        for (std::string_view word : values)
            if (!takeExtCommunity(&taken, word)) return false;
        route->extCommunities = std::move(taken.values);
        return true;
    }
    if (values.empty()) return false;
    // Kinds of routes and names of interfaces have several words.
    std::string value(values[0]);
    for (size_t i = 1; i < values.size(); i++) (value += ' ') += values[i];
    if (keyword == "next-hop") return parseAddress(value, &route->nextHop, route->nextHop6);
    if (keyword == "route-source") return parseAddress(value, &route->source, route->source6);
    if (keyword == "interface") {
        auto ifindex = parseInterface(value);
        route->ifindex = ifindex.value_or(0);
        return ifindex.has_value();
    }
    for (const numberWord& row : numberWords) {
        if (keyword != row.word) continue;
        auto number = parseWord(row.table, value);
        route->*row.field = number.value_or(0);
        return number.has_value();
    }
    return false;
}

// --- the answer ----------------------------------------------------------------------------------

void addRouteAddress(jsonObject& out, const char* key, uint32_t v4, const uint8_t (&v6)[16]) {
    std::string text;
    if (std::ranges::any_of(v6, [](uint8_t byte) { return byte != 0; }))
        textAddress6(text, v6);
    else if (v4 != 0)
        textDotted(text, v4);
    if (!text.empty()) out.string(key, text);
}

// What the route has; numbers of tables as their words.
jsonObject routeJson(const rmapRoute& route) {
    jsonObject out;
    out.string("prefix", addressText(route.prefix.family, route.prefix.address) + "/" +
                             std::to_string(ipPrefixLength(route.prefix)));
    addRouteAddress(out, "next-hop", route.nextHop, route.nextHop6);
    addRouteAddress(out, "route-source", route.source, route.source6);
    for (const numberWord& row : numberWords) {
        const uint32_t value = route.*row.field;
        const char* word = rmapWordFind(row.table, value);
        // Zero is a word only of the origin; of the others it means that nothing is given.
        if (word != nullptr && (value != 0 || row.field == &rmapRoute::origin))
            out.string(row.word, word);
        else if (value != 0)
            out.number(row.word, value);
    }
    if (!route.asPath.empty()) out.string("as-path", route.asPath);
    if (!route.communities.empty()) out.string("community", bgpCommunityText(route.communities));
    if (!route.extCommunities.empty())
        out.string("extcommunity", bgpExtCommunityText(route.extCommunities));
    if (route.dampening[0] != 0) {
        std::string text;
        for (uint32_t word : route.dampening)
            text += (text.empty() ? "" : " ") + std::to_string(word);
        out.string("dampening", text);
    }
    return out;
}

// The clause with the value that held, or with all of its values.
std::string clauseText(const rmapStep& step) {
    std::string text = rmapClauseName(*step.entry);
    // The text is the configuration line's, piece by piece.
    auto add = [&](const rmapNameValue* name, const rmapNumberValue* number) {
        text += ' ';
        if (rmapCodeFind(step.entry->code)->style == RMAP_STYLE_PREFIX_LIST) text += "prefix-list ";
        rmapValueText(text, *step.entry, name, number);
    };
    switch (step.entry->kind) {
        // A match clause with several values holds for one of them, which is shown alone; a clause
        // that does not hold shows all.
        case RMAP_KIND_LIST:
            if (step.name != nullptr) add(step.name, nullptr);
            for (const rmapNameValue* name = step.entry->names;
                 step.name == nullptr && name != nullptr; name = name->next)
                add(name, nullptr);
            break;
        case RMAP_KIND_NUMBER:
            if (step.number != nullptr) add(nullptr, step.number);
            for (const rmapNumberValue* number = step.entry->numbers;
                 step.number == nullptr && number != nullptr; number = number->next)
                add(nullptr, number);
            break;
        default:
            add(nullptr, nullptr);
    }
    // Lines have blanks of their own at the ends of names and values.
    for (size_t two; (two = text.find("  ")) != text.npos;) text.erase(two, 1);
    if (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

std::string trailJson(const std::vector<rmapStep>& trail) {
    std::string out, clauses;
    // Steps come flat: an instance, then its clauses. The answer nests them, so an instance is
    // written when the next one begins.
    const rmapStep* instance = nullptr;
    auto finish = [&] {
        if (instance == nullptr) return;
        jsonObject one;
        one.number("seq", static_cast<uint32_t>(instance->instance->seq))
            .string("action", instance->instance->action == RMAP_DENY ? "deny" : "permit")
            .flag("holds", instance->holds)
            .raw("clauses", "[" + clauses + "]");
        out += (out.empty() ? "" : ",") + one.text();
        clauses.clear();
    };
    for (const rmapStep& step : trail) {
        if (step.entry == nullptr) {
            finish();
            instance = &step;
            continue;
        }
        jsonObject one;
        one.string("clause", clauseText(step)).flag("holds", step.holds);
        clauses += (clauses.empty() ? "" : ",") + one.text();
    }
    finish();
    return "[" + out + "]";
}

std::string testRouteMap(std::string_view args) {
    const words given = splitQuoted(args);
    rmapRoute route;
    if (given.size() < 2) return errorJson(std::string("usage: ") + USAGE);
    const auto prefix = parsePrefix(given[1]);
    if (!prefix) return errorJson("not a prefix: " + std::string(given[1]));
    route.prefix = *prefix;
    for (size_t at = 2; at < given.size();) {
        const std::string_view keyword = given[at];
        if (!isKeyword(keyword) || !parseAttribute(given, &at, &route))
            return errorJson("not understood: " + std::string(keyword) +
                             (at - 1 < given.size() && given[at - 1] != keyword
                                  ? " " + std::string(given[at - 1])
                                  : ""));
    }

    // Taken after the arguments are read, for as short as can be.
    aclLockHeld<aclLock::read> held;
    const rmapList* map = ipRmapListFind(listNameMake(given[0]));
    if (map == nullptr || map->placeholder != 0)
        return errorJson(aclStatusFind(ACL_E_NORMAP)->text);
    std::vector<rmapStep> trail;
    const int verdict = ipRoutemapCheck(map, route, &route, &trail);
    // With "continue" several instances hold; the last of them decided.
    const rmapInstance* decided = nullptr;
    for (const rmapStep& step : trail)
        if (step.entry == nullptr && step.holds) decided = step.instance;
    jsonObject answer;
    answer.string("verdict", verdict == 1 ? "deny" : "permit");
    if (decided != nullptr)
        answer.string("entry", rmapInstanceText(map->name, decided->action, decided->seq));
    else
        answer.raw("entry", "null");
    answer.raw("trail", trailJson(trail));
    // A route that is denied is changed by nobody.
    if (verdict == 0) answer.object("route", routeJson(route));
    return answer.text();
}

std::string rmapCheck(std::string_view args) {
    const words given = splitWords(args);
    auto prefix = given.size() == 3 ? parseDotted(given[0]) : std::nullopt;
    auto mask = given.size() == 3 ? parseDotted(given[1]) : std::nullopt;
    if (!prefix || !mask) return "usage: ipRmapCheck PREFIX MASK NAME\n";
    std::string out;
    (void)ipRmapCheck(*prefix, *mask, ipRmapListFind(listNameMake(given[2])), &out);
    return out;
}

}  // namespace

void aclRegisterRmapChecks() {
    zekDebugRegister("testRouteMap", USAGE, testRouteMap);
    zekDebugRegister("ipRmapCheck", "PREFIX MASK NAME (text)", rmapCheck);
}
