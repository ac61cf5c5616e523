// Bytes as messages to the task: whatever comes, it is dropped or answered.
//
// The input is a row of messages, each behind two bytes: a selector and the length in units of 8.
// The selector says whether the bytes become a CLI request, a registration of a client or a task's
// show, whose code or type is one that there is, so that the operations behind them are reached
// too, or stay as they are.
#include <cstdlib>

#include "include/cliMsg.h"
#include "include/clientMsg.h"
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
        aclTakeMessage(aclNode, received, length);
    }
    forgetLists();
    return 0;
}
