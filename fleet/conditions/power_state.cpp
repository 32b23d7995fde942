#include "power_state.h"

#include <algorithm>

namespace {

// Drivers that run the CPU's own clock control (hardware P-states): under them "powersave" is
// the governor of the dynamic default and the energy preference decides, whereas under the
// generic drivers (acpi-cpufreq, intel_cpufreq, cppc_cpufreq...) it holds the lowest clock.
bool isActivePstateDriver(const std::string& driver) {
    return driver == "intel_pstate" || driver == "amd-pstate-epp";
}

// "0-3,6" for {0,1,2,3,6}.
std::string cpuList(std::vector<int> cpus) {
    std::sort(cpus.begin(), cpus.end());
    std::string text;
    for (size_t i = 0; i < cpus.size();) {
        size_t last = i;
        while (last + 1 < cpus.size() && cpus[last + 1] == cpus[last] + 1) {
            ++last;
        }
        text += (text.empty() ? "" : ",") + std::to_string(cpus[i]);
        if (last > i) {
            text += "-" + std::to_string(cpus[last]);
        }
        i = last + 1;
    }
    return text;
}

std::string onCpus(const std::vector<int>& cpus) {
    return (cpus.size() == 1 ? " on CPU " : " on CPUs ") + cpuList(cpus);
}

const CpuPower* findCpu(const PowerState& state, int cpu) {
    for (const CpuPower& entry : state.cpus) {
        if (entry.cpu == cpu) {
            return &entry;
        }
    }
    return nullptr;
}

// How far a throttle counter rose; 0 when it is unknown at either end or went back.
int64_t rise(const std::optional<int64_t>& before, const std::optional<int64_t>& after) {
    return before && after && *after > *before ? *after - *before : 0;
}

void addCpuCauses(const PowerState& before, const PowerState& after,
                  std::vector<std::string>* causes) {
    std::vector<int> powersave;
    std::vector<int> capped;
    std::vector<int> powerPreference;
    std::vector<int> throttled;
    int64_t lowestCapKhz = 0;
    int64_t capOfKhz = 0;
    int64_t mostThrottles = 0;
    for (const CpuPower& cpu : after.cpus) {
        if (cpu.governor == "powersave" && !(cpu.driver && isActivePstateDriver(*cpu.driver))) {
            powersave.push_back(cpu.cpu);
        }
        if (cpu.scalingMaxKhz && cpu.cpuinfoMaxKhz && *cpu.scalingMaxKhz < *cpu.cpuinfoMaxKhz) {
            capped.push_back(cpu.cpu);
            if (lowestCapKhz == 0 || *cpu.scalingMaxKhz < lowestCapKhz) {
                lowestCapKhz = *cpu.scalingMaxKhz;
                capOfKhz = *cpu.cpuinfoMaxKhz;
            }
        }
        if (cpu.energyPreference == "power") {
            powerPreference.push_back(cpu.cpu);
        }
        if (const CpuPower* old = findCpu(before, cpu.cpu)) {
            const int64_t throttles = std::max(rise(old->coreThrottles, cpu.coreThrottles),
                                               rise(old->packageThrottles, cpu.packageThrottles));
            if (throttles > 0) {
                throttled.push_back(cpu.cpu);
                mostThrottles = std::max(mostThrottles, throttles);
            }
        }
    }
    if (!powersave.empty()) {
        causes->push_back("governor powersave holds the clock at its lowest" + onCpus(powersave));
    }
    if (!capped.empty()) {
        causes->push_back("scaling_max_freq caps the clock at " +
                          std::to_string(lowestCapKhz / 1000) + " of " +
                          std::to_string(capOfKhz / 1000) + " MHz" + onCpus(capped));
    }
    if (!powerPreference.empty()) {
        causes->push_back("energy_performance_preference is power" + onCpus(powerPreference));
    }
    if (!throttled.empty()) {
        causes->push_back("thermal throttling during the run" + onCpus(throttled) + " (" +
                          std::to_string(mostThrottles) + " throttle events)");
    }
}

}  // namespace

std::string powerSchemeName(const std::string& guid) {
    static const struct {
        const char* guid;
        const char* name;
    } kSchemes[] = {
        {"381b4222-f694-41f0-9685-ff5bb260df2e", "Balanced"},
        {"8c5e7fda-e8bf-4a96-9a85-a6e23a8c635c", "High performance"},
        {"a1841308-3541-4fab-bc81-f71556f20b4a", "Power saver"},
        {"e9a42b02-d5df-448d-aa00-03f14749eb61", "Ultimate Performance"},
    };
    for (const auto& scheme : kSchemes) {
        if (guid == scheme.guid) {
            return scheme.name;
        }
    }
    return "";
}

std::vector<std::string> likelyCauses(const PowerState& before, const PowerState& after) {
    std::vector<std::string> causes;
    addCpuCauses(before, after, &causes);
    if (after.intelNoTurbo == true) {
        causes.push_back("turbo is switched off (intel_pstate/no_turbo is 1)");
    }
    if (after.boost == false) {
        causes.push_back("boost is switched off (cpufreq/boost is 0)");
    }
    // Balanced lowers the clock between bursts and parks cores: a run can take twice as long as
    // under High performance.
    const std::string scheme = after.powerScheme ? powerSchemeName(*after.powerScheme) : "";
    if (scheme == "Balanced" || scheme == "Power saver") {
        causes.push_back("the power plan is " + scheme);
    }
    if (after.maxProcessorStatePercent && *after.maxProcessorStatePercent < 100) {
        causes.push_back("the power plan limits the processor to " +
                         std::to_string(*after.maxProcessorStatePercent) + "% of its clock");
    }
    return causes;
}
