// Refusals as the operator reads them: one write each, so that those of several shells do not mix
// within a line.
#include "cli/request/report.h"

#include <algorithm>

#include "cli/lexer.h"

void reportRefused(FILE* err, const cliPlace& place, std::string_view line, size_t column,
                   std::string_view sentence, const std::vector<std::string>& expected) {
    std::string text;
    // At a terminal there is no place to name: the line stands right above.
    if (place.source.empty())
        text = "% ";
    else
        (text += place.source) +=
            ":" + std::to_string(place.line) + ":" + std::to_string(column + 1) + ": ";
    text += sentence;
    const char* before = "; expected: ";
    for (const std::string& word : expected) {
        (text += before) += word;
        before = ", ";
    }
    text += '\n';
    // One character a column, and nothing that a terminal would obey.
    for (char c : lexTrimEnd(line))
        text += c == '\t' ? ' ' : (c >= 0 && c < ' ') || c == 127 ? '?' : c;
    text += '\n';
    text.append(column, ' ') += "^\n";
    fwrite(text.data(), 1, text.size(), err);
}

void reportText(FILE* err, std::string_view text) {
    fwrite(text.data(), 1, text.size(), err);
    fputc('\n', err);
}
