// `show ip source-guard`: the pairs of addresses that may send, interface by interface.
#include "common/tree.h"
#include "include/ipText.h"
#include "include/jsonText.h"
#include "interface/interface.h"
#include "ipacl/zekipmac.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

void addPairs(const aclIntf& intf, std::string* rows) {
    char name[64];
    (void)ifmIfIndexToLName(intf.ifindex, name, sizeof name);
    const aclList* list = intf.lists[INTF_IPMAC][INTF_IN];
    if (list == nullptr) return;
    ipMacForEachPair(*list, [&](const ipMacPair& pair, uint32_t sources) {
        const std::string text = ipMacText(pair);
        const size_t blank = text.find(' ');
        jsonObject row;
        row.string("interface", name)
            .string("address", text.substr(0, blank))
            .string("mac", text.substr(blank + 1, 17));
        row.flag("configured", (sources & IPMAC_CONFIGURED) != 0)
            .flag("lease", (sources & IPMAC_SNOOPED) != 0);
        // Last, because not every row has it: the first row's fields make the table.
        if (pair.vlan != 0) row.number("vlan", pair.vlan);
        if (!rows->empty()) rows->push_back(',');
        *rows += row.text();
    });
}

std::string sourceGuard(std::string_view args) {
    uint32_t ifindex = 0;
    if (!args.empty() && ifmLNameToIfIndex(std::string(args).c_str(), &ifindex) != 0)
        return jsonObject{}.string("error", "The chassis has no such interface").text();
    aclLockHeld<aclLock::read> held;
    std::string rows;
    if (args.empty()) {
        for (const aclIntf* intf = AclIntfTreeFindFirst(); intf != nullptr;
             intf = AclIntfTreeFindNext(intf->ifindex))
            addPairs(*intf, &rows);
    } else if (const aclIntf* intf = AclIntfTreeFind(ifindex)) {
        addPairs(*intf, &rows);
    }
    return "[" + rows + "]";
}

}  // namespace

void aclRegisterSourceGuardFunctions() {
    zekDebugRegister("source-guard", "[INTERFACE] the pairs of addresses that may send",
                     sourceGuard);
}
