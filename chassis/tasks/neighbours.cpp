// The manager's neighbours: commands, the lines, and what is shown of them.
#include "chassis/tasks/neighbours.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "include/ipText.h"
#include "include/service.h"

namespace {

constexpr uint32_t PROTOCOLS_SERVICE = CHASSIS_CONTROL_SERVICE + 1;
constexpr uint32_t WINDOW = 4;
// A manager that does not answer for so many time-outs, 7.5 s, is left to itself: within the time
// that a command waits.
constexpr uint32_t REPEATS = 30;
constexpr uint64_t WRITE_AGAIN_MS = 1000;
// The first registration of a manager's process has this sequence number.
constexpr uint32_t FIRST_REGISTRATION = 0xFEEDBEEF;

// Answers come between two ticks.
uint64_t clockMs() {
    using namespace std::chrono;
    return static_cast<uint64_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

void closeLine(managerLine* line) {
    zekEndpointQueueFree(line->queue);
    line->queue = nullptr;
}

bool write(const neighbours& all, const neighbourState& state, std::string* error) {
    return fileReplace(all.file, stateText(state), error);
}

// What was acknowledged need not be told again after a restart. A disk that is full now takes it
// later; until then a restart tells it once more.
void writeLater(neighbours* all, uint64_t nowMs) {
    std::string error;
    const bool first = !all->unwritten;
    all->unwritten = !write(*all, all->state, &error);
    all->writeAt = nowMs + WRITE_AGAIN_MS;
    if (all->unwritten && first) std::fprintf(stderr, "chassisd: %s\n", error.c_str());
}

toldItems whole(const neighbourState& state, uint32_t line) {
    if (line == LINE_IFM) return ifmWhole(state.interfaces);
    return protocolsWhole(state.protocols,
                          line == LINE_VRRP ? protocolWay::queue : protocolWay::requests);
}

// Whoever is not told now is told when the manager answers, or comes.
uint32_t behindStatus(const managerLine& line) {
    return zekEndpointQueueIsAlone(line.queue) ? CHASSIS_NOBODY : CHASSIS_SILENT;
}

// --- waiting -------------------------------------------------------------------------------------

// Whether the waiter still waits for the line. What a line that has started over was asked for is
// in its replay.
bool waitsFor(neighbours* all, neighbours::waiter* w, uint32_t which) {
    const managerLine& line = all->lines[which];
    auto& at = w->lines[which];
    if (!at.waits || line.startsOver) return at.waits;
    if (lineIsInStep(line)) {
        if (at.replays != line.replays) at.position = zekEndpointQueueNewest(line.queue);
        at.replays = line.replays;
        at.waits = zekEndpointQueueAnswered(line.queue) < at.position;
    } else {
        w->status = std::max(w->status, behindStatus(line));
        at.waits = false;
    }
    return at.waits;
}

// Answers the commands whose lines are done with them, or have fallen behind.
void answerWaiters(neighbours* all, uint64_t nowMs) {
    std::erase_if(all->waiters, [&](neighbours::waiter& w) {
        if (laterFind(all->requests, w.ticket) == nullptr) return true;
        bool waits = false;
        for (uint32_t line = 0; line < LINE_COUNT; line++) waits |= waitsFor(all, &w, line);
        if (!waits) laterFinish(all->requests, w.ticket, w.status, nowMs);
        return !waits;
    });
}

// Plain requests are answered with a result, one at a time.
void noteRefusal(neighbours* all, uint32_t position) {
    for (neighbours::waiter& w : all->waiters) {
        const auto& at = w.lines[LINE_PROTOCOLS];
        if (at.waits && at.position == position && at.replays == all->lines[LINE_PROTOCOLS].replays)
            w.status = CHASSIS_REFUSED;
    }
}

// The manager keeps cards waiting for their replays until it knows everything, protocols, too: the
// end is marked behind the last of them. There is one even when nothing is known.
void markEnd(neighbours* all, uint64_t nowMs) {
    managerLine& ifm = all->lines[LINE_IFM];
    if (ifm.queue == nullptr || !lineIsInStep(ifm) || all->endMarked == ifm.replays) return;
    if (!lineHasReplayed(all->lines[LINE_VRRP]) || !lineHasReplayed(all->lines[LINE_PROTOCOLS]))
        return;
    all->endMarked = ifm.replays;
    lineMarkEnd(&ifm, nowMs);
}

// --- commands ------------------------------------------------------------------------------------

struct toldChange {
    toldItems items[LINE_COUNT];
};

// The command's change of the state, or a sentence why it cannot be.
bool change(const neighbours& all, std::span<const uint8_t> request, neighbourState* state,
            toldChange* told, std::string* why) {
    const auto* req = wireView<chassisPlaceReq>(request);
    toldItems protocols;
    bool done;
    if (req->command == CHASSIS_PROTOCOL_ENABLE || req->command == CHASSIS_PROTOCOL_DISABLE) {
        done = protocolApply(*all.chassis, request, &state->protocols, &protocols, why);
    } else {
        done = ifmApply(*all.chassis, request, &state->interfaces, &told->items[LINE_IFM], why);
        if (req->command == CHASSIS_INTERFACE_DELETE)
            protocolsLeave(req->ifindex, &state->protocols, &protocols);
    }
    told->items[LINE_VRRP] = protocolItems(protocols, protocolWay::queue);
    told->items[LINE_PROTOCOLS] = protocolItems(protocols, protocolWay::requests);
    for (uint32_t line = 0; done && line < LINE_COUNT; line++)
        if (!lineOwe(all.lines[line], told->items[line], &state->books[line])) {
            *why = "The manager has too many removals to acknowledge";
            return false;
        }
    return done;
}

// Tells what is new. A command that finds it so already waits for what is under way.
void tell(neighbours* all, uint32_t ticket, const toldChange& told, bool isProtocol,
          uint64_t nowMs) {
    neighbours::waiter w{};
    w.ticket = ticket;
    const bool nothingNew =
        std::ranges::all_of(told.items, [](const toldItems& items) { return items.empty(); });
    // Protocols first: what is deleted is disabled before.
    for (uint32_t i = LINE_COUNT; i-- > 0;) {
        const toldItems& items = told.items[i];
        const bool mine = nothingNew && (i == LINE_IFM) == !isProtocol;
        if (items.empty() && !mine) continue;
        (void)lineTell(&all->lines[i], items, &all->state.books[i], nowMs);
        w.lines[i].waits = true;
        w.lines[i].position = zekEndpointQueueNewest(all->lines[i].queue);
        w.lines[i].replays = all->lines[i].replays;
    }
    all->waiters.push_back(w);
    answerWaiters(all, nowMs);
}

// --- shows ---------------------------------------------------------------------------------------

std::string addressesText(const ifmInterface& interface) {
    std::string text;
    for (const ifmAddress& a : interface.addresses) {
        text += text.empty() ? "" : ", ";
        textAddress(text, a.family == 4, a.bytes.data());
        text += "/" + std::to_string(a.length);
    }
    return text;
}
std::string membersText(const chassisDescription& chassis, const ifmInterface& interface) {
    std::string text;
    for (uint32_t member : interface.members)
        text += (text.empty() ? "" : ", ") + ifmName(chassis, member);
    return text;
}
std::string vmacText(const protocolUse& use) {
    if (use.vmac == std::array<uint8_t, 6>{}) return "";
    char text[24];
    const auto& m = use.vmac;
    std::snprintf(text, sizeof text, " vmac %02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3],
                  m[4], m[5]);
    return text;
}
std::string protocolsText(const protocolModel& model, uint32_t ifindex) {
    std::string text;
    for (const protocolUse& use : model.enabled)
        if (use.ifindex == ifindex)
            text += (text.empty() ? "" : ", ") + std::string(protocolName(use.id)) + vmacText(use);
    return text;
}

constexpr const char* lineNames[LINE_COUNT] = {"interfaces", "vrrp", "protocols"};

const char* lineStateName(const managerLine& line) {
    if (line.queue == nullptr) return "none";
    if (!lineIsInStep(line))
        return behindStatus(line) == CHASSIS_NOBODY ? "no manager" : "no answer";
    return zekEndpointQueueAnswered(line.queue) < zekEndpointQueueNewest(line.queue) ? "under way"
                                                                                     : "in step";
}

}  // namespace

bool neighboursOpen(neighbours* all, const chassisDescription& chassis, const std::string& runDir,
                    zekEndpoint* ifm, uint32_t ifmAddress, uint32_t address,
                    laterRequests* requests, std::string* error, std::string* notice) {
    all->chassis = &chassis;
    all->runDir = runDir;
    all->file = runDir + "/" + CHASSIS_INTERFACES_FILE;
    all->requests = requests;
    all->endpoint = zekEndpointOpen(runDir, address, PROTOCOLS_SERVICE, error);
    if (all->endpoint == nullptr) return false;
    auto open = [](managerLine* line, zekEndpoint* endpoint, zekQueueWay way, ipcTriple own,
                   linePack pack) {
        line->queue = zekEndpointQueueMake(endpoint, way, WINDOW, REPEATS);
        line->own = own;
        line->pack = pack;
        line->startsOver = true;
    };
    ipcTriple own{};
    own.card = address;
    own.svce = PROTOCOLS_SERVICE;
    open(&all->lines[LINE_VRRP], all->endpoint, zekQueueWay::swp, own, protocolMessage);
    open(&all->lines[LINE_PROTOCOLS], all->endpoint, zekQueueWay::requests, own, protocolRequest);
    own.card = ifmAddress;
    own.svce = aclServicePort(APP_IFM, 0, QUEUE_REQUEST);
    if (ifm != nullptr) open(&all->lines[LINE_IFM], ifm, zekQueueWay::swp, own, ifmMessage);
    stateLoad(all->file, &all->state, notice);
    return true;
}

void neighboursClose(neighbours* all) {
    for (managerLine& line : all->lines) closeLine(&line);
    zekEndpointClose(all->endpoint);
    all->endpoint = nullptr;
}

void neighboursRegistered(neighbours* all, const ipcHdr& registration) {
    const auto& rps = all->chassis->routeProcessors;
    const auto rp = std::ranges::find(rps, uint32_t{registration.target.card}, &chassisRp::address);
    if (rp == rps.end()) return;
    const auto number = static_cast<uint32_t>(rp - rps.begin());
    for (uint32_t i = 0; i < LINE_COUNT; i++) {
        if (all->lines[i].rp == number || all->lines[i].rp == RP_COUNT) {
            lineStartOver(&all->lines[i]);
        } else if (registration.sequence == FIRST_REGISTRATION) {
            // A process that has just begun, and that we do not speak to, knows nothing.
            lineForget(number, &all->state.books[i]);
            all->unwritten = true;
            all->writeAt = 0;
        }
    }
}

void neighboursAnswer(neighbours* all, const ipcHdr& answer) {
    const uint64_t nowMs = clockMs();
    const bool plain = answer.mtype == MT_PROT_FIRST || answer.mtype == MT_PROT_LAST;
    const uint32_t first = plain ? uint32_t{LINE_PROTOCOLS} : uint32_t{LINE_IFM};
    const uint32_t end = plain ? uint32_t{LINE_COUNT} : uint32_t{LINE_PROTOCOLS};
    bool changed = false;
    for (uint32_t i = first; i < end; i++) {
        managerLine& line = all->lines[i];
        if (line.queue == nullptr) continue;
        const uint32_t before = zekEndpointQueueAnswered(line.queue);
        changed |= lineAnswer(&line, answer, &all->state.books[i], nowMs);
        if (plain && answer.result != 0 && zekEndpointQueueAnswered(line.queue) == before + 1)
            noteRefusal(all, before + 1);
    }
    if (changed) writeLater(all, nowMs);
    markEnd(all, nowMs);
    answerWaiters(all, nowMs);
}

void neighboursServe(neighbours* all) {
    std::vector<uint8_t> message;
    while (zekEndpointRecv(all->endpoint, &message, IPC_TRANSPORT_MAX, 0, nullptr) > 0)
        neighboursAnswer(all, *wireView<ipcHdr>(std::span<const uint8_t>(message)));
}

uint64_t neighboursTick(neighbours* all, uint32_t primaryRp, uint64_t nowMs) {
    uint64_t next = UINT64_MAX;
    bool changed = all->unwritten && all->writeAt <= nowMs;
    for (uint32_t i = 0; i < LINE_COUNT; i++) {
        if (all->lines[i].queue == nullptr) continue;
        uint64_t due;
        changed |= lineTick(
            &all->lines[i], primaryRp, all->chassis->routeProcessors[primaryRp].address,
            &all->state.books[i], [all, i] { return whole(all->state, i); }, nowMs, &due);
        next = std::min(next, due);
    }
    if (changed) writeLater(all, nowMs);
    markEnd(all, nowMs);
    answerWaiters(all, nowMs);
    return all->unwritten ? std::min(next, all->writeAt) : next;
}

void neighboursCommand(neighbours* all, std::span<const uint8_t> request, uint64_t nowMs) {
    const auto* req = wireView<chassisPlaceReq>(request);
    if (req == nullptr) return chassisAnswer(all->requests->endpoint, request, {CHASSIS_BAD, {}});
    if (all->lines[LINE_IFM].queue == nullptr)
        return chassisAnswer(all->requests->endpoint, request, {CHASSIS_NO_TASK, {}});
    const uint32_t ticket = laterTake(all->requests, request, nowMs);
    if (ticket == 0) return;
    auto refuse = [&](uint32_t status, const std::string& why) {
        laterFind(all->requests, ticket)->outcome.text.string("why", why);
        laterFinish(all->requests, ticket, status, nowMs);
    };
    // A copy: nothing has changed until the file has it.
    neighbourState next = all->state;
    toldChange told;
    std::string why;
    if (!change(*all, request, &next, &told, &why)) return refuse(CHASSIS_INVALID, why);
    const bool changes = std::ranges::any_of(told.items, [](const auto& i) { return !i.empty(); });
    if (changes && !write(*all, next, &why)) return refuse(CHASSIS_FAILED, why);
    if (changes) {
        all->state = std::move(next);
        all->unwritten = false;
    }
    laterFind(all->requests, ticket)->outcome.text.flag("changed", changes);
    tell(all, ticket, told,
         req->command == CHASSIS_PROTOCOL_ENABLE || req->command == CHASSIS_PROTOCOL_DISABLE,
         nowMs);
}

std::string neighboursRows(const neighbours& all) {
    // An interface may have nothing but protocols.
    std::map<uint32_t, const ifmInterface*> known;
    static const ifmInterface nothing;
    for (const protocolUse& use : all.state.protocols.enabled) known[use.ifindex] = &nothing;
    for (const auto& [index, interface] : all.state.interfaces.interfaces)
        known[index] = &interface;
    std::string rows;
    for (const auto& [index, interface] : known) {
        jsonObject row;
        row.string("interface", ifmName(*all.chassis, index))
            .string("members", membersText(*all.chassis, *interface))
            .string("group", interface->group ? std::to_string(*interface->group) : "")
            .string("addresses", addressesText(*interface))
            .string("state", !interface->state        ? ""
                             : *interface->state != 0 ? "up"
                                                      : "down")
            .string("mode", interface->mode ? std::to_string(*interface->mode) : "")
            .string("protocols", protocolsText(all.state.protocols, index));
        rows += (rows.empty() ? "" : ",") + row.text();
    }
    return "[" + rows + "]";
}

jsonObject neighboursSummary(const neighbours& all) {
    jsonObject summary;
    summary.number("members", all.state.interfaces.members)
        .number("addresses", all.state.interfaces.addresses)
        .number("protocols", all.state.protocols.enabled.size());
    std::string lines;
    for (uint32_t i = 0; i < LINE_COUNT; i++)
        lines += (lines.empty() ? "" : ",") +
                 jsonObject{}
                     .string("told-of", lineNames[i])
                     .string("state", lineStateName(all.lines[i]))
                     .number("replays", all.lines[i].replays)
                     .number("removals-owed", all.state.books[i].owed.size())
                     .text();
    return summary.raw("manager", "[" + lines + "]");
}
