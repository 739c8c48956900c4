// SPDX-License-Identifier: MIT
// Conversion of pictures of any size: the even part by the table of conversions, the last odd row and column with
// their neighbour's chroma.
#pragma once

#include "image/view.h"

namespace tavi {

/// Converts between two formats that convert directly. Views of the same size that do not overlap. False when there
/// is no memory for a row.
bool convert_image(const ImageView& src, const ImageView& dst);

} // namespace tavi
