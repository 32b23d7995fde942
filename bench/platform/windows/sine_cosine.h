#pragma once

// MinGW-w64's C library computes sine and cosine of one argument in a single call, as glibc does.

#include <math.h>

inline void sineCosine(float v, float& s, float& c) {
    sincosf(v, &s, &c);
}

inline void sineCosine(double v, double& s, double& c) {
    sincos(v, &s, &c);
}
