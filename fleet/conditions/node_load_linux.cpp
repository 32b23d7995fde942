// The Linux load: the averages of loadavg and the online CPUs, one "cpuN" line each in stat.

#include <cerrno>
#include <cstring>

#include "node_load.h"
#include "proc_parse.h"
#include "whole_file.h"

namespace {

bool readProcFile(const std::string& path, std::string* text, std::string* problem) {
    if (readWholeFile(path, text)) {
        return true;
    }
    *problem = "cannot read " + path + ": " + strerror(errno);
    return false;
}

}  // namespace

NodeLoad systemNodeLoad(const std::string& procRoot, std::string* problem) {
    NodeLoad load;
    const std::string loadavg = procRoot + "/loadavg";
    const std::string stat = procRoot + "/stat";
    std::string text;
    if (!readProcFile(loadavg, &text, problem)) {
        return load;
    }
    const std::optional<LoadAverages> averages = parseLoadAverages(text);
    if (!averages) {
        *problem = loadavg + " holds no load averages";
        return load;
    }
    load.load1 = averages->oneMinute;
    load.load5 = averages->fiveMinutes;
    MachineSnapshot machine;
    if (!readProcFile(stat, &text, problem)) {
        return load;
    }
    // The tick length does not matter for a count of lines.
    if (!parseProcStat(text, 100, &machine)) {
        *problem = stat + " holds no CPU lines";
        return load;
    }
    load.cpus = machine.cpuCount;
    return load;
}
