// The cards of the chassis: what their agents say of themselves, and the events that chassisd is
// asked to raise.
#include "cli/show/agents.h"
#include "include/entry.h"
#include "include/service.h"

namespace {

// Names and addresses come from the chassis description, so both are needed.
bool ready(cliSession* session, std::string* error) {
    return sessionChassis(session, error) && sessionConnect(session, error);
}

constexpr char IN_STEP[] = "in step";  // as the agents say it

json rowOf(const agentQuestion& asked) {
    const json& summary = asked.answer;
    json row = {{"card", agentLabel(asked.place.slot)},
                {"address", addressText(asked.place.card)},
                {"state", agentReplyText(asked.reply)}};
    if (asked.reply != agentReply::good) return row;
    // An agent that answers says itself whether it is in step.
    row["state"] = jsonText(summary, "state");
    for (const char* key : {"lists", "entries", "messages"}) row[key] = jsonNumber(summary, key);
    // By reason in the agent's answer; an operator wants to see that there are any.
    uint64_t refused = 0;
    const json mac = summary.value("mac", json::object());
    for (const json& queue : {summary, mac})
        if (queue.contains("refused") && queue["refused"].is_object())
            for (const auto& [reason, count] : queue["refused"].items())
                refused += jsonNumber(queue["refused"], reason.c_str());
    row["refused"] = refused;
    return row;
}

json listRow(const cliSession& session, const json& list) {
    const bool off = list.contains("inForce") && list["inForce"] == false;
    const std::string way = jsonNumber(list, "direction") == 0 ? "in" : "out";
    return {{"list", jsonText(list, "name")},
            {"kind", jsonText(list, "kind")},
            {"interface", agentPlaceText(session.chassis, list)},
            {"direction", way + (off ? " (not in force)" : "")},
            {"implicit-permit", jsonNumber(list, "implicitPermit") != 0},
            {"entries", jsonNumber(list, "count")}};
}

// A card decides as the manager does: 1 denies, every other value permits.
std::string actionText(const json& entry) {
    uint64_t action = jsonNumber(entry, "action");
    if (action <= IP_DENY) return action == IP_DENY ? "deny" : "permit";
    return "permit (" + std::to_string(action) + ")";
}

// The payload that an entry of a MAC list asks for, in the words of its line.
std::string payloadText(const json& entry) {
    const uint64_t encapsulation = jsonNumber(entry, "encapsulation");
    if (encapsulation == MAC_ENCAPSULATION_NONE) return "any";
    std::string text = std::to_string(encapsulation);
    for (const macEncapsulationRow& row : macEncapsulationTable)
        if (row.code == encapsulation) text = row.word;
    constexpr const char* operators[] = {"", "eq", "gt", "lt", "neq"};  // as ipPortOperator
    const uint64_t op = jsonNumber(entry, "etherTypeOperator");
    be16 type;
    type = static_cast<uint16_t>(jsonNumber(entry, "etherType"));
    return text + " " + (op <= PORT_NEQ ? operators[op] : std::to_string(op)) + " " +
           agentHexText(type.b);
}

std::string protocolText(const json& entry) {
    if (entry.contains("encapsulation")) return payloadText(entry);
    uint64_t protocol = jsonNumber(entry, "protocol");
    // Without the marker 4 stands for every protocol.
    bool any = protocol == 4 && jsonNumber(entry, "protoMarker") == 0;
    if (any) return "ip";
    // Those whose word means the same in lists of both families.
    return protocol == 6 ? "tcp" : protocol == 17 ? "udp" : std::to_string(protocol);
}

// An address and its mask, shorter where the mask has all bits or none. (Masks of MAC lists are
// wildcards and look like none of these.)
std::string addressOf(const json& entry, const char* addressKey, const char* maskKey) {
    const std::string address = jsonText(entry, addressKey), mask = jsonText(entry, maskKey);
    constexpr std::string_view none[] = {"0.0.0.0", "::"};
    constexpr std::string_view all[] = {"255.255.255.255",
                                        "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"};
    // Bits that are not compared may be anything; they are shown when they are.
    if (std::ranges::find(none, mask) != std::end(none) && address == mask) return "any";
    if (std::ranges::find(all, mask) != std::end(all)) return "host " + address;
    return address + " " + mask;
}

// "dst eq 80": what is asked of one of the two ports; empty when nothing is.
std::string portText(const json& entry, const char* word, const char* key, size_t low) {
    const json& ports = jsonArray(entry, "ports");
    const uint64_t op = jsonNumber(entry, key);
    if (op == PORT_NONE || ports.size() < low + 2) return "";
    constexpr const char* operators[] = {"", "eq", "gt", "lt", "neq", "range"};  // ipPortOperator
    const std::string sign = op < std::size(operators) ? operators[op] : std::to_string(op);
    const std::string first = ports[low].dump(), second = ports[low + 1].dump();
    const bool both = op >= PORT_RANGE || (second != "0" && second != first);
    return std::string(word) + " " + sign + " " + first + (both ? " " + second : "");
}

// What else an entry asks for, as the card has it: all that is given.
std::string givenText(const json& entry) {
    // In the order of the entry line. The values are those with which a field says that it is not
    // given.
    constexpr struct {
        const char* key;
        uint64_t notGiven;
    } numbers[] = {
        {"tcpFlags", 0},     {"fragments", 0},      {"dscp", 0xFF}, {"precedence", 0xFFFFFFFF},
        {"tos", 0xFFFFFFFF}, {"counterOptions", 0}, {"log", 0},     {"monitor", 0},
        {"order", 0xFF}};
    std::string text = portText(entry, "src", "srcOperator", 0);
    if (const std::string dst = portText(entry, "dst", "dstOperator", 2); !dst.empty())
        text += (text.empty() ? "" : " ") + dst;
    auto add = [&text](const char* key, const std::string& value) {
        text += (text.empty() ? "" : " ") + std::string(key) + " " + value;
    };
    for (const auto& [key, notGiven] : numbers)
        if (uint64_t n = jsonNumber(entry, key); entry.contains(key) && n != notGiven)
            add(key, std::to_string(n));
    if (std::string mac = jsonText(entry, "srcMac"); !mac.empty()) add("srcMac", mac);
    // Ports without an operator mean nothing, and are shown when there are any.
    bool ports = false;
    for (const json& port : jsonArray(entry, "ports")) ports |= port.is_number() && port != 0;
    if (ports && jsonNumber(entry, "srcOperator") + jsonNumber(entry, "dstOperator") == 0)
        add("ports", jsonDump(jsonArray(entry, "ports")));
    // Shown in hex as the card holds them: parts of a record that it does not take apart.
    for (const char* key : {"icmp", "l2"})
        if (std::string hex = jsonText(entry, key); hex.find_first_not_of('0') != hex.npos)
            add(key, hex);
    return text;
}

// The entries of one list, wherever the card holds it.
agentReply entriesOf(cliSession* session, const agentPlace& place, const listName& name,
                     const json& places, json* out) {
    for (const json& at : places) {
        agentStateReq request{};
        request.what = AGENT_STATE_ENTRIES;
        request.name = name;
        // A list is one instance for each place; all of these fields together say which.
        request.ifindex = static_cast<uint32_t>(jsonNumber(at, "ifindex"));
        request.direction = static_cast<uint32_t>(jsonNumber(at, "direction"));
        request.kind = static_cast<uint32_t>(jsonNumber(at, "kindNumber"));
        request.group = static_cast<uint32_t>(jsonNumber(at, "group"));
        json shown = listRow(*session, at);
        json rows = json::array();
        agentReply reply = agentRows(session, place, request, "entries", [&](const json& entry) {
            // Entries of the system's own lists have no numbers.
            const bool numbered = session->options.json || jsonNumber(entry, "seq") != UINT32_MAX;
            rows.push_back({{"seq", numbered ? json(jsonNumber(entry, "seq")) : json("-")},
                            {"action", actionText(entry)},
                            {"protocol", protocolText(entry)},
                            {"source", addressOf(entry, "src", "srcMask")},
                            {"destination", addressOf(entry, "dst", "dstMask")},
                            {"given", givenText(entry)},
                            {"packets", jsonNumber(entry, "packets")},
                            {"hash", jsonText(entry, "hash")}});
        });
        // Gone since the card was asked for its lists.
        if (reply == agentReply::noList) continue;
        if (reply != agentReply::good) return reply;
        shown["entries"] = std::move(rows);
        out->push_back(std::move(shown));
    }
    return agentReply::good;
}

}  // namespace

cliOutcome showCards(cliSession* session, const cliCommand&, cliPipe* pipe) {
    std::string error;
    if (!ready(session, &error)) return refusal(error);
    std::vector<agentQuestion> questions;
    for (const agentPlace& place : agentsOf(session->chassis)) {
        questions.push_back({place});
        questions.back().request.what = AGENT_STATE_SUMMARY;
    }
    agentAskAll(session, questions);
    json rows = json::array();
    bool inStep = true;
    for (const agentQuestion& asked : questions) {
        rows.push_back(rowOf(asked));
        // The exit status says whether every card is in step, for scripts that wait for it.
        inStep &= rows.back()["state"] == IN_STEP;
    }
    renderAnswer(*session, rows, pipe);
    return {inStep, "", 0};
}

cliOutcome showCard(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    agentPlace place;
    if (!ready(session, &error)) return refusal(error);
    if (!agentFind(session->chassis, command.number, &place))
        return refusal("The chassis has no card " + agentLabel(command.number));
    if (command.kind == CARD_TRAPS || command.kind == CARD_TRAPS_INSTALLED)
        return showCardTraps(session, command, place, pipe);
    agentStateReq request{};
    request.what = command.kind == CARD_SUMMARY ? AGENT_STATE_SUMMARY : AGENT_STATE_LISTS;
    request.name = listNameMake(command.name);
    json answer;
    agentReply reply;
    if (command.kind == CARD_SUMMARY) {
        reply = agentAsk(session, place, &request, &answer);
    } else {
        json lists = json::array();
        reply = agentRows(session, place, request, "lists",
                          [&lists](const json& list) { lists.push_back(list); });
        answer = json::array();
        // With a name the entries are asked for, place by place; without one the lists are enough.
        if (reply == agentReply::good && !command.name.empty())
            reply = entriesOf(session, place, request.name, lists, &answer);
        else
            for (const json& list : lists) answer.push_back(listRow(*session, list));
        if (reply == agentReply::good && lists.empty() && !command.name.empty())
            reply = agentReply::noList;
    }
    if (reply == agentReply::silent || reply == agentReply::notRunning) session->unreachable = true;
    if (reply != agentReply::good)
        return refusal("Card " + agentLabel(command.number) + ": " + agentReplyText(reply));
    renderAnswer(*session, answer, pipe);
    return {};
}
