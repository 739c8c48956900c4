// SPDX-License-Identifier: MIT
// Views of pixel memory: where each plane of an image lies. A view owns nothing; cropping moves pointers and copies
// nothing. V and U are swapped once, when the view is made: afterwards plane 1 is U and plane 2 is V.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/colour.h"
#include "image/format.h"

namespace tavi {

struct PlaneView {
    uint8_t* data = nullptr;
    ptrdiff_t pitch = 0; ///< bytes from one row to the next; negative in a view that is upside down
    int cols = 0;        ///< columns, each `step` bytes wide
    int rows = 0;
    int step = 0; ///< bytes per column

    uint8_t* row(int y) const { return data + y * pitch; }
    uint8_t* at(int x, int y) const { return row(y) + static_cast<ptrdiff_t>(x) * step; }
};

/// Where a chroma sample stands among the pixels that it covers: in their middle, or at the first ones.
struct Siting {
    bool left;
    bool top;
};

struct ImageView {
    const Format* format = nullptr; ///< null: an empty view
    int width = 0;
    int height = 0;
    PlaneView plane[3];
    ColorSpace color;       ///< of YUV pixels
    bool chroma_up = false; ///< chroma of odd sides is rounded up: the last odd column or row has samples of its own
#if TAVI_WITH_FRAMES
    Siting siting = {}; ///< of its chroma
#else
    static constexpr Siting siting{};
#endif

    explicit operator bool() const { return format != nullptr; }
    int planes() const { return format->planes; }
    /// Of a picture in one of the public formats.
    tavi_pixel_format id() const { return static_cast<tavi_pixel_format>(format - kFormats.data()); }
};

/// The samples of one component, whatever the layout: a plane of their own, pairs, or packed.
struct Samples {
    uint8_t* data = nullptr;
    ptrdiff_t pitch = 0;
    int step = 0; ///< bytes from one to the next
    int cols = 0;
    int rows = 0;

    uint8_t* row(int y) const { return data + y * pitch; }
    uint8_t* at(int x, int y) const { return row(y) + static_cast<ptrdiff_t>(x) * step; }
};

/// A half-open rectangle in pixels.
struct Box {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

inline constexpr int kMaxSide = 16384; ///< largest side that the pixel routines accept

/// Samples along a side of so many pixels, each of which covers 1 << shift of them.
constexpr int samples_along(int side, int shift, bool up) { return (side + (up ? (1 << shift) - 1 : 0)) >> shift; }

/// Why an image cannot be viewed; null when it can. The text names what is allowed.
const char* why_not_viewable(uint32_t pixel_format, uint32_t width, uint32_t height);

/// A view of packed pixels at `data`: exactly byte_count() bytes. The shape must be viewable.
ImageView make_view(uint8_t* data, tavi_pixel_format format, int width, int height);

/// The planes of a picture, without memory, in the order of memory, their rows without gaps.
ImageView make_shape(const Format& format, int width, int height, ColorSpace color, bool chroma_up = false);

/// make_view() of a format that need not be a public one, its pixels of a colour space; packed_bytes() of them.
ImageView make_view(uint8_t* data, const Format& format, int width, int height, ColorSpace color,
                    bool chroma_up = false);

/// Bytes of all planes without gaps; where chroma rounds down these are byte_count() without the halves that it
/// drops.
uint64_t packed_bytes(const Format& format, int width, int height, bool chroma_up);

/// A component of a view, by its number in the format's row.
inline Samples samples_of(const ImageView& view, int part) {
    const Component& c = view.format->part[part];
    const PlaneView& p = view.plane[view.planes() == 3 ? part : c.plane];
    return {p.data + c.byte, p.pitch, c.step, samples_along(view.width, c.xshift, view.chroma_up),
            samples_along(view.height, c.yshift, view.chroma_up)};
}

/// What YUV is in a conversion between two views: that of RGB or grey says nothing.
inline ColorSpace color_between(const ImageView& src, const ImageView& dst) {
    return src.format->is_yuv() ? src.color : dst.color;
}

/// Part of a view. Where chroma is subsampled, the first chroma sample is the one that covers the box's first pixel.
ImageView crop(const ImageView& view, const Box& box);

/// The rows [first, first + count) of a view; for 4:2:0 `first` is even.
inline ImageView rows_of(const ImageView& view, int first, int count) {
    return crop(view, Box{0, first, view.width, count});
}

/// The same pixels from the bottom up.
ImageView flip_rows(const ImageView& view);

} // namespace tavi
