#include "proc_cpuinfo_parse.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "arm_cpu_parts.h"
#include "linux_cpu_parse.h"

namespace {

const ProcessorBlock* blockOf(const std::vector<ProcessorBlock>& blocks, int cpu) {
    for (const ProcessorBlock& block : blocks) {
        if (block.cpu == cpu) {
            return &block;
        }
    }
    return nullptr;
}

bool numberField(std::string_view text, std::string_view key, int64_t* value) {
    std::string_view field;
    return findProcField(text, key, &field) && parseSysfsDecimal(field, value);
}

// The kernel writes both fields as "0x" and hex digits.
bool hexField(std::string_view text, std::string_view key, int64_t* value) {
    std::string_view field;
    if (!findProcField(text, key, &field) || field.substr(0, 2) != "0x") {
        return false;
    }
    field.remove_prefix(2);
    // MIDR's implementer has 8 bits and its part number 12; anything wider is not one of them.
    return parseSysfsHex(field, value) && *value <= 0xfff;
}

struct CoreType {
    int64_t implementer;
    int64_t part;
    int count;
};

bool readCoreType(std::string_view text, CoreType* type) {
    type->count = 1;
    return hexField(text, "CPU implementer", &type->implementer) &&
           hexField(text, "CPU part", &type->part);
}

void addCoreType(std::vector<CoreType>& types, const CoreType& type) {
    for (CoreType& known : types) {
        if (known.implementer == type.implementer && known.part == type.part) {
            ++known.count;
            return;
        }
    }
    types.push_back(type);
}

std::string coreTypeName(const CoreType& type, bool withVendor) {
    const ArmCpuPart* part =
        findArmCpuPart(static_cast<int>(type.implementer), static_cast<int>(type.part));
    if (part == nullptr) {
        char text[40];
        snprintf(text, sizeof text, "ARM 0x%02x part 0x%03x",
                 static_cast<unsigned>(type.implementer), static_cast<unsigned>(type.part));
        return text;
    }
    return withVendor ? std::string(part->vendor) + " " + part->core : part->core;
}

}  // namespace

std::vector<ProcessorBlock> processorBlocks(std::string_view cpuinfo) {
    std::vector<ProcessorBlock> blocks;
    size_t at = 0;
    while (at < cpuinfo.size()) {
        const size_t end = std::min(cpuinfo.find('\n', at), cpuinfo.size());
        const std::string_view line = cpuinfo.substr(at, end - at);
        int64_t cpu = 0;
        if (numberField(line, "processor", &cpu)) {
            if (!blocks.empty()) {
                ProcessorBlock& last = blocks.back();
                last.text =
                    last.text.substr(0, static_cast<size_t>(line.data() - last.text.data()));
            }
            blocks.push_back({cpu, cpuinfo.substr(at)});
        }
        at = end + 1;
    }
    return blocks;
}

bool countCoresInCpuinfo(std::string_view cpuinfo, const std::vector<int>& allowedCpus,
                         int32_t* cores) {
    const std::vector<ProcessorBlock> blocks = processorBlocks(cpuinfo);
    std::vector<std::vector<int64_t>> pairs;
    for (const int cpu : allowedCpus) {
        const ProcessorBlock* block = blockOf(blocks, cpu);
        int64_t package = 0;
        int64_t core = 0;
        if (block == nullptr || !numberField(block->text, "physical id", &package) ||
            !numberField(block->text, "core id", &core)) {
            return false;
        }
        pairs.push_back({package, core});
    }
    if (pairs.empty()) {
        return false;
    }
    *cores = countDistinctCores(std::move(pairs));
    return true;
}

bool describeArmCpu(std::string_view cpuinfo, const std::vector<int>& allowedCpus,
                    std::string* description) {
    const std::vector<ProcessorBlock> blocks = processorBlocks(cpuinfo);
    std::vector<CoreType> types;
    CoreType type{};
    for (const int cpu : allowedCpus) {
        const ProcessorBlock* block = blockOf(blocks, cpu);
        if (block != nullptr && readCoreType(block->text, &type)) {
            addCoreType(types, type);
        }
    }
    if (types.empty()) {
        if (!readCoreType(cpuinfo, &type)) {
            return false;
        }
        types.push_back(type);
    }
    if (types.size() == 1) {
        *description = coreTypeName(types.front(), true);
        return true;
    }
    // The vendor is written once when every core type is a known part of the same vendor.
    const ArmCpuPart* first = findArmCpuPart(static_cast<int>(types.front().implementer),
                                             static_cast<int>(types.front().part));
    bool oneVendor = first != nullptr;
    for (const CoreType& t : types) {
        const ArmCpuPart* part =
            findArmCpuPart(static_cast<int>(t.implementer), static_cast<int>(t.part));
        oneVendor = oneVendor && part != nullptr && std::string_view(part->vendor) == first->vendor;
    }
    description->clear();
    if (oneVendor) {
        description->append(first->vendor).append(" ");
    }
    for (size_t i = 0; i < types.size(); ++i) {
        if (i > 0) {
            description->append(" + ");
        }
        description->append(std::to_string(types[i].count))
            .append("x ")
            .append(coreTypeName(types[i], !oneVendor));
    }
    return true;
}
