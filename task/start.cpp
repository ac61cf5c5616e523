// Start-up of the task: pools, queues, trees, the state root, and the main loop.
//
// The state root is allocated once and lives as long as the task; AclFree only undoes a failed
// start. The order of the steps is observable (event log, messages to other tasks) and stands.
#include <new>

#include "common/cfgkeys.h"
#include "common/clientWait.h"
#include "common/linecard.h"
#include "download/zekacl_download.h"
#include "include/service.h"
#include "platform/api/zekBgpRegex.h"
#include "platform/api/zekLock.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// The 38 block classes of the variable pool, in bytes.
constexpr uint32_t poolClasses[] = {
    736,   // access list
    784,   // MAC list
    184,   // MAC entry
    184,   // IP entry
    208,   // route map
    864,   // route-map clause
    20,    // number list
    156,   // name list
    708,   // binding, trigger
    192,   // AS-path and community list
    1368,  // AS-path and community entry
    176,   // interface
    24,    // route-map interface
    168,   // VLAN
    208,   // prefix list
    24,    // prefix entry
    8,     // MAC-limit list
    92,    // MAC-limit entry
    40,    // interface address
    44,    // line-card data
    4524,  // 29 entry blocks
    32,    // own MAC address
    32,    // LAG multicast id
    16,    // bound MAC list
    136,  24, 32, 56, 1024, 2048, 3072, 4096, 5120, 6144, 7168, 8192,
    8492,  // IPC buffer with its overhead
    24,
};
static_assert(std::size(poolClasses) == 38);

struct treeRow {
    zekRadix* aclTrees::*tree;
    const char* name;
    uint32_t keyBits;
    bool generalHeap;  // the P variant
    const char* failure;
};
// In the order of their creation.
constexpr treeRow treeTable[] = {
    {&aclTrees::aclSys_tree, "aclSystemTree", LIST_NAME_KEY_BITS, false,
     "AclInitialize:unable to create a Radix Tree for System ACLs\n"},
    {&aclTrees::l2acl_tree, "l2aclTree", LIST_NAME_KEY_BITS, false,
     "AclInitialize:unable to create a Radix Tree for L2 ACLs\n"},
    {&aclTrees::acl_tree, "aclTree", LIST_NAME_KEY_BITS, true,
     "AclInitialize:unable to create a Radix Tree for ACLs\n"},
    {&aclTrees::v6acl_tree, "v6aclTree", LIST_NAME_KEY_BITS, true,
     "AclInitialize:unable to create a Radix Tree for IPv6 ACLs\n"},
    {&aclTrees::ipMacAcl_tree, "ipMacAclTree", LIST_NAME_KEY_BITS, false,
     "AclInitialize:unable to create an RBTree for IpMac ACL \r\n"},
    {&aclTrees::dhcpSnoopVlan_tree, "dhcpSnoopVlanTree", 32, false,
     "AclInitialize: unable to create RBTree for DHCP snooping Vlan\r\n"},
    {&aclTrees::dhcpSnoop_tree, "dhcpSnoopTree", 32, false,
     "AclInitialize:unable to create an RBTree for dhcp snoop EX \r\n"},
    {&aclTrees::dos_tree, "dosTree", LIST_NAME_KEY_BITS, false,
     "AclInitialize:unable to create a Radix Tree for DOS ACLs\n"},
    {&aclTrees::rmap_tree, "rmapTree", LIST_NAME_KEY_BITS, true,
     "AclInitialize:unable to create a Radix Tree for Routemaps\n"},
    {&aclTrees::prefix_tree, "prefixTree", LIST_NAME_KEY_BITS, true,
     "AclInitialize:unable to create a Radix Tree for Prefix lists\n"},
    {&aclTrees::v6prefix_tree, "v6prefixTree", LIST_NAME_KEY_BITS, true,
     "AclInitialize:unable to create a Radix Tree for Ipv6 Prefix lists\n"},
    {&aclTrees::acl_intf_tree, "aclIntfTree", 32, false,
     "AclInitialize:unable to create a Intf Radix Tree for ACLs\n"},
    {&aclTrees::rmap_intf_tree, "rmapIntfTree", 32, true,
     "AclInitialize:unable to create a Intf Radix Tree For RouteMaps\n"},
    {&aclTrees::vlan_intf_tree, "vlanIntfTree", 32, false,
     "AclInitialize:unable to create a Intf Radix Tree For Vlans\n"},
    {&aclTrees::ipadd_intf_tree, "ipaddIntfTree", 32, false,
     "AclInitialize:unable to create a Intf Radix Tree For IpAddress\n"},
};

struct aspathTreeRow {
    zekRadix* aspathAclNodeRecord::*tree;
    const char* name;
    const char* failure;
};
constexpr aspathTreeRow aspathTreeTable[] = {
    {&aspathAclNodeRecord::asTree, "asTree",
     "ASpathACLInitialize:unable to create a Radix Tree for ASpath ACLs\n"},
    {&aspathAclNodeRecord::commTree, "commTree",
     "ASpathACLInitialize:unable to create a Radix Tree for Community ACLs\n"},
    // "forExtended" is one word in this text; it is meant.
    {&aspathAclNodeRecord::extCommTree, "extCommTree",
     "ASpathACLInitialize:unable to create a Radix Tree forExtended Community Lists\n"},
};

uint32_t readCounter;

constexpr uint32_t SWP_RETRIES = 10;

// A queue to another task's application, tried once and again while *retries lasts.
bool createTaskQueue(uint32_t peerApp, zekSwpHandle* handle, uint32_t* retries,
                     const char* failure) {
    for (;;) {
        *handle = aclStartQueueCreate(peerApp);
        if (*handle != ZEK_SWP_NONE) return true;
        if (*retries == 0) break;
        --*retries;
        taskDelay(10);
    }
    aclSysErr(SYSERR_STARTUP, "%s", failure);
    return false;
}

bool createTaskQueues() {
    uint32_t retries = SWP_RETRIES;
    if (!createTaskQueue(APP_RTM, &aclNode->queues.qHandle, &retries,
                         "AclInitialize: unable to create SWP queue to RTM\n"))
        return false;
    retries = SWP_RETRIES;
    return createTaskQueue(APP_DSMGR, &aclNode->queues.aclQosqHandle, &retries,
                           "AclInitialize: unable to create SWP queue to DSMGR\n");
}

bool createMulticastQueues() {
    // One budget of retries for both queues, not one each; it is meant.
    uint32_t retries = SWP_RETRIES;
    return createTaskQueue(APP_IGMP, &aclNode->queues.igmpqHandle, &retries,
                           "AclInitialize: unable to create SWP queue to IGMP\n") &&
           createTaskQueue(APP_PIM, &aclNode->queues.pimqHandle, &retries,
                           "AclInitialize: unable to create SWP queue to PIM\n");
}

void forgetPeers(aclNodeRecord* node) {
    node->queues.acl2qHandle = node->queues.acl0qHandle = node->queues.aclSNMPqHandle =
        ZEK_SWP_NONE;
    for (zekSwpHandle& handle : node->queues.aclIPMqHandle) handle = ZEK_SWP_NONE;
    node->queues.igmpqHandle = node->queues.pimqHandle = node->queues.aclSYSADMTSKqHandle =
        ZEK_SWP_NONE;
    node->queues.snmptargetcard = node->queues.acltargetcard = node->queues.sysadmtsktargetcard =
        ADDRESS_UNKNOWN;
    for (uint32_t& address : node->queues.ipmtargetcard) address = ADDRESS_UNKNOWN;
}

// The card that hosts this task's own service.
bool findTargetCard(aclNodeRecord* node) {
    constexpr int tries = 1000;
    for (int i = 1;; i++) {
        int rc = zek_tmeGetPeerIpAddrByName(APP_ACL, 0, &node->queues.acltargetcard);
        // The last try fails whatever it returned; this order is meant.
        if (i == tries) break;
        if (rc == 0 && addressIsKnown(node->queues.acltargetcard)) return true;
    }
    aclSysErr(SYSERR_STARTUP, "%s", "Unable to get ACL's target card address \n");
    return false;
}

void addToReadSet(aclNodeRecord* node, int fd) {
    if (fd >= 0 && fd < static_cast<int>(ZEK_FD_MAX)) node->ipc.readfs.set(static_cast<size_t>(fd));
}

}  // namespace

void init_acl_mutexes() {
    aclLockInit();
}

bool aclStoreDBShmAddr(aclNodeRecord* node, uint32_t* counter, aspathAclNodeRecord* aspathNode) {
    auto* anchor = static_cast<aclShmAnchor*>(zekMC_MM_malloc(sizeof(aclShmAnchor)));
    if (anchor == nullptr) {
        std::printf("Malloc failed %d %s \r\n", __LINE__, __func__);
        return false;
    }
    *anchor = {node, counter, aspathNode};
    return zekShmSet(SHM_SLOT_ACL, anchor) == 0;
}

// One piece on purpose: each step in the order in which others see it, with what undoes it.
aclNodeRecord* AclInitialize(int, char**) {
    init_acl_mutexes();
    clientStatesForget();
    aclServeWhileWaiting(aclUrgentMessages());
    void* memory = zekMC_MM_malloc(sizeof(aclNodeRecord));
    if (memory == nullptr) return nullptr;
    aclNode = new (memory) aclNodeRecord{};
    aclNode->groups.egressIpAclBitMap.set();
    aclNode->groups.aclVlanGroupMemberBitMap.set();
    std::memset(aclNode->peer.peerMark, PEER_MARK_NONE, sizeof aclNode->peer.peerMark);
    forgetPeers(aclNode);  // nothing below may take a zero for a handle
    aclNode->queues.qHandle = aclNode->queues.aclQosqHandle = ZEK_SWP_NONE;
    readCounter = 0;
    pAclReadCounter = &readCounter;
    void* aspath = zekMC_MM_malloc(sizeof(aspathAclNodeRecord));
    if (aspath == nullptr) {
        AclFree(aclNode);
        return nullptr;
    }
    aspathAclNode = new (aspath) aspathAclNodeRecord{};
    // Tasks inside the process find the lists by this anchor alone. There is no log yet to say it
    // in.
    if (!aclStoreDBShmAddr(aclNode, pAclReadCounter, aspathAclNode)) std::exit(1);

    aclNode->ipc.pkey = zekTaskStartup(APP_ACL, 0);
    aclNode->ipc.ipckey = zekTaskGetIpcKey(aclNode->ipc.pkey);
    if (aclNode->ipc.ipckey == 0) {
        std::printf("\n\nUnable To GET IPC KEY\n");
        AclFree(aclNode);
        return nullptr;
    }
    aclNode->evtLogKey = zekEvtOpenlog("ACL", 3, APP_ACL, 0);
    if (aclNode->evtLogKey == 0) {
        std::printf("\n\nUnable To GET EvtLog KEY\n");
        AclFree(aclNode);
        return nullptr;
    }
    zekEvtSetSeverityLevel(aclNode->evtLogKey, 0xffffff);
    if (zek_memPartFixedInit(POOL_FIXED, POOL_FIXED_2) != 0) {
        std::printf("\n\nUnable To Allocate Fixed Pools\n");
        AclFree(aclNode);
        return nullptr;
    }
    if (zekIpcTmrOpen(APP_ACL, 0) != 0) {
        // Returns without freeing: the process ends anyway, and the log must keep its handle.
        aclSysErr(SYSERR_STARTUP, "%s", "AclInitialize: unable to create timer queue\n");
        return nullptr;
    }

    aclNode->ipc.regQfd = Key_getReqQueue(aclNode->ipc.ipckey);
    aclNode->ipc.rspQfd = Key_getRspQueue(aclNode->ipc.ipckey);
    aclNode->ipc.tmrQfd = Key_getTmrQueue(aclNode->ipc.ipckey);
    // The response queue stays out of the set although the loop tests it: replies that the task
    // waits for are received directly. It is meant.
    addToReadSet(aclNode, Key_getSocketFd(aclNode->ipc.regQfd));
    addToReadSet(aclNode, Key_getSocketFd(aclNode->ipc.tmrQfd));
    aclNode->ipc.acl_swp_pipe = zekSwpCreatePipe("/zek/pipe/cp/aclpipe");
    addToReadSet(aclNode, aclNode->ipc.acl_swp_pipe);

    if (zek_memPartVarInit(POOL_FIXED + 1, poolClasses, std::size(poolClasses)) != 0) {
        aclSysErr(SYSERR_STARTUP, "%s", "Unable to create Variable memory pools\n");
        AclFree(aclNode);
        return nullptr;
    }
    for (const treeRow& row : treeTable) {
        aclNode->trees.*row.tree = row.generalHeap ? zekRadixCreateP(row.name, row.keyBits)
                                                   : zekRadixCreate(row.name, row.keyBits);
        if (aclNode->trees.*row.tree == nullptr) {
            aclSysErr(SYSERR_STARTUP, "%s", row.failure);
            AclFree(aclNode);
            return nullptr;
        }
    }
    aclNode->config.cfgDb = zekCfgOfTask();

    if (!createTaskQueues()) {
        AclFree(aclNode);
        return nullptr;
    }
    forgetPeers(aclNode);
    if (!findTargetCard(aclNode) ||
        (!isAclSupportedOnRp2(aclNode->queues.acltargetcard) && !createMulticastQueues())) {
        AclFree(aclNode);
        return nullptr;
    }
    aclNode->protocol.acl2PimCfgParams = {10, 10};
    aclNode->protocol.ipv6UnicastRoutingEnable = 1;
    aclNode->finalWord = 0;
    return aclNode;
}

aspathAclNodeRecord* AspathAclInitialize() {
    for (const aspathTreeRow& row : aspathTreeTable) {
        aspathAclNode->*row.tree = zekRadixCreateP(row.name, LIST_NAME_KEY_BITS);
        if (aspathAclNode->*row.tree == nullptr) {
            aclSysErr(SYSERR_STARTUP, "%s", row.failure);
            return nullptr;
        }
    }
    return aspathAclNode;
}

void AclFree(aclNodeRecord* node) {
    if (node == nullptr) return;
    // Whatever was made so far: all else is null or ZEK_SWP_NONE.
    for (const treeRow& row : treeTable) zekRadixDestroy(node->trees.*row.tree);
    if (aspathAclNode != nullptr) {
        for (const aspathTreeRow& row : aspathTreeTable) zekRadixDestroy(aspathAclNode->*row.tree);
        zekMC_MM_free(aspathAclNode);
        aspathAclNode = nullptr;
    }
    for (zekSwpHandle queue : {node->queues.qHandle, node->queues.aclQosqHandle,
                               node->queues.igmpqHandle, node->queues.pimqHandle})
        if (queue != ZEK_SWP_NONE) zekSwpQueueRemove(queue);
    for (uint32_t pool = 0; pool < POOL_COUNT; pool++) zek_memPartFree(POOL_FIXED + pool);
    if (node->ipc.ipckey != 0) zekTaskCloseIpcKey(node->ipc.ipckey);
    if (node->evtLogKey != 0) zekEvtCloselog(node->evtLogKey);
    if (void* anchor = zekShmGet(SHM_SLOT_ACL); anchor != nullptr) {
        (void)zekShmSet(SHM_SLOT_ACL, nullptr);
        zekMC_MM_free(anchor);
    }
    zekMC_MM_free(node);
    aclNode = nullptr;
    aclDebug(DEBUG_ACL_GENERAL, "AclFree: free'd all memory related to aclNode \n");
}

void AclGetChassMode([[maybe_unused]] uint32_t taskHandle) {
    aclNode->chassis.chassisMode = zekSysGetChassisMode();
    aclNode->chassis.rpmType = zekSysGetRpmType();
    if (aclNode->chassis.chassisMode == 3 || aclNode->chassis.chassisMode == 6) {
        // In these chassis every card takes egress lists before it says so itself; the record of
        // the control processor is left alone.
        for (uint32_t slot = 0; slot < LINECARD_CP; slot++) {
            aclLinecardInfo[slot].isVortan = 1;
            aclLinecardInfo[slot].type = 3;
        }
    }
    if (aclNode->chassis.rpmType > 3) aclNode->chassis.supportAclOnCP = 1;
}

// Empty rows that mark where each section of the running configuration begins, lists or not.
void aclCreateShowRunningDummyNodes() {
    zekCfgRecord anchor{};
    anchor.lineClass = CFG_CLASS_ANCHOR;
    for (uint32_t section : {CFG_SECTION_TRACE_LIST, CFG_SECTION_IP, CFG_SECTION_PREFIX}) {
        anchor.section = section;
        (void)zekCfgInsertBothLine(aclNode->config.cfgDb, anchor);
    }
    for (uint32_t section :
         {CFG_SECTION_MAC, CFG_SECTION_RMAP, CFG_SECTION_ASPATH, CFG_SECTION_COMM}) {
        anchor.section = section;
        (void)zekCfgInsert(aclNode->config.cfgDb, anchor);
    }
}

void aclProcessRegexPendingDelete() {
    aclLockHeld<aclLock::write> held;
    (void)regexFinalCleanup(REGEX_CLEANUP_MAX);
}

void aclLoopOnce(aclNodeRecord* node, uint32_t pass, std::span<uint8_t, IPC_BUFFER_SIZE> buffer) {
    zekFdSet ready = node->ipc.readfs;
    auto isReady = [&ready](int fd) {
        return fd >= 0 && fd < static_cast<int>(ZEK_FD_MAX) && ready.test(static_cast<size_t>(fd));
    };
    auto serve = [&](uint32_t queue) {
        if (!isReady(Key_getSocketFd(queue))) return;
        int got = zekIpcRecv(queue, buffer.data(), buffer.size(), 0);
        if (got > 0) aclTakeMessage(node, buffer, static_cast<size_t>(got));
    };
    aclCounters.passes++;
    const int selected =
        zekSelect(ZEK_FD_MAX, &ready, aclPlacesAreAwaited() ? 50 : SELECT_TIMEOUT_MS);
    aclNoticeRole();
    if (selected > 0) {
        // One message of each a pass: a flood of requests does not keep the timers from being
        // served.
        serve(node->ipc.tmrQfd);
        serve(node->ipc.regQfd);
        if (isReady(node->ipc.acl_swp_pipe)) (void)zekSwpReadPipe(node->ipc.acl_swp_pipe);
        serve(node->ipc.rspQfd);
    } else if (selected < 0 && errno != EINTR) {
        aclDebug(DEBUG_ACL_GENERAL, "select failed in AclMain\n");
    }
    // After the messages: an acknowledgement among them may be what a lost queue has waited for.
    aclServeQueues();
    if (pass % 4 == 0) aclSendRegistration();
    aclReplayOwed();
    aclReleaseHeldAgents();
    aclProcessRegexPendingDelete();
}

int AclMain(int argc, char** argv) {
    for (aclLinecard& card : aclLinecardInfo) {
        card.macAgent = card.aclAgent = ZEK_SWP_NONE;
        card.agentIpAddr = card.agent0IpAddr = ADDRESS_UNKNOWN;
    }
    if (AclInitialize(argc, argv) == nullptr) return -1;
    if (AspathAclInitialize() == nullptr) {
        AclFree(aclNode);
        return -1;
    }
    AclGetChassMode(aclNode->ipc.pkey);
    // No card can be served without this list: there is nothing else to do.
    while (SysListRegistration(0) == -1) continue;
    aclRegisterDebugFunctions();
    zekTaskReady(aclNode->ipc.pkey);
    aclCreateShowRunningDummyNodes();
    aclAwaitPlaces();

    static uint8_t buffer[IPC_BUFFER_SIZE];  // the one receive buffer
    for (uint32_t pass = 1;; pass++) aclLoopOnce(aclNode, pass, buffer);
}
