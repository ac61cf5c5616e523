// What the debug shell can ask of the manager. Functions run on the task's thread, between two
// messages; results are JSON unless their help says text.
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ask/debugWords.h"
#include "download/zekacl_download.h"
#include "include/ipText.h"
#include "include/jsonText.h"
#include "include/service.h"
#include "platform/api/zekCfg.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// Taken when the functions are registered, at the task's start.
std::chrono::steady_clock::time_point startTime;

// --- system --------------------------------------------------------------------------------------

// Longer than a screen on purpose: it is one answer, written down in the order in which it is
// shown, and every line is a field.
std::string showSystem(std::string_view) {
    using std::chrono::duration_cast, std::chrono::seconds;
    jsonObject registrations;
    registrations.flag("interface-manager", aclNode->standing.ifmRegistered != 0)
        .flag("event-handler", aclNode->standing.evhRegistered != 0)
        .flag("peer", aclNode->standing.peerRegistered != 0)
        .flag("second-acl-agent", aclNode->standing.acl2Registered != 0)
        .flag("control-processor-agent", aclNode->standing.acl0Registered != 0)
        .flag("udp-helper", aclNode->standing.udpHelperRegistered != 0);

    struct countRow {
        const char* name;
        const zekRadix* tree;
    };
    jsonObject lists;
    for (const countRow& row : {countRow{"ip-access-lists", aclNode->trees.acl_tree},
                                countRow{"ipv6-access-lists", aclNode->trees.v6acl_tree},
                                countRow{"mac-access-lists", aclNode->trees.l2acl_tree},
                                countRow{"source-guard-lists", aclNode->trees.ipMacAcl_tree},
                                countRow{"system-lists", aclNode->trees.aclSys_tree},
                                countRow{"trace-lists", aclNode->trees.dos_tree},
                                countRow{"ip-prefix-lists", aclNode->trees.prefix_tree},
                                countRow{"ipv6-prefix-lists", aclNode->trees.v6prefix_tree},
                                countRow{"route-maps", aclNode->trees.rmap_tree},
                                countRow{"as-path-lists", aspathAclNode->asTree},
                                countRow{"community-lists", aspathAclNode->commTree},
                                countRow{"extcommunity-lists", aspathAclNode->extCommTree},
                                countRow{"interfaces", aclNode->trees.acl_intf_tree}})
        lists.number(row.name, zekRadixCount(row.tree));

    const aclTaskCounters& c = aclCounters;
    // The platform counts what it could not deliver, the task what it could not use; the operator
    // wants one list.
    zekIpcStats ipc = zekIpcStatistics();
    jsonObject messages;
    messages.number("received", ipc.received)
        .number("sent", ipc.sent)
        .number("dispatched", c.messages)
        .number("loop-passes", c.passes)
        .number("held-back", ipc.heldBack)
        .number("send-failed", ipc.sendFailed)
        .number("dropped", ipc.dropped)
        .number("overrun", ipc.overrun)
        .number("malformed", ipc.malformed)
        .number("repeated", ipc.repeated)
        .number("too-long", ipc.tooLong)
        .number("too-short", ipc.tooShort + c.tooShort)
        .number("bad-length-word", c.badLength)
        .number("bad-names", c.badNames)
        .number("truncated", c.truncated)
        .number("unknown-type", c.unknownType)
        .number("unknown-code", c.unknownCode)
        .number("not-supported", c.notBuilt)
        .number("out-of-order", c.outOfOrder)
        .number("swp-acknowledgements", c.swp_ack)
        .number("mac-limit-adds", c.ACLMAC_ADD)
        .number("mac-limit-deletions", c.ACLMAC_DELENTRY)
        .number("mac-limit-clears", c.ACLMAC_DELALLENTRY);

    zekCfgStats cfg = zekCfgStatistics(aclNode->config.cfgDb);
    jsonObject configuration;
    configuration.number("lines", cfg.lines)
        .number("unresolved", cfg.unresolved)
        .string("writable", cfg.writable ? "yes" : "no: changes are refused")
        .number("changes", cfg.changes)
        .number("commits", cfg.commits)
        .number("failed-commits", cfg.failedCommits)
        .string("mask-display", aclNode->config.inverseMask != 0 ? "inverse" : "normal");

    jsonObject system;
    system
        .number("uptime-seconds",
                static_cast<uint64_t>(
                    duration_cast<seconds>(std::chrono::steady_clock::now() - startTime).count()))
        .string("role", zekHaIsPrimaryRpm() ? "primary" : "secondary")
        .number("chassis-mode", aclNode->chassis.chassisMode)
        .number("route-processor-type", aclNode->chassis.rpmType)
        .object("registrations", registrations)
        .object("lists", lists)
        .object("messages", messages)
        .object("configuration", configuration);
    // Parts that the platform knows and shows under names of their own as well.
    std::string part;
    if (zekDebugRun("queues", "", &part)) system.raw("queues", part);
    if (zekDebugRun("memory", "", &part)) system.raw("memory", part);
    return system.text();
}

// --- the rest ------------------------------------------------------------------------------------

std::string dumpNode(std::string_view) {
    return aclDumpNode(aclNode);
}

std::string dumpLinecards(std::string_view) {
    return aclDumpLinecardInfo();
}

std::string dumpClients(std::string_view) {
    // First, so that what has come meanwhile is counted.
    aclTakeLateAnswers();
    return aclClientsDump();
}

std::string debugMask(std::string_view args) {
    auto words = splitWords(args);
    if (!words.empty()) {
        auto mask = parseNumber(words[0], 0xFFFFFFFF);
        if (!mask || words.size() > 1) return "usage: mask [NUMBER]\n";
        DEBUG_ACL_MGR = *mask;
    }
    return "DEBUG_ACL_MGR = " + std::to_string(DEBUG_ACL_MGR) + "\n";
}

}  // namespace

void aclRegisterDebugFunctions() {
    startTime = std::chrono::steady_clock::now();
    zekDebugRegister("system", "state of the manager: registrations, lists, messages, memory",
                     showSystem);
    zekDebugRegister("node", "dump of the state root (text)", dumpNode);
    zekDebugRegister("linecards", "dump of the line cards that are up (text)", dumpLinecards);
    zekDebugRegister("clients", "how the clients of lists were told of changes", dumpClients);
    zekDebugRegister("mask", "[NUMBER] shows or sets the debug areas (text)", debugMask);
    aclRegisterFilterChecks();
    aclRegisterInstalledFunctions();
    aclRegisterSystemListFunctions();
    aclRegisterMacIntentFunctions();
    aclRegisterPlaceFunctions();
    aclRegisterVlanGroupFunctions();
    aclRegisterAddressFunctions();
    aclRegisterSourceGuardFunctions();
    aclRegisterBgpFunctions();
    aclRegisterPrefixFunctions();
    aclRegisterMacFunctions();
    aclRegisterRmapFunctions();
    aclRegisterRmapChecks();
}
