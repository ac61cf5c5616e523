// Takes every list, map and binding of the task away, whatever uses it.
#pragma once

#include "include/policyMsg.h"
#include "interface/interface.h"
#include "ipacl/store.h"
#include "ipacl/zekipmac.h"
#include "ipacl/zekvlangroup.h"
#include "platform/api/zekLock.h"
#include "platform/test/record.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"
#include "task/task.h"

// A group's list, its members, then the group itself.
inline void forgetGroups() {
    while (const aclVlanGroup* group = aclVlanGroupNext(listName{})) {
        const listName name = group->name;
        if (group->list != nullptr) {
            const listName list = group->list->name;
            (void)aclApplyRemoveAclVlanGrp(name, list, 0, false);
        }
        bindingVlans all{};
        all.given = 1u;
        for (size_t vlan = 0; vlan < group->members.size(); vlan++)
            if (group->members.test(vlan))
                all.bits[vlan / 8] = static_cast<uint8_t>(all.bits[vlan / 8] | 0x80 >> vlan % 8);
        all.count = static_cast<uint32_t>(group->members.count());
        if (group->members.any()) (void)aclAddDelAclVlanGrpMember(name, all, false);
        if (aclCreateDelAclVlanGrp(name, 0, false) != ACL_OK) std::abort();
    }
}

// The pairs of source guard, whoever wants them; with the last one its list.
inline void forgetPairs() {
    while (const auto* list = nameTreeFirst<aclList>(aclNode->trees.ipMacAcl_tree)) {
        const auto& entry = static_cast<const ipMacEntry&>(*list->head);
        const uint32_t ifindex = list->clients->id;
        const ipMacPair pair = ipMacPairOf(entry);
        const bool configured = (entry.sources & IPMAC_CONFIGURED) != 0;
        if ((configured ? ipSourceGuardDel(ifindex, pair)
                        : aclMgrIpMacAclDel(ifindex, pair.address, pair.mac, pair.vlan)) != ACL_OK)
            std::abort();
    }
}

// Every interface, VLAN and LAG, as if the interface manager took them away one after another: with
// them go their lists, addresses and protocols. Of the task's tests only.
inline void forgetPlaces() {
    auto goes = [](uint32_t ifindex) {
        aclWriteLock();
        aclIfmDelIf(ifindex);
        aclWriteUnlock();
    };
    while (const aclVlan* vlan = aclVlanTreeFindFirst()) goes(vlan->ifindex);
    while (const aclIntf* intf = AclIntfTreeFindFirst()) goes(intf->ifindex);
    aclNode->protocol.stpWords.reset();
    aclNode->protocol.acl_dhcp = 0;
    aclNode->finalWord = 0;
    testTake();
}

// Bindings keep a deleted list as a placeholder, so they go first.
inline void forgetLists() {
    forgetGroups();
    forgetPairs();
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
