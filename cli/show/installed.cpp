// One list as the manager means it, compared with what every card holds of it.
#include <algorithm>
#include <map>

#include "cli/show/agents.h"
#include "include/status.h"

namespace {

// Where a card holds a list.
struct placeKey {
    uint64_t direction, ifindex;
    auto operator<=>(const placeKey&) const = default;
};
struct heldList {
    json row;            // the card's
    bool meant = false;  // one of the manager's rows speaks of it
};
struct heldCard {
    agentPlace place;
    agentReply reply;
    std::map<placeKey, heldList> lists;
    bool named = false;  // by one of the manager's rows
};

void hold(heldCard* card, const json& list) {
    if (jsonNumber(list, "kindNumber") == AGENT_LIST_IP4)
        card->lists[{jsonNumber(list, "direction"), jsonNumber(list, "ifindex")}] = {list};
}

// All cards are asked, so that what one holds without need is seen as well.
std::vector<heldCard> askCards(cliSession* session, const listName& name) {
    std::vector<agentQuestion> questions;
    for (const agentPlace& place : agentsOf(session->chassis)) {
        questions.push_back({place});
        questions.back().request.what = AGENT_STATE_LISTS;
        questions.back().request.name = name;
    }
    agentAskAll(session, questions);
    std::vector<heldCard> cards;
    for (agentQuestion& asked : questions) {
        heldCard& card = cards.emplace_back();
        card.place = asked.place;
        card.reply = asked.reply;
        for (const json& list : jsonArray(asked.answer, "lists")) hold(&card, list);
        // The first pages came together; what goes on is rare and asked for card by card.
        if (uint64_t next = jsonNumber(asked.answer, "next"); next != 0) {
            asked.request.index = static_cast<uint32_t>(next);
            card.reply = agentRows(session, asked.place, asked.request, "lists",
                                   [&card](const json& list) { hold(&card, list); });
        }
    }
    return cards;
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
        // Hashes of entries in their order: a moved entry is a difference, too.
        list.add(std::strtoull(jsonText(entry, "hash").c_str(), nullptr, 16));
    });
    *hash = list.value;
    return reply;
}

// The manager leaves out a flag that is not set.
bool isSet(const json& row, const char* key) {
    return row.contains(key) && row[key] == true;
}

// What is said of a list beside its entries: the manager's word for it, and the cards'. A row that
// lacks it says nothing of it.
constexpr struct {
    const char *meant, *held;
} properties[] = {{"entries", "count"},
                  {"implicitPermit", "implicitPermit"},
                  {"kind", "listKind"},
                  {"pipe", "portPipe"},
                  {"block", "block"}};

bool sameProperties(const json& row, const json& held) {
    return std::ranges::all_of(properties, [&](const auto& p) {
        return !row.contains(p.meant) || !held.contains(p.held) || row[p.meant] == held[p.held];
    });
}

std::string compare(cliSession* session, const json& row, heldCard* card, const listName& name) {
    card->named = true;
    if (card->reply != agentReply::good) return agentReplyText(card->reply);
    placeKey at{jsonNumber(row, "direction"), jsonNumber(row, "ifindex")};
    auto held = card->lists.find(at);
    bool there = held != card->lists.end();
    if (there) held->second.meant = true;
    // A list that is deleted while it is bound leaves the cards; one that is bound, or replayed,
    // while it is not defined is there without entries. Both are right and mean the same.
    if (isSet(row, "undefined") && (!there || jsonNumber(held->second.row, "count") == 0))
        return "not defined";
    // A card that refuses a list does not hold it, which is as it should be.
    if (!there) return isSet(row, "refuses") ? "not supported" : "missing";
    // Compared first: it costs no question to the card.
    if (!sameProperties(row, held->second.row)) return "different";
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
    const bool missing = isSet(intended, "missing");
    if (!intended.is_array() && !missing) return refusal("The manager's answer is not understood");
    listName name = listNameMake(command.name);
    std::vector<heldCard> cards = askCards(session, name);
    json rows = json::array();
    bool inStep = true;
    auto direction = [](uint64_t number) { return number == 0 ? "in" : "out"; };
    auto add = [&](const std::string& interface, const char* way, const std::string& card,
                   const std::string& state) {
        // The exit status is one for all rows.
        inStep &= std::ranges::find(fine, state) != std::end(fine);
        rows.push_back(
            {{"interface", interface}, {"direction", way}, {"card", card}, {"state", state}});
    };
    for (const json& row : missing ? json::array() : intended) {
        std::string interface = jsonText(row, "interface");
        const char* way = direction(jsonNumber(row, "direction"));
        std::string label = jsonText(row, "card");
        // A LAG or VLAN without ports: no card has to hold it.
        if (label.empty()) {
            add(interface, way, "-", "no ports");
            continue;
        }
        auto card = std::ranges::find(cards, label,
                                      [](const heldCard& c) { return agentLabel(c.place.slot); });
        std::string port = jsonText(row, "port");  // of a LAG
        add(interface + (port.empty() ? "" : " (" + port + ")"), way, label,
            card == cards.end() ? "no such card" : compare(session, row, &*card, name));
    }
    for (const heldCard& card : cards) {
        // Nobody knows what it holds.
        if (card.reply != agentReply::good && !card.named)
            add("-", "-", agentLabel(card.place.slot), agentReplyText(card.reply));
        for (const auto& [at, held] : card.lists) {
            if (held.meant) continue;
            std::string interface =
                chassisIfName(session->chassis, static_cast<uint32_t>(at.ifindex));
            add(interface.empty() ? std::to_string(at.ifindex) : interface, direction(at.direction),
                agentLabel(card.place.slot), "left over");
        }
    }
    // A list that the manager does not know may still be left over on a card; only then there is
    // something to show.
    if (missing && rows.empty()) return refusal(aclStatusFind(ACL_E_NOLIST)->text);
    renderAnswer(*session, rows, pipe);
    return {inStep, "", 0};
}
