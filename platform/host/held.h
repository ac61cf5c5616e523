// What the task takes that does not come straight off its sockets; for ipc.cpp only, see held.cpp.
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "include/ipc.h"

struct keptMessage {
    std::vector<uint8_t> bytes;
    int32_t pid;
};

inline const ipcHdr* headerOf(const keptMessage& m) {
    return wireView<ipcHdr>(std::span(m.bytes.data(), m.bytes.size()));
}

bool heldOpen();   // from now on other threads can wake the task; false: no descriptor
void heldClose();  // forgets everything
int heldWakeFd();  // readable when the task must look again

// Keeps a request aside that has to wait, or drops it when too many do; false: it is none.
bool heldTakes(keptMessage* m);
// Whether a hold has begun or ended since the last call: then also what was aside, to sort anew.
bool heldChanged(std::deque<keptMessage>* aside);
uint32_t heldTurn();  // another number after each of those changes

bool heldOwnWaits();
// The next of the task's own requests, when it is their turn.
bool heldOwnNext(bool othersWait, keptMessage* m);
void heldOwnDone();
