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
std::string hashText(uint64_t hash) {
    uint8_t bytes[8];
    for (int i = 0; i < 8; i++) bytes[i] = static_cast<uint8_t>(hash >> (56 - 8 * i));
    return agentHexText(bytes);
}
std::string dotted(uint32_t address) {
    std::string out;
    textDotted(out, address);
    return out;
}

std::string summaryText(const agent& self) {
    const agentTables& t = self.tables;
    uint64_t lists = 0, entries = 0;
    t.plane.walk(t.plane.inForce, [&](const dpList& list) {
        lists++;
        entries += list.entries.size();
        return true;
    });
    jsonObject refused, out;
    for (size_t i = 0; i < AGENT_REFUSALS; i++) refused.number(agentRefusalNames[i], t.refused[i]);
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
        .number("macMessages", self.macMessages)
        .number("strangers", self.strangers)
        .number("lists", lists)
        .number("entries", entries)
        .flag("incomplete", t.pendingId != 0)
        .object("refused", refused)
        .string("lastError", t.lastError);
    return out.text();
}

std::string listText(const dpList& list) {
    return jsonObject{}
        .string("name", listNameView(list.name))
        .string("kind", agentListKindNames[list.place.kind])
        .number("kindNumber", list.place.kind)
        .number("ifindex", list.ifindex)
        .number("direction", list.place.direction)
        .number("group", list.place.group)
        .flag("vlan", list.onBehalfOfVlan)
        .number("implicitPermit", list.implicitPermit)
        .number("portPipe", list.portPipe)
        .number("listKind", list.listKind)
        .string("block", agentBlockText(list.block))
        .number("count", list.entries.size())
        .text();
}

std::string listsText(const agentTables& t, const agentStateReq& req) {
    listName name = listNameMake(req.name);
    std::string items;
    uint64_t met = 0, shown = 0;
    bool more = false;
    t.plane.walk(t.plane.inForce, [&](const dpList& list) {
        if (!listNameIsEmpty(name) && list.name != name) return true;
        if (met++ < req.index) return true;
        more = shown == AGENT_STATE_ROWS_MAX;
        if (more) return false;
        append(&items, listText(list));
        shown++;
        return true;
    });
    jsonObject out;
    out.raw("lists", array(items));
    if (more) out.number("next", req.index + shown);
    return out.text();
}

jsonObject entryFields(const agentEntry& e) {
    // The match data's words are bytes 36-63 of the manager's entry block.
    auto word = [&e](size_t blockOffset) {
        return uint32_t{*wireView<be32>(std::span<const uint8_t>(e.match.words), blockOffset - 36)};
    };
    const agentMatch& m = e.match;
    std::string ports;
    for (const be16& port : m.ports) append(&ports, std::to_string(port));
    return jsonObject{}
        .number("action", e.action)
        .string("src", dotted(m.src))
        .string("srcMask", dotted(m.srcMask))
        .string("dst", dotted(m.dst))
        .string("dstMask", dotted(word(36)))
        .number("protocol", m.protocol)
        .number("protoMarker", m.protoMarker)
        .number("precedence", word(44))
        .number("tos", word(48))
        .number("srcOperator", m.srcOperator)
        .number("dstOperator", m.dstOperator)
        .raw("ports", array(ports))
        .number("tcpFlags", m.tcpFlags)
        .string("icmp", agentHexText(m.icmp))
        .number("fragments", m.fragments)
        .number("dscp", m.dscp[0])
        .string("l2", agentHexText(m.l2))
        .number("order", m.order)
        .number("kind", m.kind)
        .number("counterOptions", e.counterOptions)
        .number("log", e.log)
        .number("monitor", e.monitor);
}

jsonObject entryFields(const ip6EntryBlock& b) {
    std::string ports;
    for (const be16* port : {&b.srcLow, &b.srcHigh, &b.dstLow, &b.dstHigh})
        append(&ports, std::to_string(*port));
    return jsonObject{}
        .number("action", b.action)
        .string("src", agentHexText(b.src))
        .string("srcMask", agentHexText(b.srcMask))
        .string("dst", agentHexText(b.dst))
        .string("dstMask", agentHexText(b.dstMask))
        .number("protocol", b.protocol)
        .number("protoMarker", b.protoMarker)
        .number("srcOperator", b.srcOperator)
        .number("dstOperator", b.dstOperator)
        .raw("ports", array(ports))
        .number("tcpFlags", b.tcpFlags)
        .number("counterOptions", b.counterOptions);
}

std::string entryText(const dataplane& plane, const dpList& list, const dpEntry& entry) {
    const dpEntryShape& shape = dpShapeOf(list.place.kind);
    std::span<const uint8_t> image(entry.raw.data(), entry.length);
    jsonObject out = entry.length == sizeof(agentEntry)
                         ? entryFields(*wireView<agentEntry>(image))
                         : entryFields(wireView<agentEntry6>(image)->block);
    uint64_t packets = 0;
    (void)plane.counters(plane.inForce, list.place, entry.key, &packets);
    auto hashed = image.subspan(shape.hashFrom, shape.hashTo - shape.hashFrom);
    return out.number("seq", *wireView<be32>(image, shape.seqAt))
        .string("hash", hashText(agentHash(hashed)))
        .number("packets", packets)
        .text();
}

// False: nothing of that name is installed there.
bool entriesText(const agentTables& t, const agentStateReq& req, std::string* text) {
    if (req.kind > AGENT_LIST_DOS) return false;
    listName name = listNameMake(req.name);
    dpPlace place = dpPlaceMake(static_cast<agentListKind>(uint32_t{req.kind}), req.direction,
                                req.ifindex, req.group, name);
    const dpList* list = t.plane.find(t.plane.inForce, place);
    if (list == nullptr || list->name != name) return false;
    std::string items;
    size_t shown = 0;
    auto at = list->entries.lower_bound(req.index);
    for (; at != list->entries.end() && shown < AGENT_STATE_ROWS_MAX; ++at, shown++)
        append(&items, entryText(t.plane, *list, at->second));
    jsonObject out;
    out.raw("list", listText(*list)).raw("entries", array(items));
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
        else if (req.what != AGENT_STATE_ENTRIES)
            status = AGENT_STATE_BAD;
        else if (!entriesText(self.tables, req, &text))
            status = AGENT_STATE_NOLIST;
    }
    ipcExchangeTriples(&req.ipc);
    req.ipc.status = status;
    req.ipc.length = static_cast<uint32_t>(AGENT_STATE_TEXT_OFFSET + text.size());
    std::vector<uint8_t> answer(AGENT_STATE_TEXT_OFFSET + text.size());
    std::memcpy(answer.data(), &req, AGENT_STATE_TEXT_OFFSET);
    std::ranges::copy(text, answer.begin() + AGENT_STATE_TEXT_OFFSET);
    return answer;
}
