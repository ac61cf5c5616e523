// What an agent says of itself and of what it has installed, as JSON.
#include <algorithm>

#include "chassis/agent/agent.h"
#include "include/ipText.h"
#include "include/jsonText.h"

namespace {

std::string array(const std::string& items) {
    return "[" + items + "]";
}
void append(std::string* items, const std::string& item) {
    if (!items->empty()) items->push_back(',');
    *items += item;
}
std::string dotted(uint32_t address) {
    std::string out;
    textDotted(out, address);
    return out;
}

jsonObject refusedText(const agentCounts& counts) {
    jsonObject refused;
    for (size_t i = 0; i < AGENT_REFUSALS; i++)
        refused.number(agentRefusalNames[i], counts.refused[i]);
    return refused;
}
jsonObject macSummary(const macTables& m) {
    return jsonObject{}
        .number("exchanges", m.exchanges)
        .number("messages", m.messages)
        .number("applied", m.applied)
        .number("absent", m.absent)
        .number("notKept", m.notKept)
        .number("traps", m.inForce.traps.size())
        .number("members", m.inForce.members.size())
        .object("refused", refusedText(m))
        .string("lastError", m.lastError);
}

// Everything that a look at an agent in trouble needs, in one answer.
std::string summaryText(const agent& self) {
    const agentTables& t = self.tables;
    uint64_t lists = 0, entries = 0;
    t.plane.walk(t.plane.inForce, [&](const dpList& list) {
        lists++;
        entries += list.entries.size();
        return true;
    });
    jsonObject out;
    if (self.config.cp)
        out.flag("cp", true);
    else
        out.number("slot", self.config.slot);
    out.flag("registered", linkIsRegistered(self.link))
        .string("state", linkStateText(self.link))
        .flag("replayNeeded", self.link.need != 0)
        .number("registrations", self.link.registrations)
        .number("answers", self.link.answers)
        .number("downs", self.link.downs)
        .number("sessions", self.link.sessions)
        .number("lost", self.link.lost)
        .number("replays", self.link.replays)
        .number("exchanges", t.exchanges)
        .number("listByList", t.byLists)
        .number("messages", t.messages)
        .number("applied", t.applied)
        .number("absent", t.absent)
        .number("notKept", t.notKept)
        .number("protocolFilters", t.protocolFilters)
        .string("protocolFilter", agentTrimmedHexText(t.protocolFilter))
        .flag("macEgress", t.macEgress)
        .number("strangers", self.strangers)
        .number("lists", lists)
        .number("entries", entries)
        .flag("incomplete", t.pending.id != 0)
        .object("refused", refusedText(t))
        .string("lastError", t.lastError);
    if (!self.config.cp) out.object("mac", macSummary(self.macs));
    return out.text();
}

std::string listText(const agentTables& t, const dpList& list) {
    const bool macEgress = list.place.kind == AGENT_LIST_MAC && list.place.direction == 1;
    return jsonObject{}
        .string("name", listNameView(list.name))
        .string("kind", agentListKindNames[list.place.kind])
        .number("kindNumber", list.place.kind)
        .number("ifindex", list.ifindex)
        .number("direction", list.place.direction)
        .number("group", list.place.group)
        .string("groupName", listNameView(list.groupName))
        .flag("vlan", list.onBehalfOfVlan)
        .number("implicitPermit", list.implicitPermit)
        .number("portPipe", list.portPipe)
        .number("listKind", list.listKind)
        .string("block", agentBlockText(list.block))
        .number("count", list.entries.size())
        .flag("inForce", !macEgress || t.macEgress)
        .text();
}

std::string listsText(const agentTables& t, const agentStateReq& req) {
    listName name = listNameMake(req.name);
    std::string items;
    uint64_t met = 0, shown = 0;
    bool more = false;
    // Pages are counted in lists that meet the question: between two of them a list may come or go,
    // which a reader who asks again sees.
    t.plane.walk(t.plane.inForce, [&](const dpList& list) {
        if (!listNameIsEmpty(name) && list.name != name) return true;
        if (met++ < req.index) return true;
        more = shown == AGENT_STATE_ROWS_MAX;
        if (more) return false;
        append(&items, listText(t, list));
        shown++;
        return true;
    });
    jsonObject out;
    out.raw("lists", array(items));
    if (more) out.number("next", req.index + shown);
    return out.text();
}

std::string addressText6(const std::array<uint32_t, 4>& words) {
    be32 bytes[4];
    for (size_t i = 0; i < words.size(); i++) bytes[i] = words[i];
    std::string out;
    textAddress6(out, bytes[0].b);
    return out;
}
std::string macText(const std::array<uint8_t, 6>& address) {
    std::string out;
    for (uint8_t byte : address) out += (out.empty() ? "" : ":") + agentHexText({&byte, 1});
    return out;
}
// So many rows of a table from one on, each as rowText(key, value) says it.
template <class Map, class Fn>
std::string rowsText(const char* name, const Map& rows, const agentStateReq& req, Fn&& rowText) {
    std::string items;
    const size_t skipped = std::min<size_t>(req.index, rows.size());
    const size_t shown = std::min(rows.size() - skipped, AGENT_STATE_ROWS_MAX);
    auto at = std::next(rows.begin(), static_cast<ptrdiff_t>(skipped));
    for (size_t i = 0; i < shown; i++, ++at) append(&items, rowText(at->first, at->second));
    jsonObject out;
    out.raw(name, array(items));
    if (at != rows.end()) out.number("next", skipped + shown);
    return out.text();
}
std::string trapsText(const macTables& m, const agentStateReq& req) {
    return rowsText("traps", m.inForce.traps, req, [](const macTrapKey& key, const macTrap& trap) {
        return jsonObject{}
            .number("ifindex", key.ifindex)
            .string("mac", macText(key.mac))
            .number("vlan", trap.vlan)
            .number("egressPort", trap.egressPort)
            .number("mode", trap.mode)
            .number("lda", trap.lda)
            .number("cpus", trap.cpus)
            .text();
    });
}
std::string membersText(const macTables& m, const agentStateReq& req) {
    return rowsText("members", m.inForce.members, req, [](const macMemberKey& key, uint32_t group) {
        return jsonObject{}
            .number("port", key.port)
            .number("vlan", key.vlan)
            .number("group", group)
            .text();
    });
}

std::string portsText(const agentRule& r) {
    std::string ports;
    for (uint16_t port : {r.srcPorts.low, r.srcPorts.high, r.dstPorts.low, r.dstPorts.high})
        append(&ports, std::to_string(port));
    return array(ports);
}
std::string icmpText(const ruleIcmp& icmp) {
    return agentHexText(std::array{icmp.type, icmp.typeGiven, icmp.code, icmp.codeGiven});
}

// The fields in the order in which they travel.
std::string layer2Text(const ruleLayer2& l2) {
    auto word = [](uint32_t value) {
        be32 bytes;
        bytes = value;
        return agentHexText(bytes.b);
    };
    return word(l2.arpMarker) + word(l2.etherType) + agentHexText(l2.src.address) +
           agentHexText(l2.src.wildcard) + agentHexText(l2.dst.address) +
           agentHexText(l2.dst.wildcard) + agentHexText(l2.carried) + word(l2.vlan) +
           word(l2.arpOpcode) + word(l2.log) + word(l2.counterOptions);
}

jsonObject fields4(const agentRule& r) {
    return jsonObject{}
        .number("action", r.action)
        .string("src", dotted(r.src.value[0]))
        .string("srcMask", dotted(r.src.mask[0]))
        .string("dst", dotted(r.dst.value[0]))
        .string("dstMask", dotted(r.dst.mask[0]))
        .number("protocol", r.protocol)
        .number("protoMarker", r.protoMarker)
        .number("precedence", r.precedence)
        .number("tos", r.tos)
        .number("srcOperator", r.srcPorts.op)
        .number("dstOperator", r.dstPorts.op)
        .raw("ports", portsText(r))
        .number("tcpFlags", r.tcpFlags)
        .string("icmp", icmpText(r.icmp))
        .number("fragments", r.fragments)
        .number("dscp", r.dscp)
        .string("l2", layer2Text(r.layer2))
        .number("order", r.order)
        .number("kind", r.kind)
        .number("counterOptions", r.counterOptions)
        .number("log", r.log)
        .number("monitor", r.monitor);
}

// None of the fields that the layout of IPv6 entries lacks. Where TCP has the operator of the
// source port, ICMPv6 has its type and code.
jsonObject fields6(const agentRule& r) {
    jsonObject out;
    if (r.protocol == IP_PROTO_ICMP6)
        out.string("icmp", icmpText(r.icmp));
    else
        out.number("srcOperator", r.srcPorts.op);
    return out.number("action", r.action)
        .string("src", addressText6(r.src.value))
        .string("srcMask", addressText6(r.src.mask))
        .string("dst", addressText6(r.dst.value))
        .string("dstMask", addressText6(r.dst.mask))
        .number("protocol", r.protocol)
        .number("protoMarker", r.protoMarker)
        .number("dstOperator", r.dstPorts.op)
        .raw("ports", portsText(r))
        .number("tcpFlags", r.tcpFlags)
        .number("counterOptions", r.counterOptions)
        .number("log", r.log)
        .number("monitor", r.monitor);
}

// Masks of MAC addresses are wildcards, as the manager's lists have them.
jsonObject fieldsMac(const agentRule& r) {
    return jsonObject{}
        .number("action", r.action)
        .string("src", macText(r.layer2.src.address))
        .string("srcMask", macText(r.layer2.src.wildcard))
        .string("dst", macText(r.layer2.dst.address))
        .string("dstMask", macText(r.layer2.dst.wildcard))
        .number("encapsulation", r.layer2.encapsulation)
        .number("etherTypeOperator", r.layer2.etherTypeOperator)
        .number("etherType", r.layer2.etherType)
        .number("order", r.order)
        .number("kind", r.kind)
        .number("counterOptions", r.counterOptions)
        .number("log", r.log)
        .number("monitor", r.monitor);
}

std::string entryText(const dataplane& plane, const dpList& list, const dpEntry& entry) {
    const agentRule& rule = entry.rule;
    // In the order of ruleFamily.
    constexpr jsonObject (*fields[])(const agentRule&) = {fields4, fields6, fieldsMac};
    jsonObject out = fields[static_cast<size_t>(rule.family)](rule);
    if (list.place.kind == AGENT_LIST_IPMAC) out.string("srcMac", macText(rule.layer2.src.address));
    uint64_t packets = 0;
    (void)plane.counters(plane.inForce, list.place, entry.key, &packets);
    // Of entries that are known by their content the number says nothing.
    if (agentListByContent(list.place.kind)) out.string("content", agentHashText(entry.content));
    return out.number("seq", rule.seq)
        .string("hash", agentHashText(entry.hash()))
        .number("packets", packets)
        .text();
}

// False: nothing of that name is installed there.
bool entriesText(const agentTables& t, const agentStateReq& req, std::string* text) {
    if (req.kind >= AGENT_LIST_KINDS) return false;
    listName name = listNameMake(req.name);
    dpPlace place = dpPlaceMake(static_cast<agentListKind>(uint32_t{req.kind}), req.direction,
                                req.ifindex, req.group, name);
    const dpList* list = t.plane.find(t.plane.inForce, place);
    if (list == nullptr || list->name != name) return false;
    std::string items;
    size_t shown = 0;
    // From a number on, not so many behind the first: an entry that goes between two pages costs no
    // other one.
    auto at = list->entries.lower_bound(req.index);
    for (; at != list->entries.end() && shown < AGENT_STATE_ROWS_MAX; ++at, shown++)
        append(&items, entryText(t.plane, *list, at->second));
    jsonObject out;
    out.raw("list", listText(t, *list)).raw("entries", array(items));
    if (at != list->entries.end()) out.number("next", at->first);
    *text = out.text();
    return true;
}

}  // namespace

std::vector<uint8_t> agentStateAnswer(const agent& self, std::span<const uint8_t> request) {
    agentStateReq req{};
    std::memcpy(&req, request.data(), std::min(request.size(), sizeof req));
    uint32_t status = AGENT_STATE_BAD;
    std::string text;
    if (request.size() >= sizeof req && req.ipc.length == request.size()) {
        status = AGENT_STATE_OK;
        if (req.what == AGENT_STATE_SUMMARY)
            text = summaryText(self);
        else if (req.what == AGENT_STATE_LISTS)
            text = listsText(self.tables, req);
        else if (req.what == AGENT_STATE_TRAPS)
            text = trapsText(self.macs, req);
        else if (req.what == AGENT_STATE_MEMBERS)
            text = membersText(self.macs, req);
        else if (req.what != AGENT_STATE_ENTRIES)
            status = AGENT_STATE_BAD;
        else if (!entriesText(self.tables, req, &text))
            status = AGENT_STATE_NOLIST;
    }
    // The front of the request is the answer's, so that who asked finds its own words again.
    ipcExchangeTriples(&req.ipc);
    req.ipc.status = status;
    req.ipc.length = static_cast<uint32_t>(AGENT_STATE_TEXT_OFFSET + text.size());
    std::vector<uint8_t> answer(AGENT_STATE_TEXT_OFFSET + text.size());
    std::memcpy(answer.data(), &req, AGENT_STATE_TEXT_OFFSET);
    std::ranges::copy(text, answer.begin() + AGENT_STATE_TEXT_OFFSET);
    return answer;
}
