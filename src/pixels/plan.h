// SPDX-License-Identifier: MIT
// Which steps lead from one shape to another. Pure: shapes in, steps out, no pixel touched.
#pragma once

#include <string>

#include "image/view.h"

namespace tavi {

enum class StepKind : uint8_t { convert, scale, mirror, transpose };

/// One step; format and size are those of its result.
struct Step {
    StepKind kind;
    tavi_pixel_format format;
    int width;
    int height;
};

struct Plan {
    static constexpr int kMaxSteps = 6;
    Step step[kMaxSteps] = {};
    int count = 0;            ///< 0: a plain copy
    bool flip_source = false; ///< the transposition reads its source from the bottom up (a quarter turn clockwise)
    bool flip_result = false; ///< the result is written from the bottom up
    int transpose_at = -1;    ///< index of the transposition, at most one
};

/// What a plan is made for. `box` is the part of the source that fills the destination; a box that is not the whole
/// source is reached by scaling, also where no size changes.
struct PlanRequest {
    tavi_pixel_format src_format;
    int src_width;
    int src_height;
    Box box;
    tavi_pixel_format dst_format;
    int dst_width;
    int dst_height;
    tavi_image_transform_mode mode;
};

/// Whether a transform mode is one of the seven.
bool is_transform_mode(tavi_image_transform_mode mode);

Plan make_plan(const PlanRequest& request);

/// A plan in words, e.g. "scale nv12 640x360; nv12>rgb".
std::string describe(const Plan& plan, tavi_pixel_format src_format);

} // namespace tavi
