// SPDX-License-Identifier: MIT
// Frames for the engine: what images cannot say, in the kernel's terms.
#pragma once

#include <cstdint>

#include "image/refusal.h"
#include "image/view.h"

namespace tavi {

/// A frame whose fields were checked, and a part of it.
struct FramePart {
    struct Plane {
        uint8_t* data; ///< null: reached through `fd`
        int32_t fd;
        uint32_t offset, pitch;
    };
    const char* name; ///< as messages have it, e.g. "src"
    tavi_pixel_format format;
    uint32_t width, height;
    ColorSpace color;
    Plane plane[3]; ///< in the order of memory
    Box box;
};

/// Has the engine convert a part of a frame into a part of another. Planes that begin inside a buffer are seen as a
/// part of a larger picture, which the engine's rectangles pick out.
/// @param keep_rest bytes of the destination outside its part survive, also when the job fails; without, those
///                  between and behind its rows do, and the other pixels may hold anything.
/// @param node      the engine's, when it worked.
/// @return TAVI_RET_UNSUPPORTED: nothing for an engine, or there is none; TAVI_RET_FAIL: it would not, or could not.
Refusal blit_frame(const FramePart& src, const FramePart& dst, tavi_image_transform_mode mode, bool keep_rest,
                   char (&node)[32]);

} // namespace tavi
