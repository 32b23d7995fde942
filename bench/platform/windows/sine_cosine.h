#pragma once

// glibc computes sine and cosine of one argument in a single call, and so does glibm.dll, which
// brings glibc's own code of it to Windows.

#include <math.h>

inline void sineCosine(float v, float& s, float& c) {
    sincosf(v, &s, &c);
}

inline void sineCosine(double v, double& s, double& c) {
    sincos(v, &s, &c);
}
