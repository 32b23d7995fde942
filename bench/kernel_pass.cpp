#include "kernel_pass.h"

#include <cstdio>

#include "time_helpers.h"

namespace {

// The lap is read after the sub-test has run and before the line is formatted. Checksum is an
// int32_t, or a double for the one "%5.4f" line.
template <typename Checksum>
void printLine(bool print, Stopwatch& lap, const char* format, Checksum checksum) {
    if (print) {
        const int32_t ms = lap.lapMs();
        printf(format, ms, checksum);
    }
}

}  // namespace

std::array<SubTest, kSubTestCount> subTestOrder(int32_t index) {
    constexpr SubTest fixedOrder[kSubTestCount - 1] = {
        SubTest::trigSingle,       SubTest::sqrtSingle,       SubTest::trigDouble,
        SubTest::sqrtDouble,       SubTest::integer64,        SubTest::integer32,
        SubTest::recurrenceSingle, SubTest::recurrenceDouble, SubTest::primes,
        SubTest::sqrtFill,
    };
    const int32_t memoryAt = 4 + index % 4;
    std::array<SubTest, kSubTestCount> order{};
    int32_t next = 0;
    for (int32_t i = 0; i < kSubTestCount - 1; ++i) {
        if (i == memoryAt) {
            order[next++] = SubTest::memory;
        }
        order[next++] = fixedOrder[i];
    }
    return order;
}

bool isReportedPass(int32_t passNumber, int32_t passTotal) {
    const int32_t third = passTotal / 3;
    return passNumber == 1 || passNumber == passTotal || passNumber == third ||
           passNumber == 2 * third;
}

void kernelPass(const PassContext& worker, const int32_t& passNumber, const int32_t& passTotal) {
    const bool print = worker.verbose && worker.index == 0 && isReportedPass(passNumber, passTotal);
    Stopwatch lap;
    for (const SubTest test : subTestOrder(worker.index)) {
        switch (test) {
            case SubTest::trigSingle:
                printLine(print, lap, "\n      t0:Ft %d  (%d)\n", trigLoopSingle());
                break;
            case SubTest::sqrtSingle:
                printLine(print, lap, "      t0:Fs %d  (%d)\n", sqrtLoopSingle());
                break;
            case SubTest::trigDouble:
                printLine(print, lap, "      t0:Dt %d  (%d)\n", trigLoopDouble());
                break;
            case SubTest::sqrtDouble:
                printLine(print, lap, "      t0:Ds %d  (%d)\n", sqrtLoopDouble());
                break;
            case SubTest::memory:
                printLine(print, lap, "      t0:M %d (%d)\n", memoryShuffle(worker));
                break;
            case SubTest::integer64:
                printLine(print, lap, "      t0:A64 %d  (%d)\n", integerLoop64());
                break;
            case SubTest::integer32:
                printLine(print, lap, "      t0:A32 %d (%d)\n", integerLoop32());
                break;
            case SubTest::recurrenceSingle:
                printLine(print, lap, "      t0:AF %d  (%d)\n", recurrenceSingle());
                break;
            case SubTest::recurrenceDouble:
                printLine(print, lap, "      t0:AD %d  (%d)\n", recurrenceDouble());
                break;
            case SubTest::primes:
                printLine(print, lap, "      t0:P %d  (%d)\n", primeCount());
                break;
            case SubTest::sqrtFill:
                printLine(print, lap, "      t0:S %d  (%5.4f)\n", static_cast<double>(sqrtFill()));
                break;
        }
    }
}
