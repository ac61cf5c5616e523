// Reads chassis.json, and answers from it.
//
// The text goes through the JSON library's event parser into a small tree that knows the line of
// every value, because an operator who mistypes a key wants to know where.
#include "platform/api/zekChassis.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>

#include "include/chassisControl.h"
#include "include/service.h"

namespace {

// Counts the lines that the parser has read.
struct lineIterator {
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;
    const char* at;
    uint32_t* line;
    const char& operator*() const { return *at; }
    lineIterator& operator++() {
        if (*at == '\n') ++*line;
        ++at;
        return *this;
    }
    bool operator==(const lineIterator& o) const { return at == o.at; }
    bool operator!=(const lineIterator& o) const { return at != o.at; }
};

struct value {
    enum { nothing, flag, number, text, list, object } kind = nothing;
    uint32_t line = 0;
    int64_t num = 0;  // also the flag
    std::string str;
    std::vector<value> items;
    std::vector<std::string> keys;  // of an object's items
};
constexpr const char* kindNames[] = {"nothing", "true or false", "a number",
                                     "a text",  "a list",        "an object"};

// Builds the tree.
struct treeBuilder {
    typedef nlohmann::json json;
    const uint32_t* line;
    value root;
    std::vector<value> open;
    std::string error;
    uint32_t errorLine = 0;
    uint32_t keyLine = 0;

    // A number is known to have ended only when the character behind it has been read, and that may
    // be the line's end: a member's line is its key's.
    bool put(value v) {
        if (open.empty()) {
            root = std::move(v);
            return true;
        }
        value& parent = open.back();
        if (parent.kind == value::object) v.line = std::min(v.line, keyLine);
        parent.items.push_back(std::move(v));
        return true;
    }
    value make(decltype(value::kind) kind, int64_t num = 0, std::string str = {}) const {
        value v;
        v.kind = kind;
        v.line = *line;
        v.num = num;
        v.str = std::move(str);
        return v;
    }
    bool begin(decltype(value::kind) kind) {
        open.push_back(make(kind));
        return open.size() < 16 ? true : fail(*line, "nested too deeply");
    }
    bool end() {
        value v = std::move(open.back());
        open.pop_back();
        keyLine = v.line;
        return put(std::move(v));
    }
    bool fail(uint32_t at, std::string what) {
        errorLine = at;
        error = std::move(what);
        return false;
    }

    bool null() { return put(make(value::nothing)); }
    bool boolean(bool b) { return put(make(value::flag, b)); }
    bool number_integer(json::number_integer_t n) { return put(make(value::number, n)); }
    bool number_unsigned(json::number_unsigned_t n) {
        return put(make(value::number, n > INT64_MAX ? INT64_MAX : static_cast<int64_t>(n)));
    }
    bool number_float(json::number_float_t, const std::string&) {
        return put(make(value::nothing));
    }
    bool string(std::string& s) { return put(make(value::text, 0, std::move(s))); }
    bool binary(json::binary_t&) { return put(make(value::nothing)); }
    bool start_object(size_t) { return begin(value::object); }
    bool start_array(size_t) { return begin(value::list); }
    bool end_object() { return end(); }
    bool end_array() { return end(); }
    bool key(std::string& k) {
        keyLine = *line;
        auto& keys = open.back().keys;
        if (std::ranges::find(keys, k) != keys.end())
            return fail(keyLine, "\"" + k + "\" is given twice");
        keys.push_back(k);
        return true;
    }
    bool parse_error(size_t, const std::string& read, const nlohmann::detail::exception&) {
        if (read.empty()) return fail(*line, "the text ends too early");
        // What the parser has read last begins somewhere before the token that it did not like.
        size_t from = read.find_last_of(" \t\r\n", read.size() - 1);
        return fail(*line, "not JSON here: \"" + read.substr(from + 1) + "\"");
    }
};

// Says what is wrong with a description: the first complaint is the one that is kept.
struct complaint {
    uint32_t line = 0;
    std::string what;
    bool operator()(uint32_t at, std::string text) {
        if (what.empty()) {
            line = at;
            what = std::move(text);
        }
        return false;
    }
};

struct field {
    const char* key;
    bool required;
    std::function<bool(const value&)> read;
};

bool readObject(const value& v, const char* what, complaint& wrong,
                const std::vector<field>& fields) {
    if (v.kind != value::object) return wrong(v.line, std::string(what) + " must be an object");
    for (size_t i = 0; i < v.items.size(); i++) {
        auto f = std::ranges::find_if(fields, [&](const field& x) { return v.keys[i] == x.key; });
        if (f == fields.end())
            return wrong(v.items[i].line, std::string(what) + " has no \"" + v.keys[i] + "\"");
        if (!f->read(v.items[i])) return false;
    }
    for (const field& f : fields)
        if (f.required && std::ranges::find(v.keys, f.key) == v.keys.end())
            return wrong(v.line, std::string(what) + " needs \"" + f.key + "\"");
    return true;
}

// Readers of one member each, for the tables below.
struct readers {
    complaint& wrong;

    bool isA(const value& v, const char* key, decltype(value::kind) kind) const {
        return v.kind == kind ||
               wrong(v.line, std::string("\"") + key + "\" must be " + kindNames[kind]);
    }
    field number(const char* key, uint32_t* out, uint32_t from, uint32_t to,
                 bool required = true) const {
        return {key, required, [=, this](const value& v) {
                    if (!isA(v, key, value::number)) return false;
                    if (v.num < from || v.num > to)
                        return wrong(v.line, std::string("\"") + key + "\" must be from " +
                                                 std::to_string(from) + " to " +
                                                 std::to_string(to));
                    *out = static_cast<uint32_t>(v.num);
                    return true;
                }};
    }
    field flag(const char* key, bool* out) const {
        return {key, false, [=, this](const value& v) {
                    *out = v.num != 0;
                    return isA(v, key, value::flag);
                }};
    }
    field address(const char* key, uint32_t* out) const {
        return {key, true, [=, this](const value& v) {
                    if (!isA(v, key, value::text)) return false;
                    if (!addressParse(v.str, out) || !addressIsKnown(*out))
                        return wrong(v.line, "\"" + v.str + "\" is not an address of a card");
                    return true;
                }};
    }
    field name(const char* key, std::string* out) const {
        return {key, true, [=, this](const value& v) {
                    if (!isA(v, key, value::text)) return false;
                    bool plain =
                        !v.str.empty() && v.str.size() <= 32 &&
                        std::ranges::all_of(v.str, [](char c) { return c > ' ' && c < 127; });
                    if (!plain) return wrong(v.line, "\"" + v.str + "\" is not a name");
                    *out = v.str;
                    return true;
                }};
    }
    // A list of records; one(v) reads and keeps one.
    field list(const char* key, bool required, std::function<bool(const value&)> one) const {
        return {key, required, [=, this](const value& v) {
                    return isA(v, key, value::list) && std::ranges::all_of(v.items, one);
                }};
    }
};

struct descriptionReader {
    chassisDescription* out;
    complaint wrong{};
    readers r{wrong};
    std::set<std::string> portNames{};

    bool twice(const value& v, const std::string& what) {
        return wrong(v.line, what + " is described twice");
    }

    bool routeProcessor(const value& v) {
        chassisRp rp{};
        if (!readObject(v, "a route processor", wrong,
                        {r.address("address", &rp.address), r.flag("primary", &rp.primary)}))
            return false;
        for (const chassisRp& other : out->routeProcessors)
            if (other.address == rp.address)
                return twice(v, "route processor " + addressText(rp.address));
        if (out->routeProcessors.size() == 2)
            return wrong(v.line, "there are at most two route processors");
        out->routeProcessors.push_back(rp);
        return true;
    }
    bool task(const value& v) {
        chassisTask t{};
        if (!readObject(v, "a task", wrong,
                        {r.number("application", &t.application, 1, 511),
                         r.number("instance", &t.instance, 0, 31, false),
                         r.address("address", &t.address)}))
            return false;
        for (const chassisTask& other : out->tasks)
            if (other.application == t.application && other.instance == t.instance)
                return twice(v, "task " + std::to_string(t.application) + " instance " +
                                    std::to_string(t.instance));
        out->tasks.push_back(t);
        return true;
    }
    bool port(const value& v, chassisCard* card) {
        chassisPort p{};
        if (!readObject(v, "a port", wrong,
                        {r.name("name", &p.name), r.number("userPort", &p.userPort, 0, 126),
                         r.number("port", &p.port, 0, 126), r.number("pipe", &p.pipe, 0, 31)}))
            return false;
        if (!portNames.insert(p.name).second) return twice(v, "port " + p.name);
        for (const chassisPort& other : card->ports)
            if (other.userPort == p.userPort || other.port == p.port)
                return twice(v, "the userPort or port of " + p.name);
        card->ports.push_back(p);
        return true;
    }
    bool card(const value& v) {
        chassisCard c{};
        auto onePort = [&](const value& p) { return port(p, &c); };
        if (!readObject(v, "a card", wrong,
                        {r.number("slot", &c.slot, 0, SLOT_COUNT - 1),
                         r.address("address", &c.address), r.number("type", &c.type, 0, 255),
                         r.flag("egress", &c.egress), r.flag("ipv6", &c.ipv6),
                         r.flag("ipv6Egress", &c.ipv6Egress), r.list("ports", false, onePort)}))
            return false;
        for (const chassisCard& other : out->cards)
            if (other.slot == c.slot) return twice(v, "slot " + std::to_string(c.slot));
        out->cards.push_back(std::move(c));
        return true;
    }
    bool id(const value& v, const char* what, std::vector<uint32_t>* ids) {
        uint32_t n = 0;
        if (!readObject(v, what, wrong, {r.number("id", &n, 1, 4094)})) return false;
        if (std::ranges::find(*ids, n) != ids->end())
            return twice(v, std::string(what) + " " + std::to_string(n));
        ids->push_back(n);
        return true;
    }
    bool all(const value& v) {
        using std::placeholders::_1;
        auto member = [this](bool (descriptionReader::*f)(const value&)) {
            return std::function<bool(const value&)>(std::bind(f, this, _1));
        };
        auto lag = [this](const value& x) { return id(x, "a lag", &out->lags); };
        auto vlan = [this](const value& x) { return id(x, "a vlan", &out->vlans); };
        if (!readObject(
                v, "a chassis", wrong,
                {r.number("chassisMode", &out->chassisMode, 0, 255),
                 r.number("routeProcessorType", &out->routeProcessorType, 0, 255),
                 r.list("routeProcessors", true, member(&descriptionReader::routeProcessor)),
                 r.list("tasks", false, member(&descriptionReader::task)),
                 r.list("cards", false, member(&descriptionReader::card)),
                 r.list("lags", false, lag), r.list("vlans", false, vlan)}))
            return false;
        if (std::ranges::count_if(out->routeProcessors, &chassisRp::primary) != 1)
            return wrong(v.line, "exactly one route processor must be primary");
        return true;
    }
};

bool readText(const std::string& file, std::string* text) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return false;
    text->assign(std::istreambuf_iterator<char>(in), {});
    return !in.bad();
}

bool load(const std::string& file, chassisDescription* chassis, std::string* error) {
    std::string text;
    if (!readText(file, &text)) {
        *error = file + ": cannot be read";
        return false;
    }
    uint32_t line = 1;
    treeBuilder tree{&line, {}, {}, {}, 0, 0};
    *chassis = {};
    descriptionReader reader{.out = chassis};
    bool parsed = nlohmann::json::sax_parse(lineIterator{text.data(), &line},
                                            lineIterator{text.data() + text.size(), &line}, &tree);
    if (!parsed)
        reader.wrong(tree.errorLine, tree.error);
    else if (reader.all(tree.root))
        return true;
    *error = file + ":" + std::to_string(reader.wrong.line) + ": " + reader.wrong.what;
    return false;
}

const chassisCard* cardOf(const chassisDescription& chassis, int slot) {
    for (const chassisCard& card : chassis.cards)
        if (static_cast<int>(card.slot) == slot) return &card;
    return nullptr;
}

uint32_t portIfIndex(const chassisCard& card, const chassisPort& port) {
    return (card.slot + 1) << 25 | (port.userPort + 1) << 18 |
           ifindexMake(IF_TYPE_PORT, port.userPort + 1);
}

// "vlan 10": the word, one blank, and one of the ids.
constexpr struct {
    const char* word;
    ifType type;
    std::vector<uint32_t> chassisDescription::*ids;
} numbered[] = {
    {"port-channel ", IF_TYPE_LAG, &chassisDescription::lags},
    {"vlan ", IF_TYPE_VLAN, &chassisDescription::vlans},
};
constexpr const char* CONTROL_PLANE = "control-plane";

}  // namespace

bool zekChassisLoad(const std::string& file, chassisDescription* chassis, std::string* error) {
    try {
        return load(file, chassis, error);
    } catch (const std::exception& e) {
        *error = file + ":1: " + e.what();
        return false;
    }
}

std::string chassisIfName(const chassisDescription& chassis, uint32_t ifindex) {
    if (ifindex == IFINDEX_CP_BIND) return CONTROL_PLANE;
    if (ifindex < SLOT_COUNT) return "";
    for (const auto& row : numbered) {
        if (ifindexType(ifindex) != row.type) continue;  // there are thousands of the others
        for (uint32_t id : chassis.*row.ids)
            if (ifindex == ifindexMake(row.type, id)) return row.word + std::to_string(id);
    }
    const chassisCard* card = cardOf(chassis, ifindexSlot(ifindex));
    if (card == nullptr || ifindexType(ifindex) != IF_TYPE_PORT) return "";
    for (const chassisPort& p : card->ports) {
        uint32_t number = ifindexHasPortId(ifindex) ? p.port : p.userPort;
        if (static_cast<int>(number) == ifindexUserPort(ifindex)) return p.name;
    }
    return "";
}

bool chassisIfIndex(const chassisDescription& chassis, std::string_view name, uint32_t* ifindex) {
    if (name == CONTROL_PLANE) return *ifindex = IFINDEX_CP_BIND, true;
    for (const chassisCard& card : chassis.cards)
        for (const chassisPort& p : card.ports)
            if (p.name == name) return *ifindex = portIfIndex(card, p), true;
    for (const auto& row : numbered)
        for (uint32_t id : chassis.*row.ids)
            if (name == row.word + std::to_string(id))
                return *ifindex = ifindexMake(row.type, id), true;
    return chassisIndexParse(name, ifindex);
}

std::string chassisIndexText(uint32_t ifindex) {
    char text[16];
    snprintf(text, sizeof text, "0x%08x", ifindex);
    return text;
}
bool chassisIndexParse(std::string_view text, uint32_t* ifindex) {
    const char* end = text.data() + text.size();
    if (text.size() != 10 || !text.starts_with("0x")) return false;
    return std::from_chars(text.data() + 2, end, *ifindex, 16).ptr == end;
}

uint32_t chassisAddress(const chassisDescription& chassis, uint32_t app, uint32_t instance) {
    if (app == APP_ACL_AGENT || app == APP_MAC_AGENT) {
        const chassisCard* card =
            instance < SLOT_COUNT ? cardOf(chassis, static_cast<int>(instance)) : nullptr;
        return card != nullptr ? card->address : ADDRESS_UNKNOWN;
    }
    for (const chassisTask& t : chassis.tasks)
        if (t.application == app && t.instance == instance) return t.address;
    return ADDRESS_UNKNOWN;
}

uint32_t chassisPrimaryRp(const chassisDescription& chassis, const std::string& runDir) {
    uint32_t number;
    std::ifstream in(runDir + "/" + CHASSIS_PRIMARY_FILE);
    if (in >> number && number < chassis.routeProcessors.size()) return number;
    auto described = std::ranges::find(chassis.routeProcessors, true, &chassisRp::primary);
    return static_cast<uint32_t>(described - chassis.routeProcessors.begin());
}

std::string addressText(uint32_t address) {
    char text[16];
    snprintf(text, sizeof(text), "%u.%u.%u.%u", address >> 24, address >> 16 & 255,
             address >> 8 & 255, address & 255);
    return text;
}

bool addressParse(std::string_view text, uint32_t* address) {
    uint32_t result = 0;
    for (int i = 0; i < 4; i++) {
        size_t digits = 0;
        uint32_t byte = 0;
        while (digits < text.size() && digits < 4 && text[digits] >= '0' && text[digits] <= '9')
            byte = byte * 10 + static_cast<uint32_t>(text[digits++] - '0');
        if (digits == 0 || digits > 3 || byte > 255) return false;
        text.remove_prefix(digits);
        if (i < 3) {
            if (text.empty() || text[0] != '.') return false;
            text.remove_prefix(1);
        }
        result = result << 8 | byte;
    }
    if (!text.empty()) return false;
    *address = result;
    return true;
}
