// SPDX-License-Identifier: MIT
// What is read of a file's head beside its codec: the one EXIF tag that changes what a picture looks like, its
// orientation, and the chroma grid of a JPEG.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavi {

/// The orientation, 1 to 8, in a TIFF block as JPEG's APP1 (after "Exif\0\0") and PNG's eXIf chunk carry it; 1 for
/// anything that is not a well-formed orientation.
int tiff_orientation(const uint8_t* tiff, size_t size);

/// The orientation of a JPEG file: that of the first EXIF block before the picture.
int jpeg_orientation(const uint8_t* jpeg, size_t size);

/// The pixels that a chroma sample of a JPEG covers across and down; 1 for grey and where it is not said.
struct Subsampling {
    int x = 1;
    int y = 1;
};
Subsampling jpeg_subsampling(const uint8_t* jpeg, size_t size);

} // namespace tavi
