#pragma once

// Everything corebench asks the operating system. Each query answers like sysctlbyname: 0 on
// success, -1 with errno set when the OS does not have the figure. One implementation per OS is
// built; tests substitute recorded answers.

#include <cstddef>
#include <cstdint>

class OsQuery {
  public:
    virtual ~OsQuery() = default;
    // The processor's brand text, NUL-terminated within size bytes.
    virtual int brandString(char* buffer, size_t size) const = 0;
    // Where the OS had to estimate the count, fallback receives a one-line text saying how (for
    // the report's errors); otherwise nullptr.
    virtual int physicalCpus(int32_t* count, const char** fallback) const = 0;
    virtual int logicalCpus(int32_t* count) const = 0;
    virtual int cpuFrequencyHz(int64_t* hz) const = 0;
    virtual int cpuFrequencyMaxHz(int64_t* hz) const = 0;
    virtual int memoryBytes(int64_t* bytes) const = 0;
};

// The running system's answers.
const OsQuery& systemOsQuery();
