#pragma once

// The OS's power settings of a node's CPUs, and the likely cause they give for a slow node: a
// governor that holds the clock down, turbo switched off, a capped clock, an energy preference of
// power, thermal throttling during the run, a Windows power plan or processor limit. Plain data
// and pure functions; the readers are per OS (power_state_reader.h).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One CPU's cpufreq and thermal figures (Linux); each empty where the system has no such file.
struct CpuPower {
    int cpu = 0;
    std::optional<std::string> driver;    // scaling_driver
    std::optional<std::string> governor;  // scaling_governor
    std::optional<int64_t> scalingMaxKhz;
    std::optional<int64_t> cpuinfoMaxKhz;
    std::optional<std::string> energyPreference;  // energy_performance_preference
    std::optional<int64_t> coreThrottles;         // thermal_throttle/core_throttle_count
    std::optional<int64_t> packageThrottles;      // thermal_throttle/package_throttle_count
};

struct PowerState {
    std::vector<CpuPower> cpus;
    std::optional<bool> intelNoTurbo;  // intel_pstate/no_turbo is 1
    std::optional<bool> boost;         // cpufreq/boost (acpi-cpufreq, amd-pstate)
    // Windows: the active power plan's GUID in lower case ("381b4222-f694-41f0-9685-ff5bb260df2e")
    // and the plan's maximum processor state in percent.
    std::optional<std::string> powerScheme;
    std::optional<int64_t> maxProcessorStatePercent;
};

// The name Windows gives a built-in power plan's GUID; empty for another plan.
std::string powerSchemeName(const std::string& guid);

// The likely causes of slowness, in words, from the state just before and just after a run
// (throttling counts only what rose during it); empty when none shows.
std::vector<std::string> likelyCauses(const PowerState& before, const PowerState& after);
