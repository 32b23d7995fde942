// Windows answers from the Win32 API: the process's affinity mask, the processor topology, the
// registry's processor name, the power manager's clocks and the firmware's memory table. A figure
// the system does not give fails with an errno value whose text the C runtime has, so the report's
// error lines read as on the other systems.

#include <windows.h>
// windows.h first: powrprof.h and cpuid.h rely on its types.
#include <cpuid.h>
#include <powrprof.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "os_query.h"

namespace {

int fail(int error) {
    errno = error;
    return -1;
}

// The errno value nearest to a Win32 error code.
int errnoOf(DWORD error) {
    switch (error) {
        case ERROR_ACCESS_DENIED:
            return EACCES;
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY:
            return ENOMEM;
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_INVALID_PARAMETER:
            return EINVAL;
        default:
            return ENOSYS;
    }
}

int failWithLastError() {
    return fail(errnoOf(GetLastError()));
}

template <typename T>
T readAt(const unsigned char* bytes) {
    T value;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

// The CPUs this process may run on: its affinity mask within its processor group, which is the
// group of its first thread. A process on a machine of more than 64 logical CPUs sees one group.
struct Affinity {
    WORD group = 0;
    KAFFINITY mask = 0;
};

bool processAffinity(Affinity* affinity) {
    DWORD_PTR process = 0;
    DWORD_PTR system = 0;
    if (!GetProcessAffinityMask(GetCurrentProcess(), &process, &system)) {
        failWithLastError();
        return false;
    }
    GROUP_AFFINITY thread{};
    affinity->group = GetThreadGroupAffinity(GetCurrentThread(), &thread) ? thread.Group : 0;
    affinity->mask = process;
    return true;
}

int32_t countBits(KAFFINITY mask) {
    return static_cast<int32_t>(__builtin_popcountll(static_cast<unsigned long long>(mask)));
}

constexpr size_t kRecordBody = offsetof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX, Processor);
constexpr size_t kGroupCountAt = kRecordBody + offsetof(PROCESSOR_RELATIONSHIP, GroupCount);
constexpr size_t kGroupMasksAt = kRecordBody + offsetof(PROCESSOR_RELATIONSHIP, GroupMask);

// The cores among the records of GetLogicalProcessorInformationEx that have a logical processor
// in the affinity. Records are read field by field: their size is their own, and a record that
// overruns the buffer ends the count.
int32_t coresInAffinity(const std::vector<unsigned char>& records, const Affinity& affinity) {
    int32_t cores = 0;
    size_t at = 0;
    while (records.size() - at >= kGroupMasksAt) {
        const unsigned char* record = records.data() + at;
        const DWORD relationship =
            readAt<DWORD>(record + offsetof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX, Relationship));
        const DWORD size =
            readAt<DWORD>(record + offsetof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX, Size));
        if (size < kGroupMasksAt || size > records.size() - at) {
            break;
        }
        if (relationship == RelationProcessorCore) {
            const WORD groups = readAt<WORD>(record + kGroupCountAt);
            for (size_t g = 0; g < groups; ++g) {
                const size_t entry = kGroupMasksAt + g * sizeof(GROUP_AFFINITY);
                if (entry + sizeof(GROUP_AFFINITY) > size) {
                    break;
                }
                const GROUP_AFFINITY mask = readAt<GROUP_AFFINITY>(record + entry);
                if (mask.Group == affinity.group && (mask.Mask & affinity.mask) != 0) {
                    ++cores;
                    break;
                }
            }
        }
        at += size;
    }
    return cores;
}

// The processor-core records; the needed size is asked first, and asked again should processors
// have come online in between.
bool processorCoreRecords(std::vector<unsigned char>* records) {
    DWORD size = 0;
    for (int attempt = 0; attempt < 4; ++attempt) {
        records->resize(size);
        auto* buffer = reinterpret_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX*>(records->data());
        if (GetLogicalProcessorInformationEx(RelationProcessorCore, size > 0 ? buffer : nullptr,
                                             &size)) {
            records->resize(size);
            return true;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
            break;
        }
    }
    return false;
}

// What CallNtPowerInformation's ProcessorInformation level fills in, one per logical processor;
// documented, but declared in no header.
struct ProcessorPowerInformation {
    ULONG number;
    ULONG maxMhz;
    ULONG currentMhz;
    ULONG mhzLimit;
    ULONG maxIdleState;
    ULONG currentIdleState;
};

// The power manager's entries of the processors in the affinity; errno set when it gives none.
bool processorClocks(std::vector<ProcessorPowerInformation>* clocks) {
    Affinity affinity;
    if (!processAffinity(&affinity)) {
        return false;
    }
    DWORD count = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
    std::vector<ProcessorPowerInformation> all;
    for (int attempt = 0; attempt < 4; ++attempt) {
        all.assign(count > 0 ? count : 1, ProcessorPowerInformation{});
        const ULONG bytes = static_cast<ULONG>(all.size() * sizeof(ProcessorPowerInformation));
        const LONG status =
            CallNtPowerInformation(ProcessorInformation, nullptr, 0, all.data(), bytes);
        if (status == 0) {
            clocks->clear();
            for (const ProcessorPowerInformation& entry : all) {
                if (entry.number < 64 && (affinity.mask >> entry.number & 1) != 0) {
                    clocks->push_back(entry);
                }
            }
            if (clocks->empty()) {
                errno = ENOSYS;
                return false;
            }
            return true;
        }
        // STATUS_BUFFER_TOO_SMALL: processors came online since they were counted.
        if (static_cast<ULONG>(status) != 0xC0000023u) {
            break;
        }
        count *= 2;
    }
    errno = ENOSYS;
    return false;
}

int hzOf(ULONG mhz, int64_t* hz) {
    if (mhz == 0) {
        return fail(ENOSYS);
    }
    *hz = static_cast<int64_t>(mhz) * 1000000;
    return 0;
}

// Leading and trailing blanks go, as Linux drops them from its model name.
void trimBlanks(char* text) {
    size_t start = 0;
    while (text[start] == ' ') {
        ++start;
    }
    size_t end = strlen(text);
    while (end > start && text[end - 1] == ' ') {
        --end;
    }
    memmove(text, text + start, end - start);
    text[end - start] = '\0';
}

// The processor's own brand text, 48 bytes in three CPUID leaves.
bool cpuidBrand(char* brand, size_t size) {
    if (size < 49 || __get_cpuid_max(0x80000000u, nullptr) < 0x80000004u) {
        return false;
    }
    for (unsigned leaf = 0; leaf < 3; ++leaf) {
        unsigned registers[4] = {};
        __get_cpuid(0x80000002u + leaf, &registers[0], &registers[1], &registers[2], &registers[3]);
        memcpy(brand + leaf * 16, registers, 16);
    }
    brand[48] = '\0';
    return true;
}

class WindowsOsQuery : public OsQuery {
  public:
    int brandString(char* buffer, size_t size) const override {
        DWORD bytes = static_cast<DWORD>(size > MAXDWORD ? MAXDWORD : size);
        const LSTATUS status =
            RegGetValueA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                         "ProcessorNameString", RRF_RT_REG_SZ, nullptr, buffer, &bytes);
        if (status != ERROR_SUCCESS && !cpuidBrand(buffer, size)) {
            return fail(errnoOf(static_cast<DWORD>(status)));
        }
        trimBlanks(buffer);
        return 0;
    }

    // Without the topology (or with none of its cores in the affinity) no hyperthreading is
    // claimed, as on Linux: too few cores would scale every single-core score down.
    int physicalCpus(int32_t* count, const char** fallback) const override {
        Affinity affinity;
        if (!processAffinity(&affinity)) {
            return -1;
        }
        std::vector<unsigned char> records;
        *fallback = nullptr;
        if (processorCoreRecords(&records)) {
            *count = coresInAffinity(records, affinity);
            if (*count > 0) {
                return 0;
            }
        }
        *count = countBits(affinity.mask);
        *fallback = "No processor topology from Windows; physical cores taken as logical CPUs";
        return 0;
    }

    int logicalCpus(int32_t* count) const override {
        Affinity affinity;
        if (!processAffinity(&affinity)) {
            return -1;
        }
        *count = countBits(affinity.mask);
        return 0;
    }

    // The first allowed processor's clock.
    int cpuFrequencyHz(int64_t* hz) const override {
        std::vector<ProcessorPowerInformation> clocks;
        return processorClocks(&clocks) ? hzOf(clocks.front().currentMhz, hz) : -1;
    }

    // The highest maximum among the allowed processors, for chips with cores of two kinds.
    int cpuFrequencyMaxHz(int64_t* hz) const override {
        std::vector<ProcessorPowerInformation> clocks;
        if (!processorClocks(&clocks)) {
            return -1;
        }
        ULONG highest = 0;
        for (const ProcessorPowerInformation& entry : clocks) {
            highest = entry.maxMhz > highest ? entry.maxMhz : highest;
        }
        return hzOf(highest, hz);
    }

    // What the firmware reports as installed, like Linux's memory blocks: more than the total
    // Windows manages, which leaves out what the firmware and drivers reserved.
    int memoryBytes(int64_t* bytes) const override {
        ULONGLONG kilobytes = 0;
        if (!GetPhysicallyInstalledSystemMemory(&kilobytes)) {
            return failWithLastError();
        }
        if (kilobytes == 0 || kilobytes > static_cast<ULONGLONG>(INT64_MAX / 1024)) {
            return fail(ENOSYS);
        }
        *bytes = static_cast<int64_t>(kilobytes) * 1024;
        return 0;
    }
};

}  // namespace

const OsQuery& systemOsQuery() {
    static const WindowsOsQuery query{};
    return query;
}
