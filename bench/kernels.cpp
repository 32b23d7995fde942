#include "kernels.h"

#include <math.h>

#include <cstdlib>
#include <cstring>

#include "aligned_memory.h"
#include "sine_cosine.h"
#include "square_root.h"
#include "truncate.h"
#include "wrap_int32.h"

// Every sub-test is kept out of line so that each appears under its own name in a profile and in
// the disassembly that tests/bench/check_kernel_code.sh inspects.
#define KERNEL __attribute__((noinline))

namespace {

// The scale of the trigonometric loops, 0.499975, fixed by its bit patterns.
constexpr float kTrigScaleSingle = 0x1.fff972p-2f;
constexpr double kTrigScaleDouble = 0x1.fff972474538fp-2;
static_assert(__builtin_bit_cast(uint32_t, kTrigScaleSingle) == 0x3EFFFCB9u, "trig scale");
static_assert(__builtin_bit_cast(uint64_t, kTrigScaleDouble) == 0x3FDFFF972474538Full,
              "trig scale");

// The even-step corrections of the floating-point recurrences, 1.99002099 and
// 1.9999000022290001.
constexpr float kEvenCorrectionSingle = 0x1.fd7204p+0f;
constexpr double kEvenCorrectionDouble = 0x1.fff97250d808bp+0;
static_assert(__builtin_bit_cast(uint32_t, kEvenCorrectionSingle) == 0x3FFEB902u, "correction");
static_assert(__builtin_bit_cast(uint64_t, kEvenCorrectionDouble) == 0x3FFFFF97250D808Bull,
              "correction");

constexpr int32_t kRecurrenceSteps = 3000000;
constexpr int32_t kFillCount = 16000;

// Makes the optimiser forget what it knows about v without moving it out of its register. The
// integer recurrences need it: (c * 20000) / c would otherwise fold to 20000, and with it every
// division of the loop. Not volatile: its output is used, so it stays, while the optimiser remains
// free to move it with the value, which lets it split the loop on the parity of the step instead
// of selecting values with conditional moves on the loop-carried chain.
template <typename T>
void hideValue(T& v) {
    __asm__("" : "+r"(v));
}

// Tells the optimiser that the memory behind p may be read, so that stores into it are kept.
void keepStores(const void* p) {
    __asm__ volatile("" : : "r"(p) : "memory");
}

// The library functions of each precision: cosf and atanf keep the single-precision loop in
// single precision throughout.
float cosine(float v) {
    return cosf(v);
}
double cosine(double v) {
    return cos(v);
}
float arcTangent(float v) {
    return atanf(v);
}
double arcTangent(double v) {
    return atan(v);
}

// The small constants (0.05, 0.7, 0.4, ...) convert to the same float as their float literals.
template <typename T>
int32_t trigLoop(int32_t iterations, T scale) {
    T x = T(0.5);
    T y = T(0.5);
    for (int32_t i = 0; i < iterations; ++i) {
        T s;
        T c;
        sineCosine(x, s, c);
        T n = (s + s) * c;
        T den = cosine(x - y) + cosine(x + y) + T(-1.0);
        const T xNext = arcTangent(n / den) * scale;
        sineCosine(y, s, c);
        n = (s + s) * c;
        den = cosine(xNext - y) + cosine(y + xNext) + T(-1.0);
        const T yNext = arcTangent(n / den) * scale;
        // The floor keeps the values from decaying to zero.
        if (yNext < T(0.05)) {
            y = T(0.7);
            x = xNext + T(0.4);
        } else {
            y = yNext;
            x = xNext;
        }
    }
    return truncateToInt32(T(10) * y + T(10) * x);
}

template <typename T>
T rootThenSquare(T v) {
    v = squareRoot(v);
    return v * v;
}

// iterations is a multiple of 8: eight steps per loop turn.
template <typename T>
int32_t sqrtLoop(int32_t iterations) {
    T v = T(113.0);
    for (int32_t i = 0; i < iterations; i += 8) {
        v = rootThenSquare(v);
        v = rootThenSquare(v);
        v = rootThenSquare(v);
        v = rootThenSquare(v);
        v = rootThenSquare(v);
        v = rootThenSquare(v);
        v = rootThenSquare(v);
        v = rootThenSquare(v);
    }
    return truncateToInt32(T(10) * v + T(330));
}

// The values cycle (a stays at its start value, b alternates between two values), so no
// product or sum leaves the range of T.
template <typename T>
T integerLoop(T a, T b, T divisor) {
    const T aFactor = a;
    const T bFactor = b;
    T sum = 0;
    for (int32_t i = 1; i <= kRecurrenceSteps; ++i) {
        const bool odd = (i & 1) != 0;
        T s = odd ? a + b - 1 : a + b + 1;
        // Knowing s, the optimiser would fold d to b - 1 or b + 1 and drop the additions.
        hideValue(s);
        const T d = (b + (a + b)) - s;
        const T c = d * d;
        T scaled = c * aFactor;
        hideValue(scaled);
        a = scaled / c;
        b = ((c / (2 * a)) / a) * bFactor;
        if (odd) {
            b -= 2;
        }
        sum += d / divisor + (s - d) / divisor;
    }
    return sum;
}

}  // namespace

KERNEL int32_t trigLoopSingle() {
    return trigLoop(600000, kTrigScaleSingle);
}

KERNEL int32_t sqrtLoopSingle() {
    return sqrtLoop<float>(600000);
}

KERNEL int32_t trigLoopDouble() {
    return trigLoop(450000, kTrigScaleDouble);
}

KERNEL int32_t sqrtLoopDouble() {
    return sqrtLoop<double>(450000);
}

KERNEL int32_t integerLoop64() {
    // The checksum is the low 32 bits of the sum.
    return low32(integerLoop<int64_t>(20000, 30000, 10000));
}

KERNEL int32_t integerLoop32() {
    return integerLoop<int32_t>(200, 300, 100);
}

KERNEL int32_t recurrenceSingle() {
    float a = 200.0f;
    float b = 300.0f;
    float sum = 0.0f;
    for (int32_t i = 1; i <= kRecurrenceSteps; ++i) {
        const bool odd = (i & 1) != 0;
        const float s0 = a + b;
        const float t = b + s0;
        const float s = s0 + (odd ? -1.0f : 1.0f);
        const float d = t - s;
        sum = sum + (d / 100.0f + (t - d - d) / 100.0f);
        a = (d * 200.0f * d) / (d * d);
        // This step alone runs in double precision.
        const double da = a;
        b = static_cast<float>(static_cast<double>(d * d) / (da * 2.25) / da * 300.0) +
            (odd ? -2.0f : kEvenCorrectionSingle);
    }
    return truncateToInt32(sum);
}

KERNEL int32_t recurrenceDouble() {
    double a = 20000.0;
    double b = 30000.0;
    double sum = 0.0;
    for (int32_t i = 1; i <= kRecurrenceSteps; ++i) {
        const bool odd = (i & 1) != 0;
        const double s0 = a + b;
        const double t = b + s0;
        const double s = s0 + (odd ? -1.0 : 1.0);
        const double d = t - s;
        sum = sum + ((t - d - d) / 10000.0 + d / 10000.0);
        a = (d * 20000.0 * d) / (d * d);
        b = (d * d) / (a * 2.25) / a * 30000.0 + (odd ? -2.0 : kEvenCorrectionDouble);
    }
    return truncateToInt32(sum);
}

KERNEL int32_t primeCount() {
    int32_t count = 0;
    for (uint32_t n = 1; n <= 15000; ++n) {
        uint32_t k = 2;
        while (k <= n && n % k != 0) {
            ++k;
        }
        if (k == n) {
            ++count;
        }
    }
    return count;
}

KERNEL int32_t memoryShuffle(const PassContext& worker) {
    const int32_t size = worker.bufferSize;
    const signed char* a = reinterpret_cast<const signed char*>(worker.bufferA);
    const signed char* b = reinterpret_cast<const signed char*>(worker.bufferB);
    if (a == nullptr || b == nullptr || size < 2) {
        return 0;
    }
    // Repeats below 1 run no repeat, so the buffers stay untouched and the result is 0.
    int32_t acc = 0;
    for (int32_t repeat = 1; repeat <= worker.memoryRepeats; ++repeat) {
        memcpy(worker.bufferA, worker.bufferB, size);
        memcpy(worker.bufferB, worker.bufferA, size);
        const int32_t r1 = rand();
        int32_t bytes = a[r1 % size] + a[1] + a[size - 1];
        const int32_t r2 = rand();
        bytes += b[r2 % size] + b[1] + b[size - 1];
        acc += bytes / 100;
        memset(worker.bufferA, 1, size);
        memset(worker.bufferB, 0xD5, size);
    }
    return acc;
}

KERNEL float sqrtFill() {
    // Sixteen-byte alignment for the four-lane stores. The array is never freed.
    float* values = static_cast<float*>(allocateAligned(16, kFillCount * sizeof(float)));
    if (values == nullptr) {
        return 0.0f;
    }
    for (int32_t repeat = 0; repeat < 8000; ++repeat) {
        fillRootOverValue(values, kFillCount);
        keepStores(values);
    }
    float sum = 0.0f;
    for (int32_t j = 0; j < 20; ++j) {
        sum += values[j];
    }
    return sum;
}
