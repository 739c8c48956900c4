// SPDX-License-Identifier: MIT
// YUV samples of one meaning as those of another: matrix, range or both, without a way through RGB, which would cut
// off what lies outside its cube and lose chroma.
#pragma once

#include "image/view.h"

namespace tavi {

/// From one view's colour space to the other's. Both of the same format, 8 bits, not packed, with planes of the same
/// sizes. Luma uses the chroma sample that covers it. Every sample is within 0.51 of exact before it is rounded.
/// False when there is no memory for a row.
bool recolour_image(const ImageView& src, const ImageView& dst);

} // namespace tavi
