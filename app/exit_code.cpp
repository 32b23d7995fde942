#include "exit_code.h"

#include "leading_int.h"
#include "truncate.h"

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
    return leadingInt(word);
}

int32_t exitValue(float ps, int32_t divider) {
    const float quotient = ps / static_cast<float>(divider);
    // A zero divider gives infinity (or NaN for a zero PS), which reads as -2147483648: the
    // status a shell then sees is 0.
    return truncateToInt32(quotient);
}

int exitCodeFor(int32_t value) {
    return value < 256 ? value : 255;
}
