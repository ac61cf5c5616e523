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
    // Of both families: their names are apart.
    if (kind == KIND_SYSTEM) return {"system", AGENT_LIST_SYSTEM};
    if (kind == KIND_IP6) return {"ipv6", AGENT_LIST_IP6};
    bool mac = kind == KIND_MAC_STANDARD || kind == KIND_MAC_EXTENDED;
    return mac ? shownFamily{"mac", AGENT_LIST_MAC} : shownFamily{"ip", AGENT_LIST_IP4};
}

// Their names have blanks.
constexpr const char* NO_SYSTEM_LIST =
    "There is no such system list; there are \"Global Acl\" and \"v6 Global Acl\"";

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

bool isOf(const subject& what, const json& list) {
    const uint64_t kind = jsonNumber(list, "kindNumber");
    return kind == what.family.kind ||
           (what.family.kind == AGENT_LIST_SYSTEM && kind == AGENT_LIST_SYSTEM6);
}
void hold(heldCard* card, const subject& what, const json& list) {
    if (isOf(what, list)) card->lists[placeOf(list)] = {list};
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

// The hash of a list: of the hashes of its entries. In their order, as a moved entry is a
// difference, too; those of system lists have no order, and no numbers that count.
agentReply hashOf(cliSession* session, const agentPlace& place, const subject& what,
                  const json& held, uint64_t* hash) {
    const placeKey at = placeOf(held);
    agentStateReq request{};
    request.what = AGENT_STATE_ENTRIES;
    request.name = what.name;
    request.direction = static_cast<uint32_t>(at.direction);
    request.ifindex = static_cast<uint32_t>(at.ifindex);
    request.group = static_cast<uint32_t>(at.group);
    request.kind = static_cast<uint32_t>(jsonNumber(held, "kindNumber"));
    const bool byContent = what.family.kind == AGENT_LIST_SYSTEM;
    std::vector<uint64_t> hashes;
    agentReply reply = agentRows(session, place, request, "entries", [&](const json& entry) {
        const std::string text = jsonText(entry, byContent ? "content" : "hash");
        hashes.push_back(std::strtoull(text.c_str(), nullptr, 16));
    });
    if (byContent) std::ranges::sort(hashes);
    agentListHash list;
    for (uint64_t h : hashes) list.add(h);
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
    agentReply reply = hashOf(session, card->place, what, held->second.row, &hash);
    if (reply == agentReply::noList) return "missing";
    if (reply != agentReply::good) return agentReplyText(reply);
    return agentHashText(hash) == jsonText(row, "hash") ? "in step" : "different";
}

// The states that need no action.
constexpr std::string_view fine[] = {"in step", "not supported", "not defined"};

// A place of a list that the manager means, or that a card holds, and how it stands there.
struct place {
    std::string interface, direction, card, state;
    bool isFine;
};
struct comparison {
    std::vector<place> places;
    bool missing = false;  // the manager knows no such list

    void add(const std::string& interface, uint64_t direction, const std::string& card,
             const std::string& state, bool isFine = false) {
        const bool known = std::ranges::find(fine, state) != std::end(fine);
        places.push_back({interface, direction == 0 ? "in" : "out", card, state, isFine || known});
    }
};

// What a card holds that no row of the manager's speaks of.
void addLeftOver(const cliSession& session, const subject& what, const heldCard& card,
                 comparison* out) {
    const std::string label = agentLabel(card.place.slot);
    // Nobody knows what it holds. System lists are for cards with ports alone.
    const bool isSystem = what.family.kind == AGENT_LIST_SYSTEM;
    if (card.reply != agentReply::good && !card.named &&
        !(isSystem && card.place.slot == CARD_CONTROL_PLANE))
        out->places.push_back({"-", "-", label, agentReplyText(card.reply), false});
    for (const auto& [at, held] : card.lists) {
        // A system list stays at a port when the last of its entries has gone.
        const bool emptied = isSystem && jsonNumber(held.row, "count") == 0;
        if (!held.meant && !emptied)
            out->add(agentPlaceText(session.chassis, held.row), at.direction, label, "left over");
    }
}

cliOutcome compareAll(cliSession* session, const subject& what, comparison* out) {
    json intended;
    const std::string args =
        std::string(what.family.word) + " " + std::string(listNameView(what.name));
    if (cliOutcome asked = debugJson(session, "intended", args, &intended); !asked.ok) return asked;
    out->missing = isSet(intended, "missing");
    if (!intended.is_array() && !out->missing)
        return refusal("The manager's answer is not understood");
    std::vector<heldCard> cards = askCards(session, what);
    for (const json& row : out->missing ? json::array() : intended) {
        std::string interface = jsonText(row, "interface");
        const uint64_t way = jsonNumber(row, "direction");
        std::string label = jsonText(row, "card");
        // A LAG or VLAN without ports, or what is not sent, as the manager says: no card has to
        // hold it.
        if (label.empty()) {
            const std::string unsent = jsonText(row, "unsent");
            out->add(interface, way, "-", unsent.empty() ? "no ports" : unsent, true);
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
        out->add(interface + (port.empty() ? "" : " (" + port + ")"), way, label, state, isFine);
    }
    for (const heldCard& card : cards) addLeftOver(*session, what, card, out);
    return {};
}

bool ready(cliSession* session, std::string* error) {
    return sessionChassis(session, error) && sessionConnect(session, error);
}

// A list at one card: how many places it has there, and the first state that needs action.
void addCardRows(const std::string& list, uint64_t entries, const comparison& compared, json* rows,
                 bool* inStep) {
    std::map<std::string, std::pair<uint64_t, std::string>> cards;
    for (const place& p : compared.places) {
        auto& [places, state] = cards[p.card];
        places += p.interface == "-" ? 0 : 1;
        if (!p.isFine && state.empty()) state = p.state;
        *inStep &= p.isFine;
    }
    if (cards.empty()) cards["-"] = {0, "no cards"};
    for (const auto& [card, held] : cards)
        rows->push_back({{"list", list},
                         {"entries", entries},
                         {"card", card},
                         {"places", held.first},
                         {"state", held.second.empty() ? "in step" : held.second}});
}

}  // namespace

cliOutcome showInstalled(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    comparison compared;
    const subject what{familyOf(command.kind), listNameMake(command.name)};
    if (!ready(session, &error)) return refusal(error);
    if (cliOutcome asked = compareAll(session, what, &compared); !asked.ok) return asked;
    // A list that the manager does not know may still be left over on a card; only then there is
    // something to show.
    if (compared.missing && compared.places.empty())
        return refusal(command.kind == KIND_SYSTEM ? NO_SYSTEM_LIST
                                                   : aclStatusFind(ACL_E_NOLIST)->text);
    json rows = json::array();
    bool inStep = true;
    for (const place& p : compared.places) {
        // The exit status is one for all rows.
        inStep &= p.isFine;
        rows.push_back({{"interface", p.interface},
                        {"direction", p.direction},
                        {"card", p.card},
                        {"state", p.state}});
    }
    renderAnswer(*session, rows, pipe);
    return {inStep, "", 0};
}

cliOutcome showSystemLists(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    json lists, rows = json::array();
    bool inStep = true;
    if (!ready(session, &error)) return refusal(error);
    if (cliOutcome asked = debugJson(session, "system-lists", "", &lists); !asked.ok) return asked;
    if (!lists.is_array()) return refusal("The manager's answer is not understood");
    for (const json& list : lists) {
        const std::string name = jsonText(list, "list");
        if (!command.name.empty() && command.name != name) continue;
        comparison compared;
        const subject what{familyOf(KIND_SYSTEM), listNameMake(name)};
        if (cliOutcome asked = compareAll(session, what, &compared); !asked.ok) return asked;
        addCardRows(name, jsonNumber(list, "entries"), compared, &rows, &inStep);
    }
    if (rows.empty() && !command.name.empty()) return refusal(NO_SYSTEM_LIST);
    renderAnswer(*session, rows, pipe);
    return {inStep, "", 0};
}
