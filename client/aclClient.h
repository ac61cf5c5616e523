// For tasks that use the manager's lists by name: registering, taking the registration back, and
// reading and answering the triggers that tell of changes. Needs nothing of the manager but its
// messages; docs/wire-formats.md says how to do the same without this library.
//
// A task registers for a name whether the list exists or not, once per name. Each change of the
// list then comes as a trigger to the task's own request queue, which the task reads itself: it
// answers with aclTriggerAnswer before it does anything else, because the manager waits for the
// answer, and holds its lock while it waits. Registrations end with the manager's process: register
// anew when it has started again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct zekEndpoint;

// How long a registration waits for the manager's reply: longer than the manager itself may be held
// by one client that does not answer its trigger.
constexpr int ACL_CLIENT_REPLY_MS = 15000;

// One client task. Fill the first fields, then call aclClientOpen; one thread at a time.
struct aclClientKey {
    std::string runDir;
    uint32_t application = 0, instance = 0;  // the task's own
    uint32_t card = 0;                       // its card address
    uint32_t managerCard = 0;                // the primary route processor's
    int replyMs = ACL_CLIENT_REPLY_MS;
    // Waits until the descriptor can be read or the time is over: true when it can. Without one the
    // library polls. A task that serves its request queue here answers triggers in the meantime;
    // else a trigger that crosses the registration holds both sides until one gives up.
    std::function<bool(int fd, int timeoutMs)> wait;

    zekEndpoint* endpoint = nullptr;  // the task's response queue; the library's
    uint32_t sequence = 0;
};
// Opens the task's response queue. False with *error when another process holds it.
[[nodiscard]] bool aclClientOpen(aclClientKey* key, std::string* error);
void aclClientClose(aclClientKey* key);

enum aclClientResult : int {
    ACL_CLIENT_OK = 0,
    ACL_CLIENT_REFUSED = 1,   // the manager could not: no memory, or lists of a kind it has not
    ACL_CLIENT_NO_REPLY = 2,  // none in time; it may have been done or not
    ACL_CLIENT_NOT_SENT = 3,  // the manager is not there
    ACL_CLIENT_BAD_NAME = 4,  // empty, or longer than 140 characters; nothing was sent
};

// `instance` is the client's own, and comes back with every trigger.
aclClientResult regAcl(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregAcl(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult regPrefix(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregPrefix(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult regAsp(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregAsp(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult regComm(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregComm(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult regRmap(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregRmap(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult regMac(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregMac(aclClientKey* key, uint32_t instance, std::string_view name);
// IPv6 lists.
aclClientResult regAclV6(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregAclV6(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult regPrefixV6(aclClientKey* key, uint32_t instance, std::string_view name);
aclClientResult deregPrefixV6(aclClientKey* key, uint32_t instance, std::string_view name);

// What all of them call: sends a body (the bytes behind the header) and waits for the reply. Also
// for tasks that register pairs: set the count in the first word and append 64 bytes a pair.
aclClientResult sendIPCtoACL(uint32_t mtype, aclClientKey* key, std::span<const uint8_t> body);

// --- kinds of lists ------------------------------------------------------------------------------

struct aclClientKind {
    const char* name;   // "ip", "ipv6", "prefix", ...
    uint32_t add, del;  // message types of the registration
    uint32_t trigger;   // message type of the trigger; IPv4 and IPv6 prefix lists share theirs
};
[[nodiscard]] std::span<const aclClientKind> aclClientKinds();
// Registers for a kind of aclClientKinds, or takes it back.
aclClientResult aclClientRegister(const aclClientKind& kind, bool add, aclClientKey* key,
                                  uint32_t instance, std::string_view name);

// --- triggers ------------------------------------------------------------------------------------

struct aclTriggerText {
    uint32_t mtype;
    uint32_t application, instance;  // whom it tells
    std::string_view name;           // of the list; a view into the message
    std::vector<std::pair<uint32_t, uint32_t>> pairs;
};
// Reads a received message; false when it is no trigger, or not whole.
[[nodiscard]] bool aclTriggerRead(std::span<const uint8_t> message, aclTriggerText* trigger);
// Answers it from the task's request queue: 0, or a status of the task's own that the manager
// keeps. Triggers of tasks with a queue of their own (SWP) are not answered but acknowledged.
bool aclTriggerAnswer(zekEndpoint* requestQueue, std::span<const uint8_t> message, uint32_t status);
