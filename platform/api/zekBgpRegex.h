// Regular expressions over the text of AS paths and communities.
//
// The dialect is that of POSIX extended expressions, searched for anywhere in the text, with one
// addition: outside a bracket expression "_" stands for the start or the end of the text, a blank,
// a comma, a brace or a parenthesis. "\_" is the character itself. A text is matched in time linear
// in its length, whatever the expression; an expression whose automaton would be too large is
// refused.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

struct zekbgp_regex;

constexpr size_t ZEKBGP_REGEX_MAX = 1024;  // characters of an expression

// Null on a syntax error, on an empty, too long or too large expression, on characters that are not
// printable, and without memory. The handle belongs to the caller.
[[nodiscard]] zekbgp_regex* zekbgp_regcomp(std::string_view expression);
// Puts the handle away; regexFinalCleanup frees it. Null is allowed.
void zekbgp_regex_free(zekbgp_regex* regex);
// Frees the handles that were put away first, at most `limit` of them, so that the deletion of a
// long list holds nobody up; the number of those freed. The caller holds the write lock.
uint32_t regexFinalCleanup(uint32_t limit);
// Any number of threads may ask at once.
[[nodiscard]] bool zekbgp_regexec(const zekbgp_regex* regex, std::string_view text);

// Many expressions, matched in one pass over the text.
struct zekbgp_regexSet;
// Null when there are none, or when there is no memory for the automaton.
[[nodiscard]] zekbgp_regexSet* zekbgp_setcomp(std::span<const zekbgp_regex* const> regexes);
void zekbgp_set_free(zekbgp_regexSet* set);  // null is allowed
// The place in the span of the first expression that matches, or one of these. Any number of
// threads may ask at once.
constexpr int ZEKBGP_NO_MATCH = -1;
constexpr int ZEKBGP_NO_ANSWER = -2;  // the automaton outgrew its memory: ask one by one
[[nodiscard]] int zekbgp_setexec(const zekbgp_regexSet* set, std::string_view text);
