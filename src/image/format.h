// SPDX-License-Identifier: MIT
// The table of the sixteen pixel formats. No code outside it switches on a format: a seventeenth would be one more
// row.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tavi_image.h"

namespace tavi {

enum class Family : uint8_t { gray, rgb, yuv420, yuv422 };

/// How the samples of one plane lie on the pixel grid, and how many bytes stand in memory for one of its columns.
struct PlaneRule {
    uint8_t xshift; ///< columns = width >> xshift
    uint8_t yshift; ///< rows = height >> yshift
    uint8_t step;   ///< bytes per column
};

struct Format {
    std::string_view name;
    Family family;
    int8_t channels;      ///< as tavi_image_get_channels() answers; 0 where it answers with an error
    uint8_t sample_bytes; ///< bytes per sample
    uint8_t bytes_mul;    ///< byte count = (width * height * sample_bytes * bytes_mul) >> bytes_shift
    uint8_t bytes_shift;
    uint8_t planes;
    bool swapped;            ///< B before R, or V before U
    const char* layout;      ///< memory order, for people
    PlaneRule plane[3] = {}; ///< in memory order
};

inline constexpr PlaneRule kLuma{0, 0, 1};
inline constexpr PlaneRule kChroma420{1, 1, 1};
inline constexpr PlaneRule kChroma422{1, 0, 1};
inline constexpr PlaneRule kPair420{1, 1, 2};
inline constexpr PlaneRule kPair422{1, 0, 2};
inline constexpr PlaneRule kPacked422{0, 0, 2};

inline constexpr std::array<Format, 16> kFormats = {{
    // name   family        ch smp mul sh planes swapped layout                      plane grids
    {"gray8", Family::gray, 1, 1, 1, 0, 1, false, "Y", {{0, 0, 1}}},
    {"rgb", Family::rgb, 3, 1, 3, 0, 1, false, "R G B", {{0, 0, 3}}},
    {"bgr", Family::rgb, 3, 1, 3, 0, 1, true, "B G R", {{0, 0, 3}}},
    {"rgba", Family::rgb, 4, 1, 4, 0, 1, false, "R G B A", {{0, 0, 4}}},
    {"bgra", Family::rgb, 4, 1, 4, 0, 1, true, "B G R A", {{0, 0, 4}}},
    {"yu12", Family::yuv420, 0, 1, 3, 1, 3, false, "Y plane, U plane, V plane", {kLuma, kChroma420, kChroma420}},
    {"yv12", Family::yuv420, 0, 1, 3, 1, 3, true, "Y plane, V plane, U plane", {kLuma, kChroma420, kChroma420}},
    {"nv12", Family::yuv420, 0, 1, 3, 1, 2, false, "Y plane, U V plane", {kLuma, kPair420}},
    {"nv21", Family::yuv420, 0, 1, 3, 1, 2, true, "Y plane, V U plane", {kLuma, kPair420}},
    {"yu16", Family::yuv422, 0, 1, 2, 0, 3, false, "Y plane, U plane, V plane", {kLuma, kChroma422, kChroma422}},
    {"yv16", Family::yuv422, 0, 1, 2, 0, 3, true, "Y plane, V plane, U plane", {kLuma, kChroma422, kChroma422}},
    {"nv16", Family::yuv422, 0, 1, 2, 0, 2, false, "Y plane, U V plane", {kLuma, kPair422}},
    {"nv61", Family::yuv422, 0, 1, 2, 0, 2, true, "Y plane, V U plane", {kLuma, kPair422}},
    {"yuyv", Family::yuv422, 0, 1, 2, 0, 1, false, "Y U Y V", {kPacked422}},
    {"uyvy", Family::yuv422, 0, 1, 2, 0, 1, false, "U Y V Y", {kPacked422}},
    {"gray16", Family::gray, 1, 2, 1, 0, 1, false, "Y (2 bytes, little endian)", {{0, 0, 2}}},
}};
static_assert(kFormats.size() == TAVI_PIXEL_FORMAT_GRAY16 + 1);

/// The row of a format, or null for a value outside the enumeration.
inline const Format* find_format(uint32_t pixel_format) {
    return pixel_format < kFormats.size() ? &kFormats[pixel_format] : nullptr;
}

inline bool is_yuv(uint32_t pixel_format) {
    const Format* f = find_format(pixel_format);
    return f && (f->family == Family::yuv420 || f->family == Family::yuv422);
}

/// Exact bytes of an image, formed in 64 bits: sides up to 2^31 do not wrap.
inline uint64_t byte_count(const Format& f, uint32_t width, uint32_t height) {
    return (uint64_t{width} * height * f.sample_bytes * f.bytes_mul) >> f.bytes_shift;
}

} // namespace tavi
