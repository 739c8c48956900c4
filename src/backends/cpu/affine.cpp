// SPDX-License-Identifier: MIT
// The contract of affine maps: the map that takes points to points, and the warp of an image by one.
#include "backends/cpu/tavi_image_cpu.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "image/cpu_image.h"
#include "pixels/warp.h"

#define TAVI_LOG_TAG "tavi-cpu"
#include "services/log.h"
#include "services/yuv_setting.h"

namespace tavi {
namespace {

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
    if (!warp_image(s, d, to_source)) {
        LOG_ERROR("no memory for temporaries: src size=%dx%d dst size=%dx%d", s.width, s.height, d.width, d.height);
        return TAVI_RET_FAIL;
    }
    return TAVI_RET_SUCCESS;
}
