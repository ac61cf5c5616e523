// Bytes as messages to the task: whatever comes, it is dropped or answered.
//
// The input is a row of messages, each behind two bytes: a selector and the length in units of 8.
// An even selector keeps the bytes as they are; an odd one makes a CLI request of them, so that the
// operations behind the codes are reached too.
#include <cstdlib>

#include "include/cliMsg.h"
#include "include/interface.h"
#include "include/service.h"
#include "platform/api/zekMem.h"
#include "platform/test/record.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

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
    AclGetChassMode(aclNode->pkey);
    if (SysListRegistration(0) != 0) std::abort();
    testHost.onSend = [](std::span<const uint8_t> bytes) {
        // No answer is longer than it says, and none comes out of nothing.
        const auto* hdr = wireView<ipcHdr>(bytes);
        if (hdr == nullptr || hdr->length != bytes.size()) std::abort();
    };
}

// Bindings keep a deleted list as a placeholder, so they go first.
void forgetLists() {
    for (aclIntf* intf = AclIntfTreeFindFirst(); intf != nullptr;
         intf = AclIntfTreeFindNext(intf->ifindex))
        for (uint32_t direction : {INTF_IN, INTF_OUT})
            if (const aclList* list = intf->lists[INTF_V4][direction]; list != nullptr)
                (void)aclIpRemoveIntf(listNameMake(list->name), intf->ifindex, direction);
    for (const aclIntf* intf = AclIntfTreeFindFirst(); intf != nullptr;
         intf = AclIntfTreeFindNext(intf->ifindex))
        for (uint32_t direction : {INTF_IN, INTF_OUT})
            if (const aclList* list = intf->lists[INTF_V4][direction])
                (void)aclIpRemoveIntf(list->name, intf->ifindex, direction);
    while (aclList* list = ipAccessListFindFirst()) ipAccessListDelete(list->name, list->kind);
    while (aclList* list = ipDosListFindFirst()) {
        (void)dosIpEnableIntf(list->name, CLI_DOS_DISABLE);
        list = ipDosListFindFirst();
        if (list != nullptr) (void)ipDosListDelete(list->name);
    }
    auto forgetAll = [](auto first, auto remove) {
        while (bgpList* list = first()) {
            clientsFree(list);
            (void)remove(listNameMake(list->name));
        }
    };
    forgetAll(bgpASPAccessListFindFirst, bgpASPAccessListDelete);
    forgetAll(bgpCommListFindFirst, bgpCommAccessListDelete);
    forgetAll(bgpExtCommListFindFirst, bgpExtCommListDelete);
    testTake();
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
        if ((selector & 1) != 0 && length >= sizeof(cliHdr)) {
            auto* cli = reinterpret_cast<cliHdr*>(received);
            cli->ipc.mtype = MT_CLI_COMMAND;
            cli->ipc.length = static_cast<uint32_t>(length);
            cli->code = 1000 + (selector >> 1);
            cli->name = listNameMake(cli->name.text[0] % 2 != 0 ? "A" : "B");
        }
        aclTakeMessage(aclNode, received, length);
    }
    forgetLists();
    return 0;
}
