// SPDX-License-Identifier: MIT
// Any bytes as a TIFF block and as the segments of a JPEG.
#include "backends/cpu/files/exif.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int tiff = tavi::tiff_orientation(data, size);
    const int jpeg = tavi::jpeg_orientation(data, size);
    if (tiff < 1 || tiff > 8 || jpeg < 1 || jpeg > 8)
        __builtin_trap();
    return 0;
}
