#include <gtest/gtest.h>
#include <math.h>

#include <cstdint>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>

#include "glibc_results.h"
#include "kernels.h"
#include "truncate.h"

namespace {

std::string hexText(uint64_t v) {
    std::ostringstream out;
    out << "0x" << std::hex << std::setw(16) << std::setfill('0') << v;
    return out.str();
}

// FNV-1a over the bytes of every result of one function, in the order of the calls.
class ResultHash {
  public:
    template <typename T>
    T add(T v) {
        unsigned char bytes[sizeof(T)];
        memcpy(bytes, &v, sizeof(T));
        for (const unsigned char byte : bytes) {
            hash_ = (hash_ ^ byte) * 0x100000001b3ull;
        }
        return v;
    }
    uint64_t value() const { return hash_; }

  private:
    uint64_t hash_ = 0xcbf29ce484222325ull;
};

struct TrigHashes {
    ResultHash sineCosine, cosine, arcTangent;
};

// The calls of kernels.cpp, whose sine_cosine.h calls sincosf and sincos on Linux and Windows.
void sineCosine(float v, float& s, float& c, TrigHashes& h) {
    sincosf(v, &s, &c);
    h.sineCosine.add(s);
    h.sineCosine.add(c);
}
void sineCosine(double v, double& s, double& c, TrigHashes& h) {
    sincos(v, &s, &c);
    h.sineCosine.add(s);
    h.sineCosine.add(c);
}
float cosine(float v, TrigHashes& h) {
    return h.cosine.add(cosf(v));
}
double cosine(double v, TrigHashes& h) {
    return h.cosine.add(cos(v));
}
float arcTangent(float v, TrigHashes& h) {
    return h.arcTangent.add(atanf(v));
}
double arcTangent(double v, TrigHashes& h) {
    return h.arcTangent.add(atan(v));
}

// kernels.cpp's trigLoop with every result hashed: the same arguments in the same order, each
// depending on the results before it. Its checksum is held to the kernel's below.
template <typename T>
int32_t hashedTrigLoop(int32_t iterations, T scale, TrigHashes& h) {
    T x = T(0.5);
    T y = T(0.5);
    for (int32_t i = 0; i < iterations; ++i) {
        T s;
        T c;
        sineCosine(x, s, c, h);
        T n = (s + s) * c;
        T den = cosine(x - y, h) + cosine(x + y, h) + T(-1.0);
        const T xNext = arcTangent(n / den, h) * scale;
        sineCosine(y, s, c, h);
        n = (s + s) * c;
        den = cosine(xNext - y, h) + cosine(y + xNext, h) + T(-1.0);
        const T yNext = arcTangent(n / den, h) * scale;
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

// The verbose checksums of the trigonometric sub-tests stay the same for libraries whose results
// differ in the last bit of a few percent of the calls (MinGW-w64's and glibc's): every result of
// the 8.4 million calls of one pass of each precision is hashed instead.
TEST(KernelMath, ResultsAreThoseOfLinuxGlibc) {
    const GlibcBuild build = glibcBuildOfThisProcessor();
    if (build.hashes == nullptr) {
        GTEST_SKIP() << "no results of glibc's " << build.name << " build are recorded";
    }
    TrigHashes single;
    TrigHashes twice;
    EXPECT_EQ(hashedTrigLoop(600000, 0x1.fff972p-2f, single), trigLoopSingle());
    EXPECT_EQ(hashedTrigLoop(450000, 0x1.fff972474538fp-2, twice), trigLoopDouble());
    const TrigResultHashes& expected = *build.hashes;
    const struct {
        const char* function;
        const ResultHash& hash;
        uint64_t expected;
    } rows[] = {
        {"sincosf", single.sineCosine, expected.sincosf},
        {"cosf", single.cosine, expected.cosf},
        {"atanf", single.arcTangent, expected.atanf},
        {"sincos", twice.sineCosine, expected.sincos},
        {"cos", twice.cosine, expected.cos},
        {"atan", twice.arcTangent, expected.atan},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(hexText(row.hash.value()), hexText(row.expected))
            << row.function << " differs from glibc 2.36's " << build.name << " build";
    }
}

}  // namespace
