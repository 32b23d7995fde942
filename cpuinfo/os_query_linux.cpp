// Linux answers from /proc and /sys. A figure the kernel does not expose fails with the errno of
// the failed open, or ENODATA when a file lacks the value, so the report shows the system's text.

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "linux_cpu_parse.h"
#include "os_query.h"

namespace {

int fail(int error) {
    errno = error;
    return -1;
}

// False with errno set by the failed call.
bool readFile(const std::string& path, std::string* text) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    text->clear();
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof(buffer))) != 0) {
        if (n > 0) {
            text->append(buffer, static_cast<size_t>(n));
        } else if (errno != EINTR) {
            break;
        }
    }
    const int error = errno;
    close(fd);
    errno = error;
    return n == 0;
}

bool readNumber(const std::string& path, int64_t* value) {
    std::string text;
    if (!readFile(path, &text)) {
        return false;
    }
    if (!parseSysfsDecimal(text, value)) {
        errno = ENODATA;
        return false;
    }
    return true;
}

std::string cpuPath(int cpu, const char* file) {
    return "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/" + file;
}

// The CPUs this process may run on, as nproc counts them. The kernel refuses a mask smaller than
// its own, so the mask grows until it fits, which also covers machines beyond 1024 CPUs.
bool allowedCpus(std::vector<int>* cpus) {
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

// A cpufreq figure (kHz) of the first CPU this process may run on, in Hz.
int cpufreqHz(const char* file, int64_t* hz) {
    std::vector<int> cpus;
    if (!allowedCpus(&cpus)) {
        return -1;
    }
    if (cpus.empty()) {
        return fail(ENODATA);
    }
    int64_t khz = 0;
    if (!readNumber(cpuPath(cpus.front(), file), &khz)) {
        return -1;
    }
    if (khz < 0 || khz > INT64_MAX / 1000) {
        return fail(ENODATA);
    }
    *hz = khz * 1000;
    return 0;
}

// A "key : value" line of a /proc file; ENODATA when the key is absent.
bool readProcField(const char* path, const char* key, std::string* value) {
    std::string text;
    if (!readFile(path, &text)) {
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
bool memoryBlockBytes(int64_t* bytes) {
    const char* const root = "/sys/devices/system/memory";
    std::string text;
    int64_t blockSize = 0;
    if (!readFile(std::string(root) + "/block_size_bytes", &text) ||
        !parseSysfsHex(text, &blockSize)) {
        return false;
    }
    DIR* dir = opendir(root);
    if (dir == nullptr) {
        return false;
    }
    int64_t blocks = 0;
    while (const dirent* entry = readdir(dir)) {
        if (strncmp(entry->d_name, "memory", 6) == 0 &&
            readFile(std::string(root) + "/" + entry->d_name + "/online", &text) &&
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

class LinuxOsQuery : public OsQuery {
  public:
    int brandString(char* buffer, size_t size) const override {
        std::string brand;
        if (!readProcField("/proc/cpuinfo", "model name", &brand)) {
            return -1;
        }
        if (brand.size() >= size) {
            return fail(ENOMEM);
        }
        memcpy(buffer, brand.c_str(), brand.size() + 1);
        return 0;
    }

    int physicalCpus(int32_t* count) const override {
        std::vector<int> cpus;
        if (!allowedCpus(&cpus)) {
            return -1;
        }
        std::vector<std::pair<int64_t, int64_t>> cores;
        for (const int cpu : cpus) {
            int64_t package = 0;
            int64_t core = 0;
            if (!readNumber(cpuPath(cpu, "topology/physical_package_id"), &package) ||
                !readNumber(cpuPath(cpu, "topology/core_id"), &core)) {
                return -1;
            }
            cores.emplace_back(package, core);
        }
        *count = countDistinctCores(cores);
        return 0;
    }

    int logicalCpus(int32_t* count) const override {
        std::vector<int> cpus;
        if (!allowedCpus(&cpus)) {
            return -1;
        }
        *count = static_cast<int32_t>(cpus.size());
        return 0;
    }

    // Without cpufreq (virtual machines) the kernel's own estimate in /proc/cpuinfo stands in.
    int cpuFrequencyHz(int64_t* hz) const override {
        if (cpufreqHz("cpufreq/scaling_cur_freq", hz) == 0) {
            return 0;
        }
        std::string mhz;
        if (!readProcField("/proc/cpuinfo", "cpu MHz", &mhz)) {
            return -1;
        }
        return parseMhzAsHz(mhz, hz) ? 0 : fail(ENODATA);
    }

    int cpuFrequencyMaxHz(int64_t* hz) const override {
        return cpufreqHz("cpufreq/cpuinfo_max_freq", hz);
    }

    int memoryBytes(int64_t* bytes) const override {
        if (memoryBlockBytes(bytes)) {
            return 0;
        }
        std::string total;
        if (!readProcField("/proc/meminfo", "MemTotal", &total)) {
            return -1;
        }
        return parseMeminfoBytes(total, bytes) ? 0 : fail(ENODATA);
    }
};

}  // namespace

const OsQuery& systemOsQuery() {
    static const LinuxOsQuery query{};
    return query;
}
