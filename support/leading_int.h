#pragma once

// atoi without its undefined behaviour on out-of-range text.

#include <cstdint>
#include <cstdlib>

// The integer at the start of text, as atoi reads it (0 when there is none): strtoll's value,
// saturated at 64 bits, reduced to its low 32 bits, which is what atoi gives on the systems we
// build for.
inline int32_t leadingInt(const char* text) {
    const uint32_t low =
        static_cast<uint32_t>(static_cast<unsigned long long>(strtoll(text, nullptr, 10)));
    return low < 0x80000000u ? static_cast<int32_t>(low) : -static_cast<int32_t>(~low) - 1;
}
