// The /proc and /sys readers against models of their own: a number is what std::from_chars reads,
// refused beyond int64, and a clock in MHz is read as one digit string of Hz. The input is used as
// a whole /proc file, line by line as sysfs files, and as the values of the fields found in it, as
// the OS query chains them.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <set>
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

// "0x" and at most three significant hex digits: MIDR's implementer and part number.
Number midrField(const std::string& text, const char* key) {
    const std::string field = modelField(text, key).value_or("");
    const Number value =
        field.compare(0, 2, "0x") ? std::nullopt : valueOf(stripped(field.substr(2)), 16);
    return value && *value <= 0xfff ? value : std::nullopt;
}

// A block opens at each line whose "processor" field reads as a decimal number and runs up to the
// next such line.
using Blocks = std::vector<std::pair<int64_t, std::string>>;

Blocks modelBlocks(const std::string& text) {
    Blocks blocks;
    for (size_t begin = 0, end; begin < text.size(); begin = end + 1) {
        end = std::min(text.find('\n', begin), text.size());
        if (const Number cpu = numberField(text.substr(begin, end - begin), "processor")) {
            if (!blocks.empty()) {
                blocks.back().second.resize(blocks.back().second.size() - (text.size() - begin));
            }
            blocks.emplace_back(*cpu, text.substr(begin));
        }
    }
    return blocks;
}

// An allowed CPU without a block has no fields.
const std::string& blockOf(const Blocks& blocks, int cpu) {
    static const std::string none;
    const auto b =
        std::find_if(blocks.begin(), blocks.end(), [&](auto& b) { return b.first == cpu; });
    return b == blocks.end() ? none : b->second;
}

void checkCpuinfo(const std::string& text, const Blocks& blocks, const std::vector<int>& allowed) {
    // Physical cores are the distinct (package, core) pairs; none when a CPU lacks either line.
    std::set<std::pair<Number, Number>> pairs;
    for (const int cpu : allowed) {
        pairs.insert({numberField(blockOf(blocks, cpu), "physical id"),
                      numberField(blockOf(blocks, cpu), "core id")});
    }
    const bool countable = !pairs.empty() && std::all_of(pairs.begin(), pairs.end(), [](auto& p) {
        return p.first && p.second;
    });
    int32_t cores = -7;
    FUZZ_CHECK(countCoresInCpuinfo(text, allowed, &cores) == countable);
    FUZZ_CHECK(cores == (countable ? static_cast<int32_t>(pairs.size()) : -7));

    // Old kernels print the MIDR lines once for all CPUs: the first ones in the text stand in when
    // no allowed CPU has its own. How the types found are named is pinned by DescribeArmCpu's
    // table.
    const auto readable = [](const std::string& b) {
        return midrField(b, "CPU implementer") && midrField(b, "CPU part");
    };
    const bool armFound =
        readable(text) || std::any_of(allowed.begin(), allowed.end(),
                                      [&](int cpu) { return readable(blockOf(blocks, cpu)); });
    std::string name = "unchanged";
    const bool found = describeArmCpu(text, allowed, &name);
    FUZZ_CHECK(found == armFound && found == (name != "unchanged"));
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

    // As a whole /proc/cpuinfo: its processor blocks, and the core count and arm64 name for the
    // CPUs the first byte allows (bit i: CPU i).
    const Blocks expected = modelBlocks(text);
    const std::vector<ProcessorBlock> blocks = processorBlocks(text);
    FUZZ_CHECK(std::equal(blocks.begin(), blocks.end(), expected.begin(), expected.end(),
                          [](auto& b, auto& e) { return b.cpu == e.first && b.text == e.second; }));
    std::vector<int> allowed;
    for (int cpu = 0; cpu < 8 && size > 0; ++cpu) {
        data[0] & (1u << cpu) ? allowed.push_back(cpu) : void();
    }
    checkCpuinfo(text, expected, allowed);
    return 0;
}
