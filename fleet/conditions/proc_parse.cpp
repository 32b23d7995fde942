#include "proc_parse.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>

namespace {

// No machine has more CPUs than this; a larger number is a malformed line.
constexpr uint64_t kMaxCpuNumber = 1 << 20;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> result;
    size_t at = 0;
    while (at < text.size()) {
        while (at < text.size() && isBlank(text[at])) {
            ++at;
        }
        const size_t start = at;
        while (at < text.size() && !isBlank(text[at])) {
            ++at;
        }
        if (at > start) {
            result.push_back(text.substr(start, at - start));
        }
    }
    return result;
}

bool toUnsigned(std::string_view word, uint64_t* value) {
    const char* end = word.data() + word.size();
    const auto [next, error] = std::from_chars(word.data(), end, *value);
    return error == std::errc() && next == end && !word.empty();
}

// A "cpu" or "cpuN" line's counters: user nice system idle iowait irq softirq steal; kernels
// before 2.6.11 stop after iowait or earlier, and the missing counters are zero.
bool cpuTimes(const std::vector<std::string_view>& fields, double ticksPerSecond, CpuTimes* times) {
    uint64_t counter[8] = {};
    if (fields.size() < 5) {
        return false;
    }
    for (size_t i = 1; i < fields.size() && i <= 8; ++i) {
        if (!toUnsigned(fields[i], &counter[i - 1])) {
            return false;
        }
    }
    const auto seconds = [&](uint64_t ticks) {
        return static_cast<double>(ticks) / ticksPerSecond;
    };
    times->busyS = seconds(counter[0]) + seconds(counter[1]) + seconds(counter[2]) +
                   seconds(counter[5]) + seconds(counter[6]);
    times->idleS = seconds(counter[3]) + seconds(counter[4]);
    times->stealS = seconds(counter[7]);
    return true;
}

std::string_view nextLine(std::string_view text, size_t* at) {
    const size_t end = std::min(text.find('\n', *at), text.size());
    const std::string_view line = text.substr(*at, end - *at);
    *at = end + 1;
    return line;
}

}  // namespace

bool parseProcStat(std::string_view text, double ticksPerSecond, MachineSnapshot* machine) {
    if (!(ticksPerSecond > 0)) {
        return false;
    }
    machine->allCpus.reset();
    machine->perCpu.clear();
    for (size_t at = 0; at < text.size();) {
        const std::vector<std::string_view> fields = words(nextLine(text, &at));
        if (fields.empty() || fields[0].substr(0, 3) != "cpu") {
            continue;
        }
        CpuTimes times;
        if (!cpuTimes(fields, ticksPerSecond, &times)) {
            return false;
        }
        uint64_t number = 0;
        if (fields[0] == "cpu") {
            machine->allCpus = times;
        } else if (toUnsigned(fields[0].substr(3), &number) && number < kMaxCpuNumber) {
            machine->perCpu.emplace_back(static_cast<int>(number), times);
        } else {
            return false;
        }
    }
    if (!machine->allCpus) {
        machine->perCpu.clear();
        return false;
    }
    machine->cpuCount = static_cast<int>(machine->perCpu.size());
    return true;
}

std::optional<LoadAverages> parseLoadAverages(std::string_view text) {
    const std::vector<std::string_view> fields = words(text);
    double loads[2] = {};
    if (fields.size() < 2) {
        return std::nullopt;
    }
    for (size_t i = 0; i < 2; ++i) {
        const char* end = fields[i].data() + fields[i].size();
        const auto [next, error] = std::from_chars(fields[i].data(), end, loads[i]);
        if (error != std::errc() || next != end || !std::isfinite(loads[i]) || loads[i] < 0) {
            return std::nullopt;
        }
    }
    return LoadAverages{loads[0], loads[1]};
}

// The fields after the command name, which is in parentheses and may itself hold blanks and
// parentheses: the last ")" ends it. The state is then field 3 of proc(5), at index 0.
std::optional<PidStat> parsePidStat(std::string_view text, double ticksPerSecond) {
    const size_t close = text.rfind(')');
    if (close == std::string_view::npos || !(ticksPerSecond > 0)) {
        return std::nullopt;
    }
    const std::vector<std::string_view> fields = words(text.substr(close + 1));
    uint64_t utime = 0;
    uint64_t stime = 0;
    uint64_t cutime = 0;
    uint64_t cstime = 0;
    PidStat stat;
    if (fields.size() < 20 || fields[0].size() != 1 || !toUnsigned(fields[11], &utime) ||
        !toUnsigned(fields[12], &stime) || !toUnsigned(fields[13], &cutime) ||
        !toUnsigned(fields[14], &cstime) || !toUnsigned(fields[19], &stat.startTicks)) {
        return std::nullopt;
    }
    stat.state = fields[0][0];
    stat.cpuS = (static_cast<double>(utime) + static_cast<double>(stime)) / ticksPerSecond;
    stat.endedChildrenCpuS =
        (static_cast<double>(cutime) + static_cast<double>(cstime)) / ticksPerSecond;
    return stat;
}

std::optional<std::pair<double, double>> parseSchedstat(std::string_view text) {
    const std::vector<std::string_view> fields = words(text);
    uint64_t runNs = 0;
    uint64_t waitNs = 0;
    if (fields.size() < 2 || !toUnsigned(fields[0], &runNs) || !toUnsigned(fields[1], &waitNs)) {
        return std::nullopt;
    }
    return std::make_pair(static_cast<double>(runNs) / 1e9, static_cast<double>(waitNs) / 1e9);
}

std::vector<int> parseCpuList(std::string_view text) {
    const std::vector<std::string_view> value = words(text);
    if (value.size() != 1) {
        return {};
    }
    std::vector<int> cpus;
    for (size_t start = 0; start <= value[0].size();) {
        const size_t comma = std::min(value[0].find(',', start), value[0].size());
        const std::string_view range = value[0].substr(start, comma - start);
        const size_t dash = range.find('-');
        uint64_t first = 0;
        uint64_t last = 0;
        if (!toUnsigned(range.substr(0, dash), &first) ||
            !toUnsigned(dash == std::string_view::npos ? range : range.substr(dash + 1), &last) ||
            first > last || last >= kMaxCpuNumber) {
            return {};
        }
        for (uint64_t cpu = first; cpu <= last; ++cpu) {
            cpus.push_back(static_cast<int>(cpu));
        }
        start = comma + 1;
    }
    return cpus;
}

std::vector<int> parseAllowedCpus(std::string_view status) {
    constexpr std::string_view kKey = "Cpus_allowed_list:";
    const size_t key = status.find(kKey);
    if (key == std::string_view::npos || (key > 0 && status[key - 1] != '\n')) {
        return {};
    }
    size_t at = key + kKey.size();
    return parseCpuList(nextLine(status, &at));
}

std::optional<std::string> parseSysfsWord(std::string_view text) {
    const std::vector<std::string_view> value = words(text);
    if (value.size() != 1) {
        return std::nullopt;
    }
    return std::string(value[0]);
}

std::optional<int64_t> parseSysfsNumber(std::string_view text) {
    const std::vector<std::string_view> value = words(text);
    uint64_t number = 0;
    if (value.size() != 1 || !toUnsigned(value[0], &number) ||
        number > static_cast<uint64_t>(INT64_MAX)) {
        return std::nullopt;
    }
    return static_cast<int64_t>(number);
}
