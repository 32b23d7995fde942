// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

// What glibc's math sources take from its internal math_private.h, sys/cdefs.h and math.h, for a
// build outside glibc: symbol visibility (a DLL exports only what is marked for export, so nothing
// needs hiding), branch hints, errno, the word access of a float, and the classification macros as
// the compiler's builtins, which glibc's math.h gives where MinGW-w64's calls functions.

#include <errno.h>
#include <math-barriers.h>
#include <math.h>
#include <stdint.h>

#undef isinf
#undef isnan
#define isinf(x) __builtin_isinf_sign(x)
#define isnan(x) __builtin_isnan(x)

#define attribute_hidden
#ifndef __always_inline
#define __always_inline __inline __attribute__((__always_inline__))
#endif
#define __glibc_likely(cond) __builtin_expect((cond), 1)
#define __glibc_unlikely(cond) __builtin_expect((cond), 0)
#define __set_errno(value) (errno = (value))

#define GET_FLOAT_WORD(i, d)   \
    do {                       \
        union {                \
            float f;           \
            uint32_t w;        \
        } gf_u = {.f = (d)};   \
        (i) = (int32_t)gf_u.w; \
    } while (0)
