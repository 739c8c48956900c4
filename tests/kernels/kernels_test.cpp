// SPDX-License-Identifier: MIT
// Kernels that work on rows of scratch memory, where the sweeps over whole images see no byte too many: of every
// build that the machine runs, they write the bytes of their plain twins, at any width and alignment, and none
// beyond. Those of colour, order, orientation, halves, thirds and 16-bit samples work on images: tests/pixels has
// them, in exact buffers, and by hashes with either build.
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

    /// Numbers from 0 on that are smaller than a bound.
    template <class T>
    std::vector<T> below(int bound, int count) {
        std::vector<T> v(count);
        std::generate(v.begin(), v.end(), [&] { return static_cast<T>(random_() % bound); });
        return v;
    }

    /// Weights that sum to one, some of them below zero.
    std::vector<int16_t> weights(int taps) {
        std::vector<int16_t> out;
        for (int left = 16384; static_cast<int>(out.size()) < taps; left -= out.back())
            out.push_back(static_cast<int16_t>(static_cast<int>(out.size()) == taps - 1
                                                   ? left
                                                   : static_cast<int>(random_() % 6000) * (left > 0 ? 1 : -1)));
        return out;
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

TEST_F(KernelsTest, SumsOfRows) {
    each_row([&](int n, size_t off) {
        for (int count : {1, 2, 3, 18}) {
            std::vector<const uint16_t*> rows(count);
            std::generate(rows.begin(), rows.end(), [&] { return words(n, off); });
            std::vector<int16_t> weight = weights(count);
            weight.push_back(0);
            const FirRows sum = {rows.data(), weight.data(), count};
            same(n, off, [&](const Kernels& k, uint8_t* o) { k.fir_rows_to_8(sum, o, n); });
            same(2 * n, off & ~size_t{1}, [&](const Kernels& k, uint8_t* o) { k.fir_rows_to_16(sum, u16(o), n); });
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
                std::vector<int16_t> weight;
                for (int i = 0; i < cols; ++i) {
                    start[i] = i * tenths / 10 * channels;
                    const std::vector<int16_t> column = weights(taps);
                    weight.insert(weight.end(), column.begin(), column.end());
                }
                const FirTable t = {start.data(), weight.data(), taps, cols, count * channels};
                const uint16_t* row = words(static_cast<size_t>(count + 16) * channels + 32);
                const size_t out = static_cast<size_t>(cols) * channels, off = random_() % 16;
                same(out, off, [&](const Kernels& k, uint8_t* o) { k.fir_to_8[channels - 1](row, t, o); });
                same(2 * out, 0, [&](const Kernels& k, uint8_t* o) { k.fir_to_16[channels - 1](row, t, u16(o)); });
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
            const int next = static_cast<int>(random_() % 5), window = std::min(bytes, 16);
            const auto start = below<int32_t>(bytes - window + 1, eights);
            const auto index = below<uint8_t>(std::max(1, window - next), 8 * eights);
            const auto weight = below<int16_t>(16385, 8 * eights);
            const int reach = std::max(bytes, next + 1);
            const uint8_t* row = noise(reach, eights % 16);
            for (const bool blends : {true, false}) {
                const ExpandTable t = {start.data(), index.data(), blends ? weight.data() : nullptr,
                                       next,         eights,       bytes >= 16};
                same(16 * static_cast<size_t>(eights), 0,
                     [&](const Kernels& k, uint8_t* o) { k.expand(row, t, u16(o)); });
            }
        }
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

TEST_F(KernelsTest, ElementsOfTensors) {
    each_row([&](int n, size_t off) {
        const uint8_t* pixels = noise(3 * static_cast<size_t>(n), off);
        same(3 * static_cast<size_t>(n), off, [&](const Kernels& k, uint8_t* o) {
            uint8_t* const rows[3] = {o + n, o, o + 2 * n};
            k.split3(pixels, rows, n);
        });
        same(4 * static_cast<size_t>(n), 0, [&](const Kernels& k, uint8_t* o) {
            k.to_float(pixels, reinterpret_cast<float*>(o), n, 123.675f, 1 / 58.395f);
        });
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
