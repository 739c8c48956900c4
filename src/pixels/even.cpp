// SPDX-License-Identifier: MIT
// Ours serve all between YUV and RGB, out of grey and between RGB orders: they compute chroma once per pair of
// pixels, write three bytes directly and are exact to within 1. libyuv serves what only moves bytes between planes,
// where nothing is faster.
#include "pixels/even.h"

#include <libyuv.h>

#include <cstring>

#include "image/scratch.h"

// The arguments that libyuv takes for a plane, and for the size of an image.
#define PLANE(view, i) (view).plane[i].data, static_cast<int>((view).plane[i].pitch)
#define EXTENT(view) (view).width, (view).height

namespace tavi {
namespace {

bool is_420(const ImageView& v) { return v.format->yshift() == 1; }

/// Luma and chroma, both a byte a pixel, side by side in the order of a packed format. A pitch of 0 repeats a row.
void pack(const uint8_t* luma, int luma_pitch, const uint8_t* chroma, int chroma_pitch, const ImageView& d) {
    if (d.format->part[0].byte == 0)
        libyuv::MergeUVPlane(luma, luma_pitch, chroma, chroma_pitch, PLANE(d, 0), EXTENT(d));
    else
        libyuv::MergeUVPlane(chroma, chroma_pitch, luma, luma_pitch, PLANE(d, 0), EXTENT(d));
}

// ------------------------------------------------------------------------------------------------ rows by kernels

// A conversion that takes each row for itself takes pictures without gaps between their rows as one long row.
struct Rows {
    int count;
    int width;
};

bool gapless(const ImageView& v) {
    bool all = true;
    for (int i = 0; i < v.planes(); ++i)
        all = all && v.plane[i].pitch == static_cast<ptrdiff_t>(v.plane[i].cols) * v.plane[i].step;
    return all;
}

Rows rows_of_both(const ImageView& s, const ImageView& d) {
    return gapless(s) && gapless(d) ? Rows{1, d.width * d.height} : Rows{d.height, d.width};
}

bool yuv_to_rgb(const ImageView& s, const ImageView& d) {
    const auto row = kernels().yuv_to_rgb[chroma_kind(*s.format)][rgb_kind(*d.format)];
    const YuvToRgb& k = yuv_to_rgb_constants(s.color);
    const int shift = s.format->yshift();
    const bool planar = s.planes() == 3;
    const Rows rows = is_420(s) ? Rows{d.height, d.width} : rows_of_both(s, d);
    for (int y = 0; y < rows.count; ++y)
        row(s.plane[0].row(y), s.planes() > 1 ? s.plane[1].row(y >> shift) : nullptr,
            planar ? s.plane[2].row(y >> shift) : nullptr, d.plane[0].row(y), rows.width, k);
    return true;
}

bool full_to_rgb(const ImageView& s, const ImageView& d) {
    const auto row = kernels().yuv444_to_rgb[chroma_kind(*s.format)][rgb_kind(*d.format)];
    const YuvToRgb& k = yuv_to_rgb_constants(s.color);
    const auto samples = [](const PlaneView& p, int y) { return reinterpret_cast<const uint16_t*>(p.row(y)); };
    for (int y = 0; y < d.height; ++y)
        row(samples(s.plane[0], y), samples(s.plane[1], y), s.planes() == 3 ? samples(s.plane[2], y) : nullptr,
            d.plane[0].row(y), d.width, k);
    return true;
}

bool rgb_to_planes(const ImageView& s, const ImageView& d) {
    const auto pair = kernels().rgb_to_yuv420[chroma_kind(*d.format)][rgb_kind(*s.format)];
    const auto row = kernels().rgb_to_yuv422[chroma_kind(*d.format)][rgb_kind(*s.format)];
    const RgbToYuv& k = rgb_to_yuv_constants(d.color);
    for (int y = 0; y < d.height; y += is_420(d) ? 2 : 1) {
        const int c = is_420(d) ? y / 2 : y;
        uint8_t* u = d.plane[1].row(c);
        uint8_t* v = d.planes() == 3 ? d.plane[2].row(c) : nullptr;
        if (is_420(d))
            pair(s.plane[0].row(y), s.plane[0].row(y + 1), d.plane[0].row(y), d.plane[0].row(y + 1), u, v, d.width,
                 k);
        else
            row(s.plane[0].row(y), d.plane[0].row(y), u, v, d.width, k);
    }
    return true;
}

bool rgb_to_packed(const ImageView& s, const ImageView& d) {
    Scratch scratch;
    uint8_t* luma = scratch.take<uint8_t>(d.width);
    uint8_t* pairs = scratch.take<uint8_t>(d.width);
    if (!luma || !pairs)
        return false;
    const auto row = kernels().rgb_to_yuv422[kPairsUV][rgb_kind(*s.format)];
    const RgbToYuv& k = rgb_to_yuv_constants(d.color);
    for (int y = 0; y < d.height; ++y) {
        row(s.plane[0].row(y), luma, pairs, nullptr, d.width, k);
        pack(luma, 0, pairs, 0, rows_of(d, y, 1));
    }
    return true;
}

using PixelsFn = void (*)(const uint8_t* from, uint8_t* to, int width);

bool convert_pixels(PixelsFn row, const ImageView& s, const ImageView& d) {
    const Rows rows = rows_of_both(s, d);
    for (int y = 0; y < rows.count; ++y)
        row(s.plane[0].row(y), d.plane[0].row(y), rows.width);
    return true;
}

bool rgb_to_rgb(const ImageView& s, const ImageView& d) {
    return convert_pixels(kernels().rgb_to_rgb[rgb_kind(*s.format)][rgb_kind(*d.format)], s, d);
}

bool rgb_to_gray(const ImageView& s, const ImageView& d) {
    return convert_pixels(kernels().rgb_to_gray[rgb_kind(*s.format)], s, d);
}

bool rgb_to_gray16(const ImageView& s, const ImageView& d) {
    return convert_pixels(kernels().rgb_to_gray16[rgb_kind(*s.format)], s, d);
}

bool gray_to_rgb(const ImageView& s, const ImageView& d) {
    return convert_pixels(kernels().gray_to_rgb[d.format->parts - 3], s, d);
}

bool gray16_to_8(const ImageView& s, const ImageView& d) { return convert_pixels(kernels().gray16_to_8, s, d); }

// ------------------------------------------------------------------------------------------------ bytes by libyuv

bool gray8_to_16(const ImageView& s, const ImageView& d) { // 257 * value: the byte twice
    libyuv::MergeUVPlane(PLANE(s, 0), PLANE(s, 0), PLANE(d, 0), EXTENT(d));
    return true;
}

bool yuv_to_gray(const ImageView& s, const ImageView& d) {
    if (!s.format->packed())
        copy_plane(s.plane[0], d.plane[0]);
    else if (s.format->part[0].byte == 0)
        libyuv::YUY2ToY(PLANE(s, 0), PLANE(d, 0), EXTENT(s));
    else
        libyuv::UYVYToY(PLANE(s, 0), PLANE(d, 0), EXTENT(s));
    return true;
}

bool gray_to_planes(const ImageView& s, const ImageView& d) {
    copy_plane(s.plane[0], d.plane[0]);
    for (int i = 1; i < d.planes(); ++i)
        for (int y = 0; y < d.plane[i].rows; ++y)
            std::memset(d.plane[i].row(y), kNeutral, static_cast<size_t>(d.plane[i].cols) * d.plane[i].step);
    return true;
}

bool gray_to_packed(const ImageView& s, const ImageView& d) {
    Scratch scratch;
    uint8_t* neutral = scratch.take<uint8_t>(d.width);
    if (!neutral)
        return false;
    std::memset(neutral, kNeutral, d.width);
    pack(PLANE(s, 0), neutral, 0, d);
    return true;
}

/// Every second row of the planes from `plane` on, from `first` on.
ImageView every_second_row(const ImageView& view, int plane, int first) {
    ImageView v = view;
    for (int i = plane; i < v.planes(); ++i) {
        v.plane[i].data += first * v.plane[i].pitch;
        v.plane[i].pitch *= 2;
        v.plane[i].rows = (v.plane[i].rows + 1 - first) / 2;
    }
    return v;
}

// Pairs in the order U V, of either grid.
bool pairs_to_packed(const ImageView& s, const ImageView& d) {
    if (!is_420(s)) {
        pack(PLANE(s, 0), PLANE(s, 1), d);
        return true;
    }
    for (int first = 0; first < 2; ++first) { // each row of chroma goes to two rows
        const ImageView from = every_second_row(s, 0, first);
        ImageView to = every_second_row(d, 0, first);
        to.height = d.height / 2;
        pack(PLANE(from, 0), s.plane[1].data, static_cast<int>(s.plane[1].pitch), to);
    }
    return true;
}

// libyuv's rows for YUYV to NV12 are wrong at the end of some widths on x86, and write a register that they do not
// name on ARM.
bool packed_to_pairs(const ImageView& s, const ImageView& d) {
    const bool luma_first = s.format->part[0].byte == 0;
    if (!is_420(d)) {
        if (luma_first)
            libyuv::SplitUVPlane(PLANE(s, 0), PLANE(d, 0), PLANE(d, 1), EXTENT(d));
        else
            libyuv::SplitUVPlane(PLANE(s, 0), PLANE(d, 1), PLANE(d, 0), EXTENT(d));
        return true;
    }
    const auto pair = kernels().packed_to_nv12[luma_first ? 0 : 1];
    const PlaneView &p = s.plane[0], &luma = d.plane[0];
    for (int y = 0; y < d.height; y += 2)
        pair(p.row(y), p.row(y + 1), luma.row(y), luma.row(y + 1), d.plane[1].row(y / 2), d.width);
    return true;
}

bool packed_to_planes(const ImageView& s, const ImageView& d) {
    using namespace libyuv;
    using Fn = int (*)(const uint8_t*, int, uint8_t*, int, uint8_t*, int, uint8_t*, int, int, int);
    static constexpr Fn kTable[2][2] = {{YUY2ToI422, YUY2ToI420}, {UYVYToI422, UYVYToI420}};
    kTable[s.format->part[0].byte][is_420(d)](PLANE(s, 0), PLANE(d, 0), PLANE(d, 1), PLANE(d, 2), EXTENT(d));
    return true;
}

bool planes_to_packed(const ImageView& s, const ImageView& d) {
    using namespace libyuv;
    using Fn = int (*)(const uint8_t*, int, const uint8_t*, int, const uint8_t*, int, uint8_t*, int, int, int);
    static constexpr Fn kTable[2][2] = {{I422ToYUY2, I420ToYUY2}, {I422ToUYVY, I420ToUYVY}};
    kTable[d.format->part[0].byte][is_420(s)](PLANE(s, 0), PLANE(s, 1), PLANE(s, 2), PLANE(d, 0), EXTENT(d));
    return true;
}

bool packed_to_packed(const ImageView& s, const ImageView& d) { // each pair of bytes swapped
    libyuv::SwapUVPlane(PLANE(s, 0), PLANE(d, 0), EXTENT(d));
    return true;
}

// ------------------------------------------------------------------------------------------------ chroma planes

bool same_chroma_layout(const ImageView& s, const ImageView& d) {
    return s.planes() == d.planes() && (s.planes() == 3 || s.format->swapped() == d.format->swapped());
}

// Chroma from one layout to another on the same grid.
void move_chroma(const ImageView& s, const ImageView& d) {
    const int cols = d.plane[1].cols, rows = d.plane[1].rows;
    if (same_chroma_layout(s, d)) {
        for (int i = 1; i < d.planes(); ++i)
            copy_plane(s.plane[i], d.plane[i]);
    } else if (s.planes() == 2 && d.planes() == 2) {
        libyuv::SwapUVPlane(PLANE(s, 1), PLANE(d, 1), cols, rows);
    } else if (s.planes() == 2) {
        const int first = s.format->swapped() ? 2 : 1;
        libyuv::SplitUVPlane(PLANE(s, 1), PLANE(d, first), PLANE(d, 3 - first), cols, rows);
    } else {
        const int first = d.format->swapped() ? 2 : 1;
        libyuv::MergeUVPlane(PLANE(s, first), PLANE(s, 3 - first), PLANE(d, 1), cols, rows);
    }
}

PlaneView row_alone(const PlaneView& p, int y) {
    PlaneView row = p;
    row.data = p.row(y);
    row.rows = 1;
    return row;
}

// 4:2:2 to 4:2:0: each two rows of chroma averaged, then moved where the layout is another one.
bool halve_chroma(const ImageView& s, const ImageView& d) {
    const ImageView even = every_second_row(s, 1, 0), odd = every_second_row(s, 1, 1);
    if (same_chroma_layout(s, d)) {
        for (int i = 1; i < d.planes(); ++i)
            average_rows(even.plane[i], odd.plane[i], d.plane[i]);
        return true;
    }
    Scratch scratch;
    uint8_t* row = scratch.take<uint8_t>(2 * static_cast<size_t>(s.width));
    if (!row)
        return false;
    ImageView mean = s, out = d;
    for (int y = 0; y < d.plane[1].rows; ++y) {
        for (int i = 1; i < s.planes(); ++i) {
            mean.plane[i].data = row + (i - 1) * static_cast<ptrdiff_t>(s.width);
            mean.plane[i].rows = 1;
            average_rows(row_alone(even.plane[i], y), row_alone(odd.plane[i], y), mean.plane[i]);
        }
        for (int i = 1; i < d.planes(); ++i)
            out.plane[i] = row_alone(d.plane[i], y);
        move_chroma(mean, out);
    }
    return true;
}

bool planes_to_planes(const ImageView& s, const ImageView& d) {
    copy_plane(s.plane[0], d.plane[0]);
    if (is_420(s) == is_420(d)) {
        move_chroma(s, d);
    } else if (is_420(d)) {
        return halve_chroma(s, d);
    } else {
        move_chroma(s, every_second_row(d, 1, 0));
        move_chroma(s, every_second_row(d, 1, 1));
    }
    return true;
}

bool copy_image(const ImageView& s, const ImageView& d) {
    for (int i = 0; i < d.planes(); ++i)
        copy_plane(s.plane[i], d.plane[i]);
    return true;
}

// ------------------------------------------------------------------------------------------------ who serves what

enum Layout : int { kGray8, kGray16, kRgbPixels, kPlanes, kPairs, kPacked, kFull, kLayouts };

Layout layout_of(const Format& f) {
    if (f.model == Model::rgb)
        return kRgbPixels;
    if (f.model == Model::gray)
        return f.bits == 8 ? kGray8 : kGray16;
    if (!f.subsampled())
        return kFull;
    return f.planes == 3 ? kPlanes : f.planes == 2 ? kPairs : kPacked;
}

/// Rows: from; columns: to. Full chroma goes to RGB only.
constexpr ConvertFn kConversions[kLayouts][kFull] = {
    //             gray8        gray16         rgb          planes            pairs             packed
    /* gray8  */ {copy_image, gray8_to_16, gray_to_rgb, gray_to_planes, gray_to_planes, gray_to_packed},
    /* gray16 */ {gray16_to_8, copy_image, nullptr, nullptr, nullptr, nullptr},
    /* rgb    */ {rgb_to_gray, rgb_to_gray16, rgb_to_rgb, rgb_to_planes, rgb_to_planes, rgb_to_packed},
    /* planes */ {yuv_to_gray, nullptr, yuv_to_rgb, planes_to_planes, planes_to_planes, planes_to_packed},
    /* pairs  */ {yuv_to_gray, nullptr, yuv_to_rgb, planes_to_planes, planes_to_planes, pairs_to_packed},
    /* packed */ {yuv_to_gray, nullptr, yuv_to_rgb, packed_to_planes, packed_to_pairs, packed_to_packed},
    /* full   */ {nullptr, nullptr, full_to_rgb, nullptr, nullptr, nullptr},
};

} // namespace

ConvertFn find_conversion(const Format& from, const Format& to) {
    const Layout a = layout_of(from), b = layout_of(to);
    if (&from == &to)
        return copy_image;
    if (b == kFull || (a == kPairs && b == kPacked && from.swapped()) ||
        (a == kPacked && b == kPairs && to.swapped()))
        return nullptr; // packed 4:2:2 has U first
    return kConversions[a][b];
}

void copy_plane(const PlaneView& src, const PlaneView& dst) {
    const size_t bytes = static_cast<size_t>(dst.cols) * dst.step;
    if (src.pitch == static_cast<ptrdiff_t>(bytes) && dst.pitch == src.pitch) {
        std::memcpy(dst.data, src.data, bytes * dst.rows);
        return;
    }
    for (int y = 0; y < dst.rows; ++y)
        std::memcpy(dst.row(y), src.row(y), bytes);
}

void average_rows(const PlaneView& even, const PlaneView& odd, const PlaneView& d) {
    libyuv::InterpolatePlane(even.data, static_cast<int>(even.pitch), odd.data, static_cast<int>(odd.pitch), d.data,
                             static_cast<int>(d.pitch), d.cols * d.step, d.rows, 128);
}

} // namespace tavi
