// Endpoints: the transport under IPC, for the platform itself and for processes that are not tasks
// of a route processor (the shell, the chassis's other tasks, agents).
//
// An endpoint is (card address, service port). The host's transport maps it to a datagram socket
// RUNDIR/ipc/<dotted card address>/<decimal port>. A message is one datagram; one that is longer
// than IPC_TRANSPORT_MAX goes as its first 60 bytes with a descriptor of a sealed memory file that
// holds it whole. The sender's process credentials come with every message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "include/ipc.h"
#include "platform/api/zekSwp.h"

struct zekEndpoint;

struct zekSender {
    int32_t pid;
    uint32_t uid, gid;
};

constexpr size_t ZEK_MESSAGE_MAX = 256u
                                   << 20;  // bytes of the largest message handed on by descriptor

// Binds an endpoint below the run folder, replacing a dead predecessor's socket. Null and *error
// when the folder cannot be made or a live process holds the endpoint.
[[nodiscard]] zekEndpoint* zekEndpointOpen(std::string_view runDir, uint32_t card, uint32_t port,
                                           std::string* error);
void zekEndpointClose(zekEndpoint* endpoint);                  // removes the socket
[[nodiscard]] int zekEndpointFd(const zekEndpoint* endpoint);  // for poll

enum class zekSendResult { sent, full, nobody, failed };
// Sends to the endpoint that the message's second triple names. `full`: the receiver's queue stayed
// full for timeoutMs (0: does not wait). length is at least the header's 60.
zekSendResult zekEndpointSend(zekEndpoint* endpoint, const void* message, size_t length,
                              int timeoutMs);

// One message of at most `max` bytes into *message (resized). Returns its bytes; 0 when none came
// in time; -1 on error; -2 when one came that was longer than max or shorter than a header, which
// is dropped. timeoutMs 0 does not wait, -1 waits for ever.
int zekEndpointRecv(zekEndpoint* endpoint, std::vector<uint8_t>* message, size_t max, int timeoutMs,
                    zekSender* sender);
// For a receiver of many: takes what is there, at most ZEK_TAKEN_MAX messages of at most
// IPC_TRANSPORT_MAX bytes, in one system call, and calls fn with each in order; with no bytes and
// why when it was dropped. The bytes are there until fn returns, which must neither take nor
// receive at any endpoint. It waits for the first like zekEndpointRecv. How many were taken; fewer
// than ZEK_TAKEN_MAX: all there were, or the kernel gave no more at a time; -1 on error.
constexpr int ZEK_TAKEN_MAX = 16;  // more than a socket keeps on many machines
enum class zekDrop { none, tooLong, tooShort, malformed };
typedef std::function<void(std::span<const uint8_t> message, const zekSender& sender, zekDrop why)>
    zekTakenFn;
int zekEndpointTake(zekEndpoint* endpoint, int timeoutMs, const zekTakenFn& fn);

// zekSwpCkSeqAndAck for an endpoint.
int zekEndpointSwpAck(zekEndpoint* endpoint, const void* message, zekSwpSeq* seen);
// The same for a receiver that takes several messages at once: the newest answer stands for those
// before it and is only noted in *owed, to be sent when nothing is left to take. Zero-initialise.
struct zekSwpOwed {
    bool any;
    ipcHdr answer;
};
int zekEndpointSwpTake(zekEndpoint* endpoint, const void* message, zekSwpSeq* seen,
                       zekSwpOwed* owed);
void zekEndpointSwpAnswer(zekEndpoint* endpoint, zekSwpOwed* owed);

// The run folder: the option's value, else $ACL_RUNDIR, else /run/aclmgr.
[[nodiscard]] std::string zekRunDir(std::string_view option);

// The debug shell of a route processor's manager: runs one function there, *out its text. 0; -1
// when the manager cannot be reached or does not answer in time; -2 when it has no such function.
// *out says why.
int zekDebugCall(std::string_view runDir, uint32_t rp, std::string_view name, std::string_view args,
                 int timeoutMs, std::string* out);
