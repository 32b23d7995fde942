#pragma once

// The whole run of corebench, from the system summary to the exit code.

#include <cstdint>

// elapsedMs * threadCount as the 32-bit figure printed as "Core*Time": it wraps past 2^31 rather
// than overflowing.
int32_t coreTimeProduct(int32_t elapsedMs, int32_t threadCount);

// Runs the test the arguments ask for and returns the process exit code.
int runCorebench(int argc, char** argv);
