// SPDX-License-Identifier: MIT
// Scaling of an image plane by plane, chroma straight from its own grid to that of the result.
#pragma once

#include "pixels/plane_scaler.h"

namespace tavi {

/// What is scaled into what: formats of the same planes that may differ in chroma grid and in bits. Not packed 4:2:2.
struct ScaleRequest {
    const Format* from;
    int src_width, src_height;
    Box box; ///< of the source; it may start at odd pixels of a subsampled format
    const Format* to;
    int dst_width, dst_height;
    int method;           ///< or filter, of the public headers
    bool from_up = false; ///< chroma of odd sides is rounded up
    bool to_up = false;
    Siting from_siting = {}, to_siting = {}; ///< of chroma
};

class ImageScaler {
public:
    bool init(Scratch& scratch, const ScaleRequest& request);

    /// The source rows, in pixels of the whole source and even where chroma is subsampled, for destination rows.
    RowRange source_rows(int y0, int y1) const;

    /// Writes destination rows [y0, y0 + dst.height). `src` holds whole source rows from `src_first` on.
    void run(const ImageView& src, int src_first, int y0, const ImageView& dst);

    /// Destination rows from `first` on in RGB at once, from the whole source, where there is a kernel for that; else
    /// false, and nothing is done.
    bool run_to_rgb(const ImageView& src, int first, const ImageView& dst, const YuvToRgb& color) const;

private:
    struct Plane {
        PlaneScaler scaler;
        int origin_x = 0, origin_y = 0; ///< the sample that the source box starts at
    };

    const Format* from_ = nullptr;
    const Format* to_ = nullptr;
    int src_height_ = 0;
    bool to_up_ = false;
    Plane planes_[3];
};

} // namespace tavi
