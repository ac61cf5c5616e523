// Commands that print: configuration text, lists, and what the manager's debug functions answer.
#include <cstring>
#include <fstream>

#include "cli/kinds.h"
#include "cli/lexer.h"
#include "cli/session.h"
#include "cli/show/render.h"
#include "include/status.h"
#include "platform/api/zekCfg.h"

namespace {

// Lines as they come, or as the elements of one JSON array, never held together in memory.
struct lineSink {
    cliPipe* pipe;
    bool asJson;
    bool first = true;
};
void sinkLine(lineSink& sink, std::string_view line) {
    if (!sink.asJson) return pipeLine(sink.pipe, line);
    pipeText(sink.pipe, sink.first ? "[\n" : ",\n");
    pipeText(sink.pipe, jsonDump(json(line)));
    sink.first = false;
}
void sinkFinish(lineSink& sink) {
    if (sink.asJson) pipeText(sink.pipe, sink.first ? "[]\n" : "\n]\n");
}

// --- lists -----------------------------------------------------------------------------------

// One list's show text as JSON. The text is the manager's: what does not look like it is left out.
json listJson(std::string_view text) {
    json list = {{"name", ""}, {"kind", ""}, {"entries", json::array()}};
    // The title is "Standard IP access list NAME", "IPv6 access list NAME" or "Standard mac access
    // list NAME"; everything else that counts begins with "seq".
    constexpr std::string_view title = " access list ";
    while (!text.empty()) {
        std::string_view line = takeShownLine(&text);
        size_t at = 0;
        std::string_view first = lexWord(line, &at);
        const bool isTitle = first == "Standard" || first == "Extended" || first == "IPv6";
        if (size_t named = line.find(title); isTitle && named != line.npos) {
            list["name"] = line.substr(named + title.size());
            list["kind"] = first == "IPv6" ? "ipv6" : first == "Standard" ? "standard" : "extended";
            continue;
        }
        // Remarks and whatever else a later manager shows are left out rather than misread.
        uint64_t seq;
        if (first != "seq" || !lexNumber(lexWord(line, &at), &seq)) continue;
        json entry = {{"seq", seq},
                      {"action", lexWord(line, &at)},
                      {"text", line.substr(static_cast<size_t>(first.data() - line.data()))}};
        constexpr std::string_view counted = " log (";
        if (size_t log = line.find(counted); log != line.npos) {
            size_t from = log + counted.size();
            // Shown as a signed number: a large count reads as a negative one and is turned back.
            long matches = std::strtol(std::string(lexWord(line, &from)).c_str(), nullptr, 10);
            entry["matches"] = static_cast<uint32_t>(matches);
        }
        list["entries"].push_back(std::move(entry));
    }
    return list;
}

// Shows one list, or the one behind the cursor; *name becomes the one shown.
cliOutcome showOne(cliSession* s, uint32_t code, listName* name, lineSink* sink, uint32_t* status) {
    // A list fits one answer whole, so there is nothing to go on with but the next list.
    cliShowReq request;
    requestShow(&s->channel, code, *name, 0, 0, &request);
    askResult asked = channelAsk(&s->channel, &request, sizeof request, s->options.timeoutMs);
    if (asked != askResult::answered) return notReached(s, askText(asked, s->options.timeoutMs));
    std::string_view text;
    listName shown{};
    uint32_t resume;
    if (!answerText(s->channel, request.cli.cookie, &text, &shown, &resume, status)) {
        // A list that is only referred to answers well but has nothing to show.
        if (*status == ACL_OK) *status = ACL_E_NOLIST;
        return refusal(statusText(*status));
    }
    if (!sink->asJson)
        pipeText(sink->pipe, text);
    else {
        pipeText(sink->pipe, sink->first ? "[\n" : ",\n");
        pipeText(sink->pipe, jsonDump(listJson(text)));
        sink->first = false;
    }
    *name = shown;
    return {};
}

}  // namespace

cliOutcome openShown(const cliOptions& options, zekCfgDb** db) {
    *db = zekCfgOpen(options.runDir.c_str(), zekCfgAccess::read, zekCfgFileOf(options.rp).c_str());
    if (*db != nullptr) return {};
    return refusal("There is no configuration database in " + options.runDir);
}

std::string_view takeShownLine(std::string_view* text) {
    size_t end = text->find('\n');
    std::string_view line = lexTrimEnd(text->substr(0, end));
    text->remove_prefix(end == text->npos ? text->size() : end + 1);
    return line;
}

cliOutcome showRunning(cliSession* session, const cliCommand&, cliPipe* pipe) {
    zekCfgDb* db = nullptr;
    if (cliOutcome opened = openShown(session->options, &db); !opened.ok) return opened;
    lineSink sink{pipe, session->options.json};
    // Which kind of list a line names depends on lines behind it.
    struct shownLine {
        std::string text, list;
        uint32_t code;
    };
    std::vector<shownLine> all;
    listNames names;
    int rc = zekCfgWalkRows(db, [&](const zekCfgRow& row) {
        std::string_view list;
        const uint32_t code = clauseOfRequest(row.request.mtype, row.request.body, &list);
        // Read from the database file itself: the manager need not run, and is not held up by a
        // long configuration.
        listNamesNote(&names, row.text);
        all.push_back({std::string(row.text), std::string(list), code});
        return true;
    });
    for (shownLine& line : all) {
        sinkLine(sink, listNamesTyped(names, std::move(line.text), line.code, line.list));
        // The reader of a pipe has gone.
        if (ferror(pipe->out) != 0) break;
    }
    sinkFinish(sink);
    zekCfgClose(db);
    return rc == 0 ? cliOutcome{} : refusal("The configuration database cannot be read");
}

cliOutcome showStartup(cliSession* session, const cliCommand&, cliPipe* pipe) {
    // What "write memory" has left; it is a file of plain lines.
    std::string file = session->options.runDir + "/startup-config";
    std::ifstream in(file);
    if (!in && errno == ENOENT)
        return refusal("No startup configuration is saved (write memory saves one)");
    if (!in) return refusal(file + ": " + strerror(errno));
    lineSink sink{pipe, session->options.json};
    for (std::string line; std::getline(in, line);) sinkLine(sink, line);
    sinkFinish(sink);
    return in.bad() ? refusal(file + " cannot be read") : cliOutcome{};
}

cliOutcome showLists(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    if (!sessionConnect(session, &error)) return refusal(error);
    const kindShow& row = listKinds[command.kind].show;
    lineSink sink{pipe, session->options.json};
    uint32_t status = ACL_OK;
    listName name = listNameMake(command.name);
    cliOutcome outcome;
    if (!command.name.empty()) outcome = showOne(session, row.one, &name, &sink, &status);
    while (command.name.empty() && outcome.ok) {
        // The walk goes by name: each answer is the list behind the one that is named, at first
        // behind the empty name.
        listName cursor = name;
        outcome = showOne(session, row.all, &name, &sink, &status);
        // A cursor that does not move on would show the same list for ever.
        if (outcome.ok && std::memcmp(name.text, cursor.text, LIST_NAME_LEN) <= 0)
            outcome = refusal("The manager's walk over the lists does not move on");
        else if (status == row.noList)
            return sinkFinish(sink), cliOutcome{};
    }
    if (outcome.ok) sinkFinish(sink);
    return outcome;
}

cliOutcome showDebug(cliSession* session, std::string_view function, cliPipe* pipe,
                     std::string_view args) {
    json value;
    cliOutcome outcome = debugJson(session, function, args, &value);
    if (outcome.ok) renderAnswer(*session, value, pipe);
    return outcome;
}

cliOutcome showTest(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    json answer;
    cliOutcome outcome =
        debugJson(session, listKinds[command.kind].testFunction, command.text, &answer);
    return outcome.ok ? showVerdict(session, std::move(answer), pipe) : outcome;
}

cliOutcome showVerdict(cliSession* session, json answer, cliPipe* pipe) {
    if (!answer.is_object() || !answer.contains("verdict") || !answer["verdict"].is_string())
        return refusal(answer.is_string() && answer != "" ? answer.get<std::string>()
                                                          : "The manager gave no verdict");
    std::string verdict = answer["verdict"];
    if (session->options.json) {
        pipeText(pipe, jsonDump(answer) + "\n");
    } else {
        // The implicit deny has no entry to show.
        std::string decided = "no entry matches (implicit deny)";
        if (auto entry = answer.find("entry"); entry != answer.end() && !entry->is_null())
            decided = lexTrimEnd(entry->is_object() ? jsonText(*entry, "text")
                                                    : jsonText(answer, "entry"));
        pipeLine(pipe,
                 verdict + ": " +
                     decided.substr(std::min(decided.find_first_not_of(' '), decided.size())));
        // What else there is to say: of a route map the way to the verdict and the new attributes.
        // Both stand in the first line already.
        answer.erase("verdict");
        answer.erase("entry");
        if (!answer.empty()) renderAnswer(*session, answer, pipe);
    }
    // The exit status is the verdict, so that a script can ask.
    return {verdict == "permit", "", 0};
}
