// Which lists a configuration has, by kind: a clause that names a list by address is shown in the
// same words for an access list and for a prefix list, and is read as what the name stands for.
#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>

#include "include/cfgCompiled.h"
#include "include/policyMsg.h"
#include "include/routeMapNames.h"

struct listNames {
    std::unordered_set<std::string> prefix[2], access[2];  // IPv4, IPv6
    bool read = false;                                     // these are all that there are
};

// Notes the list that a line is the header of, if it is one.
inline void listNamesNote(listNames* names, std::string_view line) {
    struct headerRow {
        std::string_view front;
        bool ipv6, prefix;
    };
    constexpr headerRow headers[] = {
        {"ip prefix-list ", false, true},           {"ipv6 prefix-list ", true, true},
        {"ip access-list standard ", false, false}, {"ip access-list extended ", false, false},
        {"ipv6 access-list ", true, false},
    };
    for (const headerRow& row : headers) {
        if (!line.starts_with(row.front)) continue;
        line.remove_prefix(row.front.size());
        line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        (row.prefix ? names->prefix : names->access)[row.ipv6].emplace(line);
        return;
    }
}

inline bool listNamesKnow(const listNames& names, bool ipv6, std::string_view name) {
    const std::string key(name);
    return names.prefix[ipv6].contains(key) || names.access[ipv6].contains(key);
}

// True when the name stands for a prefix list and for no access list.
inline bool listNamesIsPrefix(const listNames& names, bool ipv6, std::string_view name) {
    const std::string key(name);
    return names.prefix[ipv6].contains(key) && !names.access[ipv6].contains(key);
}

// The code of the clause that a request to the manager adds, and the list that it names; 0: another
// request. `body` is what the message carries behind its header.
inline uint32_t clauseOfRequest(uint32_t mtype, std::span<const uint8_t> body,
                                std::string_view* list) {
    constexpr size_t front = sizeof(ipcHdr);
    const auto* code = wireView<be32>(body, offsetof(cliHdr, code) - front);
    const auto* clause =
        wireView<rmapClauseBlock>(body, offsetof(cliRmapClauseReq, clause) - front);
    if (mtype != MT_CLI_COMMAND || clause == nullptr || *code != CLI_RMAP_ENTRY_ADD) return 0;
    *list = listNameView(clause->list);
    return clause->code;
}

// The line with the word that says which kind of list it names, where that does not follow from the
// configuration's own lists. `code` and `list` are clauseOfRequest's; the list's name ends the
// line.
inline std::string listNamesTyped(const listNames& names, std::string text, uint32_t code,
                                  std::string_view list) {
    // The text of a port operator that there is not ends in a line feed, within the line.
    if (text.find('\n') != text.npos) {
        std::ranges::replace(text, '\n', '?');
        return std::string(CFG_NOT_SHOWN) + text.substr(text.find_first_not_of(' '));
    }
    const bool prefix4 = code == RTMAP_MATCH_IPADD_PREFIX;
    const bool prefix6 = code == RTMAP_MATCH_IPV6ADD_PREFIX;
    const bool access4 = code == RTMAP_MATCH_IPADD_ACL, access6 = code == RTMAP_MATCH_IPV6ADD_ACL;
    if ((!prefix4 && !prefix6 && !access4 && !access6) || !text.ends_with(list)) return text;
    const bool isPrefix = prefix4 || prefix6;
    if (listNamesIsPrefix(names, prefix6 || access6, list) != isPrefix)
        text.insert(text.size() - list.size(), isPrefix ? "prefix-list " : "access-list ");
    return text;
}
