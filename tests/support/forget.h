// Takes every list, map and binding of the task away, whatever uses it.
#pragma once

#include "include/policyMsg.h"
#include "interface/interface.h"
#include "ipacl/store.h"
#include "platform/test/record.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"

// Bindings keep a deleted list as a placeholder, so they go first.
inline void forgetLists() {
    for (const aclIntf* intf = AclIntfTreeFindFirst(); intf != nullptr;
         intf = AclIntfTreeFindNext(intf->ifindex))
        for (const aclFamily* family : aclFamilies)
            for (uint32_t direction : {INTF_IN, INTF_OUT})
                if (const aclList* list = intf->lists[family->place][direction])
                    (void)aclListRemove(*family, list->name, intf->ifindex, direction);
    // Clients and route maps keep lists, too; maps are gone before the lists that they name.
    auto forgetAll = [](auto first, auto remove) {
        while (auto* list = first()) {
            clientsFree(list);
            (void)remove(listNameMake(list->name));
        }
    };
    forgetAll(ipRmapListFindFirst,
              [](const listName& name) { return ipRmapListDelete(name, 0, RMAP_NAMED_NONE); });
    forgetAll(bgpASPAccessListFindFirst, bgpASPAccessListDelete);
    forgetAll(bgpCommListFindFirst, bgpCommAccessListDelete);
    forgetAll(bgpExtCommListFindFirst, bgpExtCommListDelete);
    for (uint32_t af : {AF_IPV4, AF_IPV6})
        forgetAll([af] { return ipPrefixListFindFirst(af); },
                  [af](const listName& name) { return ipPrefixListDelete(name, af); });
    for (const aclFamily* family : aclFamilies)
        forgetAll([family] { return nameTreeFirst<aclList>(aclNode->trees.*family->tree); },
                  [family](const listName& name) {
                      return aclListDelete(*family, name, aclListFind(*family, name)->kind);
                  });
    while (aclList* list = ipDosListFindFirst()) {
        (void)dosIpEnableIntf(list->name, CLI_DOS_DISABLE);
        list = ipDosListFindFirst();
        if (list != nullptr) (void)ipDosListDelete(list->name);
    }
    while (aclVlan* vlan = aclVlanTreeFindFirst()) aclVlanDrop(vlan);
    testTake();
}
