// The CLI dispatcher: one row per command code. The row says how long the request must be and what
// to do with the answer; the operation is one Ext wrapper.
#include <algorithm>
#include <iterator>

#include "common/cfgline.h"
#include "common/message.h"
#include "download/zekacl_download.h"
#include "include/cliMsg.h"
#include "include/policyMsg.h"
#include "interface/halAclMgr.h"
#include "interface/interface.h"
#include "platform/api/zekMem.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// A request and what its operation leaves beside the status.
struct cliCall {
    uint8_t* message;
    void* buffer = nullptr;  // a show's reply, freed once it is sent
    uint32_t size = 0;

    template <class Request>
    Request* as() const {
        return reinterpret_cast<Request*>(message);  // the row's length covers the record
    }
    listName name() const { return listNameMake(as<cliHdr>()->name); }
    uint32_t code() const { return as<cliHdr>()->code; }
};

// --- operations --------------------------------------------------------------------------------

uint32_t ipListCreate(cliCall& call) {
    uint32_t kind = call.as<cliListReq>()->kind;
    if (kind != IP_KIND_STANDARD && kind != IP_KIND_EXTENDED) return ACL_E_SYSTEM;
    return ipAccessListCreateExt(call.name(), kind, 0u, 0u);
}
uint32_t ipListDelete(cliCall& call) {
    return ipAccessListDeleteExt(call.name(), call.as<cliListReq>()->kind, 0u);
}
uint32_t ipEntryAdd(cliCall& call) {
    auto* req = call.as<cliIpEntryReq>();
    return ipAddAccessEntryExt(call.name(), &req->block, req->log, req->monitor, 0u);
}
uint32_t ipEntryDelete(cliCall& call) {
    return ipDelAccessEntryExt(call.name(), &call.as<cliIpEntryReq>()->block, 1u, 1u, 0u);
}
uint32_t dosListCreate(cliCall& call) {
    return ipDosListCreateExt(call.name(), uint32_t{call.as<cliListReq>()->kind}, 0u);
}
uint32_t dosListDelete(cliCall& call) {
    return ipDosListDeleteExt(call.name());
}
uint32_t dosEntryAdd(cliCall& call) {
    auto* req = call.as<cliIpEntryReq>();
    return ipAddDosEntryExt(call.name(), &req->block, uint32_t{req->log});
}
uint32_t dosEntryDelete(cliCall& call) {
    return ipDelDosEntryExt(call.name(), &call.as<cliIpEntryReq>()->block, 1u, 1u);
}
uint32_t dosEnable(cliCall& call) {
    return dosIpEnableIntfExt(call.name(), call.code());
}
uint32_t ipBind(cliCall& call) {
    const auto* req = call.as<cliBindReq>();
    bindingBlock block;
    static_assert(sizeof block == sizeof req->block);
    std::memcpy(&block, req->block, sizeof block);
    const aclBindRequest request{
        .ifindex = req->ifindex,
        .direction = req->direction,
        .implicitPermit = req->implicitPermit,
        .writeConfig = req->writeConfig,
        .block = &block,
        .vlanOption = req->vlanOption != 0,
        .vlanText = {req->vlanText, strnlen(req->vlanText, sizeof req->vlanText)}};
    return aclIpApplyIntfExt(call.name(), request, 0u);
}
uint32_t ipUnbind(cliCall& call) {
    const auto* req = call.as<cliUnbindReq>();
    return aclIpRemoveIntfExt(call.name(), req->ifindex, req->direction, 0u);
}
uint32_t lagMembers(cliCall& call) {
    auto* req = call.as<cliLagMembersReq>();
    if (ifindexType(req->ifindex) != IF_TYPE_LAG) return ACL_E_SYSTEM;
    aclLockHeld<aclLock::read> held;
    uint32_t count = 0;
    const uint32_t* members = aclLagMembers(req->ifindex, &count);
    count = std::min(count, static_cast<uint32_t>(CLI_LAG_MEMBERS_MAX));
    req->count = count;
    for (uint32_t i = 0; i < count; i++) req->members[i] = members[i];
    const size_t length = offsetof(cliLagMembersReq, members) + count * sizeof(be32);
    if (req->cli.ipc.length < length) req->cli.ipc.length = static_cast<uint32_t>(length);
    return ACL_OK;
}
// Whether a Telnet server may use the list: only one that is configured counts.
uint32_t telnetValue(cliCall& call) {
    aclLockHeld<aclLock::read> held;
    call.as<cliWordReq>()->word = ipCheckForPrefixAccessList(call.name()) ? ACL_OK : ACL_E_NOLIST;
    return ACL_OK;
}
uint32_t clearIpAcl(cliCall& call) {
    return aclClearIpAclExt(call.name());
}
uint32_t clearIpAclAll(cliCall&) {
    return aclClearIpAclAllExt();
}
uint32_t showIpAcl(cliCall& call) {
    return aclShowIpAclExt(listNameMake(call.as<cliShowReq>()->name), &call.buffer, &call.size);
}
uint32_t showIpAclAll(cliCall& call) {
    return aclShowIpAclAllExt(listNameMake(call.as<cliShowReq>()->name), &call.buffer, &call.size);
}

// --- AS-path and community lists ---

uint32_t aspathListCreate(cliCall& call) {
    return bgpASPAccessListCreateExt(call.name(), 0u);
}
uint32_t aspathListDelete(cliCall& call) {
    return bgpASPAccessListDeleteExt(call.name());
}
aspathRule aspathRuleOf(const cliAspathReq* req) {
    return {{req->text, strnlen(req->text, sizeof req->text)}, req->option};
}
uint32_t aspathEntryAdd(cliCall& call) {
    const auto* req = call.as<cliAspathReq>();
    return bgpAddASPAccessEntryExt(call.name(), uint32_t{req->action}, aspathRuleOf(req));
}
uint32_t aspathEntryDelete(cliCall& call) {
    const auto* req = call.as<cliAspathReq>();
    return bgpDelASPAccessEntryExt(call.name(), uint32_t{req->action}, aspathRuleOf(req), 1u);
}
uint32_t commListCreate(cliCall& call) {
    return bgpCommAccessListCreateExt(call.name(), 0u);
}
uint32_t commListDelete(cliCall& call) {
    return bgpCommAccessListDeleteExt(call.name());
}
uint32_t commEntryAdd(cliCall& call) {
    return bgpAddCommAccessEntryExt(call.name(), call.as<cliCommReq>()->entry);
}
uint32_t commEntryDelete(cliCall& call) {
    return bgpDelCommAccessEntryExt(call.name(), call.as<cliCommReq>()->entry);
}
uint32_t extCommListCreate(cliCall& call) {
    return bgpExtCommListCreateExt(call.name(), 0u);
}
uint32_t extCommListDelete(cliCall& call) {
    return bgpExtCommListDeleteExt(call.name());
}
uint32_t extCommEntryAdd(cliCall& call) {
    return bgpAddExtCommListEntryExt(call.name(), call.as<cliExtCommReq>()->entry);
}
uint32_t extCommEntryDelete(cliCall& call) {
    return bgpDelExtCommListEntryExt(call.name(), call.as<cliExtCommReq>()->entry);
}
template <const auto& Show>
uint32_t showPages(cliCall& call) {
    auto* req = call.as<cliShowReq>();
    uint32_t resume = req->resume;
    return Show(listNameMake(req->name), &resume, &call.buffer, &call.size);
}
template <const auto& Show>
uint32_t showWhole(cliCall& call) {
    return Show(listNameMake(call.as<cliShowReq>()->name), &call.buffer, &call.size);
}

// --- route maps ---

uint32_t rmapCreate(cliCall& call) {
    auto* req = call.as<cliRmapReq>();
    int32_t seq = static_cast<int32_t>(uint32_t{req->seq});
    const uint32_t status = ipRmapListCreateExt(call.name(), uint32_t{req->action}, &seq, 0u);
    req->seq = static_cast<uint32_t>(seq);
    return status;
}
int32_t rmapSeq(cliCall& call) {
    return static_cast<int32_t>(uint32_t{call.as<cliRmapDeleteReq>()->seq});
}
uint32_t rmapDelete(cliCall& call) {
    return ipRmapListDeleteExt(call.name(), rmapSeq(call),
                               uint32_t{call.as<cliRmapDeleteReq>()->named});
}
uint32_t rmapInstanceDelete(cliCall& call) {
    return ipDelRmapEntryAllFinExt(call.name(), rmapSeq(call));
}
uint32_t rmapFamily(uint32_t code) {
    const bool ipv6 = code == CLI_RMAP_V6_ENTRY || code == CLI_RMAP_V6_ENTRY_DELETE ||
                      code == CLI_RMAP_V6_ENTRY_ADD;
    return ipv6 ? AF_IPV6 : AF_IPV4;
}
uint32_t rmapEntryAdd(cliCall& call) {
    return ipAddRmapEntryExt(call.name(), &call.as<cliRmapClauseReq>()->clause,
                             rmapFamily(call.code()));
}
uint32_t rmapEntryDelete(cliCall& call) {
    return ipDelRmapEntryExt(call.name(), &call.as<cliRmapClauseReq>()->clause,
                             rmapFamily(call.code()));
}
uint32_t rmapEntryChange(cliCall& call) {
    const uint32_t operation = call.as<cliRmapClauseReq>()->operation;
    if (operation > 1) return ACL_E_SYSTEM;
    return operation == 0 ? rmapEntryAdd(call) : rmapEntryDelete(call);
}
uint32_t showRmap(cliCall& call) {
    return aclShowRoutemapExt(listNameMake(call.as<cliShowReq>()->name), &call.buffer, &call.size);
}
uint32_t showRmapAll(cliCall& call) {
    return aclShowRoutemapAllExt(listNameMake(call.as<cliShowReq>()->name), &call.buffer,
                                 &call.size);
}
uint32_t showRmapConfig(cliCall& call) {
    return aclShowRoutemapConfigExt(listNameMake(call.as<cliShowReq>()->name), &call.buffer,
                                    &call.size);
}
uint32_t asNotation(cliCall& call) {
    return aclRmapProcessBgpASNotationFormat(uint32_t{call.as<cliWordReq>()->word});
}

// Prefix lists, by family.
template <uint32_t AF>
using cliPrefixReq = std::conditional_t<AF == AF_IPV4, cliPrefix4Req, cliPrefix6Req>;

template <uint32_t AF>
uint32_t prefixListCreate(cliCall& call) {
    return ipPrefixListCreateExt(call.name(), 0, AF);
}
template <uint32_t AF>
uint32_t prefixListDelete(cliCall& call) {
    return ipPrefixListDeleteExt(call.name(), AF);
}
template <uint32_t AF>
uint32_t prefixEntryAdd(cliCall& call) {
    const auto& entry = call.as<cliPrefixReq<AF>>()->entry;
    return ipAddPrefixEntryExt(call.name(), prefixRecordOf(entry), AF);
}
template <uint32_t AF>
uint32_t prefixEntryDelete(cliCall& call) {
    const auto& entry = call.as<cliPrefixReq<AF>>()->entry;
    return ipDelPrefixEntryExt(call.name(), prefixRecordOf(entry), 1u, AF);
}
template <uint32_t AF>
uint32_t prefixClear(cliCall& call) {
    return prefixClearIpListExt(call.name(), AF);
}
template <uint32_t AF>
uint32_t prefixClearAll(cliCall&) {
    return prefixClearIpListAllExt(AF);
}
// The detail is the code's: the first of each pair has it.
template <uint32_t AF>
uint32_t showPrefixAll(cliCall& call) {
    const auto* req = call.as<cliShowReq>();
    uint32_t detail = req->cli.code == CLI_SHOW_PREFIX_ALL_DETAIL ||
                      req->cli.code == CLI_SHOW_V6_PREFIX_ALL_DETAIL;
    uint32_t resume = req->resume;
    return prefixShowIpListAllExt(listNameMake(req->name), &call.buffer, &call.size, detail,
                                  &resume, AF);
}
template <uint32_t AF>
uint32_t showPrefix(cliCall& call) {
    const auto* req = call.as<cliShowReq>();
    uint32_t detail =
        req->cli.code == CLI_SHOW_PREFIX_DETAIL || req->cli.code == CLI_SHOW_V6_PREFIX_DETAIL;
    uint32_t resume = req->resume;
    return prefixShowIpListExt(listNameMake(req->name), &call.buffer, &call.size, detail, &resume,
                               AF);
}
uint32_t prefixResequence(cliCall& call) {
    const auto* req = call.as<cliPrefixReseqReq>();
    return ipReseqPrefixListExt(call.name(), uint32_t{req->start}, uint32_t{req->step},
                                uint32_t{req->family});
}

// --- the table ---------------------------------------------------------------------------------

enum cliFlag : uint32_t {
    CLI_ACL2 = 1,          // the second ACL agent learns of the change
    CLI_V6 = 2,            // refused where the platform has no IPv6 lists
    CLI_ANSWER_FIRST = 4,  // the sender does not wait for the work and gets no status of it
    // Texts that a line will show: refused with a control character, names with a blank too.
    CLI_NAME = 8,
    CLI_CLAUSE = 16,  // the list that a clause names
    CLI_VLANS = 32,   // of a binding
    CLI_ASPATH = 64,  // an expression
    CLI_COMM = 128,
    CLI_EXTCOMM = 256,
    CLI_CHANGE = 512,  // of the configuration: refused while that cannot be stored
};

struct cliRow {
    uint32_t first, last;  // codes, inclusive
    const char* name;
    uint32_t minLen;
    uint32_t (*run)(cliCall& call);  // null: not built yet
    uint32_t flags = 0;
};

constexpr uint32_t CLI = sizeof(cliHdr);
constexpr uint32_t LIST = sizeof(cliListReq);
constexpr uint32_t ENTRY = sizeof(cliIpEntryReq);
constexpr uint32_t SHOW = sizeof(cliShowReq);
constexpr uint32_t WORD = sizeof(cliWordReq);
constexpr uint32_t RMAP_DELETE = offsetof(cliRmapDeleteReq, named);
constexpr uint32_t CLAUSE = offsetof(cliRmapClauseReq, operation);
constexpr uint32_t PREFIX4 = sizeof(cliPrefix4Req), PREFIX6 = sizeof(cliPrefix6Req);

// clang-format off
constexpr cliRow cliTable[] = {
    {1000, 1000, "create IPv4 access list",       LIST,  ipListCreate,   CLI_ACL2 | CLI_NAME | CLI_CHANGE},
    {1001, 1001, "delete IPv4 access list",       LIST,  ipListDelete,   CLI_ACL2 | CLI_CHANGE},
    {1002, 1002, "add IPv4 entry",                ENTRY, ipEntryAdd,     CLI_ACL2 | CLI_NAME | CLI_CHANGE},
    {1003, 1003, "delete IPv4 entry",             ENTRY, ipEntryDelete,  CLI_ACL2 | CLI_CHANGE},
    {1004, 1004, "delete DoS list",               CLI,   dosListDelete, CLI_CHANGE},
    {1005, 1005, "create DoS list",               LIST,  dosListCreate, CLI_NAME | CLI_CHANGE},
    {1006, 1006, "delete DoS entry",              ENTRY, dosEntryDelete, CLI_CHANGE},
    {1007, 1007, "add DoS entry",                 ENTRY, dosEntryAdd, CLI_NAME | CLI_CHANGE},
    {1008, 1008, "delete AS-path list",           CLI,   aspathListDelete, CLI_CHANGE},
    {1009, 1009, "delete AS-path entry",          sizeof(cliAspathReq), aspathEntryDelete, CLI_CHANGE},
    {1010, 1010, "create AS-path list",           CLI,   aspathListCreate, CLI_NAME | CLI_CHANGE},
    {1011, 1011, "add AS-path entry",             sizeof(cliAspathReq), aspathEntryAdd, CLI_NAME | CLI_ASPATH | CLI_CHANGE},
    {1012, 1012, "delete community list",         CLI,   commListDelete, CLI_CHANGE},
    {1013, 1013, "delete community entry",        sizeof(cliCommReq), commEntryDelete, CLI_CHANGE},
    {1014, 1014, "create community list",         CLI,   commListCreate, CLI_NAME | CLI_CHANGE},
    {1015, 1015, "add community entry",           sizeof(cliCommReq), commEntryAdd, CLI_NAME | CLI_COMM | CLI_CHANGE},
    {1016, 1016, "create extended-community list", CLI,  extCommListCreate, CLI_NAME | CLI_CHANGE},
    {1017, 1017, "add extended-community entry",  sizeof(cliExtCommReq), extCommEntryAdd, CLI_NAME | CLI_EXTCOMM | CLI_CHANGE},
    {1018, 1018, "delete extended-community entry", sizeof(cliExtCommReq), extCommEntryDelete, CLI_CHANGE},
    {1019, 1019, "delete extended-community list", CLI,  extCommListDelete, CLI_CHANGE},
    {1020, 1020, "delete route map",              RMAP_DELETE, rmapDelete, CLI_CHANGE},
    {1021, 1021, "create route map",              sizeof(cliRmapReq), rmapCreate, CLI_NAME | CLI_CHANGE},
    {1022, 1023, "route-map clause",              sizeof(cliRmapClauseReq), rmapEntryChange, CLI_NAME | CLI_CLAUSE | CLI_CHANGE},
    {1024, 1024, "delete route-map clause",       CLAUSE, rmapEntryDelete, CLI_CHANGE},
    {1025, 1025, "add route-map clause",          CLAUSE, rmapEntryAdd, CLI_NAME | CLI_CLAUSE | CLI_CHANGE},
    {1030, 1030, "clear IP ACL counters",         CLI,   clearIpAcl},
    {1031, 1031, "clear all IP ACL counters",     76,    clearIpAclAll},
    {1038, 1038, "unbind IPv4 list",              sizeof(cliUnbindReq), ipUnbind, CLI_CHANGE},
    {1039, 1039, "bind IPv4 list",                sizeof(cliBindReq), ipBind, CLI_NAME | CLI_VLANS | CLI_CHANGE},
    // Both codes are one operation, which reads the code: 1041 enables, 1040 disables.
    {1040, 1041, "DoS filter",                    CLI,   dosEnable, CLI_NAME | CLI_CHANGE},
    {1042, 1042, "create IPv4 prefix list",      CLI,   prefixListCreate<AF_IPV4>, CLI_ACL2 | CLI_NAME | CLI_CHANGE},
    {1043, 1043, "delete IPv4 prefix list",      CLI,   prefixListDelete<AF_IPV4>, CLI_ACL2 | CLI_CHANGE},
    {1044, 1044, "add IPv4 prefix entry",        PREFIX4, prefixEntryAdd<AF_IPV4>, CLI_ACL2 | CLI_NAME | CLI_CHANGE},
    {1045, 1045, "delete IPv4 prefix entry",     PREFIX4, prefixEntryDelete<AF_IPV4>, CLI_ACL2 | CLI_CHANGE},
    {1046, 1046, "clear IPv4 prefix list",       CLI,   prefixClear<AF_IPV4>, CLI_ACL2},
    {1047, 1047, "clear all IPv4 prefix lists",  76,    prefixClearAll<AF_IPV4>, CLI_ACL2},
    {1055, 1055, "LAG members",                   WORD,  lagMembers},
    {1059, 1059, "show IP ACL",                   SHOW,  showIpAcl},
    {1060, 1060, "show all IP ACLs",              SHOW,  showIpAclAll},
    {1066, 1067, "show MAC ACLs",                 CLI,   nullptr},
    {1083, 1084, "show all IPv4 prefix lists",    SHOW,  showPrefixAll<AF_IPV4>},
    {1085, 1086, "show IPv4 prefix list",         SHOW,  showPrefix<AF_IPV4>},
    {1087, 1087, "show route map",                SHOW,  showRmap},
    {1088, 1088, "show all route maps",           SHOW,  showRmapAll},
    {1090, 1090, "show route-map configuration",  SHOW,  showRmapConfig},
    {1091, 1091, "show all AS-path lists",        SHOW,  showPages<aclShowASPathListAllExt>},
    {1092, 1092, "show AS-path list",             SHOW,  showPages<aclShowASPathListExt>},
    {1093, 1093, "show all community lists",      SHOW,  showWhole<aclShowIpCommListAllExt>},
    {1094, 1094, "show community list",           SHOW,  showWhole<aclShowIpCommListExt>},
    {1095, 1095, "show all extended-community lists", SHOW, showWhole<aclShowIpExtCommListAllExt>},
    {1096, 1096, "show extended-community list",  SHOW,  showWhole<aclShowIpExtCommListExt>},
    {1098, 1099, "MAC entries",                   CLI,   nullptr, CLI_CHANGE},
    {1100, 1101, "egress MAC ACL setting",        76,    nullptr},
    {1102, 1103, "MAC lists",                     CLI,   nullptr, CLI_CHANGE},
    {1104, 1105, "bind MAC list",                 CLI,   nullptr, CLI_CHANGE},
    {1106, 1106, "protocol trapping",             CLI,   nullptr},
    {1108, 1109, "protocol trapping",             CLI,   nullptr},
    {1114, 1114, "list of a Telnet server",       WORD,  telnetValue},
    {1115, 1115, "protocol trapping",             CLI,   nullptr},
    {1120, 1120, "protocol trapping",             CLI,   nullptr},
    {1132, 1137, "ACL VLAN groups",               CLI,   nullptr, CLI_CHANGE},
    {1139, 1140, "show ACL VLAN groups",          CLI,   nullptr},
    {1142, 1145, "remarks",                       CLI,   nullptr, CLI_CHANGE},
    {1146, 1146, "MAC list of a Telnet server",   CLI,   nullptr},
    {1147, 1147, "create IPv6 prefix list",      CLI,   prefixListCreate<AF_IPV6>, CLI_ACL2 | CLI_NAME | CLI_CHANGE},
    {1148, 1148, "delete IPv6 prefix list",      CLI,   prefixListDelete<AF_IPV6>, CLI_ACL2 | CLI_CHANGE},
    {1149, 1149, "add IPv6 prefix entry",        PREFIX6, prefixEntryAdd<AF_IPV6>, CLI_ACL2 | CLI_NAME | CLI_CHANGE},
    {1150, 1150, "delete IPv6 prefix entry",     PREFIX6, prefixEntryDelete<AF_IPV6>, CLI_ACL2 | CLI_CHANGE},
    {1151, 1151, "clear IPv6 prefix list",       CLI,   prefixClear<AF_IPV6>, CLI_ACL2},
    {1152, 1152, "clear all IPv6 prefix lists",  76,    prefixClearAll<AF_IPV6>, CLI_ACL2},
    {1153, 1153, "list description",              CLI,   nullptr, CLI_CHANGE},
    {1154, 1155, "show all IPv6 prefix lists",    SHOW,  showPrefixAll<AF_IPV6>},
    {1156, 1157, "show IPv6 prefix list",         SHOW,  showPrefix<AF_IPV6>},
    {1158, 1158, "delete route-map instance",     RMAP_DELETE, rmapInstanceDelete, CLI_CHANGE},
    {1160, 1160, "delete IPv6 route-map clause",  CLAUSE, rmapEntryDelete, CLI_CHANGE},
    {1161, 1161, "add IPv6 route-map clause",     CLAUSE, rmapEntryAdd, CLI_NAME | CLI_CLAUSE | CLI_CHANGE},
    {1162, 1163, "IPv6 access lists",             CLI,   nullptr,        CLI_ACL2 | CLI_V6 | CLI_CHANGE},
    {1164, 1165, "bind IPv6 list",                CLI,   nullptr,        CLI_V6 | CLI_CHANGE},
    {1166, 1167, "IPv6 entries",                  CLI,   nullptr,        CLI_ACL2 | CLI_V6 | CLI_CHANGE},
    {1169, 1170, "remarks",                       CLI,   nullptr, CLI_CHANGE},
    {1181, 1181, "IPv6 list of a Telnet server",  CLI,   nullptr},
    {1182, 1184, "resequence",                    CLI,   nullptr, CLI_CHANGE},
    {1185, 1185, "resequence prefix list",        sizeof(cliPrefixReseqReq), prefixResequence, CLI_CHANGE},
    {1187, 1187, "delete route-map clause",       CLAUSE, rmapEntryDelete, CLI_CHANGE},
    {1188, 1188, "add route-map clause",          CLAUSE, rmapEntryAdd, CLI_NAME | CLI_CLAUSE | CLI_CHANGE},
    {1190, 1191, "show ACL VLAN groups",          CLI,   nullptr},
    {13607, 13607, "AS notation",                 WORD,  asNotation,     CLI_ANSWER_FIRST},
    {14519, 14519, "PIM parameters to the cards", 76,    nullptr},
    {14521, 14521, "IPv6 parameters to the cards", 76,   nullptr},
    {18908, 18908, "policy-based routing to the cards", 76, nullptr},
};
// clang-format on
static_assert(std::ranges::is_sorted(cliTable, {}, &cliRow::first));

const cliRow* findRow(uint32_t code) {
    const cliRow* row = std::ranges::lower_bound(cliTable, code, {}, &cliRow::last);
    return row != std::ranges::end(cliTable) && row->first <= code ? row : nullptr;
}

struct textRule {
    uint32_t flag;
    size_t at, size;
    bool blanks;
    size_t kindAt = 0;  // a word: the field is a text when it is COMM_REGEXP
};
constexpr textRule textRules[] = {
    {CLI_NAME, offsetof(cliHdr, name), LIST_NAME_LEN, false},
    {CLI_CLAUSE, offsetof(cliRmapClauseReq, clause.list), LIST_NAME_LEN, false},
    {CLI_VLANS, offsetof(cliBindReq, vlanText), CLI_VLAN_TEXT_LEN, true},
    {CLI_ASPATH, offsetof(cliAspathReq, text), sizeof(cliAspathReq::text), true},
    {CLI_COMM, offsetof(cliCommReq, entry.text), sizeof(commEntryBlock::text), true,
     offsetof(cliCommReq, entry.kind)},
    {CLI_EXTCOMM, offsetof(cliExtCommReq, entry.body.text), sizeof(extCommBody::text), true,
     offsetof(cliExtCommReq, entry.kind)},
};
bool textsAreGood(const cliRow& row, const cliCall& call) {
    for (const textRule& rule : textRules) {
        if ((row.flags & rule.flag) == 0) continue;
        if (rule.kindAt != 0 &&
            msgWord(call.message, static_cast<uint32_t>(rule.kindAt)) != COMM_REGEXP)
            continue;
        const auto* text = reinterpret_cast<const char*>(call.message + rule.at);
        if (!textFitsLine({text, strnlen(text, rule.size)}, rule.blanks)) return false;
    }
    return true;
}

uint32_t runRow(const cliRow* row, cliCall& call) {
    if (row == nullptr) {
        aclCounters.unknownCode++;
        return ACL_E_SYSTEM;
    }
    if (msgHdr(call.message)->length < row->minLen) {
        aclCounters.truncated++;
        return ACL_E_SYSTEM;
    }
    if (row->run == nullptr) {
        aclNotBuilt(row->name);
        return ACL_E_SYSTEM;
    }
    if (!textsAreGood(*row, call)) {
        aclCounters.badNames++;
        return ACL_E_SYSTEM;
    }
    if ((row->flags & CLI_CHANGE) != 0 && !aclCanChange()) return ACL_E_STORE;
    return row->run(call);
}

// The second ACL agent hears the request itself, with its result; without one there is nobody to
// tell.
void AclUpdateACL2ForPrefixlist(const uint8_t* message, uint32_t length) {
    if (aclNode->queues.acl2qHandle == ZEK_SWP_NONE) return;
    void* copy = acl_Swp_Alloc(length);
    if (copy == nullptr) {
        zekSwpQueueLose(aclNode->queues.acl2qHandle);
        aclSysErr(SYSERR_MEMORY, "No memory for a message to ACL2");
        return;
    }
    std::memcpy(copy, message, length);
    (void)AclSwpEnqueACL2(copy, length);
}

}  // namespace

void AclProcCliCmd(aclNodeRecord* node, uint8_t* message) {
    cliCall call{message};
    ipcHdr* hdr = msgHdr(message);
    // The answer must reach the result and the code, however short the request was.
    if (hdr->length < offsetof(cliHdr, reserved76))
        hdr->length = static_cast<uint32_t>(offsetof(cliHdr, reserved76));
    const cliRow* row = findRow(call.code());
    if (row != nullptr && (row->flags & CLI_ANSWER_FIRST) != 0) {
        call.as<cliHdr>()->result = ACL_OK;
        AclIpcReply(node->ipc.regQfd, message);
        (void)runRow(row, call);
        return;
    }
    const uint64_t notShown = cfgNotShown;
    bool refused = row != nullptr && (row->flags & CLI_V6) != 0 && halAclMgrIsV6AclSupported() == 0;
    uint32_t result = refused ? uint32_t{ACL_E_SYSTEM} : runRow(row, call);
    if (row != nullptr && (row->flags & CLI_ACL2) != 0 && !refused) {
        call.as<cliHdr>()->result = result;
        AclUpdateACL2ForPrefixlist(message, hdr->length);
    }
    if (call.buffer != nullptr) {
        if (result == ACL_OK) {
            (void)AclSendDisplayBuffer(call.buffer, call.size, message);
            return;
        }
        zekMC_M_sysFree(call.buffer);
    }
    call.as<cliHdr>()->result = result;
    // Of a line that goes nobody needs to know.
    if (cfgNotShown != notShown && (row->flags & CLI_NAME) != 0) call.as<cliHdr>()->notShown = 1u;
    AclIpcReply(node->ipc.regQfd, message);
}
