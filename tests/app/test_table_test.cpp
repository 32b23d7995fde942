#include "test_table.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// How the driver runs a test; speed and scaleOneWorker matter only to the single-core run.
std::string describe(const TestSpec* test) {
    if (test == nullptr) {
        return "none";
    }
    return std::string(test->name) + " x" + std::to_string(test->runs) +
           (test->allCores ? " all" : (test->scaleOneWorker ? " single" : " per-cpu")) +
           (!test->allCores && test->speed ? " speed" : "") + (test->verbose ? " verbose" : "");
}

TEST(TestTable, NamesMatchIgnoringCaseAtEqualLength) {
    const struct {
        const char* argument;
        const char* test;
    } cases[] = {
        {"", "All x1 all"},
        {"ALL", "All x1 all"},
        {"allverbose", "AllVerbose x1 all verbose"},
        {"Single", "Single x1 single"},
        {"SINGLESPEED", "SingleSpeed x1 single speed"},
        {"Single5", "Single5 x5 single"},
        {"single5verbose", "Single5Verbose x5 single verbose"},
        {"Single10", "Single10 x10 single"},
        {"Single10Verbose", "Single10Verbose x10 single verbose"},
        {"Single50", "none"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(describe(findTest(FixedString<100>(c.argument))), c.test) << c.argument;
    }
}

}  // namespace
