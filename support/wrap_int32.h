#pragma once

// Reading 32 bits as a signed number. Several figures this program prints are defined as the low
// 32 bits of a wider or unsigned value read as two's complement (atoi's result, the report's MHz
// lines, Core*Time, the UTC offset); C++17 leaves that conversion to the implementation, so it is
// spelled out once here.

#include <cstdint>

constexpr int32_t wrapToInt32(uint32_t bits) {
    return bits < 0x80000000u ? static_cast<int32_t>(bits) : -static_cast<int32_t>(~bits) - 1;
}

// The low 32 bits of value, read as signed.
constexpr int32_t low32(int64_t value) {
    return wrapToInt32(static_cast<uint32_t>(value));
}
