#pragma once

// The square roots of the kernels are the processor's instructions, never a library call: sqrtss
// and sqrtsd for one value, sqrtps for four. The one-value roots are also opaque to the
// optimiser, which would otherwise fold the root-then-square loops away, 113 being a fixed point
// of them.

#include <immintrin.h>

#include <cstdint>

inline float squareRoot(float v) {
    float root;
    __asm__("sqrtss %1, %0" : "=x"(root) : "x"(v));
    return root;
}

inline double squareRoot(double v) {
    double root;
    __asm__("sqrtsd %1, %0" : "=x"(root) : "x"(v));
    return root;
}

// values[j] = sqrt(j + 1) / (j + 1) for j < count (a multiple of 4), four lanes at a time with
// the lane values counted up from 1, 2, 3, 4 in single precision. values is 16-byte aligned.
inline void fillRootOverValue(float* values, int32_t count) {
    const __m128 step = _mm_set1_ps(4.0f);
    __m128 v = _mm_setr_ps(1.0f, 2.0f, 3.0f, 4.0f);
    for (int32_t j = 0; j < count; j += 4) {
        _mm_store_ps(values + j, _mm_div_ps(_mm_sqrt_ps(v), v));
        v = _mm_add_ps(v, step);
    }
}
