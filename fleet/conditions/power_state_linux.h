#pragma once

// The Linux power state, read from sysfs below a root folder: "/" on the running system, a tree
// recorded from another machine in tests.

#include <string>
#include <vector>

#include "power_state.h"

PowerState linuxPowerState(const std::string& root, std::vector<int> cpus);
