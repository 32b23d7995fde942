// Linux answers from /proc and /sys. A figure the kernel does not expose fails with the errno of
// the failed open, or ENODATA when a file lacks the value, so the report shows the system's text.

#include "os_query_linux.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "linux_cpu_parse.h"
#include "proc_cpuinfo_parse.h"
#include "whole_file.h"

namespace {

int fail(int error) {
    errno = error;
    return -1;
}

bool readNumber(const std::string& path, int64_t* value) {
    std::string text;
    if (!readWholeFile(path, &text)) {
        return false;
    }
    if (!parseSysfsDecimal(text, value)) {
        errno = ENODATA;
        return false;
    }
    return true;
}

// The CPUs this process may run on, as nproc counts them. The kernel refuses a mask smaller than
// its own, so the mask grows until it fits, which also covers machines beyond 1024 CPUs.
bool schedulerAllowedCpus(std::vector<int>* cpus) {
    for (int capacity = CPU_SETSIZE; capacity <= (1 << 20); capacity *= 2) {
        cpu_set_t* set = CPU_ALLOC(capacity);
        if (set == nullptr) {
            return false;
        }
        const size_t size = CPU_ALLOC_SIZE(capacity);
        if (sched_getaffinity(0, size, set) == 0) {
            cpus->clear();
            cpus->reserve(static_cast<size_t>(CPU_COUNT_S(size, set)));
            for (int cpu = 0; cpu < capacity; ++cpu) {
                if (CPU_ISSET_S(cpu, size, set)) {
                    cpus->push_back(cpu);
                }
            }
            CPU_FREE(set);
            return true;
        }
        const int error = errno;
        CPU_FREE(set);
        if (error != EINVAL) {
            errno = error;
            return false;
        }
    }
    errno = EINVAL;
    return false;
}

// A cpufreq figure, kHz in the file, in Hz.
bool readKhzAsHz(const std::string& path, int64_t* hz) {
    int64_t khz = 0;
    if (!readNumber(path, &khz)) {
        return false;
    }
    if (khz < 0 || khz > INT64_MAX / 1000) {
        errno = ENODATA;
        return false;
    }
    *hz = khz * 1000;
    return true;
}

constexpr const char* kCoresFromCpuinfo =
    "No CPU topology in /sys; cores counted from /proc/cpuinfo";
constexpr const char* kCoresAssumed =
    "No CPU topology in /sys or /proc/cpuinfo; physical cores taken as logical CPUs";

}  // namespace

LinuxOsQuery::LinuxOsQuery(std::string root, std::vector<int> allowedCpus)
    : root_(std::move(root)), allowedCpus_(std::move(allowedCpus)) {
    while (!root_.empty() && root_.back() == '/') {
        root_.pop_back();
    }
}

std::string LinuxOsQuery::path(const std::string& file) const {
    return root_ + file;
}

std::string LinuxOsQuery::cpuPath(int cpu, const char* file) const {
    return path("/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/" + file);
}

bool LinuxOsQuery::allowedCpus(std::vector<int>* cpus) const {
    if (allowedCpus_.empty()) {
        return schedulerAllowedCpus(cpus);
    }
    *cpus = allowedCpus_;
    return true;
}

// A "key : value" line of a /proc file; ENODATA when the key is absent.
bool LinuxOsQuery::readProcField(const char* file, const char* key, std::string* value) const {
    std::string text;
    if (!readWholeFile(path(file), &text)) {
        return false;
    }
    std::string_view field;
    if (!findProcField(text, key, &field)) {
        errno = ENODATA;
        return false;
    }
    value->assign(field);
    return true;
}

// Installed memory is the online memory blocks times their size; MemTotal would leave out what
// the kernel reserved for itself.
bool LinuxOsQuery::memoryBlockBytes(int64_t* bytes) const {
    const std::string root = path("/sys/devices/system/memory");
    std::string text;
    int64_t blockSize = 0;
    if (!readWholeFile(root + "/block_size_bytes", &text) || !parseSysfsHex(text, &blockSize)) {
        return false;
    }
    DIR* dir = opendir(root.c_str());
    if (dir == nullptr) {
        return false;
    }
    int64_t blocks = 0;
    while (const dirent* entry = readdir(dir)) {
        if (strncmp(entry->d_name, "memory", 6) == 0 &&
            readWholeFile(root + "/" + entry->d_name + "/online", &text) &&
            isOnlineMemoryBlock(text)) {
            ++blocks;
        }
    }
    closedir(dir);
    if (blocks < 1 || blockSize < 1 || blocks > INT64_MAX / blockSize) {
        return false;
    }
    *bytes = blocks * blockSize;
    return true;
}

// arm64 kernels name no processor; its core types stand in for the name.
int LinuxOsQuery::brandString(char* buffer, size_t size) const {
    std::string brand;
    if (!readProcField("/proc/cpuinfo", "model name", &brand)) {
        const int error = errno;
        std::string text;
        std::vector<int> cpus;
        if (error != ENODATA || !readWholeFile(path("/proc/cpuinfo"), &text) ||
            !allowedCpus(&cpus) || !describeArmCpu(text, cpus, &brand)) {
            return fail(error);
        }
    }
    if (brand.size() >= size) {
        return fail(ENOMEM);
    }
    memcpy(buffer, brand.c_str(), brand.size() + 1);
    return 0;
}

// A CPU's core is the set of CPUs in its thread_siblings_list. (physical_package_id, core_id) is
// only the fallback for trees without those files: on multi-die processors core_id is numbered
// per die, so the pair merges cores of different dies and splits a core's threads.
bool LinuxOsQuery::coreKey(int cpu, bool bySiblings, std::vector<int64_t>* key) const {
    if (bySiblings) {
        std::string text;
        return readWholeFile(cpuPath(cpu, "topology/thread_siblings_list"), &text) &&
               parseCpuList(text, key);
    }
    int64_t package = 0;
    int64_t core = 0;
    if (!readNumber(cpuPath(cpu, "topology/physical_package_id"), &package) ||
        !readNumber(cpuPath(cpu, "topology/core_id"), &core)) {
        return false;
    }
    *key = {package, core};
    return true;
}

// Every allowed CPU's key of one kind; the two kinds are never mixed.
bool LinuxOsQuery::topologyCores(const std::vector<int>& cpus, int32_t* count) const {
    for (const bool bySiblings : {true, false}) {
        std::vector<std::vector<int64_t>> keys(cpus.size());
        size_t read = 0;
        while (read < cpus.size() && coreKey(cpus[read], bySiblings, &keys[read])) {
            ++read;
        }
        if (!cpus.empty() && read == cpus.size()) {
            *count = countDistinctCores(std::move(keys));
            return true;
        }
    }
    return false;
}

// Containers often hide the sysfs CPU folder. Without evidence of hyperthreading none is claimed:
// counting too few cores would scale every single-core score down by 40 %.
int LinuxOsQuery::physicalCpus(int32_t* count, const char** fallback) const {
    std::vector<int> cpus;
    if (!allowedCpus(&cpus)) {
        return -1;
    }
    *fallback = nullptr;
    if (topologyCores(cpus, count)) {
        return 0;
    }
    std::string text;
    if (readWholeFile(path("/proc/cpuinfo"), &text) && countCoresInCpuinfo(text, cpus, count)) {
        *fallback = kCoresFromCpuinfo;
        return 0;
    }
    *count = static_cast<int32_t>(cpus.size());
    *fallback = kCoresAssumed;
    return 0;
}

int LinuxOsQuery::logicalCpus(int32_t* count) const {
    std::vector<int> cpus;
    if (!allowedCpus(&cpus)) {
        return -1;
    }
    *count = static_cast<int32_t>(cpus.size());
    return 0;
}

// The first allowed CPU's clock. Without cpufreq (virtual machines) the kernel's own estimate in
// /proc/cpuinfo stands in.
int LinuxOsQuery::cpuFrequencyHz(int64_t* hz) const {
    std::vector<int> cpus;
    if (allowedCpus(&cpus) && !cpus.empty() &&
        readKhzAsHz(cpuPath(cpus.front(), "cpufreq/scaling_cur_freq"), hz)) {
        return 0;
    }
    std::string mhz;
    if (!readProcField("/proc/cpuinfo", "cpu MHz", &mhz)) {
        return -1;
    }
    return parseMhzAsHz(mhz, hz) ? 0 : fail(ENODATA);
}

// The highest maximum among the allowed CPUs: on chips with big and little cores the first CPU
// is often a little one. The error is the first CPU's when no CPU has the figure.
int LinuxOsQuery::cpuFrequencyMaxHz(int64_t* hz) const {
    std::vector<int> cpus;
    if (!allowedCpus(&cpus)) {
        return -1;
    }
    int64_t highest = -1;
    int error = ENODATA;
    for (size_t i = 0; i < cpus.size(); ++i) {
        int64_t value = 0;
        if (readKhzAsHz(cpuPath(cpus[i], "cpufreq/cpuinfo_max_freq"), &value)) {
            highest = value > highest ? value : highest;
        } else if (i == 0) {
            error = errno;
        }
    }
    if (highest < 0) {
        return fail(error);
    }
    *hz = highest;
    return 0;
}

int LinuxOsQuery::memoryBytes(int64_t* bytes) const {
    if (memoryBlockBytes(bytes)) {
        return 0;
    }
    std::string total;
    if (!readProcField("/proc/meminfo", "MemTotal", &total)) {
        return -1;
    }
    return parseMeminfoBytes(total, bytes) ? 0 : fail(ENODATA);
}

const OsQuery& systemOsQuery() {
    static const LinuxOsQuery query{};
    return query;
}
