// The configuration loader behind `aclsh -f`.
#pragma once

#include <string_view>

#include "cli/session.h"

// Loads (or, with checkOnly, only reads) configuration lines from a descriptor, with many requests
// under way at once. Refused lines are reported in their order; nothing stops the load but a
// manager that is gone. Returns the exit status.
int loadRun(cliSession* session, int fd, std::string_view source);
