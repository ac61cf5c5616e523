// Bytes as lines typed in every mode: read, or made a request, or refused with a column that lies
// in the line or, for a word that is missing, one blank behind it.
#include <cstdlib>
#include <string_view>

#include "cli/parser.h"
#include "cli/request/request.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    cliContext context{static_cast<cliMode>(data[0] % static_cast<int>(cliMode::count_)),
                       (data[0] & 8) != 0, (data[0] & 16) != 0};
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        cliCommand command;
        cliParseError error;
        cliParsed parsed = cliParse(context, line, &command, &error);
        if (parsed == cliParsed::refused && (error.text.empty() || error.column > line.size() + 1))
            std::abort();
        cliChannel channel;
        cliRequest request;
        size_t length;
        if (parsed == cliParsed::command)
            (void)requestBuild(&channel, command, {}, &request, &length);
        std::vector<cliHelpRow> rows;
        (void)cliHelp(context, line, &rows, &error);
    }
    return 0;
}
