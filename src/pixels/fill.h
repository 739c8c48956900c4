// SPDX-License-Identifier: MIT
// Flat colours: an RGB colour in the samples of a format, and boxes filled with it.
#pragma once

#include <cstdint>

#include "image/view.h"

namespace tavi {

/// The bytes of one column of each plane. Of packed 4:2:2 the first plane's four bytes are a pair of pixels.
struct Ink {
    uint8_t bytes[3][4];
};

/// A full-range RGB colour in a format's samples: the view's colour space for YUV, luma for grey, alpha 255.
Ink ink_of(const ImageView& view, int red, int green, int blue);

/// Fills a box. In subsampled formats it starts on a whole chroma sample and ends on one or at the image's end.
void fill_box(const ImageView& view, const Box& box, const Ink& ink);

/// Fills what lies around `picture` with 0xRRGGBB.
void paint_padding(const ImageView& view, const Box& picture, uint32_t rgb);

} // namespace tavi
