// Members, addresses, protocols and bindings come and go at random, agents and cards too, and what
// the cards hold is at any time what a model of the whole says.
#include <arpa/inet.h>

#include <chrono>
#include <cstring>
#include <deque>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <thread>

#include "include/agentState.h"
#include "include/cliMsg.h"
#include "include/ifmMsg.h"
#include "include/protMsg.h"
#include "include/service.h"
#include "tests/system/chassis.h"
#include "tests/system/placesModel.h"

namespace {

using nlohmann::json;

constexpr uint32_t CARDS = 3, PORTS = 4;
// Card 3 is of the type that does not know every entry of an address.
std::string chassisText() {
    std::string cards;
    for (uint32_t slot = 1; slot <= CARDS; slot++) {
        const std::string number = std::to_string(slot);
        std::string ports;
        for (uint32_t p = 0; p < PORTS; p++) {
            const std::string port = std::to_string(p);
            ports += (ports.empty() ? "" : ",") + (R"({"name":")" + number) + "/" + port +
                     R"(","userPort":)" + port + R"(,"port":)" + port + R"(,"pipe":)" +
                     std::to_string(p / 2) + "}";
        }
        cards += (cards.empty() ? "" : ",") + (R"({"slot":)" + number) + R"(,"address":"127.1.1.)" +
                 number + R"(","type":)" + (slot == 3 ? "1" : "2") +
                 R"(,"egress":true,"ipv6":true,"ipv6Egress":true,"ports":[)" + ports + "]}";
    }
    std::string tasks;
    for (uint32_t app : {APP_ACL, APP_RTM, APP_DSMGR, APP_IGMP, APP_PIM, APP_IFM, APP_EVH,
                         APP_MACMGR, APP_ACL_AGENT_CP})
        tasks += (tasks.empty() ? "" : ",") + (R"({"application":)" + std::to_string(app)) +
                 R"(,"instance":0,"address":"127.1.0.1"})";
    return R"({"chassisMode":1,"routeProcessorType":4,)"
           R"("routeProcessors":[{"address":"127.1.0.1","primary":true}],"tasks":[)" +
           tasks + R"(],"cards":[)" + cards +
           R"(],"lags":[{"id":1},{"id":2}],"vlans":[{"id":10},{"id":20},{"id":30},{"id":40}]})";
}

uint32_t fromEnvironment(const char* name, uint32_t otherwise) {
    const char* given = getenv(name);
    return given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 10)) : otherwise;
}

// --- what a card says that it holds --------------------------------------------------------------

struct cardReader {
    rawClient& client;
    const chassisDescription& chassis;
    uint32_t sequence = 0x50000000;

    // The answers of one kind, in as many pages as it takes. Nothing: no answer.
    std::optional<json> rows(int slot, agentStateReq request, const char* key) {
        json all = json::array();
        for (;;) {
            std::optional<json> answer = ask(slot, request);
            if (!answer || !answer->contains(key)) return std::nullopt;
            for (json& row : (*answer)[key]) all.push_back(std::move(row));
            if (!answer->contains("next")) return all;
            request.index = (*answer)["next"].get<uint32_t>();
        }
    }
    std::optional<json> ask(int slot, const agentStateReq& what) {
        std::vector<uint8_t> message(sizeof(agentStateReq));
        std::memcpy(message.data(), &what, sizeof what);
        client.fillHeader(message, MT_AGENT_STATE, ++sequence);
        auto* hdr = headerOf(message);
        hdr->source.card = CARD_ADDRESS + static_cast<uint32_t>(slot);
        hdr->source.svce =
            aclServicePort(APP_ACL_AGENT, static_cast<uint32_t>(slot), QUEUE_REQUEST);
        if (!client.send(message)) return std::nullopt;
        for (;;) {
            std::vector<uint8_t> answer = client.receive();
            if (answer.empty()) return std::nullopt;
            if (headerOf(answer)->sequence != sequence) continue;
            if (answer.size() < AGENT_STATE_TEXT_OFFSET) return std::nullopt;
            json parsed =
                json::parse(answer.begin() + AGENT_STATE_TEXT_OFFSET, answer.end(), nullptr, false);
            return parsed.is_object() ? std::optional(parsed) : std::nullopt;
        }
    }

    std::string name(uint32_t ifindex) const {
        for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
            if (ifindex == slot || ifindex == ifindexControlPort(slot)) return "card";
        const std::string known = chassisIfName(chassis, ifindex);
        return known.empty() ? chassisIndexText(ifindex) : known;
    }
    static std::string systemText(const json& e) {
        const std::string dst = e["dst"];
        if (dst.starts_with("ff02:")) return "to " + dst;
        std::string text = e["protocol"].dump() + " to " + dst;
        auto port = [&](const char* which, const char* op, size_t at) {
            if (e.contains(op) && e[op] == 1) text += which + e["ports"][at].dump();
        };
        port(" dst ", "dstOperator", 2);
        port(" src ", "srcOperator", 0);
        auto hex = [](const std::string& digits) {
            return std::to_string(std::stoul(digits, nullptr, 16));
        };
        if (e["protocol"] == 58) text += " type " + hex(e["icmp"].get<std::string>().substr(0, 2));
        if (e["protocol"] == 4 && e["protoMarker"] != 0) text += " literally";
        if (!e.contains("l2")) return text;
        // Behind two words, two pairs of addresses and eight bytes.
        const std::string vlan = hex(e["l2"].get<std::string>().substr(80, 8));
        return vlan != "0" ? text + " vlan " + vlan : text;
    }
    bool addList(int slot, const json& list, cardContents* out) {
        agentStateReq request{};
        request.what = AGENT_STATE_ENTRIES;
        request.name = listNameMake(list["name"].get<std::string>());
        request.ifindex = list["ifindex"].get<uint32_t>();
        request.direction = list["direction"].get<uint32_t>();
        request.kind = list["kindNumber"].get<uint32_t>();
        const std::optional<json> entries = rows(slot, request, "entries");
        if (!entries) return false;
        const bool v6 = request.kind == AGENT_LIST_SYSTEM6;
        const std::string place = name(request.ifindex);
        if (v6 || request.kind == AGENT_LIST_SYSTEM) {
            for (const json& e : *entries)
                out->insert((v6 ? "system6 " : "system ") + place + ": " + systemText(e));
            return true;
        }
        const std::string at =
            list["name"].get<std::string>() + (request.direction == 0 ? " in " : " out ") + place;
        out->insert(at);
        for (const json& e : *entries)
            out->insert(at + ": " + e["seq"].dump() + " " + e["src"].get<std::string>());
        return true;
    }

    // Nothing while the card is not in step, or changes between two questions.
    std::optional<cardContents> read(int slot) {
        cardContents out;
        agentStateReq request{};
        request.what = AGENT_STATE_SUMMARY;
        const std::optional<json> summary = ask(slot, request);
        if (!summary || (*summary)["state"] != "in step") return std::nullopt;
        request.what = AGENT_STATE_LISTS;
        const std::optional<json> lists = rows(slot, request, "lists");
        request.what = AGENT_STATE_TRAPS;
        const std::optional<json> traps = rows(slot, request, "traps");
        request.what = AGENT_STATE_MEMBERS;
        const std::optional<json> members = rows(slot, request, "members");
        if (!lists || !traps || !members) return std::nullopt;
        for (const json& list : *lists)
            if (!addList(slot, list, &out)) return std::nullopt;
        for (const json& t : *traps)
            // A protocol that traps nothing has the address zero.
            if (t["mac"] != "00:00:00:00:00:00")
                out.insert("trap " + name(t["ifindex"]) + " " + t["mac"].get<std::string>() +
                           " cpus " + t["cpus"].dump() + " lda " + t["lda"].dump() + " mode " +
                           t["mode"].dump() + " vlan " + t["vlan"].dump());
        for (const json& m : *members)
            out.insert("member " + name(m["port"]) + " vlan " + m["vlan"].dump() + " group " +
                       m["group"].dump());
        return out;
    }
};

// --- the chassis ---------------------------------------------------------------------------------

enum class agentIs { there, standing, gone };

struct placesFixture : chassisFixture {
    chassisDescription description{};
    placesModel model{description};
    rawClient client{*this};
    cardReader reader{client, description};
    std::vector<uint32_t> ports, members, places;  // ports; with LAGs; with VLANs
    std::vector<uint32_t> lags, vlans;
    std::map<int, agentIs> is;
    uint32_t seed = 0, sequence = 0;
    uint32_t session = 0x10000, number = 0, vrrpNumber = 0;  // of two reliable queues
    std::vector<uint8_t> events;  // records of an event message that is not sent yet
    uint32_t eventCount = 0;
    std::deque<std::string> told;
    std::mt19937 random;

    explicit placesFixture(uint32_t s) : seed(s), random(s) {
        write("chassis.json", chassisText());
        std::string error;
        EXPECT_TRUE(zekChassisLoad(dir + "/chassis.json", &description, &error)) << error;
        for (const chassisCard& card : description.cards)
            for (const chassisPort& port : card.ports) {
                uint32_t ifindex = 0;
                EXPECT_TRUE(chassisIfIndex(description, port.name, &ifindex));
                ports.push_back(ifindex);
            }
        for (uint32_t id : description.lags) lags.push_back(ifindexMake(IF_TYPE_LAG, id));
        for (uint32_t id : description.vlans) vlans.push_back(ifindexMake(IF_TYPE_VLAN, id));
        model.ports = {ports.begin(), ports.end()};
        members = ports;
        members.insert(members.end(), lags.begin(), lags.end());
        places = members;
        places.insert(places.end(), vlans.begin(), vlans.end());
        EXPECT_TRUE(startNeighbours());
        EXPECT_TRUE(startManager());
        for (uint32_t slot = 1; slot <= CARDS; slot++) start(static_cast<int>(slot));
    }
    void start(int slot) {
        EXPECT_TRUE(startAgent(slot));
        is[slot] = agentIs::there;
    }

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random()) % n; }
    template <class T>
    const T& anyOf(const std::vector<T>& all) {
        return all[below(static_cast<uint32_t>(all.size()))];
    }
    std::string name(uint32_t place) const { return model.name(place); }
    void note(const std::string& what) {
        told.push_back(what);
        if (told.size() > 25) told.pop_front();
    }

    // --- messages ---

    // Sends what the manager answers, and waits for that: everything before it has been handled.
    uint32_t ask(std::vector<uint8_t> message, uint32_t type) {
        flush();
        client.fillHeader(message, type, ++sequence);
        EXPECT_TRUE(client.send(message));
        for (;;) {
            const std::vector<uint8_t> answer = client.receive();
            if (answer.empty()) return ADD_FAILURE() << "no answer to " << type, 1;
            const auto* hdr = reinterpret_cast<const ipcHdr*>(answer.data());
            if (hdr->mtype == type && hdr->sequence == sequence)
                return answer.size() >= sizeof(cliHdr) && type == MT_CLI_COMMAND
                           ? reinterpret_cast<const cliHdr*>(answer.data())->result
                           : hdr->result;
        }
    }
    // A message of a reliable queue, which may come twice.
    void post(std::vector<uint8_t> message, uint32_t type, uint32_t ofSession, uint32_t* numbers) {
        client.fillHeader(message, type, ++sequence);
        headerOf(message)->session = ofSession;
        headerOf(message)->swpSeq = ++*numbers;
        for (uint32_t times = 1 + (below(8) == 0); times > 0; times--)
            EXPECT_TRUE(client.send(message));
    }
    void flush() {
        if (eventCount == 0) return;
        std::vector<uint8_t> message(sizeof(ifmEventMsg));
        reinterpret_cast<ifmEventMsg*>(message.data())->count = eventCount;
        message.insert(message.end(), events.begin(), events.end());
        events.clear();
        eventCount = 0;
        post(message, MT_IFM_EVT_NOTIF, session, &number);
    }
    template <class Record>
    void addRecord(uint16_t type, const Record& given, const std::vector<uint32_t>& more = {}) {
        Record record = given;
        record.hdr.type = type;
        record.hdr.length = static_cast<uint16_t>(sizeof record + 4 * more.size());
        const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
        events.insert(events.end(), bytes, bytes + sizeof record);
        for (be32 word; uint32_t value : more) {
            word = value;
            events.insert(events.end(), word.b, word.b + 4);
        }
        // Several go in one message now and then.
        if (++eventCount >= 8 || below(2) == 0) flush();
    }
    void event(uint16_t type, const std::vector<uint32_t>& words) {
        struct {
            ifmSvcHdr hdr;
        } front;
        addRecord(type, front, words);
    }
    void list(uint32_t type, uint32_t first, const std::vector<uint32_t>& all) {
        flush();
        std::vector<uint8_t> message(sizeof(ifmListMsg) + 4 * all.size());
        auto* m = reinterpret_cast<ifmListMsg*>(message.data());
        m->ifindex = first;
        m->count = static_cast<uint32_t>(all.size());
        auto* words = reinterpret_cast<be32*>(message.data() + sizeof *m);
        for (uint32_t value : all) *words++ = value;
        post(message, type, session, &number);
    }

    // --- what is told ---

    void joinVlan(uint32_t vlan, uint32_t member) {
        event(IFM_TYP_ADD_VLAN_PORT, {member, vlan});
        model.vlans[vlan].insert(member);
    }
    void leaveVlan(uint32_t vlan, uint32_t member) {
        event(IFM_TYP_DEL_VLAN_PORT, {member, vlan});
        model.vlans[vlan].erase(member);
    }
    void joinLag(uint32_t lag, uint32_t port) {
        event(IFM_SVC_ADD_LAG_PORT, {lag, port});
        if (model.lagOf(port) == 0) model.lags[lag].push_back(port);
    }
    void leaveLag(uint32_t lag, uint32_t port) {
        event(IFM_SVC_DEL_LAG_PORT, {lag, port});
        std::erase(model.lags[lag], port);
    }
    void tellAddress(uint32_t place, const std::string& address, bool add) {
        const bool v6 = address.find(':') != address.npos;
        uint8_t bytes[16] = {};
        inet_pton(v6 ? AF_INET6 : AF_INET, address.c_str(), bytes);
        if (v6) {
            ifmSvcIp6 record{};
            record.ifindex = place;
            std::memcpy(record.address, bytes, sizeof bytes);
            record.prefixLength = 64;
            const ifmSvcType gone = below(2) == 0 ? IFM_SVC_DEL_IP6 : IFM_SVC_DEL_IP6_UNLESS_KEPT;
            addRecord(add ? IFM_SVC_ADD_IP6 : gone, record);
        } else if (add) {
            ifmSvcAddIp record{};
            record.ifindex = place;
            std::memcpy(record.address.b, bytes, 4);
            record.mask = 0xFFFFFF00u;
            addRecord(IFM_SVC_ADD_IP, record);
        } else {
            ifmSvcDelIp record{};
            record.ifindex = place;
            std::memcpy(record.address.b, bytes, 4);
            addRecord(IFM_SVC_DEL_IP, record);
        }
    }
    void tellGroup(uint32_t place, uint32_t group, bool add) {
        const bool vlan = placesModel::isVlan(place);
        event(add ? (vlan ? IFM_SVC_ADD_VLAN_MGID : IFM_SVC_ADD_LAG_MGID)
                  : (vlan ? IFM_SVC_DEL_VLAN_MGID : IFM_SVC_DEL_LAG_MGID),
              {place, group, 0, 0});
    }
    static protRecord recordOf(const modelProtocol& p, uint32_t place, uint32_t mac) {
        protRecord record{};
        record.name = listNameMake(p.protocol == MODEL_V6_RECORD ? "v6 Global Acl" : "Global Acl");
        record.ifindex = place;
        record.id = p.id;
        record.lda = static_cast<uint8_t>(p.lda);
        record.protocol = static_cast<uint8_t>(p.protocol);
        record.port = p.port;
        record.option = p.option;
        const bool v6 = p.protocol == MODEL_V6_RECORD;
        inet_pton(v6 ? AF_INET6 : AF_INET, p.address.c_str(), record.address);
        std::memset(record.mask, 0xFF, v6 ? 16 : 4);
        if (mac == 0) return record;
        const uint32_t words[] = {0, p.id == 20480 ? 0x5e00u : 0x0c07u,
                                  (p.id == 20480 ? 0x100u : 0xac00u) + mac};
        std::copy(std::begin(words), std::end(words), record.vmac);
        return record;
    }
    void tellProtocol(const modelProtocol& p, uint32_t place, uint32_t mac, bool enable) {
        flush();
        if (below(4) == 0) {
            std::vector<uint8_t> message(sizeof(protEnableSwpMsg));
            reinterpret_cast<protEnableSwpMsg*>(message.data())->record = recordOf(p, place, mac);
            post(message, enable ? MT_PROT_VRRP_FIRST : MT_PROT_VRRP_LAST, session + 1,
                 &vrrpNumber);
        } else {
            std::vector<uint8_t> message(sizeof(protEnableMsg));
            reinterpret_cast<protEnableMsg*>(message.data())->record = recordOf(p, place, mac);
            EXPECT_EQ(ask(message, enable ? MT_PROT_FIRST : MT_PROT_LAST), 0u);
        }
    }
    uint32_t cli(uint32_t code) {
        std::vector<uint8_t> message(sizeof(cliHdr));
        reinterpret_cast<cliHdr*>(message.data())->code = code;
        return ask(message, MT_CLI_COMMAND);
    }
    // A protocol on an interface of the type that is ignored: an answer, and nothing else.
    void settle() {
        std::vector<uint8_t> message(sizeof(protEnableMsg));
        reinterpret_cast<protEnableMsg*>(message.data())->record.ifindex = ifindexMake(11, 1);
        EXPECT_EQ(ask(message, MT_PROT_LAST), 0u);
    }
    // To a manager that has started again: what its neighbours know.
    void tellAll() {
        session += 2;
        number = vrrpNumber = 0;
        for (const auto& [lag, all] : model.lags)
            for (uint32_t port : all) event(IFM_SVC_ADD_LAG_PORT, {lag, port});
        for (const auto& [vlan, all] : model.vlans)
            for (uint32_t member : all) event(IFM_TYP_ADD_VLAN_PORT, {member, vlan});
        for (const auto& [place, all] : model.addresses)
            for (const std::string& address : all) tellAddress(place, address, true);
        for (const auto& [place, group] : model.groupIds) tellGroup(place, group, true);
        for (const auto& [port, mode] : model.modes) event(IFM_SVC_PORT_MODE, {port, mode});
        for (const auto& [place, all] : model.protocols)
            for (const auto& [key, users] : all)
                for (uint32_t i = 0; i < users; i++)
                    tellProtocol(*std::ranges::find(modelProtocols, key.first, &modelProtocol::id),
                                 place, key.second, true);
        flush();
        post(std::vector<uint8_t>(sizeof(ifmEventMsg)), MT_IFM_EVT_NOTIF, session, &number);
    }

    // --- the comparison ---

    static std::string difference(const cardContents& a, const cardContents& b, const char* sign) {
        std::vector<std::string> lines;
        std::ranges::set_difference(a, b, std::back_inserter(lines));
        std::string text;
        for (size_t i = 0; i < std::min<size_t>(lines.size(), 20); i++)
            text += sign + lines[i] + "\n";
        return text;
    }
    // False when a card does not come to hold what it is to hold.
    bool expectCards(uint32_t step) {
        settle();
        for (const auto& [slot, state] : is) {
            if (state != agentIs::there) continue;
            const cardContents meant = model.expected(static_cast<uint32_t>(slot));
            std::optional<cardContents> held;
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while ((held = reader.read(slot)) != meant && std::chrono::steady_clock::now() < end)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            if (held == meant) continue;
            std::string last;
            for (const std::string& what : told) last += "  " + what + "\n";
            ADD_FAILURE() << "ACL_PLACE_SEED=" << seed << ", step " << step << ", card " << slot
                          << (held ? "" : " is not in step") << "\n"
                          << difference(meant, held.value_or(meant), "- ")
                          << difference(held.value_or(meant), meant, "+ ") << "after\n"
                          << last << client.agentSummary(slot);
            return false;
        }
        return true;
    }
};

// --- steps ---------------------------------------------------------------------------------------

typedef placesFixture fx;

void stepVlanMember(fx& t) {
    const uint32_t vlan = t.anyOf(t.vlans), member = t.anyOf(t.members);
    std::set<uint32_t>& in = t.model.vlans[vlan];
    const std::string both = t.name(member) + " " + t.name(vlan);
    switch (t.below(8)) {
        case 0:  // several at once
        {
            std::vector<uint32_t> words{vlan, 2, member, t.anyOf(t.members)};
            t.note("43 join " + both + " and " + t.name(words[3]));
            t.event(IFM_SVC_ADD_VLAN_PORTS, words);
            in.insert({words[2], words[3]});
            break;
        }
        case 1: {  // these, or everybody
            std::vector<uint32_t> gone{member, t.anyOf(t.members)};
            if (t.below(2) == 0) gone = {in.begin(), in.end()};
            t.note("10873 leave " + t.name(vlan) + ": " + std::to_string(gone.size()) + " with " +
                   t.name(member));
            t.list(MT_IFM_PORTS_LEAVE, vlan, gone);
            for (uint32_t who : gone) in.erase(who);
            break;
        }
        case 2: {  // the VLANs of a port are exactly these
            std::vector<uint32_t> these;
            for (uint32_t v : t.vlans) {
                if (t.below(2) == 0) these.push_back(v);
                t.model.vlans[v].erase(member);
            }
            for (uint32_t v : these) t.model.vlans[v].insert(member);
            t.note("10878 " + t.name(member) + " in " + std::to_string(these.size()));
            t.list(MT_IFM_PORTVL_EVT_NOTIF, member, these);
            break;
        }
        case 3:
        case 4:
            t.note("leave " + both);
            t.leaveVlan(vlan, member);
            break;
        default:
            t.note("join " + both);
            t.joinVlan(vlan, member);
    }
}

void stepLagMember(fx& t) {
    const uint32_t port = t.anyOf(t.ports), now = t.model.lagOf(port);
    if (now != 0 && t.below(3) != 0) {
        t.note("leave " + t.name(port) + " " + t.name(now));
        return t.leaveLag(now, port);
    }
    // Now and then one that is a member already.
    const uint32_t lag = now != 0 ? now : t.anyOf(t.lags);
    t.note("join " + t.name(port) + " " + t.name(lag));
    t.joinLag(lag, port);
}

void stepAddress(fx& t) {
    static const std::vector<std::string> pool = {"10.0.0.1", "10.0.0.2",    "10.0.0.3",
                                                  "10.0.0.4", "2001:db8::1", "2001:db8::2"};
    const uint32_t place = t.anyOf(t.places);
    const std::string& address = t.anyOf(pool);
    const bool add = t.below(5) < 3;
    t.note((add ? "address " : "no address ") + address + " " + t.name(place));
    t.tellAddress(place, address, add);
    if (add)
        t.model.addresses[place].insert(address);
    else
        t.model.addresses[place].erase(address);
}

void stepGroupOrMode(fx& t) {
    if (t.below(2) == 0) {
        const uint32_t port = t.anyOf(t.ports), mode = t.below(4);
        t.note("mode " + std::to_string(mode) + " " + t.name(port));
        t.event(IFM_SVC_PORT_MODE, {port, mode});
        t.model.modes[port] = mode;
        return;
    }
    const uint32_t place = t.anyOf(t.below(2) == 0 ? t.lags : t.vlans), group = 1 + t.below(40);
    const bool add = t.below(3) != 0;
    t.note((add ? "group " + std::to_string(group) : "no group") + " " + t.name(place));
    t.tellGroup(place, group, add);
    if (add)
        t.model.groupIds[place] = group;
    else
        t.model.groupIds.erase(place);
}

void stepProtocol(fx& t) {
    const modelProtocol& p = t.anyOf(modelProtocols);
    const uint32_t place = t.anyOf(t.places);
    const uint32_t mac = p.virtualMac && t.below(3) != 0 ? 1 + t.below(3) : 0;
    const bool enable = t.below(5) < 3;
    t.note((enable ? "enable " : "disable ") + std::to_string(p.id) + " mac " +
           std::to_string(mac) + " " + t.name(place));
    t.tellProtocol(p, place, mac, enable);
    auto& on = t.model.protocols[place];
    uint32_t& users = on[{p.id, mac}];
    if (enable)
        users = p.id == MODEL_RIP ? users + 1 : 1;
    else
        users -= users != 0 ? 1 : 0;
    if (users == 0) on.erase({p.id, mac});
}

void stepBinding(fx& t) {
    const placesModel::binding b{t.anyOf(t.places), t.below(3) == 0, t.below(2) == 0};
    const bool isBound = t.model.bound.contains(b);
    std::string list = isBound ? t.model.bound[b] : b.v6 ? "SIX" : t.below(2) == 0 ? "A" : "B";
    const bool refused = !isBound && t.model.lagOf(b.place) != 0;
    const std::string line = std::string(isBound ? " no " : " ") + (b.v6 ? "ipv6" : "ip") +
                             " access-group " + list + (b.out ? " out" : " in");
    t.note(t.name(b.place) + line);
    t.settle();
    const commandResult result =
        t.shell({"-f", "-"}, "interface " + t.name(b.place) + "\n" + line + "\n");
    EXPECT_EQ(result.status, refused ? 1 : 0) << t.name(b.place) << line << "\n" << result.err;
    if (isBound)
        t.model.bound.erase(b);
    else if (!refused)
        t.model.bound[b] = list;
}

void stepEntry(fx& t) {
    const std::string list = t.anyOf(std::vector<std::string>{"A", "B", "SIX"});
    const bool v6 = list == "SIX";
    const uint32_t number = 10 * (1 + t.below(25));
    const std::string host = (v6 ? "2001:db8:1::" : "10.1.0.") + std::to_string(number);
    const std::string rule = v6 ? " permit ipv6 " + host + "/128 any" : " permit host " + host;
    const bool there = t.model.lists[list].erase(number) != 0;
    if (!there) t.model.lists[list][number] = host;
    const std::string line =
        (there ? " no seq " : " seq ") + std::to_string(number) + (there ? "" : rule);
    t.note(list + line);
    t.load((v6 ? "ipv6 access-list SIX\n" : "ip access-list standard " + list + "\n") + line +
           "\n");
}

void stepAgent(fx& t) {
    const int slot = static_cast<int>(1 + t.below(CARDS));
    const std::string card = "card " + std::to_string(slot);
    agentIs& state = t.is[slot];
    if (state == agentIs::gone) {
        t.note(card + " starts");
        return t.start(slot);
    }
    if (state == agentIs::standing) {
        t.note(card + " goes on");
        t.agents[slot].go();
        state = agentIs::there;
        return;
    }
    switch (t.below(3)) {
        case 0:
            t.note(card + " ends");
            t.agents[slot].stop(SIGKILL);
            state = agentIs::gone;
            break;
        case 1:
            t.note(card + " stands");
            t.agents[slot].stand();
            state = agentIs::standing;
            break;
        default:
            t.note(card + " down");
            t.settle();
            t.show("chassis " + card + " down");
    }
}

void stepGone(fx& t) {
    const uint32_t place = t.anyOf(t.places);
    t.note("gone " + t.name(place));
    t.event(IFM_SVC_DEL_IF, {place});
    t.model.forget(place);
}
void stepDhcp(fx& t) {
    t.model.dhcp = !t.model.dhcp;
    t.note(t.model.dhcp ? "dhcp" : "no dhcp");
    EXPECT_EQ(t.cli(t.model.dhcp ? CLI_DHCP_TRAP : CLI_DHCP_NO_TRAP), 0u);
}
void stepManager(fx& t) {
    t.note("the manager starts again");
    t.settle();
    EXPECT_TRUE(t.killAndRestart());
    t.tellAll();
}

constexpr struct {
    uint32_t weight;
    void (*run)(fx& t);
} steps[] = {{24, stepVlanMember}, {12, stepLagMember}, {18, stepAddress}, {8, stepGroupOrMode},
             {20, stepProtocol},   {10, stepBinding},   {5, stepEntry},    {6, stepAgent},
             {3, stepGone},        {1, stepDhcp},       {1, stepManager}};

void anyStep(fx& t) {
    uint32_t all = 0;
    for (const auto& step : steps) all += step.weight;
    uint32_t chosen = t.below(all);
    for (const auto& step : steps) {
        if (chosen < step.weight) return step.run(t);
        chosen -= step.weight;
    }
}

void makeLists(fx& t) {
    t.load(
        "ip access-list standard A\n seq 5 permit host 10.1.0.5\nip access-list standard B\n"
        " seq 5 permit host 10.1.0.6\nipv6 access-list SIX\n seq 5 permit ipv6 2001:db8:1::5/128 "
        "any\n");
    t.model.lists = {
        {"A", {{5, "10.1.0.5"}}}, {"B", {{5, "10.1.0.6"}}}, {"SIX", {{5, "2001:db8:1::5"}}}};
}

}  // namespace

// ACL_PLACE_STEPS of the environment says how many steps; ACL_PLACE_SEED which ones.
TEST(Places, CardsHoldWhatFollowsFromEverythingThatWasTold) {
    const uint32_t count = fromEnvironment("ACL_PLACE_STEPS", 200);
    placesFixture chassis(fromEnvironment("ACL_PLACE_SEED", 1));
    makeLists(chassis);
    ASSERT_TRUE(chassis.expectCards(0));
    for (uint32_t step = 1; step <= count && !testing::Test::HasFailure(); step++) {
        anyStep(chassis);
        if (step % 5 == 0 && !chassis.expectCards(step)) return;
    }
    for (auto& [slot, state] : chassis.is) {
        if (state == agentIs::standing) chassis.agents[slot].go();
        if (state == agentIs::gone) chassis.start(slot);
        state = agentIs::there;
    }
    chassis.expectCards(count);
}

TEST(Places, ALagOverThreeCardsStaysInStep) {
    placesFixture chassis(1);
    EXPECT_TRUE(chassis.startAgent(AGENT_CP));  // "installed" asks all agents
    makeLists(chassis);
    const uint32_t lag = chassis.lags[0];
    auto expectInStep = [&](const char* what) {
        EXPECT_TRUE(chassis.expectCards(0)) << what;
        // The operator's view of the same.
        EXPECT_TRUE(waitUntil([&] {
            return chassis.shell({"-c", "show ip access-lists A installed"}).status == 0;
        })) << what
            << chassis.shell({"-c", "show ip access-lists A installed"}).out;
    };
    chassis.load("interface port-channel 1\n ip access-group A in\n");
    chassis.model.bound[{lag, false, false}] = "A";
    for (uint32_t port : {0u, PORTS, 2 * PORTS, 1u}) {
        chassis.joinLag(lag, chassis.ports[port]);
        expectInStep("join");
    }
    chassis.joinVlan(chassis.vlans[0], lag);
    chassis.tellAddress(lag, "10.0.0.1", true);
    chassis.tellAddress(chassis.vlans[0], "10.0.0.2", true);
    chassis.model.addresses = {{lag, {"10.0.0.1"}}, {chassis.vlans[0], {"10.0.0.2"}}};
    expectInStep("addresses");
    for (int slot = 1; slot <= static_cast<int>(CARDS); slot++) {
        chassis.settle();
        chassis.show("chassis card " + std::to_string(slot) + " down");
        expectInStep("a card down and up");
        chassis.agents[slot].stop(SIGKILL);
        chassis.is[slot] = agentIs::gone;
        chassis.leaveLag(lag, chassis.ports[(static_cast<uint32_t>(slot) - 1) * PORTS]);
        EXPECT_TRUE(chassis.expectCards(0));
        chassis.start(slot);
        expectInStep("left while its card was down");
    }
}
