// The state root: everything the task knows hangs off aclNode, but the AS-path and community
// trees, which hang off aspathAclNode.
#pragma once

#include <bitset>
#include <cstdint>

#include "common/list.h"
#include "platform/api/zekCfg.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekIpc.h"
#include "platform/api/zekRadix.h"
#include "platform/api/zekSwp.h"

constexpr uint32_t PEER_UPDATE_KINDS = 21;  // slots 0-19, and 20 for a CAM-profile change
constexpr uint8_t PEER_MARK_NONE = 0xFF;    // nothing sent; 0 waits for the answer; 1 answered

// An ACL VLAN group; id 0 is a free place.
constexpr uint32_t VLAN_GROUPS = 8;
struct aclVlanGroup {
    uint8_t id;  // 1-8
    listName name;
};

struct pimCfgParams {
    uint32_t sptSwitchThreshold;
    uint32_t word2;
};

struct aclNodeRecord {
    zekFdSet readfs;
    zekFdSet writefs;
    uint32_t ipckey;
    uint32_t regQfd, rspQfd, tmrQfd;
    uint32_t regQ, rspQ, tmrQ;  // kept zero
    uint32_t pkey;              // task handle
    int32_t acl_swp_pipe;
    zekRadix* rmap_tree;
    zekRadix* aclSys_tree;
    zekRadix* acl_tree;
    zekRadix* v6acl_tree;
    zekRadix* ipMacAcl_tree;
    zekRadix* dhcpSnoopVlan_tree;
    zekRadix* dhcpSnoop_tree;
    zekRadix* dos_tree;
    zekRadix* l2acl_tree;
    zekRadix* prefix_tree;
    zekRadix* v6prefix_tree;
    zekRadix* acl_intf_tree;
    zekRadix* rmap_intf_tree;
    zekRadix* vlan_intf_tree;
    zekRadix* ipadd_intf_tree;
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
    uint32_t inverseMask;  // mask display mode: 0 normal, 1 inverse
    uint32_t supportAclOnCP;
    zekEvtLog evtLogKey;
    char lastPrefixList[141];
    char lastV6PrefixList[141];
    pimCfgParams acl2PimCfgParams;
    uint32_t ipv6UnicastRoutingEnable;
    uint32_t cfgNotifStart;  // 1 while a block configuration is in progress
    uint8_t vlanMemNum, cugIdNum;
    std::bitset<4096> egressIpAclBitMap;
    std::bitset<4096> aclVlanGroupMemberBitMap;
    uint8_t ifmRegistered, evhRegistered, peerRegistered, acl2Registered, acl0Registered,
        udpHelperRegistered;
    uint8_t peerMark[PEER_UPDATE_KINDS];
    uint32_t chassisMode;
    uint32_t rpmType;
    uint8_t ramDataSync;
    uint32_t finalWord;
    zekCfgDb* cfgDb;       // the running configuration
    uint32_t stpWords[2];  // of the last STP enable, replayed to cards
    uint32_t isAclVlanGrp;
    aclVlanGroup vlanGroups[VLAN_GROUPS];
    uint32_t camProfile;
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
