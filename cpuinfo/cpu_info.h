#pragma once

// The processor record: identity, counts, clock figures and per-core tables, filled from the OS.

#include <cstdint>

#include "fixed_string.h"

class OsQuery;

constexpr int kMaxCores = 512;

struct CpuInfo {
    CpuInfo();

    FixedString<100> vendorString;
    bool vendorAmd;
    bool vendorIntel;
    bool osAvx;
    bool osAvx512;
    bool hwMmx, hwX64, hwAbm, hwRdrand, hwBmi1, hwBmi2, hwAdx, hwPrefetchwt1, hwMpx;
    bool hwSse, hwSse2, hwSse3, hwSsse3, hwSse41, hwSse42, hwSse4a, hwAes, hwSha;
    bool hwAvx, hwXop, hwFma3, hwFma4, hwAvx2;
    bool hwAvx512F, hwAvx512Pf, hwAvx512Er, hwAvx512Cd, hwAvx512Vl, hwAvx512Bw, hwAvx512Dq,
        hwAvx512Ifma, hwAvx512Vbmi;
    int32_t ramGb;
    int32_t ramMhz;
    FixedString<10> ramType;
    int32_t logicalCpus;
    int32_t physicalCpus;
    bool hyperthreading;
    FixedString<250> description;
    FixedString<250> shortName;
    int64_t mhzInLabel;  // -1 = none of the MHz figures is known
    int64_t mhzCurrent;
    int64_t mhzInfo;
    int64_t mhzMax;
    int64_t mhzSummed;
    int64_t mhzSummedPerCore;
    bool coreHt[kMaxCores];
    int64_t coreMhzMin[kMaxCores];
    int64_t coreMhzMax[kMaxCores];
    int64_t coreMhzCur[kMaxCores];
    int64_t coreMhzInfo[kMaxCores];
    int64_t mhzSummedMeasured;
    FixedString<1000> errors;
};

// Identity, counts and clocks from the OS; errors keeps growing across calls.
void readCpuInfo(CpuInfo& info);
void readCpuInfo(CpuInfo& info, const OsQuery& os);

// readCpuInfo if the counts are still unknown, then the per-core tables and their sums.
void gatherCpuInfo(CpuInfo& info);
void gatherCpuInfo(CpuInfo& info, const OsQuery& os);
