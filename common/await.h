// Waiting for one answer in the middle of the task's work, and what is served meanwhile.
#pragma once

#include <cstdint>

#include "include/ipc.h"
#include "platform/api/zekIpc.h"

// What the task serves while it waits, and who gets an answer that nobody waits for any more.
struct aclWaitService {
    zekServing urgent;
    void (*lateAnswer)(const ipcHdr& answer);
};
// Said once, before the first wait. Until then nothing is served and late answers are forgotten.
void aclServeWhileWaiting(const aclWaitService& service);

// Waits for the answer of that type and sequence number to a message that this task has sent. What
// else comes to the response queue is too late for someone: a client's answer is counted. Requests
// wait meanwhile, but SWP time-outs and answers and cards that go down are served.
// The answer's header, good until the next call; null: none in time.
const ipcHdr* AclAwaitReply(uint32_t mtype, uint32_t sequence, uint32_t timeoutMs);
// Takes what has come to the response queue and nobody waits for.
void aclTakeLateAnswers();
bool aclIsServing();  // a message is being served inside a wait
