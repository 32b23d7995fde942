#include "exit_code.h"

#include <cmath>
#include <cstdlib>

float exitCodePs(const float* ps, int runs) {
    if (runs <= 1) {
        return ps[0];
    }
    // Float addition is not associative: the order and precision are what make the figure
    // reproducible.
    float sum = ps[0] + 0.0f;
    for (int i = 1; i < runs; ++i) {
        sum += ps[i];
    }
    return sum / static_cast<float>(runs);
}

int32_t dividerFrom(const char* word) {
    // strtol saturates at the range of long and the conversion keeps the low 32 bits, which is
    // what atoi itself does on glibc and macOS.
    return static_cast<int32_t>(strtol(word, nullptr, 10));
}

int32_t exitValue(float ps, int32_t divider) {
    const float quotient = ps / static_cast<float>(divider);
    // Converting an out-of-range float to int is undefined in C++; x86 yields INT32_MIN for it,
    // and callers rely on that value, so it is produced explicitly. 2^31 is exact in float, and
    // no float lies between -2^31 - 1 and -2^31.
    if (!std::isfinite(quotient) || quotient >= 2147483648.0f || quotient < -2147483648.0f) {
        return INT32_MIN;
    }
    return static_cast<int32_t>(quotient);
}

int exitCodeFor(int32_t value) {
    return value < 256 ? value : 255;
}
