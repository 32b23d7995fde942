// Times the sub-tests of a kernel pass as worker 0 of the benchmark runs them, in its order and
// with its buffers, and prints per sub-test the median time of one over the passes
// (scripts/bench-windows compares the Linux and the Windows build with it).
//   kernel-times [PASSES]     PASSES from 1 to 1000, default 10
// One line per sub-test, named as the verbose lines name it: "Ft 41.235" (milliseconds), in the
// order of the pass. The checksums are summed into the last line ("checksum N") so that no
// sub-test's work can be left out.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "kernel_pass.h"
#include "ps_test_single.h"

namespace {

const char* nameOf(SubTest test) {
    switch (test) {
        case SubTest::trigSingle:
            return "Ft";
        case SubTest::sqrtSingle:
            return "Fs";
        case SubTest::trigDouble:
            return "Dt";
        case SubTest::sqrtDouble:
            return "Ds";
        case SubTest::memory:
            return "M";
        case SubTest::integer64:
            return "A64";
        case SubTest::integer32:
            return "A32";
        case SubTest::recurrenceSingle:
            return "AF";
        case SubTest::recurrenceDouble:
            return "AD";
        case SubTest::primes:
            return "P";
        case SubTest::sqrtFill:
            return "S";
    }
    return "?";
}

// The checksum of one sub-test; the fill's float is truncated, as only its being used matters.
int64_t runSubTest(SubTest test, const PassContext& worker) {
    switch (test) {
        case SubTest::trigSingle:
            return trigLoopSingle();
        case SubTest::sqrtSingle:
            return sqrtLoopSingle();
        case SubTest::trigDouble:
            return trigLoopDouble();
        case SubTest::sqrtDouble:
            return sqrtLoopDouble();
        case SubTest::memory:
            return memoryShuffle(worker);
        case SubTest::integer64:
            return integerLoop64();
        case SubTest::integer32:
            return integerLoop32();
        case SubTest::recurrenceSingle:
            return recurrenceSingle();
        case SubTest::recurrenceDouble:
            return recurrenceDouble();
        case SubTest::primes:
            return primeCount();
        case SubTest::sqrtFill:
            return static_cast<int64_t>(sqrtFill());
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int passes = 10;
    char extra = 0;
    if (argc > 2 || (argc == 2 && (sscanf(argv[1], "%d%c", &passes, &extra) != 1 || passes < 1 ||
                                   passes > 1000))) {
        fprintf(stderr, "usage: kernel-times [PASSES]  (1 to 1000, default 10)\n");
        return 2;
    }
    std::vector<char> a(kDefaultBufferSize);
    std::vector<char> b(kDefaultBufferSize);
    const PassContext worker{0,        false,   kDefaultMemoryRepeats, kDefaultBufferSize,
                             a.data(), b.data()};
    const std::array<SubTest, kSubTestCount> order = subTestOrder(0);
    std::vector<std::vector<double>> ms(kSubTestCount);
    int64_t checksum = 0;
    for (int pass = 0; pass < passes; ++pass) {
        for (int32_t i = 0; i < kSubTestCount; ++i) {
            const auto start = std::chrono::steady_clock::now();
            checksum += runSubTest(order[i], worker);
            const std::chrono::duration<double, std::milli> took =
                std::chrono::steady_clock::now() - start;
            ms[i].push_back(took.count());
        }
    }
    for (int32_t i = 0; i < kSubTestCount; ++i) {
        std::vector<double>& times = ms[i];
        std::sort(times.begin(), times.end());
        const size_t half = times.size() / 2;
        const double median =
            times.size() % 2 == 1 ? times[half] : (times[half - 1] + times[half]) / 2.0;
        printf("%s %.3f\n", nameOf(order[i]), median);
    }
    printf("checksum %lld\n", static_cast<long long>(checksum));
    return 0;
}
