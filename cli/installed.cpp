// One list as the manager means it, compared with what every card holds of it.
#include <algorithm>
#include <map>

#include "cli/agents.h"

namespace {

// Where a card holds a list.
struct placeKey {
    uint64_t direction, ifindex;
    auto operator<=>(const placeKey&) const = default;
};
struct heldList {
    uint64_t count, implicitPermit;
    bool meant;  // one of the manager's rows speaks of it
};
struct heldCard {
    agentPlace place;
    agentReply reply;
    std::map<placeKey, heldList> lists;
};

heldCard askCard(cliSession* session, const agentPlace& place, const listName& name) {
    heldCard card{place, agentReply::good, {}};
    agentStateReq request{};
    request.what = AGENT_STATE_LISTS;
    request.name = name;
    card.reply = agentRows(session, place, request, "lists", [&card](const json& list) {
        if (jsonNumber(list, "kindNumber") != AGENT_LIST_IP4) return;
        card.lists[{jsonNumber(list, "direction"), jsonNumber(list, "ifindex")}] = {
            jsonNumber(list, "count"), jsonNumber(list, "implicitPermit"), false};
    });
    return card;
}

// The hash of a list: of the hashes of its entries, in their order.
agentReply hashOf(cliSession* session, const agentPlace& place, const listName& name, placeKey at,
                  uint64_t* hash) {
    agentStateReq request{};
    request.what = AGENT_STATE_ENTRIES;
    request.name = name;
    request.direction = static_cast<uint32_t>(at.direction);
    request.ifindex = static_cast<uint32_t>(at.ifindex);
    request.kind = AGENT_LIST_IP4;
    agentListHash list;
    agentReply reply = agentRows(session, place, request, "entries", [&list](const json& entry) {
        list.add(std::strtoull(jsonText(entry, "hash").c_str(), nullptr, 16));
    });
    *hash = list.value;
    return reply;
}

bool isSet(const json& row, const char* key) {
    return row.contains(key) && row[key] == true;
}

std::string compare(cliSession* session, const json& row, heldCard* card, const listName& name) {
    if (card->reply != agentReply::good) return agentReplyText(card->reply);
    placeKey at{jsonNumber(row, "direction"), jsonNumber(row, "ifindex")};
    auto held = card->lists.find(at);
    bool there = held != card->lists.end();
    if (there) held->second.meant = true;
    // A list that is deleted while it is bound leaves the cards; one that is bound, or replayed,
    // while it is not defined is there without entries. Both are right and mean the same.
    if (isSet(row, "undefined") && (!there || held->second.count == 0)) return "not defined";
    if (!there) return isSet(row, "refuses") ? "not supported" : "missing";
    if (held->second.count != jsonNumber(row, "entries") ||
        held->second.implicitPermit != jsonNumber(row, "implicitPermit"))
        return "different";
    uint64_t hash;
    agentReply reply = hashOf(session, card->place, name, at, &hash);
    if (reply == agentReply::noList) return "missing";
    if (reply != agentReply::good) return agentReplyText(reply);
    return agentHashText(hash) == jsonText(row, "hash") ? "in step" : "different";
}

// The states that need no action.
constexpr std::string_view fine[] = {"in step", "no ports", "not supported", "not defined"};

}  // namespace

cliOutcome showInstalled(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    json intended;
    if (!sessionChassis(session, &error) || !sessionConnect(session, &error)) return refusal(error);
    if (cliOutcome asked = debugJson(session, "intended", command.name, &intended); !asked.ok)
        return asked;
    if (!intended.is_array()) return refusal("The manager's answer is not understood");
    listName name = listNameMake(command.name);

    // All cards are asked, so that what one holds without need is seen as well.
    std::vector<heldCard> cards;
    for (const agentPlace& place : agentsOf(session->chassis))
        cards.push_back(askCard(session, place, name));
    json rows = json::array();
    bool inStep = true;
    auto add = [&](const std::string& interface, uint64_t direction, const std::string& card,
                   const std::string& state) {
        inStep &= std::ranges::find(fine, state) != std::end(fine);
        rows.push_back({{"interface", interface},
                        {"direction", direction == 0 ? "in" : "out"},
                        {"card", card},
                        {"state", state}});
    };
    for (const json& row : intended) {
        std::string interface = jsonText(row, "interface");
        uint64_t direction = jsonNumber(row, "direction");
        std::string label = jsonText(row, "card");
        if (label.empty()) {
            add(interface, direction, "-", "no ports");
            continue;
        }
        auto card = std::ranges::find(cards, label,
                                      [](const heldCard& c) { return agentLabel(c.place.slot); });
        std::string port = jsonText(row, "port");  // of a LAG
        add(interface + (port.empty() ? "" : " (" + port + ")"), direction, label,
            card == cards.end() ? "no such card" : compare(session, row, &*card, name));
    }
    for (const heldCard& card : cards)
        for (const auto& [at, held] : card.lists) {
            if (held.meant) continue;
            std::string interface =
                chassisIfName(session->chassis, static_cast<uint32_t>(at.ifindex));
            add(interface.empty() ? std::to_string(at.ifindex) : interface, at.direction,
                agentLabel(card.place.slot), "left over");
        }
    renderAnswer(*session, rows, pipe);
    return {inStep, "", 0};
}
