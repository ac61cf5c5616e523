// Where the recording platform decides whether an operation fails. Private to this folder and to
// tests/support.
#pragma once

#include "platform/test/record.h"

// Counts one use of the point; true when this one is to fail.
bool testFails(testPoint point);
// Forgets what the tasks and logs were told.
void testResetTasks();
