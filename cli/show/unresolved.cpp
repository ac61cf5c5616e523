// What a restart could not bring back: shown from the database, tried again or discarded by the
// manager.
#include "cli/session.h"
#include "cli/show/agents.h"
#include "cli/show/render.h"
#include "include/cliMsg.h"
#include "platform/api/zekCfg.h"

namespace {

// The list that a request is about; empty for one that is about none.
std::string listOf(const zekCfgRequest& request) {
    // The record keeps what stands behind the message's header.
    constexpr size_t at = offsetof(cliHdr, name) - sizeof(ipcHdr);
    const auto* name = wireView<listName>(request.body, at);
    const bool isCli = request.mtype == MT_CLI_COMMAND;
    return isCli && name != nullptr ? std::string(listNameView(*name)) : std::string();
}

cliOutcome ask(cliSession* session, const std::string& args, cliPipe* pipe) {
    json answer;
    cliOutcome outcome = debugJson(session, "unresolved", args, &answer);
    if (outcome.ok) renderAnswer(*session, answer, pipe);
    return outcome;
}

}  // namespace

cliOutcome showUnresolved(cliSession* session, const cliCommand&, cliPipe* pipe) {
    // Reading needs no manager; changing does, because it is the one that writes.
    zekCfgDb* db = nullptr;
    if (cliOutcome opened = openShown(session->options, &db); !opened.ok) return opened;
    json rows = json::array();
    const int rc = zekCfgWalkUnresolved(db, [&](const zekCfgUnresolvedRow& row) {
        rows.push_back({{"number", row.id},
                        {"list", listOf(row.request)},
                        {"line", row.text},
                        {"tried-again", row.request.mtype != 0}});
        return true;
    });
    zekCfgClose(db);
    if (rc != 0) return refusal("The configuration database cannot be read");
    renderAnswer(*session, rows, pipe);
    return {};
}

cliOutcome retryUnresolved(cliSession* session, const cliCommand&, cliPipe* pipe) {
    return ask(session, "retry", pipe);
}

cliOutcome discardUnresolved(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    return ask(session, "discard " + std::to_string(command.number), pipe);
}
