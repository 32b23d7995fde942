#include "test_table.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(TestTable, NamesMatchIgnoringCaseAtEqualLengthWithTheirFlags) {
    struct Case {
        const char* argument;
        TestSpec expected;  // speed and single matter only to the single-core run
    };
    const Case cases[] = {
        {"", {"All", true, 1, false, false, false}},
        {"ALL", {"All", true, 1, false, false, false}},
        {"allverbose", {"AllVerbose", true, 1, true, false, false}},
        {"Single", {"Single", false, 1, false, false, true}},
        {"SINGLESPEED", {"SingleSpeed", false, 1, false, true, true}},
        {"Single5", {"Single5", false, 5, false, false, true}},
        {"single5verbose", {"Single5Verbose", false, 5, true, false, true}},
        {"Single10", {"Single10", false, 10, false, false, true}},
        {"Single10Verbose", {"Single10Verbose", false, 10, true, false, true}},
    };
    for (const Case& c : cases) {
        const TestSpec* test = findTest(FixedString<100>(c.argument));
        ASSERT_NE(test, nullptr) << '"' << c.argument << '"';
        EXPECT_EQ(std::string(test->name), c.expected.name);
        EXPECT_EQ(test->allCores, c.expected.allCores) << c.argument;
        EXPECT_EQ(test->runs, c.expected.runs) << c.argument;
        EXPECT_EQ(test->verbose, c.expected.verbose) << c.argument;
        if (!test->allCores) {
            EXPECT_EQ(test->speed, c.expected.speed) << c.argument;
            EXPECT_EQ(test->single, c.expected.single) << c.argument;
        }
    }
    for (const char* name :
         {"Singl", "Single5 ", " All", "Single50", "LoremIpsum", "All\xC3\xA9"}) {
        EXPECT_EQ(findTest(FixedString<100>(name)), nullptr) << '"' << name << '"';
    }
}

}  // namespace
