// SPDX-License-Identifier: MIT
// What YUV samples mean: every constant of conversion, padding, drawing and files is computed here from the
// standards' luma coefficients and the range. Kernels take the results as data.
#pragma once

#include <cstdint>

namespace tavi {

/// ITU-R BT.601, BT.709 and BT.2020 (non-constant luminance).
enum class Matrix : uint8_t { bt601, bt709, bt2020 };

/// What the YUV samples of a picture mean. RGB and grey are full range and have no use for it.
struct ColorSpace {
    Matrix matrix = Matrix::bt601;
    bool full_range = false;

    friend constexpr bool operator==(ColorSpace a, ColorSpace b) {
        return a.matrix == b.matrix && a.full_range == b.full_range;
    }
    friend constexpr bool operator!=(ColorSpace a, ColorSpace b) { return !(a == b); }
};

// Luma and chroma as the standards quantise them to 8 bits.
constexpr int kBlack = 16, kLumaSpan = 219, kChromaSpan = 224, kFullSpan = 255, kNeutral = 128;

/// Luma is kr R + (1 - kr - kb) G + kb B; colour differences are (B - Y) / (2 - 2 kb) and (R - Y) / (2 - 2 kr).
struct LumaCoefficients {
    double kr, kb;
};

constexpr LumaCoefficients luma_coefficients(Matrix m) {
    return m == Matrix::bt709    ? LumaCoefficients{0.2126, 0.0722}
           : m == Matrix::bt2020 ? LumaCoefficients{0.2627, 0.0593}
                                 : LumaCoefficients{0.299, 0.114};
}

namespace colour_detail {
constexpr int rounded(double v) { return static_cast<int>(v < 0 ? v - 0.5 : v + 0.5); }
constexpr int16_t rounded16(double v) { return static_cast<int16_t>(rounded(v)); }
} // namespace colour_detail

constexpr int kRgbBits = 6;  ///< fraction of sums on the way to RGB
constexpr int kYuvBits = 15; ///< fraction of the weights from RGB to YUV

/// YUV to RGB: with d = (c - 128) * 256 a channel is (luma(y) + bias + sum of mulhrs(d, term)) >> kRgbBits, where
/// mulhrs(a, b) = (a * b + 2^14) >> 15.
struct YuvToRgb {
    uint8_t luma;                           ///< Q7: luma(y) = (y * luma) >> 1
    uint16_t luma_257;                      ///< the same: luma(y) = (y * 257 * luma_257) >> 16
    int16_t bias;                           ///< a half for rounding, less black
    int16_t v_to_r, u_to_g, v_to_g, u_to_b; ///< Q15 of a quarter of each chroma term, those of green to be taken away
};

constexpr YuvToRgb make_yuv_to_rgb(ColorSpace c) {
    using colour_detail::rounded, colour_detail::rounded16;
    const LumaCoefficients k = luma_coefficients(c.matrix);
    const double kg = 1 - k.kr - k.kb;
    const double luma = c.full_range ? 1 : double(kFullSpan) / kLumaSpan;
    const double chroma = c.full_range ? 1 : double(kFullSpan) / kChromaSpan;
    constexpr double kQuarter = 1 << 13; // of 1 << 15
    YuvToRgb t = {};
    t.luma = static_cast<uint8_t>(rounded(luma * 128));
    t.luma_257 = static_cast<uint16_t>((t.luma * 32768 + 256) / 257);
    t.bias = static_cast<int16_t>((1 << (kRgbBits - 1)) - (c.full_range ? 0 : kBlack * t.luma / 2));
    t.v_to_r = rounded16(2 * (1 - k.kr) * chroma * kQuarter);
    t.u_to_b = rounded16(2 * (1 - k.kb) * chroma * kQuarter);
    t.u_to_g = rounded16(2 * (1 - k.kb) * k.kb / kg * chroma * kQuarter);
    t.v_to_g = rounded16(2 * (1 - k.kr) * k.kr / kg * chroma * kQuarter);
    return t;
}

/// RGB to YUV: weights of R, G and B, Q15. A sample is (sum of weight * channel + bias) >> kYuvBits.
struct RgbToYuv {
    int16_t y[3], u[3], v[3];
    int32_t luma_bias; ///< black and a half for rounding
};

constexpr RgbToYuv make_rgb_to_yuv(ColorSpace c) {
    using colour_detail::rounded16;
    const LumaCoefficients k = luma_coefficients(c.matrix);
    constexpr double kOne = 1 << kYuvBits;
    const double luma = c.full_range ? kOne : kOne * kLumaSpan / kFullSpan;
    const double chroma = c.full_range ? kOne : kOne * kChromaSpan / kFullSpan;
    RgbToYuv t = {};
    t.y[0] = rounded16(k.kr * luma), t.y[1] = rounded16((1 - k.kr - k.kb) * luma), t.y[2] = rounded16(k.kb * luma);
    t.u[0] = rounded16(-k.kr / (2 * (1 - k.kb)) * chroma), t.u[2] = rounded16(chroma / 2);
    t.v[0] = rounded16(chroma / 2), t.v[2] = rounded16(-k.kb / (2 * (1 - k.kr)) * chroma);
    t.u[1] = static_cast<int16_t>(-t.u[0] - t.u[2]); // so that grey has no colour
    t.v[1] = static_cast<int16_t>(-t.v[0] - t.v[2]);
    t.luma_bias = ((c.full_range ? 0 : kBlack) << kYuvBits) + (1 << (kYuvBits - 1));
    return t;
}

namespace colour_detail {
template <class T, T (*Make)(ColorSpace)>
struct Constants {
    T of[3][2];
};
template <class T, T (*Make)(ColorSpace)>
inline constexpr Constants<T, Make> kConstants = {{{Make({Matrix::bt601, false}), Make({Matrix::bt601, true})},
                                                   {Make({Matrix::bt709, false}), Make({Matrix::bt709, true})},
                                                   {Make({Matrix::bt2020, false}), Make({Matrix::bt2020, true})}}};
} // namespace colour_detail

inline const YuvToRgb& yuv_to_rgb_constants(ColorSpace c) {
    return colour_detail::kConstants<YuvToRgb, make_yuv_to_rgb>.of[static_cast<int>(c.matrix)][c.full_range];
}
inline const RgbToYuv& rgb_to_yuv_constants(ColorSpace c) {
    return colour_detail::kConstants<RgbToYuv, make_rgb_to_yuv>.of[static_cast<int>(c.matrix)][c.full_range];
}

constexpr int kRecolourBits = 16; ///< fraction of the weights from YUV to YUV

/// YUV of one meaning to YUV of another, a Q16 sum of weighted samples and a bias each. Chroma does not depend on
/// luma: grey has none in either.
struct YuvToYuv {
    int32_t luma, u_to_y, v_to_y, luma_bias;
    int32_t u_to_u, v_to_u, u_bias;
    int32_t u_to_v, v_to_v, v_bias;
};

/// The exact product of both conversions, rounded once.
inline YuvToYuv make_yuv_to_yuv(ColorSpace from, ColorSpace to) {
    using colour_detail::rounded;
    const auto luma_span = [](ColorSpace c) { return c.full_range ? kFullSpan : kLumaSpan; };
    const auto black = [](ColorSpace c) { return c.full_range ? 0 : kBlack; };
    const auto chroma_span = [](ColorSpace c) { return c.full_range ? kFullSpan : kChromaSpan; };
    const LumaCoefficients a = luma_coefficients(from.matrix), b = luma_coefficients(to.matrix);
    const double ag = 1 - a.kr - a.kb, bg = 1 - b.kr - b.kb;
    // Of a chroma sample in units of its span: what it adds to R, G and B.
    const double v_r = 2 * (1 - a.kr), u_b = 2 * (1 - a.kb);
    const double u_g = -u_b * a.kb / ag, v_g = -v_r * a.kr / ag;
    // And by that to the other luma.
    const double u_y = bg * u_g + b.kb * u_b, v_y = b.kr * v_r + bg * v_g;
    constexpr double kOne = 1 << kRecolourBits;
    const double luma = kOne * luma_span(to) / luma_span(from);
    const double to_luma = kOne * luma_span(to) / chroma_span(from);
    const double to_u = kOne * chroma_span(to) / chroma_span(from) / (2 * (1 - b.kb));
    const double to_v = kOne * chroma_span(to) / chroma_span(from) / (2 * (1 - b.kr));
    YuvToYuv k = {};
    k.luma = rounded(luma), k.u_to_y = rounded(to_luma * u_y), k.v_to_y = rounded(to_luma * v_y);
    k.u_to_u = rounded(to_u * (u_b - u_y)), k.v_to_u = rounded(to_u * -v_y);
    k.u_to_v = rounded(to_v * -u_y), k.v_to_v = rounded(to_v * (v_r - v_y));
    constexpr int32_t kHalf = 1 << (kRecolourBits - 1), kMiddle = (kNeutral << kRecolourBits) + kHalf;
    k.luma_bias = (black(to) << kRecolourBits) + kHalf - black(from) * k.luma - kNeutral * (k.u_to_y + k.v_to_y);
    k.u_bias = kMiddle - kNeutral * (k.u_to_u + k.v_to_u);
    k.v_bias = kMiddle - kNeutral * (k.u_to_v + k.v_to_v);
    return k;
}

struct Rgb {
    int r, g, b;
};

inline uint8_t luma_of(const Rgb& p, const RgbToYuv& t) {
    return static_cast<uint8_t>((p.r * t.y[0] + p.g * t.y[1] + p.b * t.y[2] + t.luma_bias) >> kYuvBits);
}

/// A chroma sample by its weights; `sum` adds up 1 << shift pixels.
inline uint8_t chroma_of(const Rgb& sum, const int16_t* weight, int shift) {
    const int bits = kYuvBits + shift;
    const int32_t bias = (kNeutral << bits) + (1 << (bits - 1));
    const int32_t v = (sum.r * weight[0] + sum.g * weight[1] + sum.b * weight[2] + bias) >> bits;
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

/// Full-range BT.601 luma times 1000, whatever YUV means elsewhere: what grey is of RGB.
constexpr int gray_sum(const Rgb& p) { return 299 * p.r + 587 * p.g + 114 * p.b; }

/// One colour as Y, U and V, as a picture of that colour is converted.
struct Yuv {
    uint8_t y, u, v;
};
inline Yuv yuv_of(const Rgb& p, ColorSpace c) {
    const RgbToYuv& t = rgb_to_yuv_constants(c);
    return {luma_of(p, t), chroma_of(p, t.u, 0), chroma_of(p, t.v, 0)};
}

} // namespace tavi
