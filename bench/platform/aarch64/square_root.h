#pragma once

// The square roots of the kernels are the processor's instructions, never a library call: fsqrt
// on an s or d register for one value, on a four-lane vector register for four. The one-value
// roots are also opaque to the optimiser, which would otherwise fold the root-then-square loops
// away, 113 being a fixed point of them; the "w" constraint keeps the value in its floating-point
// register, as sqrtss and sqrtsd do on x86-64.

#include <arm_neon.h>

#include <cstdint>

inline float squareRoot(float v) {
    float root;
    __asm__("fsqrt %s0, %s1" : "=w"(root) : "w"(v));
    return root;
}

inline double squareRoot(double v) {
    double root;
    __asm__("fsqrt %d0, %d1" : "=w"(root) : "w"(v));
    return root;
}

// values[j] = sqrt(j + 1) / (j + 1) for j < count (a multiple of 4), four lanes at a time with
// the lane values counted up from 1, 2, 3, 4 in single precision. values is 16-byte aligned.
inline void fillRootOverValue(float* values, int32_t count) {
    static const float firstLanes[4] = {1.0f, 2.0f, 3.0f, 4.0f};
    const float32x4_t step = vdupq_n_f32(4.0f);
    float32x4_t v = vld1q_f32(firstLanes);
    for (int32_t j = 0; j < count; j += 4) {
        vst1q_f32(values + j, vdivq_f32(vsqrtq_f32(v), v));
        v = vaddq_f32(v, step);
    }
}
