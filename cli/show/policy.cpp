// Shows of routing-policy lists: text that the manager has made, page by page. For --json it is
// taken apart again here.
#include <cstring>

#include "cli/kinds.h"
#include "cli/lexer.h"
#include "cli/session.h"
#include "cli/show/render.h"
#include "include/status.h"

namespace {

// One entry line: "[seq N] permit|deny WHAT [(hit count: N)]".
json entryJson(std::string_view line) {
    json entry = json::object();
    size_t at = 0;
    std::string_view word = lexWord(line, &at);
    // Only prefix entries have numbers in their lines.
    uint64_t seq;
    if (word == "seq" && lexNumber(lexWord(line, &at), &seq)) {
        entry["seq"] = seq;
        word = lexWord(line, &at);
    }
    entry["action"] = word;
    constexpr std::string_view counted = " (hit count: ";
    size_t hits = line.find(counted);
    if (hits != line.npos) {
        size_t from = hits + counted.size();
        std::string_view number = lexWord(line, &from);
        uint32_t count = 0;
        // The parenthesis behind the number.
        if (!number.empty()) number.remove_suffix(1);
        if (lexSigned(number, &count)) entry["hits"] = count;
    }
    line = line.substr(std::min(at, line.size()), hits == line.npos ? hits : hits - at);
    entry["match"] = line.substr(std::min(line.find_first_not_of(' '), line.size()));
    return entry;
}

// A list's show text as JSON. The text is the manager's: what does not look like it is left out.
json listJson(const char* kind, const listName& name, std::string_view text) {
    json list = {{"name", std::string(listNameView(name))}, {"kind", kind}};
    json entries = json::array();
    while (!text.empty()) {
        std::string_view line = takeShownLine(&text);
        // Entries are indented, titles are not.
        if (line.starts_with(' ')) {
            entries.push_back(entryJson(line));
        } else if (line.starts_with("count: ")) {
            size_t at = 0;
            uint64_t value;
            // Four numbers among words; each word that is a number is the next of them. The comma
            // behind one is not part of it.
            for (const char* key : {"count", "rangeEntries", "lowest", "highest"}) {
                std::string_view word;
                do word = lexWord(line, &at);
                while (!word.empty() && !lexNumber(word.substr(0, word.find(',')), &value));
                if (!word.empty()) list[key] = value;
            }
        }
    }
    list["entries"] = std::move(entries);
    return list;
}

// A route map's show text as JSON: instances with the lines of their groups; "clauses" has those
// that stand in none.
json mapJson(std::string_view text) {
    constexpr std::string_view hits = "Hits: ";
    json instances = json::array();
    // The group whose lines come now; lines outside of a group stand less deep.
    std::string group;
    while (!text.empty()) {
        std::string_view line = takeShownLine(&text);
        size_t at = 0;
        uint64_t number;
        if (lexWord(line, &at) == "route-map") {
            std::string name(lexWord(line, &at)), action(lexWord(line, &at));
            instances.push_back({{"name", name}, {"action", action}});
            if (lexNumber(lexWord(line, &at), &number)) instances.back()["seq"] = number;
            group = "clauses";
        } else if (!instances.empty() && !line.empty()) {
            std::string_view words =
                line.substr(std::min(line.find_first_not_of(' '), line.size()));
            json& instance = instances.back();
            if (words == "Match clauses:" || words == "Set clauses:")
                instance[group = words[0] == 'M' ? "match" : "set"] = json::array();
            else if (words.starts_with(hits) && lexNumber(words.substr(hits.size()), &number))
                instance["hits"] = number;
            else
                instance[line.starts_with("    ") ? group : "clauses"].push_back(words);
        }
    }
    return instances;
}

// A long list comes in several pages of the same name; `resume` is where the next one begins.
struct policyPage {
    std::string_view text;
    listName shown{};
    uint32_t resume = 0;
    uint32_t status = ACL_OK;
};
cliOutcome askPage(cliSession* s, uint32_t code, const listName& name, uint32_t detail,
                   uint32_t resume, policyPage* page) {
    cliShowReq request;
    requestShow(&s->channel, code, name, detail, resume, &request);
    askResult asked = channelAsk(&s->channel, &request, sizeof request, s->options.timeoutMs);
    if (asked != askResult::answered) return refusal(askText(asked, s->options.timeoutMs));
    if (answerText(s->channel, request.cli.cookie, &page->text, &page->shown, &page->resume,
                   &page->status))
        return {};
    // Refused without a reason: the list is only referred to.
    if (page->status == ACL_OK) page->status = ACL_E_PLACEHOLDER;
    return refusal(statusText(page->status));
}

}  // namespace

cliOutcome showPolicy(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    const auto& row = listKinds[command.kind].show;
    bool all = command.name.empty(), detail = command.policy.detail == POLICY_DETAIL;
    bool config = detail && command.kind == KIND_RMAP;  // one answer, whatever was asked for
    uint32_t code = all ? (detail ? row.allDetail : row.all) : (detail ? row.oneDetail : row.one);
    std::string error;
    if (!sessionConnect(session, &error)) return refusal(error);

    listName name = listNameMake(command.name);
    uint32_t resume = 0;
    std::string listText;  // of the list that is being shown, for its JSON
    json shown = json::array();
    for (;;) {
        policyPage page;
        cliOutcome outcome = askPage(session, code, name, detail, resume, &page);
        // The status behind the last list, or at once when there is none at all.
        if (!outcome.ok && all && page.status == row.noList) break;
        if (!outcome.ok) return outcome;
        bool summary = command.policy.detail == POLICY_SUMMARY;
        // A page that is not behind the one before it would come for ever.
        // Within a list the place has to grow, from list to list the name.
        bool moves = resume != 0 ? page.resume == 0 || page.resume > resume
                                 : !all || config ||
                                       std::memcmp(page.shown.text, name.text, LIST_NAME_LEN) > 0;
        if (!moves) return refusal("The manager's walk over the lists does not move on");
        for (std::string_view left = page.text; !left.empty();) {
            std::string_view line = takeShownLine(&left);
            // A summary is the titles alone: the entries are left out, and not asked for beyond the
            // first page.
            if (summary && line.starts_with(' ')) continue;
            if (session->options.json)
                (listText += line) += '\n';
            else
                pipeLine(pipe, line);
        }
        resume = summary ? 0 : page.resume;
        // From here on the list is complete.
        name = page.shown;
        if (resume != 0) continue;
        if (session->options.json) {
            if (command.kind == KIND_RMAP)
                for (json& instance : mapJson(listText)) shown.push_back(std::move(instance));
            else
                shown.push_back(listJson(row.word, name, listText));
            listText.clear();
        }
        if (!all || config) break;
    }
    if (session->options.json) pipeText(pipe, jsonDump(shown, 2) + "\n");
    return {};
}
