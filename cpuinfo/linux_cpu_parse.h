#pragma once

// Pure readers of the texts Linux gives in /proc and /sys. Each returns false when the text does
// not hold what was asked for, and never touches errno.

#include <cstdint>
#include <string_view>
#include <vector>

// The value of the first "key : value" line, as /proc/cpuinfo and /proc/meminfo write them: the
// key may be followed by tabs or blanks before the colon; the value starts after the blanks that
// follow the colon and ends before the line feed.
bool findProcField(std::string_view text, std::string_view key, std::string_view* value);

// A sysfs number file such as "3600000\n" or "-1\n" (decimal) or block_size_bytes' "8000000\n"
// (hex without prefix). Values beyond int64 are refused.
bool parseSysfsDecimal(std::string_view text, int64_t* value);
bool parseSysfsHex(std::string_view text, int64_t* value);

// "cpu MHz" of /proc/cpuinfo, e.g. "2596.148", as whole Hz, exact for up to six decimals. A clock
// beyond int64 Hz is refused.
bool parseMhzAsHz(std::string_view text, int64_t* hz);

// MemTotal of /proc/meminfo, e.g. "24684084 kB", in bytes.
bool parseMeminfoBytes(std::string_view text, int64_t* bytes);

// A memory block's "online" file: "1\n" when the block is in use.
bool isOnlineMemoryBlock(std::string_view onlineText);

// A sysfs CPU list such as thread_siblings_list's "0-1\n" or "0,32" or "0-3,8-11": the CPUs in
// ascending order, each once. False on anything else, and for a CPU number of 2^20 or more.
bool parseCpuList(std::string_view text, std::vector<int64_t>* cpus);

// Physical cores among CPUs, each CPU given by what names its core: the CPUs of its
// thread_siblings_list, or where a tree lacks those its (physical_package_id, core_id). The CPUs
// of one core give the same key and count once.
int countDistinctCores(std::vector<std::vector<int64_t>> coreKeys);
