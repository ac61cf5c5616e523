// What the neighbours of the manager know, on disk: RUNDIR/interfaces.json.
#pragma once

#include "chassis/tasks/line.h"
#include "chassis/tasks/protocols.h"

enum neighbourLine : uint32_t { LINE_IFM, LINE_VRRP, LINE_PROTOCOLS, LINE_COUNT };

struct neighbourState {
    ifmModel interfaces;
    protocolModel protocols;
    std::array<lineBook, LINE_COUNT> books;
};

// Writes a file whole or not at all: its readers look at any time, and the machine may stop.
[[nodiscard]] bool fileReplace(const std::string& file, std::string_view text, std::string* error);

[[nodiscard]] std::string stateText(const neighbourState& state);
// False and *error when the text is not such a state, whole and possible.
[[nodiscard]] bool stateParse(std::string_view text, neighbourState* state, std::string* error);
// Reads the file; without one the state is empty. One that cannot be used is put aside under
// another name, and *error says so; the state is then empty.
void stateLoad(const std::string& file, neighbourState* state, std::string* error);
