// The message dispatcher: one row per message type, found by binary search.
//
// A row says how long the message must be, how its sender is answered, and what runs. The
// dispatcher checks and answers, so a handler sees only messages that are long enough, and SWP
// messages once each. A row without a handler belongs to a subsystem that is not built yet: the
// sender is answered as for a failed operation where the row answers at all.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <set>
#include <string>

#include "common/cfgline.h"
#include "common/clientWait.h"
#include "download/maclimit.h"
#include "include/cliMsg.h"
#include "include/clientMsg.h"
#include "include/ifmMsg.h"
#include "platform/api/zekLock.h"
#include "platform/api/zekMem.h"
#include "protocol/AclIpAdd.h"
#include "protocol/relays.h"
#include "protocol/zekprotocol.h"
#include "task/rows.h"
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
// The queue hands back the message that was acknowledged: it came from this task's pools.
int handleSwpAck(aclNodeRecord*, uint8_t* message) {
    aclCounters.swp_ack++;
    void* released = nullptr;
    int code = zekSwpDequeue(message, &released);
    if (released != nullptr) zekMC_M_memBlockVarFree(released);
    return swpError(code);
}
// One that is waited for comes through the response queue; here it comes too late, or to nothing.
int handleTriggerAnswer(aclNodeRecord*, uint8_t* message) {
    clientLateAnswer(*msgHdr(message));
    return NOT_TOLD;
}
// News that concern no list. They have a row all the same: some are acknowledged, and none is to be
// counted as unknown.
int handleNothing(aclNodeRecord*, uint8_t*) {
    return NOT_TOLD;
}

// A handler that has nothing to return.
template <auto Handler>
int untold(aclNodeRecord*, uint8_t* message) {
    Handler(message);
    return NOT_TOLD;
}

// What has counts that do not fit its length is dropped, as what is too short.
int relayed(bool good) {
    if (!good) aclCounters.truncated++;
    return NOT_TOLD;
}
std::span<const uint8_t> wholeOf(const uint8_t* message) {
    return {message, reinterpret_cast<const ipcHdr*>(message)->length};
}

// The profile at 68, the microcode at 72. False when the message ends before them.
bool handleCamProfile(const uint8_t* message) {
    if (wholeOf(message).size() < 76) return false;
    aclHandleCamPrfChgNotif(msgWord(message, 68), msgWord(message, 72));
    return true;
}
// The event's id at 64; of a card, its slot at 68.
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
    if (event == EVT_CAM_PROFILE && !handleCamProfile(message)) {
        aclCounters.truncated++;
        msgHdr(message)->result = ACL_E_SYSTEM;
    }
    if (event == EVT_CARD_DOWN || event == EVT_CARD_SHUTDOWN)
        aclHandleCardDownNotif(msgWord(message, 68));
    return NOT_TOLD;
}

// Between the two come the records of a restart, or a file: duplicate checks that cost a walk are
// left out meanwhile.
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
    aclAwaitPlaces();  // what is told of them has waited for this, as agents have
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
    // As long as there are entries: the sender does not wait for it.
    aclLockHeld<aclLock::write> held;
    ipInvertAccessEntryMask();
    return NOT_TOLD;
}

// A request that has a number comes again when its answer was late. (Queued ones are told apart by
// their acknowledgement.)
bool isSameRequest(const protEnableMsg& a, const protEnableMsg& b) {
    return a.ipc.sequence != 0 && a.ipc.sequence == b.ipc.sequence && a.ipc.mtype == b.ipc.mtype &&
           std::memcmp(&a.ipc.target, &b.ipc.target, sizeof a.ipc.target) == 0 &&
           std::memcmp(&a.record, &b.record, sizeof a.record) == 0;
}
// What the sender of 1112 and 1113 reads of it has been sent already.
int handleProtEnable(aclNodeRecord*, uint8_t* message) {
    static protEnableMsg done;  // the last request: repeated, it must not count as a user of RIP
    ipcHdr* hdr = msgHdr(message);
    const auto& request = *reinterpret_cast<const protEnableMsg*>(message);
    const bool isRequest = hdr->mtype == MT_PROT_FIRST || hdr->mtype == MT_PROT_LAST;
    if (isRequest && isSameRequest(request, done)) {
        hdr->result = ACL_OK;
        return NOT_TOLD;
    }
    aclLockHeld<aclLock::write> held;
    hdr->result = AclProtEnable(message, hdr->mtype);
    if (isRequest && hdr->result == ACL_OK) done = request;
    return NOT_TOLD;
}

// --- MAC limits ----------------------------------------------------------------------------------

int handleMacLimit(aclNodeRecord*, uint8_t* message) {
    switch (msgHdr(message)->mtype) {
        case MT_ACLMAC_ADD:
            aclCounters.ACLMAC_ADD++;
            break;
        case MT_ACLMAC_DELENTRY:
            aclCounters.ACLMAC_DELENTRY++;
            break;
        case MT_ACLMAC_DELALLENTRY:
            aclCounters.ACLMAC_DELALLENTRY++;
            break;
    }
    aclLockHeld<aclLock::read> held;
    return relayed(aclSendMacLimit(wholeOf(message)));
}
int handleProtocolFilter(aclNodeRecord*, uint8_t* message) {
    aclLockHeld<aclLock::read> held;
    return relayed(aclSendProtFilter(wholeOf(message)));
}

// --- the interface manager, and what is passed on to the cards ----------------------------------

// A handler that takes the whole message, under the lock, and says whether it is what it says.
template <aclLock Kind, auto Handler>
int underLock(aclNodeRecord*, uint8_t* message) {
    aclLockHeld<Kind> held;
    return relayed(Handler(wholeOf(message)));
}
// What an agent sends from, into its message.
template <auto Fill>
int addressOf(aclNodeRecord*, uint8_t* message) {
    aclLockHeld<aclLock::read> held;
    Fill(message);
    return NOT_TOLD;
}
int handleIfmEvents(aclNodeRecord*, uint8_t* message) {
    return relayed(aclHandleIFMNotifMsg(wholeOf(message)));
}

// Neither changes the bytes, so the two have one copy of them: the message itself.
bool portsLeave(std::span<const uint8_t> message) {
    const auto first = message.first(std::min(message.size(), IFM_PORTS_LEAVE_BYTES));
    const bool good = vAclDelMultiplePort(first);
    return aclDelMultiplePortForMirroring(first) && good;
}

// The words from the body's begin on.
template <size_t Count>
std::array<uint32_t, Count> wordsOf(const uint8_t* message) {
    std::array<uint32_t, Count> words;
    for (uint32_t i = 0; i < Count; i++)
        words[i] = msgWord(message, static_cast<uint32_t>(sizeof(ipcHdr)) + 4 * i);
    return words;
}
int handleStpEnable(aclNodeRecord* node, uint8_t* message) {
    aclLockHeld<aclLock::write> held;
    node->protocol.stpWords = wordsOf<2>(message);
    aclSendStpEnableMsgToAclAgent(*node->protocol.stpWords, SLOT_NONE);
    return NOT_TOLD;
}
int handleMirrorRelay(aclNodeRecord*, uint8_t* message) {
    aclLockHeld<aclLock::read> held;
    aclMirroringRelayMgShutNoshutNotif(wordsOf<4>(message));
    return NOT_TOLD;
}

// --- shows for other tasks -----------------------------------------------------------------------

// The name at 64, of prefix lists a resume index behind it.
struct taskShow {
    uint32_t (*run)(const taskShow& how, const uint8_t* message, void** buffer, uint32_t* size);
    uint32_t family;  // of prefix lists
    bool detail;      // of prefix lists
    // Logged when there is nobody to answer.
    const char* failedAfterError;
    const char* failedAfterSuccess;
};

listName shownName(const uint8_t* message) {
    return listNameMake(reinterpret_cast<const showReplyHdr*>(message)->name);
}
uint32_t showIpAcl(const taskShow&, const uint8_t* message, void** buffer, uint32_t* size) {
    return aclShowIpAclExt(shownName(message), buffer, size);
}
uint32_t showIpAclAll(const taskShow&, const uint8_t* message, void** buffer, uint32_t* size) {
    return aclShowIpAclAllExt(shownName(message), buffer, size);
}
uint32_t showPrefix(const taskShow& how, const uint8_t* message, void** buffer, uint32_t* size) {
    uint32_t resume = msgWord(message, SHOW_RESUME_OFFSET);
    return prefixShowIpListExt(shownName(message), buffer, size, how.detail, &resume, how.family);
}
uint32_t showPrefixAll(const taskShow& how, const uint8_t* message, void** buffer, uint32_t* size) {
    uint32_t resume = msgWord(message, SHOW_RESUME_OFFSET);
    return prefixShowIpListAllExt(shownName(message), buffer, size, how.detail, &resume,
                                  how.family);
}

// The handler of every show. A buffer without text is answered like an error, in the status word.
int answerTaskShow(const taskShow& how, aclNodeRecord* node, uint8_t* message) {
    void* buffer = nullptr;
    uint32_t size = 0;
    uint32_t status = how.run(how, message, &buffer, &size);
    if (status == ACL_OK && buffer != nullptr) {
        if (AclSendDisplayBuffer(buffer, size, message) != 0)
            aclSysErr(SYSERR_SHOW, "%s", how.failedAfterSuccess);
        return NOT_TOLD;
    }
    if (buffer != nullptr) zekMC_M_sysFree(buffer);
    ipcHdr* hdr = msgHdr(message);
    hdr->status = status;
    ipcExchangeTriples(hdr);
    if (zekIpcSend(node->ipc.regQfd, message, hdr->length) != 0)
        aclSysErr(SYSERR_SHOW, "%s", how.failedAfterError);
    return NOT_TOLD;
}

// --- the table -----------------------------------------------------------------------------------

// How the sender hears that its message has come, and what has become of it.
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

// A row is a promise to its handler: the message has `minLen` bytes, the name at `nameAt` can stand
// in a line, and a sender that repeats itself has been dealt with.
struct msgRow {
    codeRange codes;  // message types
    const char* name;
    uint32_t minLen;  // bytes, header included
    msgReply reply;
    msgHandler run;            // null: not built yet, or a show
    bool tellsResult = false;  // AclProcMsg returns what the handler returned
    uint32_t nameAt = 0;       // of a name that must be one word
    taskShow show = {};        // what is shown
};

constexpr uint32_t HDR = sizeof(ipcHdr);
constexpr uint32_t LIMIT = sizeof(macLimitMsg);
constexpr uint32_t CLIENT_LEN = 212;  // up to the end of the name

// Rows of one shape, in which only these differ.
constexpr msgRow clientRow(codeRange types, const char* name, msgHandler run) {
    return {types, name, CLIENT_LEN, msgReply::ipc, run, true, offsetof(clientRegReq, name)};
}
constexpr msgRow showRow(uint32_t type, const char* name, const taskShow& show) {
    return {type, name, sizeof(showReplyHdr), msgReply::show, nullptr, false, 0, show};
}
constexpr bool DETAIL = true, BRIEF = false;
constexpr char ipAclFailed[] = "Error in sending Show IP ACL back to CLI\n";
constexpr char prefixFailed[] = "Error in sending Show IP Prefix List back to CLI\n";
constexpr char prefixAllFailed[] = "Error in sending Show IP Prefix All back to CLI\n";
constexpr char prefix6Failed[] = "Error in sending Show Ipv6 Prefix List back to CLI\n";
constexpr char prefix6AllFailed[] = "Error in sending Show Ipv6 Prefix All back to CLI\n";

// clang-format off
constexpr msgRow msgTable[] = {
    {MT_RAM_DATA_SYNC,           "RAM data sync",                 HDR, msgReply::none,      untold<aclHandleRamDataSyncNotif>},
    {MT_SWP_TIMEOUT,             "SWP time-out",                  HDR, msgReply::none,      handleSwpTimeout},
    {MT_SWP_ACK,                 "SWP acknowledgement",           HDR, msgReply::none,      handleSwpAck},
    {MT_IGNORED,                 "ignored",                       HDR, msgReply::none,      handleNothing},
    {{MT_PROT_FIRST, MT_PROT_LAST}, "protocol enable",  sizeof(protEnableMsg), msgReply::ipc, handleProtEnable},
    {{MT_PROT_VRRP_FIRST, MT_PROT_VRRP_LAST}, "protocol enable from VRRP", sizeof(protEnableSwpMsg), msgReply::vrrp, handleProtEnable},
    {MT_EVENT_NOTIF,             "event notification",             72, msgReply::ipc,       handleEvent},
    {MT_CFG_START_BLK_CFG_NOTIF, "block configuration starts",    HDR, msgReply::ifm,       handleCfgStart},
    {MT_CFG_END_BLK_CFG_NOTIF,   "block configuration ends",      HDR, msgReply::ifm,       handleCfgEnd},
    {MT_CFG_INIT_CFG_COMPLETE,   "initial configuration done",    HDR, msgReply::ifm,       handleCfgComplete},
    {{MT_CLI_COMMAND, MT_CLI_COMMAND_2}, "CLI command",           HDR, msgReply::byHandler, handleCli},
    {MT_SNMP_TRAP_AGENT_IP,      "SNMP trap agent address",       sizeof(agentAddressMsg), msgReply::ipc, addressOf<AclSnmpTrapAgentIpfill>},
    {MT_IFM_PORTS_LEAVE,         "IFM: ports leave",               68, msgReply::ifm,       underLock<aclLock::write, portsLeave>},
    {MT_IFM_NOTIF_A,             "IFM notification, no action",   HDR, msgReply::ifm,       handleNothing},
    {MT_IFM_NOTIF_B,             "IFM notification, no action",   HDR, msgReply::ifm,       handleNothing},
    {MT_IFM_PORTVL_EVT_NOTIF,    "IFM: VLANs of a port",           68, msgReply::ifm,       underLock<aclLock::write, vAclSetPortVlans>},
    {MT_IFM_MIRROR_RELAY,        "mirroring relay",                76, msgReply::ifm,       handleMirrorRelay},
    {MT_IFM_EVT_NOTIF,           "IFM events",                    192, msgReply::ifm,       handleIfmEvents},
    {MT_ACL0_REGISTER,           "control-processor agent registers", 64, msgReply::byHandler, aclHandleAcl0Register},
    {MT_AGENT_REGISTER,          "line-card agent registers",     HDR, msgReply::byHandler, aclHandleAgentRegister},
    {MT_AGENT_QUEUE,             "agent asks for its queue",      HDR, msgReply::byHandler, aclHandleAgentQueue, true},
    {MT_SNMP_REGISTER,           "SNMP registers",                HDR, msgReply::byHandler, aclHandleSnmpRegister, true},
    {MT_IPM_REGISTER,            "IPM registers",                 HDR, msgReply::byHandler, aclHandleIpmRegister, true},
    {MT_SYSADM_REGISTER,         "SYSADM registers",              HDR, msgReply::byHandler, aclHandleSysadmRegister, true},
    {MT_DAI_NOTIF,               "DAI notification",               68, msgReply::dai,       nullptr},
    {MT_DHCP_SNOOP_NOTIF,        "DHCP-snooping notification",    HDR, msgReply::udpHelper, nullptr},
    {MT_DHCP_SAV,                "DHCP source-address validation", 68, msgReply::byHandler, nullptr},
    clientRow({MT_ACL_CLIENT_ADD, MT_ACL_CLIENT_DEL},          "IP ACL client",      aclHandleClient),
    clientRow({MT_V6_ACL_CLIENT_ADD, MT_V6_ACL_CLIENT_DEL},    "IPv6 ACL client",    aclHandleClient),
    clientRow({MT_PREFIX_CLIENT_ADD, MT_V6_PREFIX_CLIENT_DEL}, "prefix-list client", aclHandleClient),
    clientRow({MT_ASPATH_CLIENT_ADD, MT_ASPATH_CLIENT_DEL},    "AS-path client",     aclHandleClient),
    clientRow({MT_COMM_CLIENT_ADD, MT_COMM_CLIENT_DEL},        "community client",   aclHandleClient),
    clientRow({MT_RMAP_CLIENT_ADD, MT_RMAP_CLIENT_DEL},        "route-map client",   aclHandleClient),
    clientRow({MT_MAC_CLIENT_ADD, MT_MAC_CLIENT_DEL},          "MAC ACL client",     aclHandleClient),
    {MT_ACL_TRIGGER,             "answer to a trigger",           HDR, msgReply::none,      handleTriggerAnswer},
    {{MT_RMAP_TRIGGER, MT_COMM_TRIGGER}, "answer to a trigger",   HDR, msgReply::none,      handleTriggerAnswer},
    showRow(MT_SHOW_IP_ACL, "show IP ACL", {showIpAcl, 0, false, ipAclFailed, ipAclFailed}),
    // The two texts lack different blanks; it is meant.
    showRow(MT_SHOW_IP_ACL_ALL, "show all IP ACLs",
            {showIpAclAll, 0, false, "Error in sending Show IP ACL All backto CLI\n",
             "Error in sending Show IP ACL All back toCLI\n"}),
    {MT_PREFIX_TRIGGER,          "answer to a trigger",           HDR, msgReply::none,      handleTriggerAnswer},
    showRow(MT_SHOW_PREFIX,           "show IPv4 prefix list",      {showPrefix, AF_IPV4, DETAIL, prefixFailed, prefixFailed}),
    showRow(MT_SHOW_PREFIX_BRIEF,     "show IPv4 prefix list",      {showPrefix, AF_IPV4, BRIEF, prefixFailed, prefixFailed}),
    showRow(MT_SHOW_PREFIX_ALL,       "show all IPv4 prefix lists", {showPrefixAll, AF_IPV4, DETAIL, prefixAllFailed, prefixAllFailed}),
    showRow(MT_SHOW_PREFIX_ALL_BRIEF, "show all IPv4 prefix lists", {showPrefixAll, AF_IPV4, BRIEF, prefixAllFailed, prefixAllFailed}),
    {MT_UDP_HELPER_NOTIF,        "UDP-helper notification",       HDR, msgReply::udpHelper, nullptr},
    showRow(MT_SHOW_V6_PREFIX,           "show IPv6 prefix list",      {showPrefix, AF_IPV6, DETAIL, prefix6Failed, prefix6Failed}),
    showRow(MT_SHOW_V6_PREFIX_BRIEF,     "show IPv6 prefix list",      {showPrefix, AF_IPV6, BRIEF, prefix6Failed, prefix6Failed}),
    showRow(MT_SHOW_V6_PREFIX_ALL,       "show all IPv6 prefix lists", {showPrefixAll, AF_IPV6, DETAIL, prefix6AllFailed, prefix6AllFailed}),
    showRow(MT_SHOW_V6_PREFIX_ALL_BRIEF, "show all IPv6 prefix lists", {showPrefixAll, AF_IPV6, BRIEF, prefix6AllFailed, prefix6AllFailed}),
    {MT_ACLMAC_NEW,              "MAC-limit list",                LIMIT, msgReply::macMgr,  handleMacLimit},
    {MT_ACLMAC_ADD,              "MAC-limit entries",             LIMIT, msgReply::macMgr,  handleMacLimit},
    {{MT_ACLMAC_DELENTRY, MT_ACLMAC_DELALLENTRY}, "MAC-limit entry deletion", LIMIT, msgReply::macMgr, handleMacLimit},
    {MT_ACLMAC_DELLIST,          "MAC-limit list deletion",       LIMIT, msgReply::macMgr,  handleMacLimit},
    {MT_ACLMAC_PROTOCOL_FILTER,  "MAC-limit protocol filter",     sizeof(protocolFilterMsg), msgReply::none, handleProtocolFilter},
    {MT_STP_ENABLE,              "STP enable",                     68, msgReply::macMgr,    handleStpEnable},
    {{MT_GVRP_FIRST, MT_GVRP_LAST}, "GVRP",                       HDR, msgReply::ipc,       underLock<aclLock::read, AclSendGVRPMsgToAgent>},
    {{MT_ACL_INVERSEMASK_ENABLE, MT_ACL_INVERSEMASK_DISABLE}, "mask display mode", HDR, msgReply::byHandler, handleInverseMask},
    {{MT_PEER_INFO, MT_PEER_REGISTER}, "peer route processor",    HDR, msgReply::byHandler, untold<aclHandlePeerMsg>},
    {MT_V6_ACL_TRIGGER,          "answer to a trigger",           HDR, msgReply::none,      handleTriggerAnswer},
    {MT_ACL2_REGISTER,           "second ACL agent registers",    HDR, msgReply::byHandler, aclHandleAcl2Register, true},
    {MT_SFLOW_AGENT_IP,          "sFlow agent address",           sizeof(agentAddressMsg), msgReply::ipc, addressOf<AclSflowAgentIpfill>},
};
// clang-format on
static_assert(rowsAreSorted(msgTable));

// Before anything is checked: the sender's queue must go on, whatever is wrong with the message.
// Not 0: it is not to be handled.
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
        case msgReply::byHandler:
            if (row.run != handleCli) break;
            reinterpret_cast<cliHdr*>(message)->result = ACL_E_MEMORY;
            AclIpcReply(aclNode->ipc.regQfd, message);
            break;
        default:
            break;
    }
}

// A name becomes part of configuration lines. One that does not read back as itself would make
// another list at the next start.
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
    static std::set<std::string> told;  // a sender that goes on asking would fill the log
    aclCounters.notBuilt++;
    if (!told.insert(what).second) return;
    std::string text = std::string("not supported by this build: ") + what;
    zekEvtLogPrint(aclNode->evtLogKey, 4, text.c_str());
}

void aclTakeMessage(aclNodeRecord* node, std::span<uint8_t, IPC_BUFFER_SIZE> buffer,
                    size_t received) {
    if (received < sizeof(ipcHdr) || received > buffer.size()) {
        aclCounters.tooShort++;
        return;
    }
    // A handler may read behind a message that is short: it sees zeros, never the message before.
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
    // What is served inside a wait spends the time of the request that waits.
    if (!aclIsServing()) clientWaitsBegin();
    const msgRow* row = rowOf(msgTable, hdr->mtype);
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
    if (row->run == nullptr && row->show.run == nullptr) {
        aclNotBuilt(row->name);
        refuse(*row, message);
        return -1;
    }
    if (row->nameAt != 0 && !nameIsWord(message + row->nameAt)) {
        aclCounters.badNames++;
        refuse(*row, message);
        return -1;
    }
    int result = NOT_TOLD;
    try {
        result = row->show.run != nullptr ? answerTaskShow(row->show, node, message)
                                          : row->run(node, message);
    } catch (const std::bad_alloc&) {
        // What was done by then stays; the next message may find memory again.
        aclSysErr(SYSERR_MEMORY, "Unable to allocate memory for a message of type %d",
                  static_cast<int>(uint32_t{hdr->mtype}));
        refuse(*row, message);
        return -1;
    }
    if (row->reply == msgReply::ipc) AclIpcReply(node->ipc.regQfd, message);
    if (row->reply == msgReply::dai) (void)AclDaiIpcReply(message);
    return row->tellsResult ? result : -1;
}
