#include "interface/halAclMgr.h"

int halAclMgrIsV6AclSupported() {
    return 1;
}
int halAclMgrDnldPimAssertEntry(uint32_t) {
    return 1;
}
