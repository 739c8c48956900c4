// SPDX-License-Identifier: MIT
// Conversion of views: any format, size and transform mode into any other. What the contract operations, the crop
// routine, the file codecs and the frames share.
#pragma once

#include "image/refusal.h"
#include "image/scratch.h"
#include "image/view.h"
#include "pixels/image_scaler.h"
#include "pixels/plan.h"

namespace tavi {

/// A conversion of the part `box` of a source into the whole of a destination, planned. Several threads may each run
/// lines of it at once.
struct Conversion {
    /// @param dst    only its shape and colour are looked at; it must not overlap `src`.
    /// @param mode   one of the seven transform modes.
    /// @param method a resize method, or a filter of the frames.
    Conversion(const ImageView& src, const Box& box, const ImageView& dst, int mode, int method);

    ImageView src; ///< the part of the source that is read
    Box box;       ///< what fills the destination, of `src`
    int method;
    int dst_height;
    bool dst_chroma_up;
    Siting dst_siting;
    ColorSpace src_color, dst_color;
    Plan plan;
    bool by_columns; ///< the lines that can be made one after the other are columns of the result, not rows
    int lines;       ///< how many there are
    bool divisible;  ///< lines may be made apart from others: not where odd sides are turned around
};

/// Runs lines of a conversion, on one thread.
class ConversionRun {
public:
    explicit ConversionRun(const Conversion& conversion);
    ConversionRun(const ConversionRun&) = delete;
    ConversionRun& operator=(const ConversionRun&) = delete;

    /// Makes the lines [first, end) of the result, which `out` holds alone. `first` is even; `end` is, or is the
    /// last. False when there is no memory for temporaries.
    bool make(int first, int end, ImageView out);

private:
    ImageView take(Scratch& scratch, int index, int width, int height) const;
    bool pull(int index, RowRange rows, Scratch& scratch, ImageView& in);
    bool produce(int index, int first, const ImageView& out);
    bool convert_needed_rows(RowRange rows, int first, int count, Scratch& scratch, ImageView& in);
    bool make_rows(int first, const ImageView& out);
    bool make_columns(int first, const ImageView& out);

    const Conversion& conversion_;
    const Step* step_; ///< without those at either end that only change a view
    int count_;
    bool ends_flipped_ = false;
    ImageView src_;
    int turn_;                 ///< the step that transposes, or `count_`
    int first_recoloured_ = 0; ///< from this step's result on, colours are the destination's
    bool chroma_up_;           ///< of what stands between the steps
    Scratch scratch_;
    ImageScaler scaler_; ///< where there is a step for it
    bool ready_ = true;
};

/// The lines [first, end) of a view.
ImageView lines_of(const ImageView& view, bool by_columns, int first, int end);

/// What is answered when a run ends early.
Refusal no_memory_for(const ImageView& src, const ImageView& dst);

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
