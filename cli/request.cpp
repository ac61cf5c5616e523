#include "cli/request.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>

#include "include/service.h"
#include "include/status.h"
#include "platform/api/zekChassis.h"

namespace {

// What a verb sends. A row with a message type of its own is plain IPC: a header and no body.
struct requestRow {
    cliVerb verb;
    bool negated;
    uint32_t mtype;
    uint32_t code;
    size_t length;
};
constexpr requestRow requestTable[] = {
    {cliVerb::list, false, MT_CLI_COMMAND, CLI_IP_LIST_CREATE, sizeof(cliListReq)},
    {cliVerb::list, true, MT_CLI_COMMAND, CLI_IP_LIST_DELETE, sizeof(cliListReq)},
    {cliVerb::traceList, false, MT_CLI_COMMAND, CLI_DOS_LIST_CREATE, sizeof(cliListReq)},
    {cliVerb::traceList, true, MT_CLI_COMMAND, CLI_DOS_LIST_DELETE, sizeof(cliListReq)},
    {cliVerb::traceGroup, false, MT_CLI_COMMAND, CLI_DOS_ENABLE, sizeof(cliHdr)},
    {cliVerb::traceGroup, true, MT_CLI_COMMAND, CLI_DOS_DISABLE, sizeof(cliHdr)},
    {cliVerb::entry, false, MT_CLI_COMMAND, CLI_IP_ENTRY_ADD, sizeof(cliIpEntryReq)},
    {cliVerb::entry, true, MT_CLI_COMMAND, CLI_IP_ENTRY_DELETE, sizeof(cliIpEntryReq)},
    {cliVerb::traceEntry, false, MT_CLI_COMMAND, CLI_DOS_ENTRY_ADD, sizeof(cliIpEntryReq)},
    {cliVerb::traceEntry, true, MT_CLI_COMMAND, CLI_DOS_ENTRY_DELETE, sizeof(cliIpEntryReq)},
    {cliVerb::accessGroup, false, MT_CLI_COMMAND, CLI_IP_BIND, sizeof(cliBindReq)},
    {cliVerb::accessGroup, true, MT_CLI_COMMAND, CLI_IP_UNBIND, sizeof(cliUnbindReq)},
    {cliVerb::clearCounters, false, MT_CLI_COMMAND, CLI_CLEAR_IP_ACL_ALL, sizeof(cliHdr)},
    {cliVerb::maskMode, false, MT_ACL_INVERSEMASK_ENABLE, 0, sizeof(ipcHdr)},
    {cliVerb::maskMode, true, MT_ACL_INVERSEMASK_DISABLE, 0, sizeof(ipcHdr)},
};

// A cookie that no reply buffer can show in the same place: neither 0 nor SHOW_MARKER.
constexpr uint32_t cookieOf(uint32_t sequence) {
    return 0x80000000u | sequence;
}

// To the manager.
void stamp(cliChannel* channel, ipcHdr* hdr, uint32_t mtype, size_t length) {
    requestAddress(channel, hdr, mtype, length, channel->card,
                   aclServicePort(APP_ACL, 0, QUEUE_REQUEST));
}

void fillBinding(const cliCommand& command, uint32_t ifindex, cliBindReq* request) {
    request->cli.name = listNameMake(command.name);
    request->ifindex = ifindex;
    request->direction = command.direction;
    if (command.negated) return;
    request->implicitPermit = command.implicitPermit;
    request->writeConfig = 1;
    request->vlanOption = command.vlans.empty() ? 0 : 1;
    command.vlans.copy(request->vlanText, sizeof request->vlanText - 1);
}

}  // namespace

bool channelOpen(cliChannel* channel, const std::string& runDir, const std::string& chassisFile,
                 uint32_t rp, std::string* error) {
    chassisDescription chassis;
    if (!zekChassisLoad(chassisFile, &chassis, error)) return false;
    if (rp >= chassis.routeProcessors.size()) {
        *error = chassisFile + " has no route processor " + std::to_string(rp);
        return false;
    }
    channel->card = chassis.routeProcessors[rp].address;
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
    const auto* row = std::ranges::find_if(requestTable, [&](const requestRow& r) {
        return r.verb == command.verb && r.negated == command.negated;
    });
    if (row == std::end(requestTable)) return false;
    std::memset(request, 0, row->length);
    stamp(channel, &request->ipc, row->mtype, row->length);
    *length = row->length;
    if (row->length == sizeof(ipcHdr)) return true;

    request->cli.cookie = cookieOf(request->ipc.sequence);
    request->cli.code = row->code;
    if (row->verb == cliVerb::clearCounters && !command.name.empty())
        request->cli.code = CLI_CLEAR_IP_ACL;
    if (row->verb == cliVerb::accessGroup) {
        fillBinding(command, scope.ifindex, &request->bind);
        return true;
    }
    if (row->length == sizeof(cliListReq)) request->list.kind = command.kind;
    if (row->length != sizeof(cliIpEntryReq)) {
        request->cli.name = listNameMake(command.name);
        return true;
    }
    request->cli.name = scope.list;
    request->entry.log = command.log;
    request->entry.monitor = command.monitor;
    request->entry.block = command.block;
    return true;
}

void requestShow(cliChannel* channel, aclCliCode code, const listName& name, cliShowReq* request) {
    *request = {};
    stamp(channel, &request->cli.ipc, MT_CLI_COMMAND, sizeof *request);
    request->cli.cookie = cookieOf(request->cli.ipc.sequence);
    request->cli.code = code;
    request->cli.name = name;
    request->name = name;
}

const ipcHdr* channelReceive(cliChannel* channel, int timeoutMs) {
    int n =
        zekEndpointRecv(channel->endpoint, &channel->message, ZEK_MESSAGE_MAX, timeoutMs, nullptr);
    if (n == 0) return nullptr;
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
        *result = ACL_OK;  // plain IPC: the answer is the header
        return true;
    }
    const auto* cli = wireView<cliHdr>(bytes);
    if (cli == nullptr || cli->cookie != cookieOf(cli->ipc.sequence)) return false;
    *result = cli->result;
    return true;
}

bool answerText(const cliChannel& channel, uint32_t cookie, std::string_view* text, listName* shown,
                uint32_t* result) {
    std::span<const uint8_t> bytes(channel.message);
    *result = ACL_E_SYSTEM;
    const auto* front = wireView<showReplyHdr>(bytes);
    if (front == nullptr) return false;
    if (front->marker == cookie) {
        const auto* cli = wireView<cliHdr>(bytes);
        if (cli != nullptr) *result = cli->result;
        return false;
    }
    *result = ACL_OK;
    *shown = listNameMake(front->name);
    *text = {reinterpret_cast<const char*>(bytes.data()) + SHOW_TEXT_OFFSET,
             bytes.size() - SHOW_TEXT_OFFSET};
    *text = text->substr(0, text->find('\0'));
    return true;
}

askResult channelAsk(cliChannel* channel, const void* request, size_t length, int timeoutMs) {
    uint32_t sequence = static_cast<const ipcHdr*>(request)->sequence;
    int64_t deadline = nowMs() + timeoutMs;
    switch (zekEndpointSend(channel->endpoint, request, length, timeoutMs)) {
        case zekSendResult::sent:
            break;
        case zekSendResult::full:
            return askResult::noAnswer;
        case zekSendResult::nobody:
            return askResult::unreachable;
        case zekSendResult::failed:
            return askResult::failed;
    }
    for (;;) {
        int64_t left = deadline - nowMs();
        const ipcHdr* hdr = channelReceive(channel, left > 0 ? static_cast<int>(left) : 0);
        if (hdr != nullptr && hdr->sequence == sequence) return askResult::answered;
        if (hdr != nullptr) channel->strays++;  // a late answer to an earlier request
        if (left <= 0) return askResult::noAnswer;
    }
}

std::string statusText(uint32_t status) {
    if (const aclStatusRow* row = aclStatusFind(status)) return row->text;
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

int64_t nowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}
