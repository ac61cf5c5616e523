// The functions of the debug shell: the register, and those that the platform has itself.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>

#include "include/listNames.h"
#include "include/status.h"
#include "include/sysErr.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekSwp.h"
#include "platform/api/zekTask.h"
#include "platform/host/cfgmgr.h"
#include "platform/host/host.h"

namespace {

typedef nlohmann::ordered_json json;

struct debugFunction {
    std::string help;
    zekDebugFn fn;
};
std::map<std::string, debugFunction, std::less<>>& functions();

// Texts of other tasks may hold any bytes.
std::string text(const json& j) {
    return j.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string timeText(uint64_t ms) {
    time_t seconds = static_cast<time_t>(ms / 1000);
    tm utc{};
    gmtime_r(&seconds, &utc);
    char out[40];
    size_t used = strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &utc);
    snprintf(out + used, sizeof out - used, ".%03u", static_cast<unsigned>(ms % 1000));
    return out;
}

std::string showRing(void (*walk)(const std::function<void(const zekEvtLine&)>&)) {
    json lines = json::array();
    walk([&lines](const zekEvtLine& l) {
        json line = {{"number", l.number}, {"time", timeText(l.timeMs)}};
        char code[16] = "";
        if (l.code != 0) snprintf(code, sizeof code, "0x%X", l.code);
        const auto* row = std::ranges::find(aclSysErrTable, l.code, &aclSysErrRow::code);
        line["code"] = code;
        line["about"] = row != std::ranges::end(aclSysErrTable) ? row->about : "";
        line["text"] = l.text;
        lines.push_back(line);
    });
    return text(lines);
}
std::string showLogging(std::string_view) {
    return showRing(zekEvtRing);
}
std::string showTrace(std::string_view) {
    return showRing(hostDebugRing);
}

std::string showQueues(std::string_view) {
    std::vector<zekSwpStats> rows(zekSwpStatistics({}));
    zekSwpStatistics(rows);
    static constexpr const char* states[] = {"in step", "lost", "answered"};
    json queues = json::array();
    for (const zekSwpStats& q : rows) {
        char own[32], peer[32];
        (void)zekSwpGetTaskNamesFromQHandle(q.queue, own, peer, sizeof(own));
        json row = {
            {"queue", q.queue},         {"peer", peer},
            {"application", q.peerApp}, {"slot", q.slot == UINT32_MAX ? json() : json(q.slot)},
            {"session", q.session},     {"instance", q.instance},
            {"alive", q.alive},         {"state", states[static_cast<size_t>(q.state)]},
            {"backlog", q.backlog},     {"bytes", q.bytes},
            {"enqueued", q.enqueued},   {"acknowledged", q.acknowledged},
            {"repeated", q.repeated},   {"timeouts", q.timeouts},
            {"flushed", q.flushed},     {"refused", q.refused}};
        queues.push_back(std::move(row));
    }
    return text(queues);
}

std::string showIpc(std::string_view) {
    zekIpcStats s = zekIpcStatistics();
    return text({{"received", s.received},
                 {"sent", s.sent},
                 {"heldBack", s.heldBack},
                 {"tooLong", s.tooLong},
                 {"tooShort", s.tooShort},
                 {"malformed", s.malformed},
                 {"overrun", s.overrun},
                 {"sendFailed", s.sendFailed},
                 {"dropped", s.dropped},
                 {"uptimeMs", hostUptimeMs()}});
}

std::string showMemory(std::string_view) {
    json classes = json::array();
    for (const zekMemClass& c : zekMemClasses())
        classes.push_back({{"size", c.size},
                           {"inUse", c.inUse},
                           {"highWater", c.highWater},
                           {"failed", c.failed},
                           {"limit", c.limit == UINT64_MAX ? json() : json(c.limit)}});
    zekMemHeap heap = zekMemHeapStats();
    return text(
        {{"classes", classes},
         {"heap", {{"blocks", heap.blocks}, {"bytes", heap.bytes}, {"failed", heap.failed}}}});
}

std::string writeMemory(std::string_view) {
    std::string file = cfgMgrStartupFile(hostConf().runDir);
    zekCfgDb* db = zekCfgOfTask();
    // What is there of the configuration yet must not take the place of the whole.
    if (cfgMgrIsRestoring())
        return text({{"error", "The configuration is still being restored: try again"}});
    if (db != nullptr && cfgDbImport(db) != CFG_IMPORT_DONE)
        return text({{"error", file + " has not been read yet (see show logging): it is kept"}});
    if (db != nullptr && !zekCfgWritable(db))
        return text({{"error", aclStatusFind(ACL_E_STORE)->text}});
    listNames names;
    uint64_t notShown = 0;
    auto typed = [&](const zekCfgRow& row) {
        std::string_view list;
        const uint32_t code = clauseOfRequest(row.request.mtype, row.request.body, &list);
        std::string line = listNamesTyped(names, std::string(row.text), code, list);
        notShown += line.starts_with(CFG_NOT_SHOWN);
        return line;
    };
    if (db != nullptr)
        (void)zekCfgWalk(db, [&](std::string_view l) { return listNamesNote(&names, l), true; });
    if (db == nullptr || zekCfgWriteStartup(db, file.c_str(), typed) != 0)
        return text({{"error", "The startup configuration cannot be written: " + file + ": " +
                                   std::strerror(errno)}});
    json answer = {{"written", file}};
    if (notShown != 0)
        answer["not-saved"] = std::to_string(notShown) + " lines that cannot be shown";
    return text(answer);
}

// "retry", "discard N" (0: all).
std::string unresolved(std::string_view args) {
    zekCfgDb* db = zekCfgOfTask();
    if (db == nullptr) return text({{"error", "There is no configuration database"}});
    if (args == "retry") {
        zekCfgRetryUnresolved();
        return text({{"trying", zekCfgStatistics(db).unresolved}});
    }
    constexpr std::string_view discard = "discard ";
    uint64_t id = 0;
    const char* end = args.data() + args.size();
    if (!args.starts_with(discard) ||
        std::from_chars(args.data() + discard.size(), end, id).ptr != end)
        return text({{"error", "expected: retry, or discard NUMBER (0: all)"}});
    const int64_t gone = zekCfgDiscardUnresolved(db, id);
    if (gone < 0) return text({{"error", "The configuration database cannot be written"}});
    if (gone == 0 && id != 0)
        return text({{"error", "No unresolved line has number " + std::to_string(id)}});
    return text({{"discarded", gone}});
}

std::string showHelp(std::string_view) {
    std::string out;
    for (const auto& [name, f] : functions()) out += name + "  " + f.help + "\n";
    return out;
}

std::map<std::string, debugFunction, std::less<>>& functions() {
    static std::map<std::string, debugFunction, std::less<>> all = {
        {"help", {"names of all functions", showHelp}},
        {"ipc", {"message counters (JSON)", showIpc}},
        {"logging", {"system errors and log lines, oldest first (JSON)", showLogging}},
        {"memory", {"block classes and heap (JSON)", showMemory}},
        {"queues", {"queues to other tasks (JSON)", showQueues}},
        {"unresolved", {"retry | discard NUMBER: lines that a restart left (JSON)", unresolved}},
        {"write-memory", {"saves the running configuration (JSON)", writeMemory}},
        {"trace", {"debug text, oldest first (JSON)", showTrace}},
    };
    return all;
}

}  // namespace

void zekDebugRegister(const char* name, const char* help, zekDebugFn fn) {
    functions()[name] = {help, fn};
}

bool zekDebugRun(std::string_view name, std::string_view args, std::string* out) {
    auto it = functions().find(name);
    if (it == functions().end()) return false;
    try {
        *out = it->second.fn(args);
    } catch (const std::exception& e) {
        *out = e.what();
    }
    return true;
}
