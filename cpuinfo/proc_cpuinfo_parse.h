#pragma once

// Per-CPU readings of /proc/cpuinfo, which lists one block of "key : value" lines per logical CPU,
// each opened by "processor : <number>". Pure functions of the text; they never touch errno.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ProcessorBlock {
    int64_t cpu;
    std::string_view text;  // the block's lines, its "processor" line included
};

// The blocks in the order of the text; lines before the first "processor" line belong to none.
std::vector<ProcessorBlock> processorBlocks(std::string_view cpuinfo);

// Physical cores among the allowed CPUs: their distinct ("physical id", "core id") pairs. False
// when an allowed CPU has no block or its block lacks either line (arm64 has neither).
bool countCoresInCpuinfo(std::string_view cpuinfo, const std::vector<int>& allowedCpus,
                         int32_t* cores);

// arm64 names no processor in /proc/cpuinfo; it gives each CPU's "CPU implementer" and "CPU part".
// The allowed CPUs' core types are named from the table of known parts, an unknown one as
// "ARM 0x41 part 0xd99". One core type gives e.g. "ARM Neoverse-N1"; several give their counts in
// the order they first appear, e.g. "ARM 3x Cortex-A510 + 1x Cortex-X3" (the vendor once when
// every type is a known part of the same vendor). Old kernels print the two lines once for all
// CPUs; then the first ones in the text stand for every allowed CPU. False when there are none.
bool describeArmCpu(std::string_view cpuinfo, const std::vector<int>& allowedCpus,
                    std::string* description);
