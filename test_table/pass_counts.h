#pragma once

// How many measured passes a worker makes: the usual count, and the count under the speed flag
// (SingleSpeed). The test table describes its tests by these, and corebench-fleet tells the tests
// of a log apart by them.

#include <cstdint>

constexpr int32_t kDefaultPassCount = 130;
constexpr int32_t kSpeedPassCount = 10;
