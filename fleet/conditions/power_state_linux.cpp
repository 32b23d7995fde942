// The Linux power state from /sys/devices/system/cpu: each CPU's cpufreq folder and thermal
// throttle counters, intel_pstate's no_turbo and cpufreq's boost switch. A file that is missing
// or holds something unexpected leaves its figure empty.

#include "power_state_linux.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "power_state_reader.h"
#include "proc_parse.h"

namespace {

// Every sysfs file read here is one short line.
std::string readSmallFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return "";
    }
    char buffer[256];
    ssize_t n;
    do {
        n = read(fd, buffer, sizeof(buffer));
    } while (n < 0 && errno == EINTR);
    close(fd);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

std::optional<bool> readSwitch(const std::string& path) {
    const std::optional<int64_t> value = parseSysfsNumber(readSmallFile(path));
    if (!value || *value > 1) {
        return std::nullopt;
    }
    return *value == 1;
}

}  // namespace

PowerState linuxPowerState(const std::string& root, std::vector<int> cpus) {
    std::string base = root;
    while (!base.empty() && base.back() == '/') {
        base.pop_back();
    }
    base += "/sys/devices/system/cpu/";
    if (cpus.empty()) {
        cpus = parseCpuList(readSmallFile(base + "online"));
    }
    PowerState state;
    for (const int number : cpus) {
        const std::string cpu = base + "cpu" + std::to_string(number) + "/";
        CpuPower power;
        power.cpu = number;
        power.driver = parseSysfsWord(readSmallFile(cpu + "cpufreq/scaling_driver"));
        power.governor = parseSysfsWord(readSmallFile(cpu + "cpufreq/scaling_governor"));
        power.scalingMaxKhz = parseSysfsNumber(readSmallFile(cpu + "cpufreq/scaling_max_freq"));
        power.cpuinfoMaxKhz = parseSysfsNumber(readSmallFile(cpu + "cpufreq/cpuinfo_max_freq"));
        power.energyPreference =
            parseSysfsWord(readSmallFile(cpu + "cpufreq/energy_performance_preference"));
        power.coreThrottles =
            parseSysfsNumber(readSmallFile(cpu + "thermal_throttle/core_throttle_count"));
        power.packageThrottles =
            parseSysfsNumber(readSmallFile(cpu + "thermal_throttle/package_throttle_count"));
        state.cpus.push_back(power);
    }
    state.intelNoTurbo = readSwitch(base + "intel_pstate/no_turbo");
    state.boost = readSwitch(base + "cpufreq/boost");
    return state;
}

PowerState systemPowerState(const std::vector<int>& cpus) {
    return linuxPowerState("/", cpus);
}
