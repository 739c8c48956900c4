// SPDX-License-Identifier: MIT
#include "pixels/steps.h"

#include <libyuv.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "kernels/kernels.h"

// The arguments that libyuv takes for a plane, and for the size of an image.
#define PLANE(view, i) (view).plane[i].data, static_cast<int>((view).plane[i].pitch)
#define EXTENT(view) (view).width, (view).height

namespace tavi {
namespace {

RgbKind rgb_kind(const ImageView& v) {
    return static_cast<RgbKind>(2 * (v.format->parts == 4) + v.format->swapped());
}

ChromaKind chroma_kind(const ImageView& v) {
    if (v.planes() == 3)
        return kPlanar;
    if (v.planes() == 2)
        return v.format->swapped() ? kPairsVU : kPairsUV;
    return v.format->part[0].byte == 0 ? kPackedYUYV : kPackedUYVY;
}

bool is_subsampled(const ImageView& v) { return v.format->subsampled(); }
bool is_420(const ImageView& v) { return v.format->yshift() == 1; }

void fill_plane(const PlaneView& p, uint8_t value) {
    for (int y = 0; y < p.rows; ++y)
        std::memset(p.row(y), value, static_cast<size_t>(p.cols) * p.step);
}

// ------------------------------------------------------------------------------------- conversions of even views
// Each works on views of even width (and even height where 4:2:0 is involved). Ours serve all between YUV and RGB,
// out of grey and between RGB orders: they compute chroma once per pair of pixels, write three bytes directly and are
// exact to within 1; libyuv serves what only moves bytes between planes, where nothing is faster.

using ConvertFn = void (*)(const ImageView& s, const ImageView& d);

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

void yuv_to_rgb(const ImageView& s, const ImageView& d) {
    const auto row = kernels().yuv_to_rgb[chroma_kind(s)][rgb_kind(d)];
    const YuvToRgb& k = yuv_to_rgb_constants(s.color);
    const int shift = is_420(s);
    const bool planar = s.planes() == 3;
    const Rows rows = is_420(s) ? Rows{d.height, d.width} : rows_of_both(s, d);
    for (int y = 0; y < rows.count; ++y)
        row(s.plane[0].row(y), s.planes() > 1 ? s.plane[1].row(y >> shift) : nullptr,
            planar ? s.plane[2].row(y >> shift) : nullptr, d.plane[0].row(y), rows.width, k);
}

void rgb_to_planes(const ImageView& s, const ImageView& d) {
    const auto pair = kernels().rgb_to_yuv420[chroma_kind(d)][rgb_kind(s)];
    const RgbToYuv& k = rgb_to_yuv_constants(d.color);
    const auto row = kernels().rgb_to_yuv422[chroma_kind(d)][rgb_kind(s)];
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
}

void rgb_to_packed(const ImageView& s, const ImageView& d) {
    Scratch scratch;
    uint8_t* luma = scratch.take<uint8_t>(d.width);
    uint8_t* u = scratch.take<uint8_t>(d.width / 2);
    uint8_t* v = scratch.take<uint8_t>(d.width / 2);
    if (scratch.failed())
        return;
    const auto row = kernels().rgb_to_yuv422[kPlanar][rgb_kind(s)];
    const auto pack = chroma_kind(d) == kPackedYUYV ? libyuv::I422ToYUY2 : libyuv::I422ToUYVY;
    for (int y = 0; y < d.height; ++y) {
        row(s.plane[0].row(y), luma, u, v, d.width, rgb_to_yuv_constants(d.color));
        pack(luma, 0, u, 0, v, 0, d.plane[0].row(y), 0, d.width, 1);
    }
}

using PixelsFn = void (*)(const uint8_t* from, uint8_t* to, int width);

void convert_pixels(PixelsFn row, const ImageView& s, const ImageView& d) {
    const Rows rows = rows_of_both(s, d);
    for (int y = 0; y < rows.count; ++y)
        row(s.plane[0].row(y), d.plane[0].row(y), rows.width);
}

void rgb_to_rgb(const ImageView& s, const ImageView& d) {
    convert_pixels(kernels().rgb_to_rgb[rgb_kind(s)][rgb_kind(d)], s, d);
}

void rgb_to_gray(const ImageView& s, const ImageView& d) { convert_pixels(kernels().rgb_to_gray[rgb_kind(s)], s, d); }

void gray_to_rgb(const ImageView& s, const ImageView& d) {
    convert_pixels(kernels().gray_to_rgb[d.plane[0].step - 3], s, d);
}

void gray16_to_8(const ImageView& s, const ImageView& d) { convert_pixels(kernels().gray16_to_8, s, d); }

void gray8_to_16(const ImageView& s, const ImageView& d) { // 257 * value: the byte twice
    libyuv::MergeUVPlane(PLANE(s, 0), PLANE(s, 0), PLANE(d, 0), EXTENT(d));
}

void luma_of_packed(const ImageView& s, const PlaneView& luma) {
    if (chroma_kind(s) == kPackedYUYV)
        libyuv::YUY2ToY(PLANE(s, 0), luma.data, static_cast<int>(luma.pitch), EXTENT(s));
    else
        libyuv::UYVYToY(PLANE(s, 0), luma.data, static_cast<int>(luma.pitch), EXTENT(s));
}

void yuv_to_gray(const ImageView& s, const ImageView& d) {
    if (s.planes() == 1)
        luma_of_packed(s, d.plane[0]);
    else
        copy_plane(s.plane[0], d.plane[0]);
}

void gray_to_planes(const ImageView& s, const ImageView& d) {
    copy_plane(s.plane[0], d.plane[0]);
    for (int i = 1; i < d.planes(); ++i)
        fill_plane(d.plane[i], 128);
}

void gray_to_packed(const ImageView& s, const ImageView& d) {
    Scratch scratch;
    uint8_t* neutral = scratch.take<uint8_t>(d.width);
    if (!neutral)
        return;
    std::memset(neutral, 128, d.width);
    if (chroma_kind(d) == kPackedYUYV)
        libyuv::MergeUVPlane(PLANE(s, 0), neutral, 0, PLANE(d, 0), EXTENT(d));
    else
        libyuv::MergeUVPlane(neutral, 0, PLANE(s, 0), PLANE(d, 0), EXTENT(d));
}

// Chroma from one layout to another, same subsampling.
void move_chroma(const ImageView& s, const ImageView& d) {
    const int cols = d.plane[1].cols, rows = d.plane[1].rows;
    if (s.planes() == d.planes() && (s.planes() == 3 || s.format->swapped() == d.format->swapped())) {
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

// Every second row of the chroma planes, from `first` on.
ImageView every_second_chroma_row(const ImageView& view, int first) {
    ImageView v = view;
    for (int i = 1; i < v.planes(); ++i) {
        v.plane[i].data += first * v.plane[i].pitch;
        v.plane[i].pitch *= 2;
        v.plane[i].rows = (v.plane[i].rows + 1 - first) / 2;
    }
    return v;
}

void average_rows(const PlaneView& even, const PlaneView& odd, const PlaneView& d) {
    libyuv::InterpolatePlane(even.data, static_cast<int>(even.pitch), odd.data, static_cast<int>(odd.pitch), d.data,
                             static_cast<int>(d.pitch), d.cols * d.step, d.rows, 128);
}

void planes_to_planes(const ImageView& s, const ImageView& d) {
    copy_plane(s.plane[0], d.plane[0]);
    if (is_420(s) == is_420(d)) {
        move_chroma(s, d);
    } else if (is_420(s)) {
        move_chroma(s, every_second_chroma_row(d, 0));
        move_chroma(s, every_second_chroma_row(d, 1));
    } else {
        const ImageView even = every_second_chroma_row(s, 0), odd = every_second_chroma_row(s, 1);
        if (s.planes() == d.planes() && (s.planes() == 3 || s.format->swapped() == d.format->swapped())) {
            for (int i = 1; i < d.planes(); ++i)
                average_rows(even.plane[i], odd.plane[i], d.plane[i]);
            return;
        }
        // Another layout too: one averaged row at a time.
        Scratch scratch;
        uint8_t* row = scratch.take<uint8_t>(2 * static_cast<size_t>(s.width));
        if (!row)
            return;
        ImageView mean = s, out = d;
        for (int y = 0; y < d.plane[1].rows; ++y) {
            for (int i = 1; i < s.planes(); ++i) {
                mean.plane[i].data = row + (i - 1) * static_cast<ptrdiff_t>(s.width);
                mean.plane[i].rows = 1;
                PlaneView a = even.plane[i], b = odd.plane[i];
                a.data = a.row(y);
                b.data = b.row(y);
                average_rows(a, b, mean.plane[i]);
            }
            for (int i = 1; i < d.planes(); ++i) {
                out.plane[i].data = d.plane[i].row(y);
                out.plane[i].rows = 1;
            }
            move_chroma(mean, out);
        }
    }
}

void packed_to_planar(const ImageView& s, const ImageView& d) {
    using namespace libyuv;
    using Fn = int (*)(const uint8_t*, int, uint8_t*, int, uint8_t*, int, uint8_t*, int, int, int);
    static constexpr Fn kTable[2][2] = {{YUY2ToI422, YUY2ToI420}, {UYVYToI422, UYVYToI420}};
    kTable[chroma_kind(s) == kPackedUYVY][is_420(d)](PLANE(s, 0), PLANE(d, 0), PLANE(d, 1), PLANE(d, 2), EXTENT(d));
}

// libyuv's rows for YUYV to NV12 are wrong at the end of some widths on x86, and write a register that they do not
// name on ARM.
void packed_to_nv12(const ImageView& s, const ImageView& d) {
    const auto pair = kernels().packed_to_nv12[chroma_kind(s) - kPackedYUYV];
    const PlaneView &p = s.plane[0], &luma = d.plane[0];
    for (int y = 0; y < d.height; y += 2)
        pair(p.row(y), p.row(y + 1), luma.row(y), luma.row(y + 1), d.plane[1].row(y / 2), d.width);
}

void planar_to_packed(const ImageView& s, const ImageView& d) {
    using namespace libyuv;
    using Fn = int (*)(const uint8_t*, int, const uint8_t*, int, const uint8_t*, int, uint8_t*, int, int, int);
    static constexpr Fn kTable[2][2] = {{I422ToYUY2, I420ToYUY2}, {I422ToUYVY, I420ToUYVY}};
    kTable[chroma_kind(d) == kPackedUYVY][is_420(s)](PLANE(s, 0), PLANE(s, 1), PLANE(s, 2), PLANE(d, 0), EXTENT(d));
}

void packed_to_packed(const ImageView& s, const ImageView& d) { // each pair of bytes swapped
    libyuv::SwapUVPlane(PLANE(s, 0), PLANE(d, 0), EXTENT(d));
}

void copy_image(const ImageView& s, const ImageView& d) {
    for (int i = 0; i < d.planes(); ++i)
        copy_plane(s.plane[i], d.plane[i]);
}

// --------------------------------------------------------------------------------------------- who serves what

enum Layout : int { kGray8, kGray16, kRgbPixels, kPlanes3, kPlanes2, kPacked, kLayouts };

Layout layout_of(tavi_pixel_format f) {
    if (f == TAVI_PIXEL_FORMAT_GRAY8)
        return kGray8;
    if (f == TAVI_PIXEL_FORMAT_GRAY16)
        return kGray16;
    const Format& row = *find_format(f);
    if (row.model == Model::rgb)
        return kRgbPixels;
    return row.planes == 3 ? kPlanes3 : row.planes == 2 ? kPlanes2 : kPacked;
}

/// Rows: from; columns: to. Where there is none, the way leads through another format (see via()).
constexpr ConvertFn kConversions[kLayouts][kLayouts] = {
    //              gray8        gray16       rgb          3 planes          2 planes          packed
    /* gray8    */ {copy_image, gray8_to_16, gray_to_rgb, gray_to_planes, gray_to_planes, gray_to_packed},
    /* gray16   */ {gray16_to_8, copy_image, nullptr, nullptr, nullptr, nullptr},
    /* rgb      */ {rgb_to_gray, nullptr, rgb_to_rgb, rgb_to_planes, rgb_to_planes, rgb_to_packed},
    /* 3 planes */ {yuv_to_gray, nullptr, yuv_to_rgb, planes_to_planes, planes_to_planes, planar_to_packed},
    /* 2 planes */ {yuv_to_gray, nullptr, yuv_to_rgb, planes_to_planes, planes_to_planes, nullptr},
    /* packed   */ {yuv_to_gray, nullptr, yuv_to_rgb, packed_to_planar, nullptr, packed_to_packed},
};

ConvertFn find_conversion(tavi_pixel_format from, tavi_pixel_format to) {
    if (from == to)
        return copy_image;
    if (layout_of(from) == kPacked && to == TAVI_PIXEL_FORMAT_YUV420SP_NV12)
        return packed_to_nv12;
    return kConversions[layout_of(from)][layout_of(to)];
}

// The format between, where no single conversion leads from one to the other.
tavi_pixel_format via(tavi_pixel_format from, tavi_pixel_format to) {
    if (from == TAVI_PIXEL_FORMAT_GRAY16 || to == TAVI_PIXEL_FORMAT_GRAY16)
        return TAVI_PIXEL_FORMAT_GRAY8;
    const bool halved = find_format(from)->yshift() == 1 || find_format(to)->yshift() == 1;
    return halved ? TAVI_PIXEL_FORMAT_YUV420P_YU12 : TAVI_PIXEL_FORMAT_YUV422P_YU16;
}

// --------------------------------------------------------------------------------------------------- odd edges

// The last row of an odd 4:2:0 image as a 4:2:2 image of one row, which uses the last chroma row. In a view of that
// row alone this is row -1: views are cut out of whole pictures, and the row above is there.
ImageView last_row_as_422(const ImageView& v) {
    ImageView row = v;
    row.format = find_format(v.id() + (TAVI_PIXEL_FORMAT_YUV422P_YU16 - TAVI_PIXEL_FORMAT_YUV420P_YU12));
    row.height = 1;
    row.plane[0].data = v.plane[0].row(v.height - 1);
    row.plane[0].rows = 1;
    for (int i = 1; i < row.planes(); ++i) {
        row.plane[i].data = v.plane[i].row(v.plane[i].rows - 1);
        row.plane[i].rows = 1;
    }
    return row;
}

// Somewhere to convert the last row of an odd 4:2:0 image to: its luma is kept, its chroma has no place.
ImageView luma_of_last_row(const ImageView& v, uint8_t* spare) {
    ImageView row = make_view(spare, TAVI_PIXEL_FORMAT_YUV422P_YU16, v.width, 1);
    row.plane[0].data = v.plane[0].row(v.height - 1);
    return row;
}

ImageView last_row(const ImageView& v) { return rows_of(v, v.height - 1, 1); }

void convert_last_row(const ImageView& s, const ImageView& d, int even_width) {
    Scratch scratch;
    uint8_t* spare = scratch.take<uint8_t>(2 * static_cast<size_t>(d.width));
    if (!spare)
        return;
    const Box even{0, 0, even_width, 1};
    const ImageView from = crop(is_420(s) ? last_row_as_422(s) : last_row(s), even);
    const ImageView to = crop(is_420(d) ? luma_of_last_row(d, spare) : last_row(d), even);
    find_conversion(from.id(), to.id())(from, to);
}

struct EdgePixel {
    uint8_t y, u, v; ///< YUV and grey sources
    uint8_t rgb[4];  ///< RGB sources, in the source's order
};

int packed_luma_at(const ImageView& v) { return chroma_kind(v) == kPackedYUYV ? 0 : 1; }

EdgePixel read_last_column(const ImageView& s, int y) {
    EdgePixel p = {};
    const int x = s.width - 1;
    const uint8_t* at = s.plane[0].at(x, y);
    if (s.format->model == Model::rgb) {
        std::memcpy(p.rgb, at, s.plane[0].step);
        return p;
    }
    if (!is_subsampled(s)) {
        p.y = *at;
        return p;
    }
    if (s.planes() == 1) {
        const int luma = packed_luma_at(s);
        const uint8_t* pair = s.plane[0].at(x - 2, y); // the last whole pair
        p.y = at[luma];
        p.u = pair[1 - luma];
        p.v = pair[3 - luma];
        return p;
    }
    const int c = std::min(y >> static_cast<int>(is_420(s)), s.plane[1].rows - 1);
    const uint8_t* uv = s.plane[1].at(s.plane[1].cols - 1, c);
    p.y = *at;
    p.u = s.planes() == 3 ? *uv : uv[s.format->swapped()];
    p.v = s.planes() == 3 ? *s.plane[2].at(s.plane[2].cols - 1, c) : uv[!s.format->swapped()];
    return p;
}

// The last column of an odd width: a pixel a row, by the kernels' own arithmetic on a pair of equal pixels.
void convert_last_column(const ImageView& s, const ImageView& d) {
    const Kernels& k = plain_kernels();
    for (int y = 0; y < d.height; ++y) {
        EdgePixel p = read_last_column(s, y);
        uint8_t* out = d.plane[0].at(d.width - 1, y);
        if (d.format->model == Model::rgb) {
            const uint8_t luma[2] = {p.y, p.y};
            uint8_t rgb[8];
            k.yuv_to_rgb[kPlanar][rgb_kind(d)](luma, &p.u, &p.v, rgb, 2, yuv_to_rgb_constants(s.color));
            std::memcpy(out, rgb, d.plane[0].step);
            continue;
        }
        if (s.format->model == Model::rgb) {
            uint8_t pair[8], luma[2], u, v;
            const int n = s.plane[0].step;
            std::memcpy(pair, p.rgb, n);
            std::memcpy(pair + n, p.rgb, n);
            k.rgb_to_yuv422[kPlanar][rgb_kind(s)](pair, luma, &u, &v, 2, rgb_to_yuv_constants(d.color));
            p.y = luma[0];
        }
        if (is_subsampled(d) && d.planes() == 1) {
            out[packed_luma_at(d)] = p.y;
            out[1 - packed_luma_at(d)] = 128;
        } else {
            *out = p.y;
        }
    }
}

} // namespace

void copy_plane(const PlaneView& src, const PlaneView& dst) {
    const size_t bytes = static_cast<size_t>(dst.cols) * dst.step;
    if (src.pitch == static_cast<ptrdiff_t>(bytes) && dst.pitch == src.pitch) {
        std::memcpy(dst.data, src.data, bytes * dst.rows);
        return;
    }
    for (int y = 0; y < dst.rows; ++y)
        std::memcpy(dst.row(y), src.row(y), bytes);
}

bool convert_image(const ImageView& src, const ImageView& dst) {
    const Scratch guard; // collects the failures of the conversions' own temporaries
    const ConvertFn convert = find_conversion(src.id(), dst.id());
    if (!convert) {
        const tavi_pixel_format between = via(src.id(), dst.id());
        Scratch scratch;
        uint8_t* pixels = scratch.take<uint8_t>(byte_count(*find_format(between), src.width, src.height));
        if (!pixels)
            return false;
        const ImageView middle = make_view(pixels, between, src.width, src.height);
        return convert_image(src, middle) && convert_image(middle, dst);
    }
    // Within one format too when it is packed: a part of a picture has chroma where its odd last column has none.
    const bool subsampled = (is_subsampled(src) || is_subsampled(dst)) && (src.id() != dst.id() || dst.planes() == 1);
    const int even_width = subsampled ? dst.width & ~1 : dst.width;
    const bool halved = subsampled && (is_420(src) || is_420(dst));
    const int even_height = halved ? dst.height & ~1 : dst.height;
    if (even_width == dst.width && even_height == dst.height) {
        convert(src, dst);
    } else if (even_width > 0 && even_height > 0) {
        const Box even{0, 0, even_width, even_height};
        convert(crop(src, even), crop(dst, even));
    }
    if (even_height < dst.height && even_width > 0)
        convert_last_row(src, dst, even_width);
    if (even_width < dst.width)
        convert_last_column(src, dst);
    return !guard.failed();
}

void mirror_image(const ImageView& src, const ImageView& dst) {
    for (int i = 0; i < dst.planes(); ++i) {
        const PlaneView &s = src.plane[i], &d = dst.plane[i];
        const auto row = kernels().mirror[d.step - 1];
        if (s.pitch == static_cast<ptrdiff_t>(s.cols) * s.step && d.pitch == -s.pitch) {
            row(s.data, d.row(d.rows - 1), d.cols * d.rows); // half a turn of a whole plane is one long row mirrored
            continue;
        }
        for (int y = 0; y < d.rows; ++y)
            row(s.row(y), d.row(y), d.cols);
    }
}

namespace {

// Tiles of columns first: the rows written to are few, and each is written in one run before the next tile.
void transpose_plane(const PlaneView& s, const PlaneView& d) {
    constexpr int kTile = 64;
    const int step = d.step;
    const auto rows16 = kernels().transpose16[step - 1];
    for (int x = 0; x < s.cols; x += kTile) {
        const int cols = std::min(kTile, s.cols - x);
        int y = 0;
        for (; y + 16 <= s.rows; y += 16)
            rows16(s.at(x, y), s.pitch, d.at(y, x), d.pitch, cols);
        for (; y < s.rows; ++y)
            for (int i = x; i < x + cols; ++i)
                std::memcpy(d.at(y, i), s.at(i, y), step);
    }
}

// 4:2:2 chroma turned: averaged in pairs of rows, which become columns, and doubled across, which becomes down.
bool transpose_chroma_422(const PlaneView& s, const PlaneView& d) {
    Scratch scratch;
    PlaneView mean;
    mean.cols = s.cols;
    mean.rows = d.cols;
    mean.step = s.step;
    mean.pitch = static_cast<ptrdiff_t>(s.cols) * s.step;
    mean.data = scratch.take<uint8_t>(static_cast<size_t>(mean.pitch) * mean.rows);
    if (!mean.data)
        return false;
    PlaneView even = s, odd = s;
    even.pitch = odd.pitch = 2 * s.pitch;
    odd.data += s.pitch;
    average_rows(even, odd, mean);
    for (int first = 0; first < 2; ++first) {
        PlaneView half = d;
        half.data += first * d.pitch;
        half.pitch *= 2;
        transpose_plane(mean, half);
    }
    if (d.rows > 2 * s.cols)
        std::memcpy(d.row(d.rows - 1), d.row(d.rows - 2), static_cast<size_t>(d.cols) * d.step);
    return true;
}

} // namespace

bool transpose_image(const ImageView& src, const ImageView& dst) {
    transpose_plane(src.plane[0], dst.plane[0]);
    for (int i = 1; i < dst.planes(); ++i) {
        if (dst.format->xshift() != dst.format->yshift()) {
            if (!transpose_chroma_422(src.plane[i], dst.plane[i]))
                return false;
        } else {
            transpose_plane(src.plane[i], dst.plane[i]);
        }
    }
    return true;
}

} // namespace tavi
