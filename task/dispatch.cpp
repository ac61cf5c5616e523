// The message dispatcher: one row per message type, found by binary search.
//
// A row says how long the message must be, how its sender is answered, and what runs. The
// dispatcher checks and answers, so a handler sees only messages that are long enough, and SWP
// messages once each. A row without a handler belongs to a subsystem that is not built yet: the
// sender is answered as for a failed operation where the row answers at all.
#include <algorithm>
#include <iterator>
#include <set>
#include <string>

#include "common/cfgline.h"
#include "common/clientWait.h"
#include "include/cliMsg.h"
#include "platform/api/zekLock.h"
#include "platform/api/zekMem.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

aclTaskCounters aclCounters;

namespace {

constexpr int NOT_TOLD = -1;  // what most handlers return
constexpr uint32_t SHOW_RESUME_OFFSET = sizeof(showReplyHdr);

// --- handlers ----------------------------------------------------------------------------------

int swpError(int code) {
    if (code != 0) aclSysErr(SYSERR_SWP, "%s", zekSwpGetErr(code));
    return NOT_TOLD;
}
int handleSwpTimeout(aclNodeRecord*, uint8_t* message) {
    return swpError(zekSwpTimeout(message));
}
int handleSwpAck(aclNodeRecord*, uint8_t* message) {
    aclCounters.swp_ack++;
    void* released = nullptr;
    int code = zekSwpDequeue(message, &released);
    if (released != nullptr) zekMC_M_memBlockVarFree(released);
    return swpError(code);
}
int handleTriggerAnswer(aclNodeRecord*, uint8_t* message) {
    clientLateAnswer(*msgHdr(message));
    return NOT_TOLD;
}
int handleNothing(aclNodeRecord*, uint8_t*) {
    return NOT_TOLD;
}

int handleRamDataSync(aclNodeRecord*, uint8_t* message) {
    aclHandleRamDataSyncNotif(message);
    return NOT_TOLD;
}
int handlePeer(aclNodeRecord*, uint8_t* message) {
    aclHandlePeerMsg(message);
    return NOT_TOLD;
}

int handleEvent(aclNodeRecord*, uint8_t* message) {
    struct eventRow {
        uint32_t event;
        const char* name;
    };
    static constexpr eventRow events[] = {
        {EVT_CARD_DOWN, "Linecard Down"},
        {EVT_CARD_SHUTDOWN, "Linecard Shutdown"},
        {EVT_CAM_PROFILE, "CAM Profile Changed"},
    };
    uint32_t event = msgWord(message, 64);
    const auto* row = std::ranges::find(events, event, &eventRow::event);
    bool known = row != std::ranges::end(events);
    aclDebug(DEBUG_ACL_GENERAL, "Received an event notification\nEvent: %s\r\n",
             known ? row->name : "Unknown");
    if (event == EVT_CAM_PROFILE) aclNotBuilt("CAM-profile events");
    if (event == EVT_CARD_DOWN || event == EVT_CARD_SHUTDOWN)
        aclHandleCardDownNotif(msgWord(message, 68));
    return NOT_TOLD;
}

int handleCfgStart(aclNodeRecord* node, uint8_t*) {
    node->config.cfgNotifStart = 1;
    aclDebug(DEBUG_ACL_GENERAL, "ACL got MT_CFG_START_BLK_CFG_NOTIF msg");
    return NOT_TOLD;
}
int handleCfgEnd(aclNodeRecord* node, uint8_t*) {
    node->config.cfgNotifStart = 0;
    aclDebug(DEBUG_ACL_GENERAL, "ACL got MT_CFG_END_BLK_CFG_NOTIF msg");
    return NOT_TOLD;
}
int handleCfgComplete(aclNodeRecord*, uint8_t*) {
    aclDebug(DEBUG_ACL_GENERAL, "ACL got MT_CFG_INIT_CFG_COMPLETE msg");
    return NOT_TOLD;
}

int handleCli(aclNodeRecord* node, uint8_t* message) {
    AclProcCliCmd(node, message);
    return NOT_TOLD;
}

int handleInverseMask(aclNodeRecord* node, uint8_t* message) {
    if (!aclCanChange()) {
        msgHdr(message)->status = ACL_E_STORE;
        AclIpcReply(node->ipc.regQfd, message);
        return NOT_TOLD;
    }
    uint32_t inverse = msgHdr(message)->mtype == MT_ACL_INVERSEMASK_ENABLE ? 1 : 0;
    node->config.inverseMask = inverse;
    // The mode's own line is written first: it opens the batch that the answer then waits for, so
    // an answered change survives whatever happens during the work.
    inverse_mask_sent_to_cfg(inverse);
    AclIpcReply(node->ipc.regQfd, message);
    aclLockHeld<aclLock::write> held;
    ipInvertAccessEntryMask();
    return NOT_TOLD;
}

// A show for another task: the name at 64, of prefix lists a resume index behind it. A failure to
// answer is logged with the kind's text.
struct taskShow {
    uint32_t (*show)(const listName& name, const uint8_t* message, void** buffer, uint32_t* size);
    const char* failedAfterError;
    const char* failedAfterSuccess;
};

int answerTaskShow(const taskShow& kind, aclNodeRecord* node, uint8_t* message) {
    const auto* request = reinterpret_cast<const showReplyHdr*>(message);
    void* buffer = nullptr;
    uint32_t size = 0;
    uint32_t status = kind.show(listNameMake(request->name), message, &buffer, &size);
    if (status == ACL_OK && buffer != nullptr) {
        if (AclSendDisplayBuffer(buffer, size, message) != 0)
            aclSysErr(SYSERR_SHOW, "%s", kind.failedAfterSuccess);
        return NOT_TOLD;
    }
    if (buffer != nullptr) zekMC_M_sysFree(buffer);
    ipcHdr* hdr = msgHdr(message);
    hdr->status = status;
    ipcExchangeTriples(hdr);
    if (zekIpcSend(node->ipc.regQfd, message, hdr->length) != 0)
        aclSysErr(SYSERR_SHOW, "%s", kind.failedAfterError);
    return NOT_TOLD;
}

int handleShowIpAcl(aclNodeRecord* node, uint8_t* message) {
    static constexpr char failed[] = "Error in sending Show IP ACL back to CLI\n";
    return answerTaskShow({[](const listName& name, const uint8_t*, void** buffer, uint32_t* size) {
                               return aclShowIpAclExt(name, buffer, size);
                           },
                           failed, failed},
                          node, message);
}
int handleShowIpAclAll(aclNodeRecord* node, uint8_t* message) {
    // The two texts lack different blanks; it is meant.
    return answerTaskShow({[](const listName& name, const uint8_t*, void** buffer, uint32_t* size) {
                               return aclShowIpAclAllExt(name, buffer, size);
                           },
                           "Error in sending Show IP ACL All backto CLI\n",
                           "Error in sending Show IP ACL All back toCLI\n"},
                          node, message);
}

// The first type of each pair asks for the detail.
template <uint32_t AF>
uint32_t showPrefixToTask(const listName& name, const uint8_t* message, void** buffer,
                          uint32_t* size) {
    uint32_t mtype = msgWord(message, offsetof(ipcHdr, mtype));
    uint32_t detail = mtype == MT_SHOW_PREFIX || mtype == MT_SHOW_V6_PREFIX;
    uint32_t resume = msgWord(message, SHOW_RESUME_OFFSET);
    return prefixShowIpListExt(name, buffer, size, detail, &resume, AF);
}
template <uint32_t AF>
uint32_t showPrefixAllToTask(const listName& name, const uint8_t* message, void** buffer,
                             uint32_t* size) {
    uint32_t mtype = msgWord(message, offsetof(ipcHdr, mtype));
    uint32_t detail = mtype == MT_SHOW_PREFIX_ALL || mtype == MT_SHOW_V6_PREFIX_ALL;
    uint32_t resume = msgWord(message, SHOW_RESUME_OFFSET);
    return prefixShowIpListAllExt(name, buffer, size, detail, &resume, AF);
}
template <uint32_t AF>
int handleShowPrefix(aclNodeRecord* node, uint8_t* message) {
    const char* failed = AF == AF_IPV4 ? "Error in sending Show IP Prefix List back to CLI\n"
                                       : "Error in sending Show Ipv6 Prefix List back to CLI\n";
    return answerTaskShow({showPrefixToTask<AF>, failed, failed}, node, message);
}
template <uint32_t AF>
int handleShowPrefixAll(aclNodeRecord* node, uint8_t* message) {
    const char* failed = AF == AF_IPV4 ? "Error in sending Show IP Prefix All back to CLI\n"
                                       : "Error in sending Show Ipv6 Prefix All back to CLI\n";
    return answerTaskShow({showPrefixAllToTask<AF>, failed, failed}, node, message);
}

// --- the table -----------------------------------------------------------------------------------

enum class msgReply {
    none,
    ipc,        // AclIpcReply when the handler is done
    byHandler,  // the handler answers, or decides whether to
    show,       // the handler answers; a missing one is told in the status word
    dai,        // AclDaiIpcReply when the handler is done
    ifm,        // the SWP kinds acknowledge first, and run the handler for messages in order only
    vrrp,
    udpHelper,
    macMgr,
};

typedef int (*msgHandler)(aclNodeRecord* node, uint8_t* message);

struct msgRow {
    uint32_t first, last;  // message types, inclusive
    const char* name;
    uint32_t minLen;  // bytes, header included
    msgReply reply;
    msgHandler run;            // null: not built yet
    bool tellsResult = false;  // AclProcMsg returns what the handler returned
    uint32_t nameAt = 0;       // of a name that must be one word
};

constexpr uint32_t HDR = sizeof(ipcHdr);
constexpr uint32_t CLIENT_LEN = 212;  // up to the end of the name
constexpr uint32_t CLIENT_NAME = 72;
constexpr uint32_t SHOW_LEN = sizeof(showReplyHdr);

// clang-format off
constexpr msgRow msgTable[] = {
    {8, 8,         "RAM data sync",                HDR,        msgReply::none,      handleRamDataSync},
    {401, 401,     "SWP time-out",                 HDR,        msgReply::none,      handleSwpTimeout},
    {402, 402,     "SWP acknowledgement",          HDR,        msgReply::none,      handleSwpAck},
    {801, 801,     "ignored",                      HDR,        msgReply::none,      handleNothing},
    {1110, 1111,   "protocol enable",              HDR,        msgReply::ipc,       nullptr},
    {1112, 1113,   "protocol enable from VRRP",    HDR,        msgReply::vrrp,      nullptr},
    {2009, 2009,   "event notification",           72,         msgReply::ipc,       handleEvent},
    {2804, 2804,   "block configuration starts",   HDR,        msgReply::ifm,       handleCfgStart},
    {2805, 2805,   "block configuration ends",     HDR,        msgReply::ifm,       handleCfgEnd},
    {2806, 2806,   "initial configuration done",   HDR,        msgReply::ifm,       handleCfgComplete},
    {6001, 6002,   "CLI command",                  HDR,        msgReply::byHandler, handleCli},
    {8402, 8402,   "SNMP trap agent address",      HDR,        msgReply::ipc,       nullptr},
    {10873, 10873, "IFM: ports leave",             68,         msgReply::ifm,       nullptr},
    {10874, 10874, "IFM notification, no action",  HDR,        msgReply::ifm,       handleNothing},
    {10876, 10876, "IFM notification, no action",  HDR,        msgReply::ifm,       handleNothing},
    {10878, 10878, "IFM: VLANs of a port",         68,         msgReply::ifm,       nullptr},
    {10880, 10880, "mirroring relay",              76,         msgReply::ifm,       nullptr},
    {10896, 10896, "IFM events",                   192,        msgReply::ifm,       nullptr},
    {14401, 14401, "control-processor agent registers", 64,    msgReply::byHandler, aclHandleAcl0Register},
    {14403, 14403, "line-card agent registers",    HDR,        msgReply::byHandler, aclHandleAgentRegister},
    {14404, 14404, "agent asks for its queue",     HDR,        msgReply::byHandler, aclHandleAgentQueue, true},
    {14405, 14405, "SNMP registers",               HDR,        msgReply::byHandler, aclHandleSnmpRegister, true},
    {14406, 14406, "IPM registers",                HDR,        msgReply::byHandler, aclHandleIpmRegister, true},
    {14407, 14407, "SYSADM registers",             HDR,        msgReply::byHandler, aclHandleSysadmRegister, true},
    {14435, 14435, "DAI notification",             68,         msgReply::dai,       nullptr},
    {14436, 14436, "DHCP-snooping notification",   HDR,        msgReply::udpHelper, nullptr},
    {14437, 14437, "DHCP source-address validation", 68,       msgReply::byHandler, nullptr},
    {14442, 14443, "IP ACL client",                CLIENT_LEN, msgReply::ipc,       aclHandleClient, true, CLIENT_NAME},
    {14444, 14445, "IPv6 ACL client",              CLIENT_LEN, msgReply::ipc,       nullptr, true, CLIENT_NAME},
    {14446, 14449, "prefix-list client",           CLIENT_LEN, msgReply::ipc,       aclHandleClient, true, CLIENT_NAME},
    {14450, 14451, "AS-path client",               CLIENT_LEN, msgReply::ipc,       aclHandleClient, true, CLIENT_NAME},
    {14452, 14453, "community client",             CLIENT_LEN, msgReply::ipc,       aclHandleClient, true, CLIENT_NAME},
    {14454, 14455, "route-map client",             CLIENT_LEN, msgReply::ipc,       aclHandleClient, true, CLIENT_NAME},
    {14456, 14457, "MAC ACL client",               CLIENT_LEN, msgReply::ipc,       nullptr, true, CLIENT_NAME},
    {14460, 14460, "answer to a trigger",          HDR,        msgReply::none,      handleTriggerAnswer},
    {14462, 14462, "answer to a trigger",          HDR,        msgReply::none,      handleTriggerAnswer},
    {14464, 14465, "answer to a trigger",          HDR,        msgReply::none,      handleTriggerAnswer},
    {14466, 14466, "show IP ACL",                  SHOW_LEN,   msgReply::show,      handleShowIpAcl},
    {14467, 14467, "show all IP ACLs",             SHOW_LEN,   msgReply::show,      handleShowIpAclAll},
    {14468, 14468, "answer to a trigger",          HDR,        msgReply::none,      handleTriggerAnswer},
    {14469, 14470, "show IPv4 prefix list",        SHOW_LEN,   msgReply::show,      handleShowPrefix<AF_IPV4>},
    {14471, 14472, "show all IPv4 prefix lists",   SHOW_LEN,   msgReply::show,      handleShowPrefixAll<AF_IPV4>},
    {14474, 14474, "UDP-helper notification",      HDR,        msgReply::udpHelper, nullptr},
    {14480, 14481, "show IPv6 prefix list",        SHOW_LEN,   msgReply::show,      handleShowPrefix<AF_IPV6>},
    {14482, 14483, "show all IPv6 prefix lists",   SHOW_LEN,   msgReply::show,      handleShowPrefixAll<AF_IPV6>},
    {14490, 14490, "MAC-limit list",               HDR,        msgReply::macMgr,    nullptr},
    {14491, 14491, "MAC-limit entries",            HDR,        msgReply::macMgr,    nullptr},
    {14492, 14493, "MAC-limit entry deletion",     HDR,        msgReply::macMgr,    nullptr},
    {14494, 14494, "MAC-limit list deletion",      HDR,        msgReply::macMgr,    nullptr},
    {14495, 14495, "MAC-limit protocol filter",    104,        msgReply::none,      nullptr},
    {14502, 14502, "STP enable",                   68,         msgReply::macMgr,    nullptr},
    {14504, 14505, "GVRP",                         HDR,        msgReply::ipc,       nullptr},
    {14517, 14518, "mask display mode",            HDR,        msgReply::byHandler, handleInverseMask},
    {14522, 14524, "peer route processor",         HDR,        msgReply::byHandler, handlePeer},
    {14529, 14529, "answer to a trigger",          HDR,        msgReply::none,      handleTriggerAnswer},
    {14552, 14552, "second ACL agent registers",   HDR,        msgReply::byHandler, aclHandleAcl2Register, true},
    {20417, 20417, "sFlow agent address",          HDR,        msgReply::ipc,       nullptr},
};
// clang-format on
static_assert(std::ranges::is_sorted(msgTable, {}, &msgRow::first));

const msgRow* findRow(uint32_t mtype) {
    const msgRow* row = std::ranges::lower_bound(msgTable, mtype, {}, &msgRow::last);
    return row != std::ranges::end(msgTable) && row->first <= mtype ? row : nullptr;
}

int acknowledge(msgReply reply, uint8_t* message) {
    switch (reply) {
        case msgReply::ifm:
            return AclIfmIpcReply(message);
        case msgReply::vrrp:
            return AclVrrpIpcReply(message);
        case msgReply::udpHelper:
            return AclUDPHlpIpcReply(message);
        case msgReply::macMgr:
            return AclMacMgrIpcReply(message);
        default:
            return 0;
    }
}

// What is not handled: answered with a failure where the row answers at all.
void refuse(const msgRow& row, uint8_t* message) {
    ipcHdr* hdr = msgHdr(message);
    switch (row.reply) {
        case msgReply::ipc:
            hdr->result = ACL_E_SYSTEM;
            AclIpcReply(aclNode->ipc.regQfd, message);
            break;
        case msgReply::show:
            hdr->status = ACL_E_SYSTEM;
            AclIpcReply(aclNode->ipc.regQfd, message);
            break;
        case msgReply::dai:
            (void)AclDaiIpcReply(message);
            break;
        default:
            break;
    }
}

bool nameIsWord(const uint8_t* field) {
    const auto* text = reinterpret_cast<const char*>(field);
    return textFitsLine({text, strnlen(text, LIST_NAME_LEN)}, false);
}

}  // namespace

uint32_t msgWord(const uint8_t* message, uint32_t offset) {
    const auto* word = wireView<be32>(std::span<const uint8_t>(message, IPC_BUFFER_SIZE), offset);
    return word != nullptr ? uint32_t{*word} : 0;
}

bool aclCanChange() {
    return zekCfgWritable(aclNode->config.cfgDb) ||
           zekCfgRestoring(aclNode->config.cfgDb) != nullptr;
}

void aclNotBuilt(const char* what) {
    static std::set<std::string> told;
    aclCounters.notBuilt++;
    if (!told.insert(what).second) return;
    std::string text = std::string("not supported by this build: ") + what;
    zekEvtLogPrint(aclNode->evtLogKey, 4, text.c_str());
}

uint32_t aclRefuseV6() {
    aclNotBuilt("IPv6 access lists");
    return ACL_E_SYSTEM;
}

void aclTakeMessage(aclNodeRecord* node, std::span<uint8_t, IPC_BUFFER_SIZE> buffer,
                    size_t received) {
    if (received < sizeof(ipcHdr) || received > buffer.size()) {
        aclCounters.tooShort++;
        return;
    }
    std::memset(buffer.data() + received, 0, buffer.size() - received);
    ipcHdr* hdr = msgHdr(buffer.data());
    if (hdr->length != received) {
        // A length word may state less than came; what it states beyond that is not there.
        if (hdr->length < sizeof(ipcHdr) || hdr->length > received) {
            aclCounters.badLength++;
            hdr->length = static_cast<uint32_t>(received);
        } else {
            std::memset(buffer.data() + hdr->length, 0, received - hdr->length);
        }
    }
    (void)AclProcMsg(node, buffer.data());
}

int AclProcMsg(aclNodeRecord* node, uint8_t* message) {
    ipcHdr* hdr = msgHdr(message);
    hdr->status = 0;
    aclDebug(DEBUG_ACL_IPC, "ipchdr->mtype = %d\r\n", static_cast<int>(uint32_t{hdr->mtype}));
    aclCounters.messages++;
    if (!aclIsServing()) clientWaitsBegin();
    const msgRow* row = findRow(hdr->mtype);
    if (row == nullptr) {
        aclCounters.unknownType++;
        return -1;
    }
    if (acknowledge(row->reply, message) != 0) return -1;
    if (hdr->length < row->minLen) {
        aclCounters.truncated++;
        refuse(*row, message);
        return -1;
    }
    if (row->run == nullptr) {
        aclNotBuilt(row->name);
        refuse(*row, message);
        return -1;
    }
    if (row->nameAt != 0 && !nameIsWord(message + row->nameAt)) {
        aclCounters.badNames++;
        refuse(*row, message);
        return -1;
    }
    int result = row->run(node, message);
    if (row->reply == msgReply::ipc) AclIpcReply(node->ipc.regQfd, message);
    if (row->reply == msgReply::dai) (void)AclDaiIpcReply(message);
    return row->tellsResult ? result : -1;
}
