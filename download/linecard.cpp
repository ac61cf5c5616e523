// The line cards' records.
#include "include/linecard.h"

uint32_t aclMgrTransId = 0;
