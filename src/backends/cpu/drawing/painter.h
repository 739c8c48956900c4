// SPDX-License-Identifier: MIT
// Sets runs of pixels to one colour, in any of the sixteen formats. The shapes know rows and columns only; what a
// pixel is in memory, which chroma samples it has, and where the image ends is known here.
#pragma once

#include "image/view.h"

namespace tavi {

class Painter {
public:
    /// The view's pixels are to be writable, and the view to outlive the painter.
    Painter(const ImageView& view, tavi_color_t color);

    int width() const { return view_.width; }
    int height() const { return view_.height; }

    /// Sets the pixels x0 <= x < x1 of a row that lies inside the image; the columns are clipped.
    void span(int y, int x0, int x1) {
        x0 = x0 < 0 ? 0 : x0;
        x1 = x1 > view_.width ? view_.width : x1;
        if (x0 < x1)
            (this->*paint_)(y, x0, x1);
    }
    void span(int y, double x0, double x1); ///< of any value, also beyond int

private:
    void paint_plane(int y, int x0, int x1);
    void paint_subsampled(int y, int x0, int x1);
    void paint_packed(int y, int x0, int x1);

    // A plane's column repeated: a multiple of every column size, so that runs are copies of long pieces.
    static constexpr int kPattern = 96;

    const ImageView& view_;
    void (Painter::*paint_)(int, int, int);
    uint8_t pattern_[3][kPattern];
    // The chroma run painted last: the next luma row often asks for the same one.
    int chroma_row_ = -1;
    int chroma_first_ = 0;
    int chroma_end_ = 0;
};

} // namespace tavi
