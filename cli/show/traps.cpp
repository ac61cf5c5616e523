// What a card's MAC agent holds: trapped addresses and members; compared, if it is asked for, with
// what the manager means.
#include <map>
#include <utility>

#include "cli/show/agents.h"

namespace {

uint32_t wordOf(const json& row, const char* key) {
    return static_cast<uint32_t>(jsonNumber(row, key));
}

// The bits of the word, each of which names a CPU of the control processor.
std::string cpusText(uint64_t word) {
    std::string text;
    for (uint64_t bit : {1u, 2u, 4u})
        if ((word & bit) != 0) text += (text.empty() ? "" : "+") + std::to_string(bit);
    return text;
}
json vlanText(const json& row) {
    const uint64_t vlan = jsonNumber(row, "vlan");
    return vlan == 0 ? "-" : std::to_string(vlan);
}

json trapRow(const chassisDescription& chassis, const json& trap) {
    const std::string mac = jsonText(trap, "mac");
    // A protocol that has no address of its own is on.
    const bool none = mac.find_first_not_of("0:") == mac.npos;
    return {{"interface", agentIfText(chassis, wordOf(trap, "ifindex"))},
            {"mac-address", none ? "none" : mac},
            {"vlan", vlanText(trap)},
            {"cpus", cpusText(jsonNumber(trap, "cpus"))},
            {"local-address", jsonNumber(trap, "lda") != 0},
            {"mode", jsonNumber(trap, "mode")}};
}
// A member of a LAG has no VLAN.
json memberRow(const chassisDescription& chassis, const json& member) {
    return {{"interface", agentIfText(chassis, wordOf(member, "port"))},
            {"vlan", vlanText(member)},
            {"group", jsonNumber(member, "group")}};
}

// A row is known by these two of its fields.
struct rowKey {
    uint64_t index;
    json other;
    bool operator<(const rowKey& than) const {
        return index != than.index ? index < than.index : other < than.other;
    }
};
constexpr struct macTable {
    uint32_t what;
    const char *name, *index, *other;
    json (*row)(const chassisDescription&, const json&);
} tables[] = {{AGENT_STATE_TRAPS, "traps", "ifindex", "mac", trapRow},
              {AGENT_STATE_MEMBERS, "members", "port", "vlan", memberRow}};

typedef std::map<rowKey, json> macRows;
void hold(macRows* rows, const macTable& table, const json& row) {
    const json other = row.contains(table.other) ? row[table.other] : json();
    (*rows)[{jsonNumber(row, table.index), other}] = row;
}

// The manager's rows have the fields of the agent's.
cliOutcome intendedRows(cliSession* session, const macTable& table, uint32_t slot, macRows* rows) {
    for (uint64_t next = 0;;) {
        json answer;
        const std::string args =
            std::string(table.name) + " " + std::to_string(slot) + " " + std::to_string(next);
        if (cliOutcome asked = debugJson(session, "intended-macs", args, &answer); !asked.ok)
            return asked;
        for (const json& row : jsonArray(answer, table.name)) hold(rows, table, row);
        const uint64_t before = std::exchange(next, jsonNumber(answer, "next"));
        if (next <= before) return {};
    }
}

}  // namespace

cliOutcome showCardTraps(cliSession* session, const cliCommand& command, const agentPlace& place,
                         cliPipe* pipe) {
    const bool compared = command.kind == CARD_TRAPS_INSTALLED;
    json answer = json::object();
    bool inStep = true;
    for (const macTable& table : tables) {
        agentStateReq request{};
        request.what = table.what;
        macRows held, meant;
        const agentReply reply = agentRows(session, place, request, table.name,
                                           [&](const json& row) { hold(&held, table, row); });
        if (reply == agentReply::silent || reply == agentReply::notRunning)
            session->unreachable = true;
        if (reply != agentReply::good)
            return refusal("Card " + agentLabel(command.number) + ": " + agentReplyText(reply));
        if (compared)
            if (cliOutcome asked = intendedRows(session, table, command.number, &meant); !asked.ok)
                return asked;
        json& rows = answer[table.name] = json::array();
        auto add = [&](const json& row, const char* state) {
            json shown = table.row(session->chassis, row);
            if (compared) shown["state"] = state;
            rows.push_back(std::move(shown));
        };
        constexpr char IN_STEP[] = "in step";
        macRows all = meant;
        all.insert(held.begin(), held.end());
        for (const auto& [key, row] : all) {
            const auto there = held.find(key), wanted = meant.find(key);
            const char* state = there == held.end()               ? "missing"
                                : wanted == meant.end()           ? "left over"
                                : there->second != wanted->second ? "different"
                                                                  : IN_STEP;
            inStep &= !compared || state == IN_STEP;
            add(row, state);
        }
    }
    renderAnswer(*session, answer, pipe);
    return {inStep, "", 0};
}
