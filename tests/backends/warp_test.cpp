// SPDX-License-Identifier: MIT
// The CPU routines that move pixels: crop, transpose, affine maps and warps.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

#include "backends/cpu/tavi_image_cpu.h"
#include "image/view.h"
#include "services/tavi_mem.h"
#include "support/fence_buffer.h"
#include "support/reference.h"

namespace tavi::test {
namespace {

tavi_image_t record(uint8_t* data, int format, int w, int h) {
    tavi_image_t r = {};
    r.data = data;
    r.pixel_format = static_cast<tavi_pixel_format>(format);
    r.width = w;
    r.height = h;
    return r;
}

void fill_noise(const FenceBuffer& b, unsigned seed) {
    std::mt19937 random(seed);
    for (size_t i = 0; i < b.size(); ++i)
        b.data()[i] = static_cast<uint8_t>(random());
}

// A plane warped in double precision; black outside.
double warp_error(const PlaneView& s, const PlaneView& d, const PlaneRule& grid, const double* m,
                  const uint8_t* black, bool wide) {
    const double det = m[0] * m[4] - m[1] * m[3];
    const double kx = 1 << grid.xshift, ky = 1 << grid.yshift;
    const int channels = wide ? 1 : d.step;
    double most = 0;
    for (int y = 0; y < d.rows; ++y)
        for (int x = 0; x < d.cols; ++x) {
            // Pixel position of the sample, taken back through the map, in samples of the source plane.
            const double px = kx * x + (kx - 1) / 2 - m[2], py = ky * y + (ky - 1) / 2 - m[5];
            const double sx = ((m[4] * px - m[1] * py) / det - (kx - 1) / 2) / kx;
            const double sy = ((m[0] * py - m[3] * px) / det - (ky - 1) / 2) / ky;
            const int ix = int(std::floor(sx)), iy = int(std::floor(sy));
            for (int c = 0; c < channels; ++c) {
                const auto at = [&](int u, int v) -> double {
                    if (u < 0 || v < 0 || u >= s.cols || v >= s.rows)
                        return wide ? 0 : black[c];
                    const uint8_t* p = s.at(u, v);
                    return wide ? p[0] + 256.0 * p[1] : p[c];
                };
                const double fx = sx - ix, fy = sy - iy;
                const double v = (at(ix, iy) * (1 - fx) + at(ix + 1, iy) * fx) * (1 - fy) +
                                 (at(ix, iy + 1) * (1 - fx) + at(ix + 1, iy + 1) * fx) * fy;
                const uint8_t* p = d.at(x, y);
                most = std::max(most, std::fabs(v - (wide ? p[0] + 256.0 * p[1] : p[c])) / (wide ? 257 : 1));
            }
        }
    return most;
}

TEST(Affine, WithinTwoOfTheReference) {
    constexpr uint8_t kBlack[16][3][4] = {{{0}},
                                          {{0, 0, 0}},
                                          {{0, 0, 0}},
                                          {{0, 0, 0, 255}},
                                          {{0, 0, 0, 255}},
                                          {{16}, {128}, {128}},
                                          {{16}, {128}, {128}},
                                          {{16}, {128, 128}},
                                          {{16}, {128, 128}},
                                          {{16}, {128}, {128}},
                                          {{16}, {128}, {128}},
                                          {{16}, {128, 128}},
                                          {{16}, {128, 128}},
                                          {},
                                          {},
                                          {{0}}};
    std::mt19937 random(7);
    for (int f = 0; f < 16; ++f)
        for (int i = 0; i < 12 && f != 13 && f != 14; ++i) {
            const int w = 20 + random() % 100, h = 20 + random() % 60, dw = 2 + random() % 120,
                      dh = 2 + random() % 50;
            const double angle = i * 0.7, scale = std::pow(2.0, (i - 6) / 3.0);
            const float m[6] = {
                float(std::cos(angle) * scale), float(-std::sin(angle) * scale),      float(random() % 50),
                float(std::sin(angle) * scale), float(std::cos(angle) * scale * 1.1), float(random() % 40) - 5};
            FenceBuffer src(ref_bytes(f, w, h), i % 4), dst(ref_bytes(f, dw, dh), i % 3);
            fill_noise(src, i);
            tavi_image_t from = record(src.data(), f, w, h), to = record(dst.data(), f, dw, dh);
            ASSERT_EQ(tavi_image_affine_transform_cpu(&from, &to, m), 0);
            ASSERT_TRUE(dst.intact());
            const double exact[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
            const ImageView s = make_view(src.data(), from.pixel_format, w, h),
                            d = make_view(dst.data(), to.pixel_format, dw, dh);
            for (int p = 0; p < d.planes(); ++p)
                ASSERT_LE(warp_error(s.plane[p], d.plane[p], d.format->plane[p], exact, kBlack[f][p], f == 15), 2.0)
                    << d.format->name << " plane " << p << " turn " << i;
        }
}

TEST(Affine, PackedFormatsGoThroughPlanes) {
    const float m[6] = {0.9f, -0.2f, 6, 0.2f, 0.9f, -3};
    FenceBuffer planar(48 * 32 * 2), packed(48 * 32 * 2), a(40 * 40 * 2), b(40 * 40 * 2), expected(40 * 40 * 2);
    fill_noise(planar, 3);
    // The same picture packed and planar comes out the same.
    tavi_image_t p = record(planar.data(), 9, 48, 32), q = record(packed.data(), 13, 48, 32);
    for (int i = 0; i < 48 * 32; ++i)
        packed.data()[2 * i] = planar.data()[i],
                          packed.data()[2 * i + 1] = planar.data()[48 * 32 + (i % 2) * 24 * 32 + i / 2];
    tavi_image_t pa = record(a.data(), 9, 40, 40), qa = record(b.data(), 13, 40, 40);
    ASSERT_EQ(tavi_image_affine_transform_cpu(&p, &pa, m), 0);
    ASSERT_EQ(tavi_image_affine_transform_cpu(&q, &qa, m), 0);
    for (int i = 0; i < 40 * 40; ++i)
        expected.data()[2 * i] = a.data()[i],
                            expected.data()[2 * i + 1] = a.data()[40 * 40 + (i % 2) * 20 * 40 + i / 2];
    EXPECT_EQ(0, memcmp(b.data(), expected.data(), b.size()));
}

TEST(Affine, SolvesAndRefusesPoints) {
    float m[6];
    const float src[] = {0, 0, 10, 0, 0, 10}, dst[] = {5, 7, 25, 7, 5, -3};
    ASSERT_EQ(tavi_get_affine_transform_cpu(src, dst, 3, m), 0);
    const float exact[] = {2, 0, 5, 0, -1, 7};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(m[i], exact[i], 1e-5);

    // Five landmarks turned by 30 degrees, scaled by 1.5 and moved: found again from any two or more of them.
    const float face[] = {38.3f, 51.7f, 73.5f, 51.5f, 56.0f, 71.7f, 41.5f, 92.4f, 70.7f, 92.2f};
    float moved[10];
    const double c = 1.5 * std::cos(0.5235987755982988), s = 1.5 * std::sin(0.5235987755982988);
    for (int i = 0; i < 5; ++i) {
        moved[2 * i] = float(c * face[2 * i] - s * face[2 * i + 1] + 300);
        moved[2 * i + 1] = float(s * face[2 * i] + c * face[2 * i + 1] - 40);
    }
    for (int n : {2, 4, 5}) {
        ASSERT_EQ(tavi_get_affine_transform_cpu(face, moved, n, m), 0);
        const double want[] = {c, -s, 300, s, c, -40};
        for (int i = 0; i < 6; ++i)
            EXPECT_NEAR(m[i], want[i], 2e-3) << n << " points, element " << i;
    }

    const float line[] = {0, 0, 1, 1, 2, 2}, place[] = {4, 4, 4, 4, 4, 4}, nan[] = {0, 0, NAN, 1, 5, 2},
                inf[] = {0, 0, INFINITY, 1, 5, 2};
    EXPECT_EQ(tavi_get_affine_transform_cpu(line, dst, 3, m), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_get_affine_transform_cpu(place, dst, 2, m), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_get_affine_transform_cpu(src, place, 2, m), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_get_affine_transform_cpu(nan, dst, 3, m), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_get_affine_transform_cpu(inf, dst, 2, m), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_get_affine_transform_cpu(src, dst, 1, m), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_get_affine_transform_cpu(src, nullptr, 3, m), TAVI_RET_PARAM_ERR);
}

TEST(Affine, RefusesWhatItCannotWarp) {
    FenceBuffer src(30 * 30 * 3), dst(30 * 30 * 3);
    tavi_image_t from = record(src.data(), 1, 30, 30), to = record(dst.data(), 1, 30, 30),
                 other = record(dst.data(), 2, 30, 30);
    const float good[] = {1, 0, 0, 0, 1, 0}, flat[] = {1, 2, 0, 2, 4, 0}, nan[] = {NAN, 0, 0, 0, 1, 0}, zero[6] = {};
    EXPECT_EQ(tavi_image_affine_transform_cpu(&from, &to, flat), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_affine_transform_cpu(&from, &to, nan), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_affine_transform_cpu(&from, &to, zero), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_affine_transform_cpu(&from, &to, nullptr), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_affine_transform_cpu(&from, &other, good), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_affine_transform_cpu(nullptr, &to, good), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_affine_transform_cpu(&from, &from, good), TAVI_RET_PARAM_ERR);
    for (const auto& m :
         {std::array<float, 6>{5.35905817e-32f, 5.35564513e-32f, 11, 9.7281679e-32f, -6.25878449e-32f, 15},
          {7.17960263e-18f, 0, 15, -1.26978751e-19f, 2.88896923e-18f, 5},
          {0.342f, 548000, -76.6f, 0.74f, 1.764f, -23.4f},
          {1, 0, 3, 0, 1, 2}}) // nearly singular, and whole steps; also from a single row
        for (int h : {30, 1}) {
            tavi_image_t rows = record(src.data() + (30 - h) * 90, 1, 30, h);
            EXPECT_EQ(tavi_image_affine_transform_cpu(&rows, &to, m.data()), 0);
            EXPECT_TRUE(dst.intact());
        }
    for (float huge : {1e-30f, 1e30f, -3e8f}) { // far away or endless: black, and no fault
        const float m[] = {huge, 0, 0, 0, huge, 0};
        EXPECT_EQ(tavi_image_affine_transform_cpu(&from, &to, m), 0) << huge;
        EXPECT_TRUE(dst.intact());
    }
}

TEST(Crop, AttachesPooledMemoryAndGivesItBackOnFailure) {
    FenceBuffer src(ref_bytes(7, 64, 48));
    fill_noise(src, 1);
    tavi_image_t from = record(src.data(), 7, 64, 48), to = record(nullptr, 7, 30, 20);
    tavi_rect_t region = {3, 5, 40, 41}, outside = {0, 0, 64, 10}, empty = {5, 5, 4, 8};
    ASSERT_EQ(tavi_image_crop_and_resize_cpu_imp(&from, &region, &to), 0);
    ASSERT_NE(to.data, nullptr);
    EXPECT_EQ(tavi_mem_check_record_by_virt_addr(to.data, 0), 0);
    EXPECT_EQ(tavi_mem_free_by_virt_addr(to.data), 0);
    for (tavi_rect_t* bad : {&outside, &empty}) {
        to.data = nullptr;
        EXPECT_EQ(tavi_image_crop_and_resize_cpu_imp(&from, bad, &to), TAVI_RET_PARAM_ERR);
        EXPECT_EQ(to.data, nullptr);
    }
    tavi_image_t tiny = record(nullptr, 7, 1, 20);
    EXPECT_EQ(tavi_image_crop_and_resize_cpu_imp(&from, &region, &tiny), TAVI_RET_UNSUPPORTED);
    tavi_image_t other = record(nullptr, 8, 30, 20);
    EXPECT_EQ(tavi_image_crop_and_resize_cpu_imp(&from, &region, &other), TAVI_RET_PARAM_ERR);
    tavi_mem_stats_t stats;
    ASSERT_EQ(tavi_mem_get_stats(TAVI_MEM_TYPE_HEAP, &stats), 0);
    EXPECT_EQ(stats.live_count, 0u);
}

TEST(Crop, TheLastOddPixelSharesItsNeighboursChroma) {
    for (int f : {5, 7, 9, 11, 13}) {
        FenceBuffer src(ref_bytes(f, 5, 5)), dst(ref_bytes(f, 4, 4));
        memset(src.data(), 77, src.size());
        tavi_image_t from = record(src.data(), f, 5, 5), to = record(dst.data(), f, 4, 4);
        for (tavi_rect_t region : {tavi_rect_t{4, 4, 4, 4}, {4, 0, 4, 3}, {0, 4, 3, 4}}) {
            ASSERT_EQ(tavi_image_crop_and_resize_cpu_imp(&from, &region, &to), 0);
            for (size_t i = 0; i < dst.size(); ++i)
                ASSERT_EQ(dst.data()[i], 77) << f;
        }
    }
}

TEST(Crop, WithoutScalingCopiesTheRegion) {
    for (int f = 0; f < 16; ++f) {
        const int w = 41, h = 30;
        FenceBuffer src(ref_bytes(f, w, h)), dst(ref_bytes(f, 17, 12));
        fill_noise(src, f);
        tavi_image_t from = record(src.data(), f, w, h), to = record(dst.data(), f, 17, 12);
        tavi_rect_t region = {6, 8, 22, 19};
        ASSERT_EQ(tavi_image_crop_and_resize_cpu_imp(&from, &region, &to), 0);
        const RefImage s = ref_read(src.data(), f, w, h), d = ref_read(dst.data(), f, 17, 12);
        for (int y = 0; y < 12; ++y)
            for (int x = 0; x < 16; ++x) // an odd last column shares its neighbour's chroma
                ASSERT_TRUE(s.at(x + 6, y + 8).a == d.at(x, y).a && s.at(x + 6, y + 8).b == d.at(x, y).b) << f;
    }
}

TEST(Transpose, NeedsTheExchangedSizeAndTheSameFormat) {
    FenceBuffer src(40 * 20 * 3), dst(40 * 20 * 3);
    fill_noise(src, 2);
    tavi_image_t from = record(src.data(), 1, 40, 20), to = record(dst.data(), 1, 20, 40),
                 same = record(dst.data(), 1, 40, 20);
    ASSERT_EQ(tavi_image_transpose_cpu(&from, &to), 0);
    EXPECT_EQ(0, memcmp(dst.data() + 3 * (20 * 7 + 4), src.data() + 3 * (40 * 4 + 7), 3));
    EXPECT_EQ(tavi_image_transpose_cpu(&from, &same), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_transpose_cpu(&from, nullptr), TAVI_RET_PARAM_ERR);
    tavi_image_t bgr = to;
    bgr.pixel_format = TAVI_PIXEL_FORMAT_BGR888;
    EXPECT_EQ(tavi_image_transpose_cpu(&from, &bgr), TAVI_RET_PARAM_ERR);
}

} // namespace
} // namespace tavi::test
