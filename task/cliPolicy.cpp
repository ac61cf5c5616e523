// Commands about AS-path lists, route maps and prefix lists. (Those about community lists are only
// rows of the table.)
#include "include/policyMsg.h"
#include "task/cliCall.h"

namespace {

// The text fills its field when it has no NUL.
aspathRule ruleOf(const cliAspathReq* req) {
    return {{req->text, strnlen(req->text, sizeof req->text)}, req->option};
}

int32_t instanceOf(const cliCall& call) {
    return static_cast<int32_t>(uint32_t{call.as<cliRmapDeleteReq>()->seq});
}

// In the request: an entry's address stands behind its record.
const prefixRecord& entryOf(const cliCall& call) {
    return call.family == AF_IPV4 ? prefixRecordOf(call.as<cliPrefix4Req>()->entry)
                                  : prefixRecordOf(call.as<cliPrefix6Req>()->entry);
}

}  // namespace

// --- AS-path lists -------------------------------------------------------------------------------

uint32_t cliAspathEntryAdd(cliCall& call) {
    const auto* req = call.as<cliAspathReq>();
    return bgpAddASPAccessEntryExt(call.name(), req->action, ruleOf(req));
}

uint32_t cliAspathEntryDelete(cliCall& call) {
    const auto* req = call.as<cliAspathReq>();
    return bgpDelASPAccessEntryExt(call.name(), req->action, ruleOf(req), 1);
}

// --- route maps ----------------------------------------------------------------------------------

// The number that an instance was given goes back in the answer.
uint32_t cliRmapCreate(cliCall& call) {
    auto* req = call.as<cliRmapReq>();
    int32_t seq = static_cast<int32_t>(uint32_t{req->seq});
    const uint32_t status = ipRmapListCreateExt(call.name(), req->action, &seq, 0);
    req->seq = static_cast<uint32_t>(seq);
    return status;
}

uint32_t cliRmapDelete(cliCall& call) {
    // Requests may end before `named`: the bytes behind them are zero.
    return ipRmapListDeleteExt(call.name(), instanceOf(call), call.as<cliRmapDeleteReq>()->named);
}

uint32_t cliRmapInstanceDelete(cliCall& call) {
    return ipDelRmapEntryAllFinExt(call.name(), instanceOf(call));
}

uint32_t cliRmapEntryAdd(cliCall& call) {
    return ipAddRmapEntryExt(call.name(), &call.as<cliRmapClauseReq>()->clause, call.family);
}

uint32_t cliRmapEntryDelete(cliCall& call) {
    return ipDelRmapEntryExt(call.name(), &call.as<cliRmapClauseReq>()->clause, call.family);
}

// The request says which of the two.
uint32_t cliRmapEntryChange(cliCall& call) {
    const uint32_t operation = call.as<cliRmapClauseReq>()->operation;
    if (operation > 1) return ACL_E_SYSTEM;
    return operation == 0 ? cliRmapEntryAdd(call) : cliRmapEntryDelete(call);
}

uint32_t cliAsNotation(cliCall& call) {
    return aclRmapProcessBgpASNotationFormat(call.as<cliWordReq>()->word);
}

// --- prefix lists --------------------------------------------------------------------------------

uint32_t cliPrefixListCreate(cliCall& call) {
    return ipPrefixListCreateExt(call.name(), 0, call.family);
}

uint32_t cliPrefixEntryAdd(cliCall& call) {
    return ipAddPrefixEntryExt(call.name(), entryOf(call), call.family);
}

uint32_t cliPrefixEntryDelete(cliCall& call) {
    return ipDelPrefixEntryExt(call.name(), entryOf(call), 1, call.family);
}

uint32_t cliPrefixClearAll(cliCall& call) {
    return prefixClearIpListAllExt(call.family);
}

uint32_t cliPrefixShow(cliCall& call) {
    uint32_t resume = call.as<cliShowReq>()->resume;
    return prefixShowIpListExt(call.shownName(), &call.buffer, &call.size, call.detail, &resume,
                               call.family);
}

uint32_t cliPrefixShowAll(cliCall& call) {
    uint32_t resume = call.as<cliShowReq>()->resume;
    return prefixShowIpListAllExt(call.shownName(), &call.buffer, &call.size, call.detail, &resume,
                                  call.family);
}

uint32_t cliPrefixResequence(cliCall& call) {
    const auto* req = call.as<cliPrefixReseqReq>();
    return ipReseqPrefixListExt(call.name(), req->start, req->step, req->family);
}
