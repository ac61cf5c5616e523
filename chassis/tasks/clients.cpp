// The clients of lists among the tasks: triggers and copies as they come, and the commands to them.
#include "chassis/tasks/clients.h"

#include <poll.h>
#include <strings.h>

#include <algorithm>

#include "chassis/tasks/peers.h"
#include "include/mgmtMsg.h"
#include "include/service.h"

namespace {

constexpr size_t LISTS_MAX = 4096;  // remembered of each sort
constexpr int REGISTER_MS = 8000;   // the shell waits for 10 s
constexpr uint64_t ASK_AGAIN_MS = 1000;

// Management tasks get copies of lists over queues that they ask for; each by a message of its own.
constexpr struct {
    uint32_t app, mtype;
} queueTypes[] = {
    {APP_SNMP, MT_SNMP_REGISTER}, {APP_IPM, MT_IPM_REGISTER}, {APP_SYSADM, MT_SYSADM_REGISTER}};

uint32_t queueTypeOf(const chassisPeer& peer) {
    for (const auto& row : queueTypes)
        if (row.app == peer.kind->app) return row.mtype;
    return 0;
}
bool usesLists(const chassisPeer& peer) {
    return peer.kind->handle == clientRouting || peer.kind->handle == clientQueued ||
           peer.kind->handle == clientManagement;
}

// --- triggers ------------------------------------------------------------------------------------

// Counted by type and name; the pairs of the newest one stand for the list's. What is too much to
// remember is still answered, or the manager would wait.
bool noteTrigger(clientState* client, std::span<const uint8_t> message) {
    aclTriggerText trigger;
    if (!aclTriggerRead(message, &trigger)) return false;
    auto known = std::ranges::find_if(client->triggers, [&](const clientTriggers& t) {
        return t.mtype == trigger.mtype && t.name == trigger.name;
    });
    if (known == client->triggers.end()) {
        if (client->triggers.size() >= LISTS_MAX) return true;
        client->triggers.push_back({trigger.mtype, std::string(trigger.name), 0, 0});
        known = client->triggers.end() - 1;
    }
    known->count++;
    known->pairs = trigger.pairs.size();
    return true;
}

// The answer that a late client owes comes when nobody waits for it any more.
void answerKept(chassisPeer& peer) {
    if (peer.client.kept.empty()) return;
    (void)aclTriggerAnswer(peer.endpoint, peer.client.kept, 0);
    peer.client.kept.clear();
}

// --- copies --------------------------------------------------------------------------------------

struct copyType {
    uint32_t mtype;
    bool ipv6;
    enum { whole, added, removed, gone } what;
};
constexpr copyType copyTypes[] = {
    {MT_ACL_ADDLIST, false, copyType::whole},    {MT_ACL_ADDENT, false, copyType::added},
    {MT_ACL_DELENT, false, copyType::removed},   {MT_ACL_DELLIST, false, copyType::gone},
    {MT_ACL_V6_ADDLIST, true, copyType::whole},  {MT_ACL_V6_ADDENT, true, copyType::added},
    {MT_ACL_V6_DELENT, true, copyType::removed}, {MT_ACL_V6_DELLIST, true, copyType::gone},
};

// The entries that a copy message carries; false when it is not whole.
bool readEntries(std::span<const uint8_t> message, const copyType& type,
                 std::vector<clientCopyEntry>* entries) {
    const auto* head = wireView<mgmtMsg>(message);
    if (head == nullptr) return false;
    const uint32_t count = head->list.count;
    if (count > MGMT_CHUNK || message.size() != sizeof *head + count * sizeof(mgmtEntryImage))
        return false;
    for (uint32_t i = 0; i < count; i++) {
        const size_t at = sizeof *head + i * sizeof(mgmtEntryImage);
        if (type.ipv6) {
            const auto& entry = wireView<mgmtEntryImage6>(message, at)->entry;
            entries->push_back({entry.id, entry.block.seq});
        } else {
            const auto* entry = wireView<mgmtEntryImage>(message, at);
            entries->push_back({entry->id, entry->block.seq});
        }
    }
    return true;
}

// A whole list may come in several messages that do not say so: one goes on from the one before
// when that was full and nothing comes twice.
bool continues(const clientCopy& copy, const std::vector<clientCopyEntry>& entries) {
    if (copy.lastCarried != MGMT_CHUNK || copy.entries.empty()) return false;
    return entries.empty() || entries.front().seq > copy.entries.back().seq;
}

void applyCopy(clientCopy* copy, const copyType& type, std::vector<clientCopyEntry> entries) {
    copy->messages++;
    // What does not go on from the message before replaces the copy.
    if (type.what == copyType::whole) {
        if (!continues(*copy, entries)) copy->entries.clear();
        copy->lastCarried = static_cast<uint32_t>(entries.size());
        copy->entries.insert(copy->entries.end(), entries.begin(), entries.end());
        return;
    }
    copy->lastCarried = 0;
    for (const clientCopyEntry& entry : entries) {
        std::erase_if(copy->entries, [&](const clientCopyEntry& e) { return e.seq == entry.seq; });
        if (type.what == copyType::added)
            copy->entries.insert(
                std::ranges::upper_bound(copy->entries, entry.seq, {}, &clientCopyEntry::seq),
                entry);
    }
}

bool takeCopy(clientState* client, std::span<const uint8_t> message) {
    const uint32_t mtype = wireView<ipcHdr>(message)->mtype;
    const auto* type = std::ranges::find(copyTypes, mtype, &copyType::mtype);
    std::vector<clientCopyEntry> entries;
    if (type == std::ranges::end(copyTypes) || !readEntries(message, *type, &entries)) return false;
    const char* text = wireView<mgmtMsg>(message)->list.name;
    const std::string name(text, strnlen(text, LIST_NAME_LEN));
    auto copy = std::ranges::find_if(client->copies, [&](const clientCopy& c) {
        return c.ipv6 == type->ipv6 && c.name == name;
    });
    if (type->what == copyType::gone) {
        if (copy != client->copies.end()) client->copies.erase(copy);
        return true;
    }
    if (copy == client->copies.end()) {
        if (client->copies.size() >= LISTS_MAX) return true;
        client->copies.push_back({type->ipv6, name, {}, 0, 0});
        copy = client->copies.end() - 1;
    }
    applyCopy(&*copy, *type, std::move(entries));
    return true;
}

// --- commands ------------------------------------------------------------------------------------

// "BGP", or "IPM-2" for an instance; in any case of letters.
chassisPeer* findPeer(std::vector<chassisPeer>* peers, const std::string& task) {
    for (chassisPeer& peer : *peers) {
        std::string name = peer.kind->name;
        const bool bare = peer.instance == 0 && strcasecmp(name.c_str(), task.c_str()) == 0;
        name += "-" + std::to_string(peer.instance);
        if (usesLists(peer) && (bare || strcasecmp(name.c_str(), task.c_str()) == 0)) return &peer;
    }
    return nullptr;
}

// Other tasks' triggers, too, may stand between the manager and its reply.
bool serveUntil(std::vector<chassisPeer>* peers, int fd, int timeoutMs) {
    std::vector<pollfd> fds{{fd, POLLIN, 0}};
    for (const chassisPeer& peer : *peers) fds.push_back({zekEndpointFd(peer.endpoint), POLLIN, 0});
    if (poll(fds.data(), fds.size(), timeoutMs) <= 0) return false;
    for (size_t i = 0; i < peers->size(); i++)
        if ((fds[i + 1].revents & POLLIN) != 0) peerServe((*peers)[i]);
    return (fds[0].revents & POLLIN) != 0;
}

// The library's words for it as those of the control protocol.
uint32_t statusOf(aclClientResult result) {
    switch (result) {
        case ACL_CLIENT_OK:
            return CHASSIS_OK;
        case ACL_CLIENT_REFUSED:
            return CHASSIS_REFUSED;
        case ACL_CLIENT_NO_REPLY:
            return CHASSIS_SILENT;
        case ACL_CLIENT_NOT_SENT:
            return CHASSIS_NOBODY;
        default:
            return CHASSIS_BAD;
    }
}

void askForQueue(chassisPeer& peer, uint32_t managerCard, uint64_t nowMs) {
    ipcHdr request{};
    request.length = sizeof request;
    request.mtype = queueTypeOf(peer);
    request.target.card = peer.address;
    request.target.svce = aclServicePort(peer.kind->app, peer.instance, QUEUE_REQUEST);
    request.source.card = managerCard;
    request.source.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    (void)zekEndpointSend(peer.endpoint, &request, sizeof request, 0);
    peer.client.askAt = nowMs + ASK_AGAIN_MS;
}

uint32_t changeRegistration(std::vector<chassisPeer>* peers, chassisPeer* peer,
                            const std::string& runDir, uint32_t managerCard, bool add,
                            const clientRegistration& wanted, uint64_t nowMs) {
    clientState& client = peer->client;
    aclClientKey& key = client.key;
    key.managerCard = managerCard;
    // The response queue is opened with the first registration: most tasks never have one.
    if (key.endpoint == nullptr) {
        key.runDir = runDir;
        key.application = peer->kind->app;
        key.instance = peer->instance;
        key.card = peer->address;
        key.replyMs = REGISTER_MS;
        key.wait = [peers](int fd, int timeoutMs) { return serveUntil(peers, fd, timeoutMs); };
        std::string error;
        if (!aclClientOpen(&key, &error)) return CHASSIS_FAILED;
    }
    // The manager may have started anew since it made the queue.
    if (queueTypeOf(*peer) != 0) askForQueue(*peer, managerCard, nowMs);
    const uint32_t status =
        statusOf(aclClientRegister(*wanted.kind, add, &key, peer->instance, wanted.name));
    // Only what the manager has taken is shown as registered.
    if (status == CHASSIS_OK) {
        std::erase(client.registrations, wanted);
        if (add) client.registrations.push_back(wanted);
    }
    return status;
}

struct rowWriter {
    std::string rows;
    void row(const chassisPeer& peer, const char* what, const char* kind, const std::string& list,
             uint64_t count, const std::string& detail) {
        rows += rows.empty() ? "" : ",";
        rows += jsonObject{}
                    .string("task", peer.kind->name)
                    .number("instance", peer.instance)
                    .string("what", what)
                    .string("kind", kind)
                    .string("list", list)
                    .number("count", count)
                    .string("detail", detail)
                    .text();
    }
};

constexpr const char* behaviours[] = {"answers", "silent", "late", "wrong sequence"};

std::string copyText(const clientCopy& copy) {
    std::string text = std::to_string(copy.messages) + " messages";
    if (copy.entries.empty()) return text;
    return "seq " + std::to_string(copy.entries.front().seq) + " to " +
           std::to_string(copy.entries.back().seq) + ", " + text;
}

std::string showClients(const std::vector<chassisPeer>& peers) {
    rowWriter out;
    for (const chassisPeer& peer : peers) {
        const clientState& client = peer.client;
        if (client.behaviour != CLIENT_ANSWERS)
            out.row(peer, "behaviour", "", "", 0, behaviours[client.behaviour]);
        if (client.strange != 0)
            out.row(peer, "messages that make no sense", "", "", client.strange, "");
        for (const clientRegistration& r : client.registrations)
            out.row(peer, "registered", r.kind->name, r.name, 1, "");
        for (const clientTriggers& t : client.triggers) {
            const auto kinds = aclClientKinds();
            const auto kind = std::ranges::find(kinds, t.mtype, &aclClientKind::trigger);
            out.row(peer, "triggers", kind->name, t.name, t.count,
                    t.pairs == 0 ? "" : std::to_string(t.pairs) + " pairs");
        }
        for (const clientCopy& copy : client.copies)
            out.row(peer, "copy", copy.ipv6 ? "ipv6" : "ip", copy.name, copy.entries.size(),
                    copyText(copy));
    }
    return "[" + out.rows + "]";
}

}  // namespace

void clientRouting(chassisPeer& peer, std::vector<uint8_t>& message) {
    clientState& client = peer.client;
    answerKept(peer);
    if (!noteTrigger(&client, message)) {
        client.strange++;
        return;
    }
    // A silent client has read its trigger: only the answer is missing.
    if (client.behaviour == CLIENT_SILENT) return;
    if (client.behaviour == CLIENT_LATE) {
        client.kept = message;  // until the next one comes
        return;
    }
    auto* hdr = wireView<ipcHdr>(std::span(message));
    if (client.behaviour == CLIENT_WRONG_SEQUENCE) hdr->sequence = hdr->sequence + 1;
    (void)aclTriggerAnswer(peer.endpoint, message, 0);
}

void clientQueued(chassisPeer& peer, std::vector<uint8_t>& message) {
    // It has been acknowledged all the same, or the manager would send it for ever.
    if (!noteTrigger(&peer.client, message)) peer.refused++;
}

void clientManagement(chassisPeer& peer, std::vector<uint8_t>& message) {
    const uint32_t mtype = wireView<ipcHdr>(std::span(message))->mtype;
    if (mtype == queueTypeOf(peer))
        peer.client.queueAsked = true;
    else if (!takeCopy(&peer.client, message))
        clientRouting(peer, message);
}

uint64_t clientsTick(std::vector<chassisPeer>* peers, uint32_t managerCard, uint64_t nowMs) {
    uint64_t next = UINT64_MAX;
    for (chassisPeer& peer : *peers) {
        if (queueTypeOf(peer) == 0 || peer.client.queueAsked) continue;
        if (peer.client.askAt <= nowMs) askForQueue(peer, managerCard, nowMs);
        next = std::min(next, peer.client.askAt);
    }
    return next;
}

clientOutcome clientsCommand(std::vector<chassisPeer>* peers, const std::string& runDir,
                             uint32_t managerCard, const chassisClientReq& request,
                             uint64_t nowMs) {
    clientOutcome result{CHASSIS_OK, {}};
    if (request.command == CHASSIS_CLIENT_SHOW) {
        result.text.raw("rows", showClients(*peers));
        return result;
    }
    chassisPeer* peer =
        findPeer(peers, std::string(request.task, strnlen(request.task, sizeof request.task)));
    if (peer == nullptr) return {CHASSIS_NO_TASK, {}};
    if (request.command == CHASSIS_CLIENT_BEHAVE) {
        if (request.argument >= std::size(behaviours)) return {CHASSIS_BAD, {}};
        answerKept(*peer);
        peer->client.behaviour = request.argument;
        return result;
    }
    const auto kinds = aclClientKinds();
    if (request.argument >= kinds.size()) return {CHASSIS_BAD, {}};
    const listName name = listNameMake(request.name);
    const clientRegistration wanted{&kinds[request.argument], std::string(listNameView(name))};
    result.status = changeRegistration(peers, peer, runDir, managerCard,
                                       request.command == CHASSIS_CLIENT_REGISTER, wanted, nowMs);
    return result;
}
