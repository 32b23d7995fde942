#pragma once

// The lines about the machine printed before any test.

#include <cstdint>

class OsQuery;

// The logical CPU count, or 1 when the system gave none.
int32_t threadCountFrom(int32_t logicalCpus);

// Prints "SpecificOperSys", "NumberOfThreads", "RAM installed" (only when the memory size is
// known) and "OperatingSystem: MAC".
void printSystemSummary(const char* operatingSystem, int32_t threadCount, const OsQuery& os);
