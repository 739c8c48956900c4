// SPDX-License-Identifier: MIT
// Integer geometry that means the same on every machine: conversions that saturate, additions that wrap.
#pragma once

#include <cstdint>

namespace tavi {

/// Truncates toward zero, saturates at the ends of the int range, and turns not-a-number into 0. The bare cast is
/// undefined out of range and differs between machines.
inline int32_t to_int(double value) {
    if (value >= 2147483647.0)
        return INT32_MAX;
    if (value <= -2147483648.0)
        return INT32_MIN;
    return value == value ? static_cast<int32_t>(value) : 0;
}

inline int32_t wrapping_add(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

inline int32_t wrapping_sub(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

inline int32_t wrapping_mul(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

/// The number of pixels from `first` to `last`, both inclusive.
inline int32_t inclusive_span(int32_t first, int32_t last) { return wrapping_add(wrapping_sub(last, first), 1); }

} // namespace tavi
