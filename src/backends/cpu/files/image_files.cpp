// SPDX-License-Identifier: MIT
// The contract of reading and writing image files: which codec, which format, whose memory, which way up.
#define TAVI_LOG_TAG "tavi-cpu"
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "backends/cpu/files/codec.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "image/cpu_image.h"
#include "pixels/convert.h"
#include "pixels/image_scaler.h"
#include "services/log.h"
#include "services/pixel_limit.h"
#include "services/tavi_mem.h"
#include "services/yuv_setting.h"

namespace tavi {

namespace {

constexpr const Signature* kSignatures[] = {&kJpegSignature, &kPngSignature, &kBmpSignature, &kPnmSignature};
constexpr const Ending* kEndings[] = {&kJpgEnding, &kJpegEnding, &kPngEnding, &kBmpEnding, &kPpmEnding, &kPgmEnding};

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

struct MemDeleter {
    void operator()(uint8_t* data) const { tavi_mem_free_by_virt_addr(data); }
};

struct Shape {
    tavi_pixel_format format;
    uint32_t width;
    uint32_t height;
};

/// What the caller is to get.
Refusal choose_shape(const FileHeader& header, const Turn& turn, const tavi_image_t& img, int kind, Shape& shape) {
    shape = {TAVI_PIXEL_FORMAT_RGB888, header.width, header.height};
    if (exchanges_sides(turn.mode))
        std::swap(shape.width, shape.height);
    if (kind == TAVI_IMAGE_READ_AS_STORED)
        shape.format = header.stored;
    else if (kind == TAVI_IMAGE_READ_GRAY)
        shape.format = TAVI_PIXEL_FORMAT_GRAY8;
    else if (kind == TAVI_IMAGE_READ_INTO_RECORD) {
        shape.format = img.pixel_format;
        if (img.width != 0 && img.height != 0) {
            shape.width = img.width;
            shape.height = img.height;
        }
    }
    if (const char* const rule = why_not_viewable(shape.format, shape.width, shape.height))
        return Refusal(TAVI_RET_UNSUPPORTED, "%ux%u in format %u: %s", shape.width, shape.height,
                       static_cast<unsigned>(shape.format), rule);
    return {};
}

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

/// Decodes into `target`: straight when it is what the codec gives, else through a picture of the file's own shape.
Refusal decode_into(Decoder& decoder, FileHeader header, const Turn& turn, const ImageView& target) {
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
    if (why_not_viewable(nearest, header.width, header.height))
        nearest = TAVI_PIXEL_FORMAT_RGB888; // one row or column has no chroma sample, and may grow to a size that has
    // Scaled by rows where a conversion of the whole would scale first, too.
    const bool shrinks = int64_t{upright_width} * upright_height < int64_t{width} * height;
    const bool by_rows =
        shrinks && decoder.rows() != Decoder::Rows::at_once && target.format->bits <= kFormats[nearest].bits;
    if (by_rows && turn.mode == TAVI_IMAGE_TRANSFORM_NONE && nearest == target.id())
        return decode_shrunk(decoder, header, target);
    const int held_width = by_rows ? upright_width : width, held_height = by_rows ? upright_height : height;
    const Bytes pixels = allocate_bytes(
        byte_count(kFormats[nearest], static_cast<uint32_t>(held_width), static_cast<uint32_t>(held_height)));
    if (!pixels)
        return {TAVI_RET_FAIL, "no memory for a picture of %dx%d", held_width, held_height};
    const ImageView picture = make_view(pixels.get(), kFormats[nearest], held_width, held_height, target.color);
    if (const Refusal no = by_rows ? decode_shrunk(decoder, header, picture) : decoder.decode(picture))
        return no;
    if (turn.reverses_rows)
        reverse_rows(picture);
    return convert_views(picture, target, turn.mode, TAVI_IMAGE_RESIZE_DEFAULT, "tavi_image_read_cpu");
}

} // namespace

Refusal open_picture(const char* path, Input& input, std::unique_ptr<Decoder>& decoder, FileHeader& header) {
    if (!input.open(path))
        return {TAVI_RET_FAIL, "%s", std::strerror(errno)};
    const auto found = std::find_if(std::begin(kSignatures), std::end(kSignatures),
                                    [&](const Signature* s) { return s->matches(input.head(), input.head_size()); });
    if (found == std::end(kSignatures))
        return {TAVI_RET_UNSUPPORTED, "its first bytes are not those of a JPEG, PNG, BMP or PNM file"};
    decoder.reset((*found)->make());
    if (!decoder)
        return {TAVI_RET_FAIL, "no memory for the decoder"};
    header.type = (*found)->name;
    if (const Refusal no = decoder->open(input, header))
        return no;
    if (header.width < 1 || header.height < 1)
        return {TAVI_RET_FAIL, "damaged %s: sides %u x %u", header.type, header.width, header.height};
    if (header.width > kMaxSide || header.height > kMaxSide)
        return {TAVI_RET_UNSUPPORTED, "picture of %u x %u; allowed sides are 1 to %d", header.width, header.height,
                kMaxSide};
    if (uint64_t{header.width} * header.height > static_cast<uint64_t>(pixel_limit()))
        return {TAVI_RET_UNSUPPORTED, "picture of %u x %u; allowed are %d pixels (TAVI_MAX_PIXELS)", header.width,
                header.height, pixel_limit()};
    if (header.bytes > input.left())
        return {TAVI_RET_FAIL, "damaged %s: the file ends before its last row", header.type};
    return {};
}

namespace {

Refusal read_file(const char* path, tavi_image_t& img, int read_flag) {
    const int kind = read_flag & ~TAVI_IMAGE_READ_IGNORE_ORIENTATION;
    const bool lent = img.is_prealloc_buf == 1;
    if (kind < TAVI_IMAGE_READ_COLOR || kind > TAVI_IMAGE_READ_INTO_RECORD)
        return {TAVI_RET_PARAM_ERR, "read_flag=%d; allowed are 0 to 3, with 16 added or not", read_flag};
    if (kind == TAVI_IMAGE_READ_INTO_RECORD && !find_format(img.pixel_format))
        return {TAVI_RET_PARAM_ERR, "pixel_format=%u; allowed are 0 to 15", static_cast<unsigned>(img.pixel_format)};
    if (lent != (img.data != nullptr)) // memory that nobody would free, or none where some was promised
        return {TAVI_RET_PARAM_ERR, "data=%p with is_prealloc_buf=%d; give memory and 1, or null and 0",
                static_cast<void*>(img.data), img.is_prealloc_buf};
    Input input;
    std::unique_ptr<Decoder> decoder;
    FileHeader header;
    if (const Refusal no = open_picture(path, input, decoder, header))
        return no;
    const bool upright = (read_flag & TAVI_IMAGE_READ_IGNORE_ORIENTATION) != 0;
    const Turn& turn = kTurns[upright ? 1 : header.orientation];
    Shape shape;
    if (const Refusal no = choose_shape(header, turn, img, kind, shape))
        return no;
    const uint64_t bytes = byte_count(kFormats[shape.format], shape.width, shape.height); // at most 2^30
    std::unique_ptr<uint8_t, MemDeleter> attached;
    if (!lent) {
        tavi_mem_record_t record = {};
        if (tavi_mem_alloc(static_cast<int>(bytes), TAVI_MEM_TYPE_HEAP, &record) != TAVI_RET_SUCCESS)
            return {TAVI_RET_FAIL, "no memory for %ux%u pixels", shape.width, shape.height};
        attached.reset(static_cast<uint8_t*>(record.virt_addr));
    } else if (img.size < bytes) {
        return Refusal(TAVI_RET_PARAM_ERR, "size=%u is too small for %ux%u in format %u, which needs %u", img.size,
                       shape.width, shape.height, static_cast<unsigned>(shape.format), static_cast<unsigned>(bytes));
    }
    tavi_image_t target = img;
    target.data = lent ? img.data : attached.get();
    target.fd = lent ? img.fd : 0;
    target.pixel_format = shape.format;
    target.width = shape.width;
    target.height = shape.height;
    {
        const CpuImage pixels(&target, Access::write, yuv_setting());
        if (!pixels)
            return pixels.refusal();
        pixels.clear_tail();
        if (const Refusal no = decode_into(*decoder, header, turn, pixels.view()))
            return no;
    }
    img.pixel_format = shape.format;
    img.width = shape.width;
    img.height = shape.height;
    if (!lent) {
        img.data = attached.release();
        img.size = static_cast<uint32_t>(bytes);
        img.is_prealloc_buf = 0;
        img.fd = 0;
        img.data_phy = nullptr;
    }
    return {};
}

const Ending* find_ending(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    const char* const dot = std::strrchr(slash ? slash : path, '.');
    const auto found = std::find_if(std::begin(kEndings), std::end(kEndings),
                                    [&](const Ending* e) { return dot && ::strcasecmp(dot, e->text) == 0; });
    return found == std::end(kEndings) ? nullptr : *found;
}

} // namespace

Refusal write_picture(const tavi_image_t& img, const char* path, Output& output) {
    const Ending* const ending = find_ending(path);
    if (!ending)
        return {TAVI_RET_UNSUPPORTED, "unknown ending; allowed are .jpg, .jpeg, .png, .bmp, .ppm and .pgm"};
    const CpuImage source(&img, Access::read, yuv_setting());
    if (!source)
        return Refusal(source.refusal().code, "%ux%u in format %u: %s", img.width, img.height,
                       static_cast<unsigned>(img.pixel_format), source.refusal().text);
    ImageView picture = source.view();
    const tavi_pixel_format format = ending->nearest(picture);
    Bytes converted;
    if (format != picture.id()) {
        converted = allocate_bytes(byte_count(kFormats[format], img.width, img.height));
        if (!converted)
            return {TAVI_RET_FAIL, "no memory for a picture of %ux%u", img.width, img.height};
        const ImageView target = make_view(converted.get(), format, picture.width, picture.height); // grey or RGB
        if (const Refusal no = convert_views(picture, target, TAVI_IMAGE_TRANSFORM_NONE, TAVI_IMAGE_RESIZE_DEFAULT,
                                             "tavi_image_write_cpu"))
            return no;
        picture = target;
    }
    if (!output.is_open() && !output.open(path))
        return {TAVI_RET_FAIL, "%s", std::strerror(errno)};
    if (const Refusal no = ending->encode(picture, output))
        return no;
    if (!output.commit())
        return {TAVI_RET_FAIL, "%s", std::strerror(errno)};
    return {};
}

} // namespace tavi

extern "C" int tavi_image_read_cpu(const char* path, tavi_image_t* img, int read_flag) {
    if (!path || !img) {
        LOG_ERROR("path=%p img=%p; neither may be null", static_cast<const void*>(path), static_cast<void*>(img));
        return TAVI_RET_PARAM_ERR;
    }
    const tavi::Refusal no = tavi::read_file(path, *img, read_flag);
    if (no)
        LOG_ERROR("cannot read %s: %s", path, no.text);
    return no.code;
}

extern "C" int tavi_image_write_cpu(const char* path, tavi_image_t* img) {
    if (!path || !img) {
        LOG_ERROR("path=%p img=%p; neither may be null", static_cast<const void*>(path), static_cast<void*>(img));
        return TAVI_RET_PARAM_ERR;
    }
    tavi::Output output;
    const tavi::Refusal no = tavi::write_picture(*img, path, output);
    if (no)
        LOG_ERROR("cannot write %s: %s", path, no.text);
    return no.code;
}
