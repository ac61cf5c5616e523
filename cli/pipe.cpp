// The filters behind `|`: a line goes through all of them before the next one is looked at, so that
// nothing is held but an unfinished line.
#include "cli/pipe.h"

#include <optional>

#include "cli/lexer.h"

namespace {

struct pipeRow {
    std::string_view word;
    pipeKind kind;
    bool needsText;
};
constexpr pipeRow pipeTable[] = {
    {"include", pipeKind::include, true},
    {"exclude", pipeKind::exclude, true},
    {"begin", pipeKind::begin, true},
    {"count", pipeKind::count, false},
};

// The position of the next `|` that stands alone as a word.
// A bar within a word, as in an expression, is part of the word.
size_t findBar(std::string_view line, size_t at) {
    for (;;) {
        std::string_view word = lexWord(line, &at);
        if (word.empty()) return line.npos;
        if (word == "|") return static_cast<size_t>(word.data() - line.data());
    }
}

std::optional<pipeRow> findFilter(std::string_view word) {
    std::optional<pipeRow> found;
    for (const pipeRow& row : pipeTable)
        if (!word.empty() && lexCompare(word, row.word) != lexMatch::none) found = row;
    return found;  // no two filters begin with the same letter
}

void write(cliPipe* pipe, std::string_view line) {
    fwrite(line.data(), 1, line.size(), pipe->out);
    fputc('\n', pipe->out);
}

// Hands a line to the filters from number `first` on.
void pass(cliPipe* pipe, size_t first, std::string_view line) {
    for (size_t i = first; i < pipe->filters.size(); i++) {
        pipeFilter& f = pipe->filters[i];
        bool match = line.find(f.text) != line.npos;
        switch (f.kind) {
            case pipeKind::include:
                if (!match) return;
                break;
            case pipeKind::exclude:
                if (match) return;
                break;
            case pipeKind::begin:
                f.begun |= match;
                if (!f.begun) return;
                break;
            case pipeKind::count:
                f.lines += match;
                return;
        }
    }
    write(pipe, line);
}

}  // namespace

bool pipeParse(std::string_view* line, cliPipe* pipe, size_t* column, std::string* error) {
    std::string_view all = *line;
    size_t bar = findBar(all, 0);
    if (bar != all.npos) *line = all.substr(0, bar);
    while (bar != all.npos) {
        size_t at = bar + 1;
        size_t next = findBar(all, at);
        std::string_view word = lexWord(all.substr(0, next), &at);
        auto row = findFilter(word);
        size_t from = at;
        std::string_view rest = all.substr(0, next);
        std::string_view first = lexWord(rest, &from);
        bool textMissing = row && row->needsText && first.empty();
        if (!row || textMissing) {
            std::string_view bad = row ? first : word;
            *column = bad.empty() ? lexTrimEnd(rest).size() + 1
                                  : static_cast<size_t>(bad.data() - all.data());
            *error = row ? "The filter needs a text"
                         : "No such filter; there are include, exclude, begin and count";
            return false;
        }
        // The text is all up to the next bar, blanks within it included.
        std::string_view text =
            first.empty() ? first
                          : lexTrimEnd(rest.substr(static_cast<size_t>(first.data() - all.data())));
        pipe->filters.push_back({row->kind, std::string(text)});
        bar = next;
    }
    return true;
}

void pipeLine(cliPipe* pipe, std::string_view line) {
    pass(pipe, 0, line);
}

void pipeText(cliPipe* pipe, std::string_view text) {
    for (;;) {
        size_t end = text.find('\n');
        if (end == text.npos) break;
        std::string_view line = text.substr(0, end);
        // Text comes in pieces of any length: the first line of this one may have begun in the
        // last.
        if (!pipe->part.empty()) line = pipe->part.append(line);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        pass(pipe, 0, line);
        pipe->part.clear();
        text.remove_prefix(end + 1);
    }
    pipe->part += text;
}

void pipeFinish(cliPipe* pipe) {
    if (!pipe->part.empty()) {
        std::string_view line = pipe->part;
        if (line.back() == '\r') line.remove_suffix(1);
        pass(pipe, 0, line);
        pipe->part.clear();
    }
    // A count's number is a line of its own for the filters behind it.
    for (size_t i = 0; i < pipe->filters.size(); i++)
        if (pipe->filters[i].kind == pipeKind::count)
            pass(pipe, i + 1, std::to_string(pipe->filters[i].lines));
    fflush(pipe->out);
}
