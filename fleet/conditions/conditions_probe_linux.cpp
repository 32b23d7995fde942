// The Linux figures: /proc/stat, /proc/loadavg and the reading process's own /proc/self/stat for
// the machine; /proc/<pid>/stat, its threads' stat and schedstat and its status for the process.

#include "conditions_probe_linux.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "proc_parse.h"
#include "whole_file.h"

namespace {

// The thread ids in a task folder, in order.
std::vector<int64_t> taskIds(const std::string& folder) {
    std::vector<int64_t> ids;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        return ids;
    }
    while (const dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        const char* end = name + strlen(name);
        int64_t id = 0;
        const auto [next, error] = std::from_chars(name, end, id);
        if (error == std::errc() && next == end && id > 0) {
            ids.push_back(id);
        }
    }
    closedir(dir);
    std::sort(ids.begin(), ids.end());
    return ids;
}

}  // namespace

LinuxConditionsProbe::LinuxConditionsProbe(int64_t pid, std::string root, double ticksPerSecond)
    : pid_(pid), root_(std::move(root)), ticksPerSecond_(ticksPerSecond) {
    while (!root_.empty() && root_.back() == '/') {
        root_.pop_back();
    }
    if (!(ticksPerSecond_ > 0)) {
        const long ticks = sysconf(_SC_CLK_TCK);
        ticksPerSecond_ = ticks > 0 ? static_cast<double>(ticks) : 100;
    }
}

std::string LinuxConditionsProbe::path(const std::string& file) const {
    return root_ + file;
}

MachineSnapshot LinuxConditionsProbe::machine() const {
    MachineSnapshot machine;
    std::string text;
    if (!readWholeFile(path("/proc/stat"), &text) ||
        !parseProcStat(text, ticksPerSecond_, &machine)) {
        machine = MachineSnapshot{};
    }
    std::optional<LoadAverages> loads;
    if (readWholeFile(path("/proc/loadavg"), &text) && (loads = parseLoadAverages(text))) {
        machine.load1 = loads->oneMinute;
    }
    std::optional<PidStat> self;
    if (readWholeFile(path("/proc/self/stat"), &text) &&
        (self = parsePidStat(text, ticksPerSecond_))) {
        machine.endedChildrenCpuS = self->endedChildrenCpuS;
    }
    return machine;
}

std::optional<ProcessSnapshot> LinuxConditionsProbe::process() {
    const std::string folder = path("/proc/" + std::to_string(pid_));
    ProcessSnapshot process;
    std::string text;
    std::optional<PidStat> stat;
    if (!readWholeFile(folder + "/stat", &text) || !(stat = parsePidStat(text, ticksPerSecond_)) ||
        stat->state == 'Z' || (startTicks_ && *startTicks_ != stat->startTicks)) {
        return std::nullopt;
    }
    startTicks_ = stat->startTicks;
    process.cpuS = stat->cpuS;
    for (const int64_t id : taskIds(folder + "/task")) {
        // schedstat first: when it cannot be read and stat then can, the thread still runs and
        // the kernel keeps no scheduler figures; when neither, the thread has ended.
        const std::string task = folder + "/task/" + std::to_string(id);
        std::optional<std::pair<double, double>> schedstat;
        if (readWholeFile(task + "/schedstat", &text)) {
            schedstat = parseSchedstat(text);
        }
        std::optional<PidStat> taskStat;
        if (!readWholeFile(task + "/stat", &text) ||
            !(taskStat = parsePidStat(text, ticksPerSecond_))) {
            continue;
        }
        TaskTimes times;
        times.id = id;
        times.cpuS = taskStat->cpuS;
        if (schedstat) {
            times.runS = schedstat->first;
            times.waitS = schedstat->second;
        }
        process.tasks.push_back(times);
    }
    if (readWholeFile(folder + "/status", &text)) {
        process.allowedCpus = parseAllowedCpus(text);
    }
    return process;
}

std::unique_ptr<ConditionsProbe> systemConditionsProbe(int64_t pid) {
    return std::make_unique<LinuxConditionsProbe>(pid);
}
