#pragma once

// macOS computes sine and cosine of one argument in a single call that returns both.

#include <math.h>

inline void sineCosine(float v, float& s, float& c) {
    const __float2 r = __sincosf_stret(v);
    s = r.__sinval;
    c = r.__cosval;
}

inline void sineCosine(double v, double& s, double& c) {
    const __double2 r = __sincos_stret(v);
    s = r.__sinval;
    c = r.__cosval;
}
