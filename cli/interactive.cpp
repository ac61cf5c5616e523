// The terminal, on libedit: it calls back for the prompt, for help and for completion, and hands
// over whole lines.
#include "cli/interactive.h"

#include <histedit.h>

#include <cstdlib>
#include <cstring>

#include "cli/lexer.h"

namespace {

constexpr int HISTORY_LINES = 1000;

struct terminal {
    cliSession* session;
    EditLine* edit;
    History* history;
};

// The callbacks get the editor alone; the session hangs on it.
terminal* terminalOf(EditLine* edit) {
    void* data = nullptr;
    el_get(edit, EL_CLIENTDATA, &data);
    return static_cast<terminal*>(data);
}

const char* prompt(EditLine* edit) {
    return grammarModeOf(terminalOf(edit)->session->mode).prompt;
}

// Up to the cursor: what stands behind it has no say in what may come here.
std::string_view typedLine(EditLine* edit) {
    const LineInfo* info = el_line(edit);
    return {info->buffer, static_cast<size_t>(info->cursor - info->buffer)};
}

unsigned char help(EditLine* edit, int) {
    // An expression that loses its marks, in a configuration that is pasted, is another one.
    if (cliInText(sessionContext(*terminalOf(edit)->session), typedLine(edit))) {
        el_insertstr(edit, "?");
        return CC_REFRESH;
    }
    fputs("?\n", stdout);
    sessionHelp(terminalOf(edit)->session, typedLine(edit), {"", 0});
    return CC_REDISPLAY;
}

// Completes the word at the cursor as far as all candidates agree; shows them when they do not.
unsigned char complete(EditLine* edit, int) {
    std::string_view line = typedLine(edit);
    cliSession* session = terminalOf(edit)->session;
    std::vector<cliHelpRow> rows;
    cliParseError error;
    if (!cliHelp(sessionContext(*session), line, &rows, &error)) return CC_ERROR;
    // Descriptions of arguments cannot be typed for the operator.
    std::erase_if(rows, [](const cliHelpRow& row) { return !row.literal; });
    if (rows.empty()) return CC_ERROR;
    std::string common = rows[0].word;
    for (const cliHelpRow& row : rows) {
        size_t same = 0;
        while (same < common.size() && same < row.word.size() && common[same] == row.word[same])
            same++;
        common.resize(same);
    }
    size_t typed = 0;
    while (typed < line.size() && !lexIsBlank(line[line.size() - 1 - typed])) typed++;
    // A word that is decided gets its blank, so that the next Tab is about the next word.
    if (rows.size() == 1) common += ' ';
    if (common.size() > typed) {
        el_deletestr(edit, static_cast<int>(typed));
        el_insertstr(edit, common.c_str());
        return CC_REFRESH;
    }
    fputc('\n', stdout);
    for (const cliHelpRow& row : rows) fprintf(stdout, "  %s\n", row.word.c_str());
    fflush(stdout);
    return CC_REDISPLAY;
}

// Without a home the history ends with the shell.
std::string historyFile() {
    const char* home = getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.aclsh_history" : "";
}

}  // namespace

int interactiveRun(cliSession* session) {
    terminal t{session, el_init("aclsh", stdin, stdout, stderr), history_init()};
    if (t.edit == nullptr || t.history == nullptr) {
        reportText(stderr, "The terminal cannot be used for line editing");
        if (t.edit != nullptr) el_end(t.edit);
        if (t.history != nullptr) history_end(t.history);
        return 1;
    }
    HistEvent event;
    std::string file = historyFile();
    history(t.history, &event, H_SETSIZE, HISTORY_LINES);
    // A line that is repeated is kept once.
    history(t.history, &event, H_SETUNIQUE, 1);
    if (!file.empty()) history(t.history, &event, H_LOAD, file.c_str());
    el_set(t.edit, EL_CLIENTDATA, &t);
    el_set(t.edit, EL_PROMPT, prompt);
    el_set(t.edit, EL_EDITOR, "emacs");
    el_set(t.edit, EL_SIGNAL, 1);
    el_set(t.edit, EL_HIST, history, t.history);
    el_set(t.edit, EL_ADDFN, "acl-help", "what can be typed here", help);
    el_set(t.edit, EL_ADDFN, "acl-complete", "complete the word", complete);
    el_set(t.edit, EL_BIND, "?", "acl-help", nullptr);
    el_set(t.edit, EL_BIND, "^I", "acl-complete", nullptr);

    int length;
    while (!session->done) {
        const char* line = el_gets(t.edit, &length);
        // End of input (Ctrl-D) leaves like "exit", without running anything.
        if (line == nullptr || length <= 0) break;
        std::string text(lexTrimEnd({line, static_cast<size_t>(length)}));
        if (text.empty()) continue;
        history(t.history, &event, H_ENTER, text.c_str());
        sessionRun(session, text, {"", 0});
    }
    if (!file.empty()) history(t.history, &event, H_SAVE, file.c_str());  // best effort
    history_end(t.history);
    el_end(t.edit);
    return 0;
}
