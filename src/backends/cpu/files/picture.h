// SPDX-License-Identifier: MIT
// Encoded pictures between bytes and views: what files and memory share. A build without files answers each of these
// with a refusal.
#pragma once

#include <memory>

#include "backends/cpu/files/codec.h"

namespace tavi {

constexpr int kDefaultQuality = 95; ///< of JPEG

/// Finds the codec by the first bytes and reads the header, whose sides are within kMaxSide then.
Refusal read_header(Input& input, std::unique_ptr<Decoder>& decoder, FileHeader& header);

/// The same for a picture that is to be decoded: it has at most `max_pixels`, or what TAVI_MAX_PIXELS says for 0, and
/// is not shorter than its header says, where the length of the input is known.
Refusal open_picture(Input& input, uint64_t max_pixels, std::unique_ptr<Decoder>& decoder, FileHeader& header);

/// The same for a file.
Refusal open_picture(const char* path, Input& input, std::unique_ptr<Decoder>& decoder, FileHeader& header);

/// Whether the sides of a picture are exchanged when it is turned upright.
bool turns_sides(int orientation);

/// Decodes an open picture into all of `target`, turned upright from `orientation`, scaled to its sides: straight
/// where that is what the codec gives. Steps are logged under the name of `caller`.
Refusal decode_picture(Decoder& decoder, const FileHeader& header, int orientation, const ImageView& target,
                       const char* caller);

/// Makes `picture` one that the ending's type can hold: converted into memory of `converted` where it is not.
Refusal make_encodable(const Ending& ending, ImageView& picture, Bytes& converted, const char* caller);

/// Encodes a picture; what the type cannot hold is converted first.
Refusal encode_picture(const ImageView& picture, PictureType type, int quality, ByteSink& output, const char* caller);

/// Writes a picture as the type that the ending of `path` names; opens `path` itself unless `output` is open.
Refusal write_picture(const tavi_image_t& img, const char* path, Output& output);

} // namespace tavi
