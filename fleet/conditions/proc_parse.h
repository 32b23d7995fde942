#pragma once

// Linux's /proc files as figures: pure text parsing, tested on files recorded from real machines.
// Times in the files are clock ticks (USER_HZ), nanoseconds in schedstat; here they are seconds.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "run_conditions.h"

// /proc/stat: the summed "cpu" line and every "cpuN" line, into machine. False when the text has
// no usable "cpu" line.
bool parseProcStat(std::string_view text, double ticksPerSecond, MachineSnapshot* machine);

// /proc/loadavg: the load averages over the last minute and the last five minutes.
struct LoadAverages {
    double oneMinute = 0;
    double fiveMinutes = 0;
};
std::optional<LoadAverages> parseLoadAverages(std::string_view text);

// /proc/<pid>/stat and /proc/<pid>/task/<tid>/stat.
struct PidStat {
    char state = '?';
    double cpuS = 0;               // utime + stime
    double endedChildrenCpuS = 0;  // cutime + cstime
    uint64_t startTicks = 0;       // when it started, in ticks since boot: tells a reused PID apart
};
std::optional<PidStat> parsePidStat(std::string_view text, double ticksPerSecond);

// /proc/<pid>/task/<tid>/schedstat: time on a CPU and time waiting on a run queue.
std::optional<std::pair<double, double>> parseSchedstat(std::string_view text);

// A kernel CPU list ("0-3,8\n", as in /sys/devices/system/cpu/online); empty when malformed.
std::vector<int> parseCpuList(std::string_view text);

// The "Cpus_allowed_list:" line of /proc/<pid>/status ("0-3,8"); empty when absent or malformed.
std::vector<int> parseAllowedCpus(std::string_view status);

// A sysfs file of one word or one decimal number, its newline dropped; empty when it holds
// something else.
std::optional<std::string> parseSysfsWord(std::string_view text);
std::optional<int64_t> parseSysfsNumber(std::string_view text);
