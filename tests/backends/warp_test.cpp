// SPDX-License-Identifier: MIT
// The CPU routines that move pixels: crop, transpose, affine maps and warps.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <tuple>

#include "backends/cpu/tavi_image_cpu.h"
#include "services/tavi_mem.h"
#include "support/pixels.h"

namespace tavi::test {
namespace {

// A plane warped in double precision; black outside.
double warp_error(const PlaneView& s, const PlaneView& d, const PlaneRule& grid, const float* matrix,
                  const uint8_t* black, bool wide) {
    const std::array<double, 6> m = {matrix[0], matrix[1], matrix[2], matrix[3], matrix[4], matrix[5]};
    const double det = m[0] * m[4] - m[1] * m[3];
    const double kx = 1 << grid.xshift, ky = 1 << grid.yshift;
    double most = 0;
    for (int y = 0; y < d.rows; ++y)
        for (int x = 0; x < d.cols; ++x) {
            // Pixel position of the sample, taken back through the map, in samples of the source plane.
            const double px = kx * x + (kx - 1) / 2 - m[2], py = ky * y + (ky - 1) / 2 - m[5];
            const double sx = ((m[4] * px - m[1] * py) / det - (kx - 1) / 2) / kx;
            const double sy = ((m[0] * py - m[3] * px) / det - (ky - 1) / 2) / ky;
            const int ix = int(std::floor(sx)), iy = int(std::floor(sy));
            const double fx = sx - ix, fy = sy - iy;
            for (int c = 0; c < (wide ? 1 : d.step); ++c) {
                const auto value = [&](const uint8_t* p) { return wide ? p[0] + 256.0 * p[1] : p[c]; };
                const auto at = [&](int u, int v) {
                    return value(u < 0 || v < 0 || u >= s.cols || v >= s.rows ? black : s.at(u, v));
                };
                const double v = (at(ix, iy) * (1 - fx) + at(ix + 1, iy) * fx) * (1 - fy) +
                                 (at(ix, iy + 1) * (1 - fx) + at(ix + 1, iy + 1) * fx) * fy;
                most = std::max(most, std::fabs(v - value(d.at(x, y))) / (wide ? 257 : 1));
            }
        }
    return most;
}

TEST(Affine, WithinTwoOfTheReference) {
    std::mt19937 random(7);
    for (int f = 0; f < 16; ++f)
        for (int i = 0; i < 12 && f != 13 && f != 14; ++i) {
            const int w = 20 + random() % 100, h = 20 + random() % 60, dw = 2 + random() % 120,
                      dh = 2 + random() % 50;
            const double angle = i * 0.7, scale = std::pow(2.0, (i - 6) / 3.0);
            const float m[6] = {
                float(std::cos(angle) * scale), float(-std::sin(angle) * scale),      float(random() % 50),
                float(std::sin(angle) * scale), float(std::cos(angle) * scale * 1.1), float(random() % 40) - 5};
            Pixels src(f, w, h, i % 4), dst(f, dw, dh, i % 3), black(f, 2, 2);
            ASSERT_EQ(tavi_image_affine_transform_cpu(&src.noise(i).img, &dst.img, m), 0);
            ASSERT_TRUE(dst.intact());
            const ImageView s = src.view(), d = dst.view(), b = black.flat({0, 0, 0}).view();
            if (is_yuv(f)) {
                ASSERT_EQ(dst.error(dst.colors()), 0); // 128 in the bytes that odd sizes leave unused
            }
            for (int p = 0; p < d.planes(); ++p)
                ASSERT_LE(warp_error(s.plane[p], d.plane[p], d.format->plane[p], m, b.plane[p].at(0, 0), f == 15),
                          2.0)
                    << d.format->name << " plane " << p << " turn " << i;
        }
}

// The same picture packed and planar comes out the same, with the black of the setting around it.
TEST(Affine, PackedFormatsGoThroughPlanesAndKeepTheirRange) {
    ::setenv("TAVI_YUV", "bt709-full", 1);
    const float m[6] = {0.9f, -0.2f, 6, 0.2f, 0.9f, -3};
    Pixels planar(9, 48, 32), from_planar(9, 40, 40), packed(13, 48, 32), from_packed(13, 40, 40);
    ASSERT_EQ(tavi_image_affine_transform_cpu(&planar.noise(3).img, &from_planar.img, m), 0);
    ASSERT_EQ(tavi_image_affine_transform_cpu(&packed.set(planar.colors()).img, &from_packed.img, m), 0);
    EXPECT_EQ(from_packed.error(from_planar.colors()), 0);
    EXPECT_EQ(from_planar.data()[0], 0);
}

TEST(Affine, SolvesAndRefusesPoints) {
    float m[6];
    const float src[] = {3, 1, 13, 2, 5, 11}, dst[] = {15, 7.5f, 39, 11.5f, 59, -1.5f};
    ASSERT_EQ(tavi_get_affine_transform_cpu(src, dst, 3, m), 0);
    const float exact[] = {2, 4, 5, 0.5f, -1, 7};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(m[i], exact[i], 1e-5);

    // Five landmarks turned by 30 degrees, scaled by 1.5 and moved: found again from any two or more of them.
    const float face[] = {38.3f, 51.7f, 73.5f, 51.5f, 56.0f, 71.7f, 41.5f, 92.4f, 70.7f, 92.2f};
    const double c = 1.5 * std::cos(0.5235987755982988), s = 1.5 * std::sin(0.5235987755982988);
    const double want[] = {c, -s, 300, s, c, -40};
    float moved[10];
    for (int i = 0; i < 10; i += 2) {
        moved[i] = float(c * face[i] - s * face[i + 1] + 300);
        moved[i + 1] = float(s * face[i] + c * face[i + 1] - 40);
    }
    for (int n : {2, 4, 5}) {
        ASSERT_EQ(tavi_get_affine_transform_cpu(face, moved, n, m), 0);
        for (int i = 0; i < 6; ++i)
            EXPECT_NEAR(m[i], want[i], 2e-3) << n << " points, element " << i;
    }

    const float line[] = {0, 0, 1, 1, 2, 2}, place[] = {4, 4, 4, 4, 4, 4}, nan[] = {0, 0, NAN, 1, 5, 2},
                inf[] = {0, 0, INFINITY, 1, 5, 2};
    const std::tuple<const float*, const float*, int> refused[] = {{line, dst, 3},   {place, dst, 2}, {src, place, 2},
                                                                   {nan, dst, 3},    {inf, dst, 2},   {src, dst, 1},
                                                                   {src, nullptr, 3}};
    for (const auto& [from, to, n] : refused)
        EXPECT_EQ(tavi_get_affine_transform_cpu(from, to, n, m), TAVI_RET_PARAM_ERR) << from << " " << n;
}

TEST(Affine, RefusesWhatItCannotWarp) {
    Pixels src(1, 30, 30), dst(1, 30, 30), other(2, 30, 30);
    const float good[] = {1, 0, 0, 0, 1, 0}, flat[] = {1, 2, 0, 2, 4, 0}, nan[] = {NAN, 0, 0, 0, 1, 0}, zero[6] = {};
    const std::tuple<tavi_image_t*, tavi_image_t*, const float*> refused[] = {
        {&src.img, &dst.img, flat},    {&src.img, &dst.img, nan},    {&src.img, &dst.img, zero},
        {&src.img, &dst.img, nullptr}, {&src.img, &other.img, good}, {nullptr, &dst.img, good},
        {&src.img, &src.img, good}};
    for (const auto& [from, to, matrix] : refused)
        EXPECT_EQ(tavi_image_affine_transform_cpu(from, to, matrix), TAVI_RET_PARAM_ERR) << matrix;
    // Nearly singular, and whole steps; far away or endless: black, and no fault. Also from a single row.
    for (const auto& m :
         {std::array<float, 6>{5.35905817e-32f, 5.35564513e-32f, 11, 9.7281679e-32f, -6.25878449e-32f, 15},
          {7.17960263e-18f, 0, 15, -1.26978751e-19f, 2.88896923e-18f, 5},
          {0.342f, 548000, -76.6f, 0.74f, 1.764f, -23.4f},
          {1, 0, 3, 0, 1, 2},
          {1e-30f, 0, 0, 0, 1e-30f, 0},
          {1e30f, 0, 0, 0, 1e30f, 0},
          {-3e8f, 0, 0, 0, -3e8f, 0}})
        for (unsigned h : {30, 1}) {
            tavi_image_t rows = src.img;
            rows.data += (30 - h) * 90, rows.height = h;
            EXPECT_EQ(tavi_image_affine_transform_cpu(&rows, &dst.img, m.data()), 0) << m[0];
            EXPECT_TRUE(dst.intact());
        }
}

int crop(Pixels& src, tavi_rect_t region, tavi_image_t* dst) {
    return tavi_image_crop_and_resize_cpu_imp(&src.img, &region, dst);
}

TEST(Crop, AttachesPooledMemoryAndGivesItBackOnFailure) {
    Pixels src(7, 64, 48);
    const struct {
        tavi_rect_t region;
        int format, width, result;
    } rows[] = {{{3, 5, 40, 41}, 7, 30, 0},
                {{0, 0, 64, 10}, 7, 30, TAVI_RET_PARAM_ERR},
                {{0, 0, 10, 48}, 7, 30, TAVI_RET_PARAM_ERR},
                {{5, 5, 4, 8}, 7, 30, TAVI_RET_PARAM_ERR},
                {{3, 5, 40, 41}, 7, 1, TAVI_RET_UNSUPPORTED},
                {{3, 5, 40, 41}, 8, 30, TAVI_RET_PARAM_ERR}};
    for (const auto& row : rows) {
        tavi_image_t to = Pixels(row.format, row.width, 20).img;
        to.data = nullptr;
        EXPECT_EQ(crop(src, row.region, &to), row.result);
        EXPECT_EQ(to.data != nullptr, row.result == 0);
        EXPECT_EQ(tavi_mem_free_by_virt_addr(to.data), row.result ? TAVI_RET_PARAM_ERR : 0);
    }
    tavi_mem_stats_t stats;
    ASSERT_EQ(tavi_mem_get_stats(TAVI_MEM_TYPE_HEAP, &stats), 0);
    EXPECT_EQ(stats.live_count, 0u);
}

TEST(Crop, BytesThatOddSizesLeaveUnusedAreNeutral) {
    for (int f = 5; f < 15; ++f) {
        Pixels src(f, 41, 30), dst(f, 17, 11);
        ASSERT_EQ(crop(src.noise(f), {6, 8, 22, 18}, &dst.img), 0);
        EXPECT_EQ(dst.error(dst.colors()), 0) << f;
    }
}

TEST(Transpose, NeedsTheExchangedSizeAndTheSameFormat) {
    Pixels src(7, 41, 20), dst(7, 20, 41), wide(7, 21, 41), high(7, 20, 42), other(8, 20, 41), square(1, 20, 20);
    ASSERT_EQ(tavi_image_transpose_cpu(&src.flat({9, 80, 200}).img, &dst.img), 0);
    EXPECT_EQ(dst.error(ref_transform(src.colors(), 8)), 0);
    ASSERT_EQ(tavi_image_transpose_cpu(&dst.noise(2).img, &src.img), 0);
    EXPECT_EQ(src.colors().at(3, 7)[0], dst.colors().at(7, 3)[0]);
    for (tavi_image_t* refused : {&wide.img, &high.img, &other.img, static_cast<tavi_image_t*>(nullptr)})
        EXPECT_EQ(tavi_image_transpose_cpu(&src.img, refused), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_transpose_cpu(&square.img, &square.img), TAVI_RET_PARAM_ERR);
}

} // namespace
} // namespace tavi::test
