// Bytes as messages to the task: whatever comes, it is dropped or answered.
//
// The input is a row of messages, each behind two bytes: a selector and the length in units of 8.
// The selector says whether the bytes become a CLI request, a registration of a client or a task's
// show, or a message of the interface manager and its like, whose code or type is one that there
// is, so that the operations behind them are reached too, or stay as they are.
#include <cstdlib>

#include "include/cliMsg.h"
#include "include/clientMsg.h"
#include "include/ifmMsg.h"
#include "include/protMsg.h"
#include "include/service.h"
#include "interface/interface.h"
#include "platform/api/zekMem.h"
#include "platform/test/record.h"
#include "task/task.h"
#include "task/zekacl_lib.h"
#include "tests/support/forget.h"

namespace {

constexpr uint32_t OWN_CARD = 0x7F010001;
alignas(8) uint8_t received[IPC_BUFFER_SIZE];

void start() {
    testReset();
    zek_memPartFree(POOL_FIXED);  // the start makes the pools itself
    zek_memPartFree(POOL_FIXED + 1);
    for (uint32_t app : {APP_ACL, APP_IFM, APP_RTM, APP_DSMGR})
        testHost.addresses[{app, 0}] = OWN_CARD;
    if (AclInitialize(0, nullptr) == nullptr || AspathAclInitialize() == nullptr) std::abort();
    AclGetChassMode(aclNode->ipc.pkey);
    if (SysListRegistration(0) != 0) std::abort();
    testHost.onSend = [](std::span<const uint8_t> bytes) {
        // No answer is longer than it says, and none comes out of nothing.
        const auto* hdr = wireView<ipcHdr>(bytes);
        if (hdr == nullptr || hdr->length != bytes.size()) std::abort();
    };
}

// Interfaces that meet each other; every fourth word stays as it is.
void pickPlace(be32* ifindex) {
    constexpr uint32_t places[] = {0x08040000,
                                   0x08080000,
                                   0x0A040000,
                                   IFINDEX_CP_BIND,
                                   ifindexMake(IF_TYPE_LAG, 1),
                                   ifindexMake(IF_TYPE_LAG, 2),
                                   ifindexMake(IF_TYPE_VLAN, 1),
                                   ifindexMake(IF_TYPE_VLAN, 4095)};
    const uint32_t word = *ifindex;
    if (word % 4 != 0) *ifindex = places[word / 4 % std::size(places)];
}
// Records of the types that there are, as long as their types are or as they say.
void pickRecords(std::span<uint8_t> message) {
    auto* front = wireView<ifmEventMsg>(message);
    if (front == nullptr) return;
    front->count = front->count & 0x8000001F;
    for (size_t at = sizeof *front; auto* record = wireView<ifmSvcWords>(message, at);) {
        record->hdr.type = record->hdr.type % 64;
        const uint16_t said = record->hdr.length % 80;
        if (said >= 8)
            at += record->hdr.length = said;
        else
            return;
        for (be32& word : record->word) pickPlace(&word);
    }
}
void pickNeighbour(std::span<uint8_t> message) {
    constexpr uint32_t types[] = {
        MT_IFM_EVT_NOTIF,        MT_IFM_EVT_NOTIF,      MT_IFM_EVT_NOTIF, MT_IFM_PORTS_LEAVE,
        MT_IFM_PORTVL_EVT_NOTIF, MT_IFM_MIRROR_RELAY,   MT_PROT_FIRST,    MT_PROT_LAST,
        MT_PROT_VRRP_FIRST,      MT_PROT_VRRP_LAST,     MT_STP_ENABLE,    MT_GVRP_FIRST,
        MT_EVENT_NOTIF,          MT_SNMP_TRAP_AGENT_IP, MT_SFLOW_AGENT_IP};
    auto* hdr = reinterpret_cast<ipcHdr*>(message.data());
    hdr->mtype = types[hdr->mtype % std::size(types)];
    hdr->length = static_cast<uint32_t>(message.size());
    hdr->session = hdr->swpSeq = 0u;
    const uint32_t type = hdr->mtype;
    if (type == MT_IFM_EVT_NOTIF) {
        pickRecords(message);
    } else if (type <= MT_PROT_VRRP_LAST) {
        const size_t at = type <= MT_PROT_LAST ? offsetof(protEnableMsg, record)
                                               : offsetof(protEnableSwpMsg, record);
        if (auto* record = wireView<protRecord>(message, at)) {
            pickPlace(&record->ifindex);
            const uint32_t id = record->id;
            record->id = id % 24 < 12 ? id % 12 : PROT_VRRP + id % 12;
        }
    } else if (type != MT_EVENT_NOTIF) {
        for (size_t at = sizeof *hdr; auto* word = wireView<be32>(message, at); at += 4)
            pickPlace(word);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static bool started = (start(), true);
    (void)started;
    while (size >= 2) {
        uint8_t selector = data[0];
        size_t length = std::min<size_t>(data[1] * size_t{8}, size - 2);
        std::memcpy(received, data + 2, length);
        data += 2 + length;
        size -= 2 + length;
        auto pick = [](listName* name) { *name = listNameMake(name->text[0] % 2 ? "A" : "B"); };
        if ((selector & 1) != 0 && length >= sizeof(cliHdr)) {
            auto* cli = reinterpret_cast<cliHdr*>(received);
            cli->ipc.mtype = MT_CLI_COMMAND;
            cli->ipc.length = static_cast<uint32_t>(length);
            const uint32_t code = cli->code % 202;
            cli->code = code < 192 ? 1000 + code : CLI_SHOW_V6_ACL + code - 192;
            pick(&cli->name);
        } else if ((selector & 2) != 0 && length >= sizeof(clientRegReq)) {
            auto* request = reinterpret_cast<clientRegReq*>(received);
            request->ipc.mtype = 14442 + request->ipc.mtype % 42;  // registrations, then shows
            request->ipc.length = static_cast<uint32_t>(length);
            request->pairCount = request->pairCount & 0x8000001F;
            request->application = request->application % 2 != 0 ? APP_BGP : APP_RTM;
            pick(&request->name);
        }
        if ((selector & 7) == 4 && length >= sizeof(ipcHdr)) pickNeighbour({received, length});
        aclTakeMessage(aclNode, received, length);
    }
    forgetPlaces();
    forgetLists();
    return 0;
}
