// SPDX-License-Identifier: MIT
#include "support/reference.h"

#include <algorithm>
#include <cmath>

namespace tavi::test {
namespace {

// Formats by number: 0 grey, 1 RGB, 2 BGR, 3 RGBA, 4 BGRA, 5 to 8 4:2:0, 9 to 14 4:2:2, 15 grey of 16 bits.
bool yuv(int f) { return f >= 5 && f <= 14; }
bool halved_down(int f) { return f >= 5 && f <= 8; }
bool packed(int f) { return f == 13 || f == 14; }

// Where U (0) or V (1) of chroma sample (x, y) lies.
size_t chroma_index(int f, int w, int h, int x, int y, int which) {
    const size_t cols = w / 2, luma = static_cast<size_t>(w) * h, rows = halved_down(f) ? h / 2 : h;
    if (packed(f))
        return static_cast<size_t>(y) * 2 * w + 4 * x + 2 * which + (f == 13 ? 1 : 0);
    const bool v_first = f == 6 || f == 8 || f == 10 || f == 12;
    const size_t plane = v_first ? 1 - which : which;
    const bool pairs = f == 7 || f == 8 || f == 11 || f == 12;
    const size_t at = static_cast<size_t>(y) * cols + x;
    return pairs ? luma + 2 * at + plane : luma + plane * cols * rows + at;
}

size_t luma_index(int f, int w, int x, int y) {
    const size_t at = static_cast<size_t>(y) * w + x;
    return packed(f) ? 2 * at + (f == 14) : at;
}

double clamp(double v, double lo, double hi) { return std::min(std::max(v, lo), hi); }

Color yuv_to_rgb(const Color& p) {
    const double y = (p.a - 16) * 255 / 219, u = (p.b - 128) * 255 / 224, v = (p.c - 128) * 255 / 224;
    return {clamp(y + 1.402 * v, 0, 255), clamp(y - (0.114 * 1.772 * u + 0.299 * 1.402 * v) / 0.587, 0, 255),
            clamp(y + 1.772 * u, 0, 255)};
}

double luma(const Color& p) { return 0.299 * p.a + 0.587 * p.b + 0.114 * p.c; }

Color rgb_to_yuv(const Color& p) {
    const double y = luma(p);
    return {16 + y * 219 / 255, 128 + (p.c - y) / 1.772 * 224 / 255, 128 + (p.a - y) / 1.402 * 224 / 255};
}

double tap(const std::vector<double>& line, int count, double at) {
    return line[static_cast<size_t>(clamp(at, 0, count - 1))];
}

std::vector<double> scale_line(const std::vector<double>& line, int dst, int num, int den, double offset,
                               int method) {
    const int count = static_cast<int>(line.size());
    if (method == 0)
        method = 2 * den < num ? 3 : 2;
    std::vector<double> out(dst);
    for (int i = 0; i < dst; ++i) {
        const double begin = static_cast<double>(i) * num / den + offset;
        const double end = static_cast<double>(i + 1) * num / den + offset;
        const double centre = (i + 0.5) * num / den + offset;
        if (method == 1) {
            out[i] = tap(line, count, std::floor(centre));
        } else if (method == 2) {
            const double at = centre - 0.5, left = std::floor(at);
            out[i] = tap(line, count, left) * (1 - (at - left)) + tap(line, count, left + 1) * (at - left);
        } else {
            double sum = 0;
            for (double k = std::floor(begin); k < end; ++k)
                sum += tap(line, count, k) * (std::min(end, k + 1) - std::max(begin, k));
            out[i] = sum / (end - begin);
        }
    }
    return out;
}

} // namespace

size_t ref_bytes(int f, int w, int h) {
    const size_t n = static_cast<size_t>(w) * h;
    return f == 0 ? n : f <= 2 ? 3 * n : f <= 4 ? 4 * n : f <= 8 ? n * 3 / 2 : 2 * n;
}

RefImage ref_read(const uint8_t* d, int f, int w, int h) {
    RefImage image;
    image.model = yuv(f) ? Model::yuv : f >= 1 && f <= 4 ? Model::rgb : Model::gray;
    image.width = w, image.height = h;
    image.pixel.resize(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            Color& p = image.at(x, y);
            const size_t at = static_cast<size_t>(y) * w + x;
            if (yuv(f)) {
                const int cx = std::min(x / 2, w / 2 - 1), cy = halved_down(f) ? std::min(y / 2, h / 2 - 1) : y;
                p = {double(d[luma_index(f, w, x, y)]), double(d[chroma_index(f, w, h, cx, cy, 0)]),
                     double(d[chroma_index(f, w, h, cx, cy, 1)])};
            } else if (f == 0) {
                p.a = d[at];
            } else if (f == 15) {
                p.a = (d[2 * at] + 256.0 * d[2 * at + 1]) / 257;
            } else {
                const uint8_t* q = d + at * (f <= 2 ? 3 : 4);
                p = f == 1 || f == 3 ? Color{double(q[0]), double(q[1]), double(q[2])}
                                     : Color{double(q[2]), double(q[1]), double(q[0])};
            }
        }
    return image;
}

RefImage ref_convert(const RefImage& in, int f) {
    RefImage out = in;
    out.model = yuv(f) ? Model::yuv : f >= 1 && f <= 4 ? Model::rgb : Model::gray;
    for (Color& p : out.pixel) {
        if (in.model == out.model)
            continue;
        if (in.model == Model::gray)
            p = out.model == Model::rgb ? Color{p.a, p.a, p.a} : Color{p.a, 128, 128};
        else if (in.model == Model::rgb)
            p = out.model == Model::yuv ? rgb_to_yuv(p) : Color{luma(p), 0, 0};
        else
            p = out.model == Model::rgb ? yuv_to_rgb(p) : Color{p.a, 0, 0};
    }
    return out;
}

std::vector<double> ref_samples(const RefImage& image, int f) {
    const int w = image.width, h = image.height;
    std::vector<double> out(ref_bytes(f, w, h), 128);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const Color& p = image.at(x, y);
            const size_t at = static_cast<size_t>(y) * w + x;
            if (yuv(f)) {
                out[luma_index(f, w, x, y)] = p.a;
            } else if (f == 0) {
                out[at] = p.a;
            } else if (f == 15) {
                out[2 * at] = p.a;
            } else {
                double* q = &out[at * (f <= 2 ? 3 : 4)];
                q[f == 1 || f == 3 ? 0 : 2] = p.a;
                q[1] = p.b;
                q[f == 1 || f == 3 ? 2 : 0] = p.c;
                if (f >= 3)
                    q[3] = 255;
            }
        }
    const int tall = halved_down(f) ? 2 : 1;
    for (int cy = 0; yuv(f) && cy < h / tall; ++cy)
        for (int cx = 0; cx < w / 2; ++cx) {
            double u = 0, v = 0;
            for (int k = 0; k < 2 * tall; ++k) {
                const Color& p = image.at(2 * cx + k % 2, tall * cy + k / 2);
                u += p.b / (2 * tall), v += p.c / (2 * tall);
            }
            out[chroma_index(f, w, h, cx, cy, 0)] = u;
            out[chroma_index(f, w, h, cx, cy, 1)] = v;
        }
    return out;
}

double ref_difference(const std::vector<double>& s, const uint8_t* d, int f) {
    double most = 0;
    for (size_t i = 0; i < s.size(); i += f == 15 ? 2 : 1)
        most = std::max(most, std::fabs(s[i] - (f == 15 ? (d[i] + 256.0 * d[i + 1]) / 257 : d[i])));
    return most;
}

RefImage ref_transform(const RefImage& in, int mode) {
    RefImage out = in;
    if (mode == 4 || mode == 7 || mode == 8)
        std::swap(out.width, out.height);
    const int w = in.width, h = in.height;
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x)
            switch (mode) {
            case 0:
                out.at(x, y) = in.at(x, y);
                break;
            case 1:
                out.at(x, y) = in.at(w - 1 - x, y);
                break;
            case 2:
                out.at(x, y) = in.at(x, h - 1 - y);
                break;
            case 3:
                out.at(x, y) = in.at(w - 1 - x, h - 1 - y);
                break;
            case 4:
                out.at(x, y) = in.at(y, h - 1 - x);
                break;
            case 7:
                out.at(x, y) = in.at(w - 1 - y, x);
                break;
            default:
                out.at(x, y) = in.at(y, x);
                break;
            }
    return out;
}

std::vector<double> ref_scale(const std::vector<double>& plane, int cols, int rows, int step, int dst_cols,
                              int dst_rows, int num_x, int den_x, double offset_x, int num_y, int den_y,
                              double offset_y, int method) {
    std::vector<double> out(static_cast<size_t>(dst_cols) * dst_rows * step),
        wide(static_cast<size_t>(dst_cols) * rows);
    for (int c = 0; c < step; ++c) {
        std::vector<double> line(cols), down(rows);
        for (int y = 0; y < rows; ++y) {
            for (int x = 0; x < cols; ++x)
                line[x] = plane[(static_cast<size_t>(y) * cols + x) * step + c];
            const std::vector<double> scaled = scale_line(line, dst_cols, num_x, den_x, offset_x, method);
            std::copy(scaled.begin(), scaled.end(), wide.begin() + static_cast<ptrdiff_t>(y) * dst_cols);
        }
        for (int x = 0; x < dst_cols; ++x) {
            for (int y = 0; y < rows; ++y)
                down[y] = wide[static_cast<size_t>(y) * dst_cols + x];
            const std::vector<double> scaled = scale_line(down, dst_rows, num_y, den_y, offset_y, method);
            for (int y = 0; y < dst_rows; ++y)
                out[(static_cast<size_t>(y) * dst_cols + x) * step + c] = scaled[y];
        }
    }
    return out;
}

} // namespace tavi::test
