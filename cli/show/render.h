// JSON of the manager, the agents and chassisd: reading it without trust, and printing it as
// aligned text or as it is. Included by files that print; the others need not know the JSON
// library.
#pragma once

#include <nlohmann/json.hpp>

#include "cli/session.h"

using json = nlohmann::ordered_json;

// Text of other processes may be anything; what is not UTF-8 is replaced, never thrown at us.
std::string jsonDump(const json& value, int indent = -1);
// A member of an object; 0, empty or an empty array when there is none of that kind.
uint64_t jsonNumber(const json& object, const char* key);
std::string jsonText(const json& object, const char* key);
const json& jsonArray(const json& object, const char* key);

// A list "a,b,c" that fits into a cell of a table: a longer one ends behind an item, with "...".
std::string shortened(std::string text, size_t width);

// Prints a value: with --json as it is, else as aligned text. A string is text already.
void renderAnswer(const cliSession& session, const json& value, cliPipe* pipe);
// Prints the verdict of a test and what decided; the outcome is the verdict.
cliOutcome showVerdict(cliSession* session, json answer, cliPipe* pipe);
// Runs a debug function that answers with JSON; text that is none becomes a JSON string. The
// functions refuse with {"error": sentence}.
cliOutcome debugJson(cliSession* session, std::string_view function, std::string_view args,
                     json* value);

// Opens the configuration as it runs, for reading; the outcome refuses when there is none.
struct zekCfgDb;
cliOutcome openShown(const cliOptions& options, zekCfgDb** db);
// The next line of the text of a show, without its end.
std::string_view takeShownLine(std::string_view* text);
