// SPDX-License-Identifier: MIT
// Affine maps: the map that takes points to points, and the warp of an image by one. Pixel (x, y) is the sample at
// that integer position; a chroma sample stands in the middle of the pixels it covers.
#include "backends/cpu/tavi_image_cpu.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "image/cpu_image.h"
#include "image/scratch.h"
#include "kernels/kernels.h"
#include "pixels/fill.h"
#include "pixels/odd_edges.h"

#define TAVI_LOG_TAG "tavi-cpu"
#include "services/log.h"
#include "services/yuv_setting.h"

namespace tavi {
namespace {

/// x' = a x + b y + c, y' = d x + e y + f
struct Affine {
    double a, b, c, d, e, f;
};

bool is_finite(const Affine& m) {
    return std::isfinite(m.a) && std::isfinite(m.b) && std::isfinite(m.c) && std::isfinite(m.d) &&
           std::isfinite(m.e) && std::isfinite(m.f);
}

bool store(const Affine& m, float* matrix) {
    const float out[6] = {static_cast<float>(m.a), static_cast<float>(m.b), static_cast<float>(m.c),
                          static_cast<float>(m.d), static_cast<float>(m.e), static_cast<float>(m.f)};
    if (!std::all_of(out, out + 6, [](float v) { return std::isfinite(v); }))
        return false;
    std::memcpy(matrix, out, sizeof out);
    return true;
}

// Three points determine the map: solved for the edges from the first point.
bool solve_affine(const float* s, const float* t, Affine& m) {
    const double x1 = double(s[2]) - s[0], y1 = double(s[3]) - s[1], x2 = double(s[4]) - s[0],
                 y2 = double(s[5]) - s[1];
    const double u1 = double(t[2]) - t[0], v1 = double(t[3]) - t[1], u2 = double(t[4]) - t[0],
                 v2 = double(t[5]) - t[1];
    const double det = x1 * y2 - x2 * y1;
    if (!(std::fabs(det) > 1e-9 * (x1 * x1 + y1 * y1 + x2 * x2 + y2 * y2)))
        return false; // on one line, or not numbers
    m.a = (u1 * y2 - u2 * y1) / det;
    m.b = (u2 * x1 - u1 * x2) / det;
    m.d = (v1 * y2 - v2 * y1) / det;
    m.e = (v2 * x1 - v1 * x2) / det;
    m.c = t[0] - m.a * s[0] - m.b * s[1];
    m.f = t[1] - m.d * s[0] - m.e * s[1];
    return true;
}

// Least squares over rotation, uniform scale and shift: Umeyama 1991, which in the plane needs no decomposition.
bool fit_similarity(const float* s, const float* t, int n, Affine& m) {
    double sx = 0, sy = 0, tx = 0, ty = 0;
    for (int i = 0; i < n; ++i)
        sx += s[2 * i], sy += s[2 * i + 1], tx += t[2 * i], ty += t[2 * i + 1];
    sx /= n, sy /= n, tx /= n, ty /= n;
    double spread = 0, dot = 0, cross = 0, size = 0;
    for (int i = 0; i < n; ++i) {
        const double x = s[2 * i] - sx, y = s[2 * i + 1] - sy, u = t[2 * i] - tx, v = t[2 * i + 1] - ty;
        spread += x * x + y * y;
        dot += x * u + y * v;
        cross += x * v - y * u;
        size += u * u + v * v;
    }
    const double offset = sx * sx + sy * sy;
    if (!(spread > 1e-12 * offset) || !(dot * dot + cross * cross > 1e-18 * spread * size))
        return false; // all in one place, or not numbers
    m.a = m.e = dot / spread;
    m.d = cross / spread;
    m.b = -m.d;
    m.c = tx - m.a * sx - m.b * sy;
    m.f = ty - m.d * sx - m.e * sy;
    return true;
}

bool invert(const Affine& m, Affine& inverse) {
    const double det = m.a * m.e - m.b * m.d;
    if (!is_finite(m) || !(std::fabs(det) > 1e-12 * (std::fabs(m.a * m.e) + std::fabs(m.b * m.d))))
        return false;
    inverse.a = m.e / det;
    inverse.b = -m.b / det;
    inverse.d = -m.d / det;
    inverse.e = m.a / det;
    inverse.c = -(inverse.a * m.c + inverse.b * m.f);
    inverse.f = -(inverse.d * m.c + inverse.e * m.f);
    return is_finite(inverse);
}

// The same map for a plane whose samples stand every 2^shift pixels, in the middle of the pixels they cover.
Affine for_plane(const Affine& m, const PlaneRule& grid) {
    const double kx = 1 << grid.xshift, ky = 1 << grid.yshift, ox = (kx - 1) / 2, oy = (ky - 1) / 2;
    return {m.a,           m.b * ky / kx, (m.a * ox + m.b * oy + m.c - ox) / kx,
            m.d * kx / ky, m.e,           (m.d * ox + m.e * oy + m.f - oy) / ky};
}

struct Range {
    int begin;
    int end;
};

// The columns x of [range) with lo <= start + slope * x <= hi.
Range columns_within(Range range, double start, double slope, double lo, double hi) {
    double first = range.begin, last = range.end - 1.0;
    if (!(lo <= hi))
        return {range.begin, range.begin};

    if (slope == 0) {
        if (!(start >= lo && start <= hi))
            return {range.begin, range.begin};
    } else {
        const double at_lo = (lo - start) / slope, at_hi = (hi - start) / slope;
        first = std::max(first, std::ceil(std::min(at_lo, at_hi)));
        last = std::min(last, std::floor(std::max(at_lo, at_hi)));
    }
    if (!(first <= last))
        return {range.begin, range.begin};
    return {static_cast<int>(first), static_cast<int>(last) + 1};
}

constexpr int kBlock = 64;            // columns between exact positions: the 16.16 steps drift by less than 1/1000
constexpr double kMargin = 1.0 / 256; // keeps drift and rounding inside the source

class PlaneWarp {
public:
    PlaneWarp(const PlaneView& src, const PlaneView& dst, const Affine& map, const uint8_t* black, bool wide)
        : src_(src), dst_(dst), map_(map), dx_(step(map.a)), dy_(step(map.d)), wide_(wide),
          channels_(wide ? 1 : dst.step) {
        std::memcpy(black_, black, 4);
    }

    void run() {
        for (int y = 0; y < dst_.rows; ++y)
            row(y);
    }

private:
    // A run of more than one column has steps smaller than an image's side.
    static int32_t step(double v) {
        return static_cast<int32_t>(std::floor(std::clamp<double>(v, -kMaxSide, kMaxSide) * 65536 + 0.5));
    }

    void row(int y) {
        const double sx = map_.b * y + map_.c, sy = map_.e * y + map_.f;
        // Where any of the four samples is inside, and where all are.
        const Range all{0, dst_.cols};
        Range outer = columns_within(all, sx, map_.a, -1, src_.cols);
        outer = columns_within(outer, sy, map_.d, -1, src_.rows);
        Range inner = columns_within(outer, sx, map_.a, kMargin, src_.cols - 1 - kMargin);
        inner = columns_within(inner, sy, map_.d, kMargin, src_.rows - 1 - kMargin);
        // Solving for columns and evaluating positions round differently when the map is nearly singular: what counts
        // is the position that will be used.
        const auto inside = [&](int x) {
            const double at_x = sx + map_.a * x, at_y = sy + map_.d * x;
            return at_x >= kMargin && at_x <= src_.cols - 1 - kMargin && at_y >= kMargin &&
                   at_y <= src_.rows - 1 - kMargin;
        };
        while (inner.begin < inner.end && !inside(inner.begin))
            ++inner.begin;
        while (inner.begin < inner.end && !inside(inner.end - 1))
            --inner.end;
        if (wide_ || inner.begin >= inner.end)
            inner = {outer.end, outer.end};
        fill(y, 0, outer.begin);
        slow(y, sx, sy, outer.begin, inner.begin);
        fast(y, sx, sy, inner);
        slow(y, sx, sy, inner.end, outer.end);
        fill(y, outer.end, dst_.cols);
    }

    void fill(int y, int begin, int end) {
        for (int x = begin; x < end; ++x)
            std::memcpy(dst_.at(x, y), black_, dst_.step);
    }

    void fast(int y, double sx, double sy, Range range) {
        const auto span = kernels().affine_span[channels_ - 1];
        const bool single = range.end - range.begin == 1;
        const auto inside = [](double v) { return static_cast<int32_t>(v * 65536 + 0.5); }; // never negative
        for (int x = range.begin; x < range.end; x += kBlock) {
            const AffineSpan s = {src_.data,
                                  src_.pitch,
                                  src_.cols,
                                  src_.rows,
                                  inside(sx + map_.a * x),
                                  inside(sy + map_.d * x),
                                  single ? 0 : dx_,
                                  single ? 0 : dy_};
            span(s, dst_.at(x, y), std::min(kBlock, range.end - x));
        }
    }

    float sample(int x, int y, int c) const {
        const bool inside = x >= 0 && y >= 0 && x < src_.cols && y < src_.rows;
        if (wide_) {
            uint16_t v = 0; // black
            if (inside)
                std::memcpy(&v, src_.at(x, y), sizeof v);
            return v;
        }
        return inside ? src_.at(x, y)[c] : black_[c];
    }

    void slow(int y, double sx, double sy, int begin, int end) {
        for (int x = begin; x < end; ++x) {
            const double at_x = sx + map_.a * x, at_y = sy + map_.d * x;
            if (!(at_x > -1 && at_x < src_.cols && at_y > -1 && at_y < src_.rows)) {
                std::memcpy(dst_.at(x, y), black_, dst_.step);
                continue;
            }
            const int ix = static_cast<int>(std::floor(at_x)), iy = static_cast<int>(std::floor(at_y));
            const float fx = static_cast<float>(at_x - ix), fy = static_cast<float>(at_y - iy);
            for (int c = 0; c < channels_; ++c) {
                const float top = sample(ix, iy, c) * (1 - fx) + sample(ix + 1, iy, c) * fx;
                const float bottom = sample(ix, iy + 1, c) * (1 - fx) + sample(ix + 1, iy + 1, c) * fx;
                const float v = top * (1 - fy) + bottom * fy + 0.5f;
                if (wide_) {
                    const uint16_t out = static_cast<uint16_t>(v);
                    std::memcpy(dst_.at(x, y), &out, sizeof out);
                } else {
                    dst_.at(x, y)[c] = static_cast<uint8_t>(v);
                }
            }
        }
    }

    const PlaneView& src_;
    const PlaneView& dst_;
    const Affine map_;
    const int32_t dx_, dy_; ///< 16.16
    const bool wide_;
    const int channels_;
    uint8_t black_[4];
};

/// False when there is no memory for planes.
bool warp(const ImageView& src, const ImageView& dst, const Affine& to_source) {
    if (src.format->packed()) { // packed chroma has no plane of its own to sample
        Scratch scratch;
        const Format& planar = *find_format(TAVI_PIXEL_FORMAT_YUV422P_YU16);
        uint8_t* from = scratch.take<uint8_t>(byte_count(planar, src.width, src.height));
        uint8_t* to = scratch.take<uint8_t>(byte_count(planar, dst.width, dst.height));
        if (!from || !to)
            return false;
        const ImageView s = make_view(from, planar, src.width, src.height, src.color),
                        d = make_view(to, planar, dst.width, dst.height, dst.color);
        return convert_image(src, s) && warp(s, d, to_source) && convert_image(d, dst);
    }
    const Ink black = ink_of(dst, 0, 0, 0);
    for (int i = 0; i < dst.planes(); ++i)
        PlaneWarp(src.plane[i], dst.plane[i], for_plane(to_source, dst.format->plane[i]), black.bytes[i],
                  dst.format->sample_bytes() == 2)
            .run();
    return true;
}

} // namespace
} // namespace tavi

using namespace tavi;

int tavi_get_affine_transform_cpu(const float* src, const float* dst, int n, float* matrix) {
    if (!src || !dst || !matrix || n < 2) {
        LOG_ERROR("src=%p dst=%p matrix=%p n=%d: allowed are pointers that are not null and 2 points or more",
                  static_cast<const void*>(src), static_cast<const void*>(dst), static_cast<void*>(matrix), n);
        return TAVI_RET_PARAM_ERR;
    }
    Affine m = {};
    if (!(n == 3 ? solve_affine(src, dst, m) : fit_similarity(src, dst, n, m)) || !store(m, matrix)) {
        LOG_ERROR("the %d points from (%g %g) to (%g %g) do not determine a map", n, src[0], src[1], dst[0], dst[1]);
        return TAVI_RET_PARAM_ERR;
    }
    return TAVI_RET_SUCCESS;
}

int tavi_image_affine_transform_cpu(tavi_image_t* src, tavi_image_t* dst, const float* matrix) {
    const CpuPair pair(src, dst, yuv_setting(), InPlace::refused);
    if (pair.refusal) {
        LOG_ERROR("%s", pair.refusal.text);
        return pair.refusal.code;
    }
    if (!matrix) {
        LOG_ERROR("matrix=%p: allowed are 6 floats", static_cast<const void*>(matrix));
        return TAVI_RET_PARAM_ERR;
    }
    Affine to_source = {};
    if (!invert({matrix[0], matrix[1], matrix[2], matrix[3], matrix[4], matrix[5]}, to_source)) {
        LOG_ERROR("matrix=(%g %g %g; %g %g %g): allowed are finite numbers and a map that can be inverted", matrix[0],
                  matrix[1], matrix[2], matrix[3], matrix[4], matrix[5]);
        return TAVI_RET_PARAM_ERR;
    }
    const ImageView &s = pair.src.view(), &d = pair.dst.view();
    if (s.format != d.format) {
        LOG_ERROR("dst fmt=%d: allowed is the source's, %d", d.id(), s.id());
        return TAVI_RET_PARAM_ERR;
    }
    pair.dst.clear_tail();
    if (!warp(s, d, to_source)) {
        LOG_ERROR("no memory for temporaries: src size=%dx%d dst size=%dx%d", s.width, s.height, d.width, d.height);
        return TAVI_RET_FAIL;
    }
    return TAVI_RET_SUCCESS;
}
