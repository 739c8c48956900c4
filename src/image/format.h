// SPDX-License-Identifier: MIT
// The table of pixel formats: where each component of a pixel lies in memory. All else about a format is derived from
// its row, so that a seventeenth format would be one more row.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tavi_image.h"

namespace tavi {

enum class Model : uint8_t { gray, rgb, yuv };

/// Where the samples of one component lie. A sample covers 1 << xshift columns and 1 << yshift rows of pixels.
struct Component {
    uint8_t plane; ///< in memory order
    uint8_t byte;  ///< of the first sample, from the start of the row
    uint8_t step;  ///< bytes from one sample to the next
    uint8_t xshift;
    uint8_t yshift;
};

/// How the columns of one plane lie on the pixel grid. A column is what one sample of each component takes; in packed
/// 4:2:2 it is one pixel with half of its pair's chroma.
struct PlaneRule {
    uint8_t xshift; ///< columns = width >> xshift
    uint8_t yshift; ///< rows = height >> yshift
    uint8_t step;   ///< bytes per column
};

struct Format {
    using Parts = std::array<Component, 4>;

    std::string_view name;
    uint8_t planes;
    uint8_t bits; ///< per sample
    Model model;
    Parts part;         ///< Y; or R G B and perhaps A; or Y U V
    const char* layout; ///< memory order, for people

    // Derived from the components.
    PlaneRule plane[3] = {};    ///< in memory order
    uint8_t parts = 0;          ///< how many components there are
    uint8_t bits_per_pixel = 0; ///< a chroma sample's shared out among its pixels

    constexpr Format(std::string_view n, int plane_count, int b, Model m, const Parts& p, const char* l)
        : name(n), planes(static_cast<uint8_t>(plane_count)), bits(static_cast<uint8_t>(b)), model(m), part(p),
          layout(l) {
        for (const Component& c : part) {
            if (c.step == 0)
                continue;
            ++parts;
            bits_per_pixel = static_cast<uint8_t>(bits_per_pixel + (bits >> (c.xshift + c.yshift)));
            PlaneRule& rule = plane[c.plane];
            if (rule.step == 0 || c.step < rule.step)
                rule = {c.xshift, c.yshift, c.step};
        }
    }

    constexpr bool is_yuv() const { return model == Model::yuv; }
    constexpr int sample_bytes() const { return bits / 8; }
    /// The chroma grid; 0 where there is none.
    constexpr int xshift() const { return part[1].xshift; }
    constexpr int yshift() const { return part[1].yshift; }
    constexpr bool subsampled() const { return xshift() + yshift() > 0; }
    /// All samples of a pixel stand side by side, as picture files hold them: grey and RGB.
    constexpr bool whole_pixels() const { return plane[0].step == parts * sample_bytes(); }
    /// Luma and chroma in one plane.
    constexpr bool packed() const { return is_yuv() && planes == 1; }
    /// B before R, or V before U.
    constexpr bool swapped() const {
        const Component &first = part[is_yuv() ? 1 : 0], &last = part[2];
        return parts > 1 && (first.plane != last.plane ? first.plane > last.plane : first.byte > last.byte);
    }
};

/// The formats of the public enumeration, by their numbers.
inline constexpr std::array<Format, 16> kFormats = {{
    // name   planes bits model  components {plane, byte, step, xshift, yshift}: Y or R, U or G, V or B, A
    {"gray8", 1, 8, Model::gray, {{{0, 0, 1, 0, 0}}}, "Y"},
    {"rgb", 1, 8, Model::rgb, {{{0, 0, 3, 0, 0}, {0, 1, 3, 0, 0}, {0, 2, 3, 0, 0}}}, "R G B"},
    {"bgr", 1, 8, Model::rgb, {{{0, 2, 3, 0, 0}, {0, 1, 3, 0, 0}, {0, 0, 3, 0, 0}}}, "B G R"},
    {"rgba", 1, 8, Model::rgb, {{{0, 0, 4, 0, 0}, {0, 1, 4, 0, 0}, {0, 2, 4, 0, 0}, {0, 3, 4, 0, 0}}}, "R G B A"},
    {"bgra", 1, 8, Model::rgb, {{{0, 2, 4, 0, 0}, {0, 1, 4, 0, 0}, {0, 0, 4, 0, 0}, {0, 3, 4, 0, 0}}}, "B G R A"},
    {"yu12", 3, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {1, 0, 1, 1, 1}, {2, 0, 1, 1, 1}}}, "Y plane, U plane, V plane"},
    {"yv12", 3, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {2, 0, 1, 1, 1}, {1, 0, 1, 1, 1}}}, "Y plane, V plane, U plane"},
    {"nv12", 2, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {1, 0, 2, 1, 1}, {1, 1, 2, 1, 1}}}, "Y plane, U V plane"},
    {"nv21", 2, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {1, 1, 2, 1, 1}, {1, 0, 2, 1, 1}}}, "Y plane, V U plane"},
    {"yu16", 3, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {1, 0, 1, 1, 0}, {2, 0, 1, 1, 0}}}, "Y plane, U plane, V plane"},
    {"yv16", 3, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {2, 0, 1, 1, 0}, {1, 0, 1, 1, 0}}}, "Y plane, V plane, U plane"},
    {"nv16", 2, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {1, 0, 2, 1, 0}, {1, 1, 2, 1, 0}}}, "Y plane, U V plane"},
    {"nv61", 2, 8, Model::yuv, {{{0, 0, 1, 0, 0}, {1, 1, 2, 1, 0}, {1, 0, 2, 1, 0}}}, "Y plane, V U plane"},
    {"yuyv", 1, 8, Model::yuv, {{{0, 0, 2, 0, 0}, {0, 1, 4, 1, 0}, {0, 3, 4, 1, 0}}}, "Y U Y V"},
    {"uyvy", 1, 8, Model::yuv, {{{0, 1, 2, 0, 0}, {0, 0, 4, 1, 0}, {0, 2, 4, 1, 0}}}, "U Y V Y"},
    {"gray16", 1, 16, Model::gray, {{{0, 0, 2, 0, 0}}}, "Y (2 bytes, little endian)"},
}};
static_assert(kFormats.size() == TAVI_PIXEL_FORMAT_GRAY16 + 1);

/// Full chroma in the scaler's 16 bits, which a picture has between scaling and its conversion to RGB, and nowhere
/// else.
inline constexpr std::array<Format, 3> kInnerFormats = {{
    {"yu24", 3, 16, Model::yuv, {{{0, 0, 2, 0, 0}, {1, 0, 2, 0, 0}, {2, 0, 2, 0, 0}}}, "Y plane, U plane, V plane"},
    {"nv24", 2, 16, Model::yuv, {{{0, 0, 2, 0, 0}, {1, 0, 4, 0, 0}, {1, 2, 4, 0, 0}}}, "Y plane, U V plane"},
    {"nv42", 2, 16, Model::yuv, {{{0, 0, 2, 0, 0}, {1, 2, 4, 0, 0}, {1, 0, 4, 0, 0}}}, "Y plane, V U plane"},
}};

/// The row of a public format, or null for a value outside the enumeration.
inline const Format* find_format(uint32_t pixel_format) {
    return pixel_format < kFormats.size() ? &kFormats[pixel_format] : nullptr;
}

/// The YUV format of a layout: planes, chroma grid, order of the chroma samples and bits. Null when there is none.
inline const Format* find_yuv(int planes, int xshift, int yshift, bool swapped, int bits = 8) {
    const auto fits = [&](const Format& f) {
        return f.is_yuv() && f.planes == planes && f.xshift() == xshift && f.yshift() == yshift &&
               f.swapped() == swapped && f.bits == bits;
    };
    for (const Format& f : kFormats)
        if (fits(f))
            return &f;
    for (const Format& f : kInnerFormats)
        if (fits(f))
            return &f;
    return nullptr;
}

inline bool is_yuv(uint32_t pixel_format) {
    const Format* f = find_format(pixel_format);
    return f && f->is_yuv();
}

/// Exact bytes of an image, formed in 64 bits: sides up to 2^31 do not wrap.
inline uint64_t byte_count(const Format& f, uint32_t width, uint32_t height) {
    return (uint64_t{width} * height * f.bits_per_pixel) >> 3;
}

/// Modes that exchange width and height.
inline bool exchanges_sides(tavi_image_transform_mode mode) {
    return mode == TAVI_IMAGE_TRANSFORM_ROTATE_90 || mode == TAVI_IMAGE_TRANSFORM_ROTATE_270 ||
           mode == TAVI_IMAGE_TRANSFORM_TRANSPOSE;
}

} // namespace tavi
