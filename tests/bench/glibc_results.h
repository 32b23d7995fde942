#pragma once

// The results of glibc 2.36's sincosf, cosf, atanf, sincos, cos and atan over the arguments of the
// trigonometric sub-tests, as kernel_math_test.cpp hashes them, recorded on Linux from Debian 12's
// libm. glibc has more than one build of some of them on a processor and picks one at startup,
// so what Linux computes, and what the Windows build must compute, depends on the processor.

#include <cstdint>

struct TrigResultHashes {
    uint64_t sincosf, cosf, atanf, sincos, cos, atan;
};

struct GlibcBuild {
    const char* name;
    // Null where no results of that build were recorded.
    const TrigResultHashes* hashes;
};

// The build of glibc's libm that Linux runs on this processor.
GlibcBuild glibcBuildOfThisProcessor();
