// AS-path lists: their entries, each an expression over the text of a path.
#include <algorithm>
#include <cstring>
#include <string>

#include "policy/bgp/store.h"
#include "policy/bgp/zekbgp_plcy.h"

namespace {

constexpr size_t REWRITE_MAX = 459;  // characters of a rewritten expression

// An entry's body: ruleAction, option, text. Empty when the text can never be an entry's.
constexpr size_t BODY_FRONT = 2 * sizeof(be32);
std::string bodyOf(uint32_t action, const aspathRule& rule) {
    be32 words[2];
    words[0] = action;
    words[1] = rule.option;
    std::string body(reinterpret_cast<const char*>(words), BODY_FRONT);
    return body.append(rule.text);
}
std::span<const uint8_t> bytesOf(const std::string& body) {
    return {reinterpret_cast<const uint8_t*>(body.data()), body.size()};
}

// Empty alternatives next to a parenthesis are made explicit: "(|1)" becomes "(()|1)".
std::string rewrite(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        out += text[i];
        const std::string_view pair = text.substr(i, 2);
        if (pair == "(|" || pair == "|)") out += "()";
    }
    return out;
}

aspathEntry* asAspath(bgpEntry* entry) {
    return static_cast<aspathEntry*>(entry);
}

}  // namespace

bgpList* bgpASPAccessListFindFirst() {
    return bgpListFirst(BGP_ASPATH);
}
bgpList* bgpASPAccessListFindNext(const listName& name) {
    return bgpListNext(BGP_ASPATH, name);
}
bgpList* bgpASPAccessListFindPrev(const listName& name) {
    return bgpListPrev(BGP_ASPATH, name);
}

aspathEntry* bgpASPAccEntFind(const bgpList* list, uint32_t action, const aspathRule& rule) {
    return asAspath(bgpEntryFind(list, bytesOf(bodyOf(action, rule))));
}

aspathEntry* bgpASPAccessEntFind(const listName& name, uint32_t action, std::string_view text) {
    const bgpList* list = bgpListFind(BGP_ASPATH, name);
    bgpEntry* entry = list != nullptr ? list->head : nullptr;
    while (entry != nullptr && (entry->action != action || asAspath(entry)->text != text))
        entry = entry->next;
    return asAspath(entry);
}

aspathEntry* bgpASPAccessEntFindIndex(const listName& name, uint32_t index,
                                      std::string_view* text) {
    const bgpList* list = bgpListFind(BGP_ASPATH, name);
    if (list == nullptr || index == 0) return nullptr;
    auto* entry = asAspath(const_cast<bgpEntry*>(bgpIndexAt(list->index, index - 1)));
    if (entry != nullptr) *text = entry->text;
    return entry;
}

bgpList* bgpASPAccessListCreate(const listName& name, uint32_t placeholder, uint32_t* status) {
    return bgpListCreate(BGP_ASPATH, name, placeholder, status);
}
uint32_t bgpASPAccessListDelete(const listName& name) {
    return bgpListDelete(BGP_ASPATH, name);
}

uint32_t bgpAddASPAccessEntry(const listName& name, uint32_t action, const aspathRule& rule) {
    // Refused below for the same reasons, but in the order that the frame keeps.
    const std::string expression = rewrite(rule.text.substr(0, REWRITE_MAX + 1));
    const std::string body = bodyOf(action, rule);
    const bool fits = expression.size() <= REWRITE_MAX;
    return bgpEntryAdd(
        BGP_ASPATH, name,
        {action, COMM_REGEXP, bytesOf(body), fits ? std::string_view(expression) : ""});
}

uint32_t bgpDelASPAccessEntry(const listName& name, uint32_t action, const aspathRule& rule,
                              uint32_t writeConfig) {
    return bgpEntryDelete(BGP_ASPATH, name, bytesOf(bodyOf(action, rule)), writeConfig);
}

void asp_sent_to_cfg(const bgpList* list, uint32_t remove) {
    bgpListToCfg(list, remove);
}
void asp_ent_sent_to_cfg(const aspathEntry* entry, uint32_t remove, const listName& name) {
    bgpEntryToCfg(BGP_ASPATH, entry, remove, name);
}
