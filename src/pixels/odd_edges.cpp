// SPDX-License-Identifier: MIT
#include "pixels/odd_edges.h"

#include <algorithm>
#include <cstring>

#include "image/scratch.h"
#include "pixels/even.h"
#include "pixels/one_pixel.h"

namespace tavi {
namespace {

bool is_420(const ImageView& v) { return v.format->yshift() == 1; }

// The last row of an odd 4:2:0 image as a 4:2:2 image of one row, which uses the last chroma row. Where chroma rounds
// down this is row -1 of a view of that row alone: views are cut out of whole pictures, and the row above is there.
ImageView last_row_as_422(const ImageView& v) {
    ImageView row = v;
    row.format = find_yuv(v.planes(), 1, 0, v.format->swapped());
    row.height = 1;
    row.plane[0].data = v.plane[0].row(v.height - 1);
    row.plane[0].rows = 1;
    for (int i = 1; i < row.planes(); ++i) {
        row.plane[i].data = v.plane[i].row(v.plane[i].rows - 1);
        row.plane[i].rows = 1;
    }
    return row;
}

ImageView last_row(const ImageView& v) { return rows_of(v, v.height - 1, 1); }

bool convert_last_row(const ImageView& s, const ImageView& d, int even_width) {
    Scratch scratch;
    const ImageView from = is_420(s) ? last_row_as_422(s) : last_row(s);
    ImageView to = is_420(d) && d.chroma_up ? last_row_as_422(d) : last_row(d);
    if (is_420(to)) { // its luma is kept, its chroma has no place
        const Format& planar = *find_yuv(3, 1, 0, false);
        uint8_t* spare = scratch.take<uint8_t>(byte_count(planar, d.width, 1));
        if (!spare)
            return false;
        to = make_view(spare, planar, d.width, 1, d.color);
        to.plane[0].data = d.plane[0].row(d.height - 1);
    }
    const Box even{0, 0, even_width, 1};
    return find_conversion(*from.format, *to.format)(crop(from, even), crop(to, even));
}

Pixel read_last_column(const ImageView& s, int y) {
    Pixel p = {};
    for (int i = 0; i < s.format->parts; ++i) {
        const Component& c = s.format->part[i];
        const Samples samples = samples_of(s, i);
        // The last column and row share their neighbour's chroma.
        p.part[i] = *samples.at(std::min((s.width - 1) >> c.xshift, samples.cols - 1),
                                std::min(y >> c.yshift, samples.rows - 1));
    }
    return p;
}

// The chroma of the last column's pixels from row `y` on, `rows` of them (1 or 2) to a sample.
Pixel chroma_of_column(const ImageView& s, int y, int rows, const Format& to, ColorSpace color) {
    Pixel p = read_last_column(s, y);
    if (rows == 2) {
        const Pixel below = read_last_column(s, y + 1);
        if (s.format->model == Model::rgb) {
            const RgbToYuv& k = rgb_to_yuv_constants(color);
            const Rgb sum{p.part[0] + below.part[0], p.part[1] + below.part[1], p.part[2] + below.part[2]};
            return {{0, chroma_of(sum, k.u, 1), chroma_of(sum, k.v, 1)}};
        }
        for (int i = 1; i < s.format->parts; ++i)
            p.part[i] = static_cast<uint16_t>((p.part[i] + below.part[i] + 1) / 2);
    }
    return convert_pixel(p, *s.format, to, color);
}

// The last column of an odd width: a pixel a row, without the chroma where the destination has no place for it.
void convert_last_column(const ImageView& s, const ImageView& d) {
    const ColorSpace color = color_between(s, d);
    const Format& f = *d.format;
    const int x = d.width - 1, parts = f.subsampled() ? 1 : f.parts;
    for (int y = 0; y < d.height; ++y) {
        const Pixel p = convert_pixel(read_last_column(s, y), *s.format, f, color);
        if (f.packed() && !d.chroma_up)
            std::memset(d.plane[0].at(x, y), kNeutral, d.plane[0].step);
        for (int i = 0; i < parts; ++i)
            *samples_of(d, i).at(x, y) = static_cast<uint8_t>(p.part[i]);
        if (f.packed() && d.chroma_up) // the pair's other luma
            *samples_of(d, 0).at(x + 1, y) = static_cast<uint8_t>(p.part[0]);
    }
    if (!f.subsampled() || !d.chroma_up)
        return;
    for (int row = 0; row < samples_along(d.height, f.yshift(), true); ++row) {
        const int y = row << f.yshift(), rows = std::min(1 << f.yshift(), d.height - y);
        const Pixel p = chroma_of_column(s, y, rows, f, color);
        for (int i = 1; i < 3; ++i)
            *samples_of(d, i).at(x >> 1, row) = static_cast<uint8_t>(p.part[i]);
    }
}

} // namespace

bool convert_image(const ImageView& src, const ImageView& dst) {
    const ConvertFn convert = find_conversion(*src.format, *dst.format);
    const bool subsampled = src.format->subsampled() || dst.format->subsampled();
    // Within one format only when it is packed, since a part of a picture has chroma where its odd last column has
    // none, or when one side rounds the other way.
    const bool by_pairs =
        subsampled && (src.format != dst.format || dst.format->packed() || src.chroma_up != dst.chroma_up);
    const int even_width = by_pairs ? dst.width & ~1 : dst.width;
    const int even_height = by_pairs && (is_420(src) || is_420(dst)) ? dst.height & ~1 : dst.height;
    if (even_width == dst.width && even_height == dst.height)
        return convert(src, dst);
    if (even_width > 0 && even_height > 0) {
        const Box even{0, 0, even_width, even_height};
        if (!convert(crop(src, even), crop(dst, even)))
            return false;
    }
    if (even_height < dst.height && even_width > 0 && !convert_last_row(src, dst, even_width))
        return false;
    if (even_width < dst.width)
        convert_last_column(src, dst);
    return true;
}

} // namespace tavi
