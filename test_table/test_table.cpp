#include "test_table.h"

#include <iterator>

namespace {

// Searched in this order; the first equal name wins.
constexpr TestEntry kTests[] = {
    {"All", true, 1, false, kDefaultPassCount, false},
    {"AllVerbose", true, 1, true, kDefaultPassCount, false},
    {"Single", false, 1, false, kDefaultPassCount, true},
    {"SingleSpeed", false, 1, false, kSpeedPassCount, true},
    {"Single10", false, 10, false, kDefaultPassCount, true},
    {"Single10Verbose", false, 10, true, kDefaultPassCount, true},
    {"Single5", false, 5, false, kDefaultPassCount, true},
    {"Single5Verbose", false, 5, true, kDefaultPassCount, true},
};

}  // namespace

const TestEntry* findTest(const FixedString<100>& name) {
    if (name.isEmpty()) {
        return &kTests[0];
    }
    for (const TestEntry& test : allTests()) {
        if (name.equalsIgnoreCase(test.name)) {
            return &test;
        }
    }
    return nullptr;
}

TestRange allTests() {
    return {std::begin(kTests), std::end(kTests)};
}

float meanOfRuns(const float* ps, int runs) {
    if (runs <= 1) {
        return ps[0];
    }
    // Float addition is not associative: the order and precision are what make the figure
    // reproducible.
    float sum = ps[0] + 0.0f;
    for (int i = 1; i < runs; ++i) {
        sum += ps[i];
    }
    return sum / static_cast<float>(runs);
}
