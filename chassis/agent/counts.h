// What has become of the messages to an agent: verdicts, and the refused ones by their reasons. The
// lists and the MAC side count alike.
#pragma once

#include <cstdint>
#include <iterator>
#include <numeric>
#include <string>

enum class agentVerdict : uint8_t {
    applied,
    pending,  // a chunk; more must follow
    absent,   // deletes what is not installed: nothing to do
    notKept,  // a kind of message that this agent has no table for
    refused,
};

enum class agentRefusal : uint8_t {
    length,      // message shorter than its headers, or the length word disagrees
    bodyLength,  // the body length word disagrees
    count,       // the entry count disagrees with the bytes, the chunks or the kind of message
    halves,      // an entry's two halves differ
    order,       // a chunk that does not continue what came before, or a chunk that never came
    name,        // no list name, or a VLAN group that does not exist
    list,        // an entry for a list that is not installed there
    number,      // the same sequence number twice in one list, or one that the list does not have
    value,       // a word that cannot have this value
    dataplane,   // the data plane could not do it, or has no room for it
};
constexpr const char* agentRefusalNames[] = {"length", "bodyLength", "count", "halves",
                                             "order",  "name",       "list",  "number",
                                             "value",  "dataplane"};
constexpr size_t AGENT_REFUSALS = std::size(agentRefusalNames);
static_assert(AGENT_REFUSALS == static_cast<size_t>(agentRefusal::dataplane) + 1);

// How the tables take a replay: beside what is in force, or straight into it.
enum class agentReplay : uint8_t { none, beside, byList };

struct agentCounts {
    uint64_t messages = 0, applied = 0, absent = 0, notKept = 0;
    uint64_t refused[AGENT_REFUSALS] = {};
    std::string lastError;   // of the newest refusal
    uint64_t exchanges = 0;  // replays that have ended
};

// Each returns its verdict, so that a check can say `return agentRefuse(...)`.
inline agentVerdict agentRefuse(agentCounts* counts, agentRefusal why, uint32_t id,
                                const std::string& what) {
    counts->refused[static_cast<size_t>(why)]++;
    counts->lastError = "message " + std::to_string(id) + ": " + what;
    return agentVerdict::refused;
}
inline agentVerdict agentApplied(agentCounts* counts) {
    counts->applied++;
    return agentVerdict::applied;
}
inline agentVerdict agentAbsent(agentCounts* counts) {
    counts->absent++;
    return agentVerdict::absent;
}
// For any reason.
inline uint64_t agentRefused(const agentCounts& counts) {
    return std::accumulate(std::begin(counts.refused), std::end(counts.refused), uint64_t{0});
}
