// SPDX-License-Identifier: MIT
// The plain loops of tensors: the oracle of every build.
#pragma once

#include <cstdint>

namespace tavi {
namespace { // whoever includes this compiles its own

inline void split3_loop(const uint8_t* pixels, uint8_t* const rows[3], int n) {
    uint8_t *const a = rows[0], *const b = rows[1], *const c = rows[2];
    for (int i = 0; i < n; ++i) {
        a[i] = pixels[3 * i];
        b[i] = pixels[3 * i + 1];
        c[i] = pixels[3 * i + 2];
    }
}

inline void to_float_loop(const uint8_t* bytes, float* out, int n, float mean, float scale) {
    for (int i = 0; i < n; ++i)
        out[i] = (static_cast<float>(bytes[i]) - mean) * scale;
}

} // namespace
} // namespace tavi
