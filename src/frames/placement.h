// SPDX-License-Identifier: MIT
// What the options of a request come to: which part of the source goes where in the destination.
#pragma once

#include "image/refusal.h"
#include "image/view.h"
#include "tavi_frame.h"

namespace tavi {

struct Placement {
    Box crop;    ///< of the source
    Box place;   ///< of the destination: what is written, padding included
    Box picture; ///< of the destination: where the crop stands
    bool padded() const { return picture.width != place.width || picture.height != place.height; }
};

/// Checks the options and lays the picture out; null options are the defaults. Of the views only the shapes are used.
Refusal lay_out(const ImageView& src, const ImageView& dst, const tavi_frame_options_t* options, Placement& out);

/// What a report says of the geometry.
void report_placement(const Placement& p, tavi_image_transform_mode mode, tavi_frame_report_t& report);

} // namespace tavi
