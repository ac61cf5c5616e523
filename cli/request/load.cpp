// Lines are parsed and sent without waiting for the answers before them: up to WINDOW are open at a
// time. Every open line, and every refused one that cannot be reported yet because an earlier line
// is still open, has a slot in a ring; slots leave it at the head, in line order.
//
// Two things wait. Entry lines wait for the answer to their list's header, because the entries of a
// list that is refused must not be sent. A change of the mask mode waits for everything, because
// the lines behind it read differently.
//
// Answers are taken before each send, because our queue is short. When the oldest open line waits
// for longer than its time, the manager's platform is asked what has become of it: what is under
// way is waited for, and what was lost is sent again. When nobody answers the load ends there, so
// that no list is loaded in part because its header was late.
#include "cli/request/load.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "cli/lexer.h"
#include "cli/request/compile.h"
#include "include/status.h"

namespace {

// Enough that a commit of the manager finds many requests at once; more would only wait in its
// queue.
constexpr size_t WINDOW = 256;
// A longer line is taken in pieces of this length.
constexpr size_t LINE_MAX_BYTES = 65536;
constexpr uint32_t TAKE_EVERY = 8;  // sends between two looks for answers; below a queue's ten
constexpr int FULL_WAIT_MS = 2;     // for room in the manager's queue, between two looks

struct loadSlot {
    bool done;
    bool isHeader;      // of a list
    uint32_t sequence;  // of the request that is open
    int64_t sentAt;     // or when it was last known to be under way
    bool sent;
    bool unknown;  // it was sent and is given up: it may have been taken
    uint32_t repeats;
    std::vector<uint8_t> request;
    uint32_t line;
    uint32_t firstColumn, seqColumn;
    std::string text;     // the line; slots are used again, so this rarely allocates
    std::string failure;  // a sentence, or empty
    size_t column;        // of the failure
    std::vector<std::string> expected;
};

// `none`: there is no answer that the next lines depend on.
enum class headerState { none, open, accepted, refused };

struct loader {
    cliSession& session;
    std::string_view source;
    std::vector<loadSlot> ring{WINDOW};
    size_t head = 0, count = 0;
    uint64_t refused = 0, unknown = 0;  // lines
    uint32_t toldOfLine = 0;            // the operator knows that this line takes long
    // The last list header: what became of it decides about the entries behind it.
    headerState header = headerState::none;
    uint32_t headerLine = 0;
    uint32_t badHeaderLine =
        0;  // a configuration line that could not be read: what list was meant?
    uint32_t sends = 0;
    bool gone = false;  // nothing can be sent any more
    cliCommand command{};

    int timeoutMs() const { return session.options.timeoutMs; }
    loadSlot& slot(size_t i) { return ring[(head + i) % WINDOW]; }
};

// Reports and releases the finished slots at the head.
// Refusals come out in the order of the lines, however the answers came in.
void flushSlots(loader& l) {
    while (l.count > 0 && l.slot(0).done) {
        loadSlot& s = l.slot(0);
        if (!s.failure.empty()) {
            (s.unknown ? l.unknown : l.refused)++;
            reportRefused(l.session.err, {l.source, s.line}, s.text, s.column, s.failure,
                          s.expected);
        }
        l.head = (l.head + 1) % WINDOW;
        l.count--;
    }
}

// Only the last header decides: one that was answered late has no lines behind it any more.
void finish(loader& l, loadSlot& s, std::string failure, size_t column) {
    s.done = true;
    s.failure = std::move(failure);
    s.column = column;
    if (s.isHeader && s.line == l.headerLine)
        l.header = s.failure.empty() ? headerState::accepted : headerState::refused;
}

// Gives the message in the channel to the line that it answers.
void takeAnswer(loader& l, uint32_t sequence) {
    for (size_t i = 0; i < l.count; i++) {
        loadSlot& s = l.slot(i);
        if (s.done || s.sequence != sequence) continue;
        uint32_t status;
        if (!answerResult(l.session.channel, &status)) break;
        // The command itself is gone: what a sentence points at was kept in the slot.
        cliCommand columns{};
        columns.firstColumn = s.firstColumn;
        columns.seqColumn = s.seqColumn;
        if (status == ACL_OK && !answerIsShown(l.session.channel))
            reportText(l.session.err, std::string(l.source) + ":" + std::to_string(s.line) + ": " +
                                          std::string(NOT_SHOWN_TEXT));
        if (s.isHeader && s.line == l.headerLine)
            answerInstance(l.session.channel, &l.session.scope.seq);
        finish(l, s, status == ACL_OK ? "" : statusText(status), sessionColumn(columns, status));
        return;
    }
    l.session.channel.strays++;  // late: its line has been reported as unanswered
}

// Takes what has been answered, waiting at most waitMs for the first answer.
// A stray message must not end the taking: the queue behind it may be full of answers.
void takeAnswers(loader& l, int waitMs) {
    uint64_t strays = l.session.channel.strays;
    for (;;) {
        const ipcHdr* hdr = channelReceive(&l.session.channel, waitMs);
        if (hdr != nullptr)
            takeAnswer(l, hdr->sequence);
        else if (l.session.channel.strays == strays)
            break;
        strays = l.session.channel.strays;
        waitMs = 0;
    }
    flushSlots(l);
}

// The manager has gone, or does not answer: what it answered before is taken, the rest of the open
// lines is given up, and nothing more is sent.
void managerGone(loader& l, askResult why) {
    l.gone = l.session.unreachable = true;
    takeAnswers(l, 0);
    for (size_t i = 0; i < l.count; i++) {
        loadSlot& s = l.slot(i);
        if (s.done) continue;
        // What was never sent has certainly not been taken.
        s.unknown = s.sent;
        finish(l, s, s.sent ? changeText(why, l.timeoutMs()) : askText(why, l.timeoutMs()),
               s.firstColumn);
    }
    flushSlots(l);
}

// False: it was lost too often.
bool sendAgain(loader& l, loadSlot& s) {
    if (s.repeats++ == ASK_AGAIN_MAX) return false;
    requestRepeat(wireView<ipcHdr>(std::span(s.request)));
    // When the manager's queue is full the next look repeats this.
    return zekEndpointSend(l.session.channel.endpoint, s.request.data(), s.request.size(),
                           FULL_WAIT_MS) <= zekSendResult::full;
}

// The oldest open line has waited for too long.
// One question answers for the whole window: requests are executed in their order, so what stands
// behind the oldest has not been reached either.
void overdue(loader& l) {
    loadSlot& s = l.slot(0);
    const requestFate fate = channelFate(l.session.channel, s.sequence, l.timeoutMs());
    if (fate == requestFate::silent || (fate == requestFate::lost && s.sent && !sendAgain(l, s)))
        return managerGone(l, askResult::noAnswer);
    // All times start anew, or each open line would ask for itself.
    for (size_t i = 0; i < l.count; i++) l.slot(i).sentAt = nowMs();
    if (fate != requestFate::underWay || std::exchange(l.toldOfLine, s.line) == s.line) return;
    reportText(l.session.err, std::string(l.source) + ": the manager is still working on line " +
                                  std::to_string(s.line));
}

// Takes what has been answered, waiting at most waitMs for the first answer, and looks after lines
// that have waited too long.
void pump(loader& l, int waitMs) {
    flushSlots(l);
    if (l.count == 0) return;
    int64_t left = l.slot(0).sentAt + l.timeoutMs() - nowMs();
    takeAnswers(l, static_cast<int>(std::clamp<int64_t>(left, 0, waitMs)));
    if (!l.gone && l.count > 0 && l.slot(0).sentAt + l.timeoutMs() <= nowMs()) overdue(l);
}

void drain(loader& l) {
    while (l.count > 0) pump(l, l.timeoutMs());
}

// A slot at the tail, waiting for room.
loadSlot& takeSlot(loader& l, uint32_t line, std::string_view text) {
    while (l.count == WINDOW) pump(l, l.timeoutMs());
    loadSlot& s = l.slot(l.count++);
    s.done = s.isHeader = s.sent = s.unknown = false;
    s.repeats = 0;
    s.line = line;
    s.sentAt = nowMs();
    // The line's bytes are the reader's and move on before the answer is there.
    s.text.assign(text);
    s.failure.clear();
    s.expected.clear();
    return s;
}

void refuseLine(loader& l, uint32_t line, std::string_view text, size_t column,
                std::string sentence, std::vector<std::string> expected = {}) {
    // A refused line takes a row as well, so that the manager knows of it.
    if (l.session.options.compile) compileWrite(l.session.out, text, nullptr);
    loadSlot& s = takeSlot(l, line, text);
    s.expected = std::move(expected);
    finish(l, s, std::move(sentence), column);
    flushSlots(l);
}

// Sends a command's request. The slot is taken first, so that answers find it.
void submit(loader& l, const cliCommand& command, uint32_t line, std::string_view text) {
    loadSlot& s = takeSlot(l, line, text);
    cliRequest request;
    size_t length;
    bool built = requestBuild(&l.session.channel, command, l.session.scope, &request, &length);
    s.firstColumn = command.firstColumn;
    s.seqColumn = command.seqColumn;
    s.sequence = built ? requestSequence(request.ipc) : 0;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&request);
    if (built) s.request.assign(bytes, bytes + length);
    // From here on entry lines ask this line what became of their list.
    if (!sessionIsInnerLine(command)) {
        s.isHeader = sessionIsInner(l.session.mode);
        l.header = s.isHeader ? headerState::open : headerState::none;
        l.headerLine = line;
    }
    if (!built) return finish(l, s, statusText(ACL_E_SYSTEM), s.firstColumn);
    // Taking answers may finish this slot, too: when the manager is found to be gone.
    while (!s.done) {
        if (l.sends++ % TAKE_EVERY == 0) pump(l, 0);
        // A full manager has room sooner than an answer: what it finds together it commits
        // together.
        switch (zekEndpointSend(l.session.channel.endpoint, &request, length, FULL_WAIT_MS)) {
            case zekSendResult::sent:
                s.sent = true;
                return;
            case zekSendResult::full:
                pump(l, 0);
                break;
            case zekSendResult::nobody:
                return managerGone(l, askResult::unreachable);
            case zekSendResult::failed:
                return managerGone(l, askResult::failed);
        }
    }
}

// Whether the header of an inner line was accepted; waits for the answer to a list's.
bool headerAccepted(loader& l) {
    while (l.header == headerState::open) pump(l, l.timeoutMs());
    return l.header != headerState::refused;
}

// An interface is looked up here. The lines of one that there is not are read, but not sent.
void loadInterface(loader& l, uint32_t line, std::string_view text) {
    cliOutcome outcome = sessionInterface(&l.session, l.command);
    l.session.mode = cliMode::interface;
    l.header = outcome.ok ? headerState::accepted : headerState::refused;
    l.headerLine = line;
    if (!outcome.ok) refuseLine(l, line, text, l.command.firstColumn, outcome.sentence);
}

// Headers and others need not wait for the lines before them.
bool isPipelined(const cliCommand& command) {
    return sessionIsInnerLine(command) || command.verb == cliVerb::list ||
           command.verb == cliVerb::vlanGroup || command.verb == cliVerb::traceGroup;
}

// Nothing is sent: the request is written, and the mode that the line leads to is entered.
void compileCommand(loader& l, uint32_t line, std::string_view text) {
    cliSession& s = l.session;
    if (l.command.verb == cliVerb::interface) return loadInterface(l, line, text);
    if (cliOutcome outcome = sessionClause(&s, &l.command); !outcome.ok)
        return refuseLine(l, line, text, outcome.column, outcome.sentence);
    // What is refused is tried again at every start: a list would get new numbers long after.
    if (l.command.verb == cliVerb::resequence) {
        sessionEnter(&s, l.command);
        return refuseLine(l, line, text, l.command.firstColumn,
                          "A change of the configuration, not a line of it");
    }
    cliRequest request;
    size_t length;
    if (requestBuild(&s.channel, l.command, s.scope, &request, &length)) {
        // The cookie is random. Without it the same lines compile to the same bytes.
        if (length >= sizeof(cliHdr)) request.cli.cookie = 0u;
        compileWrite(s.out, text, &request.ipc);
    }
    if (sessionIsInnerLine(l.command)) return;
    cliPipe pipe;
    pipe.out = s.err;
    (void)sessionExecute(&s, l.command, &pipe);
    pipeFinish(&pipe);
    sessionEnter(&s, l.command);
    if (l.command.verb == cliVerb::maskMode) s.inverseMask = !l.command.negated;
}

void loadCommand(loader& l, uint32_t line, std::string_view text) {
    cliSession& s = l.session;
    if (s.options.compile) return compileCommand(l, line, text);
    const cliCommand& command = l.command;
    bool inner = sessionIsInnerLine(command);
    // Entries are right once they can be read; nothing else is known of them here.
    if (inner && s.options.checkOnly) return;
    if (!inner) l.badHeaderLine = 0;
    if (command.verb == cliVerb::interface) return loadInterface(l, line, text);
    if (s.options.checkOnly || !isPipelined(command)) {
        // Rare commands run as they would when typed, after everything before them.
        drain(l);
        l.header = headerState::none;
        cliPipe pipe;
        pipe.out = s.out;
        cliOutcome outcome = sessionExecute(&s, command, &pipe);
        pipeFinish(&pipe);
        if (!outcome.ok) refuseLine(l, line, text, outcome.column, outcome.sentence);
        return;
    }
    if (inner && !headerAccepted(l))
        return refuseLine(l, line, text, command.firstColumn,
                          "Not sent: the header in line " + std::to_string(l.headerLine) +
                              (l.gone ? " was not answered" : " was refused"));
    if (cliOutcome outcome = sessionClause(&s, &l.command); !outcome.ok)
        return refuseLine(l, line, text, outcome.column, outcome.sentence);
    if (!inner) sessionEnter(&s, command);
    submit(l, command, line, text);
}

void loadLine(loader& l, std::string_view text, uint32_t line) {
    cliSession& s = l.session;
    cliParseError error;
    switch (cliParse(sessionContext(s), text, &l.command, &error)) {
        case cliParsed::nothing:
            return;
        case cliParsed::command:
            return loadCommand(l, line, text);
        case cliParsed::refused:
            break;
    }
    // One bad header makes all of its entries strange in configuration mode: each says why.
    if (s.mode == cliMode::configure && l.badHeaderLine != 0 && l.command.verb == cliVerb::entry)
        error.text += " (the header in line " + std::to_string(l.badHeaderLine) + " was refused)";
    if (sessionMustLeave(s, l.command, error)) s.mode = cliMode::configure;
    if (s.mode == cliMode::configure && (l.command.verb != cliVerb::entry || l.badHeaderLine == 0))
        l.badHeaderLine = line;
    refuseLine(l, line, text, error.column, std::move(error.text), std::move(error.expected));
}

// Lines of a descriptor, read in large pieces.
struct lineReader {
    int fd;
    std::vector<char> bytes = std::vector<char>(4 * LINE_MAX_BYTES);
    size_t begin = 0, end = 0;
    bool atEnd = false;
};

// The next line that has been read whole. False when more must be read first, or at the end.
// A line without an end is taken at the end of the file, or when it fills the buffer.
bool nextLine(lineReader& r, std::string_view* line) {
    const char* from = r.bytes.data() + r.begin;
    const void* newline = std::memchr(from, '\n', r.end - r.begin);
    size_t length = newline != nullptr
                        ? static_cast<size_t>(static_cast<const char*>(newline) - from)
                        : r.end - r.begin;
    if (newline == nullptr && !(r.atEnd && length > 0) && length < LINE_MAX_BYTES) return false;
    if (newline == nullptr && length > LINE_MAX_BYTES) length = LINE_MAX_BYTES;
    *line = {from, length};
    r.begin += length + (newline != nullptr ? 1 : 0);
    return true;
}

// Reads more; while nothing comes, answers are taken. False at the end.
bool readMore(loader& l, lineReader& r) {
    if (r.atEnd) return false;
    std::memmove(r.bytes.data(), r.bytes.data() + r.begin, r.end - r.begin);
    r.end -= r.begin;
    r.begin = 0;
    // Input through a pipe may pause for long: answers are taken and reported meanwhile.
    while (l.count > 0) {
        pollfd fds[] = {{r.fd, POLLIN, 0}, {zekEndpointFd(l.session.channel.endpoint), POLLIN, 0}};
        int64_t left = l.slot(0).sentAt + l.timeoutMs() - nowMs();
        if (poll(fds, 2, static_cast<int>(std::max<int64_t>(left, 0))) > 0 && fds[0].revents != 0)
            break;
        pump(l, 0);
    }
    ssize_t n;
    do n = read(r.fd, r.bytes.data() + r.end, r.bytes.size() - r.end);
    while (n < 0 && errno == EINTR);
    if (n < 0) {
        reportText(l.session.err, std::string(l.source) + ": " + strerror(errno));
        l.refused++;
    }
    r.atEnd = n <= 0;
    r.end += static_cast<size_t>(std::max<ssize_t>(n, 0));
    return true;
}

}  // namespace

int loadRun(cliSession* session, int fd, std::string_view source) {
    std::string error;
    session->mode = session->outermost = cliMode::configure;
    if (!session->options.checkOnly && !sessionConnect(session, &error)) {
        reportText(session->err, error);
        return EXIT_UNREACHABLE;
    }
    loader l{.session = *session, .source = source};
    const int from = listNamesReadAhead(&session->lists, fd);
    if (from < 0) {
        reportText(session->err, std::string(source) + ": " + strerror(errno));
        return 1;
    }
    lineReader reader{.fd = from};
    uint32_t lineNumber = 0;
    std::string_view line;
    while (!l.gone) {
        if (nextLine(reader, &line))
            loadLine(l, line, ++lineNumber);
        else if (!readMore(l, reader))
            break;
    }
    if (l.gone)
        reportText(session->err, std::string(source) + ": nothing was loaded from line " +
                                     std::to_string(lineNumber + 1) + " on");
    drain(l);
    if (from != fd) close(from);
    if (session->options.compile) compileEnd(session->out);
    if (l.refused > 0)
        reportText(session->err, std::string(source) + ": " + std::to_string(l.refused) + " of " +
                                     std::to_string(lineNumber) + " lines refused");
    if (l.unknown > 0)
        reportText(session->err, std::string(source) + ": " + std::to_string(l.unknown) + " of " +
                                     std::to_string(lineNumber) +
                                     " lines not answered: they may have been taken");
    return sessionExitStatus(*session, l.refused == 0 && !l.gone);
}
