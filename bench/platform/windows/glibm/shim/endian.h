// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

// The word order of a double for glibc's dbl-64 sources: x86-64 is little-endian, so the high
// word of the two 32-bit halves is the second.
#define LITTLE_ENDI 1
#define HIGH_HALF 1
#define LOW_HALF 0
