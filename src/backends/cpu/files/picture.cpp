// SPDX-License-Identifier: MIT
// Which codec, straight or through a picture in between, and which way up: for files and memory alike.
#include "backends/cpu/files/picture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "pixels/convert.h"
#include "pixels/image_scaler.h"
#include "services/pixel_limit.h"

namespace tavi {

namespace {

constexpr const Signature* kSignatures[] = {&kJpegSignature, &kPngSignature, &kBmpSignature, &kPnmSignature};

/// What turns a file's picture upright, by EXIF orientation. There is no mode for the seventh, a mirror along the
/// other diagonal: it is a quarter turn of the picture with its rows reversed.
struct Turn {
    tavi_image_transform_mode mode;
    bool reverses_rows = false;
};
constexpr Turn kTurns[] = {
    {TAVI_IMAGE_TRANSFORM_NONE},       {TAVI_IMAGE_TRANSFORM_NONE},
    {TAVI_IMAGE_TRANSFORM_FLIP_H},     {TAVI_IMAGE_TRANSFORM_ROTATE_180},
    {TAVI_IMAGE_TRANSFORM_FLIP_V},     {TAVI_IMAGE_TRANSFORM_TRANSPOSE},
    {TAVI_IMAGE_TRANSFORM_ROTATE_90},  {TAVI_IMAGE_TRANSFORM_ROTATE_270, true},
    {TAVI_IMAGE_TRANSFORM_ROTATE_270},
};

void reverse_rows(const ImageView& picture) {
    for (int i = 0; i < picture.planes(); ++i) {
        const PlaneView& p = picture.plane[i];
        for (int y = 0; y < p.rows / 2; ++y)
            std::swap_ranges(p.row(y), p.row(y) + static_cast<ptrdiff_t>(p.cols) * p.step, p.row(p.rows - 1 - y));
    }
}

/// Decodes a few rows at a time, which are scaled at once: the picture of the file never stands in memory.
Refusal decode_shrunk(Decoder& decoder, const FileHeader& header, const ImageView& result) {
    const bool from_bottom = decoder.rows() == Decoder::Rows::from_bottom;
    const ImageView small = from_bottom ? flip_rows(result) : result;
    const Format& f = *small.format;
    const int width = static_cast<int>(header.width), height = static_cast<int>(header.height);
    Scratch scratch;
    ImageScaler scaler;
    bool room = scaler.init(scratch, {&f, width, height, Box{0, 0, width, height}, &f, small.width, small.height,
                                      TAVI_IMAGE_RESIZE_DEFAULT});
    int most = 1;
    for (int y = 0; room && y < small.height; ++y) {
        const RowRange r = scaler.source_rows(y, y + 1);
        most = std::max(most, r.end - r.begin);
    }
    uint8_t* const pixels = room ? scratch.take<uint8_t>(byte_count(f, header.width, most)) : nullptr;
    if (!pixels)
        return {TAVI_RET_FAIL, "no memory for %d rows of %d pixels", most, width};
    const ImageView kept = make_view(pixels, f, width, most, small.color);
    const size_t pitch = kept.plane[0].pitch;
    int end = 0; // of the rows that have come; the last of them are kept
    Refusal no;
    const auto skip_to = [&](int row) {
        for (; !no && end < row; ++end)
            no = decoder.decode_rows(rows_of(kept, 0, 1));
    };
    for (int y = 0, first = 0; !no && y < small.height; ++y) {
        const RowRange r = scaler.source_rows(y, y + 1);
        if (r.begin < end)
            std::memmove(pixels, pixels + pitch * static_cast<size_t>(r.begin - first),
                         pitch * static_cast<size_t>(end - r.begin));
        skip_to(r.begin);
        first = r.begin;
        if (!no && end < r.end)
            no = decoder.decode_rows(rows_of(kept, end - first, r.end - end));
        end = std::max(end, r.end);
        if (!no)
            scaler.run(rows_of(kept, 0, r.end - first), first, y, rows_of(small, y, 1));
    }
    skip_to(height); // a damaged end is damage too
    return no;
}

const Ending& ending_of(PictureType type, const Format& have) {
    switch (type) {
    case PictureType::jpeg:
        return kJpgEnding;
    case PictureType::png:
        return kPngEnding;
    case PictureType::bmp:
        return kBmpEnding;
    default:
        return have.model == Model::gray ? kPgmEnding : kPpmEnding;
    }
}

} // namespace

bool turns_sides(int orientation) { return exchanges_sides(kTurns[orientation].mode); }

Refusal read_header(Input& input, std::unique_ptr<Decoder>& decoder, FileHeader& header) {
    const auto found = std::find_if(std::begin(kSignatures), std::end(kSignatures),
                                    [&](const Signature* s) { return s->matches(input.head(), input.head_size()); });
    if (found == std::end(kSignatures))
        return {TAVI_RET_UNSUPPORTED, "its first bytes are not those of a JPEG, PNG, BMP or PNM file"};
    decoder.reset((*found)->make());
    if (!decoder)
        return {TAVI_RET_FAIL, "no memory for the decoder"};
    header.type = (*found)->name;
    header.kind = (*found)->kind;
    if (const Refusal no = decoder->open(input, header))
        return no;
    if (header.width < 1 || header.height < 1)
        return {TAVI_RET_FAIL, "damaged %s: sides %u x %u", header.type, header.width, header.height};
    if (header.width > kMaxSide || header.height > kMaxSide)
        return {TAVI_RET_UNSUPPORTED, "picture of %u x %u; allowed sides are 1 to %d", header.width, header.height,
                kMaxSide};
    return {};
}

Refusal open_picture(Input& input, uint64_t max_pixels, std::unique_ptr<Decoder>& decoder, FileHeader& header) {
    if (const Refusal no = read_header(input, decoder, header))
        return no;
    const uint64_t most = max_pixels ? max_pixels : static_cast<uint64_t>(pixel_limit());
    if (uint64_t{header.width} * header.height > most)
        return Refusal(TAVI_RET_UNSUPPORTED, "picture of %u x %u; allowed are %llu pixels (%s)", header.width,
                       header.height, static_cast<unsigned long long>(most),
                       max_pixels ? "max_pixels" : "TAVI_MAX_PIXELS");
    if (header.bytes > input.left())
        return {TAVI_RET_FAIL, "damaged %s: the file ends before its last row", header.type};
    return {};
}

Refusal open_picture(const char* path, Input& input, std::unique_ptr<Decoder>& decoder, FileHeader& header) {
    if (!input.open(path))
        return {TAVI_RET_FAIL, "%s", std::strerror(errno)};
    return open_picture(input, 0, decoder, header);
}

Refusal decode_picture(Decoder& decoder, const FileHeader& of_file, int orientation, const ImageView& target,
                       const char* caller) {
    const Turn& turn = kTurns[orientation];
    FileHeader header = of_file;
    const bool turned = exchanges_sides(turn.mode);
    const int upright_width = turned ? target.height : target.width;
    const int upright_height = turned ? target.width : target.height;
    decoder.reduce(header, upright_width, upright_height);
    const int width = static_cast<int>(header.width);
    const int height = static_cast<int>(header.height);
    tavi_pixel_format nearest = decoder.nearest(target);
    if (turn.mode == TAVI_IMAGE_TRANSFORM_NONE && nearest == target.id() && width == target.width &&
        height == target.height)
        return decoder.decode(target);
    if (!target.chroma_up && why_not_viewable(nearest, header.width, header.height))
        nearest = TAVI_PIXEL_FORMAT_RGB888; // one row or column has no chroma sample, and may grow to a size that has
    // Scaled by rows where a conversion of the whole would scale first, too.
    const bool shrinks = int64_t{upright_width} * upright_height < int64_t{width} * height;
    const bool by_rows =
        shrinks && decoder.rows() != Decoder::Rows::at_once && target.format->bits <= kFormats[nearest].bits;
    if (by_rows && turn.mode == TAVI_IMAGE_TRANSFORM_NONE && nearest == target.id())
        return decode_shrunk(decoder, header, target);
    const int held_width = by_rows ? upright_width : width, held_height = by_rows ? upright_height : height;
    const Format& held = kFormats[nearest];
    const Bytes pixels = allocate_bytes(packed_bytes(held, held_width, held_height, target.chroma_up));
    if (!pixels)
        return {TAVI_RET_FAIL, "no memory for a picture of %dx%d", held_width, held_height};
    const ImageView picture = make_view(pixels.get(), held, held_width, held_height, target.color, target.chroma_up);
    if (const Refusal no = by_rows ? decode_shrunk(decoder, header, picture) : decoder.decode(picture))
        return no;
    if (turn.reverses_rows)
        reverse_rows(picture);
    return convert_views(picture, target, turn.mode, TAVI_IMAGE_RESIZE_DEFAULT, caller);
}

Refusal make_encodable(const Ending& ending, ImageView& picture, Bytes& converted, const char* caller) {
    const tavi_pixel_format format = ending.nearest(picture);
    if (format == picture.id())
        return {};
    converted = allocate_bytes(
        byte_count(kFormats[format], static_cast<uint32_t>(picture.width), static_cast<uint32_t>(picture.height)));
    if (!converted)
        return {TAVI_RET_FAIL, "no memory for a picture of %dx%d", picture.width, picture.height};
    const ImageView target =
        make_view(converted.get(), kFormats[format], picture.width, picture.height, picture.color);
    if (const Refusal no =
            convert_views(picture, target, TAVI_IMAGE_TRANSFORM_NONE, TAVI_IMAGE_RESIZE_DEFAULT, caller))
        return no;
    picture = target;
    return {};
}

Refusal encode_picture(const ImageView& picture, PictureType type, int quality, ByteSink& output,
                       const char* caller) {
    const Ending& ending = ending_of(type, *picture.format);
    ImageView encodable = picture;
    Bytes converted;
    if (const Refusal no = make_encodable(ending, encodable, converted, caller))
        return no;
    return ending.encode(encodable, quality, output);
}

} // namespace tavi
