// Interfaces, VLANs, LAGs and the protocols on them: a line for each, or one with all that is known
// of it. JSON has all of it always.
#include <map>
#include <set>

#include "cli/lexer.h"
#include "cli/show/render.h"

namespace {

// Widths that keep a line below 100 columns.
constexpr size_t MEMBERS_WIDTH = 32, VLANS_WIDTH = 14, PROTOCOLS_WIDTH = 18, LINE_WIDTH = 70;

std::string joined(const json& texts, const char* separator = ",") {
    std::string all;
    for (const json& item : texts)
        if (item.is_string()) all += (all.empty() ? "" : separator) + item.get<std::string>();
    return all;
}

// Every row of a question, page by page; of a question about one place its row.
cliOutcome ask(cliSession* session, const char* function, const std::string& which, json* rows) {
    *rows = json::array();
    std::string args = which;
    for (uint64_t at = 0;;) {
        json answer;
        if (cliOutcome asked = debugJson(session, function, args, &answer); !asked.ok) return asked;
        if (!answer.is_object() || !answer.contains("rows"))
            return refusal("The manager's answer is not understood");
        for (const json& row : jsonArray(answer, "rows"))
            if (row.is_object()) rows->push_back(row);
        const uint64_t next = jsonNumber(answer, "next");
        if (next == 0) return {};
        // An index that does not grow would ask the same for ever.
        if (next <= at) return refusal("The manager's walk over the interfaces does not move on");
        at = next;
        args = "after " + std::to_string(next);
    }
}

// --- cells ---------------------------------------------------------------------------------------

// In hex, because slot and port stand in fixed bits of an index.
std::string indexText(const json& row) {
    return chassisIndexText(static_cast<uint32_t>(jsonNumber(row, "index")));
}
// The first one, and how many there are behind it.
std::string firstOf(const json& items) {
    if (items.empty()) return "";
    const std::string first =
        items[0].is_string() ? items[0].get<std::string>() : jsonText(items[0], "address");
    return items.size() > 1 ? first + " +" + std::to_string(items.size() - 1) : first;
}
// How many lists are bound to the place itself.
size_t listCount(const json& row) {
    size_t count = 0;
    for (const json& list : jsonArray(row, "lists")) count += list.contains("yields") ? 0 : 1;
    return count;
}
// Slots are numbers: 2 before 10. "-", of what is no port, is the first.
struct cardLess {
    bool operator()(const std::string& a, const std::string& b) const {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    }
};
std::string cardOf(const cliSession& session, const std::string& port) {
    uint32_t ifindex = 0;
    if (!chassisIfIndex(session.chassis, port, &ifindex)) return "-";
    const int slot = ifindexSlot(ifindex);
    return slot == SLOT_NONE ? "-" : std::to_string(slot);
}

// What every place has at the end of its line.
void addUses(const json& row, json* line) {
    (*line)["address"] = firstOf(jsonArray(row, "addresses"));
    (*line)["lists"] = listCount(row);
    (*line)["protocols"] = shortened(joined(jsonArray(row, "protocols")), PROTOCOLS_WIDTH);
}

json interfaceLine(const cliSession&, const json& row) {
    const std::string lag = jsonText(row, "lag");
    json line = {{"interface", jsonText(row, "interface")}, {"index", jsonText(row, "index")}};
    // Of places that are no ports both stay empty.
    line["card"] = row.contains("card") ? std::to_string(jsonNumber(row, "card")) : "";
    line["lag"] = lag.substr(std::min(lag.find_last_of(' ') + 1, lag.size()));
    line["vlans"] = shortened(jsonText(row, "vlans"), VLANS_WIDTH);
    addUses(row, &line);
    return line;
}
json vlanLine(const cliSession&, const json& row) {
    const json& members = jsonArray(row, "members");
    json line = {{"vlan", jsonNumber(row, "id")},
                 {"count", members.size()},
                 {"members", shortened(joined(members), MEMBERS_WIDTH)},
                 {"group-id", jsonNumber(row, "group-id")}};
    addUses(row, &line);
    return line;
}
json lagLine(const cliSession& session, const json& row) {
    const json& members = jsonArray(row, "members");
    std::set<std::string, cardLess> cards;
    for (const json& member : members)
        cards.insert(cardOf(session, member.is_string() ? member.get<std::string>() : ""));
    json line = {{"port-channel", jsonNumber(row, "id")},
                 {"members", shortened(joined(members), MEMBERS_WIDTH)},
                 {"cards", joined(cards)},
                 {"vlans", shortened(jsonText(row, "vlans"), VLANS_WIDTH)}};
    addUses(row, &line);
    return line;
}

// --- one place -----------------------------------------------------------------------------------

// A LAG's members in the order in which they joined, with their cards.
json lagMembers(const cliSession& session, const json& members) {
    json rows = json::array();
    for (const json& member : members) {
        const std::string name = member.is_string() ? member.get<std::string>() : "";
        rows.push_back({{"member", name}, {"card", cardOf(session, name)}});
    }
    return rows;
}
// A VLAN may have hundreds: card by card, several to a line.
json vlanMembers(const cliSession& session, const json& members) {
    std::map<std::string, std::vector<std::string>, cardLess> byCard;
    for (const json& member : members) {
        const std::string name = member.is_string() ? member.get<std::string>() : "";
        std::vector<std::string>& lines = byCard[cardOf(session, name)];
        if (lines.empty() || lines.back().size() + name.size() > LINE_WIDTH) lines.emplace_back();
        lines.back() += (lines.back().empty() ? "" : ", ") + name;
    }
    json rows = json::array();
    for (const auto& [card, lines] : byCard)
        for (const std::string& line : lines) rows.push_back({{"card", card}, {"members", line}});
    return rows;
}
// Of a member of a LAG also what the LAG brings it: its own list goes first where it has one.
json listRows(const json& lists) {
    json rows = json::array();
    for (const json& list : lists) {
        const bool known = list.contains("configured") && list["configured"] == true;
        const bool yields = list.contains("yields") && list["yields"] == true;
        // As `installed` calls it.
        const bool unsent =
            jsonText(list, "family") == "mac" && jsonText(list, "of").starts_with("vlan ");
        rows.push_back({{"direction", jsonText(list, "direction")},
                        {"family", jsonText(list, "family")},
                        {"list", jsonText(list, "list")},
                        {"of", jsonText(list, "of")},
                        {"state", yields   ? "the port's own goes first"
                                  : !known ? "not defined"
                                  : unsent ? "not sent for VLANs"
                                           : ""}});
    }
    return rows;
}

// What there is nothing of is left out.
json detail(const cliSession& session, json row) {
    const bool isLag = jsonText(row, "kind") == "port-channel";
    const json members = jsonArray(row, "members");
    if (!members.empty())
        row["members"] = isLag ? lagMembers(session, members) : vlanMembers(session, members);
    row["lists"] = json(listRows(jsonArray(row, "lists")));
    json shown = json::object();
    for (const auto& [key, value] : row.items()) {
        const bool empty = (value.is_array() && value.empty()) || value == "";
        if (!empty) shown[key] = value;
    }
    return shown;
}

// What the chassis description says of its interfaces: names, indexes, the ports' cards and pipes.
json describedRows(const chassisDescription& chassis) {
    json rows = json::array();
    auto add = [&rows](const std::string& name, uint32_t ifindex) -> json& {
        rows.push_back({{"interface", name}, {"index", chassisIndexText(ifindex)}});
        return rows.back();
    };
    for (const chassisCard& card : chassis.cards)
        for (const chassisPort& port : card.ports) {
            uint32_t ifindex = 0;
            (void)chassisIfIndex(chassis, port.name, &ifindex);
            json& row = add(port.name, ifindex);
            row["card"] = card.slot;
            row["pipe"] = port.pipe;
        }
    for (uint32_t id : chassis.lags)
        add("port-channel " + std::to_string(id), ifindexMake(IF_TYPE_LAG, id));
    for (uint32_t id : chassis.vlans)
        add("vlan " + std::to_string(id), ifindexMake(IF_TYPE_VLAN, id));
    add("control-plane", IFINDEX_CP_BIND);
    return rows;
}

// The manager's rows behind what is described; with `all` also what nothing is on.
json withChassis(const chassisDescription& chassis, const json& rows, bool all) {
    const json described = describedRows(chassis);
    std::map<std::string, size_t> known;  // by index
    for (size_t i = 0; i < described.size(); i++) known[jsonText(described[i], "index")] = i;
    json result = all ? described : json::array();
    for (const json& row : rows) {
        const std::string index = indexText(row);
        const auto at = known.find(index);
        json merged = at != known.end() ? described[at->second]
                                        : json{{"interface", jsonText(row, "interface")}};
        merged.update(row);
        merged["index"] = index;
        if (all && at != known.end())
            result[at->second] = std::move(merged);
        else
            result.push_back(std::move(merged));
    }
    return result;
}

// What the manager says of places of one kind; with `all` what the chassis has besides.
cliOutcome showPlaces(cliSession* session, const cliCommand& command, const char* function,
                      json (*line)(const cliSession&, const json&), cliPipe* pipe,
                      bool all = false) {
    std::string error;
    json rows;
    if (!sessionChassis(session, &error)) return refusal(error);
    if (cliOutcome asked = ask(session, function, command.text, &rows); !asked.ok) return asked;
    rows = withChassis(session->chassis, rows, all);
    if (session->options.json) {
        renderAnswer(*session, rows, pipe);
    } else if (!command.text.empty() && rows.size() == 1) {
        renderAnswer(*session, detail(*session, rows[0]), pipe);
    } else {
        json lines = json::array();
        for (const json& row : rows) lines.push_back(line(*session, row));
        renderAnswer(*session, lines, pipe);
    }
    return {};
}

}  // namespace

cliOutcome showInterfaces(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    return showPlaces(session, command, "interfaces", interfaceLine, pipe, command.text.empty());
}
cliOutcome showVlans(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    return showPlaces(session, command, "vlans", vlanLine, pipe);
}
cliOutcome showPortChannels(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    return showPlaces(session, command, "port-channels", lagLine, pipe);
}
cliOutcome showProtocols(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    json rows;
    if (cliOutcome asked = ask(session, "protocols", command.text, &rows); !asked.ok) return asked;
    // In a line the first address that is trapped, and how many there are behind it; a protocol
    // that has none of its own is told with zeros.
    if (!session->options.json)
        for (json& row : rows) {
            const std::string first = firstOf(jsonArray(row, "traps"));
            row["traps"] = first.starts_with("00:00:00:00:00:00") ? "none" : first;
        }
    renderAnswer(*session, rows, pipe);
    return {};
}
