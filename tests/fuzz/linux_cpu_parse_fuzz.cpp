// The /proc and /sys readers against models built on plain string arithmetic: a number is taken
// when its digit string, without leading zeros, is no longer or larger than int64's, and its value
// is then what std::stoll reads. The input is used as a whole /proc file, line by line as sysfs
// files, and as the values of the fields found in it, as the OS query chains them.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "arm_cpu_parts.h"
#include "fuzz_check.h"
#include "linux_cpu_parse.h"
#include "proc_cpuinfo_parse.h"

namespace {

const std::string kInt64Max = "9223372036854775807";

bool allOf(const std::string& s, const char* digits) {
    return !s.empty() && s.find_first_not_of(digits) == std::string::npos;
}

std::string withoutLeadingZeros(const std::string& digits) {
    const size_t first = digits.find_first_not_of('0');
    return first == std::string::npos ? "0" : digits.substr(first);
}

// A decimal digit string's value, when it fits int64.
std::optional<int64_t> decimalValue(const std::string& digits) {
    if (!allOf(digits, "0123456789")) {
        return std::nullopt;
    }
    const std::string d = withoutLeadingZeros(digits);
    if (d.size() > kInt64Max.size() || (d.size() == kInt64Max.size() && d > kInt64Max)) {
        return std::nullopt;
    }
    return std::stoll(d);
}

std::optional<int64_t> hexValue(const std::string& digits) {
    if (!allOf(digits, "0123456789abcdefABCDEF")) {
        return std::nullopt;
    }
    const std::string d = withoutLeadingZeros(digits);
    if (d.size() > 16 || (d.size() == 16 && d[0] > '7')) {
        return std::nullopt;
    }
    return static_cast<int64_t>(std::stoull(d, nullptr, 16));
}

// sysfs and /proc values end in a line feed, and the kernel pads some with blanks or tabs.
std::string stripped(std::string_view text) {
    std::string s(text);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\n')) {
        s.pop_back();
    }
    return s;
}

std::optional<int64_t> modelSysfsDecimal(std::string_view text) {
    std::string s = stripped(text);
    const bool negative = !s.empty() && s[0] == '-';
    const std::optional<int64_t> magnitude = decimalValue(negative ? s.substr(1) : s);
    if (!magnitude) {
        return std::nullopt;
    }
    return negative ? -*magnitude : *magnitude;
}

// "<MHz>[.<digits>]" as Hz: the first six fraction digits are the Hz, the rest must still be
// digits; written out as one decimal digit string, the Hz must fit int64.
std::optional<int64_t> modelMhzAsHz(std::string_view text) {
    const std::string s = stripped(text);
    const size_t dot = s.find('.');
    const std::string whole = s.substr(0, dot);
    std::string fraction;
    if (dot != std::string::npos) {
        fraction = s.substr(dot + 1);
        if (!allOf(fraction, "0123456789")) {
            return std::nullopt;
        }
    }
    if (!allOf(whole, "0123456789")) {
        return std::nullopt;
    }
    fraction.resize(6, '0');  // pads or drops
    return decimalValue(whole + fraction);
}

std::optional<int64_t> modelMeminfoBytes(std::string_view text) {
    const std::string s = stripped(text);
    const std::string unit = " kB";
    if (s.size() < unit.size() || s.compare(s.size() - unit.size(), unit.size(), unit) != 0) {
        return std::nullopt;
    }
    const std::optional<int64_t> kb = decimalValue(s.substr(0, s.size() - unit.size()));
    if (!kb || *kb > INT64_MAX / 1024) {
        return std::nullopt;
    }
    return *kb * 1024;
}

// The first line whose text before its first colon, less trailing blanks and tabs, is the key.
std::optional<std::string> modelProcField(const std::string& text, const std::string& key) {
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string line = text.substr(begin, end - begin);
        begin = end + 1;
        const size_t colon = line.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        const size_t nameEnd =
            line.find_last_not_of(" \t", colon == 0 ? std::string::npos : colon - 1);
        const std::string name =
            colon == 0 || nameEnd == std::string::npos ? "" : line.substr(0, nameEnd + 1);
        if (name != key) {
            continue;
        }
        const size_t valueBegin = line.find_first_not_of(" \t", colon + 1);
        return valueBegin == std::string::npos ? "" : line.substr(valueBegin);
    }
    return std::nullopt;
}

template <typename Parse>
void checkNumber(Parse parse, std::string_view text, const std::optional<int64_t>& expected) {
    int64_t value = 0x5a5a5a5a;
    const bool ok = parse(text, &value);
    FUZZ_CHECK(ok == expected.has_value());
    FUZZ_CHECK(ok ? value == *expected : value == 0x5a5a5a5a);  // a refusal writes nothing
}

void checkValue(std::string_view text) {
    checkNumber(parseSysfsDecimal, text, modelSysfsDecimal(text));
    checkNumber(parseSysfsHex, text, hexValue(stripped(text)));
    checkNumber(parseMhzAsHz, text, modelMhzAsHz(text));
    checkNumber(parseMeminfoBytes, text, modelMeminfoBytes(text));
    FUZZ_CHECK(isOnlineMemoryBlock(text) == (stripped(text) == "1"));
}

struct ModelBlock {
    int64_t cpu;
    std::string text;
};

// A block opens at each line whose "processor" field reads as a decimal number and runs up to the
// next such line.
std::vector<ModelBlock> modelBlocks(const std::string& text) {
    std::vector<ModelBlock> blocks;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::optional<std::string> field =
            modelProcField(text.substr(begin, end - begin), "processor");
        const std::optional<int64_t> cpu = field ? modelSysfsDecimal(*field) : std::nullopt;
        if (cpu) {
            if (!blocks.empty()) {
                const size_t opened = text.size() - blocks.back().text.size();
                blocks.back().text = text.substr(opened, begin - opened);
            }
            blocks.push_back({*cpu, text.substr(begin)});
        }
        begin = end + 1;
    }
    return blocks;
}

const ModelBlock* modelBlockOf(const std::vector<ModelBlock>& blocks, int cpu) {
    for (const ModelBlock& b : blocks) {
        if (b.cpu == cpu) {
            return &b;
        }
    }
    return nullptr;
}

std::optional<int64_t> modelNumberField(const std::string& text, const char* key) {
    const std::optional<std::string> field = modelProcField(text, key);
    return field ? modelSysfsDecimal(*field) : std::nullopt;
}

// "0x" and at most three significant hex digits: MIDR's implementer and part number.
std::optional<int64_t> modelMidrField(const std::string& text, const char* key) {
    const std::optional<std::string> field = modelProcField(text, key);
    if (!field || field->compare(0, 2, "0x") != 0) {
        return std::nullopt;
    }
    const std::optional<int64_t> value = hexValue(stripped(field->substr(2)));
    return value && *value <= 0xfff ? value : std::nullopt;
}

std::optional<int32_t> modelCores(const std::string& text, const std::vector<int>& allowed) {
    const std::vector<ModelBlock> blocks = modelBlocks(text);
    std::set<std::pair<int64_t, int64_t>> cores;
    for (const int cpu : allowed) {
        const ModelBlock* b = modelBlockOf(blocks, cpu);
        const std::optional<int64_t> package =
            b ? modelNumberField(b->text, "physical id") : std::nullopt;
        const std::optional<int64_t> core = b ? modelNumberField(b->text, "core id") : std::nullopt;
        if (!package || !core) {
            return std::nullopt;
        }
        cores.insert({*package, *core});
    }
    return cores.empty() ? std::nullopt
                         : std::optional<int32_t>(static_cast<int32_t>(cores.size()));
}

std::string partName(int64_t implementer, int64_t part, bool withVendor) {
    const ArmCpuPart* known = findArmCpuPart(static_cast<int>(implementer), static_cast<int>(part));
    if (known == nullptr) {
        char text[64];
        snprintf(text, sizeof text, "ARM 0x%02llx part 0x%03llx",
                 static_cast<unsigned long long>(implementer),
                 static_cast<unsigned long long>(part));
        return text;
    }
    return withVendor ? std::string(known->vendor) + " " + known->core : known->core;
}

// The arm64 name: core types of the allowed CPUs counted in the order they first appear, or the
// text's first implementer and part when no allowed CPU has its own.
std::optional<std::string> modelArmName(const std::string& text, const std::vector<int>& allowed) {
    const std::vector<ModelBlock> blocks = modelBlocks(text);
    std::vector<std::pair<std::pair<int64_t, int64_t>, int>> types;
    for (const int cpu : allowed) {
        const ModelBlock* b = modelBlockOf(blocks, cpu);
        const std::optional<int64_t> implementer =
            b ? modelMidrField(b->text, "CPU implementer") : std::nullopt;
        const std::optional<int64_t> part = b ? modelMidrField(b->text, "CPU part") : std::nullopt;
        if (!implementer || !part) {
            continue;
        }
        auto known = std::find_if(types.begin(), types.end(), [&](const auto& t) {
            return t.first == std::make_pair(*implementer, *part);
        });
        if (known == types.end()) {
            types.push_back({{*implementer, *part}, 1});
        } else {
            ++known->second;
        }
    }
    if (types.empty()) {
        const std::optional<int64_t> implementer = modelMidrField(text, "CPU implementer");
        const std::optional<int64_t> part = modelMidrField(text, "CPU part");
        if (!implementer || !part) {
            return std::nullopt;
        }
        types.push_back({{*implementer, *part}, 1});
    }
    if (types.size() == 1) {
        return partName(types[0].first.first, types[0].first.second, true);
    }
    std::set<std::string> vendors;
    bool allKnown = true;
    for (const auto& t : types) {
        const ArmCpuPart* known =
            findArmCpuPart(static_cast<int>(t.first.first), static_cast<int>(t.first.second));
        allKnown = allKnown && known != nullptr;
        if (known != nullptr) {
            vendors.insert(known->vendor);
        }
    }
    const bool oneVendor = allKnown && vendors.size() == 1;
    std::string name = oneVendor ? *vendors.begin() + " " : "";
    for (size_t i = 0; i < types.size(); ++i) {
        name += (i > 0 ? " + " : "") + std::to_string(types[i].second) + "x " +
                partName(types[i].first.first, types[i].first.second, !oneVendor);
    }
    return name;
}

void checkCpuinfo(const std::string& text, const std::vector<int>& allowed) {
    int32_t cores = -7;
    const std::optional<int32_t> expectedCores = modelCores(text, allowed);
    FUZZ_CHECK(countCoresInCpuinfo(text, allowed, &cores) == expectedCores.has_value());
    FUZZ_CHECK(expectedCores ? cores == *expectedCores : cores == -7);

    std::string name = "unchanged";
    const std::optional<std::string> expectedName = modelArmName(text, allowed);
    FUZZ_CHECK(describeArmCpu(text, allowed, &name) == expectedName.has_value());
    FUZZ_CHECK(name == expectedName.value_or("unchanged"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    // As a whole /proc file: the fields the OS query and the topology fallbacks read.
    for (const char* key : {"model name", "cpu MHz", "MemTotal", "processor", "physical id",
                            "core id", "CPU implementer", "CPU part", ""}) {
        std::string_view value;
        const bool found = findProcField(text, key, &value);
        const std::optional<std::string> expected = modelProcField(text, key);
        FUZZ_CHECK(found == expected.has_value());
        if (found) {
            FUZZ_CHECK(value == *expected);
            // The value is a view into the text, not a copy that could dangle.
            FUZZ_CHECK(value.empty() || (value.data() >= text.data() &&
                                         value.data() + value.size() <= text.data() + text.size()));
            checkValue(value);
        }
    }

    // As one sysfs file, and each line as one.
    checkValue(text);
    size_t begin = 0;
    while (begin < text.size()) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        checkValue(std::string_view(text).substr(begin, end - begin + 1));
        begin = end + 1;
    }

    // As a whole /proc/cpuinfo: its processor blocks, and the core count and arm64 name for the
    // CPUs the first byte allows (bit i: CPU i), then for every CPU the text has a block for.
    const std::vector<ProcessorBlock> blocks = processorBlocks(text);
    const std::vector<ModelBlock> expectedBlocks = modelBlocks(text);
    FUZZ_CHECK(blocks.size() == expectedBlocks.size());
    std::set<int> listed;
    for (size_t i = 0; i < blocks.size(); ++i) {
        FUZZ_CHECK(blocks[i].cpu == expectedBlocks[i].cpu &&
                   blocks[i].text == expectedBlocks[i].text);
        if (blocks[i].cpu >= 0 && blocks[i].cpu < 4096) {
            listed.insert(static_cast<int>(blocks[i].cpu));
        }
    }
    std::vector<int> allowed;
    for (int cpu = 0; cpu < 8 && size > 0; ++cpu) {
        if (data[0] & (1u << cpu)) {
            allowed.push_back(cpu);
        }
    }
    checkCpuinfo(text, allowed);
    checkCpuinfo(text, std::vector<int>(listed.begin(), listed.end()));

    // As (package, core) pairs: distinct pairs are the physical cores.
    std::vector<std::pair<int64_t, int64_t>> pairs;
    std::set<std::pair<int64_t, int64_t>> distinct;
    for (size_t i = 0; i + 1 < size && i < 2048; i += 2) {
        pairs.emplace_back(static_cast<int8_t>(data[i]), data[i + 1] % 8);
        distinct.insert(pairs.back());
    }
    FUZZ_CHECK(countDistinctCores(pairs) == static_cast<int>(distinct.size()));
    return 0;
}
