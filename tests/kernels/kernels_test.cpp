// SPDX-License-Identifier: MIT
// Every kernel of every build that the machine runs writes the bytes of its plain twin, at any width and alignment,
// and none beyond.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "kernels/kernels.h"
#include "support/captured_log.h"
#include "support/fence_buffer.h"

namespace tavi::test {
namespace {

constexpr int kWidths[] = {1, 2, 3, 5, 8, 14, 15, 16, 17, 18, 30, 31, 32, 33, 34, 47, 62, 64, 66, 97, 130};

uint16_t* u16(uint8_t* p) { return reinterpret_cast<uint16_t*>(p); }

class KernelsTest : public testing::Test {
protected:
    void SetUp() override {
        if (builds().count < 2)
            GTEST_SKIP() << "this machine has no SIMD build";
    }

    /// Noise at the end of fenced memory, so that one byte too many faults.
    uint8_t* noise(size_t bytes, size_t misalign = 0) {
        buffers_.push_back(std::make_unique<FenceBuffer>(bytes, misalign));
        uint8_t* p = buffers_.back()->data();
        std::generate_n(p, bytes, [this] { return static_cast<uint8_t>(random_()); });
        return p;
    }

    /// The same for words of the scaler's rows.
    const uint16_t* words(size_t count, size_t off = 0) {
        uint16_t* p = u16(noise(count * 2, off & ~size_t{1}));
        std::generate_n(p, count, [this] { return static_cast<uint16_t>(random_() % 16321); });
        return p;
    }

    /// Rows of every width that end at the fence, and of some at every alignment: `off` bytes before it.
    template <class Body>
    void each_row(Body body) {
        for (size_t off = 0; off < 16; ++off)
            for (int w : off ? std::vector<int>{17, 34, 66} : std::vector<int>(kWidths, std::end(kWidths))) {
                body(w, off);
                buffers_.clear();
            }
    }

    /// Runs a kernel of every build into fenced outputs and compares them with the plain one's.
    template <class Body>
    void same(size_t out_bytes, size_t misalign, Body body) {
        FenceBuffer plain(out_bytes, misalign);
        body(plain_kernels(), plain.data());
        for (const Kernels* build : builds()) {
            SCOPED_TRACE(build->name);
            FenceBuffer out(out_bytes, misalign);
            body(*build, out.data());
            ASSERT_TRUE(out.intact() && plain.intact());
            ASSERT_EQ(0, memcmp(out.data(), plain.data(), out_bytes));
        }
    }

    std::mt19937 random_{42};
    std::vector<std::unique_ptr<FenceBuffer>> buffers_;
};

constexpr ColorSpace kSpaces[] = {{Matrix::bt601, false}, {Matrix::bt601, true},   {Matrix::bt709, false},
                                  {Matrix::bt709, true},  {Matrix::bt2020, false}, {Matrix::bt2020, true}};

int bytes_of(int rgb) { return rgb < kRGBA ? 3 : 4; }

TEST_F(KernelsTest, YuvToRgb) {
    for (const ColorSpace space : kSpaces)
        each_row([&](int w, size_t off) {
            const YuvToRgb& c = yuv_to_rgb_constants(space);
            const int even = (w + 1) & ~1;
            const uint8_t *y = noise(even, off), *u = noise(even / 2, off), *v = noise(even / 2, off);
            const uint8_t *pairs = noise(even, off), *packed = noise(2 * even, off);
            const uint16_t *wy = words(w, off), *wu = words(w, off), *wv = words(w, off), *wuv = words(2 * w, off);
            for (int chroma = 0; chroma < kChromaKinds; ++chroma)
                for (int rgb = 0; rgb < kRgbKinds; ++rgb) {
                    same(even * bytes_of(rgb), off, [&](const Kernels& k, uint8_t* out) {
                        k.yuv_to_rgb[chroma][rgb](chroma >= kPackedYUYV ? packed : y, chroma == kPlanar ? u : pairs,
                                                  v, out, even, c);
                    });
                    if (chroma < 3)
                        same(w * bytes_of(rgb), off, [&](const Kernels& k, uint8_t* out) {
                            k.yuv444_to_rgb[chroma][rgb](wy, chroma == kPlanar ? wu : wuv, wv, out, w, c);
                        });
                }
        });
}

TEST_F(KernelsTest, RgbToYuv) {
    for (const ColorSpace space : kSpaces)
        each_row([&](int width, size_t off) {
            const RgbToYuv& c = rgb_to_yuv_constants(space);
            const int even = (width + 1) & ~1;
            const uint8_t *a = noise(4 * even, off), *b = noise(4 * even, off);
            for (int rgb = 0; rgb < kRgbKinds; ++rgb)
                for (int chroma = 0; chroma < 3; ++chroma) { // the rows end at the fence whatever the pixel size
                    const uint8_t *p = a + (4 - bytes_of(rgb)) * even, *q = b + (4 - bytes_of(rgb)) * even;
                    same(3 * even, off, [&](const Kernels& k, uint8_t* out) {
                        uint8_t* uv = out + 2 * even;
                        k.rgb_to_yuv420[chroma][rgb](p, q, out, out + even, uv, uv + even / 2, even, c);
                    });
                    same(2 * even, off, [&](const Kernels& k, uint8_t* out) {
                        k.rgb_to_yuv422[chroma][rgb](p, out, out + even, out + even + even / 2, even, c);
                    });
                }
        });
}

TEST_F(KernelsTest, GreyAndOrders) {
    each_row([&](int w, size_t off) {
        const int even = (w + 1) & ~1;
        const uint8_t *a = noise(4 * w, off), *gray = noise(w, off), *gray16 = noise(2 * w, off);
        const uint8_t *p = noise(2 * even, off), *q = noise(2 * even, off);
        for (int kind : {0, 1})
            same(3 * even, off, [&](const Kernels& k, uint8_t* out) {
                k.packed_to_nv12[kind](p, q, out, out + even, out + 2 * even, even);
            });
        for (int from = 0; from < kRgbKinds; ++from) {
            const uint8_t* rgb = a + (4 - bytes_of(from)) * w;
            same(w, off, [&](const Kernels& k, uint8_t* out) { k.rgb_to_gray[from](rgb, out, w); });
            same(2 * w, off, [&](const Kernels& k, uint8_t* out) { k.rgb_to_gray16[from](rgb, out, w); });
            for (int to = 0; to < kRgbKinds; ++to)
                if (from != to)
                    same(w * bytes_of(to), off,
                         [&](const Kernels& k, uint8_t* out) { k.rgb_to_rgb[from][to](rgb, out, w); });
        }
        for (int n : {3, 4})
            same(n * w, off, [&](const Kernels& k, uint8_t* out) { k.gray_to_rgb[n - 3](gray, out, w); });
        same(w, off, [&](const Kernels& k, uint8_t* out) { k.gray16_to_8(gray16, out, w); });
    });
}

// Whole samples of full chroma give what subsampled ones do; grey in 16 bits is exact for every sum there is.
TEST(Kernels, PlainLoopsAgreeWithEachOther) {
    const Kernels& k = plain_kernels();
    for (const ColorSpace space : kSpaces)
        for (int i = 0; i < 65536; i += 5) {
            const uint8_t y[2] = {uint8_t(i), uint8_t(i)}, u = uint8_t(i >> 8), v = uint8_t(i / 7);
            const uint16_t wy = uint16_t(y[0] << 6), wu = uint16_t(u << 6), wv = uint16_t(v << 6);
            uint8_t pair[6], one[3];
            k.yuv_to_rgb[kPlanar][kRGB](y, &u, &v, pair, 2, yuv_to_rgb_constants(space));
            k.yuv444_to_rgb[kPlanar][kRGB](&wy, &wu, &wv, one, 1, yuv_to_rgb_constants(space));
            ASSERT_EQ(0, memcmp(pair, one, 3)) << i;
        }
    for (const Kernels* build : builds())
        for (int g = 0; g < 256; ++g) {
            uint8_t rgb[3 * 256];
            uint16_t out[256];
            for (int i = 0; i < 256; ++i)
                rgb[3 * i] = uint8_t(i), rgb[3 * i + 1] = uint8_t(g), rgb[3 * i + 2] = uint8_t(i * 5 + g);
            build->rgb_to_gray16[kRGB](rgb, reinterpret_cast<uint8_t*>(out), 256);
            for (int i = 0; i < 256; ++i)
                ASSERT_EQ(out[i], (gray_sum({rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]}) * 257 + 500) / 1000);
        }
}

TEST_F(KernelsTest, VerticalScaling) {
    each_row([&](int n, size_t off) {
        const size_t even = off & ~size_t{1};
        for (int weight : {0, 1, 12345, 32767}) {
            const uint8_t *a = noise(n, off), *b = noise(n, off);
            const uint16_t *wa = words(n, off), *wb = words(n, off);
            same(2 * n, even, [&](const Kernels& k, uint8_t* o) { k.widen(a, u16(o), n); });
            same(n, off, [&](const Kernels& k, uint8_t* o) { k.narrow(wa, o, n); });
            same(2 * n, even, [&](const Kernels& k, uint8_t* o) { k.blend8(a, b, weight, u16(o), n); });
            same(n, off, [&](const Kernels& k, uint8_t* o) { k.blend8_to_8(a, b, weight, o, n); });
            same(n, off, [&](const Kernels& k, uint8_t* o) { k.blend16_to_8(wa, wb, weight, o, n); });
            same(2 * n, even, [&](const Kernels& k, uint8_t* o) { k.blend16(wa, wb, weight, u16(o), n); });
        }
        for (int count : {0, 1, 2, 3, 7, 100, 300}) {
            const uint8_t* plane = noise(static_cast<size_t>(n) * (count + 2), off);
            BoxRows rows = {nullptr, nullptr, plane + n, n, count, 9000, 7000, 16000, 0, 0.25};
            while (count > 0 && rows.inner_shift < 7 && (count * 255) << (rows.inner_shift + 1) <= 32767)
                ++rows.inner_shift;
            for (int cut = count ? 0 : 1; cut < 4; ++cut) {
                rows.top = cut & 1 ? plane : nullptr;
                rows.bottom = cut & 2 ? plane + (count + 1) * n : nullptr;
                same(2 * n, even, [&](const Kernels& k, uint8_t* o) { k.box_rows(rows, u16(o), n); });
            }
        }
    });
}

TEST_F(KernelsTest, WideSamples) {
    each_row([&](int n, size_t off) {
        for (int count : {1, 2, 3, 9}) {
            const WideRows rows = {noise(2 * static_cast<size_t>(n) * count, off), 2 * n, count, 0.11f, 0.23f, 0.31f};
            same(4 * n, 0, [&](const Kernels& k, uint8_t* o) { k.wide_rows(rows, reinterpret_cast<float*>(o), n); });
        }
        std::vector<float> samples(n + 4), weight(5 * n);
        std::vector<int32_t> start(n);
        for (float& v : samples)
            v = static_cast<float>(random_() % 65536);
        for (int i = 0; i < n; ++i)
            start[i] = static_cast<int32_t>(random_() % n);
        for (float& w : weight)
            w = static_cast<float>(random_() % 256) / 256; // sums beyond 1 reach the clamp
        for (int taps : {1, 2, 5}) {
            const WideFir t = {start.data(), weight.data(), taps, n};
            same(2 * n, off, [&](const Kernels& k, uint8_t* o) { k.wide_fir(samples.data(), t, o); });
        }
    });
}

TEST_F(KernelsTest, HorizontalScaling) {
    constexpr int kTaps[][2] = {{2, 4},  {2, 10}, {2, 17}, {2, 20}, {2, 30},  {2, 46},
                                {2, 65}, {4, 25}, {8, 65}, {6, 45}, {10, 85}, {16, 145}}; // and tenths a column
    for (int channels = 1; channels <= 4; ++channels)
        for (int cols : kWidths)
            for (const auto& [taps, tenths] : kTaps) {
                if (channels == 1 ? taps > 4 && taps % 8 : channels == 2 && taps > 2 && taps % 4)
                    continue;
                const int count = 2 + cols * tenths / 10; // source columns
                std::vector<int32_t> start(cols);
                std::vector<int16_t> weight(static_cast<size_t>(cols) * taps);
                for (int i = 0; i < cols; ++i) {
                    start[i] = i * tenths / 10 * channels;
                    int left = 16384;
                    for (int k = 0; k < taps; ++k) {
                        const int w = k == taps - 1 ? left : static_cast<int>(random_() % (left + 1));
                        weight[static_cast<size_t>(i) * taps + k] = static_cast<int16_t>(w);
                        left -= w;
                    }
                }
                const FirTable t = {start.data(), weight.data(), taps, cols, count * channels};
                const uint16_t* row = words(static_cast<size_t>(count + 16) * channels + 32);
                const size_t out = static_cast<size_t>(cols) * channels, off = random_() % 16;
                same(out, off, [&](const Kernels& k, uint8_t* o) { k.fir_to_8[channels - 1](row, t, o); });
                if (channels < 3)
                    same(2 * out, 0,
                         [&](const Kernels& k, uint8_t* o) { k.fir_to_16[channels - 1](row, t, u16(o)); });
                if (taps != 2)
                    continue;
                const uint8_t *a = noise(count * channels, off), *b = noise(count * channels);
                for (int down : {0, 20000}) {
                    same(out, off,
                         [&](const Kernels& k, uint8_t* o) { k.bilinear_at[channels - 1](a, b, down, t, o); });
                    if (channels < 3)
                        same(2 * out, 0, [&](const Kernels& k, uint8_t* o) {
                            k.bilinear_at_16[channels - 1](a, b, down, t, u16(o));
                        });
                }
                buffers_.clear();
            }
}

TEST_F(KernelsTest, Expanding) {
    for (int eights = 2; eights < 20; eights += 2)
        for (int bytes : {4, 16, 17, 40}) {
            std::vector<int32_t> start(eights);
            std::vector<uint8_t> index(8 * eights);
            std::vector<int16_t> weight(8 * eights);
            const int next = static_cast<int>(random_() % 5), window = std::min(bytes, 16);
            for (int32_t& v : start)
                v = static_cast<int32_t>(random_() % (bytes - window + 1));
            for (uint8_t& v : index)
                v = static_cast<uint8_t>(random_() % std::max(1, window - next));
            for (int16_t& v : weight)
                v = static_cast<int16_t>(random_() % 16385);
            const int reach = std::max(bytes, next + 1);
            const uint8_t* row = noise(reach, eights % 16);
            for (const int16_t* weights :
                 {static_cast<const int16_t*>(weight.data()), static_cast<const int16_t*>(nullptr)}) {
                const ExpandTable t = {start.data(), index.data(), weights, next, eights, bytes >= 16};
                same(16 * static_cast<size_t>(eights), 0,
                     [&](const Kernels& k, uint8_t* o) { k.expand(row, t, u16(o)); });
            }
        }
}

TEST_F(KernelsTest, HalvesAndThirds) {
    for (int channels = 1; channels <= 4; ++channels)
        each_row([&](int n, size_t off) {
            const size_t out = static_cast<size_t>(n) * channels;
            const uint8_t *a = noise(2 * out, off), *b = noise(2 * out), *c = noise(3 * out, off);
            same(out, off, [&](const Kernels& k, uint8_t* o) { k.halve[channels - 1](a, b, o, n); });
            same(out, off, [&](const Kernels& k, uint8_t* o) { k.third[channels - 1](c, o, n); });
            if (channels < 3)
                same(2 * out, 0, [&](const Kernels& k, uint8_t* o) { k.halve_to_16[channels - 1](a, b, u16(o), n); });
        });
}

TEST_F(KernelsTest, AffineSpans) {
    constexpr int kCols = 40, kRows = 30;
    for (int channels = 1; channels <= 4; ++channels)
        for (int i = 0; i < 400; ++i) {
            const int n = 1 + static_cast<int>(random_() % 64);
            const auto inside = [&](int count) { return static_cast<int32_t>(random_() % ((count - 1) * 65536u)); };
            const int32_t x0 = inside(kCols), x1 = inside(kCols), y0 = inside(kRows), y1 = inside(kRows);
            const uint8_t* plane = noise(kCols * kRows * channels, i % 16);
            const AffineSpan s = {plane, kCols * channels, kCols, kRows, x0, y0, (x1 - x0) / n, (y1 - y0) / n};
            same(static_cast<size_t>(n) * channels, i % 16,
                 [&](const Kernels& k, uint8_t* o) { k.affine_span[channels - 1](s, o, n); });
            buffers_.clear();
        }
}

TEST_F(KernelsTest, Repetition) {
    FenceBuffer pattern(60);
    for (int i = 0; i < 60; ++i)
        pattern.data()[i] = static_cast<uint8_t>(i % 12);
    each_row([&](int n, size_t off) {
        same(47 + n, off, [&](const Kernels& k, uint8_t* o) { k.repeat12(o, 47 + n, pattern.data()); });
    });
}

TEST_F(KernelsTest, Orientation) {
    for (int step = 1; step <= 4; ++step)
        each_row([&](int cols, size_t off) {
            const ptrdiff_t pitch = static_cast<ptrdiff_t>(step) * cols;
            const uint8_t *row = noise(pitch, off), *rows = noise(pitch * 16, off);
            same(pitch, off, [&](const Kernels& k, uint8_t* o) { k.mirror[step - 1](row, o, cols); });
            same(pitch * 16, off,
                 [&](const Kernels& k, uint8_t* o) { k.transpose16[step - 1](rows, pitch, o, 16 * step, cols); });
        });
}

// Each in a process of its own: the setting is read once.

TEST(KernelsSetting, NamesTheBuild) {
    for (const Kernels* build : builds())
        EXPECT_EXIT(
            {
                setenv("TAVI_KERNELS", build->name, 1);
                _exit(&kernels() == build ? 0 : 1);
            },
            testing::ExitedWithCode(0), "")
            << build->name;
}

TEST(KernelsSetting, AnUnknownBuildIsReportedOnceAndCountsAsAbsent) {
    setenv("TAVI_KERNELS", "mmx", 1);
    CapturedLog log;
    const Builds all = builds();
    EXPECT_EQ(&kernels(), all.list[all.count - 1]);
    kernels();
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0].level, TAVI_LOG_ERROR);
    EXPECT_EQ(log.lines[0].tag, "tavi-kernels");
    for (const char* words : {"TAVI_KERNELS=\"mmx\"", "plain", kernels().name})
        EXPECT_NE(log.lines[0].message.find(words), std::string::npos) << log.lines[0].message;
}

} // namespace
} // namespace tavi::test
