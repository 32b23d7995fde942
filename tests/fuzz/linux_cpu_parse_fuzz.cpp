// The /proc and /sys readers against models of their own: a number is what std::from_chars reads,
// refused beyond int64, and a clock in MHz is read as one digit string of Hz. The input is used as
// a whole /proc file, line by line as sysfs files, and as the values of the fields found in it, as
// the OS query chains them.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "linux_cpu_parse.h"
#include "proc_cpuinfo_parse.h"

namespace {

using Number = std::optional<int64_t>;
constexpr size_t npos = std::string::npos;
constexpr const char* kDigits = "0123456789";

bool allOf(const std::string& s, const char* set) {
    return !s.empty() && s.find_first_not_of(set) == npos;
}

// Unsigned digits, refused beyond int64.
Number valueOf(const std::string& digits, int base) {
    int64_t v = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, v, base);
    return digits[0] != '-' && stop == end && error == std::errc() ? Number(v) : std::nullopt;
}

// sysfs and /proc values end in a line feed, and the kernel pads some with blanks or tabs.
std::string stripped(std::string_view text) {
    return std::string(text.substr(0, text.find_last_not_of(" \t\n") + 1));
}

Number modelDecimal(std::string_view text) {
    const std::string s = stripped(text);
    const bool minus = !s.empty() && s[0] == '-';
    const Number magnitude = valueOf(s.substr(minus), 10);
    return magnitude && minus ? -*magnitude : magnitude;
}

// "<MHz>[.<digits>]": the first six fraction digits are the Hz, the rest must still be digits;
// written out as one decimal digit string, the Hz must fit int64.
Number modelMhzAsHz(std::string_view text) {
    const std::string s = stripped(text);
    const size_t dot = s.find('.');
    const std::string whole = s.substr(0, dot);
    std::string fraction = dot == npos ? "0" : s.substr(dot + 1);
    if (!allOf(whole, kDigits) || !allOf(fraction, kDigits)) {
        return std::nullopt;
    }
    fraction.resize(6, '0');  // pads or drops
    return valueOf(whole + fraction, 10);
}

Number modelMeminfoBytes(std::string_view text) {
    const std::string s = stripped(text);
    const bool kb = s.size() >= 3 && s.compare(s.size() - 3, 3, " kB") == 0;
    const Number value = kb ? valueOf(s.substr(0, s.size() - 3), 10) : std::nullopt;
    return value && *value <= INT64_MAX / 1024 ? Number(*value * 1024) : std::nullopt;
}

// The first line whose text before its first colon, less trailing blanks and tabs, is the key.
std::optional<std::string> modelField(const std::string& text, const std::string& key) {
    for (size_t begin = 0, end; begin < text.size(); begin = end + 1) {
        end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        const size_t colon = line.find(':');
        if (colon != npos && stripped(line.substr(0, colon)) == key) {
            return line.substr(std::min(line.find_first_not_of(" \t", colon + 1), line.size()));
        }
    }
    return std::nullopt;
}

void checkValue(std::string_view text) {
    const auto check = [text](auto parse, const Number& expected) {
        int64_t value = 0x5a5a5a5a;  // a refusal writes nothing
        FUZZ_CHECK(parse(text, &value) == expected.has_value() &&
                   value == expected.value_or(0x5a5a5a5a));
    };
    check(parseSysfsDecimal, modelDecimal(text));
    check(parseSysfsHex, valueOf(stripped(text), 16));
    check(parseMhzAsHz, modelMhzAsHz(text));
    check(parseMeminfoBytes, modelMeminfoBytes(text));
    FUZZ_CHECK(isOnlineMemoryBlock(text) == (stripped(text) == "1"));
}

Number numberField(const std::string& text, const char* key) {
    return modelDecimal(modelField(text, key).value_or(""));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    // As a whole /proc file: the fields the OS query and the topology fallbacks read.
    for (const char* key : {"model name", "cpu MHz", "MemTotal", "processor", "physical id",
                            "core id", "CPU implementer", "CPU part", ""}) {
        std::string_view value;
        const bool found = findProcField(text, key, &value);
        const std::optional<std::string> expected = modelField(text, key);
        FUZZ_CHECK(found == expected.has_value() && value == expected.value_or(""));
        // A view into a copy that has gone would be read here, under ASan.
        checkValue(value);
    }

    // As one sysfs file, and each line as one.
    checkValue(text);
    for (size_t begin = 0, end; begin < text.size(); begin = end + 1) {
        end = std::min(text.find('\n', begin), text.size());
        checkValue(std::string_view(text).substr(begin, end - begin + 1));
    }

    // As a whole /proc/cpuinfo: the blocks tile its tail, each opened by its own processor line.
    // How blocks, core pairs and arm64 parts are read is pinned by the recorded machines; here
    // the readers must only keep to their bounds and outputs.
    std::string tiled;
    for (const ProcessorBlock& b : processorBlocks(text)) {
        const std::string block(b.text);
        FUZZ_CHECK(numberField(block.substr(0, block.find('\n')), "processor") == b.cpu);
        tiled += block;
    }
    FUZZ_CHECK(tiled.size() <= size && text.compare(size - tiled.size(), npos, tiled) == 0);
    std::vector<int> allowed;  // bit i of the first byte: CPU i
    for (int cpu = 0; cpu < 8 && size > 0; ++cpu) {
        data[0] & (1u << cpu) ? allowed.push_back(cpu) : void();
    }
    int32_t cores = -7;
    const bool counted = countCoresInCpuinfo(text, allowed, &cores);
    FUZZ_CHECK(counted ? cores >= 1 && cores <= static_cast<int32_t>(allowed.size()) : cores == -7);
    std::string name = "unchanged";
    FUZZ_CHECK(describeArmCpu(text, allowed, &name) == (name != "unchanged"));
    return 0;
}
