// Requests about routing-policy lists: what a line says, written into its request.
#include <algorithm>
#include <cstring>

#include "cli/request/request.h"
#include "include/routeMapNames.h"

namespace {

template <size_t L>
void fillPrefix(const cliPolicy& p, prefixEntryBlock<L>& entry) {
    entry.seq = p.seq;
    entry.action = p.action;
    entry.ge = p.ge;
    entry.le = p.le;
    entry.len = p.len;
    std::memcpy(entry.address, p.address, L);
    std::memcpy(entry.mask, p.mask, L);
}

// Both halves have an array of their own in the records.
void fillValues(const cliPolicy& p, be32* high, be32* low) {
    for (uint32_t i = 0; i < p.valueCount; i++) {
        high[i] = p.values[i].high;
        low[i] = p.values[i].low;
    }
}

void fillSetCommunity(const cliPolicy& p, rmapCommunity& c) {
    c.number = p.number;
    fillValues(p, c.high, c.low);
    c.count = p.valueCount;
    c.localAs = p.localAs;
    c.noAdvertise = p.noAdvertise;
    c.noExport = p.noExport;
    c.additive = p.additive;
    c.none = p.none;
}

// The other form of a clause's request, about IPv6.
constexpr uint32_t clauseCodes[][2] = {
    {CLI_RMAP_ENTRY_ADD, CLI_RMAP_V6_ENTRY_ADD},
    {CLI_RMAP_ENTRY_DELETE, CLI_RMAP_V6_ENTRY_DELETE},
};

}  // namespace

void fillPrefix4(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->cli.name = scope.list;
    fillPrefix(command.policy, request->prefix4.entry);
}
void fillPrefix6(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->cli.name = scope.list;
    fillPrefix(command.policy, request->prefix6.entry);
}
// One code for both families, which the record names.
void fillPrefixResequence(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    fillResequence(command, scope, request);
    request->prefixResequence.family = command.kind == KIND_PREFIX6 ? AF_IPV6 : AF_IPV4;
}

void fillAspath(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->cli.name = scope.list;
    request->aspath.action = command.policy.action;
    // The grammar has checked the length; the record is zero, so the text is terminated.
    command.text.copy(request->aspath.text, ASPATH_TEXT_LEN - 1);
}

void fillCommunity(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    const cliPolicy& p = command.policy;
    commEntryBlock& entry = request->community.entry;
    request->cli.name = scope.list;
    entry.action = p.action;
    // An entry is either an expression or values, never both.
    entry.kind = p.isExpression ? COMM_REGEXP : COMM_VALUES;
    entry.number = p.number;
    fillValues(p, entry.high, entry.low);
    entry.count = p.valueCount;
    entry.localAs = p.localAs;
    entry.noAdvertise = p.noAdvertise;
    entry.noExport = p.noExport;
    if (p.isExpression) command.text.copy(entry.text, sizeof entry.text - 1);
}

void fillExtCommunity(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    const cliPolicy& p = command.policy;
    extCommEntryBlock& entry = request->extCommunity.entry;
    request->cli.name = scope.list;
    entry.action = p.action;
    entry.kind = p.isExpression ? COMM_REGEXP : COMM_VALUES;
    entry.body.selector = p.selector;
    entry.body.count = p.extCount;
    if (p.isExpression)
        command.text.copy(entry.body.text, sizeof entry.body.text - 1);
    else
        std::copy_n(p.extValues, p.extCount, entry.body.values);
}

void fillRouteMap(const cliCommand& command, const cliScope&, cliRequest* request) {
    request->routeMap.action = command.policy.action;
    request->routeMap.seq = command.policy.seq;
}
void fillRouteMapDelete(const cliCommand& command, const cliScope&, cliRequest* request) {
    request->routeMapDelete.seq = command.policy.seq;
    request->routeMapDelete.named = command.policy.named;
}

void fillClause(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    const cliPolicy& p = command.policy;
    // Every code that the grammar sets has a row.
    const rmapCodeRow& row = *rmapCodeFind(p.code);
    rmapClauseBlock& clause = request->clause.clause;
    request->cli.name = scope.list;
    request->clause.operation = command.negated;
    // A clause about IPv6 is the same record under a code of its own.
    if (row.cls == RTMAP_MS_V6_MATCH || row.cls == RTMAP_MS_V6_SET)
        for (const auto& codes : clauseCodes)
            if (request->cli.code == codes[0]) request->cli.code = codes[1];
    clause.cls = row.cls;
    clause.code = row.code;
    clause.kind = row.kind;
    // A clause says in full to which instance it belongs, because the manager keeps no mode of
    // ours.
    clause.seq = scope.seq;
    clause.action = scope.action;
    clause.value = row.style == RMAP_STYLE_INTERFACE ? scope.ifindex : p.value;
    clause.subValue = static_cast<uint16_t>(p.subValue);
    if (row.kind == RMAP_KIND_LIST) clause.list = listNameMake(command.name);
    switch (row.style) {
        case RMAP_STYLE_COMMUNITY:
            return fillSetCommunity(p, clause.community);
        case RMAP_STYLE_EXTCOMMUNITY:
            std::copy_n(p.extValues, p.extCount, clause.extCommunity.values);
            clause.extCommunity.count = p.extCount;
            clause.extCommunity.additive = p.additive;
            return;
        case RMAP_STYLE_PREPEND:
            for (uint32_t i = 0; i < p.numberCount; i++) clause.prepend.as[i] = p.numbers[i];
            clause.prepend.count = p.numberCount;
            return;
        case RMAP_STYLE_DAMPENING:
            for (uint32_t i = 0; i < p.numberCount; i++) clause.dampening[i] = p.numbers[i];
            return;
        case RMAP_STYLE_IPV6:
            std::memcpy(clause.ipv6NextHop, p.address, sizeof clause.ipv6NextHop);
            return;
        case RMAP_STYLE_CONTINUE:
            // Without a number the map goes on at the next instance: no target to compare.
            clause.continueFlag = p.value != 0;
            clause.continueTarget = p.value;
            return;
        default:
            return;
    }
}
