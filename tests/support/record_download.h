// The send path to the agents, recorded: what tests set beside the rows.
//   agent list|entry ID NAME.. / vlan list|entry.. / group list|entry.. / dos list|entry..
#pragma once

#include <cstdint>
#include <map>
#include <vector>

// Member ports of LAGs in the order in which they joined, by the LAG's interface index.
extern std::map<uint32_t, std::vector<uint32_t>> testLagMembers;
