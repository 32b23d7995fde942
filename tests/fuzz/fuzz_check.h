#pragma once

// A failed comparison with a target's model aborts, so libFuzzer keeps the input as a crash.

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(c) \
    ((c) ? void()     \
         : (fprintf(stderr, "%s:%d: model disagrees: %s\n", __FILE__, __LINE__, #c), abort()))
