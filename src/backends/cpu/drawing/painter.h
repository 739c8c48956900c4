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
    Painter(const Painter&) = delete;
    Painter& operator=(const Painter&) = delete;
    ~Painter();

    int width() const { return view_.width; }
    int height() const { return view_.height; }

    /// Sets the pixels x0 <= x < x1 of a row that lies inside the image; the columns are clipped.
    void span(int y, int x0, int x1) {
        x0 = x0 < 0 ? 0 : x0;
        x1 = x1 > view_.width ? view_.width : x1;
        if (x0 < x1)
            (this->*paint_)(y, x0, x1);
    }
    /// The same for bounds of any value.
    void span(int y, double x0, double x1) { span(y, column(x0), column(x1)); }
    /// The pixels x0 <= x < x1 of the rows y0 <= y < y1, which lie inside the image.
    void block(int y0, int y1, double x0, double x1);

private:
    /// The first column at or after x, held inside the image. (A call of ceil() is slow where it is no instruction.)
    int column(double x) const {
        if (!(x > 0))
            return 0;
        if (x >= view_.width)
            return view_.width;
        const int whole = static_cast<int>(x);
        return whole + (x > whole);
    }

    void paint_plane(int y, int x0, int x1);
    void paint_subsampled(int y, int x0, int x1);
    void paint_packed(int y, int x0, int x1);

    /// A run of chroma samples that is not painted yet: the next row of luma may widen it.
    struct ChromaRun {
        int row = 0;
        int first = 0;
        int end = 0;
    };
    void paint_chroma(const ChromaRun& run);

    static constexpr int kPattern = 60; ///< 48 bytes from any of the first twelve

    const ImageView& view_;
    void (Painter::*paint_)(int, int, int);
    uint8_t pattern_[3][kPattern];
    ChromaRun pending_[2]; ///< two: outlines have a left and a right side
};

} // namespace tavi
