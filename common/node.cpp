// The records that the whole task knows: the state root, the cards, the number of the next message.
#include "common/node.h"

#include "common/linecard.h"

aclNodeRecord* aclNode = nullptr;
aspathAclNodeRecord* aspathAclNode = nullptr;
aclLinecard aclLinecardInfo[SLOT_COUNT] = {};
uint32_t aclMgrTransId = 0;
