// The state root: everything the task knows hangs off aclNode, but the AS-path and community
// trees, which hang off aspathAclNode.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>

#include "include/listName.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekIpc.h"
#include "platform/api/zekSwp.h"

struct zekRadix;
struct aclList;
struct zekCfgDb;

struct aclIpcState {
    zekFdSet readfs;
    zekFdSet writefs;
    uint32_t ipckey;
    uint32_t regQfd, rspQfd, tmrQfd;
    uint32_t regQ, rspQ, tmrQ;  // kept zero
    uint32_t pkey;              // task handle
    int32_t acl_swp_pipe;
};

struct aclTrees {
    // Lists, by name.
    zekRadix* rmap_tree;
    zekRadix* aclSys_tree;
    zekRadix* acl_tree;
    zekRadix* v6acl_tree;
    zekRadix* ipMacAcl_tree;
    zekRadix* dos_tree;
    zekRadix* l2acl_tree;
    zekRadix* prefix_tree;
    zekRadix* v6prefix_tree;
    // Places, by interface index.
    zekRadix* acl_intf_tree;
    zekRadix* rmap_intf_tree;
    zekRadix* vlan_intf_tree;
    zekRadix* ipadd_intf_tree;
    zekRadix* dhcpSnoopVlan_tree;
    zekRadix* dhcpSnoop_tree;
};

// The reliable queues to other tasks, and the cards of those whose address is kept.
struct aclQueues {
    zekSwpHandle qHandle;  // RTM
    zekSwpHandle acl2qHandle;
    zekSwpHandle acl0qHandle;
    zekSwpHandle aclSNMPqHandle;
    zekSwpHandle aclIPMqHandle[3];
    zekSwpHandle aclQosqHandle;
    zekSwpHandle igmpqHandle;
    zekSwpHandle pimqHandle;
    zekSwpHandle aclSYSADMTSKqHandle;
    uint32_t snmptargetcard;
    uint32_t ipmtargetcard[3];
    uint32_t acltargetcard;
    uint32_t sysadmtsktargetcard;
};

// With whom this task is registered, or who has registered with it.
// A registration that is retried for ever says "failed" when its 8-bit attempt count wraps, and
// "succeeded" once it succeeds after that.
struct aclRetry {
    uint8_t attempts;
    bool failureLogged;
};

struct aclStanding {
    // After a start: until then (steady clock, milliseconds) the interface manager may say who is
    // a member of what. 0: it has, or nobody waits for it.
    uint64_t placesAwaitedUntil;
    uint8_t ifmRegistered, evhRegistered, peerRegistered, acl2Registered, acl0Registered,
        udpHelperRegistered;
    struct {
        aclRetry ifm, udpHelper;
        uint32_t evhAttempts, peerAttempts;
    } retries;
};

constexpr uint32_t PEER_UPDATE_KINDS = 21;  // slots 0-19, and 20 for a CAM-profile change
constexpr uint8_t PEER_MARK_NONE = 0xFF;    // nothing sent; 0 waits for the answer; 1 answered
struct aclPeerState {
    uint8_t peerMark[PEER_UPDATE_KINDS];
    uint8_t ramDataSync;
};

struct aclConfigState {
    zekCfgDb* cfgDb;                  // the running configuration
    uint32_t inverseMask;             // mask display mode: 0 normal, 1 inverse
    uint32_t cfgNotifStart;           // 1 while a block configuration is in progress
    uint32_t l2_user_egr_acl_enable;  // 1: cards filter by egress MAC lists
};

// An ACL VLAN group: VLANs that share one egress IPv4 list. Id 0 is a free place.
constexpr uint32_t VLAN_GROUPS = 8;
typedef std::bitset<4096> vlanSet;
struct aclVlanGroup {
    uint8_t id;  // 1-8
    listName name;
    vlanSet members{};
    aclList* list = nullptr;  // null: none
};
struct aclVlanGroupState {
    uint32_t isAclVlanGrp;  // 1: there are groups
    aclVlanGroup vlanGroups[VLAN_GROUPS];
    uint8_t vlanMemNum, cugIdNum;      // members of all groups (255: or more), groups
    vlanSet egressIpAclBitMap;         // free to get an egress list: in no group
    vlanSet aclVlanGroupMemberBitMap;  // free to join a group: without an egress list
};

struct pimCfgParams {
    uint32_t sptSwitchThreshold;
    uint32_t word2;
};
struct aclProtocolState {
    pimCfgParams acl2PimCfgParams;
    uint32_t ipv6UnicastRoutingEnable;
    uint32_t acl_dhcp;  // 1: DHCP requests to the router's addresses are trapped
    std::optional<std::array<uint32_t, 2>> stpWords;  // of the last STP enable, replayed to cards
};

// The chassis whose cards know ACL VLAN groups; elsewhere groups are kept and not sent.
constexpr uint32_t CHASSIS_MODE_VLAN_GROUPS = 7;
struct aclChassisState {
    uint32_t chassisMode;
    uint32_t rpmType;
    uint32_t supportAclOnCP;
    uint32_t camProfile;
};

// The names of the lists that were changed last.
struct aclPrefixState {
    char lastPrefixList[LIST_NAME_LEN + 1];
    char lastV6PrefixList[LIST_NAME_LEN + 1];
};

struct aclNodeRecord {
    aclIpcState ipc;
    aclTrees trees;
    aclQueues queues;
    aclStanding standing;
    aclPeerState peer;
    aclConfigState config;
    aclVlanGroupState groups;
    aclProtocolState protocol;
    aclChassisState chassis;
    aclPrefixState prefix;
    zekEvtLog evtLogKey;
    uint32_t finalWord;
};

struct aspathAclNodeRecord {
    zekRadix* asTree;
    zekRadix* commTree;
    zekRadix* extCommTree;
};

extern aclNodeRecord* aclNode;
extern aspathAclNodeRecord* aspathAclNode;

// What client tasks read in place: slot 7 of the platform's shared global block.
constexpr uint32_t SHM_SLOT_ACL = 7;
struct aclShmAnchor {
    aclNodeRecord* node;
    uint32_t* readCounter;
    aspathAclNodeRecord* aspathNode;
};
