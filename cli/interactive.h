// Line editing at a terminal: history, tab completion, `?` for help.
#pragma once

#include "cli/session.h"

// Reads and runs lines until the operator leaves. Returns the exit status, 0.
int interactiveRun(cliSession* session);
