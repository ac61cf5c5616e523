// Expressions of AS-path and community lists on RE2: its automata are linear in the text and
// bounded in memory, whatever an operator types.
#include <re2/re2.h>
#include <re2/set.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/api/zekBgpRegex.h"

struct zekbgp_regex {
    explicit zekbgp_regex(const std::string& pattern, const re2::RE2::Options& options)
        : re(pattern, options) {}
    re2::RE2 re;
    zekbgp_regex* nextPutAway = nullptr;
};

struct zekbgp_regexSet {
    explicit zekbgp_regexSet(const re2::RE2::Options& options)
        : set(options, re2::RE2::UNANCHORED) {}
    re2::RE2::Set set;
};

namespace {

// What an expression's program and its automaton's states may take. Ordinary expressions need a
// few kilobytes.
constexpr int64_t REGEX_MEMORY = 1 << 20;
// The same for a set, by the number of its expressions.
constexpr int64_t SET_MEMORY_EACH = 16 << 10;
constexpr int64_t SET_MEMORY_MAX = 256 << 20;

// "_" by itself. Its group costs nothing: nobody asks what a group has matched.
constexpr std::string_view BOUNDARY = "(^|$|[ ,{}()])";

re2::RE2::Options makeOptions(int64_t memory) {
    re2::RE2::Options options;
    options.set_posix_syntax(true);
    options.set_one_line(true);  // "^" and "$" are the ends of the text, not of lines in it
    options.set_encoding(re2::RE2::Options::EncodingLatin1);
    options.set_never_capture(true);
    options.set_log_errors(false);
    options.set_max_mem(memory);
    return options;
}

// Copies a bracket expression, in which "_" and the backslash are characters like all others, and
// returns the place behind it. One that does not end is copied as it is: the engine refuses it.
size_t copyBracket(std::string_view text, size_t at, std::string* out) {
    size_t from = at + 1;
    if (from < text.size() && text[from] == '^') from++;
    if (from < text.size() && text[from] == ']') from++;  // the first one is a member
    size_t end = from;
    while (end < text.size() && text[end] != ']') {
        if (text.substr(end, 2) == "[:") {
            size_t close = text.find(":]", end + 2);
            if (close != text.npos) end = close + 1;
        }
        end++;
    }
    for (; at < std::min(end + 1, text.size()); at++) {
        if (text[at] == '\\') *out += '\\';
        *out += text[at];
    }
    return at;
}

std::string translate(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8 * BOUNDARY.size());
    for (size_t at = 0; at < text.size();) {
        if (text[at] == '[') {
            at = copyBracket(text, at, &out);
        } else if (text[at] == '_') {
            out += BOUNDARY;
            at++;
        } else if (text[at] == '\\' && at + 1 < text.size()) {
            if (text[at + 1] != '_') out += '\\';
            out += text[at + 1];
            at += 2;
        } else {
            out += text[at++];
        }
    }
    return out;
}

// The handles that wait for regexFinalCleanup, oldest first.
struct {
    std::mutex lock;
    zekbgp_regex* first = nullptr;
    zekbgp_regex* last = nullptr;
} putAway;

bool isPrintable(char c) {
    return c >= ' ' && c <= '~';
}

}  // namespace

zekbgp_regex* zekbgp_regcomp(std::string_view expression) {
    if (expression.empty() || expression.size() > ZEKBGP_REGEX_MAX) return nullptr;
    if (!std::ranges::all_of(expression, isPrintable)) return nullptr;
    static const re2::RE2::Options options = makeOptions(REGEX_MEMORY);
    try {
        auto* regex = new zekbgp_regex(translate(expression), options);
        if (regex->re.ok()) return regex;
        delete regex;
    } catch (const std::bad_alloc&) {
    }
    return nullptr;
}

void zekbgp_regex_free(zekbgp_regex* regex) {
    if (regex == nullptr) return;
    std::lock_guard held(putAway.lock);
    (putAway.first != nullptr ? putAway.last->nextPutAway : putAway.first) = regex;
    putAway.last = regex;
}

uint32_t regexFinalCleanup(uint32_t limit) {
    std::lock_guard held(putAway.lock);
    uint32_t freed = 0;
    for (; freed < limit && putAway.first != nullptr; freed++) {
        zekbgp_regex* regex = putAway.first;
        putAway.first = regex->nextPutAway;
        delete regex;
    }
    return freed;
}

bool zekbgp_regexec(const zekbgp_regex* regex, std::string_view text) {
    return re2::RE2::PartialMatch({text.data(), text.size()}, regex->re);
}

zekbgp_regexSet* zekbgp_setcomp(std::span<const zekbgp_regex* const> regexes) {
    if (regexes.empty()) return nullptr;
    const int64_t memory = REGEX_MEMORY + SET_MEMORY_EACH * static_cast<int64_t>(regexes.size());
    try {
        auto* set = new zekbgp_regexSet(makeOptions(std::min(memory, SET_MEMORY_MAX)));
        bool whole = std::ranges::all_of(regexes, [&](const zekbgp_regex* regex) {
            return set->set.Add(regex->re.pattern(), nullptr) >= 0;
        });
        if (whole && set->set.Compile()) return set;
        delete set;
    } catch (const std::bad_alloc&) {
    }
    return nullptr;
}

void zekbgp_set_free(zekbgp_regexSet* set) {
    delete set;
}

int zekbgp_setexec(const zekbgp_regexSet* set, std::string_view text) {
    thread_local std::vector<int> matched;
    re2::RE2::Set::ErrorInfo error{};
    if (set->set.Match({text.data(), text.size()}, &matched, &error))
        return *std::ranges::min_element(matched);
    return error.kind == re2::RE2::Set::kNoError ? ZEKBGP_NO_MATCH : ZEKBGP_NO_ANSWER;
}
