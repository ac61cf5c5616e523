// One operator's session: the mode, the list that is edited, the road to the manager.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "cli/listNames.h"
#include "cli/parser.h"
#include "cli/pipe.h"
#include "cli/request/report.h"
#include "cli/request/request.h"
#include "platform/api/zekChassis.h"

struct cliOptions {
    std::string runDir;
    std::string chassisFile;
    uint32_t rp = 0;
    int timeoutMs = 10000;
    bool json = false;
    bool checkOnly = false;    // read and judge lines, send nothing
    bool compile = false;      // as checkOnly, and write every line's request to standard output;
                               // numbers may be whatever a stored configuration can carry
    bool interactive = false;  // a typing error leaves the mode as it is
};

struct cliSession {
    cliOptions options;
    cliMode mode = cliMode::exec;
    cliMode outermost = cliMode::exec;  // where "end" leads
    cliScope scope;                     // of a list's or interface's mode
    listNames lists;                    // of what is being loaded: they decide what a bare name is
    listNames running;                  // where those do not know it
    bool inverseMask = false;
    bool done = false;         // "exit" in exec mode
    bool unreachable = false;  // somebody who had to be asked could not be
    FILE* out = stdout;
    FILE* err = stderr;
    cliChannel channel;
    chassisDescription chassis{};  // see sessionChassis
    bool chassisLoaded = false;
};

// What became of a command. A refusal has a sentence and the column that it is about.
struct cliOutcome {
    bool ok = true;
    std::string sentence;  // empty with ok false: everything has been said
    size_t column = 0;
};
// The exit statuses of the shell beside 0.
constexpr int EXIT_REFUSED = 1, EXIT_UNREACHABLE = 2;
inline int sessionExitStatus(const cliSession& session, bool good) {
    return good ? 0 : session.unreachable ? EXIT_UNREACHABLE : EXIT_REFUSED;
}
inline cliOutcome refusal(std::string sentence, size_t column = 0) {
    return {false, std::move(sentence), column};
}

// A refusal because of somebody who could not be asked.
inline cliOutcome notReached(cliSession* session, std::string sentence) {
    session->unreachable = true;
    return refusal(std::move(sentence));
}

// Takes the mask mode from the configuration database; normal when there is none.
void sessionReadMaskMode(cliSession* session);
inline cliContext sessionContext(const cliSession& s) {
    return {s.mode, s.inverseMask, s.options.compile};
}
// A mode below configuration mode, and the lines that belong to one.
bool sessionIsInner(cliMode mode);
bool sessionIsInnerLine(const cliCommand& command);
// The mode of a list's header, the one that follows any other configuration command.
cliMode sessionModeAfter(const cliSession& session, const cliCommand& command);
// Takes over the mode that follows a command that was accepted.
void sessionEnter(cliSession* session, const cliCommand& command);
// After a refused line: whether it must end the inner mode, because what follows may belong to a
// list whose header was just refused and must not go into the one before it.
bool sessionMustLeave(const cliSession& session, const cliCommand& command,
                      const cliParseError& error);
// Opens the channel at its first use.
bool sessionConnect(cliSession* session, std::string* error);
// Reads the chassis description at its first use.
bool sessionChassis(cliSession* session, std::string* error);
// The sentence about an interface that the description lacks.
std::string noInterfaceText(const std::string& name);
// Makes the named interface the one that the lines of its mode act on; the sentence that refuses
// it. When only checking, a chassis that is not described is no reason to refuse.
cliOutcome sessionInterface(cliSession* session, const cliCommand& command);
// Looks up what a clause of a route map refers to: an interface, or whether the list that it names
// in the words of an access list is a prefix list.
cliOutcome sessionClause(cliSession* session, cliCommand* command);

// Runs a command that was read; output goes through the pipe.
cliOutcome sessionExecute(cliSession* session, const cliCommand& command, cliPipe* pipe);
// Runs one line, reporting what is refused. False when the command failed (or a test denied).
bool sessionRun(cliSession* session, std::string_view line, const cliPlace& place);
// Prints the help for a line that ends where the "?" was typed.
bool sessionHelp(cliSession* session, std::string_view line, const cliPlace& place);

// Runs one of the manager's debug functions; *text is its answer.
cliOutcome sessionDebug(cliSession* session, std::string_view function, std::string_view args,
                        std::string* text);

// The manager's column of a refused command: the number when the status is about the number.
size_t sessionColumn(const cliCommand& command, uint32_t status);

// Commands that print (show.cpp).
cliOutcome showRunning(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showStartup(cliSession* session, const cliCommand& command, cliPipe* pipe);
// What a restart could not bring back (unresolved.cpp).
cliOutcome showUnresolved(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome retryUnresolved(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome discardUnresolved(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showLists(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showDebug(cliSession* session, std::string_view function, cliPipe* pipe,
                     std::string_view args = "");
// Interfaces, VLANs, LAGs and the protocols on them (places.cpp).
cliOutcome showInterfaces(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showVlans(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showPortChannels(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showProtocols(cliSession* session, const cliCommand& command, cliPipe* pipe);
// Agents and the chassis (cards.cpp, installed.cpp).
cliOutcome showCards(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showCard(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome chassisControl(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showInstalled(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showSystemLists(cliSession* session, const cliCommand& command, cliPipe* pipe);
// Routing-policy lists (policy.cpp).
cliOutcome showPolicy(cliSession* session, const cliCommand& command, cliPipe* pipe);
cliOutcome showTest(cliSession* session, const cliCommand& command, cliPipe* pipe);  // of any list
