// Registrations of clients (types 14442 to 14457): one row per message type.
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
};

bool done(int result) {
    return result == 0;
}
bool done(const aclList* list) {
    return list != nullptr;
}

bool isMcast(const registration& r) {
    return std::ranges::find(MCAST_CLIENTS, r.application) != std::ranges::end(MCAST_CLIENTS);
}
template <uint32_t Family>
bool aclAdd(const registration& r) {
    return isMcast(r)
               ? done(aclAddTaskMcastClientExt(r.application, r.instance, r.name, r.callback,
                                               Family))
               : done(aclAddTaskClientExt(r.application, r.instance, r.name, r.callback, Family));
}
template <uint32_t Family>
bool aclDel(const registration& r) {
    return isMcast(r) ? done(aclDelTaskMcastClientExt(r.application, r.instance, r.name, Family))
                      : done(aclDelTaskClientExt(r.application, r.instance, r.name, Family));
}

struct clientRow {
    uint32_t mtype;
    bool (*run)(const registration& r);
};
// The client operations count families from 1, unlike the list operations.
// clang-format off
constexpr clientRow clientTable[] = {
    {14442, aclAdd<1>},
    {14443, aclDel<1>},
    {14446, [](const registration& r) { return done(prefixAddTaskClientExt(r.application, r.instance, r.name, r.pairs, r.callback, AF_IPV4)); }},
    {14447, [](const registration& r) { return done(prefixDelTaskClientExt(r.application, r.instance, r.name, r.pairs, AF_IPV4)); }},
    {14448, [](const registration& r) { return done(prefixAddTaskClientExt(r.application, r.instance, r.name, r.pairs, r.callback, AF_IPV6)); }},
    {14449, [](const registration& r) { return done(prefixDelTaskClientExt(r.application, r.instance, r.name, r.pairs, AF_IPV6)); }},
    {14450, [](const registration& r) { return done(aspAddTaskClientExt(r.application, r.instance, r.name, r.callback, r.pairs)); }},
    {14451, [](const registration& r) { return done(aspDelTaskClientExt(r.application, r.instance, r.name, r.pairs)); }},
    {14452, [](const registration& r) { return done(commAddTaskClientExt(r.application, r.instance, r.name, r.callback)); }},
    {14453, [](const registration& r) { return done(commDelTaskClientExt(r.application, r.instance, r.name)); }},
    {14454, [](const registration& r) { return done(rmapAddTaskClientExt(r.application, r.instance, r.name, r.pairs, r.callback)); }},
    {14455, [](const registration& r) { return done(rmapDelTaskClientExt(r.application, r.instance, r.name, r.pairs)); }},
};
// clang-format on

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
    const auto* row =
        std::ranges::find(clientTable, uint32_t{request->ipc.mtype}, &clientRow::mtype);
    std::array<clientPairValue, PAIRS_MAX> pairs;
    uint32_t count = 0;
    bool success = false;
    if (row == std::ranges::end(clientTable))
        aclNotBuilt("client registrations of this kind");
    else if (!readPairs(message, &pairs, &count))
        aclCounters.truncated++;
    else
        success = row->run({request->application, request->instance, listNameMake(request->name),
                            request->callback, std::span(pairs).first(count)});
    // A registration has an even type: the client is there again.
    if (success && request->ipc.mtype % 2 == 0)
        clientRegisteredAnew(request->application, request->instance);
    request->ipc.result = success ? 0 : CLIENT_REG_FAILED;
    return success ? 0 : -1;
}

void printAddDelTaskClient(const char* wrapper, bool add, uint32_t application) {
    aclDebug(DEBUG_ACL_TRIGGER, "%s: %s client %s\n", wrapper, add ? "add" : "delete",
             aclClientName(application));
}
