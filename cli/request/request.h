// The shell's road to the manager: building CLI messages and matching their answers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cli/grammar/grammar.h"
#include "include/cliMsg.h"
#include "platform/api/zekTransport.h"

// An endpoint of this process and the manager that it talks to.
struct cliChannel {
    zekEndpoint* endpoint = nullptr;
    uint32_t card = 0;     // address of the route processor: ours and the manager's
    uint32_t service = 0;  // our service number
    uint32_t nextSequence =
        0;               // starts at random: answers to a predecessor with our pid stay strange
    std::string runDir;  // of the manager, where it is asked what has become of a request
    uint32_t rp = 0;
    std::function<void()> stillWorking;  // told when a request takes longer than its time
    uint64_t strays = 0;                 // messages that answered nothing that is open
    std::vector<uint8_t> message;        // the last one received

    cliChannel() = default;
    cliChannel(const cliChannel&) = delete;
    ~cliChannel() { zekEndpointClose(endpoint); }
};

// Opens the channel to the manager of route processor `rp`. False with *error.
bool channelOpen(cliChannel* channel, const std::string& runDir, const std::string& chassisFile,
                 uint32_t rp, std::string* error);

// The largest request that requestBuild makes.
union cliRequest {
    ipcHdr ipc;
    cliHdr cli;
    cliListReq list;
    cliIpEntryReq entry;
    cliIp6EntryReq entry6;
    cliMacEntryReq entryMac;
    cliRemarkReq remark;
    cliDescriptionReq description;
    cliReseqReq resequence;
    cliBindReq bind;
    cliGroupReq group;
    cliSourceGuardReq guard;
    cliPrefix4Req prefix4;
    cliPrefix6Req prefix6;
    cliPrefixReseqReq prefixResequence;
    cliAspathReq aspath;
    cliCommReq community;
    cliExtCommReq extCommunity;
    cliRmapReq routeMap;
    cliRmapDeleteReq routeMapDelete;
    cliRmapClauseReq clause;
};
// What the lines of the current mode act on.
struct cliScope {
    listName list{};
    uint32_t ifindex = 0;
    uint32_t seq = 0;     // of a route map's instance
    uint32_t action = 0;  // of that instance
};
// Writes what a command says behind the front of its request, which is zero; the front has the name
// that the command gives (policyRequest.cpp for routing-policy lists).
typedef void (*requestFill)(const cliCommand& command, const cliScope& scope, cliRequest* request);
void fillList(const cliCommand&, const cliScope&, cliRequest*);
void fillEntry(const cliCommand&, const cliScope&, cliRequest*);
void fillResequence(const cliCommand&, const cliScope&, cliRequest*);
void fillPrefix4(const cliCommand&, const cliScope&, cliRequest*);
void fillPrefix6(const cliCommand&, const cliScope&, cliRequest*);
void fillAspath(const cliCommand&, const cliScope&, cliRequest*);
void fillCommunity(const cliCommand&, const cliScope&, cliRequest*);
void fillExtCommunity(const cliCommand&, const cliScope&, cliRequest*);
void fillRouteMap(const cliCommand&, const cliScope&, cliRequest*);
void fillRouteMapDelete(const cliCommand&, const cliScope&, cliRequest*);
void fillClause(const cliCommand&, const cliScope&, cliRequest*);
void fillPrefixResequence(const cliCommand&, const cliScope&, cliRequest*);

// The request of a command: *length its bytes. False when the command is not one that goes to the
// manager in one message.
bool requestBuild(cliChannel* channel, const cliCommand& command, const cliScope& scope,
                  cliRequest* request, size_t* length);
// A show of one list, or of the list behind the cursor `name`; detail and resume as the list's kind
// reads them.
void requestShow(cliChannel* channel, uint32_t code, const listName& name, uint32_t detail,
                 uint32_t resume, cliShowReq* request);

// Fills the header of a request to another task than the manager.
void requestAddress(cliChannel* channel, ipcHdr* hdr, uint32_t mtype, size_t length, uint32_t card,
                    uint32_t service);

// The sequence number that a request was given; its answer carries the same.
inline uint32_t requestSequence(const ipcHdr& request) {
    return request.sequence;
}

// Receives one message for us into channel->message; waits at most timeoutMs. Null when there was
// none (or only strange ones); the record lives until the next call.
const ipcHdr* channelReceive(cliChannel* channel, int timeoutMs);

// The result that an answer carries; false when the message is too short to be one.
bool answerResult(const cliChannel& channel, uint32_t* result);
// Whether the running configuration can show the line that the answered change has made.
bool answerIsShown(const cliChannel& channel);
constexpr std::string_view NOT_SHOWN_TEXT =
    "Warning: the line is kept, also over restarts, but is too long to be shown: a saved "
    "configuration does not have it";
// The number of the instance that an answer to a route map's header names; else *seq is kept.
void answerInstance(const cliChannel& channel, uint32_t* seq);
// The text of an answer to a show; false when the answer is a refusal, whose code is *result.
// *resume: where a list that is not done goes on; 0 when it is, or is shown whole.
bool answerText(const cliChannel& channel, uint32_t cookie, std::string_view* text, listName* shown,
                uint32_t* resume, uint32_t* result);

// What has become of a request to the manager whose answer is overdue. The manager's platform says
// so, also while the manager is busy; silent: not even that answers within the time.
// Lost covers what was dropped from a full queue and what a restarted manager has never seen.
enum class requestFate { underWay, lost, silent };
requestFate channelFate(const cliChannel& channel, uint32_t sequence, int timeoutMs);
// A lost request is sent again so often, marked so that it is not executed twice.
constexpr uint32_t ASK_AGAIN_MAX = 3;
inline void requestRepeat(ipcHdr* request) {
    request->ramCode = IPC_REPEATED;
}

enum class askResult { answered, noAnswer, unreachable, failed };
// Sends one request and waits for its answer, which is then in channel->message. The time counts
// anew while the manager has the request under way, or could not read it yet but lives.
askResult channelAsk(cliChannel* channel, const void* request, size_t length, int timeoutMs);

// What the operator reads about a status or a failed exchange.
std::string statusText(uint32_t status);
std::string askText(askResult result, int timeoutMs);
// The same about a change, which may have been made.
std::string changeText(askResult result, int timeoutMs);

// Milliseconds on a clock that never jumps.
int64_t nowMs();
