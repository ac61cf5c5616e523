// Running commands: a row for each verb, the modes that configuration commands lead to, and what a
// session has to look up before a line can be sent.
#include "cli/session.h"

#include <unistd.h>

#include <algorithm>

#include "cli/kinds.h"
#include "cli/lexer.h"
#include "include/routeMapNames.h"
#include "include/status.h"
#include "platform/api/zekCfg.h"

namespace {

// Sends a configuration command and takes over the mode that follows it.
cliOutcome runConfig(cliSession* s, const cliCommand& typed, cliPipe*) {
    cliCommand command = typed;
    s->running = {};  // others may have changed them since
    cliOutcome outcome = sessionClause(s, &command);
    if (!outcome.ok) return outcome;
    // When only checking, every configuration command is taken: what the manager would say of it is
    // not known, and the lines behind a header are to be read in its mode.
    if (!s->options.checkOnly) {
        std::string error;
        if (!sessionConnect(s, &error)) return refusal(error);
        cliRequest request;
        size_t length;
        if (!requestBuild(&s->channel, command, s->scope, &request, &length))
            return refusal(statusText(ACL_E_SYSTEM));
        const int timeoutMs = s->options.timeoutMs;
        askResult asked = channelAsk(&s->channel, &request, length, timeoutMs);
        uint32_t status = ACL_E_SYSTEM;
        if (asked != askResult::answered)
            outcome = notReached(s, changeText(asked, timeoutMs));
        else if (!answerResult(s->channel, &status) || status != ACL_OK)
            outcome = refusal(statusText(status), sessionColumn(command, status));
        else if (!answerIsShown(s->channel))
            reportText(s->err, NOT_SHOWN_TEXT);
    }
    // Neither leads to another mode.
    if (sessionIsInnerLine(command) || command.verb == cliVerb::clearCounters) return outcome;
    if (outcome.ok) {
        sessionEnter(s, command);
        if (!s->options.checkOnly) answerInstance(s->channel, &s->scope.seq);
    }
    // A refused header must not leave its lines to the list before it.
    if (!outcome.ok) s->mode = cliMode::configure;
    if (outcome.ok && command.verb == cliVerb::maskMode) s->inverseMask = !command.negated;
    return outcome;
}

cliOutcome runInterface(cliSession* s, const cliCommand& command, cliPipe*) {
    return sessionInterface(s, command);
}
cliOutcome runConfigure(cliSession* s, const cliCommand&, cliPipe*) {
    s->mode = cliMode::configure;
    return {};
}
// In exec mode it ends the shell. A configuration file begins in configuration mode, and "exit"
// does not lead out of that.
cliOutcome runExit(cliSession* s, const cliCommand&, cliPipe*) {
    if (s->mode == cliMode::exec)
        s->done = true;
    else
        s->mode = sessionIsInner(s->mode) ? cliMode::configure : s->outermost;
    return {};
}
cliOutcome runEnd(cliSession* s, const cliCommand&, cliPipe*) {
    s->mode = s->outermost;
    return {};
}
cliOutcome runNothing(cliSession*, const cliCommand&, cliPipe*) {
    return {};
}

cliOutcome runDebug(cliSession* s, const cliCommand& c, cliPipe* pipe) {
    std::string text;
    cliOutcome outcome = sessionDebug(s, c.name, c.text, &text);
    if (outcome.ok) pipeText(pipe, text);
    return outcome;
}
cliOutcome runWriteMemory(cliSession* s, const cliCommand&, cliPipe* pipe) {
    return showDebug(s, "write-memory", pipe);
}
cliOutcome runShowLogging(cliSession* s, const cliCommand&, cliPipe* pipe) {
    return showDebug(s, "logging", pipe);
}
cliOutcome runShowSystem(cliSession* s, const cliCommand&, cliPipe* pipe) {
    return showDebug(s, "system", pipe);
}

cliOutcome runShowLists(cliSession* s, const cliCommand& c, cliPipe* pipe) {
    return listKinds[c.kind].show.run(s, c, pipe);
}
cliOutcome runShowQueues(cliSession* s, const cliCommand&, cliPipe* pipe) {
    return showDebug(s, "queues", pipe);
}
cliOutcome runShowAccessGroups(cliSession* s, const cliCommand&, cliPipe* pipe) {
    return showDebug(s, "access-groups", pipe);
}

// The first word is always there: a group may have any name.
cliOutcome runShowVlanGroups(cliSession* s, const cliCommand& c, cliPipe* pipe) {
    const std::string_view how = c.number != 0 ? "detail" : "brief";
    const std::string args = std::string(how) + " " + std::string(c.name);
    return showDebug(s, "acl-vlan-groups", pipe, lexTrimEnd(args));
}
cliOutcome runShowSourceGuard(cliSession* s, const cliCommand& c, cliPipe* pipe) {
    return showDebug(s, "source-guard", pipe, c.text);
}

cliOutcome runShowClients(cliSession* s, const cliCommand&, cliPipe* pipe) {
    return showDebug(s, "clients", pipe);
}

// The rows stand in the order of cliVerb, so that a verb is its row's index; the assertion below
// them keeps it so.
struct verbRow {
    cliVerb verb;
    bool local;  // changes nothing but this session, also when only checking
    cliOutcome (*run)(cliSession*, const cliCommand&, cliPipe*);
};
constexpr verbRow verbTable[] = {
    {cliVerb::nothing, true, runNothing},
    {cliVerb::showRunning, false, showRunning},
    {cliVerb::showStartup, false, showStartup},
    {cliVerb::showUnresolved, false, showUnresolved},
    {cliVerb::retryUnresolved, false, retryUnresolved},
    {cliVerb::discardUnresolved, false, discardUnresolved},
    {cliVerb::showLists, false, runShowLists},
    {cliVerb::showLogging, false, runShowLogging},
    {cliVerb::showSystem, false, runShowSystem},
    {cliVerb::showQueues, false, runShowQueues},
    {cliVerb::showCards, false, showCards},
    {cliVerb::showCard, false, showCard},
    {cliVerb::showInterfaces, false, showInterfaces},
    {cliVerb::showVlans, false, showVlans},
    {cliVerb::showPortChannels, false, showPortChannels},
    {cliVerb::showProtocols, false, showProtocols},
    {cliVerb::showAccessGroups, false, runShowAccessGroups},
    {cliVerb::showVlanGroups, false, runShowVlanGroups},
    {cliVerb::showSourceGuard, false, runShowSourceGuard},
    {cliVerb::showInstalled, false, showInstalled},
    {cliVerb::showSystemLists, false, showSystemLists},
    {cliVerb::showClients, false, runShowClients},
    {cliVerb::chassis, false, chassisControl},
    {cliVerb::clearCounters, true, runConfig},
    {cliVerb::writeMemory, false, runWriteMemory},
    {cliVerb::configure, true, runConfigure},
    {cliVerb::debug, false, runDebug},
    {cliVerb::test, false, showTest},
    {cliVerb::exit, true, runExit},
    {cliVerb::end, true, runEnd},
    {cliVerb::list, true, runConfig},
    {cliVerb::traceGroup, true, runConfig},
    {cliVerb::maskMode, true, runConfig},
    {cliVerb::macEgress, true, runConfig},
    {cliVerb::dhcpTrap, true, runConfig},
    {cliVerb::interface, true, runInterface},
    {cliVerb::entry, true, runConfig},
    {cliVerb::remark, true, runConfig},
    {cliVerb::description, true, runConfig},
    {cliVerb::accessGroup, true, runConfig},
    {cliVerb::vlanGroup, true, runConfig},
    {cliVerb::vlanGroupMember, true, runConfig},
    {cliVerb::vlanGroupList, true, runConfig},
    {cliVerb::sourceGuard, true, runConfig},
    {cliVerb::resequence, true, runConfig},
};
static_assert([] {
    for (size_t i = 0; i < std::size(verbTable); i++)
        if (verbTable[i].verb != static_cast<cliVerb>(i)) return false;
    return std::size(verbTable) == static_cast<size_t>(cliVerb::count_);
}());

// What was printed before the refusal is to stand before it, also where both go to the same file.
void report(cliSession* s, const cliPlace& place, std::string_view line, size_t column,
            std::string_view sentence, const std::vector<std::string>& expected = {}) {
    fflush(s->out);
    reportRefused(s->err, place, line, column, sentence, expected);
}

// The configuration as it runs, or null when there is none yet.
zekCfgDb* openRunning(const cliOptions& options) {
    const std::string file = zekCfgFileOf(options.rp);
    // Asked first: a manager that has never run has no database, and that is no fault to report.
    if (access((options.runDir + "/" + file).c_str(), R_OK) != 0) return nullptr;
    return zekCfgOpen(options.runDir.c_str(), zekCfgAccess::read, file.c_str());
}

// The whole configuration is walked once and kept until a command of this session changes
// something. A database that cannot be read decides nothing: the name then means an access list.
void readRunningLists(cliSession* session) {
    if (session->running.read) return;
    session->running.read = true;
    zekCfgDb* db = openRunning(session->options);
    if (db == nullptr) return;
    (void)zekCfgWalk(db, [session](std::string_view line) {
        listNamesNote(&session->running, line);
        return true;
    });
    zekCfgClose(db);
}

}  // namespace

void sessionReadMaskMode(cliSession* session) {
    zekCfgDb* db = openRunning(session->options);
    if (db == nullptr) return;
    session->inverseMask = zekCfgMaskMode(db) != 0;
    zekCfgClose(db);
}

bool sessionIsInner(cliMode mode) {
    return mode != cliMode::exec && mode != cliMode::configure;
}
bool sessionIsInnerLine(const cliCommand& command) {
    constexpr cliVerb others[] = {cliVerb::accessGroup, cliVerb::vlanGroupMember,
                                  cliVerb::vlanGroupList, cliVerb::sourceGuard};
    return cliIsListLine(command.verb) ||
           std::ranges::find(others, command.verb) != std::end(others);
}

cliMode sessionModeAfter(const cliSession& session, const cliCommand& command) {
    if (sessionIsInnerLine(command)) return session.mode;
    // "no" takes the list away and leaves nothing to edit.
    if (command.negated) return cliMode::configure;
    if (command.verb == cliVerb::vlanGroup) return cliMode::vlanGroup;
    return command.verb == cliVerb::list ? modeOfKind(command.kind) : cliMode::configure;
}

void sessionEnter(cliSession* session, const cliCommand& command) {
    session->mode = sessionModeAfter(*session, command);
    if (!sessionIsInner(session->mode)) return;
    session->scope.list = listNameMake(command.name);
    session->scope.seq = command.policy.seq;
    session->scope.action = command.policy.action;
}

bool sessionMustLeave(const cliSession& session, const cliCommand& command,
                      const cliParseError& error) {
    // At a terminal the operator sees the refusal and stays where he is; a file goes on regardless.
    if (!sessionIsInner(session.mode) || session.options.interactive) return false;
    // A configuration line that went wrong, or a first word that is not indented and not known.
    return !sessionIsInnerLine(command) || error.column == 0;
}

bool sessionConnect(cliSession* session, std::string* error) {
    if (session->channel.endpoint != nullptr) return true;
    const cliOptions& o = session->options;
    // Tried again by the next command after a failure: the manager may have been started meanwhile.
    bool opened = channelOpen(&session->channel, o.runDir, o.chassisFile, o.rp, error);
    if (!opened) session->unreachable = true;
    session->channel.stillWorking = [session] {
        reportText(session->err, "The manager is still working on it");
    };
    return opened;
}

bool sessionChassis(cliSession* session, std::string* error) {
    if (!session->chassisLoaded)
        session->chassisLoaded =
            zekChassisLoad(session->options.chassisFile, &session->chassis, error);
    return session->chassisLoaded;
}

std::string noInterfaceText(const std::string& name) {
    return "The chassis has no interface " + name + ": its description does not name it";
}

// The index of the interface that the command names. When only checking, a chassis that is not
// described is no reason to refuse.
static cliOutcome findInterface(cliSession* session, const cliCommand& command) {
    std::string error;
    session->scope.ifindex = 0;
    if (!sessionChassis(session, &error)) {
        if (!session->options.checkOnly) return refusal(error, command.firstColumn);
    } else if (!chassisIfIndex(session->chassis, command.text, &session->scope.ifindex)) {
        return refusal(noInterfaceText(command.text), command.firstColumn);
    }
    return {};
}

cliOutcome sessionClause(cliSession* session, cliCommand* command) {
    uint32_t& code = command->policy.code;
    if (code == RTMAP_MATCH_IFACE) return findInterface(session, *command);
    if (command->policy.typed || (code != RTMAP_MATCH_IPADD_ACL && code != RTMAP_MATCH_IPV6ADD_ACL))
        return {};
    const bool ipv6 = code == RTMAP_MATCH_IPV6ADD_ACL;
    const bool isLoaded = listNamesKnow(session->lists, ipv6, command->name);
    if (!isLoaded && !session->options.checkOnly) readRunningLists(session);
    if (listNamesIsPrefix(isLoaded ? session->lists : session->running, ipv6, command->name))
        code = ipv6 ? RTMAP_MATCH_IPV6ADD_PREFIX : RTMAP_MATCH_IPADD_PREFIX;
    return {};
}

cliOutcome sessionInterface(cliSession* session, const cliCommand& command) {
    session->mode = cliMode::configure;
    cliOutcome outcome = findInterface(session, command);
    if (outcome.ok) session->mode = cliMode::interface;
    return outcome;
}

cliOutcome sessionDebug(cliSession* session, std::string_view function, std::string_view args,
                        std::string* text) {
    const cliOptions& o = session->options;
    int called = zekDebugCall(o.runDir, o.rp, function, args, o.timeoutMs, text);
    if (called == 0) return {};
    // Minus one: nobody answered. Other failures have the manager's own words in the text.
    if (called == -1) session->unreachable = true;
    std::string why = text->empty() ? askText(askResult::noAnswer, o.timeoutMs) : *text;
    // Those of the platform are parts of a sentence.
    if (called == -1) why[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(why[0])));
    return refusal(std::string(lexTrimEnd(why)));
}

size_t sessionColumn(const cliCommand& command, uint32_t status) {
    // Only these point at the number that was typed; the others are about the line.
    constexpr uint32_t aboutNumber[] = {ACL_E_SEQ_USED,           ACL_E_NOSEQ,
                                        ACL_E_SEQ_RANGE,          ACL_E_PREFIX_SEQ_USED,
                                        ACL_E_PREFIX_SEQ_DIFFERS, ACL_E_RMAP_SEQ};
    bool isAbout = std::ranges::find(aboutNumber, status) != std::end(aboutNumber);
    return isAbout && command.seqColumn != NO_COLUMN ? command.seqColumn : command.firstColumn;
}

cliOutcome sessionExecute(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    const verbRow& row = verbTable[static_cast<size_t>(command.verb)];
    if (session->options.checkOnly && !row.local) return {};
    cliOutcome outcome = row.run(session, command, pipe);
    if (outcome.column == 0) outcome.column = command.firstColumn;
    return outcome;
}

bool sessionHelp(cliSession* session, std::string_view line, const cliPlace& place) {
    std::vector<cliHelpRow> rows;
    cliParseError error;
    if (!cliHelp(sessionContext(*session), line, &rows, &error)) {
        report(session, place, line, error.column, error.text, error.expected);
        return false;
    }
    size_t width = 0;
    for (const cliHelpRow& row : rows) width = std::max(width, row.word.size());
    for (const cliHelpRow& row : rows)
        fprintf(session->out, "  %-*s  %s\n", static_cast<int>(width), row.word.c_str(),
                row.help.c_str());
    if (rows.empty()) fputs("  nothing\n", session->out);
    fflush(session->out);
    return true;
}

bool sessionRun(cliSession* session, std::string_view line, const cliPlace& place) {
    std::string_view trimmed = lexTrimEnd(line);
    // A question mark at the end asks for help also without a terminal, but for that of an
    // expression or another text.
    if (trimmed.ends_with('?')) {
        trimmed.remove_suffix(1);
        if (!cliInText(sessionContext(*session), trimmed))
            return sessionHelp(session, trimmed, place);
    }
    cliPipe pipe;
    pipe.out = session->out;
    cliParseError error;
    std::string_view commandPart = line;
    size_t at = 0;
    // Configuration lines have no filters: a bar may be part of an expression.
    bool configLine = session->mode != cliMode::exec && lexWord(line, &at) != "do";
    if (!configLine && !pipeParse(&commandPart, &pipe, &error.column, &error.text)) {
        report(session, place, line, error.column, error.text);
        return false;
    }
    cliCommand command;
    switch (cliParse(sessionContext(*session), commandPart, &command, &error)) {
        case cliParsed::nothing:
            return true;
        case cliParsed::refused:
            report(session, place, line, error.column, error.text, error.expected);
            if (sessionMustLeave(*session, command, error)) session->mode = cliMode::configure;
            return false;
        case cliParsed::command:
            break;
    }
    cliOutcome outcome = sessionExecute(session, command, &pipe);
    pipeFinish(&pipe);
    if (!outcome.ok && !outcome.sentence.empty())
        report(session, place, line, outcome.column, outcome.sentence);
    return outcome.ok;
}
