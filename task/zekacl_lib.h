// The external entry layer: one row per wrapper.
//
// Every operation that a dispatcher or another task calls on a store goes through the wrapper of
// the same name with "Ext" behind it: it takes acl_rwlock (write for changes, read for shows),
// calls the one operation, releases, and returns the operation's result. Stores never lock, and no
// wrapper calls another one: the lock is not recursive.
//
// Wrappers that serve two families take the family last (intfFamily): 1 is IPv6, any other value
// IPv4. Create wrappers return the status that the store reports through its out-argument, not the
// list.
#pragma once

#include <cstdint>
#include <tuple>
#include <utility>

#include "ipacl/zekipaccess.h"
#include "ipacl/zekipmac.h"
#include "ipacl/zekvlangroup.h"
#include "l2acl/zekl2acl.h"
#include "match/zekPolicy.h"
#include "platform/api/zekLock.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"

enum class aclLock { read, write };

template <aclLock Kind>
struct aclLockHeld {
    aclLockHeld() { Kind == aclLock::write ? aclWriteLock() : aclReadLock(); }
    ~aclLockHeld() { Kind == aclLock::write ? aclWriteUnlock() : aclReadUnlock(); }
    aclLockHeld(const aclLockHeld&) = delete;
    aclLockHeld& operator=(const aclLockHeld&) = delete;
};

// One store operation, called as its own signature says: arguments are converted before the lock is
// taken, and what the operation refers to is the caller's.
template <aclLock Kind, auto Operation>
struct aclExt;
template <aclLock Kind, class Result, class... Args, Result (*Operation)(Args...)>
struct aclExt<Kind, Operation> {
    Result operator()(Args... args) const {
        aclLockHeld<Kind> held;
        return Operation(args...);
    }
};

// Two store operations of one signature, chosen by the last argument.
template <aclLock Kind, auto V4Operation, auto V6Operation>
struct aclExtFamily;
template <aclLock Kind, class Result, class... Args, Result (*V4Operation)(Args...),
          Result (*V6Operation)(Args...)>
struct aclExtFamily<Kind, V4Operation, V6Operation> {
    Result operator()(Args... args, uint32_t family) const {
        aclLockHeld<Kind> held;
        return family == 1 ? V6Operation(args...) : V4Operation(args...);
    }
};
// The same of entries, whose blocks differ: a block of the other family is refused.
template <aclLock Kind, auto V4Operation, auto V6Operation>
struct aclExtEntryFamily;
template <aclLock Kind, class Result, class Block4, class Block6, class... Args,
          Result (*V4Operation)(const listName&, Block4*, Args...),
          Result (*V6Operation)(const listName&, Block6*, Args...)>
struct aclExtEntryFamily<Kind, V4Operation, V6Operation> {
    Result operator()(const listName& name, Block4* block, Args... args, uint32_t family) const {
        if (family == 1) return ACL_E_SYSTEM;
        aclLockHeld<Kind> held;
        return V4Operation(name, block, args...);
    }
    Result operator()(const listName& name, Block6* block, Args... args, uint32_t family) const {
        if (family != 1) return ACL_E_SYSTEM;
        aclLockHeld<Kind> held;
        return V6Operation(name, block, args...);
    }
};

// A client of a list is registered or taken back, after a debug line that says so.
void printAddDelTaskClient(const char* wrapper, bool add, uint32_t application);
template <auto Operation>
struct aclExtClient;
template <class Result, class... Args, Result (*Operation)(uint32_t, Args...)>
struct aclExtClient<Operation> {
    const char* name;
    bool add;
    Result operator()(uint32_t application, Args... args) const {
        printAddDelTaskClient(name, add, application);
        return aclExt<aclLock::write, Operation>{}(application, args...);
    }
};

// Create operations, of one family or of two: the signature without the out status, its last.
template <auto Operation, class Args, class Given>
struct aclExtCreateOf;
template <auto Operation, class Args, size_t... Given>
struct aclExtCreateOf<Operation, Args, std::index_sequence<Given...>> {
    uint32_t operator()(std::tuple_element_t<Given, Args>... args) const {
        aclLockHeld<aclLock::write> held;
        uint32_t status = ACL_E_SYSTEM;
        (void)Operation(args..., &status);
        return status;
    }
};
template <auto Operation>
struct aclExtCreate;
template <class List, class... Args, List* (*Operation)(Args...)>
struct aclExtCreate<Operation> : aclExtCreateOf<Operation, std::tuple<Args...>,
                                                std::make_index_sequence<sizeof...(Args) - 1>> {};
template <auto V4Operation, auto V6Operation>
struct aclExtCreateFamily {
    uint32_t operator()(const listName& name, uint32_t kind, uint32_t placeholder,
                        uint32_t family) const {
        return family == 1 ? aclExtCreate<V6Operation>{}(name, kind, placeholder)
                           : aclExtCreate<V4Operation>{}(name, kind, placeholder);
    }
};
// Prefix lists keep the family's number behind the status.
struct aclExtPrefixCreate {
    uint32_t operator()(const listName& name, uint32_t placeholder, uint32_t af) const {
        aclLockHeld<aclLock::write> held;
        uint32_t status = ACL_E_SYSTEM;
        (void)ipPrefixListCreate(name, placeholder, &status, af);
        return status;
    }
};

// clang-format off
inline constexpr aclExtCreateFamily<ipAccessListCreate, aclV6AccessListCreate>                  ipAccessListCreateExt;
inline constexpr aclExtFamily<aclLock::write, ipAccessListDelete, aclV6AccessListDelete>        ipAccessListDeleteExt;
inline constexpr aclExtEntryFamily<aclLock::write, ipAddAccessEntry, aclV6AddAccessEntry>         ipAddAccessEntryExt;
inline constexpr aclExtEntryFamily<aclLock::write, ipDelAccessEntry, aclV6DelAccessEntry>         ipDelAccessEntryExt;
inline constexpr aclExtFamily<aclLock::write, aclIpApplyIntf, aclV6ApplyIntf>                     aclIpApplyIntfExt;
inline constexpr aclExtFamily<aclLock::write, aclIpRemoveIntf, aclV6RemoveIntf>                  aclIpRemoveIntfExt;
inline constexpr aclExt<aclLock::write, ipReseqTheAccessList>                                   ipReseqTheAccessListExt;
inline constexpr aclExt<aclLock::write, ipReseqTheV6AccessList>                                 ipReseqTheV6AccessListExt;
inline constexpr aclExt<aclLock::write, l2ReseqTheAccessList>                                   l2ReseqTheAccessListExt;
inline constexpr aclExtCreate<ipDosListCreate>                                                  ipDosListCreateExt;
inline constexpr aclExt<aclLock::write, ipDosListDelete>                                        ipDosListDeleteExt;
inline constexpr aclExt<aclLock::write, ipAddDosEntry>                                          ipAddDosEntryExt;
inline constexpr aclExt<aclLock::write, ipDelDosEntry>                                          ipDelDosEntryExt;
inline constexpr aclExt<aclLock::write, dosIpEnableIntf>                                        dosIpEnableIntfExt;
inline constexpr aclExtCreate<ipSysAccessListCreate>                                            ipSysAccessListCreateExt;
inline constexpr aclExt<aclLock::write, ipSysAccessListDelete>                                  ipSysAccessListDeleteExt;
inline constexpr aclExt<aclLock::write, ipSysAddAccessEntry>                                    ipSysAddAccessEntryExt;
inline constexpr aclExt<aclLock::write, ipSysDelAccessEntry>                                    ipSysDelAccessEntryExt;
inline constexpr aclExt<aclLock::write, ipSysAddThirteenAccessEntry>                            ipSysAddThirteenAccessEntryExt;
inline constexpr aclExt<aclLock::write, ipSysDelThirteenAccessEntry>                            ipSysDelThirteenAccessEntryExt;
inline constexpr aclExtClient<aclAddTaskClient>                                                 aclAddTaskClientExt{"aclAddTaskClientExt", true};
inline constexpr aclExtClient<aclDelTaskClient>                                                 aclDelTaskClientExt{"aclDelTaskClientExt", false};
inline constexpr aclExtClient<aclAddTaskMcastClient>                                            aclAddTaskMcastClientExt{"aclAddTaskMcastClientExt", true};
inline constexpr aclExtClient<aclDelTaskMcastClient>                                            aclDelTaskMcastClientExt{"aclDelTaskMcastClientExt", false};
inline constexpr aclExtClient<rmapAddTaskClient>                                                rmapAddTaskClientExt{"rmapAddTaskClientExt", true};
inline constexpr aclExtClient<rmapDelTaskClient>                                                rmapDelTaskClientExt{"rmapDelTaskClientExt", false};
inline constexpr aclExtClient<aspAddTaskClient>                                                 aspAddTaskClientExt{"aspAddTaskClientExt", true};
inline constexpr aclExtClient<aspDelTaskClient>                                                 aspDelTaskClientExt{"aspDelTaskClientExt", false};
inline constexpr aclExtClient<commAddTaskClient>                                                commAddTaskClientExt{"commAddTaskClientExt", true};
inline constexpr aclExtClient<commDelTaskClient>                                                commDelTaskClientExt{"commDelTaskClientExt", false};
inline constexpr aclExtCreate<aclV6SysAccessListCreate>                                         aclV6SysAccessListCreateExt;
inline constexpr aclExtCreate<l2AccessListCreate>                                               l2AccessListCreateExt;
inline constexpr aclExt<aclLock::write, l2AccessListDelete>                                     l2AccessListDeleteExt;
inline constexpr aclExt<aclLock::write, l2AddAccessEntry>                                       l2AddAccessEntryExt;
inline constexpr aclExt<aclLock::write, l2DelAccessEntry>                                       l2DelAccessEntryExt;
inline constexpr aclExt<aclLock::write, acll2ApplyIntf>                                         acll2ApplyIntfExt;
inline constexpr aclExt<aclLock::write, acll2RemoveIntf>                                        acll2RemoveIntfExt;
inline constexpr aclExtClient<l2AclAddTaskClient>                                               l2AclAddTaskClientExt{"l2AclAddTaskClientExt", true};
inline constexpr aclExtClient<l2AclDelTaskClient>                                               l2AclDelTaskClientExt{"l2AclDelTaskClientExt", false};
inline constexpr aclExt<aclLock::read, aclShowMacAcl>                                           aclShowMacAclExt;
inline constexpr aclExt<aclLock::read, aclShowMacAclAll>                                        aclShowMacAclAllExt;
inline constexpr aclExt<aclLock::write, aclClearMacAcl>                                         aclClearMacAclExt;
inline constexpr aclExt<aclLock::write, aclClearMacAclAll>                                      aclClearMacAclAllExt;
inline constexpr aclExt<aclLock::read, aclShowV6Acl>                                            aclShowV6AclExt;
inline constexpr aclExt<aclLock::read, aclShowV6AclAll>                                         aclShowV6AclAllExt;
inline constexpr aclExt<aclLock::write, aclClearV6Acl>                                          aclClearV6AclExt;
inline constexpr aclExt<aclLock::write, aclClearV6AclAll>                                       aclClearV6AclAllExt;
inline constexpr aclExt<aclLock::write, aclClearIpAclByName>                                    aclClearIpAclExt;
inline constexpr aclExt<aclLock::write, aclClearIpAclAll>                                       aclClearIpAclAllExt;
inline constexpr aclExt<aclLock::read, aclShowIpAcl>                                            aclShowIpAclExt;
inline constexpr aclExt<aclLock::read, aclShowIpAclAll>                                         aclShowIpAclAllExt;
inline constexpr aclExtCreate<ipRmapListCreate>                                                 ipRmapListCreateExt;
inline constexpr aclExt<aclLock::write, ipRmapListDelete>                                       ipRmapListDeleteExt;
inline constexpr aclExt<aclLock::write, ipAddRmapEntry>                                         ipAddRmapEntryExt;
inline constexpr aclExt<aclLock::write, ipDelRmapEntry>                                         ipDelRmapEntryExt;
inline constexpr aclExt<aclLock::write, ipDelRmapEntryAllFin>                                   ipDelRmapEntryAllFinExt;
inline constexpr aclExt<aclLock::write, aclRmapProcBgpASNotation>                               aclRmapProcessBgpASNotationFormat;
inline constexpr aclExt<aclLock::read, aclShowRoutemap>                                         aclShowRoutemapExt;
inline constexpr aclExt<aclLock::read, aclShowRoutemapAll>                                      aclShowRoutemapAllExt;
inline constexpr aclExt<aclLock::read, aclShowRoutemapConfig>                                   aclShowRoutemapConfigExt;
inline constexpr aclExtPrefixCreate                                                             ipPrefixListCreateExt;
inline constexpr aclExt<aclLock::write, ipPrefixListDelete>                                     ipPrefixListDeleteExt;
inline constexpr aclExt<aclLock::write, ipAddPrefixEntry>                                       ipAddPrefixEntryExt;
inline constexpr aclExt<aclLock::write, ipDelPrefixEntry>                                       ipDelPrefixEntryExt;
inline constexpr aclExt<aclLock::write, ipReseqPrefixList>                                      ipReseqPrefixListExt;
inline constexpr aclExtClient<prefixAddTaskClient>                                              prefixAddTaskClientExt{"prefixAddTaskClientExt", true};
inline constexpr aclExtClient<prefixDelTaskClient>                                              prefixDelTaskClientExt{"prefixDelTaskClientExt", false};
inline constexpr aclExt<aclLock::write, prefixClearIpList>                                      prefixClearIpListExt;
inline constexpr aclExt<aclLock::write, prefixClearIpListAll>                                   prefixClearIpListAllExt;
inline constexpr aclExt<aclLock::read, prefixShowIpList>                                        prefixShowIpListExt;
inline constexpr aclExt<aclLock::read, prefixShowIpListAll>                                     prefixShowIpListAllExt;
inline constexpr aclExt<aclLock::read, prefixDownloadIpListAll>                                 prefixDownloadIpListAlltoACL2;
inline constexpr aclExt<aclLock::write, aclCreateDelAclVlanGrp>                                 aclCreateDelAclVlanGrpExt;
inline constexpr aclExt<aclLock::write, aclAddDelAclVlanGrpMember>                              aclAddDelAclVlanGrpMemberExt;
inline constexpr aclExt<aclLock::write, aclApplyRemoveAclVlanGrp>                               aclApplyRemoveAclVlanGrpExt;
inline constexpr aclExt<aclLock::read, aclShowAclVlanGrpSpecific>                               aclShowAclVlanGrpSpecificExt;
inline constexpr aclExt<aclLock::read, aclShowAclVlanGrpSpecificDetail>                         aclShowAclVlanGrpSpecificDetailExt;
inline constexpr aclExt<aclLock::read, aclShowAclVlanGrpAll>                                    aclShowAclVlanGrpAllExt;
inline constexpr aclExt<aclLock::read, aclShowAclVlanGrpAllDetail>                              aclShowAclVlanGrpAllDetailExt;
inline constexpr aclExt<aclLock::write, ipSourceGuardAdd>                                       ipSourceGuardAddExt;
inline constexpr aclExt<aclLock::write, ipSourceGuardDel>                                       ipSourceGuardDelExt;
inline constexpr aclExt<aclLock::write, aclMgrIpMacAclAdd>                                      aclMgrIpMacAclAddExt;
inline constexpr aclExt<aclLock::write, aclMgrIpMacAclDel>                                      aclMgrIpMacAclDelExt;
inline constexpr aclExt<aclLock::read, aclShowSourceGuard>                                      aclShowSourceGuardExt;
inline constexpr aclExt<aclLock::read, aclShowSourceGuardAll>                                   aclShowSourceGuardAllExt;
inline constexpr aclExt<aclLock::read, AclUpdateAclAgent>                                       AclUpdateAclAgentExt;
inline constexpr aclExt<aclLock::read, aclSendListsToTask>                                      aclSendListsToTaskExt;
inline constexpr aclExt<aclLock::read, aclServeListsBehind>                                     aclServeListsBehindExt;
inline constexpr aclExtCreate<bgpASPAccessListCreate>                                           bgpASPAccessListCreateExt;
inline constexpr aclExt<aclLock::write, bgpASPAccessListDelete>                                 bgpASPAccessListDeleteExt;
inline constexpr aclExt<aclLock::write, bgpAddASPAccessEntry>                                   bgpAddASPAccessEntryExt;
inline constexpr aclExt<aclLock::write, bgpDelASPAccessEntry>                                   bgpDelASPAccessEntryExt;
inline constexpr aclExtCreate<bgpCommAccessListCreate>                                          bgpCommAccessListCreateExt;
inline constexpr aclExt<aclLock::write, bgpCommAccessListDelete>                                bgpCommAccessListDeleteExt;
inline constexpr aclExt<aclLock::write, bgpAddCommAccessEntry>                                  bgpAddCommAccessEntryExt;
inline constexpr aclExt<aclLock::write, bgpDelCommAccessEntry>                                  bgpDelCommAccessEntryExt;
inline constexpr aclExtCreate<bgpExtCommListCreate>                                             bgpExtCommListCreateExt;
inline constexpr aclExt<aclLock::write, bgpExtCommListDelete>                                   bgpExtCommListDeleteExt;
inline constexpr aclExt<aclLock::write, bgpAddExtCommListEntry>                                 bgpAddExtCommListEntryExt;
inline constexpr aclExt<aclLock::write, bgpDelExtCommListEntry>                                 bgpDelExtCommListEntryExt;
inline constexpr aclExt<aclLock::read, aclShowASPathList>                                       aclShowASPathListExt;
inline constexpr aclExt<aclLock::read, aclShowASPathListAll>                                    aclShowASPathListAllExt;
inline constexpr aclExt<aclLock::read, aclShowIpCommList>                                       aclShowIpCommListExt;
inline constexpr aclExt<aclLock::read, aclShowIpCommListAll>                                    aclShowIpCommListAllExt;
inline constexpr aclExt<aclLock::read, aclShowIpExtCommList>                                    aclShowIpExtCommListExt;
inline constexpr aclExt<aclLock::read, aclShowIpExtCommListAll>                                 aclShowIpExtCommListAllExt;
// clang-format on
