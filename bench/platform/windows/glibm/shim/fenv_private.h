// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

// SET_RESTORE_ROUND of glibc's x86-64 math: the block runs in the given rounding mode of the SSE
// unit (MXCSR bits 13-14, the x87 mode shifted by 3) and the caller's mode is put back when the
// block is left, MXCSR being written only when the mode had to change. x86-64 computes double in
// SSE registers, so the 53-bit variant is the same.

#include <fenv.h>
#include <math_private.h>
#include <stdbool.h>

#if defined __AVX__ || defined SSE2AVX
#define GLIBM_STMXCSR "vstmxcsr"
#define GLIBM_LDMXCSR "vldmxcsr"
#else
#define GLIBM_STMXCSR "stmxcsr"
#define GLIBM_LDMXCSR "ldmxcsr"
#endif

struct glibm_round_context {
    unsigned int mxcsr;
    bool updated;
};

static __always_inline void glibm_hold_set_round(struct glibm_round_context* ctx, int mode) {
    unsigned int mxcsr;
    unsigned int wanted;
    __asm__(GLIBM_STMXCSR " %0" : "=m"(*&mxcsr));
    wanted = (mxcsr & ~0x6000u) | ((unsigned int)mode << 3);
    ctx->mxcsr = mxcsr;
    ctx->updated = __glibc_unlikely(wanted != mxcsr);
    if (ctx->updated) {
        __asm__ volatile(GLIBM_LDMXCSR " %0" : : "m"(*&wanted));
    }
}

static __always_inline void glibm_reset_round(struct glibm_round_context* ctx) {
    if (__glibc_unlikely(ctx->updated)) {
        unsigned int mxcsr;
        __asm__(GLIBM_STMXCSR " %0" : "=m"(*&mxcsr));
        mxcsr = (mxcsr & ~0x6000u) | (ctx->mxcsr & 0x6000u);
        __asm__ volatile(GLIBM_LDMXCSR " %0" : : "m"(*&mxcsr));
    }
}

#define SET_RESTORE_ROUND(mode)                                                         \
    struct glibm_round_context glibm_round __attribute__((cleanup(glibm_reset_round))); \
    glibm_hold_set_round(&glibm_round, (mode))
#define SET_RESTORE_ROUND_53BIT(mode) SET_RESTORE_ROUND(mode)
