// Registrations of clients (types 14442 to 14457): one row per kind of list.
#include <algorithm>
#include <array>
#include <iterator>

#include "common/clientWait.h"
#include "common/clients.h"
#include "include/clientMsg.h"
#include "include/service.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

constexpr uint32_t MCAST_CLIENTS[] = {APP_IGMP, APP_PIM, APP_MCAST};
constexpr size_t PAIRS_MAX = (IPC_BUFFER_SIZE - CLIENT_PAIRS_AT) / sizeof(clientRegPair);

struct registration {
    uint32_t application, instance;
    listName name;
    uint32_t callback;
    std::span<const clientPairValue> pairs;
    uint32_t family;  // the row's
};

// Their wrappers say in debug output that it is one of them; what they do is the same.
bool isMcast(const registration& r) {
    return std::ranges::find(MCAST_CLIENTS, r.application) != std::ranges::end(MCAST_CLIENTS);
}

// Each kind of list in its wrappers' words. True: done.
bool aclAdd(const registration& r) {
    const aclList* list =
        isMcast(r)
            ? aclAddTaskMcastClientExt(r.application, r.instance, r.name, r.callback, r.family)
            : aclAddTaskClientExt(r.application, r.instance, r.name, r.callback, r.family);
    return list != nullptr;
}
bool aclDel(const registration& r) {
    const int result = isMcast(r)
                           ? aclDelTaskMcastClientExt(r.application, r.instance, r.name, r.family)
                           : aclDelTaskClientExt(r.application, r.instance, r.name, r.family);
    return result == 0;
}
bool prefixAdd(const registration& r) {
    return prefixAddTaskClientExt(r.application, r.instance, r.name, r.pairs, r.callback,
                                  r.family) == 0;
}
bool prefixDel(const registration& r) {
    return prefixDelTaskClientExt(r.application, r.instance, r.name, r.pairs, r.family) == 0;
}
bool aspathAdd(const registration& r) {
    return aspAddTaskClientExt(r.application, r.instance, r.name, r.callback, r.pairs) == 0;
}
bool aspathDel(const registration& r) {
    return aspDelTaskClientExt(r.application, r.instance, r.name, r.pairs) == 0;
}
// The only kind without pairs.
bool commAdd(const registration& r) {
    return commAddTaskClientExt(r.application, r.instance, r.name, r.callback) == 0;
}
bool commDel(const registration& r) {
    return commDelTaskClientExt(r.application, r.instance, r.name) == 0;
}
bool rmapAdd(const registration& r) {
    return rmapAddTaskClientExt(r.application, r.instance, r.name, r.pairs, r.callback) == 0;
}
bool rmapDel(const registration& r) {
    return rmapDelTaskClientExt(r.application, r.instance, r.name, r.pairs) == 0;
}

bool macAdd(const registration& r) {
    return l2AclAddTaskClientExt(r.application, r.instance, r.name, r.callback) != nullptr;
}
bool macDel(const registration& r) {
    return l2AclDelTaskClientExt(r.application, r.instance, r.name) == 0;
}

struct clientRow {
    uint32_t addType;  // the type behind it takes the client back
    bool (*add)(const registration& r);
    bool (*del)(const registration& r);
    uint32_t family = 0;  // counted from 1, unlike that of the list operations
};
constexpr clientRow clientTable[] = {
    {MT_ACL_CLIENT_ADD, aclAdd, aclDel, AF_IPV4},
    {MT_V6_ACL_CLIENT_ADD, aclAdd, aclDel, AF_IPV6},
    {MT_PREFIX_CLIENT_ADD, prefixAdd, prefixDel, AF_IPV4},
    {MT_V6_PREFIX_CLIENT_ADD, prefixAdd, prefixDel, AF_IPV6},
    {MT_ASPATH_CLIENT_ADD, aspathAdd, aspathDel},
    {MT_COMM_CLIENT_ADD, commAdd, commDel},
    {MT_RMAP_CLIENT_ADD, rmapAdd, rmapDel},
    {MT_MAC_CLIENT_ADD, macAdd, macDel},
};
static_assert(MT_CLIENT_FIRST % 2 == 0);  // so a registration has an even type

// The pairs that a registration carries; false when it states more than came.
bool readPairs(const uint8_t* message, std::array<clientPairValue, PAIRS_MAX>* pairs,
               uint32_t* count) {
    const auto* request = reinterpret_cast<const clientRegReq*>(message);
    const uint32_t length = request->ipc.length;
    *count = request->pairCount;
    const uint32_t room = length > CLIENT_PAIRS_AT ? length - CLIENT_PAIRS_AT : 0;
    if (*count > room / sizeof(clientRegPair) || *count > pairs->size()) return false;
    const auto* pair = reinterpret_cast<const clientRegPair*>(message + CLIENT_PAIRS_AT);
    for (uint32_t i = 0; i < *count; i++) (*pairs)[i] = {pair[i].first, pair[i].second};
    return true;
}

}  // namespace

int aclHandleClient(aclNodeRecord*, uint8_t* message) {
    auto* request = reinterpret_cast<clientRegReq*>(message);
    const bool adds = request->ipc.mtype % 2 == 0;
    const uint32_t addType = request->ipc.mtype - (adds ? 0 : 1);
    const auto* row = std::ranges::find(clientTable, addType, &clientRow::addType);
    std::array<clientPairValue, PAIRS_MAX> pairs;  // as many as a message holds
    uint32_t count = 0;
    bool success = false;
    if (!readPairs(message, &pairs, &count))
        aclCounters.truncated++;
    else
        success = (adds ? row->add : row->del)({request->application, request->instance,
                                                listNameMake(request->name), request->callback,
                                                std::span(pairs).first(count), row->family});
    if (success && adds)  // the client is there again
        clientRegisteredAnew(request->application, request->instance);
    request->ipc.result = success ? 0 : CLIENT_REG_FAILED;
    return success ? 0 : -1;
}

void printAddDelTaskClient(const char* wrapper, bool add, uint32_t application) {
    aclDebug(DEBUG_ACL_TRIGGER, "%s: %s client %s\n", wrapper, add ? "add" : "delete",
             aclClientName(application));
}
