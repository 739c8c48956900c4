// SPDX-License-Identifier: MIT
// A slow converter in double precision that works a pixel at a time and shares no code with the product: what the
// formats, BT.601 and the filters mean.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavi::test {

using Color = std::array<double, 3>; ///< Y U V, or R G B, or grey and nothing

enum class Model { gray, rgb, yuv };

/// An image as one colour per pixel; its chroma is not yet subsampled.
struct RefImage {
    RefImage(Model m, int w, int h, const Color& fill = {})
        : model(m), width(w), height(h), pixel(size_t(w) * h, fill) {}

    Model model;
    int width, height;
    std::vector<Color> pixel;

    Color& at(int x, int y) { return pixel[static_cast<size_t>(y) * width + x]; }
    const Color& at(int x, int y) const { return pixel[static_cast<size_t>(y) * width + x]; }
};

size_t ref_bytes(int format, int width, int height);

/// Reads exact pixels; grey comes out as 0 to 255 for both grey formats.
RefImage ref_read(const uint8_t* data, int format, int width, int height);

/// Converts the colours to what `format` holds, clamped but not rounded.
RefImage ref_convert(const RefImage& image, int format);

/// The samples of a format in memory order, not rounded; 128 for bytes that hold none, and twice the value of 8 bits
/// for 16-bit grey.
std::vector<double> ref_samples(const RefImage& image, int format);

/// The largest difference between samples and pixels in memory (16-bit grey in units of 1/257).
double ref_difference(const std::vector<double>& samples, const uint8_t* data, int format);

RefImage ref_transform(const RefImage& image, int mode);

/// How one axis is scaled: sample i covers the source interval [i * num / den + offset, (i + 1) * num / den +
/// offset).
struct RefAxis {
    int src, dst, num, den;
    double offset;
};

/// One plane of `step` interleaved channels scaled in double precision, across and down then. Method 1 nearest, 2
/// bilinear, 3 area, 4 bicubic, 5 Lanczos-3, 6 triangle, 7 mean, 0 the default. Rows between the axes are limited to
/// `limit`, unless that is 0.
std::vector<double> ref_scale(const std::vector<double>& plane, int step, const RefAxis& x, const RefAxis& y,
                              int method, double limit = 0);

} // namespace tavi::test
