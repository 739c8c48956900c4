// SPDX-License-Identifier: MIT
// Our pixel formats in the kernel's terms.
#pragma once

#include <cstdint>

#include "tavi_image.h"

namespace tavi {

struct BlitFormat {
    uint32_t fourcc; ///< V4L2 pixel format, all planes in one buffer; 0 = the kernel has none
    uint8_t x_step;  ///< widths and left edges that the engine will not round
    uint8_t y_step;
    bool alpha;
};

/// The row of a format, or null when an engine cannot be told of it.
const BlitFormat* find_blit_format(uint32_t pixel_format);

/// Our format of a V4L2 pixel format, or -1.
int format_of_fourcc(uint32_t fourcc);

} // namespace tavi
