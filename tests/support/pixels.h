// SPDX-License-Identifier: MIT
// An image in fenced memory of exactly its size, with the record that describes it.
#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "image/view.h"
#include "support/fence_buffer.h"
#include "support/reference.h"

namespace tavi::test {

class Pixels : public FenceBuffer {
public:
    Pixels(int format, int width, int height, size_t misalign = 0)
        : FenceBuffer(ref_bytes(format, width, height), misalign) {
        img.data = data();
        img.size = static_cast<uint32_t>(size());
        img.is_prealloc_buf = 1;
        img.pixel_format = static_cast<tavi_pixel_format>(format);
        img.width = static_cast<uint32_t>(width);
        img.height = static_cast<uint32_t>(height);
    }

    tavi_image_t img{};

    /// Noise in every sample, and 128 in the bytes that odd sizes leave unused.
    Pixels& noise(unsigned seed) {
        std::mt19937 random(seed);
        std::generate_n(data(), size(), [&] { return static_cast<uint8_t>(random()); });
        return is_yuv(img.pixel_format) && viewable() ? set(colors()) : *this;
    }
    /// Takes colours, converted to the format and rounded; 128 in the bytes that odd sizes leave unused.
    Pixels& set(const RefImage& colors) {
        const std::vector<double> s = ref_samples(ref_convert(colors, img.pixel_format), img.pixel_format);
        std::transform(s.begin(), s.end(), data(), [](double v) { return static_cast<uint8_t>(v + 0.5); });
        return *this;
    }
    Pixels& flat(const Color& rgb) { return set(RefImage(Model::rgb, img.width, img.height, rgb)); }

    /// Whether it is large enough to have a chroma sample, where it needs one.
    bool viewable() const { return !why_not_viewable(img.pixel_format, img.width, img.height); }
    RefImage colors() const { return ref_read(data(), img.pixel_format, img.width, img.height); }
    ImageView view() const { return make_view(data(), img.pixel_format, img.width, img.height); }
    /// How far the pixels are from the colours, at most.
    double error(const RefImage& colors) const {
        return ref_difference(ref_samples(ref_convert(colors, img.pixel_format), img.pixel_format), data(),
                              img.pixel_format);
    }
    std::vector<uint8_t> bytes() const { return {data(), data() + size()}; }
};

} // namespace tavi::test
