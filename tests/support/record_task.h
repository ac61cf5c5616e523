// What the recorded task answers to the stores.
#pragma once

#include <cstdint>

// The checks that may forbid a binding.
struct testBindingChecks {
    uint32_t vlanAndMembers = 0, vlanGroup = 0, ipMacList = 0;
};
extern testBindingChecks testChecks;
