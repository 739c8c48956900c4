// SPDX-License-Identifier: MIT
// Conversion of views: any format, size and transform mode into any other. What the contract operations, the crop
// routine and the file codecs share.
#pragma once

#include "image/refusal.h"
#include "image/view.h"

namespace tavi {

/// Converts the part `box` of `src` into the whole of `dst`, which must not overlap it.
/// @param mode   one of the seven transform modes.
/// @param method one of the four resize methods, or a filter of tavi_frame.h.
/// @param caller the contract function under whose name the plan is logged, at the debug level: the calling one, or
///               the one that a helper works for.
/// Refuses only when there is no memory for temporaries.
Refusal convert_region(const ImageView& src, const Box& box, const ImageView& dst, int mode, int method,
                       const char* caller = __builtin_FUNCTION());

/// convert_region() of the whole source.
Refusal convert_views(const ImageView& src, const ImageView& dst, int mode, int method,
                      const char* caller = __builtin_FUNCTION());

} // namespace tavi
