// SPDX-License-Identifier: MIT
// What the file reader and writer know of a codec. Each codec's library is included in that codec's file and nowhere
// else; none of them logs: what went wrong is text in a Failure, and the contract function says it once.
#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/cpu/files/stream.h"
#include "image/view.h"

namespace tavi {

/// Why a file could not be read or written.
struct Failure {
    int code = TAVI_RET_SUCCESS;
    char reason[200] = "";

    /// Keeps the first reason given and answers false, so that `return why.set(...)` reads as it behaves.
    bool set(int result, const char* format, ...) __attribute__((format(printf, 3, 4)));
};

/// What the head of a file announces.
struct FileHeader {
    uint32_t width = 0;
    uint32_t height = 0;
    tavi_pixel_format stored = TAVI_PIXEL_FORMAT_RGB888; ///< GRAY8, GRAY16, RGB888 or RGBA8888
    int orientation = 1;                                 ///< as EXIF counts, 1 to 8
};

class Decoder {
public:
    virtual ~Decoder() = default;
    /// Reads up to the pixels. The sides are bounded by the caller before any memory is taken for them.
    virtual bool open(Input& input, FileHeader& header, Failure& why) = 0;
    /// The format nearest to the wanted one that decode() can fill.
    virtual tavi_pixel_format nearest(tavi_pixel_format wanted) const = 0;
    /// Fills the whole picture; called once.
    virtual bool decode(const ImageView& picture, Failure& why) = 0;
};

/// A type of file that can be read, known by its first bytes.
struct Signature {
    const char* name;
    bool (*matches)(const uint8_t* head, size_t size);
    Decoder* (*make)(); ///< null when the heap refuses
};

/// A type of file that can be written, known by the ending of its name.
struct Ending {
    const char* text;
    tavi_pixel_format (*nearest)(tavi_pixel_format have); ///< what encode() takes instead
    bool (*encode)(const ImageView& picture, Output& output, Failure& why);
};

extern const Signature kJpegSignature, kPngSignature, kBmpSignature, kPnmSignature;
extern const Ending kJpgEnding, kJpegEnding, kPngEnding, kBmpEnding, kPpmEnding, kPgmEnding;

} // namespace tavi
