// Requests to the manager and their answers: the row that a command is sent by, sending again what
// was lost, and recognising an answer among strangers.
#include "cli/request/request.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <random>
#include <utility>

#include "cli/kinds.h"
#include "cli/lexer.h"
#include "include/service.h"
#include "include/status.h"
#include "platform/api/zekChassis.h"
#include "platform/api/zekTask.h"

namespace {

void fillUnbinding(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->bind.ifindex = scope.ifindex;
    request->bind.direction = command.direction;
}
// The grammar has checked the text.
bindingVlans vlansOf(std::string_view text) {
    bindingVlans vlans{};
    vlans.given = 1;
    for (size_t comma = 0; comma != text.npos; text.remove_prefix(comma + 1)) {
        comma = text.find(',');
        uint32_t low = 1, high = 0;
        (void)lexVlanRange(text.substr(0, comma), &low, &high);
        // Bit 0x80 of the first byte is VLAN 0, which no line can name.
        for (uint32_t id = low; id <= high; id++)
            vlans.bits[id / 8] = static_cast<uint8_t>(vlans.bits[id / 8] | 0x80 >> id % 8);
        if (comma == text.npos) break;
    }
    // Counted from the bits, because ranges of a line may overlap.
    uint32_t count = 0;
    for (uint8_t byte : vlans.bits) count += static_cast<uint32_t>(std::popcount(byte));
    vlans.count = count;
    return vlans;
}

void fillBinding(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    fillUnbinding(command, scope, request);
    cliBindReq& bind = request->bind;
    bind.implicitPermit = command.implicitPermit;
    // An operator's binding is configuration; replays of the manager's own are not.
    bind.writeConfig = 1;
    bind.vlanOption = command.vlans.empty() ? 0 : 1;
    // The text goes along as it was typed, because that is how the line is shown again.
    command.vlans.copy(bind.vlanText, sizeof bind.vlanText - 1);
    if (command.vlans.empty()) return;
    const bindingVlans vlans = vlansOf(command.vlans);
    std::memcpy(bind.block, &vlans, sizeof vlans);
}
void fillGroupMember(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->cli.name = scope.list;
    request->group.vlans = vlansOf(command.vlans);
    command.vlans.copy(request->group.vlanText, CLI_VLAN_TEXT_LEN - 1);
}
void fillGroupList(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->cli.name = scope.list;
    request->group.list = listNameMake(command.name);
    request->group.implicitPermit = command.implicitPermit;
}
void fillGuard(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->guard.ifindex = scope.ifindex;
    request->guard.address = command.pair.address;
    std::memcpy(request->guard.mac, command.pair.mac, sizeof request->guard.mac);
    request->guard.vlan = static_cast<uint16_t>(command.number);
}

void fillRemark(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->cli.name = scope.list;
    request->remark.seq = command.policy.seq;
    // Of a remark that goes the number is enough. The grammar has checked the length.
    if (!command.negated) command.text.copy(request->remark.text, REMARK_LEN);
}
// Of the modes that are no list's only an ACL VLAN group's has descriptions.
uint32_t describedAs(uint32_t kind) {
    if (kind >= KIND_COUNT) return CLI_GROUP_CREATE;
    const listKind& row = listKinds[kind];
    return row.describedAs != 0 ? row.describedAs : row.codes.header.plain;
}
void fillDescription(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    cliDescriptionReq& description = request->description;
    request->cli.name = scope.list;
    description.kind = describedAs(command.kind);
    description.remove = command.negated;
    description.seq = scope.seq;
    if (!command.negated) command.text.copy(description.text, DESCRIPTION_LEN);
}

// The requests that are about no kind of list.
struct requestRow {
    cliVerb verb;
    bool negated;
    uint32_t code;
    requestForm form;
};
constexpr requestForm GROUP_MEMBER{sizeof(cliGroupReq), fillGroupMember},
    GROUP_LIST{sizeof(cliGroupReq), fillGroupList},
    SOURCE_GUARD{sizeof(cliSourceGuardReq), fillGuard};
constexpr requestRow requestTable[] = {
    {cliVerb::traceGroup, false, CLI_DOS_ENABLE, {}},
    {cliVerb::traceGroup, true, CLI_DOS_DISABLE, {}},
    {cliVerb::macEgress, false, CLI_MAC_EGRESS_ENABLE, {}},
    {cliVerb::macEgress, true, CLI_MAC_EGRESS_DISABLE, {}},
    {cliVerb::dhcpTrap, false, CLI_DHCP_TRAP, {}},
    {cliVerb::dhcpTrap, true, CLI_DHCP_NO_TRAP, {}},
    {cliVerb::vlanGroup, false, CLI_GROUP_CREATE, {sizeof(cliGroupReq)}},
    {cliVerb::vlanGroup, true, CLI_GROUP_DELETE, {sizeof(cliGroupReq)}},
    {cliVerb::vlanGroupMember, false, CLI_GROUP_MEMBER_ADD, GROUP_MEMBER},
    {cliVerb::vlanGroupMember, true, CLI_GROUP_MEMBER_DELETE, GROUP_MEMBER},
    {cliVerb::vlanGroupList, false, CLI_GROUP_APPLY, GROUP_LIST},
    {cliVerb::vlanGroupList, true, CLI_GROUP_REMOVE, GROUP_LIST},
    {cliVerb::sourceGuard, false, CLI_SOURCE_GUARD_ADD, SOURCE_GUARD},
    {cliVerb::sourceGuard, true, CLI_SOURCE_GUARD_DELETE, SOURCE_GUARD},
};

// The code and the form of a command's request; code 0: there is none.
requestRow rowOf(const cliCommand& c) {
    // The verbs of cards and of the chassis keep something else in `kind`.
    const listKind& kind = listKinds[c.kind < KIND_COUNT ? c.kind : KIND_STANDARD];
    const auto either = [&c](codePair codes, requestForm plain, requestForm negated) {
        return c.negated ? requestRow{c.verb, true, codes.negated, negated}
                         : requestRow{c.verb, false, codes.plain, plain};
    };
    constexpr requestForm remark{sizeof(cliRemarkReq), fillRemark};
    constexpr requestForm description{sizeof(cliDescriptionReq), fillDescription};
    switch (c.verb) {
        case cliVerb::list:
            return either(kind.codes.header, kind.header, kind.removal);
        case cliVerb::entry:
            return either(kind.codes.line, kind.line, kind.line);
        case cliVerb::remark:
            return either(kind.codes.remark, remark, remark);
        case cliVerb::description:
            return either({CLI_DESCRIPTION, CLI_DESCRIPTION}, description, description);
        case cliVerb::accessGroup:
            return either(kind.codes.binding, {sizeof(cliBindReq), fillBinding},
                          {sizeof(cliUnbindReq), fillUnbinding});
        case cliVerb::resequence:
            return {c.verb, false, kind.resequence.code, kind.resequence.form};
        case cliVerb::clearCounters:
            return {c.verb, false, c.name.empty() ? kind.clear.all : kind.clear.one, {}};
        default:
            break;
    }
    for (const requestRow& row : requestTable)
        if (row.verb == c.verb && row.negated == c.negated) return row;
    return {c.verb, c.negated, 0, {}};
}

// A cookie that no reply buffer can show in the same place: neither 0 nor SHOW_MARKER.
constexpr uint32_t cookieOf(uint32_t sequence) {
    return 0x80000000u | sequence;
}

// To the manager.
void stamp(cliChannel* channel, ipcHdr* hdr, uint32_t mtype, size_t length) {
    requestAddress(channel, hdr, mtype, length, channel->card,
                   aclServicePort(APP_ACL, 0, QUEUE_REQUEST));
}

}  // namespace

void fillList(const cliCommand& command, const cliScope&, cliRequest* request) {
    request->list.kind = listKinds[command.kind].mode.ipKind;
}
void fillEntry(const cliCommand& command, const cliScope& scope, cliRequest* request) {
    request->cli.name = scope.list;
    const size_t behind = listKinds[command.kind].line.length - sizeof(cliHdr);
    std::memcpy(&request->cli + 1, &command.entry, behind);
}
// Those of prefix lists begin alike.
void fillResequence(const cliCommand& command, const cliScope&, cliRequest* request) {
    request->resequence.start = command.policy.start;
    request->resequence.step = command.policy.step;
}

bool channelOpen(cliChannel* channel, const std::string& runDir, const std::string& chassisFile,
                 uint32_t rp, std::string* error) {
    chassisDescription chassis;
    if (!zekChassisLoad(chassisFile, &chassis, error)) return false;
    if (rp >= chassis.routeProcessors.size()) {
        *error = chassisFile + " has no route processor " + std::to_string(rp);
        return false;
    }
    channel->card = chassis.routeProcessors[rp].address;
    channel->runDir = runDir;
    channel->rp = rp;
    // One shell, one service: the process id tells shells of one card apart.
    channel->service = SERVICE_DYNAMIC_BASE + static_cast<uint32_t>(getpid());
    channel->nextSequence = std::random_device{}();
    channel->endpoint = zekEndpointOpen(runDir, channel->card, channel->service, error);
    return channel->endpoint != nullptr;
}

void requestAddress(cliChannel* channel, ipcHdr* hdr, uint32_t mtype, size_t length, uint32_t card,
                    uint32_t service) {
    hdr->length = static_cast<uint32_t>(length);
    hdr->mtype = mtype;
    hdr->sequence = channel->nextSequence++;
    // The first triple is the sender's.
    hdr->target.card = channel->card;
    hdr->target.svce = channel->service;
    hdr->source.card = card;
    hdr->source.svce = service;
}

bool requestBuild(cliChannel* channel, const cliCommand& command, const cliScope& scope,
                  cliRequest* request, size_t* length) {
    // The mask mode is plain IPC: a header and no body.
    if (command.verb == cliVerb::maskMode) {
        *length = sizeof(ipcHdr);
        request->ipc = {};
        stamp(channel, &request->ipc,
              command.negated ? MT_ACL_INVERSEMASK_DISABLE : MT_ACL_INVERSEMASK_ENABLE, *length);
        return true;
    }
    const requestRow row = rowOf(command);
    if (row.code == 0) return false;
    *length = row.form.length;
    // What a form does not fill is zero: the manager takes that as not given.
    std::memset(static_cast<void*>(request), 0, *length);
    stamp(channel, &request->ipc, MT_CLI_COMMAND, *length);
    request->cli.cookie = cookieOf(request->ipc.sequence);
    request->cli.code = row.code;
    // Lines of a list have no name of their own; their form takes it from the scope.
    request->cli.name = listNameMake(command.name);
    if (row.form.fill != nullptr) row.form.fill(command, scope, request);
    return true;
}

void requestShow(cliChannel* channel, uint32_t code, const listName& name, uint32_t detail,
                 uint32_t resume, cliShowReq* request) {
    *request = {};
    stamp(channel, &request->cli.ipc, MT_CLI_COMMAND, sizeof *request);
    request->cli.cookie = cookieOf(request->cli.ipc.sequence);
    request->cli.code = code;
    request->cli.name = name;
    request->name = name;
    request->detail = detail;
    request->resume = resume;
}

const ipcHdr* channelReceive(cliChannel* channel, int timeoutMs) {
    int n =
        zekEndpointRecv(channel->endpoint, &channel->message, ZEK_MESSAGE_MAX, timeoutMs, nullptr);
    if (n == 0) return nullptr;
    // A message that is shorter than its header counts as strange, like one of somebody else.
    std::span<const uint8_t> bytes(channel->message);
    const auto* hdr = n < 0 ? nullptr : wireView<ipcHdr>(bytes);
    // Answers are for us and from the manager's card; anything else is somebody's mistake.
    if (hdr == nullptr || hdr->source.svce != channel->service ||
        hdr->source.card != channel->card) {
        channel->strays++;
        return nullptr;
    }
    return hdr;
}

bool answerResult(const cliChannel& channel, uint32_t* result) {
    std::span<const uint8_t> bytes(channel.message);
    const auto* hdr = wireView<ipcHdr>(bytes);
    if (hdr->mtype == MT_ACL_INVERSEMASK_ENABLE || hdr->mtype == MT_ACL_INVERSEMASK_DISABLE) {
        *result = hdr->status;  // plain IPC: the answer is the header
        return true;
    }
    const auto* cli = wireView<cliHdr>(bytes);
    if (cli == nullptr || cli->cookie != cookieOf(cli->ipc.sequence)) return false;
    *result = cli->result;
    return true;
}

bool answerIsShown(const cliChannel& channel) {
    const auto* cli = wireView<cliHdr>(std::span<const uint8_t>(channel.message));
    return cli == nullptr || cli->notShown == 0;
}

void answerInstance(const cliChannel& channel, uint32_t* seq) {
    const auto* made = wireView<cliRmapReq>(std::span<const uint8_t>(channel.message));
    if (made != nullptr && made->cli.code == CLI_RMAP_CREATE && made->seq != RMAP_SEQ_NOT_GIVEN)
        *seq = made->seq;
}

bool answerText(const cliChannel& channel, uint32_t cookie, std::string_view* text, listName* shown,
                uint32_t* resume, uint32_t* result) {
    std::span<const uint8_t> bytes(channel.message);
    *result = ACL_E_SYSTEM;
    const auto* front = wireView<showReplyHdr>(bytes);
    if (front == nullptr) return false;
    // A refusal comes back as the request itself, with our cookie in it; what has a text begins
    // with the marker or with the place to go on at.
    if (front->marker == cookie) {
        const auto* cli = wireView<cliHdr>(bytes);
        if (cli != nullptr) *result = cli->result;
        return false;
    }
    *result = ACL_OK;
    *shown = listNameMake(front->name);
    *resume = front->marker == SHOW_MARKER ? 0 : uint32_t{front->marker};
    *text = {reinterpret_cast<const char*>(bytes.data()) + SHOW_TEXT_OFFSET,
             bytes.size() - SHOW_TEXT_OFFSET};
    // The text ends at its NUL, the message may be longer.
    *text = text->substr(0, text->find('\0'));
    return true;
}

requestFate channelFate(const cliChannel& channel, uint32_t sequence, int timeoutMs) {
    const std::string which = std::to_string(channel.service) + " " + std::to_string(sequence);
    std::string state;
    if (zekDebugCall(channel.runDir, channel.rp, "request-state", which, timeoutMs, &state) != 0)
        return requestFate::silent;
    return state == "waiting" || state == "working" ? requestFate::underWay : requestFate::lost;
}

// Waits for the answer to that request.
static bool awaitAnswer(cliChannel* channel, uint32_t sequence, int timeoutMs) {
    const int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        int64_t left = deadline - nowMs();
        const ipcHdr* hdr = channelReceive(channel, left > 0 ? static_cast<int>(left) : 0);
        if (hdr != nullptr && hdr->sequence == sequence) return true;
        if (hdr != nullptr) channel->strays++;  // a late answer to an earlier request
        if (left <= 0) return false;
    }
}

askResult channelAsk(cliChannel* channel, const void* request, size_t length, int timeoutMs) {
    const auto* front = static_cast<const uint8_t*>(request);
    std::vector<uint8_t> bytes(front, front + length);
    auto* hdr = wireView<ipcHdr>(std::span(bytes));
    // Only the manager's platform can be asked what became of a request; others, such as chassisd,
    // are asked once.
    const bool toManager = hdr->source.card == channel->card &&
                           hdr->source.svce == aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    bool sent = false, told = false;
    // A round is: send if it has not been sent, wait, then ask what has become of it.
    for (uint32_t repeats = 0;;) {
        const zekSendResult result =
            sent ? zekSendResult::sent
                 : zekEndpointSend(channel->endpoint, bytes.data(), length, timeoutMs);
        if (result == zekSendResult::nobody) return askResult::unreachable;
        if (result == zekSendResult::failed) return askResult::failed;
        sent = result == zekSendResult::sent;
        if (sent && awaitAnswer(channel, hdr->sequence, timeoutMs)) return askResult::answered;
        if (!toManager) return askResult::noAnswer;
        const requestFate fate = channelFate(*channel, hdr->sequence, timeoutMs);
        if (fate == requestFate::silent) return askResult::noAnswer;
        // Marked as repeated, so that the manager does not execute twice what it had executed after
        // all.
        if (fate == requestFate::lost && sent) {
            if (repeats++ == ASK_AGAIN_MAX) return askResult::noAnswer;
            requestRepeat(hdr);
            sent = false;
        } else if (!std::exchange(told, true) && channel->stillWorking) {
            channel->stillWorking();
        }
    }
}

std::string statusText(uint32_t status) {
    if (const aclStatusRow* row = aclStatusFind(status)) return row->text;
    // A status without a sentence: its number is all that can be said.
    constexpr char digits[] = "0123456789abcdef";
    std::string text = "The manager answered with the unknown status 0x";
    for (int shift = 28; shift >= 0; shift -= 4) text += digits[(status >> shift) & 15];
    return text;
}

std::string askText(askResult result, int timeoutMs) {
    switch (result) {
        case askResult::answered:
            return "Done";
        case askResult::noAnswer: {
            char text[80];
            std::snprintf(text, sizeof text, "No answer from the manager within %g s",
                          timeoutMs / 1000.0);
            return text;
        }
        case askResult::unreachable:
            return "The manager cannot be reached (is aclmgr running?)";
        case askResult::failed:
            break;
    }
    return "The request could not be sent";
}

std::string changeText(askResult result, int timeoutMs) {
    std::string text = askText(result, timeoutMs);
    if (result == askResult::noAnswer) text += "; whether the line was taken is not known";
    return text;
}

int64_t nowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}
