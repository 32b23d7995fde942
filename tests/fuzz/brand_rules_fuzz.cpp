// The CPU record from arbitrary OS answers: the brand text (the input up to its first line feed),
// then counts, clocks and failures taken from the rest. The short name is checked against what
// the rules can and cannot do to any text; what each rule makes of each vendor's form, and the
// clock figures, are pinned by ReadCpuInfo's tables: here they only have to survive any answer.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
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
    Answer brandAnswer, physical, logical, hz, maxHz;
    const char* physicalFallback = nullptr;

    template <typename T>
    static int answer(const Answer& a, T* out) {
        return (errno = a.error) != 0 ? -1 : (*out = static_cast<T>(a.value), 0);
    }
    int brandString(char* buffer, size_t size) const override {
        if (brandAnswer.error != 0 || brand.size() >= size) {
            errno = brandAnswer.error != 0 ? brandAnswer.error : ENOMEM;
            return -1;
        }
        memcpy(buffer, brand.c_str(), brand.size() + 1);
        return 0;
    }
    int physicalCpus(int32_t* n, const char** fallback) const override {
        *fallback = physicalFallback;
        return answer(physical, n);
    }
    int logicalCpus(int32_t* n) const override { return answer(logical, n); }
    int cpuFrequencyHz(int64_t* v) const override { return answer(hz, v); }
    int cpuFrequencyMaxHz(int64_t* v) const override { return answer(maxHz, v); }
    int memoryBytes(int64_t* v) const override { return answer({}, v); }
};

// Case-insensitive in ASCII only (the C locale).
bool has(const std::string& text, const std::string& word) {
    const auto same = [](unsigned char a, unsigned char b) { return toupper(a) == toupper(b); };
    return std::search(text.begin(), text.end(), word.begin(), word.end(), same) != text.end();
}

std::string trimmed(const std::string& s) {
    const std::string blanks("\0\t\n\r ", 5);
    const size_t end = s.find_last_not_of(blanks);
    return end == std::string::npos ? "" : s.substr(0, end + 1).substr(s.find_first_not_of(blanks));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t lineEnd = std::min(input.find('\n'), input.size());
    FuzzedDataProvider in(data + std::min(lineEnd + 1, size), size - std::min(lineEnd + 1, size));

    // One query in eight fails (with an errno of 1 to 200); counts are 32-bit, clocks sometimes
    // too.
    const auto answer = [&in](bool wide) {
        const int error = std::max(in.ConsumeIntegralInRange(-1400, 200), 0);
        return Answer{error, wide ? in.ConsumeIntegral<int64_t>() : in.ConsumeIntegral<int32_t>()};
    };
    FuzzedOs os;
    os.brand = std::string(input.substr(0, lineEnd).c_str()).substr(0, 249);
    os.brandAnswer = answer(false);
    const bool wide = in.ConsumeBool();
    os.physical = answer(false);
    os.physicalFallback = in.ConsumeBool() ? "Core count estimated\n" : nullptr;
    os.logical = answer(false);
    os.hz = answer(wide);
    os.maxHz = answer(wide);

    CpuInfo info;
    info.vendorIntel = in.ConsumeBool();
    info.vendorAmd = in.ConsumeBool();
    readCpuInfo(info, os);

    const std::string description(info.description.text, info.description.length);
    const std::string shortName(info.shortName.text, info.shortName.length);
    FUZZ_CHECK(description == (os.brandAnswer.error == 0 ? os.brand : "") &&
               info.shortName.text[info.shortName.length] == '\0');

    // "Apple", then the vendor letter, then what the rules left of the brand text: every rule cuts
    // or deletes, so that is a trimmed subsequence of it.
    const std::string tags = info.vendorIntel ? "AppleI" : (info.vendorAmd ? "AppleA" : "Apple");
    FUZZ_CHECK(shortName.compare(0, tags.size(), tags) == 0);
    const std::string rest = shortName.substr(tags.size());
    size_t at = 0;
    for (const char c : rest) {
        at = description.find(c, at) + 1;
        FUZZ_CHECK(at != 0);
    }
    FUZZ_CHECK(shortName.size() == 250 || rest == trimmed(rest));
    const char* ruleWords[] = {"@", "mhz", "intel", "amd", "-core", "cpu", "apple"};
    const bool ruled = std::any_of(std::begin(ruleWords), std::end(ruleWords),
                                   [&](const char* w) { return has(description, w); });
    // Tags and text together are cut at the capacity.
    FUZZ_CHECK(ruled || shortName == (tags + trimmed(description)).substr(0, 250));
    FUZZ_CHECK(has(description, "@") || has(description, "mhz") || info.mhzInLabel == -1);

    FUZZ_CHECK(info.mhzInfo == -1 && info.mhzSummed >= 1 &&
               info.hyperthreading == (info.logicalCpus > info.physicalCpus));

    // A second reading redoes everything but the error log.
    CpuInfo again = info;
    readCpuInfo(again, os);
    FUZZ_CHECK(std::string(again.shortName.text, again.shortName.length) == shortName &&
               again.mhzInLabel == info.mhzInLabel && again.mhzSummed == info.mhzSummed);

    // The per-core arrays are filled for whatever count the OS gave (the fallbacks are pinned by
    // GatherCpuInfo's tests).
    gatherCpuInfo(info, os);
    return 0;
}
