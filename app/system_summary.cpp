#include "system_summary.h"

#include <cstdio>

#include "os_query.h"

namespace {

// Whole GiB, the remainder dropped.
int32_t wholeGib(int64_t bytes) {
    return static_cast<int32_t>(bytes / 1073741824);
}

}  // namespace

int32_t threadCountFrom(int32_t logicalCpus) {
    return logicalCpus > 0 ? logicalCpus : 1;
}

void printSystemSummary(const char* operatingSystem, int32_t threadCount, const OsQuery& os) {
    printf("SpecificOperSys: %s\n", operatingSystem);
    printf("NumberOfThreads: %d\n", threadCount);
    int64_t memoryBytes = 0;
    if (os.memoryBytes(&memoryBytes) != -1) {
        printf("RAM installed: %d", wholeGib(memoryBytes));
        putchar('\n');
    }
    // Fixed text on every platform: it belongs to the output format callers read, it is not a
    // detection result.
    puts("OperatingSystem: MAC");
}
