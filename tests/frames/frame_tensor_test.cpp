// SPDX-License-Identifier: MIT
// Tensors against double precision: every value through every element, both layouts, turned pictures and padding.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>
#include <vector>

#include "frames/frame_memory.h"
#include "frames/tensor_writer.h"

namespace tavi::test {
namespace {

double from_half(uint16_t h) {
    const double sign = h & 0x8000 ? -1 : 1, fraction = h & 1023;
    const int exponent = h >> 10 & 31;
    return sign * (exponent ? std::ldexp(1024 + fraction, exponent - 25) : std::ldexp(fraction, -24));
}

TEST(Tensor, HalvesAreTheNearest) {
    EXPECT_EQ(to_half(65519.99), 0x7BFF);
    EXPECT_EQ(to_half(-65520), 0xFC00);
    EXPECT_EQ(to_half(std::ldexp(1, -25)), 0); // half way to the smallest: even
    EXPECT_EQ(to_half(std::ldexp(3, -25)), 2);
    for (uint32_t h = 0; h < 0x7BFF; ++h) {
        const double low = from_half(h), high = from_half(h + 1), middle = (low + high) / 2;
        ASSERT_EQ(to_half(low), h);
        ASSERT_EQ(to_half(middle), h + h % 2);
        ASSERT_EQ(to_half(-std::nextafter(middle, 0)), h | 0x8000);
        ASSERT_EQ(to_half(std::nextafter(middle, 1e9)), h + 1);
    }
}

/// What an element is in double precision, and how far it may be off.
void expect_element(const tavi_tensor_t& t, const uint8_t* element, int channel, int value) {
    const double exact = (value - double{t.mean[channel]}) * (t.scale[channel] ? double{t.scale[channel]} : 1);
    const double rounded = std::nearbyint(exact) + t.zero_point;
    if (t.element == TAVI_TENSOR_UINT8) {
        ASSERT_EQ(*element, std::clamp(rounded, 0., 255.)) << value;
    } else if (t.element == TAVI_TENSOR_INT8) {
        ASSERT_EQ(static_cast<int8_t>(*element), std::clamp(rounded, -128., 127.)) << value;
    } else if (t.element == TAVI_TENSOR_FLOAT16) {
        uint16_t half;
        std::memcpy(&half, element, 2);
        ASSERT_EQ(half, to_half(exact)) << value;
    } else {
        float f;
        std::memcpy(&f, element, 4);
        ASSERT_EQ(f, static_cast<float>(exact)) << value;
    }
}

constexpr size_t kBytes[] = {1, 1, 2, 4};

TEST(Tensor, EveryElementLayoutAndOrder) {
    FrameMemory src(TAVI_PIXEL_FORMAT_RGB888, 37, 21, 4);
    src.noise(2);
    for (int element = 0; element < 4; ++element)
        for (int layout = 0; layout < 2; ++layout)
            for (int channels = 0; channels < 3; ++channels)
                for (const int mode : {0, 4, 3}) {
                    const int w = mode == 4 ? 21 : 37, h = mode == 4 ? 37 : 21, count = channels == 2 ? 1 : 3;
                    FrameMemory pixels(channels == 2 ? 0 : channels ? 2 : 1, w, h);
                    tavi_frame_options_t options{};
                    options.transform = mode;
                    ASSERT_EQ(tavi_frame_convert(&src.frame, &pixels.frame, &options, nullptr), 0);
                    const size_t size = kBytes[element], pixel = size * (layout ? count : 1);
                    const size_t row = w * pixel + (mode ? 0 : 8), plane = row * h + (mode ? 0 : 16);
                    FenceBuffer memory(layout ? row * (h - 1) + w * pixel
                                              : plane * (count - 1) + row * (h - 1) + w * pixel);
                    tavi_tensor_t t{};
                    t.data = memory.data();
                    t.layout = layout, t.element = element, t.channels = channels;
                    t.width = w, t.height = h;
                    t.row_pitch = mode ? 0 : static_cast<uint32_t>(row);
                    t.channel_pitch = mode || layout ? 0 : plane;
                    for (int c = 0; c < 3; ++c)
                        t.mean[c] = 123.675f - 10 * c, t.scale[c] = c == 2 ? 0 : element < 2 ? 0.5f : 1 / 58.395f;
                    t.zero_point = element == TAVI_TENSOR_INT8 ? -7 : element == TAVI_TENSOR_UINT8 ? 9 : 0;
                    ASSERT_EQ(tavi_frame_to_tensor(&src.frame, &t, &options, nullptr), 0);
                    ASSERT_TRUE(memory.intact());
                    for (int y = 0; y < h; ++y)
                        for (int x = 0; x < w; ++x)
                            for (int c = 0; c < count; ++c)
                                expect_element(t, memory.data() + y * row + x * pixel + c * (layout ? size : plane),
                                               c, pixels.view.plane[0].at(x, y)[c]);
                    ASSERT_TRUE(mode || memory.data()[w * pixel] == 0xA5) << "padding of a row";
                }
}

TEST(Tensor, LetterboxIsTheFramesOwn) {
    FrameMemory src(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 640, 361, 64), boxed(TAVI_PIXEL_FORMAT_RGB888, 320, 320);
    src.noise(1);
    tavi_frame_options_t options{};
    options.fit = TAVI_FIT_CONTAIN;
    options.pad_color = 0x727374;
    tavi_frame_report_t report{};
    ASSERT_EQ(tavi_frame_convert(&src.frame, &boxed.frame, &options, nullptr), 0);
    std::vector<uint8_t> elements(3 * 320 * 320);
    tavi_tensor_t t{};
    t.data = elements.data();
    t.width = t.height = 320;
    ASSERT_EQ(tavi_frame_to_tensor(&src.frame, &t, &options, &report), 0);
    for (int i = 0; i < 320 * 320; ++i)
        for (int c = 0; c < 3; ++c)
            ASSERT_EQ(elements[c * 320 * 320 + i], boxed.view.plane[0].data[3 * i + c]) << i;
    EXPECT_EQ(elements[0], 0x72);
    EXPECT_EQ(report.placement.height, 181);
}

} // namespace
} // namespace tavi::test
