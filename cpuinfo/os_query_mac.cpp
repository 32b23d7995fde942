// macOS answers straight from sysctl, which already reports failures as -1 with errno set.

#include <sys/sysctl.h>
#include <sys/types.h>

#include "os_query.h"

namespace {

template <typename T>
int sysctlValue(const char* name, T* value) {
    size_t size = sizeof(T);
    return sysctlbyname(name, value, &size, nullptr, 0);
}

class MacOsQuery : public OsQuery {
  public:
    int brandString(char* buffer, size_t size) const override {
        return sysctlbyname("machdep.cpu.brand_string", buffer, &size, nullptr, 0);
    }
    int physicalCpus(int32_t* count, const char** fallback) const override {
        *fallback = nullptr;
        return sysctlValue("hw.physicalcpu", count);
    }
    int logicalCpus(int32_t* count) const override { return sysctlValue("hw.logicalcpu", count); }
    int cpuFrequencyHz(int64_t* hz) const override { return sysctlValue("hw.cpufrequency", hz); }
    int cpuFrequencyMaxHz(int64_t* hz) const override {
        return sysctlValue("hw.cpufrequency_max", hz);
    }
    int memoryBytes(int64_t* bytes) const override {
        int name[2] = {CTL_HW, HW_MEMSIZE};
        size_t size = sizeof(*bytes);
        return sysctl(name, 2, bytes, &size, nullptr, 0);
    }
};

}  // namespace

const OsQuery& systemOsQuery() {
    static const MacOsQuery query{};
    return query;
}
