// The CPU record from arbitrary OS answers: the brand text (the input up to its first line feed),
// then counts, clocks and failures taken from the rest. The short name is checked against what
// the rules can and cannot do to a text, and against the expected name for brand texts built in
// the form of the big vendors' families; the clocks and the summed estimate against long double.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "cpu_info.h"
#include "fuzz_check.h"
#include "os_query.h"

namespace {

struct Answer {
    int error = 0;  // 0: the query succeeds
    int64_t value = 0;
};

struct FuzzedOs : OsQuery {
    std::string brand;
    int brandError = 0;
    Answer physical, logical, hz, maxHz;
    const char* physicalFallback = nullptr;

    static int answer(const Answer& a, int64_t* out) {
        if (a.error != 0) {
            errno = a.error;
            return -1;
        }
        *out = a.value;
        return 0;
    }
    static int answer32(const Answer& a, int32_t* out) {
        int64_t v = 0;
        const int result = answer(a, &v);
        if (result == 0) {
            *out = static_cast<int32_t>(v);
        }
        return result;
    }
    int brandString(char* buffer, size_t size) const override {
        if (brandError != 0 || brand.size() >= size) {
            errno = brandError != 0 ? brandError : ENOMEM;
            return -1;
        }
        memcpy(buffer, brand.c_str(), brand.size() + 1);
        return 0;
    }
    int physicalCpus(int32_t* n, const char** fallback) const override {
        *fallback = physicalFallback;
        return answer32(physical, n);
    }
    int logicalCpus(int32_t* n) const override { return answer32(logical, n); }
    int cpuFrequencyHz(int64_t* v) const override { return answer(hz, v); }
    int cpuFrequencyMaxHz(int64_t* v) const override { return answer(maxHz, v); }
    int memoryBytes(int64_t* v) const override { return answer({}, v); }
};

std::string upperAll(std::string s) {
    for (char& c : s) {
        c = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return s;
}

bool containsIgnoreCase(const std::string& text, const char* word) {
    return upperAll(text).find(upperAll(word)) != std::string::npos;
}

bool isTrimmed(char c) {
    return c == '\0' || c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

std::string trimmed(const std::string& s) {
    size_t begin = 0;
    size_t end = s.size();
    while (end > 0 && isTrimmed(s[end - 1])) {
        --end;
    }
    while (begin < end && isTrimmed(s[begin])) {
        ++begin;
    }
    return s.substr(begin, end - begin);
}

// Every rule cuts or deletes; only the platform and vendor tags are ever added.
bool isSubsequence(const std::string& part, const std::string& whole) {
    size_t at = 0;
    for (const char c : part) {
        at = whole.find(c, at);
        if (at == std::string::npos) {
            return false;
        }
        ++at;
    }
    return true;
}

// A word that no rule looks at: letters and digits only, none of the rules' search words.
std::string plainWord(const std::string& from) {
    std::string word;
    for (const char c : from) {
        if (((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) &&
            word.size() < 12) {
            word += c;
        }
    }
    for (const char* w : {"mhz", "ghz", "intel", "amd", "cpu", "apple", "gold", "platinum", "pro",
                          "ryzen", "threadripper", "epyc", "xeon", "core"}) {
        if (containsIgnoreCase(word, w)) {
            return "";
        }
    }
    return word;
}

struct Family {
    std::string brand;
    std::string shortName;  // without the tags
    long double mhzInLabel;
};

// Brand texts in the form each family writes them, with the name the rules must leave.
bool buildFamily(int kind, const std::string& a, const std::string& b, int ghzHundredths, int count,
                 Family* f) {
    if (a.empty() || b.empty()) {
        return false;
    }
    const std::string ghz = std::to_string(ghzHundredths / 100) + "." +
                            std::to_string(ghzHundredths / 10 % 10) +
                            std::to_string(ghzHundredths % 10);
    const std::string cores = std::to_string(count);
    switch (kind) {
        case 1:
            *f = {"Intel(R) Core(TM) " + a + " CPU @ " + ghz + "GHz", a, ghzHundredths * 10.0L};
            return true;
        case 2: {
            const char* tier = count % 3 == 0 ? "" : (count % 3 == 1 ? "Gold " : "Platinum ");
            *f = {"Intel(R) Xeon(R) " + std::string(tier) + a + " CPU @ " + ghz + "GHz", a,
                  ghzHundredths * 10.0L};
            return true;
        }
        case 3:
            *f = {"AMD Ryzen " + a + " " + b + " " + cores + "-Core Processor", b, -1};
            return true;
        case 4:
            *f = {"AMD EPYC " + a + " " + cores + "-Core Processor", a, -1};
            return true;
        case 5:
            if (a[0] >= '0' && a[0] <= '9') {
                return false;  // the label clock would be a's leading digits
            }
            *f = {a + " " + cores + "MHz", a, 0};
            return true;
        default:
            return false;
    }
}

Answer consumeAnswer(FuzzedDataProvider& in, bool narrow) {
    Answer a;
    if (in.ConsumeIntegralInRange<int>(0, 7) == 0) {
        a.error = in.ConsumeIntegralInRange<int>(1, 200);
    }
    a.value = narrow ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegral<int64_t>();
    return a;
}

// The summed clock estimate, for figures a machine can have.
void checkSummed(const CpuInfo& info) {
    const long double logical = info.logicalCpus;
    const long double physical = info.physicalCpus;
    if (info.logicalCpus < 1 || info.logicalCpus > 4096 || info.physicalCpus < 0 ||
        info.physicalCpus > info.logicalCpus || info.mhzInLabel > 1000000 ||
        info.mhzMax > 1000000 || info.mhzCurrent > 1000000) {
        return;
    }
    long double f = info.mhzInLabel >= 1 ? info.mhzInLabel
                    : info.mhzMax > 0    ? info.mhzMax
                                         : std::max<int64_t>(info.mhzCurrent, 0);
    if (info.mhzMax > 0) {
        const long double m = std::min<long double>(info.mhzMax, std::round(f * 2.3L));
        f += std::round((m - f) * 0.5L);
    } else {
        f *= info.vendorAmd ? 1.1L : 1.4L;
    }
    const long double sum = (logical - physical) * f * 0.3L + physical * f;
    const long double expected = std::max<long double>(1, std::trunc(sum));
    FUZZ_CHECK(std::fabs(info.mhzSummed - expected) <= expected * 1e-6L + 2);
}

void checkClock(int64_t mhz, const Answer& a) {
    if (a.error != 0) {
        FUZZ_CHECK(mhz == -1);
        return;
    }
    const long double expected = a.value / 1e6L;
    FUZZ_CHECK(std::fabs(mhz - expected) <= 0.5L + std::fabs(expected) * 1e-15L);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t lineEnd = std::min(input.find('\n'), input.size());
    std::string brand(input.substr(0, lineEnd).c_str());
    brand.resize(std::min<size_t>(brand.size(), 249));
    FuzzedDataProvider in(data + std::min(lineEnd + 1, size), size - std::min(lineEnd + 1, size));

    FuzzedOs os;
    const int kind = in.ConsumeIntegralInRange<int>(0, 7);
    Family family;
    const size_t half = brand.size() / 2;
    const bool isFamily = buildFamily(
        kind, plainWord(brand.substr(0, half)), plainWord(brand.substr(half)),
        in.ConsumeIntegralInRange<int>(0, 999), in.ConsumeIntegralInRange<int>(1, 128), &family);
    os.brand = isFamily ? family.brand : brand;
    if (in.ConsumeIntegralInRange<int>(0, 15) == 0) {
        os.brandError = in.ConsumeIntegralInRange<int>(1, 200);
    }
    const bool narrow = in.ConsumeBool();
    os.physical = consumeAnswer(in, true);
    if (in.ConsumeBool()) {
        os.physicalFallback = "Core count estimated\n";
    }
    os.logical = consumeAnswer(in, true);
    os.hz = consumeAnswer(in, narrow);
    os.maxHz = consumeAnswer(in, narrow);

    CpuInfo info;
    info.vendorIntel = in.ConsumeBool();
    info.vendorAmd = in.ConsumeBool();
    readCpuInfo(info, os);

    const std::string description(info.description.text, info.description.length);
    const std::string shortName(info.shortName.text, info.shortName.length);
    FUZZ_CHECK(description == (os.brandError == 0 ? os.brand : ""));
    FUZZ_CHECK(info.shortName.text[info.shortName.length] == '\0');
    FUZZ_CHECK(info.errors.length <= 1000);

    // "Apple", then the vendor letter, then what the rules left of the brand text.
    const std::string tags = std::string("Apple") + (info.vendorIntel ? "I"
                                                     : info.vendorAmd ? "A"
                                                                      : "");
    FUZZ_CHECK(shortName.compare(0, tags.size(), tags) == 0);
    const std::string rest = shortName.substr(tags.size());
    FUZZ_CHECK(isSubsequence(rest, description));
    if (shortName.size() < 250) {
        FUZZ_CHECK(rest == trimmed(rest));
    }
    bool ruleWords = false;
    for (const char* w : {"@", "mhz", "intel", "amd", "-core", "cpu", "apple"}) {
        ruleWords = ruleWords || containsIgnoreCase(description, w);
    }
    // Tags and text together are cut at the capacity.
    if (!ruleWords) {
        FUZZ_CHECK(shortName == (tags + trimmed(description)).substr(0, 250));
    }
    if (!containsIgnoreCase(description, "@") && !containsIgnoreCase(description, "mhz")) {
        FUZZ_CHECK(info.mhzInLabel == -1);
    }
    if (isFamily && os.brandError == 0) {
        FUZZ_CHECK(rest == family.shortName);
        if (family.mhzInLabel < 0) {
            FUZZ_CHECK(info.mhzInLabel == -1);
        } else {
            FUZZ_CHECK(std::fabs(info.mhzInLabel - family.mhzInLabel) <= 1);
        }
    }

    checkClock(info.mhzCurrent, os.hz);
    checkClock(info.mhzMax, os.maxHz);
    FUZZ_CHECK(info.mhzInfo == -1);
    FUZZ_CHECK(info.mhzSummed >= 1);
    FUZZ_CHECK(info.hyperthreading == (info.logicalCpus > info.physicalCpus));
    checkSummed(info);

    // A second reading redoes everything but the error log.
    CpuInfo again = info;
    readCpuInfo(again, os);
    FUZZ_CHECK(again.shortName.equalsIgnoreCase(info.shortName) &&
               memcmp(again.shortName.text, info.shortName.text, info.shortName.length) == 0);
    FUZZ_CHECK(again.mhzInLabel == info.mhzInLabel && again.mhzSummed == info.mhzSummed);

    // No per-core clock source: both per-core sums fall back to the estimate.
    gatherCpuInfo(info, os);
    if (info.logicalCpus >= 1) {
        FUZZ_CHECK(info.mhzSummedMeasured == info.mhzSummed);
        FUZZ_CHECK(info.mhzSummedPerCore == info.mhzSummed);
        FUZZ_CHECK(info.coreMhzCur[kMaxCores - 1] == -1 && info.coreHt[0] == info.hyperthreading);
    }
    return 0;
}
