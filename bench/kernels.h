#pragma once

// The sub-tests of a kernel pass. Each one does a fixed amount of arithmetic, memory or cache work
// from hard-wired start values and returns the checksum its progress line prints; every constant,
// count and precision in them is part of the workload and so of the score.

#include <cstdint>

// The worker fields a pass reads. The buffers belong to the worker; a pass only writes into them.
struct PassContext {
    int32_t index;
    bool verbose;
    int32_t memoryRepeats;
    int32_t bufferSize;
    char* bufferA;
    char* bufferB;
};

int32_t trigLoopSingle();
int32_t sqrtLoopSingle();
int32_t trigLoopDouble();
int32_t sqrtLoopDouble();
int32_t integerLoop64();
int32_t integerLoop32();
int32_t recurrenceSingle();
int32_t recurrenceDouble();
int32_t primeCount();

// Copies and fills both buffers memoryRepeats times; 0 without touching them when a buffer is
// missing, the repeats are below 1 or the buffers are too small to hold the bytes it samples.
int32_t memoryShuffle(const PassContext& worker);

// Allocates a fresh scratch array on every call and keeps it for the life of the process.
float sqrtFill();
