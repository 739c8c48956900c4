// SPDX-License-Identifier: MIT
// Our pixel formats in the kernel's terms.
#pragma once

#include <cstdint>

#include "image/format.h"

namespace tavi {

/// The V4L2 pixel format with all planes in one buffer, or with luma and chroma in a buffer each; 0 = the kernel has
/// none that we use.
uint32_t fourcc_of(uint32_t pixel_format, bool apart = false);

/// Our format of a V4L2 pixel format, or -1.
int format_of_fourcc(uint32_t fourcc, bool apart = false);

/// Some of our formats.
class FormatSet {
public:
    void add(uint32_t format) { mask_ |= 1u << format; }
    bool has(uint32_t format) const { return format < kFormats.size() && (mask_ >> format & 1); }
    bool empty() const { return mask_ == 0; }
    uint32_t mask() const { return mask_; } ///< one bit a format, for messages

private:
    uint32_t mask_ = 0;
    static_assert(kFormats.size() <= 32);
};

} // namespace tavi
