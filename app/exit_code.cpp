#include "exit_code.h"

#include "leading_int.h"
#include "truncate.h"

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
