// Requests that are held until the configuration is there, and the requests of the task's own: what
// other threads have a say in, and how they wake the task for it.
#include "platform/host/held.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "platform/host/host.h"

namespace {

// Requests kept aside; more are dropped and counted: their senders time out.
constexpr size_t ASIDE_MAX = 65536;
constexpr size_t ASIDE_BYTES_MAX = 16u << 20;

// What other threads want held, and what the task has made of it.
std::mutex holdLock;
hostFd wakeFd;  // written by other threads when the task must look again
bool holdWanted = false;
std::atomic<uint32_t> holdChanges{0};
bool hold = false;
uint32_t holdSeen = 0;
std::deque<keptMessage> aside;
size_t asideBytes = 0;

const hostOwnRequests* own = nullptr;
bool ownIsNext = false;  // its requests and those of others take turns

// What may have to wait until the configuration is there: whoever asks, changes or registers, and
// what is told of interfaces, in its order, as one that goes takes its lines with it.
bool isHeldRequest(const keptMessage& m) {
    if (!hold) return false;
    const uint32_t type = headerOf(m)->mtype;
    auto within = [type](uint32_t first, uint32_t last) { return type >= first && type <= last; };
    return within(MT_CLI_COMMAND, MT_CLI_COMMAND_2) ||
           within(MT_ACL_INVERSEMASK_ENABLE, MT_ACL_INVERSEMASK_DISABLE) ||
           within(MT_SHOW_IP_ACL, MT_SHOW_V6_PREFIX_ALL + 1) ||
           within(MT_ACL0_REGISTER, MT_SYSADM_REGISTER) ||
           within(MT_IFM_PORTS_LEAVE, MT_IFM_EVT_NOTIF) ||
           within(MT_PROT_FIRST, MT_PROT_VRRP_LAST) || within(MT_CLIENT_FIRST, MT_CLIENT_LAST) ||
           type == MT_ACL2_REGISTER;
}

// Makes the task look again; the caller has holdLock.
void wakeTask() {
    uint64_t one = 1;
    if (wakeFd.fd >= 0) (void)!write(wakeFd.fd, &one, sizeof(one));
}

void wantHold(bool wanted) {
    std::lock_guard guard(holdLock);
    holdWanted = wanted;
    holdChanges.fetch_add(1, std::memory_order_release);
    wakeTask();
}

}  // namespace

bool heldOpen() {
    std::lock_guard guard(holdLock);
    wakeFd = hostFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return wakeFd.fd >= 0;
}
void heldClose() {
    std::lock_guard guard(holdLock);
    aside.clear();
    asideBytes = 0;
    hold = holdWanted = false;
    own = nullptr;
    holdSeen = holdChanges.load();
    wakeFd.reset();
}
int heldWakeFd() {
    return wakeFd.fd;
}

bool heldTakes(keptMessage* m) {
    if (!isHeldRequest(*m)) return false;
    if (aside.size() >= ASIDE_MAX || asideBytes + m->bytes.size() > ASIDE_BYTES_MAX) {
        hostIpcStats().overrun++;
        hostRequestDropped(*headerOf(*m));
        return true;
    }
    asideBytes += m->bytes.size();
    aside.push_back(std::move(*m));
    return true;
}

bool heldChanged(std::deque<keptMessage>* out) {
    uint32_t changes = holdChanges.load(std::memory_order_acquire);
    if (changes == holdSeen) return false;
    {
        std::lock_guard guard(holdLock);
        hold = holdWanted;
    }
    holdSeen = changes;
    *out = std::exchange(aside, {});
    asideBytes = 0;
    return true;
}

uint32_t heldTurn() {
    return holdSeen;
}

bool heldOwnWaits() {
    return own != nullptr && own->waits();
}

bool heldOwnNext(bool othersWait, keptMessage* m) {
    if (!heldOwnWaits()) return false;
    ownIsNext = !ownIsNext || !othersWait;
    m->pid = getpid();
    return ownIsNext && own->next(&m->bytes);
}
void heldOwnDone() {
    if (own != nullptr) own->done();
}

void hostHoldRequests() {
    wantHold(true);
}
void hostReleaseRequests() {
    wantHold(false);
}

void hostSetOwnRequests(const hostOwnRequests* requests) {
    own = requests;
}
void hostWakeTask() {
    std::lock_guard guard(holdLock);
    wakeTask();
}
bool hostTakeOwnAnswer(const void* message, size_t length) {
    const auto* hdr = wireView<ipcHdr>(std::span(static_cast<const uint8_t*>(message), length));
    if (own == nullptr || hdr == nullptr || hdr->source.svce != HOST_OWN_SERVICE ||
        hdr->source.card != hostTaskAddress())
        return false;
    own->answered(message, length);
    return true;
}
