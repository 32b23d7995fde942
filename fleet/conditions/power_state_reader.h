#pragma once

// This system's power state (power_state_linux.cpp, power_state_windows.cpp).

#include <vector>

#include "power_state.h"

// Linux reads the CPUs given (the benchmark's allowed CPUs), every online CPU when none are;
// Windows reads its power plan and ignores them.
PowerState systemPowerState(const std::vector<int>& cpus);
