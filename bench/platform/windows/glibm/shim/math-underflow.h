// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

// glibc's checks that raise the underflow exception for a tiny argument returned as it is.

#include <float.h>
#include <math-barriers.h>
#include <math.h>

#define glibm_min_of_type(x) _Generic((x), float : FLT_MIN, double : DBL_MIN)
#define glibm_fabs(x) _Generic((x), float : __builtin_fabsf, double : __builtin_fabs)(x)

#define math_check_force_underflow(x)                                                   \
    do {                                                                                \
        __typeof(x) force_underflow_tmp = (x);                                          \
        if (glibm_fabs(force_underflow_tmp) < glibm_min_of_type(force_underflow_tmp)) { \
            __typeof(force_underflow_tmp) force_underflow_tmp2 =                        \
                force_underflow_tmp * force_underflow_tmp;                              \
            math_force_eval(force_underflow_tmp2);                                      \
        }                                                                               \
    } while (0)
#define math_check_force_underflow_nonneg(x)                                \
    do {                                                                    \
        __typeof(x) force_underflow_tmp = (x);                              \
        if (force_underflow_tmp < glibm_min_of_type(force_underflow_tmp)) { \
            __typeof(force_underflow_tmp) force_underflow_tmp2 =            \
                force_underflow_tmp * force_underflow_tmp;                  \
            math_force_eval(force_underflow_tmp2);                          \
        }                                                                   \
    } while (0)
