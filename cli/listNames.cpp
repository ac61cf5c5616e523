#include "cli/listNames.h"

#include <unistd.h>

#include <array>

#include "cli/lexer.h"

namespace {

struct headerRow {
    std::string_view front;
    bool ipv6, prefix;
};
constexpr headerRow headers[] = {
    {"ip prefix-list ", false, true},           {"ipv6 prefix-list ", true, true},
    {"ip access-list standard ", false, false}, {"ip access-list extended ", false, false},
    {"ipv6 access-list ", true, false},
};

}  // namespace

void listNamesNote(listNames* names, std::string_view line) {
    for (const headerRow& row : headers) {
        if (!line.starts_with(row.front)) continue;
        std::string_view name = lexTrimEnd(line.substr(row.front.size()));
        (row.prefix ? names->prefix : names->access)[row.ipv6].emplace(name);
    }
}

void listNamesReadAhead(listNames* names, int fd) {
    off_t at = lseek(fd, 0, SEEK_CUR);
    if (at < 0) return;
    std::string line;
    std::array<char, 65536> piece;
    for (ssize_t n; (n = pread(fd, piece.data(), piece.size(), at)) > 0; at += n) {
        std::string_view rest(piece.data(), static_cast<size_t>(n));
        for (size_t end; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1)) {
            line += rest.substr(0, end);
            listNamesNote(names, line);
            line.clear();
        }
        line += rest;
    }
    listNamesNote(names, line);
}

bool listNamesIsPrefix(const listNames& names, bool ipv6, std::string_view name) {
    const std::string key(name);
    return names.prefix[ipv6].contains(key) && !names.access[ipv6].contains(key);
}
