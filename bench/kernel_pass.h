#pragma once

// One kernel pass: the eleven sub-tests in their fixed order, each followed by its progress line
// on the passes that report.

#include <array>
#include <cstdint>

#include "kernels.h"

enum class SubTest : uint8_t {
    trigSingle,
    sqrtSingle,
    trigDouble,
    sqrtDouble,
    memory,
    integer64,
    integer32,
    recurrenceSingle,
    recurrenceDouble,
    primes,
    sqrtFill,
};

constexpr int32_t kSubTestCount = 11;

// The fixed order with the memory sub-test after the row that index % 4 picks: after the double
// square roots, the 64-bit, the 32-bit or the single-precision recurrence. Neighbouring workers
// thus move their memory traffic to different moments of the pass.
std::array<SubTest, kSubTestCount> subTestOrder(int32_t index);

// Pass 1, the last pass and the passes at one and two thirds (truncated) report.
bool isReportedPass(int32_t passNumber, int32_t passTotal);

// Runs every sub-test once. With verbose set, worker 0 prints one line per sub-test on the
// reported passes: the milliseconds since the previous line (or the start of the pass) and the
// checksum.
void kernelPass(const PassContext& worker, const int32_t& passNumber, const int32_t& passTotal);
