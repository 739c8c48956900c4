// SPDX-License-Identifier: MIT
// Mirrors and transpositions, plane by plane, within one format. Not for packed 4:2:2. The views do not overlap.
#pragma once

#include "image/view.h"

namespace tavi {

/// Exchanges left and right.
void mirror_image(const ImageView& src, const ImageView& dst);

/// Exchanges rows and columns; 4:2:2 chroma is resampled. False when there is no memory for that.
bool transpose_image(const ImageView& src, const ImageView& dst);

} // namespace tavi
