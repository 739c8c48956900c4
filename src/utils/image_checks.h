// SPDX-License-Identifier: MIT
// Tests of a record that look alike and differ on purpose: each operation keeps its own.
#pragma once

#include "tavi_image.h"

namespace tavi {

inline bool has_dma_fd(const tavi_image_t& i) { return i.fd > 0; }

/// Something that the engine could be given; an fd of -1 counts here, on purpose.
inline bool names_device_memory(const tavi_image_t& i) { return i.fd != 0 || i.data_phy; }

inline bool has_data_or_fd(const tavi_image_t& i) { return i.data || has_dma_fd(i); }

inline bool has_any_memory(const tavi_image_t& i) { return has_data_or_fd(i) || i.data_phy; }

/// The upper bounds are compared as unsigned, so a negative right or bottom lies outside. An empty rectangle (right
/// before left) passes.
inline bool lies_inside(const tavi_rect_t& r, const tavi_image_t& i) {
    return r.left >= 0 && r.top >= 0 && static_cast<uint32_t>(r.right) < i.width &&
           static_cast<uint32_t>(r.bottom) < i.height;
}

} // namespace tavi
