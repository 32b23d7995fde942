#pragma once

// C++ leaves the conversion of a floating value that is not finite or does not fit the integer
// undefined. x86-64's truncating conversion yields the lowest integer for it, and the figures this
// program reports (checksums, clock estimates, the exit code) are defined by that result, so it is
// produced explicitly here. A float argument widens to double exactly.

#include <cstdint>

inline int32_t truncateToInt32(double v) {
    if (v > -2147483649.0 && v < 2147483648.0) {
        return static_cast<int32_t>(v);
    }
    return INT32_MIN;
}

inline int64_t truncateToInt64(double v) {
    if (v >= -9223372036854775808.0 && v < 9223372036854775808.0) {
        return static_cast<int64_t>(v);
    }
    return INT64_MIN;
}
