// SPDX-License-Identifier: MIT
// What reader and writer know of a codec. Each codec's library is included in that codec's file and nowhere
// else; none of them logs: what went wrong is a Refusal, and the contract function says it once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "backends/cpu/files/stream.h"
#include "image/refusal.h"
#include "image/view.h"

namespace tavi {

/// As the public interface counts them.
enum class PictureType { jpeg = 1, png, bmp, pnm };

/// What the head of a file announces.
struct FileHeader {
    const char* type = ""; ///< name of its signature
    PictureType kind = PictureType::jpeg;
    uint32_t width = 0;
    uint32_t height = 0;
    tavi_pixel_format stored = TAVI_PIXEL_FORMAT_RGB888; ///< GRAY8, GRAY16, RGB888 or RGBA8888
    int bits = 8;                                        ///< of a channel; of the widest where they differ
    int xsubsampling = 1;                                ///< pixels that a chroma sample covers across
    int ysubsampling = 1;                                ///< and down
    int orientation = 1;                                 ///< as EXIF counts, 1 to 8
    uint64_t bytes = 0;                                  ///< that have to follow, where the type says so
};

class Decoder {
public:
    virtual ~Decoder() = default;
    /// Reads up to the pixels. The sides are bounded by the caller before any memory is taken for them.
    virtual Refusal open(Input& input, FileHeader& header) = 0;
    /// The format nearest to that of a picture that decode() can fill.
    virtual tavi_pixel_format nearest(const ImageView& wanted) const = 0;
    /// For a picture that will be scaled to these sides or below: the codec may give fewer pixels than the file has,
    /// of which `header` then tells, as long as they are enough to scale from.
    virtual void reduce(FileHeader&, int /*width*/, int /*height*/) {}
    /// Fills the whole picture; called once.
    virtual Refusal decode(const ImageView& picture) = 0;

    /// Whether it can also be had a few rows at a time, and which end comes first.
    enum class Rows { at_once, from_top, from_bottom };
    virtual Rows rows() const { return Rows::at_once; }
    /// Fills the next rows of the picture, in the order of the file; in place of decode(), until all have come.
    virtual Refusal decode_rows(const ImageView& /*rows*/) { return {TAVI_RET_UNSUPPORTED, "no rows"}; }
};

/// A type of file that can be read, known by its first bytes.
struct Signature {
    const char* name;
    PictureType kind;
    bool (*matches)(const uint8_t* head, size_t size);
    Decoder* (*make)(); ///< null when the heap refuses
};

/// A type of file that can be written, known by the ending of its name.
struct Ending {
    const char* text;
    tavi_pixel_format (*nearest)(const ImageView& have); ///< what encode() takes instead
    /// `quality` is 1 to 100, for types that lose something.
    Refusal (*encode)(const ImageView& picture, int quality, ByteSink& output);
};

extern const Signature kJpegSignature, kPngSignature, kBmpSignature, kPnmSignature;
extern const Ending kJpgEnding, kJpegEnding, kPngEnding, kBmpEnding, kPpmEnding, kPgmEnding;

} // namespace tavi
