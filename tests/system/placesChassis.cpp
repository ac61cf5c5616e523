#include "tests/system/placesChassis.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace {

// Card 3 is of the type that does not know every entry of an address.
std::string chassisText(uint32_t mode) {
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
    return R"({"chassisMode":)" + std::to_string(mode) +
           R"(,"routeProcessorType":4,)"
           R"("routeProcessors":[{"address":"127.1.0.1","primary":true}],"tasks":[)" +
           tasks + R"(],"cards":[)" + cards +
           R"(],"lags":[{"id":1},{"id":2}],"vlans":[{"id":10},{"id":20},{"id":30},{"id":40}]})";
}

std::string systemText(const json& e) {
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

}  // namespace

uint32_t fromEnvironment(const char* name, uint32_t otherwise) {
    const char* given = getenv(name);
    return given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 10)) : otherwise;
}

// --- what a card says that it holds --------------------------------------------------------------

std::optional<json> cardReader::ask(int slot, const agentStateReq& what) {
    std::vector<uint8_t> message(sizeof(agentStateReq));
    std::memcpy(message.data(), &what, sizeof what);
    client.fillHeader(message, MT_AGENT_STATE, ++sequence);
    auto* hdr = headerOf(message);
    hdr->source.card = CARD_ADDRESS + static_cast<uint32_t>(slot);
    hdr->source.svce = aclServicePort(APP_ACL_AGENT, static_cast<uint32_t>(slot), QUEUE_REQUEST);
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

std::optional<json> cardReader::rows(int slot, agentStateReq request, const char* key) {
    json all = json::array();
    for (;;) {
        std::optional<json> answer = ask(slot, request);
        if (!answer || !answer->contains(key)) return std::nullopt;
        for (json& row : (*answer)[key]) all.push_back(std::move(row));
        if (!answer->contains("next")) return all;
        request.index = (*answer)["next"].get<uint32_t>();
    }
}

std::optional<json> cardReader::entries(int slot, const json& list) {
    agentStateReq request{};
    request.what = AGENT_STATE_ENTRIES;
    request.name = listNameMake(list["name"].get<std::string>());
    request.ifindex = list["ifindex"].get<uint32_t>();
    request.direction = list["direction"].get<uint32_t>();
    request.kind = list["kindNumber"].get<uint32_t>();
    request.group = list["group"].get<uint32_t>();
    return rows(slot, request, "entries");
}

std::string cardReader::name(uint32_t ifindex) const {
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (ifindex == slot || ifindex == ifindexControlPort(slot)) return "card";
    const std::string known = chassisIfName(chassis, ifindex);
    return known.empty() ? chassisIndexText(ifindex) : known;
}

bool cardReader::addList(int slot, const json& list, bool raw, cardContents* out) {
    const std::optional<json> all = entries(slot, list);
    if (!all) return false;
    const auto kind = list["kindNumber"].get<uint32_t>();
    const std::string place = name(list["ifindex"]);
    const bool system6 = kind == AGENT_LIST_SYSTEM6, system = system6 || kind == AGENT_LIST_SYSTEM;
    const std::string at =
        list["name"].get<std::string>() + (list["direction"] == 0 ? " in " : " out ") + place;
    if (raw) {
        json front = list;
        front.erase("count");
        // One that is not defined may be there or not, and so may a system list without entries.
        if (list["count"] != 0 || (!system && list["listKind"] != 0)) out->insert(front.dump());
    } else if (!system) {
        out->insert(at);
    }
    for (json e : *all) {
        if (raw) {
            // What is known by its content has whatever number the card has given it.
            for (const char* key : {"packets", e.contains("content") ? "hash" : "", "seq"})
                if (e.contains("content") || key != std::string("seq")) e.erase(key);
            out->insert(at + ": " + e.dump());
        } else if (system) {
            out->insert((system6 ? "system6 " : "system ") + place + ": " + systemText(e));
        } else {
            out->insert(at + ": " + e["seq"].dump() + " " + e["src"].get<std::string>());
        }
    }
    return true;
}

std::optional<cardContents> cardReader::read(int slot, bool raw) {
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
        if (!addList(slot, list, raw, &out)) return std::nullopt;
    for (const json& t : *traps)
        if (raw) out.insert("trap " + t.dump());
        // A protocol that traps nothing may have the address zero.
        else if (t["mac"] != "00:00:00:00:00:00")
            out.insert("trap " + name(t["ifindex"]) + " " + t["mac"].get<std::string>() + " cpus " +
                       t["cpus"].dump() + " lda " + t["lda"].dump() + " mode " + t["mode"].dump() +
                       " vlan " + t["vlan"].dump());
    for (const json& m : *members)
        out.insert("member " + name(m["port"]) + " vlan " + m["vlan"].dump() + " group " +
                   m["group"].dump());
    return out;
}

// --- the chassis ---------------------------------------------------------------------------------

placesChassis::placesChassis(uint32_t s, uint32_t chassisMode) : seed(s), random(s) {
    write("chassis.json", chassisText(chassisMode));
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
    members = ports;
    members.insert(members.end(), lags.begin(), lags.end());
    places = members;
    places.insert(places.end(), vlans.begin(), vlans.end());
    EXPECT_TRUE(startNeighbours());
    EXPECT_TRUE(startManager());
}

uint32_t placesChassis::ask(std::vector<uint8_t> message, uint32_t type) {
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

uint32_t placesChassis::cli(uint32_t code) {
    std::vector<uint8_t> message(sizeof(cliHdr));
    reinterpret_cast<cliHdr*>(message.data())->code = code;
    return ask(message, MT_CLI_COMMAND);
}
// A protocol on an interface of the type that is ignored: an answer, and nothing else.
void placesChassis::settle() {
    std::vector<uint8_t> message(sizeof(protEnableMsg));
    reinterpret_cast<protEnableMsg*>(message.data())->record.ifindex = ifindexMake(11, 1);
    EXPECT_EQ(ask(message, MT_PROT_LAST), 0u);
}
void placesChassis::post(std::vector<uint8_t> message, uint32_t type, uint32_t ofSession,
                         uint32_t* numbers) {
    client.fillHeader(message, type, ++sequence);
    headerOf(message)->session = ofSession;
    headerOf(message)->swpSeq = ++*numbers;
    for (uint32_t times = 1 + (below(8) == 0); times > 0; times--)
        EXPECT_TRUE(client.send(message));
}

void placesChassis::flush() {
    if (eventCount == 0) return;
    std::vector<uint8_t> message(sizeof(ifmEventMsg));
    reinterpret_cast<ifmEventMsg*>(message.data())->count = eventCount;
    message.insert(message.end(), events.begin(), events.end());
    events.clear();
    eventCount = 0;
    post(message, MT_IFM_EVT_NOTIF, session, &number);
}
void placesChassis::addRecord(uint16_t type, ifmSvcHdr* record, size_t size) {
    record->type = type;
    record->length = static_cast<uint16_t>(size);
    const auto* bytes = reinterpret_cast<const uint8_t*>(record);
    events.insert(events.end(), bytes, bytes + size);
    if (++eventCount >= 8 || below(2) == 0) flush();
}
void placesChassis::event(uint16_t type, const std::vector<uint32_t>& words) {
    std::vector<uint8_t> record(sizeof(ifmSvcHdr) + 4 * words.size());
    auto* word = reinterpret_cast<be32*>(record.data() + sizeof(ifmSvcHdr));
    for (uint32_t value : words) *word++ = value;
    addRecord(type, reinterpret_cast<ifmSvcHdr*>(record.data()), record.size());
}
void placesChassis::list(uint32_t type, uint32_t first, const std::vector<uint32_t>& all) {
    flush();
    std::vector<uint8_t> message(sizeof(ifmListMsg) + 4 * all.size());
    auto* m = reinterpret_cast<ifmListMsg*>(message.data());
    m->ifindex = first;
    m->count = static_cast<uint32_t>(all.size());
    auto* words = reinterpret_cast<be32*>(message.data() + sizeof *m);
    for (uint32_t value : all) *words++ = value;
    post(message, type, session, &number);
}
void placesChassis::tellAddress(uint32_t place, const std::string& address, bool add) {
    const bool v6 = address.find(':') != address.npos;
    uint8_t bytes[16] = {};
    inet_pton(v6 ? AF_INET6 : AF_INET, address.c_str(), bytes);
    if (v6) {
        ifmSvcIp6 record{};
        record.ifindex = place;
        std::memcpy(record.address, bytes, sizeof bytes);
        record.prefixLength = 64;
        const ifmSvcType gone = below(2) == 0 ? IFM_SVC_DEL_IP6 : IFM_SVC_DEL_IP6_UNLESS_KEPT;
        addRecord(add ? IFM_SVC_ADD_IP6 : gone, &record.hdr, sizeof record);
    } else if (add) {
        ifmSvcAddIp record{};
        record.ifindex = place;
        std::memcpy(record.address.b, bytes, 4);
        record.mask = 0xFFFFFF00u;
        addRecord(IFM_SVC_ADD_IP, &record.hdr, sizeof record);
    } else {
        ifmSvcDelIp record{};
        record.ifindex = place;
        std::memcpy(record.address.b, bytes, 4);
        addRecord(IFM_SVC_DEL_IP, &record.hdr, sizeof record);
    }
}
void placesChassis::tellGroup(uint32_t place, uint32_t group, bool add) {
    const bool vlan = ifindexType(place) == IF_TYPE_VLAN;
    event(add ? (vlan ? IFM_SVC_ADD_VLAN_MGID : IFM_SVC_ADD_LAG_MGID)
              : (vlan ? IFM_SVC_DEL_VLAN_MGID : IFM_SVC_DEL_LAG_MGID),
          {place, group, 0, 0});
}
void placesChassis::tellProtocol(const protRecord& record, bool enable) {
    flush();
    if (below(4) == 0) {
        std::vector<uint8_t> message(sizeof(protEnableSwpMsg));
        reinterpret_cast<protEnableSwpMsg*>(message.data())->record = record;
        post(message, enable ? MT_PROT_VRRP_FIRST : MT_PROT_VRRP_LAST, session + 1, &vrrpNumber);
    } else {
        std::vector<uint8_t> message(sizeof(protEnableMsg));
        reinterpret_cast<protEnableMsg*>(message.data())->record = record;
        EXPECT_EQ(ask(message, enable ? MT_PROT_FIRST : MT_PROT_LAST), 0u);
    }
}
