#include "cpu_info.h"

#include <cmath>
#include <cstring>

#include "leading_int.h"
#include "os_query.h"
#include "system_error.h"
#include "truncate.h"

namespace {

constexpr int kBrandBufferSize = 250;

// std::round rounds halves away from zero.
int64_t roundToInt64(double v) {
    return truncateToInt64(std::round(v));
}

// A share of a hyperthread sibling: it adds 65 % of a core's clock, not 100 %.
int64_t hyperthreadShare(int64_t mhz) {
    return truncateToInt64(static_cast<float>(mhz) * 1.3f * 0.5f);
}

// Each failed clock read leaves one line: the system's text for the error.
void logSystemError(CpuInfo& info, int result) {
    info.errors.append(systemErrorText(static_cast<uint32_t>(result)));
    info.errors.append("\n");
}

int64_t readClockMhz(CpuInfo& info, int (OsQuery::*query)(int64_t*) const, const OsQuery& os) {
    int64_t hz = 0;
    const int result = (os.*query)(&hz);
    if (result != 0) {
        logSystemError(info, result);
        return -1;
    }
    return roundToInt64(static_cast<double>(hz) / 1000.0 / 1000.0);
}

// The clock printed in the brand text, e.g. "@ 2.60GHz" or "1600MHz".
void readClockInLabel(CpuInfo& info) {
    FixedString<250> t = info.description;
    const int at = t.find("@");
    if (at >= 0) {
        t.remove(0, at + 1);
        const int ghz = t.find("GHz");
        if (ghz >= 0) {
            t.setLength(static_cast<int16_t>(ghz));
        }
        t.trim();
        // Single precision on purpose: 2.6f * 1000.0f is exactly 2600, in double it is 2599.99...
        info.mhzInLabel = truncateToInt64(t.parseDecimal(nullptr) * 1000.0f);
        return;
    }
    const int mhz = t.find("Mhz");
    if (mhz >= 0) {
        t.setLength(static_cast<int16_t>(mhz));
        // Trims the short name of the previous reading, which is rebuilt right after; kept as the
        // established behaviour.
        const int blank = info.shortName.findLastChar(' ', -1);
        if (blank > 0) {
            info.shortName.remove(0, blank + 1);
        }
        info.mhzInLabel = leadingInt(t.text);
    }
}

// Drops the "<count>" of a "<count>-Core Processor" style suffix together with the suffix.
void removeCoreCount(FixedString<250>& name, const char* suffix, int suffixLength) {
    const int p = name.find(suffix);
    if (p >= 0) {
        const int s = name.findLastChar(' ', p);
        name.remove(s, p - s);
        name.remove(s, suffixLength);
    }
}

// Drops everything up to the end of the Xeon prefix and the tier words, which do not identify
// the model.
void removeXeonPrefix(FixedString<250>& name, const char* prefix) {
    const int p = name.find(prefix);
    if (p >= 0) {
        name.remove(0, p + static_cast<int>(strlen(prefix)));
        name.removeAll("Gold ");
        name.removeAll("Platinum ");
    }
}

// Each rule sees the result of the ones before it, so the order matters.
void buildShortName(CpuInfo& info) {
    FixedString<250>& name = info.shortName;
    name = info.description;
    int p = name.find("@");
    if (p >= 0) {
        name.setLength(static_cast<int16_t>(p));
    }
    p = name.find("Mhz");
    if (p >= 0) {
        name.setLength(static_cast<int16_t>(p));
        const int blank = name.findLastChar(' ', -1);
        if (blank > 0) {
            name.setLength(static_cast<int16_t>(blank));
        }
    }
    p = name.find("Intel(R) Core(TM)");
    if (p >= 0) {
        name.remove(0, p + 17);
    }
    removeXeonPrefix(name, "Intel(R) Xeon(R)");
    removeXeonPrefix(name, "Intel Xeon ");
    p = name.find("Intel(R)");
    if (p >= 0) {
        name.remove(0, p + 8);
    }
    p = name.find("AMD Ryzen Threadripper");
    if (p >= 0) {
        name.remove(0, p + 22);
        name.removeAll("PRO ");
    }
    p = name.find("AMD Ryzen");
    if (p >= 0) {
        name.remove(0, name.findCharIgnoreCase(' ', p + 10));
    }
    p = name.find("AMD EPYC ");
    if (p >= 0) {
        name.remove(0, p);
        name.remove(0, 9);
    }
    removeCoreCount(name, "-Core Processor", 15);
    removeCoreCount(name, "-Cores", 6);
    name.trim();
    if (name.endsWithIgnoreCase("CPU")) {
        name.setLength(static_cast<int16_t>(name.length - 3));
    }
    if (name.startsWithIgnoreCase("CPU")) {
        name.remove(0, 3);
    }
    name.trim();
    name.removeAll("Apple");
    name.trim();
    if (info.vendorIntel) {
        name.insert(0, "I");
    } else if (info.vendorAmd) {
        name.insert(0, "A");
    }
    // Every short name of this build carries the platform tag.
    name.insert(0, "Apple");
}

// Guesses the clock all cores reach together: halfway from the base clock to the lower of the
// maximum and 2.3 times the base, or a fixed boost when no maximum is known.
float estimatedCoreMhz(const CpuInfo& info) {
    float f;
    if (info.mhzInLabel >= 1) {
        f = static_cast<float>(info.mhzInLabel);
    } else if (info.mhzMax > 0) {
        f = static_cast<float>(info.mhzMax);
    } else {
        f = static_cast<float>(info.mhzCurrent > 0 ? info.mhzCurrent : 0);
    }
    if (info.mhzMax > 0) {
        const int64_t t = roundToInt64(static_cast<double>(f) * 2.3);
        const int64_t m = info.mhzMax < t ? info.mhzMax : t;
        f = f + static_cast<float>(roundToInt64((static_cast<double>(m) - f) * 0.5));
    } else {
        f = f * (info.vendorAmd ? 1.1f : 1.4f);
    }
    return f;
}

// Hyperthreads count 30 % of a core.
int64_t summedMhz(const CpuInfo& info) {
    if (info.logicalCpus < 1) {
        return 1;
    }
    const float f = estimatedCoreMhz(info);
    const float threads = static_cast<float>(static_cast<int64_t>(info.logicalCpus) -
                                             static_cast<int64_t>(info.physicalCpus));
    const int32_t sum =
        truncateToInt32(threads * f * 0.3f + static_cast<float>(info.physicalCpus) * f);
    return sum < 1 ? 1 : sum;
}

int64_t perCoreEstimate(const CpuInfo& info, int64_t c) {
    if (info.mhzMax <= 0) {
        return truncateToInt64(static_cast<float>(c) * (info.vendorAmd ? 1.1f : 1.4f));
    }
    const int64_t t = roundToInt64(static_cast<double>(c) * 2.3);
    const int64_t m = t < info.mhzMax ? t : info.mhzMax;
    return c + roundToInt64((static_cast<double>(m) - static_cast<double>(c)) * 0.5);
}

}  // namespace

CpuInfo::CpuInfo() {
    memset(static_cast<void*>(this), 0, sizeof(*this));
}

void readCpuInfo(CpuInfo& info) {
    readCpuInfo(info, systemOsQuery());
}

void readCpuInfo(CpuInfo& info, const OsQuery& os) {
    info.mhzInLabel = -1;
    info.mhzCurrent = -1;
    info.mhzInfo = -1;
    info.mhzMax = -1;

    if (os.brandString(info.description.text, kBrandBufferSize) != 0) {
        info.errors.append("Could not get CPU-name\n");
    } else {
        info.description.syncLength();
    }

    // A count the OS cannot give keeps its previous value.
    int32_t count = 0;
    const char* fallback = nullptr;
    if (os.physicalCpus(&count, &fallback) == 0) {
        info.physicalCpus = count;
        if (fallback != nullptr) {
            info.errors.append(fallback);
            info.errors.append("\n");
        }
    }
    if (os.logicalCpus(&count) == 0) {
        info.logicalCpus = count;
    }

    info.mhzCurrent = readClockMhz(info, &OsQuery::cpuFrequencyHz, os);
    info.mhzMax = readClockMhz(info, &OsQuery::cpuFrequencyMaxHz, os);

    readClockInLabel(info);
    buildShortName(info);
    info.hyperthreading = info.logicalCpus > info.physicalCpus;
    info.mhzSummed = summedMhz(info);
}

void gatherCpuInfo(CpuInfo& info) {
    gatherCpuInfo(info, systemOsQuery());
}

void gatherCpuInfo(CpuInfo& info, const OsQuery& os) {
    if (info.logicalCpus < 1) {
        readCpuInfo(info, os);
        if (info.logicalCpus < 1) {
            return;
        }
    }
    // No per-core clock source exists on this platform: every entry is unknown.
    for (int i = 0; i < kMaxCores; ++i) {
        info.coreHt[i] = info.hyperthreading;
        info.coreMhzMin[i] = -1;
        info.coreMhzMax[i] = -1;
        info.coreMhzCur[i] = -1;
        info.coreMhzInfo[i] = -1;
    }

    // The OS may report more CPUs than the tables hold; only the tables' entries are summed.
    const int cores = info.logicalCpus < kMaxCores ? info.logicalCpus : kMaxCores;
    int64_t measured = 0;
    int64_t perCore = 0;
    for (int i = 0; i < cores; ++i) {
        const int64_t current = info.coreMhzCur[i];
        const int64_t estimate = perCoreEstimate(info, info.coreMhzInfo[i]);
        measured += info.coreHt[i] ? hyperthreadShare(current) : current;
        perCore += info.coreHt[i] ? hyperthreadShare(estimate) : estimate;
    }
    info.mhzSummedMeasured = measured > 0 ? measured : info.mhzSummed;
    info.mhzSummedPerCore = perCore > 0 ? perCore : info.mhzSummed;
}
