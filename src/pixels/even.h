// SPDX-License-Identifier: MIT
// The table of conversions between formats, each one pass over views of the same size, even where chroma is
// subsampled. What has no entry is reached over another format, by a plan.
#pragma once

#include "image/view.h"
#include "kernels/kernels.h"

namespace tavi {

/// Converts even views. False when there is no memory for a row.
using ConvertFn = bool (*)(const ImageView& src, const ImageView& dst);

/// The conversion between two formats; null when there is none in one step.
ConvertFn find_conversion(const Format& from, const Format& to);

inline bool converts_directly(const Format& from, const Format& to) { return find_conversion(from, to) != nullptr; }

/// The kernel's name for the order of an RGB format's bytes.
inline RgbKind rgb_kind(const Format& f) { return static_cast<RgbKind>(2 * (f.parts == 4) + f.swapped()); }

/// The kernel's name for the layout of a YUV format's chroma.
inline ChromaKind chroma_kind(const Format& f) {
    if (f.packed())
        return f.part[0].byte == 0 ? kPackedYUYV : kPackedUYVY;
    return f.planes == 3 ? kPlanar : f.swapped() ? kPairsVU : kPairsUV;
}

/// Copies one plane.
void copy_plane(const PlaneView& src, const PlaneView& dst);

/// The mean of each two rows, one of either plane.
void average_rows(const PlaneView& even, const PlaneView& odd, const PlaneView& dst);

} // namespace tavi
