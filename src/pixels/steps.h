// SPDX-License-Identifier: MIT
// The steps of a plan on views: format conversion, mirroring, transposition. Views of one call have the same size
// (the exchanged one for transposition) and do not overlap.
#pragma once

#include "image/scratch.h"
#include "image/view.h"

namespace tavi {

/// Converts between any two formats, odd sizes included; equal formats are copied. False when there is no memory.
bool convert_image(const ImageView& src, const ImageView& dst);

/// Exchanges left and right, plane by plane. Not for packed 4:2:2.
void mirror_image(const ImageView& src, const ImageView& dst);

/// Exchanges rows and columns, plane by plane; 4:2:2 chroma is resampled. Not for packed 4:2:2.
bool transpose_image(const ImageView& src, const ImageView& dst);

/// Copies one plane.
void copy_plane(const PlaneView& src, const PlaneView& dst);

} // namespace tavi
