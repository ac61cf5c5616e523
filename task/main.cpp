// The process: starts the platform, spawns the one task "acl_1" and leaves the first thread idle.
#include <unistd.h>

#include "common/cfgkeys.h"
#include "platform/api/zekTask.h"
#include "task/task.h"

int main(int argc, char** argv) {
    if (ZEK_NbsdpInit(argc, argv) != 0) return 0;  // it has said why; the status is meant
    // 16,000 bytes of stack served smaller machines; texts and database calls want more here.
    constexpr size_t stackBytes = 1 << 20;
    if (zekDdbInit(argv, CFG_LAYOUT) != 0) return 1;
    if (taskSpawn("acl_1", 200, 12, stackBytes, AclMain, argc, argv) != 0) return 1;
    // If the first thread ended, tools would show the process as defunct and without memory.
    for (;;) pause();
}
