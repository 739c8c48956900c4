// SPDX-License-Identifier: MIT
// The affine warp of an image, bilinear, within one format. Pixel (x, y) is the sample at that integer position; a
// chroma sample stands in the middle of the pixels it covers.
#pragma once

#include "image/view.h"

namespace tavi {

/// x' = a x + b y + c, y' = d x + e y + f
struct Affine {
    double a, b, c, d, e, f;
};

/// Fills `dst` with what the map takes each of its pixels to in `src`, and with black outside. False when there is no
/// memory for planes.
bool warp_image(const ImageView& src, const ImageView& dst, const Affine& to_source);

} // namespace tavi
