// The rows of listKinds, in the order of cliKind. What a kind has not, such as counters that could
// be cleared, is left out of its row and has no request then.
#include "cli/kinds.h"

#include "cli/grammar/build.h"
#include "include/status.h"

constexpr listKind listKinds[KIND_COUNT] = {
    // Both kinds of access lists are tested, shown and cleared by this row.
    {.mode = {&sStandard, F_LIST | F_NET, IP_KIND_STANDARD, "acl(config-standard)# "},
     .codes = {CLI_IP_LIST_CREATE, CLI_IP_LIST_DELETE, CLI_IP_ENTRY_ADD, CLI_IP_ENTRY_DELETE},
     .header = {sizeof(cliListReq), fillList},
     .line = {sizeof(cliIpEntryReq), fillEntry},
     .clear = {CLI_CLEAR_IP_ACL_ALL, CLI_CLEAR_IP_ACL},
     .testFunction = "test-ip-filter",
     .show = {showLists}},
    {.mode = {&sExtended, F_LIST | F_NET | F_EXT | F_LAYER2, IP_KIND_EXTENDED,
              "acl(config-extended)# "},
     .codes = {CLI_IP_LIST_CREATE, CLI_IP_LIST_DELETE, CLI_IP_ENTRY_ADD, CLI_IP_ENTRY_DELETE},
     .header = {sizeof(cliListReq), fillList},
     .line = {sizeof(cliIpEntryReq), fillEntry}},
    // A trace list's lines are an extended list's without DSCP, fragments, order, monitor and rules
    // below IP.
    {.mode = {&sExtended, F_EXT, IP_KIND_EXTENDED, "acl(config-trace)# "},
     .codes = {CLI_DOS_LIST_CREATE, CLI_DOS_LIST_DELETE, CLI_DOS_ENTRY_ADD, CLI_DOS_ENTRY_DELETE},
     .header = {sizeof(cliListReq)},
     .line = {sizeof(cliIpEntryReq), fillEntry}},
    // The headers of these lists are a name and nothing else: the plain CLI header, which is the
    // default form.
    {.mode = {&sPrefix4, 0, 0, "acl(config-prefix-list)# "},
     .codes = {CLI_PREFIX_LIST_CREATE, CLI_PREFIX_LIST_DELETE, CLI_PREFIX_ENTRY_ADD,
               CLI_PREFIX_ENTRY_DELETE},
     .line = {sizeof(cliPrefix4Req), fillPrefix4},
     .clear = {CLI_PREFIX_CLEAR_ALL, CLI_PREFIX_CLEAR},
     .testFunction = "testPrefixList",
     .show = {showPolicy, "ip prefix-list", ACL_E_PREFIX_NOLIST, CLI_SHOW_PREFIX_ALL,
              CLI_SHOW_PREFIX, CLI_SHOW_PREFIX_ALL_DETAIL, CLI_SHOW_PREFIX_DETAIL}},
    // The same with its own codes; it is tested by the same function, which takes the family from
    // the prefix.
    {.mode = {&sPrefix6, 0, 0, "acl(config-prefix-list)# "},
     .codes = {CLI_V6_PREFIX_LIST_CREATE, CLI_V6_PREFIX_LIST_DELETE, CLI_V6_PREFIX_ENTRY_ADD,
               CLI_V6_PREFIX_ENTRY_DELETE},
     .line = {sizeof(cliPrefix6Req), fillPrefix6},
     .clear = {CLI_V6_PREFIX_CLEAR_ALL, CLI_V6_PREFIX_CLEAR},
     .testFunction = "testPrefixList",
     .show = {showPolicy, "ipv6 prefix-list", ACL_E_PREFIX_NOLIST, CLI_SHOW_V6_PREFIX_ALL,
              CLI_SHOW_V6_PREFIX, CLI_SHOW_V6_PREFIX_ALL_DETAIL, CLI_SHOW_V6_PREFIX_DETAIL}},
    {.mode = {&sAspath, 0, 0, "acl(config-as-path)# "},
     .codes = {CLI_ASPATH_LIST_CREATE, CLI_ASPATH_LIST_DELETE, CLI_ASPATH_ENTRY_ADD,
               CLI_ASPATH_ENTRY_DELETE},
     .line = {sizeof(cliAspathReq), fillAspath},
     .testFunction = "testAspath",
     .show = {showPolicy, "ip as-path access-list", ACL_E_ASPATH_NOLIST, CLI_SHOW_ASPATH_ALL,
              CLI_SHOW_ASPATH}},
    {.mode = {&sCommunity, 0, 0, "acl(config-community)# "},
     .codes = {CLI_COMM_LIST_CREATE, CLI_COMM_LIST_DELETE, CLI_COMM_ENTRY_ADD,
               CLI_COMM_ENTRY_DELETE},
     .line = {sizeof(cliCommReq), fillCommunity},
     .testFunction = "testCommunity",
     .show = {showPolicy, "ip community-list", ACL_E_COMM_NOLIST, CLI_SHOW_COMM_ALL,
              CLI_SHOW_COMM}},
    {.mode = {&sExtCommunity, 0, 0, "acl(config-extcommunity)# "},
     .codes = {CLI_EXTCOMM_LIST_CREATE, CLI_EXTCOMM_LIST_DELETE, CLI_EXTCOMM_ENTRY_ADD,
               CLI_EXTCOMM_ENTRY_DELETE},
     .line = {sizeof(cliExtCommReq), fillExtCommunity},
     .testFunction = "testExtCommunity",
     .show = {showPolicy, "ip extcommunity-list", ACL_E_EXTCOMM_NOLIST, CLI_SHOW_EXTCOMM_ALL,
              CLI_SHOW_EXTCOMM}},
    // The IPv6 clauses have codes of their own, which fillClause knows.
    {.mode = {&sRouteMap, F_CLAUSE, 0, "acl(config-route-map)# "},
     .codes = {CLI_RMAP_CREATE, CLI_RMAP_DELETE, CLI_RMAP_ENTRY_ADD, CLI_RMAP_ENTRY_DELETE},
     .header = {sizeof(cliRmapReq), fillRouteMap},
     .removal = {sizeof(cliRmapDeleteReq), fillRouteMapDelete},
     .line = {sizeof(cliRmapClauseReq), fillClause},
     .testFunction = "testRouteMap",
     .show = {showPolicy, "route-map", ACL_E_NORMAP, CLI_SHOW_RMAP_ALL, CLI_SHOW_RMAP,
              CLI_SHOW_RMAP_CONFIG, CLI_SHOW_RMAP_CONFIG}},
};
