#pragma once

// atoi without its undefined behaviour on out-of-range text.

#include <cstdint>
#include <cstdlib>

#include "wrap_int32.h"

// The integer at the start of text, as atoi reads it (0 when there is none): strtoll's value,
// saturated at 64 bits, reduced to its low 32 bits, which is what atoi gives on the systems we
// build for.
inline int32_t leadingInt(const char* text) {
    return low32(strtoll(text, nullptr, 10));
}
