// SPDX-License-Identifier: MIT
// Conversion of views: any format, size and transform mode into any other. What the contract operations, the crop
// routine and the file codecs share.
#pragma once

#include "image/view.h"

namespace tavi {

/// Converts the part `box` of `src` into the whole of `dst`, which must not overlap it.
/// @param mode   one of the seven transform modes.
/// @param method one of the four resize methods.
/// @return TAVI_RET_SUCCESS, or TAVI_RET_FAIL when there is no memory for temporaries.
int convert_region(const ImageView& src, const Box& box, const ImageView& dst, int mode, int method);

/// convert_region() of the whole source.
int convert_views(const ImageView& src, const ImageView& dst, int mode, int method);

} // namespace tavi
