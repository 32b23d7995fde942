#pragma once

// Turning the measured PS into the process exit code, so that a calling script can read the score
// without parsing text.

#include <cstdint>

// The status of a run that could not start its worker threads (sysexits' EX_OSERR) and of one
// whose output could not be written (EX_IOERR). With exitCodeThreshold a score can give either
// status as well; only a successful run prints "Returning exit code".
constexpr int kRunFailedStatus = 71;
constexpr int kOutputFailedStatus = 74;

// The divider word as atoi reads it (0 for an empty or non-numeric word), without atoi's undefined
// behaviour on out-of-range text.
int32_t dividerFrom(const char* word);

// PS / divider in single precision, truncated toward zero. A quotient that is not finite or does
// not fit in 32 bits (any zero divider) gives -2147483648, which the shell sees as status 0.
int32_t exitValue(float ps, int32_t divider);

// Values of 256 and more are capped at 255; negative values pass unchanged and the OS keeps their
// low 8 bits.
int exitCodeFor(int32_t value);
