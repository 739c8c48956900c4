// SPDX-License-Identifier: MIT
#include "support/reference.h"

#include <algorithm>
#include <cmath>

namespace tavi::test {
namespace {

// Formats by number: 0 grey, 1 RGB, 2 BGR, 3 RGBA, 4 BGRA, 5 to 8 4:2:0, 9 to 14 4:2:2, 15 grey of 16 bits.
bool halved_down(int f) { return f >= 5 && f <= 8; }

Model model_of(int f) { return f >= 5 && f <= 14 ? Model::yuv : f >= 1 && f <= 4 ? Model::rgb : Model::gray; }

int components(int f) { return model_of(f) == Model::gray ? 1 : 3; }

// Where a component of pixel (x, y) lies. An odd last column or row has no chroma of its own: it has its neighbour's.
size_t index(int f, int w, int h, int x, int y, int c) {
    const size_t at = static_cast<size_t>(y) * w + x;
    const bool swapped = f % 2 == 0; // B or V first
    if (model_of(f) == Model::gray)
        return at << (f == 15);
    if (model_of(f) == Model::rgb)
        return at * (f <= 2 ? 3 : 4) + (swapped ? 2 - c : c);
    const bool packed = f == 13 || f == 14;
    if (c == 0)
        return packed ? 2 * at + (f == 14) : at;
    const int cols = w / 2, rows = halved_down(f) ? h / 2 : h;
    const int cx = std::min(x / 2, cols - 1), cy = std::min(halved_down(f) ? y / 2 : y, rows - 1);
    if (packed)
        return static_cast<size_t>(y) * 2 * w + 4 * cx + 2 * (c - 1) + (f == 13);
    const bool pairs = f == 7 || f == 8 || f == 11 || f == 12;
    const size_t luma = static_cast<size_t>(w) * h, sample = static_cast<size_t>(cy) * cols + cx;
    const size_t plane = swapped ? 2 - c : c - 1;
    return pairs ? luma + 2 * sample + plane : luma + plane * cols * rows + sample;
}

Color yuv_to_rgb(const Color& p) {
    const double y = (p[0] - 16) * 255 / 219, u = (p[1] - 128) * 255 / 224, v = (p[2] - 128) * 255 / 224;
    return {std::clamp(y + 1.402 * v, 0.0, 255.0),
            std::clamp(y - (0.114 * 1.772 * u + 0.299 * 1.402 * v) / 0.587, 0.0, 255.0),
            std::clamp(y + 1.772 * u, 0.0, 255.0)};
}

double luma(const Color& p) { return 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]; }

Color rgb_to_yuv(const Color& p) {
    const double y = luma(p);
    return {16 + y * 219 / 255, 128 + (p[2] - y) / 1.772 * 224 / 255, 128 + (p[0] - y) / 1.402 * 224 / 255};
}

double windowed(int method, double x) {
    const auto sinc = [](double t) { return t == 0 ? 1 : std::sin(M_PI * t) / (M_PI * t); };
    if (method == 7)
        return x > -0.5 + 1e-9 && x <= 0.5 + 1e-9;
    x = std::fabs(x);
    if (method == 6)
        return std::max(0.0, 1 - x);
    if (method == 5)
        return x < 3 ? sinc(x) * sinc(x / 3) : 0;
    return x < 1 ? 1.5 * x * x * x - 2.5 * x * x + 1 : x < 2 ? -0.5 * (x * x * x - 5 * x * x + 8 * x - 4) : 0;
}

void scale_line(const double* in, double* out, size_t stride, const RefAxis& a, int method) {
    const auto tap = [&](double at) { return in[static_cast<size_t>(std::clamp(at, 0.0, a.src - 1.0)) * stride]; };
    if (method == 0)
        method = 2 * a.den < a.num ? 3 : 2;
    for (int i = 0; i < a.dst; ++i) {
        const double begin = static_cast<double>(i) * a.num / a.den + a.offset;
        const double end = static_cast<double>(i + 1) * a.num / a.den + a.offset;
        double centre = (i + 0.5) * a.num / a.den + a.offset;
        if (method >= 4) // what lies behind the last sample is taken at its end
            centre = std::min(centre, double(a.src));
        double sum = 0;
        if (method == 1) {
            sum = tap(std::floor(centre));
        } else if (method == 2) {
            const double at = centre - 0.5, left = std::floor(at);
            sum = tap(left) * (1 - (at - left)) + tap(left + 1) * (at - left);
        } else if (method > 3) { // of the samples that there are
            double total = 0;
            for (int k = 0; k < a.src; ++k) {
                const double weight = windowed(method, (k + 0.5 - centre) / std::max(1.0, double(a.num) / a.den));
                sum += in[k * stride] * weight;
                total += weight;
            }
            sum /= total;
        } else {
            for (double k = std::floor(begin); k < end; ++k)
                sum += tap(k) * (std::min(end, k + 1) - std::max(begin, k)) / (end - begin);
        }
        out[i * stride] = sum;
    }
}

} // namespace

size_t ref_bytes(int f, int w, int h) {
    const size_t n = static_cast<size_t>(w) * h;
    return f == 0 ? n : f <= 2 ? 3 * n : f <= 4 ? 4 * n : f <= 8 ? n * 3 / 2 : 2 * n;
}

RefImage ref_read(const uint8_t* d, int f, int w, int h) {
    RefImage image(model_of(f), w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < components(f); ++c) {
                const uint8_t* const p = d + index(f, w, h, x, y, c);
                image.at(x, y)[c] = f == 15 ? (p[0] + 256.0 * p[1]) / 257 : p[0];
            }
    return image;
}

RefImage ref_convert(const RefImage& in, int f) {
    RefImage out = in;
    out.model = model_of(f);
    for (Color& p : out.pixel) {
        if (in.model == out.model)
            continue;
        if (in.model == Model::gray)
            p = out.model == Model::rgb ? Color{p[0], p[0], p[0]} : Color{p[0], 128, 128};
        else if (in.model == Model::rgb)
            p = out.model == Model::yuv ? rgb_to_yuv(p) : Color{luma(p), 0, 0};
        else
            p = out.model == Model::rgb ? yuv_to_rgb(p) : Color{p[0], 0, 0};
    }
    return out;
}

std::vector<double> ref_samples(const RefImage& image, int f) {
    const int w = image.width, h = image.height, tall = halved_down(f) ? 2 : 1;
    std::vector<double> out(ref_bytes(f, w, h), 128);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < components(f); ++c) {
                const double value = image.at(x, y)[c];
                const size_t at = index(f, w, h, x, y, c);
                const bool chroma = c > 0 && image.model == Model::yuv;
                if (!chroma)
                    out[at] = value;
                else if (x < w / 2 * 2 && y < h / tall * tall) // the mean of the pixels that it covers
                    out[at] = value / (2 * tall) + (x % 2 || y % tall ? out[at] : 0);
                if (f == 15)
                    out[at + 1] = value;
                else if ((f == 3 || f == 4) && c == 1)
                    out[at + 2] = 255;
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
    const bool turned = mode == 4 || mode == 7 || mode == 8;
    const bool from_right = mode == 1 || mode == 3 || mode == 7, from_below = mode == 2 || mode == 3 || mode == 4;
    RefImage out(in.model, turned ? in.height : in.width, turned ? in.width : in.height);
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x) {
            const int u = turned ? y : x, v = turned ? x : y;
            out.at(x, y) = in.at(from_right ? in.width - 1 - u : u, from_below ? in.height - 1 - v : v);
        }
    return out;
}

std::vector<double> ref_scale(const std::vector<double>& plane, int step, const RefAxis& x, const RefAxis& y,
                              int method, double limit) {
    const size_t from = static_cast<size_t>(x.src) * step, to = static_cast<size_t>(x.dst) * step;
    std::vector<double> wide(to * y.src), out(to * y.dst);
    for (int row = 0; row < y.src; ++row)
        for (int c = 0; c < step; ++c)
            scale_line(&plane[row * from + c], &wide[row * to + c], step, x, method);
    if (limit) // as Pillow does it
        for (double& v : wide)
            v = std::clamp(v, 0.0, limit);
    for (size_t k = 0; k < to; ++k)
        scale_line(&wide[k], &out[k], to, y, method);
    return out;
}

} // namespace tavi::test
