#pragma once

// Recorded OS answers for CpuInfo tests; a non-zero error makes that query fail with that errno.

#include <cerrno>
#include <cstdio>
#include <string>

#include "os_query.h"

struct FakeOsQuery : OsQuery {
    std::string brand = "Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz";
    int32_t physical = 6, logical = 12;
    int64_t hz = 2600000000, maxHz = 4500000000;
    int brandError = 0, countError = 0, hzError = 0, maxHzError = 0;
    mutable size_t brandSize = 0;

    template <typename T>
    static int answer(int error, T value, T* out) {
        errno = error;
        if (error == 0) {
            *out = value;
        }
        return error == 0 ? 0 : -1;
    }
    int brandString(char* buffer, size_t size) const override {
        brandSize = size;
        errno = brandError;
        if (brandError != 0) {
            return -1;
        }
        snprintf(buffer, size, "%s", brand.c_str());
        return 0;
    }
    int physicalCpus(int32_t* n) const override { return answer(countError, physical, n); }
    int logicalCpus(int32_t* n) const override { return answer(countError, logical, n); }
    int cpuFrequencyHz(int64_t* v) const override { return answer(hzError, hz, v); }
    int cpuFrequencyMaxHz(int64_t* v) const override { return answer(maxHzError, maxHz, v); }
    int memoryBytes(int64_t* v) const override { return answer(0, int64_t{1} << 34, v); }
};
