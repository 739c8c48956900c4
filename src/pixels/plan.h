// SPDX-License-Identifier: MIT
// Which steps lead from one shape to another. Pure: shapes in, steps out, no pixel touched. What a plan says is all
// that runs: no step hides another one.
#pragma once

#include "image/view.h"

namespace tavi {

enum class StepKind : uint8_t {
    luma,     ///< the luma plane alone, as grey; no pass over the pixels
    convert,  ///< one conversion of the table in even.cpp, or to chroma planes that round otherwise
    recolour, ///< to YUV samples of another meaning
    scale,    ///< also to another chroma grid of the same layout
    mirror,   ///< left and right exchanged
    flip,     ///< top and bottom exchanged; no pass over the pixels
    transpose ///< rows and columns exchanged
};

/// One step; format and size are those of its result.
struct Step {
    StepKind kind;
    const Format* format;
    int width;
    int height;
};

struct Plan {
    static constexpr int kMaxSteps = 10;
    Step step[kMaxSteps]; ///< the first `count` of them
    int count = 0;        ///< 0: a plain copy
};

/// What a plan is made for. `box` is the part of the source that fills the destination; a box that is not the whole
/// source is reached by scaling, also where no size changes.
struct PlanRequest {
    const Format* src_format;
    int src_width;
    int src_height;
    Box box;
    const Format* dst_format;
    int dst_width;
    int dst_height;
    tavi_image_transform_mode mode;
    bool src_chroma_up = false; ///< odd sides have chroma of their own; what stands in between when one of both does
    bool dst_chroma_up = false;
    bool sited = false;     ///< the source's chroma does not stand in the middle of its pixels
    bool recolours = false; ///< YUV samples of source and destination mean different colours
};

/// Whether a transform mode is one of the seven.
bool is_transform_mode(tavi_image_transform_mode mode);

Plan make_plan(const PlanRequest& request);

/// A plan in words, e.g. "scale nv12>nv24 640x360; nv24>rgb".
struct PlanText {
    PlanText(const Plan& plan, const Format& src_format);
    char text[320];
};

} // namespace tavi
