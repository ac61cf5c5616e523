// Commands that print: configuration text, lists, and what the manager's debug functions answer.
#include <nlohmann/json.hpp>

#include <cstring>
#include <fstream>

#include "cli/lexer.h"
#include "cli/session.h"
#include "include/status.h"
#include "platform/api/zekCfg.h"

namespace {

using json = nlohmann::ordered_json;

// Text of other processes may be anything; what is not UTF-8 is replaced, never thrown at us.
std::string dump(const json& value, int indent = -1) {
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

// Lines as they come, or as the elements of one JSON array, never held together in memory.
struct lineSink {
    cliPipe* pipe;
    bool asJson;
    bool first = true;
};
void sinkLine(lineSink& sink, std::string_view line) {
    if (!sink.asJson) return pipeLine(sink.pipe, line);
    pipeText(sink.pipe, sink.first ? "[\n" : ",\n");
    pipeText(sink.pipe, dump(json(line)));
    sink.first = false;
}
void sinkFinish(lineSink& sink) {
    if (sink.asJson) pipeText(sink.pipe, sink.first ? "[]\n" : "\n]\n");
}

// --- JSON as aligned text --------------------------------------------------------------------

std::string scalarText(const json& v) {
    if (v.is_string()) return v.get<std::string>();
    if (v.is_boolean()) return v.get<bool>() ? "yes" : "no";
    return v.is_null() ? "-" : dump(v);
}
bool isTable(const json& v) {
    if (!v.is_array() || v.empty()) return false;
    for (const json& row : v) {
        if (!row.is_object()) return false;
        for (const json& cell : row)
            if (cell.is_structured()) return false;
    }
    return true;
}
bool isPlain(const json& v) {
    if (!v.is_array()) return !v.is_object();
    for (const json& item : v)
        if (item.is_structured()) return false;
    return true;
}
std::string plainText(const json& v) {
    if (!v.is_array()) return scalarText(v);
    std::string text;
    for (const json& item : v) text += (text.empty() ? "" : ", ") + scalarText(item);
    return text.empty() ? "-" : text;
}

void pad(std::string& line, size_t from, size_t width) {
    line.append(width > line.size() - from ? width - (line.size() - from) : 0, ' ');
}

// Records of the same shape: one line each below a line of the keys.
void renderTable(const json& rows, size_t indent, cliPipe* pipe) {
    std::vector<std::string> keys;
    std::vector<size_t> widths;
    for (const json& row : rows)
        for (const auto& [key, cell] : row.items()) {
            size_t at = static_cast<size_t>(std::ranges::find(keys, key) - keys.begin());
            if (at == keys.size()) {
                keys.push_back(key);
                widths.push_back(key.size());
            }
            widths[at] = std::max(widths[at], scalarText(cell).size());
        }
    auto print = [&](auto cellText) {
        std::string line(indent, ' ');
        for (size_t i = 0; i < keys.size(); i++) {
            size_t from = line.size();
            line += cellText(keys[i]);
            if (i + 1 < keys.size()) pad(line, from, widths[i] + 2);
        }
        pipeLine(pipe, lexTrimEnd(line));
    };
    print([](const std::string& key) { return key; });
    for (const json& row : rows)
        print(
            [&](const std::string& key) { return row.contains(key) ? scalarText(row[key]) : ""; });
}

constexpr size_t DEPTH_MAX = 16;

void render(const json& value, size_t indent, size_t depth, cliPipe* pipe) {
    std::string margin(indent, ' ');
    if (depth > DEPTH_MAX || isPlain(value)) return pipeLine(pipe, margin + plainText(value));
    if (isTable(value)) return renderTable(value, indent, pipe);
    if (value.is_array()) {
        for (const json& item : value) render(item, indent + 2, depth + 1, pipe);
        return;
    }
    size_t width = 0;
    for (const auto& [key, item] : value.items())
        if (isPlain(item)) width = std::max(width, key.size());
    for (const auto& [key, item] : value.items()) {
        std::string line = margin + key;
        if (isPlain(item)) {
            pad(line, indent, width + 2);
            pipeLine(pipe, lexTrimEnd(line += plainText(item)));
        } else {
            pipeLine(pipe, line += ":");
            render(item, indent + 2, depth + 1, pipe);
        }
    }
}

// --- lists -----------------------------------------------------------------------------------

// One list's show text as JSON. The text is the manager's: what does not look like it is left out.
json listJson(std::string_view text) {
    json list = {{"name", ""}, {"kind", ""}, {"entries", json::array()}};
    constexpr std::string_view title = " IP access list ";
    while (!text.empty()) {
        size_t end = text.find('\n');
        std::string_view line = lexTrimEnd(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
        size_t at = 0;
        std::string_view first = lexWord(line, &at);
        size_t named = line.find(title);
        if (named != line.npos && (first == "Standard" || first == "Extended")) {
            list["name"] = line.substr(named + title.size());
            list["kind"] = first == "Standard" ? "standard" : "extended";
            continue;
        }
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
cliOutcome showOne(cliSession* s, aclCliCode code, listName* name, lineSink* sink,
                   uint32_t* status) {
    cliShowReq request;
    requestShow(&s->channel, code, *name, &request);
    askResult asked = channelAsk(&s->channel, &request, sizeof request, s->options.timeoutMs);
    if (asked != askResult::answered) return refusal(askText(asked, s->options.timeoutMs));
    std::string_view text;
    listName shown{};
    if (!answerText(s->channel, request.cli.cookie, &text, &shown, status)) {
        // A list that is only referred to answers well but has nothing to show.
        if (*status == ACL_OK) *status = ACL_E_NOLIST;
        return refusal(statusText(*status));
    }
    if (!sink->asJson)
        pipeText(sink->pipe, text);
    else {
        pipeText(sink->pipe, sink->first ? "[\n" : ",\n");
        pipeText(sink->pipe, dump(listJson(text)));
        sink->first = false;
    }
    *name = shown;
    return {};
}

// The debug functions refuse with {"error": sentence}.
cliOutcome errorOf(const json& answer) {
    if (!answer.is_object() || !answer.contains("error") || !answer["error"].is_string()) return {};
    return refusal(answer["error"].get<std::string>());
}

}  // namespace

cliOutcome showRunning(cliSession* session, const cliCommand&, cliPipe* pipe) {
    zekCfgDb* db = zekCfgOpen(session->options.runDir.c_str(), zekCfgAccess::read);
    if (db == nullptr)
        return refusal("There is no configuration database in " + session->options.runDir);
    lineSink sink{pipe, session->options.json};
    int rc = zekCfgWalk(db, [&](std::string_view line) {
        sinkLine(sink, line);
        return ferror(pipe->out) == 0;
    });
    sinkFinish(sink);
    zekCfgClose(db);
    return rc == 0 ? cliOutcome{} : refusal("The configuration database cannot be read");
}

cliOutcome showStartup(cliSession* session, const cliCommand&, cliPipe* pipe) {
    std::string file = session->options.runDir + "/startup-config";
    std::ifstream in(file);
    if (!in) return refusal(file + ": " + strerror(errno));
    lineSink sink{pipe, session->options.json};
    for (std::string line; std::getline(in, line);) sinkLine(sink, line);
    sinkFinish(sink);
    return in.bad() ? refusal(file + " cannot be read") : cliOutcome{};
}

cliOutcome showLists(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    if (!sessionConnect(session, &error)) return refusal(error);
    lineSink sink{pipe, session->options.json};
    uint32_t status = ACL_OK;
    listName name = listNameMake(command.name);
    cliOutcome outcome;
    if (!command.name.empty()) outcome = showOne(session, CLI_SHOW_IP_ACL, &name, &sink, &status);
    while (command.name.empty() && outcome.ok) {
        listName cursor = name;
        outcome = showOne(session, CLI_SHOW_IP_ACL_ALL, &name, &sink, &status);
        // A cursor that does not move on would show the same list for ever.
        if (outcome.ok && std::memcmp(name.text, cursor.text, LIST_NAME_LEN) <= 0)
            outcome = refusal("The manager's walk over the lists does not move on");
        else if (status == ACL_E_NOLIST)
            return sinkFinish(sink), cliOutcome{};
    }
    if (outcome.ok) sinkFinish(sink);
    return outcome;
}

cliOutcome showDebug(cliSession* session, std::string_view function, cliPipe* pipe) {
    std::string text;
    if (cliOutcome outcome = sessionDebug(session, function, "", &text); !outcome.ok)
        return outcome;
    json value = json::parse(text, nullptr, false);
    if (value.is_discarded()) {
        if (!session->options.json) return pipeText(pipe, text), cliOutcome{};
        value = text;
    }
    if (cliOutcome outcome = errorOf(value); !outcome.ok) return outcome;
    if (session->options.json)
        pipeText(pipe, dump(value, 2) + "\n");
    else if (!value.is_array() || !value.empty())
        render(value, 0, 0, pipe);
    return {};
}

cliOutcome showTest(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string text;
    cliOutcome outcome = sessionDebug(session, "test-ip-filter", command.text, &text);
    if (!outcome.ok) return outcome;
    json answer = json::parse(text, nullptr, false);
    if (outcome = errorOf(answer); !outcome.ok) return outcome;
    if (!answer.is_object() || !answer.contains("verdict") || !answer["verdict"].is_string())
        return refusal(text.empty() ? "The manager gave no verdict" : text);
    std::string verdict = answer["verdict"];
    if (session->options.json)
        pipeText(pipe, dump(answer) + "\n");
    else {
        std::string decided = "no entry matches (implicit deny)";
        if (auto entry = answer.find("entry"); entry != answer.end() && entry->is_object())
            decided = lexTrimEnd(entry->value("text", std::string("entry without text")));
        pipeLine(pipe,
                 verdict + ": " +
                     decided.substr(std::min(decided.find_first_not_of(' '), decided.size())));
    }
    return {verdict == "permit", "", 0};
}
