// One list as the manager means it, compared with what every card holds of it.
#include <algorithm>
#include <map>

#include "cli/show/agents.h"
#include "include/status.h"

namespace {

// What the manager and the cards call the lists of a kind.
struct shownFamily {
    const char* word;
    agentListKind kind;
};
constexpr shownFamily familyOf(uint32_t kind) {
    if (kind == KIND_IP6) return {"ipv6", AGENT_LIST_IP6};
    bool mac = kind == KIND_MAC_STANDARD || kind == KIND_MAC_EXTENDED;
    return mac ? shownFamily{"mac", AGENT_LIST_MAC} : shownFamily{"ip", AGENT_LIST_IP4};
}

// What is asked about: a list of one family.
struct subject {
    shownFamily family;
    listName name;
};

// Where a card holds a list; of a VLAN group without an interface.
struct placeKey {
    uint64_t direction, group, ifindex;
    auto operator<=>(const placeKey&) const = default;
};
placeKey placeOf(const json& row) {
    return {jsonNumber(row, "direction"), jsonNumber(row, "group"), jsonNumber(row, "ifindex")};
}
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

void hold(heldCard* card, const subject& what, const json& list) {
    if (jsonNumber(list, "kindNumber") == what.family.kind) card->lists[placeOf(list)] = {list};
}

// All cards are asked, so that what one holds without need is seen as well.
std::vector<heldCard> askCards(cliSession* session, const subject& what) {
    std::vector<agentQuestion> questions;
    for (const agentPlace& place : agentsOf(session->chassis)) {
        questions.push_back({place});
        questions.back().request.what = AGENT_STATE_LISTS;
        questions.back().request.name = what.name;
    }
    agentAskAll(session, questions);
    std::vector<heldCard> cards;
    for (agentQuestion& asked : questions) {
        heldCard& card = cards.emplace_back();
        card.place = asked.place;
        card.reply = asked.reply;
        for (const json& list : jsonArray(asked.answer, "lists")) hold(&card, what, list);
        // The first pages came together; what goes on is rare and asked for card by card.
        if (uint64_t next = jsonNumber(asked.answer, "next"); next != 0) {
            asked.request.index = static_cast<uint32_t>(next);
            card.reply = agentRows(session, asked.place, asked.request, "lists",
                                   [&](const json& list) { hold(&card, what, list); });
        }
    }
    return cards;
}

// The hash of a list: of the hashes of its entries, in their order.
agentReply hashOf(cliSession* session, const agentPlace& place, const subject& what, placeKey at,
                  uint64_t* hash) {
    agentStateReq request{};
    request.what = AGENT_STATE_ENTRIES;
    request.name = what.name;
    request.direction = static_cast<uint32_t>(at.direction);
    request.ifindex = static_cast<uint32_t>(at.ifindex);
    request.group = static_cast<uint32_t>(at.group);
    request.kind = what.family.kind;
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

std::string compare(cliSession* session, const json& row, heldCard* card, const subject& what) {
    card->named = true;
    if (card->reply != agentReply::good) return agentReplyText(card->reply);
    const placeKey at = placeOf(row);
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
    agentReply reply = hashOf(session, card->place, what, at, &hash);
    if (reply == agentReply::noList) return "missing";
    if (reply != agentReply::good) return agentReplyText(reply);
    return agentHashText(hash) == jsonText(row, "hash") ? "in step" : "different";
}

// The states that need no action.
constexpr std::string_view fine[] = {"in step", "not supported", "not defined"};

std::string interfaceText(const cliSession& session, const placeKey& at) {
    if (at.group != 0) return "VLAN group " + std::to_string(at.group);
    const std::string name = chassisIfName(session.chassis, static_cast<uint32_t>(at.ifindex));
    return name.empty() ? std::to_string(at.ifindex) : name;
}

}  // namespace

cliOutcome showInstalled(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    json intended;
    const subject what{familyOf(command.kind), listNameMake(command.name)};
    if (!sessionChassis(session, &error) || !sessionConnect(session, &error)) return refusal(error);
    const std::string args = std::string(what.family.word) + " " + std::string(command.name);
    if (cliOutcome asked = debugJson(session, "intended", args, &intended); !asked.ok) return asked;
    const bool missing = isSet(intended, "missing");
    if (!intended.is_array() && !missing) return refusal("The manager's answer is not understood");
    std::vector<heldCard> cards = askCards(session, what);
    json rows = json::array();
    bool inStep = true;
    auto direction = [](uint64_t number) { return number == 0 ? "in" : "out"; };
    auto add = [&](const std::string& interface, const char* way, const std::string& card,
                   const std::string& state, bool isFine = false) {
        // The exit status is one for all rows.
        inStep &= isFine || std::ranges::find(fine, state) != std::end(fine);
        rows.push_back(
            {{"interface", interface}, {"direction", way}, {"card", card}, {"state", state}});
    };
    for (const json& row : missing ? json::array() : intended) {
        std::string interface = jsonText(row, "interface");
        const char* way = direction(jsonNumber(row, "direction"));
        std::string label = jsonText(row, "card");
        // A LAG or VLAN without ports, or what is not sent, as the manager says: no card has to
        // hold it.
        if (label.empty()) {
            const std::string unsent = jsonText(row, "unsent");
            add(interface, way, "-", unsent.empty() ? "no ports" : unsent, true);
            continue;
        }
        auto card = std::ranges::find(cards, label,
                                      [](const heldCard& c) { return agentLabel(c.place.slot); });
        std::string port = jsonText(row, "port");  // of a LAG
        std::string state =
            card == cards.end() ? "no such card" : compare(session, row, &*card, what);
        const bool isFine = std::ranges::find(fine, state) != std::end(fine);
        if (state == "in step" && isSet(row, "outOfForce"))
            state += ", out of force without mac egress-filter";
        add(interface + (port.empty() ? "" : " (" + port + ")"), way, label, state, isFine);
    }
    for (const heldCard& card : cards) {
        // Nobody knows what it holds.
        if (card.reply != agentReply::good && !card.named)
            add("-", "-", agentLabel(card.place.slot), agentReplyText(card.reply));
        for (const auto& [at, held] : card.lists) {
            if (held.meant) continue;
            add(interfaceText(*session, at), direction(at.direction), agentLabel(card.place.slot),
                "left over");
        }
    }
    // A list that the manager does not know may still be left over on a card; only then there is
    // something to show.
    if (missing && rows.empty()) return refusal(aclStatusFind(ACL_E_NOLIST)->text);
    renderAnswer(*session, rows, pipe);
    return {inStep, "", 0};
}
