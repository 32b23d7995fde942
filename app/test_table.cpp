#include "test_table.h"

namespace {

// Searched in this order; the first equal name wins.
constexpr TestSpec kTests[] = {
    {"All", true, 1, false, false, false},       {"AllVerbose", true, 1, true, false, false},
    {"Single", false, 1, false, false, true},    {"SingleSpeed", false, 1, false, true, true},
    {"Single10", false, 10, false, false, true}, {"Single10Verbose", false, 10, true, false, true},
    {"Single5", false, 5, false, false, true},   {"Single5Verbose", false, 5, true, false, true},
};

}  // namespace

const TestSpec* findTest(const FixedString<100>& name) {
    if (name.isEmpty()) {
        return &kTests[0];
    }
    for (const TestSpec& test : kTests) {
        if (name.equalsIgnoreCase(test.name)) {
            return &test;
        }
    }
    return nullptr;
}
