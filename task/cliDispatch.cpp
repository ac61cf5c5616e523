// The CLI dispatcher: one row per command code. The row says how long the request must be, what to
// do with it and with the answer; the handlers (cliCall.h) know of neither.
#include "common/cfgline.h"
#include "common/message.h"
#include "download/zekacl_download.h"
#include "include/policyMsg.h"
#include "interface/halAclMgr.h"
#include "interface/interface.h"
#include "platform/api/zekMem.h"
#include "task/cliCall.h"
#include "task/rows.h"

namespace {

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
    CLI_CHANGE = 512,   // of the configuration: refused while that cannot be stored
    CLI_DETAIL = 1024,  // of a show that has it with one code and not with the next
    CLI_REMARK_TEXT = 2048,
    CLI_DESCRIPTION_TEXT = 4096,
    CLI_GROUP = 8192,  // the list of an ACL VLAN group
};

struct cliRow {
    codeRange codes;
    const char* name;
    uint32_t minLen;
    uint32_t (*run)(cliCall& call);  // null: not built yet
    uint32_t flags = 0;
    uint32_t family = 0;
};

// What is made needs a good name and a configuration that can be stored; what goes needs only the
// latter, as a bad name may have come from an older configuration.
constexpr uint32_t MAKES = CLI_NAME | CLI_CHANGE, GOES = CLI_CHANGE;
constexpr uint32_t CLAUSE_MAKES = MAKES | CLI_CLAUSE;

constexpr uint32_t CLI = sizeof(cliHdr);
constexpr uint32_t CODE = offsetof(cliHdr, reserved76);  // commands without a name
constexpr uint32_t LIST = sizeof(cliListReq);
constexpr uint32_t ENTRY = sizeof(cliIpEntryReq);
constexpr uint32_t V6_ENTRY = sizeof(cliIp6EntryReq), MAC_ENTRY = sizeof(cliMacEntryReq);
constexpr uint32_t SHOW = sizeof(cliShowReq);
constexpr uint32_t REMARK = sizeof(cliRemarkReq), RESEQ = sizeof(cliReseqReq);
constexpr uint32_t WORD = sizeof(cliWordReq);
constexpr uint32_t ASPATH = sizeof(cliAspathReq);
constexpr uint32_t COMM = sizeof(cliCommReq), EXTCOMM = sizeof(cliExtCommReq);
constexpr uint32_t GROUP_ID = offsetof(cliGroupReq, list),
                   GROUP_LIST = offsetof(cliGroupReq, vlans);
constexpr uint32_t GROUP = offsetof(cliGroupReq, vlanText);
constexpr uint32_t RMAP_DELETE = offsetof(cliRmapDeleteReq, named);
constexpr uint32_t CLAUSE = offsetof(cliRmapClauseReq, operation);
constexpr uint32_t CHANGE = sizeof(cliRmapClauseReq);
constexpr uint32_t PREFIX4 = sizeof(cliPrefix4Req), PREFIX6 = sizeof(cliPrefix6Req);

// clang-format off
constexpr cliRow cliTable[] = {
    // access lists, DoS lists
    {CLI_IP_LIST_CREATE,          "create IPv4 access list",           LIST,
     cliIpListCreate, CLI_ACL2 | MAKES, INTF_V4},
    {CLI_IP_LIST_DELETE,          "delete IPv4 access list",           LIST,
     cliIpListDelete, CLI_ACL2 | GOES, INTF_V4},
    {CLI_IP_ENTRY_ADD,            "add IPv4 entry",                    ENTRY,
     cliIpEntryAdd, CLI_ACL2 | MAKES, INTF_V4},
    {CLI_IP_ENTRY_DELETE,         "delete IPv4 entry",                 ENTRY,
     cliIpEntryDelete, CLI_ACL2 | GOES, INTF_V4},
    {CLI_DOS_LIST_DELETE,         "delete DoS list",                   CLI,          cliByName<ipDosListDeleteExt>, GOES},
    {CLI_DOS_LIST_CREATE,         "create DoS list",                   LIST,         cliDosListCreate, MAKES},
    {CLI_DOS_ENTRY_DELETE,        "delete DoS entry",                  ENTRY,        cliDosEntryDelete, GOES},
    {CLI_DOS_ENTRY_ADD,           "add DoS entry",                     ENTRY,        cliDosEntryAdd, MAKES},
    // AS-path and community lists
    {CLI_ASPATH_LIST_DELETE,      "delete AS-path list",               CLI,
     cliByName<bgpASPAccessListDeleteExt>, GOES},
    {CLI_ASPATH_ENTRY_DELETE,     "delete AS-path entry",              ASPATH,       cliAspathEntryDelete, GOES},
    {CLI_ASPATH_LIST_CREATE,      "create AS-path list",               CLI,
     cliCreate<bgpASPAccessListCreateExt>, MAKES},
    {CLI_ASPATH_ENTRY_ADD,        "add AS-path entry",                 ASPATH,
     cliAspathEntryAdd, MAKES | CLI_ASPATH},
    {CLI_COMM_LIST_DELETE,        "delete community list",             CLI,
     cliByName<bgpCommAccessListDeleteExt>, GOES},
    {CLI_COMM_ENTRY_DELETE,       "delete community entry",            COMM,
     cliEntry<cliCommReq, bgpDelCommAccessEntryExt>, GOES},
    {CLI_COMM_LIST_CREATE,        "create community list",             CLI,
     cliCreate<bgpCommAccessListCreateExt>, MAKES},
    {CLI_COMM_ENTRY_ADD,          "add community entry",               COMM,
     cliEntry<cliCommReq, bgpAddCommAccessEntryExt>, MAKES | CLI_COMM},
    {CLI_EXTCOMM_LIST_CREATE,     "create extended-community list",    CLI,
     cliCreate<bgpExtCommListCreateExt>, MAKES},
    {CLI_EXTCOMM_ENTRY_ADD,       "add extended-community entry",      EXTCOMM,
     cliEntry<cliExtCommReq, bgpAddExtCommListEntryExt>, MAKES | CLI_EXTCOMM},
    {CLI_EXTCOMM_ENTRY_DELETE,    "delete extended-community entry",   EXTCOMM,
     cliEntry<cliExtCommReq, bgpDelExtCommListEntryExt>, GOES},
    {CLI_EXTCOMM_LIST_DELETE,     "delete extended-community list",    CLI,
     cliByName<bgpExtCommListDeleteExt>, GOES},
    // route maps
    {CLI_RMAP_DELETE,             "delete route map",                  RMAP_DELETE,  cliRmapDelete, GOES},
    {CLI_RMAP_CREATE,             "create route map",                  sizeof(cliRmapReq), cliRmapCreate, MAKES},
    {CLI_RMAP_ENTRY,              "route-map clause",                  CHANGE,
     cliRmapEntryChange, CLAUSE_MAKES, AF_IPV4},
    {CLI_RMAP_V6_ENTRY,           "route-map clause",                  CHANGE,
     cliRmapEntryChange, CLAUSE_MAKES, AF_IPV6},
    {CLI_RMAP_ENTRY_DELETE,       "delete route-map clause",           CLAUSE,       cliRmapEntryDelete, GOES, AF_IPV4},
    {CLI_RMAP_ENTRY_ADD,          "add route-map clause",              CLAUSE,
     cliRmapEntryAdd, CLAUSE_MAKES, AF_IPV4},
    // access lists: counters, bindings
    {CLI_CLEAR_IP_ACL,            "clear IP ACL counters",             CLI,          cliByName<aclClearIpAclExt>},
    {CLI_CLEAR_IP_ACL_ALL,        "clear all IP ACL counters",         CODE,         cliOfAll<aclClearIpAclAllExt>},
    {CLI_IP_UNBIND,               "unbind IPv4 list",                  sizeof(cliUnbindReq), cliIpUnbind, GOES, INTF_V4},
    {CLI_IP_BIND,                 "bind IPv4 list",                    sizeof(cliBindReq),
     cliIpBind, MAKES | CLI_VLANS, INTF_V4},
    {{CLI_DOS_DISABLE, CLI_DOS_ENABLE}, "DoS filter",                  CLI,          cliDosEnable, MAKES},
    // IPv4 prefix lists
    {CLI_PREFIX_LIST_CREATE,      "create IPv4 prefix list",           CLI,
     cliPrefixListCreate, CLI_ACL2 | MAKES, AF_IPV4},
    {CLI_PREFIX_LIST_DELETE,      "delete IPv4 prefix list",           CLI,
     cliByNameAndFamily<ipPrefixListDeleteExt>, CLI_ACL2 | GOES, AF_IPV4},
    {CLI_PREFIX_ENTRY_ADD,        "add IPv4 prefix entry",             PREFIX4,
     cliPrefixEntryAdd, CLI_ACL2 | MAKES, AF_IPV4},
    {CLI_PREFIX_ENTRY_DELETE,     "delete IPv4 prefix entry",          PREFIX4,
     cliPrefixEntryDelete, CLI_ACL2 | GOES, AF_IPV4},
    {CLI_PREFIX_CLEAR,            "clear IPv4 prefix list",            CLI,
     cliByNameAndFamily<prefixClearIpListExt>, CLI_ACL2, AF_IPV4},
    {CLI_PREFIX_CLEAR_ALL,        "clear all IPv4 prefix lists",       CODE,
     cliPrefixClearAll, CLI_ACL2, AF_IPV4},
    // shows
    {CLI_LAG_MEMBERS,             "LAG members",                       WORD,         cliLagMembers},
    {CLI_SHOW_IP_ACL,             "show IP ACL",                       SHOW,         cliShow<aclShowIpAclExt>},
    {CLI_SHOW_IP_ACL_ALL,         "show all IP ACLs",                  SHOW,         cliShow<aclShowIpAclAllExt>},
    {CLI_SHOW_MAC,                "show MAC ACL",                      SHOW,         cliShow<aclShowMacAclExt>},
    {CLI_SHOW_MAC_ALL,            "show all MAC ACLs",                 SHOW,         cliShow<aclShowMacAclAllExt>},
    {CLI_SHOW_PREFIX_ALL_DETAIL,  "show all IPv4 prefix lists",        SHOW,
     cliPrefixShowAll, CLI_DETAIL, AF_IPV4},
    {CLI_SHOW_PREFIX_ALL,         "show all IPv4 prefix lists",        SHOW,         cliPrefixShowAll, 0, AF_IPV4},
    {CLI_SHOW_PREFIX_DETAIL,      "show IPv4 prefix list",             SHOW,         cliPrefixShow, CLI_DETAIL, AF_IPV4},
    {CLI_SHOW_PREFIX,             "show IPv4 prefix list",             SHOW,         cliPrefixShow, 0, AF_IPV4},
    {CLI_SHOW_RMAP,               "show route map",                    SHOW,         cliShow<aclShowRoutemapExt>},
    {CLI_SHOW_RMAP_ALL,           "show all route maps",               SHOW,         cliShow<aclShowRoutemapAllExt>},
    {CLI_SHOW_RMAP_CONFIG,        "show route-map configuration",      SHOW,         cliShow<aclShowRoutemapConfigExt>},
    {CLI_SHOW_ASPATH_ALL,         "show all AS-path lists",            SHOW,
     cliShowPage<aclShowASPathListAllExt>},
    {CLI_SHOW_ASPATH,             "show AS-path list",                 SHOW,         cliShowPage<aclShowASPathListExt>},
    {CLI_SHOW_COMM_ALL,           "show all community lists",          SHOW,         cliShow<aclShowIpCommListAllExt>},
    {CLI_SHOW_COMM,               "show community list",               SHOW,         cliShow<aclShowIpCommListExt>},
    {CLI_SHOW_EXTCOMM_ALL,        "show all extended-community lists", SHOW,         cliShow<aclShowIpExtCommListAllExt>},
    {CLI_SHOW_EXTCOMM,            "show extended-community list",      SHOW,         cliShow<aclShowIpExtCommListExt>},
    // MAC lists, protocol trapping, VLAN groups, remarks
    {CLI_MAC_ENTRY_DELETE,        "delete MAC entry",                  MAC_ENTRY,    cliMacEntryDelete, GOES},
    {CLI_MAC_ENTRY_ADD,           "add MAC entry",                     MAC_ENTRY,    cliMacEntryAdd, MAKES},
    {{CLI_MAC_EGRESS_ENABLE, CLI_MAC_EGRESS_DISABLE}, "egress MAC ACL setting", CODE,
     cliMacEgress, CLI_CHANGE},
    {CLI_MAC_LIST_DELETE,         "delete MAC list",                   LIST,         cliMacListDelete, GOES},
    {CLI_MAC_LIST_CREATE,         "create MAC list",                   LIST,         cliMacListCreate, MAKES},
    {CLI_MAC_BIND,                "bind MAC list",                     sizeof(cliBindReq),
     cliIpBind, MAKES | CLI_VLANS, INTF_MAC},
    {CLI_MAC_UNBIND,              "unbind MAC list",                   sizeof(cliUnbindReq), cliIpUnbind, GOES, INTF_MAC},
    {CLI_TRAP_A,                  "protocol trapping",                 CODE,         cliTrapProtocols},
    {{CLI_DHCP_TRAP, CLI_DHCP_NO_TRAP}, "DHCP trapping",              CODE,         cliDhcpTrap, CLI_CHANGE},
    {CLI_TELNET_VALUE,            "list of a Telnet server",           WORD,         cliTelnetValue<AclGetTelnetValue>},
    {CLI_TRAP_B,                  "protocol trapping",                 CODE,         cliTrapProtocols},
    {CLI_TRAP_C,                  "protocol trapping",                 CODE,         cliTrapProtocols},
    {CLI_GROUP_CREATE,            "create ACL VLAN group",             GROUP_ID,     cliGroupCreate, MAKES},
    {CLI_GROUP_DELETE,            "delete ACL VLAN group",             CLI,          cliGroupCreate, GOES},
    {CLI_GROUP_MEMBER_ADD,        "add ACL VLAN group member",         GROUP,        cliGroupMember, GOES},
    {CLI_GROUP_MEMBER_DELETE,     "delete ACL VLAN group member",      GROUP,        cliGroupMember, GOES},
    {CLI_GROUP_APPLY,             "apply ACL VLAN group",              GROUP_LIST,   cliGroupApply, MAKES | CLI_GROUP},
    {CLI_GROUP_REMOVE,            "remove ACL VLAN group",             GROUP_LIST,   cliGroupApply, GOES},
    {CLI_SHOW_GROUP_ALL,          "show all ACL VLAN groups",          SHOW,         cliShow<aclShowAclVlanGrpAllExt>},
    {CLI_SHOW_GROUP,              "show ACL VLAN group",               SHOW,         cliShow<aclShowAclVlanGrpSpecificExt>},
    {CLI_REMARK_ADD,              "add remark",                        REMARK,       cliRemarkAdd, MAKES | CLI_REMARK_TEXT},
    {CLI_REMARK_DELETE,           "delete remark",                     REMARK,       cliRemarkDelete, GOES},
    {CLI_MAC_REMARK_ADD,          "add remark",                        REMARK,       cliRemarkAdd, MAKES | CLI_REMARK_TEXT},
    {CLI_MAC_REMARK_DELETE,       "delete remark",                     REMARK,       cliRemarkDelete, GOES},
    {CLI_MAC_TELNET_VALUE,        "MAC list of a Telnet server",       WORD,         cliTelnetValue<l2AclGetTelnetValue>},
    // IPv6 prefix lists
    {CLI_V6_PREFIX_LIST_CREATE,   "create IPv6 prefix list",           CLI,
     cliPrefixListCreate, CLI_ACL2 | MAKES, AF_IPV6},
    {CLI_V6_PREFIX_LIST_DELETE,   "delete IPv6 prefix list",           CLI,
     cliByNameAndFamily<ipPrefixListDeleteExt>, CLI_ACL2 | GOES, AF_IPV6},
    {CLI_V6_PREFIX_ENTRY_ADD,     "add IPv6 prefix entry",             PREFIX6,
     cliPrefixEntryAdd, CLI_ACL2 | MAKES, AF_IPV6},
    {CLI_V6_PREFIX_ENTRY_DELETE,  "delete IPv6 prefix entry",          PREFIX6,
     cliPrefixEntryDelete, CLI_ACL2 | GOES, AF_IPV6},
    {CLI_V6_PREFIX_CLEAR,         "clear IPv6 prefix list",            CLI,
     cliByNameAndFamily<prefixClearIpListExt>, CLI_ACL2, AF_IPV6},
    {CLI_V6_PREFIX_CLEAR_ALL,     "clear all IPv6 prefix lists",       CODE,
     cliPrefixClearAll, CLI_ACL2, AF_IPV6},
    {CLI_DESCRIPTION,             "list description",                  sizeof(cliDescriptionReq),
     cliDescription, MAKES | CLI_DESCRIPTION_TEXT},
    {CLI_SHOW_V6_PREFIX_ALL_DETAIL, "show all IPv6 prefix lists",      SHOW,
     cliPrefixShowAll, CLI_DETAIL, AF_IPV6},
    {CLI_SHOW_V6_PREFIX_ALL,      "show all IPv6 prefix lists",        SHOW,         cliPrefixShowAll, 0, AF_IPV6},
    {CLI_SHOW_V6_PREFIX_DETAIL,   "show IPv6 prefix list",             SHOW,         cliPrefixShow, CLI_DETAIL, AF_IPV6},
    {CLI_SHOW_V6_PREFIX,          "show IPv6 prefix list",             SHOW,         cliPrefixShow, 0, AF_IPV6},
    // IPv6 clauses, IPv6 access lists
    {CLI_RMAP_INSTANCE_DELETE,    "delete route-map instance",         RMAP_DELETE,  cliRmapInstanceDelete, GOES},
    {CLI_RMAP_V6_ENTRY_DELETE,    "delete IPv6 route-map clause",      CLAUSE,       cliRmapEntryDelete, GOES, AF_IPV6},
    {CLI_RMAP_V6_ENTRY_ADD,       "add IPv6 route-map clause",         CLAUSE,
     cliRmapEntryAdd, CLAUSE_MAKES, AF_IPV6},
    {CLI_V6_LIST_CREATE,          "create IPv6 access list",           CLI,
     cliV6ListCreate, CLI_ACL2 | CLI_V6 | MAKES},
    {CLI_V6_LIST_DELETE,          "delete IPv6 access list",           CLI,
     cliV6ListDelete, CLI_ACL2 | CLI_V6 | GOES},
    {CLI_V6_BIND,                 "bind IPv6 list",                    sizeof(cliBindReq),
     cliIpBind, CLI_V6 | MAKES | CLI_VLANS, INTF_V6},
    {CLI_V6_UNBIND,               "unbind IPv6 list",                  sizeof(cliUnbindReq),
     cliIpUnbind, CLI_V6 | GOES, INTF_V6},
    {CLI_V6_ENTRY_ADD,            "add IPv6 entry",                    V6_ENTRY,
     cliV6EntryAdd, CLI_ACL2 | CLI_V6 | MAKES},
    {CLI_V6_ENTRY_DELETE,         "delete IPv6 entry",                 V6_ENTRY,
     cliV6EntryDelete, CLI_ACL2 | CLI_V6 | GOES},
    {CLI_V6_REMARK_ADD,           "add remark",                        REMARK,
     cliRemarkAdd, MAKES | CLI_V6 | CLI_REMARK_TEXT},
    {CLI_V6_REMARK_DELETE,        "delete remark",                     REMARK,       cliRemarkDelete, GOES | CLI_V6},
    // what came later
    {CLI_V6_TELNET_VALUE,         "IPv6 list of a Telnet server",      WORD,         cliTelnetValue<aclV6GetTelnetValue>},
    {CLI_IP_RESEQUENCE,           "resequence IPv4 access list",       RESEQ,
     cliResequence<ipReseqTheAccessListExt>, CLI_CHANGE},
    {CLI_V6_RESEQUENCE,           "resequence IPv6 access list",       RESEQ,
     cliResequence<ipReseqTheV6AccessListExt>, CLI_CHANGE | CLI_V6},
    {CLI_MAC_RESEQUENCE,          "resequence MAC access list",        RESEQ,
     cliResequence<l2ReseqTheAccessListExt>, CLI_CHANGE},
    {CLI_PREFIX_RESEQUENCE,       "resequence prefix list",            sizeof(cliPrefixReseqReq),
     cliPrefixResequence, CLI_CHANGE},
    {CLI_RMAP_ENTRY_DELETE_2,     "delete route-map clause",           CLAUSE,       cliRmapEntryDelete, GOES, AF_IPV4},
    {CLI_RMAP_ENTRY_ADD_2,        "add route-map clause",              CLAUSE,
     cliRmapEntryAdd, CLAUSE_MAKES, AF_IPV4},
    {CLI_SHOW_GROUP_2,            "show ACL VLAN group",               SHOW,         cliShow<aclShowAclVlanGrpSpecificDetailExt>},
    {CLI_SHOW_GROUP_ALL_2,        "show all ACL VLAN groups",          SHOW,         cliShow<aclShowAclVlanGrpAllDetailExt>},
    // other tasks' settings
    {CLI_AS_NOTATION,             "AS notation",                       WORD,         cliAsNotation, CLI_ANSWER_FIRST},
    {CLI_PIM_TO_CARDS,            "PIM parameters to the cards",       CODE,         nullptr},
    {CLI_V6_TO_CARDS,             "IPv6 parameters to the cards",      CODE,         nullptr},
    {CLI_PBR_TO_CARDS,            "policy-based routing to the cards", CODE,         nullptr},
    // numbers of our own
    {CLI_SHOW_V6_ACL,             "show IPv6 ACL",                     SHOW,         cliShow<aclShowV6AclExt>},
    {CLI_SHOW_V6_ACL_ALL,         "show all IPv6 ACLs",                SHOW,         cliShow<aclShowV6AclAllExt>},
    {CLI_CLEAR_V6_ACL,            "clear IPv6 ACL counters",           CLI,          cliByName<aclClearV6AclExt>},
    {CLI_CLEAR_V6_ACL_ALL,        "clear all IPv6 ACL counters",       CODE,         cliOfAll<aclClearV6AclAllExt>},
    {CLI_CLEAR_MAC,               "clear MAC ACL counters",            CLI,          cliByName<aclClearMacAclExt>},
    {CLI_CLEAR_MAC_ALL,           "clear all MAC ACL counters",        CODE,         cliOfAll<aclClearMacAclAllExt>},
    {{CLI_SOURCE_GUARD_ADD, CLI_SOURCE_GUARD_DELETE}, "source-guard pair", sizeof(cliSourceGuardReq),
     cliSourceGuard, GOES},
    {CLI_SHOW_SOURCE_GUARD,       "show source guard",                 SHOW,         cliShow<aclShowSourceGuardExt>},
    {CLI_SHOW_SOURCE_GUARD_ALL,   "show all source guard",             SHOW,         cliShow<aclShowSourceGuardAllExt>},
};
// clang-format on
static_assert(rowsAreSorted(cliTable));

struct textRule {
    uint32_t flag;
    size_t at, size;
    bool blanks;
    size_t kindAt = 0;  // a word: the field is a text when it is COMM_REGEXP
};
constexpr textRule textRules[] = {
    {CLI_NAME, offsetof(cliHdr, name), LIST_NAME_LEN, false},
    {CLI_CLAUSE, offsetof(cliRmapClauseReq, clause.list), LIST_NAME_LEN, false},
    {CLI_GROUP, offsetof(cliGroupReq, list), LIST_NAME_LEN, false},
    {CLI_VLANS, offsetof(cliBindReq, vlanText), CLI_VLAN_TEXT_LEN, true},
    {CLI_REMARK_TEXT, offsetof(cliRemarkReq, text), REMARK_LEN, true},
    {CLI_DESCRIPTION_TEXT, offsetof(cliDescriptionReq, text), DESCRIPTION_LEN, true},
    {CLI_ASPATH, offsetof(cliAspathReq, text), sizeof(cliAspathReq::text), true},
    {CLI_COMM, offsetof(cliCommReq, entry.text), sizeof(commEntryBlock::text), true,
     offsetof(cliCommReq, entry.kind)},
    {CLI_EXTCOMM, offsetof(cliExtCommReq, entry.body.text), sizeof(extCommBody::text), true,
     offsetof(cliExtCommReq, entry.kind)},
};
// The shell refuses such texts itself; other senders are not to be trusted with the configuration.
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

// What is wrong with a request is said first: whether the configuration can be stored matters only
// for one that could be run.
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
    call.family = row->family;
    call.detail = (row->flags & CLI_DETAIL) != 0;
    return row->run(call);
}

// The second ACL agent hears the request itself, with its result; without one there is nobody to
// tell.
void AclUpdateACL2ForPrefixlist(const uint8_t* message, uint32_t length) {
    if (aclNode->queues.acl2qHandle == ZEK_SWP_NONE) return;
    void* copy = acl_Swp_Alloc(length);
    if (copy == nullptr) {
        // It lacks this one from now on: the queue starts over, with every prefix list.
        zekSwpQueueLose(aclNode->queues.acl2qHandle);
        aclSysErr(SYSERR_MEMORY, "No memory for a message to ACL2");
        return;
    }
    std::memcpy(copy, message, length);
    (void)AclSwpEnqueACL2(copy, length);
}

}  // namespace

void AclProcCliCmd(aclNodeRecord* node, uint8_t* message) {
    cliCall call{.message = message};
    ipcHdr* hdr = msgHdr(message);
    // The answer must reach the result and the code, however short the request was.
    if (hdr->length < offsetof(cliHdr, reserved76))
        hdr->length = static_cast<uint32_t>(offsetof(cliHdr, reserved76));
    const cliRow* row = rowOf(cliTable, call.code());
    if (row != nullptr && (row->flags & CLI_ANSWER_FIRST) != 0) {
        call.as<cliHdr>()->result = ACL_OK;
        AclIpcReply(node->ipc.regQfd, message);
        (void)runRow(row, call);
        return;
    }
    const uint64_t notShown = cfgNotShown;  // counts lines that do not show their request
    bool refused = row != nullptr && (row->flags & CLI_V6) != 0 && halAclMgrIsV6AclSupported() == 0;
    uint32_t result = refused ? uint32_t{ACL_E_SYSTEM} : runRow(row, call);
    if (row != nullptr && (row->flags & CLI_ACL2) != 0 && !refused) {
        // Refused ones, too, with their result.
        call.as<cliHdr>()->result = result;
        AclUpdateACL2ForPrefixlist(message, hdr->length);
    }
    // A show is answered by its buffer; without one, by the request with the status.
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
