// Registration with the other tasks of the chassis: tried for ever, one try each on every fourth
// pass of the main loop.
#include <optional>
#include <utility>

#include "common/clientWait.h"
#include "common/linecard.h"
#include "common/message.h"
#include "download/zekacl_download.h"
#include "include/service.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// The body of a registration with the interface manager.
struct ifmRegisterReq {
    ipcHdr ipc;
    be32 wanted;  // 60  all ones: every notification
    uint8_t reserved[1372];
};
WIRE_SIZE(ifmRegisterReq, 1436);

constexpr uint32_t IFM_WAIT_MS = 5000;

void retryResult(aclRetry* state, uint8_t* done, uint32_t code, bool success) {
    if (success) {
        *done = 1;
        if (state->failureLogged) aclSysErr(code, "%s", "succeeded");
        return;
    }
    if (++state->attempts == 0) {
        aclSysErr(code, "%s", "failed");
        state->failureLogged = true;
    }
}

}  // namespace

int SysListRegistration(uint32_t slot) {
    static const listName globalName = listNameMake("Global Acl");
    uint32_t ifindex = ifindexControlPort(slot);
    aclList* list = ipSysAccessListFind(globalName);
    if (list == nullptr) {
        if (ipSysAccessListCreateExt(globalName, IP_KIND_EXTENDED, 0, ifindex) != ACL_OK ||
            (list = ipSysAccessListFind(globalName)) == nullptr) {
            aclSysErr(SYSERR_SYSLIST, "%s",
                      "AclInitialize: ipSysAccessListCreate: unable to create GlobalSystem Acl \n");
            return -1;
        }
    }
    // Its entries are those of the router's addresses: the step of these brings them, as the card
    // takes them.
    ipSysSendHeader(globalName, ifindex);
    static const listName v6Name = listNameMake("v6 Global Acl");
    const aclList* v6List = aclV6SysAccessListFind(v6Name);
    if (v6List == nullptr) {
        if (aclV6SysAccessListCreateExt(v6Name, 0, ifindex) != ACL_OK) {
            aclSysErr(SYSERR_SYSLIST, "%s",
                      "AclInitialize: unable to create the V6 GlobalSystem Acl \n");
            return -1;
        }
        v6List = aclV6SysAccessListFind(v6Name);
        if (v6List == nullptr) return 0;
    }
    if (slot < SLOT_COUNT && aclLinecardInfo[slot].isUp != 0)
        // For the card as a whole: no interface, no pipe.
        (void)iAclSendToAclAgent({0, static_cast<int>(slot), static_cast<uint32_t>(-1)},
                                 {MT_ACL_V6_SYS_ADDLIST, v6List});
    return 0;
}

namespace {

std::optional<uint32_t> ifmAnswered;  // the newest that came when nobody waited for it

// Whether a registration is answered by what has come, a late answer to one of the last included.
// That many tries may lie between an interface manager's stall and its answers.
bool answerIsThere(uint32_t newest) {
    aclTakeLateAnswers();
    const auto answered = std::exchange(ifmAnswered, std::nullopt);
    return answered.has_value() && newest - *answered < 256;
}

}  // namespace

void aclIfmLateAnswer(uint32_t sequence) {
    ifmAnswered = sequence;
}

int AclRegisterWithIFM([[maybe_unused]] uint32_t instance, [[maybe_unused]] uint32_t ipckey) {
    static uint32_t sequence = 0xFEEDBEEF;
    // An interface manager that has let us wait in vain hangs: it is not waited for again, or it
    // would hold up everybody else.
    static bool silent;
    uint32_t ifm;
    if (zek_tmeGetPeerIpAddrByName(APP_IFM, 0, &ifm) != 0) return -1;
    ifmRegisterReq req{};
    aclFillIpcHdr(&req.ipc, MT_IFM_REGISTER, sizeof req,
                  {ifm, aclServicePort(APP_IFM, 0, QUEUE_REQUEST)});
    req.ipc.sequence = sequence;
    req.wanted = 0xFFFFFFFF;
    uint32_t expected = sequence++;  // one for each try, sent or not
    if (zekIpcSend(aclNode->ipc.regQfd, &req, sizeof req) != 0) return -1;

    const bool answered = silent ? answerIsThere(expected)
                                 : AclAwaitReply(MT_IFM_REGISTER, expected, IFM_WAIT_MS) != nullptr;
    silent = !answered;
    return answered ? 0 : -1;
}

// One flag for the three: all are asked for again when one was refused.
int AclRegisterWithEvtHandler([[maybe_unused]] uint32_t attempt, [[maybe_unused]] zekEvtLog log) {
    int result = 0;
    for (uint32_t event : {EVT_CARD_DOWN, EVT_CARD_SHUTDOWN, EVT_CAM_PROFILE})
        if (zekEvhSubscribeEvt(aclNode->ipc.ipckey, event, 3) != 0) result = -1;
    return result;
}

// Its part is not built: nothing is asked of it, but its flag and its retries stand ready.
int AclRegisterWithUDPHelper() {
    return 0;
}

void aclSendRegistration() {
    auto& [ifm, udpHelper, evhAttempts, peerAttempts] = aclNode->standing.retries;
    if (aclNode->standing.ifmRegistered == 0)
        retryResult(&ifm, &aclNode->standing.ifmRegistered, SYSERR_IFM,
                    AclRegisterWithIFM(0, aclNode->ipc.ipckey) == 0);
    if (aclNode->standing.evhRegistered == 0) {
        if (AclRegisterWithEvtHandler(evhAttempts, aclNode->evtLogKey) == 0) {
            aclNode->standing.evhRegistered = 1;
            if (evhAttempts != 0) aclSysErr(SYSERR_EVH, "%s", "succeeded");
        } else if (evhAttempts++ == 0) {
            aclSysErr(SYSERR_EVH, "%s", "failed");
        }
    }
    if (aclNode->standing.peerRegistered == 0) {
        if (aclRegisterWithPeer(peerAttempts) != 0) {
            peerAttempts++;
        } else if (peerAttempts != 0) {
            aclSysErr(SYSERR_PEER, "%s", "succeeded");
            peerAttempts = 0;
        }
    }
    if (aclNode->standing.udpHelperRegistered == 0)
        retryResult(&udpHelper, &aclNode->standing.udpHelperRegistered, SYSERR_UDP_HELPER,
                    AclRegisterWithUDPHelper() == 0);
    // One waiting peer update a call, the lowest first.
    for (uint32_t kind = 0; kind < PEER_UPDATE_KINDS; kind++)
        if (aclNode->peer.peerMark[kind] == 0) {
            (void)aclSendUpdateToPeer(static_cast<uint32_t>(kind));
            break;
        }
}
