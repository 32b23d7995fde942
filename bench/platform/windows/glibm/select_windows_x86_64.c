// SPDX-License-Identifier: LGPL-2.1-or-later
// The functions glibm.dll exports, each a jump through a table that DllMain fills once, when the
// DLL is loaded, with the builds of glibc's sources that glibc's libm itself would run on this
// processor. On x86-64 glibc picks them once per process (by ifunc): the FMA builds (compiled
// with -mfma -mavx2) when FMA and AVX2 are usable, else for sin, cos, sincos and atan the FMA4
// builds (-mfma4) when FMA4 is, else the plain SSE2 builds. "Usable" means the processor has the
// feature and the system saves the AVX registers (OSXSAVE, and XCR0 holds the SSE and AVX
// state), which FMA, AVX2 and FMA4 all need. glibc also has AVX builds of sin, cos and atan: the
// SSE2 code in VEX encoding, with the same results; they are left out. atanf has one build on
// x86-64.

#include <cpuid.h>
#include <stdbool.h>
#include <windows.h>

// The builds of the library, named by the compile definitions of CMakeLists.txt.
float glibm_cosf_sse2(float);
float glibm_cosf_fma(float);
void glibm_sincosf_sse2(float, float*, float*);
void glibm_sincosf_fma(float, float*, float*);
float glibm_atanf(float);
double glibm_cos_sse2(double);
double glibm_cos_fma(double);
double glibm_cos_fma4(double);
void glibm_sincos_sse2(double, double*, double*);
void glibm_sincos_fma(double, double*, double*);
void glibm_sincos_fma4(double, double*, double*);
double glibm_atan_sse2(double);
double glibm_atan_fma(double);
double glibm_atan_fma4(double);

static struct {
    float (*cosf)(float);
    void (*sincosf)(float, float*, float*);
    double (*cos)(double);
    void (*sincos)(double, double*, double*);
    double (*atan)(double);
} chosen = {glibm_cosf_sse2, glibm_sincosf_sse2, glibm_cos_sse2, glibm_sincos_sse2,
            glibm_atan_sse2};

enum {
    kFeatureFma = 1u << 12,      // CPUID 1, ECX
    kFeatureOsxsave = 1u << 27,  // CPUID 1, ECX
    kFeatureAvx = 1u << 28,      // CPUID 1, ECX
    kFeatureAvx2 = 1u << 5,      // CPUID 7, EBX
    kFeatureFma4 = 1u << 16,     // CPUID 0x80000001, ECX
    kXcr0SseAndAvx = 0x6u,       // XCR0: XMM and YMM state
};

// Zhaoxin's processors ("CentaurHauls", "  Shanghai  ") of family 6, models 0x0f and 0x19, and
// family 7, models 0x1b and 0x3b, have AVX turned off by glibc, which finds it slow on them.
static bool avxTurnedOffByGlibc(void) {
    unsigned int maxLeaf, vendor1, vendor2, vendor3, signature, unused1, unused2, unused3;
    __cpuid(0, maxLeaf, vendor1, vendor2, vendor3);
    const bool centaur = vendor1 == 0x746e6543 && vendor3 == 0x736c7561 && vendor2 == 0x48727561;
    const bool shanghai = vendor1 == 0x68532020 && vendor3 == 0x20206961 && vendor2 == 0x68676e61;
    if (maxLeaf < 1 || (!centaur && !shanghai)) {
        return false;
    }
    __cpuid(1, signature, unused1, unused2, unused3);
    const unsigned int family = (signature >> 8) & 0x0f;
    const unsigned int model = ((signature >> 4) & 0x0f) + ((signature >> 12) & 0xf0);
    return (family == 6 && (model == 0x0f || model == 0x19)) ||
           (family == 7 && (model == 0x1b || model == 0x3b));
}

static bool avxUsable(unsigned int leaf1Ecx) {
    if ((leaf1Ecx & kFeatureOsxsave) == 0 || (leaf1Ecx & kFeatureAvx) == 0) {
        return false;
    }
    unsigned int xcr0Low, xcr0High;
    __asm__("xgetbv" : "=a"(xcr0Low), "=d"(xcr0High) : "c"(0));
    return (xcr0Low & kXcr0SseAndAvx) == kXcr0SseAndAvx;
}

static void chooseBuilds(void) {
    unsigned int eax, ebx, ecx, edx;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx) || !avxUsable(ecx) || avxTurnedOffByGlibc()) {
        return;
    }
    const bool fma = (ecx & kFeatureFma) != 0;
    const bool avx2 = __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) && (ebx & kFeatureAvx2) != 0;
    const bool fma4 = __get_cpuid(0x80000001, &eax, &ebx, &ecx, &edx) && (ecx & kFeatureFma4) != 0;
    if (fma && avx2) {
        chosen.cosf = glibm_cosf_fma;
        chosen.sincosf = glibm_sincosf_fma;
        chosen.cos = glibm_cos_fma;
        chosen.sincos = glibm_sincos_fma;
        chosen.atan = glibm_atan_fma;
    } else if (fma4) {
        chosen.cos = glibm_cos_fma4;
        chosen.sincos = glibm_sincos_fma4;
        chosen.atan = glibm_atan_fma4;
    }
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    (void)instance;
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH) {
        chooseBuilds();
    }
    return TRUE;
}

__declspec(dllexport) float cosf(float x) {
    return chosen.cosf(x);
}

__declspec(dllexport) void sincosf(float x, float* sine, float* cosine) {
    chosen.sincosf(x, sine, cosine);
}

__declspec(dllexport) float atanf(float x) {
    return glibm_atanf(x);
}

__declspec(dllexport) double cos(double x) {
    return chosen.cos(x);
}

__declspec(dllexport) void sincos(double x, double* sine, double* cosine) {
    chosen.sincos(x, sine, cosine);
}

__declspec(dllexport) double atan(double x) {
    return chosen.atan(x);
}
