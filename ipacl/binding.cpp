// Binding an access list to an interface, in one direction.
//
// A binding is kept twice: as a record in the list's chain, newest first, and as the list's place
// in the interface record. Both are there or neither is; where they are found to differ the
// operation says so and changes nothing. Interface records stay once they are made. The caller
// holds the write lock.
#include "common/debug.h"
#include "common/node.h"
#include "interface/interface.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "ipacl/zekipmac.h"
#include "ipacl/zekvlangroup.h"
#include "platform/api/zekCfg.h"
#include "platform/api/zekTask.h"

namespace {

struct interfaceName {
    char text[64];
    explicit interfaceName(uint32_t ifindex) {
        (void)ifmIfIndexToLName(ifindex, text, sizeof text);
    }
};

// --- records -----------------------------------------------------------------------------------

aclBinding* bindingAdd(aclList* list, const aclBindRequest& request) {
    auto* binding = static_cast<aclBinding*>(clientAdd(
        list, {CLIENT_INTERFACE, request.ifindex, 0, request.direction}, sizeof(aclBinding)));
    if (binding == nullptr) return nullptr;
    binding->implicitPermit = request.implicitPermit;
    binding->block = *request.block;
    return binding;
}

// --- lines -------------------------------------------------------------------------------------

std::string groupText(const aclList* list, uint32_t direction) {
    std::string text = list->family->groupWords;
    text += listNameView(list->name);
    return text += direction == INTF_IN ? " in" : " out";
}

cfgIntfLine lineOf(aclIntf* intf, uint32_t direction, const aclList* list) {
    return {intf, list->family->place, direction, list->name};
}

void writeLine(aclIntf* intf, const aclList* list, const aclBindRequest& request) {
    if (aclListIsGenerated(*list)) return;
    std::string text = " " + groupText(list, request.direction);
    if (request.implicitPermit != 0) text += " implicit-permit";
    if (request.vlanOption) (text += " Vlan ") += request.vlanText;
    auto again = cfgCommand<cliBindReq>(list->family->bindCode, list->name);
    again.ifindex = request.ifindex;
    again.direction = request.direction;
    again.implicitPermit = request.implicitPermit;
    again.writeConfig = 1;
    again.vlanOption = request.vlanOption ? 1 : 0;
    std::memcpy(again.block, request.block, sizeof again.block);
    request.vlanText.copy(again.vlanText, sizeof again.vlanText);
    cfgIntfWrite(lineOf(intf, request.direction, list), text, cfgRequestOf(again));
}

// --- apply -------------------------------------------------------------------------------------

// What forbids the binding, before anything is touched.
uint32_t refusal(const aclFamily& family, const aclBindRequest& r) {
    if (ifindexType(r.ifindex) == IF_TYPE_CP) {
        if (aclNode->chassis.supportAclOnCP == 0 || !family.onControlPlane)
            return ACL_E_CP_UNSUPPORTED;
        if (ifindexPort(r.ifindex) != 0) return ACL_E_CP_PORT;
        if (r.direction == INTF_OUT) return ACL_E_CP_EGRESS;
    }
    // One that had a list before it joined the LAG keeps it, so it gets it back at a restart, too.
    if (aclLagOfPort(r.ifindex) != 0 && zekCfgRestoring(aclNode->config.cfgDb) == nullptr)
        return ACL_E_LAG_MEMBER;
    if (r.direction == INTF_OUT && family.inVlanGroups) {
        const uint32_t status = aclCheckVlanGrpClash(r);
        if (status != ACL_OK) return status;
    }
    // Source guard and IPv4 lists do not go together, whatever their direction.
    return family.place == INTF_V4 && aclMgrIpMacAclIsPresentOnIntf(r.ifindex)
               ? uint32_t{ACL_E_CLASH}
               : uint32_t{ACL_OK};
}

// A VLAN is free to join a VLAN group while no egress list of a family that groups have is bound to
// it. `except`: the list that is leaving its place.
void tellVlanGroups(const aclIntf& intf, uint32_t direction, const aclList* except = nullptr) {
    if (direction != INTF_OUT || ifindexType(intf.ifindex) != IF_TYPE_VLAN) return;
    bool isFree = true;
    for (const aclFamily* family : aclFamilies) {
        const aclList* list = intf.lists[family->place][INTF_OUT];
        if (family->inVlanGroups && list != nullptr && list != except) isFree = false;
    }
    const uint32_t vlan = ifindexPort(intf.ifindex);
    if (vlan < VLAN_BITS) aclNode->groups.aclVlanGroupMemberBitMap.set(vlan, isFree);
}

void deleteFromInterface(const aclList* old, const aclPlace& place, const aclBound& bound) {
    const uint32_t type = ifindexType(place.ifindex);
    if (type != IF_TYPE_LAG && type != IF_TYPE_VLAN)
        aclDebug(DEBUG_ACL_GENERAL, "%s: sending delete of " LIST_NAME_FMT " to %s\r\n",
                 old->family->applyName, listNameArg(old->name), interfaceName(place.ifindex).text);
    (void)aclSendToInterface(old, {aclEvent::listDeleted}, place, bound);
}

// Puts the list into its place of the interface. `fresh` is the binding that was made for it; null:
// the list stands there already and its binding has got a new block.
uint32_t takePlace(aclList* list, aclIntf* intf, const aclBindRequest& r, aclBinding* fresh) {
    const aclPlace place = {r.ifindex, r.direction};
    aclList*& slot = intf->lists[list->family->place][r.direction];
    aclList* old = slot;
    if (old != nullptr) {
        aclBinding* oldBinding = aclInterfaceBinding(old, r.ifindex, r.direction);
        // (A fresh binding of the list that stands there is not the one that is looked for.)
        if (oldBinding == nullptr || oldBinding == fresh) {
            aclDebug(DEBUG_ACL_GENERAL,
                     "Error: alist pointer for ACL Interface Tree node points to alist which "
                     "doesn't contain ifindex as its client, interface = %d, acl= " LIST_NAME_FMT
                     "\n",
                     static_cast<int>(r.ifindex), listNameArg(old->name));
            if (fresh != nullptr) clientDrop(list, fresh);
            return ACL_OK;
        }
        // A generated list leaves the operator's line standing, out of force as it is: meant.
        if (!aclListIsGenerated(*list)) cfgIntfReplace(lineOf(intf, r.direction, old));
        writeLine(intf, list, r);
        const bindingBlock oldBlock = oldBinding->block;
        if (fresh != nullptr) clientDrop(old, oldBinding);
        // The old list leaves with the new request's implicit-permit word: meant.
        deleteFromInterface(old, place, {r.implicitPermit, &oldBlock});
    } else {
        writeLine(intf, list, r);
    }
    slot = list;
    (void)aclSendToInterface(list, {aclEvent::listAdded}, place, {r.implicitPermit, r.block});
    if (old != nullptr) aclListDropUnused(old);
    tellVlanGroups(*intf, r.direction);
    return ACL_OK;
}

// The first binding of the interface. `fresh` as above; null: the binding was there without the
// interface.
uint32_t makePlace(aclList* list, const aclBindRequest& r, aclBinding* fresh) {
    intfRefused refused = intfRefused::nothing;
    aclIntf* intf = aclIntfObtain(r.ifindex, r.direction, &refused);
    if (intf == nullptr) {
        // Without its bitmap the interface is not made but the binding stays, which is meant: the
        // next attempt finds it and goes on from here.
        if (refused == intfRefused::record && fresh != nullptr) clientDrop(list, fresh);
        return ACL_E_MEMORY;
    }
    intf->lists[list->family->place][r.direction] = list;
    if (r.writeConfig != 0) writeLine(intf, list, r);
    // A LAG that was not known has no members yet: nothing is sent then.
    (void)aclSendToInterface(list, {aclEvent::listAdded}, {r.ifindex, r.direction},
                             {r.implicitPermit, r.block});
    tellVlanGroups(*intf, r.direction);
    return ACL_OK;
}

uint32_t applyAgain(aclList* list, aclIntf* intf, const aclBindRequest& r, aclBinding* binding) {
    if (intf == nullptr) {
        aclDebug(DEBUG_ACL_GENERAL,
                 "Error: Accesslist " LIST_NAME_FMT
                 " has interface %d as a client but ACL_INTF_TREE doesn't have an entry for the "
                 "interface\n",
                 listNameArg(list->name), static_cast<int>(r.ifindex));
        // The binding keeps the word and the block that it has: meant.
        return makePlace(list, r, nullptr);
    }
    if (intf->lists[list->family->place][r.direction] != list) {
        aclDebug(DEBUG_ACL_GENERAL,
                 "Error: Accesslist " LIST_NAME_FMT
                 " has interface %d as a client but the interface doesn't think the access list is "
                 "applied on it \n",
                 listNameArg(list->name), static_cast<int>(r.ifindex));
        return ACL_OK;
    }
    if (binding->implicitPermit != r.implicitPermit) return ACL_E_IMPLICIT_PERMIT;
    if (std::memcmp(&binding->block, r.block, sizeof binding->block) == 0) {
        aclDebug(DEBUG_ACL_GENERAL, "%s:%d- Nothing to do Returning\r\n", __func__, __LINE__);
        return ACL_OK;
    }
    binding->block = *r.block;
    return takePlace(list, intf, r, nullptr);
}

uint32_t applyFirst(aclList* list, aclIntf* intf, const aclBindRequest& r) {
    const aclList* old = intf != nullptr ? intf->lists[list->family->place][r.direction] : nullptr;
    // Source guard and the operator do not replace each other's ingress lists.
    if (old != nullptr && r.direction == INTF_IN &&
        aclListIsGenerated(*old) != aclListIsGenerated(*list))
        return ACL_E_CLASH;
    aclBinding* fresh = bindingAdd(list, r);
    if (fresh == nullptr) {
        aclSysErr(SYSERR_LIST,
                  "Error: Unable to allocate memory for Acl " LIST_NAME_FMT
                  " client interface id %d\n",
                  listNameArg(list->name), static_cast<int>(r.ifindex));
        return ACL_E_SYSTEM;
    }
    return intf != nullptr ? takePlace(list, intf, r, fresh) : makePlace(list, r, fresh);
}

}  // namespace

uint32_t aclListApply(const aclFamily& family, const listName& name, const aclBindRequest& given) {
    // A bare slot is no interface.
    if (given.direction > INTF_OUT || given.ifindex < SLOT_COUNT) return ACL_E_SYSTEM;
    aclBindRequest request = given;
    request.ifindex = aclCanonicalIndex(given.ifindex);
    uint32_t status = refusal(family, request);
    if (status != ACL_OK) return status;
    aclList* list = aclListCreate(family, name, IP_KIND_NONE, 1, &status);
    if (list == nullptr) {
        aclSysErr(SYSERR_LIST, "Error: Unable to create Accesslist " LIST_NAME_FMT " in %s\n",
                  listNameArg(name), family.applyName);
        return ACL_E_SYSTEM;
    }
    aclIntf* intf = AclIntfTreeFind(request.ifindex);
    aclBinding* binding = aclInterfaceBinding(list, request.ifindex, request.direction);
    status = binding != nullptr ? applyAgain(list, intf, request, binding)
                                : applyFirst(list, intf, request);
    aclListDropUnused(list);  // made for a binding that did not come about
    return status;
}

uint32_t aclListRemove(const aclFamily& family, const listName& name, uint32_t ifindex,
                       uint32_t direction) {
    if (direction > INTF_OUT) return ACL_E_SYSTEM;
    aclList* list = aclListFind(family, name);
    if (list == nullptr) return ACL_E_NOLIST;
    ifindex = aclCanonicalIndex(ifindex);
    aclIntf* intf = AclIntfTreeFind(ifindex);
    if (intf == nullptr) return ACL_E_NOINTF;
    aclList*& slot = intf->lists[family.place][direction];
    if (slot != list) return ACL_E_NOT_BOUND;

    if (!aclListIsGenerated(*list))
        cfgIntfRemove(lineOf(intf, direction, list), "no " + groupText(list, direction));
    tellVlanGroups(*intf, direction, list);
    // A LAG's place is emptied when its members have been told: meant, also when there is nothing
    // to tell them.
    const uint32_t type = ifindexType(ifindex);
    if (type != IF_TYPE_LAG) slot = nullptr;
    aclBinding* binding = aclInterfaceBinding(list, ifindex, direction);
    if (binding == nullptr) {
        // "intferace" is meant.
        aclDebug(DEBUG_ACL_GENERAL,
                 "Error: Acl " LIST_NAME_FMT " does not have client intferace Id %d\n",
                 listNameArg(list->name), static_cast<int>(ifindex));
        return ACL_E_SYSTEM;
    }
    if (type != IF_TYPE_LAG && type != IF_TYPE_VLAN)
        aclDebug(DEBUG_ACL_GENERAL, "%s: sending " LIST_NAME_FMT " to ifindex %#x\r\n",
                 family.removeName, listNameArg(list->name), ifindex);
    const int sent = aclSendToInterface(list, {aclEvent::listDeleted}, {ifindex, direction},
                                        {binding->implicitPermit, &binding->block});
    slot = nullptr;
    aclSendLagListToPort(*intf, family.place, direction);
    clientDrop(list, binding);
    aclListDropUnused(list);
    return sent == 0 ? uint32_t{ACL_OK} : uint32_t{ACL_E_SYSTEM};
}

void aclRemoveAllFromInterface(uint32_t ifindex) {
    for (const aclFamily* family : {&macFamily, &ip4Family, &ip6Family})
        for (uint32_t direction : {INTF_IN, INTF_OUT}) {
            const aclIntf* intf = AclIntfTreeFind(ifindex);
            if (intf == nullptr) return;
            const aclList* list = intf->lists[family->place][direction];
            if (list == nullptr) continue;
            const listName name = list->name;  // the list may go with its last binding
            (void)aclListRemove(*family, name, ifindex, direction);
        }
    aclMgrIpMacAclDropAll(ifindex);
}
